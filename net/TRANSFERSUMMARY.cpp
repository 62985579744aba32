// What a run of transfers brought.
#include "net/TRANSFERSUMMARY.h"

namespace {
std::string messages(unsigned long count) {
    return std::to_string(count) + (count == 1 ? " new message" : " new messages");
}
} // namespace

void TRANSFERSUMMARY::add(const std::string &group, unsigned long count) {
    if (count == 0)
        return;
    for (auto &[name, total] : fGroups) {
        if (name == group) {
            total += count;
            return;
        }
    }
    fGroups.emplace_back(group, count);
}

std::string TRANSFERSUMMARY::text() const {
    if (fGroups.empty())
        return {};
    if (fGroups.size() == 1)
        return messages(fGroups.front().second) + " in " + fGroups.front().first;
    unsigned long total = 0;
    for (const auto &[name, count] : fGroups)
        total += count;
    std::string text = messages(total) + ":";
    for (size_t i = 0; i < fGroups.size() && i < kGroupsShown; ++i)
        text +=
            (i == 0 ? " " : ", ") + std::to_string(fGroups[i].second) + " in " + fGroups[i].first;
    if (fGroups.size() > kGroupsShown)
        text += " and " + std::to_string(fGroups.size() - kGroupsShown) + " more groups";
    return text;
}
