#include "query/search_history.h"

#include "base/pointer_pool.h"
#include "base/utf8.h"
#include "base/utf8_buf.h"
#include "base/utf8_match.h"
#include "os/debug.h"
#include "os/os.h"
#include "query/csv_table.h"

#include <algorithm>
#include <cstring>

namespace findwright {

search_history_t *search_history;

static constexpr u64 TICKS_PER_DAY = 864000000000; // of a file time

enum _search_history_column_t : u32 { COLUMN_SEARCH, COLUMN_COUNT, COLUMN_DATE, COLUMNS };
static constexpr const char *_column_names[COLUMNS] = {"Search", "Search Count", "Last Search Date"};

using _item_t = search_history_item_t;

// --- Items and orders --------------------------------------------------------------------------------------

static size_t _search_history_item_size(u32 length) {
    return offsetof(_item_t, search) + length + 1;
}

static _item_t *_search_history_new_item(const char *search, u32 length, u32 count, u64 date) {
    _item_t *item = static_cast<_item_t *>(mem_arena_alloc(_search_history_item_size(length)));
    item->date = date;
    item->count = count;
    item->search_length = length;
    std::memcpy(item->search, search, length);
    item->search[length] = 0;
    return item;
}

static void _search_history_free_item(_item_t *item) {
    mem_arena_free(item, _search_history_item_size(item->search_length));
}

static int _search_history_order(u64 a, u64 b) { // the greater one first
    return a > b ? -1 : a < b ? 1 : 0;
}

static int _search_history_compare_bytes(const _item_t *a, const _item_t *b) {
    return utf8_compare(a->search, a->search_length, b->search, b->search_length);
}

static int _search_history_compare_count(u32 value, const void *key) {
    const _item_t *a = mem_ptr<_item_t>(value), *b = static_cast<const _item_t *>(key);
    int order = _search_history_order(a->count, b->count);
    order = order ? order : _search_history_order(a->date, b->date);
    return order ? order : _search_history_compare_bytes(a, b);
}

static int _search_history_compare_date(u32 value, const void *key) {
    const _item_t *a = mem_ptr<_item_t>(value), *b = static_cast<const _item_t *>(key);
    int order = _search_history_order(a->date, b->date);
    order = order ? order : _search_history_order(a->count, b->count);
    return order ? order : _search_history_compare_bytes(a, b);
}

struct _text_t {
    const char *text;
    u32 length;
};
static int _search_history_compare_text(u32 value, const void *key) {
    const _item_t *a = mem_ptr<_item_t>(value);
    const _text_t *b = static_cast<const _text_t *>(key);
    return utf8_compare_lower(a->search, a->search_length, b->text, b->length);
}

static int _search_history_sort_count(u32 a, u32 b) {
    return _search_history_compare_count(a, mem_ptr<_item_t>(b));
}
static int _search_history_sort_date(u32 a, u32 b) {
    return _search_history_compare_date(a, mem_ptr<_item_t>(b));
}
// Of those with one text the newest comes first: it is the one that stays.
static int _search_history_sort_search(u32 a, u32 b) {
    const _item_t *item = mem_ptr<_item_t>(b);
    const _text_t text = {item->search, item->search_length};
    int order = _search_history_compare_text(a, &text);
    return order ? order : _search_history_sort_date(a, b);
}

// --- Life --------------------------------------------------------------------------------------------------

static void _search_history_free_items() {
    u32 page = 0;
    i32 position = -1;
    while (u32 value = array_next(&search_history->by_search, &page, &position))
        _search_history_free_item(mem_ptr<_item_t>(value));
}

void search_history_free() {
    if (!search_history)
        return;
    _search_history_free_items();
    array_kill(&search_history->by_search);
    array_kill(&search_history->by_count);
    array_kill(&search_history->by_date);
    if (search_history->last_search)
        mem_free(search_history->last_search);
    mem_free(search_history);
    search_history = nullptr;
}

static void _search_history_create() {
    search_history_free();
    search_history = static_cast<search_history_t *>(mem_alloc(sizeof *search_history));
    *search_history = {};
    array_init(&search_history->by_search);
    array_init(&search_history->by_count);
    array_init(&search_history->by_date);
}

// Frees each item that repeats the text in front of it; the number of those that stay.
static u32 _search_history_drop_repeated(u32 *values, u32 count) {
    u32 kept = 0;
    for (u32 i = 0; i < count; i++) {
        _item_t *item = mem_ptr<_item_t>(values[i]);
        const _text_t text = {item->search, item->search_length};
        if (kept != 0 && _search_history_compare_text(values[kept - 1], &text) == 0)
            _search_history_free_item(item);
        else
            values[kept++] = values[i];
    }
    return kept;
}

// Fills the empty arrays with the items of a table in any order, which it takes over.
static void _search_history_fill(const pointer_pool_t *items) {
    u32 count = pointer_pool_count(items);
    u32 *values = static_cast<u32 *>(mem_alloc((count + size_t{1}) * sizeof *values));
    pointer_pool_copy(items, values);
    os_qsort(values, count, _search_history_sort_search);
    count = _search_history_drop_repeated(values, count);
    array_set_from_memory(&search_history->by_search, values, count);
    os_qsort(values, count, _search_history_sort_count);
    array_set_from_memory(&search_history->by_count, values, count);
    os_qsort(values, count, _search_history_sort_date);
    array_set_from_memory(&search_history->by_date, values, count);
    mem_free(values);
}

// --- The file ----------------------------------------------------------------------------------------------

static u64 _search_history_get_limit(u32 days_to_keep) {
    u64 now = os_get_file_time(), age = days_to_keep * TICKS_PER_DAY;
    return days_to_keep == 0 || days_to_keep > now / TICKS_PER_DAY ? 0 : now - age;
}

void search_history_load(const char *filename, u32 days_to_keep) {
    _search_history_create();
    csv_table_t table;
    if (!csv_table_open(&table, filename, _column_names, COLUMNS))
        return;
    u64 limit = _search_history_get_limit(days_to_keep);
    pointer_pool_t items;
    pointer_pool_init(&items);
    while (csv_table_next(&table)) {
        const csv_table_field_t *fields = table.fields;
        u64 date = utf8_to_uint64(fields[COLUMN_DATE].text, fields[COLUMN_DATE].length);
        if (fields[COLUMN_SEARCH].length == 0 || date < limit)
            continue;
        pointer_pool_push(
            &items, mem_ref(_search_history_new_item(fields[COLUMN_SEARCH].text, fields[COLUMN_SEARCH].length,
                                                     csv_table_get_number(&fields[COLUMN_COUNT]), date)));
    }
    csv_table_close(&table);
    _search_history_fill(&items);
    pointer_pool_kill(&items);
}

void search_history_write(file_writer_t *writer) {
    csv_table_put_header(writer, _column_names, COLUMNS);
    u32 page = 0;
    i32 position = -1;
    while (u32 value = array_next(&search_history->by_search, &page, &position)) {
        const _item_t *item = mem_ptr<_item_t>(value);
        csv_table_put_text(writer, item->search);
        file_writer_printf(writer, ",%u,%I64u\r\n", item->count, item->date);
    }
}

bool search_history_save(const char *filename) {
    if (!search_history)
        return true;
    bool saved = csv_table_save(filename, search_history_write);
    if (saved)
        search_history->dirty = 0;
    return saved;
}

// --- Changes -----------------------------------------------------------------------------------------------

static void _search_history_insert_ranks(_item_t *item) {
    array_insert(&search_history->by_count, _search_history_compare_count, item, mem_ref(item));
    array_insert(&search_history->by_date, _search_history_compare_date, item, mem_ref(item));
}

void search_history_add(const char *search) {
    if (!search_history || !*search)
        return;
    if (search_history->last_search && std::strcmp(search, search_history->last_search) == 0)
        return;
    u64 now = os_get_file_time();
    const _text_t text = {search, utf8_length(search)};
    u32 value = array_find(&search_history->by_search, _search_history_compare_text, &text);
    _item_t *item = value ? mem_ptr<_item_t>(value) : _search_history_new_item(search, text.length, 1, now);
    if (value) {
        if (!array_remove(&search_history->by_count, _search_history_compare_count, item))
            debug_fatal("missing search history count");
        if (!array_remove(&search_history->by_date, _search_history_compare_date, item))
            debug_fatal("missing search history date");
        item->count += item->count != 0xFFFFFFFF;
        item->date = now;
    } else {
        array_insert(&search_history->by_search, _search_history_compare_text, &text, mem_ref(item));
    }
    _search_history_insert_ranks(item);
    search_history->dirty = 1;
    search_history->last_search = utf8_replace_string(search_history->last_search, search);
}

void search_history_remove(const char *search) {
    if (!search_history)
        return;
    const _text_t text = {search, utf8_length(search)};
    u32 value = array_remove(&search_history->by_search, _search_history_compare_text, &text);
    if (!value)
        return;
    _item_t *item = mem_ptr<_item_t>(value);
    if (!array_remove(&search_history->by_count, _search_history_compare_count, item) ||
        !array_remove(&search_history->by_date, _search_history_compare_date, item))
        debug_fatal("corrupt search history count");
    _search_history_free_item(item);
    search_history->dirty = 1;
}

// --- Suggestions -------------------------------------------------------------------------------------------

static bool _search_history_begins(const _item_t *item, const utf8_buf_t *folded) {
    return utf8_starts_with<UTF8_MODE_FOLD>(item->search, item->search_length, folded->data,
                                            static_cast<u32>(folded->length)) != UTF8_NO_MATCH;
}

static bool _search_history_has_words(const _item_t *item, const utf8_buf_t *folded) {
    const char *end = folded->data + folded->length;
    for (const char *word = folded->data; word != end;) {
        const char *word_end = std::find_if(word, end, utf8_is_white_space);
        if (!utf8_find<UTF8_MODE_FOLD>(item->search, item->search_length, word,
                                       static_cast<u32>(word_end - word)))
            return false;
        word = std::find_if_not(word_end, end, utf8_is_white_space);
    }
    return true;
}

search_history_texts_t search_history_suggest(const char *text, search_history_kind_t kind, u32 max) {
    if (!search_history)
        return {nullptr, 0};
    const array_t *array = kind == SEARCH_HISTORY_BY_SEARCH  ? &search_history->by_search
                           : kind == SEARCH_HISTORY_BY_COUNT ? &search_history->by_count
                                                             : &search_history->by_date;
    max = std::min(max, array->count);
    search_history_texts_t out = {static_cast<char **>(mem_alloc((max + size_t{1}) * sizeof(char *))), 0};
    utf8_buf_t folded;
    utf8_buf_init(&folded);
    utf8_fold_pattern(UTF8_MODE_FOLD, &folded, text, utf8_length(text));
    for (bool by_words : {false, true}) {
        u32 page = 0, value;
        i32 position = -1;
        while (out.count < max && (value = array_next(array, &page, &position)) != 0) {
            const _item_t *item = mem_ptr<_item_t>(value);
            bool begins = _search_history_begins(item, &folded);
            if (by_words ? !begins && _search_history_has_words(item, &folded) : begins)
                out.texts[out.count++] = utf8_alloc_copy_length(item->search, item->search_length);
        }
    }
    utf8_buf_kill(&folded);
    return out;
}

void search_history_texts_free(search_history_texts_t *texts) {
    for (u32 i = 0; i < texts->count; i++)
        mem_free(texts->texts[i]);
    if (texts->texts)
        mem_free(texts->texts);
    *texts = {nullptr, 0};
}

// --- The working copy --------------------------------------------------------------------------------------

void search_history_get_items(search_history_list_t *list) {
    *list = {nullptr, 0};
    if (!search_history)
        return;
    u32 count = search_history->by_search.count, page = 0;
    list->entries =
        static_cast<search_history_entry_t *>(mem_alloc((count + size_t{1}) * sizeof *list->entries));
    i32 position = -1;
    while (u32 value = array_next(&search_history->by_search, &page, &position)) {
        const _item_t *item = mem_ptr<_item_t>(value);
        list->entries[list->count++] = {utf8_alloc_copy_length(item->search, item->search_length), item->date,
                                        item->count};
    }
}

void search_history_set_items(const search_history_list_t *list) {
    if (!search_history)
        return;
    _search_history_free_items();
    pointer_pool_t items;
    pointer_pool_init(&items);
    for (u32 i = 0; i < list->count; i++) {
        const search_history_entry_t *entry = &list->entries[i];
        u32 length = utf8_length(entry->search);
        if (length != 0)
            pointer_pool_push(
                &items, mem_ref(_search_history_new_item(entry->search, length, entry->count, entry->date)));
    }
    _search_history_fill(&items);
    pointer_pool_kill(&items);
    search_history->dirty = 1;
}

void search_history_list_free(search_history_list_t *list) {
    for (u32 i = 0; i < list->count; i++)
        mem_free(list->entries[i].search);
    if (list->entries)
        mem_free(list->entries);
    *list = {nullptr, 0};
}

} // namespace findwright
