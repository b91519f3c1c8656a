#include "algo/fk.h"

#include "algo/compiler.h"
#include "algo/context.h"
#include "algo/matrix.h"
#include "algo/pose_math.h"
#include "algo/trig.h"

#include <cmath>
#include <cstddef>
#include <cstring>
#include <utility>

namespace {

// ------------------------------------------------------- closed forms
//
// A model's chain is described at compile time: per link the twist (0, +pi/2
// or -pi/2), whether the joint offset is pi/2, and whether the link length a
// and the link offset d are non-zero. The link product is then expanded with
// the twists as column permutations, the pi/2 offsets as a sine/cosine swap
// and the zero lengths dropped: per link one sincos, a plane rotation of two
// columns and at most two scaled column additions.

enum class twist : int { zero, plus, minus };

struct link_shape {
    twist tw;
    bool half_pi_offset;
    bool uses_a;
    bool uses_d;
};

template <std::size_t N> struct chain_shape {
    link_shape link[N];
    static constexpr std::size_t size = N;
};

constexpr twist Z = twist::zero;
constexpr twist P = twist::plus;
constexpr twist M = twist::minus;

// clang-format off
// KIVO and type 9: reads d[0], a[2], d[3], d[5].
constexpr chain_shape<6> kivo_chain{{
    {Z, false, false, true}, {P, true, false, false}, {Z, true, true, false},
    {P, false, false, true}, {M, false, false, false}, {P, false, false, true}}};
// LUNE: d[0], d[2], d[4], d[6].
constexpr chain_shape<7> lune_chain{{
    {Z, false, false, true}, {M, false, false, false}, {P, false, false, true},
    {P, false, false, false}, {M, false, false, true}, {M, false, false, false},
    {P, false, false, true}}};
// MARO II and III: d[0], a[1], a[2], a[3], d[3], d[5].
constexpr chain_shape<6> maro_chain{{
    {Z, false, false, true}, {P, true, true, false}, {Z, true, true, false},
    {P, false, true, true}, {M, false, false, false}, {P, false, false, true}}};
// NEPA series: d[0], a[2], a[3], d[3], d[4], d[5].
constexpr chain_shape<6> nepa_chain{{
    {Z, false, false, true}, {P, true, false, false}, {Z, false, true, false},
    {Z, true, true, true}, {P, false, false, true}, {M, false, false, true}}};
// QUIL: d[0], d[2], a[3], a[4], d[4], a[6], d[6].
constexpr chain_shape<7> quil_chain{{
    {Z, false, false, true}, {M, false, false, false}, {P, false, false, true},
    {P, false, true, false}, {M, false, true, true}, {P, false, false, false},
    {P, false, true, true}}};
// clang-format on

// Cosine and sine of every joint angle plus its offset, taken together before
// the chain is walked, so that no call splits the product (each would spill
// the partial transform around it).
template <auto Shape> struct joint_trig {
    float c[Shape.size];
    float s[Shape.size];
    explicit joint_trig(const float *q) {
        // An even count fills whole pairs of lanes.
        constexpr std::size_t lanes = (Shape.size + 1) & ~std::size_t{1};
        float angle[lanes] = {}, sq[lanes], cq[lanes];
        for (std::size_t i = 0; i < Shape.size; ++i)
            angle[i] = q[i];
        trig::sines_cosines(angle, sq, cq);
        [&]<std::size_t... I>(std::index_sequence<I...>) { (take<I>(sq[I], cq[I]), ...); }
        (std::make_index_sequence<Shape.size>{});
    }
    template <std::size_t I> void take(float sq, float cq) {
        if constexpr (Shape.link[I].half_pi_offset) {
            c[I] = -sq; // cos(q + pi/2)
            s[I] = cq;  // sin(q + pi/2)
        } else {
            c[I] = cq;
            s[I] = sq;
        }
    }
};

// R <- R * Rx(alpha) for alpha in {0, +pi/2, -pi/2}: columns 1 and 2 swap
// with a sign.
template <twist T> inline void twist_columns(float (&R)[3][3]) {
    if constexpr (T == twist::plus) {
#pragma GCC unroll 3
        for (int r = 0; r < 3; ++r) {
            float c1 = R[r][1];
            R[r][1] = R[r][2];
            R[r][2] = -c1;
        }
    } else if constexpr (T == twist::minus) {
#pragma GCC unroll 3
        for (int r = 0; r < 3; ++r) {
            float c1 = R[r][1];
            R[r][1] = -R[r][2];
            R[r][2] = c1;
        }
    }
}

// R <- R * Rz(theta): columns 0 and 1 rotate in their plane.
inline void rotate_z_columns(float (&R)[3][3], float c, float s) {
#pragma GCC unroll 3
    for (int r = 0; r < 3; ++r) {
        float c0 = R[r][0], c1 = R[r][1];
        R[r][0] = c0 * c + c1 * s;
        R[r][1] = c1 * c - c0 * s;
    }
}

// First link from the identity: R = Rx(alpha) Rz(theta), p = Rx(alpha) a x + d z.
template <link_shape L> inline void first_link(float (&R)[3][3], float c, float s) {
    float rz[3][3] = {{c, -s, 0.0f}, {s, c, 0.0f}, {0.0f, 0.0f, 1.0f}};
    for (int col = 0; col < 3; ++col) {
        float x = rz[0][col], y = rz[1][col], z = rz[2][col];
        R[0][col] = x;
        if constexpr (L.tw == twist::plus) {
            R[1][col] = -z;
            R[2][col] = y;
        } else if constexpr (L.tw == twist::minus) {
            R[1][col] = z;
            R[2][col] = -y;
        } else {
            R[1][col] = y;
            R[2][col] = z;
        }
    }
}

template <auto Shape, std::size_t I>
inline void full_step(float (&R)[3][3], float (&p)[3], const dh_table &dh,
                      const joint_trig<Shape> &t) {
    constexpr link_shape L = Shape.link[I];
    const float c = t.c[I], s = t.s[I];
    if constexpr (I == 0) {
        first_link<L>(R, c, s);
        p[0] = 0.0f;
        p[1] = 0.0f;
        p[2] = 0.0f;
        if constexpr (L.uses_a) p[0] = dh.a[0];
    } else {
        twist_columns<L.tw>(R);
        if constexpr (L.uses_a) {
#pragma GCC unroll 3
            for (int r = 0; r < 3; ++r)
                p[r] += dh.a[I] * R[r][0];
        }
        rotate_z_columns(R, c, s);
    }
    if constexpr (L.uses_d) {
#pragma GCC unroll 3
        for (int r = 0; r < 3; ++r)
            p[r] += dh.d[I] * R[r][2];
    }
}

template <auto Shape, std::size_t I>
inline void rotation_step(float (&R)[3][3], const joint_trig<Shape> &t) {
    constexpr link_shape L = Shape.link[I];
    const float c = t.c[I], s = t.s[I];
    if constexpr (I == 0) {
        first_link<L>(R, c, s);
    } else {
        twist_columns<L.tw>(R);
        rotate_z_columns(R, c, s);
    }
}

// Position only, from the flange back to the base: a point is carried
// through Tz(d), Rz(theta), Tx(a) and Rx(alpha) of each link in turn.
template <auto Shape, std::size_t I>
inline void position_step(float (&p)[3], const dh_table &dh, const joint_trig<Shape> &t) {
    constexpr std::size_t K = Shape.size - 1 - I;
    constexpr link_shape L = Shape.link[K];
    const float c = t.c[K], s = t.s[K];
    if constexpr (L.uses_d) p[2] += dh.d[K];
    float x = c * p[0] - s * p[1];
    float y = s * p[0] + c * p[1];
    if constexpr (L.uses_a) x += dh.a[K];
    p[0] = x;
    if constexpr (L.tw == twist::plus) {
        p[1] = -p[2];
        p[2] = y;
    } else if constexpr (L.tw == twist::minus) {
        p[1] = p[2];
        p[2] = -y;
    } else {
        p[1] = y;
    }
}

template <auto Shape>
KA_FLATTEN void chain_transform(const dh_table &dh, const float *q, float T[4][4]) {
    const joint_trig<Shape> t(q);
    float R[3][3];
    float p[3];
    [&]<std::size_t... I>(std::index_sequence<I...>) { (full_step<Shape, I>(R, p, dh, t), ...); }
    (std::make_index_sequence<Shape.size>{});
#pragma GCC unroll 3
    for (int r = 0; r < 3; ++r) {
        T[r][0] = R[r][0];
        T[r][1] = R[r][1];
        T[r][2] = R[r][2];
        T[r][3] = p[r];
    }
    T[3][0] = 0.0f;
    T[3][1] = 0.0f;
    T[3][2] = 0.0f;
    T[3][3] = 1.0f;
}

template <auto Shape> KA_FLATTEN void chain_rotation(const float *q, float R[3][3]) {
    const joint_trig<Shape> t(q);
    float r[3][3];
    [&]<std::size_t... I>(std::index_sequence<I...>) { (rotation_step<Shape, I>(r, t), ...); }
    (std::make_index_sequence<Shape.size>{});
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j)
            R[i][j] = r[i][j];
}

