// Planned motions: exact request lines, the running-trajectory reply, and
// every way a blocking wait can end.
#include "support/arm_fixture.h"

#include <algorithm>
#include <future>
#include <gtest/gtest.h>
#include <thread>

using namespace ka_test;
using namespace std::chrono_literals;

namespace {

const char *flag(bool ok) { return ok ? "true" : "false"; }
std::string accept(const std::string &command, bool ok = true) {
    return R"({"command":")" + command + R"(","receive_state":)" + flag(ok) + "}";
}
std::string running(const std::string &type, const std::string &data = "[0,0,0,0,0,0]") {
    return R"({"command":"arm_current_trajectory","type":")" + type + R"(","data":)" + data + "}";
}
const ka_pose_t target{{0.1f, -0.2f, 0.3f}, {}, {3.1415f, -1.5708f, 0.7f}};
const float joints[7] = {12.3456f, -0.7f, 0, 90, -179.9999f, 0.0004f, 55};
const std::string pose_wire = "[100000,-200000,300000,3141,-1570,700]";

int movej(ka_robot_handle *h, int b, int link = 0) { return ka_movej(h, joints, 20, 0, link, b); }

} // namespace

TEST(motion_wire, bad_arguments_send_nothing_and_every_command_sends_its_exact_line) {
    arm_session s;
    log_capture log;
    ka_arm_current_trajectory_e type{};
    float data[7];
    EXPECT_EQ(ka_movej(s.arm, nullptr, 20, 0, 0, 1), -1);
    EXPECT_EQ(ka_get_arm_current_trajectory(s.arm, &type, nullptr), -1);
    EXPECT_EQ(ka_movec(s.arm, target, target, 20, 0, 0, 2, 0), -6);
    EXPECT_TRUE(log.contains("[ka_movec] trajectory_connect check err! \n"));
    EXPECT_FALSE(s.peer.wait_for_lines(1, 100ms));

    // Joints widen to double before scaling (-0.7 gives -699); the pose's rz 0.7 gives 700.
    // clang-format off
    auto arc = [](ka_robot_handle *h) { return ka_movec(h, target, {{0, 0, 0.001f}}, 20, 5, 2, 0, 0); };
    const std::string arc_line = "{\n\t\"command\":\t\"movec\",\n\t\"pose\":\t{\n\t\t\"pose_via\":\t[100000, -200000, 300000, 3141, -1570, 700],\n\t\t\"pose_to\":\t[0, 0, 1000, 0, 0, 0]\n\t},\n\t\"v\":\t20,\n\t\"r\":\t5000,\n\t\"loop\":\t2,\n\t\"trajectory_connect\":\t0\n}";
    const wire_case rows[] = {
        {"movej", [](ka_robot_handle *h) { return movej(h, 0); }, R"({"command":"movej","v":20,"joint":[12345,-699,0,90000,-179999,0],"trajectory_connect":0,"r":0})", accept("movej"), 0},
        {"movel", [](ka_robot_handle *h) { return ka_movel(h, target, 30, 5, 1, 0); }, R"({"command":"movel","v":30,"pose":)" + pose_wire + R"(,"trajectory_connect":1,"r":5})", accept("movel"), 0},
        {"moves", [](ka_robot_handle *h) { return ka_moves(h, target, 30, 5, 1, 0); }, R"({"command":"moves","v":30,"pose":)" + pose_wire + R"(,"trajectory_connect":1,"r":5})", accept("moves"), 0},
        {"movej_p", [](ka_robot_handle *h) { return ka_movej_p(h, target, 30, 5, 1, 0); }, R"({"command":"movej_p","v":30,"pose":)" + pose_wire + R"(,"trajectory_connect":1,"r":5})", accept("movej_p"), 0},
        {"movec", arc, arc_line, accept("movec"), 0},
        {"movec refused", arc, arc_line, accept("movec", false), 1},
    };
    auto query = [&](ka_robot_handle *h) { std::fill_n(data, 7, 99.0f); return ka_get_arm_current_trajectory(h, &type, data); };
    // The running trajectory's joint and pose kinds; entries past `written` keep the caller's 99.
    struct trajectory_row { std::string reply; int result; ka_arm_current_trajectory_e type; std::vector<float> written; } trajectory[] = {
        {running("movej", "[1000,-2500,0,90000,0,12345]"), 0, KA_TRAJECTORY_MOVEJ, {1, -2.5f, 0, 90, 0, 12.345f}},
        {running("moves", pose_wire), 0, KA_TRAJECTORY_MOVES, {0.1f, -0.2f, 0.3f, 3.141f, -1.57f, 0.7f}},
        {running("re_trajectory", "[1,2,3,4,5,6,7,8,9,10]"), 0, KA_TRAJECTORY_REPLAY, {0.001f, 0.002f, 0.003f, 0.004f, 0.005f, 0.006f}},
        {running("spline"), -1, KA_TRAJECTORY_REPLAY, {}},
        {R"({"command":"arm_current_trajectory","type":"none"})", -1, KA_TRAJECTORY_REPLAY, {}},
        {R"({"command":"arm_current_trajectory","type":"none","data":5})", -1, KA_TRAJECTORY_REPLAY, {}},
    };
    // clang-format on
    for (const auto &row : rows)
        expect_wire(s, row);
    for (const auto &r : trajectory) {
        expect_wire(
            s, {r.reply, query, R"({"command":"get_arm_current_trajectory"})", r.reply, r.result});
        EXPECT_EQ(type, r.type) << r.reply;
        for (size_t i = 0; i < 7; ++i)
            EXPECT_FLOAT_EQ(data[i], i < r.written.size() ? r.written[i] : 99) << r.reply << i;
    }
}

