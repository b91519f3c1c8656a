// Cartesian paths, chains, streaming, jogging and the motion controls of
// the simulated arm, driven through the library's own functions.
#include "sim_session.h"

#include "ka_algo.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <functional>
#include <string>
#include <thread>

namespace {

using namespace std::chrono_literals;
using sim_test::arm_session;

// Per model, joints whose tool has room of at least 0.12 m along +x, away
// from singularities and joint limits.
const float *home_for(const char *product) {
    static const float six[7] = {10.0f, 40.0f, 70.0f, 10.0f, 50.0f, 20.0f, 0.0f};
    static const float seven[7] = {10.0f, 30.0f, 10.0f, 60.0f, 10.0f, 50.0f, 10.0f};
    return std::string(product).rfind("QUIL", 0) == 0 ? seven : six;
}

// Polls `ready` until it holds or the limit passes (no event exists for it).
bool eventually(const std::function<bool()> &ready, std::chrono::milliseconds limit = 5s) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (std::chrono::steady_clock::now() < deadline)
        if (ready()) return true;
    return ready();
}

std::array<float, 7> joints_of(ka_robot_handle *arm) {
    std::array<float, 7> joints{};
    EXPECT_EQ(ka_get_joint_degree(arm, joints.data()), KA_OK);
    return joints;
}

float distance(const ka_position_t &a, const ka_position_t &b) {
    return std::sqrt((a.x - b.x) * (a.x - b.x) + (a.y - b.y) * (a.y - b.y) +
                     (a.z - b.z) * (a.z - b.z));
}

// Distance of p from the segment a-b.
float off_segment(const ka_position_t &p, const ka_position_t &a, const ka_position_t &b) {
    const float dx = b.x - a.x, dy = b.y - a.y, dz = b.z - a.z;
    const float len2 = dx * dx + dy * dy + dz * dz;
    float t = ((p.x - a.x) * dx + (p.y - a.y) * dy + (p.z - a.z) * dz) / len2;
    t = std::fmax(0.0f, std::fmin(1.0f, t));
    const ka_position_t q{a.x + t * dx, a.y + t * dy, a.z + t * dz};
    return distance(p, q);
}

ka_arm_current_trajectory_e trajectory_kind(ka_robot_handle *arm) {
    ka_arm_current_trajectory_e kind = KA_TRAJECTORY_REPLAY;
    float data[7] = {};
    EXPECT_EQ(ka_get_arm_current_trajectory(arm, &kind, data), KA_OK);
    return kind;
}

ka_pose_t pose_at(ka_robot_handle *arm) {
    const auto joints = joints_of(arm);
    return ka_algo_forward_kinematics(arm, joints.data());
}

void go_home(arm_session &s, const char *product = "KIVO-B") {
    ASSERT_EQ(ka_movej(s.arm, home_for(product), 100, 0, 0, 1), KA_OK);
    // Its completion report may reach the callback just after the call returns.
    ASSERT_TRUE(sim_test::events().wait_events(1, 2s));
    sim_test::events().clear();
}

// Only the Euler angles cross the wire; the quaternion is left to the library.
ka_pose_t shifted(ka_pose_t pose, float dx, float dy, float dz) {
    pose.position.x += dx;
    pose.position.y += dy;
    pose.position.z += dz;
    return pose;
}

// Targets cross the wire truncated to micrometres and milliradians.
void expect_pose_near(const ka_pose_t &reached, const ka_pose_t &wanted) {
    sim_test::expect_near_pose(reached, wanted, 2e-5f, 3e-3f);
}

TEST(SimulatedPaths, LineKeepsTheToolOnTheSegmentAndEndsOnTarget) {
    for (const char *product : {"KIVO-B", "QUIL-B"}) {
        SCOPED_TRACE(product);
        arm_session s(sim_test::options(product, 1.0));
        go_home(s, product);
        const ka_pose_t from = pose_at(s.arm);
        const ka_pose_t to = shifted(from, 0.05f, -0.03f, -0.03f);
        ASSERT_EQ(ka_movel(s.arm, to, 30, 0, 0, 0), KA_OK);

        // Mid-way the trajectory query reports a pose on the segment.
        int on_path = 0;
        ASSERT_TRUE(eventually([&] {
            ka_arm_current_trajectory_e kind = KA_TRAJECTORY_NONE;
            float data[7] = {};
            EXPECT_EQ(ka_get_arm_current_trajectory(s.arm, &kind, data), KA_OK);
            if (kind != KA_TRAJECTORY_MOVEL) return on_path > 0;
            const ka_position_t p{data[0], data[1], data[2]};
            EXPECT_LT(off_segment(p, from.position, to.position), 2e-4f);
            ++on_path;
            return false;
        }));
        EXPECT_GT(on_path, 0);
        ASSERT_TRUE(sim_test::events().wait_events(1, 5s));
        expect_pose_near(pose_at(s.arm), to);

        // The blocking form returns at the end, on target.
        ASSERT_EQ(ka_movel(s.arm, from, 100, 0, 0, 1), KA_OK);
        expect_pose_near(pose_at(s.arm), from);
    }
}

