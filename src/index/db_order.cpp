#include "index/db_order.h"

#include "base/mem.h"
#include "base/utf8.h"
#include "db/db_item.h"
#include "os/os_parallel.h"

#include <algorithm>
#include <atomic>
#include <bit>
#include <cstring>

namespace findwright {

static constexpr u32 PIECE = 8;          // bytes of a text key in one word
static constexpr u32 INSERTION_MAX = 16; // entries that are sorted by insertion
static constexpr u32 ITEMS_PER_THREAD = 65536;

template<class T>
static T *_db_order_alloc(size_t count) {
    return static_cast<T *>(mem_alloc((count + 1) * sizeof(T)));
}

u32 db_order_get_slot(db_order_slots_t slots, mem_ref_t folder) {
    return db_load_u32(db_item_columns(db_item(folder)) + slots.offset);
}
void db_order_set_slot(db_order_slots_t slots, mem_ref_t folder, u32 value) {
    db_store_u32(db_item_columns(db_item(folder)) + slots.offset, value);
}

// --- Text keys ---------------------------------------------------------------------------------------------

// Piece `piece` of a text whose every character takes one byte up to there, or the general way.
static u64 _db_order_general_piece(const char *text, u32 length, u32 piece) {
    char bytes[PIECE + UTF8_CHAR_MAX] = {};
    u64 skip = static_cast<u64>(piece) * PIECE;
    u32 fill = 0;
    for (const char *end = text + length; text != end && fill < PIECE;) {
        u32 value;
        text += utf8_decode(text, end, &value);
        char encoded[UTF8_CHAR_MAX];
        u32 size = utf8_encode(encoded, utf8_to_fold(value) + 1);
        for (u32 i = 0; i < size; i++) {
            if (skip != 0)
                skip--;
            else
                bytes[fill++] = encoded[i];
        }
    }
    u64 key;
    std::memcpy(&key, bytes, sizeof key);
    return std::endian::native == std::endian::little ? __builtin_bswap64(key) : key;
}

// Eight bytes of ASCII in lower case, each byte plus one. No byte may be above 126.
static u64 _db_order_fold_ascii(u64 text) {
    constexpr u64 ONES = 0x0101010101010101;
    u64 above_at = text + ONES * (0x80 - 'A');    // high bit: byte >= 'A'
    u64 above_z = text + ONES * (0x80 - 'Z' - 1); // high bit: byte > 'Z'
    u64 upper = (above_at & ~above_z) & (ONES * 0x80);
    return (text | upper >> 2) + ONES;
}

static constexpr u64 HIGH_BITS = 0x8080808080808080;

static u64 _db_order_piece(const char *text, u32 length, u32 piece, bool ascii_so_far) {
    u32 start = piece * PIECE;
    if (ascii_so_far && start <= length) {
        u64 word = 0;
        u32 size = length - start < PIECE ? length - start : PIECE;
        std::memcpy(&word, text + start, size);
        // 127 would become 128 and reach into the next byte's range; it goes the general way like all above.
        if (((word | (word + 0x0101010101010101)) & HIGH_BITS) == 0) {
            u64 key = _db_order_fold_ascii(word);
            if (size < PIECE)
                key &= (static_cast<u64>(1) << (size * 8)) - 1;
            return __builtin_bswap64(key);
        }
    }
    return _db_order_general_piece(text, length, piece);
}

// --- The sort of texts -------------------------------------------------------------------------------------

struct _db_order_entry_t {
    u64 key;  // the current piece; at the end 1 where the folded text equals that of the entry before
    u32 item; // a reference, or a place
    u32 rank; // decides between equal texts
};

// What a sort of texts needs to know of its items.
struct _db_order_name_t {
    static const char *text(u32 item, u32 *length) { return db_item_get_name(db_item(item), length); }
    static bool less(u32 a, u32 b) { return db_item_compare_name(db_item(a), db_item(b)) < 0; }
};
struct _db_order_extension_t {
    const mem_ref_t *files;
    const char *text(u32 place, u32 *length) const {
        u32 name_length;
        const char *name = db_item_get_name(db_item(files[place]), &name_length);
        return db_name_get_extension(name, name_length, length);
    }
    static bool less(u32 a, u32 b) { return a < b; }
};

template<class key_t>
static void _db_order_sort_by(_db_order_entry_t *entries, size_t count, key_t key) {
    if (count <= INSERTION_MAX) {
        for (size_t i = 1; i < count; i++) {
            _db_order_entry_t entry = entries[i];
            size_t j = i;
            for (; j != 0 && key(entry) < key(entries[j - 1]); j--)
                entries[j] = entries[j - 1];
            entries[j] = entry;
        }
        return;
    }
    std::sort(entries, entries + count, [key](const auto &a, const auto &b) { return key(a) < key(b); });
}

// Entries with equal texts: by rank, then by the full comparison.
template<class source_t>
static void _db_order_finish_equal(const source_t &source, _db_order_entry_t *entries, size_t count) {
    _db_order_sort_by(entries, count, [](const _db_order_entry_t &entry) { return entry.rank; });
    for (size_t i = 0; i < count;) {
        size_t end = i + 1;
        while (end < count && entries[end].rank == entries[i].rank)
            end++;
        if (end - i > 1) {
            std::sort(entries + i, entries + end,
                      [&](const auto &a, const auto &b) { return source.less(a.item, b.item); });
        }
        i = end;
    }
    for (size_t i = 0; i < count; i++)
        entries[i].key = i != 0;
}

template<class source_t>
static u64 _db_order_key(const source_t &source, u32 item, u32 piece) {
    u32 length;
    const char *text = source.text(item, &length);
    // A piece stands at its own offset in the text while every character before it takes one byte of the key.
    u32 before = piece * PIECE < length ? piece * PIECE : length;
    bool ascii = utf8_is_ascii(text, before) && !std::memchr(text, 127, before);
    return _db_order_piece(text, length, piece, ascii);
}

// Sorts entries whose keys hold piece `piece`; all pieces before it are equal.
template<class source_t>
static void _db_order_sort_texts(const source_t &source, _db_order_entry_t *entries, size_t count,
                                 u32 piece) {
    for (;;) {
        _db_order_sort_by(entries, count, [](const _db_order_entry_t &entry) { return entry.key; });
        bool whole = false;
        for (size_t i = 0; i < count;) {
            u64 key = entries[i].key;
            size_t end = i + 1;
            while (end < count && entries[end].key == key)
                end++;
            if (end - i == 1) {
                entries[i].key = 0;
            } else if ((key & 0xFF) == 0) {
                _db_order_finish_equal(source, entries + i, end - i);
            } else {
                for (size_t j = i; j < end; j++)
                    entries[j].key = _db_order_key(source, entries[j].item, piece + 1);
                whole = end - i == count;
                if (!whole)
                    _db_order_sort_texts(source, entries + i, end - i, piece + 1);
            }
            i = end;
        }
        if (!whole)
            return;
        piece++; // all tie: on with the next piece, without a call for each
    }
}

// Entries by the first two bytes of their keys, then each bucket by itself, on several threads.
template<class source_t>
struct _db_order_texts_t {
    static constexpr u32 BUCKETS = 65536;
    source_t source;
    _db_order_entry_t *entries; // in buckets
    u32 *starts;                // BUCKETS + 1
    std::atomic<u32> next_bucket;

