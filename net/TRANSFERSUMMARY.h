// What a run of transfers brought: new messages per newsgroup, told in one sentence.
#pragma once

#include <string>
#include <utility>
#include <vector>

// Gathered by the transfer thread while the queue works, handed over when it runs dry (the
// desktop notification shows it), then started afresh.
class TRANSFERSUMMARY {
public:
    // Groups listed by name; more than this are summed up as "and N more".
    static constexpr size_t kGroupsShown = 3;

    void add(const std::string &group, unsigned long messages);
    bool empty() const { return fGroups.empty(); }
    void clear() { fGroups.clear(); }
    // "3 new messages in alt.test", "15 new messages: 12 in comp.lang.c, 3 in alt.test".
    std::string text() const;

private:
    std::vector<std::pair<std::string, unsigned long>> fGroups;
};
