#pragma once
// Small types shared by the mail and message transports and their callers.
#include <QString>
#include <functional>

namespace velmora::actions {

// The subject and body of one mail.
struct MailText {
    QString subject;
    QString body;
};

// Builds the alert mail text from the run state as it stands (the action dispatcher supplies it).
using MailTextSource = std::function<MailText()>;

// Writes one action line to the job log.
using JobLine = std::function<void(const QString&)>;

// text without leading and trailing blanks (only blanks: tabs and line ends stay).
QString trimBlanks(const QString& text);

} // namespace velmora::actions
