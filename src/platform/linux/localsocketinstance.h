#pragma once
#include "platform/system.h"
#include <QString>

class QLocalServer;

namespace velmora::platform {

// The first copy listens on a local socket in the user's runtime folder; a later copy that can
// connect there knows it is not alone and asks the first to show itself.
class LocalSocketInstance : public SingleInstance {
public:
    // name: the socket's path; empty for the user's own "velmora-<uid>.sock".
    explicit LocalSocketInstance(QString name = {});
    ~LocalSocketInstance() override;
    bool otherInstanceRunning(std::function<void()> onShowRequest) override;
    void activateOther() override;

private:
    QString name_;
    QLocalServer* server_ = nullptr;
};

} // namespace velmora::platform
