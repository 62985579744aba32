// Fuzz target: URL recognition over message text, and the launch text of each URL found.
#include <cstdint>
#include <string>

#include "message/URL.h"

namespace {

struct Scan {
    std::string_view text;
    size_t last = 0;
    bool first = true;
};

void found(void *data, URL::TYPE type, size_t start, size_t end) {
    auto *scan = static_cast<Scan *>(data);
    if (start > end || end >= scan->text.size() || type < URL::TypeEmail || type > URL::TypeTelnet)
        __builtin_trap();
    if (!scan->first && end <= scan->last)
        __builtin_trap(); // the scan only moves forward
    scan->first = false;
    scan->last = end;
    char buffer[URL::kMax + 2];
    const char *mimeType = nullptr;
    URL::launch(scan->text, start, end, type, &mimeType, buffer, sizeof(buffer));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    std::string text(reinterpret_cast<const char *>(data), size);
    Scan scan{text};
    URL::find(text, found, &scan);
    return 0;
}
