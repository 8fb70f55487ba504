// The parser: operators, groups, modifiers and terms, in one pass over the text with a stack of frames. It
// makes a tree, whose leaves are the terms in the order of the text; a walk down that tree then gives each
// term its ways and its flags. So the time is that of the text's length, however it is nested, and nothing
// recurses.
#include "base/mem.h"
#include "base/pool.h"
#include "base/utf8.h"
#include "base/utf8_buf.h"
#include "os/debug.h"
#include "query/db_term.h"

#include <cstring>
#include <iterator>

namespace findwright {

// A frame is what waits for the operand that is being read; popping it applies it.
enum _db_frame_kind_t : u32 {
    FRAME_NOT = 0,
    FRAME_GROUP = 1,
    FRAME_MODIFIER_FIRST = 2,
    FRAME_MODIFIER_LAST = 21,
    FRAME_OR = 22,
    FRAME_AND = 23,
};

static constexpr u32 LEVEL_PRIMARY = 3; // binds tighter than both binary operators

// A subexpression: a term, or an operator over one or two others.
static constexpr u32 NODE_TERM = 24; // other kinds are those of the frames
struct _db_node_t {
    u32 kind;
    db_term_t *term; // the first of its terms
    _db_node_t *left;
    _db_node_t *right;
};

struct _db_frame_t {
    _db_frame_t *up;
    _db_node_t *current;
    u32 level;
    u32 kind;
};

struct _db_parser_t {
    const char *text;
    db_term_t *first_term;
    db_term_t *last_term;
    u32 default_flags;
    bool is_filter;
    u32 group_depth;
    _db_frame_t *frames;
    u32 level;
    _db_node_t *current; // the subexpression parsed last
    u32 or_level;
    u32 and_level;
    pool_t pool; // nodes and frames
};

// What a modifier does to the terms that it binds to. The kinds follow one another, set before clear.
struct _db_modifier_effect_t {
    u32 set;
    u32 clear;
};
static constexpr _db_modifier_effect_t modifier_effects[] = {
    {TERM_WHOLE_NAME | TERM_WHOLE_NAME_WILDCARDS, 0},
    {0, TERM_WHOLE_NAME | TERM_WHOLE_NAME_WILDCARDS},
    {TERM_FILE_ONLY, 0},
    {TERM_FOLDER_ONLY, 0},
    {0, TERM_FILE_ONLY},
    {0, TERM_FOLDER_ONLY},
    {TERM_PATH, 0},
    {0, TERM_PATH},
    {TERM_CASE, 0},
    {0, TERM_CASE},
    {TERM_REGEX, 0},
    {0, TERM_REGEX},
    {TERM_DIACRITICS, 0},
    {0, TERM_DIACRITICS},
    {TERM_WHOLE_WORD, 0},
    {0, TERM_WHOLE_WORD},
    {TERM_FAST_ASCII, 0},
    {0, TERM_FAST_ASCII},
    {TERM_WILDCARDS | TERM_WILDCARDS_EXPLICIT, 0},
    {0, TERM_WILDCARDS | TERM_WILDCARDS_EXPLICIT},
};
static_assert(std::size(modifier_effects) == FRAME_MODIFIER_LAST - FRAME_MODIFIER_FIRST + 1);

struct _db_modifier_t {
    const char *name;
    u32 kind;
};
static constexpr _db_modifier_t modifiers[] = {
    {"wholefilename:", 2}, {"wfn:", 2},           {"exact:", 2},      {"nowholefilename:", 3},
    {"nowfn:", 3},         {"noexact:", 3},       {"file:", 4},       {"folder:", 5},
    {"nofileonly:", 6},    {"nofolderonly:", 7},  {"path:", 8},       {"nopath:", 9},
    {"case:", 10},         {"nocase:", 11},       {"regex:", 12},     {"noregex:", 13},
    {"diacritics:", 14},   {"nodiacritics:", 15}, {"wholeword:", 16}, {"ww:", 16},
    {"wholewords:", 16},   {"nowholeword:", 17},  {"noww:", 17},      {"nowholewords:", 17},
    {"ascii:", 18},        {"utf8:", 19},         {"noascii:", 19},   {"wildcards:", 20},
    {"nowildcards:", 21},
};

const char *db_query_get_modifier_name(u32 index) {
    return index < std::size(modifiers) ? modifiers[index].name : nullptr;
}

// Functions without an argument: the term ends with the name.
static constexpr const char *bare_functions[] = {
    "root:",         "empty:",      "dupe:",
    "sizedupe:",     "dupesize:",   "datecreateddupe:",
    "dcdupe:",       "dupedc:",     "datemodifieddupe:",
    "dmdupe:",       "dupedm:",     "dateaccesseddupe:",
    "dadupe:",       "dupeda:",     "attributesdupe:",
    "attribdupe:",   "dupeattrib:", "namepartdupe:",
    "dupenamepart:",
};

// Functions whose argument may begin with `<` or `>`, which elsewhere would be a group.
static constexpr const char *comparing_functions[] = {
    "dateaccessed", "datecreated", "datemodified", "daterun", "da",           "dc",       "dm",   "dr",
    "fsi",          "len",         "parents",      "rc",      "recentchange", "runcount", "size",
};

static bool _db_text_begins(const char *text, const char *prefix) {
    return std::strncmp(text, prefix, std::strlen(prefix)) == 0;
}

static const char *_db_skip_white_space(const char *text) {
    while (utf8_is_white_space(*text))
        text++;
    return text;
}

// --- One term ----------------------------------------------------------------------------------------------

static bool _db_is_function_syntax(const char *text) {
    for (; *text && *text != ':'; text++) {
        if (!((*text >= 'a' && *text <= 'z') || utf8_is_digit(*text)))
            return false;
    }
    return true;
}

// Replaces `quot:`, `#65:` and the like. The bytes taken, or 0.
static u32 _db_replace_entity(const char *text, utf8_buf_t *out) {
    static constexpr struct {
        const char *name;
        char value;
    } entities[] = {{"quot:", '"'}, {"apos:", '\''}, {"amp:", '&'}, {"lt:", '<'}, {"gt:", '>'}};
    for (auto entity : entities) {
        if (_db_text_begins(text, entity.name)) {
            utf8_buf_cat_byte(out, entity.value);
            return utf8_length(entity.name);
        }
    }
    if (*text != '#')
        return 0;
    const char *p = text + 1;
    bool hexadecimal = *p == 'x' || *p == 'X';
    p += hexadecimal;
    u32 value = 0;
    for (; hexadecimal ? utf8_hex_value(*p) >= 0 : utf8_is_digit(*p); p++)
        value = (value * (hexadecimal ? 16 : 10) + static_cast<u32>(utf8_hex_value(*p))) & 0xFFFF;
    if (*p != ':')
        return 0;
    if (value != 0) { // 0 ends nothing and adds nothing
        char encoded[UTF8_CHAR_MAX];
        utf8_buf_cat_utf8(out, encoded, utf8_encode(encoded, value));
    }
    return static_cast<u32>(p + 1 - text);
}

static bool _db_is_term_end(const _db_parser_t *parser, char c) {
    if (utf8_is_white_space(c) || c == '|' || c == '<')
        return true;
    return parser->group_depth != 0 && (c == '>' || (c == ')' && allow_round_bracket_parenthesis));
}

// Reads the text of one term up to its end. Quotes open and close anywhere, and are dropped.
static void _db_read_term_text(_db_parser_t *parser, utf8_buf_t *out) {
    for (const char *name : bare_functions) {
        if (_db_text_begins(parser->text, name)) {
            utf8_buf_copy_string(out, name);
            parser->text += out->length;
            return;
        }
    }
    for (const char *name : comparing_functions) {
        u32 length = utf8_length(name);
        if (_db_text_begins(parser->text, name) && parser->text[length] == ':' &&
            (parser->text[length + 1] == '>' || parser->text[length + 1] == '<')) {
            utf8_buf_copy_utf8(out, parser->text, length + 2);
            parser->text += length + 2;
            break;
        }
    }
    const char *p = parser->text;
    bool is_file_list = _db_text_begins(p, "filelist:");
    for (bool quoted = false; *p;) {
        if (*p == '"') {
            quoted = !quoted;
            p++;
            continue;
        }
        if (!quoted) {
            if (_db_is_term_end(parser, *p))
                break;
            i32 length = out->length;
            if (u32 taken = _db_replace_entity(p, out)) {
                p += taken;
                if (is_file_list && out->length > length && out->data[length] == '|')
                    out->data[length] = DB_TERM_LITERAL_BAR; // it separates no names
                continue;
            }
        }
        utf8_buf_cat_byte(out, *p++);
    }
    parser->text = p;
}

static _db_node_t *_db_make_node(_db_parser_t *parser, u32 kind, _db_node_t *left, _db_node_t *right) {
    _db_node_t *node = static_cast<_db_node_t *>(pool_alloc(&parser->pool, sizeof *node));
    *node = {kind, left ? left->term : nullptr, left, right};
    return node;
}

static void _db_append_term(_db_parser_t *parser, u32 flags, const char *text, u32 length) {
    db_term_t *term = static_cast<db_term_t *>(mem_alloc(sizeof(db_term_t) + length));
    std::memset(term, 0, sizeof *term);
    term->flags = flags;
    term->is_filter = parser->is_filter;
    term->length = length;
    std::memcpy(term->text, text, length);
    term->text[length] = 0;
    (parser->last_term ? parser->last_term->link : parser->first_term) = term;
    parser->last_term = term;
    parser->current = _db_make_node(parser, NODE_TERM, nullptr, nullptr);
    parser->current->term = term;
}

static const char *_db_skip_keyword(const _db_parser_t *parser, const char *text, const char *keyword);

static void _db_parse_term(_db_parser_t *parser) {
    // A binary operator where an operand should stand has an empty one in front of it.
    if (_db_skip_keyword(parser, parser->text, "AND") || _db_skip_keyword(parser, parser->text, "OR")) {
        _db_append_term(parser, parser->default_flags, "", 0);
        return;
    }
    u32 flags = parser->default_flags;
    if (_db_is_function_syntax(parser->text))
        flags |= TERM_FUNCTION_SYNTAX;
    utf8_buf_t text;
    utf8_buf_init(&text);
    _db_read_term_text(parser, &text);
    _db_append_term(parser, flags, text.data, static_cast<u32>(text.length));
    utf8_buf_kill(&text);
}

// --- Operators ---------------------------------------------------------------------------------------------

// The position behind an operator written as a word, with the white space that follows; 0 if it is not there.
static const char *_db_skip_keyword(const _db_parser_t *parser, const char *text, const char *keyword) {
    if (!allow_literal_operators || !_db_text_begins(text, keyword))
        return nullptr;
    text += std::strlen(keyword);
    if (utf8_is_white_space(*text))
        return _db_skip_white_space(text);
    bool ends = !*text || *text == '<' || *text == '|' || (*text == '>' && parser->group_depth != 0);
    if (allow_round_bracket_parenthesis)
        ends = ends || *text == '(' || (*text == ')' && parser->group_depth != 0);
    return ends ? text : nullptr;
}

static const char *_db_skip_or(const _db_parser_t *parser, const char *text) {
    return *text == '|' ? text + 1 : _db_skip_keyword(parser, text, "OR");
}

static bool _db_is_group_end(const _db_parser_t *parser) {
    return *parser->text == '>' || (*parser->text == ')' && allow_round_bracket_parenthesis);
}

static void _db_push_frame(_db_parser_t *parser, u32 kind, u32 level) {
    _db_frame_t *frame = static_cast<_db_frame_t *>(pool_alloc(&parser->pool, sizeof *frame));
    *frame = {parser->frames, parser->current, parser->level, kind};
    parser->frames = frame;
    parser->level = level;
}

static void _db_pop_frame(_db_parser_t *parser) {
    _db_frame_t *frame = parser->frames;
    parser->frames = frame->up;
    parser->level = frame->level;
    u32 kind = frame->kind;
    if (kind == FRAME_GROUP) {
        parser->group_depth--;
        if (_db_is_group_end(parser))
            parser->text++;
    } else if (kind == FRAME_OR || kind == FRAME_AND) {
        parser->current = _db_make_node(parser, kind, frame->current, parser->current);
    } else if (kind <= FRAME_MODIFIER_LAST) { // a negation among them
        parser->current = _db_make_node(parser, kind, parser->current, nullptr);
    } else {
        debug_fatal("invalid db query term parse frame pop %d", kind);
    }
}

// Reads what stands in front of a primary: negations, opened groups, modifiers.
static void _db_parse_prefixes(_db_parser_t *parser) {
    for (;;) {
        if (*parser->text == '!') {
            parser->text++;
            _db_push_frame(parser, FRAME_NOT, LEVEL_PRIMARY);
            continue;
        }
        if (const char *behind = _db_skip_keyword(parser, parser->text, "NOT")) {
            parser->text = behind;
            _db_push_frame(parser, FRAME_NOT, LEVEL_PRIMARY);
            continue;
        }
        if (*parser->text == '<' || (*parser->text == '(' && allow_round_bracket_parenthesis)) {
            parser->text++;
            parser->group_depth++;
            _db_push_frame(parser, FRAME_GROUP, 0);
            continue;
        }
        bool found = false;
        for (const _db_modifier_t &modifier : modifiers) {
            if (_db_text_begins(parser->text, modifier.name)) {
                parser->text += std::strlen(modifier.name);
                _db_push_frame(parser, modifier.kind, LEVEL_PRIMARY);
                found = true;
                break;
            }
        }
        if (!found)
            return;
    }
}

// Looks for an operator behind a finished operand, and pushes it. False when the operand ends its frame
// instead.
static bool _db_parse_operator(_db_parser_t *parser) {
    if (parser->group_depth != 0 && _db_is_group_end(parser))
        return false;
    if (parser->level > parser->or_level && _db_skip_or(parser, _db_skip_white_space(parser->text)))
        return false;
    if (*parser->text && parser->level <= parser->or_level) {
        if (const char *behind = _db_skip_or(parser, _db_skip_white_space(parser->text))) {
            parser->text = _db_skip_white_space(behind);
            _db_push_frame(parser, FRAME_OR, parser->or_level);
            return true;
        }
    }
    if (*parser->text && parser->level <= parser->and_level) {
        parser->text = _db_skip_white_space(parser->text);
        if (const char *behind = _db_skip_keyword(parser, parser->text, "AND"))
            parser->text = _db_skip_white_space(behind);
        _db_push_frame(parser, FRAME_AND, parser->and_level);
        return true;
    }
    return false;
}

// --- From the tree to the terms ----------------------------------------------------------------------------

// A subexpression that waits for its turn, with what it has from those around it: where to go when it is true
// and when it is false, whether it is negated, and what modifiers make of its flags.
struct _db_pending_t {
    _db_pending_t *below;
    const _db_node_t *node;
    db_term_t *yes, *no;
    bool is_negated;
    u32 set, clear;
};

static void _db_settle_term(db_term_t *term, const _db_pending_t &p) {
    term->flags = (term->flags & ~p.clear) | p.set;
    if (p.is_negated)
        term->flags ^= TERM_NOT;
    // A negated term matches where the text's own does not.
    term->next = p.is_negated ? p.no : p.yes;
    term->notnext = p.is_negated ? p.yes : p.no;
}

// Pushes a subexpression; `spare` are entries to be used again.
static _db_pending_t *_db_push_pending(_db_parser_t *parser, _db_pending_t *top, _db_pending_t **spare,
                                       const _db_pending_t &what) {
    _db_pending_t *entry = *spare;
    if (entry)
        *spare = entry->below;
    else
        entry = static_cast<_db_pending_t *>(pool_alloc(&parser->pool, sizeof *entry));
    *entry = what;
    entry->below = top;
    return entry;
}

static void _db_settle_terms(_db_parser_t *parser) {
    _db_pending_t *spare = nullptr;
    _db_pending_t *top =
        _db_push_pending(parser, nullptr, &spare, {nullptr, parser->current, nullptr, nullptr, false, 0, 0});
    while (top) {
        _db_pending_t p = *top;
        top->below = spare;
        spare = top;
        top = p.below;
        const _db_node_t *node = p.node;
        _db_pending_t inner = p;
        inner.node = node->left;
        if (node->kind == NODE_TERM) {
            _db_settle_term(node->term, p);
        } else if (node->kind == FRAME_AND || node->kind == FRAME_OR) {
            (node->kind == FRAME_AND ? inner.yes : inner.no) = node->right->term;
            top = _db_push_pending(parser, top, &spare, inner);
            inner = p;
            inner.node = node->right;
            top = _db_push_pending(parser, top, &spare, inner);
        } else if (node->kind == FRAME_NOT) {
            inner.yes = p.no;
            inner.no = p.yes;
            inner.is_negated = !p.is_negated;
            top = _db_push_pending(parser, top, &spare, inner);
        } else { // what stands further outside is applied later, and wins
            _db_modifier_effect_t effect = modifier_effects[node->kind - FRAME_MODIFIER_FIRST];
            inner.set = (effect.set & ~p.clear) | p.set;
            inner.clear = (effect.clear & ~p.set) | p.clear;
            top = _db_push_pending(parser, top, &spare, inner);
        }
    }
}

static void _db_parse(_db_parser_t *parser) {
    for (;;) {
        _db_parse_prefixes(parser);
        _db_parse_term(parser);
        while (!_db_parse_operator(parser)) {
            if (!parser->frames)
                return;
            _db_pop_frame(parser);
        }
    }
}

db_term_t *_db_query_term_parse_all(u32 default_flags, const char *text, bool is_filter) {
    bool and_first = operator_precedence == 1;
    _db_parser_t parser = {};
    parser.text = _db_skip_white_space(text);
    parser.default_flags = default_flags;
    parser.is_filter = is_filter;
    parser.or_level = and_first ? 1 : 2;
    parser.and_level = and_first ? 2 : 1;
    pool_init(&parser.pool);
    if (default_flags & TERM_REGEX) {
        _db_append_term(&parser, default_flags, parser.text, utf8_length(parser.text));
    } else {
        _db_parse(&parser);
        _db_settle_terms(&parser);
    }
    pool_kill(&parser.pool);
    return parser.first_term;
}

void db_term_free_all(db_term_t *first) {
    while (first) {
        db_term_t *next = first->link;
        mem_free(first);
        first = next;
    }
}

u32 db_term_default_flags(u32 match_options) {
    struct {
        u32 on;
        u32 flag;
    } const rules[] = {
        {match_whole_filename_when_using_wildcards, TERM_WHOLE_NAME_WILDCARDS},
        {fast_ascii_search, TERM_FAST_ASCII},
        {match_options & DB_MATCH_CASE, TERM_CASE},
        {match_options & DB_MATCH_WHOLE_WORD, TERM_WHOLE_WORD},
        {match_options & DB_MATCH_PATH, TERM_PATH},
        {match_options & DB_MATCH_DIACRITICS, TERM_DIACRITICS},
        {match_options & DB_MATCH_REGEX, TERM_REGEX},
    };
    u32 flags = TERM_WILDCARDS;
    for (auto rule : rules) {
        if (rule.on)
            flags |= rule.flag;
    }
    return flags;
}

} // namespace findwright
