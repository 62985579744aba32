// Benchmark of opening a large newsgroup: write message files with their attributes into one
// folder through VMSG, then load every file's DATA the way the header list does.
// Usage: bench_vmsg [files] [parent folder]; results are appended to bench/results/vmsg.txt.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <sys/statfs.h>
#include <vector>

#include "base/DISKFILE.h"
#include "base/TEXTFILE.h"
#include "message/HdrBuf.h"
#include "message/VMSG.h"

namespace {

using CLOCK = std::chrono::steady_clock;

double secondsSince(CLOCK::time_point start) {
    return std::chrono::duration<double>(CLOCK::now() - start).count();
}

// A /proc/self/status figure in kB ("VmRSS", "VmHWM").
long statusKB(const char *key) {
    std::ifstream in("/proc/self/status");
    std::string line;
    const std::string prefix = std::string(key) + ":";
    while (std::getline(in, line)) {
        if (line.compare(0, prefix.size(), prefix) == 0)
            return std::strtol(line.c_str() + prefix.size(), nullptr, 10);
    }
    return -1;
}

// A downloaded article's header block, as the download code feeds it.
void headerBuild(HdrBuf &header, int number) {
    char line[256];
    header.Clear();
    std::snprintf(line, sizeof(line), "From: Poster %d <poster%d@example.invalid>", number % 97,
                  number % 97);
    header.Add(line);
    std::snprintf(line, sizeof(line), "Subject: Re: benchmark thread %d about attribute loads",
                  number / 10);
    header.Add(line);
    header.Add("Newsgroups: alt.test.benchmark,alt.test");
    header.Add("Date: Tue, 3 Oct 2000 14:05:09 -0700");
    std::snprintf(line, sizeof(line), "Message-ID: <%d.bench@example.invalid>", number);
    header.Add(line);
    std::snprintf(line, sizeof(line),
                  "References: <%d.bench@example.invalid> <%d.bench@example.invalid>",
                  number - number % 10, number - 1);
    header.Add(line);
    header.Add("Lines: 30");
    header.End();
}

bool writeOne(const std::string &path, int number, HdrBuf &header) {
    TEXTFILE file(2048);
    if (VMSG::fileCreate(&file, path.c_str(), 2048) != DISKFILE::kSuccess)
        return false;
    headerBuild(header, number);
    file.printf("From: Poster %d <poster%d@example.invalid>\n", number % 97, number % 97);
    file.printf("Subject: Re: benchmark thread %d about attribute loads\n", number / 10);
    file.lineWrite("Newsgroups: alt.test.benchmark,alt.test");
    file.printf("Message-ID: <%d.bench@example.invalid>\n\n", number);
    for (int i = 0; i < 30; i++)
        file.lineWrite("A body line of ordinary length, as most articles have them here.");
    return VMSG::attrWriteAll(&file, &header, 35, false, -1) && file.close() == DISKFILE::kSuccess;
}

struct LOADER {
    std::vector<VMSG::DATA> rows;
    size_t failed = 0;
};

bool loadOne(void *context, const DISKFILE::ENTRY &entry) {
    auto *loader = static_cast<LOADER *>(context);
    VMSG::DATA data;
    if (VMSG::fileData(&data, entry))
        loader->rows.push_back(std::move(data));
    else
        loader->failed++;
    return true;
}

} // namespace

int main(int argc, char **argv) {
    const int files = argc > 1 ? std::atoi(argv[1]) : 100'000;
    const char *tmp = std::getenv("TMPDIR");
    std::string parent = argc > 2 ? argv[2] : (tmp != nullptr && *tmp ? tmp : "/tmp");
    std::string base = parent + "/vellowick-bench-vmsg-XXXXXX";
    if (mkdtemp(base.data()) == nullptr) {
        std::perror("mkdtemp");
        return 1;
    }
    // The Message-ID index lives below the data home: keep it out of the real one.
    setenv("HOME", base.c_str(), 1);
    setenv("XDG_DATA_HOME", (base + "/.local/share").c_str(), 1);
    const std::string folder = base + "/group";
    std::filesystem::create_directories(folder);
    struct statfs fs {};
    statfs(folder.c_str(), &fs);

    HdrBuf header;
    const CLOCK::time_point writeStart = CLOCK::now();
    int written = 0;
    for (int number = 1; number <= files; number++) {
        char name[32];
        VMSG::filename(name, number, sizeof(name));
        if (writeOne(folder + "/" + name, number, header))
            written++;
    }
    const double writeSeconds = secondsSince(writeStart);

    const long rssBefore = statusKB("VmRSS");
    LOADER loader;
    loader.rows.reserve(size_t(files));
    DISKFILE walker;
    const CLOCK::time_point readStart = CLOCK::now();
    walker.dirIterate(folder.c_str(), loadOne, &loader);
    const double readSeconds = secondsSince(readStart);
    const long rssAfter = statusKB("VmRSS");

    char line[512];
    std::string report;
    std::snprintf(line, sizeof(line),
                  "bench_vmsg: %d message files in one folder, in %s (file system type 0x%lx; "
                  "ext4 is 0xef53, tmpfs 0x1021994)\n",
                  files, folder.c_str(), static_cast<unsigned long>(fs.f_type));
    report += line;
    std::snprintf(line, sizeof(line),
                  "write (create, header, 30 body lines, 13 attributes, index): %.1f s, %.0f "
                  "files/s (%d written)\n",
                  writeSeconds, written / writeSeconds, written);
    report += line;
    std::snprintf(line, sizeof(line),
                  "attrReadAll of every file, DATA kept: %.2f s, %.0f files/s (%zu loaded, %zu "
                  "failed)\n",
                  readSeconds, double(loader.rows.size()) / readSeconds, loader.rows.size(),
                  loader.failed);
    report += line;
    std::snprintf(line, sizeof(line),
                  "resident memory: %ld kB before loading, %ld kB after (%.0f bytes per "
                  "message), peak %ld kB\n\n",
                  rssBefore, rssAfter,
                  loader.rows.empty()
                      ? 0.0
                      : double(rssAfter - rssBefore) * 1024.0 / double(loader.rows.size()),
                  statusKB("VmHWM"));
    report += line;
    std::fputs(report.c_str(), stdout);
    std::ofstream(std::string(VW_BENCH_RESULTS) + "/vmsg.txt", std::ios::app) << report;
    std::error_code ignored;
    std::filesystem::remove_all(base, ignored);
    return loader.failed == 0 && written == files ? 0 : 1;
}
