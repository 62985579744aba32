// A whole round of transfers through the queue against the private INN server on loopback.
#include <arpa/inet.h>
#include <ctime>
#include <gmock/gmock.h>
#include <iostream>
#include <map>
#include <netinet/in.h>
#include <poll.h>
#include <set>
#include <sys/socket.h>
#include <unistd.h>

#include "compose/EDITHEADERS.h"
#include "net/NEWS.h"
#include "storage/BARNFILE.h"
#include "tests/net/TRANSFERFIXTURE.h"
#include "tests/support/ALERTRECORDER.h"
#include "tests/support/TESTCERTS.h"
#include "tools/innfill/ARTICLEGEN.h"
#include "tools/innfill/INNSERVER.h"

using namespace transfertest;

namespace {

constexpr size_t kArticles = 30;
constexpr uint32_t kSeed = 11;

// A plain reader connection, independent of the program's own network code.
class READER {
public:
    explicit READER(uint16_t port) {
        fSocket = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        address.sin_port = htons(port);
        connect(fSocket, reinterpret_cast<sockaddr *>(&address), sizeof address);
        line();
    }
    ~READER() { close(fSocket); }
    std::string line() {
        for (;;) {
            size_t end = fPending.find("\r\n");
            if (end != std::string::npos) {
                std::string text = fPending.substr(0, end);
                fPending.erase(0, end + 2);
                return text;
            }
            pollfd watch{fSocket, POLLIN, 0};
            char buffer[4096];
            ssize_t got = poll(&watch, 1, 10'000) > 0 ? recv(fSocket, buffer, sizeof buffer, 0) : 0;
            if (got <= 0)
                return "<failed>";
            fPending.append(buffer, size_t(got));
        }
    }
    // The status line of a command, and the lines of its block (dot-stuffing undone).
    std::string block(const std::string &command, std::vector<std::string> *lines) {
        std::string text = command + "\r\n";
        send(fSocket, text.data(), text.size(), MSG_NOSIGNAL);
        std::string status = line();
        for (std::string each = line(); status[0] == '2' && each != "." && each != "<failed>";
             each = line())
            lines->push_back(each.rfind("..", 0) == 0 ? each.substr(1) : each);
        return status;
    }

private:
    int fSocket = -1;
    std::string fPending;
};

// The body of a stored file or generated article, line by line, a doubled leading dot undone.
std::vector<std::string> bodyLines(const std::string &text, const char *end) {
    std::vector<std::string> lines;
    size_t at = text.find(std::string(end) + end);
    if (at == std::string::npos)
        return lines;
    at += 2 * strlen(end);
    while (at < text.size()) {
        size_t stop = text.find(end, at);
        std::string line = text.substr(at, stop - at);
        lines.push_back(line.rfind("..", 0) == 0 ? line.substr(1) : line);
        at = stop == std::string::npos ? text.size() : stop + strlen(end);
    }
    return lines;
}

std::string dateNow() {
    time_t now = time(nullptr);
    struct tm date {};
    gmtime_r(&now, &date);
    char text[64];
    strftime(text, sizeof text, "%a, %d %b %Y %H:%M:%S +0000", &date);
    return text;
}

class TRANSFERINN : public TRANSFERTEST {
protected:
    void SetUp() override {
        TRANSFERTEST::SetUp();
        ASSERT_TRUE(fInn.ok()) << fInn.error();
        SETTINGS::progressWindow.transferStart = false;
        ASSERT_TRUE(NNTP::start());
        ASSERT_TRUE(EDIT::headers());
        ::news.windowOpenerSet(&fWindow);
        ASSERT_TRUE(::news.start());
    }
    void TearDown() override {
        THREAD::state(false);
        THREAD::stop();
        ::news.stop();
        ::news.windowOpenerSet(nullptr);
        NNTP::stop();
        TRANSFERTEST::TearDown();
    }
    bool runDry() {
        return storetest::waitFor(
            [] {
                return ::news.userCount() == 0 && ::news.serverConnected() == BARN::kNodeNone &&
                       !::news.busy();
            },
            std::chrono::seconds(60));
    }
    // Message-IDs come from the seed and the index alone, so each group has a seed of its own.
    void groupFill(const std::string &name, uint32_t seed, size_t first, size_t count) {
        std::string error;
        size_t accepted = 0;
        if (first == 0) {
            ASSERT_TRUE(fInn.groupCreate(name, &error)) << error;
        }
        ASSERT_TRUE(fInn.fill(name, first, count, seed, &accepted, &error)) << error;
        ASSERT_EQ(accepted, count);
    }
    std::string outboxWrite(const char *leaf, long long server, const std::string &id) {
        char outbox[BARNINFO::kPathSize];
        BARNINFO::pathOutbox(outbox, sizeof outbox);
        std::string path = std::string(outbox) + "/" + leaf;
        std::string text = "From: Ann Poster <ann@vellowick.invalid>\nNewsgroups: vw.round.post\n"
                           "Subject: Round " +
                           id + "\nDate: " + dateNow() + "\nMessage-ID: <" + id +
                           "@vellowick.invalid>\n\nFirst line\n.\nLast line\n";
        TEXTFILE file;
        EXPECT_EQ(VMSG::fileCreate(&file, path.c_str(), 0), DISKFILE::kSuccess);
        EXPECT_EQ(file.textWrite(text.c_str()), DISKFILE::kSuccess);
        file.close();
        EXPECT_TRUE(VMSG::attrCreate(path.c_str(), IMsg::MsgTypeNews, nullptr, IMsg::CharsetNone,
                                     false, 0, false, server));
        return path;
    }
    static int32_t typeSettled(const std::string &path) {
        int32_t type = 0;
        storetest::waitFor([&] {
            type = data(path).type;
            return type != IMsg::MsgTypeNewsDownload;
        });
        return type;
    }

