// The program as a user has it: a process with folders of its own for settings, data, logs and sockets. What
// it does is told by its log, which comes on standard error and is kept in a file here.
#pragma once

#include "app/instance.h"
#include "os/os_test_support.h"

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <functional>
#include <memory>
#include <sstream>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace findwright {

using program_path_t = std::filesystem::path;
using program_clock_t = std::chrono::steady_clock;

inline constexpr int PROGRAM_PATIENCE = 30000; // milliseconds; what takes so long hangs
inline constexpr int PROGRAM_KILLED = 1000;    // and the signal's number, in place of an exit code

inline std::string program_read(const program_path_t &path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return file ? text.str() : "(none)";
}

inline void program_write(const program_path_t &path, const std::string &text) {
    std::ofstream file(path, std::ios::binary);
    file << text;
    EXPECT_TRUE(file.good()) << path;
}

inline int program_count(const std::string &text, const std::string &part) {
    int count = 0;
    for (size_t at = 0; (at = text.find(part, at)) != std::string::npos; at += part.size())
        count++;
    return count;
}

inline bool program_has(const std::string &text, const std::string &part) {
    return text.find(part) != std::string::npos;
}

// Looks again and again until it is so; false when it never is.
inline bool program_wait(const std::function<bool()> &is_so, int milliseconds = PROGRAM_PATIENCE) {
    const auto limit = program_clock_t::now() + std::chrono::milliseconds(milliseconds);
    while (!is_so()) {
        if (program_clock_t::now() > limit)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

// One process. It does not outlive this.
struct program_process_t {
    ~program_process_t() {
        if (pid > 0)
            end(SIGKILL);
    }
    std::string out() const { return program_read(out_path); }
    std::string log() const { return program_read(log_path); }
    // Waits for a line behind the one that was waited for last; then what stands between the two is `last`.
    bool wait_for(const std::string &text) {
        std::string all;
        const bool found = program_wait([&] {
            all = log();
            return all.find(text, seen) != std::string::npos || has_ended();
        });
        const size_t at = found ? all.find(text, seen) : std::string::npos;
        EXPECT_NE(at, std::string::npos) << "no \"" << text << "\" in\n" << all.substr(seen);
        if (at == std::string::npos)
            return false;
        last = all.substr(seen, at + text.size() - seen);
        seen = at + text.size();
        return true;
    }
    bool has_ended() {
        int status;
        if (pid > 0 && waitpid(pid, &status, WNOHANG) == pid) {
            code = WIFEXITED(status) ? WEXITSTATUS(status) : PROGRAM_KILLED + WTERMSIG(status);
            pid = 0;
        }
        return pid <= 0;
    }
    // The exit code, after a signal if one is given; -1 when it does not end.
    int end(int signal = 0, int milliseconds = PROGRAM_PATIENCE) {
        if (signal && pid > 0)
            kill(pid, signal);
        return program_wait([&] { return has_ended(); }, milliseconds) ? code : -1;
    }

    pid_t pid = 0;
    int code = -1;
    program_path_t out_path, log_path;
    size_t seen = 0;
    std::string last;
};

using program_t = std::unique_ptr<program_process_t>;

// How a process begins, other than usual.
struct program_start_t {
    program_path_t program = FINDWRIGHT_PROGRAM;
    program_path_t directory = "/";
    u64 file_size_limit = 0; // bytes of each file that it writes; 0: none
};

// A user's session.
class Program : public testing::Test {
  protected:
    void SetUp() override {
        for (const char *name : {"config/findwright", "data", "state", "run", "logs"})
            std::filesystem::create_directories(folder.path / name);
        chmod((folder.path / "run").c_str(), 0700);
    }

    program_path_t at(const std::string &name) const { return folder.path / name; }
    program_path_t settings() const { return at("config/findwright/Findwright.ini"); }
    program_path_t database() const { return at("data/findwright/Findwright.db"); }
    // No volume of the machine that the tests run on comes in.
    void set(const std::string &lines) const {
        program_write(settings(), "[Findwright]\nauto_include_fixed_volumes=0\n" + lines);
    }
    std::string quoted(const std::string &name) const { return '"' + at(name).string() + '"'; }

    program_t start(const std::vector<std::string> &arguments, const program_start_t &how = {}) {
        program_t process = std::make_unique<program_process_t>();
        const std::string number = std::to_string(++process_count);
        process->out_path = at("logs/out" + number);
        process->log_path = at("logs/log" + number);
        process->pid = fork();
        if (process->pid == 0) {
            become(*process, arguments, how);
            _exit(127);
        }
        EXPECT_TRUE(program_wait([&] { return std::filesystem::exists(process->log_path); }));
        return process;
    }
    // One that does its work and ends.
    program_t run(const std::vector<std::string> &arguments, int code, const program_start_t &how = {}) {
        program_t process = start(arguments, how);
        EXPECT_EQ(process->end(), code) << process->log();
        return process;
    }
    // The application, once it takes command lines.
    program_t start_app(std::vector<std::string> arguments = {}, const program_start_t &how = {}) {
        arguments.insert(arguments.begin(), "-console");
        program_t process = start(arguments, how);
        process->wait_for("apply command line\n");
        return process;
    }
    // The same, once it has compared what it holds with the settings, and watches its lists; without any it
    // never comes to that.
    program_t start_settled(const std::vector<std::string> &arguments = {}, const program_start_t &how = {}) {
        program_t process = start_app(arguments, how);
        const auto is_settled = [&] {
            const std::string log = process->log();
            const auto last_of = [&](const char *line) { return log.rfind(line) + 1; }; // 0: not there
            const size_t built = last_of("success \n");
            return last_of("checked for file list changes") > built &&
                   last_of("wait for change notification") > built &&
                   built >= last_of("filelist out of date");
        };
        EXPECT_TRUE(program_wait([&] { return is_settled() || process->has_ended(); }) && is_settled())
            << process->log();
        process->seen = process->log().size();
        return process;
    }

    // Hands a command line over as a second process does. False when none takes it.
    bool hand_over(const std::string &line, const std::string &instance = "") const {
        const int peer = send_line(line, instance);
        char answer[INSTANCE_ANSWER_BYTES];
        const bool taken = peer != -1 && recv(peer, answer, sizeof(answer), MSG_WAITALL) == sizeof(answer);
        close(peer);
        return taken;
    }
    // The connection, which the other side has yet to answer.
    int send_line(const std::string &line, const std::string &instance = "") const {
        utf8_buf_t name, block;
        utf8_buf_init(&name);
        utf8_buf_init(&block);
        instance_get_filename(&name, instance.c_str(), "socket");
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        at(std::string("run/") + name.data).string().copy(address.sun_path, sizeof(address.sun_path) - 1);
        const instance_block_t parts = {0, line.c_str(), "\\"};
        instance_build_block(&block, &parts);
        const int peer = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        if (connect(peer, reinterpret_cast<sockaddr *>(&address), sizeof(address)) == 0) {
            EXPECT_EQ(send(peer, block.data, static_cast<size_t>(block.length), MSG_NOSIGNAL),
                      static_cast<ssize_t>(block.length));
        }
        utf8_buf_kill(&block);
        utf8_buf_kill(&name);
        return peer;
    }
    // Asks it to leave, and sees that nothing of it is left; the whole log.
    std::string leave(const program_t &process, const std::string &instance = "") const {
        EXPECT_TRUE(hand_over("-exit", instance));
        EXPECT_EQ(process->end(), 0);
        const std::string log = process->log();
        EXPECT_TRUE(is_clean(log)) << log;
        return log;
    }
    static bool is_clean(const std::string &log) {
        const std::string end = "\nMEM_DEBUG_END\n";
        return program_has(log, "\nAllocation count: 0\n") && !program_has(log, "records are alive") &&
               log.size() > end.size() && log.compare(log.size() - end.size(), end.size(), end) == 0;
    }

    temp_folder_t folder;

  private:
    // In the child; returns only when the program cannot be run.
    void become(const program_process_t &process, const std::vector<std::string> &arguments,
                const program_start_t &how) const {
        for (const char *name : {"CONFIG", "DATA", "STATE"}) {
            std::string folder_name = name;
            for (char &c : folder_name)
                c = static_cast<char>(c - 'A' + 'a');
            setenv(("XDG_" + std::string(name) + "_HOME").c_str(), at(folder_name).c_str(), 1);
        }
        setenv("XDG_RUNTIME_DIR", at("run").c_str(), 1);
        setenv("HOME", folder.path.c_str(), 1);
        setenv("LC_ALL", "C", 1);
        dup2(open(process.out_path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600), STDOUT_FILENO);
        dup2(open(process.log_path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600), STDERR_FILENO);
        if (how.file_size_limit) {
            const rlimit limit = {how.file_size_limit, how.file_size_limit};
            setrlimit(RLIMIT_FSIZE, &limit);
            signal(SIGXFSZ, SIG_IGN);
        }
        std::vector<char *> pointers = {const_cast<char *>(how.program.c_str())};
        for (const std::string &argument : arguments)
            pointers.push_back(const_cast<char *>(argument.c_str()));
        pointers.push_back(nullptr);
        if (chdir(how.directory.c_str()) == 0)
            execv(how.program.c_str(), pointers.data());
    }

    unsigned process_count = 0;
};

} // namespace findwright
