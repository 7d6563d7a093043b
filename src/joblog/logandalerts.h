#pragma once
// The job log, the alert window Form4 and the alert signal together: the part of the program
// that records checks and announces failures. The main window owns one instance for the run.
//
// The alert signal is the main window's Timer6 (250 ms): while it is enabled each tick beeps
// 1300 Hz for 500 ms. It is on exactly while the timer is enabled; the "Alert" action switches
// it on by enabling the timer, resetalert() and the alert window's "Cl&ear" switch it off.
#include "core/runstate.h"
#include "joblog/joblog.h"

#include <QObject>
#include <QPointer>
#include <functional>

class QWidget;

namespace velmora::joblog {

class AlertWindow;

class LogAndAlerts : public QObject {
    Q_OBJECT
public:
    // What the main window does for the alert window; each may be left empty.
    struct Hooks {
        // Refreshes the shared data folder from the main window's field and returns it
        // (empty: state.datafolder as it is).
        std::function<QString()> datafolder;
        // Presses the main window's "&Check Services Now..." button.
        std::function<void()> checkservicesnow;
        // Shows server's service in the main window: selects the server, lists its services,
        // selects and shows the service.
        std::function<void(const QString& server, const QString& service)> gotoservice;
    };

    // signalTimer is the main window's Timer6; windowParent becomes the alert window's parent.
    LogAndAlerts(core::RunState& state, platform::Timer* signalTimer, Hooks hooks, QWidget* windowParent);
    ~LogAndAlerts() override;

    core::RunState& state() { return state_; }
    JobLog& joblog() { return log_; }
    platform::Timer* signalTimer() const { return timer_; }
    const Hooks& hooks() const { return hooks_; }
    QString datafolder();

    // The alert window, loaded on first use. Closing it by its close box unloads it (its rows
    // are lost); the next call loads a fresh one. Do not keep the pointer across such a close.
    AlertWindow* alertwindow();
    // The alert window if it is loaded, else null; loads nothing.
    AlertWindow* loadedAlertwindow() const;

    // Shows the alert window modeless and brings it to the front (restored if minimised).
    void showalertwindow();
    // Adds a row for a failed service: date, time, then server, service and state in red, then
    // the actions (the five action slots joined by joinactions()).
    void addalertrow(const QString& server, const QString& service, const QString& state, const QString& actions);
    // The five action slots joined with three blanks, empty slots keeping their separators.
    static QString joinactions(const QStringList& actionSlots);

    // Switches the signal off and stops a playing sound; a sound that cannot be stopped is
    // reported with its error code.
    void resetalert();
    // The alert window's "Cl&ear": no rows, signal off, a playing sound goes on.
    void clearalert();

    // The log-size indicator (the alert window's Label3): its colour and caption, or only its
    // colour. Without a log the indicator is left as it is.
    void updatelogsize(SizeCaption caption);
    void updatelogsizecolour();

private:
    void beep();

    core::RunState& state_;
    platform::Timer* timer_;
    Hooks hooks_;
    QWidget* windowParent_;
    JobLog log_;
    QPointer<AlertWindow> window_;
};

} // namespace velmora::joblog
