// The demo's newsgroups, generated: threads with quoting, several character sets, an HTML
// alternative, links of every kind, a picture and a file split over three articles.
#include "tools/demo/DEMOARTICLES.h"

#include <cstdio>
#include <ctime>
#include <iconv.h>
#include <zlib.h>

#include "tools/innfill/ARTICLEGEN.h"

namespace {

constexpr int64_t kDateBase = 1'793'000'000; // early November 2026
constexpr int kMinutesApart = 37;

const char *const kAuthors[] = {
    "Ada Pryce <ada@demo.invalid>",           "Tomasz Wren <tomasz@demo.invalid>",
    "Marguerite Ollier <margo@demo.invalid>", "Ivan Sokolov <ivan@demo.invalid>",
    "Jun Hoshino <jun@demo.invalid>",
};

// One post of the discussion: its parent (-1 starts a thread), its author, the subject of a
// thread's first post, the character set its text goes out in, and its own words.
struct POST {
    int parent;
    int author;
    const char *subject;
    const char *charset;
    const char *text;
    bool html = false;
};

const POST kPosts[] = {
    {-1, 0, "Which editor for long posts?", "us-ascii",
     "I am writing a longer piece for this group and my editor keeps wrapping\n"
     "lines at odd places. What do you all use for posts of a few pages?"},
    {0, 1, nullptr, "us-ascii",
     "Anything that wraps at 72 columns and leaves quoted lines alone. The\n"
     "composer here does that already; I only switch when I need tables."},
    {1, 0, nullptr, "us-ascii",
     "Tables are exactly my problem. Monospaced fonts on the reader's side are\n"
     "not something I can count on any more."},
    {2, 2, nullptr, "us-ascii",
     "Then keep them narrow and put the wide version on a web page:\n"
     "https://example.org/tables/howto.html explains the trick."},
    {3, 1, nullptr, "us-ascii", "Good advice. I would add: never more than four columns."},
    {4, 0, nullptr, "us-ascii", "Four it is. Thanks, everyone."},
    {-1, 2, "Rencontre au caf\xC3\xA9 de Lyon", "iso-8859-1",
     "Bonjour \xC3\xA0 tous ! Qui vient au caf\xC3\xA9 samedi ? On parlera de la\n"
     "nouvelle version et des \xC3\xA9l\xC3\xA8ves qui d\xC3\xA9"
     "couvrent Usenet."},
    {6, 4, nullptr, "iso-8859-1",
     "J'y serai, avec deux coll\xC3\xA8gues. \xC3\x80 samedi, et merci pour l'id\xC3\xA9"
     "e !"},
    {7, 2, nullptr, "iso-8859-1", "Parfait. Rendez-vous \xC3\xA0 quinze heures."},
    {-1, 3,
     "\xD0\x9F\xD1\x80\xD0\xB8\xD0\xB2\xD0\xB5\xD1\x82 \xD0\xB8\xD0\xB7 "
     "\xD0\x9C\xD0\xBE\xD1\x81\xD0\xBA\xD0\xB2\xD1\x8B",
     "koi8-r",
     "\xD0\x9F\xD1\x80\xD0\xB8\xD0\xB2\xD0\xB5\xD1\x82 \xD0\xB2\xD1\x81\xD0\xB5\xD0\xBC! "
     "\xD0\xA7\xD0\xB8\xD1\x82\xD0\xB0\xD1\x8E \xD1\x8D\xD1\x82\xD1\x83 "
     "\xD0\xB3\xD1\x80\xD1\x83\xD0\xBF\xD0\xBF\xD1\x83 \xD0\xBA\xD0\xB0\xD0\xB6\xD0\xB4"
     "\xD1\x8B\xD0\xB9 \xD0\xB4\xD0\xB5\xD0\xBD\xD1\x8C."},
    {9, 4, nullptr, "us-ascii", "Hello back from Osaka! Nice to see the Cyrillic come through."},
    {-1, 1, "Release notes for the spring build", "utf-8",
     "The spring build is out. Highlights: secure connections, faster downloads\n"
     "and a new storage pane. Full notes: https://example.org/release/spring",
     true},
    {11, 3, nullptr, "us-ascii",
     "Thanks! Is there a mirror? Some of us only have ftp://ftp.example.org/pub/"},
    {12, 1, nullptr, "us-ascii", "Yes, that mirror is updated every hour."},
    {-1, 4, "A collection of useful links", "us-ascii",
     "Some places I keep coming back to:\n\n"
     "  The project page          http://www.example.org/news/\n"
     "  Secure mirror             https://mirror.example.net/\n"
     "  Old archives              ftp://archive.example.com/usenet/\n"
     "  The group's FAQ           news:demo.discussion\n"
     "  Write to the maintainers  mailto:maintainers@example.org\n\n"
     "Corrections welcome."},
    {14, 0, nullptr, "us-ascii",
     "Add telnet://bbs.example.org for those who remember, and\n"
     "www.example.com/guide without any prefix at all."},
    {15, 2, nullptr, "us-ascii", "Added both. The list lives on at http://links.example.org/"},
    {16, 3, nullptr, "us-ascii", "And a question about it: is the FAQ still posted monthly?"},
    {17, 4, nullptr, "us-ascii", "Monthly, on the first. The next one is due soon."},
    {18, 3, nullptr, "us-ascii", "Thanks. Deep threads like this are what threading is for."},
};
constexpr size_t kPostCount = sizeof kPosts / sizeof kPosts[0];

std::string dateOf(size_t index) {
    time_t seconds = time_t(kDateBase + int64_t(index) * kMinutesApart * 60);
    struct tm date;
    gmtime_r(&seconds, &date);
    char text[64];
    strftime(text, sizeof text, "%a, %d %b %Y %H:%M:%S +0000", &date);
    return text;
}

std::string messageId(const char *group, size_t index) {
    return "<" + std::string(group) + "." + std::to_string(index) + "@" + DEMOARTICLES::kDomain +
           ">";
}

// UTF-8 text in another character set; the text is made to fit it.
std::string converted(const std::string &utf8, const char *charset) {
    iconv_t convert = iconv_open(charset, "UTF-8");
    if (convert == iconv_t(-1))
        return utf8;
    std::string in = utf8;
    std::string out(in.size() * 2 + 16, '\0');
    char *from = in.data();
    char *to = out.data();
    size_t left = in.size();
    size_t room = out.size();
    iconv(convert, &from, &left, &to, &room);
    iconv_close(convert);
    out.resize(out.size() - room);
    return out;
}

std::string lines(const std::string &text, const char *prefix = "") {
    std::string out;
    size_t begin = 0;
    while (begin <= text.size()) {
        size_t end = text.find('\n', begin);
        if (end == std::string::npos)
            end = text.size();
        out += prefix + text.substr(begin, end - begin) + "\r\n";
        begin = end + 1;
    }
    return out;
}

std::string authorName(int author) {
    std::string full = kAuthors[author];
    return full.substr(0, full.find(" <"));
}

const char *rootSubject(size_t index) {
    while (kPosts[index].parent >= 0)
        index = size_t(kPosts[index].parent);
    return kPosts[index].subject;
}

std::string references(size_t index) {
    std::string refs;
    for (int at = kPosts[index].parent; at >= 0; at = kPosts[at].parent)
        refs = messageId(DEMOARTICLES::kDiscussion, size_t(at)) + (refs.empty() ? "" : " ") + refs;
    return refs;
}

std::string discussionPost(size_t index) {
    const POST &post = kPosts[index];
    std::string subject = rootSubject(index);
    bool ascii = true;
    for (unsigned char c : subject)
        ascii = ascii && c < 0x80;
    std::string charset = post.charset;
    // A subject outside ASCII goes out as an encoded word in the post's own set.
    std::string subjectHeader =
        ascii ? subject
              : "=?" + charset + "?B?" +
                    ARTICLEGEN::base64(converted(subject, charset.c_str()), 0) + "?=";
    if (post.parent >= 0)
        subjectHeader = "Re: " + subjectHeader;

    std::string text;
    if (post.parent >= 0) {
        const POST &above = kPosts[post.parent];
        text += "On " + dateOf(size_t(post.parent)) + ", " + authorName(above.author) + " wrote:\n";
        std::string quoted = lines(above.text, "> ");
        for (size_t at = quoted.find("\r\n"); at != std::string::npos; at = quoted.find("\r\n"))
            quoted.replace(at, 2, "\n");
        text += quoted + "\n";
    }
    text += post.text;
    text += "\n\n-- \n" + authorName(post.author) + "\n";

    std::string head = "Path: demo.invalid!not-for-mail\r\n";
    head += std::string("From: ") + kAuthors[post.author] + "\r\n";
    head += std::string("Newsgroups: ") + DEMOARTICLES::kDiscussion + "\r\n";
    head += "Subject: " + subjectHeader + "\r\n";
    head += "Date: " + dateOf(index) + "\r\n";
    head += "Message-ID: " + messageId(DEMOARTICLES::kDiscussion, index) + "\r\n";
    if (post.parent >= 0)
        head += "References: " + references(index) + "\r\n";
    head += "MIME-Version: 1.0\r\n";
    if (!post.html) {
        head += "Content-Type: text/plain; charset=" + charset + "\r\n";
        head += "Content-Transfer-Encoding: 8bit\r\n";
        return head + "\r\n" + lines(converted(text, charset.c_str()));
    }
    const std::string boundary = "=_demo_alternative";
    head += "Content-Type: multipart/alternative; boundary=\"" + boundary + "\"\r\n";
    std::string body = "--" + boundary + "\r\nContent-Type: text/plain; charset=utf-8\r\n\r\n";
    body += lines(text);
    body += "--" + boundary + "\r\nContent-Type: text/html; charset=utf-8\r\n\r\n";
    body += "<html><body><h2>Spring build</h2><p>Highlights:</p><ul><li><b>Secure "
            "connections</b></li><li>Faster downloads</li><li>A new storage pane</li></ul>"
            "<p>Full notes at <a href=\"https://example.org/release/spring\">example.org</a>."
            "</p></body></html>\r\n";
    body += "--" + boundary + "--\r\n";
    return head + "\r\n" + body;
}

std::string binaryHead(size_t index, const std::string &subject) {
    std::string head = "Path: demo.invalid!not-for-mail\r\n";
    head += std::string("From: ") + kAuthors[index % 5] + "\r\n";
    head += std::string("Newsgroups: ") + DEMOARTICLES::kBinaries + "\r\n";
    head += "Subject: " + subject + "\r\n";
    head += "Date: " + dateOf(index) + "\r\n";
    head += "Message-ID: " + messageId(DEMOARTICLES::kBinaries, index) + "\r\n";
    return head;
}

// A plain-text file long enough to need three articles.
std::string notes() {
    std::string text = "Notes for the demo group\n========================\n\n";
    for (int i = 1; i <= 120; ++i)
        text += "Line " + std::to_string(i) +
                ": a file split into three parts, joined again when it is decoded.\n";
    return text;
}

std::string crcHex(const std::string &data) {
    char text[9];
    snprintf(text, sizeof text, "%08x",
             unsigned(crc32(0, reinterpret_cast<const Bytef *>(data.data()), uInt(data.size()))));
    return text;
}

// One part of a yEnc posting. A dot that begins a line is left as it is, as many encoders
// do: the news server's dot-stuffing carries it, and the reader's download undoes that.
std::string yencPart(const std::string &data, size_t part, size_t parts) {
    const size_t per = (data.size() + parts - 1) / parts;
    const size_t begin = part * per;
    const std::string chunk = data.substr(begin, per);
    std::string body = "=ybegin part=" + std::to_string(part + 1) +
                       " total=" + std::to_string(parts) +
                       " line=128 size=" + std::to_string(data.size()) +
                       " name=" + DEMOARTICLES::kYencName + "\r\n";
    body += "=ypart begin=" + std::to_string(begin + 1) +
            " end=" + std::to_string(begin + chunk.size()) + "\r\n";
    std::string line;
    for (char byte : chunk) {
        unsigned char c = static_cast<unsigned char>(byte + 42);
        if (c == 0 || c == '\n' || c == '\r' || c == '=') {
            line += '=';
            c = static_cast<unsigned char>(c + 64);
        }
        line += char(c);
        if (line.size() >= 128) {
            body += line + "\r\n";
            line.clear();
        }
    }
    if (!line.empty())
        body += line + "\r\n";
    body += "=yend size=" + std::to_string(chunk.size()) + " part=" + std::to_string(part + 1) +
            " pcrc32=" + crcHex(chunk) + (part + 1 == parts ? " crc32=" + crcHex(data) : "") +
            "\r\n";
    return body;
}

void chunk(std::string *png, const char *type, const std::string &data) {
    auto put32 = [png](uint32_t value) {
        for (int shift = 24; shift >= 0; shift -= 8)
            png->push_back(char((value >> shift) & 0xFF));
    };
    put32(uint32_t(data.size()));
    std::string typed = std::string(type) + data;
    png->append(typed);
    put32(uint32_t(crc32(0, reinterpret_cast<const Bytef *>(typed.data()), uInt(typed.size()))));
}

} // namespace

