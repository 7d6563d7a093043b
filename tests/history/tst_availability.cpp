// The history the job log tells: outages and uptime from the lines the program writes, a
// damaged log read as far as it makes sense, and the reads that follow a growing log.
#include "history/logparser.h"
#include "joblog/joblog.h"

#include <QFile>
#include <QTemporaryDir>
#include <QTest>

using namespace velmora;
using history::History;
using history::LogParser;

namespace {

// Checks every 30 minutes from 08:00 on a day without a clock change.
const QDateTime kBase(QDate(2026, 2, 2), QTime(8, 0));

qint64 minutes(qint64 t) { return (t - kBase.toSecsSinceEpoch()) / 60; }

// A log from lines of a small language: "MIN SERVER SERVICE RESULT" is a check line,
// "MIN SERVER !unreachable", "!maintenance" or "!ended" a server line, "+TEXT" an action line.
QByteArray logOf(const QStringList& script, const QLocale& locale = QLocale(QLocale::German, QLocale::Germany))
{
    QByteArray out;
    for (const QString& line : script) {
        QString text;
        if (line.startsWith('+')) {
            text = line.mid(1);
        } else {
            const QStringList w = line.split(' ');
            const QDateTime at = kBase.addSecs(w[0].toLongLong() * 60);
            static const QMap<QString, QString> messages{{"!unreachable", joblog::kServerNotReachable},
                                                         {"!maintenance", joblog::kServerInMaintenance},
                                                         {"!ended", joblog::kMaintenanceEnded}};
            text = messages.contains(w[2]) ? joblog::serverLineText(at, w[1], messages[w[2]], locale)
                                           : joblog::checkLineText(at, w[1], w[2], w.mid(3).join(' '), locale);
        }
        out += text.toUtf8() + "\r\n";
    }
    return out;
}

// Each outage as "service start-end down=D unchecked=U [states] {actions} note", in minutes
// from 08:00; "open" for one that lasts.
QStringList outagesOf(const History& h, qint64 now)
{
    QStringList out;
    for (const history::ServiceHistory& s : h.services) {
        for (const history::Outage& o : s.outages) {
            const history::OutageSpan span = history::outageSpan(s, o, now);
            out << QStringLiteral("%1 %2-%3 down=%4 unchecked=%5 [%6] {%7} %8")
                       .arg(s.service.isEmpty() ? s.server : s.service)
                       .arg(minutes(o.start))
                       .arg(span.lasting ? QStringLiteral("open") : QString::number(minutes(span.end)))
                       .arg(span.down / 60)
                       .arg(span.unchecked / 60)
                       .arg(o.states.join(';'), history::actionsText(o), history::outageNote(o))
                       .trimmed();
        }
    }
    return out;
}

QString summary(const History& h)
{
    QStringList names;
    for (const history::ServiceHistory& s : h.services)
        names << s.server + '/' + s.service;
    return QStringLiteral("lines=%1 skipped=%2 services=%3")
        .arg(h.lines)
        .arg(h.skipped)
        .arg(names.join(','));
}

class Log {
public:
    Log() : path_(dir_.filePath("Jobs.log")) {}
    void write(const QByteArray& bytes, QIODevice::OpenMode mode = QIODevice::Truncate)
    {
        QFile f(path_);
        QVERIFY(f.open(QIODevice::WriteOnly | mode));
        f.write(bytes);
    }
    const History& read()
    {
        parser_.read(path_);
        return parser_.history();
    }
    QString path() const { return path_; }

private:
    QTemporaryDir dir_;
    QString path_;
    LogParser parser_{1800};
};

} // namespace

