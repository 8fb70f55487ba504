// The database file: an image of a database, written and read in one sequential pass, through a stream that
// is plain or compressed (base/bz2.h).
//
//     magic, version, flags, counts | indexes | exclusions | folder parents | folder records | file records |
//     number tables | folder sort tables | file sort tables
//
// Everything refers to items by ordinals, the places in the name arrays, so that reading needs no comparison
// and no sort. Names are stored by what differs from the name before. docs/database-file.md has the layout
// byte by byte.
//
// Writing borrows the `parent` words of the records and restores them; both directions need the database to
// themselves. What is read is trusted for nothing: a file of any bytes gives a whole database or none.
#pragma once

#include "base/bz2.h"
#include "db/db.h"

namespace findwright {

inline constexpr u32 DB_IMAGE_MAGIC = 0x62445746; // "FWDb"
inline constexpr u32 DB_IMAGE_VERSION = 0x01070014;

inline constexpr u8 DB_IMAGE_EXCLUDE_HIDDEN = 1;
inline constexpr u8 DB_IMAGE_EXCLUDE_SYSTEM = 2;

// Writes the database. The stream keeps what failed.
void db_image_write(db_t *db, bz2_stream_t *stream);
// Fills an empty database, its layout included. False, with a log line and an empty database, when the bytes
// are no image.
bool db_image_read(db_t *db, bz2_stream_t *stream);

// Writes the database to a file: beside it, flushed, then renamed, so that whatever happens the old file is
// there whole or the new one. False, with the system's error in os_get_last_error. The database must be held
// still.
bool db_image_save(db_t *db, const char *filename, bool compress);
// Reads a file into an empty database. False, and still empty, when there is none or it is damaged.
bool db_image_load(db_t *db, const char *filename, bool compress);

// The sort tables of an image, in their order.
struct db_image_table_t {
    u32 flags; // of the layout, all of which must be set
    array_t db_t::*array;
};
inline constexpr u32 DB_IMAGE_FOLDER_TABLES = 6;
inline constexpr u32 DB_IMAGE_FILE_TABLES = 7;
extern const db_image_table_t db_image_folder_tables[DB_IMAGE_FOLDER_TABLES];
extern const db_image_table_t db_image_file_tables[DB_IMAGE_FILE_TABLES];

} // namespace findwright
