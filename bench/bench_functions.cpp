// Language rows of functions that look at places, children and duplicates: no peer does the same, so each has
// a second, and what it finds is compared with a plain count over the records. The last row is a search below
// one folder, beside a scan of everything.
#include "bench.h"

#include "base/utf8_match.h"
#include "db/db_file.h"
#include "db/db_item.h"
#include "os/os.h"

#include <algorithm>
#include <unordered_map>

namespace findwright {

static constexpr double FUNCTION_TARGET = 1.0; // seconds
static constexpr double BELOW_TARGET = 0.25;   // times the plain scan
static constexpr u32 BELOW_MIN = 5000, BELOW_MAX = 10000;
static constexpr u32 CHILDREN_MANY = 100;
static constexpr u32 THREADS = 2;

// --- Plain counts ------------------------------------------------------------------------------------------

// Folders in the order of their depth, so that a parent stands before its children.
struct _bench_folder_t {
    const db_item_t *item;
    u32 depth;
    u64 children, below;
};

struct _bench_tree_t {
    std::vector<_bench_folder_t> folders;
    std::unordered_map<mem_ref_t, size_t> places;
};

static void _bench_count_children(const db_t *db, _bench_tree_t *tree) {
    bench_for_each(&db->folder_name_array, [&](const db_item_t *folder) {
        u32 depth = 0;
        for (const db_item_t *item = folder; !db_item_is_top(item); item = db_item(item->parent))
            depth++;
        tree->folders.push_back({folder, depth, 0, 0});
    });
    std::sort(tree->folders.begin(), tree->folders.end(),
              [](const _bench_folder_t &a, const _bench_folder_t &b) { return a.depth < b.depth; });
    for (size_t i = 0; i < tree->folders.size(); i++)
        tree->places[mem_ref(tree->folders[i].item)] = i;
    for (const array_t *array : {&db->folder_name_array, &db->file_name_array}) {
        bench_for_each(array, [&](const db_item_t *item) {
            if (!db_item_is_top(item))
                tree->folders[tree->places.at(item->parent)].children++;
        });
    }
    for (size_t i = tree->folders.size(); i-- != 0;) {
        _bench_folder_t &folder = tree->folders[i];
        folder.below += folder.children;
        if (!db_item_is_top(folder.item))
            tree->folders[tree->places.at(folder.item->parent)].below += folder.below;
    }
}

// Items whose key another one has, too.
static u64 _bench_count_repeated(std::vector<u64> keys) {
    std::sort(keys.begin(), keys.end());
    u64 count = 0;
    for (size_t start = 0, end; start < keys.size(); start = end) {
        end = start + 1;
        while (end < keys.size() && keys[end] == keys[start])
            end++;
        count += end - start > 1 ? end - start : 0;
    }
    return count;
}

// Names are equal when they are without case and accents; their hashes stand for them.
static u64 _bench_count_same_names(const array_t *array) {
    std::vector<u64> keys;
    utf8_buf_t folded;
    utf8_buf_init(&folded);
    bench_for_each(array, [&](const db_item_t *item) {
        u32 length;
        const char *name = db_item_get_name(item, &length);
        utf8_fold_pattern(UTF8_MODE_FOLD, &folded, name, length);
        keys.push_back(std::hash<std::string_view>()({folded.data, static_cast<size_t>(folded.length)}));
    });
    utf8_buf_kill(&folded);
    return _bench_count_repeated(std::move(keys));
}

static u64 _bench_count_same_sizes(const db_t *db) {
    std::vector<u64> keys;
    bench_for_each(&db->file_name_array,
                   [&](const db_item_t *file) { keys.push_back(db_file_get_size(db, file)); });
    return _bench_count_repeated(std::move(keys));
}

// --- The searches ------------------------------------------------------------------------------------------

struct _bench_function_t {
    std::string what, search;
    u64 expected;
    u32 found;
    std::vector<double> times;
};

static std::string _bench_get_path(const db_item_t *folder) {
    utf8_buf_t path;
    utf8_buf_init(&path);
    db_item_get_full_path_name(&path, folder);
    std::string text(path.data, static_cast<size_t>(path.length));
    utf8_buf_kill(&path);
    return text;
}

// The one with the most items below it that are not too many.
static const _bench_folder_t *_bench_find_below(const _bench_tree_t &tree) {
    const _bench_folder_t *best = nullptr;
    for (const _bench_folder_t &folder : tree.folders) {
        if (folder.below >= BELOW_MIN && folder.below <= BELOW_MAX && (!best || folder.below > best->below))
            best = &folder;
    }
    return best;
}

// The search below a folder is the last one.
static std::vector<_bench_function_t> _bench_make_functions(const db_t *db) {
    _bench_tree_t tree;
    _bench_count_children(db, &tree);
    auto count = [&](auto holds) {
        return static_cast<u64>(std::count_if(tree.folders.begin(), tree.folders.end(), holds));
    };
    u64 empty = count([](const _bench_folder_t &folder) { return folder.children == 0; });
    u64 many = count([](const _bench_folder_t &folder) { return folder.children > CHILDREN_MANY; });
    const _bench_folder_t &largest = *std::max_element(
        tree.folders.begin(), tree.folders.end(),
        [](const _bench_folder_t &a, const _bench_folder_t &b) { return a.children < b.children; });
    u64 same_names =
        _bench_count_same_names(&db->folder_name_array) + _bench_count_same_names(&db->file_name_array);
    std::vector<_bench_function_t> functions = {
        {"`parent:` of the largest folder",
         "parent:\"" + _bench_get_path(largest.item) + "\"",
         largest.children,
         0,
         {}},
        {"`dupe:`", "dupe:", same_names, 0, {}},
        {"`sizedupe:`", "sizedupe:", _bench_count_same_sizes(db), 0, {}},
        {"`empty:`", "empty:", empty, 0, {}},
        {bench_format("`childcount:>%u`", CHILDREN_MANY),
         bench_format("childcount:>%u", CHILDREN_MANY),
         many,
         0,
         {}}};
    if (const _bench_folder_t *below = _bench_find_below(tree)) {
        functions.push_back(
            {bench_format("all of %llu items below a folder", static_cast<unsigned long long>(below->below)),
             "\"" + _bench_get_path(below->item) + "\\\"",
             below->below,
             0,
             {}});
    }
    return functions;
}

// --- The rows ----------------------------------------------------------------------------------------------

static const char *_bench_remark(const _bench_function_t &function) {
    return function.found == function.expected ? "" : "answers differ";
}

static void _bench_add_rows(const std::vector<_bench_function_t> &functions,
                            const std::vector<double> &plain_scan) {
    for (const _bench_function_t &function : functions) {
        bench_add_note("`%s`: %u found, %llu by a plain count: %s", function.search.c_str(), function.found,
                       static_cast<unsigned long long>(function.expected),
                       function.found == function.expected ? "the same" : "NOT THE SAME");
        double ours = bench_median(function.times), scan = bench_median(plain_scan);
        bool is_below = function.search[0] == '"';
        double peer = is_below ? scan : 1;
        bench_add_row({function.what + (is_below ? ", the plain scan" : ""), bench_seconds(ours),
                       is_below ? bench_seconds(scan) : "1 s", ours / peer, BENCH_AT_MOST,
                       is_below ? BELOW_TARGET : FUNCTION_TARGET, _bench_remark(function)});
    }
}

void bench_functions(const bench_options_t &options, db_t *db) {
    std::vector<_bench_function_t> functions = _bench_make_functions(db);
    std::vector<double> plain_scan;
    db_query_t *query = db_query_create(db, false, nullptr, nullptr);
    for (u32 run = 0; run < options.runs; run++) {
        u32 count;
        plain_scan.push_back(bench_run_search(query, BENCH_PLAIN_SCAN, false, THREADS, &count));
        for (_bench_function_t &function : functions)
            function.times.push_back(
                bench_run_search(query, function.search.c_str(), false, THREADS, &function.found));
    }
    db_destroy_query(query);
    if (functions.back().search[0] != '"')
        bench_add_note("LEFT OUT: a search below a folder, as no folder has %u to %u items below it",
                       BELOW_MIN, BELOW_MAX);
    _bench_add_rows(functions, plain_scan);
}

} // namespace findwright
