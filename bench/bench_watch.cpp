// Watch rows: a watched tree under a burst of changes, from its end until the index is what a fresh scan
// finds; and what following ten folders costs while nothing happens.
#include "bench.h"

#include "index/db_lifecycle.h"
#include "os/event.h"
#include "os/os.h"

#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace findwright {

static constexpr double SETTLE_TARGET = 3; // seconds behind the last change
static constexpr double SETTLE_LIMIT = 120;
static constexpr double IDLE_TARGET = 0.005; // seconds of processor time
static constexpr u32 IDLE_SECONDS = 60;
static constexpr u32 IDLE_FOLDERS = 10;
static constexpr u32 BURST_FOLDERS = 250, BURST_FILES = 200; // in each
static constexpr u32 BURST_CHANGES = 100000;

// --- A database that follows folders -----------------------------------------------------------------------

static std::vector<std::string> _bench_watch_folders;

static void _bench_watch_get_wanted(db_wanted_t *out, bool) {
    out->index_flags = BENCH_INDEX_FLAGS;
    utf8_buf_t path;
    utf8_buf_init(&path);
    for (const std::string &folder : _bench_watch_folders) {
        os_path_from_system(folder.data(), static_cast<u32>(folder.size()), &path);
        static_cast<db_index_folder_t *>(db_wanted_add_folder(out, path.data)->index)->monitor = 1;
    }
    utf8_buf_kill(&path);
}

static const db_lifecycle_t *_bench_watch_lifecycle() {
    static db_lifecycle_t lifecycle = {};
    lifecycle.get_wanted = _bench_watch_get_wanted;
    lifecycle.get_filename = [](utf8_buf_t *) { return false; };
    lifecycle.is_compressed = [] { return false; };
    lifecycle.get_corrupt_filename = [](utf8_buf_t *) { return false; };
    lifecycle.report_error = [](const char *text) { fprintf(stderr, "%s\n", text); };
    lifecycle.text_saving = lifecycle.text_loading = lifecycle.text_starting = "";
    return &lifecycle;
}

static void _bench_run_loop(double seconds) {
    for (double end = bench_now() + seconds, now; (now = bench_now()) < end;)
        event_wait_and_dispatch(static_cast<u32>((end - now) * 1000) + 1);
}

static db_t *_bench_follow(const std::vector<std::string> &folders) {
    _bench_watch_folders = folders;
    db_lifecycle_set(_bench_watch_lifecycle());
    db_t *db = db_lifecycle_create(nullptr);
    db_rebuild(db, true);
    while (!db_is_ready(db))
        event_wait_and_dispatch(OS_INFINITE);
    _bench_run_loop(3); // what begins with the content has come to rest
    return db;
}

// --- The burst ---------------------------------------------------------------------------------------------

static std::string _bench_burst_file(const std::string &root, u32 folder, u32 file, const char *kind) {
    return bench_format("%s/folder %u/%s%u.txt", root.c_str(), folder, kind, file);
}

