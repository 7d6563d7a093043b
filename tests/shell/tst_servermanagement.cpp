// Server management from the main window: the Add Server dialog, Remove Server, maintenance
// (with and without an end) and the Server Properties window, the names that may never become
// servers because their files are the program's own, and which servers are Windows servers (kept
// in "ServerTypes"; a changed kind closes the server's connections, removing a server forgets it).
#include "core/datafolder.h"
#include "core/monitoredservices.h"
#include "core/serverfile.h"
#include "monitoring/setupwindow.h"
#include "shell/addserverdialog.h"
#include "shell/maintenancedialog.h"
#include "shell/propertieswindow.h"
#include "support/windowfixture.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDateTimeEdit>
#include <QGroupBox>
#include <QLineEdit>
#include <QListWidget>
#include <QMenu>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QTest>
#include <QTreeWidget>

using namespace velmora;
using platform::MsgAnswer;
using platform::MsgButtons;
using platform::sim::SimTextFiles;
using test::crlf;
using test::released;
using test::WindowFixture;
namespace svcstate = platform::svcstate;

namespace {

bool dimmed(const shell::MainWindow& w, const QString& name)
{
    const QTreeWidgetItem* item = w.findServer(name);
    return item && item->foreground(0) == w.ListView2->palette().brush(QPalette::Disabled, QPalette::Text);
}

QStringList block() { return core::emptyPropertiesTemplate(); }

// The files the program keeps or runs from, each filled with something a test can recognise.
const QStringList kOwnFiles{"Computerlist", "Computers", "Settings",        "Interval",        "Jobs.log",
                            "SMTPServer",   "MailProfile", "AutoExport.txt", "velmorahelp.chm", "ServerTypes",
                            "SMTPOptions",  "velmora-svcctl", "velmora"};

const QString kTypeNotSaved = "Could not save the server type of %1. It remains a %2 server.";

} // namespace


