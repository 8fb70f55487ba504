// Builds NTFS volumes in memory, record by record, for tests: shapes and damage that no driver makes.
//
//   ntfs_builder_t builder;
//   ntfs_build_folder(&builder, 24, NTFS_FRN_ROOT, u"photos");
//   ntfs_build_file(&builder, 25, ntfs_build_frn(24), u"cat.jpg", 4096);
//   std::vector<u8> image = ntfs_build_image(&builder);
//
// A record is a list of attributes, each a block of bytes that an ntfs_build_*_attribute function makes and a
// test may change. Record 0, the table's own, is made from `table_runs` unless a test gives one. Every other
// byte can be changed too: with `edits` before the update sequence is put into the record, with `damage`
// afterwards, or in the image with ntfs_build_record_offset.
#pragma once

#include "index/ntfs.h"

#include <map>
#include <string>
#include <vector>

namespace findwright {

struct ntfs_build_run_t {
    u64 clusters;
    u64 lcn;
    bool sparse = false;
};

// `size` bytes of `value` at an offset.
struct ntfs_build_edit_t {
    u32 offset;
    u64 value;
    u32 size;
};

using ntfs_build_bytes_t = std::vector<u8>;

struct ntfs_build_record_t {
    u16 sequence = 1;
    u16 flags = 1; // 1 in use, 2 folder
    u16 links = 1;
    u64 base_frn = 0;
    std::vector<ntfs_build_bytes_t> attributes;
    std::vector<ntfs_build_edit_t> edits;
    std::vector<ntfs_build_edit_t> damage;
};

// A record that holds some of the table's runs in place of record 0.
struct ntfs_build_table_extension_t {
    u64 index;     // of the record
    u32 first_run; // in table_runs
    u32 run_count;
};

struct ntfs_builder_t {
    u32 sector_size = 512;
    u32 cluster_size = 4096;
    u32 record_size = 1024;
    u64 serial_number = 0x1122334455667788;
    u64 table_records = 0;   // in the table; 0: as many as `records` need, 32 at least
    u64 volume_clusters = 0; // 0: as many as the table needs
    u8 unwritten = 0;        // what fills the clusters that nothing is written to

    // Where the table lies; empty: in one run from cluster 4 on.
    std::vector<ntfs_build_run_t> table_runs;
    std::vector<ntfs_build_table_extension_t> table_extensions;

    std::map<u64, ntfs_build_record_t> records;
};

inline constexpr u64 NTFS_BUILD_CREATED = 0x01D0000000000001;
inline constexpr u64 NTFS_BUILD_MODIFIED = 0x01D1000000000002;
inline constexpr u64 NTFS_BUILD_ACCESSED = 0x01D2000000000003;

constexpr u64 ntfs_build_frn(u64 index, u16 sequence = 1) {
    return index | static_cast<u64>(sequence) << 48;
}

// --- Attributes --------------------------------------------------------------------------------------------

void ntfs_build_put(ntfs_build_bytes_t *bytes, u64 offset, u64 value, u32 size);

ntfs_build_bytes_t ntfs_build_resident_attribute(u32 type, const ntfs_build_bytes_t &value,
                                                 const std::u16string &name = {});
ntfs_build_bytes_t ntfs_build_standard_information(u32 attributes, u64 created = NTFS_BUILD_CREATED,
                                                   u64 modified = NTFS_BUILD_MODIFIED,
                                                   u64 accessed = NTFS_BUILD_ACCESSED);
// Namespaces: 0 POSIX, 1 Win32, 2 DOS, 3 both.
ntfs_build_bytes_t ntfs_build_file_name(u64 parent_frn, const std::u16string &name, u8 name_space = 1);
ntfs_build_bytes_t ntfs_build_resident_data(u32 size, const std::u16string &name = {});
// `pairs` as from ntfs_build_pairs, or anything else.
ntfs_build_bytes_t ntfs_build_non_resident_attribute(u32 type, u64 size, const ntfs_build_bytes_t &pairs,
                                                     u64 lowest_vcn = 0, const std::u16string &name = {});
ntfs_build_bytes_t ntfs_build_pairs(const std::vector<ntfs_build_run_t> &runs);

struct ntfs_build_list_entry_t {
    u32 type;
    u64 frn;
    u64 lowest_vcn = 0;
    std::u16string name = {};
};
// The value of an attribute list, for a resident attribute or to be put in clusters.
ntfs_build_bytes_t ntfs_build_list_value(const std::vector<ntfs_build_list_entry_t> &entries);
ntfs_build_bytes_t ntfs_build_attribute_list(const std::vector<ntfs_build_list_entry_t> &entries);

// --- Records -----------------------------------------------------------------------------------------------

// An ordinary item: standard information, one name and, for a file, data of that size. Returns the record.
ntfs_build_record_t *ntfs_build_file(ntfs_builder_t *builder, u64 index, u64 parent_frn,
                                     const std::u16string &name, u64 size);
ntfs_build_record_t *ntfs_build_folder(ntfs_builder_t *builder, u64 index, u64 parent_frn,
                                       const std::u16string &name);
// An extension of another record, with the attributes given.
ntfs_build_record_t *ntfs_build_extension(ntfs_builder_t *builder, u64 index, u64 base_frn,
                                          std::vector<ntfs_build_bytes_t> attributes);
// The root folder, record 5 with sequence number 5.
void ntfs_build_root(ntfs_builder_t *builder);

// The bytes of a record, as they stand on the volume.
ntfs_build_bytes_t ntfs_build_record_bytes(const ntfs_builder_t *builder, const ntfs_build_record_t &record);

// --- Volumes -----------------------------------------------------------------------------------------------

// The whole volume.
ntfs_build_bytes_t ntfs_build_image(const ntfs_builder_t *builder);
// The place of a byte of the table, and of a record, in the image.
u64 ntfs_build_table_offset(const ntfs_builder_t *builder, u64 offset);
u64 ntfs_build_record_offset(const ntfs_builder_t *builder, u64 index);

} // namespace findwright