    static void sort_proc(void *param, u32, u32) {
        _db_order_texts_t *sort = static_cast<_db_order_texts_t *>(param);
        for (;;) {
            u32 bucket = sort->next_bucket.fetch_add(16);
            if (bucket >= BUCKETS)
                return;
            for (u32 end = bucket + 16; bucket < end; bucket++) {
                u32 start = sort->starts[bucket], count = sort->starts[bucket + 1] - start;
                if (count != 0)
                    _db_order_sort_texts(sort->source, sort->entries + start, count, 0);
            }
        }
    }
};

// `entries` has its keys and ranks; the result is a table of its own, to be freed by the caller, who gives up
// the one passed in.
template<class source_t>
static _db_order_entry_t *_db_order_sort_all(const source_t &source, _db_order_entry_t *entries, u32 count) {
    if (count < 4096) {
        if (count != 0)
            _db_order_sort_texts(source, entries, count, 0);
        return entries;
    }
    using texts_t = _db_order_texts_t<source_t>;
    u32 *starts = _db_order_alloc<u32>(texts_t::BUCKETS + 1);
    std::memset(starts, 0, (texts_t::BUCKETS + 1) * sizeof *starts);
    for (u32 i = 0; i < count; i++)
        starts[(entries[i].key >> 48) + 1]++;
    for (u32 i = 0; i < texts_t::BUCKETS; i++)
        starts[i + 1] += starts[i];
    u32 *cursors = _db_order_alloc<u32>(texts_t::BUCKETS);
    std::memcpy(cursors, starts, texts_t::BUCKETS * sizeof *cursors);
    _db_order_entry_t *sorted = _db_order_alloc<_db_order_entry_t>(count);
    for (u32 i = 0; i < count; i++)
        sorted[cursors[entries[i].key >> 48]++] = entries[i];
    mem_free(cursors);
    mem_free(entries);
    texts_t sort{source, sorted, starts, {0}};
    os_parallel(os_get_thread_count(count, ITEMS_PER_THREAD), texts_t::sort_proc, &sort);
    mem_free(starts);
    return sorted;
}

// --- Folders by path ---------------------------------------------------------------------------------------

// The tree of folded path components, walked in the order in which the paths would stand written out. The
// paths of two folders can be equal once folded, and a root's name can hold several components; so the walk
// goes over classes of equal paths, whose members are any number of folders.
//
// Below a class, each component c gives two things to be ordered: the path that ends with c, and the block of
// paths that go on with `\` behind c. A sibling such as "c d" stands between the two, since a blank sorts
// before
// `\`. So each component is entered twice, as its text and as its text with `\`, and these are sorted as
// texts.
struct _db_order_part_t { // a folder that goes on below the class, from one byte of its name on
    mem_ref_t folder;
    u32 start;
    u32 length; // of this component
    bool last;  // nothing of the name is left behind it
};

struct _db_order_tree_t {
    db_order_slots_t slots;
    const mem_ref_t *folders;
    u32 count;
    u32 *child_starts; // by folder, count + 1
    u32 *children;     // places of folders
    u32 *ranks;        // by folder
    mem_ref_t *sorted; // the result
    u32 sorted_count;
    u32 rank;
};

// A component on the walk: a run of equal parts, as text or as block.
struct _db_order_visit_t {
    u32 first, count; // of the level's parts
    bool block;
};

struct _db_order_level_t {
    _db_order_level_t *up;
    _db_order_part_t *parts; // sorted; equal components stand together
    u32 part_count;
    _db_order_visit_t *visits;
    u32 visit_count;
    u32 next;
};

static const char *_db_order_part_text(const _db_order_part_t &part) {
    u32 length;
    return db_item_get_name(db_item(part.folder), &length) + part.start;
}

static int _db_order_compare_parts(const _db_order_part_t &a, const _db_order_part_t &b) {
    return utf8_compare_fold(_db_order_part_text(a), a.length, _db_order_part_text(b), b.length);
}

// Where a text goes on, followed by `\` or not.
struct _db_order_component_t {
    const char *text;
    const char *end;
    bool block;

