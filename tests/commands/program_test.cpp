// Online programming: request lines, the raw project download and the
// converted file, the program run wait, the trajectory save, and replies
// longer than the records they fill.
#include "core/arm.h"
#include "support/arm_fixture.h"

#include <algorithm>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sstream>
#include <unistd.h>

using namespace ka_test;
using namespace std::chrono_literals;
namespace fs = std::filesystem;

#define CALL(expr) [](ka_robot_handle *h) { return expr; }

namespace {

// Outputs of the wire rows; each record is followed by a guard no copy may reach.
struct {
    ka_program_trajectorys_t out;
    char guard[64];
} list;
struct {
    ka_program_run_state_t out;
    char guard[64];
} state;
int int_out;
std::string save_path;

std::string line(const std::string &command, const std::string &rest = "") {
    return R"({"command":")" + command + "\"" + (rest.empty() ? "" : "," + rest) + "}";
}
std::string verdict(const std::string &name, const std::string &key, bool ok = true) {
    return line(name, "\"" + key + "\":" + (ok ? "true" : "false"));
}
std::string finished(int id) {
    return R"({"state":"program_run_finish","finish_id":)" + std::to_string(id) + "}";
}
bool intact(const char (&guard)[64]) {
    return std::all_of(std::begin(guard), std::end(guard), [](char c) { return c == 'Z'; });
}

fs::path scratch(const std::string &name) {
    fs::path dir = fs::path(testing::TempDir()) / ("ka_program_" + name + std::to_string(getpid()));
    fs::remove_all(dir);
    fs::create_directories(dir);
    return dir;
}
void write_file(const fs::path &path, const std::string &bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
}
std::string read_file(const fs::path &path) {
    std::ostringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    return text.str();
}

ka_send_project_t project_for(const std::string &path, int convert = 0) {
    ka_send_project_t p{};
    std::snprintf(p.project_path, sizeof p.project_path, "%s", path.c_str());
    p.project_path_len = static_cast<int32_t>(path.size());
    p.plan_speed = 50, p.save_id = 3, p.step_flag = 1, p.convert_flag = convert;
    return p;
}

// The name traj.txt is converted to at this moment.
std::string stamped() {
    std::time_t now = std::time(nullptr);
    char text[40];
    std::strftime(text, sizeof text, "traj%Y-%m-%d %H_%M_%S.txt", std::localtime(&now));
    return text;
}

// Answers run_project (unless raw), lets the lines of `text` pass and
// answers the last one with the download verdict.
void serve_download(test_peer &peer, bool raw, const std::string &text, const std::string &answer) {
    if (!raw) peer.answer_next({reply(verdict("run_project", "project_state"))});
    for (size_t at = text.find("\r\n"); (at = text.find("\r\n", at + 2)) != std::string::npos;)
        peer.answer_next({});
    peer.answer_next({reply(answer)});
}
// The bytes the peer received after the first `skip` lines.
std::string stream_after(const test_peer &peer, size_t skip) {
    std::string bytes;
    for (const auto &text : peer.lines())
        if (skip == 0 || skip-- == 0) bytes += text + "\r\n";
    return bytes;
}

} // namespace

