// A paged sorted sequence of 32-bit values, of up to tens of millions of entries, that takes insertions and
// removals at any place at the cost of moving at most one page.
//
//   pages ----> [ page 0 | page 1 | page 2 | ... ]            plain heap, `capacity` slots
//   first_index [ 0      | 1004   | 2008   | ... ]            beside it: the index of each page's first value
//                   |
//                   v
//   page: 4,096 bytes in the arena: header of 16 bytes, then 1,020 slots
//         [ header |  free  | values ... | free ]
//                           ^ data_offset, in bytes from the page's start
//
// Invariants: every page in the table holds at least one value; values float between free slots at both ends;
// `count` is the sum of the pages' item_count; first_index[i] is the sum of those before page i.
// Pages come in blocks of 16 that are given back only as a whole, by array_kill. A block's first page keeps
// its block_next, whether in use or free: the next block, with this block's number of pages in the low bits.
//
// An array may keep a word beside each value (array_words_create): 64 bits that tell something of what the
// value refers to, so that a pass can leave most of that memory alone. A page then has a block of 1,020
// words, each at the place of its value's slot; words move with their values.
//
// Owner: whoever holds the structure; one thread at a time. A comparison gets one of the array's values and
// the caller's key, and tells where the value stands: negative before the key, 0 equal, positive behind it.
#pragma once

#include "base/mem_ref.h"

