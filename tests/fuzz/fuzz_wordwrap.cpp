// Fuzz target: word wrapping with widths and indents taken from the input.
#include <cstdint>
#include <string>

#include "message/FORMAT.h"

namespace {

struct Check {
    size_t maxBytes = 0;
};

bool emit(void *context, std::string_view line) {
    auto *check = static_cast<Check *>(context);
    if (line.size() > check->maxBytes)
        __builtin_trap();
    return true;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size < 3)
        return 0;
    size_t width = data[0];
    size_t indent = data[1] % 16;
    bool keepNewlines = (data[2] & 1) != 0;
    bool indentFirst = (data[2] & 2) != 0;
    std::string text(reinterpret_cast<const char *>(data + 3), size - 3);
    Check check{FORMAT::kLineMax};
    FORMAT::wordWrap(text, &check, indentFirst, indent, width, emit, keepNewlines);
    FORMAT::wordWrap(text, &check, false, 1, 998, emit, false);
    return 0;
}
