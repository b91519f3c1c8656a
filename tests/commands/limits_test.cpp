// Joint and arm limits: exact request lines, reply scaling, the arm record's
// copy of the controller limits, and malformed replies.
#include "core/arm.h"
#include "support/arm_fixture.h"

#include <gtest/gtest.h>

using namespace ka_test;
using namespace std::chrono_literals;

#define CALL(expr) [](ka_robot_handle *h) { return expr; }

namespace {

float out[7];
uint8_t bytes[7];
int stage;
const float pose[7] = {0.0019f, -90.5f, 45, 0, 1, -1.0009f, 99};

// Rows name the reply when it is not the command's; `reread` lists the limits
// read back afterwards, `want` the leading entries of out.
struct limit_row {
    std::function<int(ka_robot_handle *)> call;
    std::string command, request, reply, answer;
    std::vector<std::string> reread;
    std::vector<float> want;
};
const std::vector<limit_row> &limit_rows() {
    // clang-format off
    static const std::vector<limit_row> rows = {
        {CALL(ka_set_joint_max_speed(h, 2, 180.0f)), "set_joint_max_speed", R"("joint_max_speed":[2,30000])", "", R"("joint_max_speed":true)", {"get_joint_max_speed"}, {}},
        {CALL(ka_set_joint_max_acc(h, 3, 600.0f)), "set_joint_max_acc", R"("joint_max_acc":[3,100000])", "", R"("joint_max_acc":true)", {"get_joint_max_acc"}, {}},
        {CALL(ka_set_joint_min_pos(h, 1, -178.5f)), "set_joint_min_pos", R"("joint_min_pos":[1,-178500])", "", R"("joint_min_pos":true)", {"get_joint_min_pos"}, {}},
        {CALL(ka_set_joint_max_pos(h, 6, 0.0019f)), "set_joint_max_pos", R"("joint_max_pos":[6,1])", "", R"("joint_max_pos":true)", {"get_joint_max_pos"}, {}},
        {CALL(ka_set_joint_drive_max_speed(h, 2, 180.0f)), "set_joint_drive_max_speed", R"("joint_max_speed":[2,30000])", "", R"("joint_max_speed":true)", {}, {}},
        {CALL(ka_set_joint_drive_max_acc(h, 2, 180.0f)), "set_joint_drive_max_acc", R"("joint_max_acc":[2,180000])", "", R"("joint_max_acc":true)", {}, {}},
        {CALL(ka_set_joint_drive_min_pos(h, 1, -1e30f)), "set_joint_drive_min_pos", R"("joint_min_pos":[1,-2147483648])", "", R"("joint_min_pos":true)", {}, {}},
        {CALL(ka_set_joint_drive_max_pos(h, 7, 170.25f)), "set_joint_drive_max_pos", R"("joint_max_pos":[7,170250])", "", R"("joint_max_pos":true)", {}, {}},
        {CALL(ka_auto_set_joint_limit(h, 1)), "auto_set_joint_limit", R"("limit_mode":1)", "auto_set_joint_limit ", R"("limit_mode":true)", {"get_joint_min_pos", "get_joint_max_pos"}, {}},
        {CALL(ka_set_joint_en_state(h, 3, 1)), "set_joint_en_state", R"("joint_en_state":[3,1])", "", R"("joint_en_state":true)", {}, {}},
        {CALL(ka_set_joint_zero_pos(h, 4)), "set_joint_zero_pos", R"("joint_zero_pos":4)", "", R"("joint_zero_pos":true)", {}, {}},
        {CALL(ka_set_joint_clear_err(h, 5)), "set_joint_clear_err", R"("joint_clear_err":5)", "", R"("joint_clear_err":true)", {}, {}},
        {CALL(ka_set_arm_max_line_speed(h, 0.25f)), "set_arm_max_line_speed", R"("arm_line_speed":250)", "", R"("arm_line_speed":true)", {}, {}},
        {CALL(ka_set_arm_max_line_acc(h, 1.5f)), "set_arm_max_line_acc", R"("arm_line_acc":1500)", "", R"("arm_line_acc":true)", {}, {}},
        {CALL(ka_set_arm_max_angular_speed(h, -0.0019f)), "set_arm_max_angular_speed", R"("arm_angular_speed":-1)", "", R"("arm_angular_speed":true)", {}, {}},
        {CALL(ka_set_arm_max_angular_acc(h, 2.0f)), "set_arm_max_angular_acc", R"("arm_angular_acc":2000)", "", R"("arm_angular_acc":true)", {}, {}},
        {CALL(ka_set_arm_tcp_init(h)), "set_arm_init", "", "", R"("arm_init":true)", {}, {}},
        {CALL(ka_set_collision_state(h, 3)), "set_collision_stage", R"("collision_stage":3)", "set_collision_state", R"("collision_state":true)", {}, {}},
        {CALL(ka_set_init_pose(h, pose)), "set_init_pose", R"("init_pose":[1,-90500,45000,0,1000,-1000])", "", R"("init_pose":true)", {}, {}},
        {CALL(ka_get_joint_max_speed(h, out)), "get_joint_max_speed", "", "joint_max_speed", R"("joint_speed":[30000,1,-1000,0,0,0])", {}, {180.0f, 0.006f, -6.0f}},
        {CALL(ka_get_joint_max_acc(h, out)), "get_joint_max_acc", "", "joint_max_acc", R"("joint_acc":[100000,0,0,0,0,0])", {}, {600.0f}},
        {CALL(ka_get_joint_min_pos(h, out)), "get_joint_min_pos", "", "joint_min_pos", R"("min_pos":[-178500,0,0,0,0,1])", {}, {-178.5f, 0, 0, 0, 0, 0.001f}},
        {CALL(ka_get_joint_max_pos(h, out)), "get_joint_max_pos", "", "joint_max_pos", R"("max_pos":[178000,0,0,0,0,0])", {}, {178.0f}},
        {CALL(ka_get_joint_drive_max_speed(h, out)), "get_joint_drive_max_speed", "", "", R"("joint_speed":[30000,0,0,0,0,0])", {}, {180.0f}},
        {CALL(ka_get_joint_drive_max_acc(h, out)), "get_joint_drive_max_acc", "", "", R"("joint_acc":[180000,0,0,0,0,0])", {}, {1080.0f}},
        {CALL(ka_get_joint_drive_min_pos(h, out)), "get_joint_drive_min_pos", "", "", R"("min_pos":[-1500,0,0,0,0,0])", {}, {-1.5f}},
        {CALL(ka_get_joint_drive_max_pos(h, out)), "get_joint_drive_max_pos", "", "", R"("max_pos":[1e30,-1e30,0,0,0,0])", {}, {2147483.647f, -2147483.648f}},
        {CALL(ka_get_init_pose(h, out)), "get_init_pose", "", "arm_init_pose", R"("init_pose":[1,-90500,0,0,0,0])", {}, {0.001f, -90.5f}},
        {CALL(ka_get_arm_max_line_speed(h, out)), "get_arm_max_line_speed", "", "arm_max_line_speed", R"("arm_line_speed":250)", {}, {0.25f}},
        {CALL(ka_get_arm_max_line_acc(h, out)), "get_arm_max_line_acc", "", "arm_max_line_acc", R"("arm_line_acc":1500)", {}, {1.5f}},
        {CALL(ka_get_arm_max_angular_speed(h, out)), "get_arm_max_angular_speed", "", "arm_max_angular_speed", R"("arm_angular_speed":-500)", {}, {-0.5f}},
        {CALL(ka_get_arm_max_angular_acc(h, out)), "get_arm_max_angular_acc", "", "arm_max_angular_acc", R"("arm_angular_acc":2000)", {}, {2.0f}},
        {CALL(ka_get_collision_stage(h, &stage)), "get_collision_stage", "", "", R"("collision_stage":4)", {}, {}},
        {CALL(ka_get_joint_en_state(h, bytes)), "get_joint_en_state", "", "joint_en_state", R"("en_state":[1,0,257,1,1,-255])", {}, {}},
    };
    // clang-format on
    return rows;
}

} // namespace

