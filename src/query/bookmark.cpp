#include "query/bookmark.h"

#include "base/utf8.h"
#include "query/csv_table.h"
#include "query/db_sort_name.h"
#include "query/db_term.h"

#include <cstring>
#include <initializer_list>

namespace findwright {

bookmark_t *bookmark_head, *bookmark_tail;

// Where the links of a server's results lead to, when the file does not say.
static constexpr u32 LINK_TYPE_DEFAULT = 1;
static constexpr u32 INDEX_MAX = 255;

// The columns of the file, in its order.
enum _bookmark_column_t : u32 {
    COLUMN_NAME,
    COLUMN_CASE,
    COLUMN_WHOLE_WORD,
    COLUMN_PATH,
    COLUMN_DIACRITIC,
    COLUMN_REGEX,
    COLUMN_SORT,
    COLUMN_DESCENDING,
    COLUMN_FILTER,
    COLUMN_SEARCH,
    COLUMN_INDEX,
    COLUMN_FILE_LIST,
    COLUMN_HOST,
    COLUMN_LINK_TYPE,
    COLUMN_MACRO,
    COLUMN_KEY,
    COLUMN_VIEW,
    COLUMN_COUNT,
};
static_assert(COLUMN_COUNT <= CSV_TABLE_COLUMNS_MAX);
static constexpr const char *_column_names[COLUMN_COUNT] = {
    "Name",   "Case",  "Whole Word", "Path", "Diacritic", "Regex", "Sort", "Descending", "Filter",
    "Search", "Index", "File List",  "Host", "Link Type", "Macro", "Key",  "View"};
// Columns that hold a switch, and the bit that says that the value is stored.
static constexpr struct {
    _bookmark_column_t column;
    u32 value, has;
} _switch_columns[] = {
    {COLUMN_CASE, DB_MATCH_CASE, BOOKMARK_HAS_CASE},
    {COLUMN_WHOLE_WORD, DB_MATCH_WHOLE_WORD, BOOKMARK_HAS_WHOLE_WORD},
    {COLUMN_PATH, DB_MATCH_PATH, BOOKMARK_HAS_PATH},
    {COLUMN_DIACRITIC, DB_MATCH_DIACRITICS, BOOKMARK_HAS_DIACRITICS},
    {COLUMN_REGEX, DB_MATCH_REGEX, BOOKMARK_HAS_REGEX},
    {COLUMN_DESCENDING, BOOKMARK_DESCENDING, BOOKMARK_HAS_SORT},
};

// --- The list ----------------------------------------------------------------------------------------------

bookmark_t *bookmark_add(const char *name) {
    bookmark_t *bookmark = static_cast<bookmark_t *>(mem_alloc(sizeof *bookmark));
    *bookmark = {};
    bookmark->name = utf8_alloc_copy(name);
    for (char **text :
         {&bookmark->search, &bookmark->filter, &bookmark->macro, &bookmark->file_list, &bookmark->host})
        *text = utf8_alloc_copy("");
    bookmark->link_type = LINK_TYPE_DEFAULT;
    bookmark->prev = bookmark_tail;
    (bookmark_tail ? bookmark_tail->next : bookmark_head) = bookmark;
    bookmark_tail = bookmark;
    return bookmark;
}

void bookmark_remove(bookmark_t *bookmark) {
    (bookmark->prev ? bookmark->prev->next : bookmark_head) = bookmark->next;
    (bookmark->next ? bookmark->next->prev : bookmark_tail) = bookmark->prev;
    for (char *text : {bookmark->name, bookmark->search, bookmark->filter, bookmark->macro,
                       bookmark->file_list, bookmark->host})
        mem_free(text);
    mem_free(bookmark);
}

void bookmark_list_free() {
    while (bookmark_head)
        bookmark_remove(bookmark_head);
}

bookmark_t *bookmark_find_by_name(const char *name) {
    for (bookmark_t *bookmark = bookmark_head; bookmark; bookmark = bookmark->next) {
        if (std::strcmp(bookmark->name, name) == 0)
            return bookmark;
    }
    bookmark_t *bookmark = bookmark_head;
    while (bookmark && !csv_table_is_same_name(bookmark->name, name))
        bookmark = bookmark->next;
    return bookmark;
}

// --- The file ----------------------------------------------------------------------------------------------

static void _bookmark_read_texts(bookmark_t *bookmark, const csv_table_field_t *fields) {
    const struct {
        char **text;
        _bookmark_column_t column;
    } texts[] = {
        {&bookmark->search, COLUMN_SEARCH}, {&bookmark->filter, COLUMN_FILTER},
        {&bookmark->macro, COLUMN_MACRO},   {&bookmark->file_list, COLUMN_FILE_LIST},
        {&bookmark->host, COLUMN_HOST},
    };
    for (auto entry : texts)
        *entry.text = utf8_replace_string(*entry.text, fields[entry.column].text);
}

static void _bookmark_read_row(const csv_table_field_t *fields) {
    bookmark_t *bookmark = bookmark_add(fields[COLUMN_NAME].text);
    for (auto entry : _switch_columns) {
        bookmark->flags |= fields[entry.column].length != 0 ? entry.has : 0;
        bookmark->flags |= csv_table_is_one(&fields[entry.column]) ? entry.value : 0;
    }
    const struct {
        _bookmark_column_t column;
        u32 has;
    } stored[] = {
        {COLUMN_SORT, BOOKMARK_HAS_SORT},
        {COLUMN_FILTER, BOOKMARK_HAS_FILTER},
        {COLUMN_INDEX, BOOKMARK_HAS_INDEX},
        {COLUMN_VIEW, BOOKMARK_HAS_VIEW},
    };
    for (auto entry : stored)
        bookmark->flags |= fields[entry.column].length != 0 ? entry.has : 0;
    // An empty search is a search, too.
    bookmark->flags |= fields[COLUMN_SEARCH].is_there ? u32{BOOKMARK_HAS_SEARCH} : 0;
    _bookmark_read_texts(bookmark, fields);
    db_sort_find_name(fields[COLUMN_SORT].text, &bookmark->sort);
    u32 index = csv_table_get_number(&fields[COLUMN_INDEX]);
    bookmark->index = static_cast<u8>(index <= INDEX_MAX ? index : 0);
    bookmark->view = csv_table_get_number(&fields[COLUMN_VIEW]);
    if (fields[COLUMN_LINK_TYPE].length != 0)
        bookmark->link_type = csv_table_get_number(&fields[COLUMN_LINK_TYPE]);
    csv_table_get_key(&fields[COLUMN_KEY], &bookmark->key_modifiers, &bookmark->key_code);
}

void bookmark_list_load(const char *filename) {
    bookmark_list_free();
    csv_table_t table;
    if (!csv_table_open(&table, filename, _column_names, COLUMN_COUNT))
        return;
    while (csv_table_next(&table)) {
        if (table.fields[COLUMN_NAME].length != 0)
            _bookmark_read_row(table.fields);
    }
    csv_table_close(&table);
}

static void _bookmark_put_switch(file_writer_t *writer, const bookmark_t *bookmark, u32 column) {
    for (auto entry : _switch_columns) {
        if (entry.column == column && bookmark->flags & entry.has)
            file_writer_put(writer, bookmark->flags & entry.value ? '1' : '0');
    }
}

static void _bookmark_put_text(file_writer_t *writer, const char *text, bool is_stored) {
    if (is_stored)
        csv_table_put_text(writer, text);
}

static void _bookmark_put_number(file_writer_t *writer, u32 number, bool is_stored) {
    if (is_stored)
        file_writer_printf(writer, "%u", number);
}

static void _bookmark_put(file_writer_t *writer, const bookmark_t *bookmark, u32 column) {
    u32 flags = bookmark->flags;
    switch (column) {
    case COLUMN_NAME: csv_table_put_text(writer, bookmark->name); break;
    case COLUMN_SORT:
        if (flags & BOOKMARK_HAS_SORT)
            file_writer_puts(writer, db_sort_get_name(bookmark->sort));
        break;
    case COLUMN_FILTER: _bookmark_put_text(writer, bookmark->filter, flags & BOOKMARK_HAS_FILTER); break;
    case COLUMN_SEARCH: _bookmark_put_text(writer, bookmark->search, flags & BOOKMARK_HAS_SEARCH); break;
    case COLUMN_INDEX: _bookmark_put_number(writer, bookmark->index, flags & BOOKMARK_HAS_INDEX); break;
    case COLUMN_FILE_LIST: csv_table_put_text(writer, bookmark->file_list); break;
    case COLUMN_HOST: csv_table_put_text(writer, bookmark->host); break;
    case COLUMN_LINK_TYPE: _bookmark_put_number(writer, bookmark->link_type, true); break;
    case COLUMN_MACRO: _bookmark_put_text(writer, bookmark->macro, *bookmark->macro != 0); break;
    case COLUMN_KEY: csv_table_put_key(writer, bookmark->key_modifiers, bookmark->key_code); break;
    case COLUMN_VIEW: _bookmark_put_number(writer, bookmark->view, flags & BOOKMARK_HAS_VIEW); break;
    default: _bookmark_put_switch(writer, bookmark, column); break;
    }
}

void bookmark_list_write(file_writer_t *writer) {
    csv_table_put_header(writer, _column_names, COLUMN_COUNT);
    for (const bookmark_t *bookmark = bookmark_head; bookmark; bookmark = bookmark->next) {
        for (u32 column = 0; column < COLUMN_COUNT; column++) {
            if (column != 0)
                file_writer_put(writer, ',');
            _bookmark_put(writer, bookmark, column);
        }
        file_writer_puts(writer, "\r\n");
    }
}

bool bookmark_list_save(const char *filename) {
    return csv_table_save(filename, bookmark_list_write);
}

} // namespace findwright
