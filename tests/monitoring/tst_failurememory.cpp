// What the scans remember of failures, driven scan by scan through short scripts. Each letter
// of a script is one scan of one service (and its server) on DC1:
//   F found not running (its actions include a restart)   K acknowledged, then found not running
//   R found Running                                        D server down        U server answers
//   | the program ends and starts again: the state is saved and read back into a new memory
// and each letter of the expected outcome says what that scan ran:
//   A every action   r mail and message only   - nothing   S every action but the restart,
//   which has just been stopped   s the same, stopped earlier   V a recovery   . no recovery
//   N the server's failure is news (alerted)
#include "monitoring/failurememory.h"

#include <QTest>

using namespace velmora;
using monitoring::FailureMemory;

namespace {

core::AlertOptions options(const QString& settings)
{
    // "once remind=2 guard=2/3 down"
    core::AlertOptions o;
    for (const QString& word : settings.split(' ', Qt::SkipEmptyParts)) {
        if (word == "once")
            o.once = true;
        else if (word == "down")
            o.serverDown = true;
        else if (word.startsWith("remind="))
            o.remindScans = word.mid(7).toInt();
        else if (word.startsWith("guard=")) {
            o.restartLimit = word.mid(6).section('/', 0, 0).toInt();
            o.restartScans = word.mid(6).section('/', 1, 1).toInt();
        }
    }
    return o;
}

QChar outcome(const FailureMemory::Decision& d)
{
    using Runs = FailureMemory::Runs;
    using Restarts = FailureMemory::Restarts;
    if (d.restarts != Restarts::Run)
        return d.restarts == Restarts::JustStopped ? 'S' : 's';
    return d.run == Runs::All ? 'A' : d.run == Runs::Reminder ? 'r' : '-';
}

} // namespace

class TestFailureMemory : public QObject {
    Q_OBJECT
private slots:
    void scansDecide_data()
    {
        QTest::addColumn<QString>("settings");
        QTest::addColumn<QString>("script");
        QTest::addColumn<QString>("expected");
        QTest::newRow("all off: every scan alerts, nothing recovers") << "" << "FFRFDU" << "AA.A-.";
        QTest::newRow("once: one alert, then the recovery") << "once" << "FFFRF" << "A--VA";
        QTest::newRow("reminder every second scan") << "once remind=2" << "FFFFFR" << "A-r-rV";
        QTest::newRow("acknowledged: no reminders until it recovers") << "once remind=1" << "FKKRFF" << "A--VAr";
        QTest::newRow("restarts stop after 2 in 3 scans, resume once Running")
            << "guard=2/3" << "FFFFRF" << "AASs.A";
        QTest::newRow("restarts spread wider than the window go on") << "guard=2/2" << "FFFF" << "AAAA";
        QTest::newRow("server down: one alert, its services silent, then a recovery")
            << "down once" << "DDFUF" << "N--VA";
        QTest::newRow("server down is not alerted with its option off") << "once" << "DFU" << "-A.";
        QTest::newRow("open failures survive a restart") << "once remind=3" << "FF|FF|R" << "A--rV";
        QTest::newRow("a server down survives a restart") << "down" << "D|DU" << "N-V";
        QTest::newRow("restart counts survive a restart") << "guard=2/9" << "FF|F" << "AAS";
    }
    void scansDecide()
    {
        QFETCH(QString, settings);
        QFETCH(QString, script);
        QFETCH(QString, expected);
        auto memory = std::make_unique<FailureMemory>(options(settings));
        const QDateTime start(QDate(2026, 11, 25), QTime(8, 0), Qt::UTC);
        QString got;
        for (const QChar step : script) {
            if (step == '|') {
                auto next = std::make_unique<FailureMemory>(options(settings));
                QVERIFY(next->restore(memory->stateLines()));
                QVERIFY(!next->changed());
                memory = std::move(next);
                continue;
            }
            memory->beginScan();
            const QDateTime at = start.addSecs(60 * memory->scan());
            if (step == 'K')
                QVERIFY(memory->acknowledge("DC1", "Spooler"));
            if (step == 'F' || step == 'K')
                got += outcome(memory->failed("dc1", "Spooler", at, true));
            else if (step == 'R')
                got += memory->running("DC1", "spooler") ? 'V' : '.';
            else if (step == 'D')
                got += memory->serverDown("DC1", at) ? 'N' : '-';
            else if (step == 'U')
                got += memory->serverUp("dc1") ? 'V' : '.';
        }
        QCOMPARE(got, expected);
    }

    // A damaged state file is refused as a whole: nothing half-read, nothing of the memory lost.
    void damagedStateIsRefused_data()
    {
        QTest::addColumn<QStringList>("lines");
        QTest::newRow("no scan line") << QStringList{};
        QTest::newRow("bad date") << QStringList{"Scan\t3", "Failure\tDC1\tspooler\tyesterday\t1\t0\t0\t"};
        QTest::newRow("short failure") << QStringList{"Scan\t3", "Failure\tDC1\tspooler"};
        QTest::newRow("unknown line") << QStringList{"Scan\t3", "\x01\x02garbage"};
    }
    void damagedStateIsRefused()
    {
        QFETCH(QStringList, lines);
        FailureMemory memory(options("once"));
        memory.beginScan();
        memory.failed("DC1", "Spooler", QDateTime::currentDateTimeUtc(), false);
        const QStringList before = memory.stateLines();
        QVERIFY(!memory.restore(lines));
        QCOMPARE(memory.stateLines(), before);
    }
};

QTEST_GUILESS_MAIN(TestFailureMemory)
#include "tst_failurememory.moc"
