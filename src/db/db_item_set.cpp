#include "db/db_item_set.h"

#include "base/mem.h"

#include <cstring>

namespace findwright {

u32 db_item_set_get_shift(const db_layout_t *layout) {
    u32 columns =
        layout->file_data_size < layout->folder_data_size ? layout->file_data_size : layout->folder_data_size;
    return ((DB_ITEM_HEAD + columns + 3) & ~3u) >= 16 ? 2 : DB_ITEM_SET_SHIFT;
}

size_t db_item_set_get_word_count(const db_item_set_t *set) {
    return (static_cast<size_t>(set->end - set->first) >> set->shift) / 64 + 1;
}

static void _db_item_set_clear(db_item_set_t *set) {
    size_t size = db_item_set_get_word_count(set) * sizeof(u64);
    set->bits = static_cast<u64 *>(mem_alloc(size));
    std::memset(set->bits, 0, size);
}

void db_item_set_widen(const array_t *items, mem_ref_t *first, mem_ref_t *last) {
    mem_ref_t lowest = *first, highest = *last;
    for (u32 page = 0; page < items->page_count; page++) {
        const u32 *values = array_page_values(items->pages[page]);
        for (u32 i = 0; i < items->pages[page]->item_count; i++) {
            lowest = values[i] < lowest ? values[i] : lowest;
            highest = values[i] > highest ? values[i] : highest;
        }
    }
    *first = lowest;
    *last = highest;
}

db_item_set_t *db_item_set_create_range(mem_ref_t first, mem_ref_t last, u32 shift) {
    db_item_set_t *set = static_cast<db_item_set_t *>(mem_alloc(sizeof *set));
    set->free = db_item_set_free;
    set->shift = shift;
    set->first = first <= last ? first >> shift >> 6 << 6 << shift : 0;
    set->end = first <= last ? last + 1 : 0;
    _db_item_set_clear(set);
    return set;
}

db_item_set_t *db_item_set_create(const array_t *items) {
    mem_ref_t first = ~static_cast<mem_ref_t>(0), last = 0;
    db_item_set_widen(items, &first, &last);
    return db_item_set_create_range(first, last);
}

db_item_set_t *db_item_set_create_like(const db_item_set_t *set) {
    db_item_set_t *like = static_cast<db_item_set_t *>(mem_alloc(sizeof *like));
    *like = *set;
    _db_item_set_clear(like);
    return like;
}

void db_item_set_merge(db_item_set_t *set, const db_item_set_t *from) {
    size_t words = db_item_set_get_word_count(set);
    for (size_t i = 0; i < words; i++)
        set->bits[i] |= from->bits[i];
}

void db_item_set_free(db_data_t *data) {
    db_item_set_t *set = static_cast<db_item_set_t *>(data);
    mem_free(set->bits);
    mem_free(set);
}

} // namespace findwright
