#pragma once
// The services of the current server as the last listing found them: each row's key name
// travels with its display name and state icon, so every list that shows the listing (the main
// window's and the monitoring setup's) maps a selected row back to the right service.
#include <QObject>
#include <QString>
#include <vector>

namespace velmora::servicecontrol {

struct ListedService {
    QString key;     // the service's key name, as the service manager knows it
    QString display; // its display name
    int icon = 0;    // its state icon (0: none)
};

class ServiceListing : public QObject {
    Q_OBJECT
public:
    using QObject::QObject;

    const std::vector<ListedService>& rows() const { return rows_; }
    int count() const { return int(rows_.size()); }
    const ListedService& at(int row) const { return rows_[size_t(row)]; }
    // The row of the key name (without regard to case), -1 when not listed.
    int indexOfKey(const QString& key) const;
    // The first row with this display name, -1 when none.
    int indexOfDisplay(const QString& display) const;

    void setRows(std::vector<ListedService> rows);
    void clear() { setRows({}); }
    void setIcon(int row, int icon);

signals:
    void reset();
    void iconChanged(int row);

private:
    std::vector<ListedService> rows_;
};

} // namespace velmora::servicecontrol
