// Order rows: how long the list of results takes to come to another order, to give its rows, and to be
// selected; an order by a column that the index does not hold, beside `fd -l`; and the sort itself.
#include "bench.h"

#include "db/db_file.h"
#include "db/db_folder.h"
#include "os/event.h"
#include "os/os.h"
#include "query/db_selection.h"

#include <algorithm>
#include <cstdlib>
#include <random>

namespace findwright {

static constexpr double ORDER_TARGET = 0.06; // seconds
static constexpr double REVERSAL_TARGET = 0.02;
static constexpr double ROWS_TARGET = 0.0001;
static constexpr double SELECTION_TARGET = 0.1;
static constexpr double GATHER_TARGET = 1; // times the peer's time
static constexpr u32 THREADS = 2;
static constexpr u32 PAGE_ROWS = 100; // that are read at once
static constexpr u32 PAGES = 200;
static constexpr i32 KEPT = 1000000; // selected rows

static constexpr struct {
    u32 sort;
    const char *name;
} orders[] = {{DB_SORT_NAME_ASCENDING, "name"},
              {DB_SORT_PATH_ASCENDING, "path"},
              {DB_SORT_SIZE_ASCENDING, "size"},
              {DB_SORT_DATE_MODIFIED_ASCENDING, "date modified"}};
static constexpr u32 ORDERS = sizeof orders / sizeof orders[0];

static double _bench_wait_for(const db_query_t *query, double start) {
    db_wait(query->db, "bench");
    double seconds = bench_now() - start;
    event_dispatch();
    return seconds;
}

static double _bench_time_search(db_query_t *query, const char *text) {
    db_query_params_t params = {};
    params.search = text;
    params.filter_search = "";
    params.calculate_total_size = true;
    double start = bench_now();
    db_query_search(query, &params);
    return _bench_wait_for(query, start);
}

static double _bench_time_sort(db_query_t *query, u32 sort) {
    double start = bench_now();
    db_sort(query, sort);
    return _bench_wait_for(query, start);
}

static void _bench_add_time_row(const std::string &what, double seconds, double target) {
    bench_add_row({what, bench_format("%.2f ms", seconds * 1e3), bench_format("%g ms", target * 1e3),
                   seconds / target, BENCH_AT_MOST, 1, ""});
}

// --- Orders ------------------------------------------------------------------------------------------------

// The worst of several things, by its median.
struct _bench_worst_t {
    double seconds = -1;
    std::string what;
    void add(const std::vector<double> &times, const std::string &name) {
        double median = bench_median(times);
        if (median > seconds) {
            seconds = median;
            what = name;
        }
    }
};

// Each order from each other one; the reversal of none of them is another one here.
static void _bench_orders(const bench_options_t &options, db_query_t *query, const char *search) {
    _bench_time_search(query, search);
    const std::string count = bench_format("%u rows", db_get_result_count(query));
    _bench_worst_t order, reversal;
    for (const auto &to : orders) {
        std::vector<double> reversals;
        for (const auto &from : orders) {
            std::vector<double> times;
            for (u32 run = 0; run < options.runs && from.sort != to.sort; run++) {
                _bench_time_sort(query, from.sort);
                times.push_back(_bench_time_sort(query, to.sort));
                reversals.push_back(_bench_time_sort(query, to.sort | DB_SORT_DESCENDING));
                reversals.push_back(_bench_time_sort(query, to.sort));
            }
            if (!times.empty())
                order.add(times, std::string(to.name) + " from " + from.name);
        }
        reversal.add(reversals, to.name);
    }
    _bench_add_time_row(
        bench_format("order of %s, %u threads; worst: %s", count.c_str(), THREADS, order.what.c_str()),
        order.seconds, ORDER_TARGET);
    _bench_add_time_row(bench_format("reversal of %s; worst: %s", count.c_str(), reversal.what.c_str()),
                        reversal.seconds, REVERSAL_TARGET);
}

// --- Rows --------------------------------------------------------------------------------------------------

static u64 _bench_read_row(db_query_t *query, i32 index, utf8_buf_t *path) {
    db_result_t result;
    if (!db_get_result(query, index, &result))
        return 0;
    db_get_result_full_path_name(query, index, path);
    u64 size = result.is_folder ? db_folder_get_size(query->db, result.item)
                                : db_file_get_size(query->db, result.item);
    return size + static_cast<u64>(path->length);
}

// In an order that has nothing to do with where the records lie.
static void _bench_rows_anywhere(db_query_t *query) {
    _bench_time_search(query, "");
    _bench_time_sort(query, DB_SORT_DATE_MODIFIED_ASCENDING);
    std::mt19937 random(1);
    std::vector<double> times;
    u64 sum = 0;
    u32 count = db_get_result_count(query);
    utf8_buf_t path;
    utf8_buf_init(&path);
    for (u32 page = 0; page < PAGES; page++) {
        i32 first = static_cast<i32>(random() % (count - PAGE_ROWS));
        query->result_cursor = {};
        double start = bench_now();
        for (u32 row = 0; row < PAGE_ROWS; row++)
            sum += _bench_read_row(query, first + static_cast<i32>(row), &path);
        times.push_back(bench_now() - start);
    }
    utf8_buf_kill(&path);
    double median = bench_median(times), worst = *std::max_element(times.begin(), times.end());
    bench_add_note("%u rows anywhere, by date modified: the median of %u is %.3f ms, the worst %.3f ms%s",
                   PAGE_ROWS, PAGES, median * 1e3, worst * 1e3, sum == 0 ? "; NOTHING WAS READ" : "");
    _bench_add_time_row(bench_format("%u rows anywhere, full path and size, the cursor cold", PAGE_ROWS),
                        median, ROWS_TARGET);
}

// --- Selecting ---------------------------------------------------------------------------------------------

template<class Operation>
static double _bench_time(Operation operation) {
    double start = bench_now();
    operation();
    return bench_now() - start;
}

static void _bench_select(const bench_options_t &options, db_query_t *query) {
    _bench_time_search(query, "");
    i32 count = static_cast<i32>(db_get_result_count(query));
    std::vector<double> all, inverted;
    bool ok = true;
    for (u32 run = 0; run < options.runs; run++) {
        db_deselect_all(query);
        all.push_back(_bench_time([query] { db_select_all(query); }));
        ok = ok && db_get_selection_count(query) == static_cast<u32>(count);
        db_deselect_all(query);
        db_select_result_range(query, 0, count / 3);
        inverted.push_back(_bench_time([query] { db_invert_all_selection(query); }));
        ok = ok && db_get_selection_count(query) == static_cast<u32>(count - count / 3);
    }
    db_deselect_all(query);
    bench_add_note("selecting: %d rows, with their sizes added up; %s", count,
                   ok ? "the numbers of selected rows are right" : "THE NUMBERS OF SELECTED ROWS ARE WRONG");
    _bench_add_time_row("select all", bench_median(all), SELECTION_TARGET);
    _bench_add_time_row("invert the selection, a third of all", bench_median(inverted), SELECTION_TARGET);
}

// What it takes a search to find the selected rows again: the same search with and without them, in turns.
static void _bench_keep_selection(const bench_options_t &options, db_query_t *query, const char *search,
                                  const char *what) {
    std::vector<double> with, without;
    u32 selected = 0, kept = 0;
    _bench_time_search(query, search);
    for (u32 run = 0; run < options.runs; run++) {
        db_deselect_all(query);
        without.push_back(_bench_time_search(query, search));
        db_select_result_range(query, 0, KEPT);
        selected = db_get_selection_count(query);
        with.push_back(_bench_time_search(query, search));
        kept = db_get_selection_count(query);
    }
    db_deselect_all(query);
    bench_add_note(
        "keeping the selection, `%s`: %u of %u selected rows kept; the search takes %s without any", search,
        kept, selected, bench_seconds(bench_median(without)).c_str());
    _bench_add_time_row(bench_format("a search keeps %u selected rows of %s, less the search", kept, what),
                        std::max(bench_median(with) - bench_median(without), 0.0), SELECTION_TARGET);
}

// --- Gathering ---------------------------------------------------------------------------------------------

static u64 _bench_get_date_accessed(db_query_t *query, i32 index) {
    db_result_t result;
    db_file_info_t info = {};
    if (!db_get_result(query, index, &result))
        return VALUE_UNKNOWN;
    if (result.is_folder)
        db_get_folder_fileinfo(query->extended_info, result.item, &info);
    else
        db_get_file_fileinfo(query->extended_info, result.item, &info);
    return info.date_accessed;
}

// How many dates are known; 0 when they are not in order: folders, then files, each from what is not known to
// the newest.
static u32 _bench_count_dates_in_order(db_query_t *query) {
    u64 before = 0;
    u32 known = 0;
    for (u32 i = 0, count = db_get_result_count(query); i < count; i++) {
        u64 date = _bench_get_date_accessed(query, static_cast<i32>(i)) + 1;
        if (date < before && i != db_get_folder_result_count(query))
            return 0;
        before = date;
        known += date != 0;
    }
    return known;
}

static double _bench_gather_once(db_t *db, u32 *known) {
    db_query_t *query = db_query_create(db, false, nullptr, nullptr);
    _bench_time_search(query, "");
    double seconds = _bench_time_sort(query, DB_SORT_DATE_ACCESSED_ASCENDING);
    *known = _bench_count_dates_in_order(query);
    db_destroy_query(query);
    return seconds;
}

static bool _bench_gather(const bench_options_t &options) {
    char *real = realpath((options.data + "/tree").c_str(), nullptr);
    if (!real)
        return false;
    db_t *db = bench_index_folder(real);
    std::vector<double> ours, peer;
    bool ok = true;
    u32 known = 1;
    max_threads = 0;
    for (u32 run = 0; run <= options.runs && ok && known != 0; run++) { // the first one warms up
        double seconds = _bench_gather_once(db, &known);
        bench_peer_run_t fd =
            bench_run_peer({"fdfind", "-u", "-l", "--color", "never", ".", real}, nullptr, "/dev/null");
        ok = fd.ok;
        if (run != 0) {
            ours.push_back(seconds);
            peer.push_back(fd.seconds);
        }
    }
    free(real);
    if (ok && known != 0) {
        bench_add_note("date accessed of a tree of %llu items, warm, read for a fresh query; %u dates known; "
                       "the peer is fd -u -l",
                       static_cast<unsigned long long>(bench_item_count(db)), known);
        bench_add_row({"order by a column that is not in the index, fd -u -l",
                       bench_seconds(bench_median(ours)), bench_seconds(bench_median(peer)),
                       bench_median(ours) / bench_median(peer), BENCH_AT_MOST, GATHER_TARGET, ""});
    } else {
        bench_add_note("date accessed: %s", ok ? "THE RESULTS ARE NOT IN ORDER" : "fd could not be run");
    }
    db_destroy(db);
    return ok && known != 0;
}

// --- All of them -------------------------------------------------------------------------------------------

bool bench_order(const bench_options_t &options) {
    bench_file_t paths = bench_map(options.data + "/paths.txt");
    if (!paths.bytes)
        return false;
    max_threads = THREADS;
    db_t *db = bench_index_paths(paths, ~0ull, nullptr, nullptr);
    bench_unmap(paths);
    bench_add_note("order: %llu items by name, path, size and date modified; %u threads, %u runs, medians",
                   static_cast<unsigned long long>(bench_item_count(db)), THREADS, options.runs);
    db_query_t *query = db_query_create(db, false, nullptr, nullptr);
    for (const char *search : {"", "qzx", "configuration", "png"})
        _bench_orders(options, query, search);
    _bench_rows_anywhere(query);
    _bench_select(options, query);
    _bench_keep_selection(options, query, "", "all");
    _bench_keep_selection(options, query, "png", "as many");
    db_destroy_query(query);
    bench_list_sort(options, db);
    db_destroy(db);
    return _bench_gather(options);
}

} // namespace findwright
