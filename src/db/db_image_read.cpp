// Reads a database file. Every number in it may be anything: tables grow as their bytes arrive, each ordinal
// is checked before it is used, and what a later pass relies on (no circle among the parents, each item once
// in each table) is made sure of.
#include "base/mem.h"
#include "base/utf8_buf.h"
#include "db/db_file.h"
#include "db/db_folder.h"
#include "db/db_image.h"
#include "db/db_word.h"
#include "os/debug.h"
#include "os/os_parallel.h"

#include <atomic>
#include <bit>
#include <cstring>

namespace findwright {

static constexpr u32 IMAGE_FLAGS = 0x7F3F;      // those that a layout can have
static constexpr u32 IMAGE_NAME_MAX = 1u << 20; // bytes of a name; a whole path can be one
static constexpr u32 IMAGE_STEP = 16384;        // entries that a table grows by at first
static constexpr u32 IMAGE_STEP_MAX = 1u << 24; // and that it begins with at most
static constexpr u32 IMAGE_TABLES = DB_IMAGE_FOLDER_TABLES + DB_IMAGE_FILE_TABLES + 2;
static constexpr u32 IMAGE_ITEMS_PER_THREAD = 65536;
static constexpr u32 IMAGE_NO_INDEX = ~static_cast<u32>(0);

// A table that grows by what has arrived.
struct _db_image_words_t {
    u32 *words = nullptr;
    u32 count = 0, capacity = 0;

    _db_image_words_t() = default;
    ~_db_image_words_t() {
        if (words)
            mem_free(words);
    }
    _db_image_words_t(const _db_image_words_t &) = delete;
    _db_image_words_t &operator=(const _db_image_words_t &) = delete;

    // Room for a number that is told but not yet known to be true. Memory is taken by what is written.
    void expect(u32 number) {
        capacity = number < IMAGE_STEP ? IMAGE_STEP : number < IMAGE_STEP_MAX ? number : IMAGE_STEP_MAX;
        words = static_cast<u32 *>(mem_alloc(static_cast<size_t>(capacity) * sizeof(u32)));
    }
    void push(u32 word) {
        if (count == capacity) {
            capacity = capacity ? capacity * 2 : IMAGE_STEP;
            u32 *grown = static_cast<u32 *>(mem_alloc(static_cast<size_t>(capacity) * sizeof(u32)));
            if (words) {
                std::memcpy(grown, words, static_cast<size_t>(count) * sizeof(u32));
                mem_free(words);
            }
            words = grown;
        }
        words[count++] = word;
    }
};

// A sort table on its way.
struct _db_image_table_read_t {
    array_t *array;
    const _db_image_words_t *items;
    const char *bad_ordinal; // the line for the log
    u32 bad;
    bool is_good;
};

struct _db_image_reader_t {
    db_t *db = nullptr;
    bz2_stream_t *stream = nullptr;
    u32 folder_count = 0, file_count = 0;
    _db_image_words_t parents;        // of folders, as in the file
    _db_image_words_t roots;          // the index number at the top of each folder's chain
    _db_image_words_t folders, files; // references, by ordinal
    db_index_t **indexes = nullptr;
    utf8_buf_t name;

