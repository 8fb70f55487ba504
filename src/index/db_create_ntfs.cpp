// The rebuild's NTFS source: the sink of the table reader, and the turning of reference numbers into parents.
#include "base/mem.h"
#include "base/utf8.h"
#include "index/db_create_internal.h"
#include "os/debug.h"
#include "os/os.h"

#include <algorithm>
#include <cstdio>

namespace findwright {

static constexpr u32 ATTRIBUTE_HIDDEN = 2;
static constexpr u32 ATTRIBUTE_SYSTEM = 4;
static constexpr u32 ATTRIBUTE_DIRECTORY = 0x10;
static constexpr u32 NAME_UNITS_MAX = 255;       // of an NTFS name, in UTF-16 units
static constexpr u32 PROGRESS_INTERVAL = 100000; // microseconds between two status texts

struct _db_create_sink_t {
    db_rebuild_t *rebuild;
    db_rebuild_source_t *source;
    bool has_root;
    u32 last_progress;
};

// --- The sink ----------------------------------------------------------------------------------------------

// A name's UTF-16 as UTF-8. A `\` in a name would read as a border between two folders; it becomes U+F05C.
static u32 _db_create_convert_name(char *out, const u8 *name, u32 units) {
    u32 i = 0;
    for (; i != units; i++) { // nearly all names are ASCII to the end
        u8 low = name[2 * i];
        if (name[2 * i + 1] != 0 || low >= 0x80 || low == '\\')
            break;
        out[i] = low;
    }
    char *end = out + i;
    while (i != units) {
        u32 value = name[2 * i] | static_cast<u32>(name[2 * i + 1]) << 8;
        i++;
        if (value >= 0xD800 && value < 0xDC00 && i != units) {
            u32 low = name[2 * i] | static_cast<u32>(name[2 * i + 1]) << 8;
            if (low >= 0xDC00 && low < 0xE000) {
                value = 0x10000 + ((value - 0xD800) << 10) + (low - 0xDC00);
                i++;
            }
        }
        end += utf8_encode(end, value == '\\' ? 0xF05C : value);
    }
    return static_cast<u32>(end - out);
}

// A temporary record with the head written. `tail_size` bytes stand behind the columns.
static db_item_t *_db_create_add_record(db_rebuild_t *rebuild, pointer_pool_t *pool, mem_ref_t parent,
                                        db_index_t *root_index, const char *name, u32 length, u32 size) {
    bool is_root = root_index != nullptr;
    char *block = static_cast<char *>(obstack_bytes_alloc(
        &rebuild->records, db_item_prefix_size(length, is_root) + DB_ITEM_HEAD + length + size));
    db_item_t *item =
        db_item_write_head(block, parent, is_root, is_root ? mem_ref(root_index) : 0, name, length);
    pointer_pool_push(pool, mem_ref(item));
    return item;
}

// Dates and attributes stand in the same order in files and folders. Returns the end of the columns.
static char *_db_create_store_columns(u32 flags, char *columns, const ntfs_record_t *record) {
    if (flags & DB_FLAG_DATE_CREATED) {
        db_store_u64(columns, record->date_created);
        columns += 8;
    }
    if (flags & DB_FLAG_DATE_MODIFIED) {
        db_store_u64(columns, record->date_modified);
        columns += 8;
    }
    if (flags & DB_FLAG_DATE_ACCESSED) {
        db_store_u64(columns, record->date_accessed);
        columns += 8;
    }
    if (flags & DB_FLAG_ATTRIBUTES) {
        db_store_u32(columns, record->attributes);
        columns += 4;
    }
    return columns;
}

static void _db_create_add_folder(_db_create_sink_t *sink, const ntfs_record_t *record, u64 parent_frn,
                                  db_index_t *root_index, const char *name, u32 length) {
    db_rebuild_t *rebuild = sink->rebuild;
    u32 flags = rebuild->layout.flags;
    db_item_t *folder =
        _db_create_add_record(rebuild, &rebuild->folder_pool, static_cast<u32>(parent_frn), root_index, name,
                              length, rebuild->layout.folder_data_size + DB_CREATE_NTFS_FOLDER_TAIL);
    char *columns = db_item_columns(folder);
    if (flags & DB_FLAG_FOLDER_SIZE) {
        db_store_u64(columns, 0);
        columns += 8;
    }
    columns = _db_create_store_columns(flags, columns, record);
    db_store_u32(columns, static_cast<u32>(parent_frn >> 32));
    db_store_u32(columns + 4, sink->source->index->ordinal);
    db_store_u64(columns + 8, record->frn);
}

static void _db_create_ntfs_sink_proc(void *user_data, const ntfs_record_t *record) {
    _db_create_sink_t *sink = static_cast<_db_create_sink_t *>(user_data);
    db_rebuild_t *rebuild = sink->rebuild;
    bool is_folder = (record->attributes & ATTRIBUTE_DIRECTORY) != 0;
    if (is_folder && record->frn == NTFS_FRN_ROOT) {
        if (sink->has_root)
            return;
        sink->has_root = true;
        const char *path = static_cast<db_index_volume_t *>(sink->source->index)->path;
        _db_create_add_folder(sink, record, 0, sink->source->index, path,
                              static_cast<u32>(std::strlen(path)));
        return;
    }
    if (record->parent_frn == 0 || record->name_length == 0 || record->name_length > NAME_UNITS_MAX)
        return;
    if ((rebuild->exclude.exclude_hidden && record->attributes & ATTRIBUTE_HIDDEN) ||
        (rebuild->exclude.exclude_system && record->attributes & ATTRIBUTE_SYSTEM))
        return;
    char name[NAME_UNITS_MAX * 3];
    u32 length = _db_create_convert_name(name, record->name, record->name_length);
    if (is_folder) {
        _db_create_add_folder(sink, record, record->parent_frn, nullptr, name, length);
        return;
    }
    db_item_t *file =
        _db_create_add_record(rebuild, &rebuild->file_pool, static_cast<u32>(record->parent_frn), nullptr,
                              name, length, rebuild->layout.file_data_size + DB_CREATE_FILE_TAIL);
    char *columns = db_item_columns(file);
    if (rebuild->layout.flags & DB_FLAG_SIZE) {
        db_store_u64(columns, record->size);
        columns += 8;
    }
    columns = _db_create_store_columns(rebuild->layout.flags, columns, record);
    db_store_u32(columns, static_cast<u32>(record->parent_frn >> 32));
}

static bool _db_create_progress_proc(void *user_data, u64 done, u64 total) {
    _db_create_sink_t *sink = static_cast<_db_create_sink_t *>(user_data);
    sink->rebuild->stats->record_count = done;
    u32 now = os_get_tick_count();
    if (now - sink->last_progress >= PROGRESS_INTERVAL && total != 0) {
        sink->last_progress = now;
        char percent[8];
        std::snprintf(percent, sizeof percent, "%u %%",
                      static_cast<u32>(done >= total ? 100 : done * 100 / total));
        db_set_status_detail(sink->rebuild->db, percent);
    }
    return !sink->rebuild->db->cancel_rebuild;
}

// --- Parents -----------------------------------------------------------------------------------------------

// The folders of a source in the order of their numbers: the keys apart, so that a search stays in the cache.
struct _db_create_frn_table_t {
    u64 *frns;
    mem_ref_t *folders;
    u32 count;
};

struct _db_create_frn_entry_t {
    u64 frn;
    mem_ref_t folder;
};

static void _db_create_fill_frn_table(db_rebuild_t *rebuild, db_rebuild_source_t *source,
                                      _db_create_frn_table_t *table) {
    u32 count = source->folder_count;
    _db_create_frn_entry_t *entries =
        static_cast<_db_create_frn_entry_t *>(mem_alloc((count + 1) * sizeof *entries));
    bool sorted = true; // a table read in order mostly is
    for (u32 i = 0; i < count; i++) {
        mem_ref_t ref = pointer_pool_get(&rebuild->folder_pool, source->folder_start + i);
        entries[i] = {_db_create_get_frn(rebuild, db_item(ref)), ref};
        sorted = sorted && (i == 0 || entries[i - 1].frn < entries[i].frn);
    }
    if (!sorted) {
        std::sort(entries, entries + count, [](const auto &a, const auto &b) {
            return a.frn != b.frn ? a.frn < b.frn : a.folder < b.folder;
        });
    }
    table->count = count;
    table->frns = static_cast<u64 *>(mem_alloc((count + 1) * sizeof(u64)));
    table->folders = static_cast<mem_ref_t *>(mem_alloc((count + 1) * sizeof(mem_ref_t)));
    for (u32 i = 0; i < count; i++) {
        table->frns[i] = entries[i].frn;
        table->folders[i] = entries[i].folder;
    }
    mem_free(entries);
}

static mem_ref_t _db_create_find_frn(const _db_create_frn_table_t *table, u64 frn) {
    const u64 *base = table->frns;
    for (u32 n = table->count; n > 1;) { // without a branch that could be guessed wrong
        u32 half = n / 2;
        base = base[half - 1] < frn ? base + half : base;
        n -= half;
    }
    return table->count != 0 && *base == frn ? table->folders[base - table->frns] : DB_CREATE_ORPHAN;
}

static void _db_create_link(db_rebuild_t *rebuild, db_rebuild_source_t *source) {
    u32 start = os_get_tick_count();
    _db_create_frn_table_t table;
    _db_create_fill_frn_table(rebuild, source, &table);
    for (u32 i = 0; i < table.count; i++) {
        db_item_t *folder = mem_ptr<db_item_t>(table.folders[i]);
        u64 parent_frn = folder->parent | static_cast<u64>(_db_create_get_slot(rebuild, folder)) << 32;
        folder->parent = parent_frn == 0 ? DB_CREATE_ROOT : _db_create_find_frn(&table, parent_frn);
    }
    debug_printf("convert parent frn to parent pointers: %f seconds\n", os_get_tick_count() - start);
    u64 last_frn = 0;
    mem_ref_t last_parent = DB_CREATE_ORPHAN;
    for (u32 i = 0; i < source->file_count; i++) {
        db_item_t *file = mem_ptr<db_item_t>(pointer_pool_get(&rebuild->file_pool, source->file_start + i));
        u64 parent_frn = file->parent | static_cast<u64>(db_load_u32(_db_create_file_tail(rebuild, file)))
                                            << 32;
        if (parent_frn != last_frn) { // neighbours in the table are often neighbours in the tree
            last_frn = parent_frn;
            last_parent = _db_create_find_frn(&table, parent_frn);
        }
        file->parent = last_parent;
    }
    mem_free(table.frns);
    mem_free(table.folders);
}

// --- A source ----------------------------------------------------------------------------------------------

void _db_create_read_ntfs(db_rebuild_t *rebuild, db_rebuild_source_t *source) {
    db_index_volume_t *index = static_cast<db_index_volume_t *>(source->index);
    debug_printf("Indexing %s, %s, %s\n", index->guid, index->path, index->root);
    db_set_status(rebuild->db, "Scanning %s (%s)", index->path, index->guid);
    _db_create_sink_t sink = {rebuild, source, false, os_get_tick_count()};
    if (source->read) {
        source->read(source->read_param, &sink, _db_create_ntfs_sink_proc, _db_create_progress_proc);
    } else {
        if (!source->volume)
            source->volume = os_volume_open(index->guid);
        ntfs_info_t info;
        if (source->volume && ntfs_get_info(source->volume, &info, nullptr))
            ntfs_read_volume(source->volume, &info, NTFS_MASK_ALL, &sink, _db_create_ntfs_sink_proc,
                             _db_create_progress_proc);
        else
            source->out_of_date = index->monitor;
    }
    if (source->volume) {
        os_volume_close(source->volume);
        source->volume = nullptr;
    }
    source->folder_count = pointer_pool_count(&rebuild->folder_pool) - source->folder_start;
    source->file_count = pointer_pool_count(&rebuild->file_pool) - source->file_start;
    _db_create_link(rebuild, source);
}

} // namespace findwright
