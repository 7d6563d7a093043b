// The stored files of the data folder: exact bytes, round trips, and broken files.
#include "core/datafolder.h"
#include "core/serverfile.h"
#include "core/serverlistfile.h"
#include "core/settings.h"
#include "platform/sim/simplatform.h"
#include "support/bytefiles.h"

#include <QDir>
#include <QFile>
#include <QRandomGenerator>
#include <QSet>
#include <QTemporaryDir>
#include <QTest>

#include <memory>

using namespace velmora;
using namespace velmora::core;
using Op = platform::sim::SimTextFiles::Op;
using test::bytesOf;
using test::putBytes;

namespace {

const QByteArray templateBytes = "[Properties:]\r\n[Servername / Alias:]\r\n\r\n[IP Address / Subnet:]\r\n\r\n"
                                 "[Role / Priority:]\r\n\r\n[Location / Department:]\r\n\r\n"
                                 "[Responsibles / Contact:]\r\n\r\n[Action list for monitoring staff]\r\n\r\n"
                                 "[Remarks / Comments:]\r\n\r\n[EOF]\r\n";

MonitoredService service(const QString& display, const QString& name, QStringList actions)
{
    MonitoredService s{display, name, {}};
    for (int i = 0; i < actions.size() && i < 5; ++i)
        s.actions[size_t(i)] = actions[i];
    return s;
}

} // namespace

class TestDataFiles : public QObject {
    Q_OBJECT
    // A data folder of each test's own, read and written through the disk backend.
    std::unique_ptr<QTemporaryDir> dir_;
    platform::DiskTextFiles disk;
    QString file(const QString& name) const { return dir_->filePath(name); }

private slots:
    void init() { dir_ = std::make_unique<QTemporaryDir>(); }

    // ---- data folder ----

    void dataFolderIsTheProgramFolderUnlessReadOnly()
    {
        platform::sim::SimSystem system;
        system.program_folder = dir_->path() + "/bin/";
        system.user_data_folder = dir_->path() + "/home/.local/share/velmora";
        QCOMPARE(chooseDataFolder(system), dir_->path() + "/bin");
        system.program_folder_writable = false;
        system.program_folder = dir_->path() + "/bin"; // the sim compares this spelling
        QCOMPARE(chooseDataFolder(system), system.user_data_folder);
        QVERIFY(QDir(system.user_data_folder).exists());
    }

    // Every server name has a file of its own, inside the data folder; a name without "%" keeps
    // the file earlier versions gave it.
    void everyServerNameHasAFileOfItsOwn()
    {
        const QStringList names{"DC1", "A/B", "A%2FB", "A%252FB", "50%", "../Settings", "..%2FSettings",
                                QString("A") + QChar(0) + "B", "A%00B"};
        QSet<QString> seen;
        for (const QString& name : names) {
            const QString path = dataFile("/opt/velmora", name);
            QVERIFY2(path.startsWith("/opt/velmora/") && !path.mid(13).contains('/') && !path.contains(QChar(0)),
                     qPrintable(path));
            QVERIFY2(!seen.contains(path.toLower()), qPrintable(name + " shares " + path));
            seen.insert(path.toLower());
        }
        QCOMPARE(dataFile("/opt/velmora", "A/B"), QString("/opt/velmora/A%2FB"));
        QCOMPARE(dataFile("/opt/velmora", "../Settings"), QString("/opt/velmora/..%2FSettings"));
    }

    // A server whose name holds "%" finds the file an earlier version named for it: moved to
    // its new name, or copied when that file is also another listed server's under the new names.
    void serverFilesOfEarlierNamesAreCarriedOver_data()
    {
        QTest::addColumn<QStringList>("servers");
        QTest::addColumn<bool>("oldFileStays");
        QTest::newRow("alone") << QStringList{"A%2FB"} << false;
        QTest::newRow("beside A/B") << QStringList{"A%2FB", "A/B"} << true;
    }
    void serverFilesOfEarlierNamesAreCarriedOver()
    {
        QFETCH(QStringList, servers);
        QFETCH(bool, oldFileStays);
        putBytes(file("A%2FB"), "Print Spooler;spooler;Alert;;;;;\r\n" + templateBytes);
        putBytes(file("50%"), "kept as it is\r\n"); // a server that is not listed
        QCOMPARE(moveEarlierServerFiles(disk, dir_->path(), servers), 1);
        QCOMPARE(readMonitoredServices(disk, dataFile(dir_->path(), "A%2FB")).size(), size_t(1));
        QCOMPARE(QFile::exists(file("A%2FB")), oldFileStays);
        if (oldFileStays)
            QCOMPARE(readMonitoredServices(disk, dataFile(dir_->path(), "A/B")).size(), size_t(1));
        QCOMPARE(bytesOf(file("50%")), QByteArray("kept as it is\r\n"));
        // Once carried over, nothing moves again.
        QCOMPARE(moveEarlierServerFiles(disk, dir_->path(), servers), 0);
    }

