// A scripted news server on a loopback port for protocol tests: plays lines, records the client.
#include "tests/support/FAKENNTP.h"

#include <arpa/inet.h>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <netinet/in.h>
#include <openssl/ssl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

constexpr int kStepMillis = 20;          // how often waits look at the stop flag
constexpr int kClientWaitMillis = 10000; // a "C:" step gives up after this

// Turns the escapes of a "B:" step into bytes.
std::string unescape(const std::string &text) {
    std::string out;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '\\' || i + 1 == text.size()) {
            out += text[i];
            continue;
        }
        char code = text[++i];
        switch (code) {
        case 'r':
            out += '\r';
            break;
        case 'n':
            out += '\n';
            break;
        case '0':
            out += '\0';
            break;
        case 'x':
            if (i + 2 < text.size()) {
                out += char(strtol(text.substr(i + 1, 2).c_str(), nullptr, 16));
                i += 2;
            }
            break;
        default:
            out += code;
            break;
        }
    }
    return out;
}

std::vector<std::string> splitSteps(const std::string &script) {
    std::vector<std::string> steps;
    size_t begin = 0;
    while (begin <= script.size()) {
        size_t end = script.find('\n', begin);
        if (end == std::string::npos) {
            end = script.size();
        }
        if (end > begin) {
            steps.push_back(script.substr(begin, end - begin));
        }
        begin = end + 1;
    }
    return steps;
}

} // namespace

FAKENNTP::FAKENNTP() {
    fListen = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    if (fListen < 0 || bind(fListen, reinterpret_cast<sockaddr *>(&address), length) != 0 ||
        listen(fListen, 8) != 0 ||
        getsockname(fListen, reinterpret_cast<sockaddr *>(&address), &length) != 0) {
        fError = "cannot listen on loopback";
        return;
    }
    fPort = ntohs(address.sin_port);
}

uint16_t FAKENNTP::closedPort() {
    int probe = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    bind(probe, reinterpret_cast<sockaddr *>(&address), length);
    getsockname(probe, reinterpret_cast<sockaddr *>(&address), &length);
    close(probe);
    return ntohs(address.sin_port);
}

FAKENNTP::~FAKENNTP() {
    stop();
    if (fListen >= 0) {
        close(fListen);
    }
    SSL_CTX_free(fContext);
}

void FAKENNTP::tls(const std::string &certFile, const std::string &keyFile) {
    fCertFile = certFile;
    fKeyFile = keyFile;
}

