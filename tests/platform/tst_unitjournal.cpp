// A unit's journal read through sd-journal from a journal file that systemd's own
// systemd-journal-remote writes, compared with what journalctl prints from the same file.
#include "platform/linux/systemdjournal.h"

#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

using namespace velmora::platform;

namespace {
const QString kRemote = QStringLiteral("/lib/systemd/systemd-journal-remote");
} // namespace

class TestUnitJournal : public QObject {
    Q_OBJECT
    QTemporaryDir dir_;

    QStringList journalctl(const QString& unit)
    {
        QProcess p;
        p.start("journalctl", {"--directory=" + dir_.path(), "-u", unit, "-n", "20", "-o", "short-iso", "--no-pager"});
        p.waitForFinished(30000);
        return QString::fromUtf8(p.readAllStandardOutput()).split('\n', Qt::SkipEmptyParts);
    }

private slots:
    void initTestCase()
    {
        if (!QFile::exists(kRemote))
            QSKIP("systemd-journal-remote is not installed (package systemd-journal-remote)");
        // 30 lines of the unit among lines of another unit, the manager's line about it last,
        // one with a character outside ASCII.
        QByteArray entries;
        for (int i = 0; i < 60; ++i) {
            const bool ours = i % 2 == 0;
            QByteArray e = "__REALTIME_TIMESTAMP=" + QByteArray::number(1764079200000000LL + i * 1500000LL) +
                           "\n__MONOTONIC_TIMESTAMP=" + QByteArray::number(1000 + i) +
                           "\n_BOOT_ID=0123456789abcdef0123456789abcdef\n_HOSTNAME=dc1\n";
            if (i == 58)
                e += "SYSLOG_IDENTIFIER=systemd\n_PID=1\nUNIT=crashy.service\nMESSAGE=crashy.service: Failed with result 'exit-code'.\n";
            else
                e += (ours ? QByteArray("SYSLOG_IDENTIFIER=crashy\n_PID=812\n_SYSTEMD_UNIT=crashy.service\n")
                           : QByteArray("SYSLOG_IDENTIFIER=other\n_PID=9\n_SYSTEMD_UNIT=other.service\n")) +
                     "MESSAGE=" + (ours ? "Störung " : "other ") + QByteArray::number(i) + "\n";
            entries += e + "\n";
        }
        QFile in(dir_.filePath("in.export"));
        QVERIFY(in.open(QIODevice::WriteOnly));
        in.write(entries);
        in.close();
        QProcess remote;
        remote.start(kRemote, {"--output=" + dir_.filePath("remote.journal"), in.fileName()});
        QVERIFY(remote.waitForFinished(30000));
        QVERIFY2(remote.exitCode() == 0, remote.readAllStandardError().constData());
        QFile::remove(in.fileName());
    }

    void lastLines_data()
    {
        QTest::addColumn<QString>("computer");
        QTest::addColumn<QString>("unit");
        QTest::addColumn<QString>("problem"); // empty: the lines journalctl prints
        QTest::newRow("local, by key name") << "TESTHOST" << "crashy" << "";
        QTest::newRow("local, short host name") << "testhost" << "crashy.service" << "";
        QTest::newRow("a unit without lines") << "testhost" << "quiet" << "holds no lines of quiet.service";
        QTest::newRow("a Windows server") << "WIN1" << "Spooler" << "Windows server keeps no journal";
        QTest::newRow("a server without a connection") << "DC2" << "crashy" << "no connection to DC2";
    }
    void lastLines()
    {
        QFETCH(QString, computer);
        QFETCH(QString, unit);
        QFETCH(QString, problem);
        SystemdJournal::Options o;
        o.directory = dir_.path();
        o.localName = "testhost.example.org";
        o.isWindows = [](const QString& server) { return server == "WIN1"; };
        o.controlPath = [this](const QString&) { return dir_.filePath("no-such-socket"); };
        SystemdJournal journal(o);
        const JournalLines got = journal.lastLines(computer, unit, 20);
        QVERIFY2(got.problem.contains(problem), qPrintable(got.problem));
        if (problem.isEmpty()) {
            QCOMPARE(got.lines.size(), 20);
            QCOMPARE(got.lines, journalctl(SystemdJournal::unitName(unit)));
            QVERIFY(got.lines.last().endsWith("Failed with result 'exit-code'."));
        } else {
            QVERIFY(got.lines.isEmpty());
        }
    }
};

QTEST_GUILESS_MAIN(TestUnitJournal)
#include "tst_unitjournal.moc"
