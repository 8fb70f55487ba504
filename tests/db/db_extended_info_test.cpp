// What is read from the file system for items, and what is kept of it.
#include "db/db_extended_info.h"

#include "db/db_file.h"
#include "db/db_folder.h"
#include "os/os_folder.h"
#include "os/os_shell.h"
#include "os/os_test_support.h"

#include <set>
#include <thread>
#include <vector>

using namespace findwright;

namespace {

// A database of records by hand over a folder of the test's own, and a cache for it.
struct info_t {
    temp_folder_t folder;
    db_t *db = db_create();
    db_extended_info_t *info = db_extended_info_create(db);
    const db_item_t *root = add_root(DB_INDEX_TYPE_FOLDER, folder.name);

    ~info_t() {
        db_extended_info_destroy(info);
        db_destroy(db);
    }
    const db_item_t *add_root(db_index_type_t type, const std::string &name) {
        db_index_t *index = db_index_alloc(type);
        _db_index_add(db, index, 0);
        return db_folder_alloc(db, index, 0, name.data(), static_cast<u32>(name.size()));
    }
    const db_item_t *add(const std::string &name, bool is_folder = false, const db_item_t *parent = nullptr) {
        parent = parent ? parent : root;
        mem_ref_t ref = mem_ref(parent);
        db_index_t *index = db_get_index(parent);
        auto length = static_cast<u32>(name.size());
        return is_folder
                   ? static_cast<const db_item_t *>(db_folder_alloc(db, index, ref, name.data(), length))
                   : db_file_alloc(db, index, ref, name.data(), length);
    }
    db_file_info_t get(const db_item_t *item, bool is_folder = false) {
        db_file_info_t out = {1, 2, 3, 4, 5};
        EXPECT_TRUE(is_folder ? db_get_folder_fileinfo(info, item, &out)
                              : db_get_file_fileinfo(info, item, &out));
        return out;
    }
    std::string type_name(const std::string &extension) {
        return db_extended_info_get_type_name(info, extension.data(), static_cast<u32>(extension.size()));
    }
};

void expect_unknown(const db_file_info_t &info, u32 attributes) {
    for (u64 value : {info.size, info.date_modified, info.date_created, info.date_accessed})
        EXPECT_EQ(value, VALUE_UNKNOWN);
    EXPECT_EQ(info.attributes, attributes);
}

TEST(DbExtendedInfo, IsWhatTheFileSystemHas) {
    info_t test;
    os_create_folder((test.folder / "sub").c_str());
    write_file(test.folder / "sub\\five", "12345");
    const db_item_t *sub = test.add("sub", true), *five = test.add("five", false, sub);
    os_folder_entry_t entry;
    ASSERT_TRUE(os_folder_get_entry((test.folder / "sub\\five").c_str(), &entry));
    db_file_info_t info = test.get(five);
    EXPECT_EQ(info.size, 5u);
    EXPECT_EQ(info.date_modified, entry.date_modified);
    EXPECT_EQ(info.date_created, entry.date_created);
    EXPECT_EQ(info.date_accessed, entry.date_accessed);
    EXPECT_EQ(info.attributes, entry.attributes);
    ASSERT_TRUE(os_folder_get_entry((test.folder / "sub").c_str(), &entry));
    for (const db_item_t *folder : {sub, test.root}) {
        info = test.get(folder, true);
        EXPECT_EQ(info.size, VALUE_UNKNOWN);
        EXPECT_EQ(info.date_created, folder == sub ? entry.date_created : info.date_created);
        EXPECT_NE(info.date_modified, VALUE_UNKNOWN);
        EXPECT_TRUE(info.attributes & OS_ATTRIBUTE_FOLDER);
    }
    // A folder in a file's place has no size either, and a folder that is a file by now has none to tell.
    EXPECT_EQ(test.get(test.add("sub")).size, VALUE_UNKNOWN);
    EXPECT_EQ(test.get(test.add("five", true, sub), true).size, VALUE_UNKNOWN);
}

TEST(DbExtendedInfo, LinksAreThemselvesBelowTheTop) {
    if (os_path_separator != '/') // elsewhere it takes rights to make one
        return;
    info_t test;
    write_file(test.folder / "file", "12345");
    std::filesystem::create_directory_symlink(test.folder.path, test.folder.path / "way");
    std::filesystem::create_symlink("file", test.folder.path / "link");
    db_file_info_t info = test.get(test.add("link"));
    EXPECT_EQ(info.attributes, OS_ATTRIBUTE_LINK);
    EXPECT_EQ(info.size, 4u); // of the target's name
    const db_item_t *top = test.add_root(DB_INDEX_TYPE_FOLDER, test.folder / "way");
    EXPECT_FALSE(test.get(top, true).attributes & OS_ATTRIBUTE_LINK);
}

TEST(DbExtendedInfo, WhatCannotBeReadIsNotKnown) {
    info_t test;
    expect_unknown(test.get(test.add("absent")), 0);
    expect_unknown(test.get(test.add("absent", true), true), OS_ATTRIBUTE_FOLDER);
    // A volume from elsewhere: its paths must not be taken for relative ones of this system.
    expect_unknown(test.get(test.add_root(DB_INDEX_TYPE_NTFS, ".."), true), OS_ATTRIBUTE_FOLDER);
    const db_item_t *list = test.add_root(DB_INDEX_TYPE_FILE_LIST, test.folder.name);
    write_file(test.folder / "there", "x");
    db_file_info_t info;
    EXPECT_FALSE(db_get_folder_fileinfo(test.info, list, &info));
    expect_unknown(info, 0);
    EXPECT_FALSE(db_get_file_fileinfo(test.info, test.add("there", false, list), &info));
    expect_unknown(info, 0);
}

TEST(DbExtendedInfo, IsKeptUntilItIsCleared) {
    info_t test;
    write_file(test.folder / "f", "123");
    const db_item_t *file = test.add("f"), *late = test.add("late");
    EXPECT_EQ(test.get(file).size, 3u);
    expect_unknown(test.get(late), 0);
    write_file(test.folder / "f", "12345");
    write_file(test.folder / "late", "1");
    EXPECT_EQ(test.get(file).size, 3u);
    expect_unknown(test.get(late), 0);
    db_extended_info_clear(test.info);
    EXPECT_EQ(test.get(file).size, 5u);
    EXPECT_EQ(test.get(late).size, 1u);
}

// Threads that read an item at the same time, while it changes, are all told the same.
TEST(DbExtendedInfo, SeveralThreadsKeepOneResult) {
    static constexpr size_t FILES = 400, THREADS = 3;
    info_t test;
    std::vector<const db_item_t *> files;
    for (size_t i = 0; i < FILES; i++) {
        write_file(test.folder / std::to_string(i), "");
        files.push_back(test.add(std::to_string(i)));
    }
    std::vector<u64> sizes[THREADS];
    std::vector<const char *> types[THREADS];
    std::vector<std::thread> threads;
    std::atomic<bool> is_over = false;
    std::thread writer([&] {
        for (size_t round = 1; !is_over; round++)
            write_file(test.folder / std::to_string(round * 7 % FILES), std::string(round % 1000, 'x'));
    });
    for (size_t thread = 0; thread < THREADS; thread++) {
        threads.emplace_back([&, thread] {
            for (size_t i = 0; i < FILES; i++) {
                sizes[thread].push_back(test.get(files[i]).size);
                std::string extension = "zz" + std::to_string(i / 4);
                types[thread].push_back(db_extended_info_get_type_name(test.info, extension.data(),
                                                                       static_cast<u32>(extension.size())));
            }
        });
    }
    for (std::thread &thread : threads)
        thread.join();
    is_over = true;
    writer.join();
    for (size_t thread = 1; thread < THREADS; thread++) {
        EXPECT_EQ(sizes[thread], sizes[0]);
        EXPECT_EQ(types[thread], types[0]);
    }
    EXPECT_EQ(std::set<const char *>(types[0].begin(), types[0].end()).size(), FILES / 4);
}

TEST(DbExtendedInfo, TypesByFoldedExtension) {
    info_t test;
    const char *first = db_extended_info_get_type_name(test.info, "zzqX", 4);
    EXPECT_EQ(db_extended_info_get_type_name(test.info, "ZZQx", 4), first);
    for (const char *extension : {"", "z", "zz", "zzq", "zzqxx"})
        EXPECT_NE(test.type_name(extension), first) << extension;
    if (os_path_separator == '/') {
        EXPECT_STREQ(first, "zzqx");
        EXPECT_EQ(test.type_name(""), "");
        EXPECT_EQ(test.type_name(std::string(1000, 'z')), std::string(1000, 'z'));
    }
    const char *folder = db_extended_info_get_folder_type_name(test.info);
    EXPECT_STRNE(folder, "");
    db_extended_info_clear(test.info);
    EXPECT_EQ(db_extended_info_get_type_name(test.info, "zzqx", 4), first);
    EXPECT_EQ(db_extended_info_get_folder_type_name(test.info), folder);
}

} // namespace
