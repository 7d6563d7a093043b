#include "platform/sim/simplatform.h"
#include <QTest>

using namespace velmora::platform;

class TestSimClock : public QObject {
    Q_OBJECT
private slots:
    void timersFireInTimeOrderAndZeroIntervalNeverFires()
    {
        sim::SimClock clock;
        QObject owner;
        QStringList fired;
        Timer* fast = clock.createTimer(&owner, "fast", 250);
        Timer* slow = clock.createTimer(&owner, "slow", 1000);
        Timer* zero = clock.createTimer(&owner, "zero", 0);
        for (Timer* t : {fast, slow, zero}) {
            connect(t, &Timer::timeout, &owner, [&fired, t] { fired << t->objectName(); });
            t->setEnabled(true);
        }
        clock.singleShot(600, &owner, [&] { fired << "shot"; });
        const QDateTime start = clock.now();
        clock.advance(1000);
        QCOMPARE(fired, (QStringList{"fast", "fast", "shot", "fast", "fast", "slow"}));
        QCOMPARE(start.msecsTo(clock.now()), 1000);
        fast->setEnabled(false);
        fired.clear();
        clock.advance(1000);
        QCOMPARE(fired, QStringList{"slow"});
    }

    void singleShotIsDroppedWhenItsContextIsGone()
    {
        sim::SimClock clock;
        bool ran = false;
        {
            QObject context;
            clock.singleShot(10, &context, [&] { ran = true; });
        }
        clock.advance(20);
        QVERIFY(!ran);
    }
};

QTEST_MAIN(TestSimClock)
#include "tst_simclock.moc"
