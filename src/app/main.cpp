#include "platform/linux/askpass.h"
#include "platform/linux/linuxplatform.h"
#include "platform/icons.h"
#include "shell/mainwindow.h"
#include "shell/program.h"

#include <QApplication>
#include <QGuiApplication>
#include <QPixmap>
#include <QScreen>
#include <QTimer>

int main(int argc, char** argv)
{
    // Started by ssh to ask the user something on behalf of a connection of this program.
    if (velmora::platform::askpassRequested())
        return velmora::platform::askpassMain(argc, argv);

    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("velmora"));
    QApplication::setOrganizationName(QStringLiteral("velmora"));
    QApplication::setQuitOnLastWindowClosed(false);
    QApplication::setWindowIcon(velmora::platform::programIcon());

    velmora::platform::LinuxPlatform backends;
    auto platform = backends.platform();
    velmora::shell::Program program(platform);
    velmora::shell::MainWindow& window = *program.window;

    // scripts/run --screenshot: once the server list shows its icons, save the screen and leave
    // the way "Exit" does, without writing any file.
    const QString screenshot = qEnvironmentVariable("VELMORA_SCREENSHOT");
    if (!screenshot.isEmpty()) {
        QObject::connect(&window, &velmora::shell::MainWindow::serverListReady, &window, [&] {
            QTimer::singleShot(800, &window, [&] {
                const QRect area = window.frameGeometry();
                QScreen* screen = QGuiApplication::primaryScreen();
                screen->grabWindow(0, area.x(), area.y(), area.width(), area.height()).save(screenshot, "PNG");
                window.menuExit();
            });
        });
    }

    program.load();
    if (platform.app->ended())
        velmora::platform::endProcessNow(0);
    // Workers still waiting on the network (a silent name server, a stalled bus) are abandoned,
    // never waited for: the program has ended once its window has.
    velmora::platform::endProcessNow(app.exec());
}
