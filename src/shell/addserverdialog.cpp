#include "shell/addserverdialog.h"

#include "platform/formcontrols.h"

#include <QCheckBox>
#include <QEvent>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>

namespace velmora::shell {

using platform::named;

AddServerDialog::AddServerDialog(ServerKindChoice kinds, QWidget* parent) : QDialog(parent), kinds_(kinds)
{
    setObjectName(QStringLiteral("Dialog1"));
    setWindowTitle(QStringLiteral("Add Server"));
    setAttribute(Qt::WA_DeleteOnClose);

    Label1 = named(new QLabel(QStringLiteral("Please type in the servername:")), "Label1");
    Text1 = named(new QLineEdit, "Text1");
    OKButton = named(new QPushButton(QStringLiteral("OK")), "OKButton");
    CancelButton = named(new QPushButton(QStringLiteral("Cancel")), "CancelButton");
    Check1 = named(new QCheckBox(QStringLiteral("&Windows server")), "Check1");

    auto* layout = new QVBoxLayout(this);
    layout->addWidget(Label1);
    layout->addWidget(Text1);
    layout->addWidget(Check1);
    if (!kinds_.available())
        Check1->hide();
    auto* buttons = new QHBoxLayout;
    buttons->addStretch(1);
    buttons->addWidget(OKButton);
    buttons->addWidget(CancelButton);
    layout->addLayout(buttons);

    connect(OKButton, &QPushButton::clicked, this, &AddServerDialog::ok);
    connect(CancelButton, &QPushButton::clicked, this, &QDialog::close);
}

bool AddServerDialog::event(QEvent* e)
{
    // Every showing starts from an empty field with the focus, OK as the default button, and a
    // systemd server. (A refusal box coming and going keeps the name typed, so it can be corrected.)
    if (e->type() == QEvent::Show) {
        Text1->clear();
        Check1->setChecked(false);
        Text1->setFocus();
        OKButton->setDefault(true);
        Text1->selectAll();
    }
    return QDialog::event(e);
}

void AddServerDialog::ok()
{
    emit addRequested(Text1->text().toUpper());
}

void AddServerDialog::added(const QString& name)
{
    // Stored for every new server, so that a line left from an earlier server of the same name
    // cannot make it a Windows server unasked. A kind that could not be stored is told in a box;
    // the server stays added.
    kinds_.choose(name, Check1->isChecked());
    close();
}

} // namespace velmora::shell
