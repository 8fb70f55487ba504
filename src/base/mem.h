// The guarded heap. Every block that is not in the arena (mem_ref.h) comes from here.
//
// Owner: the caller of mem_alloc owns the block and gives it to mem_free. Any thread may call.
// Invariants: a block is on the live list from its allocation to its free; its guards hold the payload's
// address. An allocation never fails for its caller: when the heap is out, the process ends.
//
// Debug builds keep 64 guard words in front of and behind each payload, with the caller's file and line, and
// fill freed payloads with 0xCC. Release builds (NDEBUG) keep the counts and one guard word on each side, but
// no list. A payload starts at a multiple of 16 wherever the system's heap gives such blocks, as it does in
// 64 bits.
#pragma once

#include "base/types.h"

namespace findwright {

void *mem_alloc_debug(const char *filename, int line, size_t size);
void mem_free_debug(const char *filename, int line, void *payload);
// As mem_alloc_debug, but returns 0 when the heap refuses: for lengths that come out of a file.
void *mem_try_alloc_debug(const char *filename, int line, size_t size);

#define mem_alloc(size) ::findwright::mem_alloc_debug(__FILE__, __LINE__, (size))
#define mem_try_alloc(size) ::findwright::mem_try_alloc_debug(__FILE__, __LINE__, (size))
#define mem_free(payload) ::findwright::mem_free_debug(__FILE__, __LINE__, (payload))

// The number of live blocks, and the sum of the sizes asked for, in bytes.
size_t mem_live_count();
size_t mem_live_size();

// Logs the counts, and in a debug build every block that is still alive, at the very end of the process. It
// only reports: a leak ends no process that is about to end anyway.
void mem_report();

} // namespace findwright
