#include "report/automatedialog.h"

#include "platform/formcontrols.h"
#include "report/reportexport.h"

#include <QCheckBox>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QRadioButton>
#include <QVBoxLayout>

namespace velmora::report {

using platform::MsgIcon;
using platform::named;

AutomateDialog::AutomateDialog(core::SettingsRecord& settings, platform::MessageBoxes& boxes,
                               platform::FileDialogs& dialogs, QWidget* parent)
    : QWidget(parent, Qt::Dialog), settings_(settings), boxes_(boxes), dialogs_(dialogs)
{
    setObjectName(QStringLiteral("Form11"));
    setAttribute(Qt::WA_DeleteOnClose);
    setWindowTitle(QStringLiteral("Automate"));
    Frame1 = named(new QGroupBox(QStringLiteral("Automate:")), "Frame1");
    Check1 = named(new QCheckBox(QStringLiteral(
                       "Automatically export contents of report in file if count of entries is >=")),
                   "Check1");
    Text2 = named(new QLineEdit, "Text2");
    Text2->setMaximumWidth(80);
    Option1 = named(new QRadioButton(QStringLiteral("Append")), "Option1");
    Option2 = named(new QRadioButton(QStringLiteral("Overwrite")), "Option2");
    Label3 = named(new QLabel(QStringLiteral("Path \\ Filename:")), "Label3");
    Text1 = named(new QLineEdit, "Text1");
    Command1 = named(new QPushButton(QStringLiteral("Browse...")), "Command1");
    Label1 = named(new QLabel(QStringLiteral(
                       "After automatically exporting the contents the report will be cleared !!")),
                   "Label1");
    Command2 = named(new QPushButton(QStringLiteral("&OK")), "Command2");
    Command3 = named(new QPushButton(QStringLiteral("&Cancel")), "Command3");

    auto* grid = new QGridLayout(Frame1);
    grid->addWidget(Check1, 0, 0, 1, 2);
    grid->addWidget(Text2, 0, 2);
    auto* options = new QHBoxLayout;
    options->addWidget(Option1);
    options->addWidget(Option2);
    options->addStretch(1);
    grid->addLayout(options, 1, 0, 1, 3);
    grid->addWidget(Label3, 2, 0);
    grid->addWidget(Text1, 2, 1);
    grid->addWidget(Command1, 2, 2);
    grid->addWidget(Label1, 3, 0, 1, 3);
    auto* buttons = new QHBoxLayout;
    buttons->addStretch(1);
    buttons->addWidget(Command2);
    buttons->addWidget(Command3);
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(Frame1);
    layout->addLayout(buttons);
    resize(560, 200);

    // Loading: the stored settings.
    Text1->setText(settings_.autoexportfile);
    Text2->setText(settings_.autoexportcount);
    Check1->setChecked(settings_.autoexport);
    (settings_.autoexportoverwrite ? Option2 : Option1)->setChecked(true);
    enableFields(settings_.autoexport);

    connect(Check1, &QCheckBox::clicked, this, [this](bool checked) {
        if (checked) {
            Text1->setText(settings_.autoexportfile);
            Text2->setText(settings_.autoexportcount);
        } else {
            Text1->clear();
            Text2->clear();
        }
        enableFields(checked);
    });
    // The threshold is held between 10 and 10000 from the user's first edit on.
    connect(Text2, &QLineEdit::textEdited, this, [this](const QString& typed) {
        const QString kept = thresholdText(typed);
        if (kept != typed)
            Text2->setText(kept);
    });
    connect(Command1, &QPushButton::clicked, this, &AutomateDialog::browse);
    connect(Command2, &QPushButton::clicked, this, &AutomateDialog::ok);
    connect(Command3, &QPushButton::clicked, this, &QWidget::close);
}

void AutomateDialog::enableFields(bool on)
{
    for (QWidget* w : std::initializer_list<QWidget*>{Text1, Text2, Option1, Option2, Command1})
        w->setEnabled(on);
}

void AutomateDialog::browse()
{
    const QString folder = dialogs_.chooseFolder(this, QStringLiteral("Choose Folder:"));
    if (folder.isEmpty())
        return;
    Text1->setText(folder.endsWith(QLatin1Char('/')) ? folder : folder + QLatin1Char('/'));
    Text1->setFocus();
}

bool AutomateDialog::ok()
{
    if (Check1->isChecked() && Text1->text().isEmpty()) {
        boxes_.show(QStringLiteral("Please enter valid path and filename !"), MsgIcon::Information);
        return false;
    }
    if (Check1->isChecked() && Text2->text().isEmpty()) {
        boxes_.show(QStringLiteral("Please enter valid count of items !"), MsgIcon::Information);
        return false;
    }
    settings_.autoexport = Check1->isChecked();
    settings_.autoexportoverwrite = Option2->isChecked();
    settings_.autoexportfile = Text1->text();
    const double count = Text2->text().trimmed().toDouble();
    settings_.autoexportcount = QString::number(count);
    close();
    return true;
}

} // namespace velmora::report
