#include "app/startup.h"

namespace findwright {

static bool _startup_lacks(utf8_buf_t *message) {
    utf8_buf_copy_string(message, "This build has no installer");
    return false;
}

bool startup_install(const command_line_t *, utf8_buf_t *message) {
    return _startup_lacks(message);
}

bool startup_uninstall(const command_line_t *, utf8_buf_t *message) {
    return _startup_lacks(message);
}

} // namespace findwright
