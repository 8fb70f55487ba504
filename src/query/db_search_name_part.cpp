// Files whose name without its extension another file has, too.
//
// No array is in that order: `a.txt`, `a.b.txt` and `a.doc` have another one between two equal ones. But most
// equal ones are neighbours by name. A walk over the names adds those at once, and keeps one entry for each
// run of the same text. The entries are dealt by their hash into buckets that fit the processor's cache, and
// each bucket is looked through with a table.
#include "base/mem.h"
#include "base/utf8.h"
#include "os/os_parallel.h"
#include "query/db_search_function.h"
#include "query/db_text_table.h"

#include <cstring>

namespace findwright {

// --- Texts -------------------------------------------------------------------------------------------------

struct _db_part_text_t {
    const char *text;
    u32 length;
};

static _db_part_text_t _db_get_part(const db_item_t *item) {
    _db_part_text_t part;
    part.text = db_item_get_name(item, &part.length);
    for (u32 i = part.length; i != 0; i--) {
        if (part.text[i - 1] == '.') {
            part.length = i - 1;
            break;
        }
    }
    return part;
}

static bool _db_is_same_bytes(_db_part_text_t a, _db_part_text_t b) {
    return a.length == b.length && std::memcmp(a.text, b.text, a.length) == 0;
}

static bool _db_is_same_part(mem_ref_t a_item, mem_ref_t b_item) {
    _db_part_text_t a = _db_get_part(db_item(a_item)), b = _db_get_part(db_item(b_item));
    return _db_is_same_bytes(a, b) ||
           db_name_compare_level(DB_LEVEL_FOLD, a.text, a.length, b.text, b.length) == 0;
}

// --- Hashes ------------------------------------------------------------------------------------------------

static constexpr u64 NOT_ASCII = 0x8080808080808080;

static u64 _db_mix(u64 hash, u64 bytes) {
    hash = (hash ^ bytes) * 0xD6E8FEB86659FD93;
    return hash ^ hash >> 32;
}

// The last `count` bytes of a name's part that is `length` bytes long, less than eight of them. The record's
// head stands in front of the name, so that eight bytes can be read where there are three.
static u64 _db_load_tail(const char *end, u32 length, u32 count) {
    static_assert(DB_ITEM_HEAD + 3 >= sizeof(u64));
    if (count == 0)
        return 0;
    if (length >= 3)
        return db_load_u64(end - sizeof(u64)) >> (64 - 8 * count);
    u64 bytes = 0;
    while (count-- != 0)
        bytes = bytes << 8 | static_cast<u8>(*--end);
    return bytes;
}

// Any text, folded character by character, so that one which folds to ASCII has the hash of that text.
static u64 _db_hash_characters(_db_part_text_t part) {
    u64 hash = 0, bytes = 0;
    u32 count = 0;
    auto add = [&](u32 byte) {
        bytes |= static_cast<u64>(byte) << 8 * (count++ % 8);
        if (count % 8 == 0) {
            hash = _db_mix(hash, bytes);
            bytes = 0;
        }
    };
    for (const char *p = part.text, *end = p + part.length; p != end;) {
        u32 value;
        p += utf8_decode(p, end, &value);
        value = utf8_to_fold(value);
        add(value < 0x80 ? value : 0x80 | (value & 0x7F));
        if (value >= 0x80) {
            add(0x80 | (value >> 7 & 0x7F));
            add(0x80 | value >> 14);
        }
    }
    return _db_mix(_db_mix(hash, bytes), count);
}

static u64 _db_hash(_db_part_text_t part) {
    u64 hash = 0, all = 0, bytes;
    const char *p = part.text, *end = p + part.length;
    for (; end - p >= 8; p += 8) {
        bytes = db_load_u64(p);
        all |= bytes;
        hash = _db_mix(hash, db_lower_ascii_8(bytes));
    }
    bytes = _db_load_tail(end, part.length, static_cast<u32>(end - p));
    if ((all | bytes) & NOT_ASCII)
        return _db_hash_characters(part);
    return _db_mix(_db_mix(hash, db_lower_ascii_8(bytes)), part.length);
}

// --- Entries -----------------------------------------------------------------------------------------------

static constexpr u32 BUCKET_BITS = 11; // of the hash, its upper ones
static constexpr u32 BUCKETS = 1u << BUCKET_BITS;
static constexpr u32 PART_ADDED = 1; // in the hash: the item is in the set

struct _db_part_entry_t {
    u32 hash;
    mem_ref_t item;
};

// What a thread of the walk has made.
struct _db_part_share_t {
    u32 first, count;     // its entries; none are there while `count` is 0
    u32 buckets[BUCKETS]; // the number in each; while they are dealt, where the next one goes
};

struct _db_name_parts_t {
    _db_part_entry_t *entries; // room for each file
    _db_part_entry_t *dealt;   // by buckets
    u32 *bucket_ends;
    u32 bucket_max;
    u32 share_count;
    _db_part_share_t *shares;
    const db_item_sets_t *sets; // as many
    const std::atomic<u32> *cancel;
};

static u32 _db_get_bucket(u32 hash) {
    return hash >> (32 - BUCKET_BITS);
}

static void _db_collect_proc(void *param, const db_walk_page_t *page) {
    _db_name_parts_t *parts = static_cast<_db_name_parts_t *>(param);
    _db_part_share_t *share = &parts->shares[page->part];
    db_item_set_t *set = parts->sets->sets[page->part];
    if (share->count == 0)
        share->first = page->first_index;
    _db_part_entry_t *first = parts->entries + share->first + share->count, *end = first;
    mem_ref_t last = page->before;
    _db_part_text_t last_part = last ? _db_get_part(db_item(last)) : _db_part_text_t{};
    for (u32 i = 0; i < page->count; i++) {
        __builtin_prefetch(db_item(db_walk_ahead(page, i)));
        mem_ref_t value = page->values[i];
        _db_part_text_t part = _db_get_part(db_item(value));
        if (last != 0 && _db_is_same_bytes(part, last_part)) {
            db_item_set_add(set, last);
            db_item_set_add(set, value);
            if (end != first)
                end[-1].hash |= PART_ADDED;
        } else {
            u32 hash = static_cast<u32>(_db_hash(part)) & ~PART_ADDED;
            *end++ = {hash, value};
            share->buckets[_db_get_bucket(hash)]++;
        }
        last = value;
        last_part = part;
    }
    share->count += static_cast<u32>(end - first);
}

// Where the entries of each share and bucket go.
static void _db_place_buckets(_db_name_parts_t *parts) {
    u32 place = 0;
    parts->bucket_max = 0;
    for (u32 bucket = 0; bucket < BUCKETS; bucket++) {
        u32 start = place;
        for (u32 i = 0; i < parts->share_count; i++) {
            u32 size = parts->shares[i].buckets[bucket];
            parts->shares[i].buckets[bucket] = place;
            place += size;
        }
        parts->bucket_ends[bucket] = place;
        parts->bucket_max = place - start > parts->bucket_max ? place - start : parts->bucket_max;
    }
}

static void _db_deal_proc(void *param, u32 part, u32) {
    const _db_name_parts_t *parts = static_cast<const _db_name_parts_t *>(param);
    _db_part_share_t *share = &parts->shares[part];
    const _db_part_entry_t *entries = parts->entries + share->first;
    for (u32 i = 0; i < share->count; i++)
        parts->dealt[share->buckets[_db_get_bucket(entries[i].hash)]++] = entries[i];
}

// --- Buckets -----------------------------------------------------------------------------------------------

static constexpr u32 TABLE_AHEAD = 8;

// The entries of a bucket by their hash: a slot has the number of an entry, from 1 on; 0 is free.
struct _db_part_table_t {
    u32 *slots;
    u32 mask;
};

static void _db_add_entry(db_item_set_t *set, _db_part_entry_t *entry) {
    if (!(entry->hash & PART_ADDED))
        db_item_set_add(set, entry->item);
    entry->hash |= PART_ADDED;
}

// Asks the memory for the texts that are likely to be compared.
static void _db_prefetch_pair(const _db_part_table_t *table, const _db_part_entry_t *first,
                              const _db_part_entry_t *entry) {
    u32 number = table->slots[entry->hash / 2 & table->mask];
    if (number == 0 || first[number - 1].hash / 2 != entry->hash / 2)
        return;
    __builtin_prefetch(db_item(first[number - 1].item));
    __builtin_prefetch(db_item(entry->item));
}

static void _db_find_in_bucket(db_item_set_t *set, const _db_part_table_t *table, _db_part_entry_t *first,
                               u32 count) {
    std::memset(table->slots, 0, (table->mask + 1) * sizeof *table->slots);
    for (u32 i = 0; i < count; i++) {
        if (i + TABLE_AHEAD < count)
            _db_prefetch_pair(table, first, first + i + TABLE_AHEAD);
        _db_part_entry_t *entry = first + i;
        for (u32 slot = entry->hash / 2 & table->mask;; slot = (slot + 1) & table->mask) {
            if (table->slots[slot] == 0) {
                table->slots[slot] = i + 1;
                break;
            }
            _db_part_entry_t *leader = first + table->slots[slot] - 1;
            if (leader->hash / 2 == entry->hash / 2 && _db_is_same_part(leader->item, entry->item)) {
                _db_add_entry(set, leader);
                _db_add_entry(set, entry);
                break;
            }
        }
    }
}

static void _db_buckets_proc(void *param, u32 part, u32 part_count) {
    const _db_name_parts_t *parts = static_cast<const _db_name_parts_t *>(param);
    _db_part_table_t table = {nullptr, 1};
    while (table.mask < 2 * parts->bucket_max)
        table.mask = 2 * table.mask + 1;
    table.slots = static_cast<u32 *>(mem_alloc((table.mask + 1) * sizeof *table.slots));
    u32 end = BUCKETS * (part + 1) / part_count;
    for (u32 bucket = BUCKETS * part / part_count; bucket < end; bucket++) {
        if (parts->cancel->load(std::memory_order_relaxed))
            break;
        u32 start = bucket != 0 ? parts->bucket_ends[bucket - 1] : 0;
        _db_find_in_bucket(parts->sets->sets[part], &table, parts->dealt + start,
                           parts->bucket_ends[bucket] - start);
    }
    mem_free(table.slots);
}

void db_search_find_name_parts(db_query_t *query, const array_t *files, db_item_sets_t *sets) {
    u32 bucket_ends[BUCKETS];
    _db_name_parts_t parts = {};
    parts.entries = static_cast<_db_part_entry_t *>(
        mem_alloc((static_cast<size_t>(files->count) + 1) * sizeof *parts.entries));
    parts.bucket_ends = bucket_ends;
    parts.share_count = sets->count;
    parts.shares = static_cast<_db_part_share_t *>(mem_alloc(sets->count * sizeof *parts.shares));
    std::memset(parts.shares, 0, sets->count * sizeof *parts.shares);
    parts.sets = sets;
    parts.cancel = &query->cancel_search;
    db_walk_t walk = {files, _db_collect_proc, &parts, parts.cancel, false, nullptr, sets->count};
    db_walk(&walk);
    if (!query->cancel_search) {
        _db_place_buckets(&parts);
        parts.dealt = static_cast<_db_part_entry_t *>(
            mem_alloc((static_cast<size_t>(bucket_ends[BUCKETS - 1]) + 1) * sizeof *parts.dealt));
        os_parallel(parts.share_count, _db_deal_proc, &parts);
        os_parallel(parts.share_count, _db_buckets_proc, &parts);
        mem_free(parts.dealt);
    }
    mem_free(parts.shares);
    mem_free(parts.entries);
}

} // namespace findwright
