// A client of the server in the test's own main loop, and a server over a folder or a made-up volume.
#pragma once

#include "../os/os_test_support.h"
#include "base/mem.h"
#include "os/event.h"
#include "os/network.h"
#include "remote/http_server.h"
#include "support/folder_world.h"
#include "support/test_db.h"

#include <gtest/gtest.h>
#include <memory>
#include <string>

namespace findwright {

// One connection. It sends at once what it can, and takes what comes, unless it is told to leave it.
struct http_client_t {
    network_socket_t *socket;
    std::string unsent, received;
    bool is_closed = false;

    explicit http_client_t(const std::string &request = "", u32 port = http_server_get_port())
        : unsent(request) {
        network_address_t address;
        u32 error;
        EXPECT_TRUE(network_parse_address("127.0.0.1", 9, port, &address));
        socket = network_connect(&address, _http_client_proc, this, &error);
        EXPECT_NE(socket, nullptr) << error;
    }
    ~http_client_t() { close(); }
    http_client_t(const http_client_t &) = delete;
    http_client_t &operator=(const http_client_t &) = delete;

    void close() {
        if (socket)
            network_close(socket);
        socket = nullptr;
    }
    void send(const std::string &text) {
        unsent += text;
        if (is_connected)
            flush();
    }
    // Leaves in the system's buffers what comes from now on, or takes it again.
    void set_reading(bool is_on) {
        is_reading = is_on;
        network_set_reading(socket, is_on);
    }
    bool wait_closed(u32 limit = 30000) {
        return wait([this] { return is_closed; }, limit);
    }
    template<class Condition>
    static bool wait(Condition condition, u32 limit = 30000) {
        const u64 end = os_get_file_time() + u64{limit} * 10000;
        while (!condition() && os_get_file_time() < end)
            event_wait_and_dispatch(10);
        return condition();
    }
    u32 status() const {
        return received.compare(0, 9, "HTTP/1.0 ") == 0 ? static_cast<u32>(std::stoul(received.substr(9, 3)))
                                                        : 0;
    }
    std::string head() const { return received.substr(0, received.find("\r\n\r\n") + 2); }
    std::string body() const {
        const size_t end = received.find("\r\n\r\n");
        return end == std::string::npos ? "" : received.substr(end + 4);
    }

  private:
    bool is_connected = false, is_reading = true;

    void flush() {
        const i32 sent =
            unsent.empty() ? 0 : network_send(socket, unsent.data(), static_cast<u32>(unsent.size()));
        if (sent > 0)
            unsent.erase(0, static_cast<size_t>(sent));
        if (sent == NETWORK_FAILED)
            is_closed = true;
        if (sent > 0 && !unsent.empty())
            flush();
    }
    static void _http_client_proc(void *param, u32 events) {
        auto *client = static_cast<http_client_t *>(param);
        if (events & NETWORK_CONNECT) {
            client->is_connected = network_get_error(client->socket) == 0;
            client->is_closed = !client->is_connected;
        }
        if (client->is_connected && events & (NETWORK_CONNECT | NETWORK_WRITE))
            client->flush();
        if (!(events & NETWORK_READ) || !client->is_reading)
            return;
        static char bytes[65536];
        const i32 taken = network_receive(client->socket, bytes, sizeof bytes);
        if (taken > 0)
            client->received.append(bytes, static_cast<size_t>(taken));
        if (taken == 0 || taken == NETWORK_FAILED) {
            client->is_closed = true;
            network_set_reading(client->socket, false);
        }
    }
};

inline http_server_params_t http_test_params() {
    http_server_params_t params = {};
    params.bindings = "127.0.0.1";
    params.username = params.password = params.home = params.default_page = "";
    params.allow_file_download = true;
    params.items_per_page = 32;
    params.title_format = "$s?{$s - }$t";
    params.host_names = "testbox";
    params.log_filename = "";
    params.title_variables = {"", "", "", "Findwright"};
    params.texts = {"Findwright",  "Findwright HTTP Server",
                    "Search",      "1 result",
                    "%s results",  "%s - %s of %s results",
                    "Name",        "Path",
                    "Size",        "Date modified",
                    "Previous",    "Next",
                    "Index of %s", "Up"};
    params.listener_texts = {"lookup %s: %s", "socket %s: %s", "bind %s: %s", "listen %s: %s"};
    return params;
}

// The whole of an answer.
inline std::string http_fetch_raw(const std::string &request) {
    http_client_t client(request);
    EXPECT_TRUE(client.wait_closed()) << request.substr(0, 200) << " got " << client.received.substr(0, 200);
    return client.received;
}
struct http_answer_t {
    u32 status;
    std::string head, body;
};
inline http_answer_t http_fetch(const std::string &url, const std::string &more = "") {
    http_client_t client("GET " + url + " HTTP/1.1\r\nHost: 127.0.0.1\r\n" + more + "\r\n");
    EXPECT_TRUE(client.wait_closed()) << url << " got " << client.received.substr(0, 200);
    return {client.status(), client.head(), client.body()};
}

} // namespace findwright
