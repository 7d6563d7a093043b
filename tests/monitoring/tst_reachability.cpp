// Ping batches handed over in parts: addresses apart from names, large parts in slices with the
// event loop running between them.
#include "monitoring/reachability.h"
#include "platform/sim/simplatform.h"

#include <QTest>
#include <QTimer>
#include <memory>

using namespace velmora;
using namespace velmora::monitoring;

class TestReachability : public QObject {
    Q_OBJECT
private slots:
    void addressesAndNamesComeInPartsOfTheirOwn()
    {
        platform::sim::SimPlatform sim;
        sim.icmp.addComputer("DC1", "10.1.0.1", 0);
        sim.icmp.addComputer("10.1.0.2", "10.1.0.2", 11010);
        Reachability reach(sim.icmp, sim.worker);
        QObject context;
        std::vector<std::vector<PingAnswer>> parts;
        int done = 0;
        reach.pingInParts({"10.1.0.2", "DC1", "NOWHERE", "10.1.0.1"}, &context,
                          [&](const std::vector<PingAnswer>& part) { parts.push_back(part); }, [&] { ++done; });
        QCOMPARE(done, 1);
        // "index address reachable" of each answer: the addresses come first, then the names.
        QStringList got;
        for (const auto& part : parts)
            for (const PingAnswer& a : part)
                got << QStringLiteral("%1 %2 %3").arg(a.index).arg(a.outcome.address).arg(a.outcome.reachable());
        QCOMPARE(parts.size(), size_t(2));
        QCOMPARE(parts[0].size(), size_t(2));
        QCOMPARE(got, (QStringList{"0 10.1.0.2 0", "3 10.1.0.1 1", "1 10.1.0.1 1", "2  0"}));
        QCOMPARE(parts[0][0].outcome.result, QStringLiteral("11010   [ ip req timed out ]"));

        // An empty batch is done at once.
        reach.pingInParts({}, &context, [&](const std::vector<PingAnswer>&) { QFAIL("a part of nothing"); },
                          [&] { ++done; });
        QCOMPARE(done, 2);
    }

    void aLargeBatchComesInSlicesWithTheEventLoopBetween()
    {
        platform::sim::SimPlatform sim;
        Reachability reach(sim.icmp, sim.worker);
        QStringList names;
        for (int i = 0; i < 2 * Reachability::sliceSize + 5; ++i)
            names << QStringLiteral("10.2.%1.%2").arg(i / 250).arg(i % 250 + 1);
        QObject context;
        std::vector<qsizetype> sizes;
        qsizetype next = 0;
        bool loopRan = false, loopRanBeforeLast = false, done = false;
        reach.pingInParts(
            names, &context,
            [&](const std::vector<PingAnswer>& part) {
                for (const PingAnswer& a : part)
                    QCOMPARE(a.index, next++);
                if (sizes.empty())
                    QTimer::singleShot(0, [&] { loopRan = true; });
                sizes.push_back(qsizetype(part.size()));
                loopRanBeforeLast = loopRan;
            },
            [&] { done = true; });
        QCOMPARE(sizes.size(), size_t(1)); // the first slice at once, the others later
        QVERIFY(!done);
        QTRY_VERIFY(done);
        QCOMPARE(sizes, (std::vector<qsizetype>{Reachability::sliceSize, Reachability::sliceSize, 5}));
        QVERIFY(loopRanBeforeLast);
    }

};

QTEST_MAIN(TestReachability)
#include "tst_reachability.moc"
