// A private INN news server on loopback for the tests: readers, a password port and a feed port.
#include "tools/innfill/INNSERVER.h"

#include <arpa/inet.h>
#include <cerrno>
#include <chrono>
#include <crypt.h>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <ftw.h>
#include <memory>
#include <netinet/in.h>
#include <poll.h>
#include <pwd.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "tools/innfill/ARTICLEGEN.h"
#include "tools/innfill/STREAMFEED.h"

extern char **environ;

namespace {

constexpr const char *kBin = "/usr/lib/news/bin";
constexpr int kStartMillis = 20000;   // a daemon must greet within this
constexpr int kToolMillis = 10000;    // a tool run must end within this
constexpr int kVisibleMillis = 20000; // fed articles must show in a reader within this
constexpr int kAttempts = 3;          // a port taken between choosing and binding: try again

const char *const kDirectories[] = {
    "etc",
    "db",
    "spool",
    "spool/articles",
    "spool/overview",
    "spool/incoming",
    "spool/incoming/tmp",
    "spool/outgoing",
    "spool/archive",
    "log",
    "run",
    "http",
    "filter",
};

uid_t gNewsUid = 0;
gid_t gNewsGid = 0;

bool readFile(const std::string &path, std::string *text) {
    FILE *file = fopen(path.c_str(), "r");
    if (file == nullptr) {
        return false;
    }
    char block[4096];
    size_t got;
    text->clear();
    while ((got = fread(block, 1, sizeof block, file)) > 0) {
        text->append(block, got);
    }
    return fclose(file) == 0;
}

bool writeFile(const std::string &path, const std::string &text) {
    FILE *file = fopen(path.c_str(), "w");
    if (file == nullptr) {
        return false;
    }
    bool ok = fwrite(text.data(), 1, text.size(), file) == text.size();
    return fclose(file) == 0 && ok;
}

int chownEntry(const char *path, const struct stat *, int, struct FTW *) {
    return lchown(path, gNewsUid, gNewsGid) == 0 ? 0 : -1;
}

int removeEntry(const char *path, const struct stat *, int, struct FTW *) {
    remove(path);
    return 0;
}

// Free loopback ports: bound together so they differ, then released for the daemons.
bool freePorts(uint16_t *ports, size_t count) {
    std::vector<int> sockets;
    bool ok = true;
    for (size_t i = 0; i < count && ok; ++i) {
        int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address;
        ok = fd >= 0 && bind(fd, reinterpret_cast<sockaddr *>(&address), length) == 0 &&
             getsockname(fd, reinterpret_cast<sockaddr *>(&address), &length) == 0;
        ports[i] = ntohs(address.sin_port);
        if (fd >= 0) {
            sockets.push_back(fd);
        }
    }
    for (int fd : sockets) {
        close(fd);
    }
    return ok;
}

// A short-lived reader connection for the harness's own questions.
class LINK {
public:
    ~LINK() {
        if (fSocket >= 0) {
            close(fSocket);
        }
    }
    bool open(uint16_t port) {
        fSocket = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        address.sin_port = htons(port);
        return fSocket >= 0 &&
               connect(fSocket, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0;
    }
    bool line(std::string *out, int timeoutMillis) {
        auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMillis);
        for (;;) {
            size_t end = fPending.find("\r\n");
            if (end != std::string::npos) {
                *out = fPending.substr(0, end);
                fPending.erase(0, end + 2);
                return true;
            }
            pollfd watch{fSocket, POLLIN, 0};
            if (std::chrono::steady_clock::now() >= until || poll(&watch, 1, 20) < 0) {
                return false;
            }
            if ((watch.revents & (POLLIN | POLLHUP | POLLERR)) == 0) {
                continue;
            }
            char buffer[1024];
            ssize_t got = recv(fSocket, buffer, sizeof buffer, 0);
            if (got <= 0) {
                return false;
            }
            fPending.append(buffer, size_t(got));
        }
    }
    bool send(const std::string &text) {
        return ::send(fSocket, text.data(), text.size(), MSG_NOSIGNAL) == ssize_t(text.size());
    }

private:
    int fSocket = -1;
    std::string fPending;
};

} // namespace

