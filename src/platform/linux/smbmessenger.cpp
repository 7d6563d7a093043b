#include "platform/linux/smbmessenger.h"

#include <QFileInfo>
#include <QHostAddress>
#include <QHostInfo>
#include <QPointer>
#include <QProcess>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QTimer>
#include <memory>

namespace velmora::platform {

int SmbMessenger::checkRecipient(const QString& recipient)
{
    if (recipient.isEmpty())
        return netmsgerror::invalidParameter;
    // Characters a NetBIOS or host name cannot hold.
    static const QRegularExpression bad(QStringLiteral("[\\s\\x00-\\x1f\\\\/:*?\"<>|+=;,\\[\\]]"));
    return bad.match(recipient).hasMatch() ? netmsgerror::invalidName : netmsgerror::ok;
}

int SmbMessenger::codeForOutput(int exitCode, const QString& output)
{
    static const QRegularExpression status(QStringLiteral("NT_STATUS_[A-Z_]+"));
    const auto m = status.match(output);
    if (m.hasMatch()) {
        const QString s = m.captured();
        if (s == QLatin1String("NT_STATUS_OK"))
            return exitCode == 0 ? netmsgerror::ok : netmsgerror::networkError;
        if (s == QLatin1String("NT_STATUS_ACCESS_DENIED") || s == QLatin1String("NT_STATUS_LOGON_FAILURE"))
            return netmsgerror::accessDenied;
        if (s == QLatin1String("NT_STATUS_NOT_SUPPORTED"))
            return netmsgerror::notSupported;
        if (s == QLatin1String("NT_STATUS_NETWORK_UNREACHABLE"))
            return netmsgerror::connectionNotFound;
        // The name resolves nowhere (smbclient says INVALID_PARAMETER for a DNS name and
        // INVALID_ADDRESS for a NetBIOS name then), nobody listens there, or the computer does
        // not take messages.
        for (const char* notFound : {"NT_STATUS_INVALID_PARAMETER", "NT_STATUS_INVALID_ADDRESS",
                                     "NT_STATUS_INVALID_COMPUTER_NAME", "NT_STATUS_CONNECTION_REFUSED",
                                     "NT_STATUS_BAD_NETWORK_NAME", "NT_STATUS_BAD_NETWORK_PATH",
                                     "NT_STATUS_HOST_UNREACHABLE", "NT_STATUS_NOT_FOUND",
                                     "NT_STATUS_OBJECT_NAME_NOT_FOUND", "NT_STATUS_OBJECT_PATH_NOT_FOUND",
                                     "NT_STATUS_REQUEST_NOT_ACCEPTED", "NT_STATUS_IO_TIMEOUT",
                                     "NT_STATUS_UNSUCCESSFUL"}) {
            if (s == QLatin1String(notFound))
                return netmsgerror::nameNotFound;
        }
        return netmsgerror::networkError;
    }
    return exitCode == 0 ? netmsgerror::ok : netmsgerror::networkError;
}

void SmbMessenger::send(QObject* context, const QString& recipient, const QString& text,
                        std::function<void(int code)> done)
{
    QPointer<QObject> guard(context);
    auto report = [guard, done](int code) {
        if (guard)
            done(code);
    };
    const int bad = text.isEmpty() ? netmsgerror::invalidParameter : checkRecipient(recipient);
    QString exe = program;
    if (program.contains(QLatin1Char('/'))) {
        if (!QFileInfo(program).isExecutable())
            exe.clear();
    } else {
        exe = QStandardPaths::findExecutable(program);
    }
    if (bad != 0 || exe.isEmpty()) {
        const int code = bad != 0 ? bad : netmsgerror::notSupported;
        QTimer::singleShot(0, context, [report, code] { report(code); });
        return;
    }

    const QStringList extra = extra_arguments;
    const int timeout = timeout_ms;
    // The messenger name type is not found by host-name lookup in Samba; a name that the system
    // resolves is given to smbclient as its address, anything else is left to NetBIOS.
    auto run = [report, exe, extra, timeout, recipient, text](const QString& address) {
        QStringList args{QStringLiteral("-M"), recipient, QStringLiteral("-U%"), QStringLiteral("-N")};
        if (!address.isEmpty())
            args << QStringLiteral("-I") << address;
        args << extra;
        auto* proc = new QProcess;
        auto* timer = new QTimer(proc);
        timer->setSingleShot(true);
        auto finished = std::make_shared<bool>(false);
        auto finish = [proc, report, finished](int code) {
            if (*finished)
                return;
            *finished = true;
            // A killed client is reaped before the process object goes.
            if (proc->state() == QProcess::NotRunning)
                proc->deleteLater();
            else
                QObject::connect(proc, &QProcess::finished, proc, &QObject::deleteLater);
            report(code);
        };
        QObject::connect(timer, &QTimer::timeout, proc, [proc, finish] {
            proc->kill();
            finish(netmsgerror::networkError);
        });
        QObject::connect(proc, &QProcess::errorOccurred, proc, [finish](QProcess::ProcessError e) {
            if (e == QProcess::FailedToStart)
                finish(netmsgerror::notSupported);
        });
        QObject::connect(proc, &QProcess::finished, proc, [proc, finish](int code, QProcess::ExitStatus status) {
            if (status != QProcess::NormalExit) {
                finish(netmsgerror::networkError);
                return;
            }
            finish(codeForOutput(code, QString::fromLocal8Bit(proc->readAll())));
        });
        const QByteArray message = text.toUtf8();
        QObject::connect(proc, &QProcess::started, proc, [proc, message] {
            proc->write(message);
            proc->closeWriteChannel();
        });
        proc->setProcessChannelMode(QProcess::MergedChannels);
        proc->setProgram(exe);
        proc->setArguments(args);
        timer->start(timeout);
        proc->start();
    };

    QHostAddress literal;
    if (literal.setAddress(recipient)) {
        run(literal.toString());
        return;
    }
    QHostInfo::lookupHost(recipient, context, [run](const QHostInfo& info) {
        QString address;
        for (const QHostAddress& a : info.addresses()) {
            if (a.protocol() == QAbstractSocket::IPv4Protocol) {
                address = a.toString();
                break;
            }
        }
        if (address.isEmpty() && !info.addresses().isEmpty())
            address = info.addresses().first().toString();
        run(address);
    });
}

} // namespace velmora::platform
