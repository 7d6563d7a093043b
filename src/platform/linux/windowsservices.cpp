#include "platform/linux/windowsservices.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <string>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace velmora::platform {

// A running helper for one server. Its mutex serializes the calls to that server.
struct WindowsServices::Helper {
    std::mutex mutex;
    pid_t pid = -1;
    int fd = -1;          // our end of the socket on the helper's standard input and output
    std::string pending;  // bytes read after the last answer line
    bool loggedOn = false;

    bool running() const { return pid > 0; }

    // Ends the helper at once; the next call starts a new one.
    void end()
    {
        if (fd >= 0)
            ::close(fd);
        fd = -1;
        if (pid > 0) {
            ::kill(pid, SIGKILL);
            while (::waitpid(pid, nullptr, 0) < 0 && errno == EINTR) {
            }
        }
        pid = -1;
        pending.clear();
        loggedOn = false;
    }

    bool spawn(const QString& python, const QString& script)
    {
        int fds[2];
        if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds) != 0)
            return false;
        const std::string py = QFile::encodeName(python).toStdString();
        const std::string sc = QFile::encodeName(script).toStdString();
        char* argv[] = {const_cast<char*>(py.c_str()), const_cast<char*>(sc.c_str()), nullptr};
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, fds[1], 0);
        posix_spawn_file_actions_adddup2(&actions, fds[1], 1);
        // Samba's warnings are of no use to the user.
        posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
        pid_t child = -1;
        const int rc = ::posix_spawn(&child, py.c_str(), &actions, nullptr, argv, environ);
        posix_spawn_file_actions_destroy(&actions);
        ::close(fds[1]);
        if (rc != 0) {
            ::close(fds[0]);
            return false;
        }
        pid = child;
        fd = fds[0];
        return true;
    }

    // Sends one request and waits for its answer line: 0, or 1053 when none came in time, 1722
    // when the helper went away (it then is ended either way).
    int exchange(const QJsonObject& request, int timeoutMs, QJsonObject* answer)
    {
        using clock = std::chrono::steady_clock;
        const auto deadline = clock::now() + std::chrono::milliseconds(timeoutMs);
        std::string line = QJsonDocument(request).toJson(QJsonDocument::Compact).toStdString();
        line += '\n';
        size_t sent = 0;
        while (sent < line.size()) {
            const ssize_t n = ::send(fd, line.data() + sent, line.size() - sent, MSG_NOSIGNAL);
            if (n < 0 && errno == EINTR)
                continue;
            if (n <= 0) {
                end();
                return svcerror::unavailable;
            }
            sent += size_t(n);
        }
        for (;;) {
            const size_t newline = pending.find('\n');
            if (newline != std::string::npos) {
                const QByteArray text = QByteArray::fromStdString(pending.substr(0, newline));
                pending.erase(0, newline + 1);
                const QJsonDocument doc = QJsonDocument::fromJson(text);
                if (!doc.isObject()) {
                    end();
                    return svcerror::callFailed;
                }
                *answer = doc.object();
                return svcerror::ok;
            }
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - clock::now()).count();
            if (left <= 0) {
                end();
                return svcerror::requestTimeout;
            }
            pollfd p{fd, POLLIN, 0};
            const int ready = ::poll(&p, 1, int(left));
            if (ready < 0 && errno == EINTR)
                continue;
            if (ready <= 0)
                continue;
            char buf[8192];
            const ssize_t n = ::recv(fd, buf, sizeof buf, 0);
            if (n < 0 && errno == EINTR)
                continue;
            if (n <= 0) {
                end();
                return svcerror::unavailable;
            }
            pending.append(buf, size_t(n));
        }
    }
};

namespace {

QString jobKey(const ServiceHandle& s) { return (s.computer + QLatin1Char('\n') + s.name).toLower(); }

bool inFilter(int state, int filter)
{
    const bool stopped = state == svcstate::stopped;
    return (filter & (stopped ? svcfilter::inactive : svcfilter::active)) != 0;
}

int errorOf(const QJsonObject& answer) { return answer.value(QLatin1String("error")).toInt(svcerror::callFailed); }

} // namespace

WindowsServices::WindowsServices(Options options) : options_(std::move(options)) {}

