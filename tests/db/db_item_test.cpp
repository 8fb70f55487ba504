// Item records and their orders.
#include "db/db_item.h"

#include "base/utf8.h"
#include "db/db_file.h"
#include "db/db_folder.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace findwright {
namespace {

// A database with one index, into which tests put records by hand.
struct items_t {
    db_t *db = db_create();
    db_index_t *index = nullptr;

    items_t() {
        db_layout_set_flags(&db->layout, DB_FLAG_SIZE);
        index = db_index_alloc(DB_INDEX_TYPE_NTFS);
        _db_index_add(db, index, 0);
    }
    ~items_t() { db_destroy(db); }

    db_folder_t *folder(const db_item_t *parent, const std::string &name) {
        return db_folder_alloc(db, index, parent ? mem_ref(parent) : 0, name.data(),
                               static_cast<u32>(name.size()));
    }
    db_file_t *file(const db_item_t *parent, const std::string &name) {
        return db_file_alloc(db, index, parent ? mem_ref(parent) : 0, name.data(),
                             static_cast<u32>(name.size()));
    }
    // A folder by its whole path, each component made anew.
    db_folder_t *path(const std::string &text) {
        db_folder_t *at = nullptr;
        for (size_t start = 0; start <= text.size();) {
            size_t end = std::min(text.find('\\', start), text.size());
            at = folder(at, text.substr(start, end - start));
            start = end + 1;
        }
        return at;
    }
};

std::string full_path(const db_item_t *item) {
    utf8_buf_t path;
    utf8_buf_init(&path);
    db_item_get_full_path_name(&path, item);
    std::string result(path.data, static_cast<size_t>(path.length));
    utf8_buf_kill(&path);
    return result;
}

int sign(int value) {
    return value < 0 ? -1 : value > 0;
}

TEST(DbItem, NamesOfEveryLengthReadBack) {
    items_t items;
    db_folder_t *root = items.folder(nullptr, "C:");
    for (u32 length : {0u, 1u, 254u, 255u, 256u, 1000u, 70000u}) {
        std::string name(length, 'n');
        for (db_item_t *item : {static_cast<db_item_t *>(items.file(root, name)),
                                static_cast<db_item_t *>(items.file(nullptr, name)),
                                static_cast<db_item_t *>(items.folder(root, name))}) {
            u32 read_length;
            const char *read = db_item_get_name(item, &read_length);
            EXPECT_EQ(name, std::string(read, read_length));
            EXPECT_EQ(length < 255 ? length : 255, item->name_length);
            EXPECT_EQ(items.index, db_get_index(item));
        }
    }
}

TEST(DbItem, FreedRecordsAreReusedWhole) {
    items_t items;
    db_folder_t *root = items.folder(nullptr, "C:");
    size_t used = db_mem_used(&items.db->mem);
    for (u32 length : {3u, 250u, 255u, 400u}) {
        std::string name(length, 'n');
        for (const db_item_t *parent :
             {static_cast<const db_item_t *>(root), static_cast<const db_item_t *>(nullptr)}) {
            db_file_free(items.db, items.file(parent, name));
            db_folder_free(items.db, items.folder(parent, name));
            EXPECT_EQ(used, db_mem_used(&items.db->mem)) << length;
        }
    }
}

TEST(DbItem, PathsCompareAsIfWrittenOut) {
    // In the order of the folded paths: a blank sorts before `\`, a letter behind it.
    const char *const ordered[] = {
        "C:",     "C:\\a", "C:\\a b",  "C:\\a b\\x", "C:\\a\\c", "C:\\a\\c\\d",
        "C:\\ab", "C:\\b", "C:\\z\\z", "D:",         "D:\\a",
    };
    items_t items;
    std::vector<db_folder_t *> folders;
    for (const char *path : ordered)
        folders.push_back(items.path(path));
    for (size_t i = 0; i < folders.size(); i++) {
        EXPECT_EQ(ordered[i], full_path(folders[i]));
        for (size_t j = 0; j < folders.size(); j++) {
            int expected = i < j ? -1 : i > j;
            EXPECT_EQ(expected, sign(db_folder_compare_path_fold(folders[i], folders[j])))
                << ordered[i] << ordered[j];
            EXPECT_EQ(expected, sign(db_folder_compare_path_bytes(folders[i], folders[j])))
                << ordered[i] << ordered[j];
        }
    }
}

TEST(DbItem, LevelsFromLooseToTight) {
    items_t items;
    db_folder_t *plain = items.path("C:\\resume\\x"), *accent = items.path("C:\\R\xC3\xA9sum\xC3\xA9\\x"),
                *upper = items.path("C:\\RESUME\\x");
    EXPECT_EQ(0, db_folder_compare_path_fold(plain, accent));
    EXPECT_LT(db_folder_compare_path_lower(plain, accent), 0);
    EXPECT_EQ(0, db_folder_compare_path_lower(plain, upper));
    EXPECT_GT(db_folder_compare_path_bytes(plain, upper), 0);
}

TEST(DbItem, NameOrderTakesNameBeforePathAtEachLevel) {
    items_t items;
    db_folder_t *a = items.path("C:\\a"), *b = items.path("C:\\b");
    // Each item sorts before the next one.
    const db_item_t *ordered[] = {
        items.file(b, "aaa"),         items.file(a, "NAME"), // folded names equal: the path decides,
        items.file(a, "name"),                               // then, in one folder, bytes
        items.file(a, "n\xC3\xA3me"),                        // after the accents
        items.file(b, "name"),
    };
    for (size_t i = 0; i < std::size(ordered); i++) {
        for (size_t j = 0; j < std::size(ordered); j++)
            EXPECT_EQ(i < j ? -1 : i > j, sign(db_item_compare_name(ordered[i], ordered[j])))
                << i << " " << j;
    }
    db_item_key_t key = {0, mem_ref(b), "name", 4};
    EXPECT_EQ(0, db_item_compare_key(mem_ref(ordered[4]), &key));
    EXPECT_LT(db_item_compare_key(mem_ref(ordered[3]), &key), 0);
}

TEST(DbItem, ChainsBeyondTheStackTable) {
    items_t items;
    db_folder_t *a = items.folder(nullptr, "C:"), *b = items.folder(nullptr, "C:");
    for (u32 i = 0; i < 1000; i++) {
        a = items.folder(a, "d");
        b = items.folder(b, "d");
    }
    EXPECT_EQ(0, db_folder_compare_path_fold(a, b));
    EXPECT_LT(db_folder_compare_path_fold(items.folder(a, "x"), items.folder(b, "y")), 0);
    EXPECT_LT(db_folder_compare_path_fold(a, items.folder(b, "y")), 0);
    EXPECT_EQ(2u + 2 * 1000, full_path(a).size());
}

TEST(DbItem, Extensions) {
    const struct {
        const char *name, *extension;
    } cases[] = {{".profile", "profile"}, {"archive.", ""}, {"none", ""},
                 {"a.tar.gz", "gz"},      {"", ""},         {".", ""}};
    for (auto c : cases) {
        u32 length;
        const char *text = db_name_get_extension(c.name, static_cast<u32>(std::strlen(c.name)), &length);
        EXPECT_EQ(c.extension, std::string(text, length)) << c.name;
    }
}

TEST(DbItem, AttributesOrderByTheirLetters) {
    EXPECT_EQ(0, db_attributes_compare(0x20, 0x20));
    EXPECT_LT(db_attributes_compare(0, 1), 0);
    EXPECT_LT(db_attributes_compare(0x20, 1), 0);       // A before R, though its bit is higher
    EXPECT_LT(db_attributes_compare(1, 1 | 2), 0);      // R before RH
    EXPECT_EQ(0, db_attributes_compare(0x10000000, 0)); // a bit without a letter
}

TEST(DbItem, UnknownValuesSortFirst) {
    items_t items;
    db_folder_t *root = items.folder(nullptr, "C:");
    const u64 ordered[] = {VALUE_UNKNOWN, 0, 1, VALUE_UNKNOWN - 1};
    std::vector<db_file_t *> files;
    for (u64 size : ordered) {
        files.push_back(items.file(root, "same"));
        db_store_u64(db_item_columns(files.back()), size);
    }
    for (size_t i = 0; i < files.size(); i++) {
        for (size_t j = 0; j < files.size(); j++)
            EXPECT_EQ(i < j ? -1 : i > j, sign(db_file_compare_size(items.db, files[i], files[j])))
                << i << " " << j;
    }
}

TEST(DbItem, WhatLiesBelowFolders) {
    items_t items;
    db_folder_t *a = items.folder(nullptr, "C:"), *b = items.folder(a, "b"), *c = items.folder(b, "c"),
                *other = items.folder(a, "other");
    const mem_ref_t folders[] = {std::min(mem_ref(b), mem_ref(other)), std::max(mem_ref(b), mem_ref(other))};
    EXPECT_TRUE(db_item_is_below(items.file(c, "x"), folders, 2));
    EXPECT_TRUE(db_item_is_below(c, folders, 2));
    EXPECT_FALSE(db_item_is_below(b, folders, 2));
    EXPECT_FALSE(db_item_is_below(items.file(a, "x"), folders, 2));
    EXPECT_FALSE(db_item_is_below(items.file(nullptr, "x"), folders, 2));
}

TEST(DbIndex, WideNumbersAreFoundPerIndex) {
    items_t items;
    db_index_t *indexes[2];
    for (db_index_t *&index : indexes)
        _db_index_add(items.db, index = db_index_alloc(DB_INDEX_TYPE_REFS), 0);
    const db_frn128_t numbers[] = {{5, 0}, {1, 1}, {2, 1}, {0, ~u64(0)}}; // in their order
    std::vector<u32> refs;
    for (db_frn128_t number : numbers) {
        for (db_index_t *index : indexes)
            refs.push_back(mem_ref(db_folder_alloc_refs(items.db, index, number, 0, "f", 1)));
    }
    for (size_t i = 1; i < refs.size(); i++)
        EXPECT_LT(db_folder_compare_frn128(items.db, db_item(refs[i - 1]), db_item(refs[i])), 0) << i;
    array_set_from_memory(&items.db->folder_frn128_array, refs.data(), static_cast<u32>(refs.size()));
    for (size_t i = 0; i < refs.size(); i++)
        EXPECT_EQ(refs[i], mem_ref(db_folder_find_by_frn128(items.db, indexes[i % 2], numbers[i / 2]))) << i;
    EXPECT_FALSE(db_folder_find_by_frn128(items.db, indexes[0], {5, 1}));
}

TEST(DbIndex, SourcesAreFoundByAllThatTheyAre) {
    items_t items;
    auto add_volume = [&](db_index_type_t type, const char *path, u32 out_of_date) {
        db_index_volume_t *volume = static_cast<db_index_volume_t *>(db_index_alloc(type));
        volume->guid = utf8_alloc_copy("guid");
        volume->path = utf8_alloc_copy(path);
        volume->root = utf8_alloc_copy("");
        volume->include_only = utf8_alloc_copy("");
        _db_index_add(items.db, volume, out_of_date);
        return volume;
    };
    db_index_volume_t *old = add_volume(DB_INDEX_TYPE_NTFS, "D:", 1),
                      *fresh = add_volume(DB_INDEX_TYPE_NTFS, "D:", 0),
                      *stale = add_volume(DB_INDEX_TYPE_NTFS, "E:", 1);
    add_volume(DB_INDEX_TYPE_NTFS, "E:", 1);
    db_index_volume_t *refs = add_volume(DB_INDEX_TYPE_REFS, "D:", 0);
    EXPECT_EQ(fresh, db_index_find_ntfs(items.db, "guid", "D:", "", ""));
    EXPECT_NE(old, fresh);
    EXPECT_EQ(stale, db_index_find_ntfs(items.db, "guid", "E:", "", ""));
    EXPECT_EQ(refs, db_index_find_refs(items.db, "guid", "D:", "", ""));
    EXPECT_FALSE(db_index_find_ntfs(items.db, "guid", "D:", "folder", ""));

    db_index_file_list_t *list = static_cast<db_index_file_list_t *>(db_index_alloc(DB_INDEX_TYPE_FILE_LIST));
    list->filename = utf8_alloc_copy("list");
    _db_index_add(items.db, list, 0);
    EXPECT_EQ(list, db_index_find_file_list(items.db, "list", false));
    EXPECT_FALSE(db_index_find_file_list(items.db, "list", true));

    db_index_folder_t *folder = static_cast<db_index_folder_t *>(db_index_alloc(DB_INDEX_TYPE_FOLDER));
    folder->path = utf8_alloc_copy("x:\\y");
    _db_index_add(items.db, folder, 0);
    db_index_folder_t like = *folder;
    EXPECT_EQ(folder, db_index_find_folder(items.db, &like));
    like.update_value++;
    EXPECT_FALSE(db_index_find_folder(items.db, &like));
    EXPECT_EQ(folder, db_index_get(items.db, folder->ordinal));
}

TEST(DbLayout, OffsetsDifferBetweenTheKinds) {
    const struct {
        u32 flags, file_size, folder_size, file_modified, folder_modified;
    } cases[] = {
        {0, 0, 0, 0, 0},
        {DB_FLAG_SIZE | DB_FLAG_DATE_MODIFIED, 16, 8, 8, 0},
        {DB_FLAG_COLUMNS, 36, 36, 16, 16},
        {DB_FLAG_SIZE | DB_FLAG_FOLDER_SIZE | DB_FLAG_ATTRIBUTES, 12, 12, 8, 8},
        {DB_FLAG_DATE_CREATED | DB_FLAG_DATE_MODIFIED, 16, 16, 8, 8},
    };
    for (auto c : cases) {
        db_layout_t layout;
        db_layout_set_flags(&layout, c.flags);
        EXPECT_EQ(c.file_size, layout.file_data_size) << c.flags;
        EXPECT_EQ(c.folder_size, layout.folder_data_size) << c.flags;
        EXPECT_EQ(c.file_modified, layout.file_date_modified_offset) << c.flags;
        EXPECT_EQ(c.folder_modified, layout.folder_date_modified_offset) << c.flags;
    }
    EXPECT_EQ(0u, db_layout_normalize_flags(DB_FLAG_FOLDER_SIZE | DB_FLAG_FAST_SIZE));
    EXPECT_EQ(DB_FLAG_FAST_PATH, db_layout_normalize_flags(DB_FLAG_FAST_PATH | DB_FLAG_FAST_DATE_MODIFIED));
}

} // namespace
} // namespace findwright