    // ---- exact bytes of every writer, and what they read back as ----

    void writersProduceTheExactCrLfBytesAndReadThemBack()
    {
        const QString settings = file("Settings");
        SettingsRecord r = SettingsRecord::defaults(dir_->path());
        QVERIFY(writeSettings(disk, settings, r));
        QCOMPARE(bytesOf(settings), "True\r\nTrue\r\n5\r\n1\r\nTrue\r\nTrue\r\nTrue\r\n" + QByteArray("\r\n").repeated(8)
                                        + "False\r\nFalse\r\n1000\r\n" + file("AutoExport.txt").toUtf8()
                                        + "\r\neof\r\n");
        r.popupalert = r.reporterrors = false;
        r.autoexport = true;
        r.reportleft = "1200";
        r.reporttop = "-300";
        r.alertleft = "0";
        r.autoexportfile = file("Ausfuhr – März.txt");
        QVERIFY(writeSettings(disk, settings, r));
        SettingsRecord back;
        readSettings(disk, settings, back);
        QVERIFY(writeSettings(disk, file("Again"), back));
        QCOMPARE(bytesOf(file("Again")), bytesOf(settings));

        const QString list = file("Computerlist");
        const std::vector<ServerListLine> servers{{"FS1", false}, {"DC1", true}};
        QVERIFY(writeServerList(disk, list, servers));
        QCOMPARE(bytesOf(list), QByteArray("FS1\r\nDC1\tmonitored\r\n"));
        QCOMPARE(readServerList(disk, list), servers);

        // One action: the line ends in five semicolons in a row. Lines that are no record stay.
        ServerProperties props;
        props.recordlines << recordLineText(service("Print Spooler", "Spooler", {"Alert"}))
                          << recordLineText(service("Server", "LanmanServer",
                                                    {"Alert", "Restart Service", "Send Email to: ops@example.org",
                                                     "Net Message Send to: ADMIN", "Play Sound: C:\\a.wav"}))
                          << "a hand-written note" << "";
        props.alias = "Domain controller";
        props.ipaddress = "10.0.0.1 / 255.255.255.0";
        props.role = "Mail / high";
        props.responsibles = "Ann\r\n\r\nBob";
        props.staffactions = "1. call Ann\r\n2. restart";
        props.remarks = "ends with a blank line\r\n";
        const QString server = file("DC1");
        QVERIFY(disk.writeLines(server, propertiesFileLines(props)));
        QCOMPARE(bytesOf(server),
                 QByteArray("Print Spooler;Spooler;Alert;;;;;\r\n"
                            "Server;LanmanServer;Alert;Restart Service;Send Email to: ops@example.org;"
                            "Net Message Send to: ADMIN;Play Sound: C:\\a.wav;\r\n"
                            "a hand-written note\r\n\r\n"
                            "[Properties:]\r\n[Servername / Alias:]\r\nDomain controller\r\n"
                            "[IP Address / Subnet:]\r\n10.0.0.1 / 255.255.255.0\r\n[Role / Priority:]\r\nMail / high\r\n"
                            "[Location / Department:]\r\n\r\n[Responsibles / Contact:]\r\nAnn\r\n\r\nBob\r\n"
                            "[Action list for monitoring staff]\r\n1. call Ann\r\n2. restart\r\n"
                            "[Remarks / Comments:]\r\nends with a blank line\r\n\r\n[EOF]\r\n"));
        QCOMPARE(parseProperties(*disk.readLines(server)), props);

        // The empty block (its bytes are those lookInFile() adds): read as all fields empty,
        // written back the same.
        const ServerProperties empty = parseProperties(emptyPropertiesTemplate());
        QCOMPARE(empty, ServerProperties{});
        QCOMPARE(propertiesFileLines(empty), emptyPropertiesTemplate());
    }

