#include "base/mem.h"
#include "os/os_test_support.h"
#include "server_file_test_support.h"

#include <chrono>
#include <thread>

using namespace findwright;

namespace {

class server_file_test : public testing::Test, protected download_t {
  protected:
    static std::string make_text(size_t size) {
        std::string text(size, 0);
        for (size_t i = 0; i < size; i++)
            text[i] = static_cast<char>(i * 13 + i / 251 + i / 65536);
        return text;
    }
    void open(u64 start, u64 size) {
        u64 whole;
        platform_file_t opened = os_open_content((folder / "file").c_str(), &whole);
        ASSERT_NE(opened, PLATFORM_FILE_NONE);
        download_t::start(opened, start, size);
    }

    temp_folder_t folder;
};

constexpr u64 BLOCK = SERVER_FILE_BLOCK, RING = BLOCK * SERVER_FILE_BLOCKS;

struct range_t {
    size_t whole;
    u64 start, size;
};

class server_file_range_test : public server_file_test, public testing::WithParamInterface<range_t> {};

TEST_P(server_file_range_test, arrives) {
    const range_t &range = GetParam();
    std::string text = make_text(range.whole);
    write_file(folder / "file", text);
    open(range.start, range.size);
    wait_for_end();
    EXPECT_EQ(result, SERVER_FILE_DONE);
    EXPECT_EQ(client.received.size(), range.size);
    EXPECT_TRUE(client.received == text.substr(range.start, range.size));
}

INSTANTIATE_TEST_SUITE_P(ranges, server_file_range_test,
                         testing::Values(range_t{0, 0, 0}, range_t{100, 100, 0}, range_t{1, 0, 1},
                                         range_t{BLOCK, 0, BLOCK}, range_t{BLOCK + 1, 0, BLOCK + 1},
                                         range_t{BLOCK + 9, 7, BLOCK}, range_t{RING, 0, RING},
                                         range_t{RING + 1, 0, RING + 1}, range_t{RING * 3, RING - 1, 2},
                                         range_t{RING * 5 + 77, 78, RING * 5 - 1}));

TEST_F(server_file_test, a_slow_client_gets_all_of_it_in_the_same_memory) {
    std::string text = make_text(24 << 20);
    write_file(folder / "file", text);
    network_set_reading(client.socket, false);
    open(0, text.size());
    size_t before = mem_live_size();
    run_idle();
    EXPECT_EQ(result, SERVER_FILE_WAIT);
    client.hook = [&](u32) {
        client.receive();
        ASSERT_LE(mem_live_size(), before + 4096);
    };
    network_set_reading(client.socket, true);
    wait_for_end();
    EXPECT_EQ(result, SERVER_FILE_DONE);
    EXPECT_TRUE(client.received == text);
}

TEST_F(server_file_test, a_file_shorter_than_told_is_a_failure_behind_what_there_was) {
    for (u64 there : {u64{0}, u64{10}, RING + 10}) {
        std::string text = make_text(there);
        write_file(folder / "file", text);
        open(0, RING * 2);
        wait_until([&] { return result != SERVER_FILE_WAIT; });
        EXPECT_EQ(result, SERVER_FILE_READ_FAILED) << there;
    }
    open(RING * 20, 1); // behind its end
    wait_until([&] { return result != SERVER_FILE_WAIT; });
    EXPECT_EQ(result, SERVER_FILE_READ_FAILED);
}

TEST_F(server_file_test, a_client_that_goes_ends_it) {
    write_file(folder / "file", make_text(24 << 20));
    network_set_reading(client.socket, false);
    open(0, 24 << 20);
    run_idle();
    client.close();
    wait_until([&] { return result == SERVER_FILE_SEND_FAILED; });
}

// At every point of it: while the thread reads, waits for room, or has ended, and with a call posted.
TEST_F(server_file_test, it_can_be_closed_at_any_time) {
    write_file(folder / "file", make_text(RING * 4));
    server->hook = [this](u32 events) {
        if ((events & NETWORK_WRITE) && file)
            server_file_send(file);
    };
    for (u32 steps = 0; steps < 60; steps++) {
        open(0, RING * (steps % 4));
        for (u32 i = 0; i < steps / 4; i++)
            event_wait_and_dispatch(i & 1);
        if (steps < 4)
            std::this_thread::sleep_for(std::chrono::milliseconds(20)); // the thread has posted its call
        close();
    }
    run_idle();
}

TEST_F(server_file_test, sixteen_at_once_take_turns) {
    static constexpr u32 COUNT = 16;
    struct taker_t {
        end_t client;
        std::unique_ptr<end_t> server;
        server_file_t *file;
        u32 calls = 0;
    };
    std::string text = make_text(3 << 20);
    write_file(folder / "file", text);
    std::vector<std::unique_ptr<taker_t>> downloads;
    u32 left = COUNT;
    for (u32 i = 0; i < COUNT; i++) {
        downloads.push_back(std::make_unique<taker_t>());
        taker_t *it = downloads.back().get();
        listener.make_pair(&it->client, &it->server);
        it->server->hook = [&, it](u32 events) {
            if (!(events & NETWORK_WRITE) || !it->file)
                return;
            it->calls++;
            if (server_file_send(it->file) == SERVER_FILE_WAIT)
                return;
            server_file_close(it->file);
            it->file = nullptr;
            left--;
        };
        u64 size;
        platform_file_t opened = os_open_content((folder / "file").c_str(), &size);
        it->file = server_file_open(opened, 0, size, it->server->socket);
    }
    wait_until([&] { return left == 0; });
    for (auto &it : downloads) {
        wait_until([&] { return it->client.received.size() == text.size(); });
        EXPECT_TRUE(it->client.received == text);
        EXPECT_GE(it->calls, text.size() / RING);
    }
}

} // namespace
