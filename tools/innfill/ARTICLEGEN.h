// Generated news articles for tests and benchmarks: threads, encoded subjects, attachments.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

// Articles come in blocks of ten, each made from the block number, the seed and the group
// alone, so any article can be made again without the ones before it:
//   0-4  a thread: 0 starts it, each of 1-4 answers an earlier one of the block (References)
//   5    a text in an 8-bit character set with a matching Content-Type
//   6    a MIME multipart message with a base64 attachment
//   7-9  one uuencoded file split over three articles, "name (1/3)" to "(3/3)"
// The subject of a block is in one of several character sets, as an encoded word.
class ARTICLEGEN {
public:
    static constexpr size_t kBlock = 10;
    static constexpr size_t kSplitParts = 3;
    static constexpr int64_t kDateBase = 1'000'000'000; // seconds: 2001-09-09 01:46:40 UTC

    explicit ARTICLEGEN(std::string group, uint32_t seed = 1, std::string domain = "fill.invalid");

    // The whole article (header, empty line, body) with CR LF line ends, not dot-stuffed.
    std::string article(size_t index) const;
    // "<fill.SEED.INDEX@DOMAIN>".
    std::string messageId(size_t index) const;
    // The References line's value, empty for an article that starts a thread.
    std::string references(size_t index) const;
    // The subject as it appears decoded, in UTF-8 (what a reader should show).
    std::string subjectText(size_t index) const;
    // The original bytes of the attachment the article carries (for 7-9 the whole file),
    // empty for an article without one; and the file name given for it.
    std::string attachment(size_t index) const;
    std::string attachmentName(size_t index) const;

    // Base64 of data in lines of lineLength characters (0: one line), CR LF between them.
    static std::string base64(const std::string &data, size_t lineLength);
    // The uuencoded lines of data, "begin" and "end" included.
    static std::vector<std::string> uuencode(const std::string &data, const std::string &name);

private:
    std::string _subjectHeader(size_t index) const;
    size_t _parent(size_t index) const;
    uint32_t _random(size_t index, uint32_t salt) const;

    std::string fGroup;
    uint32_t fSeed;
    std::string fDomain;
};
