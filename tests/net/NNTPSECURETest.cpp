// Secure sessions and logging in again, against the scripted server: the certificate verdicts,
// trusting one certificate, faults during the handshake, and 480 in the middle of a session.
#include "net/NNTP.h"

#include <chrono>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <string>

#include "tests/net/TRANSFERFIXTURE.h"
#include "tests/support/ALERTRECORDER.h"
#include "tests/support/FAKENNTP.h"
#include "tests/support/TESTCERTS.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

constexpr const char *kGoodbye = "C: QUIT\nS: 205 bye";

class Secure : public transfertest::TRANSFERTEST {
protected:
    void SetUp() override {
        TRANSFERTEST::SetUp();
        fCerts = std::make_unique<TESTCERTS>(testhome::path());
        ASSERT_TRUE(fCerts->ok());
        // The test authority stands in for the system's trust store.
        setenv("SSL_CERT_FILE", fCerts->caFile().c_str(), 1);
    }
    void TearDown() override {
        unsetenv("SSL_CERT_FILE");
        TRANSFERTEST::TearDown();
    }

    // The store's one server, moved to the fake's port, over TLS unless plain is asked for.
    BARN::NODE node(const FAKENNTP &fake, bool tls = true, bool login = false) {
        if (fServer < 0)
            fServer = serverAt(fake.port());
        BARN::NODE server{};
        EXPECT_TRUE(barn.nodeRead(&server, fServer));
        server.server.port = fake.port();
        server.server.security = tls ? kSecurityTLS : kSecurityNone;
        server.server.timeout = 2'000'000;
        server.server.login = login;
        STR::copy(server.server.username, "user", sizeof server.server.username);
        STR::copy(server.server.password, "secret", sizeof server.server.password);
        EXPECT_TRUE(barn.nodeSave(&server));
        return server;
    }
    std::unique_ptr<NNTP> session(const BARN::NODE &server) {
        return std::make_unique<NNTP>(&server, nntptest::recordError, nntptest::cancelHook);
    }
    // Plays the script with the certificate, connects once and ends the session.
    bool connectOnce(FAKENNTP &fake, const TESTCERTS::PAIR &pair, const std::string &script) {
        fake.tls(pair.cert, pair.key);
        fake.play(script);
        bool connected = session(node(fake))->connect();
        EXPECT_TRUE(fake.wait());
        return connected;
    }

    long long fServer = -1;
    std::unique_ptr<TESTCERTS> fCerts;
    ALERTRECORDER fAlerts;
};

TEST_F(Secure, CertificateVerdicts) {
    const struct {
        const char *name;
        const char *host;
        TESTCERTS::ISSUER issuer;
        long firstDay, lastDay;
        const char *error; // empty: the session connects
    } rows[] = {
        {"trusted", "127.0.0.1", TESTCERTS::kByAuthority, -1, 30, ""},
        {"another host", "news.example.invalid", TESTCERTS::kByAuthority, -1, 30,
         "Server certificate was issued for another host name"},
        {"expired", "127.0.0.1", TESTCERTS::kByAuthority, -30, -1,
         "Server certificate has expired or is not yet valid"},
        {"unknown authority", "127.0.0.1", TESTCERTS::kByStranger, -1, 30,
         "Server certificate was issued by an unknown authority"},
        {"self-signed", "127.0.0.1", TESTCERTS::kBySelf, -1, 30,
         "Server certificate is self-signed"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        nntptest::gErrors.clear();
        size_t alertsBefore = fAlerts.count();
        FAKENNTP fake;
        TESTCERTS::PAIR pair =
            fCerts->server(row.name, row.host, row.issuer, row.firstDay, row.lastDay);
        bool trusted = row.error[0] == 0;
        EXPECT_EQ(
            connectOnce(fake, pair, trusted ? "T\nS: 200 ready\n" + std::string(kGoodbye) : "T"),
            trusted);
        if (trusted) {
            EXPECT_EQ(fake.received(), "QUIT\r\n");
            EXPECT_THAT(log(), HasSubstr("Secure connection: TLSv1."));
            continue;
        }
        // Refused before a word was sent, with one question that names the reason and the
        // certificate's fingerprint.
        EXPECT_EQ(fake.received(), "");
        EXPECT_THAT(nntptest::errors(),
                    ElementsAre("Couldn't make a secure connection to server Fake: " +
                                std::string(row.error)));
        ASSERT_EQ(fAlerts.count(), alertsBefore + 1);
        EXPECT_THAT(fAlerts.texts().back(),
                    testing::MatchesRegex("The certificate of server Fake cannot be trusted: " +
                                          std::string(row.error) +
                                          "\\.\n\nSHA-256 fingerprint:\n([0-9A-F]{2}:){31}"
                                          "[0-9A-F]{2}\n\n.*\n\\[Trust This Certificate\\]\n"
                                          "\\[Cancel\\]"));
    }
}

TEST_F(Secure, TrustedCertificateIsAcceptedUntilItChanges) {
    TESTCERTS::PAIR own = fCerts->server("own", "127.0.0.1", TESTCERTS::kBySelf);
    FAKENNTP first;
    ASSERT_FALSE(connectOnce(first, own, "T"));
    ASSERT_TRUE(fAlerts.answer(0)) << "the user trusts this certificate";
    BARN::NODE pinned{};
    ASSERT_TRUE(barn.nodeRead(&pinned, fServer));
    EXPECT_EQ(strlen(pinned.server.fingerprint), BARN::kFingerprintMax);
    EXPECT_THAT(nntptest::readFile(std::string(pinned.path) + "/Server.ini"),
                HasSubstr(std::string("Fingerprint = ") + pinned.server.fingerprint));

    FAKENNTP again;
    EXPECT_TRUE(connectOnce(again, own, "T\nS: 200 ready\n" + std::string(kGoodbye)));
    EXPECT_THAT(log(), HasSubstr("Certificate trusted by its fingerprint"));

    TESTCERTS::PAIR other = fCerts->server("other", "127.0.0.1", TESTCERTS::kBySelf);
    FAKENNTP changed;
    EXPECT_FALSE(connectOnce(changed, other, "T"));
    EXPECT_EQ(changed.received(), "");
}

TEST_F(Secure, HandshakeFaultsEndWithAClearError) {
    const struct {
        const char *name;
        const char *script;
        bool cancel;
        const char *error; // empty: no error line
    } rows[] = {
        {"stalls", "H", false, "Timed out waiting for response"},
        {"closes", "X", false, "Connection has been closed"},
        {"plain text", "S: 200 a server without TLS", false,
         "Secure connection could not be established"},
        {"cancelled", "H", true, ""},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        nntptest::gErrors.clear();
        FAKENNTP fake;
        fake.play(row.script);
        BARN::NODE server = node(fake);
        nntptest::gCancel = row.cancel;
        auto begin = std::chrono::steady_clock::now();
        EXPECT_FALSE(session(server)->connect());
        EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(4));
        nntptest::gCancel = false;
        fake.stop();
        if (row.error[0] == 0) {
            EXPECT_TRUE(nntptest::errors().empty());
        } else {
            EXPECT_THAT(nntptest::errors(),
                        ElementsAre("Couldn't make a secure connection to server Fake: " +
                                    std::string(row.error)));
        }
    }
    EXPECT_EQ(fAlerts.count(), 0u) << "no certificate, nothing to trust";
}

