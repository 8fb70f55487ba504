#include "fw/fw_output.h"

#include "base/utf8.h"
#include "base/utf8_buf.h"
#include "db/db_file.h"
#include "db/db_folder.h"
#include "fw/fw_path.h"
#include "os/os.h"
#include "query/db_highlight.h"

#include <algorithm>
#include <cstdlib>

namespace findwright {

static constexpr size_t FLUSH_SIZE = 65536;
static constexpr u32 TEXT_WIDTH_MAX = 50; // a text column that others follow is padded up to here
static constexpr u32 DATE_WIDTH = 19;     // of "2026-11-21 06:30:00"

// --- Values ------------------------------------------------------------------------------------------------

static u64 _fw_get_number(const db_t *db, const db_item_t *item, bool is_folder, fw_column_t column) {
    switch (column) {
    case FW_COLUMN_SIZE: return is_folder ? db_folder_get_size(db, item) : db_file_get_size(db, item);
    case FW_COLUMN_DATE_MODIFIED:
        return is_folder ? db_folder_get_date_modified(db, item) : db_file_get_date_modified(db, item);
    case FW_COLUMN_DATE_CREATED:
        return is_folder ? db_folder_get_date_created(db, item) : db_file_get_date_created(db, item);
    case FW_COLUMN_DATE_ACCESSED:
        return is_folder ? db_folder_get_date_accessed(db, item) : db_file_get_date_accessed(db, item);
    default: return VALUE_UNKNOWN;
    }
}

static u32 _fw_get_attributes(const db_t *db, const db_item_t *item, bool is_folder) {
    return is_folder ? db_folder_get_attributes(db, item) : db_file_get_attributes(db, item);
}

static bool _fw_is_text(fw_column_t column) {
    return column == FW_COLUMN_NAME || column == FW_COLUMN_PATH || column == FW_COLUMN_FULL;
}

static bool _fw_is_of_system(const db_item_t *item) {
    u32 length;
    const char *root = db_item_get_name(db_get_root(item), &length);
    return fw_path_is_system_root(root, length);
}

// Paths of this system are given as its users write them. What belongs to one is told by its root item: the
// name alone of an item below does not show it.
static bool _fw_is_for_user(const utf8_buf_t *text, const db_item_t *item, fw_column_t column) {
    if (column == FW_COLUMN_NAME && !db_item_is_top(item))
        return _fw_is_of_system(item);
    return fw_path_is_system_root(text->data, static_cast<u32>(text->length));
}

static void _fw_get_text(utf8_buf_t *out, const db_item_t *item, fw_column_t column) {
    u32 length;
    const char *name = db_item_get_name(item, &length);
    if (column == FW_COLUMN_NAME)
        utf8_buf_copy_utf8(out, name, length);
    else if (column == FW_COLUMN_PATH)
        db_item_get_path(out, item);
    else
        db_item_get_full_path_name(out, item);
    if (db_item_is_top(item) && column == FW_COLUMN_PATH)
        return; // nothing holds it
    if (!_fw_is_for_user(out, item, column))
        return;
    if (out->length == 0)
        fw_path_to_user(out);
    else
        fw_name_to_user(out);
}

// --- Machine forms -----------------------------------------------------------------------------------------

// The length of a well-formed UTF-8 sequence at `text`, or 0. A surrogate in its three-byte form gives its
// value.
static u32 _fw_valid_sequence(const char *text, u32 left, u32 *surrogate) {
    *surrogate = 0;
    u8 c = text[0];
    u32 size = c < 0x80                ? 1
               : c >= 0xC2 && c < 0xE0 ? 2
               : c >= 0xE0 && c < 0xF0 ? 3
               : c >= 0xF0 && c < 0xF5 ? 4
                                       : 0;
    if (size == 0 || size > left)
        return 0;
    for (u32 i = 1; i < size; i++) {
        if ((text[i] & 0xC0) != 0x80)
            return 0;
    }
    u32 value;
    utf8_decode(text, text + size, &value);
    if ((size == 3 && value < 0x800) || (size == 4 && (value < 0x10000 || value > 0x10FFFF)))
        return 0;
    if (value >= 0xD800 && value < 0xE000)
        *surrogate = value;
    return size;
}

void fw_output_cat_json(std::string *out, const char *text, u32 length) {
    static const char digits[] = "0123456789abcdef";
    auto escape = [&](u32 value) {
        *out += "\\u";
        for (int shift = 12; shift >= 0; shift -= 4)
            *out += digits[value >> shift & 15];
    };
    *out += '"';
    for (u32 i = 0; i < length;) {
        u32 surrogate;
        u32 size = _fw_valid_sequence(text + i, length - i, &surrogate);
        if (size == 0) {
            escape(UTF8_REPLACEMENT);
            i++;
            continue;
        }
        u8 c = text[i];
        if (surrogate != 0)
            escape(surrogate);
        else if (c == '"' || c == '\\')
            (*out += '\\') += text[i];
        else if (c < 0x20 || c == 0x7F)
            escape(c);
        else
            out->append(text + i, size);
        i += size;
    }
    *out += '"';
}

void fw_output_cat_csv(std::string *out, const char *text, u32 length) {
    *out += '"';
    for (u32 i = 0; i < length; i++) {
        if (text[i] == '"')
            *out += '"';
        *out += text[i];
    }
    *out += '"';
}

// One value of a machine form; nothing (CSV) or null (JSON) where it is not known.
static void _fw_cat_value(std::string *out, const db_t *db, const db_item_t *item, bool is_folder,
                          fw_column_t column, bool json, utf8_buf_t *text) {
    if (_fw_is_text(column)) {
        _fw_get_text(text, item, column);
    } else if (column == FW_COLUMN_ATTRIBUTES) {
        u32 attributes = _fw_get_attributes(db, item, is_folder);
        char letters[UTF8_ATTRIBUTE_LETTERS_SIZE];
        utf8_attributes_to_letters(letters, attributes);
        utf8_buf_copy_string(text, letters);
        if (attributes == 0) {
            *out += json ? "null" : "";
            return;
        }
    } else {
        u64 value = _fw_get_number(db, item, is_folder, column);
        *out += value != VALUE_UNKNOWN ? std::to_string(value) : json ? "null" : "";
        return;
    }
    (json ? fw_output_cat_json : fw_output_cat_csv)(out, text->data, static_cast<u32>(text->length));
}

static void _fw_cat_json_row(std::string *out, const fw_options_t *options, const db_t *db,
                             const db_item_t *item, bool is_folder, utf8_buf_t *text) {
    *out += '{';
    for (fw_column_t column : options->columns) {
        ((*out += '"') += fw_column_names[column]) += "\":";
        _fw_cat_value(out, db, item, is_folder, column, true, text);
        *out += ',';
    }
    *out += is_folder ? "\"type\":\"folder\"}" : "\"type\":\"file\"}";
}

static void _fw_cat_csv_row(std::string *out, const fw_options_t *options, const db_t *db,
                            const db_item_t *item, bool is_folder, utf8_buf_t *text) {
    for (fw_column_t column : options->columns) {
        _fw_cat_value(out, db, item, is_folder, column, false, text);
        *out += ',';
    }
    *out += is_folder ? "folder\n" : "file\n";
}

// --- Text --------------------------------------------------------------------------------------------------

// Ranges of characters that terminals draw over two cells, or over none.
static constexpr struct {
    u32 first, last, cells;
} char_widths[] = {
    {0x300, 0x36F, 0},   {0x1100, 0x115F, 2}, {0x200B, 0x200F, 0},   {0x2E80, 0xA4CF, 2},
    {0xAC00, 0xD7A3, 2}, {0xF900, 0xFAFF, 2}, {0xFE00, 0xFE0F, 0},   {0xFE30, 0xFE6F, 2},
    {0xFF00, 0xFF60, 2}, {0xFFE0, 0xFFE6, 2}, {0x1F300, 0x1FAFF, 2}, {0x20000, 0x3FFFD, 2},
};

static u32 _fw_display_width(const char *text, u32 length) {
    u32 width = 0;
    for (const char *end = text + length; text != end;) {
        u32 value;
        text += utf8_decode(text, end, &value);
        u32 cells = 1;
        for (auto range : char_widths) {
            if (value >= range.first && value <= range.last)
                cells = range.cells;
        }
        width += cells;
    }
    return width;
}

// A terminal must not be driven by a file's name.
static void _fw_make_harmless(utf8_buf_t *text) {
    for (i32 i = 0; i < text->length; i++) {
        if (text->data[i] < 0x20 || text->data[i] == 0x7F)
            text->data[i] = '?';
    }
}

// A column's cell as text, for the screen.
static void _fw_get_cell(utf8_buf_t *out, const db_t *db, const db_item_t *item, bool is_folder,
                         fw_column_t column, bool terminal) {
    if (_fw_is_text(column)) {
        _fw_get_text(out, item, column);
        if (terminal)
            _fw_make_harmless(out);
        return;
    }
    utf8_buf_empty(out);
    if (column == FW_COLUMN_ATTRIBUTES) {
        char letters[UTF8_ATTRIBUTE_LETTERS_SIZE];
        utf8_attributes_to_letters(letters, _fw_get_attributes(db, item, is_folder));
        utf8_buf_copy_string(out, letters);
        return;
    }
    u64 value = _fw_get_number(db, item, is_folder, column);
    if (value == VALUE_UNKNOWN)
        return;
    if (column == FW_COLUMN_SIZE)
        utf8_buf_printf(out, "%I64u", value); // plain digits, the same in every locale
    else
        utf8_buf_format_iso_date(out, os_file_time_to_local(value));
}

// How wide a column is printed: 0 leaves it as it comes.
static u32 _fw_get_width(const fw_options_t *options, db_query_t *query, i32 first, i32 end, size_t place,
                         bool terminal) {
    fw_column_t column = options->columns[place];
    if (_fw_is_text(column) && place + 1 == options->columns.size())
        return 0;
    if (column == FW_COLUMN_DATE_MODIFIED || column == FW_COLUMN_DATE_CREATED ||
        column == FW_COLUMN_DATE_ACCESSED)
        return DATE_WIDTH;
    utf8_buf_t cell;
    utf8_buf_init(&cell);
    u32 width = 1;
    for (i32 i = first; i < end; i++) {
        bool is_folder = db_is_folder_result(query, i);
        _fw_get_cell(&cell, query->db, db_get_result_item(query, i), is_folder, column, terminal);
        width = std::max(width, _fw_display_width(cell.data, static_cast<u32>(cell.length)));
    }
    utf8_buf_kill(&cell);
    return _fw_is_text(column) ? std::min(width, TEXT_WIDTH_MAX) : width;
}

// What the rows of a text are made with.
struct _fw_text_t {
    const fw_options_t *options;
    db_query_t *query;
    bool is_screen; // the output is, or will be, on a terminal
    bool has_color;
    std::vector<u32> widths;
    utf8_buf_t cell;
    db_highlight_t highlight;
};

static bool _fw_wants_color(const fw_options_t *options, const fw_io_t *io) {
    const char *no_color = std::getenv("NO_COLOR"); // set by users for all programs
    bool is_always = options->color == "always";
    if (options->format != FW_FORMAT_TEXT || options->color == "never" ||
        (!is_always && no_color && *no_color))
        return false;
    bool can = io->output_is_terminal && io->enable_colors && io->enable_colors(io->user_data);
    return is_always || can;
}

// The text of a column, which is in `cell` already, with what matched set off. It becomes what the user
// reads piece by piece, since the pieces may change their lengths.
static void _fw_cat_highlighted(std::string *out, _fw_text_t *text, i32 index, fw_column_t column) {
    static constexpr char MARK[] = "\x1b[1;31m", END[] = "\x1b[0m";
    db_highlight_t *highlight = &text->highlight;
    if (column == FW_COLUMN_FULL)
        db_get_highlighted_full_path_name(text->query, index, highlight);
    else
        _db_get_highlighted_result(text->query, index, highlight, highlight,
                                   column == FW_COLUMN_NAME ? DB_HIGHLIGHT_NAME : DB_HIGHLIGHT_PATH);
    utf8_buf_t *piece = &text->cell;
    if (highlight->run_count == 0) {
        out->append(piece->data, static_cast<size_t>(piece->length));
        return;
    }
    bool is_for_user = _fw_is_for_user(&highlight->text, db_get_result_item(text->query, index), column);
    auto append = [&](u32 start, u32 end) {
        utf8_buf_copy_utf8(piece, highlight->text.data + start, end - start);
        if (is_for_user)
            fw_name_to_user(piece);
        _fw_make_harmless(piece);
        out->append(piece->data, static_cast<size_t>(piece->length));
    };
    u32 end = 0;
    for (u32 i = 0; i < highlight->run_count; i++) {
        db_highlight_run_t run = highlight->runs[i];
        append(end, run.start);
        end = run.start + run.length;
        *out += MARK;
        append(run.start, end);
        *out += END;
    }
    append(end, static_cast<u32>(highlight->text.length));
}

static void _fw_cat_text_row(std::string *out, _fw_text_t *text, i32 index) {
    const std::vector<fw_column_t> &columns = text->options->columns;
    for (size_t i = 0; i < columns.size(); i++) {
        fw_column_t column = columns[i];
        _fw_get_cell(&text->cell, text->query->db, db_get_result_item(text->query, index),
                     db_is_folder_result(text->query, index), column, text->is_screen);
        u32 width = _fw_display_width(text->cell.data, static_cast<u32>(text->cell.length));
        std::string padding(width < text->widths[i] ? text->widths[i] - width : 0, ' ');
        bool last = i + 1 == columns.size();
        if (column == FW_COLUMN_SIZE)
            *out += padding;
        if (text->has_color && _fw_is_text(column))
            _fw_cat_highlighted(out, text, index, column);
        else
            out->append(text->cell.data, static_cast<size_t>(text->cell.length));
        if (column != FW_COLUMN_SIZE && !last)
            *out += padding;
        *out += last ? "\n" : "  ";
    }
}

// --- All rows ----------------------------------------------------------------------------------------------

bool fw_output_results(const fw_options_t *options, db_query_t *query, const fw_io_t *io) {
    u64 count = db_get_result_count(query);
    i32 first = static_cast<i32>(std::min(options->offset, count));
    i32 end = static_cast<i32>(std::min(options->max, count - first) + first);
    _fw_text_t rows = {options, query, io->output_is_terminal, _fw_wants_color(options, io), {}, {}, {}};
    // Colours that are asked for where no terminal is will reach one, through a pager.
    rows.is_screen |= rows.has_color;
    utf8_buf_init(&rows.cell);
    db_highlight_init(&rows.highlight);
    for (size_t i = 0; options->format == FW_FORMAT_TEXT && i < options->columns.size(); i++)
        rows.widths.push_back(_fw_get_width(options, query, first, end, i, rows.is_screen));

    std::string out;
    utf8_buf_t &text = rows.cell;
    if (options->format == FW_FORMAT_JSON)
        out = "[";
    if (options->format == FW_FORMAT_CSV) {
        for (fw_column_t column : options->columns)
            (out += fw_column_names[column]) += ',';
        out += "type\n";
    }
    bool open = true;
    for (i32 i = first; i < end && open; i++) {
        bool is_folder = db_is_folder_result(query, i);
        const db_item_t *item = db_get_result_item(query, i);
        switch (options->format) {
        case FW_FORMAT_JSON:
            out += i == first ? "\n" : ",\n";
            _fw_cat_json_row(&out, options, query->db, item, is_folder, &text);
            break;
        case FW_FORMAT_CSV: _fw_cat_csv_row(&out, options, query->db, item, is_folder, &text); break;
        case FW_FORMAT_NULL:
            _fw_get_text(&text, item,
                         _fw_is_text(options->columns[0]) ? options->columns[0] : FW_COLUMN_FULL);
            out.append(text.data, static_cast<size_t>(text.length) + 1);
            break;
        default: _fw_cat_text_row(&out, &rows, i); break;
        }
        if (out.size() >= FLUSH_SIZE) {
            open = io->write(io->user_data, 1, out.data(), static_cast<u32>(out.size()));
            out.clear();
        }
    }
    if (options->format == FW_FORMAT_JSON)
        out += first == end ? "]\n" : "\n]\n";
    db_highlight_kill(&rows.highlight);
    utf8_buf_kill(&rows.cell);
    return open && io->write(io->user_data, 1, out.data(), static_cast<u32>(out.size()));
}

} // namespace findwright