const std::vector<std::string> &INNSERVER::groups() {
    static const std::vector<std::string> kGroups = {
        "vw.test.empty",
        "vw.test.small",
        "vw.test.post",
        "vw.test.big",
    };
    return kGroups;
}

INNSERVER &INNSERVER::shared() {
    static INNSERVER instance;
    static bool tried = false;
    if (!tried) {
        tried = true;
        instance.start();
    }
    return instance;
}

INNSERVER::~INNSERVER() {
    stop();
}

bool INNSERVER::start() {
    stop();
    fError.clear();
    if (access((std::string(kBin) + "/innd").c_str(), X_OK) != 0) {
        fError = "the INN server is not installed (no " + std::string(kBin) + "/innd)";
        return false;
    }
    const passwd *news = getpwnam("news");
    if (news == nullptr) {
        fError = "there is no user \"news\" to run the INN server";
        return false;
    }
    gNewsUid = news->pw_uid;
    gNewsGid = news->pw_gid;
    if (geteuid() != 0 && geteuid() != gNewsUid) {
        fError = "the INN server must be started as root or as the news user";
        return false;
    }
    for (int attempt = 0; attempt < kAttempts && !fRunning; ++attempt) {
        if (!_attempt()) {
            std::string why = fError;
            stop();
            fError = why;
        }
    }
    return fRunning;
}

bool INNSERVER::_attempt() {
    fError.clear();
    char pattern[] = "/tmp/vw-inn-XXXXXX";
    if (mkdtemp(pattern) == nullptr) {
        fError = std::string("cannot make a temporary directory: ") + strerror(errno);
        return false;
    }
    fRoot = pattern;
    fPathHost = "inn-" + fRoot.substr(fRoot.size() - 6) + "." + kDomain;
    for (char &c : fPathHost) {
        c = (c >= 'A' && c <= 'Z') ? char(c - 'A' + 'a') : c;
    }
    // The daemons and tools run as "news" (they switch to it when started as root) and must
    // reach and write everything inside.
    chmod(fRoot.c_str(), 0755);
    for (const char *directory : kDirectories) {
        mkdir((fRoot + "/" + directory).c_str(), 0755);
    }
    uint16_t ports[3];
    if (!freePorts(ports, 3)) {
        fError = "no free loopback ports";
        return false;
    }
    fReaderPort = ports[0];
    fAuthPort = ports[1];
    fFeedPort = ports[2];
    if (!_writeFiles()) {
        fError = "cannot write the configuration in " + fRoot;
        return false;
    }
    if (geteuid() == 0 && nftw(fRoot.c_str(), chownEntry, 16, FTW_PHYS) != 0) {
        fError = "cannot give the instance to the news user";
        return false;
    }
    if (!_runWait({std::string(kBin) + "/makedbz", "-i", "-o"}, kToolMillis)) {
        fError = "makedbz failed: " + _logTail();
        return false;
    }
    if (!_startGuard()) {
        return false;
    }
    if (!_spawn({std::string(kBin) + "/innd", "-f", "-c", "0", "-P", std::to_string(fFeedPort)},
                &fInnd) ||
        !_waitGreeting(fFeedPort, fInnd, "innd")) {
        return false;
    }
    std::string readerPort = std::to_string(fReaderPort);
    std::string authPort = std::to_string(fAuthPort);
    if (!_spawn(
            {std::string(kBin) + "/nnrpd", "-D", "-f", "-n", "-b", "127.0.0.1", "-p", readerPort},
            &fReader) ||
        !_waitGreeting(fReaderPort, fReader, "nnrpd")) {
        return false;
    }
    if (!_spawn({std::string(kBin) + "/nnrpd", "-D", "-f", "-n", "-b", "127.0.0.1", "-p", authPort,
                 "-c", fRoot + "/etc/readers-auth.conf"},
                &fAuthReader) ||
        !_waitGreeting(fAuthPort, fAuthReader, "nnrpd with passwords")) {
        return false;
    }
    fRunning = true;
    return true;
}

