#include "base/pointer_pool.h"

#include "base/mem.h"

#include <cstring>

namespace findwright {

void pointer_pool_init(pointer_pool_t *pool) {
    *pool = {};
}

void pointer_pool_kill(pointer_pool_t *pool) {
    for (u32 i = 0; i < pool->chunk_count; i++)
        mem_free(pool->chunks[i]);
    if (pool->chunks)
        mem_free(pool->chunks);
    pointer_pool_init(pool);
}

void pointer_pool_new_chunk(pointer_pool_t *pool) {
    if (pool->chunk_count == pool->chunk_capacity) {
        u32 capacity = pool->chunk_capacity ? pool->chunk_capacity * 2 : 1;
        mem_ref_t **chunks = static_cast<mem_ref_t **>(mem_alloc(capacity * sizeof(mem_ref_t *)));
        if (pool->chunks) {
            memcpy(chunks, pool->chunks, pool->chunk_count * sizeof(mem_ref_t *));
            mem_free(pool->chunks);
        }
        pool->chunks = chunks;
        pool->chunk_capacity = capacity;
    }
    mem_ref_t *chunk = static_cast<mem_ref_t *>(mem_alloc(POINTER_POOL_CHUNK_ENTRIES * sizeof(mem_ref_t)));
    pool->chunks[pool->chunk_count++] = chunk;
    pool->cursor = chunk;
    pool->end = chunk + POINTER_POOL_CHUNK_ENTRIES;
}

u32 pointer_pool_count(const pointer_pool_t *pool) {
    return (pool->chunk_count << POINTER_POOL_CHUNK_SHIFT) - static_cast<u32>(pool->end - pool->cursor);
}

mem_ref_t *pointer_pool_chunk_end(const pointer_pool_t *pool, u32 chunk) {
    return chunk + 1 == pool->chunk_count ? pool->cursor : pool->chunks[chunk] + POINTER_POOL_CHUNK_ENTRIES;
}

void pointer_pool_copy(const pointer_pool_t *pool, mem_ref_t *entries) {
    for (u32 chunk = 0; chunk < pool->chunk_count; chunk++) {
        size_t count = static_cast<size_t>(pointer_pool_chunk_end(pool, chunk) - pool->chunks[chunk]);
        memcpy(entries, pool->chunks[chunk], count * sizeof(mem_ref_t));
        entries += count;
    }
}

void pointer_pool_get_range(const pointer_pool_t *pool, u32 index, mem_ref_t **first, mem_ref_t **end) {
    *first = *end = nullptr;
    if (index >= pointer_pool_count(pool))
        return;
    u32 chunk = index >> POINTER_POOL_CHUNK_SHIFT;
    *first = pool->chunks[chunk] + (index & POINTER_POOL_SLOT_MASK);
    *end = pointer_pool_chunk_end(pool, chunk);
}

} // namespace findwright
