// Writes an NTFS volume of any names, for benchmarks:
//
//   make_volume OUT.img < paths.txt
//
// One path per line, `/` between components; folders are made as they are needed. Sizes and dates are made
// up, but fixed by the path's own name. The volume has what it takes to be read by its file table or by its
// folders' indexes: one file record of 1 KiB per component, and in each folder's record or in index blocks
// behind the table the list of what it holds. Files have no content; their data is one hole. The indexes are
// flat and unsorted, so a file system driver is not expected to mount it.
//
//   cluster 0     boot sector
//   cluster 4     file table: 24 records of the file system's own, then the names in the order of their first
//                 mention, each folder before what it holds
//   behind it     index blocks, folder by folder; a folder's bitmap of them in front, when it is long
//   behind those  the bitmap of clusters in use
//
// Memory: some 32 bytes and the name's own bytes for each component, and 12 bytes for the lookup.
#include "base/utf8.h"
#include "os/os.h"

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

using namespace findwright;

static constexpr u32 SECTOR = 512;
static constexpr u32 CLUSTER = 4096;
static constexpr u32 RECORD = 1024;
static constexpr u32 BLOCK = 4096; // of an index; one cluster
static constexpr u32 STRIDE = 512;
static constexpr u64 TABLE_LCN = 4;
static constexpr u64 RECORDS_RESERVED = 24;
static constexpr u64 ROOT = 5;
static constexpr u32 NONE = 0xFFFFFFFF; // as a parent: the root folder
static constexpr u32 NAME_UNITS_MAX = 255;
static constexpr u32 WRITE_SIZE = 4 * 1024 * 1024;

static constexpr u32 RECORD_USA = 48;
static constexpr u32 RECORD_ATTRIBUTES = 56;
static constexpr u32 BLOCK_NODE = 24;
static constexpr u32 BLOCK_USA = 40;
static constexpr u32 BLOCK_ENTRIES = 64;
static constexpr u32 NAME_VALUE = 66; // of $FILE_NAME, in front of the name
static constexpr u32 ENTRY_HEADER = 16;
static constexpr u32 ENTRIES_RESIDENT_MAX = 256; // bytes of entries that stay in the folder's own record
static constexpr u32 BITMAP_RESIDENT_MAX = 64;

// --- The tree ----------------------------------------------------------------------------------------------

struct node_t {
    u64 name; // place in the text
    u32 parent;
    u32 next;  // the next one of the same folder
    u32 child; // the first one, of a folder
    u16 bytes; // of the name
    u8 units;  // of the name in UTF-16
    bool is_folder;
};

struct tree_t {
    std::vector<node_t> nodes;
    std::vector<char> text;
    std::vector<u32> slots; // hash table of indexes
    u64 skipped;
    u32 root_child;
};

static u64 _hash(const char *bytes, u32 length, u64 seed) {
    u64 hash = seed * 0x9E3779B97F4A7C15 + length;
    for (u32 i = 0; i < length; i++) {
        hash = (hash ^ static_cast<u8>(bytes[i])) * 0x100000001B3;
    }
    hash ^= hash >> 29;
    return hash * 0xBF58476D1CE4E5B9;
}

static void _place(tree_t *tree, u32 node) {
    const node_t &placed = tree->nodes[node];
    const u64 mask = tree->slots.size() - 1;
    u64 slot = _hash(&tree->text[placed.name], placed.bytes, placed.parent) >> 20;
    while (tree->slots[slot & mask] != NONE) {
        slot++;
    }
    tree->slots[slot & mask] = node;
}

static void _grow_slots(tree_t *tree) {
    if (tree->nodes.size() * 2 < tree->slots.size()) {
        return;
    }
    tree->slots.assign(tree->slots.empty() ? 1 << 16 : tree->slots.size() * 2, NONE);
    for (u32 i = 0; i < tree->nodes.size(); i++) {
        _place(tree, i);
    }
}

