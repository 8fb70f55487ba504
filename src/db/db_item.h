// Item records: every file and folder of the index, as packed records of variable size in the arena.
//
// A reference to an item is one to the record's head. Optional words lie in front of it, the rest behind:
//
//     [ index ]            4 bytes, only when `parent` is 0: the db_index_t that the item belongs to
//     [ long name length ] 4 bytes, only when `name_length` is 255: the true length
//  -> parent               4 bytes: the parent folder's record, or 0
//     name_length          1 byte: 0 to 254, or 255
//     name                 UTF-8, no terminator
//     columns              what the layout says is indexed, unaligned
//     [ frn ]              8 bytes (NTFS) or 16 (ReFS), folders of such an index only
//
// A record starts at a multiple of 4 and is never resized in place. There is no stored path, no stored
// extension and no way from a record to the arrays. During a rebuild the same head is used for temporary
// records, whose `parent` may be a marker: every reference below MEM_REF_FIRST stands for "no parent here".
//
// Reading is safe from any thread while nobody writes; db_wait (db/db.h) sees to that.
#pragma once

#include "base/mem_ref.h"
#include "base/types.h"
#include "base/utf8_buf.h"

#include <cstring>

namespace findwright {

struct db_index_t;

struct db_item_t {
    mem_ref_t parent;
    u8 name_length;
};
struct db_folder_t : db_item_t {};
struct db_file_t : db_item_t {};

inline constexpr u32 DB_ITEM_HEAD = 5;        // bytes from the record to its name
inline constexpr u32 DB_ITEM_LONG_NAME = 255; // in name_length: the length is in the word in front
inline constexpr u32 DB_ITEM_MAX_PREFIX = 8;  // bytes in front of the head at most

inline u32 db_load_u32(const char *bytes) {
    u32 value;
    std::memcpy(&value, bytes, sizeof value);
    return value;
}
inline u64 db_load_u64(const char *bytes) {
    u64 value;
    std::memcpy(&value, bytes, sizeof value);
    return value;
}
inline void db_store_u32(char *bytes, u32 value) {
    std::memcpy(bytes, &value, sizeof value);
}
inline void db_store_u64(char *bytes, u64 value) {
    std::memcpy(bytes, &value, sizeof value);
}

inline const db_item_t *db_item(mem_ref_t ref) {
    return mem_ptr<const db_item_t>(ref);
}

inline u32 db_item_get_name_length(const db_item_t *item) {
    return item->name_length != DB_ITEM_LONG_NAME ? item->name_length
                                                  : db_load_u32(reinterpret_cast<const char *>(item) - 4);
}
inline const char *db_item_get_name(const db_item_t *item, u32 *length) {
    *length = db_item_get_name_length(item);
    return reinterpret_cast<const char *>(item) + DB_ITEM_HEAD;
}
// The first byte behind the name: the columns.
inline char *db_item_columns(const db_item_t *item) {
    return const_cast<char *>(reinterpret_cast<const char *>(item)) + DB_ITEM_HEAD +
           db_item_get_name_length(item);
}

// True when the item stands at the top of its chain (or hangs on a marker of a rebuild).
inline bool db_item_is_top(const db_item_t *item) {
    return item->parent < MEM_REF_FIRST;
}
inline bool db_is_root(const db_item_t *folder) {
    return folder->parent == 0;
}

// The bytes in front of a record's head, and the word there that names the index of an item without a parent.
inline u32 db_item_prefix_size(u32 name_length, bool has_index) {
    return (name_length >= DB_ITEM_LONG_NAME ? 4u : 0u) + (has_index ? 4u : 0u);
}
inline char *db_item_index_word(const db_item_t *item) {
    const char *head = reinterpret_cast<const char *>(item);
    return const_cast<char *>(head) - (item->name_length == DB_ITEM_LONG_NAME ? 8 : 4);
}

// The top of an item's chain, and the index that its word names.
const db_item_t *db_get_root(const db_item_t *item);
db_index_t *db_get_index(const db_item_t *item);

// Writes the head (prefix, parent, name) of a record at `block`, and returns the record. `index` counts only
// without a parent; `has_index` says whether the word is there at all.
db_item_t *db_item_write_head(char *block, mem_ref_t parent, bool has_index, mem_ref_t index,
                              const char *name, u32 name_length);

// --- Paths -------------------------------------------------------------------------------------------------

// The full path of an item whose parent and name these are. The buffer is grown once and filled from its end.
void db_get_full_path_name(utf8_buf_t *out, mem_ref_t parent, const char *name, u32 length);
inline void db_item_get_full_path_name(utf8_buf_t *out, const db_item_t *item) {
    u32 length;
    const char *name = db_item_get_name(item, &length);
    db_get_full_path_name(out, item->parent, name, length);
}
// The path of the folder that holds the item; empty for one at the top.
void db_item_get_path(utf8_buf_t *out, const db_item_t *item);
// The full path in lower case (letters only, accents stay).
void db_get_full_path_name_lower(utf8_buf_t *out, mem_ref_t parent, const char *name, u32 length);

// What stands behind the last `.` of a name; empty without one.
inline const char *db_name_get_extension(const char *name, u32 length, u32 *extension_length) {
    const char *end = name + length;
    for (const char *p = end; p != name; p--) {
        if (p[-1] == '.') {
            *extension_length = static_cast<u32>(end - p);
            return p;
        }
    }
    *extension_length = 0;
    return end;
}

// --- Orders ------------------------------------------------------------------------------------------------

// Three levels of text comparison, from loosest to tightest: folded, lower case, exact bytes.
enum db_level_t : u32 { DB_LEVEL_FOLD, DB_LEVEL_LOWER, DB_LEVEL_BYTES };
inline constexpr u32 DB_LEVELS = 3;

int db_name_compare_level(db_level_t level, const char *a, u32 a_length, const char *b, u32 b_length);

// Compares two folders' full paths as if both were written out. Chains of any depth.
int db_folder_compare_path_fold(const db_item_t *a, const db_item_t *b);
int db_folder_compare_path_lower(const db_item_t *a, const db_item_t *b);
int db_folder_compare_path_bytes(const db_item_t *a, const db_item_t *b);
// Where a folder stands, in an order by folded paths, to all those whose path begins with another one's and a
// separator: -1 before them, 0 among them, 1 behind. In that order they stand together.
int db_folder_compare_below(const db_item_t *folder, const db_item_t *top);
// The same for parents, where none (0 or a marker) is the empty path.
int db_parent_compare_path(db_level_t level, mem_ref_t a, mem_ref_t b);

// The order of the master arrays: name and parent path at each level in turn, then the index's ordinal, then
// the record's address. 0 only for the same record.
int db_item_compare_name(const db_item_t *a, const db_item_t *b);
// The order of the path arrays. Files: parent path and name at each level in turn. Folders: their own full
// path at each level.
int db_file_compare_path(const db_item_t *a, const db_item_t *b);
int db_folder_compare_path(const db_item_t *a, const db_item_t *b);

// The order of a column's values, unknown first; equal ones fall back on the name order.
int db_value_compare(u64 a_value, u64 b_value, const db_item_t *a, const db_item_t *b);
// The text order of the attribute letters of two attribute words.
int db_attributes_compare(u32 a, u32 b);
int db_extension_compare(const db_item_t *a, const db_item_t *b);

// Key of a name that need not have a record: the last two steps of db_item_compare_name fall away but for the
// ordinal. A comparison of array_t: the value is a record, the key a db_item_key_t.
struct db_item_key_t {
    u32 ordinal;
    mem_ref_t parent;
    const char *name;
    u32 name_length;
};
int db_item_compare_key(u32 value, const void *key);

} // namespace findwright
