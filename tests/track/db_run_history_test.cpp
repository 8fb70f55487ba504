// The table of runs by item, and its orders.
#include "track/db_run_history.h"

#include "os/event.h"
#include "os/os_test_support.h"
#include "support/test_db.h"

#include <algorithm>
#include <map>
#include <random>
#include <tuple>
#include <vector>

using namespace findwright;

namespace {

struct history_t {
    db_t *db = test_db_create({test_volume_from_paths({"a", "b", "c", "d", "e", "f", "g"})}, 0);
    std::map<mem_ref_t, db_run_t> model;

    ~history_t() { db_destroy(db); }
    const db_item_t *item(u32 index) {
        u32 page;
        i32 position;
        return db_item(array_get(&db->file_name_array, index, &page, &position));
    }
    static std::vector<mem_ref_t> items(const array_t *array) {
        std::vector<mem_ref_t> items;
        u32 page = 0;
        i32 position = -1;
        while (u32 value = array_next(array, &page, &position))
            items.push_back(mem_ptr<const db_run_history_ptr_t>(value)->item);
        return items;
    }
    void check() {
        std::vector<std::tuple<u32, u64, mem_ref_t>> by_count;
        std::vector<std::pair<u64, mem_ref_t>> by_date;
        std::vector<mem_ref_t> counts, dates, all;
        for (auto [item, run] : model) {
            by_count.emplace_back(~run.count, ~run.date, item); // the largest first
            by_date.emplace_back(~run.date, item);
            all.push_back(item);
        }
        std::sort(by_count.begin(), by_count.end());
        std::sort(by_date.begin(), by_date.end());
        for (auto [count, date, item] : by_count)
            counts.push_back(item);
        for (auto [date, item] : by_date)
            dates.push_back(item);
        EXPECT_EQ(items(&db->run_history_by_item), all);
        EXPECT_EQ(items(&db->run_history_links_by_count), counts);
        EXPECT_EQ(items(&db->run_history_links_by_date), dates);
        for (u32 i = 0; i < db->file_name_array.count; i++) {
            db_run_t run = db_run_history_get(db, item(i));
            EXPECT_EQ(run.count, model[mem_ref(item(i))].count);
            EXPECT_EQ(run.date, model[mem_ref(item(i))].date);
            if (run.count == 0)
                model.erase(mem_ref(item(i)));
        }
    }
};

TEST(DbRunHistory, KeepsItsOrders) {
    history_t test;
    size_t used = db_mem_used(&test.db->mem);
    std::mt19937 engine(2);
    auto random = [&] { return static_cast<u32>(engine()); };
    for (int i = 0; i < 1000; i++) {
        const db_item_t *item = test.item(random() % test.db->file_name_array.count);
        u32 count = random() % 4;
        u64 date = random() % 3;
        db_run_history_set_item(test.db, item, false, count, date);
        if (count)
            test.model[mem_ref(item)] = {count, date};
        else
            test.model.erase(mem_ref(item));
        test.check();
    }
    db_run_history_clear(test.db);
    test.model.clear();
    test.check();
    EXPECT_EQ(db_mem_used(&test.db->mem), used);
}

TEST(DbRunHistory, ArraysThatDisagreeAreReported) {
    log_capture_t log;
    for (auto [array, line] :
         {std::pair(&db_t::run_history_links_by_count, "corrupt run history count array\n"),
          {&db_t::run_history_links_by_date, "corrupt run history date array\n"}}) {
        history_t test;
        db_run_history_set_item(test.db, test.item(0), false, 3, 4);
        log.take();
        array_remove_at(&(test.db->*array), 0, 0);
        db_run_history_set_item(test.db, test.item(0), false, 5, 6);
        EXPECT_NE(log.take().find(line), std::string::npos);
        EXPECT_EQ(db_run_history_get(test.db, test.item(0)).count, 3u);
    }
}

} // namespace
