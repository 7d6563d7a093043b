#include "platform/linux/systemdservices.h"


#include <QFileInfo>
#include <QHostInfo>

#include <algorithm>
#include <atomic>
#include <thread>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <functional>
#include <optional>
#include <cstdlib>
#include <ctime>
#include <set>
#include <string>
#include <vector>

#include <poll.h>
#include <unistd.h>
#include <systemd/sd-bus.h>

namespace velmora::platform {

namespace {

constexpr const char* kDestination = "org.freedesktop.systemd1";
constexpr const char* kManagerPath = "/org/freedesktop/systemd1";
constexpr const char* kManager = "org.freedesktop.systemd1.Manager";
constexpr const char* kUnit = "org.freedesktop.systemd1.Unit";
constexpr const char* kService = "org.freedesktop.systemd1.Service";
constexpr const char* kJob = "org.freedesktop.systemd1.Job";
constexpr const char* kProperties = "org.freedesktop.DBus.Properties";
constexpr const char* kUnitPathPrefix = "/org/freedesktop/systemd1/unit";

uint64_t nowUsec()
{
    timespec ts{};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return uint64_t(ts.tv_sec) * 1000000u + uint64_t(ts.tv_nsec) / 1000u;
}

uint64_t msToUsec(int ms) { return uint64_t(std::max(ms, 1)) * 1000u; }

std::string utf8(const QString& s) { return s.toStdString(); }
QString qstr(const char* s) { return s ? QString::fromUtf8(s) : QString(); }

std::string unitPath(const std::string& unit)
{
    char* path = nullptr;
    if (sd_bus_path_encode(kUnitPathPrefix, unit.c_str(), &path) < 0 || !path)
        return kUnitPathPrefix;
    std::string out(path);
    free(path);
    return out;
}

// A value inside a D-Bus address: everything but a few safe characters is written as %xx.
std::string escapeAddressValue(const std::string& value)
{
    static const char* hex = "0123456789abcdef";
    std::string out;
    for (unsigned char ch : value) {
        if (std::isalnum(ch) || ch == '-' || ch == '_' || ch == '/' || ch == '.' || ch == '\\' || ch == '*') {
            out += char(ch);
        } else {
            out += '%';
            out += hex[ch >> 4];
            out += hex[ch & 15];
        }
    }
    return out;
}

// ---- states ----

// The state of a unit by its active state, its freezer state and the job queued for it, if any:
// a start or stop that is queued but has not begun counts as begun, as the classic manager
// reports a service start-pending as soon as it accepted the start.
int stateOf(const std::string& active, const std::string& freezer, const std::string& job = {})
{
    if (freezer == "frozen")
        return svcstate::paused;
    if (freezer == "freezing")
        return svcstate::pausePending;
    if (freezer == "thawing")
        return svcstate::continuePending;
    if (active == "active" || active == "reloading" || active == "refreshing")
        return job == "stop" ? svcstate::stopPending : svcstate::running;
    if (active == "activating")
        return svcstate::startPending;
    if (active == "deactivating")
        return svcstate::stopPending;
    // inactive, failed, maintenance (cleaning up after a stop) and anything unknown.
    return job == "start" ? svcstate::startPending : svcstate::stopped;
}

int startTypeOf(const std::string& unitFileState)
{
    if (unitFileState == "enabled" || unitFileState == "enabled-runtime" || unitFileState == "alias")
        return svcstart::automatic;
    if (unitFileState == "masked" || unitFileState == "masked-runtime")
        return svcstart::disabled;
    // disabled, static, indirect, generated, transient, linked and units without a file: they
    // run when started by hand or pulled in by another unit.
    return svcstart::manual;
}

// ---- D-Bus calls ----

// One method call of a batch. Calls of a batch are sent at once and their replies collected
// together, so a batch costs one round trip, which matters over ssh.
struct Call {
    std::string path;
    std::string iface;
    std::string member;
    std::function<int(sd_bus_message*)> append;
    sd_bus_message* reply = nullptr;
    sd_bus_slot* slot = nullptr;
    std::string errorName;
    int errorNo = 0;
    bool done = false;

