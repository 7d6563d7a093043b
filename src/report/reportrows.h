#pragma once
// The rows of the instant report: what every report scan found, in the order the list shows
// them. The report list shows this model, sorts it and exports it; nothing is read back from
// the list control.
//
// A row has seven texts (date, time, computer, service, state, actions, acknowledgement) and
// the colours of its computer, service and state columns as 24-bit colour values (red in the low
// byte): green for a running service, red for one not running and for a failed check, and the
// computer column cyan once the row is acknowledged.
//
// Sorting compares the texts of one column without regard to case (dates and times sort as
// text). While sorting is on, new rows are merged in at their place, after equal rows, so the
// list stays sorted as it grows.
#include <QAbstractTableModel>
#include <QString>
#include <QStringList>
#include <memory>
#include <vector>

namespace velmora::report {

namespace colour {
inline constexpr int green = 65280;
inline constexpr int red = 255;
inline constexpr int cyan = 0xFFFF00;
} // namespace colour

enum Column { DateColumn, TimeColumn, ComputerColumn, ServiceColumn, StateColumn, ActionsColumn, AckColumn };
inline constexpr int kColumnCount = 7;

inline const QString kAcknowledged = QStringLiteral("Acknowledged");

struct ReportRow {
    QString texts[kColumnCount];
    bool running = false;      // green; otherwise red
    bool acknowledged = false; // the computer column is cyan
    quint64 serial = 0;        // order of arrival, set by the model

    // The colour value of a column; -1 for the columns drawn in the list's own colour.
    int colourOf(int column) const;
};

class ReportRows : public QAbstractTableModel {
    Q_OBJECT
public:
    // The colour value of a cell (an int, -1 for none): the view turns it into its pen.
    static constexpr int ColourRole = Qt::UserRole + 1;

    explicit ReportRows(QObject* parent = nullptr);
    ~ReportRows() override;

    int count() const { return int(rows_.size()); }
    bool isEmpty() const { return rows_.empty(); }
    const ReportRow& at(int row) const { return *rows_[size_t(row)]; }
    // The serial the next added row gets; rows with a smaller serial are already in the list.
    quint64 nextSerial() const { return nextSerial_; }

    // Adds rows in the order given (or at their sorted places while sorting is on).
    void add(std::vector<ReportRow> rows);
    void clear();
    // Removes every row that arrived before the given serial (the rows an export wrote).
    void removeBefore(quint64 serial);
    // Marks a row acknowledged: computer column cyan, acknowledgement text "Acknowledged".
    void acknowledge(int row);

    // Sorting by the texts of a column; sorting stays on until switched off.
    void sortBy(int column, Qt::SortOrder order);
    int sortColumn() const { return sortColumn_; }
    Qt::SortOrder sortOrder() const { return order_; }

    // The export lines of every row in the list's order: seven fields separated by one TAB.
    QStringList exportLines() const;

    // QAbstractTableModel
    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;
    void sort(int column, Qt::SortOrder order) override { sortBy(column, order); }

    // The column captions, in order.
    static const QStringList& captions();

private:
    using RowPtr = std::shared_ptr<ReportRow>;
    bool before(const ReportRow& a, const ReportRow& b) const;
    // Reorders rows_ into sorted order (stable), keeping persistent indexes on their rows.
    void resort(std::vector<RowPtr> sorted);

    std::vector<RowPtr> rows_;
    quint64 nextSerial_ = 1;
    int sortColumn_ = -1; // -1: sorting off
    Qt::SortOrder order_ = Qt::AscendingOrder;
};

} // namespace velmora::report
