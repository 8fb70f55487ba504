#include "fw/fw.h"
#include "os/os.h"

int main(int argc, char **argv) {
    findwright::os_init();
    const char *const *arguments;
    findwright::u32 count = findwright::os_get_arguments(argc, argv, &arguments);
    findwright::fw_io_t io = findwright::fw_io_console();
    int status = findwright::fw_run(count, arguments, &io);
    findwright::os_kill();
    return status;
}
