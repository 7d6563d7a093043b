#pragma once
#include "platform/netconnections.h"
#include <QHash>
#include <QString>
#include <QStringList>
#include <memory>

namespace velmora::platform {

// Connections as ssh control masters, one socket per server in the user's runtime folder.
class SshConnections : public NetConnections {
public:
    SshConnections();
    // extraOptions go on every master's command line (a port, a key, a known-hosts file...);
    // program is the ssh client to run.
    explicit SshConnections(QStringList extraOptions, QString program = QStringLiteral("ssh"));
    ~SshConnections() override;

    void add(QObject* context, const QString& server, const QString& user, const QString& password,
             std::function<void(int code)> done) override;
    void cancel(const QString& server) override;
    // The control socket of a server's connection (the remote service backend connects through it).
    static QString controlPath(const QString& server);
    // The result code of an ssh run that ended with exitCode and printed stderrText.
    static int codeForOutcome(int exitCode, const QString& stderrText);

private:
    void startMaster(const QString& server, const QString& user, const QString& password,
                     std::function<void(int code)> finish);

    QStringList extraOptions_;
    QString program_;
    QHash<QString, QString> users_; // user of each master this object opened, by control path
    // Parent of the running ssh processes: they end with this object.
    std::unique_ptr<QObject> processes_;
};

} // namespace velmora::platform
