// The file layer's one installed index.
#include "base/FILEINDEX.h"

#include <atomic>

namespace {
std::atomic<FILEINDEX *> gInstalled{nullptr};
} // namespace

void FILEINDEX::install(FILEINDEX *index) {
    gInstalled.store(index, std::memory_order_release);
}

FILEINDEX *FILEINDEX::installed() {
    return gInstalled.load(std::memory_order_acquire);
}
