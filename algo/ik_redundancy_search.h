// The search along a seven-axis arm's redundancy parameter, shared by both
// arm families: for a fixed value of the parameter each arm has a closed form
// with eight branches (an Arm class: groups of members followed continuously
// along the parameter); this one-dimensional search finds the in-limit
// solution nearest to the reference. Because every point of the search is an
// exact solution, the search decides only how near the answer is, never how
// accurate it is. A template so that each arm's closed form is inlined into
// its search (ik_lune.cpp and ik_quil.cpp instantiate it).
#pragma once

#include "algo/ik_seven_axis.h"

#include <algorithm>

namespace ik7 {

// ------------------------------------------------------ redundancy search

// Grid step of a traversal and of its finer second pass, radians.
inline constexpr double k_coarse_step = 0.1;
inline constexpr double k_fine_step = 0.02;
// Grid step of strategy 0's search for every local minimum, radians.
inline constexpr double k_minimum_step = 0.05;
// Finite-difference step of the descent's derivative, radians.
inline constexpr double k_diff_step = 1e-6;
// A descent's predicted next step that moves the joints by less than this
// is not taken, rad.
inline constexpr double k_settled_step = 1e-5;
// Bisections of a descent step that leaves the limits onto their boundary.
inline constexpr int k_limit_bisections = 10;
// How far inside its limits a point found by bisection onto them stays, rad:
// the final polish onto the target may move a joint by about 1e-6 rad.
inline constexpr double k_boundary_margin = 1e-5;
// Smallest outward probe step of strategy 1, radians.
inline constexpr double k_min_probe = 0.02;
// First step (arms that cannot say where their groups have solutions) and
// reach of strategy 1's search for a start of a group other than the
// reference's own, radians of the parameter.
inline constexpr double k_near_probe = 0.08;
inline constexpr double k_near_reach = 0.64;
// The shoulder is aligned where joint 2 is at 0 (LUNE's wrist where joint 6
// is): joints 1 and 3 then turn about one line and only their sum is
// defined. Where a group passes within k_aligned_band of that (rad of joint
// 2), its joints 1 and 3 swing through half a turn within about joint 2's
// least value over its rate along the parameter (QUIL's last joint even
// stands still there): too narrow for the descent, so the passage is found
// on its own and the answer taken along the self-motion in the joints. A
// reference whose joint 2 is within k_aligned_seed of 0 has such a passage
// looked for.
inline constexpr double k_aligned_band = 0.05;
inline constexpr double k_aligned_seed = 0.35;
// An answer whose middle joint is within this of the alignment (sine) lies
// beside the passage: the descent may have stopped on the wrong side of it.
inline constexpr double k_beside_alignment = 2.0 * k_aligned_band;

// Finite-difference step of the tilt's derivatives, radians of the parameter.
inline constexpr double k_tilt_diff_step = 2e-4;
// First step of the stepped search for the least tilt, radians of the parameter.
inline constexpr double k_tilt_first_step = 0.005;
// Radians of the parameter: a Newton step on the tilt shorter than the
// first ends the search for its least value, and so does one shorter than
// the second that no halving of it lowers the tilt.
inline constexpr double k_tilt_settled = 1e-8;
inline constexpr double k_tilt_converged = 1e-5;
// Alignments of one group closer than this are one, radians of the parameter.
inline constexpr double k_same_alignment = 0.02;
// Steps along the self-motion from the nearest point found at an alignment.
inline constexpr int k_alignment_steps = 5;
// Where strategy 1 looks beside each refined start, radians of the parameter.
inline constexpr double k_near_offsets[] = {-0.25, 0.25};
// An answer none of whose joints is farther than this from the reference
// is neither looked beside nor swept for other intervals, rad.
inline constexpr double k_close_gap = 0.3;
// Nor is an answer with a joint farther than this swept, rad: from a far
// reference the sweep would enter most intervals, for little gain.
inline constexpr double k_sweep_gap = 1.0;

inline double max_joint_gap(const double a[7], const double b[7]) {
    double gap = 0.0;
    for (int i = 0; i < 7; ++i)
        gap = std::max(gap, std::fabs(a[i] - b[i]));
    return gap;
}

// A point of the search: parameter, group and the joints of the member
// followed there.
struct search_point {
    double p = 0.0;
    int g = 0;
    double q[7] = {};
    double cost = k_inf;
};

template <class Arm> class redundancy_search {
  public:
    redundancy_search(const Arm &arm, const dh_table &dh, const ik_frame &flange,
                      const double ref[7], const ik_limits &limits)
        : arm_(arm), dh_(dh), flange_(flange), limits_(limits) {
        for (int i = 0; i < 7; ++i) {
            ref_[i] = ref[i];
            off_[i] = dh.offset[i];
            ref_t_[i] = ref[i] + off_[i];
        }
    }

    int run(ik_redundancy settings, double out[7]) {
        const double p0 =
            clamp_param(arm_.reference_parameter(ref_t_, arm_.reference_group(ref_t_)));
        const double range = std::max(static_cast<double>(settings.range), 1e-3);
        if (settings.strategy != 0) {
            near_search(std::max(range, k_min_probe));
            if (!found_) traverse(lowest(p0), highest(p0));
        } else {
            // Strategy 0: every local minimum in the window, which includes
            // what the local search finds there.
            const double lo = std::max(p0 - range, lowest(p0)),
                         hi = std::min(p0 + range, highest(p0));
            window_lo_ = std::max(lo, arm_.lower());
            window_hi_ = std::min(hi, arm_.upper());
            thorough_ = true;
            near_search(std::max(range, k_min_probe));
            every_minimum();
            if (!found_) traverse(lo, hi);
            if (!found_) traverse(lowest(p0), highest(p0));
        }
        if (!found_) return k_ik_no_solution;
        std::copy(best_, best_ + 7, out);
        return k_ik_ok;
    }

  private:
    const Arm &arm_;
    const dh_table &dh_;
    const ik_frame &flange_;
    const ik_limits &limits_;
    double ref_[7], off_[7], ref_t_[7];
    bool found_ = false;
    bool thorough_ = false; // strategy 0
    double best_cost_ = k_inf;
    double best_[7]{};
    double best_p_ = 0.0; // parameter and group of the best
    int best_g_ = -1;
    // Alignments already searched: group, middle joint and parameter.
    static constexpr int k_max_alignments = 8;
    int n_aligned_ = 0;
    int aligned_g_[k_max_alignments]{}, aligned_j_[k_max_alignments]{};
    double aligned_p_[k_max_alignments]{};
    double window_lo_ = arm_.lower(), window_hi_ = arm_.upper();

    // Whole range of the parameter: the joint's limits, or one turn about p0.
    double lowest(double p0) const { return arm_.bounded() ? arm_.lower() : p0 - k_pi; }
    double highest(double p0) const { return arm_.bounded() ? arm_.upper() : p0 + k_pi; }
    // The parameter's admissible range: the arm's, narrowed to the window of
    // a traversal while one runs.
    double clamp_param(double p) const { return std::clamp(p, window_lo_, window_hi_); }

    // Joint values of a member: each wrapped nearest to `near` (the
    // reference, or the previous point of a path), the parameter joint (if
    // any) taken as is.
    void to_joints(const double theta[7], const double near[7], double q[7]) const {
        for (int i = 0; i < 7; ++i) {
            const double raw = theta[i] - off_[i];
            q[i] = i == Arm::param_joint ? raw : near[i] + ik_wrap_pi(raw - near[i]);
        }
    }

    double cost(const double q[7]) const { return ik_joint_distance2(q, ref_, 7); }

    // The joints brought into the limits (a joint whose representative
    // nearest to the reference lies outside may fit a turn away).
    bool fit(const double q[7], double fitted[7]) const {
        return find_nearest_joint(q, 7, ref_, limits_, fitted);
    }

    void offer(const search_point &sp) {
        double fitted[7];
        if (!fit(sp.q, fitted)) return;
        const double c = cost(fitted);
        if (c < best_cost_) {
            best_cost_ = c;
            std::copy(fitted, fitted + 7, best_);
            best_p_ = sp.p;
            best_g_ = sp.g;
            found_ = true;
        }
    }

    // The member of group g at p nearest to q_prev (a path crossing an
    // aligned shoulder or wrist changes the member that continues it).
    bool follow(double p, int g, const double q_prev[7], double q[7]) const {
        double theta[Arm::members][7];
        if (!arm_.eval_group(p, g, ref_t_, theta)) return false;
        double best = k_inf;
        for (int m = 0; m < Arm::members; ++m) {
            double qm[7];
            to_joints(theta[m], q_prev, qm);
            const double d = ik_joint_distance2(qm, q_prev, 7);
            if (d < best) {
                best = d;
                std::copy(qm, qm + 7, q);
            }
        }
        return best < k_inf; // false when every member came out non-finite
    }

    // The member of group g at p nearest to the reference.
    bool start(double p, int g, search_point *sp) const {
        if (!follow(p, g, ref_, sp->q)) return false;
        sp->p = p;
        sp->g = g;
        sp->cost = cost(sp->q);
        return true;
    }

    // Gauss-Newton on the squared joint distance along the parameter,
    // following one group. With in_limits_only the point starts within the
    // limits, its joints are kept fitted into them, and steps that leave
    // them are refused.
    void descend_impl(search_point &sp, bool in_limits_only, bool fitted) const {
        // Gauss-Newton along the parameter. The joints' derivative comes from
        // the previous point of the path when it is close, else from a
        // finite difference; the slope's derivative from the slopes of
        // successive points when that is convex, else J.J.
        double prev_p = 0.0, prev_q[7], prev_slope = 0.0;
        bool have_prev = false;
        for (int it = 0; it < 16; ++it) {
            double J[7];
            const double span = sp.p - prev_p;
            if (have_prev && std::fabs(span) > 1e-9 && std::fabs(span) < 0.05) {
                for (int i = 0; i < 7; ++i)
                    J[i] = ik_wrap_pi(sp.q[i] - prev_q[i]) / span;
            } else {
                double qh[7] = {};
                double h = k_diff_step;
                if (clamp_param(sp.p + h) != sp.p + h || !follow(sp.p + h, sp.g, sp.q, qh)) {
                    h = -h;
                    if (clamp_param(sp.p + h) != sp.p + h || !follow(sp.p + h, sp.g, sp.q, qh))
                        return;
                }
                for (int i = 0; i < 7; ++i)
                    J[i] = (qh[i] - sp.q[i]) / h;
            }
            double slope = 0.0, H = 0.0;
            for (int i = 0; i < 7; ++i) {
                slope += J[i] * (sp.q[i] - ref_[i]);
                H += J[i] * J[i];
            }
            if (H < 1e-12) return;
            double curvature = H;
            if (have_prev && std::fabs(span) > 1e-9) {
                const double secant = (slope - prev_slope) / span;
                if (secant > 0.1 * H) curvature = secant;
            }
            double dp = std::clamp(-slope / curvature, -0.5, 0.5);
            // After a step, the secant's next step (its curvature taken
            // from the last two points) moving the joints by less than
            // k_settled_step is not worth an evaluation: the point is
            // already that near its optimum.
            if (have_prev && curvature != H && std::fabs(dp) * std::sqrt(H) < k_settled_step)
                return;
            bool accepted = false;
            double outside_p = k_inf;
            for (int k = 0; k < 5 && !accepted; ++k, dp *= 0.5) {
                const double pn = clamp_param(sp.p + dp);
                double qn[7];
                if (pn == sp.p || !follow(pn, sp.g, sp.q, qn)) continue;
                if (in_limits_only && (fitted ? !fit(qn, qn) : !near_in_limits(qn))) {
                    outside_p = pn;
                    continue;
                }
                const double cn = cost(qn);
                if (cn < sp.cost) {
                    accepted = true;
                    dp = pn - sp.p;
                    prev_p = sp.p;
                    prev_slope = slope;
                    std::copy(sp.q, sp.q + 7, prev_q);
                    have_prev = true;
                    sp.p = pn;
                    sp.cost = cn;
                    std::copy(qn, qn + 7, sp.q);
                }
            }
            // Every step left the limits, the shortest at outside_p: the
            // nearest point may lie on a limit short of it. Where that
            // boundary point is nearer, it is the constrained optimum. Only
            // strategy 0 looks: in strategy 1 it would seldom gain for its
            // cost.
            if (!accepted && outside_p < k_inf && !fitted && thorough_) {
                search_point in = sp;
                onto_limits(&in, outside_p, k_limit_bisections);
                if (in.cost < sp.cost) sp = in;
                return;
            }
            // The parameter decides only how near the solution is: stop once
            // a step moves the joints by less than 1e-4 rad.
            if (!accepted || std::fabs(dp) * std::sqrt(H) < 1e-4) return;
        }
    }

    // Every joint's representative nearest to the reference within its
    // limits: the continuous reading the descent of strategy 1 follows.
    bool near_in_limits(const double q[7], double slack = k_limit_slack) const {
        for (int i = 0; i < 7; ++i)
            if (!(q[i] >= limits_.lo[i] - slack && q[i] <= limits_.hi[i] + slack)) return false;
        return true;
    }

    // Gauss-Newton in the reading nearest to the reference; with
    // in_limits_only steps that leave the limits in that reading are refused.
    void descend_near(search_point &sp, bool in_limits_only) const {
        descend_impl(sp, in_limits_only, false);
    }
    // The same with the joints kept fitted into the limits (a turn away if need be).
    void descend_fitted(search_point &sp) const { descend_impl(sp, true, true); }

    // Strategy 1 from a start: the group's nearest point; if that leaves the
    // limits, the nearest in-limit points on either side of it.
    void refine_near(search_point sp) {
        if (near_in_limits(sp.q)) {
            descend_near(sp, true);
            // Stopped on a limit: the unconstrained optimum may lie beyond it
            // or back inside; only the latter can be nearer.
        } else {
            descend_near(sp, false);
        }
        if (near_in_limits(sp.q)) {
            offer(sp);
            return;
        }
        // The group's unconstrained optimum bounds its in-limit points from
        // below: no boundary search when it cannot beat what is found.
        if (sp.cost >= best_cost_) return;
        for (double dir : {-1.0, 1.0}) {
            search_point inside;
            if (boundary(sp, dir, &inside)) {
                descend_near(inside, true);
                offer(inside);
            }
        }
    }

    // The joints of the reading nearest to the reference brought into the
    // limits by whole turns, where each joint outside them fits a turn away
    // (cheaper than fit(), for samples).
    bool fit_by_turns(const double q[7], double fitted[7]) const {
        for (int i = 0; i < 7; ++i) {
            const double lo = limits_.lo[i] - k_limit_slack, hi = limits_.hi[i] + k_limit_slack;
            fitted[i] = q[i];
            if (q[i] < lo) fitted[i] += k_two_pi;
            if (q[i] > hi) fitted[i] -= k_two_pi;
            if (!(fitted[i] >= lo && fitted[i] <= hi)) return false;
        }
        return true;
    }

    // A point within the limits moved towards the parameter `outside`,
    // beyond them, by bisection onto their boundary (kept
    // k_boundary_margin inside); its cost updated.
    void onto_limits(search_point *in, double outside, int bisections) const {
        for (int k = 0; k < bisections; ++k) {
            search_point mid;
            mid.g = in->g;
            mid.p = 0.5 * (in->p + outside);
            if (!follow(mid.p, mid.g, in->q, mid.q)) break;
            if (near_in_limits(mid.q, -k_boundary_margin))
                *in = mid;
            else
                outside = mid.p;
        }
        in->cost = cost(in->q);
    }

    // How far joint i lies outside its limits (negative inside).
    double excess(const double q[7], int i) const {
        return std::max(q[i] - limits_.hi[i], limits_.lo[i] - q[i]) - k_limit_slack;
    }

    // Where between two out-of-limit points of a path the joints would all
    // be within their limits if each moved linearly: a stretch where one
    // joint has come back in and another not yet left, shorter than the
    // step between the points. The fraction of the way, or -1 if none.
    double predicted_inside(const double q_a[7], const double q_b[7]) const {
        double s_lo = 0.0, s_hi = 1.0;
        for (int i = 0; i < 7; ++i) {
            const double ea = excess(q_a, i), eb = excess(q_b, i);
            if (ea > 0.0 && eb > 0.0) return -1.0;
            if (ea > 0.0)
                s_lo = std::max(s_lo, ea / (ea - eb));
            else if (eb > 0.0)
                s_hi = std::min(s_hi, ea / (ea - eb));
        }
        return s_lo < s_hi ? 0.5 * (s_lo + s_hi) : -1.0;
    }

    // From an out-of-limit point, the nearest parameter in direction dir
    // whose joints lie within the limits (outward steps doubling, then
    // bisection onto the boundary).
    bool boundary(const search_point &out_pt, double dir, search_point *inside) const {
        search_point last = out_pt;
        const bool near_reference = max_joint_gap(out_pt.q, ref_) <= k_sweep_gap;
        for (double step = 0.01; step < k_two_pi; step *= 2.0) {
            search_point probe;
            probe.g = out_pt.g;
            probe.p = clamp_param(out_pt.p + dir * step);
            if (!follow(probe.p, probe.g, last.q, probe.q)) {
                // Past the end of the group's solutions: up to that end,
                // from a point near the reference or in strategy 0.
                const double end = within_solutions(probe.g, last.p, probe.p);
                if (!(thorough_ || near_reference) || end == probe.p ||
                    !follow(end, probe.g, last.q, probe.q))
                    return false;
                probe.p = end;
            }
            if (!near_in_limits(probe.q)) {
                const double s = predicted_inside(last.q, probe.q);
                search_point mid;
                mid.g = out_pt.g;
                mid.p = last.p + s * (probe.p - last.p);
                if (s > 0.0 && follow(mid.p, mid.g, last.q, mid.q) && near_in_limits(mid.q))
                    probe = mid;
            }
            if (near_in_limits(probe.q)) {
                onto_limits(&probe, last.p, 12);
                *inside = probe;
                return true;
            }
            if (probe.p == last.p) return false;
            last = probe;
        }
        return false;
    }

    // Traversal samples: joints fitted into the limits, kept so.
    void refine_fitted(search_point sp) {
        double fitted[7];
        if (!fit(sp.q, fitted)) return;
        std::copy(fitted, fitted + 7, sp.q);
        sp.cost = cost(fitted);
        descend_fitted(sp);
        offer(sp);
    }

    // A group's start: its reference parameter, or when it has no solution
    // there the nearest parameter that has one within max_reach. An arm
    // that knows its groups' intervals gives that point at once; otherwise
    // it is probed for outward in steps of `step`, doubling.
    bool start_or_probe(int g, double step, search_point *sp, double max_reach = k_inf) const {
        const double pg = clamp_param(arm_.reference_parameter(ref_t_, g));
        if (start(pg, g, sp)) return true;
        if constexpr (k_has_intervals) {
            return start_in_intervals(g, pg, max_reach, sp);
        } else {
            const double span = std::min(highest(pg) - lowest(pg), max_reach);
            for (double reach = step; reach <= span; reach *= 2.0)
                for (double probe : {pg - reach, pg + reach})
                    if (clamp_param(probe) == probe && start(probe, g, sp)) return true;
            return false;
        }
    }

    // Arms whose parameter is a joint can say where along it each elbow sign
    // has solutions; asked once, when first needed.
    static constexpr bool k_has_intervals = requires(const Arm &a, solution_intervals *iv) {
        a.parameter_intervals(0.0, 0.0, iv);
    };
    mutable bool have_intervals_ = false;
    mutable solution_intervals intervals_;

    const solution_intervals &intervals() const {
        if constexpr (k_has_intervals)
            if (!have_intervals_) {
                arm_.parameter_intervals(arm_.lower(), arm_.upper(), &intervals_);
                have_intervals_ = true;
            }
        return intervals_;
    }

    // The point of [a, b] nearest to p, kept off the ends (where a cosine
    // rule just closes) unless the interval is narrower than that.
    static double inside(double p, double a, double b) {
        const double inset = std::min(1e-7, 0.5 * (b - a));
        return std::clamp(p, a + inset, b - inset);
    }

    // p kept within the interval where group g has solutions that holds
    // `from` (a path's next point), where the arm knows its intervals.
    double within_solutions(int g, double from, double p) const {
        if constexpr (k_has_intervals) {
            const int e = g >> 1, n = intervals().n[e];
            for (int k = 0; k < n; ++k) {
                const double a = intervals_.iv[e][k][0], b = intervals_.iv[e][k][1];
                if (from >= a && from <= b) return inside(p, a, b);
            }
        }
        return p;
    }

    // Group g's start at the point nearest to pg that has a solution within
    // the admissible range, at most max_reach away.
    bool start_in_intervals(int g, double pg, double max_reach, search_point *sp) const {
        const int e = g >> 1, n = intervals().n[e];
        const double(*iv)[2] = intervals_.iv[e];
        bool tried[solution_intervals::cap] = {};
        for (int attempt = 0; attempt < n; ++attempt) {
            int pick = -1;
            double pick_gap = max_reach, pick_p = 0.0;
            for (int k = 0; k < n; ++k) {
                const double a = std::max(iv[k][0], window_lo_), b = std::min(iv[k][1], window_hi_);
                if (tried[k] || a > b) continue;
                const double p = inside(pg, a, b);
                if (std::fabs(p - pg) <= pick_gap)
                    pick = k, pick_gap = std::fabs(p - pg), pick_p = p;
            }
            if (pick < 0) return false;
            tried[pick] = true;
            if (start(pick_p, g, sp)) return true;
        }
        return false;
    }

    // p brought into the admissible range, by whole turns where the
    // parameter is an angle without limits; false when it does not fit.
    bool admissible(double p, double *out) const {
        for (double turn : {0.0, k_two_pi, -k_two_pi}) {
            if (turn != 0.0 && arm_.bounded()) return false;
            if (clamp_param(p + turn) == p + turn) {
                *out = p + turn;
                return true;
            }
        }
        // A window of a whole turn short of the traversal's rounding.
        *out = p;
        return window_hi_ - window_lo_ >= k_two_pi - 0.01;
    }

    // sin^2 of the middle joint j of an aligning triple at p on group g:
    // the squared tilt of its middle axis, smooth along the parameter (the
    // joint itself has a corner where it passes 0). The same for every
    // member of the group.
    bool tilt2(int j, double p, int g, double *h) const {
        return admissible(p, &p) && arm_.aligning_tilt2(j, p, g, h) && std::isfinite(*h);
    }

    // The tilt's slope and curvature at p (where it is h0) by finite
    // differences, one-sided where p is at the end of the group's solutions.
    bool tilt_derivatives(int j, double p, int g, double h0, double *slope, double *curvature,
                          bool *one_sided = nullptr) const {
        const double d = k_tilt_diff_step;
        double hm = 0.0, hp = 0.0, h2 = 0.0;
        const bool below = tilt2(j, p - d, g, &hm), above = tilt2(j, p + d, g, &hp);
        if (one_sided) *one_sided = !(below && above);
        if (below && above) {
            *slope = (hp - hm) / (2.0 * d);
            *curvature = (hp - 2.0 * h0 + hm) / (d * d);
        } else if (above && tilt2(j, p + 2.0 * d, g, &h2)) {
            *slope = (-3.0 * h0 + 4.0 * hp - h2) / (2.0 * d);
            *curvature = (h0 - 2.0 * hp + h2) / (d * d);
        } else if (below && tilt2(j, p - 2.0 * d, g, &h2)) {
            *slope = (3.0 * h0 - 4.0 * hm + h2) / (2.0 * d);
            *curvature = (h0 - 2.0 * hm + h2) / (d * d);
        } else {
            return false;
        }
        return std::isfinite(*slope) && std::isfinite(*curvature);
    }

    // The least tilt from p (where it is *h) in direction dir: steps
    // doubling from k_tilt_first_step while the tilt falls and the group
    // has solutions, then golden-section search in the last bracket.
    bool least_tilt_by_steps(int j, int g, double dir, double *p, double *h) const {
        double a = *p, b = *p, hb = *h, c = *p;
        bool bracketed = false;
        for (double step = k_tilt_first_step; step < 0.5 && !bracketed; step *= 2.0) {
            double pc = 0.0, hc = 0.0;
            if (!admissible(b + dir * step, &pc) || !tilt2(j, pc, g, &hc)) {
                c = b + dir * 0.5 * step; // up to the end of the solutions, roughly
                if (!admissible(c, &pc) || !tilt2(j, pc, g, &hc)) c = b;
                bracketed = true;
                break;
            }
            if (hc >= hb) {
                c = pc;
                bracketed = true;
            } else {
                a = b, b = pc, hb = hc;
            }
        }
        if (!bracketed || a == c) {
            *p = b, *h = hb;
            return true;
        }
        constexpr double k_golden = 0.6180339887498949;
        double lo = std::min(a, c), hi = std::max(a, c);
        // Each round keeps one inner point (it divides the narrowed bracket
        // by the same ratio) and evaluates one new one.
        double x1 = hi - k_golden * (hi - lo), x2 = lo + k_golden * (hi - lo);
        double h1 = k_inf, h2 = k_inf;
        bool ok1 = tilt2(j, x1, g, &h1), ok2 = tilt2(j, x2, g, &h2);
        for (int it = 0; it < 10; ++it) {
            if (!ok1 && !ok2) break;
            if (ok1 && (!ok2 || h1 < h2)) {
                hi = x2;
                if (h1 < hb) b = x1, hb = h1;
                if (it == 9) break;
                x2 = x1, h2 = h1, ok2 = ok1;
                x1 = hi - k_golden * (hi - lo);
                h1 = k_inf;
                ok1 = tilt2(j, x1, g, &h1);
            } else {
                lo = x1;
                if (h2 < hb) b = x2, hb = h2;
                if (it == 9) break;
                x1 = x2, h1 = h2, ok1 = ok2;
                x2 = lo + k_golden * (hi - lo);
                h2 = k_inf;
                ok2 = tilt2(j, x2, g, &h2);
            }
        }
        *p = b, *h = hb;
        return true;
    }

    // A point near the alignment of the triple about joint j: that joint
    // within k_aligned_seed of 0.
    bool near_alignment(int j, const double q[7], double band = k_aligned_seed) const {
        return std::fabs(std::sin(q[j] + off_[j])) < band;
    }

    // A lower bound on the squared distance from the reference of any point
    // within k_aligned_band of the alignment about joint j: joint j alone
    // must come within asin(k_aligned_band) of a multiple of pi.
    double alignment_bound(int j) const {
        const double gap = std::fabs(std::remainder(ref_t_[j], k_pi)) - std::asin(k_aligned_band);
        return gap > 0.0 ? gap * gap : 0.0;
    }

    // Exactly at the alignment only the sum (or difference) of joints 1
    // and 3 is defined: the split nearest to the reference within the two
    // joints' limits, polished onto the target.
    void offer_split(int j, const search_point &at) {
        const int a = j - 1, c = j + 1;
        const double sign = std::cos(at.q[j] + off_[j]) >= 0.0 ? -1.0 : 1.0; // c per a
        double q[7];
        std::copy(at.q, at.q + 7, q);
        // Joint a moves by d, joint c by sign * d.
        double d = 0.5 * ((ref_[a] - q[a]) + sign * (ref_[c] - q[c]));
        const double lo =
            std::max(limits_.lo[a] - q[a], sign > 0 ? limits_.lo[c] - q[c] : q[c] - limits_.hi[c]);
        const double hi =
            std::min(limits_.hi[a] - q[a], sign > 0 ? limits_.hi[c] - q[c] : q[c] - limits_.lo[c]);
        if (!(lo <= hi)) return;
        d = std::clamp(d, lo + k_boundary_margin,
                       std::max(lo + k_boundary_margin, hi - k_boundary_margin));
        q[a] += d;
        q[c] += sign * d;
        if (!ik_polish(dh_, 7, flange_, q, k_polish_tolerance) || !near_in_limits(q)) return;
        search_point sp = at;
        std::copy(q, q + 7, sp.q);
        offer(sp);
    }

    // From a point of group g near the alignment about joint j: the
    // parameter where the tilt is least, by Newton's method on its square
    // (nearly a parabola there, rate^2 (p - p_v)^2 + tilt^2), or by steps
    // where it is not (QUIL's last joint stands still where joints 1 and 3
    // trade angle, so there the tilt ends at the end of the group's
    // solutions). If the least tilt is within k_aligned_band, the point there
    // (with the split of the outer joints nearest to the reference's, within
    // their limits) is offered, and moved along the self-motion in the
    // joints, where the swing is a plain curve, to its nearest point.
    void follow_alignment(int j, double p, int g) {
        for (int k = 0; k < n_aligned_; ++k)
            if (aligned_g_[k] == g && aligned_j_[k] == j &&
                std::fabs(aligned_p_[k] - p) < k_same_alignment)
                return;
        double h0 = 0.0;
        bool stepped = false;
        if (!admissible(p, &p) || !tilt2(j, p, g, &h0)) return;
        for (int it = 0; it < 6 && h0 > 1e-16; ++it) {
            double slope, curvature;
            bool at_end = false;
            if (!tilt_derivatives(j, p, g, h0, &slope, &curvature, &at_end)) return;
            const bool parabola = curvature > 1e-9;
            // The parabola's least value: give up on a passage well outside
            // the band; at once only away from the end of the group's
            // solutions, where the tilt is no parabola.
            const double least = parabola ? h0 - slope * slope / (2.0 * curvature) : 0.0;
            if (parabola && (it > 0 || !at_end) && least > 4.0 * k_aligned_band * k_aligned_band)
                return;
            double dp = parabola ? std::clamp(-slope / curvature, -0.3, 0.3) : 0.0;
            // A step this short moves the joints of the point found by a
            // trifle: the tilt is at its least.
            if (parabola && std::fabs(dp) < k_tilt_settled) break;
            const double newton_dp = dp;
            double h_next = h0, p_next = p;
            bool moved = false;
            // Halved while it leaves the group's solutions or does not lower the tilt.
            for (int k = 0; k < 8 && !moved && parabola; ++k, dp *= 0.5)
                moved = admissible(p + dp, &p_next) && tilt2(j, p_next, g, &h_next) && h_next < h0;
            // Where Newton's steps fail or shrink (the tilt turning quickly
            // near the end of a group's solutions), steps instead, once.
            const bool stalled =
                !moved || (h_next > 0.5 * h0 && h_next > k_aligned_band * k_aligned_band);
            const bool settled = moved && std::fabs(p_next - p) < k_tilt_settled;
            const double dir = moved ? (p_next > p ? 1.0 : -1.0) : (slope > 0.0 ? -1.0 : 1.0);
            if (moved) p = p_next, h0 = h_next;
            if (settled) break;
            // The parabola's least value within k_tilt_converged, and no
            // shorter step lowers the tilt: the differences' rounding, not a
            // turn of the tilt, which the steps below (first k_tilt_first_step
            // away) would not find either.
            if (!moved && parabola && std::fabs(newton_dp) < k_tilt_converged) break;
            if (stalled) {
                if (stepped) break;
                stepped = true;
                const double from = p;
                least_tilt_by_steps(j, g, dir, &p, &h0);
                // Unmoved by either, the next round would repeat this one.
                if (!moved && p == from) break;
            }
        }
        if (!admissible(p, &p) || !tilt2(j, p, g, &h0) || h0 > k_aligned_band * k_aligned_band)
            return;
        for (int k = 0; k < n_aligned_; ++k)
            if (aligned_g_[k] == g && aligned_j_[k] == j &&
                std::fabs(aligned_p_[k] - p) < k_same_alignment)
                return;
        if (n_aligned_ < k_max_alignments)
            aligned_g_[n_aligned_] = g, aligned_j_[n_aligned_] = j, aligned_p_[n_aligned_++] = p;
        search_point best;
        if (start(p, g, &best)) {
            // Within ik_zyz's aligned band the split is already the reference's.
            if (near_in_limits(best.q))
                offer(best);
            else
                offer_split(j, best);
        }
        // In the joints the self-motion through the alignment is a plain
        // curve, wherever the parameter stands still or turns quickly.
        if (best.cost < k_inf &&
            ik_nearest_on_self_motion(dh_, flange_, ref_, limits_, best.q, k_alignment_steps))
            offer(best);
    }

    // Strategy 1. The reference's own group, and every group that starts
    // about as near, are refined nearest start first (so later ones meet a
    // tighter bound); an answer with a joint well away from the reference
    // is then looked beside, and checked against the intervals where other
    // groups have solutions; only when all that finds nothing within the
    // limits are the remaining groups refined, probing for a start where
    // they have none.
    void near_search(double step) {
        search_point starts[Arm::groups];
        bool ok[Arm::groups] = {}, done[Arm::groups] = {};
        const int own = arm_.reference_group(ref_t_);
        // Another group without a solution at its reference parameter may
        // have one a little way off: the reference's group is read from its
        // joints, and near the boundary between groups the target's can differ.
        for (int g = 0; g < Arm::groups; ++g)
            ok[g] = g == own ? start_or_probe(g, step, &starts[g])
                             : start_or_probe(g, k_near_probe, &starts[g], k_near_reach);
        const double own_best = ok[own] ? starts[own].cost : k_inf;
        auto refine_in_order = [&](auto wanted) {
            int order[Arm::groups], n = 0;
            for (int g = 0; g < Arm::groups; ++g) {
                if (!ok[g] || done[g] || !wanted(g)) continue;
                int i = n++;
                for (; i > 0 && starts[order[i - 1]].cost > starts[g].cost; --i)
                    order[i] = order[i - 1];
                order[i] = g;
            }
            for (int i = 0; i < n; ++i) {
                done[order[i]] = true;
                refine_near(starts[order[i]]);
            }
        };
        refine_in_order([&](int g) { return g == own || starts[g].cost < 1.5 * own_best; });
        // A reference near an alignment: the passage through it is looked
        // for from the reference's group (and the group it meets there) and
        // from the best answer, unless the best found is already nearer
        // than any point at the alignment can be. An answer with every joint
        // within k_close_gap of a reference that is not itself at the
        // alignment is taken as it is, unless the answer lies beside the
        // passage (within k_beside_alignment), where the swing of the outer
        // joints may have carried the descent past the nearer side; in
        // strategy 0 every passage is looked at.
        const bool settled = !thorough_ && found_ && max_joint_gap(best_, ref_) <= k_close_gap;
        for (int j : Arm::aligning_joints) {
            if (!near_alignment(j, ref_)) continue;
            if (settled && !near_alignment(j, ref_, k_aligned_band) &&
                !near_alignment(j, best_, k_beside_alignment))
                continue;
            const double bound = alignment_bound(j);
            auto worth = [&] { return !found_ || best_cost_ > bound; };
            bool followed[Arm::groups] = {};
            for (int g : {own, Arm::partner(own)})
                if (ok[g] && !followed[g] && worth())
                    follow_alignment(j, starts[g].p, g), followed[g] = true;
            if (found_ && near_alignment(j, best_) && worth())
                follow_alignment(j, best_p_, best_g_);
        }
        // The distance along the parameter need not fall steadily towards
        // the nearest solution: another member's path can pass nearer a
        // little way off. Unless every joint of the best found is already
        // close to the reference, points of the own group on either side
        // that beat it are refined too.
        const bool close = found_ && max_joint_gap(best_, ref_) <= k_close_gap;
        for (double offset : k_near_offsets) {
            if (close) break;
            search_point side;
            if (ok[own] && start(clamp_param(starts[own].p + offset), own, &side) &&
                side.cost < best_cost_)
                refine_near(side);
        }
        if (!close && max_joint_gap(best_, ref_) <= k_sweep_gap) sweep_intervals(starts, done);
        if (found_) return;
        for (int g = 0; g < Arm::groups; ++g)
            if (!ok[g]) ok[g] = start_or_probe(g, step, &starts[g]);
        refine_in_order([](int) { return true; });
    }

    // Where the arm knows in which intervals of its parameter each group has
    // solutions (the parameter is a joint): a solution nearer than the best
    // found has its parameter within the best's distance of the
    // reference's, so the groups' intervals there are entered too, each at
    // its point nearest the reference's parameter, unless a start refined
    // before lies in it. This finds solutions in intervals too narrow for
    // the descent to meet, and in groups whose start was not refined.
    void sweep_intervals(const search_point starts[], const bool refined[]) {
        if constexpr (k_has_intervals) {
            const double p_ref = ref_t_[Arm::param_joint];
            const double reach = std::sqrt(best_cost_);
            const double lo = std::max(p_ref - reach, window_lo_),
                         hi = std::min(p_ref + reach, window_hi_);
            const solution_intervals &list = intervals();
            // Each interval's lower bound on the distance from joints 6 and
            // 3 alone; the most promising are entered first, so that later
            // ones meet a tighter best.
            struct candidate {
                double a, b, bound;
                int e;
            } cand[2 * solution_intervals::cap];
            int n = 0;
            for (int e = 0; e < 2; ++e) {
                for (int k = 0; k < list.n[e]; ++k) {
                    const double a = std::max(list.iv[e][k][0], lo),
                                 b = std::min(list.iv[e][k][1], hi);
                    if (a > b) continue;
                    const double gap6 = std::max({a - p_ref, p_ref - b, 0.0});
                    const double gap3 = arm_.elbow_gap(e, a, b, ref_t_[3]);
                    cand[n++] = {a, b, gap6 * gap6 + gap3 * gap3, e};
                }
            }
            std::sort(cand, cand + n,
                      [](const candidate &x, const candidate &y) { return x.bound < y.bound; });
            for (int k = 0; k < n && cand[k].bound < best_cost_; ++k) {
                const double p = inside(p_ref, cand[k].a, cand[k].b);
                for (int f = 0; f < 2; ++f) {
                    const int g = 2 * cand[k].e + f;
                    search_point sp;
                    if (refined[g] && starts[g].p >= cand[k].a && starts[g].p <= cand[k].b)
                        continue;
                    if (start(p, g, &sp)) refine_near(sp);
                }
            }
        }
    }

    // Strategy 0's sample points of group g across the window: a grid, and
    // the ends of the intervals where the group has solutions (where its
    // joints move fastest along the parameter), ascending.
    static constexpr int k_max_grid = 256, k_max_samples = 320;
    int sample_points(int g, double ps[k_max_samples]) const {
        const double lo = window_lo_, hi = window_hi_;
        const int n_grid =
            std::clamp(static_cast<int>(std::ceil((hi - lo) / k_minimum_step)) + 1, 2, k_max_grid);
        int n = 0;
        for (int k = 0; k < n_grid; ++k)
            ps[n++] = lo + (hi - lo) * k / (n_grid - 1);
        if constexpr (k_has_intervals) {
            const int e = g >> 1;
            for (int k = 0; k < intervals().n[e] && n + 2 <= k_max_samples; ++k) {
                const double a = intervals_.iv[e][k][0], b = intervals_.iv[e][k][1];
                for (double end : {inside(a, a, b), inside(b, a, b)})
                    if (end >= lo && end <= hi) ps[n++] = end;
            }
            std::sort(ps, ps + n);
        }
        return n;
    }

    // Strategy 0's thorough pass: sample the window on every group and
    // descend from every sample nearer to the reference than its
    // neighbours on its member's path, nearest first.
    void every_minimum() {
        if (!(window_lo_ <= window_hi_)) return;
        constexpr int k_max_minima = 64;
        struct minimum {
            search_point sp;
            bool fitted;
        } minima[k_max_minima];
        int n_minima = 0;
        for (int g = 0; g < Arm::groups; ++g) {
            double ps[k_max_samples];
            const int n = sample_points(g, ps);
            // Per member and reading (nearest to the reference; fitted into
            // the limits), the previous two samples of its path (cost k_inf
            // where the group has no solution or the joints do not fit).
            search_point prev[Arm::members][2][2];
            for (int k = 0; k <= n; ++k) {
                double theta[Arm::members][7];
                const bool ok = k < n && arm_.eval_group(ps[k], g, ref_t_, theta);
                for (int m = 0; m < Arm::members; ++m) {
                    search_point cur[2];
                    if (ok) {
                        cur[0].p = ps[k];
                        cur[0].g = g;
                        to_joints(theta[m], ref_, cur[0].q);
                        cur[0].cost = cost(cur[0].q);
                        cur[1] = cur[0];
                        if (!near_in_limits(cur[0].q))
                            cur[1].cost = fit_by_turns(cur[0].q, cur[1].q) ? cost(cur[1].q) : k_inf;
                    }
                    // A fitted minimum within the limits as it stands is the
                    // nearest reading's too.
                    const bool same = near_in_limits(prev[m][0][1].q);
                    for (int r = 0; r < 2; ++r) {
                        const search_point &mid = prev[m][r][1];
                        if (mid.cost < k_inf && mid.cost <= prev[m][r][0].cost &&
                            mid.cost <= cur[r].cost && n_minima < k_max_minima && !(r == 1 && same))
                            minima[n_minima++] = {mid, r == 1};
                        prev[m][r][0] = prev[m][r][1];
                        prev[m][r][1] = cur[r];
                    }
                }
            }
        }
        std::sort(minima, minima + n_minima,
                  [](const minimum &x, const minimum &y) { return x.sp.cost < y.sp.cost; });
        for (int k = 0; k < n_minima; ++k) {
            // A joint parameter bounds the distance from below.
            if constexpr (Arm::param_joint >= 0) {
                const double gap = std::max(
                    std::fabs(minima[k].sp.p - ref_t_[Arm::param_joint]) - k_minimum_step, 0.0);
                if (gap * gap >= best_cost_) continue;
            }
            // The fitted reading jumps a turn where a joint meets its limit,
            // which makes a minimum of its own there: only one that beats
            // the best found is refined.
            if (!minima[k].fitted)
                refine_near(minima[k].sp);
            else if (minima[k].sp.cost < best_cost_)
                refine_fitted(minima[k].sp);
        }
    }

    // Strategy 0 and the fall-back of 1: sample [lo, hi] on every group.
    // Per group, refine the nearest in-limit sample (joints fitted into the
    // limits) and the nearest sample of all in the reading nearest to the
    // reference, whose optimum may sit in a narrow in-limit window between
    // samples; both for the two groups with the nearest samples.
    void traverse(double lo, double hi) {
        window_lo_ = std::max(lo, arm_.lower());
        window_hi_ = std::min(hi, arm_.upper());
        for (double step : {k_coarse_step, k_fine_step}) {
            const int n = std::max(step == k_coarse_step ? 16 : 64,
                                   static_cast<int>(std::ceil((hi - lo) / step)) + 1);
            search_point fitted_best[Arm::groups], near_best[Arm::groups];
            for (int g = 0; g < Arm::groups; ++g)
                fitted_best[g].cost = near_best[g].cost = k_inf;
            for (int k = 0; k < n; ++k) {
                const double p = lo + (hi - lo) * k / (n - 1);
                for (int g = 0; g < Arm::groups; ++g) {
                    double theta[Arm::members][7];
                    if (!arm_.eval_group(p, g, ref_t_, theta)) continue;
                    for (int m = 0; m < Arm::members; ++m) {
                        search_point sp;
                        sp.p = p;
                        sp.g = g;
                        to_joints(theta[m], ref_, sp.q);
                        sp.cost = cost(sp.q);
                        if (sp.cost < near_best[g].cost) near_best[g] = sp;
                        if (!fit(sp.q, sp.q)) continue;
                        sp.cost = cost(sp.q);
                        if (sp.cost < fitted_best[g].cost) fitted_best[g] = sp;
                    }
                }
            }
            for (search_point *best : {fitted_best, near_best}) {
                for (int pass = 0; pass < 2; ++pass) {
                    int g_best = -1;
                    for (int g = 0; g < Arm::groups; ++g)
                        if (best[g].cost < k_inf &&
                            (g_best < 0 || best[g].cost < best[g_best].cost))
                            g_best = g;
                    if (g_best < 0) break;
                    if (best == fitted_best)
                        refine_fitted(best[g_best]);
                    else
                        refine_near(best[g_best]);
                    best[g_best].cost = k_inf;
                }
            }
            if (found_) return;
        }
    }
};
// A traversal range of at least this covers the whole parameter, rad.
inline constexpr float k_whole_range = 3.14f;

// The search's answer q, brought nearer to the reference where it can be
// (ik_redundancy_search.cpp). parameter_stalls: the arm's own test that its
// parameter stands still along the self-motion at the reference.
void bring_nearer(const dh_table &dh, const ik_frame &flange, const double q_ref[7],
                  const ik_limits &limits, bool parameter_stalls, double q[7]);

template <class Arm>
int solve_redundant(const Arm &arm, const dh_table &dh, const ik_frame &flange,
                    const double q_ref[7], const ik_limits &limits, ik_redundancy redundancy,
                    double q_out[7]) {
    redundancy_search<Arm> search(arm, dh, flange, q_ref, limits);
    double q[7];
    const int rc = search.run(redundancy, q);
    if (rc != k_ik_ok) return rc;
    // Every point of the search solves the target exactly except where a
    // cosine rule was clamped by the target's rounding, which near a
    // vanishing elbow offset (QUIL) or a stretched elbow is amplified; the
    // check is one product of the links, the polish a few Newton steps.
    if (!(ik_polish(dh, 7, flange, q, k_polish_tolerance) &&
          find_nearest_joint(q, 7, q_ref, limits, q)))
        return k_ik_no_solution;
    // A traversal of a narrowed window keeps its answer's parameter there.
    if (!(redundancy.strategy == 0 && redundancy.range < k_whole_range)) {
        double ref_t[7];
        for (int i = 0; i < 7; ++i)
            ref_t[i] = q_ref[i] + dh.offset[i];
        bring_nearer(dh, flange, q_ref, limits, Arm::parameter_stalls(ref_t), q);
    }
    std::copy(q, q + 7, q_out);
    return k_ik_ok;
}

} // namespace ik7
