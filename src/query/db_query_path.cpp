// Paths that lead to folders of the index: such a term is decided by references, without a look at any name.
#include "base/mem.h"
#include "base/utf8.h"
#include "base/utf8_match.h"
#include "os/debug.h"
#include "query/db_query_internal.h"
#include "query/db_search.h"

#include <algorithm>
#include <cstring>

namespace findwright {

// --- Anchors -----------------------------------------------------------------------------------------------

static void _db_anchors_free(db_term_data_t *data) {
    mem_free(data);
}

db_anchors_t *db_anchors_create(const mem_ref_t *inner, u32 inner_count, const mem_ref_t *outer,
                                u32 outer_count, const mem_ref_t *files, u32 file_count) {
    size_t count = static_cast<size_t>(inner_count) + outer_count + file_count;
    db_anchors_t *anchors =
        static_cast<db_anchors_t *>(mem_alloc(sizeof(db_anchors_t) + count * sizeof(mem_ref_t)));
    anchors->free = _db_anchors_free;
    anchors->inner_count = inner_count;
    anchors->outer_count = outer_count;
    anchors->file_count = file_count;
    anchors->inner = reinterpret_cast<mem_ref_t *>(anchors + 1);
    anchors->outer = anchors->inner + inner_count;
    anchors->files = anchors->outer + outer_count;
    std::copy(inner, inner + inner_count, anchors->inner);
    std::copy(outer, outer + outer_count, anchors->outer);
    std::copy(files, files + file_count, anchors->files);
    std::sort(anchors->inner, anchors->inner + inner_count);
    std::sort(anchors->outer, anchors->outer + outer_count);
    std::sort(anchors->files, anchors->files + file_count);
    return anchors;
}

void db_ref_list_add(db_ref_list_t *list, mem_ref_t ref) {
    if (list->count == list->capacity) {
        u32 capacity = list->capacity != 0 ? list->capacity * 2 : 16;
        mem_ref_t *refs = static_cast<mem_ref_t *>(mem_alloc(capacity * sizeof *refs));
        std::copy(list->refs, list->refs + list->count, refs);
        if (list->refs)
            mem_free(list->refs);
        list->refs = refs;
        list->capacity = capacity;
    }
    list->refs[list->count++] = ref;
}

void db_ref_list_free(db_ref_list_t *list) {
    if (list->refs)
        mem_free(list->refs);
}

// What a path is looked up with.
struct _db_anchoring_t {
    db_t *db;
    db_text_test_t *equal, *starts_with; // by the term's mode, of `probe`
    const db_exec_term_t *probe;         // has the text that the two compare with
    const char *text;                    // of the term
    u32 length;
    db_ref_list_t inner, outer, files;
};

static bool _db_test_with(const db_exec_term_t *probe, db_text_test_t *test, const char *text, u32 length) {
    return test(probe, nullptr, text, length);
}

// --- Look-up by name ---------------------------------------------------------------------------------------

struct _db_name_key_t {
    const char *text;
    u32 length;
};

// Puts a name in front of the key as long as it is below it.
static int _db_compare_name_fold(u32 value, const void *key) {
    const _db_name_key_t *name = static_cast<const _db_name_key_t *>(key);
    u32 length;
    const char *text = db_item_get_name(db_item(value), &length);
    return utf8_compare_fold(text, length, name->text, name->length) < 0 ? -1 : 1;
}

// Calls `visit` for the items of a name array whose folded names begin with a text; with `whole`, are it.
template<class Visit>
static void _db_for_each_name(const array_t *array, const char *text, u32 length, bool whole, Visit visit) {
    utf8_buf_t folded;
    utf8_buf_init(&folded);
    utf8_fold_pattern(UTF8_MODE_FOLD, &folded, text, length);
    _db_name_key_t key = {folded.data, static_cast<u32>(folded.length)};
    u32 page;
    i32 position;
    bool found;
    array_find_position(array, _db_compare_name_fold, &key, &page, &position, &found);
    u32 value;
    while (array_next_to(array, &page, &position, &value)) {
        u32 size;
        const char *name = db_item_get_name(db_item(value), &size);
        bool matches =
            whole ? utf8_equal<UTF8_MODE_FOLD>(name, size, key.text, key.length)
                  : utf8_starts_with<UTF8_MODE_FOLD>(name, size, key.text, key.length) != UTF8_NO_MATCH;
        if (!matches)
            break;
        visit(value);
    }
    utf8_buf_kill(&folded);
}

// --- The kinds of paths ------------------------------------------------------------------------------------

static bool _db_is_letter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

static bool _db_is_drive_path(const char *text, u32 length) {
    return length >= 2 && _db_is_letter(text[0]) && text[1] == ':';
}

// `x:` alone, or `\\server` without a share.
static bool _db_is_root_text(const char *text, u32 length) {
    if (_db_is_drive_path(text, length))
        return length == 2;
    return length > 2 && text[0] == '\\' && text[1] == '\\' && !std::memchr(text + 2, '\\', length - 2);
}

// Whether the index has a root with a path as POSIX has them, that this path leads into or that is below it.
static bool _db_has_posix_root(const db_t *db, const char *text, u32 length) {
    bool found = false;
    auto look = [&](u32 value) {
        const db_item_t *item = db_item(value);
        u32 size;
        const char *name = db_item_get_name(item, &size);
        if (found || !db_item_is_top(item) || (size > 1 && name[1] == '\\'))
            return;
        // The shorter of the two is where the longer one begins.
        u32 common = size < length ? size : length;
        found = utf8_compare_fold(name, common, text, common) == 0 &&
                (size >= length || size == 0 || text[size] == '\\');
    };
    _db_for_each_name(&db->folder_name_array, "", 0, true, look);
    _db_for_each_name(&db->folder_name_array, "\\", 1, false, look);
    return found;
}

bool db_path_is_absolute(const db_t *db, const char *text, u32 length) {
    if (_db_is_drive_path(text, length) || (length >= 2 && text[0] == '\\' && text[1] == '\\'))
        return true;
    // `\abc` and `\abc\` are components.
    if (length < 2 || text[0] != '\\')
        return false;
    const void *second = std::memchr(text + 1, '\\', length - 1);
    return second && static_cast<const char *>(second) + 1 != text + length &&
           _db_has_posix_root(db, text, length);
}

// --- Look-up by path ---------------------------------------------------------------------------------------

// A root: everything on it, and the root itself.
static void _db_anchor_root(_db_anchoring_t *a) {
    _db_for_each_name(&a->db->folder_name_array, a->text, a->length, false, [&](u32 value) {
        u32 length;
        const char *name = db_item_get_name(db_item(value), &length);
        if (!db_item_is_top(db_item(value)) || !_db_test_with(a->probe, a->starts_with, name, length))
            return;
        db_ref_list_add(&a->outer, value);
        debug_printf("FOLDER ROOT %t STARTWITH %t\n", name, length, a->text, a->length);
    });
    _db_for_each_name(&a->db->file_name_array, a->text, a->length, false, [&](u32 value) {
        u32 length;
        const char *name = db_item_get_name(db_item(value), &length);
        if (!db_item_is_top(db_item(value)) || !_db_test_with(a->probe, a->starts_with, name, length))
            return;
        db_ref_list_add(&a->files, value);
        debug_printf("FILE ROOT %t STARTWITH %t \n", name, length, a->text, a->length);
    });
}

// A folder, told by a final separator: everything below it, and roots that begin with the path. `bare` has
// the text without the separator, the probe the whole one.
static void _db_anchor_folder(_db_anchoring_t *a, const db_exec_term_t *bare) {
    u32 length = a->length - 1;
    u32 start = length;
    while (start != 0 && a->text[start - 1] != '\\')
        start--;
    utf8_buf_t path;
    utf8_buf_init(&path);
    _db_for_each_name(&a->db->folder_name_array, a->text + start, length - start, true, [&](u32 value) {
        const db_item_t *folder = db_item(value);
        db_item_get_full_path_name(&path, folder);
        if (_db_test_with(bare, a->equal, path.data, static_cast<u32>(path.length))) {
            db_ref_list_add(&a->inner, value);
            debug_printf("FOLDER SEARCH %t\n", path.data, static_cast<u32>(path.length));
        }
    });
    // A root's name may itself be a path.
    _db_for_each_name(&a->db->folder_name_array, a->text, length, false, [&](u32 value) {
        u32 size;
        const char *name = db_item_get_name(db_item(value), &size);
        if (!db_item_is_top(db_item(value)))
            return;
        if (_db_test_with(a->probe, a->starts_with, name, size))
            db_ref_list_add(&a->outer, value);
        else if (start != 0 && _db_test_with(bare, a->equal, name, size))
            db_ref_list_add(&a->inner, value);
    });
    utf8_buf_kill(&path);
}

// --- The op ------------------------------------------------------------------------------------------------

static u32 _db_get_anchor_family(const _db_anchoring_t *a) {
    if (a->files.count != 0 || (a->inner.count != 0 && a->outer.count != 0))
        return DB_OP_ANCHORS;
    if (a->inner.count != 0)
        return a->inner.count == 1 ? DB_OP_ANCHOR_INNER : DB_OP_ANCHORS_INNER;
    if (a->outer.count != 0)
        return a->outer.count == 1 ? DB_OP_ANCHOR_OUTER : DB_OP_ANCHORS_OUTER;
    return DB_OP_NO_ANCHOR;
}

u32 db_term_get_mode_op(u32 family, u32 flags, utf8_mode_t mode) {
    if (mode == UTF8_MODE_ASCII)
        return family + 8 + (flags & TERM_NOT ? 1 : 0);
    return family + (flags & TERM_CASE ? 1 : 0) + (flags & TERM_DIACRITICS ? 2 : 0) +
           (flags & TERM_NOT ? 4 : 0);
}

static void _db_append_anchored(db_query_t *query, db_term_t *term, const _db_anchoring_t *a) {
    u32 op = db_term_get_mode_op(_db_get_anchor_family(a), term->flags, a->probe->mode);
    db_exec_term_t *forms[2];
    for (db_exec_term_t *&form : forms) {
        form = db_exec_term_create(term, op, a->probe->mode, a->text, a->length);
        form->data = db_anchors_create(a->inner.refs, a->inner.count, a->outer.refs, a->outer.count,
                                       a->files.refs, a->files.count);
    }
    db_query_append_terms(query, term, forms[0], forms[1]);
}

// The two comparisons by the mode of the flags, and a term that has a text for them.
static db_exec_term_t *_db_make_probe(const db_term_t *term, u32 op, const char *text, u32 length) {
    db_term_t plain = *term;
    plain.flags &= ~(TERM_NOT | TERM_PATH | TERM_REGEX);
    return db_exec_term_create_folded(&plain, op, text, length);
}

bool db_term_compile_anchored_path(db_query_t *query, db_term_t *term, const char *text, u32 length) {
    bool is_root = _db_is_root_text(text, length);
    bool is_folder =
        !is_root && length > 1 && text[length - 1] == '\\' && db_path_is_absolute(query->db, text, length);
    if (!is_root && !is_folder)
        return false;
    db_exec_term_t *probe = _db_make_probe(term, DB_OP_STARTS_WITH, text, length);
    _db_anchoring_t a = {query->db, nullptr, probe->text_test, probe, text, length, {}, {}, {}};
    if (is_root) {
        _db_anchor_root(&a);
    } else {
        db_exec_term_t *bare = _db_make_probe(term, DB_OP_EQUAL, text, length - 1);
        a.equal = bare->text_test;
        _db_anchor_folder(&a, bare);
        mem_free(bare);
    }
    _db_append_anchored(query, term, &a);
    mem_free(probe);
    db_ref_list_free(&a.inner);
    db_ref_list_free(&a.outer);
    db_ref_list_free(&a.files);
    return true;
}

void db_term_compile_shell_path(db_query_t *query, db_term_t *term, const char *path, u32 length) {
    utf8_buf_t text;
    utf8_buf_init(&text);
    utf8_buf_copy_utf8(&text, path, length);
    if (!_db_is_root_text(path, length) && length != 0 && path[length - 1] != '\\')
        utf8_buf_cat_byte(&text, '\\');
    // A path that no source of the index has is one without an anchor.
    if (!db_term_compile_anchored_path(query, term, text.data, static_cast<u32>(text.length))) {
        db_exec_term_t *probe = _db_make_probe(term, DB_OP_EQUAL, text.data, static_cast<u32>(text.length));
        _db_anchoring_t a = {query->db, nullptr, nullptr, probe, text.data, static_cast<u32>(text.length),
                             {},        {},      {}};
        _db_append_anchored(query, term, &a);
        mem_free(probe);
    }
    utf8_buf_kill(&text);
}

} // namespace findwright
