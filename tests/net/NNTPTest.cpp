// Tests of the news session against the scripted fake server: greetings, responses, the log.
#include "net/NNTP.h"

#include <chrono>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <sys/stat.h>
#include <thread>
#include <vector>

#include "tests/net/NNTPFixture.h"
#include "tests/support/FAKENNTP.h"

namespace {

using nntptest::errors;
using testing::HasSubstr;
using testing::Not;
using Strings = std::vector<std::string>;

class NNTPSession : public nntptest::SessionTest {
protected:
    // A session on the fake server playing the script, connected unless the script refuses.
    std::unique_ptr<NNTP> open(FAKENNTP &fake, const std::string &script, bool connects = true,
                               int64_t timeout = 10'000'000) {
        fake.play(script);
        fNode = server(fake.port(), timeout);
        auto session = std::make_unique<NNTP>(&fNode, nntptest::recordError, nntptest::cancelHook);
        EXPECT_EQ(session->connect(), connects);
        return session;
    }
    BARN::NODE fNode{};
};

TEST_F(NNTPSession, GreetingsAndRefusedConnections) {
    {
        FAKENNTP fake;
        auto session = open(fake, "S: 201 reading only\nC: QUIT\nS: 205 bye");
        EXPECT_EQ(session->address(), 0x7F000001u);
        session->disconnect();
        EXPECT_FALSE(session->connected());
        EXPECT_TRUE(fake.wait());
        EXPECT_EQ(fake.received(), "QUIT\r\n");
        EXPECT_EQ(fake.error(), "");
        EXPECT_EQ(errors(), Strings{});
    }
    {
        FAKENNTP fake;
        auto session = open(fake, "S: 400 service unavailable", false);
        EXPECT_TRUE(session->aborted());
        session.reset();
        EXPECT_TRUE(fake.wait());
        EXPECT_EQ(fake.received(), "") << "no QUIT after a refusing greeting";
    }
    BARN::NODE node = server(FAKENNTP::closedPort());
    NNTP session(&node, nntptest::recordError, nullptr);
    EXPECT_FALSE(session.connect());
    EXPECT_EQ(errors(),
              (Strings{"Couldn't connect to server Test Server. Response: 400 service unavailable",
                       "Couldn't connect to server Test Server: Connection refused"}));
    std::string text = log();
    EXPECT_THAT(text, HasSubstr("  Couldn't connect to server Test Server.\n" +
                                std::string(21, ' ') + "Response: 400 service unavailable\n"));
    EXPECT_THAT(text, HasSubstr("Total connect time: "));
}

TEST_F(NNTPSession, InvalidResponsesAreReportedUnlessCancelled) {
    for (const char *line : {"hello there", "600 beyond", "99 below", "2x0 glued", " "}) {
        for (bool cancelled : {false, true}) {
            SCOPED_TRACE(std::string(line) + (cancelled ? " cancelled" : ""));
            FAKENNTP fake;
            auto session = open(fake, std::string("S: 200 hello\nC: GROUP a.b\nS: ") + line +
                                          "\nC: *\nS: 205 bye");
            ASSERT_TRUE(session->send("GROUP a.b"));
            nntptest::gCancel = cancelled;
            if (cancelled) {
                EXPECT_TRUE(session->cancel());
            }
            nntptest::gErrors.clear();
            EXPECT_EQ(session->response("select newsgroup", true), 0u);
            Strings expected;
            if (!cancelled)
                expected.push_back(
                    std::string("Server Test Server returned an invalid response: ") + line);
            EXPECT_EQ(errors(), expected);
            nntptest::gCancel = false;
        }
    }
}

TEST_F(NNTPSession, PostingHintsFollowTheResponseWords) {
    const std::string timezone = "Your BeOS timezone setting is incorrect.  Check the help topic "
                                 "'If you have a problem' for more information.";
    const std::string network = "Your BeOS network settings are incorrect.  Check the help topic "
                                "'If you have a problem' for more information.";
    const struct {
        const char *line;
        bool hints, timezone, network;
    } cases[] = {
        {"441 Bad DATE header", true, true, false},
        {"441 435 Duplicate Message-ID", true, false, true},
        {"441 message has a date in the future", true, true, true},
        {"441 posting failed", true, false, false},
        {"441 message date wrong", false, false, false},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.line);
        nntptest::gErrors.clear();
        FAKENNTP fake;
        auto session =
            open(fake, std::string("S: 200 hello\nC: .\nS: ") + c.line + "\nC: QUIT\nS: 205 bye");
        ASSERT_TRUE(session->send("."));
        char line[1001];
        EXPECT_EQ(session->response("post to", true, line, sizeof line, c.hints), 0u);
        EXPECT_STREQ(line, c.line);
        Strings expected{std::string("Couldn't post to server Test Server. Response: ") + c.line};
        if (c.timezone)
            expected.push_back(timezone);
        if (c.network)
            expected.push_back(network);
        EXPECT_EQ(errors(), expected);
    }
}

