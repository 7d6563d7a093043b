#pragma once
// Connects the monitoring setup and the action dispatcher to the main window.
namespace velmora::actions { class ActionDispatcher; }

namespace velmora::shell {

class MainWindow;

// Creates the action dispatcher (owned by the window; its alert signal is Timer6) and connects
// "Service &Monitor...", "Service Monitor", "Monitor Services on this Server..." and "Monitor
// Service" to the setup window, and the start-up interval to its Label5. The mail module's
// transports are plugged into the dispatcher, and its options' Cancel hides the alert setup.
actions::ActionDispatcher* connectMonitoring(MainWindow& window);

} // namespace velmora::shell
