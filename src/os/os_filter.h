// The platform's text filters, which take the text out of documents. POSIX has none.
//
// A thread that calls is one of the pool: on Windows the filters are COM objects, made and released in the
// call. Nothing is shared between calls.
#pragma once

#include "base/types.h"

#include <atomic>

namespace findwright {

enum os_filter_result_t : u32 {
    OS_FILTER_NONE,   // there is no filter for the file: its bytes are its text
    OS_FILTER_FAILED, // there is one that cannot read the file, which is logged
    OS_FILTER_DONE,   // the whole text was handed over, which may be none, or proc or `cancel` ended it
};

// Takes the next piece of the text: UTF-8, no character cut. False ends the reading.
using os_filter_text_proc_t = bool(void *param, const char *text, u32 length);

// Calls proc(param, ...) for the text of a file piece by piece, with CR LF in front of each chunk of the
// filter's but the first. `cancel` may be 0; once it is set no more pieces are asked for.
os_filter_result_t os_filter_read(const char *path, const std::atomic<u32> *cancel,
                                  os_filter_text_proc_t *proc, void *param);

} // namespace findwright
