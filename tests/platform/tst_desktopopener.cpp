// Opening files with the desktop's application: the result codes for missing and unreadable
// files, a type with no application, a type with one (a real launch through the association
// database of a home folder of the test's own), and program files.
#include "platform/linux/desktopopener.h"

#include <QDir>
#include <QFile>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

#include <unistd.h>

using velmora::platform::DesktopOpener;

namespace {

void writeFile(const QString& path, const QByteArray& bytes, bool executable = false)
{
    QVERIFY(QDir().mkpath(QFileInfo(path).absolutePath()));
    QFile f(path);
    QVERIFY(f.open(QIODevice::WriteOnly | QIODevice::Truncate));
    QCOMPARE(f.write(bytes), bytes.size());
    f.close();
    if (executable)
        QVERIFY(f.setPermissions(f.permissions() | QFile::ExeOwner | QFile::ExeUser));
}

QByteArray readFile(const QString& path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

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
            saved_.append({name, qgetenv(name), qEnvironmentVariableIsSet(name)});
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
        for (const auto& s : saved_) {
            if (s.set)
                qputenv(s.name, s.value);
            else
                qunsetenv(s.name);
        }
    }
    // Registers a viewer for text files that writes the path it was given to marker.
    void addTextViewer(const QString& marker)
    {
        const QString script = dir.filePath("viewer.sh");
        writeFile(script, "#!/bin/sh\nprintf '%s' \"$1\" > '" + QFile::encodeName(marker) + "'\n", true);
        writeFile(dir.filePath("data/applications/velmora-test-viewer.desktop"),
                  "[Desktop Entry]\nType=Application\nName=Test Viewer\nExec=" + QFile::encodeName(script) +
                      " %f\nMimeType=text/plain;text/x-log;\n");
        writeFile(dir.filePath("config/mimeapps.list"),
                  "[Default Applications]\ntext/plain=velmora-test-viewer.desktop\n"
                  "text/x-log=velmora-test-viewer.desktop\n");
    }
    QTemporaryDir dir;

private:
    struct Saved {
        const char* name;
        QByteArray value;
        bool set;
    };
    QList<Saved> saved_;
};

} // namespace

class TestDesktopOpener : public QObject {
    Q_OBJECT
private slots:
    void missingFilesAndFolders()
    {
        QTemporaryDir dir;
        DesktopOpener opener;
        QCOMPARE(opener.open(QString()), 2);
        QCOMPARE(opener.open(dir.filePath("Jobs.log")), 2);
        QCOMPARE(opener.open(dir.filePath("gone/Jobs.log")), 3);
    }

    void anUnreadableFileIsAccessDenied()
    {
        if (::geteuid() == 0)
            QSKIP("root reads every file");
        QTemporaryDir dir;
        const QString file = dir.filePath("Jobs.log");
        writeFile(file, "x\r\n");
        QVERIFY(QFile::setPermissions(file, QFileDevice::WriteOwner));
        QCOMPARE(DesktopOpener().open(file), 5);
    }

    void aTypeWithoutAnApplicationIsReported()
    {
        if (!haveLauncher())
            QSKIP("neither gio nor xdg-open is installed");
        IsolatedDesktop desktop;
        const QString file = desktop.dir.filePath("Jobs.log");
        writeFile(file, "16.11.26 20:50:14\tSRV01\tSpooler\tStopped\r\n");
        QCOMPARE(DesktopOpener().open(file), 31);
    }

    void theAssociatedApplicationGetsTheFile()
    {
        if (!haveLauncher())
            QSKIP("neither gio nor xdg-open is installed");
        IsolatedDesktop desktop;
        const QString marker = desktop.dir.filePath("opened");
        desktop.addTextViewer(marker);
        const QString file = desktop.dir.filePath("Jobs.log");
        writeFile(file, "16.11.26 20:50:14\tSRV01\tSpooler\tStopped\r\n");
        QVERIFY(DesktopOpener().open(file) > 32);
        // The viewer runs on its own; wait for it to have written what it got.
        QTRY_COMPARE_WITH_TIMEOUT(readFile(marker), QFile::encodeName(file), 20000);
    }

    void aProgramFileIsStartedWithItsParameters()
    {
        QTemporaryDir dir;
        const QString marker = dir.filePath("ran");
        const QString program = dir.filePath("tool.sh");
        writeFile(program, "#!/bin/sh\nprintf '%s|%s|%s' \"$1\" \"$2\" \"$(pwd)\" > '" + QFile::encodeName(marker) + "'\n",
                  true);
        QVERIFY(DesktopOpener().open(program, QStringLiteral("-x \"two words\"")) > 32);
        QTRY_COMPARE_WITH_TIMEOUT(readFile(marker), "-x|two words|" + QFile::encodeName(dir.path()), 20000);
    }
};

QTEST_MAIN(TestDesktopOpener)
#include "tst_desktopopener.moc"
