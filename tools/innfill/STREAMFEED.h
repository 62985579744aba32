// Feeds generated articles into a news server's transfer port with pipelined TAKETHIS.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

class ARTICLEGEN;

// The streaming commands let many articles be in flight at once: a hundred thousand small
// articles go in within seconds, where posting them one by one through a reader takes minutes.
class STREAMFEED {
public:
    static constexpr size_t kWindow = 64; // articles sent before their answers are read

    STREAMFEED() = default;
    ~STREAMFEED();
    STREAMFEED(const STREAMFEED &) = delete;
    STREAMFEED &operator=(const STREAMFEED &) = delete;

    // Connects (IPv4 dotted quad or name), reads the greeting and switches to streaming.
    bool open(const std::string &host, uint16_t port, std::string *error);
    // Offers articles first .. first+count-1 of the generator; counts those the server took
    // and those it refused (a duplicate, for one). False when the connection fails.
    bool take(const ARTICLEGEN &generator, size_t first, size_t count, size_t *accepted,
              size_t *refused, std::string *error);
    // The same for articles given whole (their Message-ID is read from their header).
    bool take(const std::vector<std::string> &articles, size_t *accepted, size_t *refused,
              std::string *error);
    // Says goodbye and closes; safe when not open.
    void close();

private:
    using SOURCE = std::function<void(size_t index, std::string *messageId, std::string *article)>;
    bool _take(const SOURCE &source, size_t count, size_t *accepted, size_t *refused,
               std::string *error);
    bool _sendAll(const std::string &bytes, std::string *error);
    bool _readLine(std::string *line, std::string *error);

    int fSocket = -1;
    std::string fPending;
};
