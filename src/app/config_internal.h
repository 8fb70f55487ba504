// The tables that reading, writing and the page for users share, and how the sources of `config` divide the
// work: config.cpp loads and saves, config_list.cpp has the lists, config_table.cpp the plain settings,
// config_page.cpp the page, config_place.cpp and config_folder_*.cpp where files lie.
#pragma once

#include "app/config.h"
#include "base/ini.h"

namespace findwright {

// What a key's value is, and what its variable.
enum config_type_t : u32 {
    CONFIG_NUMBER,    // i32
    CONFIG_SMALL,     // u32 or i32: a boolean or small number, CONFIG_SMALL_MIN to CONFIG_SMALL_MAX
    CONFIG_TEXT,      // char *
    CONFIG_PATH,      // char *: see config_path_from_text
    CONFIG_COLOR,     // u32
    CONFIG_BOLD,      // u32, config_bold_t
    CONFIG_FONT_NAME, // char *, only in the file when it is not empty
};
inline constexpr i32 CONFIG_SMALL_MIN = -128;
inline constexpr i32 CONFIG_SMALL_MAX = 255;

// One key and its variable.
struct config_row_t {
    config_type_t type;
    const char *key;
    void *variable;
    const char *meaning; // for the page; may be empty
};

struct config_topic_t {
    const char *title;
    const char *text;
    const config_row_t *rows;
    u32 count;
};

// The plain settings, in the order of the file.
inline constexpr u32 CONFIG_ROW_COUNT = 348;
extern const config_topic_t config_table[];
extern const u32 config_topic_count;

// The settings of columns, fonts and colours, whose keys are made of two parts. A pass over them gives each
// as a row whose key is good for the call only.
using config_row_proc_t = void(const config_row_t *row, void *param);
void config_for_each_column(config_row_proc_t *proc, void *param);
void config_for_each_frame_color(config_row_proc_t *proc, void *param);
void config_for_each_font(config_row_proc_t *proc, void *param);
void config_for_each_color(config_row_proc_t *proc, void *param);
// The plain settings, likewise.
void config_for_each_row(config_row_proc_t *proc, void *param);

// One key of a list.
struct config_field_t {
    const char *key;
    const char *meaning;
    config_type_t type; // number, small number, text or path
    u32 offset;         // in the item
    i32 default_value;
    bool is_required; // an item without it is dropped
};

// The keys whose lists make up one list of items. The first one's length is the number of items.
struct config_family_t {
    const char *title;
    config_list_base_t *list;
    u32 item_size;
    const config_field_t *fields;
    u32 field_count;
    u32 identity_count; // items are one when their first so many fields are equal; 0: all stay
};
inline constexpr u32 CONFIG_FIELD_MAX = 9;
extern const config_family_t config_families[];
extern const u32 config_family_count;

// --- Reading and writing of values -------------------------------------------------------------------------

// A file being read.
struct config_reader_t {
    const ini_t *ini;
    bool *used;           // of each entry
    const char *filename; // for the log
    u32 line;             // of the value in hand
};

// The value of a key, the first of several, or 0; it is the value in hand from then on.
const char *config_take(config_reader_t *reader, const char *key);
// A number of the type's range, from a text as a whole. What is no number counts as far as it is one, down to
// 0. False when it is out of range. Both are logged.
bool config_parse_number(const config_reader_t *reader, config_type_t type, const char *key, const char *text,
                         i32 *value);
// Reads a value into a row's variable.
void config_read_row(config_reader_t *reader, const config_row_t *row);
void config_write_row(utf8_buf_t *out, const config_row_t *row);

void config_read_lists(config_reader_t *reader);
void config_write_lists(utf8_buf_t *out);
void config_read_keys(config_reader_t *reader);
void config_write_keys(utf8_buf_t *out);
void config_kill_lists();

// The text up to its first line feed.
u32 config_line_length(const char *text);

// Whether app_data means anything on this system.
extern const bool config_has_app_data;
// The settings file that the command line names; empty for none.
const char *config_get_filename();
void config_kill_place();

} // namespace findwright
