// The instant report against Debian's own systemd as a user manager on a private bus: the
// report lists the monitored units as systemd answers for them, and a unit stopped from outside
// shows up red in the next report scan.
#include "report/reportwindow.h"
#include "support/systemdfixture.h"

#include <QTest>

using namespace velmora;

namespace {

const QMap<QString, QString> kUnits = {{"web.service", testsupport::unit::running("Web server")},
                                       {"cron.service", testsupport::unit::running("Regular background jobs")}};

QStringList shown(const report::ReportRows& rows)
{
    QStringList out;
    for (int i = 0; i < rows.count(); ++i) {
        const report::ReportRow& r = rows.at(i);
        out << QStringList{r.texts[2], r.texts[3], r.texts[4], r.running ? "green" : "red"}.join('|');
    }
    return out;
}

} // namespace

class TestReportSystemd : public QObject {
    Q_OBJECT
private slots:
    void theReportListsWhatSystemdAnswers()
    {
        if (const QString missing = testsupport::RealSystemd::missing(); !missing.isEmpty())
            QSKIP(qPrintable(missing));
        test::SystemdFixture s(kUnits, kUnits.keys());
        QVERIFY2(s.error.isEmpty(), qPrintable(s.error));
        auto& f = s.f;
        f.writeFile("Computers", {"TESTHOST"});
        f.writeFile("TESTHOST", {"Web server;web.service;Alert;Restart Service;;;;", "Jobs;cron.service;;;;;;",
                                 "Missing;nosuch.service;;;;;;", "[Properties:]", "[EOF]"});
        f.writeFile("Interval", {"240"});
        s.start({"TESTHOST\tmonitored"});

        f.program->showReport();
        report::ReportWindow& r = *f.program->reportWindow();
        const QStringList first = shown(r.rows());
        QCOMPARE(first.mid(0, 2), (QStringList{"TESTHOST|web.service|Running|green", "TESTHOST|cron.service|Running|green"}));
        QCOMPARE(first.size(), 3);
        QVERIFY2(first[2].startsWith("TESTHOST|nosuch.service|Open Service failed. Error  ") && first[2].endsWith("|red"),
                 qPrintable(first[2]));

        // Someone stops the web server; the next report scan finds it.
        QCOMPARE(s.manager.systemctl({"stop", "web.service"}), 0);
        f.sim.clock.advance(5 * 60000);
        QCOMPARE(shown(r.rows()).mid(3, 2),
                 (QStringList{"TESTHOST|web.service|Stopped|red", "TESTHOST|cron.service|Running|green"}));
    }
};

QTEST_MAIN(TestReportSystemd)
#include "tst_reportsystemd.moc"
