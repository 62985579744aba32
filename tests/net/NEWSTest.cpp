// The transfer queue: its rules, the window it keeps informed, and its thread's runs.
#include <future>
#include <memory>
#include <thread>

#include "tests/net/TRANSFERFIXTURE.h"
#include "tests/support/ALERTRECORDER.h"
#include "tests/support/FAKENNTP.h"

using namespace transfertest;

namespace {

class NEWSQueue : public TRANSFERTEST {
protected:
    void SetUp() override {
        TRANSFERTEST::SetUp();
        // The thread waits until a test lets it run.
        THREAD::state(false);
        SETTINGS::progressWindow.transferStart = true;
        SETTINGS::progressWindow.delay = 50'000;
        ::news.windowOpenerSet(&fWindow);
        ASSERT_TRUE(::news.start());
    }
    void TearDown() override {
        THREAD::state(false);
        THREAD::stop();
        ::news.stop();
        ::news.windowOpenerSet(nullptr);
        TRANSFERTEST::TearDown();
    }
    // Lets the thread work until the queue has run dry and the session is gone.
    bool runDry() {
        THREAD::state(true);
        return storetest::waitFor(
            [] {
                return ::news.userCount() == 0 && ::news.serverConnected() == BARN::kNodeNone &&
                       !::news.busy();
            },
            std::chrono::seconds(20));
    }
    // Notifications go only to an open window; an error is one way to open it.
    void openWindow() {
        NEWS::error("opening");
        ASSERT_EQ(fWindow.errors().size(), 1u);
    }
    static NEWS::REQUEST at(unsigned long index) {
        NEWS::REQUEST request;
        ::news.userGet(&request, index);
        return request;
    }

