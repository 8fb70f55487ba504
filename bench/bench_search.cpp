// Search rows: counting the matches of a term over all real names, beside `rg -j1 -i -c -F` over the same
// names.
#include "bench.h"

#include "os/event.h"
#include "os/os.h"
#include "os/os_parallel.h"
#include "query/db_query.h"

#include <atomic>
#include <cstdlib>

namespace findwright {

// A term, and its other spelling by case: no code point of the terms has a third one.
struct _bench_term_t {
    const char *text;
    const char *upper;
    bool match_diacritics;
    bool memory_rows; // what it walks is put beside a plain sum
    std::vector<double> ours, ours_alone, peer;
    u64 found, found_by_accent, peer_found;
};

static constexpr double SEARCH_TARGET = 1.2; // times the peer's time
static constexpr u32 THREADS = 2;

static double _bench_run_search(db_query_t *query, const _bench_term_t &term, u32 threads, u32 *count) {
    max_threads = threads;
    db_query_params_t params = {};
    params.match_diacritics = term.match_diacritics;
    params.search = term.text;
    params.filter_search = "";
    double start = bench_now();
    db_query_search(query, &params);
    *count = db_get_result_count(query);
    double seconds = bench_now() - start;
    event_dispatch();
    return seconds;
}

static double _bench_run_rg(const std::string &names, const _bench_term_t &term, u64 *count) {
    std::string output;
    bench_peer_run_t run =
        bench_run_peer({"rg", "-j1", "-i", "-c", "-F", term.text, names}, &output, nullptr);
    *count = run.ok ? std::strtoull(output.c_str(), nullptr, 10) : 0;
    return run.seconds;
}

// --- Answers -----------------------------------------------------------------------------------------------

static bool _bench_contains(std::string_view name, const _bench_term_t &term) {
    std::string_view lower = term.text, upper = term.upper;
    for (size_t i = 0; i + lower.size() <= name.size(); i++) {
        size_t n = 0;
        while (n < lower.size() && (name[i + n] == lower[n] || name[i + n] == upper[n]))
            n++;
        if (n == lower.size())
            return true;
    }
    return false;
}

// Results that hold the term only when their accents are taken off.
static u64 _bench_count_by_accent(db_query_t *query, const _bench_term_t &term) {
    u64 count = 0;
    u32 results = db_get_result_count(query);
    for (u32 i = 0; i < results; i++) {
        u32 length;
        const char *name = db_item_get_name(db_get_result_item(query, static_cast<i32>(i)), &length);
        count += !_bench_contains({name, length}, term);
    }
    return count;
}

// --- Memory ------------------------------------------------------------------------------------------------

struct _bench_span_t {
    const u64 *words;
    u64 count;
};

// What a scan walks: the records' blocks, and the pages of the two name arrays.
static std::vector<_bench_span_t> _bench_scanned_memory(const db_t *db) {
    std::vector<_bench_span_t> spans;
    for (mem_ref_t block = db->mem.block_first; block != 0; block = *mem_ptr<mem_ref_t>(block))
        spans.push_back({mem_ptr<u64>(block), DB_MEM_BLOCK_SIZE / sizeof(u64)});
    for (const array_t *array : {&db->folder_name_array, &db->file_name_array}) {
        for (u32 i = 0; i < array->page_count; i++)
            spans.push_back({reinterpret_cast<const u64 *>(array->pages[i]), ARRAY_PAGE_SIZE / sizeof(u64)});
    }
    return spans;
}

static std::atomic<u64> _bench_sum; // keeps the compiler from leaving the sums out

// The threads, of the pool that searches use, take the spans in turn, which are of two sizes.
static void _bench_sum_proc(void *param, u32 part, u32 parts) {
    const std::vector<_bench_span_t> &spans = *static_cast<std::vector<_bench_span_t> *>(param);
    u64 sum = 0;
    for (size_t i = part; i < spans.size(); i += parts) {
        for (u64 n = 0; n < spans[i].count; n++)
            sum += spans[i].words[n];
    }
    _bench_sum = sum;
}

static double _bench_run_sum(std::vector<_bench_span_t> *spans, u32 threads) {
    double start = bench_now();
    os_parallel(threads, _bench_sum_proc, spans);
    return bench_now() - start;
}

// --- The rows ----------------------------------------------------------------------------------------------

struct _bench_search_t {
    db_query_t *query;
    std::string names;
    std::vector<_bench_span_t> spans;
    u64 scanned_bytes;
    std::vector<double> sum[THREADS + 1];
};

static void _bench_check_answers(_bench_search_t *search, _bench_term_t *term) {
    u32 count;
    _bench_run_search(search->query, *term, THREADS, &count);
    term->found = count;
    term->found_by_accent = _bench_count_by_accent(search->query, *term);
    _bench_run_rg(search->names, *term, &term->peer_found);
    bool equal = term->found - term->found_by_accent == term->peer_found;
    bench_add_note(
        "`%s`%s: %llu found, %llu of them only without their accents; rg finds %llu: %s", term->text,
        term->match_diacritics ? " with its accent" : "", static_cast<unsigned long long>(term->found),
        static_cast<unsigned long long>(term->found_by_accent),
        static_cast<unsigned long long>(term->peer_found), equal ? "the same names" : "NOT THE SAME");
}

static void _bench_run_turn(_bench_search_t *search, std::vector<_bench_term_t> *terms) {
    for (_bench_term_t &term : *terms) {
        u32 count;
        u64 peer_count;
        term.ours.push_back(_bench_run_search(search->query, term, THREADS, &count));
        term.peer.push_back(_bench_run_rg(search->names, term, &peer_count));
        term.ours_alone.push_back(_bench_run_search(search->query, term, 1, &count));
    }
    // Each sum behind a run of the peer: the caches then hold what they do for a search.
    for (u32 threads : {THREADS, 1u}) {
        u64 peer_count;
        _bench_run_rg(search->names, terms->front(), &peer_count);
        search->sum[threads].push_back(_bench_run_sum(&search->spans, threads));
    }
}

static void _bench_add_search_rows(const _bench_term_t &term) {
    bool equal = term.found - term.found_by_accent == term.peer_found;
    double peer = bench_median(term.peer);
    std::string remark = equal ? "" : "answers differ";
    for (u32 threads : {THREADS, 1u}) {
        double ours = bench_median(threads == 1 ? term.ours_alone : term.ours);
        bench_add_row(
            {bench_format("search `%s`%s, %u thread%s, rg -j1", term.text,
                          term.match_diacritics ? " with its accent" : "", threads, threads == 1 ? "" : "s"),
             bench_seconds(ours), bench_seconds(peer), ours / peer,
             threads == 1 ? BENCH_NO_GOAL : BENCH_AT_MOST, SEARCH_TARGET, remark});
    }
}

static void _bench_add_memory_rows(const _bench_search_t &search, const _bench_term_t &term) {
    for (u32 threads : {THREADS, 1u}) {
        double bytes = static_cast<double>(search.scanned_bytes);
        double ours = bytes / bench_median(threads == 1 ? term.ours_alone : term.ours);
        double peer = bytes / bench_median(search.sum[threads]);
        bench_add_row({bench_format("memory walked by search `%s`, %u thread%s, plain sum of it", term.text,
                                    threads, threads == 1 ? "" : "s"),
                       bench_format("%.1f GB/s", ours / 1e9), bench_format("%.1f GB/s", peer / 1e9),
                       ours / peer, BENCH_NO_GOAL, 0, ""});
    }
}

bool bench_search(const bench_options_t &options) {
    bench_file_t paths = bench_map(options.data + "/paths.txt"),
                 names = bench_map(options.data + "/names.txt");
    if (!paths.bytes || !names.bytes)
        return false;
    max_threads = 0;
    db_t *db = bench_index_paths(paths, ~0ull, nullptr, nullptr);
    u64 items = bench_item_count(db) - 1;
    bench_add_note(
        "%llu items, all names of the contents index; names.txt has %llu lines; %u runs in turns, medians",
        static_cast<unsigned long long>(items), static_cast<unsigned long long>(bench_count_lines(names)),
        options.runs);
    _bench_search_t search = {};
    search.query = db_query_create(db, false, nullptr, nullptr);
    search.names = options.data + "/names.txt";
    search.spans = _bench_scanned_memory(db);
    for (_bench_span_t span : search.spans)
        search.scanned_bytes += span.count * sizeof(u64);
    std::vector<_bench_term_t> terms = {{"qt", "QT", false, false, {}, {}, {}, 0, 0, 0},
                                        {"config", "CONFIG", false, false, {}, {}, {}, 0, 0, 0},
                                        {"zq", "ZQ", false, true, {}, {}, {}, 0, 0, 0},
                                        {"e", "E", false, true, {}, {}, {}, 0, 0, 0},
                                        {"notify", "NOTIFY", false, false, {}, {}, {}, 0, 0, 0},
                                        {"é", "É", true, false, {}, {}, {}, 0, 0, 0}};
    for (_bench_term_t &term : terms)
        _bench_check_answers(&search, &term);
    for (u32 run = 0; run < options.runs; run++)
        _bench_run_turn(&search, &terms);
    for (const _bench_term_t &term : terms)
        _bench_add_search_rows(term);
    for (const _bench_term_t &term : terms) {
        if (term.memory_rows)
            _bench_add_memory_rows(search, term);
    }
    db_destroy_query(search.query);
    db_destroy(db);
    bench_unmap(paths);
    bench_unmap(names);
    return true;
}

} // namespace findwright
