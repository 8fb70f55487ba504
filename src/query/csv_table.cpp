#include "query/csv_table.h"

#include "base/utf8.h"
#include "os/debug.h"
#include "os/os.h"

#include <algorithm>
#include <cstring>

namespace findwright {

static constexpr u32 NO_PLACE = ~0u;
static constexpr u32 KEY_MAX = 0xFFFF;

// --- Reading -----------------------------------------------------------------------------------------------

// The next field of a line, cleaned in place. False at the line's end.
static bool _csv_table_read_field(csv_t *csv, csv_table_field_t *field) {
    bool was_comma;
    const char *text = csv_next_field_with_empty(csv, &was_comma);
    if (!text)
        return false;
    // The field begins where it began in the file, whatever quotes were taken out of it.
    field->is_there = csv->cursor - was_comma != text;
    char *out = const_cast<char *>(text);
    for (const char *in = text, *end = text + csv->field_length; in != end; in++) {
        if (*in != 0)
            *out++ = *in == '\r' ? ' ' : *in;
    }
    *out = 0;
    field->text = text;
    field->length = static_cast<u32>(out - text);
    return true;
}

static void _csv_table_read_header(csv_table_t *table) {
    csv_table_field_t field;
    for (u32 place = 0; _csv_table_read_field(table->csv, &field); place++) {
        for (u32 i = 0; i < table->count; i++) {
            if (csv_table_is_same_name(field.text, table->names[i]))
                table->places[i] = place;
        }
    }
}

bool csv_table_open(csv_table_t *table, const char *filename, const char *const *names, u32 count) {
    table->csv = csv_open(filename);
    if (!table->csv)
        return false;
    table->names = names;
    table->count = count;
    std::fill_n(table->places, count, NO_PLACE);
    _csv_table_read_header(table);
    return true;
}

void csv_table_close(csv_table_t *table) {
    csv_close(table->csv);
}

bool csv_table_next(csv_table_t *table) {
    if (!csv_next_line(table->csv))
        return false;
    std::fill_n(table->fields, table->count, csv_table_field_t{"", 0, false});
    csv_table_field_t field;
    u32 place = 0;
    for (; _csv_table_read_field(table->csv, &field); place++) {
        for (u32 i = 0; i < table->count; i++) {
            if (table->places[i] == place)
                table->fields[i] = field;
        }
    }
    return place != 0 || table->csv->at_end;
}

u32 csv_table_get_number(const csv_table_field_t *field) {
    u64 value = 0;
    for (const char *p = field->text; utf8_is_digit(*p); p++)
        value = std::min<u64>(value * 10 + static_cast<u64>(*p - '0'), 0xFFFFFFFF);
    return static_cast<u32>(value);
}

void csv_table_get_key(const csv_table_field_t *field, u8 *modifiers, u8 *code) {
    u32 key = csv_table_get_number(field);
    bool is_key = key <= KEY_MAX && (key & 0xFF) != 0;
    *modifiers = static_cast<u8>(is_key ? key >> 8 : 0);
    *code = static_cast<u8>(is_key ? key & 0xFF : 0);
}

bool csv_table_is_same_name(const char *a, const char *b) {
    return utf8_compare_lower(a, utf8_length(a), b, utf8_length(b)) == 0;
}

// --- Writing -----------------------------------------------------------------------------------------------

void csv_table_put_header(file_writer_t *writer, const char *const *names, u32 count) {
    for (u32 i = 0; i < count; i++)
        file_writer_printf(writer, i + 1 < count ? "%s," : "%s\r\n", names[i]);
}

void csv_table_put_text(file_writer_t *writer, const char *text) {
    file_writer_put(writer, '"');
    for (; *text; text++) {
        if (*text == '"')
            file_writer_put(writer, '"');
        file_writer_put(writer, *text == '\r' || *text == '\n' ? ' ' : *text);
    }
    file_writer_put(writer, '"');
}

void csv_table_put_key(file_writer_t *writer, u8 modifiers, u8 code) {
    if (code != 0)
        file_writer_printf(writer, "%u", static_cast<u32>(modifiers) << 8 | code);
}

static bool _csv_table_write_file(const char *temp, csv_table_write_t *write) {
    file_writer_t *writer = file_writer_open(temp);
    if (!writer)
        return false;
    os_make_private(temp);
    write(writer);
    return file_writer_close(writer);
}

bool csv_table_save(const char *filename, csv_table_write_t *write) {
    utf8_buf_t temp;
    utf8_buf_init(&temp);
    os_get_temp_name(filename, &temp);
    os_make_folders_for(filename); // where it fails, so does the next step, which tells why
    bool saved = _csv_table_write_file(temp.data, write) && os_replace_file(temp.data, filename);
    if (!saved) {
        u32 error = os_get_last_error();
        debug_printf("cannot write %s: %d\n", filename, error);
        os_delete_file(temp.data);
        os_set_last_error(error);
    }
    utf8_buf_kill(&temp);
    return saved;
}

} // namespace findwright
