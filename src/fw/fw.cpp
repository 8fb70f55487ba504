#include "fw/fw.h"

#include "app/config.h"
#include "base/utf8_buf.h"
#include "db/db.h"
#include "fw/fw_history.h"
#include "fw/fw_load.h"
#include "fw/fw_options.h"
#include "fw/fw_output.h"
#include "fw/fw_plan.h"
#include "fw/fw_progress.h"
#include "fw/fw_search.h"
#include "index/db_create.h"
#include "os/event.h"
#include "os/os.h"
#include "query/db_explain.h"
#include "query/db_query.h"
#include "query/db_sort_name.h"

#include <algorithm>

namespace findwright {

static constexpr u32 PROGRESS_DELAY = 500; // milliseconds that a search is silent on a terminal

static bool _fw_write_console(void *, int descriptor, const void *bytes, u32 size) {
    return os_console_write(descriptor, bytes, size);
}

fw_io_t fw_io_console() {
    return {nullptr, _fw_write_console, os_is_terminal(1), os_is_terminal(2),
            [](void *) { return os_console_enable_colors(1); }};
}

static void _fw_print(const fw_io_t *io, int descriptor, const std::string &text) {
    if (!text.empty())
        io->write(io->user_data, descriptor, text.data(), static_cast<u32>(text.size()));
}

// --- The index ---------------------------------------------------------------------------------------------

// The columns that are printed or sorted by, and the array of the order where there is one for it.
static u32 _fw_index_flags(const fw_options_t *options) {
    u32 fast = db_sort_get_fast_flag(options->sort);
    u32 flags = fast != ~0u ? fast : 0;
    for (u32 column = DB_FLAG_SIZE, sort = DB_FLAG_FAST_SIZE; column <= DB_FLAG_ATTRIBUTES;
         column <<= 1, sort <<= 1) {
        if (fast == sort)
            flags |= column;
    }
    for (fw_column_t column : options->columns)
        flags |= fw_columns[column].index_flag;
    return flags;
}

struct _fw_client_t {
    const fw_io_t *io;
    db_t *db;
    db_query_t *query;
    bool results_ready;
    fw_progress_t progress;
};

static void _fw_show_progress(_fw_client_t *client) {
    utf8_buf_t status, detail;
    utf8_buf_init(&status);
    utf8_buf_init(&detail);
    db_get_status(client->db, &status, &detail);
    db_query_get_status_text(client->query, &status);
    fw_progress_show(&client->progress,
                     status.length != 0 ? std::string(status.data) + " " + detail.data : "");
    utf8_buf_kill(&status);
    utf8_buf_kill(&detail);
}

static void _fw_callback(void *user_data, u32 code) {
    _fw_client_t *client = static_cast<_fw_client_t *>(user_data);
    if (code == DB_QUERY_RESULTS_CHANGED && client->db->loaded)
        client->results_ready = true;
    if (code == DB_QUERY_STATUS_CHANGED)
        _fw_show_progress(client);
}

static void _fw_print_stats(const _fw_client_t *client, const fw_load_t *load,
                            const db_rebuild_stats_t *rebuild, u32 search_time) {
    const db_t *db = client->db;
    u32 folders = db->folder_name_array.count, files = db->file_name_array.count;
    u64 items = static_cast<u64>(folders) + files;
    u64 tenths = items != 0 ? db_memory_size(db) * 10 / items : 0;
    utf8_buf_t text;
    utf8_buf_init(&text);
    utf8_buf_printf(&text, "items %I64u (%u folders, %u files", items, folders, files);
    if (!load)
        utf8_buf_cat_printf(&text, ", %u left out", rebuild->orphan_count);
    utf8_buf_cat_printf(&text, ")\nbytes per item %I64u.%I64u\n", tenths / 10, tenths % 10);
    if (load)
        utf8_buf_cat_printf(&text, "load %f seconds\n", load->time);
    else
        utf8_buf_cat_printf(&text, "read %f seconds\nsort %f seconds\n", rebuild->read_time,
                            rebuild->sort_time);
    utf8_buf_cat_printf(&text, "search %f seconds\n", search_time);
    _fw_print(client->io, 2, text.data);
    utf8_buf_kill(&text);
}

// --- The run -----------------------------------------------------------------------------------------------

static void _fw_wait_until_ready(_fw_client_t *client) {
    while (!db_is_ready(client->db))
        event_wait_and_dispatch(OS_INFINITE);
    event_dispatch();
    client->results_ready = false;
}

// The text of an error, or empty.
static std::string _fw_load(_fw_client_t *client, fw_load_t *load) {
    std::string error = fw_load_start(load);
    if (!error.empty())
        return error;
    _fw_wait_until_ready(client);
    return load->is_loaded ? "" : fw_load_get_error(load);
}

// The settings' columns are those of a database that is kept; a run needs those that it prints, sorts by and
// searches. Sizes of folders are as the settings want them.
static void _fw_rebuild(_fw_client_t *client, const fw_options_t *options, const fw_search_t *search,
                        fw_plan_t *plan, db_rebuild_stats_t *stats) {
    plan->wanted.index_flags = _fw_index_flags(options) |
                               db_search_get_columns(search->match_flags, search->search.c_str()) |
                               db_search_get_columns(search->filter_flags, search->filter_search.c_str()) |
                               (plan->wanted.index_flags & DB_FLAG_FOLDER_SIZE);
    db_rebuild_start(client->db, &plan->wanted, stats);
    _fw_wait_until_ready(client);
}

static void _fw_start_search(const fw_options_t *options, const fw_search_t *search, db_query_t *query) {
    u32 flags = search->match_flags;
    db_query_params_t params = {};
    params.match_case = (flags & DB_MATCH_CASE) != 0;
    params.match_whole_word = (flags & DB_MATCH_WHOLE_WORD) != 0;
    params.match_path = (flags & DB_MATCH_PATH) != 0;
    params.match_diacritics = (flags & DB_MATCH_DIACRITICS) != 0;
    params.match_regex = (flags & DB_MATCH_REGEX) != 0;
    params.search = search->search.c_str();
    params.filter_flags = search->filter_flags;
    params.filter_search = search->filter_search.c_str();
    params.sort = options->sort;
    db_query_search(query, &params);
}

static int _fw_explain(const _fw_client_t *client) {
    utf8_buf_t text;
    utf8_buf_init(&text);
    db_query_explain(client->query, &text);
    _fw_print(client->io, 1, text.data);
    utf8_buf_kill(&text);
    return FW_FOUND;
}

// Not by a wait for the worker, which would show no progress. A search that is over at once shows none.
static void _fw_wait_for_results(_fw_client_t *client, const fw_options_t *options) {
    std::string text = "Searching...";
    if (options->sort != DB_SORT_NAME_ASCENDING)
        text = std::string("Searching, sorting by ") + db_sort_get_name(options->sort) + "...";
    while (!client->results_ready) {
        if (!event_wait_and_dispatch(PROGRESS_DELAY) && !client->progress.is_shown)
            fw_progress_show(&client->progress, text);
    }
    fw_progress_clear(&client->progress);
}

static int _fw_fail(const fw_io_t *io, const std::string &error) {
    _fw_print(io, 2, "fw: " + error + "\n");
    return FW_ERROR;
}

// Opens one of the results that would be printed, and prints that one.
static int _fw_open(_fw_client_t *client, const fw_options_t *options, u32 count) {
    u64 shown = options->offset < count ? std::min<u64>(count - options->offset, options->max) : 0;
    if (options->run > shown) {
        _fw_print(client->io, 2,
                  "fw: there is no result " + std::to_string(options->run) + " to open; there are " +
                      std::to_string(shown) + "\n");
        return FW_NOT_FOUND;
    }
    fw_options_t one = *options;
    one.offset += options->run - 1;
    one.max = 1;
    i32 index = static_cast<i32>(one.offset);
    const db_item_t *item = db_get_result_item(client->query, index);
    bool is_folder = db_is_folder_result(client->query, index);
    std::string error = fw_history_open(item);
    if (!error.empty())
        return _fw_fail(client->io, error);
    fw_output_results(&one, client->query, client->io, &client->progress);
    error = fw_history_count(client->db, item, is_folder); // moves it in some orders
    if (!error.empty())
        _fw_print(client->io, 2, "fw: " + error + "\n");
    return FW_FOUND;
}

// Searches what the database holds, and prints. Returns the exit status.
static int _fw_search(_fw_client_t *client, const fw_options_t *options, const fw_search_t *search,
                      const fw_load_t *load, const db_rebuild_stats_t *rebuild) {
    u32 start = os_get_tick_count();
    _fw_start_search(options, search, client->query);
    _fw_wait_for_results(client, options);
    u32 count = db_get_result_count(client->query);
    u32 search_time = os_get_tick_count() - start;
    if (options->explain)
        return _fw_explain(client);
    if (options->stats)
        _fw_print_stats(client, load, rebuild, search_time);
    if (options->run != 0)
        return _fw_open(client, options, count);
    if (options->count)
        _fw_print(client->io, 1, std::to_string(count) + "\n");
    else
        fw_output_results(options, client->query, client->io,
                          &client->progress); // a closed pipe ends quietly
    return count != 0 ? FW_FOUND : FW_NOT_FOUND;
}

static int _fw_run_plan(const fw_options_t *options, fw_plan_t *plan, const fw_search_t *search,
                        const fw_io_t *io) {
    _fw_print(io, 2, plan->warnings + search->warnings);
    _fw_client_t client = {io, db_create(), nullptr, false, {io, false}};
    client.query = db_query_create(client.db, false, _fw_callback, &client);
    db_rebuild_stats_t rebuild = {};
    fw_load_t load = {client.db, plan->database, false, false, 0};
    bool is_loaded = !plan->database.empty();
    std::string error;
    if (is_loaded)
        error = _fw_load(&client, &load);
    else
        _fw_rebuild(&client, options, search, plan, &rebuild);
    int status = error.empty() ? _fw_search(&client, options, search, is_loaded ? &load : nullptr, &rebuild)
                               : _fw_fail(io, error);
    db_destroy_query(client.query);
    db_destroy(client.db);
    return status;
}

int fw_run(u32 count, const char *const *arguments, const fw_io_t *io) {
    fw_options_t options;
    std::string message;
    switch (fw_options_parse(&options, count, arguments, &message)) {
    case FW_PARSE_DONE: _fw_print(io, 1, message); return FW_FOUND;
    case FW_PARSE_ERROR: _fw_print(io, 2, message); return FW_ERROR;
    default: break;
    }
    if (options.count || options.explain) { // no order and no column is seen
        options.columns.clear();
        options.has_sort = true;
        options.sort = DB_SORT_NAME_ASCENDING;
    }
    config_init(FW_PIXELS_PER_INCH);
    fw_plan_t plan;
    fw_plan_init(&plan);
    fw_search_t search;
    std::string error = fw_plan_make(&plan, &options);
    if (error.empty())
        error = fw_search_make(&search, &options);
    if (error.empty() && fw_history_is_needed(&options, &search))
        fw_history_use(&options);
    if (options.threads != 0)
        max_threads = options.threads;
    int status = error.empty() ? _fw_run_plan(&options, &plan, &search, io) : _fw_fail(io, error);
    fw_plan_kill(&plan);
    fw_history_forget();
    config_kill(); // puts back the number of threads, too
    return status;
}

} // namespace findwright
