#include "platform/linux/sshconnections.h"
#include "platform/linux/privatefolder.h"

#include "platform/linux/askpass.h"

#include <QCoreApplication>
#include <QCryptographicHash>
#include <QDateTime>
#include <QElapsedTimer>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLocalServer>
#include <QLocalSocket>
#include <QRandomGenerator>
#include <QRegularExpression>
#include <QPointer>
#include <QProcess>
#include <QStandardPaths>
#include <QTimer>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <sys/stat.h>
#include <sys/prctl.h>
#include <unistd.h>

namespace velmora::platform {

namespace {

constexpr int Connected = 0;
constexpr int AccessDenied = 5;
constexpr int SshMissing = 2;
constexpr int NetworkPathNotFound = 53;
constexpr int OtherCredentials = 1219;
constexpr int LogonFailure = 1326;
constexpr int NotReachable = 1231;
constexpr int Cancelled = 1223;
constexpr int HostKeyRefused = 1397;

// ---- the private folder -------------------------------------------------------------------
// The control sockets give whoever can reach them the logged-on connection, so they live only in
// a folder that belongs to this user alone.

// Removes the folders of this user's connections objects that ended without removing theirs (a
// crash, kill -9): one whose question socket no longer answers and that has not changed for a
// while (a new one may not listen yet).
void tidyLeftFolders(const QString& base)
{
    const QDateTime settled = QDateTime::currentDateTimeUtc().addSecs(-2);
    for (const QFileInfo& entry : QDir(base).entryInfoList({QStringLiteral("velmora-ssh-*")}, QDir::Dirs | QDir::Hidden)) {
        const QString folder = entry.absoluteFilePath();
        if (!privateFolderProblem(folder).isEmpty() || entry.lastModified().toUTC() > settled)
            continue;
        QLocalSocket probe;
        probe.connectToServer(folder + QStringLiteral("/_ask"));
        if (probe.waitForConnected(200))
            continue;
        if (probe.error() == QLocalSocket::ServerNotFoundError || probe.error() == QLocalSocket::ConnectionRefusedError)
            QDir(folder).removeRecursively();
    }
}

// A new folder of this object's own, under an unpredictable name: in the user's runtime folder
// when that is private, else in the temporary folder. Returns the folder, or empty with the
// reason in problem.
QString makePrivateFolder(QString& problem)
{
    QString base = qEnvironmentVariable("XDG_RUNTIME_DIR");
    if (base.isEmpty() || !privateFolderProblem(base).isEmpty())
        base = QDir::tempPath();
    tidyLeftFolders(base);
    QByteArray name = QFile::encodeName(base + QStringLiteral("/velmora-ssh-XXXXXX"));
    // mkdtemp creates the folder with mode 0700 and fails if the name exists.
    if (!::mkdtemp(name.data())) {
        problem = QStringLiteral("no private folder for the ssh connections can be made in %1 (%2)")
                      .arg(base, QString::fromLocal8Bit(::strerror(errno)));
        return {};
    }
    const QString folder = QFile::decodeName(name);
    problem = privateFolderProblem(folder);
    if (!problem.isEmpty()) {
        problem = QStringLiteral("the folder for the ssh connections is not private: ") + problem;
        return {};
    }
    return folder;
}

QString findProgram(const QString& program)
{
    if (program.contains(QLatin1Char('/')))
        return QFileInfo(program).isExecutable() ? program : QString();
    return QStandardPaths::findExecutable(program);
}

QByteArray newToken()
{
    quint32 words[4];
    QRandomGenerator::system()->fillRange(words);
    return QByteArray(reinterpret_cast<const char*>(words), sizeof words).toHex();
}

// What ssh said about a host key: its type and fingerprint, from a confirmation question
// ("ED25519 key fingerprint is SHA256:....") or a refusal ("The fingerprint for the ED25519 key
// sent by the remote host is\nSHA256:....").
CredentialsPrompt::HostKey hostKeyIn(const QString& server, const QString& text)
{
    static const QRegularExpression asked(QStringLiteral("(\\S+) key fingerprint is (\\S+?)\\.?\\s*$"),
                                          QRegularExpression::MultilineOption);
    static const QRegularExpression sent(QStringLiteral("fingerprint for the (\\S+) key sent by the remote host is\\s+(\\S+?)\\.?\\s*$"),
                                         QRegularExpression::MultilineOption);
    CredentialsPrompt::HostKey key;
    key.server = server;
    QRegularExpressionMatch m = asked.match(text);
    if (!m.hasMatch())
        m = sent.match(text);
    if (m.hasMatch()) {
        key.type = m.captured(1);
        key.fingerprint = m.captured(2);
    }
    // The banner of at-signs tells nothing.
    QStringList lines;
    for (const QString& line : text.split(QLatin1Char('\n'))) {
        const QString plain = line.trimmed();
        if (!plain.isEmpty() && !plain.startsWith(QLatin1Char('@')))
            lines << plain;
    }
    key.details = lines.join(QLatin1Char('\n'));
    return key;
}

// The user a password question is for: ssh asks "user@host's password: " or
// "(user@host) Password: ".
QString userIn(const QString& question)
{
    static const QRegularExpression asked(QStringLiteral("^\\(?([^@\\s()]+)@"));
    return asked.match(question.trimmed()).captured(1);
}

QString loginName()
{
    const QString user = qEnvironmentVariable("USER");
    return user.isEmpty() ? qEnvironmentVariable("LOGNAME") : user;
}

void reply(QLocalSocket* socket, const std::optional<QString>& answer)
{
    // A helper whose connection was dropped has ended already.
    if (!socket || socket->state() != QLocalSocket::ConnectedState)
        return;
    QByteArray bytes = answer ? QByteArray("1") + answer->toUtf8() : QByteArray("0");
    socket->write(bytes);
    bytes.fill('\0');
    socket->disconnectFromServer();
}

} // namespace

SshConnections::SshConnections(QStringList extraOptions, QString program, CredentialsPrompt* prompt, QString askpass)
    : extraOptions_(std::move(extraOptions)), program_(std::move(program)), prompt_(prompt),
      askpass_(askpass.isEmpty() ? QCoreApplication::applicationFilePath() : std::move(askpass)),
      processes_(std::make_unique<QObject>())
{
    folder_ = makePrivateFolder(folderProblem_);
    if (folder_.isEmpty()) {
        qWarning("Velmora: %s; no ssh connection will be opened", qPrintable(folderProblem_));
        return;
    }
    // ssh's questions come in through the askpass helper.
    questionServer_ = std::make_unique<QLocalServer>();
    if (!questionServer_->listen(folder_ + QStringLiteral("/_ask")))
        qWarning("Velmora: ssh cannot ask for passwords: %s", qPrintable(questionServer_->errorString()));
    QObject::connect(questionServer_.get(), &QLocalServer::newConnection, processes_.get(), [this] {
        while (QLocalSocket* socket = questionServer_->nextPendingConnection()) {
            QObject::connect(socket, &QLocalSocket::readyRead, socket, [this, socket] { readQuestion(socket); });
            QObject::connect(socket, &QLocalSocket::disconnected, socket, &QObject::deleteLater);
        }
    });
}

SshConnections::~SshConnections() { leave(); }

void SshConnections::leave()
{
    closeAll();
    questionServer_.reset();
    if (!folder_.isEmpty())
        QDir(folder_).removeRecursively();
}

void SshConnections::closeAll()
{
    std::vector<QPointer<QProcess>> ending;
    QStringList paths;
    for (auto it = masters_.begin(); it != masters_.end(); ++it) {
        ending.push_back(it->process);
        paths << it.key();
        dropQuestions(it->token);
    }
    for (auto it = stopping_.begin(); it != stopping_.end(); ++it) {
        ending.push_back(it.value());
        paths << it.key();
    }
    masters_.clear();
    stopping_.clear();
    questions_.clear();
    for (const QPointer<QProcess>& p : ending) {
        if (!p)
            continue;
        // Nobody hears of the outcome any more.
        p->disconnect();
        if (p->state() != QProcess::NotRunning)
            p->terminate();
    }
    // ssh ends at once on SIGTERM; one that does not is killed, after a second at most for all.
    QElapsedTimer clock;
    clock.start();
    for (const QPointer<QProcess>& p : ending) {
        if (!p || p->state() == QProcess::NotRunning)
            continue;
        if (!p->waitForFinished(int(std::max<qint64>(1, 1000 - clock.elapsed())))) {
            p->kill();
            p->waitForFinished(200);
        }
    }
    for (const QPointer<QProcess>& p : ending)
        delete p.data();
    // A killed master leaves its socket behind.
    for (const QString& path : paths)
        QFile::remove(path);
}

void SshConnections::later(std::function<void()> fn)
{
    // Outcomes are reported from the event loop, never from inside the call that asked.
    QMetaObject::invokeMethod(processes_.get(), std::move(fn), Qt::QueuedConnection);
}

QString SshConnections::controlPath(const QString& server) const
{
    if (folder_.isEmpty())
        return {};
    // Host names ignore case: "SRV1" and "srv1" share one connection. Anything but letters,
    // digits, dots and dashes is spelled out in hex, so no name can reach outside the folder
    // (nor start with "_", which this object's own files do).
    const QString name = server.toLower();
    QString safe;
    for (const char c : name.toUtf8()) {
        if ((c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '.' || c == '-')
            safe += QLatin1Char(c);
        else
            safe += QStringLiteral("_%1").arg(uchar(c), 2, 16, QLatin1Char('0'));
    }
    const QString prefix = folder_ + QLatin1Char('/');
    QString path = prefix + safe;
    // A socket path holds at most 107 bytes, and ssh appends 17 characters while it sets up.
    if (path.toLocal8Bit().size() > 90 || safe.startsWith(QLatin1Char('.')))
        path = prefix + QString::fromLatin1(
                   QCryptographicHash::hash(name.toUtf8(), QCryptographicHash::Sha1).toHex().left(24));
    return path;
}

int SshConnections::codeForOutcome(int exitCode, const QString& stderrText)
{
    if (exitCode == 0)
        return Connected;
    const auto says = [&stderrText](const char* text) {
        return stderrText.contains(QLatin1String(text), Qt::CaseInsensitive);
    };
    if (says("REMOTE HOST IDENTIFICATION HAS CHANGED") || says("Host key verification failed"))
        return HostKeyRefused;
    if (says("Permission denied") || says("Too many authentication failures"))
        return LogonFailure;
    if (says("Could not resolve hostname") || says("Name or service not known")
        || says("Connection refused") || says("No route to host") || says("Network is unreachable")
        || says("timed out"))
        return NetworkPathNotFound;
    return NotReachable;
}

void SshConnections::add(QObject* context, const QString& server, const QString& user,
                         const QString& password, std::function<void(int code)> done)
{
    QPointer<QObject> guard(context);
    auto finish = [guard, done = std::move(done)](int code) {
        if (guard && done)
            done(code);
    };
    if (findProgram(program_).isEmpty()) {
        later([finish] { finish(SshMissing); });
        return;
    }
    if (folder_.isEmpty()) {
        later([finish] { finish(AccessDenied); });
        return;
    }
    const QString path = controlPath(server);
    if (auto it = masters_.find(path); it != masters_.end()) {
        if (it->user != user)
            later([finish] { finish(OtherCredentials); });
        else if (it->ready)
            later([finish] { finish(Connected); });
        else
            it->waiting.push_back(std::move(finish));
        return;
    }
    Master& master = masters_[path];
    master.server = server;
    master.user = user;
    master.sshUser = user;
    master.password = password;
    // Without credentials of the caller's, what the user typed earlier in this run comes first.
    const auto known = remembered_.constFind(server.toLower());
    if (password.isEmpty() && known != remembered_.constEnd() && (user.isEmpty() || user == known->user)) {
        master.sshUser = known->user;
        master.password = known->password;
        master.fromPrompt = true;
    }
    master.waiting.push_back(std::move(finish));
    if (const QPointer<QProcess> old = stopping_.value(path)) {
        // The last master for this server is still ending; start when it has.
        QObject::connect(old, &QObject::destroyed, processes_.get(), [this, path] {
            if (masters_.contains(path) && !masters_[path].process)
                startMaster(path);
        });
        return;
    }
    startMaster(path);
}

void SshConnections::answer(const QString& path, int code)
{
    const auto it = masters_.find(path);
    if (it == masters_.end())
        return;
    auto waiting = std::move(it->waiting);
    it->waiting.clear();
    if (code == Connected) {
        it->ready = true;
        if (it->fromPrompt && it->passwordGiven)
            remembered_.insert(it->server.toLower(), {it->sshUser, it->password});
    } else {
        if (code == LogonFailure)
            remembered_.remove(it->server.toLower());
        dropQuestions(it->token);
        masters_.erase(it);
    }
    for (auto& finish : waiting)
        finish(code);
}

void SshConnections::startMaster(const QString& path)
{
    Master& master = masters_[path];
    // A socket left by a master that was killed would keep the new one from listening.
    QFile::remove(path);
    auto* proc = new QProcess(processes_.get());
    master.process = proc;
    master.token = newToken();
    master.ready = false;
    master.passwordGiven = false;
    master.passphraseGiven = false;
    master.cancelled = false;

    // Every question goes to the askpass helper, which hands it to this object: the password
    // never shows on a command line, in an environment or in a file.
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("SSH_ASKPASS"), askpass_);
    env.insert(QStringLiteral("SSH_ASKPASS_REQUIRE"), QStringLiteral("force"));
    env.insert(QString::fromLatin1(askpassSocketVariable), folder_ + QStringLiteral("/_ask"));
    env.insert(QString::fromLatin1(askpassTokenVariable), QString::fromLatin1(master.token));
    proc->setProcessEnvironment(env);
    proc->setStandardInputFile(QProcess::nullDevice());
    proc->setStandardOutputFile(QProcess::nullDevice());
    // The master ends with the program however the program ends: the kernel sends it SIGTERM
    // when its parent dies, and ssh removes its socket on SIGTERM.
    const pid_t parent = ::getpid();
    proc->setChildProcessModifier([parent] {
        ::prctl(PR_SET_PDEATHSIG, SIGTERM);
        if (::getppid() != parent)
            ::_exit(255);
    });

    // In the foreground, with no ControlPersist (which would put it in the background even
    // when a configuration file asks for it): the master lives as long as this process object.
    // A host key nobody has confirmed is asked about, a changed one refused.
    // Every step has its time limit: ConnectTimeout covers the connection and the banner;
    // after the banner (key exchange, logon) and once logged on, a server that answers nothing
    // for ServerAliveInterval times ServerAliveCountMax (ssh's 3 unless the caller or a
    // configuration file says otherwise) seconds ends the master with "timed out", as an
    // unreachable server does. Waiting for the user's answer to a question does not count: ssh
    // waits for its askpass helper then.
    QStringList args{QStringLiteral("-M"), QStringLiteral("-S"), path, QStringLiteral("-N"),
                     QStringLiteral("-o"), QStringLiteral("ControlPersist=no"),
                     QStringLiteral("-o"), QStringLiteral("BatchMode=no"),
                     QStringLiteral("-o"), QStringLiteral("ConnectTimeout=10"),
                     QStringLiteral("-o"), QStringLiteral("ServerAliveInterval=5"),
                     QStringLiteral("-o"), QStringLiteral("StrictHostKeyChecking=ask")};
    args += extraOptions_;
    if (!master.sshUser.isEmpty())
        args += {QStringLiteral("-l"), master.sshUser};
    args += {QStringLiteral("--"), master.server};

    // The master listens on its socket once it has logged on: that is the moment it is ready.
    auto* poll = new QTimer(proc);
    poll->setInterval(50);
    QObject::connect(poll, &QTimer::timeout, proc, [this, poll, path] {
        if (!QFileInfo::exists(path))
            return;
        poll->stop();
        answer(path, Connected);
    });
    QObject::connect(proc, &QProcess::started, poll, qOverload<>(&QTimer::start));
    QObject::connect(proc, &QProcess::finished, proc, [this, proc, path](int exitCode, QProcess::ExitStatus status) {
        proc->deleteLater();
        const auto it = masters_.find(path);
        if (it == masters_.end() || it->process != proc)
            return;
        dropQuestions(it->token);
        if (it->ready) {
            // The connection ended on its own (the server went away).
            masters_.erase(it);
            return;
        }
        if (it->restartAs) {
            // The user gave another user name: log on anew as that user.
            it->sshUser = it->restartAs->user;
            it->password = it->restartAs->password;
            it->fromPrompt = true;
            it->restartAs.reset();
            startMaster(path);
            return;
        }
        const QString said = QString::fromLocal8Bit(proc->readAllStandardError());
        int code = status == QProcess::NormalExit ? codeForOutcome(exitCode, said) : NotReachable;
        if (it->cancelled) {
            code = Cancelled;
        } else if (said.contains(QLatin1String("REMOTE HOST IDENTIFICATION HAS CHANGED"))) {
            code = HostKeyRefused;
            if (prompt_)
                prompt_->hostKeyChanged(hostKeyIn(it->server, said));
        }
        answer(path, code);
    });
    QObject::connect(proc, &QProcess::errorOccurred, proc, [this, proc, path](QProcess::ProcessError e) {
        if (e != QProcess::FailedToStart)
            return;
        proc->deleteLater();
        if (masters_.value(path).process == proc)
            answer(path, SshMissing);
    });
    proc->start(findProgram(program_), args);
}

// ---- ssh's questions ------------------------------------------------------------------------

SshConnections::Master* SshConnections::masterFor(const QString& path, const QByteArray& token)
{
    const auto it = masters_.find(path);
    return it != masters_.end() && it->token == token && it->process ? &*it : nullptr;
}

void SshConnections::readQuestion(QLocalSocket* socket)
{
    // "token LF length LF question", from askpassMain().
    QByteArray data = socket->property("question").toByteArray() + socket->readAll();
    constexpr qsizetype Largest = 64 * 1024;
    const qsizetype first = data.indexOf('\n');
    const qsizetype second = first < 0 ? -1 : data.indexOf('\n', first + 1);
    if (data.size() > Largest || (first < 0 && data.size() > 64)) {
        socket->abort();
        return;
    }
    if (second < 0) {
        socket->setProperty("question", data);
        return;
    }
    bool number = false;
    const qsizetype length = data.mid(first + 1, second - first - 1).toLongLong(&number);
    if (!number || length < 0 || length > Largest) {
        socket->abort();
        return;
    }
    if (data.size() - second - 1 < length) {
        socket->setProperty("question", data);
        return;
    }
    QObject::disconnect(socket, &QLocalSocket::readyRead, nullptr, nullptr);
    socket->setProperty("question", QVariant());
    const QByteArray token = data.left(first);
    const QString question = QString::fromUtf8(data.mid(second + 1, length));
    for (auto it = masters_.begin(); it != masters_.end(); ++it) {
        if (it->token == token && it->process) {
            socket->setProperty("token", token);
            handleQuestion(socket, it.key(), question);
            return;
        }
    }
    // A question from no master of ours.
    reply(socket, std::nullopt);
}

void SshConnections::handleQuestion(QLocalSocket* socket, const QString& path, const QString& question)
{
    Master& master = masters_[path];
    const QByteArray token = master.token;
    const QPointer<QLocalSocket> guard(socket);
    const std::weak_ptr<int> alive = alive_;

    if (question.contains(QLatin1String("(yes/no"))) {
        // A host key nobody has confirmed yet.
        if (!prompt_) {
            reply(socket, std::nullopt);
            return;
        }
        const CredentialsPrompt::HostKey key = hostKeyIn(master.server, question);
        queueQuestion({path, token, guard, [this, alive, path, token, guard, key](std::function<void()> asked) {
                           prompt_->askTrust(key, [this, alive, path, token, guard, asked](bool trust) {
                               if (alive.expired())
                                   return;
                               if (Master* m = masterFor(path, token); m && !trust)
                                   m->cancelled = true;
                               reply(guard, trust ? std::optional<QString>(QStringLiteral("yes"))
                                                  : std::optional<QString>(QStringLiteral("no")));
                               asked();
                           });
                       }});
        return;
    }
    if (question.contains(QLatin1String("passphrase"), Qt::CaseInsensitive)) {
        // A key's passphrase: the caller's password, once; otherwise ssh goes on to the next key.
        if (!master.password.isEmpty() && !master.passphraseGiven && !master.fromPrompt) {
            master.passphraseGiven = true;
            reply(socket, master.password);
        } else {
            reply(socket, std::nullopt);
        }
        return;
    }
    if (!question.contains(QLatin1String("password"), Qt::CaseInsensitive)) {
        // Anything else (a security key's PIN, a one-time code) has no answer here.
        reply(socket, std::nullopt);
        return;
    }
    if (!master.password.isEmpty() && !master.passwordGiven) {
        master.passwordGiven = true;
        reply(socket, master.password);
        return;
    }
    if (!prompt_) {
        reply(socket, std::nullopt);
        return;
    }
    QString tried = userIn(question);
    if (tried.isEmpty())
        tried = master.sshUser.isEmpty() ? loginName() : master.sshUser;
    const bool refused = master.passwordGiven;
    const QString server = master.server;
    queueQuestion({path, token, guard, [this, alive, path, token, guard, server, tried, refused](std::function<void()> asked) {
        prompt_->askCredentials(CredentialsPrompt::Logon::Ssh, server, tried, refused,
                                [this, alive, path, token, guard, tried, asked](std::optional<CredentialsPrompt::Credentials> given) {
            if (alive.expired())
                return;
            Master* m = masterFor(path, token);
            if (!m || !guard) {
                reply(guard, std::nullopt);
            } else if (!given) {
                // Cancelled: ssh would only go on asking.
                m->cancelled = true;
                reply(guard, std::nullopt);
                m->process->terminate();
            } else if (!given->user.isEmpty() && given->user != tried) {
                // Another user: this logon cannot become that user's; start anew.
                m->restartAs = given;
                reply(guard, std::nullopt);
                m->process->terminate();
            } else {
                m->sshUser = tried;
                m->password = given->password;
                m->passwordGiven = true;
                m->fromPrompt = true;
                reply(guard, given->password);
            }
            asked();
        });
    }});
}

void SshConnections::queueQuestion(Question question)
{
    questions_.push_back(std::move(question));
    nextQuestion();
}

void SshConnections::nextQuestion()
{
    // One question at a time: the user answers one dialog before the next one opens.
    while (!asking_ && !questions_.empty()) {
        Question q = std::move(questions_.front());
        questions_.pop_front();
        if (!q.socket || !masterFor(q.path, q.token)) {
            reply(q.socket, std::nullopt);
            continue;
        }
        asking_ = true;
        const std::weak_ptr<int> alive = alive_;
        q.ask([this, alive] {
            if (alive.expired())
                return;
            asking_ = false;
            // Not from inside the answer: the prompt may still be closing its dialog.
            later([this] { nextQuestion(); });
        });
    }
}

void SshConnections::dropQuestions(const QByteArray& token)
{
    // The askpass helpers of a master that is gone get "no answer" and end.
    if (!questionServer_ || token.isEmpty())
        return;
    for (QLocalSocket* socket : questionServer_->findChildren<QLocalSocket*>()) {
        if (socket->property("token").toByteArray() == token)
            socket->abort();
    }
}

void SshConnections::stop(const QString& path, QProcess* process)
{
    // Nobody hears of this master any more.
    process->disconnect();
    if (process->state() == QProcess::NotRunning) {
        process->deleteLater();
        return;
    }
    stopping_.insert(path, process);
    QObject::connect(process, &QProcess::finished, process, [this, process, path] {
        if (stopping_.value(path) == process) {
            stopping_.remove(path);
            // A killed master leaves its socket.
            QFile::remove(path);
        }
        process->deleteLater();
    });
    process->terminate();
    // One that does not end on request is killed; the caller never waits for either.
    QTimer::singleShot(stopTimeoutMs, process, [process] { process->kill(); });
}

void SshConnections::cancel(const QString& server)
{
    const QString path = controlPath(server);
    const auto it = masters_.find(path);
    if (it == masters_.end())
        return;
    QPointer<QProcess> process = it->process;
    auto waiting = std::move(it->waiting);
    dropQuestions(it->token);
    masters_.erase(it);
    if (process)
        stop(path, process);
    for (auto& finish : waiting)
        later([finish = std::move(finish)] { finish(Cancelled); });
}

} // namespace velmora::platform
