// What never enters the index: folders and files that the user leaves out, by lists of patterns.
//
// A pattern is compiled once into an entry whose kind says how it is tested, since the test runs for every
// item of a volume. Nearly all kinds look at the name alone; only a pattern with a `\` needs the item's full
// path, which is built for the test when a list has such an entry.
//
//     kind                        pattern      left out is
//     DB_EXCLUDE_PATH             C:\Temp      that path, and what lies below it; a `\` at its end counts for
//                                              nothing
//     DB_EXCLUDE_NAME             thumbs.db    that name
//     DB_EXCLUDE_NAME_WILDCARD    a*b          names that the pattern covers
//     DB_EXCLUDE_ALL              *            all
//     DB_EXCLUDE_NAME_END         *.tmp        names that end so
//     DB_EXCLUDE_NAME_START       ~*           names that begin so
//     DB_EXCLUDE_NAME_PART        *cache*      names that hold it
//     DB_EXCLUDE_PATH_WILDCARD    *\.git       full paths that the pattern covers
//
// Invariants: an entry's text is in lower case, and the stars that its kind stands for are off it: a kind and
// a text belong together, and two entries are equal only by both. Case never counts. The numbers of the kinds
// stand in database files.
//
// Owner: whoever called db_exclude_init, until db_exclude_kill. A set is filled by one thread; afterwards any
// thread may test against it. It may be moved by assignment, but is copied only by db_exclude_copy.
#pragma once

#include "base/mem_ref.h"
#include "base/types.h"

namespace findwright {

struct bz2_stream_t;

enum db_exclude_kind_t : u8 {
    DB_EXCLUDE_PATH = 0,
    DB_EXCLUDE_NAME = 1,
    DB_EXCLUDE_NAME_WILDCARD = 2,
    DB_EXCLUDE_ALL = 4,
    DB_EXCLUDE_NAME_END = 5,
    DB_EXCLUDE_NAME_START = 6,
    DB_EXCLUDE_NAME_PART = 7,
    DB_EXCLUDE_PATH_WILDCARD = 8,
};

struct db_exclude_t {
    db_exclude_t *next;
    char *text; // no terminator; in the entry's own block
    u32 length; // bytes
    db_exclude_kind_t kind;
};

// Entries in the order of the settings.
struct db_exclude_list_t {
    db_exclude_t *first;
    db_exclude_t *last;
    u32 count;
};

struct db_exclude_set_t {
    db_exclude_list_t exclude_folders;
    db_exclude_list_t include_only_files; // empty: no file is left out for want of a match
    db_exclude_list_t exclude_files;
    bool files_need_path; // an entry of the list is tested against the full path
    bool folders_need_path;
    bool exclude_hidden; // tested by the readers, which see the attributes first
    bool exclude_system;
};

// The settings that a set is made of.
struct db_exclude_settings_t {
    bool exclude_list_enabled; // off: no lists
    bool exclude_hidden_files_and_folders;
    bool exclude_system_files_and_folders;
    const char *const *exclude_folders; // one path or pattern each
    u32 exclude_folder_count;
    const char *include_only_files; // patterns with `;` between; 0 is none
    const char *exclude_files;
};

void db_exclude_init(db_exclude_set_t *set);
void db_exclude_kill(db_exclude_set_t *set);
// Replaces the content of `out`, an initialized set.
void db_exclude_compile_settings(db_exclude_set_t *out, const db_exclude_settings_t *settings);
void db_exclude_copy(db_exclude_set_t *out, const db_exclude_set_t *source);
// Works out files_need_path and folders_need_path; to be called when lists were filled by hand.
void db_exclude_update_needs(db_exclude_set_t *set);

void db_exclude_list_kill(db_exclude_list_t *list);
// Compiles one pattern, terminated, and appends it. An empty one is none. Where the system's paths have `/`,
// that separates in a pattern too, unless the pattern names a scheme such as `ftp://`.
void db_exclude_add(db_exclude_list_t *list, const char *pattern);
// Appends an entry as an earlier compilation made it. False for a number that is no kind.
bool db_exclude_add_compiled(db_exclude_list_t *list, u32 kind, const char *text, u32 length);
// Appends the patterns of a text such as `*.tmp; "a;b.txt" ;~*`. White space around a pattern is dropped;
// between double quotes it is kept, and so is a `;`. 0 is an empty text.
void db_exclude_parse(db_exclude_list_t *list, const char *patterns);

// Whether an entry fits the item of that name. The full path, in lower case, is looked at by the two path
// kinds only.
bool db_exclude_match(const db_exclude_t *entry, const char *full_path, u32 full_path_length,
                      const char *name, u32 length);
// Whether an item with that name in that folder (a record, 0, or a marker of a rebuild) belongs into the
// index. Names in any case.
bool db_file_is_included(const db_exclude_set_t *set, mem_ref_t parent, const char *name, u32 length);
bool db_folder_is_included(const db_exclude_set_t *set, mem_ref_t parent, const char *name, u32 length);
// The same for a folder that has no record yet, by its full path.
bool db_folder_path_is_included(const db_exclude_set_t *set, const char *full_path, u32 length);

// True when the wanted set may take in what was left out of a content that was built with the first set, so
// that the sources must be read again; otherwise it is enough to drop what is newly left out.
bool db_exclude_is_narrower(const db_exclude_set_t *content, const db_exclude_set_t *wanted);
// True when any of the three lists differs in an entry, or in the order. The flags are not looked at.
bool db_exclude_differs(const db_exclude_set_t *a, const db_exclude_set_t *b);

// A list in a database file: a vint count, then per entry the kind as one byte and the text as a string.
void db_exclude_write(bz2_stream_t *stream, const db_exclude_list_t *list);
// Appends what is read to the list. What is no such list puts the stream into its error state; the list then
// holds the entries in front of the damage.
void db_exclude_read(bz2_stream_t *stream, db_exclude_list_t *list);

} // namespace findwright
