// The settings that are lists of items, and the keys of commands.
#include "app/config_internal.h"
#include "base/mem.h"
#include "base/utf8.h"
#include "os/debug.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <iterator>

namespace findwright {

// --- The table of lists ------------------------------------------------------------------------------------

#define FIELD(type, key, item, member, default_value, is_required, meaning)                                  \
    { key, meaning, CONFIG_##type, offsetof(item, member), default_value, is_required }

#define VOLUME_FIELDS(kind)                                                                                  \
    {                                                                                                        \
        FIELD(PATH, kind "_volume_guids", config_volume_t, guid, 0, true,                                    \
              "the name the volume is opened by: a device or an image"),                                     \
            FIELD(PATH, kind "_volume_paths", config_volume_t, path, 0, true,                                \
                  "the name its items appear under"),                                                        \
            FIELD(PATH, kind "_volume_roots", config_volume_t, root, 0, false,                               \
                  "the folder of it to begin with"),                                                         \
            FIELD(SMALL, kind "_volume_includes", config_volume_t, include, 1, false, "is in the index"),    \
            FIELD(SMALL, kind "_volume_load_recent_changes", config_volume_t, load_recent_changes, 0, false, \
                  "look for recent changes at the start"),                                                   \
            FIELD(TEXT, kind "_volume_include_onlys", config_volume_t, include_only, 0, false,               \
                  "list of folders to keep to"),                                                             \
            FIELD(SMALL, kind "_volume_monitors", config_volume_t, monitor, 1, false, "follow its changes"), \
    }

static const config_field_t _ntfs_fields[] = VOLUME_FIELDS("ntfs");
static const config_field_t _refs_fields[] = VOLUME_FIELDS("refs");
static const config_field_t _exclude_fields[] = {
    FIELD(PATH, "exclude_folders", config_exclude_folder_t, path, 0, true, "the folder"),
};
static const config_field_t _file_list_fields[] = {
    FIELD(PATH, "filelists", config_file_list_t, filename, 0, true, "the file"),
    FIELD(SMALL, "filelist_monitor_changes", config_file_list_t, monitor_changes, 1, false,
          "read it again when it changes"),
};
static const config_field_t _folder_fields[] = {
    FIELD(PATH, "folders", config_folder_t, path, 0, true, "the folder"),
    FIELD(SMALL, "folder_monitor_changes", config_folder_t, monitor_changes, 1, false, "follow its changes"),
    FIELD(NUMBER, "folder_buffer_size_list", config_folder_t, buffer_size, 65536, false,
          "bytes for changes that wait"),
    FIELD(SMALL, "folder_rescan_if_full_list", config_folder_t, rescan_if_full, 0, false,
          "read it again when these did not do"),
    FIELD(NUMBER, "folder_update_types", config_folder_t, update_type, CONFIG_FOLDER_UPDATE_AT, false,
          "read it again: 0 never, 1 at intervals, 2 at a set time"),
    FIELD(NUMBER, "folder_update_days", config_folder_t, update_day, 0, false,
          "the set day: 0 each day, 1 to 7 Sunday to Saturday"),
    FIELD(NUMBER, "folder_update_ats", config_folder_t, update_at, 3, false, "the set hour, 0 to 23"),
    FIELD(NUMBER, "folder_update_intervals", config_folder_t, update_interval, 6, false,
          "the interval: so many"),
    FIELD(NUMBER, "folder_update_interval_types", config_folder_t, update_interval_type, 1, false,
          "0 minutes, 1 hours"),
};
static_assert(std::size(_folder_fields) <= CONFIG_FIELD_MAX);
static const config_field_t _connection_fields[] = {
    FIELD(TEXT, "connect_history_hosts", config_connection_t, host, 0, true, "the server"),
    FIELD(NUMBER, "connect_history_ports", config_connection_t, port, 21, false, "its port"),
    FIELD(TEXT, "connect_history_usernames", config_connection_t, username, 0, false, "the user"),
    FIELD(NUMBER, "connect_history_link_types", config_connection_t, link_type, 1, false,
          "what its paths become, as in `index_link_type`"),
};
static const config_field_t _rewrite_fields[] = {
    FIELD(TEXT, "qtp_client_rewrite_patterns", config_rewrite_t, pattern, 0, true,
          "what a path of a server begins with"),
    FIELD(TEXT, "qtp_client_rewrite_substitutions", config_rewrite_t, substitution, 0, false,
          "what stands there instead"),
};

const config_family_t config_families[] = {
    {"NTFS volumes", &config_ntfs_volumes, sizeof(config_volume_t), _ntfs_fields, std::size(_ntfs_fields), 3},
    {"ReFS volumes", &config_refs_volumes, sizeof(config_volume_t), _refs_fields, std::size(_refs_fields), 2},
    {"Folders left out", &config_exclude_folders, sizeof(config_exclude_folder_t), _exclude_fields,
     std::size(_exclude_fields), 0},
    {"File lists", &config_file_lists, sizeof(config_file_list_t), _file_list_fields,
     std::size(_file_list_fields), 0},
    {"Folders", &config_folders, sizeof(config_folder_t), _folder_fields, std::size(_folder_fields), 0},
    {"Servers connected to", &config_connect_history, sizeof(config_connection_t), _connection_fields,
     std::size(_connection_fields), 0},
    {"Paths of servers", &config_rewrites, sizeof(config_rewrite_t), _rewrite_fields,
     std::size(_rewrite_fields), 0},
};
const u32 config_family_count = std::size(config_families);

// The keys of commands are no parallel lists: each item is a line of its own.
static const config_field_t _keys_fields[] = {
    FIELD(TEXT, "", config_keys_t, key, 0, true, ""),
    FIELD(TEXT, "", config_keys_t, keys, 0, false, ""),
};
static const config_family_t _keys_family = {
    "", &config_keys, sizeof(config_keys_t), _keys_fields, std::size(_keys_fields), 0};

config_list_t<config_volume_t> config_ntfs_volumes = {{nullptr, 0, 0, &config_families[0]}};
config_list_t<config_volume_t> config_refs_volumes = {{nullptr, 0, 0, &config_families[1]}};
config_list_t<config_exclude_folder_t> config_exclude_folders = {{nullptr, 0, 0, &config_families[2]}};
config_list_t<config_file_list_t> config_file_lists = {{nullptr, 0, 0, &config_families[3]}};
config_list_t<config_folder_t> config_folders = {{nullptr, 0, 0, &config_families[4]}};
config_list_t<config_connection_t> config_connect_history = {{nullptr, 0, 0, &config_families[5]}};
config_list_t<config_rewrite_t> config_rewrites = {{nullptr, 0, 0, &config_families[6]}};
config_list_t<config_keys_t> config_keys = {{nullptr, 0, 0, &_keys_family}};

// --- Lists in memory ---------------------------------------------------------------------------------------

static bool _is_text(const config_field_t *field) {
    return field->type == CONFIG_TEXT || field->type == CONFIG_PATH;
}

static char *_item(const config_list_base_t *list, u32 index) {
    char *items = static_cast<char *>(list->items);
    return &items[size_t{index} * list->family->item_size];
}

static char **_text_at(char *item, const config_field_t *field) {
    return reinterpret_cast<char **>(item + field->offset);
}

static i32 *_number_at(char *item, const config_field_t *field) {
    return reinterpret_cast<i32 *>(item + field->offset);
}

static void _list_grow(config_list_base_t *list) {
    static constexpr u32 CAPACITY_FIRST = 8;
    const u32 capacity = list->capacity ? list->capacity * 2 : CAPACITY_FIRST;
    void *items = mem_alloc(size_t{capacity} * list->family->item_size);
    if (list->items) {
        std::memcpy(items, list->items, size_t{list->count} * list->family->item_size);
        mem_free(list->items);
    }
    list->items = items;
    list->capacity = capacity;
}

void *config_list_add(config_list_base_t *list) {
    if (list->count == list->capacity)
        _list_grow(list);
    const config_family_t *family = list->family;
    char *item = _item(list, list->count++);
    std::memset(item, 0, family->item_size);
    for (u32 i = 0; i < family->field_count; i++) {
        const config_field_t *field = &family->fields[i];
        if (_is_text(field))
            *_text_at(item, field) = utf8_alloc_copy("");
        else
            *_number_at(item, field) = field->default_value;
    }
    return item;
}

static void _free_texts(config_list_base_t *list, char *item) {
    for (u32 i = 0; i < list->family->field_count; i++) {
        if (_is_text(&list->family->fields[i]))
            mem_free(*_text_at(item, &list->family->fields[i]));
    }
}

void config_list_remove(config_list_base_t *list, u32 index) {
    char *item = _item(list, index);
    _free_texts(list, item);
    list->count--;
    std::memmove(item, item + list->family->item_size, size_t{list->count - index} * list->family->item_size);
}

void config_list_clear(config_list_base_t *list) {
    for (u32 i = 0; i < list->count; i++)
        _free_texts(list, _item(list, i));
    if (list->items)
        mem_free(list->items);
    list->items = nullptr;
    list->count = list->capacity = 0;
}

void config_kill_lists() {
    for (const config_family_t &family : config_families)
        config_list_clear(family.list);
    config_list_clear(&config_keys);
}

config_volume_t *config_ntfs_volume_find(const char *guid, const char *path, const char *root) {
    for (config_volume_t &volume : config_ntfs_volumes) {
        if (std::strcmp(volume.guid, guid) == 0 && std::strcmp(volume.path, path) == 0 &&
            std::strcmp(volume.root, root) == 0)
            return &volume;
    }
    return nullptr;
}

config_volume_t *config_refs_volume_find(const char *guid, const char *path) {
    for (config_volume_t &volume : config_refs_volumes) {
        if (std::strcmp(volume.guid, guid) == 0 && std::strcmp(volume.path, path) == 0)
            return &volume;
    }
    return nullptr;
}

// --- Lists in the file -------------------------------------------------------------------------------------

// Steps to the next element of a key's list; false at its end.
static bool _next_element(utf8_buf_t *element, const char **cursor) {
    *cursor = utf8_buf_next_list_item(element, *cursor);
    return *cursor != nullptr;
}

static void _set_field(const config_reader_t *reader, char *item, const config_field_t *field,
                       const utf8_buf_t *element) {
    if (_is_text(field)) {
        utf8_buf_t path;
        utf8_buf_init(&path);
        const char *text = element->data;
        if (field->type == CONFIG_PATH) {
            config_path_from_text(&path, text);
            text = path.data;
        }
        char **value = _text_at(item, field);
        *value = utf8_replace_string(*value, text);
        utf8_buf_kill(&path);
    } else if (element->length) {
        config_parse_number(reader, field->type, field->key, element->data, _number_at(item, field));
    }
}

static bool _is_complete(const config_family_t *family, char *item) {
    for (u32 i = 0; i < family->field_count; i++) {
        if (family->fields[i].is_required && !**_text_at(item, &family->fields[i]))
            return false;
    }
    return true;
}

static bool _is_same(const config_family_t *family, char *a, char *b) {
    for (u32 i = 0; i < family->identity_count; i++) {
        if (std::strcmp(*_text_at(a, &family->fields[i]), *_text_at(b, &family->fields[i])) != 0)
            return false;
    }
    return true;
}

// The last item has been read: it goes if it is not complete, or takes the place of the one it stands for.
static void _settle_last(const config_reader_t *reader, config_list_base_t *list) {
    const u32 last = list->count - 1;
    if (!_is_complete(list->family, _item(list, last))) {
        debug_printf("settings: %s, line %d: %s: an entry is empty, dropped\n", reader->filename,
                     reader->line, list->family->fields[0].key);
        config_list_remove(list, last);
        return;
    }
    for (u32 i = 0; list->family->identity_count != 0 && i < last; i++) {
        if (_is_same(list->family, _item(list, i), _item(list, last))) {
            char *item = _item(list, i);
            std::swap_ranges(item, item + list->family->item_size, _item(list, last));
            config_list_remove(list, last);
            return;
        }
    }
}

static void _read_family(config_reader_t *reader, const config_family_t *family) {
    const char *cursors[CONFIG_FIELD_MAX] = {};
    // The first key is taken last, for the log to name its line.
    for (u32 i = family->field_count; i-- != 0;)
        cursors[i] = config_take(reader, family->fields[i].key);
    if (!cursors[0])
        return;
    config_list_clear(family->list);
    utf8_buf_t element;
    utf8_buf_init(&element);
    bool is_short = false;
    while (_next_element(&element, &cursors[0])) {
        char *item = static_cast<char *>(config_list_add(family->list));
        _set_field(reader, item, &family->fields[0], &element);
        for (u32 i = 1; i < family->field_count; i++) {
            is_short |= !_next_element(&element, &cursors[i]);
            if (cursors[i])
                _set_field(reader, item, &family->fields[i], &element);
        }
        _settle_last(reader, family->list);
    }
    for (u32 i = 1; i < family->field_count; i++) {
        if (_next_element(&element, &cursors[i]))
            debug_printf("settings: %s, line %d: %s is longer than %s, the rest is passed over\n",
                         reader->filename, reader->line, family->fields[i].key, family->fields[0].key);
    }
    if (is_short)
        debug_printf("settings: %s, line %d: lists shorter than %s, filled with defaults\n", reader->filename,
                     reader->line, family->fields[0].key);
    utf8_buf_kill(&element);
}

void config_read_lists(config_reader_t *reader) {
    for (const config_family_t &family : config_families)
        _read_family(reader, &family);
}

// In double quotes, and without a line end.
static void _write_quoted(utf8_buf_t *out, const char *text) {
    utf8_buf_cat_byte(out, '"');
    for (; *text; text++) {
        const char *escape = std::strchr("\nn\rr\"\"\\\\", *text);
        if (escape && *text != 'n' && *text != 'r') {
            utf8_buf_cat_byte(out, '\\');
            utf8_buf_cat_byte(out, escape[1]);
        } else {
            utf8_buf_cat_byte(out, *text);
        }
    }
    utf8_buf_cat_byte(out, '"');
}

static void _write_field(utf8_buf_t *out, char *item, const config_field_t *field) {
    if (!_is_text(field)) {
        utf8_buf_cat_printf(out, "%d", *_number_at(item, field));
        return;
    }
    utf8_buf_t path;
    utf8_buf_init(&path);
    const char *text = *_text_at(item, field);
    if (field->type == CONFIG_PATH) {
        config_path_to_text(&path, text);
        text = path.data;
    }
    _write_quoted(out, text);
    utf8_buf_kill(&path);
}

void config_write_lists(utf8_buf_t *out) {
    for (const config_family_t &family : config_families) {
        for (u32 i = 0; i < family.field_count; i++) {
            utf8_buf_cat_printf(out, "%s=", family.fields[i].key);
            for (u32 j = 0; j < family.list->count; j++) {
                if (j != 0)
                    utf8_buf_cat_byte(out, ',');
                _write_field(out, _item(family.list, j), &family.fields[i]);
            }
            utf8_buf_cat_string(out, "\r\n");
        }
    }
}

// --- Keys of commands --------------------------------------------------------------------------------------

static config_keys_t *_keys_find(const char *key) {
    for (config_keys_t &keys : config_keys) {
        if (std::strcmp(keys.key, key) == 0)
            return &keys;
    }
    return nullptr;
}

const char *config_keys_get(const char *key) {
    const config_keys_t *keys = _keys_find(key);
    return keys ? keys->keys : nullptr;
}

void config_keys_set(const char *key, const char *text) {
    config_keys_t *keys = _keys_find(key);
    if (!keys) {
        keys = static_cast<config_keys_t *>(config_list_add(&config_keys));
        keys->key = utf8_replace_string(keys->key, key);
    }
    keys->keys = utf8_replace_string(keys->keys, text);
}

// Only plain names: what is written must be read as the same key again.
static bool _is_keys_key(const char *key) {
    static constexpr char TAIL[] = "_keys";
    static constexpr u32 TAIL_LENGTH = sizeof(TAIL) - 1;
    const u32 length = utf8_length(key);
    return length > TAIL_LENGTH && utf8_is_ascii(key, length) &&
           std::strcmp(key + length - TAIL_LENGTH, TAIL) == 0;
}

void config_read_keys(config_reader_t *reader) {
    // Entries are sorted by key; the commands keep the order of their lines.
    const u32 count = reader->ini->count;
    auto **lines = static_cast<const ini_entry_t **>(mem_alloc(count * sizeof(ini_entry_t *)));
    u32 line_count = 0;
    for (u32 i = 0; i < count; i++) {
        const ini_entry_t *entry = reader->ini->entries[i];
        const bool again = i != 0 && std::strcmp(reader->ini->entries[i - 1]->key, entry->key) == 0;
        if (!again && _is_keys_key(entry->key)) {
            reader->used[i] = true;
            lines[line_count++] = entry;
        }
    }
    std::sort(lines, lines + line_count,
              [](const ini_entry_t *a, const ini_entry_t *b) { return a->line_number < b->line_number; });
    for (u32 i = 0; i < line_count; i++)
        config_keys_set(lines[i]->key, lines[i]->value);
    mem_free(lines);
}

void config_write_keys(utf8_buf_t *out) {
    for (const config_keys_t &keys : config_keys) {
        utf8_buf_cat_printf(out, "%s=", keys.key);
        utf8_buf_cat_utf8(out, keys.keys, config_line_length(keys.keys));
        utf8_buf_cat_string(out, "\r\n");
    }
}

} // namespace findwright
