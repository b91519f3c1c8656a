// Tool and work frames: exact requests and typical replies of every command,
// the refresh of the current tool frame, refusals, malformed replies, bad arguments.
#include "core/arm.h"
#include "ka_algo.h"
#include "support/arm_fixture.h"

#include <cstring>
#include <gtest/gtest.h>
#include <iterator>

using namespace ka_test;
using namespace std::chrono_literals;

namespace {

// Truncation toward zero shows in -0.0019 -> -1 and 3.1415 -> 3141 (not -2, 3142).
const ka_pose_t pose_in{{0.1234567f, -0.2f, 0.3f}, {1, 0, 0, 0}, {1.5f, -0.0019f, 3.1415f}};
const std::string pose_wire = "[123456,-200000,300000,1500,-1,3141]";
const std::string tool_wire =
    R"("payload":1234,"position":[1500,-2500,100000],"tool_pose":)" + pose_wire;
const std::string tool_reply =
    R"("tool_name":"tip","pose":)" + pose_wire + R"(,"payload":1500,"position":[1000,2000,3000]})";

void expect_pose(const ka_pose_t &p, float qw) {
    EXPECT_FLOAT_EQ(p.position.x, 0.123456f);
    EXPECT_FLOAT_EQ(p.position.y, -0.2f);
    EXPECT_FLOAT_EQ(p.euler.ry, -0.001f);
    EXPECT_FLOAT_EQ(p.euler.rz, 3.141f);
    EXPECT_EQ(p.quaternion.w, qw); // never on the wire: left as the caller had it
}

arm_record &record(ka_robot_handle *h) { return *registry_find(h); }

} // namespace

