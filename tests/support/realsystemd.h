#pragma once
// Debian's own systemd, run as a user manager on a private bus, for the tests and the
// benchmarks. Nothing of the machine changes: the manager runs in a mount namespace of its own
// with a tmpfs on /run (it refuses to start without /run/systemd/system), in a private 0700
// $XDG_RUNTIME_DIR; it loads only the unit files written here and runs no generators. Its unit
// path is its configuration folder ($XDG_CONFIG_HOME/systemd/user: what every such manager
// starts from, its bus included, copied from scripts/user-manager, and the links that enable
// units) and a folder of the test's units, as a package installs them. scripts/run --demo
// starts one the same way. The
// program reaches it as its local computer through address(). The manager ends with the process
// that started it (a parent-death signal), and stops its units, the bus among them, when it
// ends. Header-only, so that the benchmarks can use it too.
#include <QByteArray>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QMap>
#include <QProcess>
#include <QStandardPaths>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>
#include <QThread>

#include "sourcefolder.h"

#include <systemd/sd-bus.h>

#include <csignal>
#include <memory>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace velmora::testsupport {

inline constexpr const char* kSystemdProgram = "/lib/systemd/systemd";
// Where control groups can be made: the named systemd and unified hierarchies of a hybrid
// layout, or the one unified hierarchy.
inline constexpr const char* kCgroupHierarchies = "/sys/fs/cgroup/systemd /sys/fs/cgroup/unified /sys/fs/cgroup";

// Unit file bodies for the usual cases.
namespace unit {
// [Unit] with the description (and more [Unit] lines), then [Service] with the lines given.
inline QString service(const QString& description, const QString& serviceLines, const QString& unitLines = {})
{
    return QStringLiteral("[Unit]\nDescription=%1\n%2\n[Service]\n%3\n").arg(description, unitLines, serviceLines);
}
// Runs until stopped.
inline QString running(const QString& description, const QString& unitLines = {})
{
    return service(description, QStringLiteral("ExecStart=/bin/sleep infinity"), unitLines);
}
// Stays "activating" for that many seconds once started, then runs.
inline QString slowStart(const QString& description, int seconds = 60)
{
    return service(description,
                   QStringLiteral("Type=oneshot\nRemainAfterExit=yes\nExecStart=/bin/sleep %1").arg(seconds));
}
// Takes that many seconds to start and as many to stop.
inline QString slow(const QString& description, int seconds)
{
    return service(description, QStringLiteral("Type=oneshot\nRemainAfterExit=yes\nExecStart=/bin/sleep %1\n"
                                               "ExecStop=/bin/sleep %1").arg(seconds));
}
// Its start fails: the start job ends "failed", and so does the unit.
inline QString failing(const QString& description)
{
    return service(description, QStringLiteral("Type=oneshot\nExecStart=/bin/false"));
}
// A symbolic link in the unit folder: an alias of another unit, or /dev/null for a masked one.
inline QString link(const QString& target) { return QStringLiteral("-> ") + target; }
} // namespace unit

class RealSystemd {
public:
    RealSystemd() = default;
    RealSystemd(const RealSystemd&) = delete;
    RealSystemd& operator=(const RealSystemd&) = delete;
    ~RealSystemd() { stop(); }

    // Why the manager cannot run here, or an empty text when it can.
    static QString missing()
    {
        if (!QFileInfo(QString::fromLatin1(kSystemdProgram)).isExecutable())
            return QStringLiteral("systemd is not installed (package systemd)");
        if (QStandardPaths::findExecutable(QStringLiteral("dbus-daemon")).isEmpty())
            return QStringLiteral("dbus-daemon is not installed (package dbus-daemon)");
        if (QStandardPaths::findExecutable(QStringLiteral("unshare")).isEmpty())
            return QStringLiteral("unshare is not installed (package util-linux)");
        if (::geteuid() != 0)
            return QStringLiteral("the manager's private /run needs a mount namespace, which only root may make here");
        // systemd keeps every unit in a control group and ends at once, without a word, where no
        // cgroup file system is mounted (a chroot, some containers).
        QFile mounts(QStringLiteral("/proc/self/mounts"));
        const QByteArray mounted = mounts.open(QIODevice::ReadOnly) ? mounts.readAll() : QByteArray();
        if (!mounted.contains(" cgroup2 ") && !mounted.contains("name=systemd"))
            return QStringLiteral("no cgroup file system is mounted here (/sys/fs/cgroup), which systemd needs");
        QProcess probe;
        probe.start(QStringLiteral("unshare"), {QStringLiteral("-m"), QStringLiteral("sh"), QStringLiteral("-c"),
                                                QStringLiteral("mount -t tmpfs tmpfs /run")});
        if (!probe.waitForFinished(30000) || probe.exitCode() != 0)
            return QStringLiteral("no mount namespace with a tmpfs on /run can be made here (unshare -m): ")
                   + QString::fromUtf8(probe.readAllStandardError()).trimmed();
        return {};
    }