    i32 next() {
        if (text == end) {
            bool separator = block;
            block = false;
            return separator ? '\\' : -1;
        }
        u32 value;
        text += utf8_decode(text, end, &value);
        return static_cast<i32>(utf8_to_fold(value));
    }
};

static bool _db_order_visit_less(const _db_order_level_t *level, const _db_order_visit_t &a,
                                 const _db_order_visit_t &b) {
    const _db_order_part_t &p = level->parts[a.first], &q = level->parts[b.first];
    const char *p_text = _db_order_part_text(p), *q_text = _db_order_part_text(q);
    _db_order_component_t x = {p_text, p_text + p.length, a.block}, y = {q_text, q_text + q.length, b.block};
    for (;;) {
        i32 c = x.next(), d = y.next();
        if (c != d)
            return c < d;
        if (c < 0)
            return false;
    }
}

// A folder's name from `start` on, up to its next separator.
static _db_order_part_t _db_order_make_part(mem_ref_t folder, u32 start) {
    u32 length;
    const char *name = db_item_get_name(db_item(folder), &length);
    const char *separator = static_cast<const char *>(std::memchr(name + start, '\\', length - start));
    u32 end = separator ? static_cast<u32>(separator - name) : length;
    return {folder, start, end - start, !separator};
}

// Sorts a level's parts and makes its visits. True when there is anything to visit.
static _db_order_level_t *_db_order_open_level(_db_order_level_t *up, _db_order_part_t *parts, u32 count) {
    _db_order_level_t *level = _db_order_alloc<_db_order_level_t>(1);
    *level = {up, parts, count, _db_order_alloc<_db_order_visit_t>(2 * static_cast<size_t>(count)), 0, 0};
    std::sort(parts, parts + count,
              [](const auto &a, const auto &b) { return _db_order_compare_parts(a, b) < 0; });
    bool plain = true; // no component is the start of another: then each block follows its text at once
    for (u32 i = 0; i < count;) {
        u32 end = i + 1;
        while (end < count && _db_order_compare_parts(parts[i], parts[end]) == 0)
            end++;
        level->visits[level->visit_count++] = {i, end - i, false};
        level->visits[level->visit_count++] = {i, end - i, true};
        i = end;
    }
    auto less = [level](const auto &a, const auto &b) { return _db_order_visit_less(level, a, b); };
    for (u32 i = 1; plain && i + 1 < level->visit_count; i += 2)
        plain = less(level->visits[i], level->visits[i + 1]);
    if (!plain)
        std::sort(level->visits, level->visits + level->visit_count, less);
    return level;
}

static void _db_order_close_level(_db_order_level_t *level) {
    mem_free(level->parts);
    mem_free(level->visits);
    mem_free(level);
}

// What stands below a run of equal components: the rest of names that go on, and the children of the folders
// that end there. 0 when nothing does.
static _db_order_part_t *_db_order_collect_below(const _db_order_tree_t *tree, const _db_order_part_t *parts,
                                                 u32 count, u32 *below_count) {
    u32 total = 0;
    for (u32 i = 0; i < count; i++) {
        u32 place = db_order_get_slot(tree->slots, parts[i].folder);
        total += parts[i].last ? tree->child_starts[place + 1] - tree->child_starts[place] : 1;
    }
    *below_count = total;
    if (total == 0)
        return nullptr;
    _db_order_part_t *below = _db_order_alloc<_db_order_part_t>(total);
    u32 fill = 0;
    for (u32 i = 0; i < count; i++) {
        if (!parts[i].last) {
            below[fill++] = _db_order_make_part(parts[i].folder, parts[i].start + parts[i].length + 1);
            continue;
        }
        u32 place = db_order_get_slot(tree->slots, parts[i].folder);
        for (u32 child = tree->child_starts[place]; child < tree->child_starts[place + 1]; child++)
            below[fill++] = _db_order_make_part(tree->folders[tree->children[child]], 0);
    }
    return below;
}

// The folders of one class, which share a rank: between them the tighter levels decide.
static void _db_order_emit_class(_db_order_tree_t *tree, const _db_order_part_t *parts, u32 count) {
    u32 first = tree->sorted_count;
    for (u32 i = 0; i < count; i++) {
        if (!parts[i].last)
            continue;
        if (tree->sorted_count == first)
            tree->rank++;
        tree->ranks[db_order_get_slot(tree->slots, parts[i].folder)] = tree->rank;
        tree->sorted[tree->sorted_count++] = parts[i].folder;
    }
    if (tree->sorted_count - first > 1) {
        std::sort(tree->sorted + first, tree->sorted + tree->sorted_count, [](mem_ref_t a, mem_ref_t b) {
            return db_folder_compare_path(db_item(a), db_item(b)) < 0;
        });
    }
}

// Fills the tree's lists of children, and returns the parts of the folders at the top.
static _db_order_part_t *_db_order_fill_tree(_db_order_tree_t *tree, u32 *top_count) {
    u32 tops = 0;
    for (u32 i = 0; i < tree->count; i++)
        db_order_set_slot(tree->slots, tree->folders[i], i);
    std::memset(tree->child_starts, 0, (static_cast<size_t>(tree->count) + 1) * sizeof(u32));
    for (u32 i = 0; i < tree->count; i++) {
        mem_ref_t parent = db_item(tree->folders[i])->parent;
        if (parent < MEM_REF_FIRST)
            tops++;
        else
            tree->child_starts[db_order_get_slot(tree->slots, parent) + 1]++;
    }
    for (u32 i = 0; i < tree->count; i++)
        tree->child_starts[i + 1] += tree->child_starts[i];
    _db_order_part_t *parts = _db_order_alloc<_db_order_part_t>(tops);
    u32 *cursors = tree->ranks; // not in use yet
    std::memcpy(cursors, tree->child_starts, tree->count * sizeof(u32));
    u32 fill = 0;
    for (u32 i = 0; i < tree->count; i++) {
        mem_ref_t parent = db_item(tree->folders[i])->parent;
        if (parent < MEM_REF_FIRST)
            parts[fill++] = _db_order_make_part(tree->folders[i], 0);
        else
            tree->children[cursors[db_order_get_slot(tree->slots, parent)]++] = i;
    }
    *top_count = tops;
    return parts;
}

u32 db_order_folder_paths(mem_ref_t *folders, u32 count, db_order_slots_t slots) {
    if (count == 0)
        return 0;
    _db_order_tree_t tree = {slots,
                             folders,
                             count,
                             _db_order_alloc<u32>(static_cast<size_t>(count) + 1),
                             _db_order_alloc<u32>(count),
                             _db_order_alloc<u32>(count),
                             _db_order_alloc<mem_ref_t>(count),
                             0,
                             0};
    u32 top_count;
    _db_order_part_t *tops = _db_order_fill_tree(&tree, &top_count);
    for (_db_order_level_t *level = _db_order_open_level(nullptr, tops, top_count); level;) {
        if (level->next == level->visit_count) {
            _db_order_level_t *up = level->up;
            _db_order_close_level(level);
            level = up;
            continue;
        }
        _db_order_visit_t visit = level->visits[level->next++];
        const _db_order_part_t *parts = level->parts + visit.first;
        if (!visit.block) {
            _db_order_emit_class(&tree, parts, visit.count);
            continue;
        }
        u32 below_count;
        if (_db_order_part_t *below = _db_order_collect_below(&tree, parts, visit.count, &below_count))
            level = _db_order_open_level(level, below, below_count);
    }
    for (u32 i = 0; i < count; i++)
        db_order_set_slot(slots, folders[i], tree.ranks[i]);
    std::memcpy(folders, tree.sorted, count * sizeof *folders);
    mem_free(tree.child_starts);
    mem_free(tree.children);
    mem_free(tree.ranks);
    mem_free(tree.sorted);
    return tree.rank;
}

// --- Items by name, files by path --------------------------------------------------------------------------

struct _db_order_names_t {
    const mem_ref_t *items;
    u32 count;
    db_order_slots_t slots;
    _db_order_entry_t *entries;

