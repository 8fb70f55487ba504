// Reads the input as a settings file. What is written then must be read again to the same bytes.
#include "app/config.h"
#include "base/utf8.h"
#include "os/os.h"

#include <cstdlib>
#include <cstring>

using namespace findwright;

static void write(utf8_buf_t *out) {
    utf8_buf_empty(out);
    config_write(out, false);
    config_kill();
    config_init(96);
}

extern "C" int LLVMFuzzerTestOneInput(const u8 *bytes, size_t size) {
    static bool is_up;
    if (!is_up) {
        os_init();
        config_init(96);
        is_up = true;
    }
    config_read(reinterpret_cast<const char *>(bytes), static_cast<u32>(size), "input");
    utf8_buf_t first;
    utf8_buf_t second;
    utf8_buf_init(&first);
    utf8_buf_init(&second);
    write(&first);
    if (!config_read(first.data, static_cast<u32>(first.length), "written"))
        std::abort();
    write(&second);
    if (!utf8_is_equal(first.data, static_cast<u32>(first.length), second.data,
                       static_cast<u32>(second.length)))
        std::abort();
    utf8_buf_kill(&first);
    utf8_buf_kill(&second);
    return 0;
}
