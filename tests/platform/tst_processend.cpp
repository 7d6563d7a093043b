// Ending the process while work is still under way on worker threads.
#include "platform/linux/linuxplatform.h"

#include <QApplication>
#include <QProcess>
#include <QTest>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <thread>

class TestProcessEnd : public QObject {
    Q_OBJECT
private slots:
    void workStillUnderWayNeverHoldsTheEnd()
    {
        // The child gives its worker a job that never ends (as a lookup waiting on a silent name
        // server does) and then leaves.
        QProcess child;
        child.start(QCoreApplication::applicationFilePath(), {"--stuck-worker"});
        QVERIFY(child.waitForStarted());
        const bool ended = child.waitForFinished(20000);
        if (!ended) {
            child.kill();
            child.waitForFinished();
        }
        QVERIFY2(ended, "the process waited for its worker");
        QCOMPARE(child.exitStatus(), QProcess::NormalExit);
        QCOMPARE(child.exitCode(), 7);
        QCOMPARE(child.readAllStandardOutput(), QByteArray("job started\n"));
    }
};

int main(int argc, char** argv)
{
    if (argc == 2 && QByteArray(argv[1]) == "--stuck-worker") {
        qputenv("QT_QPA_PLATFORM", "offscreen");
        QApplication app(argc, argv);
        velmora::platform::LinuxPlatform backends;
        std::atomic<bool> started{false};
        backends.platform().worker->run(nullptr, [&started]() -> std::function<void()> {
            started = true;
            std::this_thread::sleep_for(std::chrono::hours(1));
            return {};
        });
        while (!started)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        std::printf("job started\n");
        velmora::platform::endProcessNow(7);
    }
    QCoreApplication app(argc, argv);
    TestProcessEnd t;
    return QTest::qExec(&t, argc, argv);
}
#include "tst_processend.moc"
