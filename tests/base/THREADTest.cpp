// Worker threads: holding, stopping, forced ends and the name rule.
#include <atomic>
#include <chrono>
#include <cstring>
#include <gtest/gtest.h>
#include <thread>

#include "base/THREAD.h"

namespace {
using namespace std::chrono_literals;

struct COUNTER {
    std::atomic<int> calls{0};
    int32_t result = THREAD::kAgain;
};

int32_t countCalls(void *data) {
    auto *counter = static_cast<COUNTER *>(data);
    ++counter->calls;
    return counter->result;
}

// Sets its flag when destroyed, which a forced end does through stack unwinding.
struct UNWOUND {
    std::atomic<bool> *flag;
    ~UNWOUND() { *flag = true; }
};

std::atomic<bool> gStuckEntered{false};
std::atomic<bool> gStuckUnwound{false};

std::atomic<bool> gStuckReleased{false};

// Stays inside its call until killed. It waits on a flag nobody sets rather than looping
// forever, so the compiler does not treat it as a function that never returns (the address
// sanitizer misreads a cancellation unwinding through such a function).
int32_t neverReturns(void *) {
    UNWOUND guard{&gStuckUnwound};
    gStuckEntered = true;
    while (!gStuckReleased)
        std::this_thread::sleep_for(1ms);
    return THREAD::kAgain;
}

template <typename PREDICATE>
bool waitFor(PREDICATE predicate, std::chrono::milliseconds limit) {
    auto until = std::chrono::steady_clock::now() + limit;
    while (!predicate()) {
        if (std::chrono::steady_clock::now() > until)
            return false;
        std::this_thread::sleep_for(1ms);
    }
    return true;
}

class THREADTest : public testing::Test {
protected:
    void SetUp() override { THREAD::start(); }
    void TearDown() override { THREAD::stop(); }
};

TEST_F(THREADTest, WorkerWaitsForRunFlag) {
    COUNTER counter;
    ASSERT_NE(THREAD::spawn(countCalls, "Held", &counter), nullptr);
    std::this_thread::sleep_for(200ms);
    EXPECT_EQ(counter.calls.load(), 0) << "called before state(true)";
    THREAD::state(true);
    EXPECT_TRUE(waitFor([&] { return counter.calls >= 3; }, 2000ms));
    THREAD::state(false);
    std::this_thread::sleep_for(100ms);
    int held = counter.calls;
    std::this_thread::sleep_for(200ms);
    EXPECT_EQ(counter.calls.load(), held) << "called while held";
}

TEST_F(THREADTest, StatusOtherThanAgainEndsWorker) {
    COUNTER counter;
    counter.result = 0;
    THREAD::state(true);
    ASSERT_NE(THREAD::spawn(countCalls, "Once", &counter), nullptr);
    EXPECT_TRUE(waitFor([] { return THREAD::count() == 0; }, 2000ms));
    EXPECT_EQ(counter.calls.load(), 1);
}

TEST_F(THREADTest, StopEndsCooperativeWorkersQuickly) {
    COUNTER a, b;
    THREAD::state(true);
    ASSERT_NE(THREAD::spawn(countCalls, "A", &a), nullptr);
    ASSERT_NE(THREAD::spawn(countCalls, "B", &b), nullptr);
    ASSERT_TRUE(waitFor([&] { return a.calls > 0 && b.calls > 0; }, 2000ms));
    auto begun = std::chrono::steady_clock::now();
    THREAD::stop();
    EXPECT_EQ(THREAD::count(), 0u);
    EXPECT_LT(std::chrono::steady_clock::now() - begun, 1s);
    EXPECT_FALSE(THREAD::running());
}

TEST_F(THREADTest, WorkerThatNeverReturnsIsEndedBySixSecondForce) {
#if defined(__SANITIZE_ADDRESS__)
    // This compiler's address-sanitizer runtime reports a false error while a cancelled thread
    // unwinds out of a sleep; the normal build runs this test.
    GTEST_SKIP() << "forced end not checked under the address sanitizer";
#endif
    THREAD::state(true);
    ASSERT_NE(THREAD::spawn(neverReturns, "Stuck", nullptr), nullptr);
    ASSERT_TRUE(waitFor([] { return gStuckEntered.load(); }, 2000ms));
    auto begun = std::chrono::steady_clock::now();
    THREAD::stop();
    auto took = std::chrono::steady_clock::now() - begun;
    EXPECT_GE(took, 5900ms);
    EXPECT_LT(took, 9s);
    EXPECT_EQ(THREAD::count(), 0u);
    EXPECT_TRUE(waitFor([] { return gStuckUnwound.load(); }, 2000ms)) << "thread still runs";
}

TEST_F(THREADTest, KillEndsOneWorkerAndClearsPointer) {
    THREAD::state(true);
    COUNTER counter;
    THREAD::INFO *record = THREAD::spawn(countCalls, "Victim", &counter);
    ASSERT_NE(record, nullptr);
    ASSERT_TRUE(waitFor([&] { return counter.calls > 0; }, 2000ms));
    EXPECT_TRUE(THREAD::kill(&record));
    EXPECT_EQ(record, nullptr);
    EXPECT_EQ(THREAD::count(), 0u);
    std::this_thread::sleep_for(100ms);
    int after = counter.calls;
    std::this_thread::sleep_for(100ms);
    EXPECT_EQ(counter.calls.load(), after);
    EXPECT_FALSE(THREAD::kill(&record));
}

TEST_F(THREADTest, NamesAreCutToElevenCharacters) {
    struct CASE {
        const char *given;
        const char *kept;
    } cases[] = {
        {"NNTP", "NNTP"},
        {"HeadersFile", "HeadersFile"},
        {"HeadersFileLooper", "HeadersFile"},
        {nullptr, "KernelThrea"},
        {"", "KernelThrea"},
    };
    for (const CASE &c : cases) {
        COUNTER counter;
        THREAD::INFO *record = THREAD::spawn(countCalls, c.given, &counter);
        ASSERT_NE(record, nullptr);
        EXPECT_STREQ(record->name, c.kept) << (c.given ? c.given : "(null)");
        char platformName[16] = {};
        pthread_getname_np(record->id, platformName, sizeof(platformName));
        EXPECT_STREQ(platformName, c.kept);
        THREAD::kill(&record);
    }
}

TEST(THREADStop, SafeWithoutStartAndTwice) {
    THREAD::stop();
    THREAD::stop();
    EXPECT_EQ(THREAD::count(), 0u);
}
} // namespace
