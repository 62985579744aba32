// Desktop notifications through the session bus.
#include "ui/DesktopNotifier.h"

#include <QDBusConnection>
#include <QDBusInterface>
#include <QDBusReply>
#include <QVariantMap>

#include "app/APPNAME.h"

bool DesktopNotifier::show(const QString &body) {
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected())
        return false;
    QDBusInterface service(kService, kPath, kService, bus);
    if (!service.isValid())
        return false;
    const int kExpireDefault = -1;
    QDBusReply<uint> reply = service.call(
        "Notify", QString::fromUtf8(appName), uint(0), QStringLiteral("com.kelbury.VellowickNews"),
        QString::fromUtf8(appName), body, QStringList(), QVariantMap(), kExpireDefault);
    return reply.isValid();
}
