// Reads the master file table of an NTFS volume straight from the raw volume, with no directory walk, and
// gives each name of each record in use to a sink. Knows the on-disk structures and nothing of the database.
//
// A pass reads the table in the order of its data runs, in large sequential reads; records are parsed in
// place in the read buffer, and the sink's name points into it. Nothing is allocated for an ordinary record.
// A file whose attributes are spread over several records is reported after all others, so the sink must not
// rely on order.
//
// Damage never stops a pass but for a failed read: a bad record is logged and left out. Thread: the caller's;
// the state of a pass is on its stack.
#pragma once

#include "base/types.h"
#include "db/db_file_info.h"
#include "os/os_volume.h"

namespace findwright {

// What the boot sector tells.
struct ntfs_info_t {
    u64 mft_lcn; // first cluster of the table
    u64 serial_number;
    u32 bytes_per_cluster;
    u32 bytes_per_file_record;
    u32 bytes_per_sector;
};

inline constexpr u64 NTFS_FRN_ROOT = 0x0005000000000005; // record 5, sequence 5: the root folder
inline constexpr u64 NTFS_FRN_INDEX_MASK = 0x0000FFFFFFFFFFFF;

// One name of one record.
struct ntfs_record_t {
    u64 frn;        // file reference: record index in the low 48 bits, sequence number above
    u64 parent_frn; // of the folder that holds this name
    u64 size;       // bytes of the unnamed data; 0 when there is none
    u64 date_modified;
    u64 date_created;
    u64 date_accessed; // file times; VALUE_UNKNOWN when not known
    u32 attributes;    // with bit 0x10 for a folder, whatever the record's own attributes say of it
    u32 name_length;   // UTF-16 units
    const u8 *name;    // UTF-16, little-endian, not aligned, not terminated; valid during the call only
};

// What a pass is asked for, as index flags; size is taken with bit 1, dates and attributes with any of the
// others.
inline constexpr u32 NTFS_MASK_ALL = 31;

using ntfs_record_proc_t = void(void *user_data, const ntfs_record_t *record);
// Called now and then with the number of records read and the number expected. False ends the pass.
using ntfs_progress_proc_t = bool(void *user_data, u64 done, u64 total);

// Reads and checks the boot sector. False, with a log line, when this is no NTFS volume; `reason` (0 or 256
// bytes) then says why in words for a user.
bool ntfs_get_info(os_volume_t *volume, ntfs_info_t *info, char *reason);
// Reads the whole table. `progress` may be 0. What was read is what the sink got.
void ntfs_read_volume(os_volume_t *volume, const ntfs_info_t *info, u32 mask, void *user_data,
                      ntfs_record_proc_t *sink, ntfs_progress_proc_t *progress);
// Fills `fd` from one record and its extensions, asking the file system's driver where there is one and
// reading the table itself where not. On any failure `fd` stays cleared.
void ntfs_get_fd(os_volume_t *volume, u64 frn, db_file_info_t *fd);

} // namespace findwright
