// The tray icon on the simulated tray: hiding the main window, a desktop without a tray, and
// every way out removing the icon. Where
// the window comes back to is tried under a real window manager (tst_realdesktop).
#include "support/windowfixture.h"
#include "shell/tray.h"

#include <QAction>
#include <QApplication>
#include <QPushButton>
#include <QTest>

using namespace velmora;
using test::WindowFixture;

namespace {

// The enabled state of every timer of the main window.
QList<bool> timerStates(shell::MainWindow& w)
{
    QList<bool> out;
    for (platform::Timer* t : {w.services->Timer1, w.Timer5, w.Timer6, w.Timer8, w.Timer9})
        out << t->isEnabled();
    return out;
}

// Starts the program and activates its window, as the desktop does once it shows; the icon
// is added then.
shell::MainWindow& startActive(WindowFixture& f)
{
    auto& w = f.start();
    QApplication::setActiveWindow(&w);
    if (!QTest::qWaitFor([&] { return f.sim.tray.shown(); }))
        QTest::qFail("the activation added no tray icon", __FILE__, __LINE__);
    return w;
}

} // namespace

class TestTray : public QObject {
    Q_OBJECT
private slots:
    void activationAddsTheIconAndKeepsTheWindowOutOfTheTaskbar_data()
    {
        QTest::addColumn<bool>("trayAvailable");
        QTest::newRow("with a tray") << true;
        QTest::newRow("without a tray") << false;
    }

    void activationAddsTheIconAndKeepsTheWindowOutOfTheTaskbar()
    {
        QFETCH(bool, trayAvailable);
        WindowFixture f;
        f.sim.tray.tray_available = trayAvailable;
        auto& w = f.create();
        // Decided before the window first shows, so it never flashes into the task bar.
        QCOMPARE(f.sim.tray.taskbar.value(&w, !trayAvailable), !trayAvailable);
        QVERIFY(f.sim.tray.taskbar.contains(&w));
        f.program->load();
        f.sim.clock.advance(1000);
        QApplication::setActiveWindow(&w);
        QTRY_VERIFY(f.sim.tray.shown());
        QCOMPARE(f.sim.tray.taskbar.value(&w), !trayAvailable);
        // A tray that appears later is found on the next activation.
        f.sim.tray.tray_available = true;
        QApplication::setActiveWindow(nullptr);
        QApplication::setActiveWindow(&w);
        QTRY_COMPARE(f.sim.tray.taskbar.value(&w), false);
    }

    // Hidden, the window goes on working with the icon shown; without a tray it stays and says why.
    void hidingKeepsEveryTimerRunningAndTheIconShown_data()
    {
        QTest::addColumn<QString>("command");
        QTest::addColumn<bool>("trayAvailable");
        for (bool tray : {true, false}) {
            QTest::addRow("Show in Tray only, %s", tray ? "tray" : "no tray") << "Command11" << tray;
            QTest::addRow("Window menu, %s", tray ? "tray" : "no tray") << "mnuHide" << tray;
        }
    }

    void hidingKeepsEveryTimerRunningAndTheIconShown()
    {
        QFETCH(QString, command);
        QFETCH(bool, trayAvailable);
        WindowFixture f;
        f.writeFile("Computerlist", {"DC1"});
        f.sim.icmp.addComputer("DC1", "10.0.0.1", 0);
        f.sim.tray.tray_available = trayAvailable;
        auto& w = startActive(f);
        const QList<bool> timers = timerStates(w);

        if (command == "Command11")
            w.Command11->click();
        else
            w.mnuHide->trigger();

        QVERIFY(f.sim.tray.shown());
        QCOMPARE(w.isVisible(), !trayAvailable);
        QCOMPARE(f.sim.boxes.texts(), trayAvailable ? QStringList() : QStringList{shell::noTrayText()});
        QCOMPARE(f.sim.tray.taskbar.value(&w), !trayAvailable);
        QVERIFY(!f.sim.app.ended());
        QCOMPARE(timerStates(w), timers);
        // Hidden, it goes on working: the minute's re-ping of the servers runs.
        const qsizetype pings = f.sim.icmp.pinged.size();
        f.sim.clock.advance(60000);
        QVERIFY(f.sim.icmp.pinged.size() > pings);
    }

    void everyWayOutRemovesTheIcon_data()
    {
        QTest::addColumn<QString>("way");
        // The close box and the Exit commands, the tray's too, are in the main window's test of
        // the ways out.
        QTest::newRow("session end") << "session";
        QTest::newRow("second copy, ended at start-up") << "instance";
    }

    void everyWayOutRemovesTheIcon()
    {
        QFETCH(QString, way);
        WindowFixture f;
        if (way == "instance")
            f.sim.instance.other_running = true;
        auto& w = f.start();
        QApplication::setActiveWindow(&w);
        if (way == "instance") {
            // Ended during start-up, before the window ever showed.
            QVERIFY(f.sim.app.ended());
        } else {
            QTRY_VERIFY(f.sim.tray.shown());
            f.sim.app.session_end();
        }
        QVERIFY(f.sim.app.ended());
        QVERIFY(!f.sim.tray.shown());
        QVERIFY(f.sim.tray.removes >= 1);
        // Nothing brings it back once the program has ended.
        const int adds = f.sim.tray.adds;
        QApplication::setActiveWindow(nullptr);
        w.show();
        QApplication::setActiveWindow(&w);
        QTest::qWait(20);
        QCOMPARE(f.sim.tray.adds, adds);
        QVERIFY(!f.sim.tray.shown());
    }
};

QTEST_MAIN(TestTray)
#include "tst_tray.moc"
