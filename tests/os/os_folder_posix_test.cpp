#include "os/os_folder.h"

#include "os/os_posix.h"
#include "os_test_support.h"

#include <cerrno>
#include <fcntl.h>
#include <fstream>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <map>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>

using namespace findwright;

namespace {

struct listed_t {
    bool is_whole;
    u32 error;
    std::map<std::string, os_folder_entry_t> entries;
};

bool add_entry(void *param, const os_folder_entry_t *entry) {
    static_cast<listed_t *>(param)->entries[std::string(entry->name, entry->length)] = *entry;
    return true;
}

listed_t list(const std::string &path, u32 root_length = OS_FOLDER_ROOT) {
    listed_t listed = {};
    listed.is_whole = os_folder_list(path.c_str(), root_length, add_entry, &listed);
    listed.error = os_get_last_error();
    return listed;
}

TEST(os_folder_posix, kinds_and_attributes) {
    temp_folder_t folder;
    for (const char *name : {"plain", ".dot", "locked", ".both"})
        std::ofstream(folder.path / name) << "abc";
    for (const char *name : {"locked", ".both"})
        chmod((folder.path / name).c_str(), 0466);
    mkdir((folder.path / "folder").c_str(), 0777);
    mkdir((folder.path / ".hidden").c_str(), 0777);
    mkfifo((folder.path / "pipe").c_str(), 0666);
    for (auto [name, target] : {std::pair("link", "plain"), {"way", "folder"}, {"nowhere", "absent"}})
        std::filesystem::create_symlink(target, folder.path / name);
    const struct {
        const char *name;
        u32 attributes;
        u64 size;
    } expected[] = {
        {"plain", 0x80, 3},  {".dot", 0x2, 3},      {"locked", 0x1, 3},   {".both", 0x3, 3},
        {"folder", 0x10, 0}, {"pipe", 0x80, 0},     {".hidden", 0x12, 0}, {"link", 0x400, 5},
        {"way", 0x400, 6},   {"nowhere", 0x400, 6},
    };
    listed_t listed = list(folder.name);
    EXPECT_EQ(listed.entries.size(), std::size(expected));
    struct stat info;
    ASSERT_EQ(stat(folder.path.c_str(), &info), 0);
    for (const auto &item : expected) {
        const os_folder_entry_t &entry = listed.entries[item.name];
        EXPECT_EQ(entry.attributes, item.attributes) << item.name;
        EXPECT_EQ(entry.size, item.size) << item.name;
        EXPECT_EQ(entry.is_folder, (item.attributes & OS_ATTRIBUTE_FOLDER) != 0) << item.name;
        EXPECT_EQ(entry.is_link, (item.attributes & OS_ATTRIBUTE_LINK) != 0) << item.name;
        EXPECT_EQ(entry.device, info.st_dev) << item.name;
        os_folder_entry_t alone;
        ASSERT_TRUE(os_folder_get_link_entry((folder / item.name).c_str(), &alone)) << item.name;
        EXPECT_EQ(alone.attributes, item.attributes) << item.name;
        EXPECT_EQ(alone.size, item.size) << item.name;
        EXPECT_EQ(alone.date_modified, entry.date_modified) << item.name;
    }
    const struct {
        const char *name;
        u32 attributes; // where the link leads
    } asked[] = {{"way", 0x10}, {"link", 0x80}, {".hidden", 0x12}, {".", 0x10}};
    for (const auto &item : asked) {
        os_folder_entry_t entry;
        ASSERT_TRUE(os_folder_get_entry((folder / item.name).c_str(), &entry)) << item.name;
        EXPECT_EQ(entry.attributes, item.attributes) << item.name;
        EXPECT_FALSE(entry.is_link) << item.name;
    }
}

TEST(os_folder_posix, dates_are_not_mixed_up) {
    temp_folder_t folder;
    std::ofstream(folder.path / "f") << "x";
    timespec times[2] = {{1000000000, 100}, {1200000000, 123456700}}; // read, written
    ASSERT_EQ(utimensat(AT_FDCWD, (folder.path / "f").c_str(), times, 0), 0);
    os_folder_entry_t entry = list(folder.name).entries["f"];
    EXPECT_EQ(entry.date_accessed, os_file_time_from_timespec(&times[0]));
    EXPECT_EQ(entry.date_modified, os_file_time_from_timespec(&times[1]));
    EXPECT_GT(entry.date_created, entry.date_modified); // now, or not known
}

TEST(os_folder_posix, names_as_they_are_on_disk) {
    temp_folder_t folder;
    for (const char *name : {"a\\b", "\\", "\xFFq", "...", "..x"})
        std::ofstream(folder.path / name) << "x";
    listed_t listed = list(folder.name);
    EXPECT_EQ(listed.entries.size(), 5u);
    for (const char *name : {"a\xEF\x81\x9C"
                             "b",
                             "\xEF\x81\x9C", "\xFFq", "...", "..x"})
        EXPECT_TRUE(listed.entries.contains(name)) << name;
    mkdir((folder.path / "c\\d").c_str(), 0777);
    std::ofstream(folder.path / "c\\d" / "inner") << "x";
    for (u32 root : {OS_FOLDER_ROOT, static_cast<u32>(folder.name.size())})
        EXPECT_TRUE(list(folder / "c\xEF\x81\x9C"
                                  "d",
                         root)
                        .entries.contains("inner"));
}

// A folder of the tree that was replaced by a link while a scan was on its way to it.
void expect_links_are_refused(const temp_folder_t &folder) {
    auto root = static_cast<u32>(folder.name.size());
    const struct {
        const char *name;
        u32 root_length;
        bool is_listed;
    } cases[] = {
        {"real\\in", root, true},
        {"real\\\\in\\", root, true},
        {"last", root, false},
        {"real\\last", root, false},
        {"middle\\in", root, false},
        {"middle\\in", root + 7, true},
        {"middle\\way", root + 7, false},
        {"last", OS_FOLDER_ROOT, true},
        {"middle\\way", OS_FOLDER_ROOT, true},
    };
    for (const auto &entry : cases) {
        listed_t listed = list(folder / entry.name, entry.root_length);
        EXPECT_EQ(listed.is_whole, entry.is_listed) << entry.name << " " << entry.root_length;
        EXPECT_EQ(listed.entries.contains("file"), entry.is_listed) << entry.name;
        EXPECT_TRUE(entry.is_listed || os_error_is_not_found(listed.error)) << listed.error;
    }
}

// Has the thread's own openat2 fail as in a kernel without it.
void forbid_openat2() {
    sock_filter code[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_openat2, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | ENOSYS),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    sock_fprog program = {std::size(code), code};
    ASSERT_EQ(prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0), 0);
    ASSERT_EQ(prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program), 0);
    ASSERT_EQ(syscall(SYS_openat2, -1, "", nullptr, 0), -1);
    ASSERT_EQ(errno, ENOSYS);
}

