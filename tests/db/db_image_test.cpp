// The database file: what is written is read back, and bytes that are no image give no database.
#include "db/db_image.h"

#include "base/utf8.h"
#include "support/memory_file.h"
#include "support/test_db.h"

#include <gtest/gtest.h>

#include <random>

namespace findwright {
namespace {

std::string write_image(db_t *db, bool plain) {
    memory_file_scope_t files;
    bz2_stream_t *stream = plain ? bz2_write_open_plain("db") : bz2_write_open("db");
    db_image_write(db, stream);
    EXPECT_TRUE(bz2_write_close(stream));
    return memory_file.bytes;
}

// A database from an image, or 0.
db_t *read_image(const std::string &bytes, bool plain) {
    memory_file_scope_t files;
    memory_file.bytes = bytes;
    db_t *db = db_create();
    bz2_stream_t *stream = plain ? bz2_read_open_plain("db") : bz2_read_open("db");
    bool read = db_image_read(db, stream);
    bool closed = bz2_read_close(stream);
    if (read && closed) {
        db->loaded = 1;
        return db;
    }
    if (!read) {
        EXPECT_EQ(0u, db->folder_name_array.count + db->file_name_array.count + db->index_count);
        EXPECT_EQ(0u, db_mem_used(&db->mem));
    }
    db_destroy(db);
    return nullptr;
}

test_volume_t sample_volume() {
    test_volume_t volume = test_volume_from_paths({
        "a\\x",
        "a\\y",
        "a b\\c",
        "abc",
        "abcd",
        "abc\xC3\xA9",
        "same\\name",
        "other\\name",
        "empty\\",
        std::string(255, 'n') + "",
        std::string(250, 'n') + "m",
        "Abc",
    });
    volume.records.push_back(
        {900, NTFS_FRN_ROOT, std::u16string(255, u'\u4E2D'), false, VALUE_UNKNOWN, 5, 0});
    return volume;
}

void expect_equal(db_t *db, db_t *other) {
    EXPECT_EQ(db->layout.flags, other->layout.flags);
    const array_t db_t::*const arrays[] = {&db_t::folder_name_array, &db_t::file_name_array,
                                           &db_t::folder_frn_array};
    for (auto array : arrays)
        EXPECT_EQ(test_array_paths(&(db->*array)), test_array_paths(&(other->*array)));
    for (auto table : db_image_folder_tables)
        EXPECT_EQ(test_array_paths(&(db->*table.array)), test_array_paths(&(other->*table.array)));
    for (auto table : db_image_file_tables)
        EXPECT_EQ(test_array_paths(&(db->*table.array)), test_array_paths(&(other->*table.array)));
}

TEST(DbImage, IsReadBackAsItWasWritten) {
    for (u32 flags : {0u, DB_FLAG_SIZE | DB_FLAG_FAST_PATH, TEST_FLAGS_ALL}) {
        for (bool plain : {true, false}) {
            db_t *db = test_db_create({sample_volume(), sample_volume()}, flags);
            db->exclude.exclude_system = true;
            db_exclude_add(&db->exclude.exclude_files, "*.tmp");
            db_exclude_add(&db->exclude.exclude_folders, "C:\\Temp");
            std::string bytes = write_image(db, plain);
            EXPECT_EQ(bytes, write_image(db, plain)); // writing left the records as they were
            db_t *read = read_image(bytes, plain);
            ASSERT_TRUE(read);
            expect_equal(db, read);
            EXPECT_FALSE(db_exclude_differs(&db->exclude, &read->exclude));
            EXPECT_EQ(db->exclude.exclude_system, read->exclude.exclude_system);
            EXPECT_EQ(bytes, write_image(read, plain)); // columns and numbers included
            EXPECT_FALSE(read_image(bytes, !plain));
            db_destroy(read);
            db_destroy(db);
        }
    }
}

TEST(DbImage, OfNothing) {
    db_t *db = test_db_create({}, TEST_FLAGS_ALL);
    std::string bytes = write_image(db, true);
    EXPECT_EQ("FWDb", bytes.substr(0, 4));
    db_t *read = read_image(bytes, true);
    ASSERT_TRUE(read);
    EXPECT_FALSE(read_image(bytes + '\0', true)); // bytes behind the end
    db_destroy(read);
    db_destroy(db);
}

TEST(DbImage, TablesThatNameAnItemTwiceAndCirclesOfParentsFail) {
    db_t *db = test_db_create({test_volume_from_paths({"a\\b\\x", "y", "z"})}, TEST_FLAGS_ALL);
    const std::string bytes = write_image(db, true);
    const u32 folders = db->folder_name_array.count;
    db_destroy(db);

    std::string twice = bytes; // the last table ends the file: its last entry becomes the one before
    twice.replace(twice.size() - 4, 4, twice, twice.size() - 8, 4);
    EXPECT_FALSE(read_image(twice, true));

    // In name order the folders are a, b, C:, with the parents C: (2), a (0) and none (3).
    const std::string parents("\2\0\0\0\0\0\0\0\3\0\0\0", 12);
    const size_t at = bytes.find(parents);
    ASSERT_EQ(3u, folders);
    ASSERT_NE(std::string::npos, at);
    std::string circle = bytes;
    circle[at] = 1; // a below b, which is below a
    EXPECT_FALSE(read_image(circle, true));
    circle[at] = 0; // a below itself
    EXPECT_FALSE(read_image(circle, true));
}

// Uses a database that was loaded from damaged bytes as its owner would.
void use(db_t *db) {
    db_query_t *query = db_query_create(db, false, nullptr, nullptr);
    for (u32 sort : {DB_SORT_NAME_ASCENDING + 0u, DB_SORT_PATH_ASCENDING + 1u, DB_SORT_SIZE_ASCENDING + 1u,
                     DB_SORT_EXTENSION_ASCENDING + 0u}) {
        db_query_params_t params = {};
        params.search = "path:a";
        params.filter_search = "";
        params.sort = sort;
        db_query_search(query, &params);
        test_result_paths(query);
    }
    db_destroy_query(query);
    write_image(db, true);
}

TEST(DbImage, EveryCutAndEveryChangedByteLoadsOrFailsCleanly) {
    db_t *db =
        test_db_create({test_volume_from_paths({"a\\b\\x", "a\\y.txt", "ab", "abc", "d\\"})}, TEST_FLAGS_ALL);
    std::string bytes = write_image(db, true);
    db_destroy(db);
    for (size_t size = 0; size < bytes.size(); size++)
        ASSERT_FALSE(read_image(bytes.substr(0, size), true)) << size;
    u32 loaded = 0;
    for (size_t at = 0; at < bytes.size(); at++) {
        for (u32 change : {1u, 2u, 0x80u, 0xFFu}) {
            std::string damaged = bytes;
            damaged[at] = static_cast<char>(damaged[at] ^ change);
            if (db_t *read = read_image(damaged, true)) {
                use(read);
                db_destroy(read);
                loaded++;
            }
        }
    }
    EXPECT_GT(loaded, 0u); // a name or a date may be another
    std::mt19937 random(3);
    for (u32 round = 0; round < 3000; round++) {
        std::string damaged = bytes;
        for (u32 i = 0; i < 3; i++)
            damaged[random() % damaged.size()] = static_cast<char>(random() & 0xFF);
        if (db_t *read = read_image(damaged, true)) {
            use(read);
            db_destroy(read);
        }
    }
}

} // namespace
} // namespace findwright
