// The one place every part of the program reports a problem or a notice to the user.
#pragma once

#include <functional>
#include <string>
#include <vector>

class ALERT {
public:
    // Where alert texts go: the interface shows them, tests record them. Without a sink
    // installed the text goes to standard error.
    class SINK {
    public:
        virtual ~SINK() = default;
        // Must not block a worker thread: an interface shows the text later on its own thread.
        virtual void show(const std::string &text) = 0;
        // A question: the text with one button per choice. answer is called later, on the
        // interface's thread, with the index of the button chosen; a sink that cannot ask
        // only shows the text and never answers.
        virtual void ask(const std::string &text, const std::vector<std::string> &buttons,
                         std::function<void(size_t)> answer) {
            (void)buttons;
            (void)answer;
            show(text);
        }
    };

    // Installs a sink (nullptr restores standard error); the caller keeps ownership.
    static void sinkSet(SINK *sink);
    static void show(const std::string &text);
    static void showf(const char *format, ...) __attribute__((format(printf, 1, 2)));
    // Asks without waiting for the answer (see SINK::ask); without a sink the text goes to
    // standard error and nothing is answered.
    static void ask(const std::string &text, const std::vector<std::string> &buttons,
                    std::function<void(size_t)> answer);
    // The alert for a failed allocation of this many bytes.
    static void outOfMemory(unsigned long size);
};
