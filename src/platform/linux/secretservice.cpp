#include "platform/linux/secretservice.h"

#include <systemd/sd-bus.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <vector>

namespace velmora::platform {

namespace {

using Clock = std::chrono::steady_clock;
using Result = SecretStore::Result;
using Status = SecretStore::Status;

constexpr const char* kDestination = "org.freedesktop.secrets";
constexpr const char* kServicePath = "/org/freedesktop/secrets";
constexpr const char* kServiceInterface = "org.freedesktop.Secret.Service";
constexpr const char* kNoPrompt = "/";

// One conversation with the store on a connection of its own, every call bounded by a deadline.
// The first failure is kept in `failure`; later calls then do nothing.
class Conversation {
public:
    explicit Conversation(Clock::time_point deadline) : deadline_(deadline)
    {
        const int r = ::sd_bus_open_user(&bus_);
        if (r < 0)
            fail(Status::NoStore, QStringLiteral("there is no session bus (%1)").arg(QString::fromLocal8Bit(std::strerror(-r))));
        // GNOME Keyring admits a new connection in a step of its own that a method call may
        // overtake: the call then finds no session for its caller and fails. A ping first,
        // answered before any of our calls is dispatched, gives that step its turn.
        call(kServicePath, "org.freedesktop.DBus.Peer", "Ping", [](sd_bus_message*) { return 0; },
             [](sd_bus_message*) { return 0; });
    }
    ~Conversation()
    {
        if (bus_)
            ::sd_bus_flush_close_unref(bus_);
    }
    Conversation(const Conversation&) = delete;
    Conversation& operator=(const Conversation&) = delete;

    bool failed() const { return failure.status != Status::Ok; }
    Result failure{Status::Ok, {}, {}};

    // A method call: build appends the arguments, read takes the answer. False after a failure.
    template <typename Build, typename Read>
    bool call(const char* path, const char* interface, const char* member, Build build, Read read)
    {
        if (failed())
            return false;
        sd_bus_message* m = nullptr;
        sd_bus_message* reply = nullptr;
        sd_bus_error error = SD_BUS_ERROR_NULL;
        int r = ::sd_bus_message_new_method_call(bus_, &m, kDestination, path, interface, member);
        if (r >= 0)
            r = build(m);
        if (r >= 0)
            r = ::sd_bus_call(bus_, m, remainingUsec(), &error, &reply);
        if (r < 0)
            failCall(r, error);
        else if ((r = read(reply)) < 0)
            fail(Status::Failed, QStringLiteral("the secret store gave an answer that cannot be read"));
        ::sd_bus_error_free(&error);
        ::sd_bus_message_unref(reply);
        ::sd_bus_message_unref(m);
        return !failed();
    }

    // The items under attributes: those readable now and those in a locked collection.
    bool search(const std::vector<std::pair<QByteArray, QByteArray>>& attributes, std::vector<QByteArray>& unlocked,
                std::vector<QByteArray>& locked)
    {
        return call(
            kServicePath, kServiceInterface, "SearchItems",
            [&](sd_bus_message* m) {
                int r = ::sd_bus_message_open_container(m, 'a', "{ss}");
                for (const auto& [name, value] : attributes)
                    if (r >= 0)
                        r = ::sd_bus_message_append(m, "{ss}", name.constData(), value.constData());
                return r < 0 ? r : ::sd_bus_message_close_container(m);
            },
            [&](sd_bus_message* reply) {
                const int r = readPaths(reply, unlocked);
                return r < 0 ? r : readPaths(reply, locked);
            });
    }

    // A session that carries secrets as they are (the connection is private to this process).
    QByteArray openSession()
    {
        QByteArray session;
        call(
            kServicePath, kServiceInterface, "OpenSession",
            [](sd_bus_message* m) { return ::sd_bus_message_append(m, "sv", "plain", "s", ""); },
            [&](sd_bus_message* reply) {
                int r = ::sd_bus_message_skip(reply, "v");
                const char* path = nullptr;
                if (r >= 0)
                    r = ::sd_bus_message_read(reply, "o", &path);
                if (r >= 0)
                    session = path;
                return r;
            });
        return session;
    }

