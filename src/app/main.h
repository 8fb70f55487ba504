// The program: how the one process comes to life, takes command lines, and ends.
//
//     os, settings, command line -> role -> single instance -> database -> main loop -> shutdown -> kill
//
// A process is in one role: it does what a switch asks (help, a file list) and ends; it hands its command
// line to the instance that runs, and ends; or it is the application, which keeps the database until it is
// asked to leave. The shutdown saves, the kill frees: nothing that the program allocated is left then, and
// the log tells what is.
//
// Main thread.
#pragma once

#include "base/types.h"

namespace findwright {

// The whole life of the process, from before os_init to behind os_kill. Returns the exit code. `arguments` is
// the command line in the form of command_line.h, without the program's name; 0: the process's own.
int main_run(const char *arguments);

} // namespace findwright
