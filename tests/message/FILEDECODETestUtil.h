// Helpers of the message-file and decoding tests: files read and written in one go, and the
// SHA-256 of a file as coreutils gives it (the fixtures' digests were recorded with it).
#pragma once

#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>

namespace decodetest {

inline std::string fileGet(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

inline void filePut(const std::string &path, const std::string &bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << bytes;
}

// Empty when the file cannot be read.
inline std::string sha256(const std::string &path) {
    const std::string command = "sha256sum -b '" + path + "' 2>/dev/null";
    FILE *pipe = popen(command.c_str(), "r");
    if (pipe == nullptr)
        return std::string();
    char digest[65] = {};
    const size_t count = std::fread(digest, 1, 64, pipe);
    pclose(pipe);
    return count == 64 ? std::string(digest) : std::string();
}

} // namespace decodetest
