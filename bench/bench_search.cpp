// Search rows: counting the matches of a term over all real names, beside `rg -j1 -i -c -F` over the same
// names; and the plain scan, a search that reads every record, beside a sum of the same memory.
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
    bool alone; // on one thread, too
};

// The last one is no letter: the words beside the names tell nothing of it, and its scan reads every record.
static constexpr _bench_term_t terms[] = {
    {"qt", "QT", false, true},
    {"config", "CONFIG", false, false},
    {"zq", "ZQ", false, false},
    {"e", "E", false, true},
    {"notify", "NOTIFY", false, false},
    {"configuration", "CONFIGURATION", false, false},
    {"readme", "README", false, false},
    {"main.c", "MAIN.C", false, false},
    {"png", "PNG", false, false},
    {"é", "É", true, true},
    {BENCH_PLAIN_SCAN, BENCH_PLAIN_SCAN, false, false},
};
static constexpr u32 TERMS = sizeof terms / sizeof terms[0];
static constexpr u32 PLAIN_SCAN = TERMS - 1;

static constexpr double SEARCH_TARGET = 0.9; // times the peer's time
static constexpr double MEDIAN_TARGET = 0.25;
static constexpr u32 THREADS = 2;

double bench_run_search(db_query_t *query, const char *text, bool match_diacritics, u32 threads, u32 *count) {
    max_threads = threads;
    db_query_params_t params = {};
    params.match_diacritics = match_diacritics;
    params.search = text;
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

// What was found for a term, and the times of each turn.
struct _bench_measured_t {
    u64 found, found_by_accent, peer_found;
    std::vector<double> ours, ours_alone, peer;
};

static bool _bench_is_equal(const _bench_measured_t &measured) {
    return measured.found - measured.found_by_accent == measured.peer_found;
}

struct _bench_search_t {
    db_query_t *query;
    std::string names;
    std::vector<_bench_span_t> spans;
    u64 scanned_bytes;
    _bench_measured_t measured[TERMS];
    std::vector<double> sum[THREADS + 1];
};

static void _bench_check_answers(_bench_search_t *search, u32 number) {
    const _bench_term_t &term = terms[number];
    _bench_measured_t *measured = &search->measured[number];
    u32 count;
    bench_run_search(search->query, term.text, term.match_diacritics, THREADS, &count);
    measured->found = count;
    measured->found_by_accent = _bench_count_by_accent(search->query, term);
    _bench_run_rg(search->names, term, &measured->peer_found);
    bench_add_note("`%s`%s: %llu found, %llu of them only without their accents; rg finds %llu: %s",
                   term.text, term.match_diacritics ? " with its accent" : "",
                   static_cast<unsigned long long>(measured->found),
                   static_cast<unsigned long long>(measured->found_by_accent),
                   static_cast<unsigned long long>(measured->peer_found),
                   _bench_is_equal(*measured) ? "the same names" : "NOT THE SAME");
}

static void _bench_run_turn(_bench_search_t *search) {
    u32 count;
    u64 peer_count;
    for (u32 i = 0; i < TERMS; i++) {
        const _bench_term_t &term = terms[i];
        _bench_measured_t *measured = &search->measured[i];
        measured->ours.push_back(
            bench_run_search(search->query, term.text, term.match_diacritics, THREADS, &count));
        measured->peer.push_back(_bench_run_rg(search->names, term, &peer_count));
        if (term.alone || i == PLAIN_SCAN)
            measured->ours_alone.push_back(
                bench_run_search(search->query, term.text, term.match_diacritics, 1, &count));
    }
    // Each sum behind a run of the peer: the caches then hold what they do for a search.
    for (u32 threads : {THREADS, 1u}) {
        _bench_run_rg(search->names, terms[0], &peer_count);
        search->sum[threads].push_back(_bench_run_sum(&search->spans, threads));
    }
}

// Returns the ratio on all threads.
static double _bench_add_search_rows(const _bench_search_t &search, u32 number) {
    const _bench_term_t &term = terms[number];
    const _bench_measured_t &measured = search.measured[number];
    double peer = bench_median(measured.peer);
    std::string remark = _bench_is_equal(measured) ? "" : "answers differ";
    std::string name = bench_format("%ssearch `%s`%s", number == PLAIN_SCAN ? "plain scan: " : "", term.text,
                                    term.match_diacritics ? " with its accent" : "");
    double ours = bench_median(measured.ours);
    bench_add_row({bench_format("%s, %u threads, rg -j1", name.c_str(), THREADS), bench_seconds(ours),
                   bench_seconds(peer), ours / peer, number == PLAIN_SCAN ? BENCH_NO_GOAL : BENCH_AT_MOST,
                   SEARCH_TARGET, remark});
    if (term.alone) {
        double alone = bench_median(measured.ours_alone);
        bench_add_row({bench_format("%s, 1 thread, rg -j1", name.c_str()), bench_seconds(alone),
                       bench_seconds(peer), alone / peer, BENCH_NO_GOAL, 0, remark});
    }
    return ours / peer;
}

static void _bench_add_memory_rows(const _bench_search_t &search) {
    const _bench_measured_t &measured = search.measured[PLAIN_SCAN];
    for (u32 threads : {THREADS, 1u}) {
        double bytes = static_cast<double>(search.scanned_bytes);
        double ours = bytes / bench_median(threads == 1 ? measured.ours_alone : measured.ours);
        double peer = bytes / bench_median(search.sum[threads]);
        bench_add_row({bench_format("memory walked by the plain scan, %u thread%s, plain sum of it", threads,
                                    threads == 1 ? "" : "s"),
                       bench_format("%.1f GB/s", ours / 1e9), bench_format("%.1f GB/s", peer / 1e9),
                       ours / peer, BENCH_NO_GOAL, 0, ""});
    }
}

static void _bench_add_rows(const _bench_search_t &search) {
    std::vector<double> ratios;
    bool equal = true;
    for (u32 i = 0; i < PLAIN_SCAN; i++) {
        ratios.push_back(_bench_add_search_rows(search, i));
        equal = equal && _bench_is_equal(search.measured[i]);
    }
    bench_add_row(
        {bench_format("median of the ratios of these %zu terms, %u threads", ratios.size(), THREADS), "", "",
         bench_median(ratios), BENCH_AT_MOST, MEDIAN_TARGET, equal ? "" : "answers differ"});
    _bench_add_search_rows(search, PLAIN_SCAN);
    _bench_add_memory_rows(search);
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
    for (u32 i = 0; i < TERMS; i++)
        _bench_check_answers(&search, i);
    for (u32 run = 0; run < options.runs; run++)
        _bench_run_turn(&search);
    _bench_add_rows(search);
    db_destroy_query(search.query);
    db_destroy(db);
    bench_unmap(paths);
    bench_unmap(names);
    return true;
}

} // namespace findwright
