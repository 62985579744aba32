// Fuzz target: the base64 and uuencode decoders and the uuencode line recognisers.
#include <cstdint>
#include <string>

#include "message/BINTEXT.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    std::string text(reinterpret_cast<const char *>(data), size);
    // The decoders read NUL-terminated texts; the first byte picks a small output buffer
    // now and then, so the buffer guards are exercised too.
    size_t limit = size > 0 && data[0] < 16 ? data[0] : 4096;
    std::string out(limit, '\0');
    for (bool binary : {false, true}) {
        size_t n = BINTEXT::base64Decode(text.c_str(), out.data(), limit, binary);
        if (limit > 0 && n >= limit)
            __builtin_trap();
        n = BINTEXT::uuDecode(text.c_str(), out.data(), limit, binary);
        if (limit > 0 && n >= limit)
            __builtin_trap();
    }
    std::string encoded(size * 2 + 16, '\0');
    size_t n = BINTEXT::base64Encode(text.data(), size, encoded.data(), encoded.size(), true);
    std::string back(size + 16, '\0');
    size_t m = BINTEXT::base64Decode(encoded.c_str(), back.data(), back.size(), true);
    if (n == 0 ? size != 0 : (m != size || back.compare(0, size, text) != 0))
        __builtin_trap(); // a round trip must give the bytes back
    std::string fileName;
    BINTEXT::uuLineStart(text, &fileName);
    if (fileName.find('/') != std::string::npos)
        __builtin_trap();
    BINTEXT::uuLineData(text);
    BINTEXT::uuLineStop(text);
    return 0;
}
