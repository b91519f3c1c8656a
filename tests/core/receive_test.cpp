// The receive side: framing, bad input, the reply queue, events, and a
// connection that goes away.
#include "core/transport.h"
#include "support/arm_fixture.h"

#include <atomic>
#include <gtest/gtest.h>
#include <thread>

using namespace ka_test;
using namespace std::chrono_literals;

namespace {

const std::string get_request = R"({"command":"get_v"})";
const std::string get_reply = R"({"command":"get_v","v":9})";

int get_v(ka_robot_handle *h) {
    int v = 0;
    int r = ka_get_data_common(h, &v, "get_v", "v");
    return r == 0 ? v : r;
}

struct framing : ::testing::TestWithParam<int> {};

} // namespace

// Every framing case in both reading paths: the receive thread and the
// caller's own reads in single-thread mode.
TEST_P(framing, replies_arrive_intact_however_the_bytes_are_cut) {
    arm_session s(GetParam());
    ASSERT_EQ(s.arm->id, 1);
    const std::string line = get_reply + "\r\n";
    const wire_case rows[] = {
        {"split in three", get_v, get_request, "", 9},
        {"after garbage and NUL bytes", get_v, get_request, "", 9},
        {"dripped", get_v, get_request, "", 9},
        {"after an over-long line", get_v, get_request, "", 9},
    };
    const std::vector<action> answers[] = {
        {split(line, {3, 11}, 20ms)},
        {raw(std::string("not json\r\n\x00\x01\x02garbage\r\n", 22) + line)},
        {drip(line, 300us)},
        {raw(std::string(25000, 'x') + "\r\n"), raw(line)},
    };
    for (size_t i = 0; i < std::size(rows); ++i) {
        s.peer.clear_lines();
        s.peer.answer_next(answers[i]);
        SCOPED_TRACE(rows[i].name);
        EXPECT_EQ(rows[i].call(s.arm), rows[i].result);
    }
}

INSTANTIATE_TEST_SUITE_P(modes, framing,
                         ::testing::Values(KA_THREAD_MODE_SINGLE, KA_THREAD_MODE_DUAL));

// The first line of the segment answers a call that is already waiting for
// it, the second the call that the segment answers.
TEST(receive, two_replies_in_one_segment_are_two_entries) {
    arm_session s;
    std::atomic<int> w{0};
    std::thread waiting([&] {
        int value = 0;
        if (ka_get_data_common(s.arm, &value, "get_w", "w") == 0) w = value;
    });
    ASSERT_TRUE(s.peer.wait_for_lines(1, 2s));
    s.peer.answer_next({raw(R"({"command":"get_w","w":1})"
                            "\r\n" +
                            get_reply + "\r\n")});
    EXPECT_EQ(get_v(s.arm), 9);
    waiting.join();
    EXPECT_EQ(w.load(), 1);
}

TEST(receive, a_closed_connection_fails_later_commands_at_once) {
    arm_session s;
    log_capture log;
    s.peer.answer_next({close_connection()});
    auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(get_v(s.arm), -2); // the waiting command is released early
    EXPECT_LT(std::chrono::steady_clock::now() - start, 450ms); // before the 500 ms time-out
    start = std::chrono::steady_clock::now();
    EXPECT_EQ(get_v(s.arm), -1);
    EXPECT_LT(std::chrono::steady_clock::now() - start, 450ms); // no time-out waited
    EXPECT_TRUE(log.contains("[ka_get_data_common] get_v send error"));
}

