// Real ICMP echo to 1,000 loopback addresses in one call: how long the whole batch takes when
// every address answers, and the time one call takes for a single address.
#include "platform/linux/linuxicmp.h"

#include <QElapsedTimer>
#include <cstdio>

int main()
{
    velmora::platform::LinuxIcmp icmp;
    QStringList addresses;
    for (int i = 0; i < 1000; ++i)
        addresses << QStringLiteral("127.1.%1.%2").arg(i / 250).arg(i % 250 + 1);
    const QByteArray data("HelloServer");

    QElapsedTimer t;
    t.start();
    const auto statuses = icmp.echo(addresses, data, 500);
    const qint64 batchUs = t.nsecsElapsed() / 1000;
    int answered = 0;
    for (int s : statuses)
        answered += s == 0;

    t.restart();
    constexpr int rounds = 200;
    for (int i = 0; i < rounds; ++i)
        icmp.echo({QStringLiteral("127.0.0.1")}, data, 500);
    const qint64 singleUs = t.nsecsElapsed() / 1000 / rounds;

    std::printf("echo_1000_loopback_us: %lld\n", static_cast<long long>(batchUs));
    std::printf("echo_1000_loopback_answered: %d\n", answered);
    std::printf("echo_single_loopback_us: %lld\n", static_cast<long long>(singleUs));
    return 0;
}
