#include "fw/fw_path.h"

#include "index/db_wanted.h"
#include "os/os.h"

namespace findwright {

std::string fw_path_from_user(const std::string &text) {
    // Two separators in front would read as a server's name inside.
    size_t start = 0;
    while (os_path_separator == '/' && text.compare(start, 2, "//") == 0)
        start++;
    utf8_buf_t inside, clean;
    utf8_buf_init(&inside);
    utf8_buf_init(&clean);
    os_path_from_system(text.data() + start, static_cast<u32>(text.size() - start), &inside);
    db_wanted_clean_path(inside.data, &clean);
    std::string path(clean.data, static_cast<size_t>(clean.length));
    utf8_buf_kill(&clean);
    utf8_buf_kill(&inside);
    return path;
}

bool fw_path_is_system_root(const char *name, u32 length) {
    return os_path_separator == '/' && (length == 0 || (name[0] == '\\' && (length == 1 || name[1] != '\\')));
}

void fw_name_to_user(utf8_buf_t *name) {
    utf8_buf_t system;
    utf8_buf_init(&system);
    os_path_to_system(name->data, static_cast<u32>(name->length), &system);
    utf8_buf_copy_utf8(name, system.data, static_cast<u32>(system.length));
    utf8_buf_kill(&system);
}

void fw_path_to_user(utf8_buf_t *path) {
    if (!fw_path_is_system_root(path->data, static_cast<u32>(path->length)))
        return;
    if (path->length == 0)
        utf8_buf_cat_byte(path, '/');
    else
        fw_name_to_user(path);
}

std::string fw_path_for_user(const char *path) {
    utf8_buf_t text;
    utf8_buf_init(&text);
    utf8_buf_copy_string(&text, path);
    fw_path_to_user(&text);
    std::string result(text.data, static_cast<size_t>(text.length));
    utf8_buf_kill(&text);
    return result;
}

std::string fw_system_error() {
    char text[256];
    os_error_text(os_get_last_error(), text, sizeof text);
    return text;
}

} // namespace findwright
