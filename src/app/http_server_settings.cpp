#include "app/http_server_settings.h"

#include "app/config.h"
#include "app/localization.h"
#include "base/utf8.h"
#include "base/version.h"
#include "os/debug.h"
#include "os/network.h"
#include "os/os.h"
#include "remote/http_server.h"

#include <cstring>

namespace findwright {

// --- Bindings ----------------------------------------------------------------------------------------------

static constexpr char IP4_LOOPBACK[] = "127.0.0.1";
static constexpr char IP6_LOOPBACK[] = "::1";
static constexpr char ALL_ADDRESSES[] = "*";

// Whether nobody but this machine can reach it: a numeric address, or the name that always is one. Other
// names are what the name service says at the moment.
static bool _http_server_is_loopback(const utf8_buf_t *binding) {
    network_address_t address;
    if (network_parse_address(binding->data, static_cast<u32>(binding->length), 0, &address))
        return network_address_is_loopback(&address);
    return std::strcmp(binding->data, "localhost") == 0;
}

// Whether this machine has the address; one without IPv6 lacks `::1`.
static bool _http_server_has_address(const char *text) {
    utf8_buf_t error;
    utf8_buf_init(&error);
    bool started = network_start(&error), found = false;
    utf8_buf_kill(&error);
    network_address_t address;
    if (started && network_parse_address(text, utf8_length(text), 0, &address)) {
        u32 number;
        network_socket_t *socket = network_listen(
            &address, [](void *, u32) {}, nullptr, &number, nullptr);
        found = socket != nullptr;
        if (socket)
            network_close(socket);
    }
    if (started)
        network_stop();
    return found;
}

bool http_server_get_bindings(const char *bindings, bool has_password, bool is_private, utf8_buf_t *out) {
    utf8_buf_t item;
    utf8_buf_init(&item);
    bool is_all = false, is_empty = true, is_open = false;
    const char *cursor = bindings;
    while (!is_open && (cursor = utf8_buf_next_list_item(&item, cursor))) {
        if (item.length == 0)
            continue;
        is_empty = false;
        is_all |= std::strcmp(item.data, ALL_ADDRESSES) == 0;
        is_open = is_private && !has_password && !_http_server_is_loopback(&item);
    }
    if (is_open) {
        utf8_buf_copy_string(out, item.data);
    } else if (is_all || (is_empty && !is_private)) {
        utf8_buf_empty(out);
    } else if (!is_empty) {
        utf8_buf_copy_string(out, bindings);
    } else {
        utf8_buf_copy_string(out, IP4_LOOPBACK);
        if (_http_server_has_address(IP6_LOOPBACK))
            utf8_buf_cat_printf(out, ";%s", IP6_LOOPBACK);
    }
    utf8_buf_kill(&item);
    return !is_open;
}

// --- Places and names --------------------------------------------------------------------------------------

struct _http_server_texts_t {
    utf8_buf_t bindings, home, log_filename, host_names, error, message, name;
};

// Calls `action` for each.
template<class Action>
static void _http_server_for_each_text(_http_server_texts_t *texts, Action action) {
    for (utf8_buf_t *text : {&texts->bindings, &texts->home, &texts->log_filename, &texts->host_names,
                             &texts->error, &texts->message, &texts->name})
        action(text);
}

// Empty where the system names no folder for it: then there are the built-in pages alone.
static void _http_server_get_home(utf8_buf_t *out) {
    static constexpr char EXTENSION[] = "pages"; // a folder has none
    if (*http_server_home) {
        utf8_buf_copy_string(out, http_server_home);
        return;
    }
    utf8_buf_empty(out);
    if (config_get_data_filename(CONFIG_FOLDER_DATA, "HTTP Server", EXTENSION, out))
        utf8_buf_set_length(out, static_cast<u32>(out->length) - static_cast<u32>(sizeof EXTENSION));
}

static void _http_server_get_log_filename(utf8_buf_t *out) {
    utf8_buf_empty(out);
    if (!http_server_logging_enabled)
        return;
    if (*http_server_log_file_name)
        utf8_buf_copy_string(out, http_server_log_file_name);
    else
        config_get_data_filename(CONFIG_FOLDER_STATE, "Logs\\HTTP_Server_Log", "txt", out);
}

// This computer's name, also as its neighbours call it, and the names of the settings.
static void _http_server_get_host_names(utf8_buf_t *out) {
    os_get_computer_name(out);
    if (out->length != 0 && !std::strchr(out->data, '.')) {
        utf8_buf_t name;
        utf8_buf_init(&name);
        utf8_buf_copy_string(&name, out->data);
        utf8_buf_cat_printf(out, ";%s.local", name.data);
        utf8_buf_kill(&name);
    }
    if (*http_server_host_names)
        utf8_buf_cat_printf(out, out->length != 0 ? ";%s" : "%s", http_server_host_names);
}

// The setting's template, where it is one.
static const char *_http_server_get_title_format(const utf8_expand_t *variables) {
    const char *standard = localization_get(LOCALIZATION_HTTP_TITLE);
    if (!*http_title_format)
        return standard;
    utf8_buf_t title;
    utf8_buf_init(&title);
    const bool is_good = utf8_buf_expand(&title, http_title_format, variables);
    utf8_buf_kill(&title);
    if (!is_good)
        debug_printf("http_title_format is no template\n");
    return is_good ? http_title_format : standard;
}

// --- The start ---------------------------------------------------------------------------------------------

static void _http_server_fill_texts(http_texts_t *out) {
    out->program_name = localization_get(LOCALIZATION_PROGRAM_NAME);
    out->server_name = localization_get(LOCALIZATION_HTTP_SERVER_NAME);
    out->search_label = localization_get(LOCALIZATION_HTTP_SEARCH_LABEL);
    out->one_result = localization_get(LOCALIZATION_HTTP_ONE_RESULT);
    out->results = localization_get(LOCALIZATION_HTTP_RESULTS);
    out->results_range = localization_get(LOCALIZATION_HTTP_RESULTS_RANGE);
    out->name = localization_get(LOCALIZATION_COLUMN_NAME);
    out->path = localization_get(LOCALIZATION_COLUMN_PATH);
    out->size = localization_get(LOCALIZATION_COLUMN_SIZE);
    out->date_modified = localization_get(LOCALIZATION_COLUMN_DATE_MODIFIED);
    out->previous = localization_get(LOCALIZATION_HTTP_PREVIOUS);
    out->next = localization_get(LOCALIZATION_HTTP_NEXT);
    out->index_of = localization_get(LOCALIZATION_HTTP_INDEX_OF);
    out->up = localization_get(LOCALIZATION_HTTP_UP);
}

static void _http_server_fill(http_server_params_t *out, const _http_server_texts_t *texts,
                              const char *instance) {
    *out = {};
    out->bindings = texts->bindings.data;
    out->port = static_cast<u32>(http_server_port);
    out->username = http_server_username;
    out->password = http_server_password;
    out->home = texts->home.data;
    out->default_page = http_server_default_page;
    out->allow_file_download = http_server_allow_file_download != 0;
    out->items_per_page = http_server_items_per_page > 0 ? static_cast<u32>(http_server_items_per_page) : 0;
    out->host_names = texts->host_names.data;
    out->log_filename = texts->log_filename.data;
    out->log_max_size = http_server_log_max_size;
    out->log_delta_size = http_server_log_delta_size;
    out->title_variables = {"", instance, FINDWRIGHT_VERSION, localization_get(LOCALIZATION_PROGRAM_NAME)};
    out->title_format = _http_server_get_title_format(&out->title_variables);
    _http_server_fill_texts(&out->texts);
    out->listener_texts = {
        localization_get(LOCALIZATION_HTTP_LOOKUP_FAILED), localization_get(LOCALIZATION_HTTP_SOCKET_FAILED),
        localization_get(LOCALIZATION_HTTP_BIND_FAILED), localization_get(LOCALIZATION_HTTP_LISTEN_FAILED)};
}

// What the user has to set, and where.
static void _http_server_ask_for_password(_http_server_texts_t *texts) {
    config_get_path(false, &texts->message);
    config_path_to_text(&texts->name, texts->message.data);
    utf8_buf_printf(&texts->error, localization_get(LOCALIZATION_HTTP_NEEDS_PASSWORD), texts->bindings.data,
                    texts->name.data);
}

static constexpr i32 PORT_MAX = 65535;

static bool _http_server_start(db_t *db, const char *instance, _http_server_texts_t *texts) {
    if (http_server_port < 0 || http_server_port > PORT_MAX) {
        utf8_buf_printf(&texts->error, localization_get(LOCALIZATION_HTTP_NO_PORT), http_server_port);
        return false;
    }
    const bool has_password = *http_server_password || http_server_allow_no_password;
    if (!http_server_get_bindings(http_server_bindings, has_password, http_server_is_private,
                                  &texts->bindings)) {
        _http_server_ask_for_password(texts);
        return false;
    }
    _http_server_get_home(&texts->home);
    _http_server_get_log_filename(&texts->log_filename);
    _http_server_get_host_names(&texts->host_names);
    http_server_params_t params;
    _http_server_fill(&params, texts, instance);
    return http_server_start(db, &params, &texts->error);
}

// One line, where somebody reads what the program writes.
static void _http_server_tell_address(_http_server_texts_t *texts) {
    static constexpr int STANDARD_ERROR = 2;
    http_server_get_url(&texts->name);
    utf8_buf_printf(&texts->message, localization_get(LOCALIZATION_HTTP_ONLINE), texts->name.data);
    debug_printf("%s\n", texts->message.data);
    utf8_buf_cat_byte(&texts->message, '\n');
    os_console_write(STANDARD_ERROR, texts->message.data, static_cast<u32>(texts->message.length));
}

bool http_server_settings_start(db_t *db, const char *instance) {
    _http_server_texts_t texts;
    _http_server_for_each_text(&texts, utf8_buf_init);
    const bool is_running = _http_server_start(db, instance, &texts);
    if (texts.error.length != 0)
        os_show_message(texts.error.data);
    if (is_running)
        _http_server_tell_address(&texts);
    _http_server_for_each_text(&texts, utf8_buf_kill);
    return is_running;
}

} // namespace findwright
