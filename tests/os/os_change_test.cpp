// The change set: what fires, what ends a wait, and what becomes of a folder that goes.
#include "os/os_change.h"

#include "os_test_support.h"

using namespace findwright;

namespace {

constexpr u32 LONG = 20000;
constexpr u32 QUIET = 200; // by then a system has told of all that one change makes it tell

struct change_set_t {
    ~change_set_t() { os_change_set_destroy(set); }
    u32 add(const std::string &folder) const { return os_change_set_add(set, folder.c_str()); }
    os_change_wait_t wait(u32 timeout) const { return os_change_set_wait(set, timeout); }
    // True when it fired; waits until all is quiet again.
    bool fires() const {
        bool fired = wait(LONG) == OS_CHANGE_FIRED;
        while (wait(QUIET) == OS_CHANGE_FIRED)
            ;
        return fired;
    }
    os_change_set_t *set = os_change_set_create();
};

TEST(os_change, each_kind_of_change_fires_in_each_folder) {
    temp_folder_t folders[2], other;
    change_set_t changes;
    for (u32 i = 0; i < 2; i++)
        EXPECT_EQ(changes.add(folders[i].name), i);
    EXPECT_EQ(changes.wait(0), OS_CHANGE_TIMEOUT);
    for (const temp_folder_t &folder : folders) {
        write_file(folder / "a", "");
        EXPECT_TRUE(changes.fires()) << "made";
        write_file(folder / "a", "text");
        EXPECT_TRUE(changes.fires()) << "written";
        ASSERT_TRUE(os_move_replace((folder / "a").c_str(), (folder / "b").c_str(), false, false));
        EXPECT_TRUE(changes.fires()) << "renamed";
        ASSERT_TRUE(os_move_replace((folder / "b").c_str(), (other / "b").c_str(), false, false));
        EXPECT_TRUE(changes.fires()) << "moved away";
        ASSERT_TRUE(os_move_replace((other / "b").c_str(), (folder / "b").c_str(), false, false));
        EXPECT_TRUE(changes.fires()) << "moved in";
        ASSERT_TRUE(os_delete_file((folder / "b").c_str()));
        EXPECT_TRUE(changes.fires()) << "deleted";
    }
    write_file(other / "elsewhere", "x");
    EXPECT_EQ(changes.wait(QUIET), OS_CHANGE_TIMEOUT);
    EXPECT_FALSE(os_change_set_is_lost(changes.set, 0) || os_change_set_is_lost(changes.set, 1));
}

TEST(os_change, change_between_two_waits_is_told) {
    temp_folder_t folder;
    change_set_t changes;
    changes.add(folder.name);
    for (u32 i = 0; i < 3; i++) {
        for (u32 j = 0; j < 500; j++)
            write_file(folder / std::to_string(j), "x");
        EXPECT_TRUE(changes.fires());
    }
}

TEST(os_change, wait_ends_with_the_time_out) {
    temp_folder_t folder;
    change_set_t changes;
    for (u32 folders = 0; folders < 2; folders++) {
        u32 start = os_get_tick_count();
        EXPECT_EQ(changes.wait(30), OS_CHANGE_TIMEOUT);
        EXPECT_GE(os_get_tick_count() - start, 28000u);
        changes.add(folder.name);
    }
}

TEST(os_change, folders_that_are_refused) {
    temp_folder_t folder;
    change_set_t changes;
    write_file(folder / "file", "x");
    for (const char *name : {"absent", "file", "absent\\deeper"})
        EXPECT_EQ(changes.add(folder / name), OS_CHANGE_NONE) << name;
    for (u32 i = 0; i < OS_CHANGE_LIMIT; i++) {
        os_create_folder((folder / std::to_string(i)).c_str());
        EXPECT_EQ(changes.add(folder / std::to_string(i)), i);
    }
    EXPECT_EQ(changes.add(folder.name), OS_CHANGE_NONE);
    write_file(folder / (std::to_string(OS_CHANGE_LIMIT - 1) + "\\last"), "x");
    EXPECT_TRUE(changes.fires());
}

TEST(os_change, deleted_folder_is_lost_and_the_others_stay) {
    temp_folder_t folder;
    change_set_t changes;
    for (const char *name : {"one", "two"}) {
        ASSERT_TRUE(os_create_folder((folder / name).c_str()));
        write_file(folder / name + "\\list", "x");
        changes.add(folder / name);
    }
    // Not all systems tell that an empty folder goes; but what lay in it has to go first.
    ASSERT_TRUE(os_delete_file((folder / "one\\list").c_str()));
    ASSERT_TRUE(os_delete_folder((folder / "one").c_str()));
    EXPECT_TRUE(changes.fires());
    EXPECT_TRUE(os_change_set_is_lost(changes.set, 0));
    EXPECT_FALSE(os_change_set_is_lost(changes.set, 1));
    EXPECT_EQ(changes.wait(QUIET), OS_CHANGE_TIMEOUT); // told once
    write_file(folder / "two\\file", "x");
    EXPECT_TRUE(changes.fires());
    ASSERT_TRUE(os_create_folder((folder / "one").c_str()));
    EXPECT_EQ(changes.add(folder / "one"), 2u);
    EXPECT_TRUE(os_change_set_is_lost(changes.set, 0));
    write_file(folder / "one\\file", "x");
    EXPECT_TRUE(changes.fires());
}

// Only there does the system tell of it: elsewhere the watch goes with the folder, or keeps it from going.
TEST(os_change, folder_that_leaves_without_a_change_in_it_is_lost_on_posix) {
    if (os_path_separator != '/')
        return;
    temp_folder_t folder;
    change_set_t changes;
    for (const char *name : {"one", "empty"})
        ASSERT_TRUE(os_create_folder((folder / name).c_str()));
    changes.add(folder / "one");
    changes.add(folder / "one"); // the same folder twice
    changes.add(folder / "empty");
    ASSERT_TRUE(os_move_replace((folder / "one").c_str(), (folder / "two").c_str(), false, true));
    EXPECT_TRUE(changes.fires());
    EXPECT_TRUE(os_change_set_is_lost(changes.set, 0) && os_change_set_is_lost(changes.set, 1));
    write_file(folder / "two\\file", "x");
    EXPECT_EQ(changes.wait(QUIET), OS_CHANGE_TIMEOUT);
    ASSERT_TRUE(os_delete_folder((folder / "empty").c_str()));
    EXPECT_TRUE(changes.fires());
    EXPECT_TRUE(os_change_set_is_lost(changes.set, 2));
}

// A list is written anew by a program that puts a new folder in the old one's place.
TEST(os_change, new_folder_of_that_name_is_watched_after_a_change_in_the_old_one) {
    temp_folder_t folder;
    change_set_t changes;
    ASSERT_TRUE(os_create_folder((folder / "one").c_str()));
    u32 handle = changes.add(folder / "one");
    write_file(folder / "one\\list", "x");
    ASSERT_TRUE(os_move_replace((folder / "one").c_str(), (folder / "old").c_str(), false, true));
    ASSERT_TRUE(os_create_folder((folder / "one").c_str()));
    EXPECT_TRUE(changes.fires());
    bool is_lost = os_change_set_is_lost(changes.set, handle);
    EXPECT_TRUE(!is_lost || changes.add(folder / "one") != OS_CHANGE_NONE); // then it is taken up again
    write_file(folder / "one\\list", "y");
    EXPECT_TRUE(changes.fires());
}

struct waiter_t {
    os_change_set_t *set;
    os_change_wait_t result;
};

void wait_proc(void *param) {
    auto *waiter = static_cast<waiter_t *>(param);
    do
        waiter->result = os_change_set_wait(waiter->set, OS_INFINITE);
    while (waiter->result == OS_CHANGE_FIRED);
}

TEST(os_change, stop_ends_every_wait_from_then_on) {
    temp_folder_t folder;
    change_set_t changes;
    changes.add(folder.name);
    waiter_t waiter = {changes.set, OS_CHANGE_TIMEOUT};
    os_thread_t *thread = os_thread_create(wait_proc, &waiter);
    for (u32 i = 0; i < 20; i++)
        write_file(folder / "a", "x");
    os_change_set_stop(changes.set);
    os_change_set_stop(changes.set);
    os_thread_release(thread, OS_INFINITE);
    EXPECT_EQ(waiter.result, OS_CHANGE_STOPPED);
    write_file(folder / "b", "x");
    for (u32 timeout : {0u, OS_INFINITE})
        EXPECT_EQ(changes.wait(timeout), OS_CHANGE_STOPPED);
}

} // namespace
