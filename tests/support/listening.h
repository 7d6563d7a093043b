#pragma once
// Waits for a server the test started to accept connections on a loopback port.
#include <QHostAddress>
#include <QProcess>
#include <QTcpSocket>
#include <QTest>

namespace velmora::testsupport {

// True once something accepts on 127.0.0.1:port; false when the process has not started, has
// ended, or nothing listens within about 30 seconds.
inline bool waitUntilListening(QProcess& proc, quint16 port)
{
    if (!proc.waitForStarted(10000))
        return false;
    for (int i = 0; i < 200; ++i) {
        QTcpSocket probe;
        probe.connectToHost(QHostAddress::LocalHost, port);
        if (probe.waitForConnected(100))
            return true;
        if (proc.state() == QProcess::NotRunning)
            return false;
        QTest::qWait(50);
    }
    return false;
}

} // namespace velmora::testsupport
