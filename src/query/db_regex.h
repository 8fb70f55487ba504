// Regular expressions over names that need not be valid UTF-8, compiled to machine code where the platform
// allows, under a match limit, so that no expression can hold up a scan on one name.
//
// A compiled expression is read-only and may be used by any number of threads, each with its own match block.
#pragma once

#include "base/types.h"

namespace findwright {

// 0 when the expression cannot be compiled.
void *db_regex_compile(const char *text, u32 length, bool ignore_case);
void db_regex_free(void *regex);

// What one thread needs to run expressions.
void *db_regex_match_create();
void db_regex_match_free(void *match);
// True when the expression matches anywhere in the text.
bool db_regex_match(const void *regex, void *match, const char *text, u32 length);
// The first match that begins at or behind `from`, a place between characters: its bytes in the text. It may
// be empty. False without one.
bool db_regex_find(const void *regex, void *match, const char *text, u32 length, u32 from, u32 *start,
                   u32 *end);

} // namespace findwright
