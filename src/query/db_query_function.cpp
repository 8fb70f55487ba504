// The functions of a search: the table of their names, and what each makes of its argument.
//
// A name is compared with the term's text as it stands, colon and all. A term that is none of them is plain
// text, colon included.
#include "base/mem.h"
#include "base/utf8.h"
#include "db/db_folder.h"
#include "os/os_shell.h"
#include "query/db_query_internal.h"
#include "query/db_query_value.h"
#include "query/db_regex.h"
#include "query/db_search.h"

#include <cstring>
#include <iterator>

namespace findwright {

// A row of the table, with what its compile function wants to know.
struct _db_function_t;
using _db_function_compile_t = void(db_query_t *query, db_term_t *term, const _db_function_t *function,
                                    const char *argument);
struct _db_function_t {
    const char *name;
    _db_function_compile_t *compile;
    u32 op;
    u32 read_op; // where the column is not in the records
    u32 flag;    // DB_FLAG_... of the column
};

// --- Parts of terms ----------------------------------------------------------------------------------------

static u32 _db_negate_op(const db_term_t *term, u32 op) {
    return op + (term->flags & TERM_NOT ? 1 : 0);
}

// One form of a function that tests no text.
static db_exec_term_t *_db_create_form(const db_term_t *term, u32 op) {
    return db_exec_term_create(term, op, UTF8_MODE_EXACT, "", 0);
}

static void _db_append_missing(db_query_t *query, db_term_t *term) {
    db_query_append_terms(query, term, db_exec_term_create_missing(term), db_exec_term_create_missing(term));
}

// The op of a family that compares texts, for the flags of a term.
static u32 _db_take_op(u32 flags, u32 first_op) {
    u32 op = first_op, bit = 1, bits = db_op_ranges[db_op_find_range(first_op)].bits;
    auto add = [&](u32 has_bit, u32 is_set) {
        op += has_bit && is_set ? bit : 0;
        bit *= has_bit ? 2 : 1;
    };
    add(bits & DB_OP_BIT_MODE, flags & TERM_CASE);
    add(bits & DB_OP_BIT_MODE, flags & TERM_DIACRITICS);
    add(bits & DB_OP_BIT_PATH, flags & TERM_PATH);
    add(1, flags & TERM_NOT);
    return op;
}

// Whether the fast ASCII form of a family serves for a text.
static bool _db_is_fast(u32 flags, const char *text, u32 length) {
    return !(flags & TERM_CASE) && flags & TERM_DIACRITICS && flags & TERM_FAST_ASCII &&
           utf8_is_ascii(text, length);
}

// An argument with `\` for each `/`, where that is wanted.
static void _db_convert_path(utf8_buf_t *out, const char *text) {
    utf8_buf_copy_string(out, text);
    if (convert_forward_slash_to_backslash)
        utf8_buf_fix_path(out);
}

// What an op that reads files asks of the query.
static void _db_need_disk(db_query_t *query) {
    query->needs_extended_information = query->needs_disk_information = true;
}

// --- Places ------------------------------------------------------------------------------------------------

static void _db_compile_root(db_query_t *query, db_term_t *term, const _db_function_t *, const char *) {
    u32 op = _db_negate_op(term, DB_OP_ROOT);
    db_query_append_terms(query, term, _db_create_form(term, op), _db_create_form(term, op));
}

static constexpr u32 FOLDERS_AHEAD = 16; // records that are asked of the memory before they are needed

// The folders whose path is the text, which is folded. Only where the last name is that of the text is the
// whole path made.
template<utf8_mode_t mode>
static void _db_find_folders(const db_t *db, const char *text, u32 length, db_ref_list_t *refs) {
    const char *last = text + length;
    while (last != text && last[-1] != '\\')
        last--;
    u32 last_length = static_cast<u32>(text + length - last);
    utf8_buf_t path;
    utf8_buf_init(&path);
    const array_t *folders = &db->folder_name_array;
    for (u32 page = 0; page < folders->page_count; page++) {
        const u32 *values = array_page_values(folders->pages[page]);
        for (u32 i = 0, count = folders->pages[page]->item_count; i < count; i++) {
            __builtin_prefetch(db_item(values[i + FOLDERS_AHEAD < count ? i + FOLDERS_AHEAD : i]));
            const db_item_t *folder = db_item(values[i]);
            u32 name_length;
            const char *name = db_item_get_name(folder, &name_length);
            if (db_item_is_top(folder)) { // its name can be a path
                if (utf8_equal<mode>(name, name_length, text, length))
                    db_ref_list_add(refs, values[i]);
            } else if (utf8_equal<mode>(name, name_length, last, last_length)) {
                db_item_get_full_path_name(&path, folder);
                if (utf8_equal<mode>(path.data, static_cast<u32>(path.length), text, length))
                    db_ref_list_add(refs, values[i]);
            }
        }
    }
    utf8_buf_kill(&path);
}

static void _db_find_folders_by_mode(const db_t *db, utf8_mode_t mode, const char *text, u32 length,
                                     db_ref_list_t *refs) {
    switch (mode) {
    case UTF8_MODE_FOLD: _db_find_folders<UTF8_MODE_FOLD>(db, text, length, refs); break;
    case UTF8_MODE_KEEP_CASE: _db_find_folders<UTF8_MODE_KEEP_CASE>(db, text, length, refs); break;
    case UTF8_MODE_LOWER: _db_find_folders<UTF8_MODE_LOWER>(db, text, length, refs); break;
    default: _db_find_folders<UTF8_MODE_EXACT>(db, text, length, refs); break;
    }
}

static void _db_compile_parent(db_query_t *query, db_term_t *term, const _db_function_t *,
                               const char *argument) {
    utf8_mode_t mode = db_term_get_mode(term->flags);
    utf8_buf_t path, folded;
    utf8_buf_init(&path);
    utf8_buf_init(&folded);
    _db_convert_path(&path, argument);
    if (path.length != 0 && path.data[path.length - 1] == '\\')
        utf8_buf_set_length(&path, static_cast<u32>(path.length - 1));
    utf8_fold_pattern(mode, &folded, path.data, static_cast<u32>(path.length));
    db_ref_list_t refs = {};
    if (folded.length == 0)
        db_ref_list_add(&refs, 0); // the items that are in no folder
    else
        _db_find_folders_by_mode(query->db, mode, folded.data, static_cast<u32>(folded.length), &refs);
    u32 op = refs.count == 0 ? DB_OP_PARENT_NONE : refs.count == 1 ? DB_OP_PARENT : DB_OP_PARENTS_SEVERAL;
    auto create = [&] {
        db_exec_term_t *form = db_exec_term_create(term, _db_negate_op(term, op), mode, folded.data,
                                                   static_cast<u32>(folded.length));
        form->data = db_anchors_create(refs.refs, refs.count, nullptr, 0, nullptr, 0);
        return form;
    };
    db_query_append_terms(query, term, create(), create());
    db_ref_list_free(&refs);
    utf8_buf_kill(&folded);
    utf8_buf_kill(&path);
}

static void _db_compile_shell(db_query_t *query, db_term_t *term, const _db_function_t *, const char *) {
    utf8_buf_t path;
    utf8_buf_init(&path);
    if (os_shell_get_path(term->text, term->length, &path))
        db_term_compile_shell_path(query, term, path.data, static_cast<u32>(path.length));
    else
        _db_append_missing(query, term);
    utf8_buf_kill(&path);
}

// --- Counts, sizes, dates, attributes ----------------------------------------------------------------------

// A count of the item itself.
static void _db_compile_count(db_query_t *query, db_term_t *term, const _db_function_t *function,
                              const char *argument) {
    db_count_range_t range = db_query_parse_count_argument(argument);
    u32 op = function->op == DB_OP_LENGTH ? _db_take_op(term->flags, DB_OP_LENGTH)
                                          : _db_negate_op(term, function->op);
    auto create = [&] {
        db_exec_term_t *form = _db_create_form(term, op);
        form->count = {range.low, range.high};
        return form;
    };
    db_query_append_terms(query, term, create(), create());
}

// A count of what is in a folder.
static void _db_compile_child_count(db_query_t *query, db_term_t *term, const _db_function_t *function,
                                    const char *argument) {
    db_count_range_t range = db_query_parse_count_argument(argument);
    db_exec_term_t *folder = _db_create_form(term, _db_negate_op(term, function->op));
    folder->count = {range.low, range.high};
    db_query_append_terms(query, term, folder, db_exec_term_create_missing(term));
}

static db_exec_term_t *_db_create_range_form(const db_term_t *term, u32 op, db_range_t range) {
    db_exec_term_t *form = _db_create_form(term, _db_negate_op(term, op));
    form->range = {range.low, range.high};
    return form;
}

static void _db_compile_size(db_query_t *query, db_term_t *term, const _db_function_t *,
                             const char *argument) {
    db_range_t range = db_query_parse_size_argument(argument);
    u32 flags = query->db->layout.flags;
    db_exec_term_t *folder = flags & DB_FLAG_FOLDER_SIZE ? _db_create_range_form(term, DB_OP_SIZE, range)
                                                         : db_exec_term_create_missing(term);
    bool is_indexed = flags & DB_FLAG_SIZE;
    if (!is_indexed)
        _db_need_disk(query);
    db_exec_term_t *file = _db_create_range_form(term, is_indexed ? DB_OP_SIZE : DB_OP_SIZE_READ, range);
    db_query_append_terms(query, term, folder, file);
}

// A range of dates. Those that the program keeps itself have no flag: they are always there.
static void _db_compile_date(db_query_t *query, db_term_t *term, const _db_function_t *function,
                             const char *argument) {
    db_range_t range = db_query_parse_date_argument(argument);
    u32 op = function->op;
    if ((query->db->layout.flags & function->flag) != function->flag) {
        op = function->read_op;
        _db_need_disk(query);
    }
    db_query_append_terms(query, term, _db_create_range_form(term, op, range),
                          _db_create_range_form(term, op, range));
}

// The ops that compare the two dates of an item. Those of the date created are not the mirror of the others
// where the two are compared strictly or not: that is how they have always been.
static u32 _db_get_dates_op(bool is_created, db_comparison_t comparison) {
    switch (comparison) {
    case DB_COMPARE_AT_LEAST: return is_created ? DB_OP_DATES_AT_OR_AFTER + 1 : DB_OP_DATES_AT_OR_AFTER;
    case DB_COMPARE_MORE: return is_created ? DB_OP_DATES_AFTER + 1 : DB_OP_DATES_AFTER;
    case DB_COMPARE_AT_MOST: return is_created ? DB_OP_DATES_AFTER : DB_OP_DATES_AFTER + 1;
    case DB_COMPARE_LESS: return is_created ? DB_OP_DATES_AT_OR_AFTER : DB_OP_DATES_AT_OR_AFTER + 1;
    default: return DB_OP_DATES_EQUAL;
    }
}

// `dm:` and `dc:`, which may compare the item's two dates.
static void _db_compile_date_or_dates(db_query_t *query, db_term_t *term, const _db_function_t *function,
                                      const char *argument) {
    bool is_created = function->op == DB_OP_DATE_CREATED;
    db_comparison_t comparison;
    const char *other = db_query_term_parse_comparison(argument, &comparison);
    if (std::strcmp(other, is_created ? "datemodified:" : "datecreated:") != 0 &&
        std::strcmp(other, is_created ? "dm:" : "dc:") != 0) {
        _db_compile_date(query, term, function, argument);
        return;
    }
    constexpr u32 both = DB_FLAG_DATE_CREATED | DB_FLAG_DATE_MODIFIED;
    if ((query->db->layout.flags & both) != both)
        _db_need_disk(query);
    u32 op = _db_get_dates_op(is_created, comparison) ^ (term->flags & TERM_NOT ? 1 : 0);
    db_query_append_terms(query, term, _db_create_form(term, op), _db_create_form(term, op));
}

static u32 _db_parse_attributes(const char *text) {
    static constexpr struct {
        char letter;
        u32 attribute;
    } attributes[] = {
        {'a', 0x0020}, {'c', 0x0800}, {'d', 0x0010}, {'e', 0x4000}, {'h', 0x0002},
        {'i', 0x2000}, {'l', 0x0400}, {'n', 0x0080}, {'o', 0x1000}, {'p', 0x0200},
        {'r', 0x0001}, {'s', 0x0004}, {'t', 0x0100}, {'v', 0x0040},
    };
    u32 mask = 0;
    for (; *text; text++) {
        for (auto attribute : attributes)
            mask |= utf8_lower_ascii[*text] == attribute.letter ? attribute.attribute : 0;
    }
    return mask;
}

static void _db_compile_attributes(db_query_t *query, db_term_t *term, const _db_function_t *,
                                   const char *argument) {
    u32 mask = _db_parse_attributes(argument);
    u32 op = DB_OP_ATTRIBUTES;
    if (!(query->db->layout.flags & DB_FLAG_ATTRIBUTES)) {
        op = DB_OP_ATTRIBUTES_READ;
        _db_need_disk(query);
    }
    auto create = [&] {
        db_exec_term_t *form = _db_create_form(term, _db_negate_op(term, op));
        form->mask = mask;
        return form;
    };
    db_query_append_terms(query, term, create(), create());
}

// --- Sets of items -----------------------------------------------------------------------------------------

static void _db_compile_empty(db_query_t *query, db_term_t *term, const _db_function_t *, const char *) {
    db_query_append_terms(query, term, _db_create_form(term, _db_negate_op(term, DB_OP_EMPTY)),
                          db_exec_term_create_missing(term));
}

// Duplicates are neighbours in the sorted array of the column: where there is none, there are no duplicates.
static void _db_compile_dupe(db_query_t *query, db_term_t *term, const _db_function_t *function,
                             const char *) {
    u32 have = query->db->layout.flags;
    u32 op = _db_negate_op(term, function->op);
    bool is_size = function->op == DB_OP_DUPE_SIZE;
    bool has_file = (have & function->flag) == function->flag;
    bool has_folder = has_file && (!is_size || have & DB_FLAG_FOLDER_SIZE);
    db_query_append_terms(query, term,
                          has_folder ? _db_create_form(term, op) : db_exec_term_create_missing(term),
                          has_file ? _db_create_form(term, op) : db_exec_term_create_missing(term));
}

static void _db_compile_child(db_query_t *query, db_term_t *term, const _db_function_t *,
                              const char *argument) {
    db_query_append_terms(query, term,
                          db_exec_term_create_matcher(term, _db_negate_op(term, DB_OP_CHILD), argument),
                          db_exec_term_create_missing(term));
}

// --- Texts -------------------------------------------------------------------------------------------------

static void _db_compile_extension(db_query_t *query, db_term_t *term, const _db_function_t *,
                                  const char *argument) {
    u32 length = utf8_length(argument);
    bool is_fast = _db_is_fast(term->flags, argument, length);
    utf8_mode_t mode = is_fast ? UTF8_MODE_ASCII : db_term_get_mode(term->flags);
    db_extensions_t *extensions = db_extensions_create(mode, argument);
    u32 op = extensions->has_empty ? (is_fast ? DB_OP_EXTENSION_OR_NONE_ASCII : DB_OP_EXTENSION_OR_NONE)
                                   : (is_fast ? DB_OP_EXTENSION_ASCII : DB_OP_EXTENSION);
    db_exec_term_t *file = db_exec_term_create(term, _db_take_op(term->flags, op), mode, argument, length);
    file->data = extensions;
    db_query_append_terms(query, term, db_exec_term_create_missing(term), file);
}

static void _db_compile_file_list(db_query_t *query, db_term_t *term, const _db_function_t *,
                                  const char *argument) {
    utf8_mode_t mode = db_term_get_mode(term->flags);
    utf8_buf_t text;
    utf8_buf_init(&text);
    _db_convert_path(&text, argument);
    u32 op = DB_OP_FILE_LIST + (std::strchr(text.data, '\\') ? 1 : 0) + (term->flags & TERM_NOT ? 2 : 0);
    auto create = [&] {
        db_exec_term_t *form = db_exec_term_create(term, op, mode, text.data, static_cast<u32>(text.length));
        form->data = db_file_list_names_create(mode, text.data);
        return form;
    };
    db_query_append_terms(query, term, create(), create());
    utf8_buf_kill(&text);
}

// `startwith:` and `endwith:`: as a text with a star is, but that a star in it is none.
static void _db_compile_end(db_query_t *query, db_term_t *term, const _db_function_t *function,
                            const char *argument) {
    utf8_buf_t text;
    utf8_buf_init(&text);
    _db_convert_path(&text, argument);
    auto create = [&] {
        return db_exec_term_create_folded(term, function->op, text.data, static_cast<u32>(text.length));
    };
    db_query_append_terms(query, term, create(), create());
    utf8_buf_kill(&text);
}

// All folders have the one type.
static bool _db_matches_folder_type(db_query_t *query, const db_exec_term_t *form) {
    const char *name = db_extended_info_get_folder_type_name(query->extended_info);
    void *regex_match = form->regex ? db_regex_match_create() : nullptr;
    bool match = form->text_test(form, regex_match, name, utf8_length(name));
    if (regex_match)
        db_regex_match_free(regex_match);
    return match;
}

static void _db_compile_type(db_query_t *query, db_term_t *term, const _db_function_t *,
                             const char *argument) {
    db_exec_term_t *file = db_exec_term_create_matcher(term, _db_negate_op(term, DB_OP_TYPE), argument);
    bool is_negated = term->flags & TERM_NOT;
    bool match = _db_matches_folder_type(query, file) != is_negated;
    query->has_type_term = true;
    db_query_append_terms(query, term, db_exec_term_create_constant(term, match), file);
}

static void _db_compile_content(db_query_t *query, db_term_t *term, const _db_function_t *function,
                                const char *argument) {
    if (!(term->flags & TERM_WILDCARDS_EXPLICIT))
        term->flags &= ~TERM_WILDCARDS; // text in a file is meant as it stands
    query->has_content_term = true;
    db_query_append_terms(query, term, db_exec_term_create_missing(term),
                          db_exec_term_create_matcher(term, _db_negate_op(term, function->op), argument));
}

static void _db_compile_file_list_filename(db_query_t *query, db_term_t *term, const _db_function_t *,
                                           const char *argument) {
    utf8_buf_t text;
    utf8_buf_init(&text);
    _db_convert_path(&text, argument);
    u32 op = _db_negate_op(term, DB_OP_FILE_LIST_FILENAME);
    db_query_append_terms(query, term, db_exec_term_create_matcher(term, op, text.data),
                          db_exec_term_create_matcher(term, op, text.data));
    utf8_buf_kill(&text);
}

// --- The table ---------------------------------------------------------------------------------------------

// Functions without an argument, which are the whole term.
static constexpr u32 FAST_CREATED = DB_FLAG_DATE_CREATED | DB_FLAG_FAST_DATE_CREATED;
static constexpr u32 FAST_MODIFIED = DB_FLAG_DATE_MODIFIED | DB_FLAG_FAST_DATE_MODIFIED;
static constexpr u32 FAST_ACCESSED = DB_FLAG_DATE_ACCESSED | DB_FLAG_FAST_DATE_ACCESSED;
static constexpr u32 FAST_ATTRIBUTES = DB_FLAG_ATTRIBUTES | DB_FLAG_FAST_ATTRIBUTES;
static constexpr u32 FAST_SIZE = DB_FLAG_SIZE | DB_FLAG_FAST_SIZE;
static constexpr _db_function_t bare_functions[] = {
    {"root:", _db_compile_root, DB_OP_ROOT, 0, 0},
    {"empty:", _db_compile_empty, DB_OP_EMPTY, 0, 0},
    {"dupe:", _db_compile_dupe, DB_OP_DUPE_NAME, 0, 0},
    {"namepartdupe:", _db_compile_dupe, DB_OP_DUPE_NAME_PART, 0, 0},
    {"dupenamepart:", _db_compile_dupe, DB_OP_DUPE_NAME_PART, 0, 0},
    {"sizedupe:", _db_compile_dupe, DB_OP_DUPE_SIZE, 0, FAST_SIZE},
    {"dupesize:", _db_compile_dupe, DB_OP_DUPE_SIZE, 0, FAST_SIZE},
    {"datecreateddupe:", _db_compile_dupe, DB_OP_DUPE_DATE_CREATED, 0, FAST_CREATED},
    {"dcdupe:", _db_compile_dupe, DB_OP_DUPE_DATE_CREATED, 0, FAST_CREATED},
    {"dupedc:", _db_compile_dupe, DB_OP_DUPE_DATE_CREATED, 0, FAST_CREATED},
    {"datemodifieddupe:", _db_compile_dupe, DB_OP_DUPE_DATE_MODIFIED, 0, FAST_MODIFIED},
    {"dmdupe:", _db_compile_dupe, DB_OP_DUPE_DATE_MODIFIED, 0, FAST_MODIFIED},
    {"dupedm:", _db_compile_dupe, DB_OP_DUPE_DATE_MODIFIED, 0, FAST_MODIFIED},
    {"dateaccesseddupe:", _db_compile_dupe, DB_OP_DUPE_DATE_ACCESSED, 0, FAST_ACCESSED},
    {"dadupe:", _db_compile_dupe, DB_OP_DUPE_DATE_ACCESSED, 0, FAST_ACCESSED},
    {"dupeda:", _db_compile_dupe, DB_OP_DUPE_DATE_ACCESSED, 0, FAST_ACCESSED},
    {"attributesdupe:", _db_compile_dupe, DB_OP_DUPE_ATTRIBUTES, 0, FAST_ATTRIBUTES},
    {"attribdupe:", _db_compile_dupe, DB_OP_DUPE_ATTRIBUTES, 0, FAST_ATTRIBUTES},
    {"dupeattrib:", _db_compile_dupe, DB_OP_DUPE_ATTRIBUTES, 0, FAST_ATTRIBUTES},
};

// Functions with an argument: what follows the name.
static constexpr _db_function_t functions[] = {
    {"ext:", _db_compile_extension, 0, 0, 0},
    {"filelist:", _db_compile_file_list, 0, 0, 0},
    {"fsi:", _db_compile_count, DB_OP_INDEX_ORDINAL, 0, 0},
    {"len:", _db_compile_count, DB_OP_LENGTH, 0, 0},
    {"parents:", _db_compile_count, DB_OP_PARENTS, 0, 0},
    {"depth:", _db_compile_count, DB_OP_PARENTS, 0, 0},
    {"size:", _db_compile_size, 0, 0, DB_FLAG_SIZE},
    {"type:", _db_compile_type, 0, 0, 0},
    {"shell:", _db_compile_shell, 0, 0, 0},
    {"content:", _db_compile_content, DB_OP_CONTENT, 0, 0},
    {"ansicontent:", _db_compile_content, DB_OP_CONTENT_ANSI, 0, 0},
    {"contenta:", _db_compile_content, DB_OP_CONTENT_ANSI, 0, 0},
    {"utf8content:", _db_compile_content, DB_OP_CONTENT_UTF8, 0, 0},
    {"wcharcontent:", _db_compile_content, DB_OP_CONTENT_UTF16, 0, 0},
    {"unicodecontent:", _db_compile_content, DB_OP_CONTENT_UTF16, 0, 0},
    {"contentw:", _db_compile_content, DB_OP_CONTENT_UTF16, 0, 0},
    {"utf16content:", _db_compile_content, DB_OP_CONTENT_UTF16, 0, 0},
    {"utf16lecontent:", _db_compile_content, DB_OP_CONTENT_UTF16, 0, 0},
    {"utf16becontent:", _db_compile_content, DB_OP_CONTENT_UTF16BE, 0, 0},
    {"child:", _db_compile_child, 0, 0, 0},
    {"childcount:", _db_compile_child_count, DB_OP_CHILD_COUNT, 0, 0},
    {"childfilecount:", _db_compile_child_count, DB_OP_CHILD_FILE_COUNT, 0, 0},
    {"childfoldercount:", _db_compile_child_count, DB_OP_CHILD_FOLDER_COUNT, 0, 0},
    {"datemodified:", _db_compile_date_or_dates, DB_OP_DATE_MODIFIED, DB_OP_DATE_MODIFIED_READ,
     DB_FLAG_DATE_MODIFIED},
    {"dm:", _db_compile_date_or_dates, DB_OP_DATE_MODIFIED, DB_OP_DATE_MODIFIED_READ, DB_FLAG_DATE_MODIFIED},
    {"dateaccessed:", _db_compile_date, DB_OP_DATE_ACCESSED, DB_OP_DATE_ACCESSED_READ, DB_FLAG_DATE_ACCESSED},
    {"da:", _db_compile_date, DB_OP_DATE_ACCESSED, DB_OP_DATE_ACCESSED_READ, DB_FLAG_DATE_ACCESSED},
    {"recentchange:", _db_compile_date, DB_OP_RECENT_CHANGE, 0, 0},
    {"rc:", _db_compile_date, DB_OP_RECENT_CHANGE, 0, 0},
    {"drc:", _db_compile_date, DB_OP_RECENT_CHANGE, 0, 0},
    {"runcount:", _db_compile_count, DB_OP_RUN_COUNT, 0, 0},
    {"daterun:", _db_compile_date, DB_OP_DATE_RUN, 0, 0},
    {"dr:", _db_compile_date, DB_OP_DATE_RUN, 0, 0},
    {"datecreated:", _db_compile_date_or_dates, DB_OP_DATE_CREATED, DB_OP_DATE_CREATED_READ,
     DB_FLAG_DATE_CREATED},
    {"dc:", _db_compile_date_or_dates, DB_OP_DATE_CREATED, DB_OP_DATE_CREATED_READ, DB_FLAG_DATE_CREATED},
    {"attributes:", _db_compile_attributes, 0, 0, DB_FLAG_ATTRIBUTES},
    {"attrib:", _db_compile_attributes, 0, 0, DB_FLAG_ATTRIBUTES},
    {"startwith:", _db_compile_end, DB_OP_STARTS_WITH, 0, 0},
    {"endwith:", _db_compile_end, DB_OP_ENDS_WITH, 0, 0},
    {"infolder:", _db_compile_parent, 0, 0, 0},
    {"parent:", _db_compile_parent, 0, 0, 0},
    {"filelistfilename:", _db_compile_file_list_filename, 0, 0, 0},
};

// The row of a term that is a function, and its argument; 0 for plain text.
static const _db_function_t *_db_find_function(const db_term_t *term, const char **argument) {
    *argument = "";
    if (!(term->flags & TERM_FUNCTION_SYNTAX))
        return nullptr;
    for (const _db_function_t &function : bare_functions) {
        if (std::strcmp(term->text, function.name) == 0)
            return &function;
    }
    for (const _db_function_t &function : functions) {
        size_t length = std::strlen(function.name);
        if (std::strncmp(term->text, function.name, length) == 0) {
            *argument = term->text + length;
            return &function;
        }
    }
    return nullptr;
}

bool db_term_compile_function(db_query_t *query, db_term_t *term) {
    const char *argument;
    const _db_function_t *function = _db_find_function(term, &argument);
    if (!function)
        return false;
    function->compile(query, term, function, argument);
    return true;
}

u32 db_search_get_columns(u32 match_options, const char *search) {
    u32 flags = 0;
    db_term_t *terms = _db_query_term_parse_all(db_term_default_flags(match_options), search, false);
    for (const db_term_t *term = terms; term; term = term->link) {
        const char *argument;
        const _db_function_t *function = _db_find_function(term, &argument);
        if (!function)
            continue;
        flags |= function->flag;
        if (function->compile == _db_compile_date_or_dates) // it may be compared with the other one
            flags |= DB_FLAG_DATE_CREATED | DB_FLAG_DATE_MODIFIED;
    }
    db_term_free_all(terms);
    return flags;
}

const char *db_query_get_function_name(u32 index) {
    u32 bare = std::size(bare_functions);
    if (index < bare)
        return bare_functions[index].name;
    return index - bare < std::size(functions) ? functions[index - bare].name : nullptr;
}

} // namespace findwright