// UTF-16 of a name; bytes that are no UTF-8 become U+FFFD. Returns the units, which may be more than fit.
static u32 _utf16(const char *name, u32 bytes, char16_t units[NAME_UNITS_MAX]) {
    u32 count = 0;
    for (const char *end = name + bytes; name < end;) {
        u32 value;
        name += utf8_decode(name, end, &value);
        value = value && value <= 0x10FFFF ? value : 0xFFFD;
        const bool pair = value > 0xFFFF;
        if (count + pair < NAME_UNITS_MAX) {
            units[count] = static_cast<char16_t>(pair ? 0xD7C0 + (value >> 10) : value);
            if (pair) {
                units[count + 1] = static_cast<char16_t>(0xDC00 + (value & 0x3FF));
            }
        }
        count += 1 + pair;
    }
    return count;
}

// The component of that name in a folder, made if need be. NONE when it cannot be one.
static u32 _add(tree_t *tree, u32 parent, const char *name, u32 bytes) {
    const u64 mask = tree->slots.size() - 1;
    for (u64 slot = _hash(name, bytes, parent) >> 20; tree->slots[slot & mask] != NONE; slot++) {
        const node_t &node = tree->nodes[tree->slots[slot & mask]];
        if (node.parent == parent && node.bytes == bytes &&
            memcmp(&tree->text[node.name], name, bytes) == 0) {
            return tree->slots[slot & mask];
        }
    }
    char16_t units[NAME_UNITS_MAX];
    const u32 count = bytes <= NAME_UNITS_MAX * 3 ? _utf16(name, bytes, units) : NAME_UNITS_MAX + 1;
    if (count > NAME_UNITS_MAX) {
        return NONE;
    }
    const u32 index = static_cast<u32>(tree->nodes.size());
    u32 *list = parent == NONE ? &tree->root_child : &tree->nodes[parent].child;
    const node_t node = {tree->text.size(),      parent, *list, NONE, static_cast<u16>(bytes),
                         static_cast<u8>(count), false};
    *list = index;
    tree->text.insert(tree->text.end(), name, name + bytes);
    tree->nodes.push_back(node);
    _place(tree, index);
    _grow_slots(tree);
    return index;
}

static void _add_path(tree_t *tree, const char *path, const char *end) {
    u32 parent = NONE;
    while (path < end) {
        const auto *slash = static_cast<const char *>(memchr(path, '/', static_cast<size_t>(end - path)));
        const char *name_end = slash ? slash : end;
        const u32 bytes = static_cast<u32>(name_end - path);
        if (bytes != 0 && !(bytes == 1 && *path == '.')) {
            const u32 node = _add(tree, parent, path, bytes);
            if (node == NONE) {
                tree->skipped++;
                return;
            }
            tree->nodes[node].is_folder |= slash != nullptr;
            parent = node;
        }
        path = name_end + 1;
    }
}

static void _read_paths(tree_t *tree) {
    std::vector<char> buffer;
    size_t filled = 0;
    size_t count = 1;
    while (count) {
        buffer.resize(filled + WRITE_SIZE);
        count = fread(buffer.data() + filled, 1, WRITE_SIZE, stdin);
        filled += count;
        char *line = buffer.data();
        char *end = line + filled;
        if (count == 0 && line < end) {
            *end++ = '\n';
        }
        while (auto *line_end = static_cast<char *>(memchr(line, '\n', static_cast<size_t>(end - line)))) {
            _add_path(tree, line, line_end > line && line_end[-1] == '\r' ? line_end - 1 : line_end);
            line = line_end + 1;
        }
        filled = static_cast<size_t>(end - line);
        memmove(buffer.data(), line, filled);
    }
}

// --- Bytes -------------------------------------------------------------------------------------------------

struct writer_t {
    platform_file_t file;
    std::vector<u8> buffer;
    u64 written;
    bool failed;
};

static void _flush(writer_t *writer) {
    writer->failed |= !os_write(writer->file, writer->buffer.data(), static_cast<u32>(writer->buffer.size()));
    writer->buffer.clear();
}

// Room for that many bytes, zeroed, at the end of the file.
static u8 *_take(writer_t *writer, u32 size) {
    if (writer->buffer.size() + size > WRITE_SIZE) {
        _flush(writer);
    }
    const size_t start = writer->buffer.size();
    writer->buffer.resize(start + size);
    writer->written += size;
    return writer->buffer.data() + start;
}

template<class T>
static void _put(u8 *bytes, u32 offset, T value) {
    memcpy(bytes + offset, &value, sizeof(value));
}

