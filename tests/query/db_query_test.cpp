// The life of a query: deferred searches, notifications, orders, cancelling, ending.
#include "query/db_query.h"

#include "os/event.h"
#include "os/os.h"
#include "support/test_db.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>

namespace findwright {
namespace {

struct owner_t {
    std::vector<u32> codes;
    static void callback(void *user_data, u32 code) {
        static_cast<owner_t *>(user_data)->codes.push_back(code);
    }
    u32 count(u32 code) const { return static_cast<u32>(std::count(codes.begin(), codes.end(), code)); }
};

db_query_params_t make_params(const char *text, u32 sort = 0) {
    db_query_params_t params = {};
    params.search = text;
    params.filter_search = "";
    params.sort = sort;
    return params;
}

void run(db_query_t *query, const char *text, u32 sort = 0) {
    db_query_params_t params = make_params(text, sort);
    db_query_search(query, &params);
}

void wait_idle(db_t *db) {
    while (!db_is_ready(db))
        event_wait_and_dispatch(OS_INFINITE);
    event_dispatch();
}

std::vector<std::string> many_paths() {
    std::vector<std::string> paths;
    for (u32 i = 0; i < 40000; i++)
        paths.push_back("dir" + std::to_string(i % 97) + "\\file" + std::to_string(i * 31 % 40000) +
                        (i % 3 ? ".txt" : ".c"));
    return paths;
}

TEST(DbQuery, TheLastSearchBeforeTheLoadRunsAfterIt) {
    std::vector<test_volume_t> volumes = {test_volume_from_paths({"abc", "abd", "xyz"})};
    db_t *db = test_db_start(volumes, 0);
    owner_t owner;
    db_query_t *query = db_query_create(db, false, owner_t::callback, &owner);
    run(query, "abc");
    EXPECT_EQ(0u, db_get_result_count(query));
    EXPECT_FALSE(db_get_result_item(query, 0));
    EXPECT_TRUE(db_is_folder_result(query, 0));
    EXPECT_FALSE(db_cancel_query(query));
    run(query, "ab");
    test_db_wait(db);
    wait_idle(db);
    EXPECT_EQ((std::vector<std::string>{"C:\\abc", "C:\\abd"}), test_result_paths(query));
    EXPECT_GE(owner.count(DB_QUERY_RESULTS_CHANGED), 1u);
    db_destroy_query(query);
    db_destroy(db);
}

TEST(DbQuery, OneNotificationWhenResultsAreThere) {
    db_t *db = test_db_create({test_volume_from_paths({"a", "b"})}, 0);
    owner_t owner;
    db_query_t *query = db_query_create(db, false, owner_t::callback, &owner);
    run(query, "a");
    EXPECT_EQ(0u, owner.count(DB_QUERY_RESULTS_CHANGED)); // never from inside a call
    wait_idle(db);
    EXPECT_EQ(1u, owner.count(DB_QUERY_RESULTS_CHANGED));
    EXPECT_EQ(1u, owner.count(DB_QUERY_READY));
    for (u32 i = 0; i < 20; i++) // a burst of keystrokes
        run(query, i % 2 ? "a" : "b");
    wait_idle(db);
    EXPECT_EQ(2u, owner.count(DB_QUERY_RESULTS_CHANGED));
    EXPECT_EQ((std::vector<std::string>{"C:\\a"}), test_result_paths(query));
    db_destroy_query(query);
    db_destroy(db);
}

TEST(DbQuery, BadIndexesAndEmptySearches) {
    db_t *db = test_db_create({test_volume_from_paths({"dir\\a", "b"})}, 0);
    db_query_t *query = db_query_create(db, false, nullptr, nullptr);
    run(query, "");
    EXPECT_EQ(4u, db_get_result_count(query));
    EXPECT_EQ(2u, db_get_folder_result_count(query));
    EXPECT_EQ(2u, db_get_file_result_count(query));
    utf8_buf_t text;
    utf8_buf_init(&text);
    for (i32 bad : {-1, 4, 100, INT32_MIN, INT32_MAX}) {
        db_get_result_full_path_name(query, bad, &text);
        EXPECT_EQ(0, text.length);
        EXPECT_TRUE(db_is_folder_result(query, bad));
        EXPECT_FALSE(db_is_root_result(query, bad));
    }
    EXPECT_TRUE(db_is_root_result(query, 0));
    EXPECT_FALSE(db_is_root_result(query, 1));
    db_get_result_path(query, 2, &text);
    EXPECT_STREQ("C:\\dir", text.data);
    db_get_result_name(query, 2, &text);
    EXPECT_STREQ("a", text.data);
    utf8_buf_kill(&text);

    db_query_params_t params = make_params("");
    params.hide_empty_search_results = true;
    params.filter_search = "a";
    db_query_search(query, &params);
    EXPECT_EQ(0u, db_get_result_count(query));
    db_destroy_query(query);
    db_destroy(db);
}

using refs_t = std::vector<u32>;

// The results as they stand: paths would take too long, so often as they are compared.
refs_t get_results(db_query_t *query) {
    refs_t refs;
    for (i32 i = 0, count = static_cast<i32>(db_get_result_count(query)); i < count; i++)
        refs.push_back(mem_ref(db_get_result_item(query, i)));
    return refs;
}

TEST(DbQuery, EveryOrderAndItsOpposite) {
    const array_t db_t::*const files[] = {
        &db_t::file_name_array,       &db_t::file_path_array,          &db_t::file_size_array,
        &db_t::file_extension_array,  &db_t::file_date_created_array,  &db_t::file_date_modified_array,
        &db_t::file_attributes_array, &db_t::file_date_accessed_array,
    };
    const u32 codes[] = {DB_SORT_NAME_ASCENDING,         DB_SORT_PATH_ASCENDING,
                         DB_SORT_SIZE_ASCENDING,         DB_SORT_EXTENSION_ASCENDING,
                         DB_SORT_DATE_CREATED_ASCENDING, DB_SORT_DATE_MODIFIED_ASCENDING,
                         DB_SORT_ATTRIBUTES_ASCENDING,   DB_SORT_DATE_ACCESSED_ASCENDING};
    db_t *db = test_db_create({test_volume_from_paths(many_paths())}, TEST_FLAGS_ALL);
    db_query_t *query = db_query_create(db, false, nullptr, nullptr);
    for (const char *text : {"file", "9", "zzz", "*"}) {
        run(query, text);
        refs_t by_name = get_results(query);
        std::sort(by_name.begin(), by_name.end());
        for (size_t i = 0; i < std::size(codes); i++) {
            // What the whole array holds of the results, in its order.
            refs_t expected;
            const array_t *array = &(db->*files[i]);
            u32 page = 0, value;
            for (i32 position = -1; array_next_to(array, &page, &position, &value);) {
                if (std::binary_search(by_name.begin(), by_name.end(), value))
                    expected.push_back(value);
            }
            run(query, text, codes[i]); // scanned in that order
            refs_t found = get_results(query);
            ASSERT_EQ(by_name.size(), found.size());
            found.erase(found.begin(), found.begin() + db_get_folder_result_count(query));
            EXPECT_EQ(expected, found) << text << " " << codes[i];

            refs_t whole = get_results(query);
            std::reverse(whole.begin(), whole.end());
            db_sort(query, codes[i] | DB_SORT_DESCENDING); // reversed in place
            EXPECT_EQ(whole, get_results(query)) << text << " " << codes[i];
            db_sort(query, DB_SORT_NAME_ASCENDING);
            db_sort(query, codes[i] | DB_SORT_DESCENDING); // by the walk, from the other end
            EXPECT_EQ(whole, get_results(query)) << text << " " << codes[i];
            run(query, text, codes[i] | DB_SORT_DESCENDING); // scanned, then reversed
            EXPECT_EQ(whole, get_results(query)) << text << " " << codes[i];
        }
    }
    // The walk borrowed words of the records and gave them back.
    EXPECT_EQ(40000u + 98, test_array_paths(&db->folder_name_array).size() +
                               test_array_paths(&db->file_name_array).size());
    db_destroy_query(query);
    db_destroy(db);
}

TEST(DbQuery, AnOrderThatTheDatabaseLacksLeavesTheNames) {
    db_t *db = test_db_create({test_volume_from_paths({"b", "a"})}, 0);
    db_query_t *query = db_query_create(db, false, nullptr, nullptr);
    run(query, "", DB_SORT_SIZE_ASCENDING);
    EXPECT_EQ((std::vector<std::string>{"C:", "C:\\a", "C:\\b"}), test_result_paths(query));
    EXPECT_EQ(DB_SORT_SIZE_ASCENDING, db_get_sort(query));
    db_destroy_query(query);
    db_destroy(db);
}

TEST(DbQuery, QueriesComeAndGoInAnyState) {
    db_t *db = test_db_create({test_volume_from_paths(many_paths())}, TEST_FLAGS_ALL);
    owner_t owners[3];
    db_query_t *queries[3];
    for (u32 i = 0; i < 3; i++)
        queries[i] = db_query_create(db, false, owner_t::callback, &owners[i]);
    for (u32 round = 0; round < 60; round++) {
        db_query_t *&query = queries[round % 3];
        switch (round % 7) {
        case 0: run(query, "path:1", DB_SORT_PATH_ASCENDING); break;
        case 1: run(query, "file 2", DB_SORT_SIZE_ASCENDING | DB_SORT_DESCENDING); break;
        case 2: db_sort(query, DB_SORT_DATE_MODIFIED_ASCENDING); break;
        case 3: db_cancel_query(query); break;
        case 4: event_dispatch(); break;
        case 5:
            run(query, "regex:[0-9]+\\.c$");
            db_destroy_query(query);
            query = db_query_create(db, false, owner_t::callback, &owners[round % 3]);
            break;
        default: run(query, "*"); break;
        }
    }
    wait_idle(db);
    for (u32 i = 0; i < 3; i++) {
        run(queries[i], "file1");
        u32 count = db_get_result_count(queries[i]);
        wait_idle(db);
        EXPECT_EQ(count, db_get_result_count(queries[i]));
        EXPECT_EQ(11111u, count); // 1, 1x, 1xx, 1xxx, 1xxxx
        db_destroy_query(queries[i]);
    }
    db_destroy(db);
}

// A dialog whose user presses Cancel as soon as it is there, or never.
struct fake_dialog_t {
    static inline bool press, is_open;
    static inline u32 shown;
    static inline i32 x, y;
    static inline std::string text;
    static void *show(i32 at_x, i32 at_y, const char *of, void (*cancel)(void *), void *param) {
        shown++;
        is_open = true;
        x = at_x;
        y = at_y;
        text = of;
        if (press)
            cancel(param);
        return &text;
    }
    static bool close(void *dialog) {
        EXPECT_EQ(&text, dialog);
        is_open = false;
        return press;
    }
};

// A worker of a query that takes longer than anybody wants to wait, unless it is cancelled.
struct slow_worker_t {
    db_query_t *query;
    std::atomic<u32> *cancel;
    u32 milliseconds;
};
void slow_worker_proc(void *param) {
    auto *worker = static_cast<slow_worker_t *>(param);
    os_event_t *never = os_event_create();
    for (u32 i = 0; i < worker->milliseconds && !*worker->cancel; i += 10)
        os_event_wait(never, 10);
    os_event_destroy(never);
    event_post(_db_ready_proc, worker->query->db);
}

TEST(DbQuery, ALongWaitAsksWhetherToCancel) {
    static const db_wait_dialog_t dialog = {100, fake_dialog_t::show, fake_dialog_t::close};
    const struct {
        bool is_ui, press;
        db_worker_kind_t kind;
        u32 milliseconds;
        const char *text; // 0: no dialog
        u32 results;
    } cases[] = {
        {false, true, DB_WORKER_SORT, 300, nullptr, 3},
        {true, true, DB_WORKER_SORT, 10, nullptr, 3},
        {true, false, DB_WORKER_SORT, 300, "Cancel current sort?", 3},
        {true, true, DB_WORKER_SORT, 60000, "Cancel current sort?", 3},
        {true, true, DB_WORKER_SEARCH, 60000, "Cancel current query?", 0},
        {true, true, DB_WORKER_OTHER, 60000, "Cancel current read extended information?", 3},
    };
    db_wait_dialog = &dialog;
    db_t *db = test_db_create({test_volume_from_paths({"b", "a"})}, TEST_FLAGS_ALL);
    for (const auto &c : cases) {
        db_query_t *query = db_query_create(db, c.is_ui, nullptr, nullptr);
        run(query, "", DB_SORT_NAME_DESCENDING);
        db_wait(db, "test");
        query->dialog_x = 12;
        query->dialog_y = 34;
        query->cancel_search = query->cancel_sort = query->cancel_fileinfo = 0;
        fake_dialog_t::press = c.press;
        fake_dialog_t::shown = 0;
        slow_worker_t worker = {query,
                                c.kind == DB_WORKER_SEARCH ? &query->cancel_search
                                : c.kind == DB_WORKER_SORT ? &query->cancel_sort
                                                           : &query->cancel_fileinfo,
                                c.milliseconds};
        db_start_worker(db, query, c.kind, slow_worker_proc, &worker);
        EXPECT_EQ(c.results, db_get_result_count(query)) << c.text;
        EXPECT_EQ(c.text != nullptr, fake_dialog_t::shown == 1);
        EXPECT_FALSE(fake_dialog_t::is_open);
        if (c.text) {
            EXPECT_EQ(c.text, fake_dialog_t::text);
            EXPECT_EQ(12, fake_dialog_t::x);
            EXPECT_EQ(34, fake_dialog_t::y);
        }
        bool back_to_names = c.press && c.text && c.kind == DB_WORKER_SORT;
        EXPECT_EQ(back_to_names ? DB_SORT_NAME_ASCENDING : DB_SORT_NAME_DESCENDING, db_get_sort(query));
        wait_idle(db);
        db_destroy_query(query);
    }
    db_wait_dialog = nullptr;
    db_destroy(db);
}

// Few results are sorted by themselves, in the order that the walk over the whole array gives.
TEST(DbQuery, FewResultsStandInTheOrderOfTheArray) {
    std::vector<std::string> names;
    for (u32 i = 0; i < 200; i++)
        names.push_back((i % 40 == 0 ? "rare" : "name") + std::to_string(i * 7 % 200) +
                        (i % 3 ? ".b" : ".a"));
    test_volume_t volume = test_volume_from_paths(names);
    for (u32 i = 0; i < 200; i++) {
        volume.records[i].date = i % 80 == 0 ? VALUE_UNKNOWN : 1000 - i % 120; // some unknown, some alike
        volume.records[i].size = i % 3;
    }
    db_t *db = test_db_create({volume}, TEST_FLAGS_ALL);
    db_query_t *query = db_query_create(db, false, nullptr, nullptr);
    for (u32 sort : {DB_SORT_NAME_ASCENDING, DB_SORT_PATH_ASCENDING, DB_SORT_EXTENSION_ASCENDING,
                     DB_SORT_SIZE_ASCENDING, DB_SORT_DATE_MODIFIED_ASCENDING, DB_SORT_DATE_CREATED_ASCENDING,
                     DB_SORT_ATTRIBUTES_ASCENDING, DB_SORT_DATE_ACCESSED_ASCENDING}) {
        for (u32 direction : {0u, 1u}) {
            db_query_params_t params = {};
            params.search = "";
            params.filter_search = "";
            params.sort = sort + direction;
            db_query_search(query, &params);
            std::vector<std::string> expected = test_result_paths(query);
            std::erase_if(expected, [](const std::string &path) { return path.find("rare") == path.npos; });
            ASSERT_EQ(5u, expected.size());
            params.search = "rare";
            db_query_search(query, &params);
            EXPECT_EQ(expected, test_result_paths(query)) << sort << " " << direction;
            for (u32 from : {DB_SORT_PATH_ASCENDING + 1u, DB_SORT_RUN_COUNT_ASCENDING + 1u}) {
                db_sort(query, from);
                db_sort(query, params.sort);
                EXPECT_EQ(expected, test_result_paths(query)) << sort << " " << direction << " " << from;
            }
        }
    }
    db_destroy_query(query);
    db_destroy(db);
}

} // namespace
} // namespace findwright
