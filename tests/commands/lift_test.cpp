// Lift and expansion axes: exact request lines and result keys, the
// unanswered height command, and the axis wait: reports, state reads while
// the report is late, failed reads, and thread mode 0's direct reads.
#include "support/arm_fixture.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <optional>

using namespace ka_test;
using namespace std::chrono_literals;

#define CALL(expr) [](ka_robot_handle *h) { return expr; }

namespace {

const std::string expand_ok = answer("expand_set_pos", "set_pos_state");
int lift_height(ka_robot_handle *h) { return ka_set_lift_height(h, 50, 300, 1); }
int expand_pos(ka_robot_handle *h) { return ka_set_expand_pos(h, 50, -20, 1); }

} // namespace

TEST(lift_wire, bad_arguments_send_nothing_and_every_command_sends_its_exact_line) {
    arm_session s;
    EXPECT_EQ(ka_get_lift_state(s.arm, nullptr), -1);
    EXPECT_EQ(ka_get_expand_state(s.arm, nullptr), -1);
    EXPECT_FALSE(s.peer.wait_for_lines(1, 100ms));

    ka_expand_state_t a{};
    // clang-format off
    // The result, or with 0 the record as pos * 1000 + current * 100 + err_flag * 10 + mode.
    auto lift = [&](ka_robot_handle *h) { int r = ka_get_lift_state(h, &a); return r ? r : a.pos * 1000 + a.current * 100 + a.err_flag * 10 + a.mode; };
    auto expand = [&](ka_robot_handle *h) { int r = ka_get_expand_state(h, &a); return r ? r : a.pos * 1000 + a.current * 100 + a.err_flag * 10 + a.mode; };
    const wire_case rows[] = {
        {"lift speed", CALL(ka_set_lift_speed(h, 40)), R"({"command":"set_lift_speed","speed":40})", answer("set_lift_speed", "set_state"), 0},
        // Never answered: no reply is awaited, so silence is no time-out.
        {"lift height", CALL(ka_set_lift_height(h, 50, 300, 0)), R"({"command":"set_lift_height","speed":50,"height":300})", "", 0},
        {"lift state", lift, R"({"command":"get_lift_state"})", R"({"command":"lift_state","height":7,"current":3,"err_flag":1,"mode":2})", 7312},
        {"lift state without err_flag", lift, R"({"command":"get_lift_state"})", R"({"command":"lift_state","height":7,"current":3,"mode":2})", -3},
        {"lift state named like the axis's", lift, R"({"command":"get_lift_state"})", R"({"command":"lift_state","pos":7,"current":3,"err_flag":1,"mode":2})", -3},
        {"expand speed", CALL(ka_set_expand_speed(h, 30)), R"({"command":"expand_set_speed","speed":30})", answer("expand_set_speed", "set_speed_state"), 0},
        {"expand speed judged on its own key", CALL(ka_set_expand_speed(h, 30)), R"({"command":"expand_set_speed","speed":30})", answer("expand_set_speed", "set_state"), -3},
        {"expand pos", CALL(ka_set_expand_pos(h, 30, -20, 0)), R"({"command":"expand_set_pos","speed":30,"pos":-20})", expand_ok, 0},
        {"expand pos refused, not waited for", CALL(ka_set_expand_pos(h, 30, -20, 1)), R"({"command":"expand_set_pos","speed":30,"pos":-20})", answer("expand_set_pos", "set_pos_state", false), 1},
        {"expand state", expand, R"({"command":"expand_get_state"})", R"({"command":"expand_state","pos":-4,"current":0,"err_flag":0,"mode":1})", -3999},
    };
    // clang-format on
    for (const auto &row : rows)
        expect_wire(s, row);
}