TEST(receive, a_peer_closing_mid_reply_is_a_disconnect) {
    arm_session s;
    s.peer.answer_next({raw(R"({"command":"get_v","v)"), close_connection()});
    EXPECT_EQ(get_v(s.arm), -2);
    EXPECT_EQ(get_v(s.arm), -1);
}

TEST(receive, single_thread_mode_drops_what_follows_the_awaited_line) {
    arm_session s(KA_THREAD_MODE_SINGLE);
    s.peer.answer_next({raw(get_reply + "\r\n" + R"({"command":"get_w","w":1})" + "\r\n")});
    EXPECT_EQ(get_v(s.arm), 9);
    int w = 0;
    EXPECT_EQ(ka_get_data_common(s.arm, &w, "get_w", "w"), -2);
}

TEST(receive, completion_reports_reach_the_event_callback) {
    arm_session s;
    event_recorder events;
    ka_get_arm_event_call_back(nullptr); // ignored: the callback stays
    s.peer.push({reply(
        R"({"state":"current_trajectory_state","trajectory_state":true,"device":2,"trajectory_connect":0})")});
    ASSERT_TRUE(events.wait_for(1, 2s));
    ka_event_push_data_t last = events.events().back();
    EXPECT_EQ(last.handle_id, 1);
    EXPECT_EQ(last.event_type, 1);
    EXPECT_TRUE(last.trajectory_state);
    EXPECT_EQ(last.device, 2);
    s.peer.push({reply(R"({"state":"program_run_finish","finish_id":12})")});
    ASSERT_TRUE(events.wait_for(2, 2s));
    last = events.events().back();
    EXPECT_EQ(last.event_type, 2);
    EXPECT_EQ(last.finish_id, 12);
    EXPECT_FALSE(last.trajectory_state);
}

// The queue on its own: 20 entries, a stale entry is overwritten after 50
// further lines, a fresh line is dropped when every entry is fresh.
TEST(reply_queue, capacity_staleness_and_the_awaited_event_flag) {
    arm_record arm;
    arm.pub.id = 1;
    auto file = [&](const std::string &name) {
        std::string line = R"({"command":")" + name + R"("})";
        add_str_to_fifo(&arm, line.c_str(), static_cast<int>(line.size()));
    };
    char out[256];
    for (int i = 0; i < 20; ++i)
        file("a" + std::to_string(i));
    file("dropped");
    EXPECT_EQ(get_str_from_fifo(&arm.queue, "dropped", out, sizeof out), -1);
    // 50 more lines make the oldest entries stale: each new line takes one.
    for (int i = 0; i < 49; ++i)
        file("filler");
    file("late");
    EXPECT_GT(get_str_from_fifo(&arm.queue, "late", out, sizeof out), 0);
    EXPECT_STREQ(out, R"({"command":"late"})");
    // Output is bounded by the caller's size.
    file("bounded");
    char tiny[8];
    EXPECT_EQ(get_str_from_fifo(&arm.queue, "bounded", tiny, sizeof tiny), 7);
    EXPECT_STREQ(tiny, R"({"comma)");

    // A completion report nobody awaited is dropped by the next lookup when
    // the arm's flag says one is expected; a wait for the report itself takes
    // it. Another arm's flag and a blocking wait in progress keep it.
    arm_record second;
    std::string report =
        R"({"state":"current_trajectory_state","trajectory_state":true,"device":0,"trajectory_connect":0})";
    add_str_to_fifo(&second, report.c_str(), static_cast<int>(report.size()));
    arm.awaited_event = 1;
    EXPECT_EQ(get_str_from_fifo(&second.queue, "other", out, sizeof out), -1);
    EXPECT_EQ(arm.awaited_event.load(), 1);
    second.awaited_event = 1;
    second.blocking_waits = 1;
    EXPECT_EQ(get_str_from_fifo(&second.queue, "other", out, sizeof out), -1);
    EXPECT_EQ(second.awaited_event.load(), 1);
    second.blocking_waits = 0;
    EXPECT_EQ(get_str_from_fifo(&second.queue, "other", out, sizeof out), -1);
    EXPECT_EQ(second.awaited_event.load(), 0);
    EXPECT_EQ(get_str_from_fifo(&second.queue, "current_trajectory_state", out, sizeof out), -1);
    add_str_to_fifo(&second, report.c_str(), static_cast<int>(report.size()));
    second.awaited_event = 1;
    EXPECT_GT(get_str_from_fifo(&second.queue, "current_trajectory_state", out, sizeof out), 0);
    EXPECT_EQ(second.awaited_event.load(), 0);
}

TEST(reply_queue, a_waiter_wakes_when_its_line_is_filed) {
    ka_init(KA_THREAD_MODE_DUAL);
    arm_record arm;
    std::thread filer([&] {
        std::this_thread::sleep_for(30ms);
        std::string line = R"({"command":"x","v":1})";
        add_str_to_fifo(&arm, line.c_str(), static_cast<int>(line.size()));
    });
    char out[64];
    auto start = std::chrono::steady_clock::now();
    EXPECT_GT(handle_revice_data(&arm, "x", out, sizeof out, 2000), 0);
    EXPECT_LT(std::chrono::steady_clock::now() - start, 1s);
    filer.join();
    EXPECT_EQ(handle_revice_data(&arm, "x", out, sizeof out, 1), -1); // below 2 ms
    ka_destory();
}

TEST(concurrency, commands_on_two_arms_and_a_delete_race_cleanly) {
    ka_init(KA_THREAD_MODE_DUAL);
    test_peer a, b;
    serve_standard_arm(a);
    serve_standard_arm(b);
    a.on("get_v", {reply(get_reply)});
    b.on("get_v", {reply(get_reply)});
    ka_robot_handle *arm_a = ka_create_robot_arm("127.0.0.1", a.port());
    ka_robot_handle *arm_b = ka_create_robot_arm("127.0.0.1", b.port());
    ASSERT_EQ(arm_a->id, 1);
    ASSERT_EQ(arm_b->id, 2);
    std::atomic<int> good_a{0}, good_b{0}, released_b{0}, calls_b{0};
    std::thread ta([&] {
        for (int i = 0; i < 100; ++i)
            good_a += get_v(arm_a) == 9;
    });
    std::thread tb([&] {
        for (int i = 0; i < 100; ++i) {
            int r = get_v(arm_b);
            if (r == 9)
                ++good_b;
            else if (r == -2) // the one call waiting when the delete came is released
                ++released_b;
            else
                EXPECT_EQ(r, -1); // deleted under its feet: refused, never stuck
            ++calls_b;
        }
    });
    // The delete comes while the second arm is in use.
    while (calls_b.load() < 10)
        std::this_thread::yield();
    EXPECT_EQ(ka_delete_robot_arm(arm_b), 0);
    ta.join();
    tb.join();
    EXPECT_EQ(good_a.load(), 100);
    // One thread calls in turn, so at most one call was waiting at the delete.
    EXPECT_LE(released_b.load(), 1);
    ka_destory();
}
