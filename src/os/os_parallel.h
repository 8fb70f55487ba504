// Runs one piece of work in parts on several threads of the pool, and waits for all.
#pragma once

#include "base/types.h"

namespace findwright {

using os_parallel_proc_t = void(void *param, u32 part, u32 parts);

// Calls proc(param, i, parts) for every i below `parts`: part 0 on the calling thread, the others on pool
// threads. Returns when all have returned.
void os_parallel(u32 parts, os_parallel_proc_t *proc, void *param);

// The number of threads for `count` pieces of work of which one thread should have at least `per_thread`:
// limited by max_threads, unless that is 0, and by the processors; at least 1.
u32 os_get_thread_count(u64 count, u64 per_thread);

} // namespace findwright
