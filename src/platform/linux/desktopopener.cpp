#include "platform/linux/desktopopener.h"

#include <QCoreApplication>
#include <QDesktopServices>
#include <QDir>
#include <QFileInfo>
#include <QMimeDatabase>
#include <QProcess>
#include <QSemaphore>
#include <QStandardPaths>
#include <QThread>
#include <QUrl>

#include <atomic>
#include <memory>

namespace velmora::platform {

namespace {

constexpr int kOpened = 42; // any value above 32 means success

bool isProgram(const QFileInfo& info)
{
    if (!info.isFile() || !info.isExecutable())
        return false;
    const QMimeType type = QMimeDatabase().mimeTypeForFile(info);
    for (const char* name : {"application/x-executable", "application/x-pie-executable",
                             "application/x-sharedlib", "application/x-shellscript"}) {
        if (type.inherits(QString::fromLatin1(name)))
            return true;
    }
    return false;
}

// Runs a launcher that hands the file to an application and exits. A launcher still running
// after the wait is taken to be the application itself (generic xdg-open runs it in the
// foreground); it is left running and reaped when it ends.
//
// This may run on any thread. The process gets no parent, since a parent must live in the
// same thread and the caller's thread may end or be reused before the launcher does; a
// launcher that outlives the wait is handed to the application's main thread, whose event
// loop sees it finish and deletes it. The program's own end does not stop it: the viewer it
// became belongs to the user.
int runLauncher(const QString& program, const QStringList& args, int waitMs)
{
    auto proc = std::make_unique<QProcess>();
    proc->setProgram(program);
    proc->setArguments(args);
    proc->setProcessChannelMode(QProcess::ForwardedErrorChannel);
    proc->setStandardOutputFile(QProcess::nullDevice());
    proc->start();
    if (!proc->waitForStarted(waitMs))
        return 31;
    if (!proc->waitForFinished(waitMs)) {
        QObject::connect(proc.get(), &QProcess::finished, proc.get(), &QObject::deleteLater);
        if (QCoreApplication* app = QCoreApplication::instance())
            proc->moveToThread(app->thread());
        proc.release();
        return kOpened;
    }
    const bool ok = proc->exitStatus() == QProcess::NormalExit && proc->exitCode() == 0;
    return ok ? kOpened : 31;
}

// Qt's desktop services belong to the user-interface thread. From another thread the request
// is queued there and waited for; a user-interface thread that does not answer within waitMs
// (busy, or waiting for this very thread while the program ends) counts as no application,
// so the two threads never wait for each other.
bool openWithDesktopServices(const QUrl& url, int waitMs)
{
    QCoreApplication* app = QCoreApplication::instance();
    if (!app)
        return false;
    if (QThread::currentThread() == app->thread())
        return QDesktopServices::openUrl(url);
    struct Answer {
        QSemaphore done;
        std::atomic<bool> ok = false;
    };
    auto answer = std::make_shared<Answer>();
    QMetaObject::invokeMethod(app, [answer, url] {
        answer->ok = QDesktopServices::openUrl(url);
        answer->done.release();
    }, Qt::QueuedConnection);
    return answer->done.tryAcquire(1, waitMs) && answer->ok;
}

// A bare name ("xterm") that is no file in the current folder is looked up on PATH, the way
// the shell and the system's own open call find a program.
QFileInfo resolve(const QString& file)
{
    QFileInfo info(file);
    if (file.contains(QLatin1Char('/')) || info.exists())
        return info;
    const QString found = QStandardPaths::findExecutable(file);
    return found.isEmpty() ? info : QFileInfo(found);
}

} // namespace

int DesktopOpener::open(const QString& file, const QString& parameters)
{
    if (file.isEmpty())
        return 2;
    const QFileInfo info = resolve(file);
    if (!info.exists())
        return info.absoluteDir().exists() ? 2 : 3;
    if (!info.isReadable())
        return 5;

    if (isProgram(info)) {
        const QStringList args = QProcess::splitCommand(parameters);
        return QProcess::startDetached(info.absoluteFilePath(), args, info.absolutePath()) ? kOpened : 11;
    }

    const QString path = info.absoluteFilePath();
    const QString gio = QStandardPaths::findExecutable(QStringLiteral("gio"));
    if (!gio.isEmpty())
        return runLauncher(gio, {QStringLiteral("open"), path}, launcher_wait_ms);
    const QString xdgOpen = QStandardPaths::findExecutable(QStringLiteral("xdg-open"));
    if (!xdgOpen.isEmpty())
        return runLauncher(xdgOpen, {path}, launcher_wait_ms);
    return openWithDesktopServices(QUrl::fromLocalFile(path), launcher_wait_ms) ? kOpened : 31;
}

} // namespace velmora::platform
