#include "platform/linux/keychainsecrets.h"

#include <QPointer>
#include <qt6keychain/keychain.h>

namespace velmora::platform {

namespace {

const QString kService = QStringLiteral("Velmora");

// Whether a failure text says that nobody serves the Secret Service on the session bus (or
// that there is no session bus at all).
bool noStoreText(const QString& text)
{
    for (const char* sign : {"org.freedesktop.secrets", "ServiceUnknown", "No such interface", "not provided by any",
                             "DBUS_SESSION_BUS_ADDRESS", "session bus", "Cannot autolaunch", "No secret service",
                             "kwalletd", "Unknown error"}) {
        if (text.contains(QLatin1String(sign), Qt::CaseInsensitive))
            return true;
    }
    return false;
}

SecretStore::Result resultOf(QKeychain::Job* job)
{
    SecretStore::Result r;
    r.text = job->errorString();
    switch (job->error()) {
    case QKeychain::NoError: r.status = SecretStore::Status::Ok; break;
    case QKeychain::EntryNotFound: r.status = SecretStore::Status::NotFound; break;
    case QKeychain::NoBackendAvailable:
    case QKeychain::NotImplemented: r.status = SecretStore::Status::NoStore; break;
    default: r.status = noStoreText(r.text) ? SecretStore::Status::NoStore : SecretStore::Status::Failed; break;
    }
    return r;
}

template <typename JobT, typename Fill>
void run(JobT* job, QObject* context, const QString& key, SecretStore::Done done, Fill fill)
{
    QPointer<QObject> guard(context);
    job->setAutoDelete(true);
    job->setInsecureFallback(false);
    job->setKey(key);
    QObject::connect(job, &QKeychain::Job::finished, job, [guard, done, fill](QKeychain::Job* j) {
        SecretStore::Result r = resultOf(j);
        fill(static_cast<JobT*>(j), r);
        if (guard && done)
            done(r);
    });
    job->start();
}

} // namespace

void KeychainSecrets::read(QObject* context, const QString& key, Done done)
{
    run(new QKeychain::ReadPasswordJob(kService), context, key, std::move(done),
        [](QKeychain::ReadPasswordJob* j, SecretStore::Result& r) {
            if (r.ok())
                r.secret = j->textData();
        });
}

void KeychainSecrets::write(QObject* context, const QString& key, const QString& secret, Done done)
{
    auto* job = new QKeychain::WritePasswordJob(kService);
    job->setTextData(secret);
    run(job, context, key, std::move(done), [](QKeychain::WritePasswordJob*, SecretStore::Result&) {});
}

void KeychainSecrets::remove(QObject* context, const QString& key, Done done)
{
    run(new QKeychain::DeletePasswordJob(kService), context, key, std::move(done),
        [](QKeychain::DeletePasswordJob*, SecretStore::Result& r) {
            if (r.status == SecretStore::Status::NotFound)
                r.status = SecretStore::Status::Ok;
        });
}

} // namespace velmora::platform
