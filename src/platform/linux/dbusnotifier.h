#pragma once
#include "platform/notifications.h"

#include <QDBusConnection>
#include <QHash>
#include <QPair>
#include <optional>

namespace velmora::platform {

// Notifications through the desktop's org.freedesktop.Notifications server on the session bus.
// The call goes out without waiting for its answer; an error (no server) is dropped.
class DBusNotifier : public Notifier {
    Q_OBJECT
public:
    // The desktop's session bus, reached at the first notice, and only when the session names
    // one: a program that never notifies never touches the bus, and none is ever launched for it.
    explicit DBusNotifier(QObject* parent = nullptr);
    // Notices go through bus.
    explicit DBusNotifier(QDBusConnection bus, QObject* parent = nullptr);

    void notify(const QString& summary, const QString& body, const QString& server, const QString& service) override;

private slots:
    void actionInvoked(uint id, const QString& action);
    void notificationClosed(uint id, uint reason);

private:
    // The bus, connected first when it is not yet; false when there is none.
    bool reach();

    std::optional<QDBusConnection> bus_;
    bool listening_ = false; // its signals are connected
    QHash<uint, QPair<QString, QString>> shown_; // notification id -> server, service
};

} // namespace velmora::platform
