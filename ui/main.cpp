// The process entry: command line, start, the message loop, stop.
#include <QApplication>
#include <cstdio>
#include <cstdlib>

#include "base/ALERT.h"
#include "ui/BEAPP.h"
#include "ui/QTHOST.h"

namespace {
// Qt would abort without a display; say so instead.
bool displayAvailable() {
    const char *platform = std::getenv("QT_QPA_PLATFORM");
    if (platform != nullptr && *platform != '\0')
        return true;
    const char *x11 = std::getenv("DISPLAY");
    const char *wayland = std::getenv("WAYLAND_DISPLAY");
    return (x11 != nullptr && *x11 != '\0') || (wayland != nullptr && *wayland != '\0');
}
} // namespace

int main(int argc, char **argv) {
    auto *app = new BEAPP;
    if (app->cmdLine(argc, argv)) {
        if (!displayAvailable()) {
            std::fprintf(stderr,
                         "%s needs a graphical display, and none was found "
                         "(DISPLAY and WAYLAND_DISPLAY are not set).\n",
                         appName);
        } else {
            QApplication qtApp(argc, argv);
            QApplication::setApplicationName(QString::fromUtf8(appName));
            // The desktop matches the window to its launcher and icon by this name.
            QGuiApplication::setDesktopFileName(QStringLiteral("com.kelbury.VellowickNews"));
            QTHOST host;
            ALERT::sinkSet(&host);
            app->hostSet(&host);
            if (app->start())
                app->run();
            app->stop();
            ALERT::sinkSet(nullptr);
            app->hostSet(nullptr);
            delete app;
            return 0;
        }
    }
    app->stop();
    delete app;
    return 0;
}
