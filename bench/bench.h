// What the rows of the benchmark share: the table, real names, peers that run as processes, and an index
// filled from a list of paths.
//
// A row measures this program and its peer in turns, in one run of one process, and prints the medians and
// their ratio. Only ratios count: the machine may be shared. Nothing fails because of a figure. One thread,
// the main one.
#pragma once

#include "db/db.h"
#include "index/db_create.h"
#include "query/db_query.h"

#include <string>
#include <string_view>
#include <vector>

namespace findwright {

struct bench_options_t {
    std::string data = ".";           // folder of paths.txt, names.txt, paths-1m.txt and of what is written
    std::vector<std::string> volumes; // images to be read, each NAME=FILE
    u32 runs = 9;                     // of each measured thing
    u32 peer_runs = 3;                // of a peer that takes minutes
};

// --- The table ---------------------------------------------------------------------------------------------

enum bench_goal_t : u32 { BENCH_AT_MOST, BENCH_AT_LEAST, BENCH_NO_GOAL };

struct bench_row_t {
    std::string what, ours, peer;
    double ratio; // below 0 for none
    bench_goal_t goal;
    double target;
    std::string remark; // in place of the verdict, where the two do not compare
};
void bench_add_row(const bench_row_t &row);
// A line under the table, as soon as it is known also on standard error.
void bench_add_note(const char *format, ...) __attribute__((format(printf, 1, 2)));
void bench_print_table();

// --- Measuring ---------------------------------------------------------------------------------------------

double bench_now(); // seconds
double bench_median(std::vector<double> values);
std::string bench_format(const char *format, ...) __attribute__((format(printf, 1, 2)));
std::string bench_seconds(double seconds);

struct bench_peer_run_t {
    double seconds; // from the start of the process to its end
    bool ok;        // it ran and found something
};
// Runs a program by name. Its standard output goes into `output` or, without one, to the file `output_name`.
bench_peer_run_t bench_run_peer(const std::vector<std::string> &arguments, std::string *output,
                                const char *output_name);

// --- Names and indexes -------------------------------------------------------------------------------------

// A file in memory, read only; empty when it cannot be opened, which is told on standard error.
struct bench_file_t {
    const char *bytes;
    size_t size;
};
bench_file_t bench_map(const std::string &name);
void bench_unmap(bench_file_t file);
u64 bench_count_lines(bench_file_t file);

// Columns and sorted arrays of an index by default.
inline constexpr u32 BENCH_INDEX_FLAGS =
    DB_FLAG_SIZE | DB_FLAG_DATE_MODIFIED | DB_FLAG_FAST_SIZE | DB_FLAG_FAST_DATE_MODIFIED | DB_FLAG_FAST_PATH;

// An index of sorted paths, the first `item_limit` files and folders of them, through the rebuild that fills
// one from a volume. The root folder is one more item. `names` (0 or a file to write) gets the items' names.
// `more` are paths behind them; one that ends with a separator is a folder.
db_t *bench_index_paths(bench_file_t paths, u64 item_limit, db_rebuild_stats_t *stats, const char *names,
                        std::string_view more = {});
// An index of a volume's image. 0 when it cannot be read.
db_t *bench_index_volume(const char *name, db_rebuild_stats_t *stats);
// An index of a folder, its full path as the system has it.
db_t *bench_index_folder(const std::string &folder);
// Calls `visit` for every item of an array.
template<class Visit>
void bench_for_each(const array_t *array, Visit visit) {
    u32 page = 0, value;
    i32 position = -1;
    while (array_next_to(array, &page, &position, &value))
        visit(db_item(value));
}
u64 bench_item_count(const db_t *db);

// --- Searches ----------------------------------------------------------------------------------------------

// A term whose scan reads every record.
inline constexpr const char BENCH_PLAIN_SCAN[] = "7";
// A regular expression without any letter that all of its matches have, and the search for it.
inline constexpr const char BENCH_SLOW_EXPRESSION[] = "^[a-f0-9]{2}[0-9]{2,4}[._-]";
inline constexpr const char BENCH_SLOW_SEARCH[] = "regex:\"^[a-f0-9]{2}[0-9]{2,4}[._-]\"";

// Runs a search on that many threads and waits for its end: the seconds from db_query_search to the count.
double bench_run_search(db_query_t *query, const char *text, bool match_diacritics, u32 threads, u32 *count);

// --- The rows ----------------------------------------------------------------------------------------------

bool bench_search(const bench_options_t &options);
bool bench_language(const bench_options_t &options);
// Those language rows that have no peer: what functions find is counted from the records.
void bench_functions(const bench_options_t &options, db_t *db);
// How long a search keeps its owner waiting: for the first answer, and for the end when it is cancelled.
// False when the file that one search reads cannot be made.
bool bench_waiting(const bench_options_t &options, db_t *db);
bool bench_memory(const bench_options_t &options);
bool bench_index(const bench_options_t &options);
bool bench_read(const bench_options_t &options);
bool bench_list(const bench_options_t &options);
bool bench_load(const bench_options_t &options);
bool bench_folder(const bench_options_t &options);
bool bench_order(const bench_options_t &options);
bool bench_live(const bench_options_t &options);
bool bench_watch(const bench_options_t &options);
bool bench_http(const bench_options_t &options);
// The order rows about the sort itself.
void bench_list_sort(const bench_options_t &options, const db_t *db);
// Builds the index of a file list in this process and prints what it took, for the list row.
int bench_list_child(const char *list);

} // namespace findwright
