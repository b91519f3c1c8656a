// Safety configuration and arm-wide settings: electronic fences, the
// virtual wall, self-collision detection, run mode, install angles and the
// software versions of the joints and the tool board.
#include "core/command.h"
#include "core/reply_schema.h"

#include <algorithm>
#include <cstring>
#include <mutex>
#include <span>

namespace {

// ------------------------------------------------------------ zone geometry

// Zone forms as the controller numbers them.
constexpr int form_cube = 1;
constexpr int form_plane = 2;
constexpr int form_sphere = 3;

constexpr unsigned form_bit(int form) {
    return form >= form_cube && form <= form_sphere ? 1u << form : 0u;
}
constexpr unsigned any_form = form_bit(form_cube) | form_bit(form_plane) | form_bit(form_sphere);
// The active electronic fence is a box or a plane; the virtual wall a box or
// a sphere.
constexpr unsigned fence_forms = form_bit(form_cube) | form_bit(form_plane);
constexpr unsigned wall_forms = form_bit(form_cube) | form_bit(form_sphere);

using reply::scale_tag;

// A zone coordinate: millimetres under its key, metres in the record.
template <auto Form, auto Member> constexpr reply::field mm(const char *key) {
    return reply::number<Form, Member>(key, scale_tag::thousandths);
}
using zone = ka_fence_config_t;
using cube = ka_fence_cube_t;
using plane = ka_fence_plane_t;
using sphere = ka_fence_sphere_t;
constexpr reply::field cube_keys[] = {
    mm<&zone::cube, &cube::x_max_limit>("x_max_limit"),
    mm<&zone::cube, &cube::x_min_limit>("x_min_limit"),
    mm<&zone::cube, &cube::y_max_limit>("y_max_limit"),
    mm<&zone::cube, &cube::y_min_limit>("y_min_limit"),
    mm<&zone::cube, &cube::z_max_limit>("z_max_limit"),
    mm<&zone::cube, &cube::z_min_limit>("z_min_limit"),
};
constexpr reply::field plane_keys[] = {
    mm<&zone::plane, &plane::x1>("x1"), mm<&zone::plane, &plane::y1>("y1"),
    mm<&zone::plane, &plane::z1>("z1"), mm<&zone::plane, &plane::x2>("x2"),
    mm<&zone::plane, &plane::y2>("y2"), mm<&zone::plane, &plane::z2>("z2"),
    mm<&zone::plane, &plane::x3>("x3"), mm<&zone::plane, &plane::y3>("y3"),
    mm<&zone::plane, &plane::z3>("z3"),
};
constexpr reply::field sphere_keys[] = {
    mm<&zone::sphere, &sphere::radius>("radius"),
    mm<&zone::sphere, &sphere::x>("x"),
    mm<&zone::sphere, &sphere::y>("y"),
    mm<&zone::sphere, &sphere::z>("z"),
};
// Checked as the common parse checks when a reply holds one zone; listed
// zones are read by the list's own rules.
constexpr reply::schema cube_reply{cube_keys, -3, nullptr, nullptr, true};
constexpr reply::schema plane_reply{plane_keys, -3, nullptr, nullptr, true};
constexpr reply::schema sphere_reply{sphere_keys, -3, nullptr, nullptr, true};

constexpr reply::field zone_form_field[] = {reply::number<&zone::form>("form")};
constexpr reply::schema zone_form_reply{zone_form_field, -3, nullptr, nullptr, true};

constexpr size_t max_zone_keys = std::size(plane_keys);

// The keys of a form, in the order the controller takes them; none for a
// form it does not know.
const reply::schema *zone_schema(int form) {
    switch (form) {
    case form_cube:
        return &cube_reply;
    case form_plane:
        return &plane_reply;
    case form_sphere:
        return &sphere_reply;
    default:
        return nullptr;
    }
}
std::span<const reply::field> zone_keys(int form) {
    const reply::schema *s = zone_schema(form);
    return s ? s->fields : std::span<const reply::field>{};
}

// The controller has always been sent the lower x bound under
// "z_min_limit", by every sender; what it reports back is read as named.
float sent_value(const reply::field &k, zone &z) {
    if (&k == &cube_keys[5]) return z.cube.x_min_limit;
    return *static_cast<const float *>(k.at(&z, 0));
}

// ------------------------------------------------------------ sending zones

// A command that sends a zone: stored fences travel under their name, and
// each sender takes only some forms.
struct zone_sender {
    cmd::set_command command;
    bool named;
    unsigned forms;
};

constexpr zone_sender add_fence{cmd::set<"add_electronic_fence_config">("add_config"), true,
                                any_form};
constexpr zone_sender update_fence{cmd::set<"update_electronic_fence_config">("update_config"),
                                   true, any_form};
constexpr zone_sender active_fence{cmd::set<"set_electronic_fence_config">("set_config"), false,
                                   fence_forms};
constexpr zone_sender virtual_wall{cmd::set<"set_virtual_wall_config">("set_config"), false,
                                   wall_forms};

// "command", "form", the name for stored fences, then the form's keys in
// millimetres. A form the sender does not take leaves the request empty,
// which the engine refuses with its send-error line (-1).
int send_zone(const zone_sender &s, ka_robot_handle *handle, ka_fence_config_t zone) {
    const auto name = cmd::text_of(zone.form_name);
    ka_request_field fields[3 + max_zone_keys];
    int count = 0;
    if (s.forms & form_bit(zone.form)) {
        fields[count++] = cmd::text("command", s.command.command);
        fields[count++] = cmd::number("form", zone.form);
        if (s.named) fields[count++] = cmd::text("form_name", name.text);
        for (const reply::field &k : zone_keys(zone.form))
            fields[count++] = cmd::number(k.key, scale::thousandths(sent_value(k, zone)));
    }
    cmd::reply_text reply;
    int n = ka_pack_lock_set(s.command.function, handle, fields, count, s.command.reply, reply.text,
                             sizeof reply.text, s.command.timeout_ms);
    if (n < 1) return n;
    return parse_ka_set_command(s.command.function, reply.text, s.command.result_key);
}

// ------------------------------------------------------------ reading zones

// Fills the coordinates of zone.form from the reply; a form outside
// `forms` is reported without geometry. 0, or -3 for a missing key.
int read_coordinates(const char *function, const char *text, unsigned forms,
                     ka_fence_config_t &zone) {
    if (!(forms & form_bit(zone.form))) return 0;
    return reply::read(*zone_schema(zone.form), function, text, zone);
}

struct zone_reader {
    const char *function;
    const char *command;
    const char *reply;
    unsigned forms;
};
constexpr zone_reader active_fence_read{"ka_get_electronic_fence_config",
                                        "get_electronic_fence_config",
                                        "get_electronic_fence_config", fence_forms};
constexpr zone_reader virtual_wall_read{"ka_get_virtual_wall_config", "get_virtual_wall_config",
                                        "get_virtual_wall_config", wall_forms};

// The caller's record is written only once the whole reply has been read.
int read_active_zone(const zone_reader &r, ka_robot_handle *handle, ka_fence_config_t *out) {
    if (!out) return -1;
    cmd::reply_text reply;
    int n = cmd::run(cmd::query_command{r.function, r.command, r.reply}, handle, reply);
    if (n < 1) return n;
    ka_fence_config_t zone = *out;
    if (reply::read(zone_form_reply, r.function, reply.text, zone) != 0) {
        // Without a zone configured the controller answers "given_state": false.
        return parse_ka_set_command(r.function, reply.text, "given_state") == 1 ? 1 : -3;
    }
    if (int parsed = read_coordinates(r.function, reply.text, r.forms, zone); parsed != 0)
        return parsed;
    *out = zone;
    return 0;
}

// The stored-fence lists: at most KA_FENCE_LIST_CAPACITY entries are
// written (the caller's room), and the count written, before the entries
// are read, is the number the call writes. A full name fills its field
// without a terminator.
template <typename Entry> struct fence_page {
    Entry *items;
    int *count;
};
constexpr reply::field fence_name_field[] = {
    reply::text<&ka_fence_names_t::name>(nullptr, KA_NAME_SIZE)};
constexpr reply::schema fence_name_entry{fence_name_field};
constexpr reply::field fence_names_fields[] = {
    reply::list<&fence_page<ka_fence_names_t>::items, &fence_page<ka_fence_names_t>::count>(
        "name_list", fence_name_entry, KA_FENCE_LIST_CAPACITY)
        .count_before()};
constexpr reply::schema fence_names_reply{
    fence_names_fields, -3, "Get fence list names parse err\n", "Get fence list names parse err\n"};

// A listed zone: a string name, an integer form and that form's integer
// coordinates; an entry that breaks a rule is left as it was.
constexpr reply::field listed_zone_fields[] = {
    reply::text<&zone::form_name>("form_name", KA_NAME_SIZE),
    reply::number<&zone::form>("form"),
    reply::variant([](const void *z) { return zone_schema(static_cast<const zone *>(z)->form); }),
};
constexpr reply::schema listed_zone_entry{listed_zone_fields};
constexpr reply::field fence_infos_fields[] = {
    reply::list<&fence_page<zone>::items, &fence_page<zone>::count>("info_list", listed_zone_entry,
                                                                    KA_FENCE_LIST_CAPACITY)
        .count_before()
        .atomic()};
constexpr reply::schema fence_infos_reply{fence_infos_fields};

// A given fence keeps ten characters of its name; the field's last two
// bytes stay zero.
constexpr reply::field given_fence_fields[] = {
    reply::number<&zone::form>("form"),
    reply::text<&zone::form_name>("form_name", 10, reply::text_rule::cleared)};
constexpr reply::schema given_fence_reply{given_fence_fields, -3, nullptr, nullptr, true};

// ------------------------------------------------------- enables and modes

// The electronic fence and the virtual wall are switched the same way.
struct enable_command {
    cmd::set_command set;
    cmd::query_command get;
};
constexpr enable_command fence_enable{cmd::set<"set_electronic_fence_enable">("set_state"),
                                      {"ka_get_electronic_fence_enable",
                                       "get_electronic_fence_enable",
                                       "get_electronic_fence_enable"}};
constexpr enable_command wall_enable{
    cmd::set<"set_virtual_wall_enable">("set_state"),
    {"ka_get_virtual_wall_enable", "get_virtual_wall_enable", "get_virtual_wall_enable"}};

constexpr auto self_collision_set = cmd::set<"set_self_collision_enable">("set_state");
constexpr auto self_collision_get = cmd::query<"get_self_collision_enable">();
constexpr auto run_mode_set = cmd::set<"set_arm_run_mode">("mode");
constexpr auto run_mode_get = cmd::query<"get_arm_run_mode">();
// The controller stores the install angles before it answers.
constexpr auto install_pose_set =
    cmd::set<"set_install_pose">("set_state", nullptr, m_nOutTime + 100);

// The enable readers look the handle up before anything else; the line
// names the lookup, as it always has.
bool registered(ka_robot_handle *handle) {
    if (registry_find(handle)) return true;
    ka_log_error("[%s] handle is NULL!\n", "ka_get_robot_info");
    return false;
}

// A non-boolean "enable_state" leaves the caller's value as it was.
int get_enable(const enable_command &c, ka_robot_handle *handle,
               ka_electronic_fence_enable_t *state) {
    if (!registered(handle)) return -1;
    if (!state) return -1;
    ka_reply_field fields[] = {cmd::bool_field("enable_state"), cmd::int_field("in_out_side"),
                               cmd::int_field("effective_region")};
    fields[0].value.b = state->enable_state;
    cmd::query_result r = cmd::read(c.get, handle, fields);
    if (r.status != 0) return r.status;
    state->enable_state = fields[0].value.b;
    state->in_out_side = fields[1].value.i;
    state->effective_region = fields[2].value.i;
    return 0;
}

int set_enable(const enable_command &c, ka_robot_handle *handle,
               const ka_electronic_fence_enable_t &state) {
    return cmd::run(c.set, handle,
                    {cmd::boolean("set_enable", state.enable_state),
                     cmd::number("in_out_side", state.in_out_side),
                     cmd::number("effective_region", state.effective_region)});
}

// A query of one integer under `key`: 0 with value written, or the
// exchange's or the parse's code.
int get_integer(const cmd::query_command &q, ka_robot_handle *handle, const char *key, int *value) {
    if (!value) return -1;
    ka_reply_field field = cmd::int_field(key);
    cmd::query_result r = cmd::read(q, handle, {&field, 1});
    if (r.status == 0) *value = field.value.i;
    return r.status;
}

} // namespace

