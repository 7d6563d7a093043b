#pragma once
// Services of Windows servers, through their service control manager over the SMB named pipe
// svcctl. The calls go through velmora-svcctl, a small Python program on Samba's bindings: one
// long-lived copy per server, spoken to in JSON lines over a socket on its standard input and
// output. The password reaches it that way too, never on its command line.
//
// Every call waits at most its time-out; a helper that does not answer in time is ended (1053),
// and the next call starts a new one, which logs on again. The Windows error codes the manager
// answers are passed through as they come (5, 1051, 1056, 1058, 1060 ...); a server that cannot
// be reached, or whose link broke, answers 1722.
#include "platform/servicemanager.h"

#include <QString>
#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>

class QJsonObject;

namespace velmora::platform {

class WindowsServices : public ServiceManager {
public:
    struct Logon {
        QString user;     // "user" or "DOMAIN\user"
        QString password;
    };
    struct Options {
        // Each call once the helper runs.
        int callTimeoutMs = 10000;
        // Starting the helper and logging on.
        int connectTimeoutMs = 15000;
        // The helper program; started with python below.
        QString helper;
        QString python = QStringLiteral("/usr/bin/python3");
        // The user and password to log on to a server with; nullopt: none known yet (the calls
        // answer 5). Called from any thread.
        std::function<std::optional<Logon>(const QString& server)> logon;
        // Told that the manager of server refused the logon that logon() gave. Any thread.
        std::function<void(const QString& server)> logonRefused;
    };

    explicit WindowsServices(Options options);
    ~WindowsServices() override;

    ScmHandle openManager(const QString& computer) override;
    ServiceHandle openService(const ScmHandle& scm, const QString& service) override;
    EnumResult enumerateServices(const ScmHandle& scm, int stateFilter) override;
    StatusResult queryStatus(const ServiceHandle& service) override;
    ConfigResult queryConfig(const ServiceHandle& service) override;
    EnumResult enumerateDependents(const ServiceHandle& service, int stateFilter) override;
    int start(const ServiceHandle& service) override;
    int stop(const ServiceHandle& service) override;
    int jobResult(const ServiceHandle& service) override;
    void disconnect(const QString& computer) override;

    // Logs on to server with logon on a helper of its own, then lets it go: 0, 1326 (user name or
    // password wrong), 5 (the user may not log on or use the manager), 1722, 1053. Blocks.
    int tryLogon(const QString& server, const Logon& logon);

    struct Helper;

private:
    std::shared_ptr<Helper> helper(const QString& computer);
    int ensureLoggedOn(Helper& h, const QString& computer);
    int logOn(Helper& h, const QString& computer, const Logon& logon);
    // One request on the helper of computer, logging on first when needed.
    int call(const QString& computer, const QJsonObject& request, QJsonObject* answer);
    EnumResult enumerate(const QString& computer, const QJsonObject& request, int stateFilter);

    Options options_;
    std::mutex mutex_;
    std::map<QString, std::shared_ptr<Helper>> helpers_;
    // Start and stop requests whose end jobResult has not reported yet, by "computer\nservice"
    // in lower case: true for a start.
    std::mutex jobsMutex_;
    std::map<QString, bool> jobs_;
};

} // namespace velmora::platform
