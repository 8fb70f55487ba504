#include "os/os_parallel.h"

#include "base/mem.h"
#include "os/os.h"

namespace findwright {

struct _os_part_t {
    os_parallel_proc_t *proc;
    void *param;
    u32 part;
    u32 parts;
    os_thread_t *thread;
};

static void _os_part_proc(void *param) {
    _os_part_t *part = static_cast<_os_part_t *>(param);
    part->proc(part->param, part->part, part->parts);
}

void os_parallel(u32 parts, os_parallel_proc_t *proc, void *param) {
    if (parts <= 1) {
        proc(param, 0, 1);
        return;
    }
    _os_part_t *list = static_cast<_os_part_t *>(mem_alloc(parts * sizeof *list));
    for (u32 i = 1; i < parts; i++) {
        list[i] = {proc, param, i, parts, nullptr};
        list[i].thread = os_thread_create(_os_part_proc, &list[i]);
    }
    proc(param, 0, parts);
    for (u32 i = 1; i < parts; i++)
        os_thread_release(list[i].thread, OS_INFINITE);
    mem_free(list);
}

u32 os_get_thread_count(u64 count, u64 per_thread) {
    u64 threads = (count + per_thread - 1) / per_thread;
    if (max_threads != 0 && threads > max_threads)
        threads = max_threads;
    if (threads > os_get_processor_count())
        threads = os_get_processor_count();
    return threads < 1 ? 1 : static_cast<u32>(threads);
}

} // namespace findwright
