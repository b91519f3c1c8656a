// Force sensing, drag teaching and force-position control: exact request
// lines and both force scalings, calibration verdicts, the sensor-type
// checks, the replay of a drag trajectory and the wait for its origin.
#include "support/arm_fixture.h"

#include <gtest/gtest.h>

using namespace ka_test;
using namespace std::chrono_literals;

// clang-format off
namespace {
// A reply to the running-trajectory query, then `then`.
std::vector<action> poll(const std::string &type, std::vector<action> then = {}) {
    then.insert(then.begin(), reply(R"({"command":"arm_current_trajectory","type":")" + type +
                                    R"(","data":[0,0,0,0,0,0]})"));
    return then;
}
const std::string verdict_false = answer("set_force_sensor", "set_state", false);
// 1.005 degrees is 1004 millidegrees in double precision but 1005 in single precision.
float joints[7] = {1.005f, -30.0006f, 0, 90, -90, 45.5f, 7.25f};
const std::string j6 = "[1004,-30000,0,90000,-90000,45500]", j7 = "[1004,-30000,0,90000,-90000,45500,7250]";
ka_pose_t pose(ka_quat_t q) { return {{0.7f, -0.1f, 0.3f}, q, {1.005f, -0.0015f, 1.5708f}}; }
const std::string euler = "[700000,-100000,300000,1005,-1,1570]";
ka_force_position_move_t move(int flag) {
    return {flag, pose({}), {1.005f, -30.0006f, 0, 90, -90, 45.5f, 7.25f}, 1, 2, true, {0, 1, 2, 3, 0, 1}, {9.9f, 12.7f, -0.15f, 0, 0, 0}, {0.0015f, 0.1f, 0, 0, 0, 2}};
}
const std::string target = R"("control_mode":[0,1,2,3,0,1],"desired_force":[99,127,-1,0,0,0],"limit_vel":[1,100,0,0,0,2000])";
} // namespace

