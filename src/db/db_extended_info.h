// What the index does not hold of an item, read from the file system when it is asked for, and kept: sizes,
// dates and attributes by item, and the system's type names by extension.
//
// Owner: a query. Any thread may read, several at once: a lock guards the two caches, and is not held while
// the file system is asked. Entries are keyed by the item's record, so the owner clears the cache before
// records go (db_extended_info_clear).
#pragma once

#include "db/db.h"
#include "db/db_file_info.h"

namespace findwright {

// Setting: what was read of an item is read again when the item is seen to change.
inline u32 extended_information_cache_monitor = 1;

struct db_extended_info_t;

db_extended_info_t *db_extended_info_create(db_t *db);
void db_extended_info_destroy(db_extended_info_t *info);
// Forgets all items; type names stay.
void db_extended_info_clear(db_extended_info_t *info);

// Reads one item, or takes it from the cache. False for an item of a file list: there is no file. What cannot
// be read is not known, which is kept too; a folder's size is never known here.
bool db_get_folder_fileinfo(db_extended_info_t *info, const db_item_t *folder, db_file_info_t *out);
bool db_get_file_fileinfo(db_extended_info_t *info, const db_item_t *file, db_file_info_t *out);
// What is known of an item without asking the file system. False when that would have to be asked; an item of
// a file list is known to have nothing.
bool db_extended_info_find(db_extended_info_t *info, const db_item_t *item, db_file_info_t *out);

// The system's name for files of an extension (without its dot, may be empty), and for a folder. UTF-8,
// terminated; the text lives as long as the cache.
const char *db_extended_info_get_type_name(db_extended_info_t *info, const char *extension, u32 length);
const char *db_extended_info_get_folder_type_name(db_extended_info_t *info);

} // namespace findwright
