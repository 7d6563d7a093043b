// The program on a real desktop: a private X server (Xvfb) with a real window manager that
// draws title bars (openbox) and a real XEmbed tray host (trayer). The tray icon appears in the
// host, the window is kept out of the task bar, a double click on the icon or the tray menu's
// "Maximize" brings the hidden or minimized window back where it was and in front, the tray
// menu's "Exit" ends the program, the stored window place is the frame's and comes back without
// creeping, and the report's message boxes close as a user closes them. The pointer is moved and clicked through the X server (xdotool),
// as a user's hand would.
#include "support/windowfixture.h"
#include "platform/linux/qtmessageboxes.h"
#include "platform/linux/systemtray.h"
#include "report/reportcycle.h"
#include "report/reportwindow.h"

#include <QAction>
#include <QApplication>
#include <QDir>
#include <QFile>
#include <QMenu>
#include <QMessageBox>
#include <QPointer>
#include <QProcess>
#include <QPushButton>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QSystemTrayIcon>
#include <QTest>
#include <QTimer>

#include <csignal>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

using namespace velmora;
using test::WindowFixture;

namespace {

// The X server, the window manager and the tray host of this test, started before the
// application so that Qt connects to them; all are ended when the test ends.
struct Desktop {
    QString skipReason;
    QString wmSkipReason; // why the window manager's cases cannot run
    QByteArray display;
    pid_t xvfb = 0;
    pid_t openbox = 0;
    pid_t trayer = 0;

    static QByteArray find(const char* name) { return QFile::encodeName(QStandardPaths::findExecutable(name)); }

    // Starts a program with its output going nowhere.
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
        // A display of its own, away from the low numbers desktops and other runs use: Xvfb's
        // -displayfd starts at :0 and was seen to name a display Qt then could not reach.
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
        startWindowManager();
        trayer = spawn(trayerPath, {"--edge", "bottom", "--align", "right", "--widthtype", "request", "--height",
                                    "32", "--SetDockType", "true", "--transparent", "false"});
        usleep(300000);
        if (!alive(trayer)) {
            skipReason = QStringLiteral("trayer could not start");
            trayer = 0;
        }
    }

    // openbox, ready once it has named itself on the root window.
    void startWindowManager()
    {
        const QByteArray path = find("openbox"), xprop = find("xprop");
        if (path.isEmpty() || xprop.isEmpty()) {
            wmSkipReason = path.isEmpty() ? QStringLiteral("openbox (a window manager) is not installed")
                                          : QStringLiteral("xprop is not installed");
            return;
        }
        openbox = spawn(path, {"--sm-disable"});
        for (int i = 0; i < 100 && alive(openbox); ++i) {
            QProcess p;
            p.start(QString::fromLatin1(xprop), {QStringLiteral("-root"), QStringLiteral("_NET_SUPPORTING_WM_CHECK")});
            if (p.waitForFinished(5000) && p.readAllStandardOutput().contains("window id"))
                return;
            usleep(50000);
        }
        wmSkipReason = QStringLiteral("openbox could not start");
        if (openbox > 0)
            kill(openbox, SIGTERM);
        openbox = 0;
    }

