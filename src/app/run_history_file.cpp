#include "app/run_history_file.h"

#include "app/config.h"
#include "os/os.h"
#include "track/db_run_history.h"

namespace findwright {

static constexpr u32 ERROR_TEXT_SIZE = 512;

bool run_history_file_get_name(utf8_buf_t *out) {
    utf8_buf_empty(out);
    return config_get_beside_settings("Run History", "csv", out);
}

void run_history_file_use() {
    utf8_buf_t filename;
    utf8_buf_init(&filename);
    db_run_history_set_file(run_history_file_get_name(&filename) ? filename.data : nullptr);
    utf8_buf_kill(&filename);
}

bool run_history_file_save(db_t *db, utf8_buf_t *error) {
    utf8_buf_empty(error);
    if (db_run_history_save(db))
        return true;
    char reason[ERROR_TEXT_SIZE];
    os_error_text(os_get_last_error(), reason, sizeof reason);
    utf8_buf_t filename, name;
    utf8_buf_init(&filename);
    utf8_buf_init(&name);
    run_history_file_get_name(&filename);
    config_path_to_text(&name, filename.data);
    utf8_buf_printf(error, "Unable to write %s: %s", name.data, reason);
    utf8_buf_kill(&name);
    utf8_buf_kill(&filename);
    return false;
}

} // namespace findwright
