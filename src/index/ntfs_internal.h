// What the sources of the NTFS reader share: field loads, the attribute cursor, the decoding of data runs,
// the parsed form of one record, and the store for files that are spread over several records.
//
// Whatever comes from the volume is reached through a check first: a record's fixed header lies within the
// smallest record size that is accepted, an attribute comes out of ntfs_next_attribute whole, and its value
// is asked for with ntfs_attribute_bytes. Behind such a check fields are loaded at constant offsets.
#pragma once

#include "base/obstack.h"
#include "base/pool.h"
#include "index/ntfs.h"

#include <cstring>

namespace findwright {

inline constexpr u32 NTFS_RECORD_SIZE_MIN = 512;
inline constexpr u32 NTFS_RECORD_SIZE_MAX = 65536;
inline constexpr u32 NTFS_CLUSTER_SIZE_MAX = 2 * 1024 * 1024;
inline constexpr u64 NTFS_RECORD_COUNT_MAX = NTFS_FRN_INDEX_MASK + 1;
inline constexpr u32 NTFS_FIX_UP_STRIDE = 512; // whatever the sector size
inline constexpr u64 NTFS_ROOT_INDEX = 5;
inline constexpr u64 NTFS_RESERVED_RECORDS = 16; // the file system's own, the root folder among them

inline constexpr u32 NTFS_SIGNATURE_FILE = 0x454C4946; // the bytes "FILE"
inline constexpr u16 NTFS_RECORD_IN_USE = 1;
inline constexpr u16 NTFS_RECORD_DIRECTORY = 2;
inline constexpr u32 NTFS_ATTRIBUTE_BIT_DIRECTORY = 0x10; // in the file attributes

// File record.
inline constexpr u32 NTFS_RECORD_USA_OFFSET = 4;
inline constexpr u32 NTFS_RECORD_USA_COUNT = 6;
inline constexpr u32 NTFS_RECORD_LSN = 8;
inline constexpr u32 NTFS_RECORD_SEQUENCE = 16;
inline constexpr u32 NTFS_RECORD_LINKS = 18;
inline constexpr u32 NTFS_RECORD_ATTRIBUTES = 20;
inline constexpr u32 NTFS_RECORD_FLAGS = 22;
inline constexpr u32 NTFS_RECORD_BYTES_IN_USE = 24;
inline constexpr u32 NTFS_RECORD_BYTES_ALLOCATED = 28;
inline constexpr u32 NTFS_RECORD_BASE = 32;
inline constexpr u32 NTFS_RECORD_NEXT_ATTRIBUTE = 40;

// Attribute header.
inline constexpr u32 NTFS_ATTRIBUTE_HEADER = 16;
inline constexpr u32 NTFS_ATTRIBUTE_LENGTH = 4;
inline constexpr u32 NTFS_ATTRIBUTE_NON_RESIDENT = 8;
inline constexpr u32 NTFS_ATTRIBUTE_NAME_LENGTH = 9;
inline constexpr u32 NTFS_RESIDENT_VALUE_LENGTH = 16;
inline constexpr u32 NTFS_RESIDENT_VALUE_OFFSET = 20;
inline constexpr u32 NTFS_RESIDENT_HEADER = 24;
inline constexpr u32 NTFS_NON_RESIDENT_LOWEST_VCN = 16;
inline constexpr u32 NTFS_NON_RESIDENT_PAIRS_OFFSET = 32;
inline constexpr u32 NTFS_NON_RESIDENT_FILE_SIZE = 48;
inline constexpr u32 NTFS_NON_RESIDENT_VALID_LENGTH = 56;
inline constexpr u32 NTFS_NON_RESIDENT_HEADER = 64;

inline constexpr u32 NTFS_TYPE_STANDARD_INFORMATION = 0x10;
inline constexpr u32 NTFS_TYPE_ATTRIBUTE_LIST = 0x20;
inline constexpr u32 NTFS_TYPE_FILE_NAME = 0x30;
inline constexpr u32 NTFS_TYPE_DATA = 0x80;
inline constexpr u32 NTFS_TYPE_END = 0xFFFFFFFF;

inline constexpr u32 NTFS_STANDARD_INFORMATION_SIZE = 36; // as far as it is read

// Entries of an attribute list.
inline constexpr u32 NTFS_LIST_ENTRY_LENGTH = 4;
inline constexpr u32 NTFS_LIST_ENTRY_NAME_LENGTH = 6;
inline constexpr u32 NTFS_LIST_ENTRY_LOWEST_VCN = 8;
inline constexpr u32 NTFS_LIST_ENTRY_FRN = 16;
inline constexpr u32 NTFS_LIST_ENTRY_SIZE = 26;

// --- Loads: little-endian, from any address ----------------------------------------------------------------

inline u16 ntfs_u16(const u8 *bytes) {
    u16 value;
    memcpy(&value, bytes, sizeof(value));
    return value;
}

inline u32 ntfs_u32(const u8 *bytes) {
    u32 value;
    memcpy(&value, bytes, sizeof(value));
    return value;
}

inline u64 ntfs_u64(const u8 *bytes) {
    u64 value;
    memcpy(&value, bytes, sizeof(value));
    return value;
}

inline u64 ntfs_frn_index(u64 frn) {
    return frn & NTFS_FRN_INDEX_MASK;
}

// The file system's own records and what lies in them is never listed; the root folder is.
inline bool ntfs_is_internal(u64 frn) {
    return ntfs_frn_index(frn) < NTFS_RESERVED_RECORDS && ntfs_frn_index(frn) != NTFS_ROOT_INDEX;
}

// --- One record (ntfs_record.cpp) --------------------------------------------------------------------------

// Puts back the words that the update sequence replaced, and checks by them that the record was written
// whole. False, with a log line, if not; the record must not be used then. `size` is at least
// NTFS_RECORD_SIZE_MIN.
bool ntfs_fix_up(u8 *record, u32 size);

void ntfs_log_bad_access(u32 offset, u32 length);

// Goes over the attributes of a record.
struct ntfs_cursor_t {
    const u8 *record;
    u32 size;
    u32 position; // of the next attribute
};

// One attribute: at least NTFS_ATTRIBUTE_HEADER bytes, all of them inside the record.
struct ntfs_attribute_t {
    const u8 *data;
    u32 length;
    u32 offset; // in the record
    u32 type;
};

enum ntfs_step_t { NTFS_STEP_ATTRIBUTE, NTFS_STEP_END, NTFS_STEP_OUTSIDE, NTFS_STEP_BAD_LENGTH };

inline ntfs_cursor_t ntfs_attributes(const u8 *record, u32 size) {
    return {record, size, ntfs_u16(record + NTFS_RECORD_ATTRIBUTES)};
}

// Takes the next attribute. After any other result than NTFS_STEP_ATTRIBUTE the walk is over: at the end
// mark, at a place outside the record (logged), or at a length that cannot be (`attribute->length`; the
// caller logs).
inline ntfs_step_t ntfs_next_attribute(ntfs_cursor_t *cursor, ntfs_attribute_t *attribute) {
    const u32 offset = cursor->position;
    if (offset > cursor->size || cursor->size - offset < NTFS_ATTRIBUTE_HEADER) {
        // The end mark is all that stands there of the last attribute.
        if (offset <= cursor->size && cursor->size - offset >= 4 &&
            ntfs_u32(cursor->record + offset) == NTFS_TYPE_END) {
            return NTFS_STEP_END;
        }
        ntfs_log_bad_access(offset, NTFS_ATTRIBUTE_HEADER);
        return NTFS_STEP_OUTSIDE;
    }
    const u8 *data = cursor->record + offset;
    attribute->type = ntfs_u32(data);
    if (attribute->type == NTFS_TYPE_END) {
        return NTFS_STEP_END;
    }
    attribute->data = data;
    attribute->offset = offset;
    attribute->length = ntfs_u32(data + NTFS_ATTRIBUTE_LENGTH);
    if (attribute->length < NTFS_ATTRIBUTE_HEADER) {
        return NTFS_STEP_BAD_LENGTH;
    }
    if (attribute->length > cursor->size - offset) {
        ntfs_log_bad_access(offset, attribute->length);
        return NTFS_STEP_OUTSIDE;
    }
    cursor->position = offset + attribute->length;
    return NTFS_STEP_ATTRIBUTE;
}

// `length` bytes at `offset` of an attribute, or 0 with a log line.
inline const u8 *ntfs_attribute_bytes(const ntfs_attribute_t *attribute, u32 offset, u32 length) {
    if (offset > attribute->length || length > attribute->length - offset) {
        ntfs_log_bad_access(attribute->offset + offset, length);
        return nullptr;
    }
    return attribute->data + offset;
}

// `length` bytes at the start of a resident value, or 0 with a log line.
inline const u8 *ntfs_resident_value(const ntfs_attribute_t *attribute, u32 length) {
    const u8 *header = ntfs_attribute_bytes(attribute, 0, NTFS_RESIDENT_HEADER);
    return header ? ntfs_attribute_bytes(attribute, ntfs_u16(header + NTFS_RESIDENT_VALUE_OFFSET), length)
                  : nullptr;
}

inline bool ntfs_is_resident(const ntfs_attribute_t *attribute) {
    return !(attribute->data[NTFS_ATTRIBUTE_NON_RESIDENT] & 1);
}

inline bool ntfs_is_named(const ntfs_attribute_t *attribute) {
    return attribute->data[NTFS_ATTRIBUTE_NAME_LENGTH] != 0;
}

// What an unnamed $DATA says of the file's size. False when it says nothing: damaged, or not the first part.
bool ntfs_data_size(const ntfs_attribute_t *attribute, u64 *size);

struct ntfs_name_t {
    u64 parent_frn;
    const u8 *text;
    u32 length; // UTF-16 units
};

// A record's content. `values` is ready for the sink but for the name.
struct ntfs_parsed_t {
    ntfs_record_t values;
    bool has_standard_information;
    bool has_attribute_list;
    bool is_directory;
    u32 name_count;
};

// A name takes an attribute of its own, so a record of `size` bytes has fewer names than this.
constexpr u32 ntfs_name_count_max(u32 size) {
    return size / NTFS_RESIDENT_HEADER + 1;
}

// Reads the attributes of a record whose fix-up is done. `names` has room for ntfs_name_count_max names.
void ntfs_parse_record(const u8 *record, u32 size, u64 index, bool want_standard_information, bool want_size,
                       ntfs_parsed_t *parsed, ntfs_name_t *names);

// --- Data runs (ntfs_runs.cpp) -----------------------------------------------------------------------------

struct ntfs_run_t {
    u64 clusters;
    u64 lcn; // may be anything: the volume's end is the reader's to check
    bool sparse;
};

// The undecoded pairs of one attribute.
struct ntfs_pairs_t {
    const u8 *position;
    const u8 *end;
    u64 lcn;
};

enum ntfs_pair_step_t { NTFS_PAIR_RUN, NTFS_PAIR_END, NTFS_PAIR_DAMAGED };

// The pairs of a non-resident attribute. False, with a log line, when they lie outside it.
bool ntfs_pairs_init(ntfs_pairs_t *pairs, const ntfs_attribute_t *attribute);
// Decodes the next pair. Damage is logged and ends the list.
ntfs_pair_step_t ntfs_pairs_next(ntfs_pairs_t *pairs, ntfs_run_t *run);

// Parts of the table's own $DATA, taken out lowest VCN first. Each element is a copy of its pairs.
struct ntfs_element_t {
    u64 vcn;
    u32 order; // equal VCNs come out as they went in
    u32 size;
    u8 *bytes;
};

struct ntfs_run_queue_t {
    ntfs_element_t *elements; // a heap
    u32 count;
    u32 capacity;
    u32 added;
};

void ntfs_run_queue_add(ntfs_run_queue_t *queue, u64 vcn, const u8 *bytes, u32 size);
// The lowest VCN in the queue, which must not be empty.
u64 ntfs_run_queue_vcn(const ntfs_run_queue_t *queue);
// The caller frees the element's bytes.
ntfs_element_t ntfs_run_queue_take(ntfs_run_queue_t *queue);
void ntfs_run_queue_kill(ntfs_run_queue_t *queue);

// a * b, or all ones when that is too large.
inline u64 ntfs_multiply(u64 a, u64 b) {
    u64 product;
    return __builtin_mul_overflow(a, b, &product) ? ~static_cast<u64>(0) : product;
}

// --- Files spread over several records (ntfs_merge.cpp) ----------------------------------------------------

struct ntfs_name_node_t {
    ntfs_name_node_t *next;
    u64 parent_frn;
    u32 length; // UTF-16 units; the text follows
};

struct ntfs_name_list_t {
    ntfs_name_node_t *first;
    ntfs_name_node_t *last;
};

// A base record that has an attribute list.
struct ntfs_base_t {
    u64 frn;
    u64 size;
    u64 date_modified;
    u64 date_created;
    u64 date_accessed;
    u32 attributes;
    bool has_standard_information;
    bool is_directory;
    ntfs_name_list_t names;
};

struct ntfs_extension_t {
    ntfs_extension_t *next;
    ntfs_base_t part; // with the base's reference
};

// All base records with attribute lists, in record order, and all extension records. Memory grows with what
// the volume holds of them, and is freed as one.
struct ntfs_merge_t {
    obstack_t bases; // ntfs_base_t
    u32 base_count;
    pool_t parts; // names and extensions
    ntfs_extension_t *first;
    ntfs_extension_t *last;
};

void ntfs_merge_init(ntfs_merge_t *merge);
void ntfs_merge_kill(ntfs_merge_t *merge);
void ntfs_merge_add_base(ntfs_merge_t *merge, const ntfs_parsed_t *parsed, const ntfs_name_t *names);
void ntfs_merge_add_extension(ntfs_merge_t *merge, u64 base_frn, const ntfs_parsed_t *parsed,
                              const ntfs_name_t *names);
// Joins what belongs together and gives all of it to the sink. To be called once.
void ntfs_merge_report(ntfs_merge_t *merge, void *user_data, ntfs_record_proc_t *sink);

// --- Reasons -----------------------------------------------------------------------------------------------

inline constexpr u32 NTFS_REASON_SIZE = 256;
inline constexpr u32 NTFS_BOOT_SIGNATURE_OFFSET = 3;
inline constexpr u32 NTFS_BOOT_SIGNATURE_SIZE = 8;
inline constexpr char NTFS_BOOT_SIGNATURE[] = "NTFS    ";

// Writes a text for the user, as snprintf does, unless `reason` is 0.
__attribute__((format(printf, 2, 3))) void ntfs_reason(char *reason, const char *format, ...);
// What a first sector without the NTFS signature belongs to ("a FAT volume"); 0 if unknown.
const char *ntfs_foreign_file_system(const u8 *sector, u32 size);

} // namespace findwright
