// Opening and closing arms: registry slots, model detection, failed handles.
#include "core/transport.h"
#include "support/arm_fixture.h"

#include <cstring>
#include <gtest/gtest.h>
#include <memory>

using namespace ka_test;
using namespace std::chrono_literals;

namespace {

struct library : ::testing::Test {
    void SetUp() override { ka_init(KA_THREAD_MODE_DUAL); }
    void TearDown() override { ka_destory(); }
};

} // namespace

// An address text without a terminator is read no further than the 21
// characters the registry can take (the block below holds exactly those).
TEST_F(library, an_unterminated_address_is_not_read_past_its_limit) {
    auto text = std::make_unique<char[]>(21);
    std::memset(text.get(), '1', 21);
    EXPECT_EQ(ka_socket_handle_init(text.get(), 8080), nullptr);
    ka_robot_handle *arm = ka_create_robot_arm(text.get(), 8080);
    ASSERT_NE(arm, nullptr);
    EXPECT_EQ(arm->id, -1);
    std::memcpy(text.get(), "127.0.0.1", 10);
    ka_socket_object *object = ka_socket_handle_init(text.get(), 8080);
    ASSERT_NE(object, nullptr);
    EXPECT_STREQ(object->ip, "127.0.0.1");
    ka_socket_handle_destroy(object);
}

TEST_F(library, create_runs_the_synchronising_queries_and_detects_the_arm) {
    test_peer peer;
    serve_standard_arm(peer, "LUNE-6F", 7);
    ka_robot_handle *arm = ka_create_robot_arm("127.0.0.1", peer.port());
    ASSERT_NE(arm, nullptr);
    EXPECT_EQ(arm->id, 1);
    EXPECT_EQ(arm->arm_dof, 7);
    EXPECT_EQ(arm->arm_model, KA_ARM_MODEL_LUNE);
    EXPECT_EQ(arm->force_type, KA_FORCE_TYPE_6F);
    std::vector<std::string> sent = peer.commands();
    EXPECT_EQ(sent, standard_arm_commands());
    ka_robot_info_t info{};
    EXPECT_EQ(ka_get_robot_info(arm, &info), 0);
    EXPECT_EQ(info.arm_dof, 7);
    int dof = 0;
    EXPECT_EQ(ka_get_arm_dof(arm, &dof), 0);
    EXPECT_EQ(dof, 7);
}

TEST_F(library, model_markers_are_tested_in_their_fixed_order) {
    struct row {
        const char *product;
        int dof, model, force, id;
    } rows[] = {
        {"KIVO-B", 6, KA_ARM_MODEL_KIVO, KA_FORCE_TYPE_B, 1},
        {"NEPATQ-6F", 6, KA_ARM_MODEL_MARO_II, KA_FORCE_TYPE_6F, 1}, // "TQ" is found first
        {"NEPAX-ZF", 6, KA_ARM_MODEL_NEPAX, KA_FORCE_TYPE_ZF, 1},
        {"NEPAZ-B", 6, KA_ARM_MODEL_NEPAZ, KA_FORCE_TYPE_B, 1},
        {"QUIL-B", 7, KA_ARM_MODEL_QUIL, KA_FORCE_TYPE_B, 1},
        {"KIVO-X", 6, KA_ARM_MODEL_KIVO, 0, -1}, // no sensor marker: the open fails
        {"ROBO-B", 0, 0, 0, -1},                 // no model marker
    };
    for (const auto &r : rows) {
        SCOPED_TRACE(r.product);
        test_peer peer;
        serve_standard_arm(peer, r.product, r.dof ? r.dof : 6);
        ka_robot_handle *arm = ka_create_robot_arm("127.0.0.1", peer.port());
        ASSERT_NE(arm, nullptr);
        EXPECT_EQ(arm->id, r.id);
        EXPECT_EQ(arm->arm_dof, r.dof);
        EXPECT_EQ(arm->arm_model, r.model);
        EXPECT_EQ(arm->force_type, r.force);
        EXPECT_EQ(ka_delete_robot_arm(arm), 0);
    }
}

TEST_F(library, a_failed_connection_keeps_its_slot_and_fails_every_command) {
    ka_robot_handle *arm =
        ka_create_robot_arm("127.0.0.1", unused_local_port(sim::net::transport::tcp));
    ASSERT_NE(arm, nullptr);
    EXPECT_EQ(arm->id, -1);
    int value = 0;
    auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(ka_get_data_common(arm, &value, "get_x", "x"), -1);
    ka_robot_info_t info{};
    EXPECT_EQ(ka_get_robot_info(arm, &info), -2); // its DOF was never learned
    // Nothing is left held: deleting right after returns at once.
    EXPECT_EQ(ka_delete_robot_arm(arm), 0);
    EXPECT_LT(std::chrono::steady_clock::now() - start, 1s);
    EXPECT_EQ(arm->id, 0);
    EXPECT_EQ(ka_delete_robot_arm(arm), -1);
}

TEST_F(library, five_slots_then_null_and_a_deleted_handle_reads_zero) {
    std::vector<std::unique_ptr<test_peer>> peers;
    std::vector<ka_robot_handle *> arms;
    for (int i = 0; i < KA_MAX_ARMS; ++i) {
        peers.push_back(std::make_unique<test_peer>());
        serve_standard_arm(*peers.back());
        arms.push_back(ka_create_robot_arm("127.0.0.1", peers.back()->port()));
        ASSERT_NE(arms.back(), nullptr);
        EXPECT_EQ(arms.back()->id, i + 1);
    }
    EXPECT_EQ(ka_create_robot_arm("127.0.0.1", peers[0]->port()), nullptr);
    EXPECT_EQ(ka_delete_robot_arm(arms[2]), 0);
    EXPECT_EQ(arms[2]->id, 0);
    int value = 0;
    EXPECT_EQ(ka_get_data_common(arms[2], &value, "get_x", "x"), -1);
    // The freed slot is the lowest: the next arm takes id 3.
    ka_robot_handle *again = ka_create_robot_arm("127.0.0.1", peers[2]->port());
    ASSERT_NE(again, nullptr);
    EXPECT_EQ(again->id, 3);
}

TEST(library_modes, mode_three_reads_nothing_and_commands_time_out) {
    ka_init(3);
    test_peer peer;
    serve_standard_arm(peer);
    ka_robot_handle *arm = ka_create_robot_arm("127.0.0.1", peer.port());
    ASSERT_NE(arm, nullptr);
    EXPECT_EQ(arm->id, -1); // the first query already ran out
    ka_destory();
}

TEST(library_modes, single_thread_mode_reads_replies_on_the_caller) {
    arm_session session(KA_THREAD_MODE_SINGLE);
    ASSERT_EQ(session.arm->id, 1);
    int value = 0;
    session.peer.answer_next({reply(R"({"command":"get_x","x":42})")});
    EXPECT_EQ(ka_get_data_common(session.arm, &value, "get_x", "x"), 0);
    EXPECT_EQ(value, 42);
}

TEST(library_modes, an_arm_opened_after_destroy_restarts_the_library) {
    // ka_destory leaves the library stopped; opening an arm starts it again
    // in the last mode (mode 2 when ka_init was never called).
    ka_destory();
    test_peer peer;
    serve_standard_arm(peer);
    ka_robot_handle *arm = ka_create_robot_arm("127.0.0.1", peer.port());
    ASSERT_NE(arm, nullptr);
    EXPECT_EQ(arm->id, 1);
    ka_destory();
}
