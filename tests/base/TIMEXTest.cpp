// Time values that survive clock changes: drift tracking against simulated clocks.
#include <atomic>
#include <chrono>
#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <vector>

#include "base/TIMEBASE.h"
#include "base/TIMEX.h"

namespace {

constexpr int64_t kSec = TIMEBASE::kSecond;
constexpr int64_t kHour = 3600 * kSec;

std::atomic<int64_t> gWall{0};
std::atomic<int64_t> gTick{0};
std::vector<std::string> gReports;

int64_t wall() {
    return gWall.load();
}
int64_t tick() {
    return gTick.load();
}
void report(const char *line) {
    gReports.push_back(line);
}

// Both clocks under the test's control; the reference is taken afresh for each test.
class TIMEXClock : public testing::Test {
protected:
    void SetUp() override {
        gWall = 970581909 * kSec;
        gTick = 1000 * kSec;
        gReports.clear();
        TIMEBASE::CLOCK clock;
        clock.wall = wall;
        clock.tick = tick;
        TIMEBASE::clockSet(&clock);
        TIMEX::clockReset();
        TIMEX::reportSet(report);
    }
    void TearDown() override {
        TIMEX::reportSet(nullptr);
        TIMEBASE::clockSet(nullptr);
        TIMEX::clockReset();
    }
    // Time passes on both clocks, and the wall clock is then moved by jump.
    static void pass(int64_t usecs, int64_t jump = 0) {
        gTick += usecs;
        gWall += usecs + jump;
    }
};

TEST_F(TIMEXClock, ElapsedTimeSurvivesAClockChangeOfAnHour) {
    TIMEX start;
    start = TIMEBASE::timeGet();
    pass(10 * kSec, kHour); // the user puts the clock forward an hour
    EXPECT_EQ(TIMEBASE::timeGet() - start, 10 * kSec);
    EXPECT_EQ(start.usecs(), 970581909 * kSec + kHour);
    ASSERT_EQ(gReports.size(), 1u);
    EXPECT_EQ(gReports[0], "Time changed forward by 1 hour, 0 minutes, 0.000000 seconds");

    pass(5 * kSec, -2 * kHour); // and back two hours
    EXPECT_EQ(TIMEBASE::timeGet() - start, 15 * kSec);
    ASSERT_EQ(gReports.size(), 2u);
    EXPECT_EQ(gReports[1], "Time changed backward by 2 hours, 0 minutes, 0.000000 seconds");
}

// The report goes to the transfer log, whose lock another thread may hold while it reads a
// TIMEX: the report must come after the list's lock is left, or the two would deadlock.
std::thread gOther;
std::atomic<bool> gOtherGotIn{false};
bool gGotInDuringReport = false;
void reportWhileAnotherThreadReads(const char *) {
    gOther = std::thread([] {
        TIMEX::count();
        gOtherGotIn = true;
    });
    for (int i = 0; i < 2000 && !gOtherGotIn; i++)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    gGotInDuringReport = gOtherGotIn;
}

TEST_F(TIMEXClock, ReportsAfterLeavingTheLock) {
    TIMEX::reportSet(reportWhileAnotherThreadReads);
    TIMEX start(TIMEBASE::timeGet());
    pass(kSec, kHour);
    EXPECT_EQ(start.usecs(), 970581909 * kSec + kHour);
    ASSERT_TRUE(gOther.joinable());
    gOther.join();
    EXPECT_TRUE(gGotInDuringReport);
}

TEST_F(TIMEXClock, SmallDriftsAreIgnored) {
    TIMEX start(TIMEBASE::timeGet());
    int64_t value = start.usecs();
    pass(kSec, TIMEX::kDriftMax);
    EXPECT_EQ(start.usecs(), value);
    pass(kSec, -2 * TIMEX::kDriftMax); // now 70000 the other way
    EXPECT_EQ(start.usecs(), value);
    EXPECT_TRUE(gReports.empty());
    pass(kSec, -1);                                         // one microsecond more is a change
    EXPECT_EQ(start.usecs(), value - TIMEX::kDriftMax - 1); // the clock went back
    EXPECT_EQ(gReports.size(), 1u);
}

TEST_F(TIMEXClock, ChecksWaitForTheInterval) {
    TIMEX start(TIMEBASE::timeGet());
    int64_t value = start.usecs();
    pass(TIMEX::kCheckInterval - 1, kHour);
    EXPECT_EQ(start.usecs(), value);
    pass(1);
    EXPECT_EQ(start.usecs(), value + kHour);
}

TEST_F(TIMEXClock, DurationsAndEmptyValuesStayPut) {
    TIMEX point(TIMEBASE::timeGet());
    TIMEX duration(90 * kSec, TIMEX::kRelative);
    TIMEX empty;
    pass(kSec, -kHour);
    EXPECT_EQ(point.usecs(), 970581909 * kSec - kHour);
    EXPECT_EQ(duration.usecs(), 90 * kSec);
    EXPECT_EQ(empty.usecs(), 0);
    TIMEX copy(point);
    EXPECT_EQ(copy, point);
    pass(kSec, kHour);
    EXPECT_EQ(copy, point);
    EXPECT_EQ(copy.usecs(), 970581909 * kSec);
}

TEST_F(TIMEXClock, OperatorsAndFields) {
    TIMEX a(100 * kSec), b(a);
    b += 5 * kSec;
    EXPECT_TRUE(a < b && b > 100 * kSec && b - a == 5 * kSec && b - kSec == 104 * kSec);
    b -= 5 * kSec;
    EXPECT_TRUE(a == b && a + kSec == 101 * kSec);
    TIMEX when(970581909 * kSec + 25), none;
    std::vector<unsigned> fields = {when.year(true),    when.month(true),       when.day(true),
                                    when.weekday(true), when.hour(true),        when.minute(true),
                                    when.second(true),  when.microsecond(true), none.year(true)};
    EXPECT_EQ(fields, std::vector<unsigned>({2000, 10, 3, 2, 14, 5, 9, 25, 0}));
}

// Copies are made on several threads while the clock keeps jumping forward: a copy taken just
// as a change is applied must not miss the shift its original gets. The original is read
// before and after the copy; the same value twice means no change came between (each change
// moves it further), so the copy must hold that value.
TEST_F(TIMEXClock, CopiesKeepUpWithClockChangesOnOtherThreads) {
    TIMEX::reportSet(nullptr);
    size_t before = TIMEX::count();
    std::atomic<bool> stop{false};
    std::atomic<int> compared{0}, wrong{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 3; t++) {
        threads.emplace_back([&] {
            while (!stop) {
                TIMEX original(970581909 * kSec);
                int64_t first = original.usecs();
                TIMEX copied(original);
                TIMEX assigned;
                assigned = original;
                int64_t copiedValue = copied.usecs(), assignedValue = assigned.usecs();
                if (original.usecs() != first)
                    continue;
                compared++;
                wrong += copiedValue != first || assignedValue != first;
            }
        });
    }
    for (int i = 0; i < 200000; i++) {
        pass(TIMEX::kCheckInterval, kHour);
        TIMEX::clockCheck();
    }
    stop = true;
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_GT(compared, 0);
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(TIMEX::count(), before);
}

} // namespace
