// Has the program start with the user's session: on Linux as a service of the user's own systemd, one for
// each instance name.
//
//     $XDG_CONFIG_HOME/systemd/user/findwright[-NAME].service
//
// The service runs this program with the instance, settings and database that were named when it was
// installed. It is started again when it fails, not when it is asked to end; one that finds another process
// of its instance hands over and is content.
//
// Main thread. On Windows this comes with the installer; both functions fail there.
#pragma once

#include "app/command_line.h"
#include "base/utf8_buf.h"

namespace findwright {

// Writes the service, has systemd start it now and with every session. `message` tells the user what was
// done, and what is left to him. False when it could not be written, or systemd did
// not take it.
bool startup_install(const command_line_t *line, utf8_buf_t *message);
// Stops it, which saves the index, and takes it away. False when it could not be deleted.
bool startup_uninstall(const command_line_t *line, utf8_buf_t *message);

// The text of the service (startup_posix.cpp), with the program at a path of the system's.
void startup_get_unit(const char *program, const command_line_t *line, utf8_buf_t *out);
// The name of the service's file, from an instance's name, which may be 0.
void startup_get_unit_name(const char *instance, utf8_buf_t *out);

} // namespace findwright