// Old force forms cut to whole newtons before x 10 (9.9 -> 90), new forms scale first (9.9 -> 99).
TEST(force_wire, every_command_sends_its_exact_line) {
    log_capture log;
    int grade = -1;
    const ka_multi_drag_teach_t drag{{1, 1, 0, 0, 0, 1}, 1, 0}, drag2{{1, 1, 1, 1, 1, 1}, 2, 1};
    const ka_force_position_t fp{2, 1, {0, 1, 2, 3, 0, 1}, {9.9f, 12.7f, -0.15f, 0, 0, 0}, {0.0015f, 0.1f, 0, 0, 0, 2}};
    const wire_case rows[] = {
        {"calibrate, sent only", [](auto h) { return ka_set_force_sensor(h, false); }, R"({"command":"set_force_sensor"})", verdict_false, 0},
        {"clear force data", ka_clear_force_data, R"({"command":"clear_force_data"})", answer("clear_force_data", "clear_state", false), 1},
        // The verdict left by "sent only" is filed by now and must not end this calibration.
        {"calibrate, block", [](auto h) { return ka_set_force_sensor(h, true); }, R"({"command":"set_force_sensor"})", answer("set_force_sensor", "set_state"), 0},
        {"posture 1", [](auto h) { return ka_manual_set_force(h, 1, joints, false); }, R"({"command":"manual_set_force_pose1","joint":)" + j7 + "}", "", 0},
        {"posture 4, block", [](auto h) { return ka_manual_set_force(h, 4, joints, true); }, R"({"command":"manual_set_force_pose4","joint":)" + j7 + "}", verdict_false, 1},
        {"stop calibration", ka_stop_set_force_sensor, R"({"command":"stop_set_force_sensor"})", answer("stop_set_force_sensor", "stop_state"), 0},
        {"clear Fz", ka_clear_Fz, R"({"command":"clear_Fz"})", answer("clear_Fz", "set_state", false), 1},
        {"auto Fz, block", [](auto h) { return ka_auto_set_Fz(h, true); }, R"({"command":"auto_set_Fz"})", answer("set_force_sensor", "set_state"), 0},
        {"manual Fz, block", [](auto h) { return ka_manual_set_Fz(h, joints, joints, true); }, R"({"command":"manual_set_Fz","pose1":)" + j7 + R"(,"pose2":)" + j7 + "}", verdict_false, 1},
        {"start drag", [](auto h) { return ka_start_drag_teach(h, 1); }, R"({"command":"start_drag_teach","trajectory_record":1})", answer("start_drag_teach", "drag_teach"), 0},
        {"stop drag", ka_stop_drag_teach, R"({"command":"stop_drag_teach"})", answer("stop_drag_teach", "drag_teach", false), 1},
        {"multi drag", [](auto h) { return ka_start_multi_drag_teach(h, 2, 1); }, R"({"command":"start_multi_drag_teach","mode":2,"singular_wall":1})", answer("start_multi_drag_teach", "set_state"), 0},
        {"multi drag, six-axis", [&](auto h) { return ka_start_multi_drag_teach_new(h, &drag); }, R"({"command":"start_multi_drag_teach","frame":1,"singular_wall":0,"free_axes":[1,1,0,0,0,1]})", answer("start_multi_drag_teach", "set_state"), 0},
        {"set sensitivity", [](auto h) { return ka_set_drag_teach_sensitivity(h, 80); }, R"({"command":"set_drag_teach_sensitivity","grade":80})", answer("set_drag_teach_sensitivity", "set_state"), 0},
        {"get sensitivity", [&](auto h) { int r = ka_get_drag_teach_sensitivity(h, &grade); return r == 0 ? grade : 1000 + r; }, R"({"command":"get_drag_teach_sensitivity"})", R"({"command":"get_drag_teach_sensitivity","grade":60})", 60},
        {"to origin, no block", [](auto h) { return ka_drag_trajectory_origin(h, 0); }, R"({"command":"drag_trajectory_origin"})", "", 0},
        {"replay, no wait", [](auto h) { return ka_run_drag_trajectory(h, 0); }, R"({"command":"run_drag_trajectory"})", answer("run_drag_trajectory", "run_state", false), 0},
        {"pause replay", ka_pause_drag_trajectory, R"({"command":"pause_drag_trajectory"})", answer("pause_drag_trajectory", "pause_state"), 0},
        {"continue replay", ka_continue_drag_trajectory, R"({"command":"continue_drag_trajectory"})", answer("continue_drag_trajectory", "continue_state", false), 1},
        {"stop replay", ka_stop_drag_trajectory, R"({"command":"stop_drag_trajectory"})", answer("stop_drag_trajectory", "stop_state"), 0},
        {"force position 9.9", [](auto h) { return ka_set_force_position(h, 0, 1, 2, 9.9f); }, R"({"command":"set_force_position","sensor":0,"mode":1,"direction":2,"N":90})", answer("set_force_position", "set_state"), 0},
        {"force position new", [&](auto h) { return ka_set_force_position_new(h, &fp); }, R"({"command":"set_force_position","mode":1,"sensor":2,"desired_force":[99,127,-1,0,0,0],"control_mode":[0,1,2,3,0,1],"limit_vel":[1,100,0,0,0,2000]})", answer("set_force_position", "set_state", false), 1},
        {"stop force position", ka_stop_force_position, R"({"command":"stop_force_position"})", answer("stop_force_position", "stop_state"), 0},
        {"start fp move", ka_start_force_position_move, R"({"command":"Start_Force_Position_Move"})", answer("Start_Force_Position_Move", "set_state"), 0},
        {"stop fp move", ka_stop_force_position_move, R"({"command":"Stop_Force_Position_Move"})", answer("Stop_Force_Position_Move", "set_state", false), 1},
        {"fp move joints", [](auto h) { return ka_force_position_move_joint(h, joints, 1, 0, 2, 9.9f, true); }, R"({"command":"Force_Position_Move","joint":)" + j7 + R"(,"follow":true,"sensor":1,"mode":0,"dir":2,"force":90})", "", 0},
        {"fp move unit quaternion", [](auto h) { return ka_force_position_move_pose(h, pose({1, 0, 0, 0}), 1, 0, 2, 12.7f, false); }, R"({"command":"Force_Position_Move","follow":false,"sensor":1,"mode":0,"dir":2,"force":120,"pose_quat":[700000,-100000,300000,1000000,0,0,0]})", "", 0},
        {"fp move other quaternion", [](auto h) { return ka_force_position_move_pose(h, pose({}), 0, 1, 3, 1, true); }, R"({"command":"Force_Position_Move","follow":true,"sensor":0,"mode":1,"dir":3,"force":10,"pose":)" + euler + "}", "", 0},
        {"fp move new, pose", [](auto h) { return ka_force_position_move(h, move(1)); }, R"({"command":"Force_Position_Move","follow":true,"sensor":1,"mode":2,)" + target + R"(,"pose":)" + euler + "}", "", 0},
        {"fp move new, joints in single precision", [](auto h) { return ka_force_position_move(h, move(0)); }, R"({"command":"Force_Position_Move","follow":true,"sensor":1,"mode":2,)" + target + R"(,"joint":[1005,-30000,0,90000,-90000,45500,7250]})", "", 0},
    };
    // A six-axis arm without the force sensor: six joints, no drag options.
    const wire_case plain_rows[] = {
        {"posture 3 (block ignored)", [](auto h) { return ka_manual_set_force(h, 3, joints, true); }, R"({"command":"manual_set_force_pose3","joint":)" + j6 + "}", verdict_false, 0},
        {"manual Fz, sent only", [](auto h) { return ka_manual_set_Fz(h, joints, joints, false); }, R"({"command":"manual_set_Fz","pose1":)" + j6 + R"(,"pose2":)" + j6 + "}", verdict_false, 0},
        {"fp move joints", [](auto h) { return ka_force_position_move_joint(h, joints, 0, 1, 0, -0.5f, false); }, R"({"command":"Force_Position_Move","joint":)" + j6 + R"(,"follow":false,"sensor":0,"mode":1,"dir":0,"force":0})", "", 0},
        {"fp move new, joints", [](auto h) { return ka_force_position_move(h, move(0)); }, R"({"command":"Force_Position_Move","follow":true,"sensor":1,"mode":2,)" + target + R"(,"joint":[1005,-30000,0,90000,-90000,45500]})", "", 0},
        {"multi drag, frame only", [&](auto h) { return ka_start_multi_drag_teach_new(h, &drag2); }, R"({"command":"start_multi_drag_teach","frame":2})", answer("start_multi_drag_teach", "set_state", false), 1},
    };
    {
        arm_session s(KA_THREAD_MODE_DUAL, "LUNE-6F", 7);
        for (const auto &row : rows) expect_wire(s, row);
    }
    arm_session plain;
    for (const auto &row : plain_rows) expect_wire(plain, row);
    EXPECT_TRUE(log.contains("Non-six-dimensional force version, The configuration for singular_wall and the values in free_axes array are invalid.\n"));
}

