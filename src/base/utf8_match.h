// The search primitives: does a name hold a pattern, plain or with wildcards?
//
// All are templates over the way in which text is compared, so that a scan loop gets its own inline copy with
// no test of a mode in it. A pattern is folded once, ahead of the search, by utf8_fold_pattern with the same
// mode; the text is folded as it is read. A character of the text and one of the pattern are equal when their
// code points after folding are, so both may have their own lengths in bytes.
//
// Plain text is searched at each byte. In a pattern with wildcards `*` is any run of characters and `?`
// exactly one, both counted by utf8_decode, and the search moves by characters. Nothing recurses: a match
// takes at most pattern times text steps.
//
// Any thread may call; nothing is written but results.
#pragma once

#include "base/utf8.h"

namespace findwright {

struct utf8_buf_t;

enum utf8_mode_t : u32 {
    UTF8_MODE_FOLD,      // case and diacritics are ignored
    UTF8_MODE_KEEP_CASE, // diacritics are ignored
    UTF8_MODE_LOWER,     // case is ignored
    UTF8_MODE_EXACT,     // bytes
    UTF8_MODE_ASCII,     // as LOWER, for a pattern that is all ASCII: a text byte above 127 never equals
};

// The result of a primitive that gives a number of bytes, when there is no match.
inline constexpr i32 UTF8_NO_MATCH = -1;

// Folds a pattern for the primitives. Replaces the content of `out`, where the text must not lie. Folding
// makes no wildcard and no path separator out of another character.
void utf8_fold_pattern(utf8_mode_t mode, utf8_buf_t *out, const char *text, u32 length);
// True when the folded pattern may be searched in UTF8_MODE_ASCII instead of UTF8_MODE_LOWER.
inline bool utf8_is_ascii_pattern(const char *pattern, u32 length) {
    return utf8_is_ascii(pattern, length);
}

// --- Characters --------------------------------------------------------------------------------------------

template<utf8_mode_t mode>
inline u32 utf8_mode_fold(u32 value) {
    if constexpr (mode == UTF8_MODE_FOLD) {
        return utf8_to_fold(value);
    } else if constexpr (mode == UTF8_MODE_KEEP_CASE) {
        return utf8_to_fold_keep_case(value);
    } else if constexpr (mode == UTF8_MODE_LOWER) {
        return utf8_to_lower(value);
    } else {
        return value;
    }
}

// A text byte as the pattern would hold it if it is ASCII, else UTF8_NOT_ASCII.
template<utf8_mode_t mode>
inline u8 utf8_mode_byte(char c) {
    if constexpr (mode == UTF8_MODE_KEEP_CASE) {
        return utf8_same_ascii[c];
    } else if constexpr (mode == UTF8_MODE_EXACT) {
        return static_cast<u8>(c);
    } else {
        return utf8_lower_ascii[c];
    }
}

inline constexpr bool utf8_mode_is_bytewise(utf8_mode_t mode) {
    return mode == UTF8_MODE_EXACT || mode == UTF8_MODE_ASCII;
}

// True when every lead byte is followed by its continuation bytes, and they stand nowhere else but at the
// start, where those of one character may.
inline bool utf8_is_whole(const char *text, const char *text_end) {
    for (u32 i = 0; i < UTF8_CHAR_MAX - 1 && text < text_end && (*text & 0xC0) == 0x80; i++) {
        text++;
    }
    while (text < text_end) {
        const char *next = text + utf8_char_length(text, text_end);
        if (static_cast<u8>(*text) >= 0x80 && next == text + 1) {
            return false;
        }
        while (++text < next) {
            if ((*text & 0xC0) != 0x80) {
                return false;
            }
        }
    }
    return true;
}

// Compares the characters at `*text` and `*pattern`, neither at its end, and moves both on when they are
// equal.
template<utf8_mode_t mode>
inline bool utf8_match_char(const char **text, const char *text_end, const char **pattern,
                            const char *pattern_end) {
    const u8 byte = utf8_mode_byte<mode>(**text);
    if (utf8_mode_is_bytewise(mode) || static_cast<u8>(**text) < 0x80) {
        if (byte != static_cast<u8>(**pattern)) {
            return false;
        }
        ++*text;
        ++*pattern;
        return true;
    }
    u32 text_value, pattern_value;
    const u32 text_length = utf8_decode(*text, text_end, &text_value);
    const u32 pattern_length = utf8_decode(*pattern, pattern_end, &pattern_value);
    if (utf8_mode_fold<mode>(text_value) != pattern_value) {
        return false;
    }
    *text += text_length;
    *pattern += pattern_length;
    return true;
}

// True when the text begins with the whole pattern; the match ends at `*match_end`.
template<utf8_mode_t mode>
inline bool utf8_match_here(const char *text, const char *text_end, const char *pattern,
                            const char *pattern_end, const char **match_end) {
    while (pattern < pattern_end) {
        if (text == text_end || !utf8_match_char<mode>(&text, text_end, &pattern, pattern_end)) {
            return false;
        }
    }
    *match_end = text;
    return true;
}

// --- Word borders ------------------------------------------------------------------------------------------

// A border is asked for on each side where the pattern has a word character.
inline bool utf8_is_word_start(const char *text, const char *hit, const char *pattern, u32 pattern_length) {
    return hit == text || !pattern_length || !utf8_is_word_char(pattern[0]) || !utf8_is_word_char(hit[-1]);
}
inline bool utf8_is_word_end(const char *text_end, const char *hit_end, const char *pattern,
                             u32 pattern_length) {
    return hit_end == text_end || !pattern_length || !utf8_is_word_char(pattern[pattern_length - 1]) ||
           !utf8_is_word_char(*hit_end);
}
inline bool utf8_is_whole_word(const char *text, const char *text_end, const char *hit, u32 hit_length,
                               const char *pattern, u32 pattern_length) {
    return utf8_is_word_start(text, hit, pattern, pattern_length) &&
           utf8_is_word_end(text_end, hit + hit_length, pattern, pattern_length);
}

// --- Plain text --------------------------------------------------------------------------------------------

// True when a text of that many bytes cannot hold the pattern: folding makes three bytes of two at the most.
template<utf8_mode_t mode>
inline bool utf8_is_too_long(u32 length, u32 pattern_length) {
    return pattern_length > (utf8_mode_is_bytewise(mode) ? length : length + length / 2);
}

// Where a search found its pattern.
struct utf8_hit_t {
    const char *text;
    u32 length; // bytes
};

// The first place from `from` on, inside the text, where the pattern may begin by its first byte; `text_end`
// when there is none.
template<utf8_mode_t mode>
inline const char *utf8_find_first_byte(const char *from, const char *text_end, char first) {
    if constexpr (mode == UTF8_MODE_EXACT) {
        const size_t left = static_cast<size_t>(text_end - from);
        const void *place = left ? std::memchr(from, static_cast<u8>(first), left) : 0;
        return place ? static_cast<const char *>(place) : text_end;
    }
    while (from < text_end && utf8_mode_byte<mode>(*from) != static_cast<u8>(first) &&
           (mode == UTF8_MODE_ASCII || static_cast<u8>(*from) < 0x80)) {
        from++;
    }
    return from;
}

// Searches from `from`, inside the text, on. True when there is a hit.
template<utf8_mode_t mode, bool whole_word>
inline bool utf8_find_from(const char *text, const char *text_end, const char *from, const char *pattern,
                           u32 pattern_length, utf8_hit_t *hit) {
    if (utf8_is_too_long<mode>(static_cast<u32>(text_end - from), pattern_length)) {
        return false;
    }
    if (!pattern_length) {
        *hit = {from, 0};
        return true;
    }
    const char *pattern_end = pattern + pattern_length;
    // Where bytes are compared a hit begins before this.
    const char *last = utf8_mode_is_bytewise(mode) ? text_end - (pattern_length - 1) : text_end;
    for (;; from++) {
        from = utf8_find_first_byte<mode>(from, last, *pattern);
        if (from == last) {
            return false;
        }
        const char *end;
        if (utf8_match_here<mode>(from, text_end, pattern, pattern_end, &end)) {
            *hit = {from, static_cast<u32>(end - from)};
            if (!whole_word ||
                utf8_is_whole_word(text, text_end, from, hit->length, pattern, pattern_length)) {
                return true;
            }
        }
    }
}

// The pattern stands anywhere in the text; as a whole word. An empty pattern is everywhere.
template<utf8_mode_t mode>
inline bool utf8_find(const char *text, u32 length, const char *pattern, u32 pattern_length) {
    utf8_hit_t hit;
    return utf8_find_from<mode, false>(text, text + length, text, pattern, pattern_length, &hit);
}
template<utf8_mode_t mode>
inline bool utf8_find_word(const char *text, u32 length, const char *pattern, u32 pattern_length) {
    utf8_hit_t hit;
    return utf8_find_from<mode, true>(text, text + length, text, pattern, pattern_length, &hit);
}

// The bytes of the text that match the pattern at its start or end, or UTF8_NO_MATCH.
template<utf8_mode_t mode>
inline i32 utf8_starts_with(const char *text, u32 length, const char *pattern, u32 pattern_length) {
    const char *end;
    return utf8_match_here<mode>(text, text + length, pattern, pattern + pattern_length, &end)
               ? static_cast<i32>(end - text)
               : UTF8_NO_MATCH;
}
// Among bytes that are no UTF-8 the characters depend on the end from which one begins to read, and a pattern
// is read from its front. So where the way back from the end has failed at `failed`, and what it read, with
// the bytes in front that may reach into it, is broken, each way forward is tried.
template<utf8_mode_t mode>
inline i32 utf8_ends_with_broken(const char *text, const char *failed, const char *text_end,
                                 const char *pattern, u32 pattern_length) {
    const char *from = failed - text < UTF8_CHAR_MAX - 1 ? text : failed - (UTF8_CHAR_MAX - 1);
    if (utf8_is_whole(from, text_end)) {
        return UTF8_NO_MATCH;
    }
    const u32 most = pattern_length * UTF8_CHAR_MAX;
    for (from = text_end - text < most ? text : text_end - most; from < text_end; from++) {
        const char *end;
        if (utf8_match_here<mode>(from, text_end, pattern, pattern + pattern_length, &end) &&
            end == text_end) {
            return static_cast<i32>(text_end - from);
        }
    }
    return UTF8_NO_MATCH;
}
template<utf8_mode_t mode>
inline i32 utf8_ends_with(const char *text, u32 length, const char *pattern, u32 pattern_length) {
    if (utf8_is_too_long<mode>(length, pattern_length)) {
        return UTF8_NO_MATCH;
    }
    const char *text_end = text + length;
    const char *pattern_end = pattern + pattern_length;
    if constexpr (utf8_mode_is_bytewise(mode)) {
        return utf8_starts_with<mode>(text_end - pattern_length, pattern_length, pattern, pattern_length);
    }
    const char *t = text_end;
    while (pattern_end > pattern) {
        if (t == text) {
            return utf8_ends_with_broken<mode>(text, text, text_end, pattern, pattern_length);
        }
        const char *text_char = utf8_step_back(text, t);
        const char *pattern_char = utf8_step_back(pattern, pattern_end);
        const char *text_cursor = text_char;
        const char *pattern_cursor = pattern_char;
        if (!utf8_match_char<mode>(&text_cursor, t, &pattern_cursor, pattern_end)) {
            return utf8_ends_with_broken<mode>(text, text_char, text_end, pattern, pattern_length);
        }
        t = text_char;
        pattern_end = pattern_char;
    }
    return static_cast<i32>(text_end - t);
}

// The pattern is the whole text.
template<utf8_mode_t mode>
inline bool utf8_equal(const char *text, u32 length, const char *pattern, u32 pattern_length) {
    if constexpr (mode == UTF8_MODE_EXACT) {
        return utf8_is_equal(text, length, pattern, pattern_length);
    } else if constexpr (mode == UTF8_MODE_ASCII) {
        return length == pattern_length &&
               utf8_starts_with<mode>(text, length, pattern, pattern_length) != UTF8_NO_MATCH;
    } else {
        return utf8_starts_with<mode>(text, length, pattern, pattern_length) == static_cast<i32>(length);
    }
}

// --- Wildcards ---------------------------------------------------------------------------------------------

// How much of the text a pattern with wildcards has to cover.
enum utf8_wildcard_extent_t : u32 {
    UTF8_WILDCARD_WHOLE, // all of it
    UTF8_WILDCARD_FIND,  // any part
    UTF8_WILDCARD_WORD,  // any part between word borders
};

// One pass with the last star to return to. What stands in front of that star needs no second look: the parts
// between stars are matched as early as they can be, which leaves the most for those that follow. A search
// for a part starts as if a star stood in front of the pattern. True when there is a hit.
template<utf8_mode_t mode, utf8_wildcard_extent_t extent>
inline bool utf8_wildcard_match(const char *text, u32 length, const char *pattern, u32 pattern_length,
                                utf8_hit_t *hit) {
    const char *text_end = text + length;
    const char *pattern_end = pattern + pattern_length;
    const char *t = text;
    const char *p = pattern;
    bool has_star = extent != UTF8_WILDCARD_WHOLE;
    const char *star = pattern;   // the pattern behind the last star
    const char *star_text = text; // where that was tried last
    const char *hit_text = text;
    for (;;) {
        bool matched = false;
        if (p == pattern_end) {
            if (extent == UTF8_WILDCARD_FIND || t == text_end ||
                (extent == UTF8_WILDCARD_WORD && utf8_is_word_end(text_end, t, pattern, pattern_length))) {
                *hit = {hit_text, static_cast<u32>(t - hit_text)};
                return true;
            }
        } else if (extent == UTF8_WILDCARD_WORD && p == pattern &&
                   !utf8_is_word_start(text, t, pattern, pattern_length)) {
            // The first character begins no hit here.
        } else if (*p == '*') {
            has_star = true;
            star = ++p;
            star_text = t;
            if (p == pattern_end) { // it takes the rest
                *hit = {hit_text, static_cast<u32>(text_end - hit_text)};
                return true;
            }
            continue;
        } else if (t == text_end) {
            return false; // a later start leaves even less
        } else if (*p == '?') {
            t += utf8_char_length(t, text_end);
            p++;
            matched = true;
        } else {
            matched = utf8_match_char<mode>(&t, text_end, &p, pattern_end);
        }
        if (!matched) {
            if (!has_star || star_text == text_end) {
                return false;
            }
            star_text += utf8_char_length(star_text, text_end);
            t = star_text;
            p = star;
            if (star == pattern) {
                hit_text = t;
            }
        }
    }
}

// The pattern covers the whole text; any part of it; any part that stands between word borders.
template<utf8_mode_t mode>
inline bool utf8_wildcard(const char *text, u32 length, const char *pattern, u32 pattern_length) {
    utf8_hit_t hit;
    return utf8_wildcard_match<mode, UTF8_WILDCARD_WHOLE>(text, length, pattern, pattern_length, &hit);
}
template<utf8_mode_t mode>
inline bool utf8_wildcard_find(const char *text, u32 length, const char *pattern, u32 pattern_length) {
    utf8_hit_t hit;
    return utf8_wildcard_match<mode, UTF8_WILDCARD_FIND>(text, length, pattern, pattern_length, &hit);
}
template<utf8_mode_t mode>
inline bool utf8_wildcard_find_word(const char *text, u32 length, const char *pattern, u32 pattern_length) {
    utf8_hit_t hit;
    return utf8_wildcard_match<mode, UTF8_WILDCARD_WORD>(text, length, pattern, pattern_length, &hit);
}

// Makes one `*` of each run of them, in place, and returns the number of `*` and `?` that are left.
u32 utf8_wildcard_squeeze(char *pattern, u32 *length);
// Takes the stars off a squeezed pattern that is `*abc*` without other wildcards, in place. False, and no
// change, for any other.
bool utf8_wildcard_strip_stars(char *pattern, u32 *length);
// The pattern is `abc*`, or `*abc`, with no other wildcard.
bool utf8_wildcard_is_prefix(const char *pattern, u32 length);
bool utf8_wildcard_is_suffix(const char *pattern, u32 length);

} // namespace findwright
