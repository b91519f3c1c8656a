// Online programming: downloading a project file and starting it, the stored
// programs (list, run state, update, delete, default program), starting a
// stored program and waiting for it to finish, and saving a drag-taught
// trajectory that the controller streams back into a local file.
#include "core/command.h"
#include "core/reply_schema.h"
#include "core/trajectory_save.h"
#include "core/transport.h"
#include "core/wait.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

namespace {

struct file_closer {
    void operator()(FILE *file) const { std::fclose(file); }
};
using file_ptr = std::unique_ptr<FILE, file_closer>;

constexpr const char *download_reply = "download_project";
constexpr const char *send_function = "ka_send_project";
constexpr const char *start_function = "ka_set_program_id_run";
constexpr const char *start_command = "set_program_id_start";
constexpr const char *save_function = "ka_save_trajectory";

// A project file goes out raw after "run_project": 100-byte pieces with a
// 2 ms pause after each; text the caller already holds goes in 10-byte
// pieces without a pause.
constexpr size_t file_piece = 100;
constexpr size_t text_piece = 10;
constexpr auto file_piece_pause = std::chrono::milliseconds(2);
constexpr int file_download_ms = 2000;
constexpr int text_download_ms = 10000;

constexpr int save_reply_size = 2048;
constexpr int line_read_size = 1024; // a longer line is read, and counted, in parts
constexpr size_t search_echo_chars = 28;

// The threaded save waits this long for the first point.
constexpr auto first_point_wait = std::chrono::milliseconds(2000);
constexpr int save_follow_ms = 1000; // one read of the single-thread save

std::string system_error_text(int error) { return std::generic_category().message(error); }

// The file name of a path: after the last "/", else after the last "\",
// else the whole path; the stem stops at its last ".".
std::string stem_of(const std::string &path) {
    size_t slash = path.rfind('/');
    if (slash == std::string::npos) slash = path.rfind('\\');
    std::string base = slash == std::string::npos ? path : path.substr(slash + 1);
    size_t dot = base.rfind('.');
    return dot == std::string::npos ? base : base.substr(0, dot);
}

// Local time as "YYYY-MM-DD hh_mm_ss".
std::string time_stamp() {
    char text[40];
    platform::format_local_time(text, sizeof text, '_');
    return text;
}

// Reads the whole file. 0, or -5 with the failure logged.
int read_project_file(const std::string &path, std::vector<char> &text) {
    file_ptr file(std::fopen(path.c_str(), "rb"));
    if (!file) {
        ka_log_error("File open failed\n");
        return -5;
    }
    long size = std::fseek(file.get(), 0, SEEK_END) == 0 ? std::ftell(file.get()) : -1;
    if (size < 0 || size > INT_MAX || std::fseek(file.get(), 0, SEEK_SET) != 0) {
        ka_log_error("Failed to get file size\n");
        return -5;
    }
    try {
        text.assign(static_cast<size_t>(size), '\0');
    } catch (const std::bad_alloc &) {
        ka_log_error("Memory allocation failed\n");
        return -5;
    }
    if (std::fread(text.data(), 1, text.size(), file.get()) != text.size()) {
        ka_log_error("Failed to read entire file\n");
        return -5;
    }
    return 0;
}

// Sends text raw on the arm's connection in pieces of `piece` bytes. Each
// piece ends at its first NUL byte: the controller has always been sent the
// text that way. No library lock is held, so other commands go on between
// the pieces. 0, or -1 for an unknown arm or a failed send.
int send_pieces(const char *function, ka_robot_handle *handle, const char *text, size_t length,
                size_t piece, std::chrono::milliseconds pause) {
    arm_ptr arm = registry_find(handle);
    if (!arm) return -1;
    char buffer[file_piece + 1];
    piece = std::min(piece, file_piece);
    for (size_t offset = 0; offset < length; offset += piece) {
        std::memset(buffer, 0, sizeof buffer);
        std::memcpy(buffer, text + offset, std::min(piece, length - offset));
        int n = static_cast<int>(std::strlen(buffer));
        if (n > 0 && send_on_arm(*arm, buffer, static_cast<size_t>(n)) != 0) {
            ka_log_error("[%s] %s send error\n", function, download_reply);
            return -1;
        }
        if (pause.count() > 0) std::this_thread::sleep_for(pause);
    }
    return 0;
}

// The controller's verdict on a downloaded text, awaited without a send.
// *errline is -1 when it was accepted, else the first faulty line when the
// refusal names one.
int download_result(ka_robot_handle *handle, int timeout_ms, int *errline) {
    cmd::reply_text reply;
    int n = ka_pack_lock_wait(send_function, handle, download_reply, reply.text, sizeof reply.text,
                              timeout_ms);
    if (n < 1) return n;
    int status = parse_ka_set_command(send_function, reply.text, "project_state");
    if (status == 0) {
        *errline = -1;
        return 0;
    }
    json_ptr doc = json_parse(reply.text);
    const cJSON *line = doc ? cJSON_GetObjectItem(doc.get(), "err_line") : nullptr;
    if (cJSON_IsNumber(line)) *errline = json_int(line);
    return status;
}

using reply::text_rule;
using program = ka_program_trajectory_data_t;
using programs = ka_program_trajectorys_t;
using run = ka_program_run_state_t;

// clang-format off
// A listed program: every key may be missing; the entry starts zeroed.
constexpr reply::field program_fields[] = {
    reply::number<&program::id>("id").loose(), reply::number<&program::size>("size").loose(), reply::number<&program::speed>("speed").loose(),
    reply::text<&program::trajectory_name>("trajectory_name", KA_PROGRAM_NAME_SIZE - 1, text_rule::terminated).loose(),
};
constexpr reply::schema program_entry{program_fields};
// The page: only "list" is required; the search text is echoed back (28
// characters kept) only when one was sent, so it comes last and is left out
// of the read otherwise.
constexpr reply::field program_page_fields[] = {
    reply::list<&programs::list>("list", program_entry, KA_PROGRAM_LIST_CAPACITY).cleared(),
    reply::number<&programs::page_num>("page_num").loose(), reply::number<&programs::page_size>("page_size").loose(), reply::number<&programs::total_size>("total_size").loose(),
    reply::text<&programs::vague_search>("vague_search", search_echo_chars, text_rule::terminated).loose(),
};
constexpr const char *program_page_error = "[%s] get program trajectory list parser error!\n";
constexpr reply::schema program_page_reply{program_page_fields, -3, program_page_error, program_page_error};
constexpr reply::schema program_page_unsearched{std::span(program_page_fields).first(std::size(program_page_fields) - 1), -3, program_page_error, program_page_error};

// The run state: loop arrays may be missing but are arrays when present,
// their elements taken as numbers whatever they hold.
constexpr reply::field run_state_fields[] = {
    reply::number<&run::run_state>("run_state"),
    reply::numbers_up_to<&run::loop_num, &run::loop_count>("loop_num", KA_PROGRAM_LOOPS).optional(),
    reply::numbers_up_to<&run::loop_cont>("loop_cont", KA_PROGRAM_LOOPS).optional(),
    reply::number<&run::id>("id").loose(), reply::number<&run::edit_id>("edit_id").loose(), reply::number<&run::plan_num>("plan_num").loose(),
    reply::number<&run::step_mode>("step_mode").loose(), reply::number<&run::plan_speed>("plan_speed").loose(),
};
constexpr const char *run_state_error = "[%s] get program run state parser error!\n";
constexpr reply::schema run_state_reply{run_state_fields, -3, run_state_error, run_state_error};
// clang-format on

// Starting a stored program and waiting for it: the run state is asked
// after (1 running, 0 idle, anything else asked again at once) until the
// program was seen running and is idle again, then its finish report is
// taken; a finish for another program keeps the wait going. The pauses are
// spent waiting for the report, so a finish ends them early. Read directly,
// one read of the caller's seconds.
constexpr wait::policy run_wait = [] {
    wait::policy w{start_function};
    w.report = wait::finish_report;
    w.awaited_event = 2;
    w.order = wait::read_order::query_first;
    w.poll = wait::poll_kind::program;
    w.running_pause_ms = 1000;
    w.starting_passes = 10;
    w.other_pause_ms = -1;
    w.idle_wait_ms = m_nOutTime;
    w.idle_miss_ends = true;
    w.direct = wait::direct_read::one_read;
    return w;
}();

bool arm_connected(const ka_robot_handle *handle) {
    arm_ptr arm = registry_find(handle);
    return arm && arm->connected.load();
}

// Thread mode 0: the caller's thread reads, and the reading writes the
// points. The reads end by time-out ("point" names no reply).
int wait_save_single(ka_robot_handle *handle) {
    char scratch[reply_buffer_size];
    ka_pack_lock_wait(save_function, handle, "point", scratch, sizeof scratch, m_nOutTime);
    bool streaming =
        save_flag(&trajectory_save_state::started) && !save_flag(&trajectory_save_state::no_file);
    if (streaming) {
        // A lost connection ends the stream as silence does.
        while (!save_flag(&trajectory_save_state::complete) && arm_connected(handle))
            ka_pack_lock_wait(save_function, handle, "point", scratch, sizeof scratch,
                              save_follow_ms);
        save_close();
        return 0;
    }
    // Nothing arrived yet: the file stays open for points that come later;
    // the next save (or closing the library) closes it.
    if (save_file_open()) return 0;
    ka_log_error("The file is closed\n");
    return -6;
}

// clang-format off
constexpr auto run_project = cmd::set<"run_project">("project_state", nullptr, m_nOutTime, {{"project_name"}, {"file_size"}, {"plan_speed"}, {"step_flag"}, {"only_save"}, {"save_id"}});
constexpr auto plan_speed = cmd::set<"plan_speed", "ka_set_plan_speed">("plan_state", nullptr, m_nOutTime, {{"speed"}});
constexpr reply::record_query run_state{.command = cmd::query<"get_program_run_state">(), .reply = &run_state_reply, .whole = true};
constexpr auto delete_program = cmd::set<"delete_program_trajectory">("delete_state", nullptr, m_nOutTime, {{"id"}});
constexpr auto update_program = cmd::set<"update_program_trajectory">("update_state", nullptr, m_nOutTime, {{"id"}, {"plan_speed"}, {"project_name"}});
constexpr auto set_default = cmd::set<"set_default_run_program">("set_state", nullptr, m_nOutTime, {{"id"}});
constexpr auto get_default = cmd::query<"get_default_run_program">(nullptr, {{"id"}});
// The list reply is long (up to 10240 bytes) and holds a record per program.
constexpr cmd::page_query program_list{"ka_get_program_trajectory_list", "get_program_trajectory_list"};
// clang-format on

} // namespace

