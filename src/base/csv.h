// Lines of comma-separated fields, read one field at a time.
//
//   csv_t *csv = csv_open(name);
//   do {
//       while ((field = csv_next_field(csv))) { ... }
//   } while (csv_next_line(csv));
//   csv_close(csv);
//
// A field that begins with `"` runs to the next lone `"`, `""` in it is one, and what follows up to the comma
// is added as it stands. Any other field runs to the comma. A field never runs past its line. A comma at the
// very end of a line opens no further field. Bytes are not validated.
//
// Owner: the opener, who closes it; one thread at a time. There are no errors: a failed read is the file's
// end.
#pragma once

#include "base/reader.h"

namespace findwright {

struct csv_t {
    reader_t *reader;
    bool at_end;      // the line in hand was read to its end
    utf8_buf_t line;  // the line in hand, decoded in place as far as `cursor`
    char *cursor;     // 0: no line in hand
    bool first_line;  // nothing has been read yet
    u32 field_length; // bytes of the field last given
};

// 0 when the file cannot be opened.
csv_t *csv_open(const char *name);
void csv_close(csv_t *csv);
// The next field of the line in hand, or of the next line when there is none in hand: terminated, its length
// also in field_length, and good until the next line is read. 0 at the line's end, with at_end set, and again
// until csv_next_line; 0 at the file's end, with at_end clear.
const char *csv_next_field(csv_t *csv);
// Also tells whether the field ended at a comma: a line's end behind a comma is, for who wants that, an empty
// field.
const char *csv_next_field_with_empty(csv_t *csv, bool *was_comma);
// Done with the line: true when it was read to its end. Otherwise there is no further line, or fields are
// left.
bool csv_next_line(csv_t *csv);

} // namespace findwright
