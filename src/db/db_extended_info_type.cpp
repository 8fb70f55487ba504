// What belongs to extensions, and to folders as a whole: type names, icons.
#include "base/utf8.h"
#include "base/utf8_match.h"
#include "db/db_extended_info_internal.h"

namespace findwright {

struct _db_extension_key_t {
    const char *text;
    u32 length;
};

static int _db_extension_compare(u32 value, const void *key) {
    const auto *entry = mem_ptr<const db_extension_entry_t>(value);
    const auto *wanted = static_cast<const _db_extension_key_t *>(key);
    return utf8_compare_fold(entry->text, entry->length, wanted->text, wanted->length);
}

static db_extension_entry_t *_db_extension_alloc(db_extended_info_t *info, const char *text, u32 length) {
    auto *entry = static_cast<db_extension_entry_t *>(
        db_mem_alloc(&info->extension_mem, sizeof(db_extension_entry_t) + length + 1));
    *entry = {};
    entry->length = length;
    std::memcpy(entry->text, text, length);
    entry->text[length] = 0;
    return entry;
}

void db_extension_cache_init(db_extended_info_t *info) {
    array_init(&info->extension_cache);
    db_mem_init(&info->extension_mem);
    info->folder_entry = _db_extension_alloc(info, "", 0);
}

void db_extension_cache_kill(db_extended_info_t *info) {
    array_kill(&info->extension_cache);
    db_mem_kill(&info->extension_mem);
}

// The entry holds the folded text: what the system says must not depend on which of the extensions that share
// an entry came first.
static db_extension_entry_t *_db_extension_make(db_extended_info_t *info, const _db_extension_key_t *key) {
    utf8_buf_t folded;
    utf8_buf_init(&folded);
    utf8_fold_pattern(UTF8_MODE_FOLD, &folded, key->text, key->length);
    db_extension_entry_t *entry = _db_extension_alloc(info, folded.data, static_cast<u32>(folded.length));
    utf8_buf_kill(&folded);
    array_insert(&info->extension_cache, _db_extension_compare, key, mem_ref(entry));
    return entry;
}

db_extension_entry_t *db_extension_cache_get(db_extended_info_t *info, const char *extension, u32 length,
                                             bool make) {
    _db_extension_key_t key = {extension, length};
    std::lock_guard lock(info->lock);
    if (u32 found = array_find(&info->extension_cache, _db_extension_compare, &key))
        return mem_ptr<db_extension_entry_t>(found);
    return make ? _db_extension_make(info, &key) : nullptr;
}

db_extension_entry_t *db_extension_cache_get_of_item(db_extended_info_t *info, const db_item_t *item,
                                                     bool is_folder, bool make) {
    if (is_folder)
        return info->folder_entry;
    u32 length, extension_length;
    const char *name = db_item_get_name(item, &length);
    const char *extension = db_name_get_extension(name, length, &extension_length);
    return db_extension_cache_get(info, extension, extension_length, make);
}

const char *db_extension_cache_find_type_name(db_extended_info_t *info, const db_extension_entry_t *entry,
                                              u32 *batch) {
    std::lock_guard lock(info->lock);
    *batch = entry->type_name_batch;
    return entry->type_name;
}

bool db_extension_cache_keep_type_name(db_extended_info_t *info, db_extension_entry_t *entry,
                                       const char *type_name, u32 batch) {
    std::lock_guard lock(info->lock);
    if (entry->type_name)
        return false;
    size_t size = std::strlen(type_name) + 1;
    char *text = static_cast<char *>(db_mem_alloc(&info->extension_mem, size));
    std::memcpy(text, type_name, size);
    entry->type_name = text;
    entry->type_name_batch = batch;
    return true;
}

static const char *_db_extension_get_type_name(db_extended_info_t *info, db_extension_entry_t *entry) {
    u32 batch;
    if (const char *known = db_extension_cache_find_type_name(info, entry, &batch))
        return known;
    utf8_buf_t type_name;
    utf8_buf_init(&type_name);
    const db_info_loader_t *loader = info->loader;
    if (entry == info->folder_entry && loader->read_folder_type_name)
        loader->read_folder_type_name(&type_name);
    if (entry != info->folder_entry && loader->read_type_name)
        loader->read_type_name(entry->text, entry->length, &type_name);
    db_extension_cache_keep_type_name(info, entry, type_name.data, 0); // unless another thread was faster
    utf8_buf_kill(&type_name);
    return db_extension_cache_find_type_name(info, entry, &batch);
}

const char *db_extended_info_get_type_name(db_extended_info_t *info, const char *extension, u32 length) {
    return _db_extension_get_type_name(info, db_extension_cache_get(info, extension, length, true));
}

const char *db_extended_info_get_folder_type_name(db_extended_info_t *info) {
    return _db_extension_get_type_name(info, info->folder_entry);
}

} // namespace findwright
