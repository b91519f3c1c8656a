// The reply-schema reader: each option against a reply that exercises it
// (wrong type, missing key, short array, over-capacity list, text at its
// limit), with the code, the error line and what the record holds after.
#include "core/reply_schema.h"
#include "support/arm_fixture.h"

#include <cstring>
#include <functional>
#include <gtest/gtest.h>
#include <string>

using namespace ka_test;
using reply::scale_tag;
using reply::text_rule;

namespace {

struct entry {
    char tag[4];
    int32_t v;
};
struct sample {
    int32_t count;
    float angle;
    float metres;
    uint8_t bits;
    bool on;
    char name[6];
    char cleared[6];
    char terminated[6];
    float joints[7];
    ka_pose_t pose;
    float x, y;
    int32_t loops[4];
    int32_t loop_count;
    entry entries[3];
    int32_t listed;
};

constexpr reply::field scalar_fields[] = {
    reply::number<&sample::count>("n"),
    reply::number<&sample::angle>("a", scale_tag::millidegrees),
    reply::number<&sample::metres>("m", scale_tag::millionths).positive().named("metres"),
    reply::number<&sample::bits>("b").loose(), // a byte member keeps the low bits
    reply::flag<&sample::on>("on").optional(),
    reply::text<&sample::name>("name", 4).loose(),
    reply::text<&sample::cleared>("c", 4, text_rule::cleared).optional(),
    reply::text<&sample::terminated>("t", 4, text_rule::terminated).optional(),
};
constexpr reply::schema scalars{scalar_fields, -1, "[%s] not json\n", "[%s] %s bad\n"};

constexpr reply::field array_fields[] = {
    reply::numbers<&sample::joints>("j", cmd::per_joint, scale_tag::millidegrees),
    reply::pose<&sample::pose>("p").at_least(),
    reply::numbers_into<&sample::x, &sample::y>("xy", scale_tag::thousandths).optional(),
    reply::numbers_up_to<&sample::loops, &sample::loop_count>("loops", 4).optional(),
};
constexpr reply::schema arrays{array_fields, -2, nullptr, "[%s] %s bad\n"};

constexpr reply::field entry_fields[] = {reply::text<&entry::tag>("tag", 3),
                                         reply::number<&entry::v>("v")};
constexpr reply::schema entry_schema{entry_fields};
constexpr reply::field tag_field[] = {reply::text<&entry::tag>(nullptr, 4)};
constexpr reply::schema tag_schema{tag_field};
constexpr reply::field list_fields[] = {
    reply::verdict("ok", "[%s] %s refused\n"),
    reply::list<&sample::entries, &sample::listed>("l", entry_schema, 3)
        .count_before()
        .atomic()
        .entry_named("entry"),
};
constexpr reply::schema lists{list_fields, -3, nullptr, "[%s] %s bad\n"};
constexpr reply::field name_list_fields[] = {
    reply::list<&sample::entries, &sample::listed>("names", tag_schema, 3)
        .or_key("other")
        .until_null()};
constexpr reply::schema name_lists{name_list_fields, -2};

constexpr reply::field pose_only[] = {reply::pose<&sample::pose>("p")};
constexpr reply::schema pose_schema{pose_only};
constexpr reply::field variant_fields[] = {
    reply::number<&sample::count>("form"),
    reply::variant([](const void *r) -> const reply::schema * {
        return static_cast<const sample *>(r)->count == 1 ? &pose_schema : nullptr;
    }),
};
constexpr reply::schema variants{variant_fields};

constexpr reply::field common_fields[] = {
    reply::number<&sample::count>("n"),
    reply::flag<&sample::on>("on"),
    reply::text<&sample::name>("name", 4),
    reply::numbers<&sample::joints>("j", cmd::per_joint, scale_tag::thousandths),
};
constexpr reply::schema common{common_fields, -3, nullptr, nullptr, true};

// A record whose every byte is 'z' (0x7a), so that what was not written
// shows; the boolean, which may only hold 0 or 1, starts true.
sample filled() {
    sample s;
    std::memset(&s, 'z', sizeof s);
    s.on = true;
    return s;
}
const float z_float = [] {
    float f;
    std::memset(&f, 'z', sizeof f);
    return f;
}();

struct row {
    const char *what;
    const reply::schema &schema;
    std::string text;
    int code;
    std::string line; // an error line the read must log; empty: none looked for
    std::function<void(const sample &)> check;
};

} // namespace

