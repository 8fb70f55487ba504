// Passes that change many values of an array at once.
#include "base/array_internal.h"

#include <cstring>

namespace findwright {

// Two pages become one when what they hold then leaves some room.
static constexpr u32 JOIN_VALUES = ARRAY_BULK_VALUES * 3 / 4;

// Moves a page's values, with their words, so that they begin at another slot.
static void _array_page_shift(const array_t *array, array_page_t *page, u32 data_offset) {
    u32 *values = array_page_values(page);
    u64 *words = array->word ? array_page_words(page) : nullptr;
    page->data_offset = data_offset;
    std::memmove(array_page_values(page), values, page->item_count * sizeof *values);
    if (words)
        std::memmove(array_page_words(page), words, page->item_count * sizeof *words);
}

// Appends a page's values to the page in front of it, and centres all.
static void _array_page_join(const array_t *array, array_page_t *page, const array_page_t *behind) {
    u32 count = page->item_count, total = count + behind->item_count;
    _array_page_shift(array, page,
                      ARRAY_PAGE_HEADER + (ARRAY_PAGE_VALUES - total) / 2 * static_cast<u32>(sizeof(u32)));
    std::memcpy(array_page_values(page) + count, array_page_values(behind), behind->item_count * sizeof(u32));
    if (array->word)
        std::memcpy(array_page_words(page) + count, array_page_words(behind),
                    behind->item_count * sizeof(u64));
    page->item_count = total;
}

void array_close(array_t *array) {
    u32 kept = 0;
    for (u32 i = 0; i < array->page_count; i++) {
        array_page_t *page = array->pages[i];
        array_page_t *front = kept != 0 ? array->pages[kept - 1] : nullptr;
        bool joins = front && page->item_count + front->item_count <= JOIN_VALUES;
        if (joins && page->item_count != 0)
            _array_page_join(array, front, page);
        if (joins || page->item_count == 0)
            array_page_drop(array, page);
        else
            array->pages[kept++] = page;
    }
    array->page_count = kept;
    if (kept == 0) { // gives all of its memory back
        array_word_t *word = array->word;
        array_clear(array);
        array->word = word;
        return;
    }
    array_renumber(array);
    array->count = array->first_index[kept - 1] + array->pages[kept - 1]->item_count;
}

void array_get_all(const array_t *array, u32 *values) {
    for (u32 i = 0; i < array->page_count; i++)
        std::memcpy(values + array->first_index[i], array_page_values(array->pages[i]),
                    array->pages[i]->item_count * sizeof *values);
}

void array_set_all(array_t *array, const u32 *values) {
    for (u32 i = 0; i < array->page_count; i++) {
        array_page_t *page = array->pages[i];
        u32 *slots = array_page_values(page);
        for (u32 k = 0; k < page->item_count; k++) {
            if (slots[k] == *values) {
                values++;
                continue;
            }
            slots[k] = *values++;
            if (array->word)
                array_page_words(page)[k] = array->word(slots[k]);
        }
    }
}

} // namespace findwright
