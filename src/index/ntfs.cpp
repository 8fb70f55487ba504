// The boot sector, and the pass over the whole file table.
//
// A pass treats the table as one stream of bytes, cut into records. Its data runs give the stream in VCN
// order, and each is read in large pieces into one buffer. When the buffer is full, or the runs are at their
// end, the whole records in it are processed, and what is left of a record that goes on in the next run stays
// in front.
//
// Where a part of the stream cannot be had (it lies behind the end of a volume that was cut off, or the
// record that tells of it is damaged) the record index moves on by what is missing, so that each record that
// can be had keeps its number. What a damaged table can cost is bounded twice: no more records are counted
// than the table's own length tells, and no more bytes are read than the volume has.
#include "index/ntfs_internal.h"

#include "base/mem.h"
#include "os/debug.h"
#include "os/os.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>

namespace findwright {

// Boot sector.
static constexpr u32 BOOT_SIZE = 80; // as far as it is read
static constexpr u32 BOOT_BYTES_PER_SECTOR = 11;
static constexpr u32 BOOT_SECTORS_PER_CLUSTER = 13;
static constexpr u32 BOOT_TOTAL_SECTORS = 40;
static constexpr u32 BOOT_MFT_LCN = 48;
static constexpr u32 BOOT_CLUSTERS_PER_RECORD = 64;
static constexpr u32 BOOT_SERIAL_NUMBER = 72;
// A larger number of sectors per cluster is a power of two, given as its negated exponent.
static constexpr u8 BOOT_SECTORS_PER_CLUSTER_MAX = 128;
static constexpr u32 BOOT_SECTOR_SIZE_MAX = 65536;

static constexpr u32 MASK_SIZE = 1;
static constexpr u32 MASK_STANDARD_INFORMATION = 2 | 4 | 8 | 16;

static constexpr u32 READ_SIZE = 1024 * 1024;
static constexpr u32 READ_ALIGNMENT = 4096;
// A table in tens of thousands of pieces needs some thousand extension records of its own. Copies of more
// than this many bytes are no table's.
static constexpr u64 TABLE_EXTENSION_BYTES_MAX = 64 * 1024 * 1024;

// --- Boot sector -------------------------------------------------------------------------------------------

void ntfs_reason(char *reason, const char *format, ...) {
    if (!reason) {
        return;
    }
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(reason, NTFS_REASON_SIZE, format, arguments);
    va_end(arguments);
}

// The name of another file system at the place of the NTFS signature, or at that of FAT's.
struct foreign_t {
    u32 offset;
    const char *signature;
    const char *kind;
};

static constexpr foreign_t FOREIGN[] = {
    {3, "-FVE-FS-", "a volume encrypted with BitLocker"},
    {3, "ReFS", "a ReFS volume"},
    {3, "EXFAT   ", "an exFAT volume"},
    {0x52, "FAT32   ", "a FAT volume"},
    {0x36, "FAT1", "a FAT volume"},
};

const char *ntfs_foreign_file_system(const u8 *sector, u32 size) {
    for (const foreign_t &foreign : FOREIGN) {
        const size_t length = strlen(foreign.signature);
        if (foreign.offset + length <= size &&
            memcmp(sector + foreign.offset, foreign.signature, length) == 0) {
            return foreign.kind;
        }
    }
    return nullptr;
}

static bool _ntfs_read_boot_sector(os_volume_t *volume, u8 *sector, u32 sector_size, char *reason) {
    const i64 bytes_read = os_volume_read(volume, 0, sector, sector_size);
    if (bytes_read < 0) {
        debug_printf("failed to read NTFS boot sector: %u\n", os_get_last_error());
        ntfs_reason(reason, "it cannot be read (error %u)", os_get_last_error());
        return false;
    }
    if (bytes_read != sector_size) {
        debug_printf("unable to read all of NTFS boot sector: %u\n", static_cast<u32>(bytes_read));
        ntfs_reason(reason, "%s", bytes_read == 0 ? "it is empty" : "it is too short to be a volume");
        return false;
    }
    const u8 *signature = sector + NTFS_BOOT_SIGNATURE_OFFSET;
    if (memcmp(signature, NTFS_BOOT_SIGNATURE, NTFS_BOOT_SIGNATURE_SIZE) != 0) {
        debug_printf("bad NTFS signature: %t\n", signature, NTFS_BOOT_SIGNATURE_SIZE);
        const char *foreign = ntfs_foreign_file_system(sector, sector_size);
        if (foreign) {
            ntfs_reason(reason, "it is %s, not an NTFS volume", foreign);
        } else {
            ntfs_reason(reason, "it has no NTFS boot sector");
        }
        return false;
    }
    return true;
}

// 0 when the field makes no sense.
static u32 _ntfs_cluster_size(u32 sectors_per_cluster, u32 bytes_per_sector) {
    u64 sectors = sectors_per_cluster;
    if (sectors > BOOT_SECTORS_PER_CLUSTER_MAX) {
        const u32 shift = 256 - sectors_per_cluster;
        sectors = shift < 32 ? static_cast<u64>(1) << shift : 0;
    }
    const u64 size = sectors * bytes_per_sector;
    return size <= NTFS_CLUSTER_SIZE_MAX ? static_cast<u32>(size) : 0;
}

static u32 _ntfs_record_size(i8 clusters_per_record, u32 bytes_per_cluster) {
    if (clusters_per_record > 0) {
        return static_cast<u32>(
            std::min<u64>(static_cast<u64>(clusters_per_record) * bytes_per_cluster, ~0u));
    }
    return static_cast<u32>(1) << (-clusters_per_record & 31);
}

static bool _ntfs_read_geometry(const u8 *sector, ntfs_info_t *info, char *reason) {
    info->bytes_per_sector = ntfs_u16(sector + BOOT_BYTES_PER_SECTOR);
    const u32 sectors_per_cluster = sector[BOOT_SECTORS_PER_CLUSTER];
    info->bytes_per_cluster = _ntfs_cluster_size(sectors_per_cluster, info->bytes_per_sector);
    if (info->bytes_per_cluster == 0) {
        debug_printf("invalid bytes_per_cluster %u\n", sectors_per_cluster * info->bytes_per_sector);
        ntfs_reason(reason, "its NTFS boot sector is damaged: clusters of %u sectors of %u bytes",
                    sectors_per_cluster, info->bytes_per_sector);
        return false;
    }
    info->bytes_per_file_record =
        _ntfs_record_size(static_cast<i8>(sector[BOOT_CLUSTERS_PER_RECORD]), info->bytes_per_cluster);
    if (info->bytes_per_file_record < NTFS_RECORD_SIZE_MIN ||
        info->bytes_per_file_record > NTFS_RECORD_SIZE_MAX) {
        debug_printf("invalid bytes_per_file_record %u\n", info->bytes_per_file_record);
        ntfs_reason(reason, "its NTFS boot sector is damaged: file records of %u bytes",
                    info->bytes_per_file_record);
        return false;
    }
    info->mft_lcn = ntfs_u64(sector + BOOT_MFT_LCN);
    info->serial_number = ntfs_u64(sector + BOOT_SERIAL_NUMBER);
    return true;
}

bool ntfs_get_info(os_volume_t *volume, ntfs_info_t *info, char *reason) {
    *info = {};
    ntfs_reason(reason, "%s", "");
    u32 sector_size = 0;
    u32 error = 0;
    if (!os_volume_get_sector_size(volume, &sector_size, &error)) {
        debug_printf("failed to read drive geometry %u\n", error);
        ntfs_reason(reason, "its sector size cannot be told (error %u)", error);
        return false;
    }
    debug_printf("sector size %d\n", sector_size);
    if (sector_size < BOOT_SIZE || sector_size > BOOT_SECTOR_SIZE_MAX) {
        debug_printf("bad sector size %u\n", sector_size);
        ntfs_reason(reason, "its sectors have %u bytes", sector_size);
        return false;
    }
    auto *sector = static_cast<u8 *>(mem_alloc(sector_size));
    ntfs_info_t found = {};
    const bool valid = _ntfs_read_boot_sector(volume, sector, sector_size, reason) &&
                       _ntfs_read_geometry(sector, &found, reason);
    mem_free(sector);
    if (!valid) {
        return false;
    }
    *info = found;
    debug_printf("mft_lcn %I64u\n", info->mft_lcn);
    debug_printf("serial_number %I64u\n", info->serial_number);
    debug_printf("bytes_per_cluster %u\n", info->bytes_per_cluster);
    debug_printf("bytes_per_file_record %u\n", info->bytes_per_file_record);
    return true;
}

// --- State of a pass ---------------------------------------------------------------------------------------

// A record that tells of further parts of the table. The raw record follows.
struct table_extension_t {
    table_extension_t *next;
};

struct ntfs_pass_t {
    os_volume_t *volume;
    const ntfs_info_t *info;
    void *user_data;
    ntfs_record_proc_t *sink;
    ntfs_progress_proc_t *progress;
    u32 record_size;
    bool want_standard_information;
    bool want_size;
    bool stop;

