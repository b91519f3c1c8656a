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
// The seventh angle and the quaternion are never written by a read.
const ka_waypoint_t blank{"keep", {0, 0, 0, 0, 0, 0, -7}, {{}, {9}}};
// clang-format on
const std::string joints6 = "[10500,-20001,0,0,0,1]", G = "given_global_waypoint",
                  L = "get_global_waypoints_list";

// One waypoint's keys, as a reply's fields or, in braces, a list entry.
std::string fields(const std::string &name, const std::string &joints = joints6,
                   const std::string &frame = "World",
                   const std::string &time = "2024-05-06 07:08:09") {
    return R"("point_name":")" + name + R"(","joint":)" + joints +
           R"(,"pose":[300000,-1,1500000,3141,-1570,0],"work_frame":")" + frame +
           R"(","tool_frame":"Arm_Tip","time":")" + time + "\"";
}
// A list reply's fields: the named entries, then optionally a bad one and a good one.
std::string page(const std::vector<std::string> &names, const std::string &state = "true",
                 const std::string &bad_entry = "") {
    std::string list;
    for (const auto &name : names)
        list += (list.empty() ? "{" : ",{") + fields(name) + "}";
    if (!bad_entry.empty()) list += ",{" + bad_entry + "},{" + fields("after") + "}";
    return R"("get_state":)" + state + R"(,"total_size":40,"list":[)" + list + "]";
}

// The record read from fields(name) over blank.
void expect_sample(const ka_waypoint_t &w, const char *name) {
    EXPECT_STREQ(w.point_name, name);
    EXPECT_EQ(std::string(w.work_frame) + "|" + w.tool_frame + "|" + w.time,
              "World|Arm_Tip|2024-05-06 07:08:09");
    // clang-format off
    const float got[] = {w.joint[0], w.joint[1], w.joint[5], w.joint[6], w.pose.position.x, w.pose.position.y, w.pose.euler.rx, w.pose.euler.ry, w.pose.quaternion.w};
    const float want[] = {10.5f, -20.001f, 0.001f, -7.0f, 0.3f, -0.000001f, 3.141f, -1.570f, 9.0f};
    // clang-format on
    for (size_t i = 0; i < std::size(want); ++i)
        EXPECT_FLOAT_EQ(got[i], want[i]) << name << " [" << i << "]";
}

} // namespace