TEST(program_wire, every_command_sends_its_exact_line_and_reads_its_reply) {
    arm_session s;
    fs::path dir = scratch("wire");
    save_path = (dir / "drag1.txt").string();
    int errline = 0;
    ka_send_project_t missing = project_for((dir / "missing.txt").string());
    // Null outputs, a save file that cannot be created, a file that cannot be read: nothing sent.
    EXPECT_EQ(ka_send_project(s.arm, &missing, nullptr), -1);
    EXPECT_EQ(ka_send_project_lock(s.arm, "x\r\n", 3, nullptr), -1);
    EXPECT_EQ(ka_get_program_trajectory_list(s.arm, 1, 10, nullptr, nullptr), -1);
    EXPECT_EQ(ka_get_program_run_state(s.arm, nullptr), -1);
    EXPECT_EQ(ka_get_default_run_program(s.arm, nullptr), -1);
    EXPECT_EQ(ka_save_trajectory(s.arm, save_path.c_str(), nullptr), -1);
    EXPECT_EQ(ka_save_trajectory(s.arm, (dir / "no" / "x.txt").c_str(), &int_out), -4);
    EXPECT_EQ(ka_send_project(s.arm, &missing, &errline), -5);
    EXPECT_FALSE(s.peer.wait_for_lines(1, 100ms));

    std::fill(std::begin(list.guard), std::end(list.guard), 'Z');
    std::fill(std::begin(state.guard), std::end(state.guard), 'Z');
    std::string entries, loops, name(40, 'n'); // a page past the capacity, loops past theirs
    for (int i = 0; i < KA_PROGRAM_LIST_CAPACITY + 5; ++i)
        entries += (i ? R"(,{"id":)" : R"({"id":)") + std::to_string(i) +
                   R"(,"trajectory_name":")" + name + "\"}";
    for (int i = 1; i <= KA_PROGRAM_LOOPS + 10; ++i)
        loops += (i > 1 ? "," : "") + std::to_string(i);
    // clang-format off
    const std::string list_line = R"({"command":"get_program_trajectory_list","vague_search":"pick","page_num":1,"page_size":10})";
    const std::string state_line = R"({"command":"get_program_run_state"})";
    const std::string save_line = R"({"command":"save_trajectory","trajectory_name":"drag1"})";
    struct row { wire_case wire; std::function<void()> check = nullptr; } const rows[] = {
        {{"plan_speed", CALL(ka_set_plan_speed(h, 40)), R"({"command":"plan_speed","speed":40})", verdict("plan_speed", "plan_state"), 0}},
        {{"list", CALL(ka_get_program_trajectory_list(h, 1, 10, "pick", &list.out)), list_line, line("get_program_trajectory_list", R"("total_size":2,"vague_search":"pick","list":[{"id":1},{"id":2,"size":30,"speed":60,"trajectory_name":"pick_b"}])"), 0}, [] {
            EXPECT_EQ(std::tuple(list.out.total_size, std::string(list.out.vague_search), list.out.list[1].id, list.out.list[1].size, list.out.list[1].speed, std::string(list.out.list[1].trajectory_name)), std::tuple(2, "pick", 2, 30, 60, "pick_b")); }},
        {{"list without search", CALL(ka_get_program_trajectory_list(h, 2, 5, nullptr, &list.out)), R"({"command":"get_program_trajectory_list","page_num":2,"page_size":5})", line("get_program_trajectory_list", R"("list":[])"), 0}},
        {{"list not an array", CALL(ka_get_program_trajectory_list(h, 1, 10, "pick", &list.out)), list_line, line("get_program_trajectory_list", R"("list":{})"), -3}},
        {{"list past the capacity", CALL(ka_get_program_trajectory_list(h, 1, 10, "pick", &list.out)), list_line, line("get_program_trajectory_list", R"("vague_search":")" + name + R"(","list":[)" + entries + "]"), 0}, [&] {
            EXPECT_EQ(list.out.list[KA_PROGRAM_LIST_CAPACITY - 1].id, KA_PROGRAM_LIST_CAPACITY - 1);
            EXPECT_EQ(std::pair(std::string(list.out.list[7].trajectory_name), std::string(list.out.vague_search)), std::pair(name.substr(0, 31), name.substr(0, 28)));
            EXPECT_TRUE(intact(list.guard)); }},
        {{"run state", CALL(ka_get_program_run_state(h, &state.out)), state_line, line("get_program_run_state", R"("run_state":1,"id":4,"plan_speed":80,"loop_num":[3,2],"loop_cont":[1,0])"), 0}, [] {
            EXPECT_EQ(std::tuple(state.out.run_state, state.out.id, state.out.plan_speed, state.out.loop_count, state.out.loop_num[1], state.out.loop_cont[0]), std::tuple(1, 4, 80, 2, 2, 1)); }},
        {{"run state missing", CALL(ka_get_program_run_state(h, &state.out)), state_line, line("get_program_run_state", R"("id":4)"), -3}},
        {{"loops past the capacity", CALL(ka_get_program_run_state(h, &state.out)), state_line, line("get_program_run_state", R"("run_state":0,"loop_num":[)" + loops + R"(],"loop_cont":[)" + loops + "]"), 0}, [] {
            // loop_cont[0] would hold a 101st loop_num.
            EXPECT_EQ(std::tuple(state.out.loop_count, state.out.loop_num[KA_PROGRAM_LOOPS - 1], state.out.loop_cont[0]), std::tuple(KA_PROGRAM_LOOPS, KA_PROGRAM_LOOPS, 1));
            EXPECT_TRUE(intact(state.guard)); }},
        {{"delete", CALL(ka_delete_program_trajectory(h, 7)), R"({"command":"delete_program_trajectory","id":7})", verdict("delete_program_trajectory", "delete_state"), 0}},
        {{"update", CALL(ka_update_program_trajectory(h, 7, 30, "weld")), R"({"command":"update_program_trajectory","id":7,"plan_speed":30,"project_name":"weld"})", verdict("update_program_trajectory", "update_state", false), 1}},
        {{"set default", CALL(ka_set_default_run_program(h, 4)), R"({"command":"set_default_run_program","id":4})", verdict("set_default_run_program", "set_state"), 0}},
        {{"get default", CALL(ka_get_default_run_program(h, &int_out)), R"({"command":"get_default_run_program"})", line("get_default_run_program", R"("id":9)"), 0}, [] { EXPECT_EQ(int_out, 9); }},
        {{"start, speed 0 not sent", CALL(ka_set_program_id_run(h, 3, 0, 0)), R"({"command":"set_program_id_start","id":3})", verdict("set_program_id_start", "start_state"), 0}},
        {{"start with speed", CALL(ka_set_program_id_run(h, 3, 20, 0)), R"({"command":"set_program_id_start","id":3,"speed":20})", verdict("set_program_id_start", "start_state"), 0}},
        {{"start refused", CALL(ka_set_program_id_run(h, 3, 20, 5)), R"({"command":"set_program_id_start","id":3,"speed":20})", verdict("set_program_id_start", "start_state", false), 1}},
        {{"save refused", CALL(ka_save_trajectory(h, save_path.c_str(), &int_out)), save_line, verdict("save_trajectory", "save_state", false), 1}},
        {{"save total missing", CALL(ka_save_trajectory(h, save_path.c_str(), &int_out)), save_line, verdict("save_trajectory", "save_state"), -3}},
    };
    // clang-format on
    for (const auto &r : rows) {
        registry_find(s.arm)->awaited_event = 0;
        expect_wire(s, r.wire);
        if (r.check) r.check();
        // An accepted start marks the program's finish report as awaited.
        if (r.wire.request.find("set_program_id_start") != std::string::npos)
            EXPECT_EQ(registry_find(s.arm)->awaited_event.load(), r.wire.result == 0 ? 2 : 0);
    }
}

