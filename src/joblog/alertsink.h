#pragma once
// What the check cycle shows of its scans: the alert window's captions and rows and the job
// log's size indicator. The alert window implements it; tests record it.
#include "joblog/joblog.h"

#include <QDateTime>
#include <QString>

namespace velmora::joblog {

class AlertSink {
public:
    virtual ~AlertSink() = default;
    // A timed scan begins: the rows show failed services (the rows of an immediate check are
    // dropped first).
    virtual void beginTimedScan() = 0;
    // "Check Services Now" begins: the rows will show every monitored service.
    virtual void beginImmediateCheck() = 0;
    // The time of the next timed scan.
    virtual void showNextScan(const QDateTime& at) = 0;
    virtual void showalertwindow() = 0;
    // A failed service of a timed scan, drawn red.
    virtual void addalertrow(const QString& server, const QString& service, const QString& state,
                             const QString& actions) = 0;
    // One service of "Check Services Now"; red unless it runs.
    virtual void addcheckrow(const QString& server, const QString& service, const QString& shown,
                             const QString& actions, bool red) = 0;
    // A failure of server's service (of the server itself when service is empty) has recovered:
    // its rows say so with text.
    virtual void markrecovered(const QString& server, const QString& service, const QString& text) = 0;
    virtual void updatelogsize(SizeCaption caption) = 0;
    virtual void updatelogsizecolour() = 0;
};

} // namespace velmora::joblog
