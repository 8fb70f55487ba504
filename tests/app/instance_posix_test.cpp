// Starts of several processes side by side: this one is the first, its children are those that come later.
#include "app/instance.h"

#include "os/event.h"
#include "os/os_test_support.h"

#include <chrono>
#include <cstdlib>
#include <fcntl.h>
#include <optional>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace findwright {
namespace {

using namespace std::string_literals;

// A session of the user's with folders of its own, and the listener's short patience.
class InstancePosix : public testing::Test {
  protected:
    void SetUp() override {
        for (const char *name : {"XDG_RUNTIME_DIR", "XDG_STATE_HOME", "HOME"})
            before.push_back(std::getenv(name) ? std::optional<std::string>(std::getenv(name))
                                               : std::nullopt);
        std::filesystem::create_directories(run());
        chmod(run().c_str(), 0700);
        setenv("XDG_RUNTIME_DIR", run().c_str(), 1);
        setenv("XDG_STATE_HOME", (folder.path / "state").c_str(), 1);
        setenv("HOME", (folder.path / "home").c_str(), 1);
        peer_limit = instance_peer_limit;
    }
    void TearDown() override {
        instance_stop();
        instance_peer_limit = peer_limit;
        size_t i = 0;
        for (const char *name : {"XDG_RUNTIME_DIR", "XDG_STATE_HOME", "HOME"}) {
            before[i] ? setenv(name, before[i]->c_str(), 1) : unsetenv(name);
            i++;
        }
    }
    std::filesystem::path run() const { return folder.path / "run"; }

    temp_folder_t folder;
    std::vector<std::optional<std::string>> before;
    u32 peer_limit = 0;
};

instance_params_t params_of(const char *name = "", u32 limit = 20000) {
    instance_params_t params = {};
    params.name = name;
    params.command_line = "-s x";
    params.current_directory = "\\d";
    params.limit = limit;
    return params;
}

instance_result_t start(const instance_params_t &params, std::string *error_text = nullptr) {
    utf8_buf_t error;
    utf8_buf_init(&error);
    const instance_result_t result = instance_start(&params, &error);
    EXPECT_EQ(error.length != 0, result == INSTANCE_FAILED) << error.data;
    if (error_text)
        *error_text = error.data;
    utf8_buf_kill(&error);
    return result;
}

// A second process that starts when told to. It is made before this one starts, so that it has none of the
// descriptors that a start opens.
struct process_t {
    explicit process_t(const instance_params_t &params) {
        EXPECT_EQ(pipe(go), 0);
        pid = fork();
        if (pid == 0) {
            char byte;
            if (read(go[0], &byte, 1) == 1)
                _exit(start(params));
            _exit(99);
        }
    }
    ~process_t() {
        if (pid > 0)
            wait();
        close(go[0]);
        close(go[1]);
    }
    process_t(const process_t &) = delete;
    process_t &operator=(const process_t &) = delete;

    void begin() const { EXPECT_EQ(write(go[1], "x", 1), 1); }
    // Runs the main loop meanwhile; -1 when it has not ended within the time.
    int end(int milliseconds = 20000) {
        const auto limit = std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
        int status = 0;
        pid_t ended = 0;
        while (ended == 0 && std::chrono::steady_clock::now() < limit) {
            event_wait_and_dispatch(5);
            ended = waitpid(pid, &status, WNOHANG);
        }
        if (ended != pid)
            return -1;
        pid = 0;
        return WIFEXITED(status) ? WEXITSTATUS(status) : 100;
    }
    void wait() {
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
    }

