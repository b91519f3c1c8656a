// A controller that misbehaves on the wire, one row per fault: what the peer
// does, which call probes it, the code that call must return and the time it
// may take, and what must still work afterwards. Every row runs in each
// thread mode it applies to (0 single, 1 dual, 2 triple).
//
// Codes: 0 done, -1 local failure or disconnected, -2 no reply in time (500 ms
// for queries, 1000 ms for ka_set_data_common), -3 unparsable reply.
#include "core/arm.h"
#include "support/arm_fixture.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <condition_variable>
#include <functional>
#include <gtest/gtest.h>
#include <limits>
#include <mutex>
#include <optional>
#include <ostream>
#include <utility>

using namespace ka_test;
using namespace std::chrono_literals;
using std::chrono::milliseconds;

namespace {

// ---- what the probes send and what a well-behaved controller answers ----

std::string get_v_reply(int v) { return line("get_v", "\"v\":" + std::to_string(v)); }
const std::string set_x_reply = answer("set_x", "set_state");
const std::string joint_reply = line("joint_degree", "\"joint\":[9000,1000,2000,3000,4000,5000]");
std::string crlf(const std::string &text) { return text + "\r\n"; }

// A get_v reply carrying v, padded with a string field to exactly `bytes`
// bytes (without "\r\n").
std::string padded_get_v(int v, std::size_t bytes) {
    const std::string head = R"({"command":"get_v","v":)" + std::to_string(v) + R"(,"pad":")";
    const std::string tail = "\"}";
    return head + std::string(bytes - head.size() - tail.size(), 'p') + tail;
}

// ---- one row's surroundings ----

struct fault_env {
    int mode;
    arm_session &session;
    log_capture &log;
    ka_robot_handle *target; // the arm the probe runs on
    const event_recorder &events;
    int events_before_row; // completion reports seen when the row's arm had opened
};

int events_so_far(const fault_env &env) { return env.events.count(1); }

bool wait_for_events(const fault_env &env, int count, milliseconds timeout) {
    return env.events.wait_for(count, timeout, 1);
}

bool threaded(const fault_env &env) { return env.mode != KA_THREAD_MODE_SINGLE; }

// The receive thread notices a peer's close on its own; waiting for its log
// line makes the next call's code deterministic. In single-thread mode the
// next call's own reads notice it, once the close has reached the socket.
void expect_library_saw_close(const fault_env &env) {
    if (threaded(env)) {
        ASSERT_TRUE(env.log.wait_for("connection of arm", 2s))
            << "the receive thread never noticed the closed connection";
        return;
    }
    arm_ptr arm = registry_find(env.target);
    ASSERT_TRUE(arm);
    ASSERT_EQ(platform::wait_readable(arm->socket->fd, 2000), 1)
        << "the close never reached the arm's socket";
}

// ---- probes ----

struct outcome {
    int code;
    int value; // the probe's reading when it succeeded
};

struct probe {
    const char *name;
    int timeout_ms;
    outcome (*call)(fault_env &);
};

outcome get_v(ka_robot_handle *arm) {
    int v = -12345;
    int code = ka_get_data_common(arm, &v, "get_v", "v");
    return {code, v};
}

const probe get{"get_data_common", 500, [](fault_env &env) { return get_v(env.target); }};
const probe set{"set_data_common", 1000, [](fault_env &env) {
                    return outcome{ka_set_data_common(env.target, 5, "set_x", "k"), 0};
                }};
const probe joints{"get_joint_degree", 500, [](fault_env &env) {
                       float j[7] = {};
                       int code = ka_get_joint_degree(env.target, j);
                       return outcome{code, static_cast<int>(j[0])};
                   }};
// Blocking: in thread mode 0 block is a limit in seconds.
const probe movej{"movej", 500, [](fault_env &env) {
                      const float j[7] = {1, 2, 3, 4, 5, 6, 0};
                      int block = threaded(env) ? 1 : 2;
                      return outcome{ka_movej(env.target, j, 20, 0, 0, block), 0};
                  }};
