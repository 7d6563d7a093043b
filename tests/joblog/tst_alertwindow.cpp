// The alert window Form4 and the alert signal on the simulated platform: loading, rows, the
// popup option through the settings file, the signal switched on and off by every command,
// position memory, the log-size indicator and the list's context menu.
#include "core/datafolder.h"
#include "core/runstate.h"
#include "core/settings.h"
#include "joblog/alertwindow.h"
#include "joblog/logandalerts.h"
#include "platform/sim/simplatform.h"
#include "support/smalldisk.h"

#include <QApplication>
#include <QCheckBox>
#include <QDir>
#include <QFile>
#include <QHeaderView>
#include <QLabel>
#include <QMenu>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QTemporaryDir>
#include <QFontMetrics>
#include <QTest>
#include <QTreeWidget>

#include <memory>
#include <unistd.h>

using namespace velmora;
using joblog::AlertWindow;
using joblog::LogAndAlerts;
using joblog::SizeCaption;
using platform::sim::SimPlatform;

namespace {

const QColor kRed(255, 0, 0);

// The run state and Timer6 as the main window holds them, with the module over them; the data
// folder is the test's own unless one is given.
struct World {
    explicit World(const QString& folder = {})
    {
        sim.clock.setNow(QDateTime(QDate(2026, 11, 16), QTime(20, 50, 14)));
        state.platform = sim.platform();
        state.datafolder = folder.isEmpty() ? dir.path() : folder;
        state.settings = core::SettingsRecord::defaults(state.datafolder);
        timer = sim.clock.createTimer(&timerOwner, QStringLiteral("Timer6"), 250);
        makeModule();
    }
    void makeModule()
    {
        module = std::make_unique<LogAndAlerts>(state, timer, nullptr);
        QObject::connect(module.get(), &LogAndAlerts::gotoServiceRequested,
                         [this](const QString& server, const QString& service) {
                             gone << server + QLatin1Char('/') + service;
                         });
        module->joblog().setLocale(QLocale(QLocale::German, QLocale::Germany));
    }
    QString file(const QString& name) const { return core::dataFile(state.datafolder, name); }
    // A log of exactly bytes bytes whose last line is ended, so an appended line adds only itself.
    void writeLog(qint64 bytes)
    {
        QFile f(file(core::files::jobslog));
        QVERIFY(f.open(QIODevice::WriteOnly | QIODevice::Truncate));
        QVERIFY(f.write(QByteArray(bytes - 2, 'x') + "\r\n") == bytes);
    }
    AlertWindow* window() { return module->alertwindow(); }
    int beepsSince(int from) const { return int(sim.beeper.beeps.size()) - from; }

    QTemporaryDir dir;
    SimPlatform sim;
    core::RunState state;
    QObject timerOwner;
    platform::Timer* timer = nullptr;
    std::unique_ptr<LogAndAlerts> module;
    QStringList gone;
};

void activate(QWidget* w)
{
    QEvent e(QEvent::WindowActivate);
    QApplication::sendEvent(w, &e);
}

void rightClickList(AlertWindow* w, QTreeWidgetItem* item)
{
    QTreeWidget* view = w->ListView1;
    const QPoint pos = item ? view->visualItemRect(item).center() : QPoint(5, view->viewport()->height() - 5);
    QTest::mousePress(view->viewport(), Qt::RightButton, {}, pos);
}

} // namespace

class TestAlertWindow : public QObject {
    Q_OBJECT
private slots:
    // ---- loading and rows ----

    void rowsCarryDateTimeAndRedServerServiceState()
    {
        World w;
        const QString actions = QStringLiteral("Alert      Send Email to: ops@example.org      ");
        w.module->addalertrow("SRV01", "Spooler", "Stopped", actions);
        w.sim.clock.advance(2000);
        w.module->addalertrow("SRV01", "Spooler", "Stopped", actions);
        w.sim.clock.advance(2000);
        w.module->addalertrow("SRV01", "Spooler", "Paused", actions);
        QTreeWidget* list = w.window()->ListView1;
        QCOMPARE(list->topLevelItemCount(), 3);
        const QTreeWidgetItem* row = list->topLevelItem(0);
        const QStringList texts{"16.11.2026", "20:50:14", "SRV01", "Spooler", "Stopped", actions};
        for (int c = 0; c < texts.size(); ++c)
            QCOMPARE(row->text(c), texts[c]);
        QCOMPARE(list->topLevelItem(2)->text(1), QStringLiteral("20:50:18"));
        for (int c : {2, 3, 4})
            QCOMPARE(row->foreground(c).color(), kRed);
        for (int c : {0, 1, 5})
            QVERIFY(row->foreground(c).color() != kRed);
        // Every column is wide enough for what it shows.
        w.module->addalertrow("FILESERVER-BUILDING-7", "systemd-networkd-wait-online.service", "Stopped", actions);
        const QFontMetrics metrics(list->font());
        const QTreeWidgetItem* wide = list->topLevelItem(3);
        for (int c = 0; c < 5; ++c)
            QVERIFY2(list->columnWidth(c) > metrics.horizontalAdvance(wide->text(c)), qPrintable(wide->text(c)));
    }

