// The simulated controller's Modbus peripherals, programs, global waypoints
// and safety settings, driven through the library's own functions.
#include "sim_session.h"

#include "sim/commands.h"
#include "sim/net/process.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace {

using namespace std::chrono_literals;
using sim_test::arm_session;

ka_peripheral_read_write_params_t params(int port, int address, int device, int num) {
    return ka_peripheral_read_write_params_t{port, address, device, num};
}

// ---------------------------------------------------------------- Modbus

struct modbus_bus {
    const char *name;
    int port; // bus number in the read and write commands
};

class SimulatedModbus : public ::testing::Test {
  protected:
    SimulatedModbus() : s(sim_test::options("KIVO-B", 10.0)) {
        EXPECT_EQ(ka_set_modbus_mode(s.arm, 0, 115200, 10), KA_OK);
        EXPECT_EQ(ka_set_modbus_mode(s.arm, 1, 9600, 10), KA_OK);
        EXPECT_EQ(ka_set_modbustcp_mode(s.arm, "192.168.1.50", 502, 10), KA_OK);
    }
    arm_session s;
};

TEST_F(SimulatedModbus, WritesReadBackOnEveryBus) {
    for (const modbus_bus bus : {modbus_bus{"controller RS485", 0}, modbus_bus{"tool RS485", 1},
                                 modbus_bus{"Modbus TCP", 2}}) {
        SCOPED_TRACE(bus.name);
        const int device = 3;

        // One coil, read back as bit 5 of an 8-coil read.
        ASSERT_EQ(ka_write_single_coil(s.arm, params(bus.port, 5, device, 1), 1), KA_OK);
        int bits = -1;
        ASSERT_EQ(ka_read_coils(s.arm, params(bus.port, 0, device, 8), &bits), KA_OK);
        EXPECT_EQ(bits, 1 << 5);

        // One register, the whole 16-bit word.
        ASSERT_EQ(ka_write_single_register(s.arm, params(bus.port, 10, device, 1), 0xBEEF), KA_OK);
        int word = -1;
        ASSERT_EQ(ka_read_holding_registers(s.arm, params(bus.port, 10, device, 1), &word), KA_OK);
        EXPECT_EQ(word, 0xBEEF);

        // Three registers as high and low bytes, read back as bytes and as words.
        int bytes[6] = {0x12, 0x34, 0xAB, 0xCD, 0x00, 0x07};
        ASSERT_EQ(ka_write_registers(s.arm, params(bus.port, 20, device, 3), bytes), KA_OK);
        int back[6] = {};
        ASSERT_EQ(ka_read_multiple_holding_registers(s.arm, params(bus.port, 20, device, 3), back),
                  KA_OK);
        EXPECT_EQ(std::vector<int>(back, back + 6), std::vector<int>(bytes, bytes + 6));
        ASSERT_EQ(ka_read_holding_registers(s.arm, params(bus.port, 21, device, 1), &word), KA_OK);
        EXPECT_EQ(word, 0xABCD);

        // Sixteen coils as two groups of 8, first coil in bit 0.
        int groups[2] = {0xA5, 0x3C};
        ASSERT_EQ(ka_write_coils(s.arm, params(bus.port, 100, device, 16), groups), KA_OK);
        int read_groups[2] = {};
        ASSERT_EQ(ka_read_multiple_coils(s.arm, params(bus.port, 100, device, 16), read_groups),
                  KA_OK);
        EXPECT_EQ(read_groups[0], 0xA5);
        EXPECT_EQ(read_groups[1], 0x3C);
        ASSERT_EQ(ka_read_coils(s.arm, params(bus.port, 104, device, 8), &bits), KA_OK);
        EXPECT_EQ(bits, 0xCA); // coils 104..111: high nibble of 0xA5, low nibble of 0x3C
    }
}

TEST_F(SimulatedModbus, BusesAndDevicesAreSeparatePeripherals) {
    ASSERT_EQ(ka_write_single_register(s.arm, params(0, 7, 1, 1), 111), KA_OK);
    ASSERT_EQ(ka_write_single_register(s.arm, params(0, 7, 2, 1), 222), KA_OK);
    ASSERT_EQ(ka_write_single_register(s.arm, params(2, 7, 1, 1), 333), KA_OK);
    const struct {
        int port, device, expected;
    } rows[] = {{0, 1, 111}, {0, 2, 222}, {2, 1, 333}, {1, 1, 0}};
    for (const auto &row : rows) {
        int word = -1;
        ASSERT_EQ(ka_read_holding_registers(s.arm, params(row.port, 7, row.device, 1), &word),
                  KA_OK);
        EXPECT_EQ(word, row.expected) << "port " << row.port << " device " << row.device;
    }
}

