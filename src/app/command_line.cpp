#include "app/command_line.h"

#include "app/command_line_internal.h"
#include "base/mem.h"
#include "base/utf8.h"
#include "base/utf8_buf.h"
#include "index/file_list.h"
#include "os/debug.h"
#include "os/os.h"
#include "query/db_sort_name.h"

#include <cstring>
#include <initializer_list>

namespace findwright {

// What stands for the computer itself where a path is expected.
static constexpr const char *COMMAND_LINE_COMPUTER = "::{20D04FE0-3AEA-1069-A2D8-08002B30309D}";
static constexpr const char *COMMAND_LINE_URL_SCHEME = "FW:";
static constexpr u32 COMMAND_LINE_LINK_TYPE = 1; // unless told

static constexpr char *command_line_t::*_command_line_texts[] = {
    &command_line_t::instance,
    &command_line_t::config,
    &command_line_t::db,
    &command_line_t::search,
    &command_line_t::file_list,
    &command_line_t::edit,
    &command_line_t::bookmark,
    &command_line_t::filter,
    &command_line_t::install,
    &command_line_t::install_options,
    &command_line_t::uninstall,
    &command_line_t::connect,
    &command_line_t::install_config,
    &command_line_t::service_pipe_name,
    &command_line_t::svc_pipe_name,
    &command_line_t::svc_security_descriptor,
    &command_line_t::install_service_pipe_name,
    &command_line_t::install_service_security_descriptor,
    &command_line_t::create_file_list_folder,
    &command_line_t::create_file_list_file,
    &command_line_t::not_understood,
};

struct _command_line_parser_t {
    command_line_t *out;
    const char *cursor;
    const char *base;
    u32 base_length;
    utf8_buf_t word;
    bool quoted;
    utf8_buf_t value; // of a field, worked out
};

// --- Words -------------------------------------------------------------------------------------------------

// Walks one word: counts its bytes, and writes them unless `out` is 0.
static u32 _command_line_walk_word(const char **cursor, char *out, bool *quoted) {
    const char *p = *cursor;
    u32 length = 0;
    bool in_quotes = false;
    *quoted = false;
    for (; *p && (in_quotes || !utf8_is_white_space(*p)); p++) {
        if (*p == '"') {
            *quoted = true;
            if (p[1] != '"' || p[2] != '"') {
                in_quotes = !in_quotes;
                continue;
            }
            p += 2;
        }
        if (out)
            out[length] = *p;
        length++;
    }
    *cursor = p;
    return length;
}

bool _command_line_next_word(const char **cursor, utf8_buf_t *out, bool *quoted) {
    utf8_buf_empty(out);
    *quoted = false;
    while (utf8_is_white_space(**cursor))
        (*cursor)++;
    if (!**cursor)
        return false;
    const char *start = *cursor;
    const u32 length = _command_line_walk_word(cursor, nullptr, quoted);
    utf8_buf_grow_empty(out, length + 1);
    _command_line_walk_word(&start, out->data, quoted);
    utf8_buf_set_length(out, length);
    return true;
}

void command_line_cat_word(utf8_buf_t *out, const char *text, u32 length) {
    bool plain = length != 0;
    for (u32 i = 0; i < length; i++)
        plain = plain && text[i] != '"' && !utf8_is_white_space(text[i]);
    if (plain) {
        utf8_buf_cat_utf8(out, text, length);
        return;
    }
    utf8_buf_cat_byte(out, '"');
    for (u32 i = 0; i < length; i++) {
        if (text[i] == '"')
            utf8_buf_cat_string(out, "\"\"\"");
        else
            utf8_buf_cat_byte(out, text[i]);
    }
    utf8_buf_cat_byte(out, '"');
}

static bool _command_line_next(_command_line_parser_t *parser) {
    return _command_line_next_word(&parser->cursor, &parser->word, &parser->quoted);
}

// The next word, which a switch cannot do without; false when there is none.
static bool _command_line_next_argument(_command_line_parser_t *parser, const char *problem) {
    if (_command_line_next(parser))
        return true;
    debug_printf("%s", problem);
    parser->out->flags |= COMMAND_LINE_HELP;
    return false;
}

// --- Values ------------------------------------------------------------------------------------------------

static void _command_line_clear(char **text) {
    if (*text)
        mem_free(*text);
    *text = nullptr;
}

static void _command_line_set(char **text, const utf8_buf_t *value) {
    *text = utf8_replace_string(*text, value->data);
}

// The word as a full path, in `value`.
static void _command_line_make_path(_command_line_parser_t *parser) {
    utf8_buf_get_full_path(&parser->value, parser->word.data, static_cast<u32>(parser->word.length),
                           parser->base, parser->base_length);
}

static void _command_line_set_path(_command_line_parser_t *parser, char **text) {
    _command_line_make_path(parser);
    _command_line_set(text, &parser->value);
}

static u32 _command_line_get_number(const _command_line_parser_t *parser) {
    return static_cast<u32>(utf8_to_int(parser->word.data, static_cast<u32>(parser->word.length)));
}

static void _command_line_set_search(_command_line_parser_t *parser, bool is_path) {
    _command_line_set(&parser->out->search, &parser->value);
    parser->out->search_is_path = is_path;
}

// `file_list`, `connect` and the local index rule each other out: the last one counts.
static void _command_line_set_file_list(_command_line_parser_t *parser) {
    _command_line_set_path(parser, &parser->out->file_list);
    _command_line_clear(&parser->out->connect);
    parser->out->flags &= ~COMMAND_LINE_LOCAL;
}

static void _command_line_set_connect(_command_line_parser_t *parser) {
    _command_line_set(&parser->out->connect, &parser->word);
    _command_line_clear(&parser->out->file_list);
    parser->out->flags &= ~COMMAND_LINE_LOCAL;
}

static void _command_line_set_view(command_line_t *out, u32 view) {
    if (view == COMMAND_LINE_VIEW_LOCAL) {
        _command_line_clear(&out->file_list);
        _command_line_clear(&out->connect);
        out->flags |= COMMAND_LINE_LOCAL;
        return;
    }
    out->flags &= ~(COMMAND_LINE_DETAILS | COMMAND_LINE_THUMBNAILS);
    out->flags |= view == COMMAND_LINE_VIEW_DETAILS ? COMMAND_LINE_DETAILS : COMMAND_LINE_THUMBNAILS;
}

static void _command_line_add_volume_action(command_line_t *out, command_line_volume_action_type_t type,
                                            const utf8_buf_t *volume) {
    const u32 count = out->volume_action_count;
    if ((count & (count - 1)) == 0) { // 0 or a power of two: full
        auto *grown = static_cast<command_line_volume_action_t *>(
            mem_alloc(sizeof(command_line_volume_action_t) * (count ? size_t{count} * 2 : 1)));
        if (out->volume_actions) {
            std::memcpy(grown, out->volume_actions, sizeof(command_line_volume_action_t) * count);
            mem_free(out->volume_actions);
        }
        out->volume_actions = grown;
    }
    out->volume_actions[out->volume_action_count++] = {type, utf8_alloc_copy(volume->data), 0, 0};
}

// --- Searches ----------------------------------------------------------------------------------------------

// The text in quotes for a search, where a quote that is part of a name stands outside of them by its name.
static void _command_line_quote(utf8_buf_t *buf) {
    utf8_buf_t quoted;
    utf8_buf_init(&quoted);
    for (i32 i = 0; i < buf->length; i++) {
        if (buf->data[i] == '"')
            utf8_buf_cat_string(&quoted, "\"quot:\"");
        else
            utf8_buf_cat_byte(&quoted, buf->data[i]);
    }
    utf8_buf_quote(&quoted);
    utf8_buf_copy_utf8(buf, quoted.data, static_cast<u32>(quoted.length));
    utf8_buf_kill(&quoted);
}

// The word as a full path, in `value`; empty for the computer itself.
static void _command_line_make_search_path(_command_line_parser_t *parser) {
    utf8_buf_empty(&parser->value);
    if (std::strcmp(parser->word.data, COMMAND_LINE_COMPUTER) != 0)
        _command_line_make_path(parser);
}

static void _command_line_cut_last_component(utf8_buf_t *path) {
    utf8_buf_remove_trailing_separator(path);
    const char *folder, *name;
    u32 folder_length, name_length;
    utf8_get_path_part(path->data, static_cast<u32>(path->length), &folder, &folder_length, &name,
                       &name_length);
    utf8_buf_set_length(path, folder_length);
}

static void _command_line_search_path(_command_line_parser_t *parser, u32 field) {
    utf8_buf_t *path = &parser->value;
    _command_line_make_search_path(parser);
    if (field == COMMAND_LINE_FIELD_PARENT_PATH)
        _command_line_cut_last_component(path);
    if (path->length != 0) {
        if (field != COMMAND_LINE_FIELD_FILENAME || os_folder_exists(path->data))
            utf8_buf_add_trailing_separator(path);
        _command_line_quote(path);
    }
    _command_line_set_search(parser, true);
}

static void _command_line_search_parent(_command_line_parser_t *parser) {
    _command_line_make_search_path(parser);
    if (parser->value.length != 0)
        _command_line_quote(&parser->value);
    utf8_buf_copy_utf8(&parser->word, parser->value.data, static_cast<u32>(parser->value.length));
    utf8_buf_printf(&parser->value, "parent:%s", parser->word.data);
    _command_line_set_search(parser, false);
}

static void _command_line_search_names(_command_line_parser_t *parser) {
    _command_line_make_path(parser);
    utf8_buf_t names;
    utf8_buf_init(&names);
    if (!filelist_read_search_names(&names, parser->value.data))
        debug_printf("failed to open file list %s\n", parser->value.data);
    utf8_buf_printf(&parser->value, "filelist:\"%s\"", names.data);
    utf8_buf_kill(&names);
    _command_line_set_search(parser, false);
}

static void _command_line_search_url(_command_line_parser_t *parser) {
    const char *text = parser->word.data;
    const char *const end = text + parser->word.length;
    const u32 scheme_length = utf8_length(COMMAND_LINE_URL_SCHEME);
    if (utf8_equal_nocase(text, static_cast<u32>(end - text), COMMAND_LINE_URL_SCHEME, scheme_length))
        text += scheme_length;
    utf8_buf_empty(&parser->value);
    for (; text < end; text++) {
        const i32 high = *text == '%' ? utf8_hex_value(text[1]) : -1;
        const i32 low = high >= 0 ? utf8_hex_value(text[2]) : -1;
        utf8_buf_cat_byte(&parser->value, low >= 0 ? static_cast<char>(high << 4 | low) : *text);
        text += low >= 0 ? 2 : 0;
    }
    _command_line_set_search(parser, false);
}

// --- Sorts -------------------------------------------------------------------------------------------------

// Cuts a direction out of the name, with a hyphen in front of it. False when it is not there.
static bool _command_line_cut_direction(utf8_buf_t *name, const char *direction) {
    char *found = std::strstr(name->data, direction);
    if (!found)
        return false;
    const char *rest = found + utf8_length(direction);
    if (found > name->data && found[-1] == '-')
        found--;
    const u32 rest_length = static_cast<u32>(name->data + name->length - rest);
    std::memmove(found, rest, rest_length);
    utf8_buf_set_length(name, static_cast<u32>(found - name->data) + rest_length);
    return true;
}

static void _command_line_set_sort(_command_line_parser_t *parser) {
    utf8_buf_t *name = &parser->word;
    if (_command_line_cut_direction(name, "ascending"))
        parser->out->sort_direction = 1;
    else if (_command_line_cut_direction(name, "descending"))
        parser->out->sort_direction = -1;
    u32 sort;
    db_sort_find_name(name->data, &sort);
    parser->out->sort = static_cast<i32>(sort);
}

// --- Switches ----------------------------------------------------------------------------------------------

// Fields whose argument is kept as it is, or as a full path.
static constexpr struct {
    char *command_line_t::*text;
    u32 field;
    bool is_path;
} _command_line_text_fields[] = {
    {&command_line_t::instance, COMMAND_LINE_FIELD_INSTANCE, false},
    {&command_line_t::db, COMMAND_LINE_FIELD_DB, true},
    {&command_line_t::config, COMMAND_LINE_FIELD_CONFIG, true},
    {&command_line_t::edit, COMMAND_LINE_FIELD_EDIT, true},
    {&command_line_t::bookmark, COMMAND_LINE_FIELD_BOOKMARK, false},
    {&command_line_t::filter, COMMAND_LINE_FIELD_FILTER, false},
    {&command_line_t::service_pipe_name, COMMAND_LINE_FIELD_SERVICE_PIPE_NAME, false},
    {&command_line_t::install, COMMAND_LINE_FIELD_INSTALL, true},
    {&command_line_t::install_options, COMMAND_LINE_FIELD_INSTALL_OPTIONS, false},
    {&command_line_t::uninstall, COMMAND_LINE_FIELD_UNINSTALL, true},
    {&command_line_t::install_service_pipe_name, COMMAND_LINE_FIELD_INSTALL_SERVICE_PIPE_NAME, false},
    {&command_line_t::svc_pipe_name, COMMAND_LINE_FIELD_SVC_PIPE_NAME, false},
    {&command_line_t::install_config, COMMAND_LINE_FIELD_INSTALL_CONFIG, true},
    {&command_line_t::svc_security_descriptor, COMMAND_LINE_FIELD_SVC_SECURITY_DESCRIPTOR, false},
    {&command_line_t::install_service_security_descriptor,
     COMMAND_LINE_FIELD_INSTALL_SERVICE_SECURITY_DESCRIPTOR, false},
};

static void _command_line_set_text_field(_command_line_parser_t *parser, u32 field) {
    for (const auto &row : _command_line_text_fields) {
        if (row.field != field)
            continue;
        if (row.is_path)
            _command_line_set_path(parser, &(parser->out->*row.text));
        else
            _command_line_set(&(parser->out->*row.text), &parser->word);
    }
}

static void _command_line_set_field(_command_line_parser_t *parser, u32 field) {
    command_line_t *out = parser->out;
    switch (field) {
    case COMMAND_LINE_FIELD_FILE_LIST: _command_line_set_file_list(parser); break;
    case COMMAND_LINE_FIELD_CONNECT: _command_line_set_connect(parser); break;
    case COMMAND_LINE_FIELD_SEARCH:
        utf8_buf_copy_utf8(&parser->value, parser->word.data, static_cast<u32>(parser->word.length));
        _command_line_set_search(parser, false);
        break;
    case COMMAND_LINE_FIELD_URL: _command_line_search_url(parser); break;
    case COMMAND_LINE_FIELD_FILENAME:
    case COMMAND_LINE_FIELD_PATH:
    case COMMAND_LINE_FIELD_PARENT_PATH: _command_line_search_path(parser, field); break;
    case COMMAND_LINE_FIELD_PARENT: _command_line_search_parent(parser); break;
    case COMMAND_LINE_FIELD_SEARCHFILELIST: _command_line_search_names(parser); break;
    case COMMAND_LINE_FIELD_LOAD_DELAY: out->load_delay = _command_line_get_number(parser); break;
    case COMMAND_LINE_FIELD_LINK_TYPE: out->link_type = _command_line_get_number(parser); break;
    case COMMAND_LINE_FIELD_LANGUAGE: out->language = _command_line_get_number(parser); break;
    case COMMAND_LINE_FIELD_THUMBNAIL_SIZE: out->thumbnail_size = _command_line_get_number(parser); break;
    case COMMAND_LINE_FIELD_SORT: _command_line_set_sort(parser); break;
    case COMMAND_LINE_FIELD_DELETE_USN_JOURNAL:
        _command_line_add_volume_action(out, COMMAND_LINE_VOLUME_DELETE_JOURNAL, &parser->word);
        break;
    default: _command_line_set_text_field(parser, field); break;
    }
}

static bool _command_line_parse_field(_command_line_parser_t *parser, u32 field) {
    if (field == COMMAND_LINE_FIELD_UNINSTALL && !_command_line_next(parser)) {
        utf8_buf_get_exe_path(&parser->value);
        _command_line_set(&parser->out->uninstall, &parser->value);
        return true;
    }
    if (field != COMMAND_LINE_FIELD_UNINSTALL &&
        !_command_line_next_argument(parser, "expected argument for switch\n"))
        return false;
    _command_line_set_field(parser, field);
    return true;
}

static bool _command_line_parse_create_journal(_command_line_parser_t *parser) {
    if (!_command_line_next_argument(parser, "expected volume\n"))
        return false;
    utf8_buf_copy_utf8(&parser->value, parser->word.data, static_cast<u32>(parser->word.length));
    u64 numbers[2];
    const char *const problems[2] = {"expected max-size\n", "expected allocation-delta\n"};
    for (u32 i = 0; i < 2; i++) {
        if (!_command_line_next_argument(parser, problems[i]))
            return false;
        numbers[i] = utf8_to_uint64(parser->word.data, static_cast<u32>(parser->word.length));
    }
    command_line_t *out = parser->out;
    _command_line_add_volume_action(out, COMMAND_LINE_VOLUME_CREATE_JOURNAL, &parser->value);
    out->volume_actions[out->volume_action_count - 1].max_size = numbers[0];
    out->volume_actions[out->volume_action_count - 1].allocation_delta = numbers[1];
    return true;
}

static bool _command_line_parse_create_file_list(_command_line_parser_t *parser) {
    for (char **path : {&parser->out->create_file_list_file, &parser->out->create_file_list_folder}) {
        if (!_command_line_next_argument(parser, "expected argument for switch\n"))
            return false;
        _command_line_set_path(parser, path);
    }
    return true;
}

static void _command_line_set_option(command_line_t *out, u32 option, bool on) {
    u32 *to = on ? &out->on : &out->off, *from = on ? &out->off : &out->on;
    *to |= option;
    *from &= ~option;
}

// Does what a row says; false when the parse cannot go on.
static bool _command_line_apply(_command_line_parser_t *parser, const command_line_switch_t *row,
                                bool turns_off) {
    command_line_t *out = parser->out;
    switch (row->type) {
    case COMMAND_LINE_TYPE_FLAG: out->flags |= row->value; break;
    case COMMAND_LINE_TYPE_OPTION:
    case COMMAND_LINE_TYPE_ON:
    case COMMAND_LINE_TYPE_INSTALL:
    case COMMAND_LINE_TYPE_ENABLE: _command_line_set_option(out, row->value, !turns_off); break;
    case COMMAND_LINE_TYPE_VIEW: _command_line_set_view(out, row->value); break;
    case COMMAND_LINE_TYPE_FIELD: return _command_line_parse_field(parser, row->value);
    case COMMAND_LINE_TYPE_SERVICE: out->service_action = row->value; break;
    case COMMAND_LINE_TYPE_LINK_TYPE: out->link_type = row->value; break;
    case COMMAND_LINE_TYPE_CREATE_FILE_LIST: return _command_line_parse_create_file_list(parser);
    case COMMAND_LINE_TYPE_CLIENT_SERVICE: out->client_service_action = row->value; break;
    case COMMAND_LINE_TYPE_SORT_ASCENDING: out->sort_direction = 1; break;
    case COMMAND_LINE_TYPE_SORT_DESCENDING: out->sort_direction = -1; break;
    case COMMAND_LINE_TYPE_CREATE_USN_JOURNAL: return _command_line_parse_create_journal(parser);
    }
    return true;
}

// A `/` begins a switch only where it is not what paths begin with.
static bool _command_line_is_switch(const _command_line_parser_t *parser) {
    const char first = parser->word.data[0];
    return !parser->quoted && (first == '-' || (first == '/' && os_path_separator != '/'));
}

static bool _command_line_parse_switch(_command_line_parser_t *parser) {
    char *name = parser->word.data + 1;
    if (*name == '-')
        name++;
    for (char *p = name; *p; p++) {
        if (*p == '_')
            *p = '-';
    }
    char *copy = utf8_alloc_copy(name); // an argument takes the word's place
    bool turns_off;
    const i32 index = command_line_find(copy, &turns_off);
    if (index >= 0) {
        parser->out->given[index / 32] |= 1u << index % 32;
        if (_command_line_apply(parser, &command_line_switches[index], turns_off)) {
            mem_free(copy);
            return true;
        }
    } else {
        debug_printf("unknown command line switch %s\n", copy);
        parser->out->flags |= COMMAND_LINE_HELP;
    }
    parser->out->not_understood = copy;
    return false;
}

// --- The whole ---------------------------------------------------------------------------------------------

command_line_t *command_line_parse(const char *text, const char *base, bool first_is_argument) {
    auto *out = static_cast<command_line_t *>(mem_alloc(sizeof(command_line_t)));
    *out = {};
    out->link_type = COMMAND_LINE_LINK_TYPE;
    out->sort = -1;
    _command_line_parser_t parser = {};
    parser.out = out;
    parser.cursor = text;
    parser.base = base ? base : "";
    parser.base_length = utf8_length(parser.base);
    utf8_buf_init(&parser.word);
    utf8_buf_init(&parser.value);
    if (!first_is_argument)
        _command_line_next(&parser);
    bool more = true;
    while (more && _command_line_next(&parser)) {
        if (_command_line_is_switch(&parser))
            more = _command_line_parse_switch(&parser);
        else
            _command_line_set_file_list(&parser);
    }
    utf8_buf_kill(&parser.value);
    utf8_buf_kill(&parser.word);
    return out;
}

void command_line_free(command_line_t *command_line) {
    for (char *command_line_t::*text : _command_line_texts)
        _command_line_clear(&(command_line->*text));
    for (u32 i = 0; i < command_line->volume_action_count; i++)
        mem_free(command_line->volume_actions[i].volume);
    if (command_line->volume_actions)
        mem_free(command_line->volume_actions);
    mem_free(command_line);
}

} // namespace findwright
