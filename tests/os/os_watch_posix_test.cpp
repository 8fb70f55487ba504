#include "os/os_watch_posix.h"
#include "os_watch_test_support.h"

#include <algorithm>
#include <ctime>
#include <fcntl.h>
#include <fstream>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

using namespace findwright;
namespace fs = std::filesystem;

namespace {

using lines_t = std::vector<std::string>;

void write(const fs::path &path) {
    std::ofstream(path) << "text";
}

void exchange(const fs::path &a, const fs::path &b) {
    constexpr unsigned EXCHANGE = 2;
    EXPECT_EQ(syscall(SYS_renameat2, AT_FDCWD, a.c_str(), AT_FDCWD, b.c_str(), EXCHANGE), 0);
}

// What an index would hold that follows what is told: the paths, `/` behind those of folders. A folder that
// is added is scanned, what is modified has to be there.
struct model_t {
    explicit model_t(test_watch_t *given) : test(given) { scan(""); }

    fs::path get(const std::string &path) const {
        std::string text = path;
        std::replace(text.begin(), text.end(), '\\', '/');
        return test->root_path / text;
    }
    static bool is_below(const std::string &path, const std::string &folder) {
        return path == folder || path.compare(0, folder.size() + 1, folder + "\\") == 0;
    }
    void remove(const std::string &path) {
        std::erase_if(paths, [&](const std::string &item) { return is_below(item, path); });
    }
    void scan(const std::string &path) {
        struct stat info;
        if (path.empty() ? false : lstat(get(path).c_str(), &info) != 0)
            return;
        size_t end = path.rfind('\\');
        if (end != path.npos && !paths.contains(path.substr(0, end)))
            return; // as an index cannot place it
        if (!path.empty() && !S_ISDIR(info.st_mode))
            remove(path);
        if (!path.empty())
            paths.insert(path);
        if (!path.empty() && !S_ISDIR(info.st_mode))
            return;
        std::error_code error;
        fs::recursive_directory_iterator at(get(path), error), none;
        for (; !error && at != none; at.increment(error)) {
            std::string text = at->path().lexically_relative(test->root_path).string();
            std::replace(text.begin(), text.end(), '/', '\\');
            paths.insert(text);
        }
        is_partial |= static_cast<bool>(error);
    }
    void rename(const std::string &from, const std::string &to) {
        remove(to);
        std::set<std::string> moved;
        for (const std::string &item : paths)
            moved.insert(is_below(item, from) ? to + item.substr(from.size()) : item);
        bool is_known = paths.contains(from);
        paths = moved;
        if (!is_known || is_partial) // what was renamed during a scan
            scan(to);
    }
    void follow(const std::vector<std::string> &lines) {
        for (const std::string &line : lines) {
            size_t middle = line.find(" > ");
            if (line == "overflow")
                paths.clear(), scan("");
            else if (line[0] == '+' && line[1] == ' ')
                scan(line.substr(2));
            else if (line[0] == '-' && line[1] == ' ')
                remove(line.substr(2));
            else if (middle != line.npos)
                rename(line.substr(0, middle), line.substr(middle + 3));
        }
        paths.erase("end");
    }

