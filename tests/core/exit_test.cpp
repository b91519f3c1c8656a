// A program may end without closing the library: returning from main or
// calling exit, in every thread mode, with its arm open or deleted. Each
// case runs in a child process whose exit status must be a clean 0.
#include "support/arm_fixture.h"
#include "support/child_process.h"

#include <gtest/gtest.h>

using namespace ka_test;
using namespace std::chrono_literals;

TEST(process_exit, ends_cleanly_without_ka_destory_in_every_mode) {
    for (const char *mode : {"none", "0", "1", "2"})
        for (const char *arm : {"open", "deleted"})
            for (const char *ending : {"return", "exit"}) {
                SCOPED_TRACE(std::string("mode ") + mode + ", arm " + arm + ", " + ending);
                test_peer peer;
                serve_standard_arm(peer);
                child_process child(KA_EXIT_CHILD,
                                    {mode, std::to_string(peer.port()), arm, ending});
                ASSERT_TRUE(child.wait(30s)) << "the child did not end; stopped by its pid";
                EXPECT_EQ(child.describe(), "exit 0");
            }
}
