// Safety configuration: exact request lines and reply scaling of every
// command, the zone forms each sender takes, refusals that send nothing, and
// readers that stay inside the caller's room and keep its record on failure.
#include "core/arm.h"
#include "support/arm_fixture.h"

#include <cstring>
#include <gtest/gtest.h>

using namespace ka_test;
using namespace std::chrono_literals;

namespace {

ka_fence_config_t zone(int form, const char *name = "") {
    ka_fence_config_t z{form, {}, {-0.5f, 0.5f, -0.4f, 0.4f, 0.1f, 0.9f}};
    z.plane = {0.0125f, -0.0125f, 1, 0, 0, 0, 0, 0, -0.0009f};
    z.sphere = {0.1f, -0.2f, 0.3f, 0.05f};
    std::strncpy(z.form_name, name, KA_NAME_SIZE);
    return z;
}

// The box above on the wire; "z_min_limit" carries the lower x bound.
const std::string cube_wire = R"("x_max_limit":500,"x_min_limit":-500,"y_max_limit":400,)"
                              R"("y_min_limit":-400,"z_max_limit":900,"z_min_limit":-500)";
// A box as the controller reports it, "z_min_limit" meaning the lower z bound.
const std::string cube_read = R"("x_max_limit":500,"x_min_limit":-500,"y_max_limit":400,)"
                              R"("y_min_limit":-400,"z_max_limit":900,"z_min_limit":100)";
const std::string plane_wire =
    R"("x1":12,"y1":-12,"z1":1000,"x2":0,"y2":0,"z2":0,"x3":0,"y3":0,"z3":0)";
const std::string sphere_wire = R"("radius":50,"x":100,"y":-200,"z":300)";

void expect_floats(const std::vector<float> &got, const std::vector<float> &want) {
    for (size_t i = 0; i < want.size(); ++i)
        EXPECT_FLOAT_EQ(got.at(i), want[i]) << "value " << i;
}

} // namespace

