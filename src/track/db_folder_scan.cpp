// The scan of a folder source, or of a part of it: a breadth-first walk on one thread, into items of its own.
#include "base/mem.h"
#include "base/utf8.h"
#include "os/debug.h"
#include "os/os.h"
#include "track/db_folder_rules.h"
#include "track/db_folder_update_internal.h"

#include <cstring>

namespace findwright {

static constexpr u32 SCAN_ERROR_TEXT = 512;
static constexpr u32 SCAN_MIN_SLOTS = 64;

// A scan at its work.
struct _db_folder_scanner_t {
    db_folder_scan_t *scan;
    const std::atomic<u32> *cancel;
    db_folder_rules_t rules;
    mem_ref_t folder; // the one that is listed
    utf8_buf_t path;  // its path; of an item while that is looked at
    u32 path_length;
};

static bool _db_folder_scan_is_cancelled(const _db_folder_scanner_t *scanner) {
    return scanner->cancel && scanner->cancel->load(std::memory_order_relaxed);
}

// --- Items -------------------------------------------------------------------------------------------------

static u32 _db_folder_scan_hash(mem_ref_t parent, bool is_folder, const char *name, u32 length) {
    static constexpr u64 MULTIPLIER = 0x9E3779B97F4A7C15;
    u64 hash = (static_cast<u64>(parent) << 1 | is_folder) * MULTIPLIER;
    while (length != 0) {
        u64 part = 0;
        u32 size = length < sizeof part ? length : static_cast<u32>(sizeof part);
        std::memcpy(&part, name, size);
        hash = ((hash ^ hash >> 32) + part + size) * MULTIPLIER;
        name += size;
        length -= size;
    }
    return static_cast<u32>(hash >> 32);
}

static db_scan_item_t *_db_folder_scan_add(db_folder_scan_t *scan, mem_ref_t parent,
                                           const os_folder_entry_t *entry, const char *name, u32 length) {
    auto *item =
        static_cast<db_scan_item_t *>(obstack_bytes_alloc(&scan->items, sizeof(db_scan_item_t) + length));
    *item = {};
    item->info = db_folder_rules_get_info(entry);
    item->parent = parent;
    item->hash = _db_folder_scan_hash(parent, entry->is_folder, name, length);
    item->name_length = length;
    item->is_folder = entry->is_folder;
    std::memcpy(reinterpret_cast<char *>(item + 1), name, length);
    db_scan_list_t *list = entry->is_folder ? &scan->folders : &scan->files;
    (list->last ? db_scan_item(list->last)->next : list->first) = mem_ref(item);
    list->last = mem_ref(item);
    list->count++;
    return item;
}

// Whether a folder in the one that is listed may enter the index.
static bool _db_folder_scan_is_included(_db_folder_scanner_t *scanner, const os_folder_entry_t *entry) {
    const db_exclude_set_t *exclude = scanner->rules.exclude;
    if (!exclude->exclude_folders.first)
        return true;
    if (!exclude->folders_need_path)
        return db_folder_is_included(exclude, 0, entry->name, entry->length);
    utf8_buf_set_length(&scanner->path, scanner->path_length);
    utf8_buf_cat_byte(&scanner->path, '\\');
    utf8_buf_cat_utf8(&scanner->path, entry->name, entry->length);
    return db_folder_path_is_included(exclude, scanner->path.data, static_cast<u32>(scanner->path.length));
}

static bool _db_folder_scan_entry_proc(void *param, const os_folder_entry_t *entry) {
    auto *scanner = static_cast<_db_folder_scanner_t *>(param);
    if (_db_folder_scan_is_cancelled(scanner))
        return false;
    if (db_folder_rules_is_skipped(&scanner->rules, entry) ||
        (entry->is_folder && !_db_folder_scan_is_included(scanner, entry)))
        return true;
    db_scan_item_t *item =
        _db_folder_scan_add(scanner->scan, scanner->folder, entry, entry->name, entry->length);
    item->is_entered = entry->is_folder && db_folder_rules_is_entered(&scanner->rules, entry);
    return true;
}

// --- Folders -----------------------------------------------------------------------------------------------

// The path of a folder, the first one's for the system, in the scanner's buffer.
static void _db_folder_scan_set_path(_db_folder_scanner_t *scanner) {
    u32 total = 0;
    const db_scan_item_t *item = db_scan_item(scanner->folder);
    for (const db_scan_item_t *at = item; at->parent; at = db_scan_item(at->parent))
        total += 1 + at->name_length;
    u32 first = static_cast<u32>(std::strlen(scanner->scan->path));
    total += first;
    utf8_buf_grow_empty(&scanner->path, total + 1);
    std::memcpy(scanner->path.data, scanner->scan->path, first);
    char *end = scanner->path.data + total;
    for (const db_scan_item_t *at = item; at->parent; at = db_scan_item(at->parent)) {
        end -= at->name_length;
        std::memcpy(end, db_scan_item_get_name(at), at->name_length);
        *--end = '\\';
    }
    utf8_buf_set_length(&scanner->path, total);
    scanner->path_length = total;
}

// False: nothing can be told of the whole.
static bool _db_folder_scan_list(_db_folder_scanner_t *scanner) {
    db_scan_item_t *folder = db_scan_item(scanner->folder);
    bool is_root = scanner->scan->is_whole && !folder->parent;
    _db_folder_scan_set_path(scanner);
    const char *path = is_root ? scanner->rules.root_path : scanner->path.data;
    // The listing writes items' paths into the buffer.
    char *copy = utf8_alloc_copy(path);
    bool is_listed = os_folder_list(copy, db_folder_rules_root_length(&scanner->rules, is_root),
                                    _db_folder_scan_entry_proc, scanner);
    u32 error = os_get_last_error();
    mem_free(copy);
    if (is_listed)
        return true;
    if (!folder->parent)
        return false;
    if (os_error_is_not_found(error)) // it has gone since it was found, and is an empty one
        return true;
    folder->is_kept = 1;
    utf8_buf_set_length(&scanner->path, scanner->path_length);
    char text[SCAN_ERROR_TEXT];
    os_error_text(error, text, sizeof text);
    debug_printf("cannot list %s: %s\n", scanner->path.data, text);
    return true;
}

// Whether the root still is what it was when the scan began: a share that has gone on the way leaves nothing
// but folders that do not exist.
static bool _db_folder_scan_is_root_same(const _db_folder_scanner_t *scanner) {
    os_folder_entry_t entry;
    return os_folder_get_entry(scanner->rules.root_path, &entry) && entry.is_folder &&
           entry.device == scanner->rules.device;
}

static bool _db_folder_scan_walk(_db_folder_scanner_t *scanner) {
    for (mem_ref_t ref = scanner->scan->folders.first; ref; ref = db_scan_item(ref)->next) {
        if (_db_folder_scan_is_cancelled(scanner))
            return false;
        scanner->folder = ref;
        if (db_scan_item(ref)->is_entered && !_db_folder_scan_list(scanner))
            return false;
    }
    return !_db_folder_scan_is_cancelled(scanner) && _db_folder_scan_is_root_same(scanner);
}

// --- The table ---------------------------------------------------------------------------------------------

static void _db_folder_scan_enter(db_folder_scan_t *scan, const db_scan_list_t *list) {
    for (mem_ref_t ref = list->first; ref; ref = db_scan_item(ref)->next) {
        u32 hash = db_scan_item(ref)->hash, place = hash & scan->slot_mask;
        while (scan->slots[place].item)
            place = (place + 1) & scan->slot_mask;
        scan->slots[place] = {hash, ref};
    }
}

static void _db_folder_scan_make_table(db_folder_scan_t *scan) {
    u64 wanted = static_cast<u64>(db_folder_scan_get_count(scan)) * 3 / 2;
    u64 slots = SCAN_MIN_SLOTS;
    while (slots < wanted)
        slots *= 2;
    size_t size = static_cast<size_t>(slots) * sizeof *scan->slots;
    scan->slots = static_cast<db_scan_slot_t *>(mem_alloc(size));
    std::memset(scan->slots, 0, size);
    scan->slot_mask = static_cast<u32>(slots - 1);
    _db_folder_scan_enter(scan, &scan->folders);
    _db_folder_scan_enter(scan, &scan->files);
}

db_scan_item_t *_db_folder_scan_find(const db_folder_scan_t *scan, const db_scan_item_t *parent,
                                     bool is_folder, const char *name, u32 length) {
    mem_ref_t parent_ref = mem_ref(parent);
    u32 hash = _db_folder_scan_hash(parent_ref, is_folder, name, length);
    for (u32 place = hash & scan->slot_mask; scan->slots[place].item; place = (place + 1) & scan->slot_mask) {
        if (scan->slots[place].hash != hash)
            continue;
        db_scan_item_t *item = db_scan_item(scan->slots[place].item);
        if (item->parent == parent_ref && item->is_folder == is_folder && !item->found_item &&
            item->name_length == length && std::memcmp(db_scan_item_get_name(item), name, length) == 0)
            return item;
    }
    return nullptr;
}

// --- A scan ------------------------------------------------------------------------------------------------

static db_folder_scan_t *_db_folder_scan_create(const db_index_folder_t *index, const char *path, u32 length,
                                                bool is_whole) {
    auto *scan = static_cast<db_folder_scan_t *>(mem_alloc(sizeof(db_folder_scan_t)));
    *scan = {};
    scan->index = index;
    scan->path = static_cast<char *>(mem_alloc(length + 1));
    std::memcpy(scan->path, path, length);
    scan->path[length] = 0;
    scan->is_whole = is_whole;
    obstack_bytes_init(&scan->items);
    return scan;
}

void db_folder_scan_free(db_folder_scan_t *scan) {
    if (scan->slots)
        mem_free(scan->slots);
    obstack_bytes_kill(&scan->items);
    mem_free(scan->path);
    mem_free(scan);
}

u32 db_folder_scan_get_count(const db_folder_scan_t *scan) {
    return scan->folders.count + scan->files.count;
}

// The folder that a part begins with, as the listing of its own folder would tell it.
static bool _db_folder_scan_get_part(const _db_folder_scanner_t *scanner, const char *path, u32 length,
                                     os_folder_entry_t *entry) {
    if (!os_folder_get_link_entry(path, entry) || !entry->is_folder)
        return false;
    const char *name = path + length;
    while (name != path && name[-1] != '\\')
        name--;
    entry->name = name;
    entry->length = static_cast<u32>(path + length - name);
    return !db_folder_rules_is_skipped(&scanner->rules, entry) &&
           db_folder_path_is_included(scanner->rules.exclude, path, length);
}

// What the first folder holds is listed where it is the root, or where a listing of its own folder would have
// entered it.
static bool _db_folder_scan_add_first(_db_folder_scanner_t *scanner, const char *path, u32 length,
                                      const os_folder_entry_t *root) {
    db_folder_scan_t *scan = scanner->scan;
    if (scan->is_whole) {
        db_scan_item_t *first = _db_folder_scan_add(scan, 0, root, path, length);
        first->is_entered = db_folder_rules_is_root_listed(&scanner->rules);
        return true;
    }
    os_folder_entry_t entry;
    if (!_db_folder_scan_get_part(scanner, scan->path, length, &entry))
        return false;
    db_scan_item_t *first = _db_folder_scan_add(scan, 0, &entry, entry.name, entry.length);
    first->is_entered = db_folder_rules_is_entered(&scanner->rules, &entry);
    return true;
}

static db_folder_scan_t *_db_folder_scan_make(_db_folder_scanner_t *scanner, const db_index_folder_t *index,
                                              const char *path, const os_folder_entry_t *root) {
    u32 length = static_cast<u32>(std::strlen(path));
    while (length != 0 && path[length - 1] == '\\')
        length--;
    bool is_whole = length == scanner->rules.root_length;
    scanner->scan = _db_folder_scan_create(index, path, length, is_whole);
    if (_db_folder_scan_add_first(scanner, path, length, root) && _db_folder_scan_walk(scanner)) {
        _db_folder_scan_make_table(scanner->scan);
        return scanner->scan;
    }
    db_folder_scan_free(scanner->scan);
    return nullptr;
}

db_folder_scan_t *db_folder_scan_run(db_t *db, const db_index_folder_t *index, const char *path,
                                     std::atomic<u32> *cancel) {
    u32 start = os_get_tick_count();
    debug_printf("scanning %s...\n", path);
    _db_folder_scanner_t scanner;
    scanner.cancel = cancel;
    os_folder_entry_t root;
    db_folder_scan_t *scan = nullptr;
    if (db_folder_rules_open(&scanner.rules, &db->exclude, index->path, &root)) {
        utf8_buf_init(&scanner.path);
        scan = _db_folder_scan_make(&scanner, index, path, &root);
        utf8_buf_kill(&scanner.path);
    }
    debug_printf("scan completed in %f seconds\n", os_get_tick_count() - start);
    return scan;
}

} // namespace findwright
