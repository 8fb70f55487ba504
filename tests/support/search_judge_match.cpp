// Texts as characters, and patterns run over them.
#include "support/search_judge_internal.h"

#include "base/utf8.h"

#include <algorithm>

namespace findwright {
namespace {

// --- Texts -------------------------------------------------------------------------------------------------

bool is_strictly_utf8(const std::string &bytes) {
    for (size_t at = 0; at < bytes.size();) {
        u32 value;
        const char *text = bytes.data() + at;
        const u32 length = utf8_decode(text, bytes.data() + bytes.size(), &value);
        for (u32 i = 1; i < length; i++) {
            if ((text[i] & 0xC0) != 0x80)
                return false;
        }
        if ((length == 1 && static_cast<u8>(*text) >= 0x80) || utf8_encoded_length(value) != length ||
            value > 0x10FFFF || (value >= 0xD800 && value < 0xE000))
            return false;
        at += length;
    }
    return true;
}

u32 fold(judge_mode_t mode, u32 value) {
    switch (mode) {
    case JUDGE_FOLD: return utf8_to_fold(value);
    case JUDGE_KEEP_CASE: return utf8_to_fold_keep_case(value);
    default: return utf8_to_lower(value);
    }
}

bool is_word_value(u32 value) {
    return value == 0 || value >= 0x80 || value == '_' || (value >= '0' && value <= '9') ||
           (judge_lower_ascii(static_cast<u8>(value)) >= 'a' &&
            judge_lower_ascii(static_cast<u8>(value)) <= 'z');
}

// --- Patterns ----------------------------------------------------------------------------------------------

bool is_word_byte(const judge_text_t &text, size_t at) {
    return is_word_value(text.values[JUDGE_BYTES][at]);
}

bool begins_word(const judge_pattern_t &pattern, const judge_text_t &text, size_t at) {
    const u32 first = pattern.values.front();
    return at == 0 || !is_word_byte(text, at - 1) || first == JUDGE_ONE || first == JUDGE_MANY ||
           !is_word_value(first);
}
bool ends_word(const judge_pattern_t &pattern, const judge_text_t &text, size_t at) {
    const u32 last = pattern.values.back();
    return at == text.bytes.size() || !is_word_byte(text, at) || last == JUDGE_ONE || last == JUDGE_MANY ||
           !is_word_value(last);
}

// Where the pattern's next part ends, for each place where it can begin. Places stand once, or where two ways
// lead to one place as often as there are ways.
void advance(const judge_pattern_t &pattern, u32 value, const judge_text_t &text, bool by_bytes,
             std::vector<size_t> *places) {
    const size_t length = text.bytes.size();
    if (value == JUDGE_MANY) {
        std::vector<bool> reached(length + 1);
        for (size_t place : *places) {
            for (; !reached[place]; place += by_bytes ? 1u : text.lengths[place]) {
                reached[place] = true;
                if (place == length)
                    break;
            }
        }
        places->clear();
        for (size_t place = 0; place <= length; place++) {
            if (reached[place])
                places->push_back(place);
        }
        return;
    }
    const bool is_byte = value != JUDGE_ONE && (pattern.mode == JUDGE_BYTES || pattern.mode == JUDGE_ASCII);
    size_t count = 0;
    for (size_t place : *places) {
        if (place < length && (value == JUDGE_ONE || text.values[pattern.mode][place] == value))
            (*places)[count++] = place + (is_byte ? 1u : text.lengths[place]);
    }
    places->resize(count);
}

bool matches_moving(const judge_pattern_t &pattern, const judge_text_t &text, bool by_bytes) {
    static std::vector<size_t> places;
    const bool word = pattern.whole_word;
    const u32 first = pattern.values.front();
    const bool is_literal = first != JUDGE_ONE && first != JUDGE_MANY;
    const size_t last_start = pattern.at_start ? 0 : text.bytes.size();
    places.clear();
    for (size_t at = 0; at <= last_start;) {
        const bool may_begin =
            !is_literal || (at < text.bytes.size() && text.values[pattern.mode][at] == first);
        if (may_begin && (!word || begins_word(pattern, text, at)))
            places.push_back(at);
        at += !by_bytes && at < text.bytes.size() ? text.lengths[at] : 1u;
    }
    for (u32 value : pattern.values) {
        advance(pattern, value, text, by_bytes, &places);
        if (places.empty())
            return false;
    }
    return std::any_of(places.begin(), places.end(), [&](size_t place) {
        return (!pattern.at_end || place == text.bytes.size()) && (!word || ends_word(pattern, text, place));
    });
}

} // namespace

u32 judge_lower_ascii(u8 byte) {
    return byte >= 'A' && byte <= 'Z' ? byte + 0x20u : byte;
}

// The wildcards are told apart first, so that none becomes a part of a broken character in front of it.
judge_pattern_t judge_make_pattern(judge_mode_t mode, const std::string &text, bool wildcards) {
    judge_pattern_t pattern = {mode, {}, false, false, false, false, true};
    for (size_t at = 0; at < text.size();) {
        if (wildcards && (text[at] == '*' || text[at] == '?')) {
            pattern.values.push_back(text[at++] == '*' ? JUDGE_MANY : JUDGE_ONE);
            pattern.has_wildcards = true;
            continue;
        }
        const size_t end = wildcards ? std::min(text.find_first_of("*?", at), text.size()) : text.size();
        const judge_text_t piece = judge_text(text.substr(at, end - at));
        pattern.is_valid = pattern.is_valid && piece.is_valid;
        for (size_t i = 0; i < piece.bytes.size();) {
            pattern.values.push_back(piece.values[mode][i]);
            i += mode == JUDGE_BYTES || mode == JUDGE_ASCII ? 1u : piece.lengths[i];
        }
        at = end;
    }
    return pattern;
}

// A search moves by characters. Among bytes that are no UTF-8 they depend on where one begins to read, and a
// search that moves by bytes is as good; where bytes are compared, plain text moves by bytes.
judge_answer_t judge_matches(const judge_pattern_t &pattern, const judge_text_t &text) {
    if (pattern.values.empty())
        return !pattern.at_start || !pattern.at_end ? JUDGE_YES : JUDGE_NO;
    const bool is_bytes =
        !pattern.has_wildcards && (pattern.mode == JUDGE_BYTES || pattern.mode == JUDGE_ASCII);
    const bool answer = matches_moving(pattern, text, is_bytes);
    if (!is_bytes && (!text.is_valid || !pattern.is_valid) && answer != matches_moving(pattern, text, true))
        return JUDGE_ANY;
    // A broken name that is read from its end may end with what it does not hold when it is read from its
    // front.
    const bool is_end = pattern.at_end && (!pattern.at_start || pattern.values.front() == JUDGE_MANY);
    if (!answer && is_end && !is_bytes && !text.is_valid)
        return JUDGE_ANY;
    return answer ? JUDGE_YES : JUDGE_NO;
}

judge_mode_t judge_get_mode(const judge_flags_t &flags, const std::string &text) {
    const bool ascii =
        std::all_of(text.begin(), text.end(), [](char c) { return static_cast<u8>(c) < 0x80; });
    if (flags.match_case)
        return flags.diacritics ? JUDGE_BYTES : JUDGE_KEEP_CASE;
    return !flags.diacritics ? JUDGE_FOLD : flags.fast_ascii && ascii ? JUDGE_ASCII : JUDGE_LOWER;
}

judge_text_t judge_text(const std::string &bytes) {
    judge_text_t text;
    text.bytes = bytes;
    text.is_valid = is_strictly_utf8(bytes);
    text.lengths.resize(bytes.size());
    for (std::vector<u32> &values : text.values)
        values.resize(bytes.size());
    for (size_t at = 0; at < bytes.size(); at++) {
        u32 value;
        const u8 byte = static_cast<u8>(bytes[at]);
        text.lengths[at] =
            static_cast<u8>(utf8_decode(bytes.data() + at, bytes.data() + bytes.size(), &value));
        for (judge_mode_t mode : {JUDGE_FOLD, JUDGE_KEEP_CASE, JUDGE_LOWER})
            text.values[mode][at] = fold(mode, value);
        text.values[JUDGE_BYTES][at] = byte;
        text.values[JUDGE_ASCII][at] = judge_lower_ascii(byte);
    }
    return text;
}

judge_text_t judge_join(const judge_text_t &path, const judge_text_t &name) {
    judge_text_t joined = path;
    static const judge_text_t separator = judge_text("\\");
    for (const judge_text_t *part : {&separator, &name}) {
        const judge_text_t &text = *part;
        joined.bytes += text.bytes;
        joined.is_valid = joined.is_valid && text.is_valid;
        joined.lengths.insert(joined.lengths.end(), text.lengths.begin(), text.lengths.end());
        for (u32 mode = 0; mode < JUDGE_MODES; mode++)
            joined.values[mode].insert(joined.values[mode].end(), text.values[mode].begin(),
                                       text.values[mode].end());
    }
    return joined;
}

} // namespace findwright
