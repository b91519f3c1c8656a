// Online programming: request lines, the raw project download and the
// converted file, the program run wait, the trajectory save, and replies
// longer than the records they fill.
#include "sim/net/process.h"
#include "support/arm_fixture.h"

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>

using namespace ka_test;
using namespace std::chrono_literals;
namespace fs = std::filesystem;

#define CALL(expr) [](ka_robot_handle *h) { return expr; }

namespace {

// An output record followed by a guard no copy may reach.
template <class T> struct guarded {
    T out{};
    char guard[64];
    guarded() { std::fill(std::begin(guard), std::end(guard), 'Z'); }
    bool intact() const { return std::count(std::begin(guard), std::end(guard), 'Z') == 64; }
};
guarded<ka_program_trajectorys_t> list;
guarded<ka_program_run_state_t> state;
int int_out;
std::string save_path;

std::string finished(int id) {
    return R"({"state":"program_run_finish","finish_id":)" + std::to_string(id) + "}";
}
fs::path scratch(const std::string &name) {
    fs::path dir = fs::path(testing::TempDir()) /
                   ("ka_program_" + name + std::to_string(sim::net::current_process_id()));
    fs::remove_all(dir);
    fs::create_directories(dir);
    return dir;
}
void write_file(const fs::path &path, const std::string &bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
}
std::string read_file(const fs::path &path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

} // namespace

TEST(program_wire, every_command_sends_its_exact_line_and_reads_its_reply) {
    arm_session s;
    fs::path dir = scratch("wire");
    save_path = (dir / "drag1.txt").string();
    ka_send_project_t project{};
    // Null outputs and a save file that cannot be created: nothing sent.
    EXPECT_EQ(ka_send_project(s.arm, &project, nullptr), -1);
    EXPECT_EQ(ka_send_project_lock(s.arm, "x\r\n", 3, nullptr), -1);
    EXPECT_EQ(ka_get_program_trajectory_list(s.arm, 1, 10, nullptr, nullptr), -1);
    EXPECT_EQ(ka_get_program_run_state(s.arm, nullptr), -1);
    EXPECT_EQ(ka_get_default_run_program(s.arm, nullptr), -1);
    EXPECT_EQ(ka_save_trajectory(s.arm, save_path.c_str(), nullptr), -1);
    EXPECT_EQ(ka_save_trajectory(s.arm, (dir / "no" / "x.txt").string().c_str(), &int_out), -4);
    EXPECT_FALSE(s.peer.wait_for_lines(1, 100ms));

    std::string entries, loops, name(40, 'n'); // a page past the capacity, loops past theirs
    for (int i = 0; i < std::max(KA_PROGRAM_LIST_CAPACITY, KA_PROGRAM_LOOPS) + 10; ++i) {
        entries += (i ? R"(,{"id":)" : R"({"id":)") + std::to_string(i) +
                   R"(,"trajectory_name":")" + name + "\"}";
        loops += (i ? "," : "") + std::to_string(i + 1);
    }
    // clang-format off
    const std::string list_line = R"({"command":"get_program_trajectory_list","vague_search":"pick","page_num":1,"page_size":10})";
    const std::string state_line = R"({"command":"get_program_run_state"})", save_line = R"({"command":"save_trajectory","trajectory_name":"drag1"})";
    struct row { wire_case wire; std::function<void()> check = nullptr; } const rows[] = {
        {{"plan_speed", CALL(ka_set_plan_speed(h, 40)), R"({"command":"plan_speed","speed":40})", answer("plan_speed", "plan_state"), 0}},
        {{"list", CALL(ka_get_program_trajectory_list(h, 1, 10, "pick", &list.out)), list_line, line("get_program_trajectory_list", R"("total_size":2,"vague_search":"pick","list":[{"id":1},{"id":2,"size":30,"speed":60,"trajectory_name":"pick_b"}])"), 0}, [] { EXPECT_EQ(std::tuple(list.out.total_size, std::string(list.out.vague_search), list.out.list[1].id, list.out.list[1].size, list.out.list[1].speed, std::string(list.out.list[1].trajectory_name)), std::tuple(2, "pick", 2, 30, 60, "pick_b")); }},
        {{"list without search", CALL(ka_get_program_trajectory_list(h, 2, 5, nullptr, &list.out)), R"({"command":"get_program_trajectory_list","page_num":2,"page_size":5})", line("get_program_trajectory_list", R"("list":[])"), 0}},
        {{"list not an array", CALL(ka_get_program_trajectory_list(h, 1, 10, "pick", &list.out)), list_line, line("get_program_trajectory_list", R"("list":{})"), -3}},
        {{"list past the capacity", CALL(ka_get_program_trajectory_list(h, 1, 10, "pick", &list.out)), list_line, line("get_program_trajectory_list", R"("vague_search":")" + name + R"(","list":[)" + entries + "]"), 0}, [&] { EXPECT_EQ(std::tuple(list.out.list[KA_PROGRAM_LIST_CAPACITY - 1].id, std::string(list.out.list[7].trajectory_name), std::string(list.out.vague_search), list.intact()), std::tuple(KA_PROGRAM_LIST_CAPACITY - 1, name.substr(0, 31), name.substr(0, 28), true)); }},
        {{"run state", CALL(ka_get_program_run_state(h, &state.out)), state_line, line("get_program_run_state", R"("run_state":1,"id":4,"plan_speed":80,"loop_num":[3,2],"loop_cont":[1,0])"), 0}, [] { EXPECT_EQ(std::tuple(state.out.run_state, state.out.id, state.out.plan_speed, state.out.loop_count, state.out.loop_num[1], state.out.loop_cont[0]), std::tuple(1, 4, 80, 2, 2, 1)); }},
        {{"run state missing", CALL(ka_get_program_run_state(h, &state.out)), state_line, line("get_program_run_state", R"("id":4)"), -3}},
        // loop_cont[0] would hold a 101st loop_num.
        {{"loops past the capacity", CALL(ka_get_program_run_state(h, &state.out)), state_line, line("get_program_run_state", R"("run_state":0,"loop_num":[)" + loops + R"(],"loop_cont":[)" + loops + "]"), 0}, [] { EXPECT_EQ(std::tuple(state.out.loop_count, state.out.loop_num[KA_PROGRAM_LOOPS - 1], state.out.loop_cont[0], state.intact()), std::tuple(KA_PROGRAM_LOOPS, KA_PROGRAM_LOOPS, 1, true)); }},
        {{"delete", CALL(ka_delete_program_trajectory(h, 7)), R"({"command":"delete_program_trajectory","id":7})", answer("delete_program_trajectory", "delete_state"), 0}},
        {{"update", CALL(ka_update_program_trajectory(h, 7, 30, "weld")), R"({"command":"update_program_trajectory","id":7,"plan_speed":30,"project_name":"weld"})", answer("update_program_trajectory", "update_state", false), 1}},
        {{"set default", CALL(ka_set_default_run_program(h, 4)), R"({"command":"set_default_run_program","id":4})", answer("set_default_run_program", "set_state"), 0}},
        {{"get default", CALL(ka_get_default_run_program(h, &int_out)), R"({"command":"get_default_run_program"})", line("get_default_run_program", R"("id":9)"), 0}, [] { EXPECT_EQ(int_out, 9); }},
        {{"start, speed 0 not sent", CALL(ka_set_program_id_run(h, 3, 0, 0)), R"({"command":"set_program_id_start","id":3})", answer("set_program_id_start", "start_state"), 0}},
        {{"start with speed", CALL(ka_set_program_id_run(h, 3, 20, 0)), R"({"command":"set_program_id_start","id":3,"speed":20})", answer("set_program_id_start", "start_state"), 0}},
        {{"start refused", CALL(ka_set_program_id_run(h, 3, 20, 5)), R"({"command":"set_program_id_start","id":3,"speed":20})", answer("set_program_id_start", "start_state", false), 1}},
        {{"save refused", CALL(ka_save_trajectory(h, save_path.c_str(), &int_out)), save_line, answer("save_trajectory", "save_state", false), 1}},
        {{"save total missing", CALL(ka_save_trajectory(h, save_path.c_str(), &int_out)), save_line, answer("save_trajectory", "save_state"), -3}},
    };
    // clang-format on
    for (const auto &r : rows) {
        expect_wire(s, r.wire);
        if (r.check) r.check();
    }
}