TEST(reply_schema, every_option_reads_or_rejects_as_described) {
    auto none = [](const sample &) {};
    // clang-format off
    const row rows[] = {
        {"scales and text limits", scalars, R"({"n":-7,"a":-1500,"m":2500000,"b":511,"on":false,"name":"abcdefg","c":"ab","t":"abcdefg"})", 0, "", [](const sample &s) {
            EXPECT_EQ(s.count, -7);
            EXPECT_FLOAT_EQ(s.angle, -1.5f);
            EXPECT_FLOAT_EQ(s.metres, 2.5f);
            EXPECT_EQ(s.bits, 255);
            EXPECT_FALSE(s.on);
            EXPECT_EQ(std::string(s.name, 6), "abcdzz"); // padded to the limit, no terminator
            EXPECT_EQ(std::string(s.cleared, 6), std::string("ab\0\0\0\0", 6));
            EXPECT_EQ(std::string(s.terminated, 6), std::string("abcd\0z", 6));
        }},
        {"text shorter than its limit is zero-padded to it", scalars, R"({"n":1,"a":0,"m":0,"name":"ab"})", 0, "", [](const sample &s) {
            EXPECT_EQ(std::string(s.name, 6), std::string("ab\0\0zz", 6));
        }},
        {"missing required key", scalars, R"({"a":1,"m":1})", -1, "[t] n bad\n", none},
        {"wrong type of a required key", scalars, R"({"n":"1","a":1,"m":1})", -1, "[t] n bad\n", none},
        {"negative where only positive is taken, under its label", scalars, R"({"n":1,"a":1,"m":-1})", -1, "[t] metres bad\n", none},
        {"loose keys of the wrong type are skipped", scalars, R"({"n":1,"a":1,"m":1,"b":"x","name":5})", 0, "", [](const sample &s) {
            EXPECT_EQ(s.bits, 'z');
            EXPECT_EQ(s.name[0], 'z');
        }},
        {"optional key of the wrong type fails", scalars, R"({"n":1,"a":1,"m":1,"on":1})", -1, "[t] on bad\n", none},
        {"not JSON", scalars, "{", -1, "[t] not json\n", none},
        {"per-joint, pose, members and up-to arrays", arrays, R"({"j":[1000,2000,3000,4000,5000,6000],"p":[1000000,0,0,1000,0,0,99],"xy":[1500,-2500],"loops":[1,"x",3]})", 0, "", [](const sample &s) {
            EXPECT_FLOAT_EQ(s.joints[5], 6.0f);
            EXPECT_EQ(s.joints[6], z_float); // six joints: the seventh is not written
            EXPECT_FLOAT_EQ(s.pose.position.x, 1.0f);
            EXPECT_FLOAT_EQ(s.pose.euler.rx, 1.0f);
            EXPECT_FLOAT_EQ(s.x, 1.5f);
            EXPECT_FLOAT_EQ(s.y, -2.5f);
            EXPECT_EQ(s.loop_count, 3);
            EXPECT_EQ(s.loops[1], 0); // any element counts as a number
            EXPECT_EQ(s.loops[3], 0x7a7a7a7a);
        }},
        {"up-to array over capacity", arrays, R"({"j":[0,0,0,0,0,0],"p":[0,0,0,0,0,0],"loops":[1,2,3,4,5,6]})", 0, "", [](const sample &s) {
            EXPECT_EQ(s.loop_count, 4);
            EXPECT_EQ(s.loops[3], 4);
        }},
        {"exact array one short", arrays, R"({"j":[0,0,0,0,0],"p":[0,0,0,0,0,0]})", -2, "[t] j bad\n", none},
        {"exact array one long", arrays, R"({"j":[0,0,0,0,0,0,0],"p":[0,0,0,0,0,0]})", -2, "[t] j bad\n", none},
        {"at-least array short", arrays, R"({"j":[0,0,0,0,0,0],"p":[0,0,0,0,0]})", -2, "[t] p bad\n", none},
        {"array element not a number", arrays, R"({"j":[0,0,0,0,0,0],"p":[0,0,0,0,"0",0]})", -2, "[t] p bad\n", none},
        {"array that is an object", arrays, R"({"j":{},"p":[0,0,0,0,0,0]})", -2, "[t] j bad\n", none},
        {"list over capacity: counted first, cut at capacity", lists, R"({"ok":true,"l":[{"tag":"abcd","v":1},{"tag":"b","v":2},{"tag":"c","v":3},{"tag":"d","v":4}]})", 0, "", [](const sample &s) {
            EXPECT_EQ(s.listed, 3);
            EXPECT_EQ(std::string(s.entries[0].tag, 4), "abcz");
            EXPECT_EQ(s.entries[2].v, 3);
        }},
        {"failing entry is left whole, those before stay", lists, R"({"l":[{"tag":"a","v":1},{"tag":"b","v":"2"}]})", -3, "[t] entry bad\n", [](const sample &s) {
            EXPECT_EQ(s.listed, 2);
            EXPECT_EQ(s.entries[0].v, 1);
            EXPECT_EQ(s.entries[1].tag[0], 'z');
        }},
        {"verdict false", lists, R"({"ok":false,"l":[]})", 1, "[t] ok refused\n", none},
        {"verdict of the wrong type", lists, R"({"ok":1,"l":[]})", -3, "[t] ok bad\n", none},
        {"list missing", lists, R"({"ok":true})", -3, "[t] l bad\n", none},
        {"names end at NULL, under the second key", name_lists, R"({"other":["abcdef","x","NULL","y"]})", 0, "", [](const sample &s) {
            EXPECT_EQ(s.listed, 2);
            EXPECT_EQ(std::string(s.entries[0].tag, 4), "abcd");
            EXPECT_EQ(s.entries[2].tag[0], 'z');
        }},
        {"names: an empty list leaves the count", name_lists, R"({"names":[]})", 0, "", [](const sample &s) {
            EXPECT_EQ(s.listed, 0x7a7a7a7a);
        }},
        {"names that are not a list", name_lists, R"({"names":"a"})", -2, "", none},
        {"variant read by what the record holds", variants, R"({"form":1,"p":[0,0,0,0,0,2000]})", 0, "", [](const sample &s) {
            EXPECT_FLOAT_EQ(s.pose.euler.rz, 2.0f);
        }},
        {"variant with no fields for the value", variants, R"({"form":2})", 0, "", none},
        {"variant's field missing", variants, R"({"form":1})", -3, "", none},
        {"common: all read", common, R"({"n":3,"on":"yes","name":"abcdef","j":[1,2,3,4,5,6]})", 0, "", [](const sample &s) {
            EXPECT_EQ(s.count, 3);
            EXPECT_TRUE(s.on); // a non-boolean leaves the member
            EXPECT_EQ(std::string(s.name, 6), "abcdzz");
            EXPECT_FLOAT_EQ(s.joints[5], 0.006f);
        }},
        {"common: missing key writes nothing", common, R"({"n":3,"on":true,"j":[1,2,3,4,5,6]})", -3, "[t] name parsing error\n", [](const sample &s) {
            EXPECT_EQ(s.count, 0x7a7a7a7a);
        }},
        {"common: short array", common, R"({"n":3,"on":true,"name":"a","j":[1,2,3,4,5]})", -3, "[t] Array size mismatch for key j\n", none},
    };
    // clang-format on
    for (const row &r : rows) {
        SCOPED_TRACE(r.what);
        log_capture log;
        sample s = filled();
        EXPECT_EQ(reply::read(r.schema, "t", r.text.c_str(), s, 6), r.code);
        if (!r.line.empty()) EXPECT_TRUE(log.contains(r.line)) << r.line;
        r.check(s);
    }
}

