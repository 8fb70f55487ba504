// What functions say: of the item's name and path, of its place, of what is in a folder, of its duplicates.
#include "support/search_judge_internal.h"

#include "base/utf8.h"

#include <map>

namespace findwright {
namespace {

// --- Counts ------------------------------------------------------------------------------------------------

constexpr i64 MOST = 0x7FFFFFFF;

struct range_t {
    i64 low, high;
};

i64 read_number(const std::string &text, size_t *at) {
    i64 value = 0;
    for (; *at < text.size() && ((text[*at] >= '0' && text[*at] <= '9') || text[*at] == ','); ++*at)
        value = text[*at] == ',' ? value : value * 10 + (text[*at] - '0');
    return value;
}

range_t read_range(const std::string &text) {
    if (text.empty())
        return {1, MOST};
    size_t at = 0;
    const bool less = text[0] == '<', more = text[0] == '>';
    at += less || more;
    const bool equal = at < text.size() && text[at] == '=';
    while (at < text.size() && text[at] == '=')
        at++;
    const i64 first = read_number(text, &at);
    i64 last = first;
    if (text.compare(at, 2, "..") == 0)
        last = read_number(text, &(at += 2));
    else if (at < text.size() && text[at] == '-')
        last = read_number(text, &++at);
    if (more)
        return {equal ? first : last + 1, MOST};
    if (less)
        return {0, equal ? last : first - 1};
    return {first, last};
}

bool is_in(range_t range, i64 value) {
    return value >= range.low && value <= range.high;
}

i64 count_units(const judge_text_t &text) {
    i64 count = 0;
    for (size_t at = 0; at < text.bytes.size(); at += text.lengths[at]) {
        u32 value;
        utf8_decode(text.bytes.data() + at, text.bytes.data() + text.bytes.size(), &value);
        if (value > 0x10FFFF)
            return -1; // there are no units for it
        count += value >= 0x10000 ? 2 : 1;
    }
    return count;
}

// --- Items -------------------------------------------------------------------------------------------------

judge_answer_t get_answer(bool answer) {
    return answer ? JUDGE_YES : JUDGE_NO;
}

// What one item says of itself.
judge_answer_t judge_own(judge_function_t function, range_t range, bool path, const judge_item_t &item) {
    if (function == JUDGE_ROOT)
        return get_answer(!item.parent);
    i64 count = 0;
    if (function == JUDGE_PARENTS || function == JUDGE_DEPTH) {
        for (const judge_item_t *parent = item.parent; parent; parent = parent->parent)
            count++;
    } else {
        count = count_units(path ? item.path : item.name);
    }
    return count < 0 ? JUDGE_ANY : get_answer(is_in(range, count));
}

std::vector<judge_answer_t> judge_counts(judge_function_t function, range_t range,
                                         const judge_items_t &items) {
    std::vector<i64> counts(items.size());
    for (const judge_item_t &item : items) {
        const bool is_counted =
            item.is_folder ? function != JUDGE_CHILD_FILES : function != JUDGE_CHILD_FOLDERS;
        if (item.parent && is_counted)
            counts[static_cast<size_t>(item.parent - items.data())]++;
    }
    std::vector<judge_answer_t> answers;
    for (i64 count : counts)
        answers.push_back(get_answer(is_in(range, count)));
    return answers;
}

// The folders with an item whose name the text finds.
std::vector<judge_answer_t> judge_child(const std::string &text, judge_flags_t flags,
                                        judge_settings_t settings, const judge_items_t &items) {
    flags.path = settings.separator_matches_path = false;
    const judge_term_t term = judge_make_term(text, flags, settings, items);
    std::vector<judge_answer_t> answers(items.size(), JUDGE_NO);
    for (const judge_item_t &item : items) {
        if (!item.parent)
            continue;
        judge_answer_t &answer = answers[static_cast<size_t>(item.parent - items.data())];
        const judge_answer_t own = judge_term_text(term, item);
        if (answer != JUDGE_YES && own != JUDGE_NO)
            answer = own;
    }
    return answers;
}

std::vector<judge_answer_t> judge_dupes(judge_function_t function, const judge_items_t &items) {
    using key_t = std::pair<bool, std::vector<u32>>;
    std::map<key_t, u32> counts;
    std::vector<u32 *> counts_of;
    for (const judge_item_t &item : items) {
        const std::string &name = item.name.bytes;
        const bool is_part = function == JUDGE_DUPE_NAME_PART && !item.is_folder;
        const judge_text_t part = judge_text(is_part ? name.substr(0, name.rfind('.')) : name);
        key_t key = {item.is_folder, {}};
        for (size_t at = 0; at < part.bytes.size(); at += part.lengths[at])
            key.second.push_back(part.values[JUDGE_FOLD][at]);
        counts_of.push_back(&counts[key]);
        ++*counts_of.back();
    }
    std::vector<judge_answer_t> answers;
    for (const u32 *count : counts_of)
        answers.push_back(get_answer(*count > 1));
    return answers;
}

// One pattern for each extension; an empty one asks for a name without a dot. A `;` ends an extension, so
// that nothing stands behind the last one.
void take_extensions(judge_term_t *term, const std::string &text, judge_mode_t mode) {
    for (size_t at = 0; at < text.size() || at == 0;) {
        const size_t end = std::min(text.find(';', at), text.size());
        if (end == at) {
            term->no_dot = true;
        } else {
            term->patterns.push_back(judge_make_pattern(mode, text.substr(at, end - at), false));
            term->patterns.back().at_start = term->patterns.back().at_end = true;
        }
        at = end + 1;
    }
}

} // namespace

judge_term_t judge_make_function_term(judge_function_t function, const std::string &text, judge_flags_t flags,
                                      const judge_settings_t &settings, const judge_items_t &items) {
    judge_term_t term;
    term.where = flags.path && function != JUDGE_EXTENSION ? JUDGE_IN_PATH : JUDGE_IN_NAME;
    const range_t range = read_range(text);
    const judge_mode_t mode = judge_get_mode(flags, text);
    switch (function) {
    case JUDGE_EXTENSION:
        term.is_extension = true;
        take_extensions(&term, text, mode);
        flags.file_only = true;
        break;
    case JUDGE_STARTS_WITH:
    case JUDGE_ENDS_WITH:
        term.patterns = {judge_make_pattern(mode, text, false)};
        (function == JUDGE_STARTS_WITH ? term.patterns[0].at_start : term.patterns[0].at_end) = true;
        break;
    case JUDGE_CHILD:
        term.answers = judge_child(text, flags, settings, items);
        flags.folder_only = true;
        break;
    case JUDGE_CHILDREN:
    case JUDGE_CHILD_FILES:
    case JUDGE_CHILD_FOLDERS:
        term.answers = judge_counts(function, range, items);
        flags.folder_only = true;
        break;
    case JUDGE_EMPTY:
        term.answers = judge_counts(function, {0, 0}, items);
        flags.folder_only = true;
        break;
    case JUDGE_DUPE:
    case JUDGE_DUPE_NAME_PART: term.answers = judge_dupes(function, items); break;
    default:
        for (const judge_item_t &item : items)
            term.answers.push_back(judge_own(function, range, flags.path, item));
    }
    term.flags = flags;
    return term;
}

} // namespace findwright
