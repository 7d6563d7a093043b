#include "platform/linux/desktopopener.h"

#include <QCoreApplication>
#include <QDesktopServices>
#include <QDir>
#include <QFileInfo>
#include <QMimeDatabase>
#include <QProcess>
#include <QStandardPaths>
#include <QUrl>

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
int runLauncher(const QString& program, const QStringList& args, int waitMs)
{
    auto* proc = new QProcess(QCoreApplication::instance());
    proc->setProgram(program);
    proc->setArguments(args);
    proc->setProcessChannelMode(QProcess::ForwardedErrorChannel);
    proc->setStandardOutputFile(QProcess::nullDevice());
    proc->start();
    if (!proc->waitForStarted(waitMs)) {
        delete proc;
        return 31;
    }
    if (!proc->waitForFinished(waitMs)) {
        QObject::connect(proc, &QProcess::finished, proc, &QObject::deleteLater);
        return kOpened;
    }
    const bool ok = proc->exitStatus() == QProcess::NormalExit && proc->exitCode() == 0;
    delete proc;
    return ok ? kOpened : 31;
}

} // namespace

int DesktopOpener::open(const QString& file, const QString& parameters)
{
    if (file.isEmpty())
        return 2;
    const QFileInfo info(file);
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
    return QDesktopServices::openUrl(QUrl::fromLocalFile(path)) ? kOpened : 31;
}

} // namespace velmora::platform
