// The demo's start-up, without a display: its server answers, its store has the account and
// the two subscriptions, and the program's own queue fills the store from it.
#include <gtest/gtest.h>
#include <mutex>

#include "app/SETTINGS.h"
#include "base/THREAD.h"
#include "message/FILEDECODE.h"
#include "net/NETWORK.h"
#include "net/NEWS.h"
#include "net/NNTP.h"
#include "net/TRANSFERSUMMARY.h"
#include "reader/KILLFILE.h"
#include "storage/BARN.h"
#include "tests/message/FILEDECODETestUtil.h"
#include "tests/storage/STORETEST.h"
#include "tests/support/ALERTRECORDER.h"
#include "tests/support/TestHome.h"
#include "tools/demo/DEMO.h"
#include "tools/demo/DEMOARTICLES.h"
#include <filesystem>

namespace {

std::mutex gSummaryLock;
std::string gSummary;

void summaryKeep(const char *text) {
    std::lock_guard<std::mutex> lock(gSummaryLock);
    gSummary = text;
}

TEST(TransferSummary, OneSentencePerRun) {
    const struct {
        std::vector<std::pair<const char *, unsigned long>> added;
        const char *text;
    } rows[] = {
        {{}, ""},
        {{{"alt.test", 0}}, ""},
        {{{"alt.test", 1}}, "1 new message in alt.test"},
        {{{"comp.lang.c", 12}, {"alt.test", 3}, {"comp.lang.c", 2}},
         "17 new messages: 14 in comp.lang.c, 3 in alt.test"},
        {{{"a", 1}, {"b", 2}, {"c", 3}, {"d", 4}, {"e", 5}},
         "15 new messages: 1 in a, 2 in b, 3 in c and 2 more groups"},
    };
    for (const auto &row : rows) {
        TRANSFERSUMMARY summary;
        for (const auto &[group, count] : row.added)
            summary.add(group, count);
        EXPECT_EQ(summary.text(), row.text);
    }
}

TEST(Demo, StartsItsServerAndStoreAndDownloadsThroughTheQueue) {
    ALERTRECORDER alerts;
    DEMO demo(testhome::path() + "/demo");
    std::string error;
    ASSERT_TRUE(demo.serverStart(&error)) << error;
    // Twice, as a second ./run.sh --demo does: the store is found again, not made twice.
    ASSERT_TRUE(demo.storePrepare(&error)) << error;
    ASSERT_TRUE(demo.storePrepare(&error)) << error;

    THREAD::start();
    ASSERT_TRUE(barn.start());
    THREAD::state(true);
    ASSERT_TRUE(barn.iterateFolders(nullptr, nullptr));
    ASSERT_TRUE(storetest::waitFor([] { return barn.final(); }));
    BARN::NODE server;
    ASSERT_TRUE(barn.serverNext(&server, 0));
    EXPECT_FALSE(barn.serverNext(&server, 1)) << "one account";
    ASSERT_TRUE(barn.serverNext(&server, 0));
    EXPECT_STREQ(server.name, DEMO::kServerName);
    EXPECT_EQ(server.server.port, demo.port());
    BARN::NODE discussion, binaries;
    ASSERT_TRUE(barn.groupRead(server.number, &discussion, DEMOARTICLES::kDiscussion));
    ASSERT_TRUE(barn.groupRead(server.number, &binaries, DEMOARTICLES::kBinaries));

    SETTINGS::progressWindow.transferStart = false;
    ASSERT_TRUE(NETWORK::start() && NNTP::start() && KILLFILE::Start() && news.start());
    news.finishedSet(summaryKeep);
    EXPECT_EQ(news.requestServer(server.number, false), 2u);
    const size_t expected =
        DEMOARTICLES::groups()[0].articles.size() + DEMOARTICLES::groups()[1].articles.size();
    EXPECT_TRUE(storetest::waitFor(
        [&] {
            return storetest::filesIn(discussion.path) + storetest::filesIn(binaries.path) ==
                   expected;
        },
        std::chrono::seconds(30)));
    // The run's summary, as a desktop notification would show it.
    EXPECT_TRUE(storetest::waitFor([] {
        std::lock_guard<std::mutex> lock(gSummaryLock);
        return gSummary == "27 new messages: 7 in demo.binaries, 20 in demo.discussion";
    })) << gSummary;
    news.finishedSet(nullptr);
    // The yEnc file, with its lines that begin with dots, came through the news server's
    // dot-stuffing and the download whole: its parts decode to the original bytes.
    std::vector<std::string> parts(DEMOARTICLES::kYencParts);
    for (const auto &entry : std::filesystem::directory_iterator(binaries.path)) {
        std::string text = decodetest::fileGet(entry.path());
        size_t at = text.find("=ybegin part=");
        if (at != std::string::npos)
            parts[size_t(text[at + 13] - '1')] = entry.path();
    }
    std::string out = testhome::path() + "/demo.bin";
    FILEDECODE::FAILURE failure;
    ASSERT_TRUE(FILEDECODE::FileDecode(parts, 0, out.c_str(), nullptr, IMsg::AttachYenc, nullptr,
                                       nullptr, &failure))
        << "damaged part " << failure.damaged << (failure.missing ? ", one missing" : "");
    EXPECT_TRUE(decodetest::fileGet(out) == DEMOARTICLES::yencFile());
    THREAD::state(false);
    THREAD::stop();
    news.stop();
    KILLFILE::Stop();
    NNTP::stop();
    NETWORK::stop();
    barn.stop();
    demo.stop();
    EXPECT_TRUE(alerts.texts().empty()) << testing::PrintToString(alerts.texts());
}

} // namespace
