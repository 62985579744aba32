// Tests of the network layer: names and addresses, line reception rules, waits, closed peers.
#include "net/NETWORK.h"

#include <chrono>
#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/FAKENNTP.h"

namespace {

constexpr uint32_t kLoopback = 0x7F000001;
constexpr int64_t kLongWait = 5'000'000;

TEST(NetworkNames, DottedQuads) {
    EXPECT_EQ(NETWORK::inetAddr("10.0.0.1"), 0x0A000001u);
    EXPECT_EQ(NETWORK::inetAddr("255.255.255.255"), 0xFFFFFFFFu);
    EXPECT_EQ(NETWORK::inetAddr("001.002.003.004"), 0x01020304u);
    for (const char *bad :
         {"0.0.0.0", "1.2.3", "1.2.3.4.", "256.1.1.1", "1.2.3.4x", "001.002.003.0004", "1.2.3.0004",
          "1..2.3", " 1.2.3.4", "", "1.2.3.4.5"})
        EXPECT_EQ(NETWORK::inetAddr(bad), 0u) << '"' << bad << '"';

    char out[32];
    NETWORK::inetStr(out, 0x0A000001, false);
    EXPECT_STREQ(out, "10.0.0.1");
    NETWORK::inetStr(out, 0x0A000001, true);
    EXPECT_STREQ(out, "010.000.000.001");
    NETWORK::ADDR addr{0xC0A80102, 119};
    NETWORK::addrStr(out, &addr, false);
    EXPECT_STREQ(out, "192.168.1.2:119");
    NETWORK::addrStr(out, &addr, true);
    EXPECT_STREQ(out, "192.168.001.002:00119");
    NETWORK::ADDR high{0xC0A80102, 120};
    NETWORK::ADDR lower{0xC0A80101, 9999};
    EXPECT_LT(NETWORK::addrCmp(&addr, &high), 0);
    EXPECT_GT(NETWORK::addrCmp(&addr, &lower), 0);
    EXPECT_EQ(NETWORK::addrCmp(&addr, &addr), 0);
}

TEST(NetworkNames, HostnameCheckAndClean) {
    for (const std::string &good : std::initializer_list<std::string>{
             "a", "1host", "10.0.0.1", "news.example.invalid", std::string(70, 'a')})
        EXPECT_TRUE(NETWORK::hostnameCheck(good.c_str())) << good;
    for (const std::string &bad :
         std::initializer_list<std::string>{"-", "9", "1host2", "host..name", ".host", "host.",
                                            "news_server.example", "", std::string(71, 'a')})
        EXPECT_FALSE(NETWORK::hostnameCheck(bad.c_str())) << '"' << bad << '"';

    const struct {
        std::string dirty;
        unsigned long size;
        std::string clean;
    } cleans[] = {
        {"my host_(1)!.lan", 100, "myhost1.lan"},
        {"..a...b..", 100, "a.b"},
        {"abcdefgh", 4, "abc"},
        {std::string(100, 'q'), 300, std::string(70, 'q')},
        {"news.example..", 100, "news.example"},
    };
    for (const auto &c : cleans) {
        std::vector<char> buffer(c.dirty.size() + 200, 'Z');
        memcpy(buffer.data(), c.dirty.c_str(), c.dirty.size() + 1);
        NETWORK::hostnameClean(buffer.data(), c.size);
        EXPECT_EQ(std::string(buffer.data()), c.clean) << c.dirty;
    }
}

TEST(NetworkNames, AddrFindWithoutResolver) {
    uint32_t address = 1;
    EXPECT_EQ(NETWORK::addrFind(&address, "localhost"), NETWORK::kOk);
    EXPECT_EQ(address, kLoopback);
    EXPECT_EQ(NETWORK::addrFind(&address, " 10.0.0.1 "), NETWORK::kOk);
    EXPECT_EQ(address, 0x0A000001u);
    EXPECT_EQ(NETWORK::addrFind(&address, "0.0.0.0"), NETWORK::kAddressUnavailable);
    EXPECT_EQ(address, 0u);
    EXPECT_EQ(NETWORK::addrFind(&address, "   "), NETWORK::kAddressUnavailable);
    EXPECT_EQ(NETWORK::addrFind(&address, "name.invalid"), NETWORK::kAddressUnavailable);
}

TEST(NetworkNames, LocalNames) {
    char host[100], domain[100], full[300], tiny[5];
    NETWORK::localHost(host, sizeof host);
    NETWORK::localDomain(domain, sizeof domain);
    NETWORK::localFQDN(full, sizeof full);
    ASSERT_NE(host[0], 0);
    EXPECT_TRUE(NETWORK::hostnameCheck(domain)) << domain;
    std::string fqdn = full;
    EXPECT_EQ(fqdn.rfind(host, 0), 0u) << fqdn;
    EXPECT_EQ(fqdn.substr(fqdn.size() - strlen(domain)), domain) << fqdn;
    NETWORK::localFQDN(tiny, sizeof tiny);
    EXPECT_EQ(std::string(tiny), fqdn.substr(0, 4));
}

TEST(NetworkNames, ErrorTexts) {
    EXPECT_STREQ(NETWORK::errorStr(NETWORK::kOk), "Successful network operation");
    EXPECT_STREQ(NETWORK::errorStr(NETWORK::kTransmit), "Error transmitting network data");
    EXPECT_STREQ(NETWORK::errorStr(NETWORK::ERROR(22)), "Unknown network error");
    const struct {
        int number;
        NETWORK::ERROR error;
    } groups[] = {
        {EADDRINUSE, NETWORK::kAddressInUse},
        {-1, NETWORK::kAddressUnavailable},
        {EALREADY, NETWORK::kAlreadyConnected},
        {EPIPE, NETWORK::kClosed},
        {ECONNRESET, NETWORK::kClosed},
        {ECONNREFUSED, NETWORK::kRefused},
        {ENOBUFS, NETWORK::kNoMemory},
        {EHOSTUNREACH, NETWORK::kHardware},
        {EAGAIN, NETWORK::kNoData},
        {ETIMEDOUT, NETWORK::kTimedOut},
        {ENOENT, NETWORK::kSocketClose},
    };
    for (const auto &group : groups)
        EXPECT_EQ(NETWORK::errorMap(group.number, NETWORK::kSocketClose), group.error)
            << group.number;
}

class NetworkConnection : public testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(NETWORK::start()); }
    void TearDown() override {
        NETWORK::stop();
        EXPECT_EQ(NETWORK::connectCount(), 0u);
    }

    // Opens a record with the given buffer and connects it to the fake server.
    NETWORK::CONNECT *connectTo(FAKENNTP &server, unsigned long buffer = 4096) {
        NETWORK::CONNECT *conn = nullptr;
        EXPECT_EQ(NETWORK::open(&conn, buffer, 0, 0, NETWORK::kStream, 0), NETWORK::kOk);
        NETWORK::ADDR peer{kLoopback, server.port()};
        EXPECT_EQ(NETWORK::connect(conn, &peer, kLongWait, nullptr), NETWORK::kOk);
        return conn;
    }
    // One line into a 100-byte buffer; the text is returned whatever the result.
    static std::string line(NETWORK::CONNECT *conn, NETWORK::ERROR expected,
                            int64_t wait = kLongWait, NETWORK::CANCEL cancel = nullptr) {
        char text[100];
        char overflow = 0;
        unsigned long length = 0;
        EXPECT_EQ(
            NETWORK::recvLine(conn, nullptr, text, sizeof text, &overflow, wait, cancel, &length),
            expected);
        return text;
    }
};

