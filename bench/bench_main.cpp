// fw_bench [--data FOLDER] [--runs N] [--peer-runs N] [--volume NAME=FILE]... [--note TEXT]... ROW...
//
// Measures the rows and prints one table; a note stands below it.
// bench/run.sh prepares what they need.
#include "bench.h"

#include "os/os.h"

#include <cstdio>
#include <cstdlib>

using namespace findwright;

struct row_t {
    const char *name;
    bool (*run)(const bench_options_t &options);
};

static constexpr row_t rows[] = {
    {"search", bench_search}, {"language", bench_language}, {"index", bench_index}, {"memory", bench_memory},
    {"read", bench_read},     {"list", bench_list},         {"load", bench_load},   {"folder", bench_folder},
    {"order", bench_order},   {"live", bench_live},         {"watch", bench_watch}, {"http", bench_http}};

static const row_t *find_row(std::string_view name) {
    for (const row_t &row : rows) {
        if (name == row.name)
            return &row;
    }
    return nullptr;
}

static bool parse(int count, char **arguments, bench_options_t *options, std::vector<const row_t *> *wanted) {
    for (int i = 1; i < count; i++) {
        std::string_view name = arguments[i];
        if (const row_t *row = find_row(name)) {
            wanted->push_back(row);
            continue;
        }
        if (i + 1 == count)
            return false;
        std::string value = arguments[++i];
        if (name == "--data")
            options->data = value;
        else if (name == "--runs")
            options->runs = static_cast<u32>(atoi(value.c_str()));
        else if (name == "--peer-runs")
            options->peer_runs = static_cast<u32>(atoi(value.c_str()));
        else if (name == "--volume" && value.find('=') != value.npos)
            options->volumes.push_back(value);
        else if (name == "--note")
            bench_add_note("%s", value.c_str());
        else
            return false;
    }
    return options->runs != 0 && options->peer_runs != 0 && !wanted->empty();
}

int main(int argc, char **argv) {
    if (argc == 3 && std::string_view(argv[1]) == "--list-child") {
        os_init();
        int status = bench_list_child(argv[2]);
        os_kill();
        return status;
    }
    bench_options_t options;
    std::vector<const row_t *> wanted;
    if (!parse(argc, argv, &options, &wanted)) {
        fprintf(stderr, "usage: fw_bench [--data FOLDER] [--runs N] [--peer-runs N] [--volume NAME=FILE]... "
                        "[--note TEXT]... ROW...\n"
                        "rows: search language index memory read list load folder order live watch http\n");
        return 2;
    }
    os_init();
    setenv("LC_ALL", "C", 1); // of the peers
    double load = 0;
    getloadavg(&load, 1);
    bench_add_note("%u processors; a load of %.1f by others as it began", os_get_processor_count(), load);
    bool ok = true;
    for (const row_t *row : wanted) {
        if (!row->run(options)) {
            fprintf(stderr, "fw_bench: the row %s could not be measured\n", row->name);
            ok = false;
        }
    }
    bench_print_table();
    os_kill();
    return ok ? 0 : 1;
}
