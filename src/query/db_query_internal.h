// What the compiler of terms shares between its files: how executable terms are made and appended.
#pragma once

#include "query/db_query.h"
#include "query/db_text_table.h"

namespace findwright {

// A term with a text (folded, 0 bytes for none) and nothing else set. `mode` is the one that it was folded
// by.
db_exec_term_t *db_exec_term_create(const db_term_t *term, u32 op, utf8_mode_t mode, const char *text,
                                    u32 length);
// A term of a function's op that tests texts as the source term would test names: plain, with wildcards or as
// a regular expression, by its flags. The text is that of the source term from `text` on. A regular
// expression that cannot be compiled gives a term whose test is always false. Not negated: the op is.
db_exec_term_t *db_exec_term_create_matcher(const db_term_t *term, u32 op, const char *text);
db_exec_term_t *db_exec_term_create_constant(const db_term_t *term, bool value);

// A term of a text family, with the op and the folded text by the source term's flags: FIND, EQUAL, WILDCARD,
// WILDCARD_FIND, STARTS_WITH or ENDS_WITH.
db_exec_term_t *db_exec_term_create_folded(const db_term_t *term, u32 family, const char *text, u32 length);
// The op of a family whose bits are the mode and the negation only. `mode` is UTF8_MODE_ASCII where the fast
// comparison is taken.
u32 db_term_get_mode_op(u32 family, u32 flags, utf8_mode_t mode);

// Appends the two forms of a term to the query's lists. The form that the term's flags exclude is freed and
// replaced by the constant: false, or true when the term is negated.
void db_query_append_terms(db_query_t *query, db_term_t *term, db_exec_term_t *folder, db_exec_term_t *file);
// A side that does not have a function is the constant false there, so its negation is true.
inline db_exec_term_t *db_exec_term_create_missing(const db_term_t *term) {
    return db_exec_term_create_constant(term, term->flags & TERM_NOT);
}
// Both forms with the same op and text.
void db_query_append_text_term(db_query_t *query, db_term_t *term, u32 op, utf8_mode_t mode, const char *text,
                               u32 length);

// How the term's flags compare names.
inline utf8_mode_t db_term_get_mode(u32 flags) {
    return db_op_mode(flags & TERM_CASE, flags & TERM_DIACRITICS);
}

// Compiles a term that is a function, and returns true; false for one that is plain text
// (db_query_function.cpp).
bool db_term_compile_function(db_query_t *query, db_term_t *term);
// Compiles a path that is anchored at folders of the index (db_query_path.cpp): a root, or an absolute path
// with a final separator. False when it is no such path.
bool db_term_compile_anchored_path(db_query_t *query, db_term_t *term, const char *text, u32 length);
// A path with a drive or a server; or one that begins with a single separator, has more than one component,
// and belongs to a root of the index.
bool db_path_is_absolute(const db_t *db, const char *text, u32 length);
// The same for a path that the desktop named: an absolute path, a folder and what is below it.
void db_term_compile_shell_path(db_query_t *query, db_term_t *term, const char *path, u32 length);

// --- Data of executable terms ------------------------------------------------------------------------------

// Folders of the index that a path term leads to, each list in the order of the references.
struct db_anchors_t : db_term_data_t {
    u32 inner_count;                  // an item is strictly below one of them
    u32 outer_count;                  // an item is one of them, or below one
    u32 file_count;                   // an item is one of them
    mem_ref_t *inner, *outer, *files; // in the same block
};
db_anchors_t *db_anchors_create(const mem_ref_t *inner, u32 inner_count, const mem_ref_t *outer,
                                u32 outer_count, const mem_ref_t *files, u32 file_count);

// A list of references that grows.
struct db_ref_list_t {
    mem_ref_t *refs;
    u32 count, capacity;
};
void db_ref_list_add(db_ref_list_t *list, mem_ref_t ref);
void db_ref_list_free(db_ref_list_t *list);

// The extensions of `ext:`, each once, folded, in the order of their bytes.
struct db_extension_t {
    const char *text;
    u32 length;
};
struct db_extensions_t : db_term_data_t {
    u32 count;
    u32 most_dots;         // that an extension of the list has in it
    bool has_empty;        // a name without any extension is in the list; the list itself has no empty item
    db_text_table_t table; // the same texts
    u64 *keys;             // quick answers by db_extension_key; 0 is free. None (0) for a list with dots
    u32 key_shift;         // of a key's hash, to the number of a slot
    bool has_long;         // one that is longer than a key tells
    db_extension_t items[1];
};
// `text` is what follows `ext:`.
db_extensions_t *db_extensions_create(utf8_mode_t mode, const char *text);

// ASCII extensions of at most seven bytes are looked up as one word: the text, its last byte on top, and its
// length.
inline constexpr u32 DB_EXTENSION_KEY_MAX = 7;
inline u32 db_extension_slot(const db_extensions_t *list, u64 key) {
    return static_cast<u32>(key * 0x9E3779B97F4A7C15 >> list->key_shift);
}
inline bool db_extensions_have_key(const db_extensions_t *list, u64 key) {
    u64 slots = ~static_cast<u64>(0) >> list->key_shift;
    for (u64 i = db_extension_slot(list, key);; i = (i + 1) & slots) {
        if (list->keys[i] == key || list->keys[i] == 0)
            return list->keys[i] == key;
    }
}

// The general way, for any text.
template<utf8_mode_t mode>
inline bool db_extensions_match_text(const db_extensions_t *list, const char *name, u32 length) {
    const char *end = name + length;
    u32 dots = 0;
    for (const char *p = end; p != name; p--) {
        if (p[-1] != '.')
            continue;
        if (db_text_table_has<mode>(&list->table, p, static_cast<u32>(end - p)))
            return true;
        if (dots++ == list->most_dots)
            return false;
    }
    return dots == 0 && list->has_empty;
}

// True when the item's name ends with `.` and one of the extensions, or is without one and that is in the
// list. The last eight bytes of the name tell nearly always; a short name has the record's head in front.
template<utf8_mode_t mode>
inline bool db_extensions_match(const db_extensions_t *list, const db_item_t *item) {
    static_assert(DB_ITEM_HEAD + 3 >= sizeof(u64));
    u32 length;
    const char *name = db_item_get_name(item, &length);
    if (!list->keys || length < 3)
        return db_extensions_match_text<mode>(list, name, length);
    constexpr u64 low_bits = 0x7F7F7F7F7F7F7F7F;
    u64 bytes = db_load_u64(name + length - sizeof(u64));
    u64 others = bytes ^ 0x2E2E2E2E2E2E2E2E; // a dot is 0
    u64 dots = ~(((others & low_bits) + low_bits) | others | low_bits);
    u32 size = dots != 0 ? static_cast<u32>(__builtin_clzll(dots)) / 8 : sizeof(u64);
    if (size == 0)
        return false;
    if (dots == 0 && length >= sizeof(u64) && !(bytes & ~low_bits) && !list->has_long && !list->has_empty)
        return false;
    u64 extension = bytes >> (64 - 8 * size);
    if (dots == 0 || size >= length || (extension & ~low_bits))
        return db_extensions_match_text<mode>(list, name, length);
    if constexpr (mode != UTF8_MODE_EXACT && mode != UTF8_MODE_KEEP_CASE)
        extension = db_lower_ascii_8(extension);
    return db_extensions_have_key(list, extension | static_cast<u64>(size) << 56);
}

// The names of `filelist:`, each once, folded, in the order of their bytes.
struct db_file_list_name_t {
    const char *text;
    u32 length;
    bool has_path;
};
struct db_file_list_names_t : db_term_data_t {
    u32 count;
    db_text_table_t names;      // those without a path
    db_text_table_t paths;      // those with one
    db_text_table_t last_names; // what stands behind the last `\` of those with one
    db_file_list_name_t items[1];
};
// `text` is what follows `filelist:`, with `\` for every separator.
db_file_list_names_t *db_file_list_names_create(utf8_mode_t mode, const char *text);
// True when the item's name is in the list, or with `has_path` its full path, which is made in `path`.
bool db_file_list_names_match(const db_file_list_names_t *list, utf8_mode_t mode, const db_item_t *item,
                              bool has_path, utf8_buf_t *path);

} // namespace findwright
