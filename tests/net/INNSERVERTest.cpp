// The article generator and the private news server it fills: what is stored is what was made.
// Login, new groups and posting on that server are exercised by the session and transfer tests.
#include "tests/support/INNSERVER.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "net/NETWORK.h"
#include "tools/innfill/ARTICLEGEN.h"

namespace {

constexpr uint32_t kLoopback = 0x7F000001;
constexpr int64_t kWait = 20'000'000;

// A raw reader session through the network layer.
class Session {
public:
    explicit Session(uint16_t port) {
        NETWORK::start();
        NETWORK::ADDR peer{kLoopback, port};
        if (NETWORK::open(&fConn, 4096, 0, 0, NETWORK::kStream, 0) == NETWORK::kOk)
            NETWORK::connect(fConn, &peer, kWait, nullptr);
    }
    ~Session() { NETWORK::close(&fConn); }

    std::string line() {
        char text[1024];
        char overflow = 0;
        unsigned long length = 0;
        if (NETWORK::recvLine(fConn, nullptr, text, sizeof text, &overflow, kWait, nullptr,
                              &length) != NETWORK::kOk)
            return "<failed>";
        return text;
    }
    std::string command(const std::string &text) {
        std::string wire = text + "\r\n";
        NETWORK::send(fConn, nullptr, wire.data(), wire.size());
        return line();
    }
    // The lines of a multi-line answer up to the lone dot, dot-stuffing undone, CR LF ends.
    std::string block() {
        std::string out;
        for (std::string each = line(); each != "." && each != "<failed>"; each = line())
            out += (each.rfind("..", 0) == 0 ? each.substr(1) : each) + "\r\n";
        return out;
    }

private:
    NETWORK::CONNECT *fConn = nullptr;
};

// The whole "Name: value" line of an article's header, CR LF included.
std::string headerLine(const std::string &article, const std::string &name) {
    size_t begin = article.find("\r\n" + name);
    if (begin == std::string::npos)
        return "<missing>";
    size_t end = article.find("\r\n", begin + 2);
    return article.substr(begin + 2, end + 2 - (begin + 2));
}

std::string bodyOf(const std::string &article) {
    size_t end = article.find("\r\n\r\n");
    return end == std::string::npos ? "" : article.substr(end + 4);
}

TEST(INNSERVER, FillsAndServesTheGeneratedArticles) {
    INNSERVER &inn = INNSERVER::shared();
    ASSERT_TRUE(inn.ok()) << inn.error();
    size_t accepted = 0;
    std::string error;
    ASSERT_TRUE(inn.fill("vw.test.small", 0, 20, 5, &accepted, &error)) << error;
    EXPECT_EQ(accepted, 20u);
    ASSERT_TRUE(inn.fill("vw.test.small", 0, 20, 5, &accepted, &error)) << error;
    EXPECT_EQ(accepted, 0u) << "the same Message-IDs again are duplicates";

    ARTICLEGEN generator("vw.test.small", 5, INNSERVER::kDomain);
    Session session(inn.readerPort());
    EXPECT_EQ(session.line().substr(0, 4), "200 ");
    EXPECT_EQ(session.command("GROUP vw.test.small"), "211 20 1 20 vw.test.small");
    for (size_t index : {0, 3, 5, 6, 7, 8, 9, 19}) {
        std::string id = generator.messageId(index);
        EXPECT_EQ(session.command("BODY " + id).substr(0, 4), "222 ") << id;
        EXPECT_EQ(session.block(), bodyOf(generator.article(index))) << id;
        EXPECT_EQ(session.command("HEAD " + id).substr(0, 4), "221 ") << id;
        std::string head = session.block();
        EXPECT_NE(head.find(headerLine(generator.article(index), "Subject: ")), std::string::npos)
            << head;
        std::string references = generator.references(index);
        EXPECT_EQ(head.find("References: ") != std::string::npos, !references.empty()) << id;
    }
    EXPECT_EQ(session.command("QUIT").substr(0, 4), "205 ");
}

} // namespace