    // Unlocks objects when they are locked, through the desktop's prompt if the store asks.
    bool unlock(const std::vector<QByteArray>& objects)
    {
        QByteArray prompt;
        call(
            kServicePath, kServiceInterface, "Unlock",
            [&](sd_bus_message* m) { return appendPaths(m, objects); },
            [&](sd_bus_message* reply) {
                std::vector<QByteArray> done;
                int r = readPaths(reply, done);
                return r < 0 ? r : readPath(reply, prompt);
            });
        return runPrompt(prompt);
    }

    // Shows the desktop's prompt at promptPath ("/": none is needed) and waits for its answer.
    bool runPrompt(const QByteArray& promptPath)
    {
        if (failed() || promptPath.isEmpty() || promptPath == kNoPrompt)
            return !failed();
        struct Outcome {
            bool completed = false;
            bool dismissed = true;
        } outcome;
        sd_bus_slot* slot = nullptr;
        ::sd_bus_set_method_call_timeout(bus_, remainingUsec());
        int r = ::sd_bus_match_signal(
            bus_, &slot, nullptr, promptPath.constData(), "org.freedesktop.Secret.Prompt", "Completed",
            [](sd_bus_message* m, void* data, sd_bus_error*) {
                auto* o = static_cast<Outcome*>(data);
                int dismissed = 1;
                if (::sd_bus_message_read(m, "b", &dismissed) >= 0)
                    o->dismissed = dismissed != 0;
                o->completed = true;
                return 0;
            },
            &outcome);
        if (r < 0) {
            fail(Status::Failed, QStringLiteral("the secret store's prompt could not be followed"));
            return false;
        }
        const bool asked = call(
            promptPath.constData(), "org.freedesktop.Secret.Prompt", "Prompt",
            [](sd_bus_message* m) { return ::sd_bus_message_append(m, "s", ""); }, [](sd_bus_message*) { return 0; });
        while (asked && !outcome.completed) {
            r = ::sd_bus_process(bus_, nullptr);
            if (r > 0)
                continue;
            if (r < 0 || Clock::now() >= deadline_) {
                fail(r < 0 ? Status::Failed : Status::TimedOut,
                     r < 0 ? QStringLiteral("the connection to the secret store broke")
                           : QStringLiteral("the secret store's prompt was not answered in time"));
                break;
            }
            ::sd_bus_wait(bus_, remainingUsec());
        }
        ::sd_bus_slot_unref(slot);
        if (!failed() && outcome.dismissed)
            fail(Status::Locked, QStringLiteral("the secret store stayed locked (its prompt was cancelled)"));
        return !failed();
    }

