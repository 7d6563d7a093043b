#pragma once
// The filter dialog Form6 "Report Filter Options": which results of a report scan become rows.
// It is created once and afterwards shown and hidden, so it shows its boxes as they were left.
#include "core/settings.h"

#include <QWidget>

class QCheckBox;
class QGroupBox;
class QPushButton;

namespace velmora::report {

class FilterDialog : public QWidget {
    Q_OBJECT
public:
    FilterDialog(core::SettingsRecord& settings, QWidget* parent = nullptr);

    QGroupBox* Frame1 = nullptr;
    QCheckBox *Check1 = nullptr, *Check2 = nullptr, *Check3 = nullptr;
    QPushButton *Command1 = nullptr, *Command2 = nullptr, *Command3 = nullptr;

    // "&Apply": the boxes become the filters.
    void apply();

signals:
    // The filters have been set from the boxes.
    void applied();

private:
    core::SettingsRecord& settings_;
};

} // namespace velmora::report