template <auto Shape>
KA_FLATTEN void chain_position(const dh_table &dh, const float *q, float out[3]) {
    const joint_trig<Shape> t(q);
    float p[3] = {0.0f, 0.0f, 0.0f};
    [&]<std::size_t... I>(std::index_sequence<I...>) { (position_step<Shape, I>(p, dh, t), ...); }
    (std::make_index_sequence<Shape.size>{});
    out[0] = p[0];
    out[1] = p[1];
    out[2] = p[2];
}

ka_matrix_t as_matrix(const float T[4][4]) {
    ka_matrix_t m = zero_matrix(4, 4);
    for (int r = 0; r < 4; ++r)
        for (int c = 0; c < 4; ++c)
            m.data[r][c] = T[r][c];
    return m;
}

ka_matrix_t rotation_matrix(const float R[3][3]) {
    ka_matrix_t m = zero_matrix(3, 3);
#pragma GCC unroll 3
    for (int r = 0; r < 3; ++r)
        for (int c = 0; c < 3; ++c)
            m.data[r][c] = R[r][c];
    return m;
}

// Joint vector in radians with the entries beyond the DOF cleared.
void joints_to_radians(const float *deg, int dof, float (&rad)[7]) {
    for (int i = 0; i < 7; ++i)
        rad[i] = i < dof ? deg_to_rad(deg[i]) : 0.0f;
}