// The library sends 12 coils as one group (12 / 8 rounded down): the
// covered coils change, the other four keep their state.
TEST_F(SimulatedModbus, CoilGroupsCoverOnlyWhatTheySend) {
    int all_on[2] = {0xFF, 0xFF};
    ASSERT_EQ(ka_write_coils(s.arm, params(0, 0, 1, 16), all_on), KA_OK);
    int one_group[1] = {0x00};
    ASSERT_EQ(ka_write_coils(s.arm, params(0, 0, 1, 12), one_group), KA_OK);
    int groups[2] = {};
    ASSERT_EQ(ka_read_multiple_coils(s.arm, params(0, 0, 1, 16), groups), KA_OK);
    EXPECT_EQ(groups[0], 0x00);
    EXPECT_EQ(groups[1], 0xFF);

    // Reading 12 coils receives two groups and copies one.
    int copied[2] = {-7, -7};
    ASSERT_EQ(ka_read_multiple_coils(s.arm, params(0, 0, 1, 12), copied), KA_OK);
    EXPECT_EQ(copied[0], 0x00);
    EXPECT_EQ(copied[1], -7);
}

TEST_F(SimulatedModbus, InputsReadTheSameSingleAndMultiple) {
    int bytes[8] = {};
    ASSERT_EQ(ka_read_multiple_input_registers(s.arm, params(1, 40, 9, 4), bytes), KA_OK);
    for (int i = 0; i < 4; ++i) {
        int word = -1;
        ASSERT_EQ(ka_read_input_registers(s.arm, params(1, 40 + i, 9, 1), &word), KA_OK);
        EXPECT_EQ(word, bytes[2 * i] << 8 | bytes[2 * i + 1]) << "register " << 40 + i;
    }
    int bits = -1;
    ASSERT_EQ(ka_read_input_status(s.arm, params(1, 0, 9, 8), &bits), KA_OK);
    EXPECT_GT(bits, 0);
    EXPECT_LT(bits, 256);
}

TEST_F(SimulatedModbus, RefusesWhatNoControllerCouldDo) {
    int data = 0;
    int bytes[4] = {0x100, 0, 0, 0}; // not a byte
    const struct {
        const char *what;
        int result;
    } rows[] = {
        {"baud rate", ka_set_modbus_mode(s.arm, 0, 12345, 10)},
        {"RS485 port", ka_set_modbus_mode(s.arm, 5, 9600, 10)},
        {"TCP address", ka_set_modbustcp_mode(s.arm, "not-an-ip", 502, 10)},
        {"RTU broadcast read", ka_read_holding_registers(s.arm, params(0, 0, 0, 1), &data)},
        {"unknown bus", ka_read_holding_registers(s.arm, params(7, 0, 1, 1), &data)},
        {"coil value", ka_write_single_coil(s.arm, params(0, 0, 1, 1), 2)},
        {"register byte", ka_write_registers(s.arm, params(0, 0, 1, 2), bytes)},
        {"address space", ka_read_multiple_holding_registers(s.arm, params(0, 65535, 1, 2), bytes)},
    };
    for (const auto &row : rows)
        EXPECT_EQ(row.result, KA_REFUSED) << row.what;

    ASSERT_EQ(ka_close_modbus_mode(s.arm, 0), KA_OK);
    EXPECT_EQ(ka_read_holding_registers(s.arm, params(0, 0, 1, 1), &data), KA_REFUSED);
    ASSERT_EQ(ka_close_modbustcp_mode(s.arm), KA_OK);
    EXPECT_EQ(ka_write_single_register(s.arm, params(2, 0, 1, 1), 5), KA_REFUSED);
    EXPECT_EQ(ka_read_holding_registers(s.arm, params(1, 0, 1, 1), &data), KA_OK);
}

// ---------------------------------------------------------------- programs

// A project's raw text as the reader hands it over, in the library's
// 100-byte pieces.
struct download_peer {
    sim::arm target{*sim::arm_traits_for("KIVO-B")};
    int self = 0, other = 0; // connection identities