extern "C" {

// clang-format off
int ka_set_plan_speed(ka_robot_handle *h, int speed) { return plan_speed(h, speed); }
int ka_get_program_run_state(ka_robot_handle *h, ka_program_run_state_t *state) { return run_state(h, state); }
int ka_delete_program_trajectory(ka_robot_handle *h, int id) { return delete_program(h, id); }
int ka_update_program_trajectory(ka_robot_handle *h, int id, int plan_speed, const char *project_name) { return update_program(h, id, plan_speed, project_name); }
int ka_set_default_run_program(ka_robot_handle *h, int id) { return set_default(h, id); }
int ka_get_default_run_program(ka_robot_handle *h, int *id) { return get_default(h, id); }
// clang-format on

int ka_run_project(ka_robot_handle *h, ka_send_project_t *project, int file_size) {
    if (!project) return -1;
    const auto name = cmd::text_of(project->project_path);
    return run_project(h, name.text, file_size, project->plan_speed, project->step_flag,
                       project->only_save, project->save_id);
}

// Irregular: the search text is echoed only when one was sent.
int ka_get_program_trajectory_list(ka_robot_handle *h, int page_num, int page_size,
                                   const char *vague_search, ka_program_trajectorys_t *list) {
    if (!list) return -1;
    std::vector<char> reply;
    int n = cmd::run(program_list, h, page_num, page_size, vague_search, reply);
    if (n < 1) return n;
    return reply::read(vague_search ? program_page_reply : program_page_unsearched,
                       program_list.function, reply.data(), *list);
}

// Irregular: the file goes out raw, in pieces, after "run_project" has
// announced its size.
int ka_send_project(ka_robot_handle *handle, ka_send_project_t *project, int *errline) {
    if (!project || !errline) return -1;
    size_t limit = static_cast<size_t>(
        std::clamp(project->project_path_len, 0, static_cast<int>(sizeof project->project_path)));
    std::string path(project->project_path, strnlen(project->project_path, limit));
    std::string name = stem_of(path);
    std::string file = path;
    if (project->convert_flag) {
        // A bare trajectory file is given the project header under a new,
        // time-stamped name beside it.
        name += time_stamp() + ".txt";
        ka_log_info("Save As: [%s]\n", name.c_str());
        size_t slash = path.rfind('/');
        if (slash == std::string::npos) {
            ka_log_error("File name check error!\n");
            return -4;
        }
        // The doubled separator is how the controller tools have always
        // named the converted file.
        file = path.substr(0, slash + 1) + "/" + name;
        add_lines_to_file(handle, path.c_str(), file.c_str());
    }
    std::vector<char> text;
    if (int status = read_project_file(file, text); status != 0) return status;

    std::memset(project->project_path, 0, sizeof project->project_path);
    std::snprintf(project->project_path, sizeof project->project_path, "%s", name.c_str());
    project->project_path_len = static_cast<int32_t>(std::strlen(project->project_path));

    cmd::forget(handle, download_reply);
    int status = ka_run_project(handle, project, static_cast<int>(text.size()));
    if (status != 0) {
        ka_log_error("[ka_run_project] failed\n");
        return status;
    }
    if (send_pieces(send_function, handle, text.data(), text.size(), file_piece,
                    file_piece_pause) != 0)
        return -1;
    text = {};
    return download_result(handle, file_download_ms, errline);
}

// Irregular: text the caller holds goes out raw, as the file does.
int ka_send_project_lock(ka_robot_handle *handle, const char *text, int len, int *errline) {
    if (!text || !errline || len < 1) return -1;
    cmd::forget(handle, download_reply);
    if (send_pieces(send_function, handle, text, static_cast<size_t>(len), text_piece,
                    std::chrono::milliseconds(0)) != 0)
        return -1;
    return download_result(handle, text_download_ms, errline);
}

// Irregular: "speed" is sent only when given, and a blocking start follows
// the program to its end.
int ka_set_program_id_run(ka_robot_handle *handle, int id, int speed, int timeout) {
    const bool block = timeout != 0;
    wait::session session(handle, run_wait, block, block ? wait::finish_report : nullptr);
    const ka_request_field fields[] = {cmd::text("command", start_command), cmd::number("id", id),
                                       cmd::number("speed", speed)};
    cmd::reply_text reply;
    int length = ka_pack_lock_set(start_function, handle, fields, speed != 0 ? 3 : 2, start_command,
                                  reply.text, sizeof reply.text, m_nOutTime);
    if (length < 1) return length;
    int status = parse_ka_set_command(start_function, reply.text, "start_state");
    if (status != 0) return status;
    session.accepted();
    if (!block) return 0;
    return session.wait(timeout, length, id);
}

// Irregular: the total is handed to the save before it is checked, each
// step logs its own line, and the points then stream into the file.
int ka_save_trajectory(ka_robot_handle *handle, const char *path, int *num) {
    if (!path || !num) return -1;
    if (!save_begin(path)) {
        ka_log_error("[%s] File open error!", save_function);
        return -4;
    }
    std::string name = stem_of(path);
    std::vector<char> reply(save_reply_size, '\0');
    int n = cmd::exchange(save_function, handle, "save_trajectory",
                          {cmd::text("trajectory_name", name.c_str())}, "save_trajectory",
                          m_nOutTime, reply.data(), static_cast<int>(reply.size()));
    if (n < 1) return n;
    json_ptr doc = json_parse(reply.data());
    if (!doc) {
        ka_log_error("[%s] Save trajectory parse err\n", save_function);
        return -3;
    }
    int saved = MIO_JSON_GetObjectItemBool(doc.get(), "save_state");
    if (saved == 0) {
        ka_log_error("[%s] Save state: false\n", save_function);
        return 1;
    }
    if (saved != 1) {
        ka_log_error("[%s] Save trajectory err\n", save_function);
        return -3;
    }
    ka_log_info("[%s] Save state: true\n", save_function);
    int total = MIO_JSON_GetObjectItemInt(doc.get(), "total_num");
    *num = total;
    save_set_total(total);
    if (total < 0) {
        ka_log_error("[%s] Trajectory total num parse err\n", save_function);
        return -3;
    }
    ka_log_info("[%s] Trajectory total num: %d\n", save_function, total);
    // Read directly, the caller's own reads write the points.
    return wait::current_reader().direct ? wait_save_single(handle)
                                         : save_wait_threaded(first_point_wait);
}

int countLinesInFile(const char *path) {
    file_ptr file(path ? std::fopen(path, "r") : nullptr);
    if (!file) {
        ka_log_error("打开文件失败: %s\n", system_error_text(path ? errno : EINVAL).c_str());
        return -1;
    }
    char line[line_read_size];
    int count = 0;
    while (std::fgets(line, sizeof line, file.get()))
        ++count;
    return count;
}

int add_lines_to_file(ka_robot_handle *handle, const char *source, const char *target) {
    if (!source || !target) return -1;
    ka_robot_info_t info{};
    if (ka_get_robot_info(handle, &info) != 0) {
        ka_log_error("Failed to get robot info\n");
        return -1;
    }
    if (info.arm_dof != 6 && info.arm_dof != 7) {
        ka_log_error("Invalid degree of freedom, must be 6 or 7\n");
        return -1;
    }
    int lines = countLinesInFile(source);
    if (lines < 0) return -1; // nothing written: the download then finds no file
    file_ptr out(std::fopen(target, "wb"));
    if (!out) {
        ka_log_error("Error opening file\n");
        return -1;
    }
    std::fprintf(out.get(), "{\"file\":%d}\r\n", info.arm_dof);
    std::fprintf(out.get(),
                 "{\"name\":\"Folder\",\"num\":1,\"type\":%d,\"enabled\":true,"
                 "\"parent_number\":0}\r\n",
                 lines);
    file_ptr in(std::fopen(source, "rb"));
    if (!in) {
        ka_log_error("Failed to open file: %s\n", source);
        return -1;
    }
    char chunk[line_read_size];
    size_t n = 0;
    while ((n = std::fread(chunk, 1, sizeof chunk, in.get())) > 0)
        std::fwrite(chunk, 1, n, out.get());
    return 0;
}

} // extern "C"
