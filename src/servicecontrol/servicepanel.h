#pragma once
// What the service side shows: the current server, the service selected on it (its key name),
// that service's state and details, and its running dependents in stop order. The service side's
// fields and lists are filled from here, and its commands go by it.
#include <QObject>
#include <QString>
#include <vector>

namespace velmora::servicecontrol {

struct Dependent {
    QString name;    // key name
    QString display; // display name
};

class ServicePanel : public QObject {
    Q_OBJECT
public:
    explicit ServicePanel(QObject* parent = nullptr) : QObject(parent) {}

    // The server whose services are shown, upper case.
    const QString& computer() const { return computer_; }
    void setComputer(const QString& name);

    // The selected service's key name.
    const QString& service() const { return service_; }
    void setService(const QString& key);

    // The state text of the selected service ("Running", "Stopped" ...).
    const QString& state() const { return state_; }
    void setState(const QString& text);

    // Its start type, program file and account.
    const QString& startType() const { return startType_; }
    const QString& binaryPath() const { return binaryPath_; }
    const QString& account() const { return account_; }
    void setStartType(const QString& text);
    void setConfig(const QString& binaryPath, const QString& account);

    // The running dependents; noneRunning() when the last query found none.
    const std::vector<Dependent>& dependents() const { return dependents_; }
    bool noneRunning() const { return noneRunning_; }
    void setDependents(std::vector<Dependent> dependents);
    void setNoneRunning();
    void clearDependents();

    // Forgets the selected service and its details; the dependents stay.
    void clearService();

signals:
    void computerChanged(const QString& name);
    void serviceChanged(const QString& key);
    void stateChanged(const QString& text);
    // The service, its state or one of its details changed.
    void detailsChanged();
    void dependentsChanged();

private:
    QString computer_, service_, state_, startType_, binaryPath_, account_;
    std::vector<Dependent> dependents_;
    bool noneRunning_ = false;
};

} // namespace velmora::servicecontrol
