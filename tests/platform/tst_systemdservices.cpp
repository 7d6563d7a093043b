// The systemd backend against a real D-Bus daemon with a mocked systemd on it, and through a
// real sshd on 127.0.0.1 for a remote computer.
#include "platform/linux/systemdservices.h"
#include "support/mockbus.h"
#include "support/systemdfixture.h"

#include <QTest>
#include <QtConcurrent>

#include <csignal>
#include <unistd.h>

using namespace velmora::platform;
using velmora::testsupport::MockSystemdBus;

namespace {

const char* kUnits = R"([
 {"name": "ssh.service", "description": "OpenBSD Secure Shell server", "state": "active", "file_state": "enabled",
  "exec": ["/usr/sbin/sshd", "-D"]},
 {"name": "cups.service", "description": "CUPS Scheduler", "state": "inactive", "file_state": "disabled",
  "user": "lp", "exec": ["/usr/sbin/cupsd", "-l", "-c", "/etc/cups/my printers.conf"]},
 {"name": "db.service", "description": "Database", "state": "active", "file_state": "enabled", "user": "postgres"},
 {"name": "app.service", "description": "Application server", "state": "active", "file_state": "static",
  "user": "www-data", "requires": ["db.service"]},
 {"name": "web.service", "description": "", "state": "active", "file_state": "enabled", "requires": ["app.service"]},
 {"name": "worker.service", "description": "Queue worker", "state": "inactive", "binds_to": ["db.service"]},
 {"name": "masked.service", "description": "Masked one", "file_state": "masked"},
 {"name": "broken.service", "description": "Fails to start", "start_result": "failed"},
 {"name": "slow.service", "description": "Takes its time", "start_ms": 1500, "stop_ms": 1500},
 {"name": "guarded.service", "description": "Needs a password", "needs_auth": true},
 {"name": "files-only.service", "description": "Never loaded", "loaded": false, "file_state": "static"},
 {"name": "getty@.service", "loaded": false, "file_state": "static"},
 {"name": "sshd.service", "loaded": false, "file_state": "alias"},
 {"name": "ghost.service", "load": "not-found", "file_state": ""},
 {"name": "dbus.socket", "description": "D-Bus socket", "state": "active", "file_state": "static"}
])";

QStringList names(const EnumResult& r)
{
    QStringList out;
    for (const auto& s : r.services)
        out << s.name;
    return out;
}

SystemdServices::Options optionsFor(const MockSystemdBus& bus)
{
    SystemdServices::Options o = velmora::test::localSystemdOptions(bus);
    o.callTimeoutMs = 3000;
    o.connectTimeoutMs = 3000;
    return o;
}

// Asks how the last job on the service ended until it has ended.
int waitForJob(SystemdServices& sm, const ServiceHandle& service)
{
    int code = svcerror::ioPending;
    for (int i = 0; i < 200 && code == svcerror::ioPending; ++i) {
        code = sm.jobResult(service);
        if (code == svcerror::ioPending)
            QTest::qWait(50);
    }
    return code;
}

} // namespace

class TestSystemdServices : public QObject {
    Q_OBJECT
private:
    MockSystemdBus bus_;
    QString skip_;

    // A fresh bus per test, so that no test sees another's starts and stops.
    bool startBus()
    {
        bus_.stop();
        const QString error = bus_.start(QString::fromUtf8(kUnits));
        if (!error.isEmpty())
            qWarning("%s", qPrintable(error));
        return error.isEmpty();
    }

    ServiceHandle open(SystemdServices& sm, const QString& name)
    {
        return sm.openService(sm.openManager({}), name);
    }

private slots:
    void initTestCase()
    {
        skip_ = velmora::testsupport::mockBusMissing();
    }

    void init()
    {
        if (!skip_.isEmpty())
            QSKIP(qPrintable(skip_));
        QVERIFY(startBus());
    }

    void cleanupTestCase() { bus_.stop(); }

