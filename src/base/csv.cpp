#include "base/csv.h"

#include "base/mem.h"
#include "base/utf8.h"

#include <cstring>

namespace findwright {

csv_t *csv_open(const char *name) {
    reader_t *reader = reader_open(name);
    if (!reader)
        return nullptr;
    auto *csv = static_cast<csv_t *>(mem_alloc(sizeof(csv_t)));
    csv->reader = reader;
    csv->at_end = false;
    utf8_buf_init(&csv->line);
    csv->cursor = nullptr;
    csv->first_line = true;
    csv->field_length = 0;
    return csv;
}

void csv_close(csv_t *csv) {
    reader_close(csv->reader);
    utf8_buf_kill(&csv->line);
    mem_free(csv);
}

static bool _csv_read_line(csv_t *csv) {
    if (!reader_get_line(csv->reader, &csv->line))
        return false;
    csv->cursor = csv->line.data;
    if (csv->first_line) {
        u32 length = static_cast<u32>(csv->line.length);
        csv->cursor += utf8_skip_bom(csv->line.data, &length) - csv->line.data;
        csv->first_line = false;
    }
    return true;
}

// Decodes the quoted part of a field, from behind its first quote, down to `out`. Returns where it ends in
// the line, behind the closing quote; *out behind the text.
static char *_csv_decode_quoted(char *in, const char *end, char **out) {
    char *to = *out;
    for (; in != end; in++) {
        if (*in == '"') {
            in++;
            if (in == end || *in != '"')
                break;
        }
        *to++ = *in;
    }
    *out = to;
    return in;
}

const char *csv_next_field_with_empty(csv_t *csv, bool *was_comma) {
    *was_comma = false;
    if (csv->at_end || (!csv->cursor && !_csv_read_line(csv)))
        return nullptr;
    char *const end = csv->line.data + csv->line.length;
    if (csv->cursor == end) {
        csv->at_end = true;
        return nullptr;
    }
    char *const field = csv->cursor;
    char *in = field;
    char *out = field;
    if (*in == '"')
        in = _csv_decode_quoted(in + 1, end, &out);
    auto *comma = static_cast<char *>(std::memchr(in, ',', static_cast<size_t>(end - in)));
    const size_t rest = static_cast<size_t>((comma ? comma : end) - in);
    std::memmove(out, in, rest);
    out += rest;
    *was_comma = comma != nullptr;
    csv->cursor = comma ? comma + 1 : end;
    // At most the comma's place, or the terminator's.
    *out = 0;
    csv->field_length = static_cast<u32>(out - field);
    return field;
}

const char *csv_next_field(csv_t *csv) {
    bool was_comma;
    return csv_next_field_with_empty(csv, &was_comma);
}

bool csv_next_line(csv_t *csv) {
    if (!csv->at_end)
        return false;
    csv->at_end = false;
    csv->cursor = nullptr;
    return true;
}

} // namespace findwright
