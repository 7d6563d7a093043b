// The monitor against Debian's own systemd as a user manager on a private bus: a unit stopped
// from outside is found by the next scan, logged and restarted, and the scan after that finds it
// running again.
#include "joblog/alertwindow.h"
#include "joblog/logandalerts.h"
#include "monitoring/checkcycle.h"
#include "support/systemdfixture.h"

#include <QTest>
#include <QTreeWidget>

using namespace velmora;

namespace {

namespace unit = testsupport::unit;

const QMap<QString, QString> kUnits = {{"web.service", unit::running("Web server")},
                                       {"cron.service", unit::running("Regular background jobs")}};

} // namespace

class TestMonitorSystemd : public QObject {
    Q_OBJECT
private slots:
    void stoppedUnitIsAlertedAndRestarted()
    {
        if (const QString missing = testsupport::RealSystemd::missing(); !missing.isEmpty())
            QSKIP(qPrintable(missing));
        test::SystemdFixture s(kUnits, kUnits.keys());
        QVERIFY2(s.error.isEmpty(), qPrintable(s.error));
        auto& f = s.f;
        f.writeFile("Computers", {"TESTHOST"});
        f.writeFile("TESTHOST", {"Web server;web.service;Alert;Restart Service;;;;", "Jobs;cron.service;;;;;;",
                                 "[Properties:]", "[EOF]"});
        f.writeFile("Interval", {"1"});
        s.start({"TESTHOST\tmonitored"});
        QCOMPARE(f.logLines(), (QStringList{"TESTHOST\tweb.service\tRunning", "TESTHOST\tcron.service\tRunning"}));

        // Someone stops the web server.
        QCOMPARE(s.manager.systemctl({"stop", "web.service"}), 0);

        // What the alert window and the signal make of it is tried on the simulated fleet.
        f.sim.clock.advance(60000);
        QCOMPARE(f.logLines().mid(2), (QStringList{"TESTHOST\tweb.service\tStopped", "Alert activated"}));
        // The restart's five-second wait, then the rest of the scan.
        f.sim.clock.advance(5000);
        QCOMPARE(f.logLines().mid(4), (QStringList{"Attemp to restart service : web.service Successfull",
                                                         "TESTHOST\tcron.service\tRunning"}));
        QVERIFY(s.manager.waitFor("web.service", "active"));

        f.sim.clock.advance(55000);
        QCOMPARE(f.logLines().mid(6), (QStringList{"TESTHOST\tweb.service\tRunning", "TESTHOST\tcron.service\tRunning"}));
    }

    // Restarting one unit pulls up another that it requires: the scan reads the second unit
    // again after the restart and finds it running, so it is neither alerted nor restarted.
    void aRestartThatPullsUpADependencyIsSeenByTheRestOfTheScan()
    {
        if (const QString missing = testsupport::RealSystemd::missing(); !missing.isEmpty())
            QSKIP(qPrintable(missing));
        test::SystemdFixture s({{"app.service", unit::running("Application", "Requires=db.service\nAfter=db.service")},
                                {"db.service", unit::running("Database")}},
                               {});
        QVERIFY2(s.error.isEmpty(), qPrintable(s.error));
        auto& f = s.f;
        f.writeFile("Computers", {"TESTHOST"});
        f.writeFile("TESTHOST", {"Application;app.service;Restart Service;;;;", "Database;db.service;Restart Service;;;;",
                                 "[Properties:]", "[EOF]"});
        f.writeFile("Interval", {"30"});
        s.start({"TESTHOST\tmonitored"});
        QTRY_COMPARE(f.logLines(), QStringList{"TESTHOST\tapp.service\tStopped"});
        // The restart's wait, on the test's clock; the units come up in real time meanwhile.
        QVERIFY(s.manager.waitFor("db.service", "active"));
        f.sim.clock.advance(5000);
        QTRY_VERIFY(!f.program->checkcycle->scanRunning());
        QCOMPARE(f.logLines(), (QStringList{"TESTHOST\tapp.service\tStopped",
                                                  "Attemp to restart service : app.service Successfull",
                                                  "TESTHOST\tdb.service\tRunning"}));
        QCOMPARE(f.program->logandalerts->alertwindow()->ListView1->topLevelItemCount(), 1);
    }
};

QTEST_MAIN(TestMonitorSystemd)
#include "tst_monitorsystemd.moc"
