#include "app/search_files.h"

#include "app/config.h"
#include "os/os.h"
#include "query/bookmark.h"
#include "query/filter.h"
#include "query/search_history.h"

#include <algorithm>

namespace findwright {

static constexpr u32 ERROR_TEXT_SIZE = 512;

static constexpr const char *_base_names[] = {"Filters", "Bookmarks", "Search History"};

bool search_files_get_filename(search_file_t file, utf8_buf_t *out) {
    utf8_buf_empty(out);
    return config_get_beside_settings(_base_names[file], "csv", out);
}

// A file without a place is one that cannot be read.
static void _search_files_load(search_file_t file, void (*load)(const char *filename)) {
    utf8_buf_t filename;
    utf8_buf_init(&filename);
    search_files_get_filename(file, &filename);
    load(filename.data);
    utf8_buf_kill(&filename);
}

static void _search_files_load_history(const char *filename) {
    i32 days = search_history_keep_forever ? 0 : search_history_days_to_keep;
    search_history_load(filename, static_cast<u32>(std::max(days, 0)));
}

void search_files_load_lists() {
    _search_files_load(SEARCH_FILE_FILTERS, filter_list_load);
    _search_files_load(SEARCH_FILE_BOOKMARKS, bookmark_list_load);
}

void search_files_load() {
    search_files_load_lists();
    search_history_free();
    if (search_history_enabled)
        _search_files_load(SEARCH_FILE_HISTORY, _search_files_load_history);
}

void search_files_free() {
    search_history_free();
    bookmark_list_free();
    filter_list_free();
}

static bool _search_files_write(search_file_t file, const char *filename) {
    switch (file) {
    case SEARCH_FILE_FILTERS: return filter_list_save(filename);
    case SEARCH_FILE_BOOKMARKS: return bookmark_list_save(filename);
    default: return search_history_save(filename);
    }
}

bool search_files_save(search_file_t file, utf8_buf_t *error) {
    utf8_buf_empty(error);
    if (file == SEARCH_FILE_HISTORY && !(search_history && search_history->dirty))
        return true;
    utf8_buf_t filename, name;
    utf8_buf_init(&filename);
    utf8_buf_init(&name);
    bool saved = search_files_get_filename(file, &filename);
    if (!saved) {
        utf8_buf_printf(error, "Unable to write %s.csv: the system names no folder for it",
                        _base_names[file]);
    } else if (!_search_files_write(file, filename.data)) {
        saved = false;
        char reason[ERROR_TEXT_SIZE];
        os_error_text(os_get_last_error(), reason, sizeof reason);
        config_path_to_text(&name, filename.data);
        utf8_buf_printf(error, "Unable to write %s: %s", name.data, reason);
    }
    utf8_buf_kill(&name);
    utf8_buf_kill(&filename);
    return saved;
}

} // namespace findwright
