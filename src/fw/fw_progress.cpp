#include "fw/fw_progress.h"

namespace findwright {

void fw_progress_show(fw_progress_t *progress, const std::string &text) {
    if (!progress->io->error_is_terminal || (text.empty() && !progress->is_shown))
        return;
    std::string line = "\r" + text + "\x1b[K";
    progress->io->write(progress->io->user_data, 2, line.data(), static_cast<u32>(line.size()));
    progress->is_shown = !text.empty();
}

} // namespace findwright