static u32 _align(u32 value) {
    return (value + 7) & ~7u;
}

static u64 _frn(u64 record) {
    return record | (record == ROOT ? ROOT : 1) << 48;
}

static u64 _record_of(u32 node) {
    return node == NONE ? ROOT : RECORDS_RESERVED + node;
}

static void _put_update_sequence(u8 *bytes, u32 size, u32 offset) {
    _put<u16>(bytes, 4, static_cast<u16>(offset));
    _put<u16>(bytes, 6, static_cast<u16>(size / STRIDE + 1));
    _put<u16>(bytes, offset, 1);
    for (u32 block = 0; block < size / STRIDE; block++) {
        memcpy(bytes + offset + 2 + block * 2, bytes + (block + 1) * STRIDE - 2, 2);
        _put<u16>(bytes, (block + 1) * STRIDE - 2, 1);
    }
}

// What the program makes up about a file. The text that it hashes is the name alone, so that the same list of
// paths in another order gives the same files.
struct values_t {
    u64 created;
    u64 modified;
    u64 accessed;
    u64 size;
    u32 attributes;
};

static values_t _values(const char *name, u32 bytes, bool is_folder) {
    static constexpr u64 YEAR_2005 = 127489248000000000;
    static constexpr u64 DAY = 864000000000;
    const u64 hash = _hash(name, bytes, 1);
    const u64 more = _hash(name, bytes, 2);
    values_t values;
    values.created = YEAR_2005 + hash % (6500 * DAY);
    values.modified = values.created + more % (900 * DAY);
    values.accessed = values.modified + (hash ^ more) % (90 * DAY);
    // Between a few bytes and some hundred megabytes, most of them small.
    values.size = is_folder ? 0 : (more >> 8) % (static_cast<u64>(16) << (hash >> 40) % 25);
    values.attributes = (is_folder ? 0 : 0x20) | (name[0] == '.' ? 2 : 0);
    return values;
}

// The value of $FILE_NAME: in a record, and in the index of its folder. Returns its length.
static u32 _put_name_value(u8 *value, u64 parent, const char *name, u32 bytes, bool is_folder) {
    static constexpr char FORBIDDEN[] = "\"*:<>?\\|";
    char16_t units[NAME_UNITS_MAX];
    const u32 count = _utf16(name, bytes, units);
    const values_t values = _values(name, bytes, is_folder);
    _put<u64>(value, 0, _frn(parent));
    _put<u64>(value, 8, values.created);
    _put<u64>(value, 16, values.modified);
    _put<u64>(value, 24, values.modified);
    _put<u64>(value, 32, values.accessed);
    _put<u64>(value, 48, values.size);
    _put<u32>(value, 56, values.attributes | (is_folder ? 0x10000000 : 0));
    value[64] = static_cast<u8>(count);
    value[65] = 1; // a name of Windows; of POSIX where Windows does not allow it
    for (u32 i = 0; i < bytes; i++) {
        if (strchr(FORBIDDEN, name[i])) {
            value[65] = 0;
        }
    }
    memcpy(value + NAME_VALUE, units, count * 2);
    return NAME_VALUE + count * 2;
}

// --- Attributes: each takes the place where it is to stand, and returns the place behind it ---------------

static u8 *_put_resident(u8 *attribute, u32 type, u32 value_length, u8 **value, const char16_t *name = u"") {
    const u32 name_length = static_cast<u32>(std::char_traits<char16_t>::length(name));
    const u32 value_offset = _align(24 + name_length * 2);
    _put<u32>(attribute, 0, type);
    _put<u32>(attribute, 4, _align(value_offset + value_length));
    attribute[9] = static_cast<u8>(name_length);
    _put<u16>(attribute, 10, 24);
    memcpy(attribute + 24, name, name_length * 2);
    _put<u32>(attribute, 16, value_length);
    _put<u16>(attribute, 20, static_cast<u16>(value_offset));
    *value = attribute + value_offset;
    return attribute + _align(value_offset + value_length);
}

static constexpr u64 HOLE = ~static_cast<u64>(0);