namespace findwright {

inline constexpr u32 ARRAY_PAGE_SIZE = 4096;
inline constexpr u32 ARRAY_PAGE_HEADER = 16;
inline constexpr u32 ARRAY_PAGE_VALUES = 1020; // slots in a page
inline constexpr u32 ARRAY_BULK_VALUES = 1004; // values in a page made by array_bulk_create
inline constexpr u32 ARRAY_BLOCK_PAGES = 16;

struct array_page_t {
    mem_ref_t next;       // free run: the next run; in a builder: the next page; with words: their block
    mem_ref_t block_next; // in the first page of a block: the next block and this one's number of pages
    u32 data_offset;      // in use: bytes from the page to its first value; free run: pages in this run
    u32 item_count;       // in use: values
};

using array_word_t = u64(u32 value);

struct array_t {
    array_word_t *word; // makes the word of a value; 0: there are no words
    array_page_t **pages;
    u32 *first_index; // in one block with `pages`; 0 until there is a table, as in a builder
    u32 capacity;
    mem_ref_t blocks;     // list of page blocks
    mem_ref_t free_pages; // list of runs of free pages
    u32 count;
    u32 page_count;
};

using array_compare_t = int(u32 value, const void *key);

inline u32 *array_page_values(array_page_t *page) {
    return reinterpret_cast<u32 *>(reinterpret_cast<char *>(page) + page->data_offset);
}
inline const u32 *array_page_values(const array_page_t *page) {
    return reinterpret_cast<const u32 *>(reinterpret_cast<const char *>(page) + page->data_offset);
}

// The words of a page's values, of an array that has words.
inline u64 *array_page_words(const array_page_t *page) {
    return mem_ptr<u64>(page->next) + (page->data_offset - ARRAY_PAGE_HEADER) / sizeof(u32);
}

void array_init(array_t *array);
void array_kill(array_t *array);
void array_clear(array_t *array);
void array_swap(array_t *a, array_t *b);
// Bytes in use: table slots, pages in use and free pages.
size_t array_memory_size(const array_t *array);
void array_renumber(array_t *array);

// The value at an index and its place; 0 (or false) for an index out of range, with the place left as it is.
// `page` is a place in the table.
u32 array_get(const array_t *array, u32 index, u32 *page, i32 *position);
bool array_get_to(const array_t *array, u32 index, u32 *page, i32 *position, u32 *value);
// Steps a cursor on and gives the value there; 0 (or false) at the end, with the cursor left as it is. Page 0
// and position -1 stand in front of the first value.
u32 array_next(const array_t *array, u32 *page, i32 *position);
bool array_next_to(const array_t *array, u32 *page, i32 *position, u32 *value);

// Binary search. The value, or 0.
u32 array_find(const array_t *array, array_compare_t *compare, const void *key);
bool array_exists(const array_t *array, array_compare_t *compare, const void *key);
u32 array_find_cursor(const array_t *array, array_compare_t *compare, const void *key, u32 *page,
                      i32 *position);
// The place behind which the key's value belongs: that of the greatest value below the key, page 0 and
// position -1 when the key is below all, page 0 and position 0 when the array is empty; or the place of an
// equal value.
void array_find_position(const array_t *array, array_compare_t *compare, const void *key, u32 *page,
                         i32 *position, bool *found);

// Inserts when the key is absent, and returns whether it did.
bool array_insert(array_t *array, array_compare_t *compare, const void *key, u32 value);
// Inserts behind a position; -1 is the front of that page.
void array_insert_at(array_t *array, u32 page, i32 position, u32 value);
// Removes the value with the key and returns it, or 0.
u32 array_remove(array_t *array, array_compare_t *compare, const void *key);
bool array_remove_exists(array_t *array, array_compare_t *compare, const void *key);
void array_remove_at(array_t *array, u32 page, i32 position);

// These four free what the array held before, and make it anew.
// An array of `count` unset values with room at both ends of every page. The caller fills the pages.
void array_bulk_create(array_t *array, u32 count);
// The values of a table in memory, all pages full but the last, which is centred.
void array_set_from_memory(array_t *array, const u32 *values, u32 count);
void array_copy(array_t *array, const array_t *source);
void array_set_reversed(array_t *array, const array_t *source);
void array_reverse(array_t *array);
// Moves all pages of `source` behind those of `array`; `source` is empty afterwards. No value is copied.
void array_take_pages(array_t *array, array_t *source);

// Gives all values a word, which is kept from then on. The words of the values that are there are unset: the
// caller fills those of every page, by array_page_words. Functions that make the array anew, and those that
// take, give or exchange pages, are for arrays without words.
void array_words_create(array_t *array, array_word_t *word);

// --- Passes over many values -------------------------------------------------------------------------------

// Removes what a test picks from one page, in order; the page may be left empty. Several threads may work on
// different pages. When all are done, array_close makes the array whole. Returns how many values went.
template<class Picks>
inline u32 array_page_remove_if(const array_t *array, array_page_t *page, Picks picks) {
    u32 *values = array_page_values(page), kept = 0;
    u64 *words = array->word ? array_page_words(page) : nullptr;
    for (u32 i = 0; i < page->item_count; i++) {
        u32 value = values[i];
        values[kept] = value;
        if (words)
            words[kept] = words[i];
        kept += !picks(value);
    }
    u32 removed = page->item_count - kept;
    page->item_count = kept;
    return removed;
}
// Drops empty pages, joins neighbours that have become sparse, and counts anew. An array that has become
// empty gives its memory back.
void array_close(array_t *array);

// All values, in order, to a table of `count`; and back from one that holds the same values in another order.
// Words move along.
void array_get_all(const array_t *array, u32 *values);
void array_set_all(array_t *array, const u32 *values);

// --- Building ----------------------------------------------------------------------------------------------

// Building from scratch, by appending. An empty array is a builder; in it `pages` and `capacity` are not what
// they say: the builder keeps its first and last page there until it is finished. Only the functions below,
// and array_kill, may be called on it until then.
//   u32 *cursor = 0, *end = 0;
//   if (cursor == end) cursor = array_builder_new_page(&array, &end);
//   *cursor++ = value;
//   array_builder_finish(&array, cursor, end);
u32 *array_builder_new_page(array_t *array, u32 **page_end);
void array_builder_finish(array_t *array, u32 *cursor, u32 *page_end);
// Appends all values of `source` to a builder.
void array_builder_append(array_t *array, const array_t *source, u32 **cursor, u32 **page_end);

} // namespace findwright
