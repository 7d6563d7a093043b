#include "support/windowfixture.h"
#include "core/serverfile.h"
#include "core/serverlistfile.h"
#include "monitoring/setupwindow.h"
#include "platform/errorreasons.h"

#include <QComboBox>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QRegularExpression>
#include <QTest>
#include <QTreeWidget>

#include <sys/stat.h>
#include <unistd.h>

using namespace velmora;
using platform::MsgIcon;
using test::crlf;
using test::WindowFixture;

class TestMainWindow : public QObject {
    Q_OBJECT
private slots:
    void firstRunCreatesDefaultsAndCloseBoxWritesBothFiles()
    {
        WindowFixture f;
        // Which leftovers a start takes away is tried with the file backend itself.
        f.writeFile(".Computerlist.velmora-tmp-Ab3dE9", {"half"});
        auto& w = f.start();
        QVERIFY(!f.fileExists(".Computerlist.velmora-tmp-Ab3dE9"));
        QCOMPARE(w.Text7->text(), f.dir.path());
        // The first scan ran at the end of start-up and enabled the immediate check.
        QVERIFY(w.Command9->isEnabled());
        QVERIFY(w.mnuChecknow->isEnabled());
        QVERIFY(!f.fileExists("Computerlist"));

        w.close();
        QVERIFY(f.sim.app.ended());
        QCOMPARE(f.readBytes("Computerlist"), QByteArray());
        const QList<QByteArray> settings = f.readBytes("Settings").split('\n');
        QCOMPARE(settings.size(), 21); // 20 lines and the empty rest after the last CR LF
        QCOMPARE(settings.first(), QByteArray("True\r"));
        QCOMPARE(settings[18], f.path("AutoExport.txt").toUtf8() + "\r");
        QCOMPARE(settings[19], QByteArray("eof\r"));
    }

    void serverListIsReadWithIconsAndMonitoredServersAreMigrated()
    {
        WindowFixture f;
        f.writeFile("Computers", {"DC1", "FS2", "DC3"});
        // DC1's file has stray blank lines and no properties block; DC3's is tidy already and
        // is left untouched.
        f.writeFile("DC1", {"", "Spooler;Spooler;Alert;;;;;", ""});
        f.writeFile("DC3", QStringList{"Print Spooler;spooler;Alert;;;;;"} + core::emptyPropertiesTemplate());
        const QDateTime old(QDate(2020, 1, 1), QTime(12, 0));
        {
            QFile file(f.path("DC3"));
            QVERIFY(file.open(QIODevice::ReadWrite) && file.setFileTime(old, QFileDevice::FileModificationTime));
        }
        f.sim.icmp.addComputer("DC1", "10.0.0.1", 0);
        f.sim.icmp.addComputer("FS2", "10.0.0.2", 11010);
        f.sim.icmp.addComputer("DC3", "10.0.0.3", 0);
        auto& w = f.start();

        // The list made from "Computers" is pinned with the start-up; here the window shows it.
        QCOMPARE(f.serverNames(), (QStringList{"DC1", "FS2", "DC3"}));
        QCOMPARE(w.Text1->text(), QStringLiteral("DC1"));
        QCOMPARE(QFileInfo(f.path("DC3")).lastModified(), old);
        QCOMPARE(f.readBytes("DC1"), crlf(QStringList{"Spooler;Spooler;Alert;;;;;"} + core::emptyPropertiesTemplate()));
        QVERIFY(!f.fileExists("FS2")); // only existing files are tidied
        QCOMPARE(f.sim.icmp.last_data, QByteArray("HelloServer"));
        // A red icon says why: the server's own last ping result and address.
        QCOMPARE(w.findServer("FS2")->toolTip(0), QStringLiteral("10.0.0.2   11010   [ ip req timed out ]\n") +
                                                      platform::pingStatusReason(11010));
    }

    void waysOutWriteExactlyTheirFiles_data()
    {
        QTest::addColumn<QString>("way");
        QTest::addColumn<bool>("writesFiles");
        QTest::addColumn<int>("soundStops");
        QTest::newRow("close box") << "close" << true << 1;
        QTest::newRow("Exit Program") << "Command4" << true << 1;
        QTest::newRow("menu Exit") << "mnuExit" << false << 1;
        QTest::newRow("tray Exit") << "mnuTrayExit" << false << 0;
    }

