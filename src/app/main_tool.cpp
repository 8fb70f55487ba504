// What a switch does without the application: the help, a file list of a folder, a choice of language, a
// start with the system.
#include "app/config.h"
#include "app/main_internal.h"
#include "app/startup.h"
#include "index/file_list_folder.h"
#include "os/os.h"

namespace findwright {

static constexpr int STANDARD_OUTPUT = 1;

static void _main_show_help() {
    utf8_buf_t text;
    utf8_buf_init(&text);
    command_line_get_help(&text);
    if (!os_console_write(STANDARD_OUTPUT, text.data, static_cast<u32>(text.length)))
        os_show_message(text.data);
    utf8_buf_kill(&text);
}

static void _main_show_not_understood(const char *name) {
    utf8_buf_t message;
    utf8_buf_init(&message);
    utf8_buf_printf(&message, localization_get(LOCALIZATION_COMMAND_LINE_NOT_UNDERSTOOD), name);
    os_show_message(message.data);
    utf8_buf_kill(&message);
}

static bool _main_create_file_list(const command_line_t *line) {
    utf8_buf_t message;
    utf8_buf_init(&message);
    file_list_written_t written;
    bool done = file_list_write_path(line->create_file_list_file, line->create_file_list_folder,
                                     file_list_relative_paths != 0, &written, &message);
    if (!done) {
        os_show_message(message.data);
    } else if (os_is_terminal(STANDARD_OUTPUT) || written.left_out != 0) {
        utf8_buf_t name;
        utf8_buf_init(&name);
        config_path_to_text(&name, line->create_file_list_file);
        utf8_buf_printf(&message, localization_get(LOCALIZATION_FILE_LIST_WRITTEN), name.data, written.rows);
        if (written.left_out != 0) {
            utf8_buf_cat_byte(&message, ' ');
            utf8_buf_cat_printf(&message, localization_get(LOCALIZATION_FILE_LIST_LEFT_OUT),
                                written.left_out);
        }
        os_show_message(message.data);
        utf8_buf_kill(&name);
    }
    utf8_buf_kill(&message);
    return done;
}

// The program is to start with the system, or no more.
static bool _main_set_startup(const command_line_t *line) {
    utf8_buf_t message;
    utf8_buf_init(&message);
    bool done = line->on & COMMAND_LINE_OPTION_RUN_ON_SYSTEM_STARTUP ? startup_install(line, &message)
                                                                     : startup_uninstall(line, &message);
    os_show_message(message.data);
    utf8_buf_kill(&message);
    return done;
}

static void _main_save_settings() {
    utf8_buf_t error;
    utf8_buf_init(&error);
    if (!config_save(false, &error))
        os_show_message(error.data);
    utf8_buf_kill(&error);
}

bool _main_do_command_line_installs(const command_line_t *line, int *exit_code) {
    utf8_buf_t lacking;
    utf8_buf_init(&lacking);
    command_line_get_lacking(line, &lacking);
    bool lacks = lacking.length != 0;
    if (lacks) {
        utf8_buf_set_length(&lacking, lacking.length - 1); // a message ends its last line itself
        os_show_message(lacking.data);
        *exit_code = 1;
    }
    utf8_buf_kill(&lacking);
    if (lacks)
        return true;
    if (line->language != 0) {
        config_language = static_cast<i32>(line->language);
        _main_save_settings();
    }
    if (line->flags & COMMAND_LINE_HELP) {
        _main_show_help();
        if (line->not_understood) {
            _main_show_not_understood(line->not_understood);
            *exit_code = 1;
        }
        return true;
    }
    if ((line->on | line->off) & COMMAND_LINE_OPTION_RUN_ON_SYSTEM_STARTUP) {
        if (!_main_set_startup(line))
            *exit_code = 1;
        return true;
    }
    if (line->create_file_list_file) {
        if (!_main_create_file_list(line))
            *exit_code = 1;
        return true;
    }
    return false;
}

} // namespace findwright
