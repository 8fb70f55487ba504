#include "app/config.h"
#include "app/db_settings.h"
#include "app/localization.h"
#include "app/main_internal.h"
#include "index/file_list.h"
#include "os/os.h"

namespace findwright {

static constexpr int STANDARD_ERROR = 2;

static void _main_report_print(const utf8_buf_t *text) {
    os_console_write(STANDARD_ERROR, text->data, static_cast<u32>(text->length));
}

static void _main_report_status(db_query_link_t *link) {
    main_report_t *report = static_cast<main_report_t *>(link);
    if (!os_is_terminal(STANDARD_ERROR))
        return;
    utf8_buf_t status, detail, line;
    utf8_buf_init(&status);
    utf8_buf_init(&detail);
    utf8_buf_init(&line);
    db_get_status(report->db, &status, &detail);
    if (status.length != 0 || report->is_status_shown) {
        utf8_buf_printf(&line, "\r%s %s\x1b[K", status.data, detail.data);
        if (status.length == 0)
            utf8_buf_copy_string(&line, "\r\x1b[K");
        _main_report_print(&line);
        report->is_status_shown = status.length != 0;
    }
    utf8_buf_kill(&line);
    utf8_buf_kill(&detail);
    utf8_buf_kill(&status);
}

// A file list that could not be read: its name inside one text inside another.
static void _main_report_file_list(const db_t *db) {
    localization_string_t reason = db->file_list_status == FILE_LIST_INVALID ? LOCALIZATION_INVALID_FILE_LIST
                                                                             : LOCALIZATION_FILE_NOT_FOUND;
    utf8_buf_t name, text, message;
    utf8_buf_init(&name);
    utf8_buf_init(&text);
    utf8_buf_init(&message);
    config_path_to_text(&name, db->file_list_filename);
    utf8_buf_printf(&text, localization_get(reason), name.data);
    utf8_buf_printf(&message, localization_get(LOCALIZATION_UNABLE_TO_OPEN_FILE_LIST), text.data);
    os_show_message(message.data);
    utf8_buf_kill(&message);
    utf8_buf_kill(&text);
    utf8_buf_kill(&name);
}

static void _main_report_no_sources() {
    utf8_buf_t path, name, message;
    utf8_buf_init(&path);
    utf8_buf_init(&name);
    utf8_buf_init(&message);
    config_get_path(false, &path);
    config_path_to_text(&name, path.data);
    utf8_buf_printf(&message, localization_get(LOCALIZATION_NO_SOURCES), name.data);
    os_show_message(message.data);
    utf8_buf_kill(&message);
    utf8_buf_kill(&name);
    utf8_buf_kill(&path);
}

static void _main_report_content(const db_t *db) {
    if (db->file_list_filename && db->file_list_status != FILE_LIST_READ) {
        _main_report_file_list(db);
        return;
    }
    if (!db->index_first && !db->file_list_filename && !db_settings_have_sources()) {
        _main_report_no_sources();
        return;
    }
    if (!os_is_terminal(STANDARD_ERROR))
        return;
    utf8_buf_t message;
    utf8_buf_init(&message);
    utf8_buf_printf(&message, localization_get(LOCALIZATION_READY), db->folder_name_array.count,
                    db->file_name_array.count);
    os_show_message(message.data);
    utf8_buf_kill(&message);
}

static void _main_report_load_complete(db_query_link_t *link) {
    static_cast<main_report_t *>(link)->is_content_new = true;
}

static void _main_report_ready(db_query_link_t *link) {
    main_report_t *report = static_cast<main_report_t *>(link);
    if (!report->is_content_new)
        return;
    report->is_content_new = false;
    _main_report_status(report); // the line of the status goes first
    _main_report_content(report->db);
}

static void _main_report_nothing(db_query_link_t *) {}

// It starts no worker of its own, so that there is nothing to ask about or to cancel.
static const db_query_hooks_t _main_report_hooks = {
    .get_busy_text = nullptr,
    .cancel = nullptr,
    .cancelled = nullptr,
    .wait_ended = _main_report_nothing,
    .ready = _main_report_ready,
    .status_changed = _main_report_status,
    .rebuild_started = _main_report_nothing,
    .load_complete = _main_report_load_complete,
};

void main_report_start(main_report_t *report, db_t *db) {
    *report = {};
    report->hooks = &_main_report_hooks;
    report->db = db;
    db_add_query(db, report);
}

void main_report_stop(main_report_t *report) {
    static constexpr char CLEAR[] = "\r\x1b[K"; // what comes next has a line of its own
    if (report->is_status_shown)
        os_console_write(STANDARD_ERROR, CLEAR, sizeof CLEAR - 1);
    db_remove_query(report->db, report);
}

} // namespace findwright
