// Benchmark of the news session: pipelined HEAD commands against INN on loopback, and the
// processor time spent waiting for a silent server.
#include <chrono>
#include <cstdio>
#include <cstring>
#include <string>
#include <sys/resource.h>

#include "app/SETTINGS.h"
#include "base/STR.h"
#include "net/NETWORK.h"
#include "net/NNTP.h"
#include "storage/BARNINFO.h"
#include "tests/support/FAKENNTP.h"
#include "tools/innfill/INNSERVER.h"

namespace {

constexpr size_t kArticles = 1'000;
constexpr size_t kInFlight = 10;
constexpr int64_t kSilentWait = 5'000'000;
constexpr const char *kGroup = "vw.test.big";

using CLOCK = std::chrono::steady_clock;

double secondsSince(CLOCK::time_point start) {
    return std::chrono::duration<double>(CLOCK::now() - start).count();
}

double cpuSeconds() {
    rusage usage{};
    getrusage(RUSAGE_THREAD, &usage);
    return double(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
           double(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

void printError(const char *text) {
    fprintf(stderr, "error: %s\n", text);
}

BARN::NODE serverNode(uint16_t port, int64_t timeout) {
    BARN::NODE node{};
    STR::copy(node.name, "Bench", sizeof node.name);
    node.type = NODETYPE::Server;
    STR::copy(node.server.hostname, "127.0.0.1", sizeof node.server.hostname);
    node.server.port = port;
    node.server.timeout = timeout;
    return node;
}

// Reads one HEAD answer: the status line and, when it is 221, the header up to the dot.
bool headAnswer(NNTP &session, size_t *lines) {
    char line[1001];
    unsigned long code = session.response("retrieve message from", false, line, sizeof line);
    if (code != 221) {
        return false;
    }
    while (session.read(line, sizeof line)) {
        if (strcmp(line, ".") == 0) {
            return true;
        }
        ++*lines;
    }
    return false;
}

bool pipelined(std::string *out) {
    INNSERVER inn;
    if (!inn.start()) {
        fprintf(stderr, "INN: %s\n", inn.error().c_str());
        return false;
    }
    size_t accepted = 0;
    std::string error;
    if (!inn.fill(kGroup, 0, kArticles, 1, &accepted, &error)) {
        fprintf(stderr, "fill: %s\n", error.c_str());
        return false;
    }
    BARN::NODE node = serverNode(inn.readerPort(), 30'000'000);
    NNTP session(&node, printError, nullptr);
    char command[64];
    snprintf(command, sizeof command, "GROUP %s", kGroup);
    if (!session.connect() || !session.send(command) ||
        session.response("select newsgroup", true) != 211) {
        return false;
    }
    CLOCK::time_point start = CLOCK::now();
    size_t sent = 0;
    size_t answered = 0;
    size_t lines = 0;
    while (answered < kArticles) {
        while (sent < kArticles && sent - answered < kInFlight) {
            snprintf(command, sizeof command, "HEAD %zu", sent + 1);
            if (!session.send(command)) {
                return false;
            }
            ++sent;
        }
        if (!headAnswer(session, &lines)) {
            return false;
        }
        ++answered;
    }
    double seconds = secondsSince(start);
    char text[200];
    snprintf(text, sizeof text,
             "%zu HEAD commands, %zu in flight, INN on loopback: %.3f s (%zu header lines)\n",
             kArticles, kInFlight, seconds, lines);
    *out += text;
    return true;
}

bool silentWait(std::string *out) {
    FAKENNTP fake;
    fake.play("S: 200 hello\nC: GROUP a.b\nH");
    BARN::NODE node = serverNode(fake.port(), kSilentWait);
    NNTP session(&node, nullptr, nullptr);
    if (!session.connect() || !session.send("GROUP a.b")) {
        return false;
    }
    double cpuStart = cpuSeconds();
    CLOCK::time_point start = CLOCK::now();
    session.response("select newsgroup", true);
    double seconds = secondsSince(start);
    double cpu = cpuSeconds() - cpuStart;
    char text[200];
    snprintf(text, sizeof text,
             "Waiting %.2f s for a silent server: %.3f s of processor time (%.2f %%)\n", seconds,
             cpu, 100.0 * cpu / seconds);
    *out += text;
    fake.stop();
    return true;
}

} // namespace

int main() {
    NETWORK::start();
    SETTINGS::storage.transferLogging = SETTINGS::kLogOff;
    std::string results;
    bool ok = pipelined(&results) && silentWait(&results);
    NETWORK::stop();
    printf("%s", results.c_str());
    if (!ok) {
        return 1;
    }
    std::string path = std::string(VW_BENCH_RESULTS) + "/network.txt";
    FILE *out = fopen(path.c_str(), "w");
    if (out == nullptr) {
        fprintf(stderr, "cannot write %s\n", path.c_str());
        return 1;
    }
    fputs(results.c_str(), out);
    fclose(out);
    return 0;
}
