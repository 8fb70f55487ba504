#include "db/db_mem.h"

namespace findwright {
namespace {

struct db_mem_block_t {
    mem_ref_t next;
};

// In front of each record of 256 bytes and up.
struct db_mem_large_t {
    mem_ref_t next;
    mem_ref_t prev;
    u32 words; // the size of the whole block divided by 4, so that all can be freed without their owners
};

size_t _db_mem_large_size(size_t size) {
    return (size + sizeof(db_mem_large_t) + 3) & ~static_cast<size_t>(3);
}

} // namespace

void db_mem_init(db_mem_t *mem) {
    *mem = {};
}

void db_mem_kill(db_mem_t *mem) {
    db_mem_free_large(mem);
    db_mem_free_small(mem);
}

void db_mem_free_small(db_mem_t *mem) {
    for (mem_ref_t ref = mem->block_first; ref;) {
        db_mem_block_t *block = mem_ptr<db_mem_block_t>(ref);
        ref = block->next;
        mem_arena_free(block, DB_MEM_BLOCK_SIZE);
    }
    mem->block_first = mem->block_last = 0;
    mem->block_cursor = mem->block_end = nullptr;
    mem->small_used = 0;
    for (mem_ref_t &list : mem->free_lists)
        list = 0;
}

void db_mem_free_large(db_mem_t *mem) {
    for (mem_ref_t ref = mem->large_first; ref;) {
        db_mem_large_t *large = mem_ptr<db_mem_large_t>(ref);
        ref = large->next;
        mem_arena_free(large, static_cast<size_t>(large->words) * 4);
    }
    mem->large_first = mem->large_last = 0;
    mem->large_used = 0;
}

void db_mem_new_block(db_mem_t *mem) {
    // What is left of the block is a free record of its own size.
    size_t rest = static_cast<size_t>(mem->block_end - mem->block_cursor);
    if (rest) {
        mem_ref_t *record = reinterpret_cast<mem_ref_t *>(mem->block_cursor);
        mem_unpoison(record, rest);
        *record = mem->free_lists[rest / 4];
        mem->free_lists[rest / 4] = mem_ref(record);
        mem_poison(record, rest);
    }

    db_mem_block_t *block = static_cast<db_mem_block_t *>(mem_arena_alloc(DB_MEM_BLOCK_SIZE));
    block->next = 0;
    if (mem->block_last)
        mem_ptr<db_mem_block_t>(mem->block_last)->next = mem_ref(block);
    else
        mem->block_first = mem_ref(block);
    mem->block_last = mem_ref(block);
    mem->block_cursor = reinterpret_cast<char *>(block + 1);
    mem->block_end = reinterpret_cast<char *>(block) + DB_MEM_BLOCK_SIZE;
    mem_poison(mem->block_cursor, static_cast<size_t>(mem->block_end - mem->block_cursor));
}

void *db_mem_alloc_large(db_mem_t *mem, size_t size) {
    size_t bytes = _db_mem_large_size(size);
    db_mem_large_t *large = static_cast<db_mem_large_t *>(mem_arena_alloc(bytes));
    large->words = static_cast<u32>(bytes / 4);
    large->next = 0;
    large->prev = mem->large_last;
    if (mem->large_last)
        mem_ptr<db_mem_large_t>(mem->large_last)->next = mem_ref(large);
    else
        mem->large_first = mem_ref(large);
    mem->large_last = mem_ref(large);
    mem->large_used += bytes - sizeof(db_mem_large_t);
    return large + 1;
}

void db_mem_free_large_record(db_mem_t *mem, void *record, size_t size) {
    db_mem_large_t *large = static_cast<db_mem_large_t *>(record) - 1;
    if (large->prev)
        mem_ptr<db_mem_large_t>(large->prev)->next = large->next;
    else
        mem->large_first = large->next;
    if (large->next)
        mem_ptr<db_mem_large_t>(large->next)->prev = large->prev;
    else
        mem->large_last = large->prev;

    size_t bytes = _db_mem_large_size(size);
    mem->large_used -= bytes - sizeof(db_mem_large_t);
    mem_arena_free(large, bytes);
}

} // namespace findwright
