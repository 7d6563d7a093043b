#include "platform/sim/simservices.h"

#include "platform/sim/simplatform.h"

#include <algorithm>

namespace velmora::platform::sim {

namespace {

bool inFilter(int state, int filter)
{
    if (filter == svcfilter::active)
        return state != svcstate::stopped;
    if (filter == svcfilter::inactive)
        return state == svcstate::stopped;
    return true;
}

ServiceEntry entryOf(const SimServices::Service& s)
{
    return {s.name, s.displayName.isEmpty() ? s.name : s.displayName, s.state};
}

} // namespace

SimServices::SimServices(SimClock& clock, SimSystem& system, SimNetConnections& net)
    : clock_(clock), system_(system), net_(net)
{
    computers_[QString()];
}

QString SimServices::computerKey(const QString& computer) const
{
    const QString name = computer.trimmed();
    if (name.isEmpty() || name.compare(system_.computer_name, Qt::CaseInsensitive) == 0)
        return {};
    const auto alias = aliases_.find(name.toUpper());
    return alias != aliases_.end() ? alias->second : name.toUpper();
}

void SimServices::addAlias(const QString& alias, const QString& computer)
{
    std::lock_guard lock(mutex_);
    aliases_[alias.trimmed().toUpper()] = computerKey(computer);
}

SimServices::Computer* SimServices::findComputer(const QString& computer)
{
    auto it = computers_.find(computerKey(computer));
    return it == computers_.end() ? nullptr : &it->second;
}

SimServices::Entry* SimServices::findService(const QString& computer, const QString& name)
{
    Computer* c = findComputer(computer);
    if (!c)
        return nullptr;
    auto it = c->services.find(name.toUpper());
    return it == c->services.end() ? nullptr : &it->second;
}

void SimServices::addComputer(const QString& computer)
{
    std::lock_guard lock(mutex_);
    computers_[computerKey(computer)];
}

void SimServices::addService(const QString& computer, const Service& service)
{
    std::lock_guard lock(mutex_);
    computers_[computerKey(computer)].services[service.name.toUpper()] = Entry{service, std::nullopt, std::nullopt};
}

void SimServices::removeService(const QString& computer, const QString& name)
{
    std::lock_guard lock(mutex_);
    if (Computer* c = findComputer(computer))
        c->services.erase(name.toUpper());
}

std::optional<SimServices::Service> SimServices::service(const QString& computer, const QString& name)
{
    std::lock_guard lock(mutex_);
    settle();
    if (Entry* e = findService(computer, name))
        return e->service;
    return std::nullopt;
}

void SimServices::setState(const QString& computer, const QString& name, int state)
{
    std::lock_guard lock(mutex_);
    if (Entry* e = findService(computer, name)) {
        e->service.state = state;
        e->pending.reset();
    }
}

void SimServices::setReachable(const QString& computer, bool reachable)
{
    std::lock_guard lock(mutex_);
    computers_[computerKey(computer)].reachable = reachable;
}

void SimServices::setNeedsValidation(const QString& computer, bool needs)
{
    std::lock_guard lock(mutex_);
    computers_[computerKey(computer)].needsValidation = needs;
}

void SimServices::failOn(Call call, int code, const QString& computer, const QString& service, int times)
{
    std::lock_guard lock(mutex_);
    failures_.push_back({call, code, computer, service, times});
}

void SimServices::clearFailures()
{
    std::lock_guard lock(mutex_);
    failures_.clear();
}

QStringList SimServices::calls() const
{
    std::lock_guard lock(mutex_);
    return calls_;
}

void SimServices::settle()
{
    const QDateTime now = clock_.now();
    for (auto& [key, c] : computers_) {
        for (auto& [name, e] : c.services) {
            if (e.pending && e.pending->due <= now) {
                e.service.state = e.pending->target;
                e.jobEnded = e.pending->error;
                e.pending.reset();
            }
        }
    }
}

int SimServices::injected(Call call, const QString& computer, const QString& service)
{
    for (auto it = failures_.begin(); it != failures_.end(); ++it) {
        if (it->call != call || it->times == 0)
            continue;
        if (!it->computer.isEmpty() && computerKey(it->computer) != computerKey(computer))
            continue;
        if (!it->service.isEmpty() && it->service.compare(service, Qt::CaseInsensitive) != 0)
            continue;
        const int code = it->code;
        if (it->times > 0 && --it->times == 0)
            failures_.erase(it);
        return code;
    }
    return svcerror::ok;
}

void SimServices::log(const char* call, const QString& computer, const QString& service)
{
    QString line = QString::fromLatin1(call) + QLatin1Char(' ') + computer;
    if (!service.isEmpty())
        line += QLatin1Char(' ') + service;
    calls_ << line;
}

bool SimServices::validated(const QString& computer) const
{
    auto count = [&](const QStringList& list) {
        return std::count_if(list.begin(), list.end(),
                             [&](const QString& s) { return computerKey(s) == computerKey(computer); });
    };
    return net_.result == 0 && count(net_.added) > count(net_.cancelled);
}

// The state of the computer itself: 0 when calls can reach its manager.
int SimServices::checkComputer(const QString& computer)
{
    Computer* c = findComputer(computer);
    if (!c || !c->reachable)
        return svcerror::unavailable;
    return svcerror::ok;
}

ScmHandle SimServices::openManager(const QString& computer)
{
    std::lock_guard lock(mutex_);
    log("openManager", computer);
    if (const int code = injected(Call::OpenManager, computer, {}))
        return {computer, code};
    if (const int code = checkComputer(computer))
        return {computer, code};
    if (findComputer(computer)->needsValidation && !validated(computer))
        return {computer, svcerror::accessDenied};
    return {computer, svcerror::ok};
}

ServiceHandle SimServices::openService(const ScmHandle& scm, const QString& service)
{
    std::lock_guard lock(mutex_);
    settle();
    log("openService", scm.computer, service);
    ServiceHandle h{scm.computer, service, svcerror::invalidHandle};
    if (!scm.valid())
        return h;
    if ((h.error = injected(Call::OpenService, scm.computer, service)) || (h.error = checkComputer(scm.computer)))
        return h;
    Entry* e = findService(scm.computer, service);
    if (!e)
        h.error = svcerror::noSuchService;
    else if (e->service.denied)
        h.error = svcerror::accessDenied;
    else
        h.name = e->service.name;
    return h;
}

EnumResult SimServices::enumerateServices(const ScmHandle& scm, int stateFilter)
{
    std::lock_guard lock(mutex_);
    settle();
    log("enumerateServices", scm.computer);
    EnumResult out;
    if (!scm.valid()) {
        out.error = svcerror::invalidHandle;
        return out;
    }
    if ((out.error = injected(Call::Enumerate, scm.computer, {})) || (out.error = checkComputer(scm.computer)))
        return out;
    for (const auto& [key, e] : findComputer(scm.computer)->services)
        if (inFilter(e.service.state, stateFilter))
            out.services.push_back(entryOf(e.service));
    return out; // the map keeps them sorted by upper-case key name
}

StatusResult SimServices::queryStatus(const ServiceHandle& service)
{
    std::lock_guard lock(mutex_);
    settle();
    log("queryStatus", service.computer, service.name);
    if (!service.valid())
        return {svcerror::invalidHandle, 0};
    if (const int code = injected(Call::QueryStatus, service.computer, service.name))
        return {code, 0};
    if (const int code = checkComputer(service.computer))
        return {code, 0};
    Entry* e = findService(service.computer, service.name);
    if (!e)
        return {svcerror::noSuchService, 0};
    return {svcerror::ok, e->service.state};
}

ConfigResult SimServices::queryConfig(const ServiceHandle& service)
{
    std::lock_guard lock(mutex_);
    settle();
    log("queryConfig", service.computer, service.name);
    ConfigResult out;
    if (!service.valid()) {
        out.error = svcerror::invalidHandle;
        return out;
    }
    if ((out.error = injected(Call::QueryConfig, service.computer, service.name)) || (out.error = checkComputer(service.computer)))
        return out;
    Entry* e = findService(service.computer, service.name);
    if (!e) {
        out.error = svcerror::noSuchService;
        return out;
    }
    const Service& s = e->service;
    out.config = {s.startType, s.account, s.binaryPath, s.displayName.isEmpty() ? s.name : s.displayName};
    return out;
}

// Every service that needs `name`, directly or through others, with the length of its longest
// chain back to `name`.
std::vector<std::pair<const SimServices::Entry*, int>> SimServices::dependentsOf(Computer& c, const QString& name)
{
    std::map<QString, int> depth;
    std::vector<std::pair<QString, int>> todo = {{name.toUpper(), 0}};
    while (!todo.empty()) {
        auto [current, d] = todo.back();
        todo.pop_back();
        if (d > int(c.services.size()))
            continue; // a dependency loop
        for (const auto& [key, e] : c.services) {
            const bool needs = std::any_of(e.service.dependsOn.begin(), e.service.dependsOn.end(),
                                           [&](const QString& n) { return n.toUpper() == current; });
            if (needs && key != name.toUpper() && depth[key] < d + 1) {
                depth[key] = d + 1;
                todo.push_back({key, d + 1});
            }
        }
    }
    std::vector<std::pair<const Entry*, int>> out;
    for (const auto& [key, d] : depth)
        out.push_back({&c.services.at(key), d});
    std::stable_sort(out.begin(), out.end(), [](const auto& a, const auto& b) { return a.second > b.second; });
    return out;
}

EnumResult SimServices::enumerateDependents(const ServiceHandle& service, int stateFilter)
{
    std::lock_guard lock(mutex_);
    settle();
    log("enumerateDependents", service.computer, service.name);
    EnumResult out;
    if (!service.valid()) {
        out.error = svcerror::invalidHandle;
        return out;
    }
    if ((out.error = injected(Call::EnumerateDependents, service.computer, service.name))
        || (out.error = checkComputer(service.computer)))
        return out;
    if (!findService(service.computer, service.name)) {
        out.error = svcerror::noSuchService;
        return out;
    }
    for (const auto& [e, depth] : dependentsOf(*findComputer(service.computer), service.name))
        if (inFilter(e->service.state, stateFilter))
            out.services.push_back(entryOf(e->service));
    return out;
}

void SimServices::beginTransition(Entry& e, int pendingState, int target, int ms, int error)
{
    if (ms <= 0) {
        e.service.state = target;
        e.pending.reset();
        e.jobEnded = error;
        return;
    }
    e.service.state = pendingState;
    e.pending = Pending{target, clock_.now().addMSecs(ms), error};
    e.jobEnded.reset();
}

SimServices::Entry* SimServices::controlled(const ServiceHandle& service, Call call, const char* name, int& code)
{
    settle();
    log(name, service.computer, service.name);
    code = !service.valid() ? svcerror::invalidHandle : injected(call, service.computer, service.name);
    if (code == 0)
        code = checkComputer(service.computer);
    if (code != 0)
        return nullptr;
    Entry* e = findService(service.computer, service.name);
    if (!e)
        code = svcerror::noSuchService;
    return e;
}

int SimServices::start(const ServiceHandle& service)
{
    std::lock_guard lock(mutex_);
    int code = 0;
    Entry* e = controlled(service, Call::Start, "start", code);
    if (!e)
        return code;
    if (e->service.state != svcstate::stopped)
        return svcerror::alreadyRunning;
    if (e->service.startType == svcstart::disabled)
        return svcerror::serviceDisabled;
    if (e->service.startError)
        return e->service.startError;
    // The services it needs come up first, at once.
    QStringList needed = e->service.dependsOn;
    std::vector<Entry*> toStart;
    for (int i = 0; i < needed.size() && i < 1000; ++i) {
        Entry* d = findService(service.computer, needed[i]);
        if (!d || d->service.startType == svcstart::disabled || d->service.startError)
            return svcerror::dependencyFailed;
        if (d->service.state == svcstate::stopped && std::find(toStart.begin(), toStart.end(), d) == toStart.end()) {
            toStart.push_back(d);
            needed += d->service.dependsOn;
        }
    }
    for (Entry* d : toStart)
        beginTransition(*d, svcstate::startPending, svcstate::running, 0);
    if (e->service.jobError)
        beginTransition(*e, svcstate::startPending, svcstate::stopped, e->service.startMs, e->service.jobError);
    else
        beginTransition(*e, svcstate::startPending, svcstate::running, e->service.startMs);
    return svcerror::ok;
}

int SimServices::stop(const ServiceHandle& service)
{
    std::lock_guard lock(mutex_);
    int code = 0;
    Entry* e = controlled(service, Call::Stop, "stop", code);
    if (!e)
        return code;
    if (e->service.state == svcstate::stopped)
        return svcerror::notActive;
    for (const auto& [d, depth] : dependentsOf(*findComputer(service.computer), service.name))
        if (d->service.state != svcstate::stopped)
            return svcerror::dependentServicesRunning;
    beginTransition(*e, svcstate::stopPending, svcstate::stopped, e->service.stopMs);
    return svcerror::ok;
}

int SimServices::jobResult(const ServiceHandle& service)
{
    std::lock_guard lock(mutex_);
    settle();
    if (!service.valid())
        return svcerror::invalidHandle;
    if (const int code = checkComputer(service.computer))
        return code;
    Entry* e = findService(service.computer, service.name);
    if (!e)
        return svcerror::noSuchService;
    if (e->pending)
        return svcerror::ioPending;
    const int code = e->jobEnded.value_or(svcerror::ok);
    e->jobEnded.reset();
    return code;
}

void SimServices::disconnect(const QString& computer)
{
    std::lock_guard lock(mutex_);
    log("disconnect", computer);
}

} // namespace velmora::platform::sim
