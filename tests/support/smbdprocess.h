#pragma once
// Starts a private smbd in the foreground on its own configuration and waits until it accepts
// connections on the given port (445 for SMB, 139 for the NetBIOS session service).
#include "listening.h"

#include <QString>

namespace velmora::testsupport {

inline bool startSmbd(QProcess& proc, const QString& smbd, const QString& config, quint16 port, QString* why)
{
    proc.setProcessChannelMode(QProcess::MergedChannels);
    proc.start(smbd, {QStringLiteral("-F"), QStringLiteral("-s"), config, QStringLiteral("--debug-stdout"),
                      QStringLiteral("-d"), QStringLiteral("1")});
    if (waitUntilListening(proc, port))
        return true;
    *why = QStringLiteral("smbd did not listen: ") + QString::fromLocal8Bit(proc.readAll());
    return false;
}

} // namespace velmora::testsupport
