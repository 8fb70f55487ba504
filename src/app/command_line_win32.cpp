#include "app/command_line_internal.h"
#include "base/utf8.h"
#include "os/os.h"

namespace findwright {

void command_line_get_arguments(utf8_buf_t *out) {
    utf8_buf_t all, program;
    utf8_buf_init(&all);
    utf8_buf_init(&program);
    os_get_command_line(&all);
    bool quoted;
    const char *cursor = all.data;
    _command_line_next_word(&cursor, &program, &quoted);
    utf8_buf_copy_string(out, cursor);
    utf8_buf_kill(&program);
    utf8_buf_kill(&all);
}

} // namespace findwright
