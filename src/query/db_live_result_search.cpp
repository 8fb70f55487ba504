// Queries that cannot be updated in place: what goes from their results, and when they are searched again.
#include "base/mem.h"
#include "base/utf8.h"
#include "db/db_file.h"
#include "db/db_item_set.h"
#include "os/event.h"
#include "query/db_live_result.h"

#include <new>

namespace findwright {

u32 db_result_search_interval = DB_RESULT_SEARCH_INTERVAL;

// --- The search that the results are of --------------------------------------------------------------------

db_live_result_t *db_live_result_create() {
    return new (mem_alloc(sizeof(db_live_result_t))) db_live_result_t();
}

static void *_db_result_link(db_query_t *query) {
    return static_cast<db_query_link_t *>(query);
}

static void _db_result_forget_moved(db_live_result_t *live) {
    ref_map_kill(&live->moved);
    ref_map_kill(&live->moved_from);
}

void _db_result_forget_search(db_query_t *query) {
    db_live_result_t *live = query->live_result;
    event_remove(_db_result_search_proc, _db_result_link(query));
    live->is_stale = live->is_waiting = live->has_strays = false;
    _db_result_forget_moved(live);
    ref_map_kill(&live->left);
    _db_result_free_scan(query);
    live->terms = {};
    if (!live->search)
        return;
    mem_free(live->search);
    mem_free(live->filter_search);
    live->search = live->filter_search = nullptr;
}

void db_live_result_free(db_query_t *query) {
    _db_result_forget_search(query);
    query->live_result->~db_live_result_t();
    mem_free(query->live_result);
}

void _db_result_begin_search(db_query_t *query, const db_query_params_t *params) {
    db_live_result_t *live = query->live_result;
    char *search = utf8_alloc_copy(params->search); // they may be those that are kept here
    char *filter_search = utf8_alloc_copy(params->filter_search ? params->filter_search : "");
    _db_result_forget_search(query);
    live->params = *params;
    live->params.search = live->search = search;
    live->params.filter_search = live->filter_search = filter_search;
    live->search_start = os_get_tick_count();
    _db_result_read_terms(query);
}

void _db_result_end_search(db_query_t *query) {
    db_live_result_t *live = query->live_result;
    live->search_end = os_get_tick_count();
    live->search_time = live->search_end - live->search_start;
}

// --- Searching again ---------------------------------------------------------------------------------------

static u32 _db_result_get_delay(const db_live_result_t *live) {
    u32 share = live->search_time * DB_RESULT_SEARCH_SHARE; // the time is at most that of the limit
    u32 wait = share > db_result_search_interval ? share : db_result_search_interval;
    u32 passed = os_get_tick_count() - live->search_end;
    return passed < wait ? (wait - passed + 999) / 1000 : 0;
}

void _db_result_become_stale(db_query_t *query) {
    db_live_result_t *live = query->live_result;
    live->is_stale = true;
    query->sorted = 0; // an order that is asked for is made from the beginning
    if (live->search_time <= DB_RESULT_SEARCH_LIMIT)
        event_post_after(_db_result_get_delay(live), _db_result_search_proc, _db_result_link(query));
}

void _db_result_search_proc(void *param) {
    db_query_t *query = static_cast<db_query_t *>(static_cast<db_query_link_t *>(param));
    db_live_result_t *live = query->live_result;
    if (!live->is_stale)
        return;
    live->is_waiting = !db_is_ready(query->db);
    if (live->is_waiting)
        return;
    db_query_params_t params = live->params;
    params.clear_selection = false;
    params.sort = query->requested_sort;
    params.dialog_x = query->dialog_x;
    params.dialog_y = query->dialog_y;
    db_query_search(query, &params);
}

void _db_result_ready(db_query_t *query) {
    if (query->live_result->is_waiting)
        event_post(_db_result_search_proc, _db_result_link(query));
}

// --- What goes from a stale query --------------------------------------------------------------------------

// The reference that the results hold for a record of today; 0 when they cannot hold it, because the record
// is younger than they are.
static mem_ref_t _db_result_get_source(const db_live_result_t *live, mem_ref_t item) {
    if (const mem_ref_t *source = ref_map_find(&live->moved_from, item))
        return *source;
    return ref_map_find(&live->moved, item) ? 0 : item;
}

static void _db_result_note(db_query_t *query, mem_ref_t old, db_result_moved_t moved) {
    db_live_result_t *live = query->live_result;
    mem_ref_t source = _db_result_get_source(live, old);
    ref_map_remove(&live->moved_from, old);
    if (source == 0)
        return;
    *ref_map_make(&live->moved, source) = moved;
    if (moved.item != 0)
        *ref_map_make(&live->moved_from, moved.item) = source;
    _db_query_post_results_changed(query);
}

void _db_result_note_gone(db_query_t *query, const db_item_t *item, bool is_folder) {
    u64 size = query->calculate_total_size && !is_folder ? db_file_get_size(query->db, item) : VALUE_UNKNOWN;
    _db_result_note(query, mem_ref(item), {0, size});
}

void _db_result_note_moved(db_query_t *query, const db_item_t *old, const db_item_t *item) {
    _db_result_note(query, mem_ref(old), {mem_ref(item), 0});
}

// What a stale query's sums lose. They are those of its search, and an item may have changed since.
static void _db_result_discount(u64 *sum, u32 *count, u64 size) {
    size = size == VALUE_UNKNOWN ? 0 : size;
    *sum -= *sum < size ? *sum : size;
    *count -= *count != 0;
}

static void _db_result_discount_result(db_query_t *query, bool is_folder, bool is_selected, u64 size) {
    if (!query->calculate_total_size || is_folder)
        return;
    _db_result_discount(&query->total_result_size, &query->total_result_count, size);
    if (is_selected)
        _db_result_discount(&query->total_selection_size, &query->total_selection_count, size);
}

struct _db_filter_t {
    array_t kept;
    u32 *cursor, *end;
};

static void _db_filter_keep(_db_filter_t *filter, u32 value) {
    if (filter->cursor == filter->end)
        filter->cursor = array_builder_new_page(&filter->kept, &filter->end);
    *filter->cursor++ = value;
}

// Goes once over all results. replace(array, value, is_selected) tells by what a value is replaced, 0 for
// nothing; the selection stays with what is kept.
template<class Replace>
static void _db_result_filter(db_query_t *query, Replace replace) {
    array_t *arrays[3];
    _db_query_get_result_arrays(query, arrays);
    bit_array_t selection, *old = &query->selection;
    bit_array_init(&selection);
    bit_array_reset(&selection, old->size);
    u32 from = 0, to = 0;
    for (array_t *array : arrays) {
        _db_filter_t filter = {};
        array_init(&filter.kept);
        for (u32 page = 0; page < array->page_count; page++) {
            const u32 *values = array_page_values(array->pages[page]);
            for (u32 i = 0, count = array->pages[page]->item_count; i < count; i++, from++) {
                bool is_selected = bit_array_get(old, from);
                u32 value = replace(array, values[i], is_selected);
                if (value == 0)
                    continue;
                if (is_selected)
                    bit_array_set(&selection, to, true);
                _db_filter_keep(&filter, value);
                to++;
            }
        }
        array_builder_finish(&filter.kept, filter.cursor, filter.end);
        array_swap(array, &filter.kept);
        array_kill(&filter.kept);
    }
    bit_array_truncate(&selection, to);
    bit_array_kill(old);
    *old = selection;
    query->result_cursor = {};
}

// While nothing is selected no bit has to be shifted for a result.
void _db_result_drop_history(db_query_t *query) {
    bool has_selection = query->selection.count != 0;
    if (query->history_results.count != 0 && has_selection)
        _db_selection_keep(query);
    db_history_kind_t kind = query->history_kind;
    while (query->history_results.count != 0) {
        db_result_place_t place = {&query->history_results, 0, 0, 0};
        u32 value = array_get(place.array, 0, &place.page, &place.position);
        query->history_kind = kind;
        db_result_t result = _db_query_get_value_result(query, place.array, value);
        _db_result_take_out(query, result.item, result.is_folder, &place);
        query->history_kind = DB_HISTORY_NONE;
        _db_result_put_in(query, result.item, result.is_folder, false);
    }
    query->history_kind = DB_HISTORY_NONE;
    if (query->kept_selection && has_selection)
        _db_selection_restore(query);
}

void _db_result_settle_now(db_query_t *query) {
    db_live_result_t *live = query->live_result;
    _db_result_filter(query, [&](const array_t *array, u32 value, bool is_selected) {
        const db_result_moved_t *moved =
            array != &query->history_results ? ref_map_find(&live->moved, value) : nullptr;
        if (!moved)
            return value;
        if (moved->item == 0)
            _db_result_discount_result(query, array == &query->folder_results, is_selected, moved->size);
        return moved->item;
    });
    _db_result_forget_moved(live);
}

void _db_result_remove_many(db_query_t *query, const db_item_set_t *folders, const db_item_set_t *files) {
    if (_db_query_count_results(query) == 0)
        return;
    _db_result_settle(query);
    _db_result_filter(query, [&](const array_t *array, u32 value, bool is_selected) {
        if (array != &query->history_results &&
            !db_item_set_has(array == &query->folder_results ? folders : files, value))
            return value;
        db_result_t result = _db_query_get_value_result(query, array, value);
        if (!db_item_set_has(result.is_folder ? folders : files, mem_ref(result.item)))
            return value;
        u64 size = result.is_folder ? VALUE_UNKNOWN : db_file_get_size(query->db, result.item);
        _db_result_discount_result(query, result.is_folder, is_selected, size);
        return 0u;
    });
}

} // namespace findwright
