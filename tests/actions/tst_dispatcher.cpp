// The action dispatcher on the simulated platform: which actions an entry starts, the job-log
// line and result text of every local action on success and failure, the slot order, the
// 5000 ms restart wait on the simulated clock, queued dispatches, a lost log line ending the
// dispatch, the transport hooks, and a real program started through the desktop opener. A slow
// open on the real thread-pool worker leaves the window's event loop turning and keeps the
// action lines in order.
#include "actions/alertmail.h"
#include "actions/dispatcher.h"
#include "core/runstate.h"
#include "platform/linux/desktopopener.h"
#include "platform/linux/linuxplatform.h"
#include "platform/sim/simplatform.h"

#include <QElapsedTimer>
#include <QFile>
#include <QMutex>
#include <QSemaphore>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

#include <algorithm>
#include <memory>
#include <vector>

using namespace velmora;
using actions::Action;
using actions::ActionDispatcher;
using actions::PlannedAction;
using platform::sim::SimServices;
namespace svcstate = platform::svcstate;

Q_DECLARE_METATYPE(QList<PlannedAction>)

namespace {

// A data folder with an empty job log, the simulated platform with server SRV1 (spooler
// stopped, cups running), and a dispatcher whose alert signal is a timer of the simulated clock.
struct World {
    World()
    {
        state.platform = sim.platform();
        state.datafolder = dir.path();
        QFile(log()).open(QIODevice::WriteOnly);
        sim.services.addService("SRV1", {.name = "spooler", .displayName = "Print Spooler", .state = svcstate::stopped,
                                         .startMs = 1500});
        sim.services.addService("SRV1", {.name = "cups", .displayName = "CUPS", .state = svcstate::running});
        signal = sim.clock.createTimer(&owner, QStringLiteral("Timer6"), 250);
    }
    QString log() const { return dir.filePath(QStringLiteral("Jobs.log")); }
    QStringList lines() const
    {
        QFile f(log());
        if (!f.open(QIODevice::ReadOnly))
            return {};
        QString all = QString::fromUtf8(f.readAll());
        if (all.endsWith(QStringLiteral("\r\n")))
            all.chop(2);
        return all.isEmpty() ? QStringList() : all.split(QStringLiteral("\r\n"));
    }
    // Runs one dispatch; returns whether done has run when the call returns.
    bool run(const std::array<QString, 5>& entries, const QString& service = QStringLiteral("spooler"))
    {
        const int before = dones;
        dispatcher.runactions(QStringLiteral("SRV1"), service, QStringLiteral("Stopped"), entries, [this] { ++dones; });
        return dones > before;
    }

    QTemporaryDir dir;
    platform::sim::SimPlatform sim;
    core::RunState state;
    QObject owner;
    platform::Timer* signal = nullptr;
    int folderReads = 0;
    ActionDispatcher dispatcher{state, nullptr, [this] {
                                    ++folderReads;
                                    return state.datafolder;
                                }};
    int dones = 0;
};

// An opener that answers 42 only once the test opens its gate, one call per release, and
// notes how many lines the job log held when each call came in.
class GatedOpener : public platform::FileOpener {
public:
    explicit GatedOpener(QString log) : log_(std::move(log)) {}
    int open(const QString&, const QString&) override
    {
        QFile f(log_);
        const int lines = f.open(QIODevice::ReadOnly) ? int(f.readAll().count("\r\n")) : -1;
        {
            QMutexLocker lock(&mutex_);
            linesAtCall_.append(lines);
        }
        return gate.tryAcquire(1, 20000) ? 42 : 0;
    }
    QList<int> linesAtCall()
    {
        QMutexLocker lock(&mutex_);
        return linesAtCall_;
    }
    QSemaphore gate;

private:
    QString log_;
    QMutex mutex_;
    QList<int> linesAtCall_;
};

struct WorldWithSignal : World {
    WorldWithSignal() : real(state, signal, [this] { return state.datafolder; }) {}
    ActionDispatcher real;
};

} // namespace

