#include "base/bit_array.h"

#include "base/mem.h"

#include <bit>
#include <cstring>

namespace findwright {

static constexpr u32 RANK_WORDS = 64; // words that share an entry of the ranks
static constexpr u32 GROW_PART = 16;  // of its words, how much room is made beyond what is needed

static u32 _bit_array_word_count(const bit_array_t *bits) {
    return static_cast<u32>((static_cast<u64>(bits->size) + 63) / 64);
}

static u32 _bit_array_rank_count(const bit_array_t *bits) {
    return (_bit_array_word_count(bits) + RANK_WORDS - 1) / RANK_WORDS;
}

void bit_array_init(bit_array_t *bits) {
    *bits = {};
}

void bit_array_kill(bit_array_t *bits) {
    if (bits->words) {
        mem_free(bits->words);
        mem_free(bits->ranks);
    }
    *bits = {};
}

void bit_array_reset(bit_array_t *bits, u32 size) {
    bit_array_kill(bits);
    bits->size = size;
}

// Gives it words with room for some number, in place of the present ones, of which it takes the bits over.
static void _bit_array_set_capacity(bit_array_t *bits, u32 capacity) {
    u64 *words = static_cast<u64 *>(mem_alloc(capacity * sizeof(u64)));
    u32 kept = bits->words ? bits->capacity : 0;
    if (bits->words) {
        std::memcpy(words, bits->words, kept * sizeof(u64));
        mem_free(bits->words);
        mem_free(bits->ranks);
    }
    std::memset(words + kept, 0, (capacity - kept) * sizeof(u64));
    bits->words = words;
    bits->ranks = static_cast<u32 *>(mem_alloc((capacity / RANK_WORDS + 1) * sizeof(u32)));
    bits->capacity = capacity;
    bits->has_ranks = false;
}

static void _bit_array_make_words(bit_array_t *bits) {
    if (!bits->words)
        _bit_array_set_capacity(bits, _bit_array_word_count(bits) + 1);
}

// The bits of the last word that are part of the sequence.
static u64 _bit_array_last_mask(const bit_array_t *bits) {
    return bits->size % 64 == 0 ? ~static_cast<u64>(0) : (static_cast<u64>(1) << bits->size % 64) - 1;
}

static void _bit_array_use(bit_array_t *bits, u32 words) {
    bits->used = bits->used > words ? bits->used : words;
}

bool bit_array_set(bit_array_t *bits, u32 index, bool value) {
    if (bit_array_get(bits, index) == value)
        return false;
    _bit_array_make_words(bits);
    bits->words[index / 64] ^= static_cast<u64>(1) << index % 64;
    _bit_array_use(bits, index / 64 + 1);
    value ? bits->count++ : bits->count--;
    bits->has_ranks = false;
    return true;
}

// The bits of word `word` that lie in a range.
static u64 _bit_array_range_mask(u32 word, u32 first, u32 end) {
    u64 mask = ~static_cast<u64>(0);
    if (word == first / 64)
        mask &= ~static_cast<u64>(0) << first % 64;
    if (word == end / 64)
        mask &= (static_cast<u64>(1) << end % 64) - 1;
    return mask;
}

void bit_array_set_range(bit_array_t *bits, u32 first, u32 end) {
    if (first >= end)
        return;
    _bit_array_make_words(bits);
    for (u32 word = first / 64; word <= (end - 1) / 64; word++) {
        u64 mask = _bit_array_range_mask(word, first, end);
        bits->count += static_cast<u32>(std::popcount(mask & ~bits->words[word]));
        bits->words[word] |= mask;
    }
    _bit_array_use(bits, (end - 1) / 64 + 1);
    bits->has_ranks = false;
}

void bit_array_invert(bit_array_t *bits) {
    if (bits->size == 0)
        return;
    _bit_array_make_words(bits);
    u32 words = _bit_array_word_count(bits);
    for (u32 word = 0; word < words; word++)
        bits->words[word] = ~bits->words[word];
    bits->words[words - 1] &= _bit_array_last_mask(bits);
    bits->count = bits->size - bits->count;
    bits->used = words;
    bits->has_ranks = false;
}

// Without a set bit there is nothing to be shifted, and nothing that memory would be needed for.
static bool _bit_array_drop_words(bit_array_t *bits) {
    if (bits->count != 0)
        return false;
    bit_array_reset(bits, bits->size);
    return true;
}

void bit_array_insert(bit_array_t *bits, u32 index, bool value) {
    bits->size++;
    if (_bit_array_drop_words(bits)) {
        if (value)
            bit_array_set(bits, index, true);
        return;
    }
    if (u32 needed = _bit_array_word_count(bits); needed > bits->capacity)
        _bit_array_set_capacity(bits, needed + needed / GROW_PART + 1);
    u64 *words = bits->words, low = (static_cast<u64>(1) << index % 64) - 1;
    u32 first = index / 64, words_now = _bit_array_word_count(bits);
    u32 last = bits->used < words_now ? bits->used : words_now - 1; // that the last set bit may come to
    for (u32 word = last; word > first; word--)
        words[word] = words[word] << 1 | words[word - 1] >> 63;
    words[first] = (words[first] & low) | (words[first] & ~low) << 1 | static_cast<u64>(value) << index % 64;
    _bit_array_use(bits, words[last] != 0 ? last + 1 : 0);
    _bit_array_use(bits, words[first] != 0 ? first + 1 : 0);
    bits->count += value;
    bits->has_ranks = false;
}

bool bit_array_remove(bit_array_t *bits, u32 index) {
    if (_bit_array_drop_words(bits) || index / 64 >= bits->used) {
        bits->size--;
        bits->has_ranks = false;
        return false;
    }
    bool value = bit_array_get(bits, index);
    u64 *words = bits->words, low = (static_cast<u64>(1) << index % 64) - 1;
    u32 first = index / 64, last = bits->used - 1;
    u64 kept = words[first] & low;
    words[first] &= ~low;
    for (u32 word = first; word < last; word++)
        words[word] = words[word] >> 1 | words[word + 1] << 63;
    words[last] >>= 1;
    // What was taken out has been shifted in front of the place.
    words[first] = (words[first] & ~low) | kept;
    bits->size--;
    bits->count -= value;
    bits->has_ranks = false;
    return value;
}

void bit_array_truncate(bit_array_t *bits, u32 size) {
    bits->size = size;
    u32 words = _bit_array_word_count(bits);
    bits->used = bits->used < words ? bits->used : words;
    bits->has_ranks = false;
}

static u64 _bit_array_reverse_word(u64 word) {
    word = (word >> 1 & 0x5555555555555555) | (word & 0x5555555555555555) << 1;
    word = (word >> 2 & 0x3333333333333333) | (word & 0x3333333333333333) << 2;
    word = (word >> 4 & 0x0F0F0F0F0F0F0F0F) | (word & 0x0F0F0F0F0F0F0F0F) << 4;
    return __builtin_bswap64(word);
}

void bit_array_reverse(bit_array_t *bits) {
    if (bits->count == 0)
        return;
    u32 words = _bit_array_word_count(bits);
    for (u32 a = 0, b = words - 1; a <= b && b < words; a++, b--) {
        u64 low = _bit_array_reverse_word(bits->words[a]), high = _bit_array_reverse_word(bits->words[b]);
        bits->words[a] = high;
        bits->words[b] = low;
    }
    // The unused bits of the last word have come to the front.
    u32 shift = words * 64 - bits->size;
    for (u32 word = 0; shift != 0 && word < words; word++)
        bits->words[word] =
            bits->words[word] >> shift | (word + 1 < words ? bits->words[word + 1] << (64 - shift) : 0);
    bits->used = words;
    bits->has_ranks = false;
}

static void _bit_array_make_ranks(bit_array_t *bits) {
    u32 count = 0;
    for (u32 word = 0, words = _bit_array_word_count(bits); word < words; word++) {
        if (word % RANK_WORDS == 0)
            bits->ranks[word / RANK_WORDS] = count;
        count += static_cast<u32>(std::popcount(bits->words[word]));
    }
    bits->has_ranks = true;
}

u32 bit_array_find(bit_array_t *bits, u32 n) {
    if (!bits->has_ranks)
        _bit_array_make_ranks(bits);
    u32 low = 0, high = _bit_array_rank_count(bits); // the last entry that is at most n
    while (high - low > 1) {
        u32 middle = (low + high) / 2;
        (bits->ranks[middle] <= n ? low : high) = middle;
    }
    u32 word = low * RANK_WORDS, left = n - bits->ranks[low];
    for (u32 found; (found = static_cast<u32>(std::popcount(bits->words[word]))) <= left; word++)
        left -= found;
    u64 rest = bits->words[word];
    for (; left != 0; left--)
        rest &= rest - 1;
    return word * 64 + static_cast<u32>(std::countr_zero(rest));
}

u32 bit_array_next(const bit_array_t *bits, u32 index) {
    if (bits->count == 0 || index >= bits->size)
        return bits->size;
    u32 words = _bit_array_word_count(bits), word = index / 64;
    u64 rest = bits->words[word] & ~static_cast<u64>(0) << index % 64;
    while (rest == 0) {
        if (++word == words)
            return bits->size;
        rest = bits->words[word];
    }
    return word * 64 + static_cast<u32>(std::countr_zero(rest));
}

} // namespace findwright
