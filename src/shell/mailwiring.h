#pragma once
// Connects the mail and network message transports and their windows to the main window.

namespace velmora::actions { class Mailing; }

namespace velmora::shell {

class MainWindow;

// Creates the module (owned by the window): "Set Email Options" opens the e-mail options, the
// start-up check of the mail profile runs through it, its job-log lines go to the window's job
// log and it refreshes the data folder from the window's Text7.
actions::Mailing* connectMailing(MainWindow& window);

} // namespace velmora::shell
