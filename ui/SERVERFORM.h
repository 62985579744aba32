// The server account dialog's fields as data, and the check of what the user typed.
#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <vector>

#include "base/STR.h"
#include "storage/BARN.h"

// The dialog is built from fields(): a field added here appears in it. Values travel as
// texts; nothing reaches the node until every value is valid.
class SERVERFORM {
public:
    enum KIND {
        kText,
        kPassword,
        kNumber,
        kSeconds,
        kCheck,
        kChoice,
    };
    struct FIELD {
        const char *key;
        const char *label;
        KIND kind;
        size_t maxLength = 0; // texts
        long long min = 0;    // numbers and seconds
        long long max = 0;
        const STR::INDEX *choices = nullptr;
    };
    using VALUES = std::map<std::string, std::string>;

    static constexpr const char *kYes = "Yes";
    static constexpr const char *kNo = "No";

    static const std::vector<FIELD> &fields();
    // The values the dialog starts with.
    static VALUES fill(const BARN::NODE &server);
    // Checks every value in field order; the first problem is returned as its text and
    // nothing is changed. Without one the values are written into *server and "" returned.
    // The name must not clash with another server (one's own name is fine when editing).
    static std::string check(const VALUES &values, BARN::NODE *server, bool create);
    // The port to show after the security choice changed: the usual port of the new choice
    // when the old value was the usual port of the old one, else the value as it is.
    static std::string portFor(const std::string &security, const std::string &port);
};
