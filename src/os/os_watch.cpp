#include "os/os_watch_internal.h"

namespace findwright {

bool os_watch_passes_below(os_watch_filter_t *filter, void *param, const char *path, u32 length,
                           u32 root_length, bool is_folder) {
    if (!filter)
        return true;
    for (u32 i = root_length + 1; i < length; i++)
        if (path[i] == '\\' && !filter(param, path, i))
            return false;
    return !is_folder || length <= root_length || filter(param, path, length);
}

} // namespace findwright
