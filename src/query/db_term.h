// The terms of a search: as they are parsed, and as they are run.
//
// A search is a list of source terms in the order of its text. `next` and `notnext` encode the boolean
// expression, so that no tree is needed to run it: begin with the first term; on a match go to `next`, and
// where that is 0 the item is a result; on no match go to `notnext`, and where that is 0 it is not.
//
//     a b|c          a --next--> b --notnext--> c          (OR binds tighter than AND by default)
//
// Each source term is compiled into two executable terms, one for folders and one for files, each with an op
// code that settles every flag, so that the scan tests none per item. Source terms live on the main thread
// while a search is compiled; executable terms belong to the query until its next search.
#pragma once

#include "base/types.h"

namespace findwright {

struct db_exec_term_t;
struct db_query_t;
struct db_scan_t;
struct db_item_t;

enum db_term_flag_t : u32 {
    TERM_CASE = 0x0001, // match case
    TERM_WHOLE_WORD = 0x0002,
    TERM_PATH = 0x0004,       // match against the full path
    TERM_DIACRITICS = 0x0008, // accented letters stay distinct
    TERM_FILE_ONLY = 0x0010,
    TERM_FOLDER_ONLY = 0x0020,
    TERM_FAST_ASCII = 0x0040, // the fast ASCII comparison may be used
    TERM_WILDCARDS = 0x0100,  // `*` and `?` are wildcards
    TERM_WHOLE_NAME = 0x0200, // the text must match the whole name or path
    TERM_NOT = 0x0400,
    TERM_REGEX = 0x0800,
    TERM_WHOLE_NAME_WILDCARDS = 0x1000, // a text with wildcards must match the whole name
    TERM_FUNCTION_SYNTAX = 0x2000,      // the text may be a function
    TERM_WILDCARDS_EXPLICIT = 0x4000,   // `wildcards:` was written
};

struct db_term_t {
    db_term_t *next;
    db_term_t *notnext;
    db_term_t *link; // the next in parse order: a group is one run of this list
    db_exec_term_t *file_term;
    db_exec_term_t *folder_term;
    u32 flags;
    u32 is_filter;
    u32 length;
    char text[1]; // terminated; in the same block
};

// Settings of the parser and the compiler.
extern u32 operator_precedence; // 0: OR binds tighter than AND; 1: AND does
extern u32 allow_literal_operators;
extern u32 allow_round_bracket_parenthesis;
extern u32 convert_forward_slash_to_backslash;
extern u32 match_path_when_search_contains_path_separator;
extern u32 match_whole_filename_when_using_wildcards;
extern u32 fast_ascii_search;

// The five match options of a search or filter.
enum db_match_option_t : u32 {
    DB_MATCH_CASE = 1,
    DB_MATCH_WHOLE_WORD = 2,
    DB_MATCH_PATH = 4,
    DB_MATCH_DIACRITICS = 8,
    DB_MATCH_REGEX = 16,
};
u32 db_term_default_flags(u32 match_options);

// Parses a search text. 0 for no term. No text is an error.
db_term_t *_db_query_term_parse_all(u32 default_flags, const char *text, bool is_filter);
void db_term_free_all(db_term_t *first);

// --- Executable terms --------------------------------------------------------------------------------------

// Op codes. A family's op is its base plus the addends of its flags, in the order given.
enum db_op_t : u32 {
    DB_OP_TRUE = 0,
    DB_OP_FALSE = 1,
    DB_OP_FIND = 2,                 // whole word 1, case 2, diacritics 4, path 8, not 16
    DB_OP_FIND_ASCII = 34,          // whole word 1, path 2, not 4
    DB_OP_EQUAL = 42,               // case 1, diacritics 2, path 4, not 8
    DB_OP_EQUAL_ASCII = 58,         // path 1, not 2
    DB_OP_WILDCARD_FIND = 62,       // as FIND
    DB_OP_WILDCARD_FIND_ASCII = 94, // as FIND_ASCII
    DB_OP_WILDCARD = 102,           // as EQUAL
    DB_OP_WILDCARD_ASCII = 118,     // as EQUAL_ASCII
    DB_OP_STARTS_WITH = 122,        // as EQUAL
    DB_OP_STARTS_WITH_ASCII = 138,  // as EQUAL_ASCII
    DB_OP_ENDS_WITH = 142,          // as EQUAL
    DB_OP_ENDS_WITH_ASCII = 158,    // as EQUAL_ASCII
    DB_OP_ENDS_WITH_END = 162,
    DB_OP_REGEX = 226, // path 1, not 2
    DB_OP_REGEX_END = 230,
    DB_OP_COUNT = 366,
};

// A term's text as the vector scan looks for it: its first and last byte, each with the bit that is set in a
// name byte before it is compared (0x20 where the letter's case does not matter).
struct db_needle_t {
    u32 length;
    u8 first, first_case;
    u8 last, last_case;
    bool ascii; // the whole text; else only names with a byte above 127 can match (but in byte comparisons)
};

// Decides on one item; puts the members of a page that match into `out` and returns their number. Behind the
// `count` values stand DB_SCAN_AHEAD more references, of records that will be read soon.
using db_item_test_t = bool(db_scan_t *scan, const db_exec_term_t *term, const db_item_t *item);
using db_page_scan_t = u32(db_scan_t *scan, const db_exec_term_t *term, const u32 *values, u32 count,
                           u32 *out);

struct db_exec_term_t {
    db_exec_term_t *link;
    db_exec_term_t *next;
    db_exec_term_t *notnext;
    u32 op;
    u32 is_filter;
    db_item_test_t *test;
    db_page_scan_t *scan;
    void *regex; // compiled, shared by the term's two executable forms; owned by the one with owns_regex
    bool owns_regex;
    db_needle_t needle;
    u32 text_length;
    char text[1]; // folded, unterminated
};

// Makes the two executable terms of a source term and appends them to the query's lists.
void db_term_compile(db_query_t *query, db_term_t *term);
void db_query_free_terms(db_query_t *query);

// The two functions of an op, for folders and files alike; ops outside the table never match.
db_item_test_t *db_op_get_test(u32 op);
db_page_scan_t *db_op_get_scan(u32 op);

} // namespace findwright
