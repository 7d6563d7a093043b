#include "platform/linux/linuxplatform.h"

#include "platform/linux/computerchooser.h"
#include "platform/linux/disktextfiles.h"
#include "platform/linux/linuxicmp.h"
#include "platform/linux/sshconnections.h"

#include <QApplication>
#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QHostInfo>
#include <QLocalServer>
#include <QLocalSocket>
#include <QMessageBox>
#include <QPointer>
#include <QStandardPaths>
#include <QSystemTrayIcon>
#include <QThreadPool>
#include <QTimer>

#include <unistd.h>

namespace velmora::platform {

namespace {

class QtMessageBoxes : public MessageBoxes {
public:
    MsgAnswer show(const QString& text, MsgIcon icon, MsgButtons buttons) override
    {
        QMessageBox box(QApplication::activeWindow());
        box.setWindowTitle(QStringLiteral("Velmora"));
        box.setText(text);
        switch (icon) {
        case MsgIcon::Critical: box.setIcon(QMessageBox::Critical); break;
        case MsgIcon::Question: box.setIcon(QMessageBox::Question); break;
        case MsgIcon::Exclamation: box.setIcon(QMessageBox::Warning); break;
        case MsgIcon::Information: box.setIcon(QMessageBox::Information); break;
        }
        switch (buttons) {
        case MsgButtons::Ok: box.setStandardButtons(QMessageBox::Ok); break;
        case MsgButtons::OkCancel: box.setStandardButtons(QMessageBox::Ok | QMessageBox::Cancel); break;
        case MsgButtons::YesNo: box.setStandardButtons(QMessageBox::Yes | QMessageBox::No); break;
        case MsgButtons::YesNoCancel:
            box.setStandardButtons(QMessageBox::Yes | QMessageBox::No | QMessageBox::Cancel);
            break;
        }
        switch (box.exec()) {
        case QMessageBox::Cancel: return MsgAnswer::Cancel;
        case QMessageBox::Yes: return MsgAnswer::Yes;
        case QMessageBox::No: return MsgAnswer::No;
        default: return MsgAnswer::Ok;
        }
    }
};

class QtTimerAdapter : public Timer {
public:
    explicit QtTimerAdapter(QObject* parent) : Timer(parent), timer_(this)
    {
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
    Timer* createTimer(QObject* parent, const QString& name, int intervalMs) override
    {
        auto* t = new QtTimerAdapter(parent);
        t->setObjectName(name);
        t->setInterval(intervalMs);
        return t;
    }
    void singleShot(int ms, QObject* context, std::function<void()> fn) override
    {
        QTimer::singleShot(ms, context, std::move(fn));
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
    QString programFolder() override { return QCoreApplication::applicationDirPath(); }
    bool folderWritable(const QString& folder) override
    {
        return ::access(QFile::encodeName(folder).constData(), W_OK) == 0;
    }
    QString userDataFolder() override
    {
        const QString dir = QStandardPaths::writableLocation(QStandardPaths::AppDataLocation);
        QDir().mkpath(dir);
        return dir;
    }
};

// The first copy listens on a local socket in the user's runtime folder; a later copy that can
// connect there knows it is not alone and asks the first to show itself.
class LocalSocketInstance : public SingleInstance {
public:
    bool otherInstanceRunning(std::function<void()> onShowRequest) override
    {
        QLocalSocket probe;
        probe.connectToServer(socketName());
        if (probe.waitForConnected(500))
            return true;
        QLocalServer::removeServer(socketName());
        server_ = new QLocalServer(qApp);
        server_->setSocketOptions(QLocalServer::UserAccessOption);
        QObject::connect(server_, &QLocalServer::newConnection, server_, [this, onShowRequest] {
            while (QLocalSocket* s = server_->nextPendingConnection()) {
                QObject::connect(s, &QLocalSocket::readyRead, s, [s, onShowRequest] {
                    if (s->readAll().contains("show") && onShowRequest)
                        onShowRequest();
                });
                QObject::connect(s, &QLocalSocket::disconnected, s, &QObject::deleteLater);
            }
        });
        server_->listen(socketName());
        return false;
    }
    void activateOther() override
    {
        QLocalSocket s;
        s.connectToServer(socketName());
        if (!s.waitForConnected(500))
            return;
        s.write("show\n");
        s.waitForBytesWritten(500);
        s.disconnectFromServer();
    }

private:
    static QString socketName()
    {
        QString dir = QStandardPaths::writableLocation(QStandardPaths::RuntimeLocation);
        if (dir.isEmpty())
            dir = QDir::tempPath();
        return dir + QStringLiteral("/velmora-%1.sock").arg(::getuid());
    }
    QLocalServer* server_ = nullptr;
};

class QtApplicationEnd : public Application {
public:
    void end(int code) override
    {
        ended_ = true;
        QCoreApplication::exit(code);
    }
    bool ended() const override { return ended_; }

private:
    bool ended_ = false;
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

class QtTrayIcon : public TrayIcon {
public:
    void add() override
    {
        if (!icon_) {
            icon_ = new QSystemTrayIcon(qApp);
            icon_->setIcon(QApplication::windowIcon());
            icon_->setToolTip(QStringLiteral("Velmora"));
        }
        if (!icon_->isVisible() && QSystemTrayIcon::isSystemTrayAvailable())
            icon_->show();
        shown_ = true;
    }
    void remove() override
    {
        if (icon_)
            icon_->hide();
        shown_ = false;
    }
    bool shown() const override { return shown_; }

private:
    QPointer<QSystemTrayIcon> icon_;
    bool shown_ = false;
};

class QtSound : public Sound {
public:
    void stop() override {}
};

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
    SshConnections net;
    QtTrayIcon tray;
    QtSound sound;
    KnownComputersChooser chooser;
};

LinuxPlatform::LinuxPlatform() : d(std::make_unique<Impl>()) {}
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
    p.tray = &d->tray;
    p.sound = &d->sound;
    p.chooser = &d->chooser;
    return p;
}

} // namespace velmora::platform