    void multiLineTextsUseAnyLineBreakButSingleLineFieldsStayOneLine()
    {
        ServerProperties props;
        props.alias = "two\r\nlines";
        props.remarks = "a\nb\rc";
        const QStringList lines = propertiesFileLines(props);
        QCOMPARE(lines.size(), 18);
        QCOMPARE(lines.at(2), QString("two lines"));
        const ServerProperties back = parseProperties(lines);
        QCOMPARE(back.alias, QString("two lines"));
        QCOMPARE(back.remarks, QString("a\r\nb\r\nc"));
    }

    // ---- reading rules ----

    void serverListLines_data()
    {
        QTest::addColumn<QString>("line");
        QTest::addColumn<QString>("name");
        QTest::addColumn<bool>("monitored");
        QTest::newRow("plain") << "FS1" << "FS1" << false;
        QTest::newRow("monitored") << "DC1\tmonitored" << "DC1" << true;
        QTest::newRow("capital M is part of the name") << "DC1\tMonitored" << "DC1\tMonitored" << false;
        QTest::newRow("name before the first tab") << "DC1\tx\tmonitored" << "DC1" << true;
        QTest::newRow("blank instead of tab") << "DC1 monitored" << "DC1" << true;
        QTest::newRow("word alone") << "monitored" << "" << true;
    }
    void serverListLines()
    {
        QFETCH(QString, line);
        QFETCH(QString, name);
        QFETCH(bool, monitored);
        QCOMPARE(parseServerListLine(line), (ServerListLine{name, monitored}));
    }

    void recordLines_data()
    {
        QTest::addColumn<QString>("line");
        QTest::addColumn<bool>("isRecord");
        QTest::addColumn<QStringList>("fields");
        QTest::newRow("one action") << "Print Spooler;Spooler;Alert;;;;;" << true
                                    << QStringList{"Print Spooler", "Spooler", "Alert", "", "", "", ""};
        QTest::newRow("extra fields ignored") << "a;b;1;2;3;4;5;6;7;" << true
                                              << QStringList{"a", "b", "1", "2", "3", "4", "5"};
        QTest::newRow("six fields") << "Print Spooler;Spooler;Alert;;;;" << true
                                                << QStringList{"Print Spooler", "Spooler", "Alert", "", "", "", ""};
        QTest::newRow("no semicolon at the end") << "Print Spooler;Spooler;Alert" << false << QStringList{};
        QTest::newRow("trailing blank") << "a;b;Alert;;;;; " << false << QStringList{};
    }
    void recordLines()
    {
        QFETCH(QString, line);
        QFETCH(bool, isRecord);
        QFETCH(QStringList, fields);
        const auto record = parseRecordLine(line);
        QCOMPARE(record.has_value(), isRecord);
        if (!record)
            return;
        QStringList got{record->displayname, record->servicename};
        for (const QString& a : record->actions)
            got << a;
        QCOMPARE(got, fields);
    }

    void smtpFile()
    {
        const QString smtp = file("smtpserver"); // case-blind name
        putBytes(smtp, "mail.example.org\r\n587\r\nvelmora@example.org");
        auto s = readSmtpSettings(disk, file(files::smtpserver));
        QCOMPARE(s.server, QString("mail.example.org"));
        QCOMPARE(s.port, 587);
        QCOMPARE(s.sender, QString("velmora@example.org"));
        // Every port a server can listen on is kept, up to 65535.
        putBytes(smtp, "host\r\n40000\r\n");
        QCOMPARE(readSmtpSettings(disk, smtp).port, 40000);
        for (const QByteArray& port : {QByteArray("65536"), QByteArray("-1"), QByteArray("25x"), QByteArray("")}) {
            putBytes(smtp, "host\r\n" + port + "\r\nme@example.org\r\n");
            s = readSmtpSettings(disk, smtp);
            QCOMPARE(s.port, 0);
            QCOMPARE(s.sender, QString("me@example.org"));
        }
        putBytes(smtp, "host\r\n");
        s = readSmtpSettings(disk, smtp);
        QCOMPARE(s.server, QString("host"));
        QCOMPARE(s.port, 0);
        QCOMPARE(s.sender, QString());
    }

    void settingsAcceptBooleanSpellings()
    {
        for (const char* t : {"True", " true ", "#TRUE#", "-1", "2.5"})
            QCOMPARE(parseBool(t), std::optional<bool>(true));
        for (const char* t : {"FALSE", "#false#", "0"})
            QCOMPARE(parseBool(t), std::optional<bool>(false));
        for (const char* t : {"", "yes", "Truee", "nan"})
            QCOMPARE(parseBool(t), std::nullopt);
    }

