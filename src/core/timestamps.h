#pragma once
// The date as the program writes it everywhere a check is stamped: the job log, the alert
// window, the report, its exports and the alert mail.
#include <QDate>
#include <QDateTime>
#include <QString>

namespace velmora::core {

// Day, month and four-digit year with dots and no blanks ("16.11.2026"), whatever the
// regional settings: the job log's lines split at the first blank, and a two-digit year or a
// month name would make dates of different systems and years unreadable side by side.
QString dateText(const QDate& date);
inline QString dateText(const QDateTime& at)
{
    return dateText(at.date());
}

} // namespace velmora::core
