// Filters: named searches that narrow what the user sees, beside what the user types. The list lies in memory
// and in a file, docs/filters.md.
//
// The filter named FILTER_FINDWRIGHT stands first in a list that was loaded: it lets everything pass. The
// others stand in the order of the file. Names need not be unique: the first one counts.
//
// Owner: the list owns its filters, a filter its texts, which are heap strings and never 0. Main thread only.
#pragma once

#include "base/file.h"

namespace findwright {

inline constexpr char FILTER_FINDWRIGHT[] = "FINDWRIGHT";

struct filter_t {
    char *name; // UTF-8
    char *search;
    u32 flags; // DB_MATCH_...
    filter_t *next, *prev;
    char *macro;                // without its colon; empty: none
    u8 key_modifiers, key_code; // 0: no key
};

// The list of the program.
extern filter_t *filter_head, *filter_tail;

// Reads the list anew from a file. What the file lacks is made up for: all built-in filters where it cannot
// be read, and where it has no filter FILTER_FINDWRIGHT, that one and those whose names are missing. So a
// built-in filter that the user deleted stays deleted.
void filter_list_load(const char *filename);
void filter_list_free();
// False on failure, which leaves the file as it was: see csv_table_save.
bool filter_list_save(const char *filename);
// The content of the file.
void filter_list_write(file_writer_t *writer);

// Appends a filter to a list, with copies of the texts.
filter_t *filter_add(filter_t **head, filter_t **tail, const char *name, u32 flags, const char *search,
                     const char *macro, u8 key_modifiers, u8 key_code);
// These look in a list or in the program's; 0 for none. By name: the first one of just that name, else the
// first one whose name differs in case alone.
filter_t *filter_find_findwright(filter_t *head);
filter_t *filter_find_by_name(const char *name);

} // namespace findwright
