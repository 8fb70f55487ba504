// What a rebuild keeps of the content that is there.
#include "db/db_exclude.h"
#include "db/db_file.h"
#include "db/db_folder.h"
#include "index/db_create.h"
#include "os/os.h"
#include "support/test_db.h"
#include "support/test_orders.h"

#include "os/os_test_support.h"

#include <gtest/gtest.h>

namespace findwright {
namespace {

// Two volumes of one name, a list with twins and top files, a folder. What is read can be taken away.
struct sources_t {
    temp_folder_t folder;
    std::vector<test_volume_t> volumes;
    std::string list, directory;

    sources_t() {
        volumes = {test_volume_from_paths({"a\\x.txt", "a\\b\\y", "z"}),
                   test_volume_from_paths({"a\\x.txt", "q\\"})};
        list = folder / "list.fwl";
        write_file(list, "Filename,Size,Date Modified,Attributes\n"
                         "C:\\a\\twin,1,5,\nC:\\a\\twin,2,4,\nproto://s/t,3,,\nC:\\dir,,7,16\nC:\\dir,,6,16\n"
                         "C:\\dir\\below,9,,\n");
        directory = folder / "files";
        os_create_folder(directory.c_str());
        write_file(directory + "\\one", "1");
        write_file(directory + "\\two", "22");
    }

    void add(db_wanted_t *wanted, const std::string &which) const {
        for (char c : which) {
            if (c == 'v')
                test_add_volumes(wanted, volumes);
            if (c == 'l')
                db_wanted_add_file_list(wanted, list.c_str(), true);
            if (c == 'f')
                db_wanted_add_folder(wanted, directory.c_str());
        }
    }

