// Prints the page of all settings, out of the tables that the program reads and writes them by:
//
//   make_settings_page > docs/settings.md
#include "app/config.h"
#include "os/os.h"

using namespace findwright;

int main() {
    os_init();
    config_init(96);
    utf8_buf_t page;
    utf8_buf_init(&page);
    config_write_page(&page);
    const bool done = os_console_write(1, page.data, static_cast<u32>(page.length));
    utf8_buf_kill(&page);
    config_kill();
    os_kill();
    return done ? 0 : 1;
}
