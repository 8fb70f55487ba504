#include "os/network_test_support.h"
#include "remote/server_listener.h"

using namespace findwright;

namespace {

constexpr server_listener_texts_t TEXTS = {"lookup %s: %s", "socket %s: %s", "bind %s: %s", "listen %s: %s"};

struct test_listeners_t {
    server_listeners_t listeners = {};
    std::string error;
    std::vector<std::string> hosts;
    std::vector<std::unique_ptr<end_t>> accepted;

    test_listeners_t() = default;
    test_listeners_t(const test_listeners_t &) = delete;
    ~test_listeners_t() { server_listeners_close(&listeners); }

    static void proc(void *param, u32) {
        auto *test = static_cast<test_listeners_t *>(param);
        for (u32 i = 0; i < test->listeners.count; i++) {
            auto end = std::make_unique<end_t>();
            end->socket = network_accept(test->listeners.sockets[i], end_t::proc, end.get());
            if (end->socket)
                test->accepted.push_back(std::move(end));
        }
    }
    bool listen(const char *bindings, u32 port = 0) {
        utf8_buf_t text;
        utf8_buf_init(&text);
        bool listens = server_listen(&listeners, bindings, port, proc, this, &TEXTS, &text);
        error = text.data;
        for (u32 i = 0; i < listeners.count; i++) {
            network_address_to_text(&listeners.addresses[i], &text);
            hosts.push_back(text.data);
        }
        utf8_buf_kill(&text);
        EXPECT_EQ(listens, listeners.count != 0);
        return listens;
    }
    u32 port(u32 i = 0) const { return network_address_get_port(&listeners.addresses[i]); }
};

using hosts_t = std::vector<std::string>;

TEST(server_listener, bindings_are_listened_on) {
    test_network_t network;
    struct {
        const char *bindings;
        hosts_t hosts;
        const char *error; // what it begins with
    } cases[] = {
        {"127.0.0.1", {"127.0.0.1"}, ""},
        {" ; 127.0.0.1 ,, 127.0.0.2;", {"127.0.0.1", "127.0.0.2"}, ""},
        {"127.0.0.1; 127.0.0.1", {"127.0.0.1"}, ""},
        {"127.0.0.1; no such host; 127.0.0.2", {"127.0.0.1"}, "lookup no such host: "},
        {"192.0.2.1; 127.0.0.1", {}, "bind 192.0.2.1:0: "}, // an address of documents
        {"0.0.0.0; 127.0.0.1", {"0.0.0.0"}, ""},
    };
    for (const auto &entry : cases) {
        SCOPED_TRACE(entry.bindings);
        test_listeners_t test;
        EXPECT_EQ(test.listen(entry.bindings), !entry.hosts.empty());
        EXPECT_EQ(test.hosts, entry.hosts);
        EXPECT_EQ(test.error.substr(0, strlen(entry.error)), entry.error);
        EXPECT_EQ(test.error.empty(), !*entry.error);
        for (u32 i = 0; i < test.listeners.count; i++) {
            EXPECT_NE(test.port(i), 0u);
            EXPECT_EQ(test.port(i), test.port());
        }
    }
}

TEST(server_listener, without_bindings_all_addresses_are_heard) {
    test_network_t network;
    test_listeners_t test;
    ASSERT_TRUE(test.listen(""));
    EXPECT_EQ(test.error, "");
    size_t expected = 0;
    end_t clients[SERVER_LISTENERS];
    for (const std::string &host : test.hosts) {
        EXPECT_TRUE(host == "0.0.0.0" || host == "::");
        network_address_t address;
        u32 error;
        const char *loopback = host == "::" ? "::1" : "127.0.0.1";
        ASSERT_TRUE(network_parse_address(loopback, static_cast<u32>(strlen(loopback)),
                                          test.port(static_cast<u32>(expected)), &address));
        end_t *client = &clients[expected++];
        client->socket = network_connect(&address, end_t::proc, client, &error);
        ASSERT_TRUE(client->socket);
        wait_until([&] { return client->connects && test.accepted.size() == expected; });
    }
    EXPECT_GE(expected, 1u);
}

TEST(server_listener, a_taken_port_is_told_of_with_its_address) {
    test_network_t network;
    test_listeners_t first, second, third;
    ASSERT_TRUE(first.listen("127.0.0.1"));
    EXPECT_FALSE(second.listen("127.0.0.1; 127.0.0.2", first.port()));
    std::string start = "bind 127.0.0.1:" + std::to_string(first.port()) + ": ";
    EXPECT_EQ(second.error.substr(0, start.size()), start);
    EXPECT_GT(second.error.size(), start.size());
    // Some of it is better than nothing, and the error is still told.
    EXPECT_TRUE(third.listen("127.0.0.2; 127.0.0.1", first.port()));
    EXPECT_EQ(third.hosts, (hosts_t{"127.0.0.2"}));
    EXPECT_EQ(third.error.substr(0, start.size()), start);
}

} // namespace