    static int appendPaths(sd_bus_message* m, const std::vector<QByteArray>& paths)
    {
        int r = ::sd_bus_message_open_container(m, 'a', "o");
        for (const QByteArray& p : paths)
            if (r >= 0)
                r = ::sd_bus_message_append(m, "o", p.constData());
        return r < 0 ? r : ::sd_bus_message_close_container(m);
    }
    static int readPath(sd_bus_message* m, QByteArray& path)
    {
        const char* p = nullptr;
        const int r = ::sd_bus_message_read(m, "o", &p);
        if (r > 0)
            path = p;
        return r;
    }
    static int readPaths(sd_bus_message* m, std::vector<QByteArray>& paths)
    {
        int r = ::sd_bus_message_enter_container(m, 'a', "o");
        if (r < 0)
            return r;
        QByteArray p;
        while ((r = readPath(m, p)) > 0)
            paths.push_back(p);
        return r < 0 ? r : ::sd_bus_message_exit_container(m);
    }

private:
    uint64_t remainingUsec() const
    {
        const auto left = std::chrono::duration_cast<std::chrono::microseconds>(deadline_ - Clock::now()).count();
        return uint64_t(std::max<long long>(left, 1000));
    }
    void fail(Status status, const QString& text)
    {
        if (!failed())
            failure = {status, {}, text};
    }
    void failCall(int r, const sd_bus_error& error)
    {
        const QString text = error.message ? QString::fromUtf8(error.message)
                                           : QString::fromLocal8Bit(std::strerror(-r));
        if (r == -ETIMEDOUT || sd_bus_error_has_name(&error, "org.freedesktop.DBus.Error.Timeout")
            || sd_bus_error_has_name(&error, "org.freedesktop.DBus.Error.NoReply"))
            fail(Status::TimedOut, QStringLiteral("the secret store did not answer in time"));
        else if (sd_bus_error_has_names(&error, "org.freedesktop.DBus.Error.ServiceUnknown",
                                        "org.freedesktop.DBus.Error.NameHasNoOwner")
                 || (error.name && std::strncmp(error.name, "org.freedesktop.DBus.Error.Spawn.", 33) == 0))
            fail(Status::NoStore, text);
        else if (sd_bus_error_has_name(&error, "org.freedesktop.Secret.Error.IsLocked"))
            fail(Status::Locked, text);
        else if (sd_bus_error_has_name(&error, "org.freedesktop.Secret.Error.NoSuchObject"))
            fail(Status::NotFound, text);
        else
            fail(Status::Failed, text);
    }

