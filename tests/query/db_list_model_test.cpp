// The list of results against a plain model of it: random searches, orders, selections, references, ghosts
// and cancels on several queries of one database.
//
// FINDWRIGHT_LIST_SEED and FINDWRIGHT_LIST_STEPS in the environment replace the seed and the number of steps.
// Threads run as they like, so that the same seed need not fail each time.
#include "base/mem.h"
#include "os/event.h"
#include "query/list_model_test_support.h"

#include <cstdlib>

namespace findwright {
namespace {

// --- Steps -------------------------------------------------------------------------------------------------

void step_search(list_run_t *run, list_model_t *model) {
    u32 number = run->pick(static_cast<u32>(list_searches.size()));
    const list_search_t &search = list_searches[number];
    db_query_params_t params = {};
    params.search = search.text;
    params.filter_search = search.filter;
    params.match_case = search.match_case;
    params.match_path = search.match_path;
    params.hide_empty_search_results = search.hide_empty;
    params.clear_selection = run->chance(10);
    params.calculate_total_size = run->chance(70);
    params.sort = run->pick(DB_SORT_COUNT);
    run->note(model, std::string("search '") + search.text + "' filter '" + search.filter + "' sort " +
                         std::to_string(params.sort) + (params.clear_selection ? " clear" : ""));
    // This query's search is cut short, unless it had ended by itself.
    std::vector<numbers_set_t> cut;
    if (run->running == RUNNING_SEARCH && run->running_model == model)
        cut = model->selections;
    db_query_local_ops.search(model->query, &params);
    end_running(run);
    for (const numbers_set_t &items : cut)
        add_possible(&model->selections, items);
    if (params.clear_selection) {
        model->selections = {{}};
        for (list_model_t::ref_t &ref : model->refs)
            ref.item = LIST_NONE;
    }
    list_numbers_t found;
    for (u32 i = 0; i < run->world.items.size(); i++) {
        if (run->world.found[number][i] || model->ghosts.count(i))
            found.push_back(i);
    }
    set_results(run, model, found);
    set_order(run, model, params.sort);
    model->has_sums = params.calculate_total_size;
    model->expects_notification = true;
    run->running = RUNNING_SEARCH;
    run->running_model = model;
}

void start_sort(list_run_t *run, list_model_t *model, u32 sort) {
    end_running(run); // a search ends, a sort of the same query may be cut short
    set_order(run, model, sort);
    model->expects_notification = true;
    run->running = RUNNING_SORT;
    run->running_model = model;
}

void step_sort(list_run_t *run, list_model_t *model) {
    u32 sort = run->chance(25) ? model->sort ^ DB_SORT_DESCENDING : run->pick(DB_SORT_COUNT);
    run->note(model, "sort " + std::to_string(sort));
    db_query_local_ops.sort(model->query, sort, 0, 0);
    start_sort(run, model, sort);
}

void step_refresh(list_run_t *run, list_model_t *model) {
    run->note(model, "refresh");
    db_query_local_ops.refresh(model->query);
    start_sort(run, model, model->sort);
}

// Now and then in the middle of what the worker does.
void wait_a_little(list_run_t *run) {
    u32 start = os_get_tick_count(), time = run->chance(50) ? run->pick(150) : 0;
    while (os_get_tick_count() - start < time) {
    }
}

void step_cancel(list_run_t *run, list_model_t *model) {
    wait_a_little(run);
    bool was_running = db_query_local_ops.cancel_query(model->query);
    run->note(model, std::string("cancel: ") + (was_running ? "stopped" : "nothing to stop"));
    EXPECT_TRUE(run->running != RUNNING_NOTHING || !was_running);
    bool is_own = was_running && run->running_model == model;
    running_t kind = run->running;
    end_running(run);
    if (is_own && kind == RUNNING_SEARCH && db_query_local_ops.get_result_count(model->query) == 0) {
        set_results(run, model, {});
        model->selections = {{}};
        model->is_order_known = true;
    } else if (is_own && kind == RUNNING_SORT) {
        // It had ended, or the results are in name order again.
        u32 sort = db_query_local_ops.get_sort(model->query);
        EXPECT_TRUE(sort == model->sort || sort == DB_SORT_NAME_ASCENDING) << sort;
        set_order(run, model, sort);
        model->expects_notification = true;
    }
}

void step_select(list_run_t *run, list_model_t *model) {
    settle(run, model);
    i32 index = run->pick_index(model);
    u32 kind = run->pick(3);
    run->note(model, std::string(kind == 0   ? "select "
                                 : kind == 1 ? "deselect "
                                             : "invert ") +
                         std::to_string(index));
    if (kind == 0)
        db_query_local_ops.select_result(model->query, index);
    else if (kind == 1)
        db_query_local_ops.deselect_result(model->query, index);
    else
        db_query_local_ops.invert_result_selection(model->query, index);
    if (index < 0 || index >= model->count())
        return;
    u32 item = model->results[static_cast<u32>(index)];
    numbers_set_t &selected = model->selected();
    if (kind == 0 || (kind == 2 && !selected.count(item)))
        selected.insert(item);
    else
        selected.erase(item);
}

void step_range(list_run_t *run, list_model_t *model) {
    settle(run, model);
    i32 first = run->pick_index(model), end = run->pick_index(model);
    if (run->chance(10))
        end += 1000;
    if (run->chance(5))
        first -= 1000;
    run->note(model, "range " + std::to_string(first) + " " + std::to_string(end));
    db_query_local_ops.select_result_range(model->query, first, end);
    numbers_set_t &selected = model->selected();
    for (i32 i = std::max(first, 0); i < std::min(end, model->count()); i++)
        selected.insert(model->results[static_cast<u32>(i)]);
}

void step_all(list_run_t *run, list_model_t *model) {
    settle(run, model);
    u32 kind = run->pick(4);
    run->note(model, kind == 0 ? "select all" : kind == 1 ? "deselect all" : "invert all");
    numbers_set_t &selected = model->selected();
    if (kind == 0) {
        db_query_local_ops.select_all(model->query);
        selected.insert(model->results.begin(), model->results.end());
    } else if (kind == 1) {
        db_query_local_ops.deselect_all(model->query);
        selected.clear();
    } else {
        db_query_local_ops.invert_all_selection(model->query);
        for (u32 item : model->results) {
            if (!selected.erase(item))
                selected.insert(item);
        }
    }
}

void step_ref(list_run_t *run, list_model_t *model) {
    settle(run, model);
    if (model->refs.empty() || (model->refs.size() < 6 && run->chance(30))) {
        run->note(model, "new reference");
        model->refs.push_back({db_query_local_ops.itemref_create(model->query), LIST_NONE});
        return;
    }
    u32 number = run->pick(static_cast<u32>(model->refs.size()));
    list_model_t::ref_t *ref = &model->refs[number];
    if (run->chance(20)) {
        run->note(model, "destroy reference " + std::to_string(number));
        db_query_local_ops.itemref_destroy(model->query, ref->ref);
        model->refs.erase(model->refs.begin() + number);
        return;
    }
    i32 index = run->pick_index(model);
    run->note(model, "reference " + std::to_string(number) + " to " + std::to_string(index));
    db_query_local_ops.itemref_set(model->query, ref->ref, index);
    ref->item = index < 0 || index >= model->count() ? LIST_NONE : model->results[static_cast<u32>(index)];
}

void step_ghosts(list_run_t *run, list_model_t *model) {
    settle(run, model);
    if (run->chance(50)) {
        run->note(model, "ghosts");
        db_query_local_ops.ghost_selection(model->query);
        model->ghosts = model->selected();
    } else {
        run->note(model, "no ghosts");
        db_query_local_ops.clear_ghosts(model->query);
        model->ghosts.clear();
    }
}

void step_nearest(list_run_t *run, list_model_t *model) {
    static const char *const texts[] = {"a",    "A",     "ab", "é",  "e1",   "E",
                                        "read", "zeta9", "q",  "no", "x-y7", "\\"};
    settle(run, model);
    std::string text = texts[run->pick(std::size(texts))], fold = list_fold(text);
    i32 start = static_cast<i32>(run->pick(static_cast<u32>(model->count()) + 1)), expected = -1;
    run->note(model, "nearest '" + text + "' from " + std::to_string(start));
    for (i32 i = 0; i < model->count() && expected < 0; i++) {
        i32 row = (start + i) % model->count();
        if (list_fold(run->world.items[model->results[static_cast<u32>(row)]].name)
                .compare(0, fold.size(), fold) == 0)
            expected = row;
    }
    EXPECT_EQ(expected, db_query_local_ops.find_nearest_string_match_result(
                            model->query, text.c_str(), static_cast<u32>(text.size()), start));
}

void count_notification(void *user_data, u32 code) {
    static_cast<list_model_t *>(user_data)->notifications += code == DB_QUERY_RESULTS_CHANGED;
}

void create_query(list_run_t *run, list_model_t *model) {
    *model = {};
    model->query = db_query_create(run->world.db, false, count_notification, model);
    model->is_order_known = true;
    set_results(run, model, {});
}

void destroy_query(list_run_t *run, list_model_t *model) {
    db_query_local_ops.destroy_query(model->query);
    end_running(run);
    for (list_model_t::ref_t &ref : model->refs) { // they outlive the query
        EXPECT_FALSE(ref.ref->item);
        db_query_local_ops.itemref_destroy(nullptr, ref.ref);
    }
}

void step_destroy(list_run_t *run, list_model_t *model) {
    run->note(model, "destroy");
    destroy_query(run, model);
    create_query(run, model);
}

void step_idle(list_run_t *run, list_model_t *model) {
    if (run->chance(80)) {
        run->note(model, "events");
        event_dispatch();
        return;
    }
    run->note(model, "wait until it is ready");
    test_db_wait(run->world.db);
    end_running(run);
    for (list_model_t &each : run->models) {
        EXPECT_TRUE(!each.expects_notification || each.notifications != 0);
        each.notifications = each.expects_notification = false;
    }
}

const struct {
    u32 percent;
    void (*run)(list_run_t *run, list_model_t *model);
} steps[] = {
    {15, step_search}, {13, step_sort},   {5, step_cancel},  {22, step_select},
    {9, step_range},   {8, step_all},     {10, step_ref},    {4, step_ghosts},
    {5, step_nearest}, {1, step_destroy}, {2, step_refresh}, {6, step_idle},
};

void do_step(list_run_t *run) {
    list_model_t *model = &run->models[run->pick(static_cast<u32>(run->models.size()))];
    u32 number = run->pick(100);
    const auto *step = steps;
    for (; number >= step->percent; step++)
        number -= step->percent;
    step->run(run, model);
    // The worker is often left alone, so that the next steps come while it is at work.
    if (run->running != RUNNING_NOTHING && run->chance(15))
        step_cancel(run, run->running_model);
    else if (run->running != RUNNING_NOTHING && run->chance(10))
        step_search(run, run->running_model);
    else if (run->running == RUNNING_NOTHING || run->chance(30))
        check_some(run, model);
}

// --- The test ----------------------------------------------------------------------------------------------

u32 get_number(const char *name, u32 by_default) {
    const char *text = std::getenv(name);
    return text ? static_cast<u32>(std::strtoul(text, nullptr, 10)) : by_default;
}

// `check_every`: steps between looks at all there is.
void run_steps(u32 seed, u32 count, u32 flags, u32 size, u32 check_every) {
    list_run_t run = {};
    run.random.seed(seed);
    list_world_create(&run.world, flags, size, seed);
    run.models.resize(3);
    for (list_model_t &model : run.models)
        create_query(&run, &model);
    u32 step = 0;
    for (; step < count && !testing::Test::HasFailure(); step++) {
        do_step(&run);
        if (step % check_every == 0)
            check_all(&run, &run.models[run.pick(static_cast<u32>(run.models.size()))]);
    }
    if (testing::Test::HasFailure()) {
        printf("FINDWRIGHT_LIST_SEED=%u, flags %X, %u items, step %u; the last steps, each with its query:\n",
               seed, flags, size, step);
        for (const std::string &line : run.log)
            printf("  %s\n", line.c_str());
    }
    for (list_model_t &model : run.models)
        destroy_query(&run, &model);
    list_world_destroy(&run.world);
}

TEST(DbListModel, RandomSteps) {
    static constexpr u32 STEPS = 100000;
    static constexpr u32 COLUMNS = 0x3F;
    const struct {
        u32 percent; // of the steps
        u32 flags, size, check_every;
    } worlds[] = {
        {40, TEST_FLAGS_ALL, 300, 40},
        {22, COLUMNS, 300, 40},
        {20, DB_FLAG_SIZE | DB_FLAG_DATE_MODIFIED | DB_FLAG_FAST_SIZE | DB_FLAG_FAST_PATH, 250, 40},
        {15, 0, 200, 40},
        {3, TEST_FLAGS_ALL & ~DB_FLAG_FAST_SIZE, 3000, 200}, // several pages of an array
    };
    u32 seed = get_number("FINDWRIGHT_LIST_SEED", 1), count = get_number("FINDWRIGHT_LIST_STEPS", STEPS);
    for (const auto &world : worlds) {
        if (!HasFailure())
            run_steps(seed++, count * world.percent / 100, world.flags, world.size, world.check_every);
    }
}

// --- Before the load, and across a rebuild -----------------------------------------------------------------

void check_empty(db_query_t *query, db_itemref_t *ref) {
    EXPECT_EQ(0u, db_query_local_ops.get_result_count(query));
    EXPECT_EQ(0u, db_query_local_ops.get_selection_count(query));
    EXPECT_EQ(-1, db_query_local_ops.get_selection_result_index(query, 0));
    EXPECT_FALSE(db_query_local_ops.is_result_selected(query, 0) ||
                 db_query_local_ops.is_ghost_result(query, 0));
    EXPECT_EQ(-1, db_query_local_ops.get_total_result_size(query));
    EXPECT_EQ(-1, db_query_local_ops.get_total_selection_size(query));
    EXPECT_EQ(-1, db_query_local_ops.find_nearest_string_match_result(query, "a", 1, 0));
    EXPECT_EQ(-1, db_query_local_ops.get_top_run_result_index(query));
    EXPECT_EQ(-1, db_query_local_ops.get_last_run_result_index(query));
    EXPECT_EQ(-1, db_query_local_ops.itemref_get(query, ref));
}

// All that changes something, of which nothing is left later.
void change_all(db_query_t *query, db_itemref_t *ref) {
    db_query_local_ops.select_all(query);
    db_query_local_ops.itemref_set(query, ref, 0);
    db_query_local_ops.ghost_selection(query);
    db_query_local_ops.refresh(query);
    db_query_local_ops.invert_result_selection(query, 0);
    db_query_local_ops.select_result_range(query, 0, 2);
}

void search_all(db_query_t *query, u32 sort) {
    db_query_params_t params = {};
    params.search = params.filter_search = "";
    params.calculate_total_size = true;
    params.sort = sort;
    db_query_local_ops.search(query, &params);
}

TEST(DbListModel, NothingIsSelectedBeforeTheLoadAndBehindARebuild) {
    std::vector<test_volume_t> volumes = {test_volume_from_paths({"a", "b", "dir\\c"})};
    db_t *db = test_db_start(volumes, TEST_FLAGS_ALL);
    db_query_t *query = db_query_create(db, false, nullptr, nullptr);
    db_itemref_t *ref = db_query_local_ops.itemref_create(query);
    for (u32 round = 0; round < 3; round++) {
        change_all(query, ref);
        check_empty(query, ref);
        search_all(query, DB_SORT_SIZE_ASCENDING);
        db_query_local_ops.sort(query, DB_SORT_SIZE_ASCENDING | DB_SORT_DESCENDING, 0, 0);
        test_db_wait(db);
        ASSERT_EQ((std::vector<std::string>{"C:\\dir\\c", "C:\\b", "C:\\a", "C:", "C:\\dir"}),
                  test_result_paths(query));
        EXPECT_EQ(0u, db_query_local_ops.get_selection_count(query)); // of the round before
        EXPECT_EQ(-1, db_query_local_ops.itemref_get(query, ref));
        change_all(query, ref);
        EXPECT_EQ(5u, db_query_local_ops.get_selection_count(query));
        EXPECT_EQ(0, db_query_local_ops.itemref_get(query, ref));
        if (round == 1)
            search_all(query, DB_SORT_TYPE_ASCENDING); // which the rebuild ends
        db_wanted_t wanted;
        db_wanted_init(&wanted);
        test_add_volumes(&wanted, volumes);
        wanted.index_flags = TEST_FLAGS_ALL;
        db_rebuild_start(db, &wanted, nullptr);
    }
    check_empty(query, ref);
    test_db_wait(db);
    db_query_local_ops.destroy_query(query);
    db_query_local_ops.itemref_destroy(query, ref);
    db_destroy(db);
}

} // namespace
} // namespace findwright