// A file goes out in 100-byte pieces, held text in 10-byte pieces; each piece
// ends at its first NUL byte, which shows where the pieces are cut. A bare
// trajectory file is converted (header with the arm's DOF) under a
// time-stamped name; a path with only "\" separators is sent under its stem
// and refused when it must be converted; an unreadable file gives -5.
TEST(program_download, pieces_conversion_and_path_rules) {
    arm_session s(KA_THREAD_MODE_DUAL, "LUNE-B", 7);
    log_capture log;
    fs::path dir = scratch("download"), home = fs::current_path();
    fs::current_path(dir);
    const std::string converted = "{\"file\":7}\r\n{\"name\":\"Folder\",\"num\":1,\"type\":3,"
                                  "\"enabled\":true,\"parent_number\":0}\r\na\r\nbb\r\nccc\r\n";
    const std::string accepted = answer("download_project", "project_state"),
                      missing = (dir / "gone.txt").generic_string();
    std::string lines; // five lines of 50 bytes
    for (char c = 'a'; c < 'f'; ++c)
        lines += std::string(48, c) + "\r\n";
    std::string nul_at_120 = lines;
    nul_at_120[120] = '\0';
    auto stamp = [] { // the time stamp a conversion now adds to the name
        char text[40];
        std::time_t now = std::time(nullptr);
        std::strftime(text, sizeof text, "%Y-%m-%d %H_%M_%S.txt", std::localtime(&now));
        return std::string(text);
    };
    // Paths the library is given are written with "/", which every system
    // takes, except one whose only separators are "\": on Windows a real path
    // into the directory, elsewhere a file name with "\" in it.
#if defined(_WIN32)
    const std::string backslashed = fs::path(dir / "prog.txt").make_preferred().string();
#else
    const std::string backslashed = "D:\\work\\prog.txt";
#endif
    // The path, its content, the verdict, the bytes streamed after run_project,
    // the result, errline and the name sent (a failure keeps the path).
    // clang-format off
    struct { std::string path; int convert; std::string content, answer, streamed; int result, errline; std::string name; } const rows[] = {
        {(dir / "traj.txt").generic_string(), 1, "a\r\nbb\r\nccc\r\n", accepted, converted, 0, -1, "traj"},
        {backslashed, 0, lines, accepted, lines, 0, -1, "prog"},
        {(dir / "job.txt").generic_string(), 0, nul_at_120, line("download_project", R"("project_state":false,"err_line":4)"), lines.substr(0, 120) + lines.substr(200), 1, 4, "job"},
        {backslashed, 1, "", "", "", -4, 0, ""},
        {missing, 0, "", "", "", -5, 0, ""},
        {missing, 1, "", "", "", -5, 0, ""},
    };
    // clang-format on
    for (const auto &r : rows) {
        SCOPED_TRACE(r.path + " " + std::to_string(r.convert) + " -> " + std::to_string(r.result));
        s.peer.clear_lines();
        if (!r.content.empty()) write_file(r.path, r.content);
        // run_project is answered, the streamed lines pass, the last gets the verdict.
        if (!r.streamed.empty())
            s.peer.answer_next({reply(answer("run_project", "project_state"))});
        for (size_t at = r.streamed.find("\r\n"); at != std::string::npos;
             at = r.streamed.find("\r\n", at + 2))
            s.peer.answer_next(at + 2 < r.streamed.size() ? std::vector<action>{}
                                                          : std::vector{reply(r.answer)});
        ka_send_project_t q{};
        std::snprintf(q.project_path, sizeof q.project_path, "%s", r.path.c_str());
        q.project_path_len = static_cast<int32_t>(r.path.size()), q.convert_flag = r.convert;
        q.plan_speed = 50, q.save_id = 3, q.step_flag = 1;
        int errline = 0;
        std::string before = stamp();
        EXPECT_EQ(ka_send_project(s.arm, &q, &errline), r.result);
        std::string name = q.project_path, after = stamp();
        EXPECT_EQ(errline, r.errline);
        EXPECT_EQ(s.peer.wait_for_lines(1, 50ms), !r.streamed.empty());
        std::vector<std::string> sent = s.peer.lines();
        std::string bytes;
        for (size_t i = 1; i < sent.size(); ++i)
            bytes += sent[i] + "\r\n";
        EXPECT_EQ(bytes, r.streamed);
        if (r.convert && r.result == 0)
            EXPECT_TRUE(name == r.name + before || name == r.name + after) << name;
        else
            EXPECT_EQ(name, r.result < 0 ? r.path : r.name);
        if (r.result < 0) continue;
        EXPECT_EQ(q.project_path_len, static_cast<int>(name.size()));
        EXPECT_EQ(s.peer.lines().front(),
                  R"({"command":"run_project","project_name":")" + name + R"(","file_size":)" +
                      std::to_string((r.convert ? r.streamed : r.content).size()) +
                      R"(,"plan_speed":50,"step_flag":1,"only_save":0,"save_id":3})");
        if (r.convert) EXPECT_EQ(read_file(dir.string() + "//" + name), r.streamed); // doubled "/"
    }
    fs::current_path(home);
    const char held[] = "0123456789abc\0efghijklmnopqrstu\r\n"; // "abc" ends the second piece
    s.peer.clear_lines();
    s.peer.answer_next({reply(accepted)});
    int errline = 0;
    EXPECT_EQ(ka_send_project_lock(s.arm, held, sizeof held - 1, &errline), 0);
    EXPECT_EQ(errline, -1);
    EXPECT_EQ(s.peer.lines(), std::vector<std::string>{"0123456789abcklmnopqrstu"});
    EXPECT_TRUE(log.contains("File name check error!\n"));
    EXPECT_TRUE(log.contains("打开文件失败: "));
    // Nothing written for a refused or unreadable conversion.
    EXPECT_EQ(std::distance(fs::directory_iterator(dir), fs::directory_iterator()), 4);
    EXPECT_EQ(countLinesInFile(missing.c_str()), -1);
    write_file(dir / "long.txt", std::string(1500, 'x') + "\nshort"); // read in 1024-byte parts
    EXPECT_EQ(countLinesInFile((dir / "long.txt").string().c_str()), 3);
}

