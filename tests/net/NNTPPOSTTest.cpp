// Posting, the header table, the newsgroup list and body downloads against the scripted server.
#include "tests/net/TRANSFERFIXTURE.h"
#include "tests/support/FAKENNTP.h"

using namespace transfertest;

namespace {

// The program-wide header table for one test.
class HEADERTABLE {
public:
    explicit HEADERTABLE(std::initializer_list<const char *> lines) {
        NNTP::hdrStart();
        NNTP::hdrClear();
        for (const char *line : lines)
            EXPECT_TRUE(NNTP::hdrAdd(line)) << line;
    }
    ~HEADERTABLE() { NNTP::hdrStop(); }
};

TEST(NNTPHeaderTable, SortedByNameAndFiltering) {
    HEADERTABLE table{"User-Agent: Test/1.0", "organization: New Org", "X-Program-URL: https://x"};
    EXPECT_FALSE(NNTP::hdrAdd("no colon here"));
    std::vector<std::string> order;
    for (const NNTP::HEADER &entry : *NNTP::headerTable())
        order.push_back(entry.line);
    EXPECT_EQ(order, (std::vector<std::string>{"organization: New Org", "User-Agent: Test/1.0",
                                               "X-Program-URL: https://x"}));
    const struct {
        const char *line;
        bool sent;
    } cases[] = {
        {"", true},
        {" continued", true},
        {"\tcontinued", true},
        {"Subject: Hello", true},
        {"Organization: Old Org", false},
        {"ORGANIZATION: New Org", false},
        {"User-Agent: Test/1.0", true},
        {"not a header", true},
    };
    for (const auto &c : cases)
        EXPECT_EQ(NNTP::hdrSent(c.line), c.sent) << '"' << c.line << '"';
    EXPECT_TRUE((*NNTP::headerTable())[1].sent) << "the identical line is marked sent";
    EXPECT_FALSE((*NNTP::headerTable())[0].sent);
    NNTP::hdrListClear();
    EXPECT_FALSE((*NNTP::headerTable())[1].sent);
}

class NNTPPost : public TRANSFERTEST {
protected:
    // An Outbox message for the server: header lines, empty line, body lines.
    std::string outboxWrite(const char *leaf, long long server, const std::string &text) {
        char outbox[BARNINFO::kPathSize];
        BARNINFO::pathOutbox(outbox, sizeof outbox);
        std::string path = std::string(outbox) + "/" + leaf;
        TEXTFILE file;
        EXPECT_EQ(VMSG::fileCreate(&file, path.c_str(), 0), DISKFILE::kSuccess);
        EXPECT_EQ(file.textWrite(text.c_str()), DISKFILE::kSuccess);
        file.close();
        EXPECT_TRUE(VMSG::attrCreate(path.c_str(), IMsg::MsgTypeNews, nullptr, IMsg::CharsetNone,
                                     false, 0, false, server));
        return path;
    }
    // One upload run on a fresh session; the fake server must have played its whole script.
    static bool upload(FAKENNTP &fake, long long server) {
        NNTP *nntp = session(server);
        bool result = nntp->upload(nullptr, 8);
        delete nntp;
        EXPECT_TRUE(fake.wait());
        EXPECT_EQ(fake.error(), "");
        return result;
    }
    static std::string folder(FIXEDFOLDER kind) {
        long long number;
        EXPECT_TRUE(barn.folderFixedNode(kind, &number));
        return node(number).path;
    }
    static std::string message(const char *id) {
        return std::string("From: Ann <ann@example.invalid>\nNewsgroups: alt.test\nSubject: Hi\n"
                           "Message-ID: <") +
               id + "@example.invalid>\nOrganization: Old Org\n\nFirst\n.\n.leading dot\nLast\n";
    }
    static std::string transcript(const char *id) {
        return std::string("C: POST\nS: 340 send it\nC: From: Ann <ann@example.invalid>\n"
                           "C: Newsgroups: alt.test\nC: Subject: Hi\nC: Message-ID: <") +
               id +
               "@example.invalid>\nC: Organization: New Org\nC: User-Agent: Test/1.0\nC: \n"
               "C: First\nC: ..\nC: .leading dot\nC: Last\nC: .\n";
    }
};

TEST_F(NNTPPost, RefusedArticleGoesToSentAndIsReportedWithHints) {
    HEADERTABLE table{"User-Agent: Test/1.0", "Organization: New Org"};
    FAKENNTP fake;
    fake.play("S: 200 ready\n" + transcript("one") + "S: 441 Bad Date header in message\n" +
              kGoodbye);
    long long server = serverAt(fake.port());
    outboxWrite("VM000001.vmf", server, message("one"));
    EXPECT_FALSE(upload(fake, server));
    EXPECT_EQ(files(folder(FIXEDFOLDER::Sent)).size(), 1u) << "a refused article is not retried";
    std::vector<std::string> got = errors();
    ASSERT_EQ(got.size(), 3u) << "the hints come with an upload's refusal";
    EXPECT_EQ(got[0], "Couldn't post to server Fake. Response: 441 Bad Date header in message");
}

TEST_F(NNTPPost, PostRefusedBeforeTheArticleStaysInOutbox) {
    FAKENNTP fake;
    fake.play("S: 200 ready\nC: POST\nS: 440 Posting not allowed\n" + kGoodbye);
    long long server = serverAt(fake.port());
    outboxWrite("VM000001.vmf", server, message("one"));
    outboxWrite("VM000002.vmf", server, message("two"));
    EXPECT_FALSE(upload(fake, server)) << "the walk stops at the first failure";
    EXPECT_EQ(files(folder(FIXEDFOLDER::Outbox)).size(), 2u);
}

TEST_F(NNTPPost, PostsTheServersMessagesWithTheHeaderTableAndMovesAllToSent) {
    HEADERTABLE table{"User-Agent: Test/1.0", "Organization: New Org"};
    FAKENNTP fake;
    fake.play("S: 200 ready\n" + transcript("mine") + "S: 240 posted\n" + kGoodbye);
    long long server = serverAt(fake.port());
    long long other = serverAt(fake.port(), "Other");
    outboxWrite("VM000001.vmf", other, message("theirs"));
    outboxWrite("VM000002.vmf", server, message("mine"));
    EXPECT_TRUE(upload(fake, server));
    // The other server's message is handed on to "Sent Messages" too, deliberately.
    EXPECT_EQ(files(folder(FIXEDFOLDER::Sent)).size(), 2u);
    EXPECT_TRUE(files(folder(FIXEDFOLDER::Outbox)).empty());
    EXPECT_TRUE(errors().empty());
}

TEST_F(NNTPPost, NewsgroupListKeepsValidNames) {
    FAKENNTP fake;
    fake.play("S: 200 ready\nC: LIST\nS: 215 list follows\nS: alt.test 12 1 y\nS:\n"
              "S: .bad.name 1 1 y\nS: comp.lang.c\t900 3 m\nS: alt!bang 3 3 n\nS: .\n" +
              kGoodbye);
    NNTP *nntp = session(serverAt(fake.port()));
    NNTP::NAMELIST names{"left over"};
    EXPECT_TRUE(nntp->groupList(&names, nullptr, 7));
    delete nntp;
    EXPECT_TRUE(fake.wait());
    EXPECT_EQ(names, (NNTP::NAMELIST{"alt.test", "comp.lang.c"}));
    EXPECT_NE(log().find("Getting newsgroup list ..."), std::string::npos);
}

class NNTPBodies : public NNTPPost {
protected:
    // A header-only message in the group's folder.
    static std::string headerWrite(const BARN::NODE &group, const char *leaf, unsigned long n,
                                   int32_t type) {
        std::string path = std::string(group.path) + "/" + leaf;
        TEXTFILE file;
        EXPECT_EQ(VMSG::fileCreate(&file, path.c_str(), 0), DISKFILE::kSuccess);
        for (const std::string &line : headerLines(n))
            file.lineWrite(line.c_str());
        file.close();
        EXPECT_TRUE(VMSG::attrCreate(path.c_str(), type, nullptr, IMsg::CharsetNone, false, 0,
                                     false, VMSG::kServerNone));
        return path;
    }
    static int32_t typeOf(const std::string &path) {
        int32_t type = 0;
        storetest::waitFor([&] {
            type = data(path).type;
            return type != IMsg::MsgTypeNewsDownload;
        });
        return type;
    }
};

TEST_F(NNTPBodies, BrokenBodyIsCutBackAndTheRestWaits) {
    FAKENNTP fake;
    fake.play("S: 200 ready\nC: GROUP alt.test\nS: 211 2 1 2 alt.test\nC: BODY <1@fake.invalid>\n"
              "S: 222 1 <1@fake.invalid>\nS: one\nS: two\nX\n");
    long long server = serverAt(fake.port());
    BARN::NODE group = node(groupMake(server, "alt.test", GROUPDOWNLOAD::HeadersOnly));
    std::string first = headerWrite(group, "VM000001.vmf", 1, IMsg::MsgTypeNewsDownload);
    std::string second = headerWrite(group, "VM000002.vmf", 2, IMsg::MsgTypeNewsDownload);
    std::string header = readFile(first);
    NNTP *nntp = session(server);
    EXPECT_FALSE(nntp->downloadBodies(&group, nullptr, 5, ""));
    delete nntp;
    EXPECT_TRUE(fake.wait());
    EXPECT_EQ(readFile(first), header);
    EXPECT_EQ(data(first).type, IMsg::MsgTypeNewsDownload);
    EXPECT_EQ(data(second).type, IMsg::MsgTypeNewsDownload);
}

TEST_F(NNTPBodies, OneNamedHeaderIsMarkedAndFetched) {
    FAKENNTP fake;
    fake.play("S: 200 ready\nC: GROUP alt.test\nS: 211 2 1 2 alt.test\nC: BODY <2@fake.invalid>\n"
              "S: 222 2 <2@fake.invalid>\nS: ..dotted\nS: plain\nS: .\n" +
              kGoodbye);
    long long server = serverAt(fake.port());
    BARN::NODE group = node(groupMake(server, "alt.test", GROUPDOWNLOAD::HeadersOnly));
    headerWrite(group, "VM000001.vmf", 1, IMsg::MsgTypeNewsDownload);
    std::string named = headerWrite(group, "VM000002.vmf", 2, IMsg::MsgTypeNewsHeader);
    std::string header = readFile(named);
    NNTP *nntp = session(server);
    EXPECT_TRUE(nntp->downloadBodies(&group, nullptr, 4, "VM000002.vmf"));
    delete nntp;
    EXPECT_TRUE(fake.wait());
    EXPECT_EQ(fake.error(), "");
    EXPECT_EQ(typeOf(named), IMsg::MsgTypeNews);
    EXPECT_EQ(readFile(named), header + "\n..dotted\nplain\n") << "stored as received";
}

} // namespace
