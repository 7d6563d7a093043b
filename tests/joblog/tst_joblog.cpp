// The job log: the exact bytes of its lines, appending without creating, the Show and Delele
// Logfile flows.
#include "joblog/joblog.h"
#include "platform/linux/disktextfiles.h"
#include "platform/sim/simplatform.h"

#include <QFile>
#include <QTemporaryDir>
#include <QTest>

using namespace velmora;
using joblog::JobLog;
using platform::MsgButtons;
using platform::sim::SimPlatform;
using platform::sim::SimTextFiles;

namespace {

const QLocale kGerman(QLocale::German, QLocale::Germany);
const QLocale kUs(QLocale::English, QLocale::UnitedStates);

QByteArray bytesOf(const QString& path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

void putBytes(const QString& path, const QByteArray& bytes)
{
    QFile f(path);
    QVERIFY(f.open(QIODevice::WriteOnly | QIODevice::Truncate));
    QCOMPARE(f.write(bytes), bytes.size());
}

// A data folder of the test's own with the simulated platform and a job log over it.
struct World {
    World()
    {
        sim.clock.setNow(QDateTime(QDate(2026, 11, 16), QTime(20, 50, 14)));
        log.setLocale(kGerman);
    }
    QString file(const QString& name = QStringLiteral("Jobs.log")) const { return dir.filePath(name); }

    QTemporaryDir dir;
    SimPlatform sim;
    core::FixedDataFolder folder{dir.path()};
    JobLog log{sim.platform(), folder};
};

} // namespace

class TestJobLog : public QObject {
    Q_OBJECT
private slots:
    // ---- line formats ----

    void checkServerAndActionLinesByteForByte()
    {
        World w;
        w.log.ensurejoblog();
        QVERIFY(w.log.checkline("SRV01", "Spooler", "Stopped"));
        QVERIFY(w.log.appendjobline("Alert activated"));
        QVERIFY(w.log.appendjobline("Program started: /usr/bin/true"));
        w.sim.clock.advance(61000);
        QVERIFY(w.log.checkline("SRV01", "Dhcp", "Open Service failed.   Error  1060"));
        QVERIFY(w.log.serverline("SRV02", joblog::kServerInMaintenance));
        QVERIFY(w.log.serverline("SRV03", joblog::kServerNotReachable));
        // Texts are written as they are, unescaped.
        QVERIFY(w.log.checkline("SRV01", "Odd\tName", "Stopped"));
        QVERIFY(w.log.appendjobline(QString()));
        QCOMPARE(bytesOf(w.file()),
                 QByteArray("16.11.2026 20:50:14\tSRV01\tSpooler\tStopped\r\n"
                            "Alert activated\r\n"
                            "Program started: /usr/bin/true\r\n"
                            "16.11.2026 20:51:15\tSRV01\tDhcp\tOpen Service failed.   Error  1060\r\n"
                            "16.11.2026 20:51:15\tSRV02\tServer is in Maintenance Mode\r\n"
                            "16.11.2026 20:51:15\tSRV03\tCould not reach Server, Server not available.\r\n"
                            "16.11.2026 20:51:15\tSRV01\tOdd\tName\tStopped\r\n\r\n"));
    }

    // The date is the same on every system, four-digit year and no blanks; the time follows
    // the regional format.
    void timestampsKeepTheDateAndFollowTheRegionalTime_data()
    {
        QTest::addColumn<QLocale>("locale");
        QTest::addColumn<QTime>("time");
        QTest::addColumn<QString>("line");
        QTest::newRow("german morning") << kGerman << QTime(8, 5, 9) << "02.03.2026 08:05:09\tS\tX\tRunning";
        QTest::newRow("us morning") << kUs << QTime(8, 5, 9) << "02.03.2026 8:05:09 AM\tS\tX\tRunning";
        QTest::newRow("us evening") << kUs << QTime(20, 50, 14) << "02.03.2026 8:50:14 PM\tS\tX\tRunning";
    }
    void timestampsKeepTheDateAndFollowTheRegionalTime()
    {
        QFETCH(QLocale, locale);
        QFETCH(QTime, time);
        QFETCH(QString, line);
        QCOMPARE(joblog::checkLineText(QDateTime(QDate(2026, 3, 2), time), "S", "X", "Running", locale), line);
    }

