#include "platform/icons.h"

#include <QTreeWidgetItem>

#include <QHash>
#include <QPainter>
#include <QPainterPath>
#include <QPixmap>

namespace velmora::platform {

namespace {

constexpr int kSize = 32; // drawn at 32 px and scaled down by the views

QPixmap canvas()
{
    QPixmap pm(kSize, kSize);
    pm.fill(Qt::transparent);
    return pm;
}

void begin(QPainter& p)
{
    p.setRenderHint(QPainter::Antialiasing);
}

// A round badge with a state symbol, for the service states.
QPixmap stateBadge(const QColor& fill, int symbol)
{
    QPixmap pm = canvas();
    QPainter p(&pm);
    begin(p);
    p.setPen(QPen(fill.darker(150), 1.5));
    p.setBrush(fill);
    p.drawEllipse(QRectF(2, 2, 28, 28));
    p.setPen(Qt::NoPen);
    p.setBrush(Qt::white);
    switch (symbol) {
    case 1: { // running: a play triangle
        QPolygonF tri{{12, 8}, {24, 16}, {12, 24}};
        p.drawPolygon(tri);
        break;
    }
    case 2: // stopped: a square
        p.drawRect(QRectF(10, 10, 12, 12));
        break;
    case 3: { // unknown: a question mark
        QFont f = p.font();
        f.setPixelSize(20);
        f.setBold(true);
        p.setFont(f);
        p.setPen(Qt::white);
        p.drawText(QRectF(0, 0, kSize, kSize), Qt::AlignCenter, QStringLiteral("?"));
        break;
    }
    case 4: { // starting: an arrow up
        QPolygonF arrow{{16, 6}, {25, 16}, {20, 16}, {20, 25}, {12, 25}, {12, 16}, {7, 16}};
        p.drawPolygon(arrow);
        break;
    }
    case 5: { // stopping: an arrow down
        QPolygonF arrow{{16, 26}, {25, 16}, {20, 16}, {20, 7}, {12, 7}, {12, 16}, {7, 16}};
        p.drawPolygon(arrow);
        break;
    }
    case 6: // paused: two bars
        p.drawRect(QRectF(10, 9, 4.5, 14));
        p.drawRect(QRectF(17.5, 9, 4.5, 14));
        break;
    }
    return pm;
}

// A server tower; monitored servers carry an eye, the corner shows reachability.
QPixmap server(bool monitored, int reach) // reach: 1 yes, 0 no, -1 being checked
{
    QPixmap pm = canvas();
    QPainter p(&pm);
    begin(p);
    const QColor body = monitored ? QColor(0x2f, 0x5d, 0x9e) : QColor(0x6b, 0x72, 0x7a);
    p.setPen(QPen(body.darker(160), 1.2));
    p.setBrush(body);
    p.drawRoundedRect(QRectF(5, 2, 18, 27), 2.5, 2.5);
    // drive bays
    p.setPen(Qt::NoPen);
    p.setBrush(body.lighter(170));
    for (int i = 0; i < 3; ++i)
        p.drawRect(QRectF(8, 6 + i * 5.5, 12, 2.5));
    if (monitored) { // an eye on the front
        p.setBrush(Qt::white);
        QPainterPath eye;
        eye.moveTo(8, 23);
        eye.quadTo(14, 17, 20, 23);
        eye.quadTo(14, 29, 8, 23);
        p.drawPath(eye);
        p.setBrush(body.darker(130));
        p.drawEllipse(QPointF(14, 23), 2.2, 2.2);
    }
    // reachability badge in the lower right corner
    const QRectF badge(18, 17, 13, 13);
    p.setPen(QPen(Qt::white, 1.5));
    if (reach == 1) {
        p.setBrush(QColor(0x2e, 0xa0, 0x43));
        p.drawEllipse(badge);
        p.setPen(QPen(Qt::white, 2.2, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
        p.drawPolyline(QPolygonF{{21.5, 23.5}, {24, 26}, {28, 21}});
    } else if (reach == 0) {
        p.setBrush(QColor(0xd0, 0x2b, 0x2b));
        p.drawEllipse(badge);
        p.setPen(QPen(Qt::white, 2.2, Qt::SolidLine, Qt::RoundCap));
        p.drawLine(QPointF(21.5, 20.5), QPointF(27.5, 26.5));
        p.drawLine(QPointF(27.5, 20.5), QPointF(21.5, 26.5));
    } else {
        p.setBrush(QColor(0xb0, 0xb0, 0xb0));
        p.drawEllipse(badge);
        p.setBrush(Qt::white);
        p.setPen(Qt::NoPen);
        for (int i = 0; i < 3; ++i)
            p.drawEllipse(QPointF(21 + i * 3.5, 23.5), 1.1, 1.1);
    }
    return pm;
}

} // namespace

QIcon imageListIcon(int index)
{
    static QHash<int, QIcon> cache;
    if (auto it = cache.find(index); it != cache.end())
        return *it;
    QPixmap pm;
    switch (index) {
    case 1: pm = stateBadge(QColor(0x2e, 0xa0, 0x43), 1); break;
    case 2: pm = stateBadge(QColor(0xd0, 0x2b, 0x2b), 2); break;
    case 3: pm = stateBadge(QColor(0x8a, 0x8f, 0x96), 3); break;
    case 4: pm = stateBadge(QColor(0xe0, 0xa1, 0x1b), 4); break;
    case 5: pm = stateBadge(QColor(0xe0, 0x6c, 0x1b), 5); break;
    case 6: pm = stateBadge(QColor(0x3a, 0x7b, 0xd5), 6); break;
    case 7: pm = server(false, 1); break;
    case 8: pm = server(false, 0); break;
    case 9: pm = server(true, 1); break;
    case 10: pm = server(true, 0); break;
    default: return {};
    }
    QIcon icon(pm);
    cache.insert(index, icon);
    return icon;
}

QIcon pendingServerIcon(bool monitored)
{
    static const QIcon plain(server(false, -1));
    static const QIcon watched(server(true, -1));
    return monitored ? watched : plain;
}

QIcon programIcon()
{
    return imageListIcon(9);
}

namespace {
constexpr int kIconRole = Qt::UserRole + 1;
}

int itemIcon(const QTreeWidgetItem* item)
{
    return item ? item->data(0, kIconRole).toInt() : 0;
}

void setItemIcon(QTreeWidgetItem* item, int index)
{
    item->setData(0, kIconRole, index);
    item->setIcon(0, index > 0 ? imageListIcon(index) : QIcon());
}

} // namespace velmora::platform