// Flange transform of the active model, written straight into the record.
ka_matrix_t flange(const float q[7]) {
    ka_matrix_t m;
    m.rows = m.columns = 4;
    fk_flange(context_robot_type(), context_dh(), q, m.data);
    return m;
}

constexpr float k_identity[4][4] = {{1, 0, 0, 0}, {0, 1, 0, 0}, {0, 0, 1, 0}, {0, 0, 0, 1}};

// Bitwise: a -0 entry counts as not the identity and takes the product.
bool is_identity(const ka_matrix_t &M) {
    return std::memcmp(M.data, k_identity, sizeof k_identity) == 0;
}

// Frames that are the identity (no tool, no work frame, a floor mounting:
// the usual case) are passed over; the product would give the other factor
// bit for bit.

// Tool transform in the mounting frame: I * F * Tt. The caller holds the
// context.
ka_matrix_t tool_in_world(const float q[7]) {
    ka_matrix_t T = flange(q);
    if (const ka_matrix_t &I = context_install_matrix(); !is_identity(I)) T = matrix_m(I, T);
    if (const ka_matrix_t &Tt = context_tool_matrix(); !is_identity(Tt)) T = matrix_m(T, Tt);
    return T;
}

// The same in the work frame: W^-1 * I * F * Tt.
ka_matrix_t tool_in_work(const float q[7]) {
    ka_matrix_t T = tool_in_world(q);
    if (const ka_matrix_t &W = context_work_to_base_matrix(); !is_identity(W)) T = matrix_m(W, T);
    return T;
}

} // namespace

// ------------------------------------------------------------ generic

void fk_generic_dh(const dh_table &dh, int dof, const float q[7], float T[4][4]) {
    double A[4][4] = {{1, 0, 0, 0}, {0, 1, 0, 0}, {0, 0, 1, 0}, {0, 0, 0, 1}};
    int n = dof < 0 ? 0 : (dof > 7 ? 7 : dof);
    for (int i = 0; i < n; ++i) {
        double ca = std::cos(static_cast<double>(dh.alpha[i]));
        double sa = std::sin(static_cast<double>(dh.alpha[i]));
        double theta = static_cast<double>(q[i]) + static_cast<double>(dh.offset[i]);
        double ct = std::cos(theta), st = std::sin(theta);
        double a = dh.a[i], d = dh.d[i];
        // Rx(alpha) Tx(a) Rz(theta) Tz(d)
        double L[4][4] = {{ct, -st, 0, a},
                          {st * ca, ct * ca, -sa, -sa * d},
                          {st * sa, ct * sa, ca, ca * d},
                          {0, 0, 0, 1}};
        double B[4][4];
        for (int r = 0; r < 4; ++r)
            for (int c = 0; c < 4; ++c) {
                double sum = 0.0;
                for (int k = 0; k < 4; ++k)
                    sum += A[r][k] * L[k][c];
                B[r][c] = sum;
            }
        for (int r = 0; r < 4; ++r)
            for (int c = 0; c < 4; ++c)
                A[r][c] = B[r][c];
    }
    for (int r = 0; r < 4; ++r)
        for (int c = 0; c < 4; ++c)
            T[r][c] = static_cast<float>(A[r][c]);
}