WindowsServices::~WindowsServices()
{
    std::lock_guard lock(mutex_);
    for (auto& [name, h] : helpers_) {
        std::lock_guard hl(h->mutex);
        h->end();
    }
}

std::shared_ptr<WindowsServices::Helper> WindowsServices::helper(const QString& computer)
{
    std::lock_guard lock(mutex_);
    auto& h = helpers_[computer.toLower()];
    if (!h)
        h = std::make_shared<Helper>();
    return h;
}

int WindowsServices::logOn(Helper& h, const QString& computer, const Logon& logon)
{
    if (!h.running() && !h.spawn(options_.python, options_.helper))
        return svcerror::unavailable;
    QString user = logon.user;
    QString domain;
    const qsizetype slash = user.indexOf(QLatin1Char('\\'));
    if (slash >= 0) {
        domain = user.left(slash);
        user = user.mid(slash + 1);
    }
    QJsonObject request{{"op", "logon"},
                        {"host", computer},
                        {"user", user},
                        {"domain", domain},
                        {"password", logon.password},
                        {"timeout", std::max(1, options_.callTimeoutMs / 1000)}};
    QJsonObject answer;
    int code = h.exchange(request, options_.connectTimeoutMs, &answer);
    // A logon that does not answer in time means a server that cannot be reached.
    if (code == svcerror::requestTimeout)
        return svcerror::unavailable;
    if (code == svcerror::ok)
        code = errorOf(answer);
    if (code != svcerror::ok)
        h.end();
    else
        h.loggedOn = true;
    return code;
}

int WindowsServices::ensureLoggedOn(Helper& h, const QString& computer)
{
    if (h.loggedOn && h.running())
        return svcerror::ok;
    h.end();
    const std::optional<Logon> logon = options_.logon ? options_.logon(computer) : std::nullopt;
    if (!logon)
        return svcerror::accessDenied;
    const int code = logOn(h, computer, *logon);
    if (code != 1326)
        return code;
    // A refused password is not tried again at every check (an account may lock after a few).
    if (options_.logonRefused)
        options_.logonRefused(computer);
    return svcerror::accessDenied;
}

int WindowsServices::tryLogon(const QString& server, const Logon& logon)
{
    Helper h;
    const int code = logOn(h, server, logon);
    h.end();
    return code;
}

int WindowsServices::call(const QString& computer, const QJsonObject& request, QJsonObject* answer)
{
    const auto h = helper(computer);
    std::lock_guard lock(h->mutex);
    int code = ensureLoggedOn(*h, computer);
    if (code != svcerror::ok)
        return code;
    code = h->exchange(request, options_.callTimeoutMs, answer);
    if (code != svcerror::ok)
        return code;
    code = errorOf(*answer);
    // The helper ends after a broken link: the next call starts a new one.
    if (code == svcerror::unavailable)
        h->end();
    return code;
}

ScmHandle WindowsServices::openManager(const QString& computer)
{
    ScmHandle scm;
    scm.computer = computer;
    const auto h = helper(computer);
    std::lock_guard lock(h->mutex);
    scm.error = ensureLoggedOn(*h, computer);
    return scm;
}

ServiceHandle WindowsServices::openService(const ScmHandle& scm, const QString& service)
{
    ServiceHandle s;
    s.computer = scm.computer;
    s.name = service;
    if (!scm.valid())
        return s;
    QJsonObject answer;
    s.error = call(scm.computer, {{"op", "status"}, {"service", service}}, &answer);
    return s;
}

EnumResult WindowsServices::enumerate(const QString& computer, const QJsonObject& request, int stateFilter)
{
    EnumResult r;
    QJsonObject answer;
    r.error = call(computer, request, &answer);
    if (r.error != svcerror::ok)
        return r;
    for (const QJsonValue& v : answer.value(QLatin1String("services")).toArray()) {
        const QJsonArray row = v.toArray();
        ServiceEntry e;
        e.name = row.at(0).toString();
        e.displayName = row.at(1).toString();
        if (e.displayName.isEmpty())
            e.displayName = e.name;
        e.state = row.at(2).toInt();
        // Not every manager honours the state filter.
        if (!e.name.isEmpty() && inFilter(e.state, stateFilter))
            r.services.push_back(e);
    }
    return r;
}