    ~Desktop()
    {
        for (pid_t pid : {trayer, openbox, xvfb}) {
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

XWindow xwindow(const QString& hex)
{
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

XWindow xwindow(WId id) { return xwindow(QStringLiteral("0x%1").arg(id, 0, 16)); }

// The window manager's frame around a top-level window: its outermost ancestor below the root.
XWindow frameOf(const QWidget* window)
{
    XWindow w = xwindow(window->winId());
    for (int depth = 0; depth < 10 && !w.parent.isEmpty() && w.parent != w.root; ++depth)
        w = xwindow(w.parent);
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

// Runs xdotool with the words of a command line, as a user's hand moves the pointer.
void xdo(const QString& words) { run("xdotool", words.split(' ')); }

void click(const QPoint& at, int button, int count)
{
    // Not "mousemove --sync": it waits for a motion, and the pointer may be there already.
    xdo(QString("mousemove %1 %2 sleep 0.2 click --repeat %3 --delay 80 %4").arg(at.x()).arg(at.y()).arg(count).arg(button));
}

// Presses the left button at from, moves to to and lets go, as a hand dragging a title bar.
void drag(const QPoint& from, const QPoint& to)
{
    const QPoint mid = (from + to) / 2;
    xdo(QString("mousemove %1 %2 sleep 0.2 mousedown 1 sleep 0.2 mousemove %3 %4 sleep 0.2 mousemove %5 %6 "
                "sleep 0.2 mouseup 1")
            .arg(from.x()).arg(from.y()).arg(mid.x()).arg(mid.y()).arg(to.x()).arg(to.y()));
}

// Closes every message box the program shows by a click on its OK button, and keeps the texts.
struct BoxCloser : QObject {
    QStringList texts;
    QTimer timer;
    QPointer<QMessageBox> last;
    BoxCloser()
    {
        timer.setInterval(100);
        connect(&timer, &QTimer::timeout, this, [this] {
            auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
            if (!box || box == last || !box->isVisible() || !box->isActiveWindow())
                return;
            last = box;
            texts << box->text();
            QAbstractButton* ok = box->button(QMessageBox::Ok);
            click(ok->mapToGlobal(ok->rect().center()), 1, 1);
        });
        timer.start();
    }
};

} // namespace

class TestRealDesktop : public QObject {
    Q_OBJECT

    // The program on the simulated platform but for the tray (and, asked for, the message
    // boxes), with a server list and settings of an earlier run that place the window's frame at
    // left, top (twips); started and activated.
    struct Rig {
        WindowFixture f;
        platform::SystemTray tray;
        platform::QtMessageBoxes boxes;
        shell::MainWindow* w = nullptr;

        explicit Rig(const QString& left = "1500", const QString& top = "3000", bool realBoxes = false)
        {
            f.writeFile("Computerlist", {"DC1\tmonitored", "FS2"});
            f.writeFile("Settings", {"True", "True", "5", "1", "True", "True", "True", "", "", "", "", left, top, "",
                                     "", "False", "False", "1000", "x.txt", "eof"});
            platform::Platform p = f.sim.platform();
            p.tray = &tray;
            if (realBoxes)
                p.boxes = &boxes;
            f.program = std::make_unique<shell::Program>(p);
            w = f.program->window.get();
            f.program->load();
            f.sim.clock.advance(1000);
            w->activateWindow();
            if (!QTest::qWaitFor([this] { return tray.shown(); }, 3000))
                QApplication::setActiveWindow(w);
        }
    };

    // The tray icon once the host has taken it in; an empty rectangle when it never did.
    static QRect embeddedIcon()
    {
        XWindow icon;
        if (!QTest::qWaitFor([&] {
                return iconWindow() && iconWindow()->isVisible() &&
                       (icon = xwindow(iconWindow()->winId())).viewable && icon.parent != icon.root;
            }))
            return {};
        return icon.rect;
    }

    static void needWindowManager()
    {
        if (!desktop->wmSkipReason.isEmpty())
            QSKIP(qPrintable(desktop->wmSkipReason));
    }

private slots:
    void initTestCase()
    {
        if (!desktop->skipReason.isEmpty())
            QSKIP(qPrintable(desktop->skipReason));
        for (const char* tool : {"xdotool", "xwininfo", "xprop"}) {
            if (QStandardPaths::findExecutable(QString::fromLatin1(tool)).isEmpty())
                QSKIP(qPrintable(QStringLiteral("%1 is not installed").arg(QString::fromLatin1(tool))));
        }
        if (!QTest::qWaitFor([] { return QSystemTrayIcon::isSystemTrayAvailable(); }, 10000))
            QSKIP("trayer started but offers no notification area");
    }

    // Dragged by its title bar, then hidden or minimized: the tray brings the window back at
    // the place and size it had, out of the minimized state and in front.
    void theTrayBringsTheWindowBackWhereItWasAndInFront_data()
    {
        QTest::addColumn<bool>("minimize");
        QTest::addColumn<bool>("doubleClick");
        QTest::newRow("hidden, double click") << false << true;
        QTest::newRow("minimized, Maximize") << true << false;
    }
    void theTrayBringsTheWindowBackWhereItWasAndInFront()
    {
        QFETCH(bool, minimize);
        QFETCH(bool, doubleClick);
        needWindowManager();
        Rig r("0", "0"); // placed by the window manager, then by the user
        const QRect icon = embeddedIcon();
        QVERIFY(!icon.isEmpty());
        XWindow frame;
        QTRY_VERIFY((frame = frameOf(r.w)).viewable && frame.parent == frame.root);
        const QRect start = frame.rect;
        drag(start.topLeft() + QPoint(start.width() / 2, 8), start.topLeft() + QPoint(start.width() / 2 + 51, 68));
        // Where the drag has left it: two readings in a row agree.
        QRect placed;
        const auto settled = [&] {
            const QRect now = frameOf(r.w).rect;
            const bool still = now == placed;
            placed = now;
            return still && now.topLeft() != start.topLeft();
        };
        QTRY_VERIFY(settled());

        if (minimize) {
            xdo("windowminimize " + QString::number(r.w->winId()));
            QTRY_VERIFY(r.w->isMinimized());
        } else {
            r.w->Command11->click();
        }
        QTRY_VERIFY(!xwindow(r.w->winId()).viewable);
        if (doubleClick) {
            click(icon.center(), 1, 2);
        } else {
            click(icon.center(), 3, 1);
            QTRY_VERIFY(r.w->mnuPopUp->isVisible());
            const QRect item = r.w->mnuPopUp->actionGeometry(r.w->mnuTrayMaximize);
            click(r.w->mnuPopUp->mapToGlobal(item.center()), 1, 1);
        }
        QTRY_VERIFY(xwindow(r.w->winId()).viewable);
        QTRY_VERIFY(!r.w->isMinimized());
        QTRY_COMPARE(frameOf(r.w).rect, placed);
        // In front as the window manager shows it: its active window. Qt's own flag was seen
        // to stay behind now and then with X's focus already on the window.
        const auto activeWindow = [] {
            const QString line = run(QStringLiteral("xprop"), {QStringLiteral("-root"), QStringLiteral("_NET_ACTIVE_WINDOW")});
            return line.section(QLatin1Char('#'), 1).trimmed().toULongLong(nullptr, 16);
        };
        QTRY_COMPARE(activeWindow(), qulonglong(r.w->winId()));
    }

    // The place stored is the frame's, and it is set as the frame's: it comes back unchanged,
    // never creeping by the title bar. A stored left of 0 asks for no place at all.
    void theStoredPlaceIsTheFramesAndComesBackUnchanged_data()
    {
        QTest::addColumn<QString>("left");
        QTest::addColumn<QString>("top");
        QTest::newRow("stored") << "2265" << "3900";
        QTest::newRow("left 0") << "0" << "3900";
    }
    void theStoredPlaceIsTheFramesAndComesBackUnchanged()
    {
        QFETCH(QString, left);
        QFETCH(QString, top);
        needWindowManager();
        Rig r(left, top);
        XWindow frame;
        QTRY_VERIFY((frame = frameOf(r.w)).viewable && frame.parent == frame.root);
        const QString hints = run(QStringLiteral("xprop"), {QStringLiteral("-id"), QString::number(r.w->winId()),
                                                            QStringLiteral("WM_NORMAL_HINTS")});
        if (left == "0") {
            QVERIFY2(!hints.contains(QStringLiteral("specified location")), qPrintable(hints));
            return;
        }
        const QPoint stored(left.toInt() / 15, top.toInt() / 15);
        QTRY_COMPARE(frameOf(r.w).rect.topLeft(), stored);
        // Qt learns the frame's place from the window manager's later notices; under load they
        // can come after the frame is already there.
        QTRY_COMPARE(r.w->frameGeometry().topLeft(), stored);
        r.w->Command4->click(); // "&Exit Program" stores the place it finds
        QTRY_VERIFY(r.f.sim.app.ended());
        const QStringList settings = QString::fromLatin1(r.f.readBytes("Settings")).split("\r\n");
        QCOMPARE(settings.mid(11, 2), (QStringList{left, top}));
    }

    // The report's box saying there are no monitored services pauses its timed scans until
    // the user comes back to the window; closing the box is no coming back.
    void theReportsPauseHoldsWhenItsBoxIsClosed()
    {
        needWindowManager();
        Rig r("1500", "3000", true); // no "Computers": no monitored services
        BoxCloser closer;
        r.f.program->showReport();
        QCOMPARE(closer.texts, QStringList{report::kNoServices});
        report::ReportWindow* report = r.f.program->reportWindow();
        QTRY_VERIFY(report->isActiveWindow());
        r.f.sim.clock.advance(5 * 60000);
        QCOMPARE(closer.texts.size(), 2);
        QTRY_VERIFY(report->isActiveWindow()); // the box gave the window its activation back
        r.f.sim.clock.advance(10 * 60000);
        QCOMPARE(closer.texts.size(), 2);
        // The user switches to the main window and back to the report: the scans go on.
        for (QWidget* window : std::initializer_list<QWidget*>{r.w, report}) {
            xdo("windowactivate " + QString::number(window->winId()));
            QTRY_VERIFY(window->isActiveWindow());
        }
        r.f.sim.clock.advance(5 * 60000);
        QCOMPARE(closer.texts.size(), 3);
    }

    // The icon appears in the tray host with the window kept out of the task bar, and the menu's
    // "Exit" ends the program and takes the icon away. (What each way out writes is tried on the
    // simulated tray, in tst_mainwindow.)
    void theTrayShowsTheIconAndItsExitEndsTheProgram()
    {
        Rig r;
        QTRY_VERIFY(r.tray.shown());
        QCOMPARE(r.tray.icon()->toolTip(), QStringLiteral(" Velmora "));
        const QRect icon = embeddedIcon();
        QVERIFY(!icon.isEmpty());
        QVERIFY(run(QStringLiteral("xprop"), {QStringLiteral("-id"), QString::number(r.w->winId()),
                                              QStringLiteral("_NET_WM_STATE")})
                    .contains(QStringLiteral("_NET_WM_STATE_SKIP_TASKBAR")));
        r.w->Command11->click();
        click(icon.center(), 3, 1);
        QTRY_VERIFY(r.w->mnuPopUp->isVisible());
        const QRect exitItem = r.w->mnuPopUp->actionGeometry(r.w->mnuTrayExit);
        click(r.w->mnuPopUp->mapToGlobal(exitItem.center()), 1, 1);
        QTRY_VERIFY(r.f.sim.app.ended());
        QVERIFY(!r.tray.shown());
        QTRY_VERIFY(!iconWindow() || !xwindow(iconWindow()->winId()).viewable);
    }
};

int main(int argc, char** argv)
{
    Desktop x;
    desktop = &x;
    QApplication app(argc, argv);
    TestRealDesktop test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_realdesktop.moc"
