// Whether a database is whole, and whether two hold the same: what live updates are judged by.
#pragma once

#include "db/db.h"

#include <string>

namespace findwright {

// Empty when all of this holds, else what does not, in a few lines:
//   every array that the layout has holds every item once, and no other, in the strict order of its
//   comparison; the pages and their numbers fit; names have their words
//   every chain of parents leads through folders of the name array to an index of the database
//   a folder's size is the sum of the known sizes of all files below it
//   a recent change or a run is in all arrays of its table, in their orders, and is one of an item
//   the bytes that the records take are those that the allocator has handed out
// No worker may be at work.
std::string db_check_whole(db_t *db);

// Empty when both databases hold the same paths, with the same columns but for those of `except` (DB_FLAG_),
// from sources of the same places; else the first differences. Records of the same path count as often as
// they are there.
std::string db_compare_content(const db_t *a, const db_t *b, u32 except = 0);

} // namespace findwright
