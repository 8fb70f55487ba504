// The index row: sorting a million items by every default order, beside sort -f over their names. The memory
// row: what an item takes beyond its name.
#include "bench.h"

#include "os/os.h"

namespace findwright {

static constexpr u64 INDEX_ITEMS = 1000000;
static constexpr double INDEX_TARGET = 3;   // times the peer's time
static constexpr double MEMORY_TARGET = 48; // bytes
static constexpr u32 THREADS = 2;

bool bench_index(const bench_options_t &options) {
    bench_file_t paths = bench_map(options.data + "/paths-1m.txt");
    if (!paths.bytes)
        return false;
    std::string names = options.data + "/names-1m.txt";
    max_threads = THREADS;
    std::vector<double> ours, peer;
    u64 items = 0;
    for (u32 run = 0; run <= options.runs; run++) { // the first one warms up and writes the names
        db_rebuild_stats_t stats;
        db_t *db = bench_index_paths(paths, INDEX_ITEMS, &stats, run == 0 ? names.c_str() : nullptr);
        items = bench_item_count(db) - 1;
        db_destroy(db);
        bench_peer_run_t sort = bench_run_peer({"sort", "-f", "--parallel=2", names}, nullptr, "/dev/null");
        if (!sort.ok) {
            bench_unmap(paths);
            return false;
        }
        if (run == 0)
            continue;
        ours.push_back(stats.sort_time / 1e6);
        peer.push_back(sort.seconds);
    }
    bench_add_note(
        "index: %llu items by name, path, size and date modified; the peer sorts their names alone; %u runs",
        static_cast<unsigned long long>(items), options.runs);
    bench_add_row({"linked records to all sorted arrays, 2 threads, sort -f --parallel=2",
                   bench_seconds(bench_median(ours)), bench_seconds(bench_median(peer)),
                   bench_median(ours) / bench_median(peer), BENCH_AT_MOST, INDEX_TARGET, ""});
    bench_unmap(paths);
    return true;
}

static u64 _bench_name_bytes(const array_t *array) {
    u64 bytes = 0;
    bench_for_each(array, [&](const db_item_t *item) { bytes += db_item_get_name_length(item); });
    return bytes;
}

bool bench_memory(const bench_options_t &options) {
    bench_file_t paths = bench_map(options.data + "/paths.txt");
    if (!paths.bytes)
        return false;
    max_threads = 0;
    db_t *db = bench_index_paths(paths, ~0ull, nullptr, nullptr);
    double items = static_cast<double>(bench_item_count(db));
    double names = static_cast<double>(_bench_name_bytes(&db->folder_name_array) +
                                       _bench_name_bytes(&db->file_name_array));
    bench_add_note("memory: %.0f items with size and date modified, sorted by name, path, size and date "
                   "modified; a name "
                   "has %.1f bytes",
                   items, names / items);
    double committed = static_cast<double>(mem_arena_committed()),
           used = static_cast<double>(mem_arena_used());
    bench_add_note("memory: the arena has %.0f MB in use and %.0f MB committed", used / 1e6, committed / 1e6);
    double bytes = (static_cast<double>(db_memory_size(db)) - names) / items;
    bench_add_row({"bytes an item beyond its name", bench_format("%.1f", bytes), "", bytes, BENCH_AT_MOST,
                   MEMORY_TARGET, ""});
    bytes = (committed - names) / items;
    bench_add_row({"the same, of all committed arena memory", bench_format("%.1f", bytes), "", bytes,
                   BENCH_NO_GOAL, 0, ""});
    db_destroy(db);
    bench_unmap(paths);
    return true;
}

} // namespace findwright
