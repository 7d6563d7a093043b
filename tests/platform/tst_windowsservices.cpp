// The Windows service backend against Samba's smbd in a network namespace of the test's own:
// listing, details, start and stop of Spooler, Windows error codes, logons, and the time-outs
// of a helper that stops answering; the connection step with its password in the secret store,
// and a program started anew whose scans log on with it without asking; and the routing of each
// server to systemd or Windows by the ServerTypes file.
#include "core/servertypes.h"
#include "platform/connectionrouter.h"
#include "platform/linux/disktextfiles.h"
#include "platform/linux/windowsconnections.h"
#include "platform/servicerouter.h"
#include "platform/sim/simcredentialsprompt.h"
#include "platform/sim/simplatform.h"
#include "smbdpeer.h"
#include "support/bytefiles.h"
#include "windowspeer.h"

#include <QDir>
#include <QTcpServer>
#include <QtTest>
#include <atomic>

using namespace velmora;
using platform::ServiceEntry;
using platform::ServiceManager;
using platform::WindowsServices;
using test::namesOf;
namespace err = platform::svcerror;
namespace st = platform::svcstate;
namespace filter = platform::svcfilter;

namespace {

const QString kHost = QStringLiteral("127.0.0.1");
const QString kUser = QStringLiteral("root");
const QString kPassword = QStringLiteral("Velm0ra-secret");

// The command lines of every running helper.
QStringList helperCommandLines()
{
    QStringList out;
    for (const QString& pid : QDir(QStringLiteral("/proc")).entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        QFile f(QStringLiteral("/proc/%1/cmdline").arg(pid));
        if (f.open(QIODevice::ReadOnly) && f.peek(4096).contains("velmora-svcctl"))
            out << QString::fromLocal8Bit(f.readAll().replace('\0', ' '));
    }
    return out;
}

} // namespace

class TestWindowsServices : public QObject {
    Q_OBJECT

    test::PeerInNamespace<test::SmbdPeer> smbd_;
    std::atomic<int> logonsAsked_{0};

    WindowsServices::Options options(const QString& password = kPassword)
    {
        return test::windowsOptions([this, password](const QString&) -> std::optional<WindowsServices::Logon> {
            ++logonsAsked_;
            return WindowsServices::Logon{kUser, password};
        });
    }

private slots:
    void initTestCase() { smbd_.start(QStringLiteral("smbd"), kUser, kPassword); }
    void init()
    {
        if (!smbd_.skipReason.isEmpty())
            QSKIP(qPrintable(smbd_.skipReason));
    }

    void listsAndDescribesTheServices()
    {
        WindowsServices w(options());
        const auto scm = w.openManager(kHost);
        QCOMPARE(scm.error, err::ok);

        const auto all = w.enumerateServices(scm, filter::all);
        QCOMPARE(all.error, err::ok);
        // Sorted by key name without regard to case.
        QCOMPARE(namesOf(all.services), QStringList({"NETLOGON", "RemoteRegistry", "Spooler", "WINS"}));
        QCOMPARE(all.services[2].displayName, QStringLiteral("Print Spooler"));
        QCOMPARE(namesOf(w.enumerateServices(scm, filter::active).services),
                 QStringList({"RemoteRegistry", "Spooler"}));
        QCOMPARE(namesOf(w.enumerateServices(scm, filter::inactive).services), QStringList({"NETLOGON", "WINS"}));

        auto spooler = w.openService(scm, QStringLiteral("Spooler"));
        QCOMPARE(spooler.error, err::ok);
        QCOMPARE(w.queryStatus(spooler).state, st::running);
        const auto config = w.queryConfig(spooler);
        QCOMPARE(config.error, err::ok);
        QCOMPARE(config.config.startType, platform::svcstart::manual);
        QCOMPARE(config.config.account, QStringLiteral("LocalSystem"));
        QCOMPARE(config.config.displayName, QStringLiteral("Print Spooler"));
        const auto netlogon = w.queryConfig(w.openService(scm, QStringLiteral("NETLOGON")));
        QCOMPARE(netlogon.config.startType, platform::svcstart::disabled);

        QCOMPARE(w.openService(scm, QStringLiteral("NoSuchService")).error, err::noSuchService);
        ServiceManager::close(spooler);
        QCOMPARE(w.queryStatus(spooler).error, err::invalidHandle);
        QCOMPARE(w.start(spooler), err::invalidHandle);
    }

