#include "platform/linux/linuxplatform.h"

#include "platform/linux/computerchooser.h"
#include "platform/linux/desktopopener.h"
#include "platform/linux/disktextfiles.h"
#include "platform/linux/linuxicmp.h"
#include "platform/linux/localsocketinstance.h"
#include "platform/linux/loopsound.h"
#include "platform/linux/msmtpmail.h"
#include "platform/linux/qtcredentialsprompt.h"
#include "platform/linux/qtfiledialogs.h"
#include "platform/linux/qtmessageboxes.h"
#include "platform/linux/secretservice.h"
#include "platform/linux/qttcpsocket.h"
#include "platform/linux/smbmessenger.h"
#include "platform/linux/dbusnotifier.h"
#include "platform/linux/sshconnections.h"
#include "platform/linux/systemdjournal.h"
#include "platform/linux/systemdservices.h"
#include "platform/linux/systemtray.h"
#include "platform/linux/tonebeeper.h"
#include "platform/linux/windowsconnections.h"
#include "platform/linux/windowsservices.h"

#include "platform/connectionrouter.h"
#include "platform/servicerouter.h"

#include <QApplication>
#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QHostInfo>
#include <QLocalServer>
#include <QLocalSocket>
#include <QPointer>
#include <QStandardPaths>
#include <QThreadPool>
#include <QTimer>

#include <QSocketNotifier>

#include <csignal>
#include <cstdio>
#include <netdb.h>
#include <sys/socket.h>
#include <unistd.h>

