// The file of the run history as a table in memory: reading it, and writing one.
#include "track/db_run_history_rows.h"
#include "base/csv.h"
#include "base/file.h"
#include "base/mem.h"
#include "base/utf8.h"
#include "index/file_list.h"
#include "os/debug.h"
#include "os/os.h"

#include <algorithm>
#include <cstring>

namespace findwright {

enum _run_column_t : u32 { RUN_FILENAME, RUN_COUNT, RUN_DATE, RUN_COLUMNS };
static constexpr const char *_run_column_names[RUN_COLUMNS] = {"Filename", "Run Count", "Last Run Date"};
static constexpr u32 NO_PLACE = ~0u;
static constexpr u32 ROWS_FIRST = 256;

// Inside a file a line end in a name is one of these: a field never runs past its line.
static constexpr char NAME_LINE_FEED[] = "\xEF\x80\x8A", NAME_CARRIAGE_RETURN[] = "\xEF\x80\x8D";
static constexpr u32 NAME_LINE_END_LENGTH = 3;

// --- Paths -------------------------------------------------------------------------------------------------

void db_run_history_path_to_text(const char *path, u32 length, utf8_buf_t *out) {
    utf8_buf_t user;
    utf8_buf_init(&user);
    os_path_to_user(path, length, &user);
    utf8_buf_empty(out);
    if (user.length == 0) // the root of a POSIX system has an empty name
        utf8_buf_cat_byte(out, os_path_separator);
    for (i32 i = 0; i < user.length; i++) {
        if (user.data[i] == '\n')
            utf8_buf_cat_string(out, NAME_LINE_FEED);
        else if (user.data[i] == '\r')
            utf8_buf_cat_string(out, NAME_CARRIAGE_RETURN);
        else
            utf8_buf_cat_byte(out, user.data[i]);
    }
    utf8_buf_kill(&user);
}

void db_run_history_path_from_text(const char *text, u32 length, utf8_buf_t *out) {
    if (os_path_separator != '/' || length == 0 || text[0] != '/') {
        utf8_buf_copy_utf8(out, text, length);
        return;
    }
    while (length > 1 && text[1] == '/') { // two in front would read as a server's name inside
        text++;
        length--;
    }
    utf8_buf_t plain;
    utf8_buf_init(&plain);
    for (u32 i = 0; i < length && length > 1; i++) {
        bool may_be = length - i >= NAME_LINE_END_LENGTH;
        bool is_feed = may_be && std::memcmp(text + i, NAME_LINE_FEED, NAME_LINE_END_LENGTH) == 0;
        bool is_return = may_be && std::memcmp(text + i, NAME_CARRIAGE_RETURN, NAME_LINE_END_LENGTH) == 0;
        utf8_buf_cat_byte(&plain, is_feed ? '\n' : is_return ? '\r' : text[i]);
        if (is_feed || is_return)
            i += NAME_LINE_END_LENGTH - 1;
    }
    os_path_from_system(plain.data, static_cast<u32>(plain.length), out);
    utf8_buf_kill(&plain);
}

// --- Reading -----------------------------------------------------------------------------------------------

void db_run_rows_init(db_run_rows_t *rows) {
    rows->rows = nullptr;
    rows->count = rows->capacity = 0;
    utf8_buf_init(&rows->text);
}

void db_run_rows_kill(db_run_rows_t *rows) {
    if (rows->rows)
        mem_free(rows->rows);
    utf8_buf_kill(&rows->text);
}

void db_run_rows_add(db_run_rows_t *rows, const char *path, u32 length, u32 count, u64 date) {
    if (rows->count == rows->capacity) {
        u32 capacity = rows->capacity ? rows->capacity * 2 : ROWS_FIRST;
        auto *more = static_cast<db_run_row_t *>(mem_alloc(capacity * sizeof(db_run_row_t)));
        std::copy(rows->rows, rows->rows + rows->count, more);
        if (rows->rows)
            mem_free(rows->rows);
        rows->rows = more;
        rows->capacity = capacity;
    }
    rows->rows[rows->count++] = {date, count, static_cast<u32>(rows->text.length), length};
    utf8_buf_cat_utf8(&rows->text, path, length);
}

struct _run_field_t {
    const char *text;
    u32 length;
};

// The fields of a line, by the column that the first line put them in. False at the end of the file.
static bool _db_run_read_line(csv_t *csv, const u32 *places, _run_field_t *fields) {
    std::fill_n(fields, RUN_COLUMNS, _run_field_t{"", 0});
    u32 place = 0;
    for (const char *text; (text = csv_next_field(csv)); place++) {
        for (u32 i = 0; i < RUN_COLUMNS; i++) {
            if (places[i] == place)
                fields[i] = {text, csv->field_length};
        }
    }
    return place != 0 || csv->at_end;
}

// The place of each column; false when there is none for paths.
static bool _db_run_read_header(csv_t *csv, u32 *places) {
    std::fill_n(places, RUN_COLUMNS, NO_PLACE);
    u32 place = 0;
    for (const char *text; (text = csv_next_field(csv)); place++) {
        for (u32 i = 0; i < RUN_COLUMNS; i++) {
            const char *name = _run_column_names[i];
            if (utf8_compare_fold(text, csv->field_length, name, utf8_length(name)) == 0)
                places[i] = place;
        }
    }
    return places[RUN_FILENAME] != NO_PLACE;
}

// The largest where it does not fit.
static u32 _db_run_parse_count(const _run_field_t *field) {
    u64 value = 0;
    for (u32 i = 0; i < field->length && utf8_is_digit(field->text[i]); i++)
        value = std::min<u64>(value * 10 + static_cast<u64>(field->text[i] - '0'), ~0u);
    return static_cast<u32>(value);
}

static void _db_run_add_line(db_run_rows_t *rows, const _run_field_t *fields, u64 cutoff, utf8_buf_t *path) {
    u32 count = _db_run_parse_count(&fields[RUN_COUNT]);
    if (fields[RUN_FILENAME].length == 0 || count == 0)
        return;
    u64 date = file_list_parse_date(fields[RUN_DATE].text, fields[RUN_DATE].length);
    if (date == VALUE_UNKNOWN)
        date = 0;
    if (date < cutoff)
        return;
    db_run_history_path_from_text(fields[RUN_FILENAME].text, fields[RUN_FILENAME].length, path);
    db_run_rows_add(rows, path->data, static_cast<u32>(path->length), count, date);
}

// In the order of the paths, and of one path the last row alone.
static void _db_run_rows_sort(db_run_rows_t *rows) {
    auto compare = [rows](const db_run_row_t &a, const db_run_row_t &b) {
        return db_run_rows_compare(rows, &a, &b);
    };
    std::sort(rows->rows, rows->rows + rows->count, [&](const db_run_row_t &a, const db_run_row_t &b) {
        int result = compare(a, b);
        return result ? result < 0 : a.offset < b.offset;
    });
    u32 count = 0;
    for (u32 i = 0; i < rows->count; i++) {
        if (count != 0 && compare(rows->rows[count - 1], rows->rows[i]) == 0)
            count--;
        rows->rows[count++] = rows->rows[i];
    }
    rows->count = count;
}

bool db_run_rows_read(db_run_rows_t *rows, const char *filename, u64 cutoff) {
    csv_t *csv = csv_open(filename);
    if (!csv)
        return false;
    u32 places[RUN_COLUMNS];
    bool is_history = _db_run_read_header(csv, places);
    utf8_buf_t path;
    utf8_buf_init(&path);
    _run_field_t fields[RUN_COLUMNS];
    while (is_history && csv_next_line(csv) && _db_run_read_line(csv, places, fields)) {
        if (static_cast<u32>(rows->text.length) > DB_RUN_TEXT_MAX - fields[RUN_FILENAME].length)
            break;
        _db_run_add_line(rows, fields, cutoff, &path);
    }
    utf8_buf_kill(&path);
    csv_close(csv);
    _db_run_rows_sort(rows);
    return is_history;
}

// --- Writing -----------------------------------------------------------------------------------------------

static bool _db_run_rows_write_temp(const db_run_rows_t *rows, const char *temp) {
    file_writer_t *writer = file_writer_open(temp);
    if (!writer)
        return false;
    os_make_private(temp);
    file_writer_puts(writer, "Filename,Run Count,Last Run Date\r\n");
    utf8_buf_t text;
    utf8_buf_init(&text);
    for (const db_run_row_t *row = rows->rows; row != rows->rows + rows->count; row++) {
        db_run_history_path_to_text(rows->text.data + row->offset, row->length, &text);
        file_writer_put_csv(writer, text.data, static_cast<u32>(text.length));
        file_writer_printf(writer, ",%u,%I64u\r\n", row->count, row->date);
    }
    utf8_buf_kill(&text);
    return file_writer_close(writer);
}

bool db_run_rows_write(const db_run_rows_t *rows, const char *filename) {
    utf8_buf_t temp;
    utf8_buf_init(&temp);
    os_get_temp_name(filename, &temp);
    os_delete_file(temp.data);
    bool written = _db_run_rows_write_temp(rows, temp.data) && os_replace_file(temp.data, filename);
    if (!written) {
        u32 error = os_get_last_error();
        debug_printf("cannot write %s: %d\n", filename, error);
        os_delete_file(temp.data);
        os_set_last_error(error);
    }
    utf8_buf_kill(&temp);
    return written;
}

} // namespace findwright
