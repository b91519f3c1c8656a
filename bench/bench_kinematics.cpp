// Forward and inverse kinematics of every model with a solver, next to
// Orocos KDL's recursive forward solver and its two position IK solvers on
// the same chains (built from the same modified DH tables), the same targets
// and the same references, in one run.
//
//   ./build/default/bench/bench_kinematics [samples_per_model [model [paths_per_model]]]
//
// model: a type number (7) or a name (QUIL); all models when absent.
//
// Targets: joints drawn uniformly within the modelling limits (fixed seed),
// target = forward kinematics. References: near (every joint within 0.3 rad
// of the target's joints) and random (drawn within the limits). A solve
// succeeds when it reports success, its flange is within 1e-5 m and 1e-4 rad
// of the target (checked in double against the DH product) and its joints
// lie within the limits (KDL's answers are first wrapped into the limits by
// whole turns). Library IK is timed through the exported call
// ka_algo_inverse_kinematics (degrees, Euler pose, limit check, context
// lock); a seven-axis solve counts only if it also finishes within 1 ms.
#include "algo/fk.h"
#include "algo/ik.h"
#include "algo/models.h"
#include "algo/pose_math.h"
#include "ka_api.h"
#include "tests/algo/algo_test_support.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#ifdef KA_HAVE_KDL
#include <kdl/chain.hpp>
#include <kdl/chainfksolverpos_recursive.hpp>
#include <kdl/chainiksolverpos_lma.hpp>
#include <kdl/chainiksolverpos_nr_jl.hpp>
#include <kdl/chainiksolvervel_pinv.hpp>
#endif

using namespace algo_test;

