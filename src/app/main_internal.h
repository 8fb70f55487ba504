// What the files of `main` share.
#pragma once

#include "app/command_line.h"
#include "base/utf8_buf.h"
#include "db/db.h"

namespace findwright {

// --- The user is told what the database does (main_report.cpp) ---------------------------------------------

// Follows one database: on a terminal its status and, when it is ready, its counts; anywhere what the user
// has to do something about.
struct main_report_t : db_query_link_t {
    db_t *db;
    bool is_status_shown;
    bool is_content_new; // and has not been told of
};
void main_report_start(main_report_t *report, db_t *db);
void main_report_stop(main_report_t *report);

// The debug log's file. False, and empty, where the system names no place for it.
bool main_get_log_filename(utf8_buf_t *out);

// --- What a switch does without the application (main_tool.cpp) -------------------------------------------

// True when the process is to end after it.
bool _main_do_command_line_installs(const command_line_t *line, int *exit_code);

} // namespace findwright
