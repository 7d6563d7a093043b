#include "platform/linux/sshconnections.h"

#include <QCryptographicHash>
#include <QElapsedTimer>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QPointer>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryFile>
#include <QTimer>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <sys/stat.h>
#include <sys/prctl.h>
#include <unistd.h>

namespace velmora::platform {

namespace {

constexpr int Connected = 0;
constexpr int AccessDenied = 5;
constexpr int SshMissing = 2;
constexpr int NetworkPathNotFound = 53;
constexpr int OtherCredentials = 1219;
constexpr int LogonFailure = 1326;
constexpr int NotReachable = 1231;
constexpr int Cancelled = 1223;

// ---- the private folder -------------------------------------------------------------------
// The control sockets give whoever can reach them the logged-on connection, so they live only in
// a folder that belongs to this user alone.

// Why path is not a private folder of this user, or empty when it is one: a folder itself (not a
// symbolic link to one), owned by this user, mode 0700.
QString checkPrivateFolder(const QString& path)
{
    struct stat st {};
    if (::lstat(QFile::encodeName(path).constData(), &st) != 0)
        return QStringLiteral("%1 cannot be examined (%2)").arg(path, QString::fromLocal8Bit(::strerror(errno)));
    if (S_ISLNK(st.st_mode))
        return QStringLiteral("%1 is a symbolic link").arg(path);
    if (!S_ISDIR(st.st_mode))
        return QStringLiteral("%1 is not a folder").arg(path);
    if (st.st_uid != ::geteuid())
        return QStringLiteral("%1 belongs to another user (uid %2)").arg(path).arg(st.st_uid);
    if ((st.st_mode & 07777) != 0700)
        return QStringLiteral("%1 has mode %2 instead of 0700").arg(path).arg(st.st_mode & 07777, 4, 8, QLatin1Char('0'));
    return {};
}

// A new folder of this object's own, under an unpredictable name: in the user's runtime folder
// when that is private, else in the temporary folder. Returns the folder, or empty with the
// reason in problem.
QString makePrivateFolder(QString& problem)
{
    QString base = qEnvironmentVariable("XDG_RUNTIME_DIR");
    if (base.isEmpty() || !checkPrivateFolder(base).isEmpty())
        base = QDir::tempPath();
    QByteArray name = QFile::encodeName(base + QStringLiteral("/velmora-ssh-XXXXXX"));
    // mkdtemp creates the folder with mode 0700 and fails if the name exists.
    if (!::mkdtemp(name.data())) {
        problem = QStringLiteral("no private folder for the ssh connections can be made in %1 (%2)")
                      .arg(base, QString::fromLocal8Bit(::strerror(errno)));
        return {};
    }
    const QString folder = QFile::decodeName(name);
    problem = checkPrivateFolder(folder);
    if (!problem.isEmpty()) {
        problem = QStringLiteral("the folder for the ssh connections is not private: ") + problem;
        return {};
    }
    return folder;
}

QString findProgram(const QString& program)
{
    if (program.contains(QLatin1Char('/')))
        return QFileInfo(program).isExecutable() ? program : QString();
    return QStandardPaths::findExecutable(program);
}

// The helper ssh runs to ask for a password (SSH_ASKPASS): it prints the file whose name the
// environment carries, so the password never shows on a command line or in the environment of
// the master that stays behind. Confirmation questions (an unknown host key) get "no".
QString askpassProgram(const QString& folder)
{
    static const QByteArray script =
        "#!/bin/sh\n"
        "case \"$1\" in *\"(yes/no\"*) exit 1 ;; esac\n"
        "exec cat -- \"$VELMORA_ASKPASS_FILE\"\n";
    const QString path = folder + QStringLiteral("/_askpass");
    QFile f(path);
    if (f.open(QIODevice::ReadOnly) && f.readAll() == script
        && (f.permissions() & QFileDevice::ExeOwner))
        return path;
    f.close();
    QFile::remove(path);
    if (!f.open(QIODevice::WriteOnly) || f.write(script) != script.size())
        return {};
    f.close();
    f.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
    return path;
}

} // namespace

SshConnections::SshConnections() : SshConnections(QStringList{}) {}

SshConnections::SshConnections(QStringList extraOptions, QString program)
    : extraOptions_(std::move(extraOptions)), program_(std::move(program)),
      processes_(std::make_unique<QObject>())
{
    folder_ = makePrivateFolder(folderProblem_);
    if (!folder_.isEmpty())
        return;
    qWarning("Velmora: %s; no ssh connection will be opened", qPrintable(folderProblem_));
}

SshConnections::~SshConnections()
{
    closeAll();
    if (!folder_.isEmpty())
        QDir(folder_).removeRecursively();
}

QString SshConnections::privateFolderProblem(const QString& path)
{
    return checkPrivateFolder(path);
}

void SshConnections::closeAll()
{
    std::vector<QPointer<QProcess>> ending;
    QStringList paths;
    for (auto it = masters_.begin(); it != masters_.end(); ++it) {
        ending.push_back(it->process);
        paths << it.key();
    }
    for (auto it = stopping_.begin(); it != stopping_.end(); ++it) {
        ending.push_back(it.value());
        paths << it.key();
    }
    masters_.clear();
    stopping_.clear();
    for (const QPointer<QProcess>& p : ending) {
        if (!p)
            continue;
        // Nobody hears of the outcome any more.
        p->disconnect();
        if (p->state() != QProcess::NotRunning)
            p->terminate();
    }
    // ssh ends at once on SIGTERM; one that does not is killed, after a second at most for all.
    QElapsedTimer clock;
    clock.start();
    for (const QPointer<QProcess>& p : ending) {
        if (!p || p->state() == QProcess::NotRunning)
            continue;
        if (!p->waitForFinished(int(std::max<qint64>(1, 1000 - clock.elapsed())))) {
            p->kill();
            p->waitForFinished(200);
        }
    }
    for (const QPointer<QProcess>& p : ending)
        delete p.data();
    // A killed master leaves its socket behind.
    for (const QString& path : paths)
        QFile::remove(path);
}

void SshConnections::later(std::function<void()> fn)
{
    // Outcomes are reported from the event loop, never from inside the call that asked.
    QMetaObject::invokeMethod(processes_.get(), std::move(fn), Qt::QueuedConnection);
}

QString SshConnections::controlPath(const QString& server) const
{
    if (folder_.isEmpty())
        return {};
    // Host names ignore case: "SRV1" and "srv1" share one connection. Anything but letters,
    // digits, dots and dashes is spelled out in hex, so no name can reach outside the folder
    // (nor start with "_", which this object's own files do).
    const QString name = server.toLower();
    QString safe;
    for (const char c : name.toUtf8()) {
        if ((c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '.' || c == '-')
            safe += QLatin1Char(c);
        else
            safe += QStringLiteral("_%1").arg(uchar(c), 2, 16, QLatin1Char('0'));
    }
    const QString prefix = folder_ + QLatin1Char('/');
    QString path = prefix + safe;
    // A socket path holds at most 107 bytes, and ssh appends 17 characters while it sets up.
    if (path.toLocal8Bit().size() > 90 || safe.startsWith(QLatin1Char('.')))
        path = prefix + QString::fromLatin1(
                   QCryptographicHash::hash(name.toUtf8(), QCryptographicHash::Sha1).toHex().left(24));
    return path;
}

int SshConnections::codeForOutcome(int exitCode, const QString& stderrText)
{
    if (exitCode == 0)
        return Connected;
    const auto says = [&stderrText](const char* text) {
        return stderrText.contains(QLatin1String(text), Qt::CaseInsensitive);
    };
    if (says("Permission denied") || says("Too many authentication failures"))
        return LogonFailure;
    if (says("Could not resolve hostname") || says("Name or service not known")
        || says("Connection refused") || says("No route to host") || says("Network is unreachable")
        || says("timed out"))
        return NetworkPathNotFound;
    return NotReachable;
}

void SshConnections::add(QObject* context, const QString& server, const QString& user,
                         const QString& password, std::function<void(int code)> done)
{
    QPointer<QObject> guard(context);
    auto finish = [guard, done = std::move(done)](int code) {
        if (guard && done)
            done(code);
    };
    if (findProgram(program_).isEmpty()) {
        later([finish] { finish(SshMissing); });
        return;
    }
    if (folder_.isEmpty()) {
        later([finish] { finish(AccessDenied); });
        return;
    }
    const QString path = controlPath(server);
    if (auto it = masters_.find(path); it != masters_.end()) {
        if (it->user != user)
            later([finish] { finish(OtherCredentials); });
        else if (it->ready)
            later([finish] { finish(Connected); });
        else
            it->waiting.push_back(std::move(finish));
        return;
    }
    Master& master = masters_[path];
    master.user = user;
    master.waiting.push_back(std::move(finish));
    if (const QPointer<QProcess> old = stopping_.value(path)) {
        // The last master for this server is still ending; start when it has.
        QObject::connect(old, &QObject::destroyed, processes_.get(), [this, path, server, user, password] {
            if (masters_.contains(path) && !masters_[path].process)
                startMaster(server, user, password);
        });
        return;
    }
    startMaster(server, user, password);
}

void SshConnections::answer(const QString& path, int code)
{
    const auto it = masters_.find(path);
    if (it == masters_.end())
        return;
    auto waiting = std::move(it->waiting);
    it->waiting.clear();
    if (code == Connected)
        it->ready = true;
    else
        masters_.erase(it);
    for (auto& finish : waiting)
        finish(code);
}

void SshConnections::startMaster(const QString& server, const QString& user, const QString& password)
{
    const QString path = controlPath(server);
    // A socket left by a master that was killed would keep the new one from listening.
    QFile::remove(path);
    auto* proc = new QProcess(processes_.get());
    masters_[path].process = proc;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    if (password.isEmpty()) {
        env.insert(QStringLiteral("SSH_ASKPASS_REQUIRE"), QStringLiteral("never"));
    } else {
        // The password goes to ssh through a private file read by the askpass helper; the file
        // goes with the process object once ssh has logged on or given up.
        auto* secret = new QTemporaryFile(folder_ + QStringLiteral("/_pw-XXXXXX"), proc);
        const QString askpass = askpassProgram(folder_);
        if (askpass.isEmpty() || !secret->open() || secret->write(password.toUtf8() + '\n') < 0
            || !secret->flush()) {
            proc->deleteLater();
            later([this, path] { answer(path, NotReachable); });
            return;
        }
        env.insert(QStringLiteral("SSH_ASKPASS"), askpass);
        env.insert(QStringLiteral("SSH_ASKPASS_REQUIRE"), QStringLiteral("force"));
        env.insert(QStringLiteral("VELMORA_ASKPASS_FILE"), secret->fileName());
    }
    proc->setProcessEnvironment(env);
    proc->setStandardInputFile(QProcess::nullDevice());
    proc->setStandardOutputFile(QProcess::nullDevice());
    // The master ends with the program however the program ends: the kernel sends it SIGTERM
    // when its parent dies, and ssh removes its socket on SIGTERM.
    const pid_t parent = ::getpid();
    proc->setChildProcessModifier([parent] {
        ::prctl(PR_SET_PDEATHSIG, SIGTERM);
        if (::getppid() != parent)
            ::_exit(255);
    });

    // In the foreground, with no ControlPersist (which would put it in the background even
    // when a configuration file asks for it): the master lives as long as this process object.
    QStringList args{QStringLiteral("-M"), QStringLiteral("-S"), path, QStringLiteral("-N"),
                     QStringLiteral("-o"), QStringLiteral("ControlPersist=no"),
                     QStringLiteral("-o"), password.isEmpty() ? QStringLiteral("BatchMode=yes") : QStringLiteral("BatchMode=no"),
                     QStringLiteral("-o"), QStringLiteral("ConnectTimeout=10"),
                     // There is no terminal to confirm a new server's host key on, so the first
                     // connection records it; a changed key is still refused.
                     QStringLiteral("-o"), QStringLiteral("StrictHostKeyChecking=accept-new")};
    args += extraOptions_;
    if (!user.isEmpty())
        args += {QStringLiteral("-l"), user};
    args += {QStringLiteral("--"), server};

    // The master listens on its socket once it has logged on: that is the moment it is ready.
    auto* poll = new QTimer(proc);
    poll->setInterval(50);
    QObject::connect(poll, &QTimer::timeout, proc, [this, proc, poll, path] {
        if (!QFileInfo::exists(path))
            return;
        poll->stop();
        // Logged on: the password file is no longer needed.
        qDeleteAll(proc->findChildren<QTemporaryFile*>());
        answer(path, Connected);
    });
    QObject::connect(proc, &QProcess::started, poll, qOverload<>(&QTimer::start));
    QObject::connect(proc, &QProcess::finished, proc, [this, proc, path](int exitCode, QProcess::ExitStatus status) {
        proc->deleteLater();
        const auto it = masters_.constFind(path);
        if (it == masters_.constEnd() || it->process != proc)
            return;
        if (it->ready) {
            // The connection ended on its own (the server went away).
            masters_.remove(path);
            return;
        }
        answer(path, status == QProcess::NormalExit
                         ? codeForOutcome(exitCode, QString::fromLocal8Bit(proc->readAllStandardError()))
                         : NotReachable);
    });
    QObject::connect(proc, &QProcess::errorOccurred, proc, [this, proc, path](QProcess::ProcessError e) {
        if (e != QProcess::FailedToStart)
            return;
        proc->deleteLater();
        if (masters_.value(path).process == proc)
            answer(path, SshMissing);
    });
    proc->start(findProgram(program_), args);
}

void SshConnections::stop(const QString& path, QProcess* process)
{
    // Nobody hears of this master any more.
    process->disconnect();
    if (process->state() == QProcess::NotRunning) {
        process->deleteLater();
        return;
    }
    stopping_.insert(path, process);
    QObject::connect(process, &QProcess::finished, process, [this, process, path] {
        if (stopping_.value(path) == process) {
            stopping_.remove(path);
            // A killed master leaves its socket.
            QFile::remove(path);
        }
        process->deleteLater();
    });
    process->terminate();
    // One that does not end on request is killed; the caller never waits for either.
    QTimer::singleShot(stopTimeoutMs, process, [process] { process->kill(); });
}

void SshConnections::cancel(const QString& server)
{
    const QString path = controlPath(server);
    const auto it = masters_.find(path);
    if (it == masters_.end())
        return;
    QPointer<QProcess> process = it->process;
    auto waiting = std::move(it->waiting);
    masters_.erase(it);
    if (process)
        stop(path, process);
    for (auto& finish : waiting)
        later([finish = std::move(finish)] { finish(Cancelled); });
}

} // namespace velmora::platform
