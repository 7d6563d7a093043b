#include "shell/addserverdialog.h"

#include "platform/formcontrols.h"

#include <QEvent>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>

namespace velmora::shell {

using platform::named;

AddServerDialog::AddServerDialog(std::function<bool(const QString&)> add, QWidget* parent)
    : QDialog(parent), add_(std::move(add))
{
    setObjectName(QStringLiteral("Dialog1"));
    setWindowTitle(QStringLiteral("Add Server"));
    setAttribute(Qt::WA_DeleteOnClose);

    Label1 = named(new QLabel(QStringLiteral("Please type in the servername:")), "Label1");
    Text1 = named(new QLineEdit, "Text1");
    OKButton = named(new QPushButton(QStringLiteral("OK")), "OKButton");
    CancelButton = named(new QPushButton(QStringLiteral("Cancel")), "CancelButton");

    auto* layout = new QVBoxLayout(this);
    layout->addWidget(Label1);
    layout->addWidget(Text1);
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
    // Every showing starts from an empty field with the focus, OK as the default button. (A
    // refusal box coming and going keeps the name typed, so it can be corrected.)
    if (e->type() == QEvent::Show) {
        Text1->clear();
        Text1->setFocus();
        OKButton->setDefault(true);
        Text1->selectAll();
    }
    return QDialog::event(e);
}

void AddServerDialog::ok()
{
    if (add_(Text1->text().toUpper()))
        close();
}

} // namespace velmora::shell
