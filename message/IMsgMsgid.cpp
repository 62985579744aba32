// Message-ID checks and generation.
#include "message/IMsg.h"

#include <atomic>

#include "base/NETNAMES.h"
#include "base/TIMEBASE.h"
#include "base/TextFormat.h"

namespace {

bool isUpperHex(char c) {
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'F');
}

// The current time in microseconds, made strictly increasing within the process so that
// two IDs generated in the same microsecond still differ.
int64_t uniqueTime() {
    static std::atomic<int64_t> last{0};
    int64_t now = TIMEBASE::timeGet();
    int64_t previous = last.load();
    int64_t next;
    do {
        next = now > previous ? now : previous + 1;
    } while (!last.compare_exchange_weak(previous, next));
    return next;
}

} // namespace

bool IMsg::MsgidChar(char c) {
    return c != '\0' && c != ' ' && c != '\t' && c != '\n' && c != '<' && c != '>';
}

bool IMsg::MsgidCheck(std::string_view id) {
    if (id.size() < kMsgidMin || id.size() > kMsgidMax)
        return false;
    if (id.front() != '<' || id.back() != '>' || id[1] == '@' || id[id.size() - 2] == '@')
        return false;
    size_t ats = 0;
    for (size_t i = 1; i + 1 < id.size(); i++) {
        if (!MsgidChar(id[i]))
            return false;
        if (id[i] == '@')
            ats++;
    }
    return ats == 1;
}

void IMsg::MsgidGen(std::string &out, bool fallback) {
    std::string time = textFormat("%016llX", static_cast<unsigned long long>(uniqueTime()));
    if (fallback) {
        out = "<BG" + time + "@" + kFallbackDomain + ">";
        return;
    }
    char fqdn[NETNAMES::kLocalPartMax * 2 + 2] = {};
    NETNAMES::localFQDN(fqdn, sizeof(fqdn));
    std::string host(fqdn);
    if (host.size() > kFQDNMax)
        host.resize(kFQDNMax);
    if (host.empty())
        host = NETNAMES::kUnknownDomain;
    out = "<VM" + time + "@" + host + ">";
}

bool IMsg::MsgidGenCheck(std::string_view id) {
    if (!MsgidCheck(id) || id.size() < kMsgidGenMin)
        return false;
    if (id[1] != 'V' || id[2] != 'M' || id[19] != '@')
        return false;
    for (size_t i = 3; i <= 18; i++) {
        if (!isUpperHex(id[i]))
            return false;
    }
    return true;
}