TEST_F(NNTPSession, ResponseCodesBelow400AndUnreported) {
    FAKENNTP fake;
    auto session = open(fake, "S: 200 hi\nC: A\nS: 340 go on\nC: B\nS: 423 no such article\nC: C\n"
                              "S: 500 what?\nC: D\nS:   211 5 1 5 g\nC: QUIT\nS: 205 bye");
    session->send("A");
    EXPECT_EQ(session->response("post to", true), 340u);
    session->send("B");
    EXPECT_EQ(session->response("retrieve message from", false), 423u);
    session->send("C");
    EXPECT_EQ(session->response("select newsgroup", true), 0u);
    session->send("D");
    EXPECT_EQ(session->response("select newsgroup", true), 211u);
    EXPECT_EQ(errors(),
              Strings{"Couldn't select newsgroup server Test Server. Response: 500 what?"});
    EXPECT_TRUE(NNTP::success(100));
    EXPECT_TRUE(NNTP::success(399));
    EXPECT_FALSE(NNTP::success(400));
    EXPECT_FALSE(NNTP::success(99));
}

TEST_F(NNTPSession, LoginSendsThePasswordEvenAfter281) {
    FAKENNTP fake;
    EXPECT_TRUE(open(fake, "S: 200 hi\nC: AUTHINFO USER user\nS: 281 already fine\n"
                           "C: AUTHINFO PASS secret\nS: 281 welcome\nC: QUIT\nS: 205 bye")
                    ->login());
    EXPECT_TRUE(fake.wait());
    EXPECT_EQ(fake.received(), "AUTHINFO USER user\r\nAUTHINFO PASS secret\r\nQUIT\r\n");
    EXPECT_THAT(log(), HasSubstr("  S: AUTHINFO PASS ********\n"));
    EXPECT_THAT(log(), Not(HasSubstr("secret")));
}

TEST_F(NNTPSession, LoginRefusals) {
    const struct {
        const char *script;
        const char *error;
    } cases[] = {
        {"S: 200 hi\nC: *\nS: 482 no such user\nC: QUIT\nS: 205",
         "Couldn't send username to server Test Server. Response: 482 no such user"},
        {"S: 200 hi\nC: *\nS: 381 more\nC: *\nS: 481 wrong\nC: QUIT\nS: 205",
         "Couldn't log in to server Test Server. Response: 481 wrong"},
    };
    for (const auto &each : cases) {
        nntptest::gErrors.clear();
        FAKENNTP fake;
        EXPECT_FALSE(open(fake, each.script)->login());
        EXPECT_EQ(errors(), Strings{each.error});
    }
}

