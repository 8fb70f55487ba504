#include "fw/fw_history.h"

#include "app/config.h"
#include "app/run_history_file.h"
#include "fw/fw.h"
#include "fw/fw_path.h"
#include "fw/fw_source.h"
#include "os/os.h"
#include "os/os_shell.h"
#include "query/db_query.h"
#include "track/db_run_history.h"

#include <algorithm>

namespace findwright {

static bool _fw_history_is_column(fw_column_t column) {
    return column == FW_COLUMN_RUN_COUNT || column == FW_COLUMN_DATE_RUN;
}

bool fw_history_is_needed(const fw_options_t *options, const fw_search_t *search) {
    u32 sort = options->sort & ~DB_SORT_DESCENDING;
    if (options->run != 0 || sort == DB_SORT_RUN_COUNT_ASCENDING || sort == DB_SORT_DATE_RUN_ASCENDING ||
        std::any_of(options->columns.begin(), options->columns.end(), _fw_history_is_column))
        return true;
    // A function has a colon, and the file is read in no time.
    return search->search.find(':') != std::string::npos ||
           search->filter_search.find(':') != std::string::npos;
}

void fw_history_use(const fw_options_t *options) {
    bool has_settings = !options->config.empty() || (options->db.empty() && !fw_source_is_given(options));
    if (has_settings) {
        run_history_file_use();
        return;
    }
    // A run that takes nothing else from the user's settings takes this.
    config_load_placed(nullptr, nullptr);
    run_history_file_use();
    u32 enabled = run_history_enabled, keep_forever = run_history_keep_forever;
    i32 days_to_keep = run_history_days_to_keep;
    config_kill();
    config_init(FW_PIXELS_PER_INCH);
    run_history_enabled = enabled;
    run_history_keep_forever = keep_forever;
    run_history_days_to_keep = days_to_keep;
}

void fw_history_forget() {
    db_run_history_set_file(nullptr);
}

std::string fw_history_open(const db_item_t *item) {
    utf8_buf_t path, reason;
    utf8_buf_init(&path);
    utf8_buf_init(&reason);
    db_item_get_full_path_name(&path, item);
    std::string error;
    if (!os_shell_open(path.data, static_cast<u32>(path.length), &reason))
        error = "cannot open " + fw_path_for_user(path.data) + ": " + reason.data;
    utf8_buf_kill(&reason);
    utf8_buf_kill(&path);
    return error;
}

std::string fw_history_count(db_t *db, const db_item_t *item, bool is_folder) {
    if (!db->run_history_loaded) // not wanted
        return "";
    db_run_history_add_item(db, item, is_folder, 1, os_get_file_time());
    return db_run_history_save(db)
               ? ""
               : "this was not counted: the run history cannot be written: " + fw_system_error();
}

} // namespace findwright