bool INNSERVER::_writeFiles() {
    const std::string &r = fRoot;
    std::string conf =
        std::string("domain: ") + kDomain + "\n" + "pathhost: " + fPathHost + "\n" +
        "organization: \"Vellowick tests\"\n" + "pathnews: /usr/lib/news\n" + "pathbin: " + kBin +
        "\n" + "pathcontrol: " + kBin + "/control\n" + "pathfilter: " + r + "/filter\n" +
        "pathetc: " + r + "/etc\n" + "pathdb: " + r + "/db\n" + "pathspool: " + r + "/spool\n" +
        "patharticles: " + r + "/spool/articles\n" + "pathoverview: " + r + "/spool/overview\n" +
        "pathincoming: " + r + "/spool/incoming\n" + "pathtmp: " + r + "/spool/incoming/tmp\n" +
        "pathoutgoing: " + r + "/spool/outgoing\n" + "patharchive: " + r + "/spool/archive\n" +
        "pathlog: " + r + "/log\n" + "pathrun: " + r + "/run\n" + "pathhttp: " + r + "/http\n" +
        "ovmethod: tradindexed\n"
        "hismethod: hisv6\n"
        "bindaddress: 127.0.0.1\n"
        "port: " +
        std::to_string(fFeedPort) +
        "\n"
        // Generated articles carry old dates on purpose.
        "artcutoff: 0\n"
        "enableoverview: true\n"
        "wireformat: true\n"
        "mta: \"/bin/true %s\"\n"
        "mailcmd: /bin/true\n"
        "doinnwatch: false\n"
        "pgpverify: false\n"
        "status: 0\n"
        "timer: 0\n"
        "nnrpdcheckart: true\n"
        "checkincludedtext: false\n"
        "maxconnections: 0\n"
        "nnrpdloadlimit: 0\n"
        "readertrack: false\n"
        "tlscertfile: " +
        r + "/etc/tls/cert.pem\n" + "tlskeyfile: " + r + "/etc/tls/key.pem\n";

    std::string readers = "auth \"local\" {\n"
                          "    hosts: \"127.0.0.1, localhost\"\n"
                          "    default: \"<local>\"\n"
                          "}\n"
                          "access \"local\" {\n"
                          "    users: \"<local>\"\n"
                          "    newsgroups: \"*\"\n"
                          "    access: RPA\n"
                          "}\n";
    std::string readersAuth = "auth \"password\" {\n"
                              "    hosts: \"127.0.0.1, localhost\"\n"
                              "    auth: \"ckpasswd -f " +
                              r +
                              "/etc/passwd\"\n"
                              "}\n"
                              "access \"password\" {\n"
                              "    users: \"" +
                              std::string(kUser) +
                              "\"\n"
                              "    newsgroups: \"*\"\n"
                              "    access: RPA\n"
                              "}\n";

    auto data = std::make_unique<crypt_data>();
    const char *hash = crypt_r(kPassword, "$6$vellowicktests$", data.get());
    if (hash == nullptr || hash[0] == '*') {
        return false;
    }
    std::string active = "control 0000000000 0000000001 n\n"
                         "control.cancel 0000000000 0000000001 n\n"
                         "junk 0000000000 0000000001 n\n";
    std::string descriptions;
    for (const std::string &group : groups()) {
        active += group + " 0000000000 0000000001 y\n";
        descriptions += group + "\tA group for the tests.\n";
    }
    return writeFile(r + "/etc/inn.conf", conf) && writeFile(r + "/etc/newsfeeds", "ME:!*::\n") &&
           writeFile(r + "/etc/incoming.conf", "streaming: true\n"
                                               "max-connections: 0\n"
                                               "peer ME {\n"
                                               "    hostname: \"127.0.0.1\"\n"
                                               "}\n") &&
           writeFile(r + "/etc/storage.conf", "method timecaf {\n"
                                              "    newsgroups: *\n"
                                              "    class: 0\n"
                                              "}\n") &&
           writeFile(r + "/etc/expire.ctl", "/remember/:0\n*:A:never:never:never\n") &&
           writeFile(r + "/etc/readers.conf", readers) &&
           writeFile(r + "/etc/readers-auth.conf", readersAuth) &&
           writeFile(r + "/etc/passwd", std::string(kUser) + ":" + hash + "\n") &&
           writeFile(r + "/db/active", active) && writeFile(r + "/db/active.times", "") &&
           writeFile(r + "/db/newsgroups", descriptions) && writeFile(r + "/db/history", "");
}