// Threaded modes follow the run state and take their own program's finish
// only; single-thread mode reads one finish report.
TEST(program_run, only_the_own_programs_finish_ends_the_wait) {
    const std::string accept = answer("set_program_id_start", "start_state");
    const std::string running = line("get_program_run_state", R"("run_state":1)"),
                      broken = line("get_program_run_state");
    // clang-format off
    struct { int mode; std::vector<action> start, first_query, later_queries; int result; long queries; } const rows[] = {
        {KA_THREAD_MODE_DUAL, {reply(accept), delay(10ms), reply(finished(99))}, {reply(running)}, {reply(line("get_program_run_state", R"("run_state":0)")), delay(20ms), reply(finished(3))}, 0, 2},
        {KA_THREAD_MODE_DUAL, {reply(accept)}, {reply(broken)}, {reply(broken)}, -3, 6},
        {KA_THREAD_MODE_SINGLE, {reply(accept), delay(50ms), reply(finished(99))}, {}, {}, -4, 0},
        {KA_THREAD_MODE_SINGLE, {reply(accept), delay(50ms), reply(finished(3))}, {}, {}, 0, 0},
    };
    // clang-format on
    for (const auto &r : rows) {
        SCOPED_TRACE(std::to_string(r.mode) + " " + std::to_string(r.result));
        arm_session s(r.mode);
        s.peer.on("set_program_id_start", r.start);
        s.peer.on_once("get_program_run_state", r.first_query);
        s.peer.on("get_program_run_state", r.later_queries);
        EXPECT_EQ(ka_set_program_id_run(s.arm, 3, 0, 2), r.result);
        EXPECT_EQ(std::ranges::count(s.peer.commands(), "get_program_run_state"), r.queries);
    }
}

