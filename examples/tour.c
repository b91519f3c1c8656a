/*
 * A tour of the arm interface, in plain C: open an arm, show what it is,
 * watch its pushed state, and run a short pick-and-place.
 *
 *   ka_tour                 the arm (or ka-sim) at 127.0.0.1:8080
 *   ka_tour IP PORT         the arm at IP:PORT
 *
 * Every step prints one line with its result code (0 is success); the
 * program exits with 1 when a step failed. Meanwhile a status line (joints,
 * flange pose, push rate) is redrawn from the realtime push.
 *
 * Moves are small and slow, but they are real moves: on real hardware, keep
 * the arm's workspace clear and a hand on the emergency stop.
 */
#define _POSIX_C_SOURCE 200809L

#include "ka_api.h"

#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

/* ---- the little the tour needs from the system: a monotonic clock, a
 * sleep, the process id and the temporary directory ---- */

#ifdef _WIN32
#include <windows.h>

static double seconds_now(void) {
    LARGE_INTEGER count, frequency;
    QueryPerformanceCounter(&count);
    QueryPerformanceFrequency(&frequency);
    return (double)count.QuadPart / (double)frequency.QuadPart;
}

static void sleep_until(double due) {
    const double left = due - seconds_now();
    if (left > 0) Sleep((DWORD)(left * 1000.0));
}

static long process_id(void) { return (long)GetCurrentProcessId(); }

/* With '/' separators, as the library splits paths at the last '/'. */
static void temp_directory(char *out, size_t size) {
    DWORD length = GetTempPathA((DWORD)size, out);
    if (length == 0 || length >= size) snprintf(out, size, ".");
    for (char *c = out; *c; ++c)
        if (*c == '\\') *c = '/';
    length = (DWORD)strlen(out);
    if (length > 1 && out[length - 1] == '/') out[length - 1] = '\0';
}
#else
#include <time.h>
#include <unistd.h>

static double seconds_now(void) {
    struct timespec t;
    clock_gettime(CLOCK_MONOTONIC, &t);
    return (double)t.tv_sec + (double)t.tv_nsec / 1e9;
}

static void sleep_until(double due) {
    struct timespec t;
    t.tv_sec = (time_t)due;
    t.tv_nsec = (long)((due - (double)t.tv_sec) * 1e9);
    clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &t, NULL);
}

static long process_id(void) { return (long)getpid(); }

static void temp_directory(char *out, size_t size) { snprintf(out, size, "/tmp"); }
#endif

#define STREAM_RATE_HZ 100
#define STREAM_SECONDS 2
#define STREAM_SWING_DEG 10.0f /* joint 1 swings this far while streaming */
#define LINE_WIDTH 100
#define PROGRAM_ID 7 /* where the downloaded program is stored */

static int failures = 0;

/* One line per step, wide enough to cover the status line it replaces. */
static int step(const char *what, int code) {
    printf("\r%-*s\r%-40s %d%s\n", LINE_WIDTH, "", what, code, code == 0 ? "" : "  <- failed");
    fflush(stdout);
    if (code != 0) ++failures;
    return code;
}

/* ---- the status line, redrawn from the realtime push ---- */

static int status_dof = 6;

/* Runs on the library's UDP thread; only it touches these statics. */
static void on_state(ka_realtime_arm_joint_state_t state) {
    static double window_start = 0, last_drawn = 0, rate_hz = 0;
    static int in_window = 0;
    const double now = seconds_now();
    char text[LINE_WIDTH + 1];
    int used = 0;

    if (window_start == 0) window_start = now;
    ++in_window;
    if (now - window_start >= 1.0) {
        rate_hz = in_window / (now - window_start);
        window_start = now;
        in_window = 0;
    }
    if (now - last_drawn < 0.1 || state.errCode != 0) return;
    last_drawn = now;
    used += snprintf(text + used, sizeof text - used, "joints");
    for (int j = 0; j < status_dof && used < (int)sizeof text; ++j)
        used += snprintf(text + used, sizeof text - used, " %7.2f", state.joint_position[j]);
    if (used < (int)sizeof text)
        used += snprintf(text + used, sizeof text - used, " | flange %.3f %.3f %.3f m",
                         state.waypoint.position.x, state.waypoint.position.y,
                         state.waypoint.position.z);
    if (used < (int)sizeof text)
        snprintf(text + used, sizeof text - used, " | push %.0f Hz", rate_hz);
    printf("\r%-*s", LINE_WIDTH, text);
    fflush(stdout);
}

