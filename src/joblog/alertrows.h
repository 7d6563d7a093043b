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
    // The failure has recovered: its state says since when, drawn in green.
    bool recovered = false;
};

class AlertRows : public QAbstractTableModel {
    Q_OBJECT
public:
    enum Column { Date, Time, Server, Service, State, Actions, ColumnCount };
    // Qt::UserRole on any column: whether the row is drawn in red.
    static constexpr int kRedRole = Qt::UserRole;
    // Qt::UserRole + 1: whether the row's failure has recovered.
    static constexpr int kRecoveredRole = Qt::UserRole + 1;

    using QAbstractTableModel::QAbstractTableModel;

    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;

    const AlertRow& at(int row) const { return rows_[size_t(row)]; }
    int count() const { return int(rows_.size()); }
    void append(AlertRow row);
    void clear();
    // The red rows of server's service (of the server itself when service is empty) not yet
    // recovered are marked recovered, with " - " and text after their state.
    void markRecovered(const QString& server, const QString& service, const QString& text);

private:
    std::vector<AlertRow> rows_;
};

} // namespace velmora::joblog
