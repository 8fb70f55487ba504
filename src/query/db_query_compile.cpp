// Compiles source terms into executable ones. The order of the rules is a contract: the first that fits wins.
#include "base/mem.h"
#include "base/utf8.h"
#include "db/db_item_set.h"
#include "os/os.h"
#include "query/db_query_internal.h"
#include "query/db_regex.h"
#include "query/db_search.h"
#include "query/db_search_word.h"

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

db_exec_term_t *db_exec_term_create(const db_term_t *term, u32 op, utf8_mode_t mode, const char *text,
                                    u32 length) {
    db_exec_term_t *exec = static_cast<db_exec_term_t *>(mem_alloc(sizeof(db_exec_term_t) + length));
    std::memset(exec, 0, sizeof *exec);
    exec->op = op;
    exec->is_filter = term->is_filter;
    exec->text_test = db_op_get_text_test(op);
    exec->mode = mode;
    exec->needle = db_make_needle(mode, text, length);
    exec->has_separator = length != 0 && std::memchr(text, '\\', length);
    exec->text_length = length;
    std::memcpy(exec->text, text, length);
    return exec;
}

db_exec_term_t *db_exec_term_create_constant(const db_term_t *term, bool value) {
    return db_exec_term_create(term, value ? DB_OP_TRUE : DB_OP_FALSE, UTF8_MODE_EXACT, "", 0);
}

static void _db_exec_term_free(db_exec_term_t *term) {
    if (term->owns_regex)
        db_regex_free(term->regex);
    if (term->data)
        term->data->free(term->data);
    if (term->folders && !term->folders_are_shared)
        db_item_set_free(term->folders);
    mem_free(term);
}

static db_exec_term_t *_db_exclude_form(const db_term_t *term, db_exec_term_t *form, u32 excluding_flag) {
    if (!(term->flags & excluding_flag))
        return form;
    _db_exec_term_free(form);
    return db_exec_term_create_missing(term);
}

void db_query_append_terms(db_query_t *query, db_term_t *term, db_exec_term_t *folder, db_exec_term_t *file) {
    // `!file:abc` keeps all folders.
    folder = _db_exclude_form(term, folder, TERM_FILE_ONLY);
    file = _db_exclude_form(term, file, TERM_FOLDER_ONLY);
    term->folder_term = folder;
    term->file_term = file;
    (query->folder_terms_tail ? query->folder_terms_tail->link : query->folder_terms) = folder;
    query->folder_terms_tail = folder;
    (query->file_terms_tail ? query->file_terms_tail->link : query->file_terms) = file;
    query->file_terms_tail = file;
}

void db_query_append_text_term(db_query_t *query, db_term_t *term, u32 op, utf8_mode_t mode, const char *text,
                               u32 length) {
    db_query_append_terms(query, term, db_exec_term_create(term, op, mode, text, length),
                          db_exec_term_create(term, op, mode, text, length));
}

// --- Families ----------------------------------------------------------------------------------------------

// A text on its way to an op.
struct _db_text_t {
    u32 flags; // TERM_...
    utf8_buf_t text;
    // What it has become: an op, and a folded text or an expression.
    u32 op;
    utf8_mode_t mode;
    void *regex;
};

// Folds the text by the mode of the flags, and takes the family's op for them.
static void _db_take_family(_db_text_t *t, u32 family) {
    u32 flags = t->flags;
    bool match_case = flags & TERM_CASE, diacritics = flags & TERM_DIACRITICS;
    t->mode = db_term_get_mode(flags);
    // Before it is folded: letters beyond ASCII that fold into it must find themselves.
    bool is_ascii = utf8_is_ascii(t->text.data, static_cast<u32>(t->text.length));
    utf8_buf_t folded;
    utf8_buf_init(&folded);
    utf8_fold_pattern(t->mode, &folded, t->text.data, static_cast<u32>(t->text.length));
    utf8_buf_copy_utf8(&t->text, folded.data, folded.length);
    utf8_buf_kill(&folded);
    bool fast = !match_case && diacritics && flags & TERM_FAST_ASCII && is_ascii;
    if (fast)
        t->mode = UTF8_MODE_ASCII;
    u32 bit = 1;
    // The form for the fast comparison stands right behind the family's first range.
    u32 op = fast ? db_op_ranges[db_op_find_range(family)].end : family;
    auto add = [&](bool is_set) {
        op += is_set ? bit : 0;
        bit *= 2;
    };
    if (db_op_ranges[db_op_find_range(op)].bits & DB_OP_BIT_WORD)
        add(flags & TERM_WHOLE_WORD);
    if (!fast) {
        add(match_case);
        add(diacritics);
    }
    add(flags & TERM_PATH);
    add(flags & TERM_NOT);
    t->op = op;
}

