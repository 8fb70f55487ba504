// The parts of the judge of searches, for its own files.
#pragma once

#include "support/search_judge.h"

#include <utility>

namespace findwright {

// --- Patterns ----------------------------------------------------------------------------------------------

constexpr u32 JUDGE_ONE = 0xFFFFFFFE, JUDGE_MANY = 0xFFFFFFFF; // in the place of a value

struct judge_pattern_t {
    judge_mode_t mode;
    std::vector<u32> values;
    bool at_start, at_end; // of the text
    bool whole_word, has_wildcards;
    bool is_valid; // UTF-8
};
judge_pattern_t judge_make_pattern(judge_mode_t mode, const std::string &text, bool wildcards);
judge_answer_t judge_matches(const judge_pattern_t &pattern, const judge_text_t &text);
judge_mode_t judge_get_mode(const judge_flags_t &flags, const std::string &text);

u32 judge_lower_ascii(u8 byte);

// --- Regular expressions -----------------------------------------------------------------------------------

// Literals, `.`, `[...]` with ranges and `^`, each with `*`, `+` or `?` behind it, between `^` and `$`; `\`
// makes a literal of a sign. Anything else is not judged.
struct judge_regex_part_t {
    bool any, negated;
    std::vector<std::pair<u32, u32>> ranges;
    char repeat; // 0, or one of * + ?
};
struct judge_regex_t {
    bool known = true, at_start = false, at_end = false, match_case = false;
    std::vector<judge_regex_part_t> parts;
};
judge_regex_t judge_regex_parse(const std::string &bytes, bool match_case);
judge_answer_t judge_regex_matches(const judge_regex_t &regex, const judge_text_t &text);

// --- Terms -------------------------------------------------------------------------------------------------

enum judge_where_t : u32 { JUDGE_IN_NAME, JUDGE_IN_PATH, JUDGE_IN_COMPONENT };

struct judge_term_t {
    judge_flags_t flags = {};
    bool is_any = false; // not judged at all
    // A path that no folder has: no file is found, not even by the term's negation.
    bool has_no_anchor = false;
    judge_where_t where = JUDGE_IN_NAME;
    bool is_regex = false;
    judge_regex_t regex;
    std::vector<judge_pattern_t> patterns; // one of them must match
    bool is_extension = false;             // what stands behind a dot is matched
    bool no_dot = false;                   // and a name without a dot matches too
    std::vector<judge_answer_t> answers;   // by item, where no text is compared
};
judge_term_t judge_make_term(const std::string &text, const judge_flags_t &flags,
                             const judge_settings_t &settings, const judge_items_t &items);
judge_term_t judge_make_function_term(judge_function_t function, const std::string &text, judge_flags_t flags,
                                      const judge_settings_t &settings, const judge_items_t &items);
// What a term that compares text says of an item of the kind that its flags leave.
judge_answer_t judge_term_text(const judge_term_t &term, const judge_item_t &item);

} // namespace findwright
