// Safety configuration: exact request lines and reply scaling of every
// command, the zone forms each sender takes, and the bounded list readers.
#include "core/arm.h"
#include "support/arm_fixture.h"

#include <cstring>
#include <gtest/gtest.h>

using namespace ka_test;
using namespace std::chrono_literals;

namespace {

std::string line(const std::string &command, const std::string &rest = "") {
    return R"({"command":")" + command + "\"" + (rest.empty() ? "" : "," + rest) + "}";
}

ka_fence_config_t zone(int form, const char *name = "") {
    ka_fence_config_t z{};
    z.form = form;
    std::strncpy(z.form_name, name, KA_NAME_SIZE);
    z.cube = {-0.5f, 0.5f, -0.4f, 0.4f, 0.1f, 0.9f};
    z.plane = {0.0125f, -0.0125f, 1, 0, 0, 0, 0, 0, -0.0009f};
    z.sphere = {0.1f, -0.2f, 0.3f, 0.05f};
    return z;
}

// The box above on the wire; "z_min_limit" carries the lower x bound.
const std::string cube_wire = R"("x_max_limit":500,"x_min_limit":-500,"y_max_limit":400,)"
                              R"("y_min_limit":-400,"z_max_limit":900,"z_min_limit":-500)";
const std::string plane_wire =
    R"("x1":12,"y1":-12,"z1":1000,"x2":0,"y2":0,"z2":0,"x3":0,"y3":0,"z3":0)";
const std::string sphere_wire = R"("radius":50,"x":100,"y":-200,"z":300)";

} // namespace

