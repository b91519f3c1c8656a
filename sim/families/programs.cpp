// Online programming: project download and run, the stored programs, and
// saving the last recorded trajectory.
//
// A project is announced by "run_project" with its byte count; its text
// then arrives raw on the same connection (the reader hands it over through
// take_project_text) and is answered by "download_project". A project text
// is lines of JSON objects; an optional first line {"file":<dof>} must name
// the arm's joint count. A run executes one program line every half second
// at 100 % speed and ends with {"state":"program_run_finish","finish_id":id}.
#include "sim/families/family.h"
#include "sim/families/paging.h"

#include <algorithm>
#include <cmath>
#include <sstream>

namespace sim {

namespace {

constexpr double k_seconds_per_line = 0.5; // at 100 % speed
// A download that gets no text for this long is given up.
constexpr double k_download_idle_s = 30.0;
constexpr double k_sample_period_s = 0.02;
// A motion after the arm stood still this long starts a new recording.
constexpr double k_recording_gap_s = 1.0;
constexpr std::size_t k_max_recorded_points = 1000;

bool percent(const std::optional<int> &v) { return v && *v >= 1 && *v <= 100; }
bool flag(const std::optional<int> &v) { return v && (*v == 0 || *v == 1); }

std::vector<stored_program>::iterator find_program(program_store &s, int id) {
    return std::find_if(s.programs.begin(), s.programs.end(),
                        [&](const stored_program &p) { return p.id == id; });
}

// The program's executable lines (every non-blank line), or the 1-based
// number of the first faulty line.
struct program_check {
    int lines = 0;
    int error_line = 0; // 0: none
};

program_check check_program(const std::string &text, int dof) {
    program_check check;
    std::istringstream in(text);
    std::string line;
    int number = 0;
    bool first = true;
    while (std::getline(in, line)) {
        ++number;
        if (!line.empty() && line.back() == '\r') line.pop_back();
        if (line.find_first_not_of(" \t") == std::string::npos) continue;
        const json_ptr object = json_parse(line);
        const auto header = json_int(object.get(), "file");
        if (!cJSON_IsObject(object.get()) || (first && header && *header != dof) ||
            (!first && header)) {
            check.error_line = number;
            return check;
        }
        first = false;
        ++check.lines;
    }
    return check;
}

void start_run(program_store &s, int id, int lines, int speed, int step_mode, double now) {
    s.run = program_run{true, id, std::max(lines, 1), 0, speed, step_mode, now};
}

std::string finish_report(int id) {
    json_ptr root(cJSON_CreateObject());
    cJSON_AddStringToObject(root.get(), "state", "program_run_finish");
    cJSON_AddNumberToObject(root.get(), "finish_id", id);
    return json_print(root.get());
}

std::string download_reply(bool ok, int error_line) {
    json_ptr reply = json_reply("download_project");
    cJSON_AddBoolToObject(reply.get(), "project_state", ok);
    if (!ok) cJSON_AddNumberToObject(reply.get(), "err_line", error_line);
    return json_print(reply.get());
}

// The whole text has arrived: check it, store it when asked to (under
// save_id, or the next free id when only saving without an id), run it
// unless only saving.
std::string complete_download(arm &target, double now) {
    program_store &s = target.programs;
    project_download d = std::move(s.download);
    s.download = project_download{};
    const program_check check = check_program(d.text, target.traits().dof);
    if (check.error_line != 0) return download_reply(false, check.error_line);
    int id = d.save_id;
    if (id == 0 && d.only_save == 1) id = s.programs.empty() ? 1 : s.programs.back().id + 1;
    if (id > 0) {
        stored_program program{id, d.name.substr(0, k_max_program_name), d.text, d.plan_speed};
        const auto stored = find_program(s, id);
        if (stored != s.programs.end()) {
            *stored = std::move(program);
        } else if (s.programs.size() < k_max_programs) {
            s.programs.insert(
                std::upper_bound(s.programs.begin(), s.programs.end(), id,
                                 [](int value, const stored_program &p) { return value < p.id; }),
                std::move(program));
        } else {
            return download_reply(false, 0); // no room left
        }
    }
    if (d.only_save == 0) start_run(s, id, check.lines, d.plan_speed, d.step_flag, now);
    return download_reply(true, 0);
}

// Refused while another download is pending or a program runs (unless the
// project is only saved).
void run_project(const cJSON *request, cJSON *reply, command_context &c) {
    program_store &s = c.target.programs;
    const auto name = json_string(request, "project_name");
    const auto size = json_int(request, "file_size");
    const auto speed = json_int(request, "plan_speed");
    const auto step = json_int(request, "step_flag");
    const auto only_save = json_int(request, "only_save");
    const auto save_id = json_int(request, "save_id");
    const bool ok = name && !name->empty() && size && *size >= 1 && *size <= k_max_project_bytes &&
                    percent(speed) && flag(step) && flag(only_save) && save_id && *save_id >= 0 &&
                    !s.download.active && (*only_save == 1 || !s.run.running);
    if (ok) {
        project_download &d = s.download;
        d = project_download{};
        d.active = true;
        d.size = static_cast<std::size_t>(*size);
        d.name = *name;
        d.plan_speed = *speed;
        d.step_flag = *step;
        d.only_save = *only_save;
        d.save_id = *save_id;
        d.last_byte = c.now;
    }
    cJSON_AddBoolToObject(reply, "project_state", ok);
}

void plan_speed(const cJSON *request, cJSON *reply, command_context &c) {
    const auto speed = json_int(request, "speed");
    const bool ok = percent(speed);
    if (ok && c.target.programs.run.running) c.target.programs.run.speed = *speed;
    cJSON_AddBoolToObject(reply, "plan_state", ok);
}

int program_lines(const stored_program &p, int dof) {
    return std::max(check_program(p.text, dof).lines, 1);
}

// Pages count from 1; "vague_search" keeps the programs whose name
// contains it.
void trajectory_list(const cJSON *request, cJSON *reply, command_context &c) {
    const auto page = read_page_request(request);
    if (!page) {
        cJSON_AddStringToObject(reply, "error", "bad page");
        return;
    }
    const int dof = c.target.traits().dof;
    add_page(reply, *page, c.target.programs.programs, [&](cJSON *item, const stored_program &p) {
        cJSON_AddNumberToObject(item, "id", p.id);
        cJSON_AddNumberToObject(item, "size", program_lines(p, dof));
        cJSON_AddNumberToObject(item, "speed", p.speed);
        cJSON_AddStringToObject(item, "trajectory_name", p.name.c_str());
    });
}

// run_state 0 idle, 1 running; plan_num is the line being executed.
void run_state(const cJSON *, cJSON *reply, command_context &c) {
    const program_run &run = c.target.programs.run;
    cJSON_AddNumberToObject(reply, "run_state", run.running ? 1 : 0);
    cJSON_AddNumberToObject(reply, "id", run.running ? run.id : 0);
    cJSON_AddNumberToObject(reply, "edit_id", 0);
    cJSON_AddNumberToObject(reply, "plan_num", run.running ? static_cast<int>(run.done) + 1 : 0);
    cJSON_AddArrayToObject(reply, "loop_num");
    cJSON_AddArrayToObject(reply, "loop_cont");
    cJSON_AddNumberToObject(reply, "step_mode", run.step_mode);
    cJSON_AddNumberToObject(reply, "plan_speed", run.speed);
}

bool running_id(const program_store &s, int id) { return s.run.running && s.run.id == id; }

void delete_program(const cJSON *request, cJSON *reply, command_context &c) {
    program_store &s = c.target.programs;
    const auto id = json_int(request, "id");
    const auto stored = id ? find_program(s, *id) : s.programs.end();
    const bool ok = stored != s.programs.end() && !running_id(s, *id);
    if (ok) {
        s.programs.erase(stored);
        if (s.default_program == *id) s.default_program = 0;
    }
    cJSON_AddBoolToObject(reply, "delete_state", ok);
}

void update_program(const cJSON *request, cJSON *reply, command_context &c) {
    program_store &s = c.target.programs;
    const auto id = json_int(request, "id");
    const auto speed = json_int(request, "plan_speed");
    const auto name = json_string(request, "project_name");
    const auto stored = id ? find_program(s, *id) : s.programs.end();
    const bool ok = stored != s.programs.end() && percent(speed) && name && !name->empty();
    if (ok) {
        stored->speed = *speed;
        stored->name = name->substr(0, k_max_program_name);
    }
    cJSON_AddBoolToObject(reply, "update_state", ok);
}

// Id 0 clears the default program.
void set_default(const cJSON *request, cJSON *reply, command_context &c) {
    program_store &s = c.target.programs;
    const auto id = json_int(request, "id");
    const bool ok = id && (*id == 0 || find_program(s, *id) != s.programs.end());
    if (ok) s.default_program = *id;
    cJSON_AddBoolToObject(reply, "set_state", ok);
}

void get_default(const cJSON *, cJSON *reply, command_context &c) {
    cJSON_AddNumberToObject(reply, "id", c.target.programs.default_program);
}

// Without "speed" the program runs at its stored speed.
void start_program(const cJSON *request, cJSON *reply, command_context &c) {
    program_store &s = c.target.programs;
    const auto id = json_int(request, "id");
    const cJSON *speed_item = cJSON_GetObjectItemCaseSensitive(request, "speed");
    const auto speed = json_int(request, "speed");
    const auto stored = id ? find_program(s, *id) : s.programs.end();
    const bool ok = stored != s.programs.end() && (!speed_item || percent(speed)) &&
                    !s.run.running && !s.download.active;
    if (ok)
        start_run(s, stored->id, program_lines(*stored, c.target.traits().dof),
                  speed_item ? *speed : stored->speed, 0, c.now);
    cJSON_AddBoolToObject(reply, "start_state", ok);
}

// The recording is also kept as a stored program under the given name.
void save_trajectory(const cJSON *request, cJSON *reply, command_context &c) {
    program_store &s = c.target.programs;
    const auto name = json_string(request, "trajectory_name");
    const bool ok =
        name && !name->empty() && !s.recorded.points.empty() && s.programs.size() < k_max_programs;
    cJSON_AddBoolToObject(reply, "save_state", ok);
    if (!ok) return;
    cJSON_AddNumberToObject(reply, "total_num", static_cast<double>(s.recorded.points.size()));
    std::string text;
    for (const auto &point : s.recorded.points) {
        json_ptr line(cJSON_CreateObject());
        json_add_ints(line.get(), "point", milli_joints(c.target, point));
        c.reports.push_back(json_print(line.get()));
        text += c.reports.back() + "\r\n";
    }
    const int id = s.programs.empty() ? 1 : s.programs.back().id + 1;
    s.programs.push_back(stored_program{id, name->substr(0, k_max_program_name), text, 100});
}

void advance_run(program_store &s, double now, report_list &reports) {
    program_run &run = s.run;
    if (!run.running) return;
    run.done += (now - run.last_cycle) / k_seconds_per_line * run.speed / 100.0;
    run.last_cycle = now;
    if (run.done < run.lines) return;
    run.running = false;
    reports.push_back(finish_report(run.id));
}

void expire_download(program_store &s, double now, report_list &reports) {
    if (!s.download.active || now - s.download.last_byte < k_download_idle_s) return;
    s.download = project_download{};
    reports.push_back(download_reply(false, 0));
}

void record_motion(arm &target, double now) {
    recorded_trajectory &r = target.programs.recorded;
    const arm_sample sample = target.sample();
    const bool moving =
        std::any_of(sample.speeds.begin(), sample.speeds.end(), [](double v) { return v != 0.0; });
    if (!moving) {
        // The point where the motion came to rest ends the recording.
        if (!r.points.empty() && r.points.back() != sample.joints &&
            r.points.size() < k_max_recorded_points)
            r.points.push_back(sample.joints);
        return;
    }
    if (r.last_motion < 0 || now - r.last_motion > k_recording_gap_s) {
        r.points.clear();
        r.last_sample = -1;
    }
    r.last_motion = now;
    if (r.points.size() < k_max_recorded_points &&
        (r.last_sample < 0 || now - r.last_sample >= k_sample_period_s)) {
        r.points.push_back(sample.joints);
        r.last_sample = now;
    }
}

void on_cycle(arm &target, double now, report_list &reports) {
    advance_run(target.programs, now, reports);
    expire_download(target.programs, now, reports);
    record_motion(target, now);
}

constexpr command_row rows[] = {
    {"run_project", "run_project", run_project},
    {"plan_speed", "plan_speed", plan_speed},
    {"get_program_trajectory_list", "get_program_trajectory_list", trajectory_list},
    {"get_program_run_state", "get_program_run_state", run_state},
    {"delete_program_trajectory", "delete_program_trajectory", delete_program},
    {"update_program_trajectory", "update_program_trajectory", update_program},
    {"set_default_run_program", "set_default_run_program", set_default},
    {"get_default_run_program", "get_default_run_program", get_default},
    {"set_program_id_start", "set_program_id_start", start_program},
    {"save_trajectory", "save_trajectory", save_trajectory},
};

} // namespace

void bind_project_text(arm &target, const void *connection) {
    project_download &d = target.programs.download;
    if (d.active && !d.owner) d.owner = connection;
}

project_text_result take_project_text(arm &target, const void *connection, std::string &bytes,
                                      double now) {
    project_download &d = target.programs.download;
    if (!d.active || d.owner != connection || bytes.empty()) return {};
    const std::size_t wanted = std::min(d.size - d.text.size(), bytes.size());
    d.text.append(bytes, 0, wanted);
    bytes.erase(0, wanted);
    d.last_byte = now;
    project_text_result result{true, {}};
    if (d.text.size() == d.size) result.reply = complete_download(target, now);
    return result;
}

void drop_project_text(arm &target, const void *connection) {
    project_download &d = target.programs.download;
    if (d.active && d.owner == connection) d = project_download{};
}

const family program_family{rows, on_cycle};

} // namespace sim
