// The monitoring setup Form2 and the alert setup Form3 on a simulated fleet: the ways in, every
// refusal with its box, the five-entry action list, the files OK writes (and Cancel does not),
// the main window's combo and server icons, hand-edited per-server files, a restart of the
// program finding everything unchanged.
#include "actions/emailoptionsdialog.h"
#include "actions/mailing.h"
#include "actions/dispatcher.h"
#include "core/serverfile.h"
#include "monitoring/alertsetupwindow.h"
#include "monitoring/checkcycle.h"
#include "monitoring/setupwindow.h"
#include "servicecontrol/servicecontrol.h"
#include "support/windowfixture.h"

#include <QAction>
#include <QComboBox>
#include <QGroupBox>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QScrollBar>
#include <QTest>
#include <QTreeWidget>

#include <type_traits>

using namespace velmora;
using monitoring::AlertSetupWindow;
using monitoring::SetupWindow;
using platform::MsgIcon;
using test::WindowFixture;
namespace svcstate = platform::svcstate;

namespace {

// The texts of a list, of a tree's top level (first column) or of a combo box, in order.
template <typename Widget>
QStringList texts(const Widget* w)
{
    QStringList out;
    if constexpr (std::is_same_v<Widget, QTreeWidget>)
        for (int i = 0; i < w->topLevelItemCount(); ++i)
            out << w->topLevelItem(i)->text(0);
    else if constexpr (std::is_same_v<Widget, QComboBox>)
        for (int i = 0; i < w->count(); ++i)
            out << w->itemText(i);
    else
        for (int i = 0; i < w->count(); ++i)
            out << w->item(i)->text();
    return out;
}

// The empty properties block (read when used: the texts it is made of are statics of their own).
QStringList emptyBlock() { return core::emptyPropertiesTemplate(); }

// Two servers: SRV1 with four services, SRV2 with one; SRV1 is selected in the server list.
struct Fleet : WindowFixture {
    explicit Fleet(const QStringList& computerlist = {"SRV1", "SRV2"}, bool begin = true)
    {
        writeFile("Computerlist", computerlist);
        sim.icmp.addComputer("SRV1", "10.9.0.1", 0);
        sim.icmp.addComputer("SRV2", "10.9.0.2", 0);
        auto& s = sim.services;
        s.addService("SRV1", {.name = "spooler", .displayName = "Print Spooler", .state = svcstate::stopped});
        s.addService("SRV1", {.name = "spoolx", .displayName = "Print Spooler Extra", .state = svcstate::running});
        s.addService("SRV1", {.name = "cups", .displayName = "CUPS Scheduler", .state = svcstate::running});
        s.addService("SRV1", {.name = "cron", .displayName = "Regular background program processing daemon",
                              .state = svcstate::running});
        s.addService("SRV2", {.name = "sshd", .displayName = "OpenBSD Secure Shell server", .state = svcstate::running});
        if (begin)
            launch();
    }
    void launch()
    {
        start();
        select("SRV1");
    }
    shell::MainWindow& w() { return *window; }
    SetupWindow& form2() { return *program->setupWindow(); }
    AlertSetupWindow& form3() { return *form2().alertSetup(); }
    // Opens Form2 for the selected server with "Service &Monitor...".
    void open()
    {
        w().services->Command7->click();
        QVERIFY(form2().isVisible());
    }
    // Opens Form2, selects the service and opens Form3 for it with "&Add".
    AlertSetupWindow& addService(const QString& display = QStringLiteral("CUPS Scheduler"))
    {
        open();
        selectService(display);
        form2().Command1->click();
        return form3();
    }
    void selectService(const QString& display)
    {
        const auto items = form2().ListView1->findItems(display, Qt::MatchExactly);
        QVERIFY(!items.isEmpty());
        form2().ListView1->setCurrentItem(items.first());
        emit form2().ListView1->itemClicked(items.first(), 0);
    }
    void selectMonitored(int row)
    {
        form2().List2->setCurrentRow(row);
        emit form2().List2->itemClicked(form2().List2->item(row));
    }
    void kind(const QString& kind) { form3().Combo1->setCurrentIndex(int(AlertSetupWindow::kKinds.indexOf(kind))); }
    // Adds an entry through Form3's fields and "&Add to action list".
    void addAction(const QString& k, const QString& parameter = {})
    {
        kind(k);
        if (k == "Send Email to:")
            form3().Text1->setText(parameter);
        else if (k == "Net Message Send to:")
            form3().Text3->setText(parameter);
        else if (k == "Start program:" || k == "Play Sound:")
            form3().Text2->setText(parameter);
        form3().Command4->click();
    }
};

} // namespace

