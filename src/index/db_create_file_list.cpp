// The rebuild's file list source: the tree is built while the rows come.
//
// No row is kept, and none is sorted: memory is that of the records and of one table of the folders. A row's
// folder is found in two steps. What the row has in common with the folder of the row before needs no
// look-up, which is all there is in a list that walks a tree; below that each component is looked up by its
// parent and its bytes. The hash is that of the path so far, so that all look-ups of a row can ask for their
// memory at once:
//
//     path   C:\a\b\c       levels   C: | a | b | c       the folder of the row before
//     row    C:\a\x\y.txt            C: | a               in common; `x` is looked up below `a`
//
// So any order of the rows makes the same tree. Case matters: `C:\a` and `c:\a` are two folders.
//
// A folder that rows only pass through is made up, and its sequence is SEQUENCE_MADE_UP until its own row
// comes. A folder row that repeats makes a second folder, a twin. Items below belong to the last of them;
// while the rows come they hang on the first, which is the one in the table, and whose slot word names the
// last.
//
// Thread: the rebuild's.
#include "base/mem.h"
#include "index/db_create_internal.h"
#include "index/file_list.h"
#include "os/debug.h"
#include "os/os.h"

#include <bit>
#include <cstdio>

namespace findwright {

static constexpr u32 SEQUENCE_MADE_UP = 0xFFFFFFFF;
static constexpr u32 CHECK_ROWS = 4096;          // between two looks at the clock and at the cancel flag
static constexpr u32 PROGRESS_INTERVAL = 100000; // microseconds between two status texts
static constexpr u32 TABLE_CAPACITY_FIRST = 1024;
static constexpr u32 LEVEL_CAPACITY_FIRST = 64;

// The hash stands beside the reference, so that the table grows without a look at the records, and a look-up
// reads hardly any but the right one.
struct _db_create_list_entry_t {
    u32 hash;
    mem_ref_t folder; // 0: free
};

// Open addressing, a power of two of entries, at most two thirds of them taken.
struct _db_create_list_table_t {
    _db_create_list_entry_t *entries;
    u32 capacity;
    u32 count;
    u64 seed; // no list can be written for many equal hashes
};

// A component of the path: the first of its twins, and where its name ends in the path.
struct _db_create_list_level_t {
    mem_ref_t folder;
    u32 end;
    u32 hash;
};

struct _db_create_list_t {
    db_rebuild_t *rebuild;
    db_create_source_t *source;
    _db_create_list_table_t table;
    utf8_buf_t path; // of the row before, if it was a folder, or of its folder
    _db_create_list_level_t *levels;
    u32 depth, level_capacity;
    bool has_twins;
    u32 row_count;
    u32 last_progress;
};

// --- The table of folders ----------------------------------------------------------------------------------

// The product of both halves; they also stay, so that a half of 0 loses nothing.
static u64 _db_create_list_mix(u64 hash) {
    const u64 low = static_cast<u32>(hash) ^ 0x53C5CA59u;
    const u64 high = static_cast<u32>(hash >> 32) ^ 0x74743C1Bu;
    return low * high ^ std::rotl(hash, 32);
}

// The hash of a component below a folder of that hash.
static u32 _db_create_list_hash(u64 seed, u32 parent, const char *name, u32 length) {
    u64 hash = _db_create_list_mix(seed ^ parent ^ static_cast<u64>(length) << 32);
    u64 word;
    for (; length >= sizeof word; name += sizeof word, length -= static_cast<u32>(sizeof word)) {
        std::memcpy(&word, name, sizeof word);
        hash = _db_create_list_mix(hash ^ word);
    }
    word = 0;
    std::memcpy(&word, name, length);
    hash = _db_create_list_mix(_db_create_list_mix(hash ^ word));
    return static_cast<u32>(hash ^ hash >> 32);
}

static _db_create_list_entry_t *_db_create_list_alloc_entries(u32 capacity) {
    const size_t size = capacity * sizeof(_db_create_list_entry_t);
    return static_cast<_db_create_list_entry_t *>(std::memset(mem_alloc(size), 0, size));
}

static void _db_create_list_grow_table(_db_create_list_table_t *table) {
    const u32 capacity = table->capacity * 2;
    _db_create_list_entry_t *entries = _db_create_list_alloc_entries(capacity);
    for (u32 i = 0; i < table->capacity; i++) {
        if (table->entries[i].folder == 0)
            continue;
        u32 place = table->entries[i].hash & (capacity - 1);
        while (entries[place].folder != 0)
            place = (place + 1) & (capacity - 1);
        entries[place] = table->entries[i];
    }
    mem_free(table->entries);
    table->entries = entries;
    table->capacity = capacity;
}

static bool _db_create_list_is(mem_ref_t folder, mem_ref_t parent, const char *name, u32 length) {
    const db_item_t *item = db_item(folder);
    u32 item_length;
    const char *item_name = db_item_get_name(item, &item_length);
    return item->parent == parent && item_length == length && std::memcmp(item_name, name, length) == 0;
}

// The folder of that name below `parent`, or 0.
static mem_ref_t _db_create_list_find(const _db_create_list_table_t *table, u32 hash, mem_ref_t parent,
                                      const char *name, u32 length) {
    const u32 mask = table->capacity - 1;
    for (u32 place = hash & mask;; place = (place + 1) & mask) {
        const _db_create_list_entry_t entry = table->entries[place];
        if (entry.folder == 0 ||
            (entry.hash == hash && _db_create_list_is(entry.folder, parent, name, length)))
            return entry.folder;
    }
}

static void _db_create_list_insert(_db_create_list_table_t *table, u32 hash, mem_ref_t folder) {
    if (++table->count > table->capacity / 3 * 2)
        _db_create_list_grow_table(table);
    const u32 mask = table->capacity - 1;
    u32 place = hash & mask;
    while (table->entries[place].folder != 0)
        place = (place + 1) & mask;
    table->entries[place] = {hash, folder};
}

// --- Folders -----------------------------------------------------------------------------------------------

static char *_db_create_list_sequence(const _db_create_list_t *list, const db_item_t *folder) {
    return _db_create_folder_tail(list->rebuild, folder) + 8;
}

static mem_ref_t _db_create_list_add_folder(_db_create_list_t *list, const db_create_item_t *item) {
    return mem_ref(_db_create_add_folder(list->rebuild, list->source, &list->rebuild->store, item));
}

// The row of a folder that is there: it tells of what was made up, or makes a twin.
static void _db_create_list_put_again(_db_create_list_t *list, mem_ref_t found,
                                      const db_create_item_t *item) {
    const db_item_t *folder = db_item(found);
    char *sequence = _db_create_list_sequence(list, folder);
    if (db_load_u32(sequence) == SEQUENCE_MADE_UP) {
        _db_create_store_folder_columns(list->rebuild->layout.flags, folder, item->info);
        db_store_u32(sequence, item->sequence);
    } else {
        _db_create_set_slot(list->rebuild, folder, _db_create_list_add_folder(list, item));
        list->has_twins = true;
    }
}

// The folder of a component, or the first of its twins. Without `info` a row only passes through it.
static mem_ref_t _db_create_list_put_folder(_db_create_list_t *list, u32 hash, const db_create_item_t *item) {
    mem_ref_t folder = _db_create_list_find(&list->table, hash, item->parent, item->name, item->length);
    if (folder == 0) {
        folder = _db_create_list_add_folder(list, item);
        _db_create_list_insert(&list->table, hash, folder);
    } else if (item->info) {
        _db_create_list_put_again(list, folder, item);
    }
    return folder;
}

// Once all rows are read: moves what hangs on the first of several twins to the last.
static void _db_create_list_move_to_twins(_db_create_list_t *list, const pointer_pool_t *pool, u32 start) {
    const u32 count = pointer_pool_count(pool);
    for (u32 i = start; i < count; i++) {
        db_item_t *item = mem_ptr<db_item_t>(pointer_pool_get(pool, i));
        if (item->parent < MEM_REF_FIRST)
            continue;
        const mem_ref_t last = _db_create_get_slot(list->rebuild, db_item(item->parent));
        if (last != 0)
            item->parent = last;
    }
}

// --- Rows --------------------------------------------------------------------------------------------------

// The bytes that two texts begin with in common.
static u32 _db_create_list_common(const char *a, const char *b, u32 length) {
    static_assert(std::endian::native == std::endian::little); // the first byte is the lowest
    u32 i = 0;
    for (u64 a_word, b_word; length - i >= sizeof a_word; i += static_cast<u32>(sizeof a_word)) {
        std::memcpy(&a_word, a + i, sizeof a_word);
        std::memcpy(&b_word, b + i, sizeof b_word);
        if (a_word != b_word)
            return i + static_cast<u32>(std::countr_zero(a_word ^ b_word)) / 8;
    }
    while (i < length && a[i] == b[i])
        i++;
    return i;
}

static u32 _db_create_list_path_end(const _db_create_list_t *list) {
    return list->depth != 0 ? list->levels[list->depth - 1].end : 0;
}

// Where the component behind the levels begins.
static u32 _db_create_list_next_start(const _db_create_list_t *list) {
    return list->depth != 0 ? list->levels[list->depth - 1].end + 1 : 0;
}

// Leaves the levels that the name has in common with the path, less its own last component.
static void _db_create_list_go_up(_db_create_list_t *list, const char *name, u32 length) {
    const u32 path_length = static_cast<u32>(list->path.length);
    const u32 common =
        _db_create_list_common(list->path.data, name, path_length < length ? path_length : length);
    for (; list->depth != 0; list->depth--) {
        const u32 end = _db_create_list_path_end(list);
        if (end <= common && end < length && name[end] == '\\')
            break;
    }
}

static void _db_create_list_push_level(_db_create_list_t *list, u32 end, u32 hash) {
    if (list->depth == list->level_capacity) {
        const size_t size = list->level_capacity * sizeof *list->levels;
        void *levels = mem_alloc(size * 2);
        std::memcpy(levels, list->levels, size);
        mem_free(list->levels);
        list->levels = static_cast<_db_create_list_level_t *>(levels);
        list->level_capacity *= 2;
    }
    list->levels[list->depth++] = {0, end, hash};
}

// Adds levels for the components that are folders. Their folders are still to be found: in a list of no order
// nothing of it is in the cache, so the memory of all is asked for before that of the first is needed.
static void _db_create_list_go_down(_db_create_list_t *list, const char *name, u32 length, bool is_folder) {
    const _db_create_list_table_t *table = &list->table;
    const u32 mask = table->capacity - 1;
    const u32 first = list->depth;
    u32 hash = first != 0 ? list->levels[first - 1].hash : 0;
    u32 position = _db_create_list_next_start(list);
    const char *piece;
    u32 piece_length;
    while (file_list_next_piece(name, length, &position, &piece, &piece_length)) {
        if (position > length && !is_folder)
            break;
        hash = _db_create_list_hash(table->seed, hash, piece, piece_length);
        __builtin_prefetch(&table->entries[hash & mask]);
        _db_create_list_push_level(list, static_cast<u32>(piece - name) + piece_length, hash);
    }
    for (u32 i = first; i < list->depth; i++)
        __builtin_prefetch(mem_ptr<char>(table->entries[list->levels[i].hash & mask].folder));
}

// Makes the path that of the levels. They are components of the name, of which the path has `kept` bytes.
static void _db_create_list_set_path(_db_create_list_t *list, const char *name, u32 kept) {
    const u32 end = _db_create_list_path_end(list);
    utf8_buf_set_length(&list->path, kept);
    if (end != kept)
        utf8_buf_cat_utf8(&list->path, name + kept, end - kept);
}

// Separators at the name's end count for nothing. Where they are all there is, the name is that of the root
// of such names, which is no item: its separator belongs to the names below.
static void _db_create_list_add_row(_db_create_list_t *list, const file_list_row_t *row) {
    const char *name = row->name;
    u32 length = row->length;
    while (length != 0 && name[length - 1] == '\\')
        length--;
    if (length == 0)
        return;
    _db_create_list_go_up(list, name, length);
    const u32 kept = _db_create_list_path_end(list);
    const u32 first = list->depth;
    u32 start = _db_create_list_next_start(list);
    mem_ref_t parent = first != 0 ? list->levels[first - 1].folder : DB_CREATE_ROOT;
    _db_create_list_go_down(list, name, length, row->is_folder);
    const u32 sequence = static_cast<u32>(row->ordinal);
    for (u32 i = first; i < list->depth; i++) {
        _db_create_list_level_t *level = &list->levels[i];
        const bool is_own = level->end == length; // of a folder's row; a file's last component has no level
        const db_create_item_t item = {parent, name + start, level->end - start,
                                       is_own ? &row->info : nullptr, is_own ? sequence : SEQUENCE_MADE_UP};
        parent = level->folder = _db_create_list_put_folder(list, level->hash, &item);
        start = level->end + 1;
    }
    if (!row->is_folder) {
        const db_create_item_t item = {parent, name + start, length - start, &row->info, sequence};
        _db_create_add_file(list->rebuild, list->source, &list->rebuild->store, &item);
    }
    _db_create_list_set_path(list, name, kept);
}

// False when the rebuild is to end.
static bool _db_create_list_check(_db_create_list_t *list) {
    const u32 now = os_get_tick_count();
    if (now - list->last_progress >= PROGRESS_INTERVAL) {
        list->last_progress = now;
        char text[24];
        std::snprintf(text, sizeof text, "%u items", list->row_count);
        db_set_status_detail(list->rebuild->db, text);
    }
    return !_db_create_is_cancelled(list->rebuild);
}

static bool _db_create_list_row_proc(void *param, const file_list_row_t *row) {
    _db_create_list_t *list = static_cast<_db_create_list_t *>(param);
    _db_create_list_add_row(list, row);
    list->row_count++;
    return list->row_count % CHECK_ROWS != 0 || _db_create_list_check(list);
}

// --- The source --------------------------------------------------------------------------------------------

static void _db_create_list_init(_db_create_list_t *list, db_rebuild_t *rebuild, db_create_source_t *source) {
    list->rebuild = rebuild;
    list->source = source;
    list->table = {_db_create_list_alloc_entries(TABLE_CAPACITY_FIRST), TABLE_CAPACITY_FIRST, 0,
                   os_get_file_time() << 20 ^ os_get_tick_count()};
    utf8_buf_init(&list->path);
    list->levels =
        static_cast<_db_create_list_level_t *>(mem_alloc(LEVEL_CAPACITY_FIRST * sizeof *list->levels));
    list->depth = 0;
    list->level_capacity = LEVEL_CAPACITY_FIRST;
    list->has_twins = false;
    list->row_count = 0;
    list->last_progress = os_get_tick_count();
}

static void _db_create_list_kill(_db_create_list_t *list) {
    mem_free(list->table.entries);
    mem_free(list->levels);
    utf8_buf_kill(&list->path);
}

bool _db_create_read_file_list(db_rebuild_t *rebuild, db_create_source_t *source) {
    db_index_file_list_t *index = static_cast<db_index_file_list_t *>(source->index);
    _db_create_show(rebuild, db_create_texts.loading_list, index->filename, "");
    // Before the list is read: a change meanwhile is one that the next check finds. A list that is there but
    // cannot be opened has its date, too, or each check would find it changed.
    os_file_info_t file;
    os_get_file_info(index->filename, &file);
    index->date_modified = file.date_modified;

    _db_create_list_t list;
    _db_create_list_init(&list, rebuild, source);
    const file_list_read_t options = {rebuild->exclude.exclude_hidden, rebuild->exclude.exclude_system};
    const file_list_status_t status =
        file_list_read(index->filename, &options, _db_create_list_row_proc, &list);
    rebuild->db->file_list_status = status;
    if (list.has_twins) {
        _db_create_list_move_to_twins(&list, &rebuild->store.folders, source->folder_start);
        _db_create_list_move_to_twins(&list, &rebuild->store.files, source->file_start);
    }
    source->folder_count = pointer_pool_count(&rebuild->store.folders) - source->folder_start;
    source->file_count = pointer_pool_count(&rebuild->store.files) - source->file_start;
    _db_create_list_kill(&list);
    if (status == FILE_LIST_NOT_OPENED)
        return false;
    debug_printf("items %d\n", list.row_count);
    debug_printf("done\n");
    return true;
}

} // namespace findwright
