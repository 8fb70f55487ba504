// Listings of folders: that each item comes once and with its own data.
#include "os/os_folder.h"

#include "os_test_support.h"

#include <map>
#include <vector>

using namespace findwright;

namespace {

struct listed_t {
    std::map<std::string, os_folder_entry_t> entries;
    size_t limit = ~size_t{0};
};

bool add_entry(void *param, const os_folder_entry_t *entry) {
    auto *listed = static_cast<listed_t *>(param);
    EXPECT_EQ(entry->name[entry->length], 0);
    EXPECT_TRUE(listed->entries.emplace(std::string(entry->name, entry->length), *entry).second)
        << entry->name;
    return listed->entries.size() < listed->limit;
}

TEST(os_folder, items_with_their_data) {
    temp_folder_t folder;
    u64 start = os_get_file_time() - 50000000; // a file system's clock may lag behind
    write_file(folder / "five", "12345");
    write_file(folder / "none", "");
    write_file(folder / "\xC3\xA4 \xE2\x82\xAC", std::string(70000, 'x'));
    ASSERT_TRUE(os_create_folder((folder / "sub").c_str()));
    write_file(folder / "sub\\deeper", "x");
    listed_t listed;
    ASSERT_TRUE(os_folder_list(folder.name.c_str(), OS_FOLDER_ROOT, add_entry, &listed));
    const struct {
        const char *name;
        u64 size;
        bool is_folder;
    } expected[] = {
        {"five", 5, false}, {"none", 0, false}, {"\xC3\xA4 \xE2\x82\xAC", 70000, false}, {"sub", 0, true}};
    EXPECT_EQ(listed.entries.size(), std::size(expected));
    for (const auto &item : expected) {
        ASSERT_TRUE(listed.entries.contains(item.name)) << item.name;
        const os_folder_entry_t &entry = listed.entries[item.name];
        EXPECT_EQ(entry.size, item.size) << item.name;
        EXPECT_EQ(entry.is_folder, item.is_folder) << item.name;
        EXPECT_EQ((entry.attributes & OS_ATTRIBUTE_FOLDER) != 0, item.is_folder) << item.name;
        EXPECT_FALSE(entry.is_link) << item.name;
        for (u64 date : {entry.date_modified, entry.date_created, entry.date_accessed})
            EXPECT_TRUE(date == VALUE_UNKNOWN || (date > start && date <= os_get_file_time())) << item.name;

        // Asked for by itself it is the same.
        os_folder_entry_t alone;
        ASSERT_TRUE(os_folder_get_entry((folder / item.name).c_str(), &alone));
        EXPECT_STREQ(alone.name, "");
        EXPECT_EQ(alone.size, entry.size);
        EXPECT_EQ(alone.attributes, entry.attributes);
        EXPECT_EQ(alone.date_modified, entry.date_modified);
        EXPECT_EQ(alone.date_created, entry.date_created);
        EXPECT_EQ(alone.device, entry.device);
    }
    EXPECT_FALSE(os_folder_is_virtual(folder.name.c_str()));
}

TEST(os_folder, what_is_no_folder) {
    temp_folder_t folder;
    write_file(folder / "file", "x");
    listed_t listed;
    os_folder_entry_t entry;
    for (const char *name : {"absent", "absent\\deeper", "file", "file\\deeper"}) {
        for (size_t root : {folder.name.size(), folder.name.size() + 1 + std::strlen(name)}) {
            EXPECT_FALSE(os_folder_list((folder / name).c_str(), static_cast<u32>(root), add_entry, &listed));
            EXPECT_TRUE(os_error_is_not_found(os_get_last_error())) << name << " " << os_get_last_error();
        }
        if (std::string(name) == "file")
            continue;
        EXPECT_FALSE(os_folder_get_entry((folder / name).c_str(), &entry));
        EXPECT_TRUE(os_error_is_not_found(os_get_last_error())) << name << " " << os_get_last_error();
    }
    EXPECT_TRUE(listed.entries.empty());
    EXPECT_FALSE(os_folder_is_virtual((folder / "absent").c_str()));
}

TEST(os_folder, many_items_and_a_callback_that_stops) {
    temp_folder_t folder;
    // More than one call of the system gives, with names of very different lengths.
    for (u32 i = 0; i < 1000; i++)
        write_file(folder / (std::to_string(i) + std::string(i % 200, 'n')), "");
    listed_t all;
    EXPECT_TRUE(os_folder_list(folder.name.c_str(), OS_FOLDER_ROOT, add_entry, &all));
    EXPECT_EQ(all.entries.size(), 1000u);
    for (size_t limit : {1u, 500u, 1000u}) {
        listed_t some;
        some.limit = limit;
        EXPECT_TRUE(os_folder_list(folder.name.c_str(), OS_FOLDER_ROOT, add_entry, &some));
        EXPECT_EQ(some.entries.size(), limit);
    }
}

// Ways to write a path, one of them longer than 260 bytes where the tests can make it.
TEST(os_folder, paths) {
    temp_folder_t folder;
    ASSERT_TRUE(os_create_folder((folder / "a").c_str()));
    write_file(folder / "a\\here", "1");
    std::vector<std::string> names = {"a", "a\\"};
    if (os_path_separator == '/') {
        std::string deep = std::string(60, 'c') + "\\" + std::string(200, 'd');
        std::filesystem::create_directories(folder.path / std::string(60, 'c') / std::string(200, 'd') /
                                            "here");
        names.push_back(deep);
        names.push_back(deep + "\\");
    }
    auto base = static_cast<u32>(folder.name.size());
    for (const std::string &name : names) {
        for (u32 root : {base, base + 1, OS_FOLDER_ROOT}) {
            listed_t listed;
            EXPECT_TRUE(os_folder_list((folder / name).c_str(), root, add_entry, &listed)) << name;
            EXPECT_TRUE(listed.entries.contains("here") && listed.entries.size() == 1) << name;
        }
    }
    const char *top = os_path_separator == '/' ? "\\" : "C:";
    listed_t listed;
    EXPECT_TRUE(os_folder_list(top, 1, add_entry, &listed));
    EXPECT_FALSE(listed.entries.empty());
    os_folder_entry_t entry;
    EXPECT_TRUE(os_folder_get_entry(top, &entry));
    EXPECT_TRUE(entry.is_folder);
}

void list_often_proc(void *param) {
    auto *name = static_cast<std::string *>(param);
    for (u32 i = 0; i < 30; i++) {
        listed_t listed;
        EXPECT_TRUE(os_folder_list(name->c_str(), OS_FOLDER_ROOT, add_entry, &listed));
        EXPECT_EQ(listed.entries.size(), 40u);
    }
}

TEST(os_folder, threads_list_at_once) {
    temp_folder_t folders[4];
    os_thread_t *threads[4];
    for (u32 i = 0; i < 4; i++) {
        for (u32 j = 0; j < 40; j++)
            write_file(folders[i] / (std::to_string(i) + "-" + std::to_string(j)), "");
        threads[i] = os_thread_create(list_often_proc, &folders[i].name);
    }
    for (os_thread_t *thread : threads)
        os_thread_release(thread, OS_INFINITE);
}

} // namespace