std::string DEMOARTICLES::picture() {
    constexpr int kWidth = 96;
    constexpr int kHeight = 64;
    std::string raw;
    for (int y = 0; y < kHeight; ++y) {
        raw.push_back('\0'); // no filter
        for (int x = 0; x < kWidth; ++x) {
            bool ring = ((x - 48) * (x - 48) + (y - 32) * (y - 32)) / 60 % 2 == 0;
            raw.push_back(char(ring ? 40 + x : 230));
            raw.push_back(char(ring ? 90 + y : 200));
            raw.push_back(char(ring ? 200 : 120 + x));
        }
    }
    uLongf size = compressBound(uLong(raw.size()));
    std::string packed(size, '\0');
    compress(reinterpret_cast<Bytef *>(packed.data()), &size,
             reinterpret_cast<const Bytef *>(raw.data()), uLong(raw.size()));
    packed.resize(size);
    std::string png = "\x89PNG\r\n\x1A\n";
    std::string header;
    for (uint32_t value : {uint32_t(kWidth), uint32_t(kHeight)})
        for (int shift = 24; shift >= 0; shift -= 8)
            header.push_back(char((value >> shift) & 0xFF));
    header += std::string("\x08\x02\x00\x00\x00", 5); // 8 bits, RGB, no interlace
    chunk(&png, "IHDR", header);
    chunk(&png, "IDAT", packed);
    chunk(&png, "IEND", "");
    return png;
}