/* ---- the steps ---- */

static void print_arm(ka_robot_handle *arm) {
    ka_arm_software_version_t version;
    float min_pos[KA_JOINTS] = {0}, max_pos[KA_JOINTS] = {0};
    char product[sizeof version.product_version + 1] = {0};
    int code;

    memset(&version, 0, sizeof version);
    if (step("software information", ka_get_arm_software_info(arm, &version)) == 0)
        memcpy(product, version.product_version, sizeof version.product_version);
    printf("  product %s: model %d, %d joints, force sensor type %d\n", product, arm->arm_model,
           arm->arm_dof, arm->force_type);
    code = ka_get_joint_min_pos(arm, min_pos);
    if (code == 0) code = ka_get_joint_max_pos(arm, max_pos);
    if (step("joint limits", code) != 0) return;
    for (int j = 0; j < arm->arm_dof; ++j)
        printf("  joint %d: %8.2f .. %7.2f degrees\n", j + 1, min_pos[j], max_pos[j]);
}

/* Asks for the pushed state at 100 Hz (every 2nd 5 ms cycle) when the arm
 * does not push yet. The push goes to the address configured on the
 * controller, or to this host when the arm is on this host. */
static void start_push(ka_robot_handle *arm, const char *ip) {
    ka_realtime_push_config_t config;
    int code;

    memset(&config, 0, sizeof config);
    code = ka_get_realtime_push(arm, &config);
    if (code == 0 && (!config.enable || strcmp(ip, "127.0.0.1") == 0)) {
        config.enable = true;
        config.cycle = 2;
        if (config.port <= 0) config.port = 8089;
        if (strcmp(ip, "127.0.0.1") == 0) {
            /* A port of this run's own: other simulators on this host may
             * push to the default port, and their datagrams would mix in. */
            config.port = 20000 + (int)(process_id() % 20000);
            snprintf(config.ip, sizeof config.ip, "%s", ip);
        }
        config.custom.joint_speed = 1;
        config.custom.lift_state = -1;
        config.custom.expand_state = -1;
        config.custom.arm_current_status = 1;
        config.force_coordinate = 0;
        code = ka_set_realtime_push(arm, config);
        /* The library listens on the push port once it re-reads the arm. */
        if (code == 0) code = ka_sync_robot_info(arm);
    }
    step("realtime push on", code);
}

static ka_pose_t offset(ka_pose_t pose, float dx, float dy, float dz) {
    pose.position.x += dx;
    pose.position.y += dy;
    pose.position.z += dz;
    return pose;
}

/* Joint 1 swings out and back on a smooth profile, one target every 10 ms,
 * streamed at a steady rate against the clock (not after each send). */
static int stream_joints(ka_robot_handle *arm, const float *start) {
    const int frames = STREAM_RATE_HZ * STREAM_SECONDS;
    const double start_time = seconds_now();
    int first_error = 0;

    for (int i = 1; i <= frames; ++i) {
        float target[KA_JOINTS];
        const double phase = 2.0 * 3.14159265358979 * i / frames;
        int code;

        memcpy(target, start, sizeof target);
        target[0] = start[0] + STREAM_SWING_DEG * (float)(0.5 - 0.5 * cos(phase));
        code = ka_movej_canfd(arm, target, false, 0.0f);
        if (code != 0 && first_error == 0) first_error = code;
        sleep_until(start_time + (double)i / STREAM_RATE_HZ);
    }
    return first_error;
}

/* A short program: a trajectory of joint points (millidegrees, one JSON
 * line each), which the library turns into a project and downloads. */
