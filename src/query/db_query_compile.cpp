// Compiles source terms into executable ones. The order of the rules is a contract: the first that fits wins.
#include "base/mem.h"
#include "base/utf8.h"
#include "os/os.h"
#include "query/db_query.h"
#include "query/db_regex.h"
#include "query/db_search.h"

#include <cstring>

namespace findwright {

u32 operator_precedence = 0;
u32 allow_literal_operators = 0;
u32 allow_round_bracket_parenthesis = 0;
u32 convert_forward_slash_to_backslash = os_path_separator == '/';
u32 match_path_when_search_contains_path_separator = 1;
u32 match_whole_filename_when_using_wildcards = 1;
u32 fast_ascii_search = 1;

// --- Executable terms --------------------------------------------------------------------------------------

static bool _db_is_ascii_letter(u8 c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

db_needle_t db_make_needle(utf8_mode_t mode, const char *text, u32 length) {
    db_needle_t needle = {};
    needle.length = length;
    needle.ascii = utf8_is_ascii(text, length);
    if (length == 0)
        return needle;
    bool fold_case = mode != UTF8_MODE_EXACT && mode != UTF8_MODE_KEEP_CASE;
    auto set = [&](u8 c, u8 *byte, u8 *bit) {
        *bit = fold_case && _db_is_ascii_letter(c) ? 0x20 : 0;
        *byte = c | *bit;
    };
    set(text[0], &needle.first, &needle.first_case);
    set(text[length - 1], &needle.last, &needle.last_case);
    return needle;
}

static db_exec_term_t *_db_exec_term_create(const db_term_t *term, u32 op, utf8_mode_t mode, const char *text,
                                            u32 length) {
    db_exec_term_t *exec = static_cast<db_exec_term_t *>(mem_alloc(sizeof(db_exec_term_t) + length));
    std::memset(exec, 0, sizeof *exec);
    exec->op = op;
    exec->is_filter = term->is_filter;
    exec->test = db_op_get_test(op);
    exec->scan = db_op_get_scan(op);
    exec->needle = db_make_needle(mode, text, length);
    exec->text_length = length;
    std::memcpy(exec->text, text, length);
    return exec;
}

static void _db_append_exec_terms(db_query_t *query, db_term_t *term, db_exec_term_t *folder,
                                  db_exec_term_t *file) {
    term->folder_term = folder;
    term->file_term = file;
    (query->folder_terms_tail ? query->folder_terms_tail->link : query->folder_terms) = folder;
    query->folder_terms_tail = folder;
    (query->file_terms_tail ? query->file_terms_tail->link : query->file_terms) = file;
    query->file_terms_tail = file;
}

// Both forms of a term with one op, but for those that its flags make constant: `!file:abc` keeps all
// folders.
static void _db_emit(db_query_t *query, db_term_t *term, u32 op, utf8_mode_t mode, const char *text,
                     u32 length, void *regex) {
    u32 constant = term->flags & TERM_NOT ? DB_OP_TRUE : DB_OP_FALSE;
    db_exec_term_t *folder =
        _db_exec_term_create(term, term->flags & TERM_FILE_ONLY ? constant : op, mode, text, length);
    db_exec_term_t *file =
        _db_exec_term_create(term, term->flags & TERM_FOLDER_ONLY ? constant : op, mode, text, length);
    folder->regex = file->regex = regex;
    file->owns_regex = regex != nullptr;
    _db_append_exec_terms(query, term, folder, file);
}

static void _db_emit_constant(db_query_t *query, db_term_t *term, bool value) {
    _db_emit(query, term, value ? DB_OP_TRUE : DB_OP_FALSE, UTF8_MODE_EXACT, "", 0, nullptr);
}

// --- Families ----------------------------------------------------------------------------------------------

struct _db_family_t {
    u32 base;       // by mode
    u32 ascii_base; // fast ASCII
    bool has_whole_word;
};
static constexpr _db_family_t family_find = {DB_OP_FIND, DB_OP_FIND_ASCII, true};
static constexpr _db_family_t family_equal = {DB_OP_EQUAL, DB_OP_EQUAL_ASCII, false};
static constexpr _db_family_t family_wildcard_find = {DB_OP_WILDCARD_FIND, DB_OP_WILDCARD_FIND_ASCII, true};
static constexpr _db_family_t family_wildcard = {DB_OP_WILDCARD, DB_OP_WILDCARD_ASCII, false};
static constexpr _db_family_t family_starts_with = {DB_OP_STARTS_WITH, DB_OP_STARTS_WITH_ASCII, false};
static constexpr _db_family_t family_ends_with = {DB_OP_ENDS_WITH, DB_OP_ENDS_WITH_ASCII, false};

// Folds the text by the mode of the flags, and takes the family's op for them.
static void _db_emit_family(db_query_t *query, db_term_t *term, const _db_family_t &family, const char *text,
                            u32 length) {
    u32 flags = term->flags;
    bool match_case = flags & TERM_CASE, diacritics = flags & TERM_DIACRITICS;
    utf8_mode_t mode = match_case ? (diacritics ? UTF8_MODE_EXACT : UTF8_MODE_KEEP_CASE)
                                  : (diacritics ? UTF8_MODE_LOWER : UTF8_MODE_FOLD);
    utf8_buf_t folded;
    utf8_buf_init(&folded);
    utf8_fold_pattern(mode, &folded, text, length);
    u32 folded_length = static_cast<u32>(folded.length);
    bool fast =
        !match_case && diacritics && flags & TERM_FAST_ASCII && utf8_is_ascii(folded.data, folded_length);
    if (fast)
        mode = UTF8_MODE_ASCII;
    u32 bit = 1;
    u32 op = fast ? family.ascii_base : family.base;
    auto add = [&](bool is_set) {
        op += is_set ? bit : 0;
        bit *= 2;
    };
    if (family.has_whole_word)
        add(flags & TERM_WHOLE_WORD);
    if (!fast) {
        add(match_case);
        add(diacritics);
    }
    add(flags & TERM_PATH);
    add(flags & TERM_NOT);
    _db_emit(query, term, op, mode, folded.data, folded_length, nullptr);
    utf8_buf_kill(&folded);
}

// --- Regular expressions -----------------------------------------------------------------------------------

// Copies a text without metacharacters, each doubled backslash as one; false when it has metacharacters.
static bool _db_regex_get_literal(utf8_buf_t *out, const char *text) {
    for (; *text; text++) {
        if (text[0] == '\\' && text[1] == '\\')
            text++;
        else if (std::strchr(".\\[^$*{?+|()", *text))
            return false;
        utf8_buf_cat_byte(out, *text);
    }
    return true;
}

static bool _db_is_drive(const char *text) {
    return _db_is_ascii_letter(text[0]) && text[1] == ':';
}

static void _db_compile_regex(db_query_t *query, db_term_t *term) {
    if (term->length == 0) {
        _db_emit_constant(query, term, !(term->flags & TERM_NOT));
        return;
    }
    if (match_path_when_search_contains_path_separator &&
        (_db_is_drive(term->text) || std::strstr(term->text, "\\\\")))
        term->flags |= TERM_PATH;
    utf8_buf_t literal;
    utf8_buf_init(&literal);
    if (_db_regex_get_literal(&literal, term->text)) {
        term->flags |= TERM_DIACRITICS;
        term->flags &= ~(TERM_FAST_ASCII | TERM_WHOLE_WORD);
        _db_emit_family(query, term, family_find, literal.data, static_cast<u32>(literal.length));
    } else if (void *regex = db_regex_compile(term->text, term->length, !(term->flags & TERM_CASE))) {
        u32 op = DB_OP_REGEX + (term->flags & TERM_PATH ? 1 : 0) + (term->flags & TERM_NOT ? 2 : 0);
        _db_emit(query, term, op, UTF8_MODE_EXACT, "", 0, regex);
    } else {
        _db_emit_constant(query, term, term->flags & TERM_NOT);
    }
    utf8_buf_kill(&literal);
}

// --- Plain texts and wildcards -----------------------------------------------------------------------------

static void _db_cut_text(db_term_t *term, u32 front, u32 back) {
    term->length -= front + back;
    std::memmove(term->text, term->text + front, term->length);
    term->text[term->length] = 0;
}

static bool _db_starts_with_star(const db_term_t *term) {
    return term->length != 0 && term->text[0] == '*';
}
static bool _db_ends_with_star(const db_term_t *term) {
    return term->length != 0 && term->text[term->length - 1] == '*';
}

// Wildcards that a plain search does as well, and much faster. Returns the number of those left.
static u32 _db_simplify_wildcards(db_term_t *term) {
    if (!(term->flags & TERM_WILDCARDS))
        return 0;
    u32 count = utf8_wildcard_squeeze(term->text, &term->length);
    term->text[term->length] = 0;
    if (count == 1 && term->length == 1 && _db_starts_with_star(term)) {
        _db_cut_text(term, 1, 0);
        term->flags &= ~(TERM_WHOLE_WORD | TERM_WHOLE_NAME);
        return 0;
    }
    if (count == 1 && !(term->flags & (TERM_WHOLE_NAME_WILDCARDS | TERM_WHOLE_WORD)) &&
        (_db_starts_with_star(term) || _db_ends_with_star(term))) {
        bool front = _db_starts_with_star(term);
        _db_cut_text(term, front ? 1 : 0, front ? 0 : 1);
        return 0;
    }
    if (utf8_wildcard_strip_stars(term->text, &term->length)) {
        term->text[term->length] = 0;
        term->flags &= ~(TERM_WHOLE_WORD | TERM_WHOLE_NAME);
        return 0;
    }
    return count;
}

static bool _db_is_absolute(const db_term_t *term) {
    return _db_is_drive(term->text) || std::strncmp(term->text, "\\\\", 2) == 0;
}

static void _db_prepare_path(db_term_t *term) {
    if (convert_forward_slash_to_backslash) {
        for (u32 i = 0; i < term->length; i++) {
            if (term->text[i] == '/')
                term->text[i] = '\\';
        }
    }
    if (match_path_when_search_contains_path_separator &&
        (_db_is_absolute(term) || std::strchr(term->text, '\\')))
        term->flags |= TERM_PATH;
}

void db_term_compile(db_query_t *query, db_term_t *term) {
    if (term->flags & TERM_REGEX) {
        _db_compile_regex(query, term);
        return;
    }
    u32 count = _db_simplify_wildcards(term);
    _db_prepare_path(term);
    u32 flags = term->flags;
    const char *text = term->text;
    if (count == 0 && flags & TERM_PATH && !(flags & (TERM_WHOLE_WORD | TERM_WHOLE_NAME)) &&
        _db_is_absolute(term)) {
        _db_emit_family(query, term, family_starts_with, text, term->length);
    } else if (count == 1 && flags & TERM_WHOLE_NAME_WILDCARDS && _db_starts_with_star(term)) {
        _db_emit_family(query, term, family_ends_with, text + 1, term->length - 1);
    } else if (count == 1 && flags & TERM_WHOLE_NAME_WILDCARDS && _db_ends_with_star(term)) {
        _db_emit_family(query, term, family_starts_with, text, term->length - 1);
    } else if (count != 0) {
        _db_emit_family(query, term,
                        flags & TERM_WHOLE_NAME_WILDCARDS ? family_wildcard : family_wildcard_find, text,
                        term->length);
    } else if (term->length == 0) {
        // Every name holds the empty text, and no name is it.
        _db_emit_constant(query, term, !(flags & TERM_WHOLE_NAME) == !(flags & TERM_NOT));
    } else {
        _db_emit_family(query, term, flags & TERM_WHOLE_NAME ? family_equal : family_find, text,
                        term->length);
    }
}

static void _db_free_exec_terms(db_exec_term_t *term) {
    while (term) {
        db_exec_term_t *link = term->link;
        if (term->owns_regex)
            db_regex_free(term->regex);
        mem_free(term);
        term = link;
    }
}

void db_query_free_terms(db_query_t *query) {
    _db_free_exec_terms(query->folder_terms);
    _db_free_exec_terms(query->file_terms);
    query->folder_terms = query->folder_terms_tail = nullptr;
    query->file_terms = query->file_terms_tail = nullptr;
}

} // namespace findwright