TEST_F(NetworkConnection, LinesAreSplitByTheReceptionRules) {
    const struct {
        const char *script;
        unsigned long size;
        std::vector<std::string> lines;
        const char *overflows; // per line: '-' or the overflow byte
    } cases[] = {
        {"B: one\\r\\ntwo\\r\\n\nX", 100, {"one", "two"}, "--"},
        {"B: one\\ntwo\\n\nX", 100, {"one", "two"}, "--"},
        {"B: one\\rtwo\\r\nX", 100, {"one", "two"}, "--"},
        {"B: one\\r\\rtwo\\r\\n\nX", 100, {"one", "", "two"}, "---"},
        {"B: one\\r\nP: 30\nB: \\ntwo\\n\nX", 100, {"one", "two"}, "--"},
        {"B: a\\0b\\r\\n\nX", 100, {"a b"}, "-"},
        {"B: abcdefghij\\r\\n\nX", 5, {"abcd", "efgh", "ij"}, "ei-"},
        {"B: abcd\\r\\n\nX", 5, {"abcd"}, "-"},
        {"B: \\r\\n\\n\\r\\n\nX", 100, {"", "", ""}, "---"},
        {"L: 9000 y\nX", 10000, {std::string(9000, 'y')}, "-"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.script);
        FAKENNTP server;
        server.play(c.script);
        NETWORK::CONNECT *conn = connectTo(server);
        std::vector<std::string> lines;
        std::string overflows;
        std::vector<char> text(c.size);
        for (;;) {
            char overflow = 'q';
            unsigned long length = 99;
            NETWORK::ERROR error = NETWORK::recvLine(conn, nullptr, text.data(), c.size, &overflow,
                                                     kLongWait, nullptr, &length);
            if (error != NETWORK::kOk) {
                EXPECT_EQ(error, NETWORK::kClosed);
                EXPECT_EQ(length, 0u);
                break;
            }
            EXPECT_EQ(length, strlen(text.data()));
            lines.emplace_back(text.data());
            overflows += overflow == 0 ? '-' : overflow;
        }
        EXPECT_EQ(lines, c.lines);
        EXPECT_EQ(overflows, c.overflows);
        EXPECT_EQ(conn->connected, 0u);
        NETWORK::close(&conn);
        EXPECT_TRUE(server.wait());
    }
    FAKENNTP server;
    server.play("B: 200 no end\nX");
    NETWORK::CONNECT *conn = connectTo(server);
    EXPECT_EQ(line(conn, NETWORK::kClosed), "200 no end") << "a partial line comes with the error";
    NETWORK::close(&conn);
}

