// Which columns an item record holds and where, from one flags word.
#pragma once

#include "base/types.h"

namespace findwright {

inline constexpr u32 DB_FLAG_SIZE = 0x0001;         // files have an 8-byte size
inline constexpr u32 DB_FLAG_DATE_CREATED = 0x0002; // items have 8-byte dates
inline constexpr u32 DB_FLAG_DATE_MODIFIED = 0x0004;
inline constexpr u32 DB_FLAG_DATE_ACCESSED = 0x0008;
inline constexpr u32 DB_FLAG_ATTRIBUTES = 0x0010;  // items have a 4-byte attribute word
inline constexpr u32 DB_FLAG_FOLDER_SIZE = 0x0020; // folders have an 8-byte size, the sum of the files below
inline constexpr u32 DB_FLAG_FAST_SIZE = 0x0100;   // sorted arrays exist for the column
inline constexpr u32 DB_FLAG_FAST_DATE_CREATED = 0x0200;
inline constexpr u32 DB_FLAG_FAST_DATE_MODIFIED = 0x0400;
inline constexpr u32 DB_FLAG_FAST_DATE_ACCESSED = 0x0800;
inline constexpr u32 DB_FLAG_FAST_ATTRIBUTES = 0x1000;
inline constexpr u32 DB_FLAG_FAST_PATH = 0x2000;
inline constexpr u32 DB_FLAG_FAST_EXTENSION = 0x4000; // files only

inline constexpr u32 DB_FLAG_COLUMNS = 0x003F;

// Settings: which columns the index is to hold, and which orders it is to keep.
inline u32 index_size = 1;
inline u32 fast_size_sort = 1;
inline u32 index_date_created;
inline u32 fast_date_created_sort;
inline u32 index_date_modified = 1;
inline u32 fast_date_modified_sort = 1;
inline u32 index_date_accessed;
inline u32 fast_date_accessed_sort;
inline u32 index_attributes;
inline u32 fast_attributes_sort;
inline u32 index_folder_size;
inline u32 fast_path_sort = 1;
inline u32 fast_extension_sort;

// Offsets count from the end of the name. Columns stand in the order of the flags; an absent one takes no
// room, so files and folders can differ in all offsets. An offset means nothing while its flag is off.
struct db_layout_t {
    u32 flags;
    u32 file_data_size;
    u32 folder_data_size;
    u32 file_date_created_offset, folder_date_created_offset;
    u32 file_date_modified_offset, folder_date_modified_offset;
    u32 file_date_accessed_offset, folder_date_accessed_offset;
    u32 file_attributes_offset, folder_attributes_offset;
};

// Flags as settings may ask for them, less what cannot be: a folder size without a size, a sort without its
// column.
u32 db_layout_normalize_flags(u32 flags);
void db_layout_set_flags(db_layout_t *layout, u32 flags);

} // namespace findwright
