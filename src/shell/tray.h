#pragma once
// The program's icon in the notification area and its menu mnuPopUp: the icon is added on every
// activation of the main window, a double click on it or the menu's "Maximize" shows the window,
// a right click opens the menu while the main window is not the foreground window, and
// "Show in &Tray only" hides the window (every timer keeps running; hiding is not closing).
//
// Much of the classic notification-icon machinery has no counterpart here, because the platform
// tray and Qt's menus give the same behaviour by themselves:
// - The classic icon is an 88-byte record (size, window handle, identifier 1, flags 7, callback
//   message 512, icon handle, 64-byte tip) that each add and each removal fills in again. Here
//   the platform's TrayIcon is that record: one object for the whole run whose look (the
//   program's icon, the tip " Velmora ") is set once; add() and remove() are the add and delete
//   calls, and nothing about the icon changes in between.
// - The classic tray posts its mouse messages to the window as mouse moves whose X coordinate in
//   twips, divided by the twips per pixel, is the message number: 515 for a left double click,
//   517 for the right button released, all others ignored. The platform reports exactly those
//   two as the signals doubleClicked and rightClicked.
// - A classic pop-up menu opened from a tray icon stays open when the user clicks elsewhere, so
//   a 200 ms watchdog (Timer8) watched the left button and sent the window the cancel-mode
//   message. A Qt pop-up menu grabs the pointer and closes on a click anywhere outside it and on
//   Escape, so no watchdog is needed and Timer8 has nothing to watch.
// - The callback's re-entry flag kept a second menu from opening over an open one; here a right
//   click while mnuPopUp is open does nothing.
//
// A desktop without a notification area would leave a hidden window without a way back, so
// there the window stays in the task bar and "Show in &Tray only" says why it does not hide.
#include "platform/messageboxes.h"
#include "platform/tray.h"

#include <QObject>
#include <QPoint>
#include <QPointer>

class QMenu;
class QWidget;

namespace velmora::shell {

// The message of "Show in &Tray only" on a desktop without a notification area.
QString noTrayText();

class TrayControl : public QObject {
    Q_OBJECT
public:
    // window is the main window, menu its tray menu mnuPopUp.
    TrayControl(platform::TrayIcon& tray, platform::MessageBoxes& boxes, QWidget* window, QMenu* menu,
                QObject* parent = nullptr);

    // Each activation of the main window: out of the task bar when there is a notification area
    // to come back from, and the icon added.
    void windowActivated();
    // Command11 and mnuHide.
    void hideToTray();
    // A double click on the icon and "Maximize": the window shown in its previous size and
    // place, in front. A minimized window is restored: kept out of the task bar, it would
    // have no other way back.
    void showWindow();

private:
    void rightClick();

    QPoint hiddenAt_; // the frame's place when the window was hidden
    bool placeKept_ = false;

    platform::TrayIcon& tray_;
    platform::MessageBoxes& boxes_;
    QPointer<QWidget> window_;
    QPointer<QMenu> menu_;
};

} // namespace velmora::shell
