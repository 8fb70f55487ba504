#include "os/network_test_support.h"
#include "remote/server_receive.h"

#include <cstring>

using namespace findwright;
using namespace std::string_literals;

namespace {

struct lines_t {
    server_receive_t receive;
    std::vector<std::string> lines;
    std::string last = "(none)"; // the line that ends it

    explicit lines_t(u32 limit = 0) { server_receive_init(&receive, limit); }
    lines_t(const lines_t &) = delete;
    ~lines_t() { server_receive_kill(&receive); }

    static bool proc(void *param, char *line, u32 length) {
        auto *lines = static_cast<lines_t *>(param);
        EXPECT_EQ(line[length], 0);
        lines->lines.emplace_back(line, length);
        std::memset(line, '#', length); // it is the procedure's to write to
        if (lines->lines.back() != lines->last)
            return true;
        server_receive_kill(&lines->receive); // as an owner does that goes
        std::memset(&lines->receive, 0xEE, sizeof lines->receive);
        return false;
    }
    server_receive_result_t feed(const std::string &bytes) {
        return server_receive_feed(&receive, bytes.data(), static_cast<u32>(bytes.size()), proc, this);
    }
    void forget() { server_receive_init(&receive, 0); }
};

TEST(server_receive, lines_come_whole_wherever_they_are_cut) {
    const std::string text = "GET / HTTP/1.0\r\nHost: x\n\n\r\nzero \0 byte\n\xFF\xFE\nno end"s;
    lines_t whole;
    EXPECT_EQ(whole.feed(text), SERVER_RECEIVE_MORE);
    EXPECT_EQ(whole.lines, (std::vector<std::string>{"GET / HTTP/1.0\r", "Host: x", "", "\r", "zero \0 byte"s,
                                                     "\xFF\xFE"}));
    for (size_t a = 0; a <= text.size(); a++) {
        for (size_t b = a; b <= text.size(); b += 5) {
            lines_t cut;
            cut.feed(text.substr(0, a));
            cut.feed(text.substr(a, b - a));
            EXPECT_EQ(cut.feed(text.substr(b)), SERVER_RECEIVE_MORE);
            ASSERT_EQ(cut.lines, whole.lines) << a << " " << b;
        }
    }
}

TEST(server_receive, a_line_has_its_limit) {
    struct {
        std::string text;
        size_t lines;
        server_receive_result_t result;
    } cases[] = {
        {std::string(10, 'x') + "\n", 1, SERVER_RECEIVE_MORE},
        {std::string(10, 'x'), 0, SERVER_RECEIVE_MORE},
        {std::string(11, 'x'), 0, SERVER_RECEIVE_LIMIT},
        {"one\n" + std::string(10, 'x') + "\n" + std::string(11, 'x') + "\nmore\n", 2, SERVER_RECEIVE_LIMIT},
    };
    for (const auto &entry : cases) {
        for (size_t piece : {size_t{1}, size_t{3}, entry.text.size()}) {
            lines_t lines(10);
            server_receive_result_t result = SERVER_RECEIVE_MORE;
            for (size_t i = 0; i < entry.text.size() && result == SERVER_RECEIVE_MORE; i += piece)
                result = lines.feed(entry.text.substr(i, piece));
            EXPECT_EQ(result, entry.result) << entry.text << " by " << piece;
            EXPECT_EQ(lines.lines.size(), entry.lines) << entry.text << " by " << piece;
            if (result == SERVER_RECEIVE_LIMIT) {
                EXPECT_EQ(lines.receive.bytes, nullptr);
            }
        }
    }
}

TEST(server_receive, a_long_line_is_held_in_little_more_than_its_length) {
    lines_t lines;
    const std::string piece(100000, 'y');
    for (u32 i = 0; i < 30; i++)
        EXPECT_EQ(lines.feed(piece), SERVER_RECEIVE_MORE);
    EXPECT_LE(lines.receive.capacity, 2 * 30 * piece.size());
    lines.feed("\nnext\n");
    ASSERT_EQ(lines.lines.size(), 2u);
    EXPECT_EQ(lines.lines[0].size(), 30 * piece.size());
    EXPECT_EQ(lines.lines[1], "next");
    EXPECT_EQ(lines.receive.bytes, nullptr); // an idle connection holds nothing
}

// Whether the last line came in one piece or not, what its procedure freed is not touched.
TEST(server_receive, the_owner_may_go_with_a_line) {
    const std::string text = "first\nend\nbehind\n";
    for (size_t cut = 0; cut < text.size() - 7; cut++) {
        lines_t lines;
        lines.last = "end";
        server_receive_result_t result = lines.feed(text.substr(0, cut));
        if (result == SERVER_RECEIVE_MORE)
            result = lines.feed(text.substr(cut));
        EXPECT_EQ(result, SERVER_RECEIVE_ENDED);
        EXPECT_EQ(lines.lines, (std::vector<std::string>{"first", "end"}));
        lines.forget();
    }
}

TEST(server_receive, a_connection_is_read_to_its_end) {
    test_network_t network;
    test_listener_t listener;
    end_t client;
    std::unique_ptr<end_t> server;
    listener.make_pair(&client, &server);
    lines_t lines;
    server_receive_result_t result = SERVER_RECEIVE_WAIT;
    server->hook = [&](u32) {
        result = server_receive_lines(&lines.receive, server->socket, lines_t::proc, &lines);
    };
    EXPECT_EQ(server_receive_lines(&lines.receive, server->socket, lines_t::proc, &lines),
              SERVER_RECEIVE_WAIT);
    const std::string text = "a byte\r\nat a time\n" + std::string(200000, 'z') + "\nrest";
    for (size_t i = 0; i < 20; i++) { // each a packet of its own
        network_send_all(client.socket, &text[i], 1);
        event_wait_and_dispatch(5);
    }
    client.to_send = text.substr(20);
    client.ends = true;
    client.send();
    wait_until([&] { return result == SERVER_RECEIVE_CLOSED; });
    EXPECT_EQ(lines.lines, (std::vector<std::string>{"a byte\r", "at a time", std::string(200000, 'z')}));
}

} // namespace