// One run, or a hole of that size.
static u8 *_put_non_resident(u8 *attribute, u32 type, u64 size, u64 lcn, const char16_t *name = u"") {
    const u64 clusters = (size + CLUSTER - 1) / CLUSTER;
    const u32 name_length = static_cast<u32>(std::char_traits<char16_t>::length(name));
    const u32 header = lcn == HOLE ? 72 : 64;
    const u32 pairs = header + _align(name_length * 2);
    _put<u32>(attribute, 0, type);
    attribute[8] = 1;
    attribute[9] = static_cast<u8>(name_length);
    _put<u16>(attribute, 10, static_cast<u16>(header));
    memcpy(attribute + header, name, name_length * 2);
    _put<u64>(attribute, 24, clusters - 1);
    _put<u16>(attribute, 32, static_cast<u16>(pairs));
    _put<u64>(attribute, 40, clusters * CLUSTER);
    _put<u64>(attribute, 48, size);
    _put<u64>(attribute, 56, size);
    u32 end = pairs;
    if (lcn == HOLE) {
        _put<u16>(attribute, 12, 0x8000); // sparse
    }
    if (clusters) {
        attribute[end] = lcn == HOLE ? 0x05 : 0x55;
        memcpy(attribute + end + 1, &clusters, 5);
        end += 6;
        if (lcn != HOLE) {
            memcpy(attribute + end, &lcn, 5);
            end += 5;
        }
    }
    end = _align(end + 1);
    _put<u32>(attribute, 4, end);
    return attribute + end;
}

static u8 *_put_standard_information(u8 *attribute, const values_t &values) {
    u8 *value;
    u8 *end = _put_resident(attribute, 0x10, 48, &value);
    _put<u64>(value, 0, values.created);
    _put<u64>(value, 8, values.modified);
    _put<u64>(value, 16, values.modified);
    _put<u64>(value, 24, values.accessed);
    _put<u32>(value, 32, values.attributes);
    return end;
}

// The first attributes of any record: dates and name.
static u8 *_begin_record(u8 *record, u64 parent, const char *name, u32 bytes, bool is_folder) {
    u8 *value;
    u8 name_value[NAME_VALUE + NAME_UNITS_MAX * 2] = {};
    const u32 length = _put_name_value(name_value, parent, name, bytes, is_folder);
    u8 *end = _put_standard_information(record + RECORD_ATTRIBUTES, _values(name, bytes, is_folder));
    end = _put_resident(end, 0x30, length, &value);
    value[-2] = 1; // indexed
    memcpy(value, name_value, length);
    return end;
}

static void _end_record(u8 *record, u8 *end, u64 index, bool is_folder) {
    _put<u32>(end, 0, 0xFFFFFFFF);
    _put<u32>(record, 0, 0x454C4946); // FILE
    _put<u16>(record, 16, static_cast<u16>(_frn(index) >> 48));
    _put<u16>(record, 18, 1);
    _put<u16>(record, 20, RECORD_ATTRIBUTES);
    _put<u16>(record, 22, is_folder ? 3 : 1);
    _put<u32>(record, 24, static_cast<u32>(end - record) + 8);
    _put<u32>(record, 28, RECORD);
    _put<u16>(record, 40, 8);
    _put<u32>(record, 44, static_cast<u32>(index));
    _put_update_sequence(record, RECORD, RECORD_USA);
}

// --- Indexes -----------------------------------------------------------------------------------------------

static u32 _entry_length(const node_t &node) {
    return _align(ENTRY_HEADER + NAME_VALUE + node.units * 2);
}

// The clusters of a folder's index: of its blocks, and of their bitmap when that is too long for the record.
struct index_size_t {
    u32 bytes; // of all entries
    u64 blocks;
    u64 bitmap_clusters;
};

static u32 _first_child(const tree_t *tree, u32 folder) {
    return folder == NONE ? tree->root_child : tree->nodes[folder].child;
}

