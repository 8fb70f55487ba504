// One file in memory behind the platform's file operations, for tests and fuzz targets of what opens a file
// by its name: any content costs nothing, pieces and failures come as asked, and it works before os_init.
#pragma once

#include "base/platform.h"

#include <algorithm>
#include <cstring>
#include <string>

namespace findwright {

struct memory_file_t {
    std::string bytes;
    size_t position = 0;
    // What one read gives at most: small pieces bring every border of the reader's buffer into reach.
    u32 piece = 0xFFFFFFFF;
    // Writes beyond this size fail.
    size_t max_size = ~size_t{0};
    bool exists = true;
    u32 open_count = 0;
};

inline memory_file_t memory_file;
inline constexpr u32 MEMORY_FILE_ERROR = 112;

// From now on every file that is opened or made is memory_file, whose state starts over.
inline void memory_file_install() {
    memory_file = {};
    platform.file_open_read = [](const char *, bool) {
        memory_file.position = 0;
        memory_file.open_count += memory_file.exists;
        return memory_file.exists ? platform_file_t{1} : PLATFORM_FILE_NONE;
    };
    platform.file_create = [](const char *) {
        memory_file.bytes.clear();
        memory_file.open_count += memory_file.exists;
        return memory_file.exists ? platform_file_t{1} : PLATFORM_FILE_NONE;
    };
    platform.file_read = [](platform_file_t, void *out, u32 size) -> i64 {
        size = static_cast<u32>(std::min<size_t>(std::min(size, memory_file.piece),
                                                 memory_file.bytes.size() - memory_file.position));
        std::memcpy(out, memory_file.bytes.data() + memory_file.position, size);
        memory_file.position += size;
        return size;
    };
    platform.file_write = [](platform_file_t, const void *bytes, u32 size) {
        if (memory_file.bytes.size() + size > memory_file.max_size)
            return false;
        memory_file.bytes.append(static_cast<const char *>(bytes), size);
        return true;
    };
    platform.file_close = [](platform_file_t) { memory_file.open_count--; };
    platform.last_error = [] { return MEMORY_FILE_ERROR; };
}

// For the length of a test.
struct memory_file_scope_t {
    platform_t before = platform;

    memory_file_scope_t() { memory_file_install(); }
    ~memory_file_scope_t() { platform = before; }
    memory_file_scope_t(const memory_file_scope_t &) = delete;
    memory_file_scope_t &operator=(const memory_file_scope_t &) = delete;
};

} // namespace findwright