// A completion report left over from a motion that did not block must not end
// a later blocking motion's wait: the two reports carry different outcomes, so
// the result tells which one ended it. Threaded, the leftover is filed before
// the blocking call; read directly, it shares a read with the accepting reply
// or waits in the socket.
TEST(motion_blocking, a_leftover_report_never_ends_a_later_wait) {
    using call = std::function<int(ka_robot_handle *)>;
    // clang-format off
    struct leftover_row { const char *name; int mode; const char *first; call sent; bool one_read; bool leftover_ok; const char *second; call blocking; int result; } rows[] = {
        {"threaded, joint then linear", KA_THREAD_MODE_DUAL, "movej", [](ka_robot_handle *h) { return ka_movej_nblock(h, joints, 20, 0, 0); }, false, false, "movel", [](ka_robot_handle *h) { return ka_movel(h, target, 30, 0, 0, 1); }, 0},
        {"threaded, arc then joint", KA_THREAD_MODE_DUAL, "movec", [](ka_robot_handle *h) { return ka_movec_nblock(h, target, target, 30, 0, 0, 0); }, false, true, "movej", [](ka_robot_handle *h) { return movej(h, 1); }, 1},
        {"direct, in one read", KA_THREAD_MODE_SINGLE, "movel", [](ka_robot_handle *h) { return ka_movel_nblock(h, target, 30, 0, 0); }, true, false, "movej", [](ka_robot_handle *h) { return movej(h, 2); }, 0},
        {"direct, in the socket", KA_THREAD_MODE_SINGLE, "movej_p", [](ka_robot_handle *h) { return ka_movej_p_nblock(h, target, 30, 0, 0); }, false, true, "moves", [](ka_robot_handle *h) { return ka_moves(h, target, 30, 0, 0, 2); }, 1},
    };
    // clang-format on
    const auto line = [](const std::string &text) { return text + "\r\n"; };
    for (const auto &r : rows) {
        arm_session s(r.mode);
        event_recorder events;
        const std::string leftover = completion_report(0, r.leftover_ok);
        if (r.one_read)
            s.peer.on(r.first, {raw(line(accept(r.first)) + line(leftover))});
        else
            s.peer.on(r.first, {reply(accept(r.first)), reply(leftover)});
        s.peer.on(r.second, {reply(accept(r.second)), reply(completion_report(0, !r.leftover_ok))});
        ASSERT_EQ(r.sent(s.arm), 0) << r.name;
        if (r.mode == KA_THREAD_MODE_DUAL) ASSERT_TRUE(events.wait_for(1, 2s)) << r.name;
        EXPECT_EQ(r.blocking(s.arm), r.result) << r.name;
        EXPECT_EQ(s.peer.commands(), (std::vector<std::string>{r.first, r.second})) << r.name;
    }
}

