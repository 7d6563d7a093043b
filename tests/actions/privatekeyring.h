#pragma once
// A private D-Bus session bus for the test process, and GNOME Keyring serving the Secret
// Service on it with a fresh, unlocked keyring in a folder of the test's own. The bus activates
// nothing by itself, so until startKeyring() no secret store runs on it. The keyring can be
// locked (as on a desktop that logged in without the keyring's password) and unlocked again,
// and its daemon stopped in its tracks (it keeps its name on the bus and answers nothing).
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>
#include <memory>
#include <signal.h>

namespace velmora::test {

class PrivateKeyring {
public:
    ~PrivateKeyring()
    {
        for (auto* p : {keyring_.get(), bus_.get()}) {
            if (p && p->state() != QProcess::NotRunning) {
                p->terminate();
                if (!p->waitForFinished(5000))
                    p->kill();
                p->waitForFinished(5000);
            }
        }
    }

    // Starts the bus and points this process at it; returns why it could not, or an empty text.
    // Call before anything in the process talks to a session bus.
    QString startBus()
    {
        if (QStandardPaths::findExecutable(QStringLiteral("dbus-daemon")).isEmpty())
            return QStringLiteral("dbus-daemon is not installed (package dbus)");
        if (!dir_.isValid())
            return QStringLiteral("no temporary folder");
        const QString config = dir_.filePath(QStringLiteral("session.conf"));
        QFile f(config);
        if (!f.open(QIODevice::WriteOnly))
            return QStringLiteral("cannot write the bus configuration");
        f.write("<!DOCTYPE busconfig PUBLIC \"-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN\"\n"
                " \"http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd\">\n"
                "<busconfig><type>session</type><listen>unix:dir=" + dir_.path().toUtf8() + "</listen>\n"
                "<policy context=\"default\"><allow send_destination=\"*\" eavesdrop=\"true\"/>"
                "<allow eavesdrop=\"true\"/><allow own=\"*\"/></policy></busconfig>\n");
        f.close();
        bus_ = std::make_unique<QProcess>();
        bus_->start(QStringLiteral("dbus-daemon"),
                    {QStringLiteral("--config-file=") + config, QStringLiteral("--nofork"), QStringLiteral("--print-address=1")});
        if (!bus_->waitForStarted(10000))
            return QStringLiteral("dbus-daemon did not start");
        while (!bus_->canReadLine()) {
            if (!bus_->waitForReadyRead(10000))
                return QStringLiteral("dbus-daemon printed no address");
        }
        address_ = bus_->readLine().trimmed();
        qputenv("DBUS_SESSION_BUS_ADDRESS", address_);
        return {};
    }

    // Starts gnome-keyring-daemon's secret service on the bus with an unlocked login keyring;
    // returns why it could not, or an empty text.
    QString startKeyring()
    {
        if (QStandardPaths::findExecutable(QStringLiteral("gnome-keyring-daemon")).isEmpty())
            return QStringLiteral("gnome-keyring-daemon is not installed (package gnome-keyring)");
        QDir(dir_.path()).mkpath(QStringLiteral("home/.local/share"));
        QDir(dir_.path()).mkpath(QStringLiteral("run"));
        QFile::setPermissions(dir_.filePath(QStringLiteral("run")), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"), QString::fromUtf8(address_));
        env.insert(QStringLiteral("HOME"), dir_.filePath(QStringLiteral("home")));
        env.insert(QStringLiteral("XDG_DATA_HOME"), dir_.filePath(QStringLiteral("home/.local/share")));
        env.insert(QStringLiteral("XDG_RUNTIME_DIR"), dir_.filePath(QStringLiteral("run")));
        keyring_ = std::make_unique<QProcess>();
        keyring_->setProcessEnvironment(env);
        keyring_->setProcessChannelMode(QProcess::ForwardedErrorChannel);
        keyring_->start(QStringLiteral("gnome-keyring-daemon"),
                        {QStringLiteral("--unlock"), QStringLiteral("--components=secrets"), QStringLiteral("--foreground")});
        if (!keyring_->waitForStarted(10000))
            return QStringLiteral("gnome-keyring-daemon did not start");
        // --unlock reads the new keyring's password from standard input.
        keyring_->write("test-keyring-password");
        keyring_->closeWriteChannel();
        // It owns org.freedesktop.secrets once it serves.
        for (int i = 0; i < 100; ++i) {
            QProcess probe;
            probe.start(QStringLiteral("dbus-send"),
                        {QStringLiteral("--bus=") + QString::fromUtf8(address_), QStringLiteral("--print-reply"),
                         QStringLiteral("--dest=org.freedesktop.DBus"), QStringLiteral("/org/freedesktop/DBus"),
                         QStringLiteral("org.freedesktop.DBus.NameHasOwner"), QStringLiteral("string:org.freedesktop.secrets")});
            if (probe.waitForFinished(5000) && probe.readAllStandardOutput().contains("boolean true"))
                return {};
            if (keyring_->state() == QProcess::NotRunning)
                return QStringLiteral("gnome-keyring-daemon ended at once");
            QTest::qWait(100);
        }
        return QStringLiteral("gnome-keyring-daemon did not come up on the bus");
    }

    // Locks the login keyring; returns why it could not, or an empty text.
    QString lock()
    {
        QProcess p;
        p.start(QStringLiteral("dbus-send"),
                {QStringLiteral("--bus=") + QString::fromUtf8(address_), QStringLiteral("--print-reply"),
                 QStringLiteral("--dest=org.freedesktop.secrets"), QStringLiteral("/org/freedesktop/secrets"),
                 QStringLiteral("org.freedesktop.Secret.Service.Lock"),
                 QStringLiteral("array:objpath:/org/freedesktop/secrets/collection/login")});
        if (!p.waitForFinished(10000) || p.exitCode() != 0)
            return QStringLiteral("the keyring could not be locked: ") + QString::fromLocal8Bit(p.readAllStandardError());
        return {};
    }
    // Unlocks it again: the daemon starts anew, unlocking the keyring with its password.
    QString unlock()
    {
        keyring_->terminate();
        keyring_->waitForFinished(10000);
        return startKeyring();
    }
    // Stops the daemon (true) or lets it go on (false).
    void freeze(bool frozen) { ::kill(pid_t(keyring_->processId()), frozen ? SIGSTOP : SIGCONT); }

private:
    QTemporaryDir dir_;
    QByteArray address_;
    std::unique_ptr<QProcess> bus_, keyring_;
};

} // namespace velmora::test