    // Starts the bus and the manager with the units (file name -> file text, or unit::link());
    // the units named in `enabled` are enabled (wanted by default.target), so they run from the
    // start. With journal, Debian's systemd-journald runs in the manager's namespace first and
    // keeps what the units and the manager log in a journal of its own in the private /run
    // (journalFolder()); it ends with the manager. Returns once the manager has finished
    // starting up: an error text, or empty.
    QString start(const QMap<QString, QString>& units, const QStringList& enabled = {}, bool journal = false)
    {
        stop();
        dir_ = std::make_unique<QTemporaryDir>(QDir::tempPath() + QStringLiteral("/velmora-systemd-XXXXXX"));
        if (!dir_->isValid())
            return QStringLiteral("cannot make a temporary folder");
        const QString run = path(QStringLiteral("run")), wants = path(QStringLiteral("config/systemd/user/default.target.wants/"));
        if (!QDir().mkpath(run) || !QDir().mkpath(path(QStringLiteral("generators"))) || !QDir().mkpath(path(QStringLiteral("units")))
            || !QFile::setPermissions(run, QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner))
            return QStringLiteral("cannot make the manager's folders");
        QProcess copy;
        copy.start(QStringLiteral("cp"), {QStringLiteral("-a"), sourceFolder() + QStringLiteral("/scripts/user-manager/."),
                                          path(QStringLiteral("config"))});
        if (!copy.waitForFinished(30000) || copy.exitCode() != 0)
            return QStringLiteral("cannot copy scripts/user-manager: ") + QString::fromUtf8(copy.readAllStandardError());
        for (auto it = units.begin(); it != units.end(); ++it)
            if (!writeUnit(it.key(), it.value()))
                return QStringLiteral("cannot write the unit ") + it.key();
        for (const QString& name : enabled)
            if (!QFile::link(path(QStringLiteral("units/") + name), wants + name))
                return QStringLiteral("cannot enable the unit ") + name;
        address_ = QStringLiteral("unix:path=") + path(QStringLiteral("run/bus"));

        const int notify = notifySocket();
        if (notify < 0)
            return failed(QStringLiteral("cannot make the notification socket"));
        manager_ = child();
        manager_->setProcessEnvironment(environment(true));
        manager_->setStandardOutputFile(path(QStringLiteral("manager.log")));
        manager_->setStandardErrorFile(path(QStringLiteral("manager.log")), QIODevice::Append);
        // The manager gets a control group of its own: one started from the root's group puts
        // its units into groups named after them at the top, which every other manager started
        // so shares, and stopping a unit there (or the bus) would kill the other's too.
        manager_->start(QStringLiteral("unshare"),
                        {QStringLiteral("-m"), QStringLiteral("sh"), QStringLiteral("-c"),
                         QStringLiteral("for h in %1; do [ -f \"$h/cgroup.procs\" ] && mkdir -p \"$h/$0/$1\" "
                                        "&& echo $$ > \"$h/$0/$1/cgroup.procs\"; done; "
                                        "mount -t tmpfs tmpfs /run && mkdir -p /run/systemd/system && ")
                                 .arg(QLatin1String(kCgroupHierarchies))
                             + (journal ? journaldCommand() : QString()) + QStringLiteral("exec ")
                             + QString::fromLatin1(kSystemdProgram) + QStringLiteral(" --user"),
                         cgroupName(), QStringLiteral("user@%1.service").arg(::geteuid())});
        manager_->waitForStarted(30000);
        QString error = waitForReady(notify);
        ::close(notify);
        if (error.isEmpty())
            error = waitForInterface();
        return error.isEmpty() ? QString() : failed(error);
    }

