// Opening a file or a link with the desktop's preferred application.
#include "base/LAUNCHER.h"

#include <atomic>
#include <cerrno>
#include <spawn.h>
#include <sys/wait.h>

namespace {

int xdgOpen(const std::string &text) {
    std::string tool = LAUNCHER::kTool;
    std::string argument = text;
    char *argv[] = {tool.data(), argument.data(), nullptr};
    pid_t pid = 0;
    if (posix_spawnp(&pid, LAUNCHER::kTool, nullptr, nullptr, argv, environ) != 0)
        return -1;
    int status = 0;
    while (waitpid(pid, &status, 0) < 0) {
        if (errno != EINTR)
            return -1;
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

std::atomic<LAUNCHER::FUNCTION> gLauncher{xdgOpen};

} // namespace

int LAUNCHER::open(const std::string &text) {
    return gLauncher.load()(text);
}

LAUNCHER::FUNCTION LAUNCHER::set(FUNCTION function) {
    return gLauncher.exchange(function != nullptr ? function : xdgOpen);
}
