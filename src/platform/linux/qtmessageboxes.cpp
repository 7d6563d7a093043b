#include "platform/linux/qtmessageboxes.h"

#include <QApplication>
#include <QMessageBox>

namespace velmora::platform {

MsgAnswer QtMessageBoxes::show(const QString& text, MsgIcon icon, MsgButtons buttons, const QString& title)
{
    QMessageBox box(QApplication::activeWindow());
    box.setWindowTitle(title);
    box.setText(text);
    switch (icon) {
    case MsgIcon::None: box.setIcon(QMessageBox::NoIcon); break;
    case MsgIcon::Critical: box.setIcon(QMessageBox::Critical); break;
    case MsgIcon::Question: box.setIcon(QMessageBox::Question); break;
    case MsgIcon::Exclamation: box.setIcon(QMessageBox::Warning); break;
    case MsgIcon::Information: box.setIcon(QMessageBox::Information); break;
    }
    switch (buttons) {
    case MsgButtons::Ok: box.setStandardButtons(QMessageBox::Ok); break;
    case MsgButtons::OkCancel: box.setStandardButtons(QMessageBox::Ok | QMessageBox::Cancel); break;
    case MsgButtons::YesNo: box.setStandardButtons(QMessageBox::Yes | QMessageBox::No); break;
    case MsgButtons::YesNoCancel:
        box.setStandardButtons(QMessageBox::Yes | QMessageBox::No | QMessageBox::Cancel);
        break;
    }
    switch (box.exec()) {
    case QMessageBox::Cancel: return MsgAnswer::Cancel;
    case QMessageBox::Yes: return MsgAnswer::Yes;
    case QMessageBox::No: return MsgAnswer::No;
    default: return MsgAnswer::Ok;
    }
}

} // namespace velmora::platform
