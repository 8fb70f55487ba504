#include "os/os_internal.h"
#include "os_test_support.h"

#include <algorithm>
#include <map>
#include <sstream>

using namespace findwright;

namespace {

TEST(debug_log, off_by_default_and_again) {
    temp_folder_t folder;
    std::string name = folder / "l\xC3\xB6g.txt";
    EXPECT_FALSE(debug_is_on());
    debug_printf("lost\n");
    debug_log_open(name.c_str());
    EXPECT_TRUE(debug_is_on());
    debug_printf("one %d\n", 1);
    EXPECT_EQ(read_file(name), "one 1\n"); // whole after each line
    debug_verbose_printf("quiet\n");
    debug_verbose = true;
    debug_verbose_printf("loud\n");
    debug_verbose = false;
    debug_color_printf(DEBUG_COLOR_RED, "red %s\n", "text");
    base_log("below %I64d\n", i64(-5));
    std::string longer(5000, 'x');
    debug_printf("%s\n", longer.c_str());
    debug_log_open(nullptr);
    debug_printf("lost\n");
    EXPECT_EQ(read_file(name), "one 1\nloud\nred text\nbelow -5\n" + longer + "\n");
    debug_log_open(name.c_str());
    debug_printf("appended\n");
    debug_log_open(std::string(5000, 'p').c_str()); // no such name
    EXPECT_FALSE(debug_is_on());
    std::string text = read_file(name);
    EXPECT_EQ(text.substr(text.size() - 9), "appended\n");
}

TEST(debug_log, keeps_the_error_number) {
    temp_folder_t folder;
    log_capture_t log;
    os_set_last_error(5);
    debug_printf("line\n");
    EXPECT_EQ(os_get_last_error(), 5u);
    debug_log_open((folder / "no folder\\log").c_str());
    os_set_last_error(5);
    debug_printf("line\n");
    EXPECT_EQ(os_get_last_error(), 5u);
}

constexpr u32 LINES = 200;

void line_proc(void *param) {
    auto letter = static_cast<char>('a' + *static_cast<u32 *>(param));
    for (u32 i = 0; i < LINES; i++) {
        std::string filler(i * 9, letter); // short ones and some beyond the size of one line on the stack
        debug_printf("%c %d %s\n", letter, i, filler.c_str());
    }
}

TEST(debug_log, lines_of_four_threads_are_whole) {
    log_capture_t log;
    u32 numbers[4] = {0, 1, 2, 3};
    os_thread_t *threads[4];
    for (u32 &number : numbers)
        threads[number] = os_thread_create(line_proc, &number);
    for (os_thread_t *thread : threads)
        os_thread_release(thread, OS_INFINITE);
    std::istringstream text(log.take());
    std::map<char, u32> next;
    std::string line;
    u32 count = 0;
    while (std::getline(text, line)) {
        if (line.rfind("new thread", 0) == 0)
            continue;
        char letter = line[0];
        u32 i = next[letter]++;
        ASSERT_EQ(line, std::string(1, letter) + " " + std::to_string(i) + " " + std::string(i * 9, letter));
        count++;
    }
    EXPECT_EQ(count, 4 * LINES);
}

TEST(debug_console, begins_with_what_runs_where) {
    debug_is_service = true;
    testing::internal::CaptureStderr();
    debug_console(true);
    debug_console(true); // no second time
    debug_color_printf(DEBUG_COLOR_GREEN, "green\n");
    debug_console(false);
    debug_printf("lost\n");
    std::string text = testing::internal::GetCapturedStderr();
    debug_is_service = false;
    text.erase(std::remove(text.begin(), text.end(), '\r'), text.end());
    std::istringstream lines(text);
    std::string line;
    const char *begins[] = {"Version 0.", "",          "Processors ", "IsAdmin ",
                            "AppData 0",  "Service 1", "cmdline ",    "green"};
    for (const char *begin : begins) {
        ASSERT_TRUE(std::getline(lines, line)) << text;
        EXPECT_EQ(line.rfind(begin, 0), 0u) << line;
    }
    EXPECT_FALSE(std::getline(lines, line)) << line;
}

TEST(debug_fatal_death_test, ends_with_the_whole_message) {
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    EXPECT_EXIT(debug_fatal_at("src/x.cpp", 12, "f", "failed to create event %d", 5),
                testing::ExitedWithCode(1),
                "src/x.cpp\\(12\\): f\\(\\): Fatal error: failed to create event 5");
    EXPECT_EXIT(platform.fatal("y.cpp", 3, "g", "100%d"), testing::ExitedWithCode(1),
                "y.cpp\\(3\\): g\\(\\): Fatal error: 100%d");
    std::string longer(10000, 'x');
    EXPECT_EXIT(debug_fatal("too long: %s", longer.c_str()), testing::ExitedWithCode(1),
                "Fatal error: too long: %s");
}

} // namespace
