// A range of article numbers on a news server, as a newsgroup keeps it between downloads.
#pragma once

#include <cstdint>

// {0, 0} means none: no article of the group has been seen, or the range is unknown.
struct INDEXRANGE {
    uint32_t first = 0;
    uint32_t last = 0;

    bool none() const { return first == 0 || last == 0; }
    bool operator==(const INDEXRANGE &) const = default;
};
