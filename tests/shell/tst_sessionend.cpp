// The real program ended by a termination signal (a session that ends) on a full disk: it
// writes what it can, says on standard error what it could not, shows no box and ends, leaving
// its files whole. The program runs where its folder is a real tmpfs filled to the last byte.
#include "support/smalldisk.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

#include <csignal>

using namespace velmora;

namespace {

QString program() { return qEnvironmentVariable("VELMORA_BINARY_DIR") + "/velmora"; }

QString contentOf(const QString& path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? QString::fromUtf8(f.readAll()).replace("\r\n", "|") : QString();
}

bool put(const QString& path, const QByteArray& bytes)
{
    QFile f(path);
    return f.open(QIODevice::WriteOnly) && f.write(bytes) == bytes.size();
}

} // namespace

class TestSessionEnd : public QObject {
    Q_OBJECT
private slots:
    void terminationOnAFullDiskEndsWithoutABoxAndSaysWhatWasNotSaved()
    {
        if (!QFileInfo(program()).isExecutable())
            QSKIP("the program is not built (VELMORA_BINARY_DIR/velmora)");
        QTemporaryDir dir;
        const QString folder = dir.filePath("disk");
        QVERIFY(QDir().mkdir(folder));
        // The program file is laid over an empty file of the small disk, so that its folder, and
        // with it its data folder, is the small disk.
        const test::SmallDiskRun run = test::runOnSmallDisk(
            folder, 256, {"--terminate-on-full-disk"},
            "touch \"$1/velmora\" && mount --bind \"" + program() + "\" \"$1/velmora\"");
        if (!run.skipReason.isEmpty())
            QSKIP(qPrintable(run.skipReason));
        const QMap<QString, QString>& seen = run.seen;
        QVERIFY2(seen.value("set up") == "yes", qPrintable(run.errors));
        QCOMPARE(seen.value("ended"), "yes, code 0");
        const QString said = seen.value("standard error");
        for (const char* file : {"Computerlist", "Settings"})
            QVERIFY2(said.contains(QStringLiteral("Velmora: Could not save \"%1/%2\": No space left on device")
                                       .arg(folder, file)),
                     qPrintable(said));
        QCOMPARE(seen.value("Computerlist"), "DC1|FS1\tmonitored|");
        // The job log had room left in its last block: there it is said too.
        const QStringList log = seen.value("Jobs.log").split('|');
        QCOMPARE(log.value(0), "first");
        QCOMPARE(log.filter("Could not save").size(), 2);
    }
};

// --terminate-on-full-disk FOLDER: run where FOLDER is a small disk holding the program file.
int terminateOnFullDisk(const QString& folder)
{
    QTemporaryDir runtime; // the program's private folder and home: off the small disk
    if (!QFile::setPermissions(runtime.path(), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner)
        || !put(folder + "/Computerlist", "DC1\r\nFS1\tmonitored\r\n") || !put(folder + "/Jobs.log", "first\r\n")
        || !put(folder + "/Interval", "30\r\n"))
        return 0;
    test::fillUp(folder);
    QProcess velmora;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert("QT_QPA_PLATFORM", "offscreen");
    env.insert("XDG_RUNTIME_DIR", runtime.path());
    env.insert("HOME", runtime.path());
    velmora.setProcessEnvironment(env);
    velmora.start(folder + "/velmora", {});
    if (!velmora.waitForStarted())
        return 0;
    test::tellParent("set up", "yes");
    // Up once it has taken its single-instance socket; from there a signal is heard.
    const QString socket = runtime.path() + "/velmora/instance.sock";
    QTest::qWaitFor([&] { return QFileInfo::exists(socket) || velmora.state() == QProcess::NotRunning; }, 60000);
    ::kill(pid_t(velmora.processId()), SIGTERM);
    const bool ended = velmora.waitForFinished(30000);
    if (!ended) {
        velmora.kill();
        velmora.waitForFinished();
    }
    test::tellParent("ended", ended ? QString("yes, code %1").arg(velmora.exitCode()) : QString("no"));
    test::tellParent("standard error", QString::fromLocal8Bit(velmora.readAllStandardError()).replace('\n', '|'));
    test::tellParent("Computerlist", contentOf(folder + "/Computerlist"));
    test::tellParent("Jobs.log", contentOf(folder + "/Jobs.log"));
    return 0;
}

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    if (argc == 3 && QByteArray(argv[1]) == "--terminate-on-full-disk")
        return terminateOnFullDisk(QFile::decodeName(argv[2]));
    TestSessionEnd t;
    QTEST_SET_MAIN_SOURCE_PATH
    return QTest::qExec(&t, argc, argv);
}
#include "tst_sessionend.moc"
