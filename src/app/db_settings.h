// What the settings say to the databases: the bridge between `config` and the lifecycle of a database
// (index/db_lifecycle.h).
//
// Main thread.
#pragma once

#include "base/utf8_buf.h"
#include "index/db_wanted.h"

namespace findwright {

// Has databases ask the settings from now on, with texts in the language in use. `report_error` takes a text
// for the user.
void db_settings_use(void (*report_error)(const char *text));

// Appends the settings' sources to an empty description, with columns and exclusions. `for_rebuild`: volumes
// that come in by themselves enter the settings.
void db_settings_get_wanted(db_wanted_t *out, bool for_rebuild);

// Uses this database file in place of the standard one; 0 or empty: the standard one.
void db_settings_set_filename(const char *filename);
// The database file: of the command line, or the standard one of the settings. False, and empty, when the
// system names no folder for it.
bool db_get_filename(utf8_buf_t *out);

// True when the settings name any source.
bool db_settings_have_sources();

} // namespace findwright
