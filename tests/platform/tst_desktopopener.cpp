// Opening files with the desktop's application: the result codes for missing and unreadable
// files, a type with no application, a type with one (a real launch through the association
// database of a home folder of the test's own), and program files. Then opening from a worker
// thread of the real thread-pool worker: a launcher that takes its time holds up neither the
// user-interface thread's event loop nor the answer's way back to it.
#include "platform/linux/desktopopener.h"
#include "platform/linux/linuxplatform.h"
#include "support/bytefiles.h"

#include <QDir>
#include <QFile>
#include <QPointer>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>
#include <QTimer>

#include <optional>
#include <unistd.h>

using velmora::platform::DesktopOpener;
using velmora::test::bytesOf;
using velmora::test::putBytes;

namespace {

bool haveLauncher()
{
    return !QStandardPaths::findExecutable(QStringLiteral("gio")).isEmpty() ||
           !QStandardPaths::findExecutable(QStringLiteral("xdg-open")).isEmpty();
}

// Points the desktop's association database at folders of the test's own: no application
// knows any type until the test registers one.
class IsolatedDesktop {
public:
    IsolatedDesktop()
    {
        for (const char* name : {"XDG_DATA_HOME", "XDG_DATA_DIRS", "XDG_CONFIG_HOME", "XDG_CONFIG_DIRS",
                                 "XDG_CURRENT_DESKTOP", "DESKTOP_SESSION", "BROWSER"}) {
            saved_.emplace_back(name, qEnvironmentVariableIsSet(name) ? std::optional(qgetenv(name)) : std::nullopt);
            qunsetenv(name);
        }
        qputenv("XDG_DATA_HOME", QFile::encodeName(dir.filePath("data")));
        qputenv("XDG_DATA_DIRS", QFile::encodeName(dir.filePath("systemdata")));
        qputenv("XDG_CONFIG_HOME", QFile::encodeName(dir.filePath("config")));
        qputenv("XDG_CONFIG_DIRS", QFile::encodeName(dir.filePath("systemconfig")));
        QDir().mkpath(dir.filePath("data/applications"));
        QDir().mkpath(dir.filePath("config"));
    }
    ~IsolatedDesktop()
    {
        for (const auto& [name, value] : saved_)
            value ? qputenv(name, *value) : qunsetenv(name);
    }
    // Registers a viewer for text files that writes the path it was given to marker.
    void addTextViewer(const QString& marker)
    {
        const QString script = dir.filePath("viewer.sh");
        putBytes(script, "#!/bin/sh\nprintf '%s' \"$1\" > '" + QFile::encodeName(marker) + "'\n", true);
        putBytes(dir.filePath("data/applications/velmora-test-viewer.desktop"),
                  "[Desktop Entry]\nType=Application\nName=Test Viewer\nExec=" + QFile::encodeName(script) +
                      " %f\nMimeType=text/plain;text/x-log;\n");
        putBytes(dir.filePath("config/mimeapps.list"),
                  "[Default Applications]\ntext/plain=velmora-test-viewer.desktop\n"
                  "text/x-log=velmora-test-viewer.desktop\n");
    }
    QTemporaryDir dir;

private:
    std::vector<std::pair<const char*, std::optional<QByteArray>>> saved_;
};

// Puts a fake "gio" first on PATH. It writes its process id and arguments to started, waits
// until the test creates release, then exits.
class SlowLauncher {
public:
    SlowLauncher()
    {
        savedPath_ = qgetenv("PATH");
        const QByteArray bin = QFile::encodeName(dir.filePath("bin"));
        putBytes(dir.filePath("bin/gio"),
                  "#!/bin/sh\nprintf '%s %s %s' \"$$\" \"$1\" \"$2\" > '" + QFile::encodeName(started()) +
                      "'\nwhile [ ! -e '" + QFile::encodeName(releaseFile()) + "' ]; do sleep 0.02; done\n",
                  true);
        qputenv("PATH", bin + ':' + savedPath_);
    }
    ~SlowLauncher()
    {
        release();
        qputenv("PATH", savedPath_);
    }
    QString started() const { return dir.filePath("started"); }
    QString releaseFile() const { return dir.filePath("release"); }
    void release() { putBytes(releaseFile(), "go"); }
    // The launcher's arguments once it runs, else empty.
    QString arguments() const { return QString::fromUtf8(bytesOf(started())).section(QLatin1Char(' '), 1); }
    QTemporaryDir dir;

private:
    QByteArray savedPath_;
};

} // namespace