    std::string command(const std::string &line) {
        sim::command_context context{target, 0.0, {}};
        std::string reply = sim::answer_line(line, context);
        sim::bind_project_text(target, &self);
        return reply;
    }
    std::string announce(const std::string &text, int only_save, int save_id) {
        return command(
            R"({"command":"run_project","project_name":"pick","file_size":)" +
            std::to_string(text.size()) + R"(,"plan_speed":50,"step_flag":0,"only_save":)" +
            std::to_string(only_save) + R"(,"save_id":)" + std::to_string(save_id) + "}");
    }
};

const std::string k_project = "{\"file\":6}\r\n"
                              "{\"name\":\"Folder\",\"num\":1,\"type\":2,\"enabled\":true,"
                              "\"parent_number\":0}\r\n"
                              "{\"point\":[0,0,0,0,0,0]}\r\n"
                              "{\"point\":[10000,0,0,0,0,0]}\r\n";

TEST(SimulatedProjectText, ArrivesInPiecesAndIsAnsweredOnceComplete) {
    download_peer peer;
    ASSERT_EQ(peer.announce(k_project, 1, 4), R"({"command":"run_project","project_state":true})");

    // Another connection's bytes are its own commands.
    const std::string command = "{\"command\":\"get_program_run_state\"}\r\n";
    std::string foreign = command;
    EXPECT_FALSE(sim::take_project_text(peer.target, &peer.other, foreign, 0).consumed);
    EXPECT_EQ(foreign, command);

    // The text in 100-byte pieces, the last one followed by the next command.
    std::string reply;
    for (std::size_t at = 0; at < k_project.size(); at += 100) {
        std::string piece = k_project.substr(at, 100);
        const bool last = at + 100 >= k_project.size();
        if (last) piece += "{\"command\":\"get_default_run_program\"}\r\n";
        const auto result = sim::take_project_text(peer.target, &peer.self, piece, 0);
        EXPECT_TRUE(result.consumed);
        EXPECT_EQ(result.reply.empty(), !last);
        if (last) {
            reply = result.reply;
            EXPECT_EQ(piece, "{\"command\":\"get_default_run_program\"}\r\n");
        } else {
            EXPECT_TRUE(piece.empty());
        }
    }
    EXPECT_EQ(reply, R"({"command":"download_project","project_state":true})");

    // Saved under id 4 without running.
    const std::string state = peer.command(R"({"command":"get_program_run_state"})");
    EXPECT_NE(state.find(R"("run_state":0)"), std::string::npos) << state;
    const std::string list =
        peer.command(R"({"command":"get_program_trajectory_list","page_num":1,"page_size":10})");
    EXPECT_NE(list.find(R"({"id":4,"size":4,"speed":50,"trajectory_name":"pick"})"),
              std::string::npos)
        << list;
}

TEST(SimulatedProjectText, NamesTheFirstFaultyLine) {
    const struct {
        const char *text;
        int err_line;
    } rows[] = {
        {"{\"file\":7}\r\n{\"point\":[0,0,0,0,0,0]}\r\n", 1}, // a 7-joint header on 6 joints
        {"{\"file\":6}\r\n\r\nnot json\r\n", 3},
        {"{\"point\":[1]}\n{\"point\":[2]}\n{\"file\":6}\n", 3},
    };
    for (const auto &row : rows) {
        download_peer peer;
        const std::string text = row.text;
        ASSERT_EQ(peer.announce(text, 0, 0), R"({"command":"run_project","project_state":true})");
        std::string bytes = text;
        const auto result = sim::take_project_text(peer.target, &peer.self, bytes, 0);
        EXPECT_EQ(result.reply,
                  R"({"command":"download_project","project_state":false,"err_line":)" +
                      std::to_string(row.err_line) + "}")
            << text;
    }
}

TEST(SimulatedProjectText, RunsWhenNotOnlySavedAndFinishesWithItsId) {
    download_peer peer;
    ASSERT_EQ(peer.announce(k_project, 0, 9), R"({"command":"run_project","project_state":true})");
    std::string bytes = k_project;
    ASSERT_EQ(sim::take_project_text(peer.target, &peer.self, bytes, 0).reply,
              R"({"command":"download_project","project_state":true})");
    const std::string state = peer.command(R"({"command":"get_program_run_state"})");
    EXPECT_NE(state.find(R"("run_state":1,"id":9)"), std::string::npos) << state;

    // Four lines at 50 %: one second each.
    sim::report_list reports;
    sim::run_cycle_hooks(peer.target, 3.9, reports);
    EXPECT_TRUE(reports.empty());
    sim::run_cycle_hooks(peer.target, 4.1, reports);
    EXPECT_EQ(reports, sim::report_list{R"({"state":"program_run_finish","finish_id":9})"});
}

