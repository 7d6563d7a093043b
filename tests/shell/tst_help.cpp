// "Help..." and "About": the help file opened beside the program with its error messages (the
// simulated opener for the whole table, the desktop's real opener for a missing file and for a
// type without a viewer), the compiled help file holding every page, and one Info window however
// often it is opened.
#include "support/windowfixture.h"
#include "platform/linux/desktopopener.h"
#include "shell/aboutwindow.h"
#include "shell/help.h"

#include <QAction>
#include <QApplication>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QProcess>
#include <QPushButton>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

#include <optional>

using namespace velmora;
using platform::MsgButtons;
using test::WindowFixture;

namespace {

QByteArray readFile(const QString& path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

QList<shell::AboutWindow*> aboutWindows()
{
    QList<shell::AboutWindow*> out;
    for (QWidget* w : QApplication::topLevelWidgets()) {
        if (auto* about = qobject_cast<shell::AboutWindow*>(w))
            out << about;
    }
    return out;
}

// The desktop's association database pointed at empty folders of the test's own: no viewer
// is known for any type. The environment is put back as it was when it goes.
class DesktopWithoutViewers {
public:
    DesktopWithoutViewers()
    {
        for (const char* name : {"XDG_DATA_HOME", "XDG_DATA_DIRS", "XDG_CONFIG_HOME", "XDG_CONFIG_DIRS",
                                 "XDG_CURRENT_DESKTOP", "DESKTOP_SESSION", "BROWSER"}) {
            saved_.insert(name, qEnvironmentVariableIsSet(name) ? std::optional(qgetenv(name)) : std::nullopt);
            qunsetenv(name);
            if (QByteArray(name).startsWith("XDG_") && !QByteArray(name).endsWith("DESKTOP")) {
                QDir().mkpath(dir.filePath(name));
                qputenv(name, QFile::encodeName(dir.filePath(name)));
            }
        }
    }
    ~DesktopWithoutViewers()
    {
        for (auto it = saved_.cbegin(); it != saved_.cend(); ++it)
            it.value() ? qputenv(it.key(), *it.value()) : qunsetenv(it.key());
    }
    QTemporaryDir dir;

private:
    QHash<const char*, std::optional<QByteArray>> saved_;
};

} // namespace

class TestHelp : public QObject {
    Q_OBJECT
private slots:
    void helpOpensTheFileBesideTheProgramAndShowsItsErrors_data()
    {
        QTest::addColumn<int>("result");
        QTest::addColumn<QString>("message");
        QTest::newRow("33 is success") << 33 << QString();
        QTest::newRow("2") << 2 << "File not found!";
        QTest::newRow("11") << 11 << "Currupt File!                        ";
        QTest::newRow("31") << 31 << "No Application for file extention!";
        QTest::newRow("not in the table") << 4 << "";
    }

    void helpOpensTheFileBesideTheProgramAndShowsItsErrors()
    {
        QFETCH(int, result);
        QFETCH(QString, message);
        WindowFixture f;
        auto& w = f.start();
        f.sim.opener.script(result);
        w.mnuhelp->trigger();

        QCOMPARE(f.sim.opener.opened.size(), 1);
        QCOMPARE(f.sim.opener.opened.first().file, f.dir.filePath("velmorahelp.chm"));
        QCOMPARE(f.sim.opener.opened.first().parameters, QString());
        if (result > 32) {
            QVERIFY(f.sim.boxes.shown.isEmpty());
            return;
        }
        QCOMPARE(f.sim.boxes.texts(), QStringList{message});
        QCOMPARE(f.sim.boxes.shown.first().buttons, MsgButtons::Ok);
    }