// --------------------------------------------------- per-model closed forms

void forward_kinematics_e_kivo(const dh_table &dh, const float q[7], float T[4][4]) {
    chain_transform<kivo_chain>(dh, q, T);
}
void forward_kinematics_rotate_kivo(const dh_table &, const float q[7], float R[3][3]) {
    chain_rotation<kivo_chain>(q, R);
}
void forward_kinematics_pos_kivo(const dh_table &dh, const float q[7], float p[3]) {
    chain_position<kivo_chain>(dh, q, p);
}

void forward_kinematics_e_lune(const dh_table &dh, const float q[7], float T[4][4]) {
    chain_transform<lune_chain>(dh, q, T);
}
void forward_kinematics_rotate_lune(const dh_table &, const float q[7], float R[3][3]) {
    chain_rotation<lune_chain>(q, R);
}
void forward_kinematics_pos_lune(const dh_table &dh, const float q[7], float p[3]) {
    chain_position<lune_chain>(dh, q, p);
}

void forward_kinematics_e_maro_2(const dh_table &dh, const float q[7], float T[4][4]) {
    chain_transform<maro_chain>(dh, q, T);
}
void forward_kinematics_rotate_maro_2(const dh_table &, const float q[7], float R[3][3]) {
    chain_rotation<maro_chain>(q, R);
}
void forward_kinematics_pos_maro_2(const dh_table &dh, const float q[7], float p[3]) {
    chain_position<maro_chain>(dh, q, p);
}

// Generation III shares the generation II geometry with other lengths.
void forward_kinematics_e_maro_3(const dh_table &dh, const float q[7], float T[4][4]) {
    chain_transform<maro_chain>(dh, q, T);
}
void forward_kinematics_rotate_maro_3(const dh_table &, const float q[7], float R[3][3]) {
    chain_rotation<maro_chain>(q, R);
}
void forward_kinematics_pos_maro_3(const dh_table &dh, const float q[7], float p[3]) {
    chain_position<maro_chain>(dh, q, p);
}

void forward_kinematics_e_nepa(const dh_table &dh, const float q[7], float T[4][4]) {
    chain_transform<nepa_chain>(dh, q, T);
}
void forward_kinematics_rotate_nepa(const dh_table &, const float q[7], float R[3][3]) {
    chain_rotation<nepa_chain>(q, R);
}
void forward_kinematics_pos_nepa(const dh_table &dh, const float q[7], float p[3]) {
    chain_position<nepa_chain>(dh, q, p);
}

void forward_kinematics_e_quil(const dh_table &dh, const float q[7], float T[4][4]) {
    chain_transform<quil_chain>(dh, q, T);
}
void forward_kinematics_rotate_quil(const dh_table &, const float q[7], float R[3][3]) {
    chain_rotation<quil_chain>(q, R);
}
void forward_kinematics_pos_quil(const dh_table &dh, const float q[7], float p[3]) {
    chain_position<quil_chain>(dh, q, p);
}

// ------------------------------------------------------------ dispatch

void fk_flange(int robot_type, const dh_table &dh, const float q[7], float T[4][4]) {
    switch (robot_type) {
    case KA_ARM_MODEL_LUNE:
        forward_kinematics_e_lune(dh, q, T);
        break;
    case KA_ARM_MODEL_MARO_II:
        forward_kinematics_e_maro_2(dh, q, T);
        break;
    case KA_ARM_MODEL_MARO_III:
        forward_kinematics_e_maro_3(dh, q, T);
        break;
    case KA_ARM_MODEL_NEPAX:
    case KA_ARM_MODEL_NEPAZ:
    case KA_ARM_MODEL_NEPATQ:
        forward_kinematics_e_nepa(dh, q, T);
        break;
    case KA_ARM_MODEL_QUIL:
        forward_kinematics_e_quil(dh, q, T);
        break;
    default:
        forward_kinematics_e_kivo(dh, q, T);
        break;
    }
}

