#include "joblog/joblog.h"

#include "core/datafolder.h"
#include "core/timestamps.h"

namespace velmora::joblog {

using platform::MsgAnswer;
using platform::MsgButtons;
using platform::MsgIcon;

QString timeFormatWithSeconds(const QLocale& locale)
{
    QString format = locale.timeFormat(QLocale::ShortFormat);
    if (format.contains(QLatin1Char('s')))
        return format;
    const qsizetype lastM = format.lastIndexOf(QLatin1Char('m'));
    if (lastM < 0)
        return format;
    // Seconds follow the minutes with the same separator that sits between hours and minutes.
    qsizetype start = lastM;
    while (start > 0 && format[start - 1] == QLatin1Char('m'))
        --start;
    qsizetype sepStart = start;
    while (sepStart > 0 && !format[sepStart - 1].isLetter() && format[sepStart - 1] != QLatin1Char('\''))
        --sepStart;
    QString separator = format.mid(sepStart, start - sepStart).trimmed();
    if (separator.isEmpty())
        separator = QStringLiteral(":");
    format.insert(lastM + 1, separator + QStringLiteral("ss"));
    return format;
}

QString timeText(const QDateTime& at, const QLocale& locale)
{
    return locale.toString(at.time(), timeFormatWithSeconds(locale));
}

QString checkLineText(const QDateTime& at, const QString& server, const QString& service,
                      const QString& result, const QLocale& locale)
{
    return core::dateText(at) + QLatin1Char(' ') + timeText(at, locale) + QLatin1Char('\t') + server +
           QLatin1Char('\t') + service + QLatin1Char('\t') + result;
}

QString serverLineText(const QDateTime& at, const QString& server, const QString& message, const QLocale& locale)
{
    return core::dateText(at) + QLatin1Char(' ') + timeText(at, locale) + QLatin1Char('\t') + server +
           QLatin1Char('\t') + message;
}

bool logIsLarge(qint64 bytes)
{
    return bytes > kLargeLogBytes;
}

QString logSizeText(qint64 bytes, SizeCaption caption)
{
    const QString number = QString::number(bytes);
    if (caption == SizeCaption::Activation)
        return QStringLiteral("Current Logfilesize: ") + number + QStringLiteral(" Bytes");
    return QStringLiteral("Current Logfilesize :  ") + number + QStringLiteral("  Bytes");
}

QString openErrorText(int code)
{
    switch (code) {
    case 2: return QStringLiteral("File not found!");
    case 3: return QStringLiteral("Path not found!");
    case 5: return QStringLiteral("Access denied !");
    case 8: return QStringLiteral("Low memory!");
    case 11: return QStringLiteral("Currupt EXE File!");
    case 26: return QStringLiteral("Access violation occured!");
    case 27: return QStringLiteral("Unreliable file Association!");
    case 28: return QStringLiteral("DDE Time out");
    case 29: return QStringLiteral("DDE transaction failed!");
    case 30: return QStringLiteral("DDE bussy!");
    case 31: return QStringLiteral("No Application for file extention!");
    case 32: return QStringLiteral("DLL not found!");
    default: return {};
    }
}

QString lostLinesText(const LostLines& lost, const QLocale& locale)
{
    const QString since = core::dateText(lost.since) + QLatin1Char(' ') + timeText(lost.since, locale);
    const QString why = lost.why.isEmpty() ? QString() : QStringLiteral(" (%1)").arg(lost.why);
    return QStringLiteral("Jobs.log cannot be written since %1%2: %3 lost")
        .arg(since, why, lost.lost == 1 ? QStringLiteral("1 line") : QStringLiteral("%1 lines").arg(lost.lost));
}

JobLog::JobLog(const platform::Platform& platform, const core::DataFiles& folder)
    : p_(platform), folder_(folder)
{
}

QDateTime JobLog::now() const
{
    return p_.clock->now();
}

QString JobLog::path()
{
    return p_.files->resolve(folder_.file(core::files::jobslog));
}

qint64 JobLog::size()
{
    return p_.files->size(path());
}

bool JobLog::appendjobline(const QString& text)
{
    const QString file = path();
    // The append itself would create a missing file; a log removed behind our back stays
    // removed until the next ensurejoblog().
    if (!p_.files->exists(file)) {
        // Only counted while the log cannot be made again.
        if (lost_.any()) {
            ++lost_.lost;
            emit lostLinesChanged();
        }
        return false;
    }
    if (!p_.files->appendLines(file, {text})) {
        lose(p_.files->lastError());
        ++lost_.lost;
        emit lostLinesChanged();
        return false;
    }
    written();
    return true;
}

void JobLog::ensurejoblog()
{
    const QString file = path();
    if (!p_.files->exists(file) && !p_.files->create(file)) {
        lose(p_.files->lastError());
        emit lostLinesChanged();
    }
}

void JobLog::lose(const QString& why)
{
    if (lost_.any())
        return;
    lost_.since = now();
    lost_.why = why;
}

void JobLog::written()
{
    if (!lost_.any())
        return;
    lost_ = {};
    emit lostLinesChanged();
}

bool JobLog::checkline(const QString& server, const QString& service, const QString& result)
{
    return appendjobline(checkLineText(now(), server, service, result, locale_));
}

bool JobLog::serverline(const QString& server, const QString& message)
{
    return appendjobline(serverLineText(now(), server, message, locale_));
}

void JobLog::showlogfile()
{
    // The viewer is handed the lower-case spelling; resolve() finds the file under any case.
    const QString file = p_.files->resolve(folder_.file(QStringLiteral("jobs.log")));
    if (!context_)
        context_ = std::make_unique<QObject>();
    platform::FileOpener* opener = p_.opener;
    platform::MessageBoxes* boxes = p_.boxes;
    p_.worker->run(context_.get(), [opener, boxes, file]() -> std::function<void()> {
        const int result = opener->open(file);
        return [boxes, result] {
            if (result <= 32)
                boxes->show(openErrorText(result), MsgIcon::Critical, MsgButtons::Ok);
        };
    });
}

void JobLog::deletelogfile()
{
    if (p_.boxes->show(QStringLiteral("Are you sure you want to delete the logfile ?"), MsgIcon::Question,
                       MsgButtons::OkCancel) != MsgAnswer::Ok)
        return;
    const QString file = path();
    if (!p_.files->exists(file))
        return; // the next check run creates it
    p_.files->remove(file);
    if (p_.files->exists(file)) {
        // Left as it is (a read-only folder, for one); the user should know it is still there.
        p_.boxes->show(QStringLiteral("The logfile could not be deleted!"), MsgIcon::Critical, MsgButtons::Ok);
        return;
    }
    ensurejoblog();
}

} // namespace velmora::joblog
