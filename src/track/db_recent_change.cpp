#include "track/db_recent_change.h"

#include "base/mem.h"
#include "base/pointer_pool.h"
#include "db/db_item_set.h"
#include "os/debug.h"
#include "track/db_live_internal.h"

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

// --- Many at once ------------------------------------------------------------------------------------------

// Keeps the records of an array that are of none of the two sets' items; the others go to `gone`, which may
// be 0. In one pass.
static void _db_recent_change_filter(array_t *changes, const db_item_set_t *folders,
                                     const db_item_set_t *files, pointer_pool_t *gone) {
    for (u32 i = 0; i < changes->page_count; i++) {
        array_page_remove_if(changes, changes->pages[i], [=](u32 value) {
            const db_recent_change_t *change = _db_recent_change(value);
            bool goes = db_item_set_has(change->is_folder ? folders : files, change->item);
            if (goes && gone)
                pointer_pool_push(gone, value);
            return goes;
        });
    }
    array_close(changes);
}

void db_recent_change_remove_many(db_t *db, const db_item_set_t *folders, const db_item_set_t *files) {
    if (db->recent_changes_by_item.count == 0)
        return;
    pointer_pool_t gone;
    pointer_pool_init(&gone);
    _db_recent_change_filter(&db->recent_changes_by_item, folders, files, &gone);
    u32 count = pointer_pool_count(&gone);
    if (count != 0)
        _db_recent_change_filter(&db->recent_changes_by_date, folders, files, nullptr);
    for (u32 i = 0; i < count; i++)
        db_mem_free(&db->mem, mem_ptr<db_recent_change_t>(pointer_pool_get(&gone, i)),
                    sizeof(db_recent_change_t));
    pointer_pool_kill(&gone);
}

// --- The setting -------------------------------------------------------------------------------------------

void db_recent_change_start(db_t *db) {
    db->recent_changes = index_recent_changes != 0 && !db->file_list_filename;
}

// Forgets all records. To the queries these are so many items that change.
static void _db_recent_change_forget(db_t *db) {
    u32 count = db->recent_changes_by_item.count;
    struct item_t {
        mem_ref_t item;
        bool is_folder;
    };
    auto *items = static_cast<item_t *>(mem_alloc((count + 1) * sizeof(item_t)));
    u32 page = 0, value, place = 0;
    for (i32 position = -1; array_next_to(&db->recent_changes_by_item, &page, &position, &value);) {
        const db_recent_change_t *change = _db_recent_change(value);
        items[place++] = {change->item, change->is_folder != 0};
    }
    for (u32 i = 0; i < place; i++)
        _db_live_leave(db, db_item(items[i].item), items[i].is_folder, DB_CHANGE_RECENT_CHANGES);
    db_recent_change_clear(db);
    for (u32 i = 0; i < place; i++) {
        const db_item_t *item = db_item(items[i].item);
        _db_live_enter(db, item, item, items[i].is_folder, DB_CHANGE_RECENT_CHANGES);
    }
    mem_free(items);
}

bool _db_recent_change_enabled_changed(db_t *db) {
    db_wait(db, "_db_recent_change_enabled_changed");
    u32 old = db->recent_changes;
    db_recent_change_start(db);
    if (db->recent_changes == old)
        return false;
    if (!db->recent_changes)
        _db_recent_change_forget(db);
    return true;
}

} // namespace findwright
