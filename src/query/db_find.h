// Direct look-ups of paths in a database, for interfaces that need no query: whether something is there, and
// what a folder holds.
//
// A path is a full one in the inside form, `\` between components; separators at its end count for nothing.
// It may lead through any index, whose top may itself be a path (`\home\u`, `\\server\share`). The empty path
// stands for the tops of all indexes; a top without a name, as the whole of a Linux machine has, is shown
// there by what it holds, and `\` alone is its path. Bytes are compared first; only where nothing at all has
// exactly that path, the case of letters does not count. Where several indexes have a folder of the same
// path, it holds what it holds in any of them.
//
// Nothing here waits for a worker: the caller makes sure that the database is ready (db_is_ready). Main
// thread.
#pragma once

#include "query/db_query.h"

namespace findwright {

// The item of a path. False, and no item, when there is none, and for the empty path.
bool db_find_item(db_t *db, const char *path, u32 length, db_result_t *out);
bool db_file_exists(db_t *db, const char *path, u32 length);
// The empty path is a folder, too.
bool db_folder_exists(db_t *db, const char *path, u32 length);

// What stands directly in a folder, collected once: folders first, each kind in name order at first.
//
// It may be held while the index changes. An item that goes, moves or has a new record makes it stale, as
// does a rebuild: it has no entries then until db_find_restart. What comes is not in it before either. Like
// any query it is not to be closed from within a hook of the database.
struct db_find_t;

struct db_find_entry_t : db_result_t {
    // As the index has them, those of the columns that the find was made with; else VALUE_UNKNOWN.
    u64 size;
    u64 date_modified;
};

// `flags`: DB_FLAG_SIZE, DB_FLAG_DATE_MODIFIED. 0: there is no such folder. The caller closes it before the
// database goes.
db_find_t *db_find_first_file(db_t *db, const char *path, u32 length, u32 flags);
void db_find_close(db_find_t *find);
// One entry after the other, from the first. False at the end, and when it is stale.
bool db_find_next_file(db_find_t *find, db_find_entry_t *out);

// 0 when it is stale.
u32 db_find_get_count(const db_find_t *find);
// False, and no item, for a bad index, and when it is stale.
bool db_find_get_entry(const db_find_t *find, u32 index, db_find_entry_t *out);
// The order of the entries, by name, path, size or date modified (db_sort_t); folders stay first in both
// directions. It is kept by restarts; db_find_next_file begins anew. False for other orders.
bool db_find_sort(db_find_t *find, u32 sort);

bool db_find_is_stale(const db_find_t *find);
// Collects what is there now, and sorts it. False when the folder is gone: the find stays as stale as it was.
bool db_find_restart(db_find_t *find);

} // namespace findwright
