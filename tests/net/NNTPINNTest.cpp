// Tests of the news session against a real INN server on loopback: greeting, login, the log.
#include "net/NNTP.h"

#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "tests/net/NNTPFixture.h"
#include "tests/support/INNSERVER.h"
#include "tools/innfill/ARTICLEGEN.h"

namespace {

using nntptest::errors;
using Strings = std::vector<std::string>;

class NNTPINN : public nntptest::SessionTest {
protected:
    void SetUp() override {
        SessionTest::SetUp();
        ASSERT_TRUE(inn().ok()) << inn().error();
    }
    static INNSERVER &inn() { return INNSERVER::shared(); }
};

TEST_F(NNTPINN, ConnectGreetingAndQuitWithoutLogin) {
    BARN::NODE node = server(inn().readerPort());
    node.server.login = false;
    {
        NNTP session(&node, nntptest::recordError, nullptr);
        ASSERT_TRUE(session.connect());
        ASSERT_TRUE(session.send("GROUP vw.test.empty"));
        EXPECT_EQ(session.response("select newsgroup", true), 211u);
    }
    EXPECT_EQ(errors(), Strings{});
    std::string text = log();
    EXPECT_NE(text.find("  R: 200 "), std::string::npos) << text;
    EXPECT_NE(text.find("  S: GROUP vw.test.empty\n"), std::string::npos) << text;
    EXPECT_NE(text.find("  S: QUIT\n"), std::string::npos) << text;
    EXPECT_NE(text.find("  R: 205 "), std::string::npos) << text;
    EXPECT_NE(text.find("  Total connect time: "), std::string::npos) << text;
}

TEST_F(NNTPINN, LoginWithAuthinfoMasksThePassword) {
    BARN::NODE node = server(inn().authPort(), 10'000'000, INNSERVER::kUser, INNSERVER::kPassword);
    {
        NNTP session(&node, nntptest::recordError, nullptr);
        ASSERT_TRUE(session.connect());
        ASSERT_TRUE(session.login());
        ASSERT_TRUE(session.send("GROUP vw.test.post"));
        EXPECT_EQ(session.response("select newsgroup", true), 211u);
    }
    EXPECT_EQ(errors(), Strings{});
    std::string text = log();
    EXPECT_NE(text.find("  Logging in ...\n"), std::string::npos) << text;
    EXPECT_NE(text.find(std::string("  S: AUTHINFO USER ") + INNSERVER::kUser + "\n"),
              std::string::npos)
        << text;
    EXPECT_NE(text.find("  S: AUTHINFO PASS ********\n"), std::string::npos) << text;
    EXPECT_NE(text.find("  R: 281 "), std::string::npos) << text;
    EXPECT_EQ(text.find(INNSERVER::kPassword), std::string::npos) << text;
}

TEST_F(NNTPINN, WrongPasswordIsReported) {
    SETTINGS::storage.transferLogging = SETTINGS::kLogActions;
    BARN::NODE node = server(inn().authPort(), 30'000'000, INNSERVER::kUser, "not-the-password");
    {
        NNTP session(&node, nntptest::recordError, nullptr);
        ASSERT_TRUE(session.connect());
        EXPECT_FALSE(session.login());
    }
    Strings reported = errors();
    ASSERT_EQ(reported.size(), 1u);
    EXPECT_EQ(reported[0].rfind("Couldn't log in to server Test Server. Response: 481 ", 0), 0u)
        << reported[0];
    std::string text = log();
    EXPECT_NE(text.find("  Couldn't log in to server Test Server.\n" + std::string(21, ' ') +
                        "Response: 481 "),
              std::string::npos)
        << text;
    EXPECT_NE(text.find("  Connecting to server Test Server ...\n"), std::string::npos) << text;
    EXPECT_EQ(text.find(" S: "), std::string::npos) << text;
    EXPECT_EQ(text.find(" R: "), std::string::npos) << text;
}

TEST_F(NNTPINN, PipelinedHeadsComeBackInOrder) {
    size_t accepted = 0;
    std::string error;
    ASSERT_TRUE(inn().fill("vw.test.small", 0, 30, 3, &accepted, &error)) << error;
    ARTICLEGEN generator("vw.test.small", 3, INNSERVER::kDomain);
    SETTINGS::storage.transferLogging = SETTINGS::kLogOff;
    BARN::NODE node = server(inn().readerPort());
    NNTP session(&node, nntptest::recordError, nullptr);
    ASSERT_TRUE(session.connect());
    ASSERT_TRUE(session.send("GROUP vw.test.small"));
    ASSERT_EQ(session.response("select newsgroup", true), 211u);
    constexpr size_t kDepth = 10;
    size_t sent = 0;
    for (size_t answered = 0; answered < accepted; ++answered) {
        for (; sent < accepted && sent - answered < kDepth; ++sent) {
            ASSERT_TRUE(session.send(("HEAD " + std::to_string(sent + 1)).c_str()));
        }
        char line[1001];
        ASSERT_EQ(session.response("retrieve message from", false, line, sizeof line), 221u);
        std::string id = generator.messageId(answered);
        EXPECT_NE(strstr(line, id.c_str()), nullptr) << line;
        bool dot = false;
        while (!dot && session.read(line, sizeof line)) {
            dot = strcmp(line, ".") == 0;
        }
        ASSERT_TRUE(dot);
    }
    EXPECT_EQ(errors(), Strings{});
}

} // namespace
