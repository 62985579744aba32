// Records alert texts instead of showing them, for the life of one test.
#include "tests/support/ALERTRECORDER.h"

void ALERTRECORDER::show(const std::string &text) {
    std::lock_guard<std::mutex> hold(fMutex);
    fTexts.push_back(text);
}

std::vector<std::string> ALERTRECORDER::texts() const {
    std::lock_guard<std::mutex> hold(fMutex);
    return fTexts;
}

size_t ALERTRECORDER::count() const {
    std::lock_guard<std::mutex> hold(fMutex);
    return fTexts.size();
}
