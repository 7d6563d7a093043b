#pragma once
// A simulated secret store: a map in memory that the test can inspect, switch off (no store
// running), lock or make fail. Completions run at once.
#include "platform/secretstore.h"

#include <QMap>
#include <QPointer>

namespace velmora::platform::sim {

class SimSecrets : public SecretStore {
public:
    QMap<QString, QString> secrets;
    bool running = true;   // false: every call ends with NoStore
    bool failing = false;  // true: every call ends with Failed
    bool locked = false;   // true: every read of a stored secret ends with Locked
    int reads = 0, writes = 0, removals = 0;

    Result readNow(const QString& key) override
    {
        ++reads;
        Result r = outcome();
        if (r.ok()) {
            if (!secrets.contains(key))
                r = {Status::NotFound, {}, QStringLiteral("no entry")};
            else if (locked)
                r = {Status::Locked, {}, QStringLiteral("the secret store is locked")};
            else
                r.secret = secrets.value(key);
        }
        return r;
    }
    void read(QObject* context, const QString& key, Done done) override { finish(context, done, readNow(key)); }
    void write(QObject* context, const QString& key, const QString& secret, Done done) override
    {
        ++writes;
        const Result r = outcome();
        if (r.ok())
            secrets.insert(key, secret);
        finish(context, done, r);
    }
    void remove(QObject* context, const QString& key, Done done) override
    {
        ++removals;
        const Result r = outcome();
        if (r.ok())
            secrets.remove(key);
        finish(context, done, r);
    }

private:
    Result outcome() const
    {
        if (!running)
            return {Status::NoStore, {}, QStringLiteral("No secret service is running")};
        if (failing)
            return {Status::Failed, {}, QStringLiteral("The keyring refused")};
        return {Status::Ok, {}, {}};
    }
    static void finish(QObject* context, const Done& done, const Result& r)
    {
        const QPointer<QObject> guard(context);
        if ((guard || !context) && done)
            done(r);
    }
};

} // namespace velmora::platform::sim
