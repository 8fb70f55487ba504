// A set of items of one database, as a bitmap over the arena: what a pass has to know of all items before it
// can decide on one (folders without children, duplicates, folders whose path matches).
//
// Records begin at multiples of 4 and are at least 8 bytes long, so that one bit serves 8 bytes of the arena;
// where the columns make them longer one bit serves 16.
//
// Owner: an executable term of a search, or the pass that fills it. Filled by one thread, or by several that
// add items with db_item_set_add_shared, or each to a set of its own; read by any number afterwards.
#pragma once

#include "base/array.h"
#include "db/db_data.h"
#include "db/db_item.h"
#include "db/db_layout.h"

namespace findwright {

struct db_item_set_t : db_data_t {
    mem_ref_t first; // the reference of the first bit, a multiple of what one word of bits stands for
    mem_ref_t end;   // references from here on are in no set
    u32 shift;       // references that share a bit, as a power of two
    u64 *bits;
};

// For items of any database, and the shift for those of a layout.
inline constexpr u32 DB_ITEM_SET_SHIFT = 1;
u32 db_item_set_get_shift(const db_layout_t *layout);

// Words of `bits`.
size_t db_item_set_get_word_count(const db_item_set_t *set);

// An empty set for the items of an array.
db_item_set_t *db_item_set_create(const array_t *items);
// An empty set for items from one reference to another, both included; none where `first` is above `last`.
db_item_set_t *db_item_set_create_range(mem_ref_t first, mem_ref_t last, u32 shift = DB_ITEM_SET_SHIFT);
// Widens a range of references to those that an array holds. The empty range is ~0 and 0.
void db_item_set_widen(const array_t *items, mem_ref_t *first, mem_ref_t *last);
// An empty set for the same items as another one.
db_item_set_t *db_item_set_create_like(const db_item_set_t *set);
// Adds what is in a set for the same items.
void db_item_set_merge(db_item_set_t *set, const db_item_set_t *from);
void db_item_set_free(db_data_t *set);

inline bool db_item_set_has(const db_item_set_t *set, mem_ref_t item) {
    if (item < set->first || item >= set->end)
        return false;
    u32 bit = (item - set->first) >> set->shift;
    return set->bits[bit / 64] >> bit % 64 & 1;
}
// Asks the memory for an item's bit, to be set.
inline void db_item_set_prefetch(const db_item_set_t *set, mem_ref_t item) {
    __builtin_prefetch(&set->bits[(item - set->first) >> set->shift >> 6], 1);
}
// While other threads add.
inline bool db_item_set_has_shared(const db_item_set_t *set, mem_ref_t item) {
    if (item < set->first || item >= set->end)
        return false;
    u32 bit = (item - set->first) >> set->shift;
    return __atomic_load_n(&set->bits[bit / 64], __ATOMIC_RELAXED) >> bit % 64 & 1;
}
inline void db_item_set_add(db_item_set_t *set, mem_ref_t item) {
    u32 bit = (item - set->first) >> set->shift;
    set->bits[bit / 64] |= static_cast<u64>(1) << bit % 64;
}
inline void db_item_set_remove(db_item_set_t *set, mem_ref_t item) {
    u32 bit = (item - set->first) >> set->shift;
    set->bits[bit / 64] &= ~(static_cast<u64>(1) << bit % 64);
}
inline void db_item_set_add_shared(db_item_set_t *set, mem_ref_t item) {
    u32 bit = (item - set->first) >> set->shift;
    __atomic_fetch_or(&set->bits[bit / 64], static_cast<u64>(1) << bit % 64, __ATOMIC_RELAXED);
}

} // namespace findwright