class TestDispatcher : public QObject {
    Q_OBJECT
private slots:
    void entriesArePlannedByKindText_data()
    {
        QTest::addColumn<QString>("entry");
        QTest::addColumn<QList<PlannedAction>>("planned");
        using L = QList<PlannedAction>;
        QTest::newRow("alert") << "Alert" << L{{Action::Alert, {}}};
        QTest::newRow("alert any case, anywhere") << "my ALERT here" << L{{Action::Alert, {}}};
        QTest::newRow("restart") << "Restart Service" << L{{Action::Restart, {}}};
        QTest::newRow("restart lower case") << "restart service" << L{{Action::Restart, {}}};
        QTest::newRow("mail keeps its blank") << "Send Email to: ops@example.org"
                                              << L{{Action::Email, " ops@example.org"}};
        QTest::newRow("mail as the cycle spells it") << "SEND EMAIL TO: x@y" << L{{Action::Email, " x@y"}};
        QTest::newRow("mail address with alert") << "Send Email to: Alert-Desk@example.org"
                                                 << L{{Action::Alert, {}}, {Action::Email, " Alert-Desk@example.org"}};
        QTest::newRow("program exactly") << "Start program: /opt/my tools/pagér.sh"
                                         << L{{Action::Program, "/opt/my tools/pagér.sh"}};
        QTest::newRow("net message keeps its blank") << "Net Message Send to: ops" << L{{Action::NetMessage, " ops"}};
        QTest::newRow("sound exactly") << "Play Sound: /snd/a b.wav" << L{{Action::Sound, "/snd/a b.wav"}};
        QTest::newRow("sound without a file") << "Play Sound: " << L{{Action::Sound, ""}};
        QTest::newRow("kind without its blank") << "Play Sound:x.wav" << L{{Action::Sound, ".wav"}};
        QTest::newRow("program without argument") << "Start program:" << L{{Action::Program, ""}};
        QTest::newRow("kind not at the start") << " Start program: /bin/x" << L{};
        QTest::newRow("unknown kind") << "Reboot Server" << L{};
        QTest::newRow("empty") << "" << L{};
        QTest::newRow("mail address cut at 125") << "Send Email to: " + QString(200, 'a')
                                                 << L{{Action::Email, " " + QString(124, 'a')}};
        QTest::newRow("program path cut at 255") << "Start program: /" + QString(300, 'p')
                                                 << L{{Action::Program, "/" + QString(254, 'p')}};
    }
    void entriesArePlannedByKindText()
    {
        QFETCH(QString, entry);
        QFETCH(QList<PlannedAction>, planned);
        const auto got = actions::planEntry(entry);
        QCOMPARE(QList<PlannedAction>(got.begin(), got.end()), planned);
    }

    void alertSwitchesTheSignalOnAndLogs()
    {
        WorldWithSignal w;
        QVERIFY(!w.signal->isEnabled());
        bool finished = false;
        w.real.runactions("SRV1", "spooler", "Stopped", {"Alert", "", "", "", ""}, [&] { finished = true; });
        QVERIFY(finished);
        QVERIFY(w.signal->isEnabled());
        QCOMPARE(w.lines(), QStringList{"Alert activated"});
        QCOMPARE(w.state.alertresult, QStringLiteral("Alert activated"));
    }

    void restartStartsTheServiceAndWaitsOnTheClock()
    {
        World w;
        QVERIFY(!w.run({"Restart Service", "Alert", "", "", ""}));
        QVERIFY(w.sim.services.calls().contains(QStringLiteral("start SRV1 spooler")));
        QVERIFY(w.lines().isEmpty()); // the success line follows the wait
        w.sim.clock.advance(4999);
        QVERIFY(w.lines().isEmpty());
        QCOMPARE(w.dones, 0);
        w.sim.clock.advance(1);
        QCOMPARE(w.lines(), (QStringList{"Attemp to restart service : spooler Successfull", "Alert activated"}));
        QCOMPARE(w.state.restartresult, QStringLiteral("Attemp to restart service : spooler Successfull"));
        QCOMPARE(w.dones, 1);
    }

