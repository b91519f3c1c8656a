#include "algo/pose_math.h"

#include "algo/compiler.h"
#include "algo/matrix.h"
#include "algo/trig.h"

#include <cmath>

namespace {

// A bare 3x3 rotation, row-major.
struct rot3 {
    float m[3][3];
    float *operator[](int i) { return m[i]; }
    const float *operator[](int i) const { return m[i]; }
};

// Angles below this come back lifted by one turn. Deliberately not -pi: an
// angle just below -pi (within 0.0116 rad) comes out just above +pi.
constexpr float k_wrap_threshold = -3.13f;
constexpr float k_two_pi = 6.2831855f;
// Beyond this |r20| the pitch is taken as +-pi/2 and the yaw forced to 0.
constexpr float k_gimbal_lock = 0.999999f;

float wrap(float angle) { return angle < k_wrap_threshold ? angle + k_two_pi : angle; }

// Euler angles from the nine rotation entries.
ka_euler_t euler_from_rotation(const rot3 &r) {
    ka_euler_t e{};
    e.ry = trig::arc_tangent2(-r[2][0], std::sqrt(r[0][0] * r[0][0] + r[1][0] * r[1][0]));
    if (r[2][0] > k_gimbal_lock) {
        e.rx = -trig::arc_tangent2(r[0][1], r[1][1]);
        e.rz = 0.0f;
    } else if (r[2][0] < -k_gimbal_lock) {
        e.rx = trig::arc_tangent2(r[0][1], r[1][1]);
        e.rz = 0.0f;
    } else {
        e.rx = trig::arc_tangent2(r[2][1], r[2][2]);
        e.rz = trig::arc_tangent2(r[1][0], r[0][0]);
    }
    e.rx = wrap(e.rx);
    e.ry = wrap(e.ry);
    e.rz = wrap(e.rz);
    return e;
}

// The four cases by trace and largest diagonal entry. Case k has
// S = 2 sqrt(1 + the signed diagonal sum of that case); its own component
// (w, x, y, z for k = 0..3) is S/4 and the other three are the case's
// numerators over S, in component order. The case is picked by index rather
// than by branches: for an arbitrary pose it is unpredictable.
ka_quat_t quat_from_rotation(const rot3 &r) {
    const float t = r[0][0] + r[1][1] + r[2][2];
    // k = t > 0 ? 0 : r00 largest ? 1 : r11 > r22 ? 2 : 3, in flag arithmetic.
    const int past_trace = !(t > 0.0f);
    const int first = int{r[0][0] > r[1][1]} & int{r[0][0] > r[2][2]};
    const int second = r[1][1] > r[2][2];
    const int k = past_trace * (1 + (1 - first) * (2 - second));
    const float sum[4] = {t + 1.0f, 1.0f + r[0][0] - r[1][1] - r[2][2],
                          1.0f + r[1][1] - r[0][0] - r[2][2], 1.0f + r[2][2] - r[0][0] - r[1][1]};
    const float s = 2.0f * std::sqrt(sum[k]);
    const float d0 = r[2][1] - r[1][2], d1 = r[0][2] - r[2][0], d2 = r[1][0] - r[0][1];
    const float e01 = r[0][1] + r[1][0], e02 = r[0][2] + r[2][0], e12 = r[1][2] + r[2][1];
    const float numerator[4][4] = {
        {d0, d1, d2, 0.0f}, {d0, e01, e02, 0.0f}, {d1, e01, e12, 0.0f}, {d2, e02, e12, 0.0f}};
    float q[4];
    for (int j = 0; j < 4; ++j)
        q[j] = numerator[k][j - (j > k)] / s;
    q[k] = s / 4.0f;
    return {q[0], q[1], q[2], q[3]};
}

void rotation_from_quat(ka_quat_t q, rot3 &r) {
    float n = q.w * q.w + q.x * q.x + q.y * q.y + q.z * q.z;
    float s = n > 1e-6f ? 2.0f / n : 0.0f;
    r[0][0] = 1.0f - s * (q.y * q.y + q.z * q.z);
    r[0][1] = s * (q.x * q.y - q.w * q.z);
    r[0][2] = s * (q.x * q.z + q.w * q.y);
    r[1][0] = s * (q.x * q.y + q.w * q.z);
    r[1][1] = 1.0f - s * (q.x * q.x + q.z * q.z);
    r[1][2] = s * (q.y * q.z - q.w * q.x);
    r[2][0] = s * (q.x * q.z - q.w * q.y);
    r[2][1] = s * (q.y * q.z + q.w * q.x);
    r[2][2] = 1.0f - s * (q.x * q.x + q.y * q.y);
}

void rotation_from_euler(ka_euler_t e, rot3 &r) {
    float sx = std::sin(e.rx), cx = std::cos(e.rx);
    float sy = std::sin(e.ry), cy = std::cos(e.ry);
    float sz = std::sin(e.rz), cz = std::cos(e.rz);
    r[0][0] = cy * cz;
    r[0][1] = sx * sy * cz - cx * sz;
    r[0][2] = cx * sy * cz + sx * sz;
    r[1][0] = cy * sz;
    r[1][1] = sx * sy * sz + cx * cz;
    r[1][2] = cx * sy * sz - sx * cz;
    r[2][0] = -sy;
    r[2][1] = sx * cy;
    r[2][2] = cx * cy;
}

void rotation_of(const ka_matrix_t &m, rot3 &r) {
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j)
            r[i][j] = m.data[i][j];
}

