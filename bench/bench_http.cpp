// HTTP rows: what a request takes beyond its search, how many a second are answered from the search that is
// held, and downloads beside nginx. The server runs on the main thread, in its main loop; who asks is a
// thread or a process of its own.
#include "bench.h"

#include "os/event.h"
#include "os/os.h"
#include "query/db_find.h"
#include "remote/http_server.h"

#include <algorithm>
#include <arpa/inet.h>
#include <atomic>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace findwright {

static constexpr const char *TERMS[] = {"config",  "readme",  "qt",   "notify", "main.c", "png",  "invoice",
                                        "license", "test",    "zq",   "lib",    "python", "icon", "font",
                                        "kernel",  "example", "data", "util",   "html",   "e"};
static constexpr double NEW_SEARCH_TARGET = 0.010;  // seconds beyond the search
static constexpr double SAME_SEARCH_TARGET = 0.001; // seconds
static constexpr double REQUESTS_TARGET = 3000;     // a second
static constexpr double DOWNLOAD_TARGET = 0.5;      // times the peer's speed
static constexpr u32 SAME_REQUESTS = 500;
static constexpr u32 REQUESTS = 10000;
static constexpr u32 THREADS = 2;
static constexpr u32 LOOP_WAIT = 50; // milliseconds

// --- Who asks ----------------------------------------------------------------------------------------------

// Runs a procedure on a thread while the main loop goes on.
static void _bench_beside_loop(const std::function<void()> &ask) {
    std::atomic<bool> is_done = false;
    std::thread thread([&] {
        ask();
        is_done = true;
        event_post([](void *) {}, nullptr); // wakes the loop
    });
    while (!is_done)
        event_wait_and_dispatch(LOOP_WAIT);
    thread.join();
}

