// Connection records over IPv4 sockets: open, connect with a time-out, send, buffered receive.
#include "net/NETWORK.h"

#include <arpa/inet.h>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <new>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "base/TIMEBASE.h"
#include "net/NETDEFLATE.h"
#include "net/NETTLS.h"

std::atomic<bool> NETWORK::fStarted{false};
CRITSECT NETWORK::fLock;
NETWORK::CONNECT *NETWORK::fList = nullptr;

namespace {

sockaddr_in toSockaddr(uint32_t address, uint16_t port) {
    sockaddr_in in{};
    in.sin_family = AF_INET;
    in.sin_addr.s_addr = htonl(address);
    in.sin_port = htons(port);
    return in;
}

NETWORK::ADDR fromSockaddr(const sockaddr_in &in) {
    NETWORK::ADDR addr;
    addr.address = ntohl(in.sin_addr.s_addr);
    addr.port = ntohs(in.sin_port);
    return addr;
}

bool blockingSet(int socket, bool blocking) {
    int flags = fcntl(socket, F_GETFL);
    if (flags < 0) {
        return false;
    }
    flags = blocking ? (flags & ~O_NONBLOCK) : (flags | O_NONBLOCK);
    return fcntl(socket, F_SETFL, flags) == 0;
}

// The pause between two looks at a socket. Waiting on the socket itself rather than sleeping
// blind ends the pause as soon as it is ready, so pipelined responses are not held back by
// the step; the cancel hook and the time-out are still looked at every step.
void pauseOn(int socket, short events) {
    pollfd watch{socket, events, 0};
    poll(&watch, 1, int(NETWORK::kPollMicros / 1000));
}

// Linux falls back to delayed acknowledgements after a while; a server that writes a status
// line and its body separately then stalls 40 ms on each response. Asking again after every
// receive keeps the acknowledgements immediate.
void quickAck(const NETWORK::CONNECT *conn) {
    if (conn->type == NETWORK::kStream) {
        int one = 1;
        setsockopt(conn->socket, IPPROTO_TCP, TCP_QUICKACK, &one, sizeof one);
    }
}

void disconnected(NETWORK::CONNECT *conn) {
    conn->peer = NETWORK::ADDR{};
    conn->connected = 0;
}

} // namespace

bool NETWORK::start() {
    CRITSECT_HOLD hold(fLock);
    // A write to a closed socket must come back as an error rather than kill the program.
    // Plain sends pass MSG_NOSIGNAL, but TLS writes through the library's own socket calls.
    signal(SIGPIPE, SIG_IGN);
    fStarted = true;
    return fStarted;
}

void NETWORK::stop() {
    CRITSECT_HOLD hold(fLock);
    while (fList != nullptr) {
        CONNECT *conn = fList;
        close(&conn);
    }
    fStarted = false;
}

bool NETWORK::started() {
    return fStarted;
}

void NETWORK::_listAdd(CONNECT *conn) {
    CRITSECT_HOLD hold(fLock);
    conn->next = nullptr;
    CONNECT **link = &fList;
    while (*link != nullptr) {
        link = &(*link)->next;
    }
    *link = conn;
}

void NETWORK::_listRemove(CONNECT *conn) {
    CRITSECT_HOLD hold(fLock);
    for (CONNECT **link = &fList; *link != nullptr; link = &(*link)->next) {
        if (*link == conn) {
            *link = conn->next;
            conn->next = nullptr;
            return;
        }
    }
}

bool NETWORK::_listHas(const CONNECT *conn) {
    CRITSECT_HOLD hold(fLock);
    for (const CONNECT *each = fList; each != nullptr; each = each->next) {
        if (each == conn) {
            return true;
        }
    }
    return false;
}

size_t NETWORK::connectCount() {
    CRITSECT_HOLD hold(fLock);
    size_t count = 0;
    for (const CONNECT *each = fList; each != nullptr; each = each->next) {
        ++count;
    }
    return count;
}

NETWORK::ERROR NETWORK::_recordNew(CONNECT **conn, unsigned long bufferSize, SOCKETTYPE type) {
    *conn = nullptr;
    auto *record = new (std::nothrow) CONNECT;
    if (record == nullptr) {
        return kNoMemory;
    }
    record->type = type;
    _listAdd(record);
    if (bufferSize != 0) {
        // The record's buffer must lie within these bounds; a request outside is brought in
        // rather than refused, since any size in range works for the caller.
        uint32_t size = bufferSize < kBufferMin   ? kBufferMin
                        : bufferSize > kBufferMax ? kBufferMax
                                                  : uint32_t(bufferSize);
        record->buffer = static_cast<char *>(calloc(size, 1));
        if (record->buffer == nullptr) {
            close(&record);
            return kNoMemory;
        }
        record->size = size;
    }
    *conn = record;
    return kOk;
}

