// The availability window as a user meets it: opened from the Log menu or from a row of the
// instant report, on a job log that the program itself went on writing.
#include "history/availabilitywindow.h"
#include "joblog/joblog.h"
#include "report/reportrows.h"
#include "report/reportwindow.h"
#include "support/windowfixture.h"

#include <QAction>
#include <QLabel>
#include <QPushButton>
#include <QTableView>
#include <QTest>

using namespace velmora;
using history::AvailabilityWindow;
namespace svcstate = platform::svcstate;

namespace {

// WEB1 watches nginx (stopped now, with an alert) and cron. The log already holds the two hours
// before the program starts at 08:00: nginx down from 06:30 to 07:00.
struct Web1 : test::WindowFixture {
    Web1()
    {
        writeFile("Computerlist", {"WEB1\tmonitored"});
        writeFile("Computers", {"WEB1"});
        writeFile("WEB1", {"Web;nginx.service;Alert;;;;;", "Jobs;cron.service;;;;;;"});
        writeFile("Interval", {"30"});
        sim.icmp.addComputer("WEB1", "10.4.0.1", 0);
        sim.services.addService("WEB1", {.name = "nginx.service", .state = svcstate::stopped});
        sim.services.addService("WEB1", {.name = "cron.service", .state = svcstate::running});
        QStringList log;
        for (int minute = 0; minute < 120; minute += 30) {
            const QDateTime at = sim.clock.now().addSecs((minute - 120) * 60);
            const bool down = minute == 30;
            log << joblog::checkLineText(at, "WEB1", "nginx.service", down ? "Stopped" : "Running");
            if (down)
                log << "Alert activated";
            log << joblog::checkLineText(at, "WEB1", "cron.service", "Running");
        }
        writeFile("Jobs.log", log);
    }
    AvailabilityWindow* availability() const { return window->findChild<AvailabilityWindow*>("Form12"); }
    // The texts of a list's rows, columns joined by "|".
    static QStringList rows(const QTableView* view, int columns)
    {
        QStringList out;
        for (int r = 0; r < view->model()->rowCount(); ++r) {
            QStringList cells;
            for (int c = 0; c < columns; ++c)
                cells << view->model()->index(r, c).data().toString();
            out << cells.join('|');
        }
        return out;
    }
};

} // namespace

class TestAvailabilityWindow : public QObject {
    Q_OBJECT

private slots:
    void logMenuShowsEveryServiceAndExportsTheOutages()
    {
        Web1 f;
        f.start(); // its first scan finds nginx stopped and logs it with its alert
        f.window->mnuavailability->trigger();
        AvailabilityWindow* a = f.availability();
        QVERIFY(a && a->isVisible());
        // The log is read once the window has drawn itself.
        QTRY_COMPARE(a->ListView1->model()->rowCount(), 2);
        // The least available service first.
        QCOMPARE(Web1::rows(a->ListView1, 5),
                 (QStringList{"WEB1|nginx.service|75.00 %|75.00 %|75.00 %", "WEB1|cron.service|100 %|100 %|100 %"}));
        QCOMPARE(Web1::rows(a->ListView2, 5),
                 (QStringList{"WEB1|nginx.service|02.03.2026 08:00:01||0 s",
                              "WEB1|nginx.service|02.03.2026 06:30:00|02.03.2026 07:00:00|30 min"}));

        f.sim.filedialogs.scriptSave(f.path("outages.csv"));
        QTest::mouseClick(a->Command1, Qt::LeftButton);
        QCOMPARE(f.readBytes("outages.csv"),
                 test::crlf({"Server,Service,Start,End,Down (s),Not checked (s),States,Actions,Note",
                             "WEB1,nginx.service,2026-03-02 08:00:01,,0,0,Stopped,Alert activated,still down",
                             "WEB1,nginx.service,2026-03-02 06:30:00,2026-03-02 07:00:00,1800,0,Stopped,"
                             "Alert activated,"}));

        // "Delele Logfile" empties the log: the window starts over with it.
        f.window->mnudeletelogfile->trigger();
        QCOMPARE(a->ListView1->model()->rowCount(), 0);
        QCOMPARE(a->ListView2->model()->rowCount(), 0);
        QVERIFY2(a->Label1->text().startsWith("0 lines"), qPrintable(a->Label1->text()));
    }

    void reportRowOpensItsServiceWithItsOutages()
    {
        Web1 f;
        f.start();
        f.program->showReport();
        report::ReportWindow* r = f.program->reportWindow();
        int row = -1;
        for (int i = 0; i < r->rows().count(); ++i)
            if (r->rows().at(i).texts[report::ServiceColumn] == "nginx.service")
                row = i;
        QVERIFY(row >= 0);
        r->selectRow(row);
        r->listRightButton({});
        r->mnucontext->hide();
        r->mnuavailability->trigger();

        AvailabilityWindow* a = f.availability();
        QVERIFY(a && a->isVisible());
        QTRY_VERIFY(a->ListView1->currentIndex().isValid());
        const QModelIndex current = a->ListView1->currentIndex();
        QCOMPARE(a->ListView1->model()->index(current.row(), 1).data().toString(), "nginx.service");
        QVERIFY(a->ListView1->selectionModel()->isRowSelected(current.row(), {}));
        QCOMPARE(a->Label2->text(), "<b>2 outages</b> of WEB1 / nginx.service in the shown time");
        // "All Services" lists the outages of every service again.
        QTest::mouseClick(a->Command4, Qt::LeftButton);
        QCOMPARE(a->selectedService(), -1);
    }
};

QTEST_MAIN(TestAvailabilityWindow)
#include "tst_availabilitywindow.moc"
