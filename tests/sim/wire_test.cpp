// The simulator on the wire: error replies, several arms, faults set by a
// control line and from the command line, and the ka-sim program started
// and stopped as a separate process.
#include "sim_session.h"
#include "support/child_process.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>

namespace {

using namespace std::chrono_literals;
using sim_test::arm_session;
using sim_test::line_client;

TEST(SimulatorWire, AnswersBadLinesWithAnErrorAndKeepsServing) {
    arm_session s(sim_test::options());
    line_client raw(s.port); // a second client on the same arm
    const struct {
        const char *sent;
        const char *answer;
    } rows[] = {
        {R"({"command":"no_such_command","v":1})",
         R"({"command":"no_such_command","error":"unknown command"})"},
        {R"({"command":"get_joint_degree")", R"({"command":"error","error":"malformed JSON"})"},
        {"plain text", R"({"command":"error","error":"malformed JSON"})"},
        {R"([1,2,3])", R"({"command":"error","error":"malformed JSON"})"},
        {R"({"v":50})", R"({"command":"error","error":"missing command"})"},
        {R"({"command":"get_joint_degree"})",
         R"({"command":"joint_degree","joint":[0,0,0,0,0,0]})"},
        {R"({"command":"movej","v":50,"joint":[1000,0],"trajectory_connect":0,"r":0})",
         R"({"command":"movej","receive_state":false})"},
    };
    for (const auto &row : rows)
        EXPECT_EQ(raw.ask(row.sent), row.answer) << row.sent;

    // The library's own connection was not disturbed.
    float joints[7] = {};
    EXPECT_EQ(ka_get_joint_degree(s.arm, joints), KA_OK);
    // Two requests in one segment get two replies in order.
    raw.send(std::string(R"({"command":"get_arm_power_state"})") + "\r\n" +
             R"({"command":"get_install_pose"})");
    EXPECT_EQ(raw.read(), R"({"command":"arm_power_state","power_state":1})");
    EXPECT_EQ(raw.read(), R"({"command":"install_pose","pose":[0,0,0]})");
    // Only "\r\n" ends a request: a request printed formatted, with bare
    // "\n" inside, is one request.
    EXPECT_EQ(raw.ask("{\n\t\"command\":\t\"get_arm_power_state\"\n}"),
              R"({"command":"arm_power_state","power_state":1})");
}

TEST(SimulatorWire, ServesEachArmOnItsOwnPortWithItsOwnState) {
    sim::simulator_options o = sim_test::options("LUNE-B", 8.0);
    o.arms = 3;
    sim::simulator simulator(o);
    const std::vector<int> ports = simulator.start();
    ASSERT_EQ(ports.size(), 3u);
    line_client second(ports[1]);
    line_client third(ports[2]);
    EXPECT_EQ(
        second.ask(
            R"({"command":"movej","v":100,"joint":[0,0,0,0,0,0,1000],"trajectory_connect":0,"r":0})"),
        R"({"command":"movej","receive_state":true})");
    EXPECT_EQ(
        second.read(),
        R"({"state":"current_trajectory_state","trajectory_state":true,"device":0,"trajectory_connect":0})");
    EXPECT_EQ(second.ask(R"({"command":"get_joint_degree"})"),
              R"({"command":"joint_degree","joint":[0,0,0,0,0,0,1000]})");
    EXPECT_EQ(third.ask(R"({"command":"get_joint_degree"})"),
              R"({"command":"joint_degree","joint":[0,0,0,0,0,0,0]})");
    simulator.stop();
}

TEST(SimulatorFaults, ControlLineDropsTheNextReplyAndCloses) {
    arm_session s(sim_test::options());
    line_client control(s.port);
    EXPECT_EQ(control.ask(R"({"sim":"faults","drop":1})"),
              std::string(R"({"sim":"faults","drop":1,"delay":0,"garbage":0,"stall":0,)") +
                  R"("duplicate":0,"stale_report":0,"close_after":0,)" +
                  R"("byte_by_byte":false,"refuse":false,"mute_push":false})");
    float joints[7] = {};
    EXPECT_EQ(ka_get_joint_degree(s.arm, joints), KA_ERR_TIMEOUT);
    EXPECT_EQ(ka_get_joint_degree(s.arm, joints), KA_OK);
    EXPECT_EQ(s.simulator.faults(1).drop, 0);

    EXPECT_EQ(control.ask(R"({"sim":"faults","drop":-1})"),
              R"({"sim":"faults","error":"bad value for drop"})");
    for (const char *bad : {R"({"sim":"faults","drop":-1})", R"({"sim":"faults","refuse":2})",
                            R"({"sim":"faults","delay":1.5})", R"({"sim":"faults","drop":1e300})",
                            R"({"sim":"faults","duplicate":"2"})"})
        EXPECT_NE(control.ask(bad).find(R"("error":"bad value for )"), std::string::npos) << bad;
    EXPECT_EQ(control.ask(R"({"sim":"weather"})"), R"({"sim":"weather","error":"unknown topic"})");

    // Closing ends every connection of the arm, the control line's own too.
    EXPECT_EQ(control.ask(R"({"sim":"faults","close":true,"refuse":1,"mute_push":true})"),
              std::string(R"({"sim":"faults","drop":0,"delay":0,"garbage":0,"stall":0,)") +
                  R"("duplicate":0,"stale_report":0,"close_after":0,)" +
                  R"("byte_by_byte":false,"refuse":true,"mute_push":true})");
    EXPECT_EQ(control.read(), ""); // end of stream
    EXPECT_NE(ka_get_joint_degree(s.arm, joints), KA_OK);
    // New clients are refused until the fault is cleared.
    line_client refused(s.port);
    EXPECT_TRUE(refused.wait_closed());
    sim::fault_change clear;
    clear.clear = true;
    s.simulator.set_faults(1, clear);
    line_client again(s.port);
    EXPECT_EQ(again.ask(R"({"command":"get_arm_power_state"})"),
              R"({"command":"arm_power_state","power_state":1})");
}

TEST(SimulatorOptions, RejectsWhatItCannotSimulate) {
    const auto with = [](auto change) {
        sim::simulator_options o = sim_test::options();
        change(o);
        return o;
    };
    EXPECT_THROW(sim::simulator(with([](auto &o) { o.model = "ROBOT-B"; })), std::invalid_argument);
    EXPECT_THROW(sim::simulator(with([](auto &o) { o.arms = 6; })), std::invalid_argument);
    EXPECT_THROW(sim::simulator(with([](auto &o) { o.speed = 0; })), std::invalid_argument);
    EXPECT_THROW(sim::simulator(with([](auto &o) { o.host = "localhost"; })),
                 std::invalid_argument);

    std::string error;
    const auto groups = sim::parse_fault_groups("drop=2,delay=30;2:garbage=1", &error);
    ASSERT_TRUE(groups) << error;
    ASSERT_EQ(groups->size(), 2u);
    EXPECT_EQ((*groups)[0].first, 0);
    EXPECT_EQ((*groups)[0].second.drop, 2);
    EXPECT_EQ((*groups)[0].second.delay_ms, 30);
    EXPECT_EQ((*groups)[1].first, 2);
    EXPECT_EQ((*groups)[1].second.garbage, 1);
    const auto switches = sim::parse_fault_groups(
        "1:byte_by_byte,refuse=0,mute_push=1,duplicate=3,stale_report=1,close_after=4", &error);
    ASSERT_TRUE(switches) << error;
    const sim::fault_change &change = (*switches)[0].second;
    EXPECT_EQ(change.byte_by_byte, 1);
    EXPECT_EQ(change.refuse, 0);
    EXPECT_EQ(change.mute_push, 1);
    EXPECT_EQ(change.duplicate, 3);
    EXPECT_EQ(change.stale_report, 1);
    EXPECT_EQ(change.close_after, 4);
    EXPECT_FALSE(change.drop);
    for (const char *bad : {"drop", "drop=x", "6:drop=1", "smoke=1", "close", "refuse=2",
                            "duplicate", "drop=-1", "delay=99999999999"})
        EXPECT_FALSE(sim::parse_fault_groups(bad, &error)) << bad;
}

TEST(SimulatorProgram, StartsOnAFreePortServesAndEndsOnAStopRequest) {
    ka_test::child_process child(KA_SIM_PROGRAM,
                                 {"--port", "0", "--model", "QUIL-B", "--speed", "4"}, true);
    const std::string line = child.output_line(10s);
    const auto colon = line.rfind(':');
    ASSERT_NE(colon, std::string::npos) << "no port line: '" << line << "'";
    EXPECT_EQ(line.rfind("ka-sim: arm 1 listening on 127.0.0.1:", 0), 0u) << line;
    const int port = std::atoi(line.c_str() + colon + 1);
    ASSERT_GT(port, 0) << line;

    ka_init(KA_THREAD_MODE_DUAL);
    ka_robot_handle *arm = ka_create_robot_arm("127.0.0.1", port);
    ASSERT_NE(arm, nullptr);
    EXPECT_EQ(arm->id, 1);
    EXPECT_EQ(arm->arm_dof, 7);
    EXPECT_EQ(arm->arm_model, KA_ARM_MODEL_QUIL);
    ka_destory();

    // SIGTERM, or a console break on Windows; the program stops serving and
    // exits cleanly.
    ASSERT_TRUE(sim::net::request_stop(child.pid()));
    ASSERT_TRUE(child.wait(10s)) << child.describe();
    EXPECT_EQ(child.exit_code(), 0) << child.describe();
}

} // namespace
