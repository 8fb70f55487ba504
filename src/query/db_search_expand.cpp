#include "query/db_search_expand.h"

#include "base/utf8.h"
#include "os/os.h"
#include "query/bookmark.h"
#include "query/db_term.h"
#include "query/filter.h"

#include <cstring>

namespace findwright {

u32 expand_environment_variables;

struct _db_expander_t {
    utf8_buf_t *out;
    u32 depth;
    u32 left; // bytes that macros may still add
};

static void _db_expand_text(_db_expander_t *expander, const char *text);

// --- Macros ------------------------------------------------------------------------------------------------

struct _db_option_t {
    u32 flag;
    const char *on, *off;
};
static constexpr _db_option_t _options[] = {
    {DB_MATCH_CASE, "case:", "nocase:"},
    {DB_MATCH_PATH, "path:", "nopath:"},
    {DB_MATCH_WHOLE_WORD, "wholeword:", "nowholeword:"},
    {DB_MATCH_DIACRITICS, "diacritics:", "nodiacritics:"},
    {DB_MATCH_REGEX, "regex:", "noregex:"},
};
// The most that one macro adds beside the searches that it stands for.
static constexpr u32 FRAME_MAX = 128;

static bool _db_spend(_db_expander_t *expander, u32 bytes) {
    bool can = bytes <= expander->left;
    expander->left -= can ? bytes : 0;
    return can;
}

// The options of `flags` that are stored, and the search of a macro.
static void _db_expand_search(_db_expander_t *expander, u32 flags, u32 stored, const char *search) {
    for (const _db_option_t &option : _options) {
        if (stored & option.flag)
            utf8_buf_cat_string(expander->out, flags & option.flag ? option.on : option.off);
    }
    utf8_buf_cat_byte(expander->out, '<');
    if (expander->depth < DB_SEARCH_EXPAND_DEPTH && _db_spend(expander, utf8_length(search))) {
        expander->depth++;
        _db_expand_text(expander, search);
        expander->depth--;
    }
    utf8_buf_cat_string(expander->out, " >");
}

static void _db_expand_filter(_db_expander_t *expander, const filter_t *filter) {
    _db_expand_search(expander, filter->flags, ~0u, filter->search);
}

static void _db_expand_bookmark(_db_expander_t *expander, const bookmark_t *bookmark) {
    const filter_t *filter =
        bookmark->flags & BOOKMARK_HAS_FILTER ? filter_find_by_name(bookmark->filter) : nullptr;
    if (filter)
        utf8_buf_cat_byte(expander->out, '<');
    _db_expand_search(expander, bookmark->flags, bookmark->flags >> BOOKMARK_HAS_SHIFT,
                      bookmark->flags & BOOKMARK_HAS_SEARCH ? bookmark->search : "");
    if (filter) {
        utf8_buf_cat_byte(expander->out, ' ');
        _db_expand_filter(expander, filter);
        utf8_buf_cat_byte(expander->out, '>');
    }
}

// The bytes of a macro's call at the start of the text, or 0.
static u32 _db_match_macro(const char *text, const char *macro) {
    u32 length = utf8_length(macro);
    return length != 0 && std::strncmp(text, macro, length) == 0 && text[length] == ':' ? length + 1 : 0;
}

// Replaces the macro that the text begins with. The bytes of its call, or 0 when there is none.
static u32 _db_expand_macro(_db_expander_t *expander, const char *text) {
    const bookmark_t *bookmark = bookmark_head;
    const filter_t *filter = filter_head;
    u32 taken = 0;
    while (bookmark && (taken = _db_match_macro(text, bookmark->macro)) == 0)
        bookmark = bookmark->next;
    while (!bookmark && filter && (taken = _db_match_macro(text, filter->macro)) == 0)
        filter = filter->next;
    if (!bookmark && !filter)
        return 0;
    if (!_db_spend(expander, FRAME_MAX))
        utf8_buf_cat_string(expander->out, "<>"); // no longer than the call
    else if (bookmark)
        _db_expand_bookmark(expander, bookmark);
    else
        _db_expand_filter(expander, filter);
    return taken;
}

// --- Texts -------------------------------------------------------------------------------------------------

// Follows a text character by character, as far as it matters where terms start.
struct _db_term_start_t {
    bool is_start;
    bool is_quoted;
    u32 open; // groups
};

static void _db_step(_db_term_start_t *at, char c) {
    bool was_start = at->is_start;
    at->is_start = false;
    if (c == '"')
        at->is_quoted = !at->is_quoted;
    if (at->is_quoted || c == '"')
        return;
    bool brackets = allow_round_bracket_parenthesis;
    if (c == '<' || (c == '(' && brackets)) {
        at->open++;
        at->is_start = true;
    } else if ((c == '>' || (c == ')' && brackets)) && at->open != 0) {
        at->open--;
        at->is_start = true;
    } else {
        at->is_start = utf8_is_white_space(c) || c == '|' || c == ':' || (c == '!' && was_start);
    }
}

static void _db_expand_text(_db_expander_t *expander, const char *text) {
    _db_term_start_t at = {true, false, 0};
    while (*text) {
        if (at.is_start) {
            if (u32 taken = _db_expand_macro(expander, text)) {
                text += taken;
                continue;
            }
        }
        _db_step(&at, *text);
        utf8_buf_cat_byte(expander->out, *text++);
    }
    // What stands behind a macro is not to become part of its quotes.
    if (at.is_quoted && expander->depth != 0)
        utf8_buf_cat_byte(expander->out, '"');
}

void db_search_expand(utf8_buf_t *out, const char *text) {
    utf8_buf_empty(out);
    _db_expander_t expander = {out, 0, DB_SEARCH_EXPAND_MAX};
    _db_expand_text(&expander, text);
    if (!expand_environment_variables)
        return;
    utf8_buf_t values;
    utf8_buf_init(&values);
    os_expand_environment(out->data, static_cast<u32>(out->length), DB_SEARCH_EXPAND_MAX, &values);
    utf8_buf_copy_utf8(out, values.data, static_cast<u32>(values.length));
    utf8_buf_kill(&values);
}

void db_search_cat_operand(utf8_buf_t *out, const char *text, bool is_regex) {
    if (is_regex) { // one term, in quotes
        utf8_buf_cat_string(out, "regex:\"");
        while (utf8_is_white_space(*text))
            text++;
        for (; *text; text++) {
            if (*text == '"')
                utf8_buf_cat_string(out, "\"quot:\"");
            else
                utf8_buf_cat_byte(out, *text);
        }
        utf8_buf_cat_byte(out, '"');
        return;
    }
    bool is_quoted = false;
    utf8_buf_cat_byte(out, '<');
    for (; *text; text++) {
        is_quoted = is_quoted != (*text == '"');
        utf8_buf_cat_byte(out, *text);
    }
    utf8_buf_cat_string(out, is_quoted ? "\" >" : " >");
}

} // namespace findwright
