// Shared set-up of the session tests: a data directory, the log level, error and cancel hooks.
#pragma once

#include <atomic>
#include <cstdio>
#include <fstream>
#include <gtest/gtest.h>
#include <mutex>
#include <netinet/in.h>
#include <sstream>
#include <string>
#include <sys/socket.h>
#include <sys/stat.h>
#include <vector>

#include "app/SETTINGS.h"
#include "base/STR.h"
#include "net/NETWORK.h"
#include "net/NNTP.h"
#include "storage/BARN.h"
#include "storage/BARNINFO.h"
#include "tests/support/FAKENNTP.h"
#include "tests/support/TestHome.h"

namespace nntptest {

inline std::mutex gErrorsLock;
inline std::vector<std::string> gErrors;
inline std::atomic<bool> gCancel{false};

inline void recordError(const char *text) {
    std::lock_guard<std::mutex> lock(gErrorsLock);
    gErrors.emplace_back(text);
}

inline bool cancelHook() {
    return gCancel.load();
}

// The error texts without their time stamps (the callback form is "stamp  text").
inline std::vector<std::string> errors() {
    std::lock_guard<std::mutex> lock(gErrorsLock);
    std::vector<std::string> out;
    for (const std::string &each : gErrors) {
        size_t gap = each.find("  ");
        out.push_back(gap == std::string::npos ? each : each.substr(gap + 2));
    }
    return out;
}

// A file's whole text, or "<missing>" when it cannot be opened.
inline std::string readFile(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    return in ? text.str() : "<missing>";
}

class SessionTest : public testing::Test {
protected:
    static constexpr const char *kServerName = "Test Server";

    void SetUp() override {
        ASSERT_TRUE(NETWORK::start());
        SETTINGS::reset(testhome::path().c_str());
        SETTINGS::storage.transferLogging = SETTINGS::kLogTransfers;
        char storage[BARNINFO::kPathSize];
        BARNINFO::pathStorage(storage, sizeof storage);
        mkdir(SETTINGS::storage.path, 0755);
        mkdir(storage, 0755);
        BARNINFO::pathTransferLog(fLogPath, sizeof fLogPath);
        remove(fLogPath);
        std::lock_guard<std::mutex> lock(gErrorsLock);
        gErrors.clear();
        gCancel = false;
    }
    void TearDown() override {
        NETWORK::stop();
        EXPECT_EQ(NETWORK::connectCount(), 0u);
    }

    // A server node for a loopback port.
    static BARN::NODE server(uint16_t port, int64_t timeout = 10'000'000, const char *user = "user",
                             const char *password = "secret") {
        BARN::NODE node{};
        STR::copy(node.name, kServerName, sizeof node.name);
        node.type = NODETYPE::Server;
        STR::copy(node.server.hostname, "127.0.0.1", sizeof node.server.hostname);
        node.server.port = port;
        node.server.timeout = timeout;
        node.server.login = true;
        STR::copy(node.server.username, user, sizeof node.server.username);
        STR::copy(node.server.password, password, sizeof node.server.password);
        return node;
    }

    std::string log() const { return readFile(fLogPath); }

    char fLogPath[BARNINFO::kPathSize] = {};
};

} // namespace nntptest
