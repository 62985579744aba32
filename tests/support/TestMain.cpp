// The main of every core test program: each process runs in a temporary home.
#include <gtest/gtest.h>

#include "tests/support/TestHome.h"

int main(int argc, char **argv) {
    testing::InitGoogleTest(&argc, argv);
    // Death tests fork a process that runs the test again from the start; safer with threads.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    testhome::setUp();
    int result = RUN_ALL_TESTS();
    testhome::tearDown();
    return result;
}
