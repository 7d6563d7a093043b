// The real tray service on the offscreen platform, which answers as an X11 platform but has no
// X server behind it: keeping the window out of the task bar (and back in) must leave the window
// as it is instead of writing to a connection that is not there.
#include "platform/linux/systemtray.h"

#include <QApplication>
#include <QGuiApplication>
#include <QTest>
#include <QWidget>

using velmora::platform::SystemTray;

class TestSystemTray : public QObject {
    Q_OBJECT
private slots:
    void taskBarStateWithoutAnXServerLeavesTheWindowAlone()
    {
        if (QGuiApplication::platformName() != QLatin1String("offscreen"))
            QSKIP("this case is about the offscreen platform");
        SystemTray tray;
        QWidget hidden;
        tray.setInTaskbar(&hidden, false);
        QVERIFY(!hidden.isVisible());
        QWidget shown;
        shown.show();
        tray.setInTaskbar(&shown, false);
        tray.setInTaskbar(&shown, true);
        QVERIFY(shown.isVisible());
    }
};

QTEST_MAIN(TestSystemTray)
#include "tst_systemtray.moc"
