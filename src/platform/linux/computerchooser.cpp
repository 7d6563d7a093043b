#include "platform/linux/computerchooser.h"

#include <QDialogButtonBox>
#include <QDir>
#include <QFile>
#include <QHostAddress>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QProcess>
#include <QPushButton>
#include <QRegularExpression>
#include <QSet>
#include <QStandardPaths>
#include <QTimer>
#include <QVBoxLayout>

#include <algorithm>

namespace velmora::platform {

namespace {

QStringList readLines(const QString& path)
{
    if (path.isEmpty())
        return {};
    QFile f(path);
    if (!f.open(QIODevice::ReadOnly | QIODevice::Text))
        return {};
    return QString::fromUtf8(f.readAll()).split(QLatin1Char('\n'));
}

QStringList fields(const QString& line)
{
    static const QRegularExpression blanks(QStringLiteral("\\s+"));
    return line.split(blanks, Qt::SkipEmptyParts);
}

QString withoutComment(const QString& line)
{
    const qsizetype hash = line.indexOf(QLatin1Char('#'));
    return hash < 0 ? line : line.left(hash);
}

bool isLoopbackName(const QString& name)
{
    const QString n = name.toLower();
    return n.startsWith(QLatin1String("localhost")) || n.startsWith(QLatin1String("ip6-"))
        || n == QLatin1String("broadcasthost");
}

bool isPattern(const QString& name)
{
    return name.contains(QLatin1Char('*')) || name.contains(QLatin1Char('?')) || name.startsWith(QLatin1Char('!'));
}

bool isAddress(const QString& name)
{
    return !QHostAddress(name).isNull();
}

// /etc/hosts: an address, then its names. Loopback and IPv6 housekeeping names are left out.
QStringList namesFromHosts(const QStringList& lines)
{
    QStringList names;
    for (const QString& line : lines) {
        const QStringList f = fields(withoutComment(line));
        for (qsizetype i = 1; i < f.size(); ++i)
            if (!isLoopbackName(f[i]))
                names << f[i];
    }
    return names;
}

// known_hosts: "host1,host2 keytype key". Hashed entries ("|1|...") cannot be read back;
// "[host]:port" is the host; patterns and the lines of @cert-authority and @revoked are no
// computers. An address stands for itself only when no name shares its line.
QStringList namesFromKnownHosts(const QStringList& lines)
{
    QStringList names;
    for (const QString& line : lines) {
        const QStringList f = fields(line);
        if (f.isEmpty() || f[0].startsWith(QLatin1Char('#')) || f[0].startsWith(QLatin1Char('@'))
            || f[0].startsWith(QLatin1Char('|')))
            continue;
        QStringList hosts, addresses;
        for (QString host : f[0].split(QLatin1Char(','), Qt::SkipEmptyParts)) {
            if (host.startsWith(QLatin1Char('['))) {
                const qsizetype close = host.indexOf(QLatin1Char(']'));
                if (close < 0)
                    continue;
                host = host.mid(1, close - 1);
            }
            if (host.isEmpty() || isPattern(host) || host.startsWith(QLatin1Char('|')))
                continue;
            (isAddress(host) ? addresses : hosts) << host;
        }
        names << (hosts.isEmpty() ? addresses : hosts);
    }
    return names;
}

// ~/.ssh/config: "Host a b" (also "Host=a"); names with wildcards or negations are patterns.
QStringList namesFromSshConfig(const QStringList& lines)
{
    static const QRegularExpression hostLine(QStringLiteral("^\\s*host(?:\\s*=\\s*|\\s+)(.*)$"),
                                             QRegularExpression::CaseInsensitiveOption);
    QStringList names;
    for (const QString& line : lines) {
        const QRegularExpressionMatch m = hostLine.match(withoutComment(line));
        if (!m.hasMatch())
            continue;
        for (QString name : fields(m.captured(1))) {
            name.remove(QLatin1Char('"'));
            if (!name.isEmpty() && !isPattern(name))
                names << name;
        }
    }
    return names;
}

// avahi-browse -p: resolved services are "=;iface;proto;service;type;domain;host;address;port;txt".
QStringList namesFromAvahi(const QByteArray& output)
{
    QStringList names;
    for (const QString& line : QString::fromUtf8(output).split(QLatin1Char('\n'))) {
        if (!line.startsWith(QLatin1Char('=')))
            continue;
        const QStringList f = line.split(QLatin1Char(';'));
        if (f.size() > 6 && !f[6].isEmpty())
            names << f[6];
    }
    return names;
}

QStringList avahiArguments()
{
    return {QStringLiteral("-a"), QStringLiteral("-t"), QStringLiteral("-r"), QStringLiteral("-p")};
}

// Each name once (the first spelling seen wins), sorted without regard to case.
QStringList merged(const QStringList& names)
{
    QStringList out;
    QSet<QString> seen;
    for (const QString& n : names)
        if (!seen.contains(n.toLower())) {
            seen.insert(n.toLower());
            out << n;
        }
    std::sort(out.begin(), out.end(), [](const QString& a, const QString& b) {
        const int c = a.compare(b, Qt::CaseInsensitive);
        return c != 0 ? c < 0 : a < b;
    });
    return out;
}

QString avahiPath(const KnownComputerSources& sources)
{
    if (sources.avahiProgram.isEmpty())
        return {};
    if (sources.avahiProgram.contains(QLatin1Char('/')))
        return sources.avahiProgram;
    return QStandardPaths::findExecutable(sources.avahiProgram);
}

} // namespace

KnownComputerSources KnownComputerSources::standard()
{
    KnownComputerSources s;
    s.hostsFile = QStringLiteral("/etc/hosts");
    s.knownHostsFile = QDir::homePath() + QStringLiteral("/.ssh/known_hosts");
    s.sshConfigFile = QDir::homePath() + QStringLiteral("/.ssh/config");
    s.avahiProgram = QStringLiteral("avahi-browse");
    return s;
}

QStringList knownComputersFromFiles(const KnownComputerSources& sources)
{
    return merged(namesFromHosts(readLines(sources.hostsFile))
                  + namesFromKnownHosts(readLines(sources.knownHostsFile))
                  + namesFromSshConfig(readLines(sources.sshConfigFile)));
}

QStringList knownComputers(const KnownComputerSources& sources)
{
    QStringList names = knownComputersFromFiles(sources);
    const QString avahi = avahiPath(sources);
    if (!avahi.isEmpty()) {
        QProcess p;
        p.setStandardInputFile(QProcess::nullDevice());
        p.setStandardErrorFile(QProcess::nullDevice());
        p.start(avahi, avahiArguments());
        if (p.waitForStarted()) {
            if (!p.waitForFinished(sources.avahiTimeoutMs)) {
                p.kill();
                p.waitForFinished();
            }
            names = merged(names + namesFromAvahi(p.readAllStandardOutput()));
        }
    }
    return names;
}

KnownComputersDialog::KnownComputersDialog(const KnownComputerSources& sources, const QString& title, QWidget* owner)
    : QDialog(owner)
{
    setObjectName(QStringLiteral("ComputerChooser"));
    setWindowTitle(title);
    auto* label = new QLabel(title, this);
    label->setObjectName(QStringLiteral("labelTitle"));
    list_ = new QListWidget(this);
    list_->setObjectName(QStringLiteral("listComputers"));
    edit_ = new QLineEdit(this);
    edit_->setObjectName(QStringLiteral("editComputer"));
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, this);
    buttons->setObjectName(QStringLiteral("buttons"));
    ok_ = buttons->button(QDialogButtonBox::Ok);
    ok_->setEnabled(false);
    label->setBuddy(edit_);