// The report decides once it comes; connected segments are waited through.
// Thread mode 0 reads for `block` seconds, one report per second.
TEST(lift_blocking, the_report_decides_the_result) {
    log_capture log;
    // clang-format off
    const std::tuple<int, int (*)(ka_robot_handle *), std::vector<std::string>, int> rows[] = {
        {KA_THREAD_MODE_DUAL, lift_height, {completion_report(4, true, 1), completion_report(3)}, 0},
        {KA_THREAD_MODE_DUAL, lift_height, {completion_report(3, false)}, 1},
        {KA_THREAD_MODE_DUAL, lift_height, {R"({"state":"current_trajectory_state","trajectory_state":true,"device":3})"}, -3},
        {KA_THREAD_MODE_DUAL, lift_height, {completion_report(4)}, -4},
        {KA_THREAD_MODE_DUAL, lift_height, {completion_report(3, true, 2)}, -4},
        {KA_THREAD_MODE_DUAL, expand_pos, {completion_report(4)}, 0},
        {KA_THREAD_MODE_DUAL, expand_pos, {completion_report(3)}, -4},
        {KA_THREAD_MODE_SINGLE, lift_height, {completion_report(3)}, 0},
        {KA_THREAD_MODE_SINGLE, expand_pos, {completion_report(3)}, -5},
    };
    // clang-format on
    std::optional<arm_session> s;
    int open_mode = -1;
    for (const auto &[mode, call, reports, result] : rows) {
        if (mode != open_mode) s.emplace(open_mode = mode);
        std::vector<action> lines;
        if (call == expand_pos) lines.push_back(reply(expand_ok));
        for (const auto &line : reports)
            lines.insert(lines.end(), {delay(20ms), reply(line)});
        s->peer.on(call == expand_pos ? "expand_set_pos" : "set_lift_height", lines);
        EXPECT_EQ(call(s->arm), result) << mode << " " << reports.back();
    }
    EXPECT_TRUE(log.contains("[ka_set_lift_height] current device is: 4 \n"));
    EXPECT_TRUE(log.contains("[ka_set_expand_pos] current device is: 3 \n"));
}

// While the report is late the axis's state is read: moving, then the report
// comes; a report arriving during the wait's own read is not dropped by it;
// the sixth failed read ends the wait with its status.
TEST(lift_blocking, a_late_report_is_followed_through_the_state_reads) {
    arm_session s;
    const std::string moving =
        R"({"command":"lift_state","height":3,"current":1,"err_flag":0,"mode":1})";
    s.peer.on_once("get_lift_state", {reply(moving)});
    s.peer.on("get_lift_state", {reply(moving), delay(30ms), reply(completion_report(3))});
    EXPECT_EQ(lift_height(s.arm), 0);
    EXPECT_EQ(s.peer.commands(),
              (std::vector<std::string>{"set_lift_height", "get_lift_state", "get_lift_state"}));

    s.peer.on("expand_set_pos", {reply(expand_ok)});
    s.peer.on_once(
        "expand_get_state",
        {reply(completion_report(4)), delay(20ms),
         reply(R"({"command":"expand_state","pos":1,"current":0,"err_flag":0,"mode":1})")});
    EXPECT_EQ(expand_pos(s.arm), 0); // a dropped report leaves the next reads unanswered: -2

    s.peer.clear_lines();
    s.peer.on("get_lift_state",
              {reply(R"({"command":"lift_state","height":7,"current":3,"mode":1})")});
    EXPECT_EQ(lift_height(s.arm), -3);
    EXPECT_EQ(std::ranges::count(s.peer.commands(), "get_lift_state"), 6);
}

// Every set command against each verdict form; -2 timed for two of them.
// The expansion move without block is a plain set; with block its verdict
// starts a wait for the axis, and the height command is never answered.
TEST(lift_wire, every_set_command_maps_each_verdict_form) {
    using quiet = set_row::no_reply;
    // clang-format off
    const set_row rows[] = {
        {"set_lift_speed", CALL(ka_set_lift_speed(h, 40)), "", "set_state", 500, quiet::always},
        {"expand_set_speed", CALL(ka_set_expand_speed(h, 30)), "", "set_speed_state"},
        {"expand_set_pos", CALL(ka_set_expand_pos(h, 30, -20, 0)), "", "set_pos_state", 500, quiet::always},
    };
    // clang-format on
    expect_set_outcomes(rows);
}