TEST(safety, every_command_sends_its_exact_line_and_scales_its_reply) {
    arm_session s;
    s.peer.on("get_install_pose", {reply(line("install_pose", R"("pose":[90,0,-45])"))});
    ka_fence_config_t given{}, active{}, wall{};
    ka_fence_names_t names[KA_FENCE_LIST_CAPACITY] = {};
    ka_fence_config_list_t infos[KA_FENCE_LIST_CAPACITY] = {};
    ka_electronic_fence_enable_t fence_on{}, wall_on{};
    bool collision = false;
    int names_len = -1, infos_len = -1, mode = -1, tool_version = -1, versions[7] = {};
    float ix = -1, iy = -1, iz = -1;
    std::fill(versions, versions + 7, -7);
    // clang-format off
    const wire_case rows[] = {
        {"add cube", [](auto h) { return ka_add_electronic_fence_config(h, zone(1, "box")); }, line("add_electronic_fence_config", R"("form":1,"form_name":"box",)" + cube_wire), line("add_electronic_fence_config", R"("add_config":true)"), 0},
        {"update plane", [](auto h) { return ka_update_electronic_fence_config(h, zone(2, "ABCDEFGHIJKL")); }, line("update_electronic_fence_config", R"("form":2,"form_name":"ABCDEFGHIJKL",)" + plane_wire), line("update_electronic_fence_config", R"("update_config":false)"), 1},
        {"add sphere", [](auto h) { return ka_add_electronic_fence_config(h, zone(3, "ball")); }, line("add_electronic_fence_config", R"("form":3,"form_name":"ball",)" + sphere_wire), line("add_electronic_fence_config", R"("add_config":true)"), 0},
        {"delete", [](auto h) { return ka_delete_electronic_fence_config(h, "box"); }, line("delete_electronic_fence_config", R"("form_name":"box")"), line("delete_electronic_fence_config", R"("delete_config":true)"), 0},
        {"names", [&](auto h) { return ka_get_electronic_fence_list_names(h, names, &names_len); }, line("get_electronic_fence_list_names"), line("get_electronic_fence_list_names", R"("name_list":["box","ball","ABCDEFGHIJKLMN"])"), 0},
        {"given", [&](auto h) { return ka_get_given_electronic_fence_config(h, "ball", &given); }, line("given_electronic_fence_config", R"("form_name":"ball")"), line("given_electronic_fence_config", R"("given_state":true,"form":3,"form_name":"ball_zone_long",)" + sphere_wire), 0},
        {"infos", [&](auto h) { return ka_get_electronic_fence_list_infos(h, infos, &infos_len); }, line("get_electronic_fence_list_infos"), line("get_electronic_fence_list_infos", R"("info_list":[{"form_name":"box","form":1,"x_max_limit":500,"x_min_limit":-500,"y_max_limit":400,"y_min_limit":-400,"z_max_limit":900,"z_min_limit":100},{"form_name":"p","form":2,)" + plane_wire + "}]"), 0},
        {"fence enable", [](auto h) { return ka_set_electronic_fence_enable(h, {true, 1, 2}); }, line("set_electronic_fence_enable", R"("set_enable":true,"in_out_side":1,"effective_region":2)"), line("set_electronic_fence_enable", R"("set_state":true)"), 0},
        {"fence enabled", [&](auto h) { return ka_get_electronic_fence_enable(h, &fence_on); }, line("get_electronic_fence_enable"), line("get_electronic_fence_enable", R"("enable_state":true,"in_out_side":1,"effective_region":3)"), 0},
        {"fence cube", [](auto h) { return ka_set_electronic_fence_config(h, zone(1, "ignored")); }, line("set_electronic_fence_config", R"("form":1,)" + cube_wire), line("set_electronic_fence_config", R"("set_config":true)"), 0},
        {"fence read", [&](auto h) { return ka_get_electronic_fence_config(h, &active); }, line("get_electronic_fence_config"), line("get_electronic_fence_config", R"("form":2,)" + plane_wire), 0},
        {"wall enable", [](auto h) { return ka_set_virtual_wall_enable(h, {false, 0, -1}); }, line("set_virtual_wall_enable", R"("set_enable":false,"in_out_side":0,"effective_region":-1)"), line("set_virtual_wall_enable", R"("set_state":true)"), 0},
        {"wall enabled", [&](auto h) { return ka_get_virtual_wall_enable(h, &wall_on); }, line("get_virtual_wall_enable"), line("get_virtual_wall_enable", R"("enable_state":false,"in_out_side":1,"effective_region":0)"), 0},
        {"wall sphere", [](auto h) { return ka_set_virtual_wall_config(h, zone(3)); }, line("set_virtual_wall_config", R"("form":3,)" + sphere_wire), line("set_virtual_wall_config", R"("set_config":true)"), 0},
        {"wall read", [&](auto h) { return ka_get_virtual_wall_config(h, &wall); }, line("get_virtual_wall_config"), line("get_virtual_wall_config", R"("form":1,"x_max_limit":500,"x_min_limit":-500,"y_max_limit":400,"y_min_limit":-400,"z_max_limit":900,"z_min_limit":100)"), 0},
        {"collision on", [](auto h) { return ka_set_self_collision_enable(h, true); }, line("set_self_collision_enable", R"("set_enable":true)"), line("set_self_collision_enable", R"("set_state":true)"), 0},
        {"collision", [&](auto h) { return ka_get_self_collision_enable(h, &collision); }, line("get_self_collision_enable"), line("get_self_collision_enable", R"("enable_state":true)"), 0},
        {"run mode 2", [](auto h) { return ka_set_arm_run_mode(h, 2); }, line("set_arm_run_mode", R"("mode":1)"), line("set_arm_run_mode", R"("mode":true)"), 0},
        {"run mode 0", [](auto h) { return ka_set_arm_run_mode(h, 0); }, line("set_arm_run_mode", R"("mode":0)"), line("set_arm_run_mode", R"("mode":false)"), 1},
        {"run mode", [&](auto h) { return ka_get_arm_run_mode(h, &mode); }, line("get_arm_run_mode"), line("get_arm_run_mode", R"("mode":1)"), 0},
        {"install", [](auto h) { return ka_set_install_pose(h, 90.7f, -0.9f, -45.5f); }, line("set_install_pose", R"("pose":[90,0,-45])"), line("set_install_pose", R"("set_state":true)"), 0},
        {"install read", [&](auto h) { return ka_get_install_pose(h, &ix, &iy, &iz); }, line("get_install_pose"), "", 0},
        {"joint versions", [&](auto h) { return ka_get_joint_software_version(h, versions); }, line("get_joint_software_version"), line("joint_software_version", R"("version":[1,2,3,4,5,6])"), 0},
        {"tool version", [&](auto h) { return ka_get_tool_software_version(h, &tool_version); }, line("get_tool_software_version"), line("tool_software_version", R"("version":257)"), 0},
    };
    // clang-format on
    for (const auto &row : rows)
        expect_wire(s, row);

    ASSERT_EQ(names_len, 3);
    EXPECT_STREQ(names[1].name, "ball");
    EXPECT_EQ(std::string(names[2].name, KA_NAME_SIZE), "ABCDEFGHIJKL"); // slot full, cut
    EXPECT_EQ(given.form, 3);
    EXPECT_STREQ(given.form_name, "ball_zone_"); // ten characters at most
    EXPECT_FLOAT_EQ(given.sphere.radius, 0.05f);
    EXPECT_FLOAT_EQ(given.sphere.y, -0.2f);
    ASSERT_EQ(infos_len, 2);
    EXPECT_STREQ(infos[0].form_name, "box");
    EXPECT_FLOAT_EQ(infos[0].cube.x_min_limit, -0.5f);
    EXPECT_FLOAT_EQ(infos[0].cube.z_min_limit, 0.1f); // read as named
    EXPECT_EQ(infos[1].form, 2);
    EXPECT_FLOAT_EQ(infos[1].plane.x1, 0.012f);
    EXPECT_FLOAT_EQ(infos[1].plane.z1, 1.0f);
    EXPECT_TRUE(fence_on.enable_state);
    EXPECT_EQ(fence_on.effective_region, 3);
    EXPECT_FALSE(wall_on.enable_state);
    EXPECT_EQ(active.form, 2);
    EXPECT_FLOAT_EQ(active.plane.y1, -0.012f);
    EXPECT_EQ(wall.form, 1);
    EXPECT_FLOAT_EQ(wall.cube.x_min_limit, -0.5f);
    EXPECT_FLOAT_EQ(wall.cube.z_min_limit, 0.1f);
    EXPECT_TRUE(collision);
    EXPECT_EQ(mode, 1);
    EXPECT_EQ((std::vector<float>{ix, iy, iz}), (std::vector<float>{90, 0, -45}));
    // Setting re-reads the angles into the handle's copy.
    s.peer.on("get_install_pose", {reply(line("install_pose", R"("pose":[0,180,0])"))});
    expect_wire(s, {"install reread", [](auto h) { return ka_set_install_pose(h, 0, 180, 0); },
                    line("set_install_pose", R"("pose":[0,180,0])"),
                    line("set_install_pose", R"("set_state":true)"), 0});
    EXPECT_EQ(s.peer.commands(),
              (std::vector<std::string>{"set_install_pose", "get_install_pose"}));
    EXPECT_EQ(registry_find(s.arm)->install[1], 180.0f);
    EXPECT_EQ(std::vector<int>(versions, versions + 7), (std::vector<int>{1, 2, 3, 4, 5, 6, -7}));
    EXPECT_EQ(tool_version, 257);
}

