#include "report/reportrows.h"

#include <QHash>
#include <algorithm>

namespace velmora::report {

int ReportRow::colourOf(int column) const
{
    if (column == ComputerColumn && acknowledged)
        return colour::cyan;
    if (column >= ComputerColumn && column <= StateColumn)
        return running ? colour::green : colour::red;
    return -1;
}

ReportRows::ReportRows(QObject* parent) : QAbstractTableModel(parent) {}

ReportRows::~ReportRows() = default;

const QStringList& ReportRows::captions()
{
    static const QStringList names{QStringLiteral("Date:"),  QStringLiteral("Time:"),
                                   QStringLiteral("Computer:"), QStringLiteral("Service:"),
                                   QStringLiteral("State:"), QStringLiteral("Action if Service fails:"),
                                   QStringLiteral("Acknowledgement:")};
    return names;
}

bool ReportRows::before(const ReportRow& a, const ReportRow& b) const
{
    const int c = a.texts[sortColumn_].compare(b.texts[sortColumn_], Qt::CaseInsensitive);
    return order_ == Qt::AscendingOrder ? c < 0 : c > 0;
}

void ReportRows::add(std::vector<ReportRow> rows)
{
    if (rows.empty())
        return;
    std::vector<RowPtr> added;
    added.reserve(rows.size());
    for (ReportRow& r : rows) {
        r.serial = nextSerial_++;
        added.push_back(std::make_shared<ReportRow>(std::move(r)));
    }
    const int first = count();
    beginInsertRows({}, first, first + int(added.size()) - 1);
    rows_.insert(rows_.end(), added.begin(), added.end());
    endInsertRows();
    if (sortColumn_ < 0)
        return;
    // The old rows are in order already: sort the new ones and merge them in behind their equals.
    std::vector<RowPtr> sorted(rows_.begin(), rows_.begin() + first);
    std::stable_sort(added.begin(), added.end(), [this](const RowPtr& a, const RowPtr& b) { return before(*a, *b); });
    std::vector<RowPtr> merged;
    merged.reserve(rows_.size());
    std::merge(sorted.begin(), sorted.end(), added.begin(), added.end(), std::back_inserter(merged),
               [this](const RowPtr& a, const RowPtr& b) { return before(*a, *b); });
    resort(std::move(merged));
}

void ReportRows::clear()
{
    if (rows_.empty())
        return;
    beginResetModel();
    rows_.clear();
    endResetModel();
}

void ReportRows::removeBefore(quint64 serial)
{
    if (std::none_of(rows_.begin(), rows_.end(), [serial](const RowPtr& r) { return r->serial >= serial; })) {
        clear();
        return;
    }
    // Removed one run of rows at a time, from the end, so the views keep the rows that stay.
    for (int i = count() - 1; i >= 0;) {
        if (rows_[size_t(i)]->serial >= serial) {
            --i;
            continue;
        }
        int start = i;
        while (start > 0 && rows_[size_t(start - 1)]->serial < serial)
            --start;
        beginRemoveRows({}, start, i);
        rows_.erase(rows_.begin() + start, rows_.begin() + i + 1);
        endRemoveRows();
        i = start - 1;
    }
}

void ReportRows::acknowledge(int row)
{
    if (row < 0 || row >= count())
        return;
    ReportRow& r = *rows_[size_t(row)];
    r.acknowledged = true;
    r.texts[AckColumn] = kAcknowledged;
    emit dataChanged(index(row, 0), index(row, kColumnCount - 1));
}

void ReportRows::sortBy(int column, Qt::SortOrder order)
{
    if (column < 0 || column >= kColumnCount)
        return;
    sortColumn_ = column;
    order_ = order;
    std::vector<RowPtr> sorted = rows_;
    std::stable_sort(sorted.begin(), sorted.end(), [this](const RowPtr& a, const RowPtr& b) { return before(*a, *b); });
    resort(std::move(sorted));
}

void ReportRows::resort(std::vector<RowPtr> sorted)
{
    emit layoutAboutToBeChanged({}, QAbstractItemModel::VerticalSortHint);
    const QModelIndexList old = persistentIndexList();
    QHash<const ReportRow*, int> newRow;
    if (!old.isEmpty()) {
        QHash<const ReportRow*, bool> wanted;
        for (const QModelIndex& i : old)
            wanted.insert(rows_[size_t(i.row())].get(), true);
        for (int r = 0; r < int(sorted.size()); ++r)
            if (wanted.contains(sorted[size_t(r)].get()))
                newRow.insert(sorted[size_t(r)].get(), r);
    }
    QModelIndexList after;
    after.reserve(old.size());
    for (const QModelIndex& i : old)
        after << index(newRow.value(rows_[size_t(i.row())].get()), i.column());
    rows_ = std::move(sorted);
    changePersistentIndexList(old, after);
    emit layoutChanged({}, QAbstractItemModel::VerticalSortHint);
}

QStringList ReportRows::exportLines() const
{
    QStringList lines;
    lines.reserve(count());
    for (const RowPtr& r : rows_) {
        QString line;
        for (int c = 0; c < kColumnCount; ++c) {
            if (c > 0)
                line += QLatin1Char('\t');
            line += r->texts[c];
        }
        lines << line;
    }
    return lines;
}

int ReportRows::rowCount(const QModelIndex& parent) const { return parent.isValid() ? 0 : count(); }

int ReportRows::columnCount(const QModelIndex& parent) const { return parent.isValid() ? 0 : kColumnCount; }

QVariant ReportRows::data(const QModelIndex& index, int role) const
{
    if (!index.isValid() || index.row() >= count() || index.column() >= kColumnCount)
        return {};
    const ReportRow& r = at(index.row());
    if (role == Qt::DisplayRole)
        return r.texts[index.column()];
    if (role == ColourRole)
        return r.colourOf(index.column());
    return {};
}

QVariant ReportRows::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation == Qt::Horizontal && role == Qt::DisplayRole && section >= 0 && section < kColumnCount)
        return captions().at(section);
    return {};
}

} // namespace velmora::report
