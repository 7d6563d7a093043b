#pragma once
#include "platform/credentialsprompt.h"
#include "platform/netconnections.h"
#include <QByteArray>
#include <QHash>
#include <QPointer>
#include <QString>
#include <QStringList>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

class QLocalServer;
class QLocalSocket;
class QProcess;

namespace velmora::platform {

// Connections as ssh control masters, one socket per server in a folder of this object's own
// (mode 0700, under an unpredictable name in the user's runtime folder, else in the temporary
// folder), removed with the object.
//
// Every master is a child process of the program that runs in the foreground (no -f, no
// ControlPersist): closeAll() and the destructor end them, and the kernel ends them when the
// program dies in any other way (a crash, kill -9), so no ssh session outlives the program.
//
// ssh asks its questions through the askpass helper (this program again, see askpass.h), which
// hands them to this object over a local socket in the private folder:
// - a password: the one the caller gave, once; after that (or without one) the prompt asks the
//   user for a user name and password. Another user name starts the logon anew as that user.
//   What the user typed is kept in memory for the run, for later connections to the same server.
// - a host key nobody has confirmed yet: the prompt shows its fingerprint and asks; only a "yes"
//   records it in the known hosts.
// - a key's passphrase: the password the caller gave, once.
// A host key that differs from the recorded one refuses the connection, and the prompt says so.
// Without a prompt every question the caller's password does not answer is answered "no".
class SshConnections : public NetConnections {
public:
    // extraOptions go on every master's command line (a port, a key, a known-hosts file...);
    // program is the ssh client to run; prompt asks the user (may be null); askpass is the
    // program ssh runs to ask (empty: this program, which must call askpassMain()).
    explicit SshConnections(QStringList extraOptions = {}, QString program = QStringLiteral("ssh"),
                            CredentialsPrompt* prompt = nullptr, QString askpass = {});
    // leave()
    ~SshConnections() override;

    // Besides the codes of NetConnections::add:
    //   1223  also when the user cancelled the credentials or did not trust the host key
    //   1397  the server's host key differs from the recorded one (or none could be confirmed)
    void add(QObject* context, const QString& server, const QString& user, const QString& password,
             std::function<void(int code)> done) override;
    // Asks the master to end (SIGTERM) and returns at once; a master that does not end within
    // stopTimeoutMs is killed.
    void cancel(const QString& server) override;
    // Ends every master this object started, waiting at most about a second in all: a master
    // that does not end on request is killed. Requests still under way report nothing.
    void closeAll() override;
    // Ends every master and removes the private folder with its sockets, as the destructor does;
    // for a program that leaves without running destructors. Open nothing after it.
    void leave();

    // The control socket of a server's connection (the remote service backend connects through
    // it); empty when there is no private folder. May be called from any thread.
    QString controlPath(const QString& server) const;
    // Why no connection can be opened because no private folder could be made; empty when one was.
    QString folderProblem() const { return folderProblem_; }
    // The result code of an ssh run that ended with exitCode and printed stderrText.
    static int codeForOutcome(int exitCode, const QString& stderrText);

    static constexpr int stopTimeoutMs = 3000;

private:
    struct Master {
        QPointer<QProcess> process;
        QString server;
        QString user;      // the user the caller asked for
        QString sshUser;   // the user ssh logs on as; empty: ssh's own choice
        QString password;  // given to the first password question
        bool passwordGiven = false;
        bool passphraseGiven = false;
        bool fromPrompt = false;  // the password was typed by the user
        bool cancelled = false;   // the user cancelled or distrusted the host key
        std::optional<CredentialsPrompt::Credentials> restartAs;
        QByteArray token;         // identifies this master's askpass questions
        bool ready = false;
        std::vector<std::function<void(int code)>> waiting;
    };
    struct Question {
        QString path;
        QByteArray token;
        QPointer<QLocalSocket> socket;
        std::function<void(std::function<void()> asked)> ask;
    };

    void startMaster(const QString& path);
    void answer(const QString& path, int code);
    void stop(const QString& path, QProcess* process);
    void later(std::function<void()> fn);
    void readQuestion(QLocalSocket* socket);
    void handleQuestion(QLocalSocket* socket, const QString& path, const QString& question);
    void queueQuestion(Question question);
    void nextQuestion();
    void dropQuestions(const QByteArray& token);
    Master* masterFor(const QString& path, const QByteArray& token);

    QStringList extraOptions_;
    QString program_;
    CredentialsPrompt* prompt_;
    QString askpass_;
    QString folder_;
    QString folderProblem_;
    QHash<QString, Master> masters_; // by control path
    // Masters asked to end that have not ended yet, by control path: a new master for the same
    // server waits for them, as its socket would clash with theirs.
    QHash<QString, QPointer<QProcess>> stopping_;
    // What the user typed for a server (lower case), kept for the run.
    QHash<QString, CredentialsPrompt::Credentials> remembered_;
    std::deque<Question> questions_;
    bool asking_ = false;
    // Answers that come after this object is gone go nowhere.
    std::shared_ptr<int> alive_ = std::make_shared<int>(0);
    // Parent of the running ssh processes: they end with this object.
    std::unique_ptr<QObject> processes_;
    std::unique_ptr<QLocalServer> questionServer_;
};

} // namespace velmora::platform
