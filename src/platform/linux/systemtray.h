#pragma once
// The tray icon on Qt's system tray: a StatusNotifierItem where the desktop runs a watcher for
// them, an XEmbed icon in the notification area otherwise. The task bar entry is switched with
// the window manager's _NET_WM_STATE_SKIP_TASKBAR hint on X11; elsewhere it stays as it is.
#include "platform/tray.h"

#include <QElapsedTimer>
#include <QPointer>
#include <QSystemTrayIcon>

namespace velmora::platform {

class SystemTray : public TrayIcon {
    Q_OBJECT
public:
    explicit SystemTray(QObject* parent = nullptr);
    ~SystemTray() override;

    bool available() const override;
    void setLook(const QIcon& icon, const QString& tip) override;
    void add() override;
    void remove() override;
    bool shown() const override { return shown_; }
    void popUp(QMenu* menu) override;
    bool isForeground(const QWidget* window) const override;
    void setInTaskbar(QWidget* window, bool listed) override;

    // The icon as Qt shows it, created by the first add(); null before.
    QSystemTrayIcon* icon() const { return icon_; }

private:
    void leftClick();

    QPointer<QSystemTrayIcon> icon_;
    QIcon look_;
    QString tip_;
    bool shown_ = false;
    QElapsedTimer lastClick_;
    QElapsedTimer lastDouble_;
};

} // namespace velmora::platform