    void nextScanShowsTheDateWithItsFourDigitYear()
    {
        World w;
        w.module->joblog().setLocale(QLocale::c());
        w.module->showNextScan(QDateTime(QDate(2026, 11, 23), QTime(7, 5, 0)));
        QCOMPARE(w.window()->Label1->text(), QStringLiteral("Next scan at :  23.11.2026 07:05:00"));
    }

    // ---- popup option ----

    void popupOptionRoundTripsThroughTheSettingsFile()
    {
        World w;
        AlertWindow* f = w.window();
        // Checked means no popup; each activation shows the option as the settings hold it.
        w.state.settings.popupalert = false; // changed elsewhere while the window was loaded
        activate(f);
        QVERIFY(f->Check1->isChecked());
        w.state.settings.popupalert = true;
        activate(f);
        QVERIFY(!f->Check1->isChecked());
        f->Check1->click();
        QVERIFY(!w.state.settings.popupalert);
    }

    // ---- the signal ----

    void signalBeepsOnEveryTickUntilReset()
    {
        World w;
        w.timer->setEnabled(true); // the "Alert" action
        const QDateTime start = w.sim.clock.now();
        w.sim.clock.advance(1000);
        QCOMPARE(w.sim.beeper.beeps.size(), 4);
        for (int i = 0; i < 4; ++i) {
            QCOMPARE(w.sim.beeper.beeps[i].frequency, 1300);
            QCOMPARE(w.sim.beeper.beeps[i].duration, 500);
            QCOMPARE(w.sim.beeper.beeps[i].at, start.addMSecs(250 * (i + 1)));
        }
        // It keeps going while the window is hidden or was never shown.
        w.sim.clock.advance(60000);
        QCOMPARE(w.sim.beeper.beeps.size(), 4 + 240);
    }

    void everyResetCommandSilencesTheSignal_data()
    {
        QTest::addColumn<QString>("command");
        QTest::addColumn<bool>("stopsSound");
        QTest::addColumn<bool>("clearsRows");
        QTest::newRow("Reset Signal") << "Command3" << true << false;
        QTest::newRow("Clear") << "Command2" << false << true;
    }
    void everyResetCommandSilencesTheSignal()
    {
        QFETCH(QString, command);
        QFETCH(bool, stopsSound);
        QFETCH(bool, clearsRows);
        World w;
        w.module->addalertrow("SRV01", "Spooler", "Stopped", "Alert            ");
        w.timer->setEnabled(true);
        w.sim.clock.advance(500);
        const int before = int(w.sim.beeper.beeps.size());

        w.window()->findChild<QPushButton*>(command)->click();
        QVERIFY(!w.timer->isEnabled());
        w.sim.clock.advance(10000);
        QCOMPARE(w.beepsSince(before), 0);
        QCOMPARE(w.sim.sound.stops, stopsSound ? 1 : 0);
        QCOMPARE(w.window()->ListView1->topLevelItemCount(), clearsRows ? 0 : 1);
        QVERIFY(w.sim.boxes.shown.isEmpty());
    }

    void aResetShowsNothingUnlessTheSoundCannotBeStopped()
    {
        World w;
        w.module->resetalert();
        QVERIFY(!w.module->loadedAlertwindow()); // nor loads the window
        w.timer->setEnabled(true);
        w.sim.sound.stop_error = 263;
        w.module->resetalert();
        QVERIFY(!w.timer->isEnabled());
        QCOMPARE(w.sim.boxes.texts(), QStringList{"Error: can not stop playing sound!  263"});
    }

    // ---- showing, closing, position ----

