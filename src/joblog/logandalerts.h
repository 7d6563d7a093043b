#pragma once
// The job log, the alert window Form4 and the alert signal together: the part of the program
// that records checks and announces failures. The main window owns one instance for the run.
//
// The alert signal is the main window's Timer6 (250 ms): while it is enabled each tick beeps
// 1300 Hz for 500 ms. It is on exactly while the timer is enabled; the "Alert" action switches
// it on by enabling the timer, resetalert() and the alert window's "Cl&ear" switch it off.
#include "core/runstate.h"
#include "joblog/alertrows.h"
#include "joblog/alertsink.h"
#include "joblog/joblog.h"

#include <QObject>
#include <QPointer>
#include <functional>

class QWidget;

namespace velmora::joblog {

class AlertWindow;

class LogAndAlerts : public QObject, public AlertSink {
    Q_OBJECT
public:
    // signalTimer is the main window's Timer6; windowParent becomes the alert window's parent.
    LogAndAlerts(core::RunState& state, platform::Timer* signalTimer, QWidget* windowParent);
    ~LogAndAlerts() override;

    core::RunState& state() { return state_; }
    JobLog& joblog() { return log_; }
    // The alert window's rows; they go with the window when its close box unloads it.
    AlertRows& rows() { return rows_; }
    platform::Timer* signalTimer() const { return timer_; }

    // The alert window's "&Check Services Now" and "Goto service...": the main window does them.
    void requestCheckNow() { emit checkServicesNowRequested(); }
    void requestGotoService(const QString& server, const QString& service) { emit gotoServiceRequested(server, service); }
    // "Show Journal..." and "Acknowledge" of the alert window's menu, shown only while the alert
    // options that use them are on.
    void showAlertExtras(bool journal, bool acknowledge) { extraJournal_ = journal, extraAcknowledge_ = acknowledge; }
    bool journalShown() const { return extraJournal_; }
    bool acknowledgeShown() const { return extraAcknowledge_; }
    void requestJournal(const QString& server, const QString& service) { emit journalRequested(server, service); }
    void requestAcknowledge(const QString& server, const QString& service) { emit acknowledgeRequested(server, service); }

    // The alert window, loaded on first use. Closing it by its close box unloads it (its rows
    // are lost); the next call loads a fresh one. Do not keep the pointer across such a close.
    AlertWindow* alertwindow();
    // The alert window if it is loaded, else null; loads nothing.
    AlertWindow* loadedAlertwindow() const;

    // Shows the alert window modeless and brings it to the front (restored if minimised).
    void showalertwindow() override;
    // Adds a row for a failed service: date, time, then server, service and state in red, then
    // the actions (the five action slots joined with three blanks).
    void addalertrow(const QString& server, const QString& service, const QString& state,
                     const QString& actions) override;
    void addcheckrow(const QString& server, const QString& service, const QString& shown, const QString& actions,
                     bool red) override;
    void markrecovered(const QString& server, const QString& service, const QString& text) override
    {
        rows_.markRecovered(server, service, text);
    }
    void beginTimedScan() override;
    void beginImmediateCheck() override;
    void showNextScan(const QDateTime& at) override;

    // Switches the signal off and stops a playing sound; a sound that cannot be stopped is
    // reported with its error code.
    void resetalert();
    // The alert window's "Cl&ear": no rows, signal off, a playing sound goes on.
    void clearalert();

    // The log-size indicator (the alert window's Label3): its colour and caption, or only its
    // colour. Without a log the indicator is left as it is.
    void updatelogsize(SizeCaption caption) override;
    void updatelogsizecolour() override;

signals:
    // Shows server's service in the main window: selects the server, lists its services,
    // selects and shows the service.
    void gotoServiceRequested(const QString& server, const QString& service);
    void checkServicesNowRequested();
    void journalRequested(const QString& server, const QString& service);
    void acknowledgeRequested(const QString& server, const QString& service);

private:
    void beep();
    void addrow(const QString& server, const QString& service, const QString& state, const QString& actions,
                bool red);

    core::RunState& state_;
    platform::Timer* timer_;
    QWidget* windowParent_;
    JobLog log_;
    AlertRows rows_;
    bool extraJournal_ = false, extraAcknowledge_ = false;
    QPointer<AlertWindow> window_;
};

} // namespace velmora::joblog
