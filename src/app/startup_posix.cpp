#include "app/startup.h"

#include "app/config.h"
#include "base/file.h"
#include "base/utf8.h"
#include "os/os.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <initializer_list>
#include <sys/wait.h>
#include <unistd.h>

namespace findwright {

static constexpr int NOT_STARTED = 127; // of a program, as shells have it

// --- The unit ----------------------------------------------------------------------------------------------

void startup_get_unit_name(const char *instance, utf8_buf_t *out) {
    utf8_buf_copy_string(out, "findwright");
    if (instance && *instance)
        utf8_buf_cat_byte(out, '-');
    // What systemd does not take in a name it writes so itself.
    for (; instance && *instance; instance++) {
        char c = *instance;
        bool plain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || utf8_is_digit(c) || c == '_' ||
                     c == '.' || c == '-';
        utf8_buf_cat_printf(out, plain ? "%c" : "\\x%02x", static_cast<u32>(c));
    }
    utf8_buf_cat_string(out, ".service");
}

// A word of a unit: in quotes, with what systemd would replace in it escaped. `$` counts in commands alone.
static void _startup_cat_word(utf8_buf_t *out, const char *text, bool is_command) {
    utf8_buf_cat_byte(out, '"');
    for (; *text; text++) {
        if (*text == '"' || *text == '\\')
            utf8_buf_cat_printf(out, "\\%c", static_cast<u32>(*text));
        else if (*text == '%' || (*text == '$' && is_command))
            utf8_buf_cat_printf(out, "%c%c", static_cast<u32>(*text), static_cast<u32>(*text));
        else if (*text < ' ')
            utf8_buf_cat_printf(out, "\\x%02x", static_cast<u32>(*text));
        else
            utf8_buf_cat_byte(out, *text);
    }
    utf8_buf_cat_byte(out, '"');
}

static void _startup_cat_argument(utf8_buf_t *out, const char *name, const char *value) {
    if (!value || !*value)
        return;
    utf8_buf_cat_printf(out, " %s ", name);
    _startup_cat_word(out, value, true);
}

static void _startup_cat_path(utf8_buf_t *out, const char *name, const char *path) {
    utf8_buf_t text;
    utf8_buf_init(&text);
    if (path)
        config_path_to_text(&text, path);
    _startup_cat_argument(out, name, text.data);
    utf8_buf_kill(&text);
}

void startup_get_unit(const char *program, const command_line_t *line, utf8_buf_t *out) {
    utf8_buf_copy_string(out, "# Written by findwright -install-run-on-system-startup.\n"
                              "[Unit]\nDescription=Findwright, an index of the names of files\n"
                              "StartLimitIntervalSec=600\nStartLimitBurst=5\n\n"
                              "[Service]\nType=exec\nExecStart=");
    _startup_cat_word(out, program, true);
    utf8_buf_cat_string(out, " -startup");
    _startup_cat_argument(out, "-instance", line->instance);
    _startup_cat_path(out, "-config", line->config);
    _startup_cat_path(out, "-db", line->db);
    utf8_buf_cat_byte(out, '\n');
    // The user's systemd need not know what the session that installs has set.
    for (const char *name : {"XDG_CONFIG_HOME", "XDG_DATA_HOME", "XDG_STATE_HOME"}) {
        const char *value = std::getenv(name);
        if (!value || *value != '/')
            continue;
        utf8_buf_t word;
        utf8_buf_init(&word);
        utf8_buf_printf(&word, "%s=%s", name, value);
        utf8_buf_cat_string(out, "Environment=");
        _startup_cat_word(out, word.data, false);
        utf8_buf_cat_byte(out, '\n');
        utf8_buf_kill(&word);
    }
    // A large index takes its time to be saved.
    utf8_buf_cat_string(out, "Restart=on-failure\nRestartSec=5\nTimeoutStopSec=300\n\n"
                             "[Install]\nWantedBy=default.target\n");
}

// Where the user's units are, for the system. False when the environment names no folder.
static bool _startup_get_folder(utf8_buf_t *out) {
    const char *config = std::getenv("XDG_CONFIG_HOME"), *home = std::getenv("HOME");
    utf8_buf_empty(out);
    if (config && *config == '/')
        utf8_buf_printf(out, "%s/systemd/user/", config);
    else if (home && *home == '/')
        utf8_buf_printf(out, "%s/.config/systemd/user/", home);
    return out->length != 0;
}

// --- systemctl ---------------------------------------------------------------------------------------------

static constexpr u32 ARGUMENTS_MAX = 8;

// Runs `systemctl --user` with more words, 0 behind the last. Its exit status, and what it printed.
static int _startup_systemctl(const char *const *words, utf8_buf_t *output) {
    utf8_buf_empty(output);
    const char *arguments[ARGUMENTS_MAX] = {"systemctl", "--user"};
    for (u32 i = 0; i + 3 < ARGUMENTS_MAX && words[i]; i++)
        arguments[i + 2] = words[i];
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        return NOT_STARTED;
    pid_t child = fork();
    if (child == 0) {
        int null = open("/dev/null", O_RDWR);
        dup2(null, 0);
        dup2(ends[1], 1);
        dup2(ends[1], 2);
        execvp(arguments[0], const_cast<char *const *>(arguments));
        _exit(NOT_STARTED);
    }
    close(ends[1]);
    char piece[512];
    ssize_t taken;
    while ((taken = read(ends[0], piece, sizeof piece)) > 0 || (taken == -1 && errno == EINTR))
        utf8_buf_cat_utf8(output, piece, taken > 0 ? static_cast<u32>(taken) : 0);
    close(ends[0]);
    while (output->length != 0 && output->data[output->length - 1] == '\n')
        utf8_buf_set_length(output, static_cast<u32>(output->length) - 1);
    int status;
    if (child <= 0 || waitpid(child, &status, 0) != child || !WIFEXITED(status))
        return NOT_STARTED;
    return WEXITSTATUS(status);
}

// Why systemd did not do it, for the user.
static void _startup_cat_reason(utf8_buf_t *message, int status, const utf8_buf_t *output) {
    if (status == NOT_STARTED)
        utf8_buf_cat_string(message, "there is no systemctl");
    else
        utf8_buf_cat_printf(message, "systemctl: %s", output->length != 0 ? output->data : "it failed");
}

// --- What is asked -----------------------------------------------------------------------------------------

static bool _startup_fail(utf8_buf_t *message, const char *what, const char *name) {
    char reason[256];
    os_error_text(static_cast<u32>(errno), reason, sizeof reason);
    utf8_buf_printf(message, "Unable to %s %s: %s", what, name, reason);
    return false;
}

// Writes the file, whose name is the system's.
static bool _startup_write(const char *name, const utf8_buf_t *text) {
    utf8_buf_t path, temp;
    utf8_buf_init(&path);
    utf8_buf_init(&temp);
    os_path_from_system(name, utf8_length(name), &path);
    os_get_temp_name(path.data, &temp);
    os_make_folders_for(path.data);
    file_writer_t *writer = file_writer_open(temp.data);
    if (writer)
        file_writer_write(writer, text->data, static_cast<size_t>(text->length));
    bool written = writer && file_writer_close(writer) && os_replace_file(temp.data, path.data);
    int error = errno;
    if (!written)
        os_delete_file(temp.data);
    errno = error;
    utf8_buf_kill(&temp);
    utf8_buf_kill(&path);
    return written;
}

// Whether systemd has it now.
static bool _startup_enable(const char *unit, const char *file, utf8_buf_t *message) {
    utf8_buf_t output;
    utf8_buf_init(&output);
    const char *const reload[] = {"daemon-reload", nullptr};
    const char *const enable[] = {"--quiet", "enable", unit, nullptr};
    const char *const start[] = {"--quiet", "restart", unit, nullptr}; // one that runs takes the new text up
    int status = _startup_systemctl(reload, &output);
    if (status == 0)
        status = _startup_systemctl(enable, &output);
    if (status == 0)
        status = _startup_systemctl(start, &output);
    utf8_buf_printf(message, "Written: %s\n", file);
    if (status == 0) {
        utf8_buf_cat_printf(message,
                            "It runs now, and starts when you log in. To see how it does: systemctl --user "
                            "status '%s'",
                            unit);
    } else {
        utf8_buf_cat_string(message, "It could not be started (");
        _startup_cat_reason(message, status, &output);
        utf8_buf_cat_printf(message,
                            "). In a session that has systemd, start it with: systemctl --user enable --now "
                            "'%s'\nWithout systemd, have your session start: findwright &",
                            unit);
    }
    utf8_buf_kill(&output);
    return status == 0;
}

bool startup_install(const command_line_t *line, utf8_buf_t *message) {
    utf8_buf_t unit, file, text;
    for (utf8_buf_t *buf : {&unit, &file, &text})
        utf8_buf_init(buf);
    startup_get_unit_name(line->instance, &unit);
    char program[PATH_MAX];
    ssize_t length = readlink("/proc/self/exe", program, sizeof program - 1);
    program[length > 0 ? length : 0] = 0;
    startup_get_unit(program, line, &text);
    bool written = _startup_get_folder(&file);
    if (!written) {
        utf8_buf_copy_string(message, "Unable to write the service: HOME names no folder");
    } else {
        utf8_buf_cat_string(&file, unit.data);
        written = _startup_write(file.data, &text) ? _startup_enable(unit.data, file.data, message)
                                                   : _startup_fail(message, "write", file.data);
    }
    for (utf8_buf_t *buf : {&unit, &file, &text})
        utf8_buf_kill(buf);
    return written;
}

// The link that systemctl makes for a unit that starts by itself.
static void _startup_unlink_wanted(const char *folder, const char *unit) {
    utf8_buf_t link;
    utf8_buf_init(&link);
    utf8_buf_printf(&link, "%sdefault.target.wants/%s", folder, unit);
    unlink(link.data);
    utf8_buf_kill(&link);
}

static bool _startup_remove(const char *folder, const char *unit, utf8_buf_t *message) {
    utf8_buf_t file, output;
    utf8_buf_init(&file);
    utf8_buf_init(&output);
    utf8_buf_printf(&file, "%s%s", folder, unit);
    const char *const disable[] = {"--quiet", "disable", "--now", unit, nullptr};
    const char *const reload[] = {"daemon-reload", nullptr};
    bool is_there = access(file.data, F_OK) == 0, removed = true;
    int status = is_there ? _startup_systemctl(disable, &output) : 0;
    if (is_there && unlink(file.data) != 0) {
        removed = _startup_fail(message, "delete", file.data);
    } else if (!is_there) {
        utf8_buf_printf(message, "There is no %s", file.data);
    } else {
        _startup_unlink_wanted(folder, unit);
        utf8_buf_printf(message, "Deleted: %s", file.data);
        if (status != 0) {
            utf8_buf_cat_string(message, "\nIt may still run (");
            _startup_cat_reason(message, status, &output);
            utf8_buf_cat_string(message, "); findwright -exit ends it");
        }
        _startup_systemctl(reload, &output);
    }
    utf8_buf_kill(&output);
    utf8_buf_kill(&file);
    return removed;
}

bool startup_uninstall(const command_line_t *line, utf8_buf_t *message) {
    utf8_buf_t unit, folder;
    utf8_buf_init(&unit);
    utf8_buf_init(&folder);
    startup_get_unit_name(line->instance, &unit);
    bool removed = _startup_get_folder(&folder);
    if (removed)
        removed = _startup_remove(folder.data, unit.data, message);
    else
        utf8_buf_copy_string(message, "Unable to find the service: HOME names no folder");
    utf8_buf_kill(&folder);
    utf8_buf_kill(&unit);
    return removed;
}

} // namespace findwright