TEST(frames, every_command_sends_its_exact_line_and_reads_a_typical_reply) {
    arm_session s;
    log_capture log;
    // Re-reads after a selection or deletion; the work frame's come from the standard arm.
    s.peer.on("get_current_tool_frame",
              {reply(R"({"command":"current_tool_frame","tool_name":"grip",)"
                     R"("pose":[0,0,250000,0,0,0],"payload":2000,"position":[0,0,5000]})")});
    ka_frame_t tool{"", pose_in, 1.2345f, 0.0015f, -0.0025f, 0.1f};
    std::memcpy(tool.frame_name, "ABCDEFGHIJKL", KA_NAME_SIZE); // fills the field, no terminator
    ka_frame_t given{}, current{}, work{};
    given.pose.quaternion.w = current.pose.quaternion.w = 7;
    ka_pose_t pose{};
    pose.quaternion.w = 9;
    ka_frame_name_t names[KA_FRAME_LIST_CAPACITY + 1] = {};
    std::strcpy(names[KA_FRAME_LIST_CAPACITY].name, "guard");
    int count = -1;
    ka_envelope_balls_list_t envelope{{{"b1", 0.05f, 0.0019f, -0.0301f, 0.2999f}}, 1, "tip"}, got{};
    // clang-format off
    const wire_case rows[] = {
        {"auto tool", [](auto h) { return ka_set_auto_tool_frame(h, 5); }, R"({"command":"set_auto_tool_frame","point_num":5})", R"({"command":"set_auto_tool_frame","auto_tool_frame":true})", 0},
        {"generate tool", [](auto h) { return ka_generate_auto_tool_frame(h, "tip", 1.2345f, 0.0015f, -0.0025f, 0.1f); }, R"({"command":"generate_auto_tool_frame","tool_name":"tip","payload":1234,"position":[1500,-2500,100000]})", R"({"command":"set_auto_tool_frame","auto_tool_frame":true})", 0},
        {"manual tool", [&](auto h) { return ka_set_manual_tool_frame(h, tool); }, R"({"command":"set_manual_tool_frame","tool_name":"ABCDEFGHIJKL",)" + tool_wire + "}", R"({"command":"set_manual_tool_frame","manual_tool_frame":true})", 0},
        {"update tool", [&](auto h) { return ka_update_tool_frame(h, tool); }, R"({"command":"update_tool_frame","tool_name":"ABCDEFGHIJKL",)" + tool_wire + "}", R"({"command":"update_tool_frame","update_state":true})", 0},
        {"set envelope", [&](auto h) { return ka_set_tool_envelope(h, envelope); }, "{\n\t\"command\":\t\"set_tool_envelope\",\n\t\"tool_name\":\t\"tip\",\n\t\"list\":\t[{\n\t\t\t\"name\":\t\"b1\",\n\t\t\t\"radius\":\t50,\n\t\t\t\"x\":\t1,\n\t\t\t\"y\":\t-30,\n\t\t\t\"z\":\t299\n\t\t}]\n}", R"({"command":"set_tool_envelope","set_state":true})", 0},
        {"get envelope", [&](auto h) { return ka_get_tool_envelope(h, "tip", &got); }, R"({"command":"get_tool_envelope","tool_name":"tip"})", R"({"command":"get_tool_envelope","tool_name":"tip","list":[{"name":"b1","radius":50,"x":1,"y":-30,"z":299}]})", 0},
        {"auto work", [](auto h) { return ka_set_auto_work_frame(h, "wf", 3); }, R"({"command":"set_auto_work_frame","frame_name":"wf","point_num":3})", R"({"command":"set_auto_work_frame","auto_work_frame":true})", 0},
        {"manual work", [](auto h) { return ka_set_manual_work_frame(h, "wf", pose_in); }, R"({"command":"set_manual_work_frame","frame_name":"wf","frame_pose":)" + pose_wire + "}", R"({"command":"set_manual_work_frame","manual_work_frame":true})", 0},
        {"update work", [](auto h) { return ka_update_work_frame(h, "wf", pose_in); }, R"({"command":"update_work_frame","frame_name":"wf","frame_pose":)" + pose_wire + "}", R"({"command":"update_work_frame","update_state":true})", 0},
        {"tool names", [&](auto h) { return ka_get_total_tool_frame(h, names, &count); }, R"({"command":"get_total_tool_frame"})", R"({"command":"total_tool_frame","frame_names":["a","bb","NULL","NULL"]})", 0},
        {"work names", [&](auto h) { return ka_get_total_work_frame(h, names, &count); }, R"({"command":"get_total_work_frame"})", R"({"command":"total_work_frame","frame_names":["World"]})", 0},
        {"delete tool", [](auto h) { return ka_delete_tool_frame(h, "tip"); }, R"({"command":"set_delete_tool_frame","tool_name":"tip"})", R"({"command":"set_delete_tool_frame","delete_tool_frame":true})", 0},
        {"given tool", [&](auto h) { return ka_get_given_tool_frame(h, "tip", &given); }, R"({"command":"get_tool_frame","tool_name":"tip"})", R"({"command":"given_tool_frame",)" + tool_reply, 0},
        {"given work", [&](auto h) { return ka_get_given_work_frame(h, "wf", &pose); }, R"({"command":"get_work_frame","frame_name":"wf"})", R"({"command":"given_work_frame","frame_name":"wf","pose":)" + pose_wire + "}", 0},
        {"current tool", [&](auto h) { return ka_get_current_tool_frame(h, &current); }, R"({"command":"get_current_tool_frame"})", R"({"command":"current_tool_frame",)" + tool_reply, 0},
        {"current work", [&](auto h) { return ka_get_current_work_frame(h, &work); }, R"({"command":"get_current_work_frame"})", R"({"command":"current_work_frame","frame_name":"wf","pose":)" + pose_wire + "}", 0},
        {"change tool", [](auto h) { return ka_change_tool_frame(h, "tip"); }, R"({"command":"set_change_tool_frame","tool_name":"tip"})", R"({"command":"set_change_tool_frame","change_tool_frame":true})", 0},
        {"change work", [](auto h) { return ka_change_work_frame(h, "wf"); }, R"({"command":"set_change_work_frame","frame_name":"wf"})", R"({"command":"set_change_work_frame","change_work_frame":true})", 0},
        {"delete work", [](auto h) { return ka_delete_work_frame(h, "wf"); }, R"({"command":"set_delete_work_frame","frame_name":"wf"})", R"({"command":"set_delete_work_frame","delete_work_frame":false})", 1},
    };
    // clang-format on
    for (const auto &row : rows)
        expect_wire(s, row);
    EXPECT_EQ(s.peer.commands().back(), "set_delete_work_frame"); // no re-read after a refusal

    ASSERT_EQ(got.size, 1);
    EXPECT_FLOAT_EQ(got.balls[0].radius, 0.05f);
    EXPECT_FLOAT_EQ(got.balls[0].y, -0.03f);
    EXPECT_FLOAT_EQ(got.balls[0].z, 0.299f);
    for (const ka_frame_t *f : {&given, &current}) {
        EXPECT_STREQ(f->frame_name, "tip");
        expect_pose(f->pose, 7);
        EXPECT_FLOAT_EQ(f->payload, 1.5f);
        EXPECT_FLOAT_EQ(f->x, 0.001f);
        EXPECT_FLOAT_EQ(f->z, 0.003f);
    }
    expect_pose(pose, 9);
    EXPECT_STREQ(work.frame_name, "wf");

    // Name lists: either key, stop at the padding, bounded, truncated names.
    auto list = [&](const std::string &body) {
        s.peer.answer_next({reply(R"({"command":"total_work_frame",)" + body + "}")});
        return ka_get_total_work_frame(s.arm, names, &count);
    };
    EXPECT_EQ(list(R"("frame_names":[])"), 0);
    EXPECT_EQ(count, 1); // left from the list of one above
    EXPECT_EQ(list(R"("tool_names":["x","y","NULL","z"])"), 0);
    EXPECT_EQ(count, 2);
    EXPECT_EQ(list(R"("frame_names":["0","1","2","3","4","5","6","7","8","9","10","11"])"), 0);
    EXPECT_EQ(count, KA_FRAME_LIST_CAPACITY);
    EXPECT_EQ(list(R"("frame_names":["ABCDEFGHIJKLMNOP"])"), 0);
    EXPECT_EQ(list(R"("frame_names":"a")"), -2);
    EXPECT_EQ(count, 1);
    EXPECT_STREQ(names[KA_FRAME_LIST_CAPACITY].name, "guard");
    EXPECT_EQ(std::string(names[0].name, KA_NAME_SIZE), "ABCDEFGHIJKL");
    EXPECT_STREQ(names[1].name, "1"); // the next record is untouched

    // The tool frame re-read after the change ("grip", after "tip" was read as
    // current) reaches the handle and the kinematics; a rejected one does not.
    s.peer.answer_next(
        {reply(R"({"command":"current_tool_frame","tool_name":"t2","pose":[1,2,3,4,5,6],)"
               R"("payload":100,"position":[0,0,-10000]})")});
    ka_frame_t algo{};
    EXPECT_EQ(ka_get_current_tool_frame(s.arm, &current), -1); // negative centre of mass
    EXPECT_TRUE(log.contains("[get_current_tool_frame] Tool frame position parse err\n"));
    ka_algo_get_curr_toolframe(&algo);
    EXPECT_FLOAT_EQ(algo.pose.position.z, 0.25f);
    EXPECT_FLOAT_EQ(algo.payload, 2.0f);
    std::lock_guard<std::mutex> lock(record(s.arm).cache_mutex);
    EXPECT_STREQ(record(s.arm).tool_frame.frame_name, "grip");
    EXPECT_FLOAT_EQ(record(s.arm).tool_frame.z, 0.005f);
}