TEST(limits, every_command_sends_its_exact_line_and_scales_both_ways) {
    arm_session s;
    const auto &rows = limit_rows();
    for (const auto &r : rows) {
        std::fill(out, out + 7, -7.0f);
        const std::string &name = r.reply.empty() ? r.command : r.reply;
        expect_wire(s, {r.command, r.call, line(r.command, r.request), line(name, r.answer), 0});
        auto sent = s.peer.commands();
        EXPECT_EQ(std::vector<std::string>(sent.begin() + 1, sent.end()), r.reread) << r.command;
        for (size_t i = 0; i < r.want.size(); ++i)
            EXPECT_FLOAT_EQ(out[i], r.want[i]) << r.command;
        EXPECT_EQ(out[6], -7.0f) << "a 6-axis arm leaves the seventh entry";
    }
    EXPECT_EQ(stage, 4);
    EXPECT_EQ(std::vector<int>(bytes, bytes + 6), std::vector<int>({1, 0, 1, 1, 1, 1}));

    // A controller limit's reread refreshes the record; a refusal rereads nothing.
    const std::string max_speed = line("set_joint_max_speed", R"("joint_max_speed":[1,6000])");
    s.peer.on_once("get_joint_max_speed",
                   {reply(line("joint_max_speed", R"("joint_speed":[0,0,0,0,0,6000])"))});
    expect_wire(s, {"reread", CALL(ka_set_joint_max_speed(h, 1, 36.0f)), max_speed,
                    answer("set_joint_max_speed", "joint_max_speed"), 0});
    EXPECT_FLOAT_EQ(registry_find(s.arm)->joint_max_speed[5], 36.0f);
    expect_wire(s, {"refused", CALL(ka_set_joint_max_speed(h, 1, 36.0f)), max_speed,
                    answer("set_joint_max_speed", "joint_max_speed", false), 1});
    EXPECT_EQ(s.peer.commands().size(), 1u);
    // The automatic limit returns the status of the maximum's reread.
    s.peer.on("auto_set_joint_limit", {reply(answer("auto_set_joint_limit ", "limit_mode"))});
    s.peer.on_once("get_joint_max_pos", {reply(line("joint_max_pos"))});
    EXPECT_EQ(ka_auto_set_joint_limit(s.arm, 2), -3);
    s.peer.on_once("get_joint_min_pos", {reply(line("joint_min_pos"))});
    EXPECT_EQ(ka_auto_set_joint_limit(s.arm, 2), 0);
}

