#include "db/db_item.h"

#include "base/mem.h"
#include "base/utf8.h"
#include "db/db_index.h"

namespace findwright {

const db_item_t *db_get_root(const db_item_t *item) {
    while (!db_item_is_top(item))
        item = db_item(item->parent);
    return item;
}

db_index_t *db_get_index(const db_item_t *item) {
    return mem_ptr<db_index_t>(db_load_u32(db_item_index_word(db_get_root(item))));
}

db_item_t *db_item_write_head(char *block, mem_ref_t parent, bool has_index, mem_ref_t index,
                              const char *name, u32 name_length) {
    if (has_index) {
        db_store_u32(block, index);
        block += 4;
    }
    if (name_length >= DB_ITEM_LONG_NAME) {
        db_store_u32(block, name_length);
        block += 4;
    }
    db_item_t *item = reinterpret_cast<db_item_t *>(block);
    item->parent = parent;
    item->name_length = static_cast<u8>(name_length < DB_ITEM_LONG_NAME ? name_length : DB_ITEM_LONG_NAME);
    if (name_length != 0)
        std::memcpy(block + DB_ITEM_HEAD, name, name_length);
    return item;
}

// --- Paths -------------------------------------------------------------------------------------------------

void db_get_full_path_name(utf8_buf_t *out, mem_ref_t parent, const char *name, u32 length) {
    u32 total = length;
    for (mem_ref_t ref = parent; ref >= MEM_REF_FIRST; ref = db_item(ref)->parent)
        total += 1 + db_item_get_name_length(db_item(ref));
    if (static_cast<u32>(out->capacity) <= total)
        utf8_buf_grow_empty(out, total + 1);
    char *end = out->data + total;
    *end = 0;
    out->length = static_cast<i32>(total);
    end -= length;
    std::memcpy(end, name, length);
    for (mem_ref_t ref = parent; ref >= MEM_REF_FIRST; ref = db_item(ref)->parent) {
        *--end = '\\';
        u32 part_length;
        const char *part = db_item_get_name(db_item(ref), &part_length);
        end -= part_length;
        std::memcpy(end, part, part_length);
    }
}

void db_item_get_path(utf8_buf_t *out, const db_item_t *item) {
    if (db_item_is_top(item)) {
        utf8_buf_empty(out);
        return;
    }
    db_item_get_full_path_name(out, db_item(item->parent));
}

void db_get_full_path_name_lower(utf8_buf_t *out, mem_ref_t parent, const char *name, u32 length) {
    db_get_full_path_name(out, parent, name, length);
    utf8_buf_lower(out);
}

// --- Orders ------------------------------------------------------------------------------------------------

int db_name_compare_level(db_level_t level, const char *a, u32 n, const char *b, u32 m) {
    switch (level) {
    case DB_LEVEL_FOLD: return utf8_compare_fold(a, n, b, m);
    case DB_LEVEL_LOWER: return utf8_compare_lower(a, n, b, m);
    default: return utf8_compare(a, n, b, m);
    }
}

// The folders of a chain, topmost first, on the stack up to a depth that is hardly ever passed.
struct _db_chain_t {
    static constexpr u32 INLINE_DEPTH = 256;
    const db_item_t *inline_items[INLINE_DEPTH];
    const db_item_t **items = inline_items;
    u32 count = 0;

    // The chain of `folder` up to, but not including, the ancestor at distance `depth`.
    _db_chain_t(const db_item_t *folder, u32 depth) {
        if (depth > INLINE_DEPTH)
            items = static_cast<const db_item_t **>(mem_alloc(depth * sizeof *items));
        count = depth;
        for (u32 i = depth; i-- != 0; folder = db_item(folder->parent))
            items[i] = folder;
    }
    ~_db_chain_t() {
        if (items != inline_items)
            mem_free(items);
    }
    _db_chain_t(const _db_chain_t &) = delete;
    _db_chain_t &operator=(const _db_chain_t &) = delete;
};

static u32 _db_chain_depth(const db_item_t *folder) {
    u32 depth = 1;
    for (; !db_item_is_top(folder); folder = db_item(folder->parent))
        depth++;
    return depth;
}

// Reads a chain as one text, one code point (or byte) at a time, with `\` between components.
template<db_level_t level>
struct _db_chain_reader_t {
    const _db_chain_t *chain;
    u32 component = 0;
    const char *text;
    const char *end;

