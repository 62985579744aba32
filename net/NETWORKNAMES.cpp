// Host names, dotted quads, the local domain and the network error texts: no sockets kept.
#include "net/NETWORK.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <netdb.h>
#include <netinet/in.h>
#include <strings.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

constexpr const char *kResolvConf = "/etc/resolv.conf";
constexpr size_t kResolvLineMax = 1000;

bool isAsciiLetter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}
bool isAsciiDigit(char c) {
    return c >= '0' && c <= '9';
}
bool isAsciiBlank(char c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}
bool isHostChar(char c) {
    return isAsciiLetter(c) || isAsciiDigit(c) || c == '-' || c == '.';
}

// Copies text into out of the given size, cut, always terminated when size is not 0.
void copyCut(char *out, unsigned long size, const char *text) {
    if (size == 0) {
        return;
    }
    size_t length = strlen(text);
    if (length > size - 1) {
        length = size - 1;
    }
    memcpy(out, text, length);
    out[length] = 0;
}

// The first word after a "domain" or "search" keyword of the resolver configuration; a later
// line wins, as the resolver itself lets the last of them decide.
bool resolverDomain(char *out, size_t size) {
    out[0] = 0;
    FILE *file = fopen(kResolvConf, "r");
    if (file == nullptr) {
        return false;
    }
    char line[kResolvLineMax + 1];
    bool found = false;
    while (fgets(line, sizeof line, file) != nullptr) {
        char *save = nullptr;
        const char *key = strtok_r(line, " \t\r\n", &save);
        if (key == nullptr || (strcmp(key, "domain") != 0 && strcmp(key, "search") != 0)) {
            continue;
        }
        const char *value = strtok_r(nullptr, " \t\r\n", &save);
        if (value == nullptr) {
            continue;
        }
        copyCut(out, size, value);
        found = true;
    }
    fclose(file);
    return found;
}

} // namespace

NETWORK::ERROR NETWORK::addrFind(uint32_t *address, const char *name) {
    *address = 0;
    if (name == nullptr) {
        return kAddressUnavailable;
    }
    char copy[kNameMax + 1];
    copyCut(copy, sizeof copy, name);
    const char *begin = copy;
    while (isAsciiBlank(*begin)) {
        ++begin;
    }
    size_t length = strlen(begin);
    while (length > 0 && isAsciiBlank(begin[length - 1])) {
        --length;
    }
    char trimmed[kNameMax + 1];
    memcpy(trimmed, begin, length);
    trimmed[length] = 0;

    // Only the lower-case spelling is taken as the loop-back name; others ask the resolver.
    const char *lookup = strcmp(trimmed, "localhost") == 0 ? "127.0.0.1" : trimmed;
    uint32_t found = inetAddr(lookup);
    if (found == 0 && lookup[0] != 0) {
        addrinfo hints{};
        hints.ai_family = AF_INET;
        hints.ai_socktype = SOCK_STREAM;
        addrinfo *result = nullptr;
        if (getaddrinfo(lookup, nullptr, &hints, &result) == 0 && result != nullptr) {
            const auto *in = reinterpret_cast<const sockaddr_in *>(result->ai_addr);
            found = ntohl(in->sin_addr.s_addr);
        }
        if (result != nullptr) {
            freeaddrinfo(result);
        }
    }
    if (found == 0) {
        return kAddressUnavailable;
    }
    *address = found;
    return kOk;
}

NETWORK::ERROR NETWORK::addrFind(char *name, uint32_t address) {
    name[0] = 0;
    if (address == 0) {
        return kAddressUnavailable;
    }
    sockaddr_in in{};
    in.sin_family = AF_INET;
    in.sin_addr.s_addr = htonl(address);
    char host[NI_MAXHOST];
    if (getnameinfo(reinterpret_cast<const sockaddr *>(&in), sizeof in, host, sizeof host, nullptr,
                    0, NI_NAMEREQD) != 0) {
        return kAddressUnavailable;
    }
    copyCut(name, kReverseNameMax + 1, host);
    return kOk;
}

int NETWORK::addrCmp(const ADDR *a, const ADDR *b) {
    if (a->address != b->address) {
        return a->address < b->address ? -1 : 1;
    }
    if (a->port != b->port) {
        return a->port < b->port ? -1 : 1;
    }
    return 0;
}

uint32_t NETWORK::inetAddr(const char *text) {
    if (text == nullptr || strlen(text) > kDottedQuadMax) {
        return 0;
    }
    uint32_t address = 0;
    const char *p = text;
    for (int group = 0; group < 4; ++group) {
        if (group > 0) {
            if (*p != '.') {
                return 0;
            }
            ++p;
        }
        unsigned value = 0;
        int digits = 0;
        while (isAsciiDigit(*p)) {
            if (++digits > 3) {
                return 0;
            }
            value = value * 10 + unsigned(*p - '0');
            ++p;
        }
        if (digits == 0 || value > 255) {
            return 0;
        }
        address = (address << 8) | value;
    }
    return *p == 0 ? address : 0;
}

void NETWORK::inetStr(char *out, uint32_t address, bool padded) {
    snprintf(out, 16, padded ? "%03u.%03u.%03u.%03u" : "%u.%u.%u.%u", (address >> 24) & 0xFF,
             (address >> 16) & 0xFF, (address >> 8) & 0xFF, address & 0xFF);
}