static index_size_t _index_size(const tree_t *tree, u32 folder) {
    index_size_t size = {};
    u32 room = 0;
    for (u32 child = _first_child(tree, folder); child != NONE; child = tree->nodes[child].next) {
        const u32 length = _entry_length(tree->nodes[child]);
        size.bytes += length;
        if (length + ENTRY_HEADER > room) {
            size.blocks++;
            room = BLOCK - BLOCK_ENTRIES;
        }
        room -= length;
    }
    if (size.bytes <= ENTRIES_RESIDENT_MAX && (folder == NONE || tree->nodes[folder].units < 100)) {
        size.blocks = 0;
    }
    size.bitmap_clusters = size.blocks > BITMAP_RESIDENT_MAX * 8 ? (size.blocks / 8 + CLUSTER) / CLUSTER : 0;
    return size;
}

static u32 _put_entry(u8 *entry, const tree_t *tree, u32 child) {
    const node_t &node = tree->nodes[child];
    const u32 length = _entry_length(node);
    _put<u64>(entry, 0, _frn(_record_of(child)));
    _put<u16>(entry, 8, static_cast<u16>(length));
    _put<u16>(entry, 10, static_cast<u16>(NAME_VALUE + node.units * 2));
    _put_name_value(entry + ENTRY_HEADER, _record_of(node.parent), &tree->text[node.name], node.bytes,
                    node.is_folder);
    return length;
}

static u8 *_put_index_root(u8 *attribute, const tree_t *tree, u32 folder, const index_size_t &size) {
    const u32 last = size.blocks ? ENTRY_HEADER + 8 : ENTRY_HEADER;
    const u32 entries = (size.blocks ? 0 : size.bytes) + last;
    u8 *value;
    u8 *end = _put_resident(attribute, 0x90, 32 + entries, &value, u"$I30");
    _put<u32>(value, 0, 0x30);
    _put<u32>(value, 4, 1);
    _put<u32>(value, 8, BLOCK);
    value[12] = 1;
    _put<u32>(value, 16, 16);
    _put<u32>(value, 20, 16 + entries);
    _put<u32>(value, 24, 16 + entries);
    value[28] = size.blocks != 0;
    u8 *entry = value + 32;
    for (u32 child = size.blocks ? NONE : _first_child(tree, folder); child != NONE;
         child = tree->nodes[child].next) {
        entry += _put_entry(entry, tree, child);
    }
    _put<u16>(entry, 8, static_cast<u16>(last));
    _put<u32>(entry, 12, size.blocks ? 3 : 2);
    return end;
}

// All attributes that make a folder of a record. `lcn` is where its clusters begin, and is moved on.
static u8 *_put_index(u8 *attribute, const tree_t *tree, u32 folder, u64 *lcn) {
    const index_size_t size = _index_size(tree, folder);
    attribute = _put_index_root(attribute, tree, folder, size);
    if (!size.blocks) {
        return attribute;
    }
    attribute = _put_non_resident(attribute, 0xA0, size.blocks * BLOCK, *lcn + size.bitmap_clusters, u"$I30");
    if (size.bitmap_clusters) {
        attribute = _put_non_resident(attribute, 0xB0, (size.blocks + 63) / 64 * 8, *lcn, u"$I30");
    } else {
        u8 *value;
        attribute =
            _put_resident(attribute, 0xB0, static_cast<u32>((size.blocks + 63) / 64 * 8), &value, u"$I30");
        for (u64 block = 0; block < size.blocks; block++) {
            value[block / 8] |= static_cast<u8>(1 << block % 8);
        }
    }
    *lcn += size.bitmap_clusters + size.blocks;
    return attribute;
}

static void _write_bitmap(writer_t *writer, u64 bits, u64 clusters) {
    for (u64 cluster = 0; cluster < clusters; cluster++) {
        u8 *bytes = _take(writer, CLUSTER);
        for (u64 i = 0; i < CLUSTER; i++) {
            const u64 first = (cluster * CLUSTER + i) * 8;
            bytes[i] = static_cast<u8>(first + 8 <= bits ? 0xFF
                                       : first >= bits   ? 0
                                                         : (1 << (bits - first)) - 1);
        }
    }
}

static void _end_block(u8 *block, u32 used, u64 vcn) {
    _put<u16>(block, used + 8, ENTRY_HEADER);
    _put<u32>(block, used + 12, 2);  // the last entry
    _put<u32>(block, 0, 0x58444E49); // INDX
    _put<u64>(block, 16, vcn);
    _put<u32>(block, BLOCK_NODE, BLOCK_ENTRIES - BLOCK_NODE);
    _put<u32>(block, BLOCK_NODE + 4, used + ENTRY_HEADER - BLOCK_NODE);
    _put<u32>(block, BLOCK_NODE + 8, BLOCK - BLOCK_NODE);
    _put_update_sequence(block, BLOCK, BLOCK_USA);
}

