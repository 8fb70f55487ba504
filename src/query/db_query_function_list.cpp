// The lists that `ext:` and `filelist:` take: split, folded, and made ready to be looked up in.
#include "base/mem.h"
#include "base/utf8.h"
#include "query/db_query_internal.h"

#include <algorithm>
#include <cstring>

namespace findwright {

// --- Pieces ------------------------------------------------------------------------------------------------

// The pieces of a list, folded and one behind the other. `ends` is where each one ends.
struct _db_pieces_t {
    utf8_mode_t mode;
    utf8_buf_t texts;
    u32 *ends;
    u32 count;
};

static void _db_pieces_init(_db_pieces_t *pieces, utf8_mode_t mode, const char *text, char separator) {
    size_t most = 1;
    for (const char *p = text; *p; p++)
        most += *p == separator;
    pieces->mode = mode;
    utf8_buf_init(&pieces->texts);
    pieces->ends = static_cast<u32 *>(mem_alloc(most * sizeof(u32)));
    pieces->count = 0;
}

static void _db_pieces_kill(_db_pieces_t *pieces) {
    mem_free(pieces->ends);
    utf8_buf_kill(&pieces->texts);
}

static void _db_pieces_add(_db_pieces_t *pieces, const char *text, u32 length) {
    utf8_buf_t folded;
    utf8_buf_init(&folded);
    utf8_fold_pattern(pieces->mode, &folded, text, length);
    utf8_buf_cat_utf8(&pieces->texts, folded.data, static_cast<u32>(folded.length));
    utf8_buf_kill(&folded);
    pieces->ends[pieces->count++] = static_cast<u32>(pieces->texts.length);
}

template<class item_t>
static bool _db_item_is_less(const item_t &a, const item_t &b) {
    return utf8_compare(a.text, a.length, b.text, b.length) < 0;
}
template<class item_t>
static bool _db_item_is_equal(const item_t &a, const item_t &b) {
    return utf8_is_equal(a.text, a.length, b.text, b.length);
}

// A list whose items are the pieces in their order, each once, all in one block.
template<class list_t>
static list_t *_db_list_create(const _db_pieces_t *pieces) {
    using item_t = std::remove_reference_t<decltype(list_t::items[0])>;
    size_t items_size = sizeof(list_t) + pieces->count * sizeof(item_t);
    u32 length = static_cast<u32>(pieces->texts.length);
    list_t *list = static_cast<list_t *>(mem_alloc(items_size + length + 1));
    std::memset(static_cast<void *>(list), 0, items_size);
    char *texts = reinterpret_cast<char *>(list) + items_size;
    std::memcpy(texts, pieces->texts.data, length + 1);
    for (u32 i = 0, start = 0; i < pieces->count; start = pieces->ends[i++]) {
        list->items[i].text = texts + start;
        list->items[i].length = pieces->ends[i] - start;
    }
    item_t *end = list->items + pieces->count;
    std::sort(list->items, end, _db_item_is_less<item_t>);
    list->count = static_cast<u32>(std::unique(list->items, end, _db_item_is_equal<item_t>) - list->items);
    return list;
}

// --- Extensions --------------------------------------------------------------------------------------------

static void _db_extensions_free(db_term_data_t *data) {
    db_extensions_t *list = static_cast<db_extensions_t *>(data);
    db_text_table_kill(&list->table);
    if (list->keys)
        mem_free(list->keys);
    mem_free(list);
}

// The table of short extensions; other ones are for the general way.
static void _db_extensions_add_keys(db_extensions_t *list) {
    u32 bits = 4;
    while (list->count >= 1u << (bits - 2))
        bits++;
    size_t size = sizeof(u64) << bits;
    list->key_shift = 64 - bits;
    list->keys = static_cast<u64 *>(mem_alloc(size));
    std::memset(list->keys, 0, size);
    for (u32 i = 0; i < list->count; i++) {
        const db_extension_t &item = list->items[i];
        list->has_long |= item.length > DB_EXTENSION_KEY_MAX;
        if (item.length > DB_EXTENSION_KEY_MAX || !utf8_is_ascii(item.text, item.length))
            continue;
        u64 key = static_cast<u64>(item.length) << 56;
        std::memcpy(&key, item.text, item.length);
        u32 slot = db_extension_slot(list, key);
        while (list->keys[slot] != 0)
            slot = (slot + 1) & ((1u << bits) - 1);
        list->keys[slot] = key;
    }
}

db_extensions_t *db_extensions_create(utf8_mode_t mode, const char *text) {
    _db_pieces_t pieces;
    _db_pieces_init(&pieces, mode, text, ';');
    bool has_empty = false;
    for (;;) {
        u32 length = static_cast<u32>(std::strcspn(text, ";"));
        if (length != 0)
            _db_pieces_add(&pieces, text, length);
        else
            has_empty = true;
        text += length;
        if (!*text || !*++text) // what follows the last `;` is no extension
            break;
    }
    db_extensions_t *list = _db_list_create<db_extensions_t>(&pieces);
    _db_pieces_kill(&pieces);
    list->free = _db_extensions_free;
    list->has_empty = has_empty;
    db_text_table_init(&list->table, list->count);
    for (u32 i = 0; i < list->count; i++) {
        const db_extension_t &item = list->items[i];
        db_text_table_add(&list->table, item.text, item.length);
        u32 dots = static_cast<u32>(std::count(item.text, item.text + item.length, '.'));
        list->most_dots = dots > list->most_dots ? dots : list->most_dots;
    }
    if (list->most_dots == 0)
        _db_extensions_add_keys(list);
    return list;
}

// --- Names of a list of files ------------------------------------------------------------------------------

// What stands behind the last `\`. In a name, too: that of a top folder can be a path.
static const char *_db_get_last_name(const char *text, u32 *length) {
    const char *p = text + *length;
    while (p != text && p[-1] != '\\')
        p--;
    *length -= static_cast<u32>(p - text);
    return p;
}

static void _db_file_list_names_free(db_term_data_t *data) {
    db_file_list_names_t *list = static_cast<db_file_list_names_t *>(data);
    db_text_table_kill(&list->names);
    db_text_table_kill(&list->paths);
    db_text_table_kill(&list->last_names);
    mem_free(list);
}

static void _db_file_list_add_name(_db_pieces_t *pieces, const char *text, u32 length) {
    utf8_buf_t name;
    utf8_buf_init(&name);
    utf8_buf_copy_utf8(&name, text, length);
    std::replace(name.data, name.data + name.length, DB_TERM_LITERAL_BAR, '|');
    _db_pieces_add(pieces, name.data, length);
    utf8_buf_kill(&name);
}

db_file_list_names_t *db_file_list_names_create(utf8_mode_t mode, const char *text) {
    _db_pieces_t pieces;
    _db_pieces_init(&pieces, mode, text, '|');
    for (;; text++) {
        u32 length = static_cast<u32>(std::strcspn(text, "|"));
        if (length != 0) // no name is empty
            _db_file_list_add_name(&pieces, text, length);
        text += length;
        if (!*text)
            break;
    }
    db_file_list_names_t *list = _db_list_create<db_file_list_names_t>(&pieces);
    _db_pieces_kill(&pieces);
    list->free = _db_file_list_names_free;
    u32 path_count = 0;
    for (u32 i = 0; i < list->count; i++) {
        db_file_list_name_t &item = list->items[i];
        item.has_path = std::memchr(item.text, '\\', item.length) != nullptr;
        path_count += item.has_path;
    }
    db_text_table_init(&list->names, list->count - path_count);
    db_text_table_init(&list->paths, path_count);
    db_text_table_init(&list->last_names, path_count);
    for (u32 i = 0; i < list->count; i++) {
        const db_file_list_name_t &item = list->items[i];
        db_text_table_add(item.has_path ? &list->paths : &list->names, item.text, item.length);
        u32 length = item.length;
        const char *last = _db_get_last_name(item.text, &length);
        if (item.has_path)
            db_text_table_add(&list->last_names, last, length);
    }
    return list;
}

// A path is made for an item only whose name is the last one of a path in the list.
template<utf8_mode_t mode>
static bool _db_file_list_match(const db_file_list_names_t *list, const db_item_t *item, bool has_path,
                                utf8_buf_t *path) {
    u32 length;
    const char *name = db_item_get_name(item, &length);
    if (db_text_table_has<mode>(&list->names, name, length))
        return true;
    if (!has_path)
        return false;
    name = _db_get_last_name(name, &length);
    if (!db_text_table_has<mode>(&list->last_names, name, length))
        return false;
    db_item_get_full_path_name(path, item);
    return db_text_table_has<mode>(&list->paths, path->data, static_cast<u32>(path->length));
}

bool db_file_list_names_match(const db_file_list_names_t *list, utf8_mode_t mode, const db_item_t *item,
                              bool has_path, utf8_buf_t *path) {
    switch (mode) {
    case UTF8_MODE_FOLD: return _db_file_list_match<UTF8_MODE_FOLD>(list, item, has_path, path);
    case UTF8_MODE_KEEP_CASE: return _db_file_list_match<UTF8_MODE_KEEP_CASE>(list, item, has_path, path);
    case UTF8_MODE_LOWER: return _db_file_list_match<UTF8_MODE_LOWER>(list, item, has_path, path);
    case UTF8_MODE_EXACT: return _db_file_list_match<UTF8_MODE_EXACT>(list, item, has_path, path);
    default: return _db_file_list_match<UTF8_MODE_ASCII>(list, item, has_path, path);
    }
}

} // namespace findwright