void fk_flange_rotation(int robot_type, const dh_table &dh, const float q[7], float R[3][3]) {
    switch (robot_type) {
    case KA_ARM_MODEL_LUNE:
        forward_kinematics_rotate_lune(dh, q, R);
        break;
    case KA_ARM_MODEL_MARO_II:
        forward_kinematics_rotate_maro_2(dh, q, R);
        break;
    case KA_ARM_MODEL_MARO_III:
        forward_kinematics_rotate_maro_3(dh, q, R);
        break;
    case KA_ARM_MODEL_NEPAX:
    case KA_ARM_MODEL_NEPAZ:
    case KA_ARM_MODEL_NEPATQ:
        forward_kinematics_rotate_nepa(dh, q, R);
        break;
    case KA_ARM_MODEL_QUIL:
        forward_kinematics_rotate_quil(dh, q, R);
        break;
    default:
        forward_kinematics_rotate_kivo(dh, q, R);
        break;
    }
}

void fk_flange_position(int robot_type, const dh_table &dh, const float q[7], float p[3]) {
    switch (robot_type) {
    case KA_ARM_MODEL_LUNE:
        forward_kinematics_pos_lune(dh, q, p);
        break;
    case KA_ARM_MODEL_MARO_II:
        forward_kinematics_pos_maro_2(dh, q, p);
        break;
    case KA_ARM_MODEL_MARO_III:
        forward_kinematics_pos_maro_3(dh, q, p);
        break;
    case KA_ARM_MODEL_NEPAX:
    case KA_ARM_MODEL_NEPAZ:
    case KA_ARM_MODEL_NEPATQ:
        forward_kinematics_pos_nepa(dh, q, p);
        break;
    case KA_ARM_MODEL_QUIL:
        forward_kinematics_pos_quil(dh, q, p);
        break;
    default:
        forward_kinematics_pos_kivo(dh, q, p);
        break;
    }
}

// ------------------------------------------------------ context-based forms

void forward_kinematics_e(ka_matrix_t *T, const float q[7]) {
    if (T) *T = flange(q);
}

ka_pose_t forward_kinematics(const float q[7]) {
    return transformation_matrix_to_pose(tool_in_work(q));
}

ka_pose_t forward_kinematics_for_unity(const float q[7]) {
    return transformation_matrix_to_pose(tool_in_world(q));
}

ka_matrix_t forward_kinematics_rotate(const float q[7]) {
    ka_matrix_t flange_rotation = forward_kinematics_rotate_flange(q);
    ka_matrix_t world = matrix_m(matrix_T2R(context_install_matrix()),
                                 matrix_m(flange_rotation, matrix_T2R(context_tool_matrix())));
    return matrix_m(matrix_T2R(context_work_to_base_matrix()), world);
}

ka_matrix_t forward_kinematics_rotate_flange(const float q[7]) {
    const dh_table robot_dh = context_dh();
    float R[3][3];
    fk_flange_rotation(context_robot_type(), robot_dh, q, R);
    return rotation_matrix(R);
}

ka_position_t forward_kinematics_pos(const float q[7]) {
    ka_matrix_t T = tool_in_work(q);
    return {T.data[0][3], T.data[1][3], T.data[2][3]};
}

ka_position_t forward_kinematics_pos_calibration(const float q[7]) {
    dh_table dh = context_dh();
    const dh_table &delta = context_dh_compensation();
    for (int i = 0; i < 8; ++i) {
        dh.d[i] += delta.d[i];
        dh.a[i] += delta.a[i];
        dh.alpha[i] += delta.alpha[i];
        dh.offset[i] += delta.offset[i];
    }
    float F[4][4];
    fk_generic_dh(dh, context_dof(), q, F);
    ka_matrix_t world =
        matrix_m(matrix_m(context_install_matrix(), as_matrix(F)), context_tool_matrix());
    ka_matrix_t T = matrix_m(context_work_to_base_matrix(), world);
    return {T.data[0][3], T.data[1][3], T.data[2][3]};
}

ka_matrix_t forward_kinematics_world_to_flange(const float q[7]) {
    return matrix_m(context_install_matrix(), flange(q));
}

ka_pose_t Forward_Kinematics_e(ka_robot_handle *handle, const float q_deg[7]) {
    context_scope scope(handle);
    if (!q_deg) return ka_pose_t{};
    float q[7];
    joints_to_radians(q_deg, context_dof(), q);
    return transformation_matrix_to_pose(flange(q));
}

extern "C" KA_FLATTEN ka_pose_t ka_algo_forward_kinematics(ka_robot_handle *handle,
                                                           const float *joint) {
    context_scope scope(handle);
    if (!joint) return ka_pose_t{};
    float q[7];
    joints_to_radians(joint, context_dof(), q);
    return forward_kinematics(q);
}
