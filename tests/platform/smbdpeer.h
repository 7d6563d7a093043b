#pragma once
// Samba's smbd as a Windows server's service manager, on 127.0.0.1 of the current network
// namespace, with one SMB user (root, whom smbd lets start and stop Spooler). Its svcctl server
// offers Spooler, NETLOGON, RemoteRegistry and WINS.
#include "support/smbdprocess.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>
#include <csignal>

namespace velmora::test {

class SmbdPeer {
public:
    ~SmbdPeer()
    {
        if (proc_.state() != QProcess::NotRunning) {
            proc_.terminate();
            if (!proc_.waitForFinished(10000)) {
                proc_.kill();
                proc_.waitForFinished(5000);
            }
        }
        // smbd's RPC helpers (samba-dcerpcd and its workers) outlive it until they idle out; one
        // still starting while smbd ends is caught by the second look.
        for (int round = 0; round < 2; ++round, QTest::qWait(300))
            for (const QString& pid : QDir(QStringLiteral("/proc")).entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
                QFile f(QStringLiteral("/proc/%1/cmdline").arg(pid));
                if (pid.toInt() > 0 && f.open(QIODevice::ReadOnly) && f.readAll().contains(config().toLocal8Bit()))
                    ::kill(pid.toInt(), SIGTERM);
            }
    }
    bool start(const QString& user, const QString& password, QString* why)
    {
        const QStringList sbin{QStringLiteral("/usr/sbin"), QStringLiteral("/usr/bin")};
        const QString smbd = QStandardPaths::findExecutable(QStringLiteral("smbd"), sbin);
        const QString smbpasswd = QStandardPaths::findExecutable(QStringLiteral("smbpasswd"), sbin);
        if (smbd.isEmpty() || smbpasswd.isEmpty()) {
            *why = QStringLiteral("smbd or smbpasswd is not installed (package samba)");
            return false;
        }
        QString conf = QStringLiteral("[global]\n  netbios name = WINSRV\n  workgroup = VELMORA\n"
                                      "  server role = standalone server\n  interfaces = lo\n  bind interfaces only = yes\n"
                                      "  smb ports = 445\n  log file = %1/log.%m\n  load printers = no\n"
                                      "  printing = bsd\n  printcap name = /dev/null\n")
                           .arg(dir_.path());
        for (const QString setting : {"private dir", "lock directory", "state directory", "cache directory",
                                      "pid directory", "ncalrpc dir"}) {
            const QString folder = dir_.filePath(setting.section(QLatin1Char(' '), 0, 0));
            QDir().mkpath(folder);
            conf += QStringLiteral("  %1 = %2\n").arg(setting, folder);
        }
        QFile f(config());
        if (!f.open(QIODevice::WriteOnly) || f.write(conf.toUtf8()) != conf.toUtf8().size())
            return false;
        f.close();
        QProcess add;
        add.start(smbpasswd, {QStringLiteral("-c"), config(), QStringLiteral("-s"), QStringLiteral("-a"), user});
        add.write((password + QLatin1Char('\n') + password + QLatin1Char('\n')).toUtf8());
        add.closeWriteChannel();
        if (!add.waitForFinished(20000) || add.exitCode() != 0) {
            *why = QStringLiteral("smbpasswd could not add the user: ") + QString::fromLocal8Bit(add.readAll());
            return false;
        }
        return testsupport::startSmbd(proc_, smbd, config(), 445, why);
    }
    QString config() const { return dir_.filePath(QStringLiteral("smb.conf")); }

private:
    QTemporaryDir dir_;
    QProcess proc_;
};

} // namespace velmora::test
