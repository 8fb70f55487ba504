#include "query/db_itemref.h"

#include "base/mem.h"
#include "db/db_item_set.h"
#include "query/db_result_internal.h"

namespace findwright {

static constexpr i32 INDEX_UNKNOWN = -1;
static constexpr i32 INDEX_NONE = -2; // no result; so until there are new ones

static void _db_itemref_unlink(db_query_t *query, db_itemref_t *itemref) {
    (itemref->prev ? itemref->prev->next : query->itemrefs) = itemref->next;
    (itemref->next ? itemref->next->prev : query->itemrefs_tail) = itemref->prev;
    itemref->next = itemref->prev = nullptr;
}

static void _db_itemref_empty(db_query_t *query, db_itemref_t *itemref) {
    if (itemref->item != 0)
        _db_itemref_unlink(query, itemref);
    itemref->item = 0;
    itemref->index = INDEX_UNKNOWN;
}

db_itemref_t *db_itemref_create(db_query_t *) {
    db_itemref_t *itemref = static_cast<db_itemref_t *>(mem_alloc(sizeof *itemref));
    *itemref = {nullptr, nullptr, 0, false, INDEX_UNKNOWN};
    return itemref;
}

void db_itemref_destroy(db_query_t *query, db_itemref_t *itemref) {
    if (itemref->item != 0) {
        db_wait(query->db, "db_itemref_destroy");
        _db_itemref_empty(query, itemref);
    }
    mem_free(itemref);
}

i32 db_itemref_get(db_query_t *query, db_itemref_t *itemref) {
    if (!_db_query_begin_read(query, "db_itemref_get") || itemref->item == 0 || itemref->index == INDEX_NONE)
        return -1;
    if (itemref->index == INDEX_UNKNOWN) {
        i32 index = _db_query_find_item(query, {db_item(itemref->item), itemref->is_folder});
        itemref->index = index >= 0 ? index : INDEX_NONE;
    }
    return itemref->index >= 0 ? itemref->index : -1;
}

void db_itemref_set(db_query_t *query, db_itemref_t *itemref, i32 index) {
    if (!_db_query_begin_read(query, "db_itemref_set"))
        return;
    _db_itemref_empty(query, itemref);
    db_result_t result;
    if (!db_get_result(query, index, &result))
        return;
    itemref->item = mem_ref(result.item);
    itemref->is_folder = result.is_folder;
    itemref->index = index;
    itemref->prev = query->itemrefs_tail;
    (query->itemrefs_tail ? query->itemrefs_tail->next : query->itemrefs) = itemref;
    query->itemrefs_tail = itemref;
}

void db_itemref_clear_all(db_query_t *query) {
    while (query->itemrefs)
        _db_itemref_empty(query, query->itemrefs);
}

void db_itemref_forget_indexes(db_query_t *query) {
    for (db_itemref_t *itemref = query->itemrefs; itemref; itemref = itemref->next)
        itemref->index = INDEX_UNKNOWN;
}

void db_itemref_item_removed(db_query_t *query, const db_item_t *item) {
    for (db_itemref_t *itemref = query->itemrefs, *next; itemref; itemref = next) {
        next = itemref->next;
        if (itemref->item == mem_ref(item))
            _db_itemref_empty(query, itemref);
    }
}

void db_itemref_items_removed(db_query_t *query, const db_item_set_t *folders, const db_item_set_t *files) {
    for (db_itemref_t *itemref = query->itemrefs, *next; itemref; itemref = next) {
        next = itemref->next;
        if (db_item_set_has(itemref->is_folder ? folders : files, itemref->item))
            _db_itemref_empty(query, itemref);
    }
}

void db_itemref_item_moved(db_query_t *query, const db_item_t *item, const db_item_t *to) {
    for (db_itemref_t *itemref = query->itemrefs; itemref; itemref = itemref->next) {
        if (itemref->item == mem_ref(item)) {
            itemref->item = mem_ref(to);
            itemref->index = INDEX_UNKNOWN;
        }
    }
}

} // namespace findwright
