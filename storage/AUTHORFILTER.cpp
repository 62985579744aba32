// The installed author test.
#include "storage/AUTHORFILTER.h"

#include <atomic>

namespace {
std::atomic<AUTHORFILTER::FIND> gFind{nullptr};
} // namespace

void AUTHORFILTER::install(FIND find) {
    gFind.store(find, std::memory_order_release);
}

bool AUTHORFILTER::killed(const char *name, const char *address) {
    FIND find = gFind.load(std::memory_order_acquire);
    return find != nullptr && find(name, address);
}
