#pragma once
// What the classic codes that the program shows mean on Linux: the messages keep their classic
// wording ("Open Service failed.   Error  1060"), and where there is room (a server's tooltip)
// these texts say what went wrong in Linux terms. The help page "Error codes on Linux" says the
// same at more length.
#include <QString>

namespace velmora::platform {

// A code of the service manager calls (svcerror): why systemd, its bus or the connection to the
// server gave it. Empty for 0 and for a code none of the calls gives.
QString serviceErrorReason(int code);

// A status of a ping (Icmp::echo, and -1 for a name that did not resolve): why no reply came.
// Empty for 0 and for a status the Linux backend never gives.
QString pingStatusReason(int status);

} // namespace velmora::platform
