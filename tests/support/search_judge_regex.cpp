// Regular expressions, over the sets of places that they can have reached.
#include "support/search_judge_internal.h"

#include "base/utf8.h"

#include <algorithm>

namespace findwright {
namespace {

// Letters that are one letter in another case, of the scripts that the tests use.
u32 regex_fold(u32 value) {
    const auto in = [value](u32 first, u32 last) { return value >= first && value <= last; };
    if (in('A', 'Z') || in(0xC0, 0xD6) || in(0xD8, 0xDE) || in(0x391, 0x3A9) || in(0x410, 0x42F) ||
        in(0xFF21, 0xFF3A))
        return value + 0x20;
    switch (value) {
    case 0x17F: return 's';
    case 0x212A: return 'k';
    case 0x212B: return 0xE5;
    case 0x2126: return 0x3C9;
    case 0x1E9E: return 0xDF;
    case 0x23A: return 0x2C65;
    case 0x386: return 0x3AC;
    case 0x38F: return 0x3CE;
    case 0x3C2: return 0x3C3;
    case 0x1C4: return 0x1C6;
    case 0x1C5: return 0x1C6;
    case 0xB5: return 0x3BC;
    case 0x24C0: return 0x24DA;
    default: return in(0x400, 0x40F) ? value + 0x50 : value;
    }
}

bool regex_takes(const judge_regex_t &regex, const judge_regex_part_t &part, u32 value) {
    if (part.any)
        return true;
    bool found = false;
    for (auto [first, last] : part.ranges) {
        found = found || (value >= first && value <= last);
        for (u32 member = first; !regex.match_case && !found && member <= last; member++)
            found = regex_fold(member) == regex_fold(value);
    }
    return found != part.negated;
}

// A place of the text that a match can have reached, from any start, is a 1 in `places`.
bool regex_reaches(const judge_regex_t &regex, const std::vector<u32> &text) {
    static std::vector<u8> places, next;
    places.assign(text.size() + 1, !regex.at_start);
    places[0] = 1;
    for (const judge_regex_part_t &part : regex.parts) {
        const bool optional = part.repeat == '*' || part.repeat == '?';
        const bool repeats = part.repeat == '*' || part.repeat == '+';
        next.assign(places.size(), 0);
        for (size_t at = 0; at < places.size(); at++) {
            next[at] |= optional && places[at];
            if (at < text.size() && (places[at] || (repeats && next[at])) &&
                regex_takes(regex, part, text[at]))
                next[at + 1] = 1;
        }
        places.swap(next);
        if (std::find(places.begin(), places.end(), 1) == places.end())
            return false;
    }
    return !regex.at_end || places.back();
}

} // namespace

judge_regex_t judge_regex_parse(const std::string &bytes, bool match_case) {
    judge_regex_t regex;
    regex.match_case = match_case;
    std::vector<u32> text;
    const judge_text_t decoded = judge_text(bytes);
    regex.known = decoded.is_valid;
    for (size_t at = 0; at < bytes.size(); at += decoded.lengths[at]) {
        u32 value;
        utf8_decode(bytes.data() + at, bytes.data() + bytes.size(), &value);
        text.push_back(value);
    }
    size_t at = 0, end = text.size();
    const auto is_sign = [](u32 c) {
        return c < 0x80 && c &&
               std::string("\\[]^$*+?{}()|.").find(static_cast<char>(c)) != std::string::npos;
    };
    if (at < end && text[at] == '^') {
        regex.at_start = true;
        at++;
    }
    if (end > at && text[end - 1] == '$' && !(end > at + 1 && text[end - 2] == '\\')) {
        regex.at_end = true;
        end--;
    }
    while (at < end && regex.known) {
        judge_regex_part_t part = {};
        const u32 value = text[at++];
        if (value == '.') {
            part.any = true;
        } else if (value == '[') {
            if (at < end && text[at] == '^') {
                part.negated = true;
                at++;
            }
            for (; at < end && text[at] != ']'; at++) {
                u32 last = text[at];
                if (at + 2 < end && text[at + 1] == '-' && text[at + 2] != ']')
                    last = text[at + 2];
                regex.known = regex.known && last >= text[at] && text[at] != '[' && text[at] != '\\' &&
                              text[at] != '-' && last != '\\' && last != '[';
                part.ranges.push_back({text[at], last});
                if (last != text[at])
                    at += 2;
            }
            regex.known = regex.known && at < end && !part.ranges.empty();
            at++;
        } else if (value == '\\') {
            regex.known = at < end && is_sign(text[at]);
            if (regex.known)
                part.ranges.push_back({text[at], text[at]});
            at++;
        } else {
            regex.known = !is_sign(value) || value == ']' || value == '}';
            part.ranges.push_back({value, value});
        }
        if (at < end && (text[at] == '*' || text[at] == '+' || text[at] == '?'))
            part.repeat = static_cast<char>(text[at++]);
        regex.parts.push_back(part);
    }
    return regex;
}

judge_answer_t judge_regex_matches(const judge_regex_t &regex, const judge_text_t &text) {
    if (!regex.known || !text.is_valid)
        return JUDGE_ANY;
    static std::vector<u32> values;
    values.clear();
    for (size_t at = 0; at < text.bytes.size(); at += text.lengths[at]) {
        u32 value;
        utf8_decode(text.bytes.data() + at, text.bytes.data() + text.bytes.size(), &value);
        values.push_back(value);
    }
    return regex_reaches(regex, values) ? JUDGE_YES : JUDGE_NO;
}

} // namespace findwright
