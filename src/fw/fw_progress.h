// The line on a terminal that tells what a long run is at: on standard error, over itself, and taken away
// before anything else is printed.
//
// Main thread.
#pragma once

#include "fw/fw.h"

#include <string>

namespace findwright {

struct fw_progress_t {
    const fw_io_t *io;
    bool is_shown;
};

// Shows a text in place of the one before; an empty one takes the line away. Nothing where standard error is
// no terminal.
void fw_progress_show(fw_progress_t *progress, const std::string &text);
inline void fw_progress_clear(fw_progress_t *progress) {
    fw_progress_show(progress, "");
}

} // namespace findwright
