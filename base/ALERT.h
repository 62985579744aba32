// The one place every part of the program reports a problem or a notice to the user.
#pragma once

#include <string>

class ALERT {
public:
    // Where alert texts go: the interface shows them, tests record them. Without a sink
    // installed the text goes to standard error.
    class SINK {
    public:
        virtual ~SINK() = default;
        // Must not block a worker thread: an interface shows the text later on its own thread.
        virtual void show(const std::string &text) = 0;
    };

    // Installs a sink (nullptr restores standard error); the caller keeps ownership.
    static void sinkSet(SINK *sink);
    static void show(const std::string &text);
    static void showf(const char *format, ...) __attribute__((format(printf, 1, 2)));
    // The alert for a failed allocation of this many bytes.
    static void outOfMemory(unsigned long size);
};
