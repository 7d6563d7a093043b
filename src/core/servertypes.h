#pragma once
// Which servers are Windows servers, whose services are reached through the Windows service
// manager rather than systemd. Kept in a file of its own in the data folder ("ServerTypes"), one
// line per Windows server: the name, a tab, "windows". A server without a line is a systemd
// server, so the server list's own files keep their formats and older data folders need nothing.
//
// The file is read once, on first use; changes are written through at once. May be used from
// any thread.
#include "core/datafolder.h"
#include "platform/serverkinds.h"
#include "platform/textfiles.h"

#include <QSet>
#include <QString>
#include <mutex>

namespace velmora::core {

class ServerTypes : public platform::ServerKinds {
public:
    // The file is looked up in folder when first needed (the data folder is chosen after the
    // platform is made).
    ServerTypes(platform::TextFiles& files, const DataFiles& folder);

    bool isWindows(const QString& server) override;
    // Marks server as a Windows server or not; false, and nothing changed, when the file could
    // not be written.
    bool setWindows(const QString& server, bool windows) override;

private:
    void load();

    platform::TextFiles& files_;
    const DataFiles& folder_;
    std::mutex mutex_;
    bool loaded_ = false;
    QSet<QString> windows_; // lower case
    QStringList names_;     // as the user spelled them, in file order
};

} // namespace velmora::core
