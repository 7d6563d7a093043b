#pragma once
// Form12, "Velmora Availability": what the job log tells about each monitored service. On top a
// timeline strip per server and service over the chosen period (running, failed, server not
// answering, maintenance, not checked) beside its uptime over the last day, week and month, the
// services with the least uptime first; below, the outages in the shown period of the selected
// service (or of all), which can be exported as CSV.
//
// The log is read by LogHistory off the user-interface thread, again while the window is shown
// whenever the program tells that the log changed and every ten seconds (Timer1) for what
// others wrote; the lists and strips follow each new history.
#include "history/loghistory.h"
#include "history/timeline.h"
#include "platform/platform.h"

#include <QWidget>

class QComboBox;
class QLabel;
class QLineEdit;
class QPushButton;
class QScrollBar;
class QSortFilterProxyModel;
class QTableView;

namespace velmora::history {

class ServicesModel;
class OutagesModel;

class AvailabilityWindow : public QWidget {
    Q_OBJECT
public:
    AvailabilityWindow(const platform::Platform& platform, LogHistory& history, QWidget* parent = nullptr);

    // Shows the window over all services.
    void open();
    // Shows the window with one service selected and in sight, and its outages listed.
    void openOn(const QString& server, const QString& service);
    // The job log may have changed: reads what is new while the window is shown.
    void logChanged();

    // The history row of the service whose outages are listed, -1 for all services.
    int selectedService() const;
    const TimeSpan& span() const { return span_; }
    // Shows [from, to) in the strips.
    void showSpan(qint64 from, qint64 to);
    // Narrows (factor < 1) or widens the shown time around the time `around`.
    void zoom(double factor, qint64 around);
    // "Export CSV...": the outage list as shown, into a file the user chooses.
    void exportOutages();

    QLabel *Label1 = nullptr, *Label2 = nullptr, *Label3 = nullptr, *Label4 = nullptr;
    QComboBox* Combo1 = nullptr; // the period
    QLineEdit* Text1 = nullptr;  // finds servers and services by name
    QPushButton *Command1 = nullptr, *Command2 = nullptr, *Command3 = nullptr, *Command4 = nullptr;
    QTableView* ListView1 = nullptr; // the services, their uptimes and strips
    QTableView* ListView2 = nullptr; // the outages
    QScrollBar* HScroll1 = nullptr;  // moves the shown time
    Legend* Picture1 = nullptr;
    platform::Timer* Timer1 = nullptr;

protected:
    void showEvent(QShowEvent* e) override;
    void hideEvent(QHideEvent* e) override;
    bool eventFilter(QObject* watched, QEvent* e) override;

private:
    void historyUpdated();
    void periodChosen(int period);
    void updateOutages();
    void updateScrollBar();
    void updateStatus();
    void selectWanted();
    void fitNameColumns();
    qint64 logStart() const;

    platform::Platform p_;
    LogHistory& history_;
    TimeSpan span_;
    ServicesModel* services_ = nullptr;
    OutagesModel* outages_ = nullptr;
    QSortFilterProxyModel* servicesView_ = nullptr;
    // The service openOn() asked for, selected once the history has it.
    QString wantedServer_, wantedService_;
    bool wanted_ = false;
    bool movingScrollBar_ = false;
};

} // namespace velmora::history
