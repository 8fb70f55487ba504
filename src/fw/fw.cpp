#include "fw/fw.h"

#include "base/utf8_buf.h"
#include "db/db.h"
#include "fw/fw_options.h"
#include "fw/fw_output.h"
#include "index/db_create.h"
#include "index/ntfs_partition.h"
#include "os/event.h"
#include "os/os.h"
#include "query/db_query.h"

namespace findwright {

static bool _fw_write_console(void *, int descriptor, const void *bytes, u32 size) {
    return os_console_write(descriptor, bytes, size);
}

fw_io_t fw_io_console() {
    return {nullptr, _fw_write_console, os_is_terminal(1), os_is_terminal(2)};
}

static void _fw_print(const fw_io_t *io, int descriptor, const std::string &text) {
    io->write(io->user_data, descriptor, text.data(), static_cast<u32>(text.size()));
}

// --- Sources -----------------------------------------------------------------------------------------------

struct _fw_volume_t {
    std::string file;
    std::string root;
    os_volume_t *volume;
};

static std::string _fw_system_error() {
    char text[256];
    os_error_text(os_get_last_error(), text, sizeof text);
    return text;
}

// The next default name of a root: C:, D: and on to Z:, then numbered ones.
static std::string _fw_next_root_name(u32 *next) {
    u32 number = (*next)++;
    u32 letter = 2 + number % 24;
    std::string name(1, static_cast<char>('A' + letter));
    return number < 24 ? name + ":" : name + std::to_string(number / 24) + ":";
}

// FILE=NAME, where a file of the whole name does not exist.
static void _fw_split_source(const std::string &text, std::string *file, std::string *name) {
    *file = text;
    size_t equals = text.rfind('=');
    if (equals == std::string::npos || os_file_exists(text.c_str()))
        return;
    *file = text.substr(0, equals);
    *name = text.substr(equals + 1);
}

// Opens the NTFS volumes of one disk, device or image. The text of an error, or empty.
static std::string _fw_open_source(const std::string &text, std::vector<_fw_volume_t> *volumes,
                                   u32 *next_root) {
    std::string file, name;
    _fw_split_source(text, &file, &name);
    if (os_folder_exists(file.c_str()))
        return "cannot read " + file + ": it is a folder, not a volume or an image";
    os_volume_t *disk = os_volume_open(file.c_str());
    if (!disk)
        return "cannot open " + file + ": " + _fw_system_error();
    char reason[256] = "";
    ntfs_partition_t partitions[NTFS_PARTITION_MAX];
    u32 count = ntfs_find_partitions(disk, partitions, reason);
    std::string error = count == 0 ? "cannot find an NTFS volume in " + file + ": " + reason : "";
    for (u32 i = 0; i < count; i++) {
        os_volume_t *part = os_volume_open_part(disk, partitions[i].offset, partitions[i].size);
        ntfs_info_t info;
        if (!ntfs_get_info(part, &info, reason)) {
            os_volume_close(part);
            error = "cannot read the NTFS volume in " + file + ": " + reason;
            continue;
        }
        bool named = i == 0 && !name.empty();
        volumes->push_back({file, named ? name : _fw_next_root_name(next_root), part});
    }
    os_volume_close(disk);
    return volumes->empty() ? error : "";
}

// --- The index ---------------------------------------------------------------------------------------------

static u32 _fw_column_flag(fw_column_t column) {
    switch (column) {
    case FW_COLUMN_SIZE: return DB_FLAG_SIZE;
    case FW_COLUMN_DATE_MODIFIED: return DB_FLAG_DATE_MODIFIED;
    case FW_COLUMN_DATE_CREATED: return DB_FLAG_DATE_CREATED;
    case FW_COLUMN_DATE_ACCESSED: return DB_FLAG_DATE_ACCESSED;
    case FW_COLUMN_ATTRIBUTES: return DB_FLAG_ATTRIBUTES;
    default: return 0;
    }
}

// The columns that are printed or sorted by, and the array of the order.
static u32 _fw_index_flags(const fw_options_t *options) {
    u32 fast = db_sort_get_fast_flag(options->sort);
    u32 flags = fast;
    for (u32 column = DB_FLAG_SIZE, sort = DB_FLAG_FAST_SIZE; column <= DB_FLAG_ATTRIBUTES;
         column <<= 1, sort <<= 1) {
        if (fast == sort)
            flags |= column;
    }
    for (fw_column_t column : options->columns)
        flags |= _fw_column_flag(column);
    return flags;
}

struct _fw_client_t {
    const fw_io_t *io;
    db_t *db;
    db_query_t *query;
    bool results_ready;
    bool progress_shown;
};

static void _fw_show_progress(_fw_client_t *client) {
    utf8_buf_t status, detail;
    utf8_buf_init(&status);
    utf8_buf_init(&detail);
    db_get_status(client->db, &status, &detail);
    if (status.length != 0 || client->progress_shown) {
        std::string line = std::string("\r") + status.data + " " + detail.data + "\x1b[K";
        _fw_print(client->io, 2, status.length != 0 ? line : "\r\x1b[K");
        client->progress_shown = status.length != 0;
    }
    utf8_buf_kill(&status);
    utf8_buf_kill(&detail);
}

static void _fw_callback(void *user_data, u32 code) {
    _fw_client_t *client = static_cast<_fw_client_t *>(user_data);
    if (code == DB_QUERY_RESULTS_CHANGED && client->db->loaded)
        client->results_ready = true;
    if (code == DB_QUERY_STATUS_CHANGED && client->io->error_is_terminal)
        _fw_show_progress(client);
}

static u64 _fw_count_items(const db_t *db) {
    return static_cast<u64>(db->folder_name_array.count) + db->file_name_array.count;
}

static void _fw_print_stats(const _fw_client_t *client, const db_rebuild_stats_t *stats, u32 search_time) {
    utf8_buf_t text;
    utf8_buf_init(&text);
    u64 items = _fw_count_items(client->db);
    u64 tenths = items != 0 ? db_memory_size(client->db) * 10 / items : 0;
    utf8_buf_printf(
        &text,
        "items %I64u (%u folders, %u files, %u without a parent dropped)\nbytes per item %I64u.%I64u\n"
        "read %f seconds\nsort %f seconds\nsearch %f seconds\n",
        items, client->db->folder_name_array.count, client->db->file_name_array.count, stats->orphan_count,
        tenths / 10, tenths % 10, stats->read_time, stats->sort_time, search_time);
    _fw_print(client->io, 2, text.data);
    utf8_buf_kill(&text);
}

// Reads the volumes, searches, prints. Returns the exit status.
static int _fw_search(const fw_options_t *options, const std::vector<_fw_volume_t> &volumes,
                      const fw_io_t *io) {
    std::vector<db_rebuild_volume_t> sources;
    sources.reserve(volumes.size());
    for (const _fw_volume_t &volume : volumes)
        sources.push_back({volume.file.c_str(), volume.root.c_str(), volume.volume, nullptr, nullptr});
    db_rebuild_stats_t stats;
    db_rebuild_params_t rebuild = {sources.data(), static_cast<u32>(sources.size()), _fw_index_flags(options),
                                   nullptr, &stats};
    _fw_client_t client = {io, db_create(), nullptr, false, false};
    client.query = db_query_create(client.db, false, _fw_callback, &client);
    db_rebuild_start(client.db, &rebuild);
    while (!db_is_ready(client.db))
        event_wait_and_dispatch(OS_INFINITE);
    event_dispatch();
    client.results_ready = false;

    db_query_params_t search = {};
    search.match_case = options->match_case;
    search.match_whole_word = options->match_whole_word;
    search.match_path = options->match_path;
    search.match_diacritics = options->match_diacritics;
    search.match_regex = options->match_regex;
    search.search = options->search.c_str();
    search.filter_search = options->files_only ? "file:" : options->folders_only ? "folder:" : "";
    search.sort = options->sort;
    u32 start = os_get_tick_count();
    db_query_search(client.query, &search);
    u32 count = db_get_result_count(client.query);
    u32 search_time = os_get_tick_count() - start;
    while (!client.results_ready)
        event_wait_and_dispatch(OS_INFINITE);

    if (options->stats)
        _fw_print_stats(&client, &stats, search_time);
    if (options->count)
        _fw_print(io, 1, std::to_string(count) + "\n");
    else
        fw_output_results(options, client.query, io); // a closed pipe ends quietly
    db_destroy_query(client.query);
    db_destroy(client.db);
    return count != 0 ? FW_FOUND : FW_NOT_FOUND;
}

int fw_run(u32 count, const char *const *arguments, const fw_io_t *io) {
    fw_options_t options;
    std::string message;
    switch (fw_options_parse(&options, count, arguments, &message)) {
    case FW_PARSE_DONE: _fw_print(io, 1, message); return FW_FOUND;
    case FW_PARSE_ERROR: _fw_print(io, 2, message); return FW_ERROR;
    default: break;
    }
    if (options.ntfs.empty()) {
        _fw_print(io, 2,
                  "fw: no source was given: name a volume or an image with --ntfs FILE. fw --help lists the "
                  "options.\n");
        return FW_ERROR;
    }
    max_threads = options.threads;
    std::vector<_fw_volume_t> volumes;
    u32 next_root = 0;
    for (const std::string &source : options.ntfs) {
        std::vector<_fw_volume_t> found;
        std::string error = _fw_open_source(source, &found, &next_root);
        volumes.insert(volumes.end(), found.begin(), found.end());
        if (error.empty())
            continue;
        for (_fw_volume_t &volume : volumes)
            os_volume_close(volume.volume);
        _fw_print(io, 2, "fw: " + error + "\n");
        return FW_ERROR;
    }
    return _fw_search(&options, volumes, io);
}

} // namespace findwright
