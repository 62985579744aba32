// Fuzz target: a message file decoded as a yEnc attachment, split at the input's first NUL
// into two parts, and its keyword lines read on their own.
// Seeds: tests/data/yenc tests/data/articles
#include <cstdint>
#include <cstdio>
#include <string>
#include <unistd.h>
#include <vector>

#include "message/FILEDECODE.h"
#include "message/YENC.h"

namespace {

std::string scratch(const char *what) {
    std::string path = "/tmp/vw-fuzz-yenc-" + std::to_string(getpid()) + "-" + what;
    return path;
}

void put(const std::string &path, const uint8_t *data, size_t size) {
    if (FILE *out = std::fopen(path.c_str(), "wb")) {
        std::fwrite(data, 1, size, out);
        std::fclose(out);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string text(reinterpret_cast<const char *>(data), size);
    size_t cut = text.find('\0');
    const std::string one = scratch("one"), two = scratch("two"), out = scratch("out");
    put(one, data, cut == std::string::npos ? size : cut);
    std::vector<std::string> files{one};
    if (cut != std::string::npos) {
        put(two, data + cut + 1, size - cut - 1);
        files.push_back(two);
    }
    FILEDECODE::FAILURE failure;
    FILEDECODE::FileDecode(files, 0, out.c_str(), nullptr, IMsg::AttachYenc, nullptr, nullptr,
                           &failure);
    unlink(out.c_str());
    YENC::HEADER header;
    std::vector<char> decoded(size + 1);
    size_t start = 0;
    while (start <= text.size()) {
        size_t end = text.find('\n', start);
        std::string_view line(text.data() + start,
                              (end == std::string::npos ? text.size() : end) - start);
        YENC::parse(line, &header);
        YENC::decode(line, decoded.data());
        if (end == std::string::npos)
            break;
        start = end + 1;
    }
    return 0;
}
