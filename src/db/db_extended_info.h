// What the index does not hold of an item, read from the file system and the desktop when it is asked for,
// and kept: sizes, dates and attributes by item, type names by extension, icons by extension or by item,
// thumbnails by item.
//
// There are two ways to it. A search or an order reads at once, on the threads of its worker
// (db_get_file_fileinfo and its kind). For rows that are shown the owner asks, and never waits: one thread
// for each kind of information reads what is in sight, in the order in which it was asked for; the owner is
// told by an event, takes what came (db_extended_info_update), and shows what is known
// (db_extended_info_get_known).
//
// Owner: a query. Of reading at once any thread may make use, several at the same time: a lock guards those
// caches, and is not held while the file system is asked. All else is for the main thread, with no worker at
// work. Entries are keyed by the item's record, so the owner clears the cache before records go
// (db_extended_info_clear), and tells of single ones (db_extended_info_item_removed).
//
// The reading threads own what they need. Nothing waits for one that hangs, not even
// db_extended_info_destroy; what it brings late is dropped.
#pragma once

#include "db/db.h"
#include "db/db_file_info.h"
#include "os/event.h"

namespace findwright {

// Setting: what was read of an item is read again when the item is seen to change.
inline u32 extended_information_cache_monitor = 1;

// The icon of a document of which nothing is known.
inline u32 db_default_icon_index;

// How to come by information. A function that is 0 is information that there is none of, and is never asked
// for. Extensions come without their dot, in folded form; paths are full, with `\` between components. All
// texts are UTF-8 and terminated. But for is_icon_by_item, which must answer at once, the functions may take
// any time, and are called from any thread, several at once; a call may still be under way when its query has
// long been gone, so a table lives as long as the process.
struct db_info_loader_t {
    // False when there is no such file. The top of a source was named by the user, and may be a link to what
    // is meant; below it a link is the item, as it is for a scan.
    bool (*read_file_info)(const char *path, bool is_top, db_file_info_t *out);
    // Icons are indexes into the system's list. False: the default one.
    bool (*read_item_icon)(const char *path, bool is_folder, u32 *icon_index);
    bool (*read_extension_icon)(const char *extension, u32 length, u32 *icon_index);
    // Whether files of an extension may each have an icon of their own. 0: none have. Folders always may.
    bool (*is_icon_by_item)(const char *extension, u32 length);
    void (*read_type_name)(const char *extension, u32 length, utf8_buf_t *out);
    void (*read_folder_type_name)(utf8_buf_t *out);
    // A thumbnail of the size that the loader makes, or 0. Who holds it gives it back by free_thumbnail.
    const void *(*read_thumbnail)(const char *path);
    void (*free_thumbnail)(const void *thumbnail);
};

// The file system, and the desktop's type names; no icons and no thumbnails.
extern const db_info_loader_t db_info_system_loader;

struct db_extended_info_t;

// `arrived_proc` is posted with `param` when what was asked for is there to be taken. 0: nobody asks.
db_extended_info_t *db_extended_info_create(db_t *db, event_proc_t *arrived_proc = nullptr,
                                            void *param = nullptr);
// Nothing is posted any more, and what is posted is removed.
void db_extended_info_destroy(db_extended_info_t *info);
// Another table than that of the system. Forgets all items.
void db_extended_info_set_loader(db_extended_info_t *info, const db_info_loader_t *loader);
// Forgets all items, and what was asked for; what belongs to extensions stays.
void db_extended_info_clear(db_extended_info_t *info);
// Forgets an item that goes: what is known of it, and what was asked for.
void db_extended_info_item_removed(db_extended_info_t *info, const db_item_t *item);
// The same for all members of two sets.
void db_extended_info_items_removed(db_extended_info_t *info, const db_item_set_t *folders,
                                    const db_item_set_t *files);
// The item has another record. What was read of the file stays; what it looks like goes by its name.
void db_extended_info_item_moved(db_extended_info_t *info, const db_item_t *item, const db_item_t *to);
// The item's file has changed: what was read of it is read again when it is asked for.
void db_extended_info_item_changed(db_extended_info_t *info, const db_item_t *item);

// --- Reading at once ---------------------------------------------------------------------------------------

// Reads one item, or takes it from the cache. False for an item of a file list: there is no file. What cannot
// be read is not known, which is kept too; a folder's size is never known here.
bool db_get_folder_fileinfo(db_extended_info_t *info, const db_item_t *folder, db_file_info_t *out);
bool db_get_file_fileinfo(db_extended_info_t *info, const db_item_t *file, db_file_info_t *out);
// What is known of an item without asking the file system. False when that would have to be asked; an item of
// a file list is known to have nothing.
bool db_extended_info_find(db_extended_info_t *info, const db_item_t *item, db_file_info_t *out);

// Reads what is not known yet of many items, by several threads, for the worker. When `cancel` becomes set it
// returns within some milliseconds, with what was read by then kept, even when a read hangs.
struct db_info_item_t {
    const db_item_t *item;
    bool is_folder;
};
void db_extended_info_read_files(db_extended_info_t *info, const db_info_item_t *items, u32 count,
                                 const std::atomic<u32> *cancel);

// The system's name for files of an extension (without its dot, may be empty), and for a folder. UTF-8,
// terminated; the text lives as long as the cache.
const char *db_extended_info_get_type_name(db_extended_info_t *info, const char *extension, u32 length);
const char *db_extended_info_get_folder_type_name(db_extended_info_t *info);

// --- For rows in sight -------------------------------------------------------------------------------------

enum db_info_kind_t : u32 {
    DB_INFO_KIND_FILE, // all of db_file_info_t
    DB_INFO_KIND_ICON,
    DB_INFO_KIND_TYPE_NAME,
    DB_INFO_KIND_THUMBNAIL,
    DB_INFO_KINDS
};

// One bit for a kind; a set of kinds is a sum of them.
inline constexpr u32 db_info_bit(db_info_kind_t kind) {
    return 1u << kind;
}

// What is in sight now: begin, one call for each item in the order in which they are wanted, end. What was
// asked for before and is not named again is not read any more; what is named again keeps its place. Nothing
// is read of an item of a file list, nor what is known already.
void db_extended_info_request_begin(db_extended_info_t *info);
void db_extended_info_request(db_extended_info_t *info, const db_item_t *item, bool is_folder, u32 kinds);
void db_extended_info_request_end(db_extended_info_t *info);

// Takes what has arrived. Whether anything is known now that was not, or that is not the same.
bool db_extended_info_update(db_extended_info_t *info);

struct db_known_info_t {
    db_file_info_t file;   // unknown values for what is not known
    u32 icon_index;        // db_default_icon_index until it is known
    const char *type_name; // lives as long as the cache; 0 until it is known
    const void *thumbnail; // lives until the item is forgotten; 0 until it is known, and where there is none
    u32 changed;           // the kinds that the last update which returned true has changed
};

// What is known of an item by now; looks only at the kinds that are asked for.
void db_extended_info_get_known(db_extended_info_t *info, const db_item_t *item, bool is_folder, u32 kinds,
                                db_known_info_t *out);

} // namespace findwright
