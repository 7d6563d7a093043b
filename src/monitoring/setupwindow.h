#pragma once
// Form2, "Setup services for monitoring": the services of a server, the monitored ones and
// their actions. The service listing of the main window fills its ListView1.
#include <QDialog>

class QListWidget;
class QTreeWidget;

namespace velmora::monitoring {

class SetupWindow : public QDialog {
    Q_OBJECT
public:
    explicit SetupWindow(QWidget* parent = nullptr);

    QTreeWidget* ListView1 = nullptr; // services of the server, with state icons
    QListWidget* List1 = nullptr;
    QListWidget* List7 = nullptr;     // monitored services of the server
};

} // namespace velmora::monitoring
