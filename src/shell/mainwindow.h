#pragma once
#include "platform/platform.h"
#include <QMainWindow>

namespace velmora::shell {

class MainWindow : public QMainWindow {
    Q_OBJECT
public:
    explicit MainWindow(const platform::Platform& platform, QWidget* parent = nullptr);
    void load();

private:
    platform::Platform p_;
};

} // namespace velmora::shell
