// The disk text-file backend: line reading rules, case-blind names, atomic replacement, a full
// disk (a real one: a small tmpfs in a user and mount namespace of the test's own, and the
// simulated backend's disk that fills part-way).
#include "platform/linux/disktextfiles.h"
#include "platform/sim/simplatform.h"
#include "support/bytefiles.h"
#include "support/smalldisk.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QMap>
#include <QTemporaryDir>
#include <QTest>

#include <cerrno>
#include <cstring>
#include <memory>
#include <thread>
#include <unistd.h>

using namespace velmora::platform;
using velmora::test::bytesOf;
using velmora::test::putBytes;

namespace {

QStringList entries(const QString& dir)
{
    return QDir(dir).entryList(QDir::Files | QDir::Hidden | QDir::System, QDir::Name);
}

} // namespace

class TestTextFiles : public QObject {
    Q_OBJECT
    // A folder of each test's own.
    std::unique_ptr<QTemporaryDir> dir_;
    DiskTextFiles files;
    QString file(const QString& name) const { return dir_->filePath(name); }

private slots:
    void init() { dir_ = std::make_unique<QTemporaryDir>(); }

    void splitRecognisesEveryLineEnd_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<QStringList>("terminated");
        QTest::addColumn<QStringList>("withLast");
        QTest::newRow("mixed") << QByteArray("a\r\nb\nc\rd\r\n") << QStringList{"a", "b", "c", "d"}
                               << QStringList{"a", "b", "c", "d"};
        QTest::newRow("cr then crlf is two lines") << QByteArray("a\r\r\n") << QStringList{"a", ""}
                                                   << QStringList{"a", ""};
        QTest::newRow("lf cr is two lines") << QByteArray("a\n\rb") << QStringList{"a", ""}
                                            << QStringList{"a", "", "b"};
        QTest::newRow("unterminated last") << QByteArray("30\r\nxyz") << QStringList{"30"}
                                           << QStringList{"30", "xyz"};
        QTest::newRow("empty") << QByteArray() << QStringList{} << QStringList{};
    }
    void splitRecognisesEveryLineEnd()
    {
        QFETCH(QByteArray, bytes);
        QFETCH(QStringList, terminated);
        QFETCH(QStringList, withLast);
        QCOMPARE(splitTextLines(bytes, false), terminated);
        QCOMPARE(splitTextLines(bytes, true), withLast);
    }

    void readersSkipTheUnterminatedLastLineUnlessAsked()
    {
        const QString path = file("Computers");
        putBytes(path, "DC1\r\nFS1\nWEB1");
        QCOMPARE(*files.readLines(path, true), (QStringList{"DC1", "FS1", "WEB1"}));
        QCOMPARE(files.lineCount(path), 2);
        QCOMPARE(*files.readAll(path), QString("DC1\r\nFS1\nWEB1"));

        QVERIFY(!files.readLines(file("missing")));
        QVERIFY(!files.readAll(file("missing")));
        QCOMPARE(files.lineCount(file("missing")), -1);
        QCOMPARE(files.size(file("missing")), -1);
        // A folder named like a server is not a file.
        QVERIFY(QDir(dir_->path()).mkdir("DC1"));
        QVERIFY(!files.exists(file("DC1")));
        QVERIFY(!files.readLines(file("DC1")));
    }

    void namesMatchWithoutRegardToCase()
    {
        QVERIFY(files.writeLines(file("jobs.log"), {"one"}));
        const QString other = file("Jobs.log");
        QVERIFY(files.exists(other));
        QCOMPARE(*files.readLines(other), QStringList{"one"});
        QCOMPARE(files.size(file("JOBS.LOG")), 5);

        // Writers keep the spelling that is on disk instead of creating a second file.
        QVERIFY(files.appendLines(file("JOBS.LOG"), {"two"}));
        QVERIFY(files.writeLines(other, {"three", "four"}));
        QCOMPARE(entries(dir_->path()), QStringList{"jobs.log"});
        QCOMPARE(bytesOf(file("jobs.log")), QByteArray("three\r\nfour\r\n"));
        QVERIFY(files.create(file("Jobs.LOG")));
        QCOMPARE(entries(dir_->path()), QStringList{"jobs.log"});
        QCOMPARE(files.size(other), 0);

        QVERIFY(files.remove(file("JOBS.log")));
        QVERIFY(entries(dir_->path()).isEmpty());
        // A new file takes the spelling it is given.
        QVERIFY(files.writeLines(file("MailProfile"), {"Outlook"}));
        QCOMPARE(entries(dir_->path()), QStringList{"MailProfile"});
    }

    void aFullDiskNeverReplacesOrDamagesAFile()
    {
        // A 64 KiB disk of the test's own; the child (this program, see main) fills it up and
        // says what the writes did.
        const QString folder = file("disk");
        QVERIFY(QDir().mkdir(folder));
        const velmora::test::SmallDiskRun run = velmora::test::runOnSmallDisk(folder, 64, {"--on-full-disk"});
        if (!run.skipReason.isEmpty())
            QSKIP(qPrintable(run.skipReason));
        const QMap<QString, QString>& seen = run.seen;
        QVERIFY2(seen.value("set up") == "yes", qPrintable(run.errors));

        const QString full = QString::fromLocal8Bit(std::strerror(ENOSPC));
        // Larger than anything left: the temporary copy cannot be written.
        QCOMPARE(seen.value("large rewrite"), "failed 112 " + full);
        // Even a tiny one fails, at the latest when it is synced.
        QCOMPARE(seen.value("small rewrite"), "failed 112 " + full);
        QCOMPARE(seen.value("append"), "failed 112 " + full);
        // Both files are as they were, and no temporary copy is left.
        QCOMPARE(seen.value("Computerlist"), "DC1\tmonitored|FS1|");
        QCOMPARE(seen.value("Jobs.log"), "first|");
        QCOMPARE(seen.value("files"), "Computerlist Jobs.log filler");
        // With room again everything works.
        QCOMPARE(seen.value("with room"), "NEW|");
    }

    void writeErrorsNameTheirCause()
    {
        DiskTextFiles disk;
        QCOMPARE(disk.lastFailure().code, 0);
        QVERIFY(!disk.writeLines(file("no/such/folder/Settings"), {"x"}));
        QCOMPARE(disk.lastFailure().code, 3);
        QCOMPARE(disk.lastError(), QString::fromLocal8Bit(std::strerror(ENOENT)));
        QVERIFY(QDir(dir_->path()).mkdir("DC1"));
        QVERIFY(!disk.appendLines(file("DC1"), {"x"}));
        QCOMPARE(disk.lastFailure().code, 5);
        QVERIFY(!disk.remove(file("Missing")));
        QCOMPARE(disk.lastFailure().code, 3);
        // A success leaves the last failure alone; a failure on another thread is that thread's.
        QVERIFY(disk.writeLines(file("Settings"), {"x"}));
        FileError elsewhere;
        std::thread other([&] {
            disk.appendLines(file("DC1"), {"x"});
            elsewhere = disk.lastFailure();
        });
        other.join();
        QCOMPARE(elsewhere.code, 5);
        QCOMPARE(disk.lastFailure().code, 3);
    }

    // Only this backend's own copies go: hidden, ".velmora-tmp-" and six letters or digits,
    // a regular file of this user. A user's file of any other name stays, however near.
    void leftoverTemporaryCopiesAreTidiedAndNothingElse()
    {
        const QStringList kept{"Computerlist.backup", "Computerlist.UskWgG", "Settings.velmora-tmp-Ab3dE9",
                               ".Settings.velmora-tmp-abc", ".x.velmora-tmp-abcdefg", ".Settings.velmora-tmp-Ab3dE9.txt",
                               "Settings"};
        const QStringList leftovers{".Computerlist.velmora-tmp-Ab3dE9", ".Orphan.velmora-tmp-ZZZZZZ"};
        for (const QString& n : kept + leftovers)
            putBytes(file(n), "DC1\r\n");
        // Named like a copy, but a folder, a link (to a file of the user's), another user's file.
        QVERIFY(QDir(dir_->path()).mkdir(".Folder.velmora-tmp-abcdef"));
        QVERIFY(QFile::link(file("Settings"), file(".Link.velmora-tmp-abcdef")));
        QStringList expected = kept + QStringList{".Folder.velmora-tmp-abcdef", ".Link.velmora-tmp-abcdef"};
        if (geteuid() == 0) {
            putBytes(file(".Theirs.velmora-tmp-abcdef"), "x");
            QVERIFY(::chown(QFile::encodeName(file(".Theirs.velmora-tmp-abcdef")).constData(), 65534, 65534) == 0);
            expected << ".Theirs.velmora-tmp-abcdef";
        }
        QCOMPARE(files.removeLeftoverCopies(dir_->path()), 2);
        expected.sort();
        QStringList left = QDir(dir_->path()).entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot, QDir::Name);
        QCOMPARE(left, expected);
        QCOMPARE(bytesOf(file("Settings")), QByteArray("DC1\r\n"));
        QCOMPARE(files.removeLeftoverCopies(file("missing")), -1);
    }

    // A link in the data folder is the user's choice when it is the user's own: written through,
    // and kept. One of another user's is never written through, by any kind of write.
    void onlyTheUsersOwnLinksAreWrittenThrough_data()
    {
        QTest::addColumn<QString>("write");
        QTest::addColumn<bool>("theirs");
        for (const char* write : {"replace", "append", "create"}) {
            QTest::addRow("%s through an own link", write) << write << false;
            QTest::addRow("%s through another user's link", write) << write << true;
        }
    }
    void onlyTheUsersOwnLinksAreWrittenThrough()
    {
        QFETCH(QString, write);
        QFETCH(bool, theirs);
        QTemporaryDir outside;
        const QString target = outside.filePath("target");
        putBytes(target, "kept\r\n");
        const QString link = file("Computerlist");
        QVERIFY(QFile::link(target, link));
        if (theirs) {
            if (geteuid() != 0)
                QSKIP("giving a link to another user needs root");
            QVERIFY(::lchown(QFile::encodeName(link).constData(), 65534, 65534) == 0);
        }
        const bool done = write == "replace" ? files.writeLines(link, {"DC1"})
                          : write == "append" ? files.appendLines(link, {"DC1"})
                                              : files.create(link);
        QCOMPARE(done, !theirs);
        QVERIFY(QFileInfo(link).isSymLink());
        if (theirs) {
            QCOMPARE(files.lastFailure().code, 5);
            QCOMPARE(bytesOf(target), QByteArray("kept\r\n"));
        } else {
            QCOMPARE(bytesOf(target), write == "replace" ? QByteArray("DC1\r\n")
                                      : write == "append" ? QByteArray("kept\r\nDC1\r\n") : QByteArray());
        }
        QCOMPARE(entries(dir_->path()), QStringList{"Computerlist"});
    }

    void appendLinesCreatesAndExtends()
    {
        const QString path = file("Jobs.log");
        QVERIFY(files.appendLines(path, {"first"}));
        QVERIFY(files.appendLines(path, {"second", "third"}));
        QCOMPARE(bytesOf(path), QByteArray("first\r\nsecond\r\nthird\r\n"));
        // A last line without its line end is ended first; one ended by LF or a lone CR is ended.
        for (const QByteArray& ending : {QByteArray(), QByteArray("\n"), QByteArray("\r")}) {
            putBytes(path, "a" + ending);
            QVERIFY(files.appendLines(path, {"b"}));
            QCOMPARE(bytesOf(path), "a" + (ending.isEmpty() ? QByteArray("\r\n") : ending) + "b\r\n");
        }
    }

    void textThatIsNotUtf8KeepsEveryByte()
    {
        // A per-server file carried over from Windows: Windows-1252 text, the five bytes the code
        // page leaves unassigned included, and every other byte but the line ends.
        QByteArray every;
        for (int b = 1; b < 256; ++b)
            if (b != '\r' && b != '\n')
                every += char(b);
        const QByteArray original = "[Remarks / Comments:]\r\nK\xF6ln \x80 5 \x93quoted\x94 \x85\r\n"
                                    "\x81\x8D\x8F\x90\x9D\r\n" + every + "\r\n[EOF]\r\n";
        const QString path = file("SRV01");
        putBytes(path, original);
        const QStringList lines = *files.readLines(path);
        QCOMPARE(lines.size(), 5);
        QCOMPARE(lines[1], QStringLiteral("K\u00F6ln \u20AC 5 \u201Cquoted\u201D \u2026"));
        QCOMPARE(lines[2], QStringLiteral("\u0081\u008D\u008F\u0090\u009D"));
        QCOMPARE(lines[3].size(), every.size());
        QVERIFY(files.readAll(path)->startsWith("[Remarks / Comments:]\r\nK\u00F6ln \u20AC"));

        // Written back as read: byte for byte the same.
        QVERIFY(files.writeLines(path, lines));
        QCOMPARE(bytesOf(path), original);
        // A changed line changes only its own bytes; the file stays single-byte.
        QStringList changed = lines;
        changed[1] = QStringLiteral("M\u00FCnchen \u2014 \u00BD");
        QVERIFY(files.writeLines(path, changed));
        QByteArray expected = original;
        expected.replace("K\xF6ln \x80 5 \x93quoted\x94 \x85", "M\xFCnchen \x97 \xBD");
        QCOMPARE(bytesOf(path), expected);

        // A character Windows-1252 has not got turns the whole file into UTF-8, losing nothing.
        changed[1] = QStringLiteral("\u65E5\u672C \u00FC");
        QVERIFY(files.writeLines(path, changed));
        QCOMPARE(*files.readLines(path), changed);
        QVERIFY(bytesOf(path).startsWith("[Remarks / Comments:]\r\n\xE6\x97\xA5\xE6\x9C\xAC \xC3\xBC\r\n"));
        // From now on it is a UTF-8 file.
        QVERIFY(files.writeLines(path, {QStringLiteral("\u00FC")}));
        QCOMPARE(bytesOf(path), QByteArray("\xC3\xBC\r\n"));
    }

    void appendsFollowTheEncodingOfTheFile()
    {
        const QString log = file("Jobs.log");
        putBytes(log, "23.11.2026 08:00:00\tK\xD6LN\tSpooler\tStopped\r\n");
        QVERIFY(files.appendLines(log, {QStringLiteral("Gr\u00F6\u00DFe \u20AC \u65E5")}));
        QCOMPARE(bytesOf(log), QByteArray("23.11.2026 08:00:00\tK\xD6LN\tSpooler\tStopped\r\nGr\xF6\xDF" "e \x80 ?\r\n"));

        putBytes(log, "plain ASCII\r\n");
        QVERIFY(files.appendLines(log, {QStringLiteral("Gr\u00F6\u00DFe")}));
        QCOMPARE(bytesOf(log), QByteArray("plain ASCII\r\nGr\xC3\xB6\xC3\x9F" "e\r\n"));

        // Only the end of a long log counts, cut at a line start (a cut UTF-8 character in
        // front of it is no reason for Windows-1252).
        putBytes(log, "K\xD6LN\r\n" + QByteArray(70000, 'x') + "\xC3\xBC" + QByteArray(65529, 'y') + "\r\n\xC3\xBC\r\n");
        QVERIFY(files.appendLines(log, {QStringLiteral("\u00FC")}));
        QVERIFY(bytesOf(log).endsWith("\xC3\xBC\r\n\xC3\xBC\r\n"));
    }

    void onlyValidUtf8CountsAsUtf8_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<bool>("utf8");
        QTest::newRow("ascii") << QByteArray("DC1\r\n") << true;
        QTest::newRow("two to four bytes") << QByteArray("\xC3\xBC\xE2\x82\xAC\xF0\x9F\x98\x80") << true;
        QTest::newRow("latin byte") << QByteArray("K\xF6ln") << false;
        // Long plain runs before, around and after the bytes that decide.
        QTest::newRow("sequence across eight bytes") << QByteArray("1234567\xC3\xBC" "890123456789") << true;
        QTest::newRow("lone continuation at eight") << QByteArray("12345678\x80" "12345678") << false;
        QTest::newRow("cut after a long run") << QByteArray("1234567812345678\xE2\x82") << false;
    }
    void onlyValidUtf8CountsAsUtf8()
    {
        QFETCH(QByteArray, bytes);
        QFETCH(bool, utf8);
        QCOMPARE(encodingOf(bytes) == TextEncoding::Utf8, utf8);
        // Whatever the bytes, they read and write back unchanged.
        const QString path = file("Notes");
        putBytes(path, bytes + "\r\n");
        QVERIFY(files.writeLines(path, *files.readLines(path)));
        QCOMPARE(bytesOf(path), bytes + "\r\n");
    }
};

