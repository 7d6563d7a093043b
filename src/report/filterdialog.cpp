#include "report/filterdialog.h"

#include "platform/formcontrols.h"

#include <QCheckBox>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QPushButton>
#include <QVBoxLayout>

namespace velmora::report {

using platform::named;

FilterDialog::FilterDialog(core::SettingsRecord& settings, QWidget* parent)
    : QWidget(parent, Qt::Dialog), settings_(settings)
{
    setObjectName(QStringLiteral("Form6"));
    setWindowTitle(QStringLiteral("Report Filter Options"));
    Frame1 = named(new QGroupBox(QStringLiteral("Filter Options:")), "Frame1");
    Check1 = named(new QCheckBox(QStringLiteral("Report running services")), "Check1");
    Check2 = named(new QCheckBox(QStringLiteral("Report not running Services")), "Check2");
    Check3 = named(new QCheckBox(QStringLiteral("Report errors ")), "Check3");
    Command1 = named(new QPushButton(QStringLiteral("&OK")), "Command1");
    Command2 = named(new QPushButton(QStringLiteral("&Cancel")), "Command2");
    Command3 = named(new QPushButton(QStringLiteral("&Apply")), "Command3");

    auto* boxes = new QVBoxLayout(Frame1);
    boxes->addWidget(Check1);
    boxes->addWidget(Check2);
    boxes->addWidget(Check3);
    auto* buttons = new QHBoxLayout;
    buttons->addStretch(1);
    buttons->addWidget(Command1);
    buttons->addWidget(Command2);
    buttons->addWidget(Command3);
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(Frame1);
    layout->addLayout(buttons);

    Check1->setChecked(settings_.reportrunning);
    Check2->setChecked(settings_.reportnotrunning);
    Check3->setChecked(settings_.reporterrors);

    connect(Command3, &QPushButton::clicked, this, &FilterDialog::apply);
    connect(Command1, &QPushButton::clicked, this, [this] {
        apply();
        hide();
    });
    connect(Command2, &QPushButton::clicked, this, &QWidget::hide);
}

void FilterDialog::apply()
{
    settings_.reportrunning = Check1->isChecked();
    settings_.reportnotrunning = Check2->isChecked();
    settings_.reporterrors = Check3->isChecked();
    emit applied();
}

} // namespace velmora::report
