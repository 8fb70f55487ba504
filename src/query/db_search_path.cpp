// The ops that lead through folders of the index.
//
// An item is below an anchor when one of its parents is. A text without a separator that is looked for in
// paths is looked for in their components: since each is the name of some folder, a pass first finds all
// folders with such a component, their own or one above, and an item is then decided by its parent and its
// own name, without its path being written out. A text with a separator stands in the path of the item's
// folder, separator behind it and all, or it ends in the item's own name, which then begins with what stands
// behind the text's last separator: only such a path is written out.
#include "base/mem.h"
#include "base/utf8.h"
#include "db/db_item_set.h"
#include "db/db_word.h"
#include "os/os_parallel.h"
#include "query/db_query_internal.h"
#include "query/db_search.h"

#include <algorithm>
#include <cstring>

namespace findwright {

// --- Anchors -----------------------------------------------------------------------------------------------

static bool _db_has_ref(const mem_ref_t *refs, u32 count, mem_ref_t ref) {
    return std::binary_search(refs, refs + count, ref);
}

// One of the folders is the item's parent or further up; with `self`, or the item itself.
template<bool self>
static bool _db_is_at(const db_item_t *item, const mem_ref_t *refs, u32 count) {
    for (mem_ref_t ref = self ? mem_ref(item) : item->parent; ref >= MEM_REF_FIRST;
         ref = db_item(ref)->parent) {
        if (count == 1 ? ref == *refs : _db_has_ref(refs, count, ref))
            return true;
    }
    return false;
}

// The item is below one of the anchors: by the folders that the pass knows to be, or up the chain of parents.
template<u32 family>
static bool _db_is_anchored(const db_exec_term_t *term, const db_item_t *item) {
    const db_anchors_t *anchors = static_cast<const db_anchors_t *>(term->data);
    bool below = term->folders && db_item_set_has(term->folders, item->parent);
    if constexpr (family != DB_OP_ANCHOR_OUTER && family != DB_OP_ANCHORS_OUTER)
        below = below || (!term->folders && anchors->inner_count != 0 &&
                          _db_is_at<false>(item, anchors->inner, anchors->inner_count));
    if constexpr (family != DB_OP_ANCHOR_INNER && family != DB_OP_ANCHORS_INNER)
        below = below || (term->folders ? _db_has_ref(anchors->outer, anchors->outer_count, mem_ref(item))
                                        : anchors->outer_count != 0 &&
                                              _db_is_at<true>(item, anchors->outer, anchors->outer_count));
    if constexpr (family == DB_OP_ANCHORS)
        below = below || _db_has_ref(anchors->files, anchors->file_count, mem_ref(item));
    return below;
}

template<u32 family, bool negated>
static bool _db_test_anchor(db_scan_t *, const db_exec_term_t *term, const db_item_t *item) {
    return _db_is_anchored<family>(term, item) != negated;
}

// --- Own names ---------------------------------------------------------------------------------------------

// A root's name may be a path of several components itself; all other names are one.
static bool _db_test_components(const db_exec_term_t *term, void *regex_match, const char *name, u32 length) {
    const char *end = name + length;
    for (;;) {
        const void *separator =
            length != 0 ? std::memchr(name, '\\', static_cast<size_t>(end - name)) : nullptr;
        const char *stop = separator ? static_cast<const char *>(separator) : end;
        if ((stop != name || length == 0) &&
            term->text_test(term, regex_match, name, static_cast<u32>(stop - name)))
            return true;
        if (stop == end)
            return false;
        name = stop + 1;
    }
}

// An item's own name, for both kinds of terms: a component term knows the op for names that it came from.
static bool _db_test_own_name(const db_exec_term_t *term, const db_item_t *item) {
    u32 length;
    const char *name = db_item_get_name(item, &length);
    if (term->matcher_op == 0 || !db_item_is_top(item))
        return term->text_test(term, nullptr, name, length);
    return _db_test_components(term, nullptr, name, length);
}

// --- Texts with a separator --------------------------------------------------------------------------------

// What stands behind the last separator of the text.
static const char *_db_get_last_piece(const db_exec_term_t *term, u32 *length) {
    const char *end = term->text + term->text_length, *p = end;
    while (p != term->text && p[-1] != '\\')
        p--;
    *length = static_cast<u32>(end - p);
    return p;
}

// What a match that ends with a folder's name and the separator behind it, or within the name, asks of the
// name: to hold the last piece, or the one in front of it where that is empty.
static u64 _db_get_folder_word(const db_exec_term_t *term) {
    u32 length;
    const char *piece = _db_get_last_piece(term, &length), *end = piece + length;
    if (length == 0) {
        end = piece - 1; // the text has a separator
        for (piece = end; piece != term->text && piece[-1] != '\\';)
            piece--;
    }
    return db_word_of_text(piece, static_cast<u32>(end - piece));
}

// False when the name cannot begin with the text, as far as ASCII tells, whatever the mode.
static bool _db_may_start_with(const char *name, u32 name_length, const char *text, u32 length) {
    for (u32 i = 0; i < length; i++) {
        if (i == name_length)
            return false;
        if (static_cast<u8>(name[i]) >= 0x80 || static_cast<u8>(text[i]) >= 0x80)
            return true;
        if (utf8_lower_ascii[name[i]] != utf8_lower_ascii[text[i]])
            return false;
    }
    return true;
}

static bool _db_test_path(const db_exec_term_t *term, utf8_buf_t *path, const db_item_t *item) {
    db_item_get_full_path_name(path, item);
    return term->text_test(term, nullptr, path->data, static_cast<u32>(path->length));
}

template<bool negated>
static bool _db_test_path_text(db_scan_t *scan, const db_exec_term_t *term, const db_item_t *item) {
    if (!term->folders || db_item_is_top(item)) // the name of one at the top can be a path
        return _db_test_path(term, &scan->path, item) != negated;
    if (db_item_set_has(term->folders, item->parent))
        return !negated;
    u32 length, name_length;
    const char *last = _db_get_last_piece(term, &length);
    const char *name = db_item_get_name(item, &name_length);
    bool matches = length != 0 && _db_may_start_with(name, name_length, last, length) &&
                   _db_test_path(term, &scan->path, item);
    return matches != negated;
}

// Whether a folder's path with a separator behind it has the text, and a match that ends behind the path of
// the folder above. Others may be found, too, whose folder above has it.
static bool _db_test_folder_path(const db_exec_term_t *term, utf8_buf_t *path, const db_item_t *folder) {
    db_item_get_full_path_name(path, folder);
    utf8_buf_cat_byte(path, '\\');
    return term->text_test(term, nullptr, path->data, static_cast<u32>(path->length));
}

// --- Components --------------------------------------------------------------------------------------------

static bool _db_test_folder_names(const db_exec_term_t *term, mem_ref_t folder) {
    if (term->folders)
        return db_item_set_has(term->folders, folder);
    for (; folder >= MEM_REF_FIRST; folder = db_item(folder)->parent) {
        if (_db_test_own_name(term, db_item(folder)))
            return true;
    }
    return false;
}

template<bool negated>
static bool _db_test_component(db_scan_t *, const db_exec_term_t *term, const db_item_t *item) {
    bool matches = _db_test_own_name(term, item) || _db_test_folder_names(term, item->parent);
    return matches != negated;
}

// A text that is looked for in paths, by its folders and by the vector scan over names.
template<bool negated>
static u32 _db_scan_path_find(db_scan_t *scan, const db_exec_term_t *term, const u32 *values, u32 count,
                              u32 *out) {
    const db_item_set_t *set = term->folders;
    if (!set)
        return db_scan_by_test(scan, term, values, count, out);
    db_op_parts_t parts = db_op_decode(term->op);
    u32 hits[ARRAY_PAGE_VALUES + 1];
    u32 hit_count = db_find_scans_get()->scans[parts.mode][parts.whole_word](scan, term, values, count, hits);
    hits[hit_count] = 0;
    u32 found = 0;
    for (u32 i = 0, next = 0; i < count; i++) {
        bool is_hit = hits[next] == values[i];
        next += is_hit;
        bool matches = is_hit || db_item_set_has(set, db_item(values[i])->parent);
        out[found] = values[i];
        found += matches != negated;
    }
    return found;
}

// --- Folders whose path has such a component ---------------------------------------------------------------

static constexpr u32 FOLDERS_PER_THREAD = 16384;

struct _db_path_work_t {
    db_query_t *query;
    const db_exec_term_t *term;
    const array_t *folders;
    db_item_set_t *found; // have the component, in the end also those below such a folder
    db_item_set_t *known; // are known not to have it
};

static bool _db_is_cancelled(const _db_path_work_t *work) {
    return work->query->cancel_search.load(std::memory_order_relaxed) != 0;
}

static void _db_find_named_folders_proc(void *param, u32 part, u32 parts) {
    _db_path_work_t *work = static_cast<_db_path_work_t *>(param);
    const db_exec_term_t *term = work->term;
    db_word_filter_t filter = {
        1,
        {term->has_separator ? _db_get_folder_word(term) : db_word_of_text(term->text, term->text_length)}};
    utf8_buf_t path;
    utf8_buf_init(&path);
    u64 pages = work->folders->page_count;
    u32 values[ARRAY_PAGE_VALUES];
    for (u64 page = pages * part / parts; page < pages * (part + 1) / parts && !_db_is_cancelled(work);
         page++) {
        const array_page_t *from = work->folders->pages[page];
        u32 count = db_word_filter_run(&filter, array_page_words(from), array_page_values(from),
                                       from->item_count, values);
        for (u32 i = 0; i < count; i++) {
            const db_item_t *folder = db_item(values[i]);
            if (term->has_separator ? _db_test_folder_path(term, &path, folder)
                                    : _db_test_own_name(term, folder))
                db_item_set_add_shared(work->found, values[i]);
        }
    }
    utf8_buf_kill(&path);
}

// Whether a folder on the way up has the component; what is learned of the folders on the way is kept. Others
// may learn the same at the same time.
static void _db_decide_folder(_db_path_work_t *work, mem_ref_t folder) {
    mem_ref_t ref = folder;
    while (ref >= MEM_REF_FIRST && !db_item_set_has_shared(work->found, ref) &&
           !db_item_set_has_shared(work->known, ref))
        ref = db_item(ref)->parent;
    db_item_set_t *set =
        ref >= MEM_REF_FIRST && db_item_set_has_shared(work->found, ref) ? work->found : work->known;
    for (mem_ref_t below = folder; below != ref; below = db_item(below)->parent)
        db_item_set_add_shared(set, below);
}

static void _db_decide_folders_proc(void *param, u32 part, u32 parts) {
    _db_path_work_t *work = static_cast<_db_path_work_t *>(param);
    u64 pages = work->folders->page_count;
    for (u64 page = pages * part / parts; page < pages * (part + 1) / parts && !_db_is_cancelled(work);
         page++) {
        const u32 *values = array_page_values(work->folders->pages[page]);
        u32 count = work->folders->pages[page]->item_count;
        for (u32 i = 0; i < count; i++) {
            if (i + DB_SCAN_AHEAD < count)
                __builtin_prefetch(db_item(values[i + DB_SCAN_AHEAD]));
            _db_decide_folder(work, values[i]);
        }
    }
}

static bool _db_set_is_empty(const db_item_set_t *set) {
    size_t words = db_item_set_get_word_count(set);
    return std::all_of(set->bits, set->bits + words, [](u64 bits) { return bits == 0; });
}

static bool _db_is_component_family(u32 family) {
    return family == DB_OP_COMPONENT_STARTS_WITH || family == DB_OP_COMPONENT_ENDS_WITH ||
           family == DB_OP_COMPONENT_EQUAL;
}

static bool _db_is_anchor_family(u32 family) {
    return family == DB_OP_ANCHORS || family == DB_OP_ANCHORS_INNER || family == DB_OP_ANCHORS_OUTER ||
           family == DB_OP_ANCHOR_INNER || family == DB_OP_ANCHOR_OUTER;
}

// The folders that a term begins from; those below them follow.
static void _db_find_first_folders(_db_path_work_t *work, bool is_anchored, u32 threads) {
    if (!is_anchored) {
        os_parallel(threads, _db_find_named_folders_proc, work);
        return;
    }
    const db_anchors_t *anchors = static_cast<const db_anchors_t *>(work->term->data);
    for (u32 i = 0; i < anchors->inner_count; i++)
        db_item_set_add(work->found, anchors->inner[i]);
    for (u32 i = 0; i < anchors->outer_count; i++)
        db_item_set_add(work->found, anchors->outer[i]);
}

// The same set serves both passes.
static db_item_set_t *_db_find_twin(const db_query_t *query, const db_exec_term_t *term) {
    const db_exec_term_t *twin = query->folder_terms;
    while (twin && twin->number != term->number)
        twin = twin->link;
    return twin && twin->op == term->op ? twin->folders : nullptr;
}

void db_search_prepare_path(db_query_t *query, db_exec_term_t *term, bool is_folder) {
    db_op_parts_t parts = db_op_decode(term->op);
    bool is_find = parts.family == DB_OP_FIND && parts.path;
    bool is_anchored = _db_is_anchor_family(parts.family);
    if (!is_find && !is_anchored && !_db_is_component_family(parts.family))
        return;
    if (!is_folder) {
        term->folders = _db_find_twin(query, term);
        term->folders_are_shared = term->folders != nullptr;
        if (term->folders)
            return;
    }
    const array_t *folders = &query->db->folder_name_array;
    _db_path_work_t work = {query, term, folders, db_item_set_create(folders), nullptr};
    u32 threads = os_get_thread_count(folders->count, FOLDERS_PER_THREAD);
    _db_find_first_folders(&work, is_anchored, threads);
    if (!_db_set_is_empty(work.found)) {
        work.known = db_item_set_create(folders);
        os_parallel(threads, _db_decide_folders_proc, &work);
        db_item_set_free(work.known);
    }
    term->folders = work.found;
}

void db_search_free_folders(db_query_t *query) {
    for (db_exec_term_t *list : {query->file_terms, query->folder_terms}) {
        for (db_exec_term_t *term = list; term; term = term->link) {
            if (term->folders && !term->folders_are_shared)
                db_item_set_free(term->folders);
            term->folders = nullptr;
            term->folders_are_shared = false;
        }
    }
}

// --- The table ---------------------------------------------------------------------------------------------

template<bool negated>
static db_op_functions_t _db_get_path_functions(u32 family) {
    switch (family) {
    case DB_OP_ANCHORS: return {_db_test_anchor<DB_OP_ANCHORS, negated>, db_scan_by_test};
    case DB_OP_ANCHORS_INNER: return {_db_test_anchor<DB_OP_ANCHORS_INNER, negated>, db_scan_by_test};
    case DB_OP_ANCHORS_OUTER: return {_db_test_anchor<DB_OP_ANCHORS_OUTER, negated>, db_scan_by_test};
    case DB_OP_ANCHOR_INNER: return {_db_test_anchor<DB_OP_ANCHOR_INNER, negated>, db_scan_by_test};
    case DB_OP_ANCHOR_OUTER: return {_db_test_anchor<DB_OP_ANCHOR_OUTER, negated>, db_scan_by_test};
    case DB_OP_COMPONENT_STARTS_WITH:
    case DB_OP_COMPONENT_ENDS_WITH:
    case DB_OP_COMPONENT_EQUAL: return {_db_test_component<negated>, db_scan_by_test};
    case DB_OP_FIND: return {_db_test_component<negated>, _db_scan_path_find<negated>};
    default: return {};
    }
}

db_op_functions_t db_op_get_path_functions(const db_exec_term_t *term, db_op_pass_t pass) {
    db_op_parts_t parts = db_op_decode(term->op);
    if (parts.family == DB_OP_FIND && term->has_separator)
        return {parts.negated ? _db_test_path_text<true> : _db_test_path_text<false>, db_scan_by_test};
    if (parts.family == DB_OP_NO_ANCHOR)
        return db_op_get_functions(parts.negated && pass.is_folder ? DB_OP_TRUE : DB_OP_FALSE, pass);
    return parts.negated ? _db_get_path_functions<true>(parts.family)
                         : _db_get_path_functions<false>(parts.family);
}

} // namespace findwright
