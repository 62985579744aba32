// Whole-file reads and writes for the settings tests, outside the code under test.
#pragma once

#include <fstream>
#include <sstream>
#include <string>

namespace testfiles {
inline std::string text(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

inline void set(const std::string &path, const std::string &text) {
    std::ofstream(path, std::ios::binary | std::ios::trunc) << text;
}
} // namespace testfiles