extern "C" {

// ------------------------------------------------------------ stored fences

int ka_add_electronic_fence_config(ka_robot_handle *h, ka_fence_config_t config) {
    if (!(any_form & form_bit(config.form))) {
        ka_log_error("Configuration error for the form of the newly added electronic fence! "
                     "Wrong form: %d\n",
                     config.form);
        return -4;
    }
    return send_zone(add_fence, h, config);
}

int ka_update_electronic_fence_config(ka_robot_handle *h, ka_fence_config_t config) {
    return send_zone(update_fence, h, config);
}

int ka_delete_electronic_fence_config(ka_robot_handle *h, const char *form_name) {
    if (!form_name) return -1;
    return cmd::run(cmd::set<"delete_electronic_fence_config">("delete_config"), h,
                    {cmd::text("form_name", form_name)});
}

// At most KA_FENCE_LIST_CAPACITY names are written (the caller's room);
// *len is the number written, so that a caller walking *len entries stays
// inside its array.
int ka_get_electronic_fence_list_names(ka_robot_handle *h, ka_fence_names_t *names, int *len) {
    if (!names || !len) return -1;
    cmd::reply_text reply;
    int n = cmd::run(cmd::query<"get_electronic_fence_list_names">(), h, reply);
    if (n < 1) return n;
    fence_page<ka_fence_names_t> page{names, len};
    return reply::read(fence_names_reply, "ka_get_electronic_fence_list_names", reply.text, page);
}

int ka_get_given_electronic_fence_config(ka_robot_handle *h, const char *form_name,
                                         ka_fence_config_t *config) {
    constexpr const char *function = "ka_get_given_electronic_fence_config";
    if (!form_name || !config) return -1;
    cmd::reply_text reply;
    int n = cmd::exchange(function, h, "given_electronic_fence_config",
                          {cmd::text("form_name", form_name)}, "given_electronic_fence_config",
                          m_nOutTime, reply.text, sizeof reply.text);
    if (n < 1) return n;
    if (parse_ka_set_command(function, reply.text, "given_state") == 1) {
        ka_log_error("The given electronic fence name does not exist!\n");
        return 1;
    }
    ka_fence_config_t zone = *config;
    if (int parsed = reply::read(given_fence_reply, function, reply.text, zone); parsed != 0)
        return parsed;
    if (int parsed = read_coordinates(function, reply.text, any_form, zone); parsed != 0)
        return parsed;
    *config = zone;
    return 0;
}

// At most KA_FENCE_LIST_CAPACITY entries are written (the caller's room);
// *len is the number the call writes, set before the entries are read. The
// first element with a missing or mistyped key ends the read with -3,
// leaving it and the ones after it as they were.
int ka_get_electronic_fence_list_infos(ka_robot_handle *h, ka_fence_config_list_t *list, int *len) {
    if (!list || !len) return -1;
    // The list of all stored fences needs a longer line than one reply.
    char reply[2 * reply_buffer_size] = {};
    int n =
        cmd::exchange("ka_get_electronic_fence_list_infos", h, "get_electronic_fence_list_infos",
                      {}, "get_electronic_fence_list_infos", m_nOutTime, reply, sizeof reply);
    if (n < 1) return n;
    fence_page<zone> page{list, len};
    return reply::read(fence_infos_reply, "ka_get_electronic_fence_list_infos", reply, page);
}

// ------------------------------------------------------ active zone, wall

int ka_set_electronic_fence_enable(ka_robot_handle *h, ka_electronic_fence_enable_t state) {
    return set_enable(fence_enable, h, state);
}
int ka_get_electronic_fence_enable(ka_robot_handle *h, ka_electronic_fence_enable_t *state) {
    return get_enable(fence_enable, h, state);
}

int ka_set_electronic_fence_config(ka_robot_handle *h, ka_fence_config_t config) {
    if (config.form == form_sphere) ka_log_error("electronic fence form check err!!");
    return send_zone(active_fence, h, config);
}
int ka_get_electronic_fence_config(ka_robot_handle *h, ka_fence_config_t *config) {
    return read_active_zone(active_fence_read, h, config);
}

int ka_set_virtual_wall_enable(ka_robot_handle *h, ka_electronic_fence_enable_t state) {
    return set_enable(wall_enable, h, state);
}
int ka_get_virtual_wall_enable(ka_robot_handle *h, ka_electronic_fence_enable_t *state) {
    return get_enable(wall_enable, h, state);
}

int ka_set_virtual_wall_config(ka_robot_handle *h, ka_fence_config_t config) {
    if (config.form == form_plane) ka_log_error("virtual wall form check err!\n");
    return send_zone(virtual_wall, h, config);
}
int ka_get_virtual_wall_config(ka_robot_handle *h, ka_fence_config_t *config) {
    return read_active_zone(virtual_wall_read, h, config);
}

// ------------------------------------------------------ arm-wide settings

int ka_set_self_collision_enable(ka_robot_handle *h, bool enable) {
    return cmd::run(self_collision_set, h, {cmd::boolean("set_enable", enable)});
}

// A non-boolean "enable_state" leaves *enable as it was.
int ka_get_self_collision_enable(ka_robot_handle *h, bool *enable) {
    if (!registered(h)) return -1;
    if (!enable) return -1;
    ka_reply_field field = cmd::bool_field("enable_state");
    field.value.b = *enable;
    cmd::query_result r = cmd::read(self_collision_get, h, {&field, 1});
    if (r.status == 0) *enable = field.value.b;
    return r.status;
}

// The controller knows two run modes: any non-zero mode is sent as 1.
int ka_set_arm_run_mode(ka_robot_handle *h, int mode) {
    return cmd::run(run_mode_set, h, {cmd::number("mode", mode != 0 ? 1 : 0)});
}
int ka_get_arm_run_mode(ka_robot_handle *h, int *mode) {
    return get_integer(run_mode_get, h, "mode", mode);
}

// Whole degrees on the wire, fractions dropped; on success the angles are
// read back so that the handle's copy follows the controller.
int ka_set_install_pose(ka_robot_handle *h, float x, float y, float z) {
    const int32_t pose[3] = {scale::truncate(x), scale::truncate(y), scale::truncate(z)};
    int result = cmd::run(install_pose_set, h, {cmd::numbers("pose", pose, 3)});
    if (result != 0) return result;
    float read[3] = {};
    return ka_get_install_pose(h, &read[0], &read[1], &read[2]);
}

int ka_get_install_pose(ka_robot_handle *handle, float *x, float *y, float *z) {
    if (!x || !y || !z) return -1;
    cmd::reply_text reply;
    int n = cmd::run(cmd::query<"get_install_pose">("install_pose"), handle, reply);
    if (n < 1) return n;
    ka_reply_field pose = cmd::ints_field("pose", 3);
    if (int parsed = common_json_parse("ka_get_install_pose", reply.text, &pose, 1); parsed != 0)
        return parsed;
    // Whole degrees on the wire, unscaled.
    *x = static_cast<float>(pose.value.a[0]);
    *y = static_cast<float>(pose.value.a[1]);
    *z = static_cast<float>(pose.value.a[2]);
    arm_ptr arm = registry_find(handle);
    if (!arm) return -1;
    std::lock_guard<std::mutex> lock(arm->cache_mutex);
    arm->install[0] = *x;
    arm->install[1] = *y;
    arm->install[2] = *z;
    return 0;
}

// The DOF is checked before the query goes out; version receives DOF
// integers.
int ka_get_joint_software_version(ka_robot_handle *h, int *version) {
    constexpr const char *function = "ka_get_joint_software_version";
    if (!version) return -1;
    const int dof = cmd::arm_dof(h);
    if (!dof) return cmd::disconnected(function);
    ka_reply_field field = cmd::ints_field("version", dof);
    cmd::query_result r = cmd::read(
        {function, "get_joint_software_version", "joint_software_version"}, h, {&field, 1});
    if (r.status != 0) return r.status;
    std::copy_n(field.value.a, dof, version);
    return 0;
}

int ka_get_tool_software_version(ka_robot_handle *h, int *version) {
    return get_integer(
        {"ka_get_tool_software_version", "get_tool_software_version", "tool_software_version"}, h,
        "version", version);
}

} // extern "C"
