// How the result of a scan enters the index, in slices.
//
//     folders   every folder of the database is given its counterpart in the scan, by its name in that of its
//               parent; what differs is updated. One that has none is gone, with all below it
//     files     the same for every file whose folder has a counterpart
//     removal   of the files that are gone one by one, of the folders as trees
//     addition  of what no record was found for, parents first
//
// Each item of the database costs one look at its parent, and those of the tree one more into the scan's
// table: no search through a sorted array. Nothing is written into records that are not the tree's.
//
// Between two slices other hands may change items of other sources, and with them the places in the name
// arrays. The walk then goes on behind the last item of its own tree, which nobody else touches.
#include "base/mem.h"
#include "db/db_file.h"
#include "db/db_folder.h"
#include "os/debug.h"
#include "os/os.h"
#include "track/db_folder_update_internal.h"
#include "track/db_live.h"

#include <cstring>

namespace findwright {

static constexpr u32 APPLY_CLOCK_LOOKS = 256; // items that are looked at between two looks at the clock

enum _db_folder_apply_phase_t : u32 {
    APPLY_START,
    APPLY_FOLDERS,
    APPLY_FILES,
    APPLY_REMOVE_FILES,
    APPLY_REMOVE_FOLDERS,
    APPLY_ADD_FOLDERS,
    APPLY_ADD_FILES,
    APPLY_DONE,
};

// What a folder of the database is to the scan: the item that it was found to be, or one of these.
static constexpr mem_ref_t APPLY_FOREIGN = 1; // not of the tree
static constexpr mem_ref_t APPLY_GONE = 2;
static constexpr mem_ref_t APPLY_KEPT = 3; // below a folder that could not be listed

struct db_folder_apply_t {
    db_t *db;
    db_index_folder_t *index;
    db_folder_scan_t *scan;
    _db_folder_apply_phase_t phase;
    u64 date;                     // for the recent changes
    mem_ref_t root;               // the record of the first folder; 0: it is not there yet
    mem_ref_t parent;             // of a first folder that is to be added
    ref_map_t<mem_ref_t> folders; // what each folder of the database is
    mem_ref_t *chain;             // folders of which it is not yet known
    u32 chain_capacity;

    // The walk over a name array.
    u32 page;
    i32 position;
    mem_ref_t last_own; // the last item of the tree that was looked at, or 0
    bool is_changed;    // places are not what they were

    pointer_pool_t gone_files, gone_folders; // the topmost ones
    u32 cursor;                              // in one of them
    mem_ref_t item;                          // the next one of the scan to be added

