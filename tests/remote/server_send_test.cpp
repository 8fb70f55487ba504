#include "os/network_test_support.h"
#include "remote/server_send.h"

using namespace findwright;

namespace {

class server_send_test : public testing::Test {
  protected:
    void SetUp() override {
        listener.make_pair(&client, &server);
        server_send_init(&send);
    }
    void TearDown() override { server_send_kill(&send); }

    test_network_t network;
    test_listener_t listener;
    end_t client;
    std::unique_ptr<end_t> server;
    server_send_t send;
};

TEST_F(server_send_test, text_and_bytes_of_others_go_out_in_their_order) {
    static const std::string picture(300000, 'p');
    std::string expected;
    u64 queued = 0;
    server_send_result_t result = SERVER_SEND_WAIT;
    server->hook = [&](u32 events) {
        if (events & NETWORK_WRITE)
            result = server_send_run(&send, server->socket);
    };
    for (u32 i = 0; i < 40; i++) {
        for (u32 row = 0; row < 3000; row++) {
            utf8_buf_cat_printf(&send.text, "row %d\n", row);
            expected += "row " + std::to_string(row) + "\n";
            server_send_flush(&send, false);
            ASSERT_LT(send.text.length, static_cast<i32>(SERVER_SEND_BLOCK));
        }
        server_send_static(&send, picture.data(), static_cast<u32>(picture.size()));
        server_send_static(&send, picture.data(), 0);
        expected += picture;
        queued += picture.size();
    }
    utf8_buf_cat_string(&send.text, "end");
    expected += "end";
    EXPECT_EQ(send.queued, expected.size() - 3);
    server_send_flush(&send, true);
    EXPECT_EQ(send.queued, expected.size());
    EXPECT_EQ(send.text.length, 0);

    client.takes = false;
    network_set_reading(client.socket, false);
    EXPECT_EQ(server_send_run(&send, server->socket), SERVER_SEND_WAIT);
    EXPECT_GT(send.queued, 0u);
    client.takes = true;
    network_set_reading(client.socket, true);
    wait_until([&] { return result == SERVER_SEND_DONE; });
    EXPECT_EQ(send.queued, 0u);
    wait_until([&] { return client.received.size() == expected.size(); });
    EXPECT_TRUE(client.received == expected);
}

TEST_F(server_send_test, a_peer_that_goes_is_a_failure) {
    static const std::string bytes(64 << 20, 'b');
    for (u32 i = 0; i < 2; i++)
        server_send_static(&send, bytes.data(), static_cast<u32>(bytes.size()));
    client.takes = false;
    network_set_reading(client.socket, false);
    server_send_result_t result = server_send_run(&send, server->socket);
    ASSERT_EQ(result, SERVER_SEND_WAIT);
    server->hook = [&](u32) { result = server_send_run(&send, server->socket); };
    client.close();
    wait_until([&] { return result == SERVER_SEND_FAILED; });
    EXPECT_EQ(server_send_run(&send, server->socket), SERVER_SEND_FAILED); // and stays one
}

TEST_F(server_send_test, nothing_to_send_is_done) {
    server_send_flush(&send, true);
    EXPECT_EQ(server_send_run(&send, server->socket), SERVER_SEND_DONE);
}

} // namespace
