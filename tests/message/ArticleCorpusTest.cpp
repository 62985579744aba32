// Real-world articles from tests/data/articles: each .msg is read as the program reads a
// stored message, and compared with the facts written beside it in its .expect file.
#include "message/HdrBuf.h"

#include <algorithm>
#include <cstdlib>
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
        Article article{entry.path().stem().string(), entry.path().string(), {}};
        std::ifstream in(fs::path(entry.path()).replace_extension(".expect"));
        for (std::string line; std::getline(in, line);) {
            const size_t colon = line.find(':');
            if (colon != std::string::npos)
                article.expect[line.substr(0, colon)] =
                    line.substr(std::min(colon + 2, line.size()));
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
    std::string want(const char *key) const {
        return has(key) ? GetParam().expect.at(key) : "(missing " + std::string(key) + ")";
    }
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
    // What the header gives, in the words of the .expect files.
    const int64_t date = header.DateTime();
    const std::string msgid = header.StringMessageID();
    std::istringstream refs(has("refs") ? header.StringReferences() : "");
    size_t refCount = 0;
    for (std::string id; refs >> id; refCount++)
        EXPECT_TRUE(IMsg::MsgidCheck(id)) << id;
    const bool fallback =
        IMsg::MsgidCheck(msgid) && msgid.find("@invalid.invalid>") != std::string::npos;
    const bool now = std::llabs(date - TIMEBASE::seconds(TIMEBASE::timeGet())) < 300;
    const std::map<std::string, std::string> got = {
        {"author", header.StringAuthor()},
        {"email", header.StringEmail()},
        {"subject", header.StringSubject()},
        {"date", now && want("date") == "now" ? "now" : std::to_string(date)},
        {"charset", IMsg::CharsetString(header.CharsetGet())},
        {"newsgroups", header.StringNewsgroups()},
        {"lines", std::to_string(header.LinesGet())},
        {"refs", std::to_string(refCount)},
        {"msgid", fallback ? "fallback" : msgid},
        {"partial", header.main().content == HdrBuf::ContentPartial
                        ? std::to_string(header.main().number)
                        : "not partial"},
    };
    for (const auto &[key, value] : got) {
        if (has(key.c_str()) || key == "author" || key == "email" || key == "subject") {
            EXPECT_EQ(value, want(key.c_str())) << key;
        }
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
        const bool found = header.GotoSection(&file, isHTML);
        EXPECT_EQ(found, want("section") != "none");
        if (!found)
            continue;
        const bool html = want("section") == "html" || (wantHTML && has("htmlline"));
        EXPECT_EQ(isHTML, html);
        EXPECT_EQ(nextLine(file, header.CharsetGet()),
                  want(html && has("htmlline") ? "htmlline" : "sectionline"));
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
    const IMsg::AttachType type = kind == "uuencode" ? IMsg::AttachUuencode
                                  : kind == "mime"   ? IMsg::AttachMime
                                                     : IMsg::AttachBase64;
    ASSERT_TRUE(header.GotoAttachment(&file, type));
    std::string foundName, foundType;
    IMsg::AttachType foundKind = IMsg::AttachNone;
    const bool isAttachment = header.Attachment(foundName, foundType, foundKind);
    // Uuencoded data and later parts carry no MIME attachment header.
    if (kind == "base64" || kind == "mime") {
        EXPECT_TRUE(isAttachment);
        EXPECT_EQ(foundName + " " + foundType, name + " " + mimeType);
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
