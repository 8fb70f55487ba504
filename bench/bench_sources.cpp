// The rows of the program's own sources and of its file. list: a file list of all names to sorted arrays, and
// what it takes in memory. load: the database file of the same index, beside its building. folder: the first
// scan of a real tree, beside find.
#include "bench.h"

#include "db/db_image.h"
#include "index/db_create.h"
#include "os/event.h"
#include "os/os.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sys/resource.h>
#include <unistd.h>

namespace findwright {

static constexpr double LIST_TARGET = 3;   // times the peer's time
static constexpr double PEAK_TARGET = 2.5; // times the finished index
static constexpr double LOAD_TARGET = 8;   // times faster than building
static constexpr double LOAD_RATE = 5e6;   // items a second
static constexpr double SAVE_TARGET = 2;   // times the load
static constexpr double FOLDER_TARGET = 0.8;
static constexpr u32 THREADS = 2;

static db_t *_bench_build(db_wanted_t *wanted, u32 flags, db_t *db, db_rebuild_stats_t *stats) {
    wanted->index_flags = flags;
    db_rebuild_start(db, wanted, stats);
    while (!db_is_ready(db))
        event_wait_and_dispatch(OS_INFINITE);
    event_dispatch();
    return db;
}

static db_t *_bench_build_list(const std::string &list, db_t *db, db_rebuild_stats_t *stats) {
    db_wanted_t wanted;
    db_wanted_init(&wanted);
    utf8_buf_t name;
    utf8_buf_init(&name);
    os_path_from_system(list.data(), static_cast<u32>(list.size()), &name);
    db_wanted_add_file_list(&wanted, name.data, false);
    utf8_buf_kill(&name);
    return _bench_build(&wanted, BENCH_INDEX_FLAGS, db, stats);
}

static double _bench_peak() {
    rusage usage;
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_maxrss) * 1024;
}

// What a process of its own prints: seconds, items, bytes of the finished index, bytes that the process grew
// by at its peak.
int bench_list_child(const char *list) {
    max_threads = THREADS;
    const double before = _bench_peak(), start = bench_now();
    db_rebuild_stats_t stats;
    db_t *db = _bench_build_list(list, db_create(), &stats);
    printf("%.6f %llu %llu %.0f\n", bench_now() - start,
           static_cast<unsigned long long>(bench_item_count(db)),
           static_cast<unsigned long long>(db_memory_size(db)), _bench_peak() - before);
    db_destroy(db);
    return 0;
}

bool bench_list(const bench_options_t &options) {
    const std::string names = options.data + "/names.txt";
    std::vector<double> ours, peer, peaks;
    u64 items = 0, finished = 0;
    for (u32 run = 0; run < options.peer_runs; run++) {
        std::string output;
        double seconds = 0, grown = 0;
        unsigned long long count = 0, bytes = 0;
        if (!bench_run_peer({"/proc/self/exe", "--list-child", options.data + "/names.fwl"}, &output, nullptr)
                 .ok ||
            sscanf(output.c_str(), "%lf %llu %llu %lf", &seconds, &count, &bytes, &grown) != 4)
            return false;
        bench_peer_run_t sort = bench_run_peer({"sort", "-f", "--parallel=2", names}, nullptr, "/dev/null");
        if (!sort.ok)
            return false;
        ours.push_back(seconds);
        peer.push_back(sort.seconds);
        peaks.push_back(grown);
        items = count;
        finished = bytes;
    }
    const double index = static_cast<double>(finished);
    bench_add_note(
        "list: %llu items from a list of their paths with sizes and dates, read included; the peer "
        "sorts their names alone; %u runs",
        static_cast<unsigned long long>(items), options.peer_runs);
    bench_add_row({"file list to all sorted arrays, 2 threads, sort -f --parallel=2",
                   bench_seconds(bench_median(ours)), bench_seconds(bench_median(peer)),
                   bench_median(ours) / bench_median(peer), BENCH_AT_MOST, LIST_TARGET, ""});
    bench_add_row({"peak memory of that, the finished index",
                   bench_format("%.0f MB", bench_median(peaks) / 1e6), bench_format("%.0f MB", index / 1e6),
                   bench_median(peaks) / index, BENCH_AT_MOST, PEAK_TARGET, ""});
    return true;
}

