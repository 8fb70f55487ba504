#include "query/db_search.h"

#include "base/mem.h"
#include "db/db_word.h"
#include "os/debug.h"
#include "os/os_parallel.h"
#include "query/db_regex.h"
#include "query/db_result_internal.h"

#include <cstring>

namespace findwright {

static constexpr u32 PAGE_SHIFT = 12;      // bytes of a page, as a power of two
static constexpr u32 THREAD_BYTES = 65536; // a thread is worth its start for 16 pages or more

// A pass: one array, one list of terms.
struct _db_pass_t {
    db_query_t *query;
    const array_t *scan_array;
    const db_exec_term_t *first_term;
    const db_word_filter_t *filter;
    u64 exact_word;
    db_scan_t *scans; // one per worker
};

// --- One worker --------------------------------------------------------------------------------------------

// Runs the chain of terms on one item, from one of them on.
static bool _db_run_chain(db_scan_t *scan, const db_exec_term_t *term, const db_item_t *item) {
    for (;;) {
        bool match = term->test(scan, term, item);
        const db_exec_term_t *next = match ? term->next : term->notnext;
        if (!next)
            return match;
        term = next;
    }
}

bool db_scan_test_item(db_scan_t *scan, const db_exec_term_t *first_term, const db_item_t *item) {
    scan->first_term = first_term;
    return _db_run_chain(scan, first_term, item);
}

void db_scan_init(db_scan_t *scan, db_query_t *query, bool needs_regex) {
    std::memset(static_cast<void *>(scan), 0, sizeof *scan);
    scan->query = query;
    scan->db = query->db;
    array_init(&scan->results);
    utf8_buf_init(&scan->path);
    scan->regex_match = needs_regex ? db_regex_match_create() : nullptr;
}

void db_scan_kill(db_scan_t *scan) {
    utf8_buf_kill(&scan->path);
    if (scan->regex_match)
        db_regex_match_free(scan->regex_match);
    if (scan->memo)
        db_scan_memo_free(scan->memo);
    array_kill(&scan->results);
}

// A page of a search with several terms. Where the first term must match, its own scan picks those that the
// rest is run on.
static u32 _db_scan_chain(db_scan_t *scan, const u32 *values, u32 count, u32 *out) {
    const db_exec_term_t *first = scan->first_term;
    const db_exec_term_t *term = first;
    if (!first->notnext) {
        count = first->scan(scan, first, values, count, out);
        if (!first->next)
            return count;
        values = out;
        term = first->next;
    }
    u32 found = 0;
    for (u32 i = 0; i < count; i++) {
        if (scan->query->cancel_search.load(std::memory_order_relaxed))
            break;
        u32 value = values[i];
        if (_db_run_chain(scan, term, db_item(value)))
            out[found++] = value;
    }
    return found;
}

// The values of one or several pages that are scanned at once. Behind them stand references of records that
// are asked of the memory early: the first ones of the next page where that is known, else repeated ones.
struct _db_batch_t {
    u32 count;
    u32 values[ARRAY_PAGE_VALUES + DB_SCAN_AHEAD];
};

static void _db_batch_pad(_db_batch_t *batch, const array_page_t *next) {
    u32 ahead = 0;
    if (next) {
        ahead = next->item_count < DB_SCAN_AHEAD ? next->item_count : DB_SCAN_AHEAD;
        std::memcpy(batch->values + batch->count, array_page_values(next), ahead * sizeof *batch->values);
    }
    for (; ahead < DB_SCAN_AHEAD; ahead++)
        batch->values[batch->count + ahead] = batch->values[batch->count - 1];
}

// Takes the next page, whole.
static void _db_batch_take_page(const db_scan_t *scan, u32 *page, _db_batch_t *batch) {
    const array_page_t *from = scan->scan_array->pages[*page];
    batch->count = from->item_count;
    std::memcpy(batch->values, array_page_values(from), batch->count * sizeof *batch->values);
    *page += 1;
    _db_batch_pad(batch, *page < scan->end_page ? scan->scan_array->pages[*page] : nullptr);
}

// Takes what the filter lets through of as many pages as there is room for.
static void _db_batch_take_filtered(const db_scan_t *scan, u32 *page, _db_batch_t *batch) {
    batch->count = 0;
    while (*page < scan->end_page) {
        const array_page_t *from = scan->scan_array->pages[*page];
        if (batch->count + from->item_count > ARRAY_PAGE_VALUES)
            break;
        batch->count += db_word_filter_run(scan->filter, array_page_words(from), array_page_values(from),
                                           from->item_count, batch->values + batch->count);
        *page += 1;
        if (scan->query->cancel_search.load(std::memory_order_relaxed))
            break;
    }
    if (batch->count == 0)
        return;
    _db_batch_pad(batch, nullptr);
    for (u32 i = 0; i < DB_SCAN_AHEAD; i++) {
        __builtin_prefetch(db_item(batch->values[i]));
        __builtin_prefetch(reinterpret_cast<const char *>(db_item(batch->values[i])) + 32);
    }
}

// A term that is a single letter: the words tell, but for names that are no UTF-8.
static u32 _db_scan_words(db_scan_t *scan, u32 page, u32 *out) {
    const array_page_t *from = scan->scan_array->pages[page];
    const u32 *values = array_page_values(from);
    const u64 *words = array_page_words(from);
    u32 found = 0;
    for (u32 i = 0; i < from->item_count; i++) {
        out[found] = values[i];
        if (words[i] == DB_WORD_ALL) [[unlikely]]
            found += scan->first_term->test(scan, scan->first_term, db_item(values[i]));
        else
            found += (words[i] & scan->exact_word) != 0;
    }
    return found;
}

// What follows a batch in a list of results.
struct _db_results_t {
    array_t *array;
    u32 *cursor, *end;
};

static void _db_add_results(_db_results_t *results, const u32 *values, u32 count) {
    for (u32 copied = 0; copied != count;) {
        if (results->cursor == results->end)
            results->cursor = array_builder_new_page(results->array, &results->end);
        u32 room = static_cast<u32>(results->end - results->cursor);
        u32 size = count - copied < room ? count - copied : room;
        std::memcpy(results->cursor, values + copied, size * sizeof *values);
        results->cursor += size;
        copied += size;
    }
}

static void _db_scan_pages(db_scan_t *scan) {
    _db_results_t results = {&scan->results, nullptr, nullptr};
    _db_batch_t batch;
    u32 found[ARRAY_PAGE_VALUES];
    bool chain = scan->first_term->link != nullptr;
    for (u32 page = scan->first_page; page < scan->end_page;) {
        if (scan->query->cancel_search.load(std::memory_order_relaxed))
            break;
        if (scan->exact_word != 0) {
            _db_add_results(&results, found, _db_scan_words(scan, page, found));
            page++;
            continue;
        }
        if (scan->filter)
            _db_batch_take_filtered(scan, &page, &batch);
        else
            _db_batch_take_page(scan, &page, &batch);
        if (batch.count == 0)
            continue;
        u32 count = chain ? _db_scan_chain(scan, batch.values, batch.count, found)
                          : scan->first_term->scan(scan, scan->first_term, batch.values, batch.count, found);
        _db_add_results(&results, found, count);
    }
    array_builder_finish(&scan->results, results.cursor, results.end);
}

static bool _db_has_regex(const db_exec_term_t *term) {
    for (; term; term = term->link) {
        if (term->regex)
            return true;
    }
    return false;
}

static void _db_scan_proc(void *param, u32 part, u32 parts) {
    _db_pass_t *pass = static_cast<_db_pass_t *>(param);
    db_scan_t *scan = &pass->scans[part];
    u64 pages = pass->scan_array->page_count;
    db_scan_init(scan, pass->query, _db_has_regex(pass->first_term));
    scan->scan_array = pass->scan_array;
    scan->first_term = pass->first_term;
    scan->filter = pass->filter;
    scan->exact_word = pass->exact_word;
    scan->first_page = static_cast<u32>(pages * part / parts);
    scan->end_page = static_cast<u32>(pages * (part + 1) / parts);
    _db_scan_pages(scan);
}

// --- A pass ------------------------------------------------------------------------------------------------

void db_search_prepare(db_query_t *query, db_exec_term_t *terms, bool is_folder, bool is_narrowed) {
    for (db_exec_term_t *term = terms; term && !query->cancel_search; term = term->link) {
        if (!is_narrowed) // few items: the way up from each is shorter than one over all folders
            db_search_prepare_path(query, term, is_folder);
        db_search_prepare_function(query, term, is_folder);
    }
}

// The letter's bit of a pass that looks for one letter in all its spellings, else 0.
static u64 _db_get_exact_word(const db_exec_term_t *term) {
    bool is_letter = term->op == DB_OP_FIND && !term->link && term->text_length == 1;
    return is_letter ? term->word & DB_WORD_LETTER_BITS : 0;
}

static void _db_run_pass(db_query_t *query, const array_t *scan_array, const db_exec_term_t *first_term,
                         const db_word_filter_t *filter, bool is_folder, array_t *results) {
    u32 threads = os_get_thread_count(static_cast<u64>(scan_array->page_count) << PAGE_SHIFT, THREAD_BYTES);
    if (query->has_content_term && !is_folder)
        threads = 1; // what is slow is the disk
    bool has_words = scan_array->word != nullptr;
    _db_pass_t pass = {query,
                       scan_array,
                       first_term,
                       has_words && !db_word_filter_is_open(filter) ? filter : nullptr,
                       has_words ? _db_get_exact_word(first_term) : 0,
                       static_cast<db_scan_t *>(mem_alloc(threads * sizeof(db_scan_t)))};
    os_parallel(threads, _db_scan_proc, &pass);
    for (u32 i = 0; i < threads; i++) {
        array_take_pages(results, &pass.scans[i].results);
        db_scan_kill(&pass.scans[i]);
    }
    mem_free(pass.scans);
}

static void _db_search_pass(db_query_t *query, const array_t *scan_array, db_exec_term_t *first_term,
                            bool is_folder, array_t *results) {
    array_clear(results);
    if (!first_term || scan_array->count == 0)
        return;
    if (!first_term->link && first_term->op == DB_OP_TRUE) {
        array_copy(results, scan_array); // everything, with no scan at all
        return;
    }
    db_word_filter_t filter;
    db_word_filter_make(&filter, first_term);
    if (filter.count == 0)
        return; // no name can match
    array_t narrowed;
    bool is_narrowed = db_search_narrow(query, first_term, is_folder, &narrowed);
    db_search_prepare(query, first_term, is_folder, is_narrowed);
    _db_run_pass(query, is_narrowed ? &narrowed : scan_array, first_term, &filter, is_folder, results);
    if (is_narrowed)
        array_kill(&narrowed);
}

void db_search_folders(db_query_t *query, const array_t *scan_array) {
    u32 start = os_get_tick_count();
    _db_search_pass(query, scan_array, query->folder_terms, true, &query->folder_results);
    debug_printf("found %d folders, size %d, db search time taken: %f seconds\n", query->folder_results.count,
                 static_cast<u32>(array_memory_size(&query->folder_results)), os_get_tick_count() - start);
}

void db_search_files(db_query_t *query, const array_t *scan_array) {
    u32 start = os_get_tick_count();
    _db_search_pass(query, scan_array, query->file_terms, false, &query->file_results);
    debug_printf("found %d files, size %d, db search time taken: %f seconds\n", query->file_results.count,
                 static_cast<u32>(array_memory_size(&query->file_results)), os_get_tick_count() - start);
}

} // namespace findwright
