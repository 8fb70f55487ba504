// The console client: puts the sources that its options name, or a database that was saved, into memory,
// searches there, prints the results. Nothing is written but these.
#pragma once

#include "base/types.h"

namespace findwright {

// Exit statuses.
inline constexpr int FW_FOUND = 0;
inline constexpr int FW_NOT_FOUND = 1;
inline constexpr int FW_ERROR = 2;

inline constexpr u32 FW_PIXELS_PER_INCH = 96; // of a screen that nothing is known of

// Where the client writes, and what it is told of that place. The programs use the console; tests a table of
// their own.
struct fw_io_t {
    void *user_data;
    // Writes to standard output (1) or error (2); false when it is closed.
    bool (*write)(void *user_data, int descriptor, const void *bytes, u32 size);
    bool output_is_terminal, error_is_terminal;
    // Has the terminal of the output take colours; false when it cannot. May be 0.
    bool (*enable_colors)(void *user_data) = nullptr;
};
fw_io_t fw_io_console();

// Runs the client with UTF-8 arguments, program name first. os_init has been called.
int fw_run(u32 count, const char *const *arguments, const fw_io_t *io);

} // namespace findwright
