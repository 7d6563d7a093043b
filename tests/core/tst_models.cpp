// The small models the windows show: the check interval and the service side's selection.
// Tested without a window.
#include "core/schedule.h"
#include "platform/sim/simplatform.h"
#include "servicecontrol/servicepanel.h"
#include "support/bytefiles.h"

#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

using namespace velmora;

class TestModels : public QObject {
    Q_OBJECT
private slots:
    // The interval file is kept as it stands; the scheduler goes by its leading whole number.
    void scheduleKeepsTheTextAndGoesByItsLeadingNumber_data()
    {
        QTest::addColumn<QByteArray>("file");
        QTest::addColumn<int>("minutes");
        QTest::newRow("number") << QByteArray("15\r\nignored\r\n") << 15;
        QTest::newRow("number and a word") << QByteArray("15 Minutes\r\n") << 15;
        QTest::newRow("fraction") << QByteArray("2.5\r\n") << 2;
        QTest::newRow("negative") << QByteArray(" -5\r\n") << -5;
        QTest::newRow("no number") << QByteArray("Minutes\r\n") << 0;
        QTest::newRow("empty file") << QByteArray() << 0;
    }
    void scheduleKeepsTheTextAndGoesByItsLeadingNumber()
    {
        QFETCH(QByteArray, file);
        QFETCH(int, minutes);
        QTemporaryDir dir;
        platform::sim::SimPlatform sim;
        const QString path = dir.filePath("Interval");
        test::putBytes(path, file);
        core::Schedule schedule;
        schedule.read(sim.files, path);
        QCOMPARE(schedule.minutes(), minutes);
        QVERIFY(schedule.save(sim.files, path));
        const QString first = QString::fromUtf8(file.left(file.indexOf('\r')));
        QCOMPARE(*sim.files.readLines(path), QStringList{first});
    }

    // The same service selected again is no change: the follow-up of a start goes on.
    void thePanelTellsOnlyRealChanges()
    {
        servicecontrol::ServicePanel panel;
        QSignalSpy service(&panel, &servicecontrol::ServicePanel::serviceChanged);
        QSignalSpy state(&panel, &servicecontrol::ServicePanel::stateChanged);
        panel.setService("cups.service");
        panel.setService("cups.service");
        panel.setState("Running");
        panel.setState("Running");
        QCOMPARE(service.count(), 1);
        QCOMPARE(state.count(), 1);
        panel.setDependents({{"nginx.service", "nginx"}});
        panel.clearService();
        QCOMPARE(panel.state(), QString());
        QCOMPARE(panel.dependents().size(), size_t(1)); // the dependents stay until listed again
        panel.setNoneRunning();
        QVERIFY(panel.dependents().empty() && panel.noneRunning());
    }
};

QTEST_MAIN(TestModels)
#include "tst_models.moc"