    void waysOutWriteExactlyTheirFiles()
    {
        QFETCH(QString, way);
        QFETCH(bool, writesFiles);
        QFETCH(int, soundStops);
        WindowFixture f;
        f.writeFile("Computerlist", {"OLD"});
        f.sim.icmp.addComputer("OLD", "10.0.0.9", 0);
        auto& w = f.start();
        w.Command10->click(); // "&Local " adds this computer without writing the list
        QCOMPARE(f.readBytes("Computerlist"), QByteArray("OLD\r\n"));
        f.sim.tray.add();

        if (way == "close")
            w.close();
        else if (way == "Command4")
            w.Command4->click();
        else if (way == "mnuExit")
            w.mnuExit->trigger();
        else
            w.mnuTrayExit->trigger();

        QVERIFY(f.sim.app.ended());
        QVERIFY(!f.sim.tray.shown());
        QCOMPARE(f.sim.sound.stops, soundStops);
        QCOMPARE(f.fileExists("Settings"), writesFiles);
        QCOMPARE(f.readBytes("Computerlist"), writesFiles ? QByteArray("OLD\r\nADMINPC\r\n") : QByteArray("OLD\r\n"));
        if (writesFiles)
            QCOMPARE(f.sim.net.cancelled, QStringList{"OLD"}); // never the local computer
        for (platform::Timer* t : {w.services->Timer1, w.Timer5, w.Timer6, w.Timer8, w.Timer9})
            QVERIFY(!t->isEnabled());
    }

    void unsuitableSystemOrSecondCopyEndsBeforeTouchingFiles_data()
    {
        QTest::addColumn<int>("platformId"); // other than 2 (NT) the box is a warning, else an error
        QTest::addColumn<bool>("otherRunning");
        QTest::addColumn<QString>("message");
        QTest::addColumn<QString>("instanceProblem");
        QTest::addColumn<int>("folderMode"); // of the data folder; -1: it belongs to another user
        const QString notNt = "This Program is designed for Windows NT/2000/XP only !         ";
        QTest::newRow("Windows 95") << 1 << false << notNt << QString() << 0700;
        QTest::newRow("second copy") << 2 << true << "Only one Instance allowed !         " << QString() << 0700;
        // No folder of this user's own to meet other copies in: told why, and no second box.
        const QString why = "The folder /run/user/1000/velmora belongs to another user.";
        QTest::newRow("no private folder") << 2 << true << why << why << 0700;
        // A data folder somebody else may write into: links put there could steer the writes.
        QTest::newRow("folder open to all") << 2 << false << "every user may write into it (its mode is 1777)"
                                            << QString() << 01777;
        QTest::newRow("folder open to the group") << 2 << false << "its group may write into it (its mode is 0770)"
                                                  << QString() << 0770;
        QTest::newRow("folder of another user") << 2 << false << "it belongs to the user nobody" << QString() << -1;
    }

    void unsuitableSystemOrSecondCopyEndsBeforeTouchingFiles()
    {
        QFETCH(int, platformId);
        QFETCH(bool, otherRunning);
        QFETCH(QString, message);
        QFETCH(QString, instanceProblem);
        QFETCH(int, folderMode);
        WindowFixture f;
        f.sim.system.platform_id = platformId;
        f.sim.instance.other_running = otherRunning;
        f.sim.instance.problem_text = instanceProblem;
        f.writeFile("Computers", {"DC1"});
        // Nobody takes away a temporary copy that another copy may be writing at this moment.
        f.writeFile(".Computers.velmora-tmp-Ab3dE9", {"DC1"});
        const QByteArray folder = QFile::encodeName(f.dir.path());
        if (folderMode == -1 && ::geteuid() != 0)
            QSKIP("giving a folder to another user needs root");
        QVERIFY(folderMode == -1 ? ::chown(folder.constData(), 65534, 65534) == 0
                                 : ::chmod(folder.constData(), mode_t(folderMode)) == 0);
        auto& w = f.start();
        QVERIFY(f.sim.app.ended());
        QCOMPARE(f.sim.boxes.texts().size(), 1);
        QVERIFY2(f.sim.boxes.texts().first().contains(message), qPrintable(f.sim.boxes.texts().first()));
        QVERIFY(f.fileExists(".Computers.velmora-tmp-Ab3dE9"));
        QCOMPARE(f.sim.boxes.shown.first().icon, platformId == 2 ? MsgIcon::Critical : MsgIcon::Exclamation);
        QCOMPARE(f.sim.instance.activations, otherRunning && instanceProblem.isEmpty() ? 1 : 0);
        QVERIFY(!f.fileExists("Jobs.log"));
        QVERIFY(!f.fileExists("Interval"));
        QVERIFY(!f.fileExists("Computerlist"));
        QVERIFY(!w.isVisible());
        QVERIFY(!w.Timer5->isEnabled());
    }