TEST(waypoints, every_command_sends_its_exact_line_and_leaves_records_as_documented) {
    arm_session s;
    ka_waypoint_t full = sample, update = sample, got = blank, w = blank;
    // A name filling its field goes out whole and no further.
    std::memcpy(full.point_name, "ABCDEFGHIJKLMNOPQRST", KA_WAYPOINT_NAME_SIZE);
    static ka_waypoint_list_t list, all;
    list.points[2] = blank;
    auto given = [&](auto h) { return ka_get_given_global_waypoint(h, "p1", &w); };
    auto listed = [](auto h) { return ka_get_global_waypoints_list(h, 1, 5, nullptr, &list); };
    const std::string by_name = R"("point_name":"p1")", page1 = R"("page_num":1,"page_size":5)";
    // Texts are cut to the record's bounds (16, 10 and 28 characters) and terminated.
    const std::string long_texts = fields("ABCDEFGHIJKLMNOPQR", joints6, "ABCDEFGHIJKLMN",
                                          "2024-05-06 07:08:09.123456789012345678");
    // Add and update send the record with the time they stamp into it; their
    // request column holds the name on the wire. After each row, *name is want.
    // Seven joints on a six-axis arm: a bad reply, or a bad third entry after two good ones.
    // clang-format off
    const struct { std::string command; std::function<int(ka_robot_handle *)> call; std::string request, answer; int result; const ka_waypoint_t *stamped; const char *name, *want; } rows[] = {
        {"add_global_waypoint", [&](auto h) { return ka_add_global_waypoint(h, &full); }, "ABCDEFGHIJKLMNOPQRST", R"("add_state":true)", 0, &full},
        {"update_global_waypoint", [&](auto h) { return ka_update_global_waypoint(h, &update); }, "p1", R"("update_state":false)", 1, &update},
        {"delete_global_waypoint", [](auto h) { return ka_delete_global_waypoint(h, "p1"); }, by_name, R"("delete_state":true)", 0},
        {G, [&](auto h) { return ka_get_given_global_waypoint(h, "p1", &got); }, by_name, fields("p1"), 0},
        {L, [](auto h) { return ka_get_global_waypoints_list(h, 2, 3, "p", &list); }, R"("vague_search":"p","page_num":2,"page_size":3)", page({"p1", "p2"}), 0, nullptr, list.points[1].point_name, "p2"},
        {L, [](auto h) { return ka_get_global_waypoints_list(h, 1, 10, nullptr, &all); }, R"("page_num":1,"page_size":10)", page({}), 0},
        {G, given, by_name, R"("given_state":false)", 1, nullptr, w.point_name, "keep"},
        {G, given, by_name, R"("given_state":true)", -3, nullptr, w.point_name, "keep"},
        {G, given, by_name, "", -3, nullptr, w.point_name, "keep"},
        {G, given, by_name, fields("p1", "[1,2,3,4,5,6,7]"), -3, nullptr, w.point_name, "keep"},
        {G, given, by_name, long_texts, 0, nullptr, w.point_name, "ABCDEFGHIJKLMNOP"},
        {L, listed, page1, page({}, "false"), 1},
        {L, listed, page1, page({}, R"("yes")"), -3},
        {L, listed, page1, page({"a", "b"}, "true", fields("c", "[1,2,3,4,5,6,7]")), -3, nullptr, list.points[2].point_name, "keep"},
    };
    // clang-format on
    const std::regex stamp(R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d)");
    for (const auto &r : rows) {
        SCOPED_TRACE(r.command + " " + r.request + " <- " + r.answer);
        s.peer.clear_lines();
        s.peer.answer_next({reply(line(r.command, r.answer))});
        EXPECT_EQ(r.call(s.arm), r.result);
        ASSERT_TRUE(s.peer.wait_for_lines(1, 2s));
        const ka_waypoint_t *stamped = r.stamped;
        EXPECT_EQ(s.peer.lines().front(),
                  line(r.command,
                       stamped ? fields(r.request, joints6, "World", stamped->time) : r.request));
        if (stamped) EXPECT_TRUE(std::regex_match(stamped->time, stamp)) << stamped->time;
        if (r.name) EXPECT_STREQ(r.name, r.want);
    }
    expect_sample(got, "p1");
    EXPECT_EQ(std::vector<int>({all.page_num, all.page_size, all.total_size, all.list_len}),
              std::vector<int>({1, 10, 40, 0}));
    EXPECT_EQ(std::string(w.work_frame) + "|" + w.time, "ABCDEFGHIJ|2024-05-06 07:08:09.12345678");
    EXPECT_STREQ(list.points[1].point_name, "b");

    // A lost DOF sends nothing, except the single read, which checks after its reply.
    s.peer.clear_lines();
    store_public(registry_find(s.arm)->pub.arm_dof, 5);
    EXPECT_EQ(ka_add_global_waypoint(s.arm, &w), -1);
    EXPECT_EQ(ka_update_global_waypoint(s.arm, &w), -1);
    EXPECT_EQ(ka_get_global_waypoints_list(s.arm, 1, 5, nullptr, &list), -1);
    EXPECT_FALSE(s.peer.wait_for_lines(1, 100ms)) << "nothing sent";
    expect_wire(s, {"given", given, line(G, by_name), line(G, fields("p1")), -1});
}

