#include "history/availabilitymodels.h"

#include "core/timestamps.h"

#include <QDateTime>
#include <cmath>

namespace velmora::history {

QString uptimeText(double uptime)
{
    if (uptime < 0)
        return QStringLiteral("-");
    if (uptime >= 1)
        return QStringLiteral("100 %");
    return QString::number(std::floor(uptime * 10000) / 100, 'f', 2) + QStringLiteral(" %");
}

namespace {

QString timeText(qint64 t)
{
    const QDateTime at = QDateTime::fromSecsSinceEpoch(t);
    return core::dateText(at) + QLatin1Char(' ') + at.time().toString(QStringLiteral("HH:mm:ss"));
}

QString serviceText(const ServiceHistory& s)
{
    return s.service.isEmpty() ? QStringLiteral("(no service checked)") : s.service;
}

} // namespace

HistoryTable::HistoryTable(const History& history, QStringList captions, QObject* parent)
    : QAbstractTableModel(parent), history_(history), captions_(std::move(captions))
{
}

int HistoryTable::columnCount(const QModelIndex& parent) const { return parent.isValid() ? 0 : int(captions_.size()); }

QVariant HistoryTable::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole)
        return {};
    return captions_.value(section);
}

// ---- services ----

ServicesModel::ServicesModel(const History& history, QObject* parent)
    : HistoryTable(history,
                   {QStringLiteral("Server"), QStringLiteral("Service"), QStringLiteral("Day"), QStringLiteral("Week"),
                    QStringLiteral("Month"), QString()},
                   parent)
{
}

void ServicesModel::historyChanged()
{
    const int now = int(history_.services.size());
    if (history_.reread || now < rows_) {
        beginResetModel();
        rows_ = now;
        endResetModel();
        return;
    }
    if (rows_ > 0)
        emit dataChanged(index(0, 0), index(rows_ - 1, ColumnCount - 1));
    if (now > rows_) {
        beginInsertRows({}, rows_, now - 1);
        rows_ = now;
        endInsertRows();
    }
}

int ServicesModel::rowCount(const QModelIndex& parent) const { return parent.isValid() ? 0 : rows_; }

QVariant ServicesModel::data(const QModelIndex& index, int role) const
{
    if (!index.isValid() || index.row() >= rows_)
        return {};
    const size_t row = size_t(index.row());
    const ServiceHistory& s = history_.services[row];
    const int column = index.column();
    const bool uptime = column >= DayColumn && column <= MonthColumn;
    if (role == kServiceRole)
        return index.row();
    if (role == Qt::TextAlignmentRole && uptime)
        return int(Qt::AlignRight | Qt::AlignVCenter);
    if (role == Qt::DisplayRole || role == kSortRole) {
        switch (column) {
        case ServerColumn: return s.server;
        case ServiceColumn: return serviceText(s);
        case TimelineColumn: return role == kSortRole ? QVariant(index.row()) : QVariant();
        default: break;
        }
        const double u = row < history_.uptimes.size() ? history_.uptimes[row][size_t(column - DayColumn)] : -1;
        // Services with nothing checked sort after all others.
        return role == kSortRole ? QVariant(u < 0 ? 2.0 : u) : QVariant(uptimeText(u));
    }
    return {};
}

// ---- outages ----

OutagesModel::OutagesModel(const History& history, QObject* parent)
    : HistoryTable(history,
                   {QStringLiteral("Server"), QStringLiteral("Service"), QStringLiteral("Start"), QStringLiteral("End"),
                    QStringLiteral("Down"), QStringLiteral("Not checked"), QStringLiteral("States seen"),
                    QStringLiteral("Actions run"), QStringLiteral("Note")},
                   parent)
{
}

void OutagesModel::setOutages(QList<OutageRef> outages, qint64 now)
{
    beginResetModel();
    outages_ = std::move(outages);
    now_ = now;
    sortRows();
    endResetModel();
}