class TestSetupWindow : public QObject {
    Q_OBJECT
private slots:
    void everyWayInOpensTheSelectedServer()
    {
        for (QString way : {"Command7", "mnuServicemonitor", "mnumonwin"}) {
            Fleet f;
            f.writeFile("SRV1", QStringList{"Print Spooler;spooler;Alert;Restart Service;;;;",
                                            "a hand-written note", "CUPS Scheduler;cups;Play Sound: /snd/a.wav;;;;;"} +
                                    emptyBlock());
            if (way == "Command7")
                f.w().services->Command7->click();
            else if (way == "mnuServicemonitor")
                f.w().mnuServicemonitor->trigger();
            else
                f.w().mnumonwin->trigger();
            SetupWindow& form2 = f.form2();
            QVERIFY2(form2.isVisible(), qPrintable(way));
            QCOMPARE(f.w().Text1->text(), QStringLiteral("SRV1"));
            QCOMPARE(form2.Label3->text(), QStringLiteral("Monitor Services on Computer: SRV1"));
            QCOMPARE(form2.Label1->text(), QStringLiteral("All Registered Services on : SRV1"));
            // Listed in key-name order.
            QCOMPARE(texts(form2.ListView1), (QStringList{"Regular background program processing daemon",
                                                          "CUPS Scheduler", "Print Spooler", "Print Spooler Extra"}));
            QCOMPARE(texts(form2.List2), (QStringList{"Print Spooler", "CUPS Scheduler"}));
            QCOMPARE(texts(form2.List7), QStringList{SetupWindow::kSelectService});
            QVERIFY(f.sim.boxes.shown.isEmpty());
        }
    }

    // No servers, an unreachable server or a listing that fails: a box, and Form2 stays closed.
    void refusedOpeningsKeepItClosed()
    {
        {
            Fleet f({}, false);
            f.start();
            f.w().services->Command7->click();
            QCOMPARE(f.sim.boxes.texts(), QStringList{"No servers listet, please add servers to be monitored"});
            QCOMPARE(f.sim.boxes.shown[0].icon, MsgIcon::Information);
            QVERIFY(!f.program->setupWindow()->isVisible());
        }
        Fleet f;
        f.sim.icmp.setStatus("SRV2", 11010);
        f.w().repingServers();
        f.select("SRV2");
        f.w().services->Command7->click();
        QCOMPARE(f.sim.boxes.texts(), QStringList{"Selected Server is not available, can not show Services !"});
        QVERIFY(!f.form2().isVisible());
        f.select("SRV1");
        f.sim.services.setReachable("SRV1", false);
        f.w().services->Command7->click();
        QVERIFY(f.sim.boxes.texts().last().startsWith("Can not list Services on selected Server"));
        QVERIFY(!f.form2().isVisible());
    }