    u32 slice; // milliseconds
    u32 start; // of the slice
    u32 looks; // since the clock was looked at
    u32 added_count, removed_count, updated_count;
};

static bool _db_folder_apply_is_time_up(db_folder_apply_t *apply, u32 looks) {
    apply->looks += looks;
    if (apply->looks < APPLY_CLOCK_LOOKS)
        return false;
    apply->looks = 0;
    return os_get_tick_count() - apply->start >= apply->slice * 1000;
}

// A change to the index costs about as much as so many looks.
static constexpr u32 APPLY_CHANGE_LOOKS = APPLY_CLOCK_LOOKS / 4;

// --- Counterparts ------------------------------------------------------------------------------------------

static db_scan_item_t *_db_folder_apply_match(db_folder_apply_t *apply, mem_ref_t parent, mem_ref_t ref,
                                              bool is_folder) {
    u32 length;
    const char *name = db_item_get_name(db_item(ref), &length);
    db_scan_item_t *item = _db_folder_scan_find(apply->scan, db_scan_item(parent), is_folder, name, length);
    if (item)
        item->found_item = ref;
    return item;
}

static void _db_folder_apply_update_folder(db_folder_apply_t *apply, const db_scan_item_t *item) {
    db_file_info_t info = item->info;
    if (!db_folder_update_info(apply->db, mem_ptr<db_folder_t>(item->found_item), &info, apply->date))
        return;
    apply->updated_count++;
    apply->looks += APPLY_CHANGE_LOOKS;
}

// What a folder is whose parent is known.
static mem_ref_t _db_folder_apply_settle(db_folder_apply_t *apply, mem_ref_t ref, mem_ref_t parent) {
    if (parent < MEM_REF_FIRST)
        return parent;
    if (const db_scan_item_t *item = _db_folder_apply_match(apply, parent, ref, true)) {
        _db_folder_apply_update_folder(apply, item);
        return mem_ref(item);
    }
    if (db_scan_item(parent)->is_kept)
        return APPLY_KEPT;
    pointer_pool_push(&apply->gone_folders, ref);
    return APPLY_GONE;
}

static void _db_folder_apply_push_chain(db_folder_apply_t *apply, u32 depth, mem_ref_t ref) {
    static constexpr u32 FIRST_CAPACITY = 64;
    if (depth == apply->chain_capacity) {
        u32 capacity = depth ? depth * 2 : FIRST_CAPACITY;
        auto *chain = static_cast<mem_ref_t *>(mem_alloc(capacity * sizeof(mem_ref_t)));
        if (apply->chain) {
            std::memcpy(chain, apply->chain, depth * sizeof(mem_ref_t));
            mem_free(apply->chain);
        }
        apply->chain = chain;
        apply->chain_capacity = capacity;
    }
    apply->chain[depth] = ref;
}

// What a folder of the database is; 0 is the parent of a top item.
static mem_ref_t _db_folder_apply_get(db_folder_apply_t *apply, mem_ref_t folder) {
    u32 depth = 0;
    mem_ref_t state = APPLY_FOREIGN;
    for (mem_ref_t ref = folder; ref; ref = db_item(ref)->parent) {
        if (const mem_ref_t *known = ref_map_find(&apply->folders, ref)) {
            state = *known;
            break;
        }
        _db_folder_apply_push_chain(apply, depth++, ref);
    }
    while (depth != 0) {
        mem_ref_t ref = apply->chain[--depth];
        state = _db_folder_apply_settle(apply, ref, state);
        *ref_map_make(&apply->folders, ref) = state;
    }
    return state;
}

// --- The walk ----------------------------------------------------------------------------------------------

// Looks at one item; returns what it, or the folder that holds it, is.
using _db_folder_apply_look_t = mem_ref_t(db_folder_apply_t *apply, mem_ref_t ref);

static mem_ref_t _db_folder_apply_look_at_folder(db_folder_apply_t *apply, mem_ref_t ref) {
    return _db_folder_apply_get(apply, ref);
}

static mem_ref_t _db_folder_apply_look_at_file(db_folder_apply_t *apply, mem_ref_t ref) {
    mem_ref_t folder = _db_folder_apply_get(apply, db_item(ref)->parent);
    if (folder < MEM_REF_FIRST)
        return folder;
    if (const db_scan_item_t *item = _db_folder_apply_match(apply, folder, ref, false)) {
        db_file_info_t info = item->info;
        if (db_file_update_info(apply->db, mem_ptr<db_file_t>(ref), &info, apply->date)) {
            apply->updated_count++;
            apply->looks += APPLY_CHANGE_LOOKS;
        }
    } else if (!db_scan_item(folder)->is_kept) {
        pointer_pool_push(&apply->gone_files, ref);
    }
    return folder;
}

static int _db_folder_apply_compare(u32 value, const void *key) {
    return db_item_compare_name(db_item(value), static_cast<const db_item_t *>(key));
}

// Where the walk goes on when items have moved: what lies behind its last own item was not looked at, and of
// what lies before it only items of other sources may be looked at again. A slice in which it met none of its
// own was for nothing, so that the next one is longer.
static bool _db_folder_apply_find_place(db_folder_apply_t *apply, const array_t *array) {
    apply->is_changed = false;
    apply->slice = apply->slice * 2 + 1;
    apply->page = 0;
    apply->position = -1;
    return !apply->last_own || array_find_cursor(array, _db_folder_apply_compare, db_item(apply->last_own),
                                                 &apply->page, &apply->position);
}

// True when all items were looked at.
static bool _db_folder_apply_walk(db_folder_apply_t *apply, const array_t *array,
                                  _db_folder_apply_look_t *look) {
    if (apply->is_changed && !_db_folder_apply_find_place(apply, array)) {
        debug_printf("corrupt name array\n");
        db_report_corrupt(apply->db);
        apply->phase = APPLY_DONE;
        return false;
    }
    mem_ref_t ref;
    while (array_next_to(array, &apply->page, &apply->position, &ref)) {
        if (look(apply, ref) != APPLY_FOREIGN) {
            apply->last_own = ref;
            apply->slice = db_folder_update_slice;
        }
        if (_db_folder_apply_is_time_up(apply, 1))
            return false;
    }
    return true;
}

static void _db_folder_apply_start_walk(db_folder_apply_t *apply) {
    apply->page = 0;
    apply->position = -1;
    apply->last_own = 0;
    apply->is_changed = false;
}

// --- Removal and addition ----------------------------------------------------------------------------------

static bool _db_folder_apply_remove_files(db_folder_apply_t *apply) {
    u32 count = pointer_pool_count(&apply->gone_files);
    while (apply->cursor < count) {
        mem_ref_t ref = pointer_pool_get(&apply->gone_files, apply->cursor++);
        db_file_remove_item(apply->db, mem_ptr<db_file_t>(ref));
        apply->removed_count++;
        if (_db_folder_apply_is_time_up(apply, APPLY_CHANGE_LOOKS))
            return false;
    }
    return true;
}

static bool _db_folder_apply_remove_folders(db_folder_apply_t *apply) {
    u32 count = pointer_pool_count(&apply->gone_folders);
    while (apply->cursor < count) {
        mem_ref_t ref = pointer_pool_get(&apply->gone_folders, apply->cursor++);
        db_folder_remove(apply->db, mem_ptr<db_folder_t>(ref));
        apply->removed_count++;
        if (_db_folder_apply_is_time_up(apply, APPLY_CLOCK_LOOKS)) // a tree may have been a large one
            return false;
    }
    return true;
}

static void _db_folder_apply_add(db_folder_apply_t *apply, db_scan_item_t *item) {
    mem_ref_t parent = item->parent ? db_scan_item(item->parent)->found_item : apply->parent;
    if (!parent) // was left out
        return;
    db_folder_t *folder = mem_ptr<db_folder_t>(parent);
    const char *name = db_scan_item_get_name(item);
    db_file_info_t info = item->info;
    db_item_t *added;
    if (item->is_folder)
        added = db_folder_add(apply->db, apply->index, folder, name, item->name_length, &info, apply->date);
    else
        added = db_file_add(apply->db, apply->index, folder, name, item->name_length, &info, apply->date);
    item->found_item = added ? mem_ref(added) : 0;
    apply->added_count += added != nullptr;
}

static bool _db_folder_apply_add_list(db_folder_apply_t *apply) {
    while (apply->item) {
        db_scan_item_t *item = db_scan_item(apply->item);
        apply->item = item->next;
        bool is_new = !item->found_item;
        if (is_new)
            _db_folder_apply_add(apply, item);
        if (_db_folder_apply_is_time_up(apply, is_new ? APPLY_CHANGE_LOOKS : 1))
            return false;
    }
    return true;
}

// --- The phases --------------------------------------------------------------------------------------------

// The record of the first folder, or of the folder that is to hold it.
static void _db_folder_apply_place(db_folder_apply_t *apply) {
    const db_folder_scan_t *scan = apply->scan;
    u32 length = static_cast<u32>(std::strlen(scan->path));
    db_folder_t *root, *parent = nullptr;
    if (scan->is_whole) {
        root = db_folder_find(apply->db, apply->index, nullptr, scan->path, length);
    } else {
        root = db_folder_find_path(apply->db, apply->index, scan->path, length);
        u32 name_length = db_scan_item(scan->folders.first)->name_length;
        parent = db_folder_find_path(apply->db, apply->index, scan->path, length - name_length - 1);
    }
    apply->root = root ? mem_ref(root) : 0;
    apply->parent = parent ? mem_ref(parent) : 0;
}

static void _db_folder_apply_start(db_folder_apply_t *apply) {
    debug_printf("rescan update db\n");
    apply->date = os_get_file_time();
    _db_folder_apply_place(apply);
    db_scan_item_t *first = db_scan_item(apply->scan->folders.first);
    apply->item = mem_ref(first);
    if (apply->root) {
        first->found_item = apply->root;
        *ref_map_make(&apply->folders, apply->root) = mem_ref(first);
        _db_folder_apply_update_folder(apply, first);
        apply->phase = APPLY_FOLDERS;
    } else if (apply->parent) { // all that it has is new; a file that stood in its place goes
        db_file_info_t info = first->info;
        db_folder_t *added =
            db_folder_add_path(apply->db, apply->index, apply->scan->path,
                               static_cast<u32>(std::strlen(apply->scan->path)), &info, apply->date);
        first->found_item = added ? mem_ref(added) : 0;
        apply->phase = added ? APPLY_ADD_FOLDERS : APPLY_DONE;
    } else {
        apply->phase = APPLY_DONE;
    }
    _db_folder_apply_start_walk(apply);
}

static void _db_folder_apply_end(db_folder_apply_t *apply) {
    debug_printf("added %u, removed %u, updated %u of %u items in %s\n", apply->added_count,
                 apply->removed_count, apply->updated_count, db_folder_scan_get_count(apply->scan),
                 apply->scan->path);
}

// One phase as far as the time goes. False: it is up.
static bool _db_folder_apply_step(db_folder_apply_t *apply) {
    bool is_done = true;
    switch (apply->phase) {
    case APPLY_START: _db_folder_apply_start(apply); return true;
    case APPLY_FOLDERS:
        is_done =
            _db_folder_apply_walk(apply, &apply->db->folder_name_array, _db_folder_apply_look_at_folder);
        if (is_done)
            _db_folder_apply_start_walk(apply);
        break;
    case APPLY_FILES:
        is_done = _db_folder_apply_walk(apply, &apply->db->file_name_array, _db_folder_apply_look_at_file);
        break;
    case APPLY_REMOVE_FILES: is_done = _db_folder_apply_remove_files(apply); break;
    case APPLY_REMOVE_FOLDERS: is_done = _db_folder_apply_remove_folders(apply); break;
    case APPLY_ADD_FOLDERS:
        is_done = _db_folder_apply_add_list(apply);
        if (is_done)
            apply->item = apply->scan->files.first;
        break;
    case APPLY_ADD_FILES: is_done = _db_folder_apply_add_list(apply); break;
    case APPLY_DONE: return false;
    }
    if (!is_done)
        return apply->phase == APPLY_DONE;
    apply->cursor = 0;
    apply->slice = db_folder_update_slice;
    apply->phase = static_cast<_db_folder_apply_phase_t>(apply->phase + 1);
    return true;
}

bool _db_folder_apply_run(db_folder_apply_t *apply) {
    apply->start = os_get_tick_count();
    apply->looks = 0;
    while (apply->phase != APPLY_DONE && _db_folder_apply_step(apply))
        ;
    apply->is_changed = false; // by none but this slice itself, which moves no names
    if (apply->phase != APPLY_DONE)
        return false;
    _db_folder_apply_end(apply);
    return true;
}

void _db_folder_apply_content_changed(db_folder_apply_t *apply) {
    apply->is_changed = true;
}

db_folder_apply_t *_db_folder_apply_create(db_t *db, db_index_folder_t *index, db_folder_scan_t *scan) {
    auto *apply = static_cast<db_folder_apply_t *>(mem_alloc(sizeof(db_folder_apply_t)));
    *apply = {};
    apply->db = db;
    apply->index = index;
    apply->scan = scan;
    apply->slice = db_folder_update_slice;
    pointer_pool_init(&apply->gone_files);
    pointer_pool_init(&apply->gone_folders);
    return apply;
}

void _db_folder_apply_free(db_folder_apply_t *apply) {
    pointer_pool_kill(&apply->gone_folders);
    pointer_pool_kill(&apply->gone_files);
    ref_map_kill(&apply->folders);
    if (apply->chain)
        mem_free(apply->chain);
    mem_free(apply);
}

} // namespace findwright