// A project's text must never be read as commands; that needs the reader
// to hand raw bytes to the download first (see take_project_text).
TEST(SimulatedPrograms, DownloadsAFileThroughTheLibrary) {
    arm_session s(sim_test::options("KIVO-B", 20.0));
    const std::string path = sim::net::make_temp_file("ka_sim_project_", ".txt");
    std::string text = k_project;
    for (int i = 0; i < 4; ++i)
        text += "{\"point\":[" + std::to_string(i * 1000) + ",0,0,0,0,0]}\r\n";
    {
        std::ofstream file(path, std::ios::binary);
        ASSERT_TRUE(file.write(text.data(), static_cast<std::streamsize>(text.size())).flush());
    }

    ka_send_project_t project{};
    std::snprintf(project.project_path, sizeof project.project_path, "%s", path.c_str());
    project.project_path_len = static_cast<int>(path.size());
    project.plan_speed = 100;
    project.only_save = 1;
    project.save_id = 2;
    int errline = 0;
    EXPECT_EQ(ka_send_project(s.arm, &project, &errline), KA_OK);
    EXPECT_EQ(errline, -1);
    std::remove(path.c_str());

    sim_test::events().clear();
    EXPECT_EQ(ka_set_program_id_run(s.arm, 2, 0, 5), KA_OK);
    ASSERT_TRUE(sim_test::events().wait_events(1, 5s));
    EXPECT_EQ(sim_test::events().events.back().finish_id, 2);
}

TEST(SimulatedPrograms, SavedTrajectoryIsStoredListedAndRunToItsFinish) {
    arm_session s(sim_test::options("KIVO-B", 10.0));
    const float joints[7] = {20, -10, 15, 0, 5, 0, 0};
    ASSERT_EQ(ka_movej(s.arm, joints, 50, 0, 0, 1), KA_OK);

    const std::string path = sim::net::make_temp_file("ka_sim_saved_", ".txt");
    int num = 0;
    ASSERT_EQ(ka_save_trajectory(s.arm, path.c_str(), &num), KA_OK);
    ASSERT_GT(num, 1);
    std::ifstream saved(path);
    std::vector<std::string> lines;
    for (std::string line; std::getline(saved, line);)
        if (!line.empty() && line != "\r") lines.push_back(line);
    std::remove(path.c_str());
    ASSERT_EQ(static_cast<int>(lines.size()), num);
    // The last point is where the move ended, in millidegrees.
    EXPECT_EQ(lines.back().rfind("{\"point\":[20000,-10000,15000,0,5000,0]}", 0), 0u)
        << lines.back();

    ka_program_trajectorys_t list{};
    ASSERT_EQ(ka_get_program_trajectory_list(s.arm, 1, 10, "ka_sim_saved", &list), KA_OK);
    ASSERT_EQ(list.total_size, 1);
    const ka_program_trajectory_data_t program = list.list[0];
    EXPECT_EQ(program.size, num);
    EXPECT_EQ(std::string(program.trajectory_name).rfind("ka_sim_saved", 0), 0u);

    ASSERT_EQ(ka_set_default_run_program(s.arm, program.id), KA_OK);
    int default_id = 0;
    ASSERT_EQ(ka_get_default_run_program(s.arm, &default_id), KA_OK);
    EXPECT_EQ(default_id, program.id);
    ASSERT_EQ(ka_update_program_trajectory(s.arm, program.id, 100, "fast"), KA_OK);

    sim_test::events().clear();
    ASSERT_EQ(ka_set_program_id_run(s.arm, program.id, 0, 5), KA_OK);
    ASSERT_TRUE(sim_test::events().wait_events(1, 2s));
    {
        std::lock_guard lock(sim_test::events().mutex);
        EXPECT_EQ(sim_test::events().events.back().event_type, 2);
        EXPECT_EQ(sim_test::events().events.back().finish_id, program.id);
    }
    ka_program_run_state_t state{};
    ASSERT_EQ(ka_get_program_run_state(s.arm, &state), KA_OK);
    EXPECT_EQ(state.run_state, 0);

    ASSERT_EQ(ka_delete_program_trajectory(s.arm, program.id), KA_OK);
    EXPECT_EQ(ka_delete_program_trajectory(s.arm, program.id), KA_REFUSED);
    ASSERT_EQ(ka_get_default_run_program(s.arm, &default_id), KA_OK);
    EXPECT_EQ(default_id, 0);
    EXPECT_EQ(ka_set_program_id_run(s.arm, program.id, 0, 0), KA_REFUSED);
}

