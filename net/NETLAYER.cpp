// The bare socket as a layer, and the wait for a socket that can take more bytes.
#include "net/NETLAYER.h"

#include <cerrno>
#include <poll.h>
#include <sys/socket.h>

#include "base/TIMEBASE.h"

namespace {

class SOCKETLAYER : public NETLAYER {
public:
    SOCKETLAYER(int fd, int64_t writeTimeout) : fFd(fd), fWriteTimeout(writeTimeout) {}

    NETWORK::ERROR read(void *buffer, size_t size, size_t *received) override {
        *received = 0;
        ssize_t got = ::recv(fFd, buffer, size, MSG_DONTWAIT);
        if (got > 0) {
            *received = size_t(got);
            return NETWORK::kOk;
        }
        if (got == 0)
            return NETWORK::kClosed;
        if (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR)
            return NETWORK::kNoData;
        return NETWORK::errorGet(NETWORK::kReceive);
    }

    NETWORK::ERROR write(const void *data, size_t length) override {
        const auto *bytes = static_cast<const char *>(data);
        while (length > 0) {
            ssize_t sent = ::send(fFd, bytes, length, MSG_NOSIGNAL | MSG_DONTWAIT);
            if (sent > 0) {
                bytes += sent;
                length -= size_t(sent);
                continue;
            }
            if (sent < 0 && (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR)) {
                if (!writable(fFd, fWriteTimeout))
                    return NETWORK::kTimedOut;
                continue;
            }
            return NETWORK::errorGet(NETWORK::kTransmit);
        }
        return NETWORK::kOk;
    }

private:
    int fFd;
    int64_t fWriteTimeout;
};

} // namespace

std::unique_ptr<NETLAYER> NETLAYER::socket(int fd, int64_t writeTimeout) {
    return std::make_unique<SOCKETLAYER>(fd, writeTimeout);
}

bool NETLAYER::writable(int fd, int64_t timeout) {
    const int64_t begin = TIMEBASE::tickCount();
    for (;;) {
        pollfd watch{fd, POLLOUT, 0};
        if (poll(&watch, 1, int(NETWORK::kPollMicros / 1000)) > 0)
            return true;
        if (TIMEBASE::tickCount() - begin >= timeout)
            return false;
    }
}
