// The program's command line: one table of switches, and what a parse of them leaves. The same structure
// serves the first start and a command line that a second process hands over. docs/switches.md, made from the
// table, is the list for users.
//
//     findwright [-switch [argument]]... [file list]
//
// Words are parted by white space; `"` quotes, and `"""` is the character itself. A word that begins with
// `-`, or where paths have `\` also with `/`, is a switch unless any of it was quoted; any other names a file
// list. In a switch all hyphens are optional, `_` is one, and so is a second `-` in front. `-no-NAME` turns
// an option off.
//
// Parsing only fills the structure. It never fails: for what it does not understand it asks for the help, and
// stops. Owner: the caller, who frees the structure and reads it as he likes; the texts in it are heap
// strings, 0 where the command line has none. Any thread may parse; the help and the names of what a build
// lacks are localized, for the main thread.
#pragma once

#include "app/localization.h"
#include "base/types.h"

namespace findwright {

struct utf8_buf_t;

// Bits of `flags`.
enum command_line_flag_t : u32 {
    COMMAND_LINE_STARTUP = 0x2,
    COMMAND_LINE_EXIT = 0x4,
    COMMAND_LINE_CONSOLE = 0x8,
    COMMAND_LINE_NO_DB = 0x10,
    COMMAND_LINE_UPDATE = 0x40,
    COMMAND_LINE_CHOOSE_LANGUAGE = 0x100,
    COMMAND_LINE_LOCAL = 0x400,
    COMMAND_LINE_HELP = 0x800,
    COMMAND_LINE_READ_ONLY = 0x1000,
    COMMAND_LINE_SVC = 0x2000,
    COMMAND_LINE_ADMIN = 0x4000,
    COMMAND_LINE_UNINSTALL_USER = 0x8000,
    COMMAND_LINE_REINDEX = 0x10000,
    COMMAND_LINE_CLIENT_SVC = 0x20000,
    COMMAND_LINE_IS_RUN_AS = 0x40000,
    COMMAND_LINE_DETAILS = 0x80000,
    COMMAND_LINE_THUMBNAILS = 0x100000,
    COMMAND_LINE_CLOSE = 0x200000,
    COMMAND_LINE_HOME = 0x400000,
    COMMAND_LINE_TOGGLE_WINDOW = 0x800000,
};

// Bits of `on` and `off`.
enum command_line_option_t : u32 {
    COMMAND_LINE_OPTION_START_MENU_SHORTCUTS = 0x2,
    COMMAND_LINE_OPTION_QUICK_LAUNCH_SHORTCUT = 0x4,
    COMMAND_LINE_OPTION_DESKTOP_SHORTCUT = 0x8,
    COMMAND_LINE_OPTION_FOLDER_CONTEXT_MENU = 0x10,
    COMMAND_LINE_OPTION_URL_PROTOCOL = 0x20,
    COMMAND_LINE_OPTION_RUN_ON_SYSTEM_STARTUP = 0x40,
    COMMAND_LINE_OPTION_UPDATE_NOTIFICATION = 0x80,
    COMMAND_LINE_OPTION_NEW_WINDOW = 0x100,
    COMMAND_LINE_OPTION_MAXIMIZED = 0x200,
    COMMAND_LINE_OPTION_MINIMIZED = 0x400,
    COMMAND_LINE_OPTION_FULLSCREEN = 0x800,
    COMMAND_LINE_OPTION_REGEX = 0x1000,
    COMMAND_LINE_OPTION_CASE = 0x2000,
    COMMAND_LINE_OPTION_WHOLE_WORD = 0x4000,
    COMMAND_LINE_OPTION_MATCH_PATH = 0x8000,
    COMMAND_LINE_OPTION_DIACRITICS = 0x10000,
    COMMAND_LINE_OPTION_FWL_ASSOCIATION = 0x20000,
    COMMAND_LINE_OPTION_VERBOSE = 0x40000,
    COMMAND_LINE_OPTION_APP_DATA = 0x80000,
    COMMAND_LINE_OPTION_CHOOSE_VOLUMES = 0x100000,
    COMMAND_LINE_OPTION_ONTOP = 0x200000,
    COMMAND_LINE_OPTION_RUN_AS_ADMIN = 0x400000,
    COMMAND_LINE_OPTION_FIRST_INSTANCE = 0x800000,
};

enum command_line_service_t : u32 {
    COMMAND_LINE_SERVICE_INSTALL = 1,
    COMMAND_LINE_SERVICE_UNINSTALL = 2,
    COMMAND_LINE_SERVICE_START = 3,
    COMMAND_LINE_SERVICE_STOP = 4,
};

enum command_line_volume_action_type_t : u32 {
    COMMAND_LINE_VOLUME_CREATE_JOURNAL = 1,
    COMMAND_LINE_VOLUME_DELETE_JOURNAL = 2,
};

struct command_line_volume_action_t {
    command_line_volume_action_type_t type;
    char *volume;
    u64 max_size;         // bytes; of a journal to create
    u64 allocation_delta; // likewise
};

inline constexpr u32 COMMAND_LINE_SWITCH_COUNT = 99;

struct command_line_t {
    u32 flags;
    u32 on, off; // options that were turned on or off; an absent one leaves its setting as it is
    char *instance;
    char *config; // full path, as are all below that are told to be one
    char *db;     // full path
    char *search;
    char *file_list; // full path
    char *edit;      // full path
    char *bookmark, *filter;
    char *install; // full path
    char *install_options;
    char *uninstall; // full path
    char *connect;
    char *install_config; // full path
    char *service_pipe_name;
    char *svc_pipe_name, *svc_security_descriptor;
    char *install_service_pipe_name, *install_service_security_descriptor;
    u32 language; // Windows language identifier; 0: none given
    u32 link_type;
    u32 load_delay; // milliseconds
    bool search_is_path;
    u32 service_action, client_service_action;    // command_line_service_t; 0: none
    i32 sort_direction;                           // 1 ascending, -1 descending, 0: none given
    i32 sort;                                     // ascending sort code; -1: none given
    u32 thumbnail_size;                           // pixels; 0: none given
    command_line_volume_action_t *volume_actions; // in the order they were given
    u32 volume_action_count;
    char *create_file_list_folder, *create_file_list_file; // full paths
    char *not_understood; // the switch that the parse stopped at, without hyphens in front
    u32 given[(COMMAND_LINE_SWITCH_COUNT + 31) / 32]; // a bit for each row of the table
};

// Parses a terminated text. Relative paths are taken from `base`, by default (0) the current directory. The
// first word is the program, and dropped, unless `first_is_argument`.
command_line_t *command_line_parse(const char *text, const char *base, bool first_is_argument);
void command_line_free(command_line_t *command_line);

// The process's own command line without the program's name, in the form that command_line_parse reads.
void command_line_get_arguments(utf8_buf_t *out);
// One word in that form: quoted where it must be.
void command_line_cat_word(utf8_buf_t *out, const char *text, u32 length);

// What was asked for and this build lacks, a line for each switch; empty when it has all.
void command_line_get_lacking(const command_line_t *command_line, utf8_buf_t *out);
// The help: a line for each switch.
void command_line_get_help(utf8_buf_t *out);

// --- The table (command_line_table.cpp) --------------------------------------------------------------------

// How a switch acts.
enum command_line_type_t : u8 {
    COMMAND_LINE_TYPE_FLAG,             // sets `value` in flags
    COMMAND_LINE_TYPE_OPTION,           // an option; `no-` in front turns it off
    COMMAND_LINE_TYPE_INSTALL,          // an option, only with `install-` or `uninstall-` in front
    COMMAND_LINE_TYPE_ENABLE,           // an option, only with `enable-` or `disable-` in front
    COMMAND_LINE_TYPE_VIEW,             // `value` is a command_line_view_t
    COMMAND_LINE_TYPE_FIELD,            // takes an argument; `value` is a command_line_field_t
    COMMAND_LINE_TYPE_ON,               // an option that can only be turned on
    COMMAND_LINE_TYPE_SERVICE,          // `value` is a command_line_service_t
    COMMAND_LINE_TYPE_LINK_TYPE,        // `value` is the link type
    COMMAND_LINE_TYPE_CREATE_FILE_LIST, // takes two arguments, a file and a folder
    COMMAND_LINE_TYPE_CLIENT_SERVICE,   // as COMMAND_LINE_TYPE_SERVICE
    COMMAND_LINE_TYPE_SORT_ASCENDING,
    COMMAND_LINE_TYPE_SORT_DESCENDING,
    COMMAND_LINE_TYPE_CREATE_USN_JOURNAL, // takes three arguments: a volume, a maximum size, an allocation
                                          // delta
};

enum command_line_view_t : u32 {
    COMMAND_LINE_VIEW_LOCAL,
    COMMAND_LINE_VIEW_DETAILS,
    COMMAND_LINE_VIEW_THUMBNAILS,
};

enum command_line_field_t : u32 {
    COMMAND_LINE_FIELD_FILE_LIST = 0,
    COMMAND_LINE_FIELD_INSTANCE = 1,
    COMMAND_LINE_FIELD_SEARCH = 2,
    COMMAND_LINE_FIELD_URL = 3,
    COMMAND_LINE_FIELD_LOAD_DELAY = 4,
    COMMAND_LINE_FIELD_FILENAME = 5,
    COMMAND_LINE_FIELD_PATH = 6,
    COMMAND_LINE_FIELD_PARENT_PATH = 7,
    COMMAND_LINE_FIELD_DB = 8,
    COMMAND_LINE_FIELD_CONFIG = 10,
    COMMAND_LINE_FIELD_EDIT = 11,
    COMMAND_LINE_FIELD_BOOKMARK = 12,
    COMMAND_LINE_FIELD_FILTER = 13,
    COMMAND_LINE_FIELD_SERVICE_PIPE_NAME = 14,
    COMMAND_LINE_FIELD_INSTALL = 15,
    COMMAND_LINE_FIELD_INSTALL_OPTIONS = 16,
    COMMAND_LINE_FIELD_UNINSTALL = 17,
    COMMAND_LINE_FIELD_INSTALL_SERVICE_PIPE_NAME = 18,
    COMMAND_LINE_FIELD_SVC_PIPE_NAME = 19,
    COMMAND_LINE_FIELD_CONNECT = 20,
    COMMAND_LINE_FIELD_LINK_TYPE = 21,
    COMMAND_LINE_FIELD_SORT = 22,
    COMMAND_LINE_FIELD_LANGUAGE = 23,
    COMMAND_LINE_FIELD_INSTALL_CONFIG = 24,
    COMMAND_LINE_FIELD_THUMBNAIL_SIZE = 25,
    COMMAND_LINE_FIELD_DELETE_USN_JOURNAL = 26,
    COMMAND_LINE_FIELD_SVC_SECURITY_DESCRIPTOR = 27,
    COMMAND_LINE_FIELD_INSTALL_SERVICE_SECURITY_DESCRIPTOR = 28,
    COMMAND_LINE_FIELD_PARENT = 29,
    COMMAND_LINE_FIELD_SEARCHFILELIST = 30,
};

struct command_line_switch_t {
    const char *name;
    u32 value;
    localization_string_t help;
    localization_string_t lacks; // what the switch needs and this build does not have, unless it works
    command_line_type_t type;
    bool works;          // in this build, on every system
    bool works_on_posix; // there it does
};

extern const command_line_switch_t command_line_switches[COMMAND_LINE_SWITCH_COUNT]; // sorted by name

// The row that a switch names, without its leading hyphens, and whether it turns the option off; -1 for none.
i32 command_line_find(const char *text, bool *turns_off);
// Whether this program can do it.
bool command_line_switch_works(const command_line_switch_t *row);
// The switch as a user writes it, with its arguments: "-name <text>".
void command_line_cat_usage(utf8_buf_t *out, const command_line_switch_t *row);

} // namespace findwright