// Threaded waits: the report ends the wait; when it is late the trajectory
// query finds the motion running, then idle, and the report is taken last;
// six failed queries end the wait.
TEST(motion_blocking, the_report_or_the_trajectory_query_decides_the_result) {
    arm_session s;
    log_capture log;
    s.peer.on("movej", {reply(accept("movej"))});
    EXPECT_EQ(movej(s.arm, 1, 1), 0); // connected to the next motion: nothing waited for
    EXPECT_EQ(s.peer.commands(), std::vector<std::string>{"movej"});
    // The arc, sent in its own form, is not waited for when connected either.
    s.peer.on("movec", {reply(accept("movec"))});
    EXPECT_EQ(ka_movec(s.arm, target, target, 30, 0, 0, 1, 1), 0);
    // clang-format off
    struct report_row { const char *name; std::vector<std::string> reports; int result; } reports[] = {
        {"finished", {completion_report()}, 0},
        {"ended false", {completion_report(0, false)}, 1},
        {"connected motions follow", {completion_report(0, true, 1), completion_report(0, false)}, 1},
        {"another device finished", {completion_report(1), completion_report(0, false)}, 1},
        {"unparsable", {R"({"state":"current_trajectory_state","trajectory_state":true})"}, -3},
    };
    struct late_row { std::function<int(ka_robot_handle *)> call; const char *command, *kind; int device, result; const char *logged; } late[] = {
        {[](ka_robot_handle *h) { return movej(h, 1); }, "movej", "movej", 0, 0, nullptr},
        // The spline move labels its device message as the linear one.
        {[](ka_robot_handle *h) { return ka_moves(h, target, 30, 0, 0, 1); }, "moves", "moves", 1, -4, "[ka_movel] current device is: 1 \n"},
        {[](ka_robot_handle *h) { return ka_movej_p(h, target, 30, 0, 0, 1); }, "movej_p", "movej", 2, -4, "[ka_movej_p] current device is: 2 \n"},
    };
    // clang-format on
    for (const auto &r : reports) {
        std::vector<action> answer{reply(accept("movej"))};
        for (const auto &line : r.reports)
            answer.insert(answer.end(), {delay(20ms), reply(line)});
        s.peer.on("movej", answer);
        EXPECT_EQ(movej(s.arm, 1), r.result) << r.name;
    }
    // The linear and arc moves wait the same way; a report left over from a
    // non-blocking motion is purged before the blocking one is sent.
    s.peer.on("get_arm_current_trajectory", {reply(running("movej"))});
    for (const char *command : {"movel", "movec"})
        s.peer.on(command, {reply(accept(command)), delay(20ms), reply(completion_report())});
    s.peer.on("movej", {reply(accept("movej"))});
    ASSERT_EQ(movej(s.arm, 0), 0);
    event_recorder events;
    s.peer.push({reply(completion_report(0, false))});
    ASSERT_TRUE(events.wait_for(1, 2s)); // filed by the receive thread
    EXPECT_EQ(ka_movel(s.arm, target, 30, 0, 0, 1), 0);
    EXPECT_EQ(ka_movec(s.arm, target, target, 30, 0, 0, 0, 1), 0);
    for (const auto &r : late) {
        s.peer.on(r.command, {reply(accept(r.command))});
        s.peer.on_once("get_arm_current_trajectory", {reply(running(r.kind))});
        s.peer.on("get_arm_current_trajectory",
                  {reply(running("none")), delay(30ms), reply(completion_report(r.device))});
        EXPECT_EQ(r.call(s.arm), r.result) << r.command;
        if (r.logged) EXPECT_TRUE(log.contains(r.logged));
    }
    s.peer.clear_lines();
    s.peer.on("get_arm_current_trajectory", {reply(running("bogus"))});
    EXPECT_EQ(movej(s.arm, 1), -1);
    EXPECT_EQ(std::ranges::count(s.peer.commands(), "get_arm_current_trajectory"), 6);
}

// The report arrives while the wait's own query is outstanding: the query's
// lookup must leave it for the wait.
TEST(motion_blocking, a_report_arriving_during_the_own_query_is_not_lost) {
    std::future<int> done; // outlives the session: closing the arm releases a hung wait
    arm_session s;
    s.peer.on("movej", {reply(accept("movej"))});
    s.peer.on_once("get_arm_current_trajectory",
                   {reply(completion_report()), delay(20ms), reply(running("none"))});
    s.peer.on("get_arm_current_trajectory", {reply(running("none"))});
    done = std::async(std::launch::async, [&] { return movej(s.arm, 1); });
    ASSERT_EQ(done.wait_for(20s), std::future_status::ready) << "the wait hangs";
    EXPECT_EQ(done.get(), 0);
}

TEST(motion_single_thread, block_counts_seconds_of_reading) {
    arm_session s(KA_THREAD_MODE_SINGLE);
    s.peer.on("movej", {reply(accept("movej"))});
    EXPECT_EQ(ka_movej_block(s.arm, joints, 20, 0, 0, 0), -5);
    EXPECT_EQ(movej(s.arm, 2), -5);
    s.peer.on("movej", {reply(accept("movej")), delay(20ms), reply(completion_report(1)),
                        delay(20ms), reply(completion_report())});
    EXPECT_EQ(movej(s.arm, 2), 0);
    s.peer.on("movej", {reply(accept("movej")), delay(20ms), reply(completion_report(0, false))});
    EXPECT_EQ(movej(s.arm, 1), 1);
}

// Lines that share a read with the one a wait takes are kept for the next
// wait: the reply and the completion report of an instant move, or a chain's
// two reports, may arrive in one segment.
TEST(motion_single_thread, lines_sharing_a_read_reach_the_next_wait) {
    arm_session s(KA_THREAD_MODE_SINGLE);
    const auto line = [](const std::string &text) { return text + "\r\n"; };
    s.peer.on("movej", {raw(line(accept("movej")) + line(completion_report()))});
    EXPECT_EQ(movej(s.arm, 2), 0);
    s.peer.on("movej", {reply(accept("movej")), delay(20ms),
                        raw(line(completion_report(1)) + line(completion_report()))});
    EXPECT_EQ(movej(s.arm, 2), 0);
    // What is left when the next request goes out answers nothing of it.
    s.peer.on("movej",
              {raw(line(accept("movej")) + line(completion_report()) + line(completion_report()))});
    EXPECT_EQ(movej(s.arm, 2), 0);
    s.peer.on("movej", {reply(accept("movej"))});
    EXPECT_EQ(movej(s.arm, 1), -5);
}
