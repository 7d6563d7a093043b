// The job log and the alert window inside the running main window: the Log menu, the reset
// commands of the main window and the tray menu, the Timer6 beep, and the alert window's way
// back into the main window ("Goto service...").
#include "joblog/alertwindow.h"
#include "joblog/logandalerts.h"
#include "support/windowfixture.h"

#include <QAction>
#include <QLineEdit>
#include <QPushButton>
#include <QTest>
#include <QTreeWidget>

using namespace velmora;
using test::WindowFixture;
namespace svcstate = platform::svcstate;

class TestMainWindowAlerts : public QObject {
    Q_OBJECT
private slots:
    void timer6BeepsUntilEitherMainWindowResetStopsIt_data()
    {
        QTest::addColumn<QString>("command");
        QTest::newRow("Reset Alert button") << "Command12";
        QTest::newRow("tray Reset Alert") << "traymnuresetalert";
    }
    void timer6BeepsUntilEitherMainWindowResetStopsIt()
    {
        QFETCH(QString, command);
        WindowFixture f;
        auto& w = f.start();
        QVERIFY(!w.Timer6->isEnabled());
        w.Timer6->setEnabled(true);
        const int stops = f.sim.sound.stops;
        if (command == QLatin1String("Command12"))
            w.Command12->click();
        else
            w.traymnuresetalert->trigger();
        QVERIFY(!w.Timer6->isEnabled());
        QCOMPARE(f.sim.sound.stops, stops + 1);
        f.sim.clock.advance(5000);
        QVERIFY(f.sim.beeper.beeps.isEmpty());
        QVERIFY(f.sim.boxes.shown.isEmpty());
    }

    void logMenuShowsAndDeletesTheLog()
    {
        WindowFixture f;
        auto& w = f.start();
        f.writeBytes("Jobs.log", "16.11.2026 20:50:14\tSRV01\tSpooler\tStopped\r\n");

        w.mnushowlogfile->trigger();
        QCOMPARE(f.sim.opener.opened.value(0).file, f.path("Jobs.log"));
        w.mnudeletelogfile->trigger();
        QCOMPARE(f.sim.boxes.shown.size(), 1); // the question
        QVERIFY(f.fileExists("Jobs.log") && f.readBytes("Jobs.log").isEmpty());
    }

    void gotoServiceSelectsTheServerAndShowsTheService()
    {
        WindowFixture f;
        f.writeFile("Computerlist", {"SRV1\tmonitored", "SRV2\tmonitored"});
        f.sim.icmp.addComputer("SRV1", "10.9.0.1", 0);
        f.sim.icmp.addComputer("SRV2", "10.9.0.2", 0);
        f.sim.services.addComputer("SRV1");
        f.sim.services.addService("SRV2", {.name = "cups.service", .displayName = "CUPS Scheduler",
                                           .state = svcstate::stopped, .binaryPath = "/usr/sbin/cupsd -l"});
        f.sim.services.addService("SRV2", {.name = "nginx.service", .displayName = "nginx web server",
                                           .state = svcstate::running, .binaryPath = "/usr/sbin/nginx"});
        auto& w = f.start();
        w.setCurrentServer("SRV1");

        joblog::LogAndAlerts& m = *f.program->logandalerts;
        m.showalertwindow();
        m.addalertrow("SRV2", "nginx.service", "Stopped", "Alert            ");
        joblog::AlertWindow* form4 = m.alertwindow();
        form4->ListView1->setCurrentItem(form4->ListView1->topLevelItem(0));
        form4->mnuf4gotoservice->trigger();

        QCOMPARE(w.Text1->text(), QStringLiteral("SRV2"));
        QCOMPARE(w.ListView2->currentItem()->text(0), QStringLiteral("SRV2"));
        QCOMPARE(w.services->Text3->text(), QStringLiteral("nginx.service"));
    }
};

QTEST_MAIN(TestMainWindowAlerts)
#include "tst_mainwindowalerts.moc"
