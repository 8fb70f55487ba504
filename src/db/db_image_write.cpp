#include "base/mem.h"
#include "db/db_folder.h"
#include "db/db_image.h"

namespace findwright {

const db_image_table_t db_image_folder_tables[DB_IMAGE_FOLDER_TABLES] = {
    {DB_FLAG_FAST_PATH, &db_t::folder_path_array},
    {DB_FLAG_FOLDER_SIZE | DB_FLAG_FAST_SIZE, &db_t::folder_size_array},
    {DB_FLAG_FAST_DATE_CREATED, &db_t::folder_date_created_array},
    {DB_FLAG_FAST_DATE_MODIFIED, &db_t::folder_date_modified_array},
    {DB_FLAG_FAST_DATE_ACCESSED, &db_t::folder_date_accessed_array},
    {DB_FLAG_FAST_ATTRIBUTES, &db_t::folder_attributes_array},
};
const db_image_table_t db_image_file_tables[DB_IMAGE_FILE_TABLES] = {
    {DB_FLAG_FAST_PATH, &db_t::file_path_array},
    {DB_FLAG_FAST_SIZE, &db_t::file_size_array},
    {DB_FLAG_FAST_DATE_CREATED, &db_t::file_date_created_array},
    {DB_FLAG_FAST_DATE_MODIFIED, &db_t::file_date_modified_array},
    {DB_FLAG_FAST_DATE_ACCESSED, &db_t::file_date_accessed_array},
    {DB_FLAG_FAST_ATTRIBUTES, &db_t::file_attributes_array},
    {DB_FLAG_FAST_EXTENSION, &db_t::file_extension_array},
};

// Calls `each` with every value of an array, in order.
template<class each_t>
static void _db_image_walk(const array_t *array, each_t each) {
    for (u32 page = 0; page < array->page_count; page++) {
        const u32 *values = array_page_values(array->pages[page]);
        for (u32 i = 0; i < array->pages[page]->item_count; i++)
            each(values[i]);
    }
}

// How far ahead an item that lies anywhere in memory is asked for, and a parent of it, which needs the item
// first.
static constexpr u32 IMAGE_AHEAD = 24;
static constexpr u32 IMAGE_PARENT_AHEAD = 12;

// The same where the items lie in another order than that of the array, or their parents do.
template<class each_t>
static void _db_image_walk_ahead(const array_t *array, bool needs_parents, each_t each) {
    for (u32 page = 0; page < array->page_count; page++) {
        const u32 *values = array_page_values(array->pages[page]);
        const u32 count = array->pages[page]->item_count;
        for (u32 i = 0; i < count; i++) {
            if (i + IMAGE_AHEAD < count)
                __builtin_prefetch(db_item(values[i + IMAGE_AHEAD]));
            if (needs_parents && i + IMAGE_PARENT_AHEAD < count)
                __builtin_prefetch(mem_ptr<char>(db_item(values[i + IMAGE_PARENT_AHEAD])->parent));
            each(values[i]);
        }
    }
}

// Puts each item's ordinal into its `parent`; what stood there is returned in a table, by ordinal.
static mem_ref_t *_db_image_mark(const array_t *name_array) {
    mem_ref_t *saved =
        static_cast<mem_ref_t *>(mem_alloc((static_cast<size_t>(name_array->count) + 1) * sizeof(mem_ref_t)));
    u32 ordinal = 0;
    _db_image_walk(name_array, [&](mem_ref_t ref) {
        db_item_t *item = mem_ptr<db_item_t>(ref);
        saved[ordinal] = item->parent;
        item->parent = ordinal++;
    });
    return saved;
}

static void _db_image_restore(const array_t *name_array, mem_ref_t *saved) {
    u32 ordinal = 0;
    _db_image_walk(name_array, [&](mem_ref_t ref) { mem_ptr<db_item_t>(ref)->parent = saved[ordinal++]; });
    mem_free(saved);
}

// --- The head ----------------------------------------------------------------------------------------------

static void _db_image_write_index(bz2_stream_t *stream, const db_index_t *index) {
    bz2_write_vint(stream, index->type);
    bz2_write_u8(stream, index->out_of_date != 0);
    switch (index->type) {
    case DB_INDEX_TYPE_FILE_LIST: {
        const db_index_file_list_t *list = static_cast<const db_index_file_list_t *>(index);
        bz2_write_string(stream, list->filename);
        bz2_write_u64(stream, list->date_modified);
        break;
    }
    case DB_INDEX_TYPE_FOLDER: {
        const db_index_folder_t *folder = static_cast<const db_index_folder_t *>(index);
        bz2_write_string(stream, folder->path);
        bz2_write_u64(stream, folder->next_update);
        break;
    }
    default: {
        const db_index_volume_t *volume = static_cast<const db_index_volume_t *>(index);
        for (const char *text : {volume->guid, volume->path, volume->root, volume->include_only})
            bz2_write_string(stream, text);
        bz2_write_u64(stream, volume->journal_id);
        bz2_write_u64(stream, volume->next_usn);
    }
    }
}

static void _db_image_write_head(const db_t *db, bz2_stream_t *stream) {
    bz2_write_u32(stream, DB_IMAGE_MAGIC);
    bz2_write_u32(stream, DB_IMAGE_VERSION);
    bz2_write_u32(stream, db->layout.flags);
    bz2_write_u32(stream, db->folder_name_array.count);
    bz2_write_u32(stream, db->file_name_array.count);
    bz2_write_vint(stream, db->index_count);
    for (const db_index_t *index = db->index_first; index; index = index->next)
        _db_image_write_index(stream, index);
    const db_exclude_set_t *exclude = &db->exclude;
    bz2_write_u8(stream, static_cast<u8>((exclude->exclude_hidden ? DB_IMAGE_EXCLUDE_HIDDEN : 0) |
                                         (exclude->exclude_system ? DB_IMAGE_EXCLUDE_SYSTEM : 0)));
    for (const db_exclude_list_t *list :
         {&exclude->exclude_folders, &exclude->include_only_files, &exclude->exclude_files})
        db_exclude_write(stream, list);
}

// --- Records -----------------------------------------------------------------------------------------------

struct _db_image_writer_t {
    db_t *db;
    bz2_stream_t *stream;
    u32 folder_count;
    mem_ref_t *saved;     // the folders' parents
    const char *previous; // the name before
    u32 previous_length;
};

// The parent of an item as the file has it: an ordinal, or the number of its index behind them.
static u32 _db_image_parent(const _db_image_writer_t *writer, const db_item_t *item, mem_ref_t parent) {
    if (parent)
        return db_item(parent)->parent;
    return writer->folder_count + mem_ptr<db_index_t>(db_load_u32(db_item_index_word(item)))->ordinal;
}

static void _db_image_write_name(_db_image_writer_t *writer, const char *name, u32 length) {
    u32 shorter = length < writer->previous_length ? length : writer->previous_length;
    u32 shared = 0;
    while (shared < shorter && name[shared] == writer->previous[shared])
        shared++;
    // Nothing new means the same name; one that is only the start of the name before shares a byte less.
    if (shared == length && length != writer->previous_length && shared != 0)
        shared--;
    bz2_write_vint(writer->stream, length - shared);
    if (length != shared)
        bz2_write_vint(writer->stream, writer->previous_length - shared);
    bz2_write(writer->stream, name + shared, length - shared);
    writer->previous = name;
    writer->previous_length = length;
}

// The index of the folder's chain, by the table of parents: the words in the records hold ordinals.
static const db_index_t *_db_image_folder_index(const _db_image_writer_t *writer, const db_item_t *folder) {
    if (writer->db->index_count == 1)
        return writer->db->index_first;
    while (mem_ref_t parent = writer->saved[folder->parent])
        folder = db_item(parent);
    return mem_ptr<db_index_t>(db_load_u32(db_item_index_word(folder)));
}

static void _db_image_write_folders(_db_image_writer_t *writer) {
    db_t *db = writer->db;
    _db_image_walk(&db->folder_name_array, [&](mem_ref_t ref) {
        const db_item_t *folder = db_item(ref);
        bz2_write_u32(writer->stream, _db_image_parent(writer, folder, writer->saved[folder->parent]));
    });
    writer->previous = "";
    writer->previous_length = 0;
    _db_image_walk(&db->folder_name_array, [&](mem_ref_t ref) {
        const db_item_t *folder = db_item(ref);
        u32 length;
        const char *name = db_item_get_name(folder, &length);
        _db_image_write_name(writer, name, length);
        u32 frn_size = db_index_type_frn_size(_db_image_folder_index(writer, folder)->type);
        bz2_write(writer->stream, name + length, db->layout.folder_data_size + frn_size);
    });
}

static void _db_image_write_files(_db_image_writer_t *writer) {
    db_t *db = writer->db;
    writer->previous = "";
    writer->previous_length = 0;
    _db_image_walk_ahead(&db->file_name_array, true, [&](mem_ref_t ref) {
        const db_item_t *file = db_item(ref);
        u32 length;
        const char *name = db_item_get_name(file, &length);
        bz2_write_u32(writer->stream, _db_image_parent(writer, file, file->parent));
        _db_image_write_name(writer, name, length);
        bz2_write(writer->stream, name + length, db->layout.file_data_size);
    });
}

// --- Tables ------------------------------------------------------------------------------------------------

static void _db_image_write_table(bz2_stream_t *stream, const array_t *array) {
    _db_image_walk_ahead(array, false, [&](mem_ref_t ref) { bz2_write_u32(stream, db_item(ref)->parent); });
}

static void _db_image_write_tables(const db_t *db, bz2_stream_t *stream, const db_image_table_t *tables,
                                   u32 count) {
    for (u32 i = 0; i < count; i++) {
        if ((db->layout.flags & tables[i].flags) == tables[i].flags)
            _db_image_write_table(stream, &(db->*tables[i].array));
    }
}

void db_image_write(db_t *db, bz2_stream_t *stream) {
    _db_image_writer_t writer = {db, stream, db->folder_name_array.count, nullptr, nullptr, 0};
    _db_image_write_head(db, stream);
    writer.saved = _db_image_mark(&db->folder_name_array);
    _db_image_write_folders(&writer);
    _db_image_write_files(&writer);
    for (const array_t *numbers : {&db->folder_frn_array, &db->folder_frn128_array}) {
        bz2_write_u32(stream, numbers->count);
        _db_image_write_table(stream, numbers);
    }
    if (writer.folder_count != 0)
        _db_image_write_tables(db, stream, db_image_folder_tables, DB_IMAGE_FOLDER_TABLES);
    if (db->file_name_array.count != 0) {
        mem_ref_t *file_parents = _db_image_mark(&db->file_name_array);
        _db_image_write_tables(db, stream, db_image_file_tables, DB_IMAGE_FILE_TABLES);
        _db_image_restore(&db->file_name_array, file_parents);
    }
    _db_image_restore(&db->folder_name_array, writer.saved);
}

} // namespace findwright
