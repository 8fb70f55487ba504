// The settings: read from one file at the start, written back at the end. Plain settings are the variables of
// config_values.h; here are those with a structure of their own, and the file.
//
// The file is "Findwright.ini", UTF-8 text with one section, "[Findwright]", of `key=value` lines. A key that
// it does not have leaves its setting as it is, so that one file can be laid over another; a key that is not
// known is passed over. What is wrong in a file is logged with its line, and costs no more than that line.
//
// Where it lies: on Windows beside the program; with `app_data` on, that file holds only this choice, and the
// settings lie in the user's application data. On Linux in $XDG_CONFIG_HOME/findwright.
//
// Paths: a file written on Linux holds `/` for paths that begin with one; inside they have `\`, as
// everywhere. Other paths (of volumes and lists that come from Windows) stay as they are, as does the text
// inside an `include_only`: who splits it gives each element to config_path_from_text.
//
// Owner: this module owns all texts and lists. Main thread only, but for reading plain settings.
#pragma once

#include "app/config_values.h"
#include "base/utf8_buf.h"

namespace findwright {

struct config_family_t;

// --- Lists -------------------------------------------------------------------------------------------------

// A list of items that stand in the file as parallel lists, one key for each field. Items are moved when the
// list grows, so no pointer to one outlives a change of its list. The texts in an item are heap strings and
// never 0.
struct config_list_base_t {
    void *items;
    u32 count;
    u32 capacity;
    const config_family_t *family;
};

template<class Item>
struct config_list_t : config_list_base_t {
    Item *begin() const { return static_cast<Item *>(items); }
    Item *end() const { return begin() + count; }
    Item &operator[](u32 i) const { return begin()[i]; }
};

// A volume that the user chose or that was found, NTFS or ReFS.
struct config_volume_t {
    char *guid;              // the name it is opened by
    char *path;              // the name its items appear under
    char *root;              // the folder of it that the index begins with; empty: its root
    char *include_only;      // list of folders; empty: all
    u32 include;             // is in the index
    u32 load_recent_changes; // its journal is read for recent changes when the database is loaded
    u32 monitor;             // is followed
};

struct config_exclude_folder_t {
    char *path;
};

struct config_file_list_t {
    char *filename;
    u32 monitor_changes; // read again when it changes
};

// When a folder is read again.
enum config_folder_update_t : i32 {
    CONFIG_FOLDER_UPDATE_NEVER = 0,
    CONFIG_FOLDER_UPDATE_INTERVAL = 1, // every update_interval minutes or hours
    CONFIG_FOLDER_UPDATE_AT = 2,       // at the hour update_at of update_day
};

struct config_folder_t {
    char *path;
    u32 monitor_changes;
    i32 buffer_size; // of the monitor, in bytes
    u32 rescan_if_full;
    i32 update_type;          // config_folder_update_t
    i32 update_day;           // 0: each day; 1 to 7: Sunday to Saturday
    i32 update_at;            // 0 to 23
    i32 update_interval;      // so many ...
    i32 update_interval_type; // ... 0: minutes, 1: hours
};

struct config_connection_t {
    char *host;
    i32 port;
    char *username;
    i32 link_type;
};

// What begins with `pattern` in a path of a server begins with `substitution` here.
struct config_rewrite_t {
    char *pattern;
    char *substitution;
};

// The keys of a command, as the file has them: the key is "MENU_COMMAND_keys" in lower case.
struct config_keys_t {
    char *key;
    char *keys;
};

extern config_list_t<config_volume_t> config_ntfs_volumes;
extern config_list_t<config_volume_t> config_refs_volumes;
extern config_list_t<config_exclude_folder_t> config_exclude_folders;
extern config_list_t<config_file_list_t> config_file_lists;
extern config_list_t<config_folder_t> config_folders;
extern config_list_t<config_connection_t> config_connect_history;
extern config_list_t<config_rewrite_t> config_rewrites;
extern config_list_t<config_keys_t> config_keys; // in the order of the file

// A new item at the end, with the family's defaults and empty texts; good until the list changes.
void *config_list_add(config_list_base_t *list);
void config_list_remove(config_list_base_t *list, u32 index);
void config_list_clear(config_list_base_t *list);
// The volume of these names, compared byte for byte; 0 for none. A ReFS volume is known by guid and path
// alone.
config_volume_t *config_ntfs_volume_find(const char *guid, const char *path, const char *root);
config_volume_t *config_refs_volume_find(const char *guid, const char *path);
// The keys of a command; 0 when the file has no such key.
const char *config_keys_get(const char *key);
void config_keys_set(const char *key, const char *keys);

// --- Columns, fonts and colours ----------------------------------------------------------------------------

inline constexpr u32 CONFIG_COLUMN_COUNT = 13;
inline constexpr u32 CONFIG_FONT_COUNT = 4;
inline constexpr u32 CONFIG_COLOR_COUNT = 26;

// Columns of the result list: name, path, size, extension, type, date modified, date created, date accessed,
// attributes, date recently changed, run count, date run, file list.
struct config_column_t {
    u32 is_visible; // of the first one, always 1
    i32 width;      // pixels of the screen
    i32 position;
};

// Of the result list, the search box, the status bar and the header.
struct config_font_t {
    char *name; // empty: the system's
    i32 size;   // 0: the system's
};

// A colour is 0 when it is not set, else CONFIG_COLOR_SET plus the value that the file shows as #rrggbb.
inline constexpr u32 CONFIG_COLOR_SET = 0xFF000000;
enum config_bold_t : u32 {
    CONFIG_BOLD_OFF = 0,
    CONFIG_BOLD_NOT_SET = 1,
    CONFIG_BOLD_ON = 2,
};

// Of a state of the rows, each followed by the one of what the search found in them: normal, current sort,
// selected, selected inactive, drop target, mouseover, mouseover current sort, alternate row, current sort
// alternate row, hot, selected hot, selected inactive hot, thumbnail mouseover.
struct config_color_t {
    u32 foreground;
    u32 background;
    u32 bold; // config_bold_t
};

extern config_column_t config_columns[CONFIG_COLUMN_COUNT];
extern config_font_t config_fonts[CONFIG_FONT_COUNT];
extern config_color_t config_colors[CONFIG_COLOR_COUNT];

// --- Life --------------------------------------------------------------------------------------------------

// Everything at its default; column widths are scaled to a screen of so many pixels per inch, of which 96 is
// the usual number. After os_init, before anything else here.
void config_init(u32 pixels_per_inch);
// Frees all, and puts the defaults back into the variables.
void config_kill();

// --- Places ------------------------------------------------------------------------------------------------

enum config_folder_kind_t : u32 {
    CONFIG_FOLDER_PROGRAM,    // of the file that is read first
    CONFIG_FOLDER_SETTINGS,   // of the settings
    CONFIG_FOLDER_DATA,       // of data that the program gathers
    CONFIG_FOLDER_LOCAL_DATA, // of the database: data that is not carried to other machines
    CONFIG_FOLDER_STATE,      // of logs, and of what a process leaves while it runs
};

// Without a trailing separator. On Windows all but the first depend on app_data. False, and an empty text,
// when the system does not say.
bool config_get_folder(config_folder_kind_t kind, utf8_buf_t *out);
// Whether settings and data are this user's own, and not those beside the program.
bool config_is_app_data();
// FOLDER\BASE.EXTENSION, or FOLDER\BASE-INSTANCE.EXTENSION with an instance (see config_set_place), whose
// name has `%` and two hexadecimal digits in place of each byte that a file name cannot have.
bool config_get_data_filename(config_folder_kind_t kind, const char *base, const char *extension,
                              utf8_buf_t *out);
// Appends the name of an instance as it stands in file names.
void config_cat_instance(utf8_buf_t *out, const char *instance);
// The same name beside the settings file, which may be one that the command line names: for lists that a user
// keeps with the settings.
bool config_get_beside_settings(const char *base, const char *extension, utf8_buf_t *out);
// What the command line says: the instance, and a settings file to use in place of the standard one. 0 or
// empty: none. Before the settings are loaded.
void config_set_place(const char *instance, const char *filename);
// The settings file: the one of the command line unless `program_folder` is set; else the standard one in the
// program's or the settings' folder. On Linux the two are the same.
bool config_get_path(bool program_folder, utf8_buf_t *out);

// A path of a text that the user wrote, as it is inside, and back. Plain copies on Windows, and on Linux for
// what does not begin with `/`, or on the way back with a single `\`.
void config_path_from_text(utf8_buf_t *out, const char *text);
void config_path_to_text(utf8_buf_t *out, const char *path);

// --- File --------------------------------------------------------------------------------------------------

// Loads the file that the program begins with: the command line's, or the standard one. False when there is
// none.
bool config_load_default();
// The same after config_set_place(instance, filename). Without an instance there, the one that the settings
// name is taken into the names of data files, while the settings stay where they are.
bool config_load_placed(const char *instance, const char *filename);
// Lays a file over the settings. `is_main`: where the file says so, the one in the application data is loaded
// in its place. `with_run_as_admin`: run_as_admin is taken too. False when the file cannot be read or has no
// section: then nothing has changed.
bool config_load(const char *filename, bool is_main, bool with_run_as_admin);

// Set by who has saved the settings already on the way out: config_save has nothing to do then.
extern bool config_is_saved;
// Writes the settings: to the file of config_get_path, by way of a file beside it, so that the old file stays
// whole until the new one is on the disk. The file in the program's folder holds app_data and run_as_admin
// alone while app_data is on. False on failure: the old file is as it was, and `error` names the file and the
// reason.
bool config_save(bool program_folder, utf8_buf_t *error);

// The same without files. config_write appends the text of a file; with `is_pointer` the short one.
bool config_read(const char *text, u32 length, const char *name_for_log);
void config_write(utf8_buf_t *out, bool is_pointer);

// The page of all settings for users, in Markdown.
void config_write_page(utf8_buf_t *out);

} // namespace findwright