TEST(force_wire, bad_arguments_unknown_arms_and_other_sensors_send_nothing) {
    ka_robot_handle stranger{};
    ka_fz_data_t fz{};
    {
        arm_session s(KA_THREAD_MODE_DUAL, "KIVO-6F");
        log_capture log;
        ka_robot_handle *h = s.arm;
        EXPECT_EQ(std::vector<int>({ka_manual_set_force(h, 0, joints, false), ka_manual_set_force(h, 5, joints, true),
                                    ka_get_force_data(h, nullptr), ka_set_force_position_new(h, nullptr),
                                    ka_force_position_move(h, move(2)), ka_run_drag_trajectory(h, -1),
                                    ka_manual_set_Fz(&stranger, joints, joints, true),
                                    ka_force_position_move(&stranger, move(0)), ka_get_Fz(&stranger, &fz)}),
                  std::vector<int>({-1, -1, -1, -1, -1, -1, -1, -1, -2}));
        for (const char *text : {"[ka_manual_set_Fz] The robotic arm has been disconnected\n",
                                 "[ka_force_position_move] The robotic arm has been disconnected\n",
                                 "[ka_get_robot_info] handle is NULL!\n", "arm force type check err!",
                                 "[ka_manual_set_force] posture type 0 is not 1, 2, 3 or 4\n", "[ka_manual_set_force] posture type 5 is not 1, 2, 3 or 4\n",
                                 "[ka_force_position_move] target flag 2 is not 0 or 1\n", "[ka_run_drag_trajectory] timeout -1 is negative\n"})
            EXPECT_TRUE(log.contains(text)) << text;
        EXPECT_FALSE(s.peer.wait_for_lines(1, 50ms));
    }
    for (const char *product : {"KIVO-ZF", "KIVO-B"}) {
        arm_session s(KA_THREAD_MODE_DUAL, product);
        log_capture log;
        EXPECT_EQ(ka_get_Fz(s.arm, &fz), -2) << product;
        EXPECT_TRUE(log.contains("arm force type check err!")) << product;
        EXPECT_FALSE(s.peer.wait_for_lines(1, 50ms)) << product;
    }
}