// The reply to `line`, passing over the completion reports every connection gets.
std::string ask(sim_test::line_client &raw, const std::string &line) {
    raw.send(line);
    for (std::string reply = raw.read(); !reply.empty(); reply = raw.read())
        if (reply.find(R"("command")") != std::string::npos) return reply;
    return "";
}

// A movec request as one line: poses in micrometres and milliradians.
std::string movec_line(const ka_pose_t &via, const ka_pose_t &to, int loop) {
    const auto wire = [](const ka_pose_t &p) {
        return "[" + std::to_string(static_cast<int>(p.position.x * 1e6f)) + "," +
               std::to_string(static_cast<int>(p.position.y * 1e6f)) + "," +
               std::to_string(static_cast<int>(p.position.z * 1e6f)) + "," +
               std::to_string(static_cast<int>(p.euler.rx * 1e3f)) + "," +
               std::to_string(static_cast<int>(p.euler.ry * 1e3f)) + "," +
               std::to_string(static_cast<int>(p.euler.rz * 1e3f)) + "]";
    };
    return R"({"command":"movec","pose":{"pose_via":)" + wire(via) + R"(,"pose_to":)" + wire(to) +
           R"(},"v":50,"r":0,"loop":)" + std::to_string(loop) + R"(,"trajectory_connect":0})";
}

TEST(SimulatedPaths, ArcPassesTheViaPoseAndEndsOnTarget) {
    arm_session s(sim_test::options("KIVO-B", 4.0));
    go_home(s);
    const ka_pose_t from = pose_at(s.arm);
    const ka_pose_t via = shifted(from, 0.05f, 0.05f, 0.0f);
    const ka_pose_t to = shifted(from, 0.1f, 0.0f, 0.0f);
    sim_test::line_client raw(s.port);
    EXPECT_EQ(ask(raw, movec_line(via, to, 0)), R"({"command":"movec","receive_state":true})");
    // The circle's centre is from + (0.05, 0, 0), radius 0.05 m.
    const ka_position_t centre{from.position.x + 0.05f, from.position.y, from.position.z};
    int seen = 0;
    ASSERT_TRUE(eventually([&] {
        ka_arm_current_trajectory_e kind = KA_TRAJECTORY_NONE;
        float data[7] = {};
        EXPECT_EQ(ka_get_arm_current_trajectory(s.arm, &kind, data), KA_OK);
        if (kind != KA_TRAJECTORY_MOVEC) return seen > 0;
        EXPECT_NEAR(distance({data[0], data[1], data[2]}, centre), 0.05f, 2e-4f);
        ++seen;
        return false;
    }));
    EXPECT_GT(seen, 0);
    ASSERT_TRUE(sim_test::events().wait_events(1, 5s));
    expect_pose_near(pose_at(s.arm), to);

    // Three points on a line make no circle.
    EXPECT_EQ(ask(raw, movec_line(shifted(to, -0.05f, 0, 0), shifted(to, -0.1f, 0, 0), 0)),
              R"({"command":"movec","receive_state":false})");
}