    void stopsAndStartsSpooler()
    {
        WindowsServices w(options());
        const auto scm = w.openManager(kHost);
        QCOMPARE(scm.error, err::ok);
        const auto spooler = w.openService(scm, QStringLiteral("Spooler"));
        QCOMPARE(w.start(spooler), err::alreadyRunning);
        QCOMPARE(w.stop(spooler), err::ok);
        QTRY_COMPARE(w.jobResult(spooler), err::ok);
        QCOMPARE(w.queryStatus(spooler).state, st::stopped);
        QCOMPARE(w.start(spooler), err::ok);
        QTRY_COMPARE(w.jobResult(spooler), err::ok);
        QCOMPARE(w.queryStatus(spooler).state, st::running);
        // The manager's own refusals come through as it gives them.
        QCOMPARE(w.start(w.openService(scm, QStringLiteral("NETLOGON"))), err::serviceDisabled);
        QCOMPARE(w.start(w.openService(scm, QStringLiteral("WINS"))), err::accessDenied);
    }

    void logonsAndPasswords()
    {
        // (The calls answer a refused logon, or none known, as "access denied": see the table of
        // stored logons below.)
        WindowsServices good(options());
        QCOMPARE(good.tryLogon(kHost, {kUser, QStringLiteral("wrong")}), 1326);
        QCOMPARE(good.tryLogon(kHost, {QStringLiteral("VELMORA\\") + kUser, kPassword}), err::ok);

        // The password goes over the helper's standard input, never on its command line.
        QCOMPARE(good.openManager(kHost).error, err::ok);
        const QStringList lines = helperCommandLines();
        QVERIFY(!lines.isEmpty());
        for (const QString& line : lines)
            QVERIFY2(!line.contains(kPassword), qPrintable(line));

        // After disconnect the next call logs on anew.
        const int before = logonsAsked_;
        good.disconnect(kHost);
        QCOMPARE(good.openManager(kHost).error, err::ok);
        QCOMPARE(logonsAsked_.load(), before + 1);
    }

    void unreachableServersAnswer1722()
    {
        WindowsServices::Options o = options();
        o.connectTimeoutMs = 1500;
        WindowsServices w(o);
        // A server that takes the connection and never answers: given up after the time-out.
        QTcpServer silent;
        QVERIFY(silent.listen(QHostAddress(QStringLiteral("127.0.0.3")), 445));
        QCOMPARE(w.openManager(QStringLiteral("127.0.0.3")).error, err::unavailable);
    }

    void helperThatStopsAnsweringTimesOut()
    {
        // A stand-in helper that logs on, then never answers again.
        QTemporaryDir dir;
        const QString script = dir.filePath(QStringLiteral("stuck.sh"));
        test::putBytes(script, "read line; echo '{\"error\": 0}'; read line; exec sleep 60\n");
        WindowsServices::Options o = options();
        o.python = QStringLiteral("/bin/sh");
        o.helper = script;
        o.callTimeoutMs = 300;
        WindowsServices w(o);
        const auto scm = w.openManager(kHost);
        QCOMPARE(scm.error, err::ok);
        const int before = logonsAsked_;
        QCOMPARE(w.enumerateServices(scm, filter::all).error, err::requestTimeout);
        // The stuck helper was ended; the next call starts a new one and logs on again.
        QCOMPARE(w.openService(scm, QStringLiteral("Spooler")).error, err::requestTimeout);
        QCOMPARE(logonsAsked_.load(), before + 1);
    }