class TestServerManagement : public QObject {
    Q_OBJECT
private slots:
    // Add Server keeps the dialog open as it was after each refusal, adds with the kind chosen
    // (each opening starts as a systemd server) and stores the kind in "ServerTypes"; "&Browse..."
    // adds and writes the list at once, "&Local " adds and writes it only at the exit.
    void addingServers()
    {
        WindowFixture f;
        f.writeFile("Computerlist", {"FS1"});
        // Left from an earlier server of the same name: adding it again asks anew.
        f.writeFile("ServerTypes", {"OLDHOST\twindows"});
        f.sim.icmp.addComputer("FS1", "10.5.0.1", 0);
        f.sim.icmp.addComputer("NEWHOST", "10.5.0.2", 0);
        f.sim.icmp.addComputer("DARK", "10.5.0.3", 11010);
        f.sim.icmp.addComputer("BROWSED", "10.5.0.4", 11010);
        auto& w = f.start();

        w.Command13->click();
        QPointer<shell::AddServerDialog> d = w.addServerDialog();
        QVERIFY(!d->Check1->isChecked());
        d->Check1->setChecked(true);
        const QList<std::pair<QString, QString>> refused{
            {"", "Invalid Servername !"},
            {"fs1", "Item already exists !"},
            {"computers", core::reservedNameText("COMPUTERS", "Computers")},
        };
        for (const auto& [typed, box] : refused) {
            d->Text1->setText(typed);
            d->OKButton->click();
            QCOMPARE(f.sim.boxes.texts().last(), box);
            QVERIFY(d->isVisible());
            QCOMPARE(d->Text1->text(), typed);
            QVERIFY(d->Check1->isChecked());
        }
        QCOMPARE(f.serverNames(), QStringList{"FS1"});

        d->Text1->setText("newhost");
        d->OKButton->click();
        QVERIFY(released(d));
        QCOMPARE(f.serverNames(), (QStringList{"FS1", "NEWHOST"}));
        QCOMPARE(f.serverIcons(), (QList<int>{7, 7}));
        QCOMPARE(f.readBytes("Computerlist"), crlf({"FS1", "NEWHOST"}));
        QCOMPARE(f.readBytes("ServerTypes"), crlf({"OLDHOST\twindows", "NEWHOST\twindows"}));

        // The menu item opens it too, empty again; a server that does not answer gets icon 8.
        w.mnuaddserver->trigger();
        d = w.addServerDialog();
        QCOMPARE(d->Text1->text(), QString());
        QVERIFY(!d->Check1->isChecked());
        d->Text1->setText("dark");
        d->OKButton->click();
        QCOMPARE(f.serverIcons(), (QList<int>{7, 7, 8}));
        w.Command13->click();
        w.addServerDialog()->Text1->setText("oldhost");
        w.addServerDialog()->OKButton->click();
        QCOMPARE(f.readBytes("ServerTypes"), crlf({"NEWHOST\twindows"}));
        // Cancel adds and stores nothing.
        w.Command13->click();
        d = w.addServerDialog();
        d->Text1->setText("never");
        d->Check1->setChecked(true);
        d->CancelButton->click();
        QVERIFY(released(d));
        QVERIFY(!f.sim.serverkinds.isWindows("NEVER"));
        QCOMPARE(f.readBytes("Computerlist"), crlf({"FS1", "NEWHOST", "DARK", "OLDHOST"}));

        // A kind that cannot be stored: the server is added as a systemd server, and the user told.
        f.sim.files.failOn(SimTextFiles::Op::Write, "ServerTypes");
        w.Command13->click();
        d = w.addServerDialog();
        d->Text1->setText("win1");
        d->Check1->setChecked(true);
        d->OKButton->click();
        QCOMPARE(f.sim.boxes.texts().last(), kTypeNotSaved.arg("WIN1", "systemd"));
        QVERIFY(released(d));
        QVERIFY(!f.sim.serverkinds.isWindows("WIN1"));
        QCOMPARE(f.readBytes("ServerTypes"), crlf({"NEWHOST\twindows"}));
        f.sim.files.clearFailures();

        f.sim.chooser.answer = "browsed";
        w.Command3->click();
        QCOMPARE(f.serverNames().last(), QStringLiteral("BROWSED"));
        QCOMPARE(f.serverIcons().last(), 8);
        QCOMPARE(f.readBytes("Computerlist"), crlf({"FS1", "NEWHOST", "DARK", "OLDHOST", "WIN1", "BROWSED"}));

        f.sim.system.computer_name = "adminpc";
        w.Command10->click();
        QCOMPARE(f.serverNames().last(), QStringLiteral("ADMINPC"));
        QCOMPARE(f.serverIcons().last(), 7); // shown reachable without a ping
        QCOMPARE(f.readBytes("Computerlist"), crlf({"FS1", "NEWHOST", "DARK", "OLDHOST", "WIN1", "BROWSED"}));
        QCOMPARE(w.Combo1->count(), 0); // not monitored
    }
    // Every way a name comes in refuses a name whose file would be one of the program's own,
    // and none of those files is touched by trying.
    void everyWayInRefusesTheProgramsOwnFiles_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("file");
        for (const QString& file : kOwnFiles) {
            QTest::addRow("%s", qPrintable(file)) << file.toUpper() << file;
            QTest::addRow("%s lower", qPrintable(file)) << file.toLower() << file;
        }
        QTest::addRow("mail profile, other spelling") << "Mailprofile" << "MailProfile";
        QTest::addRow("job log, other spelling") << "jobs.log" << "Jobs.log";
        QTest::addRow("this folder") << "." << ".";
        QTest::addRow("the folder above") << ".." << "..";
    }
    void everyWayInRefusesTheProgramsOwnFiles()
    {
        QFETCH(QString, name);
        QFETCH(QString, file);
        WindowFixture f;
        QHash<QString, QByteArray> before;
        f.writeFile("Interval", {"30"});
        f.writeFile("Computerlist", {"FS1"});
        for (const QString& own : kOwnFiles) {
            if (own == "Computerlist" || own == "Interval")
                continue;
            f.writeBytes(own, own == "velmora" ? QByteArray("\x7f" "ELF\x02\x01\x01\0\0\r\n\xff", 13)
                                               : crlf({"kept " + own}));
        }
        for (const QString& own : kOwnFiles)
            before.insert(own, f.readBytes(own));
        auto& w = f.start();
        // The log grows with the start-up scan's lines; what matters is that no refused name
        // touched it.
        before["Jobs.log"] = f.readBytes("Jobs.log");
        const QString box = core::reservedNameText(name.toUpper(), file);
        const qsizetype boxesAtStart = f.sim.boxes.texts().size(); // the mail settings may have spoken

        // Add Server.
        w.Command13->click();
        w.addServerDialog()->Text1->setText(name);
        w.addServerDialog()->OKButton->click();
        QCOMPARE(f.sim.boxes.texts().last(), box);
        w.addServerDialog()->CancelButton->click();
        // "&Browse...".
        f.sim.chooser.answer = name;
        w.Command3->click();
        QCOMPARE(f.sim.boxes.texts().last(), box);
        // "&Local ".
        f.sim.system.computer_name = name;
        w.Command10->click();
        QCOMPARE(f.sim.boxes.texts().last(), box);
        QCOMPARE(f.sim.boxes.texts().size(), boxesAtStart + 3);
        QCOMPARE(f.serverNames(), QStringList{"FS1"});

        for (const QString& own : kOwnFiles)
            QCOMPARE(f.readBytes(own), before.value(own));
        QCOMPARE(f.readBytes("Computerlist"), crlf({"FS1"}));
    }

    // Names in hand-edited lists: the server is passed over with one job-log line at start-up,
    // the program file and "Computers" are never opened as its file, and the scan goes on
    // with the other servers.
    void handEditedListsSkipTheProgramsOwnFiles()
    {
        WindowFixture f;
        const QByteArray program("\x7f" "ELF\x02\x01\x01\0\0\0\0\0\0\0\0\0", 16);
        f.writeBytes("velmora", program);
        f.writeFile("Computerlist", {"VELMORA\tmonitored", "Computers", "DC1\tmonitored", "settings"});
        const QByteArray computers = crlf({"velmora", "COMPUTERS", "DC1"});
        f.writeBytes("Computers", computers);
        f.writeFile("DC1", QStringList{"Web;nginx.service;;;;;;"} + block());
        f.writeFile("Interval", {"30"});
        f.sim.icmp.addComputer("DC1", "10.5.0.1", 0);
        f.sim.services.addService("DC1", {.name = "nginx.service", .state = svcstate::running});
        auto& w = f.start();

        QCOMPARE(f.serverNames(), QStringList{"DC1"});
        QCOMPARE(w.Combo1->count(), 1);
        QCOMPARE(w.Combo1->itemText(0), QStringLiteral("DC1"));
        const QStringList log = f.logLines();
        QCOMPARE(log, (QStringList{"velmora\t" + core::reservedNameLogText("velmora"),
                                   "COMPUTERS\t" + core::reservedNameLogText("Computers"),
                                   "settings\t" + core::reservedNameLogText("Settings"),
                                   "DC1\tnginx.service\tRunning"}));

        // The next scans pass over them silently.
        f.sim.clock.advance(30 * 60 * 1000);
        QCOMPARE(f.logLines().mid(log.size()), QStringList{"DC1\tnginx.service\tRunning"});

        w.close();
        QCOMPARE(f.readBytes("Computerlist"), crlf({"DC1\tmonitored"}));
        QCOMPARE(f.readBytes("velmora"), program);
        QCOMPARE(f.readBytes("Computers"), computers);
    }

    // Removing asks first (in other words for a monitored server), deletes the server's file and
    // forgets its kind; a monitored one also leaves "Computers", its connection, the combo and
    // the setup window. "Computerlist" is written when the program ends.
    void removingServers()
    {
        WindowFixture f;
        f.writeFile("Computerlist", {"FS1", "DC1\tmonitored", "WEB1\tmonitored", "LOST\tmonitored"});
        f.writeFile("Computers", {"DC1", "WEB1"});
        f.writeFile("FS1", block());
        f.writeFile("DC1", QStringList{"Web;nginx.service;;;;;;"} + block());
        f.writeFile("WEB1", QStringList{"Web;nginx.service;;;;;;"} + block());
        f.writeFile("LOST", block());
        f.writeFile("ServerTypes", {"DC1\twindows"});
        auto& w = f.start();
        f.sim.net.cancelled.clear();
        const QByteArray computerlist = f.readBytes("Computerlist");
        auto* setup = f.program->setupWindow();
        QCOMPARE(setup->List3->count(), 2);

        f.select("FS1");
        w.services->Text2->setText("Running");
        f.sim.boxes.script(MsgAnswer::Cancel);
        w.Command14->click();
        QCOMPARE(f.sim.boxes.texts(), QStringList{"Are you sure to remove the Server?     "});
        QCOMPARE(int(f.sim.boxes.shown.last().buttons), int(MsgButtons::OkCancel));
        QVERIFY(f.fileExists("FS1"));
        w.mnuremoveserver->trigger();
        QVERIFY(!f.fileExists("FS1"));
        QCOMPARE(w.services->Text2->text(), QString());
        QVERIFY(f.sim.net.cancelled.isEmpty());

        f.select("DC1");
        f.sim.boxes.script(MsgAnswer::Cancel);
        w.Command14->click();
        const QString ask = "The Server to be removed is beeing monitored. Are you sure to remove the Server?     ";
        QCOMPARE(f.sim.boxes.texts().last(), ask);
        QVERIFY(f.fileExists("DC1"));
        QCOMPARE(f.readBytes("Computers"), crlf({"DC1", "WEB1"}));
        w.Command14->click();
        QCOMPARE(f.serverNames(), (QStringList{"WEB1", "LOST"}));
        QVERIFY(!f.fileExists("DC1"));
        QCOMPARE(f.readBytes("Computers"), crlf({"WEB1"}));
        QCOMPARE(f.readBytes("ServerTypes"), QByteArray());
        QCOMPARE(f.sim.net.cancelled, QStringList{"DC1"});
        QCOMPARE(w.Combo1->count(), 1);
        QCOMPARE(setup->List3->count(), 1);
        QCOMPARE(f.readBytes("Computerlist"), computerlist);

        // Monitored by its icon but missing from "Computers": only its item goes.
        f.select("LOST");
        w.Command14->click();
        QCOMPARE(f.sim.boxes.texts().last(), ask);
        QCOMPARE(f.serverNames(), QStringList{"WEB1"});
        QVERIFY(f.fileExists("LOST"));
        QCOMPARE(f.readBytes("Computers"), crlf({"WEB1"}));

        // A "Computers" that cannot be written keeps the server, its file and its connection.
        f.sim.files.failOn(SimTextFiles::Op::Write, "Computers");
        f.select("WEB1");
        w.Command14->click();
        QVERIFY(f.sim.boxes.texts().last().startsWith("Could not save"));
        QCOMPARE(f.serverNames(), QStringList{"WEB1"});
        QVERIFY(f.fileExists("WEB1"));
        QCOMPARE(f.sim.net.cancelled, QStringList{"DC1"});
        f.sim.files.clearFailures();

        // Added again without the choice, a server that was a Windows server is a systemd one.
        w.Command13->click();
        w.addServerDialog()->Text1->setText("dc1");
        w.addServerDialog()->OKButton->click();
        QVERIFY(!f.sim.serverkinds.isWindows("DC1"));
        w.close();
        QCOMPARE(f.readBytes("Computerlist"), crlf({"WEB1\tmonitored", "DC1"}));
    }
    // The list has a focused item before the user ever clicks, and keeps it after Ctrl+click
    // has deselected it: the commands go by the selection, so with none they act on nothing.
    void commandsActOnTheSelectedServerNotTheFocusedOne_data()
    {
        QTest::addColumn<bool>("clicked");
        QTest::addColumn<QString>("command");
        QTest::addColumn<QStringList>("boxes");
        const QStringList select{"Please select an Item "};
        for (bool clicked : {false, true}) {
            const char* way = clicked ? "click, Ctrl+click" : "no click";
            QTest::addRow("%s, Remove Server", way) << clicked << "Command14" << select;
            QTest::addRow("%s, Stop Alerting", way) << clicked << "mnumaintenance" << QStringList();
            QTest::addRow("%s, right click", way) << clicked << "right click" << select;
        }
    }
    void commandsActOnTheSelectedServerNotTheFocusedOne()
    {
        QFETCH(bool, clicked);
        QFETCH(QString, command);
        QFETCH(QStringList, boxes);
        WindowFixture f;
        f.writeFile("Computerlist", {"VM\tmonitored", "LOST\tmonitored", "FS1"});
        f.writeFile("Computers", {"VM"});
        f.writeFile("VM", QStringList{"Web;nginx.service;;;;;;"} + block());
        auto& w = f.start();
        auto* setup = f.program->setupWindow();
        setup->List7->addItem("Alert");
        w.activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(&w));
        w.ListView2->setFocus(Qt::TabFocusReason);
        if (clicked) {
            const QPoint at = w.ListView2->visualItemRect(w.findServer("FS1")).center();
            QTest::mouseClick(w.ListView2->viewport(), Qt::LeftButton, {}, at);
            QTest::mouseClick(w.ListView2->viewport(), Qt::LeftButton, Qt::ControlModifier, at);
        }
        QVERIFY(w.ListView2->currentItem());
        QVERIFY(w.ListView2->selectedItems().isEmpty());

        if (command == "right click")
            QTest::mousePress(w.ListView2->viewport(), Qt::RightButton, {},
                              QPoint(5, w.ListView2->viewport()->height() - 5));
        else if (command == "Command14")
            w.Command14->click();
        else
            w.mnumaintenance->trigger();
        QCOMPARE(f.sim.boxes.texts(), boxes);
        QVERIFY(!w.mnushowmonitor->isVisible());
        QCOMPARE(f.serverNames(), (QStringList{"VM", "LOST", "FS1"}));
        QVERIFY(f.fileExists("VM"));
        QCOMPARE(f.readBytes("Computers"), crlf({"VM"}));
        QVERIFY(!f.program->servers.find("VM")->maintenance);
        // Remove Server without a selection empties the setup window's action list.
        QCOMPARE(setup->List7->count(), command == "Command14" ? 0 : 1);
    }

    // Maintenance dims the server and the timed scan passes over it; one with an end stops by
    // itself, with one line in the job log, before the scan of the same second.
    void maintenanceInTheScanAndItsEnd()
    {
        WindowFixture f;
        f.writeFile("Computerlist", {"WEB1\tmonitored", "FS1"});
        f.writeFile("Computers", {"WEB1"});
        f.writeFile("WEB1", QStringList{"Web;nginx.service;;;;;;"} + block());
        f.writeFile("Interval", {"30"});
        f.sim.icmp.addComputer("WEB1", "10.5.0.1", 0);
        f.sim.icmp.addComputer("FS1", "10.5.0.2", 0);
        f.sim.services.addService("WEB1", {.name = "nginx.service", .state = svcstate::running});
        auto& w = f.start();
        const QString checked = "WEB1\tnginx.service\tRunning";
        const QString skipped = "WEB1\tServer is in Maintenance Mode";
        const QString ended = "WEB1\tMaintenance Mode ended, the server is monitored again";
        QCOMPARE(f.logLines(), QStringList{checked});

        // Only monitored servers; leaving maintenance needs no monitored flag.
        f.select("FS1");
        w.mnumaintenance4h->trigger();
        QCOMPARE(f.sim.boxes.texts(), QStringList{"Only monitored Servers can be put in Maintenance!  "});
        QVERIFY(!f.program->servers.find("FS1")->maintenance);
        w.mnuoutmaintenance->trigger();
        QCOMPARE(f.sim.boxes.texts().size(), 1);

        // Without an end: until switched off, however long.
        f.select("WEB1");
        w.mnumaintenance->trigger();
        QVERIFY(dimmed(w, "WEB1"));
        f.sim.clock.advance(5 * 3600 * 1000);
        QCOMPARE(f.logLines(), (QStringList{checked} + QStringList(10, skipped)));
        w.mnuoutmaintenance->trigger();
        QVERIFY(!dimmed(w, "WEB1"));
        f.sim.clock.advance(30 * 60 * 1000);
        QCOMPARE(f.logLines().size(), 12);
        QCOMPARE(f.logLines().last(), checked);

        // For one hour, set in the second of a scan: the scan half an hour later passes it
        // over, and the one at the hour's end checks it again, after the line that says the
        // maintenance is over.
        w.mnumaintenance1h->trigger();
        QVERIFY(w.findServer("WEB1")->toolTip(0).contains("Alerting stops until"));
        f.sim.clock.advance(3600 * 1000 - 1000);
        QCOMPARE(f.logLines().mid(12), QStringList{skipped});
        f.sim.clock.advance(1000);
        QCOMPARE(f.logLines().mid(12), (QStringList{skipped, ended, checked}));
        QVERIFY(!dimmed(w, "WEB1"));
        f.sim.clock.advance(3600 * 1000);
        QCOMPARE(f.logLines().mid(12), (QStringList{skipped, ended, checked, checked, checked}));

        // Until a time the user picks; switching it off first leaves no line.
        w.mnumaintenanceuntil->trigger();
        QPointer<shell::MaintenanceDialog> d = w.maintenanceDialog();
        QVERIFY(d && d->isVisible());
        QVERIFY(qAbs(d->DateTime1->dateTime().secsTo(f.sim.clock.now().addSecs(3600))) < 60);
        d->DateTime1->setDateTime(f.sim.clock.now().addSecs(4 * 3600));
        d->OKButton->click();
        QVERIFY(released(d));
        QVERIFY(qAbs(f.program->servers.find("WEB1")->maintenanceEnd.secsTo(f.sim.clock.now().addSecs(4 * 3600))) < 60);
        f.sim.clock.advance(3600 * 1000);
        w.mnuoutmaintenance->trigger();
        f.sim.clock.advance(4 * 3600 * 1000);
        QVERIFY(!f.logLines().mid(17).contains(ended));
        QCOMPARE(f.logLines().mid(17).count(checked), 8);

        // Never stored.
        w.close();
        QCOMPARE(f.readBytes("Computerlist"), crlf({"WEB1\tmonitored", "FS1"}));
    }

    // Opening creates the file empty; OK stores the fields and the kind, and a changed kind
    // closes the connections made for the other one.
    void propertiesOfAServerWithoutAFileAndItsKind()
    {
        WindowFixture f;
        f.writeFile("Computerlist", {"FS1", "DC1\tmonitored"});
        f.writeFile("Computers", {"DC1"});
        f.writeFile("DC1", {"Spooler;Spooler;;;;;;"});
        f.writeFile("ServerTypes", {"DC1\twindows"});
        auto& w = f.start();
        f.sim.net.cancelled.clear();

        f.select("FS1");
        w.mnuproperties->trigger();
        QPointer<shell::PropertiesWindow> p = w.propertiesWindow();
        QVERIFY(p && p->isVisible());
        QCOMPARE(p->Frame1->title(), QStringLiteral("Properties of : FS1"));
        QCOMPARE(f.readBytes("FS1"), QByteArray());
        QVERIFY(f.fileExists("FS1"));
        QCOMPARE(p->List2->count(), 0);
        QVERIFY(p->Check1->isVisible());
        QVERIFY(!p->Check1->isChecked());
        // Unchanged: nothing stored, no connection closed.
        p->Command1->click();
        QVERIFY(released(p));
        QCOMPARE(f.readBytes("ServerTypes"), crlf({"DC1\twindows"}));
        QVERIFY(f.sim.net.cancelled.isEmpty());

        // OK stores it and closes the connections made for the other kind.
        w.mnuproperties->trigger();
        p = w.propertiesWindow();
        p->Text1->setText("fileserver");
        p->Text5->setPlainText("Anna\nBen");
        p->Check1->setChecked(true);
        p->Command1->click();
        QVERIFY(released(p));
        QCOMPARE(f.readBytes("ServerTypes"), crlf({"DC1\twindows", "FS1\twindows"}));
        QCOMPARE(f.sim.net.cancelled, QStringList{"FS1"});
        QCOMPARE(f.sim.services.calls().filter("disconnect"), QStringList{"disconnect FS1"});
        QStringList expected = block();
        expected[2] = "fileserver";
        expected.replace(10, "Anna");
        expected.insert(11, "Ben");
        QCOMPARE(f.readBytes("FS1"), crlf(expected));

        // A Windows server shows as one. A kind that cannot be stored keeps the window open as it
        // was, the server its kind and its connections; once it can, it goes back to systemd.
        f.select("DC1");
        f.sim.files.failOn(SimTextFiles::Op::Write, "ServerTypes");
        w.mnuproperties->trigger();
        p = w.propertiesWindow();
        QVERIFY(p->Check1->isChecked());
        p->Check1->setChecked(false);
        p->Command1->click();
        QCOMPARE(f.sim.boxes.texts().last(), kTypeNotSaved.arg("DC1", "Windows"));
        QVERIFY(p && p->isVisible());
        QVERIFY(!p->Check1->isChecked());
        QVERIFY(f.sim.serverkinds.isWindows("DC1"));
        QCOMPARE(f.sim.net.cancelled, QStringList{"FS1"});
        f.sim.files.clearFailures();
        p->Command1->click();
        QVERIFY(released(p));
        QCOMPARE(f.readBytes("ServerTypes"), crlf({"FS1\twindows"}));
        QCOMPARE(f.sim.net.cancelled, (QStringList{"FS1", "DC1"}));
    }

    // Record lines are carried over byte for byte, those without ";" too; the properties
    // survive a save unchanged, and Cancel writes nothing.
    void propertiesRoundTrip()
    {
        WindowFixture f;
        // Not monitored, so start-up does not tidy the file (it drops empty record lines).
        f.writeFile("Computerlist", {"DC1"});
        const QStringList records{"Web server;nginx.service;Alert;Send Email to: ops@example.org;;;;",
                                  "a note without a semicolon", "", "Jobs;cron.service;;;;;  ", "  ;x;"};
        const QStringList block{"[Properties:]", "[Servername / Alias:]", "Domain controller",
                                "[IP Address / Subnet:]", "10.0.0.5 / 24", "[Role / Priority:]", "DC, high",
                                "[Location / Department:]", "Room 4", "[Responsibles / Contact:]", "Anna 123",
                                "Ben 456", "[Action list for monitoring staff]", "Call Anna", "", "then Ben",
                                "[Remarks / Comments:]", "", "[EOF]"};
        const QByteArray original = crlf(records + block);
        f.writeBytes("DC1", original);
        auto& w = f.start();
        f.select("DC1");

        w.mnuproperties->trigger();
        QPointer<shell::PropertiesWindow> p = w.propertiesWindow();
        QCOMPARE(p->List2->item(1)->text(), QStringLiteral("a note without a semicolon"));
        QCOMPARE(p->Text5->toPlainText(), QStringLiteral("Anna 123\nBen 456"));

        // Unchanged: the same bytes (a field read into the wrong box would be written back there).
        p->Command1->click();
        QVERIFY(released(p));
        QCOMPARE(f.readBytes("DC1"), original);

        // Cancel (the close box's way too) writes nothing.
        w.mnuproperties->trigger();
        p = w.propertiesWindow();
        p->Text3->setText("changed");
        p->Command2->click();
        QVERIFY(released(p));
        QCOMPARE(f.readBytes("DC1"), original);

        // One field changed: that line only. A single-line field stays one line.
        w.mnuproperties->trigger();
        p = w.propertiesWindow();
        p->Text3->setText("Backup DC");
        p->Text7->setPlainText("first\nsecond");
        p->Command1->click();
        QStringList changed = block;
        changed[6] = "Backup DC";
        changed.replace(17, "first");
        changed.insert(18, "second");
        QCOMPARE(f.readBytes("DC1"), crlf(records + changed));

        // A write that fails keeps the window open with what was typed and the file as it was.
        w.mnuproperties->trigger();
        p = w.propertiesWindow();
        p->Text1->setText("lost?");
        f.sim.files.failOn(SimTextFiles::Op::Write, "DC1");
        p->Command1->click();
        QVERIFY(f.sim.boxes.texts().last().startsWith("Could not save"));
        QVERIFY(p->isVisible());
        QCOMPARE(p->Text1->text(), QStringLiteral("lost?"));
        QCOMPARE(f.readBytes("DC1"), crlf(records + changed));
        f.sim.files.clearFailures();
        p->Command1->click();
        QVERIFY(released(p));
        changed[2] = "lost?";
        QCOMPARE(f.readBytes("DC1"), crlf(records + changed));
    }
};

QTEST_MAIN(TestServerManagement)
#include "tst_servermanagement.moc"
