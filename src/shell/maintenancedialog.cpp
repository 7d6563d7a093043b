#include "shell/maintenancedialog.h"

#include "platform/formcontrols.h"

#include <QDateTimeEdit>
#include <QHBoxLayout>
#include <QLabel>
#include <QLocale>
#include <QPushButton>
#include <QVBoxLayout>

namespace velmora::shell {

using platform::named;

MaintenanceDialog::MaintenanceDialog(const QString& server, const QDateTime& now, QWidget* parent) : QDialog(parent)
{
    setObjectName(QStringLiteral("Dialog2"));
    setWindowTitle(QStringLiteral("Stop Alerting"));
    setAttribute(Qt::WA_DeleteOnClose);

    Label1 = named(new QLabel(QStringLiteral("Stop alerting for %1 until:").arg(server)), "Label1");
    DateTime1 = named(new QDateTimeEdit, "DateTime1");
    DateTime1->setCalendarPopup(true);
    // The date as the program writes it everywhere, with the regional time of day.
    DateTime1->setDisplayFormat(QStringLiteral("dd.MM.yyyy ") + QLocale::system().timeFormat(QLocale::ShortFormat));
    DateTime1->setMinimumDateTime(now);
    DateTime1->setDateTime(now.addSecs(3600));
    OKButton = named(new QPushButton(QStringLiteral("OK")), "OKButton");
    CancelButton = named(new QPushButton(QStringLiteral("Cancel")), "CancelButton");
    OKButton->setDefault(true);

    auto* layout = new QVBoxLayout(this);
    layout->addWidget(Label1);
    layout->addWidget(DateTime1);
    auto* buttons = new QHBoxLayout;
    buttons->addStretch(1);
    buttons->addWidget(OKButton);
    buttons->addWidget(CancelButton);
    layout->addLayout(buttons);

    connect(OKButton, &QPushButton::clicked, this, [this] {
        emit untilChosen(DateTime1->dateTime());
        close();
    });
    connect(CancelButton, &QPushButton::clicked, this, &QDialog::close);
}

} // namespace velmora::shell
