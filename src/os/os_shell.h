// What the desktop knows of files: the names of their types, where the user's well-known folders are, and
// what opens them.
//
// Any thread. Nothing but an opening is an error: what the system does not know comes back empty or false. On
// POSIX the table of the types is read when the first one is asked for, and kept until os_shell_kill.
#pragma once

#include "base/types.h"

namespace findwright {

struct utf8_buf_t;

// The system's name for files of an extension (without its dot, UTF-8, may be empty): on POSIX the
// description in the shared MIME database, in the user's language where it has one. Without one the extension
// itself.
void os_get_type_name(const char *extension, u32 length, utf8_buf_t *out);
void os_get_folder_type_name(utf8_buf_t *out); // "Folder" where the system has none

// The content type ("text/html") that the system has for files of an extension: on Windows the value "Content
// Type" of the extension's key, on POSIX the type of the shared MIME database. Where the system knows none,
// of some forms that a page is made of, else "application/octet-stream".
void os_get_content_type(const char *extension, u32 length, utf8_buf_t *out);

// Resolves a path of the desktop's name space, with its `shell:` in front (`shell:downloads`), to the
// absolute path of a folder or file, with `\` between components. On POSIX the names are those of the XDG
// user folders and `home`, and what the same folders are called on Windows; case is ignored, and more
// components may follow. False, and an empty text, when there is no such folder or file.
bool os_shell_get_path(const char *text, u32 length, utf8_buf_t *out);

// Opens a file or folder with the program that the desktop has for it: on POSIX xdg-open, or `gio open`. Only
// started; what it opens outlives this process. False, and the reason for a user, when it cannot: a path that
// is not of this machine, nothing there, no opener, or one that failed at once, which takes up to a second to
// be seen.
bool os_shell_open(const char *path, u32 length, utf8_buf_t *error);

// Forgets what was read; it is read again when it is asked for. os_kill calls it. While another thread still
// hangs in reading it, nothing is waited for, and nothing forgotten.
void os_shell_kill();

} // namespace findwright
