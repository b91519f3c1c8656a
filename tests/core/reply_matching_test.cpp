// Which line answers which call: answers left over from earlier calls, a
// queue full of lines nobody asked for, and lines too long to be replies.
#include "core/arm.h"
#include "sim/net/process.h"
#include "support/arm_fixture.h"

#include <atomic>
#include <condition_variable>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sstream>
#include <thread>

using namespace ka_test;
using namespace std::chrono_literals;
namespace fs = std::filesystem;

namespace {

std::string v_reply(int v) { return R"({"command":"get_v","v":)" + std::to_string(v) + "}"; }

int get_v(ka_robot_handle *h) {
    int v = 0;
    int r = ka_get_data_common(h, &v, "get_v", "v");
    return r == 0 ? v : r;
}

// Lines nobody asks for, each under a name of its own.
std::string unasked_lines(int count) {
    std::string lines;
    for (int i = 0; i < count; ++i)
        lines += R"({"command":"unasked_)" + std::to_string(i) + "\"}\r\n";
    return lines;
}

// Waits until the arm has received something it has not handed out yet: a
// line named `name` filed in its queue (threaded modes), or bytes waiting on
// its connection (single-thread mode, where only the caller reads).
bool arrived(ka_robot_handle *h, int mode, const char *name) {
    arm_ptr arm = registry_find(h);
    if (!arm) return false;
    if (mode == KA_THREAD_MODE_SINGLE) return platform::wait_readable(arm->socket->fd, 2000) == 1;
    std::unique_lock<std::mutex> lock(arm->queue.mutex);
    return arm->queue.filed.wait_for(lock, 2s, [&] {
        for (const auto &entry : arm->queue.entries)
            if (entry.used && std::strcmp(entry.name, name) == 0) return true;
        return false;
    });
}

struct every_mode : ::testing::TestWithParam<int> {};

std::string mode_name(const ::testing::TestParamInfo<int> &info) {
    return "mode" + std::to_string(info.param);
}

} // namespace

// A call gives up; its answer comes afterwards, among unrelated lines. The
// next call of the same name gets its own answer, round after round.
TEST_P(every_mode, a_late_reply_is_never_the_answer_to_the_next_call) {
    const int mode = GetParam();
    arm_session s(mode);
    for (int round = 1; round <= 5; ++round) {
        SCOPED_TRACE(round);
        s.peer.answer_next({});
        EXPECT_EQ(get_v(s.arm), -2);
        s.peer.push({raw(unasked_lines(2) + v_reply(100 + round) + "\r\n" + unasked_lines(1))});
        ASSERT_TRUE(arrived(s.arm, mode, "get_v"));
        s.peer.answer_next({reply(v_reply(round))});
        EXPECT_EQ(get_v(s.arm), round);
    }
}

// A duplicated answer is taken once; the copy does not answer the next call.
TEST_P(every_mode, a_duplicate_reply_is_not_the_answer_to_the_next_call) {
    const int mode = GetParam();
    arm_session s(mode);
    s.peer.answer_next({reply(v_reply(1)), delay(20ms), reply(v_reply(1))});
    EXPECT_EQ(get_v(s.arm), 1);
    ASSERT_TRUE(arrived(s.arm, mode, "get_v"));
    s.peer.answer_next({reply(v_reply(2))});
    EXPECT_EQ(get_v(s.arm), 2);
}

// The limit is on the text of one line, whatever reads TCP cut it into: a
// line of 20480 bytes or more is dropped whole and the line after it is read
// intact; a shorter one is received (and, cut to the reply buffer, does not
// parse).
TEST_P(every_mode, a_line_is_judged_by_its_length_not_by_how_it_arrived) {
    arm_session s(GetParam());
    auto padded = [](size_t total) {
        std::string head = R"({"command":"get_v","v":7,"pad":")";
        std::string tail = "\"}";
        return head + std::string(total - head.size() - tail.size(), 'x') + tail + "\r\n";
    };
    const std::string too_long = padded(25000), long_enough = padded(20000);
    const std::string answer = v_reply(9) + "\r\n";
    auto pieces = [](const std::string &bytes) {
        std::vector<size_t> cuts;
        for (size_t at = 1500; at < bytes.size() - 1; at += 1500)
            cuts.push_back(at);
        cuts.push_back(bytes.size() - 1); // "\r" and "\n" apart
        return split(bytes, cuts, 1ms);
    };
    const struct {
        const char *name;
        action answer;
        int result;
    } rows[] = {
        {"over the limit, one write", raw(too_long), -2},
        {"over the limit, in pieces", pieces(too_long), -2},
        {"over the limit, then the reply in one write", raw(too_long + answer), 9},
        {"over the limit, then the reply, in pieces", pieces(too_long + answer), 9},
        {"under the limit, one write", raw(long_enough), -3},
        {"under the limit, in pieces", pieces(long_enough), -3},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        s.peer.answer_next({row.answer});
        EXPECT_EQ(get_v(s.arm), row.result);
    }
    s.peer.answer_next({reply(v_reply(3))});
    EXPECT_EQ(get_v(s.arm), 3);
}