    // "&Close" hides the window with its rows, the close box unloads it and them, and an
    // activation only looks: each remembers the place (in twips) it finds, but for a left of 0
    // on closing and any place off the screen.
    void closingAndActivationRememberThePlace_data()
    {
        QTest::addColumn<QString>("way");
        QTest::addColumn<QPoint>("at");
        QTest::addColumn<QStringList>("remembered");
        QTest::newRow("Close") << "Command1" << QPoint(100, 50) << QStringList{"1500", "750"};
        QTest::newRow("close box") << "close box" << QPoint(0, 0) << QStringList{"4500", "0"};
        QTest::newRow("activation") << "activation" << QPoint(0, 20) << QStringList{"0", "300"};
        QTest::newRow("activation off screen") << "activation" << QPoint(-10, 0) << QStringList{"4500", "4500"};
    }
    void closingAndActivationRememberThePlace()
    {
        QFETCH(QString, way);
        QFETCH(QPoint, at);
        QFETCH(QStringList, remembered);
        World w;
        w.module->showalertwindow();
        w.module->addalertrow("SRV01", "Spooler", "Stopped", {});
        AlertWindow* f = w.window();
        f->move(at);
        w.state.settings.alertleft = w.state.settings.alerttop = QStringLiteral("4500");
        if (way == "Command1")
            f->Command1->click();
        else if (way == "close box")
            QVERIFY(f->close());
        else
            activate(f);
        QCOMPARE((QStringList{w.state.settings.alertleft, w.state.settings.alerttop}), remembered);
        if (way == "close box") {
            QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
            QVERIFY(!w.module->loadedAlertwindow());
            QCOMPARE(w.window()->ListView1->topLevelItemCount(), 0);
        } else if (way == "Command1") {
            // A new failure with the popup option on shows it again with the earlier row.
            QVERIFY(!f->isVisible());
            w.module->showalertwindow();
            w.module->addalertrow("SRV01", "Spooler", "Stopped", {});
            QCOMPARE(w.module->alertwindow(), f);
            QVERIFY(f->isVisible());
            QCOMPARE(f->ListView1->topLevelItemCount(), 2);
            // Showing restores a minimised window.
            f->showMinimized();
            w.module->showalertwindow();
            QVERIFY(!f->isMinimized() && f->isVisible());
        }
    }

    void aRememberedPositionPlacesTheNextLoadedWindow()
    {
        World w;
        w.state.settings.alertleft = QStringLiteral("3000");
        w.state.settings.alerttop = QStringLiteral("1500");
        QCOMPARE(w.window()->pos(), QPoint(200, 100));
    }

    // ---- log-size indicator ----

    void indicatorTurnsRedAboveThreeMillionBytes()
    {
        World w;
        w.writeLog(3000000);
        w.module->updatelogsize(SizeCaption::CheckRun);
        AlertWindow* f = w.window();
        QCOMPARE(f->Label3->text(), QStringLiteral("Current Logfilesize :  3000000  Bytes"));
        QVERIFY(!f->logSizeIsRed());

        QVERIFY(w.module->joblog().appendjobline(QString())); // two bytes more
        w.module->updatelogsizecolour();
        QVERIFY(f->logSizeIsRed());
        QCOMPARE(f->Label3->text(), QStringLiteral("Current Logfilesize :  3000000  Bytes"));

        activate(f);
        QCOMPARE(f->Label3->text(), QStringLiteral("Current Logfilesize: 3000002 Bytes"));

        w.module->joblog().deletelogfile();
        activate(f);
        QCOMPARE(f->Label3->text(), QStringLiteral("Current Logfilesize: 0 Bytes"));
        QVERIFY(!f->logSizeIsRed());
    }

