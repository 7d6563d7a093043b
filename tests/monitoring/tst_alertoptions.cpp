// The alert options end to end: Debian's own systemd as a user manager with journald in its
// namespace, the program's real journal reader and SMTP client, aiosmtpd as the mail sink, and
// the tests' notification server on a private session bus. A unit that crashes when it starts
// (Restart= off) is the failing service; a flag file lets it run.
#include "../actions/mailservers.h"
#include "joblog/alertwindow.h"
#include "joblog/logandalerts.h"
#include "monitoring/checkcycle.h"
#include "report/reportwindow.h"
#include "shell/journalwindow.h"
#include "platform/linux/dbusnotifier.h"
#include "platform/linux/qttcpsocket.h"
#include "platform/linux/systemdjournal.h"
#include "support/notificationrecorder.h"
#include "support/systemdfixture.h"

#include <QJsonArray>
#include <QPlainTextEdit>
#include <QProcess>
#include <QTest>
#include <QTreeView>
#include <QTreeWidget>

using namespace velmora;

namespace {

namespace unit = testsupport::unit;

// Says why on its standard output, then runs only while the flag file exists.
QString crashy(const QString& flag)
{
    return unit::service("Crashes without its flag",
                         QStringLiteral("ExecStart=/bin/sh -c 'test -e %1 && exec sleep infinity; "
                                        "echo \"crashy: no flag, giving up\"; exit 3'")
                             .arg(flag));
}

QStringList subjects(const test::SmtpSink& sink)
{
    QStringList out;
    for (const QJsonObject& r : sink.records()) {
        const QString data = r.value("data").toString();
        const qsizetype at = data.indexOf("Subject: ");
        out << data.mid(at + 9, data.indexOf("\r\n", at) - at - 9);
    }
    return out;
}

} // namespace

class TestAlertOptions : public QObject {
    Q_OBJECT
    QTemporaryDir dir_;
    QString flag() const { return dir_.filePath("flag"); }

    struct World {
        test::SmtpSink sink;
        testsupport::NotificationRecorder recorder;
        platform::QtTcpNetwork tcp;
        std::unique_ptr<platform::SystemdJournal> journal;
        std::unique_ptr<platform::DBusNotifier> notifier;
        std::unique_ptr<test::SystemdFixture> s;
        QString missing;
        ~World()
        {
            s.reset();
            notifier.reset();
            recorder.stop();
        }
    };

    // The world with the options and the record's actions; missing says why it cannot run.
    void build(World& w, const QStringList& options, const QString& actions)
    {
        if (w.missing = testsupport::RealSystemd::missing(); !w.missing.isEmpty())
            return;
        if (!QFile::exists(testsupport::RealSystemd::kJournald)) {
            w.missing = "systemd-journald is not installed (package systemd)";
            return;
        }
        if (!w.sink.start()) {
            w.missing = "aiosmtpd (python3-aiosmtpd) is not available";
            return;
        }
        if (w.missing = w.recorder.start(); !w.missing.isEmpty())
            return;
        w.s = std::make_unique<test::SystemdFixture>(QMap<QString, QString>{{"crashy.service", crashy(flag())}},
                                                     QStringList{}, true);
        QVERIFY2(w.s->error.isEmpty(), qPrintable(w.s->error));
        platform::SystemdJournal::Options o;
        o.directory = w.s->manager.journalFolder();
        o.localName = "testhost";
        w.journal = std::make_unique<platform::SystemdJournal>(o);
        w.notifier = std::make_unique<platform::DBusNotifier>(w.recorder.connection("velmora"));
        w.s->tcp = &w.tcp;
        w.s->journal = w.journal.get();
        w.s->notifier = w.notifier.get();
        auto& f = w.s->f;
        f.writeFile("Computers", {"TESTHOST"});
        f.writeFile("TESTHOST", {"Crashy;crashy.service;" + actions + ";;;;", "[Properties:]", "[EOF]"});
        f.writeFile("Interval", {"1"});
        f.writeFile("SMTPServer", {"127.0.0.1", QString::number(w.sink.port()), "alerts@corp.test"});
        f.writeFile("AlertOptions", options);
        QCOMPARE(w.s->manager.systemctl({"start", "crashy.service"}), 0);
        QVERIFY(w.s->manager.waitFor("crashy.service", "failed"));
        // journald takes the unit's last words in its own time.
        QTRY_VERIFY_WITH_TIMEOUT(!w.journal->lastLines("testhost", "crashy", 1).lines.isEmpty(), 60000);
        w.s->start({"TESTHOST\tmonitored"});
    }

