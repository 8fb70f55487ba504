// What a search inside files must not wait for, nor open at all.
#include "query/file_content.h"

#include "os/os_test_support.h"

#include <cstring>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace findwright {
namespace {

bool matches(const std::string &name) {
    auto match = [](void *, const char *, u32) { return true; };
    file_content_matcher_t matcher = {match, nullptr, 20, nullptr};
    return file_content_match(name.c_str(), FILE_CONTENT_AUTO, &matcher);
}

TEST(FileContent, OnlyRegularFiles) {
    temp_folder_t folder;
    auto path = [&](const char *name) { return (folder.path / name).string(); };
    ASSERT_EQ(mkfifo(path("pipe").c_str(), 0600), 0); // a plain open would wait for a writer
    int listener = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path("socket").c_str(), sizeof(address.sun_path) - 1);
    ASSERT_EQ(bind(listener, reinterpret_cast<sockaddr *>(&address), sizeof(address)), 0);
    write_file(folder / "file", "text");
    ASSERT_EQ(symlink("file", path("link").c_str()), 0);
    ASSERT_EQ(symlink("pipe", path("link to a pipe").c_str()), 0);
    ASSERT_EQ(symlink("nowhere", path("dangling").c_str()), 0);
    ASSERT_EQ(symlink("/dev/zero", path("zeros").c_str()), 0);
    ASSERT_EQ(symlink("/proc/self/status", path("status").c_str()), 0);

    const struct {
        const char *name;
        bool expected;
    } cases[] = {{"file", true},    {"link", true},   {"pipe", false},   {"link to a pipe", false},
                 {"socket", false}, {"zeros", false}, {"status", false}, {"dangling", false}};
    for (const auto &c : cases)
        EXPECT_EQ(matches(folder / c.name), c.expected) << c.name;
    EXPECT_FALSE(matches("\\dev\\tty"));
    EXPECT_FALSE(matches("\\proc\\kmsg"));
    close(listener);
}

} // namespace
} // namespace findwright
