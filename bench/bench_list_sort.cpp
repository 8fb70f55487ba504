// The sort of items by their comparison, beside those of the standard library: on one thread, and on several.
// This file alone is compiled for the library's parallel mode.
#include "bench.h"

#include "os/os.h"

#include <algorithm>
#include <omp.h>
#include <parallel/algorithm>
#include <random>

namespace findwright {

static constexpr u32 THREADS = 2;
static constexpr u32 KEYS = 1000000;

static int _bench_compare(u32 a, u32 b) {
    return db_item_compare_name(db_item(a), db_item(b));
}

static bool _bench_is_before(u32 a, u32 b) {
    return _bench_compare(a, b) < 0;
}

// Evenly spread items out of all, in no order.
static std::vector<u32> _bench_make_keys(const db_t *db) {
    std::vector<u32> keys;
    u32 step = db->file_name_array.count / KEYS + 1, n = 0;
    bench_for_each(&db->file_name_array, [&](const db_item_t *item) {
        if (n++ % step == 0)
            keys.push_back(mem_ref(item));
    });
    std::shuffle(keys.begin(), keys.end(), std::mt19937(1));
    return keys;
}

template<class Sort>
static double _bench_time_sort(const std::vector<u32> &keys, std::vector<u32> *sorted, Sort sort) {
    *sorted = keys;
    double start = bench_now();
    sort(sorted);
    return bench_now() - start;
}

static void _bench_add_sort_row(const char *what, const std::vector<double> &ours,
                                const std::vector<double> &peer, bool is_equal) {
    double a = bench_median(ours), b = bench_median(peer);
    bench_add_row(
        {what, bench_seconds(a), bench_seconds(b), a / b, BENCH_NO_GOAL, 0, is_equal ? "" : "orders differ"});
}

void bench_list_sort(const bench_options_t &options, const db_t *db) {
    const std::vector<u32> keys = _bench_make_keys(db);
    std::vector<double> ours[THREADS + 1], std_sort, parallel_sort;
    bool is_equal = true;
    omp_set_num_threads(static_cast<int>(THREADS));
    auto sort = [](std::vector<u32> *sorted) {
        os_qsort(sorted->data(), static_cast<u32>(sorted->size()), _bench_compare);
    };
    for (u32 run = 0; run < options.runs; run++) {
        std::vector<u32> expected, sorted;
        std_sort.push_back(_bench_time_sort(keys, &expected, [](std::vector<u32> *values) {
            std::sort(values->begin(), values->end(), _bench_is_before);
        }));
        for (u32 threads = 1; threads <= THREADS; threads++) {
            max_threads = threads;
            ours[threads].push_back(_bench_time_sort(keys, &sorted, sort));
            is_equal = is_equal && sorted == expected;
        }
        parallel_sort.push_back(_bench_time_sort(keys, &sorted, [](std::vector<u32> *values) {
            __gnu_parallel::sort(values->begin(), values->end(), _bench_is_before);
        }));
        is_equal = is_equal && sorted == expected;
    }
    bench_add_note("sorting: %zu of the files in no order, by the comparison of names", keys.size());
    _bench_add_sort_row("sort of items by name, 1 thread, std::sort", ours[1], std_sort, is_equal);
    _bench_add_sort_row("sort of items by name, 2 threads, __gnu_parallel::sort", ours[THREADS],
                        parallel_sort, is_equal);
}

} // namespace findwright
