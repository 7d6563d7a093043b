#include "servicecontrol/servicelisting.h"

namespace velmora::servicecontrol {

int ServiceListing::indexOfKey(const QString& key) const
{
    for (size_t i = 0; i < rows_.size(); ++i) {
        if (rows_[i].key.compare(key, Qt::CaseInsensitive) == 0)
            return int(i);
    }
    return -1;
}

int ServiceListing::indexOfDisplay(const QString& display) const
{
    for (size_t i = 0; i < rows_.size(); ++i) {
        if (rows_[i].display == display)
            return int(i);
    }
    return -1;
}

void ServiceListing::setRows(std::vector<ListedService> rows)
{
    rows_ = std::move(rows);
    emit reset();
}

void ServiceListing::setIcon(int row, int icon)
{
    if (row < 0 || row >= count() || rows_[size_t(row)].icon == icon)
        return;
    rows_[size_t(row)].icon = icon;
    emit iconChanged(row);
}

} // namespace velmora::servicecontrol