    void listsAllAndActiveServicesSortedWithStates()
    {
        SystemdServices sm(optionsFor(bus_));
        // This computer's own name is the local computer as well.
        const ScmHandle scm = sm.openManager(QStringLiteral("TESTHOST"));
        QCOMPARE(scm.error, 0);

        const EnumResult all = sm.enumerateServices(scm, svcfilter::all);
        QCOMPARE(all.error, 0);
        QCOMPARE(all.sizeQueryCode(), svcerror::moreData);
        // Loaded services and installed files not loaded; no template, alias, missing unit or socket.
        QCOMPARE(names(all), (QStringList{"app.service", "broken.service", "cups.service", "db.service", "files-only.service",
                                          "guarded.service", "masked.service", "slow.service", "ssh.service", "web.service",
                                          "worker.service"}));
        const auto find = [&](const QString& n) {
            return *std::find_if(all.services.begin(), all.services.end(), [&](const ServiceEntry& e) { return e.name == n; });
        };
        QCOMPARE(find("ssh.service").displayName, QStringLiteral("OpenBSD Secure Shell server"));
        QCOMPARE(find("ssh.service").state, svcstate::running);
        QCOMPARE(find("cups.service").state, svcstate::stopped);
        QCOMPARE(find("web.service").displayName, QStringLiteral("web.service"));
        QCOMPARE(find("files-only.service").displayName, QStringLiteral("files-only.service"));

        // Without an address of its own the backend takes the system bus from the environment.
        const QByteArray saved = qgetenv("DBUS_SYSTEM_BUS_ADDRESS");
        qputenv("DBUS_SYSTEM_BUS_ADDRESS", bus_.address().toUtf8());
        auto fromEnvironment = optionsFor(bus_);
        fromEnvironment.localAddress.clear();
        SystemdServices system(fromEnvironment);
        QCOMPARE(names(system.enumerateServices(system.openManager({}), svcfilter::all)), names(all));
        qputenv("DBUS_SYSTEM_BUS_ADDRESS", saved);

        const EnumResult active = sm.enumerateServices(scm, svcfilter::active);
        QCOMPARE(names(active), (QStringList{"app.service", "db.service", "ssh.service", "web.service"}));

        // A service that is starting counts as active.
        QCOMPARE(bus_.setUnitState("cups.service", "activating"), QString());
        const EnumResult again = sm.enumerateServices(scm, svcfilter::active);
        QVERIFY(names(again).contains("cups.service"));
        QCOMPARE(again.services.front().state, svcstate::running);
        QCOMPARE(std::find_if(again.services.begin(), again.services.end(),
                              [](const ServiceEntry& e) { return e.name == "cups.service"; })->state,
                 svcstate::startPending);
    }

    void detailsGiveStateStartTypeAccountAndProgram()
    {
        SystemdServices sm(optionsFor(bus_));
        ServiceHandle ssh = open(sm, QStringLiteral("ssh")); // the ".service" unit of a bare name
        QCOMPARE(ssh.error, 0);
        QCOMPARE(ssh.name, QStringLiteral("ssh.service"));
        QCOMPARE(sm.queryStatus(ssh).state, svcstate::running);
        const ConfigResult sshConfig = sm.queryConfig(ssh);
        QCOMPARE(sshConfig.error, 0);
        QCOMPARE(sshConfig.config.startType, svcstart::automatic);
        QCOMPARE(sshConfig.config.account, QStringLiteral("root")); // no User=
        QCOMPARE(sshConfig.config.binaryPath, QStringLiteral("/usr/sbin/sshd -D"));
        QCOMPARE(sshConfig.config.displayName, QStringLiteral("OpenBSD Secure Shell server"));

        const ConfigResult cups = sm.queryConfig(open(sm, QStringLiteral("cups.service")));
        QCOMPARE(cups.config.startType, svcstart::manual);
        QCOMPARE(cups.config.account, QStringLiteral("lp"));
        QCOMPARE(cups.config.binaryPath, QStringLiteral("/usr/sbin/cupsd -l -c \"/etc/cups/my printers.conf\""));
        QCOMPARE(sm.queryConfig(open(sm, QStringLiteral("masked.service"))).config.startType, svcstart::disabled);
        QCOMPARE(sm.queryConfig(open(sm, QStringLiteral("app.service"))).config.startType, svcstart::manual); // static

        // A file that is installed but not loaded can be opened and read too.
        const ServiceHandle filesOnly = open(sm, QStringLiteral("files-only.service"));
        QCOMPARE(filesOnly.error, 0);
        QCOMPARE(sm.queryStatus(filesOnly).state, svcstate::stopped);
        const ConfigResult filesOnlyConfig = sm.queryConfig(filesOnly);
        QCOMPARE(filesOnlyConfig.error, 0);
        QCOMPARE(filesOnlyConfig.config.displayName, QStringLiteral("Never loaded"));
        QCOMPARE(filesOnlyConfig.config.startType, svcstart::manual);

        // A unit that failed is a stopped service.
        QCOMPARE(bus_.setUnitState("cups.service", "failed"), QString());
        QCOMPARE(sm.queryStatus(open(sm, QStringLiteral("cups.service"))).state, svcstate::stopped);

        // The state follows the unit.
        QCOMPARE(bus_.setUnitState("ssh.service", "deactivating"), QString());
        QCOMPARE(sm.queryStatus(ssh).state, svcstate::stopPending);
    }

