// The systemd backend against Debian's own systemd, run as a user manager on a private bus, and
// through a real sshd on 127.0.0.1 for a remote computer. What the real manager cannot show here
// is tested against a mocked one in tst_systemdrefusals.
#include "platform/linux/systemdservices.h"
#include "servicecontrol/queries.h"
#include "support/mockbus.h"
#include "support/systemdfixture.h"

#include <QTest>
#include <QtConcurrent>

#include <csignal>

using namespace velmora::platform;
using velmora::testsupport::RealSystemd;
namespace unit = velmora::testsupport::unit;

namespace {

const QMap<QString, QString> kUnits = {
    {"ssh.service", unit::running("OpenBSD Secure Shell server")},
    {"sshd.service", unit::link("ssh.service")},
    {"cups.service", unit::service("CUPS Scheduler", R"(User=lp
ExecStart=/usr/sbin/cupsd -l -c "/etc/cups/my printers.conf")")},
    {"db.service", unit::running("Database")},
    {"app.service", unit::running("Application server", "Requires=db.service\nAfter=db.service\nWants=ghost.service")},
    {"web.service", "[Unit]\nRequires=app.service\nAfter=app.service\n[Service]\nExecStart=/bin/sleep infinity\n"},
    // Enabled, but its condition keeps it from starting: loaded and stopped.
    {"worker.service", unit::running("Queue worker", "BindsTo=db.service\nAfter=db.service\n"
                                                     "ConditionPathExists=/nonexistent/velmora")},
    {"spool.service", unit::running("Print spool")},
    {"spool-cleaner.service", unit::running("Cleans the spool", "PartOf=spool.service")},
    {"masked.service", unit::link("/dev/null")},
    {"broken.service", unit::failing("Fails to start")},
    {"slow.service", unit::slow("Takes its time", 2)},
    {"starting.service", unit::slowStart("Starts for a minute")},
    {"stopping.service", unit::service("Stops slowly", "ExecStart=/bin/sleep infinity\nExecStop=/bin/sleep 60")},
    {"files-only.service", unit::service("Never loaded", "ExecStart=/bin/true")},
    {"dynamic.service", unit::service("Made-up user", "DynamicUser=yes\nExecStart=/bin/true")},
    {"getty@.service", unit::running("Getty on %I")},
};
const QStringList kEnabled = {"ssh.service", "db.service", "app.service", "web.service", "worker.service", "spool.service",
                              "spool-cleaner.service"};

QStringList names(const EnumResult& r)
{
    QStringList out;
    for (const auto& s : r.services)
        out << s.name;
    return out;
}

// Asks how the last job on the service ended until it has ended.
int waitForJob(SystemdServices& sm, const ServiceHandle& service)
{
    int code = svcerror::ioPending;
    for (int i = 0; i < 400 && code == svcerror::ioPending; ++i) {
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
    RealSystemd manager_;
    QString skip_;

    SystemdServices::Options options() const
    {
        SystemdServices::Options o = velmora::test::localSystemdOptions(manager_.address());
        o.callTimeoutMs = 3000;
        o.connectTimeoutMs = 3000;
        return o;
    }

    static ServiceHandle open(SystemdServices& sm, const QString& name) { return sm.openService(sm.openManager({}), name); }

private slots:
    void initTestCase() { skip_ = RealSystemd::missing(); }

    // A fresh manager per test, so that no test sees another's starts and stops.
    void init()
    {
        if (!skip_.isEmpty())
            QSKIP(qPrintable(skip_));
        const QString error = manager_.start(kUnits, kEnabled);
        QVERIFY2(error.isEmpty(), qPrintable(error));
    }

    void cleanup() { manager_.stop(); }

    void listsAllAndActiveServicesSortedWithStates()
    {
        SystemdServices sm(options());
        // This computer's own name is the local computer as well.
        const ScmHandle scm = sm.openManager("TESTHOST");
        QCOMPARE(scm.error, 0);
        const EnumResult all = sm.enumerateServices(scm, svcfilter::all);
        QCOMPARE(all.error, 0);
        QCOMPARE(all.sizeQueryCode(), svcerror::moreData);
        // Loaded services and installed files not loaded; no template, alias, missing unit or target.
        QCOMPARE(names(all), (QStringList{"app.service", "broken.service", "cups.service", "db.service", "dbus.service",
                                          "dynamic.service",
                                          "files-only.service", "masked.service", "slow.service", "spool-cleaner.service",
                                          "spool.service", "ssh.service", "starting.service", "stopping.service",
                                          "systemd-exit.service", "web.service", "worker.service"}));
        const auto find = [&](const QString& n) {
            return *std::find_if(all.services.begin(), all.services.end(), [&](const ServiceEntry& e) { return e.name == n; });
        };
        QCOMPARE(find("ssh.service").displayName, QStringLiteral("OpenBSD Secure Shell server"));
        QCOMPARE(find("web.service").displayName, QStringLiteral("web.service"));
        QCOMPARE(find("files-only.service").displayName, QStringLiteral("files-only.service"));
        QCOMPARE(names(sm.enumerateServices(scm, svcfilter::active)),
                 (QStringList{"app.service", "db.service", "dbus.service", "spool-cleaner.service", "spool.service",
                              "ssh.service", "web.service"}));

        // Without an address of its own the backend takes the system bus from the environment.
        const QByteArray saved = qgetenv("DBUS_SYSTEM_BUS_ADDRESS");
        qputenv("DBUS_SYSTEM_BUS_ADDRESS", manager_.address().toUtf8());
        auto fromEnvironment = options();
        fromEnvironment.localAddress.clear();
        SystemdServices system(fromEnvironment);
        QCOMPARE(names(system.enumerateServices(system.openManager({}), svcfilter::all)), names(all));
        qputenv("DBUS_SYSTEM_BUS_ADDRESS", saved);
    }

    // Every way the state of a unit is read gives the same state: a check, a status query after
    // opening the service, and the listing (which shows it as the item's icon).
    void eachStateReadsTheSameEveryWay_data()
    {
        QTest::addColumn<QString>("service");
        QTest::addColumn<QStringList>("systemctl"); // commands, run one after the other
        QTest::addColumn<int>("state");
        QTest::addColumn<int>("error");
        QTest::newRow("running") << "ssh.service" << QStringList() << svcstate::running << 0;
        QTest::newRow("an alias") << "sshd" << QStringList() << svcstate::running << 0;
        QTest::newRow("stopped") << "cups.service" << QStringList() << svcstate::stopped << 0;
        QTest::newRow("failed") << "broken.service" << QStringList{"start broken.service"} << svcstate::stopped << 0;
        QTest::newRow("starting") << "starting.service" << QStringList{"start --no-block starting.service"}
                                  << svcstate::startPending << 0;
        QTest::newRow("stopping") << "stopping.service"
                                  << QStringList{"start stopping.service", "stop --no-block stopping.service"}
                                  << svcstate::stopPending << 0;
        QTest::newRow("no such unit") << "nothere.service" << QStringList() << 0 << svcerror::noSuchService;
    }
    void eachStateReadsTheSameEveryWay()
    {
        QFETCH(QString, service);
        QFETCH(QStringList, systemctl);
        QFETCH(int, state);
        QFETCH(int, error);
        for (const QString& command : systemctl)
            manager_.systemctl(command.split(' '));
        SystemdServices sm(options());
        const ServiceCheck check = sm.checkServices({}, {service}).front();
        QCOMPARE(check.serviceError, error);
        QCOMPARE(check.state, state);
        const auto queried = velmora::servicecontrol::openAndQuery(sm, {}, service);
        QCOMPARE(queried.serviceError, error);
        QCOMPARE(queried.state, state);
        const auto listing = velmora::servicecontrol::queryListing(sm, {}, svcfilter::all);
        for (size_t i = 0; i < listing.services.size(); ++i)
            if (listing.services[i].name == SystemdServices::unitName(service))
                QCOMPARE(listing.details[i].state, state);
    }

    void detailsGiveStartTypeAccountAndProgram_data()
    {
        QTest::addColumn<QString>("service");
        QTest::addColumn<int>("startType");
        QTest::addColumn<QString>("account");
        QTest::addColumn<QString>("program");
        QTest::addColumn<QString>("displayName");
        QTest::newRow("enabled") << "ssh.service" << svcstart::automatic << "root" << "/bin/sleep infinity"
                                 << "OpenBSD Secure Shell server";
        QTest::newRow("static, a user, a blank in an argument")
            << "cups.service" << svcstart::manual << "lp" << R"(/usr/sbin/cupsd -l -c "/etc/cups/my printers.conf")"
            << "CUPS Scheduler";
        QTest::newRow("masked") << "masked.service" << svcstart::disabled << "root" << "" << "masked.service";
        QTest::newRow("no description") << "web.service" << svcstart::automatic << "root" << "/bin/sleep infinity"
                                        << "web.service";
        QTest::newRow("never loaded") << "files-only.service" << svcstart::manual << "root" << "/bin/true"
                                      << "Never loaded";
        QTest::newRow("a made-up user") << "dynamic.service" << svcstart::manual << "dynamic" << "/bin/true"
                                        << "Made-up user";
    }
    void detailsGiveStartTypeAccountAndProgram()
    {
        QFETCH(QString, service);
        SystemdServices sm(options());
        const ServiceHandle h = open(sm, service);
        QCOMPARE(h.error, 0);
        QCOMPARE(h.name, SystemdServices::unitName(service));
        const ConfigResult r = sm.queryConfig(h);
        QCOMPARE(r.error, 0);
        QTEST(r.config.startType, "startType");
        QTEST(r.config.account, "account");
        QTEST(r.config.binaryPath, "program");
        QTEST(r.config.displayName, "displayName");
    }

    void unknownServicesAndFailedHandles()
    {
        SystemdServices sm(options());
        const ScmHandle scm = sm.openManager({});
        QCOMPARE(sm.openService(scm, "nothere").error, svcerror::noSuchService);
        QCOMPARE(sm.openService(scm, "ghost.service").error, svcerror::noSuchService); // wanted, without a file
        QCOMPARE(sm.openService(scm, QString()).error, svcerror::noSuchService);

        // Calls on a handle whose open failed answer 6, as with a null handle.
        ScmHandle failed{"x", svcerror::unavailable};
        const ServiceHandle none = sm.openService(failed, "ssh.service");
        QCOMPARE(none.error, svcerror::invalidHandle);
        QCOMPARE(sm.queryStatus(none).error, svcerror::invalidHandle);
        QCOMPARE(sm.start(none), svcerror::invalidHandle);
        ServiceHandle ssh = sm.openService(scm, "ssh.service");
        ServiceManager::close(ssh);
        QCOMPARE(sm.queryConfig(ssh).error, svcerror::invalidHandle);

        // A remote computer without an authenticated connection is refused.
        QCOMPARE(sm.openManager("elsewhere").error, svcerror::accessDenied);
    }

    // The checks of one computer go out together and come back in their order, each with what
    // opening the manager and the service would have found; names systemd finds invalid make
    // it ask unit by unit.
    void checksOfOneComputerComeBackInTheirOrder()
    {
        SystemdServices sm(options());
        const QStringList services = {"ssh", "nothere", "", "cups.service", "bad name!", "sshd.service", "ssh"};
        const std::vector<ServiceCheck> checks = sm.checkServices({}, services);
        QStringList got;
        for (const ServiceCheck& c : checks)
            got << QStringLiteral("%1/%2/%3").arg(c.scmError).arg(c.serviceError).arg(c.state);
        QCOMPARE(got, (QStringList{"0/0/4", "0/1060/0", "0/1060/0", "0/0/1", "0/1060/0", "0/0/4", "0/0/4"}));
        QCOMPARE(sm.checkServices({}, {"ssh", "cups"}).back().state, svcstate::stopped); // all names valid
        for (const ServiceCheck& c : sm.checkServices("elsewhere", {"ssh", "cups"}))
            QCOMPARE(c.scmError, svcerror::accessDenied);
    }

    void startAndStopReturnOnceQueuedAndTellHowTheirJobsEnded()
    {
        SystemdServices sm(options());
        const ServiceHandle slow = open(sm, "slow.service");
        QCOMPARE(sm.start(slow), 0);
        // The request is queued; the unit is on its way up and the job still runs.
        QCOMPARE(sm.queryStatus(slow).state, svcstate::startPending);
        QCOMPARE(sm.jobResult(slow), svcerror::ioPending);
        QCOMPARE(waitForJob(sm, slow), 0);
        QCOMPARE(sm.queryStatus(slow).state, svcstate::running);
        QCOMPARE(sm.start(slow), svcerror::alreadyRunning);

        QCOMPARE(sm.start(open(sm, "masked.service")), svcerror::serviceDisabled);
        const ServiceHandle broken = open(sm, "broken.service");
        QCOMPARE(sm.start(broken), 0);
        QCOMPARE(waitForJob(sm, broken), svcerror::startFailed);
        QCOMPARE(sm.jobResult(broken), 0); // told once

        QCOMPARE(sm.stop(slow), 0);
        QCOMPARE(sm.queryStatus(slow).state, svcstate::stopPending);
        QCOMPARE(waitForJob(sm, slow), 0);
        QCOMPARE(sm.queryStatus(slow).state, svcstate::stopped);
        QCOMPARE(sm.stop(slow), svcerror::notActive);
    }

    // A stop is refused while a unit that requires, is bound to or is part of the service runs;
    // stopping those in the order listed, top down, lets the service stop.
    void dependentsComeInStopOrderAndHoldTheStop_data()
    {
        QTest::addColumn<QString>("service");
        QTest::addColumn<QStringList>("running");
        QTest::addColumn<QStringList>("all");
        // web needs app, app needs db: web must go first; worker is bound to db.
        QTest::newRow("requires, binds to") << "db.service" << QStringList{"web.service", "app.service"}
                                            << QStringList{"web.service", "app.service", "worker.service"};
        QTest::newRow("part of") << "spool.service" << QStringList{"spool-cleaner.service"}
                                 << QStringList{"spool-cleaner.service"};
    }
    void dependentsComeInStopOrderAndHoldTheStop()
    {
        QFETCH(QString, service);
        QFETCH(QStringList, running);
        SystemdServices sm(options());
        const ServiceHandle root = open(sm, service);
        const EnumResult active = sm.enumerateDependents(root, svcfilter::active);
        QCOMPARE(active.error, 0);
        QCOMPARE(names(active), running);
        QTEST(names(sm.enumerateDependents(root, svcfilter::all)), "all");

        QCOMPARE(sm.stop(root), svcerror::dependentServicesRunning);
        QCOMPARE(sm.queryStatus(root).state, svcstate::running); // nothing was stopped
        for (const QString& name : running) {
            const ServiceHandle h = open(sm, name);
            QCOMPARE(sm.stop(h), 0);
            QCOMPARE(waitForJob(sm, h), 0);
        }
        QCOMPARE(sm.enumerateDependents(root, svcfilter::active).sizeQueryCode(), 0);
        QCOMPARE(sm.stop(root), 0);
        QCOMPARE(waitForJob(sm, root), 0);
        QCOMPARE(sm.queryStatus(root).state, svcstate::stopped);
    }

    void callsFromManyThreadsAtOnce()
    {
        SystemdServices sm(options());
        QList<int> rounds(8);
        std::iota(rounds.begin(), rounds.end(), 0);
        const QList<int> failures = QtConcurrent::blockingMapped(rounds, [&sm](int) {
            int failed = 0;
            for (int i = 0; i < 10; ++i) {
                const ScmHandle scm = sm.openManager({});
                const EnumResult r = sm.enumerateServices(scm, svcfilter::all);
                const ServiceHandle ssh = sm.openService(scm, "ssh.service");
                if (r.error || r.services.size() != 17 || sm.queryStatus(ssh).state != svcstate::running
                    || sm.queryConfig(ssh).config.account != QLatin1String("root")
                    || sm.checkServices({}, {"cups", "ssh"}).back().state != svcstate::running)
                    ++failed;
            }
            return failed;
        });
        QCOMPARE(failures, QList<int>(8, 0));
    }

    void busThatStopsAnsweringTimesOutAndRecovers()
    {
        auto o = options();
        o.callTimeoutMs = 500;
        o.connectTimeoutMs = 500;
        SystemdServices sm(o);
        const ScmHandle scm = sm.openManager({});
        QCOMPARE(scm.error, 0);

        // systemd hangs: every call ends with the time-out code.
        QCOMPARE(::kill(manager_.managerPid(), SIGSTOP), 0);
        QCOMPARE(sm.enumerateServices(scm, svcfilter::all).error, svcerror::requestTimeout);
        QCOMPARE(sm.openService(scm, "ssh.service").error, svcerror::requestTimeout);
        ::kill(manager_.managerPid(), SIGCONT);
        QCOMPARE(sm.enumerateServices(scm, svcfilter::all).error, 0);

        // The bus itself hangs: a new connection cannot be made.
        SystemdServices fresh(o);
        QCOMPARE(::kill(manager_.busPid(), SIGSTOP), 0);
        const int code = fresh.openManager({}).error;
        ::kill(manager_.busPid(), SIGCONT);
        QCOMPARE(code, svcerror::unavailable);
        QCOMPARE(fresh.openManager({}).error, 0);
    }

    void remoteComputerThroughSsh()
    {
        if (QStandardPaths::findExecutable("ssh").isEmpty() || !QFileInfo::exists("/usr/sbin/sshd"))
            QSKIP("ssh or sshd is not installed (packages openssh-client, openssh-server)");
        velmora::testsupport::MockSystemdBus sshd; // only its sshd, bridging to the real manager's bus
        QMap<QString, QString> ssh;
        const QString error = sshd.startSshd(ssh, manager_.address());
        if (error.contains("not installed"))
            QSKIP(qPrintable(error));
        QCOMPARE(error, QString());
        const QString control = ssh.value("SSH_CONTROL");

        auto o = options();
        // ssh logs in through the control connection and every call crosses it: bounds a
        // loaded machine keeps well within.
        o.connectTimeoutMs = 15000;
        o.callTimeoutMs = 15000;
        o.controlPath = [control](const QString& server) { return server == QLatin1String("127.0.0.1") ? control : QString(); };
        SystemdServices sm(o);
        const ScmHandle remote = sm.openManager("127.0.0.1");
        QCOMPARE(remote.error, 0);
        QCOMPARE(sm.enumerateServices(remote, svcfilter::all).services.size(), size_t(17));
        const ServiceHandle cups = sm.openService(remote, "cups.service");
        const ServiceHandle spool = sm.openService(remote, "spool-cleaner.service");
        QCOMPARE(sm.stop(spool), 0);
        QCOMPARE(waitForJob(sm, spool), 0);
        QCOMPARE(sm.checkServices("127.0.0.1", {"spool-cleaner", "db"}).front().state, svcstate::stopped);

        // The connection closes (the user removed the server): from the next call on there is no
        // authenticated connection any more.
        QCOMPARE(::kill(pid_t(ssh.value("SSH_MASTER_PID").toLongLong()), SIGTERM), 0);
        QTRY_VERIFY(!QFileInfo::exists(control));
        QCOMPARE(sm.queryStatus(cups).error, svcerror::accessDenied);
        QCOMPARE(sm.openManager("127.0.0.1").error, svcerror::accessDenied);
    }
};

QTEST_MAIN(TestSystemdServices)
#include "tst_systemdservices.moc"
