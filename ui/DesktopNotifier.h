// Desktop notifications through the freedesktop.org notification service on the session bus.
#pragma once

#include <QString>

class DesktopNotifier {
public:
    static constexpr const char *kService = "org.freedesktop.Notifications";
    static constexpr const char *kPath = "/org/freedesktop/Notifications";

    // Shows a notification with the program's name and icon; false when no notification
    // service answers (a desktop without one simply shows nothing).
    static bool show(const QString &body);
};
