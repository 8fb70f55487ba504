#include "track/db_run_history.h"

#include "os/debug.h"

namespace findwright {

static int _db_run_history_compare_item(u32 value, const void *key) {
    mem_ref_t item = mem_ptr<db_run_history_ptr_t>(value)->item,
              wanted = *static_cast<const mem_ref_t *>(key);
    return item < wanted ? -1 : item > wanted;
}

static int _db_run_history_compare_date(u32 value, const void *key) {
    const auto *link = mem_ptr<const db_run_history_ptr_t>(value);
    const auto *wanted = static_cast<const db_run_history_ptr_t *>(key);
    if (link->date != wanted->date)
        return link->date > wanted->date ? -1 : 1;
    return link->item < wanted->item ? -1 : link->item > wanted->item;
}

static int _db_run_history_compare_count(u32 value, const void *key) {
    u32 count = mem_ptr<const db_run_history_ptr_t>(value)->count;
    u32 wanted = static_cast<const db_run_history_ptr_t *>(key)->count;
    if (count != wanted)
        return count > wanted ? -1 : 1;
    return _db_run_history_compare_date(value, key);
}

static mem_ref_t _db_run_history_find(const db_t *db, const db_item_t *item) {
    mem_ref_t key = mem_ref(item);
    return array_find(&db->run_history_by_item, _db_run_history_compare_item, &key);
}

static void _db_run_history_corrupt(db_t *db, const char *message) {
    debug_printf("%s", message);
    db_report_corrupt(db);
}

// Takes a link out of the two arrays whose order its values make. False when one of them does not have it.
static bool _db_run_history_take_out(db_t *db, db_run_history_ptr_t *link) {
    array_t *by_count = &db->run_history_links_by_count, *by_date = &db->run_history_links_by_date;
    if (array_find(by_count, _db_run_history_compare_count, link) != mem_ref(link)) {
        _db_run_history_corrupt(db, "corrupt run history count array\n");
        return false;
    }
    if (array_find(by_date, _db_run_history_compare_date, link) != mem_ref(link)) {
        _db_run_history_corrupt(db, "corrupt run history date array\n");
        return false;
    }
    array_remove(by_count, _db_run_history_compare_count, link);
    array_remove(by_date, _db_run_history_compare_date, link);
    return true;
}

// A link is equal to another one only for the same item, which no other link is for.
static void _db_run_history_put_in(db_t *db, db_run_history_ptr_t *link) {
    mem_ref_t value = mem_ref(link);
    if (!array_insert(&db->run_history_links_by_count, _db_run_history_compare_count, link, value))
        _db_run_history_corrupt(db, "run history count exists\n");
    if (!array_insert(&db->run_history_links_by_date, _db_run_history_compare_date, link, value))
        _db_run_history_corrupt(db, "run history date exists\n");
}

db_run_t db_run_history_get(const db_t *db, const db_item_t *item) {
    mem_ref_t found = _db_run_history_find(db, item);
    if (!found)
        return {};
    const auto *link = mem_ptr<const db_run_history_ptr_t>(found);
    return {link->count, link->date};
}

void db_run_history_set_item(db_t *db, const db_item_t *item, bool is_folder, u32 count, u64 date) {
    mem_ref_t key = mem_ref(item), found = _db_run_history_find(db, item);
    auto *link = found ? mem_ptr<db_run_history_ptr_t>(found) : nullptr;
    if (link && !_db_run_history_take_out(db, link))
        return;
    if (count == 0) {
        if (link) {
            array_remove(&db->run_history_by_item, _db_run_history_compare_item, &key);
            db_mem_free(&db->mem, link, sizeof *link);
        }
        return;
    }
    if (!link) {
        link = static_cast<db_run_history_ptr_t *>(db_mem_alloc(&db->mem, sizeof *link));
        array_insert(&db->run_history_by_item, _db_run_history_compare_item, &key, mem_ref(link));
    }
    *link = {date, count, key, is_folder};
    _db_run_history_put_in(db, link);
}

void db_run_history_clear(db_t *db) {
    u32 page = 0;
    i32 position = -1;
    while (u32 value = array_next(&db->run_history_by_item, &page, &position))
        db_mem_free(&db->mem, mem_ptr<db_run_history_ptr_t>(value), sizeof(db_run_history_ptr_t));
    for (array_t *array :
         {&db->run_history_by_item, &db->run_history_links_by_count, &db->run_history_links_by_date})
        array_clear(array);
}

} // namespace findwright
