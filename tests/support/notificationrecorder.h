#pragma once
// A private session bus (a dbus-daemon of the test's own) and a small notification server of
// the test's own on it that implements org.freedesktop.Notifications and records what it is
// asked. No desktop's server runs here; the recorder also lets a test click a notification by
// sending the ActionInvoked signal a real server sends.
#include <QDBusConnection>
#include <QDBusMessage>
#include <QProcess>
#include <QStandardPaths>
#include <QStringList>
#include <QVariantMap>

#include <csignal>
#include <sys/prctl.h>

namespace velmora::testsupport {

class NotificationRecorder : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.Notifications")
public:
    struct Shown {
        QString summary, body;
        QStringList actions;
    };
    QList<Shown> shown;

    ~NotificationRecorder() override { stop(); }

    // Starts the bus and serves on it; an error text, or empty.
    QString start()
    {
        if (QStandardPaths::findExecutable(QStringLiteral("dbus-daemon")).isEmpty())
            return QStringLiteral("dbus-daemon is not installed (package dbus-daemon)");
        // The bus ends with the test, however the test ends.
        daemon_.setChildProcessModifier([] { ::prctl(PR_SET_PDEATHSIG, SIGTERM); });
        daemon_.start(QStringLiteral("dbus-daemon"),
                      {QStringLiteral("--session"), QStringLiteral("--nofork"), QStringLiteral("--print-address=1")});
        if (!daemon_.waitForReadyRead(30000))
            return QStringLiteral("dbus-daemon did not start");
        address_ = QString::fromUtf8(daemon_.readLine()).trimmed();
        return serve() ? QString() : QStringLiteral("cannot serve notifications on the private bus");
    }
    bool serve()
    {
        QDBusConnection bus = connection(QStringLiteral("recorder"));
        return bus.registerObject(QStringLiteral("/org/freedesktop/Notifications"), this, QDBusConnection::ExportAllSlots)
               && bus.registerService(QStringLiteral("org.freedesktop.Notifications"));
    }
    void leave()
    {
        connection(QStringLiteral("recorder")).unregisterService(QStringLiteral("org.freedesktop.Notifications"));
        QDBusConnection::disconnectFromBus(QStringLiteral("recorder") + address_);
    }
    void stop()
    {
        if (daemon_.state() == QProcess::NotRunning)
            return;
        leave();
        for (const QString& name : names_)
            QDBusConnection::disconnectFromBus(name);
        daemon_.terminate();
        daemon_.waitForFinished(5000);
    }
    // A connection of its own to this bus (closed with the bus).
    QDBusConnection connection(const QString& name)
    {
        names_ << name + address_;
        return QDBusConnection::connectToBus(address_, name + address_);
    }

    // What a real server sends when the user clicks notification id (or closes it).
    bool signal(const QString& member, uint id, const QVariant& detail)
    {
        QDBusMessage s = QDBusMessage::createSignal(QStringLiteral("/org/freedesktop/Notifications"),
                                                    QStringLiteral("org.freedesktop.Notifications"), member);
        s << id << detail;
        return connection(QStringLiteral("recorder")).send(s);
    }
    bool click(uint id) { return signal(QStringLiteral("ActionInvoked"), id, QStringLiteral("default")); }

public slots:
    uint Notify(const QString&, uint, const QString&, const QString& summary, const QString& body,
                const QStringList& actions, const QVariantMap&, int)
    {
        shown.append({summary, body, actions});
        return uint(shown.size());
    }
    QStringList GetCapabilities() { return {QStringLiteral("actions"), QStringLiteral("body")}; }

private:
    QProcess daemon_;
    QString address_;
    QStringList names_;
};

} // namespace velmora::testsupport