// --on-full-disk FOLDER: the child of aFullDiskNeverReplacesOrDamagesAFile, run where FOLDER is
// a small file system of its own. Prints "what: outcome" lines; a file's lines end with "|".
int onFullDisk(const QString& folder)
{
    const QString list = folder + "/Computerlist";
    const QString log = folder + "/Jobs.log";
    DiskTextFiles disk;
    const auto show = velmora::test::tellParent;
    const auto outcome = [&](bool ok) {
        return ok ? QString("done") : QString("failed %1 %2").arg(disk.lastFailure().code).arg(disk.lastError());
    };
    const auto content = [](const QString& path) {
        return QString::fromUtf8(bytesOf(path)).replace("\r\n", "|");
    };
    if (!disk.writeLines(list, {"DC1\tmonitored", "FS1"}) || !disk.writeLines(log, {"first"}))
        return 0;
    velmora::test::fillUp(folder);
    show("set up", "yes");
    show("large rewrite", outcome(disk.writeLines(list, QStringList(100, QString(100, 'S')))));
    show("small rewrite", outcome(disk.writeLines(list, {"X"})));
    show("append", outcome(disk.appendLines(log, QStringList(20, QString(300, 'L')))));
    show("Computerlist", content(list));
    show("Jobs.log", content(log));
    show("files", entries(folder).join(' '));
    QFile::remove(folder + "/filler");
    show("with room", disk.writeLines(list, {"NEW"}) ? content(list) : outcome(false));
    return 0;
}

int main(int argc, char** argv)
{
    if (argc == 3 && QByteArray(argv[1]) == "--on-full-disk")
        return onFullDisk(QFile::decodeName(argv[2]));
    QCoreApplication app(argc, argv);
    TestTextFiles t;
    return QTest::qExec(&t, argc, argv);
}
#include "tst_textfiles.moc"
