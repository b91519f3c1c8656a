// Checks the scripted test peer itself with a plain socket client, so that
// later failures in command tests can be trusted to come from the library.
#include "support/test_peer.h"

#include <cjson/cJSON.h>
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using namespace std::chrono_literals;
using ka_test::test_peer;

constexpr auto patience = 5s;

class client {
  public:
    explicit client(int port) : fd_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        if (fd_ < 0) throw std::runtime_error("socket");
        // A missing reply must fail the test, not hang it.
        timeval limit{5, 0};
        ::setsockopt(fd_, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
        int one = 1;
        ::setsockopt(fd_, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        address.sin_port = htons(static_cast<uint16_t>(port));
        if (::connect(fd_, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0) {
            ::close(fd_);
            throw std::runtime_error("connect");
        }
    }
    ~client() { ::close(fd_); }
    client(const client &) = delete;
    client &operator=(const client &) = delete;

    void send_bytes(const std::string &bytes) {
        ASSERT_EQ(::send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL),
                  static_cast<ssize_t>(bytes.size()));
    }
    void send_line(const std::string &line) { send_bytes(line + "\r\n"); }

    // The next "\r\n"-terminated line, or nothing at end of stream or time-out.
    std::optional<std::string> read_line() {
        for (;;) {
            if (auto end = pending_.find("\r\n"); end != std::string::npos) {
                std::string line = pending_.substr(0, end);
                pending_.erase(0, end + 2);
                return line;
            }
            char buffer[1024];
            const ssize_t got = ::recv(fd_, buffer, sizeof buffer, 0);
            if (got <= 0) return std::nullopt;
            pending_.append(buffer, static_cast<std::size_t>(got));
        }
    }

    // True when the peer closed the connection with nothing left unread.
    bool at_end() {
        char byte = 0;
        return pending_.empty() && ::recv(fd_, &byte, 1, 0) == 0;
    }

  private:
    int fd_;
    std::string pending_;
};

TEST(test_peer_self, answers_by_rule_and_records_every_line) {
    test_peer peer;
    peer.on("get_a", {ka_test::reply(R"({"command":"a","v":1})")});
    client c(peer.port());

    c.send_line(R"({"command":"unknown"})");
    c.send_line("not json");
    c.send_line(R"({"command":"get_a","x":1})");
    // Replies leave in request order, so getting this one first shows the two
    // lines before it were left unanswered.
    EXPECT_EQ(c.read_line(), R"({"command":"a","v":1})");

    ASSERT_TRUE(peer.wait_for_lines(3, patience));
    EXPECT_EQ(peer.lines(), (std::vector<std::string>{R"({"command":"unknown"})", "not json",
                                                      R"({"command":"get_a","x":1})"}));
    EXPECT_EQ(peer.commands(), (std::vector<std::string>{"unknown", "", "get_a"}));
    EXPECT_EQ(peer.last_line(), R"({"command":"get_a","x":1})");
    EXPECT_EQ(peer.received().front().connection, 0u);
    EXPECT_EQ(peer.connection_count(), 1u);
    EXPECT_FALSE(peer.wait_for_lines(4, 20ms));

    peer.clear_lines();
    EXPECT_TRUE(peer.lines().empty());
    EXPECT_EQ(peer.last_line(), "");
    c.send_line(R"({"command":"get_a"})");
    EXPECT_TRUE(peer.wait_for_lines(1, patience));
}

TEST(test_peer_self, next_line_rules_beat_one_shot_rules_which_beat_persistent_ones) {
    test_peer peer;
    peer.on("q", {ka_test::reply("persistent-1")});
    peer.on("q", {ka_test::reply("persistent-2")});
    peer.on_once("q", {ka_test::reply("once-1")});
    peer.on_once("q", {ka_test::reply("once-2")});
    peer.answer_next({ka_test::reply("next-1")});
    peer.answer_next({ka_test::reply("next-2")});
    client c(peer.port());

    c.send_line(R"({"command":"q"})");
    c.send_line("not json either");
    for (int i = 0; i < 4; ++i)
        c.send_line(R"({"command":"q"})");
    for (const char *expected : {"next-1", "next-2", "once-1", "once-2", "persistent-2"})
        EXPECT_EQ(c.read_line(), expected);
    EXPECT_EQ(c.read_line(), "persistent-2");
}

TEST(test_peer_self, segmented_lines_arrive_intact_both_ways) {
    const std::string one = R"({"command":"one","pose":[1,2,3]})";
    const std::string two = R"({"command":"two"})";
    const std::string three = R"({"command":"three"})";
    const std::string four = R"({"command":"four","state":true})";

    test_peer peer;
    // The last cut falls between '\r' and '\n'.
    peer.on("a", {ka_test::split(one + "\r\n", {1, 7, one.size() + 1}, 2ms)});
    peer.on("b", {ka_test::raw(two + "\r\n" + three + "\r\n")});
    peer.on("c", {ka_test::drip(four + "\r\n", 100us)});
    peer.on("d", {ka_test::delay(5ms), ka_test::reply(one)});
    client c(peer.port());

    // Requests split mid-line and run together must be recorded as whole lines.
    c.send_bytes(R"({"comm)");
    c.send_bytes(R"(and":"a"})"
                 "\r");
    c.send_bytes("\n"
                 R"({"command":"b"})"
                 "\r\n"
                 R"({"command":"c"})"
                 "\r\n");
    c.send_line(R"({"command":"d"})");

    for (const std::string &expected : {one, two, three, four, one})
        EXPECT_EQ(c.read_line(), expected);
    ASSERT_TRUE(peer.wait_for_lines(4, patience));
    EXPECT_EQ(peer.commands(), (std::vector<std::string>{"a", "b", "c", "d"}));

    EXPECT_THROW(ka_test::split("abc", {2, 1}, 1ms), std::invalid_argument);
    EXPECT_THROW(ka_test::split("abc", {0}, 1ms), std::invalid_argument);
    EXPECT_THROW(ka_test::split("abc", {3}, 1ms), std::invalid_argument);
}

