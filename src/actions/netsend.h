#pragma once
// The network message of the "Net Message Send to:" action and of the alert setup's test button.
#include <QString>

namespace velmora::actions {

// "Velmora:  On  " server "  the service " service " is " state
QString netsendMessage(const QString& server, const QString& service, const QString& state);

// The result line for a send's code (the netmsgerror codes; others are an unknown error).
QString netsendResultLine(int code, const QString& recipient);

} // namespace velmora::actions