// A form a sender does not take goes nowhere: the engine's send-error line
// (with an empty command name) or the add's own refusal.
TEST(safety, unaccepted_forms_send_nothing) {
    arm_session s;
    // clang-format off
    struct { std::function<int(ka_robot_handle *)> call; int result; std::vector<std::string> logged; } const rows[] = {
        {[](auto h) { return ka_set_virtual_wall_config(h, zone(2)); }, -1, {"virtual wall form check err!\n", "[ka_set_virtual_wall_config]  send error\n"}},
        {[](auto h) { return ka_set_virtual_wall_config(h, zone(0)); }, -1, {"[ka_set_virtual_wall_config]  send error\n"}},
        {[](auto h) { return ka_set_electronic_fence_config(h, zone(3)); }, -1, {"electronic fence form check err!!", "[ka_set_electronic_fence_config]  send error\n"}},
        {[](auto h) { return ka_update_electronic_fence_config(h, zone(4, "x")); }, -1, {"[ka_update_electronic_fence_config]  send error\n"}},
        {[](auto h) { return ka_add_electronic_fence_config(h, zone(4, "x")); }, -4, {"Configuration error for the form of the newly added electronic fence! Wrong form: 4\n"}},
    };
    // clang-format on
    for (const auto &row : rows) {
        log_capture log;
        s.peer.clear_lines();
        EXPECT_EQ(row.call(s.arm), row.result);
        auto lines = log.lines();
        for (const auto &text : row.logged)
            EXPECT_NE(std::find(lines.begin(), lines.end(), text), lines.end()) << text;
    }
    EXPECT_FALSE(s.peer.wait_for_lines(1, 100ms)) << "nothing reached the controller";
}

