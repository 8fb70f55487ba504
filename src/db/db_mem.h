// The allocator of a database's item records. Everything it hands out lies in the arena, at a multiple of 4.
//
//   below 256 bytes:   bump allocation from blocks of 64 KiB, each with a reference to the next in front
//                        block_first -> [ next | record | record | ... | free ]
//                                                                      ^ block_cursor ^ block_end
//                      A freed record goes on the list of its exact size (rounded up to a multiple of 4),
//                      with the list's link in its first 4 bytes; so does the rest of a block that is too
//                      small for a request. Blocks are given back all at once.
//   256 bytes and up:  from the arena one by one, on a doubly linked list.
//
// A record's size is not stored: who frees it tells the size that it asked for.
// Owner: the database; one thread at a time.
#pragma once

#include "base/mem_ref.h"

namespace findwright {

inline constexpr u32 DB_MEM_BLOCK_SIZE = 65536;
inline constexpr u32 DB_MEM_LARGE_MIN = 256;

struct db_mem_t {
    mem_ref_t large_first;
    mem_ref_t large_last;
    mem_ref_t block_first;
    mem_ref_t block_last;
    char *block_cursor;
    char *block_end;
    size_t small_used; // bytes handed out, rounded up to multiples of 4
    size_t large_used;
    mem_ref_t free_lists[DB_MEM_LARGE_MIN / 4 + 1]; // by size divided by 4
};

void db_mem_init(db_mem_t *mem);
// Frees everything.
void db_mem_kill(db_mem_t *mem);
// Frees all records below 256 bytes, or all others.
void db_mem_free_small(db_mem_t *mem);
void db_mem_free_large(db_mem_t *mem);

// Bytes handed out.
inline size_t db_mem_used(const db_mem_t *mem) {
    return mem->small_used + mem->large_used;
}

// The roads away from the common path: a record of 256 bytes and up, and one that needs a new block.
void *db_mem_alloc_large(db_mem_t *mem, size_t size);
void db_mem_free_large_record(db_mem_t *mem, void *record, size_t size);
void db_mem_new_block(db_mem_t *mem);

// A record of `size` bytes (1 or more) of any content.
inline void *db_mem_alloc(db_mem_t *mem, size_t size) {
    if (size >= DB_MEM_LARGE_MIN)
        return db_mem_alloc_large(mem, size);

    size = (size + 3) & ~static_cast<size_t>(3);
    mem->small_used += size;
    mem_ref_t *list = &mem->free_lists[size / 4];
    if (*list) {
        mem_ref_t *record = mem_ptr<mem_ref_t>(*list);
        mem_unpoison(record, size);
        *list = *record;
        return record;
    }

    if (size > static_cast<size_t>(mem->block_end - mem->block_cursor))
        db_mem_new_block(mem);
    char *record = mem->block_cursor;
    mem->block_cursor += size;
    mem_unpoison(record, size);
    return record;
}

// Takes a record back; `size` is what was asked for.
inline void db_mem_free(db_mem_t *mem, void *record, size_t size) {
    if (size >= DB_MEM_LARGE_MIN) {
        db_mem_free_large_record(mem, record, size);
        return;
    }

    size = (size + 3) & ~static_cast<size_t>(3);
    mem->small_used -= size;
    mem_ref_t *list = &mem->free_lists[size / 4];
    *static_cast<mem_ref_t *>(record) = *list;
    *list = mem_ref(record);
    mem_poison(record, size);
}

} // namespace findwright