    auto* layout = new QVBoxLayout(this);
    layout->addWidget(label);
    layout->addWidget(list_);
    layout->addWidget(edit_);
    layout->addWidget(buttons);

    connect(list_, &QListWidget::itemClicked, this, [this](QListWidgetItem* item) { edit_->setText(item->text()); });
    connect(list_, &QListWidget::currentItemChanged, this, [this](QListWidgetItem* item) {
        if (item)
            edit_->setText(item->text());
    });
    connect(list_, &QListWidget::itemDoubleClicked, this, [this](QListWidgetItem* item) {
        edit_->setText(item->text());
        accept();
    });
    connect(edit_, &QLineEdit::textChanged, this, [this] { ok_->setEnabled(!computerName().isEmpty()); });
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);

    addNames(knownComputersFromFiles(sources));
    edit_->setFocus();

    // mDNS answers take a moment: the dialog is usable at once and the names join as they come.
    const QString avahi = avahiPath(sources);
    if (!avahi.isEmpty()) {
        avahi_ = new QProcess(this);
        avahi_->setStandardInputFile(QProcess::nullDevice());
        avahi_->setStandardErrorFile(QProcess::nullDevice());
        connect(avahi_, &QProcess::finished, this, &KnownComputersDialog::takeAvahiOutput);
        avahi_->start(avahi, avahiArguments());
        QTimer::singleShot(sources.avahiTimeoutMs, avahi_, [this] {
            if (avahi_->state() != QProcess::NotRunning)
                avahi_->kill(); // what it found so far arrives with finished()
        });
    }
}

KnownComputersDialog::~KnownComputersDialog()
{
    if (avahi_) {
        avahi_->disconnect(this);
        if (avahi_->state() != QProcess::NotRunning) {
            avahi_->kill();
            avahi_->waitForFinished(1000);
        }
    }
}

QString KnownComputersDialog::computerName() const
{
    return edit_->text().trimmed();
}

void KnownComputersDialog::addNames(const QStringList& names)
{
    QStringList all;
    for (int i = 0; i < list_->count(); ++i)
        all << list_->item(i)->text();
    const QStringList sorted = merged(all + names);
    if (sorted == all)
        return;
    // Refilling must not disturb what the user has typed or picked.
    const QSignalBlocker quiet(list_);
    const QString current = list_->currentItem() ? list_->currentItem()->text() : QString();
    list_->clear();
    list_->addItems(sorted);
    if (!current.isEmpty()) {
        const auto found = list_->findItems(current, Qt::MatchExactly);
        if (!found.isEmpty())
            list_->setCurrentItem(found.first());
    }
}

void KnownComputersDialog::takeAvahiOutput()
{
    addNames(namesFromAvahi(avahi_->readAllStandardOutput()));
}

KnownComputersChooser::KnownComputersChooser(KnownComputerSources sources) : sources_(std::move(sources)) {}

QString KnownComputersChooser::choose(QWidget* owner, const QString& title)
{
    KnownComputersDialog dialog(sources_, title, owner);
    return dialog.exec() == QDialog::Accepted ? dialog.computerName() : QString();
}

} // namespace velmora::platform