NETWORK::ERROR NETWORK::open(CONNECT **conn, unsigned long bufferSize, uint32_t localAddress,
                             uint16_t localPort, SOCKETTYPE type, uint16_t backlog) {
    *conn = nullptr;
    if (!fStarted) {
        return kNotAvailable;
    }
    if (type != kStream && type != kDatagram) {
        return kSocketOpen;
    }
    CONNECT *record = nullptr;
    ERROR error = _recordNew(&record, bufferSize, type);
    if (error != kOk) {
        return error;
    }
    record->socket =
        socket(AF_INET, (type == kStream ? SOCK_STREAM : SOCK_DGRAM) | SOCK_CLOEXEC, 0);
    if (record->socket < 0 || !blockingSet(record->socket, true)) {
        error = kSocketOpen;
    }
    if (error == kOk && type == kStream) {
        // Commands are single short lines; sending each at once is what pipelining wants.
        int one = 1;
        setsockopt(record->socket, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
    }
    if (error == kOk) {
        sockaddr_in local = toSockaddr(localAddress, localPort);
        if (bind(record->socket, reinterpret_cast<sockaddr *>(&local), sizeof local) != 0) {
            error = errorGet(kSocketOpen);
        }
    }
    if (error == kOk) {
        sockaddr_in bound{};
        socklen_t length = sizeof bound;
        if (getsockname(record->socket, reinterpret_cast<sockaddr *>(&bound), &length) != 0) {
            error = errorGet(kAddressUnavailable);
        } else {
            record->local = fromSockaddr(bound);
        }
    }
    if (error == kOk && backlog != 0) {
        if (listen(record->socket, backlog) != 0) {
            error = errorGet(kSocketOpen);
        } else {
            record->backlog = backlog;
        }
    }
    if (error != kOk) {
        close(&record);
        return error;
    }
    *conn = record;
    return kOk;
}

NETWORK::ERROR NETWORK::connect(CONNECT *conn, const ADDR *peer, int64_t timeout, CANCEL cancel) {
    if (conn == nullptr || !fStarted) {
        return kNotAvailable;
    }
    if (conn->connected != 0) {
        return kAlreadyConnected;
    }
    if (!blockingSet(conn->socket, false)) {
        return errorGet(kRefused);
    }
    sockaddr_in to = toSockaddr(peer->address, peer->port);
    int64_t begin = TIMEBASE::tickCount();
    ERROR result = kOk;
    for (;;) {
        errno = 0;
        if (::connect(conn->socket, reinterpret_cast<sockaddr *>(&to), sizeof to) == 0 ||
            errno == EISCONN) {
            break;
        }
        if (errno != EINPROGRESS && errno != EALREADY && errno != EINTR) {
            result = errorGet(kRefused);
            break;
        }
        if (cancel != nullptr && cancel()) {
            result = kCancelled;
            break;
        }
        if (TIMEBASE::tickCount() - begin >= timeout) {
            result = kTimedOut;
            break;
        }
        pauseOn(conn->socket, POLLOUT);
    }
    blockingSet(conn->socket, true);
    if (result == kOk) {
        conn->peer = *peer;
        conn->connected = 1;
    }
    return result;
}

NETWORK::ERROR NETWORK::send(CONNECT *conn, const ADDR *peer, const void *data,
                             unsigned long length) {
    if (conn == nullptr) {
        return kNotAvailable;
    }
    if (conn->type == kStream && conn->connected == 0) {
        return kClosed;
    }
    if (!fStarted) {
        return kNotAvailable;
    }
    if (conn->layer != nullptr) {
        ERROR result = conn->layer->write(data, length);
        if (result == kClosed) {
            disconnected(conn);
        }
        return result;
    }
    ssize_t sent;
    if (conn->type == kDatagram && peer != nullptr) {
        sockaddr_in to = toSockaddr(peer->address, peer->port);
        sent = sendto(conn->socket, data, length, MSG_NOSIGNAL, reinterpret_cast<sockaddr *>(&to),
                      sizeof to);
    } else {
        sent = ::send(conn->socket, data, length, MSG_NOSIGNAL);
    }
    // A short write is not retried and counts as success; deliberate, command lines are far
    // smaller than any socket buffer.
    ERROR result = sent >= 0 ? kOk : errorGet(kTransmit);
    if (result == kClosed) {
        disconnected(conn);
    }
    return result;
}

NETWORK::ERROR NETWORK::recv(CONNECT *conn, ADDR *from, void *buffer, unsigned long size,
                             unsigned long *received) {
    *received = 0;
    if (conn == nullptr || !fStarted) {
        return kNotAvailable;
    }
    if (conn->layer != nullptr) {
        // A layer may hold decrypted or inflated bytes the socket no longer shows: ask it.
        size_t got = 0;
        ERROR result = conn->layer->read(buffer, size, &got);
        *received = got;
        if (result == kOk) {
            quickAck(conn);
        } else if (result == kClosed) {
            disconnected(conn);
        }
        return result;
    }
    pollfd watch{conn->socket, POLLIN | POLLPRI, 0};
    int ready = poll(&watch, 1, 0);
    if (ready == 0) {
        return kNoData;
    }
    if (ready < 0) {
        return errorGet(kReceive);
    }
    ssize_t got;
    if (conn->type == kDatagram) {
        sockaddr_in sender{};
        socklen_t length = sizeof sender;
        got =
            recvfrom(conn->socket, buffer, size, 0, reinterpret_cast<sockaddr *>(&sender), &length);
        if (got >= 0 && from != nullptr) {
            *from = fromSockaddr(sender);
        }
    } else {
        got = ::recv(conn->socket, buffer, size, 0);
    }
    ERROR result = kOk;
    if (got == 0) {
        result = kClosed;
    } else if (got < 0) {
        result = errorGet(kReceive);
    } else {
        *received = static_cast<unsigned long>(got);
        quickAck(conn);
    }
    if (result == kClosed) {
        disconnected(conn);
    }
    return result;
}

NETWORK::ERROR NETWORK::_fill(CONNECT *conn, ADDR *from, int64_t timeout, CANCEL cancel) {
    conn->position = 0;
    conn->count = 0;
    int64_t begin = TIMEBASE::tickCount();
    for (;;) {
        unsigned long received = 0;
        ERROR result = recv(conn, from, conn->buffer, conn->size, &received);
        if (result != kNoData) {
            conn->count = uint32_t(received);
            conn->received += received;
            return result;
        }
        if (cancel != nullptr && cancel()) {
            return kCancelled;
        }
        if (TIMEBASE::tickCount() - begin >= timeout) {
            return kTimedOut;
        }
        pauseOn(conn->socket, POLLIN | POLLPRI);
    }
}

NETWORK::ERROR NETWORK::recvBuf(CONNECT *conn, ADDR *from, void *dest, unsigned long count,
                                int64_t timeout, CANCEL cancel, unsigned long *received) {
    *received = 0;
    if (conn == nullptr || !fStarted) {
        return kNotAvailable;
    }
    if (conn->buffer == nullptr) {
        return kClosed;
    }
    auto *out = static_cast<char *>(dest);
    while (*received < count) {
        if (conn->count == 0) {
            ERROR result = _fill(conn, from, timeout, cancel);
            if (result != kOk) {
                return result;
            }
            if (conn->count == 0) {
                return kNoData;
            }
        }
        unsigned long take = count - *received;
        if (take > conn->count) {
            take = conn->count;
        }
        memcpy(out + *received, conn->buffer + conn->position, take);
        conn->position += uint32_t(take);
        conn->count -= uint32_t(take);
        *received += take;
    }
    return kOk;
}

NETWORK::ERROR NETWORK::recvLine(CONNECT *conn, ADDR *from, char *line, unsigned long size,
                                 char *overflow, int64_t timeout, CANCEL cancel,
                                 unsigned long *length) {
    *length = 0;
    *overflow = 0;
    if (size == 0) {
        return kNoMemory;
    }
    line[0] = 0;
    if (conn == nullptr || !fStarted) {
        return kNotAvailable;
    }
    if (conn->buffer == nullptr) {
        return kClosed;
    }
    bool crPending = false;
    unsigned long used = 0;
    ERROR result = kOk;
    for (;;) {
        if (conn->count == 0) {
            result = _fill(conn, from, timeout, cancel);
            if (result == kOk && conn->count == 0) {
                result = kNoData;
            }
            if (result != kOk) {
                // A carriage return already ended this line; the closed connection shows on
                // the next read.
                if (crPending && result == kClosed) {
                    result = kOk;
                }
                break;
            }
        }
        char byte = conn->buffer[conn->position];
        if (byte == 0) {
            byte = ' ';
        }
        if (byte == '\n') {
            ++conn->position;
            --conn->count;
            break;
        }
        if (byte == '\r') {
            if (crPending) {
                break;
            }
            ++conn->position;
            --conn->count;
            crPending = true;
            continue;
        }
        if (crPending) {
            break;
        }
        if (used == size - 1) {
            *overflow = byte;
            break;
        }
        line[used++] = byte;
        ++conn->position;
        --conn->count;
    }
    line[used] = 0;
    *length = used;
    return result;
}

NETWORK::ERROR NETWORK::tlsStart(CONNECT *conn, const char *host, const char *pinned,
                                 int64_t timeout, CANCEL cancel, TLSINFO *result) {
    *result = TLSINFO{};
    if (conn == nullptr || !fStarted) {
        return kNotAvailable;
    }
    if (conn->type != kStream || conn->connected == 0) {
        return kClosed;
    }
    if (conn->layer != nullptr) {
        return kAlreadyConnected;
    }
    std::unique_ptr<NETLAYER> layer;
    ERROR error = NETTLS::handshake(conn->socket, host, pinned, timeout, cancel, &layer, result);
    if (error == kClosed) {
        disconnected(conn);
    }
    conn->layer = layer.release();
    return error;
}

NETWORK::ERROR NETWORK::compressStart(CONNECT *conn, int64_t writeTimeout) {
    if (conn == nullptr || !fStarted) {
        return kNotAvailable;
    }
    if (conn->type != kStream || conn->connected == 0 || conn->buffer == nullptr) {
        return kClosed;
    }
    std::unique_ptr<NETLAYER> below(conn->layer);
    conn->layer = nullptr;
    if (below == nullptr) {
        below = NETLAYER::socket(conn->socket, writeTimeout);
    }
    // Whatever the buffer still holds came after the server's consent: it is compressed.
    std::unique_ptr<NETDEFLATE> layer =
        NETDEFLATE::create(std::move(below), conn->buffer + conn->position, conn->count);
    if (layer == nullptr) {
        return kNoMemory;
    }
    conn->wireReceived = conn->received - conn->count;
    conn->count = 0;
    conn->position = 0;
    conn->layer = layer.release();
    return kOk;
}

uint64_t NETWORK::wireReceived(const CONNECT *conn) {
    const auto *deflate = dynamic_cast<const NETDEFLATE *>(conn->layer);
    return deflate != nullptr ? conn->wireReceived + deflate->wireReceived() : conn->received;
}

NETWORK::ERROR NETWORK::_closeRecord(CONNECT *conn) {
    ERROR result = kOk;
    if (conn->layer != nullptr) {
        if (conn->connected != 0) {
            conn->layer->shutdown();
        }
        delete conn->layer;
        conn->layer = nullptr;
    }
    if (conn->connected != 0) {
        shutdown(conn->socket, SHUT_RDWR);
        disconnected(conn);
    }
    if (conn->socket >= 0 && ::close(conn->socket) != 0) {
        result = errorGet(kSocketClose);
    }
    conn->socket = -1;
    free(conn->buffer);
    conn->buffer = nullptr;
    conn->size = conn->count = conn->position = 0;
    return result;
}

NETWORK::ERROR NETWORK::close(CONNECT **conn) {
    if (*conn == nullptr) {
        return kOk;
    }
    ERROR result = _closeRecord(*conn);
    _listRemove(*conn);
    delete *conn;
    *conn = nullptr;
    return result;
}

NETWORK::ERROR NETWORK::accept(CONNECT *listener, CONNECT **conn, unsigned long bufferSize) {
    *conn = nullptr;
    if (listener == nullptr || !fStarted) {
        return kNotAvailable;
    }
    sockaddr_in peer{};
    socklen_t length = sizeof peer;
    int socket =
        accept4(listener->socket, reinterpret_cast<sockaddr *>(&peer), &length, SOCK_CLOEXEC);
    if (socket < 0) {
        return errorGet(kSocketOpen);
    }
    CONNECT *record = nullptr;
    ERROR error = _recordNew(&record, bufferSize, listener->type);
    if (error != kOk) {
        ::close(socket);
        return error;
    }
    record->socket = socket;
    sockaddr_in local{};
    length = sizeof local;
    if (getsockname(socket, reinterpret_cast<sockaddr *>(&local), &length) == 0) {
        record->local = fromSockaddr(local);
    }
    record->peer = fromSockaddr(peer);
    record->connected = 1;
    *conn = record;
    return kOk;
}

NETWORK::ERROR NETWORK::connectBroadcast(CONNECT *) {
    return kOk;
}

bool NETWORK::connectValidate(const CONNECT *conn) {
    if (conn == nullptr || !_listHas(conn) || conn->socket < 0) {
        return false;
    }
    if (conn->buffer != nullptr) {
        if (conn->size < kBufferMin || conn->size > kBufferMax) {
            return false;
        }
    } else if (conn->count != 0 || conn->position != 0 || conn->size != 0) {
        return false;
    }
    if (conn->type == kDatagram && (conn->backlog != 0 || conn->connected != 0)) {
        return false;
    }
    return conn->type == kDatagram || conn->type == kStream;
}

uint32_t NETWORK::ipAddr() {
    CONNECT *conn = nullptr;
    if (open(&conn, 0, 0, 0, kStream, 0) != kOk) {
        return 0;
    }
    uint32_t address = conn->local.address;
    close(&conn);
    return address;
}