    // Ends the manager, which stops its units first. Their processes are killed beforehand, so
    // that a unit that takes its time to stop holds nobody up.
    void stop()
    {
        if (manager_ && manager_->state() != QProcess::NotRunning) {
            for (pid_t pid : {managerPid(), busPid()})
                if (pid > 0)
                    ::kill(pid, SIGCONT); // a test may have stopped it
            systemctl({QStringLiteral("kill"), QStringLiteral("--signal=SIGKILL"), QStringLiteral("*.service")});
            manager_->terminate();
            if (!manager_->waitForFinished(20000))
                manager_->kill();
            manager_->waitForFinished(5000);
        }
        if (dir_) {
            // Its groups, emptied with its end, go too (the deepest first).
            QProcess::execute(QStringLiteral("sh"), {QStringLiteral("-c"),
                                                     QStringLiteral("for h in %1; do [ -d \"$h/$0\" ] && find \"$h/$0\" -depth "
                                                                    "-type d -exec rmdir {} + ; done; true")
                                                         .arg(QLatin1String(kCgroupHierarchies)),
                                                     cgroupName()});
        }
        manager_.reset();
        dir_.reset();
    }

    // The bus goes away (its daemon and its socket); the manager goes on without it.
    void stopBus() const { systemctl({QStringLiteral("stop"), QStringLiteral("dbus.socket"), QStringLiteral("dbus.service")}); }

    QString address() const { return address_; }
    // The manager's slice, below the root of each hierarchy; the manager runs in its
    // user@UID.service group, as a user manager does, so that a journal names its units.
    QString cgroupName() const { return dir_ ? QFileInfo(dir_->path()).fileName() + QStringLiteral(".slice") : QString(); }
    // The journal files of a manager started with its journal, as seen from outside its namespace.
    QString journalFolder() const { return QStringLiteral("/proc/%1/root/run/log/journal").arg(managerPid()); }
    static constexpr const char* kJournald = "/lib/systemd/systemd-journald";
    pid_t managerPid() const { return manager_ ? pid_t(manager_->processId()) : 0; }
    // The bus daemon's process, 0 when it does not run.
    pid_t busPid() const
    {
        QString out;
        systemctl({QStringLiteral("show"), QStringLiteral("--property=MainPID"), QStringLiteral("--value"),
                   QStringLiteral("dbus.service")},
                  &out);
        return pid_t(out.trimmed().toLongLong());
    }
    QString path(const QString& relative) const { return dir_ ? dir_->filePath(relative) : QString(); }

    // Runs `systemctl --user` with the arguments against this manager; its exit code (-1 when it
    // did not finish), with what it printed in output.
    int systemctl(const QStringList& args, QString* output = nullptr) const
    {
        QProcess p;
        p.setProcessEnvironment(environment(false));
        p.setProcessChannelMode(QProcess::MergedChannels);
        p.start(QStringLiteral("systemctl"), QStringList{QStringLiteral("--user"), QStringLiteral("--no-pager")} + args);
        const bool done = p.waitForFinished(60000);
        if (output)
            *output = QString::fromUtf8(p.readAll());
        return done && p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1;
    }

    // Waits until `systemctl is-active` answers `state` for the unit; false after timeoutMs.
    bool waitFor(const QString& unit, const QString& state, int timeoutMs = 20000) const
    {
        QElapsedTimer t;
        t.start();
        QString out;
        do {
            systemctl({QStringLiteral("is-active"), unit}, &out);
            if (out.trimmed() == state)
                return true;
            QThread::msleep(20);
        } while (t.elapsed() < timeoutMs);
        return false;
    }

    // The environment of a process that talks to this manager (`systemctl --user`); with
    // forManager, the manager's own.
    QProcessEnvironment environment(bool forManager) const
    {
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("XDG_RUNTIME_DIR"), path(QStringLiteral("run")));
        env.insert(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"), address_);
        env.insert(QStringLiteral("XDG_CONFIG_HOME"), path(QStringLiteral("config")));
        env.insert(QStringLiteral("SYSTEMD_UNIT_PATH"),
                   path(QStringLiteral("config/systemd/user")) + QLatin1Char(':') + path(QStringLiteral("units")));
        env.remove(QStringLiteral("NOTIFY_SOCKET"));
        if (forManager) {
            env.insert(QStringLiteral("NOTIFY_SOCKET"), path(QStringLiteral("notify")));
            env.insert(QStringLiteral("SYSTEMD_GENERATOR_PATH"), path(QStringLiteral("generators")));
            env.insert(QStringLiteral("SYSTEMD_ENVIRONMENT_GENERATOR_PATH"), path(QStringLiteral("generators")));
            env.insert(QStringLiteral("SYSTEMD_LOG_TARGET"), QStringLiteral("console"));
        }
        return env;
    }

