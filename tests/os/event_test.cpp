#include "os/event.h"
#include "os_test_support.h"

#include <algorithm>
#include <utility>
#include <vector>

using namespace findwright;

namespace {

std::vector<int> ran;

void record_proc(void *param) {
    ran.push_back(*static_cast<int *>(param));
}

void other_proc(void *param) {
    ran.push_back(-*static_cast<int *>(param));
}

int one = 1, two = 2, three = 3;

void posting_proc(void *) {
    ran.push_back(0);
    event_post(record_proc, &three);
    event_remove(record_proc, &two);
}

class event_test : public testing::Test {
  protected:
    void SetUp() override { ran.clear(); }
    void TearDown() override { event_dispatch(); }
};

TEST_F(event_test, runs_in_order_and_what_events_post_in_the_same_dispatch) {
    event_post(record_proc, &one);
    event_post(posting_proc, nullptr);
    event_post(record_proc, &two); // removed by the one before
    event_post(other_proc, &two);
    event_dispatch();
    EXPECT_EQ(ran, (std::vector<int>{1, 0, -2, 3}));
    EXPECT_FALSE(event_wait_and_dispatch(0) && event_wait_and_dispatch(0)); // at most the wake-up is left
}

TEST_F(event_test, remove_takes_all_of_one_pair) {
    struct {
        std::vector<std::pair<event_proc_t *, int *>> posted;
        std::vector<int> expected;
    } cases[] = {
        {{}, {}},
        {{{record_proc, &one}}, {}},
        {{{other_proc, &one}, {record_proc, &two}}, {-1, 2}},
        {{{record_proc, &one}, {record_proc, &one}, {other_proc, &one}}, {-1}},
        {{{other_proc, &one}, {record_proc, &one}, {record_proc, &two}, {record_proc, &one}}, {-1, 2}},
    };
    for (const auto &entry : cases) {
        ran.clear();
        for (auto [proc, param] : entry.posted)
            event_post(proc, param);
        event_remove(record_proc, &one);
        event_post(record_proc, &three); // the ends of the queue are still linked
        event_dispatch();
        std::vector<int> expected = entry.expected;
        expected.push_back(3);
        EXPECT_EQ(ran, expected);
    }
}

constexpr u32 POSTERS = 4;
constexpr u32 POSTS = 1000;
u32 last_of_poster[POSTERS];
u32 total;

struct post_t {
    u32 poster;
    u32 number;
};

void posted_proc(void *param) {
    auto *post = static_cast<post_t *>(param);
    EXPECT_EQ(post->number, ++last_of_poster[post->poster]);
    total++;
}

void poster_proc(void *param) {
    for (u32 i = 0; i < POSTS; i++)
        event_post(posted_proc, static_cast<post_t *>(param) + i);
}

TEST_F(event_test, workers_wake_the_waiting_main_thread) {
    std::vector<post_t> posts(POSTERS * POSTS);
    os_thread_t *threads[POSTERS];
    for (u32 i = 0; i < POSTERS; i++) {
        for (u32 j = 0; j < POSTS; j++)
            posts[i * POSTS + j] = {i, j + 1};
        threads[i] = os_thread_create(poster_proc, &posts[i * POSTS]);
    }
    while (total < POSTERS * POSTS)
        ASSERT_TRUE(event_wait_and_dispatch(60000)) << total;
    for (os_thread_t *thread : threads)
        os_thread_release(thread, OS_INFINITE);
}

TEST_F(event_test, wait_ends_with_the_time_out) {
    while (event_wait_and_dispatch(0))
        ;
    u32 start = os_get_tick_count();
    EXPECT_FALSE(event_wait_and_dispatch(30));
    EXPECT_GE(os_get_tick_count() - start, 28000u);
}

// Waits until so many have run.
void wait_for(size_t count) {
    while (ran.size() < count)
        ASSERT_TRUE(event_wait_and_dispatch(60000)) << ran.size();
}

TEST_F(event_test, alarms_run_in_the_order_of_their_times_and_never_early) {
    u32 start;
    do { // until all of it was done before the first one was due
        for (int *param : {&one, &two, &three}) {
            event_remove(record_proc, param);
            event_remove(other_proc, param);
        }
        ran.clear();
        start = os_get_tick_count();
        event_post_after(80, record_proc, &three);
        event_post_after(40, other_proc, &one);
        event_post_after(40, record_proc, &two); // the same time: in the order of posting
        event_post_after(20, record_proc, &one);
        event_post_after(0, other_proc, &three);
        event_dispatch();
    } while (os_get_tick_count() - start >= 20000);
    EXPECT_EQ(ran, (std::vector<int>{-3}));
    wait_for(2);
    EXPECT_GE(os_get_tick_count() - start, 19000u);
    wait_for(5);
    EXPECT_GE(os_get_tick_count() - start, 79000u);
    EXPECT_EQ(ran, (std::vector<int>{-3, 1, -1, 2, 3}));
    // The timer has nothing more to say.
    while (event_wait_and_dispatch(0))
        ;
    EXPECT_FALSE(event_wait_and_dispatch(50));
}

TEST_F(event_test, removed_alarms_do_not_run_and_the_next_one_is_waited_for) {
    event_post_after(1, record_proc, &one);
    event_post_after(30, record_proc, &two);
    event_post_after(1, record_proc, &one);
    event_post_after(60000, record_proc, &three);
    event_remove(record_proc, &one);
    wait_for(1);
    EXPECT_EQ(ran, (std::vector<int>{2}));
    event_remove(record_proc, &three);
    while (event_wait_and_dispatch(0))
        ;
    EXPECT_FALSE(event_wait_and_dispatch(50));
}

void alarming_proc(void *) {
    event_post_after(400, record_proc, &one);
    event_post_after(10, record_proc, &two);
}

TEST_F(event_test, alarms_of_workers_end_the_wait) {
    event_post_after(60000, record_proc, &three);
    os_thread_t *thread = os_thread_create(alarming_proc, nullptr);
    wait_for(2);
    os_thread_release(thread, OS_INFINITE);
    EXPECT_EQ(ran, (std::vector<int>{2, 1}));
    event_remove(record_proc, &three);
}

u32 rounds;

void round_proc(void *) {
    rounds++;
    event_post_after(1, round_proc, nullptr);
}

TEST_F(event_test, an_alarm_that_posts_itself_leaves_the_dispatch) {
    round_proc(nullptr);
    while (rounds < 3)
        ASSERT_TRUE(event_wait_and_dispatch(60000));
    event_remove(round_proc, nullptr);
}

TEST_F(event_test, trace_logs_each_event) {
    log_capture_t log;
    message_trace = 1;
    event_post(record_proc, &one);
    event_dispatch();
    message_trace = 0;
    event_post(record_proc, &one);
    event_dispatch();
    std::string text = log.take();
    EXPECT_EQ(text.rfind("EVENT: ", 0), 0u) << text;
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 1) << text;
}

} // namespace
