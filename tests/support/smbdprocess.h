#pragma once
// Starts a private smbd in the foreground on its own configuration and waits until it accepts
// connections on the given port (445 for SMB, 139 for the NetBIOS session service).
#include <QHostAddress>
#include <QProcess>
#include <QString>
#include <QTcpSocket>
#include <QTest>

namespace velmora::testsupport {

inline bool startSmbd(QProcess& proc, const QString& smbd, const QString& config, quint16 port, QString* why)
{
    proc.setProcessChannelMode(QProcess::MergedChannels);
    proc.start(smbd, {QStringLiteral("-F"), QStringLiteral("-s"), config, QStringLiteral("--debug-stdout"),
                      QStringLiteral("-d"), QStringLiteral("1")});
    if (!proc.waitForStarted(10000)) {
        *why = QStringLiteral("smbd did not start");
        return false;
    }
    for (int i = 0; i < 200; ++i) {
        QTcpSocket probe;
        probe.connectToHost(QHostAddress::LocalHost, port);
        if (probe.waitForConnected(100))
            return true;
        if (proc.state() == QProcess::NotRunning)
            break;
        QTest::qWait(50);
    }
    *why = QStringLiteral("smbd did not listen: ") + QString::fromLocal8Bit(proc.readAll());
    return false;
}

} // namespace velmora::testsupport
