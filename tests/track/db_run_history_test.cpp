// What is known of paths, the links of the items that have them, and all orders, beside a model.
#include "track/db_run_history.h"

#include "db/db_item_set.h"
#include "os/os_test_support.h"
#include "support/test_db.h"

#include <algorithm>
#include <map>
#include <random>
#include <set>
#include <tuple>
#include <vector>

using namespace findwright;

namespace {

struct told_t {
    const db_item_t *item;
    bool enters;
    u32 count; // what was known of it at that moment
};

// A query that writes down what it is told.
struct listener_t : db_query_link_t {
    db_t *db;
    std::vector<told_t> told;
};

void _leaves(db_query_link_t *query, const db_item_t *item, bool, u32 changes) {
    auto *listener = static_cast<listener_t *>(query);
    EXPECT_EQ(changes, DB_CHANGE_RUNS);
    listener->told.push_back({item, false, db_run_history_get(listener->db, item).count});
}
void _enters(db_query_link_t *query, const db_item_t *old, const db_item_t *item, bool, u32 changes) {
    auto *listener = static_cast<listener_t *>(query);
    EXPECT_EQ(changes, DB_CHANGE_RUNS);
    EXPECT_EQ(old, item);
    listener->told.push_back({item, true, db_run_history_get(listener->db, item).count});
}
const db_query_hooks_t hooks = {};
const db_live_hooks_t live = {_leaves, _enters, nullptr, nullptr, nullptr, nullptr};

struct history_t {
    db_t *db;
    listener_t listener;
    std::map<std::string, db_run_t> model;  // by path
    std::map<mem_ref_t, std::string> paths; // of all items
    std::map<mem_ref_t, bool> folders;      // whether it is one
    std::set<mem_ref_t> linked;             // items that are to have what their path has
    std::vector<mem_ref_t> items;

    history_t() {
        std::vector<std::string> names = {"a", "A", "b\\", "b\\a", "b\\c.txt", "\303\251", "e", "b\\b\\"};
        test_volume_t posix = test_volume_from_paths(names), again = posix;
        posix.path = again.path = "\\home\\u"; // two sources of the same paths
        test_volume_t windows = test_volume_from_paths({"x\\", "x\\y.txt", "x\\z.txt"});
        db = test_db_create({posix, again, windows}, 0);
        for (array_t *array : {&db->folder_name_array, &db->file_name_array}) {
            utf8_buf_t path;
            utf8_buf_init(&path);
            u32 page = 0, value;
            for (i32 position = -1; array_next_to(array, &page, &position, &value);) {
                db_item_get_full_path_name(&path, db_item(value));
                paths[value] = path.data;
                folders[value] = array == &db->folder_name_array;
                items.push_back(value);
            }
            utf8_buf_kill(&path);
        }
        linked = {items.begin(), items.end()};
        listener = {};
        listener.db = db;
        listener.hooks = &hooks;
        listener.live = &live;
        db_add_query(db, &listener);
    }
    ~history_t() {
        db_remove_query(db, &listener);
        db_destroy(db);
    }
    bool knows(mem_ref_t item) { return linked.count(item) && model.count(paths[item]); }
    void set(const std::string &path, u32 count, u64 date) {
        auto old = model.find(path);
        if (old == model.end() ? !count : old->second.count == count && old->second.date == date)
            return;
        if (count)
            model[path] = {count, date};
        else
            model.erase(path);
        for (auto &[item, item_path] : paths) {
            if (item_path == path)
                linked.insert(item); // who sets a path finds all its items
        }
    }

