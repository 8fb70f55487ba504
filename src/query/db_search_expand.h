// What a user types, made ready for the search: the macros of bookmarks and filters, and environment
// variables, are replaced by what they stand for. Who takes texts from a user runs it ahead of
// db_query_search.
//
// A macro stands at the start of a term, and its colon follows: `pic:cat` is the search of the filter with
// the macro "pic", and "cat". Bookmarks come before filters.
//
// Main thread.
#pragma once

#include "base/utf8_buf.h"

namespace findwright {

// Settings.
extern u32 expand_environment_variables;

// Macros stand in macros to this depth; below it they stand for nothing.
inline constexpr u32 DB_SEARCH_EXPAND_DEPTH = 64;
// What all macros of a text add to it, in bytes; those that would add more stand for nothing. Macros that
// name each other would double with each step.
inline constexpr u32 DB_SEARCH_EXPAND_MAX = 1024 * 1024;

// Replaces the content of `out`, where the text must not lie. The lists are filter_head and bookmark_head.
void db_search_expand(utf8_buf_t *out, const char *text);

// Appends a search of its own as one operand of another: in `<` and `>`, whatever quotes it leaves open. With
// `is_regex` the whole text is one regular expression.
void db_search_cat_operand(utf8_buf_t *out, const char *text, bool is_regex);

} // namespace findwright
