#pragma once
// Small types shared by the mail and message transports and their callers.
#include <QString>
#include <functional>
#include <initializer_list>
#include <utility>

namespace velmora::actions {

// The subject and body of one mail.
struct MailText {
    QString subject;
    QString body;
};

// The completion of an action or a transport: false when its job-log line could not be
// written (or, for the profile mail, there was nothing to send with), which ends the dispatch.
using Continue = std::function<void(bool ok)>;

// text without leading and trailing blanks (only blanks: tabs and line ends stay).
QString trimBlanks(const QString& text);

// Whether text holds a line break of any kind (CR, LF, vertical tab, form feed, NEL, the Unicode
// line and paragraph separators) or a NUL. A recipient, sender or subject that does would end its
// command or header early and start one of its own on the mail server ("RCPT TO:", "Bcc:").
bool holdsLineBreak(const QString& text);
// The box that refuses the first of fields (its text and what it is: "subject" ...) that holds a
// line break, or an empty text when none does.
QString lineBreakRefusal(std::initializer_list<std::pair<QString, const char*>> fields);

} // namespace velmora::actions