class TestAvailability : public QObject {
    Q_OBJECT

private slots:
    void outagesAndUptime_data()
    {
        QTest::addColumn<QStringList>("log");
        QTest::addColumn<int>("now");
        QTest::addColumn<QStringList>("outages");
        QTest::addColumn<double>("uptime"); // of the first service over the last day

        QTest::newRow("a failure, its actions, and the check that found it running")
            << QStringList{"0 WEB1 nginx Running", "30 WEB1 nginx Stopped", "+Alert activated",
                           "+Email sent to ops@example.org", "60 WEB1 nginx Stopped", "+Alert activated",
                           "+Email sent to ops@example.org", "90 WEB1 nginx Running"}
            << 120
            << QStringList{"nginx 30-90 down=60 unchecked=0 [Stopped] "
                           "{Alert activated (2×); Email sent to ops@example.org (2×)}"}
            << 0.5;
        QTest::newRow("the program was not running while the service stayed down")
            << QStringList{"0 WEB1 nginx Running", "30 WEB1 nginx Stopped", "60 WEB1 nginx Stopped",
                           "300 WEB1 nginx Stopped", "330 WEB1 nginx Running"}
            << 360 << QStringList{"nginx 30-330 down=90 unchecked=210 [Stopped] {}"}
            // running 0-30 and 330-360, down 30-90 and 300-330: the time without checks counts for neither
            << 0.4;
        QTest::newRow("the program was not running when the service came back")
            << QStringList{"0 WEB1 nginx Running", "30 WEB1 nginx Stopped", "300 WEB1 nginx Running"}
            << 330 << QStringList{"nginx 30-300 down=30 unchecked=240 [Stopped] {}"} << 2.0 / 3;
        QTest::newRow("a server down is an outage of each of its services")
            << QStringList{"0 WEB1 nginx Running", "0 WEB1 cron Running", "30 WEB1 !unreachable",
                           "60 WEB1 !unreachable", "90 WEB1 nginx Running", "90 WEB1 cron Stopped",
                           "120 WEB1 cron Running"}
            << 120
            << QStringList{"nginx 30-90 down=60 unchecked=0 [Server not answering] {}",
                           "cron 30-120 down=90 unchecked=0 [Server not answering;Stopped] {}"}
            << 0.5;
        QTest::newRow("maintenance ends an outage and is neither up nor down")
            << QStringList{"0 WEB1 nginx Running", "30 WEB1 nginx Stopped", "60 WEB1 !maintenance",
                           "90 WEB1 !maintenance", "120 WEB1 nginx Stopped", "150 WEB1 nginx Running"}
            << 180
            << QStringList{"nginx 30-60 down=30 unchecked=0 [Stopped] {}",
                           "nginx 120-150 down=30 unchecked=0 [Stopped] {}"}
            << 0.5;
        QTest::newRow("the end of maintenance leaves the time until the next check unchecked")
            << QStringList{"0 WEB1 nginx Running", "30 WEB1 !maintenance", "45 WEB1 !ended", "60 WEB1 nginx Running"}
            << 90 << QStringList{} << 1.0;
        QTest::newRow("down at its first check, and a failed query is down")
            << QStringList{"0 WEB1 gone Open Service failed.   Error  1060", "30 WEB1 gone Running"} << 60
            << QStringList{"gone 0-30 down=30 unchecked=0 [Open Service failed.   Error  1060] {} down at its first check"}
            << 0.5;
        QTest::newRow("an outage that lasts, and one whose service is no longer checked")
            << QStringList{"0 WEB1 nginx Running", "30 WEB1 nginx Stopped", "0 DB2 mariadb Stopped"} << 600
            // nginx was last checked at 30: down until the check due at 60, unknown since
            << QStringList{"nginx 30-open down=30 unchecked=0 [Stopped] {} still down",
                           "mariadb 0-open down=30 unchecked=0 [Stopped] {} still down"}
            << 0.5;
        QTest::newRow("a server that never answered has a row of its own")
            << QStringList{"0 DB2 !unreachable", "30 DB2 !unreachable"} << 45
            << QStringList{"DB2 0-open down=45 unchecked=0 [Server not answering] {} still down"} << 0.0;
        QTest::newRow("a clock set back runs no time backwards")
            << QStringList{"0 WEB1 nginx Running", "30 WEB1 nginx Stopped", "15 WEB1 nginx Running"} << 60
            << QStringList{"nginx 30-30 down=0 unchecked=0 [Stopped] {}"} << 1.0;
        QTest::newRow("a longer interval holds from its second check on")
            << QStringList{"0 WEB1 nginx Running", "30 WEB1 nginx Running", "60 WEB1 nginx Running",
                           "120 WEB1 nginx Stopped", "180 WEB1 nginx Stopped", "240 WEB1 nginx Running"}
            // the first two hours are taken as 30 minutes checked and 30 without checks each
            << 240 << QStringList{"nginx 120-240 down=90 unchecked=30 [Stopped] {}"} << 0.5;
    }

    void outagesAndUptime()
    {
        QFETCH(QStringList, log);
        QFETCH(int, now);
        QFETCH(QStringList, outages);
        QFETCH(double, uptime);
        Log file;
        file.write(logOf(log));
        const History& h = file.read();
        const qint64 at = kBase.toSecsSinceEpoch() + now * 60;
        QCOMPARE(outagesOf(h, at), outages);
        QCOMPARE(h.services.front().uptime(at - history::kDay, at, at), uptime);
    }

    void damagedLog_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<QString>("summary");
        QTest::addColumn<int>("outages");

