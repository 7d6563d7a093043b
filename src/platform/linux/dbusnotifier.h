#pragma once
#include "platform/notifications.h"

#include <QDBusConnection>
#include <QHash>
#include <QPair>

namespace velmora::platform {

// Notifications through the desktop's org.freedesktop.Notifications server on the session bus.
// The call goes out without waiting for its answer; an error (no server) is dropped.
class DBusNotifier : public Notifier {
    Q_OBJECT
public:
    explicit DBusNotifier(QDBusConnection bus = QDBusConnection::sessionBus(), QObject* parent = nullptr);

    void notify(const QString& summary, const QString& body, const QString& server, const QString& service) override;

private slots:
    void actionInvoked(uint id, const QString& action);
    void notificationClosed(uint id, uint reason);

private:
    QDBusConnection bus_;
    QHash<uint, QPair<QString, QString>> shown_; // notification id -> server, service
};

} // namespace velmora::platform
