#pragma once
// A private system bus with a mocked systemd on it (tests/support/mockbus.py and
// systemd_mock.py), for the tests of what Debian's own systemd cannot show here; and an sshd on
// 127.0.0.1 that bridges to a bus, as a remote computer.
#include "sourcefolder.h"

#include <QByteArray>
#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QMap>
#include <QProcess>
#include <QStandardPaths>
#include <QString>
#include <QStringList>

#include <csignal>
#include <sys/types.h>
#include <unistd.h>

namespace velmora::testsupport {

// Why the mock bus cannot run here, or an empty text when it can.
inline QString mockBusMissing()
{
    if (!QFileInfo(QStringLiteral("/usr/bin/python3")).isExecutable())
        return QStringLiteral("/usr/bin/python3 is not installed");
    if (QStandardPaths::findExecutable(QStringLiteral("dbus-daemon")).isEmpty())
        return QStringLiteral("dbus-daemon is not installed (package dbus-daemon)");
    QProcess probe;
    probe.start(QStringLiteral("/usr/bin/python3"), {QStringLiteral("-c"), QStringLiteral("import dbusmock, dbus, gi")});
    if (!probe.waitForFinished(30000) || probe.exitCode() != 0)
        return QStringLiteral("python3-dbusmock is not installed");
    return {};
}

class MockSystemdBus {
public:
    MockSystemdBus() = default;
    MockSystemdBus(const MockSystemdBus&) = delete;
    MockSystemdBus& operator=(const MockSystemdBus&) = delete;
    ~MockSystemdBus() { stop(); }

    // Starts the bus holding the units (a JSON list, see systemd_mock.py). Returns an error
    // text, empty when the bus runs.
    QString start(const QString& unitsJson)
    {
        return launch({QStringLiteral("start"), QStringLiteral("--watch"), QString::number(::getpid()),
                       QStringLiteral("--units"), unitsJson},
                      info_);
    }

    // Starts an sshd on 127.0.0.1 whose key runs systemd-stdio-bridge against the bus at
    // busAddress (this mock's bus when empty), with an ssh control connection to it
    // (SSH_CONTROL). Returns an error text, empty on success.
    QString startSshd(QMap<QString, QString>& out, const QString& busAddress = {})
    {
        return launch({QStringLiteral("sshd"), QStringLiteral("--address"), busAddress.isEmpty() ? address() : busAddress,
                       QStringLiteral("--watch"), QString::number(::getpid())},
                      out);
    }

    void stop()
    {
        for (qint64 pid : supervisors_)
            ::kill(pid_t(pid), SIGTERM);
        for (qint64 pid : supervisors_) {
            // The supervisor ends its children and removes its folder; wait for it briefly so
            // that the next test starts clean.
            for (int i = 0; i < 100 && ::kill(pid_t(pid), 0) == 0; ++i)
                ::usleep(50000);
        }
        supervisors_.clear();
    }

    QString address() const { return info_.value(QStringLiteral("DBUS_SYSTEM_BUS_ADDRESS")); }

    // Calls a method of the mock's control interface (SetAccessDenied, SetSilentJobs,
    // SetFreezerState: see systemd_mock.py), e.g. call("SetAccessDenied", {"b", "true"}).
    // Returns an error text, empty on success.
    QString call(const QString& member, const QStringList& signatureAndArgs = {}) const
    {
        QProcess p;
        p.start(QStringLiteral("busctl"), QStringList{QStringLiteral("--address=") + address(), QStringLiteral("call"),
                                                      QStringLiteral("org.freedesktop.systemd1"),
                                                      QStringLiteral("/org/freedesktop/systemd1"),
                                                      QStringLiteral("org.freedesktop.DBus.Mock"), member}
                                              + signatureAndArgs);
        if (!p.waitForFinished(30000))
            return QStringLiteral("busctl did not finish");
        if (p.exitCode() != 0)
            return QString::fromUtf8(p.readAllStandardError());
        return {};
    }

private:
    QString launch(const QStringList& args, QMap<QString, QString>& out)
    {
        QProcess p;
        p.start(QStringLiteral("/usr/bin/python3"),
                QStringList{sourceFolder() + QStringLiteral("/tests/support/mockbus.py")} + args);
        if (!p.waitForFinished(60000)) {
            p.kill();
            return QStringLiteral("mockbus.py did not finish");
        }
        if (p.exitCode() != 0)
            return QString::fromUtf8(p.readAllStandardError()).trimmed();
        for (const QString& line : QString::fromUtf8(p.readAllStandardOutput()).split(QLatin1Char('\n'))) {
            const qsizetype eq = line.indexOf(QLatin1Char('='));
            if (eq > 0)
                out.insert(line.left(eq), line.mid(eq + 1));
        }
        if (out.contains(QStringLiteral("MOCK_BUS_PID")))
            supervisors_ << out.value(QStringLiteral("MOCK_BUS_PID")).toLongLong();
        return {};
    }

    QMap<QString, QString> info_;
    QList<qint64> supervisors_;
};

} // namespace velmora::testsupport
