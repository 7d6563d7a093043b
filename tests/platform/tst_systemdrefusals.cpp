// The systemd backend against a mocked systemd, for what Debian's own systemd as a user manager
// cannot show here: its own user may do everything (no refusal, no polkit), it announces the end
// of every job, and without a cgroup v2 freezer it cannot pause (freeze) a unit.
#include "platform/linux/systemdservices.h"
#include "servicecontrol/queries.h"
#include "support/mockbus.h"
#include "support/systemdfixture.h"

#include <QTest>

using namespace velmora::platform;
using velmora::testsupport::MockSystemdBus;

namespace {

const char* kUnits = R"([
 {"name": "web.service", "description": "Web server", "state": "active"},
 {"name": "cups.service", "description": "CUPS Scheduler", "state": "inactive"},
 {"name": "guarded.service", "description": "Needs a password", "needs_auth": true}
])";

} // namespace

class TestSystemdRefusals : public QObject {
    Q_OBJECT
private:
    MockSystemdBus bus_;

    SystemdServices::Options options() const { return velmora::test::localSystemdOptions(bus_.address()); }

private slots:
    void init()
    {
        if (const QString missing = velmora::testsupport::mockBusMissing(); !missing.isEmpty())
            QSKIP(qPrintable(missing));
        bus_.stop();
        const QString error = bus_.start(QString::fromUtf8(kUnits));
        QVERIFY2(error.isEmpty(), qPrintable(error));
    }

    void cleanupTestCase() { bus_.stop(); }

    void accessDeniedThenAllowed()
    {
        SystemdServices sm(options());
        const ScmHandle scm = sm.openManager({});
        QCOMPARE(sm.start(sm.openService(scm, "guarded.service")), svcerror::accessDenied);
        QCOMPARE(bus_.call("SetAccessDenied", {"b", "true"}), QString());
        QCOMPARE(sm.enumerateServices(scm, svcfilter::all).sizeQueryCode(), svcerror::accessDenied);
        QCOMPARE(sm.start(sm.openService(scm, "cups.service")), svcerror::accessDenied);
        QCOMPARE(bus_.call("SetAccessDenied", {"b", "false"}), QString());
        QCOMPARE(sm.enumerateServices(scm, svcfilter::all).error, 0);
        QCOMPARE(sm.start(sm.openService(scm, "cups.service")), 0);
    }

    void aJobWhoseEndIsNotAnnouncedIsStillSeenToEnd()
    {
        QCOMPARE(bus_.call("SetSilentJobs", {"b", "true"}), QString());
        SystemdServices sm(options());
        const ServiceHandle cups = sm.openService(sm.openManager({}), "cups.service");
        QCOMPARE(sm.start(cups), 0);
        QTRY_COMPARE(sm.jobResult(cups), 0);
        QCOMPARE(sm.queryStatus(cups).state, svcstate::running);
    }

    // A paused unit, or one on its way in or out of that, is never taken for a running one:
    // not in the listing (its icon), not by the details right after it, not by a check.
    void pausedUnitsAreNeverRunning_data()
    {
        QTest::addColumn<QString>("freezer");
        QTest::addColumn<int>("state");
        QTest::newRow("frozen") << "frozen" << svcstate::paused;
        QTest::newRow("freezing") << "freezing" << svcstate::pausePending;
        QTest::newRow("thawing") << "thawing" << svcstate::continuePending;
    }
    void pausedUnitsAreNeverRunning()
    {
        QFETCH(QString, freezer);
        QFETCH(int, state);
        QCOMPARE(bus_.call("SetFreezerState", {"ss", "web.service", freezer}), QString());
        SystemdServices sm(options());
        const auto listing = velmora::servicecontrol::queryListing(sm, {}, svcfilter::all);
        QCOMPARE(listing.services.front().name, QStringLiteral("cups.service"));
        QCOMPARE(listing.services.back().name, QStringLiteral("web.service"));
        QCOMPARE(listing.details.back().state, state);
        QCOMPARE(velmora::servicecontrol::openAndQuery(sm, {}, "web.service").state, state);
        QCOMPARE(sm.checkServices({}, {"web.service"}).front().state, state);
    }
};

QTEST_MAIN(TestSystemdRefusals)
#include "tst_systemdrefusals.moc"
