// Opening a file or a link with the desktop's preferred application.
#pragma once

#include <string>

// xdg-open is started without a shell, with the text as its one argument, and its exit
// status decides success: a desktop launcher that reports success before the application
// failed would hide the failure from the user. Tests put a recorder in its place.
class LAUNCHER {
public:
    static constexpr const char *kTool = "xdg-open";
    using FUNCTION = int (*)(const std::string &text);

    // The tool's exit status: 0 when the application was found and started; -1 when the
    // tool itself could not be run.
    static int open(const std::string &text);
    // Replaces the launcher (null restores xdg-open); returns the one it replaced.
    static FUNCTION set(FUNCTION function);
};
