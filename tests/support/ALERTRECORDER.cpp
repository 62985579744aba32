// Records alert texts instead of showing them, for the life of one test.
#include "tests/support/ALERTRECORDER.h"

void ALERTRECORDER::show(const std::string &text) {
    std::lock_guard<std::mutex> hold(fMutex);
    fTexts.push_back(text);
}

void ALERTRECORDER::ask(const std::string &text, const std::vector<std::string> &buttons,
                        std::function<void(size_t)> answer) {
    std::lock_guard<std::mutex> hold(fMutex);
    std::string shown = text;
    for (const std::string &button : buttons)
        shown += "\n[" + button + "]";
    fTexts.push_back(shown);
    fPending = std::move(answer);
}

bool ALERTRECORDER::answer(size_t choice) {
    std::function<void(size_t)> pending;
    {
        std::lock_guard<std::mutex> hold(fMutex);
        pending.swap(fPending);
    }
    if (!pending)
        return false;
    pending(choice);
    return true;
}

std::vector<std::string> ALERTRECORDER::texts() const {
    std::lock_guard<std::mutex> hold(fMutex);
    return fTexts;
}

size_t ALERTRECORDER::count() const {
    std::lock_guard<std::mutex> hold(fMutex);
    return fTexts.size();
}
