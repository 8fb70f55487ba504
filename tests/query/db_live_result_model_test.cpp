// Open results under live updates: after every burst of random changes each query is compared with a new one
// that searches for the same, and its selection, references and ghosts with what they should be.
//
// FINDWRIGHT_LIVE_RESULT_SEED and _STEPS in the environment replace the seed and the number of bursts.
#include "base/utf8.h"
#include "db/db_exclude.h"
#include "os/event.h"
#include "query/db_ghost.h"
#include "query/db_itemref.h"
#include "query/db_live_result.h"
#include "query/db_selection.h"
#include "support/live_world.h"
#include "support/test_db.h"
#include "track/db_live_internal.h"
#include "track/db_run_history.h"

#include <algorithm>
#include <cstdlib>
#include <deque>
#include <gtest/gtest.h>
#include <set>

namespace findwright {
namespace {

struct live_search_t {
    const char *text;
    u32 sort;
    bool in_place; // with all columns, and as long as no large tree moves
    bool match_path = false, match_regex = false;
};
constexpr u32 DOWN = DB_SORT_DESCENDING;
constexpr live_search_t live_searches[] = {
    {"", DB_SORT_NAME_ASCENDING, true},
    {"", DB_SORT_PATH_ASCENDING + DOWN, true},
    {"", DB_SORT_SIZE_ASCENDING + DOWN, true},
    {"a", DB_SORT_DATE_MODIFIED_ASCENDING, true},
    {"b", DB_SORT_EXTENSION_ASCENDING + DOWN, true},
    {"a", DB_SORT_NAME_ASCENDING + DOWN, true, true},
    {"\\a", DB_SORT_NAME_ASCENDING, true, true},
    {"path:a\\b", DB_SORT_SIZE_ASCENDING, true},
    {"*.txt", DB_SORT_ATTRIBUTES_ASCENDING, true},
    {"^.e", DB_SORT_DATE_CREATED_ASCENDING, true, false, true},
    {"b.*x", DB_SORT_DATE_ACCESSED_ASCENDING + DOWN, true, true, true},
    {"size:>3000", DB_SORT_NAME_ASCENDING, true},
    {"attrib:a !a", DB_SORT_PATH_ASCENDING, true},
    {"path:len:<24", DB_SORT_NAME_ASCENDING, true},
    {"parents:<3 ext:txt;c", DB_SORT_EXTENSION_ASCENDING, true},
    {"runcount:>1", DB_SORT_PATH_ASCENDING, true},
    {"", DB_SORT_RUN_COUNT_ASCENDING, true},
    {"a|e", DB_SORT_RUN_COUNT_ASCENDING + DOWN, true},
    {"", DB_SORT_DATE_RUN_ASCENDING + DOWN, true},
    {"", DB_SORT_DATE_RECENTLY_CHANGED_ASCENDING, true},
    {"b", DB_SORT_DATE_RECENTLY_CHANGED_ASCENDING + DOWN, true},
    {"C:\\a\\", DB_SORT_NAME_ASCENDING, false},
    {"C:\\a\\ b", DB_SORT_PATH_ASCENDING + DOWN, false},
    {"!C:\\a\\", DB_SORT_SIZE_ASCENDING, false},
    {"C:", DB_SORT_NAME_ASCENDING, true, true},
    {"parent:C:\\a", DB_SORT_NAME_ASCENDING, false},
    {"parent:C:\\", DB_SORT_DATE_RUN_ASCENDING, false},
    {"dupe:", DB_SORT_NAME_ASCENDING, false},
    {"sizedupe:", DB_SORT_SIZE_ASCENDING, false},
    {"empty:", DB_SORT_DATE_RECENTLY_CHANGED_ASCENDING + DOWN, false},
    {"childcount:>2", DB_SORT_NAME_ASCENDING + DOWN, false},
    {"child:a", DB_SORT_PATH_ASCENDING, false},
    {"", DB_SORT_FILE_LIST_FILENAME_ASCENDING, false},
    {"a", DB_SORT_TYPE_ASCENDING, false},
};

// A query, and what of it must stay. Items are told by the world's nodes.
struct live_query_t {
    db_query_t *query;
    const live_search_t *search;
    std::set<u32> selected;
    struct ref_t {
        db_itemref_t *ref;
        u32 node; // 0: empty
    };
    ref_t refs[2];
    u32 notifications;
    std::vector<mem_ref_t> results; // of the last check
};

struct live_run_t {
    live_world_t world;
    std::deque<live_query_t> queries; // callbacks have their addresses
    db_query_t *fresh = nullptr;
    std::map<mem_ref_t, u32> nodes; // by their records
    bool moves_large = false;       // trees that move are never few items
    bool has_all = false;           // columns

