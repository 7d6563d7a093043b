#include "platform/linux/linuxplatform.h"
#include "shell/mainwindow.h"

#include <QApplication>

int main(int argc, char** argv)
{
    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("velmora"));
    QApplication::setOrganizationName(QStringLiteral("velmora"));
    QApplication::setQuitOnLastWindowClosed(false);

    velmora::platform::LinuxPlatform backends;
    auto platform = backends.platform();
    velmora::shell::MainWindow window(platform);
    window.load();
    if (platform.app->ended())
        return 0;
    return app.exec();
}
