#pragma once
// Dialog2: the time until which a server's alerting stays off. Asks only; the chosen time goes
// out through untilChosen.
#include <QDateTime>
#include <QDialog>

class QDateTimeEdit;
class QLabel;
class QPushButton;

namespace velmora::shell {

class MaintenanceDialog : public QDialog {
    Q_OBJECT
public:
    // now is the present time; the field offers one hour from now and nothing before now.
    MaintenanceDialog(const QString& server, const QDateTime& now, QWidget* parent = nullptr);

    QLabel* Label1 = nullptr;
    QDateTimeEdit* DateTime1 = nullptr;
    QPushButton *OKButton = nullptr, *CancelButton = nullptr;

signals:
    void untilChosen(const QDateTime& until);
};

} // namespace velmora::shell
