#pragma once
// The desktop's secret store (a keyring): small secrets such as passwords, kept by the desktop
// rather than in the program's files. Every call but readNow() is asynchronous; its completion
// runs on the user-interface thread, and not at all once context is gone.
//
// A read never asks the user anything and never waits longer than the store's read time-out
// (a few seconds), so that a scan that needs a secret is never held up by the store: a locked
// store answers Locked at once. Writes and removals are made from dialogs the user is at; they
// may show the desktop's own prompt to unlock the store.
#include <QObject>
#include <QString>
#include <functional>

namespace velmora::platform {

class SecretStore {
public:
    enum class Status {
        Ok,        // done; a read carries the secret
        NotFound,  // no secret is stored under the key (a read; a removal counts this as Ok)
        NoStore,   // no secret store is running on this desktop
        Locked,    // the store is locked (a read; it is not unlocked for it)
        TimedOut,  // the store did not answer within the time-out
        Failed,    // anything else: the store refused or broke; text says why
    };
    struct Result {
        Status status = Status::Failed;
        QString secret; // of a successful read
        QString text;   // the store's own words for a failure
        bool ok() const { return status == Status::Ok; }
    };
    using Done = std::function<void(const Result&)>;
    // The longest a read waits for the store.
    static constexpr int readTimeoutMs = 3000;

    virtual ~SecretStore() = default;
    // A read on the calling thread (any thread): blocks up to the read time-out.
    virtual Result readNow(const QString& key) = 0;
    virtual void read(QObject* context, const QString& key, Done done) = 0;
    virtual void write(QObject* context, const QString& key, const QString& secret, Done done) = 0;
    virtual void remove(QObject* context, const QString& key, Done done) = 0;
};

} // namespace velmora::platform