// Each reading row checks what it parsed into the caller's record.
TEST(safety, every_command_sends_its_exact_line_and_scales_its_reply) {
    arm_session s;
    s.peer.on("get_install_pose", {reply(line("install_pose", R"("pose":[0,180,0])"))});
    // clang-format off
    const wire_case rows[] = {
        {"add cube", [](auto h) { return ka_add_electronic_fence_config(h, zone(1, "box")); }, line("add_electronic_fence_config", R"("form":1,"form_name":"box",)" + cube_wire), line("add_electronic_fence_config", R"("add_config":true)"), 0},
        {"update plane", [](auto h) { return ka_update_electronic_fence_config(h, zone(2, "ABCDEFGHIJKL")); }, line("update_electronic_fence_config", R"("form":2,"form_name":"ABCDEFGHIJKL",)" + plane_wire), line("update_electronic_fence_config", R"("update_config":false)"), 1},
        {"delete", [](auto h) { return ka_delete_electronic_fence_config(h, "box"); }, line("delete_electronic_fence_config", R"("form_name":"box")"), line("delete_electronic_fence_config", R"("delete_config":true)"), 0},
        {"names", [](auto h) { ka_fence_names_t n[KA_FENCE_LIST_CAPACITY] = {}; int len = -1, r = ka_get_electronic_fence_list_names(h, n, &len); EXPECT_EQ(len, 3); EXPECT_STREQ(n[1].name, "ball"); EXPECT_EQ(std::string(n[2].name, KA_NAME_SIZE), "ABCDEFGHIJKL") << "a full slot is left unterminated"; return r; }, line("get_electronic_fence_list_names"), line("get_electronic_fence_list_names", R"("name_list":["box","ball","ABCDEFGHIJKLMN"])"), 0},
        {"given", [](auto h) { ka_fence_config_t g{}; int r = ka_get_given_electronic_fence_config(h, "ball", &g); EXPECT_EQ(g.form, 3); EXPECT_STREQ(g.form_name, "ball_zone_") << "ten characters at most"; expect_floats({g.sphere.radius, g.sphere.y}, {0.05f, -0.2f}); return r; }, line("given_electronic_fence_config", R"("form_name":"ball")"), line("given_electronic_fence_config", R"("given_state":true,"form":3,"form_name":"ball_zone_long",)" + sphere_wire), 0},
        {"infos", [](auto h) { ka_fence_config_list_t l[KA_FENCE_LIST_CAPACITY] = {}; int len = -1, r = ka_get_electronic_fence_list_infos(h, l, &len); EXPECT_EQ(len, 2); EXPECT_STREQ(l[0].form_name, "box"); EXPECT_EQ(l[1].form, 2); expect_floats({l[0].cube.x_min_limit, l[0].cube.z_min_limit, l[1].plane.x1, l[1].plane.z1}, {-0.5f, 0.1f, 0.012f, 1}); return r; }, line("get_electronic_fence_list_infos"), line("get_electronic_fence_list_infos", R"("info_list":[{"form_name":"box","form":1,)" + cube_read + R"(},{"form_name":"p","form":2,)" + plane_wire + "}]"), 0},
        {"fence enable", [](auto h) { return ka_set_electronic_fence_enable(h, {true, 1, 2}); }, line("set_electronic_fence_enable", R"("set_enable":true,"in_out_side":1,"effective_region":2)"), line("set_electronic_fence_enable", R"("set_state":true)"), 0},
        {"fence enabled", [](auto h) { ka_electronic_fence_enable_t e{}; int r = ka_get_electronic_fence_enable(h, &e); EXPECT_EQ((std::vector<int>{e.enable_state, e.in_out_side, e.effective_region}), (std::vector<int>{1, 1, 3})); return r; }, line("get_electronic_fence_enable"), line("get_electronic_fence_enable", R"("enable_state":true,"in_out_side":1,"effective_region":3)"), 0},
        {"fence cube", [](auto h) { return ka_set_electronic_fence_config(h, zone(1, "ignored")); }, line("set_electronic_fence_config", R"("form":1,)" + cube_wire), line("set_electronic_fence_config", R"("set_config":true)"), 0},
        {"fence read", [](auto h) { ka_fence_config_t z{}; int r = ka_get_electronic_fence_config(h, &z); EXPECT_EQ(z.form, 2); EXPECT_FLOAT_EQ(z.plane.y1, -0.012f); return r; }, line("get_electronic_fence_config"), line("get_electronic_fence_config", R"("form":2,)" + plane_wire), 0},
        {"wall enable", [](auto h) { return ka_set_virtual_wall_enable(h, {false, 0, -1}); }, line("set_virtual_wall_enable", R"("set_enable":false,"in_out_side":0,"effective_region":-1)"), line("set_virtual_wall_enable", R"("set_state":true)"), 0},
        {"wall enabled", [](auto h) { ka_electronic_fence_enable_t e{true, 0, 0}; int r = ka_get_virtual_wall_enable(h, &e); EXPECT_EQ((std::vector<int>{e.enable_state, e.in_out_side, e.effective_region}), (std::vector<int>{0, 1, 0})); return r; }, line("get_virtual_wall_enable"), line("get_virtual_wall_enable", R"("enable_state":false,"in_out_side":1,"effective_region":0)"), 0},
        {"wall sphere", [](auto h) { return ka_set_virtual_wall_config(h, zone(3)); }, line("set_virtual_wall_config", R"("form":3,)" + sphere_wire), line("set_virtual_wall_config", R"("set_config":true)"), 0},
        {"wall read", [](auto h) { ka_fence_config_t z{}; int r = ka_get_virtual_wall_config(h, &z); EXPECT_EQ(z.form, 1); expect_floats({z.cube.x_min_limit, z.cube.z_min_limit}, {-0.5f, 0.1f}); return r; }, line("get_virtual_wall_config"), line("get_virtual_wall_config", R"("form":1,)" + cube_read), 0},
        {"collision on", [](auto h) { return ka_set_self_collision_enable(h, true); }, line("set_self_collision_enable", R"("set_enable":true)"), line("set_self_collision_enable", R"("set_state":true)"), 0},
        {"collision", [](auto h) { bool on = false; int r = ka_get_self_collision_enable(h, &on); EXPECT_TRUE(on); return r; }, line("get_self_collision_enable"), line("get_self_collision_enable", R"("enable_state":true)"), 0},
        {"run mode 2", [](auto h) { return ka_set_arm_run_mode(h, 2); }, line("set_arm_run_mode", R"("mode":1)"), line("set_arm_run_mode", R"("mode":true)"), 0},
        {"run mode 0", [](auto h) { return ka_set_arm_run_mode(h, 0); }, line("set_arm_run_mode", R"("mode":0)"), line("set_arm_run_mode", R"("mode":false)"), 1},
        {"run mode", [](auto h) { int m = -1, r = ka_get_arm_run_mode(h, &m); EXPECT_EQ(m, 1); return r; }, line("get_arm_run_mode"), line("get_arm_run_mode", R"("mode":1)"), 0},
        {"install read", [](auto h) { float x = -1, y = -1, z = -1; int r = ka_get_install_pose(h, &x, &y, &z); expect_floats({x, y, z}, {90, 0, -45}); return r; }, line("get_install_pose"), line("install_pose", R"("pose":[90,0,-45])"), 0},
        // Whole degrees, truncated; setting re-reads the angles into the handle's copy.
        {"install", [&](auto h) { int r = ka_set_install_pose(h, 90.7f, -0.9f, -45.5f); EXPECT_EQ(s.peer.commands(), (std::vector<std::string>{"set_install_pose", "get_install_pose"})); EXPECT_EQ(registry_find(h)->install[1], 180.0f); return r; }, line("set_install_pose", R"("pose":[90,0,-45])"), line("set_install_pose", R"("set_state":true)"), 0},
        {"joint versions", [](auto h) { int v[7] = {-7, -7, -7, -7, -7, -7, -7}, r = ka_get_joint_software_version(h, v); EXPECT_EQ(std::vector<int>(v, v + 7), (std::vector<int>{1, 2, 3, 4, 5, 6, -7})); return r; }, line("get_joint_software_version"), line("joint_software_version", R"("version":[1,2,3,4,5,6])"), 0},
        {"tool version", [](auto h) { int v = -1, r = ka_get_tool_software_version(h, &v); EXPECT_EQ(v, 257); return r; }, line("get_tool_software_version"), line("tool_software_version", R"("version":257)"), 0},
    };
    // clang-format on
    for (const auto &row : rows)
        expect_wire(s, row);
}

