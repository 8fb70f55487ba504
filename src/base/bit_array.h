// A sequence of bits that knows how many of them are set and where the n-th set one is: which rows of a list
// are chosen.
//
//   words:  64 bits each; those behind the last bit are 0
//   ranks:  for every 64 words, how many bits are set before them; made anew when they are asked for
//
// An empty sequence of bits that are all unset has no memory: `words` is 0 then, whatever the size.
//
// Owner: whoever holds the structure; one thread at a time, also for reading (ranks are made by readers).
#pragma once

#include "base/types.h"

namespace findwright {

struct bit_array_t {
    u64 *words; // 0: all bits are unset
    u32 *ranks;
    u32 capacity; // words that there is room for
    u32 used;     // words from here on are 0
    u32 size;     // bits
    u32 count;    // set bits
    bool has_ranks;
};

void bit_array_init(bit_array_t *bits);
void bit_array_kill(bit_array_t *bits);
// Makes it a sequence of that many unset bits.
void bit_array_reset(bit_array_t *bits, u32 size);

inline bool bit_array_get(const bit_array_t *bits, u32 index) {
    return bits->words && bits->words[index / 64] >> index % 64 & 1;
}
// Changes one bit. False when it had that value already. The index must be below the size.
bool bit_array_set(bit_array_t *bits, u32 index, bool value);
// Sets the bits from `first` up to but not including `end`, which is at most the size.
void bit_array_set_range(bit_array_t *bits, u32 first, u32 end);
// Puts a bit in front of that at `index`, which may be the size; or takes one out, and returns it. All words
// from the place to the last set bit are shifted, so that it takes no time behind that.
void bit_array_insert(bit_array_t *bits, u32 index, bool value);
bool bit_array_remove(bit_array_t *bits, u32 index);
// Takes off the last bits, all of which must be unset.
void bit_array_truncate(bit_array_t *bits, u32 size);
void bit_array_invert(bit_array_t *bits);
// The first bit becomes the last one, and so on.
void bit_array_reverse(bit_array_t *bits);

// The place of the n-th set bit, from 0. `n` must be below the count.
u32 bit_array_find(bit_array_t *bits, u32 n);
// The first set bit at or behind a place; the size when there is none.
u32 bit_array_next(const bit_array_t *bits, u32 index);

} // namespace findwright
