// The private folder of the program's sockets, and the single-instance socket that lives in it,
// in shared temporary folders that another user got to first.
#include "platform/linux/localsocketinstance.h"
#include "platform/linux/privatefolder.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLocalServer>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <sys/stat.h>
#include <unistd.h>

using namespace velmora::platform;

namespace {

constexpr uid_t otherUser = 65534;

// The entry itself, not what a link points to; zeros when there is none.
struct stat entry(const QString& path)
{
    struct stat st {};
    ::lstat(QFile::encodeName(path).constData(), &st);
    return st;
}
int modeOf(const QString& path) { return int(entry(path).st_mode & 07777); }
uid_t ownerOf(const QString& path) { return entry(path).st_uid; }

bool makeFolder(const QString& path, int mode)
{
    return ::mkdir(QFile::encodeName(path).constData(), 0700) == 0
        && ::chmod(QFile::encodeName(path).constData(), mode_t(mode)) == 0;
}

} // namespace

class TestPrivateFolder : public QObject {
    Q_OBJECT
    std::unique_ptr<QTemporaryDir> dir_;
    QString runtime_; // what XDG_RUNTIME_DIR names
    QString shared_;  // the shared temporary folder (TMPDIR), open to all as /tmp is
    QString fallback_; // the program's folder in it

private slots:
    void init()
    {
        dir_ = std::make_unique<QTemporaryDir>();
        runtime_ = dir_->filePath("run");
        shared_ = dir_->filePath("tmp");
        QVERIFY(makeFolder(runtime_, 0700));
        QVERIFY(makeFolder(shared_, 01777));
        QVERIFY(::chmod(QFile::encodeName(dir_->path()).constData(), 0755) == 0);
        fallback_ = shared_ + QStringLiteral("/velmora-%1").arg(::geteuid());
        qputenv("XDG_RUNTIME_DIR", runtime_.toLocal8Bit());
        qputenv("TMPDIR", shared_.toLocal8Bit());
    }
    void cleanup()
    {
        qunsetenv("XDG_RUNTIME_DIR");
        qunsetenv("TMPDIR");
    }

    // A runtime folder others may use, or none, is passed over for the program's folder in the
    // shared temporary folder. What another user may have left there is left exactly as it was;
    // the program uses a folder beside it that only this user can have made, the same one for
    // every copy (so copies still find each other).
    void aFolderOthersMayUseIsPassedOver_data()
    {
        QTest::addColumn<QString>("xdg"); // "run" is the runtime folder, open to the group
        QTest::addColumn<QString>("prepared");
        QTest::newRow("runtime folder open to the group") << "run" << "";
        QTest::newRow("runtime folder unset") << "" << "";
        QTest::newRow("runtime folder relative") << "run-relative" << "";
        QTest::newRow("folder of another user") << "" << "foreign";
        QTest::newRow("folder open to all") << "" << "open";
        QTest::newRow("folder open to the group") << "" << "group";
        QTest::newRow("link to a folder") << "" << "link";
        QTest::newRow("file") << "" << "file";
    }
    void aFolderOthersMayUseIsPassedOver()
    {
        QFETCH(QString, xdg);
        QFETCH(QString, prepared);
        QVERIFY(::chmod(QFile::encodeName(runtime_).constData(), 0750) == 0);
        qputenv("XDG_RUNTIME_DIR", xdg == "run" ? runtime_.toLocal8Bit() : xdg.toLocal8Bit());
        const QString target = dir_->filePath("target");
        if (prepared == "foreign") {
            if (::geteuid() != 0)
                QSKIP("giving a folder to another user needs root");
            QVERIFY(makeFolder(fallback_, 0700));
            QVERIFY(::chown(QFile::encodeName(fallback_).constData(), otherUser, otherUser) == 0);
        } else if (prepared == "open" || prepared == "group") {
            QVERIFY(makeFolder(fallback_, prepared == "open" ? 0777 : 0710));
        } else if (prepared == "link") {
            QVERIFY(makeFolder(target, 0700));
            QVERIFY(QFile::link(target, fallback_));
        } else if (prepared == "file") {
            QVERIFY(QFile(fallback_).open(QIODevice::WriteOnly));
        }
        // Another user's folder under the fallback's own pattern is no meeting place either.
        const QString decoy = fallback_ + ".AAAAAA";
        QVERIFY(makeFolder(decoy, 0777));
        const int modeBefore = modeOf(fallback_);
        const uid_t ownerBefore = ownerOf(fallback_);

        const PrivateFolder folder = privateRuntimeFolder();
        QVERIFY2(folder.usable(), qPrintable(folder.problem));
        if (prepared.isEmpty())
            QCOMPARE(folder.path, fallback_);
        else
            QVERIFY2(folder.path.startsWith(fallback_ + ".") && folder.path != decoy, qPrintable(folder.path));
        QCOMPARE(modeOf(folder.path), 0700);
        QCOMPARE(ownerOf(folder.path), ::geteuid());
        QCOMPARE(privateRuntimeFolder().path, folder.path);
        QVERIFY(!QFileInfo::exists(runtime_ + "/velmora"));
        if (prepared.isEmpty())
            return;
        QCOMPARE(modeOf(fallback_), modeBefore);
        QCOMPARE(ownerOf(fallback_), ownerBefore);
        if (prepared == "link")
            QCOMPARE(QDir(target).entryList(QDir::AllEntries | QDir::NoDotAndDotDot), QStringList());
    }