TEST_F(Secure, A480MakesTheSessionLogInAgainOnce) {
    const std::string greeting = "S: 200 ready\nC: GROUP alt.test\nS: 480 login first\n";
    const std::string login = "C: AUTHINFO USER user\nS: 381 more\nC: AUTHINFO PASS secret\n"
                              "S: 281 welcome\nC: GROUP alt.test\n";
    const struct {
        const char *name;
        bool login;
        std::string script;
        unsigned long code;
        const char *error;
    } rows[] = {
        {"logs in and repeats", true, greeting + login + "S: 211 3 1 3 alt.test\n" + kGoodbye, 211,
         ""},
        {"refused again", true, greeting + login + "S: 480 still no\n" + kGoodbye, 0,
         "Server Fake still refuses after logging in again. Response: 480 still no"},
        {"no login set", false, greeting + kGoodbye, 0,
         "Server Fake asks for a login, but no user name and password are set for it. "
         "Response: 480 login first"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        nntptest::gErrors.clear();
        FAKENNTP fake;
        fake.play(row.script);
        BARN::NODE server = node(fake, false, row.login);
        {
            auto nntp = session(server);
            ASSERT_TRUE(nntp->connect());
            ASSERT_TRUE(nntp->send("GROUP alt.test"));
            EXPECT_EQ(nntp->response("select newsgroup", true), row.code);
        }
        EXPECT_TRUE(fake.wait());
        EXPECT_EQ(fake.error(), "");
        if (row.error[0] == 0)
            EXPECT_TRUE(nntptest::errors().empty());
        else
            EXPECT_THAT(nntptest::errors(), ElementsAre(row.error));
    }
    EXPECT_THAT(log(), Not(HasSubstr("secret")));
}

TEST_F(Secure, A480AmongPipelinedCommandsResendsThemInOrder) {
    FAKENNTP fake;
    fake.play("S: 200 ready\nC: HEAD 1\nC: HEAD 2\nC: HEAD 3\nS: 480 login first\n"
              "S: 221 2 <b@x> head\nS: Subject: skipped\nS: .\nS: 480 login first\n"
              "C: AUTHINFO USER user\nS: 381 more\nC: AUTHINFO PASS secret\nS: 281 welcome\n"
              "C: HEAD 1\nC: HEAD 2\nC: HEAD 3\n"
              "S: 221 1 <a@x> head\nS: Subject: one\nS: .\nS: 221 2 <b@x> head\nS: Subject: two\n"
              "S: .\nS: 423 no such article\n" +
              std::string(kGoodbye));
    BARN::NODE server = node(fake, false, true);
    std::vector<std::string> seen;
    {
        auto nntp = session(server);
        ASSERT_TRUE(nntp->connect());
        for (const char *command : {"HEAD 1", "HEAD 2", "HEAD 3"})
            ASSERT_TRUE(nntp->send(command));
        for (int i = 0; i < 3; ++i) {
            char line[NNTP::kLineSize];
            unsigned long code = nntp->response("retrieve message from", false, line, sizeof line);
            seen.push_back(std::to_string(code));
            while (code == 221 && nntp->read(line, sizeof line) && strcmp(line, ".") != 0)
                seen.emplace_back(line);
        }
    }
    EXPECT_TRUE(fake.wait());
    EXPECT_EQ(fake.error(), "");
    EXPECT_THAT(seen, ElementsAre("221", "Subject: one", "221", "Subject: two", "423"));
}

} // namespace
