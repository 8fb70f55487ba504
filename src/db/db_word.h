// One 64-bit word for each name, kept beside the name arrays' values: what letters and pairs of letters the
// name holds. A name that a search may find must hold all bits of the searched text's word; a scan reads the
// words, which lie behind one another, and only the records of names that could match.
//
//     bit 0 to 25     the letters a to z, of the fully folded name
//     bit 26          a character above ASCII, before folding
//     bit 27 to 63    pairs of neighbouring characters of the folded name, each hashed to one of 37 bits
//
// It is a necessary condition in every mode of comparison, since each mode is tighter than the folded one. A
// name that is no UTF-8 has all bits: what its bytes hold is not what its characters tell. The form, of
// several that were measured over 7.9 million names, lets the fewest names through (docs/ARCHITECTURE.md).
//
// Any thread.
#pragma once

#include "base/types.h"

namespace findwright {

struct db_t;

inline constexpr u64 DB_WORD_ALL = ~static_cast<u64>(0);
inline constexpr u32 DB_WORD_LETTERS = 26;
inline constexpr u64 DB_WORD_LETTER_BITS = (static_cast<u64>(1) << DB_WORD_LETTERS) - 1;
inline constexpr u64 DB_WORD_NOT_ASCII = static_cast<u64>(1) << DB_WORD_LETTERS;

// The word of a name.
u64 db_word_of_name(const char *name, u32 length);
// What the word of every name that holds this text has, for a text that is folded by the mode in which it is
// looked for. 0 for a text that is no UTF-8.
u64 db_word_of_text(const char *text, u32 length);

// Gives the two name arrays of a database, which are filled, their words. On the worker that filled them.
void db_words_create(db_t *db);

} // namespace findwright
