// Global waypoints: exact requests with the stamped time and scaled joints
// and pose, reading one waypoint and a page of them, refusals, malformed
// entries, the DOF bound and the page capacity.
#include "core/arm.h"
#include "support/arm_fixture.h"

#include <cstring>
#include <gtest/gtest.h>
#include <regex>

namespace waypoints {
int parse_list(const char *text, int dof, ka_waypoint_list_t &list);
}

using namespace ka_test;
using namespace std::chrono_literals;

namespace {

// Truncation toward zero shows in -20.0019 -> -20001, 0.0019 -> 1, 3.1416 -> 3141.
// clang-format off
const ka_waypoint_t sample{"p1", {10.5f, -20.0019f, 0, 0, 0, 0.0019f, 99}, {{0.3f, -0.0000019f, 1.5f}, {1, 0, 0, 0}, {3.1416f, -1.5708f, 0.0005f}}, "World", "Arm_Tip", "caller's time"};
// clang-format on
const std::string joints6 = "[10500,-20001,0,0,0,1]",
                  pose_wire = "[300000,-1,1500000,3141,-1570,0]";

std::string line(const std::string &command, const std::string &rest) {
    return R"({"command":")" + command + "\"" + (rest.empty() ? "" : "," + rest) + "}";
}
// One waypoint's keys, as a reply's fields or, in braces, a list entry.
std::string fields(const std::string &name, const std::string &joints = joints6,
                   const std::string &frame = "World",
                   const std::string &time = "2024-05-06 07:08:09") {
    return R"("point_name":")" + name + R"(","joint":)" + joints + R"(,"pose":)" + pose_wire +
           R"(,"work_frame":")" + frame + R"(","tool_frame":"Arm_Tip","time":")" + time + "\"";
}
std::string page(const std::vector<std::string> &names, const std::string &state = "true",
                 const std::string &bad_entry = "") {
    std::string list;
    for (const auto &name : names)
        list += (list.empty() ? "{" : ",{") + fields(name) + "}";
    if (!bad_entry.empty()) list += ",{" + bad_entry + "}," + "{" + fields("after") + "}";
    return line("get_global_waypoints_list",
                R"("get_state":)" + state + R"(,"total_size":40,"list":[)" + list + "]");
}

// The record read from fields("p1"); seventh angle and quaternion are never written.
void expect_sample(const ka_waypoint_t &w, const char *name) {
    EXPECT_STREQ(w.point_name, name);
    EXPECT_EQ(std::string(w.work_frame) + "|" + w.tool_frame + "|" + w.time,
              "World|Arm_Tip|2024-05-06 07:08:09");
    const float got[] = {w.joint[0],      w.joint[1],        w.joint[5],
                         w.joint[6],      w.pose.position.x, w.pose.position.y,
                         w.pose.euler.rx, w.pose.euler.ry,   w.pose.quaternion.w};
    const float want[] = {10.5f, -20.001f, 0.001f, -7.0f, 0.3f, -0.000001f, 3.141f, -1.570f, 9.0f};
    for (size_t i = 0; i < std::size(want); ++i)
        EXPECT_FLOAT_EQ(got[i], want[i]) << name << " [" << i << "]";
}

ka_waypoint_t blank() {
    ka_waypoint_t w{};
    std::strcpy(w.point_name, "keep");
    w.joint[6] = -7.0f;
    w.pose.quaternion.w = 9.0f;
    return w;
}

} // namespace

