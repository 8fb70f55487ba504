// What of a folder on disk belongs into a folder source: the rules that a rebuild, a scan and a monitor
// share, so that all three find the same.
//
//   an item that is left out by its attributes (hidden, system) is none
//   a folder that is left out by the exclusions is none, and is not entered
//   a link is an item, and is not entered: it may lead in circles
//   another file system is not entered: it is a source of its own
//   a root of a file system that holds no files of a disk is not listed
//
// The root's name in the index is its path as one name, without a separator at its end: what lies in the root
// of a system whose paths begin with `\` is then `\usr` and not `\\usr`.
//
// Any thread, while the exclusions stay as they are.
#pragma once

#include "db/db_exclude.h"
#include "db/db_file_info.h"
#include "os/debug.h"
#include "os/os_folder.h"

#include <cstring>

namespace findwright {

struct db_folder_rules_t {
    const db_exclude_set_t *exclude;
    const char *root_path; // for the system
    u32 root_length;       // bytes of every path that the user named: those of the root's name
    u64 device;            // of the root
};

inline db_file_info_t db_folder_rules_get_info(const os_folder_entry_t *entry) {
    return {entry->size, entry->date_modified, entry->date_created, entry->date_accessed, entry->attributes};
}

// The rules of a source with that path, which must stay, and what is known of its root. False: there is no
// such folder.
inline bool db_folder_rules_open(db_folder_rules_t *rules, const db_exclude_set_t *exclude, const char *path,
                                 os_folder_entry_t *root) {
    u32 length = static_cast<u32>(std::strlen(path));
    while (length != 0 && path[length - 1] == '\\')
        length--;
    if (!os_folder_get_entry(path, root) || !root->is_folder)
        return false;
    *rules = {exclude, path, length, root->device};
    return true;
}

// Whether there is anything to list in the root.
inline bool db_folder_rules_is_root_listed(const db_folder_rules_t *rules) {
    if (os_folder_is_virtual(rules->root_path)) {
        debug_printf("not scanned, no files of a disk: %s\n", rules->root_path);
        return false;
    }
    return db_folder_is_included(rules->exclude, 0, rules->root_path, rules->root_length);
}

inline bool db_folder_rules_is_skipped(const db_folder_rules_t *rules, const os_folder_entry_t *entry) {
    return entry->length == 0 ||
           (rules->exclude->exclude_hidden && entry->attributes & OS_ATTRIBUTE_HIDDEN) ||
           (rules->exclude->exclude_system && entry->attributes & OS_ATTRIBUTE_SYSTEM);
}

// Of a folder that is included.
inline bool db_folder_rules_is_entered(const db_folder_rules_t *rules, const os_folder_entry_t *entry) {
    return !entry->is_link && entry->device == rules->device;
}

// How the folder itself is listed: see os_folder_list.
inline u32 db_folder_rules_root_length(const db_folder_rules_t *rules, bool is_root) {
    return is_root ? OS_FOLDER_ROOT : rules->root_length;
}

} // namespace findwright