    // The program's folder keeps no data when it cannot be written (an installed copy) or is a
    // build folder, which a clean rebuild deletes: the per-user folder does. A server list left in
    // the program's folder is not shown, and the user is told once where it lies and why.
    void programFolderThatKeepsNoDataLeavesItToTheUserFolder_data()
    {
        QTest::addColumn<bool>("buildFolder");
        QTest::newRow("read-only") << false;
        QTest::newRow("build folder") << true;
    }

    void programFolderThatKeepsNoDataLeavesItToTheUserFolder()
    {
        QFETCH(bool, buildFolder);
        WindowFixture f;
        f.writeFile("Computerlist", {"DC1"});
        if (buildFolder)
            f.writeFile("CMakeCache.txt", {"CMAKE_BUILD_TYPE:STRING=Release"});
        else
            f.sim.system.program_folder_writable = false;
        QDir().mkpath(f.sim.system.user_data_folder);
        auto& w = f.start();
        QCOMPARE(w.Text7->text(), f.sim.system.user_data_folder);
        QVERIFY(QFile::exists(f.sim.system.user_data_folder + "/Jobs.log"));
        QVERIFY(!f.fileExists("Jobs.log"));
        QCOMPARE(f.sim.boxes.shown.size(), 1);
        const QString text = f.sim.boxes.shown.first().text;
        QVERIFY2(text.contains(QDir::cleanPath(f.sim.system.program_folder)) &&
                     text.contains(f.sim.system.user_data_folder) &&
                     text.contains(buildFolder ? "clean rebuild" : "cannot be written"),
                 qPrintable(text));
        QCOMPARE(f.readBytes("Computerlist"), QByteArray("DC1\r\n")); // left as it was
    }

    // A server list beyond the limits is refused with a box, never loaded, and left as it is,
    // also by the close box; the monitored servers are still watched.
    void aServerListBeyondTheLimitsIsRefusedAndLeftAsItIs_data()
    {
        QTest::addColumn<int>("names");
        QTest::addColumn<QString>("said");
        QTest::newRow("3.58 million names, 54 MB") << 3580000 << "is 54.6 MB large";
        QTest::newRow("20,001 names") << 20001 << "names 20,001 servers";
    }
    void aServerListBeyondTheLimitsIsRefusedAndLeftAsItIs()
    {
        QFETCH(int, names);
        QFETCH(QString, said);
        WindowFixture f;
        QByteArray list;
        list.reserve(qsizetype(names) * 16);
        for (int i = 0; i < names; ++i)
            list += "SERVER-" + QByteArray::number(i).rightJustified(7, '0') + "\r\n";
        f.writeBytes("Computerlist", list);
        f.writeFile("Computers", {"DC1"});
        auto& w = f.start();
        QCOMPARE(f.sim.boxes.texts().size(), 1);
        const QString text = f.sim.boxes.texts().first();
        QVERIFY2(text.contains(f.path("Computerlist")) && text.contains(said) && text.contains("20,000"), qPrintable(text));
        QCOMPARE(w.ListView2->topLevelItemCount(), 0);
        QCOMPARE(w.Combo1->currentText(), QString("DC1"));
        w.close();
        QVERIFY(f.sim.app.ended());
        QVERIFY(f.readBytes("Computerlist") == list);
    }

