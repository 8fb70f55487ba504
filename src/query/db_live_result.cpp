#include "query/db_live_result.h"

#include "base/mem.h"
#include "db/db_item_set.h"
#include "query/db_ghost.h"
#include "query/db_itemref.h"

namespace findwright {

static db_query_t *_db_query(db_query_link_t *link) {
    return static_cast<db_query_t *>(link);
}

// --- What concerns a query ---------------------------------------------------------------------------------

// A change that is not told is any.
static bool _db_is_place_change(u32 changes) {
    return changes == 0 || changes & DB_CHANGE_PLACE;
}

// Whether the terms may find an item now that they did not, or the other way round.
static bool _db_result_asks_terms(const db_query_t *query, bool is_folder, u32 changes) {
    return _db_is_place_change(changes) || changes & query->live_result->terms.changes[is_folder];
}

static bool _db_result_is_concerned(const db_query_t *query, bool is_folder, u32 changes) {
    if (!query->live_result->search)
        return false;
    bool in_sums = query->calculate_total_size && !is_folder && changes & DB_FLAG_SIZE;
    return in_sums || _db_result_asks_terms(query, is_folder, changes) ||
           changes & _db_result_get_order_changes(query, is_folder);
}

// Whether an item is to be among the results, by terms that tell.
static bool _db_result_is_found(db_query_t *query, const db_item_t *item, bool is_folder) {
    return _db_result_matches(query, item, is_folder) || _db_ghost_has_item(query, item);
}

// Whether a change cannot be made in place.
static bool _db_result_needs_search(db_query_t *query, const db_item_t *item, bool is_folder, u32 changes) {
    bool is_local = query->live_result->terms.is_local;
    if (!is_local && _db_result_asks_terms(query, is_folder, changes))
        return true;
    if (_db_is_place_change(changes) && _db_result_touches_anchors(query, item, is_folder))
        return true;
    return !_db_result_has_order(query) &&
           (!is_local || query->live_result->has_strays || _db_result_is_found(query, item, is_folder));
}

// --- One item ----------------------------------------------------------------------------------------------

static void _db_result_left(db_query_t *query, const db_item_t *item, bool is_selected) {
    *ref_map_make(&query->live_result->left, mem_ref(item)) =
        is_selected ? DB_RESULT_LEFT_SELECTED : DB_RESULT_LEFT;
    _db_query_post_results_changed(query);
}

static u8 _db_result_take_left(db_query_t *query, mem_ref_t item) {
    const u8 *found = ref_map_find(&query->live_result->left, item);
    u8 left = found ? *found : 0;
    if (left != 0)
        ref_map_remove(&query->live_result->left, item);
    return left;
}

// An item is found where its keys put it. One that should be there and is not can only be there by a fault,
// and is looked for everywhere: nothing must stay behind that refers to what may be freed.
static bool _db_result_look_up(db_query_t *query, const db_item_t *item, bool is_folder,
                               db_result_place_t *place) {
    if (query->live_result->is_stale)
        return _db_result_find_in_history(query, item, place);
    return _db_result_find(query, item, is_folder, place) ||
           (query->live_result->terms.is_local && _db_result_matches(query, item, is_folder) &&
            _db_result_find_by_pass(query, item, place));
}

// In an order that cannot be searched an item that is no result is left alone.
static void _db_result_item_leaves(db_query_link_t *link, const db_item_t *item, bool is_folder,
                                   u32 changes) {
    db_query_t *query = _db_query(link);
    if (!_db_result_is_concerned(query, is_folder, changes))
        return;
    if (!query->live_result->is_stale && _db_result_needs_search(query, item, is_folder, changes))
        _db_result_become_stale(query);
    db_result_place_t place;
    if (!query->live_result->is_stale && !_db_result_has_order(query))
        return;
    if (_db_result_look_up(query, item, is_folder, &place))
        _db_result_left(query, item, _db_result_take_out(query, item, is_folder, &place));
}

static bool _db_result_is_to_enter(db_query_t *query, const db_item_t *item, bool is_folder, u32 changes,
                                   u8 left) {
    if (query->live_result->is_stale) // the new search decides
        return left != 0;
    return _db_result_asks_terms(query, is_folder, changes) ? _db_result_is_found(query, item, is_folder)
                                                            : left != 0;
}

static void _db_result_enter(db_query_t *query, const db_item_t *old, const db_item_t *item, bool is_folder,
                             u32 changes) {
    db_live_result_t *live = query->live_result;
    u8 left = old ? _db_result_take_left(query, mem_ref(old)) : 0;
    if (!live->is_stale && _db_result_needs_search(query, item, is_folder, changes))
        _db_result_become_stale(query);
    if (_db_result_is_to_enter(query, item, is_folder, changes, left)) {
        _db_result_put_in(query, item, is_folder, left == DB_RESULT_LEFT_SELECTED);
        _db_query_post_results_changed(query);
    } else if (live->is_stale && old && old != item) {
        _db_result_note_moved(query, old, item);
    }
}

// All that names an item's record beside the results.
static void _db_result_move_references(db_query_t *query, const db_item_t *old, const db_item_t *item) {
    db_itemref_item_moved(query, old, item);
    db_ghost_move(query, old, item);
    for (u32 i = 0; i < query->kept_selection_count; i++) {
        if (query->kept_selection[i] == mem_ref(old))
            query->kept_selection[i] = mem_ref(item);
    }
    db_extended_info_item_moved(query->extended_info, old, item);
}

static void _db_result_item_enters(db_query_link_t *link, const db_item_t *old, const db_item_t *item,
                                   bool is_folder, u32 changes) {
    db_query_t *query = _db_query(link);
    if (!old)
        changes = 0;
    else if (old != item)
        _db_result_move_references(query, old, item);
    else if (extended_information_cache_monitor && !(is_folder && changes == DB_FLAG_SIZE))
        db_extended_info_item_changed(query->extended_info, item);
    if (_db_result_is_concerned(query, is_folder, changes))
        _db_result_enter(query, old, item, is_folder, changes);
}

static void _db_result_item_gone(db_query_link_t *link, const db_item_t *item, bool is_folder) {
    db_query_t *query = _db_query(link);
    bool has_left = _db_result_take_left(query, mem_ref(item)) != 0;
    db_itemref_item_removed(query, item);
    db_ghost_remove(query, item);
    _db_selection_forget_kept(query, [item](mem_ref_t ref) { return ref == mem_ref(item); });
    db_extended_info_item_removed(query->extended_info, item);
    _db_result_drop_anchor(query, mem_ref(item));
    if (query->live_result->is_stale && !has_left)
        _db_result_note_gone(query, item, is_folder);
}

// --- Many items --------------------------------------------------------------------------------------------

static void _db_result_forget_many(db_query_t *query, const db_item_set_t *folders,
                                   const db_item_set_t *files) {
    auto is_gone = [&](mem_ref_t ref) {
        return db_item_set_has(folders, ref) || db_item_set_has(files, ref);
    };
    ref_map_t<u8> left = query->live_result->left;
    ref_map_init(&query->live_result->left);
    for (u32 i = 0; i < ref_map_capacity(&left); i++) {
        if (left.slots[i].key != 0 && !is_gone(left.slots[i].key))
            *ref_map_make(&query->live_result->left, left.slots[i].key) = left.slots[i].value;
    }
    ref_map_kill(&left);
    db_itemref_items_removed(query, folders, files);
    db_ghost_remove_many(query, folders, files);
    _db_selection_forget_kept(query, is_gone);
    db_extended_info_items_removed(query->extended_info, folders, files);
}

static void _db_result_items_gone(db_query_link_t *link, const db_item_set_t *folders,
                                  const db_item_set_t *files) {
    db_query_t *query = _db_query(link);
    db_live_result_t *live = query->live_result;
    _db_result_forget_many(query, folders, files);
    bool had_anchors = _db_result_drop_anchors(query, folders, files);
    if (!live->search)
        return;
    if (!live->is_stale && (had_anchors || !live->terms.is_local))
        _db_result_become_stale(query);
    _db_result_remove_many(query, folders, files);
    _db_query_post_results_changed(query);
}

static void _db_result_tree_moves(db_query_link_t *link) {
    db_query_t *query = _db_query(link);
    if (!query->live_result->search)
        return;
    if (!query->live_result->is_stale)
        _db_result_become_stale(query);
    _db_result_drop_history(query);
}

// --- What is shown -----------------------------------------------------------------------------------------

static void _db_result_items_updated(db_query_link_t *link) {
    db_query_t *query = _db_query(link);
    db_live_result_t *live = query->live_result;
    const array_t *items = &query->db->updated_items;
    u32 page = 0, value;
    for (i32 position = -1;
         extended_information_cache_monitor && array_next_to(items, &page, &position, &value);)
        db_extended_info_item_changed(query->extended_info, db_item(value));
    bool reads = live->terms.reads_files || (live->search && _db_result_reads_order(query));
    if (live->search && reads && items->count != 0 && !live->is_stale)
        _db_result_become_stale(query);
    if (query->callback)
        query->callback(query->user_data, DB_QUERY_INFO_CHANGED);
}

const db_live_hooks_t db_live_result_hooks = {
    _db_result_item_leaves, _db_result_item_enters, _db_result_item_gone,
    _db_result_items_gone,  _db_result_tree_moves,  _db_result_items_updated,
};

} // namespace findwright
