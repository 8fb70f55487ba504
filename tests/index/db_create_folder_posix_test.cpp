// The rebuild's scan of a folder: links, rights, file systems and names as POSIX has them.
#include "db/db_file.h"
#include "db/db_folder.h"
#include "os/os_posix.h"
#include "os/os_test_support.h"
#include "support/test_db.h"

#include <algorithm>
#include <fcntl.h>
#include <fstream>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace findwright {
namespace {

using namespace std::string_literals;
namespace fs = std::filesystem;

struct scan_t {
    std::vector<std::string> folders, files; // full paths, each kind in path order
};

struct wanted_scope_t {
    explicit wanted_scope_t(const std::string &path) {
        db_wanted_init(&wanted);
        wanted.index_flags = TEST_FLAGS_ALL;
        db_wanted_add_folder(&wanted, path.c_str());
    }
    ~wanted_scope_t() { db_wanted_kill(&wanted); }
    db_wanted_t wanted;
};

db_t *run(wanted_scope_t *scope) {
    db_t *db = db_create();
    db_rebuild_start(db, &scope->wanted, nullptr);
    test_db_wait(db);
    return db;
}

scan_t run_and_list(wanted_scope_t *scope) {
    db_t *db = run(scope);
    scan_t scan = {test_array_paths(&db->folder_path_array), test_array_paths(&db->file_path_array)};
    db_destroy(db);
    return scan;
}

// Paths below the root, without it.
scan_t scan(const std::string &root, bool exclude_hidden = false) {
    wanted_scope_t scope(root);
    scope.wanted.exclude.exclude_hidden = exclude_hidden;
    scan_t scan = run_and_list(&scope);
    EXPECT_FALSE(scan.folders.empty());
    for (auto *paths : {&scan.folders, &scan.files}) {
        for (std::string &path : *paths) {
            EXPECT_EQ(path.compare(0, root.size(), root), 0) << path;
            path.erase(0, std::min(path.size(), root.size() + 1));
        }
    }
    return scan;
}

using paths_t = std::vector<std::string>;

TEST(DbCreateFolderPosix, LinksAreItemsAndNotEntered) {
    temp_folder_t folder;
    fs::create_directories(folder.path / "a/b");
    fs::create_directories(folder.path / "outside/in");
    fs::create_directory_symlink("..", folder.path / "a/b/up");
    fs::create_directory_symlink(".", folder.path / "a/self");
    fs::create_directory_symlink(folder.path / "outside", folder.path / "a/out");
    fs::create_symlink("loop", folder.path / "a/loop");
    fs::create_symlink("nowhere", folder.path / "a/dangling");
    const scan_t expected = {{"", "b"}, {"dangling", "loop", "out", "self", "b\\up"}};
    scan_t found = scan(folder / "a");
    EXPECT_EQ(found.folders, expected.folders);
    EXPECT_EQ(found.files, expected.files);

    fs::create_directory_symlink("a", folder.path / "root"); // what the user named is followed
    found = scan(folder / "root");
    EXPECT_EQ(found.folders, expected.folders);
    EXPECT_EQ(found.files, expected.files);

    wanted_scope_t scope(folder / "a");
    db_t *db = run(&scope);
    u32 page;
    i32 position;
    for (u32 i = 0; i < db->file_name_array.count; i++)
        EXPECT_TRUE(
            db_file_get_attributes(db, db_item(array_get(&db->file_name_array, i, &page, &position))) &
            0x400);
    db_destroy(db);
}

TEST(DbCreateFolderPosix, HiddenItemsAreLeftOutWhenAsked) {
    temp_folder_t folder;
    fs::create_directories(folder.path / ".root/.git/deep");
    fs::create_directories(folder.path / ".root/a");
    for (const char *name : {".root/.git/deep/f", ".root/a/.f", ".root/a/f"})
        std::ofstream(folder.path / name) << "x";
    scan_t found = scan(folder / ".root", true);
    EXPECT_EQ(found.folders, (paths_t{"", "a"}));
    EXPECT_EQ(found.files, (paths_t{"a\\f"}));
    found = scan(folder / ".root");
    EXPECT_EQ(found.folders, (paths_t{"", ".git", ".git\\deep", "a"}));
    EXPECT_EQ(found.files.size(), 3u);
}

TEST(DbCreateFolderPosix, NamesOfAnyBytes) {
    temp_folder_t folder;
    const std::string n254(254, 'n'), n255(255, 'n');
    const std::string backslash = "\xEF\x81\x9C"; // stands for a `\` that is part of a name
    const struct {
        std::string on_disk, inside;
    } names[] = {
        {"a\\b", "a" + backslash + "b"},
        {"\\", backslash},
        {"\xFF\xFE", "\xFF\xFE"},
        {"\xC3", "\xC3"},
        {" ", " "},
        {"line\nend", "line\nend"},
        {n254, n254},
        {n255, n255},
        {"C:", "C:"},
        {"...", "..."},
    };
    paths_t folders = {""}, files;
    for (const auto &name : names) {
        fs::create_directory(folder.path / name.on_disk);
        std::ofstream(folder.path / name.on_disk / name.on_disk) << "x";
        folders.push_back(name.inside);
        files.push_back(name.inside + "\\" + name.inside);
    }
    scan_t found = scan(folder.name);
    for (paths_t *paths : {&folders, &files, &found.folders, &found.files})
        std::sort(paths->begin(), paths->end());
    EXPECT_EQ(found.folders, folders);
    EXPECT_EQ(found.files, files);
}

TEST(DbCreateFolderPosix, DatesAreThoseOfTheSystem) {
    temp_folder_t folder;
    fs::create_directory(folder.path / "d");
    std::ofstream(folder.path / "d/f") << "12345";
    const timespec times[] = {{1234567890, 123456700}, {987654321, 100}};
    for (const char *name : {"d/f", "d"})
        ASSERT_EQ(utimensat(AT_FDCWD, (folder.path / name).c_str(), times, 0), 0);
    wanted_scope_t scope(folder / "d");
    db_t *db = run(&scope);
    u32 page;
    i32 position;
    const db_item_t *root = db_item(array_get(&db->folder_name_array, 0, &page, &position));
    const db_item_t *file = db_item(array_get(&db->file_name_array, 0, &page, &position));
    EXPECT_EQ(db_folder_get_date_modified(db, root), os_file_time_from_timespec(&times[1]));
    EXPECT_EQ(db_file_get_date_modified(db, file), os_file_time_from_timespec(&times[1]));
    EXPECT_EQ(db_file_get_date_accessed(db, file), os_file_time_from_timespec(&times[0]));
    EXPECT_EQ(db_file_get_size(db, file), 5u);
    EXPECT_EQ(db_folder_get_size(db, root), 5u);
    db_destroy(db);
}

u32 count_lines(const std::string &log, const std::string &start) {
    u32 count = 0;
    for (size_t at = 0; (at = log.find(start, at)) != std::string::npos; at++)
        count++;
    return count;
}

TEST(DbCreateFolderPosix, PathsUpToTheSystemsLimit) {
    temp_folder_t folder;
    const std::string name(200, 'd');
    u32 depth = 0;
    // Deeper than one path can tell.
    for (int parent = open(folder.path.c_str(), O_PATH); parent != -1 && depth < 24; depth++) {
        ASSERT_EQ(mkdirat(parent, name.c_str(), 0700), 0);
        int child = openat(parent, name.c_str(), O_PATH);
        int file = openat(child, "f", O_CREAT | O_WRONLY, 0600);
        close(file);
        close(parent);
        parent = child;
        if (depth == 23)
            close(parent);
    }
    log_capture_t log;
    const scan_t found = scan(folder.name);
    const std::string text = log.take();
    size_t longest = 0;
    for (const std::string &path : found.files)
        longest = std::max(longest, folder.name.size() + 1 + path.size());
    EXPECT_GE(longest, 3900u);
    EXPECT_EQ(found.folders.size(), found.files.size() + 2); // the last one found could not be listed
    EXPECT_EQ(count_lines(text, "cannot list " + folder.name), 1u) << text;
}

// The superuser may list all, so the test is done as nobody; the log's folder is everyone's for that.
struct no_rights_scope_t {
    no_rights_scope_t() {
        if (geteuid() == 0) {
            EXPECT_EQ(seteuid(65534), 0);
            changed = true;
        }
    }
    ~no_rights_scope_t() {
        if (changed) {
            EXPECT_EQ(seteuid(0), 0);
        }
    }
    bool changed = false;
};

TEST(DbCreateFolderPosix, AFolderWithoutRightsIsEmptyAndLoggedOnce) {
    temp_folder_t folder;
    for (const char *name : {"closed", "names", "open"}) {
        fs::create_directory(folder.path / name);
        std::ofstream(folder.path / name / "f") << "12345";
    }
    log_capture_t log;
    fs::permissions(log.folder.path, fs::perms::all);
    fs::permissions(folder.path / "closed", fs::perms::none);
    // May be listed, but not asked for what is in it.
    fs::permissions(folder.path / "names",
                    fs::perms::owner_read | fs::perms::group_read | fs::perms::others_read);
    scan_t found;
    std::string text;
    {
        no_rights_scope_t no_rights;
        found = scan(folder.name);
        text = log.take();
    }
    for (const char *name : {"closed", "names"})
        fs::permissions(folder.path / name, fs::perms::owner_all);
    EXPECT_EQ(found.folders, (paths_t{"", "closed", "names", "open"}));
    EXPECT_EQ(found.files, (paths_t{"names\\f", "open\\f"}));
    EXPECT_EQ(count_lines(text, "cannot list "), 1u) << text;
    EXPECT_EQ(count_lines(text, "cannot list " + folder / "closed: "), 1u) << text;
}

// The root of the whole system: its own name is empty. Only two levels are looked at.
TEST(DbCreateFolderPosix, TheSystemsRootStaysOnItsFileSystem) {
    struct stat root, processes;
    ASSERT_EQ(stat("/", &root), 0);
    if (stat("/proc", &processes) != 0 || root.st_dev == processes.st_dev)
        GTEST_SKIP() << "no other file system at /proc";
    wanted_scope_t scope("\\");
    db_exclude_add(&scope.wanted.exclude.exclude_folders, "\\?*\\*");
    db_exclude_update_needs(&scope.wanted.exclude);
    const scan_t found = run_and_list(&scope);
    ASSERT_FALSE(found.folders.empty());
    EXPECT_EQ(found.folders[0], "");
    EXPECT_EQ(std::count(found.folders.begin(), found.folders.end(), "\\usr"), 1);
    EXPECT_EQ(std::count(found.folders.begin(), found.folders.end(), "\\proc"), 1);
    EXPECT_EQ(std::count(found.files.begin(), found.files.end(), "\\etc\\passwd"), 1);
    for (const std::string &path : found.files)
        EXPECT_NE(path.compare(0, 6, "\\proc\\"), 0) << path;
}

TEST(DbCreateFolderPosix, AMadeUpFileSystemIsNotScanned) {
    if (!fs::exists("/proc/self"))
        GTEST_SKIP() << "no /proc";
    log_capture_t log;
    wanted_scope_t scope("\\proc");
    const scan_t found = run_and_list(&scope);
    EXPECT_EQ(found.folders, (paths_t{"\\proc"}));
    EXPECT_TRUE(found.files.empty());
    EXPECT_EQ(count_lines(log.take(), "not scanned, no files of a disk: \\proc\n"), 1u);
}

// What comes, goes and turns into links meanwhile neither breaks a scan nor leads it away, and is no failure.
TEST(DbCreateFolderPosix, AScanOfATreeThatChanges) {
    temp_folder_t folder, outside;
    fs::create_directories(outside.path / "secret");
    for (u32 i = 0; i < 40; i++)
        fs::create_directories(folder.path / ("stays" + std::to_string(i)) / "deep");
    log_capture_t log;
    std::atomic<bool> stop = false;
    std::thread changes([&] {
        for (u32 i = 0; !stop; i = (i + 1) % 50) {
            const fs::path path = folder.path / ("moves" + std::to_string(i));
            std::error_code error;
            fs::create_directories(path / "below", error);
            fs::remove_all(path, error);
            fs::create_directory_symlink(outside.path, path, error);
            fs::remove(path, error);
        }
    });
    for (u32 turn = 0; turn < 30; turn++) {
        const scan_t found = scan(folder.name);
        u32 stays = 0;
        for (const std::string &path : found.folders) {
            stays += path.compare(0, 5, "stays") == 0;
            EXPECT_EQ(path.find("secret"), std::string::npos) << path;
        }
        EXPECT_EQ(stays, 80u);
    }
    stop = true;
    changes.join();
    EXPECT_EQ(count_lines(log.take(), "cannot list "), 0u);
}

} // namespace
} // namespace findwright
