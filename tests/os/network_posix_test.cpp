#include "network_test_support.h"

#include <algorithm>
#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

using namespace findwright;

namespace {

// The process can open so many more descriptors, until the end of the scope.
struct few_descriptors_t {
    explicit few_descriptors_t(u32 more) {
        getrlimit(RLIMIT_NOFILE, &before);
        int last = dup(0);
        rlimit limit = before;
        limit.rlim_cur = static_cast<rlim_t>(last) + more;
        setrlimit(RLIMIT_NOFILE, &limit);
        close(last);
    }
    ~few_descriptors_t() { setrlimit(RLIMIT_NOFILE, &before); }
    rlimit before;
};

TEST(network_posix, without_descriptors_a_listener_rests_and_goes_on_later) {
    test_network_t network;
    test_listener_t listener;
    end_t first, second;
    ASSERT_TRUE(listener.connect(&first));
    wait_until([&] { return listener.accepted.size() == 1; });
    ASSERT_TRUE(listener.connect(&second));
    {
        few_descriptors_t few(0);
        u32 calls = listener.calls;
        u32 start = os_get_tick_count();
        do
            event_wait_and_dispatch(10);
        while (os_get_tick_count() - start < 350000);
        EXPECT_GE(listener.calls, calls + 1);
        EXPECT_LE(listener.calls, calls + 4); // it does not spin
        EXPECT_EQ(listener.accepted.size(), 1u);
        // Those that stand are served meanwhile.
        network_send_all(first.socket, "x", 1);
        wait_until([&] { return listener.accepted[0]->received == "x"; });
    }
    wait_until([&] { return listener.accepted.size() == 2; });
    {
        few_descriptors_t few(0);
        end_t third;
        u32 error = 0;
        third.socket = network_connect(&listener.address, end_t::proc, &third, &error);
        EXPECT_EQ(third.socket, nullptr);
        EXPECT_EQ(error, static_cast<u32>(EMFILE));
        const char *failed = nullptr;
        EXPECT_EQ(network_listen(&listener.address, end_t::proc, nullptr, &error, &failed), nullptr);
        EXPECT_STREQ(failed, "socket");
    }
}

TEST(network_posix, connections_leave_descriptors_for_files) {
    test_network_t network;
    test_listener_t listener;
    std::vector<std::unique_ptr<end_t>> clients;
    for (u32 i = 0; i < 60; i++) { // both ends are of this process
        clients.push_back(std::make_unique<end_t>());
        ASSERT_TRUE(listener.connect(clients.back().get()));
    }
    {
        few_descriptors_t few(60);
        u32 start = os_get_tick_count();
        do
            event_wait_and_dispatch(10);
        while (os_get_tick_count() - start < 350000);
        EXPECT_GT(listener.accepted.size(), 5u);
        EXPECT_LT(listener.accepted.size(), clients.size());
        std::vector<int> files;
        for (u32 i = 0; i < 10; i++)
            files.push_back(dup(0));
        EXPECT_NE(files.back(), -1);
        for (int file : files)
            close(file);
    }
    wait_until([&] { return listener.accepted.size() == clients.size(); });
}

TEST(network_posix, one_that_rests_can_be_closed) {
    test_network_t network;
    end_t client;
    {
        test_listener_t listener;
        ASSERT_TRUE(listener.connect(&client));
        few_descriptors_t few(0);
        wait_until([&] { return listener.calls != 0; });
        EXPECT_TRUE(listener.accepted.empty());
    }
    u32 start = os_get_tick_count();
    while (os_get_tick_count() - start < 150000)
        event_wait_and_dispatch(50);
}

TEST(network_posix, no_descriptor_is_inherited) {
    test_network_t network;
    test_listener_t listener;
    end_t client;
    std::unique_ptr<end_t> server;
    listener.make_pair(&client, &server);
    for (network_socket_t *socket : {listener.socket, client.socket, server->socket})
        EXPECT_TRUE(fcntl(static_cast<int>(network_get_number(socket)), F_GETFD) & FD_CLOEXEC);
}

} // namespace
