// Fills a newsgroup of a news server with generated articles, through its transfer port.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "tools/innfill/ARTICLEGEN.h"
#include "tools/innfill/STREAMFEED.h"

namespace {

void usage() {
    fprintf(stderr, "usage: innfill --port PORT --group GROUP --count N [--host HOST]\n"
                    "               [--first INDEX] [--seed SEED] [--domain DOMAIN]\n"
                    "Offers articles INDEX .. INDEX+N-1 to the server's streaming port\n"
                    "(the server must list this host as a peer that may stream).\n");
}

bool number(const char *text, unsigned long long *out) {
    char *end = nullptr;
    errno = 0;
    *out = strtoull(text, &end, 10);
    return errno == 0 && end != text && *end == 0;
}

} // namespace

int main(int argc, char **argv) {
    std::string host = "127.0.0.1";
    std::string group;
    std::string domain = "fill.invalid";
    unsigned long long port = 0;
    unsigned long long count = 0;
    unsigned long long first = 0;
    unsigned long long seed = 1;
    for (int i = 1; i < argc; ++i) {
        bool hasValue = i + 1 < argc;
        const char *value = hasValue ? argv[i + 1] : "";
        bool ok = hasValue;
        if (strcmp(argv[i], "--host") == 0) {
            host = value;
        } else if (strcmp(argv[i], "--group") == 0) {
            group = value;
        } else if (strcmp(argv[i], "--domain") == 0) {
            domain = value;
        } else if (strcmp(argv[i], "--port") == 0) {
            ok = ok && number(value, &port) && port > 0 && port < 65536;
        } else if (strcmp(argv[i], "--count") == 0) {
            ok = ok && number(value, &count);
        } else if (strcmp(argv[i], "--first") == 0) {
            ok = ok && number(value, &first);
        } else if (strcmp(argv[i], "--seed") == 0) {
            ok = ok && number(value, &seed) && seed <= 0xFFFFFFFFull;
        } else {
            ok = false;
        }
        if (!ok) {
            usage();
            return 2;
        }
        ++i;
    }
    if (port == 0 || group.empty()) {
        usage();
        return 2;
    }

    ARTICLEGEN generator(group, uint32_t(seed), domain);
    STREAMFEED feed;
    std::string error;
    size_t accepted = 0;
    size_t refused = 0;
    if (!feed.open(host, uint16_t(port), &error) ||
        !feed.take(generator, size_t(first), size_t(count), &accepted, &refused, &error)) {
        fprintf(stderr, "innfill: %s\n", error.c_str());
        return 1;
    }
    feed.close();
    printf("%zu accepted, %zu refused\n", accepted, refused);
    return 0;
}