TEST(SimulatedPrograms, RunStateFollowsTheRunAndItsSpeed) {
    arm_session s(sim_test::options("KIVO-B", 10.0));
    const float joints[7] = {5, 0, 0, 0, 0, 0, 0};
    ASSERT_EQ(ka_movej(s.arm, joints, 20, 0, 0, 1), KA_OK);
    const std::string path = sim::net::make_temp_file("ka_sim_state_", ".txt");
    int num = 0;
    ASSERT_EQ(ka_save_trajectory(s.arm, path.c_str(), &num), KA_OK);
    std::remove(path.c_str());
    ka_program_trajectorys_t list{};
    ASSERT_EQ(ka_get_program_trajectory_list(s.arm, 1, 1, nullptr, &list), KA_OK);
    const int id = list.list[0].id;

    // Not waiting: the run is seen in the run state at the speed asked for.
    ASSERT_EQ(ka_set_program_id_run(s.arm, id, 1, 0), KA_OK);
    ka_program_run_state_t state{};
    ASSERT_EQ(ka_get_program_run_state(s.arm, &state), KA_OK);
    EXPECT_EQ(state.run_state, 1);
    EXPECT_EQ(state.id, id);
    EXPECT_EQ(state.plan_speed, 1);
    EXPECT_EQ(ka_set_program_id_run(s.arm, id, 0, 0), KA_REFUSED); // already running

    sim_test::events().clear();
    ASSERT_EQ(ka_set_plan_speed(s.arm, 100), KA_OK);
    ASSERT_EQ(ka_get_program_run_state(s.arm, &state), KA_OK);
    EXPECT_EQ(state.plan_speed, 100);
    ASSERT_TRUE(sim_test::events().wait_events(1, 10s));
    ASSERT_EQ(ka_get_program_run_state(s.arm, &state), KA_OK);
    EXPECT_EQ(state.run_state, 0);
    EXPECT_EQ(ka_set_plan_speed(s.arm, 0), KA_REFUSED);
}

// ---------------------------------------------------------------- waypoints

ka_waypoint_t waypoint(const char *name, float x, float rx, float joint1) {
    ka_waypoint_t w{};
    std::snprintf(w.point_name, sizeof w.point_name, "%s", name);
    w.joint[0] = joint1;
    w.joint[1] = -12.345f;
    w.joint[5] = 90.0f;
    w.pose.position = {x, -0.125f, 0.5f};
    w.pose.euler = {rx, 0.0f, -1.5f};
    std::snprintf(w.work_frame, sizeof w.work_frame, "%s", "World");
    std::snprintf(w.tool_frame, sizeof w.tool_frame, "%s", "Arm_Tip");
    return w;
}

TEST(SimulatedWaypoints, StoreAndReturnWithTheirScaling) {
    arm_session s(sim_test::options("KIVO-B", 10.0));
    ka_waypoint_t w = waypoint("home", 0.3f, 3.1416f, 10.5f);
    ASSERT_EQ(ka_add_global_waypoint(s.arm, &w), KA_OK);
    EXPECT_EQ(ka_add_global_waypoint(s.arm, &w), KA_REFUSED); // the name is taken

    ka_waypoint_t back{};
    ASSERT_EQ(ka_get_given_global_waypoint(s.arm, "home", &back), KA_OK);
    EXPECT_STREQ(back.point_name, "home");
    EXPECT_FLOAT_EQ(back.joint[0], 10.5f);
    EXPECT_FLOAT_EQ(back.joint[1], -12.345f);
    EXPECT_FLOAT_EQ(back.joint[5], 90.0f);
    EXPECT_FLOAT_EQ(back.pose.position.x, 0.3f);
    EXPECT_FLOAT_EQ(back.pose.position.y, -0.125f);
    EXPECT_FLOAT_EQ(back.pose.euler.rx, 3.141f); // milliradians, truncated on the way out
    EXPECT_FLOAT_EQ(back.pose.euler.rz, -1.5f);
    EXPECT_STREQ(back.work_frame, "World");
    EXPECT_STREQ(back.tool_frame, "Arm_Tip");
    EXPECT_STREQ(back.time, w.time); // the stamp the library put on it

    ka_waypoint_t moved = waypoint("home", -0.2f, 0.5f, -30.0f);
    ASSERT_EQ(ka_update_global_waypoint(s.arm, &moved), KA_OK);
    ASSERT_EQ(ka_get_given_global_waypoint(s.arm, "home", &back), KA_OK);
    EXPECT_FLOAT_EQ(back.joint[0], -30.0f);
    EXPECT_FLOAT_EQ(back.pose.position.x, -0.2f);

    ASSERT_EQ(ka_delete_global_waypoint(s.arm, "home"), KA_OK);
    EXPECT_EQ(ka_get_given_global_waypoint(s.arm, "home", &back), KA_REFUSED);
    EXPECT_EQ(ka_delete_global_waypoint(s.arm, "home"), KA_REFUSED);
    EXPECT_EQ(ka_update_global_waypoint(s.arm, &moved), KA_REFUSED);

    ka_waypoint_t outside = waypoint("far", 0.1f, 0.0f, 400.0f); // beyond joint 1's limit
    EXPECT_EQ(ka_add_global_waypoint(s.arm, &outside), KA_REFUSED);
}

