#include "shell/aboutwindow.h"

#include "platform/formcontrols.h"
#include "platform/icons.h"

#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

namespace velmora::shell {

using platform::named;

AboutWindow::AboutWindow(QWidget* parent) : QDialog(parent)
{
    setObjectName(QStringLiteral("Form5"));
    setWindowTitle(QStringLiteral("Info"));
    setAttribute(Qt::WA_DeleteOnClose);
    setModal(false);

    auto* top = new QVBoxLayout(this);
    Frame1 = named(new QGroupBox, "Frame1");
    auto* inFrame = new QHBoxLayout(Frame1);
    auto* picture = new QLabel;
    picture->setPixmap(platform::programIcon().pixmap(32, 32));
    Label1 = named(new QLabel, "Label1");
    Label1->setText(QStringLiteral("Velmora  Version 3.0   "));
    inFrame->addWidget(picture);
    inFrame->addWidget(Label1, 1);
    top->addWidget(Frame1);

    Command3 = named(new QPushButton(QStringLiteral("&OK")), "Command3");
    Command3->setDefault(true);
    auto* buttons = new QHBoxLayout;
    buttons->addStretch(1);
    buttons->addWidget(Command3);
    top->addLayout(buttons);

    // Closing releases the window (WA_DeleteOnClose), whether by "&OK", the close box or Escape.
    connect(Command3, &QPushButton::clicked, this, &QDialog::close);
    setFixedSize(sizeHint().expandedTo(QSize(300, 0)));
}

} // namespace velmora::shell
