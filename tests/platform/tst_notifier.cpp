// Desktop notifications on a private session bus, shown by the tests' own notification server
// (support/notificationrecorder.h). The alert options' end-to-end test shows a click leading to
// its service; here, the clicks that lead nowhere and a desktop without a notification server.
#include "platform/linux/dbusnotifier.h"
#include "support/notificationrecorder.h"

#include <QDBusConnectionInterface>
#include <QSignalSpy>
#include <QTest>

using namespace velmora::platform;

class TestNotifier : public QObject {
    Q_OBJECT
    velmora::testsupport::NotificationRecorder recorder_;
    QString missing_;

private slots:
    void initTestCase() { missing_ = recorder_.start(); }

    void onlyAClickOnAShownNoticeLeadsToItsService()
    {
        if (!missing_.isEmpty())
            QSKIP(qPrintable(missing_));
        DBusNotifier notifier(recorder_.connection("program"));
        QSignalSpy clicked(&notifier, &Notifier::clicked);
        notifier.notify("Spooler stopped", "DC1: Spooler is Stopped", "DC1", "Spooler");
        notifier.notify("Cron stopped", "FS1: cron is Stopped", "FS1", "cron");
        QTRY_COMPARE(recorder_.shown.size(), 2);
        // The bus keeps one sender's messages in order: a closed notice (1) and one of another
        // program (77) lead nowhere, the click on 2 that follows them does.
        QVERIFY(recorder_.signal("NotificationClosed", 1, uint(2)));
        QVERIFY(recorder_.click(1));
        QVERIFY(recorder_.click(77));
        QVERIFY(recorder_.click(2));
        QTRY_COMPARE(clicked.size(), 1);
        QCOMPARE(clicked[0], (QVariantList{"FS1", "cron"}));
    }

    void withoutANotificationServerNothingHappens()
    {
        if (!missing_.isEmpty())
            QSKIP(qPrintable(missing_));
        recorder_.leave();
        QDBusConnection bus = recorder_.connection("alone");
        DBusNotifier notifier(bus);
        notifier.notify("Spooler stopped", "DC1: Spooler is Stopped", "DC1", "Spooler");
        // The error answer arrives and is dropped; the connection goes on working.
        QVERIFY(!bus.interface()->isServiceRegistered("org.freedesktop.Notifications").value());
        QCoreApplication::processEvents();
        QVERIFY(bus.isConnected());
    }
};

QTEST_GUILESS_MAIN(TestNotifier)
#include "tst_notifier.moc"
