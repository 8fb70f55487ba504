#include "base/utf8.h"

namespace findwright {

// --- Case mapping ------------------------------------------------------------------------------------------

// Characters that the map leaves as they are keep their bytes, so malformed text comes through.
static u32 _utf8_map_get_length(const utf8_map_t &map, const char *text, u32 length) {
    u32 size = 0;
    for (const char *end = text + length; text < end;) {
        u32 value;
        const u32 taken = utf8_decode(text, end, &value);
        const u32 mapped = utf8_map(map, value);
        size += mapped == value ? taken : utf8_encoded_length(mapped);
        text += taken;
    }
    return size;
}

static u32 _utf8_map_copy(const utf8_map_t &map, char *out, const char *text, u32 length) {
    char *cursor = out;
    for (const char *end = text + length; text < end;) {
        u32 value;
        const u32 taken = utf8_decode(text, end, &value);
        const u32 mapped = utf8_map(map, value);
        if (mapped == value) {
            std::memcpy(cursor, text, taken);
            cursor += taken;
        } else {
            cursor += utf8_encode(cursor, mapped);
        }
        text += taken;
    }
    return static_cast<u32>(cursor - out);
}

u32 utf8_lower_get_length(const char *text, u32 length) {
    return _utf8_map_get_length({utf8_lower_blocks, utf8_lower_distances}, text, length);
}

u32 utf8_lower_copy(char *out, const char *text, u32 length) {
    return _utf8_map_copy({utf8_lower_blocks, utf8_lower_distances}, out, text, length);
}

u32 utf8_upper_get_length(const char *text, u32 length) {
    return _utf8_map_get_length({utf8_upper_blocks, utf8_upper_distances}, text, length);
}

u32 utf8_upper_copy(char *out, const char *text, u32 length) {
    return _utf8_map_copy({utf8_upper_blocks, utf8_upper_distances}, out, text, length);
}

bool utf8_is_ascii(const char *text, u32 length) {
    constexpr u64 HIGH_BITS = 0x8080808080808080;
    u32 i = 0;
    for (; i + sizeof(u64) <= length; i += sizeof(u64)) {
        u64 bytes;
        std::memcpy(&bytes, text + i, sizeof bytes);
        if (bytes & HIGH_BITS) {
            return false;
        }
    }
    for (; i < length; i++) {
        if (static_cast<u8>(text[i]) >= 0x80) {
            return false;
        }
    }
    return true;
}

// --- Comparison --------------------------------------------------------------------------------------------

// Steps both texts over what is equal, and returns the difference of the first characters that are not; 0
// when one of the texts is at its end.
template<u32 fold(u32)>
static int _utf8_compare_walk(const utf8_byte_table_t &ascii, const char **a, const char *a_end,
                              const char **b, const char *b_end) {
    while (*a < a_end && *b < b_end) {
        const u32 a_byte = ascii[**a];
        const u32 b_byte = ascii[**b];
        if (a_byte != UTF8_NOT_ASCII && b_byte != UTF8_NOT_ASCII) {
            if (a_byte != b_byte) {
                return static_cast<int>(a_byte) - static_cast<int>(b_byte);
            }
            ++*a;
            ++*b;
            continue;
        }
        u32 a_value, b_value;
        *a += utf8_decode(*a, a_end, &a_value);
        *b += utf8_decode(*b, b_end, &b_value);
        a_value = fold(a_value);
        b_value = fold(b_value);
        if (a_value != b_value) {
            return static_cast<int>(a_value) - static_cast<int>(b_value);
        }
    }
    return 0;
}

template<u32 fold(u32)>
static int _utf8_compare(const utf8_byte_table_t &ascii, const char *a, u32 a_length, const char *b,
                         u32 b_length) {
    const char *a_end = a + a_length;
    const char *b_end = b + b_length;
    const int difference = _utf8_compare_walk<fold>(ascii, &a, a_end, &b, b_end);
    return difference ? difference : static_cast<int>((a_end - a) - (b_end - b));
}

int utf8_compare_fold(const char *a, u32 a_length, const char *b, u32 b_length) {
    return _utf8_compare<utf8_to_fold>(utf8_lower_ascii, a, a_length, b, b_length);
}

int utf8_compare_lower(const char *a, u32 a_length, const char *b, u32 b_length) {
    return _utf8_compare<utf8_to_lower>(utf8_lower_ascii, a, a_length, b, b_length);
}

int utf8_compare_keep_case(const char *a, u32 a_length, const char *b, u32 b_length) {
    return _utf8_compare<utf8_to_fold_keep_case>(utf8_same_ascii, a, a_length, b, b_length);
}

int utf8_compare(const char *a, u32 a_length, const char *b, u32 b_length) {
    const u32 common = a_length < b_length ? a_length : b_length;
    const int difference = common ? std::memcmp(a, b, common) : 0;
    return difference ? difference : a_length < b_length ? -1 : a_length > b_length;
}

bool utf8_equal_nocase(const char *text, u32 length, const char *pattern, u32 pattern_length) {
    const char *pattern_end = pattern + pattern_length;
    return !_utf8_compare_walk<utf8_to_lower>(utf8_lower_ascii, &text, text + length, &pattern,
                                              pattern_end) &&
           pattern == pattern_end;
}

// --- UTF-16 ------------------------------------------------------------------------------------------------

static constexpr u32 SURROGATE_BASE = 0x10000;
static constexpr u32 UNICODE_MAX = 0x10FFFF;

static bool _utf8_is_high_surrogate(u32 unit) {
    return (unit & 0xFC00) == 0xD800;
}

static bool _utf8_is_low_surrogate(u32 unit) {
    return (unit & 0xFC00) == 0xDC00;
}

// The character at `text`, and the units it takes.
static u32 _wchar_decode(const char16_t *text, const char16_t *end, u32 *value) {
    *value = *text;
    if (_utf8_is_high_surrogate(*value) && end - text >= 2 && _utf8_is_low_surrogate(text[1])) {
        *value = SURROGATE_BASE + ((*value & 0x3FF) << 10 | (text[1] & 0x3FF));
        return 2;
    }
    return 1;
}

u32 wchar_length(const char16_t *text) {
    u32 length = 0;
    while (text[length]) {
        length++;
    }
    return length;
}

u32 utf8_wchar_get_length(const char16_t *text, u32 length) {
    u32 size = 0;
    for (const char16_t *end = text + length; text < end;) {
        u32 value;
        text += _wchar_decode(text, end, &value);
        size += utf8_encoded_length(value);
    }
    return size;
}

u32 utf8_from_wchar_length(char *out, const char16_t *text, u32 length) {
    char *cursor = out;
    for (const char16_t *end = text + length; text < end;) {
        u32 value;
        text += _wchar_decode(text, end, &value);
        cursor += utf8_encode(cursor, value);
    }
    return static_cast<u32>(cursor - out);
}

u32 utf8_from_wchar(char *out, const char16_t *text) {
    const u32 size = utf8_from_wchar_length(out, text, wchar_length(text));
    out[size] = 0;
    return size;
}

// The character at `text` as UTF-16 can hold it. A zero byte is itself; all else of value 0 is malformed.
static u32 _utf8_decode_for_wchar(const char *text, const char *end, u32 *value) {
    const u32 taken = utf8_decode(text, end, value);
    if ((*value == 0 && *text) || *value > UNICODE_MAX) {
        *value = UTF8_REPLACEMENT;
    }
    return taken;
}

u32 wchar_utf8_get_length(const char *text, u32 length) {
    u32 units = 0;
    for (const char *end = text + length; text < end;) {
        u32 value;
        text += _utf8_decode_for_wchar(text, end, &value);
        units += value >= SURROGATE_BASE ? 2 : 1;
    }
    return units;
}

u32 wchar_from_utf8(char16_t *out, const char *text, u32 length) {
    char16_t *cursor = out;
    for (const char *end = text + length; text < end;) {
        u32 value;
        text += _utf8_decode_for_wchar(text, end, &value);
        if (value >= SURROGATE_BASE) {
            value -= SURROGATE_BASE;
            *cursor++ = static_cast<char16_t>(0xD800 | value >> 10);
            *cursor++ = static_cast<char16_t>(0xDC00 | (value & 0x3FF));
        } else {
            *cursor++ = static_cast<char16_t>(value);
        }
    }
    return static_cast<u32>(cursor - out);
}

const char *utf8_skip_bom(const char *text, u32 *length) {
    if (*length >= 3 && !std::memcmp(text, "\xEF\xBB\xBF", 3)) {
        *length -= 3;
        return text + 3;
    }
    return text;
}

// --- Attribute letters -------------------------------------------------------------------------------------

u32 utf8_attributes_to_letters(char *out, u32 attributes) {
    static constexpr struct {
        u32 bit;
        char letter;
    } LETTERS[] = {
        {0x1, 'R'},   {0x2, 'H'},   {0x4, 'S'},   {0x10, 'D'},  {0x20, 'A'},   {0x40, 'V'},   {0x80, 'N'},
        {0x100, 'T'}, {0x200, 'P'}, {0x400, 'L'}, {0x800, 'C'}, {0x1000, 'O'}, {0x2000, 'I'}, {0x4000, 'E'},
    };
    static_assert(sizeof(LETTERS) / sizeof(*LETTERS) + 1 == UTF8_ATTRIBUTE_LETTERS_SIZE);
    u32 count = 0;
    for (const auto &entry : LETTERS) {
        if (attributes & entry.bit) {
            out[count++] = entry.letter;
        }
    }
    out[count] = 0;
    return count;
}

// --- Strings on the heap -----------------------------------------------------------------------------------

char *utf8_alloc_copy_length_debug(const char *filename, int line, const char *text, u32 length) {
    char *copy = static_cast<char *>(mem_alloc_debug(filename, line, static_cast<size_t>(length) + 1));
    if (length) {
        std::memcpy(copy, text, length);
    }
    copy[length] = 0;
    return copy;
}

char *utf8_alloc_copy_debug(const char *filename, int line, const char *text) {
    return utf8_alloc_copy_length_debug(filename, line, text, utf8_length(text));
}

char *utf8_replace_string_debug(const char *filename, int line, char *old, const char *text) {
    char *copy = utf8_alloc_copy_debug(filename, line, text);
    if (old) {
        mem_free_debug(filename, line, old);
    }
    return copy;
}

} // namespace findwright
