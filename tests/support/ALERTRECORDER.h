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
    std::vector<std::string> texts() const;
    size_t count() const;

private:
    mutable std::mutex fMutex;
    std::vector<std::string> fTexts;
};
