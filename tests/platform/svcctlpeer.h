#pragma once
// The tests' own scripted Windows service manager (svcctlpeer.py, impacket's SMB server) on
// 127.0.0.1:445 of the current network namespace, with one user. See the script for its services.
#include <QDeadlineTimer>
#include <QProcess>
#include <QString>

namespace velmora::test {

class SvcctlPeer {
public:
    ~SvcctlPeer()
    {
        if (proc_.state() != QProcess::NotRunning) {
            proc_.kill();
            proc_.waitForFinished(5000);
        }
    }
    bool start(const QString& user, const QString& password, QString* why)
    {
        if (QProcess::execute(QStringLiteral("/usr/bin/python3"), {"-c", "import impacket.smbserver"}) != 0) {
            *why = QStringLiteral("python3-impacket is not installed");
            return false;
        }
        const QString script = qEnvironmentVariable("VELMORA_SOURCE_DIR") + QStringLiteral("/tests/platform/svcctlpeer.py");
        proc_.setProcessChannelMode(QProcess::SeparateChannels);
        proc_.start(QStringLiteral("/usr/bin/python3"), {script, user, password});
        // "ready" once it listens; an SMB server that cannot serve ends with its reason.
        QByteArray out;
        QDeadlineTimer deadline(20000);
        while (!deadline.hasExpired() && proc_.state() != QProcess::NotRunning) {
            proc_.waitForReadyRead(int(deadline.remainingTime()));
            out += proc_.readAllStandardOutput();
            if (out.contains("ready"))
                return true;
        }
        *why = QStringLiteral("the scripted svcctl peer did not start: ") +
               QString::fromLocal8Bit(proc_.readAllStandardError()).trimmed().right(300);
        return false;
    }

private:
    QProcess proc_;
};

} // namespace velmora::test
