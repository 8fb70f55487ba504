// A file list of what a folder holds.
#pragma once

#include "index/file_list.h"

namespace findwright {

// Walks a folder and writes all that is below it to a list, the folder itself left out: of each folder its
// files, then its folders one by one with what they hold. Links are rows and not entered, nor is another file
// system of POSIX; a folder that cannot be read is a row, and a line in the log. Both names are full inside
// ones. `relative`: names are written relative to the list's folder where all lie below it, for which the
// folder is walked twice. False on failure: an old list is as it was, and `error` names the file or folder
// and the reason. Any thread.
bool file_list_write_path(const char *filename, const char *folder, bool relative,
                          file_list_written_t *written, utf8_buf_t *error);

} // namespace findwright
