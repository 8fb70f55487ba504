#include "index/ntfs_volume.h"

namespace findwright {

// Volumes come from the settings alone: a device or an image is named there by its file name.
void ntfs_volume_get_system(ntfs_volume_system_t *system) {
    *system = {};
}

} // namespace findwright
