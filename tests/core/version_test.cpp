// The version macros and calls agree with the version text, and the two
// helpers exported beside the application interface behave as documented.
#include "support/arm_fixture.h"

#include <cstdio>
#include <future>
#include <gtest/gtest.h>
#include <string>
#include <vector>

using namespace ka_test;
using namespace std::chrono_literals;

namespace {

TEST(version, macros_and_calls_agree_with_the_text) {
    int major = -1, minor = -1, patch = -1;
    char rest = 0;
    ASSERT_EQ(std::sscanf(KA_API_VERSION_STRING, "%d.%d.%d%c", &major, &minor, &patch, &rest), 3)
        << "KA_API_VERSION_STRING is not major.minor.patch: " << KA_API_VERSION_STRING;
    EXPECT_EQ(major, KA_API_VERSION_MAJOR);
    EXPECT_EQ(minor, KA_API_VERSION_MINOR);
    EXPECT_EQ(patch, KA_API_VERSION_PATCH);
    EXPECT_EQ(KA_API_VERSION_NUMBER, major * 10000 + minor * 100 + patch);
    EXPECT_EQ(ka_api_version_number(), KA_API_VERSION_NUMBER);
    EXPECT_STREQ(ka_api_version(), KA_API_VERSION_STRING);
    // The number orders versions as the text does only while each part fits.
    EXPECT_LT(minor, 100);
    EXPECT_LT(patch, 100);
}

TEST(handle_init, leaves_a_record_every_command_rejects) {
    EXPECT_EQ(ka_handle_init(nullptr), KA_ERR_LOCAL);
    ka_robot_handle handle{3, 7, KA_ARM_MODEL_LUNE, KA_FORCE_TYPE_6F};
    ASSERT_EQ(ka_handle_init(&handle), KA_OK);
    EXPECT_EQ(handle.id, 0);
    EXPECT_EQ(handle.arm_dof, 0);
    EXPECT_EQ(handle.arm_model, 0);
    EXPECT_EQ(handle.force_type, 0);
    ka_robot_info_t info{};
    EXPECT_EQ(ka_get_robot_info(&handle, &info), KA_ERR_LOCAL);
}

// Reports the controller writes while the wait runs, the wait's arguments,
// and its result. Each attempt reads for up to a second, so
// rows that run out of attempts take that long.
struct single_wait_case {
    const char *name;
    std::vector<std::string> reports;
    int timeout;
    int device;
    int result;
};

TEST(movecmd_singlemode_parse, waits_for_the_awaited_device_in_thread_mode_0) {
    const std::vector<single_wait_case> rows = {
        {"no time at all", {completion_report()}, 0, 0, KA_ERR_FAMILY_5},
        {"the arm finished", {completion_report()}, 1, 0, KA_OK},
        {"another device first", {completion_report(1), completion_report()}, 2, 0, KA_OK},
        {"awaited device other than the arm", {completion_report(2)}, 1, 2, KA_OK},
        {"only another device", {completion_report(1)}, 1, 0, KA_ERR_FAMILY_5},
        {"connected motion follows", {completion_report(0, true, 1)}, 1, 0, KA_ERR_FAMILY_5},
        {"ended false", {completion_report(0, false)}, 1, 0, KA_REFUSED},
        {"nothing reported", {}, 1, 0, KA_ERR_FAMILY_5},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        arm_session s(KA_THREAD_MODE_SINGLE);
        ASSERT_GT(s.arm->id, 0);
        auto done = std::async(std::launch::async, [&] {
            return ka_movecmd_singlemode_parse(s.arm, row.timeout, row.device);
        });
        // Apart, as a controller writes them: in thread mode 0 each attempt
        // takes one line from one read of the connection.
        std::vector<action> script;
        for (const auto &report : row.reports) {
            if (!script.empty()) script.push_back(delay(20ms));
            script.push_back(reply(report));
        }
        if (!script.empty()) s.peer.push(script);
        ASSERT_EQ(done.wait_for(20s), std::future_status::ready) << "the wait hangs";
        EXPECT_EQ(done.get(), row.result);
    }
}

TEST(movecmd_singlemode_parse, an_unregistered_handle_never_finishes) {
    ka_robot_handle handle{};
    ASSERT_EQ(ka_handle_init(&handle), KA_OK);
    EXPECT_EQ(ka_movecmd_singlemode_parse(&handle, 1, 0), KA_ERR_FAMILY_5);
}

} // namespace
