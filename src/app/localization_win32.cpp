#include "app/localization.h"
#include "os/os_win32.h"

namespace findwright {

u32 localization_get_system_language() {
    return os_optional.GetUserDefaultUILanguage ? os_optional.GetUserDefaultUILanguage()
                                                : GetUserDefaultLangID();
}

} // namespace findwright
