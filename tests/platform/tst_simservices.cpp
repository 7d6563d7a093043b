// The simulated fleet's scripted behaviour, which the window tests rely on.
#include "platform/sim/simplatform.h"

#include <QTest>

using namespace velmora::platform;
using velmora::platform::sim::SimPlatform;
using velmora::platform::sim::SimServices;

namespace {

SimServices::Service service(const QString& name, int state, QStringList dependsOn = {})
{
    SimServices::Service s;
    s.name = name;
    s.displayName = name + QStringLiteral(" display");
    s.state = state;
    s.dependsOn = std::move(dependsOn);
    return s;
}

QStringList names(const EnumResult& r)
{
    QStringList out;
    for (const auto& s : r.services)
        out << s.name;
    return out;
}

} // namespace

class TestSimServices : public QObject {
    Q_OBJECT
private slots:
    void transitionsTakeTheirTimeOnTheSimulatedClock()
    {
        SimPlatform p;
        SimServices::Service spooler = service("Spooler", svcstate::stopped);
        spooler.startMs = 3000;
        spooler.stopMs = 1000;
        p.services.addService({}, spooler);
        ServiceManager& sm = *p.platform().services;

        const ServiceHandle h = sm.openService(sm.openManager(p.system.computer_name), "spooler");
        QCOMPARE(h.error, 0);
        QCOMPARE(sm.start(h), 0);
        QCOMPARE(sm.queryStatus(h).state, svcstate::startPending);
        QCOMPARE(sm.start(h), svcerror::alreadyRunning);
        p.clock.advance(2999);
        QCOMPARE(sm.queryStatus(h).state, svcstate::startPending);
        p.clock.advance(1);
        QCOMPARE(sm.queryStatus(h).state, svcstate::running);
        QCOMPARE(sm.stop(h), 0);
        QCOMPARE(sm.enumerateServices(sm.openManager({}), svcfilter::active).services.front().state, svcstate::stopPending);
        p.clock.advance(1000);
        QCOMPARE(sm.queryStatus(h).state, svcstate::stopped);
        QCOMPARE(sm.enumerateServices(sm.openManager({}), svcfilter::active).sizeQueryCode(), 0);
        QCOMPARE(sm.stop(h), svcerror::notActive);
    }

    void remoteComputerRefusesAccessUntilValidated()
    {
        SimPlatform p;
        p.services.addService("SERVER1", service("W3SVC", svcstate::running));
        p.services.setNeedsValidation("SERVER1", true);
        ServiceManager& sm = *p.platform().services;
        QCOMPARE(sm.openManager("server1").error, svcerror::accessDenied);
        QObject context;
        p.net.add(&context, "SERVER1", {}, {}, [](int) {});
        QCOMPARE(sm.openManager("server1").error, 0);
        p.net.cancel("SERVER1");
        QCOMPARE(sm.openManager("server1").error, svcerror::accessDenied);

        QCOMPARE(sm.openManager("NOSUCHBOX").error, svcerror::unavailable);
        p.services.setReachable("SERVER1", false);
        QCOMPARE(sm.openManager("server1").error, svcerror::unavailable);
    }

    void dependentsComeInStopOrderAndBlockTheStop()
    {
        SimPlatform p;
        p.services.addService({}, service("LanmanWorkstation", svcstate::running));
        p.services.addService({}, service("Browser", svcstate::running, {"LanmanWorkstation"}));
        p.services.addService({}, service("Netlogon", svcstate::running, {"LanmanWorkstation", "Browser"}));
        p.services.addService({}, service("Messenger", svcstate::stopped, {"LanmanWorkstation"}));
        ServiceManager& sm = *p.platform().services;
        const ScmHandle scm = sm.openManager({});
        const ServiceHandle ws = sm.openService(scm, "LanmanWorkstation");
        QCOMPARE(names(sm.enumerateDependents(ws, svcfilter::active)), (QStringList{"Netlogon", "Browser"}));
        QCOMPARE(sm.enumerateDependents(ws, svcfilter::all).services.size(), size_t(3));
        QCOMPARE(sm.stop(ws), svcerror::dependentServicesRunning);
        QCOMPARE(sm.stop(sm.openService(scm, "Netlogon")), 0);
        QCOMPARE(sm.stop(sm.openService(scm, "Browser")), 0);
        QCOMPARE(sm.stop(ws), 0);

        // Starting a service starts what it needs.
        QCOMPARE(sm.start(sm.openService(scm, "Netlogon")), 0);
        QCOMPARE(sm.queryStatus(ws).state, svcstate::running);
        QCOMPARE(sm.queryStatus(sm.openService(scm, "Browser")).state, svcstate::running);
    }

    void scriptedRefusalsAndInjectedFailures()
    {
        SimPlatform p;
        SimServices::Service disabled = service("Alerter", svcstate::stopped);
        disabled.startType = svcstart::disabled;
        SimServices::Service failing = service("Fax", svcstate::stopped);
        failing.startError = svcerror::startFailed;
        SimServices::Service secret = service("Secret", svcstate::running);
        secret.denied = true;
        for (const auto& s : {disabled, failing, secret})
            p.services.addService({}, s);
        ServiceManager& sm = *p.platform().services;
        const ScmHandle scm = sm.openManager({});
        QCOMPARE(sm.start(sm.openService(scm, "Alerter")), svcerror::serviceDisabled);
        QCOMPARE(sm.start(sm.openService(scm, "Fax")), svcerror::startFailed);
        QCOMPARE(sm.openService(scm, "Secret").error, svcerror::accessDenied);
        QCOMPARE(sm.openService(scm, "Nothing").error, svcerror::noSuchService);

        p.services.failOn(SimServices::Call::QueryConfig, svcerror::accessDenied, {}, "fax", 1);
        const ServiceHandle fax = sm.openService(scm, "Fax");
        QCOMPARE(sm.queryConfig(fax).error, svcerror::accessDenied);
        QCOMPARE(sm.queryConfig(fax).error, 0); // only once
        QCOMPARE(sm.queryConfig(fax).config.displayName, QStringLiteral("Fax display"));

        // A service that stops by itself.
        p.services.setState({}, "Secret", svcstate::stopped);
        QCOMPARE(p.services.service({}, "secret")->state, svcstate::stopped);
        QVERIFY(p.services.calls().contains("start  Fax"));
    }
};

QTEST_MAIN(TestSimServices)
#include "tst_simservices.moc"