    // The scan under way to its end, restart waits included (their time is the test's clock,
    // moved slowly enough for a mail to reach the sink on loopback before its time-out).
    static void finish(test::SystemdFixture& s)
    {
        auto* cycle = s.f.program->checkcycle;
        for (int i = 0; i < 600 && cycle->scanRunning(); ++i) {
            QTest::qWait(200);
            s.f.sim.clock.advance(1000);
        }
        QVERIFY(!cycle->scanRunning());
    }
    // The next timed scan, to its end.
    static void scan(test::SystemdFixture& s)
    {
        finish(s);
        s.f.sim.clock.advance(60000);
        finish(s);
    }

private slots:
    // One mail with the unit's real journal lines (also in "Show Journal..."), a reminder two
    // scans later and none once the failure is acknowledged, one recovery mail, one alert row
    // marked recovered; notices for the failure and the recovery, and a click leads to the
    // service. Journal and acknowledgement are asked for in the alert window's menu or the
    // report's.
    void aFailureMailsOnceRemindsAndRecovers_data()
    {
        QTest::addColumn<bool>("inReport");
        QTest::newRow("alert window") << false;
        QTest::newRow("report") << true;
    }
    void aFailureMailsOnceRemindsAndRecovers()
    {
        QFETCH(bool, inReport);
        QFile::remove(flag());
        World w;
        build(w, {"Once=True", "RemindScans=2", "Journal=True", "Notify=True"}, "Send Email to: ops@corp.test");
        if (!w.missing.isEmpty())
            QSKIP(qPrintable(w.missing));
        QTRY_COMPARE(w.sink.records().size(), 1);
        QProcess journalctl;
        journalctl.start("journalctl", {"--directory=" + w.s->manager.journalFolder(), "--user-unit", "crashy.service", "-n",
                                        "20", "-o", "short-iso", "--no-pager"});
        QVERIFY(journalctl.waitForFinished(30000));
        const QString lines = QString::fromUtf8(journalctl.readAllStandardOutput()).trimmed();
        QVERIFY2(lines.contains("crashy: no flag, giving up"), qPrintable(lines));
        QVERIFY(w.sink.records()[0].value("data").toString().contains(QString(lines).replace('\n', "\r\n")));

        auto& s = *w.s;
        for (int n = 0; n < 3; ++n)
            scan(s);
        QTRY_COMPARE(w.sink.records().size(), 2); // the reminder, two scans after the alert
        // The first row's item of the alert window's menu, or of the report's.
        const auto choose = [&](QAction* joblog::AlertWindow::*alertItem, QAction* report::ReportWindow::*reportItem) {
            if (!inReport) {
                joblog::AlertWindow* a = s.f.program->logandalerts->alertwindow();
                a->ListView1->setCurrentItem(a->ListView1->topLevelItem(0));
                a->listRightButton({});
                a->mnuf4context->hide();
                QVERIFY((a->*alertItem)->isVisible() && (a->*alertItem)->isEnabled());
                (a->*alertItem)->trigger();
                return;
            }
            report::ReportWindow* r = s.f.program->reportWindow();
            QTRY_VERIFY(r->rows().count() > 0);
            r->ListView1->setCurrentIndex(r->ListView1->model()->index(0, 0));
            QVERIFY((r->*reportItem)->isVisible());
            (r->*reportItem)->trigger();
        };
        choose(&joblog::AlertWindow::mnuf4journal, &report::ReportWindow::mnujournal);
        auto* shown = s.f.window->findChild<shell::JournalWindow*>();
        QVERIFY(shown && shown->isVisible());
        QTRY_COMPARE(shown->Text1->toPlainText(), lines);
        choose(&joblog::AlertWindow::mnuf4acknowledge, &report::ReportWindow::mnuaknowledge);
        for (int n = 0; n < 2; ++n)
            scan(s);
        QCOMPARE(w.sink.records().size(), 2); // acknowledged: no more reminders

        QFile(flag()).open(QIODevice::WriteOnly);
        QCOMPARE(s.manager.systemctl({"start", "crashy.service"}), 0);
        QVERIFY(s.manager.waitFor("crashy.service", "active"));
        scan(s);
        QTRY_COMPARE(w.sink.records().size(), 3);
        scan(s);
        QCOMPARE(subjects(w.sink), (QStringList{"Service Status TESTHOST crashy.service Stopped",
                                                "Service Status TESTHOST crashy.service Stopped",
                                                "Service Status TESTHOST crashy.service Running"}));
        QVERIFY(!w.sink.records()[2].value("data").toString().contains("crashy: no flag"));
        const QStringList log = s.f.logLines();
        QCOMPARE(log.filter(QRegularExpression("^TESTHOST\tService crashy.service recovered after \\d+ min down$")).size(), 1);
        const joblog::AlertRows& rows = s.f.program->logandalerts->rows();
        QCOMPARE(rows.count(), 1);
        QVERIFY(rows.at(0).recovered && rows.at(0).state.startsWith("Stopped - Recovered after "));

        QTRY_COMPARE(w.recorder.shown.size(), 2);
        QCOMPARE(w.recorder.shown[0].summary, QString("crashy.service on TESTHOST is Stopped"));
        QCOMPARE(w.recorder.shown[1].summary, QString("crashy.service on TESTHOST recovered"));
        QVERIFY(s.f.program->panel.service().isEmpty());
        QVERIFY(w.recorder.click(1));
        QTRY_COMPARE(s.f.program->panel.service(), QString("crashy.service"));
    }

