// One file's data by its reference number. Where there is no driver to ask for a record, the table's own data
// runs are decoded as far as it takes to find it.
#include "index/ntfs_internal.h"

#include "base/mem.h"
#include "os/debug.h"
#include "os/os.h"

#include <algorithm>

namespace findwright {

// A record, its extension, its base and that one's extension. A damaged volume can send the search in
// circles; a sound one never needs more.
static constexpr u32 FETCH_MAX = 4;
static constexpr u32 RECORD_SIZE_MIN = 43;
// Fewer bytes than this behind the last attribute hold none that counts.
static constexpr u32 ATTRIBUTE_ROOM_MIN = 42;
static constexpr u32 ATTRIBUTE_LIST_MAX = 256 * 1024; // the file system's own limit
static constexpr u32 SEGMENT_MAX = 1024 * 1024;

struct ntfs_lookup_t {
    os_volume_t *volume;
    bool driver; // ask it for records
    u32 bytes_per_cluster;
    u32 record_size;
    u64 mft_lcn;
    u8 *record;
};

// --- Attribute lists ---------------------------------------------------------------------------------------

// An attribute list's entries, in a copy.
struct ntfs_list_t {
    u8 *bytes;
    u32 size;
    u32 position;
};

struct ntfs_list_entry_t {
    u64 frn;
    u64 lowest_vcn;
};

// Reads up to `size` bytes of a non-resident value. Returns how many there are.
static u32 _ntfs_read_value(const ntfs_lookup_t *lookup, const ntfs_attribute_t *attribute, u8 *bytes,
                            u32 size) {
    ntfs_pairs_t pairs;
    ntfs_run_t run;
    u32 filled = 0;
    if (!ntfs_pairs_init(&pairs, attribute)) {
        return 0;
    }
    while (filled < size && ntfs_pairs_next(&pairs, &run) == NTFS_PAIR_RUN) {
        const u64 length = ntfs_multiply(run.clusters, lookup->bytes_per_cluster);
        const u64 where = ntfs_multiply(run.lcn, lookup->bytes_per_cluster);
        const u32 wanted = static_cast<u32>(std::min<u64>(length, size - filled));
        if (run.sparse || os_volume_read(lookup->volume, where, bytes + filled, wanted) != wanted) {
            break;
        }
        filled += wanted;
    }
    return filled;
}

// The caller frees list->bytes. False when there is nothing to scan.
static bool _ntfs_list_init(ntfs_list_t *list, const ntfs_lookup_t *lookup,
                            const ntfs_attribute_t *attribute) {
    const bool resident = ntfs_is_resident(attribute);
    const u8 *header =
        ntfs_attribute_bytes(attribute, 0, resident ? NTFS_RESIDENT_HEADER : NTFS_NON_RESIDENT_HEADER);
    *list = {};
    if (!header) {
        return false;
    }
    const u64 size = resident ? ntfs_u32(header + NTFS_RESIDENT_VALUE_LENGTH)
                              : ntfs_u64(header + NTFS_NON_RESIDENT_FILE_SIZE);
    list->size = static_cast<u32>(std::min<u64>(size, ATTRIBUTE_LIST_MAX));
    if (resident) {
        const u8 *value = ntfs_resident_value(attribute, list->size);
        if (!value) {
            return false;
        }
        list->bytes = static_cast<u8 *>(mem_alloc(list->size + 1));
        memcpy(list->bytes, value, list->size);
        return true;
    }
    list->bytes = static_cast<u8 *>(mem_alloc(list->size + 1));
    list->size = _ntfs_read_value(lookup, attribute, list->bytes, list->size);
    return true;
}

// The next entry that stands for a part of the unnamed $DATA.
static bool _ntfs_list_next_data(ntfs_list_t *list, ntfs_list_entry_t *entry) {
    while (list->size - list->position >= NTFS_LIST_ENTRY_SIZE) {
        const u8 *bytes = list->bytes + list->position;
        const u32 length = ntfs_u16(bytes + NTFS_LIST_ENTRY_LENGTH);
        if (length < NTFS_LIST_ENTRY_SIZE || length > list->size - list->position) {
            return false;
        }
        list->position += length;
        if (ntfs_u32(bytes) == NTFS_TYPE_DATA && bytes[NTFS_LIST_ENTRY_NAME_LENGTH] == 0) {
            entry->frn = ntfs_u64(bytes + NTFS_LIST_ENTRY_FRN);
            entry->lowest_vcn = ntfs_u64(bytes + NTFS_LIST_ENTRY_LOWEST_VCN);
            return true;
        }
    }
    return false;
}

// --- Records without a driver ------------------------------------------------------------------------------

// A piece of the table that lies in one place.
struct ntfs_segment_t {
    u64 start; // byte of the table
    u64 bytes;
    u64 where; // byte of the volume
};

// The table's data runs, as far as they are known.
struct ntfs_map_t {
    ntfs_segment_t *segments; // in table order
    u32 count;
    u32 capacity;
    u64 end; // byte of the table that the segments reach
    u64 next_vcn;
};

static void _ntfs_map_add(ntfs_map_t *map, u64 bytes, u64 where) {
    if (map->count == map->capacity) {
        const u32 capacity = map->capacity ? map->capacity * 2 : 64;
        auto *segments = static_cast<ntfs_segment_t *>(mem_alloc(capacity * sizeof(ntfs_segment_t)));
        if (map->segments) {
            memcpy(segments, map->segments, map->count * sizeof(ntfs_segment_t));
            mem_free(map->segments);
        }
        map->segments = segments;
        map->capacity = capacity;
    }
    map->segments[map->count++] = {map->end, bytes, where};
}

// Adds the runs of one part of the table. Clusters that no part tells of are missing, but have their numbers.
static void _ntfs_map_add_part(ntfs_map_t *map, const ntfs_lookup_t *lookup,
                               const ntfs_attribute_t *attribute) {
    ntfs_pairs_t pairs;
    ntfs_run_t run;
    if (!ntfs_pairs_init(&pairs, attribute)) {
        return;
    }
    const u64 vcn = ntfs_u64(attribute->data + NTFS_NON_RESIDENT_LOWEST_VCN);
    if (vcn < map->next_vcn) {
        return;
    }
    u64 missing = ntfs_multiply(vcn - map->next_vcn, lookup->bytes_per_cluster);
    map->next_vcn = vcn;
    while (!__builtin_add_overflow(map->end, missing, &map->end) && map->count < SEGMENT_MAX &&
           ntfs_pairs_next(&pairs, &run) == NTFS_PAIR_RUN &&
           !__builtin_add_overflow(map->next_vcn, run.clusters, &map->next_vcn)) {
        missing = 0;
        if (!run.sparse) {
            missing = ntfs_multiply(run.clusters, lookup->bytes_per_cluster);
            _ntfs_map_add(map, missing, ntfs_multiply(run.lcn, lookup->bytes_per_cluster));
        }
    }
}

// Adds what one record tells of the table.
static void _ntfs_map_add_record(ntfs_map_t *map, const ntfs_lookup_t *lookup, const u8 *record) {
    ntfs_cursor_t cursor = ntfs_attributes(record, lookup->record_size);
    ntfs_attribute_t attribute;
    while (ntfs_next_attribute(&cursor, &attribute) == NTFS_STEP_ATTRIBUTE) {
        if (attribute.type == NTFS_TYPE_DATA && !ntfs_is_named(&attribute) && !ntfs_is_resident(&attribute)) {
            _ntfs_map_add_part(map, lookup, &attribute);
        }
    }
}

// Reads a record of the table, from as many segments as it lies in.
static bool _ntfs_map_read(const ntfs_map_t *map, const ntfs_lookup_t *lookup, u64 index, u8 *record) {
    u64 offset = ntfs_multiply(index, lookup->record_size);
    const auto behind = [](u64 byte, const ntfs_segment_t &segment) { return byte < segment.start; };
    for (u32 filled = 0; filled < lookup->record_size;) {
        const ntfs_segment_t *segment =
            std::upper_bound(map->segments, map->segments + map->count, offset, behind);
        if (segment == map->segments) {
            return false;
        }
        segment--;
        const u64 inside = offset - segment->start;
        u64 where;
        if (inside >= segment->bytes || __builtin_add_overflow(segment->where, inside, &where)) {
            return false;
        }
        const u32 wanted =
            static_cast<u32>(std::min<u64>(segment->bytes - inside, lookup->record_size - filled));
        if (os_volume_read(lookup->volume, where, record + filled, wanted) != wanted) {
            return false;
        }
        filled += wanted;
        offset += wanted;
    }
    return ntfs_u32(record) == NTFS_SIGNATURE_FILE && ntfs_fix_up(record, lookup->record_size);
}

// Adds the parts that lie in extension records of the table, until the record with that index is within
// reach.
static void _ntfs_map_add_extensions(ntfs_map_t *map, const ntfs_lookup_t *lookup, const u8 *table_record,
                                     u64 index) {
    ntfs_cursor_t cursor = ntfs_attributes(table_record, lookup->record_size);
    ntfs_attribute_t attribute;
    while (ntfs_next_attribute(&cursor, &attribute) == NTFS_STEP_ATTRIBUTE) {
        if (attribute.type != NTFS_TYPE_ATTRIBUTE_LIST) {
            continue;
        }
        ntfs_list_t list;
        ntfs_list_entry_t entry;
        auto *record = static_cast<u8 *>(mem_alloc(lookup->record_size));
        if (_ntfs_list_init(&list, lookup, &attribute)) {
            while (map->end / lookup->record_size <= index && _ntfs_list_next_data(&list, &entry)) {
                if (entry.lowest_vcn >= map->next_vcn &&
                    _ntfs_map_read(map, lookup, ntfs_frn_index(entry.frn), record)) {
                    _ntfs_map_add_record(map, lookup, record);
                }
            }
            mem_free(list.bytes);
        }
        mem_free(record);
        return;
    }
}

// Reads the record with that index into lookup->record.
static bool _ntfs_read_record(ntfs_lookup_t *lookup, u64 index) {
    u8 *record = lookup->record;
    const u64 where = ntfs_multiply(lookup->mft_lcn, lookup->bytes_per_cluster);
    if (os_volume_read(lookup->volume, where, record, lookup->record_size) != lookup->record_size) {
        debug_printf("read error %I64x\n", where);
        return false;
    }
    if (ntfs_u32(record) != NTFS_SIGNATURE_FILE || !ntfs_fix_up(record, lookup->record_size)) {
        debug_printf("MFT file record is damaged, the data runs that it holds are lost\n");
        return false;
    }
    ntfs_map_t map = {};
    _ntfs_map_add_record(&map, lookup, record);
    if (map.end / lookup->record_size <= index) {
        _ntfs_map_add_extensions(&map, lookup, record, index);
    }
    const bool read = _ntfs_map_read(&map, lookup, index, record);
    if (map.segments) {
        mem_free(map.segments);
    }
    return read;
}

// Reads the record with that reference into lookup->record. False when the file is gone: what the driver then
// gives is the nearest record in use below it, which is another file.
static bool _ntfs_fetch(ntfs_lookup_t *lookup, u64 frn) {
    if (!lookup->driver) {
        return _ntfs_read_record(lookup, ntfs_frn_index(frn)) &&
               (ntfs_u16(lookup->record + NTFS_RECORD_FLAGS) & NTFS_RECORD_IN_USE) &&
               ntfs_u16(lookup->record + NTFS_RECORD_SEQUENCE) == frn >> 48;
    }
    u64 reference = 0;
    bool supported = false;
    if (!os_volume_get_ntfs_record(lookup->volume, ntfs_frn_index(frn), &reference, lookup->record,
                                   lookup->record_size, &supported)) {
        debug_printf("FSCTL_GET_NTFS_FILE_RECORD failed %u\n", os_get_last_error());
        return false;
    }
    return reference == frn;
}

// --- The search --------------------------------------------------------------------------------------------

struct ntfs_search_t {
    db_file_info_t found;
    u64 base; // of the first record
    bool started;
    bool has_standard_information;
    bool has_size;
    bool base_followed;
    bool list_followed;
};

enum ntfs_search_step_t { NTFS_SEARCH_DONE, NTFS_SEARCH_FOLLOW, NTFS_SEARCH_NOTHING };

static bool _ntfs_search_standard_information(ntfs_search_t *search, const ntfs_attribute_t *attribute,
                                              bool is_directory) {
    const u8 *value = ntfs_is_resident(attribute)
                          ? ntfs_resident_value(attribute, NTFS_STANDARD_INFORMATION_SIZE)
                          : nullptr;
    if (!value) {
        return false;
    }
    search->found.date_created = ntfs_u64(value);
    search->found.date_modified = ntfs_u64(value + 8);
    search->found.date_accessed = ntfs_u64(value + 24);
    search->found.attributes = (ntfs_u32(value + 32) & ~NTFS_ATTRIBUTE_BIT_DIRECTORY) |
                               (is_directory ? NTFS_ATTRIBUTE_BIT_DIRECTORY : 0);
    search->has_standard_information = true;
    return is_directory || search->has_size;
}

// Finds the record that holds the start of the file's data, if it is another one than `frn`.
static bool _ntfs_search_list(const ntfs_lookup_t *lookup, const ntfs_attribute_t *attribute, u64 frn,
                              u64 *next) {
    ntfs_list_t list;
    ntfs_list_entry_t entry = {};
    bool found = false;
    if (!_ntfs_list_init(&list, lookup, attribute)) {
        return false;
    }
    while (!found && _ntfs_list_next_data(&list, &entry)) {
        found = entry.lowest_vcn == 0 && ntfs_frn_index(entry.frn) != ntfs_frn_index(frn);
    }
    mem_free(list.bytes);
    *next = entry.frn;
    return found;
}

// Goes over the record in lookup->record, which is that of `frn`.
static ntfs_search_step_t _ntfs_search_record(ntfs_search_t *search, const ntfs_lookup_t *lookup, u64 frn,
                                              u64 *next) {
    const u8 *record = lookup->record;
    const u16 flags = ntfs_u16(record + NTFS_RECORD_FLAGS);
    if (ntfs_u32(record) != NTFS_SIGNATURE_FILE || !(flags & NTFS_RECORD_IN_USE)) {
        return NTFS_SEARCH_NOTHING;
    }
    if (!search->started) {
        search->base = ntfs_u64(record + NTFS_RECORD_BASE);
        search->started = true;
    }
    const bool is_directory = flags & NTFS_RECORD_DIRECTORY;
    ntfs_cursor_t cursor = ntfs_attributes(record, lookup->record_size);
    ntfs_attribute_t attribute;
    while (cursor.position + ATTRIBUTE_ROOM_MIN <= lookup->record_size &&
           ntfs_next_attribute(&cursor, &attribute) == NTFS_STEP_ATTRIBUTE) {
        if (ntfs_is_named(&attribute)) {
            continue;
        }
        if (attribute.type == NTFS_TYPE_STANDARD_INFORMATION) {
            if (_ntfs_search_standard_information(search, &attribute, is_directory)) {
                return NTFS_SEARCH_DONE;
            }
        } else if (attribute.type == NTFS_TYPE_ATTRIBUTE_LIST && !is_directory && !search->list_followed) {
            if (_ntfs_search_list(lookup, &attribute, frn, next)) {
                search->list_followed = true;
                return NTFS_SEARCH_FOLLOW;
            }
        } else if (attribute.type == NTFS_TYPE_DATA && !is_directory) {
            if (ntfs_data_size(&attribute, &search->found.size)) {
                search->has_size = true;
            }
            if (search->has_size && search->has_standard_information) {
                return NTFS_SEARCH_DONE;
            }
        }
    }
    return NTFS_SEARCH_NOTHING;
}

static void _ntfs_search(ntfs_lookup_t *lookup, u64 frn, db_file_info_t *fd) {
    ntfs_search_t search = {};
    db_file_info_clear(&search.found);
    const u64 asked = frn;
    for (u32 fetches = 0; fetches < FETCH_MAX; fetches++) {
        u64 next = 0;
        if (!_ntfs_fetch(lookup, frn)) {
            return;
        }
        switch (_ntfs_search_record(&search, lookup, frn, &next)) {
        case NTFS_SEARCH_DONE: *fd = search.found; return;
        case NTFS_SEARCH_FOLLOW: frn = next; continue;
        case NTFS_SEARCH_NOTHING: break;
        }
        if (!search.base || search.base_followed) {
            break;
        }
        search.base_followed = true;
        frn = search.base;
    }
    debug_printf("couldnt get fd from %016I64x %x\n", asked,
                 static_cast<u32>(search.has_standard_information) | static_cast<u32>(search.has_size) << 1);
}

// The sizes that a lookup needs, from the driver or the boot sector.
static bool _ntfs_lookup_init(ntfs_lookup_t *lookup, os_volume_t *volume) {
    os_ntfs_volume_data_t data = {};
    bool supported = false;
    *lookup = {};
    lookup->volume = volume;
    lookup->driver = os_volume_get_ntfs_data(volume, &data, &supported);
    if (lookup->driver) {
        lookup->bytes_per_cluster = data.bytes_per_cluster;
        lookup->record_size = data.bytes_per_file_record;
        if (lookup->record_size < RECORD_SIZE_MIN || lookup->record_size > NTFS_RECORD_SIZE_MAX) {
            debug_printf("bad BytesPerFileRecordSegment %u\n", lookup->record_size);
            return false;
        }
    } else if (supported) {
        debug_printf("FSCTL_GET_NTFS_VOLUME_DATA failed %u\n", os_get_last_error());
        return false;
    } else {
        ntfs_info_t info;
        if (!ntfs_get_info(volume, &info, nullptr)) {
            return false;
        }
        lookup->bytes_per_cluster = info.bytes_per_cluster;
        lookup->record_size = info.bytes_per_file_record;
        lookup->mft_lcn = info.mft_lcn;
    }
    lookup->record = static_cast<u8 *>(mem_alloc(lookup->record_size));
    return true;
}

void ntfs_get_fd(os_volume_t *volume, u64 frn, db_file_info_t *fd) {
    db_file_info_clear(fd);
    ntfs_lookup_t lookup;
    if (!_ntfs_lookup_init(&lookup, volume)) {
        return;
    }
    _ntfs_search(&lookup, frn, fd);
    mem_free(lookup.record);
}

} // namespace findwright
