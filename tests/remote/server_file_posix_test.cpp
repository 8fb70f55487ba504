#include "os/os_test_support.h"
#include "remote/server_log.h"
#include "server_file_test_support.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace findwright;

namespace {

TEST(server_file_posix, a_read_that_hangs_holds_up_nobody) {
    temp_folder_t folder;
    std::string pipe = (folder.path / "pipe").string();
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    int descriptor = open(pipe.c_str(), O_RDWR | O_CLOEXEC);
    int writer = open(pipe.c_str(), O_WRONLY | O_CLOEXEC);
    ASSERT_TRUE(descriptor != -1 && writer != -1);
    {
        download_t download;
        download.start(descriptor, 0, 3 * SERVER_FILE_BLOCK);
        std::string block(SERVER_FILE_BLOCK, 'p');
        ASSERT_EQ(write(writer, block.data(), block.size()), static_cast<ssize_t>(block.size()));
        wait_until([&] { return download.client.received.size() == block.size(); });
        ASSERT_EQ(write(writer, "x", 1), 1); // now it waits in the middle of a block
        run_idle();
        u32 start = os_get_tick_count();
        download.close();
        EXPECT_LT(os_get_tick_count() - start, 30000000u);
    }
    EXPECT_EQ(fcntl(descriptor, F_GETFD), FD_CLOEXEC); // the thread still has it
    EXPECT_EQ(server_file_get_readers(), 1u);
    // When it comes back it frees all, which the end of the test program looks at.
    std::string rest(SERVER_FILE_BLOCK - 1, 'r');
    ASSERT_EQ(write(writer, rest.data(), rest.size()), static_cast<ssize_t>(rest.size()));
    while (server_file_get_readers() != 0)
        usleep(1000);
    EXPECT_EQ(fcntl(descriptor, F_GETFD), -1);
    close(writer);
}

TEST(server_file_posix, a_range_far_behind_four_gigabytes_arrives) {
    temp_folder_t folder;
    std::string name = (folder.path / "sparse").string();
    static constexpr off_t START = (off_t{5} << 30) - 10;
    std::string text = "beyond what 32 bits can tell";
    int descriptor = open(name.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    ASSERT_NE(descriptor, -1);
    ASSERT_EQ(pwrite(descriptor, text.data(), text.size(), START), static_cast<ssize_t>(text.size()));
    download_t download;
    download.start(descriptor, START - 5, 5 + text.size());
    wait_until([&] { return download.result != SERVER_FILE_WAIT; });
    EXPECT_EQ(download.result, SERVER_FILE_DONE);
    wait_until([&] { return download.client.received.size() == 5 + text.size(); });
    EXPECT_EQ(download.client.received, std::string(5, 0) + text);
}

TEST(server_log_posix, the_log_is_kept_from_other_users) {
    temp_folder_t folder;
    std::string name = folder / "log.txt";
    server_log_t log;
    for (u32 i = 0; i < 2; i++) { // new, and cut
        server_log_init(&log, name.c_str(), 10, 5);
        server_log_printf(&log, nullptr, nullptr, "a search");
        server_log_kill(&log);
        struct stat info;
        ASSERT_EQ(stat((folder.path / "log.txt").c_str(), &info), 0);
        EXPECT_EQ(info.st_mode & 0777, 0600u);
    }
}

} // namespace