static void _write_index(writer_t *writer, const tree_t *tree, u32 folder) {
    const index_size_t size = _index_size(tree, folder);
    if (!size.blocks) {
        return;
    }
    _write_bitmap(writer, size.blocks, size.bitmap_clusters);
    u64 vcn = 0;
    u32 used = BLOCK_ENTRIES;
    u8 *block = _take(writer, BLOCK);
    for (u32 child = _first_child(tree, folder); child != NONE; child = tree->nodes[child].next) {
        if (used + _entry_length(tree->nodes[child]) + ENTRY_HEADER > BLOCK) {
            _end_block(block, used, vcn++);
            block = _take(writer, BLOCK);
            used = BLOCK_ENTRIES;
        }
        used += _put_entry(block + used, tree, child);
    }
    _end_block(block, used, vcn);
}

// --- The volume --------------------------------------------------------------------------------------------

struct layout_t {
    u64 records;
    u64 table_clusters;
    u64 table_bitmap_clusters;
    u64 index_lcn;
    u64 bitmap_lcn;
    u64 bitmap_clusters;
    u64 clusters;
};

static layout_t _lay_out(const tree_t *tree) {
    layout_t layout = {};
    layout.records = (RECORDS_RESERVED + tree->nodes.size() + 63) / 64 * 64;
    layout.table_clusters = layout.records * RECORD / CLUSTER;
    layout.table_bitmap_clusters = (layout.records / 8 + CLUSTER - 1) / CLUSTER;
    layout.index_lcn = TABLE_LCN + layout.table_clusters + layout.table_bitmap_clusters;
    layout.bitmap_lcn = layout.index_lcn;
    for (u32 node = NONE; node == NONE || node < tree->nodes.size(); node++) {
        if (node == NONE || tree->nodes[node].is_folder) {
            const index_size_t size = _index_size(tree, node);
            layout.bitmap_lcn += size.blocks + size.bitmap_clusters;
        }
    }
    // The bitmap tells of its own clusters as well.
    layout.bitmap_clusters = layout.bitmap_lcn / (CLUSTER * 8 - 1) + 1;
    layout.clusters = layout.bitmap_lcn + layout.bitmap_clusters;
    return layout;
}

static void _write_boot_sector(writer_t *writer, const layout_t &layout) {
    u8 *sector = _take(writer, SECTOR);
    _put<u32>(sector, 0, 0x009052EB);         // a jump over the fields
    _put<u64>(sector, 3, 0x202020205346544E); // NTFS and four blanks
    _put<u16>(sector, 11, SECTOR);
    sector[13] = CLUSTER / SECTOR;
    sector[21] = 0xF8;
    _put<u64>(sector, 40, layout.clusters * (CLUSTER / SECTOR));
    _put<u64>(sector, 48, TABLE_LCN);
    _put<u64>(sector, 56, TABLE_LCN);
    sector[64] = static_cast<u8>(-10); // records of 2 to the 10 bytes
    sector[68] = BLOCK / CLUSTER;
    _put<u64>(sector, 72, 0x46696E6477726974);
    _put<u16>(sector, 510, 0xAA55);
    _take(writer, CLUSTER - SECTOR);
    for (u64 i = 1; i < TABLE_LCN; i++) {
        _take(writer, CLUSTER);
    }
}

