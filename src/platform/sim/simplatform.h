#pragma once
// Simulated platform for tests: files on disk (in the test's own folder) with failures on
// demand, recorded message boxes with scripted answers, a clock that tests move, a scriptable
// set of computers that answer pings, and jobs that run at once.
#include "platform/linux/disktextfiles.h"
#include "platform/platform.h"
#include "platform/sim/simservices.h"
#include "platform/sim/simbeeper.h"
#include "platform/sim/simfiledialogs.h"
#include "platform/sim/simmail.h"
#include "platform/sim/simopener.h"
#include "platform/sim/simsecrets.h"
#include "platform/sim/simtcp.h"
#include "platform/sim/simtray.h"

#include <QDateTime>
#include <QHash>
#include <QList>
#include <QPointer>
#include <QSet>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <vector>

namespace velmora::platform::sim {

// Disk files with injectable failures.
class SimTextFiles : public DiskTextFiles {
public:
    enum class Op { Exists, Create, Read, Write, Append, Size, Remove };
    // Every call of op on a path whose file name matches (without regard to case; empty: any
    // path) fails from now on, as access denied (5), until clearFailures().
    void failOn(Op op, const QString& fileName = {});
    void clearFailures();
    // The disk has room for only this many more bytes: a write that goes beyond them writes what
    // fits and then fails as a full disk does (112, "No space left on device"). Space freed by
    // replaced files does not count. -1: room without end (the start).
    void setRoomLeft(qint64 bytes) { room_ = bytes; }

    bool exists(const QString& path) override;
    bool create(const QString& path) override;
    std::optional<QStringList> readLines(const QString& path, bool includeUnterminated = false) override;
    std::optional<QString> readAll(const QString& path) override;
    int lineCount(const QString& path) override;
    bool writeLines(const QString& path, const QStringList& lines) override;
    bool appendLines(const QString& path, const QStringList& lines) override;
    qint64 size(const QString& path) override;
    bool remove(const QString& path) override;

protected:
    int writeBytes(int fd, const QByteArray& bytes) override;

private:
    bool fails(Op op, const QString& path);
    std::vector<std::pair<Op, QString>> failures_;
    qint64 room_ = -1;
};

struct ShownBox {
    QString text;
    MsgIcon icon;
    MsgButtons buttons;
    QString title;
};

class SimMessageBoxes : public MessageBoxes {
public:
    MsgAnswer show(const QString& text, MsgIcon icon, MsgButtons buttons, const QString& title) override;
    // The next boxes answer these, in order; without a scripted answer a box answers its first
    // button (OK or Yes).
    void script(MsgAnswer answer) { answers_.push_back(answer); }
    QList<ShownBox> shown;
    QStringList texts() const;
    // Runs while a box is open, as the events a real modal box lets through would (timer ticks).
    std::function<void(const ShownBox&)> whileOpen;

private:
    std::deque<MsgAnswer> answers_;
};

class SimTimer;

class SimClock : public Clock {
public:
    SimClock();
    QDateTime now() const override { return now_; }
    // Simulated time is exact: every timer is precise.
    Timer* createTimer(QObject* parent, const QString& name, int intervalMs,
                       Precision precision = Precision::Coarse) override;
    void singleShot(int ms, QObject* context, std::function<void()> fn,
                    Precision precision = Precision::Coarse) override;

    void setNow(const QDateTime& t) { now_ = t; }
    // Moves time on by ms, firing every due timer and single shot in time order.
    void advance(qint64 ms);

private:
    friend class SimTimer;
    struct Shot {
        qint64 due;
        quint64 seq;
        QPointer<QObject> context;
        std::function<void()> fn;
    };
    qint64 elapsed_ = 0;
    quint64 seq_ = 0;
    QDateTime now_;
    QList<QPointer<SimTimer>> timers_;
    std::vector<Shot> shots_;
};

class SimTimer : public Timer {
    Q_OBJECT
public:
    SimTimer(SimClock& clock, QObject* parent) : Timer(parent), clock_(clock) {}
    void setInterval(int ms) override;
    int interval() const override { return interval_; }
    void setEnabled(bool on) override;
    bool isEnabled() const override { return enabled_; }
    qint64 due() const { return due_; }
    void fire();

private:
    SimClock& clock_;
    int interval_ = 0;
    bool enabled_ = false;
    qint64 due_ = 0;
};

class SimSystem : public SystemInfo {
public:
    int platformId() override { return platform_id; }
    QString computerName() override { return computer_name; }
    QString fullyQualifiedName() override { return fully_qualified_name; }
    QString programFolder() override { return program_folder; }
    QString programFileName() override { return program_file_name; }
    bool folderWritable(const QString& folder) override;
    QString userDataFolder() override { return user_data_folder; }