namespace {

using clock_type = std::chrono::steady_clock;

double elapsed_us(clock_type::time_point a, clock_type::time_point b) {
    return std::chrono::duration<double, std::micro>(b - a).count();
}

// Median and 99th percentile of per-solve times; share of successes.
struct stats {
    std::vector<double> us;
    int ok = 0;
    void add(double t, bool success) {
        us.push_back(t);
        ok += success;
    }
    double quantile(double q) {
        if (us.empty()) return 0.0;
        std::sort(us.begin(), us.end());
        return us[std::min(us.size() - 1, static_cast<size_t>(q * us.size()))];
    }
    std::string row() {
        char buf[96];
        std::snprintf(buf, sizeof buf, "%8.2f %8.2f %7.2f%%", quantile(0.5), quantile(0.99),
                      us.empty() ? 0.0 : 100.0 * ok / us.size());
        return buf;
    }
};

struct sample {
    double q[7];
    double near_ref[7];
    double far_ref[7];
    float near_deg[7];
    float far_deg[7];
    ik_frame target;
    ka_pose_t pose;
};

// R = Rz(rz) Ry(ry) Rx(rx) and the position of a pose, in double.
ik_frame pose_target(const ka_pose_t &p) {
    const double cx = std::cos(p.euler.rx), sx = std::sin(p.euler.rx);
    const double cy = std::cos(p.euler.ry), sy = std::sin(p.euler.ry);
    const double cz = std::cos(p.euler.rz), sz = std::sin(p.euler.rz);
    return {{{cy * cz, sx * sy * cz - cx * sz, cx * sy * cz + sx * sz},
             {cy * sz, sx * sy * sz + cx * cz, cx * sy * sz - sx * cz},
             {-sy, sx * cy, cx * cy}},
            {p.position.x, p.position.y, p.position.z}};
}

// Pose reached; the limits are checked separately, for the library in the
// degrees of its exported limit check.
bool reaches(const model_under_test &m, const ik_frame &target, const double q[7]) {
    return static_cast<bool>(frames_near(dh_product(m.dh, m.dof, q), target));
}

// A reference in degrees kept within the limits the exported call checks
// (a radian value on a limit can round beyond it in degrees).
void to_reference_degrees(const model_under_test &m, const double rad[7], float deg[7]) {
    float lo[7] = {}, hi[7] = {};
    ka_algo_get_joint_min_limit(lo);
    ka_algo_get_joint_max_limit(hi);
    for (int i = 0; i < 7; ++i)
        deg[i] = i < m.dof ? std::clamp(static_cast<float>(rad[i] / k_deg), lo[i], hi[i]) : 0.0f;
}

#ifdef KA_HAVE_KDL
KDL::Frame twist_frame(float alpha, float a) {
    double c, s;
    twist_cos_sin(alpha, &c, &s);
    return KDL::Frame(KDL::Rotation(1, 0, 0, 0, c, -s, 0, s, c), KDL::Vector(a, 0, 0));
}

// Modified DH as KDL segments: a fixed Rx(alpha0) Tx(a0), then per joint a
// rotation about z followed by Rz(offset) Tz(d) and the next link's
// Rx(alpha) Tx(a).
KDL::Chain kdl_chain(const model_under_test &m) {
    KDL::Chain chain;
    chain.addSegment(
        KDL::Segment(KDL::Joint(KDL::Joint::None), twist_frame(m.dh.alpha[0], m.dh.a[0])));
    for (int i = 0; i < m.dof; ++i) {
        KDL::Frame tip =
            KDL::Frame(KDL::Rotation::RotZ(m.dh.offset[i]), KDL::Vector(0, 0, m.dh.d[i]));
        if (i + 1 < m.dof) tip = tip * twist_frame(m.dh.alpha[i + 1], m.dh.a[i + 1]);
        chain.addSegment(KDL::Segment(KDL::Joint(KDL::Joint::RotZ), tip));
    }
    return chain;
}

KDL::Frame kdl_frame(const ik_frame &F) {
    return KDL::Frame(KDL::Rotation(F.R[0][0], F.R[0][1], F.R[0][2], F.R[1][0], F.R[1][1],
                                    F.R[1][2], F.R[2][0], F.R[2][1], F.R[2][2]),
                      KDL::Vector(F.p[0], F.p[1], F.p[2]));
}

// KDL's joints brought into the limits by whole turns where possible.
void wrap_into_limits(const model_under_test &m, const KDL::JntArray &in, double q[7]) {
    for (int i = 0; i < m.dof; ++i) {
        q[i] = in(i);
        while (q[i] > m.limits.hi[i] && q[i] - 2 * k_pi >= m.limits.lo[i])
            q[i] -= 2 * k_pi;
        while (q[i] < m.limits.lo[i] && q[i] + 2 * k_pi <= m.limits.hi[i])
            q[i] += 2 * k_pi;
    }
}
#endif

void run_model(int type, int n, bool report) {
    const model_under_test m = load_model(type);
    ka_algo_init_sys_data(static_cast<ka_robot_arm_model_e>(type), KA_FORCE_TYPE_B);
    random_source rng(4242u + type);
    std::vector<sample> samples(n);
    for (sample &s : samples) {
        rng.joints(m, s.q);
        rng.near(m, s.q, 0.3, s.near_ref);
        rng.joints(m, s.far_ref);
        to_reference_degrees(m, s.near_ref, s.near_deg);
        to_reference_degrees(m, s.far_ref, s.far_deg);
        const ik_frame flange = rounded(dh_product(m.dh, m.dof, s.q));
        ka_matrix_t T{};
        T.rows = T.columns = 4;
        for (int i = 0; i < 3; ++i) {
            for (int j = 0; j < 3; ++j)
                T.data[i][j] = static_cast<float>(flange.R[i][j]);
            T.data[i][3] = static_cast<float>(flange.p[i]);
        }
        T.data[3][3] = 1.0f;
        s.pose = algo_matrix_to_pose(T);
        // Every solver gets, and is checked against, the pose as given: its
        // position and Euler angles (whose rounding near ry = +-90 degrees is
        // the pose's, not a solver's).
        s.target = pose_target(s.pose);
    }

    // Forward kinematics, exported call (degrees in, pose out).
    double fk_ns = 0.0;
    {
        std::vector<std::array<float, 7>> deg(n);
        for (int k = 0; k < n; ++k)
            for (int i = 0; i < 7; ++i)
                deg[k][i] = static_cast<float>(samples[k].q[i] / k_deg);
        float sink = 0.0f;
        const auto a = clock_type::now();
        for (int rep = 0; rep < 5; ++rep)
            for (int k = 0; k < n; ++k)
                sink += ka_algo_forward_kinematics(nullptr, deg[k].data()).position.x;
        const auto b = clock_type::now();
        fk_ns = 1000.0 * elapsed_us(a, b) / (5.0 * n);
        if (sink == 12345.0f) std::puts("");
    }
    // The model's closed-form flange transform alone (radians in, 4x4 out):
    // the same work as KDL's JntToCart below.
    double flange_ns = 0.0;
    {
        std::vector<std::array<float, 7>> rad(n);
        for (int k = 0; k < n; ++k)
            for (int i = 0; i < 7; ++i)
                rad[k][i] = static_cast<float>(samples[k].q[i]);
        float sink = 0.0f;
        float T[4][4];
        const auto a = clock_type::now();
        for (int rep = 0; rep < 5; ++rep)
            for (int k = 0; k < n; ++k) {
                fk_flange(m.type, m.dh, rad[k].data(), T);
                sink += T[0][3];
            }
        flange_ns = 1000.0 * elapsed_us(a, clock_type::now()) / (5.0 * n);
        if (sink == 12345.0f) std::puts("");
    }

    stats lib[2];
    for (int which = 0; which < 2; ++which) {
        for (const sample &s : samples) {
            ka_inverse_kinematics_params_t p{};
            std::copy_n(which == 0 ? s.near_deg : s.far_deg, 7, p.q_in);
            p.q_pose = s.pose;
            p.q_flag = 1;
            float out[7];
            const auto a = clock_type::now();
            const int rc = ka_algo_inverse_kinematics(nullptr, p, out);
            const double t = elapsed_us(a, clock_type::now());
            double q[7] = {};
            for (int i = 0; i < m.dof; ++i)
                q[i] = out[i] * k_deg;
            const bool within_budget = m.dof == 6 || t <= 1000.0;
            lib[which].add(t, rc == 0 && within_budget && reaches(m, s.target, q) &&
                                  ka_algo_judgment_overpos(out) == 0);
        }
    }

    if (!report) return;
    std::printf("%-8s FK flange %4.0f ns, exported %4.0f ns", m.name, flange_ns, fk_ns);
#ifdef KA_HAVE_KDL
    const KDL::Chain chain = kdl_chain(m);
    KDL::ChainFkSolverPos_recursive fk(chain);
    double kdl_fk_ns = 0.0;
    {
        KDL::JntArray q(m.dof);
        KDL::Frame f;
        double sink = 0.0;
        const auto a = clock_type::now();
        for (int rep = 0; rep < 5; ++rep) {
            for (const sample &s : samples) {
                for (int i = 0; i < m.dof; ++i)
                    q(i) = s.q[i];
                fk.JntToCart(q, f);
                sink += f.p.x();
            }
        }
        kdl_fk_ns = 1000.0 * elapsed_us(a, clock_type::now()) / (5.0 * n);
        if (sink == 12345.0) std::puts("");
    }
    std::printf("   KDL FK %6.0f ns", kdl_fk_ns);
#endif
    std::printf("\n");
    std::printf("  %-7s %-10s %8s %8s %8s\n", "ref", "solver", "median", "p99", "success");
    const char *refs[2] = {"near", "random"};
    for (int which = 0; which < 2; ++which) {
        std::printf("  %-7s %-10s %s\n", refs[which], "library", lib[which].row().c_str());
#ifdef KA_HAVE_KDL
        KDL::JntArray lo(m.dof), hi(m.dof), seed(m.dof), out(m.dof);
        for (int i = 0; i < m.dof; ++i) {
            lo(i) = m.limits.lo[i];
            hi(i) = m.limits.hi[i];
        }
        KDL::ChainIkSolverVel_pinv vel(chain);
        KDL::ChainIkSolverPos_NR_JL nr(chain, lo, hi, fk, vel, 100, 1e-7);
        KDL::ChainIkSolverPos_LMA lma(chain, 1e-7, 500);
        stats kdl[2];
        for (int solver = 0; solver < 2; ++solver) {
            for (const sample &s : samples) {
                const double *ref = which == 0 ? s.near_ref : s.far_ref;
                for (int i = 0; i < m.dof; ++i)
                    seed(i) = ref[i];
                const KDL::Frame goal = kdl_frame(s.target);
                const auto a = clock_type::now();
                const int rc =
                    solver == 0 ? nr.CartToJnt(seed, goal, out) : lma.CartToJnt(seed, goal, out);
                const double t = elapsed_us(a, clock_type::now());
                double q[7] = {};
                wrap_into_limits(m, out, q);
                kdl[solver].add(t, rc >= 0 && reaches(m, s.target, q) && within_limits(m, q));
            }
        }
        std::printf("  %-7s %-10s %s\n", "", "KDL NR_JL", kdl[0].row().c_str());
        std::printf("  %-7s %-10s %s\n", "", "KDL LMA", kdl[1].row().c_str());
#endif
    }
}

// Path following: straight Cartesian lines of 5-20 cm from random starts
// within the inner 90 % of every joint's range, every other one turning the
// orientation by up to 60 degrees about a fixed axis, sampled every 1 mm and
// every 0.5 degrees; each sample solved through the exported call with the
// previous sample's answer as the reference (a path ends where a sample
// fails). Microseconds per sample.
void run_paths(int type, int n_paths) {
    const model_under_test m = load_model(type);
    ka_algo_init_sys_data(static_cast<ka_robot_arm_model_e>(type), KA_FORCE_TYPE_B);
    random_source rng(7000u + type);
    stats per_sample;
    int ended = 0;
    for (int k = 0; k < n_paths; ++k) {
        double q[7] = {};
        for (int i = 0; i < m.dof; ++i) {
            const double lo = m.limits.lo[i], hi = m.limits.hi[i], margin = 0.05 * (hi - lo);
            q[i] = rng.uniform(lo + margin, hi - margin);
        }
        const ik_frame from = dh_product(m.dh, m.dof, q);
        double dir[3] = {rng.uniform(-1, 1), rng.uniform(-1, 1), rng.uniform(-1, 1)}, axis[3];
        const double length = rng.uniform(0.05, 0.2), dn = std::hypot(dir[0], dir[1], dir[2]);
        for (double &c : axis)
            c = rng.uniform(-1, 1);
        const double an = std::hypot(axis[0], axis[1], axis[2]);
        const double turn = k % 2 ? rng.uniform(0.0, 60.0 * k_deg) : 0.0;
        const int n = std::max(static_cast<int>(std::ceil(length / 1e-3)),
                               static_cast<int>(std::ceil(turn / (0.5 * k_deg))));
        ka_inverse_kinematics_params_t p{};
        to_reference_degrees(m, q, p.q_in);
        p.q_flag = 1;
        for (int s = 1; s <= n; ++s) {
            const double f = static_cast<double>(s) / n, angle = f * turn;
            // Rodrigues: the turn about the axis, in the tool's own frame.
            const double u[3] = {axis[0] / an, axis[1] / an, axis[2] / an};
            const double c = std::cos(angle), sn = std::sin(angle), v = 1.0 - c;
            const double Rt[3][3] = {
                {c + u[0] * u[0] * v, u[0] * u[1] * v - u[2] * sn, u[0] * u[2] * v + u[1] * sn},
                {u[1] * u[0] * v + u[2] * sn, c + u[1] * u[1] * v, u[1] * u[2] * v - u[0] * sn},
                {u[2] * u[0] * v - u[1] * sn, u[2] * u[1] * v + u[0] * sn, c + u[2] * u[2] * v}};
            ka_matrix_t T{};
            T.rows = T.columns = 4;
            for (int r = 0; r < 3; ++r) {
                for (int j = 0; j < 3; ++j)
                    T.data[r][j] =
                        static_cast<float>(from.R[r][0] * Rt[0][j] + from.R[r][1] * Rt[1][j] +
                                           from.R[r][2] * Rt[2][j]);
                T.data[r][3] = static_cast<float>(from.p[r] + f * dir[r] * length / dn);
            }
            T.data[3][3] = 1.0f;
            p.q_pose = algo_matrix_to_pose(T);
            float out[7];
            const auto a = clock_type::now();
            const int rc = ka_algo_inverse_kinematics(nullptr, p, out);
            const double t = elapsed_us(a, clock_type::now());
            per_sample.add(t, rc == 0);
            if (rc != 0) {
                ++ended;
                break;
            }
            std::copy(out, out + 7, p.q_in);
        }
    }
    double sum = 0.0;
    for (double t : per_sample.us)
        sum += t;
    std::printf("  %-7s %-10s %s   mean %6.2f, %zu samples, %d of %d paths ended early\n", "paths",
                "library", per_sample.row().c_str(),
                per_sample.us.empty() ? 0.0 : sum / per_sample.us.size(), per_sample.us.size(),
                ended, n_paths);
}

// A model argument: a type number, or a model's name in any case with or
// without its spaces ("QUIL", "maro ii", "MAROII"); -1 when it names none.
int model_argument(const char *arg) {
    char *end = nullptr;
    const long type = std::strtol(arg, &end, 10);
    if (end != arg && *end == '\0') return static_cast<int>(type);
    const auto letters = [](const char *text) {
        std::string s;
        for (const char *c = text; *c; ++c)
            if (std::isalnum(static_cast<unsigned char>(*c)))
                s += static_cast<char>(std::toupper(static_cast<unsigned char>(*c)));
        return s;
    };
    for (int type : {0, 3, 4, 5, 6, 8, 1, 7})
        if (letters(arg) == letters(model_params_for(type)->name)) return type;
    return -1;
}

} // namespace

int main(int argc, char **argv) {
    const int n = argc > 1 ? std::max(100, std::atoi(argv[1])) : 10000;
    std::printf("inverse kinematics: per solve, microseconds; %d targets per model\n", n);
#ifndef KA_HAVE_KDL
    std::printf("(built without Orocos KDL: reference solvers not run)\n");
#endif
    // A first, untimed pass brings the clock and the caches up to speed.
    run_model(0, std::min(n, 1000), false);
    // A second argument picks one model, by type number or name.
    const int only = argc > 2 ? model_argument(argv[2]) : -1;
    if (argc > 2 && only < 0) {
        std::fprintf(stderr, "unknown model '%s': a type number or a model name\n", argv[2]);
        return 2;
    }
    // A third argument sets the number of paths per model (default 300).
    const int paths = argc > 3 ? std::max(0, std::atoi(argv[3])) : 300;
    for (int type : {0, 3, 4, 5, 6, 8, 1, 7}) {
        if (only >= 0 && type != only) continue;
        run_model(type, n, true);
        if (paths > 0) run_paths(type, paths);
    }
    return 0;
}
