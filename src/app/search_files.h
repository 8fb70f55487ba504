// The files of filters, bookmarks and the search history: where they lie, and when they are read and written.
// "Filters.csv", "Bookmarks.csv" and "Search History.csv" lie beside the settings file, each with the
// instance's name in its own.
//
// Main thread, between config_init and config_kill.
#pragma once

#include "base/utf8_buf.h"

namespace findwright {

enum search_file_t : u32 { SEARCH_FILE_FILTERS, SEARCH_FILE_BOOKMARKS, SEARCH_FILE_HISTORY };

// False, and an empty text, where the system names no folder for it.
bool search_files_get_filename(search_file_t file, utf8_buf_t *out);
// Reads filters and bookmarks: all that macros and names of them need.
void search_files_load_lists();
// Reads all three; the history only while the settings want one.
void search_files_load();
void search_files_free();
// Writes one of them, the history only when it has changed. False on failure: the old file is as it was, and
// `error` names the file and the reason.
bool search_files_save(search_file_t file, utf8_buf_t *error);

} // namespace findwright
