#pragma once
#include "platform/netconnections.h"
#include <QHash>
#include <QPointer>
#include <QString>
#include <QStringList>
#include <functional>
#include <memory>
#include <vector>

class QProcess;

namespace velmora::platform {

// Connections as ssh control masters, one socket per server in a folder of this object's own
// (mode 0700, under an unpredictable name in the user's runtime folder, else in the temporary
// folder), removed with the object.
//
// Every master is a child process of the program that runs in the foreground (no -f, no
// ControlPersist): closeAll() and the destructor end them, and the kernel ends them when the
// program dies in any other way (a crash, kill -9), so no ssh session outlives the program.
class SshConnections : public NetConnections {
public:
    SshConnections();
    // extraOptions go on every master's command line (a port, a key, a known-hosts file...);
    // program is the ssh client to run.
    explicit SshConnections(QStringList extraOptions, QString program = QStringLiteral("ssh"));
    // Ends every master (closeAll()).
    ~SshConnections() override;

    void add(QObject* context, const QString& server, const QString& user, const QString& password,
             std::function<void(int code)> done) override;
    // Asks the master to end (SIGTERM) and returns at once; a master that does not end within
    // stopTimeoutMs is killed.
    void cancel(const QString& server) override;
    // Ends every master this object started, waiting at most about a second in all: a master
    // that does not end on request is killed. Requests still under way report nothing.
    void closeAll();

    // The control socket of a server's connection (the remote service backend connects through
    // it); empty when there is no private folder. May be called from any thread.
    QString controlPath(const QString& server) const;
    // Why no connection can be opened because no private folder could be made; empty when one was.
    QString folderProblem() const { return folderProblem_; }
    // Why path is not a folder of this user alone (a folder, not a symbolic link, owned by this
    // user, mode 0700); empty when it is one.
    static QString privateFolderProblem(const QString& path);
    // The result code of an ssh run that ended with exitCode and printed stderrText.
    static int codeForOutcome(int exitCode, const QString& stderrText);

    static constexpr int stopTimeoutMs = 3000;

private:
    struct Master {
        QPointer<QProcess> process;
        QString user; // the user the caller asked for
        bool ready = false;
        std::vector<std::function<void(int code)>> waiting;
    };

    void startMaster(const QString& server, const QString& user, const QString& password);
    void answer(const QString& path, int code);
    void stop(const QString& path, QProcess* process);
    void later(std::function<void()> fn);

    QStringList extraOptions_;
    QString program_;
    QString folder_;
    QString folderProblem_;
    QHash<QString, Master> masters_; // by control path
    // Masters asked to end that have not ended yet, by control path: a new master for the same
    // server waits for them, as its socket would clash with theirs.
    QHash<QString, QPointer<QProcess>> stopping_;
    // Parent of the running ssh processes: they end with this object.
    std::unique_ptr<QObject> processes_;
};

} // namespace velmora::platform
