#pragma once
// The program's icon in the desktop's notification area (the tray), and the two window-manager
// facts that go with it: which window has the keyboard now, and whether a window is listed in
// the task bar.
#include <QObject>
#include <QString>

class QIcon;
class QMenu;
class QWidget;

namespace velmora::platform {

class TrayIcon : public QObject {
    Q_OBJECT
public:
    using QObject::QObject;
    // Whether the desktop has a notification area that can show an icon now.
    virtual bool available() const = 0;
    // The picture and the tip (shown while the pointer rests on it) of the icon; set once,
    // before the first add().
    virtual void setLook(const QIcon& icon, const QString& tip) = 0;
    // Shows the icon. Adding an icon that is already shown does nothing. Without a notification
    // area nothing shows, but the icon appears once one starts.
    virtual void add() = 0;
    virtual void remove() = 0;
    // Whether the icon has been added and not removed since.
    virtual bool shown() const = 0;
    // Opens menu at the pointer, as the icon's menu; it closes by itself on a choice, Escape or
    // a click elsewhere.
    virtual void popUp(QMenu* menu) = 0;
    // Whether window is the window the desktop gives the keyboard to now.
    virtual bool isForeground(const QWidget* window) const = 0;
    // Lists window in the task bar (true) or keeps it out (false). Works on shown and hidden
    // windows alike.
    virtual void setInTaskbar(QWidget* window, bool listed) = 0;

signals:
    // A double click on the icon with the left button.
    void doubleClicked();
    // A click on the icon with the right button.
    void rightClicked();
};

} // namespace velmora::platform
