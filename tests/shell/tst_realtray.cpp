// The tray icon on Qt's real system tray, in a notification area of a real XEmbed tray host
// (trayer) on a private X server (Xvfb): the icon appears in the host, the window is kept out
// of the task bar, a double click on the icon shows the hidden window, and the tray menu's
// "Exit" ends the program leaving "Computerlist" and "Settings" as they were. The pointer is
// moved and clicked through the X server (xdotool), as a user's hand would.
#include "support/windowfixture.h"
#include "platform/linux/systemtray.h"

#include <QAction>
#include <QApplication>
#include <QDir>
#include <QFile>
#include <QMenu>
#include <QProcess>
#include <QPushButton>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QSystemTrayIcon>
#include <QTest>

#include <csignal>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

using namespace velmora;
using test::WindowFixture;

namespace {

// The X server and the tray host of this test, started before the application so that Qt
// connects to them; both are ended when the test ends.
struct Desktop {
    QString skipReason;
    QByteArray display;
    pid_t xvfb = 0;
    pid_t trayer = 0;

    static QByteArray find(const char* name)
    {
        for (const char* dir : {"/usr/bin/", "/usr/local/bin/", "/bin/"}) {
            const QByteArray path = QByteArray(dir) + name;
            if (access(path.constData(), X_OK) == 0)
                return path;
        }
        return {};
    }

    static pid_t spawn(const QByteArray& program, const QList<QByteArray>& args)
    {
        std::vector<char*> argv{const_cast<char*>(program.constData())};
        for (const QByteArray& a : args)
            argv.push_back(const_cast<char*>(a.constData()));
        argv.push_back(nullptr);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
        posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
        pid_t pid = 0;
        const int rc = posix_spawn(&pid, program.constData(), &actions, nullptr, argv.data(), environ);
        posix_spawn_file_actions_destroy(&actions);
        return rc == 0 ? pid : 0;
    }

    static bool alive(pid_t pid) { return pid > 0 && waitpid(pid, nullptr, WNOHANG) == 0; }

    Desktop()
    {
        const QByteArray xvfbPath = find("Xvfb"), trayerPath = find("trayer");
        if (xvfbPath.isEmpty()) {
            skipReason = QStringLiteral("Xvfb is not installed");
            return;
        }
        if (trayerPath.isEmpty()) {
            skipReason = QStringLiteral("trayer (an XEmbed tray host) is not installed");
            return;
        }
        for (int n = 140 + int(getpid() % 50); n < 260 && !xvfb; ++n) {
            const QByteArray socket = "/tmp/.X11-unix/X" + QByteArray::number(n);
            if (access(socket.constData(), F_OK) == 0 || access(("/tmp/.X" + QByteArray::number(n) + "-lock").constData(), F_OK) == 0)
                continue;
            const QByteArray name = ":" + QByteArray::number(n);
            const pid_t pid = spawn(xvfbPath, {name, "-screen", "0", "1024x768x24", "-nolisten", "tcp"});
            for (int i = 0; i < 100 && alive(pid) && access(socket.constData(), F_OK) != 0; ++i)
                usleep(50000);
            if (alive(pid) && access(socket.constData(), F_OK) == 0) {
                xvfb = pid;
                display = name;
            } else if (pid) {
                kill(pid, SIGTERM);
                waitpid(pid, nullptr, 0);
            }
        }
        if (!xvfb) {
            skipReason = QStringLiteral("Xvfb could not start");
            return;
        }
        setenv("DISPLAY", display.constData(), 1);
        // No session bus: Qt then shows its icon through XEmbed rather than a StatusNotifierItem.
        setenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent/velmora-test-bus", 1);
        setenv("QT_QPA_PLATFORM", "xcb", 1);
        trayer = spawn(trayerPath, {"--edge", "bottom", "--align", "right", "--widthtype", "request", "--height",
                                    "32", "--SetDockType", "false", "--transparent", "false"});
        usleep(300000);
        if (!alive(trayer)) {
            skipReason = QStringLiteral("trayer could not start");
            trayer = 0;
        }
    }

    ~Desktop()
    {
        for (pid_t pid : {trayer, xvfb}) {
            if (pid > 0) {
                kill(pid, SIGTERM);
                waitpid(pid, nullptr, 0);
            }
        }
    }
};

Desktop* desktop = nullptr;

// Runs a tool of the X server's and returns what it printed.
QString run(const QString& program, const QStringList& args)
{
    QProcess p;
    p.start(program, args);
    if (!p.waitForFinished(10000))
        return {};
    return QString::fromLocal8Bit(p.readAllStandardOutput());
}

int number(const QString& text, const QString& label)
{
    const QRegularExpression re(QRegularExpression::escape(label) + QStringLiteral(":\\s*(-?\\d+)"));
    return re.match(text).captured(1).toInt();
}

// What xwininfo knows of a window: whether it is viewable, its parent and the root, its place.
struct XWindow {
    bool viewable = false;
    QString parent, root;
    QRect rect;
};

XWindow xwindow(WId id)
{
    const QString hex = QStringLiteral("0x%1").arg(id, 0, 16);
    const QString info = run(QStringLiteral("xwininfo"), {QStringLiteral("-id"), hex});
    const QString tree = run(QStringLiteral("xwininfo"), {QStringLiteral("-children"), QStringLiteral("-id"), hex});
    XWindow w;
    w.viewable = info.contains(QStringLiteral("IsViewable"));
    static const QRegularExpression parentRe(QStringLiteral("Parent window id: (0x[0-9a-f]+)"));
    static const QRegularExpression rootRe(QStringLiteral("Root window id: (0x[0-9a-f]+)"));
    w.parent = parentRe.match(tree).captured(1);
    w.root = rootRe.match(tree).captured(1);
    w.rect = QRect(number(info, QStringLiteral("Absolute upper-left X")), number(info, QStringLiteral("Absolute upper-left Y")),
                   number(info, QStringLiteral("Width")), number(info, QStringLiteral("Height")));
    return w;
}

// The window Qt shows the XEmbed icon in.
QWidget* iconWindow()
{
    for (QWidget* w : QApplication::topLevelWidgets()) {
        if (qstrcmp(w->metaObject()->className(), "QSystemTrayIconSys") == 0)
            return w;
    }
    return nullptr;
}

void click(const QPoint& at, int button, int count)
{
    // Not "mousemove --sync": it waits for a motion, and the pointer may be there already.
    run(QStringLiteral("xdotool"), {QStringLiteral("mousemove"), QString::number(at.x()), QString::number(at.y()),
                                    QStringLiteral("sleep"), QStringLiteral("0.2"), QStringLiteral("click"),
                                    QStringLiteral("--repeat"),
                                    QString::number(count), QStringLiteral("--delay"), QStringLiteral("80"),
                                    QString::number(button)});
}

} // namespace

