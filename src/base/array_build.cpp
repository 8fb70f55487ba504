// Arrays made as a whole: in bulk, from memory, as a copy, by appending.
#include "base/array_internal.h"

#include <cstring>
#include <utility>

namespace findwright {

static constexpr u32 VALUE_SIZE = sizeof(u32);

// A full page of array_bulk_create has 8 free slots at each end, the last page is centred, and one rule gives
// both.
static u32 _array_bulk_offset(u32 item_count) {
    return (514 - item_count / 2) * VALUE_SIZE;
}

// Makes the table and the pages of an emptied array; item_count and data_offset are the caller's to set. With
// `exact`, an array of less than a block takes a block of just its size.
static void _array_make_pages(array_t *array, u32 page_count, bool exact) {
    array_clear(array);
    if (!page_count)
        return;
    if (exact && page_count < ARRAY_BLOCK_PAGES)
        array_block_add(array, page_count);
    array_table_reserve(array, page_count);
    for (u32 i = 0; i < page_count; i++)
        array->pages[i] = array_page_alloc(array);
    array->page_count = page_count;
}

static u32 _array_pages_for(u32 count, u32 per_page) {
    return static_cast<u32>((static_cast<u64>(count) + per_page - 1) / per_page);
}

void array_bulk_create(array_t *array, u32 count) {
    _array_make_pages(array, _array_pages_for(count, ARRAY_BULK_VALUES), false);
    array->count = count;
    for (u32 i = 0; i < array->page_count; i++) {
        array_page_t *page = array->pages[i];
        page->item_count = count < ARRAY_BULK_VALUES ? count : ARRAY_BULK_VALUES;
        page->data_offset = _array_bulk_offset(page->item_count);
        array->first_index[i] = i * ARRAY_BULK_VALUES;
        count -= page->item_count;
    }
}

void array_set_from_memory(array_t *array, const u32 *values, u32 count) {
    _array_make_pages(array, _array_pages_for(count, ARRAY_PAGE_VALUES), true);
    array->count = count;
    for (u32 i = 0; i < array->page_count; i++) {
        array_page_t *page = array->pages[i];
        page->item_count = count < ARRAY_PAGE_VALUES ? count : ARRAY_PAGE_VALUES;
        page->data_offset = (ARRAY_PAGE_VALUES - page->item_count) / 2 * VALUE_SIZE + ARRAY_PAGE_HEADER;
        memcpy(array_page_values(page), values, page->item_count * VALUE_SIZE);
        array->first_index[i] = i * ARRAY_PAGE_VALUES;
        values += page->item_count;
        count -= page->item_count;
    }
}

// --- Copies ------------------------------------------------------------------------------------------------

void array_copy(array_t *array, const array_t *source) {
    _array_make_pages(array, source->page_count, true);
    array->count = source->count;
    for (u32 i = 0; i < array->page_count; i++) {
        const array_page_t *from = source->pages[i];
        array_page_t *page = array->pages[i];
        page->item_count = from->item_count;
        page->data_offset = from->data_offset;
        memcpy(array_page_values(page), array_page_values(from), from->item_count * VALUE_SIZE);
        array->first_index[i] = source->first_index[i];
    }
}

// The copy has the mirrored shape: page by page from the other end, each with its free slots exchanged.
void array_set_reversed(array_t *array, const array_t *source) {
    _array_make_pages(array, source->page_count, true);
    array->count = source->count;
    u32 index = 0;
    for (u32 i = 0; i < array->page_count; i++) {
        const array_page_t *from = source->pages[source->page_count - 1 - i];
        array_page_t *page = array->pages[i];
        u32 count = from->item_count;
        page->item_count = count;
        page->data_offset = ARRAY_PAGE_HEADER + ARRAY_PAGE_SIZE - (from->data_offset + count * VALUE_SIZE);
        const u32 *values = array_page_values(from);
        u32 *target = array_page_values(page);
        for (u32 slot = 0; slot < count; slot++)
            target[slot] = values[count - 1 - slot];
        array->first_index[i] = index;
        index += count;
    }
}

void array_reverse(array_t *array) {
    if (!array->count)
        return;
    array_page_t **front_page = array->pages;
    array_page_t **back_page = array->pages + array->page_count - 1;
    u32 *front = array_page_values(*front_page);
    u32 *back =
        array_page_values(*back_page) + (*back_page)->item_count; // behind the next value from the back
    u32 front_left = (*front_page)->item_count;
    u32 back_left = (*back_page)->item_count;

    // In runs as long as both pages allow, up to the middle.
    for (u32 left = array->count / 2; left;) {
        u32 run = front_left < back_left ? front_left : back_left;
        if (run > left)
            run = left;
        for (u32 i = 0; i < run; i++)
            std::swap(*front++, *--back);
        left -= run;
        front_left -= run;
        back_left -= run;
        if (!front_left && left) {
            front_page++;
            front = array_page_values(*front_page);
            front_left = (*front_page)->item_count;
        }
        if (!back_left && left) {
            back_page--;
            back = array_page_values(*back_page) + (*back_page)->item_count;
            back_left = (*back_page)->item_count;
        }
    }
}

// --- Builder -----------------------------------------------------------------------------------------------

// A builder keeps its first page in `pages` and its last page's reference in `capacity`; the pages are
// linked.
static array_page_t *_array_builder_first(const array_t *array) {
    return reinterpret_cast<array_page_t *>(array->pages);
}

u32 *array_builder_new_page(array_t *array, u32 **page_end) {
    array_page_t *page = array_page_alloc(array);
    page->next = 0;
    page->data_offset = ARRAY_PAGE_HEADER;
    if (array->capacity)
        mem_ptr<array_page_t>(array->capacity)->next = mem_ref(page);
    else
        array->pages = reinterpret_cast<array_page_t **>(page);
    array->capacity = mem_ref(page);

    u32 *values = array_page_values(page);
    *page_end = values + ARRAY_PAGE_VALUES;
    return values;
}

void array_builder_finish(array_t *array, u32 *cursor, u32 *page_end) {
    array_page_t *first = _array_builder_first(array);
    array->pages = nullptr;
    array->capacity = 0;
    if (!first)
        return;

    u32 page_count = 1;
    for (const array_page_t *page = first; page->next; page = mem_ptr<array_page_t>(page->next))
        page_count++;
    array_table_reserve(array, page_count);
    array_page_t *page = first;
    for (u32 i = 0;; i++) {
        array->pages[i] = page;
        array->first_index[i] = i * ARRAY_PAGE_VALUES;
        page->item_count = ARRAY_PAGE_VALUES;
        if (!page->next)
            break;
        page = mem_ptr<array_page_t>(page->next);
    }
    page->item_count -= static_cast<u32>(page_end - cursor);
    array->count = array->first_index[page_count - 1] + page->item_count;
    // A page that was asked for and not written is none of the array's.
    if (!page->item_count) {
        array_page_free(array, page);
        page_count--;
    }
    array->page_count = page_count;
}

void array_builder_append(array_t *array, const array_t *source, u32 **cursor, u32 **page_end) {
    for (u32 i = 0; i < source->page_count; i++) {
        const u32 *values = array_page_values(source->pages[i]);
        for (u32 left = source->pages[i]->item_count; left;) {
            if (*cursor == *page_end)
                *cursor = array_builder_new_page(array, page_end);
            u32 room = static_cast<u32>(*page_end - *cursor);
            u32 run = left < room ? left : room;
            memcpy(*cursor, values, run * VALUE_SIZE);
            *cursor += run;
            values += run;
            left -= run;
        }
    }
}

} // namespace findwright
