// The rebuild: what it keeps, and that every array stands in the order that the comparisons define.
#include "db/db_folder.h"
#include "os/event.h"
#include "support/test_db.h"
#include "support/test_orders.h"

#include <gtest/gtest.h>

#include <atomic>
#include <random>
#include <set>

namespace findwright {
namespace {

// Names that tie at one level or another, begin one another, or hold what folds to nothing special.
std::u16string nasty_name(std::mt19937 &random) {
    static const std::u16string parts[] = {u"a",        u"A",
                                           u"\u00E1",   u" ",
                                           u"b",        u"B",
                                           u"[",        u"~",
                                           u".",        u"abcdefgh",
                                           u"ABCDEFGH", u"\u0416",
                                           u"\u4E2D",   u"\xD83D\xDE00",
                                           u"\xD800",   u"\x01",
                                           u"\x7F",     u"\\",
                                           u"\u00DF",   u"longer than one piece of a key",
                                           u"."};
    std::u16string name;
    for (u32 i = 0, n = 1 + random() % 4; i < n; i++)
        name += parts[random() % std::size(parts)];
    if (random() % 50 == 0)
        name += std::u16string(255 - name.size(), u'\u4E2D'); // 765 bytes
    return name.substr(0, 255);
}

test_volume_t nasty_volume(u32 seed, u32 folders, u32 files) {
    std::mt19937 random(seed);
    test_volume_t volume;
    std::vector<u64> numbers = {NTFS_FRN_ROOT};
    for (u32 i = 0; i < folders + files; i++) {
        u64 parent = numbers[random() % 3 == 0 ? numbers.size() - 1 : random() % numbers.size()];
        u64 frn = (100 + i) | static_cast<u64>(1 + random() % 3) << 48;
        u64 values[] = {0, 1, 5, 1000, VALUE_UNKNOWN, u64(1) << 40, random()};
        volume.records.push_back({frn, parent, nasty_name(random), i < folders,
                                  values[random() % std::size(values)], values[random() % std::size(values)],
                                  static_cast<u32>(random() & 0x7FE7)});
        if (i < folders)
            numbers.push_back(frn);
    }
    std::shuffle(volume.records.begin(), volume.records.end(), random);
    return volume;
}

TEST(DbCreate, EveryOrderIsThatOfItsComparison) {
    for (u32 seed = 1; seed <= 20; seed++) {
        SCOPED_TRACE(seed);
        db_t *db = test_db_create({nasty_volume(seed, 60, 300)}, TEST_FLAGS_ALL);
        EXPECT_EQ(61u, db->folder_name_array.count);
        EXPECT_EQ(300u, db->file_name_array.count);
        test_check_orders(db);
        db_destroy(db);
    }
}

TEST(DbCreate, OrdersOfManyItemsOnSeveralThreads) {
    db_t *db = test_db_create({nasty_volume(77, 3000, 150000)}, TEST_FLAGS_ALL);
    test_check_orders(db);
    db_destroy(db);
}

TEST(DbCreate, TwoVolumesOfOneNameKeepTheirItemsApart) {
    test_volume_t volume = test_volume_from_paths({"a\\x", "a\\y", "b", "a b\\c"});
    db_t *db = test_db_create({volume, volume}, TEST_FLAGS_ALL);
    test_check_orders(db);
    std::vector<std::string> paths = test_array_paths(&db->file_path_array);
    EXPECT_EQ((std::vector<std::string>{"C:\\b", "C:\\b", "C:\\a\\x", "C:\\a\\x", "C:\\a\\y", "C:\\a\\y",
                                        "C:\\a b\\c", "C:\\a b\\c"}),
              paths);
    db_index_t *second = db_index_get(db, 1);
    u64 frn = volume.records[0].frn;
    db_folder_t *folder = db_folder_find_by_frn(db, second, frn);
    ASSERT_TRUE(folder);
    EXPECT_EQ(second, db_get_index(folder));
    EXPECT_FALSE(db_folder_find_by_frn(db, second, frn | u64(1) << 48));
    db_destroy(db);
}

TEST(DbCreate, RootsWithSeveralComponentsStandAmongTheFolders) {
    test_volume_t whole = test_volume_from_paths({"a\\x", "a\\b\\y", "a b\\c", "A\\z", "ab\\c"});
    test_volume_t inner = test_volume_from_paths({"b\\x", "w", "b c\\d"}), deep = inner, share = inner;
    inner.path = "C:\\a";
    deep.path = "c:\\A\\b";
    share.path = "\\\\server\\share";
    db_t *db = test_db_create({whole, inner, deep, share, inner}, TEST_FLAGS_ALL);
    EXPECT_EQ(5u + 4 * 2 + 5, db->folder_name_array.count); // those below the roots, and the roots
    test_check_orders(db);
    db_destroy(db);
}

TEST(DbCreate, WhatHasNoWayToARootIsDropped) {
    test_volume_t volume = test_volume_from_paths({"kept\\file"});
    auto add = [&](u64 frn, u64 parent, const char16_t *name, bool is_folder) {
        volume.records.push_back({frn, parent, name, is_folder});
    };
    u64 kept = volume.records[0].frn;
    add(500, 501, u"circle 1", true);
    add(501, 502, u"circle 2", true);
    add(502, 500, u"circle 3", true);
    add(503, 503, u"own parent", true);
    add(504, 999, u"no parent", true);
    add(505, 504, u"below no parent", true);
    add(506, kept | u64(7) << 48, u"other sequence number", true);
    add(507, 0, u"parent zero", true);
    for (u64 parent = 500; parent <= 507; parent++)
        add(600 + parent, parent, u"file", false);
    add(700, 0, u"file of parent zero", false);
    db_rebuild_stats_t stats;
    db_t *db = test_db_create({volume}, TEST_FLAGS_ALL, nullptr, &stats);
    EXPECT_EQ((std::vector<std::string>{"C:", "C:\\kept"}), test_array_paths(&db->folder_name_array));
    EXPECT_EQ((std::vector<std::string>{"C:\\kept\\file"}), test_array_paths(&db->file_name_array));
    EXPECT_EQ(7u + 8u, stats.orphan_count);
    db_destroy(db);
}

TEST(DbCreate, WithoutARootThereIsNothing) {
    test_volume_t volume = test_volume_from_paths({"a\\b", "c"});
    volume.has_root = false;
    db_t *db = test_db_create({volume}, TEST_FLAGS_ALL);
    EXPECT_EQ(0u, db->folder_name_array.count + db->file_name_array.count);
    test_check_orders(db);
    db_destroy(db);
}

TEST(DbCreate, HiddenFoldersTakeWhatIsBelowAlong) {
    test_volume_t volume = test_volume_from_paths({"shown\\a", "hidden\\b", "c"});
    for (test_record_t &record : volume.records) {
        if (record.name == u"hidden" || record.name == u"c")
            record.attributes |= 2;
    }
    db_exclude_set_t exclude;
    db_exclude_init(&exclude);
    exclude.exclude_hidden = true;
    db_t *db = test_db_create({volume}, TEST_FLAGS_ALL, &exclude);
    EXPECT_EQ((std::vector<std::string>{"C:\\shown\\a"}), test_array_paths(&db->file_name_array));
    EXPECT_TRUE(db->exclude.exclude_hidden);
    db_destroy(db);
}

TEST(DbCreate, ExclusionsTakeWhatIsBelowAlong) {
    test_volume_t volume =
        test_volume_from_paths({"keep\\a.txt", "keep\\b.tmp", "temp\\c.txt", "temp\\deep\\d.txt",
                                "Cache\\e.txt", "keep\\cache\\f.txt", "g.log"});
    volume.records.push_back({800, 801, u"circle", true});
    volume.records.push_back({801, 800, u"circle", true});
    const struct {
        const char *folder, *include_only, *files;
        std::vector<std::string> expected;
    } cases[] = {
        {"C:\\Temp",
         "",
         "",
         {"C:\\g.log", "C:\\Cache\\e.txt", "C:\\keep\\a.txt", "C:\\keep\\b.tmp", "C:\\keep\\cache\\f.txt"}},
        {"cache", "", "*.tmp", {"C:\\g.log", "C:\\keep\\a.txt", "C:\\temp\\c.txt", "C:\\temp\\deep\\d.txt"}},
        {"", "*.tmp;*.log", "", {"C:\\g.log", "C:\\keep\\b.tmp"}},
        {"", "*.txt", "C:\\temp\\*", {"C:\\Cache\\e.txt", "C:\\keep\\a.txt", "C:\\keep\\cache\\f.txt"}},
        {"*", "", "", {}},
    };
    for (auto c : cases) {
        db_exclude_set_t exclude;
        db_exclude_init(&exclude);
        db_exclude_parse(&exclude.exclude_folders, c.folder);
        db_exclude_parse(&exclude.include_only_files, c.include_only);
        db_exclude_parse(&exclude.exclude_files, c.files);
        db_exclude_update_needs(&exclude);
        db_t *db = test_db_create({volume}, TEST_FLAGS_ALL, &exclude);
        EXPECT_EQ(c.expected, test_array_paths(&db->file_path_array))
            << c.folder << "|" << c.include_only << "|" << c.files;
        EXPECT_FALSE(db_exclude_differs(&exclude, &db->exclude));
        test_check_orders(db);
        db_destroy(db);
        db_exclude_kill(&exclude);
    }
}

// A volume that never ends: it is read until it is told to stop.
void read_for_ever(void *param, void *user_data, ntfs_record_proc_t *sink, ntfs_progress_proc_t *progress) {
    const u8 name[] = {'a', 0};
    ntfs_record_t record = {NTFS_FRN_ROOT, NTFS_FRN_ROOT, 0, 0, 0, 0, 0x10, 1, name};
    sink(user_data, &record);
    record.attributes = 0;
    record.frn = 100;
    for (u64 done = 1; progress(user_data, done, ~u64(0)); done++) {
        sink(user_data, &record);
        *static_cast<std::atomic<bool> *>(param) = true;
    }
}

void start_endless(db_t *db, std::atomic<bool> *reading) {
    db_wanted_t wanted;
    db_wanted_init(&wanted);
    db_source_t *source = db_wanted_add_volume(&wanted, "endless", "C:", "", "");
    source->read = read_for_ever;
    source->read_param = reading;
    db_rebuild_start(db, &wanted, nullptr);
}

TEST(DbCreate, ACancelledRebuildIsEmptyAndCanBeMadeAgain) {
    std::atomic<bool> reading = false;
    db_t *db = db_create();
    u32 rebuilt = 0;
    db_query_t *query = db_query_create(
        db, false, [](void *count, u32 code) { *static_cast<u32 *>(count) += code == DB_QUERY_REBUILT; },
        &rebuilt);
    start_endless(db, &reading);
    while (!reading)
        event_wait_and_dispatch(1);
    db_rebuild_cancel(db);
    test_db_wait(db);
    EXPECT_EQ(0u, db->file_name_array.count + db->index_count);
    EXPECT_EQ(1u, rebuilt);
    EXPECT_FALSE(db->local);

    reading = false;
    start_endless(db, &reading); // over the content that is there, which is not good enough to be kept
    while (!reading)
        event_wait_and_dispatch(1);
    EXPECT_EQ(0u, db_get_result_count(query));
    db_rebuild_cancel(db);
    test_db_wait(db);
    EXPECT_EQ(2u, rebuilt);
    db_destroy_query(query);
    db_destroy(db);
}

TEST(DbCreate, FolderSizesAreTheSumsBelow) {
    test_volume_t volume = test_volume_from_paths({"a\\b\\x", "a\\y", "z", "e\\"});
    for (test_record_t &record : volume.records)
        record.size = record.name == u"x"   ? 10
                      : record.name == u"y" ? 100
                      : record.name == u"z" ? VALUE_UNKNOWN
                                            : 5000;
    db_t *db = test_db_create({volume}, TEST_FLAGS_ALL);
    std::vector<u64> sizes;
    u32 page;
    i32 position;
    for (u32 i = 0; i < db->folder_path_array.count; i++)
        sizes.push_back(
            db_folder_get_size(db, db_item(array_get(&db->folder_path_array, i, &page, &position))));
    EXPECT_EQ((std::vector<u64>{110, 110, 10, 0}), sizes); // C:, a, a\b, e
    db_destroy(db);
}

TEST(DbCreate, ABackslashInANameIsNoSeparator) {
    test_volume_t volume;
    volume.records.push_back({40, NTFS_FRN_ROOT, u"a\\b", false});
    db_t *db = test_db_create({volume}, 0);
    EXPECT_EQ((std::vector<std::string>{"C:\\a\xEF\x81\x9C"
                                        "b"}),
              test_array_paths(&db->file_name_array));
    db_destroy(db);
}

TEST(DbCreate, AChainOfTenThousandFolders) {
    test_volume_t volume;
    u64 parent = NTFS_FRN_ROOT;
    for (u64 i = 0; i < 10000; i++) {
        volume.records.push_back({100 + i, parent, u"d", true});
        parent = 100 + i;
    }
    volume.records.push_back({99, parent, u"file", false});
    db_t *db = test_db_create({volume}, DB_FLAG_FAST_PATH);
    EXPECT_EQ(10001u, db->folder_path_array.count);
    EXPECT_EQ(2u + 20000 + 5, test_array_paths(&db->file_name_array)[0].size());
    db_destroy(db);
}

TEST(DbCreate, ManyEqualNamesDeepDown) {
    test_volume_t volume;
    u64 parent = NTFS_FRN_ROOT;
    for (u64 i = 0; i < 1000; i++) {
        volume.records.push_back({100 + i, parent, u"d", true});
        parent = 100 + i;
    }
    for (u64 i = 0; i < 40000; i++) // what no file system has, but a damaged one may tell
        volume.records.push_back({2000 + i, parent, u"same", i % 2 == 0});
    db_t *db = test_db_create({volume}, DB_FLAG_FAST_PATH);
    EXPECT_EQ(1001u + 20000, db->folder_path_array.count);
    EXPECT_EQ(20000u, db->file_path_array.count);
    u32 page;
    i32 position;
    for (u32 i = 1; i < 20000; i++)
        ASSERT_LT(array_get(&db->file_name_array, i - 1, &page, &position),
                  array_get(&db->file_name_array, i, &page, &position));
    db_destroy(db);
}

} // namespace
} // namespace findwright
