#pragma once
// The connection step for Windows servers: a logon to the server's service manager with a user
// name and password. The password of a server comes from the desktop's secret store; when none is
// stored, or the stored one is refused, the user is asked, and a password that logs on is stored
// there for the next run. A scan needs no connection step: at the first check of a server in a
// run, logonFor() takes the stored logon without asking anybody. While the program runs the logon
// is kept in memory only, for the service backend's helper, which gets it over its standard input.
#include "platform/credentialsprompt.h"
#include "platform/linux/windowsservices.h"
#include "platform/netconnections.h"
#include "platform/secretstore.h"
#include "platform/worker.h"

#include <QHash>
#include <QSet>
#include <functional>
#include <mutex>
#include <optional>

namespace velmora::platform {

class WindowsConnections : public NetConnections {
public:
    // Logs on to a server (blocking, run on a worker thread): WindowsServices::tryLogon's codes.
    using TryLogon = std::function<int(const QString& server, const WindowsServices::Logon& logon)>;
    // Called with a server whose logon was dropped (cancel, closeAll).
    using Dropped = std::function<void(const QString& server)>;

    WindowsConnections(TryLogon tryLogon, SecretStore& secrets, CredentialsPrompt& prompt, Worker& worker,
                       Dropped dropped = {});

    // Codes: 0, 53 (the server cannot be reached), 1231 (it did not answer in time), 1326 (never:
    // a refused password asks again), 5 (the user may not use the manager), 1223 (cancelled).
    void add(QObject* context, const QString& server, const QString& user, const QString& password,
             std::function<void(int code)> done) override;
    void cancel(const QString& server) override;
    void closeAll() override;

    // The logon for server: the one that last succeeded in this run, else the one the secret
    // store holds (read once per run, quietly and within its time-out; a locked or silent store
    // is read again next time). Any thread; may block for the store.
    std::optional<WindowsServices::Logon> logonFor(const QString& server);
    // The service manager of server refused the logon logonFor() gave: it is not tried again
    // until the user logs on anew.
    void logonRefused(const QString& server);

    // The secret store's key for a server's user name and password.
    static QString secretKey(const QString& server);

private:
    struct Attempt;
    void tryWith(const std::shared_ptr<Attempt>& a, const WindowsServices::Logon& logon, bool stored);
    void ask(const std::shared_ptr<Attempt>& a, const QString& user, bool refused);
    bool current(const Attempt& a) const;

    TryLogon tryLogon_;
    SecretStore& secrets_;
    CredentialsPrompt& prompt_;
    Worker& worker_;
    Dropped dropped_;
    mutable std::mutex mutex_;
    QHash<QString, WindowsServices::Logon> logons_; // by lower-case server name
    QHash<QString, int> generation_;                // counts adds and cancels per server
    QSet<QString> storeRead_;                       // servers whose stored logon was looked up
};

} // namespace velmora::platform
