// Safety and arm-wide settings: fences, virtual wall, self-collision, run mode, install, versions.
#include "core/reply_schema.h"

namespace {

using reply::scale_tag;
using zone = ka_fence_config_t;
using cube = ka_fence_cube_t;
using plane = ka_fence_plane_t;
using sphere = ka_fence_sphere_t;

// clang-format off
// Zone forms as the controller numbers them.
constexpr int form_cube = 1, form_plane = 2, form_sphere = 3;
constexpr unsigned form_bit(int form) { return form >= form_cube && form <= form_sphere ? 1u << form : 0u; }
constexpr unsigned any_form = form_bit(form_cube) | form_bit(form_plane) | form_bit(form_sphere);
// The active electronic fence is a box or a plane; the virtual wall a box or a sphere.
constexpr unsigned fence_forms = form_bit(form_cube) | form_bit(form_plane);
constexpr unsigned wall_forms = form_bit(form_cube) | form_bit(form_sphere);

// Zone coordinates, millimetres on the wire and metres in the record; one row sends and reads each.
template <auto Form, auto Member> constexpr reply::field mm(const char *key) { return reply::number<Form, Member>(key, scale_tag::thousandths); }
constexpr reply::field cube_keys[] = {
    mm<&zone::cube, &cube::x_max_limit>("x_max_limit"), mm<&zone::cube, &cube::x_min_limit>("x_min_limit"), mm<&zone::cube, &cube::y_max_limit>("y_max_limit"), mm<&zone::cube, &cube::y_min_limit>("y_min_limit"), mm<&zone::cube, &cube::z_max_limit>("z_max_limit"),
    // Every sender has always sent the lower x bound under "z_min_limit"; the reply is read as named.
    mm<&zone::cube, &cube::z_min_limit>("z_min_limit").sent_from<&zone::cube, &cube::x_min_limit>()};
constexpr reply::field plane_keys[] = {mm<&zone::plane, &plane::x1>("x1"), mm<&zone::plane, &plane::y1>("y1"), mm<&zone::plane, &plane::z1>("z1"), mm<&zone::plane, &plane::x2>("x2"), mm<&zone::plane, &plane::y2>("y2"), mm<&zone::plane, &plane::z2>("z2"), mm<&zone::plane, &plane::x3>("x3"), mm<&zone::plane, &plane::y3>("y3"), mm<&zone::plane, &plane::z3>("z3")};
constexpr reply::field sphere_keys[] = {mm<&zone::sphere, &sphere::radius>("radius"), mm<&zone::sphere, &sphere::x>("x"), mm<&zone::sphere, &sphere::y>("y"), mm<&zone::sphere, &sphere::z>("z")};
// Checked as the common parse checks when a reply holds one zone, by form; listed zones follow the list's rules.
constexpr reply::schema zone_replies[] = {reply::common({}), reply::common(cube_keys), reply::common(plane_keys), reply::common(sphere_keys)};
constexpr reply::field zone_form_field[] = {reply::number<&zone::form>("form")};
constexpr reply::schema zone_form_reply = reply::common(zone_form_field);
const reply::schema *zone_schema(int form) { return form_bit(form) ? &zone_replies[form] : nullptr; }

// A zone's sender: stored fences go with their name; it takes `forms`, logs `wrong_form` for another known form, refuses an unknown one unsent (-4) with `unknown_form`.
struct zone_sender {
    cmd::set_command command;
    bool named;
    unsigned forms;
    const char *wrong_form = nullptr;
    const char *unknown_form = nullptr;
};
constexpr zone_sender add_fence{cmd::set<"add_electronic_fence_config">("add_config"), true, any_form, nullptr, "Configuration error for the form of the newly added electronic fence! Wrong form: %d\n"};
constexpr zone_sender update_fence{cmd::set<"update_electronic_fence_config">("update_config"), true, any_form};
constexpr zone_sender active_fence{cmd::set<"set_electronic_fence_config">("set_config"), false, fence_forms, "electronic fence form check err!!"};
constexpr zone_sender virtual_wall{cmd::set<"set_virtual_wall_config">("set_config"), false, wall_forms, "virtual wall form check err!\n"};
// clang-format on

// Irregular: keys follow the form; a form the sender does not take goes out empty (send error, -1).
int send_zone(const zone_sender &s, ka_robot_handle *handle, ka_fence_config_t zone) {
    const cmd::set_command &c = s.command;
    if (s.unknown_form && !form_bit(zone.form)) {
        ka_log_error(s.unknown_form, zone.form);
        return -4;
    }
    const auto name = cmd::text_of(zone.form_name);
    ka_request_field fields[2 + std::size(plane_keys)] = {cmd::number("form", zone.form),
                                                          cmd::text("form_name", name.text)};
    if (!(s.forms & form_bit(zone.form))) {
        if (s.wrong_form && form_bit(zone.form)) ka_log_error(s.wrong_form);
        return ka_pack_lock_set(c.function, handle, fields, 0, c.reply, nullptr, 0, c.timeout_ms);
    }
    const int head = s.named ? 2 : 1;
    const int count = head + reply::request(*zone_schema(zone.form), &zone, fields + head);
    return cmd::run(c, handle, std::span(fields, count));
}

// The coordinates of a zone of one of Forms, from the same reply; another form has none.
template <unsigned Forms>
int read_coordinates(const char *function, ka_robot_handle *, const char *text, void *record) {
    auto &z = *static_cast<zone *>(record);
    return Forms & form_bit(z.form) ? reply::read(*zone_schema(z.form), function, text, z) : 0;
}

// clang-format off
// Stored-fence lists: at most KA_FENCE_LIST_CAPACITY entries (the caller's room), the count set before they are read; a full name has no terminator.
constexpr reply::field fence_name_field[] = {reply::text<&ka_fence_names_t::name>(nullptr, KA_NAME_SIZE)};
constexpr reply::schema fence_name_entry{fence_name_field};
constexpr reply::field fence_names_fields[] = {reply::page_list<ka_fence_names_t>("name_list", fence_name_entry, KA_FENCE_LIST_CAPACITY).count_before()};
constexpr reply::schema fence_names_reply{fence_names_fields, -3, "Get fence list names parse err\n", "Get fence list names parse err\n"};
// A listed zone: name, form and that form's coordinates; the first entry that breaks a rule ends the read (-3), it and those after it as they were.
constexpr reply::field listed_zone_fields[] = {reply::text<&zone::form_name>("form_name", KA_NAME_SIZE), reply::number<&zone::form>("form"), reply::variant([](const void *z) { return zone_schema(static_cast<const zone *>(z)->form); })};
constexpr reply::schema listed_zone_entry{listed_zone_fields};
constexpr reply::field fence_infos_fields[] = {reply::page_list<zone>("info_list", listed_zone_entry, KA_FENCE_LIST_CAPACITY).count_before().atomic()};
constexpr reply::schema fence_infos_reply{fence_infos_fields};
// A given fence keeps ten characters of its name; the field's last two bytes stay zero.
constexpr reply::field given_fence_fields[] = {reply::number<&zone::form>("form"), reply::text<&zone::form_name>("form_name", 10, reply::text_rule::cleared)};
constexpr reply::schema given_fence_reply = reply::common(given_fence_fields);
// A non-boolean "enable_state" leaves the caller's value as it was.
using on_off = ka_electronic_fence_enable_t;
constexpr reply::field enable_fields[] = {reply::flag<&on_off::enable_state>("enable_state"), reply::number<&on_off::in_out_side>("in_out_side"), reply::number<&on_off::effective_region>("effective_region")};
constexpr reply::schema enable_reply = reply::common(enable_fields);
constexpr reply::field self_collision_field[] = {reply::value<bool>("enable_state")};
constexpr reply::schema self_collision_reply = reply::common(self_collision_field);
// Whole degrees on the wire, unscaled.
constexpr reply::field install_field[] = {reply::values<float>("pose", 3, scale_tag::whole)};
constexpr reply::schema install_reply = reply::common(install_field);
// clang-format on

// The controller says a fence name is unknown before it says anything else.
int known_fence(const char *function, const char *text) {
    if (parse_ka_set_command(function, text, "given_state") != 1) return 0;
    ka_log_error("The given electronic fence name does not exist!\n");
    return 1;
}

// clang-format off
// The electronic fence and the virtual wall are switched the same way.
constexpr std::initializer_list<cmd::arg> enable_args = {{"set_enable"}, {"in_out_side"}, {"effective_region"}};
// Without a zone configured the controller answers "given_state": false.
template <cmd::wire_name Command, unsigned Forms>
constexpr reply::record_query active_zone{.command = cmd::query<Command>(), .reply = &zone_form_reply, .whole = true, .refused_key = "given_state", .then = read_coordinates<Forms>};
constexpr auto delete_fence = cmd::set<"delete_electronic_fence_config">("delete_config", nullptr, m_nOutTime, {{"form_name"}});
constexpr reply::record_query fence_names{cmd::query<"get_electronic_fence_list_names">(), &fence_names_reply};
constexpr reply::record_query given_fence{.command = cmd::query<"given_electronic_fence_config", "ka_get_given_electronic_fence_config">(nullptr, {}, {{"form_name"}}), .reply = &given_fence_reply, .whole = true, .first = known_fence, .then = read_coordinates<any_form>};
// The list of all stored fences needs a longer line than one reply.
constexpr reply::record_query fence_infos{.command = cmd::query<"get_electronic_fence_list_infos">(), .reply = &fence_infos_reply, .reply_size = 2 * reply_buffer_size};
constexpr auto fence_enable_set = cmd::set<"set_electronic_fence_enable">("set_state", nullptr, m_nOutTime, enable_args);
// The enable readers look the handle up first; the line names the lookup.
constexpr reply::record_query fence_enable{.command = cmd::query<"get_electronic_fence_enable">(), .reply = &enable_reply, .lookup = "ka_get_robot_info"};
constexpr auto fence_config = active_zone<"get_electronic_fence_config", fence_forms>;
constexpr auto wall_enable_set = cmd::set<"set_virtual_wall_enable">("set_state", nullptr, m_nOutTime, enable_args);
constexpr reply::record_query wall_enable{.command = cmd::query<"get_virtual_wall_enable">(), .reply = &enable_reply, .lookup = "ka_get_robot_info"};
constexpr auto wall_config = active_zone<"get_virtual_wall_config", wall_forms>;
constexpr auto self_collision_set = cmd::set<"set_self_collision_enable">("set_state", nullptr, m_nOutTime, {{"set_enable"}});
constexpr reply::record_query self_collision{.command = cmd::query<"get_self_collision_enable">(), .reply = &self_collision_reply, .lookup = "ka_get_robot_info"};
constexpr auto run_mode_set = cmd::set1<"set_arm_run_mode">("mode");
constexpr auto run_mode = cmd::query<"get_arm_run_mode">(nullptr, {{"mode"}});
// The controller stores the install angles before it answers.
constexpr auto install_pose_set = cmd::set<"set_install_pose">("set_state", nullptr, m_nOutTime + 100, {{"pose"}, {}, {}});
constexpr reply::record_query install_pose{cmd::query<"get_install_pose">("install_pose"), &install_reply};
constexpr auto tool_version = cmd::query<"get_tool_software_version">("tool_software_version", {{"version"}});
// The DOF is checked before the query goes out.
constexpr reply::field joint_versions_field[] = {reply::values<int32_t>("version", cmd::per_joint)};
constexpr reply::schema joint_versions_reply = reply::common(joint_versions_field);
constexpr reply::record_query joint_versions{.command = cmd::query<"get_joint_software_version">("joint_software_version"), .reply = &joint_versions_reply, .dof_first = true};
// clang-format on

} // namespace

