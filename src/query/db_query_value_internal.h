// What the readers of sizes, counts and dates share. Each moves `at` behind what it took.
#pragma once

#include "query/db_query_value.h"

namespace findwright {

inline bool db_value_is_digit(char c) {
    return c >= '0' && c <= '9';
}

// Takes an ASCII word, given in lower case, in any case; false, and nothing taken, when it is not there.
bool db_value_skip_word(const char **at, const char *word);
// Takes all digits that follow; the value stands at DB_RANGE_MAX. 0 for none.
u64 db_value_read_number(const char **at);
// Takes `..` or `-`.
bool db_value_skip_range_sign(const char **at);
inline bool db_value_is_range_dots(const char *at) {
    return at[0] == '.' && at[1] == '.';
}

} // namespace findwright
