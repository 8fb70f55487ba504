#include "base/pool.h"

#include "base/mem.h"

namespace findwright {

void pool_init(pool_t *pool) {
    *pool = {};
}

static void _pool_free_list(pool_link_t *block) {
    while (block) {
        pool_link_t *next = block->next;
        mem_free(block);
        block = next;
    }
}

void pool_kill(pool_t *pool) {
    // Only the last chunk has a part that was never handed out; freeing it touches all of it.
    mem_unpoison(pool->cursor, static_cast<size_t>(pool->end - pool->cursor));
    _pool_free_list(pool->first);
    _pool_free_list(pool->big_first);
    pool_init(pool);
}

void pool_clear(pool_t *pool) {
    pool_kill(pool);
}

static void _pool_append(pool_link_t **first, pool_link_t **last, pool_link_t *block) {
    block->next = nullptr;
    (*last ? (*last)->next : *first) = block;
    *last = block;
}

void pool_new_chunk(pool_t *pool, size_t size) {
    size_t bytes = size + sizeof(pool_link_t);
    if (bytes < POOL_CHUNK_SIZE)
        bytes = POOL_CHUNK_SIZE;
    pool_link_t *chunk = static_cast<pool_link_t *>(mem_alloc(bytes));
    _pool_append(&pool->first, &pool->last, chunk);

    mem_unpoison(pool->cursor, static_cast<size_t>(pool->end - pool->cursor));
    pool->cursor = reinterpret_cast<char *>(chunk + 1);
    pool->end = reinterpret_cast<char *>(chunk) + bytes;
    mem_poison(pool->cursor, static_cast<size_t>(pool->end - pool->cursor));
}

void *pool_alloc_big(pool_t *pool, size_t size) {
    pool_link_t *block = static_cast<pool_link_t *>(mem_alloc(sizeof(pool_link_t) + size));
    _pool_append(&pool->big_first, &pool->big_last, block);
    return block + 1;
}

} // namespace findwright