TEST(os_folder_posix, scan_is_not_led_out_of_its_tree) {
    temp_folder_t folder, outside;
    std::filesystem::create_directories(folder.path / "real" / "in");
    std::filesystem::create_directories(outside.path / "in");
    std::ofstream(folder.path / "real" / "in" / "file") << "x";
    for (const auto &place : {outside.path, outside.path / "in"})
        std::ofstream(place / "file") << "x";
    std::filesystem::create_symlink(outside.path, folder.path / "last");
    std::filesystem::create_symlink(outside.path, folder.path / "real" / "last");
    std::filesystem::create_symlink(outside.path, folder.path / "middle");
    std::filesystem::create_symlink("in", outside.path / "way");
    expect_links_are_refused(folder);
    std::thread([&folder] {
        forbid_openat2();
        expect_links_are_refused(folder);
    }).join();
}

TEST(os_folder_posix, names_that_may_be_read_without_their_data) {
    temp_folder_t folder;
    mkdir((folder.path / "sub").c_str(), 0777);
    std::ofstream(folder.path / ".file") << "x";
    std::filesystem::create_symlink("sub", folder.path / "link");
    chmod(folder.path.c_str(), 0444); // listed, not entered
    std::thread([&folder] {
        if (geteuid() == 0)
            syscall(SYS_setfsuid, 65534); // of this thread alone
        listed_t listed = list(folder.name);
        EXPECT_TRUE(listed.is_whole) << listed.error;
        EXPECT_EQ(listed.entries.size(), 3u);
        const struct {
            const char *name;
            u32 attributes;
            u64 size;
        } expected[] = {{"sub", 0x10, 0}, {".file", 0x2, VALUE_UNKNOWN}, {"link", 0x400, VALUE_UNKNOWN}};
        for (const auto &item : expected) {
            EXPECT_EQ(listed.entries[item.name].attributes, item.attributes) << item.name;
            EXPECT_EQ(listed.entries[item.name].size, item.size) << item.name;
            EXPECT_EQ(listed.entries[item.name].date_modified, VALUE_UNKNOWN) << item.name;
        }
        EXPECT_FALSE(list(folder / "sub", static_cast<u32>(folder.name.size())).is_whole);
        EXPECT_FALSE(os_error_is_not_found(os_get_last_error()));
    }).join();
    chmod(folder.path.c_str(), 0777);
}

TEST(os_folder_posix, virtual_file_systems) {
    const struct {
        const char *path;
        bool expected;
    } cases[] = {
        {"\\", false}, {"\\proc", true}, {"\\proc\\self\\fd", true}, {"\\sys", true}, {"\\tmp", false}};
    for (const auto &entry : cases)
        EXPECT_EQ(os_folder_is_virtual(entry.path), entry.expected) << entry.path;
    struct stat root, devices;
    if (stat("/", &root) == 0 && stat("/dev", &devices) == 0 && root.st_dev != devices.st_dev) {
        EXPECT_TRUE(os_folder_is_virtual("\\dev"));
    }
}

} // namespace