TEST(force_readings, arrays_and_values_come_back_in_thousandths) {
    arm_session s(KA_THREAD_MODE_DUAL, "KIVO-6F");
    s.peer.on("get_force_data", {reply(R"({"command":"get_force_data","force_data":[12700,-5,0,0,0,1],)"
                                       R"("zero_force_data":[1,2,3,4,5,6],"work_zero_force_data":[0,0,0,0,0,0],)"
                                       R"("tool_zero_force_data":[-1000,0,0,0,0,250]})")});
    s.peer.on("get_Fz", {reply(R"({"command":"get_Fz","Fz":12700,"zero_Fz":-5,"work_zero_Fz":0,"tool_zero_Fz":1000})")});
    ka_force_data_t f{};
    ka_fz_data_t z{};
    ASSERT_EQ(ka_get_force_data(s.arm, &f), 0);
    ASSERT_EQ(ka_get_Fz(s.arm, &z), 0);
    const float got[] = {f.force_data[0], f.force_data[1], f.zero_force_data[5], f.tool_zero_force_data[0],
                         f.tool_zero_force_data[5], z.Fz, z.zero_Fz, z.tool_zero_Fz};
    const float want[] = {12.7f, -0.005f, 0.006f, -1.0f, 0.25f, 12.7f, -0.005f, 1.0f};
    for (int i = 0; i < 8; ++i) EXPECT_FLOAT_EQ(got[i], want[i]) << i;
    s.peer.on("get_force_data", {reply(R"({"command":"get_force_data","force_data":[1,2,3,4,5]})")});
    EXPECT_EQ(ka_get_force_data(s.arm, &f), -3);
}
// clang-format on

TEST(drag_replay, threaded_replay_polls_while_replaying_then_reads_the_verdict) {
    log_capture log;
    const std::string query = "get_arm_current_trajectory";
    auto run_state = [](bool ok) { return reply(answer("run_drag_trajectory", "run_state", ok)); };
    // The verdict sent with the first poll or with the last one (the arm idle again).
    // clang-format off
    const struct { std::vector<action> with_first, with_last; int result; } rows[] = {
        {{}, {run_state(true)}, 0},
        {{}, {run_state(false)}, 1},
        {{run_state(true)}, {}, 0},
        {{}, {}, -2},
    };
    // clang-format on
    for (const auto &r : rows) {
        arm_session s;
        s.peer.on_once(query, poll("re_trajectory", r.with_first));
        s.peer.on_once(query, poll("re_trajectory"));
        s.peer.on(query, poll("none", r.with_last));
        EXPECT_EQ(ka_run_drag_trajectory(s.arm, 1), r.result);
        EXPECT_EQ(s.peer.commands(),
                  (std::vector<std::string>{"run_drag_trajectory", query, query, query}));
    }
    EXPECT_TRUE(log.contains("[ka_run_drag_trajectory] run_drag_trajectory revice error\n"));
}

