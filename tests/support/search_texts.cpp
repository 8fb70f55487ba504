#include "support/search_texts.h"

#include "base/utf8.h"

#include <algorithm>

namespace findwright {
namespace {

using pieces_t = std::vector<std::string>;

const pieces_t pools[] = {
    {"a", "b", "c", "A", "B", "k", "K", "s", "S", "i", "I", "x", "0", "1", "7"},
    {".", "_", "-", " ", ".", " "},
    {"<", ">", "|", "!", "(", ")", "&", "'", "\"", "?", "*",
     "[", "]", "^", "$", "+", "{", "}", ";", ",",  "="},
    // Composed letters.
    {"\u00E1", "\u00C1", "\u00E9", "\u00C9", "\u00F1", "\u00FC", "\u00DC", "\u00E5", "\u00C5", "\u00E7",
     "\u0301"},
    // Letters whose partners take another number of bytes, ligatures, compatibility forms.
    {"\u0130", "\u0131", "\u212A", "\u2C65", "\u023A", "\u1E9E", "\u00DF", "\u017F", "\uFB01", "\uFB00",
     "\u212B", "\u2126", "\u2460", "\uFF4B", "\uFF2B", "\uFF0E", "\u0149", "\u24C0", "\u01C5", "\u00B5"},
    {"\u0436", "\u0416", "\u0439", "\u0419", "\u0438", "\u0418", "\u0451", "\u0401", "\u0430", "\u0410"},
    {"\u03C3", "\u03C2", "\u03A3", "\u03AC", "\u0386", "\u03B1", "\u0391", "\u03C9", "\u03A9", "\u03CE"},
    {"\U0001F600", "\U0001F601", "\U0001D400", "\u4E2D", "\u6587"},
    // No UTF-8: lead bytes and continuation bytes alone, cut sequences, values below their length.
    {"\xFF", "\xC3",         "\xA9",     "\x80",     "\xBF",         "\xC0",     "\xC1",
     "\xE2", "\xE2\x84",     "\x84\xAA", "\xF0",     "\xF0\x9F\x98", "\x98\x80", "\xE0",
     "\xF8", "\xED\xA0\x80", "\xC0\xAE", "\xC1\xA1", "\xD0",         "\xB6"},
};
constexpr u32 ASCII_POOLS = 2, RAW_POOL = std::size(pools) - 1;

u32 below(std::mt19937 &random, size_t count) {
    return static_cast<u32>(random() % count);
}
const std::string &pick(std::mt19937 &random, const pieces_t &pieces) {
    return pieces[below(random, pieces.size())];
}
bool one_in(std::mt19937 &random, u32 count) {
    return random() % count == 0;
}

// A few pieces that names of one kind are made of.
pieces_t random_alphabet(std::mt19937 &random) {
    pieces_t alphabet;
    const u32 size = 2 + below(random, 8);
    const bool ascii = one_in(random, 4), valid = one_in(random, 2);
    while (alphabet.size() < size) {
        const u32 pool = one_in(random, 3) ? below(random, ASCII_POOLS)
                         : ascii           ? 0
                                           : below(random, std::size(pools));
        if (pool != RAW_POOL || !valid)
            alphabet.push_back(pick(random, pools[pool]));
    }
    return alphabet;
}

std::string random_name(std::mt19937 &random, const pieces_t &alphabet) {
    const u32 kind = below(random, 60);
    const size_t length = kind == 0  ? 1 + below(random, 300)
                          : kind < 4 ? 1 + below(random, 90)
                                     : 1 + below(random, 12);
    std::string name;
    do
        name += pick(random, alphabet);
    while (name.size() < length);
    if (name.size() > 300)
        name.resize(300);
    return name;
}

bool is_border(const std::string &text, size_t at) {
    return at >= text.size() || (text[at] & 0xC0) != 0x80;
}

std::string random_piece(std::mt19937 &random, const std::string &text) {
    size_t start = one_in(random, 3) ? 0 : below(random, text.size());
    size_t end =
        one_in(random, 3) ? text.size() : start + 1 + below(random, std::min<size_t>(text.size() - start, 9));
    if (!one_in(random, 5)) {
        for (; start > 0 && !is_border(text, start); start--)
            ;
        for (; end < text.size() && !is_border(text, end); end++)
            ;
    }
    return text.substr(start, end - start);
}

// Another letter that is the same one in one of the modes: other case, accents on or off.
std::string random_partner(std::mt19937 &random, const std::string &letter) {
    static const std::vector<judge_text_t> letters = [] {
        std::vector<judge_text_t> whole; // characters
        for (const pieces_t &pool : pools) {
            for (const std::string &piece : pool) {
                whole.push_back(judge_text(piece));
                if (whole.back().lengths[0] != piece.size())
                    whole.pop_back();
            }
        }
        return whole;
    }();
    const judge_text_t own = judge_text(letter);
    std::vector<const std::string *> partners;
    for (const judge_text_t &other : letters) {
        if (other.values[JUDGE_FOLD][0] == own.values[JUDGE_FOLD][0] ||
            other.values[JUDGE_LOWER][0] == own.values[JUDGE_LOWER][0])
            partners.push_back(&other.bytes);
    }
    return partners.empty() ? letter : *partners[below(random, partners.size())];
}

std::string change_letters(std::mt19937 &random, const std::string &text, u32 rate) {
    std::string changed;
    const judge_text_t decoded = judge_text(text);
    for (size_t at = 0; at < text.size(); at += decoded.lengths[at]) {
        std::string letter = text.substr(at, decoded.lengths[at]);
        if (letter != "\\" && letter != ":" && one_in(random, rate))
            letter = random_partner(random, letter);
        changed += letter;
    }
    return changed;
}

// Stars and question marks in the place of characters and between them.
std::string put_wildcards(std::mt19937 &random, const std::string &text) {
    std::string changed;
    const judge_text_t decoded = judge_text(text);
    const u32 rate = 2 + below(random, 6);
    for (size_t at = 0; at < text.size(); at += decoded.lengths[at]) {
        if (one_in(random, rate * 2))
            changed += '*';
        if (one_in(random, rate) && at >= 3)
            changed += one_in(random, 2) ? '?' : '*';
        else
            changed += text.substr(at, decoded.lengths[at]);
    }
    return changed;
}

const judge_item_t &pick_item(std::mt19937 &random, const judge_items_t &items) {
    return items[below(random, items.size())];
}

} // namespace

std::vector<std::string> random_paths(std::mt19937 &random, u32 count) {
    static const char *const drives[] = {"C:\\", "c:\\", "D:\\"};
    std::vector<std::string> folders(std::begin(drives), std::end(drives)), paths;
    pieces_t alphabet;
    for (u32 i = 0; i < count; i++) {
        if (i % 100 == 0)
            alphabet = random_alphabet(random);
        std::string folder = pick(random, folders);
        if (std::count(folder.begin(), folder.end(), '\\') > 6 || folder.size() > 150)
            folder = drives[i % 3];
        const bool is_folder = one_in(random, 16);
        paths.push_back(folder + random_name(random, alphabet) + (is_folder ? "\\" : ""));
        if (is_folder)
            folders.push_back(paths.back());
        // The same folder in other letters, so that one path means several.
        if (is_folder && one_in(random, 3)) {
            std::string name = paths.back();
            name.pop_back();
            const size_t start = name.rfind('\\') + 1;
            paths.push_back(name.substr(0, start) + change_letters(random, name.substr(start), 2) + "\\");
            folders.push_back(paths.back());
        }
    }
    return paths;
}

std::string random_term(std::mt19937 &random, const judge_items_t &items, bool of_path) {
    const judge_item_t &item = pick_item(random, items);
    std::string term = of_path ? item.path.bytes : item.name.bytes;
    const u32 shape = below(random, 12);
    if (of_path && one_in(random, 3) && item.parent) {
        // What path terms have forms of their own for.
        const std::string name = random_piece(random, item.parent->name.bytes);
        const std::string forms[] = {"\\" + name,
                                     name + "\\",
                                     "\\" + name + "\\",
                                     "*\\" + name + "*",
                                     item.parent->path.bytes + "\\",
                                     item.parent->path.bytes + "\\*",
                                     item.parent->path.bytes,
                                     item.path.bytes.substr(0, 2)};
        term = forms[below(random, std::size(forms))];
    } else if (shape >= 2) {
        term = random_piece(random, term);
    }
    if (one_in(random, 2))
        term = change_letters(random, term, 1 + below(random, 4));
    if (one_in(random, 12))
        term.insert(below(random, term.size() + 1), pick(random, pools[below(random, std::size(pools))]));
    switch (shape) {
    case 3:
    case 4: return put_wildcards(random, term);
    case 5: return term + "*";
    case 6: return "*" + term;
    case 7: return one_in(random, 2) ? "*" + term + "*" : "?" + term;
    default: return term;
    }
}

std::string random_regex(std::mt19937 &random, const judge_items_t &items) {
    const std::string &name = pick_item(random, items).name.bytes;
    const std::string piece = random_piece(random, name);
    const judge_text_t decoded = judge_text(piece);
    if (!decoded.is_valid)
        return "";
    std::string regex = one_in(random, 4) ? "^" : "";
    const bool literal = one_in(random, 6);
    for (size_t at = 0; at < piece.size(); at += decoded.lengths[at]) {
        std::string letter = change_letters(random, piece.substr(at, decoded.lengths[at]), 4);
        const bool is_sign = std::string("\\[]^$*+?{}()|.").find(letter) != std::string::npos;
        const std::string escaped = is_sign ? "\\" + letter : letter;
        const bool plain = is_sign || letter == "-" || literal;
        switch (plain ? 9u : below(random, 10)) {
        case 0: regex += "."; break;
        case 1: regex += "[" + letter + "x]"; break;
        case 2: regex += "[^" + letter + "]"; break;
        case 3: regex += letter + (one_in(random, 2) ? "*" : "+"); break;
        case 4: regex += letter + "x?"; break;
        case 5: regex += ".*" + letter; break;
        case 6: regex += letter[0] >= 'b' && letter[0] <= 'y' ? "[a-z]" : "[" + letter + "0-9]"; break;
        default: regex += escaped;
        }
    }
    return regex + (one_in(random, 4) ? "$" : "");
}

// Small enough to lie among the counts of what a test holds.
static std::string _random_range(std::mt19937 &random, u32 most) {
    static const char *const comparisons[] = {"", "", "", "=", ">", ">=", "<", "<="};
    if (one_in(random, 12))
        return "";
    const u32 low = below(random, most);
    std::string text = comparisons[below(random, std::size(comparisons))] + std::to_string(low);
    if (one_in(random, 3))
        text += (one_in(random, 2) ? ".." : "-") + std::to_string(low + below(random, most));
    return text;
}

// What stands behind one of the dots of some names; now and then nothing, which means a name without a dot.
static std::string _random_extensions(std::mt19937 &random, const judge_items_t &items) {
    std::string text;
    for (u32 i = 0, count = below(random, 6); i < count; i++) {
        const std::string &name = pick_item(random, items).name.bytes;
        const size_t dot = one_in(random, 3) ? name.find('.') : name.rfind('.');
        if (dot != std::string::npos && !one_in(random, 8))
            text += change_letters(random, name.substr(dot + 1), 3);
        text += i + 1 < count || one_in(random, 6) ? ";" : "";
    }
    return text;
}

std::string random_argument(std::mt19937 &random, judge_function_t function, const judge_items_t &items) {
    switch (function) {
    case JUDGE_EXTENSION: return _random_extensions(random, items);
    case JUDGE_STARTS_WITH:
    case JUDGE_ENDS_WITH: {
        const judge_item_t &item = pick_item(random, items);
        const std::string &text = one_in(random, 4) ? item.path.bytes : item.name.bytes;
        const size_t start = function == JUDGE_ENDS_WITH ? below(random, text.size()) : 0;
        const size_t length = function == JUDGE_ENDS_WITH ? text.size() : below(random, text.size() + 1);
        return change_letters(random, text.substr(start, length), 3);
    }
    case JUDGE_CHILD: return random_term(random, items, false);
    case JUDGE_LENGTH: return _random_range(random, 60);
    case JUDGE_PARENTS:
    case JUDGE_DEPTH:
    case JUDGE_CHILDREN:
    case JUDGE_CHILD_FILES:
    case JUDGE_CHILD_FOLDERS: return _random_range(random, 5);
    default: return "";
    }
}

judge_node_t random_search(std::mt19937 &random, const search_syntax_t &syntax, const judge_items_t &items,
                           u32 depth) {
    static const char *const modifiers[] = {
        "case:",       "nocase:",       "path:",       "nopath:",       "file:",      "folder:",
        "nofileonly:", "nofolderonly:", "diacritics:", "nodiacritics:", "ww:",        "wholeword:",
        "noww:",       "ascii:",        "noascii:",    "utf8:",         "wildcards:", "nowildcards:",
        "wfn:",        "exact:",        "nowfn:"};
    judge_node_t node;
    const u32 kind = depth == 0 ? 0 : below(random, 7);
    if (kind >= 1 && kind <= 4) {
        node.kind = kind <= 2 ? JUDGE_AND : JUDGE_OR;
        for (u32 i = 0, count = 2 + below(random, 2); i < count; i++)
            node.nodes.push_back(random_search(random, syntax, items, depth - 1));
    } else if (kind == 5 || kind == 6) {
        node.kind = kind == 5 ? JUDGE_NOT : JUDGE_MODIFIED;
        node.text = kind == 5 ? "" : modifiers[below(random, std::size(modifiers))];
        node.nodes.push_back(random_search(random, syntax, items, depth - 1));
    } else if (one_in(random, 10)) {
        node.kind = JUDGE_MODIFIED;
        node.text = one_in(random, 8) ? "noregex:" : "regex:";
        node.nodes.emplace_back();
        node.nodes[0].text = random_regex(random, items);
    } else if (const u32 function = below(random, JUDGE_FUNCTIONS * 3);
               function > JUDGE_TEXT && function < JUDGE_FUNCTIONS) {
        node.function = static_cast<judge_function_t>(function);
        node.text = random_argument(random, node.function, items);
    } else if (!one_in(random, 20)) {
        node.text = random_term(random, items, one_in(random, 4));
    }
    return node;
}

// --- Texts of searches -------------------------------------------------------------------------------------

// Characters that mean something in some place are quoted or written in another way; others now and then.
static std::string _quote(std::mt19937 &random, const std::string &text) {
    const bool whole = !text.empty() && one_in(random, 6);
    std::string out = whole ? "\"" : "";
    const judge_text_t decoded = judge_text(text);
    for (size_t at = 0; at < text.size();) {
        // A sign behind a cut sequence is one for who reads the search.
        const size_t length = decoded.lengths[at];
        const bool is_torn = length > 1 && std::any_of(&text[at] + 1, &text[at] + length,
                                                       [](char c) { return static_cast<u8>(c) < 0x80; });
        const std::string letter = text.substr(at, is_torn ? 1 : length);
        at += letter.size();
        u32 value;
        utf8_decode(letter.data(), letter.data() + letter.size(), &value);
        const bool is_special = letter.find_first_of(" |<>()!&'") != std::string::npos;
        const bool is_unit = decoded.is_valid && value < 0xD800 && value >= 0x20;
        if (letter == "\"")
            out += whole ? "\"quot:\"" : "quot:";
        else if (whole)
            out += letter;
        else if (letter == "<" && one_in(random, 2))
            out += "lt:";
        else if (letter == ">" && one_in(random, 2))
            out += "gt:";
        else if (letter == "&" && one_in(random, 2))
            out += "amp:";
        else if (letter == "'" && one_in(random, 2))
            out += "apos:";
        else if (is_unit && one_in(random, 30))
            out += "#" + std::to_string(value) + ":";
        else
            out += is_special || one_in(random, 30) ? "\"" + letter + "\"" : letter;
    }
    return out + (whole ? "\"" : "");
}

static std::string _term_text(std::mt19937 &random, const judge_node_t &node) {
    std::string text = _quote(random, node.text);
    // Behind some names a comparison needs no quotes, so that the `>` of a group is taken for one.
    const bool compares = node.function == JUDGE_LENGTH || node.function == JUDGE_PARENTS;
    if (compares && (text.empty() || (node.text.find_first_of("<>") == 0 && one_in(random, 2))))
        text = text.empty() ? "\"\"" : node.text;
    if (node.function != JUDGE_TEXT)
        return judge_function_names[node.function] + text;
    const bool is_keyword = text.starts_with("AND") || text.starts_with("OR") || text.starts_with("NOT");
    return text.empty() ? "\"\"" : is_keyword ? "\"\"" + text : text;
}

static std::string _group(std::mt19937 &random, const search_syntax_t &syntax, const std::string &text) {
    return syntax.round_brackets && one_in(random, 2) ? "(" + text + ")" : "<" + text + ">";
}

// `level` is what the place asks for: 0 anything, 1 and 2 what the two operators may hold, 3 a primary.
static std::string _search_text(std::mt19937 &random, const search_syntax_t &syntax, const judge_node_t &node,
                                u32 level) {
    if (node.kind == JUDGE_TERM) {
        const std::string text = _term_text(random, node);
        return one_in(random, 8) ? _group(random, syntax, text) : text;
    }
    if (node.kind == JUDGE_MODIFIED)
        return node.text + _search_text(random, syntax, node.nodes[0], 3);
    if (node.kind == JUDGE_NOT)
        return (syntax.literal_operators && one_in(random, 2) ? "NOT " : "!") +
               _search_text(random, syntax, node.nodes[0], 3);
    const bool is_and = node.kind == JUDGE_AND;
    const u32 own = is_and == syntax.and_is_tighter ? 2 : 1;
    std::string text;
    for (const judge_node_t &part : node.nodes) {
        if (&part != node.nodes.data() && is_and)
            text += syntax.literal_operators && one_in(random, 2) ? " AND " : one_in(random, 4) ? "  " : " ";
        else if (&part != node.nodes.data())
            text += syntax.literal_operators && one_in(random, 2) ? " OR " : one_in(random, 2) ? " | " : "|";
        text += _search_text(random, syntax, part, own);
    }
    return own < level || one_in(random, 8) ? _group(random, syntax, text) : text;
}

std::string search_text(std::mt19937 &random, const search_syntax_t &syntax, const judge_node_t &search) {
    return _search_text(random, syntax, search, 0);
}

} // namespace findwright
