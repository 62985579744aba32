// Benchmark of yEnc decoding: a 50 MB file posted in 100 parts, the message files in the page
// cache, decoded through FILEDECODE as "View All" does. Results go to bench/results/yenc.txt.
// Usage: bench_yenc [megabytes]
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>
#include <zlib.h>

#include "message/FILEDECODE.h"

namespace {

using CLOCK = std::chrono::steady_clock;

std::string crcHex(const std::string &data) {
    char text[9];
    snprintf(text, sizeof text, "%08x",
             unsigned(crc32(0, reinterpret_cast<const Bytef *>(data.data()), uInt(data.size()))));
    return text;
}

// One part as a message file: a short header, the yEnc lines of 128 characters, a line that
// begins with a dot doubled as the news server sent it and the download stored it.
std::string part(const std::string &data, size_t begin, size_t size, size_t index, size_t total,
                 const std::string &fileCrc) {
    std::string text = "From: Bench <bench@example.invalid>\nSubject: \"big.bin\" yEnc (" +
                       std::to_string(index + 1) + "/" + std::to_string(total) + ")\n\n";
    text += "=ybegin part=" + std::to_string(index + 1) + " total=" + std::to_string(total) +
            " line=128 size=" + std::to_string(data.size()) + " name=big.bin\n";
    text +=
        "=ypart begin=" + std::to_string(begin + 1) + " end=" + std::to_string(begin + size) + "\n";
    std::string line;
    for (size_t i = begin; i < begin + size; ++i) {
        unsigned char c = static_cast<unsigned char>(data[i] + 42);
        if (c == 0 || c == '\n' || c == '\r' || c == '=') {
            line += '=';
            c = static_cast<unsigned char>(c + 64);
        }
        line += char(c);
        if (line.size() >= 128) {
            text += (line[0] == '.' ? "." : "") + line + "\n";
            line.clear();
        }
    }
    if (!line.empty())
        text += (line[0] == '.' ? "." : "") + line + "\n";
    text += "=yend size=" + std::to_string(size) + " part=" + std::to_string(index + 1) +
            " pcrc32=" + crcHex(data.substr(begin, size)) +
            (index + 1 == total ? " crc32=" + fileCrc : "") + "\n";
    return text;
}

} // namespace

int main(int argc, char **argv) {
    const size_t megabytes = argc > 1 ? size_t(atol(argv[1])) : 50;
    const size_t parts = 100;
    const char *tmp = getenv("TMPDIR");
    std::string folder = std::string(tmp != nullptr ? tmp : "/tmp") + "/vellowick-bench-yenc";
    std::filesystem::remove_all(folder);
    std::filesystem::create_directories(folder);

    std::mt19937 random(7);
    std::string data(megabytes << 20, '\0');
    for (char &c : data)
        c = char(random());
    const std::string fileCrc = crcHex(data);
    std::vector<std::string> files;
    size_t encoded = 0;
    const size_t per = (data.size() + parts - 1) / parts;
    for (size_t i = 0; i < parts; ++i) {
        size_t begin = i * per;
        std::string text = part(data, begin, std::min(per, data.size() - begin), i, parts, fileCrc);
        encoded += text.size();
        files.push_back(folder + "/part" + std::to_string(i) + ".vmf");
        std::ofstream(files.back(), std::ios::binary) << text;
    }
    const std::string out = folder + "/big.bin";
    // A first run brings everything into the page cache; the best of three counts.
    double best = 1e9;
    bool ok = true;
    for (int round = 0; round < 4; ++round) {
        CLOCK::time_point start = CLOCK::now();
        ok = ok && FILEDECODE::FileDecode(files, 0, out.c_str(), "application/octet-stream",
                                          IMsg::AttachYenc, nullptr, nullptr);
        double seconds = std::chrono::duration<double>(CLOCK::now() - start).count();
        if (round > 0 && seconds < best)
            best = seconds;
    }
    std::ifstream check(out, std::ios::binary);
    std::string decoded((std::istreambuf_iterator<char>(check)), std::istreambuf_iterator<char>());
    ok = ok && decoded == data;
    std::filesystem::remove_all(folder);

    char result[512];
    snprintf(result, sizeof result,
             "yEnc decoding of a %zu MB file posted in %zu parts (%zu bytes of encoded message "
             "files in the page cache), through FILEDECODE with every part's size and CRC32 "
             "checked, best of three runs on a 2-core machine:\n"
             "  %.3f s, %.0f MB/s of encoded input, %.0f MB/s of output; output %s\n",
             megabytes, parts, encoded, best, encoded / best / 1e6, data.size() / best / 1e6,
             ok ? "identical" : "WRONG");
    fputs(result, stdout);
    std::ofstream(std::string(VW_BENCH_RESULTS) + "/yenc.txt") << result;
    return ok ? 0 : 1;
}
