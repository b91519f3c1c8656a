// Tool and work frames, tool envelopes and the install pose.
//
// Frame poses travel as x, y, z in micrometres and rx, ry, rz in
// milliradians; payloads in grams, centres of mass in micrometres, envelope
// spheres in millimetres, install angles in whole degrees. The current
// frames apply to every pose the arm reports or is sent to (arm::tool_pose,
// arm::joints_for).
#include "sim/families/family.h"

#include <algorithm>
#include <cmath>
#include <string_view>

namespace sim {

namespace {

// The controller's records: names of at most 10 characters, at most 10
// frames per list (the built-in one included), 5 spheres per envelope.
constexpr std::size_t k_max_name = 10;
constexpr std::size_t k_max_frames = 10;
constexpr int k_max_balls = 5;
constexpr int k_max_payload_g = 20000;
// "NULL" pads the name lists, so it cannot name a frame.
constexpr const char *k_list_padding = "NULL";
constexpr int k_tool_points = 6;             // point numbers 1..6 for an automatic tool frame
constexpr std::size_t k_min_tool_points = 3; // different orientations about one fixed point
constexpr int k_work_points = 3; // 1 origin, 2 on the +x axis, 3 on the +y side of the xy plane
constexpr double k_min_span_m = 0.001;

bool usable_name(const std::optional<std::string> &name) {
    return name && !name->empty() && name->size() <= k_max_name && *name != k_list_padding;
}

std::optional<std::size_t> find(const std::vector<frame> &list, const std::string &name) {
    const auto it =
        std::find_if(list.begin(), list.end(), [&](const frame &f) { return f.name == name; });
    if (it == list.end()) return std::nullopt;
    return static_cast<std::size_t>(it - list.begin());
}

// Stored values came off the wire as integers; rounding brings them back
// exactly where truncation could lose a unit to binary fractions.
int exact_micro(double metres) { return static_cast<int>(std::lround(metres * k_micro)); }
int exact_milli(double value) { return static_cast<int>(std::lround(value * k_milli)); }

std::vector<int> pose_to_wire(const std::array<double, 6> &pose) {
    return {exact_micro(pose[0]), exact_micro(pose[1]), exact_micro(pose[2]),
            exact_milli(pose[3]), exact_milli(pose[4]), exact_milli(pose[5])};
}
std::array<double, 6> pose_from_wire(const std::vector<int> &wire) {
    return {wire[0] / k_micro, wire[1] / k_micro, wire[2] / k_micro,
            wire[3] / k_milli, wire[4] / k_milli, wire[5] / k_milli};
}
std::array<double, 6> pose_from_matrix(const mat4 &m) {
    const flange_pose p = pose_of(m);
    return {p.position[0], p.position[1], p.position[2], p.euler[0], p.euler[1], p.euler[2]};
}
mat4 frame_matrix(const frame &f) {
    return pose_matrix({f.pose[0], f.pose[1], f.pose[2]}, {f.pose[3], f.pose[4], f.pose[5]});
}

// A frame in use cannot change under a running motion.
bool moving(const arm &a) { return a.sample().status != std::string_view("idle"); }

// ---- tool frames

// "tool_name", "payload" (grams), "position" (centre of mass, micrometres)
// and "tool_pose"; nothing when a key is missing or out of range.
std::optional<frame> tool_from(const cJSON *request, const char *pose_key) {
    const auto name = json_string(request, "tool_name");
    const auto payload = json_int(request, "payload");
    const auto centre = json_ints(request, "position", 3);
    if (!usable_name(name) || !payload || *payload < 0 || *payload > k_max_payload_g || !centre)
        return std::nullopt;
    frame f = named_frame(*name);
    f.payload_kg = *payload / k_milli;
    for (int i = 0; i < 3; ++i)
        f.centre_m[i] = (*centre)[i] / k_micro;
    if (pose_key) {
        const auto pose = json_ints(request, pose_key, 6);
        if (!pose) return std::nullopt;
        f.pose = pose_from_wire(*pose);
    }
    return f;
}

void add_tool_fields(cJSON *reply, const frame &f) {
    cJSON_AddStringToObject(reply, "tool_name", f.name.c_str());
    json_add_ints(reply, "pose", pose_to_wire(f.pose));
    cJSON_AddNumberToObject(reply, "payload", exact_milli(f.payload_kg));
    json_add_ints(
        reply, "position",
        {exact_micro(f.centre_m[0]), exact_micro(f.centre_m[1]), exact_micro(f.centre_m[2])});
}

bool room_for(const std::vector<frame> &list, const std::string &name) {
    return list.size() < k_max_frames && !find(list, name);
}

void manual_tool(const cJSON *request, cJSON *reply, command_context &c) {
    frame_store &frames = c.target.frames;
    const auto f = tool_from(request, "tool_pose");
    const bool ok = f && room_for(frames.tools, f->name);
    if (ok) frames.tools.push_back(*f);
    cJSON_AddBoolToObject(reply, "manual_tool_frame", ok);
}

// Changes a stored tool frame; its envelope stays.
void update_tool(const cJSON *request, cJSON *reply, command_context &c) {
    frame_store &frames = c.target.frames;
    const auto f = tool_from(request, "tool_pose");
    const auto index = f ? find(frames.tools, f->name) : std::nullopt;
    const bool ok = index && *index != 0 && !(*index == frames.tool && moving(c.target));
    if (ok) {
        frame &stored = frames.tools[*index];
        stored.pose = f->pose;
        stored.payload_kg = f->payload_kg;
        stored.centre_m = f->centre_m;
    }
    cJSON_AddBoolToObject(reply, "update_state", ok);
}

void change_tool(const cJSON *request, cJSON *reply, command_context &c) {
    frame_store &frames = c.target.frames;
    const auto name = json_string(request, "tool_name");
    const auto index = name ? find(frames.tools, *name) : std::nullopt;
    const bool ok = index && !moving(c.target);
    if (ok) frames.tool = *index;
    cJSON_AddBoolToObject(reply, "change_tool_frame", ok);
}

// Deleting the current frame falls back to the built-in one.
bool erase_frame(std::vector<frame> &list, std::size_t &current, const cJSON *request,
                 const char *key, const arm &a) {
    const auto name = json_string(request, key);
    const auto index = name ? find(list, *name) : std::nullopt;
    if (!index || *index == 0 || (*index == current && moving(a))) return false;
    list.erase(list.begin() + static_cast<std::ptrdiff_t>(*index));
    if (current == *index)
        current = 0;
    else if (current > *index)
        --current;
    return true;
}

void delete_tool(const cJSON *request, cJSON *reply, command_context &c) {
    frame_store &frames = c.target.frames;
    cJSON_AddBoolToObject(reply, "delete_tool_frame",
                          erase_frame(frames.tools, frames.tool, request, "tool_name", c.target));
}

// The names in order, padded with "NULL" to the list's capacity.
void add_names(cJSON *reply, const char *key, const std::vector<frame> &list) {
    cJSON *names = cJSON_AddArrayToObject(reply, key);
    for (std::size_t i = 0; i < k_max_frames; ++i)
        cJSON_AddItemToArray(
            names, cJSON_CreateString(i < list.size() ? list[i].name.c_str() : k_list_padding));
}

void total_tools(const cJSON *, cJSON *reply, command_context &c) {
    add_names(reply, "tool_names", c.target.frames.tools);
}

// An unknown name is answered under the request's own name with
// "get_state" false instead of the frame.
void refuse_under_request_name(cJSON *reply, const char *request_name) {
    cJSON_ReplaceItemInObjectCaseSensitive(reply, "command", cJSON_CreateString(request_name));
    cJSON_AddBoolToObject(reply, "get_state", false);
}

void given_tool(const cJSON *request, cJSON *reply, command_context &c) {
    const auto name = json_string(request, "tool_name");
    const auto index = name ? find(c.target.frames.tools, *name) : std::nullopt;
    if (!index) return refuse_under_request_name(reply, "get_tool_frame");
    add_tool_fields(reply, c.target.frames.tools[*index]);
}

void current_tool(const cJSON *, cJSON *reply, command_context &c) {
    add_tool_fields(reply, c.target.frames.current_tool());
}

// ---- automatic tool frame: the tool's tip held on one fixed point from
// several orientations; the tip's offset t on the flange solves
// (R_i - R_j) t = p_j - p_i for every pair of points, in the least-squares
// sense. The frame keeps the flange's orientation.

std::optional<std::array<double, 3>> solve3(const std::array<std::array<double, 3>, 3> &m,
                                            const std::array<double, 3> &b) {
    const auto det = [](const std::array<std::array<double, 3>, 3> &a) {
        return a[0][0] * (a[1][1] * a[2][2] - a[1][2] * a[2][1]) -
               a[0][1] * (a[1][0] * a[2][2] - a[1][2] * a[2][0]) +
               a[0][2] * (a[1][0] * a[2][1] - a[1][1] * a[2][0]);
    };
    const double d = det(m);
    if (std::fabs(d) < 1e-9) return std::nullopt; // orientations too alike
    std::array<double, 3> x{};
    for (int col = 0; col < 3; ++col) {
        auto replaced = m;
        for (int row = 0; row < 3; ++row)
            replaced[row][col] = b[row];
        x[col] = det(replaced) / d;
    }
    return x;
}

std::optional<std::array<double, 3>> tip_offset(const std::map<int, mat4> &points) {
    std::array<std::array<double, 3>, 3> normal{};
    std::array<double, 3> rhs{};
    for (auto i = points.begin(); i != points.end(); ++i)
        for (auto j = std::next(i); j != points.end(); ++j) {
            const mat4 &a = i->second, &b = j->second;
            for (int row = 0; row < 3; ++row) {
                const double p = b[row][3] - a[row][3];
                for (int col = 0; col < 3; ++col) {
                    const double arow = a[row][col] - b[row][col];
                    rhs[col] += arow * p;
                    for (int k = 0; k < 3; ++k)
                        normal[col][k] += arow * (a[row][k] - b[row][k]);
                }
            }
        }
    return solve3(normal, rhs);
}

void teach_tool_point(const cJSON *request, cJSON *reply, command_context &c) {
    const auto point = json_int(request, "point_num");
    const bool ok = point && *point >= 1 && *point <= k_tool_points && !moving(c.target);
    if (ok)
        c.target.frames.tool_points[*point] =
            flange_matrix(c.target.traits(), c.target.sample().joints);
    cJSON_AddBoolToObject(reply, "auto_tool_frame", ok);
}

void generate_tool(const cJSON *request, cJSON *reply, command_context &c) {
    frame_store &frames = c.target.frames;
    auto f = tool_from(request, nullptr);
    bool ok =
        f && room_for(frames.tools, f->name) && frames.tool_points.size() >= k_min_tool_points;
    if (ok) {
        const auto tip = tip_offset(frames.tool_points);
        ok = tip.has_value();
        if (ok) {
            f->pose = {(*tip)[0], (*tip)[1], (*tip)[2], 0, 0, 0};
            frames.tools.push_back(*f);
            frames.tool_points.clear();
        }
    }
    cJSON_AddBoolToObject(reply, "auto_tool_frame", ok);
}

// ---- tool envelope: spheres in millimetres

void set_envelope(const cJSON *request, cJSON *reply, command_context &c) {
    const auto name = json_string(request, "tool_name");
    const auto index = name ? find(c.target.frames.tools, *name) : std::nullopt;
    const cJSON *list = cJSON_GetObjectItemCaseSensitive(request, "list");
    bool ok = index && cJSON_IsArray(list) && cJSON_GetArraySize(list) <= k_max_balls;
    std::vector<envelope_ball> balls;
    for (const cJSON *entry = ok ? list->child : nullptr; entry && ok; entry = entry->next) {
        envelope_ball ball;
        const auto ball_name = json_string(entry, "name");
        const auto radius = json_int(entry, "radius");
        const auto x = json_int(entry, "x"), y = json_int(entry, "y"), z = json_int(entry, "z");
        ok = usable_name(ball_name) && radius && *radius > 0 && x && y && z;
        if (!ok) break;
        ball.name = *ball_name;
        ball.radius_mm = *radius;
        ball.centre_mm = {*x, *y, *z};
        balls.push_back(ball);
    }
    if (ok) c.target.frames.tools[*index].envelope = balls;
    cJSON_AddBoolToObject(reply, "set_state", ok);
}

void get_envelope(const cJSON *request, cJSON *reply, command_context &c) {
    const auto name = json_string(request, "tool_name");
    const auto index = name ? find(c.target.frames.tools, *name) : std::nullopt;
    if (!index) {
        cJSON_AddBoolToObject(reply, "get_state", false);
        return;
    }
    const frame &tool = c.target.frames.tools[*index];
    cJSON_AddStringToObject(reply, "tool_name", tool.name.c_str());
    cJSON *list = cJSON_AddArrayToObject(reply, "list");
    for (const envelope_ball &ball : tool.envelope) {
        cJSON *entry = cJSON_CreateObject();
        cJSON_AddStringToObject(entry, "name", ball.name.c_str());
        cJSON_AddNumberToObject(entry, "radius", ball.radius_mm);
        cJSON_AddNumberToObject(entry, "x", ball.centre_mm[0]);
        cJSON_AddNumberToObject(entry, "y", ball.centre_mm[1]);
        cJSON_AddNumberToObject(entry, "z", ball.centre_mm[2]);
        cJSON_AddItemToArray(list, entry);
    }
}

// ---- work frames

std::optional<frame> work_from(const cJSON *request) {
    const auto name = json_string(request, "frame_name");
    const auto pose = json_ints(request, "frame_pose", 6);
    if (!usable_name(name) || !pose) return std::nullopt;
    frame f = named_frame(*name);
    f.pose = pose_from_wire(*pose);
    return f;
}

void add_work_fields(cJSON *reply, const frame &f) {
    cJSON_AddStringToObject(reply, "frame_name", f.name.c_str());
    json_add_ints(reply, "pose", pose_to_wire(f.pose));
}

void manual_work(const cJSON *request, cJSON *reply, command_context &c) {
    frame_store &frames = c.target.frames;
    const auto f = work_from(request);
    const bool ok = f && room_for(frames.works, f->name);
    if (ok) frames.works.push_back(*f);
    cJSON_AddBoolToObject(reply, "manual_work_frame", ok);
}

void update_work(const cJSON *request, cJSON *reply, command_context &c) {
    frame_store &frames = c.target.frames;
    const auto f = work_from(request);
    const auto index = f ? find(frames.works, f->name) : std::nullopt;
    const bool ok = index && *index != 0 && !(*index == frames.work && moving(c.target));
    if (ok) frames.works[*index].pose = f->pose;
    cJSON_AddBoolToObject(reply, "update_state", ok);
}

void change_work(const cJSON *request, cJSON *reply, command_context &c) {
    frame_store &frames = c.target.frames;
    const auto name = json_string(request, "frame_name");
    const auto index = name ? find(frames.works, *name) : std::nullopt;
    const bool ok = index && !moving(c.target);
    if (ok) frames.work = *index;
    cJSON_AddBoolToObject(reply, "change_work_frame", ok);
}

void delete_work(const cJSON *request, cJSON *reply, command_context &c) {
    frame_store &frames = c.target.frames;
    cJSON_AddBoolToObject(reply, "delete_work_frame",
                          erase_frame(frames.works, frames.work, request, "frame_name", c.target));
}

void total_works(const cJSON *, cJSON *reply, command_context &c) {
    add_names(reply, "frame_names", c.target.frames.works);
}

void given_work(const cJSON *request, cJSON *reply, command_context &c) {
    const auto name = json_string(request, "frame_name");
    const auto index = name ? find(c.target.frames.works, *name) : std::nullopt;
    if (!index) return refuse_under_request_name(reply, "get_work_frame");
    add_work_fields(reply, c.target.frames.works[*index]);
}

void current_work(const cJSON *, cJSON *reply, command_context &c) {
    add_work_fields(reply, c.target.frames.current_work());
}

// ---- automatic work frame: the tool's tip taught at the origin (point 1),
// on the +x axis (2) and on the +y side of the xy plane (3), in the base
// frame. The third point of a name creates the frame.

std::array<double, 3> difference(const std::array<double, 3> &a, const std::array<double, 3> &b) {
    return {a[0] - b[0], a[1] - b[1], a[2] - b[2]};
}
std::array<double, 3> cross(const std::array<double, 3> &a, const std::array<double, 3> &b) {
    return {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
}
double length(const std::array<double, 3> &v) {
    return std::sqrt(v[0] * v[0] + v[1] * v[1] + v[2] * v[2]);
}

std::optional<mat4> frame_through(const std::map<int, std::array<double, 3>> &points) {
    const std::array<double, 3> &origin = points.at(1);
    const auto x_axis = difference(points.at(2), origin);
    const auto z_axis = cross(x_axis, difference(points.at(3), origin));
    if (length(x_axis) < k_min_span_m || length(z_axis) < k_min_span_m * k_min_span_m)
        return std::nullopt;
    const auto y_axis = cross(z_axis, x_axis);
    mat4 m = identity();
    const std::array<std::array<double, 3>, 3> axes{x_axis, y_axis, z_axis};
    for (int col = 0; col < 3; ++col)
        for (int row = 0; row < 3; ++row)
            m[row][col] = axes[col][row] / length(axes[col]);
    for (int row = 0; row < 3; ++row)
        m[row][3] = origin[row];
    return m;
}

void teach_work_point(const cJSON *request, cJSON *reply, command_context &c) {
    frame_store &frames = c.target.frames;
    const auto name = json_string(request, "frame_name");
    const auto point = json_int(request, "point_num");
    bool ok = usable_name(name) && room_for(frames.works, *name) && point && *point >= 1 &&
              *point <= k_work_points && !moving(c.target);
    if (ok) {
        if (frames.work_points_for != *name) {
            frames.work_points.clear();
            frames.work_points_for = *name;
        }
        const mat4 tip = multiply(flange_matrix(c.target.traits(), c.target.sample().joints),
                                  frame_matrix(frames.current_tool()));
        frames.work_points[*point] = {tip[0][3], tip[1][3], tip[2][3]};
        if (frames.work_points.size() == static_cast<std::size_t>(k_work_points)) {
            const auto m = frame_through(frames.work_points);
            ok = m.has_value();
            if (ok) {
                frame f = named_frame(*name);
                f.pose = pose_from_matrix(*m);
                frames.works.push_back(f);
            }
            frames.work_points.clear();
            frames.work_points_for.clear();
        }
    }
    cJSON_AddBoolToObject(reply, "auto_work_frame", ok);
}

// ---- install pose: whole degrees about x, y, z

void set_install(const cJSON *request, cJSON *reply, command_context &c) {
    const auto pose = json_ints(request, "pose", 3);
    const bool ok = pose && std::all_of(pose->begin(), pose->end(),
                                        [](int angle) { return angle >= -180 && angle <= 180; });
    if (ok) std::copy(pose->begin(), pose->end(), c.target.frames.install_deg.begin());
    cJSON_AddBoolToObject(reply, "set_state", ok);
}

void get_install(const cJSON *, cJSON *reply, command_context &c) {
    const std::array<int, 3> &angles = c.target.frames.install_deg;
    json_add_ints(reply, "pose", {angles[0], angles[1], angles[2]});
}

constexpr command_row rows[] = {
    {"set_auto_tool_frame", "set_auto_tool_frame", teach_tool_point},
    // Answered under the name of the teaching command.
    {"generate_auto_tool_frame", "set_auto_tool_frame", generate_tool},
    {"set_manual_tool_frame", "set_manual_tool_frame", manual_tool},
    {"update_tool_frame", "update_tool_frame", update_tool},
    {"set_tool_envelope", "set_tool_envelope", set_envelope},
    {"get_tool_envelope", "get_tool_envelope", get_envelope},
    {"set_change_tool_frame", "set_change_tool_frame", change_tool},
    {"set_delete_tool_frame", "set_delete_tool_frame", delete_tool},
    {"get_total_tool_frame", "total_tool_frame", total_tools},
    {"get_tool_frame", "given_tool_frame", given_tool},
    {"get_current_tool_frame", "current_tool_frame", current_tool},
    {"set_auto_work_frame", "set_auto_work_frame", teach_work_point},
    {"set_manual_work_frame", "set_manual_work_frame", manual_work},
    {"update_work_frame", "update_work_frame", update_work},
    {"set_change_work_frame", "set_change_work_frame", change_work},
    {"set_delete_work_frame", "set_delete_work_frame", delete_work},
    {"get_total_work_frame", "total_work_frame", total_works},
    {"get_work_frame", "given_work_frame", given_work},
    {"get_current_work_frame", "current_work_frame", current_work},
    {"set_install_pose", "set_install_pose", set_install},
    {"get_install_pose", "install_pose", get_install},
};

} // namespace

const family frames_family{rows};

} // namespace sim
