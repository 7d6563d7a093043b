#pragma once
// The rows of the alert window: every failure found since the rows were last cleared (and,
// during an immediate check, every monitored service), as the window's list shows them.
#include <QAbstractTableModel>
#include <QString>
#include <vector>

namespace velmora::joblog {

struct AlertRow {
    QString date, time, server, service, state, actions;
    // Server, service and state are drawn in red (a failure); the immediate check lists running
    // services in plain colours.
    bool red = true;
};

class AlertRows : public QAbstractTableModel {
    Q_OBJECT
public:
    enum Column { Date, Time, Server, Service, State, Actions, ColumnCount };
    // Qt::UserRole on any column: whether the row is drawn in red.
    static constexpr int kRedRole = Qt::UserRole;

    using QAbstractTableModel::QAbstractTableModel;

    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;

    const AlertRow& at(int row) const { return rows_[size_t(row)]; }
    int count() const { return int(rows_.size()); }
    void append(AlertRow row);
    void clear();

private:
    std::vector<AlertRow> rows_;
};

} // namespace velmora::joblog
