// Bump allocators in the arena, for records of one lifetime that are referred to by 32-bit references. Both
// free only all that they hold at once.
//
// obstack_t stores items of one size, and can tell their number and list them:
//
//   chunks -> [ chunk 0 | chunk 1 | ... ]          a table on the plain heap
//                           |
//                           v  chunk_bytes: the largest multiple of item_size in 65,536
//                         [ item | item | free ... ]
//                                       ^ cursor   ^ end
//
// obstack_bytes_t stores records of any size, each at a multiple of 4; those above 256 bytes come singly from
// the arena.
//
// Owner: whoever holds the structure; one thread at a time.
#pragma once

#include "base/mem_ref.h"

namespace findwright {

inline constexpr u32 OBSTACK_CHUNK_SIZE = 65536;
inline constexpr u32 OBSTACK_SMALL_MAX = 256;

struct obstack_t {
    char **chunks;
    char *cursor;
    char *end;
    u32 chunk_count;
    u32 chunk_capacity;
    u32 item_size;   // bytes, a multiple of 4
    u32 chunk_bytes; // bytes of a chunk that hold items
};

// `item_size` is 1 to 65,536 bytes, and is rounded up to a multiple of 4.
void obstack_init(obstack_t *obstack, u32 item_size);
void obstack_kill(obstack_t *obstack);
void obstack_new_chunk(obstack_t *obstack);
// The number of items handed out.
size_t obstack_count(const obstack_t *obstack);
void obstack_swap(obstack_t *a, obstack_t *b);
// Writes the references of all items, in the order of their allocation, to a table of obstack_count entries.
void obstack_to_array(const obstack_t *obstack, mem_ref_t *items);

// Room for one item, of any content.
inline void *obstack_alloc(obstack_t *obstack) {
    if (obstack->cursor == obstack->end)
        obstack_new_chunk(obstack);
    char *item = obstack->cursor;
    obstack->cursor += obstack->item_size;
    mem_unpoison(item, obstack->item_size);
    return item;
}

struct obstack_bytes_t {
    mem_ref_t first; // chunks, each with a reference to the next in front
    mem_ref_t
        big; // blocks above OBSTACK_SMALL_MAX, each with the next one's reference and its own size in front
    char *cursor;
    char *end;
};

void obstack_bytes_init(obstack_bytes_t *obstack);
void obstack_bytes_kill(obstack_bytes_t *obstack);
void obstack_bytes_swap(obstack_bytes_t *a, obstack_bytes_t *b);
void obstack_bytes_new_chunk(obstack_bytes_t *obstack);
void *obstack_bytes_alloc_big(obstack_bytes_t *obstack, size_t size);

// `size` bytes (1 or more) of any content, at a multiple of 4.
inline void *obstack_bytes_alloc(obstack_bytes_t *obstack, size_t size) {
    if (size > OBSTACK_SMALL_MAX)
        return obstack_bytes_alloc_big(obstack, size);

    size = (size + 3) & ~static_cast<size_t>(3);
    if (size > static_cast<size_t>(obstack->end - obstack->cursor))
        obstack_bytes_new_chunk(obstack);
    char *result = obstack->cursor;
    obstack->cursor += size;
    mem_unpoison(result, size);
    return result;
}

} // namespace findwright