TEST(SimulatedPaths, ConnectedChainsReportEachMotionAndReturnOnceAtTheEnd) {
    struct chain_row {
        const char *name;
        std::function<int(ka_robot_handle *, const ka_pose_t &, int connect, int block)> move;
        int r;
    };
    const chain_row rows[] = {
        {"moves",
         [](ka_robot_handle *a, const ka_pose_t &p, int c, int b) {
             return ka_moves(a, p, 50, 0, c, b);
         },
         0},
        {"movel",
         [](ka_robot_handle *a, const ka_pose_t &p, int c, int b) {
             return ka_movel(a, p, 50, 0, c, b);
         },
         0},
        {"movel blended",
         [](ka_robot_handle *a, const ka_pose_t &p, int c, int b) {
             return ka_movel(a, p, 50, 10, c, b);
         },
         10},
    };
    for (const chain_row &row : rows) {
        SCOPED_TRACE(row.name);
        arm_session s(sim_test::options("KIVO-B", 4.0));
        go_home(s);
        const ka_pose_t from = pose_at(s.arm);
        const ka_pose_t points[3] = {shifted(from, 0.04f, 0.02f, 0), shifted(from, 0.08f, 0, 0),
                                     shifted(from, 0.12f, 0.02f, 0.02f)};
        EXPECT_EQ(row.move(s.arm, points[0], 1, 1), KA_OK); // connected: returns once accepted
        EXPECT_EQ(row.move(s.arm, points[1], 1, 1), KA_OK);
        ASSERT_EQ(row.move(s.arm, points[2], 0, 1), KA_OK);
        expect_pose_near(pose_at(s.arm), points[2]);
        ASSERT_TRUE(sim_test::events().wait_events(3, 2s));
        std::lock_guard lock(sim_test::events().mutex);
        const auto &ends = sim_test::events().events;
        ASSERT_EQ(ends.size(), 3u);
        for (std::size_t i = 0; i < 3; ++i) {
            EXPECT_TRUE(ends[i].trajectory_state) << i;
            EXPECT_EQ(ends[i].device, 0) << i;
            EXPECT_EQ(ends[i].trajectory_connect, i < 2 ? 1 : 0) << i;
        }
    }
}

TEST(SimulatedPaths, RefusesWhatItCannotReachAndStaysPut) {
    arm_session s(sim_test::options("KIVO-B", 4.0));
    go_home(s);
    const auto before = joints_of(s.arm);
    const ka_pose_t here = pose_at(s.arm);
    const ka_pose_t far = shifted(here, 5.0f, 0, 0);
    EXPECT_EQ(ka_movel(s.arm, far, 50, 0, 0, 1), 1);
    EXPECT_EQ(ka_moves(s.arm, far, 50, 0, 0, 1), 1);
    sim_test::line_client raw(s.port);
    EXPECT_EQ(ask(raw, movec_line(shifted(here, 0.05f, 0.05f, 0), far, 0)),
              R"({"command":"movec","receive_state":false})");
    EXPECT_EQ(ka_movel(s.arm, here, 0, 0, 0, 1), 1);   // no speed
    EXPECT_EQ(ka_movel(s.arm, here, 101, 0, 0, 1), 1); // beyond full speed
    // A step that would cross joint 1's limit.
    EXPECT_EQ(ka_set_joint_step(s.arm, 1, 400.0f, 50, 1), 1);
    EXPECT_EQ(joints_of(s.arm), before);
    ka_arm_current_trajectory_e kind = KA_TRAJECTORY_MOVEJ;
    float data[7] = {};
    ASSERT_EQ(ka_get_arm_current_trajectory(s.arm, &kind, data), KA_OK);
    EXPECT_EQ(kind, KA_TRAJECTORY_NONE);
}

TEST(SimulatedStreaming, FollowsTheStreamToItsLastTargetAndIgnoresRefusedTargets) {
    for (const bool follow : {false, true}) {
        SCOPED_TRACE(follow ? "follow" : "passthrough");
        arm_session s(sim_test::options("KIVO-B", 1.0));
        // 0.5 s of a 100 Hz stream moving joint 1 by 10 degrees.
        float target[7] = {};
        const auto period = 10ms;
        auto next = std::chrono::steady_clock::now();
        for (int i = 1; i <= 50; ++i) {
            target[0] = 0.2f * static_cast<float>(i);
            target[1] = -0.1f * static_cast<float>(i);
            ASSERT_EQ(ka_movej_canfd(s.arm, target, follow, 0.0f), KA_OK);
            next += period; // the stream's own cadence
            std::this_thread::sleep_until(next);
        }
        ASSERT_TRUE(eventually([&] {
            const auto j = joints_of(s.arm);
            return j[0] == target[0] && j[1] == target[1];
        }));
        // A target beyond joint 1's limit is dropped: the arm stays.
        const float beyond[7] = {400.0f, 0, 0, 0, 0, 0, 0};
        ASSERT_EQ(ka_movej_canfd(s.arm, beyond, follow, 0.0f), KA_OK);
        ASSERT_EQ(ka_movej_follow(s.arm, beyond), KA_OK);
        const auto after = joints_of(s.arm);
        EXPECT_EQ(after[0], target[0]);
    }
}