TEST(reply_schema, a_shown_field_logs_its_values_as_read) {
    constexpr static reply::field shown[] = {
        reply::text<&sample::name>("name", 4).show("[%s] name %s\n"),
        reply::numbers_into<&sample::x, &sample::y>("xy", scale_tag::thousandths)
            .show("[%s] xy (%.3f, %.3f)\n"),
    };
    constexpr static reply::schema schema{shown};
    log_capture log;
    sample s = filled();
    ASSERT_EQ(reply::read(schema, "t", R"({"name":"abcdef","xy":[1500,-250]})", s), 0);
    EXPECT_TRUE(log.contains("[t] name abcdef\n")); // the text as sent, not as kept
    EXPECT_TRUE(log.contains("[t] xy (1.500, -0.250)\n"));
}

namespace {

// A record query's hooks, each leaving a trace in the record it was given.
int refuse_first(const char *, const char *text) { return std::strstr(text, "\"stop\"") ? 5 : 0; }
int then_checks(const char *, ka_robot_handle *, const char *, void *record) {
    auto &s = *static_cast<sample *>(record);
    s.loop_count = 42;
    return s.count == 13 ? 7 : 0;
}

constexpr cmd::as milli = cmd::as::thousandths;
// clang-format off
constexpr reply::record_query whole_query{.command = cmd::query<"probe", "t">("probe_data", {}, {{"name"}, {"m", milli}, {nullptr, milli}}), .reply = &common, .whole = true, .first = refuse_first, .then = then_checks};
constexpr reply::record_query direct_query{.command = cmd::query<"probe", "t">("probe_data"), .reply = &scalars, .refused_key = "known"};
// clang-format on

} // namespace