    // ---- append and ensure ----

    void appendNeverCreatesTheLogEnsureDoes()
    {
        World w;
        QVERIFY(!w.log.appendjobline("lost"));
        QVERIFY(!w.log.checkline("SRV01", "Spooler", "Stopped"));
        QVERIFY(!QFile::exists(w.file()));
        w.log.ensurejoblog();
        QVERIFY(QFile::exists(w.file()));
        QCOMPARE(bytesOf(w.file()), QByteArray());
        w.log.appendjobline("kept");
        w.log.ensurejoblog();
        QCOMPARE(bytesOf(w.file()), QByteArray("kept\r\n"));
        // Deleted while running: lines are lost until the log is ensured again.
        QVERIFY(QFile::remove(w.file()));
        QVERIFY(!w.log.appendjobline("lost"));
        QVERIFY(!QFile::exists(w.file()));
        w.log.ensurejoblog();
        QVERIFY(w.log.appendjobline("back"));
        QCOMPARE(bytesOf(w.file()), QByteArray("back\r\n"));
        QVERIFY(w.sim.boxes.shown.isEmpty());
    }

    // ---- Show Logfile ----

    // The log is opened under its real name; a result up to 32 is a failure shown in a box.
    void showOpensTheLogOrReportsAFailure_data()
    {
        QTest::addColumn<int>("code");
        QTest::addColumn<QStringList>("boxes");
        QTest::newRow("33 success") << 33 << QStringList{};
        const QList<std::pair<int, QString>> failures{
            {0, ""}, {2, "File not found!"}, {31, "No Application for file extention!"}, {32, "DLL not found!"}};
        for (const auto& [code, text] : failures)
            QTest::addRow("%d", code) << code << QStringList{text};
    }
    void showOpensTheLogOrReportsAFailure()
    {
        QFETCH(int, code);
        QFETCH(QStringList, boxes);
        World w;
        w.log.ensurejoblog();
        w.sim.opener.script(code);
        w.log.showlogfile();
        // The open may wait on the desktop's launcher: it goes through the worker.
        QCOMPARE(w.sim.worker.jobs, 1);
        QCOMPARE(w.sim.opener.opened.value(0).file, w.file());
        QCOMPARE(w.sim.boxes.texts(), boxes);
    }

    // ---- Delele Logfile ----

    void deleteAsksThenLeavesAnEmptyLog()
    {
        World w;
        w.log.deletelogfile(); // without a log: asked, nothing created
        QCOMPARE(w.sim.boxes.texts(), QStringList{"Are you sure you want to delete the logfile ?"});
        QCOMPARE(w.sim.boxes.shown[0].buttons, MsgButtons::OkCancel);
        QVERIFY(!QFile::exists(w.file()));

        putBytes(w.file(), "keep\r\n");
        w.sim.boxes.script(platform::MsgAnswer::Cancel);
        w.log.deletelogfile();
        QCOMPARE(bytesOf(w.file()), QByteArray("keep\r\n"));
        putBytes(w.file(), QByteArray(5000, 'x'));
        w.log.deletelogfile();
        QCOMPARE(w.sim.boxes.shown.size(), 3);
        QVERIFY(QFile::exists(w.file()));
        QCOMPARE(QFileInfo(w.file()).size(), 0);
        // One that cannot be deleted is kept, and the user told.
        putBytes(w.file(), "keep\r\n");
        w.sim.files.failOn(SimTextFiles::Op::Remove, "jobs.log");
        w.log.deletelogfile();
        QCOMPARE(bytesOf(w.file()), QByteArray("keep\r\n"));
        QCOMPARE(w.sim.boxes.shown.size(), 5);
        QVERIFY(!w.sim.boxes.shown[4].text.isEmpty());
    }
};

QTEST_MAIN(TestJobLog)
#include "tst_joblog.moc"
