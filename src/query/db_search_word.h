// The filter that a pass lays over the words of names (db/db_word.h), so that it reads only the records of
// names that could match.
//
// A filter is a list of alternatives: a name passes when its word has all bits of one of them. It is taken
// from the terms by following every way to a result: what all terms on a way ask of the name is one
// alternative. A way on which nothing is asked of the name makes a filter that lets everything through.
//
// Made on the worker before a pass; read by its threads.
#pragma once

#include "query/db_term.h"

namespace findwright {

inline constexpr u32 DB_WORD_FILTER_MAX = 8; // alternatives; more are merged into what they have in common

struct db_word_filter_t {
    u32 count; // 0: nothing can match
    u64 words[DB_WORD_FILTER_MAX];
};

void db_word_filter_make(db_word_filter_t *filter, const db_exec_term_t *first_term);
// True when everything passes.
inline bool db_word_filter_is_open(const db_word_filter_t *filter) {
    return filter->count == 1 && filter->words[0] == 0;
}
// Copies the values whose words pass, and returns their number. `out` may be `values`.
u32 db_word_filter_run(const db_word_filter_t *filter, const u64 *words, const u32 *values, u32 count,
                       u32 *out);

// What a name must have for a term of that op to match it, for one of the two forms of a term. 0: nothing.
// The text is folded; with wildcards it may have `*` and `?`.
u64 db_term_get_word(const db_exec_term_t *term);
// The same for the text that a function tests, by the op that it became.
u64 db_term_get_matcher_word(const db_exec_term_t *term);
// The letters that every match of a regular expression has.
u64 db_regex_get_word(const char *text, u32 length);

} // namespace findwright