// Refused before anything is sent: a form the sender does not take (the
// engine's send-error line, with an empty command name, or the add's own
// refusal), an unregistered handle, a null output, an unknown DOF.
TEST(safety, refusals_send_nothing) {
    arm_session s;
    ka_robot_handle stranger{};
    ka_electronic_fence_enable_t state{};
    bool enable = false;
    int len = 0, versions[7];
    const std::string no_handle = "[ka_get_robot_info] handle is NULL!\n";
    // clang-format off
    struct { std::function<int(ka_robot_handle *)> call; int result; std::vector<std::string> logged; } const rows[] = {
        {[](auto h) { return ka_set_virtual_wall_config(h, zone(2)); }, -1, {"virtual wall form check err!\n", "[ka_set_virtual_wall_config]  send error\n"}},
        {[](auto h) { return ka_set_virtual_wall_config(h, zone(0)); }, -1, {"[ka_set_virtual_wall_config]  send error\n"}},
        {[](auto h) { return ka_set_electronic_fence_config(h, zone(3)); }, -1, {"electronic fence form check err!!", "[ka_set_electronic_fence_config]  send error\n"}},
        {[](auto h) { return ka_set_electronic_fence_config(h, zone(7)); }, -1, {"[ka_set_electronic_fence_config]  send error\n"}},
        {[](auto h) { ka_fence_names_t n[1] = {}; return ka_get_electronic_fence_list_names(h, n, nullptr); }, -1, {}},
        {[](auto h) { return ka_update_electronic_fence_config(h, zone(4, "x")); }, -1, {"[ka_update_electronic_fence_config]  send error\n"}},
        {[](auto h) { return ka_add_electronic_fence_config(h, zone(4, "x")); }, -4, {"Configuration error for the form of the newly added electronic fence! Wrong form: 4\n"}},
        {[&](auto) { return ka_get_electronic_fence_enable(&stranger, &state); }, -1, {no_handle}},
        {[&](auto) { return ka_get_self_collision_enable(&stranger, &enable); }, -1, {no_handle}},
        {[](auto h) { return ka_get_electronic_fence_enable(h, nullptr); }, -1, {}},
        {[](auto h) { return ka_get_self_collision_enable(h, nullptr); }, -1, {}},
        {[&](auto h) { return ka_get_electronic_fence_list_names(h, nullptr, &len); }, -1, {}},
        {[&](auto h) { return ka_get_electronic_fence_list_infos(h, nullptr, &len); }, -1, {}},
        {[](auto h) { return ka_get_given_electronic_fence_config(h, "x", nullptr); }, -1, {}},
        {[](auto h) { return ka_get_joint_software_version(h, nullptr); }, -1, {}},
        {[&](auto h) { store_public(registry_find(h)->pub.arm_dof, 5); return ka_get_joint_software_version(h, versions); }, -1, {"[ka_get_joint_software_version] The robotic arm has been disconnected\n"}},
    };
    // clang-format on
    for (const auto &row : rows) {
        log_capture log;
        EXPECT_EQ(row.call(s.arm), row.result) << "row " << &row - rows;
        auto lines = log.lines();
        for (const auto &text : row.logged)
            EXPECT_NE(std::find(lines.begin(), lines.end(), text), lines.end()) << text;
    }
    EXPECT_FALSE(s.peer.wait_for_lines(1, 100ms)) << "nothing reached the controller";
}

