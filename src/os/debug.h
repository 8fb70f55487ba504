// The debug log: exact English lines, for developers and for users who report a fault.
//
// Any thread may call; lines are whole. A format is one of utf8_format's (base/utf8_format.h). Nothing is
// formatted while neither the file nor the console is on, and the verbose lines only with debug_verbose on:
// test debug_verbose first where the arguments cost something.
#pragma once

#include "base/types.h"

#include <cstdarg>

namespace findwright {

enum debug_color_t : u32 {
    DEBUG_COLOR_NORMAL,
    DEBUG_COLOR_RED,
    DEBUG_COLOR_GREEN,
    DEBUG_COLOR_YELLOW,
    DEBUG_COLOR_GREY
};

extern bool debug_verbose;

// What the first lines on the console tell of the program's role: whether its settings are the user's own and
// not the machine's, and whether it works through the service. Set at start, before debug_console.
extern bool debug_is_app_data;
extern bool debug_is_service;

// Starts writing lines to the file of that UTF-8 name (appended to), or stops with 0. A line is written with
// an open, an append and a close, so that the file is whole whenever the process ends. The default is off.
void debug_log_open(const char *filename);
// Lines also go to the console: standard error where there is one, else, on Windows, a console of the
// program's own. The first lines tell the version, the system and the command line.
void debug_console(bool on);
bool debug_is_on();

void debug_printf(const char *format, ...);
void debug_vprintf(const char *format, va_list arguments);
void debug_color_printf(debug_color_t color, const char *format, ...);
void debug_verbose_printf(const char *format, ...);

// Logs, shows and ends the process with exit code 1: "FILE(LINE): FUNCTION(): Fatal error: ...". It is shown
// on standard error or, on Windows without one, in a message box. Allocates nothing. Nothing is cleaned up.
[[noreturn]] void debug_fatal_at(const char *file, int line, const char *function, const char *format, ...);
#define debug_fatal(...) ::findwright::debug_fatal_at(__FILE__, __LINE__, __func__, __VA_ARGS__)

} // namespace findwright
