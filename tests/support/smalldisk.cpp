#include "support/smalldisk.h"

#include <QCoreApplication>
#include <QFile>
#include <QProcess>
#include <QStandardPaths>

#include <cstdio>

namespace velmora::test {

SmallDiskRun runOnSmallDisk(const QString& folder, int kib, const QStringList& childArgs, const QString& setup)
{
    SmallDiskRun run;
    if (QStandardPaths::findExecutable("unshare").isEmpty()) {
        run.skipReason = "unshare (util-linux) is missing";
        return run;
    }
    // Where no namespace can be made (a chroot forbids user namespaces), unshare itself fails,
    // and its exit status cannot be told from the child's: ask it once on its own.
    QProcess probe;
    probe.start("unshare", QStringList{"--user", "--map-root-user", "--mount", "true"});
    if (!probe.waitForFinished(30000) || probe.exitStatus() != QProcess::NormalExit || probe.exitCode() != 0) {
        run.skipReason = "no user and mount namespace can be made here: " +
                         QString::fromLocal8Bit(probe.readAllStandardError()).trimmed();
        return run;
    }
    const QString script = QStringLiteral("mount -t tmpfs -o size=%1k,mode=0700 velmora-test \"$1\" || exit 99\n%2\n"
                                          "shift\nexec \"$@\"")
                               .arg(kib)
                               .arg(setup.isEmpty() ? QStringLiteral(":") : setup + QStringLiteral(" || exit 99"));
    QProcess child;
    child.start("unshare", QStringList{"--user", "--map-root-user", "--mount", "sh", "-c", script, "sh", folder,
                                       QCoreApplication::applicationFilePath()}
                               + childArgs + QStringList{folder});
    if (!child.waitForFinished(120000)) {
        child.kill();
        child.waitForFinished();
    }
    run.errors = QString::fromLocal8Bit(child.readAllStandardError());
    if (child.exitStatus() != QProcess::NormalExit || child.exitCode() == 99 || child.error() == QProcess::FailedToStart) {
        run.skipReason = "no small file system of the test's own: " + run.errors;
        return run;
    }
    for (const QString& line : QString::fromLocal8Bit(child.readAllStandardOutput()).split('\n', Qt::SkipEmptyParts))
        run.seen.insert(line.section(": ", 0, 0), line.section(": ", 1));
    return run;
}

void fillUp(const QString& folder)
{
    QFile filler(folder + "/filler");
    if (!filler.open(QIODevice::WriteOnly | QIODevice::Unbuffered))
        return;
    const QByteArray block(1024, 'f');
    while (filler.write(block) == block.size()) {
    }
    while (filler.write(block.left(1)) == 1) {
    }
}

void tellParent(const char* what, const QString& outcome)
{
    std::printf("%s: %s\n", what, outcome.toLocal8Bit().constData());
    std::fflush(stdout);
}

} // namespace velmora::test
