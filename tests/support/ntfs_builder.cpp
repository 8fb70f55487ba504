#include "support/ntfs_builder.h"

#include <algorithm>
#include <cstring>

namespace findwright {

static constexpr u32 STRIDE = 512;
static constexpr u32 USA_OFFSET = 48;
static constexpr u16 USA_CHECK = 0x0007;
static constexpr u64 TABLE_LCN = 4;
static constexpr u64 TABLE_RECORDS_MIN = 32;
static constexpr u32 SECTORS_PER_CLUSTER_MAX = 128;

static u32 _align(u32 value) {
    return (value + 7) & ~7u;
}

void ntfs_build_put(ntfs_build_bytes_t *bytes, u64 offset, u64 value, u32 size) {
    if (bytes->size() < offset + size) {
        bytes->resize(offset + size);
    }
    memcpy(bytes->data() + offset, &value, size);
}

static void _put_text(ntfs_build_bytes_t *bytes, u64 offset, const std::u16string &text) {
    if (bytes->size() < offset + text.size() * 2) {
        bytes->resize(offset + text.size() * 2);
    }
    memcpy(bytes->data() + offset, text.data(), text.size() * 2);
}

// --- Attributes --------------------------------------------------------------------------------------------

// The common header, with the attribute's name behind `header_size` bytes.
static ntfs_build_bytes_t _header(u32 type, bool non_resident, u32 header_size, const std::u16string &name) {
    ntfs_build_bytes_t bytes(header_size);
    ntfs_build_put(&bytes, 0, type, 4);
    bytes[8] = non_resident;
    bytes[9] = static_cast<u8>(name.size());
    ntfs_build_put(&bytes, 10, header_size, 2);
    _put_text(&bytes, header_size, name);
    bytes.resize(_align(static_cast<u32>(bytes.size())));
    return bytes;
}

static ntfs_build_bytes_t _finish(ntfs_build_bytes_t bytes) {
    bytes.resize(_align(static_cast<u32>(bytes.size())));
    ntfs_build_put(&bytes, 4, bytes.size(), 4);
    return bytes;
}

ntfs_build_bytes_t ntfs_build_resident_attribute(u32 type, const ntfs_build_bytes_t &value,
                                                 const std::u16string &name) {
    ntfs_build_bytes_t bytes = _header(type, false, 24, name);
    ntfs_build_put(&bytes, 16, value.size(), 4);
    ntfs_build_put(&bytes, 20, bytes.size(), 2);
    bytes.insert(bytes.end(), value.begin(), value.end());
    return _finish(std::move(bytes));
}

ntfs_build_bytes_t ntfs_build_standard_information(u32 attributes, u64 created, u64 modified, u64 accessed) {
    ntfs_build_bytes_t value(48);
    ntfs_build_put(&value, 0, created, 8);
    ntfs_build_put(&value, 8, modified, 8);
    ntfs_build_put(&value, 16, modified, 8);
    ntfs_build_put(&value, 24, accessed, 8);
    ntfs_build_put(&value, 32, attributes, 4);
    return ntfs_build_resident_attribute(0x10, value);
}

ntfs_build_bytes_t ntfs_build_file_name(u64 parent_frn, const std::u16string &name, u8 name_space) {
    ntfs_build_bytes_t value(66);
    ntfs_build_put(&value, 0, parent_frn, 8);
    value[64] = static_cast<u8>(name.size());
    value[65] = name_space;
    _put_text(&value, 66, name);
    return ntfs_build_resident_attribute(0x30, value);
}

ntfs_build_bytes_t ntfs_build_resident_data(u32 size, const std::u16string &name) {
    return ntfs_build_resident_attribute(0x80, ntfs_build_bytes_t(size, 'x'), name);
}

ntfs_build_bytes_t ntfs_build_non_resident_attribute(u32 type, u64 size, const ntfs_build_bytes_t &pairs,
                                                     u64 lowest_vcn, const std::u16string &name) {
    ntfs_build_bytes_t bytes = _header(type, true, 64, name);
    ntfs_build_put(&bytes, 16, lowest_vcn, 8);
    ntfs_build_put(&bytes, 32, bytes.size(), 2);
    ntfs_build_put(&bytes, 40, size, 8);
    ntfs_build_put(&bytes, 48, size, 8);
    ntfs_build_put(&bytes, 56, size, 8);
    bytes.insert(bytes.end(), pairs.begin(), pairs.end());
    return _finish(std::move(bytes));
}

// Bytes that a signed number takes.
static u32 _signed_size(i64 value) {
    u32 size = 1;
    while (size < 8 && (value < -(static_cast<i64>(1) << (size * 8 - 1)) || value >= static_cast<i64>(1)
                                                                                         << (size * 8 - 1))) {
        size++;
    }
    return size;
}

ntfs_build_bytes_t ntfs_build_pairs(const std::vector<ntfs_build_run_t> &runs) {
    ntfs_build_bytes_t bytes;
    u64 lcn = 0;
    for (const ntfs_build_run_t &run : runs) {
        const i64 offset = static_cast<i64>(run.lcn - lcn);
        const u32 count_size = _signed_size(static_cast<i64>(run.clusters));
        const u32 offset_size = run.sparse ? 0 : _signed_size(offset);
        bytes.push_back(static_cast<u8>(count_size | offset_size << 4));
        ntfs_build_put(&bytes, bytes.size(), run.clusters, count_size);
        if (!run.sparse) {
            ntfs_build_put(&bytes, bytes.size(), static_cast<u64>(offset), offset_size);
            lcn = run.lcn;
        }
    }
    bytes.push_back(0);
    return bytes;
}

ntfs_build_bytes_t ntfs_build_list_value(const std::vector<ntfs_build_list_entry_t> &entries) {
    ntfs_build_bytes_t value;
    for (const ntfs_build_list_entry_t &entry : entries) {
        const u64 start = value.size();
        const u32 length = _align(static_cast<u32>(26 + entry.name.size() * 2));
        value.resize(start + length);
        ntfs_build_put(&value, start, entry.type, 4);
        ntfs_build_put(&value, start + 4, length, 2);
        value[start + 6] = static_cast<u8>(entry.name.size());
        value[start + 7] = 26;
        ntfs_build_put(&value, start + 8, entry.lowest_vcn, 8);
        ntfs_build_put(&value, start + 16, entry.frn, 8);
        _put_text(&value, start + 26, entry.name);
    }
    return value;
}

ntfs_build_bytes_t ntfs_build_attribute_list(const std::vector<ntfs_build_list_entry_t> &entries) {
    return ntfs_build_resident_attribute(0x20, ntfs_build_list_value(entries));
}

// --- Records -----------------------------------------------------------------------------------------------

ntfs_build_record_t *ntfs_build_file(ntfs_builder_t *builder, u64 index, u64 parent_frn,
                                     const std::u16string &name, u64 size) {
    ntfs_build_record_t *record = &builder->records[index];
    *record = {};
    record->attributes = {ntfs_build_standard_information(0x20), ntfs_build_file_name(parent_frn, name),
                          ntfs_build_non_resident_attribute(0x80, size, ntfs_build_pairs({}))};
    return record;
}

ntfs_build_record_t *ntfs_build_folder(ntfs_builder_t *builder, u64 index, u64 parent_frn,
                                       const std::u16string &name) {
    ntfs_build_record_t *record = &builder->records[index];
    *record = {};
    record->flags = 3;
    record->attributes = {ntfs_build_standard_information(0), ntfs_build_file_name(parent_frn, name)};
    return record;
}

ntfs_build_record_t *ntfs_build_extension(ntfs_builder_t *builder, u64 index, u64 base_frn,
                                          std::vector<ntfs_build_bytes_t> attributes) {
    ntfs_build_record_t *record = &builder->records[index];
    *record = {};
    record->base_frn = base_frn;
    record->attributes = std::move(attributes);
    return record;
}

void ntfs_build_root(ntfs_builder_t *builder) {
    ntfs_build_folder(builder, 5, NTFS_FRN_ROOT, u".")->sequence = 5;
}

static void _put_update_sequence(ntfs_build_bytes_t *bytes) {
    const u32 blocks = static_cast<u32>(bytes->size() / STRIDE);
    ntfs_build_put(bytes, USA_OFFSET, USA_CHECK, 2);
    for (u32 block = 0; block < blocks; block++) {
        u8 *word = bytes->data() + (block + 1) * STRIDE - 2;
        memcpy(bytes->data() + USA_OFFSET + 2 + block * 2, word, 2);
        memcpy(word, &USA_CHECK, 2);
    }
}

ntfs_build_bytes_t ntfs_build_record_bytes(const ntfs_builder_t *builder, const ntfs_build_record_t &record) {
    const u32 usa_count = builder->record_size / STRIDE + 1;
    ntfs_build_bytes_t bytes(builder->record_size);
    u32 position = _align(USA_OFFSET + usa_count * 2);
    memcpy(bytes.data(), "FILE", 4);
    ntfs_build_put(&bytes, 4, USA_OFFSET, 2);
    ntfs_build_put(&bytes, 6, usa_count, 2);
    ntfs_build_put(&bytes, 16, record.sequence, 2);
    ntfs_build_put(&bytes, 18, record.links, 2);
    ntfs_build_put(&bytes, 20, position, 2);
    ntfs_build_put(&bytes, 22, record.flags, 2);
    ntfs_build_put(&bytes, 28, builder->record_size, 4);
    ntfs_build_put(&bytes, 32, record.base_frn, 8);
    ntfs_build_put(&bytes, 40, record.attributes.size(), 2);
    for (const ntfs_build_bytes_t &attribute : record.attributes) {
        const u32 room = builder->record_size - position;
        memcpy(bytes.data() + position, attribute.data(), std::min<size_t>(attribute.size(), room));
        position += std::min(static_cast<u32>(attribute.size()), room);
    }
    if (position + 4 <= builder->record_size) {
        ntfs_build_put(&bytes, position, 0xFFFFFFFF, 4);
        position = std::min(position + 8, builder->record_size);
    }
    ntfs_build_put(&bytes, 24, position, 4);
    for (const ntfs_build_edit_t &edit : record.edits) {
        memcpy(bytes.data() + edit.offset, &edit.value, edit.size);
    }
    _put_update_sequence(&bytes);
    for (const ntfs_build_edit_t &edit : record.damage) {
        memcpy(bytes.data() + edit.offset, &edit.value, edit.size);
    }
    return bytes;
}

// --- Volumes -----------------------------------------------------------------------------------------------

static u64 _table_records(const ntfs_builder_t *builder) {
    u64 needed = builder->records.empty() ? 0 : builder->records.rbegin()->first + 1;
    for (const ntfs_build_table_extension_t &extension : builder->table_extensions) {
        needed = std::max(needed, extension.index + 1);
    }
    return builder->table_records ? builder->table_records : std::max(needed, TABLE_RECORDS_MIN);
}

static std::vector<ntfs_build_run_t> _table_runs(const ntfs_builder_t *builder) {
    if (!builder->table_runs.empty()) {
        return builder->table_runs;
    }
    const u64 bytes = _table_records(builder) * builder->record_size;
    return {{(bytes + builder->cluster_size - 1) / builder->cluster_size, TABLE_LCN}};
}

// The $DATA attribute of some of the table's runs.
static ntfs_build_bytes_t _table_data(const ntfs_builder_t *builder,
                                      const std::vector<ntfs_build_run_t> &runs, u32 first, u32 count) {
    u64 vcn = 0;
    for (u32 i = 0; i < first; i++) {
        vcn += runs[i].clusters;
    }
    const std::vector<ntfs_build_run_t> part(runs.begin() + first, runs.begin() + first + count);
    return ntfs_build_non_resident_attribute(0x80, _table_records(builder) * builder->record_size,
                                             ntfs_build_pairs(part), vcn);
}

// Adds the records that tell where the table lies.
static void _add_table_records(ntfs_builder_t *builder) {
    const std::vector<ntfs_build_run_t> runs = _table_runs(builder);
    u32 in_record_0 = static_cast<u32>(runs.size());
    std::vector<ntfs_build_list_entry_t> list = {{0x10, ntfs_build_frn(0)}, {0x80, ntfs_build_frn(0)}};
    for (const ntfs_build_table_extension_t &extension : builder->table_extensions) {
        in_record_0 = std::min(in_record_0, extension.first_run);
        u64 vcn = 0;
        for (u32 i = 0; i < extension.first_run; i++) {
            vcn += runs[i].clusters;
        }
        list.push_back({0x80, ntfs_build_frn(extension.index), vcn});
        ntfs_build_extension(builder, extension.index, ntfs_build_frn(0),
                             {_table_data(builder, runs, extension.first_run, extension.run_count)});
    }
    if (builder->records.contains(0)) {
        return;
    }
    ntfs_build_record_t *record = &builder->records[0];
    record->attributes = {ntfs_build_standard_information(6)};
    if (!builder->table_extensions.empty()) {
        record->attributes.push_back(ntfs_build_attribute_list(list));
    }
    record->attributes.push_back(ntfs_build_file_name(NTFS_FRN_ROOT, u"$MFT", 3));
    record->attributes.push_back(_table_data(builder, runs, 0, in_record_0));
}

static ntfs_build_bytes_t _boot_sector(const ntfs_builder_t *builder, u64 clusters, u64 mft_lcn) {
    ntfs_build_bytes_t sector(builder->sector_size);
    const u32 per_cluster = builder->cluster_size / builder->sector_size;
    u32 shift = 0;
    while (1u << shift < per_cluster) {
        shift++;
    }
    u32 record_shift = 0;
    while (1u << record_shift < builder->record_size) {
        record_shift++;
    }
    memcpy(sector.data(), "\xEB\x52\x90NTFS    ", 11);
    ntfs_build_put(&sector, 11, builder->sector_size, 2);
    sector[13] = static_cast<u8>(per_cluster <= SECTORS_PER_CLUSTER_MAX ? per_cluster : 256 - shift);
    ntfs_build_put(&sector, 40, clusters * per_cluster, 8);
    ntfs_build_put(&sector, 48, mft_lcn, 8);
    sector[64] = static_cast<u8>(256 - record_shift);
    ntfs_build_put(&sector, 72, builder->serial_number, 8);
    ntfs_build_put(&sector, 510, 0xAA55, 2);
    return sector;
}

// Writes bytes of the table to wherever its runs put them; what no run holds is lost.
static void _write_table(const ntfs_builder_t *builder, const std::vector<ntfs_build_run_t> &runs, u64 offset,
                         const ntfs_build_bytes_t &bytes, ntfs_build_bytes_t *image) {
    u64 start = 0;
    for (const ntfs_build_run_t &run : runs) {
        const u64 length = run.sparse ? 0 : run.clusters * builder->cluster_size;
        const u64 from = std::max(offset, start);
        const u64 to = std::min(offset + bytes.size(), start + length);
        const u64 place = run.lcn * builder->cluster_size + (from - start);
        if (from < to && place < image->size()) {
            memcpy(image->data() + place, bytes.data() + (from - offset),
                   std::min(to - from, image->size() - place));
        }
        start += length;
    }
}

ntfs_build_bytes_t ntfs_build_image(const ntfs_builder_t *source) {
    ntfs_builder_t builder = *source;
    _add_table_records(&builder);
    const std::vector<ntfs_build_run_t> runs = _table_runs(&builder);
    u64 clusters = builder.volume_clusters;
    for (const ntfs_build_run_t &run : runs) {
        clusters =
            builder.volume_clusters ? clusters : std::max(clusters, run.sparse ? 0 : run.lcn + run.clusters);
    }
    ntfs_build_bytes_t image(clusters * builder.cluster_size, builder.unwritten);
    const ntfs_build_bytes_t boot = _boot_sector(&builder, clusters, runs[0].lcn);
    memcpy(image.data(), boot.data(), std::min(boot.size(), image.size()));
    for (const auto &[index, record] : builder.records) {
        _write_table(&builder, runs, index * builder.record_size, ntfs_build_record_bytes(&builder, record),
                     &image);
    }
    return image;
}

u64 ntfs_build_table_offset(const ntfs_builder_t *builder, u64 offset) {
    u64 start = 0;
    for (const ntfs_build_run_t &run : _table_runs(builder)) {
        const u64 length = run.sparse ? 0 : run.clusters * builder->cluster_size;
        if (offset < start + length) {
            return run.lcn * builder->cluster_size + (offset - start);
        }
        start += length;
    }
    return ~static_cast<u64>(0);
}

u64 ntfs_build_record_offset(const ntfs_builder_t *builder, u64 index) {
    return ntfs_build_table_offset(builder, index * builder->record_size);
}

} // namespace findwright
