#include "query/db_explain.h"

#include "base/utf8.h"
#include "os/os.h"
#include "query/db_query_internal.h"
#include "query/db_query_value.h"
#include "query/db_search.h"

#include <climits>

namespace findwright {

static constexpr u32 LIST_MAX = 8;        // items of a list that are written out
static constexpr u32 TERM_WIDTH_MAX = 48; // longer terms push their line's columns to the right

// --- Texts and lists ---------------------------------------------------------------------------------------

static void _db_explain_text(utf8_buf_t *out, const char *text, u32 length) {
    utf8_buf_cat_byte(out, '"');
    for (const char *end = text + length; text != end;) {
        u32 value, size = utf8_decode(text, end, &value);
        bool is_whole = size == 1 || (text[size - 1] & 0xC0) == 0x80;
        if (value < 0x20 || (value >= 0x7F && value < 0xA0) || !is_whole) {
            for (u32 i = 0; i < size; i++)
                utf8_buf_cat_printf(out, "\\x%02x", static_cast<u32>(static_cast<u8>(text[i])));
        } else {
            if (value == '"')
                utf8_buf_cat_byte(out, '"');
            utf8_buf_cat_utf8(out, text, size);
        }
        text += size;
    }
    utf8_buf_cat_byte(out, '"');
}

// A list is opened by the first item; items past LIST_MAX are only counted.
struct _db_list_t {
    utf8_buf_t *out;
    u32 count;
};

static bool _db_list_next(_db_list_t *list) {
    if (list->count++ >= LIST_MAX)
        return false;
    utf8_buf_cat_string(list->out, list->count == 1 ? " " : "; ");
    return true;
}

static void _db_list_end(const _db_list_t *list) {
    if (list->count > LIST_MAX)
        utf8_buf_cat_printf(list->out, "; ... %u in all", list->count);
}

static void _db_explain_extensions(utf8_buf_t *out, const db_exec_term_t *term) {
    const auto *extensions = static_cast<const db_extensions_t *>(term->data);
    _db_list_t list = {out, 0};
    for (u32 i = 0; extensions && i < extensions->count; i++) {
        if (_db_list_next(&list))
            _db_explain_text(out, extensions->items[i].text, extensions->items[i].length);
    }
    if (extensions && extensions->has_empty && _db_list_next(&list))
        _db_explain_text(out, "", 0);
    _db_list_end(&list);
}

static void _db_explain_file_list(utf8_buf_t *out, const db_exec_term_t *term) {
    const auto *names = static_cast<const db_file_list_names_t *>(term->data);
    _db_list_t list = {out, 0};
    for (u32 i = 0; names && i < names->count; i++) {
        if (_db_list_next(&list))
            _db_explain_text(out, names->items[i].text, names->items[i].length);
    }
    _db_list_end(&list);
}

static void _db_explain_refs(_db_list_t *list, const char *relation, const mem_ref_t *refs, u32 count) {
    utf8_buf_t path;
    utf8_buf_init(&path);
    for (u32 i = 0; i < count; i++) {
        if (!_db_list_next(list))
            continue;
        utf8_buf_cat_string(list->out, relation);
        if (refs[i] != 0) // what is in no folder
            db_item_get_full_path_name(&path, db_item(refs[i]));
        _db_explain_text(list->out, path.data, static_cast<u32>(path.length));
    }
    utf8_buf_kill(&path);
}

// The places that a path led to. Only the family of mixed ones does not say by its name what they are.
static void _db_explain_anchors(utf8_buf_t *out, const db_exec_term_t *term, u32 family) {
    const auto *anchors = static_cast<const db_anchors_t *>(term->data);
    if (!anchors)
        return;
    _db_list_t list = {out, 0};
    bool is_mixed = family == DB_OP_ANCHORS;
    _db_explain_refs(&list, is_mixed ? "below " : "", anchors->inner, anchors->inner_count);
    _db_explain_refs(&list, is_mixed ? "at or below " : "", anchors->outer, anchors->outer_count);
    _db_explain_refs(&list, is_mixed ? "at " : "", anchors->files, anchors->file_count);
    _db_list_end(&list);
}

// --- Numbers -----------------------------------------------------------------------------------------------

static void _db_explain_size(utf8_buf_t *out, u64 value) {
    utf8_buf_cat_printf(out, "%I64u", value);
}

static void _db_explain_date(utf8_buf_t *out, u64 value) {
    utf8_buf_t text;
    utf8_buf_init(&text);
    utf8_buf_format_iso_date(&text, os_file_time_to_local(value));
    if (text.length != 0)
        utf8_buf_cat_utf8(out, text.data, static_cast<u32>(text.length));
    else
        _db_explain_size(out, value);
    utf8_buf_kill(&text);
}

static void _db_explain_range(utf8_buf_t *out, u64 low, u64 high, void (*put)(utf8_buf_t *, u64)) {
    if (low > high) {
        utf8_buf_cat_string(out, " nothing");
        return;
    }
    if (low == VALUE_UNKNOWN) {
        utf8_buf_cat_string(out, " unknown");
        return;
    }
    utf8_buf_cat_byte(out, ' ');
    if (low != 0 || high >= DB_RANGE_MAX || high == 0)
        put(out, low);
    if (low == high)
        return;
    utf8_buf_cat_string(out, "..");
    if (high < DB_RANGE_MAX)
        put(out, high);
}

static void _db_explain_count(utf8_buf_t *out, i32 low, i32 high) {
    if (low > high)
        utf8_buf_cat_string(out, " nothing");
    else if (low == high)
        utf8_buf_cat_printf(out, " %d", low);
    else if (high == INT_MAX)
        utf8_buf_cat_printf(out, " %d..", low);
    else
        utf8_buf_cat_printf(out, low == INT_MIN ? " ..%d" : " %d..%d", low == INT_MIN ? high : low, high);
}

static void _db_explain_mask(utf8_buf_t *out, u32 mask) {
    char letters[UTF8_ATTRIBUTE_LETTERS_SIZE];
    if (utf8_attributes_to_letters(letters, mask) != 0)
        utf8_buf_cat_printf(out, " %s", letters);
    else if (mask != 0)
        utf8_buf_cat_printf(out, " 0x%x", mask);
    else
        utf8_buf_cat_string(out, " any");
}

// --- One form of a term ------------------------------------------------------------------------------------

static const char *_db_family_name(u32 family) {
    if (family == DB_OP_TRUE)
        return "true";
    u32 place = db_op_find_range(family);
    return place != DB_OP_RANGES ? db_op_ranges[place].name : "false";
}

static void _db_explain_value(utf8_buf_t *out, const db_exec_term_t *term, u32 family) {
    switch (family) {
    case DB_OP_SIZE:
    case DB_OP_SIZE_READ: _db_explain_range(out, term->range.low, term->range.high, _db_explain_size); break;
    case DB_OP_DATE_MODIFIED:
    case DB_OP_DATE_CREATED:
    case DB_OP_DATE_ACCESSED:
    case DB_OP_DATE_MODIFIED_READ:
    case DB_OP_DATE_CREATED_READ:
    case DB_OP_DATE_ACCESSED_READ:
    case DB_OP_RECENT_CHANGE:
    case DB_OP_DATE_RUN: _db_explain_range(out, term->range.low, term->range.high, _db_explain_date); break;
    case DB_OP_INDEX_ORDINAL:
    case DB_OP_LENGTH:
    case DB_OP_PARENTS:
    case DB_OP_RUN_COUNT:
    case DB_OP_CHILD_COUNT:
    case DB_OP_CHILD_FILE_COUNT:
    case DB_OP_CHILD_FOLDER_COUNT: _db_explain_count(out, term->count.low, term->count.high); break;
    case DB_OP_ATTRIBUTES:
    case DB_OP_ATTRIBUTES_READ: _db_explain_mask(out, term->mask); break;
    case DB_OP_EXTENSION:
    case DB_OP_EXTENSION_OR_NONE: _db_explain_extensions(out, term); break;
    case DB_OP_FILE_LIST: _db_explain_file_list(out, term); break;
    case DB_OP_ANCHORS:
    case DB_OP_ANCHORS_INNER:
    case DB_OP_ANCHORS_OUTER:
    case DB_OP_ANCHOR_INNER:
    case DB_OP_ANCHOR_OUTER:
    case DB_OP_PARENT:
    case DB_OP_PARENTS_SEVERAL: _db_explain_anchors(out, term, family); break;
    default: break;
    }
}

// How a text is compared, by an op's flags.
static void _db_explain_modifiers(utf8_buf_t *out, const db_op_parts_t *parts) {
    u32 place = db_op_find_range(parts->family);
    bool has_mode = place != DB_OP_RANGES && db_op_ranges[place].bits & DB_OP_BIT_MODE;
    if (parts->path)
        utf8_buf_cat_string(out, ", path");
    if (parts->whole_word)
        utf8_buf_cat_string(out, ", word");
    if (has_mode && (parts->mode == UTF8_MODE_KEEP_CASE || parts->mode == UTF8_MODE_EXACT))
        utf8_buf_cat_string(out, ", case");
    if (has_mode && parts->mode != UTF8_MODE_FOLD && parts->mode != UTF8_MODE_KEEP_CASE)
        utf8_buf_cat_string(out, ", diacritics");
}

static void _db_explain_form(utf8_buf_t *out, const db_exec_term_t *term) {
    db_op_parts_t parts = db_op_decode(term->op);
    if (parts.negated)
        utf8_buf_cat_string(out, "not ");
    utf8_buf_cat_string(out, _db_family_name(parts.family));
    db_op_parts_t matcher = db_op_decode(term->matcher_op);
    bool has_matcher = term->matcher_op != DB_OP_TRUE; // of a function, whose own op has no text flags
    if (has_matcher && matcher.family != DB_OP_FIND)
        utf8_buf_cat_printf(out, " %s", _db_family_name(matcher.family));
    if (term->text_length != 0) {
        utf8_buf_cat_byte(out, ' ');
        _db_explain_text(out, term->text, term->text_length);
    }
    _db_explain_value(out, term, parts.family);
    _db_explain_modifiers(out, &parts);
    if (has_matcher)
        _db_explain_modifiers(out, &matcher);
}

// --- A line ------------------------------------------------------------------------------------------------

enum _db_answer_t : u32 { ANSWER_FALSE, ANSWER_TRUE, ANSWER_DEPENDS };

// Whether the pass of a form has one answer for all items: some families are not looked at in one of the
// passes.
static _db_answer_t _db_get_answer(const db_exec_term_t *term, db_op_pass_t pass) {
    if (term->test == db_op_get_functions(DB_OP_FALSE, pass).test)
        return ANSWER_FALSE;
    return term->test == db_op_get_functions(DB_OP_TRUE, pass).test ? ANSWER_TRUE : ANSWER_DEPENDS;
}

static u32 _db_text_width(const utf8_buf_t *text) {
    u32 width = 0;
    for (const char *p = text->data, *end = p + text->length; p != end; p += utf8_char_length(p, end))
        width++;
    return width;
}

// Where a link leads, from a form to one of the same list.
static void _db_explain_link(utf8_buf_t *out, const db_exec_term_t *first, const db_exec_term_t *to,
                             const char *end) {
    u32 number = 1;
    for (const db_exec_term_t *term = first; to && term != to; term = term->link)
        number++;
    if (to)
        utf8_buf_printf(out, "%u", number);
    else
        utf8_buf_copy_string(out, end);
}

struct _db_line_t {
    const db_exec_term_t *file, *folder;
    const db_exec_term_t *shown; // the one of them that says more
    db_op_pass_t file_pass, folder_pass;
    utf8_buf_t text;  // of the shown one
    utf8_buf_t other; // scratch
};

static void _db_line_choose(_db_line_t *line) {
    // Constants have taken the place of a form that the search excludes.
    line->shown = line->file->op <= DB_OP_FALSE && line->folder->op > DB_OP_FALSE ? line->folder : line->file;
    utf8_buf_empty(&line->text);
    _db_explain_form(&line->text, line->shown);
}

// What a form does where that is not what the line shows.
static void _db_line_note(utf8_buf_t *out, _db_line_t *line, const db_exec_term_t *term, db_op_pass_t pass) {
    const char *kind = pass.is_folder ? "folders" : "files";
    _db_answer_t answer = _db_get_answer(term, pass);
    utf8_buf_empty(&line->other);
    _db_explain_form(&line->other, term);
    bool is_same =
        term->op == line->shown->op && utf8_is_equal(line->other.data, static_cast<u32>(line->other.length),
                                                     line->text.data, static_cast<u32>(line->text.length));
    if (answer != ANSWER_DEPENDS && (!is_same || term->op > DB_OP_FALSE))
        utf8_buf_cat_printf(out, "   (%s: %s)", kind, answer == ANSWER_TRUE ? "true" : "false");
    else if (!is_same)
        utf8_buf_cat_printf(out, "   (%s: %s, op %u)", kind, line->other.data, term->op);
}

// Appends a field and blanks up to its width.
static void _db_cat_field(utf8_buf_t *out, const utf8_buf_t *text, u32 width) {
    utf8_buf_cat_utf8(out, text->data, static_cast<u32>(text->length));
    for (u32 i = _db_text_width(text); i < width; i++)
        utf8_buf_cat_byte(out, ' ');
}

static void _db_explain_line(utf8_buf_t *out, const db_query_t *query, _db_line_t *line, u32 number,
                             u32 column) {
    static constexpr u32 OP_WIDTH = 6, LINK_WIDTH = 6; // of "op 365" and "result"
    _db_line_choose(line);
    utf8_buf_cat_printf(out, "%4u  ", number);
    _db_cat_field(out, &line->text, column);
    utf8_buf_printf(&line->other, "op %u", line->shown->op);
    utf8_buf_cat_string(out, "  ");
    _db_cat_field(out, &line->other, OP_WIDTH);
    _db_explain_link(&line->other, query->file_terms, line->file->next, "result");
    utf8_buf_cat_string(out, "  match -> ");
    _db_cat_field(out, &line->other, LINK_WIDTH);
    _db_explain_link(&line->other, query->file_terms, line->file->notnext, "no");
    utf8_buf_cat_printf(out, "  else -> %s", line->other.data);
    _db_line_note(out, line, line->folder, line->folder_pass);
    _db_line_note(out, line, line->file, line->file_pass);
    if (line->file->is_filter)
        utf8_buf_cat_string(out, "   (filter)");
    utf8_buf_cat_byte(out, '\n');
}

void db_query_explain(db_query_t *query, utf8_buf_t *out) {
    utf8_buf_empty(out);
    if (!query->db->loaded)
        return;
    db_wait(query->db, "db_query_explain");
    bool is_single = query->file_terms && !query->file_terms->link;
    _db_line_t line = {};
    line.file_pass = {false, is_single};
    line.folder_pass = {true, is_single};
    utf8_buf_init(&line.text);
    utf8_buf_init(&line.other);
    u32 column = 0;
    for (bool measure : {true, false}) {
        u32 number = 0;
        line.file = query->file_terms;
        line.folder = query->folder_terms;
        for (; line.file; line.file = line.file->link, line.folder = line.folder->link) {
            if (!measure) {
                _db_explain_line(out, query, &line, ++number, column);
                continue;
            }
            _db_line_choose(&line);
            u32 width = _db_text_width(&line.text);
            if (width > column && width <= TERM_WIDTH_MAX)
                column = width;
        }
    }
    utf8_buf_kill(&line.text);
    utf8_buf_kill(&line.other);
}

} // namespace findwright