    void detailsRightAfterAListingAgreeWithDirectQueries()
    {
        // The details that follow a listing come from what the listing fetched; they must be
        // what a direct query finds.
        SystemdServices listing(optionsFor(bus_));
        auto direct = optionsFor(bus_);
        direct.reuseListingMs = 0;
        SystemdServices asking(direct);
        for (int filter : {svcfilter::all, svcfilter::active}) {
            const ScmHandle scm = listing.openManager({});
            const EnumResult r = listing.enumerateServices(scm, filter);
            QVERIFY(!r.services.empty());
            for (const ServiceEntry& e : r.services) {
                const ServiceHandle fast = listing.openService(scm, e.name);
                const ServiceHandle slow = asking.openService(asking.openManager({}), e.name);
                QCOMPARE(fast.error, slow.error);
                QCOMPARE(listing.queryStatus(fast).state, asking.queryStatus(slow).state);
                const ServiceConfig a = listing.queryConfig(fast).config, b = asking.queryConfig(slow).config;
                QCOMPARE(a.startType, b.startType);
                QCOMPARE(a.account, b.account);
                QCOMPARE(a.binaryPath, b.binaryPath);
                QCOMPARE(a.displayName, b.displayName);
            }
        }
        // A start ends the reuse: the state read next is the new one.
        const ScmHandle scm = listing.openManager({});
        QCOMPARE(listing.enumerateServices(scm, svcfilter::all).error, 0);
        const ServiceHandle cups = listing.openService(scm, QStringLiteral("cups.service"));
        QCOMPARE(listing.queryStatus(cups).state, svcstate::stopped);
        QCOMPARE(listing.start(cups), 0);
        QCOMPARE(waitForJob(listing, cups), 0);
        QCOMPARE(listing.queryStatus(cups).state, svcstate::running);
    }

    void unknownServicesAndFailedHandles()
    {
        SystemdServices sm(optionsFor(bus_));
        const ScmHandle scm = sm.openManager({});
        QCOMPARE(sm.openService(scm, QStringLiteral("nothere")).error, svcerror::noSuchService);
        QCOMPARE(sm.openService(scm, QStringLiteral("ghost.service")).error, svcerror::noSuchService);
        QCOMPARE(sm.openService(scm, QString()).error, svcerror::noSuchService);

        // Calls on a handle whose open failed answer 6, as with a null handle.
        ScmHandle failed{QStringLiteral("x"), svcerror::unavailable};
        const ServiceHandle none = sm.openService(failed, QStringLiteral("ssh.service"));
        QCOMPARE(none.error, svcerror::invalidHandle);
        QCOMPARE(sm.queryStatus(none).error, svcerror::invalidHandle);
        QCOMPARE(sm.start(none), svcerror::invalidHandle);
        ServiceHandle ssh = sm.openService(scm, QStringLiteral("ssh.service"));
        ServiceManager::close(ssh);
        QCOMPARE(sm.queryConfig(ssh).error, svcerror::invalidHandle);

        // A remote computer without an authenticated connection is refused.
        QCOMPARE(sm.openManager(QStringLiteral("elsewhere")).error, svcerror::accessDenied);
    }

