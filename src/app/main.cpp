#include "app/main.h"

#include "app/command_line.h"
#include "app/config.h"
#include "app/db_settings.h"
#include "app/http_server_settings.h"
#include "app/instance.h"
#include "app/localization.h"
#include "app/main_internal.h"
#include "app/run_history_file.h"
#include "base/mem.h"
#include "base/mem_ref.h"
#include "base/utf8.h"
#include "base/utf8_buf.h"
#include "index/db_create.h"
#include "index/db_lifecycle.h"
#include "os/debug.h"
#include "os/event.h"
#include "os/os.h"
#include "os/os_quit.h"
#include "remote/http_server.h"
#include "track/db_run_history.h"

#include <cstring>

namespace findwright {

static constexpr u32 PIXELS_PER_INCH = 96; // of a screen that nothing is known of

struct main_t {
    command_line_t *command_line;
    int exit_code;
    bool quit;          // the main loop ends
    bool is_first;      // holds the instance's lock
    db_t *db;           // of the settings' sources
    db_t *file_list_db; // the view of a file list, or 0
    main_report_t report, file_list_report;
};

static main_t _main;
static size_t _main_arena_at_start; // bytes; the arena keeps a few for itself

// --- Leaving -----------------------------------------------------------------------------------------------

static void _main_report_failure(void (*report_error)(const char *text), const char *text) {
    report_error(text);
    _main.exit_code = 1;
}

static void _main_save_all(void (*report_error)(const char *text)) {
    utf8_buf_t error;
    utf8_buf_init(&error);
    if (!config_save(false, &error))
        _main_report_failure(report_error, error.data);
    if (_main.db) {
        if (!run_history_file_save(_main.db, &error))
            _main_report_failure(report_error, error.data);
        db_rebuild_cancel(_main.db); // what is not read to its end is not saved
        if (!db_save(_main.db, false, &error))
            _main_report_failure(report_error, error.data);
    }
    utf8_buf_kill(&error);
}

static void _main_quit_request_proc(void *) {
    debug_printf("quit\n");
    _main.quit = true;
}

static void _main_log_error(const char *text) {
    debug_printf("%s\n", text);
}

// The process is gone when this returns. Nobody is there to answer a message.
static void _main_quit_finish_proc(void *) {
    debug_printf("endsession\n");
    _main_save_all(_main_log_error);
}

// --- The command line at work ------------------------------------------------------------------------------

static void _main_set_verbose(const command_line_t *line) {
    if (!((line->on | line->off) & COMMAND_LINE_OPTION_VERBOSE))
        return;
    debug_verbose = (line->on & COMMAND_LINE_OPTION_VERBOSE) != 0;
    message_trace = debug_verbose;
}

static void _main_close_file_list() {
    if (!_main.file_list_db)
        return;
    main_report_stop(&_main.file_list_report);
    db_destroy(_main.file_list_db);
    _main.file_list_db = nullptr;
}

static void _main_open_file_list(const char *filename) {
    _main_close_file_list();
    _main.file_list_db = db_lifecycle_create(filename);
    main_report_start(&_main.file_list_report, _main.file_list_db);
    db_rebuild_filelist(_main.file_list_db);
}

static constexpr u32 SERVER_REQUIRED = 2; // of http_server_enabled

static const char *_main_get_instance_name() {
    const char *given = _main.command_line->instance;
    return given && *given ? given : instance_name;
}

// The server answers once there is something to answer from; who comes earlier waits.
static void _main_start_servers() {
    if (!http_server_enabled)
        return;
    if (http_server_settings_start(_main.db, _main_get_instance_name()) ||
        http_server_enabled != SERVER_REQUIRED)
        return;
    _main.exit_code = 1;
    _main.quit = true;
}

static void _main_set_language(u32 language) {
    if (language == 0)
        return;
    // A rebuild reads the texts that go away now.
    db_wait(_main.db, "_main_set_language");
    if (_main.file_list_db)
        db_wait(_main.file_list_db, "_main_set_language");
    config_language = static_cast<i32>(language);
    localization_load(language);
    db_settings_use(os_show_message);
    if (http_server_is_running())
        _main_start_servers(); // it has copies of the texts
}

// What a command line asks of the application, on the first start as well as when another process hands its
// own over.
static void _main_apply(const command_line_t *line, bool is_running) {
    if (line->flags & COMMAND_LINE_EXIT) {
        _main.quit = true;
        return;
    }
    if (line->flags & COMMAND_LINE_CONSOLE)
        debug_console(true);
    _main_set_verbose(line);
    if (is_running) {
        _main_set_language(line->language);
    } else {
        _main.db = db_lifecycle_create(nullptr);
        main_report_start(&_main.report, _main.db);
        _main_start_servers();
        if (_main.quit)
            return;
        db_load(_main.db);
    }
    if (line->flags & COMMAND_LINE_REINDEX)
        db_rebuild(_main.db, true);
    if (line->flags & COMMAND_LINE_UPDATE) {
        utf8_buf_t error;
        utf8_buf_init(&error);
        if (!db_save(_main.db, true, &error))
            os_show_message(error.data);
        utf8_buf_kill(&error);
    }
    if (line->flags & COMMAND_LINE_LOCAL)
        _main_close_file_list();
    if (line->file_list)
        _main_open_file_list(line->file_list);
}

static void _main_receive_proc(void *, const char *text, const char *folder) {
    debug_printf("command line %s\n", text);
    command_line_t *line = command_line_parse(text, folder, true);
    if (!_main.quit)
        _main_apply(line, true);
    command_line_free(line);
}

// --- Start -------------------------------------------------------------------------------------------------

bool main_get_log_filename(utf8_buf_t *out) {
    if (!config_get_folder(CONFIG_FOLDER_STATE, out))
        return false;
    utf8_buf_cat_string(out, "\\Findwright-Debug.txt");
    return true;
}

static void _main_start_log() {
    utf8_buf_t filename;
    utf8_buf_init(&filename);
    if (config_debug && main_get_log_filename(&filename)) {
        os_make_folders_for(filename.data);
        debug_log_open(filename.data);
    }
    utf8_buf_kill(&filename);
}

static bool _main_become_instance() {
    debug_printf("create mutex\n");
    if (allow_multiple_instances)
        return true;
    const command_line_t *line = _main.command_line;
    utf8_buf_t text, folder, error;
    utf8_buf_init(&text);
    utf8_buf_init(&folder);
    utf8_buf_init(&error);
    command_line_get_arguments(&text);
    utf8_buf_get_full_path(&folder, ".", 1, "", 0);
    instance_params_t params = {_main_get_instance_name(),
                                text.data,
                                folder.data,
                                (line->on & COMMAND_LINE_OPTION_FIRST_INSTANCE) != 0,
                                (line->off & COMMAND_LINE_OPTION_FIRST_INSTANCE) != 0,
                                0};
    instance_result_t result = instance_start(&params, &error);
    _main.is_first = result == INSTANCE_FIRST;
    if (!_main.is_first)
        debug_printf("mutex exists\n");
    if (result == INSTANCE_TIMED_OUT)
        os_show_message(localization_get(LOCALIZATION_INSTANCE_TIMED_OUT));
    if (result == INSTANCE_FAILED)
        os_show_message(error.data);
    if (result == INSTANCE_EXISTS || result == INSTANCE_TIMED_OUT || result == INSTANCE_FAILED)
        _main.exit_code = 1;
    utf8_buf_kill(&error);
    utf8_buf_kill(&folder);
    utf8_buf_kill(&text);
    return _main.is_first;
}

// Everything up to the main loop. False: there is nothing more to do.
static bool _main_start() {
    const command_line_t *line = _main.command_line;
    config_load_placed(line->instance, line->config);
    _main_start_log();
    debug_is_app_data = config_is_app_data();
    if (line->flags & COMMAND_LINE_CONSOLE)
        debug_console(true);
    if (debug_is_on()) // the settings lead to the log, which is to tell what is wrong in them
        config_load_placed(line->instance, line->config);
    debug_printf("load localization\n");
    localization_load(line->language ? line->language : static_cast<u32>(config_language));
    _main_set_verbose(line);
    db_read_only = (line->flags & COMMAND_LINE_READ_ONLY) != 0;
    db_no_db = (line->flags & COMMAND_LINE_NO_DB) != 0;
    db_settings_set_filename(line->db);
    db_settings_use(os_show_message);
    run_history_file_use();
    if (_main_do_command_line_installs(line, &_main.exit_code) || !_main_become_instance())
        return false;
    if (_main.is_first && !instance_listen(_main_receive_proc, nullptr))
        debug_printf("no other process can hand over its command line\n");
    os_quit_watch(_main_quit_request_proc, _main_quit_finish_proc, nullptr);
    debug_printf("apply command line\n");
    _main_apply(line, false);
    return true;
}

static void _main_loop() {
    debug_printf("enter main loop\n");
    while (!_main.quit)
        event_wait_and_dispatch(OS_INFINITE);
}

// --- The end -----------------------------------------------------------------------------------------------

static void _main_shutdown() {
    debug_printf("shutdown\n");
    instance_stop_listening();
    if (_main.db)
        db_rebuild_cancel(_main.db); // or the server would wait for it, with its visitors' searches
    http_server_stop();
    _main_close_file_list();
    if (_main.db) {
        _main_save_all(os_show_message);
        main_report_stop(&_main.report);
        db_destroy(_main.db);
        _main.db = nullptr;
    }
    os_quit_unwatch();
    instance_stop(); // all is saved: who waits for this one goes on
}

static void _main_kill() {
    debug_printf("kill\n");
    command_line_free(_main.command_line);
    db_settings_set_filename(nullptr);
    db_lifecycle_set(nullptr);
    db_run_history_set_file(nullptr);
    localization_shutdown();
    config_kill();
    size_t arena = mem_arena_used();
    os_kill();
    if (arena != _main_arena_at_start)
        debug_printf("%I64u bytes of records are alive\n", static_cast<u64>(arena - _main_arena_at_start));
    mem_report();
    debug_console(false);
    debug_log_open(nullptr);
}

int main_run(const char *arguments) {
    os_init();
    _main = {};
    _main_arena_at_start = mem_arena_used();
    config_init(PIXELS_PER_INCH);
    utf8_buf_t text;
    utf8_buf_init(&text);
    if (arguments)
        utf8_buf_copy_string(&text, arguments);
    else
        command_line_get_arguments(&text);
    _main.command_line = command_line_parse(text.data, nullptr, true);
    utf8_buf_kill(&text);
    if (_main_start())
        _main_loop();
    _main_shutdown();
    _main_kill();
    return _main.exit_code;
}

} // namespace findwright
