#pragma once
// Samba's smbd as a Windows server's service manager, on 127.0.0.1 of the current network
// namespace, with one SMB user (root, whom smbd lets start and stop Spooler). Its svcctl server
// offers Spooler, NETLOGON, RemoteRegistry and WINS.
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include "support/smbdprocess.h"

#include <QProcess>
#include <QStandardPaths>
#include <QTcpSocket>
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
        for (int round = 0; round < 2; ++round) {
            if (round > 0)
                QTest::qWait(300);
            QDirIterator it(QStringLiteral("/proc"), QDir::Dirs | QDir::NoDotAndDotDot);
            while (it.hasNext()) {
                const QString dir = it.next();
                QFile f(dir + QStringLiteral("/cmdline"));
                bool isPid = false;
                const int pid = QFileInfo(dir).fileName().toInt(&isPid);
                if (isPid && f.open(QIODevice::ReadOnly) && f.readAll().contains(config().toLocal8Bit()))
                    ::kill(pid, SIGTERM);
            }
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
        const QString root = dir_.path();
        for (const char* sub : {"private", "lock", "state", "cache", "pid", "ncalrpc"})
            QDir(root).mkpath(QString::fromLatin1(sub));
        const QString conf = QStringLiteral("[global]\n"
                                            "  netbios name = WINSRV\n"
                                            "  workgroup = VELMORA\n"
                                            "  server role = standalone server\n"
                                            "  interfaces = lo\n"
                                            "  bind interfaces only = yes\n"
                                            "  smb ports = 445\n"
                                            "  private dir = %1/private\n"
                                            "  lock directory = %1/lock\n"
                                            "  state directory = %1/state\n"
                                            "  cache directory = %1/cache\n"
                                            "  pid directory = %1/pid\n"
                                            "  ncalrpc dir = %1/ncalrpc\n"
                                            "  log file = %1/log.%m\n"
                                            "  load printers = no\n"
                                            "  printing = bsd\n"
                                            "  printcap name = /dev/null\n")
                                 .arg(root);
        QFile f(config());
        if (!f.open(QIODevice::WriteOnly))
            return false;
        f.write(conf.toUtf8());
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