TEST_F(NNTPSession, TimeOutAbortsAndDisconnectSendsNoQuit) {
    SETTINGS::storage.transferLogging = SETTINGS::kLogActions;
    FAKENNTP fake;
    auto session = open(fake, "S: 200 hi\nC: GROUP a.b\nH", true, 300'000);
    ASSERT_TRUE(session->send("GROUP a.b"));
    EXPECT_EQ(session->response("select newsgroup", true), 0u);
    EXPECT_TRUE(session->aborted());
    EXPECT_FALSE(session->send("GROUP c.d"));
    session->disconnect();
    EXPECT_FALSE(session->aborted());
    session.reset();
    fake.stop();
    EXPECT_EQ(fake.received(), "GROUP a.b\r\n");
    EXPECT_EQ(errors(), Strings{"Couldn't get data from server Test Server: Timed out waiting "
                                "for response"});
    std::string text = log();
    EXPECT_THAT(text, HasSubstr("  Connecting to server Test Server ...\n"));
    EXPECT_THAT(text, HasSubstr("  Disconnecting ...\n"));
    // A time-out of 0.3 s rounds up to whole seconds.
    EXPECT_THAT(text, HasSubstr("  Total connect time: 1 second\n\n"));
    EXPECT_THAT(text, Not(HasSubstr(" S: ")));
    EXPECT_THAT(text, Not(HasSubstr(" R: ")));
}

TEST_F(NNTPSession, CancelWhileWaitingIsSilent) {
    FAKENNTP fake;
    auto session = open(fake, "S: 200 hi\nC: GROUP a.b\nH");
    ASSERT_TRUE(session->send("GROUP a.b"));
    std::thread user([] {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        nntptest::gCancel = true;
    });
    EXPECT_EQ(session->response("select newsgroup", true), 0u);
    user.join();
    EXPECT_TRUE(session->aborted());
    session.reset();
    fake.stop();
    EXPECT_EQ(fake.received(), "GROUP a.b\r\n");
    EXPECT_EQ(errors(), Strings{});
}

TEST_F(NNTPSession, ClosedConnection) {
    FAKENNTP fake;
    auto session = open(fake, "S: 200 hi\nX");
    ASSERT_TRUE(fake.wait());
    char line[100];
    EXPECT_FALSE(session->read(line, sizeof line));
    EXPECT_EQ(errors(), Strings{"Couldn't get data from server Test Server: Connection has been "
                                "closed"});
    // The send that finds the peer gone frees the record without a message.
    for (int i = 0; i < 100 && session->connected(); ++i)
        session->send("GROUP a.b");
    EXPECT_FALSE(session->connected());
    EXPECT_EQ(errors().size(), 1u);
    EXPECT_FALSE(session->read(line, sizeof line));
    EXPECT_EQ(errors().size(), 2u);
}

TEST_F(NNTPSession, OverlongLinesContinueAndCommandsAreCut) {
    const struct {
        std::string sent;
        Strings lines;
    } cases[] = {
        {"Subject: abcdefghij", {"Subject: a", " bcdefghij", "next"}},
        {"Subject: a bc", {"Subject: a", " bc", "next"}},
        {"0123456789abcdefghijKL", {"0123456789", " abcdefghi", " jKL", "next"}},
    };
    for (const auto &c : cases) {
        FAKENNTP fake;
        auto session =
            open(fake, "S: 200 hi\nC: HEAD 1\nB: " + c.sent + "\\r\\nnext\\r\\n\nC: QUIT\nS: 205");
        ASSERT_TRUE(session->send("HEAD 1"));
        Strings lines;
        char line[11];
        for (size_t i = 0; i < c.lines.size(); ++i) {
            ASSERT_TRUE(session->read(line, sizeof line));
            lines.emplace_back(line);
        }
        EXPECT_EQ(lines, c.lines);
    }
    FAKENNTP fake;
    EXPECT_TRUE(
        open(fake, "S: 200 hi\nC: *\nC: QUIT\nS: 205 bye")->send(std::string(1500, 'q').c_str()));
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
    EXPECT_THAT(log(), HasSubstr("  Looking up IP address for DNS name localhost ...\n"));
    EXPECT_THAT(log(), HasSubstr("  Found IP address: 127.0.0.1\n"));
}

TEST_F(NNTPSession, LogFileIsPrivateAndAppended) {
    BARN::NODE node = server(119);
    NNTP(&node, nntptest::recordError, nullptr).logWrite(NNTP::kLogStatus, "first %d", 1);
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

TEST_F(NNTPSession, LogOffOrUnopenableStillReportsErrors) {
    SETTINGS::storage.transferLogging = SETTINGS::kLogOff;
    BARN::NODE node = server(119);
    {
        NNTP session(&node, nntptest::recordError, nullptr);
        session.logWrite(NNTP::kLogStatus, "%s", "quiet");
        session.logWrite(NNTP::kLogError, "%s", "loud\nand clear");
    }
    EXPECT_EQ(log(), "<missing>");
    SETTINGS::storage.transferLogging = SETTINGS::kLogTransfers;
    char storage[BARNINFO::kPathSize];
    BARNINFO::pathStorage(storage, sizeof storage);
    rmdir(storage);
    NNTP(&node, nntptest::recordError, nullptr).logWrite(NNTP::kLogStatus, "%s", "nowhere");
    EXPECT_EQ(errors(), (Strings{"loud and clear", std::string("Couldn't open NNTP log file. "
                                                               "Filename: ") +
                                                       fLogPath + " Error: File not found"}));
}

TEST(NNTPLog, WrapsAt78Columns) {
    const std::string indent(21, ' ');
    const std::string stamp = "2024/01/02 03:04:05  ";
    const std::string words = "Couldn't get data from server news.example.invalid: Timed out "
                              "waiting for response";
    std::string cut;
    while (cut.size() < 1023)
        cut += (cut.empty() ? "" : "\n") + indent + std::string(57, 'c');
    const struct {
        bool stamped;
        std::string text, wrapped;
    } cases[] = {
        {true, "Connecting ...", stamp + "Connecting ..."},
        {true, words,
         stamp + "Couldn't get data from server news.example.invalid: Timed\n" + indent +
             "out waiting for response"},
        {false, words,
         indent + "Couldn't get data from server news.example.invalid: Timed\n" + indent +
             "out waiting for response"},
        {true, "Couldn't log in.\nResponse: 481",
         stamp + "Couldn't log in.\n" + indent + "Response: 481"},
        {false, std::string(60, 'w'), indent + std::string(57, 'w') + "\n" + indent + "www"},
        {false, std::string(57, 'e') + " next",
         indent + std::string(57, 'e') + "\n" + indent + "next"},
        {true, "One.  Two.", stamp + "One.  Two."},
        {false, std::string(2000, 'c'), cut.substr(0, 1023)},
    };
    for (const auto &c : cases) {
        char out[NNTP::kLogLineMax];
        NNTP::logFmtWrapped(out, sizeof out, c.stamped ? "2024/01/02 03:04:05" : nullptr,
                            c.text.c_str());
        EXPECT_EQ(std::string(out), c.wrapped) << c.text;
    }
}

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
