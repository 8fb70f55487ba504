// One end of a connection that notes what it is told, and connections between two of them over the loopback.
#pragma once

#include "os/event.h"
#include "os/network.h"
#include "os/os.h"

#include <cstring>
#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

namespace findwright {

// Runs the main loop until it is so.
template<class T>
void wait_until(T is_so) {
    while (!is_so())
        ASSERT_TRUE(event_wait_and_dispatch(60000));
}

// Runs it until there is nothing more to do for a moment.
inline void run_idle() {
    while (event_wait_and_dispatch(50))
        ;
}

struct end_t {
    network_socket_t *socket = nullptr;
    std::string received;
    std::string to_send; // sent whenever there is room
    bool ends = false;   // shut down behind it
    bool has_ended = false;
    bool has_failed = false;
    bool takes = true; // what comes is received, or left unread
    u32 reads = 0, writes = 0, connects = 0;
    u32 error = 0;
    std::function<void(u32 events)> hook; // instead of all that

    end_t() = default;
    end_t(const end_t &) = delete;
    ~end_t() { close(); }

    void close() {
        if (socket)
            network_close(socket);
        socket = nullptr;
    }

    void send() {
        size_t sent = 0;
        while (sent < to_send.size()) {
            i32 taken = network_send(socket, to_send.data() + sent, static_cast<u32>(to_send.size() - sent));
            has_failed |= taken == NETWORK_FAILED;
            if (taken < 0)
                break;
            sent += static_cast<size_t>(taken);
        }
        to_send.erase(0, sent);
        if (to_send.empty() && ends)
            network_shutdown(socket);
    }

    void receive() {
        static char bytes[65536];
        i32 taken = network_receive(socket, bytes, sizeof bytes);
        has_ended |= taken == 0;
        has_failed |= taken == NETWORK_FAILED;
        if (taken > 0)
            received.append(bytes, static_cast<size_t>(taken));
    }

    static void proc(void *param, u32 events) {
        auto *end = static_cast<end_t *>(param);
        end->reads += (events & NETWORK_READ) != 0;
        end->writes += (events & NETWORK_WRITE) != 0;
        end->connects += (events & NETWORK_CONNECT) != 0;
        if (events & NETWORK_CONNECT)
            end->error = network_get_error(end->socket);
        if (end->hook) {
            end->hook(events);
            return;
        }
        if (events & NETWORK_WRITE)
            end->send();
        if ((events & NETWORK_READ) && end->takes)
            end->receive();
        else if (events & NETWORK_READ)
            network_set_reading(end->socket, false); // it would be told for ever
    }
};

// A listener that takes every connection into an end of its own.
struct test_listener_t {
    network_socket_t *socket = nullptr;
    network_address_t address = {};
    std::vector<std::unique_ptr<end_t>> accepted;
    u32 calls = 0;

    explicit test_listener_t(const char *host = "127.0.0.1") {
        u32 error;
        network_address_t asked;
        if (network_parse_address(host, static_cast<u32>(strlen(host)), 0, &asked))
            socket = network_listen(&asked, proc, this, &error, nullptr);
        if (socket)
            network_get_local_address(socket, &address);
    }
    test_listener_t(const test_listener_t &) = delete;
    ~test_listener_t() {
        if (socket)
            network_close(socket);
    }

    static void proc(void *param, u32) {
        auto *listener = static_cast<test_listener_t *>(param);
        listener->calls++;
        auto end = std::make_unique<end_t>();
        end->socket = network_accept(listener->socket, end_t::proc, end.get());
        if (end->socket)
            listener->accepted.push_back(std::move(end));
    }

    bool connect(end_t *client) {
        u32 error;
        client->socket = network_connect(&address, end_t::proc, client, &error);
        return client->socket != nullptr;
    }
    // Both ends of a new connection.
    void make_pair(end_t *client, std::unique_ptr<end_t> *server) {
        ASSERT_TRUE(connect(client));
        wait_until([&] { return client->connects && !accepted.empty(); });
        *server = std::move(accepted.back());
        accepted.pop_back();
    }
};

struct test_network_t {
    test_network_t() { is_started = network_start(nullptr); }
    ~test_network_t() {
        if (is_started)
            network_stop();
    }
    bool is_started;
};

} // namespace findwright