TEST(frames, refusals_silence_malformed_replies_and_bad_arguments_give_their_code) {
    arm_session s;
    log_capture log;
    struct {
        ka_envelope_balls_list_t list;
        char guard[8];
    } env{};
    std::strcpy(env.guard, "guard");
    const std::string ball = R"({"name":"ABCDEFGHIJKLMNOP","radius":1e30,"x":1,"y":2,"z":3})";
    const std::string six = ball + "," + ball + "," + ball + "," + ball + "," + ball + "," + ball;
    ka_frame_t frame{};
    ka_pose_t pose{};
    ka_envelope_balls_list_t list{};
    auto envelope = [&] { return ka_get_tool_envelope(s.arm, "t", &list); };
    auto current = [&] { return ka_get_current_tool_frame(s.arm, &frame); };
    auto given_tool = [&] { return ka_get_given_tool_frame(s.arm, "t", &frame); };
    auto given_work = [&] { return ka_get_given_work_frame(s.arm, "w", &pose); };
    // An unknown name is answered under the request's name: the work frame
    // returns that judgement, the tool frame its own time-out. An empty reply
    // is no answer at all.
    // clang-format off
    const struct { std::function<int()> call; std::string reply; int result; } cases[] = {
        {[&] { return ka_get_tool_envelope(s.arm, "t", &env.list); }, R"({"command":"get_tool_envelope","tool_name":"ABCDEFGHIJKLMNOP","list":[)" + six + "]}", 0},
        {[&] { return ka_set_manual_tool_frame(s.arm, frame); }, R"({"command":"set_manual_tool_frame","manual_tool_frame":false})", 1},
        {envelope, R"({"command":"get_tool_envelope","get_state":false})", 1},
        {[&] { return ka_set_tool_envelope(s.arm, list); }, R"({"command":"set_tool_envelope","set_state":false})", 1},
        {given_work, R"({"command":"get_work_frame","get_state":false})", 1},
        {given_tool, R"({"command":"get_tool_frame","get_state":false})", -2},
        {given_tool, "", -2},
        {given_work, "", -2},
        {envelope, R"({"command":"get_tool_envelope","tool_name":"t","list":[{"name":"a","radius":1,"x":1,"y":2,"z":3},{"name":"b","radius":"1","x":1,"y":2,"z":3}]})", -3},
        {envelope, R"({"command":"get_tool_envelope","tool_name":"t","list":[{"radius":1,"x":1,"y":2,"z":3}]})", -3},
        {envelope, R"({"command":"get_tool_envelope","tool_name":5,"list":[]})", -3},
        {envelope, R"({"command":"get_tool_envelope","tool_name":"t","list":{}})", -3},
        {current, R"({"command":"current_tool_frame","tool_name":"t","pose":[1,2,3,4,5],"payload":1,"position":[0,0,0]})", -1},
        {current, R"({"command":"current_tool_frame","tool_name":"t","pose":[1,2,3,4,5,6],"payload":-1,"position":[0,0,0]})", -1},
        {current, R"({"command":"current_tool_frame","tool_name":"t","pose":[1,2,3,4,5,6],"payload":1,"position":[0,0]})", -1},
        {[&] { return ka_get_current_work_frame(s.arm, &frame); }, R"({"command":"current_work_frame","pose":[1,2,3,4,5,6]})", -1},
        {given_tool, R"({"command":"given_tool_frame","tool_name":"t","pose":[1,2,3,4,5],"payload":1,"position":[1,2,3]})", -3},
        {given_work, R"({"command":"given_work_frame","pose":[1,2,3,4,5,6]})", -3},
    };
    // clang-format on
    for (const auto &c : cases) {
        if (!c.reply.empty()) s.peer.answer_next({reply(c.reply)});
        EXPECT_EQ(c.call(), c.result) << c.reply;
    }
    EXPECT_EQ(env.list.size, KA_ENVELOPE_BALLS);
    EXPECT_EQ(std::string(env.list.tool_name, KA_NAME_SIZE), "ABCDEFGHIJKL");
    EXPECT_EQ(std::string(env.list.balls[4].name, KA_NAME_SIZE), "ABCDEFGHIJKL");
    EXPECT_FLOAT_EQ(env.list.balls[4].radius, 2147483647 / 1000.0f); // saturated, not wrapped
    EXPECT_STREQ(env.guard, "guard");
    EXPECT_STREQ(list.balls[0].name, "a"); // entries before the bad one stay filled
    EXPECT_TRUE(log.contains("[ka_set_manual_tool_frame] Failed to create the tool frame system, "
                             "please check if the name already exists"));
    EXPECT_TRUE(log.contains("Set tool envelope return false!"));

    ka_frame_name_t names[KA_FRAME_LIST_CAPACITY];
    int count = 0;
    ka_robot_handle *h = s.arm;
    ka_robot_handle stranger{};
    s.peer.clear_lines();
    // clang-format off
    const int results[] = {
        ka_generate_auto_tool_frame(h, nullptr, 0, 0, 0, 0), ka_get_tool_envelope(h, "t", nullptr), ka_get_tool_envelope(h, nullptr, &list),
        ka_set_auto_work_frame(h, nullptr, 1), ka_set_manual_work_frame(h, nullptr, pose), ka_update_work_frame(h, nullptr, pose),
        ka_get_total_tool_frame(h, nullptr, &count), ka_get_total_work_frame(h, names, nullptr),
        ka_get_given_tool_frame(h, "t", nullptr), ka_get_given_work_frame(h, nullptr, &pose),
        ka_get_current_tool_frame(h, nullptr), ka_get_current_work_frame(h, nullptr),
        ka_change_tool_frame(h, nullptr), ka_delete_tool_frame(h, nullptr), ka_change_work_frame(h, nullptr), ka_delete_work_frame(h, nullptr),
        ka_set_tool_envelope(&stranger, list), ka_get_given_work_frame(&stranger, "w", &pose),
    };
    // clang-format on
    for (size_t i = 0; i < std::size(results); ++i)
        EXPECT_EQ(results[i], -1) << i; // null arguments, unknown handles: nothing sent
    EXPECT_FALSE(s.peer.wait_for_lines(1, 100ms));
}