    WINDOW fWindow;
};

// A window that answers on another thread, as an interface does: while the queue calls it,
// that thread asks the queue back. Calls made under the queue's lock would deadlock here.
TEST_F(NEWSQueue, TheWindowIsCalledWithTheQueueFree) {
    struct ASKER : WINDOW {
        std::atomic<int> answered{0}, asked{0};
        void progbarSet(double total, double done) override {
            WINDOW::progbarSet(total, done);
            ++asked;
            auto reply = std::make_shared<std::promise<void>>();
            std::future<void> ready = reply->get_future();
            std::thread([reply] {
                ::news.userCount();
                reply->set_value();
            }).detach();
            if (ready.wait_for(std::chrono::seconds(2)) == std::future_status::ready)
                ++answered;
        }
    } asker;
    ::news.windowOpenerSet(&asker);
    NEWS::error("opening");
    long long server = serverAt(FAKENNTP::closedPort());
    long long group = groupMake(server, "alt.asked", GROUPDOWNLOAD::HeadersOnly);
    EXPECT_TRUE(::news.requestGroup(server, group, false));
    EXPECT_GE(asker.asked.load(), 2);
    EXPECT_EQ(asker.answered.load(), asker.asked.load());
    ::news.windowOpenerSet(&fWindow);
}

TEST_F(NEWSQueue, AddingFollowsTheRules) {
    long long server = serverAt(FAKENNTP::closedPort());
    long long both = groupMake(server, "alt.both", GROUPDOWNLOAD::HeadersAndBodies);
    long long heads = groupMake(server, "alt.heads", GROUPDOWNLOAD::HeadersOnly);
    long long none = groupMake(server, "alt.none", GROUPDOWNLOAD::NoDownload);
    openWindow();

    EXPECT_TRUE(::news.requestGroup(server, both, false));
    EXPECT_FALSE(::news.requestGroup(server, both, false)) << "a duplicate";
    EXPECT_TRUE(::news.requestDupeCheck(NEWS::kDownloadMessages, server, both, ""));
    EXPECT_FALSE(::news.requestGroup(server, none, false)) << "NoDownload adds nothing";
    EXPECT_FALSE(::news.requestGroup(server, both, true)) << "marked bodies need HeadersOnly";
    EXPECT_TRUE(::news.requestGroup(server, heads, true));
    EXPECT_EQ(::news.requestServer(server, false), 1u) << "only alt.heads is new";
    EXPECT_EQ(::news.requestCatchupServer(server), 3u);
    EXPECT_TRUE(::news.requestServerGroupList(server));
    EXPECT_FALSE(::news.requestUpload(server)) << "nothing waits in the Outbox";
    EXPECT_TRUE(::news.requestBody(server, heads, "VM000007.vmf"));
    EXPECT_FALSE(::news.requestBody(server, heads, "VM000007.vmf"));
    EXPECT_TRUE(::news.requestBody(server, heads, "vm000007.vmf")) << "file names keep their case";

    const NEWS::ACTIONTYPE order[] = {
        NEWS::kDownloadMessages, NEWS::kDownloadMarked, NEWS::kDownloadHeaders,
        NEWS::kCatchup,          NEWS::kCatchup,        NEWS::kCatchup,
        NEWS::kGroupList,        NEWS::kDownloadBody,   NEWS::kDownloadBody};
    ASSERT_EQ(::news.userCount(), std::size(order));
    for (size_t i = 0; i < std::size(order); ++i)
        EXPECT_EQ(at(i).action, order[i]) << i;
    EXPECT_EQ(fWindow.codes(), std::vector<std::string>(std::size(order), "nala"));
    double total, done;
    ::news.progbarGet(&total, &done);
    EXPECT_EQ(total, 700 + 600 + 400 + 3 * 12 + 50000 + 2 * 7);
    EXPECT_EQ(fWindow.bar().first, total);
}

TEST_F(NEWSQueue, UserControlKeepsTheRunningRequest) {
    long long server = serverAt(FAKENNTP::closedPort());
    long long group = groupMake(server, "alt.test", GROUPDOWNLOAD::HeadersOnly);
    openWindow();
    ASSERT_TRUE(::news.requestGroup(server, group, false));
    ASSERT_TRUE(::news.requestCatchupGroup(server, group));
    ASSERT_TRUE(::news.requestServerGroupList(server));
    ASSERT_TRUE(::news.requestGroup(server, group, true));

    EXPECT_FALSE(::news.userMoveUp(1)) << "nothing moves into the running position";
    EXPECT_FALSE(::news.userMoveDown(0));
    EXPECT_FALSE(::news.userMoveDown(3)) << "the last cannot move down";
    EXPECT_TRUE(::news.userMoveUp(2));
    EXPECT_EQ(at(1).action, NEWS::kGroupList);
    EXPECT_TRUE(::news.userMoveDown(1));
    EXPECT_EQ(at(2).action, NEWS::kGroupList);

    EXPECT_TRUE(::news.userDel(0));
    EXPECT_EQ(::news.userCount(), 4u) << "index 0 is only cancelled";
    EXPECT_TRUE(NEWS::cancel());
    char line[NEWS::kStatusMax + 1];
    ::news.windowStrGet(NEWSPROGRESS::kLineAction, line, sizeof line);
    EXPECT_STREQ(line, "Cancelling ...");
    EXPECT_TRUE(::news.userDel(1));
    EXPECT_EQ(::news.userCount(), 3u);
    EXPECT_EQ(at(1).action, NEWS::kGroupList);
    double total, done;
    ::news.progbarGet(&total, &done);
    EXPECT_EQ(total, 400 + 50000 + 600);
    EXPECT_TRUE(::news.userDelAll());
    EXPECT_EQ(::news.userCount(), 1u);
    EXPECT_FALSE(::news.userDel(1));
    std::vector<std::string> codes = fWindow.codes();
    EXPECT_EQ(std::vector<std::string>(codes.begin() + 4, codes.end()),
              (std::vector<std::string>{"nalu", "nald", "nalc", "nalc"}));
}

TEST_F(NEWSQueue, ConsecutiveRequestsShareOneConnection) {
    FAKENNTP fake;
    fake.play("S: 200 ready\nC: GROUP alt.one\nS: 211 5 1 5 alt.one\nC: GROUP alt.two\n"
              "S: 211 9 3 9 alt.two\n" +
              kGoodbye);
    ALERTRECORDER alerts;
    long long server = serverAt(fake.port());
    long long one = groupMake(server, "alt.one", GROUPDOWNLOAD::HeadersOnly);
    long long two = groupMake(server, "alt.two", GROUPDOWNLOAD::HeadersOnly);
    ASSERT_TRUE(::news.requestCatchupGroup(server, one));
    ASSERT_TRUE(::news.requestCatchupGroup(server, two));
    ASSERT_TRUE(runDry());
    EXPECT_TRUE(fake.wait());
    EXPECT_EQ(fake.error(), "");
    EXPECT_EQ(fake.connections(), 1);
    EXPECT_EQ(range(one), (INDEXRANGE{1, 5}));
    EXPECT_EQ(range(two), (INDEXRANGE{3, 9}));
    EXPECT_TRUE(fWindow.saw("0:Fake (127.0.0.1)"));
    EXPECT_TRUE(fWindow.saw("1:Catch-up"));
    EXPECT_TRUE(fWindow.saw("1:Finished."));
    std::vector<std::string> codes = fWindow.codes();
    EXPECT_EQ(std::count(codes.begin(), codes.end(), "nalf"), 2);
    auto [total, done] = fWindow.bar();
    EXPECT_EQ(total, 24);
    EXPECT_EQ(done, 24);
    EXPECT_EQ(alerts.count(), 0u);
    EXPECT_TRUE(storetest::waitFor([&] { return fWindow.closed() == 1; }))
        << "closed once the delay has passed";
}

TEST_F(NEWSQueue, UnresolvableServerLosesItsRequestsOnly) {
    FAKENNTP fake;
    fake.play("S: 200 ready\nC: GROUP alt.two\nS: 211 9 3 9 alt.two\n" + kGoodbye);
    ALERTRECORDER alerts;
    BARN::NODE lost;
    BARN::serverDefault(&lost);
    STR::copy(lost.name, "Lost", sizeof lost.name);
    STR::copy(lost.server.hostname, "unresolvable.invalid", sizeof lost.server.hostname);
    long long gone = barn.serverCreate(&lost);
    long long goneGroup = groupMake(gone, "alt.one", GROUPDOWNLOAD::HeadersOnly);
    long long server = serverAt(fake.port());
    long long two = groupMake(server, "alt.two", GROUPDOWNLOAD::HeadersOnly);
    ASSERT_TRUE(::news.requestCatchupGroup(gone, goneGroup));
    ASSERT_TRUE(::news.requestServerGroupList(gone));
    ASSERT_TRUE(::news.requestCatchupGroup(server, two));
    ASSERT_TRUE(runDry());
    EXPECT_TRUE(fake.wait());
    EXPECT_EQ(range(two), (INDEXRANGE{3, 9})) << "the next server's request still runs";
    std::vector<std::string> got = fWindow.errors();
    ASSERT_EQ(got.size(), 1u);
    EXPECT_NE(got[0].find("  Couldn't get IP address for unresolvable.invalid: "),
              std::string::npos)
        << got[0];
    EXPECT_EQ(alerts.texts(), std::vector<std::string>{NEWS::kErrorsText});
    EXPECT_EQ(::news.errorCount(), 0u) << "the summary resets the count";
}

TEST_F(NEWSQueue, CancelledRequestLeavesTheNextOneAFreshConnection) {
    FAKENNTP fake;
    std::string partial = answer(1);
    partial = partial.substr(0, partial.find("S: Subject"));
    fake.play("S: 200 ready\nC: GROUP alt.one\nS: 211 2 1 2 alt.one\n" + partial +
              "P: 1000\nX\nS: 200 again\nC: GROUP alt.two\nS: 211 9 3 9 alt.two\n" + kGoodbye);
    long long server = serverAt(fake.port());
    long long one = groupMake(server, "alt.one", GROUPDOWNLOAD::HeadersOnly);
    long long two = groupMake(server, "alt.two", GROUPDOWNLOAD::HeadersOnly);
    ASSERT_TRUE(::news.requestGroup(server, one, false));
    ASSERT_TRUE(::news.requestCatchupGroup(server, two));
    THREAD::state(true);
    // Cancelled while article 1 is coming in.
    ASSERT_TRUE(storetest::waitFor([&] { return fWindow.saw("3:Getting header 1 of 2"); }));
    EXPECT_TRUE(::news.userDel(0));
    ASSERT_TRUE(runDry());
    fake.stop();
    EXPECT_EQ(fake.connections(), 2);
    EXPECT_TRUE(fWindow.saw("1:Cancelling ..."));
    EXPECT_EQ(range(two), (INDEXRANGE{3, 9}));
    EXPECT_EQ(range(one), (INDEXRANGE{1, 0})) << "nothing of alt.one was stored";
    EXPECT_TRUE(fWindow.errors().empty());
}

} // namespace
