#include "monitoring/setupwindow.h"

#include <QHBoxLayout>
#include <QHeaderView>
#include <QListWidget>
#include <QTreeWidget>

namespace velmora::monitoring {

SetupWindow::SetupWindow(QWidget* parent) : QDialog(parent)
{
    setObjectName(QStringLiteral("Form2"));
    setWindowTitle(QStringLiteral("Setup services for monitoring"));
    ListView1 = new QTreeWidget(this);
    ListView1->setObjectName(QStringLiteral("ListView1"));
    ListView1->setHeaderLabels({QStringLiteral("Services:")});
    ListView1->setRootIsDecorated(false);
    ListView1->setColumnWidth(0, 3600 / 15);
    ListView1->setIconSize(QSize(20, 20));
    List1 = new QListWidget(this);
    List1->setObjectName(QStringLiteral("List1"));
    List1->hide();
    List7 = new QListWidget(this);
    List7->setObjectName(QStringLiteral("List7"));
    auto* layout = new QHBoxLayout(this);
    layout->addWidget(ListView1);
    layout->addWidget(List7);
}

} // namespace velmora::monitoring
