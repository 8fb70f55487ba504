// Between the files of the command line.
#pragma once

#include "app/command_line.h"
#include "base/utf8_buf.h"

namespace findwright {

// Takes the next word of a terminated text, and moves the cursor behind it. False when there is none.
// `quoted`: some of it, perhaps nothing, stood in quotes.
bool _command_line_next_word(const char **cursor, utf8_buf_t *out, bool *quoted);

} // namespace findwright
