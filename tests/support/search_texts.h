// Random names and searches for tests: letters that trouble comparisons, bytes that are no UTF-8, searches as
// trees, and the texts that mean them.
#pragma once

#include "support/search_judge.h"

#include <random>

namespace findwright {

// Paths below some drives; many share an alphabet of a few letters, so that terms hit. Folders end with `\`.
std::vector<std::string> random_paths(std::mt19937 &random, u32 count);

// What a term may hold: pieces of the items' names and paths, changed.
std::string random_term(std::mt19937 &random, const judge_items_t &items, bool of_path);
// Letters and the signs that judge_search knows, over the letters of one of the items.
std::string random_regex(std::mt19937 &random, const judge_items_t &items);
// An argument of the function: a text of the items' names, or a range of small numbers.
std::string random_argument(std::mt19937 &random, judge_function_t function, const judge_items_t &items);

struct search_syntax_t {
    bool and_is_tighter, literal_operators, round_brackets;
};
judge_node_t random_search(std::mt19937 &random, const search_syntax_t &syntax, const judge_items_t &items,
                           u32 depth);
// A text that means the tree, in one of many ways to write it.
std::string search_text(std::mt19937 &random, const search_syntax_t &syntax, const judge_node_t &search);

} // namespace findwright
