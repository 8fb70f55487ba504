// What the list of a query should be, and the checks of a query against it.
#pragma once

#include "query/db_ghost.h"
#include "query/db_itemref.h"
#include "query/db_query_ops.h"
#include "query/db_selection.h"
#include "support/list_world.h"

#include <algorithm>
#include <deque>
#include <gtest/gtest.h>
#include <random>
#include <set>

namespace findwright {

using numbers_set_t = std::set<u32>;

inline constexpr u32 LIST_NONE = ~0u;
inline constexpr size_t LIST_LOG_SIZE = 30;

// A query, and what its list should be.
struct list_model_t {
    db_query_t *query;
    list_numbers_t results;
    std::vector<u32> index_of; // by item; LIST_NONE for one that is no result
    // What is selected. There are several ways while it is not known how far a search came that was cut
    // short; of the search that runs, as it was before.
    std::vector<numbers_set_t> selections = {{}};
    numbers_set_t ghosts;
    u32 sort;
    bool is_order_known; // not of a type order that nobody has looked at
    bool has_sums;
    struct ref_t {
        db_itemref_t *ref;
        u32 item; // LIST_NONE: empty
    };
    std::vector<ref_t> refs;
    u32 notifications; // of changed results
    bool expects_notification;

    const numbers_set_t &selected() const { return selections[0]; }
    numbers_set_t &selected() { return selections[0]; }
    i32 count() const { return static_cast<i32>(results.size()); }
};

enum running_t { RUNNING_NOTHING, RUNNING_SEARCH, RUNNING_SORT };

struct list_run_t {
    list_world_t world;
    std::deque<list_model_t> models; // a callback has their addresses
    std::mt19937 random;
    list_model_t *running_model; // whose worker may be at work
    running_t running;
    std::deque<std::string> log;

