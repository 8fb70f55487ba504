#include "fw/fw_source.h"

#include "fw/fw_path.h"
#include "index/file_list.h"
#include "index/ntfs_partition.h"
#include "os/os.h"
#include "os/os_folder.h"

namespace findwright {

bool fw_source_is_given(const fw_options_t *options) {
    return !options->ntfs.empty() || !options->file_lists.empty() || !options->folders.empty();
}

// --- Volumes -----------------------------------------------------------------------------------------------

// The next default name of a root: C:, D: and on to Z:, then numbered ones.
static std::string _fw_next_root_name(u32 *next) {
    u32 number = (*next)++;
    u32 letter = 2 + number % 24;
    std::string name(1, static_cast<char>('A' + letter));
    return number < 24 ? name + ":" : name + std::to_string(number / 24) + ":";
}

// FILE=NAME, where a file of the whole name does not exist.
static void _fw_split_source(const std::string &text, std::string *file, std::string *name) {
    *file = text;
    size_t equals = text.rfind('=');
    if (equals == std::string::npos || os_file_exists(fw_path_from_user(text).c_str()))
        return;
    *file = text.substr(0, equals);
    *name = text.substr(equals + 1);
}

// Adds the NTFS volumes of one disk, device or image.
static std::string _fw_add_ntfs(const std::string &text, db_wanted_t *wanted, u32 *next_root) {
    std::string file, name;
    _fw_split_source(text, &file, &name);
    std::string path = fw_path_from_user(file);
    if (os_folder_exists(path.c_str()))
        return "cannot read " + file + ": it is a folder, not a volume or an image";
    os_volume_t *disk = os_volume_open(path.c_str());
    if (!disk)
        return "cannot open " + file + ": " + fw_system_error();
    char reason[256] = "";
    ntfs_partition_t partitions[NTFS_PARTITION_MAX];
    u32 count = ntfs_find_partitions(disk, partitions, reason);
    std::string error = count == 0 ? "cannot find an NTFS volume in " + file + ": " + reason : "";
    bool found = false;
    for (u32 i = 0; i < count; i++) {
        os_volume_t *part = os_volume_open_part(disk, partitions[i].offset, partitions[i].size);
        ntfs_info_t info;
        if (!ntfs_get_info(part, &info, reason)) {
            os_volume_close(part);
            error = "cannot read the NTFS volume in " + file + ": " + reason;
            continue;
        }
        std::string root = i == 0 && !name.empty() ? name : _fw_next_root_name(next_root);
        db_wanted_add_volume(wanted, path.c_str(), root.c_str(), "", "")->volume = part;
        found = true;
    }
    os_volume_close(disk);
    return found ? "" : error;
}

// --- What can be read --------------------------------------------------------------------------------------

// Each tells why not, or is empty.
static std::string _fw_check_volume(const char *name) {
    os_volume_t *volume = os_volume_open(name);
    if (!volume)
        return fw_system_error();
    os_volume_close(volume);
    return "";
}

static std::string _fw_check_file_list(const char *filename) {
    if (os_folder_exists(filename))
        return "it is a folder, not a file list";
    // A pipe would be empty once it was looked at here.
    os_file_info_t info;
    if (os_get_file_info(filename, &info) && info.size == 0)
        return "it is empty, or no file of a disk";
    const file_list_read_t all = {};
    switch (file_list_read(
        filename, &all, [](void *, const file_list_row_t *) { return false; }, nullptr)) {
    case FILE_LIST_READ: return "";
    case FILE_LIST_INVALID: return "it has no column Filename, so it is no file list";
    default: return fw_system_error();
    }
}

static std::string _fw_check_folder(const char *path) {
    os_folder_entry_t entry;
    if (!os_folder_get_entry(path, &entry))
        return fw_system_error();
    if (!entry.is_folder)
        return "it is a file, not a folder";
    if (os_folder_is_virtual(path))
        return "the system makes it up, it holds no files";
    if (!os_folder_list(
            path, OS_FOLDER_ROOT, [](void *, const os_folder_entry_t *) { return false; }, nullptr))
        return fw_system_error();
    return "";
}

static std::string _fw_cannot_read(const char *kind, const std::string &name, const std::string &reason) {
    return reason.empty() ? "" : std::string("cannot read the ") + kind + " " + name + ": " + reason;
}

std::string fw_source_check(const db_source_t *source) {
    switch (source->index->type) {
    case DB_INDEX_TYPE_FILE_LIST: {
        const char *filename = static_cast<const db_index_file_list_t *>(source->index)->filename;
        return _fw_cannot_read("file list", fw_path_for_user(filename), _fw_check_file_list(filename));
    }
    case DB_INDEX_TYPE_FOLDER: {
        const char *path = static_cast<const db_index_folder_t *>(source->index)->path;
        return _fw_cannot_read("folder", fw_path_for_user(path), _fw_check_folder(path));
    }
    default: {
        const char *guid = static_cast<const db_index_volume_t *>(source->index)->guid;
        return _fw_cannot_read("volume", fw_path_for_user(guid), _fw_check_volume(guid));
    }
    }
}

// --- All ---------------------------------------------------------------------------------------------------

std::string fw_source_add_all(const fw_options_t *options, db_wanted_t *wanted) {
    std::string error;
    u32 next_root = 0;
    for (size_t i = 0; i < options->ntfs.size() && error.empty(); i++)
        error = _fw_add_ntfs(options->ntfs[i], wanted, &next_root);
    for (size_t i = 0; i < options->file_lists.size() && error.empty(); i++) {
        std::string path = fw_path_from_user(options->file_lists[i]);
        error = _fw_cannot_read("file list", options->file_lists[i], _fw_check_file_list(path.c_str()));
        if (error.empty())
            db_wanted_add_file_list(wanted, path.c_str(), false);
    }
    for (size_t i = 0; i < options->folders.size() && error.empty(); i++) {
        std::string path = fw_path_from_user(options->folders[i]);
        error = _fw_cannot_read("folder", options->folders[i], _fw_check_folder(path.c_str()));
        if (error.empty())
            db_wanted_add_folder(wanted, path.c_str());
    }
    return error;
}

} // namespace findwright