    // On the real clock the wait after a restart is never shorter than 5000 ms. A timer the
    // system may move to group wake-ups ends up to 250 ms early, depending on where in the second
    // it falls due, so restarts are started at spread-out moments of a second.
    void restartWaitOnTheRealClockNeverEndsEarly()
    {
        platform::LinuxPlatform real; // its clock
        constexpr int kRestarts = 8;
        std::vector<std::unique_ptr<World>> worlds;
        std::vector<QElapsedTimer> started(kRestarts);
        std::vector<qint64> waited(kRestarts, -1);
        for (int i = 0; i < kRestarts; ++i) {
            auto& w = *worlds.emplace_back(std::make_unique<World>());
            w.state.platform.clock = real.platform().clock;
            started[size_t(i)].start();
            w.dispatcher.runactions(QStringLiteral("SRV1"), QStringLiteral("spooler"), QStringLiteral("Stopped"),
                                    {"Restart Service", "", "", "", ""},
                                    [&, i] { waited[size_t(i)] = started[size_t(i)].elapsed(); });
            QTest::qWait(1000 / kRestarts + 3);
        }
        QTRY_VERIFY_WITH_TIMEOUT(std::all_of(waited.begin(), waited.end(), [](qint64 ms) { return ms >= 0; }), 30000);
        for (int i = 0; i < kRestarts; ++i) {
            QVERIFY2(waited[size_t(i)] >= ActionDispatcher::kRestartWaitMs,
                     qPrintable(QStringLiteral("restart %1 waited %2 ms").arg(i).arg(waited[size_t(i)])));
            QCOMPARE(worlds[size_t(i)]->lines(), QStringList{"Attemp to restart service : spooler Successfull"});
        }
    }

    void refusedRestartLogsTheCodeWithoutWaiting_data()
    {
        QTest::addColumn<QString>("service");
        QTest::addColumn<bool>("reachable");
        QTest::addColumn<QString>("line");
        QTest::newRow("unreachable server") << "spooler" << false
                                            << "Attemp to restart service: spooler returned error :1722";
        QTest::newRow("no such service") << "nosuch" << true << "Attemp to restart service: nosuch returned error :1060";
        QTest::newRow("already running") << "cups" << true << "Attemp to restart service: cups returned error :1056";
    }
    void refusedRestartLogsTheCodeWithoutWaiting()
    {
        QFETCH(QString, service);
        QFETCH(bool, reachable);
        QFETCH(QString, line);
        World w;
        w.sim.services.setReachable("SRV1", reachable);
        QVERIFY(w.run({"Restart Service", "", "", "", ""}, service));
        QCOMPARE(w.lines(), QStringList{line});
        QCOMPARE(w.state.restartresult, line);
    }

    void startProgramLinesByResultCode_data()
    {
        QTest::addColumn<int>("code");
        QTest::addColumn<QString>("path");
        QTest::addColumn<QString>("line");
        QTest::newRow("started") << 42 << "/opt/tools/page oncall.sh" << "Program started: /opt/tools/page oncall.sh";
        QTest::newRow("non-ASCII path") << 33 << "/opt/wärme/ßtart" << "Program started: /opt/wärme/ßtart";
        QTest::newRow("2") << 2 << "/nope" << "Error starting program: /nope  File not found! ";
        QTest::newRow("3") << 3 << "/a/b" << "Error starting program: /a/b  Path not found! ";
        QTest::newRow("5") << 5 << "/x" << "Error starting program: /x Access denied !  ";
        QTest::newRow("8") << 8 << "/x" << "Error starting program: /x   Low memory!    ";
        QTest::newRow("11") << 11 << "/x" << "Error starting program: /x  Currupt EXE File! ";
        QTest::newRow("26") << 26 << "/x" << "Error starting program: /x  Access violation occured! ";
        QTest::newRow("27") << 27 << "/x" << "Error starting program: /x  Unreliable file Association! ";
        QTest::newRow("28") << 28 << "/x" << "Error starting program: /x  DDE Time out ";
        QTest::newRow("29") << 29 << "/x" << "Error starting program: /x  DDE transaction failed! ";
        QTest::newRow("30") << 30 << "/x" << "Error starting program: /x  DDE bussy! ";
        QTest::newRow("31") << 31 << "/x.xyz" << "Error starting program: /x.xyz  No Application for file extention! ";
        QTest::newRow("32") << 32 << "/x" << "Error starting program: /x  DLL not found!  ";
        QTest::newRow("other") << 0 << "/x" << "Error starting program: /x ";
        QTest::newRow("empty argument") << 2 << "" << "Error starting program:   File not found! ";
    }
    void startProgramLinesByResultCode()
    {
        QFETCH(int, code);
        QFETCH(QString, path);
        QFETCH(QString, line);
        World w;
        w.sim.opener.result = code;
        QVERIFY(w.run({"Start program: " + path, "", "", "", ""}));
        // The open may wait on the desktop's launcher: it goes through the worker.
        QCOMPARE(w.sim.worker.jobs, 1);
        QCOMPARE(w.sim.opener.opened.size(), 1);
        QCOMPARE(w.sim.opener.opened[0].file, path);
        QCOMPARE(w.lines(), QStringList{line});
        QCOMPARE(w.state.programresult, line);
    }

