// What the terms of a search look at, and what they say of a single item.
#include "base/mem.h"
#include "base/utf8.h"
#include "db/db_item_set.h"
#include "query/db_live_result.h"
#include "query/db_query_internal.h"
#include "query/db_regex.h"

#include <algorithm>

namespace findwright {

// --- What terms look at ------------------------------------------------------------------------------------

// What a family looks at of an item's record beyond its name and place.
static u32 _db_family_get_changes(u32 family) {
    switch (family) {
    case DB_OP_SIZE:
    case DB_OP_DUPE_SIZE: return DB_FLAG_SIZE;
    case DB_OP_DATE_CREATED:
    case DB_OP_DUPE_DATE_CREATED: return DB_FLAG_DATE_CREATED;
    case DB_OP_DATE_MODIFIED:
    case DB_OP_DUPE_DATE_MODIFIED: return DB_FLAG_DATE_MODIFIED;
    case DB_OP_DATE_ACCESSED:
    case DB_OP_DUPE_DATE_ACCESSED: return DB_FLAG_DATE_ACCESSED;
    case DB_OP_ATTRIBUTES:
    case DB_OP_DUPE_ATTRIBUTES: return DB_FLAG_ATTRIBUTES;
    case DB_OP_DATES_EQUAL:
    case DB_OP_DATES_AT_OR_AFTER:
    case DB_OP_DATES_AFTER: return DB_FLAG_DATE_CREATED | DB_FLAG_DATE_MODIFIED;
    case DB_OP_RECENT_CHANGE: return DB_CHANGE_RECENT_CHANGES;
    case DB_OP_RUN_COUNT:
    case DB_OP_DATE_RUN: return DB_CHANGE_RUNS;
    default: return 0;
    }
}

static bool _db_family_holds_folders(u32 family) {
    switch (family) {
    case DB_OP_ANCHORS:
    case DB_OP_ANCHORS_INNER:
    case DB_OP_ANCHORS_OUTER:
    case DB_OP_ANCHOR_INNER:
    case DB_OP_ANCHOR_OUTER:
    case DB_OP_NO_ANCHOR:
    case DB_OP_PARENT_NONE:
    case DB_OP_PARENT:
    case DB_OP_PARENTS_SEVERAL: return true;
    default: return false;
    }
}

static bool _db_family_reads_files(const db_t *db, u32 family) {
    switch (family) {
    case DB_OP_SIZE_READ:
    case DB_OP_ATTRIBUTES_READ:
    case DB_OP_DATE_MODIFIED_READ:
    case DB_OP_DATE_CREATED_READ:
    case DB_OP_DATE_ACCESSED_READ:
    case DB_OP_CONTENT:
    case DB_OP_CONTENT_UTF16:
    case DB_OP_CONTENT_UTF16BE:
    case DB_OP_CONTENT_ANSI:
    case DB_OP_CONTENT_UTF8: return true;
    case DB_OP_DATES_EQUAL:
    case DB_OP_DATES_AT_OR_AFTER:
    case DB_OP_DATES_AFTER: return (~db->layout.flags & (DB_FLAG_DATE_CREATED | DB_FLAG_DATE_MODIFIED)) != 0;
    default: return false;
    }
}

// An op may be a constant in the pass over the items of one kind.
static bool _db_is_constant_test(const db_exec_term_t *term, bool is_folder) {
    for (u32 op : {static_cast<u32>(DB_OP_TRUE), static_cast<u32>(DB_OP_FALSE)}) {
        if (term->test == db_op_get_functions(op, {is_folder, false}).test)
            return true;
    }
    return false;
}

static void _db_result_read_term(const db_query_t *query, const db_exec_term_t *term, bool is_folder,
                                 db_result_terms_t *terms) {
    u32 family = db_op_decode(term->op).family;
    terms->needs_regex |= term->regex != nullptr;
    terms->has_anchors |= _db_family_holds_folders(family);
    if (_db_is_constant_test(term, is_folder))
        return;
    bool reads = _db_family_reads_files(query->db, family);
    terms->reads_files |= reads;
    terms->changes[is_folder] |= _db_family_get_changes(family);
    terms->is_local &= !reads && !db_op_is_set_family(family) && family != DB_OP_TYPE;
}

void _db_result_read_terms(db_query_t *query) {
    db_result_terms_t *terms = &query->live_result->terms;
    const db_exec_term_t *folder = query->folder_terms, *file = query->file_terms;
    *terms = {};
    terms->is_local = true;
    terms->finds_all = folder && file && !folder->link && folder->op == DB_OP_TRUE && file->op == DB_OP_TRUE;
    for (const db_exec_term_t *term = folder; term; term = term->link)
        _db_result_read_term(query, term, true, terms);
    for (const db_exec_term_t *term = file; term; term = term->link)
        _db_result_read_term(query, term, false, terms);
}

// --- One item ----------------------------------------------------------------------------------------------

void _db_result_free_scan(db_query_t *query) {
    db_live_result_t *live = query->live_result;
    if (live->has_scan)
        db_scan_kill(&live->scan);
    live->has_scan = false;
}

bool _db_result_matches(db_query_t *query, const db_item_t *item, bool is_folder) {
    db_live_result_t *live = query->live_result;
    const db_exec_term_t *terms = is_folder ? query->folder_terms : query->file_terms;
    if (live->terms.finds_all || !terms)
        return terms != nullptr;
    if (!live->has_scan) {
        db_scan_init(&live->scan, query, live->terms.needs_regex);
        live->scan.is_single = true;
        live->has_scan = true;
    }
    return db_scan_test_item(&live->scan, terms, item);
}

// --- Folders that terms hold -------------------------------------------------------------------------------

// Calls visit(term) for the terms that hold folders, until it returns true; whether it did.
template<class Visit>
static bool _db_any_anchored_term(const db_query_t *query, Visit visit) {
    for (const db_exec_term_t *list : {query->folder_terms, query->file_terms}) {
        for (const db_exec_term_t *term = list; term; term = term->link) {
            if (_db_family_holds_folders(db_op_decode(term->op).family) && visit(term))
                return true;
        }
    }
    return false;
}

static u32 _db_anchors_get_count(const db_anchors_t *anchors) {
    return anchors->inner_count + anchors->outer_count + anchors->file_count;
}

// The text is that of a folder's path, with a separator at its end or without. However the term compares, it
// finds no other folder than one whose folded path is the same.
static bool _db_is_anchor_path(const db_exec_term_t *term, const utf8_buf_t *path) {
    u32 length = term->text_length;
    if (length != 0 && term->text[length - 1] == '\\')
        length--;
    return utf8_compare_fold(path->data, static_cast<u32>(path->length), term->text, length) == 0;
}

bool _db_result_touches_anchors(const db_query_t *query, const db_item_t *item, bool is_folder) {
    if (!query->live_result->terms.has_anchors)
        return false;
    if (db_item_is_top(item))
        return true;
    if (!is_folder)
        return false;
    utf8_buf_t path;
    utf8_buf_init(&path);
    db_item_get_full_path_name(&path, item);
    mem_ref_t ref = mem_ref(item);
    bool touches = _db_any_anchored_term(query, [&](const db_exec_term_t *term) {
        const auto *anchors = static_cast<const db_anchors_t *>(term->data);
        return _db_is_anchor_path(term, &path) ||
               (anchors && std::find(anchors->inner, anchors->inner + _db_anchors_get_count(anchors), ref) !=
                               anchors->inner + _db_anchors_get_count(anchors));
    });
    utf8_buf_kill(&path);
    return touches;
}

// Takes references out of a list; what is behind those that are left is that of no item.
template<class IsGone>
static bool _db_drop_refs(mem_ref_t *refs, u32 *count, IsGone is_gone) {
    mem_ref_t *end = std::remove_if(refs, refs + *count, is_gone);
    bool is_changed = end != refs + *count;
    std::fill(end, refs + *count, ~static_cast<mem_ref_t>(0));
    *count = static_cast<u32>(end - refs);
    return is_changed;
}

template<class IsGone>
static bool _db_result_drop_anchors_if(db_query_t *query, IsGone is_gone) {
    bool is_changed = false;
    _db_any_anchored_term(query, [&](const db_exec_term_t *term) {
        auto *anchors = static_cast<db_anchors_t *>(term->data);
        if (anchors) {
            is_changed |= _db_drop_refs(anchors->inner, &anchors->inner_count, is_gone);
            is_changed |= _db_drop_refs(anchors->outer, &anchors->outer_count, is_gone);
            is_changed |= _db_drop_refs(anchors->files, &anchors->file_count, is_gone);
        }
        return false;
    });
    return is_changed;
}

void _db_result_drop_anchor(db_query_t *query, mem_ref_t item) {
    if (query->live_result->terms.has_anchors)
        _db_result_drop_anchors_if(query, [item](mem_ref_t ref) { return ref == item; });
}

bool _db_result_drop_anchors(db_query_t *query, const db_item_set_t *folders, const db_item_set_t *files) {
    return query->live_result->terms.has_anchors && _db_result_drop_anchors_if(query, [&](mem_ref_t ref) {
               return db_item_set_has(folders, ref) || db_item_set_has(files, ref);
           });
}

} // namespace findwright