TEST(waypoints, long_pages_are_read_whole_and_cut_at_the_record_capacity) {
    std::vector<std::string> names;
    for (int i = 0; i <= KA_WAYPOINT_LIST_CAPACITY; ++i)
        names.push_back("p" + std::to_string(i));
    // 30 entries are a line of some 3 KB, read by the caller's thread and by the receive thread.
    for (int mode : {KA_THREAD_MODE_SINGLE, KA_THREAD_MODE_TRIPLE}) {
        arm_session s(mode);
        static ka_waypoint_list_t list;
        list.points[29] = blank;
        auto call = [](auto h) { return ka_get_global_waypoints_list(h, 1, 30, "", &list); };
        expect_wire(s, {"30 entries", call,
                        line(L, R"("vague_search":"","page_num":1,"page_size":30)"),
                        line(L, page({names.begin(), names.begin() + 30})), 0});
        EXPECT_EQ(list.list_len, 30) << mode;
        expect_sample(list.points[29], "p29");
    }
    // More entries than the record holds (no reply line is that long): the
    // record after it stays untouched.
    static ka_waypoint_list_t pages[2];
    std::memset(&pages[1], 0x5A, sizeof pages[1]);
    ASSERT_EQ(waypoints::parse_list(line(L, page(names)).c_str(), 6, pages[0]), 0);
    EXPECT_EQ(pages[0].list_len, KA_WAYPOINT_LIST_CAPACITY);
    EXPECT_STREQ(pages[0].points[KA_WAYPOINT_LIST_CAPACITY - 1].point_name, "p99");
    const char *guard = reinterpret_cast<const char *>(&pages[1]);
    EXPECT_EQ(std::string(guard, sizeof pages[1]), std::string(sizeof pages[1], 0x5A));
}

// Every set command against each verdict form; -2 timed for two of them.
TEST(waypoints, every_set_command_maps_each_verdict_form) {
    using quiet = set_row::no_reply;
    static ka_waypoint_t point = sample;
    // clang-format off
    const set_row rows[] = {
        {"add_global_waypoint", [](ka_robot_handle *h) { return ka_add_global_waypoint(h, &point); }, "", "add_state", 500, quiet::always},
        {"update_global_waypoint", [](ka_robot_handle *h) { return ka_update_global_waypoint(h, &point); }, "", "update_state"},
        {"delete_global_waypoint", [](ka_robot_handle *h) { return ka_delete_global_waypoint(h, "p1"); }, "", "delete_state", 500, quiet::always},
    };
    // clang-format on
    expect_set_outcomes(rows);
}

// The page and search text the reply does not echo come from the request:
// a long search is cut to the record's field and terminated, the bytes after
// it zeroed; no search reads as empty; a request that failed writes nothing.
TEST(waypoints, the_record_takes_the_requested_page_and_search_text) {
    arm_session s;
    const std::string long_search(KA_SEARCH_TEXT_SIZE + 8, 's');
    // clang-format off
    struct { const char *name; const char *search; std::string sent, answer; int result; int page_num; std::string kept; } const rows[] = {
        {"long search", long_search.c_str(), R"("vague_search":")" + long_search + R"(","page_num":3,"page_size":4)", page({"p1"}), 0, 3, std::string(KA_SEARCH_TEXT_SIZE - 1, 's') + '\0'},
        {"no search", nullptr, R"("page_num":3,"page_size":4)", page({}), 0, 3, std::string(KA_SEARCH_TEXT_SIZE, '\0')},
        {"no reply", "x", R"("vague_search":"x","page_num":3,"page_size":4)", "", -2, -1, std::string(KA_SEARCH_TEXT_SIZE, '#')},
    };
    // clang-format on
    for (const auto &r : rows) {
        SCOPED_TRACE(r.name);
        static ka_waypoint_list_t list;
        std::memset(&list, '#', sizeof list);
        list.page_num = list.page_size = -1;
        const char *search = r.search;
        expect_wire(
            s, {r.name,
                [search](auto h) { return ka_get_global_waypoints_list(h, 3, 4, search, &list); },
                line(L, r.sent), r.answer.empty() ? "" : line(L, r.answer), r.result});
        EXPECT_EQ(list.page_num, r.page_num);
        EXPECT_EQ(std::string(list.vague_search, KA_SEARCH_TEXT_SIZE), r.kept);
    }
}