    void playSoundLoopsOrLogsTheCode()
    {
        World w;
        QVERIFY(w.run({"Start program: /p", "", "", "", ""}));
        w.folderReads = 0;
        QVERIFY(w.run({"Play Sound: /snd/alarm.wav", "", "", "", ""}));
        QCOMPARE(w.sim.sound.playing, QStringLiteral("/snd/alarm.wav"));
        QCOMPARE(w.lines().last(), QStringLiteral("Play Sound /snd/alarm.wav successfully"));
        QCOMPARE(w.state.soundresult, QStringLiteral("Play Sound /snd/alarm.wav successfully"));

        w.sim.sound.play_error = platform::sounderror::badFormat;
        QVERIFY(w.run({"Play Sound: /snd/notes.txt", "", "", "", ""}));
        QCOMPARE(w.lines().last(), QStringLiteral("Play Sound error: 11  /snd/notes.txt"));
        QCOMPARE(w.state.soundresult, QStringLiteral("Play Sound error: 11  /snd/notes.txt"));
        QCOMPARE(w.sim.sound.plays, (QStringList{"/snd/alarm.wav", "/snd/notes.txt"}));
        // Result texts of other kinds are never cleared.
        QCOMPARE(w.state.programresult, QStringLiteral("Program started: /p"));
    }

    void slotsRunInOrderSkippingEmptyAndUnknownOnes()
    {
        World w;
        w.sim.opener.result = 2;
        QVERIFY(!w.run({"Play Sound: /a.wav", "", "Reboot Server", "Restart Service", "Start program: /p"}));
        QCOMPARE(w.lines(), QStringList{"Play Sound /a.wav successfully"});
        w.sim.clock.advance(ActionDispatcher::kRestartWaitMs);
        QCOMPARE(w.lines(), (QStringList{"Play Sound /a.wav successfully",
                                          "Attemp to restart service : spooler Successfull",
                                          "Error starting program: /p  File not found! "}));
        QCOMPARE(w.dones, 1);
    }

    void mailCarriesTheResultsOfEarlierSlotsOnly()
    {
        World w;
        w.state.restartresult = QStringLiteral("older restart");
        w.state.usesmtp = true;
        QStringList bodies, addresses;
        w.dispatcher.sendemail = [&](QString& address, ActionDispatcher::Continue cont) {
            addresses << address;
            bodies << actions::AlertMail::fromState(w.state, w.sim.clock.now()).smtpBody();
            cont(true);
        };
        w.dispatcher.subemail = [&](QString&, ActionDispatcher::Continue cont) {
            QFAIL("profile mail used while SMTP is chosen");
            cont(true);
        };
        QVERIFY(!w.run({"Send Email to: ops@example.org", "Restart Service", "Alert",
                        "Send Email to: boss@example.org", ""}));
        w.sim.clock.advance(ActionDispatcher::kRestartWaitMs);
        QCOMPARE(w.dones, 1);
        QCOMPARE(addresses, (QStringList{" ops@example.org", " boss@example.org"}));
        QCOMPARE(w.state.mailaddress, QStringLiteral(" boss@example.org"));
        QVERIFY(bodies[0].contains(QStringLiteral("is Stopped  older restart  ")));
        QVERIFY(bodies[1].contains(
            QStringLiteral("is Stopped  Attemp to restart service : spooler Successfull    Alert activated  ")));
        QVERIFY(bodies[1].contains(QStringLiteral("the Service:  spooler  on Computer: SRV1")));
    }

