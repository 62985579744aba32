// The composer's part of start-up: the header lines every posted article carries.
#pragma once

#include <cstddef>

// Only the toolkit-free pieces of the composer live here; its window comes with the
// interface.
class EDIT {
public:
    // The program's web page, sent as X-Program-URL.
    static constexpr const char *kProgramURL = "https://vellowick.invalid/";
    // The user-agent text a composed message keeps at most.
    static constexpr size_t kAgentMax = 84;

    // Empties the posting header table and fills it with the User-Agent and X-Program-URL
    // lines. Run once during start-up, after NNTP::start and before any transfer.
    static bool headers();
    // "<program version>, <operating system version>", cut to size.
    static void agentStr(char *out, unsigned long size);
};
