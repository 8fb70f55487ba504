#include "db/db_exclude.h"

#include "base/bz2.h"
#include "base/mem.h"
#include "base/utf8.h"
#include "base/utf8_buf.h"
#include "base/utf8_match.h"
#include "db/db_item.h"
#include "os/os.h"

namespace findwright {

void db_exclude_init(db_exclude_set_t *set) {
    *set = {};
}

void db_exclude_kill(db_exclude_set_t *set) {
    db_exclude_list_kill(&set->exclude_folders);
    db_exclude_list_kill(&set->include_only_files);
    db_exclude_list_kill(&set->exclude_files);
    *set = {};
}

void db_exclude_list_kill(db_exclude_list_t *list) {
    for (db_exclude_t *entry = list->first; entry;) {
        db_exclude_t *next = entry->next;
        mem_free(entry);
        entry = next;
    }
    *list = {};
}

// --- Compilation -------------------------------------------------------------------------------------------

static void _db_exclude_append(db_exclude_list_t *list, db_exclude_kind_t kind, const char *text,
                               u32 length) {
    auto *entry = static_cast<db_exclude_t *>(mem_alloc(sizeof(db_exclude_t) + length));
    *entry = {nullptr, reinterpret_cast<char *>(entry + 1), length, kind};
    if (length)
        std::memcpy(entry->text, text, length);
    if (list->last)
        list->last->next = entry;
    else
        list->first = entry;
    list->last = entry;
    list->count++;
}

bool db_exclude_add_compiled(db_exclude_list_t *list, u32 kind, const char *text, u32 length) {
    if (kind > DB_EXCLUDE_PATH_WILDCARD || kind == 3)
        return false;
    _db_exclude_append(list, static_cast<db_exclude_kind_t>(kind), text, length);
    return true;
}

static bool _db_exclude_is_wildcard(char c) {
    return c == '*' || c == '?';
}

// The kind of a pattern, and, in `text` and `length`, what is left of it when the kind's stars are off.
static db_exclude_kind_t _db_exclude_classify(const char **text, u32 *length) {
    const char *pattern = *text;
    const u32 count = *length;
    u32 wildcards = 0;
    bool has_separator = false;
    for (u32 i = 0; i < count; i++) {
        wildcards += _db_exclude_is_wildcard(pattern[i]);
        has_separator |= pattern[i] == '\\';
    }
    if (has_separator)
        return wildcards ? DB_EXCLUDE_PATH_WILDCARD : DB_EXCLUDE_PATH;
    const bool star_first = pattern[0] == '*';
    const bool star_last = pattern[count - 1] == '*';
    if (wildcards == 0)
        return DB_EXCLUDE_NAME;
    if (wildcards > 2 || (wildcards == 2 && !(star_first && star_last)) || (!star_first && !star_last))
        return DB_EXCLUDE_NAME_WILDCARD;
    *text += star_first;
    *length -= wildcards;
    if (wildcards == 2)
        return DB_EXCLUDE_NAME_PART;
    return *length == 0 ? DB_EXCLUDE_ALL : star_first ? DB_EXCLUDE_NAME_END : DB_EXCLUDE_NAME_START;
}

static void _db_exclude_add_length(db_exclude_list_t *list, const char *pattern, u32 length) {
    if (length == 0)
        return;
    utf8_buf_t lower;
    utf8_buf_init(&lower);
    utf8_buf_copy_utf8(&lower, pattern, length);
    if (os_path_separator == '/' && !std::strstr(lower.data, "://"))
        utf8_buf_fix_path(&lower);
    utf8_buf_lower(&lower);
    const char *text = lower.data;
    u32 text_length = static_cast<u32>(lower.length);
    const db_exclude_kind_t kind = _db_exclude_classify(&text, &text_length);
    _db_exclude_append(list, kind, text, text_length);
    utf8_buf_kill(&lower);
}

void db_exclude_add(db_exclude_list_t *list, const char *pattern) {
    _db_exclude_add_length(list, pattern, utf8_length(pattern));
}

void db_exclude_parse(db_exclude_list_t *list, const char *patterns) {
    utf8_buf_t pattern;
    utf8_buf_init(&pattern);
    for (const char *cursor = patterns; cursor && *cursor;) {
        utf8_buf_empty(&pattern);
        bool quoted = false;
        i32 kept = 0; // behind the last byte that is no blank to be dropped
        for (; *cursor && (quoted || *cursor != ';'); cursor++) {
            if (*cursor == '"') {
                quoted = !quoted;
                continue;
            }
            const bool blank = !quoted && utf8_is_white_space(*cursor);
            if (blank && pattern.length == 0)
                continue;
            utf8_buf_cat_byte(&pattern, *cursor);
            if (!blank)
                kept = pattern.length;
        }
        cursor += *cursor == ';';
        _db_exclude_add_length(list, pattern.data, static_cast<u32>(kept));
    }
    utf8_buf_kill(&pattern);
}

static bool _db_exclude_needs_path(const db_exclude_list_t *list) {
    for (const db_exclude_t *entry = list->first; entry; entry = entry->next) {
        if (entry->kind == DB_EXCLUDE_PATH || entry->kind == DB_EXCLUDE_PATH_WILDCARD)
            return true;
    }
    return false;
}

void db_exclude_update_needs(db_exclude_set_t *set) {
    set->folders_need_path = _db_exclude_needs_path(&set->exclude_folders);
    set->files_need_path =
        _db_exclude_needs_path(&set->include_only_files) || _db_exclude_needs_path(&set->exclude_files);
}

void db_exclude_compile_settings(db_exclude_set_t *out, const db_exclude_settings_t *settings) {
    db_exclude_kill(out);
    if (settings->exclude_list_enabled) {
        for (u32 i = 0; i < settings->exclude_folder_count; i++)
            db_exclude_add(&out->exclude_folders, settings->exclude_folders[i]);
        db_exclude_parse(&out->include_only_files, settings->include_only_files);
        db_exclude_parse(&out->exclude_files, settings->exclude_files);
    }
    db_exclude_update_needs(out);
    out->exclude_hidden = settings->exclude_hidden_files_and_folders;
    out->exclude_system = settings->exclude_system_files_and_folders;
}

static void _db_exclude_list_copy(db_exclude_list_t *out, const db_exclude_list_t *source) {
    for (const db_exclude_t *entry = source->first; entry; entry = entry->next)
        _db_exclude_append(out, entry->kind, entry->text, entry->length);
}

void db_exclude_copy(db_exclude_set_t *out, const db_exclude_set_t *source) {
    if (out == source)
        return;
    db_exclude_kill(out);
    *out = *source;
    out->exclude_folders = out->include_only_files = out->exclude_files = {};
    _db_exclude_list_copy(&out->exclude_folders, &source->exclude_folders);
    _db_exclude_list_copy(&out->include_only_files, &source->include_only_files);
    _db_exclude_list_copy(&out->exclude_files, &source->exclude_files);
}

// --- Tests -------------------------------------------------------------------------------------------------

// The path itself, or one below it.
static bool _db_exclude_match_path(const char *text, u32 text_length, const char *path, u32 length) {
    if (text_length && text[text_length - 1] == '\\')
        text_length--;
    return length >= text_length && std::memcmp(path, text, text_length) == 0 &&
           (length == text_length || path[text_length] == '\\');
}

bool db_exclude_match(const db_exclude_t *entry, const char *full_path, u32 full_path_length,
                      const char *name, u32 length) {
    const char *text = entry->text;
    const u32 text_length = entry->length;
    switch (entry->kind) {
    case DB_EXCLUDE_PATH: return _db_exclude_match_path(text, text_length, full_path, full_path_length);
    case DB_EXCLUDE_NAME: return utf8_equal<UTF8_MODE_LOWER>(name, length, text, text_length);
    case DB_EXCLUDE_NAME_WILDCARD: return utf8_wildcard<UTF8_MODE_LOWER>(name, length, text, text_length);
    case DB_EXCLUDE_ALL: return true;
    case DB_EXCLUDE_NAME_END:
        return utf8_ends_with<UTF8_MODE_LOWER>(name, length, text, text_length) != UTF8_NO_MATCH;
    case DB_EXCLUDE_NAME_START:
        return utf8_starts_with<UTF8_MODE_LOWER>(name, length, text, text_length) != UTF8_NO_MATCH;
    case DB_EXCLUDE_NAME_PART: return utf8_find<UTF8_MODE_LOWER>(name, length, text, text_length);
    case DB_EXCLUDE_PATH_WILDCARD:
        return utf8_wildcard<UTF8_MODE_EXACT>(full_path, full_path_length, text, text_length);
    }
    return false;
}

// One item under test.
struct db_exclude_item_t {
    const char *path; // in lower case
    u32 path_length;
    const char *name;
    u32 length;
};

static bool _db_exclude_match_any(const db_exclude_list_t *list, const db_exclude_item_t *item) {
    for (const db_exclude_t *entry = list->first; entry; entry = entry->next) {
        if (db_exclude_match(entry, item->path, item->path_length, item->name, item->length))
            return true;
    }
    return false;
}

static bool _db_exclude_file_passes(const db_exclude_set_t *set, const db_exclude_item_t *item) {
    return (!set->include_only_files.first || _db_exclude_match_any(&set->include_only_files, item)) &&
           !_db_exclude_match_any(&set->exclude_files, item);
}

static bool _db_exclude_folder_passes(const db_exclude_set_t *set, const db_exclude_item_t *item) {
    return !_db_exclude_match_any(&set->exclude_folders, item);
}

using db_exclude_passes_t = bool(const db_exclude_set_t *set, const db_exclude_item_t *item);

static bool _db_exclude_with_path(const db_exclude_set_t *set, db_exclude_passes_t *passes, mem_ref_t parent,
                                  const char *name, u32 length) {
    utf8_buf_t path;
    utf8_buf_init(&path);
    db_get_full_path_name_lower(&path, parent, name, length);
    const db_exclude_item_t item = {path.data, static_cast<u32>(path.length), name, length};
    const bool included = passes(set, &item);
    utf8_buf_kill(&path);
    return included;
}

bool db_file_is_included(const db_exclude_set_t *set, mem_ref_t parent, const char *name, u32 length) {
    if (set->files_need_path)
        return _db_exclude_with_path(set, _db_exclude_file_passes, parent, name, length);
    const db_exclude_item_t item = {"", 0, name, length};
    return _db_exclude_file_passes(set, &item);
}

bool db_folder_is_included(const db_exclude_set_t *set, mem_ref_t parent, const char *name, u32 length) {
    if (set->folders_need_path)
        return _db_exclude_with_path(set, _db_exclude_folder_passes, parent, name, length);
    const db_exclude_item_t item = {"", 0, name, length};
    return _db_exclude_folder_passes(set, &item);
}

bool db_folder_path_is_included(const db_exclude_set_t *set, const char *full_path, u32 length) {
    if (!set->exclude_folders.first)
        return true;
    utf8_buf_t lower;
    utf8_buf_init(&lower);
    utf8_buf_copy_utf8(&lower, full_path, length);
    utf8_buf_lower(&lower);
    u32 name = length;
    while (name && full_path[name - 1] != '\\')
        name--;
    const db_exclude_item_t item = {lower.data, static_cast<u32>(lower.length), full_path + name,
                                    length - name};
    const bool included = _db_exclude_folder_passes(set, &item);
    utf8_buf_kill(&lower);
    return included;
}

// --- Comparison --------------------------------------------------------------------------------------------

static bool _db_exclude_is_equal(const db_exclude_t *a, const db_exclude_t *b) {
    return a->kind == b->kind && utf8_is_equal(a->text, a->length, b->text, b->length);
}

// Every entry of `part` is in `whole`.
static bool _db_exclude_holds(const db_exclude_list_t *whole, const db_exclude_list_t *part) {
    for (const db_exclude_t *entry = part->first; entry; entry = entry->next) {
        const db_exclude_t *found = whole->first;
        while (found && !_db_exclude_is_equal(found, entry))
            found = found->next;
        if (!found)
            return false;
    }
    return true;
}

bool db_exclude_is_narrower(const db_exclude_set_t *content, const db_exclude_set_t *wanted) {
    if (content->exclude_hidden != wanted->exclude_hidden ||
        content->exclude_system != wanted->exclude_system ||
        !_db_exclude_holds(&wanted->exclude_folders, &content->exclude_folders) ||
        !_db_exclude_holds(&wanted->exclude_files, &content->exclude_files))
        return true;
    // Here an entry takes files in. A content without any lacks none for it; from one with a list, files are
    // missing that a list with other entries, or no list, would have.
    return content->include_only_files.first &&
           (!wanted->include_only_files.first ||
            !_db_exclude_holds(&content->include_only_files, &wanted->include_only_files));
}

static bool _db_exclude_list_differs(const db_exclude_list_t *a, const db_exclude_list_t *b) {
    const db_exclude_t *in_a = a->first, *in_b = b->first;
    while (in_a && in_b && _db_exclude_is_equal(in_a, in_b)) {
        in_a = in_a->next;
        in_b = in_b->next;
    }
    return in_a || in_b;
}

bool db_exclude_differs(const db_exclude_set_t *a, const db_exclude_set_t *b) {
    return _db_exclude_list_differs(&a->exclude_folders, &b->exclude_folders) ||
           _db_exclude_list_differs(&a->include_only_files, &b->include_only_files) ||
           _db_exclude_list_differs(&a->exclude_files, &b->exclude_files);
}

// --- Database file -----------------------------------------------------------------------------------------

void db_exclude_write(bz2_stream_t *stream, const db_exclude_list_t *list) {
    bz2_write_vint(stream, list->count);
    for (const db_exclude_t *entry = list->first; entry; entry = entry->next) {
        bz2_write_u8(stream, entry->kind);
        bz2_write_vint(stream, entry->length);
        bz2_write(stream, entry->text, entry->length);
    }
}

void db_exclude_read(bz2_stream_t *stream, db_exclude_list_t *list) {
    // A wrong count runs into the end of the stream.
    for (u32 count = bz2_read_vint(stream); count != 0 && !stream->error; count--) {
        const u8 kind = bz2_read_u8(stream);
        char *text = bz2_read_string(stream);
        if (!stream->error && !db_exclude_add_compiled(list, kind, text, utf8_length(text)))
            bz2_set_error(stream);
        mem_free(text);
    }
}

} // namespace findwright
