#pragma once
// The "    I&nfo    " commands: "Help..." opens the compiled help file beside the program with
// the desktop's viewer for it, and "About" (also the tray menu's "Info") shows Form5.
#include "platform/platform.h"

#include <QObject>
#include <QPointer>

class QWidget;

namespace velmora::shell {

class AboutWindow;

// The help file's name; it lies in the program's own folder.
inline constexpr const char* kHelpFileName = "velmorahelp.chm";

// The message for a help file that could not be opened, by the opener's result (32 or less);
// empty for a result the table does not know.
QString helpErrorText(int result);

class InfoCommands : public QObject {
    Q_OBJECT
public:
    // owner is the window Form5 belongs to.
    InfoCommands(const platform::Platform& platform, QWidget* owner, QObject* parent = nullptr);

    // The help file's full path.
    QString helpFile() const;
    // mnuhelp: opens the help file off the user-interface thread; a failure shows its message.
    void openHelp();
    // mnuAbout, mnuTrayinfo: Form5, modeless; an open one is brought to the front rather than
    // a second one built.
    void showAbout();
    // Form5 while it is open, else null.
    AboutWindow* aboutWindow() const;

signals:
    // The help file's opening has ended with result (above 32: opened), after any message.
    void helpOpened(int result);

private:
    platform::Platform p_;
    QPointer<QWidget> owner_;
    QPointer<AboutWindow> about_;
};

} // namespace velmora::shell
