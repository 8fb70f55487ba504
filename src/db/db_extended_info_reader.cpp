// The reading threads. A thread touches its queue and nothing else of the program: no record, no cache, no
// query. So it may hang in a read for as long as the file system likes, and its query may go meanwhile.
#include "base/utf8.h"
#include "db/db_extended_info_internal.h"
#include "os/os.h"

#include <new>

namespace findwright {

struct db_info_queue_t {
    db_info_kind_t kind;
    const db_info_loader_t *loader;
    db_info_arrived_t *arrived;
    void *arrived_param;
    std::atomic<u32> holders;
    std::mutex lock; // guards what follows; not held while something is read
    db_info_list_t waiting;
    db_info_list_t done;
    bool is_running;   // there is a thread
    bool is_abandoned; // there is no cache any more
};

// --- Life --------------------------------------------------------------------------------------------------

static db_info_request_t *_db_info_list_unlink(db_info_list_t *list, db_info_request_t *request) {
    (request->prev ? request->prev->next : list->first) = request->next;
    (request->next ? request->next->prev : list->last) = request->prev;
    return request;
}

void db_info_get_path(const db_item_t *item, utf8_buf_t *out) {
    db_item_get_full_path_name(out, item);
    if (out->length == 0) // the root of POSIX, whose name is what stands in front of its separator
        utf8_buf_cat_byte(out, '\\');
}

db_info_request_t *db_info_request_alloc(u32 key, const char *text, u32 length) {
    auto *request = static_cast<db_info_request_t *>(mem_alloc(sizeof(db_info_request_t) + length + 1));
    *request = {};
    request->key = key;
    db_file_info_clear(&request->file);
    request->icon_index = db_default_icon_index;
    request->length = length;
    std::memcpy(request->text, text, length);
    request->text[length] = 0;
    return request;
}

db_info_request_t *db_info_request_alloc_item(const db_item_t *item, bool is_folder) {
    utf8_buf_t path;
    utf8_buf_init(&path);
    db_info_get_path(item, &path);
    auto *request = db_info_request_alloc(mem_ref(item), path.data, static_cast<u32>(path.length));
    request->is_folder = is_folder;
    request->is_top = db_item_is_top(item);
    utf8_buf_kill(&path);
    return request;
}

void db_info_request_free(const db_info_loader_t *loader, db_info_request_t *request) {
    if (request->type_name)
        mem_free(request->type_name);
    if (request->thumbnail)
        loader->free_thumbnail(request->thumbnail);
    mem_free(request);
}

void db_info_list_free(const db_info_loader_t *loader, db_info_list_t *list) {
    while (list->first)
        db_info_request_free(loader, _db_info_list_unlink(list, list->first));
}

db_info_queue_t *db_info_queue_create(db_info_kind_t kind, const db_info_loader_t *loader,
                                      db_info_arrived_t *arrived, void *param) {
    auto *queue = new (mem_alloc(sizeof(db_info_queue_t))) db_info_queue_t();
    queue->kind = kind;
    queue->loader = loader;
    queue->arrived = arrived;
    queue->arrived_param = param;
    queue->holders = 1;
    return queue;
}

static void _db_info_queue_release(db_info_queue_t *queue) {
    if (--queue->holders != 0)
        return;
    queue->~db_info_queue_t();
    mem_free(queue);
}

void db_info_queue_abandon(db_info_queue_t *queue) {
    db_info_list_t waiting, done;
    {
        std::lock_guard lock(queue->lock);
        queue->is_abandoned = true;
        waiting = queue->waiting;
        done = queue->done;
        queue->waiting = queue->done = {};
    }
    db_info_list_free(queue->loader, &waiting);
    db_info_list_free(queue->loader, &done);
    _db_info_queue_release(queue);
}

// --- The thread --------------------------------------------------------------------------------------------

static void _db_info_read_type_name(const db_info_loader_t *loader, db_info_request_t *request) {
    utf8_buf_t type_name;
    utf8_buf_init(&type_name);
    if (request->is_folder)
        loader->read_folder_type_name(&type_name);
    else
        loader->read_type_name(request->text, request->length, &type_name);
    request->type_name = utf8_alloc_copy(type_name.data);
    utf8_buf_kill(&type_name);
}

static void _db_info_read(const db_info_loader_t *loader, db_info_kind_t kind, db_info_request_t *request) {
    if (!request->is_of_extension && !os_path_is_own(request->text, request->length))
        return; // from a volume of elsewhere
    switch (kind) {
    case DB_INFO_KIND_FILE:
        if (!loader->read_file_info(request->text, request->is_top, &request->file))
            db_file_info_clear(&request->file);
        break;
    case DB_INFO_KIND_ICON:
        if (request->is_of_extension
                ? !loader->read_extension_icon(request->text, request->length, &request->icon_index)
                : !loader->read_item_icon(request->text, request->is_folder, &request->icon_index))
            request->icon_index = db_default_icon_index;
        break;
    case DB_INFO_KIND_TYPE_NAME: _db_info_read_type_name(loader, request); break;
    default: request->thumbnail = loader->read_thumbnail(request->text);
    }
}

// The next request, now the thread's; 0 when it has nothing more to do.
static db_info_request_t *_db_info_queue_next(db_info_queue_t *queue) {
    std::lock_guard lock(queue->lock);
    db_info_request_t *request = queue->waiting.first;
    if (!request) {
        queue->is_running = false;
        return nullptr;
    }
    request->is_waiting = false;
    return _db_info_list_unlink(&queue->waiting, request);
}

// False: nobody takes it any more. Who takes the list takes all of it, so that it is told once of all that
// come before it does.
static bool _db_info_queue_add_done(db_info_queue_t *queue, db_info_request_t *request) {
    std::lock_guard lock(queue->lock);
    if (queue->is_abandoned)
        return false;
    bool was_empty = !queue->done.first;
    db_info_list_append(&queue->done, request);
    if (was_empty)
        queue->arrived(queue->arrived_param);
    return true;
}

static void _db_info_queue_proc(void *param) {
    auto *queue = static_cast<db_info_queue_t *>(param);
    while (db_info_request_t *request = _db_info_queue_next(queue)) {
        _db_info_read(queue->loader, queue->kind, request);
        if (!_db_info_queue_add_done(queue, request))
            db_info_request_free(queue->loader, request);
    }
    _db_info_queue_release(queue);
}

// --- The cache's side -------------------------------------------------------------------------------------

db_info_list_t db_info_queue_renew(db_info_queue_t *queue, u32 sweep, const db_info_list_t *added) {
    db_info_list_t dropped = {};
    bool starts;
    {
        std::lock_guard lock(queue->lock);
        for (db_info_request_t *request = queue->waiting.first; request;) {
            db_info_request_t *next = request->next;
            if (request->sweep != sweep)
                db_info_list_append(&dropped, _db_info_list_unlink(&queue->waiting, request));
            request = next;
        }
        for (db_info_request_t *request = added->first; request;) {
            db_info_request_t *next = request->next;
            request->is_waiting = true;
            db_info_list_append(&queue->waiting, request);
            request = next;
        }
        starts = queue->waiting.first && !queue->is_running;
        if (starts)
            queue->is_running = true;
    }
    if (starts) {
        queue->holders++;
        os_thread_detach(os_thread_create(_db_info_queue_proc, queue));
    }
    return dropped;
}

bool db_info_queue_remove(db_info_queue_t *queue, db_info_request_t *request) {
    std::lock_guard lock(queue->lock);
    if (!request->is_waiting)
        return false;
    _db_info_list_unlink(&queue->waiting, request);
    return true;
}

db_info_list_t db_info_queue_take_done(db_info_queue_t *queue) {
    std::lock_guard lock(queue->lock);
    db_info_list_t done = queue->done;
    queue->done = {};
    return done;
}

} // namespace findwright
