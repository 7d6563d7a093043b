#pragma once
// Pop-up network messages to a user or computer (the WinPopup message that Windows networks and
// Samba share). On Linux the message is handed to Samba's client, "smbclient -M".
#include <QObject>
#include <QString>
#include <functional>

namespace velmora::platform {

// The result codes of a send: the classic network-management and system error numbers.
namespace netmsgerror {
inline constexpr int ok = 0;
inline constexpr int accessDenied = 5;          // the recipient's computer refused us
inline constexpr int notSupported = 50;         // this computer cannot send (no Samba client)
inline constexpr int badNetPath = 53;           // the sending side's name or network is unusable
inline constexpr int invalidParameter = 87;     // an empty recipient or message
inline constexpr int invalidName = 123;         // a recipient that cannot be a network name
inline constexpr int networkError = 2136;       // any other failure, or no answer in time
inline constexpr int connectionNotFound = 2250;
inline constexpr int nameNotFound = 2273;       // no such computer, or nobody there takes messages
} // namespace netmsgerror

class NetMessenger {
public:
    virtual ~NetMessenger() = default;
    // Sends text to recipient (no surrounding blanks expected). done(code) runs once on the
    // user-interface thread with one of the netmsgerror codes, unless context is gone by then.
    virtual void send(QObject* context, const QString& recipient, const QString& text,
                      std::function<void(int code)> done) = 0;
};

} // namespace velmora::platform