TEST(limits, every_query_maps_each_reply_form) {
    // Every query of the table against a bare reply, silence and a closed
    // connection: joint reads fail the parse, single values give the reply's
    // length.
    std::vector<query_row> queries;
    for (const auto &r : limit_rows())
        if (r.command.starts_with("get_")) {
            const bool single = r.answer.find('[') == std::string::npos;
            queries.push_back(
                {r.command, r.call, r.reply, r.answer, single ? query_row::reply_length : -3});
        }
    queries.front().silent = set_row::no_reply::always;
    expect_query_outcomes(queries);
}

TEST(limits, malformed_replies_bad_arguments_and_the_dof_bound_what_is_written) {
    arm_session s;
    log_capture log;
    std::fill(out, out + 7, -7.0f);
    stage = -7;
    // Joint reads report the parse failure; single values the reply's length.
    const std::string drive = line("get_joint_drive_min_pos"),
                      no_stage = line("get_collision_stage");
    for (const char *bad :
         {"", R"("min_pos":5)", R"("min_pos":[1,2,3,4,5])", "\"min_pos\":[1,2,3,4,5,6,7]"})
        expect_wire(s, {bad, CALL(ka_get_joint_drive_min_pos(h, out)), drive,
                        line("get_joint_drive_min_pos", bad), -3});
    expect_wire(s, {"stage", CALL(ka_get_collision_stage(h, &stage)), no_stage, no_stage,
                    int(no_stage.size())});
    const std::string no_speed = line("arm_max_line_speed");
    expect_wire(s, {"speed", CALL(ka_get_arm_max_line_speed(h, out)),
                    line("get_arm_max_line_speed"), no_speed, int(no_speed.size())});
    EXPECT_EQ(std::vector<float>(out, out + 7), std::vector<float>(7, -7.0f));
    EXPECT_EQ(stage, -7);

    store_public(registry_find(s.arm)->pub.arm_dof, 7);
    expect_wire(s, {"7 joints", CALL(ka_get_joint_drive_min_pos(h, out)), drive,
                    line("get_joint_drive_min_pos", R"("min_pos":[1,2,3,4,5,6,7000])"), 0});
    EXPECT_FLOAT_EQ(out[6], 7.0f);
    expect_wire(s, {"7 joints", CALL(ka_set_init_pose(h, pose)),
                    line("set_init_pose", R"("init_pose":[1,-90500,45000,0,1000,-1000,99000])"),
                    answer("set_init_pose", "init_pose"), 0});

    s.peer.clear_lines();
    EXPECT_EQ(ka_get_joint_max_speed(s.arm, nullptr), -1);
    EXPECT_EQ(ka_get_joint_en_state(s.arm, nullptr), -1);
    EXPECT_EQ(ka_get_arm_max_angular_acc(s.arm, nullptr), -1);
    EXPECT_EQ(ka_get_collision_stage(s.arm, nullptr), -1);
    EXPECT_EQ(ka_set_init_pose(s.arm, nullptr), -1);
    store_public(registry_find(s.arm)->pub.arm_dof, 5); // a lost DOF
    EXPECT_EQ(ka_set_init_pose(s.arm, pose), -1);
    EXPECT_TRUE(log.contains("[ka_set_init_pose] The robotic arm has been disconnected"));
    EXPECT_FALSE(s.peer.wait_for_lines(1, 100ms)) << "nothing sent";
    // A joint read checks after the exchange: the query has gone out.
    expect_wire(s, {"read", CALL(ka_get_joint_max_pos(h, out)), line("get_joint_max_pos"), "", -1});
    EXPECT_TRUE(log.contains("[ka_get_joint_max_pos] The robotic arm has been disconnected"));
}

