// The demo's newsgroups: a discussion to read, attachments to decode, and a large group.
#pragma once

#include <string>
#include <vector>

// Everything is generated here, deterministically, so a second run offers the same articles
// under the same numbers and the demo's store stays in step with its server.
class DEMOARTICLES {
public:
    static constexpr const char *kDiscussion = "demo.discussion";
    static constexpr const char *kBinaries = "demo.binaries";
    static constexpr const char *kLarge = "demo.large";
    static constexpr size_t kLargeCount = 20'000;
    static constexpr const char *kDomain = "demo.invalid";

    struct GROUP {
        std::string name;
        std::vector<std::string> articles; // whole articles, CR LF line ends, not dot-stuffed
    };

    // The discussion and the binaries group (the large one is generated in bulk elsewhere).
    static std::vector<GROUP> groups();
    // A small PNG picture, made here.
    static std::string picture();
    // The file the demo posts yEnc-encoded in three parts, and its name.
    static std::string yencFile();
    static constexpr const char *kYencName = "demo data.bin";
    static constexpr size_t kYencParts = 3;
};
