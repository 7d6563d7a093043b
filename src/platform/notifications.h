#pragma once
// Desktop notifications: a short note in the corner of the desktop that the user may click.
#include <QObject>
#include <QString>

namespace velmora::platform {

class Notifier : public QObject {
    Q_OBJECT
public:
    using QObject::QObject;
    // Shows summary and body; a click on it is reported by clicked() with server and service.
    // Returns at once. Nothing happens when the desktop runs no notification server.
    virtual void notify(const QString& summary, const QString& body, const QString& server,
                        const QString& service) = 0;

signals:
    void clicked(const QString& server, const QString& service);
};

} // namespace velmora::platform