static void _bench_write(const std::string &name, const char *text) {
    int file = open(name.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    if (file != -1) {
        if (write(file, text, std::strlen(text)) == -1)
            perror("write");
        close(file);
    }
}

// Half of the changes make files, the others write to some, rename some and delete some of them.
static void _bench_burst(const std::string &root) {
    u32 changes = 0;
    for (u32 folder = 0; folder < BURST_FOLDERS; folder++) {
        std::filesystem::create_directory(bench_format("%s/folder %u", root.c_str(), folder));
        for (u32 file = 0; file < BURST_FILES; file++, changes++)
            _bench_write(_bench_burst_file(root, folder, file, "new"), "1");
    }
    for (u32 i = 0; changes < BURST_CHANGES; i++, changes++) {
        u32 folder = i % BURST_FOLDERS, file = i / BURST_FOLDERS;
        std::string name = _bench_burst_file(root, folder, file, "new");
        if (i % 5 == 0)
            unlink(name.c_str());
        else if (i % 5 < 3)
            rename(name.c_str(), _bench_burst_file(root, folder, file, "other").c_str());
        else
            _bench_write(name, "22");
    }
}

// Paths, sizes and dates of all items, in the order of the names.
static u64 _bench_get_content(db_t *db) {
    u64 sum = 14695981039346656037ull;
    utf8_buf_t path;
    utf8_buf_init(&path);
    for (const array_t *array : {&db->folder_name_array, &db->file_name_array}) {
        bool is_file = array == &db->file_name_array;
        bench_for_each(array, [&](const db_item_t *item) {
            db_item_get_full_path_name(&path, item);
            auto add = [&sum](const char *bytes, size_t size) {
                for (size_t i = 0; i < size; i++)
                    sum = (sum ^ static_cast<u8>(bytes[i])) * 1099511628211ull;
            };
            add(path.data, static_cast<size_t>(path.length));
            add(db_item_columns(item), is_file ? db->layout.file_data_size : db->layout.folder_data_size);
        });
    }
    utf8_buf_kill(&path);
    return sum;
}

static double _bench_settle_burst(db_t *db, const std::string &root, const db_t *fresh, u64 wanted) {
    double start = bench_now();
    while (bench_now() - start < SETTLE_LIMIT) {
        if (db_is_ready(db) && db->file_name_array.count == fresh->file_name_array.count &&
            db->folder_name_array.count == fresh->folder_name_array.count && _bench_get_content(db) == wanted)
            return bench_now() - start;
        event_wait_and_dispatch(10);
    }
    bench_add_note("watch: THE INDEX OF %s IS NOT WHAT A FRESH SCAN FINDS", root.c_str());
    return SETTLE_LIMIT;
}

// The main loop runs on while a process of its own makes the changes.
static void _bench_run_burst(const std::string &root) {
    pid_t child = fork();
    if (child == 0) {
        _bench_burst(root);
        _exit(0);
    }
    for (int status; waitpid(child, &status, WNOHANG) == 0;)
        event_wait_and_dispatch(10);
}

static bool _bench_bursts(const bench_options_t &options) {
    const std::string folder = options.data + "/watched";
    std::vector<double> settles, bursts;
    u64 first_memory = 0, last_memory = 0;
    for (u32 run = 0; run < options.peer_runs; run++) {
        std::filesystem::remove_all(folder);
        std::filesystem::create_directories(folder);
        char *real = realpath(folder.c_str(), nullptr);
        const std::string root = real;
        free(real);
        db_t *db = _bench_follow({root});
        for (u32 burst = 0; burst < 2; burst++) { // the second is to take no more memory than the first
            double start = bench_now();
            _bench_run_burst(root);
            double end = bench_now();
            bursts.push_back(end - start);
            db_t *fresh = bench_index_folder(root);
            u64 wanted = _bench_get_content(fresh);
            double build = bench_now() - end;
            double settle = _bench_settle_burst(db, root, fresh, wanted);
            db_destroy(fresh);
            if (burst == 0)
                settles.push_back(settle + build);
            (burst == 0 ? first_memory : last_memory) = db_memory_size(db);
            if (settle >= SETTLE_LIMIT)
                return false;
            std::filesystem::remove_all(root + "/folder 0");
            for (const auto &entry : std::filesystem::directory_iterator(root))
                std::filesystem::remove_all(entry.path());
            for (double limit = bench_now() + 60; db->file_name_array.count != 0 && bench_now() < limit;)
                event_wait_and_dispatch(10);
            if (db->file_name_array.count != 0 || db->folder_name_array.count != 1)
                bench_add_note("watch: %u FILES ARE LEFT IN THE INDEX", db->file_name_array.count);
        }
        db_destroy(db);
    }
    bench_add_note(
        "watch: %u changes in %u new folders, made by another process in %s; the index of the full tree "
        "takes %.1f MB after the first burst, %.1f after the second",
        BURST_CHANGES, BURST_FOLDERS, bench_seconds(bench_median(bursts)).c_str(),
        static_cast<double>(first_memory) / 1e6, static_cast<double>(last_memory) / 1e6);
    bench_add_row({"from the end of a burst of 100,000 changes until the index is what a fresh scan finds",
                   bench_seconds(bench_median(settles)), bench_seconds(SETTLE_TARGET),
                   bench_median(settles) / SETTLE_TARGET, BENCH_AT_MOST, 1, ""});
    std::filesystem::remove_all(folder);
    return true;
}

// --- Idle --------------------------------------------------------------------------------------------------

static double _bench_processor_time() {
    rusage usage;
    getrusage(RUSAGE_SELF, &usage);
    auto seconds = [](const timeval &time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
    };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

static void _bench_idle(const bench_options_t &options) {
    const std::string folder = options.data + "/idle";
    std::vector<std::string> folders;
    for (u32 i = 0; i < IDLE_FOLDERS; i++) {
        std::string name = bench_format("%s/%u/below", folder.c_str(), i);
        std::filesystem::create_directories(name);
        char *real = realpath((folder + "/" + std::to_string(i)).c_str(), nullptr);
        folders.push_back(real);
        free(real);
    }
    db_t *db = _bench_follow(folders);
    double before = _bench_processor_time();
    _bench_run_loop(IDLE_SECONDS);
    double used = _bench_processor_time() - before;
    db_destroy(db);
    std::filesystem::remove_all(folder);
    bench_add_row({bench_format("processor time of %u seconds with %u folders followed, nothing happening",
                                IDLE_SECONDS, IDLE_FOLDERS),
                   bench_format("%.2f ms", used * 1e3), bench_format("%g ms", IDLE_TARGET * 1e3),
                   used / IDLE_TARGET, BENCH_AT_MOST, 1, ""});
}

// --- All of them -------------------------------------------------------------------------------------------

bool bench_watch(const bench_options_t &options) {
    max_threads = 2;
    bool ok = _bench_bursts(options);
    _bench_idle(options);
    return ok;
}

} // namespace findwright