TEST_F(NetworkConnection, RecvBufTakesExactCounts) {
    FAKENNTP server;
    server.play("L: 3000 z\nB: tail\nX");
    NETWORK::CONNECT *conn = connectTo(server, 512);
    std::string data(3006, 0);
    unsigned long got = 0;
    EXPECT_EQ(NETWORK::recvBuf(conn, nullptr, data.data(), 3006, kLongWait, nullptr, &got),
              NETWORK::kOk);
    EXPECT_EQ(got, 3006u);
    EXPECT_EQ(data, std::string(3000, 'z') + "\r\ntail");
    EXPECT_EQ(NETWORK::recvBuf(conn, nullptr, data.data(), 1, kLongWait, nullptr, &got),
              NETWORK::kClosed);
    EXPECT_EQ(got, 0u);
    NETWORK::close(&conn);
}

std::atomic<bool> gCancelNow{false};
bool cancelHook() {
    return gCancelNow.load();
}

TEST_F(NetworkConnection, SilentPeerTimesOutAndCancelEndsAWaitPromptly) {
    FAKENNTP server;
    server.play("H");
    NETWORK::CONNECT *conn = connectTo(server);
    auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(line(conn, NETWORK::kTimedOut, 300'000), "");
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(300));

    gCancelNow = false;
    std::chrono::steady_clock::time_point cancelled;
    std::thread canceller([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        cancelled = std::chrono::steady_clock::now();
        gCancelNow = true;
    });
    line(conn, NETWORK::kCancelled, kLongWait, cancelHook);
    auto ended = std::chrono::steady_clock::now();
    canceller.join();
    // About one 2 ms step; the margin is for a loaded machine.
    EXPECT_LT(ended - cancelled, std::chrono::milliseconds(50));
    NETWORK::close(&conn);
    server.stop();
}

TEST_F(NetworkConnection, SendToAClosedPeerGivesClosed) {
    FAKENNTP server;
    server.play("X");
    NETWORK::CONNECT *conn = connectTo(server);
    ASSERT_TRUE(server.wait());
    // The first sends may still be taken by the system before the reset comes back.
    NETWORK::ERROR error = NETWORK::kOk;
    for (int i = 0; i < 100 && error == NETWORK::kOk; ++i) {
        error = NETWORK::send(conn, nullptr, "QUIT\r\n", 6);
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    EXPECT_EQ(error, NETWORK::kClosed);
    EXPECT_EQ(conn->connected, 0u);
    EXPECT_EQ(conn->peer.port, 0u);
    EXPECT_EQ(NETWORK::send(conn, nullptr, "x", 1), NETWORK::kClosed);
    NETWORK::close(&conn);
}

TEST_F(NetworkConnection, SendReachesThePeerAndRefusedConnects) {
    FAKENNTP server;
    server.play("C: GROUP a.b\nS: 211 0 0 0 a.b");
    NETWORK::CONNECT *conn = connectTo(server);
    EXPECT_EQ(conn->peer.address, kLoopback);
    EXPECT_EQ(conn->local.address, 0u);
    EXPECT_NE(conn->local.port, 0u);
    EXPECT_EQ(NETWORK::send(conn, nullptr, "GROUP a.b\r\n", 11), NETWORK::kOk);
    EXPECT_EQ(line(conn, NETWORK::kOk), "211 0 0 0 a.b");
    NETWORK::ADDR peer{kLoopback, server.port()};
    EXPECT_EQ(NETWORK::connect(conn, &peer, kLongWait, nullptr), NETWORK::kAlreadyConnected);
    NETWORK::close(&conn);
    EXPECT_EQ(conn, nullptr);
    EXPECT_TRUE(server.wait());
    EXPECT_EQ(server.error(), "");

    ASSERT_EQ(NETWORK::open(&conn, 4096, 0, 0, NETWORK::kStream, 0), NETWORK::kOk);
    NETWORK::ADDR closed{kLoopback, FAKENNTP::closedPort()};
    EXPECT_EQ(NETWORK::connect(conn, &closed, kLongWait, nullptr), NETWORK::kRefused);
    EXPECT_EQ(conn->connected, 0u);
    NETWORK::close(&conn);
}

TEST_F(NetworkConnection, RecordsAndTheirList) {
    NETWORK::CONNECT *a = nullptr;
    NETWORK::CONNECT *b = nullptr;
    ASSERT_EQ(NETWORK::open(&a, 100, 0, 0, NETWORK::kStream, 0), NETWORK::kOk);
    ASSERT_EQ(NETWORK::open(&b, 0, kLoopback, 0, NETWORK::kDatagram, 0), NETWORK::kOk);
    EXPECT_EQ(a->size, NETWORK::kBufferMin);
    EXPECT_EQ(b->local.address, kLoopback);
    EXPECT_TRUE(NETWORK::connectValidate(a));
    EXPECT_TRUE(NETWORK::connectValidate(b));
    NETWORK::CONNECT stray;
    stray.socket = 3;
    EXPECT_FALSE(NETWORK::connectValidate(&stray));
    NETWORK::CONNECT *taken = nullptr;
    ASSERT_EQ(NETWORK::open(&taken, 0, kLoopback, a->local.port, NETWORK::kStream, 0),
              NETWORK::kAddressInUse);
    EXPECT_EQ(taken, nullptr);
    EXPECT_EQ(NETWORK::connectCount(), 2u);
    NETWORK::close(&a);
    EXPECT_EQ(NETWORK::connectCount(), 1u);
    EXPECT_EQ(NETWORK::close(&a), NETWORK::kOk);
    NETWORK::stop();
    EXPECT_EQ(NETWORK::connectCount(), 0u);
    EXPECT_EQ(NETWORK::open(&a, 0, 0, 0, NETWORK::kStream, 0), NETWORK::kNotAvailable);
    EXPECT_EQ(a, nullptr);
}

TEST_F(NetworkConnection, AcceptAndDatagrams) {
    NETWORK::CONNECT *listener = nullptr;
    ASSERT_EQ(NETWORK::open(&listener, 0, kLoopback, 0, NETWORK::kStream, 4), NETWORK::kOk);
    NETWORK::CONNECT *client = nullptr;
    ASSERT_EQ(NETWORK::open(&client, 1024, 0, 0, NETWORK::kStream, 0), NETWORK::kOk);
    EXPECT_EQ(NETWORK::connect(client, &listener->local, kLongWait, nullptr), NETWORK::kOk);
    NETWORK::CONNECT *served = nullptr;
    ASSERT_EQ(NETWORK::accept(listener, &served, 1024), NETWORK::kOk);
    EXPECT_EQ(served->peer.port, client->local.port);
    EXPECT_EQ(NETWORK::send(served, nullptr, "hello\n", 6), NETWORK::kOk);
    EXPECT_EQ(line(client, NETWORK::kOk), "hello");

    NETWORK::CONNECT *one = nullptr;
    NETWORK::CONNECT *two = nullptr;
    ASSERT_EQ(NETWORK::open(&one, 0, kLoopback, 0, NETWORK::kDatagram, 0), NETWORK::kOk);
    ASSERT_EQ(NETWORK::open(&two, 0, kLoopback, 0, NETWORK::kDatagram, 0), NETWORK::kOk);
    EXPECT_EQ(NETWORK::send(one, &two->local, "ping", 4), NETWORK::kOk);
    char data[10] = {};
    unsigned long got = 0;
    NETWORK::ADDR from;
    NETWORK::ERROR error = NETWORK::kNoData;
    for (int i = 0; i < 500 && error == NETWORK::kNoData; ++i) {
        error = NETWORK::recv(two, &from, data, sizeof data, &got);
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    EXPECT_EQ(error, NETWORK::kOk);
    EXPECT_EQ(std::string(data, got), "ping");
    EXPECT_EQ(from.port, one->local.port);
    // Left open on purpose: stop() must close them all.
}

} // namespace