// Opens a second arm; its id is the outcome.
const probe open_arm{"create_robot_arm", 3000, [](fault_env &env) {
                         env.target = ka_create_robot_arm(
                             "127.0.0.1", unused_local_port(sim::net::transport::tcp));
                         return outcome{env.target ? env.target->id : 99, 0};
                     }};
// A request far larger than the socket buffers can take while the peer does
// not read (loopback takes a few MB at most).
constexpr int send_stall_ms = 3000;
const probe huge_set{"set_data_common, 8 MB request", send_stall_ms, [](fault_env &env) {
                         static const std::string name(8u << 20, 'n');
                         return outcome{ka_set_data_common(env.target, 1, name.c_str(), "k"), 0};
                     }};

// ---- expected codes per mode ----

constexpr int not_applicable = std::numeric_limits<int>::min();
using mode_codes = std::array<int, 3>;
constexpr mode_codes every(int code) { return {code, code, code}; }
constexpr mode_codes single_then_threaded(int single, int threads) {
    return {single, threads, threads};
}

// ---- time windows ----

// Generous: only a hang or a missed wake-up goes past it.
constexpr milliseconds hang_margin = 1000ms;

struct window {
    milliseconds at_least;
    milliseconds at_most;
};
// Waited out the full time-out, and not much longer.
window runs_out(const probe &p) {
    return {milliseconds(p.timeout_ms), milliseconds(p.timeout_ms) + hang_margin};
}
// Answered before the time-out.
window answered(const probe &p) { return {0ms, milliseconds(p.timeout_ms)}; }
// Ended by an event well before the time-out would have ended it.
window ends_early(const probe &p) { return {0ms, milliseconds(p.timeout_ms * 9 / 10)}; }

// ---- what the peer does ----

using setup_fn = std::function<void(fault_env &)>;

// The probe's request line is answered with these actions.
setup_fn answers(std::vector<action> actions) {
    return [actions](fault_env &env) { env.session.peer.answer_next(actions); };
}

// Every byte in its own segment.
std::vector<std::size_t> every_byte(std::size_t size) {
    std::vector<std::size_t> cuts;
    for (std::size_t i = 1; i < size; ++i)
        cuts.push_back(i);
    return cuts;
}

// Pieces of `piece` bytes.
std::vector<std::size_t> pieces(std::size_t size, std::size_t piece) {
    std::vector<std::size_t> cuts;
    for (std::size_t i = piece; i < size; i += piece)
        cuts.push_back(i);
    return cuts;
}

// Byte by byte across the line-length limit (20480 bytes of text) and
// between the "\r" and "\n" that end the line.
std::vector<std::size_t> around_the_limit(std::size_t size) {
    std::vector<std::size_t> cuts;
    for (std::size_t i = 20470; i <= 20490; ++i)
        cuts.push_back(i);
    cuts.push_back(size - 1);
    return cuts;
}

enum class segmentation { one_write, mss_pieces, small_pieces, around_limit };

action sent_as(const std::string &bytes, segmentation how) {
    switch (how) {
    case segmentation::one_write:
        return raw(bytes);
    case segmentation::mss_pieces:
        return split(bytes, pieces(bytes.size(), 1460), 0ms);
    case segmentation::small_pieces:
        return split(bytes, pieces(bytes.size(), bytes.size() > 100000 ? 64 : 7), 0ms);
    case segmentation::around_limit:
        return split(bytes, around_the_limit(bytes.size()), 0ms);
    }
    return raw(bytes);
}

// 200 KB: a reply of the probe's name, so that taking any part of it as the
// reply shows (v 1, or -3).
const std::string huge_line = crlf(padded_get_v(1, 200 * 1024));
// 20,000 bytes: under the limit, so received; longer than the 1024-byte reply
// buffer, so cut, and the cut text no longer parses.
const std::string long_reply = crlf(padded_get_v(9, 20000));