namespace velmora::platform {

namespace {

class QtTimerAdapter : public Timer {
public:
    QtTimerAdapter(QObject* parent, Qt::TimerType type) : Timer(parent), timer_(this)
    {
        timer_.setTimerType(type);
        connect(&timer_, &QTimer::timeout, this, &Timer::timeout);
    }
    void setInterval(int ms) override
    {
        interval_ = ms;
        timer_.setInterval(ms);
        apply();
    }
    int interval() const override { return interval_; }
    void setEnabled(bool on) override
    {
        if (on == enabled_)
            return;
        enabled_ = on;
        apply();
    }
    bool isEnabled() const override { return enabled_; }

private:
    void apply()
    {
        // An interval of 0 never fires.
        if (enabled_ && interval_ > 0)
            timer_.start();
        else
            timer_.stop();
    }
    QTimer timer_;
    int interval_ = 0;
    bool enabled_ = false;
};

class QtClock : public Clock {
public:
    QDateTime now() const override { return QDateTime::currentDateTime(); }
    Timer* createTimer(QObject* parent, const QString& name, int intervalMs,
                       Precision precision = Precision::Coarse) override
    {
        auto* t = new QtTimerAdapter(parent, precision == Precision::Precise ? Qt::PreciseTimer : Qt::CoarseTimer);
        t->setObjectName(name);
        t->setInterval(intervalMs);
        return t;
    }
    void singleShot(int ms, QObject* context, std::function<void()> fn,
                    Precision precision = Precision::Coarse) override
    {
        QTimer::singleShot(ms, precision == Precision::Precise ? Qt::PreciseTimer : Qt::CoarseTimer, context,
                           std::move(fn));
    }
};

class LinuxSystem : public SystemInfo {
public:
    int platformId() override { return 2; }
    QString computerName() override
    {
        QString name = QHostInfo::localHostName();
        const qsizetype dot = name.indexOf(QLatin1Char('.'));
        return dot > 0 ? name.left(dot) : name;
    }
    QString fullyQualifiedName() override
    {
        // The canonical name of the host name as the resolver knows it (the same lookup
        // "hostname --fqdn" makes).
        const QByteArray host = QHostInfo::localHostName().toLocal8Bit();
        QString name = QString::fromLocal8Bit(host);
        addrinfo hints{};
        hints.ai_family = AF_UNSPEC;
        hints.ai_flags = AI_CANONNAME;
        addrinfo* found = nullptr;
        if (::getaddrinfo(host.constData(), nullptr, &hints, &found) == 0 && found) {
            if (found->ai_canonname && *found->ai_canonname)
                name = QString::fromLocal8Bit(found->ai_canonname);
            ::freeaddrinfo(found);
        }
        if (!name.contains(QLatin1Char('.'))) {
            const QString domain = QHostInfo::localDomainName();
            if (!domain.isEmpty())
                name += QLatin1Char('.') + domain;
        }
        return name;
    }
    QString programFolder() override { return QCoreApplication::applicationDirPath(); }
    QString programFileName() override { return QFileInfo(QCoreApplication::applicationFilePath()).fileName(); }
    bool folderWritable(const QString& folder) override
    {
        // Everything under /usr belongs to the package manager and may be mounted read-only: an
        // installed copy keeps its data in the per-user folder, also when root runs it.
        const QString clean = QDir::cleanPath(folder);
        if (clean == QLatin1String("/usr") || clean.startsWith(QLatin1String("/usr/")))
            return false;
        return ::access(QFile::encodeName(folder).constData(), W_OK) == 0;
    }
    QString userDataFolder() override
    {
        const QString dir = QStandardPaths::writableLocation(QStandardPaths::AppDataLocation);
        QDir().mkpath(dir);
        return dir;
    }
};

// Ends the event loop; SIGTERM and SIGHUP (logout, system shutdown) count as a request to close
// the main window.
class QtApplicationEnd : public Application {
public:
    void end(int code) override
    {
        ended_ = true;
        if (beforeEnd_)
            beforeEnd_();
        QCoreApplication::exit(code);
    }
    // fn runs first on every way out through end().
    void setBeforeEnd(std::function<void()> fn) { beforeEnd_ = std::move(fn); }
    bool ended() const override { return ended_; }
    void onSessionEnd(std::function<void()> fn) override
    {
        sessionEnd_ = std::move(fn);
        if (notifier_)
            return;
        if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, signalPipe) != 0)
            return;
        notifier_ = new QSocketNotifier(signalPipe[1], QSocketNotifier::Read, qApp);
        QObject::connect(notifier_, &QSocketNotifier::activated, qApp, [this] {
            char c;
            if (::read(signalPipe[1], &c, 1) == 1 && sessionEnd_ && !ended_)
                sessionEnd_();
        });
        struct sigaction sa {};
        sa.sa_handler = [](int) {
            const char c = 1;
            [[maybe_unused]] auto n = ::write(signalPipe[0], &c, 1);
        };
        sigemptyset(&sa.sa_mask);
        sa.sa_flags = SA_RESTART;
        ::sigaction(SIGTERM, &sa, nullptr);
        ::sigaction(SIGHUP, &sa, nullptr);
    }

private:
    static inline int signalPipe[2] = {-1, -1};
    bool ended_ = false;
    std::function<void()> beforeEnd_;
    std::function<void()> sessionEnd_;
    QSocketNotifier* notifier_ = nullptr;
};

class ThreadPoolWorker : public Worker {
public:
    ThreadPoolWorker() { pool_.setMaxThreadCount(32); }
    ~ThreadPoolWorker() override { pool_.waitForDone(); }
    void run(QObject* context, std::function<std::function<void()>()> job) override
    {
        QPointer<QObject> guard(context);
        pool_.start([guard, job = std::move(job)] {
            auto done = job();
            if (!guard || !done)
                return;
            QMetaObject::invokeMethod(guard.data(), [guard, done = std::move(done)] {
                if (guard)
                    done();
            }, Qt::QueuedConnection);
        });
    }

private:
    QThreadPool pool_;
};

// Remote service managers are reached through the connections that net opens.
SystemdServices::Options servicesThrough(const SshConnections& net)
{
    SystemdServices::Options options;
    options.controlPath = [&net](const QString& server) { return net.controlPath(server); };
    return options;
}

