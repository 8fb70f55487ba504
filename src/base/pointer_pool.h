// A growing sequence of 32-bit references, for appending and for walking: the working set of a pass.
//
//   chunks -> [ chunk 0 | chunk 1 | ... ]     tables on the plain heap; a chunk is 65,536 bytes, 16,384
//   entries
//
// Entry i is slot i & POINTER_POOL_SLOT_MASK of chunk i >> POINTER_POOL_CHUNK_SHIFT; it never moves.
// Owner: whoever holds the structure; one thread at a time.
#pragma once

#include "base/mem_ref.h"

namespace findwright {

inline constexpr u32 POINTER_POOL_CHUNK_SHIFT = 14;
inline constexpr u32 POINTER_POOL_CHUNK_ENTRIES = 1u << POINTER_POOL_CHUNK_SHIFT;
inline constexpr u32 POINTER_POOL_SLOT_MASK = POINTER_POOL_CHUNK_ENTRIES - 1;

struct pointer_pool_t {
    mem_ref_t **chunks;
    u32 chunk_count;
    u32 chunk_capacity;
    mem_ref_t *cursor;
    mem_ref_t *end;
};

void pointer_pool_init(pointer_pool_t *pool);
void pointer_pool_kill(pointer_pool_t *pool);
void pointer_pool_new_chunk(pointer_pool_t *pool);

// The number of entries.
u32 pointer_pool_count(const pointer_pool_t *pool);
// Behind the last entry of a chunk, given by its place in the table.
mem_ref_t *pointer_pool_chunk_end(const pointer_pool_t *pool, u32 chunk);
// Writes all entries to a table of pointer_pool_count entries.
void pointer_pool_copy(const pointer_pool_t *pool, mem_ref_t *entries);
// The entries from `index` on that lie in one piece; `*first` equal to `*end` when there are none.
void pointer_pool_get_range(const pointer_pool_t *pool, u32 index, mem_ref_t **first, mem_ref_t **end);

inline void pointer_pool_push(pointer_pool_t *pool, mem_ref_t value) {
    if (pool->cursor == pool->end)
        pointer_pool_new_chunk(pool);
    *pool->cursor++ = value;
}

// The entry at an index below pointer_pool_count.
inline mem_ref_t pointer_pool_get(const pointer_pool_t *pool, u32 index) {
    return pool->chunks[index >> POINTER_POOL_CHUNK_SHIFT][index & POINTER_POOL_SLOT_MASK];
}

} // namespace findwright
