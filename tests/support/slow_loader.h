// A loader whose reads wait while the test has its gate closed, as those of a file system do that does not
// answer, and are noted. Its answers follow from the texts that it is asked for.
#pragma once

#include "db/db_extended_info.h"
#include "os/event.h"

#include <condition_variable>
#include <mutex>
#include <string>
#include <vector>

namespace findwright {

struct slow_loader_t {
    std::mutex lock;
    std::condition_variable changed;
    bool is_closed = false;
    std::vector<std::string> reads; // kind and text, in the order of their beginning
    u32 inside = 0;                 // reads under way
    u32 thumbnails = 0;             // that somebody holds

    void close() {
        std::lock_guard guard(lock);
        is_closed = true;
    }
    void open() {
        std::lock_guard guard(lock);
        is_closed = false;
        changed.notify_all();
    }
    void wait_for_reads(size_t count) {
        std::unique_lock guard(lock);
        changed.wait(guard, [&] { return reads.size() >= count; });
    }
    // Until no reader is in the loader, and no posted result is left.
    void wait_until_idle() {
        std::unique_lock guard(lock);
        changed.wait(guard, [&] { return inside == 0; });
    }
    std::vector<std::string> take_reads() {
        std::lock_guard guard(lock);
        return std::move(reads);
    }
    u32 count_thumbnails() {
        std::lock_guard guard(lock);
        return thumbnails;
    }
    void read(const char *kind, const std::string &text) {
        std::unique_lock guard(lock);
        reads.push_back(kind + (" " + text));
        inside++;
        changed.notify_all();
        changed.wait(guard, [&] { return !is_closed; });
        inside--;
        changed.notify_all();
    }
};

inline slow_loader_t slow_loader;

inline bool slow_loader_has(const char *path, const char *text) {
    return std::string(path).find(text) != std::string::npos;
}

// The size is the length of the path, and "gone" in it makes a file that is not there.
inline bool slow_loader_read_file_info(const char *path, bool, db_file_info_t *out) {
    slow_loader.read("file", path);
    *out = {std::string(path).size(), 11, 12, 13, 0x20};
    return !slow_loader_has(path, "gone");
}
inline bool slow_loader_read_item_icon(const char *path, bool is_folder, u32 *icon_index) {
    slow_loader.read("icon", path);
    *icon_index = is_folder ? 1000 : 2000;
    return !slow_loader_has(path, "gone");
}
inline bool slow_loader_read_extension_icon(const char *extension, u32 length, u32 *icon_index) {
    slow_loader.read("icon", extension);
    *icon_index = 100 + length;
    return true;
}
inline bool slow_loader_is_icon_by_item(const char *extension, u32) {
    return std::string(extension) == "exe";
}
inline void slow_loader_read_type_name(const char *extension, u32, utf8_buf_t *out) {
    slow_loader.read("type", extension);
    utf8_buf_printf(out, *extension ? "%s file" : "", extension);
}
inline void slow_loader_read_folder_type_name(utf8_buf_t *out) {
    slow_loader.read("type", "of folders");
    utf8_buf_copy_string(out, "Folder");
}
inline const void *slow_loader_read_thumbnail(const char *path) {
    slow_loader.read("thumbnail", path);
    if (slow_loader_has(path, "gone"))
        return nullptr;
    std::lock_guard guard(slow_loader.lock);
    slow_loader.thumbnails++;
    return new std::string(path);
}
inline void slow_loader_free_thumbnail(const void *thumbnail) {
    delete static_cast<const std::string *>(thumbnail);
    std::lock_guard guard(slow_loader.lock);
    slow_loader.thumbnails--;
}

inline const db_info_loader_t slow_loader_table = {
    slow_loader_read_file_info,  slow_loader_read_item_icon, slow_loader_read_extension_icon,
    slow_loader_is_icon_by_item, slow_loader_read_type_name, slow_loader_read_folder_type_name,
    slow_loader_read_thumbnail,  slow_loader_free_thumbnail,
};

} // namespace findwright
