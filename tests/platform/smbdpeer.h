#pragma once
// Samba's smbd as a Windows server's service manager, on 127.0.0.1 of the current network
// namespace, with one SMB user (root, whom smbd lets start and stop Spooler). Its svcctl server
// offers Spooler, NETLOGON, RemoteRegistry and WINS.
#include "support/privatesmbd.h"

namespace velmora::test {

class SmbdPeer {
public:
    bool start(const QString& user, const QString& password, QString* why)
    {
        const QString smbpasswd = testsupport::PrivateSmbd::program(QStringLiteral("smbpasswd"));
        if (smbpasswd.isEmpty()) {
            *why = QStringLiteral("smbpasswd is not installed (package samba)");
            return false;
        }
        if (!smbd_.configure(QStringLiteral("  netbios name = WINSRV\n  workgroup = VELMORA\n"
                                            "  server role = standalone server\n  smb ports = 445\n")))
            return false;
        QProcess add;
        add.start(smbpasswd, {QStringLiteral("-c"), smbd_.config(), QStringLiteral("-s"), QStringLiteral("-a"), user});
        add.write((password + QLatin1Char('\n') + password + QLatin1Char('\n')).toUtf8());
        add.closeWriteChannel();
        if (!add.waitForFinished(20000) || add.exitCode() != 0) {
            *why = QStringLiteral("smbpasswd could not add the user: ") + QString::fromLocal8Bit(add.readAll());
            return false;
        }
        return smbd_.start(445, why);
    }

private:
    testsupport::PrivateSmbd smbd_;
};

} // namespace velmora::test
