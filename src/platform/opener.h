#pragma once
// Opening a file with the user's application, the way a double-click in the file manager does.
#include <QString>

namespace velmora::platform {

class FileOpener {
public:
    virtual ~FileOpener() = default;
    // Opens file with the application the desktop associates with its type; a program file is
    // started instead, with parameters (split like a command line; ignored for documents).
    // Returns a code in the classic shell-execute scheme: above 32 means it was opened, else
    //   2   the file does not exist           3   its folder does not exist
    //   5   access denied (cannot be read)    11  a program file that cannot be started
    //   31  no application is associated with the file's type (or none can be started)
    // May block for seconds while a launcher looks for the application, so callers on the
    // user-interface thread run it through a Worker. It may be called from any thread, also
    // from several at once.
    virtual int open(const QString& file, const QString& parameters = {}) = 0;
};

} // namespace velmora::platform