void NETWORK::addrStr(char *out, const ADDR *addr, bool padded) {
    char quad[16];
    inetStr(quad, addr->address, padded);
    snprintf(out, 22, padded ? "%s:%05u" : "%s:%u", quad, unsigned(addr->port));
}

bool NETWORK::hostnameCheck(const char *name) {
    if (name == nullptr || name[0] == 0) {
        return false;
    }
    size_t length = strlen(name);
    if (length > kHostnameMax) {
        return false;
    }
    if (inetAddr(name) != 0) {
        return true;
    }
    if (isAsciiDigit(name[0]) && isAsciiDigit(name[length - 1])) {
        return false;
    }
    if (name[0] == '.' || name[length - 1] == '.') {
        return false;
    }
    for (size_t i = 0; i < length; ++i) {
        if (!isHostChar(name[i]) || (name[i] == '.' && name[i + 1] == '.')) {
            return false;
        }
    }
    return length > 1 || isAsciiLetter(name[0]);
}

void NETWORK::hostnameClean(char *name, unsigned long size) {
    if (size == 0) {
        return;
    }
    char kept[kCleanKeepMax + 1];
    size_t count = 0;
    for (const char *p = name; *p != 0 && count < kCleanKeepMax; ++p) {
        if (!isHostChar(*p) || (*p == '.' && count > 0 && kept[count - 1] == '.')) {
            continue;
        }
        kept[count++] = *p;
    }
    size_t begin = 0;
    while (begin < count && kept[begin] == '.') {
        ++begin;
    }
    while (count > begin && kept[count - 1] == '.') {
        --count;
    }
    kept[count] = 0;
    copyCut(name, size < kCleanOutMax ? size : kCleanOutMax, kept + begin);
}

bool NETWORK::localHost(char *out, unsigned long size) {
    char host[kLocalPartMax];
    bool ok = gethostname(host, sizeof host) == 0;
    if (!ok) {
        host[0] = 0;
    }
    host[sizeof host - 1] = 0;
    hostnameClean(host, sizeof host);
    copyCut(out, size, host[0] != 0 ? host : kUnknownHost);
    return ok;
}

bool NETWORK::localDomain(char *out, unsigned long size) {
    char domain[kLocalPartMax];
    bool found = resolverDomain(domain, sizeof domain);
    if (found) {
        hostnameClean(domain, sizeof domain);
    }
    if (domain[0] == 0) {
        char host[kLocalPartMax];
        found = gethostname(host, sizeof host) == 0;
        host[sizeof host - 1] = 0;
        const char *dot = found ? strchr(host, '.') : nullptr;
        copyCut(domain, sizeof domain, dot != nullptr ? dot + 1 : "");
        hostnameClean(domain, sizeof domain);
        found = domain[0] != 0;
    }
    copyCut(out, size, domain[0] != 0 ? domain : kUnknownDomain);
    return found;
}

bool NETWORK::localFQDN(char *out, unsigned long size) {
    char host[kLocalPartMax];
    char domain[kLocalPartMax];
    bool hostOk = localHost(host, sizeof host);
    bool domainOk = localDomain(domain, sizeof domain);
    size_t hostLength = strlen(host);
    size_t domainLength = strlen(domain);
    char full[2 * kLocalPartMax];
    if (hostLength >= domainLength && strcasecmp(host + hostLength - domainLength, domain) == 0) {
        copyCut(full, sizeof full, host);
    } else {
        snprintf(full, sizeof full, "%s.%s", host, domain);
    }
    copyCut(out, size, full);
    return hostOk && domainOk;
}

const char *NETWORK::errorStr(ERROR error) {
    static const char *const kTexts[] = {
        "Successful network operation",
        "Network address is already in use",
        "Network address is unavailable",
        "Already connected",
        "Network operation cancelled",
        "Connection has been closed",
        "Connection refused",
        "Error opening network socket",
        "Error closing network socket",
        "Out of memory during network operation",
        "Network hardware failure",
        "TCP/IP network not available",
        "No data available",
        "Error receiving network data",
        "Timed out waiting for response",
        "Error transmitting network data",
    };
    if (error < sizeof kTexts / sizeof kTexts[0]) {
        return kTexts[error];
    }
    return "Unknown network error";
}

NETWORK::ERROR NETWORK::errorGet(ERROR fallback) {
    return errorMap(errno, fallback);
}

NETWORK::ERROR NETWORK::errorMap(int number, ERROR fallback) {
    switch (number) {
    case EADDRINUSE:
        return kAddressInUse;
    case EADDRNOTAVAIL:
    case -1:
        return kAddressUnavailable;
    case EISCONN:
    case EALREADY:
        return kAlreadyConnected;
    case ECONNABORTED:
    case ECONNRESET:
    case ENOTCONN:
    case ESHUTDOWN:
    case EPIPE:
        return kClosed;
    case ECONNREFUSED:
        return kRefused;
    case ENOBUFS:
        return kNoMemory;
    case ENETDOWN:
    case ENETUNREACH:
    case EHOSTUNREACH:
    case EHOSTDOWN:
    case EBADF:
    case EACCES:
        return kHardware;
    case EINPROGRESS:
    case EWOULDBLOCK:
        return kNoData;
    case ETIMEDOUT:
        return kTimedOut;
    default:
        return fallback;
    }
}
