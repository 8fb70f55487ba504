#include "track/db_recent_change.h"

#include "os/debug.h"

namespace findwright {

static const db_recent_change_t *_db_recent_change(u32 value) {
    return mem_ptr<const db_recent_change_t>(value);
}

static int _db_recent_change_compare_item(u32 value, const void *key) {
    mem_ref_t item = _db_recent_change(value)->item, wanted = *static_cast<const mem_ref_t *>(key);
    return item < wanted ? -1 : item > wanted;
}

static int _db_recent_change_compare_date(u32 value, const void *key) {
    const db_recent_change_t *change = _db_recent_change(value);
    const auto *wanted = static_cast<const db_recent_change_t *>(key);
    if (change->date != wanted->date)
        return change->date > wanted->date ? -1 : 1;
    return change->item < wanted->item ? -1 : change->item > wanted->item;
}

// Searches find on any thread, and the report goes to the main one.
static void _db_recent_change_corrupt(const db_t *db) {
    debug_printf("corrupt recent change array\n");
    db_report_corrupt(const_cast<db_t *>(db));
}

// The record's reference, 0 for none; `is_corrupt` when it is in one array only.
static mem_ref_t _db_recent_change_find(const db_t *db, const db_item_t *item, bool *is_corrupt) {
    mem_ref_t key = mem_ref(item);
    mem_ref_t found = array_find(&db->recent_changes_by_item, _db_recent_change_compare_item, &key);
    *is_corrupt = found && array_find(&db->recent_changes_by_date, _db_recent_change_compare_date,
                                      mem_ptr<db_recent_change_t>(found)) != found;
    if (!*is_corrupt)
        return found;
    _db_recent_change_corrupt(db);
    return 0;
}

const db_recent_change_t *db_recent_change_find(const db_t *db, const db_item_t *item) {
    bool is_corrupt;
    mem_ref_t found = _db_recent_change_find(db, item, &is_corrupt);
    return found ? _db_recent_change(found) : nullptr;
}

void db_recent_change_set(db_t *db, bool is_folder, const db_item_t *item, u64 date) {
    bool is_corrupt;
    mem_ref_t found = _db_recent_change_find(db, item, &is_corrupt);
    if (is_corrupt)
        return;
    db_recent_change_t *change;
    if (found) {
        change = mem_ptr<db_recent_change_t>(found);
        array_remove(&db->recent_changes_by_date, _db_recent_change_compare_date, change);
        change->date = date;
    } else {
        change = static_cast<db_recent_change_t *>(db_mem_alloc(&db->mem, sizeof(db_recent_change_t)));
        *change = {date, mem_ref(item), is_folder};
        mem_ref_t key = change->item;
        array_insert(&db->recent_changes_by_item, _db_recent_change_compare_item, &key, mem_ref(change));
    }
    // The key holds the item, so an equal one is a record that the other array does not have.
    if (!array_insert(&db->recent_changes_by_date, _db_recent_change_compare_date, change, mem_ref(change)))
        _db_recent_change_corrupt(db);
}

void db_recent_change_remove(db_t *db, const db_item_t *item) {
    bool is_corrupt;
    mem_ref_t found = _db_recent_change_find(db, item, &is_corrupt);
    if (!found)
        return;
    db_recent_change_t *change = mem_ptr<db_recent_change_t>(found);
    mem_ref_t key = change->item;
    array_remove(&db->recent_changes_by_date, _db_recent_change_compare_date, change);
    array_remove(&db->recent_changes_by_item, _db_recent_change_compare_item, &key);
    db_mem_free(&db->mem, change, sizeof(db_recent_change_t));
}

void db_recent_change_clear(db_t *db) {
    u32 page = 0;
    i32 position = -1;
    while (u32 value = array_next(&db->recent_changes_by_item, &page, &position))
        db_mem_free(&db->mem, mem_ptr<db_recent_change_t>(value), sizeof(db_recent_change_t));
    array_clear(&db->recent_changes_by_item);
    array_clear(&db->recent_changes_by_date);
}

} // namespace findwright
