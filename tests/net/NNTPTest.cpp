// Tests of the news session against the scripted fake server: greetings, responses, the log.
#include "net/NNTP.h"

#include <chrono>
#include <gtest/gtest.h>
#include <ostream>
#include <string>
#include <sys/stat.h>
#include <thread>
#include <vector>

#include "tests/net/NNTPFixture.h"
#include "tests/support/FAKENNTP.h"

namespace {

using nntptest::errors;
using nntptest::SessionTest;

using Strings = std::vector<std::string>;

class NNTPSession : public SessionTest {};

TEST_F(NNTPSession, Greeting201ConnectsAndSaysGoodbye) {
    FAKENNTP fake;
    fake.play("S: 201 reading only\nC: QUIT\nS: 205 bye");
    BARN::NODE node = server(fake.port());
    {
        NNTP session(&node, nntptest::recordError, nullptr);
        EXPECT_TRUE(session.connect());
        EXPECT_EQ(session.address(), 0x7F000001u);
        session.disconnect();
        EXPECT_FALSE(session.connected());
    }
    EXPECT_TRUE(fake.wait());
    EXPECT_EQ(fake.received(), "QUIT\r\n");
    EXPECT_EQ(fake.error(), "");
    EXPECT_EQ(errors(), Strings{});
}

TEST_F(NNTPSession, Greeting400IsRefusedWithoutQuit) {
    FAKENNTP fake;
    fake.play("S: 400 service unavailable");
    BARN::NODE node = server(fake.port());
    {
        NNTP session(&node, nntptest::recordError, nullptr);
        EXPECT_FALSE(session.connect());
        EXPECT_TRUE(session.aborted());
    }
    EXPECT_TRUE(fake.wait());
    EXPECT_EQ(fake.received(), "");
    EXPECT_EQ(errors(),
              Strings{"Couldn't connect to server Test Server. Response: 400 service unavailable"});
    std::string text = log();
    EXPECT_NE(text.find("  Couldn't connect to server Test Server.\n" + std::string(21, ' ') +
                        "Response: 400 service unavailable\n"),
              std::string::npos)
        << text;
    EXPECT_NE(text.find("Total connect time: "), std::string::npos);
}

TEST_F(NNTPSession, RefusedConnectionIsReported) {
    BARN::NODE node = server(FAKENNTP::closedPort());
    NNTP session(&node, nntptest::recordError, nullptr);
    EXPECT_FALSE(session.connect());
    EXPECT_EQ(errors(), Strings{"Couldn't connect to server Test Server: Connection refused"});
}

struct InvalidCase {
    const char *name;
    const char *line;
};

void PrintTo(const InvalidCase &c, std::ostream *os) {
    *os << c.name;
}

class NNTPInvalid : public SessionTest, public testing::WithParamInterface<InvalidCase> {};

TEST_P(NNTPInvalid, IsReportedUnlessCancelled) {
    for (bool cancelled : {false, true}) {
        FAKENNTP fake;
        fake.play(std::string("S: 200 hello\nC: GROUP a.b\nS: ") + GetParam().line +
                  "\nC: *\nS: 205 bye");
        BARN::NODE node = server(fake.port());
        NNTP session(&node, nntptest::recordError, nntptest::cancelHook);
        ASSERT_TRUE(session.connect());
        ASSERT_TRUE(session.send("GROUP a.b"));
        nntptest::gCancel = cancelled;
        if (cancelled) {
            EXPECT_TRUE(session.cancel());
        }
        nntptest::gErrors.clear();
        EXPECT_EQ(session.response("select newsgroup", true), 0u);
        Strings expected;
        if (!cancelled) {
            expected.push_back(std::string("Server Test Server returned an invalid response: ") +
                               GetParam().line);
        }
        EXPECT_EQ(errors(), expected) << (cancelled ? "cancelled" : "not cancelled");
        nntptest::gCancel = false;
    }
}

INSTANTIATE_TEST_SUITE_P(Table, NNTPInvalid,
                         testing::Values(InvalidCase{"noNumber", "hello there"},
                                         InvalidCase{"code600", "600 beyond"},
                                         InvalidCase{"code99", "99 below"},
                                         InvalidCase{"numberGlued", "2x0 glued"},
                                         InvalidCase{"blankLine", " "}),
                         [](const auto &info) { return std::string(info.param.name); });

struct HintCase {
    const char *name;
    const char *line;
    bool hints;
    bool timezone;
    bool network;
};

void PrintTo(const HintCase &c, std::ostream *os) {
    *os << c.name;
}

class NNTPHints : public SessionTest, public testing::WithParamInterface<HintCase> {};

TEST_P(NNTPHints, FollowTheResponseWords) {
    FAKENNTP fake;
    fake.play(std::string("S: 200 hello\nC: .\nS: ") + GetParam().line + "\nC: QUIT\nS: 205 bye");
    BARN::NODE node = server(fake.port());
    NNTP session(&node, nntptest::recordError, nullptr);
    ASSERT_TRUE(session.connect());
    ASSERT_TRUE(session.send("."));
    char line[1001];
    EXPECT_EQ(session.response("post to", true, line, sizeof line, GetParam().hints), 0u);
    EXPECT_STREQ(line, GetParam().line);
    Strings expected{std::string("Couldn't post to server Test Server. Response: ") +
                     GetParam().line};
    if (GetParam().timezone) {
        expected.push_back("Your BeOS timezone setting is incorrect.  Check the help topic 'If "
                           "you have a problem' for more information.");
    }
    if (GetParam().network) {
        expected.push_back("Your BeOS network settings are incorrect.  Check the help topic 'If "
                           "you have a problem' for more information.");
    }
    EXPECT_EQ(errors(), expected);
}

INSTANTIATE_TEST_SUITE_P(
    Table, NNTPHints,
    testing::Values(HintCase{"date", "441 Bad DATE header", true, true, false},
                    HintCase{"message", "441 435 Duplicate Message-ID", true, false, true},
                    HintCase{"both", "441 message has a date in the future", true, true, true},
                    HintCase{"neither", "441 posting failed", true, false, false},
                    HintCase{"noHints", "441 message date wrong", false, false, false}),
    [](const auto &info) { return std::string(info.param.name); });

TEST_F(NNTPSession, ResponseCodesBelow400AndUnreported) {
    FAKENNTP fake;
    fake.play("S: 200 hi\nC: A\nS: 340 go on\nC: B\nS: 423 no such article\nC: C\n"
              "S: 500 what?\nC: D\nS:   211 5 1 5 g\nC: QUIT\nS: 205 bye");
    BARN::NODE node = server(fake.port());
    NNTP session(&node, nntptest::recordError, nullptr);
    ASSERT_TRUE(session.connect());
    session.send("A");
    EXPECT_EQ(session.response("post to", true), 340u);
    session.send("B");
    EXPECT_EQ(session.response("retrieve message from", false), 423u);
    session.send("C");
    EXPECT_EQ(session.response("select newsgroup", true), 0u);
    session.send("D");
    EXPECT_EQ(session.response("select newsgroup", true), 211u);
    EXPECT_EQ(errors(),
              Strings{"Couldn't select newsgroup server Test Server. Response: 500 what?"});
    EXPECT_TRUE(NNTP::success(100));
    EXPECT_TRUE(NNTP::success(399));
    EXPECT_FALSE(NNTP::success(400));
    EXPECT_FALSE(NNTP::success(99));
}

TEST_F(NNTPSession, LoginSendsThePasswordEvenAfter281) {
    FAKENNTP fake;
    fake.play("S: 200 hi\nC: AUTHINFO USER user\nS: 281 already fine\n"
              "C: AUTHINFO PASS secret\nS: 281 welcome\nC: QUIT\nS: 205 bye");
    BARN::NODE node = server(fake.port());
    {
        NNTP session(&node, nntptest::recordError, nullptr);
        ASSERT_TRUE(session.connect());
        EXPECT_TRUE(session.login());
    }
    EXPECT_TRUE(fake.wait());
    EXPECT_EQ(fake.received(), "AUTHINFO USER user\r\nAUTHINFO PASS secret\r\nQUIT\r\n");
    std::string text = log();
    EXPECT_NE(text.find("  S: AUTHINFO PASS ********\n"), std::string::npos) << text;
    EXPECT_EQ(text.find("secret"), std::string::npos) << text;
}

TEST_F(NNTPSession, LoginRefusals) {
    struct {
        const char *script;
        const char *error;
    } const cases[] = {
        {"S: 200 hi\nC: *\nS: 482 no such user\nC: QUIT\nS: 205",
         "Couldn't send username to server Test Server. Response: 482 no such user"},
        {"S: 200 hi\nC: *\nS: 381 more\nC: *\nS: 481 wrong\nC: QUIT\nS: 205",
         "Couldn't log in to server Test Server. Response: 481 wrong"},
    };
    for (const auto &each : cases) {
        nntptest::gErrors.clear();
        FAKENNTP fake;
        fake.play(each.script);
        BARN::NODE node = server(fake.port());
        NNTP session(&node, nntptest::recordError, nullptr);
        ASSERT_TRUE(session.connect());
        EXPECT_FALSE(session.login());
        EXPECT_EQ(errors(), Strings{each.error});
    }
}

TEST_F(NNTPSession, TimeOutAbortsAndDisconnectSendsNoQuit) {
    SETTINGS::storage.transferLogging = SETTINGS::kLogActions;
    FAKENNTP fake;
    fake.play("S: 200 hi\nC: GROUP a.b\nH");
    BARN::NODE node = server(fake.port(), 300'000);
    {
        NNTP session(&node, nntptest::recordError, nullptr);
        ASSERT_TRUE(session.connect());
        ASSERT_TRUE(session.send("GROUP a.b"));
        EXPECT_EQ(session.response("select newsgroup", true), 0u);
        EXPECT_TRUE(session.aborted());
        EXPECT_FALSE(session.send("GROUP c.d"));
        session.disconnect();
        EXPECT_FALSE(session.aborted());
    }
    fake.stop();
    EXPECT_EQ(fake.received(), "GROUP a.b\r\n");
    EXPECT_EQ(errors(), Strings{"Couldn't get data from server Test Server: Timed out waiting "
                                "for response"});
    std::string text = log();
    EXPECT_NE(text.find("  Connecting to server Test Server ...\n"), std::string::npos) << text;
    EXPECT_NE(text.find("  Disconnecting ...\n"), std::string::npos) << text;
    // A time-out of 0.3 s rounds up to whole seconds.
    EXPECT_NE(text.find("  Total connect time: 1 second\n\n"), std::string::npos) << text;
    EXPECT_EQ(text.find(" S: "), std::string::npos) << text;
    EXPECT_EQ(text.find(" R: "), std::string::npos) << text;
}

TEST_F(NNTPSession, CancelWhileWaitingIsSilent) {
    FAKENNTP fake;
    fake.play("S: 200 hi\nC: GROUP a.b\nH");
    BARN::NODE node = server(fake.port());
    {
        NNTP session(&node, nntptest::recordError, nntptest::cancelHook);
        ASSERT_TRUE(session.connect());
        ASSERT_TRUE(session.send("GROUP a.b"));
        std::thread user([] {
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
            nntptest::gCancel = true;
        });
        EXPECT_EQ(session.response("select newsgroup", true), 0u);
        user.join();
        EXPECT_TRUE(session.aborted());
    }
    fake.stop();
    EXPECT_EQ(fake.received(), "GROUP a.b\r\n");
    EXPECT_EQ(errors(), Strings{});
}

TEST_F(NNTPSession, ClosedConnection) {
    FAKENNTP fake;
    fake.play("S: 200 hi\nX");
    BARN::NODE node = server(fake.port());
    NNTP session(&node, nntptest::recordError, nullptr);
    ASSERT_TRUE(session.connect());
    ASSERT_TRUE(fake.wait());
    char line[100];
    EXPECT_FALSE(session.read(line, sizeof line));
    EXPECT_EQ(errors(), Strings{"Couldn't get data from server Test Server: Connection has been "
                                "closed"});
    // The send that finds the peer gone frees the record without a message.
    for (int i = 0; i < 100 && session.connected(); ++i) {
        session.send("GROUP a.b");
    }
    EXPECT_FALSE(session.connected());
    EXPECT_EQ(errors().size(), 1u);
    EXPECT_FALSE(session.read(line, sizeof line));
    EXPECT_EQ(errors().size(), 2u);
}

struct FoldCase {
    const char *name;
    std::string sent;
    Strings lines;
};

void PrintTo(const FoldCase &c, std::ostream *os) {
    *os << c.name;
}

class NNTPFold : public SessionTest, public testing::WithParamInterface<FoldCase> {};

TEST_P(NNTPFold, ContinuesAnOverlongLine) {
    FAKENNTP fake;
    fake.play("S: 200 hi\nC: HEAD 1\nB: " + GetParam().sent +
              "\\r\\nnext\\r\\n\nC: QUIT\nS: 205 bye");
    BARN::NODE node = server(fake.port());
    NNTP session(&node, nntptest::recordError, nullptr);
    ASSERT_TRUE(session.connect());
    ASSERT_TRUE(session.send("HEAD 1"));
    Strings lines;
    char line[11];
    for (size_t i = 0; i < GetParam().lines.size(); ++i) {
        ASSERT_TRUE(session.read(line, sizeof line));
        lines.emplace_back(line);
    }
    EXPECT_EQ(lines, GetParam().lines);
}

INSTANTIATE_TEST_SUITE_P(
    Table, NNTPFold,
    testing::Values(
        FoldCase{"word", "Subject: abcdefghij", {"Subject: a", " bcdefghij", "next"}},
        FoldCase{"blankOverflow", "Subject: a bc", {"Subject: a", " bc", "next"}},
        FoldCase{"twice", "0123456789abcdefghijKL", {"0123456789", " abcdefghi", " jKL", "next"}}),
    [](const auto &info) { return std::string(info.param.name); });

TEST_F(NNTPSession, CommandsAreCutTo1019Characters) {
    FAKENNTP fake;
    fake.play("S: 200 hi\nC: *\nC: QUIT\nS: 205 bye");
    BARN::NODE node = server(fake.port());
    {
        NNTP session(&node, nntptest::recordError, nullptr);
        ASSERT_TRUE(session.connect());
        std::string longLine(1500, 'q');
        EXPECT_TRUE(session.send(longLine.c_str()));
    }
    fake.stop();
    EXPECT_EQ(fake.received().substr(0, 1021), std::string(1019, 'q') + "\r\n");
}

TEST_F(NNTPSession, NameLookup) {
    BARN::NODE node = server(119);
    STR::copy(node.server.hostname, "localhost", sizeof node.server.hostname);
    {
        NNTP session(&node, nntptest::recordError, nullptr);
        EXPECT_TRUE(session.dnsLookup());
        EXPECT_EQ(session.address(), 0x7F000001u);
        STR::copy(node.server.hostname, "no-such-host.invalid", sizeof node.server.hostname);
        NNTP missing(&node, nntptest::recordError, nullptr);
        EXPECT_FALSE(missing.dnsLookup());
    }
    EXPECT_EQ(errors(), Strings{"Couldn't get IP address for no-such-host.invalid: Network "
                                "address is unavailable"});
    std::string text = log();
    EXPECT_NE(text.find("  Looking up IP address for DNS name localhost ...\n"), std::string::npos)
        << text;
    EXPECT_NE(text.find("  Found IP address: 127.0.0.1\n"), std::string::npos) << text;
}

TEST_F(NNTPSession, LogFileIsPrivateAndAppended) {
    BARN::NODE node = server(119);
    {
        NNTP session(&node, nntptest::recordError, nullptr);
        session.logWrite(NNTP::kLogStatus, "first %d", 1);
    }
    {
        NNTP session(&node, nntptest::recordError, nullptr);
        session.logWrite(NNTP::kLogDetail, "%s", "second");
        session.logWrite(NNTP::kLogReceived, "%s", "a line");
    }
    struct stat info {};
    ASSERT_EQ(stat(fLogPath, &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0600u);
    std::string text = log();
    ASSERT_EQ(text.size(), 19 + 2 + 7 + 1 + 21 + 6 + 1 + 19 + 2 + 3 + 6 + 1) << text;
    EXPECT_EQ(text.substr(19, 10), "  first 1\n");
    EXPECT_EQ(text.substr(29, 28), std::string(21, ' ') + "second\n");
    EXPECT_EQ(text.substr(57 + 19), "  R: a line\n");
}

TEST_F(NNTPSession, LogLevelOffWritesNothingButStillReportsErrors) {
    SETTINGS::storage.transferLogging = SETTINGS::kLogOff;
    BARN::NODE node = server(119);
    {
        NNTP session(&node, nntptest::recordError, nullptr);
        session.logWrite(NNTP::kLogStatus, "%s", "quiet");
        session.logWrite(NNTP::kLogError, "%s", "loud\nand clear");
    }
    EXPECT_EQ(log(), "<missing>");
    EXPECT_EQ(errors(), Strings{"loud and clear"});
}

TEST_F(NNTPSession, LogThatCannotOpen) {
    char storage[BARNINFO::kPathSize];
    BARNINFO::pathStorage(storage, sizeof storage);
    rmdir(storage);
    BARN::NODE node = server(119);
    NNTP session(&node, nntptest::recordError, nullptr);
    session.logWrite(NNTP::kLogStatus, "%s", "nowhere");
    EXPECT_EQ(errors(), Strings{std::string("Couldn't open NNTP log file. Filename: ") + fLogPath +
                                " Error: File not found"});
}

struct WrapCase {
    const char *name;
    bool stamped;
    std::string text;
    std::string wrapped;
};

void PrintTo(const WrapCase &c, std::ostream *os) {
    *os << c.name;
}

class NNTPWrap : public testing::TestWithParam<WrapCase> {};

TEST_P(NNTPWrap, Wraps) {
    char out[NNTP::kLogLineMax];
    NNTP::logFmtWrapped(out, sizeof out, GetParam().stamped ? "2024/01/02 03:04:05" : nullptr,
                        GetParam().text.c_str());
    EXPECT_EQ(std::string(out), GetParam().wrapped);
}

const std::string kIndent(21, ' ');
const std::string kWords = "Couldn't get data from server news.example.invalid: Timed out waiting "
                           "for response";

INSTANTIATE_TEST_SUITE_P(
    Table, NNTPWrap,
    testing::Values(
        WrapCase{"short", true, "Connecting ...", "2024/01/02 03:04:05  Connecting ..."},
        WrapCase{
            "wordBreak", true, kWords,
            "2024/01/02 03:04:05  Couldn't get data from server news.example.invalid: Timed\n" +
                kIndent + "out waiting for response"},
        WrapCase{"detail", false, kWords,
                 kIndent + "Couldn't get data from server news.example.invalid: Timed\n" + kIndent +
                     "out waiting for response"},
        WrapCase{"lineFeed", true, "Couldn't log in.\nResponse: 481",
                 "2024/01/02 03:04:05  Couldn't log in.\n" + kIndent + "Response: 481"},
        WrapCase{"longWord", false, std::string(60, 'w'),
                 kIndent + std::string(57, 'w') + "\n" + kIndent + "www"},
        WrapCase{"exactWidth", false, std::string(57, 'e') + " next",
                 kIndent + std::string(57, 'e') + "\n" + kIndent + "next"},
        WrapCase{"doubleBlankKept", true, "One.  Two.", "2024/01/02 03:04:05  One.  Two."},
        WrapCase{"cutAt1024", false, std::string(2000, 'c'),
                 [] {
                     std::string all;
                     while (all.size() < 1023) {
                         all += (all.empty() ? "" : "\n") + kIndent + std::string(57, 'c');
                     }
                     return all.substr(0, 1023);
                 }()}),
    [](const auto &info) { return std::string(info.param.name); });

TEST(NNTPHeaderTable, LivesFromStartToStop) {
    EXPECT_EQ(NNTP::headerTable(), nullptr);
    ASSERT_TRUE(NNTP::start());
    ASSERT_NE(NNTP::headerTable(), nullptr);
    NNTP::headerTable()->push_back({"User-Agent: Vellowick", false});
    NNTP::hdrClear();
    EXPECT_TRUE(NNTP::headerTable()->empty());
    NNTP::stop();
    EXPECT_EQ(NNTP::headerTable(), nullptr);
}

} // namespace
