// Fuzz target: quoted-printable body lines and character-set conversion both ways.
#include <cstdint>
#include <string>

#include "message/IMsg.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size == 0)
        return 0;
    size_t sets = 0;
    while (IMsg::indexCharset[sets].text != nullptr)
        sets++;
    auto charset = static_cast<IMsg::Charset>(IMsg::indexCharset[data[0] % sets].value);
    std::string line(reinterpret_cast<const char *>(data + 1), size - 1);
    std::string out;
    IMsg::QuoteDecode(charset, out, line);
    if (out.size() > IMsg::kQuoteMax * 4)
        __builtin_trap();
    int32_t state = 0;
    std::string converted;
    IMsg::CharsetConvert(IMsg::CharsetUTF8, line, charset, converted, &state);
    IMsg::CharsetConvert(IMsg::CharsetUTF8, line, charset, converted, &state);
    IMsg::CharsetConvert(charset, line, IMsg::CharsetUTF8, converted);
    std::string base;
    uint32_t part = 0, total = 0;
    if (IMsg::AttachSubject(line, base, part, total) && (part < 1 || part > total))
        __builtin_trap();
    IMsg::NewsCheck(line);
    IMsg::MsgidCheck(line);
    size_t start = 0, end = 0;
    if (IMsg::EmailFind(line, start, end) && (start > end || end >= line.size()))
        __builtin_trap();
    return 0;
}