TEST(safety, list_readers_never_write_past_the_capacity) {
    arm_session s;
    struct {
        ka_fence_names_t slots[KA_FENCE_LIST_CAPACITY];
        ka_fence_names_t guard;
    } names{};
    struct {
        ka_fence_config_list_t slots[KA_FENCE_LIST_CAPACITY];
        ka_fence_config_list_t guard;
    } infos{};
    std::strcpy(names.guard.name, "guard");
    infos.guard.form = 77;
    // More entries than the capacity; the full list of planes also needs
    // more than one ordinary reply buffer.
    std::string many, planes;
    for (int i = 0; i < KA_FENCE_LIST_CAPACITY + 1; ++i) {
        const std::string comma = i ? "," : "", n = std::to_string(i);
        many += comma + "\"zone_" + n + "\"";
        planes += comma + R"({"form_name":"p)" + n + R"(","form":2,)" + plane_wire + "}";
    }
    const std::string infos_reply =
        line("get_electronic_fence_list_infos", "\"info_list\":[" + planes + "]");
    ASSERT_GT(infos_reply.size(), 1024u);
    int names_len = -1, infos_len = -1;
    expect_wire(
        s, {"names",
            [&](auto h) { return ka_get_electronic_fence_list_names(h, names.slots, &names_len); },
            line("get_electronic_fence_list_names"),
            line("get_electronic_fence_list_names", "\"name_list\":[" + many + "]"), 0});
    expect_wire(
        s, {"infos",
            [&](auto h) { return ka_get_electronic_fence_list_infos(h, infos.slots, &infos_len); },
            line("get_electronic_fence_list_infos"), infos_reply, 0});
    EXPECT_EQ(names_len, KA_FENCE_LIST_CAPACITY);
    EXPECT_STREQ(names.slots[KA_FENCE_LIST_CAPACITY - 1].name, "zone_9");
    EXPECT_STREQ(names.guard.name, "guard");
    EXPECT_EQ(infos_len, KA_FENCE_LIST_CAPACITY);
    EXPECT_STREQ(infos.slots[9].form_name, "p9");
    EXPECT_FLOAT_EQ(infos.slots[9].plane.x1, 0.012f);
    EXPECT_EQ(infos.guard.form, 77);
}