    void profileMailWhenSmtpIsOff()
    {
        World w;
        w.state.usesmtp = false;
        QStringList used;
        w.dispatcher.sendemail = [&](QString&, ActionDispatcher::Continue cont) { used << "smtp"; cont(true); };
        w.dispatcher.subemail = [&](QString& a, ActionDispatcher::Continue cont) { used << "profile" + a; cont(true); };
        QVERIFY(w.run({"Send Email to: ops@example.org", "", "", "", ""}));
        QCOMPARE(used, QStringList{"profile ops@example.org"});
    }

    void transportsThatCompleteLaterHoldTheNextSlot()
    {
        World w;
        ActionDispatcher::Continue pending;
        QString seen;
        bool test = true;
        w.dispatcher.netsend = [&](QString& recipient, bool isTest, ActionDispatcher::Continue cont) {
            recipient = recipient.trimmed(); // trimmed in place, as the message transport does
            seen = recipient;
            test = isTest;
            pending = std::move(cont);
        };
        QVERIFY(!w.run({"Net Message Send to:  ops ", "Alert", "", "", ""}));
        QCOMPARE(seen, QStringLiteral("ops"));
        QVERIFY(!test);
        QCOMPARE(w.state.netsendrecipient, QStringLiteral("ops"));
        QVERIFY(w.lines().isEmpty());
        QVERIFY(w.dispatcher.busy());
        pending(true);
        QCOMPARE(w.lines(), QStringList{"Alert activated"});
        QCOMPARE(w.dones, 1);
        QVERIFY(!w.dispatcher.busy());

        w.dispatcher.netsend = [&](QString& recipient, bool isTest, ActionDispatcher::Continue cont) {
            seen = recipient;
            test = isTest;
            cont(true);
        };
        w.dispatcher.testnetsend(QStringLiteral("desk7"));
        QCOMPARE(seen, QStringLiteral("desk7"));
        QVERIFY(test);
    }

    void missingTransportsAreSkipped()
    {
        World w;
        QVERIFY(w.run({"Send Email to: a@b", "Net Message Send to: x", "Alert", "", ""}));
        QCOMPARE(w.lines(), QStringList{"Alert activated"});
        QCOMPARE(w.state.mailaddress, QStringLiteral(" a@b"));
        QCOMPARE(w.state.netsendrecipient, QStringLiteral(" x"));
    }

    void queuedDispatchesRunInCallOrderWithTheirOwnState()
    {
        World w;
        QStringList states;
        w.dispatcher.netsend = [&](QString&, bool, ActionDispatcher::Continue cont) {
            states << w.state.currentserver + "/" + w.state.currentservice + "/" + w.state.currentstate;
            cont(true);
        };
        QStringList order;
        w.dispatcher.runactions("SRV1", "spooler", "Stopped", {"Restart Service", "Net Message Send to: a", "", "", ""},
                                [&] { order << "first"; });
        w.dispatcher.runactions("SRV2", "cron", "Paused", {"Alert", "Net Message Send to: b", "", "", ""},
                                [&] { order << "second"; });
        QVERIFY(order.isEmpty());
        QVERIFY(w.lines().isEmpty()); // the second waits for the first's restart wait
        w.sim.clock.advance(ActionDispatcher::kRestartWaitMs);
        QCOMPARE(order, (QStringList{"first", "second"}));
        QCOMPARE(w.lines(), (QStringList{"Attemp to restart service : spooler Successfull", "Alert activated"}));
        QCOMPARE(states, (QStringList{"SRV1/spooler/Stopped", "SRV2/cron/Paused"}));
    }

