// Benchmark of downloading a large group from INN on loopback into a fresh store, beside a bare
// pipelined HEAD stream, slrnpull keeping every header, and tin reading the group's overview.
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <ftw.h>
#include <functional>
#include <spawn.h>
#include <string>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>
#include <vector>

#include "app/SETTINGS.h"
#include "base/DISKFILE.h"
#include "base/STR.h"
#include "base/THREAD.h"
#include "net/NETWORK.h"
#include "net/NNTP.h"
#include "reader/KILLFILE.h"
#include "storage/BARN.h"
#include "storage/BARNINFO.h"
#include "tests/support/TESTCERTS.h"
#include "tools/innfill/INNSERVER.h"

extern char **environ;

namespace {

constexpr size_t kInFlight = 10; // as the download keeps in flight
constexpr int64_t kTimeout = 120'000'000;

using CLOCK = std::chrono::steady_clock;

// What one measured run reports back from its own process.
struct RUN {
    double seconds = 0;
    long count = 0;        // articles the run ended up with
    long peakKB = 0;       // peak resident memory of the process
    double cpuSeconds = 0; // user and system time of the process
    // Articles the session itself counted as stored, when it says: tells the articles the
    // server refused from files gone missing.
    long reported = -1;
    bool ok = false;
};

double secondsSince(CLOCK::time_point start) {
    return std::chrono::duration<double>(CLOCK::now() - start).count();
}

void printError(const char *text) {
    fprintf(stderr, "  error: %s\n", text);
}

int removeEntry(const char *path, const struct stat *, int, struct FTW *) {
    remove(path);
    return 0;
}

std::string scratchBase() {
    const char *base = getenv("TMPDIR");
    return base != nullptr && base[0] != '\0' ? base : "/tmp";
}

// Every run's directory lives below one root, removed when the whole benchmark ends: on a
// file system without a journal, creating files right after many were deleted costs extra,
// which would charge one run for the clean-up of the run before it.
std::string &scratchRoot() {
    static std::string root;
    return root;
}

std::string scratch(const char *what) {
    std::string pattern = scratchRoot() + "/" + what + "-XXXXXX";
    std::vector<char> path(pattern.begin(), pattern.end());
    path.push_back(0);
    return mkdtemp(path.data()) != nullptr ? path.data() : "";
}

void scratchRemove(const std::string &path) {
    if (!path.empty())
        nftw(path.c_str(), removeEntry, 32, FTW_DEPTH | FTW_PHYS);
}

double cpuOf(const struct rusage &usage) {
    return double(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
           double(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

// Runs work in a child process of its own, so that each run's peak memory is its own.
RUN isolated(const std::function<RUN()> &work) {
    int pipeEnds[2];
    RUN run;
    if (pipe(pipeEnds) != 0)
        return run;
    fflush(nullptr);
    pid_t child = fork();
    if (child == 0) {
        close(pipeEnds[0]);
        RUN result = work();
        ssize_t wrote = write(pipeEnds[1], &result, sizeof result);
        _exit(wrote == ssize_t(sizeof result) ? 0 : 1);
    }
    close(pipeEnds[1]);
    ssize_t got = child > 0 ? read(pipeEnds[0], &run, sizeof run) : 0;
    close(pipeEnds[0]);
    int status = 0;
    struct rusage usage {};
    if (child > 0)
        wait4(child, &status, 0, &usage);
    if (got != ssize_t(sizeof run))
        run = RUN{};
    run.peakKB = usage.ru_maxrss;
    run.cpuSeconds = cpuOf(usage);
    return run;
}

// Runs a program with the environment given and times it.
RUN external(const std::vector<std::string> &args, const std::vector<std::string> &env) {
    std::vector<char *> argv, envp;
    for (const std::string &each : args)
        argv.push_back(const_cast<char *>(each.c_str()));
    argv.push_back(nullptr);
    for (const std::string &each : env)
        envp.push_back(const_cast<char *>(each.c_str()));
    envp.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    pid_t child = -1;
    RUN run;
    CLOCK::time_point start = CLOCK::now();
    int spawned = posix_spawn(&child, args[0].c_str(), &actions, nullptr, argv.data(), envp.data());
    posix_spawn_file_actions_destroy(&actions);
    if (spawned != 0)
        return run;
    int status = 0;
    struct rusage usage {};
    wait4(child, &status, 0, &usage);
    run.seconds = secondsSince(start);
    run.peakKB = usage.ru_maxrss;
    run.cpuSeconds = cpuOf(usage);
    run.ok = WIFEXITED(status) && WEXITSTATUS(status) == 0;
    return run;
}

// Lines of the regular files below path, the index files tin writes.
long linesBelow(const std::string &path) {
    static long counted;
    counted = 0;
    nftw(
        path.c_str(),
        [](const char *file, const struct stat *info, int flag, struct FTW *) {
            if (flag != FTW_F || !S_ISREG(info->st_mode) || strstr(file, "tinrc") != nullptr)
                return 0;
            FILE *in = fopen(file, "r");
            for (int c; in != nullptr && (c = fgetc(in)) != EOF;)
                counted += c == '\n';
            if (in != nullptr)
                fclose(in);
            return 0;
        },
        32, FTW_PHYS);
    return counted;
}

long filesBelow(const std::string &path) {
    static long counted;
    counted = 0;
    nftw(
        path.c_str(),
        [](const char *, const struct stat *info, int flag, struct FTW *) {
            if (flag == FTW_F && S_ISREG(info->st_mode))
                ++counted;
            return 0;
        },
        32, FTW_PHYS);
    return counted;
}

BARN::NODE serverNode(uint16_t port) {
    BARN::NODE node{};
    BARN::serverDefault(&node);
    STR::copy(node.name, "Bench", sizeof node.name);
    STR::copy(node.server.hostname, "127.0.0.1", sizeof node.server.hostname);
    node.server.port = port;
    node.server.timeout = kTimeout;
    return node;
}

// The network's limit: HEAD 1..count, kInFlight at once, every line read and dropped.
RUN bareStream(uint16_t port, const std::string &group, size_t count) {
    RUN run;
    SETTINGS::storage.transferLogging = SETTINGS::kLogOff;
    NETWORK::start();
    BARN::NODE node = serverNode(port);
    NNTP session(&node, printError, nullptr);
    if (!session.connect() || !session.send(("GROUP " + group).c_str()) ||
        session.response("select newsgroup", true) != 211)
        return run;
    char line[NNTP::kLineSize];
    CLOCK::time_point start = CLOCK::now();
    size_t sent = 0;
    for (size_t answered = 0; answered < count; ++answered) {
        while (sent < count && sent - answered < kInFlight) {
            snprintf(line, sizeof line, "HEAD %zu", ++sent);
            if (!session.send(line))
                return run;
        }
        if (!NNTP::success(session.response("retrieve message from", false, line, sizeof line)))
            continue;
        while (session.read(line, sizeof line) && strcmp(line, ".") != 0) {
        }
        ++run.count;
    }
    run.seconds = secondsSince(start);
    run.ok = run.count == long(count);
    return run;
}

// How the session reaches the server: in the clear, compressed, or over TLS with a login.
enum class LINK { Plain, Compressed, Secure };

// The program's own download of the whole group into a fresh store in a scratch home.
RUN download(uint16_t port, const std::string &group, GROUPDOWNLOAD mode, LINK link = LINK::Plain) {
    RUN run;
    std::string home = scratch("download");
    setenv("HOME", home.c_str(), 1);
    setenv("XDG_DATA_HOME", (home + "/.local/share").c_str(), 1);
    setenv("XDG_CONFIG_HOME", (home + "/.config").c_str(), 1);
    SETTINGS::reset(home.c_str());
    SETTINGS::storage.downloadLimit = false;
    SETTINGS::killfile.applyToDownload = false;
    SETTINGS::storage.transferLogging = SETTINGS::kLogActions;
    NETWORK::start();
    THREAD::start();
    if (!barn.start() || !KILLFILE::Start())
        return run;
    BARN::NODE node = serverNode(port);
    node.server.security = link == LINK::Secure ? kSecurityTLS : kSecurityNone;
    node.server.compress = link == LINK::Compressed;
    node.server.login = link == LINK::Secure;
    STR::copy(node.server.username, INNSERVER::kUser, sizeof node.server.username);
    STR::copy(node.server.password, INNSERVER::kPassword, sizeof node.server.password);
    long long server = barn.serverCreate(&node);
    long long number = barn.groupCreate(server, group.c_str(), mode);
    BARN::NODE copy;
    if (!barn.nodeRead(&copy, number) || !barn.nodeRead(&node, server))
        return run;
    {
        NNTP session(&node, printError, nullptr);
        CLOCK::time_point start = CLOCK::now();
        if (!session.connect() || (node.server.login && !session.login()) || !session.compress())
            return run;
        run.ok = session.download(&copy, nullptr, 6, mode == GROUPDOWNLOAD::HeadersOnly ? 3 : 2);
        run.seconds = secondsSince(start);
    }
    run.count = filesBelow(copy.path);
    // The session's own count, to tell articles the server refused from files gone missing.
    char log[BARNINFO::kPathSize];
    BARNINFO::pathTransferLog(log, sizeof log);
    if (FILE *in = fopen(log, "r")) {
        char line[1024];
        while (fgets(line, sizeof line, in) != nullptr) {
            const char *found = strstr(line, "Downloaded ");
            if (found != nullptr)
                sscanf(found, "Downloaded %ld", &run.reported);
        }
        fclose(in);
    }
    KILLFILE::Stop();
    THREAD::stop();
    barn.stop();
    NETWORK::stop();
    return run;
}

// The file system's own share of storing: what filing one header costs with no network, no
// parsing and no index, done as the download does it (a new temporary file, its text, the
// MIME type and 13 attributes, a rename into the group's folder). Nothing stored can be faster.
RUN fileSystemAlone(size_t count) {
    RUN run;
    std::string root = scratch("floor");
    std::string group = root + "/group";
    if (root.empty() || mkdir(group.c_str(), 0755) != 0)
        return run;
    const std::string temp = root + "/VM000000.vmf";
    const std::string text(416, 'h');
    static const char *const names[] = {
        "user.VELLOWICK:subject",    "user.VELLOWICK:author",     "user.VELLOWICK:email",
        "user.VELLOWICK:to",         "user.VELLOWICK:newsgroups", "user.VELLOWICK:datetime",
        "user.VELLOWICK:lines",      "user.VELLOWICK:read",       "user.VELLOWICK:type",
        "user.VELLOWICK:msgid",      "user.VELLOWICK:references", "user.VELLOWICK:charset",
        "user.VELLOWICK:postserver",
    };
    char target[512];
    CLOCK::time_point start = CLOCK::now();
    for (size_t i = 0; i < count; ++i) {
        int fd = open(temp.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
        if (fd < 0 || fsetxattr(fd, "user.mime_type", "text/x-vellowick", 16, 0) != 0 ||
            write(fd, text.data(), text.size()) != ssize_t(text.size()))
            return run;
        // Values of a real header's length that differ from file to file, as articles' do (the
        // file system shares blocks of equal attributes, which real messages never have).
        char value[64];
        int length = snprintf(value, sizeof value, "CSTR<bench.%zu@vellowick.invalid>", i);
        for (const char *name : names)
            if (fsetxattr(fd, name, value, size_t(length) + 1, 0) != 0)
                return run;
        close(fd);
        snprintf(target, sizeof target, "%s/VM%06zu.vmf", group.c_str(), 999999 - i);
        if (rename(temp.c_str(), target) != 0)
            return run;
    }
    run.seconds = secondsSince(start);
    run.count = filesBelow(group);
    run.ok = run.count == long(count);
    return run;
}

RUN slrnpull(uint16_t port, const std::string &group) {
    std::string root = scratch("slrnpull");
    FILE *config = fopen((root + "/slrnpull.conf").c_str(), "w");
    if (config == nullptr)
        return {};
    // All articles, never expired, headers only.
    fprintf(config, "%s 0 0 1\n", group.c_str());
    fclose(config);
    RUN run = external(
        {"/usr/bin/slrnpull", "-d", root, "-h", "127.0.0.1:" + std::to_string(port), "--no-post"},
        {"HOME=" + root, "PATH=/usr/bin:/bin"});
    run.count = filesBelow(root + "/news");
    return run;
}

RUN tin(uint16_t port, const std::string &group) {
    std::string home = scratch("tin");
    mkdir((home + "/.tin").c_str(), 0700);
    FILE *newsrc = fopen((home + "/.newsrc").c_str(), "w");
    FILE *tinrc = fopen((home + "/.tin/tinrc").c_str(), "w");
    if (newsrc == nullptr || tinrc == nullptr)
        return {};
    fprintf(newsrc, "%s:\n", group.c_str());
    // Batch index updates over NNTP need the overview cache.
    fprintf(tinrc, "cache_overview_files=ON\n");
    fclose(newsrc);
    fclose(tinrc);
    RUN run = external({"/usr/bin/tin", "-r", "-q", "-u", "-p", std::to_string(port)},
                       {"HOME=" + home, "NNTPSERVER=127.0.0.1", "PATH=/usr/bin:/bin", "TERM=dumb"});
    run.count = linesBelow(home + "/.tin");
    return run;
}

long residentKB() {
    FILE *status = fopen("/proc/self/status", "r");
    long kb = 0;
    char line[256];
    while (status != nullptr && fgets(line, sizeof line, status) != nullptr)
        if (sscanf(line, "VmRSS: %ld", &kb) == 1)
            break;
    if (status != nullptr)
        fclose(status);
    return kb;
}

std::string row(const char *what, size_t size, const RUN &run) {
    std::string kept = run.ok ? std::to_string(run.count) : "FAIL";
    if (run.reported >= 0 && run.reported != run.count)
        kept += " of " + std::to_string(run.reported) + " stored";
    else if (run.reported >= 0 && run.reported < long(size))
        kept += ", " + std::to_string(long(size) - run.reported) + " refused";
    char text[256];
    snprintf(text, sizeof text, "| %-48s | %7zu | %9.2f | %9.0f | %7.2f | %8ld | %s |\n", what,
             size, run.seconds, run.seconds > 0 ? double(size) / run.seconds : 0.0, run.cpuSeconds,
             run.peakKB, kept.c_str());
    return text;
}

} // namespace

int main(int argc, char **argv) {
    // Arguments: group sizes; "--only=A,B" runs just the runs whose name holds one of the
    // texts; "--out=NAME" names the results file (none is written for a run with --only and
    // without --out). The data directories go below $TMPDIR (else /tmp).
    std::vector<size_t> sizes;
    std::vector<std::string> only;
    std::string out;
    for (int i = 1; i < argc; ++i) {
        if (strncmp(argv[i], "--only=", 7) == 0) {
            std::string list = argv[i] + 7;
            for (size_t at = 0; at <= list.size();) {
                size_t comma = std::min(list.find(',', at), list.size());
                only.push_back(list.substr(at, comma - at));
                at = comma + 1;
            }
        } else if (strncmp(argv[i], "--out=", 6) == 0) {
            out = argv[i] + 6;
        } else {
            sizes.push_back(strtoul(argv[i], nullptr, 10));
        }
    }
    if (out.empty() && only.empty())
        out = "download.txt";
    auto chosen = [&only](const char *what) {
        if (only.empty())
            return true;
        for (const std::string &each : only)
            if (strstr(what, each.c_str()) != nullptr)
                return true;
        return false;
    };
    if (sizes.empty())
        sizes = {10'000, 100'000};
    scratchRoot() = scratchBase() + "/vellowick-bench-XXXXXX";
    if (mkdtemp(scratchRoot().data()) == nullptr) {
        perror(scratchRoot().c_str());
        return 1;
    }
    INNSERVER inn;
    if (!inn.start()) {
        fprintf(stderr, "INN: %s\n", inn.error().c_str());
        return 1;
    }
    std::string results =
        "Downloading one group from INN on loopback (a private instance, 2 shared cores).\n"
        "Every run stores into a fresh directory under " +
        scratchBase() +
        "; each run is a\n"
        "process of its own, its CPU time and peak resident memory read from the system when\n"
        "it ends. The file-system row does only the file work of filing a header (no network,\n"
        "no parsing, no index): no download can store faster on that file system. The last\n"
        "column is what the run kept: message files for ours (with the articles the server\n"
        "refused, if any), spool files for slrnpull, lines tin wrote into its cache.\n\n"
        "| run                                              | articles |  seconds | per second | "
        "CPU s "
        "| "
        "peak kB | result |\n"
        "|--------------------------------------------------|---------:|---------:|-----------:|---"
        "---:"
        "|"
        "--------:|--------|\n";
    long baseKB = residentKB();
    for (size_t size : sizes) {
        std::string group = "vw.bench.g" + std::to_string(size);
        std::string error;
        size_t accepted = 0;
        CLOCK::time_point start = CLOCK::now();
        if (!inn.groupCreate(group, &error) ||
            !inn.fill(group, 0, size, uint32_t(size), &accepted, &error) || accepted != size) {
            fprintf(stderr, "fill %s: %s\n", group.c_str(), error.c_str());
            return 1;
        }
        fprintf(stderr, "%s filled with %zu articles in %.1f s\n", group.c_str(), size,
                secondsSince(start));
        uint16_t port = inn.readerPort();
        // The secure reader shows a certificate of a test authority the runs trust.
        TESTCERTS certs(scratch("certs"));
        TESTCERTS::PAIR pair = certs.server("inn", "127.0.0.1");
        setenv("SSL_CERT_FILE", certs.caFile().c_str(), 1);
        uint16_t tlsPort = inn.tlsReader(pair.cert, pair.key);
        if (tlsPort == 0) {
            fprintf(stderr, "INN over TLS: %s\n", inn.error().c_str());
            return 1;
        }
        const struct {
            const char *what;
            std::function<RUN()> work;
            bool inProcess;
        } runs[] = {
            {"bare pipelined HEAD stream, nothing stored",
             [&] { return bareStream(port, group, size); }, true},
            {"file system alone: new file, 14 attributes, move",
             [&] { return fileSystemAlone(size); }, true},
            {"Vellowick HeadersOnly (HEAD, stored)",
             [&] { return download(port, group, GROUPDOWNLOAD::HeadersOnly); }, true},
            {"Vellowick HeadersOnly over TLS",
             [&] { return download(tlsPort, group, GROUPDOWNLOAD::HeadersOnly, LINK::Secure); },
             true},
            {"Vellowick HeadersOnly compressed",
             [&] { return download(port, group, GROUPDOWNLOAD::HeadersOnly, LINK::Compressed); },
             true},
            {"Vellowick HeadersAndBodies (ARTICLE, stored)",
             [&] { return download(port, group, GROUPDOWNLOAD::HeadersAndBodies); }, true},
            {"slrnpull, headers only into its spool", [&] { return slrnpull(port, group); }, false},
            {"tin -u, the group's overview into its cache", [&] { return tin(port, group); },
             false},
        };
        for (const auto &each : runs) {
            if (!chosen(each.what))
                continue;
            fprintf(stderr, "  %s ...\n", each.what);
            RUN run = each.inProcess ? isolated(each.work) : each.work();
            std::string line = row(each.what, size, run);
            fprintf(stderr, "%s", line.c_str());
            results += line;
        }
    }
    char tail[200];
    snprintf(tail, sizeof tail, "\n(benchmark process resident before the runs: %ld kB)\n", baseKB);
    results += tail;
    inn.stop();
    scratchRemove(scratchRoot());
    printf("%s", results.c_str());
    if (out.empty())
        return 0;
    std::string path = std::string(VW_BENCH_RESULTS) + "/" + out;
    FILE *file = fopen(path.c_str(), "w");
    if (file == nullptr)
        return 1;
    fputs(results.c_str(), file);
    fclose(file);
    return 0;
}
