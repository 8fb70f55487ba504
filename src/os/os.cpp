#include "base/mem_ref.h"
#include "os/event.h"
#include "os/os_internal.h"
#include "os/os_shell.h"

#include <cstring>

namespace findwright {

u32 os_version_major;
u32 os_version_minor;
bool os_is_nt = true;
u32 os_processor_count = 1;

static void _os_fatal(const char *file, int line, const char *function, const char *message) {
    debug_fatal_at(file, line, function, "%s", message);
}

void os_init() {
    os_platform_init();
    os_locale_init();
    platform.log = debug_vprintf;
    platform.fatal = _os_fatal;
    platform.out_of_memory = os_show_out_of_memory;
    platform.file_open_read = os_open_read;
    platform.file_create = os_create;
    platform.file_read = os_read;
    platform.file_write = os_write;
    platform.file_close = os_close;
    platform.last_error = os_get_last_error;
    platform.local_fields = os_local_fields;
    os_platform_fill_table(&platform);
    os_locale_fill_table(&platform);
    mem_arena_init();
    event_init();
}

void os_kill() {
    os_pool_kill();
    event_kill();
    os_free_arguments();
    os_shell_kill();
    mem_arena_kill();
}

u32 os_get_processor_count() {
    return os_processor_count;
}

u32 os_copy_text(char *out, u32 capacity, const char *text, u32 length) {
    if (!capacity)
        return 0;
    u32 copied = length < capacity ? length : capacity - 1;
    std::memcpy(out, text, copied);
    out[copied] = 0;
    return copied;
}

} // namespace findwright
