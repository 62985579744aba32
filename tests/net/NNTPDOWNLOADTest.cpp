// Downloading against the scripted server: ranges, the fetch loop, the kill list, broken articles.
#include <csignal>
#include <sys/resource.h>

#include "tests/net/TRANSFERFIXTURE.h"
#include "tests/support/FAKENNTP.h"

using namespace transfertest;

namespace {

struct RANGECASE {
    const char *name;
    INDEXRANGE saved;
    INDEXRANGE server;
    unsigned long count;
    INDEXRANGE wanted;
    INDEXRANGE savedAfter;
};

TEST(NNTPDownloadRange, WorksOutWhatToFetch) {
    const RANGECASE cases[] = {
        {"new-articles", {100, 200}, {150, 260}, 111, {201, 260}, {150, 200}},
        {"renumbered-group", {100, 200}, {1, 50}, 50, {1, 50}, {1, 1}},
        {"within-40-of-saved", {100, 200}, {1, 170}, 170, {}, {1, 200}},
        {"fresh-group", {0, 0}, {1000, 1999}, 1000, {1000, 1999}, {1000, 1000}},
        {"empty-group", {100, 200}, {1, 0}, 0, {}, {}},
        {"count-zero", {5, 9}, {3, 9}, 0, {}, {}},
        {"first-after-last", {0, 0}, {12, 10}, 5, {6, 10}, {10, 10}},
        {"saved-first-after-last", {30, 20}, {1, 40}, 40, {1, 40}, {1, 1}},
        {"count-beyond-last", {0, 0}, {2, 5}, 900, {1, 5}, {2, 2}},
        {"lowest-above-saved", {10, 20}, {500, 600}, 101, {500, 600}, {500, 500}},
        {"up-to-date", {1, 60}, {1, 60}, 60, {}, {1, 60}},
    };
    for (const RANGECASE &c : cases) {
        INDEXRANGE saved = c.saved, server = c.server, wanted{7, 7};
        NNTP::downloadRange(&saved, &server, c.count, &wanted);
        EXPECT_EQ(wanted, c.wanted) << c.name;
        EXPECT_EQ(saved, c.savedAfter) << c.name;
    }
}

TEST(NNTPDownloadKillList, OverviewLines) {
    SETTINGS::reset(testhome::path().c_str());
    ASSERT_TRUE(KILLFILE::Start());
    ASSERT_TRUE(KILLFILE::Add("Bad Guy", "bad@example.invalid"));
    const struct {
        const char *line;
        bool killed;
    } cases[] = {
        {"7\tSubject\tBad Guy <bad@example.invalid>\tdate\t<id>", true},
        {" 8 \tSubject\t=?UTF-8?Q?Bad_Guy?= <bad@example.invalid>", true},
        {"9\tSubject\tbad@example.invalid (Bad Guy)", true},
        {"10\tSubject\tGood Guy <bad@example.invalid>", false},
        {"x11\tSubject\tBad Guy <bad@example.invalid>", false},
        {"12345678901\tSubject\tBad Guy <bad@example.invalid>", false},
        {"4294967296\tSubject\tBad Guy <bad@example.invalid>", false},
        {"13\tBad Guy <bad@example.invalid>", false},
        {"\tSubject\tBad Guy <bad@example.invalid>", false},
    };
    NNTP::KILLLIST list;
    for (const auto &c : cases)
        NNTP::overAdd(&list, c.line);
    NNTP::overAdd(&list, "7\tagain\tBad Guy <bad@example.invalid>");
    NNTP::overAdd(&list, "3\tearlier\tBad Guy <bad@example.invalid>");
    EXPECT_EQ(list, (NNTP::KILLLIST{3, 7, 8, 9}));
    for (unsigned long n : {3ul, 7ul, 8ul, 9ul})
        EXPECT_TRUE(NNTP::overKilled(&list, n)) << n;
    for (unsigned long n : {1ul, 10ul, 11ul, 13ul})
        EXPECT_FALSE(NNTP::overKilled(&list, n)) << n;
    NNTP::overClear(&list);
    EXPECT_TRUE(list.empty());
    KILLFILE::Stop();
}

class NNTPDownload : public TRANSFERTEST {
protected:
    // Plays the script after the greeting, downloads the group once and says goodbye.
    bool run(FAKENNTP &fake, const std::string &script, NNTP::PROGRESSFUNC progress = nullptr,
             bool catchup = false) {
        fake.play("S: 200 ready\n" + script);
        long long server = serverAt(fake.port());
        BARN::NODE copy = node(fGroup = groupMake(server, "alt.test", fMode, fSaved));
        NNTP *nntp = session(server);
        bool result = catchup ? nntp->catchup(&copy, progress, 1)
                              : nntp->download(&copy, progress, kOverviewKind, kArticleKind);
        delete nntp;
        EXPECT_TRUE(fake.wait());
        return result;
    }
    std::vector<std::string> stored() { return files(node(fGroup).path); }

