// Loading and saving, and the values of single keys.
#include "app/config_internal.h"
#include "base/mem.h"
#include "base/utf8.h"
#include "os/debug.h"
#include "os/os.h"

#include <algorithm>
#include <cstring>

namespace findwright {

bool config_is_saved;

config_column_t config_columns[CONFIG_COLUMN_COUNT];
config_font_t config_fonts[CONFIG_FONT_COUNT];
config_color_t config_colors[CONFIG_COLOR_COUNT];

static constexpr char SECTION[] = "Findwright";
static constexpr u32 COLOR_DIGITS = 6;

// --- Life --------------------------------------------------------------------------------------------------

static constexpr i32 PIXELS_PER_INCH_USUAL = 96;

// Width in pixels at 96 per inch, and whether it shows at first.
static constexpr config_column_t _column_defaults[CONFIG_COLUMN_COUNT] = {
    {1, 256, 0}, {1, 256, 1}, {1, 96, 2},  {0, 80, 3},  {0, 128, 4},  {1, 128, 5},  {0, 128, 6},
    {0, 128, 7}, {0, 80, 8},  {0, 128, 9}, {0, 80, 10}, {0, 128, 11}, {0, 128, 12},
};

// The values of numbers before anything was read, in the order of the table.
static i32 _number_defaults[CONFIG_ROW_COUNT];
static u32 _default_index;

static bool _is_text(config_type_t type) {
    return type == CONFIG_TEXT || type == CONFIG_PATH || type == CONFIG_FONT_NAME;
}

static void _init_row(const config_row_t *row, void *) {
    if (_is_text(row->type))
        *static_cast<char **>(row->variable) = utf8_alloc_copy("");
    else
        _number_defaults[_default_index] = *static_cast<const i32 *>(row->variable);
    _default_index++;
}

static void _kill_row(const config_row_t *row, void *) {
    if (_is_text(row->type)) {
        mem_free(*static_cast<char **>(row->variable));
        *static_cast<char **>(row->variable) = nullptr;
    } else {
        *static_cast<i32 *>(row->variable) = _number_defaults[_default_index];
    }
    _default_index++;
}

void config_init(u32 pixels_per_inch) {
    _default_index = 0;
    config_for_each_row(_init_row, nullptr);
    for (u32 i = 0; i < CONFIG_COLUMN_COUNT; i++) {
        config_columns[i] = _column_defaults[i];
        config_columns[i].width =
            config_columns[i].width * static_cast<i32>(pixels_per_inch) / PIXELS_PER_INCH_USUAL;
    }
    for (config_font_t &font : config_fonts)
        font = {utf8_alloc_copy(""), 0};
    for (config_color_t &color : config_colors)
        color = {0, 0, CONFIG_BOLD_NOT_SET};
}

void config_kill() {
    _default_index = 0;
    config_for_each_row(_kill_row, nullptr);
    for (config_font_t &font : config_fonts) {
        mem_free(font.name);
        font.name = nullptr;
    }
    app_data = 0;
    run_as_admin = 0;
    translucent_selection_rectangle_background_color = 0;
    translucent_selection_rectangle_border_color = 0;
    thumbnail_mouseover_border_color = 0;
    config_is_saved = false;
    config_kill_lists();
    config_kill_place();
}

// --- Reading of values -------------------------------------------------------------------------------------

const char *config_take(config_reader_t *reader, const char *key) {
    ini_entry_t **end = reader->ini->entries + reader->ini->count;
    ini_entry_t **found =
        std::lower_bound(reader->ini->entries, end, key, [](const ini_entry_t *entry, const char *wanted) {
            return std::strcmp(entry->key, wanted) < 0;
        });
    if (found == end || std::strcmp((*found)->key, key) != 0)
        return nullptr;
    reader->used[found - reader->ini->entries] = true;
    reader->line = (*found)->line_number;
    return (*found)->value;
}

// Reads `0x` and hexadecimal digits, or decimal ones with an optional `-`, as far as they go. A value beyond
// 32 bits stays beyond them.
static const char *_parse_number(const char *text, i64 *value) {
    static constexpr i64 BEYOND = i64{1} << 33;
    *value = 0;
    if (text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
        for (text += 2; utf8_hex_value(*text) >= 0; text++)
            *value = std::min(*value * 16 + utf8_hex_value(*text), BEYOND);
        // All 32 bits may be written, those of a negative number too.
        if (*value <= 0xFFFFFFFF)
            *value = static_cast<i32>(static_cast<u32>(*value));
        return text;
    }
    const bool is_negative = *text == '-';
    for (text += is_negative; utf8_is_digit(*text); text++)
        *value = std::min(*value * 10 + (*text - '0'), BEYOND);
    if (is_negative)
        *value = -*value;
    return text;
}

bool config_parse_number(const config_reader_t *reader, config_type_t type, const char *key, const char *text,
                         i32 *value) {
    i64 number;
    const char *end = _parse_number(text, &number);
    const i64 min = type == CONFIG_SMALL ? CONFIG_SMALL_MIN : INT32_MIN;
    const i64 max = type == CONFIG_SMALL ? CONFIG_SMALL_MAX : INT32_MAX;
    if (number < min || number > max) {
        debug_printf("settings: %s, line %d: %s: %s is not from %I64d to %I64d, kept what was\n",
                     reader->filename, reader->line, key, text, min, max);
        return false;
    }
    *value = static_cast<i32>(number);
    const bool is_empty = end == text;
    while (utf8_is_white_space(*end))
        end++;
    if (*end || is_empty)
        debug_printf("settings: %s, line %d: %s: \"%s\" is no number, taken for %d\n", reader->filename,
                     reader->line, key, text, *value);
    return true;
}

static bool _parse_color(const char *text, u32 *value) {
    *value = 0;
    if (!*text)
        return true;
    if (*text != '#')
        return false;
    u32 color = 0;
    for (u32 i = 1; i <= COLOR_DIGITS; i++) {
        const i32 digit = utf8_hex_value(text[i]);
        if (digit < 0)
            return false;
        color = color << 4 | static_cast<u32>(digit);
    }
    *value = CONFIG_COLOR_SET | color;
    return !text[1 + COLOR_DIGITS];
}

static void _read_color(const config_reader_t *reader, const config_row_t *row, const char *text) {
    u32 color;
    if (_parse_color(text, &color))
        *static_cast<u32 *>(row->variable) = color;
    else
        debug_printf("settings: %s, line %d: %s: \"%s\" is no colour, kept what was\n", reader->filename,
                     reader->line, row->key, text);
}

static void _read_bold(const config_reader_t *reader, const config_row_t *row, const char *text) {
    i32 number = 0;
    if (*text && !config_parse_number(reader, CONFIG_SMALL, row->key, text, &number))
        return;
    *static_cast<u32 *>(row->variable) = !*text   ? CONFIG_BOLD_NOT_SET
                                         : number ? CONFIG_BOLD_ON
                                                  : CONFIG_BOLD_OFF;
}

static void _read_text(const config_row_t *row, const char *text) {
    char **variable = static_cast<char **>(row->variable);
    utf8_buf_t path;
    utf8_buf_init(&path);
    if (row->type == CONFIG_PATH) {
        config_path_from_text(&path, text);
        text = path.data;
    }
    *variable = utf8_replace_string(*variable, text);
    utf8_buf_kill(&path);
}

void config_read_row(config_reader_t *reader, const config_row_t *row) {
    const char *text = config_take(reader, row->key);
    if (!text)
        return;
    switch (row->type) {
    case CONFIG_NUMBER:
    case CONFIG_SMALL: {
        i32 number;
        if (config_parse_number(reader, row->type, row->key, text, &number))
            *static_cast<i32 *>(row->variable) = number;
        return;
    }
    case CONFIG_TEXT:
    case CONFIG_PATH:
    case CONFIG_FONT_NAME: _read_text(row, text); return;
    case CONFIG_COLOR: _read_color(reader, row, text); return;
    case CONFIG_BOLD: _read_bold(reader, row, text); return;
    }
}

static void _read_row_proc(const config_row_t *row, void *param) {
    config_read_row(static_cast<config_reader_t *>(param), row);
}

// --- Loading -----------------------------------------------------------------------------------------------

// Commands had other keys once. They stand in for the newer ones where those are missing.
static void _read_old_commands(config_reader_t *reader) {
    static const config_row_t rows[] = {
        {CONFIG_TEXT, "explore_command", &explore_command2, ""},
        {CONFIG_TEXT, "open_folder_path_command", &open_path_command2, ""},
        {CONFIG_TEXT, "explore_path_command", &explore_path_command2, ""},
        {CONFIG_TEXT, "open_file_command", &open_file_command2, ""},
        {CONFIG_TEXT, "open_folder_command", &open_folder_command2, ""},
    };
    for (const config_row_t &row : rows) {
        const char *text = config_take(reader, row.key);
        if (text && *text)
            _read_text(&row, text);
    }
}

static void _log_unused(const config_reader_t *reader) {
    for (u32 i = 0; i < reader->ini->count; i++) {
        const ini_entry_t *entry = reader->ini->entries[i];
        if (reader->used[i])
            continue;
        const bool again = i != 0 && std::strcmp(reader->ini->entries[i - 1]->key, entry->key) == 0;
        debug_printf(again ? "settings: %s, line %d: %s stands above already, passed over\n"
                           : "settings: %s, line %d: unknown key %s, passed over\n",
                     reader->filename, entry->line_number, entry->key);
    }
}

// Lines that are neither settings, sections nor comments are not in what ini_open gives.
static void _log_broken_lines(const char *text, u32 length, const char *filename) {
    const char *end = utf8_skip_bom(text, &length) + length;
    const char *line = end - length;
    for (u32 number = 1; line != end; number++) {
        const auto *stop =
            static_cast<const char *>(std::memchr(line, '\n', static_cast<size_t>(end - line)));
        const char *next = stop ? stop + 1 : end;
        if (!stop)
            stop = end;
        if (stop != line && stop[-1] == '\r')
            stop--;
        if (stop != line && !std::strchr("[#;", *line) &&
            !std::memchr(line, '=', static_cast<size_t>(stop - line)))
            debug_printf("settings: %s, line %d: no setting, passed over\n", filename, number);
        line = next;
    }
}

static config_reader_t _reader_open(const char *text, u32 length, const char *filename) {
    config_reader_t reader = {ini_open(text, length, SECTION), nullptr, filename, 0};
    if (reader.ini) {
        reader.used = static_cast<bool *>(mem_alloc(reader.ini->count));
        std::fill_n(reader.used, reader.ini->count, false);
    }
    return reader;
}

static void _reader_close(config_reader_t *reader) {
    mem_free(reader->used);
    ini_close(const_cast<ini_t *>(reader->ini));
}

static void _read_switch(config_reader_t *reader, const char *key, u32 *value) {
    const config_row_t row = {CONFIG_SMALL, key, value, ""};
    config_read_row(reader, &row);
}

static void _read_all(config_reader_t *reader) {
    _read_old_commands(reader);
    config_for_each_row(_read_row_proc, reader);
    config_for_each_column(_read_row_proc, reader);
    config_for_each_frame_color(_read_row_proc, reader);
    config_read_lists(reader);
    config_for_each_font(_read_row_proc, reader);
    config_for_each_color(_read_row_proc, reader);
    config_read_keys(reader);
    // Known, but for the file that is read first alone.
    config_take(reader, "run_as_admin");
    config_take(reader, "app_data");
    _log_unused(reader);
}

bool config_read(const char *text, u32 length, const char *name_for_log) {
    config_reader_t reader = _reader_open(text, length, name_for_log);
    _log_broken_lines(text, length, name_for_log);
    if (!reader.ini)
        return false;
    _read_all(&reader);
    _reader_close(&reader);
    return true;
}

// What the file that is read first says of where the settings are and how to run. True when they are in the
// application data.
static bool _read_start(const char *text, u32 length, const char *filename, bool is_main,
                        bool with_run_as_admin) {
    config_reader_t reader = _reader_open(text, length, filename);
    if (!reader.ini)
        return false;
    if (with_run_as_admin)
        _read_switch(&reader, "run_as_admin", &run_as_admin);
    u32 elsewhere = 0;
    if (is_main && config_has_app_data)
        _read_switch(&reader, "app_data", &elsewhere);
    if (elsewhere)
        app_data = 1;
    _reader_close(&reader);
    return elsewhere != 0;
}

bool config_load(const char *filename, bool is_main, bool with_run_as_admin) {
    debug_printf("load settings %s\n", filename);
    utf8_buf_t text;
    utf8_buf_init(&text);
    bool done = utf8_buf_read_file(&text, filename);
    if (!done)
        debug_printf("settings: cannot read %s\n", filename);
    const u32 length = static_cast<u32>(text.length);
    if (done && _read_start(text.data, length, filename, is_main, with_run_as_admin)) {
        utf8_buf_t real;
        utf8_buf_init(&real);
        done = config_get_data_filename(CONFIG_FOLDER_SETTINGS, SECTION, "ini", &real) &&
               config_load(real.data, false, false);
        utf8_buf_kill(&real);
    } else if (done) {
        done = config_read(text.data, length, filename);
    }
    utf8_buf_kill(&text);
    return done;
}

bool config_load_default() {
    utf8_buf_t filename;
    utf8_buf_init(&filename);
    // The file in the program's folder comes first, wherever it leads to.
    const bool done =
        config_get_path(!*config_get_filename(), &filename) && config_load(filename.data, true, true);
    utf8_buf_kill(&filename);
    return done;
}

bool config_load_placed(const char *instance, const char *filename) {
    config_set_place(instance, filename);
    const bool loaded = config_load_default();
    if ((instance && *instance) || !*instance_name)
        return loaded;
    utf8_buf_t path;
    utf8_buf_init(&path);
    config_get_path(false, &path);
    config_set_place(instance_name, path.data);
    utf8_buf_kill(&path);
    return loaded;
}

// --- Writing -----------------------------------------------------------------------------------------------

u32 config_line_length(const char *text) {
    return static_cast<u32>(std::strcspn(text, "\n"));
}

static void _write_text(utf8_buf_t *out, const char *key, const char *text) {
    utf8_buf_cat_printf(out, "%s=", key);
    utf8_buf_cat_utf8(out, text, config_line_length(text));
    utf8_buf_cat_string(out, "\r\n");
}

static void _write_path(utf8_buf_t *out, const char *key, const char *path) {
    utf8_buf_t text;
    utf8_buf_init(&text);
    config_path_to_text(&text, path);
    _write_text(out, key, text.data);
    utf8_buf_kill(&text);
}

void config_write_row(utf8_buf_t *out, const config_row_t *row) {
    const u32 number = _is_text(row->type) ? 0 : *static_cast<const u32 *>(row->variable);
    const char *text = _is_text(row->type) ? *static_cast<char *const *>(row->variable) : "";
    switch (row->type) {
    case CONFIG_NUMBER:
    case CONFIG_SMALL: utf8_buf_cat_printf(out, "%s=%d\r\n", row->key, number); return;
    case CONFIG_TEXT: _write_text(out, row->key, text); return;
    case CONFIG_PATH: _write_path(out, row->key, text); return;
    case CONFIG_FONT_NAME:
        if (*text)
            _write_text(out, row->key, text);
        return;
    case CONFIG_COLOR:
        if (number)
            utf8_buf_cat_printf(out, "%s=#%06x\r\n", row->key, number & ~CONFIG_COLOR_SET);
        else
            utf8_buf_cat_printf(out, "%s=\r\n", row->key);
        return;
    case CONFIG_BOLD:
        if (number & CONFIG_BOLD_NOT_SET)
            utf8_buf_cat_printf(out, "%s=\r\n", row->key);
        else
            utf8_buf_cat_printf(out, "%s=%d\r\n", row->key, number & CONFIG_BOLD_ON ? 1 : 0);
        return;
    }
}

static void _write_row_proc(const config_row_t *row, void *param) {
    config_write_row(static_cast<utf8_buf_t *>(param), row);
}

void config_write(utf8_buf_t *out, bool is_pointer) {
    utf8_buf_cat_string(out, "; Please make sure Findwright is not running before modifying this file.\r\n");
    utf8_buf_cat_printf(out, "[%s]\r\n", SECTION);
    if (is_pointer) {
        utf8_buf_cat_string(out, "; settings stored in %APPDATA%\\Findwright\\Findwright.ini\r\n");
        utf8_buf_cat_printf(out, "app_data=%d\r\nrun_as_admin=%d\r\n", app_data, run_as_admin);
        return;
    }
    if (!app_data)
        utf8_buf_cat_printf(out, "run_as_admin=%d\r\n", run_as_admin);
    config_for_each_row(_write_row_proc, out);
    config_for_each_column(_write_row_proc, out);
    config_for_each_frame_color(_write_row_proc, out);
    config_write_lists(out);
    config_write_keys(out);
    config_for_each_font(_write_row_proc, out);
    config_for_each_color(_write_row_proc, out);
}

// --- Saving ------------------------------------------------------------------------------------------------

// Writes a file as a whole; the system's error number, or 0.
static u32 _write_file(const char *filename, const utf8_buf_t *text) {
    const platform_file_t file = os_create(filename);
    if (file == PLATFORM_FILE_NONE)
        return os_get_last_error();
    os_make_private(filename);
    const u32 error = os_write(file, text->data, static_cast<u32>(text->length)) ? 0 : os_get_last_error();
    os_close(file);
    return error;
}

static u32 _replace_file(const char *filename, const utf8_buf_t *text) {
    utf8_buf_t temp;
    utf8_buf_init(&temp);
    os_get_temp_name(filename, &temp);
    os_make_folders_for(filename); // where it fails, so does the next step, which tells why
    u32 error = _write_file(temp.data, text);
    if (error == 0 && !os_replace_file(temp.data, filename))
        error = os_get_last_error();
    if (error != 0)
        os_delete_file(temp.data);
    utf8_buf_kill(&temp);
    return error;
}

static bool _fail_save(utf8_buf_t *out, const char *filename, u32 error) {
    char reason[512];
    os_error_text(error, reason, sizeof(reason));
    utf8_buf_t name;
    utf8_buf_init(&name);
    config_path_to_text(&name, filename);
    utf8_buf_printf(out, "Unable to write %s: %s", name.data, reason);
    utf8_buf_kill(&name);
    debug_printf("settings: %s\n", out->data);
    return false;
}

bool config_save(bool program_folder, utf8_buf_t *error) {
    utf8_buf_empty(error);
    if (config_is_saved)
        return true;
    utf8_buf_t filename;
    utf8_buf_t text;
    utf8_buf_init(&filename);
    utf8_buf_init(&text);
    bool done = config_get_path(program_folder, &filename);
    if (!done) {
        utf8_buf_printf(error, "Unable to write %s.ini: the system names no folder for it", SECTION);
        debug_printf("settings: %s\n", error->data);
    } else {
        config_write(&text, config_has_app_data && program_folder && app_data);
        const u32 number = _replace_file(filename.data, &text);
        done = number == 0 || _fail_save(error, filename.data, number);
    }
    utf8_buf_kill(&text);
    utf8_buf_kill(&filename);
    return done;
}

} // namespace findwright
