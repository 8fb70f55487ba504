// A file on its way to a client that takes it when it likes.
#pragma once

#include "os/network_test_support.h"
#include "remote/server_file.h"

#include <memory>

namespace findwright {

struct download_t {
    server_file_t *file = nullptr; // 0: its end has come
    server_file_result_t result = SERVER_FILE_WAIT;
    test_network_t network;
    test_listener_t listener;
    end_t client;
    std::unique_ptr<end_t> server;

    download_t() {
        listener.make_pair(&client, &server);
        server->hook = [this](u32 events) {
            if (!(events & NETWORK_WRITE) || !file)
                return;
            result = server_file_send(file);
            if (result != SERVER_FILE_WAIT)
                close();
        };
    }
    ~download_t() { close(); }

    void start(platform_file_t opened, u64 start, u64 size) {
        result = SERVER_FILE_WAIT;
        file = server_file_open(opened, start, size, server->socket);
    }
    void close() {
        if (file)
            server_file_close(file);
        file = nullptr;
    }
    void wait_for_end() {
        wait_until([&] { return result != SERVER_FILE_WAIT; });
        network_shutdown(server->socket);
        wait_until([&] { return client.has_ended || client.has_failed; });
    }
};

} // namespace findwright
