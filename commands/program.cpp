// Online programming: project download, stored programs and their runs, drag trajectories saved.
#include "core/project_file.h"
#include "core/reply_schema.h"
#include "core/trajectory_save.h"
#include "core/wait.h"

namespace {

constexpr const char *save_function = "ka_save_trajectory";

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
// The page: only "list" is required; the search text (28 characters kept) is echoed only when sent.
constexpr reply::field program_page_fields[] = {
    reply::list<&programs::list>("list", program_entry, KA_PROGRAM_LIST_CAPACITY).cleared(),
    reply::number<&programs::page_num>("page_num").loose(), reply::number<&programs::page_size>("page_size").loose(), reply::number<&programs::total_size>("total_size").loose(),
    reply::text<&programs::vague_search>("vague_search", 28, text_rule::terminated).loose(),
};
constexpr const char *program_page_error = "[%s] get program trajectory list parser error!\n";
constexpr reply::schema program_page_reply{program_page_fields, -3, program_page_error, program_page_error};
constexpr reply::schema program_page_unsearched{std::span(program_page_fields).first(std::size(program_page_fields) - 1), -3, program_page_error, program_page_error};

// The run state: loop arrays may be missing but are arrays when present, elements read as numbers.
constexpr reply::field run_state_fields[] = {
    reply::number<&run::run_state>("run_state"),
    reply::numbers_up_to<&run::loop_num, &run::loop_count>("loop_num", KA_PROGRAM_LOOPS).optional(),
    reply::numbers_up_to<&run::loop_cont>("loop_cont", KA_PROGRAM_LOOPS).optional(),
    reply::number<&run::id>("id").loose(), reply::number<&run::edit_id>("edit_id").loose(), reply::number<&run::plan_num>("plan_num").loose(),
    reply::number<&run::step_mode>("step_mode").loose(), reply::number<&run::plan_speed>("plan_speed").loose(),
};
constexpr const char *run_state_error = "[%s] get program run state parser error!\n";
constexpr reply::schema run_state_reply{run_state_fields, -3, run_state_error, run_state_error};
constexpr auto run_project = cmd::set<"run_project">("project_state", nullptr, m_nOutTime, {{"project_name"}, {"file_size"}, {"plan_speed"}, {"step_flag"}, {"only_save"}, {"save_id"}});
constexpr auto plan_speed = cmd::set<"plan_speed", "ka_set_plan_speed">("plan_state", nullptr, m_nOutTime, {{"speed"}});
constexpr reply::record_query run_state{.command = cmd::query<"get_program_run_state">(), .reply = &run_state_reply, .whole = true};
constexpr auto delete_program = cmd::set<"delete_program_trajectory">("delete_state", nullptr, m_nOutTime, {{"id"}});
constexpr auto update_program = cmd::set<"update_program_trajectory">("update_state", nullptr, m_nOutTime, {{"id"}, {"plan_speed"}, {"project_name"}});
constexpr auto set_default = cmd::set<"set_default_run_program">("set_state", nullptr, m_nOutTime, {{"id"}});
constexpr auto get_default = cmd::query<"get_default_run_program">(nullptr, {{"id"}});
// A blocking start asks the run state (1 running, 0 idle, else again at once) until the program ran and is idle, then takes its own finish; another program's finish keeps it going, the pauses end at a finish. Read directly, one read of the caller's seconds.
constexpr wait::policy run_wait{.function = "ka_set_program_id_run", .report = wait::finish_report, .awaited_event = 2, .order = wait::read_order::query_first, .poll = wait::poll_kind::program, .running_pause_ms = 1000, .starting_passes = 10, .other_pause_ms = -1, .idle_wait_ms = m_nOutTime, .idle_miss_ends = true, .direct = wait::direct_read::one_read};
constexpr wait::command start{.accept = cmd::set<"set_program_id_start", "ka_set_program_id_run">("start_state", nullptr, m_nOutTime, {{"id"}, {"speed", cmd::as::nonzero}}), .wait = run_wait, .marks_accepted = true, .id_key = "id"};
// The list reply is long (up to 10240 bytes); the search text is echoed only when one was sent.
constexpr reply::page_record_query program_list{.command = {"ka_get_program_trajectory_list", "get_program_trajectory_list"}, .reply = &program_page_reply, .unsearched = &program_page_unsearched};
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
int ka_set_program_id_run(ka_robot_handle *h, int id, int speed, int timeout) { return start(h, wait::when(timeout), id, speed); }
int ka_get_program_trajectory_list(ka_robot_handle *h, int page_num, int page_size, const char *vague_search, ka_program_trajectorys_t *list) { return program_list(h, page_num, page_size, vague_search, list); }
int ka_run_project(ka_robot_handle *h, ka_send_project_t *p, int file_size) { return p ? run_project(h, static_cast<const char *>(cmd::text_of(p->project_path).text), file_size, p->plan_speed, p->step_flag, p->only_save, p->save_id) : -1; }
// clang-format on

// Irregular: the file goes out raw, in pieces, after "run_project" has announced its size.
int ka_send_project(ka_robot_handle *handle, ka_send_project_t *project, int *errline) {
    if (!project || !errline) return -1;
    std::vector<char> text;
    if (int status = project_file::prepare(handle, *project, text); status != 0) return status;
    cmd::forget(handle, project_file::download_reply);
    if (int status = ka_run_project(handle, project, static_cast<int>(text.size())); status != 0)
        return cmd::failed(run_project.function, "[%s] failed\n", 0, status);
    return project_file::download(handle, text, project_file::file_pieces, errline);
}

// Irregular: text the caller holds goes out raw, as the file does.
int ka_send_project_lock(ka_robot_handle *handle, const char *text, int len, int *errline) {
    if (!text || !errline || len < 1) return -1;
    cmd::forget(handle, project_file::download_reply);
    return project_file::download(handle, {text, static_cast<size_t>(len)},
                                  project_file::text_pieces, errline);
}

// Irregular: *num takes the total (-1 missing) before it is checked; the points then stream in.
int ka_save_trajectory(ka_robot_handle *handle, const char *path, int *num) {
    if (!path || !num) return -1;
    if (!save_begin(path)) return cmd::failed(save_function, "[%s] File open error!", 0, -4);
    char reply[2048] = {};
    int n = cmd::exchange(save_function, handle, "save_trajectory",
                          {cmd::text("trajectory_name", project_file::stem_of(path).c_str())},
                          "save_trajectory", m_nOutTime, reply, sizeof reply);
    if (n < 1) return n;
    json_ptr doc = json_parse(reply);
    const int saved = doc ? MIO_JSON_GetObjectItemBool(doc.get(), "save_state") : -2;
    if (saved != 1)
        return cmd::failed(save_function,
                           saved == 0    ? "[%s] Save state: false\n"
                           : saved == -1 ? "[%s] Save trajectory err\n"
                                         : "[%s] Save trajectory parse err\n",
                           0, saved == 0 ? 1 : -3);
    ka_log_info("[%s] Save state: true\n", save_function);
    *num = MIO_JSON_GetObjectItemInt(doc.get(), "total_num");
    save_set_total(*num);
    if (*num < 0) return cmd::failed(save_function, "[%s] Trajectory total num parse err\n", 0, -3);
    ka_log_info("[%s] Trajectory total num: %d\n", save_function, *num);
    return save_wait(save_function, handle);
}

} // extern "C"