bool INNSERVER::_spawn(const std::vector<std::string> &args, pid_t *pid, int input) {
    *pid = -1;
    std::vector<std::string> environment;
    for (char **each = environ; *each != nullptr; ++each) {
        if (strncmp(*each, "INNCONF=", 8) != 0) {
            environment.emplace_back(*each);
        }
    }
    environment.push_back("INNCONF=" + fRoot + "/etc/inn.conf");
    std::vector<char *> argv;
    for (const std::string &arg : args) {
        argv.push_back(const_cast<char *>(arg.c_str()));
    }
    argv.push_back(nullptr);
    std::vector<char *> envp;
    for (std::string &each : environment) {
        envp.push_back(each.data());
    }
    envp.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    std::string output = fRoot + "/log/harness.out";
    if (input >= 0) {
        posix_spawn_file_actions_adddup2(&actions, input, 0);
    } else {
        posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    }
    posix_spawn_file_actions_addopen(&actions, 1, output.c_str(), O_WRONLY | O_CREAT | O_APPEND,
                                     0644);
    posix_spawn_file_actions_adddup2(&actions, 1, 2);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    // The daemons must not see a signal mask or handlers the test process set up.
    sigset_t none;
    sigemptyset(&none);
    posix_spawnattr_setsigmask(&attributes, &none);
    sigset_t defaults;
    sigfillset(&defaults);
    posix_spawnattr_setsigdefault(&attributes, &defaults);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    int result = posix_spawn(pid, argv[0], &actions, &attributes, argv.data(), envp.data());
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    if (result != 0) {
        *pid = -1;
        fError = "cannot start " + args[0] + ": " + strerror(result);
        return false;
    }
    return true;
}

