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

#include "db/db_data.h"
#include "query/db_op.h"

namespace findwright {

struct db_exec_term_t;
struct db_query_t;
struct db_scan_t;
struct db_item_t;
struct db_item_set_t;

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

// What stands in the text of a `filelist:` term for a `|` that is part of a name: one that was written by its
// number. No name has that byte.
inline constexpr char DB_TERM_LITERAL_BAR = 0x01;

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
// The names that a search knows, each with its colon, from index 0 on; 0 behind the last one.
const char *db_query_get_modifier_name(u32 index);
const char *db_query_get_function_name(u32 index);

// Parses a search text. 0 for no term. No text is an error.
db_term_t *_db_query_term_parse_all(u32 default_flags, const char *text, bool is_filter);
void db_term_free_all(db_term_t *first);
// The columns and orders (DB_FLAG_...) that an index should have so that a search needs no file system.
u32 db_search_get_columns(u32 match_options, const char *search);

// --- Executable terms --------------------------------------------------------------------------------------

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
// Tests a text by the term's own text or regular expression, not negated. `regex_match` is the block of the
// calling thread (db_regex_match_create), for terms with an expression.
using db_text_test_t = bool(const db_exec_term_t *term, void *regex_match, const char *text, u32 length);

// What an executable term has beyond its text, by its op's family. Owned by the term; the file and the folder
// form of a term each have their own.
//   EXTENSION, EXTENSION_OR_NONE     db_extensions_t
//   ANCHORS..., ANCHOR_...           db_anchors_t
//   PARENT, PARENTS_SEVERAL          db_anchors_t, the folders in `inner`; 0 stands for no parent
//   EMPTY, CHILD..., DUPE_...        db_item_set_t: the items that the test is true for
//   FILE_LIST                        db_file_list_names_t
using db_term_data_t = db_data_t;

struct db_exec_term_t {
    db_exec_term_t *link;
    db_exec_term_t *next;
    db_exec_term_t *notnext;
    u32 op;
    u32 number; // place in its list
    u32 is_filter;
    db_item_test_t *test; // these two are set when all terms of the search are known
    db_page_scan_t *scan;
    db_text_test_t *text_test; // of a term that tests texts: names, paths, types, contents, children
    u32 matcher_op;            // of a function that tests texts: the op that its text became
    utf8_mode_t mode;          // how it compares them
    u64 word;                  // what the word of a name that matches holds (db/db_word.h); 0: anything
    void *regex; // compiled, shared by the term's two executable forms; owned by the one with owns_regex
    bool owns_regex;
    union {
        struct {
            u64 low, high; // a closed range: sizes, file times
        } range;
        struct {
            i32 low, high; // a closed range: counts
        } count;
        u32 mask; // attributes that must be set
    };
    db_term_data_t *data; // or 0
    // For families that lead through folders: those whose path has what is looked for, or that are an anchor
    // or below one. Made by a pass over all items; without it the folders above an item are looked at one by
    // one.
    db_item_set_t *folders;
    bool folders_are_shared; // the other form of the term owns them
    bool has_separator;      // the text has a `\`: it may span components of a path
    db_needle_t needle;
    u32 text_length;
    char text[1]; // folded, unterminated
};

// Makes the two executable terms of a source term and appends them to the query's lists.
void db_term_compile(db_query_t *query, db_term_t *term);
// When all terms are linked: gives each its functions, which depend on whether it is alone.
void db_query_bind_terms(db_query_t *query);
void db_query_free_terms(db_query_t *query);

} // namespace findwright
