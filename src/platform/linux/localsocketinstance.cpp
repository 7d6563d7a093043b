#include "platform/linux/localsocketinstance.h"

#include "platform/linux/privatefolder.h"

#include <QLocalServer>
#include <QLocalSocket>

namespace velmora::platform {

LocalSocketInstance::LocalSocketInstance(QString name) : name_(std::move(name))
{
    if (!name_.isEmpty())
        return;
    const PrivateFolder folder = privateRuntimeFolder();
    if (folder.usable())
        name_ = folder.path + QStringLiteral("/instance.sock");
    else
        problem_ = folder.problem;
}

LocalSocketInstance::~LocalSocketInstance()
{
    delete server_;
}

bool LocalSocketInstance::otherInstanceRunning(std::function<void()> onShowRequest)
{
    if (name_.isEmpty())
        return false;
    QLocalSocket probe;
    probe.connectToServer(name_);
    if (probe.waitForConnected(500))
        return true;
    // Nobody answers: a socket file left by a copy that crashed is stale.
    QLocalServer::removeServer(name_);
    server_ = new QLocalServer;
    server_->setSocketOptions(QLocalServer::UserAccessOption);
    QObject::connect(server_, &QLocalServer::newConnection, server_, [this, onShowRequest] {
        while (QLocalSocket* s = server_->nextPendingConnection()) {
            QObject::connect(s, &QLocalSocket::readyRead, s, [s, onShowRequest] {
                if (s->readAll().contains("show") && onShowRequest)
                    onShowRequest();
            });
            QObject::connect(s, &QLocalSocket::disconnected, s, &QObject::deleteLater);
        }
    });
    server_->listen(name_);
    return false;
}

void LocalSocketInstance::activateOther()
{
    if (name_.isEmpty())
        return;
    QLocalSocket s;
    s.connectToServer(name_);
    if (!s.waitForConnected(500))
        return;
    s.write("show\n");
    s.waitForBytesWritten(500);
    s.disconnectFromServer();
}

} // namespace velmora::platform
