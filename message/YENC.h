// yEnc, the encoding of nearly every binary posted to Usenet: its keyword lines and its data.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

// A yEnc file is "=ybegin" (part, total, line, size, name), in a multi-part posting "=ypart"
// (begin and end offsets, from 1), data lines, then "=yend" (size, part, pcrc32, crc32). A
// data byte is the original plus 42; the critical ones (NUL, LF, CR, "=", and whatever an
// encoder chose) are written as "=" and the byte plus 64 more.
class YENC {
public:
    enum LINE {
        kData,
        kBegin,
        kPart,
        kEnd,
    };
    // What the keyword lines say; a field a line does not carry is left as it was.
    struct HEADER {
        uint32_t part = 0; // 0: a single-part file
        uint32_t total = 0;
        uint64_t size = 0;  // of the whole file
        uint64_t begin = 0; // of this part, from 1
        uint64_t end = 0;
        uint64_t partSize = 0; // "=yend size=": this part's bytes
        uint32_t pcrc32 = 0;
        uint32_t crc32 = 0;
        bool hasPart = false;
        bool hasPcrc32 = false;
        bool hasCrc32 = false;
        std::string name; // "=ybegin name=": the rest of the line, blanks kept
    };

    static LINE kind(std::string_view line);
    // Reads the fields of a keyword line into header.
    static void parse(std::string_view line, HEADER *header);
    // Decodes a data line into out, which has room for line.size() bytes; returns the bytes.
    // Line ends are ignored; a "=" at the end of the line escapes nothing.
    static size_t decode(std::string_view line, char *out);
};
