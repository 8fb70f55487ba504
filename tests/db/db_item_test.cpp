// Item records and their orders.
#include "db/db_item.h"

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
        index = db_index_alloc(DB_INDEX_TYPE_NTFS, sizeof(db_index_volume_t));
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
