#include "history/timeline.h"

#include "core/timestamps.h"
#include "history/availabilitymodels.h"

#include <QAbstractItemView>
#include <QApplication>
#include <QDateTime>
#include <QHelpEvent>
#include <QPainter>
#include <QToolTip>

namespace velmora::history {

QColor availColour(Avail a)
{
    // Green and red differ in lightness too, so that they stay apart for red-green blindness.
    switch (a) {
    case Avail::Running: return QColor(0x7c, 0xc6, 0x7e);
    case Avail::Failed: return QColor(0xc6, 0x28, 0x28);
    case Avail::NotAnswering: return QColor(0xf5, 0x9e, 0x0b);
    case Avail::Maintenance: return QColor(0x42, 0x7e, 0xd8);
    case Avail::NotChecked: break;
    }
    return QColor(0xe4, 0xe4, 0xe4);
}

std::vector<Avail> stripPixels(const ServiceHistory& s, const TimeSpan& span, int width)
{
    std::vector<Avail> px(size_t(std::max(width, 0)), Avail::NotChecked);
    if (width <= 0 || s.runs.isEmpty())
        return px;
    const qint64 len = span.length();
    const qint64 until = s.knownUntil(span.now);
    const auto column = [&](qint64 t) { return (t - span.from) * width / len; };
    for (qsizetype i = std::max<qsizetype>(s.runAt(span.from), 0); i < s.runs.size(); ++i) {
        const qint64 start = std::max(s.runs[i].start, span.from);
        if (start >= span.to)
            break;
        const qint64 end = std::min(i + 1 < s.runs.size() ? s.runs[i + 1].start : until, span.to);
        if (end <= start)
            continue;
        const Avail state = s.runs[i].state;
        const qint64 x0 = column(start);
        // The last pixel the run reaches into, even by a second.
        const qint64 x1 = std::min<qint64>(width - 1, ((end - span.from) * width + len - 1) / len - 1);
        for (qint64 x = x0; x <= std::max(x0, x1); ++x)
            px[size_t(x)] = std::max(px[size_t(x)], state);
    }
    return px;
}

std::vector<qint64> axisTicks(const TimeSpan& span, int width, int minGap, bool* dayLabels)
{
    static const qint64 steps[] = {60, 300, 900, 1800, 3600, 2 * 3600, 3 * 3600, 6 * 3600, 12 * 3600,
                                   kDay, 2 * kDay, 7 * kDay, 14 * kDay, 28 * kDay, 91 * kDay, 364 * kDay};
    const qint64 len = span.length();
    qint64 step = steps[std::size(steps) - 1];
    for (qint64 s : steps) {
        if (s * width >= qint64(minGap) * len) {
            step = s;
            break;
        }
    }
    std::vector<qint64> ticks;
    QDate day = QDateTime::fromSecsSinceEpoch(span.from).date();
    *dayLabels = step >= kDay;
    if (step < kDay) {
        // From local midnight on, so that ticks fall on round local times.
        for (; ticks.size() < 2000; day = day.addDays(1)) {
            const qint64 midnight = QDateTime(day, QTime(0, 0)).toSecsSinceEpoch();
            if (midnight >= span.to)
                break;
            for (qint64 t = midnight; t < midnight + kDay && t < span.to; t += step)
                if (t > span.from)
                    ticks.push_back(t);
        }
        return ticks;
    }
    const int days = int(step / kDay);
    for (; ticks.size() < 2000; day = day.addDays(days)) {
        const qint64 t = QDateTime(day, QTime(0, 0)).toSecsSinceEpoch();
        if (t >= span.to)
            break;
        if (t > span.from)
            ticks.push_back(t);
    }
    return ticks;
}

// ---- the strips ----

TimelineDelegate::TimelineDelegate(const History& history, const TimeSpan& span, QObject* parent)
    : QStyledItemDelegate(parent), history_(history), span_(span)
{
}

void TimelineDelegate::paint(QPainter* painter, const QStyleOptionViewItem& option, const QModelIndex& index) const
{
    QStyleOptionViewItem opt(option);
    initStyleOption(&opt, index);
    const QWidget* widget = option.widget;
    QStyle* style = widget ? widget->style() : QApplication::style();
    style->drawPrimitive(QStyle::PE_PanelItemViewItem, &opt, painter, widget);
    const int row = index.data(kServiceRole).toInt();
    if (row < 0 || size_t(row) >= history_.services.size())
        return;
    const QRect strip = option.rect.adjusted(2, 3, -2, -3);
    const std::vector<Avail> px = stripPixels(history_.services[size_t(row)], span_, strip.width());
    for (size_t x = 0; x < px.size();) {
        size_t end = x + 1;
        while (end < px.size() && px[end] == px[x])
            ++end;
        painter->fillRect(QRect(strip.left() + int(x), strip.top(), int(end - x), strip.height()), availColour(px[x]));
        x = end;
    }
}

bool TimelineDelegate::helpEvent(QHelpEvent* event, QAbstractItemView* view, const QStyleOptionViewItem& option,
                                 const QModelIndex& index)
{
    const int row = index.data(kServiceRole).toInt();
    const QRect strip = option.rect.adjusted(2, 3, -2, -3);
    if (event->type() != QEvent::ToolTip || row < 0 || size_t(row) >= history_.services.size() || strip.width() <= 0)
        return QStyledItemDelegate::helpEvent(event, view, option, index);
    const ServiceHistory& s = history_.services[size_t(row)];
    const int x = std::clamp(event->pos().x() - strip.left(), 0, strip.width() - 1);
    const Avail shown = stripPixels(s, span_, strip.width())[size_t(x)];
    // The stretch of that state under the mouse: from the run that shows it in this pixel.
    const qint64 len = span_.length();
    const qint64 t0 = span_.from + qint64(x) * len / strip.width(), t1 = span_.from + qint64(x + 1) * len / strip.width();
    const qint64 until = s.knownUntil(span_.now);
    qint64 from = -1, to = -1;
    for (qsizetype i = std::max<qsizetype>(s.runAt(t0), 0); i < s.runs.size() && s.runs[i].start < t1; ++i) {
        const qint64 end = i + 1 < s.runs.size() ? s.runs[i + 1].start : until;
        if (s.runs[i].state == shown && end > t0) {
            from = s.runs[i].start;
            to = end;
            break;
        }
    }
    if (from < 0 && shown == Avail::NotChecked) {
        from = t0 < s.first ? -1 : until;
        to = t0 < s.first ? s.first : -1;
    }
    const auto at = [](qint64 t) {
        const QDateTime d = QDateTime::fromSecsSinceEpoch(t);
        return core::dateText(d) + QLatin1Char(' ') + d.time().toString(QStringLiteral("HH:mm"));
    };
    QString text = s.server + QStringLiteral(" / ") + (s.service.isEmpty() ? QStringLiteral("(server)") : s.service) +
                   QLatin1Char('\n') + availName(shown);
    if (from >= 0 && to >= 0)
        text += QStringLiteral(": %1 to %2 (%3)").arg(at(from), at(to), durationText(to - from));
    else if (from >= 0)
        text += QStringLiteral(" since %1").arg(at(from));
    else if (to >= 0)
        text += QStringLiteral(" until its first check, %1").arg(at(to));
    QToolTip::showText(event->globalPos(), text, view);
    return true;
}

// ---- the axis ----

TimeAxisHeader::TimeAxisHeader(const TimeSpan& span, int timelineColumn, QWidget* parent)
    : QHeaderView(Qt::Horizontal, parent), span_(span), column_(timelineColumn)
{
}

void TimeAxisHeader::paintSection(QPainter* painter, const QRect& rect, int logicalIndex) const
{
    QHeaderView::paintSection(painter, rect, logicalIndex);
    if (logicalIndex != column_)
        return;
    const QRect axis = rect.adjusted(2, 0, -2, 0);
    bool days = false;
    const QFontMetrics fm(font());
    const int labelWidth = fm.horizontalAdvance(QStringLiteral("Mo 00.00.")) + 12;
    const std::vector<qint64> ticks = axisTicks(span_, axis.width(), labelWidth, &days);
    painter->save();
    painter->setClipRect(rect);
    painter->setPen(palette().color(QPalette::Text));
    for (qint64 t : ticks) {
        const int x = axis.left() + int((t - span_.from) * axis.width() / span_.length());
        const QDateTime at = QDateTime::fromSecsSinceEpoch(t);
        const bool midnight = at.time() == QTime(0, 0);
        const QString label = days || midnight ? QLocale().toString(at.date(), QStringLiteral("ddd dd.MM."))
                                               : at.time().toString(QStringLiteral("HH:mm"));
        painter->drawLine(x, rect.bottom() - (midnight ? 7 : 4), x, rect.bottom());
        QFont f = font();
        f.setBold(midnight && !days);
        painter->setFont(f);
        painter->drawText(QRect(x + 3, rect.top(), labelWidth, rect.height() - 2), Qt::AlignLeft | Qt::AlignVCenter,
                          label);
    }
    painter->restore();
}

// ---- the legend ----

namespace {
constexpr Avail kLegendOrder[] = {Avail::Running, Avail::Failed, Avail::NotAnswering, Avail::Maintenance,
                                  Avail::NotChecked};
constexpr int kSwatch = 14, kGap = 6, kSpacing = 18;
} // namespace

Legend::Legend(QWidget* parent) : QWidget(parent)
{
    setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
    setToolTip(QStringLiteral("Uptime is the running time over the checked time: maintenance and time "
                              "without checks count for neither."));
}

QSize Legend::sizeHint() const
{
    int width = 0;
    for (Avail a : kLegendOrder)
        width += kSwatch + kGap + fontMetrics().horizontalAdvance(availName(a)) + kSpacing;
    return {width, std::max(kSwatch, fontMetrics().height()) + 4};
}

void Legend::paintEvent(QPaintEvent*)
{
    QPainter p(this);
    int x = 0;
    const int y = (height() - kSwatch) / 2;
    for (Avail a : kLegendOrder) {
        p.fillRect(QRect(x, y, kSwatch, kSwatch), availColour(a));
        p.setPen(palette().color(QPalette::Mid));
        p.drawRect(QRect(x, y, kSwatch - 1, kSwatch - 1));
        x += kSwatch + kGap;
        const QString name = availName(a);
        p.setPen(palette().color(QPalette::WindowText));
        p.drawText(QRect(x, 0, fontMetrics().horizontalAdvance(name) + 2, height()), Qt::AlignLeft | Qt::AlignVCenter, name);
        x += fontMetrics().horizontalAdvance(name) + kSpacing;
    }
}

} // namespace velmora::history
