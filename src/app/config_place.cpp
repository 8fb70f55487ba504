// Where settings and data files lie, and how paths are written in files for users.
#include "app/config_internal.h"
#include "base/mem.h"
#include "base/utf8.h"
#include "os/os.h"

#include <cstring>
#include <initializer_list>

namespace findwright {

static char *_instance;
static char *_filename;

void config_set_place(const char *instance, const char *filename) {
    _instance = utf8_replace_string(_instance, instance ? instance : "");
    _filename = utf8_replace_string(_filename, filename ? filename : "");
}

const char *config_get_filename() {
    return _filename ? _filename : "";
}

void config_kill_place() {
    for (char **text : {&_instance, &_filename}) {
        if (*text)
            mem_free(*text);
        *text = nullptr;
    }
}

// The same set on every platform, so that an instance's files can be carried over.
static bool _is_filename_byte(char c) {
    return c >= ' ' && !std::strchr("\"*/:<>?\\|", c);
}

void config_cat_instance(utf8_buf_t *out, const char *instance) {
    for (; *instance; instance++) {
        if (_is_filename_byte(*instance))
            utf8_buf_cat_byte(out, *instance);
        else
            utf8_buf_cat_printf(out, "%%%02x", static_cast<u32>(*instance));
    }
}

static void _cat_filename(utf8_buf_t *out, const char *base, const char *extension) {
    const char *instance = _instance ? _instance : "";
    utf8_buf_cat_printf(out, *instance ? "%s-" : "%s", base);
    config_cat_instance(out, instance);
    utf8_buf_cat_printf(out, ".%s", extension);
}

bool config_get_data_filename(config_folder_kind_t kind, const char *base, const char *extension,
                              utf8_buf_t *out) {
    if (!config_get_folder(kind, out))
        return false;
    utf8_buf_cat_byte(out, '\\');
    _cat_filename(out, base, extension);
    return true;
}

bool config_get_beside_settings(const char *base, const char *extension, utf8_buf_t *out) {
    if (!config_get_path(false, out))
        return false;
    const char *folder, *name;
    u32 folder_length, name_length;
    utf8_get_path_part(out->data, static_cast<u32>(out->length), &folder, &folder_length, &name,
                       &name_length);
    utf8_buf_set_length(out, static_cast<u32>(name - out->data)); // the separator stays
    _cat_filename(out, base, extension);
    return true;
}

bool config_is_app_data() {
    return !config_has_app_data || app_data;
}

bool config_get_path(bool program_folder, utf8_buf_t *out) {
    if (!program_folder && *config_get_filename()) {
        utf8_buf_copy_string(out, config_get_filename());
        return true;
    }
    return config_get_data_filename(program_folder ? CONFIG_FOLDER_PROGRAM : CONFIG_FOLDER_SETTINGS,
                                    "Findwright", "ini", out);
}

void config_path_from_text(utf8_buf_t *out, const char *text) {
    if (os_path_separator != '/' || *text != '/') {
        utf8_buf_copy_string(out, text);
        return;
    }
    // Two in front would read as a server's name inside.
    while (text[1] == '/')
        text++;
    os_path_from_system(text, utf8_length(text), out);
}

void config_path_to_text(utf8_buf_t *out, const char *path) {
    os_path_to_user(path, utf8_length(path), out);
}

} // namespace findwright
