// The service side against a real D-Bus daemon with a mocked systemd whose jobs take their
// time: a start and a stop return at once, Timer1 shows the pending states with their icons
// until the unit has arrived, and a start job that fails is told once.
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

const char* kUnits = R"([
 {"name": "slow.service", "description": "Takes its time", "state": "inactive", "start_ms": 1500, "stop_ms": 1500},
 {"name": "broken.service", "description": "Fails to start", "state": "inactive", "start_ms": 1500,
  "start_result": "failed"},
 {"name": "spool.service", "description": "Print spool", "state": "active"},
 {"name": "spool-cleaner.service", "description": "Spool cleaner", "state": "active", "part_of": ["spool.service"]}
])";

struct Bench : test::SystemdFixture {
    Bench() : SystemdFixture(QString::fromUtf8(kUnits))
    {
        if (!error.isEmpty())
            return;
        start({"TESTHOST"});
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
        f.sim.clock.advance(100); // Timer2 enables the commands for the state shown
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
        if (const QString missing = testsupport::mockBusMissing(); !missing.isEmpty())
            QSKIP(qPrintable(missing));
        Bench b;
        QVERIFY2(b.error.isEmpty(), qPrintable(b.error));
        b.select("Takes its time");
        QCOMPARE(b.sc().Text4->text(), QStringLiteral("Stopped"));
        b.sc().Command1->click();
        QVERIFY(b.sc().Timer1->isEnabled());
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
        QCOMPARE(b.f.sim.boxes.texts(), QStringList{"Are you sure you want to stop the  slow.service  Service  on "
                                                    "Computer  TESTHOST ?        "});
    }

    void aStartJobThatFailsIsToldOnce()
    {
        if (const QString missing = testsupport::mockBusMissing(); !missing.isEmpty())
            QSKIP(qPrintable(missing));
        Bench b;
        QVERIFY2(b.error.isEmpty(), qPrintable(b.error));
        b.select("Fails to start");
        b.sc().Command1->click();
        b.tickAfter(0);
        QCOMPARE(b.sc().Text4->text(), QStringLiteral("Being Started"));
        QVERIFY(b.f.sim.boxes.shown.isEmpty());
        QVERIFY(b.tickUntil("Stopped"));
        QCOMPARE(b.f.sim.boxes.texts(), QStringList{"Error - 1064"});
        b.tickAfter(0);
        QCOMPARE(b.f.sim.boxes.shown.size(), 1);
    }

    void aPartOfUnitIsListedAndHoldsTheStop()
    {
        if (const QString missing = testsupport::mockBusMissing(); !missing.isEmpty())
            QSKIP(qPrintable(missing));
        Bench b;
        QVERIFY2(b.error.isEmpty(), qPrintable(b.error));
        b.select("Print spool");
        QCOMPARE(b.sc().List2->count(), 1);
        QCOMPARE(b.sc().List2->item(0)->text(), QStringLiteral("Spool cleaner"));
        b.sc().Command5->click();
        QCOMPARE(b.f.sim.boxes.texts().last(),
                 QStringLiteral("Dependent Services are running ! Dependent Services must be stopped first !"));
    }
};

QTEST_MAIN(TestControlSystemd)
#include "tst_controlsystemd.moc"
