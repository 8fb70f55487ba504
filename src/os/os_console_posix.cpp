#include "base/utf8_buf.h"
#include "os/os_internal.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <iterator>
#include <poll.h>
#include <pwd.h>
#include <unistd.h>

namespace findwright {

bool os_is_terminal(int descriptor) {
    return isatty(descriptor) == 1;
}

bool os_console_enable_colors(int descriptor) {
    const char *kind = std::getenv("TERM");
    return os_is_terminal(descriptor) && kind && *kind && std::strcmp(kind, "dumb") != 0;
}

bool os_console_write(int descriptor, const void *bytes, u32 size) {
    auto *from = static_cast<const char *>(bytes);
    while (size) {
        ssize_t written = write(descriptor, from, size);
        if (written > 0) {
            from += written;
            size -= static_cast<u32>(written);
        } else if (written == -1 && errno == EAGAIN) {
            pollfd wait = {descriptor, POLLOUT, 0}; // whoever shares the terminal made it non-blocking
            poll(&wait, 1, -1);
        } else if (written == 0 || errno != EINTR) {
            return false;
        }
    }
    return true;
}

void os_console_open() {}

void os_console_close() {}

void os_console_print(debug_color_t color, const char *text, u32 length) {
    static const char *const CODES[] = {nullptr, "\033[31m", "\033[32m", "\033[33m", "\033[90m"};
    static constexpr char RESET[] = "\033[0m";
    const char *code = color < std::size(CODES) && os_is_terminal(STDERR_FILENO) ? CODES[color] : nullptr;
    if (code)
        os_console_write(STDERR_FILENO, code, static_cast<u32>(std::strlen(code)));
    os_console_write(STDERR_FILENO, text, length);
    if (code)
        os_console_write(STDERR_FILENO, RESET, sizeof(RESET) - 1);
}

const char *os_get_system_name() {
    return "Linux";
}

void os_fatal_end(const char *text, u32 length) {
    os_console_write(STDERR_FILENO, text, length);
    _exit(1);
}

void os_show_out_of_memory() {
    static constexpr char TEXT[] = "Out of Memory\n";
    os_console_write(STDERR_FILENO, TEXT, sizeof(TEXT) - 1);
}

void os_show_message(const char *text) {
    os_console_write(STDERR_FILENO, text, static_cast<u32>(std::strlen(text)));
    os_console_write(STDERR_FILENO, "\n", 1);
}

void os_get_user_name(utf8_buf_t *out) {
    char buffer[4096];
    passwd entry, *found = nullptr;
    if (getpwuid_r(geteuid(), &entry, buffer, sizeof buffer, &found) != 0)
        found = nullptr;
    utf8_buf_copy_string(out, found ? found->pw_name : nullptr);
}

void os_get_computer_name(utf8_buf_t *out) {
    char name[HOST_NAME_MAX + 1] = "";
    if (gethostname(name, sizeof name) != 0)
        name[0] = 0;
    name[HOST_NAME_MAX] = 0;
    utf8_buf_copy_string(out, name);
}

u32 os_get_arguments(int argc, char **argv, const char *const **arguments) {
    *arguments = argv;
    return static_cast<u32>(argc);
}

void os_free_arguments() {}

void os_get_command_line(utf8_buf_t *out) {
    utf8_buf_empty(out);
    int file = open("/proc/self/cmdline", O_RDONLY | O_CLOEXEC);
    if (file == -1)
        return;
    char piece[1024];
    ssize_t taken;
    while ((taken = read(file, piece, sizeof(piece))) > 0)
        utf8_buf_cat_utf8(out, piece, static_cast<u32>(taken));
    close(file);
    // Each argument has a terminator, the last one too.
    if (out->length)
        utf8_buf_set_length(out, static_cast<u32>(out->length - 1));
    for (i32 i = 0; i < out->length; i++)
        if (!out->data[i])
            out->data[i] = ' ';
}

} // namespace findwright
