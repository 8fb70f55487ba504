// The main function of every test program: it brings the program's own base up around the tests, and fails
// the whole run when a block of the heap or of the arena is still alive behind them.
#include "base/mem.h"
#include "base/mem_ref.h"
#include "base/platform.h"
#include "base/utf8_format.h"
#include "os/os.h"

#include <cstdio>
#include <gtest/gtest.h>
#include <string>

using namespace findwright;

static void _test_log(const char *format, va_list arguments) {
    va_list again;
    va_copy(again, arguments);
    std::string line(utf8_format(nullptr, format, arguments), ' ');
    utf8_format(line.data(), format, again);
    va_end(again);
    fputs(line.c_str(), stderr);
}

int main(int argc, char **argv) {
    testing::InitGoogleTest(&argc, argv);
    size_t live_before = mem_live_count();
    os_init();
    size_t arena_before = mem_arena_used();
    int result = RUN_ALL_TESTS();

    size_t arena_left = mem_arena_used() - arena_before;
    os_kill();
    size_t live_left = mem_live_count() - live_before;
    if (live_left) {
        fprintf(stderr, "LEAK: %zu blocks of the heap\n", live_left);
        platform.log = _test_log;
        mem_report();
    }
    if (arena_left)
        fprintf(stderr, "LEAK: %zu bytes of the arena\n", arena_left);
    return live_left || arena_left ? 1 : result;
}
