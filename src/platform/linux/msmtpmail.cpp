#include "platform/linux/msmtpmail.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QPointer>
#include <QProcess>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QTimer>
#include <memory>

namespace velmora::platform {

namespace {

// Runs fn on the user-interface thread once the caller has returned, unless context is gone.
void later(QObject* context, std::function<void()> fn)
{
    QTimer::singleShot(0, context, std::move(fn));
}

// msmtp's complaints, one line, without its name in front of each.
QString oneLine(const QByteArray& output)
{
    QStringList parts;
    for (QString line : QString::fromLocal8Bit(output).split(QLatin1Char('\n'))) {
        line = line.trimmed();
        if (line.startsWith(QLatin1String("msmtp:")))
            line = line.mid(6).trimmed();
        if (!line.isEmpty())
            parts << line;
    }
    return parts.join(QStringLiteral("; "));
}

QByteArray encodedHeaderText(const QString& text)
{
    bool plain = true;
    for (QChar c : text) {
        if (c.unicode() < 0x20 || c.unicode() > 0x7e) {
            plain = false;
            break;
        }
    }
    if (plain)
        return text.toLatin1();
    // RFC 2047 encoded words of at most 45 bytes of UTF-8 each (60 characters of Base64),
    // never splitting a character.
    QByteArrayList words;
    QByteArray chunk;
    for (qsizetype i = 0; i < text.size(); ++i) {
        QString ch(text.at(i));
        if (text.at(i).isHighSurrogate() && i + 1 < text.size())
            ch += text.at(++i);
        const QByteArray bytes = ch.toUtf8();
        if (chunk.size() + bytes.size() > 45) {
            words << "=?UTF-8?B?" + chunk.toBase64() + "?=";
            chunk.clear();
        }
        chunk += bytes;
    }
    if (!chunk.isEmpty())
        words << "=?UTF-8?B?" + chunk.toBase64() + "?=";
    return words.join("\n ");
}

} // namespace

QStringList MsmtpMail::accountsIn(const QString& configText)
{
    // "account NAME" or "account NAME : BASE"; the name may be quoted.
    static const QRegularExpression line(
        QStringLiteral("^\\s*account\\s+(?:\"((?:[^\"\\\\]|\\\\.)*)\"|([^\\s:]+))\\s*(?::.*)?$"));
    QStringList out;
    for (const QString& l : configText.split(QLatin1Char('\n'))) {
        QString text = l;
        text.remove(QLatin1Char('\r'));
        const auto m = line.match(text);
        if (!m.hasMatch())
            continue;
        QString name = m.captured(1).isNull() ? m.captured(2) : m.captured(1);
        name.replace(QStringLiteral("\\\""), QStringLiteral("\""));
        name.replace(QStringLiteral("\\\\"), QStringLiteral("\\"));
        out << name;
    }
    return out;
}

bool MsmtpMail::usableAddress(const QString& address)
{
    static const QRegularExpression form(QStringLiteral("^[^\\s@<>,;:\"()\\[\\]\\\\]+@[^\\s@<>,;:\"()\\[\\]\\\\]+$"));
    return form.match(address).hasMatch();
}

QByteArray MsmtpMail::messageText(const QString& recipient, const QString& subject, const QString& body)
{
    QString oneLineSubject = subject;
    oneLineSubject.replace(QLatin1String("\r\n"), QLatin1String(" "));
    oneLineSubject.replace(QLatin1Char('\r'), QLatin1Char(' '));
    oneLineSubject.replace(QLatin1Char('\n'), QLatin1Char(' '));
    QString text = body;
    text.replace(QLatin1String("\r\n"), QLatin1String("\n"));
    text.replace(QLatin1Char('\r'), QLatin1Char('\n'));

    QByteArray m;
    m += "To: " + recipient.toUtf8() + "\n";
    m += "Subject: " + encodedHeaderText(oneLineSubject) + "\n";
    m += "MIME-Version: 1.0\n";
    m += "Content-Type: text/plain; charset=UTF-8\n";
    m += "Content-Transfer-Encoding: 8bit\n";
    m += "X-Mailer: Velmora\n";
    m += "\n";
    m += text.toUtf8();
    if (!m.endsWith('\n'))
        m += '\n';
    return m;
}

QString MsmtpMail::executable() const
{
    if (program.contains(QLatin1Char('/'))) {
        const QFileInfo info(program);
        return info.isFile() && info.isExecutable() ? info.absoluteFilePath() : QString();
    }
    return QStandardPaths::findExecutable(program);
}

QStringList MsmtpMail::configFiles() const
{
    if (!config.isEmpty())
        return {config};
    QStringList files;
    const QString home = QDir::homePath();
    const QString rc = home + QStringLiteral("/.msmtprc");
    if (QFileInfo::exists(rc)) {
        files << rc;
    } else {
        QString xdg = qEnvironmentVariable("XDG_CONFIG_HOME");
        if (xdg.isEmpty())
            xdg = home + QStringLiteral("/.config");
        files << xdg + QStringLiteral("/msmtp/config");
    }
    files << QStringLiteral("/etc/msmtprc");
    return files;
}

MailResult MsmtpMail::logon(const QString& profile)
{
    if (executable().isEmpty())
        return {mailerror::noMailClient, QStringLiteral("No mail client: msmtp is not installed.")};
    const QStringList files = configFiles();
    bool anyFile = false;
    for (const QString& f : files) {
        QFile file(f);
        if (!file.open(QIODevice::ReadOnly))
            continue;
        anyFile = true;
        if (accountsIn(QString::fromUtf8(file.readAll())).contains(profile))
            return {};
    }
    if (!anyFile)
        return {mailerror::logonFailed,
                QStringLiteral("The logon failed: no msmtp configuration was found (%1).").arg(files.first())};
    return {mailerror::logonFailed,
            QStringLiteral("The logon failed: the profile \"%1\" is not an account of %2.")
                .arg(profile, files.join(QStringLiteral(" or ")))};
}

void MsmtpMail::send(QObject* context, const QString& profile, const QString& recipient, const QString& subject,
                     const QString& body, std::function<void(MailResult)> done)
{
    const MailResult session = logon(profile);
    if (!session.ok()) {
        later(context, [done, session] { done(session); });
        return;
    }
    const QString address = recipient.trimmed();
    if (!usableAddress(address)) {
        const MailResult r{mailerror::recipientUnresolved,
                           QStringLiteral("The recipient \"%1\" could not be resolved to a mail address.").arg(recipient)};
        later(context, [done, r] { done(r); });
        return;
    }

    QPointer<QObject> guard(context);
    auto* proc = new QProcess;
    auto* timer = new QTimer(proc);
    timer->setSingleShot(true);
    auto finished = std::make_shared<bool>(false);
    auto finish = [proc, guard, done, finished](MailResult r) {
        if (*finished)
            return;
        *finished = true;
        // A killed msmtp is reaped before the process object goes.
        if (proc->state() == QProcess::NotRunning)
            proc->deleteLater();
        else
            QObject::connect(proc, &QProcess::finished, proc, &QObject::deleteLater);
        if (guard)
            done(r);
    };
    const int seconds = timeout_ms / 1000;
    QObject::connect(timer, &QTimer::timeout, proc, [proc, finish, seconds] {
        proc->kill();
        finish({mailerror::callFailed, QStringLiteral("msmtp did not finish within %1 seconds.").arg(seconds)});
    });
    QObject::connect(proc, &QProcess::errorOccurred, proc, [proc, finish](QProcess::ProcessError e) {
        if (e == QProcess::FailedToStart)
            finish({mailerror::noMailClient, QStringLiteral("No mail client: msmtp could not be started (%1).")
                                                 .arg(proc->errorString())});
    });
    QObject::connect(proc, &QProcess::finished, proc, [proc, finish](int code, QProcess::ExitStatus status) {
        if (status == QProcess::NormalExit && code == 0) {
            finish({});
            return;
        }
        QString text = oneLine(proc->readAllStandardError());
        if (text.isEmpty())
            text = status == QProcess::NormalExit ? QStringLiteral("msmtp ended with code %1.").arg(code)
                                                  : QStringLiteral("msmtp ended abnormally.");
        // 65: the server refused the recipient; 78: the account is not usable as configured.
        const int number = code == 65 ? mailerror::recipientUnresolved
                         : code == 78 ? mailerror::logonFailed
                                      : mailerror::callFailed;
        finish({number, text});
    });

    QStringList args;
    if (!config.isEmpty())
        args << QStringLiteral("--file=") + config;
    args << QStringLiteral("--account=") + profile << QStringLiteral("-t");
    proc->setProgram(executable());
    proc->setArguments(args);
    proc->setStandardOutputFile(QProcess::nullDevice());
    const QByteArray message = messageText(address, subject, body);
    QObject::connect(proc, &QProcess::started, proc, [proc, message] {
        proc->write(message);
        proc->closeWriteChannel();
    });
    timer->start(timeout_ms);
    proc->start();
}

} // namespace velmora::platform
