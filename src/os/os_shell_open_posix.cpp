// Opening a file with the desktop's program for it.
//
//     this process --fork--> (leaves at once) --fork--> supervisor --fork--> xdg-open
//          ^------------------ one byte through a pipe ------'
//
// The supervisor belongs to nobody here, so that what was opened stays when this process goes, and none of it
// has to be waited for later.
#include "os/os_shell.h"

#include "base/utf8.h"
#include "os/os.h"
#include "os/os_posix.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <fcntl.h>
#include <initializer_list>
#include <poll.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace findwright {

// An opener that has not failed by then has found a program; some stay for as long as that runs.
static constexpr int OPEN_PATIENCE = 1000; // milliseconds

// What a supervisor writes: the exit status of the opener, or one of these.
static constexpr u8 OPEN_NOT_STARTED = 255;
static constexpr int OPEN_PIPE = 3; // where a supervisor has its end of the pipe

struct _os_opener_t {
    const char *program;
    const char *argument; // in front of the file; 0: none
};
static constexpr _os_opener_t _openers[] = {{"xdg-open", nullptr}, {"gio", "open"}};

// Finds a program in the folders of PATH.
static bool _os_find_program(const char *name, utf8_buf_t *out) {
    const char *path = std::getenv("PATH");
    for (const char *start = path ? path : "/usr/local/bin:/usr/bin:/bin"; *start;) {
        const char *end = start;
        while (*end && *end != ':')
            end++;
        utf8_buf_copy_utf8(out, start, static_cast<u32>(end - start));
        utf8_buf_cat_printf(out, "/%s", name);
        struct stat info;
        if (*out->data == '/' && out->length > 1 && stat(out->data, &info) == 0 && S_ISREG(info.st_mode) &&
            access(out->data, X_OK) == 0)
            return true;
        start = *end ? end + 1 : end;
    }
    return false;
}

// --- In the children: system calls alone -------------------------------------------------------------------

// Keeps no file of this process but the pipe: not its locks, nor what waits for the end of its output.
static void _os_open_let_go(int pipe_end) {
    dup2(pipe_end, OPEN_PIPE);
    fcntl(OPEN_PIPE, F_SETFD, FD_CLOEXEC);
    int null = open("/dev/null", O_RDWR);
    for (int descriptor : {0, 1, 2})
        dup2(null, descriptor);
    if (close_range(OPEN_PIPE + 1, ~0u, 0) != 0) {
        for (int descriptor = OPEN_PIPE + 1; descriptor < 4096; descriptor++)
            close(descriptor);
    }
}

static void _os_open_supervise(int pipe_end, const char *program, char *const *arguments) {
    setsid();
    _os_open_let_go(pipe_end);
    pid_t opener = fork();
    if (opener == 0) {
        execv(program, arguments);
        _exit(OPEN_NOT_STARTED);
    }
    u8 result = OPEN_NOT_STARTED;
    int status;
    if (opener > 0 && waitpid(opener, &status, 0) == opener)
        result = WIFEXITED(status) ? static_cast<u8>(WEXITSTATUS(status)) : 0;
    ssize_t written = write(OPEN_PIPE, &result, 1);
    _exit(written == 1 ? 0 : 1);
}

// --- Here --------------------------------------------------------------------------------------------------

// What became of the opener: 0, or what it ended with; 0, too, when it still runs.
static u8 _os_open_wait(int pipe_end) {
    pollfd wanted = {pipe_end, POLLIN, 0};
    int ready;
    do
        ready = poll(&wanted, 1, OPEN_PATIENCE);
    while (ready == -1 && errno == EINTR);
    u8 result = 0;
    if (ready == 1 && read(pipe_end, &result, 1) != 1)
        result = OPEN_NOT_STARTED;
    return result;
}

static u8 _os_open_start(const char *program, char *const *arguments) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        return OPEN_NOT_STARTED;
    pid_t child = fork();
    if (child == 0) {
        if (fork() == 0)
            _os_open_supervise(ends[1], program, arguments);
        _exit(0);
    }
    close(ends[1]);
    int status;
    if (child > 0)
        waitpid(child, &status, 0);
    u8 result = child > 0 ? _os_open_wait(ends[0]) : OPEN_NOT_STARTED;
    close(ends[0]);
    return result;
}

static bool _os_open_with(const _os_opener_t *opener, const char *program, char *path, utf8_buf_t *error) {
    char *arguments[4] = {const_cast<char *>(opener->program), const_cast<char *>(opener->argument), path,
                          nullptr};
    if (!opener->argument) {
        arguments[1] = path;
        arguments[2] = nullptr;
    }
    u8 result = _os_open_start(program, arguments);
    if (result == OPEN_NOT_STARTED)
        utf8_buf_printf(error, "%s could not be started", program);
    else if (result != 0)
        utf8_buf_printf(error,
                        "%s failed (status %u): it may know no program for files of this kind, or no "
                        "desktop; `xdg-mime default` sets a program",
                        opener->program, static_cast<u32>(result));
    return result == 0;
}

bool os_shell_open(const char *path, u32 length, utf8_buf_t *error) {
    utf8_buf_empty(error);
    utf8_buf_t system_path, program;
    utf8_buf_init(&system_path);
    utf8_buf_init(&program);
    if (length != 0)
        os_path_to_system(path, length, &system_path);
    else
        utf8_buf_copy_string(&system_path, "/");
    struct stat info;
    bool opened = false;
    if (!os_path_is_own(path, length) && length != 0) {
        utf8_buf_copy_string(error, "it is not on this machine");
    } else if (lstat(system_path.data, &info) != 0) {
        char reason[256];
        os_error_text(static_cast<u32>(errno), reason, sizeof reason);
        utf8_buf_copy_string(error, reason);
    } else {
        const _os_opener_t *opener = nullptr;
        for (const _os_opener_t &candidate : _openers) {
            if (!opener && _os_find_program(candidate.program, &program))
                opener = &candidate;
        }
        if (opener)
            opened = _os_open_with(opener, program.data, system_path.data, error);
        else
            utf8_buf_copy_string(error, "this system has no xdg-open, which opens files with the desktop's "
                                        "programs; it is in the package xdg-utils");
    }
    utf8_buf_kill(&program);
    utf8_buf_kill(&system_path);
    return opened;
}

} // namespace findwright