    _db_image_table_read_t tables[IMAGE_TABLES];
    u32 table_count = 0;
    std::atomic<u32> next_table = 0;
};

// --- The head ----------------------------------------------------------------------------------------------

static bool _db_image_read_index(_db_image_reader_t *reader) {
    bz2_stream_t *stream = reader->stream;
    u32 type = bz2_read_vint(stream);
    u32 out_of_date = bz2_read_u8(stream);
    if (type > DB_INDEX_TYPE_REFS) {
        debug_printf("invalid index type %d\n", type);
        return false;
    }
    db_index_t *index = db_index_alloc(static_cast<db_index_type_t>(type));
    _db_index_add(reader->db, index, out_of_date != 0);
    switch (index->type) {
    case DB_INDEX_TYPE_FILE_LIST: {
        db_index_file_list_t *list = static_cast<db_index_file_list_t *>(index);
        list->filename = bz2_read_string(stream);
        list->date_modified = bz2_read_u64(stream);
        break;
    }
    case DB_INDEX_TYPE_FOLDER: {
        db_index_folder_t *folder = static_cast<db_index_folder_t *>(index);
        folder->path = bz2_read_string(stream);
        folder->next_update = bz2_read_u64(stream);
        break;
    }
    default: {
        db_index_volume_t *volume = static_cast<db_index_volume_t *>(index);
        for (char **text : {&volume->guid, &volume->path, &volume->root, &volume->include_only})
            *text = bz2_read_string(stream);
        volume->journal_id = bz2_read_u64(stream);
        volume->next_usn = bz2_read_u64(stream);
    }
    }
    return !stream->error;
}

static bool _db_image_read_head(_db_image_reader_t *reader) {
    bz2_stream_t *stream = reader->stream;
    if (bz2_read_u32(stream) != DB_IMAGE_MAGIC) {
        debug_printf("invalid db magic\n");
        return false;
    }
    if (bz2_read_u32(stream) != DB_IMAGE_VERSION) {
        debug_printf("unsupported db version\n");
        return false;
    }
    u32 flags = bz2_read_u32(stream);
    if (flags & ~IMAGE_FLAGS || db_layout_normalize_flags(flags) != flags) {
        debug_printf("invalid db flags %08x\n", flags);
        return false;
    }
    db_layout_set_flags(&reader->db->layout, flags);
    reader->folder_count = bz2_read_u32(stream);
    reader->file_count = bz2_read_u32(stream);
    debug_printf("Loading structure %08x: %d folders, %d files...\n", flags, reader->folder_count,
                 reader->file_count);
    u32 index_count = bz2_read_vint(stream);
    for (u32 i = 0; i < index_count; i++) {
        if (!_db_image_read_index(reader))
            return false;
    }
    reader->indexes = static_cast<db_index_t **>(
        mem_alloc((static_cast<size_t>(reader->db->index_count) + 1) * sizeof(db_index_t *)));
    for (db_index_t *index = reader->db->index_first; index; index = index->next)
        reader->indexes[index->ordinal] = index;
    db_exclude_set_t *exclude = &reader->db->exclude;
    u8 left_out = bz2_read_u8(stream);
    exclude->exclude_hidden = left_out & DB_IMAGE_EXCLUDE_HIDDEN;
    exclude->exclude_system = left_out & DB_IMAGE_EXCLUDE_SYSTEM;
    for (db_exclude_list_t *list :
         {&exclude->exclude_folders, &exclude->include_only_files, &exclude->exclude_files})
        db_exclude_read(stream, list);
    db_exclude_update_needs(exclude);
    return !stream->error && !(left_out & ~(DB_IMAGE_EXCLUDE_HIDDEN | DB_IMAGE_EXCLUDE_SYSTEM));
}

// --- Parents -----------------------------------------------------------------------------------------------

static bool _db_image_read_parent(_db_image_reader_t *reader, u32 *parent) {
    *parent = bz2_read_u32(reader->stream);
    if (reader->stream->error)
        return false;
    if (*parent < static_cast<u64>(reader->folder_count) + reader->db->index_count)
        return true;
    debug_printf("invalid parent folder offset %d >= %d + %d\n", *parent, reader->folder_count,
                 reader->db->index_count);
    return false;
}

// Follows a folder's chain to its index, and notes it for all on the way. False where the chain meets itself.
static bool _db_image_settle_root(_db_image_reader_t *reader, u32 folder) {
    constexpr u32 ON_THE_WAY = IMAGE_NO_INDEX - 1;
    u32 at = folder, root;
    for (;;) {
        if (at >= reader->folder_count) {
            root = at - reader->folder_count;
            break;
        }
        root = reader->roots.words[at];
        if (root == ON_THE_WAY)
            return false;
        if (root != IMAGE_NO_INDEX)
            break;
        reader->roots.words[at] = ON_THE_WAY;
        at = reader->parents.words[at];
    }
    for (at = folder; at < reader->folder_count && reader->roots.words[at] == ON_THE_WAY;
         at = reader->parents.words[at])
        reader->roots.words[at] = root;
    return true;
}

static bool _db_image_read_parents(_db_image_reader_t *reader) {
    for (u32 i = 0; i < reader->folder_count; i++) {
        u32 parent;
        if (!_db_image_read_parent(reader, &parent))
            return false;
        reader->parents.push(parent);
        reader->roots.push(IMAGE_NO_INDEX);
    }
    for (u32 i = 0; i < reader->folder_count; i++) {
        if (!_db_image_settle_root(reader, i)) {
            debug_printf("the parents of folder %d run in a circle\n", i);
            return false;
        }
    }
    return true;
}

// --- Records -----------------------------------------------------------------------------------------------

// Makes reader->name the next name: the one before without its last bytes, and the new ones.
static bool _db_image_read_name(_db_image_reader_t *reader, const char *bad_drop) {
    bz2_stream_t *stream = reader->stream;
    u32 added = bz2_read_vint(stream);
    if (added != 0) {
        u32 drop = bz2_read_vint(stream), length = static_cast<u32>(reader->name.length);
        if (drop > length) {
            debug_printf(bad_drop, drop, length);
            return false;
        }
        if (added > IMAGE_NAME_MAX - (length - drop)) {
            debug_printf("a name of more than %d bytes\n", IMAGE_NAME_MAX);
            return false;
        }
        utf8_buf_set_length(&reader->name, length - drop);
        utf8_buf_grow_cat(&reader->name, added);
        bz2_read(stream, reader->name.data + (length - drop), added);
        utf8_buf_set_length(&reader->name, length - drop + added);
    }
    return !stream->error;
}

static bool _db_image_read_folders(_db_image_reader_t *reader) {
    db_t *db = reader->db;
    utf8_buf_empty(&reader->name);
    reader->folders.expect(reader->folder_count);
    for (u32 i = 0; i < reader->folder_count; i++) {
        if (!_db_image_read_name(reader, "Invalid folder code offset %d > %d.\n"))
            return false;
        db_index_t *index = reader->indexes[reader->roots.words[i]];
        bool top = reader->parents.words[i] >= reader->folder_count;
        // A parent that is none yet: what the record has room for is told by whether there is one.
        db_folder_t *folder = db_folder_alloc(db, index, top ? 0 : MEM_REF_FIRST, reader->name.data,
                                              static_cast<u32>(reader->name.length));
        bz2_read(reader->stream, db_item_columns(folder),
                 db->layout.folder_data_size + db_index_type_frn_size(index->type));
        reader->folders.push(mem_ref(folder));
    }
    for (u32 i = 0; i < reader->folder_count; i++) {
        u32 parent = reader->parents.words[i];
        if (parent < reader->folder_count)
            mem_ptr<db_item_t>(reader->folders.words[i])->parent = reader->folders.words[parent];
    }
    return !reader->stream->error;
}

static bool _db_image_read_files(_db_image_reader_t *reader) {
    db_t *db = reader->db;
    utf8_buf_empty(&reader->name);
    reader->files.expect(reader->file_count);
    for (u32 i = 0; i < reader->file_count; i++) {
        u32 parent;
        if (!_db_image_read_parent(reader, &parent) ||
            !_db_image_read_name(reader, "Invalid file code offset %d > %d.\n"))
            return false;
        bool top = parent >= reader->folder_count;
        db_file_t *file = db_file_alloc(db, top ? reader->indexes[parent - reader->folder_count] : nullptr,
                                        top ? 0 : reader->folders.words[parent], reader->name.data,
                                        static_cast<u32>(reader->name.length));
        bz2_read(reader->stream, db_item_columns(file), db->layout.file_data_size);
        reader->files.push(mem_ref(file));
    }
    return !reader->stream->error;
}

// --- Arrays ------------------------------------------------------------------------------------------------

static void _db_image_fill_array(array_t *array, const u32 *refs, u32 count) {
    array_bulk_create(array, count);
    for (u32 page = 0; page < array->page_count; page++) {
        u32 size = array->pages[page]->item_count;
        std::memcpy(array_page_values(array->pages[page]), refs, size * sizeof(u32));
        refs += size;
    }
}

// A sort table as it is in the file: an array whose values still are ordinals.
static bool _db_image_read_table(_db_image_reader_t *reader, array_t *array, const _db_image_words_t *items,
                                 u32 count, const char *bad_ordinal) {
    if (count == 0)
        return true;
    array_bulk_create(array, count); // as many items have been read
    for (u32 page = 0; page < array->page_count; page++) {
        u32 *values = array_page_values(array->pages[page]);
        bz2_read(reader->stream, values, array->pages[page]->item_count * static_cast<u32>(sizeof *values));
        if constexpr (std::endian::native != std::endian::little) {
            for (u32 i = 0; i < array->pages[page]->item_count; i++)
                values[i] = __builtin_bswap32(values[i]);
        }
    }
    reader->tables[reader->table_count++] = {array, items, bad_ordinal, 0, true};
    return !reader->stream->error;
}

// Makes the ordinals of a table the items that they stand for. Each must be below the number of items, and
// none may come twice. The items lie anywhere, so their places are asked of the memory ahead of their use.
static void _db_image_translate(_db_image_table_read_t *table) {
    constexpr u32 AHEAD = 24;
    const u32 *items = table->items->words;
    const u32 count = table->items->count;
    const size_t seen_size = (static_cast<size_t>(count) + 63) / 64 * sizeof(u64);
    u64 *seen = static_cast<u64 *>(std::memset(mem_alloc(seen_size), 0, seen_size));
    for (u32 page = 0; page < table->array->page_count && table->is_good; page++) {
        u32 *values = array_page_values(table->array->pages[page]);
        const u32 size = table->array->pages[page]->item_count;
        for (u32 i = 0; i < size; i++) {
            if (i + AHEAD < size && values[i + AHEAD] < count)
                __builtin_prefetch(&items[values[i + AHEAD]]);
            const u32 ordinal = values[i];
            const u64 bit = u64{1} << ordinal % 64;
            if (ordinal >= count || seen[ordinal / 64] & bit) {
                table->bad = ordinal;
                table->is_good = false;
                break;
            }
            seen[ordinal / 64] |= bit;
            values[i] = items[ordinal];
        }
    }
    mem_free(seen);
}

static void _db_image_translate_proc(void *param, u32, u32) {
    _db_image_reader_t *reader = static_cast<_db_image_reader_t *>(param);
    for (u32 i; (i = reader->next_table.fetch_add(1)) < reader->table_count;)
        _db_image_translate(&reader->tables[i]);
}

// All tables that were read, on several threads. Where one is bad, those after it may still hold ordinals.
static bool _db_image_translate_all(_db_image_reader_t *reader) {
    os_parallel(os_get_thread_count(reader->files.count + reader->folders.count, IMAGE_ITEMS_PER_THREAD),
                _db_image_translate_proc, reader);
    for (u32 i = 0; i < reader->table_count; i++) {
        if (!reader->tables[i].is_good) {
            debug_printf(reader->tables[i].bad_ordinal, reader->tables[i].bad);
            return false;
        }
    }
    return true;
}

// A number table holds all folders that have such a number, and no others.
static bool _db_image_read_numbers(_db_image_reader_t *reader, array_t *array, db_index_type_t type) {
    u32 expected = 0;
    for (u32 i = 0; i < reader->folder_count; i++)
        expected += reader->indexes[reader->roots.words[i]]->type == type;
    u32 count = bz2_read_u32(reader->stream);
    if (reader->stream->error)
        return false;
    if (count != expected) {
        debug_printf("%u folders in a table of %u\n", count, expected);
        return false;
    }
    return _db_image_read_table(reader, array, &reader->folders, count, "invalid folder index %u\n");
}

static bool _db_image_check_numbers(const array_t *array, db_index_type_t type) {
    u32 page = 0;
    i32 position = -1;
    while (u32 ref = array_next(array, &page, &position)) {
        if (db_get_index(db_item(ref))->type != type) {
            debug_printf("a folder without a number in their table\n");
            return false;
        }
    }
    return true;
}

static bool _db_image_read_tables(_db_image_reader_t *reader, const db_image_table_t *tables, u32 table_count,
                                  const _db_image_words_t *items, const char *bad_ordinal) {
    for (u32 i = 0; i < table_count && items->count != 0; i++) {
        if ((reader->db->layout.flags & tables[i].flags) != tables[i].flags)
            continue;
        if (!_db_image_read_table(reader, &(reader->db->*tables[i].array), items, items->count, bad_ordinal))
            return false;
    }
    return true;
}

static bool _db_image_read_all(_db_image_reader_t *reader) {
    db_t *db = reader->db;
    if (!_db_image_read_head(reader) || !_db_image_read_parents(reader) || !_db_image_read_folders(reader) ||
        !_db_image_read_files(reader))
        return false;
    if (reader->folder_count != 0)
        _db_image_fill_array(&db->folder_name_array, reader->folders.words, reader->folder_count);
    if (reader->file_count != 0)
        _db_image_fill_array(&db->file_name_array, reader->files.words, reader->file_count);
    if (!_db_image_read_numbers(reader, &db->folder_frn_array, DB_INDEX_TYPE_NTFS) ||
        !_db_image_read_numbers(reader, &db->folder_frn128_array, DB_INDEX_TYPE_REFS) ||
        !_db_image_read_tables(reader, db_image_folder_tables, DB_IMAGE_FOLDER_TABLES, &reader->folders,
                               "invalid folder index %u\n") ||
        !_db_image_read_tables(reader, db_image_file_tables, DB_IMAGE_FILE_TABLES, &reader->files,
                               "invalid file index %u\n"))
        return false;
    if (!bz2_read_is_at_end(reader->stream)) {
        debug_printf("bytes behind the last table\n");
        return false;
    }
    if (!_db_image_translate_all(reader) ||
        !_db_image_check_numbers(&db->folder_frn_array, DB_INDEX_TYPE_NTFS) ||
        !_db_image_check_numbers(&db->folder_frn128_array, DB_INDEX_TYPE_REFS))
        return false;
    db_words_create(db);
    return true;
}

bool db_image_read(db_t *db, bz2_stream_t *stream) {
    _db_image_reader_t reader;
    reader.db = db;
    reader.stream = stream;
    utf8_buf_init(&reader.name);
    bool done = _db_image_read_all(&reader);
    utf8_buf_kill(&reader.name);
    if (reader.indexes)
        mem_free(reader.indexes);
    if (!done) {
        db_clear_content(db);
        db_layout_set_flags(&db->layout, 0);
    }
    return done;
}

} // namespace findwright
