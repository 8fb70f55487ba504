// Environment variables as the system writes them: `%NAME%`.
#include "base/mem.h"
#include "base/utf8.h"
#include "base/utf8_buf.h"
#include "os/os.h"
#include "os/os_win32.h"

namespace findwright {

void os_expand_environment(const char *text, u32 length, u32 max, utf8_buf_t *out) {
    os_wide_t wide(text, length);
    u32 room = ExpandEnvironmentStringsW(wide.text(), nullptr, 0);
    if (room != 0 && room - 1 <= length + max) {
        auto *value = static_cast<wchar_t *>(mem_alloc(room * sizeof(wchar_t)));
        u32 units = ExpandEnvironmentStringsW(wide.text(), value, room);
        bool done = units != 0 && units <= room;
        if (done)
            utf8_buf_copy_wchar(out, reinterpret_cast<const char16_t *>(value), units - 1);
        mem_free(value);
        if (done)
            return;
    }
    utf8_buf_copy_utf8(out, text, length);
}

} // namespace findwright
