// Records alert texts instead of showing them, for the life of one test.
#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "base/ALERT.h"

class ALERTRECORDER : public ALERT::SINK {
public:
    ALERTRECORDER() { ALERT::sinkSet(this); }
    ~ALERTRECORDER() override { ALERT::sinkSet(nullptr); }

    void show(const std::string &text) override;
    // A question is recorded as its text; answer() then gives the choice the user would.
    void ask(const std::string &text, const std::vector<std::string> &buttons,
             std::function<void(size_t)> answer) override;
    // Answers the latest question not yet answered with this button; false when none waits.
    bool answer(size_t choice);
    std::vector<std::string> texts() const;
    size_t count() const;

private:
    mutable std::mutex fMutex;
    std::vector<std::string> fTexts;
    std::function<void(size_t)> fPending;
};
