// Paths, numbers and escapes in text.
#include "base/utf8.h"
#include "base/utf8_buf.h"

namespace findwright {

// --- Paths -------------------------------------------------------------------------------------------------

// The first separator at or behind `index`, or the length.
static u32 _utf8_find_separator(const char *text, u32 length, u32 index) {
    while (index < length && !utf8_is_separator(text[index])) {
        index++;
    }
    return index;
}

void utf8_get_path_part(const char *text, u32 length, const char **path, u32 *path_length, const char **name,
                        u32 *name_length) {
    u32 split = length;
    while (split && !utf8_is_separator(text[split - 1])) {
        split--;
    }
    *path = text;
    *path_length = split ? split - 1 : 0;
    *name = text + split;
    *name_length = length - split;
}

static bool _utf8_is_letter(char c) {
    return static_cast<u32>(utf8_lower_ascii[c]) - 'a' < 26;
}

// Bytes of a scheme in front of its `:`; 0 when the text has none. One letter is a drive.
static u32 _utf8_get_scheme_length(const char *text, u32 length) {
    u32 i = 0;
    while (i < length && (_utf8_is_letter(text[i]) || (i && (utf8_is_digit(text[i]) || text[i] == '+' ||
                                                             text[i] == '-' || text[i] == '.')))) {
        i++;
    }
    return i >= 2 && i < length && text[i] == ':' ? i : 0;
}

u32 utf8_get_root_length(const char *text, u32 length) {
    if (length >= 2 && text[1] == ':' && _utf8_is_letter(text[0])) {
        return 2;
    }
    if (length >= 2 && text[0] == '\\' && text[1] == '\\') {
        const u32 server_end = _utf8_find_separator(text, length, 2);
        return server_end == length ? length : _utf8_find_separator(text, length, server_end + 1);
    }
    u32 i = _utf8_get_scheme_length(text, length);
    if (!i) {
        return 0;
    }
    i++;
    if (length - i >= 2 && text[i] == '/' && text[i + 1] == '/') {
        i += 2; // the slashes in front of the host are no end of it
    }
    while (i < length && text[i] != '/') {
        i++;
    }
    return i;
}

const char *utf8_get_extension(const char *text, u32 length) {
    const char *end = text + length;
    for (const char *p = end; p > text && !utf8_is_separator(p[-1]); p--) {
        if (p[-1] == '.') {
            return p;
        }
    }
    return end;
}

u32 utf8_get_extension_length(const char *text, u32 length) {
    return static_cast<u32>(text + length - utf8_get_extension(text, length));
}

bool utf8_has_trailing_separator(const char *text, u32 length) {
    return length && utf8_is_separator(text[length - 1]);
}

u32 utf8_count_slashes(const char *text, u32 length) {
    u32 count = 0;
    for (u32 i = 0; i < length; i++) {
        count += utf8_is_separator(text[i]);
    }
    return count;
}

// --- Numbers and escapes -----------------------------------------------------------------------------------

i32 utf8_hex_value(char c) {
    if (utf8_is_digit(c)) {
        return c - '0';
    }
    const u32 letter = static_cast<u32>(utf8_lower_ascii[c]) - 'a';
    return letter < 6 ? static_cast<i32>(letter) + 10 : -1;
}

u64 utf8_to_uint64(const char *text, u32 length) {
    u64 value = 0;
    u32 i = 0;
    if (length >= 2 && text[0] == '0' && utf8_lower_ascii[text[1]] == 'x') {
        for (i = 2; i < length && utf8_hex_value(text[i]) >= 0; i++) {
            value = value << 4 | static_cast<u64>(utf8_hex_value(text[i]));
        }
        return value;
    }
    const bool negative = length && text[0] == '-';
    for (i = negative; i < length && utf8_is_digit(text[i]); i++) {
        value = value * 10 + static_cast<u64>(text[i] - '0');
    }
    return negative ? 0 - value : value;
}

i64 utf8_to_int64(const char *text, u32 length) {
    return static_cast<i64>(utf8_to_uint64(text, length));
}

i32 utf8_to_int(const char *text, u32 length) {
    return static_cast<i32>(utf8_to_uint64(text, length));
}

char utf8_escape_value(char c) {
    switch (c) {
    case '0': return '\0';
    case 'a': return '\a';
    case 'b': return '\b';
    case 'f': return '\f';
    case 'n': return '\n';
    case 'r': return '\r';
    case 't': return '\t';
    case 'v': return '\v';
    default: return c;
    }
}

// --- Numbers in lists --------------------------------------------------------------------------------------

const char *utf8_next_list_uint64(const char *cursor, u64 *value, u64 default_value) {
    utf8_buf_t item;
    utf8_buf_init(&item);
    cursor = utf8_buf_next_list_item(&item, cursor);
    *value = item.length ? utf8_to_uint64(item.data, static_cast<u32>(item.length)) : default_value;
    utf8_buf_kill(&item);
    return cursor;
}

const char *utf8_next_list_int(const char *cursor, i32 *value, i32 default_value) {
    u64 wide;
    cursor = utf8_next_list_uint64(cursor, &wide, static_cast<u64>(default_value));
    *value = static_cast<i32>(wide);
    return cursor;
}

} // namespace findwright