    // The check every private folder of the program passes (sockets, ssh control sockets).
    void onlyAFolderOfTheUsersOwnThatNobodyElseMayUseIsPrivate_data()
    {
        QTest::addColumn<QString>("kind");
        QTest::addColumn<QString>("why");
        QTest::newRow("own, 0700") << "own" << "";
        QTest::newRow("link to own") << "link" << "symbolic link";
        QTest::newRow("open to all") << "open" << "mode 0755";
        QTest::newRow("file") << "file" << "not a folder";
        QTest::newRow("missing") << "none" << "cannot be examined";
        QTest::newRow("another user's") << "foreign" << "belongs to the user nobody";
    }
    void onlyAFolderOfTheUsersOwnThatNobodyElseMayUseIsPrivate()
    {
        QFETCH(QString, kind);
        QFETCH(QString, why);
        const QString path = dir_->filePath(kind);
        if (kind == "link")
            QVERIFY(QFile::link(runtime_, path));
        else if (kind == "file")
            QVERIFY(QFile(path).open(QIODevice::WriteOnly));
        else if (kind != "none")
            QVERIFY(makeFolder(path, kind == "open" ? 0755 : 0700));
        if (kind == "foreign" && ::chown(QFile::encodeName(path).constData(), otherUser, otherUser) != 0)
            QSKIP("giving a folder to another user needs root");
        const QString problem = privateFolderProblem(path);
        QVERIFY2(why.isEmpty() ? problem.isEmpty() : problem.contains(why), qPrintable(problem));
    }

    void noSocketGoesWhereAnotherUserWaits()
    {
        // Another user made the program's folder in the shared temporary folder, open to all,
        // and listens where the single-instance socket would be.
        qunsetenv("XDG_RUNTIME_DIR");
        QVERIFY(makeFolder(fallback_, 0777));
        if (::geteuid() == 0)
            QVERIFY(::chown(QFile::encodeName(fallback_).constData(), otherUser, otherUser) == 0);
        QLocalServer trap;
        QVERIFY(trap.listen(fallback_ + "/instance.sock"));
        QSignalSpy caught(&trap, &QLocalServer::newConnection);

        // The program starts all the same, and two copies still find each other.
        LocalSocketInstance instance;
        QCOMPARE(instance.problem(), QString());
        QVERIFY(!instance.otherInstanceRunning([] {}));
        LocalSocketInstance second;
        QVERIFY(second.otherInstanceRunning([] {}));
        second.activateOther();
        QTest::qWait(200);
        QCOMPARE(caught.count(), 0);
        QCOMPARE(QDir(fallback_).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::System),
                 QStringList{"instance.sock"});
    }

    void theSingleInstanceSocketLivesInAClosedFolderOfTheUsersRuntimeFolder()
    {
        LocalSocketInstance first;
        QCOMPARE(first.problem(), QString());
        QVERIFY(!first.otherInstanceRunning([] {}));
        QVERIFY(QFileInfo::exists(runtime_ + "/velmora/instance.sock"));
        QCOMPARE(modeOf(runtime_ + "/velmora"), 0700);
        QCOMPARE(privateRuntimeFolder().path, runtime_ + "/velmora"); // made once, then found again
    }
};

QTEST_MAIN(TestPrivateFolder)
#include "tst_privatefolder.moc"
