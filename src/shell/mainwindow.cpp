#include "shell/mainwindow.h"

namespace velmora::shell {

MainWindow::MainWindow(const platform::Platform& platform, QWidget* parent) : QMainWindow(parent), p_(platform)
{
    setObjectName(QStringLiteral("Form1"));
}

void MainWindow::load() { show(); }

} // namespace velmora::shell
