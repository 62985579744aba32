// Benchmark of the storage tree and the reaper: loading a store of 20 servers with 100
// newsgroups each, and expiring 10,000 stale messages with the reaper's waits taken out.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <sys/statfs.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "app/SETTINGS.h"
#include "base/STR.h"
#include "base/TEXTFILE.h"
#include "base/THREAD.h"
#include "base/TIMEBASE.h"
#include "message/VMSG.h"
#include "storage/BARN.h"
#include "storage/BARNTHREAD.h"

namespace {
constexpr int kServers = 20;
constexpr int kGroups = 100;
constexpr int kMessages = 10'000;
constexpr int64_t kAhead = 11LL * 86'400'000'000; // past the default ten days

using CLOCK = std::chrono::steady_clock;

double secondsSince(CLOCK::time_point start) {
    return std::chrono::duration<double>(CLOCK::now() - start).count();
}

int64_t aheadWall() {
    struct timespec now {};
    clock_gettime(CLOCK_REALTIME, &now);
    return int64_t(now.tv_sec) * 1'000'000 + now.tv_nsec / 1000 + kAhead;
}

template <typename PREDICATE>
void waitFor(PREDICATE predicate) {
    while (!predicate())
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

bool messageWrite(const std::string &folder, int number) {
    char leaf[32];
    VMSG::filename(leaf, static_cast<unsigned long>(number), sizeof(leaf));
    std::string path = folder + "/" + leaf;
    std::string text = "From: Some Author <author@example.invalid>\nNewsgroups: bench.group\n"
                       "Subject: Benchmark message " +
                       std::to_string(number) + "\nMessage-ID: <" + std::to_string(number) +
                       ".bench@example.invalid>\nDate: Tue, 03 Oct 2000 14:05:09 GMT\n\nBody\n";
    TEXTFILE file;
    if (VMSG::fileCreate(&file, path.c_str(), 0) != DISKFILE::kSuccess ||
        file.textWrite(text.c_str()) != DISKFILE::kSuccess || file.close() != DISKFILE::kSuccess)
        return false;
    return VMSG::attrCreate(path.c_str(), IMsg::MsgTypeNews, nullptr, IMsg::CharsetNone, false, 0,
                            false, VMSG::kServerNone);
}
} // namespace

int main(int argc, char **argv) {
    std::string base = argc > 1 ? argv[1] : "/tmp";
    std::string root = base + "/vwbench-XXXXXX";
    if (mkdtemp(root.data()) == nullptr) {
        perror("mkdtemp");
        return 1;
    }
    // The home (Trash, settings, Message-ID index) goes beside the store, never the user's.
    setenv("HOME", root.c_str(), 1);
    setenv("XDG_DATA_HOME", (root + "/share").c_str(), 1);
    setenv("XDG_CONFIG_HOME", (root + "/config").c_str(), 1);
    SETTINGS::reset(root.c_str());
    STR::copy(SETTINGS::storage.path, (root + "/d").c_str(), sizeof(SETTINGS::storage.path));
    BARNTHREAD::TIMING fast;
    fast.fileSleep = 0;
    fast.loadCheck = 1'000;
    barnThread.timingSet(fast);

    THREAD::start();
    if (!barn.start())
        return 1;
    auto begun = CLOCK::now();
    std::vector<std::string> groups;
    for (int s = 0; s < kServers; ++s) {
        BARN::NODE server;
        BARN::serverDefault(&server);
        snprintf(server.name, sizeof(server.name), "Server %02d", s);
        long long number = barn.serverCreate(&server);
        for (int g = 0; g < kGroups; ++g) {
            std::string name = "bench.server" + std::to_string(s) + ".group" + std::to_string(g);
            long long group = barn.groupCreate(number, name.c_str(), GROUPDOWNLOAD::HeadersOnly);
            BARN::NODE node;
            if (!barn.nodeRead(&node, group))
                return 1;
            groups.emplace_back(node.path);
        }
    }
    double create = secondsSince(begun);
    begun = CLOCK::now();
    for (int i = 0; i < kMessages; ++i)
        if (!messageWrite(groups[size_t(i) % groups.size()], 20'001 + i))
            return 1;
    double write = secondsSince(begun);
    THREAD::stop();
    barn.stop();

    // A fresh start: the load of every server and newsgroup, then the reaper's pass over
    // all of them with every message stale.
    TIMEBASE::CLOCK clock;
    clock.wall = aheadWall;
    TIMEBASE::clockSet(&clock);
    THREAD::start();
    if (!barn.start())
        return 1;
    begun = CLOCK::now();
    THREAD::state(true);
    barn.iterateFolders(nullptr, nullptr);
    waitFor([] { return barn.final(); });
    double load = secondsSince(begun);
    size_t nodes = barn.count();
    auto loaded = CLOCK::now();
    waitFor([] { return barnThread.reaperPasses() >= 1; });
    double expire = secondsSince(loaded);
    double pass = secondsSince(begun);
    THREAD::state(false);
    THREAD::stop();
    barn.stop();

    struct statfs volume {};
    statfs(root.c_str(), &volume);
    char text[1024];
    snprintf(text, sizeof(text),
             "bench_storage: %d servers x %d newsgroups, %d stale messages, in %s (file system "
             "type 0x%lx; ext4 0xef53, tmpfs 0x1021994)\n"
             "create servers and newsgroups (directories, attributes, Server.ini): %.2f s\n"
             "write the messages (setup, not the measure):                     %.2f s\n"
             "load at start (%zu nodes until final):                              %.3f s\n"
             "reaper expiry of every message, no half-second waits:            %.2f s, %.0f "
             "files/s\n"
             "whole reaper pass from the running state:                        %.2f s\n\n",
             kServers, kGroups, kMessages, root.c_str(), (unsigned long)volume.f_type, create,
             write, nodes, load, expire, kMessages / expire, pass);
    fputs(text, stdout);
    if (FILE *results = fopen(VW_BENCH_RESULTS "/storage.txt", "a")) {
        fputs(text, results);
        fclose(results);
    }
    std::string remove = "rm -rf '" + root + "'";
    return std::system(remove.c_str()) == 0 ? 0 : 1;
}