TEST(drag_origin, a_blocking_move_to_the_origin_waits_for_the_arm) {
    log_capture log;
    for (int device : {0, 2}) {
        arm_session s;
        s.peer.on_once("get_arm_current_trajectory", poll("movej"));
        s.peer.on("get_arm_current_trajectory",
                  poll("none", {delay(20ms), reply(completion_report(device))}));
        EXPECT_EQ(ka_drag_trajectory_origin(s.arm, 1), device == 0 ? 0 : -4);
        EXPECT_EQ(s.peer.commands().front(), "drag_trajectory_origin");
    }
    EXPECT_TRUE(log.contains("[ka_drag_trajectory_origin] current device is: 2 \n"));

    // Single-thread mode: the origin's report, or only the replay's verdict.
    arm_session single(KA_THREAD_MODE_SINGLE);
    EXPECT_EQ(ka_drag_trajectory_origin(single.arm, 1), -5); // no report within one second
    single.peer.on("drag_trajectory_origin", {delay(20ms), reply(completion_report(0))});
    EXPECT_EQ(ka_drag_trajectory_origin(single.arm, 2), 0);
    single.peer.clear_lines();
    single.peer.on("run_drag_trajectory",
                   {delay(50ms), reply(answer("run_drag_trajectory", "run_state", false))});
    EXPECT_EQ(ka_run_drag_trajectory(single.arm, 2), 1);
    EXPECT_EQ(single.peer.commands(), std::vector<std::string>{"run_drag_trajectory"});
}

#define CALL(expr) [](ka_robot_handle *h) { return expr; }

// Every set command against each verdict form; -2 timed for the sensitivity
// (1 s) and two of the usual 500 ms. The blocking calibrations are answered
// as "set_force_sensor" within 30 s: their no-reply case is left out, a 30 s
// wait each. Left out: the drag replay (its verdict comes after the replay,
// read directly or polled for by thread mode).
TEST(force_wire, every_set_command_maps_each_verdict_form) {
    using quiet = set_row::no_reply;
    static const ka_multi_drag_teach_t drag{{1, 1, 0, 0, 0, 1}, 1, 0};
    static const ka_force_position_t fp{
        2, 1, {0, 1, 2, 3, 0, 1}, {9.9f, 12.7f, -0.15f, 0, 0, 0}, {0.0015f, 0.1f, 0, 0, 0, 2}};
    const std::string sensor = "set_force_sensor";
    // clang-format off
    const set_row rows[] = {
        {"clear_force_data", ka_clear_force_data, "", "clear_state", 500, quiet::always},
        {"set_force_sensor", CALL(ka_set_force_sensor(h, true)), sensor, "set_state", 30000, quiet::never},
        {"manual_set_force_pose4", CALL(ka_manual_set_force(h, 4, joints, true)), sensor, "set_state", 30000, quiet::never},
        {"stop_set_force_sensor", ka_stop_set_force_sensor, "", "stop_state"},
        {"clear_Fz", ka_clear_Fz, "", "set_state"},
        {"auto_set_Fz", CALL(ka_auto_set_Fz(h, true)), sensor, "set_state", 30000, quiet::never},
        {"manual_set_Fz", CALL(ka_manual_set_Fz(h, joints, joints, true)), sensor, "set_state", 30000, quiet::never},
        {"start_drag_teach", CALL(ka_start_drag_teach(h, 1)), "", "drag_teach"},
        {"stop_drag_teach", ka_stop_drag_teach, "", "drag_teach"},
        {"start_multi_drag_teach", CALL(ka_start_multi_drag_teach(h, 2, 1)), "", "set_state"},
        {"start_multi_drag_teach", CALL(ka_start_multi_drag_teach_new(h, &drag)), "", "set_state"},
        {"set_drag_teach_sensitivity", CALL(ka_set_drag_teach_sensitivity(h, 50)), "", "set_state", 1000},
        {"pause_drag_trajectory", ka_pause_drag_trajectory, "", "pause_state"},
        {"continue_drag_trajectory", ka_continue_drag_trajectory, "", "continue_state"},
        {"stop_drag_trajectory", ka_stop_drag_trajectory, "", "stop_state"},
        {"set_force_position", CALL(ka_set_force_position(h, 1, 0, 2, 9.9f)), "", "set_state"},
        {"set_force_position", CALL(ka_set_force_position_new(h, &fp)), "", "set_state"},
        {"stop_force_position", ka_stop_force_position, "", "stop_state"},
        {"Start_Force_Position_Move", ka_start_force_position_move, "", "set_state"},
        {"Stop_Force_Position_Move", ka_stop_force_position_move, "", "set_state", 500, quiet::always},
    };
    // clang-format on
    expect_set_outcomes(rows);
}
