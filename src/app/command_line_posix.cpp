#include "app/command_line_internal.h"
#include "base/utf8.h"

namespace findwright {

// The system hands over words, each with its terminator. They are put together so that the parser takes the
// same words out again.
void command_line_get_arguments(utf8_buf_t *out) {
    utf8_buf_t all;
    utf8_buf_init(&all);
    utf8_buf_empty(out);
    utf8_buf_read_file(&all, "\\proc\\self\\cmdline");
    const char *const end = all.data + all.length;
    const char *word = all.data + strnlen(all.data, static_cast<size_t>(all.length)) + 1;
    while (word < end) {
        const u32 length = utf8_length(word);
        if (out->length != 0)
            utf8_buf_cat_byte(out, ' ');
        command_line_cat_word(out, word, length);
        word += length + 1;
    }
    utf8_buf_kill(&all);
}

} // namespace findwright
