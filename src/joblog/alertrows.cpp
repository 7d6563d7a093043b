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

} // namespace velmora::joblog