    // The manager's own output, for a test that failed to start it.
    QString log() const
    {
        QFile f(path(QStringLiteral("manager.log")));
        return f.open(QIODevice::ReadOnly) ? QString::fromUtf8(f.readAll()) : QString();
    }

private:
    // journald in the namespace, before the manager (its readiness is not the manager's): the machine's persistent journal folder is
    // covered by a tmpfs of the namespace, so nothing is written outside it; journald ends when
    // the shell that becomes the manager ends. The manager starts once its sockets are there.
    QString journaldCommand() const
    {
        return QStringLiteral("{ [ ! -d /var/log/journal ] || mount -t tmpfs tmpfs /var/log/journal; } && "
                              "{ env -u NOTIFY_SOCKET setpriv --pdeathsig KILL %1 >%2 2>&1 & } && "
                              "n=0; while [ ! -S /run/systemd/journal/stdout ] && [ $n -lt 600 ]; do "
                              "sleep 0.05; n=$((n+1)); done; ")
            .arg(QString::fromLatin1(kJournald), path(QStringLiteral("journald.log")));
    }

    static bool writeFile(const QString& file, const QByteArray& text)
    {
        QFile f(file);
        return f.open(QIODevice::WriteOnly) && f.write(text) == text.size();
    }

    bool writeUnit(const QString& name, const QString& text) const
    {
        const QString file = path(QStringLiteral("units/") + name);
        if (text.startsWith(QStringLiteral("-> ")))
            return QFile::link(text.mid(3), file);
        return writeFile(file, text.toUtf8());
    }

    // A child process that gets SIGTERM when this process ends, however it ends.
    static std::unique_ptr<QProcess> child()
    {
        auto p = std::make_unique<QProcess>();
        const pid_t parent = ::getpid();
        p->setChildProcessModifier([parent] {
            ::prctl(PR_SET_PDEATHSIG, SIGTERM);
            if (::getppid() != parent)
                ::_exit(255);
        });
        return p;
    }

    // The socket on which the manager says how far its start-up has come.
    int notifySocket() const
    {
        const QByteArray file = QFile::encodeName(path(QStringLiteral("notify")));
        sockaddr_un sa{};
        sa.sun_family = AF_UNIX;
        if (size_t(file.size()) >= sizeof sa.sun_path)
            return -1;
        memcpy(sa.sun_path, file.constData(), size_t(file.size()));
        const int fd = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        if (fd >= 0 && ::bind(fd, reinterpret_cast<sockaddr*>(&sa), sizeof sa) == 0)
            return fd;
        if (fd >= 0)
            ::close(fd);
        return -1;
    }

    QString waitForReady(int notify)
    {
        QElapsedTimer t;
        t.start();
        while (t.elapsed() < 60000) {
            if (manager_->state() == QProcess::NotRunning || manager_->waitForFinished(0))
                return QStringLiteral("the manager ended at once: ") + log().right(2000);
            pollfd pfd{notify, POLLIN, 0};
            if (::poll(&pfd, 1, 100) > 0) {
                char buf[4096];
                const ssize_t n = ::recv(notify, buf, sizeof buf - 1, 0);
                // A user manager says READY=1 once at basic.target, with the units of
                // default.target still starting, and again with "Ready." once no job is left.
                if (n > 0 && QByteArray(buf, int(n)).split('\n').contains("STATUS=Ready."))
                    return {};
            }
        }
        return QStringLiteral("the manager did not finish starting up within a minute: ") + log().right(2000);
    }

    // Waits until the manager's interface is on the bus.
    QString waitForInterface() const
    {
        QElapsedTimer t;
        t.start();
        while (t.elapsed() < 60000) {
            sd_bus* bus = nullptr;
            sd_bus_message* reply = nullptr;
            int owned = 0;
            if (sd_bus_new(&bus) >= 0 && sd_bus_set_address(bus, address_.toUtf8().constData()) >= 0
                && sd_bus_set_bus_client(bus, 1) >= 0 && sd_bus_start(bus) >= 0
                && sd_bus_call_method(bus, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
                                      "NameHasOwner", nullptr, &reply, "s", "org.freedesktop.systemd1") >= 0)
                sd_bus_message_read(reply, "b", &owned);
            sd_bus_message_unref(reply);
            sd_bus_flush_close_unref(bus);
            if (owned)
                return {};
            QThread::msleep(10);
        }
        return QStringLiteral("the manager did not show up on its bus within a minute: ") + log().right(2000);
    }

    QString failed(const QString& why)
    {
        stop();
        return why;
    }

    std::unique_ptr<QTemporaryDir> dir_;
    std::unique_ptr<QProcess> manager_;
    QString address_;
};

} // namespace velmora::testsupport