TEST(SimulatedStreaming, FollowsStreamedPosesInBothForms) {
    arm_session s(sim_test::options("KIVO-B", 1.0));
    go_home(s);
    const ka_pose_t from = pose_at(s.arm);
    ka_pose_t euler_form = shifted(from, 0.02f, 0, 0);
    euler_form.quaternion = {0, 0, 0, 0};
    ASSERT_EQ(ka_movep_follow(s.arm, euler_form), KA_OK);
    ASSERT_TRUE(eventually(
        [&] { return std::fabs(pose_at(s.arm).position.x - euler_form.position.x) < 2e-5f; }));
    const ka_pose_t quat_form = shifted(from, 0.0f, 0.02f, 0); // quaternion of the library's FK
    ASSERT_EQ(ka_movep_canfd(s.arm, quat_form, false), KA_OK);
    ASSERT_TRUE(eventually(
        [&] { return std::fabs(pose_at(s.arm).position.y - quat_form.position.y) < 2e-5f; }));
    expect_pose_near(pose_at(s.arm), quat_form);
}

TEST(SimulatedJogging, TeachMovesUntilStoppedAndStepsMoveTheirDistance) {
    arm_session s(sim_test::options("KIVO-B", 4.0));
    go_home(s);
    const auto start = joints_of(s.arm);
    ASSERT_EQ(ka_set_joint_teach(s.arm, 2, 1, 20), KA_OK);
    ASSERT_TRUE(eventually([&] { return joints_of(s.arm)[1] > start[1] + 1.0f; }));
    ASSERT_EQ(ka_set_stop_teach(s.arm), KA_OK);
    // At rest once the teach motion has ended; only joint 2 moved.
    ASSERT_TRUE(eventually([&] { return trajectory_kind(s.arm) == KA_TRAJECTORY_NONE; }));
    const auto rest = joints_of(s.arm);
    EXPECT_GT(rest[1], start[1] + 1.0f);
    for (int j : {0, 2, 3, 4, 5})
        EXPECT_EQ(rest[j], start[j]) << "joint " << j + 1;

    // Cartesian teaching in the work frame moves the tool along z only.
    ASSERT_EQ(ka_set_teach_frame(s.arm, 0), KA_OK);
    int frame = -1;
    ASSERT_EQ(ka_get_teach_frame(s.arm, &frame), KA_OK);
    EXPECT_EQ(frame, 0);
    const ka_pose_t before = pose_at(s.arm);
    ASSERT_EQ(ka_set_pos_teach(s.arm, KA_TEACH_Z, 0, 20), KA_OK);
    ASSERT_TRUE(eventually([&] { return pose_at(s.arm).position.z < before.position.z - 0.005f; }));
    ASSERT_EQ(ka_set_stop_teach(s.arm), KA_OK);
    ASSERT_TRUE(eventually([&] { return trajectory_kind(s.arm) == KA_TRAJECTORY_NONE; }));
    const ka_pose_t taught = pose_at(s.arm);
    EXPECT_NEAR(taught.position.x, before.position.x, 1e-4f);
    EXPECT_NEAR(taught.position.y, before.position.y, 1e-4f);

    // Steps (blocking) move exactly their distance.
    const auto at = joints_of(s.arm);
    ASSERT_EQ(ka_set_joint_step(s.arm, 3, -2.5f, 50, 1), KA_OK);
    EXPECT_NEAR(joints_of(s.arm)[2], at[2] - 2.5f, 1e-3f);
    const ka_pose_t p0 = pose_at(s.arm);
    ASSERT_EQ(ka_set_pos_step(s.arm, KA_TEACH_X, 0.01f, 50, 1), KA_OK);
    const ka_pose_t p1 = pose_at(s.arm);
    EXPECT_NEAR(p1.position.x - p0.position.x, 0.01f, 2e-5f);
    EXPECT_NEAR(p1.position.y, p0.position.y, 2e-5f);
    ASSERT_EQ(ka_set_ort_step(s.arm, KA_TEACH_RZ, 0.05f, 50, 1), KA_OK);
    const ka_pose_t p2 = pose_at(s.arm);
    EXPECT_NEAR(p2.position.x, p1.position.x, 2e-5f); // turns about the tool's point
    EXPECT_NEAR(std::remainder(p2.euler.rz - p1.euler.rz, 6.2831853f), 0.05f, 2e-3f);
}

