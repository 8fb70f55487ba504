#include "base/mem.h"
#include "os/os_internal.h"

#include <bit>
#include <cstring>
#include <utility>

// The sort: a quicksort over each of up to max_threads slices, then one merge.
//
// The quicksort keeps its own stack of ranges and goes on with the smaller part, so the stack never holds
// more than log2(count) of them. A range that has been split 2 * log2(count) times without getting small is
// finished by heapsort, so no input is quadratic. No loop trusts the comparison for its bounds: keys may
// change under a sort (a date that arrives meanwhile), and then the result is in some order, but complete.

namespace findwright {

static constexpr u32 SORT_VALUES_PER_THREAD = 65536;
static constexpr u32 SORT_SMALL = 12; // ranges up to here are sorted by insertion
static constexpr u32 SORT_LONG = 128; // ranges above take nine values for their pivot
static constexpr u32 SORT_STACK = 32;

struct _sort_plain_t {
    os_compare_t *compare;
    int operator()(u32 a, u32 b) const { return compare(a, b); }
};

struct _sort_param_t {
    os_compare_param_t *compare;
    void *param;
    int operator()(u32 a, u32 b) const { return compare(a, b, param); }
};

struct _sort_range_t {
    u32 *first;
    u32 *end;
    u32 budget; // splits left before heapsort
};

template<class Compare>
static void _os_sort_insertion(u32 *first, u32 *end, Compare compare) {
    for (u32 *next = first + 1; next < end; next++) {
        u32 value = *next;
        u32 *at = next;
        for (; at > first && compare(value, at[-1]) < 0; at--)
            *at = at[-1];
        *at = value;
    }
}

template<class Compare>
static void _os_sort_sift(u32 *values, u32 count, u32 at, Compare compare) {
    u32 value = values[at];
    for (u32 child = 2 * at + 1; child < count; child = 2 * at + 1) {
        if (child + 1 < count && compare(values[child], values[child + 1]) < 0)
            child++;
        if (compare(value, values[child]) >= 0)
            break;
        values[at] = values[child];
        at = child;
    }
    values[at] = value;
}

template<class Compare>
static void _os_sort_heap(u32 *values, u32 count, Compare compare) {
    for (u32 i = count / 2; i-- > 0;)
        _os_sort_sift(values, count, i, compare);
    for (u32 rest = count; rest-- > 1;) {
        std::swap(values[0], values[rest]);
        _os_sort_sift(values, rest, 0, compare);
    }
}

template<class Compare>
static void _os_sort_three(u32 *a, u32 *b, u32 *c, Compare compare) {
    if (compare(*b, *a) < 0)
        std::swap(*b, *a);
    if (compare(*c, *b) >= 0)
        return;
    std::swap(*c, *b);
    if (compare(*b, *a) < 0)
        std::swap(*b, *a);
}

// Orders the first, middle and last value, splits by the middle one, and returns where that stands then. In a
// long range each of the three is the median of three itself, which keeps ascents and descents that meet from
// splitting badly again and again. Values equal to the pivot stop both scans, so that many equal values split
// evenly.
template<class Compare>
static u32 *_os_sort_split(u32 *first, u32 *end, Compare compare) {
    u32 *middle = first + (end - first) / 2;
    u32 *last = end - 1;
    if (end - first > SORT_LONG) {
        auto step = (end - first) / 8;
        _os_sort_three(first + step, first, first + 2 * step, compare);
        _os_sort_three(middle - step, middle, middle + step, compare);
        _os_sort_three(last - 2 * step, last, last - step, compare);
    }
    _os_sort_three(first, middle, last, compare);
    u32 pivot = *middle;
    u32 *up = first;
    u32 *down = last - 1;
    std::swap(*middle, *down); // out of the way of the scans
    u32 *home = down;
    for (;;) {
        while (++up < home && compare(*up, pivot) < 0)
            ;
        while (--down > first && compare(pivot, *down) < 0)
            ;
        if (up >= down)
            break;
        std::swap(*up, *down);
    }
    std::swap(*up, *home);
    return up;
}

template<class Compare>
static void _os_sort_quick(u32 *values, u32 count, Compare compare) {
    _sort_range_t stack[SORT_STACK];
    u32 depth = 0;
    _sort_range_t range = {values, values + count, 2 * static_cast<u32>(std::bit_width(count))};
    for (;;) {
        auto length = static_cast<u32>(range.end - range.first);
        if (length > SORT_SMALL && range.budget) {
            u32 *pivot = _os_sort_split(range.first, range.end, compare);
            _sort_range_t left = {range.first, pivot, range.budget - 1};
            _sort_range_t right = {pivot + 1, range.end, range.budget - 1};
            bool left_is_smaller = left.end - left.first < right.end - right.first;
            range = left_is_smaller ? left : right;
            stack[depth++] = left_is_smaller ? right : left;
            continue;
        }
        if (length > SORT_SMALL)
            _os_sort_heap(range.first, length, compare);
        else
            _os_sort_insertion(range.first, range.end, compare);
        if (!depth)
            return;
        range = stack[--depth];
    }
}

template<class Compare>
struct _sort_slice_t {
    const u32 *source;
    u32 *cursor; // in the second table: the slice's next value in the merge
    u32 *end;
    const Compare *compare;
    os_thread_t *thread;
};

template<class Compare>
static void _os_sort_slice_proc(void *param) {
    auto *slice = static_cast<_sort_slice_t<Compare> *>(param);
    auto count = static_cast<u32>(slice->end - slice->cursor);
    std::memcpy(slice->cursor, slice->source, count * sizeof(u32));
    _os_sort_quick(slice->cursor, count, *slice->compare);
}

// Puts the slice that stands at order[at] where its next value belongs among those behind it, which are in
// order. Equal values stay in front of it.
template<class Compare>
static void _os_sort_place(_sort_slice_t<Compare> **order, u32 at, u32 count, Compare compare) {
    _sort_slice_t<Compare> *slice = order[at];
    u32 value = *slice->cursor;
    u32 low = at + 1;
    u32 high = count;
    while (low < high) {
        u32 middle = (low + high) / 2;
        if (compare(value, *order[middle]->cursor) < 0)
            high = middle;
        else
            low = middle + 1;
    }
    for (u32 i = at + 1; i < low; i++)
        order[i - 1] = order[i];
    order[low - 1] = slice;
}

template<class Compare>
static void _os_sort_merge(u32 *out, _sort_slice_t<Compare> *slices, u32 slice_count, Compare compare) {
    auto **order = static_cast<_sort_slice_t<Compare> **>(mem_alloc(slice_count * sizeof(*slices)));
    for (u32 i = slice_count; i-- > 0;) {
        order[i] = &slices[i];
        _os_sort_place(order, i, slice_count, compare);
    }
    u32 at = 0; // slices in front of it have ended
    while (at + 1 < slice_count) {
        _sort_slice_t<Compare> *slice = order[at];
        *out++ = *slice->cursor++;
        if (slice->cursor == slice->end)
            at++;
        else
            _os_sort_place(order, at, slice_count, compare);
    }
    std::memcpy(out, order[at]->cursor,
                static_cast<size_t>(order[at]->end - order[at]->cursor) * sizeof(u32));
    mem_free(order);
}

template<class Compare>
static void _os_sort_threaded(u32 *values, u32 count, u32 threads, Compare compare) {
    using slice_t = _sort_slice_t<Compare>;
    auto *slices = static_cast<slice_t *>(mem_alloc(threads * sizeof(slice_t)));
    auto *table = static_cast<u32 *>(mem_alloc(count * sizeof(u32)));
    for (u32 i = 0; i < threads; i++) {
        auto start = static_cast<u32>(static_cast<u64>(count) * i / threads);
        auto end = static_cast<u32>(static_cast<u64>(count) * (i + 1) / threads);
        slices[i] = {values + start, table + start, table + end, &compare, nullptr};
        slices[i].thread = os_thread_create(_os_sort_slice_proc<Compare>, &slices[i]);
    }
    for (u32 i = 0; i < threads; i++)
        os_thread_release(slices[i].thread, OS_INFINITE);
    _os_sort_merge(values, slices, threads, compare);
    mem_free(table);
    mem_free(slices);
}

template<class Compare>
static void _os_sort(u32 *values, u32 count, Compare compare) {
    if (count < 2)
        return;
    u32 ideal = (count - 1) / SORT_VALUES_PER_THREAD + 1;
    u32 threads = ideal;
    if (max_threads && threads > max_threads)
        threads = max_threads;
    if (threads > os_get_processor_count())
        threads = os_get_processor_count();
    if (threads < 2) {
        _os_sort_quick(values, count, compare);
        return;
    }
    debug_printf("multithreaded sort: items %d, ideal threads %d, actual threads %d\n", count, ideal,
                 threads);
    _os_sort_threaded(values, count, threads, compare);
}

void os_qsort(u32 *values, u32 count, os_compare_t *compare) {
    _os_sort(values, count, _sort_plain_t{compare});
}

void os_qsort_with_param(u32 *values, u32 count, os_compare_param_t *compare, void *param) {
    _os_sort(values, count, _sort_param_t{compare, param});
}

} // namespace findwright
