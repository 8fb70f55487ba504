// Language rows about who waits: the time until a search's owner hears of its results, and the time that a
// cancel takes, of a search through names and of one that reads a large file.
#include "bench.h"

#include "os/event.h"
#include "os/os.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace findwright {

static constexpr double CANCEL_TARGET = 0.01; // seconds
static constexpr u32 CANCELS = 20;
static constexpr u32 CANCEL_AFTER = 20000; // microseconds
static constexpr u32 LATE = 50;            // milliseconds in which a second notification would have come
static constexpr u32 THREADS = 2;
static constexpr i64 LARGE_FILE = 1ll << 32; // bytes

// --- The first answer --------------------------------------------------------------------------------------

static void _bench_count_notification_proc(void *user_data, u32 code) {
    *static_cast<u32 *>(user_data) += code == DB_QUERY_RESULTS_CHANGED;
}

static void _bench_latency(const bench_options_t &options, db_t *db) {
    static constexpr const char *TERM = "config";
    u32 notifications = 0, results = 0, once = 0;
    db_query_t *query = db_query_create(db, false, _bench_count_notification_proc, &notifications);
    std::vector<double> times;
    max_threads = THREADS;
    for (u32 run = 0; run < options.runs; run++) {
        event_dispatch();
        notifications = 0;
        db_query_params_t params = {};
        params.search = TERM;
        params.filter_search = "";
        const double start = bench_now();
        db_query_search(query, &params);
        while (notifications == 0)
            event_wait_and_dispatch(OS_INFINITE);
        times.push_back(bench_now() - start);
        results = db_get_result_count(query);
        while (event_wait_and_dispatch(LATE)) {
        }
        once += notifications == 1;
    }
    db_destroy_query(query);
    bench_add_note("latency of `%s`: %u found; one notification in %u of %u runs", TERM, results, once,
                   options.runs);
    bench_add_row(
        {bench_format("`%s` from the search to the notification of its results, %u threads", TERM, THREADS),
         bench_seconds(bench_median(times)), "", -1, BENCH_NO_GOAL, 0,
         once == options.runs ? "" : "not once"});
}

// --- Cancel ------------------------------------------------------------------------------------------------

// Starts the search again and again, and stops it while it runs.
static void _bench_cancel(db_t *db, const char *what, const char *search) {
    db_query_t *query = db_query_create(db, false, nullptr, nullptr);
    std::vector<double> times;
    u32 stopped = 0;
    max_threads = 1;
    for (u32 i = 0; i < CANCELS; i++) {
        db_query_params_t params = {};
        params.search = search;
        params.filter_search = "";
        db_query_search(query, &params);
        usleep(CANCEL_AFTER);
        const double start = bench_now();
        stopped += db_cancel_query(query);
        times.push_back(bench_now() - start);
        event_dispatch();
    }
    const double worst = *std::max_element(times.begin(), times.end());
    db_destroy_query(query);
    bench_add_note("cancel of %s: %u of %u searches ran when they were cancelled; the median is %.2f ms",
                   what, stopped, CANCELS, bench_median(times) * 1e3);
    bench_add_row({bench_format("cancel of %s, worst of %u", what, CANCELS),
                   bench_format("%.2f ms", worst * 1e3), bench_format("%.0f ms", CANCEL_TARGET * 1e3),
                   worst / CANCEL_TARGET, BENCH_AT_MOST, 1, stopped == CANCELS ? "" : "was over before"});
}

// A folder with one large file that takes no room on the disk. Its path, or an empty text.
static std::string _bench_make_large_file(const std::string &data) {
    const std::string folder = data + "/large", name = folder + "/zeros.bin";
    if (mkdir(folder.c_str(), 0755) != 0 && errno != EEXIST)
        return "";
    int file = open(name.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
    bool ok = file >= 0 && ftruncate(file, LARGE_FILE) == 0;
    if (file >= 0)
        close(file);
    char *real = ok ? realpath(folder.c_str(), nullptr) : nullptr;
    std::string path = real ? real : "";
    free(real);
    return path;
}

bool bench_waiting(const bench_options_t &options, db_t *db) {
    _bench_latency(options, db);
    _bench_cancel(db, "a regular expression without a literal, 1 thread", BENCH_SLOW_SEARCH);
    const std::string folder = _bench_make_large_file(options.data);
    if (folder.empty())
        return false;
    db_t *large = bench_index_folder(folder);
    _bench_cancel(large, "`content:` in a file of 4 GB, 1 thread", "content:findwright");
    db_destroy(large);
    return true;
}

} // namespace findwright
