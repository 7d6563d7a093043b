#pragma once
// What the alert actions leave behind for the actions after them. Each action keeps its job-log
// line in its result text; nothing ever clears them, so the alert mail carries the results of
// the actions before it (and, in an earlier slot, those left by earlier runs). The dispatcher
// owns the one instance; the alert mail and the test windows read it.
#include "core/failure.h"

#include <QString>

namespace velmora::actions {

struct ActionResults {
    QString restart, program, alert, netsend, sound;
    // The last recipients taken from "Send Email to:" and "Net Message Send to:" entries, as
    // the entries hold them (leading blank included) until a transport trims them.
    QString mailaddress, netsendrecipient;
    // The failure whose actions ran last (empty before the first): what the test windows and
    // the test network message describe.
    core::Failure last;
};

} // namespace velmora::actions
