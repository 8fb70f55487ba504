#include "base/utf8_match.h"

#include "base/utf8_buf.h"

namespace findwright {

// A malformed byte in a folded pattern, whatever it was: one that never begins a sequence with those behind
// it.
static constexpr char MALFORMED_BYTE = '\xFF';

template<utf8_mode_t mode>
static void _utf8_fold_pattern(utf8_buf_t *out, const char *text, u32 length) {
    // Folding makes three bytes of two at the most.
    utf8_buf_grow_empty(out, length + length / 2 + 1);
    char *cursor = out->data;
    for (const char *end = text + length; text < end;) {
        u32 value;
        const char first = *text;
        text += utf8_decode(text, end, &value);
        if (!value && first) {
            *cursor++ = MALFORMED_BYTE;
        } else {
            cursor += utf8_encode(cursor, utf8_mode_fold<mode>(value));
        }
    }
    utf8_buf_set_length(out, static_cast<u32>(cursor - out->data));
}

void utf8_fold_pattern(utf8_mode_t mode, utf8_buf_t *out, const char *text, u32 length) {
    switch (mode) {
    case UTF8_MODE_FOLD: _utf8_fold_pattern<UTF8_MODE_FOLD>(out, text, length); break;
    case UTF8_MODE_KEEP_CASE: _utf8_fold_pattern<UTF8_MODE_KEEP_CASE>(out, text, length); break;
    case UTF8_MODE_LOWER:
    case UTF8_MODE_ASCII: _utf8_fold_pattern<UTF8_MODE_LOWER>(out, text, length); break;
    case UTF8_MODE_EXACT: utf8_buf_copy_utf8(out, text, length); break;
    }
}

static bool _utf8_is_wildcard(char c) {
    return c == '*' || c == '?';
}

static u32 _utf8_count_wildcards(const char *pattern, u32 length) {
    u32 count = 0;
    for (u32 i = 0; i < length; i++) {
        count += _utf8_is_wildcard(pattern[i]);
    }
    return count;
}

u32 utf8_wildcard_squeeze(char *pattern, u32 *length) {
    u32 kept = 0;
    for (u32 i = 0; i < *length; i++) {
        if (pattern[i] != '*' || !kept || pattern[kept - 1] != '*') {
            pattern[kept++] = pattern[i];
        }
    }
    *length = kept;
    return _utf8_count_wildcards(pattern, kept);
}

bool utf8_wildcard_strip_stars(char *pattern, u32 *length) {
    const u32 count = *length;
    if (count < 2 || pattern[0] != '*' || pattern[count - 1] != '*' ||
        _utf8_count_wildcards(pattern, count) != 2) {
        return false;
    }
    std::memmove(pattern, pattern + 1, count - 2);
    *length = count - 2;
    return true;
}

bool utf8_wildcard_is_prefix(const char *pattern, u32 length) {
    return length && pattern[length - 1] == '*' && _utf8_count_wildcards(pattern, length) == 1;
}

bool utf8_wildcard_is_suffix(const char *pattern, u32 length) {
    return length && pattern[0] == '*' && _utf8_count_wildcards(pattern, length) == 1;
}

} // namespace findwright
