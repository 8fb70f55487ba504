#include "app/db_settings.h"

#include "app/config.h"
#include "app/localization.h"
#include "base/mem.h"
#include "base/utf8.h"
#include "index/db_create.h"
#include "index/db_lifecycle.h"
#include "index/ntfs_volume.h"
#include "os/os.h"
#include "track/db_schedule.h"

#include <cstring>

namespace findwright {

// --- Columns and exclusions --------------------------------------------------------------------------------

static u32 _db_settings_get_flags() {
    const struct {
        u32 setting;
        u32 flag;
    } flags[] = {
        {index_size, DB_FLAG_SIZE},
        {index_date_created, DB_FLAG_DATE_CREATED},
        {index_date_modified, DB_FLAG_DATE_MODIFIED},
        {index_date_accessed, DB_FLAG_DATE_ACCESSED},
        {index_attributes, DB_FLAG_ATTRIBUTES},
        {index_folder_size, DB_FLAG_FOLDER_SIZE},
        {fast_size_sort, DB_FLAG_FAST_SIZE},
        {fast_date_created_sort, DB_FLAG_FAST_DATE_CREATED},
        {fast_date_modified_sort, DB_FLAG_FAST_DATE_MODIFIED},
        {fast_date_accessed_sort, DB_FLAG_FAST_DATE_ACCESSED},
        {fast_attributes_sort, DB_FLAG_FAST_ATTRIBUTES},
        {fast_path_sort, DB_FLAG_FAST_PATH},
        {fast_extension_sort, DB_FLAG_FAST_EXTENSION},
    };
    u32 result = 0;
    for (auto entry : flags)
        result |= entry.setting ? entry.flag : 0;
    return result;
}

static void _db_settings_get_exclude(db_exclude_set_t *out) {
    u32 count = config_exclude_folders.count;
    const char **folders = static_cast<const char **>(mem_alloc((count + 1) * sizeof *folders));
    for (u32 i = 0; i < count; i++)
        folders[i] = config_exclude_folders[i].path;
    db_exclude_settings_t settings = {exclude_list_enabled != 0,
                                      exclude_hidden_files_and_folders != 0,
                                      exclude_system_files_and_folders != 0,
                                      folders,
                                      count,
                                      include_only_files,
                                      exclude_files};
    db_exclude_compile_settings(out, &settings);
    mem_free(folders);
}

// --- Volumes -----------------------------------------------------------------------------------------------

// A list of folders as the user wrote it, in the form that it is compared in: each path clean and as it is
// inside, in quotes, with a comma between.
static void _db_settings_clean_list(const char *list, utf8_buf_t *out) {
    utf8_buf_t item, path;
    utf8_buf_init(&item);
    utf8_buf_init(&path);
    utf8_buf_empty(out);
    for (const char *cursor = list; (cursor = utf8_buf_next_list_item(&item, cursor));) {
        config_path_from_text(&path, item.data);
        utf8_buf_fix_path(&path);
        utf8_buf_canonicalize(&path);
        utf8_buf_remove_trailing_separator(&path);
        if (path.length == 0)
            continue;
        if (out->length != 0)
            utf8_buf_cat_byte(out, ',');
        utf8_buf_cat_list_item(out, path.data, static_cast<u32>(path.length));
    }
    utf8_buf_kill(&path);
    utf8_buf_kill(&item);
}

static ntfs_volume_list_t *_db_settings_list_volumes() {
    u32 count = config_ntfs_volumes.count;
    ntfs_volume_config_t *volumes =
        static_cast<ntfs_volume_config_t *>(mem_alloc((count + 1) * sizeof *volumes));
    for (u32 i = 0; i < count; i++) {
        const config_volume_t *from = &config_ntfs_volumes[i];
        volumes[i] = {from->guid,         from->path,         from->root,
                      from->include_only, from->include != 0, from->load_recent_changes != 0,
                      from->monitor != 0};
    }
    ntfs_volume_settings_t settings = {volumes,
                                       count,
                                       auto_include_fixed_volumes != 0,
                                       auto_include_removable_volumes != 0,
                                       auto_remove_offline_ntfs_volumes != 0,
                                       find_mount_points_on_removable_volumes != 0};
    ntfs_volume_list_t *list = ntfs_volume_create_list(&settings, true);
    mem_free(volumes);
    return list;
}

static void _db_settings_remember_volume(const ntfs_volume_t *volume) {
    config_volume_t *entry = static_cast<config_volume_t *>(config_list_add(&config_ntfs_volumes));
    entry->guid = utf8_replace_string(entry->guid, volume->guid);
    entry->path = utf8_replace_string(entry->path, volume->path);
    entry->root = utf8_replace_string(entry->root, volume->root);
    entry->include = 1;
    entry->monitor = volume->monitor;
    entry->load_recent_changes = volume->load_recent_changes;
}

static void _db_settings_add_volumes(db_wanted_t *out, bool for_rebuild) {
    ntfs_volume_list_t *list = _db_settings_list_volumes();
    utf8_buf_t include_only;
    utf8_buf_init(&include_only);
    for (const ntfs_volume_t *volume = list->first; volume; volume = volume->next) {
        _db_settings_clean_list(volume->include_only ? volume->include_only : "", &include_only);
        db_source_t *source =
            db_wanted_add_volume(out, volume->guid, volume->path, volume->root, include_only.data);
        db_index_volume_t *index = static_cast<db_index_volume_t *>(source->index);
        index->monitor = volume->monitor;
        index->load_recent_changes = volume->load_recent_changes;
        if (for_rebuild && !volume->from_config)
            _db_settings_remember_volume(volume);
    }
    utf8_buf_kill(&include_only);
    ntfs_volume_destroy_list(list);
}

// --- Lists and folders -------------------------------------------------------------------------------------

static void _db_settings_add_folder(db_wanted_t *out, const config_folder_t *folder, const char *path) {
    db_index_folder_t *index = static_cast<db_index_folder_t *>(db_wanted_add_folder(out, path)->index);
    index->monitor = folder->monitor_changes;
    index->buffer_size = static_cast<u32>(folder->buffer_size);
    index->rescan_if_full = folder->rescan_if_full;
    db_schedule_settings_t settings = {folder->update_type, folder->update_interval,
                                       folder->update_interval_type, folder->update_day, folder->update_at};
    db_schedule_t schedule = db_schedule_make(&settings);
    index->update_type = schedule.type;
    index->update_value = schedule.value;
}

void db_settings_get_wanted(db_wanted_t *out, bool for_rebuild) {
    out->index_flags = _db_settings_get_flags();
    _db_settings_get_exclude(&out->exclude);
    _db_settings_add_volumes(out, for_rebuild);
    utf8_buf_t path;
    utf8_buf_init(&path);
    for (const config_file_list_t &list : config_file_lists) {
        db_wanted_clean_path(list.filename, &path);
        db_wanted_add_file_list(out, path.data, list.monitor_changes != 0);
    }
    for (const config_folder_t &folder : config_folders) {
        db_wanted_clean_path(folder.path, &path);
        _db_settings_add_folder(out, &folder, path.data);
    }
    utf8_buf_kill(&path);
}

bool db_settings_have_sources() {
    db_wanted_t wanted;
    db_wanted_init(&wanted);
    db_settings_get_wanted(&wanted, false);
    bool have = wanted.first != nullptr;
    db_wanted_kill(&wanted);
    return have;
}

// --- Files -------------------------------------------------------------------------------------------------

static char *_db_filename;

void db_settings_set_filename(const char *filename) {
    if (_db_filename)
        mem_free(_db_filename);
    _db_filename = filename && *filename ? utf8_alloc_copy(filename) : nullptr;
}

// The name of the standard file, without a folder: Findwright.db, with the user's and the computer's name in
// it where several users have their databases in one place.
static bool _db_get_standard_filename(utf8_buf_t *out) {
    utf8_buf_t base, part;
    utf8_buf_init(&base);
    utf8_buf_init(&part);
    utf8_buf_copy_string(&base, "Findwright");
    if (db_multi_user_filename) {
        os_get_user_name(&part);
        utf8_buf_cat_printf(&base, ".%s", part.data);
        os_get_computer_name(&part);
        utf8_buf_cat_printf(&base, ".%s", part.data);
    }
    bool found = config_get_data_filename(CONFIG_FOLDER_LOCAL_DATA, base.data, "db", out);
    utf8_buf_kill(&part);
    utf8_buf_kill(&base);
    return found;
}

bool db_get_filename(utf8_buf_t *out) {
    if (_db_filename) {
        utf8_buf_copy_string(out, _db_filename);
        return true;
    }
    utf8_buf_t folder, location, name;
    utf8_buf_init(&folder);
    utf8_buf_init(&location);
    utf8_buf_init(&name);
    bool found = _db_get_standard_filename(&name) && config_get_folder(CONFIG_FOLDER_LOCAL_DATA, &folder);
    if (found && *db_location) {
        const char *last = std::strrchr(name.data, '\\') + 1;
        config_path_from_text(&location, db_location);
        utf8_buf_get_full_path(out, location.data, static_cast<u32>(location.length), folder.data,
                               static_cast<u32>(folder.length));
        utf8_buf_add_trailing_separator(out);
        utf8_buf_cat_string(out, last);
    } else {
        utf8_buf_copy_utf8(out, name.data, static_cast<u32>(name.length));
    }
    utf8_buf_kill(&name);
    utf8_buf_kill(&location);
    utf8_buf_kill(&folder);
    return found;
}

static bool _db_settings_is_compressed() {
    return db_compress != 0;
}

static bool _db_settings_get_corrupt_filename(utf8_buf_t *out) {
    if (!config_get_folder(CONFIG_FOLDER_DATA, out))
        return false;
    utf8_buf_cat_string(out, "\\corrupt.txt");
    return true;
}

// --- Use ---------------------------------------------------------------------------------------------------

static db_lifecycle_t _db_settings_lifecycle;

void db_settings_use(void (*report_error)(const char *text)) {
    _db_settings_lifecycle = {db_settings_get_wanted,
                              db_get_filename,
                              _db_settings_is_compressed,
                              _db_settings_get_corrupt_filename,
                              report_error,
                              localization_get(LOCALIZATION_SAVING_DATABASE),
                              localization_get(LOCALIZATION_LOADING_DATABASE),
                              localization_get(LOCALIZATION_STARTING)};
    db_lifecycle_set(&_db_settings_lifecycle);
    db_create_texts = {localization_get(LOCALIZATION_CREATING_DATABASE),
                       localization_get(LOCALIZATION_INDEXING),
                       localization_get(LOCALIZATION_SCANNING_VOLUME),
                       localization_get(LOCALIZATION_LOADING_FILE_LIST),
                       localization_get(LOCALIZATION_SCANNING_FOLDER),
                       localization_get(LOCALIZATION_FINDING_EXCLUDED_FOLDERS),
                       localization_get(LOCALIZATION_FINDING_EXCLUDED_FILES)};
}

} // namespace findwright