TEST(frames, single_thread_mode_counts_a_lost_refusal_as_a_refusal) {
    arm_session s(KA_THREAD_MODE_SINGLE);
    ka_frame_t frame{};
    ka_pose_t pose{};
    s.peer.answer_next({reply(R"({"command":"get_tool_frame","get_state":false})")});
    EXPECT_EQ(ka_get_given_tool_frame(s.arm, "nope", &frame), 1);
    EXPECT_EQ(ka_get_given_work_frame(s.arm, "nope", &pose), 1);
}

#define CALL(expr) [](ka_robot_handle *h) { return expr; }

// Every set command against each verdict form; -2 timed for two of them.
// Selecting or deleting a frame re-reads the current one after a verdict
// true; the standard arm answers that read, so true still gives 0.
TEST(frames, every_set_command_maps_each_verdict_form) {
    using quiet = set_row::no_reply;
    static const ka_frame_t tool{"tip", pose_in, 1.2345f, 0.0015f, -0.0025f, 0.1f};
    // clang-format off
    const set_row rows[] = {
        {"set_auto_tool_frame", CALL(ka_set_auto_tool_frame(h, 2)), "", "auto_tool_frame", 500, quiet::always},
        {"generate_auto_tool_frame", CALL(ka_generate_auto_tool_frame(h, "tip", 1.5f, 0, 0, 0.1f)), "set_auto_tool_frame", "auto_tool_frame"},
        {"set_manual_tool_frame", CALL(ka_set_manual_tool_frame(h, tool)), "", "manual_tool_frame"},
        {"update_tool_frame", CALL(ka_update_tool_frame(h, tool)), "", "update_state"},
        {"set_auto_work_frame", CALL(ka_set_auto_work_frame(h, "table", 3)), "", "auto_work_frame"},
        {"set_manual_work_frame", CALL(ka_set_manual_work_frame(h, "table", pose_in)), "", "manual_work_frame"},
        {"update_work_frame", CALL(ka_update_work_frame(h, "table", pose_in)), "", "update_state"},
        {"set_change_tool_frame", CALL(ka_change_tool_frame(h, "tip")), "", "change_tool_frame", 500, quiet::always},
        {"set_delete_tool_frame", CALL(ka_delete_tool_frame(h, "tip")), "", "delete_tool_frame"},
        {"set_change_work_frame", CALL(ka_change_work_frame(h, "table")), "", "change_work_frame"},
        {"set_delete_work_frame", CALL(ka_delete_work_frame(h, "table")), "", "delete_work_frame"},
    };
    // clang-format on
    expect_set_outcomes(rows);
}