ka_matrix_t transform_from(const rot3 &r, const ka_position_t &p) {
    ka_matrix_t m = zero_matrix(4, 4);
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j)
            m.data[i][j] = r[i][j];
    m.data[0][3] = p.x;
    m.data[1][3] = p.y;
    m.data[2][3] = p.z;
    m.data[3][3] = 1.0f;
    return m;
}

} // namespace

ka_matrix_t euler_to_matrix(ka_euler_t euler) {
    rot3 r{};
    rotation_from_euler(euler, r);
    ka_matrix_t m = zero_matrix(3, 3);
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j)
            m.data[i][j] = r[i][j];
    return m;
}

ka_euler_t matrix_to_euler(const ka_matrix_t &rotation) {
    rot3 r{};
    rotation_of(rotation, r);
    return euler_from_rotation(r);
}

ka_quat_t euler_to_quat(ka_euler_t euler) {
    float sx = std::sin(euler.rx * 0.5f), cx = std::cos(euler.rx * 0.5f);
    float sy = std::sin(euler.ry * 0.5f), cy = std::cos(euler.ry * 0.5f);
    float sz = std::sin(euler.rz * 0.5f), cz = std::cos(euler.rz * 0.5f);
    ka_quat_t q;
    q.w = cx * cy * cz + sx * sy * sz;
    q.x = sx * cy * cz - cx * sy * sz;
    q.y = cx * sy * cz + sx * cy * sz;
    q.z = cx * cy * sz - sx * sy * cz;
    return q;
}

ka_euler_t quat_to_euler(ka_quat_t quat) {
    rot3 r{};
    rotation_from_quat(quat, r);
    return euler_from_rotation(r);
}

ka_matrix_t quat_to_matrix(ka_quat_t quat) {
    rot3 r{};
    rotation_from_quat(quat, r);
    ka_matrix_t m = zero_matrix(3, 3);
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j)
            m.data[i][j] = r[i][j];
    return m;
}

ka_quat_t matrix_to_quat(const ka_matrix_t &rotation) {
    rot3 r{};
    rotation_of(rotation, r);
    return quat_from_rotation(r);
}

ka_matrix_t pose_euler_to_transformation_matrix(const ka_pose_t &pose) {
    rot3 r{};
    rotation_from_euler(pose.euler, r);
    return transform_from(r, pose.position);
}

ka_matrix_t pose_quat_to_transformation_matrix(const ka_pose_t &pose) {
    rot3 r{};
    rotation_from_quat(pose.quaternion, r);
    return transform_from(r, pose.position);
}

KA_FLATTEN ka_pose_t transformation_matrix_to_pose(const ka_matrix_t &T) {
    rot3 r{};
    rotation_of(T, r);
    ka_pose_t pose;
    pose.position = {T.data[0][3], T.data[1][3], T.data[2][3]};
    pose.quaternion = quat_from_rotation(r);
    pose.euler = euler_from_rotation(r);
    return pose;
}

ka_quat_t quaternion_interpolation(float angle, float step_angle, ka_quat_t q0, ka_quat_t q1) {
    float k0 = std::sin(angle - step_angle);
    float k1 = std::sin(step_angle);
    float s = std::sin(angle);
    return {(k0 * q0.w + k1 * q1.w) / s, (k0 * q0.x + k1 * q1.x) / s, (k0 * q0.y + k1 * q1.y) / s,
            (k0 * q0.z + k1 * q1.z) / s};
}

extern "C" {

ka_matrix_t algo_euler_to_matrix(ka_euler_t euler) { return euler_to_matrix(euler); }
ka_matrix_t algo_pose_to_matrix(ka_pose_t pose) {
    return pose_euler_to_transformation_matrix(pose);
}
ka_pose_t algo_matrix_to_pose(ka_matrix_t matrix) { return transformation_matrix_to_pose(matrix); }

ka_quat_t ka_algo_euler2quaternion(ka_euler_t euler) { return euler_to_quat(euler); }
ka_euler_t ka_algo_quaternion2euler(ka_quat_t quat) { return quat_to_euler(quat); }
ka_matrix_t ka_algo_euler2matrix(ka_euler_t euler) { return algo_euler_to_matrix(euler); }
ka_matrix_t ka_algo_pos2matrix(ka_pose_t pose) { return algo_pose_to_matrix(pose); }
ka_pose_t ka_algo_matrix2pos(ka_matrix_t matrix) { return algo_matrix_to_pose(matrix); }

} // extern "C"
