// The folders of settings and data by the rules of the XDG base directories.
#include "app/config_internal.h"
#include "os/os_posix.h"

namespace findwright {

const bool config_has_app_data = false;

bool config_get_folder(config_folder_kind_t kind, utf8_buf_t *out) {
    if (kind == CONFIG_FOLDER_STATE) {
        if (!os_get_state_path(out))
            return false;
        utf8_buf_cat_string(out, "\\findwright");
        return true;
    }
    const bool is_data = kind == CONFIG_FOLDER_DATA || kind == CONFIG_FOLDER_LOCAL_DATA;
    if (!(is_data ? utf8_buf_get_local_app_data_path(out) : utf8_buf_get_app_data_path(out)))
        return false;
    utf8_buf_cat_string(out, "\\findwright");
    return true;
}

} // namespace findwright
