// The folders of settings and data: the program's, or the user's application data.
#include "app/config_internal.h"

namespace findwright {

const bool config_has_app_data = true;

bool config_get_folder(config_folder_kind_t kind, utf8_buf_t *out) {
    if (kind != CONFIG_FOLDER_PROGRAM && app_data) {
        // The data of this machine alone may lie with what follows the user, but not the other way round.
        if ((kind == CONFIG_FOLDER_LOCAL_DATA && utf8_buf_get_local_app_data_path(out)) ||
            utf8_buf_get_app_data_path(out)) {
            utf8_buf_cat_string(out, "\\Findwright");
            return true;
        }
    }
    return utf8_buf_get_exe_path(out);
}

} // namespace findwright