static int download_and_run(ka_robot_handle *arm, const float *around) {
    char directory[200];
    char source[256];
    char converted[256 + KA_PROJECT_PATH_SIZE];
    ka_send_project_t project;
    int errline = 0, code;
    FILE *file;

    temp_directory(directory, sizeof directory);
    snprintf(source, sizeof source, "%s/ka_tour_%ld.txt", directory, process_id());
    file = fopen(source, "w");
    if (!file) return step("program written", -1);
    for (int i = 0; i <= 20; ++i) {
        fprintf(file, "{\"point\":[");
        for (int j = 0; j < arm->arm_dof; ++j) {
            float angle = around[j];
            if (j == 0) angle += 5.0f * (float)sin(3.14159265358979 * i / 20.0);
            fprintf(file, "%s%ld", j ? "," : "", (long)(angle * 1000.0f));
        }
        fprintf(file, "]}\r\n");
    }
    fclose(file);

    memset(&project, 0, sizeof project);
    snprintf(project.project_path, sizeof project.project_path, "%s", source);
    project.project_path_len = (int)strlen(project.project_path);
    project.plan_speed = 50;
    project.only_save = 1; /* stored under save_id, run below */
    project.save_id = PROGRAM_ID;
    project.convert_flag = 1; /* a bare trajectory: the library adds the project header */
    code = step("program downloaded", ka_send_project(arm, &project, &errline));
    if (code != 0 && errline > 0) printf("  first faulty line: %d\n", errline);
    /* The library wrote the converted copy beside the source ("dir//name"). */
    snprintf(converted, sizeof converted, "%s//%s", directory, project.project_path);
    remove(converted);
    remove(source);
    if (code != 0) return code;
    return step("program run to its end", ka_set_program_id_run(arm, PROGRAM_ID, 0, 1));
}

int main(int argc, char **argv) {
    const char *ip = argc >= 2 ? argv[1] : "127.0.0.1";
    const int port = argc >= 3 ? atoi(argv[2]) : 8080;
    /* A bent elbow and wrist, well inside every model's limits. */
    const float ready6[KA_JOINTS] = {0, 30, 60, 0, 60, 0, 0};
    const float ready7[KA_JOINTS] = {0, 30, 0, 60, 0, 60, 0};
    ka_current_arm_state_t state;
    ka_robot_handle *arm;
    ka_pose_t above, circle_start;
    float joints[KA_JOINTS] = {0};

    printf("ka_api %s: touring the arm at %s:%d\n", ka_api_version(), ip, port);
    ka_init(KA_THREAD_MODE_TRIPLE);
    ka_realtime_arm_state_call_back(on_state);
    arm = ka_create_robot_arm(ip, port);
    if (!arm || arm->id < 1) {
        step("arm opened", -1);
        ka_destory();
        return 1;
    }
    step("arm opened", 0);
    status_dof = arm->arm_dof;
    print_arm(arm);
    start_push(arm, ip);

    /* Pick: to the ready pose, down 5 cm in a straight line, then a half
     * circle of 3 cm radius in the horizontal plane. */
    step("joint move to ready (blocking)",
         ka_movej(arm, arm->arm_dof == 7 ? ready7 : ready6, 30, 0, 0, 1));
    memset(&state, 0, sizeof state);
    if (step("arm state read", ka_get_current_arm_state(arm, &state)) == 0) {
        above = state.pose;
        circle_start = offset(above, 0, 0, -0.05f);
        step("linear move down 5 cm", ka_movel(arm, circle_start, 20, 0, 0, 1));
        step("circle through via to target",
             ka_movec(arm, offset(circle_start, 0.03f, 0.03f, 0), offset(circle_start, 0.06f, 0, 0),
                      20, 0, 0, 0, 1));
    }

    if (step("joints read", ka_get_joint_degree(arm, joints)) == 0) {
        step("2 s joint stream at 100 Hz", stream_joints(arm, joints));
        step("gripper pick (blocking)", ka_set_gripper_pick(arm, 500, 300, true, 10));
        step("gripper release (blocking)", ka_set_gripper_release(arm, 500, true, 10));
        download_and_run(arm, joints);
    }

    ka_destory();
    printf("\r%-*s\r%s\n", LINE_WIDTH, "",
           failures ? "tour finished with failed steps" : "tour finished");
    return failures ? 1 : 0;
}
