// The one place every part of the program reports a problem or a notice to the user.
#include "base/ALERT.h"

#include "base/TextFormat.h"

#include <atomic>
#include <cstdarg>
#include <cstdio>

namespace {
std::atomic<ALERT::SINK *> gSink{nullptr};
}

void ALERT::sinkSet(SINK *sink) {
    gSink = sink;
}

void ALERT::show(const std::string &text) {
    if (SINK *sink = gSink.load()) {
        sink->show(text);
        return;
    }
    std::fprintf(stderr, "%s\n", text.c_str());
}

void ALERT::ask(const std::string &text, const std::vector<std::string> &buttons,
                std::function<void(size_t)> answer) {
    if (SINK *sink = gSink.load()) {
        sink->ask(text, buttons, std::move(answer));
        return;
    }
    std::fprintf(stderr, "%s\n", text.c_str());
}

void ALERT::showf(const char *format, ...) {
    va_list args;
    va_start(args, format);
    std::string text = textVFormat(format, args);
    va_end(args);
    show(text);
}

void ALERT::outOfMemory(unsigned long size) {
    showf("Could not allocate required memory.\n\nAllocation size: %lu", size);
}