    u64 record_index; // of the first record in the buffer
    u64 total;        // records in the table, once its first part is known
    u64 remaining;    // of these, how many are still to come
    u64 read_left;    // bytes that may still be read
    u64 next_vcn;

    void *buffer_block;
    u8 *buffer;
    u32 capacity; // a multiple of record_size
    u32 filled;
    u32 discard; // bytes at the start of the next read that belong to a record whose front is missing
    u8 *record;  // the record of the table itself that is being walked
    ntfs_name_t *names;

    ntfs_run_queue_t queue;
    table_extension_t *extension_first;
    table_extension_t *extension_last;
    u64 extension_bytes;
    ntfs_merge_t merge;
};

// The sizes that all the arithmetic of a pass rests on.
static bool _ntfs_info_is_usable(const ntfs_info_t *info) {
    return info->mft_lcn != 0 && info->bytes_per_sector != 0 && info->bytes_per_cluster != 0 &&
           info->bytes_per_cluster <= NTFS_CLUSTER_SIZE_MAX &&
           info->bytes_per_file_record >= NTFS_RECORD_SIZE_MIN &&
           info->bytes_per_file_record <= NTFS_RECORD_SIZE_MAX;
}

// Bytes of the volume: as the system tells, else as its boot sector does.
static u64 _ntfs_volume_size(os_volume_t *volume) {
    const u64 size = os_volume_get_size(volume);
    u8 sector[BOOT_SIZE];
    if (size != 0 || os_volume_read(volume, 0, sector, BOOT_SIZE) != BOOT_SIZE) {
        return size;
    }
    return ntfs_multiply(ntfs_u64(sector + BOOT_TOTAL_SECTORS), ntfs_u16(sector + BOOT_BYTES_PER_SECTOR));
}

static void _ntfs_pass_init(ntfs_pass_t *pass) {
    const u32 record_size = pass->info->bytes_per_file_record;
    const u32 wanted = std::max(READ_SIZE, pass->info->bytes_per_cluster);
    pass->record_size = record_size;
    pass->capacity = wanted / record_size * record_size;
    pass->buffer_block = mem_alloc(pass->capacity + READ_ALIGNMENT);
    const auto address = reinterpret_cast<std::uintptr_t>(pass->buffer_block);
    pass->buffer = static_cast<u8 *>(pass->buffer_block) + (READ_ALIGNMENT - address % READ_ALIGNMENT);
    pass->record = static_cast<u8 *>(mem_alloc(record_size));
    pass->names =
        static_cast<ntfs_name_t *>(mem_alloc(ntfs_name_count_max(record_size) * sizeof(ntfs_name_t)));
    pass->read_left = _ntfs_volume_size(pass->volume);
    ntfs_merge_init(&pass->merge);
}

static void _ntfs_pass_kill(ntfs_pass_t *pass) {
    while (pass->extension_first) {
        debug_printf("unprocessed extended MFT file record\n");
        table_extension_t *next = pass->extension_first->next;
        mem_free(pass->extension_first);
        pass->extension_first = next;
    }
    if (pass->queue.count) {
        debug_printf("%d unprocessed MFT data runs\n", pass->queue.count);
    }
    ntfs_run_queue_kill(&pass->queue);
    ntfs_merge_kill(&pass->merge);
    mem_free(pass->names);
    mem_free(pass->record);
    mem_free(pass->buffer_block);
}

// --- Records -----------------------------------------------------------------------------------------------

static void _ntfs_log_table_record(const u8 *record, const char *prefix) {
    debug_printf("%sMFT type %t\n", prefix, record, 4u);
    debug_printf("%sMFT USA Offset %u\n", prefix, ntfs_u16(record + NTFS_RECORD_USA_OFFSET));
    debug_printf("%sMFT USA Count %u\n", prefix, ntfs_u16(record + NTFS_RECORD_USA_COUNT));
    debug_printf("%sMFT lsn %I64u\n", prefix, ntfs_u64(record + NTFS_RECORD_LSN));
    debug_printf("%sMFT sequence_number %u\n", prefix, ntfs_u16(record + NTFS_RECORD_SEQUENCE));
    debug_printf("%sMFT name_count %u\n", prefix, ntfs_u16(record + NTFS_RECORD_LINKS));
    debug_printf("%sMFT attribute_offset %u\n", prefix, ntfs_u16(record + NTFS_RECORD_ATTRIBUTES));
    debug_printf("%sMFT flags %u\n", prefix, ntfs_u16(record + NTFS_RECORD_FLAGS));
    debug_printf("%sMFT bytes_in_use %u\n", prefix, ntfs_u32(record + NTFS_RECORD_BYTES_IN_USE));
    debug_printf("%sMFT bytes_allocated %u\n", prefix, ntfs_u32(record + NTFS_RECORD_BYTES_ALLOCATED));
    debug_printf("%sMFT base_frn %u\n", prefix, ntfs_u32(record + NTFS_RECORD_BASE));
    debug_printf("%sMFT next_attribute_number %u\n", prefix, ntfs_u16(record + NTFS_RECORD_NEXT_ATTRIBUTE));
}

// Keeps a raw copy of an extension record of the table itself, for when the runs known so far are at their
// end.
static void _ntfs_add_table_extension(ntfs_pass_t *pass, const u8 *record) {
    debug_printf("found extended MFT file record %016I64x base %016I64x\n", pass->record_index,
                 ntfs_u64(record + NTFS_RECORD_BASE));
    _ntfs_log_table_record(record, "extended ");
    if (pass->extension_bytes + pass->record_size > TABLE_EXTENSION_BYTES_MAX) {
        debug_printf("too many extended MFT file records\n");
        return;
    }
    pass->extension_bytes += pass->record_size;
    auto *extension =
        static_cast<table_extension_t *>(mem_alloc(sizeof(table_extension_t) + pass->record_size));
    extension->next = nullptr;
    memcpy(extension + 1, record, pass->record_size);
    (pass->extension_last ? pass->extension_last->next : pass->extension_first) = extension;
    pass->extension_last = extension;
}

static void _ntfs_process_record(ntfs_pass_t *pass, u8 *record) {
    const u32 signature = ntfs_u32(record);
    if (signature != NTFS_SIGNATURE_FILE) {
        if (debug_verbose) {
            debug_verbose_printf("bad file record type %08x\n", signature);
        }
        return;
    }
    if (!(ntfs_u16(record + NTFS_RECORD_FLAGS) & NTFS_RECORD_IN_USE)) {
        return;
    }
    const u64 base = ntfs_u64(record + NTFS_RECORD_BASE);
    if (base != 0 && ntfs_frn_index(base) == 0) {
        _ntfs_add_table_extension(pass, record);
        return;
    }
    if (ntfs_is_internal(pass->record_index) || !ntfs_fix_up(record, pass->record_size)) {
        return;
    }
    ntfs_parsed_t parsed;
    ntfs_parse_record(record, pass->record_size, pass->record_index, pass->want_standard_information,
                      pass->want_size, &parsed, pass->names);
    if (base != 0) {
        if (ntfs_is_internal(base)) {
            debug_printf("ignore internal extended fragmented file record %016I64x\n", base);
            return;
        }
        ntfs_merge_add_extension(&pass->merge, base, &parsed, pass->names);
        return;
    }
    if (parsed.has_attribute_list) {
        ntfs_merge_add_base(&pass->merge, &parsed, pass->names);
        return;
    }
    for (u32 i = 0; i < parsed.name_count; i++) {
        parsed.values.parent_frn = pass->names[i].parent_frn;
        parsed.values.name = pass->names[i].text;
        parsed.values.name_length = pass->names[i].length;
        pass->sink(pass->user_data, &parsed.values);
    }
}

// Processes the whole records in the buffer and moves what is left to its front.
static void _ntfs_process_buffer(ntfs_pass_t *pass) {
    const u32 in_buffer = pass->filled / pass->record_size;
    u32 count = in_buffer;
    if (pass->remaining < count) {
        debug_printf("more data than file record run %u > %I64u\n", count, pass->remaining);
        count = static_cast<u32>(pass->remaining);
    }
    u8 *record = pass->buffer;
    for (u32 i = 0; i < count; i++, record += pass->record_size) {
        _ntfs_process_record(pass, record);
        pass->record_index++;
    }
    pass->remaining -= count;
    const u32 used = in_buffer * pass->record_size;
    pass->filled -= used;
    memmove(pass->buffer, pass->buffer + used, pass->filled);
    if (pass->progress && !pass->progress(pass->user_data, pass->total - pass->remaining, pass->total)) {
        pass->stop = true;
    }
}

// --- The stream of the table -------------------------------------------------------------------------------

// Takes note that the next `bytes` of the table cannot be had.
static void _ntfs_skip_missing(ntfs_pass_t *pass, u64 bytes) {
    _ntfs_process_buffer(pass);
    // The records that the gap cuts off at its ends are lost as well.
    u64 missing = std::min(bytes, ~static_cast<u64>(0) / 2) + pass->filled;
    pass->filled = 0;
    if (pass->discard >= missing) {
        pass->discard -= static_cast<u32>(missing);
        return;
    }
    missing -= pass->discard;
    const u32 part = static_cast<u32>(missing % pass->record_size);
    pass->discard = part ? pass->record_size - part : 0;
    const u64 records = std::min(missing / pass->record_size + (part != 0), pass->remaining);
    pass->record_index += records;
    pass->remaining -= records;
}

// Drops the end of a record whose front is missing. Returns how much of the bytes just read remains.
static u32 _ntfs_discard(ntfs_pass_t *pass, u32 bytes) {
    const u32 dropped = std::min(pass->discard, bytes);
    if (dropped) {
        u8 *start = pass->buffer + pass->filled;
        memmove(start, start + dropped, bytes - dropped);
        pass->discard -= dropped;
    }
    return bytes - dropped;
}

// Reads one run. False when the pass cannot go on. A run that goes beyond the end of the volume is read up to
// there, and the rest of it is missing: what other runs hold may still be had.
static bool _ntfs_read_run(ntfs_pass_t *pass, u64 lcn, u64 clusters) {
    u64 offset = ntfs_multiply(lcn, pass->info->bytes_per_cluster);
    u64 left = ntfs_multiply(clusters, pass->info->bytes_per_cluster);
    while (left && pass->remaining && !pass->stop) {
        if (!pass->read_left) {
            debug_printf("MFT data runs are longer than the volume\n");
            return false;
        }
        const u64 room = std::min<u64>(pass->capacity - pass->filled, left);
        const u32 wanted = static_cast<u32>(std::min(room, pass->read_left));
        const i64 bytes_read = os_volume_read(pass->volume, offset, pass->buffer + pass->filled, wanted);
        if (bytes_read < 0) {
            debug_printf("read cluster failed\n");
            return false;
        }
        const u32 got = static_cast<u32>(bytes_read);
        pass->read_left -= got;
        pass->filled += _ntfs_discard(pass, got);
        left -= got;
        offset += got;
        if (got != wanted) {
            debug_printf("read cluster failed\n");
            _ntfs_skip_missing(pass, left);
            return !pass->stop;
        }
        if (pass->filled == pass->capacity) {
            _ntfs_process_buffer(pass);
        }
    }
    return !pass->stop;
}

// Reads the runs of one piece of the table. A damaged pair ends the piece: where the next run would begin
// cannot be told. False when the pass cannot go on.
static bool _ntfs_read_element(ntfs_pass_t *pass, const ntfs_element_t *element) {
    ntfs_pairs_t pairs = {element->bytes, element->bytes + element->size, 0};
    ntfs_run_t run;
    while (ntfs_pairs_next(&pairs, &run) == NTFS_PAIR_RUN) {
        if (__builtin_add_overflow(pass->next_vcn, run.clusters, &pass->next_vcn)) {
            debug_printf("MFT data run of %I64u clusters is too long\n", run.clusters);
            return false;
        }
        // Sparse clusters take up cluster numbers and hold no records.
        if (!run.sparse && !_ntfs_read_run(pass, run.lcn, run.clusters)) {
            return false;
        }
    }
    return true;
}

// Puts the parts of the table that the record in pass->record tells of into the queue.
static void _ntfs_queue_table_data(ntfs_pass_t *pass) {
    ntfs_cursor_t cursor = ntfs_attributes(pass->record, pass->record_size);
    ntfs_attribute_t attribute;
    ntfs_step_t step;
    while ((step = ntfs_next_attribute(&cursor, &attribute)) == NTFS_STEP_ATTRIBUTE) {
        if (attribute.type != NTFS_TYPE_DATA || ntfs_is_named(&attribute)) {
            continue;
        }
        if (ntfs_is_resident(&attribute)) {
            debug_printf("resident MFT data\n");
            continue;
        }
        ntfs_pairs_t pairs;
        if (attribute.length < NTFS_NON_RESIDENT_HEADER + 8) {
            debug_printf("bad MFT record length %d for nonresident\n", attribute.length);
            continue;
        }
        if (!ntfs_pairs_init(&pairs, &attribute)) {
            continue;
        }
        const u64 vcn = ntfs_u64(attribute.data + NTFS_NON_RESIDENT_LOWEST_VCN);
        if (vcn == 0 && pass->total == 0) {
            const u64 valid_length = ntfs_u64(attribute.data + NTFS_NON_RESIDENT_VALID_LENGTH);
            pass->total = std::min(valid_length / pass->record_size, NTFS_RECORD_COUNT_MAX);
            pass->remaining = pass->total;
        }
        ntfs_run_queue_add(&pass->queue, vcn, pairs.position, static_cast<u32>(pairs.end - pairs.position));
    }
    if (step == NTFS_STEP_BAD_LENGTH) {
        debug_printf("\tBAD mft record length %d\n", attribute.length);
    }
}

// Takes the record in pass->record for the table's own. False, with a log line, when it is damaged.
static bool _ntfs_use_table_record(ntfs_pass_t *pass) {
    if (ntfs_u32(pass->record) != NTFS_SIGNATURE_FILE || !ntfs_fix_up(pass->record, pass->record_size)) {
        debug_printf("MFT file record is damaged, the data runs that it holds are lost\n");
        return false;
    }
    _ntfs_log_table_record(pass->record, "");
    _ntfs_queue_table_data(pass);
    return true;
}

// Reads all parts that follow on each other without a gap. False when the pass cannot go on.
static bool _ntfs_read_queue(ntfs_pass_t *pass) {
    debug_printf("data run array count %d\n", pass->queue.count);
    while (pass->queue.count && ntfs_run_queue_vcn(&pass->queue) == pass->next_vcn) {
        debug_printf("found data run with vcn %I64u\n", pass->next_vcn);
        const ntfs_element_t element = ntfs_run_queue_take(&pass->queue);
        const bool more = _ntfs_read_element(pass, &element);
        mem_free(element.bytes);
        if (!more) {
            return false;
        }
    }
    return true;
}

// Makes the first extension record on the list the table's record.
static bool _ntfs_next_table_extension(ntfs_pass_t *pass) {
    table_extension_t *extension = pass->extension_first;
    if (!extension) {
        return false;
    }
    debug_printf("process extended MFT file record\n");
    memcpy(pass->record, extension + 1, pass->record_size);
    pass->extension_first = extension->next;
    if (!pass->extension_first) {
        pass->extension_last = nullptr;
    }
    mem_free(extension);
    return true;
}

// When no more extension records are to be had, goes over a gap in the table to the next known part.
static bool _ntfs_skip_gap(ntfs_pass_t *pass) {
    // A part below the place that was reached can never be of use.
    u32 useless = 0;
    while (pass->queue.count && ntfs_run_queue_vcn(&pass->queue) < pass->next_vcn) {
        mem_free(ntfs_run_queue_take(&pass->queue).bytes);
        useless++;
    }
    if (useless) {
        debug_printf("%d unprocessed MFT data runs\n", useless);
    }
    if (!pass->queue.count || !pass->remaining) {
        return false;
    }
    const u64 vcn = ntfs_run_queue_vcn(&pass->queue);
    debug_printf("MFT data runs missing from vcn %I64u to %I64u\n", pass->next_vcn, vcn);
    _ntfs_skip_missing(pass, ntfs_multiply(vcn - pass->next_vcn, pass->info->bytes_per_cluster));
    pass->next_vcn = vcn;
    return !pass->stop;
}

static void _ntfs_read_table_record(ntfs_pass_t *pass) {
    memset(pass->record, 0, pass->record_size);
    const u64 offset = ntfs_multiply(pass->info->mft_lcn, pass->info->bytes_per_cluster);
    if (os_volume_read(pass->volume, offset, pass->record, pass->record_size) != pass->record_size) {
        debug_printf("read error %I64x\n", offset);
        memset(pass->record, 0, pass->record_size);
    }
}

static void _ntfs_read_table(ntfs_pass_t *pass) {
    _ntfs_read_table_record(pass);
    bool has_record = true;
    for (;;) {
        if (has_record) {
            _ntfs_use_table_record(pass);
        }
        const bool more = _ntfs_read_queue(pass);
        debug_printf("left over count %u\n", pass->filled / pass->record_size);
        if (pass->filled >= pass->record_size && !pass->stop) {
            _ntfs_process_buffer(pass);
        }
        if (!more || pass->stop) {
            return;
        }
        has_record = _ntfs_next_table_extension(pass);
        if (!has_record && !_ntfs_skip_gap(pass)) {
            return;
        }
    }
}

void ntfs_read_volume(os_volume_t *volume, const ntfs_info_t *info, u32 mask, void *user_data,
                      ntfs_record_proc_t *sink, ntfs_progress_proc_t *progress) {
    if (!_ntfs_info_is_usable(info)) {
        return;
    }
    const u32 start = os_get_tick_count();
    ntfs_pass_t pass = {};
    pass.volume = volume;
    pass.info = info;
    pass.user_data = user_data;
    pass.sink = sink;
    pass.progress = progress;
    pass.want_size = mask & MASK_SIZE;
    pass.want_standard_information = mask & MASK_STANDARD_INFORMATION;
    _ntfs_pass_init(&pass);
    _ntfs_read_table(&pass);
    debug_printf("processed %I64u / %I64u file records\n", pass.total - pass.remaining, pass.total);
    if (!pass.stop) {
        ntfs_merge_report(&pass.merge, user_data, sink);
    }
    _ntfs_pass_kill(&pass);
    debug_printf("%f seconds\n", os_get_tick_count() - start);
}

} // namespace findwright
