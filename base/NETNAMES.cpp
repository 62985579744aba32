// Host names, dotted quads and the local host and domain names: pure text, no sockets.
#include "base/NETNAMES.h"

#include <cstdio>
#include <cstring>
#include <strings.h>
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

uint32_t NETNAMES::inetAddr(const char *text) {
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

void NETNAMES::inetStr(char *out, uint32_t address, bool padded) {
    snprintf(out, 16, padded ? "%03u.%03u.%03u.%03u" : "%u.%u.%u.%u", (address >> 24) & 0xFF,
             (address >> 16) & 0xFF, (address >> 8) & 0xFF, address & 0xFF);
}

bool NETNAMES::hostnameCheck(const char *name) {
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

void NETNAMES::hostnameClean(char *name, unsigned long size) {
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

bool NETNAMES::localHost(char *out, unsigned long size) {
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

bool NETNAMES::localDomain(char *out, unsigned long size) {
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

bool NETNAMES::localFQDN(char *out, unsigned long size) {
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
