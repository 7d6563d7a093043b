#include "shell/help.h"

#include "shell/aboutwindow.h"

#include <QDir>
#include <QWidget>

namespace velmora::shell {

using platform::MsgButtons;
using platform::MsgIcon;

QString helpErrorText(int result)
{
    switch (result) {
    case 2: return QStringLiteral("File not found!");
    case 3: return QStringLiteral("Path not found!");
    case 5: return QStringLiteral("Access denied !");
    case 8: return QStringLiteral("Low memory!");
    case 11: return QStringLiteral("Currupt File!                        ");
    case 26: return QStringLiteral("Access violation occured!");
    case 27: return QStringLiteral("Unreliable file Association!");
    case 28: return QStringLiteral("DDE Time out");
    case 29: return QStringLiteral("DDE transaction failed!");
    case 30: return QStringLiteral("DDE bussy!");
    case 31: return QStringLiteral("No Application for file extention!");
    case 32: return QStringLiteral("DLL not found!");
    default: return {};
    }
}

InfoCommands::InfoCommands(const platform::Platform& platform, QWidget* owner, QObject* parent)
    : QObject(parent), p_(platform), owner_(owner)
{
}

QString InfoCommands::helpFile() const
{
    return QDir(p_.system->programFolder()).filePath(QString::fromLatin1(kHelpFileName));
}

void InfoCommands::openHelp()
{
    const QString file = helpFile();
    platform::FileOpener* opener = p_.opener;
    platform::MessageBoxes* boxes = p_.boxes;
    // Finding the viewer may take the desktop's launcher seconds; the window goes on meanwhile.
    // The completion runs on the user-interface thread, and only while this object lives.
    p_.worker->run(this, [this, opener, boxes, file]() -> std::function<void()> {
        const int result = opener->open(file);
        return [this, boxes, result] {
            if (result <= 32)
                boxes->show(helpErrorText(result), MsgIcon::Critical, MsgButtons::Ok);
            emit helpOpened(result);
        };
    });
}

AboutWindow* InfoCommands::aboutWindow() const
{
    return about_;
}

void InfoCommands::showAbout()
{
    if (!about_)
        about_ = new AboutWindow(owner_);
    about_->show();
    about_->raise();
    about_->activateWindow();
}

} // namespace velmora::shell
