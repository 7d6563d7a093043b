#pragma once
// The rows of the availability window: one per server and service with its uptimes (and a
// timeline column that the window draws), and one per outage. Both read a History that the
// window keeps and hand the view their texts and sort keys.
#include "history/availability.h"

#include <QAbstractTableModel>

namespace velmora::history {

// The sort key of a row (numbers where the column is one) and the service a row stands for.
inline constexpr int kSortRole = Qt::UserRole;
inline constexpr int kServiceRole = Qt::UserRole + 1;
inline constexpr int kOutageRole = Qt::UserRole + 2;

// "99.95 %", never rounded up to 100 % while anything was down; "-" when nothing was checked.
QString uptimeText(double uptime);

// A table of the history under fixed column captions.
class HistoryTable : public QAbstractTableModel {
    Q_OBJECT
public:
    HistoryTable(const History& history, QStringList captions, QObject* parent);
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;

protected:
    const History& history_;

private:
    QStringList captions_;
};

class ServicesModel : public HistoryTable {
    Q_OBJECT
public:
    enum Column { ServerColumn, ServiceColumn, DayColumn, WeekColumn, MonthColumn, TimelineColumn, ColumnCount };
    explicit ServicesModel(const History& history, QObject* parent = nullptr);

    // The history changed: rows it added are inserted, the others updated; a history read
    // from the start again resets the rows.
    void historyChanged();

    int rowCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;

private:
    int rows_ = 0;
};

class OutagesModel : public HistoryTable {
    Q_OBJECT
public:
    enum Column { ServerColumn, ServiceColumn, StartColumn, EndColumn, DownColumn, UncheckedColumn,
                  StatesColumn, ActionsColumn, NoteColumn, ColumnCount };
    explicit OutagesModel(const History& history, QObject* parent = nullptr);

    // Shows these outages, seen at now, in the order of the column last sorted by.
    void setOutages(QList<OutageRef> outages, qint64 now);
    // The outages in the order shown.
    const QList<OutageRef>& outages() const { return outages_; }
    // Sorts by plain keys here rather than through a proxy that asks each row's data at every
    // comparison: a month of a thousand services has thousands of outages.
    void sort(int column, Qt::SortOrder order) override;

    int rowCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;

private:
    void sortRows();

    QList<OutageRef> outages_;
    qint64 now_ = 0;
    int sortColumn_ = StartColumn;
    Qt::SortOrder sortOrder_ = Qt::DescendingOrder;
};

// The outages of one service (or of all when service is -1) that overlap [from, to], seen at
// now, newest first.
QList<OutageRef> outagesIn(const History& h, int service, qint64 from, qint64 to, qint64 now);

} // namespace velmora::history