    void fiveActionsStoredAndFoundUnchangedAfterARestart()
    {
        Fleet f;
        f.writeFile("SMTPServer", {"mail.example.org", "25", "velmora@example.org"});
        const QStringList block{"[Properties:]", "[Servername / Alias:]", "printhost", "[IP Address / Subnet:]",
                                "10.9.0.1/24", "[Role / Priority:]", "print", "[Location / Department:]", "basement",
                                "[Responsibles / Contact:]", "Ann", "Bob", "[Action list for monitoring staff]",
                                "call Ann", "[Remarks / Comments:]", "", "[EOF]"};
        f.writeFile("SRV1", block);
        f.open();
        f.selectService("Print Spooler");
        f.form2().Command1->click();
        AlertSetupWindow& form3 = f.form3();
        QVERIFY(form3.isVisible());
        f.addAction("Restart Service");
        f.addAction("Alert");
        f.addAction("Start program:", "/opt/on call/pagér.sh");
        f.addAction("Net Message Send to:", "opsdesk");
        f.addAction("Send Email to:", "ops@example.org");
        const QStringList five{"Restart Service", "Alert", "Start program: /opt/on call/pagér.sh",
                               "Net Message Send to: opsdesk", "Send Email to: ops@example.org"};
        QCOMPARE(texts(form3.List1), five);
        // A sixth does nothing and says nothing.
        f.addAction("Play Sound:", "/snd/alarm.wav");
        QCOMPARE(form3.List1->count(), 5);
        QVERIFY(f.sim.boxes.shown.isEmpty());

        form3.Command1->click();
        QCOMPARE(texts(f.form2().List2), QStringList{"Print Spooler"});
        QCOMPARE(texts(f.form2().List7), five); // the first monitored service shows its actions
        // Nothing is stored before Form2's OK.
        QVERIFY(!f.fileExists("Computers"));
        f.form2().VScroll1->setValue(-45);
        f.form2().Command3->click();
        QVERIFY(!f.form2().isVisible());

        QCOMPARE(f.lines("SRV1"), QStringList{"Print Spooler;spooler;Restart Service;Alert;Start program: /opt/on "
                                              "call/pagér.sh;Net Message Send to: opsdesk;Send Email to: ops@example.org;"} +
                                      block);
        QCOMPARE(f.readBytes("Computers"), QByteArray("SRV1\r\n"));
        QCOMPARE(f.readBytes("Interval"), QByteArray("45\r\n"));
        QCOMPARE(texts(f.w().Combo1), QStringList{"SRV1"});
        QCOMPARE(shell::MainWindow::serverIcon(f.w().findServer("SRV1")), 9);
        QCOMPARE(f.w().Text1->text(), QStringLiteral("SRV1")); // the combo did not move the main window

        // Close (storing the server list) and start the program again.
        f.w().Command4->click();
        QCOMPARE(f.readBytes("Computerlist"), QByteArray("SRV1\tmonitored\r\nSRV2\r\n"));
        f.program.reset();
        f.window = nullptr;
        f.sim.app = {};
        f.launch();
        QCOMPARE(f.form2().Label5->text(), QStringLiteral("45"));
        f.open();
        QCOMPARE(texts(f.form2().List2), QStringList{"Print Spooler"});
        QCOMPARE(texts(f.form2().List7), QStringList{SetupWindow::kSelectService});
        f.selectMonitored(0);
        QCOMPARE(texts(f.form2().List7), five);
    }

    // "&Add", a double click and the context menu open Form3 for the selected service; with no
    // selection, or for a name contained in a monitored one, a box does. OK needs an action, and
    // clicking another service empties the list.
    void addingAServiceAndItsRefusals()
    {
        Fleet f;
        f.writeFile("SRV1", QStringList{"Print Spooler Extra;spoolx;Alert;;;;;"} + emptyBlock());
        f.open();
        QTreeWidget* services = f.form2().ListView1;
        services->setCurrentItem(nullptr);
        services->clearSelection();
        f.form2().Command1->click();
        // A right click where there is no item.
        QTest::mouseClick(services->viewport(), Qt::RightButton, {},
                          QPoint(services->viewport()->width() - 2, services->viewport()->height() - 2));
        QCOMPARE(f.sim.boxes.texts(), (QStringList{"Please select a Service!        ", "Please select an Item "}));
        f.selectService("Print Spooler"); // part of "Print Spooler Extra"
        f.form2().Command1->click();
        QCOMPARE(f.sim.boxes.texts().last(), QStringLiteral("Item already exists          "));
        QVERIFY(!f.form3().isVisible());

        const auto items = services->findItems("CUPS Scheduler", Qt::MatchExactly);
        services->setCurrentItem(items.first());
        emit services->itemDoubleClicked(items.first(), 0);
        QVERIFY(f.form3().isVisible());
        QCOMPARE(f.form3().Frame1->title(), QStringLiteral("Monitoring Options for Service : CUPS Scheduler"));
        f.form3().hide();
        f.form2().mnuaddtomonitor->trigger();
        QVERIFY(f.form3().isVisible());
        QCOMPARE(f.sim.boxes.shown.size(), 3);

        f.form3().Command1->click();
        QCOMPARE(f.sim.boxes.texts().last(), "There are no actions in the actions list, please configure actions to be "
                                             "taken if service fails !    ");
        QCOMPARE(f.sim.boxes.shown.last().icon, MsgIcon::Exclamation);
        QVERIFY(f.form3().isVisible());
        QCOMPARE(f.form2().entries().size(), size_t(1));
        f.addAction("Alert");
        QCOMPARE(f.form3().List1->count(), 1);
        f.selectService("Print Spooler");
        QCOMPARE(f.form3().List1->count(), 0);
    }

