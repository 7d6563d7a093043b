// The Windows service backend against a scripted service manager of the tests' own (impacket's
// SMB server in a network namespace of the test): dependents, start and stop jobs that stay
// pending for a while, and a stop refused while a dependent runs (1051).
#include "svcctlpeer.h"
#include "windowspeer.h"

#include <QtTest>
#include <memory>

using namespace velmora;
using platform::ServiceEntry;
using platform::WindowsServices;
using test::namesOf;
namespace err = platform::svcerror;
namespace st = platform::svcstate;
namespace filter = platform::svcfilter;

namespace {

const QString kHost = QStringLiteral("127.0.0.1");
const QString kUser = QStringLiteral("tester");
const QString kPassword = QStringLiteral("Velm0ra-peer");

} // namespace

class TestWindowsServiceJobs : public QObject {
    Q_OBJECT

    test::PeerInNamespace<test::SvcctlPeer> peer_;
    // One helper for the whole test: the scripted manager serves one pipe at a time.
    std::unique_ptr<WindowsServices> w_;
    platform::ScmHandle scm_;

private slots:
    void initTestCase()
    {
        peer_.start(QStringLiteral("an SMB server on port 445"), kUser, kPassword);
        if (!peer_.skipReason.isEmpty())
            return;
        w_ = std::make_unique<WindowsServices>(
            test::windowsOptions([](const QString&) { return std::optional(WindowsServices::Logon{kUser, kPassword}); }));
        scm_ = w_->openManager(kHost);
        if (scm_.error != err::ok)
            peer_.skipReason = QStringLiteral("the scripted svcctl peer refused the logon: %1").arg(scm_.error);
    }
    void cleanupTestCase() { w_.reset(); }
    void init()
    {
        if (!peer_.skipReason.isEmpty())
            QSKIP(qPrintable(peer_.skipReason));
    }

    void listsDependents()
    {

        const auto spooler = w_->openService(scm_, QStringLiteral("Spooler"));
        QCOMPARE(spooler.error, err::ok);
        QCOMPARE(namesOf(w_->enumerateDependents(spooler, filter::all).services), QStringList({"Fax", "PrintNotify"}));
        QCOMPARE(namesOf(w_->enumerateDependents(spooler, filter::active).services), QStringList({"Fax"}));
        QVERIFY(w_->enumerateDependents(w_->openService(scm_, QStringLiteral("Fax")), filter::all).services.empty());
    }

    // Spooler cannot stop while Fax runs; with Fax stopped it can. (Starts and stops as such
    // are shown against smbd in tst_windowsservices.)
    void stopWithDependentsRunning()
    {
        const auto spooler = w_->openService(scm_, QStringLiteral("Spooler"));
        const auto fax = w_->openService(scm_, QStringLiteral("Fax"));
        QCOMPARE(w_->stop(spooler), err::dependentServicesRunning);
        QCOMPARE(w_->queryStatus(spooler).state, st::running);
        QCOMPARE(w_->stop(fax), err::ok);
        QCOMPARE(w_->jobResult(fax), err::ok);
        QCOMPARE(w_->stop(spooler), err::ok);
        QCOMPARE(w_->jobResult(spooler), err::ok);
        QCOMPARE(w_->queryStatus(spooler).state, st::stopped);
        QCOMPARE(w_->stop(spooler), err::notActive);
    }

    // A slow service's jobs answer "still running" while it is pending, then end.
    void pendingStartAndStop()
    {
        const auto slow = w_->openService(scm_, QStringLiteral("SlowSvc"));
        QCOMPARE(w_->start(slow), err::ok);
        QCOMPARE(w_->jobResult(slow), err::ioPending);
        QCOMPARE(w_->jobResult(slow), err::ok);
        QCOMPARE(w_->queryStatus(slow).state, st::running);
        QCOMPARE(w_->jobResult(slow), err::ok); // reported once; nothing pending any more

        QCOMPARE(w_->stop(slow), err::ok);
        QCOMPARE(w_->queryStatus(slow).state, st::stopPending);
        QCOMPARE(w_->jobResult(slow), err::ok);
        QCOMPARE(w_->queryStatus(slow).state, st::stopped);
    }
};

QTEST_GUILESS_MAIN(TestWindowsServiceJobs)
#include "tst_windowsservicejobs.moc"
