#include "platform/linux/systemdjournal.h"

#include <QDateTime>
#include <QFileInfo>
#include <QHostInfo>
#include <QProcess>

#include <systemd/sd-journal.h>

#include <cstdlib>
#include <cstring>

namespace velmora::platform {

namespace {

const QStringList kUnitTypes{".service", ".socket", ".target", ".timer", ".mount", ".automount", ".path",
                             ".slice", ".scope", ".device", ".swap"};

QString field(sd_journal* j, const char* name)
{
    const void* data = nullptr;
    size_t length = 0;
    if (sd_journal_get_data(j, name, &data, &length) < 0)
        return {};
    const size_t skip = std::strlen(name) + 1; // "NAME="
    return length < skip ? QString() : QString::fromUtf8(static_cast<const char*>(data) + skip, qsizetype(length - skip));
}

// One entry as journalctl's short-iso output shows it.
QString shortIso(sd_journal* j)
{
    uint64_t usec = 0;
    sd_journal_get_realtime_usec(j, &usec);
    const QDateTime at = QDateTime::fromMSecsSinceEpoch(qint64(usec / 1000));
    QString ident = field(j, "SYSLOG_IDENTIFIER");
    if (ident.isEmpty())
        ident = field(j, "_COMM");
    QString pid = field(j, "SYSLOG_PID");
    if (pid.isEmpty())
        pid = field(j, "_PID");
    const int offset = at.offsetFromUtc() / 60;
    QString line = at.toString(QStringLiteral("yyyy-MM-ddTHH:mm:ss")) +
                   QString::asprintf("%c%02d%02d", offset < 0 ? '-' : '+', std::abs(offset) / 60, std::abs(offset) % 60);
    line += QLatin1Char(' ') + field(j, "_HOSTNAME") + QLatin1Char(' ') + ident;
    if (!pid.isEmpty())
        line += QLatin1Char('[') + pid + QLatin1Char(']');
    return line + QStringLiteral(": ") + field(j, "MESSAGE");
}

QString quoted(const QString& text)
{
    return QLatin1Char('\'') + QString(text).replace(QLatin1Char('\''), QStringLiteral("'\\''")) + QLatin1Char('\'');
}

} // namespace

SystemdJournal::SystemdJournal(Options options) : options_(std::move(options))
{
    if (options_.localName.isEmpty())
        options_.localName = QHostInfo::localHostName();
}

QString SystemdJournal::unitName(const QString& unit)
{
    const QString name = unit.trimmed();
    for (const QString& type : kUnitTypes)
        if (name.endsWith(type, Qt::CaseInsensitive))
            return name;
    return name + QStringLiteral(".service");
}

JournalLines SystemdJournal::lastLines(const QString& computer, const QString& unit, int count)
{
    const QString name = computer.trimmed();
    if (options_.isWindows && options_.isWindows(name))
        return {{}, QStringLiteral("A Windows server keeps no journal.")};
    const QString shortHost = options_.localName.section(QLatin1Char('.'), 0, 0);
    if (name.isEmpty() || name.compare(options_.localName, Qt::CaseInsensitive) == 0 ||
        name.compare(shortHost, Qt::CaseInsensitive) == 0)
        return local(unitName(unit), count);
    return remote(name, unitName(unit), count);
}

JournalLines SystemdJournal::local(const QString& unit, int count)
{
    sd_journal* j = nullptr;
    const QByteArray folder = QFile::encodeName(options_.directory);
    const int r = folder.isEmpty() ? sd_journal_open(&j, SD_JOURNAL_LOCAL_ONLY)
                                   : sd_journal_open_directory(&j, folder.constData(), 0);
    if (r < 0)
        return {{}, QStringLiteral("The journal cannot be read: ") + QString::fromLocal8Bit(std::strerror(-r))};
    // The unit's own lines, and the manager's lines about it, of a system or a user manager.
    bool first = true;
    for (const char* prefix : {"_SYSTEMD_UNIT=", "UNIT=", "_SYSTEMD_USER_UNIT=", "USER_UNIT="}) {
        if (!first)
            sd_journal_add_disjunction(j);
        first = false;
        const QByteArray match = QByteArray(prefix) + unit.toUtf8();
        sd_journal_add_match(j, match.constData(), size_t(match.size()));
    }
    QStringList lines;
    sd_journal_seek_tail(j);
    while (lines.size() < count && sd_journal_previous(j) > 0)
        lines.prepend(shortIso(j));
    sd_journal_close(j);
    if (lines.isEmpty())
        return {{}, QStringLiteral("The journal holds no lines of ") + unit + QLatin1Char('.')};
    return {lines, {}};
}

JournalLines SystemdJournal::remote(const QString& server, const QString& unit, int count)
{
    const QString socket = options_.controlPath ? options_.controlPath(server) : QString();
    if (socket.isEmpty() || !QFileInfo::exists(socket))
        return {{}, QStringLiteral("There is no connection to ") + server + QLatin1Char('.')};
    QProcess ssh;
    ssh.start(options_.sshProgram,
              {QStringLiteral("-xT"), QStringLiteral("-S"), socket, QStringLiteral("-o"), QStringLiteral("ControlMaster=no"),
               QStringLiteral("-o"), QStringLiteral("BatchMode=yes"), QStringLiteral("-o"), QStringLiteral("LogLevel=ERROR"),
               QStringLiteral("--"), server,
               QStringLiteral("journalctl -u %1 -n %2 -o short-iso --no-pager").arg(quoted(unit)).arg(count)});
    if (!ssh.waitForFinished(options_.timeoutMs)) {
        ssh.kill();
        ssh.waitForFinished(1000);
        return {{}, QStringLiteral("The journal of ") + server + QStringLiteral(" did not answer in time.")};
    }
    QStringList lines = QString::fromUtf8(ssh.readAllStandardOutput()).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    lines.removeIf([](const QString& line) { return line.startsWith(QStringLiteral("-- ")); });
    if (ssh.exitStatus() != QProcess::NormalExit || ssh.exitCode() != 0)
        return {{}, QStringLiteral("journalctl on ") + server + QStringLiteral(" failed: ") +
                        QString::fromUtf8(ssh.readAllStandardError()).trimmed()};
    if (lines.isEmpty())
        return {{}, QStringLiteral("The journal holds no lines of ") + unit + QLatin1Char('.')};
    return {lines, {}};
}

} // namespace velmora::platform