    // E-mail needs a transport and may repeat; every other refusal says why in a box.
    void actionListRefusals()
    {
        Fleet f;
        AlertSetupWindow& form3 = f.addService();
        f.addAction("Send Email to:", "ops@example.org");
        QVERIFY(f.program->mailing->dialog()->isVisible()); // the e-mail options instead
        f.program->mailing->dialog()->hide();
        QCOMPARE(form3.List1->count(), 0);
        f.writeFile("MailProfile", {"default"});
        f.addAction("Send Email to:", "ops@example.org");
        f.addAction("Send Email to:", "ops@example.org");
        f.addAction("Send Email to:", "alert-desk@example.org");
        QCOMPARE(texts(form3.List1), (QStringList{"Send Email to: ops@example.org", "Send Email to: ops@example.org",
                                                   "Send Email to: alert-desk@example.org"}));
        // "Alert" is refused now, since an entry contains the word.
        f.addAction("Alert");
        QCOMPARE(f.sim.boxes.texts(), QStringList{"Item already exists          "});

        f.selectService("Print Spooler"); // empties the list
        f.addAction("Alert");
        f.addAction("Restart Service");
        f.addAction("Restart Service");
        QCOMPARE(f.sim.boxes.texts().mid(1), QStringList{"Item already exists          "});
        f.addAction("Send Email to:", "");
        f.addAction("Net Message Send to:", "");
        f.addAction("Start program:", "");
        QCOMPARE(f.sim.boxes.texts().mid(2),
                 (QStringList{"No Valid Email Address !", "No Valid Net Message Recipient !", "  No Valid Program !"}));
        QCOMPARE(f.sim.boxes.shown.last().icon, MsgIcon::Information);
        // A semicolon would cut the stored record apart.
        f.addAction("Start program:", "/bin/a;b");
        f.addAction("Play Sound:", "/snd/a;b.wav");
        QCOMPARE(f.sim.boxes.texts().mid(5), (QStringList{"  No Valid Program !", "No Valid Sound File !"}));
        // A sound without a file is taken.
        f.addAction("Play Sound:", "");
        QCOMPARE(texts(form3.List1), (QStringList{"Alert", "Restart Service", "Play Sound: "}));
    }

