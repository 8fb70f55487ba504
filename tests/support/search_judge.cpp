#include "support/search_judge.h"

#include "base/utf8.h"

#include <algorithm>
#include <cstdlib>

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

u32 lower_ascii(u8 byte) {
    return byte >= 'A' && byte <= 'Z' ? byte + 0x20u : byte;
}

bool is_word_value(u32 value) {
    return value == 0 || value >= 0x80 || value == '_' || (value >= '0' && value <= '9') ||
           (lower_ascii(static_cast<u8>(value)) >= 'a' && lower_ascii(static_cast<u8>(value)) <= 'z');
}

// --- Patterns ----------------------------------------------------------------------------------------------

constexpr u32 ONE = 0xFFFFFFFE, MANY = 0xFFFFFFFF; // in the place of a value

struct pattern_t {
    judge_mode_t mode;
    std::vector<u32> values;
    bool at_start, at_end; // of the text
    bool whole_word, has_wildcards;
    bool is_valid; // UTF-8
};

// The wildcards are told apart first, so that none becomes a part of a broken character in front of it.
pattern_t make_pattern(judge_mode_t mode, const std::string &text, bool wildcards) {
    pattern_t pattern = {mode, {}, false, false, false, false, true};
    for (size_t at = 0; at < text.size();) {
        if (wildcards && (text[at] == '*' || text[at] == '?')) {
            pattern.values.push_back(text[at++] == '*' ? MANY : ONE);
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

bool is_word_byte(const judge_text_t &text, size_t at) {
    return is_word_value(text.values[JUDGE_BYTES][at]);
}

bool begins_word(const pattern_t &pattern, const judge_text_t &text, size_t at) {
    const u32 first = pattern.values.front();
    return at == 0 || !is_word_byte(text, at - 1) || first == ONE || first == MANY || !is_word_value(first);
}
bool ends_word(const pattern_t &pattern, const judge_text_t &text, size_t at) {
    const u32 last = pattern.values.back();
    return at == text.bytes.size() || !is_word_byte(text, at) || last == ONE || last == MANY ||
           !is_word_value(last);
}

// Where the pattern's next part ends, for each place where it can begin. Places stand once, or where two ways
// lead to one place as often as there are ways.
void advance(const pattern_t &pattern, u32 value, const judge_text_t &text, bool by_bytes,
             std::vector<size_t> *places) {
    const size_t length = text.bytes.size();
    if (value == MANY) {
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
    const bool is_byte = value != ONE && (pattern.mode == JUDGE_BYTES || pattern.mode == JUDGE_ASCII);
    size_t count = 0;
    for (size_t place : *places) {
        if (place < length && (value == ONE || text.values[pattern.mode][place] == value))
            (*places)[count++] = place + (is_byte ? 1u : text.lengths[place]);
    }
    places->resize(count);
}

bool matches_moving(const pattern_t &pattern, const judge_text_t &text, bool by_bytes) {
    static std::vector<size_t> places;
    const bool word = pattern.whole_word;
    const u32 first = pattern.values.front();
    const bool is_literal = first != ONE && first != MANY;
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

// A search moves by characters. Among bytes that are no UTF-8 they depend on where one begins to read, and a
// search that moves by bytes is as good; where bytes are compared, plain text moves by bytes.
judge_answer_t matches(const pattern_t &pattern, const judge_text_t &text) {
    if (pattern.values.empty())
        return !pattern.at_start || !pattern.at_end ? JUDGE_YES : JUDGE_NO;
    const bool is_bytes =
        !pattern.has_wildcards && (pattern.mode == JUDGE_BYTES || pattern.mode == JUDGE_ASCII);
    const bool answer = matches_moving(pattern, text, is_bytes);
    if (!is_bytes && (!text.is_valid || !pattern.is_valid) && answer != matches_moving(pattern, text, true))
        return JUDGE_ANY;
    // A broken name that is read from its end may end with what it does not hold when it is read from its
    // front.
    const bool is_end = pattern.at_end && (!pattern.at_start || pattern.values.front() == MANY);
    if (!answer && is_end && !is_bytes && !text.is_valid)
        return JUDGE_ANY;
    return answer ? JUDGE_YES : JUDGE_NO;
}

// --- Regular expressions -----------------------------------------------------------------------------------

// Literals, `.`, `[...]` with ranges and `^`, each with `*`, `+` or `?` behind it, between `^` and `$`; `\`
// makes a literal of a sign. Anything else is not judged.
struct regex_part_t {
    bool any, negated;
    std::vector<std::pair<u32, u32>> ranges;
    char repeat; // 0, or one of * + ?
};
struct regex_t {
    bool known = true, at_start = false, at_end = false, match_case = false;
    std::vector<regex_part_t> parts;
};

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

regex_t parse_regex(const std::string &bytes, bool match_case) {
    regex_t regex;
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
        regex_part_t part = {};
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

bool regex_takes(const regex_t &regex, const regex_part_t &part, u32 value) {
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

// Which ends a match can have that begins at `start`, over the values of a valid text.
bool regex_from(const regex_t &regex, const std::vector<u32> &text, size_t start) {
    std::vector<bool> places(text.size() + 1);
    places[start] = true;
    for (const regex_part_t &part : regex.parts) {
        const bool optional = part.repeat == '*' || part.repeat == '?';
        const bool repeats = part.repeat == '*' || part.repeat == '+';
        std::vector<bool> next(places.size());
        for (size_t at = 0; at < places.size(); at++) {
            if (optional && places[at])
                next[at] = true;
            if (at < text.size() && (places[at] || (repeats && next[at])) &&
                regex_takes(regex, part, text[at]))
                next[at + 1] = true;
        }
        places = next;
    }
    return regex.at_end ? places.back() : std::find(places.begin(), places.end(), true) != places.end();
}

judge_answer_t regex_matches(const regex_t &regex, const judge_text_t &text) {
    if (!regex.known || !text.is_valid)
        return JUDGE_ANY;
    std::vector<u32> values;
    for (size_t at = 0; at < text.bytes.size(); at += text.lengths[at]) {
        u32 value;
        utf8_decode(text.bytes.data() + at, text.bytes.data() + text.bytes.size(), &value);
        values.push_back(value);
    }
    for (size_t at = 0; at <= (regex.at_start ? 0 : values.size()); at++) {
        if (regex_from(regex, values, at))
            return JUDGE_YES;
    }
    return JUDGE_NO;
}

// --- Terms -------------------------------------------------------------------------------------------------

enum where_t : u32 { IN_NAME, IN_PATH, IN_COMPONENT };

struct term_t {
    judge_flags_t flags;
    judge_function_t function = JUDGE_TEXT;
    bool is_any = false; // not judged at all
    // A path that no folder has: no file is found, not even by the term's negation.
    bool has_no_anchor = false;
    where_t where = IN_NAME;
    bool is_regex = false;
    regex_t regex;
    std::vector<pattern_t> patterns; // one of them must match
    bool no_dot = false;             // a name without a dot matches too
    i64 low = 0, high = 0;           // of JUDGE_LENGTH
};

judge_mode_t get_mode(const judge_flags_t &flags, const std::string &text) {
    const bool ascii =
        std::all_of(text.begin(), text.end(), [](char c) { return static_cast<u8>(c) < 0x80; });
    if (flags.match_case)
        return flags.diacritics ? JUDGE_BYTES : JUDGE_KEEP_CASE;
    return !flags.diacritics ? JUDGE_FOLD : flags.fast_ascii && ascii ? JUDGE_ASCII : JUDGE_LOWER;
}

bool has_drive(const std::string &text) {
    return text.size() >= 2 && text[1] == ':' && lower_ascii(static_cast<u8>(text[0])) >= 'a' &&
           lower_ascii(static_cast<u8>(text[0])) <= 'z';
}

bool begins_with(const judge_text_t &text, const std::string &start, judge_mode_t mode, bool whole) {
    pattern_t pattern = make_pattern(mode, start, false);
    pattern.at_start = true;
    pattern.at_end = whole;
    return matches(pattern, text) == JUDGE_YES;
}

// A drive, or a folder with its separator: the items below, told by the start of their paths.
void judge_anchor(term_t *term, const std::string &text, judge_mode_t mode, const judge_items_t &items) {
    const bool is_root = text.size() == 2;
    const std::string folder = is_root ? text : text.substr(0, text.size() - 1);
    term->has_no_anchor = std::none_of(items.begin(), items.end(), [&](const judge_item_t &item) {
        return item.is_folder && (is_root ? !item.parent && begins_with(item.path, folder, mode, false)
                                          : begins_with(item.path, folder, mode, true));
    });
}

// `\abc`, `abc\` and `\abc\`: what the name of an item or of a folder above it begins with, ends with, is.
bool judge_component(term_t *term, const std::string &text, judge_mode_t mode) {
    const size_t separators = static_cast<size_t>(std::count(text.begin(), text.end(), '\\'));
    const bool front = text.front() == '\\', back = text.back() == '\\';
    if (separators == 0 || text.size() == separators || separators != (front ? 1u : 0u) + (back ? 1u : 0u))
        return false;
    std::string inner = text.substr(front ? 1 : 0);
    if (back)
        inner.pop_back();
    pattern_t pattern = make_pattern(mode, inner, false);
    pattern.at_start = front;
    pattern.at_end = back;
    term->patterns = {pattern};
    term->where = IN_COMPONENT;
    return true;
}

// Text without wildcards between two stars.
bool is_open(const std::string &text) {
    return text.size() > 2 && text.front() == '*' && text.find_first_of("*?", 1) == text.size() - 1 &&
           text.back() == '*';
}

// A star at an end says nothing where the text may stand anywhere.
std::string strip_open_stars(const std::string &text, const judge_flags_t &flags) {
    if (!flags.wildcards)
        return text;
    if (is_open(text))
        return text.substr(1, text.size() - 2);
    const size_t wild = text.find_first_of("*?");
    const bool is_end = wild == 0 || wild == text.size() - 1;
    if (wild == std::string::npos || text[wild] != '*' || !is_end || flags.whole_name_wildcards ||
        flags.whole_word || text.find_first_of("*?", wild + 1) != std::string::npos)
        return text;
    return wild == 0 ? text.substr(1) : text.substr(0, wild);
}

void judge_path(term_t *term, std::string text, pattern_t *pattern, const judge_settings_t &settings,
                const judge_items_t &items) {
    const judge_flags_t &flags = term->flags;
    term->where = IN_PATH;
    if (flags.whole_word || flags.whole_name)
        return;
    text = strip_open_stars(text, flags);
    const size_t wild = flags.wildcards ? text.find_first_of("*?") : std::string::npos;
    const bool is_wild = wild != std::string::npos;
    if (is_wild && (text[wild] != '*' || wild != text.size() - 1))
        return;
    if (is_wild)
        text.pop_back();
    if (has_drive(text)) {
        term->is_any = text.size() > 2 && text[2] != '\\';
        pattern->at_start = true;
        if (settings.anchors && (text.size() == 2 || text.back() == '\\'))
            judge_anchor(term, text, pattern->mode, items);
    } else if (text.starts_with("\\\\")) {
        term->is_any = true;
    } else if (!is_wild && !text.empty() && settings.components) {
        judge_component(term, text, pattern->mode);
    }
}

term_t judge_text_term(std::string text, judge_flags_t flags, const judge_settings_t &settings,
                       const judge_items_t &items) {
    term_t term;
    if (settings.slash_is_separator)
        std::replace(text.begin(), text.end(), '/', '\\');
    if (flags.wildcards) {
        std::string collapsed;
        for (char c : text) {
            if (c != '*' || collapsed.empty() || collapsed.back() != '*')
                collapsed += c;
        }
        text = collapsed;
    }
    // What is open at both ends begins and ends nowhere.
    if (flags.wildcards && (text == "*" || is_open(text)))
        flags.whole_word = flags.whole_name = false;
    if (settings.separator_matches_path &&
        (has_drive(strip_open_stars(text, flags)) || text.find('\\') != std::string::npos))
        flags.path = true;
    term.flags = flags;
    const bool is_wild = flags.wildcards && text.find_first_of("*?") != std::string::npos;
    pattern_t pattern = make_pattern(get_mode(flags, text), text, flags.wildcards);
    pattern.at_start = pattern.at_end = is_wild ? flags.whole_name_wildcards : flags.whole_name;
    pattern.whole_word = flags.whole_word && !pattern.at_start;
    if (flags.path && !text.empty())
        judge_path(&term, text, &pattern, settings, items);
    if (term.patterns.empty())
        term.patterns = {pattern};
    return term;
}

term_t judge_regex_term(const std::string &text, judge_flags_t flags, const judge_settings_t &settings) {
    term_t term;
    flags.diacritics = true;
    flags.fast_ascii = false;
    if (text.find_first_of(".\\[^$*{?+|()") == std::string::npos) {
        term.patterns = {make_pattern(get_mode(flags, text), text, false)};
    } else {
        term.is_regex = true;
        term.regex = parse_regex(text, flags.match_case);
        flags.path = flags.path || (settings.separator_matches_path &&
                                    (has_drive(text) || text.find("\\\\") != std::string::npos));
    }
    term.where = flags.path ? IN_PATH : IN_NAME;
    term.flags = flags;
    return term;
}

term_t judge_function_term(judge_function_t function, const std::string &text, judge_flags_t flags) {
    term_t term;
    term.function = function;
    if (function == JUDGE_LENGTH) {
        const size_t dots = text.find("..");
        term.low = std::atoi(text.c_str());
        term.high = dots == std::string::npos ? term.low : std::atoi(text.c_str() + dots + 2);
    } else if (function == JUDGE_EXTENSION) {
        for (size_t at = 0; at < text.size() || at == 0;) {
            const size_t end = std::min(text.find(';', at), text.size());
            const std::string item = text.substr(at, end - at);
            term.no_dot = term.no_dot || item.empty();
            if (!item.empty()) {
                term.patterns.push_back(make_pattern(get_mode(flags, text), "." + item, false));
                term.patterns.back().at_end = true;
            }
            at = end + 1;
        }
        flags.file_only = true;
        flags.path = false;
    } else {
        flags.fast_ascii = false;
        term.patterns = {make_pattern(get_mode(flags, text), text, false)};
        (function == JUDGE_STARTS_WITH ? term.patterns[0].at_start : term.patterns[0].at_end) = true;
    }
    term.where = flags.path ? IN_PATH : IN_NAME;
    term.flags = flags;
    return term;
}

i64 utf16_length(const judge_text_t &text, bool *known) {
    i64 count = 0;
    for (size_t at = 0; at < text.bytes.size(); at += text.lengths[at]) {
        u32 value;
        utf8_decode(text.bytes.data() + at, text.bytes.data() + text.bytes.size(), &value);
        *known = *known && value <= 0x10FFFF;
        count += value >= 0x10000 ? 2 : 1;
    }
    return count;
}

judge_answer_t judge_term(const term_t &term, const judge_item_t &item) {
    if (item.is_folder ? term.flags.file_only : term.flags.folder_only)
        return JUDGE_NO;
    if (term.is_any)
        return JUDGE_ANY;
    const judge_text_t &text = term.where == IN_PATH ? item.path : item.name;
    if (term.is_regex)
        return regex_matches(term.regex, text);
    if (term.function == JUDGE_LENGTH) {
        bool known = true;
        const i64 length = utf16_length(text, &known);
        return !known ? JUDGE_ANY : length >= term.low && length <= term.high ? JUDGE_YES : JUDGE_NO;
    }
    if (term.no_dot && text.bytes.find('.') == std::string::npos)
        return JUDGE_YES;
    const judge_item_t *component = &item;
    judge_answer_t best = JUDGE_NO;
    do {
        for (const pattern_t &pattern : term.patterns) {
            judge_answer_t answer = matches(pattern, term.where == IN_COMPONENT ? component->name : text);
            // Where a name is broken at its end, a path may be read either way.
            if (term.where == IN_PATH && !text.is_valid && answer != matches(pattern, item.flat_path))
                answer = JUDGE_ANY;
            if (answer == JUDGE_YES)
                return JUDGE_YES;
            best = std::max(best, answer);
        }
        component = component->parent;
    } while (term.where == IN_COMPONENT && component);
    return best;
}

// --- Expressions -------------------------------------------------------------------------------------------

judge_answer_t negate(judge_answer_t answer) {
    return answer == JUDGE_ANY ? JUDGE_ANY : answer == JUDGE_YES ? JUDGE_NO : JUDGE_YES;
}

// A negation reaches the terms: what a term without an anchor says of files does not turn.
std::vector<judge_answer_t> judge_leaf(const judge_node_t &node, const judge_flags_t &flags, bool negated,
                                       const judge_settings_t &settings, const judge_items_t &items) {
    const term_t term = node.function != JUDGE_TEXT ? judge_function_term(node.function, node.text, flags)
                        : flags.regex               ? judge_regex_term(node.text, flags, settings)
                                                    : judge_text_term(node.text, flags, settings, items);
    std::vector<judge_answer_t> answers;
    for (const judge_item_t &item : items) {
        judge_answer_t answer = judge_term(term, item);
        const bool is_dead = term.has_no_anchor && !item.is_folder && !term.flags.folder_only;
        answers.push_back(is_dead ? JUDGE_NO : negated ? negate(answer) : answer);
    }
    return answers;
}

// Modifiers: the outer one has the last word. `modifiers` are those around the node, the outermost first.
std::vector<judge_answer_t> judge_node(const judge_node_t &node, const judge_flags_t &flags,
                                       std::vector<std::string> modifiers, bool negated,
                                       const judge_settings_t &settings, const judge_items_t &items) {
    if (node.kind == JUDGE_TERM) {
        judge_flags_t own = flags;
        for (size_t i = modifiers.size(); i-- > 0;)
            judge_apply(&own, modifiers[i]);
        return judge_leaf(node, own, negated, settings, items);
    }
    if (node.kind == JUDGE_MODIFIED)
        modifiers.push_back(node.text);
    if (node.kind == JUDGE_MODIFIED || node.kind == JUDGE_NOT)
        return judge_node(node.nodes[0], flags, modifiers, negated != (node.kind == JUDGE_NOT), settings,
                          items);
    const bool is_and = (node.kind == JUDGE_AND) != negated;
    const judge_answer_t decides = is_and ? JUDGE_NO : JUDGE_YES;
    std::vector<judge_answer_t> answers;
    for (const judge_node_t &part : node.nodes) {
        const std::vector<judge_answer_t> more = judge_node(part, flags, modifiers, negated, settings, items);
        if (answers.empty())
            answers = more;
        for (size_t i = 0; i < more.size(); i++) {
            if (answers[i] != decides && (more[i] == decides || more[i] == JUDGE_ANY))
                answers[i] = more[i];
        }
    }
    return answers;
}

} // namespace

judge_text_t judge_text(const std::string &bytes) {
    judge_text_t text;
    text.bytes = bytes;
    text.is_valid = is_strictly_utf8(bytes);
    for (size_t at = 0; at < bytes.size(); at++) {
        u32 value;
        const u8 byte = static_cast<u8>(bytes[at]);
        text.lengths.push_back(
            static_cast<u8>(utf8_decode(bytes.data() + at, bytes.data() + bytes.size(), &value)));
        for (judge_mode_t mode : {JUDGE_FOLD, JUDGE_KEEP_CASE, JUDGE_LOWER})
            text.values[mode].push_back(fold(mode, value));
        text.values[JUDGE_BYTES].push_back(byte);
        text.values[JUDGE_ASCII].push_back(lower_ascii(byte));
    }
    return text;
}

judge_text_t judge_join(const judge_text_t &path, const judge_text_t &name) {
    judge_text_t joined = path;
    for (const judge_text_t &text : {judge_text("\\"), name}) {
        joined.bytes += text.bytes;
        joined.is_valid = joined.is_valid && text.is_valid;
        joined.lengths.insert(joined.lengths.end(), text.lengths.begin(), text.lengths.end());
        for (u32 mode = 0; mode < JUDGE_MODES; mode++)
            joined.values[mode].insert(joined.values[mode].end(), text.values[mode].begin(),
                                       text.values[mode].end());
    }
    return joined;
}

bool judge_apply(judge_flags_t *flags, const std::string &modifier) {
    const struct {
        const char *text;
        bool judge_flags_t::*flag;
        bool value;
    } modifiers[] = {
        {"case:", &judge_flags_t::match_case, true},
        {"nocase:", &judge_flags_t::match_case, false},
        {"path:", &judge_flags_t::path, true},
        {"nopath:", &judge_flags_t::path, false},
        {"file:", &judge_flags_t::file_only, true},
        {"folder:", &judge_flags_t::folder_only, true},
        {"nofileonly:", &judge_flags_t::file_only, false},
        {"nofolderonly:", &judge_flags_t::folder_only, false},
        {"regex:", &judge_flags_t::regex, true},
        {"noregex:", &judge_flags_t::regex, false},
        {"diacritics:", &judge_flags_t::diacritics, true},
        {"nodiacritics:", &judge_flags_t::diacritics, false},
        {"ww:", &judge_flags_t::whole_word, true},
        {"wholeword:", &judge_flags_t::whole_word, true},
        {"noww:", &judge_flags_t::whole_word, false},
        {"ascii:", &judge_flags_t::fast_ascii, true},
        {"noascii:", &judge_flags_t::fast_ascii, false},
        {"utf8:", &judge_flags_t::fast_ascii, false},
        {"wildcards:", &judge_flags_t::wildcards, true},
        {"nowildcards:", &judge_flags_t::wildcards, false},
        {"wfn:", &judge_flags_t::whole_name, true},
        {"exact:", &judge_flags_t::whole_name, true},
        {"nowfn:", &judge_flags_t::whole_name, false},
    };
    for (const auto &known : modifiers) {
        if (modifier != known.text)
            continue;
        flags->*known.flag = known.value;
        if (known.flag == &judge_flags_t::whole_name)
            flags->whole_name_wildcards = known.value;
        return true;
    }
    return false;
}

std::vector<judge_answer_t> judge_search(const judge_node_t &search, const judge_flags_t &flags,
                                         const judge_settings_t &settings, const judge_items_t &items) {
    return judge_node(search, flags, {}, false, settings, items);
}

} // namespace findwright
