#pragma once
// Writing the report to a text file: the file name rule of the export dialog, the threshold
// field of the automation dialog, and the write itself, which runs off the user-interface thread.
//
// An export file holds one line per report row, seven fields separated by one TAB, each line
// ended by CR LF, UTF-8, no header.
#include "platform/platform.h"

#include <QObject>
#include <QString>
#include <QStringList>
#include <functional>

namespace velmora::report {

// The path an export writes for a chosen path: the name's extension replaced by "txt", or
// ".txt" added when the name has none.
QString txtPath(const QString& chosen);

// The threshold field once it has been edited: a text that is not a number counts as 0, then
// anything of 10000 or more becomes "10000" and anything of 9 or less (the empty text as 0)
// becomes "10". A number in between stays as typed.
QString thresholdText(const QString& typed);

// How an export reaches its file.
enum class WriteMode {
    Replace,        // create the file, replacing one that exists
    AppendOrCreate, // append to the file, creating it when it does not exist
};

struct WriteOutcome {
    bool ok = false;
    QString error; // why it failed, in words; may be empty
};

// Writes the lines to path on the worker; done runs on the user-interface thread afterwards,
// unless context is gone by then.
void writeExport(const platform::Platform& platform, QObject* context, const QString& path, QStringList lines,
                 WriteMode mode, std::function<void(WriteOutcome)> done);

} // namespace velmora::report
