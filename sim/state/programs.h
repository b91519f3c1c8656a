// Online programming: downloaded programs and stored trajectories, the run
// of one program, the trajectory recorded for saving, and the global
// waypoints.
#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <vector>

namespace sim {

class arm;

inline constexpr std::size_t k_max_program_name = 31; // characters kept of a project's name
inline constexpr std::size_t k_max_programs = 100;
inline constexpr std::size_t k_max_waypoints = 100;
inline constexpr std::size_t k_max_waypoint_name = 16; // characters
inline constexpr std::size_t k_max_frame_name = 10;    // characters
inline constexpr int k_max_project_bytes = 1 << 20;

struct stored_program {
    int id = 0;
    std::string name;
    std::string text;
    int speed = 100; // percent
};

// A project announced by "run_project": its text follows as raw bytes on
// the connection that sent the command (`owner`), `size` bytes in all.
struct project_download {
    bool active = false;
    const void *owner = nullptr; // the connection; nullptr until bound
    std::size_t size = 0;
    std::string name;
    std::string text;
    int plan_speed = 100;
    int step_flag = 0;
    int only_save = 0;
    int save_id = 0;
    double last_byte = 0; // simulated seconds: when the last text arrived
};

struct program_run {
    bool running = false;
    int id = 0;      // 0 for a project run without being stored
    int lines = 0;   // program lines to execute
    double done = 0; // lines executed so far (fractional)
    int speed = 100; // percent
    int step_mode = 0;
    double last_cycle = 0; // simulated seconds
};

struct stored_waypoint {
    std::string name;
    std::vector<int> joint; // millidegrees, dof entries
    std::vector<int> pose;  // x, y, z micrometres, rx, ry, rz milliradians
    std::string work_frame;
    std::string tool_frame;
    std::string time;
};

// The last motion of the arm, its joints sampled every 20 ms: what the
// controller hands out when a taught trajectory is saved. A motion that
// starts after the arm stood still for a second starts a new recording.
struct recorded_trajectory {
    std::vector<std::array<double, 7>> points; // degrees
    double last_sample = -1;                   // simulated seconds
    double last_motion = -1;                   // simulated seconds
};

struct program_store {
    std::vector<stored_program> programs; // by id, ascending
    int default_program = 0;              // 0: none
    project_download download;
    program_run run;
    recorded_trajectory recorded;
    std::vector<stored_waypoint> waypoints; // in the order added
};

// The raw project text of an accepted "run_project". The connection that
// sent the command binds the download to itself right after the command
// was answered (under the same hold of the arm's lock), then hands every
// byte it reads to take_project_text before splitting lines. Both need the
// arm's lock.
void bind_project_text(arm &target, const void *connection);

struct project_text_result {
    bool consumed = false; // the bytes (some or all) were project text
    std::string reply;     // "download_project" once the whole text has arrived
};
// Takes the download's bytes from the front of `bytes` (which keeps what
// follows the text). Nothing is taken from another connection, or when no
// download is pending.
project_text_result take_project_text(arm &target, const void *connection, std::string &bytes,
                                      double now);
// The connection closed: a download it owned is dropped.
void drop_project_text(arm &target, const void *connection);

} // namespace sim