const std::string nul_line = std::string(R"({"command":"get_v","v":1})") + '\0' + "x\r\n";
const std::string garbage = "this is not json\r\n{\"command\":\r\n]]]{}\r\n\x01\x02\x03\r\n";

void close_before(fault_env &env) {
    env.session.peer.close_current();
    ASSERT_TRUE(env.session.peer.wait_for_disconnect(0, 2s));
    expect_library_saw_close(env);
}

// A completion report the arm sent before the blocking motion began; it
// must not end the motion's wait.
void stale_report_then_motion(fault_env &env) {
    test_peer &peer = env.session.peer;
    const int before = events_so_far(env);
    peer.push({reply(completion_report(0, false))});
    if (threaded(env)) ASSERT_TRUE(wait_for_events(env, before + 1, 2s));
    peer.on("get_arm_current_trajectory",
            {reply(line("arm_current_trajectory", R"("type":"movej","data":[0,0,0,0,0,0])"))});
    peer.on("movej",
            {reply(answer("movej", "receive_state")), delay(150ms), reply(completion_report())});
}

void closed_during_motion(fault_env &env) {
    env.session.peer.on("movej",
                        {reply(answer("movej", "receive_state")), delay(20ms), close_connection()});
}

constexpr int flood_lines = 5000;
constexpr int flood_every_report = 10; // every tenth line is a completion report
constexpr int flood_reports = flood_lines / flood_every_report;

// Thousands of named lines nobody waits for, completion reports among them,
// arrive while the query waits; its reply comes last.
void flood(fault_env &env) {
    std::vector<action> answer;
    std::string chunk;
    for (int i = 1; i <= flood_lines; ++i) {
        chunk += crlf(i % flood_every_report == 0 ? completion_report()
                                                  : line("noise", "\"n\":" + std::to_string(i)));
        if (i % 100 == 0) answer.push_back(raw(std::exchange(chunk, {})));
    }
    answer.push_back(reply(get_v_reply(9)));
    env.session.peer.answer_next(answer);
}

// ---- follow-up checks ----

using follow_fn = void (*)(fault_env &);

// The peer behaves again: it reads, and its one-shot misbehaviour is gone.
test_peer &behaving_peer(fault_env &env) {
    test_peer &peer = env.session.peer;
    peer.resume_reading();
    peer.drop_one_shot_rules();
    return peer;
}

// The arm answers a normal query with its own reply, in time.
void query_ok(fault_env &env) {
    test_peer &peer = behaving_peer(env);
    peer.answer_next({reply(get_v_reply(7))});
    auto start = std::chrono::steady_clock::now();
    outcome after = get_v(env.session.arm);
    EXPECT_EQ(after.code, 0) << "a normal query afterwards";
    EXPECT_EQ(after.value, 7) << "a normal query afterwards";
    EXPECT_LT(std::chrono::steady_clock::now() - start, 500ms);
}

// The request that was not read is read (and left unanswered) first.
void resume_then_query_ok(fault_env &env) {
    env.session.peer.resume_reading();
    ASSERT_TRUE(env.session.peer.wait_for_lines(1, 2s));
    query_ok(env);
}

// A new arm opened against the same controller works.
void fresh_arm_works(fault_env &env) {
    test_peer &peer = behaving_peer(env);
    ka_robot_handle *fresh = ka_create_robot_arm("127.0.0.1", peer.port());
    ASSERT_NE(fresh, nullptr);
    ASSERT_GT(fresh->id, 0) << "a fresh arm against the same controller";
    peer.answer_next({reply(get_v_reply(7))});
    outcome after = get_v(fresh);
    EXPECT_EQ(after.code, 0);
    EXPECT_EQ(after.value, 7);
}

