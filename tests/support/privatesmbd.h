#pragma once
// A private smbd of the test's own, in the foreground on a configuration and folders of its own,
// bound to loopback of the current network namespace. Ended with the object, together with the
// RPC helpers (samba-dcerpcd and its workers) it leaves behind.
#include "listening.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>
#include <csignal>

namespace velmora::testsupport {

class PrivateSmbd {
public:
    ~PrivateSmbd()
    {
        if (proc_.state() != QProcess::NotRunning) {
            proc_.terminate();
            if (!proc_.waitForFinished(10000)) {
                proc_.kill();
                proc_.waitForFinished(5000);
            }
        }
        // The RPC helpers outlive smbd until they idle out; one still starting while smbd ends
        // is caught by the second look.
        for (int round = 0; round < 2; ++round, QTest::qWait(300))
            for (const QString& pid : QDir(QStringLiteral("/proc")).entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
                QFile f(QStringLiteral("/proc/%1/cmdline").arg(pid));
                if (pid.toInt() > 0 && f.open(QIODevice::ReadOnly) && f.readAll().contains(config().toLocal8Bit()))
                    ::kill(pid.toInt(), SIGTERM);
            }
    }

    // A Samba program (smbd, smbpasswd), or empty when Samba is not installed.
    static QString program(const QString& name)
    {
        return QStandardPaths::findExecutable(name, {QStringLiteral("/usr/sbin"), QStringLiteral("/usr/bin")});
    }

    // Writes the configuration: the [global] settings given, bound to loopback, with its own
    // folders and no printers. Returns false when it cannot be written.
    bool configure(const QString& globals)
    {
        QString conf = QStringLiteral("[global]\n  interfaces = lo\n  bind interfaces only = yes\n"
                                      "  log file = %1/log.%m\n  load printers = no\n  printing = bsd\n"
                                      "  printcap name = /dev/null\n")
                           .arg(dir_.path())
                       + globals;
        for (const QString setting : {"private dir", "lock directory", "state directory", "cache directory",
                                      "pid directory", "ncalrpc dir"}) {
            const QString folder = dir_.filePath(setting.section(QLatin1Char(' '), 0, 0));
            QDir().mkpath(folder);
            conf += QStringLiteral("  %1 = %2\n").arg(setting, folder);
        }
        QFile f(config());
        return f.open(QIODevice::WriteOnly) && f.write(conf.toUtf8()) == conf.toUtf8().size();
    }

    // Starts smbd on the configuration and waits until it accepts connections on port (445 for
    // SMB, 139 for the NetBIOS session service).
    bool start(quint16 port, QString* why)
    {
        const QString smbd = program(QStringLiteral("smbd"));
        if (smbd.isEmpty()) {
            *why = QStringLiteral("smbd is not installed (package samba)");
            return false;
        }
        proc_.setProcessChannelMode(QProcess::MergedChannels);
        proc_.start(smbd, {QStringLiteral("-F"), QStringLiteral("-s"), config(), QStringLiteral("--debug-stdout"),
                           QStringLiteral("-d"), QStringLiteral("1")});
        if (waitUntilListening(proc_, port))
            return true;
        *why = QStringLiteral("smbd did not listen: ") + QString::fromLocal8Bit(proc_.readAll());
        return false;
    }

    QString config() const { return dir_.filePath(QStringLiteral("smb.conf")); }
    QString path(const QString& name) const { return dir_.filePath(name); }

private:
    QTemporaryDir dir_;
    QProcess proc_;
};

} // namespace velmora::testsupport
