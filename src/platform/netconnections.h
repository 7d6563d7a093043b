#pragma once
// Authenticated connections to servers. On Linux a connection is a shared ssh control
// connection (ssh -M) that the remote service backend reuses; it is cancelled by closing it.
// Connections last at most as long as the program.
#include <QObject>
#include <QString>
#include <functional>

namespace velmora::platform {

class NetConnections {
public:
    virtual ~NetConnections() = default;
    // Opens the connection as user (empty: the login user) with password (empty: keys or the
    // agent; when those fail, the user is asked for a user name and password where the
    // platform can ask). done(code) runs on the user-interface thread with one of:
    //   0     connected
    //   53    the network path was not found (name does not resolve, host does not answer,
    //         connection refused)
    //   1219  a connection with other credentials exists
    //   1326  logon failure (user name or password wrong)
    //   1231  the network location cannot be reached
    //   1223  cancel() for the server came before the connection was made, or the user
    //         cancelled the credentials dialog or did not trust the server's host key
    //   2     ssh is not installed
    //   5     no connection can be opened safely (no folder of the user's own for it)
    //   1397  the server's host key differs from the recorded one (the user is told why)
    virtual void add(QObject* context, const QString& server, const QString& user,
                     const QString& password, std::function<void(int code)> done) = 0;
    // Closes the connection; nothing is reported.
    virtual void cancel(const QString& server) = 0;
    // Closes every connection, at once; requests still under way report nothing. Every way out
    // of the program calls it (no connection outlives the program).
    virtual void closeAll() = 0;
};

} // namespace velmora::platform
