// The page of all settings, made from the tables that read and write them.
#include "app/config_internal.h"
#include "base/utf8.h"

#include <cstring>

namespace findwright {

static const char *_type_name(config_type_t type) {
    switch (type) {
    case CONFIG_NUMBER: return "number";
    case CONFIG_SMALL: return "switch";
    case CONFIG_PATH: return "path";
    case CONFIG_COLOR: return "colour";
    case CONFIG_BOLD: return "0, 1 or empty";
    case CONFIG_TEXT:
    case CONFIG_FONT_NAME: break;
    }
    return "text";
}

static void _write_line(utf8_buf_t *out, const char *key, config_type_t type, i32 number,
                        const char *meaning) {
    utf8_buf_cat_printf(out, "| `%s` | %s |", key, _type_name(type));
    if (type == CONFIG_NUMBER || type == CONFIG_SMALL)
        utf8_buf_cat_printf(out, " %d |", number);
    else
        utf8_buf_cat_string(out, " |");
    utf8_buf_cat_printf(out, *meaning ? " %s |\n" : " |\n", meaning);
}

static void _write_row(const config_row_t *row, void *param) {
    const bool is_number = row->type == CONFIG_NUMBER || row->type == CONFIG_SMALL;
    i32 number = is_number ? *static_cast<const i32 *>(row->variable) : 0;
    // The page tells of both platforms, whichever it is made on.
    if (std::strcmp(row->key, "convert_forward_slash_to_backslash") == 0)
        number = 0;
    _write_line(static_cast<utf8_buf_t *>(param), row->key, row->type, number, row->meaning);
}

static void _write_head(utf8_buf_t *out, const char *title, const char *text) {
    utf8_buf_cat_printf(out, "\n## %s\n\n", title);
    if (*text)
        utf8_buf_cat_printf(out, "%s\n\n", text);
    utf8_buf_cat_string(out, "| Key | Value | Default | Meaning |\n| --- | --- | --- | --- |\n");
}

void config_write_page(utf8_buf_t *out) {
    utf8_buf_cat_string(
        out,
        "# Settings\n\n"
        "<!-- Made by tools/make_settings_page.cpp from the table of src/app: change it there. -->\n\n"
        "Settings stand in `Findwright.ini`, in the section `[Findwright]`, one `key=value` on a line. Lines "
        "that begin with\n`;` or `#` are comments. On Windows the file lies beside the program, or in the "
        "user's application data when the one\nbeside the program says `app_data=1`; on Linux in "
        "`$XDG_CONFIG_HOME/findwright`. The program reads it at the start and\nwrites it at the end, so "
        "change it while the program is not running. A key that is missing has its default; one that\nis not "
        "known is passed over, with a line in the debug log.\n\n"
        "A number is decimal, or hexadecimal behind `0x`. A switch is 0 or 1, or a small number where its "
        "meaning says so.\n");
    _write_head(out, "Where and how to run", "");
    _write_line(out, "app_data", CONFIG_SMALL, 0,
                "settings and data lie in the user's application data; only in the file beside the program, "
                "only on Windows");
    _write_line(out, "run_as_admin", CONFIG_SMALL, 0,
                "start with administrator rights; only in the file that is read first");
    for (u32 i = 0; i < config_topic_count; i++) {
        _write_head(out, config_table[i].title, config_table[i].text);
        for (u32 j = 0; j < config_table[i].count; j++)
            _write_row(&config_table[i].rows[j], out);
    }
    for (u32 i = 0; i < config_family_count; i++) {
        const config_family_t *family = &config_families[i];
        _write_head(
            out, family->title,
            "Lists, texts in double quotes, between commas: the first of each is of the first, and so "
            "on.");
        for (u32 j = 0; j < family->field_count; j++) {
            const config_field_t *field = &family->fields[j];
            _write_line(out, field->key, field->type, field->default_value, field->meaning);
        }
    }
    _write_head(out, "Columns", "Widths are of a screen with 96 pixels per inch.");
    config_for_each_column(_write_row, out);
    _write_head(out, "Fonts", "Empty or 0: the system's.");
    config_for_each_font(_write_row, out);
    _write_head(out, "Colours",
                "`#rrggbb`, or empty for the system's. A state of the rows has a second one, `_highlighted`, "
                "for what the search\nfound.");
    config_for_each_frame_color(_write_row, out);
    config_for_each_color(_write_row, out);
    utf8_buf_cat_string(out,
                        "\n## Keys\n\n"
                        "`MENU_COMMAND_keys`, with one more name for a command of a submenu: the keys of "
                        "a command, between commas. They are\nkept as they are.\n");
}

} // namespace findwright