    void damagedSettingsStopAtTheFirstBadLine()
    {
        const QString path = file("Settings");

        // Line 2 is not a Boolean: line 1 is read, the rest keeps the initial values.
        putBytes(path, "True\r\nmaybe\r\n7\r\n2\r\nTrue\r\n");
        SettingsRecord r; // as a caller starts: every field empty or False, end marker "eof"
        readSettings(disk, path, r);
        QVERIFY(r.popupalert && !r.reportascending);
        QCOMPARE(r.reportinterval, QString());
        QCOMPARE(r.endmarker, QString("eof"));

        // A short file: what is there is read, the defaults are not applied to the rest.
        putBytes(path, "False\r\nFalse\r\n10\r\n3\r\nTrue\r\nFALSE\r\n1\r\n100\r\n");
        r = {};
        r.mainleft = "777";
        readSettings(disk, path, r);
        QVERIFY(!r.popupalert && !r.reportascending && r.reporterrors && !r.reportrunning && r.reportnotrunning);
        QCOMPARE(r.reportinterval, QString("10"));
        QCOMPARE(r.reportleft, QString("100"));
        QCOMPARE(r.reporttop, QString());
        QCOMPARE(r.mainleft, QString("777"));
        QCOMPARE(r.autoexportcount, QString());

        // CR-only line ends and a last line without an end are read like any other.
        SettingsRecord full = SettingsRecord::defaults(dir_->path());
        full.alerttop = "45";
        QVERIFY(writeSettings(disk, path, full));
        QByteArray bytes = bytesOf(path).replace("\r\n", "\r");
        bytes.chop(1);
        putBytes(path, bytes);
        r = {};
        r.endmarker.clear();
        readSettings(disk, path, r);
        QCOMPARE(r.alerttop, QString("45"));
        QCOMPARE(r.endmarker, QString("eof"));
    }

    void propertiesHeaderOutOfPlaceLeavesFieldsEmpty()
    {
        // No alias header: its check takes the address header, the address check takes the
        // address itself, and the reading picks up again at the role header.
        const QStringList lines{"Spooler;Spooler;Alert;;;;;",
                                "[Properties:]",
                                "[IP Address / Subnet:]",
                                "10.0.0.1",
                                "[Role / Priority:]",
                                "DNS",
                                "[Location / Department:]",
                                "Room 1",
                                "[Responsibles / Contact:]",
                                "Ann",
                                "[Action list for monitoring staff]",
                                "[Remarks / Comments:]",
                                "r1",
                                "r2",
                                "[EOF]",
                                "after the end"};
        const ServerProperties p = parseProperties(lines);
        QCOMPARE(p.recordlines, QStringList{"Spooler;Spooler;Alert;;;;;"});
        QCOMPARE(p.alias, QString());
        QCOMPARE(p.ipaddress, QString());
        QCOMPARE(p.role, QString("DNS"));
        QCOMPARE(p.location, QString("Room 1"));
        QCOMPARE(p.responsibles, QString("Ann"));
        QCOMPARE(p.staffactions, QString());
        QCOMPARE(p.remarks, QString("r1\r\nr2"));
        // No block at all: every line is a preserved line.
        const ServerProperties none = parseProperties({"a;b;;;;;;", "", "note"});
        QCOMPARE(none.recordlines, (QStringList{"a;b;;;;;;", "", "note"}));
        QCOMPARE(none.alias, QString());
    }

    // ---- lookInFile ----

    void lookInFileTidiesAndCompletes()
    {
        const QString path = file("DC1");

        QVERIFY(lookInFile(disk, path));
        QVERIFY(!QFile::exists(path)); // a missing file stays missing

        putBytes(path, "\r\nPrint Spooler;Spooler;Alert;;;;;\r\n\r\nnote\r\n\r\n");
        QVERIFY(lookInFile(disk, path));
        QCOMPARE(bytesOf(path), "Print Spooler;Spooler;Alert;;;;;\r\nnote\r\n" + templateBytes);

        // Blank lines inside the block stay; a last line without a line end is lost.
        const QByteArray withBlock = "\r\nA;a;;;;;;\r\n[Properties:]\r\n\r\n\r\n[EOF]\r\n";
        putBytes(path, withBlock + "tail");
        QVERIFY(lookInFile(disk, path));
        QCOMPARE(bytesOf(path), withBlock.mid(2));
        QVERIFY(lookInFile(disk, path));
        QCOMPARE(bytesOf(path), withBlock.mid(2));

        putBytes(path, "");
        QVERIFY(lookInFile(disk, path));
        QCOMPARE(bytesOf(path), templateBytes);
    }