    void kindsEnableTheirFieldsAndBrowseChoosesByKind()
    {
        Fleet f;
        AlertSetupWindow& form3 = f.addService();
        QCOMPARE(form3.Combo1->currentText(), QStringLiteral("Alert"));
        auto enabled = [&] {
            return QList<bool>{form3.Text1->isEnabled(), form3.Text2->isEnabled(), form3.Command3->isEnabled(),
                               form3.Text3->isEnabled(), form3.Command8->isEnabled()};
        };
        QCOMPARE(enabled(), (QList<bool>{false, false, false, false, false}));
        f.kind("Send Email to:");
        QCOMPARE(enabled(), (QList<bool>{true, false, false, false, false}));
        form3.Text1->setText("ops@example.org");
        f.kind("Net Message Send to:");
        QCOMPARE(enabled(), (QList<bool>{false, false, false, true, true}));
        QCOMPARE(form3.Text1->text(), QString()); // cleared when disabled
        // Its test button sends through the dispatcher, once there is a recipient.
        form3.Command8->click();
        QCOMPARE(f.sim.boxes.texts(), QStringList{"Please enter a Net Message Recipient !    "});
        form3.Text3->setText("desk");
        form3.Command8->click();
        QCOMPARE(f.sim.messenger.sent.value(0).recipient, QStringLiteral("desk"));
        f.kind("Play Sound:");
        QCOMPARE(enabled(), (QList<bool>{false, true, true, false, false}));
        QCOMPARE(form3.Text3->text(), QString());
        form3.Text2->setText("/snd/a.wav");
        f.kind("Start program:");
        QCOMPARE(enabled(), (QList<bool>{false, true, true, false, false}));
        QCOMPARE(form3.Text2->text(), QStringLiteral("/snd/a.wav"));
        // Browse chooses a file by kind.
        f.kind("Start program:");
        f.sim.filedialogs.script("/opt/tools/page oncall");
        form3.Command3->click();
        QCOMPARE(form3.Text2->text(), QStringLiteral("/opt/tools/page oncall"));
        f.kind("Play Sound:");
        f.sim.filedialogs.script("/usr/share/sounds/alarm.wav");
        form3.Command3->click();
        f.sim.filedialogs.script("/" + QString(300, 'x') + ".wav"); // longer than an action takes
        form3.Command3->click();
        QCOMPARE(form3.Text2->text(), QStringLiteral("/usr/share/sounds/alarm.wav"));
        const auto& r = f.sim.filedialogs.requests;
        QCOMPARE((QStringList{r[0].title, r[0].filterName, r[0].pattern, r[1].filterName, r[1].pattern}),
                 (QStringList{"Select File:", "All Files (*.*)", "*.*", "Soundfiles (*.wav)", "*.wav"}));
    }

    void removeUpAndDown()
    {
        Fleet f;
        f.writeFile("MailProfile", {"default"});
        AlertSetupWindow& form3 = f.addService();
        form3.Command5->click();
        QCOMPARE(f.sim.boxes.texts(), QStringList{"No Action listed!        "});
        f.addAction("Alert");
        f.addAction("Restart Service");
        f.addAction("Send Email to:", "a@b");
        form3.List1->setCurrentRow(-1);
        form3.Command5->click();
        QCOMPARE(f.sim.boxes.texts().last(), QStringLiteral("Please select an Item!        "));

        form3.List1->setCurrentRow(2);
        form3.Command7->click(); // the bottom one down: no change
        QCOMPARE(texts(form3.List1), (QStringList{"Alert", "Restart Service", "Send Email to: a@b"}));
        form3.List1->setCurrentRow(2);
        form3.Command6->click();
        QCOMPARE(texts(form3.List1), (QStringList{"Alert", "Send Email to: a@b", "Restart Service"}));
        QVERIFY(form3.List1->selectedItems().isEmpty()); // the moved entry is not selected
        form3.List1->setCurrentRow(0);
        form3.Command7->click();
        QCOMPARE(texts(form3.List1), (QStringList{"Send Email to: a@b", "Alert", "Restart Service"}));
        form3.List1->setCurrentRow(1);
        form3.Command5->click();
        QCOMPARE(texts(form3.List1), (QStringList{"Send Email to: a@b", "Restart Service"}));
        QCOMPARE(f.sim.boxes.shown.size(), 2);

        // Two entries: two filled slots and three empty ones.
        form3.Command1->click();
        f.form2().Command3->click();
        QCOMPARE(f.lines("SRV1").first(), QStringLiteral("CUPS Scheduler;cups;Send Email to: a@b;Restart Service;;;;"));
    }

    void editReplacesInPlace()
    {
        Fleet f;
        f.writeFile("SRV1", QStringList{"Print Spooler;spooler;Alert;;Restart Service;;;",
                                        "CUPS Scheduler;cups;Play Sound: /a.wav;;;;;"} +
                                emptyBlock());
        f.open();
        f.form2().Command7->click();
        QCOMPARE(f.sim.boxes.texts(), QStringList{"Please select a Service!        "});
        f.selectMonitored(0);
        emit f.form2().List2->itemDoubleClicked(f.form2().List2->item(0));
        AlertSetupWindow& form3 = f.form3();
        QVERIFY(form3.isVisible());
        QCOMPARE(texts(form3.List1), (QStringList{"Alert", "Restart Service"})); // the empty slot between goes
        form3.List1->setCurrentRow(1);
        form3.Command6->click();
        form3.Command1->click();
        QCOMPARE(texts(f.form2().List2), (QStringList{"Print Spooler", "CUPS Scheduler"}));
        QCOMPARE(texts(f.form2().List7), (QStringList{"Restart Service", "Alert", "", "", ""}));
        f.form2().Command3->click();
        QCOMPARE(f.lines("SRV1").mid(0, 2), (QStringList{"Print Spooler;spooler;Restart Service;Alert;;;;",
                                                         "CUPS Scheduler;cups;Play Sound: /a.wav;;;;;"}));
    }

