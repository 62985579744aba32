// The reaper: scratch files, expiry per server and newsgroup, the idle hour and the pause.
#include <map>
#include <mutex>

#include "reader/KILLFILE.h"
#include "tests/storage/STORETEST.h"

using namespace storetest;

namespace {
constexpr int64_t kHour = 3'600'000'000;

std::mutex gOrderLock;
std::vector<std::string> gOrder;

void unreadSeen(const BARN::NODE *node) {
    std::lock_guard<std::mutex> hold(gOrderLock);
    gOrder.emplace_back(node->path);
}

class BARNREAPERTest : public STORETEST {
protected:
    // Starts with the workers held, so files and clocks are in place before the first pass.
    void SetUp() override {
        STORETEST::SetUp();
        ASSERT_TRUE(startStore(false));
    }
    void TearDown() override {
        barn.unreadCallbackUnregister(unreadSeen);
        KILLFILE::Stop();
        STORETEST::TearDown();
    }
    void runUntilPasses(uint64_t passes) {
        THREAD::state(true);
        ASSERT_TRUE(load());
        ASSERT_TRUE(waitFor([&] { return barnThread.reaperPasses() >= passes; }, 20s));
    }
    std::string groupMake(const char *server, const char *group) {
        if (fServerNumbers.count(server) == 0)
            fServerNumbers[server] = serverMake(server);
        long long made =
            barn.groupCreate(fServerNumbers[server], group, GROUPDOWNLOAD::HeadersOnly);
        BARN::NODE node;
        EXPECT_TRUE(barn.nodeRead(&node, made));
        return node.path;
    }

    std::map<std::string, long long> fServerNumbers;
};

struct AGECASE {
    const char *name;
    int64_t ahead;
    uint16_t days;
    bool scratchGone;
    bool messageGone;
};

class BARNREAPERAgeTest : public BARNREAPERTest, public testing::WithParamInterface<AGECASE> {};
} // namespace

TEST_P(BARNREAPERAgeTest, ScratchAndMessageAges) {
    const AGECASE &c = GetParam();
    SETTINGS::storage.daysToKeepMessages = c.days;
    std::string group = groupMake("Ages", "comp.lang.c");
    std::string message = messageWrite(group, "VM999999.vmf");
    std::string outbox = messageWrite(news() + "/Outbox", "VM000001.vmf");
    ASSERT_EQ(mkdir((news() + "/temp/deep").c_str(), 0755), 0);
    std::string scratch = news() + "/temp/deep/old.url";
    fclose(fopen(scratch.c_str(), "w"));
    clocksFake(c.ahead);
    runUntilPasses(1);
    EXPECT_EQ(!exists(scratch), c.scratchGone);
    EXPECT_EQ(!exists(message), c.messageGone);
    EXPECT_TRUE(exists(outbox)) << "fixed folders never expire";
}

INSTANTIATE_TEST_SUITE_P(
    Ages, BARNREAPERAgeTest,
    testing::Values(AGECASE{"scratch_47_hours", 47 * kHour, 10, false, false},
                    AGECASE{"scratch_49_hours", 49 * kHour, 10, true, false},
                    AGECASE{"keep_for_ever_still_clears_scratch", 20 * 24 * kHour, 0, true, false},
                    AGECASE{"eleven_days_of_ten", 11 * 24 * kHour, 10, true, true}),
    [](const testing::TestParamInfo<AGECASE> &info) { return std::string(info.param.name); });

TEST_F(BARNREAPERTest, ExpiryLowersUnreadExceptForKilledAuthors) {
    std::string group = groupMake("Kill", "comp.lang.c");
    MESSAGEFILE bob;
    bob.author = "Bob";
    bob.email = "bob@example.invalid";
    MESSAGEFILE seen;
    seen.read = true;
    messageWrite(group, "VM000001.vmf");
    messageWrite(group, "VM000002.vmf");
    messageWrite(group, "VM000003.vmf", bob);
    messageWrite(group, "VM000004.vmf", seen);
    BARN::NODE node;
    long long number = BARN::nodeNumber(group.c_str());
    ASSERT_TRUE(barn.nodeUpdate(number));
    ASSERT_TRUE(KILLFILE::Start());
    ASSERT_TRUE(KILLFILE::Add("Bob", "bob@example.invalid"));
    clocksFake(11 * 24 * kHour);
    runUntilPasses(1);
    EXPECT_EQ(filesIn(group), 0u);
    ASSERT_TRUE(barn.nodeRead(&node, number));
    EXPECT_EQ(node.unread, 1u) << "three unread, two of them not killed";
}

TEST_F(BARNREAPERTest, ServersAndNewsgroupsGoInNameOrder) {
    std::vector<std::string> expected;
    for (const char *server : {"beta", "Alpha"}) {
        for (const char *group : {"comp.b", "alt.a"}) {
            std::string path = groupMake(server, group);
            messageWrite(path, "VM999999.vmf");
            ASSERT_TRUE(barn.nodeUpdate(BARN::nodeNumber(path.c_str())));
        }
    }
    for (const char *server : {"Alpha", "beta"})
        for (const char *group : {"alt.a", "comp.b"})
            expected.push_back(servers() + "/" + server + "/" + group);
    {
        std::lock_guard<std::mutex> hold(gOrderLock);
        gOrder.clear();
    }
    ASSERT_TRUE(barn.unreadCallbackRegister(unreadSeen));
    clocksFake(11 * 24 * kHour);
    runUntilPasses(1);
    std::lock_guard<std::mutex> hold(gOrderLock);
    EXPECT_EQ(gOrder, expected);
}

TEST_F(BARNREAPERTest, IdlesAnHourByTheTickClock) {
    clocksFake(0);
    runUntilPasses(1);
    std::this_thread::sleep_for(100ms); // the idle hour starts right after the count
    gTick += kHour - 1'000'000;
    std::this_thread::sleep_for(200ms);
    EXPECT_EQ(barnThread.reaperPasses(), 1u);
    gTick += 1'000'000;
    EXPECT_TRUE(waitFor([] { return barnThread.reaperPasses() >= 2; }));
}

TEST_F(BARNREAPERTest, DeletingTheWalkedNewsgroupStopsTheWalkWithinOneFile) {
    BARNTHREAD::TIMING timing = barnThread.timingGet();
    timing.fileSleep = 20'000;
    barnThread.timingSet(timing);
    std::string group = groupMake("Walked", "reaper.walked.here");
    for (int i = 1; i <= 200; ++i) {
        char leaf[32];
        snprintf(leaf, sizeof(leaf), "VM%06d.vmf", i);
        messageWrite(group, leaf);
    }
    clocksFake(11 * 24 * kHour);
    THREAD::state(true);
    ASSERT_TRUE(load());
    ASSERT_TRUE(waitFor([&] { return filesIn(group) <= 190; }, 20s));
    size_t left = filesIn(group);
    ASSERT_TRUE(barn.groupDelete(BARN::nodeNumber(group.c_str())));
    ASSERT_TRUE(waitFor([&] { return !exists(group); }));
    size_t trashed = filesIn(trash() + "/reaper.walked.here");
    EXPECT_GE(trashed + 2, left) << "the reaper went on walking a directory being removed";
    EXPECT_TRUE(waitFor([] { return barnThread.reaperPasses() >= 1; }))
        << "a fresh pass follows the cut one";
}
