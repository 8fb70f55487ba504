// The paths of a volume, put together from what the NTFS reader gives, for comparison with a listing of the
// same volume by somebody else.
#pragma once

#include "support/ntfs_items.h"

#include <map>

namespace findwright {

inline std::string ntfs_utf8(const std::u16string &text) {
    std::string result;
    for (size_t i = 0; i < text.size(); i++) {
        char32_t value = text[i];
        if (value >= 0xD800 && value < 0xDC00 && i + 1 < text.size()) {
            value = 0x10000 + ((value - 0xD800) << 10) + (text[++i] - 0xDC00u);
        }
        const int more = value < 0x80 ? 0 : value < 0x800 ? 1 : value < 0x10000 ? 2 : 3;
        static constexpr u8 LEAD[] = {0, 0xC0, 0xE0, 0xF0};
        result += static_cast<char>(LEAD[more] | value >> (6 * more));
        for (int k = more - 1; k >= 0; k--) {
            result += static_cast<char>(0x80 | ((value >> (6 * k)) & 0x3F));
        }
    }
    return result;
}

// Each item below the root by its path, `/` between components. What has no way up to the root is left out.
inline std::map<std::string, ntfs_item_t> ntfs_paths(const ntfs_items_t &read) {
    std::map<u64, const ntfs_item_t *> folders;
    for (const ntfs_item_t &item : read.items) {
        if (item.attributes & 0x10) {
            folders[item.frn] = &item;
        }
    }
    std::map<std::string, ntfs_item_t> paths;
    for (const ntfs_item_t &item : read.items) {
        std::string path = ntfs_utf8(item.name);
        u64 parent = item.parent_frn;
        for (u32 depth = 0; parent != NTFS_FRN_ROOT && folders.contains(parent) && depth < 1000; depth++) {
            path = ntfs_utf8(folders[parent]->name) + "/" + path;
            parent = folders[parent]->parent_frn;
        }
        if (parent == NTFS_FRN_ROOT && item.frn != NTFS_FRN_ROOT) {
            EXPECT_TRUE(paths.emplace(path, item).second) << path;
        }
    }
    return paths;
}

// One line: path, d or f, size, modified, created, accessed, attributes.
inline std::string ntfs_listing_line(const std::string &path, const ntfs_item_t &item) {
    char values[200];
    snprintf(values, sizeof(values), "\t%c\t%llu\t%llu\t%llu\t%llu\t%x\n", item.attributes & 0x10 ? 'd' : 'f',
             static_cast<unsigned long long>(item.size), static_cast<unsigned long long>(item.date_modified),
             static_cast<unsigned long long>(item.date_created),
             static_cast<unsigned long long>(item.date_accessed), item.attributes);
    return path + values;
}

// All of it, in the order of its lines.
inline std::string ntfs_listing(const ntfs_items_t &read) {
    std::vector<std::string> lines;
    for (const auto &[path, item] : ntfs_paths(read)) {
        lines.push_back(ntfs_listing_line(path, item));
    }
    std::sort(lines.begin(), lines.end());
    std::string result;
    for (const std::string &line : lines) {
        result += line;
    }
    return result;
}

} // namespace findwright
