#include "os/event.h"
#include "os/os_internal.h"
#include "os/os_posix.h"
#include "os_test_support.h"

#include <fcntl.h>
#include <fstream>
#include <sched.h>
#include <sys/epoll.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace findwright;

namespace {

std::string convert(void (*how)(const char *, u32, utf8_buf_t *), const std::string &text) {
    utf8_buf_t buf;
    utf8_buf_init(&buf);
    how(text.data(), static_cast<u32>(text.size()), &buf);
    std::string result(buf.data, static_cast<size_t>(buf.length));
    utf8_buf_kill(&buf);
    return result;
}

TEST(os_posix, paths_go_both_ways) {
    struct {
        std::string system, inside;
    } cases[] = {
        {"", ""},
        {"/", "\\"},
        {"/home/u/a.txt", "\\home\\u\\a.txt"},
        {"/a\\b/c", "\\a\xEF\x81\x9C"
                    "b\\c"},
        {"\\", "\xEF\x81\x9C"},
        {"x\\", "x\xEF\x81\x9C"},
        {"/\xFF\xFE/\xC3/\xEF\x81/\xEF", "\\\xFF\xFE\\\xC3\\\xEF\x81\\\xEF"}, // no UTF-8
        {"/\xEF\xEF\\", "\\\xEF\xEF\xEF\x81\x9C"},
        {"/" + std::string(300, 'n') + "\\", "\\" + std::string(300, 'n') + "\xEF\x81\x9C"},
    };
    for (const auto &entry : cases) {
        EXPECT_EQ(convert(os_path_from_system, entry.system), entry.inside);
        EXPECT_EQ(convert(os_path_to_system, entry.inside), entry.system);
    }
    EXPECT_EQ(convert(os_path_to_system, "a/b\\c"), "a/b/c");
}

TEST(os_posix, backslash_and_stray_bytes_in_names_on_disk) {
    temp_folder_t folder;
    for (const char *on_disk : {"a\\b", "\\", "\xFFq"}) {
        std::ofstream(folder.path / on_disk) << "text";
        std::string name = folder / convert(os_path_from_system, on_disk);
        EXPECT_EQ(read_file(name), "text") << on_disk;
        write_file(name, "changed");
        std::string text;
        std::ifstream(folder.path / on_disk) >> text;
        EXPECT_EQ(text, "changed");
        EXPECT_TRUE(os_delete_file(name.c_str()));
        EXPECT_FALSE(std::filesystem::exists(folder.path / on_disk));
    }
}

TEST(os_posix, replaced_file_keeps_its_permissions) {
    temp_folder_t folder;
    write_file(folder / "f", "old");
    chmod((folder.path / "f").c_str(), 0600);
    write_file(folder / "f.tmp", "new");
    EXPECT_TRUE(os_replace_file((folder / "f.tmp").c_str(), (folder / "f").c_str()));
    struct stat info;
    ASSERT_EQ(stat((folder.path / "f").c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777, 0600u);

    // Through links, of which one that leads nowhere is replaced itself.
    std::filesystem::create_directory(folder.path / "real");
    write_file(folder / "real\\g", "old");
    std::filesystem::create_symlink("real/g", folder.path / "g");
    std::filesystem::create_symlink("nowhere/g", folder.path / "h");
    for (const char *name : {"g", "h"}) {
        const std::string target = folder / name, temp = target + ".tmp";
        write_file(temp, "new");
        os_make_private(temp.c_str());
        EXPECT_TRUE(os_replace_file(temp.c_str(), target.c_str()));
        EXPECT_EQ("new", read_file(target));
        ASSERT_EQ(lstat((folder.path / name).c_str(), &info), 0);
        EXPECT_EQ(name[0] == 'g', S_ISLNK(info.st_mode));
    }
    EXPECT_EQ("new", read_file(folder / "real\\g"));
    EXPECT_EQ(info.st_mode & 07777, 0600u);
}

TEST(os_posix, dates_of_files) {
    struct {
        i64 seconds;
        long nanoseconds;
        u64 file_time;
    } cases[] = {
        {0, 0, 116444736000000000},
        {0, 199, 116444736000000001},
        {-1, 999999900, 116444735999999999},
        {-11644473600, 0, 0},
        {-11644473601, 0, 0},
        {INT64_MIN, 0, 0},
        {INT64_MAX, 999999999, 0x7FFFFFFFFFFFFFFF},
    };
    for (const auto &entry : cases) {
        timespec time = {entry.seconds, entry.nanoseconds};
        EXPECT_EQ(os_file_time_from_timespec(&time), entry.file_time) << entry.seconds;
    }
}

TEST(os_posix, digit_groups) {
    struct {
        i64 value;
        const char *grouping, *separator, *expected;
    } cases[] = {
        {0, "\3", ",", "0"},
        {999, "\3", ",", "999"},
        {1000, "\3", ",", "1,000"},
        {-1000000, "\3\3", ",", "-1,000,000"},
        {123456789, "\3\2", ",", "12,34,56,789"},
        {123456789, "\3\177", ".", "123456.789"},
        {123456789, "", ",", "123456789"},
        {123456789, "\177", ",", "123456789"},
        {1234567, "\3\3", "\xE2\x80\xAF",
         "1\xE2\x80\xAF"
         "234\xE2\x80\xAF"
         "567"},
        {1234, "\1", "'", "1'2'3'4"},
        {INT64_MIN, "\3", ",", "-9,223,372,036,854,775,808"},
    };
    for (const auto &entry : cases) {
        char out[64];
        EXPECT_EQ(os_group_digits(out, sizeof(out), entry.value, entry.grouping, entry.separator),
                  std::strlen(entry.expected));
        EXPECT_STREQ(out, entry.expected);
    }
}

// A handler that takes away itself and the other, both ready in the same wait.
struct pipe_watch_t {
    int ends[2];
    os_loop_watch_t *watch = nullptr;
    pipe_watch_t *other = nullptr;
    int calls = 0;
};

void pipe_proc(void *param, u32 events) {
    auto *self = static_cast<pipe_watch_t *>(param);
    EXPECT_TRUE(events & EPOLLIN);
    self->calls++;
    for (pipe_watch_t *one : {self, self->other}) {
        os_loop_remove(one->watch);
        close(one->ends[0]);
        close(one->ends[1]);
    }
}

TEST(os_posix, loop_watches_descriptors_beside_events) {
    while (event_wait_and_dispatch(0))
        ;
    pipe_watch_t a, b;
    a.other = &b;
    b.other = &a;
    for (pipe_watch_t *one : {&a, &b}) {
        ASSERT_EQ(pipe(one->ends), 0);
        one->watch = os_loop_add(one->ends[0], EPOLLIN, pipe_proc, one);
        ASSERT_TRUE(one->watch);
    }
    EXPECT_FALSE(event_wait_and_dispatch(0));
    EXPECT_EQ(write(a.ends[1], "x", 1), 1);
    EXPECT_EQ(write(b.ends[1], "x", 1), 1);
    EXPECT_TRUE(event_wait_and_dispatch(OS_INFINITE));
    EXPECT_FALSE(event_wait_and_dispatch(0));
    EXPECT_EQ(a.calls + b.calls, 1);
    EXPECT_EQ(os_loop_add(-1, EPOLLIN, pipe_proc, &a), nullptr);
}

TEST(os_posix, closed_reader_is_an_error_and_no_signal) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    EXPECT_TRUE(os_console_write(ends[1], "abc", 3));
    close(ends[0]);
    EXPECT_FALSE(os_console_write(ends[1], "abc", 3));
    close(ends[1]);
}

TEST(os_posix, console_write_waits_for_a_slow_reader) {
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_NONBLOCK), 0);
    fcntl(ends[0], F_SETFL, 0); // the reader blocks, the writer does not
    std::string text(300000, 'y');
    struct reader_t {
        int descriptor;
        size_t taken = 0;
    } reader{ends[0]};
    auto reader_proc = [](void *param) {
        auto *self = static_cast<reader_t *>(param);
        char piece[5000];
        ssize_t taken;
        while ((taken = read(self->descriptor, piece, sizeof(piece))) > 0)
            self->taken += static_cast<size_t>(taken);
    };
    os_thread_t *thread = os_thread_create(reader_proc, &reader);
    EXPECT_TRUE(os_console_write(ends[1], text.data(), static_cast<u32>(text.size())));
    close(ends[1]);
    os_thread_release(thread, OS_INFINITE);
    close(ends[0]);
    EXPECT_EQ(reader.taken, text.size());
}

