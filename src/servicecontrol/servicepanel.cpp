#include "servicecontrol/servicepanel.h"

namespace velmora::servicecontrol {

void ServicePanel::setComputer(const QString& name)
{
    if (name == computer_)
        return;
    computer_ = name;
    emit computerChanged(computer_);
}

void ServicePanel::setService(const QString& key)
{
    if (key == service_)
        return;
    service_ = key;
    emit serviceChanged(service_);
    emit detailsChanged();
}

void ServicePanel::setState(const QString& text)
{
    if (text == state_)
        return;
    state_ = text;
    emit stateChanged(state_);
    emit detailsChanged();
}

void ServicePanel::setStartType(const QString& text)
{
    startType_ = text;
    emit detailsChanged();
}

void ServicePanel::setConfig(const QString& binaryPath, const QString& account)
{
    binaryPath_ = binaryPath;
    account_ = account;
    emit detailsChanged();
}

void ServicePanel::setDependents(std::vector<Dependent> dependents)
{
    dependents_ = std::move(dependents);
    noneRunning_ = false;
    emit dependentsChanged();
}

void ServicePanel::setNoneRunning()
{
    dependents_.clear();
    noneRunning_ = true;
    emit dependentsChanged();
}

void ServicePanel::clearDependents()
{
    dependents_.clear();
    noneRunning_ = false;
    emit dependentsChanged();
}

void ServicePanel::clearService()
{
    setService({});
    setState({});
    startType_.clear();
    binaryPath_.clear();
    account_.clear();
    emit detailsChanged();
}

} // namespace velmora::servicecontrol
