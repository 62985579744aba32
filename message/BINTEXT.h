// Base64 and uuencode: the two binary-to-text codecs, with the uuencode line recognisers.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

class BINTEXT {
public:
    // Value of a character outside the alphabet of either codec.
    static constexpr uint8_t kInvalid = 100;
    // The encoder stops this many bytes short of the buffer's end so that the last group
    // and the terminator always fit; the decoders stop once they have passed that mark.
    static constexpr size_t kGuard = 6;

    // Encodes `length` bytes (binary) or the NUL-terminated text (not binary, length
    // unused). No line breaks are inserted. The output is always NUL-terminated when size
    // is at least 1. Returns the number of characters written.
    static size_t base64Encode(const char *input, size_t length, char *output, size_t size,
                               bool binary);
    // Decodes a NUL-terminated text, skipping anything outside the alphabet. In text mode
    // bytes below 32 become spaces and the output is NUL-terminated. Returns the byte count.
    static size_t base64Decode(const char *input, char *output, size_t size, bool binary);
    // 0-63, or kInvalid (also for the pad character).
    static uint8_t base64DecodeChar(char c);

    // Decodes one uuencoded line. The last group is written whole, so the count can exceed
    // the line's declared count by up to two bytes. Text mode as in base64Decode.
    static size_t uuDecode(const char *line, char *output, size_t size, bool binary);
    // 0-63, or kInvalid.
    static uint8_t uuDecodeChar(char c);

    // A "begin <mode> <name>" line. With fileName given, the name must survive the shared
    // file-name repair, and the repaired name is stored there (emptied first).
    static bool uuLineStart(std::string_view line, std::string *fileName);
    // A data line whose characters decode to exactly its declared count.
    static bool uuLineData(std::string_view line);
    // An "end" line.
    static bool uuLineStop(std::string_view line);

private:
    static size_t _emit(char *output, size_t count, uint32_t group, int bytes, bool binary);
    // Both decoders: values four at a time into three bytes, what valueOf calls kInvalid
    // skipped, a trailing group of two or three values giving one or two bytes. Stops once
    // the output has passed the guard mark, or after a group that brings it to `stop`.
    static size_t _decode(const char *text, uint8_t (*valueOf)(char), char *output, size_t size,
                          bool binary, size_t stop);
};
