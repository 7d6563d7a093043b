#pragma once
// The desktop's secret store (a keyring): small secrets such as passwords, kept by the desktop
// rather than in the program's files. Every call is asynchronous; its completion runs on the
// user-interface thread, and not at all once context is gone.
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
        Failed,    // anything else: the store refused or broke; text says why
    };
    struct Result {
        Status status = Status::Failed;
        QString secret; // of a successful read
        QString text;   // the store's own words for a failure
        bool ok() const { return status == Status::Ok; }
    };
    using Done = std::function<void(const Result&)>;

    virtual ~SecretStore() = default;
    virtual void read(QObject* context, const QString& key, Done done) = 0;
    virtual void write(QObject* context, const QString& key, const QString& secret, Done done) = 0;
    virtual void remove(QObject* context, const QString& key, Done done) = 0;
};

} // namespace velmora::platform
