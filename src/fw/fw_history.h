// The run history in a run of the client: it is the one of the user's settings, or of the settings file that
// the run names, whatever is searched.
//
// Main thread, between config_init and config_kill; the file's name is forgotten by fw_history_forget.
#pragma once

#include "db/db.h"
#include "fw/fw_search.h"

namespace findwright {

// Whether a run needs it: it opens a result, or searches, sorts by or prints what the history tells.
bool fw_history_is_needed(const fw_options_t *options, const fw_search_t *search);
// Has it read with what is searched.
void fw_history_use(const fw_options_t *options);
void fw_history_forget();
// Opens an item with the desktop's program. The text of an error, or empty.
std::string fw_history_open(const db_item_t *item);
// Counts that it was opened, now. The text of an error, or empty.
std::string fw_history_count(db_t *db, const db_item_t *item, bool is_folder);

} // namespace findwright