    explicit _db_chain_reader_t(const _db_chain_t *from) : chain(from) { open(); }
    void open() {
        u32 length;
        text = db_item_get_name(chain->items[component], &length);
        end = text + length;
    }
    // The next character's value, or -1 at the end.
    i32 next() {
        if (text == end) {
            if (component + 1 >= chain->count)
                return -1;
            component++;
            open();
            return '\\';
        }
        if constexpr (level == DB_LEVEL_BYTES)
            return *text++;
        if (*text < 0x80)
            return utf8_lower_ascii[*text++];
        u32 value;
        text += utf8_decode(text, end, &value);
        return static_cast<i32>(level == DB_LEVEL_FOLD ? utf8_to_fold(value) : utf8_to_lower(value));
    }
};

template<db_level_t level>
static int _db_folder_compare(const db_item_t *a, const db_item_t *b) {
    if (a == b)
        return 0;
    if (a->parent == b->parent) { // siblings, or both at the top
        u32 n, m;
        const char *a_name = db_item_get_name(a, &n), *b_name = db_item_get_name(b, &m);
        return db_name_compare_level(level, a_name, n, b_name, m);
    }
    // What lies above the nearest common ancestor is equal in both and need not be read.
    u32 a_depth = _db_chain_depth(a), b_depth = _db_chain_depth(b);
    const db_item_t *x = a, *y = b;
    u32 a_count = a_depth, b_count = b_depth;
    for (; a_count > b_count; a_count--)
        x = db_item(x->parent);
    for (; b_count > a_count; b_count--)
        y = db_item(y->parent);
    u32 common = a_count;
    for (; common != 0 && x != y; common--) {
        if (common == 1) {
            common = 0;
            break;
        }
        x = db_item(x->parent);
        y = db_item(y->parent);
    }
    if (common == a_depth || common == b_depth) // one is an ancestor of the other
        return a_depth < b_depth ? -1 : 1;
    _db_chain_t a_chain(a, a_depth - common), b_chain(b, b_depth - common);
    _db_chain_reader_t<level> a_reader(&a_chain), b_reader(&b_chain);
    for (;;) {
        i32 p = a_reader.next(), q = b_reader.next();
        if (p != q)
            return p - q;
        if (p < 0)
            return 0;
    }
}

int db_folder_compare_path_fold(const db_item_t *a, const db_item_t *b) {
    return _db_folder_compare<DB_LEVEL_FOLD>(a, b);
}
int db_folder_compare_path_lower(const db_item_t *a, const db_item_t *b) {
    return _db_folder_compare<DB_LEVEL_LOWER>(a, b);
}
int db_folder_compare_path_bytes(const db_item_t *a, const db_item_t *b) {
    return _db_folder_compare<DB_LEVEL_BYTES>(a, b);
}

int db_folder_compare_below(const db_item_t *folder, const db_item_t *top) {
    _db_chain_t chain(folder, _db_chain_depth(folder)), top_chain(top, _db_chain_depth(top));
    _db_chain_reader_t<DB_LEVEL_FOLD> reader(&chain), top_reader(&top_chain);
    for (;;) {
        i32 p = reader.next(), q = top_reader.next();
        if (q < 0)
            return p < '\\' ? -1 : p > '\\';
        if (p != q)
            return p < q ? -1 : 1;
    }
}

static int _db_folder_compare_level(db_level_t level, const db_item_t *a, const db_item_t *b) {
    switch (level) {
    case DB_LEVEL_FOLD: return db_folder_compare_path_fold(a, b);
    case DB_LEVEL_LOWER: return db_folder_compare_path_lower(a, b);
    default: return db_folder_compare_path_bytes(a, b);
    }
}

int db_parent_compare_path(db_level_t level, mem_ref_t a, mem_ref_t b) {
    bool a_none = a < MEM_REF_FIRST, b_none = b < MEM_REF_FIRST;
    if (a_none || b_none)
        return static_cast<int>(b_none) - static_cast<int>(a_none);
    return _db_folder_compare_level(level, db_item(a), db_item(b));
}

// The last two keys of every order: the index, then the record's place in the arena.
static int _db_item_compare_last(const db_item_t *a, const db_item_t *b) {
    bool siblings = a->parent == b->parent && !db_item_is_top(a); // of one index
    u32 p = siblings ? 0 : db_get_index(a)->ordinal, q = siblings ? 0 : db_get_index(b)->ordinal;
    if (p != q)
        return p < q ? -1 : 1;
    return a < b ? -1 : a > b;
}

int db_item_compare_name(const db_item_t *a, const db_item_t *b) {
    if (a == b)
        return 0;
    u32 n, m;
    const char *a_name = db_item_get_name(a, &n), *b_name = db_item_get_name(b, &m);
    for (u32 i = 0; i < DB_LEVELS; i++) {
        db_level_t level = static_cast<db_level_t>(i);
        if (int result = db_name_compare_level(level, a_name, n, b_name, m))
            return result;
        if (int result = db_parent_compare_path(level, a->parent, b->parent))
            return result;
    }
    return _db_item_compare_last(a, b);
}

int db_file_compare_path(const db_item_t *a, const db_item_t *b) {
    if (a == b)
        return 0;
    u32 n, m;
    const char *a_name = db_item_get_name(a, &n), *b_name = db_item_get_name(b, &m);
    for (u32 i = 0; i < DB_LEVELS; i++) {
        db_level_t level = static_cast<db_level_t>(i);
        if (int result = db_parent_compare_path(level, a->parent, b->parent))
            return result;
        if (int result = db_name_compare_level(level, a_name, n, b_name, m))
            return result;
    }
    return _db_item_compare_last(a, b);
}

int db_folder_compare_path(const db_item_t *a, const db_item_t *b) {
    if (a == b)
        return 0;
    for (u32 i = 0; i < DB_LEVELS; i++) {
        if (int result = _db_folder_compare_level(static_cast<db_level_t>(i), a, b))
            return result;
    }
    return _db_item_compare_last(a, b);
}

int db_value_compare(u64 a_value, u64 b_value, const db_item_t *a, const db_item_t *b) {
    u64 p = a_value + 1, q = b_value + 1; // unknown becomes 0
    return p != q ? (p < q ? -1 : 1) : db_item_compare_name(a, b);
}

int db_attributes_compare(u32 a, u32 b) {
    if (a == b)
        return 0;
    char a_letters[UTF8_ATTRIBUTE_LETTERS_SIZE], b_letters[UTF8_ATTRIBUTE_LETTERS_SIZE];
    utf8_attributes_to_letters(a_letters, a);
    utf8_attributes_to_letters(b_letters, b);
    return std::strcmp(a_letters, b_letters);
}

int db_extension_compare(const db_item_t *a, const db_item_t *b) {
    u32 n, m, a_length, b_length;
    const char *a_name = db_item_get_name(a, &n), *b_name = db_item_get_name(b, &m);
    const char *a_text = db_name_get_extension(a_name, n, &a_length);
    const char *b_text = db_name_get_extension(b_name, m, &b_length);
    int result = utf8_compare_fold(a_text, a_length, b_text, b_length);
    return result < 0 ? -1 : result > 0;
}

int db_item_compare_key(u32 value, const void *key_pointer) {
    const db_item_key_t *key = static_cast<const db_item_key_t *>(key_pointer);
    const db_item_t *item = db_item(value);
    u32 n;
    const char *name = db_item_get_name(item, &n);
    for (u32 i = 0; i < DB_LEVELS; i++) {
        db_level_t level = static_cast<db_level_t>(i);
        if (int result = db_name_compare_level(level, name, n, key->name, key->name_length))
            return result;
        if (int result = db_parent_compare_path(level, item->parent, key->parent))
            return result;
    }
    u32 ordinal = db_get_index(item)->ordinal;
    return ordinal < key->ordinal ? -1 : ordinal > key->ordinal;
}

} // namespace findwright
