#include "shell/startup.h"

#include "core/datafolder.h"
#include "core/monitoredservices.h"
#include "core/runstate.h"
#include "core/serverfile.h"
#include "platform/formcontrols.h"
#include "servicecontrol/connections.h"

#include <QDir>

namespace velmora::shell {

using platform::MsgIcon;

Startup::Startup(const platform::Platform& platform, core::RunState& state, core::MonitoredServices& monitored,
                 servicecontrol::Connections& connections, QObject* parent)
    : QObject(parent), p_(platform), state_(state), monitored_(monitored), connections_(connections)
{
}

void Startup::run()
{
    state_.settings.endmarker = QStringLiteral("eof");
    emit begun();
    state_.datafolder = core::chooseDataFolder(*p_.system);
    emit dataFolderChosen(state_.datafolder);
    // A folder that somebody else may write into is never used: links put there would steer
    // this program's writes onto other files.
    if (const QString why = p_.files->folderProblem(state_.datafolder); !why.isEmpty()) {
        p_.tray->remove();
        p_.boxes->show(core::unsafeFolderText(state_.datafolder, why), MsgIcon::Critical);
        emit refused();
        return;
    }
    const QString programFolder = QDir::cleanPath(p_.system->programFolder());
    const QString moved = core::dataFolderMovedText(
        *p_.system, state_.datafolder,
        !programFolder.isEmpty() && p_.files->exists(core::dataFile(programFolder, core::files::computerlist)));
    core::readSettings(*p_.files, state_.file(core::files::settings), state_.settings);
    if (p_.system->platformId() != 2) {
        p_.boxes->show(QStringLiteral("This Program is designed for Windows NT/2000/XP only !         "),
                       MsgIcon::Exclamation);
        p_.tray->remove();
        emit refused();
        return;
    }
    emit accepted();
    state_.localcomputer = p_.system->computerName();
    connections_.setLocalComputer(state_.localcomputer);
    emit localComputerNameRead(state_.localcomputer);
    // Copies find each other only through a folder of this user's own; without one there is no
    // telling whether another copy runs, and this one does not go on.
    if (const QString why = p_.instance->problem(); !why.isEmpty()) {
        p_.tray->remove();
        p_.boxes->show(why, MsgIcon::Critical);
        emit refused();
        return;
    }
    if (p_.instance->otherInstanceRunning([this] { emit showRequested(); })) {
        p_.instance->activateOther();
        p_.tray->remove();
        p_.boxes->show(QStringLiteral("Only one Instance allowed !         "), MsgIcon::Critical);
        emit refused();
        return;
    }
    // Temporary copies that a write killed half-way left behind are of no use to anyone; only
    // the one copy that runs may take them, since another copy may be writing them right now.
    p_.files->removeLeftoverCopies(state_.datafolder);
    // The frame goes where it was once the window shows, which the window manager can only do
    // for a window it manages.
    bool leftOk = false;
    const int left = state_.settings.mainleft.toInt(&leftOk);
    emit windowDue(leftOk && left != 0
                       ? std::optional<QPoint>(QPoint(left, state_.settings.maintop.toInt()) / platform::kTwipsPerPixel)
                       : std::nullopt);
    if (!moved.isEmpty())
        p_.boxes->show(moved, MsgIcon::Exclamation);
    // The server list, read once here for what follows. One beyond the limits is refused and
    // left as it is: nothing writes it in this run.
    const QString listFile = state_.file(core::files::computerlist);
    const bool listExisted = p_.files->exists(listFile);
    core::ServerListRead listed = core::readServerListWithin(*p_.files, listFile);
    if (!listed.refused.isEmpty())
        p_.boxes->show(listed.refused, MsgIcon::Exclamation);
    {
        // Files of servers with "%" in their names under the names earlier versions gave them.
        QStringList everyServer = monitored_.storedServers();
        for (const core::ServerListLine& line : listed.lines)
            everyServer << line.name;
        core::moveEarlierServerFiles(*p_.files, state_.datafolder, everyServer);
    }
    // The monitored servers, each server's file tidied.
    for (const QString& name : monitored_.refusedServers())
        announceRefused(name);
    const QStringList monitored = monitored_.servers();
    for (const QString& name : monitored)
        core::lookInFile(*p_.files, state_.file(name));
    emit monitoredServersRead();
    if (p_.files->exists(state_.file(core::files::computers)) && !listExisted) {
        std::vector<core::ServerListLine> lines;
        for (const QString& name : monitored)
            lines.push_back({name, true});
        if (core::writeServerList(*p_.files, listFile, lines))
            listed = core::readServerListWithin(*p_.files, listFile);
    }
    emit serverListRead(safeLines(listed.lines), !listed.refused.isEmpty());
    emit mailProfileCheckDue();
    // The mail settings (a stored SMTP server wins over the mail profile) are read by the mailer
    // when it checks the mail profile, just before.
    if (!p_.files->exists(state_.file(core::files::jobslog)))
        p_.files->create(state_.file(core::files::jobslog));
    if (!p_.files->exists(state_.file(core::files::interval)))
        p_.files->writeLines(state_.file(core::files::interval), {QStringLiteral("30")});
    // Without an ICMP socket no server can be asked: say once why, rather than show every
    // server as answering or as silent without a word.
    if (const QString why = p_.icmp->unavailableReason(); !why.isEmpty())
        emit pingUnavailable(why);
    // A second's pause in which the window goes on working.
    p_.clock->singleShot(1000, this, [this] { afterPause(); });
}

void Startup::afterPause()
{
    if (p_.app->ended())
        return;
    const QString interval = core::readIntervalText(*p_.files, state_.file(core::files::interval));
    emit intervalRead(interval);
    emit scanDue(interval);
    emit schedulerDue();
}

void Startup::announceRefused(const QString& name)
{
    // One line a server, however the hand-edited files spell it.
    if (refused_.contains(name, Qt::CaseInsensitive))
        return;
    refused_ << name;
    emit serverNameRefused(name, monitored_.reservedFile(name));
}

std::vector<core::ServerListLine> Startup::safeLines(const std::vector<core::ServerListLine>& lines)
{
    std::vector<core::ServerListLine> safe;
    safe.reserve(lines.size());
    for (const core::ServerListLine& line : lines) {
        if (monitored_.reservedFile(line.name).isEmpty())
            safe.push_back(line);
        else
            announceRefused(line.name);
    }
    return safe;
}

} // namespace velmora::shell
