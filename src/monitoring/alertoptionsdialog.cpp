#include "monitoring/alertoptionsdialog.h"

#include "core/writeresult.h"
#include "platform/formcontrols.h"
#include "platform/messageboxes.h"
#include "platform/textfiles.h"

#include <QCheckBox>
#include <QDialogButtonBox>
#include <QGridLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QSpinBox>

namespace velmora::monitoring {

using platform::named;

namespace {
QSpinBox* spin(const char* name, int minimum, const QString& suffix = {})
{
    auto* s = named(new QSpinBox, name);
    s->setRange(minimum, 9999);
    s->setSuffix(suffix);
    return s;
}
} // namespace

AlertOptionsDialog::AlertOptionsDialog(platform::TextFiles& files, platform::MessageBoxes& boxes, QString path,
                                       QWidget* parent)
    : QDialog(parent), files_(files), boxes_(boxes), path_(std::move(path))
{
    setObjectName(QStringLiteral("FormAlertOptions"));
    setWindowTitle(QStringLiteral("Alert Options"));
    Check1 = named(new QCheckBox(QStringLiteral("Alert a failure once, and mail when it has recovered")), "Check1");
    Spin1 = spin("Spin1", 0, QStringLiteral(" scans"));
    Spin1->setSpecialValueText(QStringLiteral("never"));
    Check2 = named(new QCheckBox(QStringLiteral("Alert a server that does not answer, as one failure, to:")), "Check2");
    Text1 = named(new QLineEdit, "Text1");
    Text1->setPlaceholderText(QStringLiteral("mail addresses, separated by ;"));
    Check3 = named(new QCheckBox(QStringLiteral("Stop restarting a service after")), "Check3");
    Spin2 = spin("Spin2", 1, QStringLiteral(" restarts"));
    Spin3 = spin("Spin3", 1, QStringLiteral(" scans"));
    Check4 = named(new QCheckBox(QStringLiteral("Add the unit's last journal lines to the alert mail")), "Check4");
    Check5 = named(new QCheckBox(QStringLiteral("Show failures and recoveries as desktop notifications")), "Check5");
    auto* buttons = new QDialogButtonBox;
    OKButton = named(buttons->addButton(QStringLiteral("OK"), QDialogButtonBox::AcceptRole), "OKButton");
    CancelButton = named(buttons->addButton(QStringLiteral("Cancel"), QDialogButtonBox::RejectRole), "CancelButton");

    auto* grid = new QGridLayout(this);
    int row = 0;
    grid->addWidget(Check1, row++, 0, 1, 4);
    grid->addWidget(new QLabel(QStringLiteral("      Remind every")), row, 0);
    grid->addWidget(Spin1, row++, 1);
    grid->addWidget(Check2, row++, 0, 1, 4);
    grid->addWidget(Text1, row++, 0, 1, 4);
    grid->addWidget(Check3, row, 0);
    grid->addWidget(Spin2, row, 1);
    grid->addWidget(new QLabel(QStringLiteral("within")), row, 2);
    grid->addWidget(Spin3, row++, 3);
    grid->addWidget(Check4, row++, 0, 1, 4);
    grid->addWidget(Check5, row++, 0, 1, 4);
    grid->addWidget(buttons, row, 0, 1, 4);

    for (QCheckBox* c : {Check1, Check2, Check3})
        connect(c, &QCheckBox::toggled, this, &AlertOptionsDialog::enableFields);
    connect(OKButton, &QPushButton::clicked, this, &AlertOptionsDialog::okClick);
    connect(CancelButton, &QPushButton::clicked, this, &QDialog::reject);
    enableFields();
}

void AlertOptionsDialog::enableFields()
{
    Spin1->setEnabled(Check1->isChecked());
    Text1->setEnabled(Check2->isChecked());
    Spin2->setEnabled(Check3->isChecked());
    Spin3->setEnabled(Check3->isChecked());
}

void AlertOptionsDialog::load()
{
    const core::AlertOptionsRead read = core::readAlertOptions(files_, path_);
    showOptions(read.options);
    if (!read.problem.isEmpty())
        boxes_.show(read.problem, platform::MsgIcon::Exclamation);
}

void AlertOptionsDialog::showOptions(const core::AlertOptions& o)
{
    Check1->setChecked(o.once);
    Spin1->setValue(o.remindScans);
    Check2->setChecked(o.serverDown);
    Text1->setText(o.serverDownMail);
    Check3->setChecked(o.restartGuard());
    Spin2->setValue(o.restartGuard() ? o.restartLimit : 3);
    Spin3->setValue(o.restartGuard() ? o.restartScans : 10);
    Check4->setChecked(o.journal);
    Check5->setChecked(o.notify);
    enableFields();
}

core::AlertOptions AlertOptionsDialog::shown() const
{
    core::AlertOptions o;
    o.once = Check1->isChecked();
    o.remindScans = o.once ? Spin1->value() : 0;
    o.serverDown = Check2->isChecked();
    o.serverDownMail = Text1->text().trimmed();
    o.restartLimit = Check3->isChecked() ? Spin2->value() : 0;
    o.restartScans = Check3->isChecked() ? Spin3->value() : 0;
    o.journal = Check4->isChecked();
    o.notify = Check5->isChecked();
    return o;
}

void AlertOptionsDialog::okClick()
{
    const core::AlertOptions o = shown();
    const core::WriteResult written = core::writeFile(files_, path_, core::alertOptionLines(o));
    if (!written) {
        boxes_.show(core::writeFailedText(written), platform::MsgIcon::Exclamation);
        return;
    }
    emit saved(o);
    accept();
}

} // namespace velmora::monitoring
