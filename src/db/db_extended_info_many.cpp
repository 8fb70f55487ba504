// Reading many items for a worker, which must be able to leave when its query goes: it only waits for threads
// that read, and has queues of its own for them.
#include "db/db_extended_info_internal.h"
#include "db/db_index.h"
#include "os/os_parallel.h"

namespace findwright {

static constexpr u32 READERS_MAX = 16;
static constexpr u32 FILES_PER_READER = 64; // a read takes some microseconds at best
static constexpr u32 READS_AHEAD = 64; // that a reader has before it; it is given more when half are done
static constexpr u32 CANCEL_WAIT = 10; // milliseconds

struct _db_info_readers_t {
    db_extended_info_t *info;
    os_event_t *arrived;
    db_info_queue_t *queues[READERS_MAX];
    u32 pending[READERS_MAX];
    u32 count;
    const db_info_item_t *next, *end;
};

static void _db_info_readers_arrived(void *param) {
    os_event_set(static_cast<os_event_t *>(param));
}

static bool _db_info_is_wanted(db_extended_info_t *info, const db_info_item_t *item) {
    db_file_info_t file;
    return !db_extended_info_find(info, item->item, &file);
}

static void _db_info_readers_fill(_db_info_readers_t *readers, u32 reader) {
    if (readers->pending[reader] > READS_AHEAD / 2)
        return;
    db_info_list_t added = {};
    for (; readers->next != readers->end && readers->pending[reader] < READS_AHEAD; readers->next++) {
        if (!_db_info_is_wanted(readers->info, readers->next))
            continue;
        db_info_list_append(&added,
                            db_info_request_alloc_item(readers->next->item, readers->next->is_folder));
        readers->pending[reader]++;
    }
    if (added.first)
        db_info_queue_renew(readers->queues[reader], 0, &added); // all are of one sweep
}

static void _db_info_readers_take(_db_info_readers_t *readers, u32 reader) {
    db_info_list_t done = db_info_queue_take_done(readers->queues[reader]);
    for (db_info_request_t *request = done.first; request; request = request->next) {
        db_info_take_file(readers->info, request, 0);
        readers->pending[reader]--;
    }
    db_info_list_free(readers->info->loader, &done);
}

// Whether anything is left to be done.
static bool _db_info_readers_step(_db_info_readers_t *readers) {
    u32 pending = 0;
    for (u32 i = 0; i < readers->count; i++) {
        _db_info_readers_take(readers, i);
        _db_info_readers_fill(readers, i);
        pending += readers->pending[i];
    }
    return pending != 0;
}

void db_extended_info_read_files(db_extended_info_t *info, const db_info_item_t *items, u32 count,
                                 const std::atomic<u32> *cancel) {
    if (!info->loader->read_file_info)
        return;
    _db_info_readers_t readers = {};
    readers.info = info;
    readers.next = items;
    readers.end = items + count;
    readers.arrived = os_event_create();
    readers.count = os_get_thread_count(count, FILES_PER_READER);
    if (readers.count > READERS_MAX)
        readers.count = READERS_MAX;
    for (u32 i = 0; i < readers.count; i++)
        readers.queues[i] =
            db_info_queue_create(DB_INFO_KIND_FILE, info->loader, _db_info_readers_arrived, readers.arrived);
    while (!*cancel && _db_info_readers_step(&readers)) {
        os_event_wait(readers.arrived, CANCEL_WAIT);
        os_event_reset(readers.arrived); // what comes behind it is taken by the next step all the same
    }
    for (u32 i = 0; i < readers.count; i++) {
        _db_info_readers_take(&readers, i);
        db_info_queue_abandon(readers.queues[i]);
    }
    os_event_destroy(readers.arrived);
}

} // namespace findwright
