// Feeds generated articles into a news server's transfer port with pipelined TAKETHIS.
#include "tools/innfill/STREAMFEED.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include "tools/innfill/ARTICLEGEN.h"

namespace {

// The article in wire form: every line that begins with a dot gets a second one.
std::string dotStuffed(const std::string &article) {
    std::string out;
    out.reserve(article.size() + 16);
    bool lineStart = true;
    for (char c : article) {
        if (lineStart && c == '.') {
            out += '.';
        }
        out += c;
        lineStart = c == '\n';
    }
    return out;
}

} // namespace

STREAMFEED::~STREAMFEED() {
    close();
}

bool STREAMFEED::open(const std::string &host, uint16_t port, std::string *error) {
    close();
    addrinfo hints{};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo *found = nullptr;
    if (getaddrinfo(host.c_str(), std::to_string(port).c_str(), &hints, &found) != 0 ||
        found == nullptr) {
        *error = "cannot resolve " + host;
        return false;
    }
    fSocket = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    bool connected = fSocket >= 0 && connect(fSocket, found->ai_addr, found->ai_addrlen) == 0;
    freeaddrinfo(found);
    if (!connected) {
        *error = "cannot connect to " + host + ":" + std::to_string(port) + ": " + strerror(errno);
        close();
        return false;
    }
    int one = 1;
    setsockopt(fSocket, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
    std::string line;
    if (!_readLine(&line, error)) {
        return false;
    }
    if (line.rfind("200", 0) != 0 && line.rfind("201", 0) != 0) {
        *error = "greeting: " + line;
        return false;
    }
    if (!_sendAll("MODE STREAM\r\n", error) || !_readLine(&line, error)) {
        return false;
    }
    if (line.rfind("203", 0) != 0) {
        *error = "MODE STREAM: " + line;
        return false;
    }
    return true;
}

bool STREAMFEED::take(const ARTICLEGEN &generator, size_t first, size_t count, size_t *accepted,
                      size_t *refused, std::string *error) {
    return _take(
        [&](size_t index, std::string *messageId, std::string *article) {
            *messageId = generator.messageId(first + index);
            *article = generator.article(first + index);
        },
        count, accepted, refused, error);
}

bool STREAMFEED::take(const std::vector<std::string> &articles, size_t *accepted, size_t *refused,
                      std::string *error) {
    return _take(
        [&](size_t index, std::string *messageId, std::string *article) {
            *article = articles[index];
            size_t at = article->find("\r\nMessage-ID: ");
            size_t end = at == std::string::npos ? at : article->find("\r\n", at + 2);
            *messageId =
                end == std::string::npos ? std::string() : article->substr(at + 14, end - at - 14);
        },
        articles.size(), accepted, refused, error);
}

bool STREAMFEED::_take(const SOURCE &source, size_t count, size_t *accepted, size_t *refused,
                       std::string *error) {
    *accepted = 0;
    *refused = 0;
    for (size_t done = 0; done < count;) {
        size_t batch = count - done < kWindow ? count - done : kWindow;
        std::string bytes;
        for (size_t i = 0; i < batch; ++i) {
            std::string messageId, article;
            source(done + i, &messageId, &article);
            bytes += "TAKETHIS " + messageId + "\r\n";
            bytes += dotStuffed(article) + ".\r\n";
        }
        if (!_sendAll(bytes, error)) {
            return false;
        }
        for (size_t i = 0; i < batch; ++i) {
            std::string line;
            if (!_readLine(&line, error)) {
                return false;
            }
            if (line.rfind("239", 0) == 0) {
                ++*accepted;
            } else if (line.rfind("439", 0) == 0) {
                ++*refused;
            } else {
                *error = "TAKETHIS: " + line;
                return false;
            }
        }
        done += batch;
    }
    return true;
}

void STREAMFEED::close() {
    if (fSocket >= 0) {
        std::string ignored;
        _sendAll("QUIT\r\n", &ignored);
        ::close(fSocket);
        fSocket = -1;
    }
    fPending.clear();
}

bool STREAMFEED::_sendAll(const std::string &bytes, std::string *error) {
    size_t done = 0;
    while (done < bytes.size()) {
        ssize_t sent = send(fSocket, bytes.data() + done, bytes.size() - done, MSG_NOSIGNAL);
        if (sent < 0 && errno == EINTR) {
            continue;
        }
        if (sent <= 0) {
            *error = std::string("send: ") + strerror(errno);
            return false;
        }
        done += size_t(sent);
    }
    return true;
}

bool STREAMFEED::_readLine(std::string *line, std::string *error) {
    for (;;) {
        size_t end = fPending.find("\r\n");
        if (end != std::string::npos) {
            *line = fPending.substr(0, end);
            fPending.erase(0, end + 2);
            return true;
        }
        char buffer[4096];
        ssize_t got = recv(fSocket, buffer, sizeof buffer, 0);
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got <= 0) {
            *error = got == 0 ? "server closed the connection" : strerror(errno);
            return false;
        }
        fPending.append(buffer, size_t(got));
        // The server's answers wait for our acknowledgement under its small-write rule;
        // acknowledging at once instead of 40 ms later is what lets the window flow.
        int one = 1;
        setsockopt(fSocket, IPPROTO_TCP, TCP_QUICKACK, &one, sizeof one);
    }
}
