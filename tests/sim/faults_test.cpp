// Injected faults as the library meets them (each gives the library's
// documented code within its time-out, and the arm serves again once they
// are cleared), the same faults as bytes on the wire, and several clients on
// one arm, one of which stops reading.
#include "sim_session.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
#include <string>
#include <system_error>

#include "support/arm_fixture.h"

namespace {

using namespace std::chrono_literals;
using sim_test::arm_session;
using sim_test::line_client;
using steady = std::chrono::steady_clock;

// The library's reply time-out for queries (500 ms), and what a busy or
// instrumented machine may add to it.
constexpr auto k_query_timeout = 500ms;
constexpr auto k_margin = 1500ms;

const std::string k_completion =
    R"({"state":"current_trajectory_state","trajectory_state":true,"device":0,"trajectory_connect":0})";

std::string control_line(const std::string &members) {
    return R"({"sim":"faults",)" + members + "}";
}

// The probe: a query whose answer is not all zeros, so a reply mangled on
// the way would not pass for a good one.
int read_max_positions(arm_session &s, ka_robot_handle *arm) {
    float max_pos[7] = {};
    const int code = ka_get_joint_max_pos(arm, max_pos);
    if (code == KA_OK) {
        for (int j = 0; j < s.simulator.traits().dof; ++j)
            EXPECT_FLOAT_EQ(max_pos[j], static_cast<float>(s.simulator.traits().max_deg[j]))
                << "joint " << j + 1;
    }
    return code;
}

// Calls the probe until the library has noticed the closed connection (it
// fails with -1), then once more: a dead connection must fail at once, not
// after a time-out.
void expect_fails_fast_once_closed(arm_session &s) {
    const auto deadline = steady::now() + 5s;
    int code = KA_OK;
    while (steady::now() < deadline && (code = read_max_positions(s, s.arm)) != KA_ERR_LOCAL) {
    }
    ASSERT_EQ(code, KA_ERR_LOCAL) << "the library never saw the connection end";
    const auto begin = steady::now();
    EXPECT_EQ(read_max_positions(s, s.arm), KA_ERR_LOCAL);
    EXPECT_LT(steady::now() - begin, k_query_timeout) << "waited on a closed connection";
}

// Clears the arm's faults through a control line.
void clear_faults(arm_session &s) {
    line_client control(s.port);
    const std::string cleared = control.ask(control_line(R"("clear":true)"));
    ASSERT_EQ(cleared.rfind(R"({"sim":"faults","drop":0,"delay":0,"garbage":0,"stall":0,)", 0), 0u)
        << cleared;
}

// The library's own connection answers again, or, if it was closed, a
// fresh one does.
void expect_serves_again(arm_session &s, bool connection_survived) {
    if (connection_survived) {
        EXPECT_EQ(read_max_positions(s, s.arm), KA_OK);
        EXPECT_EQ(read_max_positions(s, s.arm), KA_OK);
        return;
    }
    ka_robot_handle *again = ka_create_robot_arm("127.0.0.1", s.port);
    ASSERT_NE(again, nullptr);
    EXPECT_GT(again->id, 0);
    EXPECT_EQ(read_max_positions(s, again), KA_OK);
}

struct library_fault_row {
    const char *name;
    const char *members; // of the control line that sets the fault
    int code;            // what the probe returns
    // The probe's duration: the library waited out its time-out (-2), or it
    // answered before the time-out.
    bool times_out;
    std::function<void(arm_session &)> after; // more checks before clearing
    bool connection_survives = true;
};

TEST(SimulatorFaults, EachFaultGivesTheLibrarysCodeInTimeAndClears) {
    const library_fault_row rows[] = {
        {"silence", R"("drop":1)", KA_ERR_TIMEOUT, true, nullptr},
        {"garbage instead of the reply", R"("garbage":1)", KA_ERR_TIMEOUT, true, nullptr},
        {"reply later than the time-out", R"("delay":800)", KA_ERR_TIMEOUT, true, nullptr},
        {"requests left unread", R"("stall":800)", KA_ERR_TIMEOUT, true, nullptr},
        {"reply one byte per send", R"("byte_by_byte":true)", KA_OK, false,
         [](arm_session &s) { EXPECT_EQ(read_max_positions(s, s.arm), KA_OK); }},
        {"reply sent twice", R"("duplicate":1)", KA_OK, false,
         [](arm_session &s) {
             // The second copy is taken by the next call of the same name
             // or ages out; either way other calls are not disturbed.
             float joints[7] = {};
             EXPECT_EQ(ka_get_joint_degree(s.arm, joints), KA_OK);
         }},
        {"stale completion report before the reply", R"("stale_report":1)", KA_OK, false,
         [](arm_session &s) {
             ASSERT_TRUE(sim_test::events().wait_events(1, 2s));
             std::lock_guard lock(sim_test::events().mutex);
             const ka_event_push_data_t &event = sim_test::events().events.front();
             EXPECT_EQ(event.event_type, 1);
             EXPECT_EQ(event.device, 0);
             EXPECT_EQ(event.trajectory_connect, 0);
             EXPECT_TRUE(event.trajectory_state);
         }},
        {"connection closed after the reply", R"("close_after":1)", KA_OK, false,
         expect_fails_fast_once_closed, false},
        {"connection closed now", R"("close":true)", KA_ERR_LOCAL, false,
         expect_fails_fast_once_closed, false},
    };
    for (const library_fault_row &row : rows) {
        SCOPED_TRACE(row.name);
        // A fresh arm per fault: a late or duplicate reply would otherwise
        // wait in the library's queue and answer the next row's query.
        arm_session s(sim_test::options());
        {
            line_client control(s.port);
            const std::string answer = control.ask(control_line(row.members));
            ASSERT_EQ(answer.rfind(R"({"sim":"faults","drop":)", 0), 0u) << answer;
        }
        if (row.code == KA_ERR_LOCAL) {
            expect_fails_fast_once_closed(s);
        } else {
            const auto begin = steady::now();
            EXPECT_EQ(read_max_positions(s, s.arm), row.code);
            const auto took = steady::now() - begin;
            if (row.times_out) EXPECT_GE(took, k_query_timeout);
            EXPECT_LT(took, (row.times_out ? k_query_timeout : 0ms) + k_margin);
        }
        if (row.after) row.after(s);
        if (HasFatalFailure()) return;
        clear_faults(s);
        if (HasFatalFailure()) return;
        expect_serves_again(s, row.connection_survives);
    }
}

TEST(SimulatorFaults, RefusedConnectionsFailTheOpenAndClear) {
    arm_session s(sim_test::options());
    sim::fault_change refuse;
    refuse.refuse = 1;
    s.simulator.set_faults(1, refuse);
    ka_robot_handle *refused = ka_create_robot_arm("127.0.0.1", s.port);
    ASSERT_NE(refused, nullptr);
    EXPECT_EQ(refused->id, -1);
    EXPECT_EQ(ka_delete_robot_arm(refused), KA_OK);
    // The connection made before the fault is still served.
    EXPECT_EQ(read_max_positions(s, s.arm), KA_OK);
    sim::fault_change clear;
    clear.clear = true;
    s.simulator.set_faults(1, clear);
    expect_serves_again(s, false);
}

// Each fault as the bytes a client receives.
TEST(SimulatorFaults, EachFaultOnTheWire) {
    const std::string power = R"({"command":"get_arm_power_state"})";
    const std::string power_reply = R"({"command":"arm_power_state","power_state":1})";
    const std::string pose = R"({"command":"get_install_pose"})";
    const std::string pose_reply = R"({"command":"install_pose","pose":[0,0,0]})";
    const struct {
        const char *name;
        std::string members;
        std::vector<std::string> requests;
        std::vector<std::string> lines; // what arrives, in order
        bool closed_after;              // the connection ends after them
    } rows[] = {
        {"drop", R"("drop":1)", {power, pose}, {pose_reply}, false},
        {"garbage", R"("garbage":1)", {power, pose}, {"}{ not a reply \x01", pose_reply}, false},
        {"duplicate",
         R"("duplicate":2)",
         {power, pose, power},
         {power_reply, power_reply, pose_reply, pose_reply, power_reply},
         false},
        {"stale report",
         R"("stale_report":1)",
         {power, pose},
         {k_completion, power_reply, pose_reply},
         false},
        {"close after",
         R"("close_after":2)",
         {power, pose, power},
         {power_reply, pose_reply},
         true},
        {"byte by byte", R"("byte_by_byte":1)", {power, pose}, {power_reply, pose_reply}, false},
        {"delay", R"("delay":30)", {power}, {power_reply}, false},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        sim::simulator simulator(sim_test::options());
        const int port = simulator.start().at(0);
        line_client client(port);
        ASSERT_EQ(client.ask(control_line(row.members)).find(R"("error")"), std::string::npos);
        for (const std::string &request : row.requests)
            client.send(request);
        for (const std::string &expected : row.lines)
            EXPECT_EQ(client.read(), expected);
        if (row.closed_after)
            EXPECT_TRUE(client.wait_closed());
        else
            EXPECT_EQ(client.ask(power), power_reply) << "not served after the fault";
    }
}

TEST(SimulatorFaults, MutedPushStopsTheDatagramsUntilCleared) {
    arm_session s(sim_test::options(), KA_THREAD_MODE_TRIPLE);
    ka_realtime_push_config_t config{};
    config.enable = true;
    config.cycle = 1;
    config.port = ka_test::unused_local_port(sim::net::transport::udp);
    std::snprintf(config.ip, sizeof config.ip, "127.0.0.1");
    config.custom = {1, 0, 0, 1};
    ASSERT_EQ(ka_set_realtime_push(s.arm, config), KA_OK);
    ASSERT_EQ(ka_sync_robot_info(s.arm), KA_OK); // the library listens on the port
    ASSERT_TRUE(sim_test::events().wait_states(3, 3s));

    // Control cycles are the simulator's clock: wait for some to pass.
    const auto wait_cycles = [&](std::uint64_t n) {
        const std::uint64_t until = s.simulator.lateness().cycles + n;
        const auto deadline = steady::now() + 5s;
        while (s.simulator.lateness().cycles < until && steady::now() < deadline) {
            float joints[7] = {};
            ka_get_joint_degree(s.arm, joints); // a round trip: at least some cycles apart
        }
        return s.simulator.lateness().cycles >= until;
    };
    sim::fault_change mute;
    mute.mute_push = 1;
    s.simulator.set_faults(1, mute);
    ASSERT_TRUE(wait_cycles(10)); // datagrams sent before the fault have arrived
    sim_test::events().clear();
    ASSERT_TRUE(wait_cycles(40));
    EXPECT_FALSE(sim_test::events().wait_states(1, 100ms)) << "a datagram while muted";

    sim::fault_change clear;
    clear.clear = true;
    s.simulator.set_faults(1, clear);
    EXPECT_TRUE(sim_test::events().wait_states(3, 3s));
}

TEST(SimulatorClients, TwoClientsOnOneArmGetTheirRepliesAndEveryReport) {
    sim::simulator simulator(sim_test::options("KIVO-B", 10.0));
    const int port = simulator.start().at(0);
    line_client program(port);
    line_client monitor(port);
    EXPECT_EQ(program.ask(R"({"command":"movej","v":100,"joint":[500,0,0,0,0,0],)"
                          R"("trajectory_connect":0,"r":0})"),
              R"({"command":"movej","receive_state":true})");
    EXPECT_EQ(monitor.ask(R"({"command":"get_arm_power_state"})"),
              R"({"command":"arm_power_state","power_state":1})");
    EXPECT_EQ(program.read(), k_completion);
    EXPECT_EQ(monitor.read(), k_completion);
    const std::string moved = R"({"command":"joint_degree","joint":[500,0,0,0,0,0]})";
    EXPECT_EQ(monitor.ask(R"({"command":"get_joint_degree"})"), moved);
    EXPECT_EQ(program.ask(R"({"command":"get_joint_degree"})"), moved);
}

// A client that sends and never reads must cost the others nothing: the
// control cycle runs on, another client gets its replies and reports, and
// the silent one is disconnected once its unread lines pass the bound.
TEST(SimulatorClients, AClientThatDoesNotReadIsDroppedWithoutHoldingUpTheArm) {
    sim_test::log_record log;
    sim::simulator_options o = sim_test::options("KIVO-B", 10.0);
    o.log = log.sink();
    sim::simulator simulator(o);
    const int port = simulator.start().at(0);
    line_client silent(port, 4096);
    line_client monitor(port);
    ASSERT_TRUE(log.wait_for("connected", 2s));

    // Each request is answered with an error reply that repeats its 60 KB name.
    const std::string request = R"({"command":")" + std::string(60000, 'x') + R"("})";
    const auto deadline = steady::now() + 10s;
    bool dropped = false;
    while (!dropped && steady::now() < deadline) {
        try {
            silent.send(request);
        } catch (const std::system_error &) {
            dropped = true; // the simulator has closed it
        }
        if (log.wait_for("did not read its replies", 0ms)) dropped = true;
        if (monitor.ask(R"({"command":"get_arm_power_state"})") !=
            R"({"command":"arm_power_state","power_state":1})") {
            ADD_FAILURE() << "the monitor went unanswered while the other client stalled";
            break;
        }
    }
    EXPECT_TRUE(log.wait_for("did not read its replies", 2s));
    EXPECT_TRUE(dropped);

    EXPECT_EQ(monitor.ask(R"({"command":"movej","v":100,"joint":[500,0,0,0,0,0],)"
                          R"("trajectory_connect":0,"r":0})"),
              R"({"command":"movej","receive_state":true})");
    EXPECT_EQ(monitor.read(), k_completion);
    // A cycle held up by a blocked send would show as lateness of the
    // order of the socket's send time-out.
    EXPECT_LT(simulator.lateness().max_ms, 500.0);
}

} // namespace
