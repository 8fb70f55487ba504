#include "bench.h"

#include "base/utf8.h"
#include "os/event.h"
#include "os/os.h"

#include <algorithm>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace findwright {

// --- The table ---------------------------------------------------------------------------------------------

static std::vector<bench_row_t> _bench_rows;
static std::vector<std::string> _bench_notes;

static std::string _bench_vformat(const char *format, va_list arguments) {
    char text[1024];
    vsnprintf(text, sizeof text, format, arguments);
    return text;
}

std::string bench_format(const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    std::string text = _bench_vformat(format, arguments);
    va_end(arguments);
    return text;
}

void bench_add_row(const bench_row_t &row) {
    fprintf(stderr, "%s: %s | %s | %.2f\n", row.what.c_str(), row.ours.c_str(), row.peer.c_str(), row.ratio);
    _bench_rows.push_back(row);
}

void bench_add_note(const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    _bench_notes.push_back(_bench_vformat(format, arguments));
    va_end(arguments);
    fprintf(stderr, "%s\n", _bench_notes.back().c_str());
}

static std::string _bench_verdict(const bench_row_t &row) {
    if (!row.remark.empty() || row.goal == BENCH_NO_GOAL)
        return row.remark;
    bool ok = row.goal == BENCH_AT_MOST ? row.ratio <= row.target : row.ratio >= row.target;
    return ok ? "ok" : "missed";
}

// Characters, for columns that line up: the bytes that do not go on with one.
static u32 _bench_width(const std::string &text) {
    return static_cast<u32>(
        std::count_if(text.begin(), text.end(), [](char c) { return (c & 0xC0) != 0x80; }));
}

// A cell as a table of Markdown takes it.
static std::string _bench_escape(const std::string &text) {
    std::string escaped;
    for (char c : text)
        escaped.append(c == '|' ? "\\" : "").push_back(c);
    return escaped;
}

void bench_print_table() {
    std::vector<std::vector<std::string>> cells = {{"what", "ours", "peer", "ratio", "target", "verdict"}};
    for (const bench_row_t &row : _bench_rows) {
        std::string target = row.goal == BENCH_NO_GOAL
                                 ? ""
                                 : bench_format("%s %g", row.goal == BENCH_AT_MOST ? "<=" : ">=", row.target);
        cells.push_back({_bench_escape(row.what), row.ours, row.peer,
                         row.ratio < 0 ? "" : bench_format("%.2f", row.ratio), target, _bench_verdict(row)});
    }
    std::vector<u32> widths(cells[0].size());
    for (const auto &line : cells) {
        for (size_t i = 0; i < line.size(); i++)
            widths[i] = std::max(widths[i], _bench_width(line[i]));
    }
    for (size_t n = 0; n < cells.size(); n++) {
        for (size_t i = 0; i < widths.size(); i++)
            printf("| %s%*s ", cells[n][i].c_str(), static_cast<int>(widths[i] - _bench_width(cells[n][i])),
                   "");
        printf("|\n");
        for (size_t i = 0; n == 0 && i < widths.size(); i++)
            printf("|%s%s", std::string(widths[i] + 2, '-').c_str(), i + 1 == widths.size() ? "|\n" : "");
    }
    printf("\n");
    for (const std::string &note : _bench_notes)
        printf("- %s\n", note.c_str());
}

// --- Measuring ---------------------------------------------------------------------------------------------

double bench_now() {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

double bench_median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    size_t half = values.size() / 2;
    return values.size() % 2 ? values[half] : (values[half - 1] + values[half]) / 2;
}

std::string bench_seconds(double seconds) {
    return seconds < 1 ? bench_format("%.1f ms", seconds * 1000) : bench_format("%.2f s", seconds);
}