    // A crash-looping unit with a restart action is restarted twice and then left, with one
    // alert.
    void aCrashLoopIsRestartedNTimesThenLeft()
    {
        QFile::remove(flag());
        World w;
        build(w, {"RestartLimit=2", "RestartScans=5"}, "Restart Service");
        if (!w.missing.isEmpty())
            QSKIP(qPrintable(w.missing));
        auto& s = *w.s;
        for (int n = 0; n < 4; ++n) {
            QVERIFY(s.manager.waitFor("crashy.service", "failed"));
            scan(s);
        }
        const QStringList log = s.f.logLines();
        QCOMPARE(log.filter("Attemp to restart service : crashy.service Successfull").size(), 2);
        QCOMPARE(log.filter("TESTHOST\tcrashy.service\trestarted 2 times in 5 scans; restarts stopped").size(), 1);
    }

    // The service manager stops answering: one alert for the server, no mail per service, and
    // a recovery notice when it answers again.
    void aServerThatStopsAnsweringIsOneFailure()
    {
        World w;
        build(w, {"Once=True", "ServerDown=True", "ServerDownMail=oncall@corp.test", "Notify=True"},
              "Send Email to: ops@corp.test");
        if (!w.missing.isEmpty())
            QSKIP(qPrintable(w.missing));
        QTRY_COMPARE(w.sink.records().size(), 1);
        auto& s = *w.s;
        s.manager.stopBus();
        scan(s);
        QTRY_COMPARE(w.sink.records().size(), 2);
        scan(s);
        QCOMPARE(w.sink.records()[1].value("rcpt_tos").toArray().toVariantList(), QVariantList{"oncall@corp.test"});
        QCOMPARE(s.manager.systemctl({"start", "dbus.socket"}), 0);
        scan(s);
        QTRY_COMPARE(w.sink.records().size(), 3);
        scan(s);
        QCOMPARE(subjects(w.sink).mid(1), (QStringList{"Service Status TESTHOST  Server not available",
                                                       "Service Status TESTHOST  available again"}));
        QCOMPARE(s.f.logLines().filter(QRegularExpression("^TESTHOST\tServer answers again after")).size(), 1);
        QTRY_COMPARE(w.recorder.shown.size(), 3);
        QCOMPARE(w.recorder.shown[1].summary, QString("TESTHOST is not available"));
        QCOMPARE(w.recorder.shown[2].summary, QString("TESTHOST answers again"));
    }
};

QTEST_MAIN(TestAlertOptions)
#include "tst_alertoptions.moc"