    u32 pick(u32 limit) { return static_cast<u32>(random() % limit); }
    bool chance(u32 percent) { return pick(100) < percent; }
    // An index of a row, or now and then a bad one.
    i32 pick_index(const list_model_t *model) {
        u32 count = static_cast<u32>(model->count());
        if (count == 0 || chance(4))
            return static_cast<i32>(count) * (chance(50) ? 1 : 0) - (chance(50) ? 1 : 0);
        return static_cast<i32>(pick(count));
    }
    void note(const list_model_t *model, const std::string &text) {
        size_t number = 0;
        while (&models[number] != model)
            number++;
        log.push_back(std::to_string(number) + ": " + text);
        if (log.size() > LIST_LOG_SIZE)
            log.pop_front();
    }
};

// --- What is known when the worker has ended ---------------------------------------------------------------

inline void set_results(list_run_t *run, list_model_t *model, const list_numbers_t &results) {
    model->results = results;
    model->index_of.assign(run->world.items.size(), LIST_NONE);
    for (u32 i = 0; i < results.size(); i++)
        model->index_of[results[i]] = i;
}

// The same results in another order.
inline void set_order(list_run_t *run, list_model_t *model, u32 sort) {
    model->sort = sort;
    model->is_order_known = !list_is_type_order(sort);
    if (!model->is_order_known)
        return;
    list_numbers_t results;
    for (u32 item : run->world.orders[sort]) {
        if (model->index_of[item] != LIST_NONE)
            results.push_back(item);
    }
    set_results(run, model, results);
}

inline numbers_set_t get_found_of(const list_model_t *model, const numbers_set_t &items) {
    numbers_set_t found;
    for (u32 item : items) {
        if (model->index_of[item] != LIST_NONE)
            found.insert(item);
    }
    return found;
}

inline bool is_possible(const std::vector<numbers_set_t> &selections, const numbers_set_t &items) {
    return std::find(selections.begin(), selections.end(), items) != selections.end();
}

inline void add_possible(std::vector<numbers_set_t> *selections, const numbers_set_t &items) {
    if (!is_possible(*selections, items))
        selections->push_back(items);
}

// The worker has come to its end by itself.
inline void end_running(list_run_t *run) {
    if (run->running == RUNNING_SEARCH) {
        std::vector<numbers_set_t> selections;
        for (const numbers_set_t &items : run->running_model->selections)
            add_possible(&selections, get_found_of(run->running_model, items));
        run->running_model->selections = selections;
    }
    run->running = RUNNING_NOTHING;
    run->running_model = nullptr;
}

inline list_numbers_t read_results(list_run_t *run, list_model_t *model) {
    list_numbers_t results;
    for (i32 i = 0, count = static_cast<i32>(db_query_local_ops.get_result_count(model->query)); i < count;
         i++)
        results.push_back(run->world.number_of(db_get_result_item(model->query, i)));
    return results;
}

inline std::string get_type_name(list_run_t *run, list_model_t *model, u32 item) {
    const std::string &name = run->world.items[item].name;
    size_t dot = name.rfind('.');
    std::string extension = dot == name.npos ? "" : name.substr(dot + 1);
    return db_extended_info_get_type_name(model->query->extended_info, extension.data(),
                                          static_cast<u32>(extension.size()));
}

// Folders by name, then files, those of one type together and by name; in whatever order the types stand.
inline void check_type_order(list_run_t *run, list_model_t *model, list_numbers_t results) {
    list_numbers_t sorted = results, expected = model->results;
    std::sort(sorted.begin(), sorted.end());
    std::sort(expected.begin(), expected.end());
    ASSERT_EQ(expected, sorted);
    if (model->sort & DB_SORT_DESCENDING)
        std::reverse(results.begin(), results.end());
    std::set<std::string> types;
    for (size_t i = 0; i < results.size(); i++) {
        const list_item_t &item = run->world.items[results[i]];
        std::string type = item.is_folder ? "folder" : "file " + get_type_name(run, model, results[i]);
        if (!types.insert(type).second) {
            const list_item_t &before = run->world.items[results[i - 1]];
            std::string type_before =
                before.is_folder ? "folder" : "file " + get_type_name(run, model, results[i - 1]);
            ASSERT_EQ(type_before, type) << "row " << i;
            ASSERT_LT(before.place, item.place) << "row " << i;
        } else {
            ASSERT_TRUE(i == 0 || !item.is_folder) << "row " << i;
        }
    }
}

// Leaves one possibility of each thing.
inline void settle(list_run_t *run, list_model_t *model) {
    end_running(run);
    if (!model->is_order_known) {
        list_numbers_t results = read_results(run, model);
        check_type_order(run, model, results);
        set_results(run, model, results);
        model->is_order_known = true;
    }
    if (model->selections.size() > 1) {
        numbers_set_t selected;
        for (i32 i = 0; i < model->count(); i++) {
            if (db_query_local_ops.is_result_selected(model->query, i))
                selected.insert(model->results[static_cast<u32>(i)]);
        }
        EXPECT_TRUE(is_possible(model->selections, selected)) << "selected after a search that was cut short";
        model->selections = {selected};
    }
}

// --- Checks ------------------------------------------------------------------------------------------------

inline void check_row(list_run_t *run, list_model_t *model, i32 index) {
    db_query_t *query = model->query;
    db_result_t result;
    if (index < 0 || index >= model->count()) {
        EXPECT_FALSE(db_get_result(query, index, &result));
        EXPECT_FALSE(result.item || db_get_result_item(query, index));
        EXPECT_TRUE(db_query_local_ops.is_folder_result(query, index));
        EXPECT_FALSE(db_query_local_ops.is_root_result(query, index) ||
                     db_query_local_ops.is_result_selected(query, index) ||
                     db_query_local_ops.is_ghost_result(query, index));
        return;
    }
    u32 number = model->results[static_cast<u32>(index)];
    const list_item_t &item = run->world.items[number];
    ASSERT_EQ(item.item, db_get_result_item(query, index)) << "row " << index;
    ASSERT_TRUE(db_get_result(query, index, &result));
    EXPECT_TRUE(result.item == item.item && result.is_folder == item.is_folder) << "row " << index;
    EXPECT_EQ(item.is_folder, db_query_local_ops.is_folder_result(query, index)) << "row " << index;
    EXPECT_EQ(item.is_root, db_query_local_ops.is_root_result(query, index)) << "row " << index;
    EXPECT_EQ(model->selected().count(number) != 0, db_query_local_ops.is_result_selected(query, index))
        << "row " << index;
    EXPECT_EQ(model->ghosts.count(number) != 0, db_query_local_ops.is_ghost_result(query, index))
        << "row " << index;
}

inline void check_texts(list_run_t *run, list_model_t *model, i32 index) {
    bool is_bad = index < 0 || index >= model->count();
    list_item_t item = is_bad ? list_item_t{} : run->world.items[model->results[static_cast<u32>(index)]];
    utf8_buf_t text;
    utf8_buf_init(&text);
    db_query_local_ops.get_result_full_path_name(model->query, index, &text);
    EXPECT_EQ(item.path, text.data) << "row " << index;
    db_query_local_ops.get_result_path(model->query, index, &text);
    EXPECT_EQ(item.parent, text.data) << "row " << index;
    db_query_local_ops.get_result_name(model->query, index, &text);
    EXPECT_EQ(item.name, text.data) << "row " << index;
    utf8_buf_kill(&text);
}

// The selected rows in their order.
inline list_numbers_t get_selected_rows(const list_model_t *model) {
    list_numbers_t rows;
    for (u32 item : model->selected())
        rows.push_back(model->index_of[item]);
    std::sort(rows.begin(), rows.end());
    return rows;
}

// The n-th selected one; `rows` are all.
inline void check_selected(list_run_t *run, list_model_t *model, const list_numbers_t &rows, i32 n) {
    db_query_t *query = model->query;
    utf8_buf_t text;
    utf8_buf_init(&text);
    db_query_local_ops.get_selection_full_path_name(query, n, &text);
    if (n < 0 || static_cast<size_t>(n) >= rows.size()) {
        EXPECT_EQ(-1, db_query_local_ops.get_selection_result_index(query, n));
        EXPECT_STREQ("", text.data);
        EXPECT_TRUE(db_query_local_ops.is_folder_selection(query, n));
        EXPECT_FALSE(db_query_local_ops.is_root_selection(query, n));
    } else {
        u32 row = rows[static_cast<u32>(n)];
        const list_item_t &item = run->world.items[model->results[row]];
        EXPECT_EQ(static_cast<i32>(row), db_query_local_ops.get_selection_result_index(query, n))
            << "selected " << n;
        EXPECT_EQ(item.path, text.data) << "selected " << n;
        EXPECT_EQ(item.is_folder, db_query_local_ops.is_folder_selection(query, n)) << "selected " << n;
        EXPECT_EQ(item.is_root, db_query_local_ops.is_root_selection(query, n)) << "selected " << n;
    }
    utf8_buf_kill(&text);
}

template<class Items>
inline i64 sum_sizes(const list_run_t *run, const list_model_t *model, const Items &items) {
    i64 sum = -1;
    for (u32 number : items) {
        const list_item_t &item = run->world.items[number];
        if (!item.is_folder && model->has_sums && run->world.has_sizes())
            sum = std::max<i64>(sum, 0) + (item.size == VALUE_UNKNOWN ? 0 : static_cast<i64>(item.size));
    }
    return sum;
}

inline void check_counts(list_run_t *run, list_model_t *model) {
    db_query_t *query = model->query;
    ASSERT_EQ(model->results.size(), db_query_local_ops.get_result_count(query));
    if (!list_is_history_order(model->sort)) {
        auto folders = std::count_if(model->results.begin(), model->results.end(),
                                     [&](u32 number) { return run->world.items[number].is_folder; });
        EXPECT_EQ(folders, db_get_folder_result_count(query));
        EXPECT_EQ(model->count() - folders, db_get_file_result_count(query));
    }
    EXPECT_EQ(model->selected().size(), db_query_local_ops.get_selection_count(query));
    EXPECT_EQ(model->sort, db_query_local_ops.get_sort(query));
    EXPECT_EQ(sum_sizes(run, model, model->results), db_query_local_ops.get_total_result_size(query));
    EXPECT_EQ(sum_sizes(run, model, model->selected()), db_query_local_ops.get_total_selection_size(query));
}

inline void check_ref(list_model_t *model, const list_model_t::ref_t &ref) {
    i32 expected =
        ref.item == LIST_NONE ? -1 : static_cast<i32>(model->index_of[ref.item]); // LIST_NONE is -1
    EXPECT_EQ(expected, db_query_local_ops.itemref_get(model->query, ref.ref))
        << "reference " << &ref - model->refs.data();
}

// The row at an index must have been opened as often, or as lately, as any; none when no row ever was.
inline void check_top_run(list_run_t *run, list_model_t *model, i32 index, bool by_count) {
    auto value = [&](u32 number) {
        const list_item_t &item = run->world.items[number];
        return std::pair<u64, u64>(by_count ? item.run_count : 0, item.run_date);
    };
    std::pair<u64, u64> best;
    for (u32 number : model->results)
        best = std::max(best, value(number));
    if (best.second == 0)
        EXPECT_EQ(-1, index);
    else if (index < 0 || index >= model->count())
        ADD_FAILURE() << "row " << index << " of those that were opened";
    else
        EXPECT_EQ(best, value(model->results[static_cast<u32>(index)])) << "row " << index;
}

inline void check_runs(list_run_t *run, list_model_t *model) {
    check_top_run(run, model, db_query_local_ops.get_top_run_result_index(model->query), true);
    check_top_run(run, model, db_query_local_ops.get_last_run_result_index(model->query), false);
}

inline void check_some(list_run_t *run, list_model_t *model) {
    settle(run, model);
    check_counts(run, model);
    for (u32 i = 0; i < 3; i++)
        check_row(run, model, run->pick_index(model));
    if (run->chance(20)) {
        check_texts(run, model, run->pick_index(model));
        list_numbers_t rows = get_selected_rows(model);
        check_selected(run, model, rows, static_cast<i32>(run->pick(static_cast<u32>(rows.size() + 2))) - 1);
    }
    if (!model->refs.empty())
        check_ref(model, model->refs[run->pick(static_cast<u32>(model->refs.size()))]);
}

inline void check_all(list_run_t *run, list_model_t *model) {
    settle(run, model);
    check_counts(run, model);
    for (i32 i = -1; i <= model->count() && !testing::Test::HasFailure(); i++)
        check_row(run, model, i);
    list_numbers_t rows = get_selected_rows(model);
    for (i32 n = -1; n <= static_cast<i32>(rows.size()) && !testing::Test::HasFailure(); n++)
        check_selected(run, model, rows, n);
    for (const list_model_t::ref_t &ref : model->refs)
        check_ref(model, ref);
    check_runs(run, model);
}

} // namespace findwright
