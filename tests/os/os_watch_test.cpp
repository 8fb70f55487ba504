#include "os_watch_test_support.h"

#include <fstream>

using namespace findwright;
namespace fs = std::filesystem;

namespace {

void write(const fs::path &path, const char *text = "text") {
    std::ofstream(path) << text;
}

bool leave_out(void *, const char *path, u32 length) {
    std::string name(path, length);
    return name.size() < 4 || name.compare(name.size() - 4, 4, "\\out") != 0;
}

TEST(os_watch, changes_in_a_folder_are_told) {
    test_watch_t test;
    write(test.root_path / "old");
    ASSERT_TRUE(test.add());
    using lines_t = std::vector<std::string>;
    write(test.root_path / "new");
    EXPECT_EQ(test.get_lines(), (lines_t{"+ new"}));
    write(test.root_path / "old", "longer text");
    EXPECT_EQ(test.get_lines(), lines_t{});
    EXPECT_TRUE(test.modified.contains("old"));
    fs::rename(test.root_path / "old", test.root_path / "renamed");
    EXPECT_EQ(test.get_lines(), (lines_t{"old > renamed"}));
    fs::remove(test.root_path / "renamed");
    EXPECT_EQ(test.get_lines(), (lines_t{"- renamed"}));
    fs::create_directory(test.root_path / "made");
    EXPECT_EQ(test.get_lines(), (lines_t{"+ made"}));
    write(test.root_path / "made" / "file"); // a new folder is watched
    EXPECT_EQ(test.get_lines(), (lines_t{"+ made\\file"}));
}

TEST(os_watch, changes_in_a_tree_are_told_with_their_paths) {
    if (!test_watch_has_trees())
        GTEST_SKIP();
    test_watch_t test;
    fs::create_directories(test.root_path / "old" / "deep");
    fs::create_directories(test.folder.path / "outside");
    write(test.root_path / "old" / "file");
    ASSERT_TRUE(test.add());
    using lines_t = std::vector<std::string>;

    write(test.root_path / "old" / "deep" / "new");
    EXPECT_EQ(test.get_lines(), (lines_t{"+ old\\deep\\new"}));
    write(test.root_path / "old" / "file", "longer text");
    EXPECT_EQ(test.get_lines(), lines_t{});
    EXPECT_TRUE(test.modified.contains("old\\file"));
    fs::rename(test.root_path / "old" / "file", test.root_path / "old" / "renamed");
    EXPECT_EQ(test.get_lines(), (lines_t{"old\\file > old\\renamed"}));
    fs::remove(test.root_path / "old" / "renamed");
    EXPECT_EQ(test.get_lines(), (lines_t{"- old\\renamed"}));
    fs::create_directory(test.root_path / "made");
    EXPECT_EQ(test.get_lines(), (lines_t{"+ made"}));
    write(test.root_path / "made" / "file"); // a new folder is watched
    EXPECT_EQ(test.get_lines(), (lines_t{"+ made\\file"}));
    fs::rename(test.root_path / "made", test.root_path / "named");
    EXPECT_EQ(test.get_lines(), (lines_t{"made > named"}));
    write(test.root_path / "named" / "second"); // and stays so under its new name
    EXPECT_EQ(test.get_lines(), (lines_t{"+ named\\second"}));
    fs::rename(test.root_path / "named", test.folder.path / "outside" / "gone");
    EXPECT_EQ(test.get_lines(), (lines_t{"- named"}));
    write(test.folder.path / "outside" / "gone" / "third"); // nobody's affair any more
    EXPECT_EQ(test.get_lines(), lines_t{});
    fs::rename(test.folder.path / "outside" / "gone", test.root_path / "back");
    EXPECT_EQ(test.get_lines(), (lines_t{"+ back"}));
    write(test.root_path / "back" / "fourth");
    EXPECT_EQ(test.get_lines(), (lines_t{"+ back\\fourth"}));
}

TEST(os_watch, folders_that_are_left_out_are_not_told_of) {
    test_watch_t test(leave_out);
    fs::create_directories(test.root_path / "out" / "deep");
    ASSERT_TRUE(test.add());
    write(test.root_path / "out" / "deep" / "file");
    fs::create_directories(test.root_path / "a");
    write(test.root_path / "b");
    EXPECT_EQ(test.get_lines(), (std::vector<std::string>{"+ a", "+ b"}));
}

TEST(os_watch, of_two_roots_each_tells_of_its_own_and_one_may_hold_the_other) {
    if (!test_watch_has_trees())
        GTEST_SKIP();
    test_watch_t test;
    fs::create_directories(test.root_path / "inner");
    ASSERT_TRUE(test.add());
    std::string outer = test.name, inner = test.name + "\\inner";
    u32 second = os_watch_add(test.watch, inner.c_str(), 4096);
    ASSERT_NE(second, OS_WATCH_NONE);
    write(test.root_path / "inner" / "file");
    EXPECT_EQ(test.get_lines(), (std::vector<std::string>{"+ inner\\file", "+ inner\\file"}));
    os_watch_remove(test.watch, second);
    write(test.root_path / "inner" / "other");
    EXPECT_EQ(test.get_lines(), (std::vector<std::string>{"+ inner\\other"}));
}

TEST(os_watch, more_roots_than_a_thread_can_wait_for) {
    constexpr int COUNT = 80;
    temp_folder_t folder;
    os_watch_t *watch = os_watch_create(nullptr, nullptr);
    std::vector<u32> roots;
    for (int i = 0; i < COUNT; i++) {
        fs::create_directory(folder.path / std::to_string(i));
        roots.push_back(os_watch_add(watch, (folder / std::to_string(i)).c_str(), 4096));
        ASSERT_NE(roots.back(), OS_WATCH_NONE);
    }
    for (int i = 0; i < COUNT; i++)
        write(folder.path / std::to_string(i) / "file");
    std::set<u32> told;
    auto take = [](void *param, const os_watch_event_t *event) {
        if (event->action == OS_WATCH_ADDED)
            static_cast<std::set<u32> *>(param)->insert(event->root);
    };
    while (told.size() < COUNT)
        ASSERT_EQ(os_watch_wait(watch, 20000, take, &told), OS_WATCH_FIRED) << told.size();
    os_watch_destroy(watch);
}

TEST(os_watch, a_folder_that_is_not_there_is_refused) {
    test_watch_t test;
    test.name += "-not";
    EXPECT_FALSE(test.add());
    EXPECT_TRUE(os_error_is_not_found(os_get_last_error()));
    EXPECT_FALSE(os_watch_error_is_limit(os_get_last_error()));
}

void stop_proc(void *param) {
    os_watch_stop(static_cast<os_watch_t *>(param));
}

TEST(os_watch, a_wait_ends_with_its_time_or_the_stop) {
    test_watch_t test;
    ASSERT_TRUE(test.add());
    EXPECT_EQ(os_watch_wait(test.watch, 10, test_watch_t::take, &test), OS_WATCH_TIMEOUT);
    os_watch_wake(test.watch);
    EXPECT_EQ(os_watch_wait(test.watch, OS_INFINITE, test_watch_t::take, &test), OS_WATCH_WOKEN);
    EXPECT_EQ(os_watch_wait(test.watch, 10, test_watch_t::take, &test), OS_WATCH_TIMEOUT);
    os_thread_t *thread = os_thread_create(stop_proc, test.watch);
    EXPECT_EQ(os_watch_wait(test.watch, OS_INFINITE, test_watch_t::take, &test), OS_WATCH_STOPPED);
    os_thread_release(thread, OS_INFINITE);
    EXPECT_EQ(os_watch_wait(test.watch, OS_INFINITE, test_watch_t::take, &test), OS_WATCH_STOPPED);
}

} // namespace