    Call(std::string p, std::string i, std::string m, std::function<int(sd_bus_message*)> a = {})
        : path(std::move(p)), iface(std::move(i)), member(std::move(m)), append(std::move(a)) {}
    Call(const Call&) = delete;
    Call& operator=(const Call&) = delete;
    ~Call()
    {
        sd_bus_slot_unref(slot);
        sd_bus_message_unref(reply);
    }
    bool failed() const { return !reply; }
    bool errorIs(const char* name) const { return errorName == name; }
};

Call* getAll(std::vector<std::unique_ptr<Call>>& calls, const std::string& path, const char* iface)
{
    calls.push_back(std::make_unique<Call>(path, kProperties, "GetAll",
                                           [iface](sd_bus_message* m) { return sd_bus_message_append(m, "s", iface); }));
    return calls.back().get();
}

// One property, read on its own: far cheaper for systemd than all of them, some of which it
// computes (cgroup counters) for every read.
Call* get(std::vector<std::unique_ptr<Call>>& calls, const std::string& path, const char* iface, const char* property)
{
    calls.push_back(std::make_unique<Call>(path, kProperties, "Get", [iface, property](sd_bus_message* m) {
        return sd_bus_message_append(m, "ss", iface, property);
    }));
    return calls.back().get();
}

int onReply(sd_bus_message* m, void* userdata, sd_bus_error*)
{
    auto* call = static_cast<Call*>(userdata);
    call->done = true;
    if (sd_bus_message_is_method_error(m, nullptr)) {
        const sd_bus_error* e = sd_bus_message_get_error(m);
        call->errorName = e && e->name ? e->name : "";
        call->errorNo = sd_bus_message_get_errno(m);
    } else {
        call->reply = sd_bus_message_ref(m);
    }
    return 0;
}

// Sends the calls and waits for all replies. Returns 0, or a negative errno when the connection
// itself failed. A call without an answer in time gets a time-out error from sd-bus.
int runBatch(sd_bus* bus, const std::vector<Call*>& calls, uint64_t timeoutUsec, const std::atomic<bool>* stopping)
{
    for (Call* c : calls) {
        sd_bus_message* m = nullptr;
        int r = sd_bus_message_new_method_call(bus, &m, kDestination, c->path.c_str(), c->iface.c_str(), c->member.c_str());
        if (r >= 0 && c->append)
            r = c->append(m);
        if (r >= 0)
            r = sd_bus_call_async(bus, &c->slot, m, onReply, c, timeoutUsec);
        sd_bus_message_unref(m);
        if (r < 0)
            return r;
    }
    // sd-bus times out each call itself; the extra second only guards against a stuck loop.
    const uint64_t deadline = nowUsec() + timeoutUsec + 1000000u;
    for (;;) {
        if (std::all_of(calls.begin(), calls.end(), [](Call* c) { return c->done; }))
            return 0;
        int r = sd_bus_process(bus, nullptr);
        if (r < 0)
            return r;
        if (r > 0)
            continue;
        const uint64_t now = nowUsec();
        if (now >= deadline)
            return -ETIMEDOUT;
        if (stopping && *stopping)
            return -ECANCELED;
        // Short waits, so that the end of the program is noticed soon.
        r = sd_bus_wait(bus, std::min<uint64_t>(deadline - now, 100000u));
        if (r < 0 && r != -EINTR)
            return r;
    }
}

// Runs the calls in batches: a bus daemon limits the replies one connection may wait for
// (128 on a standard system bus).
template <typename Conn>
int runCalls(Conn& c, const std::vector<Call*>& calls, uint64_t timeoutUsec)
{
    constexpr size_t kBatch = 64;
    for (size_t i = 0; i < calls.size(); i += kBatch) {
        const std::vector<Call*> batch(calls.begin() + i, calls.begin() + std::min(calls.size(), i + kBatch));
        if (const int r = runBatch(c.bus, batch, timeoutUsec, c.stopping); r < 0)
            return r;
    }
    return 0;
}

template <typename Conn>
int runCalls(Conn& c, const std::vector<std::unique_ptr<Call>>& calls, uint64_t timeoutUsec)
{
    std::vector<Call*> raw;
    for (const auto& call : calls)
        raw.push_back(call.get());
    return runCalls(c, raw, timeoutUsec);
}

// The code for a failed call, by the D-Bus error it got.
int codeOf(const Call& call)
{
    const std::string& n = call.errorName;
    if (n == "org.freedesktop.DBus.Error.AccessDenied" || n == "org.freedesktop.DBus.Error.InteractiveAuthorizationRequired"
        || n == "org.freedesktop.DBus.Error.AuthFailed")
        return svcerror::accessDenied;
    if (n == "org.freedesktop.systemd1.NoSuchUnit" || n == "org.freedesktop.DBus.Error.UnknownObject"
        || n == "org.freedesktop.systemd1.LoadFailed")
        return svcerror::noSuchService;
    if (n == "org.freedesktop.systemd1.UnitMasked" || n == "org.freedesktop.systemd1.OnlyByDependency")
        return svcerror::serviceDisabled;
    if (n == "org.freedesktop.DBus.Error.Timeout" || n == "org.freedesktop.DBus.Error.NoReply"
        || n == "org.freedesktop.DBus.Error.TimedOut" || call.errorNo == ETIMEDOUT)
        return svcerror::requestTimeout;
    if (n == "org.freedesktop.DBus.Error.ServiceUnknown" || n == "org.freedesktop.DBus.Error.NameHasNoOwner"
        || n == "org.freedesktop.DBus.Error.Disconnected")
        return svcerror::unavailable;
    if (n.rfind("org.freedesktop.systemd1.Transaction", 0) == 0 || n == "org.freedesktop.systemd1.JobTypeNotApplicable"
        || n == "org.freedesktop.systemd1.UnitInactive")
        return svcerror::cannotAcceptControl;
    if (call.errorNo == EACCES || call.errorNo == EPERM)
        return svcerror::accessDenied;
    return svcerror::callFailed;
}

// ---- reading replies ----

struct Props {
    std::map<std::string, std::string> text;
    std::map<std::string, std::vector<std::string>> list;
    std::map<std::string, bool> flag;
    std::vector<std::string> execStart; // path, then argv of the first command
    bool hasExecStart = false;