// The list readers write at most the capacity (the full list of planes also
// needs more than one ordinary reply buffer); a failed read leaves the
// caller's record as it was; a 7-axis arm reads seven versions, not six.
TEST(safety, readers_stay_in_bounds_and_keep_the_record_on_failure) {
    arm_session s;
    log_capture log;
    store_public(registry_find(s.arm)->pub.arm_dof, 7);
    const ka_fence_config_t original = zone(1, "mine");
    ka_fence_config_t config = original;
    ka_fence_config_list_t infos[KA_FENCE_LIST_CAPACITY], full[KA_FENCE_LIST_CAPACITY + 1];
    std::fill(std::begin(infos), std::end(infos), original);
    std::fill(std::begin(full), std::end(full), original); // the last one is a guard
    ka_fence_names_t names[KA_FENCE_LIST_CAPACITY + 1] = {};
    std::strcpy(names[KA_FENCE_LIST_CAPACITY].name, "guard");
    int len = 0, names_len = 0, full_len = 0, versions[7] = {};
    std::string many, planes;
    for (int i = 0; i < KA_FENCE_LIST_CAPACITY + 1; ++i) {
        const std::string comma = i ? "," : "", n = std::to_string(i);
        many += comma + "\"zone_" + n + "\"";
        planes += comma + R"({"form_name":"p)" + n + R"(","form":2,)" + plane_wire + "}";
    }
    const std::string full_reply =
        line("get_electronic_fence_list_infos", "\"info_list\":[" + planes + "]");
    ASSERT_GT(full_reply.size(), 1024u);
    // clang-format off
    const wire_case rows[] = {
        {"names over capacity", [&](auto h) { return ka_get_electronic_fence_list_names(h, names, &names_len); }, line("get_electronic_fence_list_names"), line("get_electronic_fence_list_names", "\"name_list\":[" + many + "]"), 0},
        {"infos over capacity", [&](auto h) { return ka_get_electronic_fence_list_infos(h, full, &full_len); }, line("get_electronic_fence_list_infos"), full_reply, 0},
        {"unknown name", [&](auto h) { return ka_get_given_electronic_fence_config(h, "gone", &config); }, line("given_electronic_fence_config", R"("form_name":"gone")"), line("given_electronic_fence_config", R"("given_state":false,"form":1)"), 1},
        {"given key missing", [&](auto h) { return ka_get_given_electronic_fence_config(h, "gone", &config); }, line("given_electronic_fence_config", R"("form_name":"gone")"), line("given_electronic_fence_config", R"("form":3,"form_name":"b","radius":1,"x":1,"y":1)"), -3},
        {"no active fence", [&](auto h) { return ka_get_electronic_fence_config(h, &config); }, line("get_electronic_fence_config"), line("get_electronic_fence_config", R"("given_state":false)"), 1},
        {"no form", [&](auto h) { return ka_get_electronic_fence_config(h, &config); }, line("get_electronic_fence_config"), line("get_electronic_fence_config", R"("given_state":true)"), -3},
        {"wall key missing", [&](auto h) { return ka_get_virtual_wall_config(h, &config); }, line("get_virtual_wall_config"), line("get_virtual_wall_config", R"("form":1,"x_max_limit":1)"), -3},
        {"no reply", [&](auto h) { return ka_get_virtual_wall_config(h, &config); }, line("get_virtual_wall_config"), "", -2},
        {"names not a list", [&](auto h) { return ka_get_electronic_fence_list_names(h, names, &names_len); }, line("get_electronic_fence_list_names"), line("get_electronic_fence_list_names", R"("name_list":"box")"), -3},
        {"second element bad", [&](auto h) { return ka_get_electronic_fence_list_infos(h, infos, &len); }, line("get_electronic_fence_list_infos"), line("get_electronic_fence_list_infos", R"("info_list":[{"form_name":"a","form":3,)" + sphere_wire + R"(},{"form_name":"b","form":3,"radius":1,"x":1,"y":1},{"form_name":"c","form":3,)" + sphere_wire + "}]"), -3},
        {"7 joints", [&](auto h) { return ka_get_joint_software_version(h, versions); }, line("get_joint_software_version"), line("joint_software_version", R"("version":[1,2,3,4,5,6,7])"), 0},
        {"6 of 7", [&](auto h) { return ka_get_joint_software_version(h, versions); }, line("get_joint_software_version"), line("joint_software_version", R"("version":[9,9,9,9,9,9])"), -3},
    };
    // clang-format on
    for (const auto &row : rows)
        expect_wire(s, row);
    EXPECT_EQ((std::vector<int>{names_len, full_len}),
              (std::vector<int>{KA_FENCE_LIST_CAPACITY, KA_FENCE_LIST_CAPACITY}));
    EXPECT_STREQ(names[KA_FENCE_LIST_CAPACITY - 1].name, "zone_9");
    EXPECT_STREQ(names[KA_FENCE_LIST_CAPACITY].name, "guard");
    EXPECT_STREQ(full[9].form_name, "p9");
    EXPECT_FLOAT_EQ(full[9].plane.x1, 0.012f);
    EXPECT_TRUE(log.contains("The given electronic fence name does not exist!\n"));
    EXPECT_TRUE(log.contains("Get fence list names parse err\n"));
    EXPECT_FLOAT_EQ(infos[0].sphere.z, 0.3f); // read before the bad one
    for (const auto *kept : {&config, &infos[1], &infos[2], &full[KA_FENCE_LIST_CAPACITY]})
        EXPECT_EQ(std::memcmp(kept, &original, sizeof original), 0)
            << std::string(kept->form_name, KA_NAME_SIZE).c_str();
    EXPECT_EQ(std::vector<int>(versions, versions + 7), (std::vector<int>{1, 2, 3, 4, 5, 6, 7}));
}

