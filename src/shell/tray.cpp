#include "shell/tray.h"

#include "platform/formcontrols.h"
#include "platform/icons.h"

#include <QMenu>
#include <QWidget>

namespace velmora::shell {

QString noTrayText()
{
    return QStringLiteral("This desktop has no tray (notification area) to keep Velmora's icon in, "
                          "so the window stays open.");
}

TrayControl::TrayControl(platform::TrayIcon& tray, platform::MessageBoxes& boxes, QWidget* window, QMenu* menu,
                         QObject* parent)
    : QObject(parent), tray_(tray), boxes_(boxes), window_(window), menu_(menu)
{
    tray_.setLook(platform::programIcon(), QStringLiteral(" Velmora "));
    tray_.setInTaskbar(window_, !tray_.available());
    connect(&tray_, &platform::TrayIcon::doubleClicked, this, &TrayControl::showWindow);
    connect(&tray_, &platform::TrayIcon::rightClicked, this, &TrayControl::rightClick);
}

void TrayControl::windowActivated()
{
    // Asked again on every activation: a notification area may have started or ended since.
    tray_.setInTaskbar(window_, !tray_.available());
    tray_.add();
}

void TrayControl::hideToTray()
{
    if (!window_)
        return;
    if (!tray_.available()) {
        boxes_.show(noTrayText(), platform::MsgIcon::Information);
        return;
    }
    tray_.add();
    // A window manager places a window that shows again as it likes; it comes back here.
    hiddenAt_ = window_->frameGeometry().topLeft();
    placeKept_ = true;
    window_->hide();
}

void TrayControl::showWindow()
{
    if (!window_)
        return;
    const bool place = !window_->isVisible() && placeKept_;
    placeKept_ = false;
    window_->setWindowState(window_->windowState() & ~Qt::WindowMinimized);
    window_->show();
    if (place)
        platform::placeFrame(window_, hiddenAt_);
    window_->raise();
    window_->activateWindow();
}

void TrayControl::rightClick()
{
    if (!window_ || !menu_ || menu_->isVisible())
        return;
    if (tray_.isForeground(window_))
        return;
    tray_.popUp(menu_);
}

} // namespace velmora::shell
