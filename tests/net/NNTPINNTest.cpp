// Tests of the news session against a real INN server on loopback: greeting, login, the log,
// and pipelined reads of what the article generator filled in.
#include "net/NNTP.h"

#include <cstring>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "tests/net/NNTPFixture.h"
#include "tools/innfill/ARTICLEGEN.h"
#include "tools/innfill/INNSERVER.h"

namespace {

using nntptest::errors;
using testing::HasSubstr;
using testing::Not;
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
    EXPECT_THAT(text, HasSubstr("  R: 200 "));
    EXPECT_THAT(text, HasSubstr("  S: GROUP vw.test.empty\n"));
    EXPECT_THAT(text, HasSubstr("  S: QUIT\n"));
    EXPECT_THAT(text, HasSubstr("  R: 205 "));
    EXPECT_THAT(text, HasSubstr("  Total connect time: "));
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
    EXPECT_THAT(text, HasSubstr("  Logging in ...\n"));
    EXPECT_THAT(text, HasSubstr(std::string("  S: AUTHINFO USER ") + INNSERVER::kUser + "\n"));
    EXPECT_THAT(text, HasSubstr("  S: AUTHINFO PASS ********\n"));
    EXPECT_THAT(text, HasSubstr("  R: 281 "));
    EXPECT_THAT(text, Not(HasSubstr(INNSERVER::kPassword)));
}

TEST_F(NNTPINN, WrongPasswordIsReported) {
    SETTINGS::storage.transferLogging = SETTINGS::kLogActions;
    BARN::NODE node = server(inn().authPort(), 30'000'000, INNSERVER::kUser, "not-the-password");
    {
        NNTP session(&node, nntptest::recordError, nullptr);
        ASSERT_TRUE(session.connect());
        EXPECT_FALSE(session.login());
    }
    EXPECT_THAT(errors(), testing::ElementsAre(testing::StartsWith(
                              "Couldn't log in to server Test Server. Response: 481 ")));
    std::string text = log();
    EXPECT_THAT(text, HasSubstr("  Couldn't log in to server Test Server.\n" +
                                std::string(21, ' ') + "Response: 481 "));
    EXPECT_THAT(text, HasSubstr("  Connecting to server Test Server ...\n"));
    EXPECT_THAT(text, Not(HasSubstr(" S: ")));
    EXPECT_THAT(text, Not(HasSubstr(" R: ")));
}

TEST_F(NNTPINN, PipelinedHeadsComeBackInOrder) {
    size_t accepted = 0;
    std::string error;
    ASSERT_TRUE(inn().fill("vw.test.small", 0, 30, 3, &accepted, &error)) << error;
    size_t again = 9;
    ASSERT_TRUE(inn().fill("vw.test.small", 0, 30, 3, &again, &error)) << error;
    EXPECT_EQ(again, 0u) << "the same Message-IDs again are duplicates";
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
        for (; sent < accepted && sent - answered < kDepth; ++sent)
            ASSERT_TRUE(session.send(("HEAD " + std::to_string(sent + 1)).c_str()));
        char line[1001];
        ASSERT_EQ(session.response("retrieve message from", false, line, sizeof line), 221u);
        std::string id = generator.messageId(answered);
        EXPECT_NE(strstr(line, id.c_str()), nullptr) << line;
        bool dot = false;
        while (!dot && session.read(line, sizeof line))
            dot = strcmp(line, ".") == 0;
        ASSERT_TRUE(dot);
    }
    EXPECT_EQ(errors(), Strings{});
}

} // namespace
