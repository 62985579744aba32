// The demo: a private news server with the demo groups, and a store of its own with an
// account for that server and two groups subscribed.
#pragma once

#include <cstdint>
#include <string>

#include "tools/innfill/INNSERVER.h"

// Nothing of the user's own is touched: the program's home, settings and data directory all
// live below the demo's root folder, which a second run finds again.
class DEMO {
public:
    static constexpr const char *kServerName = "Demo News";

    explicit DEMO(std::string root) : fRoot(std::move(root)) {}

    // Starts the news server and fills the demo groups.
    bool serverStart(std::string *error);
    // Points HOME and the XDG folders at the demo's home (for this process and the program it
    // starts) and makes the account and subscriptions, or brings an earlier run's account up
    // to the server's port.
    bool storePrepare(std::string *error);
    // Stops the news server and removes its files; the store stays.
    void stop() { fInn.stop(); }

    std::string home() const { return fRoot + "/home"; }
    uint16_t port() const { return fInn.readerPort(); }

private:
    std::string fRoot;
    INNSERVER fInn;
};