bool bench_load(const bench_options_t &options) {
    max_threads = THREADS;
    utf8_buf_t file;
    utf8_buf_init(&file);
    const std::string path = options.data + "/bench.db";
    os_path_from_system(path.data(), static_cast<u32>(path.size()), &file);
    std::vector<double> builds, loads, saves, reuses;
    double items = 0;
    bool ok = true;
    u32 read_again = 0;
    for (u32 run = 0; run < options.peer_runs && ok; run++) {
        db_rebuild_stats_t stats;
        double start = bench_now();
        db_t *db = _bench_build_list(options.data + "/names.fwl", db_create(), &stats);
        builds.push_back(bench_now() - start);
        items = static_cast<double>(bench_item_count(db));
        start = bench_now();
        _bench_build_list(options.data + "/names.fwl", db, &stats);
        reuses.push_back(bench_now() - start);
        read_again += stats.sources_read;
        start = bench_now();
        ok = db_image_save(db, file.data, false);
        saves.push_back(bench_now() - start);
        db_destroy(db);
        for (u32 i = 0; i < 3 && ok; i++) {
            db = db_create();
            start = bench_now();
            ok = db_image_load(db, file.data, false);
            loads.push_back(bench_now() - start);
            db_destroy(db);
        }
    }
    os_delete_file(file.data);
    utf8_buf_kill(&file);
    if (!ok)
        return false;
    const double load = bench_median(loads), build = bench_median(builds);
    bench_add_note(
        "load: the plain database of the same %.0f items; building is from the file list; %u sources "
        "were read when all were fresh",
        items, read_again);
    bench_add_row({"load the database, times faster than building it", bench_seconds(load),
                   bench_seconds(build), build / load, BENCH_AT_LEAST, LOAD_TARGET, ""});
    bench_add_row({"load, million items a second", bench_format("%.1f", items / load / 1e6), "",
                   items / load / 1e6, BENCH_AT_LEAST, LOAD_RATE / 1e6, ""});
    bench_add_row({"save, flushed to disk, the load", bench_seconds(bench_median(saves)), bench_seconds(load),
                   bench_median(saves) / load, BENCH_AT_MOST, SAVE_TARGET, ""});
    bench_add_row({"rebuild with all sources fresh, building", bench_seconds(bench_median(reuses)),
                   bench_seconds(build), bench_median(reuses) / build, BENCH_NO_GOAL, 0, ""});
    return true;
}

bool bench_folder(const bench_options_t &options) {
    const std::string tree = options.data + "/tree";
    char *real = realpath(tree.c_str(), nullptr);
    if (!real)
        return false;
    utf8_buf_t path;
    utf8_buf_init(&path);
    os_path_from_system(real, static_cast<u32>(std::strlen(real)), &path);
    std::vector<double> peer, ours[THREADS + 1];
    u64 items = 0;
    bool ok = true;
    for (u32 run = 0; run <= options.runs && ok; run++) { // the first one warms up
        for (u32 threads = 1; threads <= THREADS; threads++) {
            max_threads = threads;
            db_wanted_t wanted;
            db_wanted_init(&wanted);
            db_wanted_add_folder(&wanted, path.data);
            const double start = bench_now();
            db_t *db = _bench_build(&wanted, BENCH_INDEX_FLAGS, db_create(), nullptr);
            if (run != 0)
                ours[threads].push_back(bench_now() - start);
            items = bench_item_count(db);
            db_destroy(db);
        }
        bench_peer_run_t find =
            bench_run_peer({"find", real, "-xdev", "-printf", "%s %T@ %p\\n"}, nullptr, "/dev/null");
        ok = find.ok;
        if (run != 0)
            peer.push_back(find.seconds);
    }
    utf8_buf_kill(&path);
    free(real);
    if (!ok)
        return false;
    bench_add_note(
        "folder: a tree of %llu items, warm, to an index by name, path, size and date modified; the "
        "peer is find -xdev -printf; %u runs",
        static_cast<unsigned long long>(items), options.runs);
    for (u32 threads = THREADS; threads != 0; threads--) {
        bench_add_row({bench_format("scan a folder to a finished index, %u thread%s, find", threads,
                                    threads == 1 ? "" : "s"),
                       bench_seconds(bench_median(ours[threads])), bench_seconds(bench_median(peer)),
                       bench_median(ours[threads]) / bench_median(peer),
                       threads == THREADS ? BENCH_AT_MOST : BENCH_NO_GOAL, FOLDER_TARGET, ""});
    }
    return true;
}

} // namespace findwright
