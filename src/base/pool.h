// A pool: an allocator that frees only all that it holds at once. For many small things of one lifetime.
//
//   first -> [ link | used ... ] -> [ link | used ... | free ]    chunks of 64 KiB on the plain heap
//                                                     ^ cursor, up to end
//   big_first -> [ link | one block ]                             for requests above 256 bytes
//
// Owner: whoever holds the structure; one thread at a time. What it hands out lives until pool_clear or
// pool_kill, and starts at a multiple of a pointer's size.
#pragma once

#include "base/mem_ref.h"

namespace findwright {

inline constexpr u32 POOL_CHUNK_SIZE = 65536;
inline constexpr u32 POOL_SMALL_MAX = 256; // larger requests get a block of their own

struct pool_link_t {
    pool_link_t *next;
};

struct pool_t {
    pool_link_t *first;
    pool_link_t *last;
    char *cursor;
    char *end;
    pool_link_t *big_first;
    pool_link_t *big_last;
};

void pool_init(pool_t *pool);
void pool_kill(pool_t *pool);
void pool_clear(pool_t *pool);

// Makes a chunk with room for `size` bytes, at least, and points cursor and end at it.
void pool_new_chunk(pool_t *pool, size_t size);
// A block of its own for one request.
void *pool_alloc_big(pool_t *pool, size_t size);

// `size` bytes of any content; never 0.
inline void *pool_alloc(pool_t *pool, size_t size) {
    if (size > POOL_SMALL_MAX)
        return pool_alloc_big(pool, size);

    size = (size + sizeof(void *) - 1) & ~(sizeof(void *) - 1);
    if (size >= static_cast<size_t>(pool->end - pool->cursor))
        pool_new_chunk(pool, size);
    char *result = pool->cursor;
    pool->cursor += size;
    mem_unpoison(result, size);
    return result;
}

} // namespace findwright