    int platform_id = 2;
    QString computer_name = QStringLiteral("ADMINPC");
    QString fully_qualified_name = QStringLiteral("adminpc.corp.test");
    QString program_folder;
    QString program_file_name = QStringLiteral("velmora");
    QString user_data_folder;
    bool program_folder_writable = true;
};

class SimSingleInstance : public SingleInstance {
public:
    bool otherInstanceRunning(std::function<void()> onShowRequest) override;
    void activateOther() override { ++activations; }
    QString problem() const override { return problem_text; }
    bool other_running = false;
    QString problem_text; // what problem() answers
    int activations = 0;
    std::function<void()> show_request;
};

class SimApplication : public Application {
public:
    void end(int code) override;
    bool ended() const override { return ended_; }
    void onSessionEnd(std::function<void()> fn) override { session_end = std::move(fn); }
    int exit_code = -1;
    std::function<void()> session_end;

private:
    bool ended_ = false;
};

// Computers by name: each resolves to an address and answers with a status.
class SimIcmp : public Icmp {
public:
    QString resolve(const QString& name) override;
    QStringList resolveAll(const QStringList& names, int timeoutMs) override;
    std::vector<int> echo(const QStringList& addresses, const QByteArray& data, int timeoutMs) override;
    // What unavailableReason() answers; when set, echo() gives 11050 for every dotted address.
    QString unavailable_reason;
    QString unavailableReason() override { return unavailable_reason; }

    // name resolves to address and the address answers status (0 = reachable).
    void addComputer(const QString& name, const QString& address, int status = 0);
    void setStatus(const QString& nameOrAddress, int status);
    // Wall time one echo() call takes (the benchmarks use it; tests leave it 0).
    int delay_ms = 0;
    // Every address pinged, in order.
    QStringList pinged;
    QByteArray last_data;

private:
    QHash<QString, QString> addresses_; // upper-case name -> address
    QHash<QString, int> statuses_;      // address -> status
};

// Runs each job and its completion at once on the calling thread.
// Runs each job at once on the calling thread and applies its result at once, or, while held,
// keeps the results back until the test releases them (work still on its way).
class SimWorker : public Worker {
public:
    void run(QObject* context, std::function<std::function<void()>()> job) override;
    // Applies the held results (and those they cause) in the order their jobs ran, then stops holding.
    void release();
    int jobs = 0;
    bool hold = false;

private:
    std::deque<std::function<void()>> held_;
};

class SimNetConnections : public NetConnections {
public:
    void add(QObject* context, const QString& server, const QString& user, const QString& password,
             std::function<void(int)> done) override;
    void cancel(const QString& server) override { cancelled << server; }
    void closeAll() override { ++closes; }
    int result = 0;
    int closes = 0;
    QStringList added, cancelled;
    QString last_user, last_password;
};

class SimSound : public Sound {
public:
    int playLoop(const QString& file) override
    {
        plays << file;
        if (play_error == 0)
            playing = file;
        return play_error;
    }
    int stop() override
    {
        ++stops;
        playing.clear();
        return stop_error;
    }
    QStringList plays;  // every file asked for, in order
    QString playing;    // the file looping now; empty when none
    int play_error = 0; // what playLoop() answers
    int stops = 0;
    int stop_error = 0; // what stop() answers
};

class SimComputerChooser : public ComputerChooser {
public:
    QString choose(QWidget*, const QString& title) override { titles << title; return answer; }
    QString answer;
    QStringList titles;
};

// All simulated services in one place.
class SimPlatform {
public:
    SimPlatform();
    Platform platform();

    SimTextFiles files;
    SimMessageBoxes boxes;
    SimClock clock;
    SimSystem system;
    SimSingleInstance instance;
    SimApplication app;
    SimIcmp icmp;
    SimWorker worker;
    SimNetConnections net;
    SimServices services{clock, system, net};
    SimTrayIcon tray;
    SimSound sound;
    SimComputerChooser chooser;
    SimOpener opener;
    SimBeeper beeper{clock};
    SimTcpNetwork tcp;
    SimSecrets secrets;
    SimProfileMail profilemail;
    SimNetMessenger messenger;
    SimFileDialogs filedialogs;
    // Which servers are Windows servers: the program installs its "ServerTypes" file (on the
    // simulated files, so a failed write can be had on demand).
    ServerKindsSlot serverkinds;
};

} // namespace velmora::platform::sim
