#include "base/mem.h"
#include "base/mem_ref.h"
#include "os/event.h"
#include "os_test_support.h"

using namespace findwright;

namespace {

void count_proc(void *param) {
    ++*static_cast<std::atomic<u32> *>(param);
}

struct gate_t {
    os_event_t *entered = os_event_create();
    os_event_t *open = os_event_create();
    ~gate_t() {
        os_event_destroy(entered);
        os_event_destroy(open);
    }
};

void gate_proc(void *param) {
    auto *gate = static_cast<gate_t *>(param);
    os_event_set(gate->entered);
    os_event_wait(gate->open, OS_INFINITE);
}

// Starts every test with an empty pool.
class os_thread_test : public testing::Test {
  protected:
    void SetUp() override {
        os_kill();
        os_init();
    }
    void TearDown() override { reuse_threads = 1; }
};

TEST_F(os_thread_test, released_thread_is_used_again) {
    log_capture_t log;
    std::atomic<u32> runs = 0;
    for (int i = 0; i < 3; i++)
        EXPECT_EQ(os_thread_release(os_thread_create(count_proc, &runs), OS_INFINITE), OS_WAIT_DONE);
    EXPECT_EQ(runs, 3u);
    EXPECT_EQ(log.take(), "new thread (1)\n");

    // Two at once need a second one; both are kept.
    for (int i = 0; i < 2; i++) {
        os_thread_t *a = os_thread_create(count_proc, &runs);
        os_thread_t *b = os_thread_create(count_proc, &runs);
        os_thread_release(a, OS_INFINITE);
        os_thread_release(b, OS_INFINITE);
    }
    EXPECT_EQ(runs, 7u);
    EXPECT_EQ(log.take(), "new thread (2)\n");
}

TEST_F(os_thread_test, without_reuse_each_thread_ends) {
    reuse_threads = 0;
    log_capture_t log;
    std::atomic<u32> runs = 0;
    size_t live = mem_live_count();
    for (int i = 0; i < 2; i++)
        os_thread_release(os_thread_create(count_proc, &runs), OS_INFINITE);
    EXPECT_EQ(mem_live_count(), live);
    EXPECT_EQ(runs, 2u);
    EXPECT_EQ(log.take(), "new thread (1)\nnew thread (1)\n");
}

TEST_F(os_thread_test, timed_out_release_leaves_the_thread_with_its_holder) {
    gate_t gate;
    os_thread_t *thread = os_thread_create(gate_proc, &gate);
    EXPECT_EQ(os_event_wait(gate.entered, OS_INFINITE), OS_WAIT_DONE);
    EXPECT_EQ(os_thread_wait(thread, 0), OS_WAIT_TIMEOUT);
    EXPECT_EQ(os_thread_release(thread, 10), OS_WAIT_TIMEOUT);
    os_event_set(gate.open);
    EXPECT_EQ(os_thread_wait(thread, OS_INFINITE), OS_WAIT_DONE);
    EXPECT_EQ(os_thread_release(thread, OS_INFINITE), OS_WAIT_DONE);
}

// However a detached thread's proc and the detaching fall together: it is there for new work, or ended.
TEST_F(os_thread_test, detached_thread_gives_itself_back) {
    log_capture_t log;
    for (u32 reuse : {1u, 0u}) {
        reuse_threads = reuse;
        gate_t gate;
        size_t live = mem_live_count();
        std::atomic<u32> runs = 0;
        for (int i = 0; i < 200; i++) {
            os_thread_t *thread = os_thread_create(count_proc, &runs);
            if (i % 3 == 0)
                os_thread_wait(thread, OS_INFINITE);
            os_thread_detach(thread);
        }
        os_thread_t *slow = os_thread_create(gate_proc, &gate);
        os_event_wait(gate.entered, OS_INFINITE);
        os_thread_set_priority(slow, -1); // it may have to end then, since it cannot be kept
        os_thread_detach(slow);
        os_event_set(gate.open);
        os_kill(); // waits for them
        EXPECT_EQ(runs, 200u);
        os_init();
        log.take();
        os_thread_release(os_thread_create(count_proc, &runs), OS_INFINITE);
        EXPECT_EQ(log.take(), "new thread (1)\n"); // all others have ended
        os_kill();
        os_init();
        EXPECT_LE(mem_live_count(), live);
    }
}

TEST_F(os_thread_test, end_leaves_a_hanging_thread_behind) {
    log_capture_t log;
    gate_t gate;
    os_thread_t *thread = os_thread_create(gate_proc, &gate);
    os_event_wait(gate.entered, OS_INFINITE);
    os_thread_detach(thread);
    os_kill();
    os_init();
    EXPECT_EQ(log.take(), "new thread (1)\n1 threads are left behind\n");
    os_event_set(gate.open);
    os_kill();
    os_init();
    std::atomic<u32> runs = 0;
    os_thread_release(os_thread_create(count_proc, &runs), OS_INFINITE);
    EXPECT_EQ(log.take(), "new thread (1)\n"); // it came back, and was ended
}

TEST_F(os_thread_test, reused_thread_has_normal_priority) {
    for (i32 priority : {-15, -1, 0, 1}) {
        gate_t gate;
        os_thread_t *thread = os_thread_create(gate_proc, &gate);
        EXPECT_EQ(os_thread_get_priority(thread), 0);
        os_thread_set_priority(thread, priority);
        EXPECT_EQ(os_thread_get_priority(thread), priority);
        os_event_set(gate.open);
        os_thread_release(thread, OS_INFINITE);
    }
}

// Many short runs with the pool shared by several starters: what the events order must hold for
// ThreadSanitizer too.
TEST_F(os_thread_test, pool_serves_many_starters) {
    struct starter_t {
        u32 plain = 0; // written by pool threads, read by the starter behind the release
    };
    auto starter_proc = [](void *param) {
        auto *starter = static_cast<starter_t *>(param);
        for (int i = 0; i < 200; i++) {
            auto add = [](void *p) { static_cast<starter_t *>(p)->plain++; };
            os_thread_release(os_thread_create(add, starter), OS_INFINITE);
        }
    };
    starter_t starters[3];
    os_thread_t *threads[3];
    for (int i = 0; i < 3; i++)
        threads[i] = os_thread_create(starter_proc, &starters[i]);
    for (int i = 0; i < 3; i++) {
        os_thread_release(threads[i], OS_INFINITE);
        EXPECT_EQ(starters[i].plain, 200u);
    }
}

TEST_F(os_thread_test, event_wait) {
    os_event_t *event = os_event_create();
    EXPECT_FALSE(os_event_is_set(event));
    u32 start = os_get_tick_count();
    EXPECT_EQ(os_event_wait(event, 1020), OS_WAIT_TIMEOUT);
    EXPECT_GE(os_get_tick_count() - start, 1000000u);
    os_event_set(event);
    EXPECT_EQ(os_event_wait(event, 0), OS_WAIT_DONE);
    EXPECT_EQ(os_event_wait(event, OS_INFINITE), OS_WAIT_DONE); // stays set
    os_event_reset(event);
    EXPECT_FALSE(os_event_is_set(event));
    os_event_destroy(event);
}

TEST_F(os_thread_test, layer_comes_up_again) {
    std::atomic<u32> runs = 0;
    size_t live = 0;
    for (int i = 0; i < 2; i++) {
        os_thread_release(os_thread_create(count_proc, &runs), OS_INFINITE);
        event_post(count_proc, &runs);
        event_post(count_proc, nullptr); // dropped by os_kill
        event_remove(count_proc, nullptr);
        event_dispatch();
        event_post(count_proc, nullptr);
        os_kill();
        if (i == 0)
            live = mem_live_count();
        EXPECT_EQ(mem_live_count(), live);
        os_init();
        void *block = mem_arena_alloc(4096);
        std::memset(block, 1, 4096);
        mem_arena_free(block, 4096);
    }
    EXPECT_EQ(runs, 4u);
}

} // namespace