    void statusRightAfterOpeningComesFromTheOpeningOnlyOnce()
    {
        SystemdServices sm(optionsFor(bus_));
        // A check opens and queries at once: the state read by the opening serves the query...
        const ServiceHandle ssh = open(sm, QStringLiteral("ssh.service"));
        QCOMPARE(ssh.error, 0);
        QCOMPARE(sm.queryStatus(ssh).state, svcstate::running);
        // ...once: the next query of the same handle asks the service manager again.
        QCOMPARE(bus_.setUnitState("ssh.service", "failed"), QString());
        QCOMPARE(sm.queryStatus(ssh).state, svcstate::stopped);

        // A query that comes a while after the opening asks as well.
        const ServiceHandle cups = open(sm, QStringLiteral("cups.service"));
        QCOMPARE(bus_.setUnitState("cups.service", "active"), QString());
        QTest::qWait(400);
        QCOMPARE(sm.queryStatus(cups).state, svcstate::running);

        // And so does one that follows another service's opening.
        const ServiceHandle ssh2 = open(sm, QStringLiteral("ssh.service"));
        QCOMPARE(bus_.setUnitState("ssh.service", "active"), QString());
        open(sm, QStringLiteral("cups.service"));
        QCOMPARE(sm.queryStatus(ssh2).state, svcstate::running);
    }

    void startAndStopReturnOnceQueuedAndTellHowTheirJobsEnded()
    {
        SystemdServices sm(optionsFor(bus_));
        const ServiceHandle slow = open(sm, QStringLiteral("slow.service"));
        QCOMPARE(sm.start(slow), 0);
        // The request is queued; the unit is on its way up and the job still runs.
        QCOMPARE(sm.queryStatus(slow).state, svcstate::startPending);
        QCOMPARE(sm.jobResult(slow), svcerror::ioPending);
        QCOMPARE(waitForJob(sm, slow), 0);
        QCOMPARE(sm.queryStatus(slow).state, svcstate::running);
        QCOMPARE(sm.start(slow), svcerror::alreadyRunning);

        QCOMPARE(sm.start(open(sm, QStringLiteral("masked.service"))), svcerror::serviceDisabled);
        const ServiceHandle broken = open(sm, QStringLiteral("broken.service"));
        QCOMPARE(sm.start(broken), 0);
        QCOMPARE(waitForJob(sm, broken), svcerror::startFailed);
        QCOMPARE(sm.jobResult(broken), 0); // told once
        QCOMPARE(sm.queryStatus(broken).state, svcstate::stopped);
        QCOMPARE(sm.start(open(sm, QStringLiteral("guarded.service"))), svcerror::accessDenied);

        QCOMPARE(sm.stop(slow), 0);
        QCOMPARE(sm.queryStatus(slow).state, svcstate::stopPending);
        QCOMPARE(waitForJob(sm, slow), 0);
        QCOMPARE(sm.queryStatus(slow).state, svcstate::stopped);
        QCOMPARE(sm.stop(slow), svcerror::notActive);

        // A job whose end is not announced is still found to have ended.
        QCOMPARE(bus_.setSilentJobs(true), QString());
        const ServiceHandle cups = open(sm, QStringLiteral("cups.service"));
        QCOMPARE(sm.start(cups), 0);
        QCOMPARE(waitForJob(sm, cups), 0);
        QCOMPARE(sm.queryStatus(cups).state, svcstate::running);
    }

    void stopIsRefusedWhileDependentsRunAndTheyComeInStopOrder()
    {
        SystemdServices sm(optionsFor(bus_));
        const ServiceHandle db = open(sm, QStringLiteral("db.service"));
        const EnumResult running = sm.enumerateDependents(db, svcfilter::active);
        QCOMPARE(running.error, 0);
        QCOMPARE(running.sizeQueryCode(), svcerror::moreData);
        // web needs app, app needs db: web must go first.
        QCOMPARE(names(running), (QStringList{"web.service", "app.service"}));
        QCOMPARE(running.services.back().displayName, QStringLiteral("Application server"));
        QCOMPARE(names(sm.enumerateDependents(db, svcfilter::all)),
                 (QStringList{"web.service", "app.service", "worker.service"}));

        QCOMPARE(sm.stop(db), svcerror::dependentServicesRunning);
        QCOMPARE(sm.queryStatus(db).state, svcstate::running); // nothing was stopped
        QCOMPARE(sm.queryStatus(open(sm, QStringLiteral("web.service"))).state, svcstate::running);

        for (const ServiceEntry& e : running.services) {
            const ServiceHandle h = open(sm, e.name);
            QCOMPARE(sm.stop(h), 0);
            QCOMPARE(waitForJob(sm, h), 0);
        }
        const EnumResult none = sm.enumerateDependents(db, svcfilter::active);
        QCOMPARE(none.error, 0);
        QCOMPARE(none.sizeQueryCode(), 0);
        QCOMPARE(sm.stop(db), 0);
        QCOMPARE(waitForJob(sm, db), 0);
        QCOMPARE(sm.queryStatus(db).state, svcstate::stopped);
    }

