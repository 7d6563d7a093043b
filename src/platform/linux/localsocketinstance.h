#pragma once
#include "platform/system.h"
#include <QString>

class QLocalServer;

namespace velmora::platform {

// The first copy listens on a local socket in the program's private runtime folder (see
// privatefolder.h); a later copy that can connect there knows it is not alone and asks the first
// to show itself.
class LocalSocketInstance : public SingleInstance {
public:
    // name: the socket's path; empty for "instance.sock" in privateRuntimeFolder(), or nothing
    // at all (see problem()) when that folder is refused.
    explicit LocalSocketInstance(QString name = {});
    ~LocalSocketInstance() override;
    bool otherInstanceRunning(std::function<void()> onShowRequest) override;
    void activateOther() override;
    QString problem() const override { return problem_; }

private:
    QString name_;
    QString problem_;
    QLocalServer* server_ = nullptr;
};

} // namespace velmora::platform