// A file goes out in 100-byte pieces, held text in 10-byte pieces; each
// piece ends at its first NUL byte, which shows where the pieces are cut.
TEST(program_download, text_goes_out_in_pieces_that_end_at_a_nul_byte) {
    arm_session s;
    fs::path dir = scratch("pieces");
    std::string lines; // five lines of 50 bytes
    for (char c = 'a'; c < 'f'; ++c)
        lines += std::string(48, c) + "\r\n";
    std::string nul_at_120 = lines,
                held = std::string("0123456789abc") + '\0' + "efghijklmnopqrstu\r\n";
    nul_at_120[120] = '\0';
    const std::string accepted = verdict("download_project", "project_state");
    // clang-format off
    struct { std::string content; bool held; std::string answer, expected; int result, errline; } const rows[] = {
        {lines, false, accepted, lines, 0, -1},
        {nul_at_120, false, line("download_project", R"("project_state":false,"err_line":4)"), lines.substr(0, 120) + lines.substr(200), 1, 4},
        {held, true, accepted, held.substr(0, 13) + held.substr(20), 0, -1},
    };
    // clang-format on
    for (const auto &r : rows) {
        SCOPED_TRACE(r.expected);
        s.peer.clear_lines();
        serve_download(s.peer, r.held, r.expected, r.answer);
        int errline = 0;
        ka_send_project_t p = project_for((dir / "job.txt").string());
        write_file(dir / "job.txt", r.content);
        int size = static_cast<int>(r.content.size());
        EXPECT_EQ(r.held ? ka_send_project_lock(s.arm, r.content.data(), size, &errline)
                         : ka_send_project(s.arm, &p, &errline),
                  r.result);
        EXPECT_EQ(errline, r.errline);
        EXPECT_EQ(stream_after(s.peer, r.held ? 0 : 1), r.expected);
    }
}