INSTANTIATE_TEST_SUITE_P(reply_matching, every_mode,
                         ::testing::Values(KA_THREAD_MODE_SINGLE, KA_THREAD_MODE_DUAL,
                                           KA_THREAD_MODE_TRIPLE),
                         mode_name);

// Several calls of one name at once each get one of the answers.
TEST(reply_matching, concurrent_calls_of_one_name_each_get_an_answer) {
    arm_session s;
    std::atomic<int> first{0};
    s.peer.answer_next({});
    std::thread waiting([&] { first = get_v(s.arm); });
    ASSERT_TRUE(s.peer.wait_for_lines(1, 2s));
    s.peer.answer_next({raw(v_reply(1) + "\r\n" + v_reply(2) + "\r\n")});
    int second = get_v(s.arm);
    waiting.join();
    EXPECT_EQ(first + second, 3);
    EXPECT_NE(first.load(), second);
}

// Twenty entries full of fresh lines nobody waits for: an awaited reply still
// gets in, every completion report still reaches the event callback, and
// every point of a trajectory save still reaches the file.
TEST(full_queue, an_awaited_reply_takes_the_place_of_a_line_nobody_asked_for) {
    arm_session s;
    s.peer.answer_next({raw(unasked_lines(40) + v_reply(9) + "\r\n")});
    EXPECT_EQ(get_v(s.arm), 9);
}

TEST(full_queue, every_completion_report_reaches_the_event_callback) {
    arm_session s;
    event_recorder events;
    std::string burst;
    for (int i = 0; i < 100; ++i)
        burst += R"({"state":"current_trajectory_state","trajectory_state":true,"device":)" +
                 std::to_string(i) + R"(,"trajectory_connect":0})" + "\r\n";
    s.peer.push({raw(unasked_lines(20) + burst)});
    EXPECT_TRUE(events.wait_for(100, 5s, 1));
    int device_sum = 0;
    for (const ka_event_push_data_t &e : events.events())
        device_sum += e.device;
    EXPECT_EQ(events.count(1), 100);
    EXPECT_EQ(device_sum, 99 * 100 / 2);
}

// Threaded modes: the receive thread writes the points. A point line that is
// not an array spoils the save even when the stream then reaches its count.
TEST(full_queue, a_trajectory_save_keeps_every_point_and_fails_on_a_bad_one) {
    const std::string accepted = R"({"command":"save_trajectory","save_state":true,"total_num":3})"
                                 "\r\n";
    const std::string good = "{\"point\":[1,2,3,4,5,6]}\r\n";
    const std::string bad = "{\"point\":5}\r\n";
    // The bad point comes once the save has seen its first good one, in one
    // segment with the points that complete the count.
    const struct {
        const char *name;
        std::vector<action> stream;
        int result;
        std::string file;
    } rows[] = {
        {"full queue",
         {raw(unasked_lines(20) + accepted + good + good + good)},
         0,
         good + good + good},
        {"bad point among good ones",
         {raw(accepted), delay(50ms), raw(good), delay(50ms), raw(bad + good + good)},
         -6,
         good + good + good},
    };
    fs::path dir = fs::temp_directory_path() /
                   ("ka_full_queue_" + std::to_string(sim::net::current_process_id()));
    fs::create_directories(dir);
    for (int mode : {KA_THREAD_MODE_DUAL, KA_THREAD_MODE_TRIPLE})
        for (const auto &row : rows) {
            SCOPED_TRACE(std::string(row.name) + " in mode " + std::to_string(mode));
            fs::path file = dir / "points.txt";
            {
                arm_session s(mode);
                s.peer.on("save_trajectory", row.stream);
                int num = 0;
                EXPECT_EQ(ka_save_trajectory(s.arm, file.string().c_str(), &num), row.result);
                EXPECT_EQ(num, 3);
            }
            std::ifstream in(file, std::ios::binary);
            std::stringstream content;
            content << in.rdbuf();
            EXPECT_EQ(content.str(), row.file);
        }
    fs::remove_all(dir);
}