// A finish left over from a start that did not wait must not end a later
// blocking start: the leftover is unreadable (-4 had it ended the wait), the
// fresh one is the program's own (0). The leftover's event shows it filed.
TEST(program_run, a_leftover_finish_does_not_end_a_later_blocking_start) {
    event_recorder events;
    arm_session s;
    const std::string accept = answer("set_program_id_start", "start_state");
    const std::string leftover = R"({"state":"program_run_finish","finish_id":"x"})";
    s.peer.on_once("set_program_id_start", {reply(accept), reply(leftover)});
    ASSERT_EQ(ka_set_program_id_run(s.arm, 3, 0, 0), 0);
    ASSERT_TRUE(events.wait_for(1, 2s, 2));
    s.peer.on("set_program_id_start", {reply(accept)});
    s.peer.on_once("get_program_run_state",
                   {reply(line("get_program_run_state", R"("run_state":1)")), delay(20ms),
                    reply(finished(3))});
    EXPECT_EQ(ka_set_program_id_run(s.arm, 3, 0, 2), 0);
    EXPECT_EQ(std::ranges::count(s.peer.commands(), "get_program_run_state"), 1);
}

// Threaded, the receive thread writes the points; single-thread, the caller's
// reads do. A file left open for late points is closed with the library.
TEST(program_save, streamed_points_land_in_the_file_one_per_line) {
    const std::string accepted = line("save_trajectory", R"("save_state":true,"total_num":3)");
    std::vector<action> stream{reply(accepted), delay(50ms)};
    std::string all;
    for (const char *point : {"[1,2,3,4,5,6]", "[2,3,4,5,6,7]", "[3,4,5,6,7,8]"}) {
        stream.push_back(reply(R"({"point":)" + std::string(point) + "}"));
        all += R"({"point":)" + std::string(point) + "}\r\n";
    }
    const std::tuple<int, std::vector<action>, int, std::string> rows[] = {
        {KA_THREAD_MODE_DUAL, stream, 0, all},
        {KA_THREAD_MODE_SINGLE, stream, 0, all},
        {KA_THREAD_MODE_DUAL, {reply(accepted)}, -6, ""},
        {KA_THREAD_MODE_SINGLE, {reply(accepted)}, 0, ""}};
    fs::path dir = scratch("save");
    for (const auto &[mode, answer, result, content] : rows) {
        fs::path file = dir / ("drag" + std::to_string(mode) + std::to_string(result) + ".txt");
        SCOPED_TRACE(file);
        {
            arm_session s(mode);
            s.peer.on("save_trajectory", answer);
            int num = 0;
            EXPECT_EQ(ka_save_trajectory(s.arm, file.string().c_str(), &num), result);
            EXPECT_EQ(num, 3);
        }
        EXPECT_EQ(read_file(file), content);
        EXPECT_FALSE(sim::net::file_is_open(file.string()));
    }
}