bool FAKENNTP::_tlsAccept() {
    if (fContext == nullptr) {
        fContext = SSL_CTX_new(TLS_server_method());
        if (fContext == nullptr ||
            SSL_CTX_use_certificate_chain_file(fContext, fCertFile.c_str()) != 1 ||
            SSL_CTX_use_PrivateKey_file(fContext, fKeyFile.c_str(), SSL_FILETYPE_PEM) != 1) {
            _fail("cannot load the certificate " + fCertFile);
            return false;
        }
    }
    // A client that never sends its hello must not hold the server thread for ever.
    timeval limit{kClientWaitMillis / 1000, 0};
    setsockopt(fClient, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    fSsl = SSL_new(fContext);
    SSL_set_fd(fSsl, fClient);
    if (SSL_accept(fSsl) != 1) {
        // A client that refuses the certificate ends here; that is what some tests want.
        SSL_free(fSsl);
        fSsl = nullptr;
        return false;
    }
    return true;
}

long FAKENNTP::_recv(char *buffer, size_t size) {
    if (fSsl != nullptr) {
        return SSL_read(fSsl, buffer, int(size));
    }
    return recv(fClient, buffer, size, 0);
}

void FAKENNTP::play(const std::string &script) {
    fThread = std::thread(&FAKENNTP::_run, this, splitSteps(script));
}

bool FAKENNTP::wait(int64_t timeoutMicros) {
    std::unique_lock<std::mutex> lock(fMutex);
    return fDone.wait_for(lock, std::chrono::microseconds(timeoutMicros),
                          [this] { return fFinished; });
}

void FAKENNTP::stop() {
    fStop = true;
    if (fThread.joinable()) {
        fThread.join();
    }
}

std::string FAKENNTP::received() {
    std::lock_guard<std::mutex> lock(fMutex);
    return fReceived;
}

std::string FAKENNTP::error() {
    std::lock_guard<std::mutex> lock(fMutex);
    return fError;
}

void FAKENNTP::_fail(const std::string &text) {
    std::lock_guard<std::mutex> lock(fMutex);
    if (fError.empty()) {
        fError = text;
    }
}

void FAKENNTP::_run(std::vector<std::string> steps) {
    bool connected = false;
    for (size_t i = 0; i < steps.size() && !fStop; ++i) {
        const std::string &step = steps[i];
        if (!connected) {
            if (!_accept()) {
                break;
            }
            connected = true;
        }
        std::string argument = step.size() > 3 ? step.substr(3) : std::string();
        if (step.rfind("S: ", 0) == 0 || step == "S:") {
            _sendAll(argument + "\r\n");
        } else if (step.rfind("B: ", 0) == 0) {
            _sendAll(unescape(argument));
        } else if (step.rfind("L: ", 0) == 0) {
            char *end = nullptr;
            long count = strtol(argument.c_str(), &end, 10);
            char fill = (end != nullptr && end[0] == ' ' && end[1] != 0) ? end[1] : 'x';
            _sendAll(std::string(size_t(count), fill) + "\r\n");
        } else if (step.rfind("C: ", 0) == 0) {
            std::string line;
            if (!_readLine(&line)) {
                _fail("client sent nothing for step \"" + step + "\"");
                break;
            }
            if (argument != "*" && line != argument) {
                _fail("expected \"" + argument + "\", client sent \"" + line + "\"");
            }
        } else if (step.rfind("P: ", 0) == 0) {
            auto until = std::chrono::steady_clock::now() +
                         std::chrono::milliseconds(atol(argument.c_str()));
            while (!fStop && std::chrono::steady_clock::now() < until) {
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            }
        } else if (step == "H") {
            _drain();
        } else if (step == "T") {
            if (!_tlsAccept()) {
                break;
            }
        } else if (step == "X") {
            _closeClient();
            connected = false;
        } else {
            _fail("unknown step \"" + step + "\"");
            break;
        }
    }
    if (connected) {
        _drain();
        _closeClient();
    }
    std::lock_guard<std::mutex> lock(fMutex);
    fFinished = true;
    fDone.notify_all();
}

bool FAKENNTP::_accept() {
    while (!fStop) {
        pollfd watch{fListen, POLLIN, 0};
        if (poll(&watch, 1, kStepMillis) > 0) {
            fClient = accept4(fListen, nullptr, nullptr, SOCK_CLOEXEC);
            if (fClient >= 0) {
                ++fConnections;
                std::lock_guard<std::mutex> lock(fMutex);
                fPending.clear();
                return true;
            }
        }
    }
    return false;
}

void FAKENNTP::_closeClient() {
    if (fSsl != nullptr) {
        SSL_shutdown(fSsl);
        SSL_free(fSsl);
        fSsl = nullptr;
    }
    if (fClient >= 0) {
        close(fClient);
        fClient = -1;
    }
}

bool FAKENNTP::_sendAll(const std::string &bytes) {
    size_t done = 0;
    while (done < bytes.size()) {
        ssize_t sent = fSsl != nullptr
                           ? SSL_write(fSsl, bytes.data() + done, int(bytes.size() - done))
                           : send(fClient, bytes.data() + done, bytes.size() - done, MSG_NOSIGNAL);
        if (sent < 0 && errno == EINTR) {
            continue;
        }
        if (sent <= 0) {
            return false;
        }
        done += size_t(sent);
    }
    return true;
}

bool FAKENNTP::_waitReadable(int millis, bool *ready) {
    *ready = false;
    for (int waited = 0; waited < millis && !fStop; waited += kStepMillis) {
        if (fSsl != nullptr && SSL_pending(fSsl) > 0) {
            *ready = true;
            return true;
        }
        pollfd watch{fClient, POLLIN, 0};
        if (poll(&watch, 1, kStepMillis) > 0) {
            *ready = true;
            return true;
        }
    }
    return !fStop;
}

bool FAKENNTP::_readLine(std::string *line) {
    for (;;) {
        {
            std::lock_guard<std::mutex> lock(fMutex);
            size_t end = fPending.find('\n');
            if (end != std::string::npos) {
                *line = fPending.substr(0, end);
                fPending.erase(0, end + 1);
                if (!line->empty() && line->back() == '\r') {
                    line->pop_back();
                }
                return true;
            }
        }
        bool ready = false;
        if (!_waitReadable(kClientWaitMillis, &ready) || !ready) {
            return false;
        }
        char buffer[4096];
        long got = _recv(buffer, sizeof buffer);
        if (got <= 0) {
            return false;
        }
        std::lock_guard<std::mutex> lock(fMutex);
        fReceived.append(buffer, size_t(got));
        fPending.append(buffer, size_t(got));
    }
}

void FAKENNTP::_drain() {
    while (!fStop) {
        bool ready = false;
        if (!_waitReadable(kStepMillis, &ready)) {
            return;
        }
        if (!ready) {
            continue;
        }
        char buffer[4096];
        long got = _recv(buffer, sizeof buffer);
        if (got <= 0) {
            return;
        }
        std::lock_guard<std::mutex> lock(fMutex);
        fReceived.append(buffer, size_t(got));
    }
}