    // Nothing is stored before OK; a server keeps its place in the combo while it has a service
    // left, and without one it is no longer monitored.
    void removingServicesUntilNoneIsLeft()
    {
        Fleet f({"SRV1\tmonitored", "SRV2\tmonitored"}, false);
        f.writeFile("Computers", {"SRV2", "SRV1"});
        f.writeFile("SRV1", QStringList{"Print Spooler;spooler;Alert;;;;;", "CUPS Scheduler;cups;Alert;;;;;",
                                        "junk before the block"} + emptyBlock());
        f.launch();
        QCOMPARE(texts(f.w().Combo1), (QStringList{"SRV2", "SRV1"}));
        f.open();
        f.form2().Command2->click();
        QCOMPARE(f.sim.boxes.texts(), QStringList{"Please select a Service!        "});
        f.selectMonitored(1);
        f.form2().Command2->click();
        f.form2().Command3->click();
        QCOMPARE(texts(f.w().Combo1), (QStringList{"SRV2", "SRV1"}));
        QCOMPARE(f.readBytes("Computers"), QByteArray("SRV2\r\nSRV1\r\n"));
        QCOMPARE(f.lines("SRV1").first(), QStringLiteral("Print Spooler;spooler;Alert;;;;;"));

        f.open();
        f.selectMonitored(0);
        f.form2().Command2->click();
        QVERIFY(f.form2().entries().empty());
        QCOMPARE(f.form2().List7->count(), 0);
        QCOMPARE(texts(f.w().Combo1), (QStringList{"SRV2", "SRV1"}));
        f.form2().Command2->click();
        QCOMPARE(f.sim.boxes.texts().last(), QStringLiteral("No Services listed!        "));
        f.form2().Command3->click();
        QCOMPARE(texts(f.w().Combo1), QStringList{"SRV2"});
        QCOMPARE(f.serverIcons(), (QList<int>{7, 9}));
        QCOMPARE(f.readBytes("Computers"), QByteArray("SRV2\r\n"));
        QCOMPARE(f.lines("SRV1"), emptyBlock()); // records and other lines before the block go
    }

    // The main window re-lists the server's services while Form2 is open: each row Form2 shows
    // still carries its own key, so the record names the unit the user picked.
    // A new listing reaches the open window, row by row with its keys; clicking another server
    // in the main window empties only the main window's list, not that of the server edited.
    void relistingWhileOpenKeepsEachRowsKey()
    {
        Fleet f;
        f.open();
        f.w().services->Command6->click(); // "Show active Services"
        QTRY_COMPARE(f.w().services->ListView1->topLevelItemCount(), 3);
        QCOMPARE(f.w().services->Label1->text(), QStringLiteral("Active Services on : SRV1"));
        QTreeWidget* servers = f.w().ListView2;
        QTest::mouseClick(servers->viewport(), Qt::LeftButton, {},
                          servers->visualItemRect(f.w().findServer("SRV2")).center());
        QCOMPARE(f.w().Text1->text(), QStringLiteral("SRV2"));
        QCOMPARE(f.w().services->ListView1->topLevelItemCount(), 0);
        QCOMPARE(f.form2().Label6->text(), QStringLiteral("SRV1"));
        QCOMPARE(f.form2().ListView1->topLevelItemCount(), 3);
        for (const QString display : {QStringLiteral("Print Spooler Extra"),
                                      QStringLiteral("Regular background program processing daemon")}) {
            f.selectService(display);
            f.form2().Command1->click();
            f.addAction("Alert");
            f.form3().Command1->click();
        }
        f.form2().Command3->click();
        QCOMPARE(f.lines("SRV1").mid(0, 2),
                 (QStringList{"Print Spooler Extra;spoolx;Alert;;;;;",
                              "Regular background program processing daemon;cron;Alert;;;;;"}));
    }

