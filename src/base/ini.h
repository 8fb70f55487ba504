// One section of `key=value` lines, out of a text in memory.
//
// Keys and section names have no case. A value is all that follows the first `=`, white space included. Lines
// that begin with `#` or `;`, and those with no `=`, are passed over. Any bytes will do; a zero byte ends the
// key or value it stands in.
//
// Owner: the opener, who closes it. The text is copied, and nothing changes after ini_open: any thread may
// read.
#pragma once

#include "base/types.h"

namespace findwright {

struct ini_entry_t {
    u32 line_number; // from 1
    const char *key; // lower case
    const char *value;
};

struct ini_t {
    char *text;            // what keys and values point into
    ini_entry_t **entries; // sorted by key, then by line
    u32 count;
    ini_entry_t *storage;
};

// 0 when the section has no line with a key.
ini_t *ini_open(const char *text, u32 length, const char *section);
void ini_close(ini_t *ini);
// The value of a key, the first of several; the default when it is missing.
const char *ini_get(const ini_t *ini, const char *key, const char *default_value);

} // namespace findwright
