#include "app/instance.h"

namespace findwright {

instance_result_t instance_start(const instance_params_t *, utf8_buf_t *error) {
    utf8_buf_empty(error);
    return INSTANCE_FIRST;
}

void instance_stop() {}

bool instance_listen(instance_receive_proc_t *, void *) {
    return true;
}

void instance_stop_listening() {}

} // namespace findwright
