#include "monitoring/reachability.h"

#include <QHash>
#include <QPointer>
#include <QTimer>

#include <memory>

namespace velmora::monitoring {

QString pingStatusText(int code)
{
    static const QHash<int, QString> texts = {
        {-1, QStringLiteral("inet_addr: bad IP format")},
        {0, QStringLiteral("ip success")},
        {500, QStringLiteral("ping timeout")},
        {11001, QStringLiteral("ip buf too_small")},
        {11002, QStringLiteral("ip dest net unreachable")},
        {11003, QStringLiteral("ip dest host unreachable")},
        {11004, QStringLiteral("ip dest prot unreachable")},
        {11005, QStringLiteral("ip dest port unreachable")},
        {11006, QStringLiteral("ip no resources")},
        {11007, QStringLiteral("ip bad option")},
        {11008, QStringLiteral("ip hw_error")},
        {11009, QStringLiteral("ip packet too_big")},
        {11010, QStringLiteral("ip req timed out")},
        {11011, QStringLiteral("ip bad req")},
        {11012, QStringLiteral("ip bad route")},
        {11013, QStringLiteral("ip ttl expired transit")},
        {11014, QStringLiteral("ip ttl expired reassem")},
        {11015, QStringLiteral("ip param_problem")},
        {11016, QStringLiteral("ip source quench")},
        {11017, QStringLiteral("ip option too_big")},
        {11018, QStringLiteral("ip bad destination")},
        {11019, QStringLiteral("ip addr deleted")},
        {11020, QStringLiteral("ip spec mtu change")},
        {11021, QStringLiteral("ip mtu_change")},
        {11022, QStringLiteral("ip unload")},
        {11023, QStringLiteral("ip addr added")},
        {11050, QStringLiteral("ip general failure")},
        {11255, QStringLiteral("ip pending")},
    };
    return texts.value(code, QStringLiteral("unknown  msg returned"));
}

QString pingResultText(int code)
{
    return QString::number(code) + QStringLiteral("   [ ") + pingStatusText(code) + QStringLiteral(" ]");
}

Reachability::Reachability(platform::Icmp& icmp, platform::Worker& worker) : icmp_(icmp), worker_(worker) {}

std::vector<PingOutcome> Reachability::pingNow(platform::Icmp& icmp, const QStringList& names)
{
    // Names are resolved side by side, each within the same time limit: one slow name server
    // never holds up the others, and nothing waits for a lookup that does not end.
    const QStringList addresses = icmp.resolveAll(names, platform::Icmp::resolveTimeoutMs);
    const std::vector<int> codes = icmp.echo(addresses, echoData, timeoutMs);
    std::vector<PingOutcome> out;
    out.reserve(size_t(names.size()));
    for (qsizetype i = 0; i < names.size(); ++i) {
        const int code = size_t(i) < codes.size() ? codes[size_t(i)] : 11050;
        out.push_back({addresses[i], pingResultText(code)});
    }
    return out;
}

void Reachability::pingAll(const QStringList& names, QObject* context,
                           std::function<void(const std::vector<PingOutcome>&)> done)
{
    platform::Icmp* icmp = &icmp_;
    worker_.run(context, [icmp, names, done = std::move(done)]() -> std::function<void()> {
        auto outcomes = pingNow(*icmp, names);
        return [outcomes = std::move(outcomes), done] { done(outcomes); };
    });
}

namespace {

bool isDottedAddress(const QString& name)
{
    const QStringList parts = name.split(QLatin1Char('.'));
    if (parts.size() != 4)
        return false;
    for (const QString& p : parts) {
        bool ok = false;
        if (p.isEmpty() || p.size() > 3 || p.toInt(&ok) > 255 || !ok)
            return false;
    }
    return true;
}

// What a batch still has to hand over, shared by its jobs on the user-interface thread.
struct Delivery {
    QPointer<QObject> context;
    std::function<void(const std::vector<PingAnswer>&)> part;
    std::function<void()> done;
    int jobsLeft = 0;
    int slicesQueued = 0;

    void finishIfLast()
    {
        if (jobsLeft == 0 && slicesQueued == 0 && context && done)
            done();
    }
};

// Hands answers[from..] over one slice now and the rest one slice per turn of the event loop.
void deliverSlices(const std::shared_ptr<Delivery>& d, std::shared_ptr<std::vector<PingAnswer>> answers, size_t from)
{
    if (!d->context)
        return;
    const size_t to = std::min(answers->size(), from + size_t(Reachability::sliceSize));
    if (from < to)
        d->part(std::vector<PingAnswer>(answers->begin() + qsizetype(from), answers->begin() + qsizetype(to)));
    if (to < answers->size()) {
        ++d->slicesQueued;
        QTimer::singleShot(0, d->context.data(), [d, answers, to] {
            --d->slicesQueued;
            deliverSlices(d, answers, to);
        });
        return;
    }
    d->finishIfLast();
}

} // namespace

void Reachability::pingInParts(const QStringList& names, QObject* context,
                               std::function<void(const std::vector<PingAnswer>&)> part, std::function<void()> done)
{
    // Dotted addresses in one job, names in another: a name server that does not answer holds
    // up only the names.
    std::vector<qsizetype> groups[2];
    for (qsizetype i = 0; i < names.size(); ++i)
        groups[isDottedAddress(names[i]) ? 0 : 1].push_back(i);
    auto d = std::make_shared<Delivery>();
    d->context = context;
    d->part = std::move(part);
    d->done = std::move(done);
    for (const auto& group : groups)
        d->jobsLeft += group.empty() ? 0 : 1;
    if (d->jobsLeft == 0) {
        d->finishIfLast();
        return;
    }
    platform::Icmp* icmp = &icmp_;
    for (auto& group : groups) {
        if (group.empty())
            continue;
        QStringList batch;
        batch.reserve(qsizetype(group.size()));
        for (qsizetype i : group)
            batch << names[i];
        worker_.run(context, [icmp, batch, rows = std::move(group), d]() -> std::function<void()> {
            auto outcomes = pingNow(*icmp, batch);
            auto answers = std::make_shared<std::vector<PingAnswer>>();
            answers->reserve(outcomes.size());
            for (size_t k = 0; k < outcomes.size(); ++k)
                answers->push_back({rows[k], std::move(outcomes[k])});
            return [d, answers] {
                --d->jobsLeft;
                deliverSlices(d, answers, 0);
            };
        });
    }
}

} // namespace velmora::monitoring