    void lookInFileNeverLosesAFileItCannotRewrite()
    {
        platform::sim::SimTextFiles disk;
        const QString path = file("DC1");
        const QByteArray old = "\r\nA;a;Alert;;;;;\r\n";
        putBytes(path, old);
        disk.failOn(Op::Read, "DC1");
        QVERIFY(!lookInFile(disk, path));
        QCOMPARE(bytesOf(path), old);
        disk.clearFailures();
        disk.failOn(Op::Write, "DC1");
        QVERIFY(!lookInFile(disk, path));
        QCOMPARE(bytesOf(path), old);
    }

    // ---- broken disk: every reader survives and keeps what the rules say ----

    void brokenFiles_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<bool>("present");
        QByteArray garbage(64 * 1024, '\0');
        QRandomGenerator rng(1234);
        for (char& c : garbage)
            c = char(rng.bounded(256));
        QTest::newRow("missing") << QByteArray() << false;
        QTest::newRow("empty") << QByteArray() << true;
        QTest::newRow("binary garbage") << garbage << true;
        QTest::newRow("nul bytes") << QByteArray("DC1\0\r\n\0\0\r\n", 9) << true;
        QTest::newRow("truncated block") << QByteArray("a;b;;;;;;\r\n[Properties:]\r\n[Servername / Alias:]\r\n")
                                         << true;
    }
    void brokenFiles()
    {
        QFETCH(QByteArray, bytes);
        QFETCH(bool, present);
        const QStringList names{"Settings", "Computerlist", "Computers", "Interval", "SMTPServer", "DC1"};
        if (present)
            for (const QString& n : names)
                putBytes(file(n), bytes);

        SettingsRecord r;
        readSettings(disk, file("Settings"), r);
        QCOMPARE(r.endmarker, QString("eof"));
        if (present) // none of these has a Boolean first line: nothing is taken
            QVERIFY(!r.popupalert && r.reportinterval.isEmpty());

        for (const ServerListLine& e : readServerList(disk, file("Computerlist")))
            QVERIFY(!e.name.trimmed().isEmpty());
        for (const QString& n : readMonitoredServers(disk, file("Computers")))
            QVERIFY(!n.trimmed().isEmpty());
        readIntervalText(disk, file("Interval"));
        readSmtpSettings(disk, file("SMTPServer"));

        const auto services = readMonitoredServices(disk, file("DC1"));
        const auto lines = disk.readLines(file("DC1"));
        QCOMPARE(lines.has_value(), present);
        const ServerProperties props = parseProperties(lines.value_or(QStringList{}));
        QVERIFY(size_t(props.recordlines.size()) >= services.size());

        QVERIFY(lookInFile(disk, file("DC1")));
        QCOMPARE(QFile::exists(file("DC1")), present);
        if (present) {
            // Afterwards the file always has a properties block and still every record.
            const QStringList after = *disk.readLines(file("DC1"));
            QVERIFY(after.contains("[Properties:]"));
            QCOMPARE(readMonitoredServices(disk, file("DC1")).size(), services.size());
        }
    }

    void brokenFilesKeepWhatTheyCan()
    {
        // "Computerlist" keeps a last line without an end, "Computers" counts only ended lines.
        const QByteArray list = "\r\nDC1\tmonitored\rFS1\n\r\nDC2\tMonitored\r\nWEB1";
        putBytes(file("Computerlist"), list);
        putBytes(file("Computers"), list);
        const std::vector<ServerListLine> want{{"DC1", true}, {"FS1", false}, {"DC2\tMonitored", false}, {"WEB1", false}};
        QCOMPARE(readServerList(disk, file("Computerlist")), want);
        QCOMPARE(readMonitoredServers(disk, file("Computers")),
                 (QStringList{"DC1\tmonitored", "FS1", "DC2\tMonitored"}));

        const QString server = file("DC1");
        putBytes(server, "Print Spooler;Spooler;Alert;;;;;\r\n\r\nno semicolon at the end\r\n"
                         "W32Time;W32Time;Restart Service;Alert;;;;\r\n[Properties:]\r\nx;y;;;;;;\r\n");
        const auto services = readMonitoredServices(disk, server);
        QCOMPARE(services.size(), size_t(2));
        QCOMPARE(services[1], service("W32Time", "W32Time", {"Restart Service", "Alert"}));
    }
};

QTEST_MAIN(TestDataFiles)
#include "tst_datafiles.moc"