    pid_t pid = 0;
    int go[2] = {-1, -1};
};

struct receiver_t {
    std::vector<std::pair<std::string, std::string>> messages;
    bool stops = false;
};

void receive(void *param, const char *command_line, const char *current_directory) {
    auto *receiver = static_cast<receiver_t *>(param);
    if (receiver->stops)
        instance_stop();
    receiver->messages.emplace_back(command_line, current_directory);
}

// --- Starts ------------------------------------------------------------------------------------------------

TEST_F(InstancePosix, WhoComesLater) {
    const std::string large(900000, 'x');
    const std::string too_large(INSTANCE_BLOCK_MAX, 'x');
    struct row_t {
        const char *name = "";
        std::string command_line, directory;
        bool first = false, no_first = false;
        int result = INSTANCE_HANDED_OVER;
    };
    const row_t rows[] = {
        {"", "-s \"a b\" -newwindow", "\\home\\u"},
        {"", "", ""},
        {nullptr, "-s \xC3\xA4\n\t\xFF\xFE", "\\d\xEF\x81\x9C\xE2\x82\xAC"},
        {"", large, large.substr(0, 100000)},
        {"", "-no-first-instance", "", false, true},
        {"", "-first-instance", "", true, false, INSTANCE_EXISTS},
        {"", too_large, "", false, false, INSTANCE_FAILED},
        {"other", "", "", false, false, INSTANCE_FIRST},
        {"other", "", "", false, true, INSTANCE_NOT_FIRST},
    };
    std::vector<std::unique_ptr<process_t>> processes;
    for (const row_t &row : rows) {
        processes.push_back(std::make_unique<process_t>(instance_params_t{
            row.name, row.command_line.c_str(), row.directory.c_str(), row.first, row.no_first, 20000}));
    }
    receiver_t receiver;
    ASSERT_EQ(start(params_of()), INSTANCE_FIRST);
    ASSERT_TRUE(instance_listen(receive, &receiver));
    for (const char *name : {"findwright.lock", "findwright.socket"}) {
        struct stat info;
        ASSERT_EQ(stat((run() / name).c_str(), &info), 0) << name;
        EXPECT_EQ(info.st_mode & 0777, 0600u) << name;
    }
    std::vector<std::pair<std::string, std::string>> expected;
    for (size_t i = 0; i < std::size(rows); i++) {
        processes[i]->begin();
        EXPECT_EQ(processes[i]->end(), rows[i].result) << i;
        if (rows[i].result == INSTANCE_HANDED_OVER)
            expected.emplace_back(rows[i].command_line, rows[i].directory);
    }
    EXPECT_TRUE(receiver.messages == expected);
    instance_stop();
    EXPECT_FALSE(std::filesystem::exists(run() / "findwright.socket"));
    EXPECT_TRUE(std::filesystem::exists(run() / "findwright.lock"));
}

TEST_F(InstancePosix, LockIsFreeAfterAStartThatDoesNotGoOn) {
    instance_params_t params = params_of();
    params.no_first_instance = true;
    EXPECT_EQ(start(params), INSTANCE_NOT_FIRST);
    params.no_first_instance = false;
    params.first_instance = true;
    EXPECT_EQ(start(params), INSTANCE_FIRST);
    // Not even a child that still has the descriptor keeps it.
    const pid_t child = fork();
    if (child == 0) {
        pause();
        _exit(0);
    }
    instance_stop();
    EXPECT_EQ(start(params), INSTANCE_FIRST);
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
}

TEST_F(InstancePosix, WaitsForOneThatStartsUpOrGoesDown) {
    process_t impatient(params_of("", 300));
    process_t early(params_of());
    process_t late(params_of());
    receiver_t receiver;
    ASSERT_EQ(start(params_of()), INSTANCE_FIRST);
    impatient.begin();
    EXPECT_EQ(impatient.end(), INSTANCE_TIMED_OUT);

    early.begin();
    EXPECT_EQ(early.end(250), -1);
    ASSERT_TRUE(instance_listen(receive, &receiver));
    EXPECT_EQ(early.end(), INSTANCE_HANDED_OVER);
    EXPECT_EQ(receiver.messages.size(), 1u);

    instance_stop_listening();
    late.begin();
    EXPECT_EQ(late.end(250), -1);
    instance_stop();
    EXPECT_EQ(late.end(), INSTANCE_FIRST);
    EXPECT_EQ(receiver.messages.size(), 1u);
}

TEST_F(InstancePosix, ReceiverMayEndTheProgram) {
    process_t second(params_of());
    receiver_t receiver;
    receiver.stops = true;
    ASSERT_EQ(start(params_of()), INSTANCE_FIRST);
    ASSERT_TRUE(instance_listen(receive, &receiver));
    second.begin();
    EXPECT_EQ(second.end(), INSTANCE_HANDED_OVER);
    // The texts outlive the listener.
    ASSERT_EQ(receiver.messages.size(), 1u);
    EXPECT_EQ(receiver.messages[0].first, "-s x");
    EXPECT_EQ(start(params_of()), INSTANCE_FIRST);
}

// --- Peers -------------------------------------------------------------------------------------------------

struct peer_t {
    explicit peer_t(const std::filesystem::path &path) {
        descriptor = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        path.string().copy(address.sun_path, sizeof(address.sun_path) - 1);
        EXPECT_EQ(connect(descriptor, reinterpret_cast<sockaddr *>(&address), sizeof(address)), 0);
    }
    ~peer_t() { close(descriptor); }
    peer_t(const peer_t &) = delete;
    peer_t &operator=(const peer_t &) = delete;

