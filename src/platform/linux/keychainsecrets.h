#pragma once
// The desktop's secret store through QtKeychain (the Secret Service of GNOME Keyring or
// KWallet on the session bus). Secrets are kept under the service name "Velmora"; nothing is
// ever written to a plain file instead.
#include "platform/secretstore.h"

namespace velmora::platform {

class KeychainSecrets : public SecretStore {
public:
    void read(QObject* context, const QString& key, Done done) override;
    void write(QObject* context, const QString& key, const QString& secret, Done done) override;
    void remove(QObject* context, const QString& key, Done done) override;
};

} // namespace velmora::platform
