// What functions have to know of all items before a pass can decide on one: children and duplicates.
//
// Children are counted in the `parent` words of the folders, which are borrowed for it and put back whatever
// happens: no other thread looks at the index while a worker has it.
#include "base/mem.h"
#include "os/os_parallel.h"
#include "query/db_regex.h"
#include "query/db_search_function.h"

namespace findwright {

// --- The walk ----------------------------------------------------------------------------------------------

static constexpr u64 WALK_THREAD_ITEMS = 65536; // what a thread is worth its start for

// Asks the memory for what a page begins with: heads and columns.
static void _db_walk_prefetch(const array_page_t *page) {
    const u32 *values = array_page_values(page);
    for (u32 i = 0; i < DB_WALK_AHEAD && i < page->item_count; i++) {
        __builtin_prefetch(db_item(values[i]));
        __builtin_prefetch(reinterpret_cast<const char *>(db_item(values[i])) + 64);
    }
}

static void _db_walk_page(const db_walk_t *walk, u64 i, db_walk_page_t *page) {
    const array_page_t *from = walk->items->pages[i];
    page->values = array_page_values(from);
    page->count = from->item_count;
    page->first_index = walk->items->first_index[i];
    const array_page_t *front = i != 0 ? walk->items->pages[i - 1] : nullptr;
    page->before = front ? array_page_values(front)[front->item_count - 1] : 0;
    u32 passed[ARRAY_PAGE_VALUES];
    if (walk->filter && walk->items->word) {
        page->count =
            db_word_filter_run(walk->filter, array_page_words(from), page->values, page->count, passed);
        page->values = passed;
        page->before = 0;
    }
    if (page->count != 0)
        walk->proc(walk->param, page);
}

static void _db_walk_part_proc(void *param, u32 part, u32 parts) {
    const db_walk_t *walk = static_cast<const db_walk_t *>(param);
    u64 pages = walk->items->page_count, end = pages * (part + 1) / parts;
    bool reads_all = !walk->filter || !walk->items->word;
    db_walk_page_t page = {};
    page.part = part;
    if (walk->needs_regex)
        page.regex_match = db_regex_match_create();
    for (u64 i = pages * part / parts; i < end; i++) {
        if (walk->cancel && walk->cancel->load(std::memory_order_relaxed))
            break;
        if (reads_all && i + 1 < end)
            _db_walk_prefetch(walk->items->pages[i + 1]);
        _db_walk_page(walk, i, &page);
    }
    if (page.regex_match)
        db_regex_match_free(page.regex_match);
}

u32 db_walk_get_thread_count(const array_t *items) {
    u32 threads = os_get_thread_count(items->count, WALK_THREAD_ITEMS);
    return threads < DB_WALK_THREADS_MAX ? threads : DB_WALK_THREADS_MAX;
}

void db_walk(const db_walk_t *walk) {
    os_parallel(walk->threads != 0 ? walk->threads : db_walk_get_thread_count(walk->items),
                _db_walk_part_proc, const_cast<db_walk_t *>(walk));
}

void db_item_sets_init(db_item_sets_t *sets, const array_t *items) {
    sets->count = db_walk_get_thread_count(items);
    sets->sets[0] = db_item_set_create(items);
    for (u32 i = 1; i < sets->count; i++)
        sets->sets[i] = db_item_set_create_like(sets->sets[0]);
}

db_item_set_t *db_item_sets_finish(db_item_sets_t *sets) {
    for (u32 i = 1; i < sets->count; i++) {
        db_item_set_merge(sets->sets[0], sets->sets[i]);
        db_item_set_free(sets->sets[i]);
    }
    return sets->sets[0];
}

// --- Folders that have children ----------------------------------------------------------------------------

// Most children are not their folder's first one.
static void _db_add_parent(db_item_set_t *set, const db_item_t *item) {
    if (!db_item_is_top(item) && !db_item_set_has_shared(set, item->parent))
        db_item_set_add_shared(set, item->parent);
}

static void _db_add_parents_proc(void *param, const db_walk_page_t *page) {
    for (u32 i = 0; i < page->count; i++) {
        __builtin_prefetch(db_item(db_walk_ahead(page, i)));
        _db_add_parent(static_cast<db_item_set_t *>(param), db_item(page->values[i]));
    }
}

// Turns a set of folders into that of the others.
struct _db_complement_t {
    const db_item_set_t *from;
    db_item_set_t *to;
};

static void _db_complement_proc(void *param, const db_walk_page_t *page) {
    const _db_complement_t *complement = static_cast<const _db_complement_t *>(param);
    for (u32 i = 0; i < page->count; i++) {
        if (!db_item_set_has(complement->from, page->values[i]))
            db_item_set_add_shared(complement->to, page->values[i]);
    }
}

static db_item_set_t *_db_find_empty(db_query_t *query) {
    db_t *db = query->db;
    db_item_set_t *parents = db_item_set_create(&db->folder_name_array);
    db_item_set_t *empty = db_item_set_create(&db->folder_name_array);
    for (const array_t *items : {&db->folder_name_array, &db->file_name_array}) {
        db_walk_t walk = {items, _db_add_parents_proc, parents, &query->cancel_search, false, nullptr, 0};
        db_walk(&walk);
    }
    _db_complement_t complement = {parents, empty};
    db_walk_t walk = {
        &db->folder_name_array, _db_complement_proc, &complement, &query->cancel_search, false, nullptr, 0};
    db_walk(&walk);
    db_item_set_free(parents);
    return empty;
}

// Folders with a child whose name matches.
struct _db_child_t {
    const db_exec_term_t *term;
    db_item_set_t *set;
};

static void _db_child_proc(void *param, const db_walk_page_t *page) {
    const _db_child_t *child = static_cast<const _db_child_t *>(param);
    for (u32 i = 0; i < page->count; i++) {
        __builtin_prefetch(db_item(db_walk_ahead(page, i)));
        const db_item_t *item = db_item(page->values[i]);
        u32 length;
        const char *name = db_item_get_name(item, &length);
        if (child->term->text_test(child->term, page->regex_match, name, length))
            _db_add_parent(child->set, item);
    }
}

static db_item_set_t *_db_find_child(db_query_t *query, const db_exec_term_t *term) {
    db_t *db = query->db;
    _db_child_t child = {term, db_item_set_create(&db->folder_name_array)};
    db_word_filter_t filter = {1, {db_term_get_matcher_word(term)}};
    for (const array_t *items : {&db->folder_name_array, &db->file_name_array}) {
        db_walk_t walk = {
            items, _db_child_proc, &child, &query->cancel_search, term->regex != nullptr, &filter, 0};
        db_walk(&walk);
    }
    return child.set;
}

// --- Counts of children ------------------------------------------------------------------------------------

// The folders' own parents, by their place in the array; their `parent` words are counters meanwhile.
struct _db_counts_t {
    mem_ref_t *parents;
    const db_exec_term_t *term;
    db_item_set_t *set;
};

static void _db_borrow_proc(void *param, const db_walk_page_t *page) {
    mem_ref_t *parents = static_cast<_db_counts_t *>(param)->parents + page->first_index;
    for (u32 i = 0; i < page->count; i++) {
        __builtin_prefetch(db_item(db_walk_ahead(page, i)), 1);
        db_item_t *folder = mem_ptr<db_item_t>(page->values[i]);
        parents[i] = folder->parent;
        folder->parent = 0;
    }
}

// Gives the words back, and keeps the folders whose count fits.
static void _db_give_back_proc(void *param, const db_walk_page_t *page) {
    const _db_counts_t *counts = static_cast<const _db_counts_t *>(param);
    i64 low = counts->term->count.low, high = counts->term->count.high;
    for (u32 i = 0; i < page->count; i++) {
        __builtin_prefetch(db_item(db_walk_ahead(page, i)), 1);
        db_item_t *folder = mem_ptr<db_item_t>(page->values[i]);
        if (folder->parent >= low && folder->parent <= high)
            db_item_set_add_shared(counts->set, page->values[i]);
        folder->parent = counts->parents[page->first_index + i];
    }
}

static void _db_count_child(mem_ref_t parent) {
    if (parent >= MEM_REF_FIRST)
        __atomic_fetch_add(&mem_ptr<db_item_t>(parent)->parent, 1, __ATOMIC_RELAXED);
}

static void _db_count_folders_proc(void *param, const db_walk_page_t *page) {
    const mem_ref_t *parents = static_cast<const _db_counts_t *>(param)->parents + page->first_index;
    for (u32 i = 0; i < page->count; i++) {
        __builtin_prefetch(db_item(parents[i + DB_WALK_AHEAD < page->count ? i + DB_WALK_AHEAD : i]), 1);
        _db_count_child(parents[i]);
    }
}

static void _db_count_files_proc(void *, const db_walk_page_t *page) {
    for (u32 i = 0; i < page->count; i++) {
        __builtin_prefetch(db_item(db_walk_ahead(page, i)));
        u32 near = i + DB_WALK_AHEAD / 2;
        if (near < page->count) // its record is here by now
            __builtin_prefetch(db_item(db_item(page->values[near])->parent), 1);
        _db_count_child(db_item(page->values[i])->parent);
    }
}

static db_item_set_t *_db_find_child_counts(db_query_t *query, const db_exec_term_t *term, bool folders,
                                            bool files) {
    db_t *db = query->db;
    const array_t *folder_array = &db->folder_name_array;
    _db_counts_t counts = {
        static_cast<mem_ref_t *>(mem_alloc(static_cast<size_t>(folder_array->count) * sizeof(mem_ref_t))),
        term, db_item_set_create(folder_array)};
    auto run = [&](const array_t *items, db_walk_proc_t *proc, const std::atomic<u32> *cancel) {
        db_walk_t walk = {items, proc, &counts, cancel, false, nullptr, 0};
        db_walk(&walk);
    };
    run(folder_array, _db_borrow_proc, nullptr);
    if (folders)
        run(folder_array, _db_count_folders_proc, &query->cancel_search);
    if (files)
        run(&db->file_name_array, _db_count_files_proc, &query->cancel_search);
    run(folder_array, _db_give_back_proc, nullptr);
    mem_free(counts.parents);
    return counts.set;
}

// --- Terms -------------------------------------------------------------------------------------------------

static db_item_set_t *_db_find_set(db_query_t *query, const db_exec_term_t *term, bool is_folder) {
    u32 family = db_op_decode(term->op).family;
    switch (family) {
    case DB_OP_EMPTY: return _db_find_empty(query);
    case DB_OP_CHILD: return _db_find_child(query, term);
    case DB_OP_CHILD_COUNT: return _db_find_child_counts(query, term, true, true);
    case DB_OP_CHILD_FILE_COUNT: return _db_find_child_counts(query, term, false, true);
    case DB_OP_CHILD_FOLDER_COUNT: return _db_find_child_counts(query, term, true, false);
    case DB_OP_DUPE_NAME:
    case DB_OP_DUPE_NAME_PART:
    case DB_OP_DUPE_SIZE:
    case DB_OP_DUPE_DATE_CREATED:
    case DB_OP_DUPE_DATE_MODIFIED:
    case DB_OP_DUPE_DATE_ACCESSED:
    case DB_OP_DUPE_ATTRIBUTES: return db_search_find_dupes(query, family, is_folder);
    default: return nullptr;
    }
}

void db_search_prepare_function(db_query_t *query, db_exec_term_t *term, bool is_folder) {
    if (db_item_set_t *set = _db_find_set(query, term, is_folder)) {
        if (term->data)
            term->data->free(term->data);
        term->data = set;
    }
}

} // namespace findwright
