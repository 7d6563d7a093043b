// Windows servers in the server list: the Add Server dialog and the Server Properties window say
// which servers are Windows servers, the "ServerTypes" file of the data folder keeps it, a
// changed kind closes the server's connections, and removing a server forgets it.
#include "core/datafolder.h"
#include "shell/addserverdialog.h"
#include "shell/propertieswindow.h"
#include "support/windowfixture.h"

#include <QCheckBox>
#include <QLineEdit>
#include <QPushButton>
#include <QRegularExpression>
#include <QTest>
#include <QTreeWidget>

using namespace velmora;
using platform::MsgAnswer;
using platform::MsgIcon;
using platform::sim::SimTextFiles;
using test::crlf;
using test::WindowFixture;

namespace {

void select(shell::MainWindow& w, const QString& name)
{
    QTreeWidgetItem* item = w.findServer(name);
    QVERIFY(item);
    w.ListView2->setCurrentItem(item);
    w.selectServer();
}

QStringList serverNames(const shell::MainWindow& w)
{
    QStringList out;
    for (int i = 0; i < w.ListView2->topLevelItemCount(); ++i)
        out << w.ListView2->topLevelItem(i)->text(0);
    return out;
}

template <typename T>
bool released(const QPointer<T>& window)
{
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    return window.isNull();
}

// The service manager calls that closed a connection.
QStringList disconnects(const WindowFixture& f)
{
    return f.sim.services.calls().filter(QRegularExpression("^disconnect "));
}

const QString kTypeNotSaved = "Could not save the server type of %1. It remains a %2 server.";

} // namespace

class TestServerKinds : public QObject {
    Q_OBJECT
private slots:
    void addServerStoresTheKind()
    {
        WindowFixture f;
        f.writeFile("Computerlist", {"FS1"});
        // Left from an earlier server of the same name: adding it again asks anew.
        f.writeFile("ServerTypes", {"OLDHOST\twindows"});
        auto& w = f.start();

        w.Command13->click();
        QPointer<shell::AddServerDialog> d = w.addServerDialog();
        QVERIFY(d && d->isVisible());
        QVERIFY(d->Check1->isVisible());
        QCOMPARE(d->Check1->text(), QStringLiteral("&Windows server"));
        QVERIFY(!d->Check1->isChecked());

        // A refused name stores no kind and keeps the choice for the next try.
        d->Check1->setChecked(true);
        d->Text1->setText("fs1");
        d->OKButton->click();
        QCOMPARE(f.sim.boxes.texts().last(), QStringLiteral("Item already exists !"));
        QVERIFY(d->isVisible());
        QVERIFY(d->Check1->isChecked());
        QVERIFY(!f.sim.serverkinds.isWindows("FS1"));

        d->Text1->setText("win1");
        d->OKButton->click();
        QVERIFY(released(d));
        QCOMPARE(serverNames(w), (QStringList{"FS1", "WIN1"}));
        QCOMPARE(f.readBytes("ServerTypes"), crlf({"OLDHOST\twindows", "WIN1\twindows"}));

        // Each opening starts as a systemd server.
        w.Command13->click();
        d = w.addServerDialog();
        QVERIFY(!d->Check1->isChecked());
        d->Text1->setText("oldhost");
        d->OKButton->click();
        QCOMPARE(serverNames(w), (QStringList{"FS1", "WIN1", "OLDHOST"}));
        QCOMPARE(f.readBytes("ServerTypes"), crlf({"WIN1\twindows"}));

        // Cancel stores nothing.
        w.Command13->click();
        d = w.addServerDialog();
        d->Text1->setText("never");
        d->Check1->setChecked(true);
        d->CancelButton->click();
        QCOMPARE(f.readBytes("ServerTypes"), crlf({"WIN1\twindows"}));
        QVERIFY(!f.sim.serverkinds.isWindows("NEVER"));
    }

    void addServerWhoseKindCannotBeStored()
    {
        WindowFixture f;
        f.writeFile("Computerlist", {"FS1"});
        auto& w = f.start();
        f.sim.files.failOn(SimTextFiles::Op::Write, "ServerTypes");
        w.Command13->click();
        QPointer<shell::AddServerDialog> d = w.addServerDialog();
        d->Text1->setText("win1");
        d->Check1->setChecked(true);
        d->OKButton->click();
        // The server is added, as a systemd server, and the user told.
        QCOMPARE(f.sim.boxes.texts().last(), kTypeNotSaved.arg("WIN1", "systemd"));
        QCOMPARE(int(f.sim.boxes.shown.last().icon), int(MsgIcon::Critical));
        QVERIFY(released(d));
        QCOMPARE(serverNames(w), (QStringList{"FS1", "WIN1"}));
        QVERIFY(!f.sim.serverkinds.isWindows("WIN1"));
        QVERIFY(!f.fileExists("ServerTypes"));
    }