TEST(SimulatedWaypoints, ListByPageAndName) {
    arm_session s(sim_test::options("QUIL-B", 10.0)); // seven joints on the wire
    for (int i = 0; i < 5; ++i) {
        const std::string name = (i % 2 ? "pick" : "place") + std::to_string(i);
        ka_waypoint_t w = waypoint(name.c_str(), 0.01f * i, 0.0f, static_cast<float>(i));
        w.joint[6] = 7.5f;
        ASSERT_EQ(ka_add_global_waypoint(s.arm, &w), KA_OK) << name;
    }
    const struct {
        int page_num, page_size;
        const char *search;
        int total;
        std::vector<std::string> names;
    } rows[] = {
        {1, 2, nullptr, 5, {"place0", "pick1"}},
        {3, 2, nullptr, 5, {"place4"}},
        {1, 10, "pick", 2, {"pick1", "pick3"}},
        {2, 10, "pick", 2, {}},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(std::to_string(row.page_num) + "/" + std::to_string(row.page_size));
        auto list = std::make_unique<ka_waypoint_list_t>();
        ASSERT_EQ(ka_get_global_waypoints_list(s.arm, row.page_num, row.page_size, row.search,
                                               list.get()),
                  KA_OK);
        EXPECT_EQ(list->total_size, row.total);
        ASSERT_EQ(list->list_len, static_cast<int>(row.names.size()));
        for (int i = 0; i < list->list_len; ++i) {
            EXPECT_EQ(list->points[i].point_name, row.names[i]);
            EXPECT_FLOAT_EQ(list->points[i].joint[6], 7.5f);
        }
    }
}

// ---------------------------------------------------------------- safety

ka_fence_config_t cube_fence(const char *name) {
    ka_fence_config_t f{};
    f.form = 1;
    std::snprintf(f.form_name, sizeof f.form_name, "%s", name);
    f.cube = {-0.5f, 0.5f, -0.4f, 0.4f, 0.1f, 0.9f};
    return f;
}

ka_fence_config_t plane_fence(const char *name) {
    ka_fence_config_t f{};
    f.form = 2;
    std::snprintf(f.form_name, sizeof f.form_name, "%s", name);
    f.plane = {0.0f, 0.0f, 0.0125f, 1.0f, 0.0f, 0.0f, 0.0f, 1.0f, 0.25f};
    return f;
}

ka_fence_config_t sphere_fence(const char *name) {
    ka_fence_config_t f{};
    f.form = 3;
    std::snprintf(f.form_name, sizeof f.form_name, "%s", name);
    f.sphere = {0.1f, -0.2f, 0.3f, 0.75f};
    return f;
}

