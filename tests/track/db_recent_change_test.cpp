// The table of recent changes against a plain model of it.
#include "track/db_recent_change.h"

#include "db/db_image.h"
#include "db/db_item_set.h"
#include "os/event.h"
#include "os/os_test_support.h"
#include "support/test_db.h"
#include "track/db_run_history.h"

#include <map>
#include <random>

using namespace findwright;

namespace {

struct changes_t {
    db_t *db = test_db_create({test_volume_from_paths({"a", "b", "c", "d\\", "d\\e", "f", "g", "h"})}, 0);
    std::map<mem_ref_t, u64> model;

    ~changes_t() { db_destroy(db); }
    const db_item_t *item(u32 index) {
        u32 page;
        i32 position;
        return db_item(array_get(&db->file_name_array, index, &page, &position));
    }
    void check() {
        u32 page = 0;
        i32 position = -1;
        ASSERT_EQ(db->recent_changes_by_date.count, model.size());
        ASSERT_EQ(db->recent_changes_by_item.count, model.size());
        for (auto [item, date] : model) { // in the order of the references
            const auto *change =
                mem_ptr<const db_recent_change_t>(array_next(&db->recent_changes_by_item, &page, &position));
            EXPECT_EQ(change->item, item);
            EXPECT_EQ(change->date, date);
            EXPECT_EQ(db_recent_change_find(db, db_item(item)), change);
        }
        const db_recent_change_t *before = nullptr;
        page = 0;
        position = -1;
        while (u32 value = array_next(&db->recent_changes_by_date, &page, &position)) {
            const auto *change = mem_ptr<const db_recent_change_t>(value);
            if (before) {
                EXPECT_TRUE(before->date > change->date ||
                            (before->date == change->date && before->item < change->item));
            }
            before = change;
        }
    }
};

TEST(DbRecentChange, KeepsOneRecordOfTheLastChange) {
    changes_t test;
    size_t used = db_mem_used(&test.db->mem);
    std::mt19937 engine(1);
    auto random = [&] { return static_cast<u32>(engine()); };
    for (int i = 0; i < 2000; i++) {
        const db_item_t *item = test.item(random() % test.db->file_name_array.count);
        if (random() % 3 == 0) {
            db_recent_change_remove(test.db, item);
            test.model.erase(mem_ref(item));
            EXPECT_EQ(db_recent_change_find(test.db, item), nullptr);
        } else {
            u64 date = random() % 4 ? random() % 3 : VALUE_UNKNOWN - random() % 2;
            db_recent_change_set(test.db, false, item, date);
            test.model[mem_ref(item)] = date;
        }
        if (i % 10 == 0)
            test.check();
    }
    EXPECT_GT(db_mem_used(&test.db->mem), used);
    db_recent_change_clear(test.db);
    EXPECT_EQ(db_mem_used(&test.db->mem), used);
    EXPECT_EQ(test.db->recent_changes_by_date.count + test.db->recent_changes_by_item.count, 0u);
}

TEST(DbRecentChange, RecordsOfManyItemsGoAtOnce) {
    for (u32 every : {1u, 2u, 100u}) {
        changes_t test;
        size_t used = db_mem_used(&test.db->mem);
        db_item_set_t *files = db_item_set_create(&test.db->file_name_array);
        db_item_set_t *folders = db_item_set_create(&test.db->folder_name_array);
        for (u32 i = 0; i < test.db->file_name_array.count; i++) {
            mem_ref_t item = mem_ref(test.item(i));
            db_recent_change_set(test.db, false, test.item(i), i % 3);
            if (i % every == every - 1)
                db_item_set_add(files, item);
            else
                test.model[item] = i % 3;
        }
        db_recent_change_remove_many(test.db, folders, files);
        test.check();
        EXPECT_EQ(db_mem_used(&test.db->mem), used + test.model.size() * sizeof(db_recent_change_t));
        db_item_set_free(folders);
        db_item_set_free(files);
    }
}

struct listener_t : db_query_link_t {
    db_t *db;
    u32 left, entered;
};

// What the setting takes away, the queries are told of item by item.
TEST(DbRecentChange, FollowsTheSetting) {
    static const db_query_hooks_t hooks = {};
    static const db_live_hooks_t live = {
        [](db_query_link_t *query, const db_item_t *item, bool is_folder, u32 changes) {
            auto *listener = static_cast<listener_t *>(query);
            EXPECT_TRUE(db_recent_change_find(listener->db, item));
            listener->left += changes == DB_CHANGE_RECENT_CHANGES && !is_folder;
        },
        [](db_query_link_t *query, const db_item_t *, const db_item_t *item, bool, u32) {
            auto *listener = static_cast<listener_t *>(query);
            EXPECT_FALSE(db_recent_change_find(listener->db, item));
            listener->entered++;
        },
        nullptr,
        nullptr,
        nullptr,
        nullptr};
    changes_t test;
    listener_t listener = {};
    listener.hooks = &hooks;
    listener.live = &live;
    listener.db = test.db;
    db_add_query(test.db, &listener);
    db_recent_change_start(test.db);
    EXPECT_EQ(test.db->recent_changes, 1u);
    for (u32 i = 0; i < 3; i++)
        db_recent_change_set(test.db, false, test.item(i), i);
    EXPECT_FALSE(_db_recent_change_enabled_changed(test.db));
    EXPECT_EQ(test.db->recent_changes_by_date.count, 3u);
    index_recent_changes = 0;
    EXPECT_TRUE(_db_recent_change_enabled_changed(test.db));
    EXPECT_EQ(test.db->recent_changes, 0u);
    EXPECT_EQ(test.db->recent_changes_by_date.count, 0u);
    EXPECT_EQ(listener.left, 3u);
    EXPECT_EQ(listener.entered, 3u);
    index_recent_changes = 1;
    EXPECT_TRUE(_db_recent_change_enabled_changed(test.db));
    EXPECT_EQ(test.db->recent_changes, 1u);
    db_remove_query(test.db, &listener);
}

TEST(DbRecentChange, ArraysThatDisagreeAreReported) {
    log_capture_t log;
    changes_t test;
    db_recent_change_set(test.db, false, test.item(0), 5);
    db_recent_change_set(test.db, true, test.item(1), 6);
    EXPECT_EQ(db_recent_change_find(test.db, test.item(1))->is_folder, 1);
    static int reports;
    reports = 0;
    db_keeper_t keeper = {};
    keeper.corrupt = [](db_t *) { reports++; };
    keeper.stop = [](db_t *) {};
    test.db->keeper = &keeper;
    array_remove_at(&test.db->recent_changes_by_date, 0, 0); // the newest: that of the second item
    log.take();
    EXPECT_NE(db_recent_change_find(test.db, test.item(0)), nullptr);
    event_dispatch();
    EXPECT_EQ(reports, 0);
    EXPECT_EQ(db_recent_change_find(test.db, test.item(1)), nullptr);
    event_dispatch();
    db_recent_change_set(test.db, false, test.item(1), 7);
    event_dispatch();
    db_recent_change_remove(test.db, test.item(1));
    event_dispatch();
    EXPECT_EQ(reports, 3);
    EXPECT_NE(log.take().find("corrupt recent change array\n"), std::string::npos);
    test.db->keeper = nullptr;
}

// The side tables are part of the content's memory and go with it, but are not saved with it.
TEST(DbRecentChange, SideTablesGoWithTheContent) {
    changes_t test;
    temp_folder_t folder;
    ASSERT_TRUE(db_image_save(test.db, (folder / "bare").c_str(), false));
    u64 size = db_memory_size(test.db);
    db_recent_change_set(test.db, false, test.item(0), 5);
    u64 with_change = db_memory_size(test.db);
    EXPECT_GE(with_change, size + sizeof(db_recent_change_t) + 2 * ARRAY_PAGE_SIZE);
    db_run_history_set_item(test.db, test.item(0), false, 1, 5);
    EXPECT_GE(db_memory_size(test.db), with_change + sizeof(db_run_history_ptr_t) + 3 * ARRAY_PAGE_SIZE);
    ASSERT_TRUE(db_image_save(test.db, (folder / "full").c_str(), false));
    EXPECT_EQ(read_file(folder / "full"), read_file(folder / "bare"));
    db_clear_content(test.db);
    for (const array_t *array :
         {&test.db->recent_changes_by_item, &test.db->recent_changes_by_date, &test.db->run_history_by_item,
          &test.db->run_history_links_by_count, &test.db->run_history_links_by_date})
        EXPECT_EQ(array->count, 0u);
}

} // namespace
