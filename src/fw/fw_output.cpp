#include "fw/fw_output.h"

#include "base/utf8.h"
#include "base/utf8_buf.h"
#include "fw/fw_path.h"
#include "fw/fw_rows.h"
#include "os/os.h"
#include "query/db_highlight.h"

#include <algorithm>
#include <cstdlib>

namespace findwright {

static constexpr size_t FLUSH_SIZE = 65536;
static constexpr u32 TEXT_WIDTH_MAX = 50; // a text column that others follow is padded up to here
static constexpr u32 DATE_WIDTH = 19;     // of "2026-11-21 06:30:00"
static constexpr i32 ROWS_AT_ONCE = 512;  // are read, and printed

static fw_column_kind_t _fw_get_kind(fw_column_t column) {
    return fw_columns[column].kind;
}

static bool _fw_is_text(fw_column_t column) {
    return _fw_get_kind(column) == FW_KIND_PLACE || _fw_get_kind(column) == FW_KIND_TEXT;
}

// Attributes as letters; empty where they are not known.
static void _fw_get_attributes(const fw_row_t *row, utf8_buf_t *out) {
    char letters[UTF8_ATTRIBUTE_LETTERS_SIZE];
    utf8_attributes_to_letters(letters, row->info.attributes);
    utf8_buf_copy_string(out, letters);
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

// One value of a machine form; nothing (CSV) or null (JSON) where there is none.
static void _fw_cat_value(std::string *out, const db_t *db, const fw_row_t *row, fw_column_t column,
                          bool json, utf8_buf_t *text) {
    bool is_known = true;
    if (_fw_is_text(column)) {
        is_known = fw_row_get_text(row, column, text);
    } else if (_fw_get_kind(column) == FW_KIND_ATTRIBUTES) {
        _fw_get_attributes(row, text);
        is_known = text->length != 0;
    } else {
        u64 value = fw_row_get_number(row, db, column);
        *out += value != VALUE_UNKNOWN ? std::to_string(value) : json ? "null" : "";
        return;
    }
    if (is_known)
        (json ? fw_output_cat_json : fw_output_cat_csv)(out, text->data, static_cast<u32>(text->length));
    else
        *out += json ? "null" : "";
}

static void _fw_cat_json_row(std::string *out, const fw_options_t *options, const db_t *db,
                             const fw_row_t *row, utf8_buf_t *text) {
    *out += '{';
    for (fw_column_t column : options->columns) {
        ((*out += '"') += fw_columns[column].key) += "\":";
        _fw_cat_value(out, db, row, column, true, text);
        *out += ',';
    }
    *out += row->is_folder ? "\"type\":\"folder\"}" : "\"type\":\"file\"}";
}

static void _fw_cat_csv_row(std::string *out, const fw_options_t *options, const db_t *db,
                            const fw_row_t *row, utf8_buf_t *text) {
    for (fw_column_t column : options->columns) {
        _fw_cat_value(out, db, row, column, false, text);
        *out += ',';
    }
    *out += row->is_folder ? "folder\n" : "file\n";
}

// The first column that is text, and the full path without one.
static void _fw_cat_null_row(std::string *out, const fw_options_t *options, const fw_row_t *row,
                             utf8_buf_t *text) {
    fw_column_t column = FW_COLUMN_FULL;
    for (size_t i = options->columns.size(); i-- > 0;)
        column = _fw_is_text(options->columns[i]) ? options->columns[i] : column;
    fw_row_get_text(row, column, text);
    out->append(text->data, static_cast<size_t>(text->length) + 1);
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

// What the rows of a text are made with.
struct _fw_text_t {
    const fw_options_t *options;
    db_query_t *query;
    bool is_screen; // the output is, or will be, on a terminal
    bool has_color;
    std::vector<u32> widths; // 0 leaves a column as it comes
    utf8_buf_t cell;
    db_highlight_t highlight;
};

// A column's cell as text, for the screen.
static void _fw_get_cell(_fw_text_t *text, const fw_row_t *row, fw_column_t column) {
    utf8_buf_t *out = &text->cell;
    if (_fw_is_text(column)) {
        fw_row_get_text(row, column, out);
        if (text->is_screen)
            _fw_make_harmless(out);
        return;
    }
    utf8_buf_empty(out);
    if (_fw_get_kind(column) == FW_KIND_ATTRIBUTES) {
        _fw_get_attributes(row, out);
        return;
    }
    u64 value = fw_row_get_number(row, text->query->db, column);
    if (value == VALUE_UNKNOWN)
        return;
    if (_fw_get_kind(column) == FW_KIND_NUMBER)
        utf8_buf_printf(out, "%I64u", value); // plain digits, the same in every locale
    else
        utf8_buf_format_iso_date(out, os_file_time_to_local(value));
}

static u32 _fw_get_cell_width(const _fw_text_t *text) {
    return _fw_display_width(text->cell.data, static_cast<u32>(text->cell.length));
}

// Whether a column is as wide as its widest cell. Dates have one width, and nothing stands behind the last
// text.
static bool _fw_is_measured(const fw_options_t *options, size_t place) {
    fw_column_t column = options->columns[place];
    return _fw_get_kind(column) != FW_KIND_DATE &&
           !(_fw_is_text(column) && place + 1 == options->columns.size());
}

static void _fw_start_widths(_fw_text_t *text) {
    for (size_t i = 0; i < text->options->columns.size(); i++) {
        bool is_date = _fw_get_kind(text->options->columns[i]) == FW_KIND_DATE;
        text->widths.push_back(is_date ? DATE_WIDTH : _fw_is_measured(text->options, i) ? 1 : 0);
    }
}

static void _fw_measure_row(_fw_text_t *text, const fw_row_t *row) {
    for (size_t i = 0; i < text->widths.size(); i++) {
        fw_column_t column = text->options->columns[i];
        if (!_fw_is_measured(text->options, i))
            continue;
        _fw_get_cell(text, row, column);
        u32 width = _fw_get_cell_width(text);
        if (_fw_is_text(column))
            width = std::min(width, TEXT_WIDTH_MAX);
        text->widths[i] = std::max(text->widths[i], width);
    }
}

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
static void _fw_cat_highlighted(std::string *out, _fw_text_t *text, const fw_row_t *row, i32 index,
                                fw_column_t column) {
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
    bool is_for_user = fw_row_is_for_user(row, column, &highlight->text);
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

static void _fw_cat_text_row(std::string *out, _fw_text_t *text, const fw_row_t *row, i32 index) {
    const std::vector<fw_column_t> &columns = text->options->columns;
    for (size_t i = 0; i < columns.size(); i++) {
        fw_column_t column = columns[i];
        _fw_get_cell(text, row, column);
        u32 width = _fw_get_cell_width(text);
        std::string padding(width < text->widths[i] ? text->widths[i] - width : 0, ' ');
        bool last = i + 1 == columns.size(), is_number = _fw_get_kind(column) == FW_KIND_NUMBER;
        if (is_number)
            *out += padding;
        if (text->has_color && _fw_get_kind(column) == FW_KIND_PLACE)
            _fw_cat_highlighted(out, text, row, index, column);
        else
            out->append(text->cell.data, static_cast<size_t>(text->cell.length));
        if (!is_number && !last)
            *out += padding;
        *out += last ? "\n" : "  ";
    }
}

// --- All rows ----------------------------------------------------------------------------------------------

struct _fw_output_t {
    const fw_options_t *options;
    const fw_io_t *io;
    fw_progress_t *progress;
    fw_rows_t rows;
    i32 first, end; // the window
    // No progress is shown any more: all rows have been gone through once, so nothing takes long; or what is
    // printed shows it, on a terminal or in a pager that stands there.
    bool is_quiet;
    _fw_text_t text;
    std::string bytes;
};

// Takes up the rows from `start` on, as many as are read at once. Their end.
static i32 _fw_read_rows(_fw_output_t *output, i32 start) {
    if (!output->is_quiet && fw_rows_is_slow(&output->rows)) {
        i64 percent = static_cast<i64>(start - output->first) * 100 / (output->end - output->first);
        fw_progress_show(output->progress, "Reading columns... " + std::to_string(percent) + "%");
    }
    i32 end = std::min(output->end - start, ROWS_AT_ONCE) + start;
    fw_rows_read(&output->rows, start, end);
    return end;
}

// Takes up no other columns than those whose widths are asked for, so that the first row does not wait for
// all dates.
static void _fw_measure(_fw_output_t *output) {
    const fw_options_t *options = output->options;
    std::vector<fw_column_t> measured;
    for (size_t i = 0; i < options->columns.size(); i++) {
        if (_fw_is_measured(options, i))
            measured.push_back(options->columns[i]);
    }
    _fw_start_widths(&output->text);
    fw_rows_init(&output->rows, output->rows.query, measured);
    for (i32 start = output->first; !measured.empty() && start < output->end;) {
        start = _fw_read_rows(output, start);
        for (const fw_row_t &row : output->rows.rows)
            _fw_measure_row(&output->text, &row);
    }
    output->is_quiet = fw_rows_is_slow(&output->rows);
    fw_rows_init(&output->rows, output->rows.query, options->columns);
}

// False when the output is closed.
static bool _fw_flush(_fw_output_t *output) {
    fw_progress_clear(output->progress);
    output->is_quiet = true;
    const std::string &bytes = output->bytes;
    bool open = output->io->write(output->io->user_data, 1, bytes.data(), static_cast<u32>(bytes.size()));
    output->bytes.clear();
    return open;
}

static void _fw_cat_row(_fw_output_t *output, const fw_row_t *row, i32 index) {
    const fw_options_t *options = output->options;
    const db_t *db = output->rows.query->db;
    std::string *out = &output->bytes;
    utf8_buf_t *text = &output->text.cell;
    switch (options->format) {
    case FW_FORMAT_JSON:
        *out += index == output->first ? "\n" : ",\n";
        _fw_cat_json_row(out, options, db, row, text);
        break;
    case FW_FORMAT_CSV: _fw_cat_csv_row(out, options, db, row, text); break;
    case FW_FORMAT_NULL: _fw_cat_null_row(out, options, row, text); break;
    default: _fw_cat_text_row(out, &output->text, row, index); break;
    }
}

static void _fw_cat_start(_fw_output_t *output) {
    if (output->options->format == FW_FORMAT_JSON)
        output->bytes = "[";
    if (output->options->format != FW_FORMAT_CSV)
        return;
    for (fw_column_t column : output->options->columns)
        (output->bytes += fw_columns[column].key) += ',';
    output->bytes += "type\n";
}

// False when the output is closed.
static bool _fw_write_all(_fw_output_t *output) {
    if (output->options->format == FW_FORMAT_TEXT)
        _fw_measure(output);
    _fw_cat_start(output);
    for (i32 start = output->first; start < output->end;) {
        i32 index = start;
        start = _fw_read_rows(output, start);
        for (const fw_row_t &row : output->rows.rows) {
            _fw_cat_row(output, &row, index++);
            if (output->bytes.size() >= FLUSH_SIZE && !_fw_flush(output))
                return false;
        }
    }
    if (output->options->format == FW_FORMAT_JSON)
        output->bytes += output->first == output->end ? "]\n" : "\n]\n";
    return _fw_flush(output);
}

bool fw_output_results(const fw_options_t *options, db_query_t *query, const fw_io_t *io,
                       fw_progress_t *progress) {
    _fw_output_t output = {options, io, progress, {}, 0, 0, false, {}, {}};
    fw_rows_init(&output.rows, query, options->columns);
    u64 count = db_get_result_count(query);
    output.first = static_cast<i32>(std::min(options->offset, count));
    output.end = static_cast<i32>(std::min(options->max, count - output.first) + output.first);
    _fw_text_t *text = &output.text;
    text->options = options;
    text->query = query;
    text->has_color = _fw_wants_color(options, io);
    // Colours that are asked for where no terminal is will reach one, through a pager.
    text->is_screen = io->output_is_terminal || text->has_color;
    utf8_buf_init(&text->cell);
    db_highlight_init(&text->highlight);
    bool open = _fw_write_all(&output);
    db_highlight_kill(&text->highlight);
    utf8_buf_kill(&text->cell);
    return open;
}

} // namespace findwright