extern "C" {

// clang-format off
int ka_add_electronic_fence_config(ka_robot_handle *h, ka_fence_config_t config) { return send_zone(add_fence, h, config); }
int ka_update_electronic_fence_config(ka_robot_handle *h, ka_fence_config_t config) { return send_zone(update_fence, h, config); }
int ka_delete_electronic_fence_config(ka_robot_handle *h, const char *form_name) { return delete_fence(h, form_name); }
int ka_get_given_electronic_fence_config(ka_robot_handle *h, const char *form_name, ka_fence_config_t *config) { return given_fence(h, config, form_name); }
int ka_get_electronic_fence_list_names(ka_robot_handle *h, ka_fence_names_t *names, int *len) { return fence_names.list(h, names, len); }
int ka_get_electronic_fence_list_infos(ka_robot_handle *h, ka_fence_config_list_t *list, int *len) { return fence_infos.list(h, list, len); }
int ka_set_electronic_fence_config(ka_robot_handle *h, ka_fence_config_t config) { return send_zone(active_fence, h, config); }
int ka_set_electronic_fence_enable(ka_robot_handle *h, ka_electronic_fence_enable_t s) { return fence_enable_set(h, s.enable_state, s.in_out_side, s.effective_region); }
int ka_get_electronic_fence_enable(ka_robot_handle *h, ka_electronic_fence_enable_t *s) { return fence_enable(h, s); }
int ka_get_electronic_fence_config(ka_robot_handle *h, ka_fence_config_t *config) { return fence_config(h, config); }
int ka_set_virtual_wall_config(ka_robot_handle *h, ka_fence_config_t config) { return send_zone(virtual_wall, h, config); }
int ka_set_virtual_wall_enable(ka_robot_handle *h, ka_electronic_fence_enable_t s) { return wall_enable_set(h, s.enable_state, s.in_out_side, s.effective_region); }
int ka_get_virtual_wall_enable(ka_robot_handle *h, ka_electronic_fence_enable_t *s) { return wall_enable(h, s); }
int ka_get_virtual_wall_config(ka_robot_handle *h, ka_fence_config_t *config) { return wall_config(h, config); }
int ka_set_self_collision_enable(ka_robot_handle *h, bool enable) { return self_collision_set(h, enable); }
int ka_get_self_collision_enable(ka_robot_handle *h, bool *enable) { return self_collision(h, enable); }
// The controller knows two run modes: any non-zero mode is sent as 1.
int ka_set_arm_run_mode(ka_robot_handle *h, int mode) { return run_mode_set(h, mode != 0 ? 1 : 0); }
int ka_get_arm_run_mode(ka_robot_handle *h, int *mode) { return run_mode(h, mode); }
int ka_get_tool_software_version(ka_robot_handle *h, int *version) { return tool_version(h, version); }
int ka_get_joint_software_version(ka_robot_handle *h, int *version) { return joint_versions(h, version); }
// clang-format on

// Whole degrees on the wire, fractions dropped; the angles are read back on success.
int ka_set_install_pose(ka_robot_handle *h, float x, float y, float z) {
    int result = install_pose_set(h, scale::truncate(x), scale::truncate(y), scale::truncate(z));
    float read[3] = {};
    return result != 0 ? result : ka_get_install_pose(h, &read[0], &read[1], &read[2]);
}

// Irregular: three pointers out, and the handle's copy follows every read.
int ka_get_install_pose(ka_robot_handle *handle, float *x, float *y, float *z) {
    float angles[3] = {};
    if (!x || !y || !z) return -1;
    if (int status = install_pose(handle, &angles); status != 0) return status;
    *x = angles[0], *y = angles[1], *z = angles[2];
    return reply::keep<&arm_record::install>(handle, angles) ? 0 : -1;
}

} // extern "C"
