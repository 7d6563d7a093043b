#pragma once
// The drawing of the availability timeline: a strip per service inside the services list (only
// the rows in sight are painted, each from its run-length history), the time axis in the list's
// header above the strips, and the legend.
#include "history/availability.h"

#include <QColor>
#include <QHeaderView>
#include <QStyledItemDelegate>
#include <QWidget>

namespace velmora::history {

QColor availColour(Avail a);

// The stretch of time the strips show, and the time the history is seen at.
struct TimeSpan {
    qint64 from = 0, to = 1, now = 0;
    qint64 length() const { return std::max<qint64>(to - from, 1); }
};

// The state each pixel column of a strip `width` pixels wide shows: of the states within the
// pixel's time, the one that ranks highest (a short failure is never drawn over).
std::vector<Avail> stripPixels(const ServiceHistory& s, const TimeSpan& span, int width);

// The ticks of the time axis: times at round local hours or days, at least minGap pixels apart
// over width; dayLabels is set when they fall on whole days.
std::vector<qint64> axisTicks(const TimeSpan& span, int width, int minGap, bool* dayLabels);

class TimelineDelegate : public QStyledItemDelegate {
    Q_OBJECT
public:
    TimelineDelegate(const History& history, const TimeSpan& span, QObject* parent = nullptr);
    void paint(QPainter* painter, const QStyleOptionViewItem& option, const QModelIndex& index) const override;
    // A tool tip with the state under the mouse and how long it lasted.
    bool helpEvent(QHelpEvent* event, QAbstractItemView* view, const QStyleOptionViewItem& option,
                   const QModelIndex& index) override;

private:
    const History& history_;
    const TimeSpan& span_;
};

// The list's header, which draws the time axis over the timeline column.
class TimeAxisHeader : public QHeaderView {
    Q_OBJECT
public:
    TimeAxisHeader(const TimeSpan& span, int timelineColumn, QWidget* parent = nullptr);

protected:
    void paintSection(QPainter* painter, const QRect& rect, int logicalIndex) const override;

private:
    const TimeSpan& span_;
    int column_;
};

// A swatch and a name for each state.
class Legend : public QWidget {
    Q_OBJECT
public:
    explicit Legend(QWidget* parent = nullptr);
    QSize sizeHint() const override;

protected:
    void paintEvent(QPaintEvent*) override;
};

} // namespace velmora::history