        const QByteArray good = logOf({"0 WEB1 nginx Running", "30 WEB1 nginx Stopped", "+Alert activated",
                                       "60 WEB1 nginx Running"});
        QTest::newRow("odd lines between good ones")
            << "hello\r\n" + logOf({"0 WEB1 nginx Running"}) + "\r\n" +
                   "31.02.2026 08:00:00\tWEB1\tnginx\tRunning\r\n"
                   "02.02.2026 27:00:00\tWEB1\tnginx\tRunning\r\n"
                   "02.02.2026 08:00:00\tWEB1\r\n"
                   "02.02.2026 08:10:00\tWEB1\tSomething else happened\r\n"
                   "\x01\xff\xfe\r\n" +
                   logOf({"30 WEB1 nginx Stopped", "+Alert activated", "60 WEB1 nginx Running", "+stray text"})
            << "lines=12 skipped=8 services=WEB1/nginx" << 1;
        QTest::newRow("Latin-1 names, a US clock and lone CR line ends")
            << QByteArray("02.02.2026 8:00:00 AM\tWEB1\tDienst-\xe4\tRunning\r"
                          "02.02.2026 8:30:00 PM\tWEB1\tDienst-\xe4\tStopped\r")
            << "lines=2 skipped=0 services=WEB1/Dienst-ä" << 1;
        QTest::newRow("an emptied log") << QByteArray() << "lines=0 skipped=0 services=" << 0;
        QTest::newRow("five megabytes without line end")
            << QByteArray(5 << 20, 'x') + "\r\n" + good << "lines=5 skipped=1 services=WEB1/nginx" << 1;
    }

    void damagedLog()
    {
        QFETCH(QByteArray, bytes);
        QFETCH(QString, summary);
        QFETCH(int, outages);
        Log file;
        file.write(bytes);
        const History& h = file.read();
        QCOMPARE(::summary(h), summary);
        int found = 0;
        for (const history::ServiceHistory& s : h.services)
            found += int(s.outages.size());
        QCOMPARE(found, outages);
    }

    void followsTheLog_data()
    {
        // "append:" and "replace:" with log lines, "bytes:" appended as they are, "truncate", "read"
        QTest::addColumn<QStringList>("steps");
        QTest::addColumn<QStringList>("expected"); // after each step: bytes read, then the outages

        QTest::newRow("Delele Logfile: the history starts again with the new log")
            << QStringList{"append:0 WEB1 nginx Running|30 WEB1 nginx Stopped", "truncate",
                           "append:300 WEB1 nginx Stopped|330 WEB1 nginx Running"}
            << QStringList{"read all|nginx 30-open down=30 unchecked=0 [Stopped] {} still down", "read anew",
                           "read all|nginx 300-330 down=30 unchecked=0 [Stopped] {} down at its first check"};
        QTest::newRow("a log replaced by a longer one is read anew")
            << QStringList{"append:0 WEB1 nginx Stopped", "replace:0 DB2 mariadb Running|30 DB2 mariadb Stopped"}
            << QStringList{"read all|nginx 0-open down=30 unchecked=0 [Stopped] {} still down",
                           "read anew|mariadb 30-open down=30 unchecked=0 [Stopped] {} still down"};
        QTest::newRow("a line being written is read once it is whole")
            << QStringList{"append:0 WEB1 nginx Running", "bytes:02.02.2026 08:30:00\tWEB1\tnginx\tSto",
                           "bytes:pped\r\n"}
            << QStringList{"read all", "read new", "read new|nginx 30-open down=30 unchecked=0 [Stopped] {} still down"};
        QTest::newRow("a last line without line end is taken once it stands still")
            << QStringList{"append:0 WEB1 nginx Running", "bytes:02.02.2026 08:30:00\tWEB1\tnginx\tStopped", "read",
                           "bytes:\r\n", "append:60 WEB1 nginx Running"}
            << QStringList{"read all", "read new", "read new|nginx 30-open down=30 unchecked=0 [Stopped] {} still down",
                           "read new|nginx 30-open down=30 unchecked=0 [Stopped] {} still down",
                           "read new|nginx 30-60 down=30 unchecked=0 [Stopped] {}"};
    }

    void followsTheLog()
    {
        QFETCH(QStringList, steps);
        QFETCH(QStringList, expected);
        Log file;
        qint64 before = 0; // bytes read up to the last read
        for (int n = 0; n < steps.size(); ++n) {
            const QString step = steps[n];
            const QString arg = step.section(':', 1);
            QByteArray bytes;
            if (step.startsWith("append:") || step.startsWith("replace:"))
                bytes = logOf(arg.split('|'));
            else if (step.startsWith("bytes:"))
                bytes = arg.toUtf8();
            if (step.startsWith("replace:") || step == "truncate")
                file.write(bytes);
            else
                file.write(bytes, QIODevice::Append);
            const qint64 size = QFileInfo(file.path()).size();
            const History& h = file.read();
            // What the read went through: the whole file, only its new bytes, or the whole
            // file again after it was emptied or replaced.
            const QString read = h.reread                       ? QString("read anew")
                                 : h.lastReadBytes != size - before ? QString("read %1 of %2 bytes").arg(h.lastReadBytes).arg(size)
                                 : before == 0                      ? QString("read all")
                                                                    : QString("read new");
            before = h.bytes;
            QCOMPARE((QStringList{read} + outagesOf(h, kBase.toSecsSinceEpoch() + 3600)).join('|'), expected[n]);
        }
    }
};

QTEST_GUILESS_MAIN(TestAvailability)
#include "tst_availability.moc"