    // A write that fails shows a box naming the file, keeps Form2 open with what the user chose,
    // and leaves the old file whole; OK once the disk is back stores it all. Servers the timed
    // scan passes over (in maintenance, or the unended last line of a hand-edited list) are still
    // monitored servers: storing another server keeps them.
    void failedWriteKeepsTheDialogAndTheOldFile()
    {
        using Op = platform::sim::SimTextFiles::Op;
        for (const QString failing : {QStringLiteral("Interval"), QStringLiteral("SRV1"), QStringLiteral("Computers")}) {
            Fleet f({"SRV1", "SRV2\tmonitored", "SRV3\tmonitored"}, false);
            const QByteArray computers = "SRV2\r\nSRV3";
            const QByteArray srv1 = test::crlf(QStringList{"Print Spooler;spooler;Alert;;;;;"} + emptyBlock());
            const QByteArray interval = test::crlf({"30"});
            f.writeBytes("Computers", computers);
            f.writeBytes("SRV1", srv1);
            f.writeBytes("Interval", interval);
            f.writeFile("SRV2", QStringList{"Print Spooler;spooler;Alert;;;;;"} + emptyBlock());
            f.writeFile("SRV3", QStringList{"Print Spooler;spooler;Alert;;;;;"} + emptyBlock());
            f.launch();
            f.program->servers.setMaintenance("SRV2", true);
            f.addService();
            f.addAction("Restart Service");
            f.form3().Command1->click();
            f.sim.files.failOn(Op::Write, failing);
            f.form2().Command3->click();
            QVERIFY2(f.form2().isVisible(), qPrintable(failing));
            QCOMPARE(f.form2().entries().size(), size_t(2));
            QCOMPARE(f.sim.boxes.shown.size(), 1);
            QVERIFY(f.sim.boxes.texts().first().contains(f.path(failing)));
            QCOMPARE(f.readBytes(failing), failing == "Interval" ? interval : failing == "SRV1" ? srv1 : computers);
            f.sim.files.clearFailures();
            f.form2().Command3->click();
            QVERIFY(!f.form2().isVisible());
            QCOMPARE(f.lines("SRV1").mid(0, 2), (QStringList{"Print Spooler;spooler;Alert;;;;;",
                                                             "CUPS Scheduler;cups;Restart Service;;;;;"}));
            QCOMPARE(f.readBytes("Computers"), QByteArray("SRV2\r\nSRV3\r\nSRV1\r\n"));
            QCOMPARE(f.lines("SRV2").first(), QStringLiteral("Print Spooler;spooler;Alert;;;;;"));
        }
    }

    void cancelStoresNothingButTheIntervalStays()
    {
        Fleet f;
        f.open();
        QCOMPARE(f.form2().Label5->text(), QStringLiteral("30"));
        f.selectService("CUPS Scheduler");
        f.form2().Command1->click();
        f.addAction("Alert");
        f.form3().Command1->click();
        f.form2().VScroll1->triggerAction(QAbstractSlider::SliderSingleStepSub); // the up arrow
        QCOMPARE(f.form2().Label5->text(), QStringLiteral("31"));
        f.form2().Command4->click();
        QVERIFY(!f.form2().isVisible());
        QVERIFY(!f.fileExists("SRV1"));
        QVERIFY(!f.fileExists("Computers"));
        QCOMPARE(f.readBytes("Interval"), QByteArray("30\r\n"));
        // Reopening reloads the lists from the files, not the interval.
        f.open();
        QVERIFY(f.form2().entries().empty());
        QCOMPARE(f.form2().Label5->text(), QStringLiteral("31"));
    }

