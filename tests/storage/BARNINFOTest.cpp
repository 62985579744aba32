// Paths of the data directory and the accessors of the storage and signature settings.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "app/SETTINGS.h"
#include "storage/BARNINFO.h"
#include "tests/support/TestHome.h"

namespace {
struct PATHCASE {
    const char *name;
    void (*build)(char *, unsigned long);
    const char *expected; // below the root
};

const PATHCASE kPathCases[] = {
    {"saved", BARNINFO::pathSaved, "/saved"},
    {"storage", BARNINFO::pathStorage, "/news"},
    {"drafts", BARNINFO::pathDrafts, "/news/Drafts"},
    {"outbox", BARNINFO::pathOutbox, "/news/Outbox"},
    {"sent", BARNINFO::pathSent, "/news/Sent Messages"},
    {"servers", BARNINFO::pathServers, "/news/Servers"},
    {"killfile", BARNINFO::pathKillfile, "/news/killfile.txt"},
    {"transfer_log", BARNINFO::pathTransferLog, "/news/NNTP.log"},
    {"temp", BARNINFO::pathTemp, "/news/temp"},
    {"html", BARNINFO::pathHTML, "/news/temp/temp.utf8"},
    {"server", [](char *b, unsigned long s) { BARNINFO::pathServer("ISP News", b, s); },
     "/news/Servers/ISP News"},
    {"server_ini", [](char *b, unsigned long s) { BARNINFO::pathServerINI("ISP", b, s); },
     "/news/Servers/ISP/Server"},
    {"list", [](char *b, unsigned long s) { BARNINFO::pathList("ISP", b, s); },
     "/news/Servers/ISP/Newsgroups"},
    {"list_txt", [](char *b, unsigned long s) { BARNINFO::pathListTXT("ISP", b, s); },
     "/news/Servers/ISP/Newsgroups.txt"},
    {"list_bak", [](char *b, unsigned long s) { BARNINFO::pathListBAK("ISP", b, s); },
     "/news/Servers/ISP/Newsgroups.bak"},
    {"group", [](char *b, unsigned long s) { BARNINFO::pathGroup("ISP", "comp.lang.c", b, s); },
     "/news/Servers/ISP/comp.lang.c"},
    {"message",
     [](char *b, unsigned long s) { BARNINFO::pathMessage("ISP", "comp.lang.c", 20001, b, s); },
     "/news/Servers/ISP/comp.lang.c/VM020001.vmf"},
    {"message_temp", BARNINFO::pathMessageTemp, "/news/VM000000.vmf"},
};

class BarnPath : public testing::TestWithParam<PATHCASE> {
protected:
    void TearDown() override { SETTINGS::reset(); }
};

TEST_P(BarnPath, BuiltBelowTheRootWithOneSlash) {
    for (const char *root : {"/data/vw", "/data/vw/"}) {
        std::strcpy(SETTINGS::storage.path, root);
        char path[BARNINFO::kPathSize];
        GetParam().build(path, sizeof path);
        EXPECT_EQ(std::string(path), std::string("/data/vw") + GetParam().expected) << root;
    }
}

INSTANTIATE_TEST_SUITE_P(BarnInfo, BarnPath, testing::ValuesIn(kPathCases),
                         [](const testing::TestParamInfo<PATHCASE> &info) {
                             return std::string(info.param.name);
                         });

class BarnInfo : public testing::Test {
protected:
    void SetUp() override { SETTINGS::reset(); }
    void TearDown() override { SETTINGS::reset(); }
};

TEST_F(BarnInfo, DefaultsFollowTheHomeDirectory) {
    EXPECT_EQ(std::string(SETTINGS::storage.path), testhome::path() + "/VellowickData");
    EXPECT_EQ(std::string(SETTINGS::storage.savePath), testhome::path());
    EXPECT_EQ(std::string(SETTINGS::signature.filename), testhome::path() + "/sig.txt");
    EXPECT_EQ(BARNINFO::downloadGet(), GROUPDOWNLOAD::HeadersOnly);
    BARNINFO::downloadSet(GROUPDOWNLOAD::HeadersAndBodies);
    EXPECT_EQ(SETTINGS::storage.downloadDefault, 3u);
}

TEST_F(BarnInfo, LongPathsAreCutAtTheBuffer) {
    std::string root = "/" + std::string(78, 'r');
    std::strcpy(SETTINGS::storage.path, root.c_str());
    char path[BARNINFO::kPathSize];
    std::string group(200, 'g');
    BARNINFO::pathGroup(std::string(100, 's').c_str(), group.c_str(), path, sizeof path);
    EXPECT_EQ(std::strlen(path), BARNINFO::kPathMax);
    EXPECT_EQ(std::string(path).substr(0, root.size() + 14), root + "/news/Servers/");
    char tiny[5];
    BARNINFO::pathDrafts(tiny, sizeof tiny);
    EXPECT_STREQ(tiny, "/rrr");
}

TEST_F(BarnInfo, DownloadMaximum) {
    const struct {
        bool limit;
        uint32_t articles, headers;
        unsigned long maxArticles, maxHeaders;
    } cases[] = {{true, 200, 300, 200, 300},
                 {true, 0, 300, 20'000'000, 300},
                 {false, 200, 300, 20'000'000, 20'000'000},
                 {true, 50000, 0, 50000, 20'000'000}};
    for (const auto &c : cases) {
        SETTINGS::storage.downloadLimit = c.limit;
        SETTINGS::storage.downloadArticles = c.articles;
        SETTINGS::storage.downloadHeaders = c.headers;
        EXPECT_EQ(BARNINFO::downloadMax(true), c.maxArticles) << c.articles;
        EXPECT_EQ(BARNINFO::downloadMax(false), c.maxHeaders) << c.headers;
    }
}

TEST_F(BarnInfo, SavePathKeepsItsLimitAndIgnoresEmpty) {
    char path[BARNINFO::kPathSize];
    for (const char *given : {"/srv/files/", ""}) {
        BARNINFO::savePathSet(given);
        BARNINFO::savePathGet(path, sizeof path);
        EXPECT_STREQ(path, "/srv/files") << given;
    }
    BARNINFO::savePathSet(("/" + std::string(299, 'x')).c_str());
    EXPECT_EQ(std::strlen(SETTINGS::storage.savePath), SETTINGS::kSavePathMax);
}

TEST_F(BarnInfo, SignatureNeedsTheSwitchAndAFileName) {
    bool reply = true;
    SETTINGS::signature.enabled = false;
    SETTINGS::signature.reply = true;
    EXPECT_EQ(BARNINFO::sigFile(&reply), nullptr);
    EXPECT_FALSE(reply);
    SETTINGS::signature.enabled = true;
    EXPECT_EQ(std::string(BARNINFO::sigFile(&reply)), testhome::path() + "/sig.txt");
    EXPECT_TRUE(reply);
    SETTINGS::signature.filename[0] = '\0';
    EXPECT_EQ(BARNINFO::sigFile(&reply), nullptr);
    EXPECT_FALSE(reply);
    EXPECT_FALSE(SETTINGS::signature.enabled) << "an empty file name switches it off";
    EXPECT_FALSE(SETTINGS::signature.reply);
}
} // namespace
