#pragma once
// Network messages through Samba's client: "smbclient -M recipient -U% -N", the message on its
// standard input.
#include "platform/netmessenger.h"

#include <QStringList>

namespace velmora::platform {

class SmbMessenger : public NetMessenger {
public:
    void send(QObject* context, const QString& recipient, const QString& text,
              std::function<void(int code)> done) override;

    // The Samba client: a name looked up on PATH, or a path.
    QString program = QStringLiteral("smbclient");
    // Further arguments put after the standard ones (a test names its own smb.conf with "-s").
    QStringList extra_arguments;
    // How long one send may take before the client is stopped (the send then failed with 2136).
    int timeout_ms = 30000;

    // 0, or the netmsgerror code, for a recipient that cannot be a network name.
    static int checkRecipient(const QString& recipient);
    // The netmsgerror code for what smbclient wrote (standard output and error together) and
    // its exit code. It reports some refusals with exit code 0, so the text decides first.
    static int codeForOutput(int exitCode, const QString& output);
};

} // namespace velmora::platform