    // A unit that is part of another (PartOf=) is stopped along with it: it is listed as a
    // dependent, and the stop is refused while it runs.
    void partOfUnitsAreDependentsToo()
    {
        QCOMPARE(bus_.addUnits(QStringLiteral(R"([{"name": "spool.service", "state": "active"},
 {"name": "spool-cleaner.service", "description": "Cleans the spool", "state": "active", "part_of": ["spool.service"]}])")),
                 QString());
        SystemdServices sm(optionsFor(bus_));
        const ServiceHandle spool = open(sm, QStringLiteral("spool.service"));
        QCOMPARE(names(sm.enumerateDependents(spool, svcfilter::active)), QStringList{"spool-cleaner.service"});
        QCOMPARE(sm.stop(spool), svcerror::dependentServicesRunning);
        const ServiceHandle cleaner = open(sm, QStringLiteral("spool-cleaner.service"));
        QCOMPARE(sm.stop(cleaner), 0);
        QCOMPARE(waitForJob(sm, cleaner), 0);
        QCOMPARE(sm.stop(spool), 0);
    }

    void accessDeniedThenAllowed()
    {
        SystemdServices sm(optionsFor(bus_));
        const ScmHandle scm = sm.openManager({});
        QCOMPARE(bus_.setAccessDenied(true), QString());
        QCOMPARE(sm.enumerateServices(scm, svcfilter::all).error, svcerror::accessDenied);
        QCOMPARE(sm.enumerateServices(scm, svcfilter::all).sizeQueryCode(), svcerror::accessDenied);
        QCOMPARE(sm.start(sm.openService(scm, QStringLiteral("cups.service"))), svcerror::accessDenied);
        QCOMPARE(bus_.setAccessDenied(false), QString());
        QCOMPARE(sm.enumerateServices(scm, svcfilter::all).error, 0);
        QCOMPARE(sm.start(sm.openService(scm, QStringLiteral("cups.service"))), 0);
    }

    // The unique names of this process's connections on the mock bus.
    QStringList ownBusConnections() const
    {
        QProcess p;
        p.start(QStringLiteral("busctl"), {QStringLiteral("--address=") + bus_.address(), QStringLiteral("list"),
                                           QStringLiteral("--unique"), QStringLiteral("--no-legend")});
        if (!p.waitForFinished(30000))
            return {QStringLiteral("busctl did not finish")};
        QStringList names;
        for (const QString& line : QString::fromUtf8(p.readAllStandardOutput()).split(QLatin1Char('\n'))) {
            const QStringList fields = line.simplified().split(QLatin1Char(' '));
            if (fields.size() > 1 && fields.at(1) == QString::number(::getpid()))
                names << fields.at(0);
        }
        return names;
    }

    void disconnectingThisComputerKeepsTheLocalConnection()
    {
        SystemdServices sm(optionsFor(bus_));
        const ScmHandle scm = sm.openManager({});
        QCOMPARE(scm.error, 0);
        const QStringList before = ownBusConnections();
        QCOMPARE(before.size(), 1);
        // The server list writes this computer's name in upper case, the host name is lower case.
        for (const QString& name : {QStringLiteral("TESTHOST"), QStringLiteral("testhost"), QString()}) {
            sm.disconnect(name);
            QCOMPARE(sm.enumerateServices(scm, svcfilter::all).error, 0);
            QCOMPARE(ownBusConnections(), before);
        }
        // A remote computer's name leaves the local connection alone as well.
        sm.disconnect(QStringLiteral("OTHERHOST"));
        QCOMPARE(sm.enumerateServices(scm, svcfilter::all).error, 0);
        QCOMPARE(ownBusConnections(), before);
    }

    void callsFromManyThreadsAtOnce()
    {
        SystemdServices sm(optionsFor(bus_));
        QList<int> rounds(8);
        std::iota(rounds.begin(), rounds.end(), 0);
        const QList<int> failures = QtConcurrent::blockingMapped(rounds, [&sm](int) {
            int failed = 0;
            for (int i = 0; i < 10; ++i) {
                const ScmHandle scm = sm.openManager({});
                const EnumResult r = sm.enumerateServices(scm, svcfilter::all);
                const ServiceHandle ssh = sm.openService(scm, QStringLiteral("ssh.service"));
                if (r.error || r.services.size() != 11 || sm.queryStatus(ssh).state != svcstate::running
                    || sm.queryConfig(ssh).config.account != QLatin1String("root"))
                    ++failed;
            }
            return failed;
        });
        QCOMPARE(failures, QList<int>(8, 0));
    }