    void propertiesChangeTheKindAndCloseTheConnections()
    {
        WindowFixture f;
        f.writeFile("Computerlist", {"FS1", "DC1\tmonitored"});
        f.writeFile("Computers", {"DC1"});
        f.writeFile("DC1", {"Spooler;Spooler;;;;;;"});
        f.writeFile("ServerTypes", {"DC1\twindows"});
        auto& w = f.start();
        f.sim.net.cancelled.clear();
        const int disconnectsBefore = disconnects(f).size();

        select(w, "FS1");
        w.mnuproperties->trigger();
        QPointer<shell::PropertiesWindow> p = w.propertiesWindow();
        QVERIFY(p && p->isVisible());
        QVERIFY(p->Check1->isVisible());
        QVERIFY(!p->Check1->isChecked());
        // Unchanged: nothing stored, no connection closed.
        p->Command1->click();
        QVERIFY(released(p));
        QCOMPARE(f.readBytes("ServerTypes"), crlf({"DC1\twindows"}));
        QVERIFY(f.sim.net.cancelled.isEmpty());

        // Cancel keeps the kind.
        w.mnuproperties->trigger();
        p = w.propertiesWindow();
        p->Check1->setChecked(true);
        p->Command2->click();
        QVERIFY(released(p));
        QVERIFY(!f.sim.serverkinds.isWindows("FS1"));
        QVERIFY(f.sim.net.cancelled.isEmpty());

        // OK stores it and closes the connections made for the other kind.
        w.mnuproperties->trigger();
        p = w.propertiesWindow();
        p->Text1->setText("fileserver");
        p->Check1->setChecked(true);
        p->Command1->click();
        QVERIFY(released(p));
        QCOMPARE(f.readBytes("ServerTypes"), crlf({"DC1\twindows", "FS1\twindows"}));
        QCOMPARE(f.sim.net.cancelled, QStringList{"FS1"});
        QCOMPARE(disconnects(f).mid(disconnectsBefore), QStringList{"disconnect FS1"});
        QVERIFY(f.readBytes("FS1").contains("fileserver"));

        // A Windows server shows as one, and goes back to systemd the same way.
        select(w, "DC1");
        w.mnuproperties->trigger();
        p = w.propertiesWindow();
        QVERIFY(p->Check1->isChecked());
        p->Check1->setChecked(false);
        p->Command1->click();
        QVERIFY(released(p));
        QCOMPARE(f.readBytes("ServerTypes"), crlf({"FS1\twindows"}));
        QCOMPARE(f.sim.net.cancelled, (QStringList{"FS1", "DC1"}));
        QCOMPARE(disconnects(f).mid(disconnectsBefore), (QStringList{"disconnect FS1", "disconnect DC1"}));

        // A kind that cannot be stored keeps the window open as it was, the server its kind and
        // its connections.
        f.sim.files.failOn(SimTextFiles::Op::Write, "ServerTypes");
        w.mnuproperties->trigger();
        p = w.propertiesWindow();
        p->Check1->setChecked(true);
        p->Command1->click();
        QCOMPARE(f.sim.boxes.texts().last(), kTypeNotSaved.arg("DC1", "systemd"));
        QVERIFY(p && p->isVisible());
        QVERIFY(p->Check1->isChecked());
        QVERIFY(!f.sim.serverkinds.isWindows("DC1"));
        QCOMPARE(f.readBytes("ServerTypes"), crlf({"FS1\twindows"}));
        QCOMPARE(f.sim.net.cancelled, (QStringList{"FS1", "DC1"}));
        f.sim.files.clearFailures();
        p->Command1->click();
        QVERIFY(released(p));
        QCOMPARE(f.readBytes("ServerTypes"), crlf({"FS1\twindows", "DC1\twindows"}));
        QCOMPARE(f.sim.net.cancelled, (QStringList{"FS1", "DC1", "DC1"}));
    }

    void removingAServerForgetsItsKind()
    {
        WindowFixture f;
        f.writeFile("Computerlist", {"WIN1", "WIN2\tmonitored", "FS1"});
        f.writeFile("Computers", {"WIN2"});
        f.writeFile("WIN2", {"Spooler;Spooler;;;;;;"});
        f.writeFile("ServerTypes", {"WIN1\twindows", "WIN2\twindows"});
        auto& w = f.start();

        // Not removed: still a Windows server.
        select(w, "WIN1");
        f.sim.boxes.script(MsgAnswer::Cancel);
        w.Command14->click();
        QVERIFY(f.sim.serverkinds.isWindows("WIN1"));

        w.Command14->click();
        QCOMPARE(serverNames(w), (QStringList{"WIN2", "FS1"}));
        QCOMPARE(f.readBytes("ServerTypes"), crlf({"WIN2\twindows"}));

        select(w, "WIN2");
        w.Command14->click();
        QCOMPARE(serverNames(w), QStringList{"FS1"});
        QCOMPARE(f.readBytes("ServerTypes"), QByteArray());

        // Added again without the choice, it is a systemd server.
        w.Command13->click();
        QPointer<shell::AddServerDialog> d = w.addServerDialog();
        d->Text1->setText("win2");
        d->OKButton->click();
        QVERIFY(!f.sim.serverkinds.isWindows("WIN2"));
    }

    // Where the platform knows only systemd servers the choice is not offered.
    void noChoiceWithoutWindowsServers()
    {
        platform::sim::SimPlatform sim;
        platform::Platform p = sim.platform();
        p.serverkinds = nullptr;
        QStringList added;
        shell::AddServerDialog d{shell::ServerKindChoice(p)};
        QObject::connect(&d, &shell::AddServerDialog::addRequested, [&](const QString& name) {
            added << name;
            d.added(name);
        });
        d.setAttribute(Qt::WA_DeleteOnClose, false);
        d.show();
        QVERIFY(d.Check1->isHidden());
        d.Text1->setText("fs1");
        d.OKButton->click();
        QCOMPARE(added, QStringList{"FS1"});
        QVERIFY(sim.boxes.shown.isEmpty());
        QVERIFY(!d.isVisible());
    }
};

QTEST_MAIN(TestServerKinds)
#include "tst_serverkinds.moc"
