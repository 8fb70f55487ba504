// Where the run history (track/db_run_history.h) has its file: "Run History.csv" lies beside the settings
// file, with the instance's name in its own.
//
// Main thread, between config_init and config_kill.
#pragma once

#include "base/utf8_buf.h"
#include "db/db.h"

namespace findwright {

// False, and an empty text, where the system names no folder for it.
bool run_history_file_get_name(utf8_buf_t *out);
// Has the history read and written there from now on, or nowhere where there is no such place. Before a
// database is loaded; at the end, db_run_history_set_file takes it away again.
void run_history_file_use();
// Writes what has changed. False on failure: the old file is as it was, and `error` names the file and the
// reason.
bool run_history_file_save(db_t *db, utf8_buf_t *error);

} // namespace findwright