// The request goes out with its keys and scale tags, the reply is read by
// the schema (per-joint arrays with the arm's DOF), and the hooks, the
// refusal key and the whole-record rule decide what the caller sees.
TEST(reply_schema, a_record_query_exchanges_then_reads_its_reply) {
    arm_session s;
    const std::string ok = R"("n":3,"on":true,"name":"abcdef","j":[1,2,3,4,5,6])";
    auto run_whole = [&](sample &r, ka_robot_handle *h) {
        return whole_query(h, &r, "ab", 1.5f, -0.25f);
    };
    struct check {
        const char *what;
        bool whole;
        std::string reply;
        int code;
        std::function<void(const sample &)> record;
    };
    auto untouched = [](const sample &r) { EXPECT_EQ(r.count, 0x7a7a7a7a); };
    // clang-format off
    const check rows[] = {
        {"read whole, then the hook", true, line("probe_data", ok), 0, [](const sample &r) { EXPECT_EQ(r.count, 3); EXPECT_FLOAT_EQ(r.joints[5], 0.006f); EXPECT_EQ(r.joints[6], z_float); EXPECT_EQ(r.loop_count, 42); }},
        {"a failed read leaves the record whole", true, line("probe_data", R"("n":3,"on":true,"name":"a","j":[1,2])"), -3, untouched},
        {"the first hook judges before the read", true, line("probe_data", R"("stop":1,)" + ok), 5, untouched},
        {"the then hook's status is the call's, record unwritten", true, line("probe_data", R"("n":13,"on":true,"name":"a","j":[1,2,3,4,5,6])"), 7, untouched},
        {"direct: the refusal key false gives 1", false, line("probe_data", R"("known":false)"), 1, untouched},
        {"direct: without the refusal key, -3", false, line("probe_data", R"("other":1)"), -3, untouched},
        {"direct: what the schema read before failing stays", false, line("probe_data", R"("n":4,"a":1)"), -3, [](const sample &r) { EXPECT_EQ(r.count, 4); }},
    };
    // clang-format on
    for (const check &c : rows) {
        SCOPED_TRACE(c.what);
        sample r = filled();
        const std::string request =
            c.whole ? line("probe", R"("name":"ab","m":[1500,-250])") : line("probe");
        wire_case row{
            c.what,
            [&](ka_robot_handle *h) { return c.whole ? run_whole(r, h) : direct_query(h, &r); },
            request, c.reply, c.code};
        expect_wire(s, row);
        c.record(r);
    }
    sample r = filled();
    EXPECT_EQ(whole_query(s.arm, static_cast<sample *>(nullptr), "ab", 1.5f, -0.25f), -1);
    EXPECT_EQ(whole_query(s.arm, &r, static_cast<const char *>(nullptr), 1.5f, -0.25f), -1);
}
