// Read rows: from the first read of a volume's file table to linked records without orphans, beside `fls -r
// -p` that lists the same image. Both answers are compared path by path.
#include "bench.h"

#include "base/utf8_buf.h"
#include "index/ntfs.h"
#include "os/os.h"

#include <algorithm>
#include <cstdio>
#include <iterator>

namespace findwright {

static constexpr double READ_TARGET = 20; // times faster than the peer
static constexpr double TABLE_TARGET = 1; // GB of file table a second on one thread

struct _bench_volume_t {
    std::string name, file;
    std::vector<double> ours, ours_alone, table, peer;
    u64 table_bytes;
};

// --- Answers -----------------------------------------------------------------------------------------------

// A `\` of a name is this inside.
static constexpr std::string_view BACKSLASH_INSIDE = "\uF05C";

// The items' paths as the peer writes them: from the root on, `/` between components.
static std::vector<std::string> _bench_our_paths(const db_t *db) {
    std::vector<std::string> paths;
    utf8_buf_t path;
    utf8_buf_init(&path);
    for (const array_t *array : {&db->folder_name_array, &db->file_name_array}) {
        u32 page = 0, value;
        i32 position = -1;
        while (array_next_to(array, &page, &position, &value)) {
            if (db_is_root(db_item(value)))
                continue;
            db_item_get_full_path_name(&path, db_item(value));
            std::string text(path.data + 3, static_cast<size_t>(path.length) - 3); // behind `V:\`
            std::replace(text.begin(), text.end(), '\\', '/');
            for (size_t at; (at = text.find(BACKSLASH_INSIDE)) != text.npos;)
                text.replace(at, BACKSLASH_INSIDE.size(), "\\");
            paths.push_back(text);
        }
    }
    utf8_buf_kill(&path);
    std::sort(paths.begin(), paths.end());
    return paths;
}

struct _bench_listing_t {
    std::vector<std::string> paths;
    u64 lines, deleted, orphans;
};

// Lines are TYPE ADDRESS:<tab>PATH, with ` * ` in front of the address for a deleted entry.
static _bench_listing_t _bench_read_listing(bench_file_t file) {
    static constexpr std::string_view ORPHANS = "$OrphanFiles";
    _bench_listing_t listing = {};
    std::string_view rest(file.bytes, file.size);
    while (!rest.empty()) {
        std::string_view line = rest.substr(0, rest.find('\n'));
        rest.remove_prefix(std::min(line.size() + 1, rest.size()));
        listing.lines++;
        std::string_view head = line.substr(0, line.find('\t'));
        std::string_view path = line.substr(std::min(head.size() + 1, line.size()));
        if (path.substr(0, ORPHANS.size()) == ORPHANS)
            listing.orphans++;
        else if (head.find(" * ") != head.npos)
            listing.deleted++;
        else
            listing.paths.emplace_back(path);
    }
    std::sort(listing.paths.begin(), listing.paths.end());
    return listing;
}

static std::vector<std::string> _bench_missing(const std::vector<std::string> &all,
                                               const std::vector<std::string> &from) {
    std::vector<std::string> missing;
    std::set_difference(all.begin(), all.end(), from.begin(), from.end(), std::back_inserter(missing));
    return missing;
}

// A path of the peer that is none of ours, but a stream of one that is.
static bool _bench_is_stream(const std::vector<std::string> &ours, const std::string &path) {
    size_t colon = path.rfind(':');
    return colon != path.npos && std::binary_search(ours.begin(), ours.end(), path.substr(0, colon));
}

static void _bench_compare(const _bench_volume_t &volume, const db_t *db, bench_file_t file) {
    std::vector<std::string> ours = _bench_our_paths(db);
    _bench_listing_t listing = _bench_read_listing(file);
    std::vector<std::string> only_peer = _bench_missing(listing.paths, ours);
    std::vector<std::string> only_ours = _bench_missing(ours, listing.paths);
    u64 streams = 0, metadata = 0, others = 0;
    for (const std::string &path : only_peer) {
        bool stream = _bench_is_stream(ours, path);
        streams += stream;
        metadata += !stream && path[0] == '$';
        others += !stream && path[0] != '$';
    }
    bench_add_note(
        "%s: %zu items, fls has %llu lines: %zu paths in both; only fls: %llu alternate streams, %llu of the "
        "file system's own files, %llu deleted, %llu in its folder of orphans, %llu others; only ours: "
        "%zu%s%s",
        volume.name.c_str(), ours.size(), static_cast<unsigned long long>(listing.lines),
        ours.size() - only_ours.size(), static_cast<unsigned long long>(streams),
        static_cast<unsigned long long>(metadata), static_cast<unsigned long long>(listing.deleted),
        static_cast<unsigned long long>(listing.orphans), static_cast<unsigned long long>(others),
        only_ours.size(), only_ours.empty() ? "" : ", the first ",
        only_ours.empty() ? "" : only_ours[0].c_str());
    for (size_t i = 0; i < only_peer.size() && i < 20; i++)
        fprintf(stderr, "only fls: %s\n", only_peer[i].c_str());
    for (size_t i = 0; i < only_ours.size() && i < 20; i++)
        fprintf(stderr, "only ours: %s\n", only_ours[i].c_str());
}

// --- Measuring ---------------------------------------------------------------------------------------------

static void _bench_count_proc(void *user_data, const ntfs_record_t *) {
    ++*static_cast<u64 *>(user_data);
}

// The pass over the table alone, with a sink that only counts.
static double _bench_read_table(const _bench_volume_t &volume) {
    os_volume_t *image = os_volume_open(volume.file.c_str());
    ntfs_info_t info;
    u64 count = 0;
    double start = bench_now();
    if (ntfs_get_info(image, &info, nullptr))
        ntfs_read_volume(image, &info, NTFS_MASK_ALL, &count, _bench_count_proc, nullptr);
    double seconds = bench_now() - start;
    os_volume_close(image);
    return seconds;
}

static double _bench_read_volume(_bench_volume_t *volume, u32 threads) {
    max_threads = threads;
    db_rebuild_stats_t stats = {};
    db_destroy(bench_index_volume(volume->file.c_str(), &stats));
    return stats.read_time / 1e6;
}

static bool _bench_run_fls(const _bench_volume_t &volume, const char *output, double *seconds) {
    bench_peer_run_t run = bench_run_peer({"fls", "-r", "-p", volume.file}, nullptr, output);
    *seconds = run.seconds;
    return run.ok;
}

// Reads the image once, so that it lies in the page cache, and compares what both find in it.
static bool _bench_warm_up(const bench_options_t &options, _bench_volume_t *volume) {
    os_volume_t *image = os_volume_open(volume->file.c_str());
    ntfs_info_t info;
    bool ok = image && ntfs_get_info(image, &info, nullptr);
    if (image)
        os_volume_close(image);
    std::string listing = options.data + "/fls-" + volume->name + ".txt";
    double seconds;
    if (!ok || !_bench_run_fls(*volume, listing.c_str(), &seconds))
        return false;
    db_rebuild_stats_t stats = {};
    db_t *db = bench_index_volume(volume->file.c_str(), &stats);
    volume->table_bytes = stats.record_count * info.bytes_per_file_record;
    bench_file_t file = bench_map(listing);
    _bench_compare(*volume, db, file);
    bench_unmap(file);
    db_destroy(db);
    return true;
}

static void _bench_add_read_rows(const _bench_volume_t &volume) {
    double ours = bench_median(volume.ours), peer = bench_median(volume.peer);
    bench_add_row({bench_format("read %s, times faster than fls -r -p", volume.name.c_str()),
                   bench_seconds(ours), bench_seconds(peer), peer / ours, BENCH_AT_LEAST, READ_TARGET, ""});
    double gigabytes = static_cast<double>(volume.table_bytes) / 1e9;
    struct {
        const char *what;
        double rate;
    } rows[] = {{"GB of file table a second to linked records", gigabytes / bench_median(volume.ours_alone)},
                {"GB of file table a second, its pass alone", gigabytes / bench_median(volume.table)}};
    for (auto row : rows)
        bench_add_row({bench_format("%s, %s, 1 thread", volume.name.c_str(), row.what),
                       bench_format("%.2f GB/s", row.rate), "", row.rate, BENCH_AT_LEAST, TABLE_TARGET, ""});
}

bool bench_read(const bench_options_t &options) {
    for (const std::string &text : options.volumes) {
        _bench_volume_t volume = {};
        volume.name = text.substr(0, text.find('='));
        volume.file = text.substr(volume.name.size() + 1);
        if (!_bench_warm_up(options, &volume))
            return false;
        for (u32 run = 0; run < options.runs; run++) {
            volume.ours.push_back(_bench_read_volume(&volume, 0));
            volume.ours_alone.push_back(_bench_read_volume(&volume, 1));
            volume.table.push_back(_bench_read_table(volume));
            if (run < options.peer_runs && !_bench_run_fls(volume, "/dev/null", &volume.peer.emplace_back()))
                return false;
        }
        bench_add_note("%s: %.2f GB of file table; the image in the page cache; %u runs, %zu of fls",
                       volume.name.c_str(), static_cast<double>(volume.table_bytes) / 1e9, options.runs,
                       volume.peer.size());
        _bench_add_read_rows(volume);
    }
    return !options.volumes.empty();
}

} // namespace findwright
