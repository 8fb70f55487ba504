#include "os/network_test_support.h"
#include "os/os_test_support.h"
#include "remote/server_log.h"

using namespace findwright;

namespace {

struct test_log_t {
    temp_folder_t folder;
    std::string name = folder / "new folder\\log.txt";
    server_log_t log;

    explicit test_log_t(i32 max_size = 0, i32 delta_size = 0) {
        server_log_init(&log, name.c_str(), max_size, delta_size);
    }
    test_log_t(const test_log_t &) = delete;
    ~test_log_t() { server_log_kill(&log); }

    // What the log holds once all is written.
    std::string end() {
        server_log_kill(&log);
        return read_file(name);
    }
    void restart(i32 max_size, i32 delta_size) {
        server_log_kill(&log);
        server_log_init(&log, name.c_str(), max_size, delta_size);
    }
    void put(const std::string &text) {
        os_make_folders_for(name.c_str());
        write_file(name, text);
    }
};

TEST(server_log, a_record_is_a_line_with_its_time_and_peer) {
    test_network_t network;
    test_listener_t listener;
    test_log_t test;
    server_log_printf(&test.log, nullptr, nullptr, "%s online.\r\n", "server");
    server_log_printf(&test.log, listener.socket, "127.0.0.1", "GET /?search=%s\n", "x");
    server_log_printf(&test.log, listener.socket, "::1", "no end");
    server_log_printf(&test.log, nullptr, nullptr, "");
    std::string number = std::to_string(network_get_number(listener.socket));
    const std::string lines[] = {"server online.", number + ": 127.0.0.1: GET /?search=x",
                                 number + ": ::1: no end", ""};
    std::string written = test.end();
    size_t at = 0;
    for (const std::string &line : lines) {
        std::string date = written.substr(at, 21);
        for (char &c : date)
            c = c >= '0' && c <= '9' ? '0' : c;
        EXPECT_EQ(date, "0000-00-00 00:00:00: ");
        EXPECT_EQ(written.substr(at + 21, line.size() + 2), line + "\r\n");
        at += 21 + line.size() + 2;
    }
    EXPECT_EQ(at, written.size());
}

// All of it, the last line apart, is one line of harmless text.
TEST(server_log, what_clients_send_cannot_give_orders) {
    struct {
        std::string text, written;
    } cases[] = {
        {"a\r\nb\rc\nd\r\n", "a??b?c?d"},
        {"\x1B[31mred\x07\x7F\t", "?[31mred???"},
        {"gr\xC3\xBC\xC3\x9F \xE6\x97\xA5 \xF0\x9F\x94\x8D",
         "gr\xC3\xBC\xC3\x9F \xE6\x97\xA5 \xF0\x9F\x94\x8D"},
        {"\xC2\x9B\x35m", "??5m"},                   // CSI as one character
        {"\x9B\x35m\xFF\xC3", "?5m??"},              // and as one byte; the beginning of a character
        {"\xE0\x1B[m", "??[m"},                      // ESC in the place of a byte that goes on
        {"\xC0\x9B[m \xE0\x80\x9B[m", "??[m ???[m"}, // ESC in more bytes than it takes
        {"%s%d%n", "%s%d%n"},
    };
    for (const auto &entry : cases) {
        test_log_t test;
        server_log_printf(&test.log, nullptr, nullptr, "%s", entry.text.c_str());
        std::string written = test.end();
        ASSERT_GT(written.size(), 23u);
        written = written.substr(21, written.size() - 23);
        EXPECT_EQ(written, entry.written);
        for (char c : written)
            EXPECT_FALSE(static_cast<u8>(c) < 0x20 || static_cast<u8>(c) == 0x7F) << written;
    }
}

TEST(server_log, records_are_gathered_and_written_by_themselves) {
    test_log_t test;
    server_log_printf(&test.log, nullptr, nullptr, "first\n");
    server_log_printf(&test.log, nullptr, nullptr, "second\n");
    EXPECT_EQ(read_file(test.name), "(none)");
    wait_until([&] { return test.log.text.length == 0; });
    std::string written = read_file(test.name);
    EXPECT_NE(written.find("second"), std::string::npos);
    // And at once when there is much.
    for (u32 i = 0; i < 2000; i++)
        server_log_printf(&test.log, nullptr, nullptr, "a record of some length, number %u\n", i);
    EXPECT_GT(read_file(test.name).size(), 65536u);
    EXPECT_LT(test.log.text.length, 65536);
    std::string all = test.end();
    EXPECT_EQ(all.substr(0, written.size()), written);
    EXPECT_NE(all.find("number 1999\r\n"), std::string::npos);
    EXPECT_EQ(std::count(all.begin(), all.end(), '\n'), 2002);
}

TEST(server_log, a_long_log_is_cut_at_a_line) {
    // Lines of 10 bytes, so that every tenth byte is a start.
    std::string old;
    for (u32 i = 0; i < 100; i++)
        old += "line " + std::to_string(1000 + i) + "\n";
    struct {
        i32 max_size, delta_size;
        size_t kept;
    } cases[] = {
        {1000, 300, 700}, // to the byte
        {1000, 301, 690}, // a line in the way is dropped whole
        {1000, 309, 690}, {1000, 310, 690},   {1000, 1, 990},  {999, 1, 990},     {500, 100, 400},
        {1000, 1000, 0},  {1000, 995, 0},     {1000, 990, 10}, {1001, 300, 1000}, // not yet too long
        {0, 300, 1000}, // sizes that make no sense leave it alone
        {1000, 0, 1000},  {1000, 1001, 1000}, {-5, -10, 1000},
    };
    for (const auto &entry : cases) {
        SCOPED_TRACE(std::to_string(entry.max_size) + " " + std::to_string(entry.delta_size));
        test_log_t test(entry.max_size, entry.delta_size);
        test.put(old);
        server_log_printf(&test.log, nullptr, nullptr, "new");
        std::string written = test.end();
        ASSERT_EQ(written.size(), entry.kept + 26);
        EXPECT_EQ(written.substr(0, entry.kept), old.substr(old.size() - entry.kept));
        EXPECT_FALSE(os_file_exists((test.name + ".tmp").c_str()));
    }
}

TEST(server_log, a_log_of_one_endless_line_and_one_of_many_blocks_are_cut) {
    test_log_t test(100000, 50000);
    test.put(std::string(400000, 'x'));
    server_log_printf(&test.log, nullptr, nullptr, "new");
    EXPECT_EQ(test.end().size(), 26u);
    std::string old;
    while (old.size() < 400000)
        old += std::string(299, 'y') + "\n";
    test.put(old);
    test.restart(300000, 1000);
    server_log_printf(&test.log, nullptr, nullptr, "new");
    std::string written = test.end();
    EXPECT_EQ(written.size(), 298800u + 26); // of 299,000 bytes the whole lines
    EXPECT_EQ(written.substr(0, 298800), old.substr(old.size() - 298800));
    // It stays below the size from now on.
    for (u32 i = 0; i < 3000; i++) {
        if (i % 100 == 0)
            test.restart(20000, 5000); // which writes
        server_log_printf(&test.log, nullptr, nullptr, "record %u", i);
    }
    EXPECT_LT(test.end().size(), 20000u + 100 * 40);
}

TEST(server_log, one_that_cannot_be_written_is_told_of_once) {
    log_capture_t debug;
    test_log_t test;
    os_make_folders_for((test.name + "\\x").c_str()); // a folder in its place
    for (u32 i = 0; i < 3; i++) {
        server_log_printf(&test.log, nullptr, nullptr, "record");
        wait_until([&] { return test.log.text.length == 0; });
    }
    server_log_kill(&test.log);
    std::string told = debug.take();
    size_t at = told.find("failed to write log");
    ASSERT_NE(at, std::string::npos);
    EXPECT_EQ(told.find("failed to write log", at + 1), std::string::npos);
    server_log_init(&test.log, "", 1, 1); // no log: nothing is kept
    server_log_printf(&test.log, nullptr, nullptr, "record");
    EXPECT_EQ(test.log.text.length, 0);
    EXPECT_FALSE(test.log.is_posted);
}

} // namespace
