// The rebuild's NTFS source: the sink of the table reader, and the turning of reference numbers into parents.
#include "base/mem.h"
#include "base/utf8.h"
#include "index/db_create_internal.h"
#include "index/ntfs_partition.h"
#include "os/debug.h"
#include "os/os.h"

#include <algorithm>
#include <cstdio>

namespace findwright {

static constexpr u32 NAME_UNITS_MAX = 255;       // of an NTFS name, in UTF-16 units
static constexpr u32 PROGRESS_INTERVAL = 100000; // microseconds between two status texts

struct _db_create_sink_t {
    db_rebuild_t *rebuild;
    db_create_source_t *source;
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

static db_file_info_t _db_create_info(const ntfs_record_t *record) {
    return {record->size, record->date_modified, record->date_created, record->date_accessed,
            record->attributes};
}

static void _db_create_add_ntfs_folder(_db_create_sink_t *sink, const ntfs_record_t *record, u64 parent_frn,
                                       const db_index_t *root_index, const char *name, u32 length) {
    db_rebuild_t *rebuild = sink->rebuild;
    db_item_t *folder = _db_create_add_record(&rebuild->store.records, &rebuild->store.folders,
                                              static_cast<u32>(parent_frn), root_index, name, length,
                                              rebuild->layout.folder_data_size + DB_CREATE_NTFS_FOLDER_TAIL);
    db_file_info_t info = _db_create_info(record);
    char *tail = _db_create_store_folder_columns(rebuild->layout.flags, folder, &info);
    db_store_u32(tail, static_cast<u32>(parent_frn >> 32));
    db_store_u32(tail + 4, sink->source->index->ordinal);
    db_store_u64(tail + 8, record->frn);
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
        _db_create_add_ntfs_folder(sink, record, 0, sink->source->index, path, utf8_length(path));
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
        _db_create_add_ntfs_folder(sink, record, record->parent_frn, nullptr, name, length);
        return;
    }
    db_item_t *file = _db_create_add_record(&rebuild->store.records, &rebuild->store.files,
                                            static_cast<u32>(record->parent_frn), nullptr, name, length,
                                            rebuild->layout.file_data_size + DB_CREATE_FILE_TAIL);
    db_file_info_t info = _db_create_info(record);
    db_store_u32(_db_create_store_file_columns(rebuild->layout.flags, file, &info),
                 static_cast<u32>(record->parent_frn >> 32));
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

struct _db_create_frn_entry_t {
    u64 frn;
    mem_ref_t folder;
};

static void _db_create_fill_frn_table(db_rebuild_t *rebuild, db_create_source_t *source,
                                      db_create_numbers_t *table) {
    u32 count = source->folder_count;
    _db_create_frn_entry_t *entries =
        static_cast<_db_create_frn_entry_t *>(mem_alloc((count + 1) * sizeof *entries));
    bool sorted = true; // a table read in order mostly is
    for (u32 i = 0; i < count; i++) {
        mem_ref_t ref = pointer_pool_get(&rebuild->store.folders, source->folder_start + i);
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

static mem_ref_t _db_create_find_frn(const db_create_numbers_t *table, u64 frn) {
    const u64 *base = table->frns;
    for (u32 n = table->count; n > 1;) { // without a branch that could be guessed wrong
        u32 half = n / 2;
        base = base[half - 1] < frn ? base + half : base;
        n -= half;
    }
    return table->count != 0 && *base == frn ? table->folders[base - table->frns] : DB_CREATE_ORPHAN;
}

static void _db_create_link(db_rebuild_t *rebuild, db_create_source_t *source) {
    u32 start = os_get_tick_count();
    db_create_numbers_t table;
    _db_create_fill_frn_table(rebuild, source, &table);
    for (u32 i = 0; i < table.count; i++) {
        db_item_t *folder = mem_ptr<db_item_t>(table.folders[i]);
        u64 parent_frn = folder->parent | static_cast<u64>(_db_create_get_slot(rebuild, folder)) << 32;
        folder->parent = parent_frn == 0 ? DB_CREATE_ROOT : _db_create_find_frn(&table, parent_frn);
    }
    const db_index_volume_t *index = static_cast<const db_index_volume_t *>(source->index);
    if (*index->root)
        _db_create_find_root(rebuild, source, &table);
    if (*index->include_only)
        _db_create_include_only(rebuild, source, &table);
    debug_printf("convert parent frn to parent pointers: %f seconds\n", os_get_tick_count() - start);
    u64 last_frn = 0;
    mem_ref_t last_parent = DB_CREATE_ORPHAN;
    for (u32 i = 0; i < source->file_count; i++) {
        db_item_t *file = mem_ptr<db_item_t>(pointer_pool_get(&rebuild->store.files, source->file_start + i));
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

static void _db_create_count(db_rebuild_t *rebuild, db_create_source_t *source) {
    source->folder_count = pointer_pool_count(&rebuild->store.folders) - source->folder_start;
    source->file_count = pointer_pool_count(&rebuild->store.files) - source->file_start;
}

bool _db_create_read_ntfs(db_rebuild_t *rebuild, db_create_source_t *source) {
    const db_index_volume_t *index = static_cast<const db_index_volume_t *>(source->index);
    db_source_t *wanted = source->wanted;
    _db_create_show(rebuild, db_create_texts.scanning_volume, index->path, index->guid);
    _db_create_sink_t sink = {rebuild, source, false, os_get_tick_count()};
    bool done = true;
    if (wanted->read) {
        wanted->read(wanted->read_param, &sink, _db_create_ntfs_sink_proc, _db_create_progress_proc);
    } else {
        char reason[256] = "";
        if (!wanted->volume)
            wanted->volume = ntfs_open_volume(index->guid, reason);
        ntfs_info_t info;
        done = wanted->volume && ntfs_get_info(wanted->volume, &info, reason);
        if (done)
            ntfs_read_volume(wanted->volume, &info, NTFS_MASK_ALL, &sink, _db_create_ntfs_sink_proc,
                             _db_create_progress_proc);
        else
            debug_printf("cannot read the volume %s: %s\n", index->guid, reason);
    }
    if (wanted->volume) {
        os_volume_close(wanted->volume);
        wanted->volume = nullptr;
    }
    if (!done)
        return false;
    _db_create_count(rebuild, source);
    _db_create_link(rebuild, source);
    _db_create_count(rebuild, source);
    db_set_status_detail(rebuild->db, "");
    return true;
}

} // namespace findwright
