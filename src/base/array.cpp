#include "base/array_internal.h"

#include "base/mem.h"

#include <cstring>
#include <utility>

namespace findwright {

static constexpr i32 PAGE_VALUES = static_cast<i32>(ARRAY_PAGE_VALUES);
static constexpr u32 VALUE_SIZE = sizeof(u32);
static constexpr u32 NEW_PAGE_OFFSET = 2064;   // the centre of the page
static constexpr u32 FIRST_PAGE_OFFSET = 2056; // slot 510, for the first value of all
static constexpr u32 TABLE_CAPACITY_MAX = 0x7FFFFFFF;

// A page is a multiple of 4,096, so that the low bits of its reference are free: block_next keeps the number
// of pages of its own block there.
static constexpr mem_ref_t BLOCK_PAGES_MASK = 31;
static_assert(ARRAY_BLOCK_PAGES <= BLOCK_PAGES_MASK && (ARRAY_PAGE_SIZE >> MEM_REF_SHIFT) > BLOCK_PAGES_MASK);
static_assert(sizeof(array_page_t) == ARRAY_PAGE_HEADER);

// --- Pages -------------------------------------------------------------------------------------------------

static char *_array_page_body(array_page_t *page) {
    return reinterpret_cast<char *>(page) + ARRAY_PAGE_HEADER;
}

static array_page_t *_array_page_behind(array_page_t *page) {
    return reinterpret_cast<array_page_t *>(reinterpret_cast<char *>(page) + ARRAY_PAGE_SIZE);
}

void array_block_add(array_t *array, u32 page_count) {
    size_t size = page_count * ARRAY_PAGE_SIZE;
    array_page_t *page = static_cast<array_page_t *>(mem_arena_alloc(size));
    mem_poison(_array_page_body(page), size - ARRAY_PAGE_HEADER);
    page->block_next = array->blocks | page_count;
    page->next = array->free_pages;
    page->data_offset = page_count;
    array->blocks = array->free_pages = mem_ref(page);
}

array_page_t *array_page_alloc(array_t *array) {
    if (!array->free_pages)
        array_block_add(array, ARRAY_BLOCK_PAGES);

    array_page_t *page = mem_ptr<array_page_t>(array->free_pages);
    if (page->data_offset == 1) {
        array->free_pages = page->next;
    } else {
        array_page_t *rest = _array_page_behind(page);
        mem_unpoison(rest, ARRAY_PAGE_HEADER);
        rest->next = page->next;
        rest->data_offset = page->data_offset - 1;
        array->free_pages = mem_ref(rest);
    }
    mem_unpoison(page, ARRAY_PAGE_SIZE);
    page->item_count = 0;
    return page;
}

// Bytes of the words of one page.
static constexpr u32 PAGE_WORDS_SIZE = ARRAY_PAGE_VALUES * sizeof(u64);

static void _array_page_give_words(array_page_t *page) {
    page->next = mem_ref(mem_arena_alloc(PAGE_WORDS_SIZE));
}

static void _array_page_take_words(array_page_t *page) {
    mem_arena_free(mem_ptr<u64>(page->next), PAGE_WORDS_SIZE);
}

void array_words_create(array_t *array, array_word_t *word) {
    array->word = word;
    for (u32 i = 0; i < array->page_count; i++)
        _array_page_give_words(array->pages[i]);
}

void array_page_free(array_t *array, array_page_t *page) {
    page->next = array->free_pages;
    page->data_offset = 1;
    array->free_pages = mem_ref(page);
    mem_poison(_array_page_body(page), ARRAY_PAGE_SIZE - ARRAY_PAGE_HEADER);
}

void array_page_drop(array_t *array, array_page_t *page) {
    if (array->word)
        _array_page_take_words(page);
    array_page_free(array, page);
}

// --- Page table --------------------------------------------------------------------------------------------

static u32 _array_table_capacity(u32 page_count) {
    u32 capacity = 1;
    while (capacity < page_count)
        capacity = capacity > TABLE_CAPACITY_MAX / 2 ? TABLE_CAPACITY_MAX : capacity * 2;
    return capacity;
}

// Both tables are one block: the page pointers, and the first indexes behind them. Entries from `gap` on move
// up by `gap_size`.
static void _array_table_grow(array_t *array, u32 page_count, u32 gap, u32 gap_size) {
    u32 capacity = _array_table_capacity(page_count);
    array_page_t **pages =
        static_cast<array_page_t **>(mem_alloc(capacity * (sizeof(array_page_t *) + sizeof(u32))));
    u32 *first_index = reinterpret_cast<u32 *>(pages + capacity);
    if (array->first_index) {
        u32 behind = array->page_count - gap;
        memcpy(pages, array->pages, gap * sizeof(*pages));
        memcpy(pages + gap + gap_size, array->pages + gap, behind * sizeof(*pages));
        memcpy(first_index, array->first_index, gap * sizeof(u32));
        memcpy(first_index + gap + gap_size, array->first_index + gap, behind * sizeof(u32));
        mem_free(array->pages);
    }
    array->pages = pages;
    array->first_index = first_index;
    array->capacity = capacity;
}

void array_table_reserve(array_t *array, u32 page_count) {
    if (page_count > array->capacity)
        _array_table_grow(array, page_count, array->page_count, 0);
}

// Puts a new, empty page at a place of the table. Its first index is still to be set.
static array_page_t *_array_page_insert(array_t *array, u32 at, u32 data_offset) {
    array_page_t *page = array_page_alloc(array);
    page->data_offset = data_offset;
    if (array->word)
        _array_page_give_words(page);
    if (array->page_count == array->capacity) {
        _array_table_grow(array, array->page_count + 1, at, 1);
    } else {
        u32 behind = array->page_count - at;
        memmove(array->pages + at + 1, array->pages + at, behind * sizeof(*array->pages));
        memmove(array->first_index + at + 1, array->first_index + at, behind * sizeof(u32));
    }
    array->pages[at] = page;
    array->page_count++;
    return page;
}

static void _array_page_remove(array_t *array, u32 at) {
    array_page_drop(array, array->pages[at]);
    array->page_count--;
    u32 behind = array->page_count - at;
    memmove(array->pages + at, array->pages + at + 1, behind * sizeof(*array->pages));
    memmove(array->first_index + at, array->first_index + at + 1, behind * sizeof(u32));
}

// Adds to the first index of every page from `from` on; a decrement is the addition of ~0. Written out in
// vectors, since this loop is what an insertion costs beside its page, and not every optimization level makes
// them of it.
static void _array_add_to_index(array_t *array, u32 from, u32 added) {
    using vector_t [[gnu::vector_size(16), gnu::aligned(4)]] = u32;
    constexpr u32 LANES = sizeof(vector_t) / sizeof(u32);

    u32 *first_index = array->first_index;
    u32 end = array->page_count;
    u32 i = from;
    for (; i + 4 * LANES <= end; i += 4 * LANES) {
        vector_t *vectors = reinterpret_cast<vector_t *>(first_index + i);
        vectors[0] += added;
        vectors[1] += added;
        vectors[2] += added;
        vectors[3] += added;
    }
    for (; i < end; i++)
        first_index[i] += added;
}

void array_renumber(array_t *array) {
    u32 index = 0;
    for (u32 i = 0; i < array->page_count; i++) {
        array->first_index[i] = index;
        index += array->pages[i]->item_count;
    }
}

// --- The whole ---------------------------------------------------------------------------------------------

void array_init(array_t *array) {
    *array = {};
}

void array_kill(array_t *array) {
    for (u32 i = 0; array->word && i < array->page_count; i++)
        _array_page_take_words(array->pages[i]);
    // A builder has no table yet: its `pages` is a page.
    if (array->first_index)
        mem_free(array->pages);
    for (mem_ref_t ref = array->blocks; ref;) {
        array_page_t *block = mem_ptr<array_page_t>(ref);
        ref = block->block_next & ~BLOCK_PAGES_MASK;
        mem_arena_free(block, (block->block_next & BLOCK_PAGES_MASK) * ARRAY_PAGE_SIZE);
    }
    array_init(array);
}

void array_clear(array_t *array) {
    array_kill(array);
}

void array_swap(array_t *a, array_t *b) {
    std::swap(*a, *b);
}

size_t array_memory_size(const array_t *array) {
    size_t pages = array->page_count;
    for (mem_ref_t ref = array->free_pages; ref; ref = mem_ptr<array_page_t>(ref)->next)
        pages += mem_ptr<array_page_t>(ref)->data_offset;
    size_t words = array->word ? array->page_count * static_cast<size_t>(PAGE_WORDS_SIZE) : 0;
    return array->capacity * (sizeof(array_page_t *) + sizeof(u32)) + pages * ARRAY_PAGE_SIZE + words;
}

void array_take_pages(array_t *array, array_t *source) {
    if (source->page_count) {
        array_table_reserve(array, array->page_count + source->page_count);
        memcpy(array->pages + array->page_count, source->pages, source->page_count * sizeof(*array->pages));
        for (u32 i = 0; i < source->page_count; i++)
            array->first_index[array->page_count + i] = source->first_index[i] + array->count;
        array->page_count += source->page_count;
        array->count += source->count;
    }
    if (source->blocks) {
        array_page_t *last = mem_ptr<array_page_t>(source->blocks);
        while (last->block_next & ~BLOCK_PAGES_MASK)
            last = mem_ptr<array_page_t>(last->block_next & ~BLOCK_PAGES_MASK);
        last->block_next |= array->blocks;
        array->blocks = source->blocks;
        source->blocks = 0;
    }
    if (source->free_pages) {
        array_page_t *last = mem_ptr<array_page_t>(source->free_pages);
        while (last->next)
            last = mem_ptr<array_page_t>(last->next);
        last->next = array->free_pages;
        array->free_pages = source->free_pages;
    }
    array_kill(source);
}

// --- By index ----------------------------------------------------------------------------------------------

bool array_get_to(const array_t *array, u32 index, u32 *page, i32 *position, u32 *value) {
    if (index >= array->count)
        return false;
    // The last page whose first index is not above the index.
    u32 at = 0;
    for (u32 length = array->page_count; length > 1;) {
        u32 half = length / 2;
        if (array->first_index[at + half] <= index)
            at += half;
        length -= half;
    }
    u32 slot = index - array->first_index[at];
    *page = at;
    *position = static_cast<i32>(slot);
    *value = array_page_values(array->pages[at])[slot];
    return true;
}

u32 array_get(const array_t *array, u32 index, u32 *page, i32 *position) {
    u32 value;
    return array_get_to(array, index, page, position, &value) ? value : 0;
}

bool array_next_to(const array_t *array, u32 *page, i32 *position, u32 *value) {
    if (*page >= array->page_count)
        return false;
    u32 at = *page;
    u32 slot = static_cast<u32>(*position + 1);
    if (slot >= array->pages[at]->item_count) {
        if (++at == array->page_count)
            return false;
        slot = 0;
    }
    *page = at;
    *position = static_cast<i32>(slot);
    *value = array_page_values(array->pages[at])[slot];
    return true;
}

u32 array_next(const array_t *array, u32 *page, i32 *position) {
    u32 value;
    return array_next_to(array, page, position, &value) ? value : 0;
}

// --- By key ------------------------------------------------------------------------------------------------

void array_find_position(const array_t *array, array_compare_t *compare, const void *key, u32 *page,
                         i32 *position, bool *found) {
    *found = false;
    *page = 0;
    *position = array->page_count ? -1 : 0;

    // The last page whose first value is below the key.
    bool has_page = false;
    i32 low = 0;
    i32 high = static_cast<i32>(array->page_count) - 1;
    while (low <= high) {
        i32 middle = low + (high - low) / 2;
        int order = compare(*array_page_values(array->pages[middle]), key);
        if (order == 0) {
            *page = static_cast<u32>(middle);
            *position = 0;
            *found = true;
            return;
        }
        if (order < 0) {
            has_page = true;
            *page = static_cast<u32>(middle);
            low = middle + 1;
        } else {
            high = middle - 1;
        }
    }
    if (!has_page)
        return;

    // The last value in it that is below the key.
    const u32 *values = array_page_values(array->pages[*page]);
    low = 0;
    high = static_cast<i32>(array->pages[*page]->item_count) - 1;
    while (low <= high) {
        i32 middle = low + (high - low) / 2;
        int order = compare(values[middle], key);
        if (order <= 0)
            *position = middle;
        if (order == 0) {
            *found = true;
            return;
        }
        if (order < 0)
            low = middle + 1;
        else
            high = middle - 1;
    }
}

u32 array_find_cursor(const array_t *array, array_compare_t *compare, const void *key, u32 *page,
                      i32 *position) {
    bool found;
    array_find_position(array, compare, key, page, position, &found);
    return found ? array_page_values(array->pages[*page])[*position] : 0;
}

u32 array_find(const array_t *array, array_compare_t *compare, const void *key) {
    u32 page;
    i32 position;
    return array_find_cursor(array, compare, key, &page, &position);
}

bool array_exists(const array_t *array, array_compare_t *compare, const void *key) {
    u32 page;
    i32 position;
    bool found;
    array_find_position(array, compare, key, &page, &position, &found);
    return found;
}

// --- Insertion ---------------------------------------------------------------------------------------------

static bool _array_page_room_in_front(const array_page_t *page) {
    return page->data_offset > ARRAY_PAGE_HEADER;
}

static bool _array_page_room_behind(const array_page_t *page) {
    return page->data_offset + page->item_count * VALUE_SIZE != ARRAY_PAGE_SIZE;
}

// A value on its way, with its word.
struct _array_entry_t {
    u32 value;
    u64 word; // of an array that has words
};

static _array_entry_t _array_get_entry(const array_t *array, const array_page_t *page, i32 slot) {
    return {array_page_values(page)[slot], array->word ? array_page_words(page)[slot] : 0};
}

static void _array_set_entry(const array_t *array, array_page_t *page, i32 slot, _array_entry_t entry) {
    array_page_values(page)[slot] = entry.value;
    if (array->word)
        array_page_words(page)[slot] = entry.word;
}

// Moves `count` values of a page, and their words.
static void _array_page_move(const array_t *array, array_page_t *page, i32 to, i32 from, i32 count) {
    u32 *values = array_page_values(page);
    memmove(values + to, values + from, static_cast<size_t>(count) * VALUE_SIZE);
    if (array->word) {
        u64 *words = array_page_words(page);
        memmove(words + to, words + from, static_cast<size_t>(count) * sizeof(u64));
    }
}

// Inserts behind a position of a page with room, and moves the shorter side unless it has no room.
static void _array_page_put(const array_t *array, array_page_t *page, i32 position, _array_entry_t entry) {
    i32 count = static_cast<i32>(page->item_count);
    if ((position >= count / 2 || !_array_page_room_in_front(page)) && _array_page_room_behind(page)) {
        _array_page_move(array, page, position + 2, position + 1, count - position - 1);
        _array_set_entry(array, page, position + 1, entry);
    } else {
        _array_page_move(array, page, -1, 0, position + 1);
        page->data_offset -= VALUE_SIZE; // what was at the position is now in front of it
        _array_set_entry(array, page, position + 1, entry);
    }
    page->item_count++;
}

static constexpr i32 COST_NONE = -1;
static constexpr i32 COST_NEW_PAGE = -2;

// What it costs to let one value go from a full page to the end of the page in front, or to the front of the
// page behind, in values moved.
static i32 _array_cost_front(const array_t *array, u32 page, i32 position) {
    if (page == 0 || array->pages[page - 1]->item_count == ARRAY_PAGE_VALUES)
        return COST_NONE;
    const array_page_t *front = array->pages[page - 1];
    return position + 1 + (_array_page_room_behind(front) ? 0 : static_cast<i32>(front->item_count));
}

static i32 _array_cost_behind(const array_t *array, u32 page, i32 position) {
    if (page + 1 == array->page_count || array->pages[page + 1]->item_count == ARRAY_PAGE_VALUES)
        return COST_NONE;
    const array_page_t *behind = array->pages[page + 1];
    return PAGE_VALUES - 1 - position +
           (_array_page_room_in_front(behind) ? 0 : static_cast<i32>(behind->item_count));
}

// Inserts into a full page by moving one value over to a neighbour. Returns the page that gained a value.
static u32 _array_insert_over(array_t *array, u32 page, i32 position, _array_entry_t entry) {
    i32 cost_front = _array_cost_front(array, page, position);
    i32 cost_behind = _array_cost_behind(array, page, position);
    if (cost_front == COST_NONE && cost_behind == COST_NONE) {
        u32 first_index = array->first_index[page];
        if (position < PAGE_VALUES / 2) {
            _array_page_insert(array, page, NEW_PAGE_OFFSET);
            array->first_index[page] = first_index;
            page++;
            cost_front = COST_NEW_PAGE;
        } else {
            _array_page_insert(array, page + 1, NEW_PAGE_OFFSET);
            array->first_index[page + 1] = first_index + ARRAY_PAGE_VALUES;
            cost_behind = COST_NEW_PAGE;
        }
    }

    array_page_t *full = array->pages[page];
    _array_entry_t leaving = entry;
    if (cost_front != COST_NONE && (cost_behind == COST_NONE || cost_behind > cost_front)) {
        if (position >= 0) {
            leaving = _array_get_entry(array, full, 0);
            _array_page_move(array, full, 0, 1, position);
            _array_set_entry(array, full, position, entry);
        }
        array_page_t *front = array->pages[page - 1];
        _array_page_put(array, front, static_cast<i32>(front->item_count) - 1, leaving);
        return page - 1;
    }

    if (position < PAGE_VALUES - 1) {
        leaving = _array_get_entry(array, full, PAGE_VALUES - 1);
        _array_page_move(array, full, position + 2, position + 1, PAGE_VALUES - 2 - position);
        _array_set_entry(array, full, position + 1, entry);
    }
    _array_page_put(array, array->pages[page + 1], -1, leaving);
    return page + 1;
}

void array_insert_at(array_t *array, u32 page, i32 position, u32 value) {
    _array_entry_t entry = {value, array->word ? array->word(value) : 0};
    if (!array->page_count) {
        array_page_t *first = _array_page_insert(array, 0, FIRST_PAGE_OFFSET);
        first->item_count = 1;
        _array_set_entry(array, first, 0, entry);
        array->first_index[0] = 0;
        array->count = 1;
        return;
    }
    u32 gained = page;
    if (array->pages[page]->item_count < ARRAY_PAGE_VALUES)
        _array_page_put(array, array->pages[page], position, entry);
    else
        gained = _array_insert_over(array, page, position, entry);
    _array_add_to_index(array, gained + 1, 1);
    array->count++;
}

bool array_insert(array_t *array, array_compare_t *compare, const void *key, u32 value) {
    u32 page;
    i32 position;
    bool found;
    array_find_position(array, compare, key, &page, &position, &found);
    if (!found)
        array_insert_at(array, page, position, value);
    return !found;
}

// --- Removal -----------------------------------------------------------------------------------------------

void array_remove_at(array_t *array, u32 page, i32 position) {
    array_page_t *from = array->pages[page];
    i32 count = static_cast<i32>(from->item_count);
    if (position >= count / 2) {
        _array_page_move(array, from, position, position + 1, count - position - 1);
    } else {
        _array_page_move(array, from, 1, 0, position);
        from->data_offset += VALUE_SIZE;
    }
    from->item_count--;
    _array_add_to_index(array, page + 1, ~0u);
    array->count--;
    if (!from->item_count)
        _array_page_remove(array, page);
}

static bool _array_remove_to(array_t *array, array_compare_t *compare, const void *key, u32 *value) {
    u32 page;
    i32 position;
    bool found;
    array_find_position(array, compare, key, &page, &position, &found);
    if (!found)
        return false;
    *value = array_page_values(array->pages[page])[position];
    array_remove_at(array, page, position);
    return true;
}

u32 array_remove(array_t *array, array_compare_t *compare, const void *key) {
    u32 value;
    return _array_remove_to(array, compare, key, &value) ? value : 0;
}

bool array_remove_exists(array_t *array, array_compare_t *compare, const void *key) {
    u32 value;
    return _array_remove_to(array, compare, key, &value);
}

} // namespace findwright
