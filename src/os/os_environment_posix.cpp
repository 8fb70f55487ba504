// Environment variables as a shell writes them: `$NAME` and `${NAME}`.
#include "base/utf8.h"
#include "base/utf8_buf.h"
#include "os/os.h"

#include <cstdlib>

namespace findwright {

static bool _os_is_variable_char(char c) {
    return static_cast<u8>(c) < 0x80 && utf8_is_word_char(c);
}

// The value of the variable that is called at the text, which begins with `$`, and the bytes of the call; 0
// for none.
static const char *_os_get_variable(const char *text, const char *end, u32 *length) {
    bool braces = text + 1 != end && text[1] == '{';
    const char *start = text + 1 + braces, *stop = start;
    while (stop != end && _os_is_variable_char(*stop))
        stop++;
    if (stop == start || utf8_is_digit(*start) || (braces && (stop == end || *stop != '}')))
        return nullptr;
    utf8_buf_t name;
    utf8_buf_init(&name);
    utf8_buf_copy_utf8(&name, start, static_cast<u32>(stop - start));
    const char *value = std::getenv(name.data);
    utf8_buf_kill(&name);
    *length = static_cast<u32>(stop + braces - text);
    return value;
}

void os_expand_environment(const char *text, u32 length, u32 max, utf8_buf_t *out) {
    utf8_buf_empty(out);
    const char *end = text + length;
    while (text != end) {
        u32 taken = 0;
        const char *value = *text == '$' ? _os_get_variable(text, end, &taken) : nullptr;
        u32 value_length = value ? utf8_length(value) : 0;
        if (!value || value_length > max) {
            utf8_buf_cat_byte(out, *text++);
            continue;
        }
        utf8_buf_cat_utf8(out, value, value_length);
        max -= value_length;
        text += taken;
    }
}

} // namespace findwright
