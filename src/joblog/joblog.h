#pragma once
// The job log "Jobs.log" in the data folder: one line for every check of a monitored service
// (check line), every server skipped as a whole (server line) and every outcome of an alert
// action (action line, no timestamp). The file is only ever appended to, one open-append-close
// per line, and never held open, so an outside viewer can watch it grow.
//
// Dates are written as "16.11.2026" on every system (core::dateText); times in this system's
// regional format: the short time format of QLocale::system() with seconds added after the
// minutes where it has none (so a German system writes "16.11.2026 20:50:14", a US one
// "16.11.2026 8:50:14 PM").
#include "core/datafolder.h"
#include "platform/platform.h"

#include <QDateTime>
#include <QLocale>
#include <QString>
#include <QObject>
#include <functional>
#include <memory>

namespace velmora::joblog {

// The log above this many bytes is shown as large (red indicator); at or below it, as normal.
inline constexpr qint64 kLargeLogBytes = 3000000;

// The time text of log lines and alert rows (their date text is core::dateText).
QString timeText(const QDateTime& at, const QLocale& locale = QLocale::system());
// The locale's short time format with seconds added where it has none.
QString timeFormatWithSeconds(const QLocale& locale);

// date, blank, time, TAB, server, TAB, service, TAB, result
QString checkLineText(const QDateTime& at, const QString& server, const QString& service,
                      const QString& result, const QLocale& locale = QLocale::system());
// date, blank, time, TAB, server, TAB, message
QString serverLineText(const QDateTime& at, const QString& server, const QString& message,
                       const QLocale& locale = QLocale::system());

// Messages of server lines.
inline const QString kServerInMaintenance = QStringLiteral("Server is in Maintenance Mode");
inline const QString kMaintenanceEnded = QStringLiteral("Maintenance Mode ended, the server is monitored again");
inline const QString kServerNotReachable = QStringLiteral("Could not reach Server, Server not available.");

// The two captions of the log-size indicator: the alert window's own on activation, and the
// one a check run sets when it finds a failed service. They differ in spacing.
enum class SizeCaption { Activation, CheckRun };
bool logIsLarge(qint64 bytes);
QString logSizeText(qint64 bytes, SizeCaption caption);

// The message for a failed "Show Logfile" open result (32 or less); empty for codes it does
// not know.
QString openErrorText(int code);

// Lines that could not be written since the last one that could: how many, from when, and why
// (the system's words for the first failure). None lost: lost is 0 and since is not valid.
struct LostLines {
    int lost = 0;
    QDateTime since;
    QString why;
    bool any() const { return since.isValid(); }
};
// What the log-size indicator says while lines are being lost.
QString lostLinesText(const LostLines& lost, const QLocale& locale = QLocale::system());

class JobLog : public QObject {
    Q_OBJECT
public:
    // The log is looked up in folder by every operation that touches the file.
    JobLog(const platform::Platform& platform, const core::DataFiles& folder);

    // Appends text and CR LF to an existing log in one write. A missing log is not created here
    // (the line is lost); a failed write (a full disk) loses the line and is kept in lostLines()
    // until a later line is written. The caller goes on either way. Returns whether the line was
    // written.
    bool appendjobline(const QString& text);
    // Creates the log empty when it does not exist; a log that cannot be created counts as
    // lines being lost.
    void ensurejoblog();
    // The lines lost since the last one written.
    const LostLines& lostLines() const { return lost_; }
    // A check line or a server line stamped with the platform clock's current time.
    bool checkline(const QString& server, const QString& service, const QString& result);
    bool serverline(const QString& server, const QString& message);

    // The log's path under its real spelling on disk.
    QString path();
    // Size in bytes, -1 when there is no log.
    qint64 size();

    // "Show Logfile": opens the log in the user's viewer; a failure is shown in a box. The open
    // runs on a worker thread (a launcher may take seconds to answer); the box follows once it
    // has answered, unless this log object is gone by then.
    void showlogfile();
    // "Delele Logfile": asks, deletes, and recreates the log empty.
    void deletelogfile();

    // The regional formats used for timestamps (QLocale::system() unless set).
    void setLocale(const QLocale& locale) { locale_ = locale; }
    const QLocale& locale() const { return locale_; }
    QDateTime now() const;

signals:
    // Lines began to be lost, one more was lost, or a line was written again after some were.
    void lostLinesChanged();

private:
    void lose(const QString& why);
    void written();

    platform::Platform p_;
    LostLines lost_;
    const core::DataFiles& folder_;
    QLocale locale_ = QLocale::system();
    // Guards completions of work handed to the worker: destroyed with this object.
    std::unique_ptr<QObject> context_;
};

} // namespace velmora::joblog