    // On a real full disk the lost lines are told once, in the indicator and the caption, for
    // as long as lines are lost, and never in a box; a line written again clears it.
    void linesLostOnAFullDiskAreToldUntilALineIsWrittenAgain()
    {
        QTemporaryDir dir;
        const QString folder = dir.filePath("disk");
        QVERIFY(QDir().mkdir(folder));
        const test::SmallDiskRun run = test::runOnSmallDisk(folder, 64, {"--lost-lines"});
        if (!run.skipReason.isEmpty())
            QSKIP(qPrintable(run.skipReason));
        const QMap<QString, QString>& seen = run.seen;
        QVERIFY2(seen.value("set up") == "yes", qPrintable(run.errors));
        QCOMPARE(seen.value("written"), "0 of 3");
        const QString told = "Jobs.log cannot be written since 16.11.2026 20:50:14 (No space left on device): 3 lines lost";
        QCOMPARE(seen.value("indicator"), told + " | red");
        QCOMPARE(seen.value("caption"), "Velmora Info - the job log is not being written");
        QCOMPARE(seen.value("after activation"), told + " | red");
        QCOMPARE(seen.value("boxes"), "0");
        QCOMPARE(seen.value("after room").section(" | ", 1), "Velmora Info");
        QVERIFY(seen.value("after room").startsWith("Current Logfilesize: "));
        QCOMPARE(seen.value("log"), "again|");
    }

    // ---- context menu and goto ----

    void rightClickOffersGotoTheRowsService()
    {
        World w;
        w.module->showalertwindow();
        AlertWindow* f = w.window();
        // Rows but none selected: a box asks for one.
        w.module->addalertrow("SRV01", "Spooler", "Stopped", {});
        w.module->addalertrow("SRV02", "Dhcp", "Paused", {});
        rightClickList(f, nullptr);
        QVERIFY(!f->mnuf4context->isVisible());
        QCOMPARE(w.sim.boxes.texts(), QStringList{"Please select an Item "});

        rightClickList(f, f->ListView1->topLevelItem(1));
        QCOMPARE(f->ListView1->currentItem(), f->ListView1->topLevelItem(1));
        QVERIFY(f->mnuf4context->isVisible());
        QVERIFY(f->mnuf4gotoservice->isEnabled());
        f->mnuf4context->hide();
        f->mnuf4gotoservice->trigger();
        QCOMPARE(w.gone, QStringList{"SRV02/Dhcp"});

        QTreeWidget* view = f->ListView1;
        const QPoint first = view->visualItemRect(view->topLevelItem(0)).center();
        QTest::mouseClick(view->viewport(), Qt::LeftButton, {}, first);
        QTest::mouseDClick(view->viewport(), Qt::LeftButton, {}, first);
        QCOMPARE(w.gone, (QStringList{"SRV02/Dhcp", "SRV01/Spooler"}));
    }
};

// --lost-lines FOLDER: the child of linesLostOnAFullDiskAreToldUntilALineIsWrittenAgain, run
// where FOLDER is a small file system of its own.
int lostLines(const QString& folder)
{
    World world(folder);
    LogAndAlerts& module = *world.module;
    joblog::JobLog& log = module.joblog();
    log.ensurejoblog();
    // A first line that fills the log's block to its end, so that the disk has no room left for
    // one more byte of it.
    const QString first(int(::sysconf(_SC_PAGESIZE)) - 2, 'f');
    if (!log.appendjobline(first))
        return 0;
    test::fillUp(folder);
    test::tellParent("set up", "yes");
    int written = 0;
    for (int i = 0; i < 3; ++i)
        written += log.checkline("SRV01", "Spooler", "Stopped") ? 1 : 0;
    AlertWindow* w = module.alertwindow();
    const auto indicator = [w] { return w->Label3->text() + (w->logSizeIsRed() ? " | red" : ""); };
    test::tellParent("written", QString("%1 of 3").arg(written));
    test::tellParent("indicator", indicator());
    test::tellParent("caption", w->windowTitle());
    module.updatelogsize(SizeCaption::Activation);
    test::tellParent("after activation", indicator());
    test::tellParent("boxes", QString::number(world.sim.boxes.shown.size()));
    QFile::remove(folder + "/filler");
    log.appendjobline("again");
    test::tellParent("after room", indicator() + " | " + w->windowTitle());
    QFile f(log.path());
    const QString content = f.open(QIODevice::ReadOnly) ? QString::fromUtf8(f.readAll()) : QString();
    test::tellParent("log", content.startsWith(first + "\r\n") ? content.mid(first.size() + 2).replace("\r\n", "|") : content);
    return 0;
}

int main(int argc, char** argv)
{
    const bool child = argc == 3 && QByteArray(argv[1]) == "--lost-lines";
    if (child)
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    if (child)
        return lostLines(QFile::decodeName(argv[2]));
    TestAlertWindow t;
    QTEST_SET_MAIN_SOURCE_PATH
    return QTest::qExec(&t, argc, argv);
}
#include "tst_alertwindow.moc"
