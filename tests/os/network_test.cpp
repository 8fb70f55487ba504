#include "network_test_support.h"

#include <cstring>

using namespace findwright;

namespace {

class network_test : public testing::Test {
  protected:
    void SetUp() override { ASSERT_TRUE(network.is_started); }
    test_network_t network;
};

bool parse(const std::string &text, network_address_t *out) {
    return network_parse_address(text.data(), static_cast<u32>(text.size()), 8080, out);
}

TEST_F(network_test, addresses_are_read_and_written) {
    struct {
        const char *text, *written;
        bool is_loopback, is_any;
    } cases[] = {
        {"127.0.0.1", "127.0.0.1", true, false},
        {"127.200.3.4", "127.200.3.4", true, false},
        {"0.0.0.0", "0.0.0.0", false, true},
        {"192.168.1.20", "192.168.1.20", false, false},
        {"::1", "::1", true, false},
        {"[::1]", "::1", true, false},
        {"::", "::", false, true},
        {"2001:DB8:0::7", "2001:db8::7", false, false},
        {"::ffff:127.0.0.1", "127.0.0.1", true, false},
        {"::ffff:0.0.0.0", "0.0.0.0", false, true},
        {"::2", "::2", false, false},
        {"1::", "1::", false, false},
    };
    utf8_buf_t text;
    utf8_buf_init(&text);
    for (const auto &entry : cases) {
        SCOPED_TRACE(entry.text);
        network_address_t address;
        ASSERT_TRUE(parse(entry.text, &address));
        network_address_to_text(&address, &text);
        EXPECT_STREQ(text.data, entry.written);
        EXPECT_EQ(network_address_get_port(&address), 8080u);
        network_address_set_port(&address, 65535);
        EXPECT_EQ(network_address_get_port(&address), 65535u);
        EXPECT_EQ(network_address_is_loopback(&address), entry.is_loopback);
        EXPECT_EQ(network_address_is_any(&address), entry.is_any);
    }
    utf8_buf_kill(&text);
    network_address_t address;
    for (const std::string &wrong :
         {std::string(), std::string("localhost"), std::string("127.1"), std::string("1.2.3.4.5"),
          std::string("1.2.3.256"), std::string("0x7f.0.0.1"), std::string("127.0.0.1 "),
          std::string("[127.0.0.1]"), std::string("[::1"), std::string("::1]"), std::string("[]"),
          std::string("127.0.0.1:80"), std::string("127.0.0.1\0x", 11), std::string(300, '1'),
          std::string("::1%no-such-interface"), std::string("1::2::3")})
        EXPECT_FALSE(parse(wrong, &address)) << wrong;
}

TEST_F(network_test, hosts_are_told_apart_whatever_form_they_come_in) {
    struct {
        const char *a, *b;
        bool is_same;
    } cases[] = {
        {"127.0.0.1", "::ffff:127.0.0.1", true},
        {"::1", "[::1]", true},
        {"127.0.0.1", "127.0.0.2", false},
        {"::1", "127.0.0.1", false},
        {"0.0.0.0", "::", false},
        {"fe80::1%1", "fe80::1%2", false},
        {"fe80::1%1", "fe80::1%1", true},
        {"10.0.0.1", "a00::", false},
    };
    for (const auto &entry : cases) {
        network_address_t a, b;
        ASSERT_TRUE(parse(entry.a, &a) && parse(entry.b, &b)) << entry.a << " " << entry.b;
        network_address_set_port(&b, 1);
        EXPECT_EQ(network_address_is_same_host(&a, &b), entry.is_same) << entry.a << " " << entry.b;
    }
}

TEST_F(network_test, names_are_looked_up) {
    network_address_t found[NETWORK_ADDRESSES];
    i32 error = 0;
    u32 count = network_lookup("localhost", 80, false, found, NETWORK_ADDRESSES, &error);
    ASSERT_GE(count, 1u);
    for (u32 i = 0; i < count; i++)
        EXPECT_TRUE(network_address_is_loopback(&found[i]));
    EXPECT_EQ(network_lookup("localhost", 80, false, found, 1, &error), 1u);
    count = network_lookup("", 80, true, found, NETWORK_ADDRESSES, &error);
    ASSERT_GE(count, 1u);
    for (u32 i = 0; i < count; i++)
        EXPECT_TRUE(network_address_is_any(&found[i]) && network_address_get_port(&found[i]) == 80);
    EXPECT_EQ(network_lookup("no such host", 80, false, found, NETWORK_ADDRESSES, &error), 0u);
    utf8_buf_t text;
    utf8_buf_init(&text);
    network_lookup_error_text(error, &text);
    EXPECT_GT(text.length, 3) << error;
    utf8_buf_kill(&text);
}

TEST_F(network_test, both_ends_know_each_other) {
    for (const char *host : {"127.0.0.1", "::1"}) {
        test_listener_t listener(host);
        if (!listener.socket && std::strcmp(host, "::1") == 0)
            continue; // this machine has no IPv6
        end_t client;
        std::unique_ptr<end_t> server;
        listener.make_pair(&client, &server);
        EXPECT_EQ(client.error, 0u);
        network_address_t local, peer;
        ASSERT_TRUE(network_get_local_address(client.socket, &local));
        ASSERT_TRUE(network_get_peer_address(server->socket, &peer));
        EXPECT_EQ(network_address_get_port(&local), network_address_get_port(&peer));
        EXPECT_TRUE(network_address_is_same_host(&local, &listener.address));
        EXPECT_TRUE(network_printf(client.socket, "%d bottles", 99));
        EXPECT_TRUE(network_send_all(server->socket, "hello", 5));
        EXPECT_TRUE(network_send_all(server->socket, nullptr, 0));
        wait_until([&] { return server->received == "99 bottles" && client.received == "hello"; });
    }
}

TEST_F(network_test, a_port_belongs_to_one_listener) {
    test_listener_t listener;
    u32 error = 0;
    const char *failed = nullptr;
    EXPECT_EQ(network_listen(&listener.address, test_listener_t::proc, nullptr, &error, &failed), nullptr);
    EXPECT_NE(error, 0u);
    EXPECT_FALSE(network_error_is_no_family(error));
    EXPECT_STREQ(failed, "bind");
    network_address_t elsewhere; // an address for documents, which no machine has
    ASSERT_TRUE(parse("192.0.2.1", &elsewhere));
    EXPECT_EQ(network_listen(&elsewhere, test_listener_t::proc, nullptr, &error, &failed), nullptr);
    EXPECT_TRUE(network_error_is_no_family(error)) << error;
}

TEST_F(network_test, a_connection_that_is_refused_says_so) {
    network_address_t address;
    {
        test_listener_t listener;
        address = listener.address;
    }
    end_t client;
    u32 error = 0;
    client.socket = network_connect(&address, end_t::proc, &client, &error);
    if (client.socket)
        wait_until([&] { return client.connects != 0; });
    EXPECT_NE(client.socket ? client.error : error, 0u);
    if (client.socket)
        run_idle(); // and is not told of for ever
}

TEST_F(network_test, what_does_not_fit_waits_and_comes_whole) {
    test_listener_t listener;
    end_t client;
    std::unique_ptr<end_t> server;
    listener.make_pair(&client, &server);
    std::string sent(24 << 20, 0);
    for (size_t i = 0; i < sent.size(); i++)
        sent[i] = static_cast<char>(i * 7 + i / 251);
    server->takes = false;
    network_set_reading(server->socket, false);
    client.to_send = sent;
    client.ends = true;
    client.send();
    ASSERT_FALSE(client.to_send.empty());
    run_idle();
    EXPECT_EQ(server->reads, 0u);
    server->takes = true;
    network_set_reading(server->socket, true);
    wait_until([&] { return server->has_ended; });
    EXPECT_EQ(server->received.size(), sent.size());
    EXPECT_TRUE(server->received == sent);
    EXPECT_GT(client.writes, 0u);

    // The other way is still open, and the end is not told again.
    u32 reads = server->reads;
    network_send_all(server->socket, "thanks", 6);
    wait_until([&] { return client.received == "thanks"; });
    run_idle();
    EXPECT_EQ(server->reads, reads);
    client.close();
    run_idle();
    EXPECT_LE(server->reads, reads + 1);
}

TEST_F(network_test, a_broken_connection_is_told_of_and_then_no_more) {
    test_listener_t listener;
    for (bool is_reading : {true, false}) {
        end_t client;
        std::unique_ptr<end_t> server;
        listener.make_pair(&client, &server);
        network_set_reading(server->socket, is_reading);
        client.takes = false; // a close with bytes unread is a reset
        network_send_all(server->socket, "unread", 6);
        wait_until([&] { return client.reads != 0; });
        client.close();
        if (is_reading)
            wait_until([&] { return server->has_failed || server->has_ended; });
        run_idle(); // it would go on for ever
        EXPECT_EQ(server->reads, is_reading ? 1u : 0u);
        // A send says so at last, and does not end the program.
        server->to_send = std::string(1 << 20, 'x');
        server->has_failed = false;
        server->send();
        if (!server->has_failed)
            wait_until([&] { return server->has_failed; });
        if (!is_reading) {
            server->has_ended = server->has_failed = false;
            network_set_reading(server->socket, true);
            wait_until([&] { return server->has_failed || server->has_ended; });
        }
        run_idle();
    }
}

TEST_F(network_test, what_is_left_unread_is_told_again) {
    test_listener_t listener;
    end_t client;
    std::unique_ptr<end_t> server;
    listener.make_pair(&client, &server);
    std::string got;
    bool has_ended = false;
    server->hook = [&](u32) {
        char byte;
        i32 taken = network_receive(server->socket, &byte, 1);
        has_ended |= taken == 0;
        if (taken == 1)
            got += byte;
    };
    network_send_all(client.socket, "one at a time", 13);
    network_shutdown(client.socket);
    wait_until([&] { return has_ended; });
    EXPECT_EQ(got, "one at a time");
}

TEST_F(network_test, writing_can_be_asked_for) {
    test_listener_t listener;
    end_t client;
    std::unique_ptr<end_t> server;
    listener.make_pair(&client, &server);
    run_idle();
    EXPECT_EQ(client.writes, 0u);
    for (u32 i = 1; i <= 3; i++) {
        network_request_write(client.socket);
        EXPECT_EQ(client.writes, i - 1);
        wait_until([&] { return client.writes == i; });
        run_idle();
        EXPECT_EQ(client.writes, i);
    }
}

// Two that have something to tell; the first to be told closes the other one.
TEST_F(network_test, what_is_closed_is_not_called) {
    test_listener_t listener;
    for (u32 round = 0; round < 4; round++) {
        end_t clients[2];
        std::unique_ptr<end_t> servers[2];
        u32 calls = 0;
        for (u32 i = 0; i < 2; i++) {
            listener.make_pair(&clients[i], &servers[i]);
            servers[i]->hook = [&](u32) {
                calls++;
                servers[0]->close();
                servers[1]->close();
            };
        }
        run_idle();
        for (end_t &client : clients)
            network_send_all(client.socket, "x", 1);
        wait_until([&] { return calls != 0; });
        run_idle();
        EXPECT_EQ(calls, 1u);
    }
}

// The system gives the number of a socket that was closed to the next one.
TEST_F(network_test, a_new_socket_hears_nothing_of_one_before_it) {
    test_listener_t listener;
    for (u32 round = 0; round < 16; round++) {
        end_t old_client, client;
        std::unique_ptr<end_t> old_server, server;
        listener.make_pair(&old_client, &old_server);
        old_server->takes = false;
        network_send_all(old_client.socket, "for the old one", 15);
        network_request_write(old_server->socket);
        old_client.close();
        old_server->close();
        listener.make_pair(&client, &server);
        run_idle();
        EXPECT_EQ(server->reads + server->writes + client.reads + client.writes, 0u);
    }
}

TEST_F(network_test, a_thousand_connections_at_once) {
    static constexpr u32 COUNT = 1000;
    test_listener_t listener;
    std::vector<std::unique_ptr<end_t>> clients;
    for (u32 i = 0; i < COUNT; i++) {
        clients.push_back(std::make_unique<end_t>());
        if (!listener.connect(clients.back().get())) // a machine with few descriptors
            break;
        event_wait_and_dispatch(0);
    }
    if (clients.size() < COUNT)
        GTEST_SKIP();
    wait_until([&] { return listener.accepted.size() == COUNT; });
    for (auto &client : clients)
        wait_until([&] { return client->connects != 0; });
    for (u32 i = 0; i < COUNT; i++)
        network_printf(clients[i]->socket, "client %u", i);
    for (auto &server : listener.accepted)
        wait_until([&] { return server->received.size() >= strlen("client 0"); });
    run_idle();
    std::vector<bool> seen(COUNT);
    for (auto &server : listener.accepted)
        seen[std::stoul(server->received.substr(strlen("client ")))] = true;
    EXPECT_EQ(std::count(seen.begin(), seen.end(), true), COUNT);
    // Those that hang up are noticed, all of them.
    for (auto &client : clients)
        client->close();
    for (auto &server : listener.accepted)
        wait_until([&] { return server->has_ended || server->has_failed; });
}

TEST_F(network_test, sockets_left_open_go_with_the_last_stop) {
    static end_t left;
    ASSERT_TRUE(network_start(nullptr));
    test_listener_t listener;
    ASSERT_TRUE(listener.connect(&left));
    network_stop(); // counted: everything goes on
    wait_until([&] { return left.connects != 0; });
    left.socket = nullptr; // closed behind the test, or it is a leak
}

} // namespace
