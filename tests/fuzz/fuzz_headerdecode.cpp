// Fuzz target: encoded words, From splitting, parameters and References normalisation.
#include <cstdint>
#include <string>

#include "message/HdrBuf.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    std::string text(reinterpret_cast<const char *>(data), size);
    for (IMsg::Charset charset : {IMsg::CharsetISO1, IMsg::CharsetUTF8, IMsg::CharsetKOI8R}) {
        std::string out;
        HdrBuf::HeaderDecode(out, text, charset);
        if (out.empty())
            __builtin_trap(); // an empty result is always "<None>"
    }
    std::string author, email, value;
    HdrBuf::SplitFrom(text, author, email);
    if (author.empty() || email.empty())
        __builtin_trap();
    HdrBuf::subval(text, "boundary", value);
    HdrBuf::subvalGet(text, value);
    std::string refs = HdrBuf::referencesNormalise(text);
    std::string created;
    HdrBuf::refCreate(text, "<parent@example.com>", created);
    std::string encoded;
    HdrBuf::hdrEncode(encoded, text, IMsg::CharsetISO2);
    HdrBuf header;
    header.Add(text);
    header.End();
    return 0;
}
