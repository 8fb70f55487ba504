// The items whose data has changed since the owners of the queries were told.
#include "db/db.h"
#include "db/db_item_set.h"
#include "os/event.h"

namespace findwright {

static constexpr u32 RETRY_DELAY = 100; // milliseconds, of a busy database

static int _db_updated_compare(u32 value, const void *key) {
    mem_ref_t item = *static_cast<const mem_ref_t *>(key);
    return value < item ? -1 : value > item;
}

void db_mark_updated(db_t *db, const db_item_t *item) {
    if (!db->query_first)
        return; // nobody paints
    if (!db->updated_items_pending) {
        db->updated_items_pending = 1;
        event_post(db_flush_updated_items, db);
    }
    mem_ref_t key = mem_ref(item);
    array_insert(&db->updated_items, _db_updated_compare, &key, key);
}

bool db_is_updated(const db_t *db, const db_item_t *item) {
    mem_ref_t key = mem_ref(item);
    return array_exists(&db->updated_items, _db_updated_compare, &key);
}

bool db_forget_updated(db_t *db, const db_item_t *item) {
    mem_ref_t key = mem_ref(item);
    return array_remove_exists(&db->updated_items, _db_updated_compare, &key);
}

void db_forget_updated_many(db_t *db, const db_item_set_t *folders, const db_item_set_t *files) {
    array_t *items = &db->updated_items;
    for (u32 i = 0; i < items->page_count; i++) {
        array_page_remove_if(items, items->pages[i], [folders, files](u32 value) {
            return db_item_set_has(folders, value) || db_item_set_has(files, value);
        });
    }
    array_close(items);
}

void db_flush_updated_items(void *param) {
    db_t *db = static_cast<db_t *>(param);
    if (!db->updated_items_pending)
        return;
    if (db->busy_count > 0) {
        event_post_after(RETRY_DELAY, db_flush_updated_items, db);
        return;
    }
    for (db_query_link_t *query = db->query_first; query; query = query->next) {
        if (query->live)
            query->live->items_updated(query);
    }
    array_clear(&db->updated_items);
    db->updated_items_pending = 0;
}

} // namespace findwright
