// What one thread of a pass remembers, so that it is not found out for each item again: the lengths of the
// paths of the folders that items lie in, and a term's answers by extension and by index.
//
// All are small tables without chains: what comes later takes the place of what is there.
//
// Owner: a db_scan_t, which makes it when a test first asks. One thread. Valid while the index does not
// change and the terms live: for one pass.
#pragma once

#include "db/db_item.h"
#include "query/db_term.h"

namespace findwright {

inline constexpr u32 DB_MEMO_FOLDERS = 32768;   // a power of two, as the others
inline constexpr u32 DB_MEMO_EXTENSIONS = 1024; // answers
inline constexpr u32 DB_MEMO_EXTENSION_MAX = 18;
inline constexpr u32 DB_MEMO_INDEXES = 16;

struct db_memo_folder_t {
    mem_ref_t folder; // 0: free
    u32 path_units;   // of UTF-16, of its full path
};
struct db_memo_extension_t {
    const db_exec_term_t *term; // 0: free
    bool answer;
    u8 length;
    char extension[DB_MEMO_EXTENSION_MAX];
};
struct db_memo_index_t {
    const db_exec_term_t *term; // 0: free
    const db_index_t *index;
    bool answer;
};
struct db_scan_memo_t {
    db_memo_folder_t folders[DB_MEMO_FOLDERS];
    db_memo_extension_t extensions[DB_MEMO_EXTENSIONS];
    db_memo_index_t indexes[DB_MEMO_INDEXES];
};

db_scan_memo_t *db_scan_memo_create();
void db_scan_memo_free(db_scan_memo_t *memo);

// UTF-16 units of a name, and of a folder's path, which is walked to its top; 0 for none.
u32 db_item_get_name_units(const db_item_t *item);
u32 db_folder_get_path_units(mem_ref_t folder);

inline db_memo_folder_t *db_scan_memo_slot(db_scan_memo_t *memo, mem_ref_t folder) {
    return &memo->folders[folder * 0x9E3779B1u >> 17];
}
static_assert(DB_MEMO_FOLDERS == 1u << (32 - 17));

// The length of a folder's path; found out by walking up to the first folder that is known.
u32 db_scan_memo_find_path_units(db_scan_memo_t *memo, mem_ref_t folder);
inline u32 db_scan_memo_get_path_units(db_scan_memo_t *memo, mem_ref_t folder) {
    const db_memo_folder_t *slot = db_scan_memo_slot(memo, folder);
    return slot->folder == folder ? slot->path_units : db_scan_memo_find_path_units(memo, folder);
}
// Asks the memory for a folder that is not known.
inline void db_scan_memo_prefetch(db_scan_memo_t *memo, mem_ref_t folder) {
    if (folder >= MEM_REF_FIRST && db_scan_memo_slot(memo, folder)->folder != folder)
        __builtin_prefetch(db_item(folder));
}

// The place of a term's answer for an extension that is not longer than DB_MEMO_EXTENSION_MAX, and whether
// it is there. Where it is not the caller sets `answer`.
bool db_scan_memo_find_extension(db_scan_memo_t *memo, const db_exec_term_t *term, const char *extension,
                                 u32 length, db_memo_extension_t **place);

} // namespace findwright
