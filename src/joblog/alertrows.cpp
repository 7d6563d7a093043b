#include "joblog/alertrows.h"

namespace velmora::joblog {

int AlertRows::rowCount(const QModelIndex& parent) const { return parent.isValid() ? 0 : count(); }

int AlertRows::columnCount(const QModelIndex& parent) const { return parent.isValid() ? 0 : ColumnCount; }

QVariant AlertRows::data(const QModelIndex& index, int role) const
{
    if (!index.isValid() || index.row() >= count())
        return {};
    const AlertRow& r = at(index.row());
    if (role == kRedRole)
        return r.red;
    if (role == kRecoveredRole)
        return r.recovered;
    if (role != Qt::DisplayRole)
        return {};
    switch (index.column()) {
    case Date: return r.date;
    case Time: return r.time;
    case Server: return r.server;
    case Service: return r.service;
    case State: return r.state;
    case Actions: return r.actions;
    default: return {};
    }
}

void AlertRows::append(AlertRow row)
{
    beginInsertRows({}, count(), count());
    rows_.push_back(std::move(row));
    endInsertRows();
}

void AlertRows::clear()
{
    beginResetModel();
    rows_.clear();
    endResetModel();
}

void AlertRows::markRecovered(const QString& server, const QString& service, const QString& text)
{
    for (int i = 0; i < count(); ++i) {
        AlertRow& r = rows_[size_t(i)];
        if (!r.red || r.recovered || r.server.compare(server, Qt::CaseInsensitive) != 0 ||
            r.service.compare(service, Qt::CaseInsensitive) != 0)
            continue;
        r.state += QStringLiteral(" - ") + text;
        r.recovered = true;
        emit dataChanged(index(i, 0), index(i, ColumnCount - 1));
    }
}

} // namespace velmora::joblog
