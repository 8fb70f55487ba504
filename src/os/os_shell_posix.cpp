#include "os/os_shell.h"

#include "base/pool.h"
#include "base/utf8.h"
#include "os/os_posix.h"
#include "os/os_shell_text.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <iterator>
#include <mutex>
#include <sys/stat.h>
#include <unistd.h>

namespace findwright {

// --- Files of the desktop ----------------------------------------------------------------------------------

// The largest ones there are have 200 KB.
static constexpr u32 SHELL_FILE_MAX = 4 * 1024 * 1024;

// By its path for the system. False for what is no plain file, or too large, and nothing is waited for.
static bool _shell_read_file(const char *path, utf8_buf_t *out) {
    utf8_buf_empty(out);
    int file = open(path, O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
    if (file == -1)
        return false;
    struct stat info;
    bool is_read = fstat(file, &info) == 0 && S_ISREG(info.st_mode) && info.st_size >= 0 &&
                   info.st_size <= SHELL_FILE_MAX;
    if (is_read) {
        auto size = static_cast<u32>(info.st_size);
        utf8_buf_grow_empty(out, size + 1);
        u32 length = 0;
        while (length < size) {
            ssize_t taken = read(file, out->data + length, size - length);
            if (taken == -1 && errno == EINTR)
                continue;
            if (taken <= 0)
                break;
            length += static_cast<u32>(taken);
        }
        utf8_buf_set_length(out, length);
    }
    close(file);
    return is_read;
}

// The user's folder for a kind of data, with the given name in it: by its variable, or by its usual place in
// the home folder. Relative values are not valid. False when it is not known.
static bool _shell_get_user_path(const char *variable, const char *usual, const char *name, utf8_buf_t *out) {
    const char *value = std::getenv(variable);
    if (value && value[0] == '/') {
        utf8_buf_printf(out, "%s/%s", value, name);
        return true;
    }
    const char *home = std::getenv("HOME");
    bool is_known = home && home[0] == '/';
    utf8_buf_printf(out, "%s/%s/%s", is_known ? home : "", usual, name);
    return is_known;
}

// The folders of the shared MIME database, the one that counts most first: the user's own, then those of the
// system. Empty for one that is not valid; false behind the last one.
static bool _shell_get_mime_folder(u32 index, utf8_buf_t *out) {
    static constexpr u32 FOLDERS_MAX = 64;
    utf8_buf_empty(out);
    if (index == 0) {
        if (!_shell_get_user_path("XDG_DATA_HOME", ".local/share", "mime", out))
            utf8_buf_empty(out);
        return true;
    }
    const char *list = std::getenv("XDG_DATA_DIRS");
    if (!list || !*list)
        list = "/usr/local/share/:/usr/share/";
    for (u32 i = 1; i < index && list; i++) {
        list = std::strchr(list, ':');
        if (list)
            list++;
    }
    if (!list || index >= FOLDERS_MAX)
        return false;
    if (*list == '/') {
        utf8_buf_copy_utf8(out, list, static_cast<u32>(std::strcspn(list, ":")));
        utf8_buf_cat_string(out, "/mime");
    }
    return true;
}

// --- The table of the types --------------------------------------------------------------------------------

struct _shell_type_t {
    const char *extension; // lower case
    const char *type;      // terminated
    u32 extension_length;
    u32 weight;
    u32 order;     // of the pattern among all
    bool is_exact; // the pattern was in lower case: what it says of other cases is only assumed
};

struct _shell_types_t {
    pool_t texts;
    _shell_type_t *types; // by extension, each once
    u32 count;
    u32 capacity;
    bool is_read;
};

static constexpr u32 SHELL_PATTERNS_MAX = 65536;

static std::mutex _shell_lock;
static _shell_types_t _shell_types; // under _shell_lock

static void _shell_add_pattern(_shell_types_t *types, const os_shell_pattern_t *pattern) {
    if (types->count == types->capacity) {
        types->capacity = types->capacity ? types->capacity * 2 : 1024;
        auto *grown = static_cast<_shell_type_t *>(mem_alloc(types->capacity * sizeof(_shell_type_t)));
        if (types->types) {
            std::memcpy(grown, types->types, types->count * sizeof(_shell_type_t));
            mem_free(types->types);
        }
        types->types = grown;
    }
    u32 length = utf8_lower_get_length(pattern->extension, pattern->extension_length);
    auto *extension = static_cast<char *>(pool_alloc(&types->texts, length));
    utf8_lower_copy(extension, pattern->extension, pattern->extension_length);
    auto *type = static_cast<char *>(pool_alloc(&types->texts, pattern->type_length + 1));
    std::memcpy(type, pattern->type, pattern->type_length);
    type[pattern->type_length] = 0;
    bool is_exact = utf8_is_equal(extension, length, pattern->extension, pattern->extension_length);
    types->types[types->count] = {extension, type, length, pattern->weight, types->count, is_exact};
    types->count++;
}

static void _shell_read_patterns(_shell_types_t *types, const char *folder, utf8_buf_t *text) {
    utf8_buf_t path;
    utf8_buf_init(&path);
    utf8_buf_printf(&path, "%s/globs2", folder);
    bool has_weights = _shell_read_file(path.data, text);
    if (!has_weights) {
        utf8_buf_printf(&path, "%s/globs", folder);
        _shell_read_file(path.data, text);
    }
    utf8_buf_kill(&path);
    const char *cursor = text->data;
    os_shell_pattern_t pattern;
    while (types->count < SHELL_PATTERNS_MAX &&
           os_shell_next_pattern(&cursor, text->data + text->length, has_weights, &pattern))
        _shell_add_pattern(types, &pattern);
}

static bool _shell_type_is_before(const _shell_type_t &a, const _shell_type_t &b) {
    int order = utf8_compare(a.extension, a.extension_length, b.extension, b.extension_length);
    if (order != 0)
        return order < 0;
    if (a.weight != b.weight)
        return a.weight > b.weight;
    if (a.is_exact != b.is_exact)
        return a.is_exact;
    return a.order < b.order;
}

static void _shell_read_types(_shell_types_t *types) {
    utf8_buf_t folder, text;
    utf8_buf_init(&folder);
    utf8_buf_init(&text);
    pool_init(&types->texts);
    for (u32 i = 0; _shell_get_mime_folder(i, &folder); i++) {
        if (folder.length)
            _shell_read_patterns(types, folder.data, &text);
    }
    utf8_buf_kill(&folder);
    utf8_buf_kill(&text);
    std::sort(types->types, types->types + types->count, _shell_type_is_before);
    u32 kept = 0;
    for (u32 i = 0; i < types->count; i++) {
        const _shell_type_t *type = &types->types[i], *last = kept ? &types->types[kept - 1] : nullptr;
        if (!last ||
            !utf8_is_equal(type->extension, type->extension_length, last->extension, last->extension_length))
            types->types[kept++] = *type;
    }
    types->count = kept;
    types->is_read = true;
}

void os_shell_kill() {
    std::unique_lock lock(_shell_lock, std::try_to_lock);
    if (!lock.owns_lock() || !_shell_types.is_read)
        return;
    pool_kill(&_shell_types.texts);
    if (_shell_types.types)
        mem_free(_shell_types.types);
    _shell_types = {};
}

// The type of an extension in lower case; an empty text when there is none.
static void _shell_find_type(const char *extension, u32 length, utf8_buf_t *out) {
    std::lock_guard lock(_shell_lock);
    if (!_shell_types.is_read)
        _shell_read_types(&_shell_types);
    const _shell_type_t *end = _shell_types.types + _shell_types.count;
    const _shell_type_t *found = std::partition_point(
        static_cast<const _shell_type_t *>(_shell_types.types), end, [&](const _shell_type_t &type) {
            return utf8_compare(type.extension, type.extension_length, extension, length) < 0;
        });
    bool is_known =
        found != end && utf8_is_equal(found->extension, found->extension_length, extension, length);
    utf8_buf_copy_string(out, is_known ? found->type : "");
}

// --- Descriptions ------------------------------------------------------------------------------------------

// The language of messages, as `de_DE`: without an encoding and a variant.
static const char *_shell_get_locale(u32 *length) {
    for (const char *variable : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
        const char *value = std::getenv(variable);
        if (value && *value) {
            *length = static_cast<u32>(std::strcspn(value, ".@"));
            return value;
        }
    }
    *length = 0;
    return "";
}

static bool _shell_get_description(const char *type, utf8_buf_t *out) {
    utf8_buf_t path, text;
    utf8_buf_init(&path);
    utf8_buf_init(&text);
    u32 locale_length;
    const char *locale = _shell_get_locale(&locale_length);
    bool found = false;
    for (u32 i = 0; !found && _shell_get_mime_folder(i, &path); i++) {
        if (!path.length)
            continue;
        utf8_buf_cat_printf(&path, "/%s.xml", type);
        found = _shell_read_file(path.data, &text) &&
                os_shell_find_comment(text.data, static_cast<u32>(text.length), locale, locale_length, out);
    }
    utf8_buf_kill(&path);
    utf8_buf_kill(&text);
    return found;
}

static void _shell_get_type(const char *extension, u32 length, utf8_buf_t *out) {
    utf8_buf_t lower;
    utf8_buf_init(&lower);
    utf8_buf_copy_utf8(&lower, extension, length);
    utf8_buf_lower(&lower);
    _shell_find_type(lower.data, static_cast<u32>(lower.length), out);
    utf8_buf_kill(&lower);
}

void os_get_type_name(const char *extension, u32 length, utf8_buf_t *out) {
    utf8_buf_t type;
    utf8_buf_init(&type);
    _shell_get_type(extension, length, &type);
    if (!type.length || !_shell_get_description(type.data, out))
        utf8_buf_copy_utf8(out, extension, length);
    utf8_buf_kill(&type);
}

void os_get_content_type(const char *extension, u32 length, utf8_buf_t *out) {
    _shell_get_type(extension, length, out);
    if (!out->length)
        utf8_buf_copy_string(out, os_shell_get_usual_content_type(extension, length));
}

void os_get_folder_type_name(utf8_buf_t *out) {
    if (!_shell_get_description("inode/directory", out))
        utf8_buf_copy_string(out, "Folder");
}

// --- Paths -------------------------------------------------------------------------------------------------

struct _shell_folder_t {
    const char *name;
    const char *key;   // in the list of the user's folders
    const char *usual; // the name in the home folder where the list lacks it
};

static constexpr _shell_folder_t _shell_folders[] = {
    {"home", "", ""},
    {"profile", "", ""},
    {"usersfilesfolder", "", ""},
    {"desktop", "XDG_DESKTOP_DIR", "Desktop"},
    {"downloads", "XDG_DOWNLOAD_DIR", "Downloads"},
    {"download", "XDG_DOWNLOAD_DIR", "Downloads"},
    {"documents", "XDG_DOCUMENTS_DIR", "Documents"},
    {"personal", "XDG_DOCUMENTS_DIR", "Documents"},
    {"music", "XDG_MUSIC_DIR", "Music"},
    {"my music", "XDG_MUSIC_DIR", "Music"},
    {"pictures", "XDG_PICTURES_DIR", "Pictures"},
    {"my pictures", "XDG_PICTURES_DIR", "Pictures"},
    {"videos", "XDG_VIDEOS_DIR", "Videos"},
    {"my video", "XDG_VIDEOS_DIR", "Videos"},
    {"templates", "XDG_TEMPLATES_DIR", "Templates"},
    {"public", "XDG_PUBLICSHARE_DIR", "Public"},
};

// The folder of a name as a path of the system; false when there is none of that name.
static bool _shell_get_folder(const char *name, u32 length, utf8_buf_t *out) {
    const _shell_folder_t *folder = std::find_if(
        std::begin(_shell_folders), std::end(_shell_folders), [&](const _shell_folder_t &candidate) {
            return utf8_compare_lower(candidate.name, utf8_length(candidate.name), name, length) == 0;
        });
    if (folder == std::end(_shell_folders))
        return false;
    const char *home = std::getenv("HOME");
    if (!home || home[0] != '/')
        home = "";
    if (!*folder->key) {
        utf8_buf_copy_string(out, home);
        return *home;
    }
    utf8_buf_t text;
    utf8_buf_init(&text);
    bool found = _shell_get_user_path("XDG_CONFIG_HOME", ".config", "user-dirs.dirs", out) &&
                 _shell_read_file(out->data, &text) &&
                 os_shell_find_user_folder(text.data, static_cast<u32>(text.length), folder->key, home, out);
    utf8_buf_kill(&text);
    if (!found && *home) {
        utf8_buf_printf(out, "%s/%s", home, folder->usual);
        found = true;
    }
    return found;
}

bool os_shell_get_path(const char *text, u32 length, utf8_buf_t *out) {
    static constexpr char SCHEME[] = "shell:";
    static constexpr u32 SCHEME_LENGTH = sizeof SCHEME - 1;
    utf8_buf_empty(out);
    if (!utf8_equal_nocase(text, length, SCHEME, SCHEME_LENGTH))
        return false;
    const char *name = text + SCHEME_LENGTH, *end = text + length;
    const char *rest = std::find_if(name, end, utf8_is_separator);
    utf8_buf_t folder;
    utf8_buf_init(&folder);
    bool found = _shell_get_folder(name, static_cast<u32>(rest - name), &folder);
    if (found) {
        const char *path = folder.data;
        while (path[0] == '/' && path[1] == '/') // two at the start would make a share
            path++;
        rest = std::find_if_not(rest, end, utf8_is_separator);
        os_path_from_system(path, utf8_length(path), out);
        utf8_buf_add_trailing_separator(out);
        utf8_buf_cat_utf8(out, rest, static_cast<u32>(end - rest));
        utf8_buf_fix_path(out);
        utf8_buf_canonicalize(out);
        if (out->length > 1)
            utf8_buf_remove_trailing_separator(out);
        found = os_folder_exists(out->data) || os_file_exists(out->data);
    }
    if (!found)
        utf8_buf_empty(out);
    utf8_buf_kill(&folder);
    return found;
}

} // namespace findwright