TEST(waypoints, every_command_sends_its_exact_line_with_the_time_stamped_at_the_call) {
    arm_session s;
    ka_waypoint_t add = sample, update = sample, got = blank();
    static ka_waypoint_list_t list;
    // Add and update end with the time, filled in after the call.
    const std::string body = fields("p1").substr(0, fields("p1").rfind(":\"") + 2);
    // clang-format off
    const wire_case rows[] = {
        {"add", [&](auto h) { return ka_add_global_waypoint(h, &add); }, line("add_global_waypoint", body), line("add_global_waypoint", R"("add_state":true)"), 0},
        {"update", [&](auto h) { return ka_update_global_waypoint(h, &update); }, line("update_global_waypoint", body), line("update_global_waypoint", R"("update_state":false)"), 1},
        {"delete", [](auto h) { return ka_delete_global_waypoint(h, "p1"); }, line("delete_global_waypoint", R"("point_name":"p1")"), line("delete_global_waypoint", R"("delete_state":true)"), 0},
        {"given", [&](auto h) { return ka_get_given_global_waypoint(h, "p1", &got); }, line("given_global_waypoint", R"("point_name":"p1")"), line("given_global_waypoint", fields("p1")), 0},
        {"list", [](auto h) { return ka_get_global_waypoints_list(h, 2, 3, "p", &list); }, line("get_global_waypoints_list", R"("vague_search":"p","page_num":2,"page_size":3)"), page({"p1", "p2"}), 0},
        {"list all", [](auto h) { return ka_get_global_waypoints_list(h, 1, 10, nullptr, &list); }, line("get_global_waypoints_list", R"("page_num":1,"page_size":10)"), page({}), 0},
    };
    // clang-format on
    const std::regex stamp(R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d)");
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        s.peer.clear_lines();
        s.peer.answer_next({reply(row.reply)});
        EXPECT_EQ(row.call(s.arm), row.result);
        ASSERT_TRUE(s.peer.wait_for_lines(1, 2s));
        std::string request = row.request;
        if (ka_waypoint_t *w = row.name == "add"      ? &add
                               : row.name == "update" ? &update
                                                      : nullptr) {
            EXPECT_TRUE(std::regex_match(w->time, stamp)) << w->time;
            request.insert(request.size() - 1, std::string(w->time) + "\"");
        }
        EXPECT_EQ(s.peer.lines().front(), request);
        if (row.name == "list") EXPECT_STREQ(list.points[1].point_name, "p2");
    }
    expect_sample(got, "p1");
    EXPECT_EQ(std::vector<int>({list.page_num, list.page_size, list.total_size, list.list_len}),
              std::vector<int>({1, 10, 40, 0}));
}