// A refused save or a bad total: the code, the line logged, and *num holding the announced total
// (-1 when missing) even when it is refused; a file that cannot be created sends nothing.
TEST(program_save, refusals_log_their_line_and_leave_the_announced_total) {
    const std::tuple<std::string, int, const char *, int> rows[] = {
        {R"("save_state":false)", 1, "[ka_save_trajectory] Save state: false\n", 7},
        {R"("total_num":3)", -3, "[ka_save_trajectory] Save trajectory err\n", 7},
        {R"("save_state":true)", -3, "[ka_save_trajectory] Trajectory total num parse err\n", -1},
        {R"("save_state":true,"total_num":-5)", -3,
         "[ka_save_trajectory] Trajectory total num parse err\n", -5}};
    fs::path dir = scratch("save_refused");
    for (const auto &[body, result, logged, total] : rows) {
        SCOPED_TRACE(body);
        arm_session s;
        log_capture log;
        s.peer.on("save_trajectory", {reply(line("save_trajectory", body))});
        int num = 7;
        EXPECT_EQ(ka_save_trajectory(s.arm, (dir / "refused.txt").string().c_str(), &num), result);
        EXPECT_EQ(num, total);
        EXPECT_TRUE(log.contains(logged));
    }
    arm_session s;
    log_capture log;
    int num = 7;
    EXPECT_EQ(ka_save_trajectory(s.arm, (dir / "no" / "x.txt").string().c_str(), &num), -4);
    EXPECT_EQ(num, 7);
    EXPECT_TRUE(log.contains("[ka_save_trajectory] File open error!"));
    EXPECT_FALSE(s.peer.wait_for_lines(1, 100ms));
}

// Every set command against each verdict form; -2 timed for two of them.
// The start runs without a time-out, so its acceptance is the result.
TEST(program_wire, every_set_command_maps_each_verdict_form) {
    using quiet = set_row::no_reply;
    static ka_send_project_t project{};
    std::snprintf(project.project_path, sizeof project.project_path, "%s", "weld");
    // clang-format off
    const set_row rows[] = {
        {"run_project", CALL(ka_run_project(h, &project, 120)), "", "project_state", 500, quiet::always},
        {"plan_speed", CALL(ka_set_plan_speed(h, 40)), "", "plan_state"},
        {"delete_program_trajectory", CALL(ka_delete_program_trajectory(h, 7)), "", "delete_state"},
        {"update_program_trajectory", CALL(ka_update_program_trajectory(h, 7, 30, "weld")), "", "update_state"},
        {"set_default_run_program", CALL(ka_set_default_run_program(h, 4)), "", "set_state"},
        {"set_program_id_start", CALL(ka_set_program_id_run(h, 3, 20, 0)), "", "start_state", 500, quiet::always},
    };
    // clang-format on
    expect_set_outcomes(rows);
}
