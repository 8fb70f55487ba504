#include "base/obstack.h"

#include "base/mem.h"

#include <cstring>
#include <utility>

namespace findwright {

void obstack_init(obstack_t *obstack, u32 item_size) {
    *obstack = {};
    obstack->item_size = (item_size + 3) & ~3u;
    obstack->chunk_bytes = OBSTACK_CHUNK_SIZE / obstack->item_size * obstack->item_size;
}

void obstack_kill(obstack_t *obstack) {
    for (u32 i = 0; i < obstack->chunk_count; i++)
        mem_arena_free(obstack->chunks[i], OBSTACK_CHUNK_SIZE);
    if (obstack->chunks)
        mem_free(obstack->chunks);
    obstack_init(obstack, obstack->item_size);
}

void obstack_new_chunk(obstack_t *obstack) {
    if (obstack->chunk_count == obstack->chunk_capacity) {
        u32 capacity = obstack->chunk_capacity ? obstack->chunk_capacity * 2 : 1;
        char **chunks = static_cast<char **>(mem_alloc(capacity * sizeof(char *)));
        if (obstack->chunks) {
            memcpy(chunks, obstack->chunks, obstack->chunk_count * sizeof(char *));
            mem_free(obstack->chunks);
        }
        obstack->chunks = chunks;
        obstack->chunk_capacity = capacity;
    }
    char *chunk = static_cast<char *>(mem_arena_alloc(OBSTACK_CHUNK_SIZE));
    mem_poison(chunk, OBSTACK_CHUNK_SIZE);
    obstack->chunks[obstack->chunk_count++] = chunk;
    obstack->cursor = chunk;
    obstack->end = chunk + obstack->chunk_bytes;
}

// The items in one chunk: all but the last chunk are full.
static u32 _obstack_chunk_items(const obstack_t *obstack, u32 chunk) {
    u32 bytes = obstack->chunk_bytes;
    if (chunk + 1 == obstack->chunk_count)
        bytes = static_cast<u32>(obstack->cursor - obstack->chunks[chunk]);
    return bytes / obstack->item_size;
}

size_t obstack_count(const obstack_t *obstack) {
    if (!obstack->chunk_count)
        return 0;
    u32 last = obstack->chunk_count - 1;
    return static_cast<size_t>(last) * (obstack->chunk_bytes / obstack->item_size) +
           _obstack_chunk_items(obstack, last);
}

void obstack_swap(obstack_t *a, obstack_t *b) {
    std::swap(*a, *b);
}

void obstack_to_array(const obstack_t *obstack, mem_ref_t *items) {
    for (u32 chunk = 0; chunk < obstack->chunk_count; chunk++) {
        const char *item = obstack->chunks[chunk];
        for (u32 i = _obstack_chunk_items(obstack, chunk); i; i--, item += obstack->item_size)
            *items++ = mem_ref(item);
    }
}

namespace {

struct obstack_chunk_t {
    mem_ref_t next;
};

struct obstack_big_t {
    mem_ref_t next;
    u32 words; // the whole block's size divided by 4, so that no block of the arena is too large for it
};

} // namespace

void obstack_bytes_init(obstack_bytes_t *obstack) {
    *obstack = {};
}

void obstack_bytes_kill(obstack_bytes_t *obstack) {
    for (mem_ref_t ref = obstack->first; ref;) {
        obstack_chunk_t *chunk = mem_ptr<obstack_chunk_t>(ref);
        ref = chunk->next;
        mem_arena_free(chunk, OBSTACK_CHUNK_SIZE);
    }
    for (mem_ref_t ref = obstack->big; ref;) {
        obstack_big_t *big = mem_ptr<obstack_big_t>(ref);
        ref = big->next;
        mem_arena_free(big, static_cast<size_t>(big->words) * 4);
    }
    obstack_bytes_init(obstack);
}

void obstack_bytes_swap(obstack_bytes_t *a, obstack_bytes_t *b) {
    std::swap(*a, *b);
}

void obstack_bytes_new_chunk(obstack_bytes_t *obstack) {
    obstack_chunk_t *chunk = static_cast<obstack_chunk_t *>(mem_arena_alloc(OBSTACK_CHUNK_SIZE));
    chunk->next = obstack->first;
    obstack->first = mem_ref(chunk);
    obstack->cursor = reinterpret_cast<char *>(chunk + 1);
    obstack->end = reinterpret_cast<char *>(chunk) + OBSTACK_CHUNK_SIZE;
    mem_poison(obstack->cursor, static_cast<size_t>(obstack->end - obstack->cursor));
}

void *obstack_bytes_alloc_big(obstack_bytes_t *obstack, size_t size) {
    size = (size + sizeof(obstack_big_t) + 3) & ~static_cast<size_t>(3);
    obstack_big_t *big = static_cast<obstack_big_t *>(mem_arena_alloc(size));
    big->next = obstack->big;
    big->words = static_cast<u32>(size / 4);
    obstack->big = mem_ref(big);
    return big + 1;
}

} // namespace findwright