    // Label5 shows the interval file as it stands; the scheduler goes by its leading whole number
    // (0 without one, a scan at every tick); a value the spinner cannot show is said once.
    void intervalIsReadByItsLeadingNumber_data()
    {
        QTest::addColumn<QString>("file");
        QTest::addColumn<int>("minutes");
        QTest::addColumn<int>("spinner");
        // How the number is read is pinned with the schedule itself; here each way the
        // spinner shows it.
        QTest::newRow("number and a word") << "15 Minutes" << 15 << 15;
        QTest::newRow("too many") << "99999" << 99999 << 240;
        QTest::newRow("no number") << "garbage" << 0 << 1;
    }
    void intervalIsReadByItsLeadingNumber()
    {
        QFETCH(QString, file);
        QFETCH(int, minutes);
        QFETCH(int, spinner);
        const bool told = minutes != spinner;
        Fleet f({"SRV1"}, false);
        f.writeFile("Interval", {file, "ignored"});
        f.launch();
        QScrollBar* spin = f.form2().VScroll1;
        QCOMPARE(f.form2().Label5->text(), file);
        QCOMPARE(spin->value(), -spinner);
        QCOMPARE(f.sim.boxes.texts().size(), told ? 1 : 0);
        if (told)
            QVERIFY(f.sim.boxes.texts().first().contains("\"" + file + "\""));
        // The scheduler goes by the same number; below 1, every tick starts a scan.
        const qint64 ahead = f.sim.clock.now().secsTo(f.program->checkcycle->nextScan());
        QVERIFY2(qAbs(ahead - qint64(minutes) * 60) <= 2, qPrintable(QString::number(ahead)));
        if (minutes < 1) {
            const QDateTime before = f.program->checkcycle->nextScan();
            f.sim.clock.advance(1000);
            QCOMPARE(before.secsTo(f.program->checkcycle->nextScan()), qint64(1));
        }
        // Opening the window again says nothing more; the spinner's arrows stay in its range,
        // the up arrow raising the number.
        f.open();
        QCOMPARE(f.sim.boxes.texts().size(), told ? 1 : 0);
        spin->triggerAction(QAbstractSlider::SliderSingleStepSub);
        QCOMPARE(f.form2().Label5->text(), spinner < 240 ? QString::number(spinner + 1) : file); // at its end it stays
        spin->setValue(-1);
        spin->triggerAction(QAbstractSlider::SliderSingleStepAdd);
        QCOMPARE(f.form2().Label5->text(), QStringLiteral("1"));
    }

    void monitorServiceFromTheMainWindow()
    {
        Fleet f;
        f.w().services->Command2->click(); // list the services in the main window
        const auto items = f.w().services->ListView1->findItems("Print Spooler", Qt::MatchExactly);
        QVERIFY(!items.isEmpty());
        f.w().services->ListView1->setCurrentItem(items.first());
        f.w().services->mnumonitorservice->trigger();
        QVERIFY(f.form2().isVisible());
        QVERIFY(f.form3().isVisible());
        QCOMPARE(f.form2().ListView1->currentItem()->text(0), QStringLiteral("Print Spooler"));
        f.addAction("Alert");
        f.form3().Command1->click();
        QCOMPARE(f.form2().entries().back().servicename, QStringLiteral("spooler"));
    }

    void handEditedFilesAreReadAsStored()
    {
        Fleet f;
        const QString odd = "Odd;odd;Reboot Server;Start program: /opt/my tools/größe.sh;Play Sound: /snd/notes.txt;"
                            "Alert;Restart Service;Send Email to: x@y;extra;";
        f.writeFile("SRV1", {"No final semicolon;cups;Alert", odd, "", "Cron;cron;;;;;;"});
        // Which lines are records is pinned where they are parsed; here an unknown action is kept
        // and the sixth and seventh slots go.
        f.open();
        QCOMPARE(texts(f.form2().List2), (QStringList{"Odd", "Cron"}));
        f.form2().Command3->click();
        // No properties block: the empty one is written after the records.
        const QStringList stored{"Odd;odd;Reboot Server;Start program: /opt/my tools/größe.sh;Play Sound: /snd/notes.txt;"
                                 "Alert;Restart Service;",
                                 "Cron;cron;;;;;;"};
        QCOMPARE(f.lines("SRV1"), stored + emptyBlock());
    }
};

QTEST_MAIN(TestSetupWindow)
#include "tst_setupwindow.moc"