TEST(os_posix, low_priorities_are_policies_of_the_thread) {
    struct {
        i32 priority;
        int policy;
    } cases[] = {{-15, SCHED_IDLE}, {-1, SCHED_BATCH}, {0, SCHED_OTHER}, {2, SCHED_OTHER}};
    for (const auto &entry : cases) {
        struct run_t {
            os_event_t *go = os_event_create();
            int policy = -1;
        } run;
        auto run_proc = [](void *param) {
            auto *self = static_cast<run_t *>(param);
            os_event_wait(self->go, OS_INFINITE);
            self->policy = sched_getscheduler(0);
        };
        os_thread_t *thread = os_thread_create(run_proc, &run);
        os_thread_set_priority(thread, entry.priority);
        os_event_set(run.go);
        os_thread_release(thread, OS_INFINITE);
        EXPECT_EQ(run.policy, entry.policy);
        os_event_destroy(run.go);
    }
}

// What leads where: the names of one file in a folder of links, and where it lies.
TEST(os_posix, tells_where_a_file_really_lies) {
    temp_folder_t folder;
    std::filesystem::create_directories(folder.path / "real" / "in");
    write_file(folder / "real\\in\\f", "text");
    std::filesystem::create_symlink("real/in", folder.path / "way");
    std::filesystem::create_symlink("f", folder.path / "real" / "in" / "other");
    std::filesystem::create_symlink("nowhere", folder.path / "bad");
    utf8_buf_t path;
    utf8_buf_init(&path);
    ASSERT_TRUE(os_get_real_path(folder.name.c_str(), &path));
    const std::string top = path.data;
    u64 size;
    for (const char *name : {"real\\in\\f", "way\\f", "way\\other", "real\\..\\way\\f"}) {
        EXPECT_TRUE(os_get_real_path((folder / name).c_str(), &path)) << name;
        EXPECT_EQ(path.data, top + "\\real\\in\\f") << name;
        platform_file_t file = os_open_content((folder / name).c_str(), &size);
        ASSERT_NE(file, PLATFORM_FILE_NONE) << name;
        EXPECT_TRUE(os_get_open_path(file, &path)) << name;
        EXPECT_EQ(path.data, top + "\\real\\in\\f") << name;
        os_close(file);
    }
    EXPECT_FALSE(os_get_real_path((folder / "bad").c_str(), &path));
    EXPECT_STREQ(path.data, "");
    EXPECT_TRUE(os_get_real_path("\\", &path));
    EXPECT_STREQ(path.data, "");
    // A file that is gone lies nowhere, whatever has the name that the system shows for it.
    platform_file_t file = os_open_content((folder / "real\\in\\f").c_str(), &size);
    std::filesystem::remove(folder.path / "real" / "in" / "f");
    EXPECT_FALSE(os_get_open_path(file, &path));
    write_file(folder / "real\\in\\f (deleted)", "another");
    EXPECT_FALSE(os_get_open_path(file, &path));
    os_close(file);
    EXPECT_TRUE(os_get_program_path(&path));
    EXPECT_NE(std::string(path.data).find("os_tests"), std::string::npos) << path.data;
    utf8_buf_kill(&path);
}

} // namespace
