// Logging: thresholds, the callback and the time-stamped file.
#include "sim/net/process.h"
#include "support/arm_fixture.h"

#include <cstdio>
#include <fstream>
#include <gtest/gtest.h>
#include <sstream>

using namespace ka_test;

TEST(logging, threshold_names_the_least_severe_level_written) {
    struct row {
        int threshold;
        bool debug, info, warn, error;
    } rows[] = {{0, true, true, true, true},
                {1, false, true, true, true},
                {3, false, false, false, true},
                {4, false, false, false, false}};
    for (const auto &r : rows) {
        log_capture capture;
        ka_set_log_call_back(nullptr, r.threshold); // restores the stderr sink...
        log_capture again;                          // ...which the capture replaces at 0
        ka_set_log_call_back(
            [](const char *f, va_list a) {
                char text[256];
                std::vsnprintf(text, sizeof text, f, a);
                std::fprintf(stdout, "%s", text);
            },
            r.threshold);
        testing::internal::CaptureStdout();
        ka_log_debug("d%d\n", 1);
        ka_log_info("i\n");
        ka_log_warn("w\n");
        ka_log_error("e\n");
        std::string out = testing::internal::GetCapturedStdout();
        SCOPED_TRACE(r.threshold);
        EXPECT_EQ(out.find("d1") != std::string::npos, r.debug);
        EXPECT_EQ(out.find("i\n") != std::string::npos, r.info);
        EXPECT_EQ(out.find("w\n") != std::string::npos, r.warn);
        EXPECT_EQ(out.find("e\n") != std::string::npos, r.error);
    }
    ka_set_log_call_back(nullptr, 3);
}

TEST(logging, generic_entry_passes_when_threshold_exceeds_level) {
    log_capture capture; // threshold 0
    ka_log(0, "never\n");
    ka_set_log_call_back(nullptr, 3);
    testing::internal::CaptureStderr();
    ka_log(2, "passes %s\n", "two");
    ka_log(3, "blocked\n");
    std::string err = testing::internal::GetCapturedStderr();
    EXPECT_NE(err.find("passes two"), std::string::npos);
    EXPECT_EQ(err.find("blocked"), std::string::npos);
    EXPECT_FALSE(capture.contains("never"));
}

TEST(logging, file_sink_starts_with_a_banner_and_receives_debug_lines) {
    const std::string path = sim::net::make_temp_file("ka_log_");
    {
        ASSERT_EQ(ka_set_log_save(path.c_str()), 0);
        arm_session s;
        s.peer.answer_next({reply(R"({"command":"set_x","set_state":true})")});
        EXPECT_EQ(ka_set_data_common(s.arm, 5, "set_x", "k"), 0);
    }
    ka_set_log_call_back(nullptr, 3);
    std::ifstream in(path);
    std::stringstream text;
    text << in.rdbuf();
    std::string content = text.str();
    EXPECT_EQ(content.find("] Begin API Testing.\n"), 20u); // "[YYYY-MM-DD hh_mm_ss"
    EXPECT_NE(content.find(R"(]: send is: {"command":"set_x","k":5})"), std::string::npos);
    std::remove(path.c_str());
    EXPECT_EQ(ka_set_log_save("/nonexistent-dir/x.log"), -1); // reported, process goes on
}
