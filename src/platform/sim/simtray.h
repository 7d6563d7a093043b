#pragma once
// Simulated tray for tests: a notification area that is there or not, clicks and double clicks
// that tests make, a foreground window that tests choose, and a record of menus opened and of
// task bar entries.
#include "platform/tray.h"

#include <QHash>
#include <QIcon>
#include <QList>
#include <QMenu>
#include <QPointer>

namespace velmora::platform::sim {

class SimTrayIcon : public TrayIcon {
    Q_OBJECT
public:
    bool available() const override { return tray_available; }
    void setLook(const QIcon& i, const QString& t) override
    {
        icon = i;
        tip = t;
    }
    void add() override
    {
        shown_ = true;
        ++adds;
    }
    void remove() override
    {
        shown_ = false;
        ++removes;
    }
    bool shown() const override { return shown_; }
    void popUp(QMenu* menu) override
    {
        popups << menu;
        menu->popup(QPoint(0, 0));
    }
    bool isForeground(const QWidget* window) const override { return window && window == foreground; }
    void setInTaskbar(QWidget* window, bool listed) override { taskbar.insert(window, listed); }

    // The user's hand on the icon; nothing happens while it is not shown.
    void doubleClick()
    {
        if (shown_)
            emit doubleClicked();
    }
    void rightClick()
    {
        if (shown_)
            emit rightClicked();
    }

    bool tray_available = true;
    QPointer<const QWidget> foreground;
    QIcon icon;
    QString tip;
    int adds = 0, removes = 0;
    QList<QMenu*> popups;             // every menu opened, in order
    QHash<QWidget*, bool> taskbar;    // the last task bar entry asked for, by window

private:
    bool shown_ = false;
};

} // namespace velmora::platform::sim