TEST(SimulatedControl, PauseHoldsTheArmOnItsPathAndContinueFinishesTheMove) {
    arm_session s(sim_test::options("KIVO-B", 1.0));
    const float target[7] = {60.0f, 0, 0, 0, 0, 0, 0};
    ASSERT_EQ(ka_movej(s.arm, target, 20, 0, 0, 0), KA_OK);
    ASSERT_TRUE(eventually([&] { return joints_of(s.arm)[0] > 1.0f; }));
    ASSERT_EQ(ka_set_arm_pause(s.arm), KA_OK);
    // Held once the state query shows no joint speed.
    std::array<float, 7> held{};
    ASSERT_TRUE(eventually([&] {
        ka_current_arm_state_t state{};
        EXPECT_EQ(ka_get_current_arm_state(s.arm, &state), KA_OK);
        held = joints_of(s.arm);
        return held == joints_of(s.arm) && held[0] == state.joint[0];
    }));
    EXPECT_LT(held[0], target[0]);
    ka_arm_current_trajectory_e kind = KA_TRAJECTORY_NONE;
    float data[7] = {};
    ASSERT_EQ(ka_get_arm_current_trajectory(s.arm, &kind, data), KA_OK);
    EXPECT_EQ(kind, KA_TRAJECTORY_MOVEJ); // still its trajectory, held
    {
        std::lock_guard lock(sim_test::events().mutex);
        EXPECT_TRUE(sim_test::events().events.empty());
    }
    ASSERT_EQ(ka_set_arm_continue(s.arm), KA_OK);
    ASSERT_TRUE(sim_test::events().wait_events(1, 10s));
    {
        std::lock_guard lock(sim_test::events().mutex);
        EXPECT_TRUE(sim_test::events().events[0].trajectory_state);
    }
    EXPECT_EQ(joints_of(s.arm)[0], target[0]);
}

TEST(SimulatedControl, SlowStopAndDeleteEndTheMotionEarly) {
    struct end_row {
        const char *name;
        std::function<void(ka_robot_handle *)> end;
    };
    const end_row rows[] = {
        {"slow stop", [](ka_robot_handle *a) { EXPECT_EQ(ka_set_arm_slow_stop(a), KA_OK); }},
        {"pause, delete current",
         [](ka_robot_handle *a) {
             EXPECT_EQ(ka_set_arm_pause(a), KA_OK);
             EXPECT_EQ(ka_set_delete_current_trajectory(a), KA_OK);
         }},
        {"pause, delete all",
         [](ka_robot_handle *a) {
             EXPECT_EQ(ka_set_arm_pause(a), KA_OK);
             EXPECT_EQ(ka_set_arm_delete_trajectory(a), KA_OK);
         }},
    };
    for (const end_row &row : rows) {
        SCOPED_TRACE(row.name);
        arm_session s(sim_test::options("KIVO-B", 1.0));
        const float target[7] = {60.0f, 0, 0, 0, 0, 0, 0};
        ASSERT_EQ(ka_movej(s.arm, target, 20, 0, 0, 0), KA_OK);
        ASSERT_TRUE(eventually([&] { return joints_of(s.arm)[0] > 1.0f; }));
        // Deleting a running (not paused) trajectory is refused.
        EXPECT_EQ(ka_set_delete_current_trajectory(s.arm), 1);
        row.end(s.arm);
        ASSERT_TRUE(sim_test::events().wait_events(1, 5s));
        {
            std::lock_guard lock(sim_test::events().mutex);
            EXPECT_FALSE(sim_test::events().events[0].trajectory_state);
        }
        const auto a = joints_of(s.arm);
        EXPECT_LT(a[0], target[0]);
        ka_arm_current_trajectory_e kind = KA_TRAJECTORY_MOVEJ;
        float data[7] = {};
        ASSERT_EQ(ka_get_arm_current_trajectory(s.arm, &kind, data), KA_OK);
        EXPECT_EQ(kind, KA_TRAJECTORY_NONE);
        ASSERT_EQ(ka_set_arm_continue(s.arm), KA_OK); // nothing left to run
        EXPECT_EQ(joints_of(s.arm), a);
    }
}

} // namespace
