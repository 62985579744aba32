// The recursive lock: nesting, exclusion between threads and the deadlock abort.
#include <atomic>
#include <chrono>
#include <gtest/gtest.h>
#include <thread>

#include "base/CRITSECT.h"

namespace {
using namespace std::chrono_literals;

TEST(CRITSECTTest, SameThreadEntersRecursively) {
    CRITSECT lock;
    for (int level = 1; level <= 3; ++level) {
        EXPECT_EQ(lock.enter(), 0);
        EXPECT_EQ(lock.entered(), level);
    }
    for (int level = 2; level >= 0; --level) {
        lock.leave();
        EXPECT_EQ(lock.entered(), level);
    }
}

TEST(CRITSECTTest, OtherThreadWaitsUntilLastLevelLeft) {
    CRITSECT lock;
    std::atomic<bool> got{false};
    lock.enter();
    lock.enter();
    std::thread other([&] {
        CRITSECT_HOLD hold(lock);
        got = true;
    });
    std::this_thread::sleep_for(50ms);
    lock.leave();
    std::this_thread::sleep_for(50ms);
    EXPECT_FALSE(got.load()) << "entered while one level was still held";
    lock.leave();
    other.join();
    EXPECT_TRUE(got.load());
}

TEST(CRITSECTTest, GuardsCounterAcrossThreads) {
    CRITSECT lock;
    long counter = 0;
    auto work = [&] {
        for (int i = 0; i < 20000; ++i) {
            CRITSECT_HOLD outer(lock);
            CRITSECT_HOLD inner(lock);
            ++counter;
        }
    };
    std::thread a(work), b(work);
    a.join();
    b.join();
    EXPECT_EQ(counter, 40000);
}

TEST(CRITSECTTest, HasNoName) {
    CRITSECT lock;
    char name[32] = "x";
    lock.nameGet(name, sizeof(name));
    EXPECT_STREQ(name, "[Unknown]");
    char small[4];
    lock.nameGet(small, sizeof(small));
    EXPECT_STREQ(small, "[Un");
    EXPECT_FALSE(lock.nameSet("Storage"));
}

// Takes the full 30 seconds the program allows, on purpose: the limit is the program's own.
TEST(CRITSECTDeathTest, LockHeldThirtySecondsAbortsTheProgram) {
    EXPECT_DEATH(
        {
            CRITSECT lock;
            std::thread holder([&] {
                lock.enter();
                std::this_thread::sleep_for(40s);
            });
            std::this_thread::sleep_for(100ms);
            lock.enter();
            holder.join();
        },
        "deadlock");
}
} // namespace
