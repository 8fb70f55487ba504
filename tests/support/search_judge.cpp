#include "support/search_judge.h"

#include "support/search_judge_internal.h"

#include <algorithm>

namespace findwright {
namespace {

// --- Terms of text -----------------------------------------------------------------------------------------

bool has_drive(const std::string &text) {
    return text.size() >= 2 && text[1] == ':' && judge_lower_ascii(static_cast<u8>(text[0])) >= 'a' &&
           judge_lower_ascii(static_cast<u8>(text[0])) <= 'z';
}

bool begins_with(const judge_text_t &text, const std::string &start, judge_mode_t mode, bool whole) {
    judge_pattern_t pattern = judge_make_pattern(mode, start, false);
    pattern.at_start = true;
    pattern.at_end = whole;
    return judge_matches(pattern, text) == JUDGE_YES;
}

// A drive, or a folder with its separator: the items below, told by the start of their paths.
void judge_anchor(judge_term_t *term, const std::string &text, judge_mode_t mode,
                  const judge_items_t &items) {
    const bool is_root = text.size() == 2;
    const std::string folder = is_root ? text : text.substr(0, text.size() - 1);
    term->has_no_anchor = std::none_of(items.begin(), items.end(), [&](const judge_item_t &item) {
        return item.is_folder && (is_root ? !item.parent && begins_with(item.path, folder, mode, false)
                                          : begins_with(item.path, folder, mode, true));
    });
}

// `\abc`, `abc\` and `\abc\`: what the name of an item or of a folder above it begins with, ends with, is.
bool judge_component(judge_term_t *term, const std::string &text, judge_mode_t mode) {
    const size_t separators = static_cast<size_t>(std::count(text.begin(), text.end(), '\\'));
    const bool front = text.front() == '\\', back = text.back() == '\\';
    if (separators == 0 || text.size() == separators || separators != (front ? 1u : 0u) + (back ? 1u : 0u))
        return false;
    std::string inner = text.substr(front ? 1 : 0);
    if (back)
        inner.pop_back();
    judge_pattern_t pattern = judge_make_pattern(mode, inner, false);
    pattern.at_start = front;
    pattern.at_end = back;
    term->patterns = {pattern};
    term->where = JUDGE_IN_COMPONENT;
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

void judge_path(judge_term_t *term, std::string text, judge_pattern_t *pattern, const judge_items_t &items) {
    const judge_flags_t &flags = term->flags;
    term->where = JUDGE_IN_PATH;
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
        if (text.size() == 2 || text.back() == '\\')
            judge_anchor(term, text, pattern->mode, items);
    } else if (text.starts_with("\\\\")) {
        term->is_any = true;
    } else if (!is_wild && !text.empty()) {
        judge_component(term, text, pattern->mode);
    }
}

// Bytes that are no UTF-8 may hold a wildcard or hide one: behind a cut sequence it may be read as one of the
// bytes that are missing, and a sequence longer than it need be can stand for one.
bool has_torn_wildcard(const std::string &text) {
    const judge_text_t whole = judge_text(text);
    for (size_t at = 0; at < text.size(); at += whole.lengths[at]) {
        const u32 value = whole.values[JUDGE_LOWER][at];
        if (whole.lengths[at] > 1 &&
            (value == '*' || value == '?' ||
             text.substr(at, whole.lengths[at]).find_first_of("*?", 1) != std::string::npos))
            return true;
    }
    return false;
}

judge_term_t judge_text_term(std::string text, judge_flags_t flags, const judge_settings_t &settings,
                             const judge_items_t &items) {
    judge_term_t term;
    term.is_any = flags.wildcards && has_torn_wildcard(text);
    if (term.is_any) {
        term.flags = flags;
        return term;
    }
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
    judge_pattern_t pattern = judge_make_pattern(judge_get_mode(flags, text), text, flags.wildcards);
    pattern.at_start = pattern.at_end = is_wild ? flags.whole_name_wildcards : flags.whole_name;
    pattern.whole_word = flags.whole_word && !pattern.at_start;
    if (flags.path && !text.empty())
        judge_path(&term, text, &pattern, items);
    if (term.patterns.empty())
        term.patterns = {pattern};
    return term;
}

judge_term_t judge_regex_term(const std::string &text, judge_flags_t flags,
                              const judge_settings_t &settings) {
    judge_term_t term;
    flags.diacritics = true;
    flags.fast_ascii = false;
    if (text.find_first_of(".\\[^$*{?+|()") == std::string::npos) {
        term.patterns = {judge_make_pattern(judge_get_mode(flags, text), text, false)};
    } else {
        term.is_regex = true;
        term.regex = judge_regex_parse(text, flags.match_case);
    }
    flags.path = flags.path || (settings.separator_matches_path &&
                                (has_drive(text) || text.find("\\\\") != std::string::npos));
    term.where = flags.path ? JUDGE_IN_PATH : JUDGE_IN_NAME;
    term.flags = flags;
    return term;
}

// --- Expressions -------------------------------------------------------------------------------------------

judge_answer_t negate(judge_answer_t answer) {
    return answer == JUDGE_ANY ? JUDGE_ANY : answer == JUDGE_YES ? JUDGE_NO : JUDGE_YES;
}

// A negation reaches the terms: what a term without an anchor says of files does not turn.
std::vector<judge_answer_t> judge_leaf(const judge_node_t &node, const judge_flags_t &flags, bool negated,
                                       const judge_settings_t &settings, const judge_items_t &items) {
    const judge_term_t term = node.function == JUDGE_TEXT ? judge_make_term(node.text, flags, settings, items)
                                                          : judge_make_function_term(node.function, node.text,
                                                                                     flags, settings, items);
    std::vector<judge_answer_t> answers;
    for (const judge_item_t &item : items) {
        const bool is_excluded = item.is_folder ? term.flags.file_only : term.flags.folder_only;
        const judge_answer_t answer = is_excluded            ? JUDGE_NO
                                      : term.answers.empty() ? judge_term_text(term, item)
                                                             : term.answers[answers.size()];
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

judge_term_t judge_make_term(const std::string &text, const judge_flags_t &flags,
                             const judge_settings_t &settings, const judge_items_t &items) {
    return flags.regex ? judge_regex_term(text, flags, settings)
                       : judge_text_term(text, flags, settings, items);
}

static judge_answer_t judge_extension(const judge_term_t &term, const judge_text_t &name) {
    size_t dot = name.bytes.find('.');
    if (dot == std::string::npos && term.no_dot)
        return JUDGE_YES;
    // Where the characters of a broken name begin depends on the end that it is read from.
    judge_answer_t best = name.is_valid ? JUDGE_NO : JUDGE_ANY;
    for (; dot != std::string::npos; dot = name.bytes.find('.', dot + 1)) {
        const judge_text_t extension = judge_text(name.bytes.substr(dot + 1));
        for (const judge_pattern_t &pattern : term.patterns) {
            const judge_answer_t answer = judge_matches(pattern, extension);
            if (answer == JUDGE_YES)
                return JUDGE_YES;
            best = std::max(best, answer);
        }
    }
    return best;
}

judge_answer_t judge_term_text(const judge_term_t &term, const judge_item_t &item) {
    if (term.is_any)
        return JUDGE_ANY;
    if (term.is_extension)
        return judge_extension(term, item.name);
    const judge_text_t &text = term.where == JUDGE_IN_PATH ? item.path : item.name;
    if (term.is_regex)
        return judge_regex_matches(term.regex, text);
    const judge_item_t *component = &item;
    judge_answer_t best = JUDGE_NO;
    do {
        for (const judge_pattern_t &pattern : term.patterns) {
            judge_answer_t answer =
                judge_matches(pattern, term.where == JUDGE_IN_COMPONENT ? component->name : text);
            // Where a name is broken at its end, a path may be read either way.
            if (term.where == JUDGE_IN_PATH && !text.is_valid &&
                answer != judge_matches(pattern, item.flat_path))
                answer = JUDGE_ANY;
            if (answer == JUDGE_YES)
                return JUDGE_YES;
            best = std::max(best, answer);
        }
        component = component->parent;
    } while (term.where == JUDGE_IN_COMPONENT && component);
    return best;
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
