// Benchmark of the file layer: writing message files with their 13 typed attributes, reading
// the attributes back, and Message-ID queries through the index.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <random>
#include <string>
#include <sys/statfs.h>
#include <vector>

#include "base/DISKFILE.h"
#include "storage/MSGIDINDEX.h"

namespace {

constexpr int kFiles = 10'000;
constexpr int kQueries = 1'000;
constexpr size_t kStringMax = 3071; // what the message layer reads of a string attribute

using CLOCK = std::chrono::steady_clock;

double secondsSince(CLOCK::time_point start) {
    return std::chrono::duration<double>(CLOCK::now() - start).count();
}

std::string msgidOf(int number) {
    char text[64];
    snprintf(text, sizeof(text), "<%d.bench@example.invalid>", number);
    return text;
}

struct ATTR {
    const char *name;
    uint32_t type;
};

const ATTR kAttrs[13] = {
    {"VELLOWICK:subject", DISKFILE::kTypeString},    {"VELLOWICK:author", DISKFILE::kTypeString},
    {"VELLOWICK:email", DISKFILE::kTypeString},      {"VELLOWICK:to", DISKFILE::kTypeString},
    {"VELLOWICK:newsgroups", DISKFILE::kTypeString}, {"VELLOWICK:datetime", DISKFILE::kTypeTime},
    {"VELLOWICK:lines", DISKFILE::kTypeInt32},       {"VELLOWICK:read", DISKFILE::kTypeBool},
    {"VELLOWICK:type", DISKFILE::kTypeInt32},        {"VELLOWICK:msgid", DISKFILE::kTypeString},
    {"VELLOWICK:references", DISKFILE::kTypeString}, {"VELLOWICK:charset", DISKFILE::kTypeInt32},
    {"VELLOWICK:postserver", DISKFILE::kTypeInt64},
};

// The value of attribute index for message number.
std::string valueOf(size_t index, int number) {
    int32_t int32 = number;
    int64_t int64 = -1;
    std::string text;
    switch (index) {
    case 0:
        text = "Re: A subject line of ordinary length, number " + std::to_string(number);
        break;
    case 1:
        text = "Some Author";
        break;
    case 2:
        text = "author@example.invalid";
        break;
    case 3:
        text = "<None>";
        break;
    case 4:
        text = "comp.lang.c++,comp.os.linux.misc";
        break;
    case 7:
        return std::string(1, char(number % 2));
    case 9:
        text = msgidOf(number);
        break;
    case 10:
        text = msgidOf(number - 2) + " " + msgidOf(number - 1);
        break;
    case 12:
        return std::string(reinterpret_cast<const char *>(&int64), 8);
    default:
        return std::string(reinterpret_cast<const char *>(&int32), 4);
    }
    return text + '\0';
}

bool fail(const char *what, DISKFILE::ERROR error) {
    fprintf(stderr, "%s: %s\n", what, DISKFILE::errorStr(error));
    return false;
}

} // namespace

