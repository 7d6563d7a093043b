#include "platform/linux/localsocketinstance.h"

#include <QDir>
#include <QLocalServer>
#include <QLocalSocket>
#include <QStandardPaths>

#include <unistd.h>

namespace velmora::platform {

namespace {

QString defaultName()
{
    QString dir = QStandardPaths::writableLocation(QStandardPaths::RuntimeLocation);
    if (dir.isEmpty())
        dir = QDir::tempPath();
    return dir + QStringLiteral("/velmora-%1.sock").arg(::getuid());
}

} // namespace

LocalSocketInstance::LocalSocketInstance(QString name) : name_(name.isEmpty() ? defaultName() : std::move(name)) {}

LocalSocketInstance::~LocalSocketInstance()
{
    delete server_;
}

bool LocalSocketInstance::otherInstanceRunning(std::function<void()> onShowRequest)
{
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
    QLocalSocket s;
    s.connectToServer(name_);
    if (!s.waitForConnected(500))
        return;
    s.write("show\n");
    s.waitForBytesWritten(500);
    s.disconnectFromServer();
}

} // namespace velmora::platform
