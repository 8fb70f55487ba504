// The search history: each search that the user settled on, how often and when last, and the suggestions made
// of it while the user types. It lies in memory while it is kept at all, and in a file, docs/filters.md.
//
//   by_search   texts in order, case ignored; no two are the same
//   by_count    the most frequent first, then the newest, then the texts' bytes
//   by_date     the newest first, then the most frequent, then the texts' bytes
//
// The three arrays hold the same items. Items lie in the arena, each in one block with its text.
//
// Owner: this module. Main thread only.
#pragma once

#include "base/array.h"
#include "base/file.h"

namespace findwright {

struct search_history_item_t {
    u64 date; // file time of the last use
    u32 count;
    u32 search_length; // bytes
    char search[1];    // UTF-8, terminated; in the same block
};

enum search_history_kind_t : u32 {
    SEARCH_HISTORY_BY_SEARCH = 0,
    SEARCH_HISTORY_BY_COUNT = 1,
    SEARCH_HISTORY_BY_DATE = 2,
};

struct search_history_t {
    array_t by_search, by_count, by_date;
    char *last_search; // what was added last; 0: nothing
    u32 dirty;         // it is due to be saved
};

// 0 while no history is kept: then nothing is added and nothing suggested.
extern search_history_t *search_history;

// Makes the history anew from a file, without the searches whose last use is more than so many days ago; 0
// keeps all. A file that cannot be read is an empty history.
void search_history_load(const char *filename, u32 days_to_keep);
void search_history_free();
// False on failure, which leaves the file as it was: see csv_table_save.
bool search_history_save(const char *filename);
// The content of the file.
void search_history_write(file_writer_t *writer);

// A search was used: now. The one that was added last is not added again.
void search_history_add(const char *search);
void search_history_remove(const char *search);

// A list of texts of its own.
struct search_history_texts_t {
    char **texts;
    u32 count;
};
// The first `max` searches to suggest for what was typed, in the order of one of the arrays: those that begin
// with it, then those that hold each of its words, case and accents ignored. All for an empty text.
search_history_texts_t search_history_suggest(const char *text, search_history_kind_t kind, u32 max);
void search_history_texts_free(search_history_texts_t *texts);

// A copy of the items in the order of by_search, to work on, and the history made anew from such a copy.
struct search_history_entry_t {
    char *search; // owned by the list
    u64 date;
    u32 count;
};
struct search_history_list_t {
    search_history_entry_t *entries;
    u32 count;
};
void search_history_get_items(search_history_list_t *list);
void search_history_set_items(const search_history_list_t *list);
void search_history_list_free(search_history_list_t *list);

} // namespace findwright