void OutagesModel::sort(int column, Qt::SortOrder order)
{
    sortColumn_ = column;
    sortOrder_ = order;
    emit layoutAboutToBeChanged({}, QAbstractItemModel::VerticalSortHint);
    const QModelIndexList before = persistentIndexList();
    QList<OutageRef> old = outages_;
    sortRows();
    // Keeps the selection on the same outages.
    QModelIndexList after;
    for (const QModelIndex& i : before) {
        const OutageRef ref = old[i.row()];
        const auto it = std::find_if(outages_.begin(), outages_.end(), [ref](const OutageRef& r) {
            return r.service == ref.service && r.outage == ref.outage;
        });
        after << index(int(it - outages_.begin()), i.column());
    }
    changePersistentIndexList(before, after);
    emit layoutChanged({}, QAbstractItemModel::VerticalSortHint);
}

void OutagesModel::sortRows()
{
    struct Key {
        qint64 number = 0;
        QString text;
        OutageRef ref;
    };
    const bool numeric = sortColumn_ >= StartColumn && sortColumn_ <= UncheckedColumn;
    std::vector<Key> keys;
    keys.reserve(size_t(outages_.size()));
    for (int row = 0; row < outages_.size(); ++row) {
        const QModelIndex i = index(row, sortColumn_);
        Key k;
        k.ref = outages_[row];
        if (numeric)
            k.number = data(i, kSortRole).toLongLong();
        else
            k.text = data(i, Qt::DisplayRole).toString();
        keys.push_back(std::move(k));
    }
    const bool up = sortOrder_ == Qt::AscendingOrder;
    std::stable_sort(keys.begin(), keys.end(), [numeric, up](const Key& a, const Key& b) {
        const int c = numeric ? (a.number < b.number ? -1 : a.number > b.number ? 1 : 0)
                              : a.text.compare(b.text, Qt::CaseInsensitive);
        return up ? c < 0 : c > 0;
    });
    for (size_t n = 0; n < keys.size(); ++n)
        outages_[qsizetype(n)] = keys[n].ref;
}

int OutagesModel::rowCount(const QModelIndex& parent) const { return parent.isValid() ? 0 : int(outages_.size()); }

QVariant OutagesModel::data(const QModelIndex& index, int role) const
{
    if (!index.isValid() || index.row() >= outages_.size())
        return {};
    const OutageRef ref = outages_[index.row()];
    if (role == kOutageRole)
        return index.row();
    if (role == kServiceRole)
        return ref.service;
    if (role != Qt::DisplayRole && role != kSortRole && role != Qt::ToolTipRole)
        return {};
    const ServiceHistory& s = history_.services[size_t(ref.service)];
    const Outage& o = s.outages[ref.outage];
    const OutageSpan span = outageSpan(s, o, now_);
    const bool sort = role == kSortRole;
    switch (index.column()) {
    case ServerColumn: return s.server;
    case ServiceColumn: return serviceText(s);
    case StartColumn: return sort ? QVariant(o.start) : QVariant(timeText(o.start));
    case EndColumn: return sort ? QVariant(span.end) : QVariant(span.lasting ? QString() : timeText(span.end));
    case DownColumn: return sort ? QVariant(span.down) : QVariant(durationText(span.down));
    case UncheckedColumn:
        return sort ? QVariant(span.unchecked) : QVariant(span.unchecked ? durationText(span.unchecked) : QString());
    case StatesColumn: return o.states.join(QStringLiteral("; "));
    case ActionsColumn: return actionsText(o);
    case NoteColumn: return outageNote(o);
    default: return {};
    }
}

QList<OutageRef> outagesIn(const History& h, int service, qint64 from, qint64 to, qint64 now)
{
    QList<OutageRef> out;
    const auto collect = [&](int i) {
        const ServiceHistory& s = h.services[size_t(i)];
        for (int k = 0; k < s.outages.size(); ++k) {
            const Outage& o = s.outages[k];
            if (o.start <= to && outageSpan(s, o, now).end >= from)
                out.append({i, k});
        }
    };
    if (service >= 0)
        collect(service);
    else
        for (int i = 0; i < int(h.services.size()); ++i)
            collect(i);
    std::sort(out.begin(), out.end(), [&h](const OutageRef& a, const OutageRef& b) {
        return h.services[size_t(a.service)].outages[a.outage].start > h.services[size_t(b.service)].outages[b.outage].start;
    });
    return out;
}

} // namespace velmora::history