int main() {
    // Never the real home: the index and the trash live below a scratch folder.
    // TMPDIR picks the file system measured (/dev/shm takes the disk out of the figures).
    const char *tmp = getenv("TMPDIR");
    std::string pattern =
        std::string(tmp != nullptr && *tmp != '\0' ? tmp : "/tmp") + "/vellowick-bench-XXXXXX";
    if (mkdtemp(pattern.data()) == nullptr)
        return 1;
    const std::string base = pattern;
    setenv("HOME", base.c_str(), 1);
    setenv("XDG_DATA_HOME", (base + "/.local/share").c_str(), 1);
    const std::string store = base + "/VellowickData";
    const std::string group = store + "/news/Servers/server/comp.lang.c++";
    std::filesystem::create_directories(group);
    MSGIDINDEX::rootSet(store.c_str());

    std::string body;
    while (body.size() < 2400)
        body += "A line of an ordinary news article body, with some words in it.\n";

    DISKFILE file;
    std::vector<std::string> paths;
    char name[32];
    auto start = CLOCK::now();
    for (int number = 1; number <= kFiles; ++number) {
        snprintf(name, sizeof(name), "/VM%06d.vmf", number);
        paths.push_back(group + name);
        size_t count = 0;
        DISKFILE::ERROR error = file.create(paths.back().c_str(), DISKFILE::kReadWrite);
        if (error == DISKFILE::kSuccess)
            error = file.write(body.data(), body.size(), &count);
        if (error == DISKFILE::kSuccess)
            error = file.mimeSet("text/x-vellowick");
        for (size_t i = 0; i < 13 && error == DISKFILE::kSuccess; ++i) {
            std::string value = valueOf(i, number);
            error = file.attrWrite(kAttrs[i].name, kAttrs[i].type, 0, value.data(), value.size(),
                                   &count);
        }
        file.close();
        if (error != DISKFILE::kSuccess)
            return fail("write", error) ? 0 : 1;
    }
    const double writeSeconds = secondsSince(start);

    std::vector<char> buffer(kStringMax + 1);
    start = CLOCK::now();
    size_t bytes = 0;
    for (const std::string &path : paths) {
        DISKFILE::ERROR error = file.open(path.c_str(), DISKFILE::kRead);
        for (size_t i = 0; i < 13 && error == DISKFILE::kSuccess; ++i) {
            size_t count = 0;
            error =
                file.attrRead(kAttrs[i].name, kAttrs[i].type, 0, buffer.data(), kStringMax, &count);
            bytes += count;
        }
        file.close();
        if (error != DISKFILE::kSuccess)
            return fail("read", error) ? 0 : 1;
    }
    const double readSeconds = secondsSince(start);

    struct statfs volume {};
    statfs(store.c_str(), &volume);
    int64_t device = -1;
    file.volume(store.c_str(), &device);
    std::mt19937 random(4);
    int hits = 0;
    auto count = [](void *data, const DISKFILE::ENTRY &) {
        ++*static_cast<int *>(data);
        return true;
    };
    start = CLOCK::now();
    for (int i = 0; i < kQueries; ++i) {
        std::string predicate = "((VELLOWICK:msgid==\"" + msgidOf(int(random() % kFiles) + 1) +
                                "\")&&(BEOS:TYPE==\"text/x-vellowick\"))";
        DISKFILE::ERROR error = file.query(device, predicate.c_str(), count, &hits);
        if (error != DISKFILE::kSuccess)
            return fail("query", error) ? 0 : 1;
    }
    const double querySeconds = secondsSince(start);

    start = CLOCK::now();
    bool rebuilt = MSGIDINDEX::rebuild();
    const double rebuildSeconds = secondsSince(start);

    // The machine is shared: the load says how much of it the figures had.
    double load[1] = {0};
    getloadavg(load, 1);
    char report[2048];
    snprintf(report, sizeof(report),
             "bench_files: %d message files of %zu bytes with 13 typed attributes each\n"
             "in %s, file system type 0x%lx (ext4 is 0xef53, tmpfs 0x1021994), load %.1f\n"
             "write (create, body, MIME type, 13 attributes, index): %.2f s, %.0f files/s\n"
             "read all 13 attributes back:                           %.2f s, %.0f files/s "
             "(%zu bytes)\n"
             "Message-ID queries, each hit checked on the file:     %.3f s, %.0f queries/s "
             "(%d of %d found)\n"
             "index rebuild by a scan of the store:                 %.2f s%s\n\n",
             kFiles, body.size(), base.c_str(), static_cast<unsigned long>(volume.f_type), load[0],
             writeSeconds, kFiles / writeSeconds, readSeconds, kFiles / readSeconds, bytes,
             querySeconds, kQueries / querySeconds, hits, kQueries, rebuildSeconds,
             rebuilt ? "" : " (failed)");
    fputs(report, stdout);
    std::filesystem::create_directories(VW_BENCH_RESULTS);
    if (FILE *out = fopen(VW_BENCH_RESULTS "/files.txt", "a")) {
        fputs(report, out);
        fclose(out);
    }
    std::error_code ignored;
    std::filesystem::remove_all(base, ignored);
    return hits == kQueries ? 0 : 1;
}