    test_watch_t *test;
    std::set<std::string> paths;
    bool is_partial = false;
};

enum backend_t { INOTIFY, FANOTIFY };

class os_watch_posix_test : public testing::TestWithParam<backend_t> {};

// False where the system does not let us.
bool begin(test_watch_t *test, backend_t backend) {
    os_watch_is_per_folder = backend == INOTIFY;
    if (backend == INOTIFY)
        return test->add();
    // A tree with no watches to be had is handed over.
    fs::create_directory(test->root_path / "first");
    os_watch_set_limit(test->watch, 1);
    bool is_added = test->add();
    os_watch_set_limit(test->watch, 0);
    EXPECT_TRUE(!is_added || os_watch_get_watch_count(test->watch, test->root) == 0);
    fs::remove(test->root_path / "first");
    if (is_added)
        test->get_lines();
    return is_added;
}

TEST_P(os_watch_posix_test, many_changes_at_once_leave_a_true_picture) {
    test_watch_t test;
    if (!begin(&test, GetParam()))
        GTEST_SKIP();
    model_t model(&test);
    const fs::path &root = test.root_path;
    auto check = [&](const char *what) {
        model.follow(test.get_lines());
        model_t now(&test);
        EXPECT_EQ(model.paths, now.paths) << what;
    };
    fs::create_directories(root / "a" / "b" / "c" / "d");
    for (const char *name : {"a/1", "a/b/2", "a/b/c/3", "a/b/c/d/4"})
        write(root / name);
    check("a tree at once");
    fs::create_directories(test.folder.path / "t" / "u" / "v");
    write(test.folder.path / "t" / "u" / "v" / "file");
    fs::rename(test.folder.path / "t", root / "a" / "t");
    write(root / "a" / "t" / "u" / "v" / "second");
    check("a tree that is moved in");
    fs::rename(root / "a", root / "z");
    write(root / "z" / "b" / "c" / "under the new name");
    fs::create_directories(root / "z" / "new" / "deep");
    fs::rename(root / "z" / "new", root / "moved");
    write(root / "moved" / "deep" / "file");
    check("renames of what was renamed");
    write(root / "moved" / "deep" / "second");
    fs::create_directories(root / "z" / "b" / "later");
    check("and what happens there afterwards");
    fs::rename(root / "z" / "b", root / "old b");
    fs::create_directories(root / "z" / "b" / "c");
    write(root / "z" / "b" / "c" / "another");
    write(root / "old b" / "c" / "the first");
    check("another folder of the same name");
    write(root / "z" / "b" / "c" / "x");
    write(root / "old b" / "c" / "y");
    check("each is followed");
    fs::create_directories(root / "e" / "of e");
    fs::create_directories(root / "f" / "of f");
    write(root / "p");
    check("before");
    exchange(root / "e", root / "f");
    exchange(root / "p", root / "old b");
    write(root / "e" / "of f" / "file");
    check("two that take each other's place");
    write(root / "e" / "of f" / "x");
    write(root / "f" / "of e" / "y");
    write(root / "p" / "c" / "z");
    check("are followed under their new names");
    fs::rename(root / "p", test.folder.path / "p");
    fs::create_directories(root / "p" / "c");
    write(root / "p" / "c" / "own");
    fs::remove_all(root / "z");
    write(root / "f" / "1");
    fs::rename(root / "f" / "1", root / "f" / "2");
    write(root / "f" / "1");
    fs::remove(root / "f" / "2");
    check("moved out, made anew, removed");
    fs::create_symlink(test.folder.path, root / "link");
    write(test.folder.path / "p" / "c" / "not followed");
    check("a link");
}

struct storm_t {
    fs::path root, outside;
    u32 seed;
    std::atomic<bool> is_over;