// The journals of remote servers are read through the connections that net opens.
SystemdJournal::Options journalThrough(const SshConnections& net, std::function<bool(const QString&)> isWindows)
{
    SystemdJournal::Options options;
    options.controlPath = [&net](const QString& server) { return net.controlPath(server); };
    options.isWindows = std::move(isWindows);
    return options;
}

// Windows servers log on with what their connections hold, at a server's first check with the
// logon the secret store keeps; the helper lives beside the program.
WindowsServices::Options windowsServicesThrough(WindowsConnections& logons)
{
    WindowsServices::Options options;
    options.helper = QDir(QCoreApplication::applicationDirPath()).filePath(QStringLiteral("velmora-svcctl"));
    options.logon = [&logons](const QString& server) { return logons.logonFor(server); };
    options.logonRefused = [&logons](const QString& server) { logons.logonRefused(server); };
    return options;
}

} // namespace

struct LinuxPlatform::Impl {
    DiskTextFiles files;
    QtMessageBoxes boxes;
    QtClock clock;
    LinuxSystem system;
    LocalSocketInstance instance;
    QtApplicationEnd app;
    LinuxIcmp icmp;
    ThreadPoolWorker worker;
    QtCredentialsPrompt prompt;
    // ssh runs this program again as its askpass helper (main() calls askpassMain()).
    SshConnections ssh{{}, QStringLiteral("ssh"), &prompt};
    SystemdServices systemd{servicesThrough(ssh)};
    SecretServiceStore secrets{worker};
    // Which servers are Windows servers: the program installs its "ServerTypes" file here.
    ServerKindsSlot serverTypes;
    std::function<bool(const QString&)> isWindows = [this](const QString& server) {
        return serverTypes.isWindows(server);
    };
    WindowsServices windows{windowsServicesThrough(windowsLogons)};
    WindowsConnections windowsLogons{
        [this](const QString& server, const WindowsServices::Logon& logon) { return windows.tryLogon(server, logon); },
        secrets, prompt, worker, [this](const QString& server) { windows.disconnect(server); }};
    ConnectionRouter net{ssh, windowsLogons, isWindows};
    ServiceRouter services{systemd, windows, isWindows};
    SystemTray tray;
    LoopSound sound;
    KnownComputersChooser chooser;
    DesktopOpener opener;
    ToneBeeper beeper;
    QtTcpNetwork tcp;
    MsmtpMail profilemail;
    SmbMessenger messenger;
    QtFileDialogs filedialogs;
    SystemdJournal journal{journalThrough(ssh, isWindows)};
    DBusNotifier notifier;
};

void endProcessNow(int code)
{
    std::fflush(stdout);
    std::fflush(stderr);
    ::_exit(code);
}

LinuxPlatform::LinuxPlatform() : d(std::make_unique<Impl>())
{
    // No ssh session outlives the program, however it is left, and no folder of their sockets:
    // the program ends without running destructors.
    d->app.setBeforeEnd([net = &d->net, ssh = &d->ssh] {
        net->closeAll();
        ssh->leave();
    });
}
LinuxPlatform::~LinuxPlatform() = default;

Platform LinuxPlatform::platform()
{
    Platform p;
    p.files = &d->files;
    p.boxes = &d->boxes;
    p.clock = &d->clock;
    p.system = &d->system;
    p.instance = &d->instance;
    p.app = &d->app;
    p.icmp = &d->icmp;
    p.worker = &d->worker;
    p.net = &d->net;
    p.services = &d->services;
    p.tray = &d->tray;
    p.sound = &d->sound;
    p.chooser = &d->chooser;
    p.opener = &d->opener;
    p.beeper = &d->beeper;
    p.tcp = &d->tcp;
    p.profilemail = &d->profilemail;
    p.messenger = &d->messenger;
    p.secrets = &d->secrets;
    p.filedialogs = &d->filedialogs;
    p.serverkinds = &d->serverTypes;
    p.serverkindsSlot = &d->serverTypes;
    p.journal = &d->journal;
    p.notifier = &d->notifier;
    return p;
}

} // namespace velmora::platform