    std::string get(const std::string& name) const
    {
        auto it = text.find(name);
        return it == text.end() ? std::string() : it->second;
    }
    std::vector<std::string> strings(const std::string& name) const
    {
        auto it = list.find(name);
        return it == list.end() ? std::vector<std::string>() : it->second;
    }
};

int readStrv(sd_bus_message* m, std::vector<std::string>& out)
{
    char** strv = nullptr;
    int r = sd_bus_message_read_strv(m, &strv);
    if (r < 0)
        return r;
    for (char** s = strv; s && *s; ++s) {
        out.emplace_back(*s);
        free(*s);
    }
    free(strv);
    return 0;
}

int readExecStart(sd_bus_message* m, Props& out)
{
    int r = sd_bus_message_enter_container(m, 'a', "(sasbttttuii)");
    if (r < 0)
        return r;
    while ((r = sd_bus_message_enter_container(m, 'r', "sasbttttuii")) > 0) {
        const char* path = nullptr;
        std::vector<std::string> argv;
        if ((r = sd_bus_message_read(m, "s", &path)) < 0 || (r = readStrv(m, argv)) < 0
            || (r = sd_bus_message_skip(m, "bttttuii")) < 0)
            return r;
        if (!out.hasExecStart) {
            out.hasExecStart = true;
            out.execStart.emplace_back(path ? path : "");
            out.execStart.insert(out.execStart.end(), argv.begin(), argv.end());
        }
        if ((r = sd_bus_message_exit_container(m)) < 0)
            return r;
    }
    if (r < 0)
        return r;
    return sd_bus_message_exit_container(m);
}

// Reads the variant of the property `key` into out: a text, a text list, a flag or the first
// ExecStart; other values are skipped.
int readValue(sd_bus_message* m, const std::string& key, Props& out)
{
    const char* contents = nullptr;
    int r = sd_bus_message_peek_type(m, nullptr, &contents);
    if (r < 0)
        return r;
    const std::string sig(contents ? contents : "");
    if (sig == "s" || sig == "o") {
        const char* v = nullptr;
        if ((r = sd_bus_message_read(m, "v", sig.c_str(), &v)) < 0)
            return r;
        out.text[key] = v ? v : "";
    } else if (sig == "b") {
        int v = 0;
        if ((r = sd_bus_message_read(m, "v", "b", &v)) < 0)
            return r;
        out.flag[key] = v != 0;
    } else if (sig == "as") {
        if ((r = sd_bus_message_enter_container(m, 'v', "as")) < 0)
            return r;
        std::vector<std::string> v;
        if ((r = readStrv(m, v)) < 0 || (r = sd_bus_message_exit_container(m)) < 0)
            return r;
        out.list[key] = std::move(v);
    } else if (key == "ExecStart" && sig == "a(sasbttttuii)") {
        if ((r = sd_bus_message_enter_container(m, 'v', contents)) < 0 || (r = readExecStart(m, out)) < 0
            || (r = sd_bus_message_exit_container(m)) < 0)
            return r;
    } else {
        return sd_bus_message_skip(m, "v");
    }
    return 0;
}

// Reads the a{sv} of Properties.GetAll.
int readProps(sd_bus_message* m, Props& out)
{
    int r = sd_bus_message_enter_container(m, 'a', "{sv}");
    if (r < 0)
        return r;
    while ((r = sd_bus_message_enter_container(m, 'e', "sv")) > 0) {
        const char* name = nullptr;
        if ((r = sd_bus_message_read(m, "s", &name)) < 0 || (r = readValue(m, name, out)) < 0
            || (r = sd_bus_message_exit_container(m)) < 0)
            return r;
    }
    if (r < 0)
        return r;
    return sd_bus_message_exit_container(m);
}

struct UnitRow {
    std::string name, description, load, active, path, job;
};

int readUnitList(sd_bus_message* m, std::vector<UnitRow>& out)
{
    int r = sd_bus_message_enter_container(m, 'a', "(ssssssouso)");
    if (r < 0)
        return r;
    for (;;) {
        const char *name, *desc, *load, *active, *sub, *following, *path, *jobType, *jobPath;
        uint32_t jobId;
        r = sd_bus_message_read(m, "(ssssssouso)", &name, &desc, &load, &active, &sub, &following, &path, &jobId,
                                &jobType, &jobPath);
        if (r < 0)
            return r;
        if (r == 0)
            break;
        out.push_back({name, desc, load, active, path, jobType});
    }
    return sd_bus_message_exit_container(m);
}

int readFileList(sd_bus_message* m, std::vector<std::pair<std::string, std::string>>& out)
{
    int r = sd_bus_message_enter_container(m, 'a', "(ss)");
    if (r < 0)
        return r;
    for (;;) {
        const char *path, *state;
        r = sd_bus_message_read(m, "(ss)", &path, &state);
        if (r < 0)
            return r;
        if (r == 0)
            break;
        std::string p(path);
        const auto slash = p.rfind('/');
        out.emplace_back(slash == std::string::npos ? p : p.substr(slash + 1), state);
    }
    return sd_bus_message_exit_container(m);
}

bool endsWith(const std::string& s, const char* suffix)
{
    const size_t n = strlen(suffix);
    return s.size() >= n && s.compare(s.size() - n, n, suffix) == 0;
}

bool inFilter(int state, int filter)
{
    if (filter == svcfilter::active)
        return state != svcstate::stopped;
    if (filter == svcfilter::inactive)
        return state == svcstate::stopped;
    return true;
}

QString displayNameOf(const std::string& description, const std::string& name)
{
    return qstr(description.empty() ? name.c_str() : description.c_str());
}

QString quoteArg(const std::string& arg)
{
    const QString a = qstr(arg.c_str());
    if (!a.isEmpty() && !a.contains(QLatin1Char(' ')) && !a.contains(QLatin1Char('\t')))
        return a;
    return QLatin1Char('"') + a + QLatin1Char('"');
}

std::string jobResultOf(sd_bus_message* m, std::string* jobPath)
{
    uint32_t id = 0;
    const char *path = nullptr, *unit = nullptr, *result = nullptr;
    if (sd_bus_message_read(m, "uoss", &id, &path, &unit, &result) < 0)
        return {};
    *jobPath = path ? path : "";
    return result ? result : "";
}

int codeOfJobResult(const std::string& result)
{
    if (result == "done" || result == "skipped")
        return svcerror::ok;
    if (result == "timeout")
        return svcerror::requestTimeout;
    if (result == "dependency")
        return svcerror::dependencyFailed;
    if (result == "unsupported" || result == "invalid")
        return svcerror::cannotAcceptControl;
    // failed, canceled, assert, once, frozen ...
    return svcerror::startFailed;
}

} // namespace

// ---- connections ----

namespace {

// Counts the calls in progress, for the destructor.
struct Running {
    explicit Running(std::atomic<int>& n) : n_(n) { ++n_; }
    ~Running() { --n_; }
    std::atomic<int>& n_;
};

} // namespace

struct SystemdServices::Connection {
    std::mutex m;
    sd_bus* bus = nullptr;
    sd_bus_slot* jobMatch = nullptr;
    unsigned generation = 0;
    bool subscribed = false;
    int canFreeze = -1; // whether this manager can pause (freeze) a unit; -1: not asked yet
    const std::atomic<bool>* stopping = nullptr; // the backend is going away
    std::map<std::string, std::string> finishedJobs; // job path -> result
    std::map<std::string, PendingJob> unitJobs;       // unit -> the last start or stop asked for

    ~Connection() { drop(); }
    void drop()
    {
        jobMatch = sd_bus_slot_unref(jobMatch);
        if (bus)
            bus = sd_bus_close_unref(bus);
        subscribed = false;
        canFreeze = -1;
        finishedJobs.clear();
        unitJobs.clear();
    }
    bool open() const { return bus && sd_bus_is_open(bus) > 0; }