// The arm's calls fail at once with -1.
void fails_fast(fault_env &env) {
    for (int call = 0; call < 2; ++call) {
        auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(get_v(env.target).code, -1) << "call " << call << " on the lost connection";
        EXPECT_LT(std::chrono::steady_clock::now() - start, 100ms);
    }
}

// The connection is gone: its calls fail fast, a fresh arm works.
void reconnects(fault_env &env) {
    fails_fast(env);
    fresh_arm_works(env);
}

// The peer closed right after its reply: the library sees the end of the
// stream on its own (the receive thread) or before its next request goes out
// (mode 0), and the arm then fails fast.
void reconnects_after_close(fault_env &env) {
    expect_library_saw_close(env);
    reconnects(env);
}

// In modes 1 and 2 a completion report sent after the leftover line, seen by
// the event callback, shows that the leftover has been received and filed.
void leftover_received(fault_env &env, int events_before) {
    if (threaded(env)) ASSERT_TRUE(wait_for_events(env, events_before + 1, 2s));
}

// The next call of the same name gets its own reply (2), not the leftover (1).
void next_call_gets_its_own(fault_env &env) {
    env.session.peer.answer_next({reply(get_v_reply(2))});
    outcome next = get_v(env.target);
    EXPECT_EQ(next.code, 0) << "the next call of the same name";
    EXPECT_EQ(next.value, 2) << "the next call took a leftover reply";
    query_ok(env);
}

// A reply (1) the last call did not take arrives now, as its own segment: a
// duplicate of the reply it took, or the late reply of a call that gave up.
// (A reply that comes while the next call already waits cannot be told from
// that call's own: the protocol carries no request number.)
void leftover_not_taken(fault_env &env) {
    const int before = events_so_far(env);
    env.session.peer.push({reply(get_v_reply(1)), reply(completion_report())});
    leftover_received(env, before);
    next_call_gets_its_own(env);
}

// Both copies came in one segment, with a report behind them.
void duplicate_in_segment_not_taken(fault_env &env) {
    leftover_received(env, env.events_before_row);
    next_call_gets_its_own(env);
}

void every_report_reached_the_callback(fault_env &env) {
    if (threaded(env)) {
        EXPECT_TRUE(wait_for_events(env, env.events_before_row + flood_reports, 5s))
            << "completion reports delivered: " << events_so_far(env) - env.events_before_row
            << " of " << flood_reports;
    }
    query_ok(env);
}

// ---- the table ----

struct fault_row {
    std::string name;
    mode_codes expected; // not_applicable: the fault does not apply in that mode
    setup_fn misbehave;
    const probe *probe_call;
    window time;
    std::optional<int> value; // the probe's reading when it succeeds
    follow_fn after;
};

