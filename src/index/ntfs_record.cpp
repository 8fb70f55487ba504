// One file record: the fix-up of its update sequence, and its attributes.
#include "index/ntfs_internal.h"

#include "os/debug.h"

namespace findwright {

// $FILE_NAME value.
static constexpr u32 NAME_LENGTH = 64;
static constexpr u32 NAME_NAMESPACE = 65;
static constexpr u32 NAME_TEXT = 66;
static constexpr u8 NAMESPACE_DOS = 2;
static constexpr u8 NAMESPACE_LAST = 3;

void ntfs_log_bad_access(u32 offset, u32 length) {
    debug_printf("invalid file record access at offset %u len %u\n", offset, length);
}

bool ntfs_fix_up(u8 *record, u32 size) {
    const u32 offset = ntfs_u16(record + NTFS_RECORD_USA_OFFSET);
    const u32 count = ntfs_u16(record + NTFS_RECORD_USA_COUNT);
    if (count < 2) {
        return true;
    }
    const u32 blocks = count - 1;
    if (offset + count * 2 > size) {
        ntfs_log_bad_access(offset, count * 2);
        return false;
    }
    if (blocks * NTFS_FIX_UP_STRIDE > size) {
        ntfs_log_bad_access(blocks * NTFS_FIX_UP_STRIDE - 2, 2);
        return false;
    }
    const u16 check = ntfs_u16(record + offset);
    const u8 *saved = record + offset + 2;
    u8 *word = record + NTFS_FIX_UP_STRIDE - 2;
    for (u32 block = 0; block < blocks; block++, saved += 2, word += NTFS_FIX_UP_STRIDE) {
        if (ntfs_u16(word) != check) {
            debug_printf("bad US %x != %x\n", ntfs_u16(word), check);
            return false;
        }
        memcpy(word, saved, 2);
    }
    return true;
}

bool ntfs_data_size(const ntfs_attribute_t *attribute, u64 *size) {
    if (ntfs_is_resident(attribute)) {
        const u8 *header = ntfs_attribute_bytes(attribute, 0, NTFS_RESIDENT_HEADER);
        if (header) {
            *size = ntfs_u32(header + NTFS_RESIDENT_VALUE_LENGTH);
        }
        return header != nullptr;
    }
    const u8 *header = ntfs_attribute_bytes(attribute, 0, NTFS_NON_RESIDENT_HEADER);
    // The sizes stand in the first part of a split attribute only.
    if (!header || ntfs_u64(header + NTFS_NON_RESIDENT_LOWEST_VCN) != 0) {
        return false;
    }
    *size = ntfs_u64(header + NTFS_NON_RESIDENT_FILE_SIZE);
    return true;
}

static void _ntfs_parse_standard_information(const ntfs_attribute_t *attribute, ntfs_parsed_t *parsed) {
    if (!ntfs_is_resident(attribute)) {
        debug_printf("nonresident standard information\n");
        return;
    }
    const u8 *value = ntfs_resident_value(attribute, NTFS_STANDARD_INFORMATION_SIZE);
    if (!value) {
        return;
    }
    parsed->values.date_created = ntfs_u64(value);
    parsed->values.date_modified = ntfs_u64(value + 8);
    parsed->values.date_accessed = ntfs_u64(value + 24);
    parsed->values.attributes = ntfs_u32(value + 32);
    parsed->has_standard_information = true;
}

// Takes one name, unless it is none that a user sees.
static bool _ntfs_parse_name(const ntfs_attribute_t *attribute, ntfs_name_t *name) {
    if (!ntfs_is_resident(attribute)) {
        debug_printf("nonresident name attribute\n");
        return false;
    }
    const u8 *value = ntfs_resident_value(attribute, NAME_TEXT);
    if (!value) {
        return false;
    }
    const u8 name_space = value[NAME_NAMESPACE];
    if (name_space == NAMESPACE_DOS) {
        return false;
    }
    if (name_space > NAMESPACE_LAST) {
        debug_printf("bad name flag %02x\n", name_space);
        return false;
    }
    name->parent_frn = ntfs_u64(value);
    if (ntfs_is_internal(name->parent_frn)) {
        debug_printf("ignore name attr for internal ntfs folder %016I64x\n", name->parent_frn);
        return false;
    }
    name->length = value[NAME_LENGTH];
    if (name->length == 0) {
        debug_printf("empty name\n");
        return false;
    }
    name->text = value + NAME_TEXT;
    return ntfs_resident_value(attribute, NAME_TEXT + name->length * 2) != nullptr;
}

void ntfs_parse_record(const u8 *record, u32 size, u64 index, bool want_standard_information, bool want_size,
                       ntfs_parsed_t *parsed, ntfs_name_t *names) {
    const u16 flags = ntfs_u16(record + NTFS_RECORD_FLAGS);
    const u64 sequence = ntfs_u16(record + NTFS_RECORD_SEQUENCE);
    ntfs_record_t *values = &parsed->values;
    values->frn = index | sequence << 48;
    values->size = 0;
    values->date_modified = values->date_created = values->date_accessed = VALUE_UNKNOWN;
    values->attributes = 0;
    parsed->has_standard_information = false;
    parsed->has_attribute_list = false;
    parsed->is_directory = flags & NTFS_RECORD_DIRECTORY;
    u32 name_count = 0;

    ntfs_cursor_t cursor = ntfs_attributes(record, size);
    ntfs_attribute_t attribute;
    ntfs_step_t step;
    while ((step = ntfs_next_attribute(&cursor, &attribute)) == NTFS_STEP_ATTRIBUTE) {
        if (ntfs_is_named(&attribute)) {
            continue;
        }
        switch (attribute.type) {
        case NTFS_TYPE_STANDARD_INFORMATION:
            if (want_standard_information && !parsed->has_standard_information) {
                _ntfs_parse_standard_information(&attribute, parsed);
            }
            break;
        case NTFS_TYPE_ATTRIBUTE_LIST:
            parsed->has_attribute_list = true;
            if (ntfs_u64(record + NTFS_RECORD_BASE) != 0) {
                debug_printf("attribute list attribute with base frn\n");
            }
            break;
        case NTFS_TYPE_FILE_NAME: name_count += _ntfs_parse_name(&attribute, &names[name_count]); break;
        case NTFS_TYPE_DATA:
            if (want_size) {
                ntfs_data_size(&attribute, &values->size);
            }
            break;
        default: break;
        }
    }
    if (step == NTFS_STEP_BAD_LENGTH) {
        debug_printf("\t%I64u: BAD record length %d < %d\n", index, attribute.length, NTFS_ATTRIBUTE_HEADER);
    }
    parsed->name_count = name_count;
    values->attributes = (values->attributes & ~NTFS_ATTRIBUTE_BIT_DIRECTORY) |
                         (parsed->is_directory ? NTFS_ATTRIBUTE_BIT_DIRECTORY : 0);
}

} // namespace findwright
