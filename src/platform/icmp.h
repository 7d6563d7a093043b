#pragma once
// ICMP echo ("ping"). Both calls block and may be made from any thread.
#include <QByteArray>
#include <QString>
#include <QStringList>
#include <vector>

namespace velmora::platform {

class Icmp {
public:
    // How long resolve() waits for a name server.
    static constexpr int resolveTimeoutMs = 1000;

    virtual ~Icmp() = default;
    // The dotted IPv4 address a name resolves to (a dotted address resolves to itself without
    // asking any name server), or an empty text when it does not resolve within
    // resolveTimeoutMs.
    virtual QString resolve(const QString& name) = 0;
    // resolve() for many names at once: the names are looked up side by side, so one slow name
    // never holds up the answers of the others, and a name without an answer within timeoutMs
    // gets an empty text. Returns one address per name, in order, after timeoutMs at the latest;
    // lookups still under way then are abandoned, and nothing waits for them, not even the end
    // of the program.
    virtual QStringList resolveAll(const QStringList& names, int timeoutMs) = 0;
    // Sends one echo request carrying data to every address at once and waits up to timeoutMs
    // for the replies. Returns one status per address, in the same order:
    //   0      a reply came
    //   -1     the address is not a dotted IPv4 address (an empty text included)
    //   11002  destination net unreachable      11003  destination host unreachable
    //   11004  destination protocol unreachable 11005  destination port unreachable
    //   11010  no reply within the time-out     11013  TTL expired in transit
    //   11050  general failure (the request could not be sent, or this program may not ping
    //          at all: see unavailableReason())
    // A server is never reported as answering when it could not be asked.
    virtual std::vector<int> echo(const QStringList& addresses, const QByteArray& data, int timeoutMs) = 0;
    // Empty when this program may send echo requests. Otherwise one paragraph for the user that
    // says why it may not and what to do about it; echo() then gives 11050 for every dotted
    // address.
    virtual QString unavailableReason() = 0;
};

} // namespace velmora::platform