// The records that a reader of folders wants: the table itself, the volume's name and version, the root
// folder and the cluster bitmap. The others are in use and empty.
static void _write_reserved(writer_t *writer, const tree_t *tree, const layout_t &layout, u64 *lcn) {
    static constexpr const char *NAMES[] = {"$MFT",     "$MFTMirr", "$LogFile", "$Volume",
                                            "$AttrDef", ".",        "$Bitmap",  "$Boot",
                                            "$BadClus", "$Secure",  "$UpCase",  "$Extend"};
    for (u64 index = 0; index < RECORDS_RESERVED; index++) {
        u8 *record = _take(writer, RECORD);
        if (index >= std::size(NAMES)) {
            continue;
        }
        const bool is_folder = index == ROOT || index == 11;
        u8 *value;
        u8 *end =
            _begin_record(record, ROOT, NAMES[index], static_cast<u32>(strlen(NAMES[index])), is_folder);
        if (index == 0) {
            end = _put_non_resident(end, 0x80, layout.records * RECORD, TABLE_LCN);
            end = _put_non_resident(end, 0xB0, layout.records / 8, TABLE_LCN + layout.table_clusters);
        } else if (index == 3) {
            end = _put_resident(end, 0x60, 14, &value);
            memcpy(value, u"Volume", 12);
            end = _put_resident(end, 0x70, 12, &value);
            value[8] = 3; // version 3.1
            value[9] = 1;
        } else if (index == ROOT) {
            end = _put_index(end, tree, NONE, lcn);
        } else if (index == 6) {
            end = _put_non_resident(end, 0x80, (layout.clusters + 63) / 64 * 8, layout.bitmap_lcn);
        } else if (index == 11) {
            end = _put_index_root(end, tree, NONE, {0, 0, 0});
        } else {
            end = _put_resident(end, 0x80, 0, &value);
        }
        _end_record(record, end, index, is_folder);
    }
}

static void _write_table(writer_t *writer, const tree_t *tree, const layout_t &layout) {
    u64 lcn = layout.index_lcn;
    _write_reserved(writer, tree, layout, &lcn);
    for (u32 i = 0; i < tree->nodes.size(); i++) {
        const node_t &node = tree->nodes[i];
        const char *name = &tree->text[node.name];
        u8 *record = _take(writer, RECORD);
        u8 *end = _begin_record(record, _record_of(node.parent), name, node.bytes, node.is_folder);
        if (node.is_folder) {
            end = _put_index(end, tree, i, &lcn);
        } else {
            end = _put_non_resident(end, 0x80, _values(name, node.bytes, false).size, HOLE);
        }
        _end_record(record, end, _record_of(i), node.is_folder);
    }
    for (u64 index = RECORDS_RESERVED + tree->nodes.size(); index < layout.records; index++) {
        _take(writer, RECORD);
    }
    _write_bitmap(writer, RECORDS_RESERVED + tree->nodes.size(), layout.table_bitmap_clusters);
}

static bool _write_volume(const tree_t *tree, const layout_t &layout, const char *filename) {
    writer_t writer = {};
    writer.file = os_create(filename);
    if (writer.file == PLATFORM_FILE_NONE) {
        return false;
    }
    writer.buffer.reserve(WRITE_SIZE);
    _write_boot_sector(&writer, layout);
    _write_table(&writer, tree, layout);
    _write_index(&writer, tree, NONE);
    for (u32 i = 0; i < tree->nodes.size(); i++) {
        if (tree->nodes[i].is_folder) {
            _write_index(&writer, tree, i);
        }
    }
    _write_bitmap(&writer, layout.clusters, layout.bitmap_clusters);
    _take(&writer, SECTOR); // the copy of the boot sector would stand here
    _flush(&writer);
    os_close(writer.file);
    return !writer.failed;
}

int main(int argc, char **argv) {
    if (argc != 2 || argv[1][0] == '-') {
        fprintf(stderr, "usage: make_volume OUT.img < paths.txt\n");
        return 2;
    }
    os_init();
    tree_t tree = {};
    tree.root_child = NONE;
    _grow_slots(&tree);
    _read_paths(&tree);
    const layout_t layout = _lay_out(&tree);
    if (!_write_volume(&tree, layout, argv[1])) {
        fprintf(stderr, "make_volume: cannot write %s (error %u)\n", argv[1], os_get_last_error());
        return 1;
    }
    printf("%zu names, %llu file records, %llu clusters of %u bytes\n", tree.nodes.size(),
           static_cast<unsigned long long>(layout.records), static_cast<unsigned long long>(layout.clusters),
           CLUSTER);
    if (tree.skipped) {
        fprintf(stderr, "%llu paths have a name too long for a volume and were left out\n",
                static_cast<unsigned long long>(tree.skipped));
    }
    os_kill();
    return 0;
}