    void connectionStepKeepsThePasswordInTheSecretStore()
    {
        WindowsServices w(options());
        platform::sim::SimPlatform sim;
        platform::sim::SimCredentialsPrompt prompt;
        platform::WindowsConnections logons(
            [&w](const QString& server, const WindowsServices::Logon& l) { return w.tryLogon(server, l); },
            sim.secrets, prompt, sim.worker);
        QObject context;
        auto connect = [&](const QString& user, const QString& password) {
            int code = -1;
            logons.add(&context, kHost, user, password, [&](int c) { code = c; });
            return code;
        };
        const QString key = platform::WindowsConnections::secretKey(kHost);

        // Nothing stored: the user is asked, a wrong password asks again, the right one is kept.
        prompt.credentials = {{{kUser, QStringLiteral("wrong")}}, {{kUser, kPassword}}};
        QCOMPARE(connect({}, {}), err::ok);
        QCOMPARE(prompt.asked, QStringList({"credentials 127.0.0.1 ", "credentials 127.0.0.1 root refused"}));
        QCOMPARE(sim.secrets.secrets.value(key), kUser + QLatin1Char('\n') + kPassword);
        QCOMPARE(logons.logonFor(kHost)->password, kPassword);

        // A cancelled question cancels the connection; an unreachable server is a missing path.
        sim.secrets.secrets.clear();
        logons.cancel(kHost);
        QCOMPARE(connect({}, {}), 1223);
        int code = -1;
        logons.add(&context, QStringLiteral("127.0.0.2"), kUser, kPassword, [&](int c) { code = c; });
        QCOMPARE(code, 53);
    }

    void aProgramStartedAnewChecksWithTheStoredLogonWithoutAsking_data()
    {
        QTest::addColumn<QString>("stored"); // the secret store's "user" newline "password"
        QTest::addColumn<int>("code");       // of each check
        QTest::addColumn<int>("logons");     // logons tried over two checks
        QTest::newRow("right logon stored") << kUser + "\n" + kPassword << err::ok << 1;
        QTest::newRow("refused logon stored") << kUser + "\nwrong" << err::accessDenied << 1;
        QTest::newRow("nothing stored") << QString() << err::accessDenied << 0;
    }
    void aProgramStartedAnewChecksWithTheStoredLogonWithoutAsking()
    {
        QFETCH(QString, stored);
        QFETCH(int, code);
        QFETCH(int, logons);
        // What a fresh run has: the secret store and nothing in memory; nobody double-clicked.
        platform::sim::SimPlatform sim;
        if (!stored.isEmpty())
            sim.secrets.secrets.insert(platform::WindowsConnections::secretKey(kHost), stored);
        platform::sim::SimCredentialsPrompt prompt;
        std::unique_ptr<WindowsServices> w;
        platform::WindowsConnections connections(
            [&w](const QString& server, const WindowsServices::Logon& l) { return w->tryLogon(server, l); }, sim.secrets,
            prompt, sim.worker);
        int tried = 0;
        WindowsServices::Options o = test::windowsOptions([&](const QString& server) {
            auto logon = connections.logonFor(server);
            tried += logon.has_value();
            return logon;
        });
        o.logonRefused = [&](const QString& server) { connections.logonRefused(server); };
        w = std::make_unique<WindowsServices>(o);
        // Two checks, as two scans open the manager ("Open Service Manager failed" on an error);
        // a refused logon is not tried again (an account may lock after a few).
        for (int check = 0; check < 2; ++check)
            QCOMPARE(w->openManager(kHost).error, code);
        QCOMPARE(tried, logons);
        QVERIFY(prompt.asked.isEmpty());
    }

    void eachServerGoesToTheManagerOfItsType()
    {
        QTemporaryDir dir;
        platform::DiskTextFiles files;
        const QString path = dir.filePath(QStringLiteral("ServerTypes"));
        QVERIFY(files.writeLines(path, {"WinBox\twindows"}));
        const core::FixedDataFolder folder(dir.path());
        core::ServerTypes types(files, folder);

        platform::sim::SimPlatform sim;
        sim.services.addService(kHost, {QStringLiteral("cron")});
        WindowsServices windows(options());
        platform::ServiceRouter router(sim.services, windows, [&](const QString& s) { return types.isWindows(s); });
        auto names = [&] { return namesOf(router.enumerateServices(router.openManager(kHost), filter::all).services); };
        QCOMPARE(names(), QStringList({"cron"}));
        QVERIFY(types.setWindows(kHost, true));
        QCOMPARE(names(), QStringList({"NETLOGON", "RemoteRegistry", "Spooler", "WINS"}));
    }
};

QTEST_GUILESS_MAIN(TestWindowsServices)
#include "tst_windowsservices.moc"