    static void fill_proc(void *param, u32 part, u32 parts) {
        const _db_order_names_t *names = static_cast<const _db_order_names_t *>(param);
        u32 end = static_cast<u32>(static_cast<u64>(names->count) * (part + 1) / parts);
        for (u32 i = static_cast<u32>(static_cast<u64>(names->count) * part / parts); i < end; i++) {
            mem_ref_t parent = db_item(names->items[i])->parent;
            names->entries[i] = {_db_order_key(_db_order_name_t{}, names->items[i], 0), names->items[i],
                                 parent < MEM_REF_FIRST ? 0 : db_order_get_slot(names->slots, parent)};
        }
    }
};

void db_order_names(mem_ref_t *items, u32 count, db_order_slots_t slots, u8 *same_name) {
    _db_order_entry_t *entries = _db_order_alloc<_db_order_entry_t>(count);
    _db_order_names_t names = {items, count, slots, entries};
    os_parallel(os_get_thread_count(count, ITEMS_PER_THREAD), _db_order_names_t::fill_proc, &names);
    entries = _db_order_sort_all(_db_order_name_t{}, entries, count);
    for (u32 i = 0; i < count; i++) {
        items[i] = entries[i].item;
        if (same_name)
            same_name[i] = entries[i].key != 0;
    }
    mem_free(entries);
}

void db_order_file_paths(const mem_ref_t *files, u32 count, const u32 *parent_ranks, u32 highest_rank,
                         const u8 *same_name, u32 *order) {
    u32 *starts = _db_order_alloc<u32>(static_cast<size_t>(highest_rank) + 2);
    std::memset(starts, 0, (static_cast<size_t>(highest_rank) + 2) * sizeof *starts);
    for (u32 i = 0; i < count; i++)
        starts[parent_ranks[i] + 1]++;
    for (u32 i = 0; i <= highest_rank; i++)
        starts[i + 1] += starts[i];
    u32 *name_numbers = _db_order_alloc<u32>(count); // equal for equal folded names
    u32 number = 0;
    for (u32 i = 0; i < count; i++) {
        number += !same_name[i];
        name_numbers[i] = number;
        order[starts[parent_ranks[i]]++] = i;
    }
    // The tables hold names before paths at the tighter levels; the path order wants it the other way round.
    for (u32 i = 0; i < count;) {
        u32 end = i + 1;
        while (end < count && name_numbers[order[end]] == name_numbers[order[i]] &&
               parent_ranks[order[end]] == parent_ranks[order[i]])
            end++;
        if (end - i > 1) {
            std::sort(order + i, order + end, [files](u32 a, u32 b) {
                return db_file_compare_path(db_item(files[a]), db_item(files[b])) < 0;
            });
        }
        i = end;
    }
    mem_free(name_numbers);
    mem_free(starts);
}

// --- Columns -----------------------------------------------------------------------------------------------

// One pass of a least significant digit sort, 11 bits wide.
static constexpr u32 DIGIT_BITS = 11;
static constexpr u32 DIGITS = 1u << DIGIT_BITS;
static constexpr u32 DIGIT_PASSES = (64 + DIGIT_BITS - 1) / DIGIT_BITS;

struct _db_order_value_t {
    u64 key;
    u32 place;
};

void db_order_values(const u64 *values, u32 count, u32 *order) {
    _db_order_value_t *from = _db_order_alloc<_db_order_value_t>(count);
    _db_order_value_t *to = _db_order_alloc<_db_order_value_t>(count);
    u32 *counts = _db_order_alloc<u32>(DIGIT_PASSES * DIGITS);
    std::memset(counts, 0, DIGIT_PASSES * DIGITS * sizeof *counts);
    for (u32 i = 0; i < count; i++) {
        u64 key = values[i] + 1; // unknown becomes 0 and sorts first
        from[i] = {key, i};
        for (u32 pass = 0; pass < DIGIT_PASSES; pass++)
            counts[pass * DIGITS + (key >> (pass * DIGIT_BITS) & (DIGITS - 1))]++;
    }
    for (u32 pass = 0; pass < DIGIT_PASSES && count != 0; pass++) {
        u32 *starts = counts + pass * DIGITS;
        u32 shift = pass * DIGIT_BITS;
        if (starts[from[0].key >> shift & (DIGITS - 1)] == count)
            continue; // all have the same digit here
        u32 sum = 0;
        for (u32 i = 0; i < DIGITS; i++) {
            u32 digit_count = starts[i];
            starts[i] = sum;
            sum += digit_count;
        }
        for (u32 i = 0; i < count; i++)
            to[starts[from[i].key >> shift & (DIGITS - 1)]++] = from[i];
        std::swap(from, to);
    }
    for (u32 i = 0; i < count; i++)
        order[i] = from[i].place;
    mem_free(counts);
    mem_free(from);
    mem_free(to);
}

void db_order_attributes(const u32 *attributes, u32 count, u32 *order) {
    // Few words are different: their letters are compared once each, and the items then sort by the word's
    // rank.
    u32 *distinct = _db_order_alloc<u32>(count);
    u32 distinct_count = 0;
    for (u32 i = 0; i < count; i++) {
        if (i == 0 || attributes[i] != attributes[i - 1])
            distinct[distinct_count++] = attributes[i];
    }
    std::sort(distinct, distinct + distinct_count);
    distinct_count = static_cast<u32>(std::unique(distinct, distinct + distinct_count) - distinct);
    u32 *by_letters = _db_order_alloc<u32>(distinct_count);
    for (u32 i = 0; i < distinct_count; i++)
        by_letters[i] = i;
    std::sort(by_letters, by_letters + distinct_count,
              [distinct](u32 a, u32 b) { return db_attributes_compare(distinct[a], distinct[b]) < 0; });
    u32 *ranks = _db_order_alloc<u32>(distinct_count);
    u32 rank = 0;
    for (u32 i = 0; i < distinct_count; i++) { // words with the same letters share a rank
        if (i != 0 && db_attributes_compare(distinct[by_letters[i - 1]], distinct[by_letters[i]]) != 0)
            rank++;
        ranks[by_letters[i]] = rank;
    }
    u64 *values = _db_order_alloc<u64>(count);
    for (u32 i = 0; i < count; i++) {
        values[i] = ranks[std::lower_bound(distinct, distinct + distinct_count, attributes[i]) - distinct];
    }
    db_order_values(values, count, order);
    mem_free(values);
    mem_free(ranks);
    mem_free(by_letters);
    mem_free(distinct);
}

void db_order_extensions(const mem_ref_t *files, u32 count, u32 *order) {
    _db_order_extension_t source = {files};
    _db_order_entry_t *entries = _db_order_alloc<_db_order_entry_t>(count);
    for (u32 i = 0; i < count; i++)
        entries[i] = {_db_order_key(source, i, 0), i, i};
    entries = _db_order_sort_all(source, entries, count);
    for (u32 i = 0; i < count; i++)
        order[i] = entries[i].item;
    mem_free(entries);
}

} // namespace findwright