// A bare trajectory file is given the header (with the arm's DOF) under a
// time-stamped name; a path with only "\" separators is sent under its stem
// and refused when it must be converted; a file that cannot be read gives -5
// (and the process goes on).
TEST(program_download, converted_files_and_path_rules) {
    arm_session s(KA_THREAD_MODE_DUAL, "LUNE-B", 7);
    log_capture log;
    fs::path dir = scratch("paths"), home = fs::current_path();
    write_file(dir / "traj.txt", "a\r\nbb\r\nccc\r\n");
    const std::string converted = "{\"file\":7}\r\n{\"name\":\"Folder\",\"num\":1,\"type\":3,"
                                  "\"enabled\":true,\"parent_number\":0}\r\na\r\nbb\r\nccc\r\n";
    serve_download(s.peer, false, converted, verdict("download_project", "project_state"));
    int errline = 0;
    ka_send_project_t p = project_for((dir / "traj.txt").string(), 1);
    std::string before = stamped();
    ASSERT_EQ(ka_send_project(s.arm, &p, &errline), 0);
    std::string name = p.project_path, after = stamped();
    EXPECT_TRUE(name == before || name == after) << name;
    EXPECT_EQ(p.project_path_len, static_cast<int>(name.size()));
    EXPECT_EQ(read_file(dir.string() + "//" + name), converted); // the separator doubled
    EXPECT_EQ(s.peer.lines().front(),
              R"({"command":"run_project","project_name":")" + name + R"(","file_size":)" +
                  std::to_string(converted.size()) +
                  R"(,"plan_speed":50,"step_flag":1,"only_save":0,"save_id":3})");
    EXPECT_EQ(stream_after(s.peer, 1), converted);

    fs::current_path(dir);
    write_file("D:\\work\\prog.txt", "x\r\n");
    const std::string missing = (dir / "gone.txt").string();
    const std::tuple<std::string, int, int> rows[] = {{"D:\\work\\prog.txt", 0, 0},
                                                      {"D:\\work\\prog.txt", 1, -4},
                                                      {missing, 0, -5},
                                                      {missing, 1, -5}};
    for (const auto &[path, convert, result] : rows) {
        SCOPED_TRACE(path + " convert " + std::to_string(convert));
        s.peer.clear_lines();
        if (result == 0)
            serve_download(s.peer, false, "x\r\n", verdict("download_project", "project_state"));
        ka_send_project_t q = project_for(path, convert);
        EXPECT_EQ(ka_send_project(s.arm, &q, &errline), result);
        EXPECT_EQ(q.project_path, result == 0 ? "prog" : path);
        EXPECT_EQ(s.peer.wait_for_lines(1, 50ms), result == 0);
    }
    fs::current_path(home);
    EXPECT_TRUE(log.contains("File name check error!\n"));
    EXPECT_TRUE(log.contains("打开文件失败: "));
    EXPECT_EQ(std::distance(fs::directory_iterator(dir), fs::directory_iterator()), 3);
    EXPECT_EQ(countLinesInFile(missing.c_str()), -1);
    write_file(dir / "long.txt", std::string(1500, 'x') + "\nshort"); // read in 1024-byte parts
    EXPECT_EQ(countLinesInFile((dir / "long.txt").c_str()), 3);
}

// Threaded modes follow the run state and take their own program's finish
// only; single-thread mode reads one finish report.
TEST(program_run, only_the_own_programs_finish_ends_the_wait) {
    const std::string accept = verdict("set_program_id_start", "start_state");
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

// Threaded, the receive thread writes the points; single-thread, the caller's
// reads do. A file left open for late points is closed with the library.
TEST(program_save, streamed_points_land_in_the_file_one_per_line) {
    const std::string accepted = line("save_trajectory", R"("save_state":true,"total_num":3)");
    std::vector<action> stream{reply(accepted), delay(50ms)};
    std::string all;
    for (const char *p : {R"({"point":[1,2,3,4,5,6]})", R"({"point":[2,3,4,5,6,7]})",
                          R"({"point":[3,4,5,6,7,8]})"}) {
        stream.push_back(reply(p));
        all += p + std::string("\r\n");
    }
    const std::tuple<int, std::vector<action>, int, std::string> rows[] = {
        {KA_THREAD_MODE_DUAL, stream, 0, all},
        {KA_THREAD_MODE_SINGLE, stream, 0, all},
        {KA_THREAD_MODE_DUAL, {reply(accepted)}, -6, ""},
        {KA_THREAD_MODE_SINGLE, {reply(accepted)}, 0, ""}};
    auto open_in_process = [](const fs::path &file) {
        std::error_code ec;
        for (const auto &fd : fs::directory_iterator("/proc/self/fd"))
            if (fs::read_symlink(fd.path(), ec) == fs::weakly_canonical(file)) return true;
        return false;
    };
    fs::path dir = scratch("save");
    for (const auto &[mode, answer, result, content] : rows) {
        fs::path file = dir / ("drag" + std::to_string(mode) + std::to_string(result) + ".txt");
        SCOPED_TRACE(file);
        {
            arm_session s(mode);
            s.peer.on("save_trajectory", answer);
            int num = 0;
            EXPECT_EQ(ka_save_trajectory(s.arm, file.c_str(), &num), result);
            EXPECT_EQ(num, 3);
        }
        EXPECT_EQ(read_file(file), content);
        EXPECT_FALSE(open_in_process(file));
    }
}