    static std::vector<mem_ref_t> linked_items(const array_t *array) {
        std::vector<mem_ref_t> out;
        u32 page = 0, value;
        for (i32 position = -1; array_next_to(array, &page, &position, &value);)
            out.push_back(mem_ptr<const db_run_history_ptr_t>(value)->item);
        return out;
    }
    static std::vector<std::string> entry_paths(const array_t *array) {
        std::vector<std::string> out;
        u32 page = 0, value;
        for (i32 position = -1; array_next_to(array, &page, &position, &value);) {
            const auto *data = mem_ptr<const db_run_history_data_t>(value);
            out.emplace_back(db_run_history_get_path(data), data->path_length);
        }
        return out;
    }
    void check() {
        std::vector<std::tuple<u32, u64, mem_ref_t>> by_count;
        std::vector<std::pair<u64, mem_ref_t>> by_date;
        std::vector<mem_ref_t> counts, dates, all;
        for (mem_ref_t item : items) {
            db_run_t run = db_run_history_get(db, db_item(item)), wanted = {};
            if (knows(item)) {
                wanted = model[paths[item]];
                by_count.emplace_back(~wanted.count, ~wanted.date, item); // the largest first
                by_date.emplace_back(~wanted.date, item);
                all.push_back(item);
            }
            EXPECT_EQ(run.count, wanted.count) << paths[item];
            EXPECT_EQ(run.date, wanted.date) << paths[item];
        }
        std::sort(by_count.begin(), by_count.end());
        std::sort(by_date.begin(), by_date.end());
        std::sort(all.begin(), all.end());
        for (auto [count, date, item] : by_count)
            counts.push_back(item);
        for (auto [date, item] : by_date)
            dates.push_back(item);
        EXPECT_EQ(linked_items(&db->run_history_by_item), all);
        EXPECT_EQ(linked_items(&db->run_history_links_by_count), counts);
        EXPECT_EQ(linked_items(&db->run_history_links_by_date), dates);
        std::vector<std::string> names = entry_paths(&db->run_history_by_name), wanted_names;
        for (auto &[path, run] : model)
            wanted_names.push_back(path);
        std::sort(names.begin(), names.end());
        EXPECT_EQ(names, wanted_names);
        std::stable_sort(names.begin(), names.end(), [&](const std::string &a, const std::string &b) {
            return std::tuple(~model[a].count, ~model[a].date) < std::tuple(~model[b].count, ~model[b].date);
        });
        std::vector<std::string> entries = entry_paths(&db->run_history_by_count);
        ASSERT_EQ(entries.size(), names.size());
        for (size_t i = 0; i < names.size(); i++) {
            EXPECT_EQ(model[entries[i]].count, model[names[i]].count);
            EXPECT_EQ(model[entries[i]].date, model[names[i]].date);
        }
    }
};

TEST(DbRunHistory, KeepsEntriesAndLinksInTheirOrders) {
    history_t test;
    size_t used = db_mem_used(&test.db->mem);
    std::mt19937 engine(2);
    auto random = [&](u32 limit) { return static_cast<u32>(engine()) % limit; };
    for (int i = 0; i < 2000; i++) {
        mem_ref_t item = test.items[random(static_cast<u32>(test.items.size()))];
        const std::string &path = test.paths[item];
        bool is_folder = test.folders[item];
        u32 count = random(4);
        u64 date = random(3);
        test.listener.told.clear();
        switch (random(6)) {
        case 0:
            db_run_history_set_item(test.db, db_item(item), is_folder, count, date);
            test.set(path, count, date);
            break;
        case 1: {
            u32 old = test.model.count(path) ? test.model[path].count : 0;
            db_run_history_add_item(test.db, db_item(item), is_folder, count, date);
            if (old + count)
                test.set(path, old + count, date);
            break;
        }
        case 2: // a path that no item has
            db_run_history_set_path(test.db, "\\nowhere", 8, count, date);
            test.set("\\nowhere", count, date);
            break;
        case 3:
            db_run_history_item_removed(test.db, db_item(item));
            test.linked.erase(item);
            break;
        case 4:
            if (test.linked.insert(item).second)
                db_run_history_item_added(test.db, db_item(item), is_folder);
            break;
        default: // as if the item had become another one, of another path
            mem_ref_t to = test.items[random(static_cast<u32>(test.items.size()))];
            if (to == item)
                break;
            db_run_history_item_removed(test.db, db_item(to));
            bool known = test.knows(item), shared = false;
            for (mem_ref_t other : test.items)
                shared |=
                    other != to && other != item && test.knows(other) && test.paths[other] == test.paths[to];
            db_run_history_give(test.db, db_run_history_take(test.db, db_item(item)), db_item(to),
                                test.folders[to]);
            if (known && !shared) {
                test.model[test.paths[to]] = test.model[path];
                for (mem_ref_t other : test.items) { // what has the path already is not told of
                    if (test.paths[other] == test.paths[to])
                        test.linked.erase(other);
                }
            }
            if (known)
                test.linked.erase(item);
            test.linked.insert(to);
            break;
        }
        ASSERT_NO_FATAL_FAILURE(test.check());
        if (HasFailure())
            FAIL() << "step " << i;
    }
    db_run_history_clear(test.db);
    EXPECT_EQ(db_mem_used(&test.db->mem), used);
}

TEST(DbRunHistory, APathIsOneOfItsItems) {
    history_t test;
    auto set = [&](const char *path, u32 count) {
        test.listener.told.clear();
        db_run_history_set_path(test.db, path, static_cast<u32>(std::strlen(path)), count, 5);
        return test.listener.told.size();
    };
    // All leave with the old count before one enters with the new; of a path of the system, case counts.
    EXPECT_EQ(set("\\home\\u\\A", 3), 4u);
    for (size_t i = 0; i < 4; i++) {
        EXPECT_EQ(test.listener.told[i].enters, i >= 2);
        EXPECT_EQ(test.listener.told[i].count, i >= 2 ? 3u : 0u);
        EXPECT_EQ(test.paths[mem_ref(test.listener.told[i].item)], "\\home\\u\\A");
    }
    EXPECT_EQ(set("\\home\\u\\e", 3), 4u); // and none with an accent
    EXPECT_EQ(set("\\home\\u", 3), 4u);    // roots
    EXPECT_EQ(set("\\home\\u\\b\\b", 3), 4u);
    EXPECT_EQ(set("\\home", 3), 0u);
    EXPECT_EQ(set("u", 3), 0u);
    EXPECT_EQ(set("", 3), 0u);
    EXPECT_EQ(set("\\home\\u\\", 3), 0u);
    EXPECT_EQ(set("c:\\X\\Y.TXT", 3), 2u); // elsewhere it does not
    EXPECT_EQ(set("C:\\x\\y.txt", 4), 2u);
    EXPECT_EQ(set("C:", 4), 2u);
    EXPECT_EQ(set("C:", 4), 0u); // nothing new
    EXPECT_EQ(db_run_history_find(test.db, "C:\\X\\y.txt", 10)->count, 4u);
    EXPECT_EQ(db_run_history_find(test.db, "\\home\\u\\E", 9), nullptr);
}

TEST(DbRunHistory, CountsEndAtTheLargest) {
    history_t test;
    const db_item_t *item = db_item(test.items[0]);
    db_run_history_add_item(test.db, item, true, ~0u - 1, 1);
    db_run_history_add_item(test.db, item, true, 1, 2);
    db_run_history_add_item(test.db, item, true, 7, 3);
    EXPECT_EQ(db_run_history_get(test.db, item).count, ~0u);
    EXPECT_EQ(db_run_history_get(test.db, item).date, 3u);
}

TEST(DbRunHistory, LinksOfManyItemsGoAtOnce) {
    for (u32 every : {1u, 2u, 100u}) {
        history_t test;
        for (mem_ref_t item : test.items) {
            db_run_history_set_item(test.db, db_item(item), test.folders[item], item % 5 + 1, item % 3);
            test.set(test.paths[item], item % 5 + 1, item % 3);
        }
        db_item_set_t *folders = db_item_set_create(&test.db->folder_name_array);
        db_item_set_t *files = db_item_set_create(&test.db->file_name_array);
        for (size_t i = 0; i < test.items.size(); i++) {
            if (i % every != every - 1)
                continue;
            db_item_set_add(test.folders[test.items[i]] ? folders : files, test.items[i]);
            test.linked.erase(test.items[i]);
        }
        db_run_history_items_removed(test.db, folders, files);
        test.check();
        db_item_set_free(folders);
        db_item_set_free(files);
    }
}

TEST(DbRunHistory, ArraysThatDisagreeAreReported) {
    log_capture_t log;
    for (auto [array, line] :
         {std::pair(&db_t::run_history_links_by_count, "corrupt run history count array\n"),
          {&db_t::run_history_links_by_date, "corrupt run history date array\n"},
          {&db_t::run_history_by_count, "corrupt run history data array\n"},
          {&db_t::run_history_by_name, "corrupt run history data array\n"}}) {
        history_t test;
        const db_item_t *item = db_item(test.items[0]);
        db_run_history_set_item(test.db, item, true, 3, 4);
        log.take();
        test.listener.told.clear();
        array_clear(&(test.db->*array));
        db_run_history_set_item(test.db, item, true, 5, 6);
        EXPECT_NE(log.take().find(line), std::string::npos) << line;
        EXPECT_EQ(db_run_history_get(test.db, item).count, 3u);
        EXPECT_TRUE(test.listener.told.empty());
    }
}

} // namespace
