#pragma once
// Desktop services: the notification-area icon, sound, and choosing a computer.
#include <QString>

class QWidget;

namespace velmora::platform {

class TrayIcon {
public:
    virtual ~TrayIcon() = default;
    // Adding an icon that is already shown does nothing.
    virtual void add() = 0;
    virtual void remove() = 0;
    virtual bool shown() const = 0;
};

class Sound {
public:
    virtual ~Sound() = default;
    // Stops any sound this program plays. Returns 0, or the system error code when the sound
    // could not be stopped.
    virtual int stop() = 0;
};

class ComputerChooser {
public:
    virtual ~ComputerChooser() = default;
    // Lets the user choose or type a computer name. Returns the name, or an empty text when
    // the user cancels.
    virtual QString choose(QWidget* owner, const QString& title) = 0;
};

} // namespace velmora::platform