    INNSERVER &fInn = INNSERVER::shared();
    WINDOW fWindow;
};

TEST_F(TRANSFERINN, ACompleteRound) {
    ALERTRECORDER alerts;
    groupFill("vw.round.heads", kSeed, 0, kArticles);
    groupFill("vw.round.full", kSeed + 1, 0, kArticles);
    std::string error;
    ASSERT_TRUE(fInn.groupCreate("vw.round.empty", &error)) << error;
    ASSERT_TRUE(fInn.groupCreate("vw.round.post", &error)) << error;

    long long server = serverAt(fInn.readerPort(), "INN");
    long long heads = groupMake(server, "vw.round.heads", GROUPDOWNLOAD::HeadersOnly);
    long long full = groupMake(server, "vw.round.full", GROUPDOWNLOAD::HeadersAndBodies);
    long long empty = groupMake(server, "vw.round.empty", GROUPDOWNLOAD::HeadersOnly);

    // The killfile keeps one author's headers from being fetched at all.
    SETTINGS::killfile.applyToDownload = true;
    ASSERT_TRUE(KILLFILE::Add("Tester 0", "tester0@vellowick.invalid"));
    ARTICLEGEN headsGen("vw.round.heads", kSeed, INNSERVER::kDomain);
    ARTICLEGEN fullGen("vw.round.full", kSeed + 1, INNSERVER::kDomain);
    std::set<std::string> headsIds, fullIds;
    for (size_t i = 0; i < kArticles; ++i) {
        if (headsGen.article(i).find("From: Tester 0 <") == std::string::npos)
            headsIds.insert(headsGen.messageId(i));
        if (fullGen.article(i).find("From: Tester 0 <") == std::string::npos)
            fullIds.insert(fullGen.messageId(i));
    }
    ASSERT_LT(headsIds.size(), kArticles) << "the seed must give author 0 some articles";

    ASSERT_TRUE(::news.requestServerGroupList(server));
    EXPECT_EQ(::news.requestServer(server, false), 3u);
    THREAD::state(true);
    ASSERT_TRUE(runDry());

    BARNFILE::LIST list;
    ASSERT_TRUE(BARNFILE::slistRead(server, &list));
    for (const char *name : {"vw.round.heads", "vw.round.full", "vw.round.empty", "vw.test.post"})
        EXPECT_NE(std::find(list.begin(), list.end(), name), list.end()) << name;

    std::set<std::string> got;
    std::vector<std::string> headFiles = files(node(heads).path);
    for (const std::string &path : headFiles) {
        VMSG::DATA each = data(path);
        EXPECT_EQ(each.type, IMsg::MsgTypeNewsHeader);
        got.insert(each.msgid);
    }
    EXPECT_EQ(got, headsIds);
    got.clear();
    for (const std::string &path : files(node(full).path)) {
        VMSG::DATA each = data(path);
        EXPECT_EQ(each.type, IMsg::MsgTypeNews);
        got.insert(each.msgid);
        for (size_t i = 0; i < kArticles; ++i) {
            if (fullGen.messageId(i) == each.msgid) {
                EXPECT_EQ(bodyLines(readFile(path), "\n"), bodyLines(fullGen.article(i), "\r\n"))
                    << each.msgid;
            }
        }
    }
    EXPECT_EQ(got, fullIds);
    EXPECT_EQ(range(heads), (INDEXRANGE{1, uint32_t(kArticles)}));
    EXPECT_EQ(range(full), (INDEXRANGE{1, uint32_t(kArticles)}));
    EXPECT_TRUE(files(node(empty).path).empty());
    EXPECT_EQ(range(empty), (INDEXRANGE{}));
    EXPECT_NE(log().find("Indexes to be downloaded: None"), std::string::npos);

    // Bodies: two marked headers, and one the server no longer has.
    ASSERT_GE(headFiles.size(), 3u);
    ASSERT_TRUE(VMSG::setDownload(headFiles[0].c_str(), true));
    ASSERT_TRUE(VMSG::setDownload(headFiles[1].c_str(), true));
    std::string gone = node(heads).path + std::string("/VM000001.vmf");
    {
        TEXTFILE file;
        ASSERT_EQ(VMSG::fileCreate(&file, gone.c_str(), 0), DISKFILE::kSuccess);
        file.textWrite("From: Nobody <nobody@vellowick.invalid>\nSubject: Gone\n"
                       "Message-ID: <gone@vellowick.invalid>\nNewsgroups: vw.round.heads\n");
        file.close();
        ASSERT_TRUE(VMSG::attrCreate(gone.c_str(), IMsg::MsgTypeNewsDownload, nullptr,
                                     IMsg::CharsetNone, false, 0, false, VMSG::kServerNone));
    }
    ASSERT_TRUE(::news.requestGroup(server, heads, true));
    ASSERT_TRUE(runDry());
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(typeSettled(headFiles[i]), IMsg::MsgTypeNews);
        VMSG::DATA each = data(headFiles[i]);
        for (size_t n = 0; n < kArticles; ++n) {
            if (headsGen.messageId(n) == each.msgid) {
                EXPECT_EQ(bodyLines(readFile(headFiles[i]), "\n"),
                          bodyLines(headsGen.article(n), "\r\n"));
            }
        }
    }
    EXPECT_EQ(typeSettled(gone), IMsg::MsgTypeNewsFailed);
    std::string goneText = readFile(gone);
    EXPECT_NE(goneText.find("\n\nCouldn't retrieve message, server response was: 430"),
              std::string::npos)
        << goneText;
    EXPECT_EQ(data(headFiles[2]).type, IMsg::MsgTypeNewsHeader) << "unmarked headers stay";