static void _db_take_constant(_db_text_t *t, bool value) {
    t->op = value ? DB_OP_TRUE : DB_OP_FALSE;
    t->mode = UTF8_MODE_EXACT;
    utf8_buf_empty(&t->text);
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

static void _db_take_regex(_db_text_t *t) {
    if (t->text.length == 0) {
        _db_take_constant(t, !(t->flags & TERM_NOT));
        return;
    }
    utf8_buf_t literal;
    utf8_buf_init(&literal);
    if (_db_regex_get_literal(&literal, t->text.data)) {
        t->flags |= TERM_DIACRITICS;
        t->flags &= ~(TERM_FAST_ASCII | TERM_WHOLE_WORD);
        utf8_buf_copy_utf8(&t->text, literal.data, literal.length);
        _db_take_family(t, DB_OP_FIND);
    } else if (void *regex = db_regex_compile(t->text.data, static_cast<u32>(t->text.length),
                                              !(t->flags & TERM_CASE))) {
        t->op = DB_OP_REGEX + (t->flags & TERM_PATH ? 1 : 0) + (t->flags & TERM_NOT ? 2 : 0);
        t->mode = UTF8_MODE_EXACT;
        t->regex = regex;
    } else {
        _db_take_constant(t, t->flags & TERM_NOT);
    }
    utf8_buf_kill(&literal);
}

// --- Plain texts and wildcards -----------------------------------------------------------------------------

static void _db_cut_text(_db_text_t *t, u32 front, u32 back) {
    utf8_buf_t rest;
    utf8_buf_init(&rest);
    utf8_buf_copy_utf8(&rest, t->text.data + front, t->text.length - front - back);
    utf8_buf_copy_utf8(&t->text, rest.data, rest.length);
    utf8_buf_kill(&rest);
}

static bool _db_starts_with_star(const _db_text_t *t) {
    return t->text.length != 0 && t->text.data[0] == '*';
}
static bool _db_ends_with_star(const _db_text_t *t) {
    return t->text.length != 0 && t->text.data[t->text.length - 1] == '*';
}

static void _db_set_length(_db_text_t *t, u32 length) {
    t->text.length = length;
    t->text.data[length] = 0;
}

// Wildcards that a plain search does as well, and much faster. Returns the number of those left.
static u32 _db_simplify_wildcards(_db_text_t *t) {
    if (!(t->flags & TERM_WILDCARDS))
        return 0;
    u32 length = static_cast<u32>(t->text.length);
    u32 count = utf8_wildcard_squeeze(t->text.data, &length);
    _db_set_length(t, length);
    if (count == 1 && length == 1 && _db_starts_with_star(t)) {
        _db_cut_text(t, 1, 0);
        t->flags &= ~(TERM_WHOLE_WORD | TERM_WHOLE_NAME);
        return 0;
    }
    if (count == 1 && !(t->flags & (TERM_WHOLE_NAME_WILDCARDS | TERM_WHOLE_WORD)) &&
        (_db_starts_with_star(t) || _db_ends_with_star(t))) {
        bool front = _db_starts_with_star(t);
        _db_cut_text(t, front ? 1 : 0, front ? 0 : 1);
        return 0;
    }
    if (utf8_wildcard_strip_stars(t->text.data, &length)) {
        _db_set_length(t, length);
        t->flags &= ~(TERM_WHOLE_WORD | TERM_WHOLE_NAME);
        return 0;
    }
    return count;
}

// The op for a text whose wildcards are counted.
static void _db_take_plain(_db_text_t *t, u32 count) {
    u32 flags = t->flags;
    if (count == 1 && flags & TERM_WHOLE_NAME_WILDCARDS && _db_starts_with_star(t)) {
        _db_cut_text(t, 1, 0);
        _db_take_family(t, DB_OP_ENDS_WITH);
    } else if (count == 1 && flags & TERM_WHOLE_NAME_WILDCARDS && _db_ends_with_star(t)) {
        _db_cut_text(t, 0, 1);
        _db_take_family(t, DB_OP_STARTS_WITH);
    } else if (count != 0 && flags & TERM_WHOLE_NAME_WILDCARDS) {
        _db_take_family(t, DB_OP_WILDCARD);
    } else if (count != 0) {
        _db_take_family(t, DB_OP_WILDCARD_FIND);
    } else if (t->text.length == 0) {
        // Every name holds the empty text, and no name is it.
        _db_take_constant(t, !(flags & TERM_WHOLE_NAME) == !(flags & TERM_NOT));
    } else if (flags & TERM_WHOLE_NAME) {
        _db_take_family(t, DB_OP_EQUAL);
    } else {
        _db_take_family(t, DB_OP_FIND);
    }
}

static void _db_prepare_path(_db_text_t *t) {
    if (convert_forward_slash_to_backslash) {
        for (i32 i = 0; i < t->text.length; i++) {
            if (t->text.data[i] == '/')
                t->text.data[i] = '\\';
        }
    }
    if (match_path_when_search_contains_path_separator &&
        (_db_is_drive(t->text.data) || std::strchr(t->text.data, '\\')))
        t->flags |= TERM_PATH;
}

static void _db_text_init(_db_text_t *t, u32 flags, const char *text, u32 length) {
    t->flags = flags;
    t->op = DB_OP_FALSE;
    t->mode = UTF8_MODE_EXACT;
    t->regex = nullptr;
    utf8_buf_init(&t->text);
    utf8_buf_copy_utf8(&t->text, text, length);
}

// --- Terms -------------------------------------------------------------------------------------------------

db_exec_term_t *db_exec_term_create_folded(const db_term_t *term, u32 family, const char *text, u32 length) {
    _db_text_t t;
    _db_text_init(&t, term->flags, text, length);
    _db_take_family(&t, family);
    db_exec_term_t *exec =
        db_exec_term_create(term, t.op, t.mode, t.text.data, static_cast<u32>(t.text.length));
    utf8_buf_kill(&t.text);
    return exec;
}

db_exec_term_t *db_exec_term_create_matcher(const db_term_t *term, u32 op, const char *text) {
    _db_text_t t;
    _db_text_init(&t, term->flags & ~(TERM_NOT | TERM_PATH), text, utf8_length(text));
    if (t.flags & TERM_REGEX)
        _db_take_regex(&t);
    else
        _db_take_plain(&t, _db_simplify_wildcards(&t));
    db_exec_term_t *exec =
        db_exec_term_create(term, op, t.mode, t.text.data, static_cast<u32>(t.text.length));
    exec->matcher_op = t.op;
    exec->text_test = db_op_get_text_test(t.op);
    exec->regex = t.regex;
    exec->owns_regex = t.regex != nullptr;
    utf8_buf_kill(&t.text);
    return exec;
}

static void _db_append_text(db_query_t *query, db_term_t *term, const _db_text_t *t) {
    u32 length = static_cast<u32>(t->text.length);
    db_exec_term_t *folder = db_exec_term_create(term, t->op, t->mode, t->text.data, length);
    db_exec_term_t *file = db_exec_term_create(term, t->op, t->mode, t->text.data, length);
    if (t->regex) {
        folder->regex = file->regex = t->regex;
        // A form that the flags exclude is freed when it is appended: the other one owns the expression.
        (term->flags & TERM_FOLDER_ONLY ? folder : file)->owns_regex = true;
    }
    db_query_append_terms(query, term, folder, file);
}

// `\abc`, `abc\` and `\abc\` without another separator: the family, with the separators cut off; 0 for other
// texts.
static u32 _db_take_component(const char **text, u32 *length) {
    bool front = *length != 0 && (*text)[0] == '\\';
    bool back = *length > 1 && (*text)[*length - 1] == '\\';
    const char *inner = *text + (front ? 1 : 0);
    u32 inner_length = *length - (front ? 1 : 0) - (back ? 1 : 0);
    if ((!front && !back) || inner_length == 0 || std::memchr(inner, '\\', inner_length))
        return 0;
    *text = inner;
    *length = inner_length;
    return front && back ? DB_OP_COMPONENT_EQUAL
           : front       ? DB_OP_COMPONENT_STARTS_WITH
                         : DB_OP_COMPONENT_ENDS_WITH;
}

static bool _db_compile_component(db_query_t *query, db_term_t *term, const _db_text_t *t, u32 count) {
    const char *text = t->text.data;
    u32 length = static_cast<u32>(t->text.length);
    if (count == 2 && length > 2 && text[0] == '*' && text[length - 1] == '*') {
        text++;
        length -= 2;
    } else if (count != 0) {
        return false;
    }
    u32 family = _db_take_component(&text, &length);
    if (family == 0)
        return false;
    // How a component's text is folded and compared is that of names.
    u32 name_family = family == DB_OP_COMPONENT_EQUAL         ? DB_OP_EQUAL
                      : family == DB_OP_COMPONENT_STARTS_WITH ? DB_OP_STARTS_WITH
                                                              : DB_OP_ENDS_WITH;
    db_term_t plain = *term;
    plain.flags = t->flags & ~(TERM_NOT | TERM_PATH);
    db_exec_term_t *forms[2];
    for (db_exec_term_t *&form : forms) {
        form = db_exec_term_create_folded(&plain, name_family, text, length);
        form->matcher_op = form->op;
        form->op = db_term_get_mode_op(family, t->flags, form->mode);
    }
    db_query_append_terms(query, term, forms[0], forms[1]);
    return true;
}

// A path as a whole, or parts of one. False for a text that is compared with names or full paths.
static bool _db_compile_path(db_query_t *query, db_term_t *term, const _db_text_t *t, u32 count) {
    if (!(t->flags & TERM_PATH) || t->flags & (TERM_WHOLE_WORD | TERM_WHOLE_NAME))
        return false;
    u32 length = static_cast<u32>(t->text.length);
    if (count == 0 && db_term_compile_anchored_path(query, term, t->text.data, length))
        return true;
    if (count == 1 && _db_ends_with_star(t) &&
        db_term_compile_anchored_path(query, term, t->text.data, length - 1))
        return true;
    return _db_compile_component(query, term, t, count);
}

static void _db_compile_text(db_query_t *query, db_term_t *term, _db_text_t *t) {
    u32 count = _db_simplify_wildcards(t);
    _db_prepare_path(t);
    if (_db_compile_path(query, term, t, count))
        return;
    bool is_path = t->flags & TERM_PATH && !(t->flags & (TERM_WHOLE_WORD | TERM_WHOLE_NAME));
    if (count == 0 && is_path &&
        db_path_is_absolute(query->db, t->text.data, static_cast<u32>(t->text.length)))
        _db_take_family(t, DB_OP_STARTS_WITH);
    else
        _db_take_plain(t, count);
    _db_append_text(query, term, t);
}

void db_term_compile(db_query_t *query, db_term_t *term) {
    if (db_term_compile_function(query, term))
        return;
    _db_text_t t;
    _db_text_init(&t, term->flags, term->text, term->length);
    if (t.flags & TERM_REGEX) {
        if (match_path_when_search_contains_path_separator &&
            (_db_is_drive(term->text) || std::strstr(term->text, "\\\\")))
            t.flags |= TERM_PATH;
        _db_take_regex(&t);
        _db_append_text(query, term, &t);
    } else {
        _db_compile_text(query, term, &t);
    }
    utf8_buf_kill(&t.text);
}

static db_op_functions_t _db_get_functions(const db_exec_term_t *term, db_op_pass_t pass) {
    db_op_parts_t parts = db_op_decode(term->op);
    bool is_name = parts.family == DB_OP_FIND && !parts.path;
    db_op_functions_t functions = is_name ? db_op_functions_t{} : db_op_get_path_functions(term, pass);
    return functions.test ? functions : db_op_get_functions(term->op, pass);
}

static void _db_bind_list(db_exec_term_t *terms, bool is_folder) {
    db_op_pass_t pass = {is_folder, terms && !terms->link};
    u32 number = 0;
    for (db_exec_term_t *term = terms; term; term = term->link) {
        term->number = number++;
        term->word = db_term_get_word(term);
        db_op_functions_t functions = _db_get_functions(term, pass);
        term->test = functions.test;
        term->scan = functions.scan;
    }
}

void db_query_bind_terms(db_query_t *query) {
    _db_bind_list(query->folder_terms, true);
    _db_bind_list(query->file_terms, false);
}

static void _db_free_exec_terms(db_exec_term_t *term) {
    while (term) {
        db_exec_term_t *link = term->link;
        _db_exec_term_free(term);
        term = link;
    }
}

void db_query_free_terms(db_query_t *query) {
    _db_free_exec_terms(query->folder_terms);
    _db_free_exec_terms(query->file_terms);
    query->folder_terms = query->folder_terms_tail = nullptr;
    query->file_terms = query->file_terms_tail = nullptr;
    query->needs_extended_information = query->needs_disk_information = false;
    query->has_type_term = query->has_content_term = false;
}

} // namespace findwright
