#include "platform/linux/dbusnotifier.h"

#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>

namespace velmora::platform {

namespace {
const QString kService = QStringLiteral("org.freedesktop.Notifications");
const QString kPath = QStringLiteral("/org/freedesktop/Notifications");
const QString kInterface = QStringLiteral("org.freedesktop.Notifications");
// The action a click on the notification itself invokes.
const QString kDefault = QStringLiteral("default");
} // namespace

DBusNotifier::DBusNotifier(QObject* parent) : Notifier(parent) {}

DBusNotifier::DBusNotifier(QDBusConnection bus, QObject* parent) : Notifier(parent), bus_(std::move(bus))
{
    reach();
}

bool DBusNotifier::reach()
{
    if (!bus_) {
        // Without an address in the session, the bus library would launch a bus of its own.
        if (qEnvironmentVariableIsEmpty("DBUS_SESSION_BUS_ADDRESS"))
            return false;
        bus_ = QDBusConnection::sessionBus();
    }
    if (!listening_ && bus_->isConnected()) {
        bus_->connect(kService, kPath, kInterface, QStringLiteral("ActionInvoked"), this,
                      SLOT(actionInvoked(uint, QString)));
        bus_->connect(kService, kPath, kInterface, QStringLiteral("NotificationClosed"), this,
                      SLOT(notificationClosed(uint, uint)));
        listening_ = true;
    }
    return listening_;
}

void DBusNotifier::notify(const QString& summary, const QString& body, const QString& server, const QString& service)
{
    if (!reach())
        return;
    QDBusMessage call = QDBusMessage::createMethodCall(kService, kPath, kInterface, QStringLiteral("Notify"));
    call << QStringLiteral("Velmora") << uint(0) << QStringLiteral("dialog-warning") << summary << body
         << QStringList{kDefault, QStringLiteral("Show service")} << QVariantMap() << int(-1);
    auto* watcher = new QDBusPendingCallWatcher(bus_->asyncCall(call), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this, server, service](QDBusPendingCallWatcher* w) {
        const QDBusPendingReply<uint> reply = *w;
        if (!reply.isError())
            shown_.insert(reply.value(), {server, service});
        w->deleteLater();
    });
}

void DBusNotifier::actionInvoked(uint id, const QString& action)
{
    const auto it = shown_.constFind(id);
    if (it == shown_.constEnd() || (action != kDefault && action != QLatin1String("Show service")))
        return;
    emit clicked(it->first, it->second);
}

void DBusNotifier::notificationClosed(uint id, uint) { shown_.remove(id); }

} // namespace velmora::platform
