// What the platforms' directory watches share.
#pragma once

#include "os/os_watch.h"

namespace findwright {

// Whether nothing of a path below a root is left out: each folder above its last name is asked for, and with
// `is_folder` the whole path, too. For systems that tell of a whole tree at once.
bool os_watch_passes_below(os_watch_filter_t *filter, void *param, const char *path, u32 length,
                           u32 root_length, bool is_folder);

} // namespace findwright
