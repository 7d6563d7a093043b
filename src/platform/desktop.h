#pragma once
// Desktop services: sound, and choosing a computer.
#include <QString>

class QWidget;

namespace velmora::platform {

// The error codes of Sound::playLoop (the classic system error numbers).
namespace sounderror {
inline constexpr int ok = 0;
inline constexpr int fileNotFound = 2;   // no such file (an empty name included)
inline constexpr int pathNotFound = 3;   // its folder does not exist
inline constexpr int accessDenied = 5;   // the file cannot be read
inline constexpr int badFormat = 11;     // not a WAV file this program can play
inline constexpr int notReady = 21;      // there is no audio output to play on
} // namespace sounderror

class Sound {
public:
    virtual ~Sound() = default;
    // Starts playing a WAV file over and over, without blocking the caller, until stop(); a
    // sound that was already playing is replaced. Returns 0 when the sound started, else one of
    // the sounderror codes, found before anything plays.
    virtual int playLoop(const QString& file) = 0;
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