#define CALL(expr) [](ka_robot_handle *h) { return expr; }

// Every set command against each verdict form, no reply timed for the
// install angles (600 ms) and two of the usual 500 ms. The install angles
// are re-read after a verdict true; the standard arm answers that read.
TEST(safety, every_set_command_maps_each_verdict_form) {
    using quiet = set_row::no_reply;
    static const ka_electronic_fence_enable_t on{true, 1, 0};
    // clang-format off
    const set_row rows[] = {
        {"add_electronic_fence_config", CALL(ka_add_electronic_fence_config(h, zone(1, "box"))), "", "add_config", 500, quiet::always},
        {"update_electronic_fence_config", CALL(ka_update_electronic_fence_config(h, zone(2, "box"))), "", "update_config"},
        {"delete_electronic_fence_config", CALL(ka_delete_electronic_fence_config(h, "box")), "", "delete_config"},
        {"set_electronic_fence_config", CALL(ka_set_electronic_fence_config(h, zone(1))), "", "set_config"},
        {"set_virtual_wall_config", CALL(ka_set_virtual_wall_config(h, zone(3))), "", "set_config"},
        {"set_electronic_fence_enable", CALL(ka_set_electronic_fence_enable(h, on)), "", "set_state"},
        {"set_virtual_wall_enable", CALL(ka_set_virtual_wall_enable(h, on)), "", "set_state"},
        {"set_self_collision_enable", CALL(ka_set_self_collision_enable(h, true)), "", "set_state"},
        {"set_arm_run_mode", CALL(ka_set_arm_run_mode(h, 1)), "", "mode", 500, quiet::always},
        {"set_install_pose", CALL(ka_set_install_pose(h, 0, 90.5f, 0)), "", "set_state", 600},
    };
    // clang-format on
    expect_set_outcomes(rows);
}
