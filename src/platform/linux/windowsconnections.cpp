#include "platform/linux/windowsconnections.h"

#include <QPointer>

namespace velmora::platform {

struct WindowsConnections::Attempt {
    QPointer<QObject> context;
    QString server;
    QString key; // lower case
    int generation = 0;
    std::function<void(int)> done;
};

namespace {

// The connection codes for the codes of a logon.
int connectionCode(int logonCode)
{
    switch (logonCode) {
    case svcerror::unavailable: return 53;
    case svcerror::requestTimeout: return 1231;
    default: return logonCode;
    }
}

} // namespace

WindowsConnections::WindowsConnections(TryLogon tryLogon, SecretStore& secrets, CredentialsPrompt& prompt,
                                       Worker& worker, Dropped dropped)
    : tryLogon_(std::move(tryLogon)), secrets_(secrets), prompt_(prompt), worker_(worker), dropped_(std::move(dropped))
{
}

QString WindowsConnections::secretKey(const QString& server)
{
    return QStringLiteral("windows-logon/") + server.trimmed().toLower();
}

namespace {

// A stored logon: "user" newline "password".
std::optional<WindowsServices::Logon> storedLogon(const SecretStore::Result& r)
{
    const qsizetype newline = r.secret.indexOf(QLatin1Char('\n'));
    if (!r.ok() || newline < 0)
        return std::nullopt;
    return WindowsServices::Logon{r.secret.left(newline), r.secret.mid(newline + 1)};
}

} // namespace

std::optional<WindowsServices::Logon> WindowsConnections::logonFor(const QString& server)
{
    const QString key = server.trimmed().toLower();
    {
        std::lock_guard lock(mutex_);
        if (const auto it = logons_.constFind(key); it != logons_.constEnd())
            return *it;
        if (storeRead_.contains(key))
            return std::nullopt;
    }
    const SecretStore::Result r = secrets_.readNow(secretKey(server));
    const std::optional<WindowsServices::Logon> stored = storedLogon(r);
    std::lock_guard lock(mutex_);
    if (r.ok() || r.status == SecretStore::Status::NotFound)
        storeRead_.insert(key);
    if (stored && !logons_.contains(key))
        logons_.insert(key, *stored);
    return logons_.contains(key) ? std::optional(logons_.value(key)) : std::nullopt;
}

void WindowsConnections::logonRefused(const QString& server)
{
    std::lock_guard lock(mutex_);
    logons_.remove(server.trimmed().toLower());
}

bool WindowsConnections::current(const Attempt& a) const
{
    std::lock_guard lock(mutex_);
    return generation_.value(a.key) == a.generation;
}

void WindowsConnections::add(QObject* context, const QString& server, const QString& user,
                             const QString& password, std::function<void(int code)> done)
{
    auto a = std::make_shared<Attempt>();
    a->context = context;
    a->server = server.trimmed();
    a->key = a->server.toLower();
    a->done = std::move(done);
    {
        std::lock_guard lock(mutex_);
        a->generation = ++generation_[a->key];
    }
    if (!password.isEmpty()) {
        tryWith(a, {user, password}, false);
        return;
    }
    secrets_.read(context, secretKey(a->server), [this, a, user](const SecretStore::Result& r) {
        if (!current(*a))
            return a->done(1223);
        if (const auto stored = storedLogon(r))
            tryWith(a, *stored, true);
        else
            ask(a, user, false);
    });
}

void WindowsConnections::tryWith(const std::shared_ptr<Attempt>& a, const WindowsServices::Logon& logon, bool stored)
{
    worker_.run(a->context, [this, a, logon, stored]() -> std::function<void()> {
        const int code = tryLogon_(a->server, logon);
        return [this, a, logon, stored, code] {
            if (!current(*a))
                return a->done(1223);
            if (code == 1326)
                return ask(a, logon.user, true);
            if (code != svcerror::ok)
                return a->done(connectionCode(code));
            {
                std::lock_guard lock(mutex_);
                logons_.insert(a->key, logon);
            }
            if (!stored)
                secrets_.write(a->context, secretKey(a->server), logon.user + QLatin1Char('\n') + logon.password,
                               [](const SecretStore::Result&) {});
            a->done(svcerror::ok);
        };
    });
}

void WindowsConnections::ask(const std::shared_ptr<Attempt>& a, const QString& user, bool refused)
{
    prompt_.askCredentials(CredentialsPrompt::Logon::Windows, a->server, user, refused, [this, a](std::optional<CredentialsPrompt::Credentials> given) {
        if (!given || !current(*a))
            return a->done(1223);
        tryWith(a, {given->user, given->password}, false);
    });
}

void WindowsConnections::cancel(const QString& server)
{
    const QString key = server.trimmed().toLower();
    {
        std::lock_guard lock(mutex_);
        ++generation_[key];
        logons_.remove(key);
    }
    if (dropped_)
        dropped_(server);
}

void WindowsConnections::closeAll()
{
    QStringList servers;
    {
        std::lock_guard lock(mutex_);
        servers = logons_.keys();
        for (auto it = generation_.begin(); it != generation_.end(); ++it)
            ++it.value();
        logons_.clear();
    }
    if (dropped_)
        for (const QString& s : servers)
            dropped_(s);
}

} // namespace velmora::platform
