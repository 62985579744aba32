// A temporary home for one test process: HOME and the XDG folders point inside it.
#include "tests/support/TestHome.h"

#include <cstdlib>
#include <filesystem>
#include <unistd.h>

namespace {
std::string gHome;
}

namespace testhome {
void setUp() {
    const char *tmp = std::getenv("TMPDIR");
    std::string pattern =
        std::string(tmp != nullptr && *tmp != '\0' ? tmp : "/tmp") + "/vellowick-test-XXXXXX";
    char *made = mkdtemp(pattern.data());
    if (made == nullptr)
        std::abort();
    gHome = made;
    const std::pair<const char *, const char *> folders[] = {
        {"XDG_CONFIG_HOME", "/.config"},
        {"XDG_DATA_HOME", "/.local/share"},
        {"XDG_CACHE_HOME", "/.cache"},
        {"XDG_RUNTIME_DIR", "/run"},
    };
    setenv("HOME", gHome.c_str(), 1);
    for (const auto &[variable, folder] : folders) {
        std::string where = gHome + folder;
        std::filesystem::create_directories(where);
        setenv(variable, where.c_str(), 1);
    }
    std::filesystem::permissions(gHome + "/run", std::filesystem::perms::owner_all);
}

void tearDown() {
    if (gHome.empty())
        return;
    std::error_code ignored;
    std::filesystem::remove_all(gHome, ignored);
    gHome.clear();
}

const std::string &path() {
    return gHome;
}
} // namespace testhome
