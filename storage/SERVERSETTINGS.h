// The server account file, Server.ini: its one section bound to a server node's fields.
#pragma once

#include <cstdint>

#include "app/INITFILE.h"
#include "base/CRITSECT.h"
#include "base/STR.h"
#include "storage/BARN.h"

// One item table serves every server: it is bound to one node's fields for the length of a
// read or write, under the class's lock.
class SERVERSETTINGS {
public:
    static constexpr const char *kFileName = "Server.ini";
    static constexpr long long kTimeoutMin = 2'000'000;     // 2 seconds
    static constexpr long long kTimeoutMax = 1'800'000'000; // 30 minutes

    // The single section "Server", null-terminated; bound to nothing until bind().
    static INITFILE::SECT *sections[];

    // Binds the items to node's server fields (null unbinds). The caller holds lock.
    static void bind(BARN::NODE *node);
    // The rule after every read: a login is attempted only with both a user name and a
    // password, so Login is switched off when either is empty.
    static void afterRead(BARN::NODE *node);

    // Whole operations on the server file path (its ".ini" name): bind, run, unbind. Results
    // are INITFILE's. read applies afterRead.
    static int32_t read(BARN::NODE *node, const char *file);
    static int32_t write(BARN::NODE *node, const char *file);
    static int32_t writeDefault(BARN::NODE *node, const char *file);

    // Validators of the items, usable on their own.
    static bool hostnameCheck(const void *value);
    static bool emailCheck(const void *value);
    static bool plainCheck(const void *value);
    // Empty, or 32 hex pairs in upper case joined by colons.
    static bool fingerprintCheck(const void *value);

    // The names of the Security values.
    static const STR::INDEX indexSecurity[];

    static CRITSECT lock;
};
