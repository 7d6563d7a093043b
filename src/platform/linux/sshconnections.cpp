#include "platform/linux/sshconnections.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QPointer>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryFile>

namespace velmora::platform {

namespace {

constexpr int Connected = 0;
constexpr int SshMissing = 2;
constexpr int NetworkPathNotFound = 53;
constexpr int OtherCredentials = 1219;
constexpr int LogonFailure = 1326;
constexpr int NotReachable = 1231;

QString runtimeFolder()
{
    QString dir = QStandardPaths::writableLocation(QStandardPaths::RuntimeLocation);
    return dir.isEmpty() ? QDir::tempPath() : dir;
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
QString askpassProgram()
{
    static const QByteArray script =
        "#!/bin/sh\n"
        "case \"$1\" in *\"(yes/no\"*) exit 1 ;; esac\n"
        "exec cat -- \"$VELMORA_ASKPASS_FILE\"\n";
    const QString path = runtimeFolder() + QStringLiteral("/velmora-askpass");
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
}

SshConnections::~SshConnections()
{
    // Ssh processes still running are stopped with this object; their outcome goes nowhere.
    for (QObject* child : processes_->children())
        child->disconnect();
}

QString SshConnections::controlPath(const QString& server)
{
    // Host names ignore case: "SRV1" and "srv1" share one connection. Anything but letters,
    // digits, dots and dashes is spelled out in hex, so no name can reach outside the folder.
    const QString name = server.toLower();
    QString safe;
    for (const char c : name.toUtf8()) {
        if ((c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '.' || c == '-')
            safe += QLatin1Char(c);
        else
            safe += QStringLiteral("_%1").arg(uchar(c), 2, 16, QLatin1Char('0'));
    }
    const QString prefix = runtimeFolder() + QStringLiteral("/velmora-ssh-");
    QString path = prefix + safe;
    // A socket path holds at most 107 bytes, and ssh appends 17 characters while it sets up.
    if (path.toLocal8Bit().size() > 90)
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
    const QString ssh = findProgram(program_);
    if (ssh.isEmpty()) {
        // Reported from the event loop like every other outcome, never from inside add().
        QMetaObject::invokeMethod(processes_.get(), [finish] { finish(SshMissing); }, Qt::QueuedConnection);
        return;
    }
    const QString path = controlPath(server);
    if (!QFileInfo::exists(path)) {
        startMaster(server, user, password, std::move(finish));
        return;
    }
    // A socket is there: reuse a live master, or clear away one whose master has ended (ssh
    // would not open a new master on top of it).
    auto* check = new QProcess(processes_.get());
    check->setStandardInputFile(QProcess::nullDevice());
    check->setStandardOutputFile(QProcess::nullDevice());
    check->setStandardErrorFile(QProcess::nullDevice());
    QObject::connect(check, &QProcess::finished, check,
                     [this, check, server, user, password, path, finish](int exitCode, QProcess::ExitStatus status) {
                         check->deleteLater();
                         if (status == QProcess::NormalExit && exitCode == 0) {
                             const auto it = users_.constFind(path);
                             finish(it != users_.constEnd() && *it != user ? OtherCredentials : Connected);
                             return;
                         }
                         QFile::remove(path);
                         startMaster(server, user, password, finish);
                     });
    QObject::connect(check, &QProcess::errorOccurred, check, [check, finish](QProcess::ProcessError e) {
        if (e == QProcess::FailedToStart) {
            check->deleteLater();
            finish(SshMissing);
        }
    });
    check->start(ssh, {QStringLiteral("-S"), path, QStringLiteral("-O"), QStringLiteral("check"),
                       QStringLiteral("--"), server});
}

void SshConnections::startMaster(const QString& server, const QString& user, const QString& password,
                                 std::function<void(int code)> finish)
{
    const QString path = controlPath(server);
    auto* proc = new QProcess(processes_.get());
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    if (password.isEmpty()) {
        env.insert(QStringLiteral("SSH_ASKPASS_REQUIRE"), QStringLiteral("never"));
    } else {
        // The password goes to ssh through a private file read by the askpass helper; the file
        // goes with the process object once ssh has logged on or given up.
        auto* secret = new QTemporaryFile(runtimeFolder() + QStringLiteral("/velmora-pw-XXXXXX"), proc);
        const QString askpass = askpassProgram();
        if (askpass.isEmpty() || !secret->open() || secret->write(password.toUtf8() + '\n') < 0
            || !secret->flush()) {
            proc->deleteLater();
            QMetaObject::invokeMethod(processes_.get(), [finish] { finish(NotReachable); }, Qt::QueuedConnection);
            return;
        }
        env.insert(QStringLiteral("SSH_ASKPASS"), askpass);
        env.insert(QStringLiteral("SSH_ASKPASS_REQUIRE"), QStringLiteral("force"));
        env.insert(QStringLiteral("VELMORA_ASKPASS_FILE"), secret->fileName());
    }
    proc->setProcessEnvironment(env);
    proc->setStandardInputFile(QProcess::nullDevice());
    proc->setStandardOutputFile(QProcess::nullDevice());

    QStringList args{QStringLiteral("-M"), QStringLiteral("-S"), path,
                     QStringLiteral("-o"), QStringLiteral("ControlPersist=yes"),
                     QStringLiteral("-o"), password.isEmpty() ? QStringLiteral("BatchMode=yes") : QStringLiteral("BatchMode=no"),
                     QStringLiteral("-o"), QStringLiteral("ConnectTimeout=10"),
                     // There is no terminal to confirm a new server's host key on, so the first
                     // connection records it; a changed key is still refused.
                     QStringLiteral("-o"), QStringLiteral("StrictHostKeyChecking=accept-new")};
    args += extraOptions_;
    args += {QStringLiteral("-N"), QStringLiteral("-f")};
    if (!user.isEmpty())
        args += {QStringLiteral("-l"), user};
    args += {QStringLiteral("--"), server};

    QObject::connect(proc, &QProcess::finished, proc,
                     [this, proc, path, user, finish](int exitCode, QProcess::ExitStatus status) {
                         proc->deleteLater();
                         const int code = status == QProcess::NormalExit
                             ? codeForOutcome(exitCode, QString::fromLocal8Bit(proc->readAllStandardError()))
                             : NotReachable;
                         if (code == Connected)
                             users_.insert(path, user);
                         finish(code);
                     });
    QObject::connect(proc, &QProcess::errorOccurred, proc, [proc, finish](QProcess::ProcessError e) {
        if (e == QProcess::FailedToStart) {
            proc->deleteLater();
            finish(SshMissing);
        }
    });
    proc->start(findProgram(program_), args);
}

void SshConnections::cancel(const QString& server)
{
    const QString path = controlPath(server);
    users_.remove(path);
    const QString ssh = findProgram(program_);
    if (ssh.isEmpty() || !QFileInfo::exists(path))
        return;
    // Fire and forget: the master ends on its own and removes its socket.
    QProcess closer;
    closer.setProgram(ssh);
    closer.setArguments({QStringLiteral("-q"), QStringLiteral("-S"), path, QStringLiteral("-O"),
                       QStringLiteral("exit"), QStringLiteral("--"), server});
    closer.setStandardInputFile(QProcess::nullDevice());
    closer.setStandardOutputFile(QProcess::nullDevice());
    closer.setStandardErrorFile(QProcess::nullDevice());
    closer.startDetached();
}

} // namespace velmora::platform
