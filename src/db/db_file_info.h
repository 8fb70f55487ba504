// What a volume, a scan or a monitor knows of one item beside its name.
#pragma once

#include "base/types.h"

namespace findwright {

struct db_file_info_t {
    u64 size;          // bytes; VALUE_UNKNOWN when not known
    u64 date_modified; // file times, UTC; VALUE_UNKNOWN when not known
    u64 date_created;
    u64 date_accessed;
    u32 attributes; // 0 when not known
};

inline void db_file_info_clear(db_file_info_t *info) {
    *info = {VALUE_UNKNOWN, VALUE_UNKNOWN, VALUE_UNKNOWN, VALUE_UNKNOWN, 0};
}

} // namespace findwright
