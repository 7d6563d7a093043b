// The names the computer chooser gathers from hosts, ssh files and mDNS, and its dialog.
#include "platform/linux/computerchooser.h"
#include "support/bytefiles.h"

#include <QDialogButtonBox>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QTemporaryDir>
#include <QTest>

using namespace velmora::platform;
using velmora::test::putBytes;

namespace {

QStringList listTexts(const QListWidget* list)
{
    QStringList out;
    for (int i = 0; i < list->count(); ++i)
        out << list->item(i)->text();
    return out;
}

} // namespace

class TestKnownComputers : public QObject {
    Q_OBJECT
private:
    QTemporaryDir dir;
    KnownComputerSources files;

    QString file(const QString& name) const { return dir.filePath(name); }

    // A stand-in avahi-browse printing output, then, when lingering, staying on like a browse
    // that never finishes.
    QString fakeAvahi(const QString& name, const QByteArray& output, bool lingering = false)
    {
        const QString path = file(name);
        putBytes(path, "#!/bin/sh\n[ \"$*\" = \"-a -t -r -p\" ] || exit 3\nprintf '%s' '" + output + "'\n"
                            + (lingering ? "exec sleep 3600\n" : ""),
                  true);
        return path;
    }

private slots:
    void initTestCase()
    {
        QVERIFY(dir.isValid());
        putBytes(file("hosts"),
                          "127.0.0.1\tlocalhost\n"
                          "127.0.1.1\tworkstation.example.lan workstation\n"
                          "::1     localhost ip6-localhost ip6-loopback\n"
                          "ff02::1 ip6-allnodes\n"
                          "# 10.0.0.9 commented-out\n"
                          "10.0.0.5   fileserver FILESERVER.example.lan   # the old one\n"
                          "fd00::7 v6only\n"
                          "\n");
        putBytes(file("known_hosts"),
                          "alpha,10.0.0.20 ssh-ed25519 AAAAC3NzaC1lZDI1NTE5AAAAIExample\n"
                          "[beta.example.lan]:2222,[10.0.0.21]:2222 ssh-ed25519 AAAAC3Nza\n"
                          "10.0.0.22 ecdsa-sha2-nistp256 AAAAE2Vj\n"
                          "|1|F1E1KeoE/eEWhi10WpGv4OdiO6Y=|3988QV0VE8wmZL7suNrYQLITLCg= ssh-rsa AAAA\n"
                          "@cert-authority *.example.lan ssh-ed25519 AAAAC3Nza\n"
                          "*.wild,delta? ssh-ed25519 AAAAC3Nza\n"
                          "Fileserver ssh-ed25519 AAAAC3Nza\n");
        putBytes(file("ssh_config"),
                          "Host jump build-01\n"
                          "    HostName 10.0.0.30\n"
                          "Host *\n"
                          "  ServerAliveInterval 30\n"
                          "host=Mail\n"
                          "Host web-* !web-test db # databases\n"
                          "Match host foo\n"
                          "  HostName foo.example.lan\n");
        files.hostsFile = file("hosts");
        files.knownHostsFile = file("known_hosts");
        files.sshConfigFile = file("ssh_config");
    }

    void namesComeFromHostsKnownHostsAndSshConfigEachOnceSorted()
    {
        const QStringList expected{"10.0.0.22",   "alpha",     "beta.example.lan", "build-01",
                                   "db",          "fileserver", "FILESERVER.example.lan", "jump",
                                   "Mail",        "v6only",    "workstation",      "workstation.example.lan"};
        QCOMPARE(knownComputersFromFiles(files), expected);
        // Missing files give no names.
        QCOMPARE(knownComputersFromFiles({file("no-hosts"), file("no-known_hosts")}), QStringList());
    }

    void dialogListsNamesAndReturnsTheTypedOrClickedOne()
    {
        KnownComputerSources s = files;
        // A browse that never ends by itself: it is cut off, keeping what it found.
        s.avahiProgram = fakeAvahi("avahi-browse",
                                   "+;eth0;IPv4;Office Printer;_ipp._tcp;local\n"
                                   "=;eth0;IPv4;Office Printer;_ipp._tcp;local;printer-7.local;192.168.1.7;631;\"rp=ipp\"\n"
                                   "=;eth0;IPv6;Office Printer;_ipp._tcp;local;printer-7.local;fe80::7;631;\n"
                                   "=;eth0;IPv4;nas;_smb._tcp;local;nas.local;192.168.1.8;445;\n"
                                   "=;eth0;IPv4;alpha;_ssh._tcp;local;ALPHA;192.168.1.9;22;\n",
                                   true);
        s.avahiTimeoutMs = 300;
        KnownComputersDialog dialog(s, "Select Computer :   ");
        dialog.show();
        auto* list = dialog.findChild<QListWidget*>("listComputers");
        auto* edit = dialog.findChild<QLineEdit*>("editComputer");
        auto* buttons = dialog.findChild<QDialogButtonBox*>("buttons");
        QVERIFY(list && edit && buttons);
        QVERIFY(listTexts(list).contains("workstation"));
        // The mDNS names join once the browse has answered, each once, still in order.
        QTRY_VERIFY(listTexts(list).contains("nas.local"));
        QCOMPARE(listTexts(list).count("printer-7.local"), 1);
        QVERIFY(!listTexts(list).contains("ALPHA")); // "alpha" is there already
        QStringList sorted = listTexts(list);
        std::sort(sorted.begin(), sorted.end(), [](const QString& a, const QString& b) {
            return a.compare(b, Qt::CaseInsensitive) < 0;
        });
        QCOMPARE(listTexts(list), sorted);

        QPushButton* ok = buttons->button(QDialogButtonBox::Ok);
        QVERIFY(!ok->isEnabled()); // nothing chosen yet

        const auto alpha = list->findItems("alpha", Qt::MatchExactly);
        QCOMPARE(alpha.size(), 1);
        QTest::mouseClick(list->viewport(), Qt::LeftButton, {}, list->visualItemRect(alpha.first()).center());
        QCOMPARE(edit->text(), QString("alpha"));
        QVERIFY(ok->isEnabled());

        edit->clear();
        QTest::keyClicks(edit, "  newbox ");
        QCOMPARE(dialog.computerName(), QString("newbox"));
        QTest::mouseClick(ok, Qt::LeftButton);
        QCOMPARE(dialog.result(), int(QDialog::Accepted));
    }
};

QTEST_MAIN(TestKnownComputers)
#include "tst_knowncomputers.moc"
