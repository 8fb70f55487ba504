// A search below a folder looks only at what lies below it: in the path arrays those items stand side by
// side.
//
// Folders stand there by their own full path, files by their folder's path and then their name, both in the
// order of folded text. So what lies below the folder P are the folders and files whose (own or folder's)
// path begins with `P\`, and the files whose folder's path is P: two runs, found by binary search. Other
// folders whose paths fold to the same text stand between them; the term itself decides on each item
// afterwards.
#include "base/mem.h"
#include "base/utf8.h"
#include "base/utf8_match.h"
#include "query/db_query_internal.h"
#include "query/db_search.h"

#include <algorithm>
#include <cstring>

namespace findwright {

// Narrowing pays while it leaves at most this part of the array, since it sorts what is left.
static constexpr u32 NARROW_PART = 32;
static constexpr u32 NARROW_ANCHORS_MAX = 64;

struct _db_narrow_t {
    const array_t *paths; // in path order
    bool is_folder;
    u32 limit; // values
    u32 count;
    u32 *values;
    utf8_buf_t path;
};

// --- Runs --------------------------------------------------------------------------------------------------

// The path by which an item stands in the array: a folder's own, a file's folder's.
static void _db_narrow_get_path(_db_narrow_t *narrow, u32 value) {
    if (narrow->is_folder)
        db_item_get_full_path_name(&narrow->path, db_item(value));
    else
        db_item_get_path(&narrow->path, db_item(value));
}

// The first index whose path does not stand in front of a bound: the text itself, or what comes behind all
// paths that begin with it.
static u32 _db_narrow_find(_db_narrow_t *narrow, const char *text, u32 length, bool behind_prefix) {
    u32 low = 0, high = narrow->paths->count;
    while (low < high) {
        u32 middle = low + (high - low) / 2;
        u32 page;
        i32 position;
        _db_narrow_get_path(narrow, array_get(narrow->paths, middle, &page, &position));
        const char *path = narrow->path.data;
        u32 size = static_cast<u32>(narrow->path.length);
        bool in_front = utf8_compare_fold(path, size, text, length) < 0;
        if (!in_front && behind_prefix)
            in_front = utf8_starts_with<UTF8_MODE_FOLD>(path, size, text, length) != UTF8_NO_MATCH;
        if (in_front)
            low = middle + 1;
        else
            high = middle;
    }
    return low;
}

// Adds the items from one index to another; false when they are too many.
static bool _db_narrow_add(_db_narrow_t *narrow, u32 first, u32 end) {
    if (end - first > narrow->limit - narrow->count)
        return false;
    u32 page;
    i32 position;
    u32 value = first < end ? array_get(narrow->paths, first, &page, &position) : 0;
    for (u32 i = first; i < end; i++) {
        narrow->values[narrow->count++] = value;
        value = array_next(narrow->paths, &page, &position);
    }
    return true;
}

// Items whose path begins with a text.
static bool _db_narrow_add_prefix(_db_narrow_t *narrow, const char *text, u32 length) {
    u32 first = _db_narrow_find(narrow, text, length, false);
    return _db_narrow_add(narrow, first, _db_narrow_find(narrow, text, length, true));
}

// Files in the folder with that path itself. `text` has room for one more character behind it.
static bool _db_narrow_add_folder(_db_narrow_t *narrow, const utf8_buf_t *folder) {
    u32 length = static_cast<u32>(folder->length);
    u32 first = _db_narrow_find(narrow, folder->data, length, false);
    u32 end = first;
    // Equal paths stand at the start of those that begin with it.
    u32 high = _db_narrow_find(narrow, folder->data, length, true);
    while (end < high) {
        u32 middle = end + (high - end) / 2;
        u32 page;
        i32 position;
        _db_narrow_get_path(narrow, array_get(narrow->paths, middle, &page, &position));
        if (utf8_compare_fold(narrow->path.data, static_cast<u32>(narrow->path.length), folder->data,
                              length) == 0)
            end = middle + 1;
        else
            high = middle;
    }
    return _db_narrow_add(narrow, first, end);
}

// --- Terms -------------------------------------------------------------------------------------------------

// The folded form of a text, for the search by folded paths.
static void _db_narrow_fold(utf8_buf_t *out, const char *text, u32 length) {
    utf8_fold_pattern(UTF8_MODE_FOLD, out, text, length);
}

static bool _db_narrow_to_folder(_db_narrow_t *narrow, mem_ref_t folder, bool with_itself) {
    utf8_buf_t path, folded;
    utf8_buf_init(&path);
    utf8_buf_init(&folded);
    db_item_get_full_path_name(&path, db_item(folder));
    _db_narrow_fold(&folded, path.data, static_cast<u32>(path.length));
    bool fits = narrow->is_folder || _db_narrow_add_folder(narrow, &folded);
    utf8_buf_cat_byte(&folded, '\\');
    fits = fits && _db_narrow_add_prefix(narrow, folded.data, static_cast<u32>(folded.length));
    if (fits && with_itself && narrow->is_folder) {
        fits = narrow->count < narrow->limit;
        if (fits)
            narrow->values[narrow->count++] = folder;
    }
    utf8_buf_kill(&folded);
    utf8_buf_kill(&path);
    return fits;
}

static bool _db_narrow_to_anchors(_db_narrow_t *narrow, const db_anchors_t *anchors) {
    if (anchors->file_count != 0 || anchors->inner_count + anchors->outer_count > NARROW_ANCHORS_MAX)
        return false;
    bool fits = true;
    for (u32 i = 0; fits && i < anchors->inner_count; i++)
        fits = _db_narrow_to_folder(narrow, anchors->inner[i], false);
    for (u32 i = 0; fits && i < anchors->outer_count; i++)
        fits = _db_narrow_to_folder(narrow, anchors->outer[i], true);
    return fits;
}

// An absolute path without a final separator: what lies in its folder (the term picks the names), and what
// lies below the folders that the text begins.
static bool _db_narrow_to_path(_db_narrow_t *narrow, const db_exec_term_t *term) {
    utf8_buf_t text, folder;
    utf8_buf_init(&text);
    utf8_buf_init(&folder);
    _db_narrow_fold(&text, term->text, term->text_length);
    const char *separator = std::strrchr(text.data, '\\');
    bool fits = separator && separator != text.data;
    if (fits && !narrow->is_folder) {
        utf8_buf_copy_utf8(&folder, text.data, static_cast<u32>(separator - text.data));
        fits = _db_narrow_add_folder(narrow, &folder);
    }
    fits = fits && _db_narrow_add_prefix(narrow, text.data, static_cast<u32>(text.length));
    utf8_buf_kill(&folder);
    utf8_buf_kill(&text);
    return fits;
}

static bool _db_narrow_to_term(_db_narrow_t *narrow, const db_exec_term_t *term) {
    db_op_parts_t parts = db_op_decode(term->op);
    if (parts.negated)
        return false;
    switch (parts.family) {
    case DB_OP_ANCHORS:
    case DB_OP_ANCHORS_INNER:
    case DB_OP_ANCHORS_OUTER:
    case DB_OP_ANCHOR_INNER:
    case DB_OP_ANCHOR_OUTER:
        return _db_narrow_to_anchors(narrow, static_cast<const db_anchors_t *>(term->data));
    case DB_OP_STARTS_WITH: return parts.path && term->has_separator && _db_narrow_to_path(narrow, term);
    default: return false;
    }
}

// --- Name order --------------------------------------------------------------------------------------------

static constexpr u32 KEY_CHARACTERS = 8;

// The first characters of the folded name, so that they compare as the names do as far as they tell. A
// character above ASCII, and one that is malformed, is the last that a key tells of.
static u64 _db_narrow_get_key(mem_ref_t value) {
    u32 length;
    const char *name = db_item_get_name(db_item(value), &length);
    const char *end = name + length;
    u64 key = 0;
    for (u32 i = 0; i < KEY_CHARACTERS && name != end; i++) {
        u32 c;
        name += utf8_decode(name, end, &c);
        c = utf8_to_fold(c);
        u32 shift = 8 * (KEY_CHARACTERS - 1 - i);
        if (c == 0)
            break;
        key |= static_cast<u64>(c < 0x80 ? c : 0xFF) << shift;
        if (c >= 0x80)
            break;
    }
    return key;
}

struct _db_narrow_key_t {
    u64 key;
    mem_ref_t value;
};

// Sorts the items by name, drops repeated ones, and returns how many are left.
static u32 _db_narrow_sort(u32 *values, u32 count) {
    _db_narrow_key_t *keys = static_cast<_db_narrow_key_t *>(mem_alloc((count + 1) * sizeof *keys));
    for (u32 i = 0; i < count; i++)
        keys[i] = {_db_narrow_get_key(values[i]), values[i]};
    std::sort(keys, keys + count, [](const _db_narrow_key_t &a, const _db_narrow_key_t &b) {
        if (a.key != b.key)
            return a.key < b.key;
        return a.value != b.value && db_item_compare_name(db_item(a.value), db_item(b.value)) < 0;
    });
    u32 kept = 0;
    for (u32 i = 0; i < count; i++) {
        if (kept == 0 || values[kept - 1] != keys[i].value)
            values[kept++] = keys[i].value;
    }
    mem_free(keys);
    return kept;
}

bool db_search_narrow(const db_query_t *query, const db_exec_term_t *first_term, bool is_folder,
                      array_t *narrowed) {
    db_array_pair_t paths = db_get_sorted_arrays(query->db, DB_FLAG_FAST_PATH);
    const array_t *array = is_folder ? paths.folders : paths.files;
    if (!array || array->count < NARROW_PART)
        return false;
    _db_narrow_t narrow;
    narrow.paths = array;
    narrow.is_folder = is_folder;
    narrow.limit = array->count / NARROW_PART;
    narrow.values = static_cast<u32 *>(mem_alloc(narrow.limit * sizeof(u32)));
    utf8_buf_init(&narrow.path);
    bool fits = false;
    // Terms that must match, whatever the others do.
    for (const db_exec_term_t *term = first_term; !fits && term && !term->notnext; term = term->next) {
        narrow.count = 0;
        fits = _db_narrow_to_term(&narrow, term);
    }
    if (fits) {
        array_init(narrowed);
        array_set_from_memory(narrowed, narrow.values, _db_narrow_sort(narrow.values, narrow.count));
    }
    utf8_buf_kill(&narrow.path);
    mem_free(narrow.values);
    return fits;
}

} // namespace findwright
