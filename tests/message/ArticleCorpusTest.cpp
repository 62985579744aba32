// Real-world articles from tests/data/articles: each .msg is read as the program reads a
// stored message, and compared with the facts written beside it in its .expect file.
#include "message/HdrBuf.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <map>
#include <sstream>

#include "base/TEXTFILE.h"
#include "base/TIMEBASE.h"

namespace {

namespace fs = std::filesystem;

struct Article {
    std::string name;
    std::string path;
    std::map<std::string, std::string> expect;
};

void PrintTo(const Article &article, std::ostream *os) {
    *os << article.name;
}

std::vector<Article> corpus() {
    std::vector<Article> articles;
    for (const auto &entry : fs::directory_iterator(VW_TEST_DATA "/articles")) {
        if (entry.path().extension() != ".msg")
            continue;
        Article article;
        article.name = entry.path().stem().string();
        article.path = entry.path().string();
        std::ifstream in(fs::path(entry.path()).replace_extension(".expect"));
        std::string line;
        while (std::getline(in, line)) {
            size_t colon = line.find(": ");
            if (colon != std::string::npos)
                article.expect[line.substr(0, colon)] = line.substr(colon + 2);
            else if (!line.empty() && line.back() == ':')
                article.expect[line.substr(0, line.size() - 1)] = "";
        }
        articles.push_back(article);
    }
    std::sort(articles.begin(), articles.end(),
              [](const Article &a, const Article &b) { return a.name < b.name; });
    return articles;
}

class CorpusTest : public testing::TestWithParam<Article> {
protected:
    void open(TEXTFILE &file) {
        ASSERT_EQ(file.open(GetParam().path.c_str(), DISKFILE::kRead), DISKFILE::kSuccess);
    }
    bool has(const char *key) const { return GetParam().expect.count(key) > 0; }
    const std::string &want(const char *key) const { return GetParam().expect.at(key); }
    // The next line in UTF-8, or "" at the end of the file.
    static std::string nextLine(TEXTFILE &file, IMsg::Charset charset) {
        char buffer[TEXTFILE::kLineMax + 1];
        if (file.lineRead(buffer, sizeof(buffer)) != DISKFILE::kSuccess)
            return "";
        std::string line;
        IMsg::CharsetConvert(charset, buffer, IMsg::CharsetUTF8, line);
        return line;
    }
};

TEST_P(CorpusTest, Header) {
    TEXTFILE file;
    open(file);
    HdrBuf header;
    ASSERT_TRUE(header.Read(&file));
    EXPECT_STREQ(header.StringAuthor(), want("author").c_str());
    EXPECT_STREQ(header.StringEmail(), want("email").c_str());
    EXPECT_STREQ(header.StringSubject(), want("subject").c_str());
    if (has("date") && want("date") == "now") {
        int64_t now = TIMEBASE::seconds(TIMEBASE::timeGet());
        EXPECT_NEAR(static_cast<double>(header.DateTime()), static_cast<double>(now), 300.0);
    } else if (has("date")) {
        EXPECT_EQ(header.DateTime(), std::stoll(want("date")));
    }
    if (has("charset")) {
        EXPECT_STREQ(IMsg::CharsetString(header.CharsetGet()), want("charset").c_str());
    }
    if (has("newsgroups")) {
        EXPECT_STREQ(header.StringNewsgroups(), want("newsgroups").c_str());
    }
    if (has("lines")) {
        EXPECT_EQ(header.LinesGet(), std::stoul(want("lines")));
    }
    if (has("refs")) {
        std::istringstream refs(header.StringReferences());
        size_t count = 0;
        for (std::string id; refs >> id; count++)
            EXPECT_TRUE(IMsg::MsgidCheck(id)) << id;
        EXPECT_EQ(count, std::stoul(want("refs")));
    }
    if (has("msgid") && want("msgid") == "fallback") {
        std::string id = header.StringMessageID();
        EXPECT_TRUE(IMsg::MsgidCheck(id)) << id;
        EXPECT_NE(id.find("@invalid.invalid>"), std::string::npos) << id;
    } else if (has("msgid")) {
        EXPECT_STREQ(header.StringMessageID(), want("msgid").c_str());
    }
    if (has("partial")) {
        EXPECT_EQ(header.main().content, HdrBuf::ContentPartial);
        EXPECT_EQ(header.main().number, std::stoul(want("partial")));
    }
}

TEST_P(CorpusTest, Section) {
    for (bool wantHTML : {false, true}) {
        SCOPED_TRACE(wantHTML ? "asking for HTML" : "asking for text");
        TEXTFILE file;
        open(file);
        HdrBuf header;
        ASSERT_TRUE(header.Read(&file));
        bool isHTML = wantHTML;
        bool found = header.GotoSection(&file, isHTML);
        const std::string &section = want("section");
        EXPECT_EQ(found, section != "none");
        if (!found)
            continue;
        bool html = section == "html" || (wantHTML && has("htmlline"));
        EXPECT_EQ(isHTML, html);
        const char *key = html && has("htmlline") ? "htmlline" : "sectionline";
        EXPECT_EQ(nextLine(file, header.CharsetGet()), want(key));
    }
}

TEST_P(CorpusTest, Attachment) {
    std::istringstream spec(want("attach"));
    std::string kind, name, mimeType;
    spec >> kind >> name >> mimeType;
    TEXTFILE file;
    open(file);
    HdrBuf header;
    if (kind == "none") {
        EXPECT_FALSE(header.GotoAttachment(&file, IMsg::AttachBase64));
        open(file);
        EXPECT_FALSE(header.GotoAttachment(&file, IMsg::AttachUuencode));
        return;
    }
    IMsg::AttachType type = kind == "uuencode" ? IMsg::AttachUuencode
                            : kind == "mime"   ? IMsg::AttachMime
                                               : IMsg::AttachBase64;
    ASSERT_TRUE(header.GotoAttachment(&file, type));
    std::string foundName, foundType;
    IMsg::AttachType foundKind = IMsg::AttachNone;
    bool isAttachment = header.Attachment(foundName, foundType, foundKind);
    if (kind == "base64" || kind == "mime") {
        EXPECT_TRUE(isAttachment);
        EXPECT_EQ(foundName, name);
        EXPECT_EQ(foundType, mimeType);
        EXPECT_EQ(foundKind, type);
    } else {
        EXPECT_FALSE(isAttachment);
    }
    EXPECT_EQ(nextLine(file, IMsg::CharsetUTF8), want("attachline"));
}

INSTANTIATE_TEST_SUITE_P(Articles, CorpusTest, testing::ValuesIn(corpus()), [](const auto &info) {
    std::string name = info.param.name;
    std::replace(name.begin(), name.end(), '-', '_');
    return name;
});

TEST(Corpus, HasTheArticlesItNeeds) {
    EXPECT_GE(corpus().size(), 30u);
}

} // namespace
