// "Help...": the help file opened beside the program with its error messages (what the
// desktop's real opener answers is tried in tests/platform), and the compiled help file holding
// every page.
#include "support/bytefiles.h"
#include "support/windowfixture.h"

#include <QAction>
#include <QDir>
#include <QProcess>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

using namespace velmora;
using platform::MsgButtons;
using test::WindowFixture;

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

    void theCompiledHelpFileHoldsEveryPage()
    {
        const QString source = qEnvironmentVariable("VELMORA_SOURCE_DIR") + QStringLiteral("/help");
        const QString compiled = qEnvironmentVariable("VELMORA_BINARY_DIR") + QStringLiteral("/velmorahelp.chm");
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
        const QByteArray contents = test::bytesOf(out.filePath("contents.hhc"));
        QVERIFY(!contents.isEmpty());
        for (const QString& page : pages + QStringList{"style.css"}) {
            QVERIFY2(QFile::exists(out.filePath(page)), qPrintable(page + " is missing from the help file"));
            QCOMPARE(test::bytesOf(out.filePath(page)), test::bytesOf(QDir(source).filePath(page)));
            if (page.endsWith(".html"))
                QVERIFY2(contents.contains("\"" + page.toUtf8() + "\""), qPrintable(page + " is not in the contents"));
        }
        // Every link between the pages, and every entry of the contents and of the index, leads
        // to a page of the file.
        QVERIFY(!test::bytesOf(out.filePath("index.hhk")).isEmpty());
        static const QRegularExpression link(QStringLiteral("(?:href|name=\"Local\" value)=\"([^\"#]+)\""));
        for (const QString& page : pages + QStringList{"contents.hhc", "index.hhk"}) {
            const QString html = QString::fromUtf8(test::bytesOf(out.filePath(page)));
            for (auto it = link.globalMatch(html); it.hasNext();) {
                const QString target = it.next().captured(1);
                QVERIFY2(QFile::exists(out.filePath(target)), qPrintable(page + " links to " + target));
            }
        }
    }

};

QTEST_MAIN(TestHelp)
#include "tst_help.moc"
