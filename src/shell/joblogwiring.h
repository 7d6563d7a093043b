#pragma once
// Connects the job log, the alert window and the alert signal to the main window.
#include <QString>

namespace velmora::joblog { class LogAndAlerts; }

namespace velmora::shell {

class MainWindow;

// Creates the module (owned by the window) and connects "Show Logfile", "Delele Logfile",
// "Reset &Alert", the tray's "Reset Alert" and the Timer6 beep; the alert window's commands
// reach the main window through it.
joblog::LogAndAlerts* connectJobLog(MainWindow& window);

// Shows a service in the main window as "Goto service..." of the alert window does: selects
// the server, lists all its services and, once listed, selects the service (by key name or
// display name) and shows its details and dependents.
void gotoService(MainWindow& window, const QString& server, const QString& service);

} // namespace velmora::shell