    // Catch-up: new articles on the server count as seen without being fetched.
    groupFill("vw.round.full", kSeed + 1, kArticles, 5);
    ASSERT_TRUE(::news.requestCatchupGroup(server, full));
    ASSERT_TRUE(runDry());
    EXPECT_EQ(range(full), (INDEXRANGE{1, uint32_t(kArticles + 5)}));
    EXPECT_EQ(files(node(full).path).size(), fullIds.size());

    // Posting: two Outbox messages through INN, then read back from it.
    std::string stamp = std::to_string(time(nullptr));
    outboxWrite("VM000001.vmf", server, "one." + stamp);
    outboxWrite("VM000002.vmf", server, "two." + stamp);
    ASSERT_TRUE(::news.requestUpload(server));
    ASSERT_TRUE(runDry());
    long long outbox, sent;
    ASSERT_TRUE(barn.folderFixedNode(FIXEDFOLDER::Outbox, &outbox));
    ASSERT_TRUE(barn.folderFixedNode(FIXEDFOLDER::Sent, &sent));
    EXPECT_TRUE(files(node(outbox).path).empty());
    EXPECT_EQ(files(node(sent).path).size(), 2u);
    char agent[EDIT::kAgentMax + 1];
    EDIT::agentStr(agent, sizeof agent);
    for (const char *id : {"one.", "two."}) {
        READER reader(fInn.readerPort());
        std::vector<std::string> lines;
        std::string status =
            reader.block("ARTICLE <" + std::string(id) + stamp + "@vellowick.invalid>", &lines);
        ASSERT_EQ(status.substr(0, 3), "220") << status;
        auto has = [&](const std::string &line) {
            return std::find(lines.begin(), lines.end(), line) != lines.end();
        };
        EXPECT_TRUE(has("Subject: Round " + std::string(id) + stamp));
        EXPECT_TRUE(has(std::string("User-Agent: ") + agent));
        EXPECT_TRUE(has(std::string("X-Program-URL: ") + EDIT::kProgramURL));
        auto body = std::find(lines.begin(), lines.end(), "");
        ASSERT_NE(body, lines.end());
        EXPECT_EQ(std::vector<std::string>(body + 1, lines.end()),
                  (std::vector<std::string>{"First line", ".", "Last line"}))
            << "the lone dot was sent as \"..\" and comes back as itself";
    }
    EXPECT_TRUE(alerts.texts().empty()) << testing::PrintToString(alerts.texts());
    EXPECT_TRUE(fWindow.errors().empty()) << testing::PrintToString(fWindow.errors());
}

// A server of the store on port, secure, compressed and logging in as the test asks.
long long secureServer(uint16_t port, const char *name, bool tls, bool compress) {
    BARN::NODE node;
    BARN::serverDefault(&node);
    STR::copy(node.name, name, sizeof node.name);
    STR::copy(node.server.hostname, "127.0.0.1", sizeof node.server.hostname);
    node.server.port = port;
    node.server.timeout = 10'000'000;
    node.server.security = tls ? kSecurityTLS : kSecurityNone;
    node.server.compress = compress;
    node.server.login = tls; // the secure reader wants a login
    STR::copy(node.server.username, INNSERVER::kUser, sizeof node.server.username);
    STR::copy(node.server.password, INNSERVER::kPassword, sizeof node.server.password);
    return barn.serverCreate(&node);
}

// Headers fetched in the clear, compressed, and over TLS (compressed or not, as the server
// allows) are the same files; a post goes out over TLS; the password is never logged.
TEST_F(TRANSFERINN, SecureAndCompressedSessionsStoreTheSameMessages) {
    constexpr size_t kMany = 10'000;
    ALERTRECORDER alerts;
    TESTCERTS certs(testhome::path());
    ASSERT_TRUE(certs.ok());
    setenv("SSL_CERT_FILE", certs.caFile().c_str(), 1);
    TESTCERTS::PAIR pair = certs.server("inn", "127.0.0.1");
    uint16_t tlsPort = fInn.tlsReader(pair.cert, pair.key);
    ASSERT_NE(tlsPort, 0) << fInn.error();
    groupFill("vw.secure", kSeed + 2, 0, kMany);
    std::string error;
    ASSERT_TRUE(fInn.groupCreate("vw.round.post", &error)) << error;

    const struct {
        const char *name;
        uint16_t port;
        bool tls, compress;
    } servers[] = {
        {"Plain", fInn.readerPort(), false, false},
        {"Deflate", fInn.readerPort(), false, true},
        {"Secure", tlsPort, true, true},
    };
    std::vector<long long> groups;
    long long secure = BARN::kNodeNone;
    for (const auto &each : servers) {
        secure = secureServer(each.port, each.name, each.tls, each.compress);
        groups.push_back(groupMake(secure, "vw.secure", GROUPDOWNLOAD::HeadersOnly));
        ASSERT_TRUE(::news.requestGroup(secure, groups.back(), false));
    }
    outboxWrite("VM000001.vmf", secure, "secure." + std::to_string(time(nullptr)));
    ASSERT_TRUE(::news.requestUpload(secure));
    THREAD::state(true);
    ASSERT_TRUE(runDry());
    unsetenv("SSL_CERT_FILE");

    std::map<std::string, std::string> first;
    for (long long group : groups) {
        std::map<std::string, std::string> texts;
        for (const std::string &path : files(node(group).path))
            texts[data(path).msgid] = readFile(path);
        EXPECT_EQ(texts.size(), kMany) << node(group).path;
        if (first.empty())
            first = texts;
        EXPECT_TRUE(texts == first) << node(group).path;
    }
    long long sent;
    ASSERT_TRUE(barn.folderFixedNode(FIXEDFOLDER::Sent, &sent));
    EXPECT_EQ(files(node(sent).path).size(), 1u) << "posted over TLS";

    std::string text = log();
    EXPECT_NE(text.find("Secure connection: TLSv1."), std::string::npos);
    EXPECT_NE(text.find("Compressing the connection to server Deflate"), std::string::npos);
    EXPECT_EQ(text.find(INNSERVER::kPassword), std::string::npos) << "never in the log";
    // What compression saves, for the record.
    size_t at = text.find("compressed on the wire");
    ASSERT_NE(at, std::string::npos);
    size_t begin = text.rfind("Received ", at);
    std::cout << "[ wire     ] " << text.substr(begin, text.find('\n', at) - begin) << "\n";
    unsigned long long plain = 0, wire = 0;
    ASSERT_EQ(sscanf(text.c_str() + begin, "Received %llu bytes, %llu", &plain, &wire), 2);
    EXPECT_LT(wire * 2, plain);
    EXPECT_TRUE(alerts.texts().empty()) << testing::PrintToString(alerts.texts());
    EXPECT_TRUE(fWindow.errors().empty()) << testing::PrintToString(fWindow.errors());
}

// A certificate the trust store does not know is refused with a question, accepted once the
// user trusts it, and refused again when the server shows another one; so is one for another
// host name.
TEST_F(TRANSFERINN, UntrustedCertificatesNeedTheUsersTrust) {
    ALERTRECORDER alerts;
    TESTCERTS certs(testhome::path());
    ASSERT_TRUE(certs.ok());
    setenv("SSL_CERT_FILE", certs.caFile().c_str(), 1);
    groupFill("vw.trust", kSeed + 3, 0, 3);
    long long server = secureServer(1, "Secure", true, false);
    long long group = groupMake(server, "vw.trust", GROUPDOWNLOAD::HeadersOnly);
    THREAD::state(true);
    // One catch-up on the reader showing this certificate: whether it got the range.
    auto catchup = [&](const TESTCERTS::PAIR &pair) {
        uint16_t port = fInn.tlsReader(pair.cert, pair.key);
        EXPECT_NE(port, 0) << fInn.error();
        BARN::NODE node{};
        barn.nodeRead(&node, server);
        node.server.port = port;
        barn.nodeSave(&node);
        BARN::NODE saved{};
        barn.nodeRead(&saved, group);
        saved.group.indexFirst = saved.group.indexLast = 0;
        barn.nodeSave(&saved);
        EXPECT_TRUE(::news.requestCatchupGroup(server, group));
        EXPECT_TRUE(runDry());
        return range(group).last == 3;
    };
    // The questions about a certificate, beside the queue's own "errors occurred" notices.
    auto questions = [&] {
        std::vector<std::string> found;
        for (const std::string &text : alerts.texts())
            if (text.rfind("The certificate of server Secure cannot be trusted: ", 0) == 0)
                found.push_back(text.substr(52, text.find('.') - 52));
        return found;
    };
    TESTCERTS::PAIR own = certs.server("own", "127.0.0.1", TESTCERTS::kBySelf);
    EXPECT_FALSE(catchup(own));
    ASSERT_THAT(questions(), testing::ElementsAre("Server certificate is self-signed"));
    ASSERT_TRUE(alerts.answer(0));
    EXPECT_TRUE(catchup(own)) << testing::PrintToString(fWindow.errors());
    EXPECT_FALSE(catchup(certs.server("other", "127.0.0.1", TESTCERTS::kBySelf)));
    EXPECT_FALSE(catchup(certs.server("elsewhere", "news.example.invalid")));
    EXPECT_THAT(questions(),
                testing::ElementsAre("Server certificate is self-signed",
                                     "Server certificate is self-signed",
                                     "Server certificate was issued for another host name"));
    unsetenv("SSL_CERT_FILE");
}

} // namespace
