// What the files of the folder sources' scans share. See db_folder_update.h for the picture.
#pragma once

#include "base/obstack.h"
#include "base/pointer_pool.h"
#include "base/ref_map.h"
#include "db/db_file_info.h"
#include "track/db_folder_update.h"

namespace findwright {

// --- A scan (db_folder_scan.cpp) ---------------------------------------------------------------------------

#pragma pack(push, 4) // records of the arena lie at multiples of 4
// An item that was found, in the arena; the name, without a terminator, stands behind it.
struct db_scan_item_t {
    db_file_info_t info;
    mem_ref_t parent;     // 0: the first folder
    mem_ref_t found_item; // the record in the database that it turns out to be, or 0
    mem_ref_t next;       // of its kind, in the order in which they were found: parents first
    u32 hash;
    u32 name_length;
    u8 is_folder;
    u8 is_entered; // a folder that is to be listed
    u8 is_kept;    // a folder that could not be listed: what the index has below it stays
};
#pragma pack(pop)

struct db_scan_list_t {
    mem_ref_t first, last;
    u32 count;
};

// A slot of the table by which an item is found: its parent, kind and name tell the hash.
struct db_scan_slot_t {
    u32 hash;
    mem_ref_t item; // 0: free
};

struct db_folder_scan_t {
    db_folder_scan_t *next; // in the queue of those to be applied
    const db_index_folder_t *index;
    char *path; // of the first folder, without a separator at its end
    bool is_whole;
    obstack_bytes_t items;
    db_scan_list_t folders, files; // the first folder is the root of the scan
    db_scan_slot_t *slots;         // a power of two of them, the last bits of a hash being the place
    u32 slot_mask;
};

inline db_scan_item_t *db_scan_item(mem_ref_t ref) {
    return mem_ptr<db_scan_item_t>(ref);
}
inline const char *db_scan_item_get_name(const db_scan_item_t *item) {
    return reinterpret_cast<const char *>(item + 1);
}
// The item of that name in a folder of the scan that no other record was found to be; 0 for none.
db_scan_item_t *_db_folder_scan_find(const db_folder_scan_t *scan, const db_scan_item_t *parent,
                                     bool is_folder, const char *name, u32 length);

// --- The state of a database (db_folder_update.cpp) --------------------------------------------------------

struct db_folder_apply_t;

// The link is how it learns of rebuilds, of the end of workers, and of changes between two slices.
struct db_folder_update_t : db_query_link_t {
    db_t *db;
    bool is_started; // schedules count

    os_thread_t *thread;      // the scan's, or 0
    db_index_folder_t *index; // what it scans
    db_folder_scan_t *scan;   // what has come of it
    std::atomic<u32> cancel;

    db_folder_scan_t *first, *last; // to be applied
    db_folder_apply_t *apply;       // of the first of them, or 0
    bool is_slice_posted;
};

// --- The apply (db_folder_apply.cpp) -----------------------------------------------------------------------

db_folder_apply_t *_db_folder_apply_create(db_t *db, db_index_folder_t *index, db_folder_scan_t *scan);
void _db_folder_apply_free(db_folder_apply_t *apply);
// Goes on for a slice. True when it is done.
bool _db_folder_apply_run(db_folder_apply_t *apply);
// Items have come, gone or moved by another hand.
void _db_folder_apply_content_changed(db_folder_apply_t *apply);

} // namespace findwright
