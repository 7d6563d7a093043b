#include "platform/linux/localsocketinstance.h"
#include "support/bytefiles.h"

#include <QCoreApplication>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

using velmora::platform::LocalSocketInstance;

class TestSingleInstance : public QObject {
    Q_OBJECT
private slots:
    void secondProcessFindsTheFirstAndAsksItToShow()
    {
        QTemporaryDir dir;
        const QString name = dir.filePath("velmora.sock");
        int showRequests = 0;
        LocalSocketInstance first(name);
        QVERIFY(!first.otherInstanceRunning([&] { ++showRequests; }));

        QProcess second;
        second.start(QCoreApplication::applicationFilePath(), {"--second", name});
        QVERIFY(second.waitForStarted());
        QTRY_COMPARE_WITH_TIMEOUT(showRequests, 1, 10000);
        if (second.state() != QProcess::NotRunning)
            QVERIFY(second.waitForFinished(10000));
        QCOMPARE(second.exitCode(), 3);
    }

    void staleSocketFromACrashedCopyIsTakenOver()
    {
        QTemporaryDir dir;
        const QString name = dir.filePath("velmora.sock");
        // A plain file where the socket should be, as a crash would leave it.
        velmora::test::putBytes(name, {});
        LocalSocketInstance first(name);
        QVERIFY(!first.otherInstanceRunning({}));
        LocalSocketInstance second(name);
        QVERIFY(second.otherInstanceRunning({}));
    }
};

int main(int argc, char** argv)
{
    if (argc == 3 && QByteArray(argv[1]) == "--second") {
        QCoreApplication app(argc, argv);
        LocalSocketInstance second(QString::fromLocal8Bit(argv[2]));
        if (!second.otherInstanceRunning({}))
            return 1;
        second.activateOther();
        return 3;
    }
    QCoreApplication app(argc, argv);
    TestSingleInstance t;
    return QTest::qExec(&t, argc, argv);
}
#include "tst_singleinstance.moc"
