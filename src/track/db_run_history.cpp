#include "track/db_run_history_internal.h"

#include "base/mem.h"
#include "base/utf8.h"
#include "db/db_item_set.h"
#include "os/debug.h"
#include "os/os.h"
#include "track/db_live_internal.h"

#include <cstring>

namespace findwright {

// --- Orders ------------------------------------------------------------------------------------------------

// A path of a POSIX system itself, where names that differ in case are different files.
static bool _db_run_history_is_posix(const char *path, u32 length) {
    return length != 0 && path[0] == '\\' && (length == 1 || path[1] != '\\');
}

int _db_run_history_compare_path(const char *a, u32 a_length, const char *b, u32 b_length) {
    if (int result = utf8_compare_fold(a, a_length, b, b_length))
        return result;
    if (int result = utf8_compare_lower(a, a_length, b, b_length))
        return result;
    return _db_run_history_is_posix(a, a_length) ? utf8_compare(a, a_length, b, b_length) : 0;
}

int _db_run_history_compare_name(u32 value, const void *key) {
    const auto *data = mem_ptr<const db_run_history_data_t>(value);
    const auto *wanted = static_cast<const _db_run_history_path_t *>(key);
    return _db_run_history_compare_path(db_run_history_get_path(data), data->path_length, wanted->text,
                                        wanted->length);
}

// Largest count first, then newest date.
static int _db_run_history_compare_run(const db_run_history_data_t *a, const db_run_history_data_t *b) {
    if (a->count != b->count)
        return a->count > b->count ? -1 : 1;
    return a->date != b->date ? (a->date > b->date ? -1 : 1) : 0;
}

int _db_run_history_compare_entry_count(u32 value, const void *key) {
    const auto *data = mem_ptr<const db_run_history_data_t>(value);
    const auto *wanted = static_cast<const db_run_history_data_t *>(key);
    if (int result = _db_run_history_compare_run(data, wanted))
        return result;
    return _db_run_history_compare_path(db_run_history_get_path(data), data->path_length,
                                        db_run_history_get_path(wanted), wanted->path_length);
}

static int _db_run_history_compare_ref(mem_ref_t a, mem_ref_t b) {
    return a < b ? -1 : a > b;
}

int _db_run_history_compare_item(u32 value, const void *key) {
    return _db_run_history_compare_ref(mem_ptr<const db_run_history_ptr_t>(value)->item,
                                       *static_cast<const mem_ref_t *>(key));
}

int _db_run_history_compare_count(u32 value, const void *key) {
    const auto *link = mem_ptr<const db_run_history_ptr_t>(value);
    const auto *wanted = static_cast<const db_run_history_ptr_t *>(key);
    int result = link->data == wanted->data
                     ? 0
                     : _db_run_history_compare_run(db_run_history_link_get_data(link),
                                                   db_run_history_link_get_data(wanted));
    return result ? result : _db_run_history_compare_ref(link->item, wanted->item);
}

int _db_run_history_compare_date(u32 value, const void *key) {
    const auto *link = mem_ptr<const db_run_history_ptr_t>(value);
    const auto *wanted = static_cast<const db_run_history_ptr_t *>(key);
    u64 a = db_run_history_link_get_data(link)->date, b = db_run_history_link_get_data(wanted)->date;
    return a != b ? (a > b ? -1 : 1) : _db_run_history_compare_ref(link->item, wanted->item);
}

// --- Records -----------------------------------------------------------------------------------------------

static void _db_run_history_corrupt(db_t *db, const char *message) {
    debug_printf("%s", message);
    db_report_corrupt(db);
}

db_run_history_data_t *_db_run_history_new_entry(db_t *db, const char *path, u32 length, u32 count,
                                                 u64 date) {
    auto *data =
        static_cast<db_run_history_data_t *>(db_mem_alloc(&db->mem, sizeof(db_run_history_data_t) + length));
    *data = {date, count, length, 0, 0};
    std::memcpy(data + 1, path, length);
    return data;
}

void _db_run_history_free_entry(db_t *db, db_run_history_data_t *entry) {
    db_mem_free(&db->mem, entry, sizeof *entry + entry->path_length);
}

db_run_history_ptr_t *_db_run_history_new_link(db_t *db, db_run_history_data_t *entry, mem_ref_t item,
                                               bool is_folder) {
    auto *link = static_cast<db_run_history_ptr_t *>(db_mem_alloc(&db->mem, sizeof(db_run_history_ptr_t)));
    *link = {mem_ref(entry), item, is_folder};
    entry->link_count++;
    return link;
}

static db_run_history_data_t *_db_run_history_data(const db_run_history_ptr_t *link) {
    return mem_ptr<db_run_history_data_t>(link->data);
}

static void _db_run_history_free_link(db_t *db, db_run_history_ptr_t *link) {
    _db_run_history_data(link)->link_count--;
    db_mem_free(&db->mem, link, sizeof *link);
}

// --- Links -------------------------------------------------------------------------------------------------

static db_run_history_ptr_t *_db_run_history_find_link(const db_t *db, const db_item_t *item) {
    mem_ref_t key = mem_ref(item);
    mem_ref_t found = array_find(&db->run_history_by_item, _db_run_history_compare_item, &key);
    return found ? mem_ptr<db_run_history_ptr_t>(found) : nullptr;
}

// Whether a link is in the two arrays whose order its entry makes.
static bool _db_run_history_is_whole(db_t *db, const db_run_history_ptr_t *link) {
    mem_ref_t value = mem_ref(link);
    if (array_find(&db->run_history_links_by_count, _db_run_history_compare_count, link) != value) {
        _db_run_history_corrupt(db, "corrupt run history count array\n");
        return false;
    }
    if (array_find(&db->run_history_links_by_date, _db_run_history_compare_date, link) != value) {
        _db_run_history_corrupt(db, "corrupt run history date array\n");
        return false;
    }
    return true;
}

static void _db_run_history_take_out(db_t *db, const db_run_history_ptr_t *link) {
    array_remove(&db->run_history_links_by_count, _db_run_history_compare_count, link);
    array_remove(&db->run_history_links_by_date, _db_run_history_compare_date, link);
}

// A link is equal to another one only for the same item, which no other link is for.
static void _db_run_history_put_in(db_t *db, const db_run_history_ptr_t *link) {
    mem_ref_t value = mem_ref(link);
    if (!array_insert(&db->run_history_links_by_count, _db_run_history_compare_count, link, value))
        _db_run_history_corrupt(db, "run history count exists\n");
    if (!array_insert(&db->run_history_links_by_date, _db_run_history_compare_date, link, value))
        _db_run_history_corrupt(db, "run history date exists\n");
}

static void _db_run_history_add_link(db_t *db, db_run_history_data_t *entry, mem_ref_t item, bool is_folder) {
    db_run_history_ptr_t *link = _db_run_history_new_link(db, entry, item, is_folder);
    if (!array_insert(&db->run_history_by_item, _db_run_history_compare_item, &item, mem_ref(link))) {
        _db_run_history_free_link(db, link);
        _db_run_history_corrupt(db, "run history pointer exists\n");
        return;
    }
    _db_run_history_put_in(db, link);
}

// One that is in no array but run_history_by_item.
static void _db_run_history_drop_link(db_t *db, db_run_history_ptr_t *link) {
    mem_ref_t key = link->item;
    array_remove(&db->run_history_by_item, _db_run_history_compare_item, &key);
    _db_run_history_free_link(db, link);
}

db_run_t db_run_history_get(const db_t *db, const db_item_t *item) {
    const db_run_history_ptr_t *link = _db_run_history_find_link(db, item);
    if (!link)
        return {};
    const db_run_history_data_t *data = db_run_history_link_get_data(link);
    return {data->count, data->date};
}

// --- Entries -----------------------------------------------------------------------------------------------

db_run_history_data_t *_db_run_history_find_entry(const db_t *db, const char *path, u32 length) {
    _db_run_history_path_t key = {path, length};
    mem_ref_t found = array_find(&db->run_history_by_name, _db_run_history_compare_name, &key);
    return found ? mem_ptr<db_run_history_data_t>(found) : nullptr;
}

const db_run_history_data_t *db_run_history_find(const db_t *db, const char *path, u32 length) {
    const db_run_history_data_t *entry = _db_run_history_find_entry(db, path, length);
    return entry && entry->count != 0 ? entry : nullptr;
}

// Gives an entry, which is made where there is none, another count and date. No link to it is in an array
// that its values order.
static db_run_history_data_t *_db_run_history_write_entry(db_t *db, db_run_history_data_t *entry,
                                                          const char *path, u32 length, u32 count, u64 date) {
    if (entry && entry->count != 0)
        array_remove(&db->run_history_by_count, _db_run_history_compare_entry_count, entry);
    if (!entry) {
        entry = _db_run_history_new_entry(db, path, length, count, date);
        _db_run_history_path_t key = {path, length};
        if (!array_insert(&db->run_history_by_name, _db_run_history_compare_name, &key, mem_ref(entry)))
            _db_run_history_corrupt(db, "run history data filename exists\n");
    }
    entry->count = count;
    entry->date = date;
    if (!array_insert(&db->run_history_by_count, _db_run_history_compare_entry_count, entry, mem_ref(entry)))
        _db_run_history_corrupt(db, "run history data count exists\n");
    return entry;
}

// Takes an entry without links away; what the file has stays as an entry of count 0, until it is written.
void _db_run_history_remove_entry(db_t *db, db_run_history_data_t *entry) {
    if (entry->count != 0)
        array_remove(&db->run_history_by_count, _db_run_history_compare_entry_count, entry);
    entry->count = 0;
    entry->date = 0;
    if (entry->saved_count != 0)
        return;
    _db_run_history_path_t key = {db_run_history_get_path(entry), entry->path_length};
    array_remove(&db->run_history_by_name, _db_run_history_compare_name, &key);
    _db_run_history_free_entry(db, entry);
}

// --- Setting -----------------------------------------------------------------------------------------------

static void _db_run_items_find(db_t *db, const char *path, u32 length, _db_run_items_t *items) {
    pointer_pool_init(&items->pool);
    _db_run_history_find_items(&db->folder_name_array, path, length, &items->pool);
    items->folder_count = pointer_pool_count(&items->pool);
    _db_run_history_find_items(&db->file_name_array, path, length, &items->pool);
    items->count = pointer_pool_count(&items->pool);
}

void _db_run_items_leave(db_t *db, const _db_run_items_t *items) {
    _db_run_items_for_each(items, [&](const db_item_t *item, bool is_folder) {
        _db_live_leave(db, item, is_folder, DB_CHANGE_RUNS);
    });
}

void _db_run_items_enter(db_t *db, const _db_run_items_t *items) {
    _db_run_items_for_each(items, [&](const db_item_t *item, bool is_folder) {
        _db_live_enter(db, item, item, is_folder, DB_CHANGE_RUNS);
        db_mark_updated(db, item);
    });
}

// Whether the entry and the links that are about to change are where they belong.
static bool _db_run_history_is_sound(db_t *db, const db_run_history_data_t *entry,
                                     const _db_run_items_t *items) {
    if (entry && entry->count != 0 &&
        array_find(&db->run_history_by_count, _db_run_history_compare_entry_count, entry) != mem_ref(entry)) {
        _db_run_history_corrupt(db, "corrupt run history data array\n");
        return false;
    }
    u32 linked = 0;
    bool sound = true;
    _db_run_items_for_each(items, [&](const db_item_t *item, bool) {
        const db_run_history_ptr_t *link = _db_run_history_find_link(db, item);
        if (!link || !sound)
            return;
        sound = link->data == (entry ? mem_ref(entry) : 0);
        if (!sound)
            _db_run_history_corrupt(db, "corrupt run history data array\n");
        else
            sound = _db_run_history_is_whole(db, link);
        linked++;
    });
    // A link of an item that does not have the path any more.
    if (sound && entry && linked != entry->link_count) {
        _db_run_history_corrupt(db, "corrupt run history data array\n");
        sound = false;
    }
    return sound;
}

static void _db_run_history_replace(db_t *db, db_run_history_data_t *entry, const _db_run_items_t *items,
                                    const _db_run_history_path_t *path, u32 count, u64 date) {
    _db_run_items_leave(db, items);
    _db_run_items_for_each(items, [&](const db_item_t *item, bool) {
        db_run_history_ptr_t *link = _db_run_history_find_link(db, item);
        if (!link)
            return;
        _db_run_history_take_out(db, link);
        if (count == 0)
            _db_run_history_drop_link(db, link);
    });
    if (count == 0) {
        if (entry && entry->count != 0)
            _db_run_history_remove_entry(db, entry);
    } else {
        entry = _db_run_history_write_entry(db, entry, path->text, path->length, count, date);
        _db_run_items_for_each(items, [&](const db_item_t *item, bool is_folder) {
            if (db_run_history_ptr_t *link = _db_run_history_find_link(db, item))
                _db_run_history_put_in(db, link);
            else
                _db_run_history_add_link(db, entry, mem_ref(item), is_folder);
        });
    }
    _db_run_items_enter(db, items);
}

void db_run_history_set_path(db_t *db, const char *path, u32 length, u32 count, u64 date) {
    db_run_history_data_t *entry = _db_run_history_find_entry(db, path, length);
    if (entry ? entry->count == count && (entry->date == date || count == 0) : count == 0)
        return;
    _db_run_items_t items;
    _db_run_items_find(db, path, length, &items);
    if (_db_run_history_is_sound(db, entry, &items)) {
        _db_run_history_path_t key = {path, length};
        _db_run_history_replace(db, entry, &items, &key, count, date);
        _db_run_history_set_dirty(db);
    }
    pointer_pool_kill(&items.pool);
}

static u32 _db_run_history_add(u32 a, u32 b) {
    return a + b < a ? ~0u : a + b;
}

static void _db_run_history_set(db_t *db, const db_item_t *item, bool add, u32 count, u64 date) {
    utf8_buf_t path;
    utf8_buf_init(&path);
    db_item_get_full_path_name(&path, item);
    u32 length = static_cast<u32>(path.length);
    const db_run_history_data_t *old = add ? db_run_history_find(db, path.data, length) : nullptr;
    count = _db_run_history_add(count, old ? old->count : 0);
    if (!add || count != 0)
        db_run_history_set_path(db, path.data, length, count, date);
    utf8_buf_kill(&path);
}

void db_run_history_set_item(db_t *db, const db_item_t *item, bool, u32 count, u64 date) {
    _db_run_history_set(db, item, false, count, date);
}

void db_run_history_add_item(db_t *db, const db_item_t *item, bool, u32 count, u64 date) {
    _db_run_history_set(db, item, true, count, date);
}

void db_run_history_clear(db_t *db) {
    u32 page = 0, value;
    for (i32 position = -1; array_next_to(&db->run_history_by_item, &page, &position, &value);)
        db_mem_free(&db->mem, mem_ptr<db_run_history_ptr_t>(value), sizeof(db_run_history_ptr_t));
    page = 0;
    for (i32 position = -1; array_next_to(&db->run_history_by_name, &page, &position, &value);)
        _db_run_history_free_entry(db, mem_ptr<db_run_history_data_t>(value));
    for (array_t *array :
         {&db->run_history_by_item, &db->run_history_links_by_count, &db->run_history_links_by_date,
          &db->run_history_by_name, &db->run_history_by_count})
        array_clear(array);
    db->run_history_loaded = db->run_history_dirty = 0;
}

// --- For live updates --------------------------------------------------------------------------------------

void db_run_history_item_added(db_t *db, const db_item_t *item, bool is_folder) {
    if (db->run_history_by_name.count == 0)
        return;
    utf8_buf_t path;
    utf8_buf_init(&path);
    db_item_get_full_path_name(&path, item);
    db_run_history_data_t *entry = _db_run_history_find_entry(db, path.data, static_cast<u32>(path.length));
    if (entry && entry->count != 0)
        _db_run_history_add_link(db, entry, mem_ref(item), is_folder);
    utf8_buf_kill(&path);
}

void db_run_history_item_removed(db_t *db, const db_item_t *item) {
    db_run_history_ptr_t *link = _db_run_history_find_link(db, item);
    if (!link || !_db_run_history_is_whole(db, link))
        return;
    _db_run_history_take_out(db, link);
    _db_run_history_drop_link(db, link);
}

// Keeps the links of an array that are of none of the two sets' items; the others go to `gone`, which may
// be 0. In one pass.
static void _db_run_history_filter(array_t *links, const db_item_set_t *folders, const db_item_set_t *files,
                                   pointer_pool_t *gone) {
    for (u32 i = 0; i < links->page_count; i++) {
        array_page_remove_if(links, links->pages[i], [=](u32 value) {
            const auto *link = mem_ptr<const db_run_history_ptr_t>(value);
            bool goes = db_item_set_has(link->is_folder ? folders : files, link->item);
            if (goes && gone)
                pointer_pool_push(gone, value);
            return goes;
        });
    }
    array_close(links);
}

void db_run_history_items_removed(db_t *db, const db_item_set_t *folders, const db_item_set_t *files) {
    if (db->run_history_by_item.count == 0)
        return;
    pointer_pool_t gone;
    pointer_pool_init(&gone);
    _db_run_history_filter(&db->run_history_by_item, folders, files, &gone);
    u32 count = pointer_pool_count(&gone);
    if (count != 0) {
        _db_run_history_filter(&db->run_history_links_by_count, folders, files, nullptr);
        _db_run_history_filter(&db->run_history_links_by_date, folders, files, nullptr);
        for (u32 i = 0; i < count; i++)
            _db_run_history_free_link(db, mem_ptr<db_run_history_ptr_t>(pointer_pool_get(&gone, i)));
    }
    pointer_pool_kill(&gone);
}

struct db_run_history_move_t {
    db_run_t run;
};

db_run_history_move_t *db_run_history_take(db_t *db, const db_item_t *item) {
    db_run_history_ptr_t *link = _db_run_history_find_link(db, item);
    if (!link || !_db_run_history_is_whole(db, link))
        return nullptr;
    auto *move = static_cast<db_run_history_move_t *>(mem_alloc(sizeof(db_run_history_move_t)));
    const db_run_history_data_t *data = db_run_history_link_get_data(link);
    move->run = {data->count, data->date};
    _db_run_history_take_out(db, link);
    _db_run_history_drop_link(db, link);
    return move;
}

void db_run_history_give(db_t *db, db_run_history_move_t *move, const db_item_t *item, bool is_folder) {
    if (!move) {
        db_run_history_item_added(db, item, is_folder);
        return;
    }
    utf8_buf_t path;
    utf8_buf_init(&path);
    db_item_get_full_path_name(&path, item);
    u32 length = static_cast<u32>(path.length);
    db_run_history_data_t *entry = _db_run_history_find_entry(db, path.data, length);
    // What items of other sources have under that path is not taken from them, nor are they given what they
    // do not have: the queries are not told.
    if (!entry || entry->link_count == 0) {
        entry = _db_run_history_write_entry(db, entry, path.data, length, move->run.count, move->run.date);
        _db_run_history_set_dirty(db);
    }
    _db_run_history_add_link(db, entry, mem_ref(item), is_folder);
    utf8_buf_kill(&path);
    mem_free(move);
}

} // namespace findwright
