// Live updates: files and folders that come, go, change and move while the index is in use.
//
// Every operation leaves all sorted arrays exact, without sorting any of them anew: an item is taken out of
// each while its old key holds, and put in with the new one. In the same step it tells every open query
// (db_live_hooks_t), adds up folder sizes along the chain of parents, and keeps the recent changes and the
// run history.
//
//     one item        removal and insertion by binary search in each array
//     few items       the same for each; first all removals, under the old chain, then all insertions
//     many items      marked in a bitmap; then one pass over each array (db_live_tree.cpp)
//
// What always holds: a key of an array never changes while the record is in that array; a record is freed
// only when nothing refers to it any more. An array that turns out not to fit the data is logged and reported
// (db_report_corrupt), and the rest of the operation goes on.
//
// Thread rules: the main thread, on a loaded database with no worker at work (after db_wait), or whoever owns
// a database that is not in place yet. Passes over many items run on threads of their own, and are waited
// for.
//
// `date` is the file time of a change, for the recent changes; DB_LIVE_NO_DATE: it is none that counts.
#pragma once

#include "db/db.h"
#include "db/db_file_info.h"
#include "db/db_folder.h"

namespace findwright {

inline constexpr u64 DB_LIVE_NO_DATE = 0;

// --- Files -------------------------------------------------------------------------------------------------

// Adds a file below `parent` (0: at the top) with its columns; without `info` they are unknown. 0: it exists,
// or is left out by the exclusions.
db_file_t *db_file_add(db_t *db, db_index_t *index, db_folder_t *parent, const char *name, u32 length,
                       const db_file_info_t *info, u64 date);
// Removes a record that is known.
void db_file_remove_item(db_t *db, db_file_t *file);
// The file of that name. False: there is none.
bool db_file_remove(db_t *db, const db_index_t *index, const db_folder_t *parent, const char *name,
                    u32 length);
db_file_t *db_file_find(const db_t *db, const db_index_t *index, const db_folder_t *parent, const char *name,
                        u32 length);
// Gives a file another place and name. It keeps its columns, its recent change and its run history, but has a
// new record, which is returned. A file that stands at the new place is removed. 0: the new name is left out,
// and the file is removed.
db_file_t *db_file_rename(db_t *db, db_file_t *file, db_folder_t *parent, const char *name, u32 length,
                          u64 date);
// Writes the columns that the index keeps and that differ. True when any did.
bool db_file_update_info(db_t *db, db_file_t *file, const db_file_info_t *info, u64 date);

// Something happened to a file or folder that no column of the index shows. What was read of it besides is
// read again when it is shown; and where the index holds no date of its last change, this is one.
void db_item_touch(db_t *db, const db_item_t *item, bool is_folder, u64 date);

// --- Folders -----------------------------------------------------------------------------------------------

// Adds a folder, with no size yet. 0: it exists (for the numbered ones also the number), or it is left out.
db_folder_t *db_folder_add(db_t *db, db_index_t *index, db_folder_t *parent, const char *name, u32 length,
                           const db_file_info_t *info, u64 date);
db_folder_t *db_folder_add_ntfs(db_t *db, db_index_t *index, u64 frn, db_folder_t *parent, const char *name,
                                u32 length, const db_file_info_t *info, u64 date);
db_folder_t *db_folder_add_refs(db_t *db, db_index_t *index, db_frn128_t frn, db_folder_t *parent,
                                const char *name, u32 length, const db_file_info_t *info, u64 date);
db_folder_t *db_folder_find(const db_t *db, const db_index_t *index, const db_folder_t *parent,
                            const char *name, u32 length);
// Removes all that is below a folder, but not the folder.
void db_folder_remove_tree(db_t *db, db_folder_t *folder);
// Removes a folder that holds nothing any more.
void db_folder_remove_item(db_t *db, db_folder_t *folder);
// Both.
void db_folder_remove(db_t *db, db_folder_t *folder);
// Gives a folder another place and name, with all that is below it. It has a new record, which is returned,
// and keeps its columns and histories. A folder that stands at the new place is removed with its tree. 0: the
// folder is gone, because the new place lies inside it or is left out.
db_folder_t *db_folder_move(db_t *db, db_folder_t *folder, db_folder_t *parent, const char *name, u32 length,
                            const db_file_info_t *info, u64 date);
// The same by reference numbers, as a volume's journal tells it: a folder that is not known is added, one
// whose new parent is not known is removed.
void db_folder_rename(db_t *db, db_index_t *index, db_frn128_t frn, db_frn128_t parent_frn, const char *name,
                      u32 length, const db_file_info_t *info, u64 date);
// Writes the columns that the index keeps and that differ, but for the size. True when any did.
bool db_folder_update_info(db_t *db, db_folder_t *folder, const db_file_info_t *info, u64 date);
// Carries a file's change of size up the chain from a folder (0: none). VALUE_UNKNOWN counts as 0.
void db_folder_add_size(db_t *db, db_folder_t *folder, u64 old_size, u64 new_size);

// --- By path -----------------------------------------------------------------------------------------------

// A full path, inside form, of an item of a folder source: the name of the source's root, and components
// behind it. The root's own path is the root.
db_folder_t *db_folder_find_path(const db_t *db, const db_index_t *index, const char *path, u32 length);
db_file_t *db_file_find_path(const db_t *db, const db_index_t *index, const char *path, u32 length);
// Each is nothing where the folder that is to hold the item is not known, or the item to be removed or
// renamed is not. An item of the other kind that stands at the place of one that is added or renamed is
// removed. A rename from outside the index adds nothing; one that leads out of it removes.
db_file_t *db_file_add_path(db_t *db, db_index_t *index, const char *path, u32 length,
                            const db_file_info_t *info, u64 date);
db_folder_t *db_folder_add_path(db_t *db, db_index_t *index, const char *path, u32 length,
                                const db_file_info_t *info, u64 date);
bool db_file_remove_path(db_t *db, db_index_t *index, const char *path, u32 length);
bool db_folder_remove_path(db_t *db, db_index_t *index, const char *path, u32 length);
db_file_t *db_file_rename_path(db_t *db, db_index_t *index, const char *path, u32 length,
                               const char *new_path, u32 new_length, const db_file_info_t *info, u64 date);
db_folder_t *db_folder_rename_path(db_t *db, db_index_t *index, const char *path, u32 length,
                                   const char *new_path, u32 new_length, const db_file_info_t *info,
                                   u64 date);

} // namespace findwright
