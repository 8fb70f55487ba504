// The columns of results: from records, from what is read behind the list, and what the owner is told.
#include "query/db_result_info.h"

#include "db/db_extended_info_internal.h"
#include "db/db_file.h"
#include "db/db_folder.h"
#include "os/os_folder.h"
#include "os/os_test_support.h"
#include "query/db_query_ops.h"
#include "query/db_selection.h"
#include "support/slow_loader.h"
#include "support/test_search.h"
#include "track/db_recent_change.h"
#include "track/db_run_history.h"

#include <algorithm>
#include <chrono>
#include <gtest/gtest.h>
#include <random>
#include <thread>

using namespace findwright;

namespace {

const std::string TOP = os_path_separator == '/' ? "\\top" : "C:";

using reads_t = std::vector<std::string>;

db_t *make_db(const std::vector<std::string> &paths, u32 flags) {
    test_volume_t volume = test_volume_from_paths(paths);
    volume.path = TOP;
    return test_db_create({volume}, flags);
}

// A query over a database of its own, whose files are those of the slow loader.
struct result_info_t {
    db_t *db;
    db_query_t *query;
    u32 info_changes = 0;

    result_info_t(const std::vector<std::string> &paths, u32 flags = 0)
        : db(make_db(paths, flags)), query(db_query_create(db, false, callback, this)) {
        db_extended_info_set_loader(query->extended_info, &slow_loader_table);
        slow_loader.take_reads();
    }
    ~result_info_t() {
        slow_loader.open();
        if (query)
            db_destroy_query(query);
        slow_loader.wait_until_idle();
        db_destroy(db);
    }
    static void callback(void *user_data, u32 code) {
        static_cast<result_info_t *>(user_data)->info_changes += code == DB_QUERY_INFO_CHANGED;
    }
    void start(const char *text) {
        db_query_params_t params = {};
        params.search = text;
        db_query_search(query, &params);
    }
    void run(const char *text) {
        start(text);
        test_db_wait(db);
    }
    db_fileinfo_t get(i32 index, u32 flags = ~0u) {
        db_fileinfo_t info;
        EXPECT_TRUE(db_get_result_file_info(query, index, flags, &info));
        return info;
    }
    // The time that it takes.
    std::chrono::steady_clock::duration destroy() {
        auto begin = std::chrono::steady_clock::now();
        db_destroy_query(query);
        query = nullptr;
        return std::chrono::steady_clock::now() - begin;
    }
    void wait_for_change() {
        for (u32 before = info_changes; info_changes == before;)
            event_wait_and_dispatch(OS_INFINITE);
    }
    // Until nothing is on its way any more.
    void settle() {
        for (bool waits = true; waits;) {
            waits = false;
            for (const db_info_requests_t &requests : query->extended_info->requests)
                waits |= requests.by_key.count != 0;
            event_wait_and_dispatch(waits ? 100 : 0);
        }
    }
};

// A record's own columns are never read; a folder has no other size.
TEST(DbResultInfo, ColumnsOfTheRecordCostNoRead) {
    const std::vector<std::string> paths = {"dir\\a", "b"}; // with sizes 0 and 1, dates likewise
    for (u32 flags : {0u, DB_FLAG_SIZE, DB_FLAG_SIZE | DB_FLAG_DATE_MODIFIED, DB_FLAG_COLUMNS,
                      DB_FLAG_SIZE | DB_FLAG_FOLDER_SIZE | DB_FLAG_ATTRIBUTES}) {
        for (u32 column : {DB_INFO_SIZE, DB_INFO_DATE_CREATED, DB_INFO_DATE_MODIFIED, DB_INFO_DATE_ACCESSED,
                           DB_INFO_ATTRIBUTES, DB_INFO_FILE}) {
            result_info_t test(paths, flags);
            test.run("");
            ASSERT_EQ(db_get_result_count(test.query), 4u);
            db_request_fileinfo(test.query, -3, 100, column);
            test.settle();
            bool has_all = (flags & column) == column;
            size_t folders = has_all || column == DB_INFO_SIZE ? 0 : 2;
            EXPECT_EQ(slow_loader.take_reads().size(), folders + (has_all ? 0 : 2)) << flags << " " << column;
            EXPECT_EQ(test.info_changes != 0, !has_all);
            db_fileinfo_t folder = test.get(1, column), file = test.get(3, column);
            auto expect = [&](u32 bit, u64 value, u64 recorded, u64 read) {
                EXPECT_EQ(value, !(column & bit) ? VALUE_UNKNOWN
                                 : (flags & bit) ? recorded
                                                 : read)
                    << flags << " " << column << " " << bit;
            };
            expect(DB_INFO_SIZE, file.size, 1, (TOP + "\\b").size());
            expect(DB_INFO_DATE_MODIFIED, file.date_modified, 1, 11);
            expect(DB_INFO_DATE_CREATED, file.date_created, 1, 12);
            expect(DB_INFO_DATE_ACCESSED, file.date_accessed, 1, 13);
            expect(DB_INFO_DATE_MODIFIED, folder.date_modified, 0, 11);
            EXPECT_EQ(file.attributes, column & DB_INFO_ATTRIBUTES ? 0x20u : 0u);
            EXPECT_TRUE(folder.attributes & OS_ATTRIBUTE_FOLDER);
            EXPECT_EQ(folder.size, flags & DB_FLAG_FOLDER_SIZE && column & DB_INFO_SIZE ? 0 : VALUE_UNKNOWN);
        }
    }
}

TEST(DbResultInfo, TheOwnerIsToldOfWhatCame) {
    result_info_t test({"a.txt", "b.txt", "c.exe", "gone"});
    test.run("file:"); // all of them
    ASSERT_EQ(db_get_result_count(test.query), 4u);
    slow_loader.close();
    db_request_fileinfo(test.query, 0, 4, ~0u);
    slow_loader.wait_for_reads(DB_INFO_KINDS);
    EXPECT_EQ(test.get(0).icon_index, db_default_icon_index);
    EXPECT_EQ(test.get(0).type_name, nullptr);
    EXPECT_EQ(test.info_changes, 0u);
    slow_loader.open();
    test.wait_for_change();
    test.settle();
    EXPECT_EQ(test.get(1).size, TOP.size() + 6);
    EXPECT_STREQ(test.get(1).type_name, "txt file");
    EXPECT_EQ(test.get(2).icon_index, 2000u);
    EXPECT_NE(test.get(2).thumbnail, nullptr);
    EXPECT_EQ(test.get(3).size, VALUE_UNKNOWN);
    EXPECT_EQ(test.get(3).icon_index, 100u);

    // The bits are those of the last time.
    test.run("c.exe");
    u32 changes = test.info_changes;
    db_extended_info_item_removed(test.query->extended_info, db_get_result_item(test.query, 0));
    for (u32 flag : {DB_INFO_DATE_CREATED, DB_INFO_ICON, DB_INFO_THUMBNAIL}) {
        db_request_fileinfo(test.query, 0, 1, flag);
        test.wait_for_change();
        EXPECT_EQ(test.info_changes, ++changes);
        EXPECT_EQ(db_get_result_file_info_change(test.query, 0),
                  flag & DB_INFO_FILE ? u32{DB_INFO_FILE} : flag);
    }
    test.run("a.txt"); // another search forgets nothing
    EXPECT_EQ(db_get_result_file_info_change(test.query, 0), 0u);
    slow_loader.take_reads();
    db_request_fileinfo(test.query, 0, 1, ~0u);
    test.settle();
    EXPECT_EQ(slow_loader.take_reads(), reads_t());

    db_fileinfo_t info;
    for (i32 bad : {-1, 1, INT32_MAX}) {
        EXPECT_FALSE(db_get_result_file_info(test.query, bad, ~0u, &info));
        EXPECT_EQ(info.size, VALUE_UNKNOWN);
        EXPECT_EQ(db_get_result_file_info_change(test.query, bad), 0u);
        db_request_fileinfo(test.query, bad, INT32_MAX, ~0u);
    }
    EXPECT_EQ(slow_loader.take_reads(), reads_t());
}

TEST(DbResultInfo, ABusyDatabaseTakesNothing) {
    result_info_t test({"a", "b"});
    test.run("a");
    test.db->busy_count++; // an operation in flight
    db_request_fileinfo(test.query, 0, 1, DB_INFO_SIZE);
    slow_loader.wait_for_reads(1);
    event_wait_and_dispatch(OS_INFINITE); // it is told, but not taken
    EXPECT_EQ(test.info_changes, 0u);
    EXPECT_EQ(test.get(0).size, VALUE_UNKNOWN);
    event_post(_db_ready_proc, test.db);
    test.wait_for_change();
    EXPECT_EQ(test.get(0).size, TOP.size() + 2);
}

TEST(DbResultInfo, TheEndOfAQueryWaitsForNoRead) {
    auto best = std::chrono::steady_clock::duration::max(); // of some: the machine may be busy
    for (u32 rows : {1u, 2000u, 2000u, 2000u}) {
        std::vector<std::string> paths;
        for (u32 i = 0; i < rows; i++)
            paths.push_back(std::to_string(i) + ".t" + std::to_string(i));
        result_info_t test(paths);
        test.run("");
        slow_loader.close();
        db_request_fileinfo(test.query, 0, static_cast<i32>(rows) + 1, ~0u);
        slow_loader.wait_for_reads(DB_INFO_KINDS);
        // The list goes on meanwhile.
        test.run("0");
        db_request_fileinfo(test.query, 0, 10, ~0u);
        db_sort(test.query, DB_SORT_NAME_DESCENDING);
        test_db_wait(test.db);
        auto taken = test.destroy();
        best = rows > 1 ? std::min(best, taken) : best;
        slow_loader.open();
        slow_loader.wait_until_idle();
        event_dispatch();
        EXPECT_EQ(test.info_changes, 0u);
        EXPECT_EQ(slow_loader.take_reads().size(), DB_INFO_KINDS);
    }
    EXPECT_LT(best, std::chrono::milliseconds(50));
}

// A rebuild takes the records away under a read.
TEST(DbResultInfo, ARebuildForgetsAll) {
    result_info_t test({"a", "b"});
    test.run("a");
    slow_loader.close();
    db_request_fileinfo(test.query, 0, 1, DB_INFO_SIZE);
    slow_loader.wait_for_reads(1);
    db_wait(test.db, "test");
    db_forget_work(test.db);
    test.db->loaded = 1;
    slow_loader.open();
    slow_loader.wait_until_idle();
    test.run("a");
    EXPECT_EQ(test.get(0).size, VALUE_UNKNOWN);
    db_request_fileinfo(test.query, 0, 1, DB_INFO_SIZE);
    test.wait_for_change();
    EXPECT_EQ(slow_loader.take_reads().size(), 2u);
    EXPECT_EQ(test.get(0).size, TOP.size() + 2);
}

TEST(DbResultInfo, TheSelectionIsReadAtOnce) {
    std::vector<std::string> paths;
    for (u32 i = 0; i < 500; i++)
        paths.push_back("dir" + std::to_string(i % 7) + "\\" + std::to_string(i) + ".txt");
    result_info_t test(paths);
    test.run("");
    i32 count = static_cast<i32>(db_get_result_count(test.query));
    db_select_result_range(test.query, 2, static_cast<u32>(count) - 3);
    u32 selected = db_get_selection_count(test.query);
    db_read_extended_info_on_selection(test.query, DB_INFO_DATE_MODIFIED | DB_INFO_TYPE_NAME, 0, 0);
    test_db_wait(test.db);
    for (i32 i = 0; i < count; i++) {
        bool is_read = db_is_result_selected(test.query, i);
        EXPECT_EQ(test.get(i).date_modified, is_read ? 11 : VALUE_UNKNOWN) << i;
    }
    EXPECT_STREQ(test.get(count - 1).type_name, "txt file");
    EXPECT_EQ(slow_loader.take_reads().size(), selected + 2);
    utf8_buf_t status;
    utf8_buf_init(&status);
    db_query_get_status_text(test.query, &status);
    EXPECT_STREQ(status.data, "");

    // Cancelled.
    db_extended_info_clear(test.query->extended_info);
    slow_loader.close();
    db_read_extended_info_on_selection(test.query, DB_INFO_SIZE | DB_INFO_DATE_MODIFIED, 0, 0);
    slow_loader.wait_for_reads(1);
    db_query_get_status_text(test.query, &status);
    EXPECT_STREQ(status.data, db_read_extended_info_text);
    utf8_buf_kill(&status);
    test.query->cancel_fileinfo = 1;
    test_db_wait(test.db); // though a read still hangs
    db_read_extended_info_on_selection(test.query, DB_INFO_SIZE | DB_INFO_DATE_MODIFIED, 0, 0);
    slow_loader.wait_for_reads(2);
    test.destroy();
    slow_loader.open();
    slow_loader.wait_until_idle();
    EXPECT_LT(slow_loader.take_reads().size(), 50u);
}

TEST(DbResultInfo, RunCountsOfTheSelection) {
    log_capture_t log;
    result_info_t test({"dir\\a", "b", "c"});
    test.run("");
    const db_query_ops_t &ops = db_query_local_ops;
    auto counts = [&] {
        std::vector<u32> all;
        for (i32 i = 0; i < 5; i++)
            all.push_back(ops.get_result_run_count(test.query, i));
        return all;
    };
    for (i32 i : {1, 3}) // a folder and a file
        ops.select_result(test.query, i);
    ops.set_selection_run_count(test.query, true, 2);
    ops.set_selection_run_count(test.query, true, 1);
    EXPECT_EQ(counts(), (std::vector<u32>{0, 3, 0, 3, 0}));
    EXPECT_NE(log.take().find("set 2 run history in "), std::string::npos);
    u64 date = ops.get_result_date_run(test.query, 1);
    EXPECT_EQ(date, ops.get_result_date_run(test.query, 3)); // one for all
    EXPECT_LT(os_get_file_time() - date, 600'000'000u);
    ops.deselect_result(test.query, 1);
    ops.set_selection_run_count(test.query, false, 7);
    EXPECT_EQ(counts(), (std::vector<u32>{0, 3, 0, 7, 0}));
    ops.set_selection_run_count(test.query, false, 0);
    EXPECT_EQ(counts(), (std::vector<u32>{0, 3, 0, 0, 0}));
    EXPECT_EQ(test.db->run_history_by_name.count, 1u);
    test.db->run_history_loaded = 0; // there is none
    ops.set_selection_run_count(test.query, true, 1);
    EXPECT_EQ(counts(), (std::vector<u32>{0, 3, 0, 0, 0}));
    EXPECT_TRUE(ops.save_run_history(test.query));
}

TEST(DbResultInfo, ColumnsWithoutAFile) {
    result_info_t test({"dir.d\\a.TXT", "b", ".c"});
    test.run("");
    utf8_buf_t text;
    utf8_buf_init(&text);
    std::vector<std::string> extensions;
    for (i32 i = 0; i < 6; i++) {
        db_get_result_extension(test.query, i, &text);
        extensions.push_back(text.data);
        db_get_result_file_list_filename(test.query, i, &text);
        EXPECT_STREQ(text.data, "");
    }
    EXPECT_EQ(extensions, (std::vector<std::string>{"", "", "c", "TXT", "", ""}));
    const db_item_t *file = db_get_result_item(test.query, 3);
    db_run_history_set_item(test.db, file, false, 5, 77);
    db_recent_change_set(test.db, false, file, 88);
    for (i32 i : {2, 3, 6, -1}) {
        EXPECT_EQ(db_get_result_run_count(test.query, i), i == 3 ? 5u : 0u);
        EXPECT_EQ(db_get_result_date_run(test.query, i), i == 3 ? 77 : VALUE_UNKNOWN);
        EXPECT_EQ(db_get_result_date_recently_changed(test.query, i), i == 3 ? 88 : VALUE_UNKNOWN);
    }
    // The same source as a list.
    db_index_t *index = db_get_index(file);
    auto *list = static_cast<db_index_file_list_t *>(db_index_alloc(DB_INDEX_TYPE_FILE_LIST));
    list->filename = const_cast<char *>("names.txt");
    db_store_u32(db_item_index_word(db_get_root(file)), mem_ref(list));
    db_get_result_file_list_filename(test.query, 3, &text);
    EXPECT_STREQ(text.data, "names.txt");
    db_request_fileinfo(test.query, 0, 6, ~0u);
    test.settle();
    EXPECT_EQ(slow_loader.take_reads(), reads_t());
    db_store_u32(db_item_index_word(db_get_root(file)), mem_ref(index));
    list->filename = nullptr;
    db_index_destroy(list);
    utf8_buf_kill(&text);
}

// Lists that scroll, search, sort and end over one database, while readers read.
TEST(DbResultInfo, ManyListsAtOnce) {
    static constexpr size_t LISTS = 3;
    std::mt19937 random(9);
    std::vector<std::string> paths;
    for (u32 i = 0; i < 6000; i++)
        paths.push_back("dir" + std::to_string(i % 31) + "\\" + std::to_string(i) + ".e" +
                        std::to_string(i % 300));
    db_t *db = make_db(paths, DB_FLAG_SIZE);
    slow_loader.take_reads();
    u32 thumbnails = slow_loader.count_thumbnails();
    db_query_t *queries[LISTS] = {};
    u32 changes = 0;
    auto callback = [](void *user_data, u32 code) { *static_cast<u32 *>(user_data) += code == 5; };
    for (u32 round = 0; round < 600; round++) {
        db_query_t *&query = queries[random() % LISTS];
        if (!query) {
            query = db_query_create(db, false, callback, &changes);
            db_extended_info_set_loader(query->extended_info, &slow_loader_table);
        }
        db_query_params_t params = {};
        std::string text = std::to_string(random() % 100);
        db_fileinfo_t info;
        i32 row = static_cast<i32>(random() % 600);
        switch (random() % 16) {
        case 0:
            params.search = random() % 4 ? text.c_str() : "";
            db_query_search(query, &params);
            break;
        case 1:
            params.search = "dm:>1601 3";
            db_query_search(query, &params);
            break;
        case 2: db_sort(query, static_cast<u32>(random() % DB_SORT_COUNT)); break;
        case 3:
            db_destroy_query(query);
            query = nullptr;
            break;
        case 4:
            if (random() % 4 == 0)
                db_extended_info_clear(query->extended_info);
            break;
        case 5:
            if (const db_item_t *item = db_get_result_item(query, row))
                db_extended_info_item_removed(query->extended_info, item);
            break;
        case 6: db_request_fileinfo(query, 0, 6000, DB_INFO_FILE); break;
        case 7:
            db_select_result_range(query, 0, static_cast<u32>(row));
            db_read_extended_info_on_selection(query, DB_INFO_DATE_CREATED, 0, 0);
            break;
        default:
            db_request_fileinfo(query, row, 40, ~0u);
            for (i32 i = row; i < row + 40; i++) {
                db_get_result_file_info(query, i, ~0u, &info);
                db_get_result_file_info_change(query, i);
            }
        }
        if (round % 3 == 0)
            event_dispatch();
        if (round % 100 == 0)
            event_wait_and_dispatch(5);
    }
    for (db_query_t *query : queries) {
        if (query)
            db_destroy_query(query);
    }
    slow_loader.wait_until_idle();
    test_db_wait(db);
    db_destroy(db);
    while (slow_loader.count_thumbnails() != thumbnails)
        std::this_thread::yield();
    EXPECT_GT(changes, 0u);
    slow_loader.take_reads();
}

} // namespace