TEST(waypoints, refusals_malformed_entries_and_the_dof_bound_leave_records_as_documented) {
    arm_session s;
    const std::string given = line("given_global_waypoint", R"("point_name":"p1")");
    // Texts are cut to the record's bounds (16, 10 and 28 characters) and terminated.
    const std::string long_texts = fields("ABCDEFGHIJKLMNOPQR", joints6, "ABCDEFGHIJKLMN",
                                          "2024-05-06 07:08:09.123456789012345678");
    // clang-format off
    const struct { std::string answer; int result; const char *name; } given_rows[] = {
        {R"("given_state":false)", 1, "keep"},
        {R"("given_state":true)", -3, "keep"},
        {"", -3, "keep"},
        {fields("p1", "[1,2,3,4,5,6,7]"), -3, "keep"}, // 7 joints on a 6-axis arm
        {long_texts, 0, "ABCDEFGHIJKLMNOP"},
    };
    // clang-format on
    ka_waypoint_t w{};
    for (const auto &r : given_rows) {
        w = blank();
        expect_wire(s, {r.answer, [&](auto h) { return ka_get_given_global_waypoint(h, "p1", &w); },
                        given, line("given_global_waypoint", r.answer), r.result});
        EXPECT_STREQ(w.point_name, r.name);
    }
    EXPECT_EQ(std::string(w.work_frame) + "|" + w.time, "ABCDEFGHIJ|2024-05-06 07:08:09.12345678");

    // A page: refused, a bad state, and a bad third entry after two good ones.
    static ka_waypoint_list_t list;
    auto list_call = [](auto h) { return ka_get_global_waypoints_list(h, 1, 5, nullptr, &list); };
    const std::string list_request =
        line("get_global_waypoints_list", R"("page_num":1,"page_size":5)");
    expect_wire(s, {"refused", list_call, list_request, page({}, "false"), 1});
    expect_wire(s, {"bad state", list_call, list_request, page({}, R"("yes")"), -3});
    list.points[2] = blank();
    expect_wire(s, {"7 joints", list_call, list_request,
                    page({"a", "b"}, "true", fields("c", "[1,2,3,4,5,6,7]")), -3});
    EXPECT_STREQ(list.points[1].point_name, "b");
    EXPECT_STREQ(list.points[2].point_name, "keep");

    // A name filling its field goes out whole and no further.
    ka_waypoint_t full = sample;
    std::memcpy(full.point_name, "ABCDEFGHIJKLMNOPQRST", KA_WAYPOINT_NAME_SIZE);
    s.peer.clear_lines();
    EXPECT_EQ(ka_add_global_waypoint(s.arm, &full), -2);
    ASSERT_TRUE(s.peer.wait_for_lines(1, 2s));
    EXPECT_NE(s.peer.last_line().find(R"("point_name":"ABCDEFGHIJKLMNOPQRST","joint")"),
              std::string::npos);

    // A lost DOF sends nothing, except the single read, which checks after its reply.
    s.peer.clear_lines();
    store_public(registry_find(s.arm)->pub.arm_dof, 5);
    EXPECT_EQ(ka_add_global_waypoint(s.arm, &full), -1);
    EXPECT_EQ(ka_update_global_waypoint(s.arm, &full), -1);
    EXPECT_EQ(ka_get_global_waypoints_list(s.arm, 1, 5, nullptr, &list), -1);
    EXPECT_FALSE(s.peer.wait_for_lines(1, 100ms)) << "nothing sent";
    expect_wire(s, {"given", [&](auto h) { return ka_get_given_global_waypoint(h, "p1", &w); },
                    given, line("given_global_waypoint", fields("p1")), -1});
}

TEST(waypoints, long_pages_are_read_whole_and_cut_at_the_record_capacity) {
    std::vector<std::string> names;
    for (int i = 0; i <= KA_WAYPOINT_LIST_CAPACITY; ++i)
        names.push_back("p" + std::to_string(i));
    // 30 entries are a line of some 3 KB, read by the caller's thread and by the receive thread.
    for (int mode : {KA_THREAD_MODE_SINGLE, KA_THREAD_MODE_TRIPLE}) {
        arm_session s(mode);
        static ka_waypoint_list_t list;
        list.points[29] = blank();
        expect_wire(
            s,
            {"30 entries", [](auto h) { return ka_get_global_waypoints_list(h, 1, 30, "", &list); },
             line("get_global_waypoints_list", R"("vague_search":"","page_num":1,"page_size":30)"),
             page({names.begin(), names.begin() + 30}), 0});
        EXPECT_EQ(list.list_len, 30) << mode;
        expect_sample(list.points[29], "p29");
    }
    // More entries than the record holds (no reply line is that long): the
    // guard after the record stays untouched.
    static struct {
        ka_waypoint_list_t list;
        unsigned char guard[sizeof(ka_waypoint_t)];
    } page_and_guard;
    std::memset(page_and_guard.guard, 0x5A, sizeof page_and_guard.guard);
    ASSERT_EQ(waypoints::parse_list(page(names).c_str(), 6, page_and_guard.list), 0);
    EXPECT_EQ(page_and_guard.list.list_len, KA_WAYPOINT_LIST_CAPACITY);
    EXPECT_STREQ(page_and_guard.list.points[KA_WAYPOINT_LIST_CAPACITY - 1].point_name, "p99");
    EXPECT_EQ(std::count(std::begin(page_and_guard.guard), std::end(page_and_guard.guard), 0x5A),
              static_cast<long>(sizeof page_and_guard.guard));
}
