#pragma once
// Form5 "Info": the product and its version, and "&OK", which closes and releases the window so
// that the next opening builds it afresh.
#include <QDialog>

class QGroupBox;
class QLabel;
class QPushButton;

namespace velmora::shell {

class AboutWindow : public QDialog {
    Q_OBJECT
public:
    explicit AboutWindow(QWidget* parent = nullptr);

    QGroupBox* Frame1 = nullptr;
    QLabel* Label1 = nullptr;
    QPushButton* Command3 = nullptr;
};

} // namespace velmora::shell