    u32 next(u32 count) {
        seed = seed * 1664525 + 1013904223;
        return (seed >> 8) % count;
    }
    // A path that may be there.
    fs::path get() {
        fs::path path = next(12) == 0 ? outside : root;
        for (u32 depth = 1 + next(4); depth; depth--)
            path /= std::string(1, static_cast<char>('a' + next(4)));
        return path;
    }
};

void storm_proc(void *param) {
    auto *storm = static_cast<storm_t *>(param);
    for (u32 i = 0; i < 1500; i++) {
        std::error_code error;
        fs::path path = storm->get(), other = storm->get();
        switch (storm->next(8)) {
        case 0:
        case 1: fs::create_directories(path, error); break;
        case 2: write(path); break;
        case 3: fs::remove_all(path, error); break;
        case 4:
            syscall(SYS_renameat2, AT_FDCWD, path.c_str(), AT_FDCWD, other.c_str(), 2); // exchange
            break;
        default: fs::rename(path, other, error);
        }
        if (storm->next(200) == 0)
            usleep(2000);
    }
    storm->is_over = true;
}

TEST_P(os_watch_posix_test, a_storm_is_followed) {
    for (u32 seed = 1; seed <= 2; seed++) {
        test_watch_t test;
        if (!begin(&test, GetParam()))
            GTEST_SKIP();
        model_t model(&test);
        storm_t storm = {test.root_path, test.folder.path / "outside", seed, {}};
        fs::create_directories(storm.outside);
        os_thread_t *thread = os_thread_create(storm_proc, &storm);
        while (!storm.is_over) {
            test.lines.clear();
            os_watch_wait(test.watch, 10, test_watch_t::take, &test);
            model.follow(test.lines);
        }
        os_thread_release(thread, OS_INFINITE);
        model.follow(test.get_lines());
        model_t now(&test);
        EXPECT_EQ(model.paths, now.paths) << seed;
        // Each folder that is there is watched.
        for (const std::string &path : now.paths)
            if (fs::is_directory(now.get(path)))
                write(now.get(path) / "last");
        model.follow(test.get_lines());
        model_t last(&test);
        EXPECT_EQ(model.paths, last.paths) << seed;
    }
}

TEST_P(os_watch_posix_test, names_that_are_no_text_and_backslashes_survive) {
    test_watch_t test;
    if (!begin(&test, GetParam()))
        GTEST_SKIP();
    fs::create_directory(test.root_path / "back\\slash \xFF");
    EXPECT_EQ(test.get_lines(), (lines_t{"+ back\xEF\x81\x9Cslash \xFF"}));
    write(test.root_path / "back\\slash \xFF" / "\xC3\\");
    EXPECT_EQ(test.get_lines(), (lines_t{"+ back\xEF\x81\x9Cslash \xFF\\\xC3\xEF\x81\x9C"}));
}

TEST_P(os_watch_posix_test, the_end_of_the_root_is_told) {
    test_watch_t test;
    if (!begin(&test, GetParam()))
        GTEST_SKIP();
    fs::rename(test.root_path, test.folder.path / "moved");
    EXPECT_EQ(test.wait_for("lost").back(), "lost");
    fs::rename(test.folder.path / "moved", test.root_path);
    if (!begin(&test, GetParam()))
        GTEST_SKIP();
    fs::create_directory(test.root_path / "sub");
    fs::remove_all(test.root_path);
    EXPECT_EQ(test.wait_for("lost").back(), "lost");
    EXPECT_EQ(test.watch->count, 0u);
}

u64 get_thread_time() {
    timespec time;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<u64>(time.tv_sec) * 1000000 + static_cast<u64>(time.tv_nsec) / 1000;
}

TEST(os_watch_posix, a_watch_where_nothing_happens_takes_no_time) {
    test_watch_t test;
    os_watch_is_per_folder = true;
    for (int i = 0; i < 50; i++)
        fs::create_directories(test.root_path / std::to_string(i) / "sub");
    ASSERT_TRUE(test.add());
    EXPECT_EQ(os_watch_get_watch_count(test.watch, test.root), 101u);
    u64 start = get_thread_time();
    EXPECT_EQ(os_watch_wait(test.watch, 300, test_watch_t::take, &test), OS_WATCH_TIMEOUT);
    EXPECT_LT(get_thread_time() - start, 5000u);
}

// More events than the system keeps by its usual settings.
TEST(os_watch_posix, an_overflow_is_told_and_the_tree_followed_from_then_on) {
    test_watch_t test;
    os_watch_is_per_folder = true;
    fs::create_directories(test.root_path / "a");
    write(test.root_path / "1");
    write(test.root_path / "2");
    ASSERT_TRUE(test.add());
    unsigned limit = 0;
    std::ifstream("/proc/sys/fs/inotify/max_queued_events") >> limit;
    ASSERT_NE(limit, 0u);
    if (limit > 100000)
        GTEST_SKIP();
    for (unsigned i = 0; i <= limit; i++)
        chmod((test.root_path / (i % 2 ? "1" : "2")).c_str(), 0600);
    fs::rename(test.root_path / "a", test.root_path / "b"); // nobody tells of it
    fs::create_directories(test.root_path / "c" / "d");
    EXPECT_EQ(test.wait_for("overflow").back(), "overflow");
    write(test.root_path / "b" / "file");
    write(test.root_path / "c" / "d" / "file");
    EXPECT_EQ(test.get_lines(), (lines_t{"+ b\\file", "+ c\\d\\file"}));
}

TEST(os_watch_posix, a_root_that_gets_no_more_watches_gives_back_what_it_has) {
    test_watch_t test;
    os_watch_is_per_folder = true;
    fs::create_directories(test.root_path / "a" / "b");
    fs::create_directories(test.folder.path / "other" / "sub");
    os_watch_set_limit(test.watch, 2);
    EXPECT_FALSE(test.add());
    EXPECT_TRUE(os_watch_error_is_limit(os_get_last_error()));
    EXPECT_EQ(test.watch->count, 0u);
    os_watch_set_limit(test.watch, 5);
    ASSERT_TRUE(test.add());
    u32 other = os_watch_add(test.watch, (test.folder / "other").c_str(), 0);
    ASSERT_NE(other, OS_WATCH_NONE);
    fs::create_directories(test.root_path / "c" / "d");
    EXPECT_EQ(test.wait_for("limit").back(), "limit");
    EXPECT_EQ(test.watch->count, 2u); // those of the other root
    write(test.folder.path / "other" / "sub" / "file");
    EXPECT_EQ(test.wait_for("+ (" + (test.folder / "other\\sub\\file") + ")").size(), 1u);
}

TEST(os_watch_posix, the_other_file_systems_below_a_root_are_not_entered) {
    test_watch_t test;
    os_watch_is_per_folder = true;
    test.name = "\\dev";
    struct stat devices, memory;
    if (stat("/dev", &devices) != 0 || stat("/dev/shm", &memory) != 0 || devices.st_dev == memory.st_dev)
        GTEST_SKIP();
    ASSERT_TRUE(test.add());
    EXPECT_FALSE(os_watch_find(test.watch, test.watch->roots[test.root]->node, "shm", 3));
}

INSTANTIATE_TEST_SUITE_P(backends, os_watch_posix_test, testing::Values(INOTIFY, FANOTIFY),
                         [](const auto &given) { return given.param == INOTIFY ? "inotify" : "fanotify"; });

} // namespace