bool INNSERVER::_runWait(const std::vector<std::string> &args, int timeoutMillis) {
    pid_t pid = -1;
    if (!_spawn(args, &pid)) {
        return false;
    }
    auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMillis);
    for (;;) {
        int status = 0;
        pid_t done = waitpid(pid, &status, WNOHANG);
        if (done == pid) {
            return WIFEXITED(status) && WEXITSTATUS(status) == 0;
        }
        if (done < 0 || std::chrono::steady_clock::now() >= until) {
            kill(pid, SIGKILL);
            waitpid(pid, &status, 0);
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
}

bool INNSERVER::_waitGreeting(uint16_t port, pid_t pid, const char *what) {
    auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(kStartMillis);
    while (std::chrono::steady_clock::now() < until) {
        int status = 0;
        if (waitpid(pid, &status, WNOHANG) == pid) {
            if (pid == fInnd) {
                fInnd = -1;
            } else if (pid == fReader) {
                fReader = -1;
            } else if (pid == fAuthReader) {
                fAuthReader = -1;
            }
            fError = std::string(what) + " ended at start: " + _logTail();
            return false;
        }
        LINK link;
        std::string greeting;
        if (link.open(port) && link.line(&greeting, 2000)) {
            link.send("QUIT\r\n");
            bool greeted = greeting.rfind("200 ", 0) == 0 || greeting.rfind("201 ", 0) == 0;
            if (greeted && greeting.find(" " + fPathHost + " ") != std::string::npos) {
                return true;
            }
            if (greeted) {
                // Another instance's daemon holds the port; ours will give up on it.
                std::this_thread::sleep_for(std::chrono::milliseconds(20));
                continue;
            }
            fError = std::string(what) + " greeted with \"" + greeting + "\"";
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    fError =
        std::string(what) + " did not answer on port " + std::to_string(port) + ": " + _logTail();
    return false;
}

// A shell that waits on a pipe only this process writes to. When the process ends without
// stop() (a crash, a killed test), the pipe closes and the shell ends the daemons and removes
// the directory, so no server is left holding ports or files.
bool INNSERVER::_startGuard() {
    int pipeEnds[2];
    if (pipe2(pipeEnds, O_CLOEXEC) != 0) {
        fError = "cannot make a pipe for the guard";
        return false;
    }
    std::string script = "read line; [ \"$line\" = done ] && exit 0; "
                         "for f in \"$0\"/run/*.pid; do [ -f \"$f\" ] && kill -9 $(cat \"$f\"); "
                         "done; "
                         "rm -rf \"$0\"";
    bool ok = _spawn({"/bin/sh", "-c", script, fRoot}, &fGuard, pipeEnds[0]);
    close(pipeEnds[0]);
    if (!ok) {
        close(pipeEnds[1]);
        return false;
    }
    fGuardPipe = pipeEnds[1];
    return true;
}

void INNSERVER::_kill() {
    // The instance is thrown away with its directory, so nothing it holds needs saving: a
    // kill ends it at once, where an orderly shutdown takes a second or more.
    for (pid_t pid : {fInnd, fReader, fAuthReader, fTlsReader}) {
        if (pid > 0) {
            kill(pid, SIGKILL);
        }
    }
    for (pid_t *pid : {&fInnd, &fReader, &fAuthReader, &fTlsReader}) {
        if (*pid > 0) {
            int status = 0;
            waitpid(*pid, &status, 0);
            *pid = -1;
        }
    }
}

uint16_t INNSERVER::tlsReader(const std::string &certFile, const std::string &keyFile) {
    if (fTlsReader > 0) {
        kill(fTlsReader, SIGKILL);
        int status = 0;
        waitpid(fTlsReader, &status, 0);
        fTlsReader = -1;
    }
    const std::string folder = fRoot + "/etc/tls";
    mkdir(folder.c_str(), 0755);
    std::string cert, key;
    if (!readFile(certFile, &cert) || !readFile(keyFile, &key) ||
        !writeFile(folder + "/cert.pem", cert) || !writeFile(folder + "/key.pem", key) ||
        chmod((folder + "/key.pem").c_str(), 0600) != 0 ||
        (geteuid() == 0 && nftw(folder.c_str(), chownEntry, 4, FTW_PHYS) != 0)) {
        fError = "cannot install the certificate in " + folder;
        return 0;
    }
    uint16_t port = 0;
    if (!freePorts(&port, 1) ||
        !_spawn({std::string(kBin) + "/nnrpd", "-D", "-f", "-n", "-S", "-b", "127.0.0.1", "-p",
                 std::to_string(port), "-c", fRoot + "/etc/readers-auth.conf"},
                &fTlsReader)) {
        fError = "cannot start the TLS reader";
        return 0;
    }
    // Its greeting is encrypted: a port that takes connections is a reader that is up.
    auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(kStartMillis);
    while (std::chrono::steady_clock::now() < until) {
        LINK link;
        if (link.open(port))
            return port;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    fError = "the TLS reader did not listen: " + _logTail();
    return 0;
}

void INNSERVER::stop() {
    _kill();
    if (fGuardPipe >= 0) {
        ssize_t written = write(fGuardPipe, "done\n", 5);
        (void)written;
        close(fGuardPipe);
        fGuardPipe = -1;
    }
    if (fGuard > 0) {
        int status = 0;
        waitpid(fGuard, &status, 0);
        fGuard = -1;
    }
    if (!fRoot.empty()) {
        nftw(fRoot.c_str(), removeEntry, 16, FTW_DEPTH | FTW_PHYS);
        fRoot.clear();
    }
    fPathHost.clear();
    fRunning = false;
}

std::string INNSERVER::_logTail() {
    std::string text;
    for (const char *name : {"/log/errlog", "/log/harness.out", "/log/news.err"}) {
        FILE *file = fopen((fRoot + name).c_str(), "r");
        if (file == nullptr) {
            continue;
        }
        char buffer[4096];
        size_t got = fread(buffer, 1, sizeof buffer, file);
        fclose(file);
        if (got > 0) {
            text += std::string(name + 1) + ": " + std::string(buffer, got) + " ";
        }
    }
    return text.empty() ? "no log lines" : text;
}

bool INNSERVER::groupCreate(const std::string &name, std::string *error) {
    if (!fRunning) {
        *error = "the server is not running";
        return false;
    }
    if (!_runWait({std::string(kBin) + "/ctlinnd", "-t", "5", "newgroup", name, "y"},
                  kToolMillis)) {
        *error = "ctlinnd newgroup " + name + " failed: " + _logTail();
        return false;
    }
    return true;
}

bool INNSERVER::groupInfo(const std::string &group, uint32_t *count, uint32_t *low, uint32_t *high,
                          std::string *error) {
    *count = *low = *high = 0;
    LINK link;
    std::string line;
    if (!link.open(fReaderPort) || !link.line(&line, kStartMillis) ||
        !link.send("GROUP " + group + "\r\n") || !link.line(&line, kStartMillis)) {
        *error = "no answer from the reader daemon";
        return false;
    }
    link.send("QUIT\r\n");
    unsigned long values[3];
    if (sscanf(line.c_str(), "211 %lu %lu %lu", &values[0], &values[1], &values[2]) != 3) {
        *error = "GROUP " + group + ": " + line;
        return false;
    }
    *count = uint32_t(values[0]);
    *low = uint32_t(values[1]);
    *high = uint32_t(values[2]);
    return true;
}

bool INNSERVER::fill(const std::string &group, size_t first, size_t count, uint32_t seed,
                     size_t *accepted, std::string *error) {
    ARTICLEGEN generator(group, seed, kDomain);
    return _feed(
        group,
        [&](STREAMFEED *feed, size_t *refused) {
            return feed->take(generator, first, count, accepted, refused, error);
        },
        accepted, error);
}

bool INNSERVER::feed(const std::string &group, const std::vector<std::string> &articles,
                     size_t *accepted, std::string *error) {
    return _feed(
        group,
        [&](STREAMFEED *feed, size_t *refused) {
            return feed->take(articles, accepted, refused, error);
        },
        accepted, error);
}

bool INNSERVER::_feed(const std::string &group,
                      const std::function<bool(STREAMFEED *, size_t *)> &take, size_t *accepted,
                      std::string *error) {
    *accepted = 0;
    uint32_t before = 0;
    uint32_t low = 0;
    uint32_t high = 0;
    if (!groupInfo(group, &before, &low, &high, error)) {
        return false;
    }
    STREAMFEED feed;
    size_t refused = 0;
    if (!feed.open("127.0.0.1", fFeedPort, error) || !take(&feed, &refused)) {
        return false;
    }
    feed.close();
    // The server files articles as it takes them, but a reader may see the group's numbers
    // a moment later.
    auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(kVisibleMillis);
    for (;;) {
        uint32_t now = 0;
        if (!groupInfo(group, &now, &low, &high, error)) {
            return false;
        }
        if (now >= before + *accepted) {
            return true;
        }
        if (std::chrono::steady_clock::now() >= until) {
            *error = group + " shows " + std::to_string(now) + " articles, expected " +
                     std::to_string(before + *accepted);
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
}