    void put(const std::string &bytes) const {
        (void)!send(descriptor, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    }
    // What comes while the main loop runs: "closed", "silent", or the answer.
    std::string get(int milliseconds = 5000) const {
        const auto limit = std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
        while (std::chrono::steady_clock::now() < limit) {
            event_wait_and_dispatch(5);
            char bytes[16];
            const ssize_t taken = recv(descriptor, bytes, sizeof(bytes), MSG_DONTWAIT);
            if (taken > 0)
                return std::string(bytes, static_cast<size_t>(taken));
            if (taken == 0 || errno != EAGAIN)
                return "closed";
        }
        return "silent";
    }

    int descriptor;
};

const std::string good_block = "\x0A\0\0\0\0\0\0\0ab\0\\d\0"s;
const std::string taken_answer = "\x01\0\0\0"s;

u32 run_loop(int milliseconds) {
    const auto limit = std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
    u32 count = 0;
    while (std::chrono::steady_clock::now() < limit)
        count += event_wait_and_dispatch(5);
    return count;
}

TEST_F(InstancePosix, MalformedBlocksAreNotAnswered) {
    receiver_t receiver;
    ASSERT_EQ(start(params_of()), INSTANCE_FIRST);
    ASSERT_TRUE(instance_listen(receive, &receiver));
    const std::string rows[] = {
        "\0\0\0\0"s,
        "\x05\0\0\0"s,
        "\x01\0\x10\0"s,
        "\xFF\xFF\xFF\xFF"s,
        "\x0A\0\0\0\0\0\0\0abcdef"s,
        "\x0A\0\0\0\0\0\0\0ab\0\\de"s,
        "\x0A\0\0\0\0\0\0\0a\0b\0d\0"s,
        std::string(100000, 'x'),
    };
    for (const std::string &row : rows) {
        peer_t peer(run() / "findwright.socket");
        peer.put(row);
        EXPECT_EQ(peer.get(), "closed") << row;
    }
    for (size_t length : {0u, 3u, 4u, 13u}) {
        peer_t peer(run() / "findwright.socket");
        peer.put(good_block.substr(0, length));
        shutdown(peer.descriptor, SHUT_WR);
        EXPECT_EQ(peer.get(), "closed") << length;
    }
    {
        // This one has given up, and will come again.
        peer_t peer(run() / "findwright.socket");
        peer.put(good_block);
    }
    run_loop(50);
    EXPECT_TRUE(receiver.messages.empty());

    peer_t slow(run() / "findwright.socket");
    for (char byte : good_block) {
        EXPECT_EQ(slow.get(6), "silent");
        slow.put(std::string(1, byte));
    }
    EXPECT_EQ(slow.get(), taken_answer);
    EXPECT_EQ(receiver.messages.size(), 1u);
}

TEST_F(InstancePosix, OtherUsersAreNotServed) {
    if (geteuid() != 0)
        GTEST_SKIP() << "only root can become another user";
    receiver_t receiver;
    ASSERT_EQ(start(params_of()), INSTANCE_FIRST);
    ASSERT_TRUE(instance_listen(receive, &receiver));
    chmod(run().c_str(), 0755);
    chmod((run() / "findwright.socket").c_str(), 0666);
    const pid_t other = fork();
    if (other == 0) {
        if (setuid(65534) == 0) {
            peer_t peer(run() / "findwright.socket");
            peer.put(good_block);
            char byte;
            _exit(recv(peer.descriptor, &byte, 1, 0) == 1 ? 1 : 0);
        }
        _exit(2);
    }
    int status = 0;
    while (waitpid(other, &status, WNOHANG) == 0)
        event_wait_and_dispatch(5);
    EXPECT_EQ(status, 0);
    EXPECT_TRUE(receiver.messages.empty());
}

TEST_F(InstancePosix, SilentPeersAreDropped) {
    instance_peer_limit = 400;
    receiver_t receiver;
    ASSERT_EQ(start(params_of()), INSTANCE_FIRST);
    ASSERT_TRUE(instance_listen(receive, &receiver));
    std::vector<std::unique_ptr<peer_t>> silent;
    for (u32 i = 0; i < 20; i++) {
        silent.push_back(std::make_unique<peer_t>(run() / "findwright.socket"));
        silent.back()->put(i % 2 ? "" : "\0\0\x10\0part"s);
        run_loop(6);
    }
    // More of them than places, and the main loop rests.
    EXPECT_LT(run_loop(100), 10u);
    peer_t peer(run() / "findwright.socket");
    peer.put(good_block);
    EXPECT_EQ(peer.get(), taken_answer);
    for (const auto &one : silent)
        EXPECT_EQ(one->get(), "closed");
    peer_t open(run() / "findwright.socket");
    EXPECT_EQ(open.get(20), "silent");
    instance_stop();
    EXPECT_EQ(open.get(), "closed");
}

TEST_F(InstancePosix, ListenerOutlivesAWantOfDescriptors) {
    receiver_t receiver;
    ASSERT_EQ(start(params_of()), INSTANCE_FIRST);
    ASSERT_TRUE(instance_listen(receive, &receiver));
    peer_t peer(run() / "findwright.socket");
    peer.put(good_block);
    rlimit limit;
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
    const rlimit none = {0, limit.rlim_max};
    setrlimit(RLIMIT_NOFILE, &none);
    const u32 wakes = run_loop(300);
    setrlimit(RLIMIT_NOFILE, &limit);
    EXPECT_GT(wakes, 0u);
    EXPECT_LT(wakes, 10u);
    EXPECT_TRUE(receiver.messages.empty());
    EXPECT_EQ(peer.get(), taken_answer);
}

// --- Places ------------------------------------------------------------------------------------------------

TEST_F(InstancePosix, CrashedHolderIsReplaced) {
    process_t crashed(params_of());
    process_t second(params_of());
    crashed.begin();
    EXPECT_EQ(crashed.end(), INSTANCE_FIRST);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    (run() / "findwright.socket").string().copy(address.sun_path, sizeof(address.sun_path) - 1);
    const int stale = socket(AF_UNIX, SOCK_STREAM, 0);
    ASSERT_EQ(bind(stale, reinterpret_cast<sockaddr *>(&address), sizeof(address)), 0);
    close(stale);

    receiver_t receiver;
    ASSERT_EQ(start(params_of()), INSTANCE_FIRST);
    ASSERT_TRUE(instance_listen(receive, &receiver));
    second.begin();
    EXPECT_EQ(second.end(), INSTANCE_HANDED_OVER);
    EXPECT_EQ(receiver.messages.size(), 1u);
}

TEST_F(InstancePosix, FolderOfTheLock) {
    const std::filesystem::path state = folder.path / "state/findwright";
    const std::filesystem::path home = folder.path / "home/.local/state/findwright";
    const std::filesystem::path file = folder.path / "file";
    write_file(folder / "file", "");
    const struct {
        std::string runtime;
        mode_t mode;
        std::string state;
        std::filesystem::path expected;
    } rows[] = {
        {run(), 0700, folder.path / "state", run()},
        {run(), 0710, folder.path / "state", state},
        {run(), 0702, folder.path / "state", state},
        {folder.path / "none", 0700, folder.path / "state", state},
        {file, 0700, folder.path / "state", state},
        {"run", 0700, "state", home},
    };
    for (const auto &row : rows) {
        std::filesystem::remove_all(folder.path / "state");
        chmod(run().c_str(), row.mode);
        setenv("XDG_RUNTIME_DIR", row.runtime.c_str(), 1);
        setenv("XDG_STATE_HOME", row.state.c_str(), 1);
        EXPECT_EQ(start(params_of("a/b")), INSTANCE_FIRST);
        EXPECT_TRUE(std::filesystem::exists(row.expected / "findwright-a%2fb.lock")) << row.runtime;
        struct stat info = {};
        EXPECT_EQ(stat(row.expected.c_str(), &info), 0);
        EXPECT_EQ(info.st_mode & 0777, 0700u);
        instance_stop();
        std::filesystem::remove(row.expected / "findwright-a%2fb.lock");
    }
}

TEST_F(InstancePosix, FailureNamesTheFile) {
    std::string error;
    EXPECT_EQ(start(params_of(std::string(250, 'n').c_str()), &error), INSTANCE_FAILED);
    EXPECT_NE(error.find("nnn.socket: "), error.npos) << error;
    std::filesystem::create_symlink(folder.path / "elsewhere", run() / "findwright.lock");
    EXPECT_EQ(start(params_of(), &error), INSTANCE_FAILED);
    EXPECT_NE(error.find((run() / "findwright.lock: ").string()), error.npos) << error;

    unsetenv("XDG_RUNTIME_DIR");
    write_file(folder / "file", "");
    setenv("XDG_STATE_HOME", (folder.path / "file").c_str(), 1);
    EXPECT_EQ(start(params_of(), &error), INSTANCE_FAILED);
    EXPECT_NE(error.find((folder.path / "file/findwright: ").string()), error.npos) << error;
    unsetenv("XDG_STATE_HOME");
    unsetenv("HOME");
    EXPECT_EQ(start(params_of(), &error), INSTANCE_FAILED);
    EXPECT_NE(error.find("findwright.lock"), error.npos) << error;
}

TEST_F(InstancePosix, FolderMayHaveALongName) {
    const std::filesystem::path deep = run() / std::string(100, 'd') / std::string(100, 'e');
    std::filesystem::create_directories(deep);
    chmod(deep.c_str(), 0700);
    setenv("XDG_RUNTIME_DIR", deep.c_str(), 1);
    process_t second(params_of("long"));
    receiver_t receiver;
    ASSERT_EQ(start(params_of("long")), INSTANCE_FIRST);
    ASSERT_TRUE(instance_listen(receive, &receiver));
    EXPECT_TRUE(std::filesystem::exists(deep / "findwright-long.socket"));
    second.begin();
    EXPECT_EQ(second.end(), INSTANCE_HANDED_OVER);
    instance_stop();
    EXPECT_FALSE(std::filesystem::exists(deep / "findwright-long.socket"));
}

} // namespace
} // namespace findwright
