// The NTFS volumes that are to be indexed, and under which names: what the settings remember, merged with
// what the system shows now, cut by the rules for volumes that came and went, and sorted.
//
// A volume has three names, and all three are its identity, byte for byte: `guid` to open it by, normally
// `\\?\Volume{...}`, `\\.\X:` where the drive has no volume name, or the file name of an image; `path` that
// its items appear under, such as `C:` or `C:\mount\data`; `root`, the folder of it that the index begins
// with, empty for all of it. A volume that is mounted twice stands in the list twice.
//
//     settings --------------------------------+
//     volumes of the system, by their paths ---+--> offers --> list --> duplicates, rules, order
//     drive letters, substituted ones too -----+
//
// What can't be asked about is not in the list; there is no error, and an empty list is a valid result.
//
// Owner: the caller of ntfs_volume_create_list owns the list, which is a snapshot, and gives it to
// ntfs_volume_destroy_list; another thread may do that. The list is made on the calling thread, which must be
// one that may read the settings.
#pragma once

#include "base/types.h"
#include "base/utf8_buf.h"

namespace findwright {

// --- What the settings say ---------------------------------------------------------------------------------

// A volume that the settings know; its guid and path are not empty, and no two have the same three names.
// `root` and `include_only` may be 0 for empty.
struct ntfs_volume_config_t {
    const char *guid, *path, *root, *include_only;
    bool include, load_recent_changes, monitor;
};

struct ntfs_volume_settings_t {
    const ntfs_volume_config_t *volumes;
    u32 volume_count;
    bool auto_include_fixed_volumes;       // a new fixed volume or RAM disk is included
    bool auto_include_removable_volumes;   // a new removable volume is included
    bool auto_remove_offline_ntfs_volumes; // a volume of the system that is gone leaves the list
    bool find_mount_points_on_removable_volumes;
};

// --- The list ----------------------------------------------------------------------------------------------

// Kinds of drives, with the system's numbers.
inline constexpr u32 NTFS_VOLUME_REMOVABLE = 2;
inline constexpr u32 NTFS_VOLUME_FIXED = 3;
inline constexpr u32 NTFS_VOLUME_RAM_DISK = 6;

struct ntfs_volume_t {
    ntfs_volume_t *next;
    char *path; // what the system gave ends without a backslash, and so do guids
    char *guid;
    char *root;
    bool found;         // seen on the system in this scan
    bool duplicate;     // not found, while another entry of the same guid was: the volume changed its path
    char *include_only; // a list of folders; empty: all
    bool monitor;       // kept current from the journal
    bool load_recent_changes;
    bool include;     // is to be indexed
    bool from_config; // came from the settings
    u32 drive_type;   // one of the kinds above; 0 while the system did not show it
};

struct ntfs_volume_list_t {
    ntfs_volume_t *first, *last;
    u32 count;
    bool apply_rules;
};

// With `apply_rules` the volumes that are to be indexed, without it all that are known, for the user to
// choose from.
ntfs_volume_list_t *ntfs_volume_create_list(const ntfs_volume_settings_t *settings, bool apply_rules);
void ntfs_volume_destroy_list(ntfs_volume_list_t *list);
// The entry with these three names; 0 for none.
ntfs_volume_t *ntfs_volume_find(const ntfs_volume_list_t *list, const char *guid, const char *path,
                                const char *root);

// --- The system's calls ------------------------------------------------------------------------------------

inline constexpr std::intptr_t NTFS_VOLUME_FIND_NONE = -1;
inline constexpr u32 NTFS_VOLUME_MORE_DATA = 234;       // the error number for a buffer that is too small
inline constexpr u32 NTFS_VOLUME_NOT_IMPLEMENTED = 120; // and for a call that the system lacks
inline constexpr u32 NTFS_VOLUME_NO_ERROR_DIALOGS = 1;  // for set_error_mode: an empty drive just fails

// What the list asks of the system. An entry is 0 where the system does not have the call, and the scan goes
// on without. Names of volumes and of roots end in a backslash on their way in and out; a drive is `X:`. A
// result of type u32 is 0, or the system's error number; after a failure a text that was asked for is empty.
struct ntfs_volume_system_t {
    // NTFS_VOLUME_FIND_NONE, or a search that stands at the volume of that name. The three are there or not
    // there together.
    std::intptr_t (*find_first_volume)(utf8_buf_t *volume);
    bool (*find_next_volume)(std::intptr_t find, utf8_buf_t *volume);
    void (*find_volume_close)(std::intptr_t find);
    // The paths at which a volume appears, each terminated, with an empty one at the end. `names` 0 only
    // asks: it succeeds if there is none, else it fails with NTFS_VOLUME_MORE_DATA and the length, which the
    // next call takes back.
    u32 (*get_path_names)(const char *volume, u32 *length, utf8_buf_t *names);
    u32 (*get_volume_name)(const char *root, utf8_buf_t *volume);
    // The folders of a root that are volumes' mount points, as `folder\`. The three go together likewise.
    std::intptr_t (*find_first_mount_point)(const char *root, utf8_buf_t *folder);
    bool (*find_next_mount_point)(std::intptr_t find, utf8_buf_t *folder);
    void (*find_mount_point_close)(std::intptr_t find);
    // What a drive letter stands for, when that is less than 260 UTF-16 units.
    u32 (*query_dos_device)(const char *drive, utf8_buf_t *target);
    u32 (*get_drive_type)(const char *root); // no error number: the kind of drive
    u32 (*get_file_system)(const char *root, utf8_buf_t *name);
    u32 (*set_error_mode)(u32 mode); // the mode until now
};

// Fills in the calls of the running system.
void ntfs_volume_get_system(ntfs_volume_system_t *system);
// ntfs_volume_create_list of a system made of other calls.
ntfs_volume_list_t *ntfs_volume_create_list_of(const ntfs_volume_system_t *system,
                                               const ntfs_volume_settings_t *settings, bool apply_rules);

} // namespace findwright