    void busThatStopsAnsweringTimesOutAndRecovers()
    {
        auto options = optionsFor(bus_);
        options.callTimeoutMs = 500;
        options.connectTimeoutMs = 500;
        SystemdServices sm(options);
        const ScmHandle scm = sm.openManager({});
        QCOMPARE(scm.error, 0);

        // systemd hangs: every call ends with the time-out code.
        QCOMPARE(::kill(bus_.mockPid(), SIGSTOP), 0);
        QCOMPARE(sm.enumerateServices(scm, svcfilter::all).error, svcerror::requestTimeout);
        QCOMPARE(sm.openService(scm, QStringLiteral("ssh.service")).error, svcerror::requestTimeout);
        ::kill(bus_.mockPid(), SIGCONT);
        QCOMPARE(sm.enumerateServices(scm, svcfilter::all).error, 0);

        // The bus itself hangs: a new connection cannot be made.
        SystemdServices fresh(options);
        QCOMPARE(::kill(bus_.daemonPid(), SIGSTOP), 0);
        const int code = fresh.openManager({}).error;
        ::kill(bus_.daemonPid(), SIGCONT);
        QCOMPARE(code, svcerror::unavailable);
        QCOMPARE(fresh.openManager({}).error, 0);

        // No bus at all.
        auto nowhere = options;
        nowhere.localAddress = QStringLiteral("unix:path=") + bus_.folder() + QStringLiteral("/no-such-socket");
        SystemdServices absent(nowhere);
        QCOMPARE(absent.openManager({}).error, svcerror::unavailable);
    }

    void remoteComputerThroughSsh()
    {
        if (QStandardPaths::findExecutable(QStringLiteral("ssh")).isEmpty() || !QFileInfo::exists(QStringLiteral("/usr/sbin/sshd")))
            QSKIP("ssh or sshd is not installed (packages openssh-client, openssh-server)");
        QMap<QString, QString> ssh;
        const QString error = bus_.startSshd(ssh);
        if (error.contains(QStringLiteral("not installed")))
            QSKIP(qPrintable(error));
        if (!error.isEmpty() && ::geteuid() != 0)
            QSKIP(qPrintable(QStringLiteral("sshd needs root here: ") + error));
        QCOMPARE(error, QString());
        const QString control = ssh.value(QStringLiteral("SSH_CONTROL"));

        auto options = optionsFor(bus_);
        options.controlPath = [control](const QString& server) {
            return server == QLatin1String("127.0.0.1") ? control : QString();
        };
        SystemdServices sm(options);
        const ScmHandle remote = sm.openManager(QStringLiteral("127.0.0.1"));
        QCOMPARE(remote.error, 0);
        const EnumResult all = sm.enumerateServices(remote, svcfilter::all);
        QCOMPARE(all.error, 0);
        QCOMPARE(all.services.size(), size_t(11));
        const ServiceHandle cups = sm.openService(remote, QStringLiteral("cups.service"));
        QCOMPARE(sm.queryConfig(cups).config.account, QStringLiteral("lp"));
        QCOMPARE(sm.start(cups), 0);
        QCOMPARE(waitForJob(sm, cups), 0);
        QCOMPARE(sm.queryStatus(cups).state, svcstate::running);
        QCOMPARE(sm.stop(sm.openService(remote, QStringLiteral("db.service"))), svcerror::dependentServicesRunning);

        // The connection closes (the user removed the server): the next call finds the computer
        // gone, and after that there is no authenticated connection any more.
        QCOMPARE(::kill(pid_t(ssh.value(QStringLiteral("SSH_MASTER_PID")).toLongLong()), SIGTERM), 0);
        for (int i = 0; i < 100 && QFileInfo::exists(control); ++i)
            QTest::qWait(50);
        QCOMPARE(sm.queryStatus(cups).error, svcerror::unavailable);
        QCOMPARE(sm.openManager(QStringLiteral("127.0.0.1")).error, svcerror::accessDenied);
    }
};

QTEST_MAIN(TestSystemdServices)
#include "tst_systemdservices.moc"
