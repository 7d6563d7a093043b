// The action dispatcher: which actions an entry starts, the job-log line and result text of
// every local action, the slot order, the 5000 ms restart wait, queued dispatches, a lost log
// line ending the dispatch, a transport that completes later holding the next slot, and a real
// program started through the desktop opener. A slow open on the real thread-pool worker leaves
// the window's event loop turning and keeps the action lines in order.
#include "actionrig.h"
#include "platform/linux/desktopopener.h"
#include "platform/linux/linuxplatform.h"

#include <QElapsedTimer>
#include <QFile>
#include <QMutex>
#include <QSemaphore>

#include <algorithm>
#include <vector>

using namespace velmora;
using actions::Action;
using actions::ActionDispatcher;
using actions::PlannedAction;

Q_DECLARE_METATYPE(QList<PlannedAction>)

namespace {

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

} // namespace

class TestDispatcher : public QObject {
    Q_OBJECT
private slots:
    void entriesArePlannedByKindText_data()
    {
        QTest::addColumn<QString>("entry");
        QTest::addColumn<QList<PlannedAction>>("planned");
        using L = QList<PlannedAction>;
        QTest::newRow("alert any case, anywhere") << "my ALERT here" << L{{Action::Alert, {}}};
        QTest::newRow("restart lower case") << "restart service" << L{{Action::Restart, {}}};
        QTest::newRow("mail in capitals, keeping its blank") << "SEND EMAIL TO: x@y" << L{{Action::Email, " x@y"}};
        QTest::newRow("mail address with alert") << "Send Email to: Alert-Desk@example.org"
                                                 << L{{Action::Alert, {}}, {Action::Email, " Alert-Desk@example.org"}};
        QTest::newRow("program exactly") << "Start program: /opt/my tools/pagér.sh"
                                         << L{{Action::Program, "/opt/my tools/pagér.sh"}};
        QTest::newRow("net message keeps its blank") << "Net Message Send to: ops" << L{{Action::NetMessage, " ops"}};
        QTest::newRow("sound exactly") << "Play Sound: /snd/a b.wav" << L{{Action::Sound, "/snd/a b.wav"}};
        QTest::newRow("kind without its blank") << "Play Sound:x.wav" << L{{Action::Sound, ".wav"}};
        QTest::newRow("kind not at the start") << " Start program: /bin/x" << L{};
        QTest::newRow("unknown kind") << "Reboot Server" << L{};
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

    // Each local action writes its line and keeps the same text as its result.
    void localActionsLogTheirLineAndKeepItAsResult_data()
    {
        QTest::addColumn<QString>("entry");
        QTest::addColumn<int>("code"); // the opener's or the sound's answer
        QTest::addColumn<bool>("reachable");
        QTest::addColumn<QString>("line");
        QTest::newRow("alert") << "Alert" << 0 << true << "Alert activated";
        QTest::newRow("restart, unreachable server")
            << "Restart Service" << 0 << false << "Attemp to restart service: spooler returned error :1722";
        QTest::newRow("restart, no such service")
            << "Restart Service nosuch" << 0 << true << "Attemp to restart service: nosuch returned error :1060";
        QTest::newRow("restart, already running")
            << "Restart Service cups" << 0 << true << "Attemp to restart service: cups returned error :1056";
        QTest::newRow("program started") << "Start program: /opt/wärme/page oncall.sh" << 42 << true
                                         << "Program started: /opt/wärme/page oncall.sh";
        QTest::newRow("program not found") << "Start program: /nope" << 2 << true
                                           << "Error starting program: /nope  File not found! ";
        QTest::newRow("program, code without text") << "Start program: /x" << 0 << true << "Error starting program: /x ";
        QTest::newRow("sound") << "Play Sound: /snd/alarm.wav" << 0 << true << "Play Sound /snd/alarm.wav successfully";
        QTest::newRow("sound, bad format") << "Play Sound: /snd/notes.txt" << int(platform::sounderror::badFormat)
                                           << true << "Play Sound error: 11  /snd/notes.txt";
    }
    void localActionsLogTheirLineAndKeepItAsResult()
    {
        QFETCH(QString, entry);
        QFETCH(int, code);
        QFETCH(bool, reachable);
        QFETCH(QString, line);
        test::ActionRig w;
        w.build();
        w.sim.opener.result = code;
        w.sim.sound.play_error = code;
        w.sim.services.setReachable("SRV1", reachable);
        // The service named after "Restart Service" stands for the failed service of the row.
        const QString service = entry.startsWith("Restart Service ") ? entry.mid(16) : QStringLiteral("spooler");
        QVERIFY(w.run({entry.startsWith("Restart") ? QStringLiteral("Restart Service") : entry, "", "", "", ""}, service));
        QCOMPARE(w.lines(), QStringList{line});
        const actions::ActionResults& r = w.results();
        const QString kept = entry.startsWith("Alert")     ? r.alert
                             : entry.startsWith("Restart") ? r.restart
                             : entry.startsWith("Start")   ? r.program
                                                           : r.sound;
        QCOMPARE(kept, line);
        QCOMPARE(w.signal->isEnabled(), entry == "Alert");
    }

    // On the real clock the wait after a restart is never shorter than 5000 ms. A timer the
    // system may move to group wake-ups ends up to 250 ms early, depending on where in the second
    // it falls due, so restarts are started at spread-out moments of a second.
    void restartWaitOnTheRealClockNeverEndsEarly()
    {
        platform::LinuxPlatform real; // its clock
        constexpr int kRestarts = 8;
        std::vector<std::unique_ptr<test::ActionRig>> worlds;
        std::vector<QElapsedTimer> started(kRestarts);
        std::vector<qint64> waited(kRestarts, -1);
        for (int i = 0; i < kRestarts; ++i) {
            auto& w = *worlds.emplace_back(std::make_unique<test::ActionRig>());
            w.state.platform.clock = real.platform().clock;
            w.build();
            started[size_t(i)].start();
            w.dispatcher->runactions(w.failure({"Restart Service", "", "", "", ""}),
                                     [&, i] { waited[size_t(i)] = started[size_t(i)].elapsed(); });
            QTest::qWait(1000 / kRestarts + 3);
        }
        QTRY_VERIFY_WITH_TIMEOUT(std::all_of(waited.begin(), waited.end(), [](qint64 ms) { return ms >= 0; }), 30000);
        for (int i = 0; i < kRestarts; ++i) {
            QVERIFY(waited[size_t(i)] >= ActionDispatcher::kRestartWaitMs);
            QCOMPARE(worlds[size_t(i)]->lines(), QStringList{"Attemp to restart service : spooler Successfull"});
        }
    }

    // The restart starts the service and writes its line after the 5000 ms wait on the clock,
    // not before; the next slot waits for it.
    void slotsRunInOrderSkippingEmptyAndUnknownOnesAndTheRestartWaits()
    {
        test::ActionRig w;
        w.build();
        w.sim.opener.result = 2;
        QVERIFY(!w.run({"Play Sound: /a.wav", "", "Reboot Server", "Restart Service", "Start program: /p"}));
        QVERIFY(w.sim.services.calls().contains(QStringLiteral("start SRV1 spooler")));
        QCOMPARE(w.lines(), QStringList{"Play Sound /a.wav successfully"});
        w.sim.clock.advance(ActionDispatcher::kRestartWaitMs - 1);
        QCOMPARE(w.lines().size(), 1);
        w.sim.clock.advance(1);
        QCOMPARE(w.lines(), (QStringList{"Play Sound /a.wav successfully",
                                          "Attemp to restart service : spooler Successfull",
                                          "Error starting program: /p  File not found! "}));
        QCOMPARE(w.results().restart, QStringLiteral("Attemp to restart service : spooler Successfull"));
        QCOMPARE(w.dones, 1);
    }

    // A network message that is answered later holds the next slot; queued dispatches run in
    // call order, each message about its own failure.
    void queuedDispatchesWaitForTheMessageAndDescribeTheirOwnFailure()
    {
        test::ActionRig w;
        w.build();
        w.sim.messenger.hold = true;
        QStringList order;
        w.dispatcher->runactions(w.failure({"Net Message Send to:  ops ", "Alert", "", "", ""}),
                                 [&] { order << "first"; });
        w.dispatcher->runactions(w.failure({"Play Sound: /b.wav", "Net Message Send to: desk7", "", "", ""}, "cron", "SRV2",
                                           "Paused"),
                                 [&] { order << "second"; });
        QCOMPARE(w.results().netsendrecipient, QStringLiteral("ops"));
        QVERIFY(w.lines().isEmpty());
        QVERIFY(w.dispatcher->busy());
        w.sim.messenger.release();
        QCOMPARE(order, QStringList{"first"});
        w.sim.messenger.release();
        QCOMPARE(order, (QStringList{"first", "second"}));
        QVERIFY(!w.dispatcher->busy());
        QCOMPARE(w.lines(), (QStringList{"The Net Message was successfully sent to ops.", "Alert activated",
                                          "Play Sound /b.wav successfully",
                                          "The Net Message was successfully sent to desk7."}));
        QCOMPARE(w.sim.messenger.sent.value(0).text, QStringLiteral("Velmora:  On  SRV1  the service spooler is Stopped"));
        QCOMPARE(w.sim.messenger.sent.value(1).text, QStringLiteral("Velmora:  On  SRV2  the service cron is Paused"));
    }

    void aLostLogLineEndsTheDispatch()
    {
        test::ActionRig w;
        w.build();
        QVERIFY(QFile::remove(w.file("Jobs.log"))); // appending never creates the log
        QVERIFY(w.run({"Alert", "Start program: /p", "", "", ""}));
        QVERIFY(w.signal->isEnabled());          // the action itself happened
        QCOMPARE(w.results().alert, QString());  // its result was not set
        QVERIFY(w.sim.opener.opened.isEmpty());  // and the list stopped there
        QVERIFY(!QFile::exists(w.file("Jobs.log")));

        // A later dispatch runs normally once the log is back.
        QFile(w.file("Jobs.log")).open(QIODevice::WriteOnly);
        QVERIFY(w.run({"Start program: /p", "", "", "", ""}));
        QCOMPARE(w.lines(), QStringList{"Program started: /p"});
    }

    void aSlowOpenKeepsTheWindowTurningAndTheActionsInOrder()
    {
        test::ActionRig w;
        GatedOpener opener(w.file("Jobs.log"));
        platform::LinuxPlatform real; // its thread-pool worker
        w.state.platform.opener = &opener;
        w.state.platform.worker = real.platform().worker;
        w.build();
        // The call returns while the open waits: an open on the window's thread would hold it
        // until the open gave up, and the dispatch would have ended by then.
        QVERIFY(!w.run({"Start program: /p", "Start program: /q", "", "", ""}));
        QTRY_COMPARE_WITH_TIMEOUT(opener.linesAtCall().size(), 1, 20000);
        QVERIFY(w.lines().isEmpty());

        // The first line is written once its open has answered, and before the next open.
        opener.gate.release();
        QTRY_COMPARE_WITH_TIMEOUT(opener.linesAtCall().size(), 2, 20000);
        opener.gate.release();
        QTRY_COMPARE_WITH_TIMEOUT(w.dones, 1, 20000);
        QCOMPARE(w.lines(), (QStringList{"Program started: /p", "Program started: /q"}));
        QCOMPARE(opener.linesAtCall(), (QList<int>{0, 1}));
    }

    void realProgramIsStartedThroughTheDesktopOpener()
    {
        test::ActionRig w;
        platform::DesktopOpener opener;
        w.state.platform.opener = &opener;
        w.build();
        const QString marker = w.dir.filePath(QStringLiteral("ran"));
        const QString script = w.dir.filePath(QStringLiteral("page öncall.sh"));
        {
            QFile f(script);
            QVERIFY(f.open(QIODevice::WriteOnly));
            f.write("#!/bin/sh\necho started > '" + marker.toUtf8() + "'\n");
        }
        QFile::setPermissions(script, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        QVERIFY(w.run({"Start program: " + script, "", "", "", ""}));
        QTRY_VERIFY(QFile::exists(marker));
        QCOMPARE(w.lines(), QStringList{"Program started: " + script});
    }
};

QTEST_MAIN(TestDispatcher)
#include "tst_dispatcher.moc"
