#pragma once
// Small helpers of the window toolkit that every form uses: controls carry their form names as
// objectNames, and lists are drawn as the classic report-view list controls.
#include <QAction>
#include <QHeaderView>
#include <QMenu>
#include <QString>
#include <QTreeWidget>
#include <QWindow>

namespace velmora::platform {

// Window positions and sizes are kept in twips, as the settings file always has: 15 a pixel.
inline constexpr int kTwipsPerPixel = 15;

template <typename T>
T* named(T* widget, const char* name)
{
    widget->setObjectName(QString::fromLatin1(name));
    return widget;
}

inline QAction* menuItem(QMenu* menu, const char* name, const QString& caption)
{
    QAction* a = menu->addAction(caption);
    a->setObjectName(QString::fromLatin1(name));
    return a;
}

inline void menuSeparator(QMenu* menu, const char* name)
{
    menu->addSeparator()->setObjectName(QString::fromLatin1(name));
}

// Places a window by its frame's top-left corner (the corner of its title bar, where the window
// manager draws one), the corner QWidget::frameGeometry() reads back: a place stored from one
// and set through the other comes back unchanged, with no creep by the frame's size.
inline void placeFrame(QWidget* window, const QPoint& topLeft)
{
    window->winId(); // the native window, which takes the place
    window->windowHandle()->setFramePosition(topLeft);
}

// A one-column list with small icons, single selection, its column widthTwips wide.
inline QTreeWidget* iconList(const char* name, const QString& column, int widthTwips)
{
    auto* view = named(new QTreeWidget, name);
    view->setColumnCount(1);
    view->setHeaderLabels({column});
    view->setRootIsDecorated(false);
    view->setUniformRowHeights(true);
    view->setIconSize(QSize(20, 20));
    view->setColumnWidth(0, widthTwips / kTwipsPerPixel);
    view->header()->setStretchLastSection(true);
    view->setSelectionMode(QAbstractItemView::SingleSelection);
    view->setMinimumWidth(widthTwips / kTwipsPerPixel + 24);
    return view;
}

} // namespace velmora::platform