    static int onJobRemoved(sd_bus_message* m, void* userdata, sd_bus_error*)
    {
        auto* c = static_cast<Connection*>(userdata);
        std::string path;
        const std::string result = jobResultOf(m, &path);
        if (path.empty())
            return 0;
        // Every job of the computer passes here; only the last few hundred are kept, and a
        // follower that misses its own falls back to asking about the job.
        if (c->finishedJobs.size() > 512)
            c->finishedJobs.clear();
        c->finishedJobs[path] = result;
        return 0;
    }
};

SystemdServices::SystemdServices() : SystemdServices(Options{}) {}

SystemdServices::SystemdServices(Options options) : options_(std::move(options))
{
    hostName_ = options_.localName.isEmpty() ? QHostInfo::localHostName() : options_.localName;
}

SystemdServices::~SystemdServices()
{
    stopping_ = true;
    while (running_ > 0)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    std::lock_guard guard(mutex_);
    for (auto& [name, c] : connections_) {
        std::lock_guard lock(c->m);
        c->drop();
    }
}

QString SystemdServices::unitName(const QString& service)
{
    static const QStringList types = {"service", "socket", "target", "timer", "mount", "automount", "path",
                                      "slice", "scope", "device", "swap"};
    const qsizetype dot = service.lastIndexOf(QLatin1Char('.'));
    if (dot > 0 && types.contains(service.mid(dot + 1)))
        return service;
    return service + QStringLiteral(".service");
}

QString SystemdServices::key(const QString& computer) const
{
    const QString name = computer.trimmed();
    if (name.isEmpty())
        return {};
    const QString shortHost = hostName_.section(QLatin1Char('.'), 0, 0);
    if (name.compare(hostName_, Qt::CaseInsensitive) == 0 || name.compare(shortHost, Qt::CaseInsensitive) == 0)
        return {};
    return name.toUpper();
}

std::shared_ptr<SystemdServices::Connection> SystemdServices::connection(const QString& computer)
{
    std::lock_guard guard(mutex_);
    auto& c = connections_[key(computer)];
    if (!c) {
        c = std::make_shared<Connection>();
        c->stopping = &stopping_;
    }
    return c;
}

void SystemdServices::disconnect(const QString& computer)
{
    // The local bus does not run through an ssh connection, so closing one never concerns it;
    // this computer's name counts as local in any case ("MYHOST" as well as "myhost").
    if (key(computer).isEmpty())
        return;
    const Running running(running_);
    auto c = connection(computer);
    std::lock_guard lock(c->m);
    c->drop();
}

QString SystemdServices::sshSocket(const QString& computer) const
{
    const QString socket = options_.controlPath ? options_.controlPath(computer.trimmed()) : QString();
    return !socket.isEmpty() && QFileInfo::exists(socket) ? socket : QString();
}

int SystemdServices::connect(Connection& c, const QString& computer)
{
    std::string address;
    const bool local = key(computer).isEmpty();
    if (local) {
        if (!options_.localAddress.isEmpty())
            address = utf8(options_.localAddress);
        else if (const char* env = getenv("DBUS_SYSTEM_BUS_ADDRESS"); env && *env)
            address = env;
        else
            address = "unix:path=/run/dbus/system_bus_socket";
    } else {
        // A remote computer is only reached through the connection its validation opened;
        // without one the manager there is out of reach for us, as for a computer that
        // refuses access.
        const QString socket = sshSocket(computer);
        if (socket.isEmpty())
            return svcerror::accessDenied;
        std::vector<std::string> argv = {"-xT", "-S", utf8(socket), "-o", "ControlMaster=no", "-o", "BatchMode=yes",
                                         "-o", "ConnectTimeout=" + std::to_string(std::max(1, options_.connectTimeoutMs / 1000)),
                                         "-o", "LogLevel=ERROR", "--", utf8(computer.trimmed()), utf8(options_.remoteBridge)};
        address = "unixexec:path=" + escapeAddressValue(utf8(options_.sshProgram));
        for (size_t i = 0; i < argv.size(); ++i)
            address += ",argv" + std::to_string(i + 1) + "=" + escapeAddressValue(argv[i]);
    }

    sd_bus* bus = nullptr;
    int r = sd_bus_new(&bus);
    if (r < 0)
        return svcerror::unavailable;
    sd_bus_set_address(bus, address.c_str());
    sd_bus_set_bus_client(bus, 1);
    sd_bus_set_method_call_timeout(bus, msToUsec(options_.callTimeoutMs));
    // On the local computer polkit may ask the user for a password before a start or stop.
    if (local)
        sd_bus_set_allow_interactive_authorization(bus, 1);
    r = sd_bus_start(bus);
    // Connecting and logging in go on in the background; wait for them, but not for ever:
    // a bus or an ssh that stops answering must not hold the caller.
    const uint64_t deadline = nowUsec() + msToUsec(options_.connectTimeoutMs);
    while (r >= 0 && (r = sd_bus_is_ready(bus)) == 0) {
        r = sd_bus_process(bus, nullptr);
        if (r > 0)
            continue;
        if (r < 0)
            break;
        const uint64_t now = nowUsec();
        if (now >= deadline) {
            r = -ETIMEDOUT;
            break;
        }
        if (stopping_) {
            r = -ECANCELED;
            break;
        }
        r = sd_bus_wait(bus, std::min<uint64_t>(deadline - now, 100000u));
        if (r == -EINTR)
            r = 0;
    }
    if (r < 0) {
        sd_bus_close_unref(bus);
        return svcerror::unavailable;
    }
    c.bus = bus;
    ++c.generation;

    // Finished jobs are announced by signal; keep them from the start so none is missed.
    sd_bus_match_signal_async(bus, &c.jobMatch, kDestination, kManagerPath, kManager, "JobRemoved",
                              &Connection::onJobRemoved, nullptr, &c);

    // Is there a service manager on this bus at all?
    Call version(kManagerPath, kProperties, "Get",
                 [](sd_bus_message* m) { return sd_bus_message_append(m, "ss", kManager, "Version"); });
    r = runCalls(c, std::vector<Call*>{&version}, msToUsec(options_.callTimeoutMs));
    if (r < 0 || !c.open()) {
        c.drop();
        return r == -ETIMEDOUT ? svcerror::requestTimeout : svcerror::unavailable;
    }
    if (version.failed()) {
        const int code = codeOf(version);
        if (code == svcerror::unavailable || code == svcerror::accessDenied || code == svcerror::requestTimeout) {
            c.drop();
            return code;
        }
    }
    return svcerror::ok;
}

int SystemdServices::ensureConnected(Connection& c, const QString& computer)
{
    // A remote bus runs through the ssh connection's socket: once that is gone (the user removed
    // the server, the master ended), so is the authenticated connection, though the bridge may
    // not have noticed yet.
    if (c.open() && !key(computer).isEmpty()) {
        if (sshSocket(computer).isEmpty()) {
            c.drop();
            return svcerror::accessDenied;
        }
    }
    // A bus that went away since the last call shows as soon as what is waiting on the
    // connection is read: its end, or signals that came in meanwhile.
    if (c.open()) {
        int r;
        while ((r = sd_bus_process(c.bus, nullptr)) > 0) {
        }
        if (r >= 0 && c.open())
            return svcerror::ok;
    }
    c.drop();
    return connect(c, computer);
}

ScmHandle SystemdServices::openManager(const QString& computer)
{
    const Running running(running_);
    auto c = connection(computer);
    std::lock_guard lock(c->m);
    return {computer, ensureConnected(*c, computer)};
}

namespace {

// The common end of every call: a broken connection is dropped so that the next call connects
// anew, and counts as an unreachable computer.
template <typename Conn>
int connectionCode(Conn& c, int r)
{
    if (r < 0 || !c.open()) {
        c.drop();
        return r == -ETIMEDOUT ? svcerror::requestTimeout : svcerror::unavailable;
    }
    return svcerror::ok;
}

// The code of a failed property read of one unit.
template <typename Conn>
int unitCallCode(Conn& c, const Call& call)
{
    if (!c.open()) {
        c.drop();
        return svcerror::unavailable;
    }
    const int code = codeOf(call);
    // A unit object that does not exist, or an interface it lacks, means no such unit.
    if (call.errorIs("org.freedesktop.DBus.Error.UnknownMethod") || call.errorIs("org.freedesktop.DBus.Error.UnknownInterface")
        || call.errorIs("org.freedesktop.DBus.Error.InvalidArgs"))
        return svcerror::noSuchService;
    return code;
}

bool notFound(const Props& unit) { return unit.get("LoadState") == "not-found"; }

int unitState(const Props& unit) { return stateOf(unit.get("ActiveState"), unit.get("FreezerState")); }

// The status of one unit: its load state and the state of a service.
struct UnitStatus {
    int error = svcerror::ok;
    std::string load;
    int state = 0;
};

// Whether a unit in this active state can be frozen or thawing, so that its freezer state
// matters.
bool mayBeFrozen(const std::string& active) { return active != "inactive" && active != "failed"; }

// The freezer states of the units at these paths, all asked at once; out[i] is empty where
// systemd did not tell. A manager that cannot pause units (no cgroup v2 freezer, or before
// systemd 246) has none paused: it is asked once whether it can, and then the units are not.
template <typename Conn>
int readFreezerStates(Conn& c, const std::vector<std::string>& paths, uint64_t timeout, std::vector<std::string>& out)
{
    out.assign(paths.size(), {});
    if (paths.empty())
        return svcerror::ok;
    if (c.canFreeze < 0) {
        std::vector<std::unique_ptr<Call>> probe;
        get(probe, paths.front(), kUnit, "CanFreeze");
        if (const int code = connectionCode(c, runCalls(c, probe, timeout)))
            return code;
        const Call& answer = *probe.front();
        Props p;
        if (!answer.failed())
            readValue(answer.reply, "CanFreeze", p);
        // A manager that does not know the property cannot freeze; another failure (that unit
        // went away, say) tells nothing, and the question comes again next time.
        if (!answer.failed() || answer.errorIs("org.freedesktop.DBus.Error.UnknownProperty")
            || answer.errorIs("org.freedesktop.DBus.Error.InvalidArgs"))
            c.canFreeze = p.flag.count("CanFreeze") && p.flag.at("CanFreeze") ? 1 : 0;
    }
    if (c.canFreeze == 0)
        return svcerror::ok;
    std::vector<std::unique_ptr<Call>> calls;
    for (const auto& path : paths)
        get(calls, path, kUnit, "FreezerState");
    if (const int code = connectionCode(c, runCalls(c, calls, timeout)))
        return code;
    for (size_t i = 0; i < paths.size(); ++i) {
        Props p;
        if (!calls[i]->failed())
            readValue(calls[i]->reply, "FreezerState", p);
        out[i] = p.get("FreezerState");
    }
    return svcerror::ok;
}

// The load and active states of the units, and the freezer state of those that run: one
// ListUnitsByNames call for all, then the freezer state of each running unit, these calls all
// sent at once. A manager without ListUnitsByNames (before systemd 227) is asked unit by unit.
// Returns 0, or the code of a connection that failed; each unit's own failure is in out.
template <typename Conn>
int readStatuses(Conn& c, const std::vector<std::string>& units, uint64_t timeout, std::vector<UnitStatus>& out)
{
    out.assign(units.size(), {});
    if (units.empty())
        return svcerror::ok;
    std::vector<UnitRow> rows;
    Call byNames(kManagerPath, kManager, "ListUnitsByNames", [&units](sd_bus_message* m) {
        std::vector<const char*> names;
        for (const auto& u : units)
            names.push_back(u.c_str());
        names.push_back(nullptr);
        return sd_bus_message_append_strv(m, const_cast<char**>(names.data()));
    });
    if (const int code = connectionCode(c, runCalls(c, std::vector<Call*>{&byNames}, timeout)))
        return code;
    // Names systemd finds invalid are left out of the answer; then the rows no longer match
    // the names one for one, and each unit is asked on its own.
    const bool listed = !byNames.failed() && readUnitList(byNames.reply, rows) >= 0 && rows.size() == units.size();
    std::vector<std::string> active(units.size()), paths(units.size()), jobs(units.size());
    if (listed) {
        for (size_t i = 0; i < units.size(); ++i) {
            out[i].load = rows[i].load;
            active[i] = rows[i].active;
            paths[i] = rows[i].path;
            jobs[i] = rows[i].job;
        }
    } else {
        std::vector<std::unique_ptr<Call>> calls;
        for (size_t i = 0; i < units.size(); ++i) {
            paths[i] = unitPath(units[i]);
            get(calls, paths[i], kUnit, "LoadState");
            get(calls, paths[i], kUnit, "ActiveState");
        }
        if (const int code = connectionCode(c, runCalls(c, calls, timeout)))
            return code;
        for (size_t i = 0; i < units.size(); ++i) {
            Props p;
            for (size_t k : {2 * i, 2 * i + 1}) {
                if (calls[k]->failed()) {
                    out[i].error = unitCallCode(c, *calls[k]);
                    break;
                }
                readValue(calls[k]->reply, k % 2 ? "ActiveState" : "LoadState", p);
            }
            out[i].load = p.get("LoadState");
            active[i] = p.get("ActiveState");
        }
    }
    std::vector<std::string> frozenPaths, frozen;
    std::vector<size_t> frozenAt;
    for (size_t i = 0; i < units.size(); ++i) {
        if (out[i].error == svcerror::ok && out[i].load == "not-found")
            out[i].error = svcerror::noSuchService;
        if (out[i].error == svcerror::ok && mayBeFrozen(active[i])) {
            frozenPaths.push_back(paths[i]);
            frozenAt.push_back(i);
        }
    }
    if (const int code = readFreezerStates(c, frozenPaths, timeout, frozen))
        return code;
    std::vector<std::string> freezerState(units.size());
    for (size_t k = 0; k < frozenAt.size(); ++k)
        freezerState[frozenAt[k]] = frozen[k];
    for (size_t i = 0; i < units.size(); ++i)
        if (out[i].error == svcerror::ok)
            out[i].state = stateOf(active[i], freezerState[i], jobs[i]);
    return svcerror::ok;
}

template <typename Conn>
UnitStatus readStatus(Conn& c, const std::string& unit, uint64_t timeout)
{
    std::vector<UnitStatus> out;
    if (const int code = readStatuses(c, {unit}, timeout, out))
        return {code, {}, 0};
    return out.front();
}

} // namespace

ServiceHandle SystemdServices::openService(const ScmHandle& scm, const QString& service)
{
    const Running running(running_);
    ServiceHandle h{scm.computer, unitName(service), svcerror::invalidHandle};
    if (!scm.valid() || service.isEmpty()) {
        if (scm.valid())
            h.error = svcerror::noSuchService;
        return h;
    }
    auto c = connection(scm.computer);
    std::lock_guard lock(c->m);
    if ((h.error = ensureConnected(*c, scm.computer)) != svcerror::ok)
        return h;
    std::vector<std::unique_ptr<Call>> calls;
    Call* load = get(calls, unitPath(utf8(h.name)), kUnit, "LoadState");
    if ((h.error = connectionCode(*c, runCalls(*c, calls, msToUsec(options_.callTimeoutMs)))) != svcerror::ok)
        return h;
    if (load->failed()) {
        h.error = unitCallCode(*c, *load);
        return h;
    }
    Props props;
    readValue(load->reply, "LoadState", props);
    h.error = notFound(props) ? svcerror::noSuchService : svcerror::ok;
    return h;
}

StatusResult SystemdServices::queryStatus(const ServiceHandle& service)
{
    const Running running(running_);
    if (!service.valid())
        return {svcerror::invalidHandle, 0};
    auto c = connection(service.computer);
    std::lock_guard lock(c->m);
    if (const int code = ensureConnected(*c, service.computer))
        return {code, 0};
    const UnitStatus status = readStatus(*c, utf8(service.name), msToUsec(options_.callTimeoutMs));
    return {status.error, status.state};
}

std::vector<ServiceCheck> SystemdServices::checkServices(const QString& computer, const QStringList& services)
{
    const Running running(running_);
    std::vector<ServiceCheck> out(size_t(services.size()));
    auto c = connection(computer);
    std::lock_guard lock(c->m);
    if (const int code = ensureConnected(*c, computer)) {
        for (ServiceCheck& check : out)
            check.scmError = code;
        return out;
    }
    std::vector<std::string> units;
    std::vector<size_t> at;
    for (qsizetype i = 0; i < services.size(); ++i) {
        if (services[i].isEmpty()) {
            out[size_t(i)].serviceError = svcerror::noSuchService;
            continue;
        }
        units.push_back(utf8(unitName(services[i])));
        at.push_back(size_t(i));
    }
    std::vector<UnitStatus> statuses;
    const int code = readStatuses(*c, units, msToUsec(options_.callTimeoutMs), statuses);
    for (size_t k = 0; k < at.size(); ++k) {
        // What fails here is what opening the service would have met first.
        ServiceCheck& check = out[at[k]];
        check.serviceError = code != svcerror::ok ? code : statuses[k].error;
        check.state = check.serviceError == svcerror::ok ? statuses[k].state : 0;
    }
    return out;
}

bool SystemdServices::enumerationHasStates(const QString&) const { return true; }

namespace {

ServiceConfig configOf(const std::string& name, const Props& unit, const Props& exec)
{
    ServiceConfig config;
    // A unit that is masked counts as disabled whatever its file says.
    config.startType = unit.get("LoadState") == "masked" ? svcstart::disabled : startTypeOf(unit.get("UnitFileState"));
    config.displayName = displayNameOf(unit.get("Description"), name);
    // A service without User= runs as root; with DynamicUser= and no User= systemd makes up a
    // user named after the unit.
    std::string user = exec.get("User");
    if (user.empty()) {
        auto dyn = exec.flag.find("DynamicUser");
        user = (dyn != exec.flag.end() && dyn->second) ? name.substr(0, name.rfind('.')) : "root";
    }
    config.account = qstr(user.c_str());
    // The program with its arguments: the first ExecStart= command. argv[0] is the name the
    // program is started under, not an argument.
    if (exec.hasExecStart) {
        QString text = quoteArg(exec.execStart.front());
        for (size_t i = 2; i < exec.execStart.size(); ++i)
            text += QLatin1Char(' ') + quoteArg(exec.execStart[i]);
        config.binaryPath = text;
    }
    return config;
}

// A failed read of a unit's service properties that the configuration query cannot do without.
bool serviceReadFatal(const Call& svc)
{
    const int code = codeOf(svc);
    return code == svcerror::accessDenied || code == svcerror::requestTimeout || code == svcerror::unavailable;
}

} // namespace

ConfigResult SystemdServices::queryConfig(const ServiceHandle& service)
{
    const Running running(running_);
    ConfigResult out;
    if (!service.valid()) {
        out.error = svcerror::invalidHandle;
        return out;
    }
    auto c = connection(service.computer);
    std::lock_guard lock(c->m);
    if ((out.error = ensureConnected(*c, service.computer)) != svcerror::ok)
        return out;
    const std::string name = utf8(service.name);
    const std::string path = unitPath(name);
    // Only what the details show, each property on its own.
    static const char* const unitProperties[] = {"LoadState", "UnitFileState", "Description"};
    static const char* const serviceProperties[] = {"User", "DynamicUser", "ExecStart"};
    std::vector<std::unique_ptr<Call>> calls;
    for (const char* p : unitProperties)
        get(calls, path, kUnit, p);
    for (const char* p : serviceProperties)
        get(calls, path, kService, p);
    if ((out.error = connectionCode(*c, runCalls(*c, calls, msToUsec(options_.callTimeoutMs)))) != svcerror::ok)
        return out;
    Props unit, exec;
    const size_t nUnit = std::size(unitProperties);
    for (size_t i = 0; i < calls.size(); ++i) {
        const Call& call = *calls[i];
        const bool ofUnit = i < nUnit;
        const char* property = ofUnit ? unitProperties[i] : serviceProperties[i - nUnit];
        if (!call.failed()) {
            readValue(call.reply, property, ofUnit ? unit : exec);
        } else if (ofUnit) {
            out.error = unitCallCode(*c, call);
            return out;
        } else if (serviceReadFatal(call)) {
            // Not a service (a socket, say) is no failure: it has no account and no program.
            out.error = codeOf(call);
            return out;
        }
    }
    if (notFound(unit)) {
        out.error = svcerror::noSuchService;
        return out;
    }
    out.config = configOf(name, unit, exec);
    return out;
}

EnumResult SystemdServices::enumerateServices(const ScmHandle& scm, int stateFilter)
{
    const Running running(running_);
    EnumResult out;
    if (!scm.valid()) {
        out.error = svcerror::invalidHandle;
        return out;
    }
    auto c = connection(scm.computer);
    std::lock_guard lock(c->m);
    if ((out.error = ensureConnected(*c, scm.computer)) != svcerror::ok)
        return out;
    const uint64_t timeout = msToUsec(options_.callTimeoutMs);
    const bool withFiles = stateFilter != svcfilter::active;
    auto patterns = [](sd_bus_message* m) {
        const char* none[] = {nullptr};
        const char* pattern[] = {"*.service", nullptr};
        int r = sd_bus_message_append_strv(m, const_cast<char**>(none));
        return r < 0 ? r : sd_bus_message_append_strv(m, const_cast<char**>(pattern));
    };
    // Loaded units and, for a full listing, the installed unit files that are not loaded, in
    // one round trip; a manager too old for the pattern calls gets the plain ones.
    std::vector<std::unique_ptr<Call>> calls;
    calls.push_back(std::make_unique<Call>(kManagerPath, kManager, "ListUnitsByPatterns", patterns));
    if (withFiles)
        calls.push_back(std::make_unique<Call>(kManagerPath, kManager, "ListUnitFilesByPatterns", patterns));
    if ((out.error = connectionCode(*c, runCalls(*c, calls, timeout))) != svcerror::ok)
        return out;
    std::vector<Call*> again;
    for (auto& call : calls) {
        if (call->failed() && call->errorIs("org.freedesktop.DBus.Error.UnknownMethod")) {
            const std::string plain = call->member == "ListUnitsByPatterns" ? "ListUnits" : "ListUnitFiles";
            call = std::make_unique<Call>(kManagerPath, kManager, plain);
            again.push_back(call.get());
        }
    }
    if (!again.empty() && (out.error = connectionCode(*c, runCalls(*c, again, timeout))) != svcerror::ok)
        return out;
    for (auto& call : calls) {
        if (call->failed()) {
            out.error = c->open() ? codeOf(*call) : svcerror::unavailable;
            return out;
        }
    }

    std::vector<UnitRow> units;
    std::vector<std::pair<std::string, std::string>> files;
    if (readUnitList(calls[0]->reply, units) < 0 || (withFiles && readFileList(calls[1]->reply, files) < 0)) {
        out.error = svcerror::callFailed;
        return out;
    }
    std::set<std::string> loaded;
    // A unit that runs may be frozen (paused) or on its way in or out of that, which the unit
    // list does not tell: its freezer state is read, for all of them at once.
    std::vector<std::string> frozenPaths, frozen;
    std::vector<std::pair<size_t, const UnitRow*>> frozenAt; // the entry, and its row
    for (const UnitRow& u : units) {
        if (!endsWith(u.name, ".service"))
            continue;
        const int state = stateOf(u.active, "", u.job);
        // A unit that is only referenced, without a file, is no installed service.
        if (u.load == "not-found" && state == svcstate::stopped)
            continue;
        loaded.insert(u.name);
        if (inFilter(state, stateFilter)) {
            if (mayBeFrozen(u.active)) {
                frozenPaths.push_back(u.path);
                frozenAt.emplace_back(out.services.size(), &u);
            }
            out.services.push_back({qstr(u.name.c_str()), displayNameOf(u.description, u.name), state});
        }
    }
    if ((out.error = readFreezerStates(*c, frozenPaths, timeout, frozen)) != svcerror::ok) {
        out.services.clear();
        return out;
    }
    for (size_t k = 0; k < frozenAt.size(); ++k) {
        const UnitRow& row = *frozenAt[k].second;
        out.services[frozenAt[k].first].state = stateOf(row.active, frozen[k], row.job);
    }
    if (withFiles) {
        for (const auto& [name, fileState] : files) {
            // Templates cannot run by themselves, and an alias is listed under its unit's name.
            if (!endsWith(name, ".service") || endsWith(name, "@.service") || fileState == "alias" || loaded.count(name))
                continue;
            loaded.insert(name);
            if (inFilter(svcstate::stopped, stateFilter))
                out.services.push_back({qstr(name.c_str()), qstr(name.c_str()), svcstate::stopped});
        }
    }
    std::sort(out.services.begin(), out.services.end(), [](const ServiceEntry& a, const ServiceEntry& b) {
        return a.name.compare(b.name, Qt::CaseInsensitive) < 0;
    });
    return out;
}

namespace {

struct DependentNode {
    std::string name;
    std::string description;
    int state = 0;
    std::vector<std::string> dependents; // units that a stop of this one stops along
};

// The units that a stop of `root` stops along, directly or through others. Every level of
// the walk is one round trip.
template <typename Conn>
int collectDependents(Conn& c, const std::string& root, uint64_t timeout, std::map<std::string, DependentNode>& nodes,
                      DependentNode& rootNode)
{
    std::vector<std::string> level = {root};
    bool first = true;
    while (!level.empty() && nodes.size() < 2000) {
        std::vector<std::unique_ptr<Call>> calls;
        for (const auto& name : level)
            getAll(calls, unitPath(name), kUnit);
        if (const int code = connectionCode(c, runCalls(c, calls, timeout)))
            return code;
        std::vector<std::string> next;
        for (size_t i = 0; i < level.size(); ++i) {
            DependentNode node{level[i], {}, svcstate::stopped, {}};
            if (calls[i]->failed()) {
                const int code = unitCallCode(c, *calls[i]);
                if (first || code != svcerror::noSuchService)
                    return code;
            } else {
                Props p;
                readProps(calls[i]->reply, p);
                if (first && notFound(p))
                    return svcerror::noSuchService;
                node.description = p.get("Description");
                node.state = unitState(p);
                // Every way a stop of this unit reaches another: units that require it, that
                // need it already running, that are bound to it, or that are part of it.
                for (const char* property : {"RequiredBy", "RequisiteOf", "BoundBy", "ConsistsOf"})
                    for (const auto& d : p.strings(property))
                        if (std::find(node.dependents.begin(), node.dependents.end(), d) == node.dependents.end())
                            node.dependents.push_back(d);
            }
            for (const auto& d : node.dependents)
                if (d != root && !nodes.count(d) && std::find(next.begin(), next.end(), d) == next.end()
                    && std::find(level.begin(), level.end(), d) == level.end())
                    next.push_back(d);
            if (first)
                rootNode = std::move(node);
            else
                nodes[level[i]] = std::move(node);
        }
        first = false;
        level = std::move(next);
    }
    return svcerror::ok;
}

// Stop order: a unit comes before every unit it depends on. Each unit is placed by its
// longest chain of dependencies back to the root, the longest first.
std::vector<ServiceEntry> stopOrder(const DependentNode& root, const std::map<std::string, DependentNode>& nodes, int filter)
{
    std::map<std::string, int> depth;
    for (const auto& d : root.dependents)
        if (nodes.count(d))
            depth[d] = 1;
    for (size_t round = 0; round < nodes.size(); ++round) {
        bool changed = false;
        for (const auto& [name, node] : nodes) {
            auto it = depth.find(name);
            if (it == depth.end())
                continue;
            for (const auto& d : node.dependents) {
                if (!nodes.count(d))
                    continue;
                const int want = std::min<int>(it->second + 1, int(nodes.size()));
                if (depth[d] < want) {
                    depth[d] = want;
                    changed = true;
                }
            }
        }
        if (!changed)
            break;
    }
    std::vector<const DependentNode*> order;
    for (const auto& [name, node] : nodes)
        if (depth.count(name) && inFilter(node.state, filter))
            order.push_back(&node);
    std::stable_sort(order.begin(), order.end(), [&](const DependentNode* a, const DependentNode* b) {
        return depth.at(a->name) > depth.at(b->name);
    });
    std::vector<ServiceEntry> out;
    for (const DependentNode* n : order)
        out.push_back({qstr(n->name.c_str()), displayNameOf(n->description, n->name), n->state});
    return out;
}

} // namespace

EnumResult SystemdServices::enumerateDependents(const ServiceHandle& service, int stateFilter)
{
    const Running running(running_);
    EnumResult out;
    if (!service.valid()) {
        out.error = svcerror::invalidHandle;
        return out;
    }
    auto c = connection(service.computer);
    std::lock_guard lock(c->m);
    if ((out.error = ensureConnected(*c, service.computer)) != svcerror::ok)
        return out;
    std::map<std::string, DependentNode> nodes;
    DependentNode root;
    out.error = collectDependents(*c, utf8(service.name), msToUsec(options_.callTimeoutMs), nodes, root);
    if (out.error == svcerror::ok)
        out.services = stopOrder(root, nodes, stateFilter);
    return out;
}

namespace {

// Asks systemd, once per connection, to announce the end of every job (JobRemoved), so that
// the end of the jobs this program asks for is seen.
int subscribe(SystemdServices::Connection& c, uint64_t timeout)
{
    if (c.subscribed)
        return svcerror::ok;
    Call call(kManagerPath, kManager, "Subscribe");
    if (const int code = connectionCode(c, runCalls(c, std::vector<Call*>{&call}, timeout)))
        return code;
    c.subscribed = true;
    return svcerror::ok;
}

// What became of a job this program asked for: 997 while it runs, else 0 or the code of its
// failure. The end normally arrives as systemd's JobRemoved signal; when that was lost, a job
// that no longer exists has ended and the unit's state tells how. Never waits for the job.
int jobOutcome(SystemdServices::Connection& c, const SystemdServices::PendingJob& job, uint64_t callTimeout)
{
    int r;
    while ((r = sd_bus_process(c.bus, nullptr)) > 0) {
    }
    if (const int code = connectionCode(c, r < 0 ? r : 0))
        return code;
    const auto finished = [&]() -> std::optional<int> {
        const auto it = c.finishedJobs.find(job.path);
        if (it == c.finishedJobs.end())
            return std::nullopt;
        const int code = codeOfJobResult(it->second);
        c.finishedJobs.erase(it);
        return code;
    };
    if (const auto code = finished())
        return *code;
    Call state(job.path, kProperties, "Get", [](sd_bus_message* m) { return sd_bus_message_append(m, "ss", kJob, "State"); });
    if (const int code = connectionCode(c, runCalls(c, std::vector<Call*>{&state}, callTimeout)))
        return code;
    if (const auto code = finished()) // the signal came in with the answer
        return *code;
    if (!state.failed())
        return svcerror::ioPending;
    if (!state.errorIs("org.freedesktop.DBus.Error.UnknownObject") && !state.errorIs("org.freedesktop.systemd1.NoSuchJob")
        && !state.errorIs("org.freedesktop.DBus.Error.UnknownMethod"))
        return codeOf(state);
    const UnitStatus status = readStatus(c, job.unit, callTimeout);
    if (status.error)
        return status.error;
    const int s = status.state;
    if (job.starting)
        return s == svcstate::stopped ? svcerror::startFailed : svcerror::ok;
    return s == svcstate::stopped ? svcerror::ok : svcerror::startFailed;
}

} // namespace

int SystemdServices::start(const ServiceHandle& service)
{
    const Running running(running_);
    if (!service.valid())
        return svcerror::invalidHandle;
    auto c = connection(service.computer);
    std::unique_lock lock(c->m);
    if (const int code = ensureConnected(*c, service.computer))
        return code;
    const uint64_t timeout = msToUsec(options_.callTimeoutMs);
    const std::string name = utf8(service.name);
    if (const int code = subscribe(*c, timeout))
        return code;
    const UnitStatus status = readStatus(*c, name, timeout);
    if (status.error)
        return status.error;
    if (status.load == "masked")
        return svcerror::serviceDisabled;
    if (status.state != svcstate::stopped)
        return svcerror::alreadyRunning;

    Call job(kManagerPath, kManager, "StartUnit",
             [&name](sd_bus_message* m) { return sd_bus_message_append(m, "ss", name.c_str(), "replace"); });
    if (const int code = connectionCode(*c, runCalls(*c, std::vector<Call*>{&job}, timeout)))
        return code;
    if (job.failed())
        return codeOf(job) == svcerror::callFailed ? svcerror::startFailed : codeOf(job);
    const char* jobPath = nullptr;
    if (sd_bus_message_read(job.reply, "o", &jobPath) < 0 || !jobPath)
        return svcerror::startFailed;
    // The job is queued; how it ends is for jobResult to tell.
    c->unitJobs[name] = {jobPath, name, true};
    return svcerror::ok;
}

int SystemdServices::stop(const ServiceHandle& service)
{
    const Running running(running_);
    if (!service.valid())
        return svcerror::invalidHandle;
    auto c = connection(service.computer);
    std::unique_lock lock(c->m);
    if (const int code = ensureConnected(*c, service.computer))
        return code;
    const uint64_t timeout = msToUsec(options_.callTimeoutMs);
    const std::string name = utf8(service.name);
    if (const int code = subscribe(*c, timeout))
        return code;
    // systemd would stop the units that require this one along with it; the classic manager
    // refuses instead, and the user stops them one by one, in the order the dependents list shows.
    std::map<std::string, DependentNode> nodes;
    DependentNode root;
    if (const int code = collectDependents(*c, name, timeout, nodes, root))
        return code;
    if (root.state == svcstate::stopped)
        return svcerror::notActive;
    if (!stopOrder(root, nodes, svcfilter::active).empty())
        return svcerror::dependentServicesRunning;

    Call job(kManagerPath, kManager, "StopUnit",
             [&name](sd_bus_message* m) { return sd_bus_message_append(m, "ss", name.c_str(), "replace"); });
    if (const int code = connectionCode(*c, runCalls(*c, std::vector<Call*>{&job}, timeout)))
        return code;
    if (job.failed()) {
        if (job.errorIs("org.freedesktop.systemd1.OnlyByDependency"))
            return svcerror::invalidServiceControl;
        return codeOf(job) == svcerror::callFailed ? svcerror::startFailed : codeOf(job);
    }
    const char* jobPath = nullptr;
    if (sd_bus_message_read(job.reply, "o", &jobPath) < 0 || !jobPath)
        return svcerror::startFailed;
    c->unitJobs[name] = {jobPath, name, false};
    return svcerror::ok;
}

int SystemdServices::jobResult(const ServiceHandle& service)
{
    const Running running(running_);
    if (!service.valid())
        return svcerror::invalidHandle;
    auto c = connection(service.computer);
    std::lock_guard lock(c->m);
    const std::string name = utf8(service.name);
    const auto it = c->unitJobs.find(name);
    if (it == c->unitJobs.end() || !c->open())
        return svcerror::ok;
    // A connection that breaks on the way is dropped with the jobs it followed: the job is
    // copied first and forgotten by its name.
    const PendingJob job = it->second;
    const int code = jobOutcome(*c, job, msToUsec(options_.callTimeoutMs));
    if (code != svcerror::ioPending)
        c->unitJobs.erase(name);
    return code;
}

} // namespace velmora::platform