class TestDesktopOpener : public QObject {
    Q_OBJECT
private slots:
    // What cannot be opened, each with its code: 2 no such file, 3 no such folder, 5 access
    // denied, 31 no application for the type.
    void whatCannotBeOpenedIsToldByItsCode_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<int>("code");
        QTest::newRow("missing file") << "Jobs.log" << 2;
        QTest::newRow("missing folder") << "gone/Jobs.log" << 3;
        QTest::newRow("unreadable file") << "unreadable" << 5;
        QTest::newRow("type without an application") << "Report.log" << 31;
    }
    void whatCannotBeOpenedIsToldByItsCode()
    {
        QFETCH(QString, name);
        QFETCH(int, code);
        IsolatedDesktop desktop;
        const QString path = desktop.dir.filePath(name);
        if (name == "unreadable") {
            if (::geteuid() == 0)
                QSKIP("needs an ordinary user: root reads every file");
            putBytes(path, "x\r\n");
            QVERIFY(QFile::setPermissions(path, QFileDevice::WriteOwner));
        } else if (name == "Report.log") {
            if (!haveLauncher())
                QSKIP("neither gio nor xdg-open is installed");
            putBytes(path, "16.11.2026 20:50:14\tSRV01\tSpooler\tStopped\r\n");
        }
        QCOMPARE(DesktopOpener().open(path), code);
    }

    // What can be opened reaches its program: a file its type's application, a program file
    // its parameters (started in its own folder), a bare name the program found on PATH.
    void whatCanBeOpenedGetsWhatItWasGiven_data()
    {
        QTest::addColumn<QString>("kind");
        QTest::newRow("file of a known type") << "file";
        QTest::newRow("program file") << "program";
        QTest::newRow("bare program name") << "bare";
    }
    void whatCanBeOpenedGetsWhatItWasGiven()
    {
        QFETCH(QString, kind);
        QTemporaryDir dir;
        const QString marker = dir.filePath("ran");
        const QString bin = dir.filePath("bin");
        QString target = dir.filePath("Jobs.log"), parameters;
        QByteArray expected = QFile::encodeName(target);
        // (Programs are told by the system's type database, which the isolated desktop hides.)
        std::optional<IsolatedDesktop> desktop;
        if (kind == "file") {
            if (!haveLauncher())
                QSKIP("neither gio nor xdg-open is installed");
            desktop.emplace().addTextViewer(marker);
            putBytes(target, "16.11.2026 20:50:14\tSRV01\tSpooler\tStopped\r\n");
        } else {
            putBytes(bin + "/velmora-test-tool",
                      "#!/bin/sh\nprintf '%s|%s|%s' \"$1\" \"$2\" \"$(pwd)\" > '" + QFile::encodeName(marker) + "'\n", true);
            target = kind == "bare" ? QStringLiteral("velmora-test-tool") : bin + "/velmora-test-tool";
            parameters = QStringLiteral("-x \"two words\"");
            expected = "-x|two words|" + (kind == "bare" ? QByteArray() : QFile::encodeName(bin));
        }
        const QByteArray savedPath = qgetenv("PATH");
        qputenv("PATH", QFile::encodeName(bin) + ':' + savedPath);
        const int code = DesktopOpener().open(target, parameters);
        qputenv("PATH", savedPath);
        QVERIFY2(code > 32, qPrintable(QString::number(code)));
        // The program runs on its own; wait for it to have written what it got.
        QTRY_VERIFY_WITH_TIMEOUT(bytesOf(marker).startsWith(expected) && !bytesOf(marker).isEmpty(), 20000);
    }

    // ---- from a worker thread ----

    // The launcher takes its time.
    void aSlowLauncherHoldsUpNeitherTheEventLoopNorTheAnswer()
    {
        SlowLauncher launcher;
        const QString file = launcher.dir.filePath("Jobs.log");
        putBytes(file, "x\r\n");
        velmora::platform::LinuxPlatform real;
        DesktopOpener opener;
        QObject context;
        int code = -1;
        QThread* openedOn = nullptr;
        QThread* answeredOn = nullptr;
        int ticks = 0; // turns of this thread's event loop
        QTimer timer;
        QObject::connect(&timer, &QTimer::timeout, [&ticks] { ++ticks; });
        timer.start(5);

        real.platform().worker->run(&context, [&]() -> std::function<void()> {
            openedOn = QThread::currentThread();
            const int result = opener.open(file);
            return [&, result] {
                answeredOn = QThread::currentThread();
                code = result;
            };
        });
        QTRY_COMPARE_WITH_TIMEOUT(launcher.arguments(), QStringLiteral("open ") + file, 20000);
        // The launcher runs and waits; meanwhile this thread's loop goes on turning.
        const int before = ticks;
        QTRY_VERIFY_WITH_TIMEOUT(ticks >= before + 5, 20000);
        QCOMPARE(code, -1);

        launcher.release();
        QTRY_VERIFY_WITH_TIMEOUT(code != -1, 20000);
        QVERIFY(code > 32);
        QVERIFY(openedOn != QThread::currentThread());
        QCOMPARE(answeredOn, QThread::currentThread());
    }
};

QTEST_MAIN(TestDesktopOpener)
#include "tst_desktopopener.moc"
