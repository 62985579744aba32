// Name and address look-ups through the resolver, and the network error texts.
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

bool isAsciiBlank(char c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
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

void NETWORK::addrStr(char *out, const ADDR *addr, bool padded) {
    char quad[16];
    inetStr(quad, addr->address, padded);
    snprintf(out, 22, padded ? "%s:%05u" : "%s:%u", quad, unsigned(addr->port));
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
        "Secure connection could not be established",
        "Server certificate has expired or is not yet valid",
        "Server certificate was issued for another host name",
        "Server certificate was issued by an unknown authority",
        "Server certificate is self-signed",
        "Server certificate is not trusted",
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
