#pragma once
// The desktop's secret store through the Secret Service D-Bus API on the session bus (GNOME
// Keyring, KeePassXC, KWallet's bridge). A secret is an item of the default collection with the
// attributes server "Velmora", user (the key) and type "plaintext": the items the program wrote
// through QtKeychain before are found the same way. Nothing is ever written to a plain file.
//
// Every call opens a connection of its own on a worker thread. A read searches without
// unlocking anything (an item only in a locked collection answers Locked) and ends after the
// read time-out at the latest. Writes and removals unlock the collection when needed, which
// shows the desktop's unlock prompt; they wait for the user's answer up to promptTimeoutMs.
#include "platform/secretstore.h"
#include "platform/worker.h"

namespace velmora::platform {

class SecretServiceStore : public SecretStore {
public:
    static constexpr int promptTimeoutMs = 120000;

    explicit SecretServiceStore(Worker& worker, int readTimeout = readTimeoutMs)
        : worker_(worker), readTimeout_(readTimeout)
    {
    }

    Result readNow(const QString& key) override;
    void read(QObject* context, const QString& key, Done done) override;
    void write(QObject* context, const QString& key, const QString& secret, Done done) override;
    void remove(QObject* context, const QString& key, Done done) override;

private:
    void runJob(QObject* context, std::function<Result()> job, Done done);

    Worker& worker_;
    int readTimeout_;
};

} // namespace velmora::platform
