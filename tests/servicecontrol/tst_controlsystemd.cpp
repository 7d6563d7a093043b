// The service side against Debian's own systemd as a user manager on a private bus, with units
// that take their time: a start and a stop return at once, Timer1 shows the pending states
// with their icons until the unit has arrived, and a start job that fails is told once.
#include "platform/icons.h"
#include "servicecontrol/servicecontrol.h"
#include "support/systemdfixture.h"

#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QTest>
#include <QTreeWidget>

using namespace velmora;

namespace {

namespace unit = testsupport::unit;

const QMap<QString, QString> kUnits = {
    {"slow.service", unit::slow("Takes its time", 2)},
    {"broken.service", unit::service("Fails to start", "Type=oneshot\nExecStart=/bin/sh -c 'sleep 2; exit 1'")},
    {"spool.service", unit::running("Print spool")},
    {"spool-cleaner.service", unit::running("Spool cleaner", "PartOf=spool.service")}};

// The program with this computer's services listed; with monitored, spool.service is
// monitored, its scan once a minute.
struct Bench : test::SystemdFixture {
    explicit Bench(bool monitored = false) : SystemdFixture(kUnits, {"spool.service", "spool-cleaner.service"})
    {
        if (!error.isEmpty())
            return;
        if (monitored) {
            f.writeFile("Computers", {"TESTHOST"});
            f.writeFile("TESTHOST", {"Print spool;spool.service;;;;;;", "[Properties:]", "[EOF]"});
            f.writeFile("Interval", {"1"});
        }
        start({monitored ? "TESTHOST\tmonitored" : "TESTHOST"});
        f.window->ListView2->setCurrentItem(f.window->findServer("TESTHOST"));
        f.window->selectServer();
        sc().Command2->click();
    }
    servicecontrol::ServiceControl& sc() { return *f.window->services; }
    void select(const QString& display)
    {
        const auto items = sc().ListView1->findItems(display, Qt::MatchExactly);
        QVERIFY(!items.isEmpty());
        sc().ListView1->setCurrentItem(items.first());
        sc().selectService();
        f.sim.clock.advance(100);
    }
    int icon() { return platform::itemIcon(sc().ListView1->currentItem()); }
    // One Timer1 tick after the real time given.
    void tickAfter(int ms)
    {
        QTest::qWait(ms);
        f.sim.clock.advance(1000);
    }
    // Timer1 ticks until the state shown is `state` (the job has ended), for at most 20 s.
    bool tickUntil(const QString& state)
    {
        for (int i = 0; i < 200 && sc().Text4->text() != state; ++i)
            tickAfter(100);
        return sc().Text4->text() == state;
    }
};

} // namespace

class TestControlSystemd : public QObject {
    Q_OBJECT
private slots:
    void startAndStopShowTheirPendingStates()
    {
        if (const QString missing = testsupport::RealSystemd::missing(); !missing.isEmpty())
            QSKIP(qPrintable(missing));
        Bench b;
        b.select("slow.service"); // not loaded: listed by its file name
        QCOMPARE(b.sc().Text4->text(), QStringLiteral("Stopped"));
        b.sc().Command1->click();
        b.tickAfter(0);
        QCOMPARE(b.sc().Text4->text(), QStringLiteral("Being Started"));
        QCOMPARE(b.icon(), 4);
        QVERIFY(b.tickUntil("Running"));
        QCOMPARE(b.icon(), 1);

        b.f.sim.clock.advance(100);
        b.sc().Command5->click(); // answered Yes by the simulated boxes
        b.tickAfter(0);
        QCOMPARE(b.sc().Text4->text(), QStringLiteral("In process of being stopped"));
        QCOMPARE(b.icon(), 5);
        QVERIFY(b.tickUntil("Stopped"));
        QCOMPARE(b.icon(), 2);
        QCOMPARE(b.f.sim.boxes.shown.size(), 1); // the question
    }

    void aStartJobThatFailsIsToldOnce()
    {
        if (const QString missing = testsupport::RealSystemd::missing(); !missing.isEmpty())
            QSKIP(qPrintable(missing));
        Bench b;
        b.select("broken.service");
        b.sc().Command1->click();
        b.tickAfter(0);
        QCOMPARE(b.sc().Text4->text(), QStringLiteral("Being Started"));
        QVERIFY(b.tickUntil("Stopped"));
        QCOMPARE(b.f.sim.boxes.texts(), QStringList{"Error - 1064"});
        b.tickAfter(0);
        QCOMPARE(b.f.sim.boxes.shown.size(), 1);
    }

    void aPartOfUnitIsListedAndHoldsTheStop()
    {
        if (const QString missing = testsupport::RealSystemd::missing(); !missing.isEmpty())
            QSKIP(qPrintable(missing));
        Bench b;
        b.select("Print spool");
        QCOMPARE(b.sc().List2->item(0)->text(), QStringLiteral("Spool cleaner"));
        b.sc().Command5->click();
        QVERIFY(b.f.sim.boxes.texts().last().startsWith("Dependent Services are running !"));
    }

    // The bus goes away: whatever meets it first, a check of the scan or the details of a
    // service, finds the manager out of reach, in one line or one box.
    void aBusThatDiedIsAManagerThatCannotBeOpened_data()
    {
        QTest::addColumn<bool>("checkFirst");
        QTest::newRow("a check first") << true;
        QTest::newRow("the details first") << false;
    }
    void aBusThatDiedIsAManagerThatCannotBeOpened()
    {
        if (const QString missing = testsupport::RealSystemd::missing(); !missing.isEmpty())
            QSKIP(qPrintable(missing));
        QFETCH(bool, checkFirst);
        Bench b(true);
        QCOMPARE(b.f.logLines(), QStringList{"TESTHOST\tspool.service\tRunning"});
        b.manager.stopBus();
        for (bool check : {checkFirst, !checkFirst}) {
            if (check) {
                b.f.sim.clock.advance(60000);
                QCOMPARE(b.f.logLines().last(), "TESTHOST\tspool.service\tOpen Service Manager failed.   Error  1722");
            } else {
                b.select("Print spool");
                QCOMPARE(b.f.sim.boxes.texts(), QStringList{"Open Service Manager failed.   Error  1722"});
            }
        }
    }
};

QTEST_MAIN(TestControlSystemd)
#include "tst_controlsystemd.moc"