    static constexpr long kOverviewKind = 6;
    static constexpr long kArticleKind = 3;
    GROUPDOWNLOAD fMode = GROUPDOWNLOAD::HeadersOnly;
    INDEXRANGE fSaved{};
    long long fGroup = -1;
};

struct FETCHCASE {
    const char *name;
    INDEXRANGE saved;
    const char *groupLine;
    unsigned long first, last; // HEAD commands expected; 0 for none
    unsigned long limit;       // DownloadHeaders with the limit on; 0 for no limit
    INDEXRANGE after;
};

class NNTPDownloadFetch : public NNTPDownload, public testing::WithParamInterface<FETCHCASE> {};

TEST_P(NNTPDownloadFetch, RequestsExactlyTheWantedHeaders) {
    const FETCHCASE &c = GetParam();
    fSaved = c.saved;
    if (c.limit != 0) {
        SETTINGS::storage.downloadLimit = true;
        SETTINGS::storage.downloadHeaders = uint32_t(c.limit);
    }
    std::string script = "C: GROUP alt.test\nS: " + std::string(c.groupLine) + "\n";
    for (unsigned long n = c.first; n != 0 && n <= c.last; ++n)
        script += answer(n);
    FAKENNTP fake;
    EXPECT_TRUE(run(fake, script + kGoodbye));
    EXPECT_EQ(fake.error(), "");
    EXPECT_EQ(range(fGroup), c.after);
    std::vector<std::string> got = stored();
    ASSERT_EQ(got.size(), c.first == 0 ? 0 : c.last - c.first + 1);
    if (!got.empty()) {
        VMSG::DATA first = data(got.front());
        EXPECT_EQ(first.type, IMsg::MsgTypeNewsHeader);
        EXPECT_FALSE(first.read);
        EXPECT_EQ(node(fGroup).unread, got.size());
    }
    EXPECT_TRUE(errors().empty());
}

INSTANTIATE_TEST_SUITE_P(
    Cases, NNTPDownloadFetch,
    testing::Values(
        FETCHCASE{"new", {100, 200}, "211 111 150 260 alt.test", 201, 260, 0, {150, 260}},
        FETCHCASE{"renumbered", {100, 200}, "211 50 1 50 alt.test", 1, 50, 0, {1, 50}},
        FETCHCASE{"nothing_new", {100, 200}, "211 170 1 170 alt.test", 0, 0, 0, {100, 200}},
        FETCHCASE{"limited", {0, 0}, "211 1000 1000 1999 alt.test", 1000, 1299, 300, {1000, 1299}}),
    [](const testing::TestParamInfo<FETCHCASE> &info) { return std::string(info.param.name); });

TEST_F(NNTPDownload, MissingArticleIsSkippedAndPassed) {
    FAKENNTP fake;
    std::string script = "C: GROUP alt.test\nS: 211 3 1 3 alt.test\n" + answer(1) +
                         "C: HEAD 2\nS: 423 No such article number in this group\n" + answer(3) +
                         kGoodbye;
    EXPECT_TRUE(run(fake, script));
    EXPECT_EQ(stored().size(), 2u);
    EXPECT_EQ(range(fGroup), (INDEXRANGE{1, 3}));
    EXPECT_TRUE(errors().empty()) << "a refused article is not reported";
}

namespace gcancel {
void atSecondBody(const NNTP::PROGRESS *progress) {
    if (progress->done == 2 && progress->bodyLines >= 2)
        gCancel = true;
}
} // namespace gcancel

TEST_F(NNTPDownload, CancelInTheMiddleErasesOnlyThatArticle) {
    fMode = GROUPDOWNLOAD::HeadersAndBodies;
    std::string partial = answer(2, 40);
    partial = partial.substr(0, partial.find("S: Body line 3"));
    FAKENNTP fake;
    std::string script =
        "C: GROUP alt.test\nS: 211 3 1 3 alt.test\n" + answer(1, 5) + partial + "P: 1000\nH\n";
    EXPECT_TRUE(run(fake, script, gcancel::atSecondBody));
    std::vector<std::string> got = stored();
    ASSERT_EQ(got.size(), 1u);
    VMSG::DATA kept = data(got[0]);
    EXPECT_EQ(kept.type, IMsg::MsgTypeNews);
    EXPECT_EQ(kept.msgid, "<1@fake.invalid>");
    EXPECT_EQ(readFile(tempFile()), "<missing>") << "the partial article is erased";
    EXPECT_EQ(range(fGroup), (INDEXRANGE{1, 1}));
    EXPECT_EQ(fake.received().find("QUIT"), std::string::npos) << "an aborted session says nothing";
    EXPECT_TRUE(errors().empty());
}

TEST_F(NNTPDownload, BrokenConnectionErasesThePartialArticle) {
    fMode = GROUPDOWNLOAD::HeadersAndBodies;
    std::string partial = answer(2, 9);
    partial = partial.substr(0, partial.find("S: Body line 4"));
    FAKENNTP fake;
    EXPECT_FALSE(
        run(fake, "C: GROUP alt.test\nS: 211 3 1 3 alt.test\n" + answer(1, 2) + partial + "X\n"));
    EXPECT_EQ(stored().size(), 1u);
    EXPECT_EQ(readFile(tempFile()), "<missing>");
    EXPECT_EQ(range(fGroup), (INDEXRANGE{1, 1}));
    ASSERT_FALSE(errors().empty());
    EXPECT_EQ(errors()[0], "Couldn't get data from server Fake: Connection has been closed");
}

TEST_F(NNTPDownload, WriteFailureErasesThePartialArticle) {
    fMode = GROUPDOWNLOAD::HeadersAndBodies;
    SETTINGS::storage.transferLogging = SETTINGS::kLogOff;
    struct rlimit before {};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
    struct rlimit small = before;
    small.rlim_cur = 48 * 1024;
    auto *previous = signal(SIGXFSZ, SIG_IGN);
    FAKENNTP fake;
    fake.play("S: 200 ready\nC: GROUP alt.test\nS: 211 1 1 1 alt.test\n" + answer(1, 6000) + "H\n");
    long long server = serverAt(fake.port());
    BARN::NODE copy = node(fGroup = groupMake(server, "alt.test", fMode));
    NNTP *nntp = session(server);
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
    bool result = nntp->download(&copy, nullptr, kOverviewKind, kArticleKind);
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &before), 0);
    signal(SIGXFSZ, previous);
    delete nntp;
    fake.stop();
    EXPECT_FALSE(result);
    EXPECT_EQ(fake.received().find("QUIT"), std::string::npos)
        << "the rest of the article is unread";
    EXPECT_TRUE(stored().empty());
    EXPECT_EQ(readFile(tempFile()), "<missing>");
    EXPECT_EQ(range(fGroup), (INDEXRANGE{1, 0})) << "article 1 is fetched again next time";
    ASSERT_FALSE(errors().empty());
    EXPECT_EQ(errors()[0].rfind("Couldn't write message file ", 0), 0u) << errors()[0];
}

