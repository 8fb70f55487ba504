#include "os/os_filter.h"

namespace findwright {

os_filter_result_t os_filter_read(const char *, const std::atomic<u32> *, os_filter_text_proc_t *, void *) {
    return OS_FILTER_NONE;
}

} // namespace findwright
