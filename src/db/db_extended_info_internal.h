// What the files of the extended information share: the caches, and the queues of what is to be read.
#pragma once

#include "base/ref_map.h"
#include "db/db_extended_info.h"

namespace findwright {

// --- The caches --------------------------------------------------------------------------------------------

// A search may read every item of the index, so an entry holds no more than what was read. Records of the
// arena lie at multiples of 4.
#pragma pack(push, 4)
struct db_fileinfo_entry_t {
    u64 size;
    u64 date_modified;
    u64 date_created;
    u64 date_accessed;
    u32 attributes;
    u32 batch; // the update that changed it last; 0: it was read at once
};

struct db_extension_entry_t {
    const char *type_name; // 0 until it is known
    u32 type_name_batch;
    u32 icon_index;
    u32 icon_batch;
    bool has_icon;
    u32 length;  // of the extension
    char text[]; // the folded extension, terminated
};
#pragma pack(pop)
static_assert(sizeof(db_fileinfo_entry_t) == 40);

// What only rows need that were once in sight.
struct db_look_t {
    const void *thumbnail; // the cache's own; 0 for none
    u32 icon_index;
    u32 icon_batch;
    u32 thumbnail_batch;
    bool has_icon, has_thumbnail; // it was read, whatever came
};

// --- What is to be read ------------------------------------------------------------------------------------

// Belongs to the queue, and while it is being read to the reading thread.
struct db_info_request_t {
    db_info_request_t *next, *prev;
    // For the main thread.
    u32 key;           // the item, or the extension's entry
    u32 sweep;         // when it was asked for last
    bool is_forgotten; // the item has gone: nobody wants what comes
    bool is_waiting;   // under the queue's lock: it is in the queue

    bool is_folder, is_top;
    bool is_of_extension;
    // What came.
    db_file_info_t file;
    u32 icon_index;
    char *type_name; // heap text
    const void *thumbnail;

    u32 length;
    char text[]; // the path, or the extension; terminated
};

struct db_info_list_t {
    db_info_request_t *first, *last;
};

inline void db_info_list_append(db_info_list_t *list, db_info_request_t *request) {
    request->next = nullptr;
    request->prev = list->last;
    (list->last ? list->last->next : list->first) = request;
    list->last = request;
}

// The queue of one kind and the thread that reads it (db_extended_info_reader.cpp). Two hold it, the cache
// and the thread; the last one frees it.
struct db_info_queue_t;

// Tells, on the reading thread and under the queue's lock, that there is something to be taken.
using db_info_arrived_t = void(void *param);

db_info_queue_t *db_info_queue_create(db_info_kind_t kind, const db_info_loader_t *loader,
                                      db_info_arrived_t *arrived, void *param);
// The cache lets go of it: nothing is told from now on, and what is being read is dropped when it comes.
void db_info_queue_abandon(db_info_queue_t *queue);
// Takes out what waits and is not of this sweep, and returns it; puts `added` behind what is left.
db_info_list_t db_info_queue_renew(db_info_queue_t *queue, u32 sweep, const db_info_list_t *added);
// Takes a request out. False when it does not wait any more: it is being read, or has been.
bool db_info_queue_remove(db_info_queue_t *queue, db_info_request_t *request);
// All that has been read since the last call, in order.
db_info_list_t db_info_queue_take_done(db_info_queue_t *queue);

db_info_request_t *db_info_request_alloc(u32 key, const char *text, u32 length);
db_info_request_t *db_info_request_alloc_item(const db_item_t *item, bool is_folder);
void db_info_request_free(const db_info_loader_t *loader, db_info_request_t *request);
void db_info_list_free(const db_info_loader_t *loader, db_info_list_t *list);

// Of one kind, what was asked for and has not been taken yet.
struct db_info_requests_t {
    db_info_queue_t *queue; // 0 until something is asked for
    ref_map_t<db_info_request_t *> by_key;
    db_info_list_t added; // between begin and end: what is new
};

// --- The whole ---------------------------------------------------------------------------------------------

struct db_extended_info_t {
    const db_info_loader_t *loader;
    event_proc_t *arrived_proc;
    void *arrived_param;

    std::mutex lock;                     // guards the caches of what is also read at once
    ref_map_t<mem_ref_t> fileinfo_cache; // by item: its db_fileinfo_entry_t
    db_mem_t fileinfo_mem;
    array_t extension_cache;            // db_extension_entry_t by extension
    db_mem_t extension_mem;             // these, and the type names
    db_extension_entry_t *folder_entry; // what all folders share; in no array

    // For the main thread.
    ref_map_t<db_look_t> looks; // by item
    db_info_requests_t requests[DB_INFO_KINDS];
    u32 sweep; // number of the last request_begin
    u32 batch; // number of the last update that changed anything
};

static_assert(sizeof(db_extended_info_t) < 2048); // every query has one

// The path by which the system is asked for an item.
void db_info_get_path(const db_item_t *item, utf8_buf_t *out);

// db_extended_info.cpp: false when nothing is known of the item; false when something is already, which
// stays.
bool db_fileinfo_cache_find(db_extended_info_t *info, mem_ref_t item, db_file_info_t *out, u32 *batch);
bool db_fileinfo_cache_keep(db_extended_info_t *info, mem_ref_t item, const db_file_info_t *file, u32 batch);

// db_extended_info_type.cpp
void db_extension_cache_init(db_extended_info_t *info);
void db_extension_cache_kill(db_extended_info_t *info);
// The entry of an extension, in whatever case; 0 when there is none, unless it is to be made.
db_extension_entry_t *db_extension_cache_get(db_extended_info_t *info, const char *extension, u32 length,
                                             bool make);
// The entry for an item, by its name's extension, or that of the folders.
db_extension_entry_t *db_extension_cache_get_of_item(db_extended_info_t *info, const db_item_t *item,
                                                     bool is_folder, bool make);
// The type name, and the update that brought it; 0 until it is known.
const char *db_extension_cache_find_type_name(db_extended_info_t *info, const db_extension_entry_t *entry,
                                              u32 *batch);
// False when it is known already: that stays.
bool db_extension_cache_keep_type_name(db_extended_info_t *info, db_extension_entry_t *entry,
                                       const char *type_name, u32 batch);

// db_extended_info_request.cpp: keeps what a request has brought; whether that is anything new.
bool db_info_take_file(db_extended_info_t *info, db_info_request_t *request, u32 batch);
// Forgets what was asked for.
void db_info_requests_clear(db_extended_info_t *info);
void db_info_requests_forget(db_extended_info_t *info, mem_ref_t item);

} // namespace findwright