std::string DEMOARTICLES::yencFile() {
    // Every byte value, and runs of the byte that encodes as "." so that lines begin with dots.
    std::string data;
    for (int round = 0; round < 60; ++round) {
        for (int value = 0; value < 256; ++value)
            data += char(value);
        data += std::string(size_t(round % 7 + 1), '\x04');
    }
    return data;
}

std::vector<DEMOARTICLES::GROUP> DEMOARTICLES::groups() {
    GROUP discussion{kDiscussion, {}};
    for (size_t i = 0; i < kPostCount; ++i)
        discussion.articles.push_back(discussionPost(i));

    GROUP binaries{kBinaries, {}};
    const std::string boundary = "=_demo_mixed";
    std::string picturePost =
        binaryHead(0, "A picture for the demo") + "MIME-Version: 1.0\r\n" +
        "Content-Type: multipart/mixed; boundary=\"" + boundary + "\"\r\n\r\n" + "--" + boundary +
        "\r\nContent-Type: text/plain; charset=us-ascii\r\n\r\n" +
        "Here is a small picture. Use Attachment > View All to see it.\r\n\r\n" + "--" + boundary +
        "\r\nContent-Type: image/png; name=\"demo-picture.png\"\r\n" +
        "Content-Transfer-Encoding: base64\r\n" +
        "Content-Disposition: attachment; filename=\"demo-picture.png\"\r\n\r\n" +
        ARTICLEGEN::base64(picture(), 76) + "\r\n--" + boundary + "--\r\n";
    binaries.articles.push_back(picturePost);
    std::vector<std::string> encoded = ARTICLEGEN::uuencode(notes(), "demo-notes.txt");
    const size_t per = (encoded.size() + 2) / 3;
    for (size_t part = 0; part < 3; ++part) {
        std::string body;
        for (size_t i = part * per; i < encoded.size() && i < (part + 1) * per; ++i)
            body += encoded[i] + "\r\n";
        binaries.articles.push_back(
            binaryHead(part + 1, "demo-notes.txt (" + std::to_string(part + 1) + "/3)") + "\r\n" +
            body);
    }
    const std::string yenc = yencFile();
    for (size_t part = 0; part < kYencParts; ++part)
        binaries.articles.push_back(binaryHead(4 + part, std::string("\"") + kYencName +
                                                             "\" yEnc (" +
                                                             std::to_string(part + 1) + "/" +
                                                             std::to_string(kYencParts) + ")") +
                                    "\r\n" + yencPart(yenc, part, kYencParts));
    return {discussion, binaries};
}
