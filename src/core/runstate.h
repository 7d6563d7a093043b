#pragma once
// The state shared by the windows and modules for the whole run. The main window owns the one
// instance and hands it to every module that needs it.
#include "core/datafolder.h"
#include "core/settings.h"
#include "platform/platform.h"

#include <QDateTime>
#include <QString>

namespace velmora::core {

struct RunState : DataFiles {
    platform::Platform platform;

    // Data folder (also shown in the main window's hidden field Text7).
    QString datafolder;
    SettingsRecord settings;

    QString localcomputer; // this computer's name
    QString currentserver; // the server in Text1, upper case

    // Mail settings from "SMTPServer" and "MailProfile".
    QString smtpserver;
    int smtpport = 0;
    QString smtpsender;
    QString mailprofile;
    bool usesmtp = true;

    // Result of the last ping.
    QString pingaddress;
    QString pingresult;

    // Check-cycle state.
    QString currentservice;
    QString currentstate;
    QString lasterror;
    bool serverreachable = false;
    bool checknowactive = false;
    QDateTime nextscan;

    // Results of the alert actions, never cleared.
    QString restartresult, programresult, alertresult, netsendresult, soundresult;
    // The last recipients taken from "Send Email to:" and "Net Message Send to:" entries.
    QString mailaddress, netsendrecipient;

    QString folder() const override { return datafolder; }
};

} // namespace velmora::core
