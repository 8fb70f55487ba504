// The op codes of executable terms, taken apart. An op's number settles all that a term's flags ask for: a
// family's op is its base plus one bit for each of the family's flags, in the order of db_op_range_t, so that
// nothing is left to be tested per item.
#pragma once

#include "base/types.h"
#include "base/utf8_match.h"

namespace findwright {

enum db_op_t : u32 {
    DB_OP_TRUE = 0,
    DB_OP_FALSE = 1,
    DB_OP_FIND = 2,
    DB_OP_FIND_ASCII = 34,
    DB_OP_EQUAL = 42,
    DB_OP_EQUAL_ASCII = 58,
    DB_OP_WILDCARD_FIND = 62,
    DB_OP_WILDCARD_FIND_ASCII = 94,
    DB_OP_WILDCARD = 102,
    DB_OP_WILDCARD_ASCII = 118,
    DB_OP_STARTS_WITH = 122,
    DB_OP_STARTS_WITH_ASCII = 138,
    DB_OP_ENDS_WITH = 142,
    DB_OP_ENDS_WITH_ASCII = 158,
    DB_OP_EXTENSION = 162,
    DB_OP_EXTENSION_ASCII = 170,
    DB_OP_ROOT = 172,
    DB_OP_DUPE_NAME = 174,
    DB_OP_DUPE_NAME_PART = 176,
    DB_OP_DUPE_SIZE = 178,
    DB_OP_DUPE_DATE_CREATED = 180,
    DB_OP_DUPE_DATE_MODIFIED = 182,
    DB_OP_DUPE_DATE_ACCESSED = 184,
    DB_OP_DUPE_ATTRIBUTES = 186,
    DB_OP_INDEX_ORDINAL = 188,
    DB_OP_LENGTH = 190,
    DB_OP_EMPTY = 194,
    DB_OP_PARENTS = 196,
    DB_OP_SIZE_READ = 198, // _READ: from the file system
    DB_OP_SIZE = 200,
    DB_OP_DATE_MODIFIED = 202,
    DB_OP_DATE_CREATED = 204,
    DB_OP_DATE_ACCESSED = 206,
    DB_OP_ATTRIBUTES = 208,
    DB_OP_ATTRIBUTES_READ = 210,
    DB_OP_DATE_MODIFIED_READ = 212,
    DB_OP_DATES_EQUAL = 214,       // modified and created; 215: they differ
    DB_OP_DATES_AT_OR_AFTER = 216, // modified at or after created; 217: before
    DB_OP_DATES_AFTER = 218,       // modified after created; 219: not
    DB_OP_DATE_CREATED_READ = 220,
    DB_OP_TYPE = 222,
    DB_OP_FILE_LIST_FILENAME = 224,
    DB_OP_REGEX = 226,
    DB_OP_ANCHORS = 230, // inner and outer ones, or files
    DB_OP_ANCHORS_INNER = 240,
    DB_OP_ANCHORS_OUTER = 250,
    DB_OP_ANCHOR_INNER = 260,
    DB_OP_ANCHOR_OUTER = 270,
    DB_OP_PARENT_NONE = 280,
    DB_OP_PARENT = 282,
    DB_OP_PARENTS_SEVERAL = 284,
    DB_OP_NO_ANCHOR = 286,
    DB_OP_COMPONENT_STARTS_WITH = 296,
    DB_OP_COMPONENT_ENDS_WITH = 306,
    DB_OP_COMPONENT_EQUAL = 316,
    DB_OP_RECENT_CHANGE = 326,
    DB_OP_RUN_COUNT = 328,
    DB_OP_DATE_RUN = 330,
    DB_OP_DATE_ACCESSED_READ = 332,
    DB_OP_CONTENT = 334,
    DB_OP_CONTENT_UTF16 = 336,
    DB_OP_CONTENT_UTF16BE = 338,
    DB_OP_CONTENT_ANSI = 340,
    DB_OP_CONTENT_UTF8 = 342,
    DB_OP_CHILD = 344,
    DB_OP_CHILD_COUNT = 346,
    DB_OP_CHILD_FILE_COUNT = 348,
    DB_OP_CHILD_FOLDER_COUNT = 350,
    DB_OP_EXTENSION_OR_NONE = 352, // an item of the list is empty
    DB_OP_EXTENSION_OR_NONE_ASCII = 360,
    DB_OP_FILE_LIST = 362,
    DB_OP_COUNT = 366,
};

// Which bits a family's numbers have behind its base. `not` is always there and always the last.
enum db_op_bits_t : u32 {
    DB_OP_BIT_WORD = 1, // whole word
    DB_OP_BIT_MODE = 2, // match case, then match diacritics; without it the mode is the ASCII one
    DB_OP_BIT_PATH = 4, // or what the family has in its place
};

struct db_op_range_t {
    const char *name; // as it is shown to users
    u32 first, end;
    u32 bits; // db_op_bits_t
    u32 family;
};

// A family is named by the first op of its first range.
inline constexpr u32 DB_OP_TEXT = DB_OP_BIT_MODE | DB_OP_BIT_PATH;
inline constexpr u32 DB_OP_FIND_BITS = DB_OP_TEXT | DB_OP_BIT_WORD;
inline constexpr u32 DB_OP_ASCII_BITS = DB_OP_BIT_PATH | DB_OP_BIT_WORD;
inline constexpr db_op_range_t db_op_ranges[] = {
    {"find", DB_OP_FIND, 34, DB_OP_FIND_BITS, DB_OP_FIND},
    {"find", DB_OP_FIND_ASCII, 42, DB_OP_ASCII_BITS, DB_OP_FIND},
    {"equal", DB_OP_EQUAL, 58, DB_OP_TEXT, DB_OP_EQUAL},
    {"equal", DB_OP_EQUAL_ASCII, 62, DB_OP_BIT_PATH, DB_OP_EQUAL},
    {"wildcard-find", DB_OP_WILDCARD_FIND, 94, DB_OP_FIND_BITS, DB_OP_WILDCARD_FIND},
    {"wildcard-find", DB_OP_WILDCARD_FIND_ASCII, 102, DB_OP_ASCII_BITS, DB_OP_WILDCARD_FIND},
    {"wildcard", DB_OP_WILDCARD, 118, DB_OP_TEXT, DB_OP_WILDCARD},
    {"wildcard", DB_OP_WILDCARD_ASCII, 122, DB_OP_BIT_PATH, DB_OP_WILDCARD},
    {"starts-with", DB_OP_STARTS_WITH, 138, DB_OP_TEXT, DB_OP_STARTS_WITH},
    {"starts-with", DB_OP_STARTS_WITH_ASCII, 142, DB_OP_BIT_PATH, DB_OP_STARTS_WITH},
    {"ends-with", DB_OP_ENDS_WITH, 158, DB_OP_TEXT, DB_OP_ENDS_WITH},
    {"ends-with", DB_OP_ENDS_WITH_ASCII, 162, DB_OP_BIT_PATH, DB_OP_ENDS_WITH},
    {"extension", DB_OP_EXTENSION, 170, DB_OP_BIT_MODE, DB_OP_EXTENSION},
    {"extension", DB_OP_EXTENSION_ASCII, 172, 0, DB_OP_EXTENSION},
    {"root", DB_OP_ROOT, 174, 0, DB_OP_ROOT},
    {"dupe", DB_OP_DUPE_NAME, 176, 0, DB_OP_DUPE_NAME},
    {"namepartdupe", DB_OP_DUPE_NAME_PART, 178, 0, DB_OP_DUPE_NAME_PART},
    {"sizedupe", DB_OP_DUPE_SIZE, 180, 0, DB_OP_DUPE_SIZE},
    {"dcdupe", DB_OP_DUPE_DATE_CREATED, 182, 0, DB_OP_DUPE_DATE_CREATED},
    {"dmdupe", DB_OP_DUPE_DATE_MODIFIED, 184, 0, DB_OP_DUPE_DATE_MODIFIED},
    {"dadupe", DB_OP_DUPE_DATE_ACCESSED, 186, 0, DB_OP_DUPE_DATE_ACCESSED},
    {"attribdupe", DB_OP_DUPE_ATTRIBUTES, 188, 0, DB_OP_DUPE_ATTRIBUTES},
    {"fsi", DB_OP_INDEX_ORDINAL, 190, 0, DB_OP_INDEX_ORDINAL},
    {"len", DB_OP_LENGTH, 194, DB_OP_BIT_PATH, DB_OP_LENGTH},
    {"empty", DB_OP_EMPTY, 196, 0, DB_OP_EMPTY},
    {"parents", DB_OP_PARENTS, 198, 0, DB_OP_PARENTS},
    {"size-read", DB_OP_SIZE_READ, 200, 0, DB_OP_SIZE_READ},
    {"size", DB_OP_SIZE, 202, 0, DB_OP_SIZE},
    {"date-modified", DB_OP_DATE_MODIFIED, 204, 0, DB_OP_DATE_MODIFIED},
    {"date-created", DB_OP_DATE_CREATED, 206, 0, DB_OP_DATE_CREATED},
    {"date-accessed", DB_OP_DATE_ACCESSED, 208, 0, DB_OP_DATE_ACCESSED},
    {"attributes", DB_OP_ATTRIBUTES, 210, 0, DB_OP_ATTRIBUTES},
    {"attributes-read", DB_OP_ATTRIBUTES_READ, 212, 0, DB_OP_ATTRIBUTES_READ},
    {"date-modified-read", DB_OP_DATE_MODIFIED_READ, 214, 0, DB_OP_DATE_MODIFIED_READ},
    {"dm=dc", DB_OP_DATES_EQUAL, 216, 0, DB_OP_DATES_EQUAL},
    {"dm>=dc", DB_OP_DATES_AT_OR_AFTER, 218, 0, DB_OP_DATES_AT_OR_AFTER},
    {"dm>dc", DB_OP_DATES_AFTER, 220, 0, DB_OP_DATES_AFTER},
    {"date-created-read", DB_OP_DATE_CREATED_READ, 222, 0, DB_OP_DATE_CREATED_READ},
    {"type", DB_OP_TYPE, 224, 0, DB_OP_TYPE},
    {"filelistfilename", DB_OP_FILE_LIST_FILENAME, 226, 0, DB_OP_FILE_LIST_FILENAME},
    {"regex", DB_OP_REGEX, 230, DB_OP_BIT_PATH, DB_OP_REGEX},
    {"below-or-at", DB_OP_ANCHORS, 238, DB_OP_BIT_MODE, DB_OP_ANCHORS},
    {"below-or-at", DB_OP_ANCHORS + 8, 240, 0, DB_OP_ANCHORS},
    {"below", DB_OP_ANCHORS_INNER, 248, DB_OP_BIT_MODE, DB_OP_ANCHORS_INNER},
    {"below", DB_OP_ANCHORS_INNER + 8, 250, 0, DB_OP_ANCHORS_INNER},
    {"at-or-below", DB_OP_ANCHORS_OUTER, 258, DB_OP_BIT_MODE, DB_OP_ANCHORS_OUTER},
    {"at-or-below", DB_OP_ANCHORS_OUTER + 8, 260, 0, DB_OP_ANCHORS_OUTER},
    {"below-one", DB_OP_ANCHOR_INNER, 268, DB_OP_BIT_MODE, DB_OP_ANCHOR_INNER},
    {"below-one", DB_OP_ANCHOR_INNER + 8, 270, 0, DB_OP_ANCHOR_INNER},
    {"at-or-below-one", DB_OP_ANCHOR_OUTER, 278, DB_OP_BIT_MODE, DB_OP_ANCHOR_OUTER},
    {"at-or-below-one", DB_OP_ANCHOR_OUTER + 8, 280, 0, DB_OP_ANCHOR_OUTER},
    {"parent-none", DB_OP_PARENT_NONE, 282, 0, DB_OP_PARENT_NONE},
    {"parent", DB_OP_PARENT, 284, 0, DB_OP_PARENT},
    {"parent-of-several", DB_OP_PARENTS_SEVERAL, 286, 0, DB_OP_PARENTS_SEVERAL},
    {"no-such-path", DB_OP_NO_ANCHOR, 294, DB_OP_BIT_MODE, DB_OP_NO_ANCHOR},
    {"no-such-path", DB_OP_NO_ANCHOR + 8, 296, 0, DB_OP_NO_ANCHOR},
    {"component-starts-with", DB_OP_COMPONENT_STARTS_WITH, 304, DB_OP_BIT_MODE, DB_OP_COMPONENT_STARTS_WITH},
    {"component-starts-with", DB_OP_COMPONENT_STARTS_WITH + 8, 306, 0, DB_OP_COMPONENT_STARTS_WITH},
    {"component-ends-with", DB_OP_COMPONENT_ENDS_WITH, 314, DB_OP_BIT_MODE, DB_OP_COMPONENT_ENDS_WITH},
    {"component-ends-with", DB_OP_COMPONENT_ENDS_WITH + 8, 316, 0, DB_OP_COMPONENT_ENDS_WITH},
    {"component-equal", DB_OP_COMPONENT_EQUAL, 324, DB_OP_BIT_MODE, DB_OP_COMPONENT_EQUAL},
    {"component-equal", DB_OP_COMPONENT_EQUAL + 8, 326, 0, DB_OP_COMPONENT_EQUAL},
    {"recent-change", DB_OP_RECENT_CHANGE, 328, 0, DB_OP_RECENT_CHANGE},
    {"runcount", DB_OP_RUN_COUNT, 330, 0, DB_OP_RUN_COUNT},
    {"daterun", DB_OP_DATE_RUN, 332, 0, DB_OP_DATE_RUN},
    {"date-accessed-read", DB_OP_DATE_ACCESSED_READ, 334, 0, DB_OP_DATE_ACCESSED_READ},
    {"content", DB_OP_CONTENT, 336, 0, DB_OP_CONTENT},
    {"content-utf16", DB_OP_CONTENT_UTF16, 338, 0, DB_OP_CONTENT_UTF16},
    {"content-utf16be", DB_OP_CONTENT_UTF16BE, 340, 0, DB_OP_CONTENT_UTF16BE},
    {"content-ansi", DB_OP_CONTENT_ANSI, 342, 0, DB_OP_CONTENT_ANSI},
    {"content-utf8", DB_OP_CONTENT_UTF8, 344, 0, DB_OP_CONTENT_UTF8},
    {"child", DB_OP_CHILD, 346, 0, DB_OP_CHILD},
    {"childcount", DB_OP_CHILD_COUNT, 348, 0, DB_OP_CHILD_COUNT},
    {"childfilecount", DB_OP_CHILD_FILE_COUNT, 350, 0, DB_OP_CHILD_FILE_COUNT},
    {"childfoldercount", DB_OP_CHILD_FOLDER_COUNT, 352, 0, DB_OP_CHILD_FOLDER_COUNT},
    {"extension-or-none", DB_OP_EXTENSION_OR_NONE, 360, DB_OP_BIT_MODE, DB_OP_EXTENSION_OR_NONE},
    {"extension-or-none", DB_OP_EXTENSION_OR_NONE_ASCII, 362, 0, DB_OP_EXTENSION_OR_NONE},
    {"filelist", DB_OP_FILE_LIST, 366, DB_OP_BIT_PATH, DB_OP_FILE_LIST},
};

// An op taken apart. `mode` means something only for families that compare text.
struct db_op_parts_t {
    u32 family; // TRUE, FALSE or one of db_op_ranges; FALSE for an op outside the table
    utf8_mode_t mode;
    bool whole_word;
    bool path;
    bool negated;
};

constexpr utf8_mode_t db_op_mode(bool keep_case, bool keep_diacritics) {
    return keep_case ? (keep_diacritics ? UTF8_MODE_EXACT : UTF8_MODE_KEEP_CASE)
                     : (keep_diacritics ? UTF8_MODE_LOWER : UTF8_MODE_FOLD);
}

inline constexpr u32 DB_OP_RANGES = sizeof(db_op_ranges) / sizeof(db_op_ranges[0]);

// The place of an op's range in the table; DB_OP_RANGES for an op outside of it.
constexpr u32 db_op_find_range(u32 op) {
    u32 i = 0;
    while (i < DB_OP_RANGES && (op < db_op_ranges[i].first || op >= db_op_ranges[i].end))
        i++;
    return i;
}

constexpr db_op_parts_t db_op_decode(u32 op) {
    if (op == DB_OP_TRUE)
        return {DB_OP_TRUE, UTF8_MODE_EXACT, false, false, false};
    u32 place = db_op_find_range(op);
    if (place == DB_OP_RANGES)
        return {DB_OP_FALSE, UTF8_MODE_EXACT, false, false, false};
    const db_op_range_t &range = db_op_ranges[place];
    u32 rest = op - range.first;
    auto take = [&rest](bool has_bit) {
        bool bit = has_bit && (rest & 1);
        rest >>= has_bit ? 1 : 0;
        return bit;
    };
    db_op_parts_t parts = {range.family, UTF8_MODE_ASCII, false, false, false};
    parts.whole_word = take(range.bits & DB_OP_BIT_WORD);
    bool has_mode = range.bits & DB_OP_BIT_MODE;
    bool keep_case = take(has_mode), keep_diacritics = take(has_mode);
    if (has_mode)
        parts.mode = db_op_mode(keep_case, keep_diacritics);
    parts.path = take(range.bits & DB_OP_BIT_PATH);
    parts.negated = take(true);
    return parts;
}

// Families whose answer for an item depends on other items: a pass before the scan decides for all at once.
constexpr bool db_op_is_set_family(u32 family) {
    switch (family) {
    case DB_OP_EMPTY:
    case DB_OP_CHILD:
    case DB_OP_CHILD_COUNT:
    case DB_OP_CHILD_FILE_COUNT:
    case DB_OP_CHILD_FOLDER_COUNT:
    case DB_OP_DUPE_NAME:
    case DB_OP_DUPE_NAME_PART:
    case DB_OP_DUPE_SIZE:
    case DB_OP_DUPE_DATE_CREATED:
    case DB_OP_DUPE_DATE_MODIFIED:
    case DB_OP_DUPE_DATE_ACCESSED:
    case DB_OP_DUPE_ATTRIBUTES: return true;
    default: return false;
    }
}

} // namespace findwright
