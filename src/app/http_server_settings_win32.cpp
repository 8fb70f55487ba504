#include "app/http_server_settings.h"

namespace findwright {

const bool http_server_is_private = false;

} // namespace findwright