TEST(test_peer_self, pushes_and_closes_on_the_current_connection) {
    test_peer peer;
    EXPECT_THROW(peer.push({ka_test::reply("x")}), std::logic_error);

    client first(peer.port());
    ASSERT_TRUE(peer.wait_for_connection(1, patience));
    peer.push({ka_test::reply("unsolicited-1")});
    EXPECT_EQ(first.read_line(), "unsolicited-1");

    peer.on("bye", {ka_test::reply("bye"), ka_test::close_connection()});
    first.send_line(R"({"command":"bye"})");
    EXPECT_EQ(first.read_line(), "bye");
    EXPECT_TRUE(first.at_end());
    EXPECT_TRUE(peer.wait_for_disconnect(0, patience));

    client second(peer.port());
    ASSERT_TRUE(peer.wait_for_connection(2, patience));
    peer.push({ka_test::reply("unsolicited-2")});
    EXPECT_EQ(second.read_line(), "unsolicited-2");
    second.send_line(R"({"command":"hello"})");
    ASSERT_TRUE(peer.wait_for_lines(2, patience));
    EXPECT_EQ(peer.received().back().connection, 1u);

    peer.close_current();
    EXPECT_TRUE(second.at_end());
    EXPECT_TRUE(peer.wait_for_disconnect(1, patience));
}

TEST(test_peer_self, destructor_interrupts_delays_and_blocked_sends) {
    auto peer = std::make_unique<test_peer>();
    peer->on("slow", {ka_test::delay(1h), ka_test::reply("late")});
    // Far more than the socket buffers hold while the client reads nothing.
    peer->on("flood", {ka_test::raw(std::string(16u << 20, 'x'))});
    client waiting(peer->port());
    client flooded(peer->port());
    waiting.send_line(R"({"command":"slow"})");
    flooded.send_line(R"({"command":"flood"})");
    ASSERT_TRUE(peer->wait_for_lines(2, patience));

    peer.reset();
    // The delayed reply is abandoned and the connection closed.
    EXPECT_TRUE(waiting.at_end());
}

std::string text_of(const cJSON *object, const char *key) {
    const cJSON *item = cJSON_GetObjectItemCaseSensitive(object, key);
    return cJSON_IsString(item) ? item->valuestring : "";
}

TEST(test_peer_self, standard_arm_answers_every_opening_query) {
    test_peer peer;
    ka_test::serve_standard_arm(peer, "KIVO-X", 7);
    client c(peer.port());

    const std::vector<std::pair<std::string, std::string>> arrays{
        {"joint_min_pos", "min_pos"},
        {"joint_max_pos", "max_pos"},
        {"joint_max_acc", "joint_acc"},
        {"joint_max_speed", "joint_speed"}};
    for (const std::string &query : ka_test::standard_arm_commands())
        c.send_line(R"({"command":")" + query + R"("})");
    std::vector<std::string> names;
    for (std::size_t i = 0; i < ka_test::standard_arm_commands().size(); ++i) {
        std::optional<std::string> line = c.read_line();
        ASSERT_TRUE(line);
        std::unique_ptr<cJSON, decltype(&cJSON_Delete)> root(cJSON_Parse(line->c_str()),
                                                             &cJSON_Delete);
        ASSERT_TRUE(root) << *line;
        const std::string name = text_of(root.get(), "command");
        names.push_back(name);
        for (const auto &[reply_name, key] : arrays) {
            if (name == reply_name) {
                EXPECT_EQ(cJSON_GetArraySize(cJSON_GetObjectItem(root.get(), key.c_str())), 7)
                    << *line;
            }
        }
        if (name == "arm_software_info") {
            EXPECT_EQ(text_of(root.get(), "Product_version"), "KIVO-X");
        }
    }
    EXPECT_EQ(names, (std::vector<std::string>{"arm_software_info", "get_realtime_push",
                                               "current_work_frame", "current_tool_frame",
                                               "install_pose", "joint_min_pos", "joint_max_pos",
                                               "joint_max_acc", "joint_max_speed"}));
    EXPECT_EQ(
        ka_test::standard_reply("get_joint_max_speed", "KIVO-B", 6),
        R"({"command":"joint_max_speed","joint_speed":[30000,30000,37500,37500,37500,37500]})");
    EXPECT_THROW(ka_test::standard_reply("get_nothing", "KIVO-B", 6), std::invalid_argument);
}

} // namespace
