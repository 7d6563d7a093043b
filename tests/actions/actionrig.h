#pragma once
// The alert actions as the program builds them, on the simulated platform: a data folder with
// an empty job log, the job log, the alert mailer and the action dispatcher whose alert signal is
// a timer of the simulated clock. A test may swap platform services (a real clock, opener,
// worker or TCP network) before build().
#include "actions/alertmailer.h"
#include "actions/dispatcher.h"
#include "actions/emailoptionsdialog.h"
#include "core/datafolder.h"
#include "core/runstate.h"
#include "joblog/joblog.h"
#include "platform/linux/qttcpsocket.h"
#include "platform/sim/simplatform.h"

#include <QCheckBox>
#include <QLineEdit>
#include <QRadioButton>
#include <QTemporaryDir>
#include <QTest>
#include <memory>
#include <optional>

namespace velmora::test {

struct ActionRig {
    ActionRig()
    {
        state.platform = sim.platform();
        state.datafolder = dir.path();
        sim.files.create(file(core::files::jobslog));
        sim.services.addService("SRV1", {.name = "spooler", .displayName = "Print Spooler",
                                         .state = platform::svcstate::stopped, .startMs = 1500});
        sim.services.addService("SRV1", {.name = "cups", .displayName = "CUPS", .state = platform::svcstate::running});
        signal = sim.clock.createTimer(&owner, QStringLiteral("Timer6"), 250);
    }
    ActionRig& build()
    {
        const platform::Platform& p = state.platform;
        log = std::make_unique<joblog::JobLog>(p, state);
        mailer = std::make_unique<actions::AlertMailer>(*p.files, p.secrets, p.system, *p.clock, *p.tcp,
                                                        *p.profilemail, *p.boxes, *log, state.datafolder);
        mailer->refreschmailsettings();
        dispatcher = std::make_unique<actions::ActionDispatcher>(p, *log, *mailer, *p.messenger, signal);
        return *this;
    }
    // Real TCP sockets in place of the simulated network.
    void useRealTcp()
    {
        realTcp = std::make_unique<platform::QtTcpNetwork>();
        state.platform.tcp = realTcp.get();
    }
    // Waits up to 30 s for one alert mail: true when it went out.
    bool sendemail(const QString& to, const actions::MailText& text = {"s", "b"})
    {
        std::optional<bool> sent;
        mailer->sendemail(to, text, [&](bool ok) { sent = ok; });
        return QTest::qWaitFor([&] { return sent.has_value(); }, 30000) && *sent;
    }
    // Stores the SMTP server: e-mail goes over SMTP.
    void storeSmtp(const QString& server, int port, const QString& sender = QStringLiteral("alerts@corp.test"))
    {
        sim.files.writeLines(file(core::files::smtpserver), {server, QString::number(port), sender});
    }
    QString file(const QString& name) const { return core::dataFile(dir.path(), name); }
    QStringList lines() { return sim.files.readLines(file(core::files::jobslog)).value_or(QStringList()); }
    static core::Failure failure(const std::array<QString, 5>& entries, const QString& service = "spooler",
                                 const QString& server = "SRV1", const QString& state = "Stopped")
    {
        core::MonitoredService record;
        record.servicename = service;
        record.actions = entries;
        return {server, record, state, {}};
    }
    // Runs one dispatch on SRV1; true when it has ended by the time the call returns.
    bool run(const std::array<QString, 5>& entries, const QString& service = QStringLiteral("spooler"))
    {
        const int before = dones;
        dispatcher->runactions(failure(entries, service), [this] { ++dones; });
        return dones > before;
    }
    const actions::ActionResults& results() const { return dispatcher->results(); }

    QTemporaryDir dir;
    std::unique_ptr<platform::QtTcpNetwork> realTcp;
    platform::sim::SimPlatform sim;
    core::RunState state;
    QObject owner;
    platform::Timer* signal = nullptr;
    std::unique_ptr<joblog::JobLog> log;
    std::unique_ptr<actions::AlertMailer> mailer;
    std::unique_ptr<actions::ActionDispatcher> dispatcher;
    int dones = 0;
};

// Switches e-mail on in the shown options dialog and fills the SMTP server's fields; with a
// user, the login too.
inline void fillSmtpOptions(actions::EmailOptionsDialog* d, const QString& server, const QString& sender,
                            const QString& user = {}, const QString& password = {})
{
    if (!d->Check1->isChecked())
        d->Check1->click();
    d->Option2->click();
    d->Text2->setText(server);
    d->Text4->setText(sender);
    if (user.isEmpty())
        return;
    d->Check2->click();
    d->Text5->setText(user);
    d->Text6->setText(password);
}

} // namespace velmora::test
