// What the desktop knows of files: the names of their types, and where the user's well-known folders are.
//
// Any thread. Nothing here is an error: what the system does not know comes back empty or false.
#pragma once

#include "base/types.h"

namespace findwright {

struct utf8_buf_t;

// The system's name for files of an extension (without its dot, UTF-8, may be empty): on POSIX the
// description in the shared MIME database, in the user's language where it has one. Without one the extension
// itself.
void os_get_type_name(const char *extension, u32 length, utf8_buf_t *out);
void os_get_folder_type_name(utf8_buf_t *out);

// Resolves a path of the desktop's name space, with its `shell:` in front (`shell:downloads`), to a folder
// with `\` between components. On POSIX the names are those of the XDG user folders and `home`, case ignored,
// and more components may follow. False when there is no such folder.
bool os_shell_get_path(const char *text, u32 length, utf8_buf_t *out);

} // namespace findwright
