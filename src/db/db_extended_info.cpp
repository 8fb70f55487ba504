#include "db/db_extended_info.h"

#include "base/mem.h"
#include "base/utf8.h"
#include "base/utf8_match.h"
#include "db/db_index.h"
#include "os/os_folder.h"
#include "os/os_shell.h"

#include <new>

namespace findwright {

// A search may read every item of the index, so an entry holds no more than what was read. Records of the
// arena lie at multiples of 4.
#pragma pack(push, 4)
struct db_fileinfo_entry_t {
    u64 size;
    u64 date_modified;
    u64 date_created;
    u64 date_accessed;
    u32 attributes;
    mem_ref_t item;
};
#pragma pack(pop)
static_assert(sizeof(db_fileinfo_entry_t) == 40);

struct db_extension_entry_t {
    u32 length;  // of the extension
    char text[]; // the folded extension, behind it the type name with its terminator
};

struct db_extended_info_t {
    std::mutex lock;         // guards all below
    array_t fileinfo_cache;  // db_fileinfo_entry_t by item
    array_t extension_cache; // db_extension_entry_t by extension
    db_mem_t fileinfo_mem;   // the entries
    db_mem_t extension_mem;
    char *folder_type_name; // 0 until it was asked for
};

static_assert(sizeof(db_extended_info_t) < 2048); // every query has one

db_extended_info_t *db_extended_info_create(db_t *) {
    db_extended_info_t *info = new (mem_alloc(sizeof(db_extended_info_t))) db_extended_info_t();
    array_init(&info->fileinfo_cache);
    array_init(&info->extension_cache);
    db_mem_init(&info->fileinfo_mem);
    db_mem_init(&info->extension_mem);
    return info;
}

void db_extended_info_destroy(db_extended_info_t *info) {
    array_kill(&info->fileinfo_cache);
    array_kill(&info->extension_cache);
    db_mem_kill(&info->fileinfo_mem);
    db_mem_kill(&info->extension_mem);
    if (info->folder_type_name)
        mem_free(info->folder_type_name);
    info->~db_extended_info_t();
    mem_free(info);
}

void db_extended_info_clear(db_extended_info_t *info) {
    std::lock_guard lock(info->lock);
    array_kill(&info->fileinfo_cache);
    array_init(&info->fileinfo_cache);
    db_mem_kill(&info->fileinfo_mem);
    db_mem_init(&info->fileinfo_mem);
}

// --- Items -------------------------------------------------------------------------------------------------

static int _db_fileinfo_compare(u32 value, const void *key) {
    mem_ref_t item = mem_ptr<db_fileinfo_entry_t>(value)->item, wanted = *static_cast<const mem_ref_t *>(key);
    return item < wanted ? -1 : item > wanted;
}

static void _db_fileinfo_copy(const db_fileinfo_entry_t *entry, db_file_info_t *out) {
    *out = {entry->size, entry->date_modified, entry->date_created, entry->date_accessed, entry->attributes};
}

// Asks the file system. The top of a source was named by the user and may be a link to what is meant; below
// it a link is the item, as it is for a scan.
static void _db_fileinfo_read(const db_item_t *item, db_file_info_t *out) {
    utf8_buf_t path;
    utf8_buf_init(&path);
    db_item_get_full_path_name(&path, item);
    if (path.length == 0) // the root of POSIX, whose name is what stands in front of its separator
        utf8_buf_cat_byte(&path, '\\');
    db_file_info_clear(out);
    os_folder_entry_t entry;
    if (os_path_is_own(path.data, static_cast<u32>(path.length)) &&
        (db_item_is_top(item) ? os_folder_get_entry(path.data, &entry)
                              : os_folder_get_link_entry(path.data, &entry)))
        *out = {entry.is_folder ? VALUE_UNKNOWN : entry.size, entry.date_modified, entry.date_created,
                entry.date_accessed, entry.attributes};
    utf8_buf_kill(&path);
}

static bool _db_fileinfo_find(db_extended_info_t *info, mem_ref_t item, db_file_info_t *out) {
    std::lock_guard lock(info->lock);
    u32 found = array_find(&info->fileinfo_cache, _db_fileinfo_compare, &item);
    if (found)
        _db_fileinfo_copy(mem_ptr<db_fileinfo_entry_t>(found), out);
    return found;
}

// Keeps what was read, unless another thread was faster: then what that one read.
static void _db_fileinfo_keep(db_extended_info_t *info, mem_ref_t item, db_file_info_t *out) {
    std::lock_guard lock(info->lock);
    u32 found = array_find(&info->fileinfo_cache, _db_fileinfo_compare, &item);
    if (found) {
        _db_fileinfo_copy(mem_ptr<db_fileinfo_entry_t>(found), out);
        return;
    }
    auto *entry =
        static_cast<db_fileinfo_entry_t *>(db_mem_alloc(&info->fileinfo_mem, sizeof(db_fileinfo_entry_t)));
    *entry = {out->size, out->date_modified, out->date_created, out->date_accessed, out->attributes, item};
    array_insert(&info->fileinfo_cache, _db_fileinfo_compare, &item, mem_ref(entry));
}

static bool _db_fileinfo_get(db_extended_info_t *info, const db_item_t *item, u32 known_attributes,
                             db_file_info_t *out) {
    db_file_info_clear(out);
    if (db_get_index(item)->type == DB_INDEX_TYPE_FILE_LIST)
        return false;
    if (!_db_fileinfo_find(info, mem_ref(item), out)) {
        _db_fileinfo_read(item, out);
        out->attributes |= known_attributes;
        _db_fileinfo_keep(info, mem_ref(item), out);
    }
    return true;
}

bool db_extended_info_find(db_extended_info_t *info, const db_item_t *item, db_file_info_t *out) {
    db_file_info_clear(out);
    return _db_fileinfo_find(info, mem_ref(item), out) || db_get_index(item)->type == DB_INDEX_TYPE_FILE_LIST;
}

bool db_get_folder_fileinfo(db_extended_info_t *info, const db_item_t *folder, db_file_info_t *out) {
    bool has_file = _db_fileinfo_get(info, folder, OS_ATTRIBUTE_FOLDER, out);
    out->size = VALUE_UNKNOWN; // also of what is a file by now
    return has_file;
}

bool db_get_file_fileinfo(db_extended_info_t *info, const db_item_t *file, db_file_info_t *out) {
    return _db_fileinfo_get(info, file, 0, out);
}

// --- Types -------------------------------------------------------------------------------------------------

struct _db_extension_key_t {
    const char *text;
    u32 length;
};

static int _db_extension_compare(u32 value, const void *key) {
    const auto *entry = mem_ptr<const db_extension_entry_t>(value);
    const auto *wanted = static_cast<const _db_extension_key_t *>(key);
    return utf8_compare_fold(entry->text, entry->length, wanted->text, wanted->length);
}

static const char *_db_extension_find(db_extended_info_t *info, const _db_extension_key_t *key) {
    u32 found = array_find(&info->extension_cache, _db_extension_compare, key);
    if (!found)
        return nullptr;
    const auto *entry = mem_ptr<const db_extension_entry_t>(found);
    return entry->text + entry->length;
}

static const char *_db_extension_keep(db_extended_info_t *info, const _db_extension_key_t *key,
                                      const utf8_buf_t *type_name) {
    std::lock_guard lock(info->lock);
    if (const char *text = _db_extension_find(info, key))
        return text;
    u32 name_size = static_cast<u32>(type_name->length) + 1;
    auto *entry = static_cast<db_extension_entry_t *>(
        db_mem_alloc(&info->extension_mem, sizeof(db_extension_entry_t) + key->length + name_size));
    entry->length = key->length;
    std::memcpy(entry->text, key->text, key->length);
    std::memcpy(entry->text + key->length, type_name->data, name_size);
    array_insert(&info->extension_cache, _db_extension_compare, key, mem_ref(entry));
    return entry->text + key->length;
}

const char *db_extended_info_get_type_name(db_extended_info_t *info, const char *extension, u32 length) {
    _db_extension_key_t key = {extension, length};
    {
        std::lock_guard lock(info->lock);
        if (const char *text = _db_extension_find(info, &key))
            return text;
    }
    // The system is asked for the folded text: the answer must not depend on which of the extensions that
    // share an entry came first.
    utf8_buf_t folded, type_name;
    utf8_buf_init(&folded);
    utf8_buf_init(&type_name);
    utf8_fold_pattern(UTF8_MODE_FOLD, &folded, extension, length);
    key = {folded.data, static_cast<u32>(folded.length)};
    os_get_type_name(key.text, key.length, &type_name);
    const char *text = _db_extension_keep(info, &key, &type_name);
    utf8_buf_kill(&folded);
    utf8_buf_kill(&type_name);
    return text;
}

const char *db_extended_info_get_folder_type_name(db_extended_info_t *info) {
    {
        std::lock_guard lock(info->lock);
        if (info->folder_type_name)
            return info->folder_type_name;
    }
    utf8_buf_t type_name;
    utf8_buf_init(&type_name);
    os_get_folder_type_name(&type_name);
    {
        std::lock_guard lock(info->lock);
        if (!info->folder_type_name)
            info->folder_type_name = utf8_alloc_copy(type_name.data);
    }
    utf8_buf_kill(&type_name);
    return info->folder_type_name;
}

} // namespace findwright