// Each failed read leaves the caller's record as it was.
TEST(safety, missing_zones_and_malformed_replies) {
    arm_session s;
    log_capture log;
    const ka_fence_config_t original = zone(1, "mine");
    ka_fence_config_t config = original;
    ka_fence_config_list_t infos[KA_FENCE_LIST_CAPACITY] = {};
    ka_fence_names_t names[KA_FENCE_LIST_CAPACITY] = {};
    std::fill(infos, infos + KA_FENCE_LIST_CAPACITY, original);
    int len = 0;
    auto given = [&](auto h) { return ka_get_given_electronic_fence_config(h, "gone", &config); };
    auto active = [&](auto h) { return ka_get_electronic_fence_config(h, &config); };
    auto wall = [&](auto h) { return ka_get_virtual_wall_config(h, &config); };
    auto list = [&](auto h) { return ka_get_electronic_fence_list_infos(h, infos, &len); };
    auto names_of = [&](auto h) { return ka_get_electronic_fence_list_names(h, names, &len); };
    const std::string given_request =
        line("given_electronic_fence_config", R"("form_name":"gone")");
    // clang-format off
    const wire_case rows[] = {
        {"unknown name", given, given_request, line("given_electronic_fence_config", R"("given_state":false,"form":1)"), 1},
        {"given key missing", given, given_request, line("given_electronic_fence_config", R"("form":3,"form_name":"b","radius":1,"x":1,"y":1)"), -3},
        {"no active fence", active, line("get_electronic_fence_config"), line("get_electronic_fence_config", R"("given_state":false)"), 1},
        {"no form", active, line("get_electronic_fence_config"), line("get_electronic_fence_config", R"("given_state":true)"), -3},
        {"no wall", wall, line("get_virtual_wall_config"), line("get_virtual_wall_config", R"("given_state":false)"), 1},
        {"wall key missing", wall, line("get_virtual_wall_config"), line("get_virtual_wall_config", R"("form":1,"x_max_limit":1)"), -3},
        {"no reply", wall, line("get_virtual_wall_config"), "", -2},
        {"names not a list", names_of, line("get_electronic_fence_list_names"), line("get_electronic_fence_list_names", R"("name_list":"box")"), -3},
        {"second element bad", list, line("get_electronic_fence_list_infos"), line("get_electronic_fence_list_infos", R"("info_list":[{"form_name":"a","form":3,)" + sphere_wire + R"(},{"form_name":"b","form":3,"radius":1,"x":1,"y":1},{"form_name":"c","form":3,)" + sphere_wire + "}]"), -3},
    };
    // clang-format on
    for (const auto &row : rows)
        expect_wire(s, row);
    EXPECT_TRUE(log.contains("The given electronic fence name does not exist!\n"));
    EXPECT_TRUE(log.contains("Get fence list names parse err\n"));
    EXPECT_EQ(std::memcmp(&config, &original, sizeof config), 0);
    EXPECT_FLOAT_EQ(infos[0].sphere.z, 0.3f); // read before the bad one
    EXPECT_EQ(std::memcmp(&infos[1], &original, sizeof config), 0);
    EXPECT_EQ(std::memcmp(&infos[2], &original, sizeof config), 0);
}

TEST(safety, bad_handles_outputs_and_dof_are_refused_before_sending) {
    arm_session s;
    log_capture log;
    ka_robot_handle stranger{};
    ka_electronic_fence_enable_t state{};
    bool enable = false;
    EXPECT_EQ(ka_get_electronic_fence_enable(&stranger, &state), -1);
    EXPECT_EQ(ka_get_virtual_wall_enable(&stranger, &state), -1);
    EXPECT_EQ(ka_get_self_collision_enable(&stranger, &enable), -1);
    EXPECT_TRUE(log.contains("[ka_get_robot_info] handle is NULL!\n"));

    int len = 0, versions[7];
    EXPECT_EQ(ka_get_electronic_fence_enable(s.arm, nullptr), -1);
    EXPECT_EQ(ka_get_self_collision_enable(s.arm, nullptr), -1);
    EXPECT_EQ(ka_get_electronic_fence_list_names(s.arm, nullptr, &len), -1);
    EXPECT_EQ(ka_get_electronic_fence_list_infos(s.arm, nullptr, &len), -1);
    EXPECT_EQ(ka_get_given_electronic_fence_config(s.arm, "x", nullptr), -1);
    EXPECT_EQ(ka_get_joint_software_version(s.arm, nullptr), -1);
    store_public(registry_find(s.arm)->pub.arm_dof, 5);
    EXPECT_EQ(ka_get_joint_software_version(s.arm, versions), -1);
    EXPECT_TRUE(
        log.contains("[ka_get_joint_software_version] The robotic arm has been disconnected\n"));
    EXPECT_FALSE(s.peer.wait_for_lines(1, 100ms)) << "nothing sent";

    store_public(registry_find(s.arm)->pub.arm_dof, 7);
    expect_wire(s, {"7 joints", [&](auto h) { return ka_get_joint_software_version(h, versions); },
                    line("get_joint_software_version"),
                    line("joint_software_version", R"("version":[1,2,3,4,5,6,7])"), 0});
    EXPECT_EQ(versions[6], 7);
    expect_wire(s, {"6 of 7", [&](auto h) { return ka_get_joint_software_version(h, versions); },
                    line("get_joint_software_version"),
                    line("joint_software_version", R"("version":[1,2,3,4,5,6])"), -3});
}
