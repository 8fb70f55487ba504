#include "fw/fw_output.h"

#include "base/utf8.h"
#include "base/utf8_buf.h"
#include "db/db_file.h"
#include "db/db_folder.h"
#include "fw/fw_path.h"
#include "os/os.h"

#include <algorithm>

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
static void _fw_get_text(utf8_buf_t *out, const db_item_t *item, fw_column_t column) {
    u32 length;
    const char *name = db_item_get_name(item, &length);
    if (column == FW_COLUMN_NAME)
        utf8_buf_copy_utf8(out, name, length);
    else if (column == FW_COLUMN_PATH)
        db_item_get_path(out, item);
    else
        db_item_get_full_path_name(out, item);
    const bool is_top = db_item_is_top(item);
    if (is_top && column == FW_COLUMN_PATH)
        return; // nothing holds it
    if (is_top || column != FW_COLUMN_NAME)
        fw_path_to_user(out);
    else if (_fw_is_of_system(item))
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

// A column's cell as text, for the screen: a terminal must not be driven by a file's name.
static void _fw_get_cell(utf8_buf_t *out, const db_t *db, const db_item_t *item, bool is_folder,
                         fw_column_t column, bool terminal) {
    if (_fw_is_text(column)) {
        _fw_get_text(out, item, column);
        for (i32 i = 0; terminal && i < out->length; i++) {
            if (out->data[i] < 0x20 || out->data[i] == 0x7F)
                out->data[i] = '?';
        }
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

static void _fw_cat_text_row(std::string *out, const fw_options_t *options, const std::vector<u32> &widths,
                             const db_t *db, const db_item_t *item, bool is_folder, bool terminal,
                             utf8_buf_t *cell) {
    for (size_t i = 0; i < options->columns.size(); i++) {
        fw_column_t column = options->columns[i];
        _fw_get_cell(cell, db, item, is_folder, column, terminal);
        u32 width = _fw_display_width(cell->data, static_cast<u32>(cell->length));
        std::string padding(width < widths[i] ? widths[i] - width : 0, ' ');
        bool last = i + 1 == options->columns.size();
        if (column == FW_COLUMN_SIZE)
            *out += padding;
        out->append(cell->data, static_cast<size_t>(cell->length));
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
    bool terminal = io->output_is_terminal;
    std::vector<u32> widths(options->columns.size());
    for (size_t i = 0; options->format == FW_FORMAT_TEXT && i < widths.size(); i++)
        widths[i] = _fw_get_width(options, query, first, end, i, terminal);

    std::string out;
    utf8_buf_t text;
    utf8_buf_init(&text);
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
        default: _fw_cat_text_row(&out, options, widths, query->db, item, is_folder, terminal, &text); break;
        }
        if (out.size() >= FLUSH_SIZE) {
            open = io->write(io->user_data, 1, out.data(), static_cast<u32>(out.size()));
            out.clear();
        }
    }
    if (options->format == FW_FORMAT_JSON)
        out += first == end ? "]\n" : "\n]\n";
    utf8_buf_kill(&text);
    return open && io->write(io->user_data, 1, out.data(), static_cast<u32>(out.size()));
}

} // namespace findwright