TEST_F(NNTPDownload, KillfileKeepsArticlesFromBeingFetched) {
    SETTINGS::killfile.applyToDownload = true;
    ASSERT_TRUE(KILLFILE::Add("Bad Guy", "bad@example.invalid"));
    FAKENNTP fake;
    std::string script = "C: GROUP alt.test\nS: 211 4 1 4 alt.test\nC: XOVER 1-4\nS: 224 data\n"
                         "S: 1\tA\tPoster 1 <p1@example.invalid>\td\t<1@fake.invalid>\n"
                         "S: 2\tB\t=?ISO-8859-1?Q?Bad_Guy?= <bad@example.invalid>\td\t<2@x>\n"
                         "S: 3\tC\tBad Guy <bad@example.invalid>\td\t<3@x>\n"
                         "S: 4\tD\tPoster 4 <p4@example.invalid>\td\t<4@x>\nS: .\n" +
                         answer(1) + answer(4, -1, "Bad Guy <bad@example.invalid>") + kGoodbye;
    EXPECT_TRUE(run(fake, script));
    EXPECT_EQ(fake.error(), "");
    ASSERT_EQ(stored().size(), 2u);
    EXPECT_EQ(node(fGroup).unread, 1u) << "a stored article of a killed author counts as read";
    EXPECT_EQ(range(fGroup), (INDEXRANGE{1, 4}));
}

TEST_F(NNTPDownload, CatchupTakesTheServersRange) {
    fSaved = {5, 9};
    FAKENNTP fake;
    EXPECT_TRUE(
        run(fake, "C: GROUP alt.test\nS: 211 40 30 20 alt.test\n" + kGoodbye, nullptr, true));
    EXPECT_EQ(range(fGroup), (INDEXRANGE{20, 20})) << "the first is capped to the last";
    EXPECT_TRUE(stored().empty());
    EXPECT_NE(log().find("Index range updated: 20 to 20"), std::string::npos);
}

} // namespace
