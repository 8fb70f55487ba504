// Environment variables as the system writes them: `%NAME%`. The system's own expansion ends at 32,767
// characters, so each variable is asked for by itself.
#include "base/mem.h"
#include "base/utf8.h"
#include "base/utf8_buf.h"
#include "os/os.h"
#include "os/os_win32.h"

#include <cstring>

namespace findwright {

// The longest value that the system allows, with its end.
static constexpr u32 VALUE_UNITS = 32768;

void os_expand_environment(const char *text, u32 length, u32 max, utf8_buf_t *out) {
    auto *units = static_cast<wchar_t *>(mem_alloc(VALUE_UNITS * sizeof(wchar_t)));
    utf8_buf_t value;
    utf8_buf_init(&value);
    utf8_buf_empty(out);
    const char *end = text + length;
    while (text != end) {
        const void *close = *text == '%' && text + 1 != end
                                ? std::memchr(text + 1, '%', static_cast<size_t>(end - text - 1))
                                : nullptr;
        u32 name_length = close ? static_cast<u32>(static_cast<const char *>(close) - text - 1) : 0;
        u32 size = name_length != 0
                       ? GetEnvironmentVariableW(os_wide_t(text + 1, name_length).text(), units, VALUE_UNITS)
                       : 0;
        if (size != 0 && size < VALUE_UNITS) {
            utf8_buf_copy_wchar(&value, reinterpret_cast<const char16_t *>(units), size);
            // All variables together add so many bytes; what would pass that stays as it is written.
            if (static_cast<u32>(value.length) <= max) {
                max -= static_cast<u32>(value.length);
                utf8_buf_cat_utf8(out, value.data, static_cast<u32>(value.length));
                text += name_length + 2;
                continue;
            }
        }
        utf8_buf_cat_byte(out, *text++);
    }
    utf8_buf_kill(&value);
    mem_free(units);
}

} // namespace findwright