static bool _bench_wait(pid_t process) {
    int status;
    return waitpid(process, &status, 0) == process && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

static void _bench_read_all(int from, std::string *output) {
    char bytes[65536];
    for (ssize_t got; (got = read(from, bytes, sizeof bytes)) > 0;)
        output->append(bytes, static_cast<size_t>(got));
}

bench_peer_run_t bench_run_peer(const std::vector<std::string> &arguments, std::string *output,
                                const char *output_name) {
    std::vector<char *> argv;
    for (const std::string &argument : arguments)
        argv.push_back(const_cast<char *>(argument.c_str()));
    argv.push_back(nullptr);
    int ends[2] = {-1, -1};
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    if (output && pipe2(ends, O_CLOEXEC) == 0)
        posix_spawn_file_actions_adddup2(&actions, ends[1], 1);
    else
        posix_spawn_file_actions_addopen(&actions, 1, output_name, O_WRONLY | O_CREAT | O_TRUNC, 0644);
    pid_t process;
    double start = bench_now();
    bool ok = posix_spawnp(&process, argv[0], &actions, nullptr, argv.data(), environ) == 0;
    if (output)
        close(ends[1]);
    if (ok) {
        if (output)
            _bench_read_all(ends[0], output);
        ok = _bench_wait(process);
    }
    double seconds = bench_now() - start;
    if (output)
        close(ends[0]);
    posix_spawn_file_actions_destroy(&actions);
    return {seconds, ok};
}

// --- Names and indexes -------------------------------------------------------------------------------------

bench_file_t bench_map(const std::string &name) {
    bench_file_t file = {nullptr, 0};
    int descriptor = open(name.c_str(), O_RDONLY | O_CLOEXEC);
    struct stat info;
    if (descriptor >= 0 && fstat(descriptor, &info) == 0 && info.st_size > 0) {
        size_t size = static_cast<size_t>(info.st_size);
        void *bytes = mmap(nullptr, size, PROT_READ, MAP_PRIVATE | MAP_POPULATE, descriptor, 0);
        if (bytes != MAP_FAILED)
            file = {static_cast<const char *>(bytes), size};
    }
    if (descriptor >= 0)
        close(descriptor);
    if (!file.bytes)
        fprintf(stderr, "fw_bench: cannot read %s\n", name.c_str());
    return file;
}

void bench_unmap(bench_file_t file) {
    if (file.bytes)
        munmap(const_cast<char *>(file.bytes), file.size);
}

u64 bench_count_lines(bench_file_t file) {
    return static_cast<u64>(std::count(file.bytes, file.bytes + file.size, '\n'));
}

static db_t *_bench_rebuild(db_wanted_t *wanted, db_rebuild_stats_t *stats) {
    db_t *db = db_create();
    wanted->index_flags = BENCH_INDEX_FLAGS;
    db_rebuild_start(db, wanted, stats);
    while (!db_is_ready(db))
        event_wait_and_dispatch(OS_INFINITE);
    return db;
}

db_t *bench_index_volume(const char *name, db_rebuild_stats_t *stats) {
    os_volume_t *image = os_volume_open(name);
    if (!image) {
        fprintf(stderr, "fw_bench: cannot open %s\n", name);
        return nullptr;
    }
    db_wanted_t wanted;
    db_wanted_init(&wanted);
    db_wanted_add_volume(&wanted, name, "V:", "", "")->volume = image;
    return _bench_rebuild(&wanted, stats);
}

db_t *bench_index_folder(const std::string &folder) {
    db_wanted_t wanted;
    db_wanted_init(&wanted);
    utf8_buf_t path;
    utf8_buf_init(&path);
    os_path_from_system(folder.data(), static_cast<u32>(folder.size()), &path);
    db_wanted_add_folder(&wanted, path.data);
    utf8_buf_kill(&path);
    return _bench_rebuild(&wanted, nullptr);
}

u64 bench_item_count(const db_t *db) {
    return static_cast<u64>(db->folder_name_array.count) + db->file_name_array.count;
}

// The source of an index: a walk along sorted paths, where a folder is new when the path before was not in
// it.
struct _bench_source_t {
    std::string_view parts[2]; // the paths
    u64 item_limit;
    std::string names; // of the items, one per line, where they are asked for
    bool keep_names;

    void *sink_data;
    ntfs_record_proc_t *sink;
    u64 item_count;
    struct level_t {
        std::string_view name;
        u64 frn;
    };
    std::vector<level_t> folders; // those that the last path lies in
};

static constexpr u64 FRN_FIRST = 64;            // in front of it are the file system's own records
static constexpr u64 FRN_SEQUENCE = 1ull << 48; // all records are in their first use
static constexpr u32 ATTRIBUTE_DIRECTORY = 0x10;
static constexpr u32 ATTRIBUTE_ARCHIVE = 0x20;
static constexpr u32 NAME_UNITS_MAX = 255;
static constexpr u64 DATE_2005 = 127489248000000000; // in ticks of 100 nanoseconds
static constexpr u64 DATE_SPAN = 20ull * 365 * 86400 * 10000000;
static constexpr u32 SIZE_BITS_MAX = 28;

// Sizes spread over all orders of magnitude, dates over twenty years; both follow from the name alone.
static void _bench_make_values(ntfs_record_t *record, std::string_view name) {
    u64 hash = 0xCBF29CE484222325;
    for (char c : name)
        hash = (hash ^ static_cast<u64>(c)) * 0x100000001B3;
    hash = (hash ^ hash >> 29) * 0xBF58476D1CE4E5B9;
    record->size = (hash >> 32) & ((1ull << (hash >> 8) % SIZE_BITS_MAX) - 1);
    record->date_modified = DATE_2005 + (hash ^ hash >> 31) % DATE_SPAN;
    record->date_created = record->date_accessed = record->date_modified;
}

static u32 _bench_to_utf16(u8 *out, std::string_view name) {
    u32 units = 0;
    for (const char *text = name.data(), *end = text + name.size();
         text != end && units + 1 < NAME_UNITS_MAX;) {
        u32 value;
        text += utf8_decode(text, end, &value);
        u32 high = value >= 0x10000 ? 0xD800 + ((value - 0x10000) >> 10) : 0;
        for (u32 unit : {high, high != 0 ? 0xDC00 | (value & 0x3FF) : value}) {
            if (unit == 0)
                continue;
            out[2 * units] = static_cast<u8>(unit);
            out[2 * units++ + 1] = static_cast<u8>(unit >> 8);
        }
    }
    return units;
}

static u64 _bench_add_item(_bench_source_t *source, std::string_view name, u64 parent_frn, bool is_folder) {
    u8 units[2 * NAME_UNITS_MAX];
    ntfs_record_t record = {};
    record.frn = FRN_SEQUENCE | (FRN_FIRST + source->item_count);
    record.parent_frn = parent_frn;
    record.attributes = is_folder ? ATTRIBUTE_DIRECTORY : ATTRIBUTE_ARCHIVE;
    record.name_length = _bench_to_utf16(units, name);
    record.name = units;
    _bench_make_values(&record, name);
    source->sink(source->sink_data, &record);
    source->item_count++;
    if (source->keep_names)
        source->names.append(name).push_back('\n');
    return record.frn;
}

static void _bench_add_path(_bench_source_t *source, std::string_view path) {
    size_t depth = 0;
    for (size_t slash; (slash = path.find('/')) != path.npos && source->item_count < source->item_limit;
         depth++) {
        std::string_view name = path.substr(0, slash);
        path.remove_prefix(slash + 1);
        if (depth < source->folders.size() && source->folders[depth].name == name)
            continue;
        source->folders.resize(depth);
        u64 parent_frn = depth != 0 ? source->folders[depth - 1].frn : NTFS_FRN_ROOT;
        source->folders.push_back({name, _bench_add_item(source, name, parent_frn, true)});
    }
    source->folders.resize(std::min(depth, source->folders.size()));
    if (!path.empty() && source->item_count < source->item_limit)
        _bench_add_item(source, path, depth != 0 ? source->folders[depth - 1].frn : NTFS_FRN_ROOT, false);
}

static void _bench_read_paths(void *param, void *user_data, ntfs_record_proc_t *sink,
                              ntfs_progress_proc_t *) {
    _bench_source_t *source = static_cast<_bench_source_t *>(param);
    source->sink_data = user_data;
    source->sink = sink;
    ntfs_record_t root = {};
    root.frn = root.parent_frn = NTFS_FRN_ROOT;
    root.attributes = ATTRIBUTE_DIRECTORY;
    sink(user_data, &root);
    for (std::string_view rest : source->parts) {
        while (!rest.empty() && source->item_count < source->item_limit) {
            size_t end = std::min(rest.find('\n'), rest.size());
            _bench_add_path(source, rest.substr(0, end));
            rest.remove_prefix(std::min(end + 1, rest.size()));
        }
    }
}

static void _bench_write(const char *name, const std::string &bytes) {
    FILE *file = fopen(name, "wb");
    if (!file || fwrite(bytes.data(), 1, bytes.size(), file) != bytes.size())
        fprintf(stderr, "fw_bench: cannot write %s\n", name);
    if (file)
        fclose(file);
}

db_t *bench_index_paths(bench_file_t paths, u64 item_limit, db_rebuild_stats_t *stats, const char *names,
                        std::string_view more) {
    _bench_source_t source = {};
    source.parts[0] = {paths.bytes, paths.size};
    source.parts[1] = more;
    source.item_limit = item_limit;
    source.keep_names = names != nullptr;
    db_wanted_t wanted;
    db_wanted_init(&wanted);
    db_source_t *volume = db_wanted_add_volume(&wanted, "paths", "V:", "", "");
    volume->read = _bench_read_paths;
    volume->read_param = &source;
    db_t *db = _bench_rebuild(&wanted, stats);
    if (names)
        _bench_write(names, source.names);
    return db;
}

} // namespace findwright