    // Rebuilds from the sources of these letters; the number that was read.
    u32 rebuild(db_t *db, const std::string &which, u32 flags, const char *excluded = nullptr) const {
        db_wanted_t wanted;
        db_wanted_init(&wanted);
        add(&wanted, which);
        wanted.index_flags = flags;
        if (excluded)
            db_exclude_parse(&wanted.exclude.exclude_files, excluded);
        db_exclude_update_needs(&wanted.exclude);
        db_rebuild_stats_t stats;
        db_rebuild_start(db, &wanted, &stats);
        test_db_wait(db);
        test_check_orders(db);
        return stats.sources_read;
    }
};

// Everything that can be seen of the content, in the order of its arrays.
std::vector<std::string> describe(db_t *db) {
    std::vector<std::string> lines;
    u32 page;
    i32 position;
    for (const array_t *array : {&db->folder_name_array, &db->file_name_array, &db->folder_path_array}) {
        std::vector<std::string> paths = test_array_paths(array);
        for (u32 i = 0; i < array->count; i++) {
            const db_item_t *item = db_item(array_get(array, i, &page, &position));
            bool folder = array != &db->file_name_array;
            u64 size = folder ? db_folder_get_size(db, item) : db_file_get_size(db, item);
            u64 date = folder ? db_folder_get_date_modified(db, item) : db_file_get_date_modified(db, item);
            u32 attributes = folder ? db_folder_get_attributes(db, item) : db_file_get_attributes(db, item);
            lines.push_back(paths[i] + " " + std::to_string(size) + " " + std::to_string(date) + " " +
                            std::to_string(attributes) + " " + std::to_string(db_get_index(item)->ordinal));
        }
    }
    for (u32 i = 0; i < db->folder_frn_array.count; i++)
        lines.push_back(std::to_string(
            db_folder_get_frn(db, db_item(array_get(&db->folder_frn_array, i, &page, &position)))));
    return lines;
}

TEST(DbCreateReuse, FreshSourcesAreNotReadAndGiveTheSame) {
    sources_t sources;
    db_t *db = db_create();
    EXPECT_EQ(4u, sources.rebuild(db, "vlf", TEST_FLAGS_ALL));
    std::vector<std::string> first = describe(db);
    EXPECT_GT(first.size(), 20u);
    for (u32 round = 0; round < 3; round++) {
        EXPECT_EQ(0u, sources.rebuild(db, "vlf", TEST_FLAGS_ALL));
        EXPECT_EQ(first, describe(db)) << round;
    }
    // Sorted arrays that go and come again, and columns that go: nothing is read for them.
    EXPECT_EQ(0u, sources.rebuild(db, "vlf", DB_FLAG_SIZE | DB_FLAG_DATE_MODIFIED | DB_FLAG_ATTRIBUTES));
    EXPECT_EQ(0u, sources.rebuild(db, "vlf",
                                  DB_FLAG_SIZE | DB_FLAG_DATE_MODIFIED | DB_FLAG_ATTRIBUTES |
                                      DB_FLAG_FOLDER_SIZE | DB_FLAG_FAST_PATH));
    EXPECT_EQ(first, describe(db));
    // A column that the content does not have is unknown, where nobody marks the sources out of date.
    EXPECT_EQ(0u, sources.rebuild(db, "vlf", 0));
    EXPECT_EQ(0u, sources.rebuild(db, "vlf", DB_FLAG_SIZE | DB_FLAG_ATTRIBUTES));
    u32 page;
    i32 position;
    for (u32 i = 0; i < db->file_name_array.count; i++) {
        const db_item_t *file = db_item(array_get(&db->file_name_array, i, &page, &position));
        EXPECT_EQ(VALUE_UNKNOWN, db_file_get_size(db, file));
        EXPECT_EQ(0u, db_file_get_attributes(db, file));
    }
    db_destroy(db);
}

TEST(DbCreateReuse, OnlyWhatIsNewOrOutOfDateIsRead) {
    const struct {
        const char *before, *after;
        u32 out_of_date; // bits of ordinals
        u32 read;
    } cases[] = {
        {"v", "vl", 0, 1},    {"vlf", "vf", 0, 0},  {"vlf", "l", 0, 0},     {"vlf", "fvl", 0, 0},
        {"vlf", "vlf", 4, 1}, {"vlf", "vlf", 9, 2}, {"vlf", "vlf", 0xF, 4}, {"l", "lll", 0, 0},
        {"vlf", "", 0, 0},    {"", "vlf", 0, 4},    {"lf", "lffl", 1, 2},
    };
    sources_t sources;
    for (const auto &test : cases) {
        db_t *db = db_create(), *fresh = db_create();
        sources.rebuild(db, test.before, TEST_FLAGS_ALL);
        for (db_index_t *index = db->index_first; index; index = index->next)
            index->out_of_date = test.out_of_date >> index->ordinal & 1;
        EXPECT_EQ(test.read, sources.rebuild(db, test.after, TEST_FLAGS_ALL)) << test.before << test.after;
        sources.rebuild(fresh, test.after, TEST_FLAGS_ALL);
        EXPECT_EQ(describe(fresh), describe(db)) << test.before << " " << test.after;
        for (db_index_t *index = db->index_first; index; index = index->next)
            EXPECT_EQ(0u, index->out_of_date);
        db_destroy(fresh);
        db_destroy(db);
    }
}

TEST(DbCreateReuse, SourcesThatAreGoneKeepTheirItems) {
    sources_t sources;
    db_t *db = db_create();
    sources.rebuild(db, "lf", TEST_FLAGS_ALL);
    std::vector<std::string> first = describe(db);
    u64 date = static_cast<db_index_file_list_t *>(db->index_first)->date_modified;
    os_delete_file(sources.list.c_str());
    for (const char *name : {"one", "two"})
        os_delete_file((sources.directory + "\\" + name).c_str());
    os_delete_folder(sources.directory.c_str());
    for (db_index_t *index = db->index_first; index; index = index->next)
        index->out_of_date = 1;
    EXPECT_EQ(0u, sources.rebuild(db, "lf", TEST_FLAGS_ALL));
    EXPECT_EQ(first, describe(db));
    EXPECT_EQ(date, static_cast<db_index_file_list_t *>(db->index_first)->date_modified);
    for (db_index_t *index = db->index_first; index; index = index->next)
        EXPECT_EQ(1u, index->out_of_date); // to be read when they are back
    db_destroy(db);
}

TEST(DbCreateReuse, NewExclusionsDropWhatIsKept) {
    sources_t sources;
    db_t *db = db_create();
    sources.rebuild(db, "vlf", TEST_FLAGS_ALL);
    EXPECT_EQ(0u, sources.rebuild(db, "vlf", TEST_FLAGS_ALL, "*.txt;twin"));
    for (const std::string &path : test_array_paths(&db->file_name_array)) {
        EXPECT_EQ(std::string::npos, path.find(".txt"));
        EXPECT_EQ(std::string::npos, path.find("twin"));
    }
    EXPECT_GT(db->file_name_array.count, 3u);
    db_destroy(db);
}

} // namespace
} // namespace findwright
