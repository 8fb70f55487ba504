// What is asked for on behalf of rows in sight, and what has come of it. Main thread.
#include "db/db_extended_info_internal.h"
#include "db/db_index.h"
#include "os/os_folder.h"

namespace findwright {

// --- Asking ------------------------------------------------------------------------------------------------

// Whether a request is there already: then it stays.
static bool _db_info_request_again(db_extended_info_t *info, db_info_kind_t kind, u32 key) {
    db_info_request_t **request = ref_map_find(&info->requests[kind].by_key, key);
    if (request)
        (*request)->sweep = info->sweep;
    return request != nullptr;
}

static void _db_info_request_add(db_extended_info_t *info, db_info_kind_t kind, db_info_request_t *request) {
    request->sweep = info->sweep;
    *ref_map_make(&info->requests[kind].by_key, request->key) = request;
    db_info_list_append(&info->requests[kind].added, request);
}

static void _db_info_request_item(db_extended_info_t *info, db_info_kind_t kind, const db_item_t *item,
                                  bool is_folder) {
    if (_db_info_request_again(info, kind, mem_ref(item)))
        return;
    _db_info_request_add(info, kind, db_info_request_alloc_item(item, is_folder));
}

static void _db_info_request_extension(db_extended_info_t *info, db_info_kind_t kind,
                                       const db_extension_entry_t *entry, bool is_folder) {
    if (_db_info_request_again(info, kind, mem_ref(entry)))
        return;
    auto *request = db_info_request_alloc(mem_ref(entry), entry->text, entry->length);
    request->is_folder = is_folder;
    request->is_of_extension = true;
    _db_info_request_add(info, kind, request);
}

static bool _db_info_has_own_icon(const db_extended_info_t *info, const db_extension_entry_t *entry) {
    const db_info_loader_t *loader = info->loader;
    return loader->read_item_icon &&
           (entry == info->folder_entry ||
            (loader->is_icon_by_item && loader->is_icon_by_item(entry->text, entry->length)));
}

static void _db_info_request_icon(db_extended_info_t *info, const db_item_t *item, bool is_folder) {
    db_extension_entry_t *entry = db_extension_cache_get_of_item(info, item, is_folder, true);
    if (_db_info_has_own_icon(info, entry)) {
        const db_look_t *look = ref_map_find(&info->looks, mem_ref(item));
        if (!look || !look->has_icon)
            _db_info_request_item(info, DB_INFO_KIND_ICON, item, is_folder);
    } else if (info->loader->read_extension_icon && !is_folder && !entry->has_icon) {
        _db_info_request_extension(info, DB_INFO_KIND_ICON, entry, false);
    }
}

static void _db_info_request_type_name(db_extended_info_t *info, const db_item_t *item, bool is_folder) {
    if (is_folder ? !info->loader->read_folder_type_name : !info->loader->read_type_name)
        return;
    db_extension_entry_t *entry = db_extension_cache_get_of_item(info, item, is_folder, true);
    u32 batch;
    if (!db_extension_cache_find_type_name(info, entry, &batch))
        _db_info_request_extension(info, DB_INFO_KIND_TYPE_NAME, entry, is_folder);
}

void db_extended_info_request_begin(db_extended_info_t *info) {
    info->sweep++;
}

void db_extended_info_request(db_extended_info_t *info, const db_item_t *item, bool is_folder, u32 kinds) {
    if (kinds == 0 || db_get_index(item)->type == DB_INDEX_TYPE_FILE_LIST)
        return;
    if (kinds & db_info_bit(DB_INFO_KIND_FILE) && info->loader->read_file_info) {
        db_file_info_t file;
        u32 batch;
        if (!db_fileinfo_cache_find(info, mem_ref(item), &file, &batch))
            _db_info_request_item(info, DB_INFO_KIND_FILE, item, is_folder);
    }
    if (kinds & db_info_bit(DB_INFO_KIND_ICON))
        _db_info_request_icon(info, item, is_folder);
    if (kinds & db_info_bit(DB_INFO_KIND_TYPE_NAME))
        _db_info_request_type_name(info, item, is_folder);
    if (kinds & db_info_bit(DB_INFO_KIND_THUMBNAIL) && info->loader->read_thumbnail) {
        const db_look_t *look = ref_map_find(&info->looks, mem_ref(item));
        if (!look || !look->has_thumbnail)
            _db_info_request_item(info, DB_INFO_KIND_THUMBNAIL, item, is_folder);
    }
}

// The cache is there as long as its queues call.
static void _db_info_arrived(void *param) {
    const auto *info = static_cast<const db_extended_info_t *>(param);
    if (info->arrived_proc)
        event_post(info->arrived_proc, info->arrived_param);
}

void db_extended_info_request_end(db_extended_info_t *info) {
    for (u32 kind = 0; kind < DB_INFO_KINDS; kind++) {
        db_info_requests_t *requests = &info->requests[kind];
        if (!requests->queue && !requests->added.first)
            continue;
        if (!requests->queue)
            requests->queue =
                db_info_queue_create(static_cast<db_info_kind_t>(kind), info->loader, _db_info_arrived, info);
        db_info_list_t dropped = db_info_queue_renew(requests->queue, info->sweep, &requests->added);
        requests->added = {};
        for (db_info_request_t *request = dropped.first; request; request = request->next)
            ref_map_remove(&requests->by_key, request->key);
        db_info_list_free(info->loader, &dropped);
    }
}

// --- Forgetting --------------------------------------------------------------------------------------------

void db_info_requests_clear(db_extended_info_t *info) {
    for (db_info_requests_t &requests : info->requests) {
        if (requests.queue)
            db_info_queue_abandon(requests.queue);
        requests.queue = nullptr;
        ref_map_kill(&requests.by_key);
    }
    if (info->arrived_proc)
        event_remove(info->arrived_proc, info->arrived_param);
}

void db_info_requests_forget(db_extended_info_t *info, mem_ref_t item) {
    for (db_info_requests_t &requests : info->requests) {
        db_info_request_t **found = ref_map_find(&requests.by_key, item);
        if (!found)
            continue;
        db_info_request_t *request = *found;
        ref_map_remove(&requests.by_key, item);
        if (db_info_queue_remove(requests.queue, request))
            db_info_request_free(info->loader, request);
        else
            request->is_forgotten = true;
    }
}

// --- Taking ------------------------------------------------------------------------------------------------

bool db_info_take_file(db_extended_info_t *info, db_info_request_t *request, u32 batch) {
    db_file_info_t *file = &request->file;
    u32 known_attributes = request->is_folder ? OS_ATTRIBUTE_FOLDER : 0;
    if (request->is_folder)
        file->size = VALUE_UNKNOWN;
    file->attributes |= known_attributes;
    bool is_new = file->size != VALUE_UNKNOWN || file->date_modified != VALUE_UNKNOWN ||
                  file->date_created != VALUE_UNKNOWN || file->date_accessed != VALUE_UNKNOWN ||
                  file->attributes != known_attributes;
    return db_fileinfo_cache_keep(info, request->key, file, is_new ? batch : 0) && is_new;
}

static bool _db_info_take_icon(db_extended_info_t *info, db_info_request_t *request, u32 batch) {
    bool is_new = request->icon_index != db_default_icon_index;
    if (request->is_of_extension) {
        auto *entry = mem_ptr<db_extension_entry_t>(request->key);
        entry->has_icon = true;
        entry->icon_index = request->icon_index;
        entry->icon_batch = is_new ? batch : 0;
    } else {
        db_look_t *look = ref_map_make(&info->looks, request->key);
        look->has_icon = true;
        look->icon_index = request->icon_index;
        look->icon_batch = is_new ? batch : 0;
    }
    return is_new;
}

static bool _db_info_take_type_name(db_extended_info_t *info, db_info_request_t *request, u32 batch) {
    bool is_new = *request->type_name != 0;
    return db_extension_cache_keep_type_name(info, mem_ptr<db_extension_entry_t>(request->key),
                                             request->type_name, is_new ? batch : 0) &&
           is_new;
}

static bool _db_info_take_thumbnail(db_extended_info_t *info, db_info_request_t *request, u32 batch) {
    bool is_new = request->thumbnail != nullptr;
    db_look_t *look = ref_map_make(&info->looks, request->key);
    look->has_thumbnail = true;
    look->thumbnail = request->thumbnail;
    look->thumbnail_batch = is_new ? batch : 0;
    request->thumbnail = nullptr;
    return is_new;
}

bool db_extended_info_update(db_extended_info_t *info) {
    using take_t = bool(db_extended_info_t *, db_info_request_t *, u32);
    static constexpr take_t *TAKE[DB_INFO_KINDS] = {db_info_take_file, _db_info_take_icon,
                                                    _db_info_take_type_name, _db_info_take_thumbnail};
    bool changed = false;
    for (u32 kind = 0; kind < DB_INFO_KINDS; kind++) {
        db_info_requests_t *requests = &info->requests[kind];
        if (!requests->queue)
            continue;
        db_info_list_t done = db_info_queue_take_done(requests->queue);
        for (db_info_request_t *request = done.first; request; request = request->next) {
            if (request->is_forgotten)
                continue;
            ref_map_remove(&requests->by_key, request->key);
            changed |= TAKE[kind](info, request, info->batch + 1);
        }
        db_info_list_free(info->loader, &done);
    }
    info->batch += changed;
    return changed;
}

// --- What is known -----------------------------------------------------------------------------------------

// Gives a kind's bit to what the last update has changed.
static u32 _db_info_get_changed(const db_extended_info_t *info, u32 batch, db_info_kind_t kind) {
    return batch != 0 && batch == info->batch ? db_info_bit(kind) : 0;
}

static void _db_info_get_icon(const db_extended_info_t *info, const db_look_t *look,
                              const db_extension_entry_t *entry, db_known_info_t *out) {
    u32 batch = 0;
    if (look && look->has_icon) {
        out->icon_index = look->icon_index;
        batch = look->icon_batch;
    } else if (entry && entry->has_icon) {
        out->icon_index = entry->icon_index;
        batch = entry->icon_batch;
    }
    out->changed |= _db_info_get_changed(info, batch, DB_INFO_KIND_ICON);
}

void db_extended_info_get_known(db_extended_info_t *info, const db_item_t *item, bool is_folder, u32 kinds,
                                db_known_info_t *out) {
    *out = {};
    db_file_info_clear(&out->file);
    out->icon_index = db_default_icon_index;
    u32 batch;
    if (kinds & db_info_bit(DB_INFO_KIND_FILE) &&
        db_fileinfo_cache_find(info, mem_ref(item), &out->file, &batch))
        out->changed |= _db_info_get_changed(info, batch, DB_INFO_KIND_FILE);
    if (!(kinds & ~db_info_bit(DB_INFO_KIND_FILE)))
        return;
    const db_extension_entry_t *entry = db_extension_cache_get_of_item(info, item, is_folder, false);
    const db_look_t *look = ref_map_find(&info->looks, mem_ref(item));
    if (kinds & db_info_bit(DB_INFO_KIND_ICON))
        _db_info_get_icon(info, look, entry, out);
    if (kinds & db_info_bit(DB_INFO_KIND_TYPE_NAME) && entry) {
        out->type_name = db_extension_cache_find_type_name(info, entry, &batch);
        out->changed |= _db_info_get_changed(info, batch, DB_INFO_KIND_TYPE_NAME);
    }
    if (kinds & db_info_bit(DB_INFO_KIND_THUMBNAIL) && look) {
        out->thumbnail = look->thumbnail;
        out->changed |= _db_info_get_changed(info, look->thumbnail_batch, DB_INFO_KIND_THUMBNAIL);
    }
}

} // namespace findwright