// A cube comes back with its x minimum as z minimum: the library sends it
// so, and the controller stores what it receives.
void expect_same_zone(const ka_fence_config_t &got, const ka_fence_config_t &sent) {
    ASSERT_EQ(got.form, sent.form);
    switch (sent.form) {
    case 1:
        EXPECT_FLOAT_EQ(got.cube.x_min_limit, sent.cube.x_min_limit);
        EXPECT_FLOAT_EQ(got.cube.x_max_limit, sent.cube.x_max_limit);
        EXPECT_FLOAT_EQ(got.cube.y_min_limit, sent.cube.y_min_limit);
        EXPECT_FLOAT_EQ(got.cube.y_max_limit, sent.cube.y_max_limit);
        EXPECT_FLOAT_EQ(got.cube.z_min_limit, sent.cube.x_min_limit);
        EXPECT_FLOAT_EQ(got.cube.z_max_limit, sent.cube.z_max_limit);
        break;
    case 2:
        EXPECT_FLOAT_EQ(got.plane.z1, 0.012f); // 12.5 mm truncated
        EXPECT_FLOAT_EQ(got.plane.x2, sent.plane.x2);
        EXPECT_FLOAT_EQ(got.plane.y3, sent.plane.y3);
        EXPECT_FLOAT_EQ(got.plane.z3, sent.plane.z3);
        break;
    case 3:
        EXPECT_FLOAT_EQ(got.sphere.x, sent.sphere.x);
        EXPECT_FLOAT_EQ(got.sphere.y, sent.sphere.y);
        EXPECT_FLOAT_EQ(got.sphere.z, sent.sphere.z);
        EXPECT_FLOAT_EQ(got.sphere.radius, sent.sphere.radius);
        break;
    }
}

TEST(SimulatedSafety, StoredFencesRoundTrip) {
    arm_session s(sim_test::options("KIVO-B", 10.0));
    const ka_fence_config_t fences[] = {cube_fence("box"), plane_fence("floor"),
                                        sphere_fence("ball")};
    for (const ka_fence_config_t &f : fences)
        ASSERT_EQ(ka_add_electronic_fence_config(s.arm, f), KA_OK) << f.form_name;
    EXPECT_EQ(ka_add_electronic_fence_config(s.arm, fences[0]), KA_REFUSED); // name taken

    ka_fence_names_t names[KA_FENCE_LIST_CAPACITY] = {};
    int len = 0;
    ASSERT_EQ(ka_get_electronic_fence_list_names(s.arm, names, &len), KA_OK);
    ASSERT_EQ(len, 3);
    EXPECT_STREQ(names[1].name, "floor");

    for (const ka_fence_config_t &f : fences) {
        SCOPED_TRACE(f.form_name);
        ka_fence_config_t got{};
        ASSERT_EQ(ka_get_given_electronic_fence_config(s.arm, f.form_name, &got), KA_OK);
        EXPECT_STREQ(got.form_name, f.form_name);
        expect_same_zone(got, f);
    }
    ka_fence_config_list_t infos[KA_FENCE_LIST_CAPACITY] = {};
    ASSERT_EQ(ka_get_electronic_fence_list_infos(s.arm, infos, &len), KA_OK);
    ASSERT_EQ(len, 3);
    for (int i = 0; i < 3; ++i)
        expect_same_zone(infos[i], fences[i]);

    ka_fence_config_t bigger = sphere_fence("ball");
    bigger.sphere.radius = 1.25f;
    ASSERT_EQ(ka_update_electronic_fence_config(s.arm, bigger), KA_OK);
    ka_fence_config_t got{};
    ASSERT_EQ(ka_get_given_electronic_fence_config(s.arm, "ball", &got), KA_OK);
    EXPECT_FLOAT_EQ(got.sphere.radius, 1.25f);

    ASSERT_EQ(ka_delete_electronic_fence_config(s.arm, "floor"), KA_OK);
    EXPECT_EQ(ka_get_given_electronic_fence_config(s.arm, "floor", &got), KA_REFUSED);
    EXPECT_EQ(ka_update_electronic_fence_config(s.arm, plane_fence("floor")), KA_REFUSED);

    ka_fence_config_t flat = sphere_fence("flat");
    flat.sphere.radius = 0.0f;
    EXPECT_EQ(ka_add_electronic_fence_config(s.arm, flat), KA_REFUSED);
}

