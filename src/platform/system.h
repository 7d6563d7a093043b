#pragma once
// Facts about this computer and this process.
#include <QString>
#include <functional>

namespace velmora::platform {

class SystemInfo {
public:
    virtual ~SystemInfo() = default;
    // Platform family as the classic version query reports it: 0 unidentified, 1 the
    // Windows 95/98 family, 2 the NT family. Linux counts as 2: it has a service manager.
    virtual int platformId() = 0;
    // This computer's name (the host name, without domain).
    virtual QString computerName() = 0;
    // This computer's fully qualified domain name, as a mail server expects it in a greeting;
    // the plain host name when no domain is known.
    virtual QString fullyQualifiedName() = 0;
    // The folder of the program file.
    virtual QString programFolder() = 0;
    // The program file's own name, without its folder ("velmora").
    virtual QString programFileName() = 0;
    // Whether a folder can be written by this user.
    virtual bool folderWritable(const QString& folder) = 0;
    // The per-user application data folder, used when the program's folder is read-only.
    virtual QString userDataFolder() = 0;
};

// Only one copy of the program runs per user.
class SingleInstance {
public:
    virtual ~SingleInstance() = default;
    // True when another copy already runs. Otherwise this copy becomes the one that others find,
    // and onShowRequest runs (on the user-interface thread) whenever a later copy asks it to show
    // its window.
    virtual bool otherInstanceRunning(std::function<void()> onShowRequest) = 0;
    // Asks the running copy to show and restore its window.
    virtual void activateOther() = 0;
    // Empty when copies can find each other in a place only this user reaches. Otherwise one
    // paragraph for the user that says which folder was refused, why and what to do; then
    // otherInstanceRunning() answers false without listening anywhere and activateOther() does
    // nothing, and the program should not go on.
    virtual QString problem() const { return {}; }
};

// Ending the process.
class Application {
public:
    virtual ~Application() = default;
    // Ends the program at once with the given exit code; no window handler runs after it.
    virtual void end(int code) = 0;
    virtual bool ended() const = 0;
    // fn runs on the user-interface thread when the session or the system asks the program to
    // end (logout, shutdown, a termination signal).
    virtual void onSessionEnd(std::function<void()> fn) = 0;
};

} // namespace velmora::platform