EnumResult WindowsServices::enumerateServices(const ScmHandle& scm, int stateFilter)
{
    if (!scm.valid())
        return {svcerror::invalidHandle, {}};
    EnumResult r = enumerate(scm.computer, {{"op", "services"}, {"filter", stateFilter}}, stateFilter);
    std::sort(r.services.begin(), r.services.end(), [](const ServiceEntry& a, const ServiceEntry& b) {
        return a.name.compare(b.name, Qt::CaseInsensitive) < 0;
    });
    return r;
}

StatusResult WindowsServices::queryStatus(const ServiceHandle& service)
{
    if (!service.valid())
        return {svcerror::invalidHandle, 0};
    QJsonObject answer;
    StatusResult r;
    r.error = call(service.computer, {{"op", "status"}, {"service", service.name}}, &answer);
    if (r.error == svcerror::ok)
        r.state = answer.value(QLatin1String("state")).toInt();
    return r;
}

ConfigResult WindowsServices::queryConfig(const ServiceHandle& service)
{
    if (!service.valid())
        return {svcerror::invalidHandle, {}};
    QJsonObject answer;
    ConfigResult r;
    r.error = call(service.computer, {{"op", "config"}, {"service", service.name}}, &answer);
    if (r.error == svcerror::ok) {
        r.config.startType = answer.value(QLatin1String("startType")).toInt();
        r.config.account = answer.value(QLatin1String("account")).toString();
        r.config.binaryPath = answer.value(QLatin1String("path")).toString();
        r.config.displayName = answer.value(QLatin1String("displayName")).toString();
        if (r.config.displayName.isEmpty())
            r.config.displayName = service.name;
    }
    return r;
}

EnumResult WindowsServices::enumerateDependents(const ServiceHandle& service, int stateFilter)
{
    if (!service.valid())
        return {svcerror::invalidHandle, {}};
    // The manager lists them in the order in which they must be stopped.
    return enumerate(service.computer, {{"op", "dependents"}, {"service", service.name}, {"filter", stateFilter}},
                     stateFilter);
}

int WindowsServices::start(const ServiceHandle& service)
{
    if (!service.valid())
        return svcerror::invalidHandle;
    QJsonObject answer;
    const int code = call(service.computer, {{"op", "start"}, {"service", service.name}}, &answer);
    if (code == svcerror::ok) {
        std::lock_guard lock(jobsMutex_);
        jobs_[jobKey(service)] = true;
    }
    return code;
}

int WindowsServices::stop(const ServiceHandle& service)
{
    if (!service.valid())
        return svcerror::invalidHandle;
    QJsonObject answer;
    const int code = call(service.computer, {{"op", "stop"}, {"service", service.name}}, &answer);
    if (code == svcerror::ok) {
        std::lock_guard lock(jobsMutex_);
        jobs_[jobKey(service)] = false;
    }
    return code;
}

int WindowsServices::jobResult(const ServiceHandle& service)
{
    bool starting = false;
    {
        std::lock_guard lock(jobsMutex_);
        const auto it = jobs_.find(jobKey(service));
        if (it == jobs_.end())
            return svcerror::ok;
        starting = it->second;
    }
    const StatusResult status = queryStatus(service);
    if (status.error != svcerror::ok)
        return status.error;
    if (status.state == svcstate::startPending || status.state == svcstate::stopPending)
        return svcerror::ioPending;
    std::lock_guard lock(jobsMutex_);
    jobs_.erase(jobKey(service));
    // A start that ends with the service stopped failed; a stop that leaves it running did too.
    if (starting && status.state == svcstate::stopped)
        return svcerror::startFailed;
    if (!starting && status.state == svcstate::running)
        return svcerror::startFailed;
    return svcerror::ok;
}

void WindowsServices::disconnect(const QString& computer)
{
    std::shared_ptr<Helper> h;
    {
        std::lock_guard lock(mutex_);
        const auto it = helpers_.find(computer.toLower());
        if (it == helpers_.end())
            return;
        h = it->second;
        helpers_.erase(it);
    }
    std::lock_guard hl(h->mutex);
    h->end();
}

} // namespace velmora::platform
