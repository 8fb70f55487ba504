// The switches, one row each, and what can be told of them from the table alone.

#include "app/command_line.h"

#include "base/utf8.h"
#include "base/utf8_buf.h"
#include "os/os.h"

#include <string_view>

namespace findwright {

#define ROW(name, type, value, help, lacks, works, works_on_posix)                                           \
    { name, value, LOCALIZATION_SWITCH_##help, lacks, COMMAND_LINE_TYPE_##type, works, works_on_posix }
#define WORKS(name, type, value, help)                                                                       \
    ROW(name, type, value, help, LOCALIZATION_COMMAND_LINE_LACKS, true, true)
#define WORKS_ON_POSIX(name, type, value, help, lacks)                                                       \
    ROW(name, type, value, help, LOCALIZATION_LACKS_##lacks, false, true)
#define LACKS(name, type, value, help, lacks)                                                                \
    ROW(name, type, value, help, LOCALIZATION_LACKS_##lacks, false, false)

// clang-format off: one line is one switch
constexpr command_line_switch_t command_line_switches[COMMAND_LINE_SWITCH_COUNT] = {
    WORKS("?", FLAG, COMMAND_LINE_HELP, HELP),
    LACKS("admin", FLAG, COMMAND_LINE_ADMIN, ADMIN, RIGHTS),
    LACKS("admin-server-share-links", LINK_TYPE, 2, ADMIN_SERVER_SHARE_LINKS, SERVERS),
    LACKS("app-data", OPTION, COMMAND_LINE_OPTION_APP_DATA, APP_DATA, START),
    LACKS("bookmark", FIELD, COMMAND_LINE_FIELD_BOOKMARK, BOOKMARK, WINDOWS),
    LACKS("case", OPTION, COMMAND_LINE_OPTION_CASE, CASE, WINDOWS),
    LACKS("choose-language", FLAG, COMMAND_LINE_CHOOSE_LANGUAGE, CHOOSE_LANGUAGE, START),
    LACKS("choose-volumes", OPTION, COMMAND_LINE_OPTION_CHOOSE_VOLUMES, CHOOSE_VOLUMES, START),
    LACKS("client-svc", FLAG, COMMAND_LINE_CLIENT_SVC, CLIENT_SVC, SERVICE),
    LACKS("close", FLAG, COMMAND_LINE_CLOSE, CLOSE, WINDOWS),
    WORKS("config", FIELD, COMMAND_LINE_FIELD_CONFIG, CONFIG),
    LACKS("connect", FIELD, COMMAND_LINE_FIELD_CONNECT, CONNECT, SERVERS),
    WORKS("console", FLAG, COMMAND_LINE_CONSOLE, CONSOLE),
    WORKS("create-file-list", CREATE_FILE_LIST, 0, CREATE_FILE_LIST),
    LACKS("create-usn-journal", CREATE_USN_JOURNAL, 0, CREATE_USN_JOURNAL, JOURNALS),
    WORKS("db", FIELD, COMMAND_LINE_FIELD_DB, DB),
    WORKS("debug", FLAG, COMMAND_LINE_CONSOLE, CONSOLE),
    LACKS("delete-usn-journal", FIELD, COMMAND_LINE_FIELD_DELETE_USN_JOURNAL, DELETE_USN_JOURNAL, JOURNALS),
    LACKS("desktop-shortcut", INSTALL, COMMAND_LINE_OPTION_DESKTOP_SHORTCUT, DESKTOP_SHORTCUT, INSTALLER),
    LACKS("details", VIEW, COMMAND_LINE_VIEW_DETAILS, DETAILS, WINDOWS),
    LACKS("diacritics", OPTION, COMMAND_LINE_OPTION_DIACRITICS, DIACRITICS, WINDOWS),
    LACKS("drive-links", LINK_TYPE, 0, DRIVE_LINKS, SERVERS),
    LACKS("edit", FIELD, COMMAND_LINE_FIELD_EDIT, EDIT, DESKTOP),
    WORKS("exit", FLAG, COMMAND_LINE_EXIT, EXIT),
    WORKS("f", FIELD, COMMAND_LINE_FIELD_FILE_LIST, FILELIST),
    WORKS("filelist", FIELD, COMMAND_LINE_FIELD_FILE_LIST, FILELIST),
    LACKS("filename", FIELD, COMMAND_LINE_FIELD_FILENAME, FILENAME, WINDOWS),
    LACKS("filter", FIELD, COMMAND_LINE_FIELD_FILTER, FILTER, WINDOWS),
    WORKS("first-instance", OPTION, COMMAND_LINE_OPTION_FIRST_INSTANCE, FIRST_INSTANCE),
    LACKS("folder-context-menu", INSTALL, COMMAND_LINE_OPTION_FOLDER_CONTEXT_MENU, FOLDER_CONTEXT_MENU,
          INSTALLER),
    LACKS("ftp-links", LINK_TYPE, 3, FTP_LINKS, SERVERS),
    LACKS("fullscreen", OPTION, COMMAND_LINE_OPTION_FULLSCREEN, FULLSCREEN, WINDOWS),
    LACKS("fwl-association", INSTALL, COMMAND_LINE_OPTION_FWL_ASSOCIATION, FWL_ASSOCIATION, INSTALLER),
    WORKS("h", FLAG, COMMAND_LINE_HELP, HELP),
    WORKS("help", FLAG, COMMAND_LINE_HELP, HELP),
    LACKS("home", FLAG, COMMAND_LINE_HOME, HOME, WINDOWS),
    LACKS("install", FIELD, COMMAND_LINE_FIELD_INSTALL, INSTALL, INSTALLER),
    LACKS("install-client-service", CLIENT_SERVICE, COMMAND_LINE_SERVICE_INSTALL, INSTALL_CLIENT_SERVICE,
          SERVICE),
    LACKS("install-config", FIELD, COMMAND_LINE_FIELD_INSTALL_CONFIG, INSTALL_CONFIG, INSTALLER),
    LACKS("install-options", FIELD, COMMAND_LINE_FIELD_INSTALL_OPTIONS, INSTALL_OPTIONS, INSTALLER),
    LACKS("install-service", SERVICE, COMMAND_LINE_SERVICE_INSTALL, INSTALL_SERVICE, SERVICE),
    LACKS("install-service-pipe-name", FIELD, COMMAND_LINE_FIELD_INSTALL_SERVICE_PIPE_NAME,
          INSTALL_SERVICE_PIPE_NAME, SERVICE),
    LACKS("install-service-security-descriptor", FIELD,
          COMMAND_LINE_FIELD_INSTALL_SERVICE_SECURITY_DESCRIPTOR, INSTALL_SERVICE_SECURITY_DESCRIPTOR,
          SERVICE),
    WORKS("instance", FIELD, COMMAND_LINE_FIELD_INSTANCE, INSTANCE),
    LACKS("is-run-as", FLAG, COMMAND_LINE_IS_RUN_AS, IS_RUN_AS, RIGHTS),
    WORKS("l", VIEW, COMMAND_LINE_VIEW_LOCAL, LOCAL),
    WORKS("language", FIELD, COMMAND_LINE_FIELD_LANGUAGE, LANGUAGE),
    LACKS("link-type", FIELD, COMMAND_LINE_FIELD_LINK_TYPE, LINK_TYPE, SERVERS),
    LACKS("load-delay", FIELD, COMMAND_LINE_FIELD_LOAD_DELAY, LOAD_DELAY, START),
    WORKS("local", VIEW, COMMAND_LINE_VIEW_LOCAL, LOCAL),
    LACKS("match-path", OPTION, COMMAND_LINE_OPTION_MATCH_PATH, MATCH_PATH, WINDOWS),
    LACKS("maximized", OPTION, COMMAND_LINE_OPTION_MAXIMIZED, MAXIMIZED, WINDOWS),
    LACKS("minimized", OPTION, COMMAND_LINE_OPTION_MINIMIZED, MINIMIZED, WINDOWS),
    LACKS("n", ON, COMMAND_LINE_OPTION_NEW_WINDOW, NEW_WINDOW, WINDOWS),
    LACKS("new-window", OPTION, COMMAND_LINE_OPTION_NEW_WINDOW, NEW_WINDOW, WINDOWS),
    WORKS("no-db", FLAG, COMMAND_LINE_NO_DB, NO_DB),
    LACKS("ontop", OPTION, COMMAND_LINE_OPTION_ONTOP, ONTOP, WINDOWS),
    LACKS("p", FIELD, COMMAND_LINE_FIELD_PATH, PATH, WINDOWS),
    LACKS("parent", FIELD, COMMAND_LINE_FIELD_PARENT, PARENT, WINDOWS),
    LACKS("parent-path", FIELD, COMMAND_LINE_FIELD_PARENT_PATH, PARENT_PATH, WINDOWS),
    LACKS("path", FIELD, COMMAND_LINE_FIELD_PATH, PATH, WINDOWS),
    LACKS("quick-launch-shortcut", INSTALL, COMMAND_LINE_OPTION_QUICK_LAUNCH_SHORTCUT, QUICK_LAUNCH_SHORTCUT,
          INSTALLER),
    WORKS("quit", FLAG, COMMAND_LINE_EXIT, EXIT),
    WORKS("read-only", FLAG, COMMAND_LINE_READ_ONLY, READ_ONLY),
    LACKS("regex", OPTION, COMMAND_LINE_OPTION_REGEX, REGEX, WINDOWS),
    WORKS("reindex", FLAG, COMMAND_LINE_REINDEX, REINDEX),
    LACKS("run-as-admin", ENABLE, COMMAND_LINE_OPTION_RUN_AS_ADMIN, RUN_AS_ADMIN, RIGHTS),
    WORKS_ON_POSIX("run-on-system-startup", INSTALL, COMMAND_LINE_OPTION_RUN_ON_SYSTEM_STARTUP,
                   RUN_ON_SYSTEM_STARTUP, INSTALLER),
    LACKS("s", FIELD, COMMAND_LINE_FIELD_SEARCH, SEARCH, WINDOWS),
    LACKS("search", FIELD, COMMAND_LINE_FIELD_SEARCH, SEARCH, WINDOWS),
    LACKS("searchfilelist", FIELD, COMMAND_LINE_FIELD_SEARCHFILELIST, SEARCHFILELIST, WINDOWS),
    LACKS("server-share-links", LINK_TYPE, 1, SERVER_SHARE_LINKS, SERVERS),
    LACKS("service-pipe-name", FIELD, COMMAND_LINE_FIELD_SERVICE_PIPE_NAME, SERVICE_PIPE_NAME, SERVICE),
    LACKS("sort", FIELD, COMMAND_LINE_FIELD_SORT, SORT, WINDOWS),
    LACKS("sort-ascending", SORT_ASCENDING, 0, SORT_ASCENDING, WINDOWS),
    LACKS("sort-descending", SORT_DESCENDING, 0, SORT_DESCENDING, WINDOWS),
    LACKS("start-client-service", CLIENT_SERVICE, COMMAND_LINE_SERVICE_START, START_CLIENT_SERVICE, SERVICE),
    LACKS("start-menu-shortcuts", INSTALL, COMMAND_LINE_OPTION_START_MENU_SHORTCUTS, START_MENU_SHORTCUTS,
          INSTALLER),
    LACKS("start-service", SERVICE, COMMAND_LINE_SERVICE_START, START_SERVICE, SERVICE),
    WORKS("startup", FLAG, COMMAND_LINE_STARTUP, STARTUP),
    LACKS("stop-client-service", CLIENT_SERVICE, COMMAND_LINE_SERVICE_STOP, STOP_CLIENT_SERVICE, SERVICE),
    LACKS("stop-service", SERVICE, COMMAND_LINE_SERVICE_STOP, STOP_SERVICE, SERVICE),
    LACKS("svc", FLAG, COMMAND_LINE_SVC, SVC, SERVICE),
    LACKS("svc-pipe-name", FIELD, COMMAND_LINE_FIELD_SVC_PIPE_NAME, SVC_PIPE_NAME, SERVICE),
    LACKS("svc-security-descriptor", FIELD, COMMAND_LINE_FIELD_SVC_SECURITY_DESCRIPTOR,
          SVC_SECURITY_DESCRIPTOR, SERVICE),
    LACKS("thumbnail-size", FIELD, COMMAND_LINE_FIELD_THUMBNAIL_SIZE, THUMBNAIL_SIZE, WINDOWS),
    LACKS("thumbnails", VIEW, COMMAND_LINE_VIEW_THUMBNAILS, THUMBNAILS, WINDOWS),
    LACKS("toggle-window", FLAG, COMMAND_LINE_TOGGLE_WINDOW, TOGGLE_WINDOW, DESKTOP),
    LACKS("uninstall", FIELD, COMMAND_LINE_FIELD_UNINSTALL, UNINSTALL, INSTALLER),
    LACKS("uninstall-client-service", CLIENT_SERVICE, COMMAND_LINE_SERVICE_UNINSTALL,
          UNINSTALL_CLIENT_SERVICE, SERVICE),
    LACKS("uninstall-service", SERVICE, COMMAND_LINE_SERVICE_UNINSTALL, UNINSTALL_SERVICE, SERVICE),
    LACKS("uninstall-user", FLAG, COMMAND_LINE_UNINSTALL_USER, UNINSTALL_USER, INSTALLER),
    WORKS("update", FLAG, COMMAND_LINE_UPDATE, UPDATE),
    LACKS("update-notification", ENABLE, COMMAND_LINE_OPTION_UPDATE_NOTIFICATION, UPDATE_NOTIFICATION,
          DESKTOP),
    LACKS("url", FIELD, COMMAND_LINE_FIELD_URL, URL, WINDOWS),
    LACKS("url-protocol", INSTALL, COMMAND_LINE_OPTION_URL_PROTOCOL, URL_PROTOCOL, INSTALLER),
    WORKS("verbose", OPTION, COMMAND_LINE_OPTION_VERBOSE, VERBOSE),
    LACKS("whole-word", OPTION, COMMAND_LINE_OPTION_WHOLE_WORD, WHOLE_WORD, WINDOWS),
    LACKS("ww", OPTION, COMMAND_LINE_OPTION_WHOLE_WORD, WHOLE_WORD, WINDOWS),
};
// clang-format on

#undef ROW
#undef WORKS
#undef WORKS_ON_POSIX
#undef LACKS

static consteval bool _command_line_is_sorted() {
    for (u32 i = 1; i < COMMAND_LINE_SWITCH_COUNT; i++) {
        if (std::string_view(command_line_switches[i - 1].name) >= command_line_switches[i].name)
            return false;
    }
    return true;
}
static_assert(_command_line_is_sorted());

// --- Finding a switch --------------------------------------------------------------------------------------

// Moves the text behind a name at its start, of which it may leave out any hyphen. False when the text does
// not begin with the name.
static bool _command_line_skip_name(const char **text, const char *name) {
    for (; *name; name++) {
        if (**text == *name)
            (*text)++;
        else if (*name != '-')
            return false;
    }
    return true;
}

static i32 _command_line_find_row(const char *text, const command_line_type_t *type) {
    for (u32 i = 0; i < COMMAND_LINE_SWITCH_COUNT; i++) {
        const command_line_switch_t *row = &command_line_switches[i];
        const bool fits =
            type ? row->type == *type
                 : row->type != COMMAND_LINE_TYPE_INSTALL && row->type != COMMAND_LINE_TYPE_ENABLE;
        const char *rest = text;
        if (fits && _command_line_skip_name(&rest, row->name) && !*rest)
            return static_cast<i32>(i);
    }
    return -1;
}

struct _command_line_prefix_t {
    const char *name;
    command_line_type_t type;
    bool turns_off;
};

static constexpr _command_line_prefix_t _command_line_prefixes[] = {
    {"no-", COMMAND_LINE_TYPE_OPTION, true},         {"install-", COMMAND_LINE_TYPE_INSTALL, false},
    {"uninstall-", COMMAND_LINE_TYPE_INSTALL, true}, {"enable-", COMMAND_LINE_TYPE_ENABLE, false},
    {"disable-", COMMAND_LINE_TYPE_ENABLE, true},
};

i32 command_line_find(const char *text, bool *turns_off) {
    *turns_off = false;
    const i32 index = _command_line_find_row(text, nullptr);
    if (index >= 0)
        return index;
    for (const _command_line_prefix_t &prefix : _command_line_prefixes) {
        const char *rest = text;
        const bool fits = _command_line_skip_name(&rest, prefix.name);
        const i32 found = fits ? _command_line_find_row(rest, &prefix.type) : -1;
        if (found >= 0) {
            *turns_off = prefix.turns_off;
            return found;
        }
    }
    return -1;
}

bool command_line_switch_works(const command_line_switch_t *row) {
    return row->works || (row->works_on_posix && os_path_separator == '/');
}

// --- Telling of switches -----------------------------------------------------------------------------------

static const char *_command_line_get_field_argument(u32 field) {
    switch (field) {
    case COMMAND_LINE_FIELD_LOAD_DELAY:
    case COMMAND_LINE_FIELD_LINK_TYPE:
    case COMMAND_LINE_FIELD_LANGUAGE:
    case COMMAND_LINE_FIELD_THUMBNAIL_SIZE: return " <number>";
    case COMMAND_LINE_FIELD_FILE_LIST:
    case COMMAND_LINE_FIELD_FILENAME:
    case COMMAND_LINE_FIELD_DB:
    case COMMAND_LINE_FIELD_CONFIG:
    case COMMAND_LINE_FIELD_EDIT:
    case COMMAND_LINE_FIELD_INSTALL_CONFIG:
    case COMMAND_LINE_FIELD_SEARCHFILELIST: return " <file>";
    case COMMAND_LINE_FIELD_PATH:
    case COMMAND_LINE_FIELD_PARENT_PATH:
    case COMMAND_LINE_FIELD_PARENT:
    case COMMAND_LINE_FIELD_INSTALL:
    case COMMAND_LINE_FIELD_UNINSTALL: return " <folder>";
    case COMMAND_LINE_FIELD_DELETE_USN_JOURNAL: return " <volume>";
    case COMMAND_LINE_FIELD_SORT: return " <name>[-ascending|-descending]";
    case COMMAND_LINE_FIELD_CONNECT: return " <server>";
    default: return " <text>";
    }
}

void command_line_cat_usage(utf8_buf_t *out, const command_line_switch_t *row) {
    const char *prefix = "", *argument = "";
    switch (row->type) {
    case COMMAND_LINE_TYPE_OPTION: prefix = "[no-]"; break;
    case COMMAND_LINE_TYPE_INSTALL: prefix = "install|uninstall-"; break;
    case COMMAND_LINE_TYPE_ENABLE: prefix = "enable|disable-"; break;
    case COMMAND_LINE_TYPE_FIELD: argument = _command_line_get_field_argument(row->value); break;
    case COMMAND_LINE_TYPE_CREATE_FILE_LIST: argument = " <file> <folder>"; break;
    case COMMAND_LINE_TYPE_CREATE_USN_JOURNAL: argument = " <volume> <max-size> <allocation-delta>"; break;
    default: break;
    }
    utf8_buf_cat_printf(out, "-%s%s%s", prefix, row->name, argument);
}

static void _command_line_cat_lacks(utf8_buf_t *out, const command_line_switch_t *row) {
    utf8_buf_cat_printf(out, localization_get(LOCALIZATION_COMMAND_LINE_LACKS), localization_get(row->lacks));
}

void command_line_get_lacking(const command_line_t *command_line, utf8_buf_t *out) {
    utf8_buf_empty(out);
    for (u32 i = 0; i < COMMAND_LINE_SWITCH_COUNT; i++) {
        const command_line_switch_t *row = &command_line_switches[i];
        if (command_line_switch_works(row) || !(command_line->given[i / 32] >> i % 32 & 1))
            continue;
        utf8_buf_cat_printf(out, "-%s: ", row->name);
        _command_line_cat_lacks(out, row);
        utf8_buf_cat_byte(out, '\n');
    }
}

void command_line_get_help(utf8_buf_t *out) {
    utf8_buf_copy_string(out, localization_get(LOCALIZATION_COMMAND_LINE_TITLE));
    utf8_buf_cat_string(out, "\n\n");
    for (const command_line_switch_t &row : command_line_switches) {
        utf8_buf_cat_string(out, "  ");
        command_line_cat_usage(out, &row);
        utf8_buf_cat_printf(out, "\n      %s", localization_get(row.help));
        if (!command_line_switch_works(&row)) {
            utf8_buf_cat_string(out, " (");
            _command_line_cat_lacks(out, &row);
            utf8_buf_cat_byte(out, ')');
        }
        utf8_buf_cat_byte(out, '\n');
    }
}

} // namespace findwright