// Every set command against each verdict form; -2 timed for two of them.
// The controller limits re-read after a verdict true; the standard arm
// answers those reads, so true still gives 0.
TEST(limits, every_set_command_maps_each_verdict_form) {
    using quiet = set_row::no_reply;
    // clang-format off
    const set_row rows[] = {
        {"set_joint_max_speed", CALL(ka_set_joint_max_speed(h, 2, 180.0f)), "", "joint_max_speed", 500, quiet::always},
        {"set_joint_max_acc", CALL(ka_set_joint_max_acc(h, 3, 600.0f)), "", "joint_max_acc"},
        {"set_joint_min_pos", CALL(ka_set_joint_min_pos(h, 1, -178.5f)), "", "joint_min_pos"},
        {"set_joint_max_pos", CALL(ka_set_joint_max_pos(h, 6, 170.0f)), "", "joint_max_pos"},
        {"set_joint_drive_max_speed", CALL(ka_set_joint_drive_max_speed(h, 2, 180.0f)), "", "joint_max_speed"},
        {"set_joint_drive_max_acc", CALL(ka_set_joint_drive_max_acc(h, 2, 180.0f)), "", "joint_max_acc"},
        {"set_joint_drive_min_pos", CALL(ka_set_joint_drive_min_pos(h, 1, -170.0f)), "", "joint_min_pos"},
        {"set_joint_drive_max_pos", CALL(ka_set_joint_drive_max_pos(h, 7, 170.25f)), "", "joint_max_pos"},
        {"auto_set_joint_limit", CALL(ka_auto_set_joint_limit(h, 1)), "auto_set_joint_limit ", "limit_mode"},
        {"set_joint_en_state", CALL(ka_set_joint_en_state(h, 3, 1)), "", "joint_en_state"},
        {"set_joint_zero_pos", CALL(ka_set_joint_zero_pos(h, 4)), "", "joint_zero_pos"},
        {"set_joint_clear_err", CALL(ka_set_joint_clear_err(h, 5)), "", "joint_clear_err"},
        {"set_arm_max_line_speed", CALL(ka_set_arm_max_line_speed(h, 0.25f)), "", "arm_line_speed"},
        {"set_arm_max_line_acc", CALL(ka_set_arm_max_line_acc(h, 1.5f)), "", "arm_line_acc"},
        {"set_arm_max_angular_speed", CALL(ka_set_arm_max_angular_speed(h, 0.5f)), "", "arm_angular_speed"},
        {"set_arm_max_angular_acc", CALL(ka_set_arm_max_angular_acc(h, 2.0f)), "", "arm_angular_acc"},
        {"set_arm_init", CALL(ka_set_arm_tcp_init(h)), "", "arm_init"},
        {"set_collision_stage", CALL(ka_set_collision_state(h, 3)), "set_collision_state", "collision_state", 500, quiet::always},
        {"set_init_pose", CALL(ka_set_init_pose(h, pose)), "", "init_pose"},
    };
    // clang-format on
    expect_set_outcomes(rows);
}
