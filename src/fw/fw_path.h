// Paths between the user, who writes them as the system does, and the program, where they have `\`.
//
// Any thread may call, with its own arguments.
#pragma once

#include "base/utf8_buf.h"

#include <string>

namespace findwright {

// The full, clean name of what the user names by an argument, relative to the current directory.
std::string fw_path_from_user(const std::string &text);
// A path of the program as the user writes it: on a system whose paths have `/`, one that begins with a
// single
// `\` is such a path, and an empty one is its root. Others, of volumes and of lists from elsewhere, stay.
void fw_path_to_user(utf8_buf_t *path);
// One name below such a root: a `\` that is part of it comes back.
void fw_name_to_user(utf8_buf_t *name);
std::string fw_path_for_user(const char *path);
// Whether fw_path_to_user changes what lies below a root item of that name.
bool fw_path_is_system_root(const char *name, u32 length);
// The system's text for its last error.
std::string fw_system_error();

} // namespace findwright