    // The session ends (a termination signal) while the close box's "Could not save" is open: no
    // further box, what can be written is, what cannot is told on standard error and in the job
    // log, and the program ends. (A session end alone is tested on a real full disk.)
    void aSessionEndDuringTheCloseBoxsBoxSavesWhatItCanAndEnds()
    {
        WindowFixture f;
        f.writeFile("Computerlist", {"OLD"});
        auto& w = f.start();
        f.sim.files.failOn(platform::sim::SimTextFiles::Op::Write, "computerlist");
        int terminations = 0;
        // Every signal that comes while a box is open ends the session again, as a system that
        // sends SIGTERM repeatedly would.
        f.sim.boxes.whileOpen = [&](const platform::sim::ShownBox&) {
            if (++terminations <= 3)
                f.sim.app.session_end();
        };
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression("^Velmora: Could not save \".*Computerlist\""));
        w.close();
        QVERIFY(f.sim.app.ended());
        QCOMPARE(f.sim.boxes.shown.size(), 1);
        QCOMPARE(f.readBytes("Computerlist"), QByteArray("OLD\r\n"));
        QVERIFY(f.fileExists("Settings"));
        QCOMPARE(f.logLines().filter("Could not save").filter("Computerlist").size(), 1);
    }

    // Without an ICMP socket: one box and one job-log line say why, and no server is shown as
    // answering.
    void noPingPermissionIsToldOnceAndNoServerAnswers()
    {
        WindowFixture f;
        f.writeFile("Computerlist", {"DC1"});
        f.sim.icmp.addComputer("DC1", "10.1.0.1", 0);
        f.sim.icmp.unavailable_reason = "This computer does not let Velmora send pings.\nRun setcap cap_net_raw+ep.";
        auto& w = f.start();
        QCOMPARE(f.sim.boxes.texts(), QStringList{f.sim.icmp.unavailable_reason});
        QVERIFY(QString::fromUtf8(f.readBytes("Jobs.log")).contains("does not let Velmora send pings. Run setcap"));
        QCOMPARE(shell::MainWindow::serverIcon(w.findServer("DC1")), 8);
    }

    void timer9RepingsEveryServerAndFlipsOnlyReachability()
    {
        WindowFixture f;
        f.writeFile("Computerlist", {"SRV1\tmonitored", "SRV2", "SRV3\tmonitored"});
        f.sim.icmp.addComputer("SRV1", "10.1.0.1", 0);
        f.sim.icmp.addComputer("SRV2", "10.1.0.2", 0);
        f.sim.icmp.addComputer("SRV3", "10.1.0.3", 11003);
        auto& w = f.start();
        QCOMPARE(f.serverIcons(), (QList<int>{9, 7, 10}));

        f.sim.icmp.setStatus("SRV1", 11010);
        f.sim.icmp.setStatus("SRV2", 11002);
        f.sim.icmp.setStatus("SRV3", 0);
        f.sim.icmp.pinged.clear();
        f.sim.clock.advance(59000 - 1000);
        QCOMPARE(f.serverIcons(), (QList<int>{9, 7, 10}));
        f.sim.clock.advance(1000);
        QCOMPARE(f.sim.icmp.pinged, (QStringList{"10.1.0.1", "10.1.0.2", "10.1.0.3"}));
        QCOMPARE(f.serverIcons(), (QList<int>{10, 8, 9}));
    }

    void hugeServerListTakesTheCloseBoxWhileItsAnswersComeIn()
    {
        // As many servers as a list may hold: the answers of one ping batch come in slices, and
        // the window takes the close box between two of them; once closed, nothing more is
        // applied.
        constexpr int servers = core::kMaxServers;
        WindowFixture f;
        QByteArray list;
        list.reserve(servers * 10);
        for (int i = 0; i < servers; ++i)
            list += "S" + QByteArray::number(i) + "\r\n";
        f.writeBytes("Computerlist", list);
        f.sim.icmp.addComputer("S0", "10.1.0.1", 0);
        auto& w = f.start();
        QCOMPARE(w.ListView2->topLevelItemCount(), servers);
        const auto pending = [&] {
            int n = 0;
            for (int row = 0; row < servers; ++row)
                n += f.program->servers.at(row).pending;
            return n;
        };
        QCOMPARE(f.program->servers.at(0).pingresult, QStringLiteral("0   [ ip success ]"));
        const int waiting = pending();
        QVERIFY2(waiting > 0, "every answer was applied before the window could take a close");

        w.close();
        QVERIFY(f.sim.app.ended());
        QTest::qWait(50);
        QCOMPARE(pending(), waiting);
        QCOMPARE(f.readBytes("Computerlist"), list);
    }

    void showServicesChecksTheServerFirst()
    {
        {
            WindowFixture f;
            auto& w = f.start();
            w.services->Command2->click();
            QCOMPARE(f.sim.boxes.texts(), QStringList{"No servers listet, please add servers to be monitored"});
        }
        WindowFixture g;
        g.writeFile("Computerlist", {"UP\tmonitored", "DOWN"});
        g.sim.icmp.addComputer("UP", "10.2.0.1", 0);
        g.sim.services.addService("UP", {.name = "cron.service", .displayName = "Regular background jobs",
                                         .state = platform::svcstate::running});
        auto& w = g.start();
        g.program->setupWindow()->ListView1->addTopLevelItem(new QTreeWidgetItem({"old"}));

        w.ListView2->setCurrentItem(w.ListView2->topLevelItem(1));
        w.selectServer();
        QCOMPARE(w.Text1->text(), QStringLiteral("DOWN"));
        w.services->Text3->setText("x");
        w.services->Command2->click();
        QCOMPARE(g.sim.boxes.texts().last(), QStringLiteral("Selected Server is not available, can not show Services !"));
        QCOMPARE(w.services->Label1->text(), QStringLiteral("Services:"));
        QCOMPARE(w.services->Text3->text(), QString());
        QCOMPARE(g.program->setupWindow()->ListView1->topLevelItemCount(), 0);
        QVERIFY(g.sim.services.calls().isEmpty());
        // Listing a server that answers is tried with the service panel.
    }

    // A failed connection is told (a successful one in the service panel's tests).
    void validationFailsWithItsCodeAndTakesNoCredentialFromTheWindow()
    {
        WindowFixture f;
        auto& w = f.start();
        // No field of the window is a source of credentials, whatever it holds: the connection
        // layer asks for them itself and keeps them out of every widget.
        for (QLineEdit* field : w.findChildren<QLineEdit*>())
            if (field->isHidden())
                field->setText("secret");
        f.sim.net.result = 1326;
        f.program->connections.validate("SRV1");
        QCOMPARE(f.sim.boxes.texts(), QStringList{"ERROR: 1326   Connection to Server:  SRV1  Failed!        "});
        QCOMPARE(f.sim.net.last_user, QString());
        QCOMPARE(f.sim.net.last_password, QString());
        // The local computer's connection is never closed, however its name is spelled.
        f.program->connections.unvalidate(w.state.localcomputer.toLower());
        f.program->connections.unvalidate(w.state.localcomputer.toUpper());
        f.program->connections.unvalidate("SRV1");
        QCOMPARE(f.sim.net.cancelled, QStringList{"SRV1"});
        // The service manager's connection through it is dropped as well.
        QCOMPARE(f.sim.services.calls().filter("disconnect"), QStringList{"disconnect SRV1"});
    }

    void damagedFilesStillStart()
    {
        WindowFixture f;
        QByteArray garbage;
        for (int i = 0; i < 4096; ++i)
            garbage.append(char((i * 7919) % 256));
        f.writeBytes("Computerlist", garbage);
        f.writeBytes("Computers", garbage);
        f.writeBytes("Settings", "True\r\nmaybe\r\n5\r\n");
        f.writeBytes("Interval", "");
        f.writeBytes("SMTPServer", "mail.example.org\r\n99999\r\n");
        auto& w = f.start();
        // What each file's damage leaves is pinned where the files are read; here the program
        // starts on them all and ends writing its own.
        QVERIFY(!f.sim.app.ended());
        QVERIFY(w.state.settings.popupalert);
        w.close();
        QVERIFY(f.fileExists("Settings"));
    }
};

QTEST_MAIN(TestMainWindow)
#include "tst_mainwindow.moc"