const std::vector<fault_row> &fault_table() {
    using seg = segmentation;
    // clang-format off
    static const std::vector<fault_row> rows = {
        {"silence", every(-2), answers({}), &get, runs_out(get), {}, query_ok},
        {"silence to a set", every(-2), answers({}), &set, runs_out(set), {}, query_ok},
        {"silence to a joint query", every(-2), answers({}), &joints, runs_out(joints), {}, query_ok},
        {"garbage instead of the reply", every(-2), answers({raw(garbage)}), &get, runs_out(get), {}, query_ok},
        {"garbage before the reply", every(0), answers({raw(garbage + crlf(get_v_reply(9)))}), &get, answered(get), 9, query_ok},
        {"reply split byte by byte", every(0), answers({split(crlf(get_v_reply(9)), every_byte(crlf(get_v_reply(9)).size()), 0ms)}), &get, answered(get), 9, query_ok},
        {"joint reply split byte by byte", every(0), answers({split(crlf(joint_reply), every_byte(crlf(joint_reply).size()), 0ms)}), &joints, answered(joints), 9, query_ok},
        {"reply dripped at 1 byte per ms", every(0), answers({drip(crlf(get_v_reply(9)), 1ms)}), &get, answered(get), 9, query_ok},
        {"set reply dripped at 1 byte per ms", every(0), answers({drip(crlf(set_x_reply), 1ms)}), &set, answered(set), {}, query_ok},
        {"closed before the request", every(-1), close_before, &get, ends_early(get), {}, reconnects},
        {"closed on the request", every(-2), answers({close_connection()}), &get, ends_early(get), {}, reconnects},
        {"closed mid-reply", every(-2), answers({raw(R"({"command":"get_v","v)"), close_connection()}), &get, ends_early(get), {}, reconnects},
        {"closed mid-reply to a set", every(-2), answers({raw(R"({"command":"set_x","set_st)"), close_connection()}), &set, ends_early(set), {}, reconnects},
        {"closed after the reply", every(0), answers({reply(get_v_reply(9)), close_connection()}), &get, answered(get), 9, reconnects_after_close},
        {"closed during a blocking motion", single_then_threaded(-5, -1), closed_during_motion, &movej, {0ms, 450ms}, {}, reconnects},
        {"20 KB reply, one write", every(-3), answers({sent_as(long_reply, seg::one_write)}), &get, answered(get), {}, query_ok},
        {"20 KB reply, 1460-byte pieces", every(-3), answers({sent_as(long_reply, seg::mss_pieces)}), &get, answered(get), {}, query_ok},
        {"20 KB reply, 7-byte pieces", every(-3), answers({sent_as(long_reply, seg::small_pieces)}), &get, answered(get), {}, query_ok},
        {"200 KB line alone, one write", every(-2), answers({sent_as(huge_line, seg::one_write)}), &get, runs_out(get), {}, query_ok},
        {"200 KB line alone, 1460-byte pieces", every(-2), answers({sent_as(huge_line, seg::mss_pieces)}), &get, runs_out(get), {}, query_ok},
        {"200 KB line alone, 64-byte pieces", every(-2), answers({sent_as(huge_line, seg::small_pieces)}), &get, runs_out(get), {}, query_ok},
        {"200 KB line alone, cut around the limit", every(-2), answers({sent_as(huge_line, seg::around_limit)}), &get, runs_out(get), {}, query_ok},
        {"200 KB line then the reply, one write", every(0), answers({sent_as(huge_line, seg::one_write), reply(get_v_reply(9))}), &get, answered(get), 9, query_ok},
        {"200 KB line then the reply, 1460-byte pieces", every(0), answers({sent_as(huge_line, seg::mss_pieces), reply(get_v_reply(9))}), &get, answered(get), 9, query_ok},
        {"200 KB line then the reply, 64-byte pieces", every(0), answers({sent_as(huge_line, seg::small_pieces), reply(get_v_reply(9))}), &get, answered(get), 9, query_ok},
        {"200 KB line then the reply, cut around the limit", every(0), answers({sent_as(huge_line, seg::around_limit), reply(get_v_reply(9))}), &get, answered(get), 9, query_ok},
        {"200 KB line and the reply in one write", every(0), answers({raw(huge_line + crlf(get_v_reply(9)))}), &get, answered(get), 9, query_ok},
        {"NUL byte in the reply", every(-2), answers({raw(nul_line)}), &get, runs_out(get), {}, query_ok},
        {"NUL byte in a line before the reply", every(0), answers({raw(nul_line), reply(get_v_reply(9))}), &get, answered(get), 9, query_ok},
        {"joints not an array", every(-3), answers({reply(line("joint_degree", R"("joint":"9000")"))}), &joints, answered(joints), {}, query_ok},
        {"joint array one short", every(-3), answers({reply(line("joint_degree", R"("joint":[1,2,3,4,5])"))}), &joints, answered(joints), {}, query_ok},
        {"set_state a string", every(-3), answers({reply(line("set_x", R"("set_state":"true")"))}), &set, answered(set), {}, query_ok},
        {"queried key missing", every(-3), answers({reply(line("get_v", R"("w":9)"))}), &get, answered(get), {}, query_ok},
        {"duplicate reply", every(0), answers({reply(get_v_reply(1))}), &get, answered(get), 1, leftover_not_taken},
        {"duplicate reply in the same segment", every(0), answers({raw(crlf(get_v_reply(1)) + crlf(get_v_reply(1)) + crlf(completion_report()))}), &get, answered(get), 1, duplicate_in_segment_not_taken},
        {"late reply", every(-2), answers({}), &get, runs_out(get), {}, leftover_not_taken},
        {"stale completion report before a blocking motion", every(0), stale_report_then_motion, &movej, {150ms, 150ms + hang_margin}, {}, query_ok},
        {"flood of unsolicited lines during a query", every(0), flood, &get, answered(get), 9, every_report_reached_the_callback},
        {"connection refused", every(-1), [](fault_env &) {}, &open_arm, {0ms, 1000ms}, {}, [](fault_env &env) { fails_fast(env); fresh_arm_works(env); }},
        {"peer stops reading", every(-2), [](fault_env &env) {
             env.session.peer.pause_reading();
             env.session.peer.answer_next({});
         }, &get, runs_out(get), {}, resume_then_query_ok},
        {"peer stops reading, the request cannot be sent", every(-1), [](fault_env &env) { env.session.peer.pause_reading(); },
         // Building and logging the 8 MB line takes a while of its own under a sanitizer.
         &huge_set, {0ms, milliseconds(send_stall_ms) + 5 * hang_margin}, {}, reconnects},
    };
    // clang-format on
    return rows;
}

struct fault_case {
    const fault_row *row;
    int mode;
};

void PrintTo(const fault_case &c, std::ostream *os) {
    *os << '"' << c.row->name << "\" in mode " << c.mode;
}

std::vector<fault_case> fault_cases() {
    std::vector<fault_case> cases;
    for (const fault_row &row : fault_table())
        for (int mode = 0; mode < 3; ++mode)
            if (row.expected[static_cast<std::size_t>(mode)] != not_applicable)
                cases.push_back({&row, mode});
    return cases;
}

std::string case_name(const ::testing::TestParamInfo<fault_case> &info) {
    std::string name = info.param.row->name + " mode " + std::to_string(info.param.mode);
    std::replace_if(
        name.begin(), name.end(),
        [](char c) { return !std::isalnum(static_cast<unsigned char>(c)); }, '_');
    return name;
}

struct wire_fault : ::testing::TestWithParam<fault_case> {};

} // namespace

TEST_P(wire_fault, gives_its_code_in_time_and_leaves_the_library_usable) {
    const fault_row &row = *GetParam().row;
    const int mode = GetParam().mode;
    event_recorder events;
    log_capture log;
    arm_session session(mode);
    ASSERT_EQ(session.arm->id, 1);
    fault_env env{mode, session, log, session.arm, events, events.count(1)};

    row.misbehave(env);
    if (HasFatalFailure()) return;
    auto start = std::chrono::steady_clock::now();
    outcome result = row.probe_call->call(env);
    // Not rounded: a wait cut short by a fraction of a millisecond still ran
    // out early.
    const auto took = std::chrono::steady_clock::now() - start;

    EXPECT_EQ(result.code, row.expected[static_cast<std::size_t>(mode)]) << row.probe_call->name;
    if (row.value && result.code == 0) EXPECT_EQ(result.value, *row.value) << row.probe_call->name;
    EXPECT_GE(took, row.time.at_least)
        << row.probe_call->name << " returned too early, after "
        << std::chrono::duration<double, std::milli>(took).count() << " ms";
    EXPECT_LE(took, row.time.at_most)
        << row.probe_call->name << " returned too late, after "
        << std::chrono::duration<double, std::milli>(took).count() << " ms";
    row.after(env);
}

INSTANTIATE_TEST_SUITE_P(table, wire_fault, ::testing::ValuesIn(fault_cases()), case_name);