    Clock::time_point deadline_;
    sd_bus* bus_ = nullptr;
};

// The attributes of the item of key.
std::vector<std::pair<QByteArray, QByteArray>> attributesOf(const QString& key, bool withType)
{
    std::vector<std::pair<QByteArray, QByteArray>> a{{"server", "Velmora"}, {"user", key.toUtf8()}};
    if (withType) {
        a.emplace_back("type", "plaintext");
        a.emplace_back("xdg:schema", "org.qt.keychain");
    }
    return a;
}

Clock::time_point after(int ms) { return Clock::now() + std::chrono::milliseconds(ms); }

Result readSecret(const QString& key, int timeoutMs)
{
    Conversation c(after(timeoutMs));
    std::vector<QByteArray> unlocked, locked;
    if (!c.search(attributesOf(key, false), unlocked, locked))
        return c.failure;
    if (unlocked.empty())
        return locked.empty() ? Result{Status::NotFound, {}, QStringLiteral("no entry")}
                              : Result{Status::Locked, {}, QStringLiteral("the secret store is locked")};
    const QByteArray session = c.openSession();
    Result result{Status::Ok, {}, {}};
    c.call(
        unlocked.front().constData(), "org.freedesktop.Secret.Item", "GetSecret",
        [&](sd_bus_message* m) { return ::sd_bus_message_append(m, "o", session.constData()); },
        [&](sd_bus_message* reply) {
            const void* data = nullptr;
            size_t size = 0;
            int r = ::sd_bus_message_enter_container(reply, 'r', "oayays");
            if (r >= 0)
                r = ::sd_bus_message_skip(reply, "oay");
            if (r >= 0)
                r = ::sd_bus_message_read_array(reply, 'y', &data, &size);
            if (r >= 0)
                result.secret = QString::fromUtf8(static_cast<const char*>(data), qsizetype(size));
            return r;
        });
    return c.failed() ? c.failure : result;
}

Result writeSecret(const QString& key, const QString& secret)
{
    Conversation c(after(SecretServiceStore::promptTimeoutMs));
    QByteArray collection;
    c.call(
        kServicePath, kServiceInterface, "ReadAlias", [](sd_bus_message* m) { return ::sd_bus_message_append(m, "s", "default"); },
        [&](sd_bus_message* reply) { return Conversation::readPath(reply, collection); });
    if (!c.failed() && (collection.isEmpty() || collection == kNoPrompt))
        return {Status::Failed, {}, QStringLiteral("the secret store has no default keyring")};
    c.unlock({collection});
    const QByteArray session = c.openSession();
    const QByteArray value = secret.toUtf8();
    const QByteArray label = "Velmora " + key.toUtf8();
    QByteArray prompt;
    c.call(
        collection.constData(), "org.freedesktop.Secret.Collection", "CreateItem",
        [&](sd_bus_message* m) {
            int r = ::sd_bus_message_open_container(m, 'a', "{sv}");
            if (r >= 0)
                r = ::sd_bus_message_append(m, "{sv}", "org.freedesktop.Secret.Item.Label", "s", label.constData());
            if (r >= 0)
                r = ::sd_bus_message_open_container(m, 'e', "sv");
            if (r >= 0)
                r = ::sd_bus_message_append(m, "s", "org.freedesktop.Secret.Item.Attributes");
            if (r >= 0)
                r = ::sd_bus_message_open_container(m, 'v', "a{ss}");
            if (r >= 0)
                r = ::sd_bus_message_open_container(m, 'a', "{ss}");
            for (const auto& [name, v] : attributesOf(key, true))
                if (r >= 0)
                    r = ::sd_bus_message_append(m, "{ss}", name.constData(), v.constData());
            for (int i = 0; i < 4 && r >= 0; ++i)
                r = ::sd_bus_message_close_container(m);
            if (r >= 0)
                r = ::sd_bus_message_open_container(m, 'r', "oayays");
            if (r >= 0)
                r = ::sd_bus_message_append(m, "o", session.constData());
            if (r >= 0)
                r = ::sd_bus_message_append_array(m, 'y', "", 0);
            if (r >= 0)
                r = ::sd_bus_message_append_array(m, 'y', value.constData(), size_t(value.size()));
            if (r >= 0)
                r = ::sd_bus_message_append(m, "s", "text/plain");
            if (r >= 0)
                r = ::sd_bus_message_close_container(m);
            return r < 0 ? r : ::sd_bus_message_append(m, "b", 1);
        },
        [&](sd_bus_message* reply) {
            QByteArray item;
            const int r = Conversation::readPath(reply, item);
            return r < 0 ? r : Conversation::readPath(reply, prompt);
        });
    c.runPrompt(prompt);
    return c.failed() ? c.failure : Result{Status::Ok, {}, {}};
}

Result removeSecret(const QString& key)
{
    Conversation c(after(SecretServiceStore::promptTimeoutMs));
    std::vector<QByteArray> unlocked, locked;
    if (!c.search(attributesOf(key, false), unlocked, locked))
        return c.failure;
    if (!locked.empty() && c.unlock(locked))
        unlocked.insert(unlocked.end(), locked.begin(), locked.end());
    for (const QByteArray& item : unlocked) {
        QByteArray prompt;
        c.call(
            item.constData(), "org.freedesktop.Secret.Item", "Delete", [](sd_bus_message*) { return 0; },
            [&](sd_bus_message* reply) { return Conversation::readPath(reply, prompt); });
        c.runPrompt(prompt);
    }
    return c.failed() ? c.failure : Result{Status::Ok, {}, {}};
}

} // namespace

SecretStore::Result SecretServiceStore::readNow(const QString& key) { return readSecret(key, readTimeout_); }

void SecretServiceStore::runJob(QObject* context, std::function<Result()> job, Done done)
{
    worker_.run(context, [job = std::move(job), done = std::move(done)]() -> std::function<void()> {
        const Result r = job();
        return [r, done] {
            if (done)
                done(r);
        };
    });
}

void SecretServiceStore::read(QObject* context, const QString& key, Done done)
{
    runJob(context, [key, timeout = readTimeout_] { return readSecret(key, timeout); }, std::move(done));
}

void SecretServiceStore::write(QObject* context, const QString& key, const QString& secret, Done done)
{
    runJob(context, [key, secret] { return writeSecret(key, secret); }, std::move(done));
}

void SecretServiceStore::remove(QObject* context, const QString& key, Done done)
{
    runJob(context, [key] { return removeSecret(key); }, std::move(done));
}

} // namespace velmora::platform