// A whole answer, with its head; empty for none. `seconds` from the connection to the last byte.
static std::string _bench_get(u32 port, const std::string &target, double *seconds) {
    const double start = bench_now();
    std::string answer;
    const int connection = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<u16>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const std::string request = "GET " + target + " HTTP/1.0\r\n\r\n";
    if (connect(connection, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0 &&
        write(connection, request.data(), request.size()) == static_cast<ssize_t>(request.size())) {
        char bytes[65536];
        for (ssize_t got; (got = read(connection, bytes, sizeof bytes)) > 0;)
            answer.append(bytes, static_cast<size_t>(got));
    }
    close(connection);
    *seconds = bench_now() - start;
    return answer;
}

static std::string _bench_target(const char *term) {
    return std::string("/?search=") + term +
           "&json=1&count=100&path_column=1&size_column=1&date_modified_column=1";
}

static u32 _bench_count_rows(const std::string &answer) {
    u32 rows = 0;
    for (size_t at = 0; (at = answer.find("\"type\":", at)) != std::string::npos; at++)
        rows++;
    return rows;
}

// --- Searches ----------------------------------------------------------------------------------------------

static void _bench_note_results_proc(void *user_data, u32 code) {
    *static_cast<bool *>(user_data) |= code == DB_QUERY_RESULTS_CHANGED;
}

// From the search to its notification, as the server does it.
static double _bench_search_alone(db_query_t *query, const char *term, bool *is_done) {
    db_query_params_t params = {};
    params.search = term;
    params.filter_search = "";
    params.clear_selection = true;
    *is_done = false;
    const double start = bench_now();
    db_query_search(query, &params);
    while (!*is_done)
        event_wait_and_dispatch(LOOP_WAIT);
    const double seconds = bench_now() - start;
    event_dispatch();
    return seconds;
}

static bool _bench_new_searches(const bench_options_t &options, db_t *db, u32 port) {
    bool is_done = false, ok = true;
    db_query_t *query = db_query_create(db, false, _bench_note_results_proc, &is_done);
    std::vector<double> searches, requests, differences;
    for (const char *term : TERMS) {
        std::vector<double> alone, asked;
        for (u32 run = 0; run < options.runs; run++) {
            alone.push_back(_bench_search_alone(query, term, &is_done));
            std::string answer;
            double seconds = 0;
            _bench_beside_loop([&] {
                _bench_get(port, _bench_target("notthesame"), &seconds); // so that it is a new search
                answer = _bench_get(port, _bench_target(term), &seconds);
            });
            asked.push_back(seconds);
            ok = ok && _bench_count_rows(answer) == std::min(db_get_result_count(query), 100u);
        }
        searches.push_back(bench_median(alone));
        requests.push_back(bench_median(asked));
        std::vector<double> more;
        for (u32 run = 0; run < options.runs; run++)
            more.push_back(asked[run] - alone[run]);
        differences.push_back(bench_median(more));
    }
    db_destroy_query(query);
    const auto most = std::max_element(differences.begin(), differences.end());
    const double worst = *most;
    bench_add_note(
        "HTTP, new searches: beyond the search %.2f ms at the median of %zu texts; most for `%s`, %.2f ms",
        bench_median(differences) * 1e3, differences.size(), TERMS[most - differences.begin()], worst * 1e3);
    bench_add_row({"HTTP: JSON of 100 rows of a new search, beyond the search itself, worst of 20 texts",
                   bench_seconds(bench_median(requests)), bench_seconds(bench_median(searches)),
                   worst / NEW_SEARCH_TARGET, BENCH_AT_MOST, 1, ok ? "" : "wrong answer"});
    return ok;
}

static void _bench_same_search(u32 port) {
    std::vector<double> times;
    _bench_beside_loop([&] {
        double seconds;
        _bench_get(port, _bench_target("config"), &seconds);
        for (u32 i = 0; i < SAME_REQUESTS; i++) {
            _bench_get(port, _bench_target("config"), &seconds);
            times.push_back(seconds);
        }
    });
    bench_add_row({"HTTP: the same search again, from the connection to the last byte",
                   bench_format("%.2f ms", bench_median(times) * 1e3),
                   bench_format("%.0f ms", SAME_SEARCH_TARGET * 1e3),
                   bench_median(times) / SAME_SEARCH_TARGET, BENCH_AT_MOST, 1, ""});
}

// The processor time of this thread, which runs the server.
static double _bench_thread_time() {
    timespec time;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

// With ab and not with wrk, which takes the end of an answer without a length for an error.
static void _bench_requests(u32 port) {
    std::string output;
    bool ok = false;
    const double before = _bench_thread_time();
    _bench_beside_loop([&] {
        const std::string url = bench_format("http://127.0.0.1:%u", port) + _bench_target("config");
        ok = bench_run_peer({"ab", "-q", "-c", "16", "-n", std::to_string(REQUESTS), url}, &output, nullptr)
                 .ok;
    });
    const double spent = _bench_thread_time() - before;
    const size_t at = output.find("Requests per second:"), failed = output.find("Failed requests:");
    const double requests = ok && at != std::string::npos ? atof(output.c_str() + at + 20) : 0;
    const bool is_whole = failed != std::string::npos && atoi(output.c_str() + failed + 16) == 0;
    bench_add_note("HTTP, requests a second: the server's thread took %.0f microseconds for each",
                   spent / REQUESTS * 1e6);
    bench_add_row({"HTTP: answers of 100 rows a second, 16 at a time", bench_format("%.0f", requests),
                   bench_format("%.0f", REQUESTS_TARGET), requests / REQUESTS_TARGET, BENCH_AT_LEAST, 1,
                   is_whole ? "" : "some failed"});
}

// --- Downloads ---------------------------------------------------------------------------------------------

static constexpr u64 DOWNLOAD_SIZE = 2ull << 30;

static u64 _bench_memory() {
    FILE *file = fopen("/proc/self/statm", "r");
    unsigned long long all = 0, resident = 0;
    if (file && fscanf(file, "%llu %llu", &all, &resident) != 2)
        resident = 0;
    if (file)
        fclose(file);
    return resident * static_cast<u64>(sysconf(_SC_PAGESIZE));
}

// nginx over a folder, with what Debian has it do; 0 when it does not run.
static pid_t _bench_start_nginx(const std::string &folder, u32 port) {
    const std::string conf = folder + "/nginx.conf";
    FILE *file = fopen(conf.c_str(), "w");
    if (!file)
        return 0;
    fprintf(file,
            "daemon off;\nworker_processes 1;\npid %s/nginx.pid;\nerror_log %s/nginx.log;\nevents {}\n"
            "http {\n sendfile on;\n tcp_nopush on;\n access_log off;\n server {\n  listen 127.0.0.1:%u;\n"
            "  root %s;\n }\n}\n",
            folder.c_str(), folder.c_str(), port, folder.c_str());
    fclose(file);
    std::string error_log = folder + "/nginx.log";
    const char *const arguments[] = {"nginx", "-e", error_log.c_str(), "-c", conf.c_str(), nullptr};
    pid_t process = 0;
    if (posix_spawnp(&process, arguments[0], nullptr, nullptr, const_cast<char *const *>(arguments),
                     environ) != 0)
        return 0;
    double seconds;
    for (u32 i = 0; i < 100; i++) {
        if (!_bench_get(port, "/none", &seconds).empty())
            return process;
        usleep(50000);
    }
    return 0;
}

static u32 _bench_free_port() {
    const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    bind(listener, reinterpret_cast<sockaddr *>(&address), size);
    getsockname(listener, reinterpret_cast<sockaddr *>(&address), &size);
    close(listener);
    return ntohs(address.sin_port);
}

// Bytes a second; 0 when not all came.
static double _bench_download(u32 port) {
    std::string output;
    const std::string url = bench_format("http://127.0.0.1:%u/large.bin", port);
    const double start = bench_now();
    const bool ok =
        bench_run_peer({"curl", "-sS", "-o", "/dev/null", "-w", "%{size_download}", url}, &output, nullptr)
            .ok;
    const double seconds = bench_now() - start;
    return ok && strtoull(output.c_str(), nullptr, 10) == DOWNLOAD_SIZE ? DOWNLOAD_SIZE / seconds : 0;
}

struct _bench_downloads_t {
    std::vector<double> ours, peer, searches;
    u64 memory_before, memory_most;
};

// In turns, while another client searches all the time.
static void _bench_run_downloads(const bench_options_t &options, u32 port, u32 peer_port,
                                 _bench_downloads_t *out) {
    std::atomic<bool> is_over = false;
    std::thread searcher([&] {
        for (u32 i = 0; !is_over; i++) {
            double seconds;
            _bench_get(port, _bench_target(TERMS[i % std::size(TERMS)]), &seconds);
            out->searches.push_back(seconds);
            out->memory_most = std::max(out->memory_most, _bench_memory());
            usleep(100000);
        }
    });
    for (u32 run = 0; run < options.peer_runs; run++) {
        out->peer.push_back(_bench_download(peer_port));
        out->ours.push_back(_bench_download(port));
    }
    is_over = true;
    searcher.join();
}

static bool _bench_downloads(const bench_options_t &options, const std::string &folder, u32 port) {
    const u32 peer_port = _bench_free_port();
    const pid_t nginx = _bench_start_nginx(folder, peer_port);
    if (nginx == 0)
        return false;
    _bench_downloads_t result = {};
    _bench_beside_loop([&] {
        _bench_download(port); // the file is in memory then
        result.memory_before = _bench_memory();
        _bench_run_downloads(options, port, peer_port, &result);
    });
    kill(nginx, SIGTERM);
    waitpid(nginx, nullptr, 0);
    const double ours = bench_median(result.ours), peer = bench_median(result.peer);
    bench_add_note(
        "HTTP, downloads: memory of the process %.1f MB before, %.1f MB at most; the searches meanwhile "
        "took %.1f ms at the median, %.1f ms at most",
        static_cast<double>(result.memory_before) / 1e6, static_cast<double>(result.memory_most) / 1e6,
        bench_median(result.searches) * 1e3,
        *std::max_element(result.searches.begin(), result.searches.end()) * 1e3);
    bench_add_row({"HTTP: a download of 2 GiB while searches go on, beside nginx (speed)",
                   bench_format("%.0f MB/s", ours / 1e6), bench_format("%.0f MB/s", peer / 1e6),
                   peer > 0 ? ours / peer : -1, BENCH_AT_LEAST, DOWNLOAD_TARGET, ""});
    return ours > 0 && peer > 0;
}

// --- Folders -----------------------------------------------------------------------------------------------

// What a folder page waits for: its entries.
static void _bench_folders(const bench_options_t &options, db_t *db) {
    static constexpr const char *FOLDERS[] = {"", "V:", "V:\\usr\\share", "V:\\usr\\share\\doc",
                                              "V:\\usr\\share\\man\\man3"};
    for (const char *folder : FOLDERS) {
        std::vector<double> times;
        u32 count = 0;
        for (u32 run = 0; run < options.runs; run++) {
            const double start = bench_now();
            db_find_t *find = db_find_first_file(db, folder, static_cast<u32>(std::strlen(folder)), 0);
            times.push_back(bench_now() - start);
            count = find ? db_find_get_count(find) : 0;
            if (find)
                db_find_close(find);
        }
        bench_add_note("HTTP, folders: %u entries of `%s` in %.2f ms", count, folder,
                       bench_median(times) * 1e3);
    }
}

// --- The row -----------------------------------------------------------------------------------------------

static bool _bench_start_server(db_t *db, const std::string &home) {
    http_server_params_t params = {};
    params.bindings = "127.0.0.1";
    params.home = home.c_str();
    params.allow_file_download = true;
    params.items_per_page = 32;
    params.title_format = "$s";
    params.username = params.password = params.default_page = params.host_names = params.log_filename = "";
    params.title_variables = {"", "", "", ""};
    params.texts = {"Findwright", "Findwright", "",     "1",        "%s",   "%s-%s/%s", "Name",
                    "Path",       "Size",       "Date", "Previous", "Next", "%s",       "Up"};
    params.listener_texts = {"%s: %s", "%s: %s", "%s: %s", "%s: %s"};
    utf8_buf_t error;
    utf8_buf_init(&error);
    const bool is_running = http_server_start(db, &params, &error);
    if (!is_running)
        fprintf(stderr, "%s\n", error.data);
    utf8_buf_kill(&error);
    return is_running;
}

bool bench_http(const bench_options_t &options) {
    char *data = realpath(options.data.c_str(), nullptr);
    const std::string folder = std::string(data ? data : "") + "/download";
    free(data);
    bench_file_t paths = bench_map(options.data + "/paths.txt");
    struct stat info;
    if (paths.size == 0 || stat((folder + "/large.bin").c_str(), &info) != 0)
        return false;
    db_rebuild_stats_t stats;
    db_t *db = bench_index_paths(paths, ~0ull, &stats, nullptr);
    bench_unmap(paths);
    std::string home = folder;
    std::replace(home.begin(), home.end(), '/', '\\');
    max_threads = THREADS;
    bool ok = _bench_start_server(db, home);
    if (ok) {
        const u32 port = http_server_get_port();
        bench_add_note("HTTP: an index of %llu items", static_cast<unsigned long long>(bench_item_count(db)));
        _bench_folders(options, db);
        ok = _bench_new_searches(options, db, port);
        _bench_same_search(port);
        _bench_requests(port);
        ok = _bench_downloads(options, folder, port) && ok;
        http_server_stop();
    }
    db_destroy(db);
    return ok;
}

} // namespace findwright
