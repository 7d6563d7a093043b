#pragma once
// The service side of the main window: listing the services of the current server, the details
// of the selected one, starting and stopping it, following its state (Timer1), enabling the
// commands by state (Timer2) and listing its running dependents in stop order.
//
// Every call to a service manager runs on a worker thread; what it found is then applied on the
// user-interface thread step by step, message boxes included, in the order a one-call-at-a-time
// run would have shown them.
#include "platform/servicemanager.h"

#include <QObject>
#include <QString>
#include <functional>
#include <optional>
#include <vector>

namespace velmora::shell { class MainWindow; }

namespace velmora::servicecontrol {

// What opening a service and querying its status found: each step's error code (0 when it
// worked or did not run) and the state.
struct ServiceQuery {
    int scmError = 0;
    int serviceError = 0;
    int statusError = 0;
    int state = 0;
    bool failed() const { return scmError != 0 || serviceError != 0 || statusError != 0; }
};

// Opens the manager of computer and the service, queries the status (unless queryStatus is
// false) and, when every step worked, runs then on the open service; closes both (blocking; for
// worker threads). A manager that cannot be opened ends the steps, unless goOnWithoutManager:
// then the service open runs all the same and fails on its own, as starting and stopping report
// both failures.
ServiceQuery openAndQuery(platform::ServiceManager& services, const QString& computer, const QString& service,
                          const std::function<void(const platform::ServiceHandle&)>& then = {},
                          bool queryStatus = true, bool goOnWithoutManager = false);

// What one details query found.
struct DetailQuery : ServiceQuery {
    int configError = 0;
    platform::ServiceConfig config;
};

// Runs the details query of one service (blocking; for worker threads).
DetailQuery queryDetails(platform::ServiceManager& services, const QString& computer, const QString& service);

class ServiceControl : public QObject {
    Q_OBJECT
public:
    explicit ServiceControl(shell::MainWindow& window);

    // Lists the services of the computer in Text1: filter 1 active ones, 3 all.
    void getServiceInfo(int filter);
    // Shows the details of a service (key name) of the selected computer; then runs done.
    void servicedetails(const QString& service, std::function<void()> done = {});
    // Lists the dependents of the service in Text3 in List2/List4.
    void depservices(int filter, std::function<void()> done = {});
    void startCommand();
    void stopCommand();
    void timer1Tick();
    void timer2Tick();

    // Shared results, as the other windows read them.
    bool listfailed = false;
    bool detailsfailed = false;
    QString detailstate;
    QString selectedcomputer;

    // Whether a listing or command is still waiting for a service manager.
    bool busy() const { return busy_ > 0; }

signals:
    void listingFinished();

private:
    // Shows the boxes and fills the fields for a finished details query.
    void applyDetails(const DetailQuery& q);
    void listAfterOpen(int filter, bool validated);
    void servstart(std::function<void()> done);
    void servstop(const QString& service, std::function<void()> done);
    void box(const QString& text, int code);
    void runJob(std::function<std::function<void()>()> job);

    shell::MainWindow& w_;
    platform::ServiceManager& services_;
    int busy_ = 0;
    bool tickRunning_ = false;
};

} // namespace velmora::servicecontrol
