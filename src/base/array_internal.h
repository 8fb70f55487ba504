// What the sources of array_t share: the supply of pages and the page table.
#pragma once

#include "base/array.h"

namespace findwright {

// Gives a page out: block_next is kept, item_count is 0, the rest is not set.
array_page_t *array_page_alloc(array_t *array);
// Puts a page on the list of free runs.
void array_page_free(array_t *array, array_page_t *page);
// The same for a page of the table, with the block of its words.
void array_page_drop(array_t *array, array_page_t *page);
// Makes a block of 1 to 16 pages and enters it as a free run, for an array that has no free page.
void array_block_add(array_t *array, u32 page_count);

// Makes a page table with room for at least `page_count` entries in place of the present one, with all its
// entries.
void array_table_reserve(array_t *array, u32 page_count);

} // namespace findwright
