// Bookmarks: whole states of a search under a name. A bookmark stores some values and leaves the others as
// they are. The list lies in memory and in a file, docs/filters.md.
//
// Owner: the list owns its bookmarks, a bookmark its texts, which are heap strings and never 0. Main thread
// only.
#pragma once

#include "base/file.h"

namespace findwright {

// The five low bits are DB_MATCH_..., the values of the options; BOOKMARK_HAS_CASE and the four behind it say
// in the same order which of them are stored.
enum bookmark_flag_t : u32 {
    BOOKMARK_DESCENDING = 0x20,
    BOOKMARK_HAS_CASE = 0x100,
    BOOKMARK_HAS_WHOLE_WORD = 0x200,
    BOOKMARK_HAS_PATH = 0x400,
    BOOKMARK_HAS_DIACRITICS = 0x800,
    BOOKMARK_HAS_REGEX = 0x1000,
    BOOKMARK_HAS_SORT = 0x2000,
    BOOKMARK_HAS_FILTER = 0x4000,
    BOOKMARK_HAS_INDEX = 0x8000,
    BOOKMARK_HAS_VIEW = 0x10000,
    BOOKMARK_HAS_SEARCH = 0x20000,
};
inline constexpr u32 BOOKMARK_HAS_SHIFT = 8; // from a value of an option to whether it is stored

struct bookmark_t {
    char *name; // UTF-8
    char *search;
    u32 flags;
    u32 sort; // an ascending db_sort_t; the direction is BOOKMARK_DESCENDING
    u32 view;
    char *filter; // the filter's name
    bookmark_t *next, *prev;
    char *macro;                // without its colon; empty: none
    u8 key_modifiers, key_code; // 0: no key
    u8 index;                   // which index the search runs on
    char *file_list, *host;     // of the indexes that need them
    u32 link_type;
};

// The list of the program, in the order of the file.
extern bookmark_t *bookmark_head, *bookmark_tail;

// Reads the list anew; it is empty where the file cannot be read.
void bookmark_list_load(const char *filename);
void bookmark_list_free();
// False on failure, which leaves the file as it was: see csv_table_save.
bool bookmark_list_save(const char *filename);
// The content of the file.
void bookmark_list_write(file_writer_t *writer);

// Appends a bookmark that stores nothing yet; its texts are changed with utf8_replace_string.
bookmark_t *bookmark_add(const char *name);
void bookmark_remove(bookmark_t *bookmark);
// The first bookmark of just that name, else the first one whose name differs in case alone; or 0.
bookmark_t *bookmark_find_by_name(const char *name);

} // namespace findwright
