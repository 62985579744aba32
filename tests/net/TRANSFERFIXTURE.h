// Shared set-up of the transfer tests: a started store, servers and groups, scripted articles.
#pragma once

#include <algorithm>
#include <mutex>
#include <string>
#include <vector>

#include "app/SETTINGS.h"
#include "base/DISKFILE.h"
#include "message/VMSG.h"
#include "net/NETWORK.h"
#include "net/NEWS.h"
#include "net/NNTP.h"
#include "reader/KILLFILE.h"
#include "tests/net/NNTPFixture.h"
#include "tests/storage/STORETEST.h"

// Ranges read "{first, last}" in a failed expectation.
inline void PrintTo(const INDEXRANGE &range, std::ostream *out) {
    *out << "{" << range.first << ", " << range.last << "}";
}

namespace transfertest {

using nntptest::errors;
using nntptest::gCancel;
using nntptest::readFile;

// The progress window as a recorder: every notification, error, status text and bar change.
class WINDOW : public NEWSPROGRESS, public NEWSPROGRESS::OPENER {
    template <typename FUNCTION>
    auto locked(FUNCTION function) {
        std::lock_guard<std::mutex> lock(fMutex);
        return function();
    }

public:
    bool post(const MESSAGE &message) override {
        locked([&] { fCodes.push_back(message.whatText()); });
        return true;
    }
    void error(const char *text) override {
        locked([&] { fErrors.emplace_back(text); });
    }
    void errorClear() override {}
    void progbarSet(double total, double done) override {
        locked([&] { fTotal = total, fDone = done; });
    }
    void progbarInc(double units) override {
        locked([&] { fDone += units; });
    }
    void progressStr(VIEWSTRINGNUM line) override {
        char text[NEWS::kStatusMax + 1];
        ::news.windowStrGet(line, text, sizeof text);
        locked([&] { fTexts.push_back(std::to_string(line) + ":" + text); });
    }
    NEWSPROGRESS *open() override { return this; }
    void close(NEWSPROGRESS *) override {
        locked([&] { ++fClosed; });
    }

    std::vector<std::string> codes() {
        return locked([&] { return fCodes; });
    }
    std::vector<std::string> errors() {
        return locked([&] { return fErrors; });
    }
    bool saw(const std::string &text) {
        return locked(
            [&] { return std::find(fTexts.begin(), fTexts.end(), text) != fTexts.end(); });
    }
    int closed() {
        return locked([&] { return fClosed; });
    }
    std::pair<double, double> bar() {
        return locked([&] { return std::make_pair(fTotal, fDone); });
    }

private:
    std::mutex fMutex;
    std::vector<std::string> fCodes, fErrors, fTexts;
    double fTotal = 0, fDone = 0;
    int fClosed = 0;
};

// A store of the test's own with its workers running, the network and the killfile started.
class TRANSFERTEST : public storetest::STORETEST {
protected:
    void SetUp() override {
        STORETEST::SetUp();
        SETTINGS::storage.transferLogging = SETTINGS::kLogTransfers;
        SETTINGS::storage.downloadLimit = false;
        SETTINGS::killfile.applyToDownload = false;
        ASSERT_TRUE(NETWORK::start());
        ASSERT_TRUE(startStore());
        ASSERT_TRUE(KILLFILE::Start());
        std::lock_guard<std::mutex> lock(nntptest::gErrorsLock);
        nntptest::gErrors.clear();
        gCancel = false;
    }
    void TearDown() override {
        KILLFILE::Stop();
        NETWORK::stop();
        STORETEST::TearDown();
    }

    long long serverAt(uint16_t port, const char *name = "Fake") {
        BARN::NODE node;
        BARN::serverDefault(&node);
        STR::copy(node.name, name, sizeof node.name);
        STR::copy(node.server.hostname, "127.0.0.1", sizeof node.server.hostname);
        node.server.port = port;
        node.server.timeout = 10'000'000;
        // The scripted servers offer no extensions: their transcripts have no CAPABILITIES.
        node.server.compress = false;
        return barn.serverCreate(&node);
    }
    long long groupMake(long long server, const char *name, GROUPDOWNLOAD mode,
                        INDEXRANGE saved = {}) {
        long long number = barn.groupCreate(server, name, mode);
        BARN::NODE node;
        EXPECT_TRUE(barn.nodeRead(&node, number));
        node.group.indexFirst = saved.first;
        node.group.indexLast = saved.last;
        EXPECT_TRUE(barn.nodeSave(&node));
        return number;
    }
    static BARN::NODE node(long long number) {
        BARN::NODE copy{};
        EXPECT_TRUE(barn.nodeRead(&copy, number));
        return copy;
    }
    static INDEXRANGE range(long long group) {
        BARN::NODE copy = node(group);
        return {copy.group.indexFirst, copy.group.indexLast};
    }
    // A connected session with the test's error and cancel hooks.
    static NNTP *session(long long server) {
        BARN::NODE copy = node(server);
        auto *nntp = new NNTP(&copy, nntptest::recordError, nntptest::cancelHook);
        EXPECT_TRUE(nntp->connect());
        return nntp;
    }
    // The message files of a folder, sorted by name.
    static std::vector<std::string> files(const std::string &folder) {
        std::vector<std::string> found;
        DISKFILE walk;
        walk.dirIterate(
            folder.c_str(),
            [](void *data, const DISKFILE::ENTRY &entry) {
                if (entry.type == DISKFILE::kEntryFile)
                    static_cast<std::vector<std::string> *>(data)->emplace_back(entry.path);
                return true;
            },
            &found);
        std::sort(found.begin(), found.end());
        return found;
    }
    static VMSG::DATA data(const std::string &path) {
        VMSG::DATA out;
        EXPECT_TRUE(VMSG::fileData(&out, path.c_str())) << path;
        return out;
    }
    static std::string log() {
        char path[BARNINFO::kPathSize];
        BARNINFO::pathTransferLog(path, sizeof path);
        return readFile(path);
    }
    std::string tempFile() const { return news() + "/VM000000.vmf"; }
};

// The end of a script in which the client says goodbye.
inline const std::string kGoodbye = "C: QUIT\nS: 205 bye\n";

// The header lines of generated article n.
inline std::vector<std::string> headerLines(unsigned long n, const std::string &from = "") {
    return {"From: " + (from.empty() ? "Poster " + std::to_string(n) + " <p" + std::to_string(n) +
                                           "@example.invalid>"
                                     : from),
            "Newsgroups: alt.test", "Subject: Article " + std::to_string(n),
            "Message-ID: <" + std::to_string(n) + "@fake.invalid>",
            "Date: Tue, 03 Oct 2000 14:05:09 GMT"};
}

// The fake server's part of one HEAD (or, with bodyLines, ARTICLE) exchange.
inline std::string answer(unsigned long n, int bodyLines = -1, const std::string &from = "") {
    bool article = bodyLines >= 0;
    std::string script = std::string("C: ") + (article ? "ARTICLE " : "HEAD ") + std::to_string(n) +
                         "\nS: " + (article ? "220 " : "221 ") + std::to_string(n) + " <" +
                         std::to_string(n) + "@fake.invalid>\n";
    for (const std::string &line : headerLines(n, from))
        script += "S: " + line + "\n";
    if (article) {
        script += "S:\n";
        for (int i = 0; i < bodyLines; ++i)
            script += "S: Body line " + std::to_string(i) + "\n";
    }
    return script + "S: .\n";
}

} // namespace transfertest