    u32 pick(u32 below) { return static_cast<u32>(world.random() % below); }
};

u32 from_environment(const char *name, u32 otherwise) {
    const char *text = std::getenv(name);
    return text ? static_cast<u32>(std::strtoul(text, nullptr, 10)) : otherwise;
}

db_query_params_t params_of(const live_search_t *search) {
    db_query_params_t params = {};
    params.search = search->text;
    params.filter_search = "";
    params.sort = search->sort;
    params.match_path = search->match_path;
    params.match_regex = search->match_regex;
    params.calculate_total_size = true;
    return params;
}

void find_nodes(live_run_t *run) {
    run->nodes.clear();
    for (const auto &[number, node] : run->world.nodes)
        run->nodes[mem_ref(live_world_find(&run->world, number))] = number;
}

// As they stand in the arrays, without a look at any record.
std::vector<mem_ref_t> read_results(db_query_t *query) {
    std::vector<mem_ref_t> results;
    for (u32 i = 0, count = db_get_result_count(query); i < count; i++)
        results.push_back(mem_ref(db_get_result_item(query, static_cast<i32>(i))));
    return results;
}

std::set<u32> read_selected(live_run_t *run, db_query_t *query, const std::vector<mem_ref_t> &results) {
    std::set<u32> selected;
    for (u32 i = 0; i < results.size(); i++) {
        if (db_is_result_selected(query, static_cast<i32>(i)))
            selected.insert(run->nodes.at(results[i]));
    }
    return selected;
}

std::string describe(live_run_t *run, const std::vector<mem_ref_t> &results) {
    std::string text;
    for (mem_ref_t ref : results)
        text += live_world_path(&run->world, run->nodes.at(ref)) + "\n";
    return text;
}

// --- Checks ------------------------------------------------------------------------------------------------

// Whatever waits for a new search: every result is an item that is there, and there once.
void check_sound(live_run_t *run, live_query_t *model, const std::vector<mem_ref_t> &results) {
    std::set<mem_ref_t> seen;
    for (mem_ref_t ref : results) {
        ASSERT_TRUE(run->nodes.count(ref)) << "a result that is no item";
        ASSERT_TRUE(seen.insert(ref).second) << "a result twice";
    }
    ASSERT_EQ(results.size(), model->query->selection.size);
}

u64 sum_sizes(live_run_t *run, const std::set<u32> &nodes, bool *has_files) {
    u64 sum = 0;
    *has_files = false;
    for (u32 node : nodes) {
        const live_node_t &found = run->world.nodes.at(node);
        *has_files |= !found.is_folder;
        sum += found.is_folder || found.info.size == VALUE_UNKNOWN ? 0 : found.info.size;
    }
    return sum;
}

void check_true(live_run_t *run, live_query_t *model, const std::vector<mem_ref_t> &results, bool is_single) {
    db_query_t *query = model->query, *fresh = run->fresh;
    db_query_params_t params = params_of(model->search);
    params.sort = db_get_sort(query);
    array_copy(&fresh->ghost_folders, &query->ghost_folders);
    array_copy(&fresh->ghost_files, &query->ghost_files);
    db_extended_info_clear(fresh->extended_info); // nobody tells it of records that have gone
    db_query_search(fresh, &params);
    std::vector<mem_ref_t> wanted = read_results(fresh);
    if (results != wanted) {
        ADD_FAILURE() << "wanted\n" << describe(run, wanted) << "found\n" << describe(run, results);
        return;
    }
    EXPECT_EQ(db_query_get_total_result_size(fresh), db_query_get_total_result_size(query));
    std::set<u32> selected = read_selected(run, query, results), expected;
    std::set<mem_ref_t> found(results.begin(), results.end());
    for (u32 node : model->selected) {
        if (run->world.nodes.count(node) && found.count(mem_ref(live_world_find(&run->world, node))))
            expected.insert(node);
    }
    if (is_single) { // else an item may have been no result for a moment
        EXPECT_EQ(expected, selected);
    }
    EXPECT_TRUE(std::includes(expected.begin(), expected.end(), selected.begin(), selected.end()));
    EXPECT_EQ(selected.size(), db_get_selection_count(query));
    bool has_files;
    u64 sum = sum_sizes(run, selected, &has_files);
    i64 total = has_files && run->world.db->layout.flags & DB_FLAG_SIZE ? static_cast<i64>(sum) : -1;
    EXPECT_EQ(total, db_query_get_total_selection_size(query));
    model->selected = selected;
}

void check_refs(live_run_t *run, live_query_t *model, const std::vector<mem_ref_t> &results) {
    for (live_query_t::ref_t &ref : model->refs) {
        if (!run->world.nodes.count(ref.node))
            ref.node = 0;
        mem_ref_t item = ref.node ? mem_ref(live_world_find(&run->world, ref.node)) : 0;
        auto place = std::find(results.begin(), results.end(), item);
        i32 index = place != results.end() ? static_cast<i32>(place - results.begin()) : -1;
        EXPECT_EQ(index, db_itemref_get(model->query, ref.ref));
    }
    // Ghosts are items that are there.
    for (const array_t *ghosts : {&model->query->ghost_folders, &model->query->ghost_files}) {
        u32 page = 0, value;
        for (i32 position = -1; array_next_to(ghosts, &page, &position, &value);)
            EXPECT_TRUE(run->nodes.count(value));
    }
}

// Until nothing is at work, and all that is stale has been searched again.
void settle(live_run_t *run) {
    auto is_stale = [](const live_query_t &model) { return model.query->live_result->is_stale; };
    do {
        test_db_wait(run->world.db);
    } while (!db_is_ready(run->world.db) || std::any_of(run->queries.begin(), run->queries.end(), is_stale));
}

void check_query(live_run_t *run, live_query_t *model, bool is_single) {
    bool is_stale = model->query->live_result->is_stale;
    SCOPED_TRACE(std::string(model->search->text) + ", sort " + std::to_string(db_get_sort(model->query)));
    bool is_own_order = db_get_sort(model->query) == model->search->sort;
    EXPECT_FALSE(is_stale && is_own_order && model->search->in_place && run->has_all && !run->moves_large);
    std::vector<mem_ref_t> results = read_results(model->query);
    check_sound(run, model, results);
    if (testing::Test::HasFatalFailure())
        return;
    if (!is_stale)
        check_true(run, model, results, is_single);
    if (testing::Test::HasFailure())
        return;
    check_refs(run, model, results);
    settle(run);
    if (is_stale) {
        results = read_results(model->query);
        EXPECT_FALSE(model->query->live_result->is_stale);
        check_true(run, model, results, is_single);
        check_refs(run, model, results);
    }
    EXPECT_TRUE(results == model->results || model->notifications != 0) << "nobody was told";
    model->results = results;
    model->notifications = 0;
}

// --- What happens ------------------------------------------------------------------------------------------

void notified(void *param, u32 code) {
    static_cast<live_query_t *>(param)->notifications += code == DB_QUERY_RESULTS_CHANGED;
}

void search(live_run_t *run, live_query_t *model) {
    db_query_params_t params = params_of(model->search);
    db_query_search(model->query, &params);
    settle(run);
    model->results = read_results(model->query);
    model->selected = read_selected(run, model->query, model->results);
}

// What the owner of a query does between bursts.
void use_query(live_run_t *run, live_query_t *model) {
    db_query_t *query = model->query;
    i32 count = static_cast<i32>(db_get_result_count(query));
    u32 kind = run->pick(12);
    if (kind == 0) {
        db_sort(query, run->pick(DB_SORT_COUNT));
        settle(run);
        model->results = read_results(query);
    } else if (kind == 1) {
        db_ghost_selection(query); // those of before are results until the next search
        search(run, model);
    } else if (kind == 2 || kind == 3) {
        db_clear_ghosts(query);
        search(run, model);
    } else if (kind == 4) {
        db_deselect_all(query);
        model->selected.clear();
    } else if (count != 0) {
        i32 row = static_cast<i32>(run->pick(static_cast<u32>(count)));
        u32 node = run->nodes.at(model->results[static_cast<size_t>(row)]);
        if (kind < 9) {
            db_select_result(query, row);
            model->selected.insert(node);
        } else {
            live_query_t::ref_t *ref = &model->refs[run->pick(2)];
            db_itemref_set(query, ref->ref, row);
            ref->node = node;
        }
    }
}

void change_runs(live_run_t *run) {
    u32 node = live_world_any(&run->world, run->pick(2));
    if (node == 0)
        return;
    const db_item_t *item = live_world_find(&run->world, node);
    bool is_folder = run->world.nodes.at(node).is_folder;
    if (run->pick(4) == 0)
        db_run_history_set_item(run->world.db, item, is_folder, run->pick(3), run->world.clock);
    else
        db_run_history_add_item(run->world.db, item, is_folder, 1, ++run->world.clock);
}

void run_burst(live_run_t *run, u32 count, std::string *problem) {
    for (u32 i = 0; i < count && problem->empty(); i++) {
        if (run->pick(5) == 0)
            change_runs(run);
        else
            live_world_step(&run->world, problem);
    }
}

// --- The test ----------------------------------------------------------------------------------------------

struct live_case_t {
    const char *name;
    u32 flags;
    db_index_type_t type;
    u32 few;  // trees up to this size go item by item
    u32 part; // of the bursts
};
constexpr u32 NO_FOLDER_SIZE = TEST_FLAGS_ALL & ~DB_FLAG_FOLDER_SIZE;
const live_case_t live_cases[] = {
    {"item by item", TEST_FLAGS_ALL, DB_INDEX_TYPE_FOLDER, 1000000, 2},
    {"in passes", TEST_FLAGS_ALL, DB_INDEX_TYPE_NTFS, 0, 2},
    {"few columns", DB_FLAG_SIZE | DB_FLAG_FAST_SIZE | DB_FLAG_FAST_PATH, DB_INDEX_TYPE_FOLDER, 8, 1},
    {"gathered orders", NO_FOLDER_SIZE &DB_FLAG_COLUMNS, DB_INDEX_TYPE_FOLDER, 1000000, 1},
    {"names only", 0, DB_INDEX_TYPE_FOLDER, 8, 1},
};

void open_queries(live_run_t *run) {
    for (const live_search_t &row : live_searches) {
        run->queries.push_back({});
        live_query_t *model = &run->queries.back();
        model->search = &row;
        model->query = db_query_create(run->world.db, false, notified, model);
        for (live_query_t::ref_t &ref : model->refs)
            ref = {db_itemref_create(model->query), 0};
        search(run, model);
    }
    run->fresh = db_query_create(run->world.db, false, nullptr, nullptr);
    run->fresh->live = nullptr;
}

void close_queries(live_run_t *run) {
    for (live_query_t &model : run->queries) {
        for (live_query_t::ref_t &ref : model.refs)
            db_itemref_destroy(model.query, ref.ref);
        db_destroy_query(model.query);
    }
    db_destroy_query(run->fresh);
}

void run_case(const live_case_t &row, u32 seed, u32 bursts) {
    live_run_t run;
    live_world_create(&run.world, row.flags, row.type, false, seed);
    run.moves_large = row.few == 0;
    run.has_all = row.flags == TEST_FLAGS_ALL;
    db_live_few = row.few;
    live_world_fill(&run.world, 120);
    find_nodes(&run);
    open_queries(&run);
    std::string problem;
    for (u32 i = 0; i < bursts && problem.empty() && !testing::Test::HasFailure(); i++) {
        SCOPED_TRACE("seed " + std::to_string(seed) + ", burst " + std::to_string(i));
        u32 steps = run.pick(2) ? 1 : 1 + run.pick(12);
        run_burst(&run, steps, &problem);
        find_nodes(&run);
        if (run.pick(3) == 0) // by an owner that has not looked at the results since
            db_sort(run.queries[run.pick(static_cast<u32>(run.queries.size()))].query,
                    run.pick(DB_SORT_COUNT));
        std::vector<live_query_t *> order;
        for (live_query_t &model : run.queries)
            order.push_back(&model);
        // Whether something is searched again before the others are looked at must not matter.
        for (live_query_t *model : order) {
            check_query(&run, model, steps == 1);
            if (testing::Test::HasFailure())
                break;
        }
        for (u32 n = 0; n < 6 && !testing::Test::HasFailure(); n++)
            use_query(&run, order[run.pick(static_cast<u32>(order.size()))]);
        settle(&run);
    }
    EXPECT_EQ("", problem);
    close_queries(&run);
    live_world_destroy(&run.world);
}

TEST(DbLiveResultModel, StaysWhatANewSearchFinds) {
    u32 seed = from_environment("FINDWRIGHT_LIVE_RESULT_SEED", 1);
    u32 bursts = from_environment("FINDWRIGHT_LIVE_RESULT_STEPS", 12);
    u32 few = db_live_few;
    db_result_search_interval = 0;
    for (const live_case_t &row : live_cases) {
        SCOPED_TRACE(row.name);
        run_case(row, seed, bursts * row.part);
        if (HasFailure())
            break;
    }
    db_live_few = few;
    db_result_search_interval = DB_RESULT_SEARCH_INTERVAL;
}

} // namespace
} // namespace findwright
