// A private INN news server on loopback for the tests: readers, a password port and a feed port.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <sys/types.h>
#include <vector>

// Everything lives in one temporary directory: configuration, spool, history, logs. Three
// daemons listen on free loopback ports:
//   readerPort  a reader daemon that lets 127.0.0.1 read and post without a login
//   authPort    a reader daemon that wants AUTHINFO USER kUser / PASS kPassword first
//   feedPort    the server itself, taking articles from 127.0.0.1 with MODE STREAM
// The server must be started as root (it then runs as "news") or as the news user. A guard
// process removes the instance even when the test process dies without stopping it.
class STREAMFEED;

class INNSERVER {
public:
    static constexpr const char *kUser = "reader";
    static constexpr const char *kPassword = "open-sesame";
    static constexpr const char *kDomain = "vellowick.invalid";
    // Groups every instance has from the start.
    static const std::vector<std::string> &groups();

    // The instance of this test process, started on first use and stopped when the process
    // ends. Check ok() before using it: a failure to start is a test failure, never a skip.
    static INNSERVER &shared();

    INNSERVER() = default;
    ~INNSERVER();
    INNSERVER(const INNSERVER &) = delete;
    INNSERVER &operator=(const INNSERVER &) = delete;

    // Starts a fresh instance; false with error() saying why (log lines included).
    bool start();
    // Shuts the daemons down and removes the directory; safe when not started.
    void stop();

    bool ok() const { return fRunning; }
    const std::string &error() const { return fError; }
    uint16_t readerPort() const { return fReaderPort; }
    uint16_t authPort() const { return fAuthPort; }
    uint16_t feedPort() const { return fFeedPort; }
    const std::string &root() const { return fRoot; }
    // The server's own name, different for every instance: it appears in each greeting,
    // so a greeting from another test process's server on a reused port is not taken.
    const std::string &pathHost() const { return fPathHost; }

    // (Re)starts a reader daemon that speaks TLS from the first byte with this certificate
    // and wants AUTHINFO USER kUser / PASS kPassword, on a port of its own; returns the port,
    // or 0 with error() saying why.
    uint16_t tlsReader(const std::string &certFile, const std::string &keyFile);

    // Adds a group that takes postings.
    bool groupCreate(const std::string &name, std::string *error);
    // Feeds generated articles first .. first+count-1 (tools/innfill) into the group and
    // waits until a reader sees them. *accepted counts the new ones.
    bool fill(const std::string &group, size_t first, size_t count, uint32_t seed, size_t *accepted,
              std::string *error);
    // Feeds whole articles (of one group) and waits until a reader sees them.
    bool feed(const std::string &group, const std::vector<std::string> &articles, size_t *accepted,
              std::string *error);
    // What a new reader session answers to GROUP: count, first and last article number.
    bool groupInfo(const std::string &group, uint32_t *count, uint32_t *low, uint32_t *high,
                   std::string *error);

private:
    bool _feed(const std::string &group, const std::function<bool(STREAMFEED *, size_t *)> &take,
               size_t *accepted, std::string *error);
    bool _attempt();
    bool _writeFiles();
    bool _spawn(const std::vector<std::string> &args, pid_t *pid, int input = -1);
    bool _runWait(const std::vector<std::string> &args, int timeoutMillis);
    bool _waitGreeting(uint16_t port, pid_t pid, const char *what);
    bool _startGuard();
    void _kill();
    std::string _logTail();

    bool fRunning = false;
    std::string fError;
    std::string fRoot;
    std::string fPathHost;
    uint16_t fReaderPort = 0;
    uint16_t fAuthPort = 0;
    uint16_t fFeedPort = 0;
    pid_t fInnd = -1;
    pid_t fReader = -1;
    pid_t fAuthReader = -1;
    pid_t fTlsReader = -1;
    pid_t fGuard = -1;
    int fGuardPipe = -1;
};
