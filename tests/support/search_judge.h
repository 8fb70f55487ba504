// An independent judge of searches, for tests: says from the meaning of a search whether it finds an item,
// slowly and with no code of the engine's.
//
// A search is a tree here, never a text. A text (a name, a path) is decoded and folded once, at each of its
// bytes; a term is a pattern of characters, "one character" and "any characters", which is run over the set
// of the positions that it can have reached. Whether it must begin or end where the text does, and at which
// bytes a word may begin or end, is all that the kinds of terms differ in.
//
// Where the meaning is left open the answer is JUDGE_ANY, and no result is wrong.
#pragma once

#include "base/types.h"

#include <string>
#include <vector>

namespace findwright {

enum judge_answer_t : u32 { JUDGE_NO, JUDGE_YES, JUDGE_ANY };

// How characters are compared; the last one compares bytes below 128 only, capitals like small letters.
enum judge_mode_t : u32 { JUDGE_FOLD, JUDGE_KEEP_CASE, JUDGE_LOWER, JUDGE_BYTES, JUDGE_ASCII, JUDGE_MODES };

struct judge_text_t {
    std::string bytes;
    bool is_valid; // UTF-8
    // At each byte: the length of the character that begins there, and its value in each mode.
    std::vector<u8> lengths;
    std::vector<u32> values[JUDGE_MODES];
};
judge_text_t judge_text(const std::string &bytes);
// A path, whose characters end at the separators, even broken ones.
judge_text_t judge_join(const judge_text_t &path, const judge_text_t &name);

struct judge_item_t {
    bool is_folder;
    judge_text_t name;
    judge_text_t path;      // full, joined of names
    judge_text_t flat_path; // the same bytes as one text, where they are no UTF-8
    const judge_item_t *parent;
};
using judge_items_t = std::vector<judge_item_t>;

struct judge_flags_t {
    bool match_case, whole_word, path, diacritics, regex;
    bool file_only, folder_only, fast_ascii, wildcards, whole_name, whole_name_wildcards;
};
// Applies a modifier (`case:`) as it is typed. False for one that is not known.
bool judge_apply(judge_flags_t *flags, const std::string &modifier);

struct judge_settings_t {
    bool slash_is_separator, separator_matches_path;
};

enum judge_kind_t : u32 { JUDGE_TERM, JUDGE_AND, JUDGE_OR, JUDGE_NOT, JUDGE_MODIFIED };
// A function of the text's argument; JUDGE_TEXT is none.
enum judge_function_t : u32 {
    JUDGE_TEXT,
    JUDGE_EXTENSION,
    JUDGE_STARTS_WITH,
    JUDGE_ENDS_WITH,
    JUDGE_LENGTH,
    JUDGE_PARENTS,
    JUDGE_DEPTH,
    JUDGE_ROOT,
    JUDGE_CHILD,
    JUDGE_CHILDREN,
    JUDGE_CHILD_FILES,
    JUDGE_CHILD_FOLDERS,
    JUDGE_EMPTY,
    JUDGE_DUPE,
    JUDGE_DUPE_NAME_PART,
    JUDGE_FUNCTIONS
};
inline constexpr const char *judge_function_names[JUDGE_FUNCTIONS] = {
    "",       "ext:",        "startwith:",      "endwith:",
    "len:",   "parents:",    "depth:",          "root:",
    "child:", "childcount:", "childfilecount:", "childfoldercount:",
    "empty:", "dupe:",       "namepartdupe:"};

struct judge_node_t {
    judge_kind_t kind = JUDGE_TERM;
    std::string text; // of a term, or the modifier
    judge_function_t function = JUDGE_TEXT;
    std::vector<judge_node_t> nodes;
};

// What the search answers for each item.
std::vector<judge_answer_t> judge_search(const judge_node_t &search, const judge_flags_t &flags,
                                         const judge_settings_t &settings, const judge_items_t &items);

} // namespace findwright
