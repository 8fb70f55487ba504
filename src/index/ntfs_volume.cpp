#include "index/ntfs_volume.h"

#include "base/mem.h"
#include "base/utf8.h"
#include "os/debug.h"
#include "os/os.h"

#include <algorithm>
#include <cstring>

namespace findwright {

static constexpr u32 SUBSTITUTION_STEPS = 256;  // a walk that takes so many goes in a circle
static constexpr u32 SUBSTITUTION_FOLDER = 260; // UTF-16 units, the longest path that such a drive can have
static constexpr char SUBSTITUTED[] = "\\??\\";
static constexpr char DISK_DEVICE[] = "\\Device\\HarddiskVolume";

struct _ntfs_volume_scan_t {
    const ntfs_volume_system_t *system;
    const ntfs_volume_settings_t *settings;
    ntfs_volume_list_t *list;
};

// A text for the length of a scope.
struct _ntfs_volume_text_t : utf8_buf_t {
    _ntfs_volume_text_t() { utf8_buf_init(this); }
    ~_ntfs_volume_text_t() { utf8_buf_kill(this); }
};

// A drive by its letter, as `X:` and as `X:\`.
struct _ntfs_volume_drive_t {
    explicit _ntfs_volume_drive_t(char letter) : name{letter, ':', 0}, root{letter, ':', '\\', 0} {}
    char name[3], root[4];
};

// --- The list ----------------------------------------------------------------------------------------------

static ntfs_volume_t *_ntfs_volume_add(ntfs_volume_list_t *list, const char *path, const char *guid,
                                       const char *root, const char *include_only) {
    auto *volume = static_cast<ntfs_volume_t *>(mem_alloc(sizeof(ntfs_volume_t)));
    *volume = {};
    volume->path = utf8_alloc_copy(path);
    volume->guid = utf8_alloc_copy(guid);
    volume->root = utf8_alloc_copy(root ? root : "");
    volume->include_only = utf8_alloc_copy(include_only ? include_only : "");
    *(list->last ? &list->last->next : &list->first) = volume;
    list->last = volume;
    list->count++;
    return volume;
}

static void _ntfs_volume_free(ntfs_volume_t *volume) {
    mem_free(volume->path);
    mem_free(volume->guid);
    mem_free(volume->root);
    mem_free(volume->include_only);
    mem_free(volume);
}

void ntfs_volume_destroy_list(ntfs_volume_list_t *list) {
    for (ntfs_volume_t *volume = list->first, *next; volume; volume = next) {
        next = volume->next;
        _ntfs_volume_free(volume);
    }
    mem_free(list);
}

ntfs_volume_t *ntfs_volume_find(const ntfs_volume_list_t *list, const char *guid, const char *path,
                                const char *root) {
    for (ntfs_volume_t *volume = list->first; volume; volume = volume->next) {
        if (!std::strcmp(volume->guid, guid) && !std::strcmp(volume->path, path) &&
            !std::strcmp(volume->root, root))
            return volume;
    }
    return nullptr;
}

static void _ntfs_volume_add_config(ntfs_volume_list_t *list, const ntfs_volume_config_t *config) {
    ntfs_volume_t *volume =
        _ntfs_volume_add(list, config->path, config->guid, config->root, config->include_only);
    volume->monitor = config->monitor;
    volume->load_recent_changes = config->load_recent_changes;
    volume->include = config->include;
    volume->from_config = true;
    debug_printf("config volume: %s | %s | %s\n", volume->path, volume->guid, volume->root);
}

// --- What the system is asked ------------------------------------------------------------------------------

// The kind of drive, 0 for one whose volumes have no place in the list.
static u32 _ntfs_volume_drive_type(const _ntfs_volume_scan_t *scan, const char *root) {
    return scan->system->get_drive_type ? scan->system->get_drive_type(root) : 0;
}

static bool _ntfs_volume_is_wanted_type(u32 drive_type) {
    return drive_type == NTFS_VOLUME_FIXED || drive_type == NTFS_VOLUME_REMOVABLE ||
           drive_type == NTFS_VOLUME_RAM_DISK;
}

// 0 or an error number, as the system's own call.
static u32 _ntfs_volume_name(const _ntfs_volume_scan_t *scan, const char *root, utf8_buf_t *volume) {
    return scan->system->get_volume_name ? scan->system->get_volume_name(root, volume)
                                         : NTFS_VOLUME_NOT_IMPLEMENTED;
}

static bool _ntfs_volume_query_device(const _ntfs_volume_scan_t *scan, const char *drive,
                                      utf8_buf_t *target) {
    if (!scan->system->query_dos_device || scan->system->query_dos_device(drive, target))
        return false;
    debug_printf("QueryDosDevice %s %s\n", drive, target->data);
    return true;
}

static bool _ntfs_volume_begins_with(const char *text, const char *pattern) {
    return !std::strncmp(text, pattern, std::strlen(pattern));
}

static bool _ntfs_volume_begins_with_nocase(const char *text, const char *pattern) {
    return utf8_equal_nocase(text, utf8_length(text), pattern, utf8_length(pattern));
}

static int _ntfs_volume_compare_fold(const char *a, const char *b) {
    return utf8_compare_fold(a, utf8_length(a), b, utf8_length(b));
}

// --- Offers ------------------------------------------------------------------------------------------------

static bool _ntfs_volume_auto_include(const _ntfs_volume_scan_t *scan, u32 drive_type) {
    return drive_type == NTFS_VOLUME_REMOVABLE ? scan->settings->auto_include_removable_volumes
                                               : scan->settings->auto_include_fixed_volumes;
}

enum _ntfs_volume_format_t { FORMAT_NTFS, FORMAT_OTHER, FORMAT_NOT_KNOWN };

static _ntfs_volume_format_t _ntfs_volume_get_format(const _ntfs_volume_scan_t *scan, const char *guid) {
    _ntfs_volume_text_t root, name;
    utf8_buf_copy_string(&root, guid);
    utf8_buf_add_trailing_separator(&root);
    if (!scan->system->get_file_system || scan->system->get_file_system(root.data, &name))
        return FORMAT_NOT_KNOWN;
    return utf8_compare_lower(name.data, static_cast<u32>(name.length), "ntfs", 4) ? FORMAT_OTHER
                                                                                   : FORMAT_NTFS;
}

static void _ntfs_volume_add_offered(const _ntfs_volume_scan_t *scan, const char *path, const char *guid,
                                     const char *root, u32 drive_type) {
    ntfs_volume_t *volume = _ntfs_volume_add(scan->list, path, guid, root, nullptr);
    volume->found = true;
    volume->monitor = true;
    volume->include = _ntfs_volume_auto_include(scan, drive_type);
    volume->drive_type = drive_type;
    debug_printf("add new found ntfs volume: %s | %s | %s | %p\n", path, guid, root, volume);
    debug_printf("add volume: %s | %s | %s\n", path, guid, root);
}

static void _ntfs_volume_offer_names(const _ntfs_volume_scan_t *scan, const char *path, const char *guid,
                                     const char *root, u32 drive_type, bool only_if_new) {
    ntfs_volume_t *known = ntfs_volume_find(scan->list, guid, path, root);
    const bool apply_rules = scan->list->apply_rules;
    if (known) {
        if ((apply_rules && !known->include) || (only_if_new && known->found))
            return;
        known->drive_type = drive_type;
    } else if (apply_rules && !_ntfs_volume_auto_include(scan, drive_type)) {
        return;
    }
    // Where the system can't tell (a drive that is empty or locked), a volume that is known as NTFS stays so,
    // and one that is not is no match.
    const _ntfs_volume_format_t format = _ntfs_volume_get_format(scan, guid);
    if (format == FORMAT_OTHER || (format == FORMAT_NOT_KNOWN && !known))
        return;
    if (known) {
        debug_printf("add found ntfs volume: %s | %s | %s | %p\n", path, guid, root, known);
        known->found = true;
    } else {
        _ntfs_volume_add_offered(scan, path, guid, root, drive_type);
    }
}

// Takes a volume that the system shows into the list. Backslashes at the ends of path and guid are dropped.
// With `only_if_new` another pass of the same scan comes first.
static void _ntfs_volume_offer(const _ntfs_volume_scan_t *scan, const char *path, const char *guid,
                               const char *root, u32 drive_type, bool only_if_new) {
    _ntfs_volume_text_t bare_path, bare_guid;
    utf8_buf_copy_string(&bare_path, path);
    utf8_buf_remove_trailing_separator(&bare_path);
    utf8_buf_copy_string(&bare_guid, guid);
    utf8_buf_remove_trailing_separator(&bare_guid);
    _ntfs_volume_offer_names(scan, bare_path.data, bare_guid.data, root, drive_type, only_if_new);
}

// --- Pass over the system's volumes ------------------------------------------------------------------------

static void _ntfs_volume_offer_paths(const _ntfs_volume_scan_t *scan, const char *volume, u32 drive_type,
                                     u32 length) {
    _ntfs_volume_text_t names;
    if (scan->system->get_path_names(volume, &length, &names))
        return;
    const char *end = names.data + names.length;
    for (const char *name = names.data; name < end && *name; name += std::strlen(name) + 1) {
        debug_printf("GetVolumePathNamesForVolumeName %s\n", name);
        _ntfs_volume_offer(scan, name, volume, "", drive_type, false);
    }
}

static void _ntfs_volume_offer_mount_point(const _ntfs_volume_scan_t *scan, const char *root,
                                           const char *folder) {
    _ntfs_volume_text_t path, volume;
    utf8_buf_copy_string(&path, root);
    utf8_buf_cat_string(&path, folder);
    if (_ntfs_volume_name(scan, path.data, &volume))
        return;
    const u32 drive_type = _ntfs_volume_drive_type(scan, volume.data);
    if (_ntfs_volume_is_wanted_type(drive_type))
        _ntfs_volume_offer(scan, path.data, volume.data, "", drive_type, false);
}

static void _ntfs_volume_offer_mount_points(const _ntfs_volume_scan_t *scan, const char *root) {
    const ntfs_volume_system_t *system = scan->system;
    if (!system->find_first_mount_point)
        return;
    _ntfs_volume_text_t folder;
    const std::intptr_t find = system->find_first_mount_point(root, &folder);
    if (find == NTFS_VOLUME_FIND_NONE)
        return;
    do {
        _ntfs_volume_offer_mount_point(scan, root, folder.data);
    } while (system->find_next_mount_point(find, &folder));
    system->find_mount_point_close(find);
}

// For a system that can't tell the paths of a volume: the first letter whose volume it is, and the mount
// points below.
static void _ntfs_volume_offer_letter_of(const _ntfs_volume_scan_t *scan, const char *volume,
                                         u32 drive_type) {
    if (!scan->system->get_volume_name)
        return;
    _ntfs_volume_text_t name;
    for (char letter = 'A'; letter <= 'Z'; letter++) {
        const _ntfs_volume_drive_t drive(letter);
        debug_printf("GetVolumeNameForVolumeMountPoint %s\n", drive.root);
        if (_ntfs_volume_name(scan, drive.root, &name))
            continue;
        debug_printf("GetVolumeNameForVolumeMountPoint ok %s %s\n", name.data, volume);
        if (_ntfs_volume_compare_fold(name.data, volume))
            continue;
        _ntfs_volume_offer(scan, drive.name, volume, "", drive_type, false);
        if (drive_type != NTFS_VOLUME_REMOVABLE || scan->settings->find_mount_points_on_removable_volumes)
            _ntfs_volume_offer_mount_points(scan, drive.root);
        return;
    }
}

static void _ntfs_volume_scan_volume(const _ntfs_volume_scan_t *scan, const char *volume) {
    const u32 drive_type = _ntfs_volume_drive_type(scan, volume);
    debug_printf("volume %s: drive type %d\n", volume, drive_type);
    if (!_ntfs_volume_is_wanted_type(drive_type))
        return;
    u32 length = 0;
    const u32 error = scan->system->get_path_names ? scan->system->get_path_names(volume, &length, nullptr)
                                                   : NTFS_VOLUME_NOT_IMPLEMENTED;
    if (!error)
        return;
    debug_printf("GetVolumePathNamesForVolumeName %d\n", error);
    if (error == NTFS_VOLUME_MORE_DATA)
        _ntfs_volume_offer_paths(scan, volume, drive_type, length);
    else
        _ntfs_volume_offer_letter_of(scan, volume, drive_type);
}

static void _ntfs_volume_scan_volumes(const _ntfs_volume_scan_t *scan) {
    const ntfs_volume_system_t *system = scan->system;
    if (!system->find_first_volume)
        return;
    _ntfs_volume_text_t volume;
    const std::intptr_t find = system->find_first_volume(&volume);
    debug_printf("VEH %d\n", static_cast<i32>(find));
    if (find == NTFS_VOLUME_FIND_NONE)
        return;
    do {
        _ntfs_volume_scan_volume(scan, volume.data);
    } while (system->find_next_volume(find, &volume));
    system->find_volume_close(find);
}

// --- Pass over the drive letters ---------------------------------------------------------------------------

// Shortens a text to so many UTF-16 units, between characters.
static void _ntfs_volume_cut(utf8_buf_t *text, u32 units) {
    const char *at = text->data, *end = at + text->length;
    while (at < end) {
        u32 value;
        const u32 bytes = utf8_decode(at, end, &value);
        const u32 taken = value < 0x10000 ? 1 : 2;
        if (taken > units)
            break;
        units -= taken;
        at += bytes;
    }
    utf8_buf_set_length(text, static_cast<u32>(at - text->data));
}

// Puts what a substituted drive stands for in front of the folder below it.
static void _ntfs_volume_prepend_folder(utf8_buf_t *folder, const char *above) {
    _ntfs_volume_text_t whole;
    if (folder->length)
        utf8_buf_path_cat_filename(&whole, above, utf8_length(above), folder->data,
                                   static_cast<u32>(folder->length));
    else
        utf8_buf_copy_string(&whole, above);
    _ntfs_volume_cut(&whole, SUBSTITUTION_FOLDER);
    utf8_buf_copy_utf8(folder, whole.data, static_cast<u32>(whole.length));
}

// Follows a drive, through the drives that it is substituted for, to a volume and a folder on it. False where
// that leads to no volume name.
static bool _ntfs_volume_follow(const _ntfs_volume_scan_t *scan, char letter, utf8_buf_t *volume,
                                utf8_buf_t *folder) {
    constexpr u32 PREFIX = sizeof(SUBSTITUTED) - 1;
    _ntfs_volume_text_t target;
    utf8_buf_empty(folder);
    for (u32 step = 1;; step++) {
        const _ntfs_volume_drive_t drive(letter);
        if (!_ntfs_volume_name(scan, drive.root, volume))
            return true;
        if (step == SUBSTITUTION_STEPS || !_ntfs_volume_query_device(scan, drive.name, &target))
            return false;
        const char *to = target.data + PREFIX;
        if (!_ntfs_volume_begins_with(target.data, SUBSTITUTED) || !to[0] || to[1] != ':')
            return false;
        letter = to[0];
        if (to[2] == '\\')
            _ntfs_volume_prepend_folder(folder, to + 3);
    }
}

static void _ntfs_volume_offer_substituted(const _ntfs_volume_scan_t *scan, char letter) {
    _ntfs_volume_text_t volume, folder;
    if (!_ntfs_volume_follow(scan, letter, &volume, &folder))
        return;
    const u32 drive_type = _ntfs_volume_drive_type(scan, volume.data);
    if (_ntfs_volume_is_wanted_type(drive_type))
        _ntfs_volume_offer(scan, _ntfs_volume_drive_t(letter).name, volume.data, folder.data, drive_type,
                           false);
}

static void _ntfs_volume_offer_nameless(const _ntfs_volume_scan_t *scan, const _ntfs_volume_drive_t &drive) {
    _ntfs_volume_text_t device;
    utf8_buf_printf(&device, "\\\\.\\%s", drive.root);
    const u32 drive_type = _ntfs_volume_drive_type(scan, device.data);
    if (_ntfs_volume_is_wanted_type(drive_type))
        _ntfs_volume_offer(scan, drive.name, device.data, "", drive_type, true);
}

static void _ntfs_volume_scan_drive(const _ntfs_volume_scan_t *scan, char letter) {
    const _ntfs_volume_drive_t drive(letter);
    _ntfs_volume_text_t target, volume;
    if (!_ntfs_volume_query_device(scan, drive.name, &target))
        return;
    if (_ntfs_volume_begins_with(target.data, SUBSTITUTED))
        return _ntfs_volume_offer_substituted(scan, letter);
    if (!_ntfs_volume_begins_with(target.data, DISK_DEVICE))
        return;
    if (const u32 error = _ntfs_volume_name(scan, drive.root, &volume)) {
        debug_printf("%s GetVolumeNameForVolumeMountPoint FAILED %d\n", drive.root, error);
        return _ntfs_volume_offer_nameless(scan, drive);
    }
    const u32 drive_type = _ntfs_volume_drive_type(scan, volume.data);
    debug_printf("%s GetVolumeNameForVolumeMountPoint %s %d\n", drive.root, volume.data, drive_type);
    if (!_ntfs_volume_is_wanted_type(drive_type))
        return;
    debug_printf("%s is ntfs\n", drive.root);
    _ntfs_volume_offer(scan, drive.name, volume.data, "", drive_type, true);
}

// --- Rules and order ---------------------------------------------------------------------------------------

static void _ntfs_volume_mark_duplicates(ntfs_volume_list_t *list) {
    for (ntfs_volume_t *gone = list->first; gone; gone = gone->next) {
        for (ntfs_volume_t *other = list->first; other && !gone->found; other = other->next)
            gone->duplicate |= other->found && !std::strcmp(other->guid, gone->guid);
    }
}

static bool _ntfs_volume_is_kept(const _ntfs_volume_scan_t *scan, const ntfs_volume_t *volume) {
    if (!volume->include)
        return !scan->list->apply_rules;
    if (volume->duplicate)
        return false;
    if (!scan->settings->auto_remove_offline_ntfs_volumes || volume->found)
        return true;
    // The system would show a volume of its own; of what is named in any other way it knows nothing.
    return !_ntfs_volume_begins_with_nocase(volume->guid, "\\\\?\\volume{") &&
           !_ntfs_volume_begins_with_nocase(volume->guid, "\\\\.\\");
}

static bool _ntfs_volume_is_before(const ntfs_volume_t *a, const ntfs_volume_t *b) {
    const char *const names[][2] = {{a->path, b->path}, {a->guid, b->guid}, {a->root, b->root}};
    for (const auto &name : names) {
        if (const int order = _ntfs_volume_compare_fold(name[0], name[1]))
            return order < 0;
    }
    for (const auto &name : names) {
        if (const int order = std::strcmp(name[0], name[1]))
            return order < 0;
    }
    return false;
}

// Takes the list apart, and strings what is kept together in order.
static void _ntfs_volume_cut_and_sort(const _ntfs_volume_scan_t *scan) {
    ntfs_volume_list_t *list = scan->list;
    auto **volumes = static_cast<ntfs_volume_t **>(mem_alloc(list->count * sizeof(ntfs_volume_t *)));
    u32 count = 0;
    for (ntfs_volume_t *volume = list->first, *next; volume; volume = next) {
        next = volume->next;
        if (_ntfs_volume_is_kept(scan, volume))
            volumes[count++] = volume;
        else
            _ntfs_volume_free(volume);
    }
    std::sort(volumes, volumes + count, _ntfs_volume_is_before);
    for (u32 i = 0; i < count; i++)
        volumes[i]->next = i + 1 < count ? volumes[i + 1] : nullptr;
    list->first = count ? volumes[0] : nullptr;
    list->last = count ? volumes[count - 1] : nullptr;
    list->count = count;
    mem_free(volumes);
}

// --- The scan ----------------------------------------------------------------------------------------------

static void _ntfs_volume_scan(const _ntfs_volume_scan_t *scan) {
    for (u32 i = 0; i < scan->settings->volume_count; i++)
        _ntfs_volume_add_config(scan->list, &scan->settings->volumes[i]);
    _ntfs_volume_scan_volumes(scan);
    if (scan->system->query_dos_device) {
        for (char letter = 'A'; letter <= 'Z'; letter++)
            _ntfs_volume_scan_drive(scan, letter);
    }
    _ntfs_volume_mark_duplicates(scan->list);
    _ntfs_volume_cut_and_sort(scan);
}

ntfs_volume_list_t *ntfs_volume_create_list_of(const ntfs_volume_system_t *system,
                                               const ntfs_volume_settings_t *settings, bool apply_rules) {
    const u32 start = os_get_tick_count();
    const u32 mode = system->set_error_mode ? system->set_error_mode(NTFS_VOLUME_NO_ERROR_DIALOGS) : 0;
    auto *list = static_cast<ntfs_volume_list_t *>(mem_alloc(sizeof(ntfs_volume_list_t)));
    *list = {};
    list->apply_rules = apply_rules;
    const _ntfs_volume_scan_t scan = {system, settings, list};
    _ntfs_volume_scan(&scan);
    for (const ntfs_volume_t *volume = list->first; volume; volume = volume->next)
        debug_printf("volume: %s | %s | %s found %d\n", volume->path, volume->guid, volume->root,
                     volume->found);
    debug_printf("ntfs volume create list %f seconds\n", os_get_tick_count() - start);
    if (system->set_error_mode)
        system->set_error_mode(mode);
    return list;
}

ntfs_volume_list_t *ntfs_volume_create_list(const ntfs_volume_settings_t *settings, bool apply_rules) {
    ntfs_volume_system_t system;
    ntfs_volume_get_system(&system);
    return ntfs_volume_create_list_of(&system, settings, apply_rules);
}

} // namespace findwright
