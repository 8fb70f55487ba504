// What the NTFS reader gives its sink, collected for tests, and volumes that are scripted or unpacked for it.
#pragma once

#include "index/ntfs.h"
#include "os/debug.h"
#include "os/os_volume_internal.h"
#include "support/ntfs_builder.h"

#include <cstdio>
#include <cstring>
#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <tuple>
#include <vector>

namespace findwright {

struct ntfs_item_t {
    u64 frn;
    u64 parent_frn;
    u64 size;
    u64 date_modified;
    u64 date_created;
    u64 date_accessed;
    u32 attributes;
    std::u16string name;
};

struct ntfs_items_t {
    std::vector<ntfs_item_t> items;
    u64 expected = 0; // records, as progress tells

    std::vector<std::u16string> names() const {
        std::vector<std::u16string> result;
        for (const ntfs_item_t &item : items) {
            result.push_back(item.name);
        }
        return result;
    }
};

inline void ntfs_collect(void *user_data, const ntfs_record_t *record) {
    std::u16string name(record->name_length, u' ');
    memcpy(name.data(), record->name, record->name_length * 2);
    static_cast<ntfs_items_t *>(user_data)->items.push_back(
        {record->frn, record->parent_frn, record->size, record->date_modified, record->date_created,
         record->date_accessed, record->attributes, name});
}

// Everything that a pass over the volume gives; nothing when its boot sector is refused.
inline ntfs_items_t ntfs_read_items(os_volume_t *volume, u32 mask = NTFS_MASK_ALL) {
    ntfs_items_t items;
    ntfs_info_t info;
    if (ntfs_get_info(volume, &info, nullptr)) {
        ntfs_read_volume(volume, &info, mask, &items, ntfs_collect, [](void *user_data, u64 done, u64 total) {
            EXPECT_LE(done, total);
            static_cast<ntfs_items_t *>(user_data)->expected = total;
            return true;
        });
    }
    return items;
}

inline ntfs_items_t ntfs_read_items(const ntfs_build_bytes_t &image, u32 mask = NTFS_MASK_ALL) {
    os_volume_t *volume = os_volume_open_memory(image.data(), image.size());
    ntfs_items_t items = ntfs_read_items(volume, mask);
    os_volume_close(volume);
    return items;
}

// A volume in memory that counts what is read of it, fails where it is told to, and may have a driver. One at
// a time.
struct ntfs_scripted_t {
    ntfs_build_bytes_t image;
    bool is_size_known = true;
    u32 sector_size = 512;
    u64 fail_from = ~static_cast<u64>(0); // reads that touch this byte or one behind it fail
    u64 bytes_read = 0;
    bool has_driver = false;
    os_ntfs_volume_data_t data = {4096, 1024};
    std::function<bool(u64 index, u64 *reference, u8 *record)> get_record;
};

inline ntfs_scripted_t *ntfs_scripted;

inline os_volume_t *ntfs_open_scripted(ntfs_scripted_t *script) {
    static const os_volume_ops_t OPS = {
        [](os_volume_t *, u64 offset, void *bytes, u32 size) -> i64 {
            if (offset + size > ntfs_scripted->fail_from) {
                return -1;
            }
            const u64 length = ntfs_scripted->image.size();
            const u64 count = offset < length ? std::min<u64>(size, length - offset) : 0;
            memcpy(bytes, ntfs_scripted->image.data() + (count ? offset : 0), count);
            ntfs_scripted->bytes_read += count;
            return static_cast<i64>(count);
        },
        nullptr,
        [](os_volume_t *, u32 *sector_size, u32 *error) {
            *sector_size = ntfs_scripted->sector_size;
            *error = 87;
            return *sector_size != 0;
        },
        [](os_volume_t *, os_ntfs_volume_data_t *data, bool *supported) {
            *supported = ntfs_scripted->has_driver;
            *data = ntfs_scripted->data;
            return ntfs_scripted->has_driver && data->bytes_per_cluster != 0;
        },
        [](os_volume_t *, u64 index, u64 *reference, void *record, u32 size, bool *supported) {
            *supported = true;
            ntfs_build_bytes_t bytes(65536);
            if (!ntfs_scripted->get_record(index, reference, bytes.data())) {
                return false;
            }
            memcpy(record, bytes.data(), size);
            return true;
        }};
    ntfs_scripted = script;
    os_volume_t *volume = os_volume_new(&OPS);
    volume->size = script->is_size_known ? script->image.size() : 0;
    volume->is_size_known = script->is_size_known;
    return volume;
}

// Collects the debug log while it lives.
struct log_scope_t {
    std::string filename = testing::TempDir() + "findwright_test_" + std::to_string(counter++) + ".log";

    log_scope_t() {
        remove(filename.c_str());
        debug_log_open(filename.c_str());
    }
    ~log_scope_t() {
        debug_log_open(nullptr);
        remove(filename.c_str());
    }
    log_scope_t(const log_scope_t &) = delete;
    log_scope_t &operator=(const log_scope_t &) = delete;

    std::string text() const {
        std::string result;
        if (FILE *file = fopen(filename.c_str(), "rb")) {
            char piece[4096];
            for (size_t count; (count = fread(piece, 1, sizeof(piece), file)) != 0;) {
                result.append(piece, count);
            }
            fclose(file);
        }
        return result;
    }

    static inline int counter = 0;
};

} // namespace findwright