class TestRealTray : public QObject {
    Q_OBJECT

    // The program on the simulated platform but for the tray, with a server list and settings
    // of an earlier run; started and activated.
    struct Rig {
        WindowFixture f;
        platform::SystemTray tray;
        shell::MainWindow* w = nullptr;
        QByteArray computerlist, settings;

        Rig()
        {
            f.writeFile("Computerlist", {"DC1\tmonitored", "FS2"});
            f.writeFile("Settings", {"True", "True", "5", "1", "True", "True", "True", "", "", "", "", "1500",
                                     "3000", "", "", "False", "False", "1000", "x.txt", "eof"});
            computerlist = f.readBytes("Computerlist");
            settings = f.readBytes("Settings");
            platform::Platform p = f.sim.platform();
            p.tray = &tray;
            f.program = std::make_unique<shell::Program>(p);
            w = f.program->window.get();
            f.program->load();
            f.sim.clock.advance(1000);
            w->activateWindow();
            if (!QTest::qWaitFor([this] { return tray.shown(); }, 3000))
                QApplication::setActiveWindow(w);
        }
    };

private slots:
    void initTestCase()
    {
        if (!desktop->skipReason.isEmpty())
            QSKIP(qPrintable(desktop->skipReason));
        for (const char* tool : {"xdotool", "xwininfo", "xprop"}) {
            if (QStandardPaths::findExecutable(QString::fromLatin1(tool)).isEmpty())
                QSKIP(qPrintable(QStringLiteral("%1 is not installed").arg(QString::fromLatin1(tool))));
        }
        QVERIFY(QGuiApplication::platformName() == QStringLiteral("xcb"));
        if (!QTest::qWaitFor([] { return QSystemTrayIcon::isSystemTrayAvailable(); }, 10000))
            QSKIP("trayer started but offers no notification area");
    }

    void theIconAppearsInTheTrayAndADoubleClickShowsTheHiddenWindow()
    {
        Rig r;
        QTRY_VERIFY(r.tray.shown());
        QCOMPARE(r.tray.icon()->toolTip(), QStringLiteral(" Velmora "));
        QTRY_VERIFY(iconWindow() && iconWindow()->isVisible());
        // Embedded: the host has taken the icon's window in.
        XWindow icon;
        QTRY_VERIFY((icon = xwindow(iconWindow()->winId())).viewable && icon.parent != icon.root);
        QVERIFY(!icon.rect.isEmpty());
        // With a tray, the main window is kept out of the task bar.
        QVERIFY(run(QStringLiteral("xprop"), {QStringLiteral("-id"), QString::number(r.w->winId()),
                                              QStringLiteral("_NET_WM_STATE")})
                    .contains(QStringLiteral("_NET_WM_STATE_SKIP_TASKBAR")));

        r.w->Command11->click();
        QVERIFY(!r.w->isVisible());
        QVERIFY(r.tray.shown());
        click(icon.rect.center(), 1, 2);
        QTRY_VERIFY(r.w->isVisible());
        QVERIFY(!r.f.sim.app.ended());
    }

    void theTrayMenusExitEndsWithoutWritingEitherFile()
    {
        Rig r;
        QTRY_VERIFY(iconWindow() && iconWindow()->isVisible());
        XWindow icon;
        QTRY_VERIFY((icon = xwindow(iconWindow()->winId())).viewable && icon.parent != icon.root);
        r.w->Command10->click(); // "&Local " changes the list in memory only
        r.w->Command11->click();

        click(icon.rect.center(), 3, 1);
        QTRY_VERIFY(r.w->mnuPopUp->isVisible());
        QStringList items;
        for (QAction* a : r.w->mnuPopUp->actions())
            items << (a->isSeparator() ? QStringLiteral("-") : a->text());
        QCOMPARE(items, (QStringList{"Exit", "-", "Info", "-", "Maximize", "-", "Check Services Now", "-",
                                     "Show Report", "-", "Reset Alert"}));

        const QRect exitItem = r.w->mnuPopUp->actionGeometry(r.w->mnuTrayExit);
        click(r.w->mnuPopUp->mapToGlobal(exitItem.center()), 1, 1);
        QTRY_VERIFY(r.f.sim.app.ended());
        QVERIFY(!r.tray.shown());
        QTRY_VERIFY(!iconWindow() || !xwindow(iconWindow()->winId()).viewable);
        QCOMPARE(r.f.readBytes("Computerlist"), r.computerlist);
        QCOMPARE(r.f.readBytes("Settings"), r.settings);
    }
};

int main(int argc, char** argv)
{
    Desktop x;
    desktop = &x;
    QApplication app(argc, argv);
    TestRealTray test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_realtray.moc"
