#include "platform/linux/systemtray.h"

#include <QApplication>
#include <QCursor>
#include <QGuiApplication>
#include <QMenu>
#include <QSystemTrayIcon>
#include <QWidget>

#include <cstring>
#include <memory>
#include <vector>
#include <xcb/xcb.h>

namespace velmora::platform {

namespace {

xcb_atom_t internAtom(xcb_connection_t* c, const char* name)
{
    const xcb_intern_atom_cookie_t cookie = xcb_intern_atom(c, 0, uint16_t(std::strlen(name)), name);
    std::unique_ptr<xcb_intern_atom_reply_t, decltype(&std::free)> reply(xcb_intern_atom_reply(c, cookie, nullptr),
                                                                         &std::free);
    return reply ? reply->atom : xcb_atom_t(XCB_ATOM_NONE);
}

// Adds or takes away _NET_WM_STATE_SKIP_TASKBAR. A window manager owns the state of a mapped
// window and is asked by a client message to its root window; the property itself is what an
// unmapped window hands the window manager when it maps, and what a desktop without a window
// manager reads.
void setSkipTaskbar(QWidget* window, bool skip)
{
    auto* x11 = qGuiApp ? qGuiApp->nativeInterface<QNativeInterface::QX11Application>() : nullptr;
    if (!x11 || !window)
        return;
    // The offscreen platform answers as an X11 one too, but without a connection to a server.
    xcb_connection_t* c = x11->connection();
    if (!c || xcb_connection_has_error(c))
        return;
    const auto win = xcb_window_t(window->winId());
    const xcb_atom_t state = internAtom(c, "_NET_WM_STATE");
    const xcb_atom_t skipAtom = internAtom(c, "_NET_WM_STATE_SKIP_TASKBAR");
    if (state == XCB_ATOM_NONE || skipAtom == XCB_ATOM_NONE)
        return;

    if (window->isVisible()) {
        std::unique_ptr<xcb_query_tree_reply_t, decltype(&std::free)> tree(
            xcb_query_tree_reply(c, xcb_query_tree(c, win), nullptr), &std::free);
        if (tree) {
            xcb_client_message_event_t ev{};
            ev.response_type = XCB_CLIENT_MESSAGE;
            ev.format = 32;
            ev.window = win;
            ev.type = state;
            ev.data.data32[0] = skip ? 1 : 0; // _NET_WM_STATE_ADD / _REMOVE
            ev.data.data32[1] = skipAtom;
            ev.data.data32[3] = 1; // from an application
            xcb_send_event(c, 0, tree->root,
                           XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT | XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY,
                           reinterpret_cast<const char*>(&ev));
        }
    }

    std::vector<xcb_atom_t> atoms;
    std::unique_ptr<xcb_get_property_reply_t, decltype(&std::free)> prop(
        xcb_get_property_reply(c, xcb_get_property(c, 0, win, state, XCB_ATOM_ATOM, 0, 1024), nullptr), &std::free);
    if (prop && prop->format == 32 && prop->type == XCB_ATOM_ATOM) {
        const auto* data = static_cast<const xcb_atom_t*>(xcb_get_property_value(prop.get()));
        atoms.assign(data, data + prop->value_len);
    }
    std::erase(atoms, skipAtom);
    if (skip)
        atoms.push_back(skipAtom);
    xcb_change_property(c, XCB_PROP_MODE_REPLACE, win, state, XCB_ATOM_ATOM, 32, uint32_t(atoms.size()),
                        atoms.data());
    xcb_flush(c);
}

} // namespace

SystemTray::SystemTray(QObject* parent) : TrayIcon(parent) {}

SystemTray::~SystemTray()
{
    delete icon_;
}

bool SystemTray::available() const
{
    return QSystemTrayIcon::isSystemTrayAvailable();
}

void SystemTray::setLook(const QIcon& icon, const QString& tip)
{
    look_ = icon;
    tip_ = tip;
    if (icon_) {
        icon_->setIcon(look_);
        icon_->setToolTip(tip_);
    }
}

void SystemTray::add()
{
    if (!icon_) {
        icon_ = new QSystemTrayIcon;
        icon_->setIcon(look_.isNull() ? QApplication::windowIcon() : look_);
        icon_->setToolTip(tip_);
        // No context menu is handed to Qt: whether the menu opens depends on the main window
        // (see rightClicked), so the right click is passed on and the owner opens it.
        connect(icon_, &QSystemTrayIcon::activated, this, [this](QSystemTrayIcon::ActivationReason reason) {
            switch (reason) {
            case QSystemTrayIcon::DoubleClick:
                // XEmbed icons report the double click after the two clicks; two clicks in
                // quick succession have been passed on as one already.
                if (!lastDouble_.isValid() || lastDouble_.elapsed() > QApplication::doubleClickInterval())
                    emit doubleClicked();
                break;
            case QSystemTrayIcon::Trigger: leftClick(); break;
            case QSystemTrayIcon::Context: emit rightClicked(); break;
            default: break;
            }
        });
    }
    if (!icon_->isVisible())
        icon_->show();
    shown_ = true;
}

// A StatusNotifierItem host has no double click: it reports each left click as an activation.
// Two of them within the double-click time are taken as the double click.
void SystemTray::leftClick()
{
    if (lastClick_.isValid() && lastClick_.elapsed() <= QApplication::doubleClickInterval()) {
        lastClick_.invalidate();
        lastDouble_.start();
        emit doubleClicked();
        return;
    }
    lastClick_.start();
}

void SystemTray::remove()
{
    if (icon_)
        icon_->hide();
    shown_ = false;
}

void SystemTray::popUp(QMenu* menu)
{
    if (menu)
        menu->popup(QCursor::pos());
}

bool SystemTray::isForeground(const QWidget* window) const
{
    return window && window->isVisible() && window->isActiveWindow();
}

void SystemTray::setInTaskbar(QWidget* window, bool listed)
{
    setSkipTaskbar(window, !listed);
}

} // namespace velmora::platform