    void aDoneThatQueuesTheNextServiceKeepsTheStackFlat()
    {
        // The check cycle calls runactions for the next failed service from inside done.
        World w;
        int remaining = 2000;
        std::function<void()> next = [&] {
            if (--remaining > 0)
                w.dispatcher.runactions("SRV1", "spooler", "Stopped", {"Alert", "Play Sound: /a.wav", "", "", ""}, next);
        };
        w.dispatcher.runactions("SRV1", "spooler", "Stopped", {"Alert", "", "", "", ""}, next);
        QCOMPARE(remaining, 0);
        QCOMPARE(w.lines().size(), 1 + 2 * 1999);
    }

    void aLostLogLineEndsTheDispatch()
    {
        WorldWithSignal w;
        QVERIFY(QFile::remove(w.log())); // appending never creates the log
        bool finished = false;
        w.real.runactions("SRV1", "spooler", "Stopped", {"Alert", "Start program: /p", "", "", ""},
                          [&] { finished = true; });
        QVERIFY(finished);
        QVERIFY(w.signal->isEnabled());           // the action itself happened
        QCOMPARE(w.state.alertresult, QString()); // its result was not set
        QVERIFY(w.sim.opener.opened.isEmpty());   // and the list stopped there
        QVERIFY(!QFile::exists(w.log()));

        // A later dispatch runs normally once the log is back.
        QFile(w.log()).open(QIODevice::WriteOnly);
        QVERIFY(w.run({"Start program: /p", "", "", "", ""}));
        QCOMPARE(w.lines(), QStringList{"Program started: /p"});
    }

    void aSlowOpenKeepsTheWindowTurningAndTheActionsInOrder()
    {
        World w;
        GatedOpener opener(w.log());
        platform::LinuxPlatform real; // its thread-pool worker
        w.state.platform.opener = &opener;
        w.state.platform.worker = real.platform().worker;
        int ticks = 0;
        QTimer ticker;
        ticker.setInterval(5);
        QObject::connect(&ticker, &QTimer::timeout, [&ticks] { ++ticks; });
        ticker.start();

        QVERIFY(!w.run({"Start program: /p", "Start program: /q", "", "", ""}));
        QTRY_COMPARE_WITH_TIMEOUT(opener.linesAtCall().size(), 1, 20000);
        const int before = ticks;
        QTRY_VERIFY_WITH_TIMEOUT(ticks >= before + 5, 20000); // the window's loop goes on
        QVERIFY(w.lines().isEmpty());

        // The first line is written once its open has answered, and before the next open.
        opener.gate.release();
        QTRY_COMPARE_WITH_TIMEOUT(opener.linesAtCall().size(), 2, 20000);
        QCOMPARE(w.lines(), QStringList{"Program started: /p"});
        QCOMPARE(w.dones, 0);
        opener.gate.release();
        QTRY_COMPARE_WITH_TIMEOUT(w.dones, 1, 20000);
        QCOMPARE(w.lines(), (QStringList{"Program started: /p", "Program started: /q"}));
        QCOMPARE(opener.linesAtCall(), (QList<int>{0, 1}));
    }

    void realProgramIsStartedThroughTheDesktopOpener()
    {
        World w;
        platform::DesktopOpener opener;
        w.state.platform.opener = &opener;
        const QString marker = w.dir.filePath(QStringLiteral("ran"));
        const QString script = w.dir.filePath(QStringLiteral("page öncall.sh"));
        {
            QFile f(script);
            QVERIFY(f.open(QIODevice::WriteOnly));
            f.write("#!/bin/sh\necho started > '" + marker.toUtf8() + "'\n");
        }
        QFile::setPermissions(script, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        QVERIFY(w.run({"Start program: " + script, "Start program: " + w.dir.filePath("missing/x"), "", "", ""}));
        QTRY_VERIFY(QFile::exists(marker));
        QCOMPARE(w.lines(), (QStringList{"Program started: " + script,
                                          "Error starting program: " + w.dir.filePath("missing/x") +
                                              "  Path not found! "}));
    }
};

QTEST_MAIN(TestDispatcher)
#include "tst_dispatcher.moc"
