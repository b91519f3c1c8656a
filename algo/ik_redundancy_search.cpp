// The last step of a seven-axis solve: the search's answer brought nearer to
// the reference along the self-motion, or by Newton's method from the
// reference.
#include "algo/ik_redundancy_search.h"

namespace ik7 {
namespace {

// Largest joint difference of an answer from its reference up to which it is
// moved along the self-motion, rad. A farther answer is left as the search
// found it: from far away the steps cost many polishes and seldom gain. So is
// one with every joint within k_close_gap: the search's descent has settled
// it, and a step would gain a trifle for its cost.
constexpr double k_self_motion_gap = 1.0;
// Largest joint difference of an answer from its reference beyond which the
// answer is checked against Newton's method started at the reference, rad.
constexpr double k_suspect_gap = 0.6;
// Newton's method is started at the reference only when its pose is off the
// target by at most this (metres and radians combined; a reference within
// 0.3 rad of a solution is off by less than 0.9), and given a handful of
// steps.
constexpr double k_reference_error_bound = 1.0;
constexpr int k_steps_from_reference = 6;
// Near the aligned shoulder: an answer with every joint this close to the
// reference is taken as it is (rad), and steps along the self-motion.
constexpr double k_settled_gap = 1e-3;
constexpr int k_aligned_steps = 6;
// Joint motion per pose error (metres and radians combined) up to which an
// answer counts as the reference's neighbour where the parameter stalls.
constexpr double k_stall_ratio = 2.0;

} // namespace

// The search's answer q, brought nearer to the reference where it can be:
// along the self-motion, and, when a joint stays far, by
// Newton's method started at the reference (where the search's closed form
// is ill-conditioned, QUIL's elbow offset vanishing, the search may not
// have reached the neighbourhood of a solution next to the reference).
void bring_nearer(const dh_table &dh, const ik_frame &flange, const double q_ref[7],
                  const ik_limits &limits, bool parameter_stalls, double q[7]) {
    // Where the search's parameter stands still along the self-motion (the
    // arm's own test), it describes the self-motion badly, while in the
    // joints it is a plain curve: the answer, and Newton's method from the
    // reference, are moved along it.
    if (parameter_stalls) {
        // An answer that moved no more than the reference's pose error
        // suggests is taken as it is.
        const double plausible =
            std::max(k_settled_gap, k_stall_ratio * ik_pose_error(dh, 7, flange, q_ref));
        if (max_joint_gap(q, q_ref) <= plausible) return;
        double moved[7];
        std::copy(q, q + 7, moved);
        if (ik_nearest_on_self_motion(dh, flange, q_ref, limits, moved, k_aligned_steps) &&
            ik_joint_distance2(moved, q_ref, 7) < ik_joint_distance2(q, q_ref, 7))
            std::copy(moved, moved + 7, q);
        if (max_joint_gap(q, q_ref) <= k_settled_gap) return;
        // A polish that stalls short of the target is still a start: every
        // point the steps keep is polished.
        std::copy(q_ref, q_ref + 7, moved);
        ik_polish(dh, 7, flange, moved, k_polish_tolerance, k_steps_from_reference,
                  k_reference_error_bound);
        if (std::equal(moved, moved + 7, q_ref)) return; // the reference is far off the target
        if (ik_nearest_on_self_motion(dh, flange, q_ref, limits, moved, k_aligned_steps) &&
            ik_joint_distance2(moved, q_ref, 7) < ik_joint_distance2(q, q_ref, 7))
            std::copy(moved, moved + 7, q);
        return;
    }
    const double gap = max_joint_gap(q, q_ref);
    if (gap > k_close_gap && gap <= k_self_motion_gap)
        ik_nearer_along_self_motion(dh, flange, q_ref, limits, q);
    if (max_joint_gap(q, q_ref) <= k_suspect_gap) return;
    double from_ref[7];
    std::copy(q_ref, q_ref + 7, from_ref);
    if (!(ik_polish(dh, 7, flange, from_ref, k_polish_tolerance, k_steps_from_reference,
                    k_reference_error_bound) &&
          find_nearest_joint(from_ref, 7, q_ref, limits, from_ref)))
        return;
    ik_nearer_along_self_motion(dh, flange, q_ref, limits, from_ref);
    if (ik_joint_distance2(from_ref, q_ref, 7) < ik_joint_distance2(q, q_ref, 7))
        std::copy(from_ref, from_ref + 7, q);
}

} // namespace ik7