    void theDesktopOpenerReportsAMissingFileAndAMissingViewer()
    {
        WindowFixture f;
        platform::DesktopOpener opener;
        opener.launcher_wait_ms = 5000;
        platform::Platform p = f.sim.platform();
        p.opener = &opener;
        shell::InfoCommands info(p, nullptr);
        QList<int> results;
        connect(&info, &shell::InfoCommands::helpOpened, this, [&](int r) { results << r; });

        info.openHelp();
        QTRY_COMPARE(results.size(), 1);
        QCOMPARE(f.sim.boxes.texts(), QStringList{"File not found!"});

        if (QStandardPaths::findExecutable(QStringLiteral("gio")).isEmpty() &&
            QStandardPaths::findExecutable(QStringLiteral("xdg-open")).isEmpty())
            QSKIP("neither gio nor xdg-open is installed to look for a viewer");
        DesktopWithoutViewers desktop;
        QFile help(info.helpFile());
        QVERIFY(help.open(QIODevice::WriteOnly));
        help.write("ITSF");
        help.close();
        info.openHelp();
        QTRY_COMPARE_WITH_TIMEOUT(results.size(), 2, 15000);
        QCOMPARE(f.sim.boxes.texts(), (QStringList{"File not found!", "No Application for file extention!"}));
    }

    void theCompiledHelpFileHoldsEveryPage()
    {
        const QString source = qEnvironmentVariable("VELMORA_SOURCE_DIR") + QStringLiteral("/help");
        const QString compiled = qEnvironmentVariable("VELMORA_BINARY_DIR") + QStringLiteral("/velmorahelp.chm");
        QVERIFY(QDir(source).exists());
        if (!QFile::exists(compiled))
            QSKIP("velmorahelp.chm was not built: chmcmd (Debian package fp-utils) was missing at build time");
        const QString extract = QStandardPaths::findExecutable(QStringLiteral("extract_chmLib"));
        if (extract.isEmpty())
            QSKIP("extract_chmLib (Debian package libchm-bin) is not installed to read the help file");

        QTemporaryDir out;
        QProcess p;
        p.start(extract, {compiled, out.path()});
        QVERIFY(p.waitForFinished(30000));
        QCOMPARE(p.exitCode(), 0);

        const QStringList pages = QDir(source).entryList({"*.html"}, QDir::Files, QDir::Name);
        QVERIFY(pages.size() >= 13);
        const QByteArray contents = readFile(out.filePath("contents.hhc"));
        QVERIFY(!contents.isEmpty());
        for (const QString& page : pages + QStringList{"style.css"}) {
            QVERIFY2(QFile::exists(out.filePath(page)), qPrintable(page + " is missing from the help file"));
            QCOMPARE(readFile(out.filePath(page)), readFile(QDir(source).filePath(page)));
            if (page.endsWith(".html"))
                QVERIFY2(contents.contains("\"" + page.toUtf8() + "\""), qPrintable(page + " is not in the contents"));
        }
        // Every link between the pages, and every entry of the contents and of the index, leads
        // to a page of the file.
        QVERIFY(!readFile(out.filePath("index.hhk")).isEmpty());
        static const QRegularExpression link(QStringLiteral("(?:href|name=\"Local\" value)=\"([^\"#]+)\""));
        for (const QString& page : pages + QStringList{"contents.hhc", "index.hhk"}) {
            const QString html = QString::fromUtf8(readFile(out.filePath(page)));
            for (auto it = link.globalMatch(html); it.hasNext();) {
                const QString target = it.next().captured(1);
                QVERIFY2(QFile::exists(out.filePath(target)), qPrintable(page + " links to " + target));
            }
        }
    }

    void aboutAndTrayInfoShowOneInfoWindowThatOkReleases()
    {
        WindowFixture f;
        auto& w = f.start();
        QVERIFY(aboutWindows().isEmpty());
        w.mnuAbout->trigger();
        w.mnuAbout->trigger();
        w.mnuTrayinfo->trigger();
        QCOMPARE(aboutWindows().size(), 1);
        shell::AboutWindow* about = aboutWindows().first();
        QCOMPARE(f.program->info->aboutWindow(), about);
        QVERIFY(about->isVisible());

        QPointer<shell::AboutWindow> released(about);
        about->Command3->click();
        QTRY_VERIFY(released.isNull());
        QVERIFY(!f.program->info->aboutWindow());

        w.mnuTrayinfo->trigger();
        QCOMPARE(aboutWindows().size(), 1);
        QVERIFY(aboutWindows().first()->isVisible());
    }
};

QTEST_MAIN(TestHelp)
#include "tst_help.moc"