TEST(SimulatedSafety, ActiveFenceVirtualWallAndSettingsRoundTrip) {
    arm_session s(sim_test::options("LUNE-ZF", 10.0));
    const struct {
        const char *what;
        int (*set)(ka_robot_handle *, ka_fence_config_t);
        int (*get)(ka_robot_handle *, ka_fence_config_t *);
        ka_fence_config_t zone;
    } zones[] = {
        {"fence cube", ka_set_electronic_fence_config, ka_get_electronic_fence_config,
         cube_fence("")},
        {"fence plane", ka_set_electronic_fence_config, ka_get_electronic_fence_config,
         plane_fence("")},
        {"wall cube", ka_set_virtual_wall_config, ka_get_virtual_wall_config, cube_fence("")},
        {"wall sphere", ka_set_virtual_wall_config, ka_get_virtual_wall_config, sphere_fence("")},
    };
    for (const auto &row : zones) {
        SCOPED_TRACE(row.what);
        ASSERT_EQ(row.set(s.arm, row.zone), KA_OK);
        ka_fence_config_t got{};
        ASSERT_EQ(row.get(s.arm, &got), KA_OK);
        expect_same_zone(got, row.zone);
    }

    const struct {
        const char *what;
        int (*set)(ka_robot_handle *, ka_electronic_fence_enable_t);
        int (*get)(ka_robot_handle *, ka_electronic_fence_enable_t *);
    } enables[] = {
        {"fence", ka_set_electronic_fence_enable, ka_get_electronic_fence_enable},
        {"wall", ka_set_virtual_wall_enable, ka_get_virtual_wall_enable},
    };
    for (const auto &row : enables) {
        SCOPED_TRACE(row.what);
        ASSERT_EQ(row.set(s.arm, {true, 1, 0}), KA_OK);
        ka_electronic_fence_enable_t got{false, -1, -1};
        ASSERT_EQ(row.get(s.arm, &got), KA_OK);
        EXPECT_TRUE(got.enable_state);
        EXPECT_EQ(got.in_out_side, 1);
        EXPECT_EQ(got.effective_region, 0);
        EXPECT_EQ(row.set(s.arm, {true, 2, 0}), KA_REFUSED);
    }

    bool collision = true;
    ASSERT_EQ(ka_set_self_collision_enable(s.arm, false), KA_OK);
    ASSERT_EQ(ka_get_self_collision_enable(s.arm, &collision), KA_OK);
    EXPECT_FALSE(collision);

    int mode = -1;
    ASSERT_EQ(ka_set_arm_run_mode(s.arm, 0), KA_OK);
    ASSERT_EQ(ka_get_arm_run_mode(s.arm, &mode), KA_OK);
    EXPECT_EQ(mode, 0);
    ASSERT_EQ(ka_set_arm_run_mode(s.arm, 2), KA_OK); // sent as 1
    ASSERT_EQ(ka_get_arm_run_mode(s.arm, &mode), KA_OK);
    EXPECT_EQ(mode, 1);

    int versions[7] = {};
    ASSERT_EQ(ka_get_joint_software_version(s.arm, versions), KA_OK);
    for (int j = 0; j < 7; ++j)
        EXPECT_GT(versions[j], 0) << "joint " << j + 1;
    int tool = 0;
    ASSERT_EQ(ka_get_tool_software_version(s.arm, &tool), KA_OK);
    EXPECT_GT(tool, 0);
}

// Malformed requests get a refusal or an error, never silence or a crash.
TEST(SimulatedFamilies, AnswerMalformedRequests) {
    sim::arm target(*sim::arm_traits_for("KIVO-B"));
    const char *requests[] = {
        R"({"command":"write_registers","port":0,"address":0,"device":1,"num":2,"data":"x"})",
        R"({"command":"write_coils","port":0,"address":0,"device":1,"num":99999,"data":[1]})",
        R"({"command":"read_multiple_coils","port":"0","address":0,"device":1,"num":8})",
        R"({"command":"run_project","project_name":7,"file_size":10})",
        R"({"command":"set_program_id_start","id":[1]})",
        R"({"command":"get_program_trajectory_list","page_num":2147483647,"page_size":2147483647})",
        R"({"command":"add_global_waypoint","point_name":"a","joint":[1,2,3]})",
        R"({"command":"get_global_waypoints_list","page_num":1,"page_size":5,"vague_search":1})",
        R"({"command":"add_electronic_fence_config","form":9,"form_name":"z"})",
        R"({"command":"set_virtual_wall_config","form":2,"x1":0})",
        R"({"command":"set_electronic_fence_enable","set_enable":1})",
    };
    for (const char *request : requests) {
        sim::command_context context{target, 0.0, {}};
        const std::string reply = sim::answer_line(request, context);
        EXPECT_FALSE(reply.empty()) << request;
        EXPECT_TRUE(reply.find("false") != std::string::npos ||
                    reply.find("\"error\"") != std::string::npos ||
                    reply.find("\"list\":[]") != std::string::npos)
            << request << " -> " << reply;
    }
}

} // namespace
