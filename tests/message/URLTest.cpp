// URL recognition in message text: kinds, boundaries, delimiters, wrapped lines, launch text.
#include "message/URL.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

struct Found {
    URL::TYPE type;
    std::string text;
    bool operator==(const Found &other) const = default;
};

void PrintTo(const Found &found, std::ostream *os) {
    *os << "{" << found.type << ", \"" << found.text << "\"}";
}

struct Scan {
    std::string text;
    std::vector<Found> found;
};

void collect(void *data, URL::TYPE type, size_t start, size_t end) {
    auto *scan = static_cast<Scan *>(data);
    ASSERT_LE(start, end);
    ASSERT_LT(end, scan->text.size());
    scan->found.push_back({type, scan->text.substr(start, end - start + 1)});
}

std::vector<Found> findAll(const std::string &text) {
    Scan scan{text, {}};
    URL::find(scan.text, collect, &scan);
    return scan.found;
}

struct FindCase {
    const char *name;
    std::string text;
    std::vector<Found> found;
};

void PrintTo(const FindCase &c, std::ostream *os) {
    *os << c.name;
}

class FindTest : public testing::TestWithParam<FindCase> {};

TEST_P(FindTest, Urls) {
    EXPECT_EQ(findAll(GetParam().text), GetParam().found);
}

const std::string kLong = "http://example.com/" + std::string(45, 'a'); // 64 characters

const FindCase kFindCases[] = {
    {"plain_http", "see http://example.com/x now", {{URL::TypeHTTP, "http://example.com/x"}}},
    {"https", "at https://example.com.", {{URL::TypeHTTPS, "https://example.com"}}},
    {"closing_paren_outside",
     "(see http://example.com/a).",
     {{URL::TypeHTTP, "http://example.com/a"}}},
    {"closing_paren_inside",
     "http://en.example.org/wiki/Foo_(bar)",
     {{URL::TypeHTTP, "http://en.example.org/wiki/Foo_(bar)"}}},
    {"www_boundary", "xwww.example.com and www.example.com", {{URL::TypeHTTP, "www.example.com"}}},
    {"http_after_letter", "xhttp://example.com", {{URL::TypeHTTP, "http://example.com"}}},
    {"ftp_second_prefix", "get ftp.example.org/pub", {{URL::TypeFTP, "ftp.example.org/pub"}}},
    {"file", "file:///etc/motd", {{URL::TypeFile, "file:///etc/motd"}}},
    {"rtsp_telnet",
     "rtsp://media.example/x telnet://bbs.example",
     {{URL::TypeRTSP, "rtsp://media.example/x"}, {URL::TypeTelnet, "telnet://bbs.example"}}},
    {"short_body", "http://ab and http://abc", {{URL::TypeHTTP, "http://abc"}}},
    {"body_starts_with_dot", "http://.example.com", {}},
    {"email", "write to john@example.com!", {{URL::TypeEmail, "john@example.com"}}},
    {"mailto", "mailto:john@example.com", {{URL::TypeEmail, "mailto:john@example.com"}}},
    {"angle_email", "From: <john@example.com>", {{URL::TypeEmail, "john@example.com"}}},
    {"angle_msgid",
     "In <1234.5678@news.example.com> you",
     {{URL::TypeNews, "<1234.5678@news.example.com>"}}},
    {"news_group", "try news:comp.lang.c.", {{URL::TypeNews, "news:comp.lang.c"}}},
    {"news_msgid", "news:abc123456@host.example", {{URL::TypeNews, "news:abc123456@host.example"}}},
    {"angle_url_not_news", "<http://example.com>", {{URL::TypeHTTP, "http://example.com"}}},
    {"wrapped_joined", kLong + "\nbbb end", {{URL::TypeHTTP, kLong + "\nbbb"}}},
    {"wrapped_too_early",
     "http://example.com/aaa\nbbb",
     {{URL::TypeHTTP, "http://example.com/aaa"}}},
    {"wrapped_new_url",
     kLong + "\nwww.example.org",
     {{URL::TypeHTTP, kLong}, {URL::TypeHTTP, "www.example.org"}}},
    {"wrapped_paragraph", kLong + "\n\nbbb", {{URL::TypeHTTP, kLong}}},
    {"too_long", "http://" + std::string(404, 'a'), {}},
    {"longest",
     "http://" + std::string(403, 'a'),
     {{URL::TypeHTTP, "http://" + std::string(403, 'a')}}},
    {"nothing", "no links in here at all", {}},
};

INSTANTIATE_TEST_SUITE_P(URL, FindTest, testing::ValuesIn(kFindCases),
                         [](const auto &info) { return std::string(info.param.name); });

TEST(URL, Launch) {
    struct Case {
        std::string text;
        URL::TYPE type;
        std::string launched;
    } cases[] = {
        {"www.example.com", URL::TypeHTTP, "http://www.example.com"},
        {"ftp.example.org/pub", URL::TypeFTP, "ftp://ftp.example.org/pub"},
        {"HTTP://Example.com", URL::TypeHTTP, "http://Example.com"},
        {kLong + "\nbbb", URL::TypeHTTP, kLong + "bbb"},
        {"john@example.com", URL::TypeEmail, "mailto:john@example.com"},
        {"<a.b@c.d>", URL::TypeNews, "news:a.b@c.d"},
    };
    for (const auto &c : cases) {
        char buffer[URL::kMax + 2];
        const char *mime = nullptr;
        ASSERT_TRUE(
            URL::launch(c.text, 0, c.text.size() - 1, c.type, &mime, buffer, sizeof(buffer)))
            << c.text;
        EXPECT_EQ(buffer, c.launched);
        EXPECT_STREQ(mime, URL::info[c.type].mimeType);
    }
    char buffer[16];
    const char *mime = "x";
    EXPECT_FALSE(URL::launch("abc", 0, 2, URL::TypeNone, &mime, buffer, sizeof(buffer)));
    EXPECT_EQ(mime, nullptr);
}

TEST(URL, KeepGoingStopsTheScan) {
    std::string text;
    for (int i = 0; i < 20; i++)
        text += "see http://example.com/" + std::to_string(i) + " ";
    Scan scan{text, {}};
    int asked = 0;
    URL::find(
        scan.text, collect, &scan, [](void *data) { return ++*static_cast<int *>(data) < 3; },
        &asked);
    EXPECT_EQ(scan.found.size(), 3u);
}

} // namespace
